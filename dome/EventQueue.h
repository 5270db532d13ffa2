#pragma once

#include <cstdint>
#include <deque>
#include <functional>

namespace dome {

/// A queue of event series, in the order of the requests. A long series takes seconds, and the camera must answer
/// service calls meanwhile. So each call of Work emits only a few events.
class EventQueue {
public:
    static constexpr int kMaxWaiting = 100000;  ///< events, all series together

    using Emit = std::function<void(int value)>;

    /// Queues `count` events whose values count up from `first`. Returns the number of the last one: the series is done
    /// when Emitted reaches it. Throws tavos::osa::Exception, changing nothing, for a count below 1, for more than
    /// kMaxWaiting waiting events, and for values above an int's max.
    std::uint64_t Add(int first, int count, Emit emit);

    /// Emits the next events, at most `max`.
    void Work(int max);

    bool IsEmpty() const { return _series.empty(); }

    /// Events emitted, and events requested, since the start.
    std::uint64_t Emitted() const { return _emitted; }
    std::uint64_t Requested() const { return _emitted + static_cast<std::uint64_t>(_waiting); }

private:
    struct Series {
        int next;
        int left;
        Emit emit;
    };

    std::deque<Series> _series;
    int _waiting = 0;
    std::uint64_t _emitted = 0;
};

}  // namespace dome
