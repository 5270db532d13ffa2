#include "tavos/msgbus/Lane.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "tavos/osa/Exception.h"

namespace tavos::msgbus {

namespace {

/// Takes both descriptors; without `output` it writes to `input`.
BusPtr NewConnection(Descriptor input, Descriptor output) {
    sd_bus* made = nullptr;
    CheckBus(sd_bus_new(&made));
    BusPtr bus(made);
    CheckBus(sd_bus_set_fd(made, input.Get(), output ? output.Get() : input.Get()));
    static_cast<void>(input.Release());  // the connection closes them
    static_cast<void>(output.Release());
    CheckBus(sd_bus_set_anonymous(made, 1));
    CheckBus(sd_bus_negotiate_fds(made, 0));
    return bus;
}

/// Makes `number` another name of the descriptor.
void Replace(int number, const Descriptor& descriptor) {
    CheckBus(dup3(descriptor.Get(), number, O_CLOEXEC) >= 0 ? 0 : -errno);
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

std::pair<Descriptor, Descriptor> NewPipe() {
    int ends[2];
    CheckBus(pipe2(ends, O_CLOEXEC | O_NONBLOCK) == 0 ? 0 : -errno);
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

/// The library insists on an authentication. Over the lane each process would have to wait for the other. So the
/// library authenticates with itself over another pair of sockets; then the lane takes over the numbers of those
/// sockets.
BusPtr ConnectionOn(const Descriptor& input, const Descriptor& output) {
    auto [here, there] = NewSocketPair();
    const int inputNumber = here.Get();
    Descriptor second(output ? fcntl(inputNumber, F_DUPFD_CLOEXEC, 0) : -1);
    if (output && !second) throw osa::Exception("no descriptor for a lane");
    const int outputNumber = second.Get();
    BusPtr bus = NewConnection(std::move(here), std::move(second));
    const BusPtr server = NewConnection(std::move(there), Descriptor());
    Authenticate(bus.get(), server.get());
    Replace(inputNumber, input);
    if (output) Replace(outputNumber, output);
    return bus;
}

}  // namespace tavos::msgbus
