#include "tavos/msgbus/CallLanes.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iterator>
#include <limits>

#include "tavos/osa/Exception.h"

namespace tavos::msgbus {

using namespace std::chrono_literals;

namespace {

// A request's answer is read with a later call, so a late arrival is normal. A request has failed if a call is answered
// that long after it and its answer is still not there.
constexpr auto kRequestTimeout = 1s;
constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();
constexpr auto kRetryDelay = 60s;  // without a lane calls are slower, and nothing else

/// True for the errors that mean that this owner of the name will never give a lane.
bool IsFinal(const sd_bus_error* error) {
    constexpr const char* kFinal[] = {SD_BUS_ERROR_UNKNOWN_METHOD, SD_BUS_ERROR_UNKNOWN_INTERFACE,
                                      SD_BUS_ERROR_UNKNOWN_OBJECT, SD_BUS_ERROR_ACCESS_DENIED,
                                      SD_BUS_ERROR_NOT_SUPPORTED};
    return std::any_of(std::begin(kFinal), std::end(kFinal),
                       [&](const char* name) { return sd_bus_error_has_name(error, name) > 0; });
}

int SocketOption(const Descriptor& socket, int option) {
    int value = -1;
    socklen_t size = sizeof value;
    return getsockopt(socket.Get(), SOL_SOCKET, option, &value, &size) == 0 ? value : -1;
}

/// Anything else could block the agent's thread: the bus library reads and writes what is no socket without a flag that
/// prevents it.
bool IsLanesSocket(const Descriptor& end) {
    return SocketOption(end, SO_DOMAIN) == AF_UNIX && SocketOption(end, SO_TYPE) == SOCK_STREAM &&
           SocketOption(end, SO_ACCEPTCONN) == 0;
}

/// True if the service has sent nothing and has not closed the lane.
bool IsQuiet(sd_bus* lane) {
    char octet;
    return recv(sd_bus_get_fd(lane), &octet, 1, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN;
}

}  // namespace

bool CallLanes::Has(const std::string& service) const {
    const auto found = _records.find(service);
    return found != _records.end() && found->second.lane.connection;
}

int CallLanes::Lane::WaitUntil(Clock::time_point until) {
    int result = 1;
    wait.Wait(
        until, [&] { return !IsQuiet(connection.get()); },
        [&] { result = sd_bus_wait(connection.get(), MicrosecondsUntil(until)); });
    return result;
}

CallLanes::Lane* CallLanes::Find(const std::string& service) {
    const auto found = _records.find(service);
    if (found == _records.end() || !found->second.lane.connection) return nullptr;
    Record& record = found->second;
    if (IsQuiet(record.lane.connection.get()) && sd_bus_is_open(record.lane.connection.get()) > 0) return &record.lane;
    CloseLane(record);
    return nullptr;
}

void CallLanes::Answered(sd_bus* bus, const ServiceAddress& service, const char* owner) noexcept {
    if (!service.hasLanes || owner == nullptr) return;
    try {
        if (_requested && Clock::now() > _requestedUntil) GiveUpRequest();
        Record& record = _records[service.service];
        if (record.owner != owner) {
            if (record.request) _requested = false;
            CloseLane(record);
            record = Record();
            record.lanes = this;
            record.owner = owner;
        }
        if (record.lane.connection || _requested || ++record.answers < kAnswersBeforeLane) return;
        if (Clock::now() >= record.nextRequest) Request(bus, service, record);
    } catch (const std::exception&) {
        // Calls take the bus.
    }
}

void CallLanes::Served(const std::string& service) {
    const auto found = _records.find(service);
    if (found != _records.end()) found->second.requests = 0;
}

/// Not `owner` is asked but the name: the bus's policy allows calls to names.
void CallLanes::Request(sd_bus* bus, const ServiceAddress& service, Record& record) {
    // The bus keeps each unanswered request, and refuses all calls of a connection that has too many.
    if (++record.requests > kMaxRequests) {
        record.nextRequest = Clock::time_point::max();
        return;
    }
    record.nextRequest = Clock::now() + kRetryDelay;
    Reserve();
    if (_reserved < 0) return;
    sd_bus_message* made = nullptr;
    sd_bus_slot* slot = nullptr;
    int result = sd_bus_message_new_method_call(bus, &made, service.service.c_str(), service.path.c_str(),
                                                service.interface.c_str(), kOpenLane);
    const MessagePtr call(made);
    if (result >= 0) result = sd_bus_message_set_auto_start(made, 0);
    if (result >= 0) result = sd_bus_message_seal(made, _serials.Next(), kNever);
    if (result >= 0) result = sd_bus_call_async(bus, &slot, made, OnAnswer, &record, kNever);
    record.request.reset(slot);
    _requested = result >= 0;
    _requestedUntil = Clock::now() + kRequestTimeout;
    if (!_requested) Release();
}

void CallLanes::GiveUpRequest() {
    for (auto& [service, record] : _records) record.request.reset();
    _requested = false;
    Release();
}

int CallLanes::OnAnswer(sd_bus_message* answer, void* userdata, sd_bus_error*) {
    auto& record = *static_cast<Record*>(userdata);
    record.lanes->_requested = false;
    record.request.reset();
    const sd_bus_error* const error = sd_bus_message_get_error(answer);
    if (error != nullptr) {
        if (IsFinal(error)) record.nextRequest = Clock::time_point::max();
        return 0;
    }
    try {
        record.lanes->Open(record, answer);
    } catch (const std::exception&) {
        // Calls take the bus.
    }
    return 0;
}

void CallLanes::Open(Record& record, sd_bus_message* answer) {
    const auto isFree = [](const Socket& socket) { return !socket.isUsed; };
    const auto socket = std::find_if(_sockets.begin(), _sockets.end(), isFree);
    int received = -1;
    if (socket == _sockets.end() || sd_bus_message_read_basic(answer, SD_BUS_TYPE_UNIX_FD, &received) <= 0) return;
    const char* const owner = sd_bus_message_get_sender(answer);
    const char* const sender = sd_bus_message_get_destination(answer);
    if (sender == nullptr) return;
    const Descriptor end(fcntl(received, F_DUPFD_CLOEXEC, 0));  // the answer owns the received one
    if (!end) return;
    if (!IsLanesSocket(end) || fcntl(end.Get(), F_SETFL, O_NONBLOCK) != 0) {
        record.nextRequest = Clock::time_point::max();
        return;
    }
    BusPtr lane = ConnectionOn(end);
    ServeNobody(lane.get());
    if (owner != nullptr) record.owner = owner;
    record.lane = {std::move(lane), sender, SpinWait(_spins ? &_pause : nullptr)};
    record.socket = &*socket;
    record.socket->isUsed = true;
    record.socket->socket.Remember(record.lane.connection.get());
}

/// A message with a descriptor for which no number is free breaks the connection to the bus. So while a lane may
/// arrive, one number is kept.
int CallLanes::Process(sd_bus* bus) {
    if (!_requested) return sd_bus_process(bus, nullptr);
    Release();
    const int progress = sd_bus_process(bus, nullptr);
    if (_requested) Reserve();
    return progress;
}

void CallLanes::Reserve() {
    if (_reserved < 0) _reserved = eventfd(0, EFD_CLOEXEC);
}

void CallLanes::Release() {
    const int reserved = _reserved.exchange(-1);
    if (reserved >= 0) close(reserved);
}

void CallLanes::Close(const std::string& service) {
    const auto found = _records.find(service);
    if (found == _records.end()) return;
    CloseLane(found->second);
    found->second.nextRequest = Clock::now() + kRetryDelay;
}

void CallLanes::CloseLane(Record& record) {
    if (!record.lane.connection) return;
    record.socket->socket.Forget();
    record.socket->isUsed = false;
    record.socket = nullptr;
    record.lane = {};
    record.answers = 0;
    record.nextRequest = {};
}

void CallLanes::EndRequests() {
    for (auto record = _records.begin(); record != _records.end();) {
        // What is known of an owner ends with the connection, too: another bus uses the same unique names again.
        record->second.request.reset();
        record = record->second.lane.connection ? std::next(record) : _records.erase(record);
    }
    _requested = false;
    Release();
}

void CallLanes::CloseInChild() {
    for (auto& socket : _sockets) socket.socket.CloseInChild();
    Release();
}

}  // namespace tavos::msgbus
