#include "tavos/msgbus/EventThread.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <system_error>

#include "tavos/core/Logger.h"
#include "tavos/msgbus/Pings.h"
#include "tavos/osa/Exception.h"

namespace tavos::msgbus {

using namespace std::chrono_literals;

namespace {

constexpr auto kRetryDelay = 200ms;
constexpr auto kDelayInChild = 100ms;  // most forked children run another program before that
constexpr auto kMaxDelegateTime = 1s;  // a fork's max wait for a running delegate

int NewWakeDescriptor() {
    return eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

const core::Logger& Log() {
    return *core::Logger::GetLogger("tavos");
}

std::string MatchRule(const EventRecord& record) {
    return "type='signal',sender='" + record.from.service + "',path='" + record.from.path + "',interface='" +
           record.from.interface + "',member='" + record.event + "'";
}

int OnSignal(sd_bus_message* signal, void* userdata, sd_bus_error*) {
    auto* const record = static_cast<EventRecord*>(userdata);
    record->thread->Deliver(*record, signal);
    return 0;
}

int OnMatchInstalled(sd_bus_message* answer, void* userdata, sd_bus_error*) {
    if (sd_bus_message_is_method_error(answer, nullptr) > 0) {
        const auto* const record = static_cast<EventRecord*>(userdata);
        Log().Error("the message bus refuses to deliver %s of %s", record->event.c_str(), record->from.service.c_str());
    }
    return 0;
}

}  // namespace

/// One connection's life.
class EventThread::Session {
public:
    Session(BusPtr bus, SilentServices& silent) : _bus(std::move(bus)), _pings(_bus.get(), silent) {
        ServeNobody(_bus.get());
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    sd_bus* Bus() { return _bus.get(); }

    void Update(const std::vector<std::shared_ptr<EventRecord>>& records) {
        std::map<std::shared_ptr<EventRecord>, SlotPtr> slots;
        for (const auto& record : records) {
            const auto known = _slots.find(record);
            slots[record] = known != _slots.end() ? std::move(known->second) : NewSlot(*record);
        }
        _slots.swap(slots);  // destroying the remaining slots removes their match rules
        _nextPing = _pings.Send();
    }

    void Wait(int wake, std::timed_mutex& working) {
        constexpr auto kMaxWait = 60s;
        BusWait wait(_bus.get(), wake, std::min(_nextPing, Clock::now() + kMaxWait));
        {
            const Released rest(working);
            wait.Wait();
        }
        std::uint64_t count = 0;
        if (wait.IsWoken()) static_cast<void>(!read(wake, &count, sizeof count));
    }

private:
    SlotPtr NewSlot(EventRecord& record) {
        sd_bus_slot* slot = nullptr;
        CheckBus(
            sd_bus_add_match_async(_bus.get(), &slot, MatchRule(record).c_str(), OnSignal, OnMatchInstalled, &record));
        return SlotPtr(slot);
    }

    BusPtr _bus;
    std::map<std::shared_ptr<EventRecord>, SlotPtr> _slots;  // released before the bus
    Pings _pings;                                            // so are these
    Clock::time_point _nextPing;
};

EventThread::EventThread(std::string address, std::chrono::milliseconds deadline,
                         std::shared_ptr<Reachability> reachability, std::shared_ptr<SilentServices> silent)
    : _address(std::move(address)),
      _deadline(deadline),
      _reachability(std::move(reachability)),
      _silent(std::move(silent)),
      _wake(NewWakeDescriptor()),
      _delivery(std::make_unique<std::timed_mutex>()),
      _working(std::make_unique<std::timed_mutex>()),
      _forkWatch({[this] { BeforeFork(); }, [this] { AfterForkInParent(); }, [this] { AfterForkInChild(); }}) {}

EventThread::~EventThread() {
    Stop();
    if (_wake >= 0) close(_wake);
}

void EventThread::Start() {
    std::lock_guard<std::mutex> lock(_startMutex);
    if (_thread) return;
    try {
        StartAfter(0ms);
    } catch (const std::system_error& e) {
        throw osa::Exception("no thread for the bus's events: %s", e.what());
    }
}

void EventThread::StartAfter(std::chrono::milliseconds delay) {
    if (_wake < 0) _wake = NewWakeDescriptor();
    if (_wake < 0) throw osa::Exception("no descriptor for the event thread");
    const SignalsBlocked guard;  // the new thread inherits it: other threads handle the process's signals
    _stop = false;
    std::promise<void> begun;
    const auto works = begun.get_future();
    _thread = std::make_unique<std::thread>(
        [this, delay](std::promise<void> itsBegun) { Run(delay, std::move(itsBegun)); }, std::move(begun));
    works.wait();  // from now on a fork waits for the thread
    _silent->SetPinger([this] { Wake(); });
}

void EventThread::Stop() {
    std::lock_guard<std::mutex> lock(_startMutex);
    if (!_thread) return;
    _silent->SetPinger(nullptr);
    _stop = true;
    Wake();
    _thread->join();
    _thread.reset();
    _threadId = std::thread::id();
}

void EventThread::Wake() const {
    const std::uint64_t one = 1;
    static_cast<void>(!write(_wake, &one, sizeof one));
}

void EventThread::Pause(std::chrono::milliseconds time) const {
    const auto until = Clock::now() + time;
    while (!_stop) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
        if (left <= 0) return;
        pollfd descriptor{_wake, POLLIN, 0};
        {
            const Released rest(*_working);
            poll(&descriptor, 1, static_cast<int>(left));
        }
        std::uint64_t count = 0;
        static_cast<void>(!read(_wake, &count, sizeof count));
    }
}

std::vector<std::shared_ptr<EventRecord>> EventThread::Records() {
    std::lock_guard<std::mutex> lock(_recordsMutex);
    return _records;
}

void EventThread::Run(std::chrono::milliseconds delay, std::promise<void> begun) noexcept {
    const std::lock_guard<std::timed_mutex> working(*_working);
    _threadId = std::this_thread::get_id();
    pthread_setname_np(pthread_self(), "tavos-events");
    begun.set_value();
    Pause(delay);
    while (!_stop) {
        try {
            RunSession();
        } catch (const std::exception& e) {
            _reachability->Lost(e.what());
        }
        _socket.Forget();
        Pause(kRetryDelay);
    }
}

void EventThread::RunSession() {
    Session session(OpenBus(_address, Clock::now() + _deadline, &_socket, _working.get()), *_silent);
    _reachability->Found();
    while (!_stop) {
        session.Update(Records());
        const int progress = sd_bus_process(session.Bus(), nullptr);
        CheckBus(progress);
        if (progress == 0) session.Wait(_wake, *_working);
        while (_forkAhead) {
            const Released rest(*_working);
            poll(nullptr, 0, 1);  // gives the forking thread time to take the lock
        }
    }
}

void EventThread::Add(const std::shared_ptr<EventRecord>& record) {
    record->thread = this;
    {
        std::lock_guard<std::mutex> lock(_recordsMutex);
        _records.push_back(record);
    }
    Wake();
}

void EventThread::Remove(const std::shared_ptr<EventRecord>& record) {
    if (std::this_thread::get_id() == _threadId) {
        record->active = false;  // in a handler, under its lock
    } else {
        std::lock_guard<std::timed_mutex> lock(*_delivery);
        record->active = false;
    }
    {
        std::lock_guard<std::mutex> lock(_recordsMutex);
        _records.erase(std::remove(_records.begin(), _records.end(), record), _records.end());
    }
    Wake();
}

void EventThread::Deliver(EventRecord& record, sd_bus_message* signal) {
    // Events are broadcast. Any process may send a signal that is addressed to this process alone.
    if (sd_bus_message_get_destination(signal) != nullptr) return;
    std::lock_guard<std::timed_mutex> lock(*_delivery);
    if (!record.active) return;
    try {
        if (sd_bus_message_has_signature(signal, record.signature.c_str()) <= 0) {
            throw osa::Exception("it has the wrong form");
        }
        Reader reader(signal);
        record.handler(reader);
    } catch (const std::exception& e) {
        Log().Error("%s of %s is lost: %s", record.event.c_str(), record.from.service.c_str(), e.what());
    } catch (...) {
        Log().Error("%s of %s is lost: a handler has failed", record.event.c_str(), record.from.service.c_str());
    }
}

void EventThread::BeforeFork() {
    _startMutex.lock();
    // The thread must be waiting when the process forks. The child has no such thread: a lock that the thread held, in
    // a delegate or in a library, would stay locked in the child.
    _forkAhead = true;
    _workHeldForFork = std::this_thread::get_id() != _threadId && _working->try_lock_for(kMaxDelegateTime);
    _forkAhead = false;
    _recordsMutex.lock();
    _silent->BeforeFork();  // last, because a delegate's calls take this lock, too
}

void EventThread::AfterForkInParent() {
    _silent->AfterFork();
    _recordsMutex.unlock();
    if (_workHeldForFork) _working->unlock();
    _startMutex.unlock();
}

void EventThread::AfterForkInChild() {
    _silent->AfterFork();
    for (auto* const mutex : {&_delivery, &_working}) {
        static_cast<void>(mutex->release());  // held or not
        *mutex = std::make_unique<std::timed_mutex>();
    }
    _socket.CloseInChild();
    if (_wake >= 0) close(_wake);  // still shared with the parent
    _wake = NewWakeDescriptor();
    _threadId = std::thread::id();
    if (_thread) {
        static_cast<void>(_thread.release());  // it runs in the parent only
        try {
            StartAfter(kDelayInChild);
        } catch (...) {
            _silent->SetPinger(nullptr);
            // Calls work without the thread; the next StartServer tries again.
        }
    }
    _recordsMutex.unlock();
    _startMutex.unlock();
}

}  // namespace tavos::msgbus
