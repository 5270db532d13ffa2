#include "trace/agent/PeerNames.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace trace {

void PeerNames::Forget() noexcept {
    for (auto& peer : _peers) peer.transport = nullptr;
}

PeerNames::Name PeerNames::Of(netsnmp_transport& transport, void* address, int addressLength) noexcept {
    const bool canKeep = address != nullptr && addressLength > 0 && std::size_t(addressLength) <= kMaxAddress;
    const std::size_t length = canKeep ? std::size_t(addressLength) : 0;
    for (const auto& peer : _peers) {
        if (canKeep && peer.transport == &transport && peer.addressLength == length &&
            std::memcmp(peer.address, address, length) == 0) {
            return {peer.text, peer.textLength};
        }
    }
    Peer& peer = _peers[_next];
    _next = (_next + 1) % kPeers;
    peer.transport = canKeep ? &transport : nullptr;
    peer.addressLength = length;
    if (canKeep) std::memcpy(peer.address, address, length);
    char* const text =
        transport.f_fmtaddr != nullptr ? transport.f_fmtaddr(&transport, address, addressLength) : nullptr;
    peer.textLength = text != nullptr ? std::min(std::strlen(text), kMaxText) : 0;
    if (text != nullptr) std::memcpy(peer.text, text, peer.textLength);
    std::free(text);
    return {peer.text, peer.textLength};
}

}  // namespace trace
