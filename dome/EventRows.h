#pragma once

#include <cstdint>
#include <deque>
#include <functional>

namespace dome {

/// Events in a row that wait to be told, in the order in which they were asked for. To tell a long row takes seconds,
/// and the camera's services are to be answered meanwhile: so it is told bit by bit.
class EventRows {
public:
    static constexpr int kMostWaiting = 100000;  ///< events, of all rows together

    using Tell = std::function<void(int value)>;

    /// `count` events, the first one with the value `first`, counting up. Returns the number of the last one of them,
    /// which Told reaches when the row is at its end. Throws tavos::osa::Exception, changing nothing, for a count below
    /// 1, for more than kMostWaiting and for values that are no int any more.
    std::uint64_t Add(int first, int count, Tell tell);

    /// Tells the next ones, at most so many.
    void Work(int most);

    bool IsEmpty() const { return _rows.empty(); }

    /// How many have been told since the start, and how many have been asked for.
    std::uint64_t Told() const { return _told; }
    std::uint64_t Asked() const { return _told + static_cast<std::uint64_t>(_waiting); }

private:
    struct Row {
        int next;
        int left;
        Tell tell;
    };

    std::deque<Row> _rows;
    int _waiting = 0;
    std::uint64_t _told = 0;
};

}  // namespace dome
