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

/// The services (the bus itself included) that missed a call's deadline. Calls to them fail at once until they answer a
/// ping; the owner of the event connection pings them in the background. Any thread.
class SilentServices {
public:
    /// The bus itself, as a service.
    static const ServiceAddress& TheBus();

    /// Calls `wake`, from any thread, when there is a service to ping. With null nobody pings: then no service counts
    /// as silent, and each call waits.
    void SetAsker(std::function<void()> wake);

    bool IsSilent(const std::string& service) const;
    /// A call waited for its whole deadline.
    void Missed(const ServiceAddress& service);
    /// The service answers, but so slowly that it used up the time limit of a request.
    void UsedUpTime(const ServiceAddress& service);
    /// The service answered a ping.
    void Heard(const std::string& service);
    /// The service is gone: its record must not count against its successor.
    void Ended(const std::string& service);
    /// A call was answered, possibly with an error. A quick answer resets the count of misses; a slow one does not,
    /// because a service that is always slow must be retried later and later.
    void Answered(const std::string& service, bool slowly);

    /// A service to ping, and the earliest time. The delay grows each time a service answers a ping and then misses the
    /// next call.
    struct Question {
        std::string service;
        std::string path;
        Clock::time_point due;
    };
    std::vector<Question> Questions() const;

    /// Around a fork, so that the child gets a consistent copy; AfterFork in the parent and in the child. No other lock
    /// is taken while this one is held.
    void BeforeFork() { _mutex.lock(); }
    void AfterFork() { _mutex.unlock(); }

private:
    struct Record {
        std::string path;
        bool silent = false;
        int misses = 0;  // since the last answer
        Clock::time_point due;
    };

    /// False when nobody asks the silent ones: nothing is avoided then.
    bool Avoid(const ServiceAddress& service);
    bool EndSilence(const std::string& service);
    void Forget(const std::string& service);

    mutable std::mutex _mutex;
    std::function<void()> _wakeAsker;
    std::map<std::string, Record> _records;  // services that missed a call and have not answered quickly since
    std::atomic<bool> _any{false};           // checked before the lock: nearly always false
};

}  // namespace tavos::msgbus
