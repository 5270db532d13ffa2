#pragma once

#include <cmath>
#include <exception>

#include "tavos/osa/Exception.h"

namespace dome {

/// Services refuse arguments with the platform's exception; the caller gets its text.

inline void CheckFraction(const char* what, double value) {
    if (!(std::fabs(value) <= 1.0)) throw tavos::osa::Exception("%s %g outside -1 to 1", what, value);
}

inline void CheckPercent(const char* what, double value, double min) {
    if (!(value >= min && value <= 100.0)) {
        throw tavos::osa::Exception("%s %g outside %g to 100", what, value, min);
    }
}

inline void CheckTimeLimit(int seconds) {
    if (seconds < 0) throw tavos::osa::Exception("time limit %d is negative", seconds);
}

inline void CheckDirection(int direction) {
    if (direction < -1 || direction > 1) throw tavos::osa::Exception("direction %d outside -1 to 1", direction);
}

/// Converts any exception of the operation into the platform's.
template <class Operation>
auto Refusable(Operation operation) -> decltype(operation()) {
    try {
        return operation();
    } catch (const std::exception& error) {
        throw tavos::osa::Exception("%s", error.what());
    }
}

}  // namespace dome
