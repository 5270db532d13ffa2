#pragma once

#include <cstdint>
#include <string>

namespace trace {

/// "2026-11-21T17:03:02.000123Z", from nanoseconds since 1970.
std::string IsoTime(std::int64_t nanoseconds);

/// "17:03:02.000" of the same, for people.
std::string ClockTime(std::int64_t nanoseconds);

}  // namespace trace
