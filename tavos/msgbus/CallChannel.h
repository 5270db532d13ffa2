#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "tavos/msgbus/Bus.h"
#include "tavos/msgbus/Connection.h"
#include "tavos/msgbus/ForkWatch.h"
#include "tavos/msgbus/SilentServices.h"

namespace tavos::msgbus {

/// The connection for calls: one call at a time, from any thread, each within the deadline, whatever it waits for. A
/// call to a service that is known to be silent fails at once.
class CallChannel {
public:
    CallChannel(std::string address, std::chrono::milliseconds deadline, std::shared_ptr<Reachability> reachability,
                std::shared_ptr<SilentServices> silent);
    CallChannel(const CallChannel&) = delete;
    CallChannel& operator=(const CallChannel&) = delete;

    /// As Connection::Call.
    void Call(const ServiceAddress& to, const char* operation, const std::function<void(Writer&)>& arguments,
              const std::string& resultSignature, const std::function<void(Reader&)>& result);

private:
    void RefuseSilent(const ServiceAddress& to) const;
    /// A call that has spent its time behind another one says nothing of those that it calls.
    void Missed(const ServiceAddress& whose);
    void CallUntil(Clock::time_point until, const ServiceAddress& to, const char* operation,
                   const std::function<void(Writer&)>& arguments, const std::string& resultSignature,
                   const std::function<void(Reader&)>& result);
    void EnsureOpen(Clock::time_point until);
    void DropIfClosed();
    MessagePtr Exchange(const ServiceAddress& to, sd_bus_message* call, Clock::time_point until);
    void Abandon();

    const std::string _address;
    const std::chrono::milliseconds _deadline;
    const std::shared_ptr<Reachability> _reachability;
    const std::shared_ptr<SilentServices> _silent;
    std::unique_ptr<std::timed_mutex> _mutex;  // on the heap: a forked child leaves it behind, held or not
    bool _hasItsTime = true;                   // the call under way
    BusPtr _bus;
    ConnectionSocket _socket;
    ForkWatch _forkWatch;
};

}  // namespace tavos::msgbus
