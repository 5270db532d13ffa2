#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "tavos/msgbus/Message.h"
#include "tavos/msgbus/ServiceAddress.h"

namespace tavos::msgbus {

/// What one call does, for the process's observer (CallObserver.h). Without an observer it costs one atomic load. Never
/// throws, so that an observed call does what an unobserved one does.
class CallObservation {
public:
    CallObservation() noexcept;
    bool IsOn() const noexcept { return _on; }

    /// The service is not known to be silent, and there is time: the call is tried.
    void Tried() noexcept { _tried = true; }
    /// The message is on the way. `sender` is the connection's unique name; it may be nullptr.
    void Sent(const char* sender, std::uint64_t serial) noexcept;

    /// `error` is "" for an answered call. `arguments` writes them once more.
    void End(const ServiceAddress& to, const char* operation, const std::function<void(Writer&)>& arguments,
             const char* error, std::chrono::steady_clock::duration time) noexcept;

private:
    bool _on;
    bool _tried = false;
    std::uint64_t _serial = 0;
    char _sender[64] = "";
};

}  // namespace tavos::msgbus
