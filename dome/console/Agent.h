#pragma once

#include <cstdint>
#include <string>

namespace dome::console {

/// The SNMP agent in front of this camera, on this machine.
struct Agent {
    std::string address = "127.0.0.1";  ///< IPv4, as text
    std::uint16_t port = 1161;          ///< UDP
    std::string community = "public";   ///< one that it lets read, at most 64 octets
};

}  // namespace dome::console
