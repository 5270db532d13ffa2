#pragma once

#include "tavos/Api.h"

namespace tavos::msgbus {

/// The kinds of work for which the agent's thread calls services.
enum class Work {
    kStart,    ///< before the first request
    kRequest,  ///< one SNMP request: one PDU, with all its variables and, for a SET, all its phases
};

class Connection;  // private to this library; another bus library defines its own

/// The message bus for the service clients. A client keeps the pointer: the bus must outlive its clients.
class TAVOS_API IMsgBus {
public:
    virtual ~IMsgBus() = default;

    /// Starts the thread that delivers service events to their delegates. A second call does nothing. Throws
    /// tavos::osa::Exception if the thread cannot be started. A missing bus is not a failure: the thread retries until
    /// it connects.
    virtual void StartServer() = 0;

    /// For the service clients of the platform only.
    virtual Connection& GetConnection() = 0;

    /// Limits the total time of the calling thread's calls from now until its next BeginWork. Each call waits at most
    /// for the remaining time. When no time remains, calls fail at once, like calls to a missing service. Only the
    /// agent's thread may begin work. Calls of other threads have only their deadlines.
    virtual void BeginWork(Work work) = 0;
};

}  // namespace tavos::msgbus
