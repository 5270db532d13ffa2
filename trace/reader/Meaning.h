#pragma once

#include <cstdint>
#include <string>

#include "trace/reader/Message.h"
#include "trace/reader/Objects.h"

namespace trace {

/// A position object's command of four octets, as the module reads it: missing octets are 0.
struct PositionWords {
    explicit PositionWords(const Value& value);

    int mode;           ///< 0 stop, 1 delta, 2 absolute, 3 continuous; above: unknown
    int speed;          ///< -128 to 127; -128 is out of range
    unsigned position;  ///< the axis's own unit
};

bool IsPosition(const ObjectFacts& object);

/// What a value says, in words: for a SET what it asks for ("go to 180.00° at 50 %, clockwise"), otherwise what it
/// reports. Empty when there is nothing to add to the value.
std::string Meaning(const ObjectFacts& object, const Value& value, bool isSet);

/// The value as a text: a number, a text, octets as "02 40 46 50", an OID's numbers. Octets of unknown objects are a
/// text when they can be one.
std::string ValueText(const ObjectFacts& object, const Value& value);

/// "02 40 46 50"
std::string Hexadecimal(const std::string& octets);

/// Whether all octets are UTF-8 without control characters; line ends count as text.
bool IsText(const std::string& octets);

}  // namespace trace
