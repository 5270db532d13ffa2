#include "tavos/msgbus/CallChannel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <optional>

#include "tavos/osa/Exception.h"

namespace tavos::msgbus {

namespace {

constexpr auto kLookInterval = std::chrono::milliseconds(200);
constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();

}  // namespace

CallChannel::CallChannel(std::string address, std::chrono::milliseconds deadline, bool useLanes,
                         std::shared_ptr<Reachability> reachability, std::shared_ptr<SilentServices> silent)
    : _address(std::move(address)),
      _deadline(deadline),
      _useLanes(useLanes),
      _spins(SpinWait::IsWanted()),
      _reachability(std::move(reachability)),
      _silent(std::move(silent)),
      _mutex(std::make_unique<std::timed_mutex>()),
      _lanes(std::make_unique<CallLanes>(_serials, _spins)),
      _forkWatch({[] {}, [] {}, [this] { Abandon(); }}) {}

/// In a forked child: the connection belongs to the parent, and a thread of the parent may hold the lock.
void CallChannel::Abandon() {
    _socket.CloseInChild();
    static_cast<void>(_bus.release());
    _lanes->CloseInChild();
    static_cast<void>(_lanes.release());
    _lanes = std::make_unique<CallLanes>(_serials, _spins);
    static_cast<void>(_mutex.release());
    _mutex = std::make_unique<std::timed_mutex>();
}

void CallChannel::Call(const ServiceAddress& to, const char* operation, const std::function<void(Writer&)>& arguments,
                       const std::string& resultSignature, const std::function<void(Reader&)>& result) {
    CallObservation observation;
    const auto start = Clock::now();
    try {
        CallInTime(to, operation, arguments, resultSignature, result, observation);
        const auto time = Clock::now() - start;
        Spend(to, time);
        observation.End(to, operation, arguments, "", time);
    } catch (const osa::Exception& e) {
        const auto time = Clock::now() - start;
        Spend(to, time);
        observation.End(to, operation, arguments, e.what(), time);
        throw osa::Exception("%s %s: %s", to.service.c_str(), operation, e.what());
    }
}

void CallChannel::CallInTime(const ServiceAddress& to, const char* operation,
                             const std::function<void(Writer&)>& arguments, const std::string& resultSignature,
                             const std::function<void(Reader&)>& result, CallObservation& observation) {
    RefuseSilent(to);
    const auto left = _work.Left();
    if (left <= Clock::duration::zero()) throw osa::Exception("the request has waited too long for services already");
    const auto time = std::min<Clock::duration>(_deadline, left);
    const auto until = Clock::now() + time;
    std::unique_lock<std::timed_mutex> lock(*_mutex, until);
    if (!lock.owns_lock()) throw osa::Exception("another call is still under way");
    RefuseSilent(to);  // the previous call may have found it silent
    if (!_lanes->Has(to.service)) RefuseSilentBus();
    _time = std::chrono::ceil<std::chrono::milliseconds>(time);
    _hadEnoughTime = until - Clock::now() > _deadline / 2;
    observation.Tried();
    CallUntil(until, to, operation, arguments, resultSignature, result, observation);
}

void CallChannel::Spend(const ServiceAddress& on, Clock::duration time) {
    const auto* const slowest = _work.Spend(on, time, IsSlow(time));
    if (slowest != nullptr && !_silent->IsSilent(slowest->service)) _silent->TimeUsedUp(*slowest);
}

/// A slow service delays every request that reads more than a few of its values.
bool CallChannel::IsSlow(Clock::duration time) const {
    return time > _deadline / 10;
}

void CallChannel::RefuseSilentBus() const {
    if (_silent->IsSilent(SilentServices::TheBus().service)) throw osa::Exception("the message bus is silent");
}

void CallChannel::RefuseSilent(const ServiceAddress& to) const {
    if (!_silent->IsSilent(to.service)) return;
    RefuseSilentBus();
    throw osa::Exception("the service is silent");
}

void CallChannel::Missed(const ServiceAddress& whose) {
    if (_hadEnoughTime) _silent->Missed(whose);
}

void CallChannel::CallUntil(Clock::time_point until, const ServiceAddress& to, const char* operation,
                            const std::function<void(Writer&)>& arguments, const std::string& resultSignature,
                            const std::function<void(Reader&)>& result, CallObservation& observation) {
    Way way{};
    MessagePtr call;
    std::optional<SignalsBlocked> guard;  // on a lane only WaitUntil waits, and Await goes on after a signal
    if (auto* const lane = LaneTo(to, until)) {
        way = {lane->connection.get(), lane->sender, lane};
        call = NewCall(way, to, operation, arguments);
    }
    if (!call) {
        guard.emplace();
        RefuseSilentBus();
        EnsureOpen(until);
        const char* sender = nullptr;
        sd_bus_get_unique_name(_bus.get(), &sender);
        way = {_bus.get(), sender ? sender : "", nullptr};
        call = NewCall(way, to, operation, arguments);
    }
    const MessagePtr answer = Exchange(way, to, call.get(), until, observation);
    if (sd_bus_message_has_signature(answer.get(), resultSignature.c_str()) <= 0) {
        const char* const signature = sd_bus_message_get_signature(answer.get(), 1);
        throw osa::Exception("the answer has the wrong form (\"%s\" instead of \"%s\")", signature ? signature : "",
                             resultSignature.c_str());
    }
    Reader reader(answer.get());
    result(reader);
}

/// The service's lane, or null.
CallLanes::Lane* CallChannel::LaneTo(const ServiceAddress& to, Clock::time_point until) {
    if (!_lanes->Has(to.service)) return nullptr;
    // While all calls take lanes, somebody must still empty the connection and notice its end.
    if (_bus && Clock::now() >= _nextLook) DropIfClosed(until);
    return _lanes->Find(to.service);
}

/// Null if the call is too large for the way, which is a lane.
MessagePtr CallChannel::NewCall(const Way& way, const ServiceAddress& to, const char* operation,
                                const std::function<void(Writer&)>& arguments) {
    sd_bus_message* made = nullptr;
    CheckBus(sd_bus_message_new_method_call(way.bus, &made, way.lane ? nullptr : to.service.c_str(), to.path.c_str(),
                                            to.interface.c_str(), operation));
    MessagePtr call(made);
    // Otherwise the bus would wait for a missing service to start.
    if (!way.lane) CheckBus(sd_bus_message_set_auto_start(made, 0));
    Writer writer(made);
    arguments(writer);
    constexpr std::size_t kMaxText = kMaxLaneCall / 2;  // the rest is for the header and the numbers
    if (way.lane && writer.TextSize() > kMaxText) return nullptr;
    CheckBus(sd_bus_message_seal(made, _serials.Next(), kNever));  // Await checks the deadline
    return call;
}

/// Drops the messages since the last call: late answers and the bus's notices. Reading them shows whether the bus has
/// closed the connection.
void CallChannel::DropIfClosed(Clock::time_point until) {
    constexpr int kMaxMessages = 1000;  // an endless sender must not block the call
    int progress = 1;
    for (int i = 0; progress > 0 && i < kMaxMessages && Clock::now() < until; ++i) {
        progress = _lanes->Process(_bus.get());
    }
    _nextLook = Clock::now() + kLookInterval;
    if (progress < 0 || sd_bus_is_open(_bus.get()) <= 0) Close();
}

void CallChannel::Close() {
    _lanes->EndRequests();
    _socket.Forget();
    _bus.reset();
}

void CallChannel::EnsureOpen(Clock::time_point until) {
    if (_bus) DropIfClosed(until);
    if (_bus) return;
    try {
        _bus = OpenBus(_address, until, &_socket);
        ServeNobody(_bus.get());
    } catch (const osa::Exception& e) {
        Close();
        if (Clock::now() >= until) Missed(SilentServices::TheBus());
        _reachability->Lost(e.what());
        throw osa::Exception("the message bus cannot be reached: %s", e.what());
    }
    _reachability->Found();
    _silent->Answered(SilentServices::TheBus().service, false);
}

namespace {

int OnAnswer(sd_bus_message* message, void* answer, sd_bus_error*) {
    static_cast<MessagePtr*>(answer)->reset(sd_bus_message_ref(message));
    return 0;
}

}  // namespace

/// The library's blocking call would keep all messages that arrive before the answer, up to 65,536 of any size.
int CallChannel::Await(const Way& way, sd_bus_message* call, Clock::time_point until, MessagePtr& answer,
                       CallObservation& observation) {
    sd_bus_slot* made = nullptr;
    int result = sd_bus_call_async(way.bus, &made, call, OnAnswer, &answer, kNever);
    const SlotPtr slot(made);
    if (result >= 0 && observation.IsOn()) {
        std::uint64_t serial = 0;
        sd_bus_message_get_cookie(call, &serial);
        observation.Sent(way.sender.c_str(), serial);
    }
    bool wait = way.lane != nullptr;  // no answer can be there yet
    while (result >= 0 && !answer) {
        if (wait) result = way.lane ? way.lane->WaitUntil(until) : sd_bus_wait(way.bus, MicrosecondsUntil(until));
        if (result < 0 && result != -EINTR) return result;
        result = way.lane ? sd_bus_process(way.bus, nullptr) : _lanes->Process(way.bus);
        wait = result == 0;
        if (result >= 0 && !answer && Clock::now() >= until) return -ETIMEDOUT;
    }
    return result;
}

MessagePtr CallChannel::Exchange(const Way& way, const ServiceAddress& to, sd_bus_message* call,
                                 Clock::time_point until, CallObservation& observation) {
    const auto start = Clock::now();
    MessagePtr answer;
    const int result = Await(way, call, until, answer, observation);
    const sd_bus_error* const error = answer ? sd_bus_message_get_error(answer.get()) : nullptr;
    if (answer && (!error || IsAnswer(error->name))) _silent->Answered(to.service, IsSlow(Clock::now() - start));
    if (answer && !error) {
        if (way.lane) {
            _lanes->Served(to.service);
        } else if (_useLanes) {
            _lanes->Answered(way.bus, to, sd_bus_message_get_sender(answer.get()));
        }
        return answer;
    }

    const bool late = result == -ETIMEDOUT;
    const bool ended = sd_bus_is_open(way.bus) <= 0;
    if (late) Missed(to);
    // Close the lane or the connection: a late answer must not arrive on it.
    if (late || ended || (way.lane && result < 0)) {
        if (way.lane) {
            _lanes->Close(to.service);
        } else {
            Close();
        }
    }
    if (late) throw osa::Exception("no answer within %d ms", static_cast<int>(_time.count()));
    // As the bus describes it. The call may have been carried out, so it is not repeated.
    if (way.lane && ended) throw osa::Exception("Message recipient disconnected from message bus without replying");
    if (!error) throw osa::Exception("%s", std::strerror(-result));
    if (sd_bus_error_has_name(error, SD_BUS_ERROR_SERVICE_UNKNOWN) > 0 ||
        sd_bus_error_has_name(error, SD_BUS_ERROR_NAME_HAS_NO_OWNER) > 0) {
        throw osa::Exception("the service is missing");
    }
    throw osa::Exception("%s", error->message && *error->message ? error->message : error->name);
}

}  // namespace tavos::msgbus
