#pragma once

#include "tavos/core/Logger.h"

/// The providers' wrappers of platform service operations. They trace entry and exit with the wrapper's name, and turn
/// an exception of any type into one Error line and the result -1. `body` makes the call, logs the success line, and
/// then stores the value that it read. So a wrapper that returns -1 has not changed its output arguments.

/// Only the call. `failure` is the whole Error line, not a format.
template <class Body>
int CaughtCall(const tavos::core::Logger& logger, const char* failure, Body&& body) {
    try {
        body();
        return 0;
    } catch (...) {
        logger.Error("%s", failure);
        return -1;
    }
}

/// The wrapper without the entry trace, for wrappers that refuse some arguments before the call.
template <class Body>
int GuardedCall(const tavos::core::Logger& logger, const char* name, const char* failure, Body&& body) {
    const int result = CaughtCall(logger, failure, body);
    logger.Trace("%s: Done.", name);
    return result;
}

/// The whole wrapper.
template <class Body>
int PlatformCall(const tavos::core::Logger& logger, const char* name, const char* failure, Body&& body) {
    logger.Trace("%s: Enter.", name);
    return GuardedCall(logger, name, failure, body);
}

/// The whole wrapper of an operation that reads one value: `read` makes the call, `line` logs the value.
template <class Value, class Read, class Line>
int PlatformRead(const tavos::core::Logger& logger, const char* name, const char* failure, Value& value, Read&& read,
                 Line&& line) {
    return PlatformCall(logger, name, failure, [&] {
        const Value current = read();
        line(current);
        value = current;
    });
}
