#pragma once

#include <cstddef>
#include <cstdint>

#include "trace/Format.h"

namespace trace {

/// Puts one record together in a buffer of its own, without allocating. A section that does not fit is left out whole,
/// and the record is marked as cut.
class RecordBuilder {
public:
    /// Forgets what there was. `time` in nanoseconds since 1970.
    void Begin(RecordKind kind, std::int64_t time) noexcept;
    /// Goes on with a record that was copied from Data.
    void Load(const std::byte* record, std::size_t length) noexcept;
    bool IsOpen() const noexcept { return _open; }
    /// The record's octets: the buffer stays, the record is closed.
    std::byte* Finish() noexcept;

    RecordHead& Head() noexcept { return *reinterpret_cast<RecordHead*>(_data); }
    const std::byte* Data() const noexcept { return _data; }
    std::size_t Length() const noexcept { return _length; }

    void Add(Section kind, const void* contents, std::size_t length) noexcept;

    /// For contents in pieces: one Open, any number of Put, one Close.
    void Open(Section kind) noexcept;
    void Put(const void* octets, std::size_t length) noexcept;
    /// Zeros, until the contents' length is a multiple of `multiple`.
    void Pad(std::size_t multiple) noexcept;
    void Close() noexcept;

private:
    alignas(8) std::byte _data[kMaxRecord];
    std::size_t _length = 0;
    std::size_t _section = 0;  // where the open one starts
    bool _fits = true;         // the open one, so far
    bool _open = false;
};

}  // namespace trace
