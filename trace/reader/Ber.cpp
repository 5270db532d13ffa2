#include "trace/reader/Ber.h"

#include <limits>

#include "tavos/osa/Exception.h"

namespace trace {

using tavos::osa::Exception;

namespace {

constexpr std::uint8_t kLongForm = 0x80;
constexpr std::uint8_t kMoreOctets = 0x80;
constexpr std::uint8_t kLongTag = 0x1f;
constexpr std::uint8_t kInteger = 0x02;
constexpr std::size_t kMaxNumbers = 128;

std::uint8_t OctetAt(std::string_view octets, std::size_t place) {
    return static_cast<std::uint8_t>(octets[place]);
}

}  // namespace

std::string Dotted(const ObjectId& id) {
    std::string text;
    for (const std::uint32_t number : id) text += (text.empty() ? "" : ".") + std::to_string(number);
    return text;
}

std::uint8_t BerReader::Octet(const char* what) {
    if (_rest.empty()) throw Exception("it ends within %s", what);
    const std::uint8_t octet = OctetAt(_rest, 0);
    _rest.remove_prefix(1);
    return octet;
}

std::size_t BerReader::Length(const char* what) {
    const std::uint8_t first = Octet(what);
    if ((first & kLongForm) == 0) return first;
    const int count = first & ~kLongForm;
    if (count == 0 || count > 4) throw Exception("the length of %s has %d octets (1 to 4 are allowed)", what, count);
    std::size_t length = 0;
    for (int i = 0; i < count; ++i) length = length << 8 | Octet(what);
    return length;
}

Element BerReader::Next(const char* what) {
    const std::uint8_t tag = Octet(what);
    if ((tag & kLongTag) == kLongTag) throw Exception("%s has a tag that SNMP does not have", what);
    const std::size_t length = Length(what);
    if (length > _rest.size()) {
        throw Exception("%s has a length of %zu octets, but %zu are left", what, length, _rest.size());
    }
    const std::string_view contents = _rest.substr(0, length);
    _rest.remove_prefix(length);
    return {tag, contents};
}

std::string_view BerReader::Next(const char* what, std::uint8_t tag) {
    const Element element = Next(what);
    if (element.tag != tag) throw Exception("%s has the tag %02x, not %02x", what, element.tag, tag);
    return element.contents;
}

std::int64_t BerReader::NextInteger(const char* what) {
    return SignedOf(Next(what, kInteger), what);
}

std::int64_t SignedOf(std::string_view contents, const char* what) {
    if (contents.empty() || contents.size() > sizeof(std::int64_t)) {
        throw Exception("%s is a number of %zu octets", what, contents.size());
    }
    std::uint64_t number = (OctetAt(contents, 0) & 0x80) != 0 ? std::numeric_limits<std::uint64_t>::max() : 0;
    for (const char octet : contents) number = number << 8 | static_cast<std::uint8_t>(octet);
    return static_cast<std::int64_t>(number);
}

std::uint64_t UnsignedOf(std::string_view contents, const char* what) {
    if (contents.size() == sizeof(std::uint64_t) + 1 && contents[0] == 0) contents.remove_prefix(1);
    if (contents.empty() || contents.size() > sizeof(std::uint64_t)) {
        throw Exception("%s is a number of %zu octets", what, contents.size());
    }
    std::uint64_t number = 0;
    for (const char octet : contents) number = number << 8 | static_cast<std::uint8_t>(octet);
    return number;
}

ObjectId ObjectIdOf(std::string_view contents, const char* what) {
    ObjectId id;
    std::uint64_t number = 0;
    bool isOpen = false;
    for (const char character : contents) {
        const auto octet = static_cast<std::uint8_t>(character);
        number = number << 7 | (octet & ~kMoreOctets);
        // The first number holds two: 40 times the first one and the second.
        if (number > std::numeric_limits<std::uint32_t>::max() + (id.empty() ? 80ULL : 0ULL)) {
            throw Exception("%s has a number above 32 bits", what);
        }
        isOpen = (octet & kMoreOctets) != 0;
        if (isOpen) continue;
        if (id.empty()) {
            const std::uint64_t first = number < 40 ? 0 : number < 80 ? 1 : 2;
            id = {static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(number - 40 * first)};
        } else {
            id.push_back(static_cast<std::uint32_t>(number));
        }
        if (id.size() > kMaxNumbers) throw Exception("%s has more than %zu numbers", what, kMaxNumbers);
        number = 0;
    }
    if (isOpen) throw Exception("%s ends within a number", what);
    return id;
}

}  // namespace trace
