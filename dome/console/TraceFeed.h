#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "Agent.h"
#include "AgentProbe.h"
#include "Handover.h"
#include "trace/reader/Story.h"

namespace dome::console {

/// Where the trace comes from.
struct TraceSource {
    std::string socket;         ///< the companion's, in the agent
    std::string configuration;  ///< the agent's snmpd.conf, with the communities' names
};

/// The trace for browsers. A thread of its own reads the agent's records and the camera's history when a browser asks,
/// at most five times a second. It sleeps while nobody asks, and after half a minute forgets what it has read. Leaves
/// out the answered requests of the page's own probe, which would fill it while nothing happens.
class TraceFeed {
public:
    static constexpr std::size_t kMaxRecords = 10000;
    static constexpr std::size_t kMaxText = 32 * 1024 * 1024;  ///< octets of all records and their messages
    static constexpr std::size_t kMaxAnswer = 256 * 1024;      ///< octets; one larger record is sent alone
    static constexpr std::size_t kMaxWaiting = 64;

    /// `agent` is the one that the page's probe asks. `history` answers what `domectl history --since N` prints; it is
    /// called on the camera's thread, and throws when it cannot. `handover` must outlive this.
    TraceFeed(TraceSource source, Agent agent, Handover& handover, std::function<std::string(std::uint64_t)> history);
    ~TraceFeed();
    TraceFeed(const TraceFeed&) = delete;
    TraceFeed& operator=(const TraceFeed&) = delete;

    enum class Part { kRecords, kPackets };

    /// What comes after the record number `since`. Each record gets the next number, from 1.
    struct Question {
        Part part;
        std::uint64_t since;
        std::function<void(Reply)> finished;  ///< called on the feed's thread with the answer in docs/console.md
    };

    /// False when too many questions wait, or after Stop. Any thread may call it.
    bool Ask(Question question);

    /// Makes the thread end, whatever it waits for; what waits for it stays unanswered. Any thread may call it.
    void BeginStop();

    /// BeginStop, and waits until the thread has ended. Any thread but the feed's may call it.
    void Stop();

private:
    using Clock = std::chrono::steady_clock;
    struct Shared;
    struct Reading;

    void Run();
    void Finish(const Question& question) noexcept;
    void Read();
    std::string ReadCamera();
    Reply AskCamera(std::uint64_t change);
    bool IsOwn(const trace::Entry& entry) const;
    void Keep(trace::Entry entry);
    Reply After(const Question& question) const;

    const TraceSource _source;
    const std::string _agentAddress;
    const ProbeMessages _probes;
    Handover& _handover;
    const std::function<std::string(std::uint64_t)> _history;
    const std::shared_ptr<Shared> _shared;  // the camera's thread may answer after the end
    // Only the feed's thread uses these.
    std::unique_ptr<Reading> _reading;  // null: nobody asks
    std::thread _thread;
};

}  // namespace dome::console
