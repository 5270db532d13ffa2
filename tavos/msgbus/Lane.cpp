#include "tavos/msgbus/Lane.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "tavos/osa/Exception.h"

namespace tavos::msgbus {

namespace {

BusPtr NewConnection(Descriptor descriptor) {
    sd_bus* made = nullptr;
    CheckBus(sd_bus_new(&made));
    BusPtr bus(made);
    CheckBus(sd_bus_set_fd(made, descriptor.Get(), descriptor.Get()));
    static_cast<void>(descriptor.Release());  // the connection closes it
    CheckBus(sd_bus_set_anonymous(made, 1));
    CheckBus(sd_bus_negotiate_fds(made, 0));
    return bus;
}

void Authenticate(sd_bus* client, sd_bus* server) {
    constexpr int kMaxTurns = 20;
    constexpr sd_id128_t kServer = {{1}};
    CheckBus(sd_bus_set_server(server, 1, kServer));
    CheckBus(sd_bus_start(client));
    CheckBus(sd_bus_start(server));
    for (int turn = 0; turn < kMaxTurns; ++turn) {
        const int clientReady = sd_bus_is_ready(client);
        const int serverReady = sd_bus_is_ready(server);
        CheckBus(clientReady);
        CheckBus(serverReady);
        if (clientReady > 0 && serverReady > 0) return;
        CheckBus(sd_bus_process(client, nullptr));
        CheckBus(sd_bus_process(server, nullptr));
    }
    throw osa::Exception("a lane cannot be opened: the bus library does not authenticate");
}

}  // namespace

Descriptor::~Descriptor() {
    if (_descriptor >= 0) close(_descriptor);
}

std::pair<Descriptor, Descriptor> NewSocketPair() {
    int ends[2];
    CheckBus(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) == 0 ? 0 : -errno);
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

/// The library insists on an authentication. If the two processes authenticated over the lane, each would have to wait
/// for the other, and the service could not know where the first message begins. So the library authenticates with
/// itself over another pair of sockets; then the lane takes over the number of that socket.
BusPtr ConnectionOn(Descriptor end) {
    auto [here, there] = NewSocketPair();
    BusPtr bus = NewConnection(std::move(here));
    const BusPtr server = NewConnection(std::move(there));
    Authenticate(bus.get(), server.get());
    const int descriptor = sd_bus_get_fd(bus.get());
    CheckBus(descriptor);
    CheckBus(dup3(end.Get(), descriptor, O_CLOEXEC) >= 0 ? 0 : -errno);
    return bus;
}

}  // namespace tavos::msgbus
