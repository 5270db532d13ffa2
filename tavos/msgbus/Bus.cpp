#include "tavos/msgbus/Bus.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>

#include "tavos/core/Logger.h"
#include "tavos/osa/Exception.h"

namespace tavos::msgbus {

namespace {

std::string SystemBus() {
    const char* const address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    return address && *address ? address : "unix:path=/run/dbus/system_bus_socket";
}

}  // namespace

void CheckBus(int result) {
    if (result < 0) throw osa::Exception("%s", std::strerror(-result));
}

void ServeNobody(sd_bus* bus) {
    const auto drop = [](sd_bus_message* message, void*, sd_bus_error*) {
        std::uint8_t type = 0;
        return sd_bus_message_get_type(message, &type) >= 0 && type == SD_BUS_MESSAGE_METHOD_CALL ? 1 : 0;
    };
    CheckBus(sd_bus_add_filter(bus, nullptr, drop, nullptr));
}

SignalsBlocked::SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &_before);
}

SignalsBlocked::~SignalsBlocked() {
    pthread_sigmask(SIG_SETMASK, &_before, nullptr);
}

std::uint64_t MicrosecondsUntil(Clock::time_point until) {
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(until - Clock::now()).count();
    return left < 1 ? 1 : static_cast<std::uint64_t>(left);
}

int MillisecondsUntil(Clock::time_point until) {
    constexpr long long kMaxMilliseconds = 3'600'000;
    const long long left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    return static_cast<int>(std::clamp(left, 0LL, kMaxMilliseconds));
}

bool IsAnswer(const char* error) {
    if (error == nullptr) return false;
    // No service sends these errors. They mean: the deadline passed, the service ended during the call, or too many
    // calls wait.
    const std::string name = error;
    return name != SD_BUS_ERROR_NO_REPLY && name != SD_BUS_ERROR_TIMEOUT && name != SD_BUS_ERROR_LIMITS_EXCEEDED;
}

BusPtr OpenBus(const std::string& address, Clock::time_point until, ConnectionSocket* socket, std::timed_mutex* held) {
    sd_bus* made = nullptr;
    CheckBus(sd_bus_new(&made));
    BusPtr bus(made);
    CheckBus(sd_bus_set_address(made, (address.empty() ? SystemBus() : address).c_str()));
    CheckBus(sd_bus_set_bus_client(made, 1));
    CheckBus(sd_bus_start(made));
    if (socket) socket->Remember(made);
    // The library's own wait for the bus's first answer takes up to 90 s.
    for (;;) {
        const int ready = sd_bus_is_ready(made);
        CheckBus(ready);
        if (ready > 0) return bus;
        if (Clock::now() >= until) throw osa::Exception("no answer in time");
        const int progress = sd_bus_process(made, nullptr);
        CheckBus(progress);
        if (progress > 0) continue;
        std::optional<Released> rest;
        if (held) rest.emplace(*held);
        const int waited = sd_bus_wait(made, MicrosecondsUntil(until));
        if (waited != -EINTR) CheckBus(waited);
    }
}

void ConnectionSocket::Remember(sd_bus* bus) {
    struct stat status {};
    const int descriptor = sd_bus_get_fd(bus);
    if (descriptor < 0 || fstat(descriptor, &status) != 0) return;
    _inode = status.st_ino;
    _descriptor = descriptor;
}

void ConnectionSocket::CloseInChild() {
    struct stat status {};
    const int descriptor = _descriptor.exchange(-1);
    if (descriptor >= 0 && fstat(descriptor, &status) == 0 && S_ISSOCK(status.st_mode) && status.st_ino == _inode) {
        close(descriptor);
    }
}

BusWait::BusWait(sd_bus* bus, int wake, Clock::time_point until)
    : _watched{{wake, POLLIN, 0}, {-1, 0, 0}}, _until(until) {
    if (bus == nullptr) return;
    const int events = sd_bus_get_events(bus);
    CheckBus(events);
    std::uint64_t due = 0;  // microseconds of steady_clock's clock
    CheckBus(sd_bus_get_timeout(bus, &due));
    constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();
    if (due != kNever) _until = std::min(_until, Clock::time_point(std::chrono::microseconds(due)));
    _watched[1] = {sd_bus_get_fd(bus), static_cast<short>(events), 0};
}

void Reachability::Lost(const char* reason) {
    if (_lost.exchange(true)) return;
    core::Logger::GetLogger("tavos")->Error("the message bus%s%s cannot be reached: %s", _address.empty() ? "" : " at ",
                                            _address.c_str(), reason);
}

void Reachability::Found() {
    if (!_lost.exchange(false)) return;
    core::Logger::GetLogger("tavos")->Information("the message bus%s%s is reachable again",
                                                  _address.empty() ? "" : " at ", _address.c_str());
}

}  // namespace tavos::msgbus
