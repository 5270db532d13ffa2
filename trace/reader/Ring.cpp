#include "trace/reader/Ring.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>
#include <tuple>
#include <utility>

#include "tavos/osa/Exception.h"

namespace trace {

using tavos::osa::Exception;

namespace {

constexpr std::chrono::seconds kMaxTimeForAgent{2};
constexpr std::chrono::milliseconds kRetryEvery{20};
constexpr std::size_t kSectionAlignment = 8;

std::uint64_t Read(const std::uint64_t& field) {
    return __atomic_load_n(&field, __ATOMIC_ACQUIRE);
}

std::size_t Padded(std::size_t length) {
    return (length + kSectionAlignment - 1) / kSectionAlignment * kSectionAlignment;
}

using Clock = std::chrono::steady_clock;

/// Waits until the descriptor (-1: none) is readable; false when the time is over. Throws once `stop` is readable.
bool AwaitInput(int descriptor, int stop, Clock::time_point until) {
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count() + 1;
        std::array<pollfd, 2> watched{{{descriptor, POLLIN, 0}, {stop, POLLIN, 0}}};
        const int ready = poll(watched.data(), watched.size(), static_cast<int>(std::max<long long>(left, 0)));
        if (ready > 0 && watched[1].revents != 0) throw Exception("the wait for the agent's trace was ended");
        if (ready > 0) return true;
        if (Clock::now() >= until) return false;
    }
}

class Connection {
public:
    Connection(const std::string& path, int stop)
        : _path(path), _stop(stop), _socket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {}
    ~Connection() {
        if (_socket >= 0) close(_socket);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void Connect() const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (_path.size() >= sizeof address.sun_path) {
            throw Exception("the trace's socket %s: the path is too long for a socket", _path.c_str());
        }
        std::memcpy(address.sun_path, _path.data(), _path.size());
        while (connect(_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            // Too many others wait for the agent. Nothing says when there is room.
            if (errno == EAGAIN && Clock::now() < _until) {
                AwaitInput(-1, _stop, std::min(_until, Clock::now() + kRetryEvery));
                continue;
            }
            const int reason = errno;
            const bool nobody = reason == ENOENT || reason == ECONNREFUSED;
            throw Exception("the trace's socket %s cannot be reached: %s%s", _path.c_str(), std::strerror(reason),
                            nobody ? "; start the agent with orvextrace" : "");
        }
    }

    /// The ring and the pipe; -1 for what has not come.
    std::pair<int, int> Receive() const {
        char octet = 0;
        iovec text{&octet, 1};
        alignas(cmsghdr) char room[CMSG_SPACE(2 * sizeof(int))] = {};
        msghdr message{};
        message.msg_iov = &text;
        message.msg_iovlen = 1;
        message.msg_control = room;
        message.msg_controllen = sizeof room;
        if (!AwaitInput(_socket, _stop, _until)) {
            throw Exception("the agent at %s does not answer within %d s; try again", _path.c_str(),
                            static_cast<int>(kMaxTimeForAgent.count()));
        }
        const ssize_t length = recvmsg(_socket, &message, MSG_CMSG_CLOEXEC);
        if (length < 0) throw Exception("the trace's socket %s: %s", _path.c_str(), std::strerror(errno));
        int descriptors[2] = {-1, -1};
        const cmsghdr* const head = length > 0 ? CMSG_FIRSTHDR(&message) : nullptr;
        if (head != nullptr && head->cmsg_level == SOL_SOCKET && head->cmsg_type == SCM_RIGHTS) {
            std::memcpy(descriptors, CMSG_DATA(head), std::min(sizeof descriptors, head->cmsg_len - CMSG_LEN(0)));
        }
        return {descriptors[0], descriptors[1]};
    }

private:
    const std::string& _path;
    const int _stop;
    const int _socket;
    const Clock::time_point _until = Clock::now() + kMaxTimeForAgent;
};

bool SectionsFit(const std::vector<std::byte>& record) {
    std::size_t at = sizeof(RecordHead);
    while (at < record.size()) {
        SectionHead head;
        if (record.size() - at < sizeof head) return false;
        std::memcpy(&head, record.data() + at, sizeof head);
        if (record.size() - at - sizeof head < Padded(head.length)) return false;
        at += sizeof head + Padded(head.length);
    }
    return true;
}

}  // namespace

RingReader::RingReader(const std::string& socketPath, int stop) : _name(socketPath) {
    const Connection connection(socketPath, stop);
    connection.Connect();
    std::tie(_memory, _life) = connection.Receive();
    try {
        if (_memory < 0) throw Exception("the agent at %s hangs up without a trace; try again", socketPath.c_str());
        Map();
    } catch (...) {
        Release();
        throw;
    }
}

RingReader::RingReader(int memory, int life, const std::string& name) : _name(name), _memory(memory), _life(life) {
    try {
        Map();
    } catch (...) {
        Release();
        throw;
    }
}

RingReader::~RingReader() {
    Release();
}

void RingReader::Release() {
    if (_header != nullptr) munmap(const_cast<RingHeader*>(_header), kPageSize + _capacity);
    if (_memory >= 0) close(_memory);
    if (_life >= 0) close(_life);
    _header = nullptr;
    _memory = _life = -1;
}

void RingReader::Map() {
    struct stat status {};
    // Memory that its owner can shrink would end this process when it is read.
    const int seals = fcntl(_memory, F_GET_SEALS);
    if (fstat(_memory, &status) != 0 || seals < 0 || (seals & F_SEAL_SHRINK) == 0) {
        throw Exception("what %s offers is no trace", _name.c_str());
    }
    const auto size = static_cast<std::uint64_t>(status.st_size);
    // A 32-bit process would map only the rest of what is above 4 GiB.
    const bool fits = size >= kPageSize + sizeof(RecordHead) && size <= std::numeric_limits<std::size_t>::max();
    if (!fits) throw Exception("what %s offers is no trace", _name.c_str());
    void* const mapped = mmap(nullptr, size, PROT_READ, MAP_SHARED, _memory, 0);
    if (mapped == MAP_FAILED)
        throw Exception("the trace of %s cannot be mapped: %s", _name.c_str(), std::strerror(errno));
    _header = static_cast<const RingHeader*>(mapped);
    _data = static_cast<const std::byte*>(mapped) + kPageSize;
    _capacity = size - kPageSize;
    if (Read(_header->magic) != kMagic || _header->capacity != _capacity || _capacity % 8 != 0) {
        throw Exception("the trace of %s has another form than this program reads; use programs of one version",
                        _name.c_str());
    }
    SkipToEnd();
    // The oldest record's number: from there on losses count.
    for (;;) {
        const std::uint64_t begin = Read(_header->begin);
        if (begin >= Read(_header->end)) return;
        RecordHead head;
        CopyOut(begin, reinterpret_cast<std::byte*>(&head), sizeof head);
        std::atomic_thread_fence(std::memory_order_acquire);
        if (Read(_header->begin) > begin) continue;
        _next = begin;
        _nextNumber = head.number;
        return;
    }
}

void RingReader::CopyOut(std::uint64_t from, std::byte* to, std::size_t length) const {
    const std::uint64_t start = from % _capacity;
    const std::size_t first = std::min<std::uint64_t>(length, _capacity - start);
    std::memcpy(to, _data + start, first);
    std::memcpy(to + first, _data, length - first);
}

void RingReader::SkipToEnd() {
    std::uint64_t number = 0;
    do {
        number = Read(_header->nextNumber);
        _next = Read(_header->end);
    } while (Read(_header->nextNumber) != number);
    _nextNumber = number;
}

/// False: the writer has overtaken this reader meanwhile.
bool RingReader::Copy(std::vector<std::byte>& record, std::uint64_t end) {
    std::uint32_t length = 0;
    CopyOut(_next, reinterpret_cast<std::byte*>(&length), sizeof length);
    const bool possible = length >= sizeof(RecordHead) && length <= kMaxRecord && length <= _capacity &&
                          length % 8 == 0 && length <= end - _next;
    if (possible) {
        record.resize(length);
        CopyOut(_next, record.data(), length);
    }
    std::atomic_thread_fence(std::memory_order_acquire);
    if (Read(_header->begin) > _next) return false;
    // The length may have been overwritten between the two copies.
    if (!possible || HeadOf(record).length != length || !SectionsFit(record)) {
        SkipToEnd();
        throw Exception("the trace of %s is broken: a record has an impossible length", _name.c_str());
    }
    return true;
}

bool RingReader::Next(std::vector<std::byte>& record) {
    for (;;) {
        const std::uint64_t end = Read(_header->end);
        _next = std::max(_next, Read(_header->begin));
        if (_next == end) return false;
        if (_next > end) {
            // `begin` may have passed the `end` that was read before it.
            if (_next <= Read(_header->end)) continue;
            SkipToEnd();
            throw Exception("the trace of %s is broken: it begins behind its end", _name.c_str());
        }
        if (!Copy(record, end)) continue;
        const RecordHead head = HeadOf(record);
        if (head.number > _nextNumber) _lost += head.number - _nextNumber;
        _nextNumber = head.number + 1;
        _next += head.length;
        return true;
    }
}

RingFacts RingReader::Facts() const {
    RingFacts facts;
    facts.capacity = _capacity;
    facts.nextNumber = Read(_header->nextNumber);
    facts.cut = Read(_header->cut);
    facts.started = _header->started;
    facts.agentPid = __atomic_load_n(&_header->agentPid, __ATOMIC_RELAXED);
    return facts;
}

bool RingReader::AgentIsGone() const {
    if (_life < 0) return kill(Facts().agentPid, 0) != 0 && errno == ESRCH;
    pollfd life{_life, 0, 0};
    return poll(&life, 1, 0) > 0 && (life.revents & (POLLHUP | POLLERR)) != 0;
}

RecordHead HeadOf(const std::vector<std::byte>& record) {
    RecordHead head;
    std::memcpy(&head, record.data(), sizeof head);
    return head;
}

std::vector<SectionView> SectionsOf(const std::vector<std::byte>& record) {
    std::vector<SectionView> sections;
    for (std::size_t at = sizeof(RecordHead); at < record.size();) {
        SectionHead head;
        std::memcpy(&head, record.data() + at, sizeof head);
        sections.push_back({static_cast<Section>(head.kind), record.data() + at + sizeof head, head.length});
        at += sizeof head + Padded(head.length);
    }
    return sections;
}

}  // namespace trace
