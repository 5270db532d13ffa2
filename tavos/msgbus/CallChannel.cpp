#include "tavos/msgbus/CallChannel.h"

#include <cstring>

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

/// In a forked child: the connection is the parent's, and the lock perhaps held by a thread that is not there.
void CallChannel::Abandon() {
    _socket.CloseInChild();
    static_cast<void>(_bus.release());
    static_cast<void>(_mutex.release());
    _mutex = std::make_unique<std::timed_mutex>();
}

void CallChannel::Call(const ServiceAddress& to, const char* operation, const std::function<void(Writer&)>& arguments,
                       const std::string& resultSignature, const std::function<void(Reader&)>& result) {
    const auto until = Clock::now() + _deadline;
    try {
        RefuseSilent(to);
        std::unique_lock<std::timed_mutex> lock(*_mutex, until);
        if (!lock.owns_lock()) throw osa::Exception("another call is still under way");
        RefuseSilent(to);  // the call before may have shown it meanwhile
        _hasItsTime = until - Clock::now() > _deadline / 2;
        CallUntil(until, to, operation, arguments, resultSignature, result);
    } catch (const osa::Exception& e) {
        throw osa::Exception("%s %s: %s", to.service.c_str(), operation, e.what());
    }
}

void CallChannel::RefuseSilent(const ServiceAddress& to) const {
    if (_silent->IsSilent(SilentServices::TheBus().service)) throw osa::Exception("the message bus is silent");
    if (_silent->IsSilent(to.service)) throw osa::Exception("the service is silent");
}

void CallChannel::Missed(const ServiceAddress& whose) {
    if (_hasItsTime) _silent->Missed(whose);
}

void CallChannel::CallUntil(Clock::time_point until, const ServiceAddress& to, const char* operation,
                            const std::function<void(Writer&)>& arguments, const std::string& resultSignature,
                            const std::function<void(Reader&)>& result) {
    const SignalsBlocked guard;
    EnsureOpen(until);
    sd_bus_message* made = nullptr;
    CheckBus(sd_bus_message_new_method_call(_bus.get(), &made, to.service.c_str(), to.path.c_str(),
                                            to.interface.c_str(), operation));
    const MessagePtr call(made);
    // A service that is missing is missing: the bus must not wait for somebody to start it.
    CheckBus(sd_bus_message_set_auto_start(made, 0));
    Writer writer(made);
    arguments(writer);

    const MessagePtr answer = Exchange(to, made, until);
    if (sd_bus_message_has_signature(answer.get(), resultSignature.c_str()) <= 0) {
        const char* const signature = sd_bus_message_get_signature(answer.get(), 1);
        throw osa::Exception("the answer has the wrong form (\"%s\" instead of \"%s\")", signature ? signature : "",
                             resultSignature.c_str());
    }
    Reader reader(answer.get());
    result(reader);
}

/// What has come since the last call (answers that were late, the bus's own notices) is of no use to anybody; reading
/// it shows whether the bus has hung up.
void CallChannel::DropIfClosed() {
    constexpr int kMostMessages = 1000;
    int progress = 1;
    for (int i = 0; progress > 0 && i < kMostMessages; ++i) progress = sd_bus_process(_bus.get(), nullptr);
    if (progress < 0 || sd_bus_is_open(_bus.get()) <= 0) {
        _socket.Forget();
        _bus.reset();
    }
}

void CallChannel::EnsureOpen(Clock::time_point until) {
    if (_bus) DropIfClosed();
    if (_bus) return;
    try {
        _bus = OpenBus(_address, until, &_socket);
    } catch (const osa::Exception& e) {
        _socket.Forget();
        if (Clock::now() >= until) Missed(SilentServices::TheBus());
        _reachability->Lost(e.what());
        throw osa::Exception("the message bus cannot be reached: %s", e.what());
    }
    _reachability->Found();
    _silent->Answered(SilentServices::TheBus().service);
}

MessagePtr CallChannel::Exchange(const ServiceAddress& to, sd_bus_message* call, Clock::time_point until) {
    BusError error;
    sd_bus_message* answer = nullptr;
    const int result = sd_bus_call(_bus.get(), call, MicrosecondsUntil(until), &error, &answer);
    if (result >= 0) {
        _silent->Answered(to.service);
        return MessagePtr(answer);
    }

    // The same number stands for what the bus answers in the name of a service that has ended in the middle of a call.
    const bool late = result == -ETIMEDOUT && !error.Is(SD_BUS_ERROR_NO_REPLY);
    if (late) Missed(to);
    if (late || sd_bus_is_open(_bus.get()) <= 0) {
        // A late answer has no taker; hanging up makes the bus forget it.
        _socket.Forget();
        _bus.reset();
    } else if (error.IsAnswer()) {
        _silent->Answered(to.service);
    }
    if (error.Is(SD_BUS_ERROR_SERVICE_UNKNOWN) || error.Is(SD_BUS_ERROR_NAME_HAS_NO_OWNER)) {
        throw osa::Exception("the service is missing");
    }
    if (late) throw osa::Exception("no answer within %d ms", static_cast<int>(_deadline.count()));
    const char* const message = error.Message();
    throw osa::Exception("%s", message ? message : std::strerror(-result));
}

}  // namespace tavos::msgbus
