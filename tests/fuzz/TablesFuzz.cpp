#include <algorithm>
#include <atomic>
#include <memory>
#include <set>

#include "Bytes.h"
#include "core/OrvexSnmpOid.h"
#include "io/OrvexSnmpAlarm.h"
#include "io/OrvexSnmpRelay.h"
#include "support/FakePlatform.h"
#include "support/Journal.h"
#include "support/Opened.h"
#include "tables/RealAgent.h"
#include "tavos/core/Logger.h"
#include "tavos/msgbus/MsgBus.h"

// The two bank tables inside the agent's libraries. Requests have any names in any mode; meanwhile the services throw,
// or their banks change between requests and during them.

struct LogLevelTag {
    using Type = std::atomic<int>*;
    friend Type MemberOf(LogLevelTag);
};
template struct Opened<LogLevelTag, &tavos::core::Logger::s_level>;

namespace {

using Name = std::vector<oid>;
using Binding = RealAgent::Binding;

constexpr oid kStateColumn = 3;

struct Providers {
    Providers() {
        alarm.init_alarmTable(false);
        relay.init_relayTable(false);
    }
    tavos::msgbus::MsgBus bus;
    OrvexSnmpAlarm alarm{bus};
    OrvexSnmpRelay relay{bus};
};

Name Root(bool isRelay) {
    const auto& root = isRelay ? OrvexSnmpOid::oid_relay : OrvexSnmpOid::oid_alarm;
    return {std::begin(root), std::end(root)};
}

bool IsBelow(const Name& name, const Name& root) {
    return name.size() >= root.size() && std::equal(root.begin(), root.end(), name.begin());
}

FakeCamera::Banks TakeBanks(Bytes& bytes) {
    constexpr const char* kNames[] = {"BNK1", "BNK2", "", "A bank with a name of more than twenty-four octets"};
    FakeCamera::Banks banks;
    for (auto count = bytes.Below(5); count > 0; --count) {
        const auto bits = bytes.Byte();
        std::vector<bool> states(bits % 6);
        for (std::size_t i = 0; i < states.size(); ++i) states[i] = (bits >> (i % 8) & 1) != 0;
        banks.banks.push_back({kNames[bytes.Below(std::size(kNames))], states});
    }
    // A faulty service may return these.
    const auto odd = bytes.Byte();
    if (odd >= 0xF0) banks.total = static_cast<std::int8_t>(bytes.Byte());
    if (odd >= 0xF8) banks.bankCount["BNK2"] = static_cast<std::int8_t>(bytes.Byte()) % 40;
    return banks;
}

/// Mostly names of cells, and of their neighbours.
Name TakeName(Bytes& bytes) {
    const auto shape = bytes.Byte();
    Name name = Root((shape & 1) != 0);
    const auto part = [&bytes]() -> oid {
        const auto octet = bytes.Byte();
        return octet < 0xF0 ? octet % 16 : bytes.Take<std::uint32_t>();
    };
    switch (shape >> 1 & 7) {
        case 0:
        case 1:
        case 2:
        case 3:
            name.insert(name.end(), {1, part(), part()});
            break;
        case 4:
            name.insert(name.end(), {part(), part(), part(), part()});
            break;
        case 5:
            name.resize(name.size() - bytes.Below(3));
            for (auto more = bytes.Below(8); more > 0; --more) name.push_back(part());
            break;
        case 6:
            name.resize(MAX_OID_LEN - bytes.Below(4), part());
            break;
        default:
            name.resize(name.size() - 1);
            name.push_back(part());
    }
    return name;
}

RealAgent::Value TakeValue(Bytes& bytes) {
    RealAgent::Value value;
    const auto choice = bytes.Byte();
    if (choice < 0x80) {
        value.type = ASN_INTEGER;
        value.integer = choice < 0x60 ? choice % 4 : bytes.Take<std::int32_t>();
    } else {
        // The exception types have no value; the agent always converts an INTEGER to a long.
        value.type = choice < 0xA0 ? static_cast<u_char>(ASN_OCTET_STR) : bytes.Byte();
        if (value.type == ASN_INTEGER) value.type = ASN_NULL;
        if (value.type == ASN_NULL || (value.type >= SNMP_NOSUCHOBJECT && value.type <= SNMP_ENDOFMIBVIEW))
            return value;
        const auto octets = bytes.Octets(bytes.Length());
        value.octets.assign(octets.begin(), octets.end());
    }
    return value;
}

/// The service's relays at this moment, in the order of the rows, named as in the calls: "BNK2 0".
std::vector<std::string> Relays() {
    std::vector<std::string> relays;
    for (const auto& [bank, states] : Camera().relays.banks) {
        for (std::size_t id = 0; id < states.size(); ++id) relays.push_back(bank + " " + std::to_string(id));
    }
    return relays;
}

/// `isSteady`: no row still shows a state that a SET has stored.
void CheckCells(const RealAgent::Answer& answer, bool isSteady) {
    for (const auto& binding : answer.bindings) {
        const auto type = binding.value.type;
        const bool isCell = IsBelow(binding.name, Root(false)) || IsBelow(binding.name, Root(true));
        if (!isCell || type == SNMP_NOSUCHINSTANCE || type == SNMP_NOSUCHOBJECT || type == SNMP_ENDOFMIBVIEW) continue;
        MUST(binding.name.size() == 13 && binding.name[10] == 1 && binding.name[12] >= 1, "%s", binding.Text().c_str());
        const auto column = binding.name[11];
        MUST(column >= 1 && column <= kStateColumn, "%s", binding.Text().c_str());
        // A row that a change has emptied has no value.
        if (type == ASN_NULL) continue;
        MUST(type == (column == 1 ? ASN_OCTET_STR : ASN_INTEGER), "%s", binding.Text().c_str());
        if (column == kStateColumn && isSteady)
            MUST(binding.value.integer == 0 || binding.value.integer == 1, "%s", binding.Text().c_str());
    }
}

/// The banks are steady and every service works: cells show the services' values.
void CheckTruth(const Binding& binding) {
    if (binding.value.type != ASN_INTEGER && binding.value.type != ASN_OCTET_STR) return;
    const bool isRelay = IsBelow(binding.name, Root(true));
    if (!isRelay && !IsBelow(binding.name, Root(false))) return;
    auto row = binding.name[12];
    for (const auto& [bank, states] : (isRelay ? Camera().relays : Camera().alarms).banks) {
        if (row > states.size()) {
            row -= states.size();
            continue;
        }
        const auto id = row - 1;
        if (binding.name[11] == 1) MUST(binding.value.octets == bank, "%s", binding.Text().c_str());
        if (binding.name[11] == 2) MUST(binding.value.integer == static_cast<long>(id), "%s", binding.Text().c_str());
        if (binding.name[11] == kStateColumn)
            MUST((binding.value.integer == 1) == states[id], "%s", binding.Text().c_str());
        return;
    }
    MUST(false, "a row that the service does not have: %s", binding.Text().c_str());
}

class Session {
public:
    explicit Session(Bytes& bytes) : _bytes(bytes) {
        ResetCamera();
        Camera().alarms = TakeBanks(bytes);
        Camera().relays = TakeBanks(bytes);
        _providers = std::make_unique<Providers>();
    }
    ~Session() { Camera().onCall = nullptr; }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void Step() {
        switch (_bytes.Below(8)) {
            case 0:
            case 1:
                return Read(SNMP_MSG_GET);
            case 2:
                return Read(SNMP_MSG_GETNEXT);
            case 3:
                return Read(SNMP_MSG_GETBULK);
            case 4:
            case 5:
                return Set();
            case 6:
                Camera().alarms = TakeBanks(_bytes);
                Camera().relays = TakeBanks(_bytes);
                _isDisturbed = true;
                return;
            default:
                return Disturb();
        }
    }

private:
    std::vector<Binding> TakeBindings(bool withValues) {
        std::vector<Binding> bindings(1 + _bytes.Below(6));
        for (auto& binding : bindings) {
            binding.name = TakeName(_bytes);
            if (withValues) binding.value = TakeValue(_bytes);
        }
        return bindings;
    }

