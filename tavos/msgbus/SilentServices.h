#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "tavos/msgbus/Bus.h"
#include "tavos/msgbus/ServiceAddress.h"

namespace tavos::msgbus {

/// The services, including the bus itself, that missed a call's deadline or used up a request's time. Calls to them
/// fail at once until they answer a ping. The event thread pings them in the background. Any thread.
class SilentServices {
public:
    /// The bus itself, as a service.
    static const ServiceAddress& TheBus();

    /// `wake` is called, on any thread, when there is a service to ping. Null means that there are no pings: then no
    /// service counts as silent, and each call waits.
    void SetPinger(std::function<void()> wake);

    bool IsSilent(const std::string& service) const;
    /// A call waited for its whole deadline.
    void Missed(const ServiceAddress& service);
    /// The service answers, but its slow answers used up the time limit of a request.
    void TimeUsedUp(const ServiceAddress& service);
    /// The service answered a ping.
    void PingAnswered(const std::string& service);
    /// The service has ended. Deletes its record: it must not affect a new process of that name.
    void ServiceEnded(const std::string& service);
    /// A call was answered, possibly with an error. A quick answer resets the count of misses. A slow one does not: the
    /// retry intervals of a service that is always slow must grow.
    void Answered(const std::string& service, bool slowly);

    /// A service to ping, and the earliest time for it. The delay grows each time a service answers a ping and then
    /// misses the next call.
    struct PingTarget {
        std::string service;
        std::string path;
        Clock::time_point due;
    };
    std::vector<PingTarget> PingTargets() const;

    /// Call BeforeFork before a fork, and AfterFork in the parent and in the child, so that the child gets a consistent
    /// copy. Code that holds this lock takes no other lock.
    void BeforeFork() { _mutex.lock(); }
    void AfterFork() { _mutex.unlock(); }

private:
    struct Record {
        std::string path;
        bool silent = false;
        int misses = 0;  // since the last quick answer
        Clock::time_point due;
    };

    /// False if there are no pings: then no service is marked.
    bool MarkSilent(const ServiceAddress& service);
    bool EndSilence(const std::string& service);
    void Forget(const std::string& service);

    mutable std::mutex _mutex;
    std::function<void()> _wakePinger;
    std::map<std::string, Record> _records;  // services that missed a call and have not answered quickly since
    std::atomic<bool> _any{false};           // checked before the lock: nearly always false
};

}  // namespace tavos::msgbus
