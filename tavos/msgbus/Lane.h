#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "tavos/msgbus/Bus.h"

namespace tavos::msgbus {

// A lane is a client's direct connection to one service: a pair of connected stream sockets, one end in each process.
// The client asks for it with the operation OpenLane of the service's interface, over the bus. Then D-Bus messages are
// exchanged on it, without authentication: the bus has just decided that this client may call this service.

/// The operation that returns the client's end.
inline constexpr const char* kOpenLane = "OpenLane";

/// The max size of a call on a lane, in octets. A larger one must take the bus.
inline constexpr std::size_t kMaxLaneCall = 4096;

/// Owns a file descriptor, or none.
class Descriptor {
public:
    explicit Descriptor(int descriptor = -1) : _descriptor(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : _descriptor(other.Release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(_descriptor, other._descriptor);
        return *this;
    }
    ~Descriptor();

    explicit operator bool() const { return _descriptor >= 0; }
    int Get() const { return _descriptor; }
    int Release() { return std::exchange(_descriptor, -1); }

private:
    int _descriptor;
};

/// Two connected sockets: close-on-exec, not blocking. Throws tavos::osa::Exception without a free descriptor.
std::pair<Descriptor, Descriptor> NewSocketPair();

/// A pipe's read end and write end: close-on-exec, not blocking. Throws as NewSocketPair.
std::pair<Descriptor, Descriptor> NewPipe();

/// A connection of the bus library that reads messages from `input` and writes them to `output`, or also to `input` if
/// there is no `output`. It is ready to call and to serve; there is no authentication. Never waits. Throws
/// tavos::osa::Exception.
BusPtr ConnectionOn(const Descriptor& input, const Descriptor& output = Descriptor());

/// The serials of the messages that a client sends over one connection to the bus and over all its lanes: one count, so
/// that the connection's name and the serial identify a call, whichever way it took.
class Serials {
public:
    std::uint64_t Next() {
        constexpr std::uint64_t kMax = 0xFFFFFFFF;
        constexpr std::uint64_t kAfterMax = 0x80000000;  // far from the first ones, which the library uses itself
        return _last = _last == kMax ? kAfterMax : _last + 1;
    }

private:
    std::uint64_t _last = 1;  // the library's first message on a connection has serial 1
};

}  // namespace tavos::msgbus