    void Read(int command) {
        const auto bindings = TakeBindings(false);
        const long repetitions = command == SNMP_MSG_GETBULK ? _bytes.Below(20) : 0;
        const bool isSteady = IsSteady();
        journal::Clear();
        const auto answer = RealAgent::Get().Send(command, bindings, repetitions);
        MUST(answer.error == SNMP_ERR_NOERROR || answer.error == SNMP_ERR_GENERR, "error %ld", answer.error);
        MUST(Driven().empty(), "a read drives a relay: %s", Driven().front().c_str());
        if (answer.error != SNMP_ERR_NOERROR) return;
        CheckCells(answer, isSteady);
        if (command == SNMP_MSG_GET) {
            MUST(answer.bindings.size() == bindings.size(), "%zu bindings", answer.bindings.size());
            for (std::size_t i = 0; i < bindings.size(); ++i)
                MUST(answer.bindings[i].name == bindings[i].name, "%zu", i);
        }
        if (command == SNMP_MSG_GETNEXT) {
            MUST(answer.bindings.size() == bindings.size(), "%zu bindings", answer.bindings.size());
            for (std::size_t i = 0; i < bindings.size(); ++i) {
                const auto& next = answer.bindings[i];
                MUST(next.value.type == SNMP_ENDOFMIBVIEW || next.name > bindings[i].name, "%s does not advance",
                     next.Text().c_str());
            }
        }
        if (isSteady && command == SNMP_MSG_GET && bindings.size() == 1) CheckTruth(answer.bindings.front());
    }

