#pragma once

#include <sched.h>

#include <chrono>

namespace tavos::msgbus {

using Clock = std::chrono::steady_clock;

/// A wait for something that is expected within microseconds: it first asks again and again, and sleeps only then. To
/// wake a process that sleeps on another processor takes longer than a service takes to answer. Between two questions
/// it offers its processor to others. It spins only if the wait before was short, and pauses after each spin in vain:
/// these take at most 1/kPause of the time. One thread.
class SpinWait {
public:
    static constexpr std::chrono::microseconds kMaxSpin{100};
    static constexpr std::chrono::microseconds kShort{200};  ///< a short wait with sleep; most of it is the waking
    static constexpr int kPause = 32;                        ///< times the spin in vain

    /// `isOn` false: it always sleeps.
    explicit SpinWait(bool isOn) : _isOn(isOn) {}

    /// False with TAVOS_BUS_SPIN=off, or if this process may use one processor only: the other side could not work
    /// meanwhile. Any other word than "on" is an Error line.
    static bool IsWanted();

    /// Returns when `isReady` returns true, or else when `sleep` returns.
    template <typename IsReady, typename Sleep>
    void Wait(IsReady isReady, Sleep sleep) {
        if (!_isOn) return sleep();
        const auto start = Clock::now();
        if (Spins(start)) {
            bool ready = false;
            while (!(ready = isReady()) && Clock::now() - start < kMaxSpin) sched_yield();
            Spun(start, Clock::now());
            if (ready) return;
        }
        sleep();
        Slept(start, Clock::now());
    }

    // What Wait decides by.

    /// True if a wait that starts now is to spin.
    bool Spins(Clock::time_point now) const { return _wasShort && now >= _pauseEnd; }

    /// A spin is in vain after kMaxSpin, even if something is ready then: another process had the processor for long.
    void Spun(Clock::time_point start, Clock::time_point end) {
        if (end - start >= kMaxSpin) _pauseEnd = end + kPause * (end - start);
    }

    void Slept(Clock::time_point start, Clock::time_point end) { _wasShort = end - start < kShort; }

private:
    bool _isOn;
    bool _wasShort = false;  // the last wait
    Clock::time_point _pauseEnd{};
};

}  // namespace tavos::msgbus
