#pragma once

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>

/// Maps `value` linearly from [inMin, inMax] to [outMin, outMax], truncates toward zero and takes the absolute value:
/// what maps below zero comes back positive. The range [inMin, inMax] is not checked: an empty one divides by zero.
/// Where the truncated result has no absolute value that an int can hold, the result is the smallest int.
inline int ScaleLinearly(std::uint32_t value, std::uint32_t inMin, std::uint32_t inMax, std::uint32_t outMin,
                         std::uint32_t outMax) {
    // Fixed: docs/contract.md, scale-loses-sign.
    // In double, so that no difference wraps around.
    const double scaled = double{1} * outMin +
                          ((double{1} * outMax - outMin) * (double{1} * value - inMin)) / (double{1} * inMax - inMin);
    // See docs/contract.md, scale-without-result.
    constexpr int kNoResult = std::numeric_limits<int>::min();
    // Of the double, before it is truncated: all below 2^31 fits. False for what is not a number, too.
    const bool fits = std::abs(scaled) < -static_cast<double>(kNoResult);
    return fits ? std::abs(static_cast<int>(scaled)) : kNoResult;
}
