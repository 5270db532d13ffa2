#include "load/Ber.h"

namespace bench {

namespace {

constexpr std::uint8_t kInteger = 0x02;
constexpr std::uint8_t kOctets = 0x04;
constexpr std::uint8_t kNull = 0x05;
constexpr std::uint8_t kName = 0x06;
constexpr std::uint8_t kSequence = 0x30;
constexpr std::uint8_t kGetNext = 0xA1;
constexpr std::uint8_t kGetBulk = 0xA5;

bool Take(std::string_view& octets, std::uint8_t tag, std::string_view& content) {
    Element element;
    if (!TakeElement(octets, element) || element.tag != tag) return false;
    content = element.content;
    return true;
}

/// Four octets, so that every number gives the same message length; `number` below 0x80000000.
std::string FourOctets(std::uint32_t number) {
    std::string octets;
    for (int shift = 24; shift >= 0; shift -= 8) octets += static_cast<char>(number >> shift & 0xFF);
    return octets;
}

}  // namespace

std::uint32_t Number(std::string_view octets) {
    std::uint32_t number = 0;
    for (const char octet : octets) number = number << 8 | static_cast<std::uint8_t>(octet);
    return number;
}

bool TakeElement(std::string_view& octets, Element& element) {
    if (octets.size() < 2) return false;
    element.tag = static_cast<std::uint8_t>(octets[0]);
    std::size_t length = static_cast<std::uint8_t>(octets[1]);
    octets.remove_prefix(2);
    if ((length & 0x80) != 0) {
        const std::size_t count = length & 0x7F;
        if (count > 4 || count > octets.size()) return false;
        length = Number(octets.substr(0, count));
        octets.remove_prefix(count);
    }
    if (length > octets.size()) return false;
    element.content = octets.substr(0, length);
    octets.remove_prefix(length);
    return true;
}

bool ParseMessage(std::string_view octets, std::uint8_t pdu, Message& message) {
    std::string_view body;
    std::string_view unused;
    std::string_view rest;
    std::string_view number;
    if (!Take(octets, kSequence, body) || !Take(body, kInteger, unused) || !Take(body, kOctets, unused) ||
        !Take(body, pdu, rest) || !Take(rest, kInteger, number)) {
        return false;
    }
    message.requestId = Number(number);
    if (!Take(rest, kInteger, number)) return false;
    message.errorStatus = static_cast<int>(Number(number));
    return Take(rest, kInteger, unused) && Take(rest, kSequence, message.bindings);
}

bool TakeBinding(std::string_view& bindings, std::string_view& name, Element& value) {
    std::string_view binding;
    return Take(bindings, kSequence, binding) && Take(binding, kName, name) && TakeElement(binding, value);
}

bool IsException(const Element& value) {
    return value.tag >= 0x80 && value.tag <= 0x82;
}

std::string Encoded(std::uint8_t tag, std::string_view content) {
    std::string octets(1, static_cast<char>(tag));
    const std::size_t length = content.size();
    if (length < 0x80) {
        octets += static_cast<char>(length);
    } else {
        octets += static_cast<char>(0x82);
        octets += static_cast<char>(length >> 8 & 0xFF);
        octets += static_cast<char>(length & 0xFF);
    }
    return octets.append(content);
}

std::string WalkRequest(std::string_view community, std::uint32_t requestId, std::string_view name, int repetitions) {
    const std::string binding = Encoded(kSequence, Encoded(kName, name) + Encoded(kNull, ""));
    const std::string zero = Encoded(kInteger, std::string_view("\0", 1));
    const std::string count = Encoded(kInteger, FourOctets(static_cast<std::uint32_t>(repetitions)));
    const std::string pdu = Encoded(kInteger, FourOctets(requestId)) + zero + (repetitions > 0 ? count : zero) +
                            Encoded(kSequence, binding);
    return Encoded(kSequence, Encoded(kInteger, "\x01") + Encoded(kOctets, community) +
                                  Encoded(repetitions > 0 ? kGetBulk : kGetNext, pdu));
}

}  // namespace bench
