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

/// The services (the bus itself among them) that have let a call wait in vain. A caller does not wait for one of them
/// again until it has given a sign of life: whoever owns the event connection asks for that in the background. Any
/// thread.
class SilentServices {
public:
    /// What the bus itself is called.
    static const ServiceAddress& TheBus();

    /// `wake` is called, from any thread, when there is a service to ask for a sign of life. Without one (null) nobody
    /// asks: no service is taken for silent then, and each call waits.
    void SetAsker(std::function<void()> wake);

    bool IsSilent(const std::string& service) const;
    /// A call has waited for its whole deadline.
    void Missed(const ServiceAddress& service);
    /// Its answers come, but so slowly that one request has waited for them as long as a request may.
    void UsedUpTime(const ServiceAddress& service);
    /// A sign of life.
    void Heard(const std::string& service);
    /// It is gone: what its successor does is its own.
    void Ended(const std::string& service);
    /// A call was answered, be it with an error. What was missed before is forgotten, unless the answer was slow: a
    /// service that is slow all the time must be retried later and later.
    void Answered(const std::string& service, bool slowly);

    /// A service that is to be asked for a sign of life, and when first. One that has given a sign and then missed the
    /// next call all the same is left alone for longer each time.
    struct Question {
        std::string service;
        std::string path;
        Clock::time_point due;
    };
    std::vector<Question> Questions() const;

    /// Around a fork, in the parent and in the child, so that the child gets it whole. No lock is taken within.
    void BeforeFork() { _mutex.lock(); }
    void AfterFork() { _mutex.unlock(); }

private:
    struct Record {
        std::string path;
        bool silent = false;
        int misses = 0;  // since the last answer
        Clock::time_point due;
    };

    void Avoid(const ServiceAddress& service, const char* line);
    bool EndSilence(const std::string& service);
    void Forget(const std::string& service);

    mutable std::mutex _mutex;
    std::function<void()> _wakeAsker;
    std::map<std::string, Record> _records;  // those that have missed a call and not answered one quickly since
    std::atomic<bool> _any{false};           // calls look here first: nearly always there is none
};

}  // namespace tavos::msgbus
