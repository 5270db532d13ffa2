#include "tavos/msgbus/ServedLanes.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <utility>

#include "tavos/osa/Exception.h"

namespace tavos::msgbus {

namespace {

std::uint32_t NumberAt(const unsigned char* octets, bool isLittleEndian) {
    std::uint32_t number = 0;
    for (int i = 0; i < 4; ++i) number = number << 8 | octets[isLittleEndian ? 3 - i : i];
    return number;
}

/// The size of a message, from its first 16 octets.
std::uint64_t SizeOf(const unsigned char* header, bool isLittleEndian) {
    const std::uint64_t fields = NumberAt(header + 12, isLittleEndian);
    return 16 + (fields + 7) / 8 * 8 + NumberAt(header + 4, isLittleEndian);
}

enum class Arrived { kNothing, kCall, kSomethingElse };

/// Looks at what the library would read next. The library allocates what a message's header announces, up to 128 MB,
/// and keeps it while the rest does not come.
Arrived Peek(int descriptor) {
    constexpr ssize_t kHeader = 16;
    constexpr unsigned char kMethodCall = 1;
    constexpr unsigned char kNoReplyExpected = 1;
    unsigned char octets[kMaxLaneCall];
    const ssize_t count = recv(descriptor, octets, sizeof octets, MSG_PEEK | MSG_DONTWAIT);
    if (count < 0 && errno == EAGAIN) return Arrived::kNothing;
    if (count < kHeader) return Arrived::kSomethingElse;  // also the end of the lane
    const bool isLittleEndian = octets[0] == 'l';
    const bool isCall = (isLittleEndian || octets[0] == 'B') && octets[1] == kMethodCall &&
                        (octets[2] & kNoReplyExpected) == 0 &&
                        SizeOf(octets, isLittleEndian) <= static_cast<std::uint64_t>(count);
    return isCall ? Arrived::kCall : Arrived::kSomethingElse;
}

bool HasUnreadAnswers(sd_bus* lane) {
    std::uint64_t queued = 0;
    return sd_bus_get_n_queued_write(lane, &queued) >= 0 && queued > 0;
}

}  // namespace

struct ServedLanes::Lane {
    Lane(ServiceAddress itsService, std::string itsClient, Descriptor end)
        : service(std::move(itsService)), client(std::move(itsClient)), bus(ConnectionOn(std::move(end))) {
        sd_bus_slot* slot = nullptr;
        CheckBus(sd_bus_add_filter(bus.get(), &slot, OnMessage, this));
        filter.reset(slot);
    }

    /// Stops messages for other objects and interfaces, also those that the library would answer itself.
    static int OnMessage(sd_bus_message* message, void* userdata, sd_bus_error*) {
        auto& lane = *static_cast<Lane*>(userdata);
        const char* const path = sd_bus_message_get_path(message);
        const char* const interface = sd_bus_message_get_interface(message);
        lane.isMisused =
            path == nullptr || interface == nullptr || lane.service.path != path || lane.service.interface != interface;
        return lane.isMisused ? 1 : 0;
    }

    /// False if the lane must be closed.
    bool Serve(short found) {
        if (found != POLLOUT) {
            if (HasUnreadAnswers(bus.get())) return false;
            const Arrived arrived = Peek(sd_bus_get_fd(bus.get()));
            if (arrived == Arrived::kNothing) return true;
            if (arrived == Arrived::kSomethingElse) return false;
        }
        return sd_bus_process(bus.get(), nullptr) >= 0 && !isMisused && sd_bus_is_open(bus.get()) > 0;
    }

    void Close() {
        isClosed = true;
        sd_bus_close(bus.get());
    }

    const ServiceAddress service;
    const std::string client;
    const BusPtr bus;
    SlotPtr filter;                  // released before the bus
    std::shared_ptr<void> attached;  // so is this
    bool isMisused = false;
    bool isClosed = false;
    std::size_t watched = 0;  // its number in the last wait
    short events = 0;         // what that wait found
};

ServedLanes::ServedLanes() = default;

ServedLanes::~ServedLanes() = default;

Descriptor ServedLanes::Open(const ServiceAddress& service, const std::string& client, const Attach& attach) {
    CloseIf([&](const Lane& lane) { return lane.client == client && lane.service.service == service.service; });
    const auto isOfService = [&](const auto& lane) {
        return !lane->isClosed && lane->service.service == service.service;
    };
    if (std::count_if(_lanes.begin(), _lanes.end(), isOfService) >= static_cast<std::ptrdiff_t>(kMaxForService)) {
        throw osa::Exception("%s has too many lanes", service.service.c_str());
    }
    auto [here, there] = NewSocketPair();
    auto lane = std::make_unique<Lane>(service, client, std::move(here));
    lane->attached = attach(lane->bus.get());
    _lanes.push_back(std::move(lane));
    return std::move(there);
}

void ServedLanes::Close(const std::string& service) {
    CloseIf([&](const Lane& lane) { return lane.service.service == service; });
}

void ServedLanes::CloseAll() {
    CloseIf([](const Lane&) { return true; });
}

void ServedLanes::CloseIf(const std::function<bool(const Lane&)>& condition) {
    for (auto& lane : _lanes) {
        if (!lane->isClosed && condition(*lane)) lane->Close();
    }
}

std::size_t ServedLanes::Count() const {
    return static_cast<std::size_t>(
        std::count_if(_lanes.begin(), _lanes.end(), [](const auto& lane) { return !lane->isClosed; }));
}

/// Not while a call on a lane is served.
void ServedLanes::Sweep() {
    const auto isClosed = [](const auto& lane) { return lane->isClosed; };
    _lanes.erase(std::remove_if(_lanes.begin(), _lanes.end(), isClosed), _lanes.end());
}

void ServedLanes::AddTo(BusWait& wait) {
    Sweep();
    for (auto& lane : _lanes) {
        const int events = HasUnreadAnswers(lane->bus.get()) ? POLLIN | POLLOUT : POLLIN;
        lane->watched = wait.Add(sd_bus_get_fd(lane->bus.get()), static_cast<short>(events));
    }
}

void ServedLanes::Note(const BusWait& wait) {
    for (auto& lane : _lanes) lane->events = wait.EventsOf(lane->watched);
}

bool ServedLanes::Serve() {
    bool served = false;
    // By number: a call may close lanes, but not remove them.
    for (std::size_t i = 0; i < _lanes.size(); ++i) {
        Lane& lane = *_lanes[i];
        const short events = std::exchange(lane.events, short{0});
        if (lane.isClosed || events == 0) continue;
        served = true;
        if (!lane.Serve(events) && !lane.isClosed) lane.Close();
    }
    return served;
}

}  // namespace tavos::msgbus
