#pragma once

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>

/// Maps `value` linearly from [inMin, inMax] to [outMin, outMax], truncates toward zero and returns the absolute value.
/// Does not check [inMin, inMax]: an empty range divides by zero. Returns the min int if an int cannot hold the
/// absolute value.
inline int ScaleLinearly(std::uint32_t value, std::uint32_t inMin, std::uint32_t inMax, std::uint32_t outMin,
                         std::uint32_t outMax) {
    // Fixed: docs/contract.md, scale-loses-sign.
    // Computed in double, so that no difference wraps around.
    const double scaled = double{1} * outMin +
                          ((double{1} * outMax - outMin) * (double{1} * value - inMin)) / (double{1} * inMax - inMin);
    // See docs/contract.md, scale-without-result.
    constexpr int kNoResult = std::numeric_limits<int>::min();
    // Compares the double before truncation: all values below 2^31 fit. False also for NaN.
    const bool fits = std::abs(scaled) < -static_cast<double>(kNoResult);
    return fits ? std::abs(static_cast<int>(scaled)) : kNoResult;
}
