#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "trace/Format.h"

namespace trace {

/// What the ring's first page says. `nextNumber` and `cut` grow meanwhile: ask again.
struct RingFacts {
    std::uint64_t capacity = 0;    ///< octets
    std::uint64_t nextNumber = 1;  ///< the number of the next record that the agent will write
    std::uint64_t cut = 0;         ///< records that have lost sections because they were too long
    std::int64_t started = 0;      ///< nanoseconds since 1970
    std::int32_t agentPid = 0;
};

/// Reads the records of one agent, from the oldest that its ring still holds. The agent neither knows nor waits for its
/// readers: who is too slow is overtaken and loses records. Nothing announces a new record; poll, 10 times a second for
/// instance. One thread at a time. A descriptor that the process inherits or passes on is closed on exec.
class RingReader {
public:
    /// Connects to the agent and maps its ring, read-only. Waits up to 2 seconds for an agent that is busy, and no
    /// longer once the descriptor `stop` is readable (-1: none). Throws tavos::osa::Exception with one line: what
    /// failed, on which path, and what to do.
    explicit RingReader(const std::string& socketPath, int stop = -1);
    /// Takes over `memory` (the ring) and `life` (a pipe that the agent keeps open, or -1 for none), also when it
    /// throws; `name` is for the texts of errors. For tests, and for descriptors that came another way.
    RingReader(int memory, int life, const std::string& name);
    RingReader(const RingReader&) = delete;
    RingReader& operator=(const RingReader&) = delete;
    ~RingReader();

    /// Copies the oldest unread record: true. False: there is none now. `record` begins with a RecordHead and has the
    /// length that it states; all its sections are inside. Throws tavos::osa::Exception when the ring's contents are
    /// broken, std::bad_alloc without memory; the next call then goes on with records that are written from now on.
    bool Next(std::vector<std::byte>& record);

    /// Goes on with the records that are written from now on. What is skipped does not count as lost.
    void SkipToEnd();

    /// Records that were overwritten before this reader could copy them, since it was made. What had left the ring
    /// before that does not count: the first record's number says how many there were.
    std::uint64_t Lost() const { return _lost; }

    RingFacts Facts() const;

    /// True when the agent has ended, or has let go of this ring. What the ring holds can still be read. A new agent
    /// has a new ring, whose numbers begin at 1: connect again. Over a reload of its configuration an agent keeps its
    /// ring.
    bool AgentIsGone() const;

private:
    void Map();
    void Release();
    bool Copy(std::vector<std::byte>& record, std::uint64_t end);
    void CopyOut(std::uint64_t from, std::byte* to, std::size_t length) const;

    std::string _name;
    int _memory = -1;
    int _life = -1;
    const RingHeader* _header = nullptr;
    const std::byte* _data = nullptr;
    std::uint64_t _capacity = 0;
    std::uint64_t _next = 0;  // octets since the ring was made
    std::uint64_t _nextNumber = 1;
    std::uint64_t _lost = 0;
};

/// One section of a record.
struct SectionView {
    Section kind{};
    const std::byte* data = nullptr;
    std::size_t length = 0;
};

/// A record's head, copied.
RecordHead HeadOf(const std::vector<std::byte>& record);

/// A record's sections in their order; they point into `record`. Those of unknown kinds are there, too: skip them.
std::vector<SectionView> SectionsOf(const std::vector<std::byte>& record);

}  // namespace trace
