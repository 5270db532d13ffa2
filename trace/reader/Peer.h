#pragma once

#include <cstdint>
#include <string>

namespace trace {

/// Both ends of an exchange, from the text that the agent's transport makes of them.
struct Peer {
    std::string address;  ///< "127.0.0.1", "::1"; empty: not known
    std::uint16_t port = 0;
    std::string ownAddress;  ///< the agent's
    std::uint16_t ownPort = 0;

    /// "127.0.0.1:40123", "[::1]:40123"
    std::string Text() const;
};

/// Understands "UDP: [127.0.0.1]:40123->[127.0.0.1]:1161" and its like for IPv6 and TCP. Understands
/// net-snmp 5.4's "UDP: [127.0.0.1]->[127.0.0.1]:-25413", too: the agent's own end, then the other. Another text
/// becomes the address as it is.
Peer ParsePeer(const std::string& text);

}  // namespace trace
