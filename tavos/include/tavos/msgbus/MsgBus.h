#pragma once

#include <chrono>
#include <memory>

#include "tavos/Api.h"
#include "tavos/msgbus/IMsgBus.h"

namespace tavos::msgbus {

/// A process's end of the message bus, spoken to the address in the environment's TAVOS_BUS_ADDRESS, or to the
/// system bus without it. Construction never fails: a bus that is missing makes the calls throw, until it is there.
/// Calls wait 500 ms for their answer, or as many milliseconds as the environment's TAVOS_CALL_TIMEOUT_MS says. The
/// calls of one request together wait twice as long, or TAVOS_REQUEST_TIMEOUT_MS; those of the start five times as long
/// as those of a request.
class TAVOS_API MsgBus final : public IMsgBus {
public:
    MsgBus();
    /// Ends the event thread; returns when no delegate runs any more.
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