    void Set() {
        const auto bindings = TakeBindings(true);
        _seen = {Relays()};
        const bool isSteady = IsSteady();
        bool isCounted = !_isMixed && HasTrueCounts();
        journal::Clear();
        const auto answer = RealAgent::Get().Send(SNMP_MSG_SET, bindings);
        constexpr long kErrors[] = {SNMP_ERR_NOERROR,    SNMP_ERR_GENERR,           SNMP_ERR_NOACCESS,
                                    SNMP_ERR_WRONGTYPE,  SNMP_ERR_NOCREATION,       SNMP_ERR_NOTWRITABLE,
                                    SNMP_ERR_WRONGVALUE, SNMP_ERR_INCONSISTENTNAME, SNMP_ERR_COMMITFAILED};
        MUST(std::count(std::begin(kErrors), std::end(kErrors), answer.error) == 1, "error %ld", answer.error);
        MUST(answer.index >= 0 && answer.index <= static_cast<long>(bindings.size()), "index %ld", answer.index);
        const auto driven = Driven();
        const bool isRefused = answer.error != SNMP_ERR_NOERROR && answer.error != SNMP_ERR_GENERR &&
                               answer.error != SNMP_ERR_COMMITFAILED;
        MUST(!isRefused || driven.empty(), "error %ld, but the call %s", answer.error, driven.front().c_str());
        MUST(driven.size() <= bindings.size(), "%zu calls for %zu bindings", driven.size(), bindings.size());
        isCounted = isCounted && !_isMixed;
        for (const auto& call : driven) CheckDriven(call, bindings, isCounted);
        // Without disturbance every successful binding drives its relay: one call for each cell.
        if (isSteady && answer.error == SNMP_ERR_NOERROR) {
            MUST(driven.size() == bindings.size(), "%zu calls for %zu bindings", driven.size(), bindings.size());
        }
    }

    /// False when the rows may differ from Relays: a count that cannot be read is replaced by the previous bank's, and
    /// the service counts the first of several banks with one name.
    static bool HasTrueCounts() {
        return Camera().relays.bankCount.empty() && Camera().failing.count("relay.GetBankRelayCount") == 0 &&
               HasOwnNames(Camera().relays);
    }
    static bool HasOwnNames(const FakeCamera::Banks& banks) {
        std::set<std::string> names;
        for (const auto& bank : banks.banks) names.insert(bank.first);
        return names.size() == banks.banks.size();
    }

