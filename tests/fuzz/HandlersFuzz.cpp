#include <sys/types.h>

#include <array>
#include <atomic>

#include "Bytes.h"
#include "core/OrvexSnmpOid.h"
#include "frame/OrvexSnmpMain.h"
#include "frame/RebootHandler.h"
#include "frame/ScalarRegistration.h"
#include "motion/OrvexSnmpPan.h"
#include "support/CameraFolder.h"
#include "support/FakeAgent.h"
#include "support/FakePlatform.h"
#include "support/Journal.h"
#include "support/Opened.h"
#include "support/SnmpRequest.h"
#include "tavos/core/Logger.h"

// Every scalar's handler, with values of any type and length, in any mode and any order of modes. The services answer,
// throw, or return odd values. A model knows what each handler may answer, store and call. The first difference aborts
// the process.

namespace {

int s_restarts = 0;

}  // namespace

// The restart of the camera: counted, without a child.
extern "C" pid_t vfork() noexcept {
    ++s_restarts;
    return -1;
}

struct LogLevelTag {
    using Type = std::atomic<int>*;
    friend Type MemberOf(LogLevelTag);
};
template struct Opened<LogLevelTag, &tavos::core::Logger::s_level>;

namespace {

using journal::Lines;
using Octets = std::vector<std::uint8_t>;

enum class Kind {
    kText,      // identity: GET only
    kConstant,  // reads only, no calls
    kSensor,    // GET only, asks its service
    kStatus,    // reads only, one octet, asks its service
    kPreset,    // accepts everything, does nothing
    kPosition,  // a command of four octets
    kTrueNorth,
    kCameraControl,
    kCameraEquipped,
    kLensControl,
    kLensStatus,
    kLensEquipped,
    kOutputControl,
    kReboot,
    kOther,  // known only: whether it can be written
};

struct Object {
    const char* name;
    Kind kind;
    const char* service = "";  // the service that it may call
    long value = 0;            // of a constant
};

// The objects of which the model knows more than whether they are constant or writable.
constexpr Object kKnown[] = {
    {"modelNumber", Kind::kText},
    {"modelName", Kind::kText},
    {"serialNumber", Kind::kText},
    {"fwVersion", Kind::kText},
    {"swVersion", Kind::kText},
    {"hwVersion", Kind::kText},
    {"temperature", Kind::kSensor, "temperature"},
    {"power", Kind::kSensor, "power"},
    {"voltage", Kind::kSensor, "voltage"},
    {"moduleDeviceNode", Kind::kText},
    {"moduleMake", Kind::kText},
    {"moduleModel", Kind::kText},
    {"moduleVersion", Kind::kText},
    {"rangeTrueNorthOffset", Kind::kTrueNorth},
    {"presetGotoPosition", Kind::kPreset},
    {"presetStorePosition", Kind::kPreset},
    {"positionPan", Kind::kPosition, "pan"},
    {"positionTilt", Kind::kPosition, "tilt"},
    {"positionZoomLens", Kind::kPosition, "zoom"},
    {"positionFocusLens", Kind::kPosition, "focus2"},
    {"positionIrisLens", Kind::kPosition, "iris"},
    {"systemCameraFeatureControl", Kind::kCameraControl},
    {"systemCameraFeatureStatus", Kind::kStatus},
    {"systemCameraEquipped", Kind::kCameraEquipped},
    {"systemLensFeatureControl", Kind::kLensControl},
    {"systemLensFeatureStatus", Kind::kLensStatus, "iris"},
    {"systemLensEquipped", Kind::kLensEquipped},
    {"alarmStatus", Kind::kStatus, "alarm"},
    {"inputStatus", Kind::kStatus, "alarm"},
    {"outputStatus", Kind::kStatus, "relay"},
    {"outputControl", Kind::kOutputControl, "relay"},
    {"rebootDevice", Kind::kReboot},
};

constexpr struct {
    const char* name;
    long value;
} kConstants[] = {
#include "objects/ConstantValues.inc"
};

Object ObjectOf(const char* name) {
    const auto isIt = [&](const auto& known) { return std::strcmp(known.name, name) == 0; };
    const auto* known = std::find_if(std::begin(kKnown), std::end(kKnown), isIt);
    if (known != std::end(kKnown)) return *known;
    const auto* constant = std::find_if(std::begin(kConstants), std::end(kConstants), isIt);
    if (constant != std::end(kConstants)) return {name, Kind::kConstant, "", constant->value};
    return {name, Kind::kOther};
}

// The registration table's objects in its order, and the reboot.
const std::array<Object, kScalarCount + 1> kObjects = [] {
    std::array<Object, kScalarCount + 1> objects;
    for (std::size_t i = 0; i < kScalarCount; ++i) objects[i] = ObjectOf(ScalarTable()[i].name);
    objects[kScalarCount] = ObjectOf("rebootDevice");
    return objects;
}();

constexpr const char* kOperations[] = {
    "pan.SetPositionAtSpeed",
    "pan.GetPosition",
    "pan.SetRelativeVelocity",
    "tilt.SetPositionAtSpeed",
    "tilt.GetPosition",
    "tilt.SetRelativeVelocity",
    "zoom.SetMagnificationThousandthsX",
    "zoom.GetMagnificationThousandthsX",
    "zoom.GetMaxMagnificationThousandthsX",
    "zoom.ZoomRelative",
    "focus.SetAutoFocus",
    "focus2.AutoFocus",
    "focus2.GetPosition",
    "focus2.SetPosition",
    "iris.SetAutoIris",
    "iris.GetAutoIris",
    "iris.MoveIris",
    "alarm.GetAlarmState",
    "relay.GetRelayState",
    "relay.SetRelay",
    "relay.ClearRelay",
    "temperature.GetTemperatureDegreesCelsius",
    "power.GetPowerStatus",
    "voltage.GetVoltageStatus",
    "settings.GetValue",
    "settings.SetValue",
};

void StartOnce() {
    static CameraFolder folder;
    folder.Identity("MODEL-1", "SERIAL-1", "1234-05");
    folder.Version("02.01.00-20120531b\n");
    ResetAgent();
    ResetCamera();
    Camera().settings["[Device/ReadOnly]ProductFamily"] = "Family";
    Camera().settings["[Device/ReadOnly]Manufacturer"] = "Maker";
    new OrvexSnmpMain();
}

Netsnmp_Node_Handler* HandlerOf(std::size_t index) {
    return index < kScalarCount ? ScalarTable()[index].handler : &handle_rebootDevice;
}

const oid* NameOf(std::size_t index) {
    return index < kScalarCount ? ScalarTable()[index].objectId : OrvexSnmpOid::oid_rebootDevice;
}

std::size_t NameLengthOf(std::size_t index) {
    return index < kScalarCount ? ScalarTable()[index].oidLength : OID_LENGTH(OrvexSnmpOid::oid_rebootDevice);
}

bool Begins(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

/// A call that changes the camera.
bool Drives(const std::string& call) {
    const auto operation = call.substr(call.find(' ') + 1);
    return !Begins(operation, "Get") && !Begins(operation, "Is");
}

bool IsAxis(const std::string& service) {
    return service == "pan" || service == "tilt";
}

bool IsSpeedRefused(const std::string& service, const Octets& command) {
    return command[0] == 3 && command[1] == 0x80 && !IsAxis(service);
}

/// The result of a commit of a position command.
int ResultOf(const std::string& service, const Octets& command) {
    if (command[0] == 0) return command[1] == 0 ? 0 : SNMP_ERR_GENERR;
    if (command[0] > 3 || IsSpeedRefused(service, command)) return SNMP_ERR_GENERR;
    const int position = command[2] << 8 | command[3];
    return IsAxis(service) && command[0] == 2 && position > 35999 ? SNMP_ERR_GENERR : 0;
}

/// One value of a SET as the agent may pass it.
struct Value {
    std::uint8_t type = ASN_NULL;
    Octets octets;

    /// The first `count` octets, the missing ones 0.
    Octets First(std::size_t count) const {
        Octets first(octets.begin(), octets.begin() + static_cast<std::ptrdiff_t>(std::min(count, octets.size())));
        first.resize(count);
        return first;
    }
    std::int32_t Integer() const {
        std::int32_t number;
        std::memcpy(&number, First(sizeof number).data(), sizeof number);
        return number;
    }
};

Value TakeValue(Bytes& bytes) {
    constexpr std::uint8_t kTypes[] = {ASN_OCTET_STR,     ASN_INTEGER,         ASN_OCTET_STR,    ASN_INTEGER,
                                       SNMP_NOSUCHOBJECT, SNMP_NOSUCHINSTANCE, SNMP_ENDOFMIBVIEW};
    Value value;
    const auto choice = bytes.Byte();
    value.type = choice < std::size(kTypes) ? kTypes[choice] : choice;
    value.octets = bytes.Octets(bytes.Length());
    // These types also arrive without a value.
    if (value.type >= SNMP_NOSUCHOBJECT && value.type <= SNMP_ENDOFMIBVIEW) value.octets.clear();
    return value;
}

/// Copies the value into a buffer of exactly its size, so that the sanitizer sees a read beyond its end.
void SetValue(SnmpRequest& request, const Value& value) {
    auto& variable = *request.Raw().requestvb;
    request.With(value.type, value.octets.data(), value.octets.size());
    if (variable.val.string != nullptr && variable.val.string != variable.buf) std::free(variable.val.string);
    variable.val.string = nullptr;
    variable.val_len = value.octets.size();
    if (value.type >= SNMP_NOSUCHOBJECT && value.type <= SNMP_ENDOFMIBVIEW) return;
    variable.val.string = static_cast<u_char*>(std::malloc(std::max<std::size_t>(value.octets.size(), 1)));
    std::copy(value.octets.begin(), value.octets.end(), variable.val.string);
}

class Model {
public:
    /// Resets everything that the handlers store to its value after a start.
    Model() {
        for (std::size_t i = 0; i < kObjects.size(); ++i) {
            if (kObjects[i].kind != Kind::kPosition) continue;
            _last[i] = Octets(4);
            Commit(i, _last[i]);
        }
        Commit(IndexOf("systemCameraFeatureControl"), _cameraControl);
        Commit(IndexOf("systemCameraEquipped"), _cameraEquipped);
        Commit(IndexOf("systemLensFeatureControl"), _lensControl);
        Commit(IndexOf("systemLensEquipped"), _lensEquipped);
        Commit(IndexOf("outputControl"), _control);
        SnmpRequest north(OrvexSnmpOid::oid_rangeTrueNorthOffset);
        north.WithInteger(_trueNorth).Call(OrvexSnmpPan::handle_rangeTrueNorthOffset, MODE_SET_ACTION);
        SnmpRequest reboot(OrvexSnmpOid::oid_rebootDevice);
        reboot.Call(handle_rebootDevice, MODE_SET_UNDO);
    }

    /// Calls the handler and compares what it did with what it may do. Returns the error that the agent would see.
    int Step(std::size_t index, int mode, SnmpRequest& request, const Value& value) {
        const Object& object = kObjects[index];
        _index = index;
        _mode = mode;
        _value = &value;
        _request = &request;
        const int markBefore = request.Mark();
        const int restartsBefore = s_restarts;
        journal::Clear();
        _result = request.Call(HandlerOf(index), mode);
        _mark = markBefore == 0 ? request.Mark() : 0;
        _calls = journal::Calls();
        _driving = 0;
        for (const auto& call : _calls) _driving += Drives(call) ? 1 : 0;
        _isRestart = s_restarts != restartsBefore;

        MUST(journal::All("agent ").empty(), "%s, mode %d", object.name, mode);
        MUST(!_isRestart || object.kind == Kind::kReboot, "%s, mode %d", object.name, mode);
        const bool storesSettings = !journal::All("settings SetValue").empty();
        MUST(!storesSettings || (object.kind == Kind::kLensControl && mode == MODE_SET_COMMIT), "%s, mode %d",
             object.name, mode);
        if (object.kind != Kind::kLensControl && object.kind != Kind::kOther) {
            for (const auto& call : _calls) {
                MUST(*object.service != 0 && Begins(call, std::string(object.service) + " "), "%s, mode %d, calls %s",
                     object.name, mode, call.c_str());
            }
        }
        Check(object);
        return _result != 0 ? _result : request.Mark();
    }

private:
    static std::size_t IndexOf(const std::string& name) {
        return static_cast<std::size_t>(
            std::find_if(kObjects.begin(), kObjects.end(), [&](const Object& o) { return o.name == name; }) -
            kObjects.begin());
    }
    static void Commit(std::size_t index, const Octets& value) {
        SnmpRequest request(NameOf(index), NameLengthOf(index));
        request.WithOctets(value);
        request.Call(HandlerOf(index), MODE_SET_ACTION);
        request.Call(HandlerOf(index), MODE_SET_COMMIT);
    }

    bool IsReading() const { return IsRead(_mode); }
    bool IsKnownMode() const { return (_mode >= MODE_SET_RESERVE1 && _mode <= MODE_SET_UNDO) || IsReading(); }

    void Result(int expected, int mark = 0) const {
        MUST(_result == expected && _mark == mark, "%s, mode %d, type %#x: result %d (%d), mark %d (%d)",
             kObjects[_index].name, _mode, _value->type, _result, expected, _mark, mark);
    }
    void NoAnswer() const { MUST(Agent().answers.empty(), "%s, mode %d", kObjects[_index].name, _mode); }
    void Quiet() const {
        MUST(_calls.empty(), "%s, mode %d, calls %s", kObjects[_index].name, _mode, _calls.front().c_str());
    }
    void Driving(int expected) const {
        MUST(_driving == expected, "%s, mode %d: %d calls that drive, not %d", kObjects[_index].name, _mode, _driving,
             expected);
    }
    void Answers(const Octets& expected) const {
        MUST(_request->Type() == ASN_OCTET_STR && _request->Octets() == expected, "%s, mode %d", kObjects[_index].name,
             _mode);
        MUST(Agent().answers.size() == 1, "%s, mode %d", kObjects[_index].name, _mode);
    }
    void AnswersInteger(long expected, u_char type = ASN_INTEGER) const {
        MUST(_request->Type() == type && _request->Integer() == expected, "%s, mode %d: %ld, not %ld",
             kObjects[_index].name, _mode, _request->Integer(), expected);
        MUST(_request->Length() == sizeof(long) && Agent().answers.size() == 1, "%s, mode %d", kObjects[_index].name,
             _mode);
    }
    /// Expects no answer and no call.
    void Nothing(int result = 0, int mark = 0) const {
        Result(result, mark);
        NoAnswer();
        Quiet();
    }
    static bool Fails(const char* operation) { return Camera().failing.count(operation) != 0; }

    void Check(const Object& object) {
        switch (object.kind) {
            case Kind::kText:
                return CheckText();
            case Kind::kConstant:
                return CheckConstant(object);
            case Kind::kSensor:
                return CheckSensor(object);
            case Kind::kStatus:
            case Kind::kLensStatus:
                return CheckStatus();
            case Kind::kPreset:
                Result(0);
                Quiet();
                return AnswersInteger(0);
            case Kind::kPosition:
                return CheckPosition(object.service);
            case Kind::kTrueNorth:
                return CheckTrueNorth();
            case Kind::kCameraControl:
                return CheckCameraControl();
            case Kind::kCameraEquipped:
                return CheckCameraEquipped();
            case Kind::kLensControl:
                return CheckLensControl();
            case Kind::kLensEquipped:
                return CheckLensEquipped();
            case Kind::kOutputControl:
                return CheckOutputControl();
            case Kind::kReboot:
                return CheckReboot();
            case Kind::kOther:
                return CheckOther();
        }
    }

    void CheckText() const {
        if (_mode != MODE_GET) return Nothing(SNMP_ERR_GENERR);
        Result(0);
        Quiet();
        MUST(_request->Type() == ASN_OCTET_STR && _request->Length() > 0, "%s", kObjects[_index].name);
    }

    void CheckConstant(const Object& object) const {
        if (!IsReading() || (_mode != MODE_GET && Begins(object.name, "module")) ||
            (_mode != MODE_GET && Begins(object.name, "global"))) {
            return Nothing(SNMP_ERR_GENERR);
        }
        Result(0);
        Quiet();
        AnswersInteger(object.value);
    }

    void CheckSensor(const Object& object) const {
        if (_mode != MODE_GET) return Nothing(SNMP_ERR_GENERR);
        MUST(_calls.size() == 1 && _driving == 0, "%s", object.name);
        const bool isTemperature = Begins(object.name, "temp");
        const char* const operation = isTemperature                ? "temperature.GetTemperatureDegreesCelsius"
                                      : Begins(object.name, "pow") ? "power.GetPowerStatus"
                                                                   : "voltage.GetVoltageStatus";
        const bool fails = Fails(operation);
        Result(fails ? SNMP_ERR_GENERR : 0);
        if (fails) return NoAnswer();
        const auto reading = static_cast<std::int32_t>(Camera().answers[operation]);
        if (isTemperature) return AnswersInteger(static_cast<std::uint32_t>(reading), ASN_GAUGE);
        AnswersInteger(reading);
    }

    void CheckStatus() const {
        if (!IsReading()) return Nothing(SNMP_ERR_GENERR);
        Result(0);
        Driving(0);
        MUST(_calls.size() <= 1, "%s", kObjects[_index].name);
        MUST(_request->Type() == ASN_OCTET_STR && _request->Length() == 1, "%s", kObjects[_index].name);
    }

    void CheckPosition(const std::string& service) {
        auto& last = _last[_index];
        if (_mode == MODE_SET_COMMIT) {
            last = _value->First(4);
            Result(ResultOf(service, last));
            MUST(_driving <= (_result == 0 ? 1 : 0), "%s: %d calls that drive", kObjects[_index].name, _driving);
            // The zoom handler returns at once; the others still set their answer.
            return service == "zoom" && IsSpeedRefused(service, last) ? NoAnswer() : Answers(last);
        }
        Result(0);
        Driving(0);
        if (service != "focus2") Quiet();
        if (_mode == MODE_GET) return Answers(last);
        NoAnswer();
    }

    void CheckTrueNorth() {
        Quiet();
        const bool isInteger = _value->type == ASN_INTEGER;
        const auto number = _value->Integer();
        switch (_mode) {
            case MODE_SET_RESERVE1:
                return isInteger ? Nothing() : Nothing(SNMP_ERR_WRONGTYPE, SNMP_ERR_WRONGTYPE);
            case MODE_SET_RESERVE2:
                return number == 0 || number == 65535 ? Nothing() : Nothing(SNMP_ERR_GENERR, SNMP_ERR_WRONGVALUE);
            case MODE_SET_ACTION:
                _trueNorth = number;
                return Nothing();
            case MODE_GET:
                Result(0);
                return AnswersInteger(_trueNorth);
            default:
                return IsKnownMode() ? Nothing() : Nothing(SNMP_ERR_GENERR, SNMP_ERR_GENERR);
        }
    }

    void CheckCameraControl() {
        if (_mode == MODE_SET_COMMIT) _cameraControl = _value->First(2);
        if (_mode == MODE_GET) {
            Result(0);
            Quiet();
            return Answers(_cameraControl);
        }
        if (!IsKnownMode()) return Nothing(SNMP_ERR_GENERR);
        Nothing(0, RefusesType() ? SNMP_ERR_WRONGTYPE : 0);
    }

    void CheckCameraEquipped() {
        if (_mode == MODE_SET_COMMIT) _cameraEquipped = _value->First(1);
        if (IsReading()) {
            Result(0);
            Quiet();
            return Answers(_cameraEquipped);
        }
        if (!IsKnownMode() || _mode == MODE_SET_COMMIT) return Nothing(SNMP_ERR_GENERR);
        Nothing(0, RefusesType() ? SNMP_ERR_WRONGTYPE : 0);
    }

    bool RefusesType() const { return _mode == MODE_SET_RESERVE1 && _value->type != ASN_OCTET_STR; }

    void CheckLensControl() {
        Result(0);
        if (_mode == MODE_GET) {
            Quiet();
            return Answers(_lensControl);
        }
        if (_mode != MODE_SET_COMMIT) return Nothing();
        _lensControl = _value->First(2);
        const std::string state = (_lensControl[1] & 0x80) != 0 ? "true" : "false";
        Lines expected;
        if ((_lensControl[0] & 0x40) != 0) {
            expected.push_back("focus SetAutoFocus " + state);
            if (state == "true") expected.push_back("focus2 AutoFocus true");
        }
        if ((_lensControl[0] & 0x80) != 0) expected.push_back("iris SetAutoIris " + state);
        MUST(_calls == expected, "%zu calls", _calls.size());
        NoAnswer();
    }

    void CheckLensEquipped() {
        if (_mode == MODE_GET) {
            Result(0);
            Quiet();
            return Answers(_lensEquipped);
        }
        if (_mode != MODE_SET_COMMIT) return Nothing();
        const auto received = _value->First(1);
        if ((received[0] & 0xBF) != 0) return Nothing(SNMP_ERR_GENERR);
        _lensEquipped = received;
        Result(0);
        Quiet();
        Answers(_value->First(4));
    }

    void CheckOutputControl() {
        switch (_mode) {
            case MODE_SET_RESERVE1:
                return _value->type == ASN_OCTET_STR ? Nothing() : Nothing(SNMP_ERR_WRONGTYPE, SNMP_ERR_WRONGTYPE);
            case MODE_SET_ACTION:
                _control = _value->First(2);
                return Nothing();
            case MODE_SET_COMMIT:
                return CheckOutputCommit();
            case MODE_SET_UNDO:
                _control = _committedControl;
                return Nothing();
            case MODE_GET:
                _control = _committedControl;
                Result(0);
                Quiet();
                return Answers(_control);
            default:
                return IsKnownMode() ? Nothing() : Nothing(SNMP_ERR_GENERR, SNMP_ERR_GENERR);
        }
    }

    void CheckOutputCommit() {
        _committedControl = _control;
        const auto received = _value->First(2);
        const bool isMeant = (received[0] & 0x01) != 0;
        const bool energises = (received[1] & 0x80) != 0;
        const Lines expected{energises ? "relay SetRelay BNK2 0 1" : "relay ClearRelay BNK2 0 0"};
        MUST(_calls == (isMeant ? expected : Lines()), "%zu calls", _calls.size());
        const bool fails = isMeant && Fails(energises ? "relay.SetRelay" : "relay.ClearRelay");
        Result(fails ? SNMP_ERR_GENERR : 0);
        fails ? NoAnswer() : Answers(_control);
    }

    void CheckReboot() {
        Quiet();
        MUST(_isRestart == (_mode == MODE_SET_COMMIT), "mode %d", _mode);
        const bool isWrong = _mode == MODE_SET_RESERVE1 && _value->type != ASN_INTEGER;
        Result(IsKnownMode() && _mode != MODE_GETNEXT ? 0 : SNMP_ERR_GENERR, isWrong ? SNMP_ERR_WRONGTYPE : 0);
        if (_mode == MODE_SET_ACTION) _reboot = _value->Integer();
        if (_mode == MODE_SET_UNDO) _reboot = 0;
        if (_mode == MODE_GET || _mode == MODE_SET_COMMIT) return AnswersInteger(_reboot);
        NoAnswer();
    }

    void CheckOther() const {
        if (ScalarTable()[_index].access == HANDLER_CAN_RWRITE) return;
        Driving(0);
        if (!IsReading()) return Nothing(SNMP_ERR_GENERR);
        MUST(_result == 0 || _result == SNMP_ERR_GENERR, "%s, mode %d: %d", kObjects[_index].name, _mode, _result);
        if (_result != 0) return NoAnswer();
        MUST(_mode != MODE_GET || Agent().answers.size() == 1, "%s", kObjects[_index].name);
    }

    std::size_t _index = 0;
    int _mode = 0;
    const Value* _value = nullptr;
    SnmpRequest* _request = nullptr;
    int _result = 0;
    int _mark = 0;
    int _driving = 0;
    bool _isRestart = false;
    Lines _calls;

    std::array<Octets, kObjects.size()> _last;
    Octets _cameraControl = Octets(2);
    Octets _cameraEquipped = Octets(1);
    Octets _lensControl = Octets(2);
    Octets _lensEquipped = {0x40};
    Octets _control = Octets(2);
    Octets _committedControl = Octets(2);
    std::int32_t _trueNorth = 65535;
    std::int32_t _reboot = 0;
};

/// One call of a handler in one mode.
void Call(Bytes& bytes, Model& model) {
    constexpr int kModes[] = {MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_ACTION, MODE_SET_COMMIT,
                              MODE_SET_FREE,     MODE_SET_UNDO,     MODE_GET,        MODE_GETNEXT};
    const auto index = bytes.Below(kObjects.size());
    const auto choice = bytes.Byte();
    const auto modeChoice = choice % (std::size(kModes) + 1);
    const int mode = modeChoice < std::size(kModes) ? kModes[modeChoice] : bytes.Take<std::int32_t>();
    std::vector<oid> rangeEnd(choice >> 4);
    for (auto& part : rangeEnd) part = bytes.Take<std::uint32_t>();
    // A read's variable has no value.
    const Value value = IsRead(mode) ? Value() : TakeValue(bytes);

    SnmpRequest request(NameOf(index), NameLengthOf(index));
    if (!IsRead(mode)) SetValue(request, value);
    if (!rangeEnd.empty()) request.WithRangeEnd(rangeEnd);
    model.Step(index, mode, request, value);
}

/// A whole SET with its phases in the agent's order, then a GET.
void Set(Bytes& bytes, Model& model) {
    const auto index = bytes.Below(kObjects.size());
    const Value value = TakeValue(bytes);
    SnmpRequest request(NameOf(index), NameLengthOf(index));
    SetValue(request, value);
    for (const int mode : {MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_ACTION, MODE_SET_COMMIT}) {
        if (model.Step(index, mode, request, value) == SNMP_ERR_NOERROR) {
            // Each phase finds the previous phase's answer in the variable.
            if (kObjects[index].kind == Kind::kPreset) SetValue(request, value);
            continue;
        }
        if (mode < MODE_SET_ACTION) model.Step(index, MODE_SET_FREE, request, value);
        if (mode == MODE_SET_ACTION) model.Step(index, MODE_SET_UNDO, request, value);
        break;
    }
    SnmpRequest get(NameOf(index), NameLengthOf(index));
    model.Step(index, MODE_GET, get, Value());
}

void LetFail(Bytes& bytes) {
    const std::string operation = kOperations[bytes.Below(std::size(kOperations))];
    auto& camera = Camera();
    if (camera.failing.erase(operation) == 0) camera.failing.insert(operation);
    const auto thrown = bytes.Below(3);
    camera.throwsInt = thrown == 1;
    camera.throwsRuntimeError = thrown == 2;
}

FakeCamera::Banks TakeBanks(Bytes& bytes) {
    FakeCamera::Banks banks;
    banks.banks = {{bytes.Below(4) == 0 ? "BNK1" : "BNK2", std::vector<bool>(bytes.Below(4), bytes.Below(2) == 1)}};
    return banks;
}

void Change(Bytes& bytes) {
    auto& camera = Camera();
    switch (bytes.Below(11)) {
        case 0:
            camera.answers["pan.GetPosition"] = bytes.Take<std::uint32_t>();
            break;
        case 1:
            camera.answers["tilt.GetPosition"] = bytes.Take<std::uint32_t>();
            break;
        case 2:
            camera.answers["zoom.GetMagnificationThousandthsX"] = bytes.Take<std::uint32_t>();
            break;
        case 3:
            camera.answers["zoom.GetMaxMagnificationThousandthsX"] = bytes.Take<std::uint32_t>();
            break;
        case 4:
            camera.answers["focus2.GetPosition"] = bytes.Take<double>();
            break;
        case 5:
            camera.answers["iris.GetAutoIris"] = bytes.Below(2) == 1;
            break;
        case 6:
            camera.answers["temperature.GetTemperatureDegreesCelsius"] = bytes.Take<std::int32_t>();
            break;
        case 7:
            camera.answers["voltage.GetVoltageStatus"] = bytes.Take<std::int32_t>();
            camera.answers["power.GetPowerStatus"] = bytes.Take<std::int32_t>();
            break;
        case 8:
            camera.alarms = TakeBanks(bytes);
            break;
        case 9:
            camera.relays = TakeBanks(bytes);
            break;
        default: {
            const auto text = bytes.Octets(bytes.Below(12));
            camera.settings["[Imaging/Focus]Mode"] = std::string(text.begin(), text.end());
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool started = (StartOnce(), true);
    static_cast<void>(started);
    ResetCamera();
    Bytes bytes(data, size);
    // Usually without log lines, which take most of the time.
    *MemberOf(LogLevelTag()) = bytes.Below(8) == 0 ? tavos::core::kTrace : tavos::core::kError;
    Model model;
    constexpr int kMaxSteps = 60;
    for (int step = 0; step < kMaxSteps && !bytes.IsEmpty(); ++step) {
        switch (bytes.Below(8)) {
            case 0:
            case 1:
            case 2:
                Call(bytes, model);
                break;
            case 3:
            case 4:
            case 5:
                Set(bytes, model);
                break;
            case 6:
                LetFail(bytes);
                break;
            default:
                Change(bytes);
        }
    }
    return 0;
}
