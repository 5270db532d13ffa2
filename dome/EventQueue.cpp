#include "EventQueue.h"

#include <limits>
#include <utility>

#include "tavos/osa/Exception.h"

namespace dome {

using tavos::osa::Exception;

std::uint64_t EventQueue::Add(int first, int count, Emit emit) {
    if (count < 1 || count > kMaxWaiting)
        throw Exception("a count of %d events is outside 1 to %d", count, kMaxWaiting);
    if (count > kMaxWaiting - _waiting) throw Exception("%d events are still waiting; try again later", _waiting);
    if (first > std::numeric_limits<int>::max() - (count - 1)) {
        throw Exception("%d events from %d on end above %d", count, first, std::numeric_limits<int>::max());
    }
    _series.push_back({first, count, std::move(emit)});
    _waiting += count;
    return Requested();
}

void EventQueue::Work(int max) {
    for (; max > 0 && !_series.empty(); --max) {
        Series& series = _series.front();
        series.emit(series.next);
        ++_emitted;
        --_waiting;
        if (--series.left == 0) {
            _series.pop_front();
        } else {
            ++series.next;
        }
    }
}

}  // namespace dome
