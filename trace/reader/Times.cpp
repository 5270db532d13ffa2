#include "trace/reader/Times.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace trace {

namespace {

constexpr std::int64_t kSecond = 1000000000;

/// Split so that times before 1970 have a positive fraction, too.
std::tm Split(std::int64_t nanoseconds, std::int64_t& fraction) {
    std::int64_t seconds = nanoseconds / kSecond;
    fraction = nanoseconds % kSecond;
    if (fraction < 0) {
        fraction += kSecond;
        --seconds;
    }
    const auto time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    gmtime_r(&time, &parts);
    return parts;
}

}  // namespace

std::string IsoTime(std::int64_t nanoseconds) {
    std::int64_t fraction = 0;
    const std::tm parts = Split(nanoseconds, fraction);
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%06dZ", parts.tm_year + 1900,
                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                  static_cast<int>(fraction / 1000));
    return text.data();
}

std::string ClockTime(std::int64_t nanoseconds) {
    return IsoTime(nanoseconds).substr(11, 12);
}

}  // namespace trace
