#include "EventRows.h"

#include <limits>
#include <utility>

#include "tavos/osa/Exception.h"

namespace dome {

using tavos::osa::Exception;

std::uint64_t EventRows::Add(int first, int count, Tell tell) {
    if (count < 1 || count > kMostWaiting) throw Exception("%d events: 1 to %d can be had", count, kMostWaiting);
    if (count > kMostWaiting - _waiting) throw Exception("%d events still wait to be told", _waiting);
    if (first > std::numeric_limits<int>::max() - (count - 1)) {
        throw Exception("%d events from %d on end above %d", count, first, std::numeric_limits<int>::max());
    }
    _rows.push_back({first, count, std::move(tell)});
    _waiting += count;
    return Asked();
}

void EventRows::Work(int most) {
    for (; most > 0 && !_rows.empty(); --most) {
        Row& row = _rows.front();
        row.tell(row.next);
        ++_told;
        --_waiting;
        if (--row.left == 0) {
            _rows.pop_front();
        } else {
            ++row.next;
        }
    }
}

}  // namespace dome
