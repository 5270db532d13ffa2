#pragma once

#include <chrono>
#include <memory>

#include "tavos/Api.h"
#include "tavos/msgbus/IMsgBus.h"

namespace tavos::msgbus {

/// A process's connections to the message bus. The environment variable TAVOS_BUS_ADDRESS has the address; the default
/// is the system bus. Construction never fails: while the bus is missing, calls throw. A call's deadline is 500 ms, or
/// TAVOS_CALL_TIMEOUT_MS milliseconds. The limit for all calls of one request is twice the deadline, or
/// TAVOS_REQUEST_TIMEOUT_MS milliseconds; the limit for the start is five times that of a request. Calls take a direct
/// connection to a service that offers one; with TAVOS_BUS_LANES=off they all take the bus.
class TAVOS_API MsgBus final : public IMsgBus {
public:
    MsgBus();
    /// Ends the event thread; returns when no delegate runs.
    ~MsgBus() override;
    MsgBus(const MsgBus&) = delete;
    MsgBus& operator=(const MsgBus&) = delete;

    void StartServer() override;
    Connection& GetConnection() override;
    void BeginWork(Work work) override;

private:
    std::unique_ptr<Connection> _connection;
    const std::chrono::milliseconds _requestTime;
};

}  // namespace tavos::msgbus
