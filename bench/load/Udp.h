#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

namespace bench {

using Clock = std::chrono::steady_clock;

inline std::runtime_error SystemError(const std::string& what) {
    return std::runtime_error(what + ": " + std::strerror(errno));
}

/// A UDP socket on loopback with room for many datagrams.
class Udp {
public:
    Udp() : _descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        if (_descriptor < 0) throw SystemError("socket");
        const int room = 32 << 20;
        // The first needs privileges, and has no limit.
        if (setsockopt(_descriptor, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room) != 0) {
            setsockopt(_descriptor, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
        }
    }
    ~Udp() { close(_descriptor); }
    Udp(const Udp&) = delete;
    Udp& operator=(const Udp&) = delete;

    void Connect(std::uint16_t port) {
        const sockaddr_in address = Loopback(port);
        if (connect(_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            throw SystemError("connect");
        }
    }

    void Bind(std::uint16_t port) {
        const sockaddr_in address = Loopback(port);
        if (bind(_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            throw SystemError("bind");
        }
    }

    int Descriptor() const { return _descriptor; }

private:
    static sockaddr_in Loopback(std::uint16_t port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }

    int _descriptor;
};

inline double Seconds(Clock::duration time) {
    return std::chrono::duration<double>(time).count();
}

inline Clock::duration Duration(double seconds) {
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace bench
