#pragma once

#include <signal.h>
#include <sys/types.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>

namespace tavos::msgbus {

using Clock = std::chrono::steady_clock;

struct BusCloser {
    // Without a flush: that would wait for a bus that has stopped reading.
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
using BusPtr = std::unique_ptr<sd_bus, BusCloser>;

struct SlotRelease {
    void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};
using SlotPtr = std::unique_ptr<sd_bus_slot, SlotRelease>;

struct MessageRelease {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using MessagePtr = std::unique_ptr<sd_bus_message, MessageRelease>;

/// For a connection that only calls or listens: calls of others are dropped, not answered with errors, which would pile
/// up when nobody takes them. Throws tavos::osa::Exception.
void ServeNobody(sd_bus* bus);

/// Whether an error of that name comes from the one who was called, or says that nobody of that name is there; null is
/// no error. The others are the bus's, in the place of a service that does not answer.
bool IsAnswer(const char* error);

/// Throws tavos::osa::Exception with the reason when `result` is negative.
void CheckBus(int result);

/// Keeps the thread's signals waiting: the bus library gives a call up when one arrives.
class SignalsBlocked {
public:
    SignalsBlocked();
    ~SignalsBlocked();
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t _before;
};

/// Microseconds from now until `until`, at least 1: the bus library takes 0 for its own default.
std::uint64_t MicrosecondsUntil(Clock::time_point until);

/// As poll takes it: rounded up, so that it is not asked again and again within the last one. At most an hour.
int MillisecondsUntil(Clock::time_point until);

/// A connection's socket, remembered so that a forked child can close its copy: the bus library lets nobody but the
/// process that has opened a connection free it. Written by one thread.
class ConnectionSocket {
public:
    void Remember(sd_bus* bus);
    void Forget() { _descriptor = -1; }
    /// Leaves a descriptor alone that has meanwhile become something else.
    void CloseInChild();

private:
    std::atomic<int> _descriptor{-1};
    std::atomic<ino_t> _inode{0};
};

/// Lets go of a lock for as long as it lives.
class Released {
public:
    explicit Released(std::timed_mutex& mutex) : _mutex(mutex) { _mutex.unlock(); }
    ~Released() { _mutex.lock(); }
    Released(const Released&) = delete;
    Released& operator=(const Released&) = delete;

private:
    std::timed_mutex& _mutex;
};

/// A connection that is ready for use. Throws tavos::osa::Exception with the reason when there is none by `until`.
/// `socket`, when given, knows the socket from the beginning; `held`, when given, is the caller's and let go of while
/// the bus is waited for.
BusPtr OpenBus(const std::string& address, Clock::time_point until, ConnectionSocket* socket = nullptr,
               std::timed_mutex* held = nullptr);

/// Tells the log once when the bus goes and once when it comes back, however many connections notice. Any thread.
class Reachability {
public:
    explicit Reachability(std::string address) : _address(std::move(address)) {}
    void Lost(const char* reason);
    void Found();

private:
    const std::string _address;
    std::atomic<bool> _lost{false};
};

}  // namespace tavos::msgbus