    /// Checks a call such as "SetRelay BNK2 0 1": the SET must have sent an INTEGER to the state of a row that was this
    /// relay's at some moment of the SET.
    void CheckDriven(const std::string& call, const std::vector<Binding>& bindings, bool isCounted) const {
        const bool isSet = call.compare(0, 9, "SetRelay ") == 0;
        MUST(isSet || call.compare(0, 11, "ClearRelay ") == 0, "%s", call.c_str());
        const auto start = call.find(' ') + 1;
        const auto relay = call.substr(start, call.rfind(' ') - start);
        const auto isRows = [&](const Binding& binding) {
            const auto row = binding.name[12];
            return std::any_of(_seen.begin(), _seen.end(), [&](const std::vector<std::string>& relays) {
                return row >= 1 && row <= relays.size() && relays[row - 1] == relay;
            });
        };
        bool isAsked = false;
        bool isNamed = !isCounted;
        for (const auto& binding : bindings) {
            if (binding.value.type != ASN_INTEGER || !IsBelow(binding.name, Root(true)) || binding.name.size() != 13 ||
                binding.name[11] != kStateColumn) {
                continue;
            }
            isAsked = isAsked || (static_cast<std::int32_t>(binding.value.integer) == 1) == isSet;
            isNamed = isNamed || isRows(binding);
        }
        MUST(isAsked && isNamed, "no SET has requested %s", call.c_str());
    }

    static journal::Lines Driven() {
        journal::Lines driven;
        for (const auto& call : journal::Calls()) {
            if (call.find(" Set") == std::string::npos && call.find(" Clear") == std::string::npos) continue;
            MUST(call.compare(0, 6, "relay ") == 0, "%s", call.c_str());
            driven.push_back(call.substr(6));
        }
        return driven;
    }

    bool IsSteady() const {
        return !_isDisturbed && Camera().failing.empty() && IsOrdinary(Camera().alarms) && IsOrdinary(Camera().relays);
    }
    static bool IsOrdinary(const FakeCamera::Banks& banks) {
        return !banks.total && banks.bankCount.empty() && HasOwnNames(banks);
    }

    /// A service starts or stops throwing, or banks change during a request.
    void Disturb() {
        constexpr const char* kOperations[] = {
            "alarm.GetBankNames", "alarm.GetBankAlarmCount", "alarm.GetAlarmCount", "alarm.GetAlarmState",
            "relay.GetBankNames", "relay.GetBankRelayCount", "relay.GetRelayCount", "relay.GetRelayState",
            "relay.SetRelay",     "relay.ClearRelay",
        };
        const auto choice = _bytes.Below(std::size(kOperations) + 3);
        auto& camera = Camera();
        if (choice < std::size(kOperations)) {
            if (camera.failing.erase(kOperations[choice]) == 0) camera.failing.insert(kOperations[choice]);
            _isDisturbed = true;
            return;
        }
        // One change, or a change and its undoing: a row may be missing in one phase of a SET only.
        struct Change {
            unsigned calls;  // calls until it happens
            FakeCamera::Banks banks;
        };
        auto changes = std::make_shared<std::vector<Change>>(1 + _bytes.Below(2));
        for (auto& change : *changes) change = {1 + _bytes.Below(12), TakeBanks(_bytes)};
        if (changes->size() == 2 && _bytes.Below(2) == 0) (*changes)[0].banks = camera.relays;
        // While a list is built, which then mixes old and new banks, or only before that.
        const bool isAnywhere = _bytes.Below(2) == 0;
        _isMixed = _isMixed || isAnywhere;
        camera.onCall = [this, changes, isAnywhere](const std::string& call) {
            const bool isBetween = call.find("RelayCount") == 9 || call.find("AlarmCount") == 9 ||
                                   call.find("GetBankNames") != std::string::npos;
            if (!isBetween && !isAnywhere) return;
            if (changes->empty() || --changes->back().calls != 0) return;
            Camera().alarms = changes->back().banks;
            Camera().relays = changes->back().banks;
            changes->pop_back();
            _seen.push_back(Relays());
            _isMixed = _isMixed || !HasTrueCounts();
        };
        _isDisturbed = true;
    }

    Bytes& _bytes;
    std::vector<std::vector<std::string>> _seen;  // the relays at each moment since the SET began
    std::unique_ptr<Providers> _providers;
    bool _isMixed = false;      // rows may differ from Relays
    bool _isDisturbed = false;  // after a disturbance stored rows may show old values
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes bytes(data, size);
    RealAgent::Get();
    // Usually without log lines, which take most of the time.
    *MemberOf(LogLevelTag()) = size % 8 == 0 ? tavos::core::kTrace : tavos::core::kError;
    Session session(bytes);
    constexpr int kMaxSteps = 12;
    for (int step = 0; step < kMaxSteps && !bytes.IsEmpty(); ++step) session.Step();
    return 0;
}
