#pragma once

#include <cstdint>
#include <string>

/// `text` without the leading and trailing characters that are in `characters`.
std::string trim(const std::string& text, const std::string& characters);

/// The two bytes of `value` in the other order.
std::uint16_t ushort_swap_endian(std::uint16_t value);
