#include "bus/Services.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <vector>

#include "bus/Sd.h"

namespace bench {

namespace {

constexpr int kTemperature = 21;
constexpr int kInputs = 6;
constexpr const char* kBank = "BNK2";

int AnswerInteger(sd_bus_message* call, void*, sd_bus_error*) {
    return sd_bus_reply_method_return(call, "i", kTemperature);
}

int AnswerCount(sd_bus_message* call, void*, sd_bus_error*) {
    return sd_bus_reply_method_return(call, "i", kInputs);
}

int AnswerBanks(sd_bus_message* call, void*, sd_bus_error*) {
    return sd_bus_reply_method_return(call, "as", 1, kBank);
}

int AnswerState(sd_bus_message* call, void*, sd_bus_error*) {
    return sd_bus_reply_method_return(call, "b", 0);
}

int AnswerNothing(sd_bus_message* call, void*, sd_bus_error*) {
    return sd_bus_reply_method_return(call, "");
}

int AnswerName(sd_bus_message* call, void*, sd_bus_error*) {
    return sd_bus_reply_method_return(call, "s", ":1.1");
}

/// The library's macros for such a table are not valid C++17.
sd_bus_vtable Row(char type) {
    sd_bus_vtable row{};
    row.type = static_cast<__typeof__(row.type)>(type);
    if (type == _SD_BUS_VTABLE_START) {
        row.x.start.element_size = sizeof(sd_bus_vtable);
        row.x.start.features = _SD_BUS_VTABLE_PARAM_NAMES;
        row.x.start.vtable_format_reference = &sd_bus_object_vtable_format;
    }
    return row;
}

sd_bus_vtable Method(const char* name, const char* arguments, const char* result, sd_bus_message_handler_t handler) {
    sd_bus_vtable row = Row(_SD_BUS_VTABLE_METHOD);
    row.flags = SD_BUS_VTABLE_UNPRIVILEGED;
    row.x.method.member = name;
    row.x.method.signature = arguments;
    row.x.method.result = result;
    row.x.method.handler = handler;
    row.x.method.names = "";
    return row;
}

struct Service {
    const char* name;
    const char* path;
    std::vector<sd_bus_vtable> table;
};

const std::vector<Service>& Services() {
    static const std::vector<Service> services = {
        {"org.tavos.Temperature2",
         "/org/tavos/Temperature2",
         {Row(_SD_BUS_VTABLE_START), Method("GetTemperatureDegreesCelsius", "i", "i", AnswerInteger),
          Row(_SD_BUS_VTABLE_END)}},
        {"org.tavos.Alarm3",
         "/org/tavos/Alarm3",
         {Row(_SD_BUS_VTABLE_START), Method("GetBankNames", "", "as", AnswerBanks),
          Method("GetBankAlarmCount", "s", "i", AnswerCount), Method("GetAlarmCount", "", "i", AnswerCount),
          Method("GetAlarmState", "si", "b", AnswerState), Row(_SD_BUS_VTABLE_END)}},
        {"org.tavos.Pan1",
         "/org/tavos/Pan1",
         {Row(_SD_BUS_VTABLE_START), Method("SetPositionAtSpeed", "idi", "", AnswerNothing), Row(_SD_BUS_VTABLE_END)}},
    };
    return services;
}

const sd_bus_vtable* TheBusItself() {
    static const std::vector<sd_bus_vtable> table = {
        Row(_SD_BUS_VTABLE_START), Method("Hello", "", "s", AnswerName), Method("AddMatch", "s", "", AnswerNothing),
        Method("RemoveMatch", "s", "", AnswerNothing), Row(_SD_BUS_VTABLE_END)};
    return table.data();
}

void AddServices(sd_bus* bus) {
    for (const Service& service : Services()) {
        Check(sd_bus_add_object_vtable(bus, nullptr, service.path, service.name, service.table.data(), nullptr),
              "sd_bus_add_object_vtable");
    }
}

void Ready() {
    std::puts("ready");
    std::fflush(stdout);
}

int ListeningSocket(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) throw std::runtime_error("the socket's path is too long");
    path.copy(address.sun_path, path.size());
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0 || bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(descriptor, 10) != 0) {
        throw std::runtime_error(path + ": " + std::strerror(errno));
    }
    return descriptor;
}

}  // namespace

BusPtr Peer(int descriptor) {
    sd_bus* made = nullptr;
    Check(sd_bus_new(&made), "sd_bus_new");
    BusPtr bus(made);
    Check(sd_bus_set_fd(made, descriptor, descriptor), "sd_bus_set_fd");
    sd_id128_t id{};
    Check(sd_id128_randomize(&id), "sd_id128_randomize");
    Check(sd_bus_set_server(made, 1, id), "sd_bus_set_server");
    Check(sd_bus_start(made), "sd_bus_start");
    Check(sd_bus_add_object_vtable(made, nullptr, "/org/freedesktop/DBus", "org.freedesktop.DBus", TheBusItself(),
                                   nullptr),
          "sd_bus_add_object_vtable");
    AddServices(made);
    return bus;
}

void ServeOnBus(const std::string& address) {
    const BusPtr bus = Connected(address);
    AddServices(bus.get());
    for (const Service& service : Services()) Check(sd_bus_request_name(bus.get(), service.name, 0), service.name);
    Ready();
    while (true) {
        const int progress = Check(sd_bus_process(bus.get(), nullptr), "sd_bus_process");
        if (progress == 0) Check(sd_bus_wait(bus.get(), UINT64_MAX), "sd_bus_wait");
    }
}

void ServePeers(const std::string& socketPath) {
    const int listening = ListeningSocket(socketPath);
    std::vector<BusPtr> peers;
    Ready();
    while (true) {
        std::vector<pollfd> watched = {{listening, POLLIN, 0}};
        for (const BusPtr& peer : peers) {
            const int events = sd_bus_get_events(peer.get());
            watched.push_back({sd_bus_get_fd(peer.get()), static_cast<short>(events < 0 ? POLLIN : events), 0});
        }
        poll(watched.data(), watched.size(), -1);
        for (std::size_t i = watched.size() - 1; i > 0; --i) {
            int progress = 1;
            while (progress > 0) progress = sd_bus_process(peers[i - 1].get(), nullptr);
            if (progress < 0) peers.erase(peers.begin() + static_cast<std::ptrdiff_t>(i) - 1);
        }
        if (watched[0].revents != 0) {
            const int descriptor = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
            if (descriptor >= 0) peers.push_back(Peer(descriptor));
        }
    }
}

}  // namespace bench
