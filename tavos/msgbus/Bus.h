#pragma once

#include <poll.h>
#include <signal.h>
#include <sys/types.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tavos::msgbus {

using Clock = std::chrono::steady_clock;

struct BusCloser {
    // Do not flush: that would wait for a bus that has stopped reading.
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

/// For a connection that only calls or listens: drops incoming calls. Error answers would accumulate if the caller does
/// not read them. Throws tavos::osa::Exception.
void ServeNobody(sd_bus* bus);

/// True for an error that the service sent, or that means that the service does not exist. False for an error that the
/// bus or its library created because no answer came. False for null, which is no error.
bool IsAnswer(const char* error);

/// Throws tavos::osa::Exception with the reason if `result` is negative.
void CheckBus(int result);

/// Blocks the thread's signals: a signal would make the bus library abort a call.
class SignalsBlocked {
public:
    SignalsBlocked();
    ~SignalsBlocked();
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t _before;
};

/// Microseconds from now until `until`, at least 1: the bus library reads 0 as its default timeout.
std::uint64_t MicrosecondsUntil(Clock::time_point until);

/// A timeout for poll, at most an hour. Rounded up: otherwise the caller would spin during the last millisecond.
int MillisecondsUntil(Clock::time_point until);

/// Remembers a connection's socket, so that a forked child can close its copy: the bus library frees a connection only
/// in the process that opened it. One thread writes it.
class ConnectionSocket {
public:
    void Remember(sd_bus* bus);
    void Forget() { _descriptor = -1; }
    /// Does not close a descriptor that has been reused.
    void CloseInChild();

private:
    std::atomic<int> _descriptor{-1};
    std::atomic<ino_t> _inode{0};
};

/// Unlocks a held mutex while the object lives.
class Released {
public:
    explicit Released(std::timed_mutex& mutex) : _mutex(mutex) { _mutex.unlock(); }
    ~Released() { _mutex.lock(); }
    Released(const Released&) = delete;
    Released& operator=(const Released&) = delete;

private:
    std::timed_mutex& _mutex;
};

/// Opens a connection that is ready for use. Throws tavos::osa::Exception with the reason if it is not ready by
/// `until`. `socket`, if given, gets the socket before the first wait. `held`, if given, is a lock that the caller
/// holds; it is released during each wait for the bus.
BusPtr OpenBus(const std::string& address, Clock::time_point until, ConnectionSocket* socket = nullptr,
               std::timed_mutex* held = nullptr);

/// A wait until a connection has something to do, or a descriptor is readable. More descriptors can be added.
class BusWait {
public:
    /// `bus` null: there is no connection. `wake` -1: there is no descriptor. Throws tavos::osa::Exception when the
    /// connection has ended.
    BusWait(sd_bus* bus, int wake, Clock::time_point until);

    /// Returns the number by which EventsOf knows it.
    std::size_t Add(int descriptor, short events) {
        _watched.push_back({descriptor, events, 0});
        return _watched.size() - 1;
    }

    /// Makes Wait return at once: there is something to do already.
    void Shorten() { _until = Clock::time_point{}; }  // long past, and far enough from what overflows

    /// Returns at `until` at the latest, or when a signal arrives.
    void Wait() { poll(_watched.data(), _watched.size(), MillisecondsUntil(_until)); }

    /// As Wait, but returns at once; true if there is something to do, or a signal has arrived.
    bool Look() { return poll(_watched.data(), _watched.size(), 0) != 0; }

    Clock::time_point Until() const { return _until; }

    bool IsWoken() const { return _watched[0].revents != 0; }
    bool IsBusQuiet() const { return _watched[1].revents == 0; }
    short EventsOf(std::size_t number) const { return _watched[number].revents; }

private:
    std::vector<pollfd> _watched;
    Clock::time_point _until;
};

/// Logs once when the bus is lost and once when it is back, even if several connections report it. Any thread.
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
