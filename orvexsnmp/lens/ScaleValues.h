#pragma once

#include <cstdint>
#include <limits>

/// Maps `value` linearly from [inMin, inMax] to [outMin, outMax], truncates toward zero and takes the absolute value:
/// what maps below zero comes back positive. The range [inMin, inMax] is not checked; where the division has no
/// result that an int can hold, the result is the smallest int.
inline int ScaleLinearly(std::uint32_t value, std::uint32_t inMin, std::uint32_t inMax, std::uint32_t outMin,
                         std::uint32_t outMax) {
    // In double, so that no difference wraps around.
    const double scaled = double{1} * outMin +
                          ((double{1} * outMax - outMin) * (double{1} * value - inMin)) / (double{1} * inMax - inMin);
    constexpr int kNoResult = std::numeric_limits<int>::min();
    const bool fits = scaled > static_cast<double>(kNoResult) && scaled <= std::numeric_limits<int>::max();
    if (!fits) return kNoResult;
    const int result = static_cast<int>(scaled);
    return result < 0 ? -result : result;
}
