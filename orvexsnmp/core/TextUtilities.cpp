#include "core/TextUtilities.h"

std::string trim(const std::string& text, const std::string& characters) {
    const auto first = text.find_first_not_of(characters);
    if (first == std::string::npos) return "";
    const auto last = text.find_last_not_of(characters);
    return text.substr(first, last - first + 1);
}

std::uint16_t ushort_swap_endian(std::uint16_t value) {
    return static_cast<std::uint16_t>((value << 8) | (value >> 8));
}
