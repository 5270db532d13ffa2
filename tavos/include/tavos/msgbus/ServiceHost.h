#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "tavos/Api.h"

namespace tavos::msgbus {

/// An argument of a call.
using Value = std::variant<std::int32_t, std::uint32_t, double, bool, std::string, std::vector<std::string>>;

/// Integers in decimal, doubles in the shortest form that reads back to the same number, booleans as "true" and
/// "false", strings as they are, lists with commas.
TAVOS_API std::string Text(const Value& value);

/// One call as it arrived at a service.
struct ReceivedCall {
    std::string service;    ///< well-known name, "org.tavos.Pan1"
    std::string operation;  ///< "SetPositionAtSpeed"
    std::vector<Value> arguments;
    /// For a filter that has taken the call over: sends an answer without a result, once, at any time, on the host's
    /// thread. The answer is lost when the connection of the call has ended.
    std::function<void()> answer = nullptr;
    std::string sender{};      ///< the caller's unique bus name, ":1.7"
    std::uint64_t serial = 0;  ///< the message's serial among those of its sender
};

/// A process's services on the bus. Everything runs on the thread that calls Process; call members only on that thread.
/// After a restart of the bus the host connects again and takes its names again.
class TAVOS_API ServiceHost {
public:
    /// `address` as TAVOS_BUS_ADDRESS (see MsgBus); empty: the system bus. Throws tavos::osa::Exception if the bus does
    /// not answer.
    explicit ServiceHost(const std::string& address);
    ~ServiceHost();
    ServiceHost(const ServiceHost&) = delete;
    ServiceHost& operator=(const ServiceHost&) = delete;

    /// Called before each call is served, in the order of arrival; also for each ping of a service, as an operation
    /// "Ping" without arguments. When it returns true it has taken the call over: the host does not serve it and sends
    /// no answer. An exception becomes the caller's error (a ping is then answered).
    void SetCallFilter(std::function<bool(const ReceivedCall&)> filter);

    /// Takes or releases a service's well-known name. Without its name a service is missing for its clients. Throws
    /// tavos::osa::Exception for a service that is not served here, or if another process owns the name.
    void SetPresent(const std::string& service, bool present);

    /// Makes Process return when the descriptor becomes readable; the caller must read it. Only one descriptor; it must
    /// stay open as long as the host lives.
    void WakeOn(int descriptor);

    /// Serves the calls that have arrived; waits at most `timeout` milliseconds for the first one.
    void Process(int timeout);

    struct Private;
    Private& Internals() { return *_private; }

private:
    std::unique_ptr<Private> _private;
};

}  // namespace tavos::msgbus
