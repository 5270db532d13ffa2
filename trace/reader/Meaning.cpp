#include "trace/reader/Meaning.h"

#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>

namespace trace {

namespace {

constexpr double kMaxSpeed = 127.0;
constexpr int kBeyondSpeed = -128;
constexpr unsigned kTurn = 36000;  // hundredths of a degree
constexpr double kMaxPosition = 65535.0;

std::string Text(const char* format, ...) __attribute__((format(printf, 1, 2)));

std::string Text(const char* format, ...) {
    std::array<char, 200> text{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    return text.data();
}

std::string Degrees(unsigned hundredths) {
    return Text("%.2f°", hundredths / 100.0);
}

std::string Percent(double fraction) {
    return Text("%.0f %%", std::abs(fraction) * 100.0);
}

std::string OfRange(unsigned position) {
    return Text("%.1f %%", position / kMaxPosition * 100.0);
}

std::string AtSpeed(int speed) {
    return speed == 0 ? "at the default speed" : "at " + Percent(speed / kMaxSpeed);
}

/// The octets that the module reads: of an INTEGER those of its number in the machine's order.
std::string OctetsOf(const Value& value) {
    if (value.type != kInteger) return value.octets;
    std::string octets(sizeof value.number, '\0');
    std::memcpy(octets.data(), &value.number, sizeof value.number);
    return octets;
}

unsigned OctetAt(const std::string& octets, std::size_t place) {
    return place < octets.size() ? static_cast<std::uint8_t>(octets[place]) : 0;
}

struct AxisWords {
    const char* forward;
    const char* backward;
    std::function<std::string(unsigned)> target;
    std::function<std::string(int)> direction;
};

const AxisWords& PanWords() {
    static const AxisWords words = {
        "clockwise", "counter-clockwise", Degrees, [](int speed) {
            return speed > 0 ? ", clockwise" : speed < 0 ? ", counter-clockwise" : ", in the shorter direction";
        }};
    return words;
}

// The second quadrant repeats the first.
int SignedAngle(unsigned position) {
    const int angle = static_cast<int>(position);
    if (angle <= 8999) return angle;
    if (angle <= 17999) return angle - 9000;
    if (angle <= 26999) return 18000 - angle;
    return angle - 36000;
}

std::string TiltTarget(unsigned position) {
    const int angle = SignedAngle(position);
    if (angle == 0) return "the horizon (0.00°)";
    return Degrees(static_cast<unsigned>(std::abs(angle))) + (angle > 0 ? " up" : " down");
}

const AxisWords& TiltWords() {
    static const AxisWords words = {"up", "down", TiltTarget, [](int) { return ""; }};
    return words;
}

std::string AxisMeaning(const PositionWords& command, const AxisWords& words) {
    if (command.mode == 0) return "stop";
    if (command.mode == 2) {
        const bool isAngle = command.position < kTurn;
        const std::string target = isAngle ? words.target(command.position) : Degrees(command.position);
        return "go to " + target + " " + AtSpeed(command.speed) + words.direction(command.speed);
    }
    const char* const direction = command.speed < 0 ? words.backward : words.forward;
    if (command.mode == 1)
        return "move by " + Degrees(command.position) + " " + direction + " " + AtSpeed(command.speed);
    if (command.speed == 0) return "move on at the speed 0: come to rest";
    return std::string("move ") + direction + " at " + Percent(command.speed / kMaxSpeed) + " until stopped";
}

std::string ZoomMeaning(const PositionWords& command) {
    if (command.mode == 0) return "stop the zoom";
    if (command.mode == 2) return "zoom to " + OfRange(command.position) + " of the range";
    if (command.mode == 3) return std::string("zoom ") + (command.speed < 0 ? "out" : "in") + " until stopped";
    const auto position = static_cast<int>(command.position);
    const auto step = static_cast<std::int16_t>(command.speed < 0 ? -position : position);  // a sign of its own
    return std::string("zoom ") + (step < 0 ? "out" : "in") + " by " +
           OfRange(static_cast<unsigned>(std::abs(int{step}))) + " of the range";
}

std::string FocusMeaning(const PositionWords& command) {
    if (command.mode == 0) return "stop the focus";
    if (command.mode == 1) {
        return std::string("focus ") + (command.speed < 0 ? "nearer" : "farther") + " by " + OfRange(command.position) +
               " of the range";
    }
    if (command.mode == 2) return "focus at " + OfRange(command.position) + " of the range from near to far";
    return command.speed < 0 ? "focus farther until stopped" : "focus nearer until stopped";
}

std::string IrisMeaning(const PositionWords& command) {
    if (command.mode == 0) return "stop the iris";
    if (command.mode == 1) return "move the iris by " + OfRange(command.position) + " of the range";
    if (command.mode == 2) return "move the iris to " + OfRange(command.position) + " of the range";
    return command.speed < 0 ? "open the iris until stopped" : "close the iris until stopped";
}

std::string PositionMeaning(const ObjectFacts& object, const PositionWords& command) {
    if (command.mode > 3) return "unknown mode " + std::to_string(command.mode);
    std::string meaning;
    if (object.object == "positionPan") meaning = AxisMeaning(command, PanWords());
    if (object.object == "positionTilt") meaning = AxisMeaning(command, TiltWords());
    if (object.object == "positionZoomLens") meaning = ZoomMeaning(command);
    if (object.object == "positionFocusLens") meaning = FocusMeaning(command);
    if (object.object == "positionIrisLens") meaning = IrisMeaning(command);
    if (command.mode == 0 && command.speed != 0) meaning += Text(", with the speed %d", command.speed);
    if (command.mode != 0 && command.speed == kBeyondSpeed) meaning += " (the speed is -128)";
    return meaning;
}

std::string LensFeatures(const std::string& octets) {
    const unsigned features = OctetAt(octets, 0);
    const char* const state = (OctetAt(octets, 1) & 0x80) != 0 ? "on" : "off";
    const std::string iris = (features & 0x80) != 0 ? "auto iris" : "";
    const std::string focus = (features & 0x40) != 0 ? "auto focus" : "";
    if (iris.empty() && focus.empty()) return "selects no feature";
    return iris + (iris.empty() || focus.empty() ? "" : " and ") + focus + " " + state;
}

std::string LensStatus(unsigned octet) {
    return std::string("auto iris ") + ((octet & 0x80) != 0 ? "on" : "off") + ", auto focus " +
           ((octet & 0x40) != 0 ? "on" : "off");
}

std::string OutputMeaning(const std::string& octets) {
    if ((OctetAt(octets, 0) & 0x01) == 0) return "selects no relay";
    return (OctetAt(octets, 1) & 0x80) != 0 ? "energise relay 0 of BNK2" : "release relay 0 of BNK2";
}

const char* ActiveWord(bool active) {
    return active ? "active" : "not active";
}

std::string Celsius(const Value& value) {
    return std::to_string(static_cast<std::int32_t>(static_cast<std::uint32_t>(value.number))) + " °C";
}

using Words = std::function<std::string(const Value&, const std::string& octets, bool isSet)>;

const std::map<std::string, Words>& WordsOfObjects() {
    const Words timeout = [](const Value& value, const std::string&, bool isSet) {
        if (!isSet) return std::string("a move continues until it is stopped");
        return "end a move after " + std::to_string(value.number) + " ms";
    };
    const Words constant0 = [](const Value&, const std::string&, bool) { return "not known to this camera"; };
    static const std::map<std::string, Words> words = {
        {"rebootDevice",
         [](const Value&, const std::string&, bool isSet) { return isSet ? "restart the camera in 3 s" : ""; }},
        {"rangeTrueNorthOffset",
         [](const Value& value, const std::string&, bool isSet) {
             if (value.number == 65535) return std::string(isSet ? "north is not known" : "not known");
             return "north is at " + Text("%.2f°", static_cast<double>(value.number) / 100.0) + " of the pan";
         }},
        {"rangePanHomePosition", constant0},
        {"rangeMinimumPanStepAngle", constant0},
        {"rangeMinimumTiltStepAngle", constant0},
        {"timeoutPan", timeout},
        {"timeoutTilt", timeout},
        {"timeoutZoom", timeout},
        {"timeoutFocus", timeout},
        {"timeoutIris", timeout},
        {"presetGotoPosition", [](const Value& value, const std::string&,
                                  bool isSet) { return isSet ? "go to preset " + std::to_string(value.number) : ""; }},
        {"presetStorePosition",
         [](const Value& value, const std::string&, bool isSet) {
             return isSet ? "store this view as preset " + std::to_string(value.number) : "";
         }},
        {"systemCameraFeatureControl",
         [](const Value&, const std::string& octets, bool isSet) {
             if (!isSet) return std::string();
             const char* const state = (OctetAt(octets, 1) & 0x80) != 0 ? "on" : "off";
             return Text("camera features %02x %s", OctetAt(octets, 0), state);
         }},
        {"systemCameraEquipped",
         [](const Value&, const std::string& octets, bool) {
             return Text("equipped with the camera features %02x", OctetAt(octets, 0));
         }},
        {"systemLensFeatureControl",
         [](const Value&, const std::string& octets, bool) { return LensFeatures(octets); }},
        {"systemLensFeatureStatus",
         [](const Value&, const std::string& octets, bool) { return LensStatus(OctetAt(octets, 0)); }},
        {"systemLensEquipped",
         [](const Value&, const std::string& octets, bool) {
             const unsigned features = OctetAt(octets, 0);
             if (features == 0) return std::string("equipped with no lens feature");
             if (features == 0x40) return std::string("equipped with auto focus");
             return Text("equipped with the lens features %02x", features);
         }},
        {"alarmStatus",
         [](const Value&, const std::string& octets, bool) {
             return std::string("input 0 of BNK2 is ") + ActiveWord((OctetAt(octets, 0) & 0x10) != 0);
         }},
        {"inputStatus",
         [](const Value&, const std::string& octets, bool) {
             return std::string("input 0 of BNK2 is ") + ActiveWord((OctetAt(octets, 0) & 0x01) != 0);
         }},
        {"outputStatus",
         [](const Value&, const std::string& octets, bool) {
             return std::string("relay 0 of BNK2 is ") + ((OctetAt(octets, 0) & 0x01) != 0 ? "energised" : "released");
         }},
        {"outputControl", [](const Value&, const std::string& octets, bool) { return OutputMeaning(octets); }},
        {"temperature", [](const Value& value, const std::string&, bool) { return Celsius(value); }},
        {"power", [](const Value& value, const std::string&,
                     bool) { return Text("status %lld", static_cast<long long>(value.number)); }},
        {"voltage", [](const Value& value, const std::string&,
                       bool) { return Text("status %lld", static_cast<long long>(value.number)); }},
        {"alarmStatesTable state",
         [](const Value& value, const std::string&, bool) { return ActiveWord(value.number == 1); }},
        {"relayStatesTable state",
         [](const Value& value, const std::string&, bool isSet) {
             if (isSet) return value.number == 1 ? "energise the relay" : "release the relay";
             return value.number == 1 ? "energised" : "released";
         }},
    };
    return words;
}

bool IsException(std::uint8_t type) {
    return type == kNoSuchObject || type == kNoSuchInstance || type == kEndOfMibView;
}

}  // namespace

PositionWords::PositionWords(const Value& value) {
    const std::string octets = OctetsOf(value);
    mode = static_cast<int>(OctetAt(octets, 0));
    speed = static_cast<std::int8_t>(OctetAt(octets, 1));
    position = OctetAt(octets, 2) << 8 | OctetAt(octets, 3);
}

bool IsPosition(const ObjectFacts& object) {
    return object.isInstance && object.object.rfind("position", 0) == 0;
}

std::string Meaning(const ObjectFacts& object, const Value& value, bool isSet) {
    if (value.type == kNoSuchObject) return "no such object";
    if (value.type == kNoSuchInstance) return "no such instance";
    if (value.type == kEndOfMibView) return "end of view";
    if (value.type == kNull) return "";
    if (value.type == kObjectId && !FactsOf(value.id).name.empty()) return NameOf(value.id);
    if (!object.isInstance || !object.isCamera) return "";
    if (IsPosition(object)) {
        const std::string words = PositionMeaning(object, PositionWords(value));
        return isSet ? words : "last command: " + words;
    }
    const auto found = WordsOfObjects().find(object.object);
    if (found == WordsOfObjects().end()) return "";
    const bool isNumber = object.type == kInteger || object.type == kGauge32;
    if (isNumber && value.type == kOctetString) return "";
    return found->second(value, OctetsOf(value), isSet);
}

std::string ValueText(const ObjectFacts& object, const Value& value) {
    switch (value.type) {
        case kNull:
            return "";
        case kObjectId:
            return Dotted(value.id);
        case kCounter64:
            return std::to_string(static_cast<std::uint64_t>(value.number));
        case kInteger:
        case kCounter32:
        case kGauge32:
        case kTimeTicks:
            return std::to_string(value.number);
        case kIpAddress:
            if (value.octets.size() == 4) {
                return Text("%u.%u.%u.%u", OctetAt(value.octets, 0), OctetAt(value.octets, 1), OctetAt(value.octets, 2),
                            OctetAt(value.octets, 3));
            }
            break;
        default:
            break;
    }
    if (IsException(value.type)) return "";
    const bool mayBeText = value.type == kOctetString && (object.isText || !object.isCamera);
    if (mayBeText && IsText(value.octets)) return value.octets;
    return Hexadecimal(value.octets);
}

std::string Hexadecimal(const std::string& octets) {
    std::string text;
    for (const char octet : octets) {
        text += Text(text.empty() ? "%02x" : " %02x", static_cast<unsigned>(static_cast<std::uint8_t>(octet)));
    }
    return text;
}

bool IsText(const std::string& octets) {
    for (std::size_t i = 0; i < octets.size();) {
        const auto first = static_cast<std::uint8_t>(octets[i]);
        std::size_t length = 1;
        if (first < 0x80) {
            if ((first < 0x20 && first != '\n' && first != '\r' && first != '\t') || first == 0x7f) return false;
        } else if (first >= 0xc2 && first <= 0xf4) {
            length = first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
            if (i + length > octets.size()) return false;
            for (std::size_t j = 1; j < length; ++j) {
                if ((static_cast<std::uint8_t>(octets[i + j]) & 0xc0) != 0x80) return false;
            }
        } else {
            return false;
        }
        i += length;
    }
    return true;
}

}  // namespace trace
