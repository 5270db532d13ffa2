#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "support/FakePlatform.h"
#include "support/Journal.h"
#include "tavos/core/Event.h"
#include "tavos/msgbus/ServiceAddress.h"

/// Replaces tavos::msgbus::Remote in the service clients that are generated for the unit tests. Records each call as
/// "call SERVICE OPERATION ARGUMENTS", throws if the test requests it, and answers with the fake camera's values.
class Recorder {
public:
    /// Ends a forwarding of events when it is destroyed.
    using Subscription = std::shared_ptr<void>;

    Recorder(const tavos::msgbus::IMsgBus* bus, const tavos::msgbus::ServiceAddress& address);
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    template <class Result, class... Arguments>
    Result Call(const char* operation, const Arguments&... arguments) const {
        Record(operation, (std::string() + ... + (" " + journal::Text(arguments))));
        if constexpr (std::is_same_v<Result, std::vector<std::string>>) {
            return BankNames();
        } else if constexpr (std::is_integral_v<Result>) {
            // By way of a signed number: a test may give a negative answer for an unsigned one.
            return static_cast<Result>(static_cast<std::int64_t>(Number(operation, arguments...)));
        } else if constexpr (!std::is_void_v<Result>) {
            return Number(operation, arguments...);
        }
    }

    /// Forwards the fake camera's event to `event`.
    Subscription Subscribe(const char* name, tavos::core::Event1<int>& event) const;
    Subscription Subscribe(const char* name, tavos::core::Event2<int, int>& event) const;

private:
    /// `arguments` begin with a space, if there are any.
    void Record(const std::string& operation, const std::string& arguments) const;
    /// Of alarms or relays; null for the other services.
    const FakeCamera::Banks* Banks() const;
    std::vector<std::string> BankNames() const;
    double Number(const std::string& operation) const;
    double Number(const std::string& operation, int sensor) const;
    double Number(const std::string& operation, const std::string& bank) const;
    double Number(const std::string& operation, const std::string& bank, int id) const;

    const std::string _service;
};
