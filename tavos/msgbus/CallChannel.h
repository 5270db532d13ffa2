#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "tavos/msgbus/Bus.h"
#include "tavos/msgbus/CallLanes.h"
#include "tavos/msgbus/CallObservation.h"
#include "tavos/msgbus/ForkWatch.h"
#include "tavos/msgbus/Lane.h"
#include "tavos/msgbus/Message.h"
#include "tavos/msgbus/ServiceAddress.h"
#include "tavos/msgbus/SilentServices.h"
#include "tavos/msgbus/WorkTime.h"

namespace tavos::msgbus {

/// The connection for calls: one call at a time, from any thread. The deadline and the work's time limit apply to each
/// call, including its wait for the previous call. A call to a silent service fails at once. All messages except
/// answers are dropped on arrival, so that no sender can fill the memory. A call takes the service's lane if there is
/// one.
class CallChannel {
public:
    CallChannel(std::string address, std::chrono::milliseconds deadline, bool useLanes,
                std::shared_ptr<Reachability> reachability, std::shared_ptr<SilentServices> silent);
    CallChannel(const CallChannel&) = delete;
    CallChannel& operator=(const CallChannel&) = delete;

    /// As Connection::BeginWork.
    void BeginWork(Clock::duration limit) { _work.Begin(limit); }

    /// As Connection::Call.
    void Call(const ServiceAddress& to, const char* operation, const std::function<void(Writer&)>& arguments,
              const std::string& resultSignature, const std::function<void(Reader&)>& result);

private:
    /// The way that a call takes: the bus, or a lane.
    struct Way {
        sd_bus* bus;
        std::string sender;     ///< the unique name by which the service knows this client
        CallLanes::Lane* lane;  ///< null on the bus
    };

    void RefuseSilent(const ServiceAddress& to) const;
    void RefuseSilentBus() const;
    /// A call that spent its deadline queued behind another, or had little time left, is no evidence that the service
    /// is silent.
    void Missed(const ServiceAddress& whose);
    void CallInTime(const ServiceAddress& to, const char* operation, const std::function<void(Writer&)>& arguments,
                    const std::string& resultSignature, const std::function<void(Reader&)>& result,
                    CallObservation& observation);
    void CallUntil(Clock::time_point until, const ServiceAddress& to, const char* operation,
                   const std::function<void(Writer&)>& arguments, const std::string& resultSignature,
                   const std::function<void(Reader&)>& result, CallObservation& observation);
    CallLanes::Lane* LaneTo(const ServiceAddress& to, Clock::time_point until);
    MessagePtr NewCall(const Way& way, const ServiceAddress& to, const char* operation,
                       const std::function<void(Writer&)>& arguments);
    void EnsureOpen(Clock::time_point until);
    void DropIfClosed(Clock::time_point until);
    void Close();
    int Await(const Way& way, sd_bus_message* call, Clock::time_point until, MessagePtr& answer,
              CallObservation& observation);
    bool IsSlow(Clock::duration time) const;
    void Spend(const ServiceAddress& on, Clock::duration time);
    MessagePtr Exchange(const Way& way, const ServiceAddress& to, sd_bus_message* call, Clock::time_point until,
                        CallObservation& observation);
    void Abandon();

    const std::string _address;
    const std::chrono::milliseconds _deadline;
    const bool _useLanes;
    const bool _spins;
    const std::shared_ptr<Reachability> _reachability;
    const std::shared_ptr<SilentServices> _silent;
    std::unique_ptr<std::timed_mutex> _mutex;  // on the heap: a forked child abandons it, locked or not
    std::chrono::milliseconds _time{};         // time limit of the current call, from its start
    bool _hadEnoughTime = true;                // the current call began with more than half a deadline
    WorkTime _work;
    BusPtr _bus;
    ConnectionSocket _socket;
    Clock::time_point _nextLook{};  // at the connection, while calls take lanes
    Serials _serials;
    std::unique_ptr<CallLanes> _lanes;  // on the heap for the same reason as _mutex
    ForkWatch _forkWatch;
};

}  // namespace tavos::msgbus
