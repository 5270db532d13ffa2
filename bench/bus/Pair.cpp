#include "bus/Pair.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <map>
#include <utility>

#include "bus/Services.h"
#include "load/Udp.h"

namespace bench {

namespace {

std::array<int, 2> Pair() {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) throw SystemError("socketpair");
    return ends;
}

/// Returns this process's end of a pair; a child serves the other until this process ends.
int Served(const std::function<void(int)>& serve) {
    const auto [here, there] = Pair();
    const pid_t child = fork();
    if (child < 0) throw SystemError("fork");
    if (child > 0) {
        close(there);
        return here;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    close(here);
    try {
        serve(there);
    } catch (const std::exception&) {
        // The parent has ended, or fails at its next call.
    }
    _exit(0);
}

BusPtr Client(int descriptor) {
    sd_bus* made = nullptr;
    Check(sd_bus_new(&made), "sd_bus_new");
    BusPtr bus(made);
    Check(sd_bus_set_fd(made, descriptor, descriptor), "sd_bus_set_fd");
    Check(sd_bus_start(made), "sd_bus_start");
    return bus;
}

/// What has arrived on the connection and is not read yet; it stays there.
std::string Unread(sd_bus* bus) {
    std::array<char, 4096> octets{};
    const ssize_t size = recv(sd_bus_get_fd(bus), octets.data(), octets.size(), MSG_PEEK | MSG_DONTWAIT);
    if (size <= 0) throw SystemError("no message on the pair");
    return {octets.data(), static_cast<std::size_t>(size)};
}

void Send(int descriptor, const std::string& octets) {
    if (send(descriptor, octets.data(), octets.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(octets.size())) {
        throw SystemError("send");
    }
}

std::string Received(int descriptor) {
    std::array<char, 4096> octets;
    const ssize_t size = recv(descriptor, octets.data(), octets.size(), 0);
    if (size <= 0) throw SystemError("the pair's other side has ended");
    return {octets.data(), static_cast<std::size_t>(size)};
}

struct RoundTrip {
    std::string call;
    std::string answer;
};

void Process(sd_bus* bus) {
    while (Check(sd_bus_process(bus, nullptr), "sd_bus_process") > 0) continue;
}

/// What the bus library writes for that call.
RoundTrip Recorded(const std::function<MessagePtr(sd_bus*)>& newCall) {
    const auto [here, there] = Pair();
    const BusPtr client = Client(here);
    const BusPtr server = Peer(there);
    constexpr int kAuthentication = 20;  // more turns than it takes
    for (int turn = 0; turn < kAuthentication; ++turn) {
        Process(server.get());
        Process(client.get());
    }
    std::uint64_t serial = 0;  // without it the library would ask for no answer
    Check(sd_bus_send(client.get(), newCall(client.get()).get(), &serial), "sd_bus_send");
    std::string call = Unread(server.get());
    Process(server.get());
    return {std::move(call), Unread(client.get())};
}

}  // namespace

std::function<void(const std::string& what)> OverAPair(const std::vector<std::string>& calls, NewCall newCall) {
    std::map<std::string, RoundTrip> known;
    std::map<std::string, std::string> answers;
    for (const std::string& what : calls) {
        const RoundTrip one = Recorded([&](sd_bus* bus) { return newCall(bus, what); });
        known[what] = one;
        answers[one.call] = one.answer;
    }
    const int end = Served([&](int other) {
        while (true) Send(other, answers.at(Received(other)));
    });
    return [end, known](const std::string& what) {
        const RoundTrip& one = known.at(what);
        Send(end, one.call);
        if (Received(end) != one.answer) throw std::runtime_error("a wrong answer over the pair");
    };
}

}  // namespace bench
