#include "trace/reader/Commands.h"

#include <cstdint>

namespace trace {

namespace {

constexpr int kBeyondSpeed = -128;
constexpr unsigned kMaxAngle = 35999;
constexpr std::int64_t kNoNorth = 65535;

bool IsAxis(const ObjectFacts& object) {
    return object.object == "positionPan" || object.object == "positionTilt";
}

std::uint8_t OctetAt(const Value& value, std::size_t place) {
    return place < value.octets.size() ? static_cast<std::uint8_t>(value.octets[place]) : 0;
}

std::string WhyPositionRefused(const ObjectFacts& object, const Value& value) {
    const PositionWords command(value);
    if (command.mode > 3) {
        return "unknown mode " + std::to_string(command.mode) + " (0 is stop, 1 delta, 2 absolute, 3 continuous)";
    }
    if (command.mode == 0 && command.speed != 0) {
        return "out of range: a stop has the speed 0, not " + std::to_string(command.speed);
    }
    if (IsAxis(object) && command.mode == 2 && command.position > kMaxAngle) {
        return "out of range: the position " + std::to_string(command.position) + " is above 35999";
    }
    if (!IsAxis(object) && command.mode == 3 && command.speed == kBeyondSpeed) {
        return "out of range: the speed -128 is below -127";
    }
    return "";
}

/// The type that the module requires; 0: it takes any.
std::uint8_t RequiredType(const ObjectFacts& object) {
    const std::string& name = object.object;
    if (name == "rangeTrueNorthOffset" || name == "rebootDevice" || name == "relayStatesTable state") return kInteger;
    if (name == "outputControl" || name == "systemCameraFeatureControl" || name == "systemCameraEquipped") {
        return kOctetString;
    }
    return 0;
}

std::string WrongType(const ObjectFacts& object, const Value& value, std::uint8_t required) {
    return "wrong type: " + object.name + " takes " + TypeName(required) + ", not " + TypeName(value.type);
}

}  // namespace

std::string WhyRefused(const ObjectFacts& object, const Value& value) {
    if (!object.isCamera || !object.isInstance) return "";
    if (!object.isWritable) return "not writable: " + object.name + " is read-only";
    if (IsPosition(object)) return WhyPositionRefused(object, value);
    if (const auto required = RequiredType(object); required != 0 && value.type != required) {
        return WrongType(object, value, required);
    }
    if (object.object.rfind("timeout", 0) == 0) {
        return "timeouts refuse each SET: a move continues until it is stopped";
    }
    if (object.object == "systemCameraEquipped") return "each SET is refused, although the value is stored";
    if (object.object == "systemLensEquipped" && (OctetAt(value, 0) & ~0x40) != 0) {
        return "wrong value: takes 40 (auto focus) and 00 only, not " + Hexadecimal(value.octets.substr(0, 1));
    }
    if (object.object == "rangeTrueNorthOffset" && value.number != 0 && value.number != kNoNorth) {
        return "wrong value: takes 0 and 65535 only, not " + std::to_string(value.number);
    }
    return "";
}

std::string WhyWithoutEffect(const ObjectFacts& object, const Value& value) {
    if (!object.isCamera || !object.isInstance) return "";
    const std::string& name = object.object;
    if (IsPosition(object)) {
        const PositionWords command(value);
        if (IsAxis(object) && command.mode != 0 && command.speed == kBeyondSpeed) {
            return "out of range: the speed -128 is below -127, nothing moves";
        }
        if (name == "positionIrisLens" && (command.mode == 1 || command.mode == 2)) {
            return "the iris only stops and moves continuously: delta and absolute commands move nothing";
        }
        return "";
    }
    if (name == "presetGotoPosition") return "presets are not stored: nothing moves";
    if (name == "presetStorePosition") return "presets are not stored";
    if (name == "rangeTrueNorthOffset") return "only stored: it does not change where the pan moves to";
    if (name == "systemCameraFeatureControl") return "only stored: this camera drives no such feature";
    if (name == "systemLensFeatureControl" && (OctetAt(value, 0) & 0xc0) == 0) {
        return "no feature is selected: 80 is auto iris, 40 auto focus";
    }
    if (name == "outputControl" && (OctetAt(value, 0) & 0x01) == 0) {
        return "no relay is selected: the first octet lacks bit 01";
    }
    return "";
}

std::string Oddity(const ObjectFacts& object, const Value& value) {
    if (!IsPosition(object)) return "";
    if (value.type != kOctetString) {
        return "the " + TypeName(value.type) + " is read as octets: " + object.name +
               " takes an OCTET STRING of 4 octets";
    }
    const std::size_t octets = value.octets.size();
    if (octets < 4) return "only " + std::to_string(octets) + " octets: missing ones count as 0";
    if (octets > 4) return std::to_string(octets) + " octets: only the first 4 count";
    return "";
}

}  // namespace trace
