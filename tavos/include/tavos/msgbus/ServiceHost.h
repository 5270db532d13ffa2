#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tavos/Api.h"

namespace tavos::msgbus {

/// One call as it arrived at a service.
struct ReceivedCall {
    std::string service;    ///< well-known name, "org.tavos.Pan1"
    std::string operation;  ///< "SetPositionAtSpeed"
    /// As text: integers in decimal, doubles in the shortest form that reads back to the same number, booleans as
    /// "true" and "false", strings as they are.
    std::vector<std::string> arguments;
};

/// What becomes of a call: it is served, answered with an error, or never answered.
enum class Treatment { kServe, kFail, kHang };

/// The other end of the bus: a process's services. Everything runs on the thread that calls Process; no member may
/// be called from another. After a restart of the bus the host connects again and takes its names back.
class TAVOS_API ServiceHost {
public:
    /// `address` as TAVOS_BUS_ADDRESS (see MsgBus); empty: the system bus. Throws tavos::osa::Exception when the bus
    /// does not answer.
    explicit ServiceHost(const std::string& address);
    ~ServiceHost();
    ServiceHost(const ServiceHost&) = delete;
    ServiceHost& operator=(const ServiceHost&) = delete;

    /// Asked before each call is served, in the order of arrival. Without it everything is served. It is also asked, as
    /// for an operation "Ping" without arguments and perhaps over and over, whether a service gives a sign of life,
    /// which all but one that hangs do.
    void SetCallFilter(std::function<Treatment(const ReceivedCall&)> filter);

    /// Takes or gives up a service's well-known name; a service whose name is given up is as good as not there.
    /// Throws tavos::osa::Exception for a service that is not served here, or when another process has the name.
    void SetPresent(const std::string& service, bool present);

    /// Lets Process return as well when the descriptor becomes readable; reading from it is the caller's business. One
    /// descriptor, which must stay open as long as the host lives.
    void WakeOn(int descriptor);

    /// Serves what has arrived; waits at most `timeout` milliseconds for something to arrive.
    void Process(int timeout);

    struct Private;
    Private& Internals() { return *_private; }

private:
    std::unique_ptr<Private> _private;
};

}  // namespace tavos::msgbus
