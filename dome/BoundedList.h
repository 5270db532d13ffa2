#pragma once

#include <cstddef>
#include <deque>
#include <utility>

namespace dome {

/// Entries, oldest first. Above either limit the oldest ones are dropped. Bytes() is what an entry counts, usually the
/// octets of its texts; it must stay the same.
template <class Entry>
class BoundedList {
public:
    BoundedList(std::size_t maxCount, std::size_t maxBytes) : _maxCount(maxCount), _maxBytes(maxBytes) {}

    void Add(Entry entry) {
        _bytes += entry.Bytes();
        _entries.push_back(std::move(entry));
        while (_entries.size() > _maxCount || _bytes > _maxBytes) {
            _bytes -= _entries.front().Bytes();
            _entries.pop_front();
        }
    }

    const std::deque<Entry>& All() const { return _entries; }

private:
    const std::size_t _maxCount;
    const std::size_t _maxBytes;
    std::deque<Entry> _entries;
    std::size_t _bytes = 0;
};

}  // namespace dome
