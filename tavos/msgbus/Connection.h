#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "tavos/Api.h"
#include "tavos/msgbus/Message.h"
#include "tavos/msgbus/ServiceAddress.h"

namespace tavos::msgbus {

class CallChannel;
class EventThread;
class Reachability;
class SilentServices;
struct EventRecord;

/// Delivers one event while the object lives. After the destructor the handler does not run. On the event thread (in a
/// handler) the destructor does not wait.
class TAVOS_API Subscription {
public:
    Subscription() = default;
    Subscription(std::shared_ptr<EventThread> thread, std::shared_ptr<EventRecord> record);
    Subscription(Subscription&&) noexcept = default;
    Subscription& operator=(Subscription&&) = delete;
    ~Subscription();

private:
    std::shared_ptr<EventThread> _thread;
    std::shared_ptr<EventRecord> _record;
};

/// The process's connections to the bus: one for calls, one for events. Any thread. After a restart of the bus, and in
/// a forked child, it opens both connections again.
class TAVOS_API Connection {
public:
    /// `address` as TAVOS_BUS_ADDRESS, empty for the system bus. Connects at the first use. Without `useLanes` all
    /// calls take the bus.
    Connection(const std::string& address, std::chrono::milliseconds deadline, bool useLanes);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void StartServer();

    /// As IMsgBus::BeginWork, with the limit.
    void BeginWork(std::chrono::milliseconds limit);

    /// Calls and waits for the answer, which must have the signature `resultSignature`. Throws tavos::osa::Exception
    /// with service, operation and reason. After StartServer, a service is silent if it misses a call's whole deadline
    /// or uses up the time of the current work: calls to it fail at once until it answers a ping.
    void Call(const ServiceAddress& to, const char* operation, const std::function<void(Writer&)>& arguments,
              const std::string& resultSignature, const std::function<void(Reader&)>& result);

    /// `handler` runs on the event thread, for each event that has the signature `signature`.
    Subscription Subscribe(const ServiceAddress& from, const char* event, const std::string& signature,
                           std::function<void(Reader&)> handler);

private:
    std::shared_ptr<Reachability> _reachability;
    std::shared_ptr<SilentServices> _silent;
    std::unique_ptr<CallChannel> _calls;
    std::shared_ptr<EventThread> _events;
};

}  // namespace tavos::msgbus
