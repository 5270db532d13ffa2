#pragma once

#include <atomic>
#include <chrono>
#include <thread>
#include <utility>
#include <vector>

#include "tavos/msgbus/Bus.h"
#include "tavos/msgbus/ServiceAddress.h"

namespace tavos::msgbus {

/// How long the calls of one piece of work may still wait, all together, and which slow services they have waited for.
/// Belongs to the thread that has begun the work; the calls of other threads have their own deadlines only.
class WorkTime {
public:
    /// The caller's next piece of work; the one before has ended.
    void Begin(Clock::duration limit);

    /// Zero or less when the time is over; max() on a thread that has begun no work.
    Clock::duration Left() const;

    /// A call has waited. `slow`: longer than a good service takes for an answer. Returns the service to blame, when
    /// the time is over with this call: the one whose slow answers have taken the max of it, if that is a quarter at
    /// least. Null otherwise: many quick answers are the work's own fault, and a slow one now and then is the
    /// machine's.
    const ServiceAddress* Spend(const ServiceAddress& service, Clock::duration time, bool slow);

private:
    bool IsOwner() const { return _owner.load() == std::this_thread::get_id(); }
    const ServiceAddress* Slowest() const;

    std::atomic<std::thread::id> _owner{};
    Clock::duration _limit{};  // the owner's, as all below
    Clock::duration _left{};
    std::vector<std::pair<ServiceAddress, Clock::duration>> _slowCalls;  // a few at most: each takes its time
};

}  // namespace tavos::msgbus
