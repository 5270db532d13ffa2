#pragma once

#include <atomic>
#include <chrono>
#include <thread>
#include <utility>
#include <vector>

#include "tavos/msgbus/Bus.h"
#include "tavos/msgbus/ServiceAddress.h"

namespace tavos::msgbus {

/// The time that is left to the calls of one piece of work together, and the slow services that used it. Belongs to the
/// thread that began the work; calls of other threads have only their deadlines.
class WorkTime {
public:
    /// Begins the calling thread's next piece of work and ends the one before.
    void Begin(Clock::duration limit);

    /// Zero or less when the time is used up; max() on a thread that has begun no work.
    Clock::duration Left() const;

    /// Counts the time of one call. `slow`: longer than a healthy service takes to answer. When this call uses up the
    /// limit, returns the service whose slow answers took the largest share, if that is at least a quarter of the
    /// limit. Otherwise null: the work asked for too many answers, or the machine delayed a few.
    const ServiceAddress* Spend(const ServiceAddress& service, Clock::duration time, bool slow);

private:
    bool IsOwner() const { return _owner.load() == std::this_thread::get_id(); }
    const ServiceAddress* Slowest() const;

    std::atomic<std::thread::id> _owner{};
    Clock::duration _limit{};  // of the owner, as all members below
    Clock::duration _left{};
    std::vector<std::pair<ServiceAddress, Clock::duration>> _slowCalls;  // few, because each call is slow
};

}  // namespace tavos::msgbus
