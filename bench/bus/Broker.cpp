#include "bus/Broker.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>

#include "bus/Sd.h"

namespace bench {

namespace {

constexpr const char* kListener = "/org/bus1/DBus/Listener/0";

pid_t Start(const std::string& program, int controller) {
    const pid_t child = fork();
    if (child != 0) return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int inherited = dup(controller);  // without close-on-exec
    const std::string descriptor = std::to_string(inherited);
    const std::string machine(32, '1');
    const std::string plenty = "1000000000";
    execl(program.c_str(), program.c_str(), "--controller", descriptor.c_str(), "--machine-id", machine.c_str(),
          "--max-bytes", plenty.c_str(), "--max-fds", "1000", "--max-matches", "10000", "--max-objects", "1000000",
          nullptr);
    _exit(127);
}

/// The policy for every client: connect, own every name, send and receive every message.
void AppendEverything(sd_bus_message* call) {
    constexpr const char* kBatch = "bta(btbs)a(btssssuutt)a(btssssuutt)";
    const std::string batch = kBatch;
    const std::string users = "(u(" + batch + "))";
    const std::string policy = "a" + users + "a(buu(" + batch + "))a(ss)bs";
    Check(sd_bus_message_open_container(call, 'v', ("(" + policy + ")").c_str()), "policy");
    Check(sd_bus_message_open_container(call, 'r', policy.c_str()), "policy");
    Check(sd_bus_message_open_container(call, 'a', users.c_str()), "users");
    Check(sd_bus_message_open_container(call, 'r', ("u(" + batch + ")").c_str()), "users");
    Check(sd_bus_message_append(call, "u", UINT32_MAX), "every user");
    Check(sd_bus_message_open_container(call, 'r', kBatch), "batch");
    const std::uint64_t first = 1;
    const std::uint64_t none = 0;
    Check(sd_bus_message_append(call, "bt", 1, first), "may connect");
    Check(sd_bus_message_append(call, "a(btbs)", 1, 1, first, 1, ""), "may own");
    for (int direction = 0; direction < 2; ++direction) {
        Check(sd_bus_message_append(call, "a(btssssuutt)", 1, 1, first, "", "", "", "", 0, 0, none, UINT64_MAX),
              "may send and receive");
    }
    for (int i = 0; i < 3; ++i) Check(sd_bus_message_close_container(call), "policy");
    Check(sd_bus_message_append(call, ("a(buu(" + batch + "))").c_str(), 0), "groups");
    Check(sd_bus_message_append(call, "a(ss)bs", 0, 0, "session"), "labels");
    Check(sd_bus_message_close_container(call), "policy");
    Check(sd_bus_message_close_container(call), "policy");
}

int Listening(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) throw std::runtime_error("the socket's path is too long");
    path.copy(address.sun_path, path.size());
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0 || bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(descriptor, 100) != 0) {
        throw std::runtime_error(path + ": " + std::strerror(errno));
    }
    return descriptor;
}

void AddListener(sd_bus* bus, int listening) {
    sd_bus_message* made = nullptr;
    Check(sd_bus_message_new_method_call(bus, &made, nullptr, "/org/bus1/DBus/Broker", "org.bus1.DBus.Broker",
                                         "AddListener"),
          "AddListener");
    const MessagePtr call(made);
    Check(sd_bus_message_append(made, "oh", kListener, listening), "AddListener");
    AppendEverything(made);
    Check(sd_bus_call(bus, made, 0, nullptr, nullptr), "the broker refuses the listening socket");
}

}  // namespace

int RunBroker(const std::string& program, const std::string& socketPath) {
    int pair[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) throw std::runtime_error("socketpair");
    const pid_t child = Start(program, pair[1]);
    close(pair[1]);
    sd_bus* made = nullptr;
    Check(sd_bus_new(&made), "sd_bus_new");
    const BusPtr bus(made);
    Check(sd_bus_set_fd(made, pair[0], pair[0]), "sd_bus_set_fd");
    Check(sd_bus_start(made), "sd_bus_start");
    AddListener(made, Listening(socketPath));
    std::puts("ready");
    std::fflush(stdout);
    int status = 0;
    waitpid(child, &status, 0);
    return 1;
}

}  // namespace bench
