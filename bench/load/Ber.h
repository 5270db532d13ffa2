#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace bench {

/// One element of a message: its tag and its content.
struct Element {
    std::uint8_t tag = 0;
    std::string_view content;
};

/// An integer's content, high octet first; of more than four octets the last four.
std::uint32_t Number(std::string_view octets);

/// Removes the first element from `octets`; false when there is no whole one.
bool TakeElement(std::string_view& octets, Element& element);

/// The parts of a message that the measurements use. The views point into it.
struct Message {
    std::uint32_t requestId = 0;
    int errorStatus = 0;
    std::string_view bindings;  ///< the elements, one after the other
};

constexpr std::uint8_t kResponse = 0xA2;
constexpr std::uint8_t kTrap = 0xA7;

/// False for anything that is not a whole SNMPv2c message with such a PDU.
bool ParseMessage(std::string_view octets, std::uint8_t pdu, Message& message);

/// Removes the first binding from `bindings`.
bool TakeBinding(std::string_view& bindings, std::string_view& name, Element& value);

/// True for noSuchObject, noSuchInstance and endOfMibView.
bool IsException(const Element& value);

/// A whole element: tag, length and content.
std::string Encoded(std::uint8_t tag, std::string_view content);

/// A GETNEXT (repetitions 0) or GETBULK of one name, whose octets are as in a message.
std::string WalkRequest(std::string_view community, std::uint32_t requestId, std::string_view name, int repetitions);

}  // namespace bench
