#pragma once

#include <cstdint>
#include <string>

/// `text` without leading and trailing characters of the set `characters`.
std::string trim(const std::string& text, const std::string& characters);

/// `value` with its two bytes swapped.
std::uint16_t ushort_swap_endian(std::uint16_t value);
