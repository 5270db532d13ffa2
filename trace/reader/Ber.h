#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace trace {

/// An object identifier's numbers.
using ObjectId = std::vector<std::uint32_t>;

/// "1.3.6.1"; empty for no numbers.
std::string Dotted(const ObjectId& id);

/// One element of a message: its tag and its contents, which point into the message.
struct Element {
    std::uint8_t tag = 0;
    std::string_view contents;
};

/// Reads the elements of an SNMP message one after the other (BER, RFC 3417 section 8). It trusts no length. Every
/// failure throws tavos::osa::Exception with a few words that complete "broken message: ...".
class BerReader {
public:
    explicit BerReader(std::string_view octets) : _rest(octets) {}

    bool AtEnd() const { return _rest.empty(); }
    /// What has not been read yet.
    std::string_view Rest() const { return _rest; }

    /// `what` names the element in the exception's text.
    Element Next(const char* what);
    /// Only an element with this tag.
    std::string_view Next(const char* what, std::uint8_t tag);
    std::int64_t NextInteger(const char* what);

private:
    std::uint8_t Octet(const char* what);
    std::size_t Length(const char* what);

    std::string_view _rest;
};

/// Two's complement, 1 to 8 octets; further ones throw. SNMP's own numbers have 32 bits.
std::int64_t SignedOf(std::string_view contents, const char* what);
/// Up to 64 bits, with or without the leading 0 that keeps the number positive.
std::uint64_t UnsignedOf(std::string_view contents, const char* what);
/// At most 128 numbers, as SNMP allows.
ObjectId ObjectIdOf(std::string_view contents, const char* what);

}  // namespace trace
