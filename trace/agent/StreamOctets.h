#pragma once

#include <cstddef>

#include "trace/agent/NetSnmp.h"

namespace trace {

/// The messages of connections (TCP): one may arrive in pieces, and several in one piece. Keeps the octets of each
/// connection until its next message is whole. Bounded: with more than kMaxConnections of them the pieces of the one
/// that is longest without any are forgotten.
class StreamOctets {
public:
    struct Octets {
        const std::byte* data = nullptr;
        std::size_t length = 0;
    };

    /// Makes this connection the current one. False without memory: then its octets are forgotten.
    bool Add(const netsnmp_transport& connection, const void* octets, std::size_t length) noexcept;

    /// The current connection's next message; none when it is not whole yet. What cannot begin a message is one, with
    /// all that follows it: the agent ends such a connection. Valid until the next call of Add or Forget.
    Octets Next() noexcept;
    /// Whether Next has a message.
    bool HasNext() const noexcept;

    /// What has come of a message that will not be whole: the connection has ended. It becomes the current one.
    Octets TakeRest(const netsnmp_transport& connection) noexcept;

    /// Forgets all connections.
    void Forget() noexcept;

private:
    static constexpr std::size_t kMaxConnections = 16;

    struct Connection {
        const netsnmp_transport* transport;
        std::byte* octets;
        std::size_t taken;   // by Next
        std::size_t length;  // with those
        unsigned long used;  // the larger, the later
    };

    Connection* Find(const netsnmp_transport* transport) noexcept;
    static void Empty(Connection& connection) noexcept;

    Connection _connections[kMaxConnections] = {};
    Connection* _current = nullptr;
    unsigned long _uses = 0;
};

}  // namespace trace
