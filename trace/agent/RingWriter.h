#pragma once

#include <cstddef>
#include <cstdint>

#include "trace/Format.h"

namespace trace {

/// The ring in shared memory, written by one thread. Readers can neither change nor shrink it. No function throws or
/// waits for a reader; after Open none allocates.
class RingWriter {
public:
    RingWriter() = default;
    ~RingWriter();
    RingWriter(const RingWriter&) = delete;
    RingWriter& operator=(const RingWriter&) = delete;

    /// `capacity` in octets: a multiple of 8, at least kMaxRecord. Takes all the memory at once: the agent would end if
    /// a page were missing later. False: errno says why, nothing is left open.
    bool Open(std::uint64_t capacity) noexcept;
    bool IsOpen() const noexcept { return _header != nullptr; }

    /// What readers map: a descriptor that allows no writing. -1 when not open.
    int Descriptor() const noexcept { return _shown; }

    /// States the process that writes; a forked child states itself.
    void SetAgentPid(std::int32_t pid) noexcept;

    /// Appends the record that begins at `record` with its RecordHead and overwrites the oldest ones if there is no
    /// room. Fills in the number and returns it; 0 when not open, or when the length is none that the layout allows.
    std::uint64_t Append(std::byte* record) noexcept;

private:
    void Close() noexcept;
    void MakeRoom(std::uint32_t length) noexcept;
    void CopyIn(std::uint64_t at, const std::byte* from, std::size_t length) noexcept;

    int _memory = -1;
    int _shown = -1;
    RingHeader* _header = nullptr;
    std::byte* _data = nullptr;
    std::uint64_t _capacity = 0;
    std::uint64_t _begin = 0;
    std::uint64_t _end = 0;
    std::uint64_t _nextNumber = 1;
    std::uint64_t _cut = 0;
};

}  // namespace trace
