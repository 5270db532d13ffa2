#pragma once

#include "tavos/Api.h"

namespace tavos::msgbus {

/// What an agent's thread calls services for.
enum class Work {
    kStart,    ///< before the first request
    kRequest,  ///< one SNMP request: one PDU, with all its variables and, for a SET, all its phases
};

class Connection;  // the host's own; a client library that speaks another bus has another

/// The message bus as the service clients see it. A client keeps the pointer: the bus must outlive its clients.
class TAVOS_API IMsgBus {
public:
    virtual ~IMsgBus() = default;

    /// Starts the thread that delivers service events to their delegates. A second call does nothing. Throws
    /// tavos::osa::Exception when no thread can be had; a bus that is not there yet is no failure, the thread
    /// waits for it.
    virtual void StartServer() = 0;

    /// For the service clients of the platform only.
    virtual Connection& GetConnection() = 0;

    /// The calls that this thread makes from now on, until it begins its next work, wait no longer than a limit, all
    /// together: what is left of it bounds each call, and with nothing left a call fails at once, as one does whose
    /// service is missing. One thread of the process only, the agent's; calls of other threads have their own
    /// deadlines.
    virtual void BeginWork(Work work) = 0;
};

}  // namespace tavos::msgbus
