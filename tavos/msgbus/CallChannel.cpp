#include "tavos/msgbus/CallChannel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "tavos/osa/Exception.h"

namespace tavos::msgbus {

CallChannel::CallChannel(std::string address, std::chrono::milliseconds deadline,
                         std::shared_ptr<Reachability> reachability, std::shared_ptr<SilentServices> silent)
    : _address(std::move(address)),
      _deadline(deadline),
      _reachability(std::move(reachability)),
      _silent(std::move(silent)),
      _mutex(std::make_unique<std::timed_mutex>()),
      _forkWatch({[] {}, [] {}, [this] { Abandon(); }}) {}

/// In a forked child: the connection belongs to the parent, and a thread of the parent may hold the lock.
void CallChannel::Abandon() {
    _socket.CloseInChild();
    static_cast<void>(_bus.release());
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

void CallChannel::RefuseSilent(const ServiceAddress& to) const {
    if (_silent->IsSilent(SilentServices::TheBus().service)) throw osa::Exception("the message bus is silent");
    if (_silent->IsSilent(to.service)) throw osa::Exception("the service is silent");
}

void CallChannel::Missed(const ServiceAddress& whose) {
    if (_hadEnoughTime) _silent->Missed(whose);
}

void CallChannel::CallUntil(Clock::time_point until, const ServiceAddress& to, const char* operation,
                            const std::function<void(Writer&)>& arguments, const std::string& resultSignature,
                            const std::function<void(Reader&)>& result, CallObservation& observation) {
    const SignalsBlocked guard;
    EnsureOpen(until);
    sd_bus_message* made = nullptr;
    CheckBus(sd_bus_message_new_method_call(_bus.get(), &made, to.service.c_str(), to.path.c_str(),
                                            to.interface.c_str(), operation));
    const MessagePtr call(made);
    // Otherwise the bus would wait for a missing service to start.
    CheckBus(sd_bus_message_set_auto_start(made, 0));
    Writer writer(made);
    arguments(writer);

    const MessagePtr answer = Exchange(to, made, until, observation);
    if (sd_bus_message_has_signature(answer.get(), resultSignature.c_str()) <= 0) {
        const char* const signature = sd_bus_message_get_signature(answer.get(), 1);
        throw osa::Exception("the answer has the wrong form (\"%s\" instead of \"%s\")", signature ? signature : "",
                             resultSignature.c_str());
    }
    Reader reader(answer.get());
    result(reader);
}

/// Drops the messages since the last call: late answers and the bus's notices. Reading them shows whether the bus has
/// closed the connection.
void CallChannel::DropIfClosed(Clock::time_point until) {
    constexpr int kMaxMessages = 1000;  // an endless sender must not block the call
    int progress = 1;
    for (int i = 0; progress > 0 && i < kMaxMessages && Clock::now() < until; ++i) {
        progress = sd_bus_process(_bus.get(), nullptr);
    }
    if (progress < 0 || sd_bus_is_open(_bus.get()) <= 0) Close();
}

void CallChannel::Close() {
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

void Describe(sd_bus* bus, sd_bus_message* call, CallObservation& observation) {
    const char* sender = nullptr;
    std::uint64_t serial = 0;
    sd_bus_get_unique_name(bus, &sender);
    sd_bus_message_get_cookie(call, &serial);
    observation.Sent(sender, serial);
}

}  // namespace

/// The library's blocking call would keep all messages that arrive before the answer, up to 65,536 of any size.
int CallChannel::Await(sd_bus_message* call, Clock::time_point until, MessagePtr& answer,
                       CallObservation& observation) {
    constexpr auto kNever = std::numeric_limits<std::uint64_t>::max();  // this function checks the deadline
    sd_bus_slot* made = nullptr;
    int result = sd_bus_call_async(_bus.get(), &made, call, OnAnswer, &answer, kNever);
    const SlotPtr slot(made);
    if (result >= 0 && observation.IsOn()) Describe(_bus.get(), call, observation);
    while (result >= 0 && !answer) {
        if (Clock::now() >= until) return -ETIMEDOUT;
        result = sd_bus_process(_bus.get(), nullptr);
        if (result != 0 || answer) continue;
        result = sd_bus_wait(_bus.get(), MicrosecondsUntil(until));
        if (result == -EINTR) result = 0;
    }
    return result;
}

MessagePtr CallChannel::Exchange(const ServiceAddress& to, sd_bus_message* call, Clock::time_point until,
                                 CallObservation& observation) {
    const auto start = Clock::now();
    MessagePtr answer;
    const int result = Await(call, until, answer, observation);
    const sd_bus_error* const error = answer ? sd_bus_message_get_error(answer.get()) : nullptr;
    if (answer && (!error || IsAnswer(error->name))) _silent->Answered(to.service, IsSlow(Clock::now() - start));
    if (answer && !error) return answer;

    const bool late = result == -ETIMEDOUT;
    if (late) Missed(to);
    // Close the connection, so that the bus drops the late answer.
    if (late || sd_bus_is_open(_bus.get()) <= 0) Close();
    if (late) throw osa::Exception("no answer within %d ms", static_cast<int>(_time.count()));
    if (!error) throw osa::Exception("%s", std::strerror(-result));
    if (sd_bus_error_has_name(error, SD_BUS_ERROR_SERVICE_UNKNOWN) > 0 ||
        sd_bus_error_has_name(error, SD_BUS_ERROR_NAME_HAS_NO_OWNER) > 0) {
        throw osa::Exception("the service is missing");
    }
    throw osa::Exception("%s", error->message && *error->message ? error->message : error->name);
}

}  // namespace tavos::msgbus
