#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tavos/msgbus/Bus.h"
#include "tavos/msgbus/ForkWatch.h"
#include "tavos/msgbus/Message.h"
#include "tavos/msgbus/ServiceAddress.h"
#include "tavos/msgbus/SilentServices.h"

namespace tavos::msgbus {

class EventThread;

struct EventRecord {
    ServiceAddress from;
    std::string event;
    std::string signature;
    std::function<void(Reader&)> handler;
    EventThread* thread = nullptr;
    bool active = true;  // guarded by the thread's delivery lock
};

/// The connection for events, and the thread that owns it. Any thread may add and remove subscriptions at any time.
/// Between events the thread pings silent services.
class EventThread {
public:
    EventThread(std::string address, std::chrono::milliseconds deadline, std::shared_ptr<Reachability> reachability,
                std::shared_ptr<SilentServices> silent);
    ~EventThread();
    EventThread(const EventThread&) = delete;
    EventThread& operator=(const EventThread&) = delete;

    /// Throws tavos::osa::Exception when the thread cannot be started.
    void Start();
    void Stop();

    void Add(const std::shared_ptr<EventRecord>& record);
    /// After it returns, the record's handler does not run; see Subscription.
    void Remove(const std::shared_ptr<EventRecord>& record);

    /// On the event thread, for each signal of the record.
    void Deliver(EventRecord& record, sd_bus_message* signal);

private:
    class Session;

    void StartAfter(std::chrono::milliseconds delay);
    void Run(std::chrono::milliseconds delay, std::promise<void> begun) noexcept;
    void RunSession();
    void Pause(std::chrono::milliseconds time) const;
    void Wake() const;
    std::vector<std::shared_ptr<EventRecord>> Records();

    void BeforeFork();
    void AfterForkInParent();
    void AfterForkInChild();

    const std::string _address;
    const std::chrono::milliseconds _deadline;
    const std::shared_ptr<Reachability> _reachability;
    const std::shared_ptr<SilentServices> _silent;

    std::mutex _startMutex;
    std::unique_ptr<std::thread> _thread;  // guarded by _startMutex
    std::atomic<std::thread::id> _threadId{};
    std::atomic<bool> _stop{false};
    int _wake;  // an eventfd
    ConnectionSocket _socket;

    std::mutex _recordsMutex;
    std::vector<std::shared_ptr<EventRecord>> _records;

    std::unique_ptr<std::timed_mutex> _delivery;  // held while a handler runs
    std::unique_ptr<std::timed_mutex> _working;   // held by the thread except while it waits; locked before _delivery
    std::atomic<bool> _forkAhead{false};
    bool _workHeldForFork = false;
    ForkWatch _forkWatch;
};

}  // namespace tavos::msgbus
