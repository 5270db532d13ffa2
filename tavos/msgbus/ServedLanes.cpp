#include "tavos/msgbus/ServedLanes.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>

#include "tavos/osa/Exception.h"

namespace tavos::msgbus {

namespace {

std::uint32_t NumberAt(const unsigned char* octets, bool isLittleEndian) {
    std::uint32_t number = 0;
    for (int i = 0; i < 4; ++i) number = number << 8 | octets[isLittleEndian ? 3 - i : i];
    return number;
}

/// The octets that a client has sent. The bus library gets one whole call at a time, because it trusts whoever sends:
/// it allocates what a message's header announces, up to 128 MB, and reads as long as invalid messages arrive.
class CallBuffer {
public:
    /// False at the lane's end.
    bool Fill(int lane) {
        if (_size == sizeof _octets) return true;  // Look decides
        const ssize_t count = recv(lane, _octets + _size, sizeof _octets - _size, MSG_DONTWAIT);
        if (count < 0) return errno == EAGAIN || errno == EINTR;
        _size += static_cast<std::size_t>(count);
        return count > 0;
    }

    enum class Content { kIncomplete, kCall, kSomethingElse };

    Content Look() const {
        if (_size < kHeader) return Content::kIncomplete;
        constexpr unsigned char kMethodCall = 1;
        constexpr unsigned char kNoReplyExpected = 1;
        const bool isCall = (_octets[0] == 'l' || _octets[0] == 'B') && _octets[1] == kMethodCall &&
                            (_octets[2] & kNoReplyExpected) == 0 && CallSize() <= kMaxLaneCall;
        if (!isCall) return Content::kSomethingElse;
        return CallSize() <= _size ? Content::kCall : Content::kIncomplete;
    }

    /// Moves the first call into a pipe that is empty.
    bool MoveTo(int pipe) {
        const auto size = static_cast<std::size_t>(CallSize());
        if (write(pipe, _octets, size) != static_cast<ssize_t>(size)) return false;
        _size -= size;
        std::memmove(_octets, _octets + size, _size);
        return true;
    }

private:
    static constexpr std::size_t kHeader = 16;

    std::uint64_t CallSize() const {
        const bool isLittleEndian = _octets[0] == 'l';
        const std::uint64_t fields = NumberAt(_octets + 12, isLittleEndian);
        return kHeader + (fields + 7) / 8 * 8 + NumberAt(_octets + 4, isLittleEndian);
    }

    unsigned char _octets[kMaxLaneCall];
    std::size_t _size = 0;
};

bool HasUnreadAnswers(sd_bus* lane) {
    std::uint64_t queued = 0;
    return sd_bus_get_n_queued_write(lane, &queued) >= 0 && queued > 0;
}

}  // namespace

struct ServedLanes::Lane {
    Lane(ServiceAddress itsService, std::string itsClient, Descriptor itsEnd)
        : service(std::move(itsService)), client(std::move(itsClient)), end(std::move(itsEnd)) {
        auto [out, in] = NewPipe();  // faster than sockets
        input = std::move(in);
        bus = ConnectionOn(out, end);
        sd_bus_slot* slot = nullptr;
        CheckBus(sd_bus_add_filter(bus.get(), &slot, OnMessage, this));
        filter.reset(slot);
    }

    /// Stops messages for other objects and interfaces, also those that the library would answer itself.
    static int OnMessage(sd_bus_message* message, void* userdata, sd_bus_error*) {
        auto& lane = *static_cast<Lane*>(userdata);
        const char* const path = sd_bus_message_get_path(message);
        const char* const interface = sd_bus_message_get_interface(message);
        lane.isUsed =
            path != nullptr && interface != nullptr && lane.service.path == path && lane.service.interface == interface;
        return lane.isUsed ? 0 : 1;
    }

    /// Serves at most one call. False if the lane must be closed.
    bool Serve(int found) {
        // The client waits for no answer: it has given these calls up, and may have repeated them over the bus.
        if ((found & (POLLHUP | POLLERR)) != 0) return false;
        if ((found & POLLOUT) != 0 && sd_bus_process(bus.get(), nullptr) < 0) return false;
        if ((found & ~POLLOUT) != 0 && !received.Fill(end.Get())) return false;
        const auto content = received.Look();
        if (content != CallBuffer::Content::kCall) return content == CallBuffer::Content::kIncomplete;
        // While the connection is open, so is its end of the pipe. To write without a reader would end the process
        // (SIGPIPE).
        if (HasUnreadAnswers(bus.get()) || sd_bus_is_open(bus.get()) <= 0 || !received.MoveTo(input.Get()))
            return false;
        isUsed = false;  // stays so if the library drops the message because it is invalid
        return sd_bus_process(bus.get(), nullptr) >= 0 && isUsed && sd_bus_is_open(bus.get()) > 0;
    }

    bool HasCall() const { return received.Look() != CallBuffer::Content::kIncomplete; }

    /// Receives the next call, if it is there, for Serve. Leaves an ended lane to BusWait, which finds its end. A
    /// signal is no end: poll then fails.
    bool ReceiveNext() {
        if (isClosed || HasUnreadAnswers(bus.get())) return false;
        pollfd ended{end.Get(), 0, 0};
        hasCall = received.Fill(end.Get()) && HasCall() && poll(&ended, 1, 0) <= 0;
        return hasCall;
    }

    void Close() {
        isClosed = true;
        sd_bus_close(bus.get());
        end = Descriptor();
        input = Descriptor();
    }

    const ServiceAddress service;
    const std::string client;
    Descriptor end;
    CallBuffer received;
    Descriptor input;                // the connection reads what is written here
    BusPtr bus;                      // writes to the lane
    SlotPtr filter;                  // released before the bus
    std::shared_ptr<void> attached;  // so is this
    bool isUsed = false;             // the last message was a call of the service
    bool isClosed = false;
    std::size_t watched = 0;  // its number in the last wait
    short events = 0;         // what that wait found
    bool hasCall = false;     // one more has arrived before that wait
};

ServedLanes::ServedLanes() = default;

ServedLanes::~ServedLanes() = default;

Descriptor ServedLanes::Open(const ServiceAddress& service, const std::string& client, const Attach& attach) {
    Sweep();  // no call on a lane opens one
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
    if (_last != nullptr && _last->isClosed) _last = nullptr;
    _lanes.erase(std::remove_if(_lanes.begin(), _lanes.end(), isClosed), _lanes.end());
}

void ServedLanes::AddTo(BusWait& wait) {
    Sweep();
    for (auto& lane : _lanes) {
        const int events = HasUnreadAnswers(lane->bus.get()) ? POLLIN | POLLOUT : POLLIN;
        lane->watched = wait.Add(lane->end.Get(), static_cast<short>(events));
        lane->hasCall = lane->HasCall();
        if (lane->hasCall) wait.Shorten();
    }
}

void ServedLanes::Note(const BusWait& wait) {
    for (auto& lane : _lanes) lane->events = wait.EventsOf(lane->watched);
}

bool ServedLanes::ReceiveNext() {
    return _last != nullptr && _last->ReceiveNext();
}

bool ServedLanes::Serve() {
    bool served = false;
    // By number: a call may close lanes, but not remove them.
    for (std::size_t i = 0; i < _lanes.size(); ++i) {
        Lane& lane = *_lanes[i];
        const short events = std::exchange(lane.events, short{0});
        if (lane.isClosed || (events == 0 && !std::exchange(lane.hasCall, false))) continue;
        served = true;
        _last = &lane;
        if (!lane.Serve(events) && !lane.isClosed) lane.Close();
    }
    return served;
}

}  // namespace tavos::msgbus
