#include "trace/reader/Peer.h"

#include <charconv>
#include <utility>

namespace trace {

namespace {

/// "[127.0.0.1]:40123", "[[::1]]:40123", or without a port, which is then 0. False for another text.
bool ParseEnd(const std::string& text, std::string& address, std::uint16_t& port) {
    const std::size_t close = text.rfind(']');
    if (text.empty() || text[0] != '[' || close == std::string::npos) return false;
    int number = 0;
    if (close + 1 < text.size()) {
        const char* const first = text.data() + close + 2;
        const char* const last = text.data() + text.size();
        if (text[close + 1] != ':' || std::from_chars(first, last, number).ec != std::errc()) return false;
    }
    port = static_cast<std::uint16_t>(number);  // net-snmp 5.4 writes ports above 32767 as negative numbers
    const std::size_t start = text.find_first_not_of('[');
    const std::size_t end = text.find(']');
    if (start == std::string::npos || end < start) return false;
    address = text.substr(start, end - start);
    return true;
}

}  // namespace

std::string Peer::Text() const {
    if (address.empty() || port == 0) return address;
    const bool isVersion6 = address.find(':') != std::string::npos;
    return (isVersion6 ? "[" + address + "]" : address) + ":" + std::to_string(port);
}

Peer ParsePeer(const std::string& text) {
    Peer peer;
    const std::size_t colon = text.find(": ");
    const std::string ends = colon == std::string::npos ? text : text.substr(colon + 2);
    const std::size_t arrow = ends.find("->");
    if (!ParseEnd(ends.substr(0, arrow), peer.address, peer.port)) {
        peer.address = text;
        return peer;
    }
    if (arrow == std::string::npos) return peer;
    ParseEnd(ends.substr(arrow + 2), peer.ownAddress, peer.ownPort);
    if (peer.port == 0) {  // net-snmp 5.4 begins with its own end, which has no port
        std::swap(peer.address, peer.ownAddress);
        std::swap(peer.port, peer.ownPort);
    }
    return peer;
}

}  // namespace trace
