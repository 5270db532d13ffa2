#pragma once

#include "trace/agent/NetSnmp.h"

namespace trace {

/// Who is told what goes through the agent's sockets. Must not throw.
class TransportWatcher {
public:
    /// `length` 0: an empty datagram, or a connection that has ended.
    virtual void Received(netsnmp_transport& transport, const void* octets, int length, void* from,
                          int fromLength) noexcept = 0;
    /// `pdu` is what the message was made from, or nullptr when that is not certain; `to` is its address.
    virtual void Sent(netsnmp_transport& transport, const netsnmp_pdu* pdu, const void* octets, int length, void* to,
                      int toLength, bool sent) noexcept = 0;

protected:
    ~TransportWatcher() = default;
};

/// Puts functions of this module in front of the receiving and sending functions of the agent's SNMP sessions. There is
/// one set for the process. The agent's thread only.
void SetTransportWatcher(TransportWatcher* watcher) noexcept;

/// Hooks all sessions that are open now; cheap when nothing is new.
void HookSessions() noexcept;

/// Puts back the functions of all sessions that are still open.
void UnhookSessions() noexcept;

}  // namespace trace
