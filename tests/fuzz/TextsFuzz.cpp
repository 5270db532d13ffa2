#include <cstdint>
#include <memory>

#include "Bytes.h"
#include "core/OrvexSnmpOid.h"
#include "core/TextUtilities.h"

// The module's small text functions: any OID of any length, and any text to trim.

namespace {

struct Free {
    void operator()(char* text) const { std::free(text); }
};

/// The expected text: dots and signed 32-bit numbers.
std::string Dotted(const std::vector<oid>& name) {
    std::string text;
    for (const auto part : name) text += "." + std::to_string(static_cast<std::int32_t>(part));
    return text;
}

void CheckOid(Bytes& bytes) {
    std::vector<oid> name(bytes.Byte());
    const bool isWide = bytes.Below(2) == 1;
    for (auto& part : name) part = isWide ? bytes.Take<oid>() : bytes.Byte();
    const auto length = static_cast<std::int32_t>(name.size());

    char* text = nullptr;
    const std::unique_ptr<char, Free> owned(OrvexSnmpOid::OidString(name.data(), length, &text));
    MUST(owned.get() == text && text != nullptr, "length %d", length);
    const std::string whole = Dotted(name).substr(0, 255);
    const std::string expected = whole.substr(0, name.size() * 11);
    MUST(text == expected, "%s, not %s", text, expected.c_str());

    const auto own = std::make_unique<char[]>(whole.size() + 1);
    char* given = own.get();
    MUST(OrvexSnmpOid::OidString(name.data(), length, &given) == own.get() && whole == own.get(), "%s", own.get());

    const OrvexSnmpOid copy(name.data(), length);
}

void CheckTrim(Bytes& bytes) {
    const auto octets = bytes.Octets(bytes.Below(6));
    const std::string characters(octets.begin(), octets.end());
    const auto text = bytes.Rest();
    const auto trimmed = trim(text, characters);
    const auto isIn = [&](char c) { return characters.find(c) != std::string::npos; };
    MUST(trimmed.empty() || (!isIn(trimmed.front()) && !isIn(trimmed.back())), "%s", trimmed.c_str());
    const auto at = text.find(trimmed);
    MUST(at != std::string::npos, "%s", trimmed.c_str());
    const auto left = std::count_if(text.begin(), text.end(), [&](char c) { return !isIn(c); });
    MUST(left == std::count_if(trimmed.begin(), trimmed.end(), [&](char c) { return !isIn(c); }), "%s",
         trimmed.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes bytes(data, size);
    if (bytes.Below(2) == 0) {
        CheckOid(bytes);
    } else {
        CheckTrim(bytes);
    }
    const auto number = bytes.Take<std::uint16_t>();
    MUST(ushort_swap_endian(ushort_swap_endian(number)) == number, "%d", number);
    return 0;
}
