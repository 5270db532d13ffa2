#pragma once

#include <atomic>
#include <chrono>
#include <thread>
#include <utility>
#include <vector>

#include "tavos/msgbus/Bus.h"
#include "tavos/msgbus/ServiceAddress.h"

namespace tavos::msgbus {

/// The remaining time for all calls of one piece of work, and the slow services that used it. It applies to the thread
/// that began the work. Calls of other threads have only their deadlines.
class WorkTime {
public:
    /// Begins the calling thread's next piece of work and ends the previous one.
    void Begin(Clock::duration limit);

    /// The remaining time. Zero or less: used up. max() on a thread that did not begin the work.
    Clock::duration Left() const;

    /// Subtracts the time of one call. `slow`: the call took longer than a healthy service needs. If this call uses up
    /// the limit, returns the service whose slow answers took the largest share, if that share is at least a quarter of
    /// the limit. Otherwise null: the work made too many calls, or the machine delayed a few.
    const ServiceAddress* Spend(const ServiceAddress& service, Clock::duration time, bool slow);

private:
    bool IsOwner() const { return _owner.load() == std::this_thread::get_id(); }
    const ServiceAddress* Slowest() const;

    std::atomic<std::thread::id> _owner{};
    Clock::duration _limit{};  // of the owner, like all members below
    Clock::duration _left{};
    std::vector<std::pair<ServiceAddress, Clock::duration>> _slowCalls;  // few, because each call is slow
};

}  // namespace tavos::msgbus
