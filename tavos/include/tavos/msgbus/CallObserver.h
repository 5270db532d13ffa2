#pragma once

#include <cstdint>

#include "tavos/Api.h"

namespace tavos::msgbus {

/// What became of one call to a service. Texts are valid during the observer's call only.
struct ObservedCall {
    enum class Outcome : std::uint32_t {
        kAnswered = 1,
        kFailed = 2,   ///< the service answered with an error, could not be reached, or timed out
        kNotMade = 3,  ///< the service or the bus is known to be silent, or there was no time left
    };

    Outcome outcome;
    std::uint32_t microseconds;
    std::uint64_t serial;   ///< of the message; 0: none was made
    const char* sender;     ///< the connection's unique name on the bus; "" when there is no connection
    const char* service;    ///< "org.tavos.Pan1"
    const char* operation;  ///< "SetPosition"
    const char* arguments;  ///< a JSON array
    const char* error;      ///< "" when the outcome is kAnswered
};

/// Must not throw. Runs on the thread that made the call, after it.
using CallObserver = void (*)(const ObservedCall& call);

}  // namespace tavos::msgbus

/// From now on `observer` sees each call that this process makes or fails to make; nullptr: nobody. Any thread; a call
/// that is under way may still reach the observer before. There is one observer. A platform need not have this
/// function: look it up by its name at run time.
extern "C" TAVOS_API void tavos_observe_calls(tavos::msgbus::CallObserver observer);
