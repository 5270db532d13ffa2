#include "tavos/msgbus/CallObservation.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <limits>

#include "tavos/msgbus/CallObserver.h"

namespace tavos::msgbus {

namespace {

std::atomic<CallObserver> s_observer{nullptr};

}  // namespace

CallObservation::CallObservation() noexcept : _on(s_observer.load(std::memory_order_relaxed) != nullptr) {}

void CallObservation::Sent(const char* sender, std::uint64_t serial) noexcept {
    _serial = serial;
    if (sender != nullptr) std::snprintf(_sender, sizeof _sender, "%s", sender);
}

void CallObservation::End(const ServiceAddress& to, const char* operation,
                          const std::function<void(Writer&)>& arguments, const char* error,
                          std::chrono::steady_clock::duration time) noexcept {
    const CallObserver observer = _on ? s_observer.load(std::memory_order_acquire) : nullptr;
    if (observer == nullptr) return;
    try {
        constexpr long long kMaxMicroseconds = std::numeric_limits<std::uint32_t>::max();
        const long long microseconds = std::chrono::duration_cast<std::chrono::microseconds>(time).count();
        std::string json;
        Writer writer(json);
        arguments(writer);
        json = '[' + json + ']';
        ObservedCall call{};
        call.outcome = *error == '\0' ? ObservedCall::Outcome::kAnswered
                       : _tried       ? ObservedCall::Outcome::kFailed
                                      : ObservedCall::Outcome::kNotMade;
        call.microseconds = static_cast<std::uint32_t>(std::clamp(microseconds, 0LL, kMaxMicroseconds));
        call.serial = _serial;
        call.sender = _sender;
        call.service = to.service.c_str();
        call.operation = operation;
        call.arguments = json.c_str();
        call.error = error;
        observer(call);
    } catch (...) {
        // Without memory the call is not observed.
    }
}

}  // namespace tavos::msgbus

void tavos_observe_calls(tavos::msgbus::CallObserver observer) {
    tavos::msgbus::s_observer.store(observer, std::memory_order_release);
}
