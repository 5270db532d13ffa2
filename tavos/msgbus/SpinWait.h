#pragma once

#include <sched.h>

#include <algorithm>
#include <chrono>
#include <optional>

namespace tavos::msgbus {

using Clock = std::chrono::steady_clock;

/// Lets failed spins take at most 1/kTimes of the time, whoever shares the pause. Each failed spin costs kTimes its
/// length without spins. The time since earlier ones pays for it first, at most kSaved; only the rest is a pause. So a
/// rare failed spin causes none. One thread at a time.
class SpinPause {
public:
    static constexpr int kTimes = 32;
    static constexpr std::chrono::milliseconds kSaved{100};
    static constexpr std::chrono::milliseconds kMaxCounted{10};  ///< of a spin: its process may have been stopped

    bool IsOver(Clock::time_point now) const { return now >= _end; }
    void Failed(Clock::time_point now, Clock::duration spin) {
        _end = std::max(_end, now - kSaved) + kTimes * std::min<Clock::duration>(spin, kMaxCounted);
    }

private:
    Clock::time_point _end{};
};

/// Waits for something that is expected within microseconds. A wait first spins: it asks again and again, and in
/// between offers the processor to other processes. Only then it sleeps. To wake a process that sleeps on another
/// processor takes longer than a service takes to answer. A wait spins only if the one before was short. One thread at
/// a time.
class SpinWait {
public:
    static constexpr std::chrono::microseconds kMaxSpin{100};
    static constexpr std::chrono::microseconds kShort{200};  ///< most of a short wait with sleep is the waking

    /// Null: all waits sleep. `pause` must outlive the object.
    explicit SpinWait(SpinPause* pause) : _pause(pause) {}

    /// False with TAVOS_BUS_SPIN=off, or if this thread may use one processor only: the other side could not work
    /// meanwhile.
    static bool IsWanted();

    /// Spins, at the longest until `until`; then sleeps. Returns when `isReady` returns true, or else when `sleep`
    /// returns.
    template <typename IsReady, typename Sleep>
    void Wait(Clock::time_point until, IsReady isReady, Sleep sleep) {
        if (_pause == nullptr) return sleep();
        const auto start = Clock::now();
        const auto spun = Spins(start) ? Spin(start, std::min(until, start + kMaxSpin), isReady) : std::nullopt;
        if (!spun) sleep();
        Waited((spun ? *spun : Clock::now()) - start);
    }

    /// A wait of which nobody expects that it is short.
    template <typename SleepUntilWoken>
    void Sleep(SleepUntilWoken sleep) {
        const auto start = Clock::now();
        sleep();
        Waited(Clock::now() - start);
    }

    // What Wait decides by.

    /// True if a wait that starts now is to spin.
    bool Spins(Clock::time_point now) const { return _wasShort && _pause->IsOver(now); }

    /// A spin that took kMaxSpin has failed, even if something is ready then: others may have had the processor for
    /// long.
    void Spun(Clock::time_point start, Clock::time_point end) {
        if (end - start >= kMaxSpin) _pause->Failed(end, end - start);
    }

    void Waited(Clock::duration time) { _wasShort = time < kShort; }

private:
    /// The time when it was ready, if it was.
    template <typename IsReady>
    std::optional<Clock::time_point> Spin(Clock::time_point start, Clock::time_point until, IsReady isReady) {
        for (;;) {
            const bool ready = isReady();
            const auto now = Clock::now();
            if (ready || now >= until) {
                Spun(start, now);
                return ready ? std::optional(now) : std::nullopt;
            }
            sched_yield();
        }
    }

    SpinPause* _pause;
    bool _wasShort = false;  // the last wait
};

}  // namespace tavos::msgbus
