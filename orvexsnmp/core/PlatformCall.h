#pragma once

#include "tavos/core/Logger.h"

/// How every provider wraps an operation of a platform service: traces entry and exit with the wrapper's name, and
/// turns every exception of any type into one Error line and the result -1. `body` makes the call, logs the success
/// line and stores what it read last. So a wrapper that returns -1 has not changed its output arguments.

/// Only the call itself. `failure` is the whole Error line, no format.
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

/// The part after the entry trace, for wrappers that refuse some arguments before they call.
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

/// The whole wrapper of an operation that reads one value: `read` makes the call, `line` logs what it has read.
template <class Value, class Read, class Line>
int PlatformRead(const tavos::core::Logger& logger, const char* name, const char* failure, Value& value, Read&& read,
                 Line&& line) {
    return PlatformCall(logger, name, failure, [&] {
        const Value current = read();
        line(current);
        value = current;
    });
}
