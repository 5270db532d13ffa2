#pragma once

#include "tavos/Api.h"

namespace tavos::msgbus {

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
};

}  // namespace tavos::msgbus
