#pragma once

#include <cstddef>

#include "trace/agent/NetSnmp.h"

namespace trace {

/// The transport's text for a peer's address, without asking the transport again for a peer that has been seen lately:
/// that takes longer than all the rest of a record.
class PeerNames {
public:
    struct Name {
        const char* text;
        std::size_t length;
    };

    /// The text is valid until the next call; empty when the transport has none.
    Name Of(netsnmp_transport& transport, void* address, int addressLength) noexcept;

    /// Another transport may come to lie where one was: after a reload of the agent nothing known is true.
    void Forget() noexcept;

private:
    static constexpr std::size_t kMaxAddress = 512;
    static constexpr std::size_t kMaxText = 256;
    static constexpr std::size_t kPeers = 8;

    struct Peer {
        const netsnmp_transport* transport;
        std::size_t addressLength;
        std::size_t textLength;
        std::byte address[kMaxAddress];
        char text[kMaxText];
    };

    Peer _peers[kPeers] = {};
    std::size_t _next = 0;
};

}  // namespace trace
