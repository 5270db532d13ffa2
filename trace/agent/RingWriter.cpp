#include "trace/agent/RingWriter.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace trace {

namespace {

#ifndef F_SEAL_FUTURE_WRITE
constexpr int F_SEAL_FUTURE_WRITE = 0x0010;
#endif

/// A descriptor of the same memory that was opened for reading only.
int OpenForReading(int memory) noexcept {
    char name[40];
    std::snprintf(name, sizeof name, "/proc/self/fd/%d", memory);
    return open(name, O_RDONLY | O_CLOEXEC);
}

/// A file beyond the process's limit would raise SIGXFSZ, which ends the agent.
bool MayBeAsLargeAs(std::uint64_t size) noexcept {
    rlimit limit{};
    if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || size <= limit.rlim_cur) return true;
    errno = EFBIG;
    return false;
}

std::int64_t NanosecondsSince1970() noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

}  // namespace

RingWriter::~RingWriter() {
    Close();
}

void RingWriter::Close() noexcept {
    const int reason = errno;
    if (_header != nullptr) munmap(_header, kPageSize + _capacity);
    if (_shown >= 0 && _shown != _memory) close(_shown);
    if (_memory >= 0) close(_memory);
    _header = nullptr;
    _memory = _shown = -1;
    errno = reason;
}

bool RingWriter::Open(std::uint64_t capacity) noexcept {
    const std::uint64_t size = kPageSize + capacity;
    _capacity = capacity;
    _memory = memfd_create("orvextrace", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (_memory < 0) return false;
    void* mapped = MAP_FAILED;
    if (MayBeAsLargeAs(size) && fallocate(_memory, 0, 0, static_cast<off_t>(size)) == 0) {
        mapped = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, _memory, 0);
    }
    if (mapped == MAP_FAILED) {
        Close();
        return false;
    }
    _header = static_cast<RingHeader*>(mapped);
    _data = static_cast<std::byte*>(mapped) + kPageSize;
    // Whoever could shrink the memory could end the agent by that.
    if (fcntl(_memory, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW) != 0) {
        Close();
        return false;
    }
    // Kernels before 5.1 cannot seal against later writers; a descriptor for reading serves as well.
    const bool sealed = fcntl(_memory, F_ADD_SEALS, F_SEAL_FUTURE_WRITE) == 0;
    _shown = sealed ? _memory : OpenForReading(_memory);
    if (_shown < 0) {
        Close();
        return false;
    }
    _begin = _end = _cut = 0;
    _nextNumber = 1;
    _header->capacity = capacity;
    _header->nextNumber = 1;
    _header->started = NanosecondsSince1970();
    _header->agentPid = getpid();
    __atomic_store_n(&_header->magic, kMagic, __ATOMIC_RELEASE);
    return true;
}

void RingWriter::SetAgentPid(std::int32_t pid) noexcept {
    if (_header != nullptr) __atomic_store_n(&_header->agentPid, pid, __ATOMIC_RELAXED);
}

void RingWriter::CopyIn(std::uint64_t at, const std::byte* from, std::size_t length) noexcept {
    const std::uint64_t start = at % _capacity;
    const std::size_t first = std::min<std::uint64_t>(length, _capacity - start);
    std::memcpy(_data + start, from, first);
    std::memcpy(_data, from + first, length - first);
}

void RingWriter::MakeRoom(std::uint32_t length) noexcept {
    const std::uint64_t before = _begin;
    while (_end + length - _begin > _capacity) {
        std::uint32_t oldest = 0;
        std::memcpy(&oldest, _data + _begin % _capacity, sizeof oldest);  // records are 8-aligned: it lies in one piece
        if (oldest < sizeof(RecordHead) || oldest > _end - _begin) {
            _begin = _end;  // only a fault of the memory leads here; without the check it would be an endless loop
            break;
        }
        _begin += oldest;
    }
    if (_begin == before) return;
    __atomic_store_n(&_header->begin, _begin, __ATOMIC_RELAXED);
    // Whoever sees a part of the new record must see that the old one is no longer there.
    std::atomic_thread_fence(std::memory_order_release);
}

std::uint64_t RingWriter::Append(std::byte* record) noexcept {
    RecordHead head;
    std::memcpy(&head, record, sizeof head);
    if (!IsOpen() || head.length < sizeof head || head.length > kMaxRecord || head.length % 8 != 0) return 0;
    head.number = _nextNumber++;
    std::memcpy(record, &head, sizeof head);
    MakeRoom(head.length);
    CopyIn(_end, record, head.length);
    _end += head.length;
    if ((head.flags & kCut) != 0) __atomic_store_n(&_header->cut, ++_cut, __ATOMIC_RELAXED);
    // Before `end`: a reader that starts at the end must not expect a number that this record has already.
    __atomic_store_n(&_header->nextNumber, _nextNumber, __ATOMIC_RELEASE);
    __atomic_store_n(&_header->end, _end, __ATOMIC_RELEASE);
    return head.number;
}

}  // namespace trace
