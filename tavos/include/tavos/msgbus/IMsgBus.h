#pragma once

#include "tavos/Api.h"

namespace tavos::msgbus {

/// What an agent's thread calls services for.
enum class Work {
    kStart,    ///< before the first request
    kRequest,  ///< one SNMP request: one PDU, with all its variables and, for a SET, all its phases
};

class Connection;  // private to this library; another bus's client library has its own

/// The message bus as the service clients see it. A client keeps the pointer: the bus must outlive its clients.
class TAVOS_API IMsgBus {
public:
    virtual ~IMsgBus() = default;

    /// Starts the thread that delivers service events to their delegates. A second call does nothing. Throws
    /// tavos::osa::Exception when the thread cannot be started. A missing bus is no failure: the thread retries until
    /// it is there.
    virtual void StartServer() = 0;

    /// For the service clients of the platform only.
    virtual Connection& GetConnection() = 0;

    /// Sets a time limit for all calls together that this thread makes until it begins its next work. The rest of the
    /// limit bounds each call; once it is used up, a call fails at once, like a call to a missing service. Only the
    /// agent's thread may begin work; calls of other threads have only their deadlines.
    virtual void BeginWork(Work work) = 0;
};

}  // namespace tavos::msgbus
