#pragma once

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "tavos/msgbus/CallObserver.h"
#include "trace/agent/Door.h"
#include "trace/agent/NetSnmp.h"
#include "trace/agent/PeerNames.h"
#include "trace/agent/RecordBuilder.h"
#include "trace/agent/RingWriter.h"
#include "trace/agent/StreamOctets.h"
#include "trace/agent/Transports.h"

namespace trace {

/// Watches the agent and writes a record of each request and trap. It begins a record when a message arrives, adds what
/// the agent's callbacks and the platform's calls show, and ends it with the answer; without one, when the main loop's
/// turn ends: then the agent has dropped the message, or somebody else answers it (AgentX, a proxy) and the record
/// waits aside. The agent's thread only. There is one for the process, which lives as long as it; the ring and its
/// socket survive a reload.
class Companion final : TransportWatcher {
public:
    static Companion& Instance();

    /// Begins to watch. What fails is logged in one line; the agent goes on without the trace.
    void Start() noexcept;
    /// Ends to watch: finishes what is open, and leaves the agent as it was.
    void Stop() noexcept;

    Companion(const Companion&) = delete;
    Companion& operator=(const Companion&) = delete;

private:
    /// A request that somebody else is to answer.
    struct Waiting {
        long transaction;
        std::int64_t start;
        std::size_t length;
        std::byte* record;
    };

    static constexpr std::size_t kMaxWaiting = 16;
    static constexpr std::uint32_t kMaxNamesRefused = 64;

    Companion() = default;
    ~Companion() = default;

    struct Callback;
    static const Callback kCallbacks[];
    static int OnConfigured(int, int, void*, void*);
    static int OnRequestChecked(int, int, void* checked, void*);
    static int OnNameChecked(int, int, void* checked, void*);
    static int OnTrap(int, int minor, void* pdu, void*);
    static int OnTrapSent(int, int minor, void*, void*);

    bool OpenRing();
    void RegisterCallbacks() noexcept;
    void UnregisterCallbacks() noexcept;
    void LookAround() noexcept;

    void Received(netsnmp_transport& transport, const void* octets, int length, void* from,
                  int fromLength) noexcept override;
    void Sent(netsnmp_transport& transport, const netsnmp_pdu* pdu, const void* octets, int length, void* to,
              int toLength, bool sent) noexcept override;

    void BeginRequest(const void* octets, std::size_t length) noexcept;
    bool BeginNext() noexcept;
    bool FindMessageOf(const netsnmp_pdu& pdu) noexcept;
    void EndRequest() noexcept;
    void SettleRequest() noexcept;
    void SettleRequests() noexcept;
    void Answered(RecordBuilder& record, const netsnmp_pdu& pdu, const void* octets, int length, bool sent) noexcept;
    bool AnswersRequest(const netsnmp_pdu& pdu) const noexcept;

    bool PutAside() noexcept;
    void AnswerWaiting(const netsnmp_pdu& pdu, const void* octets, int length, bool sent) noexcept;
    void EndWaiting(Waiting& waiting, std::uint32_t flags) noexcept;
    void EndWaitingBefore(std::int64_t start, std::uint32_t flags) noexcept;

    void BeginTrap() noexcept;
    void EndTrap() noexcept;
    void AddReceiver(netsnmp_transport& transport, const void* octets, int length, void* to, int toLength,
                     bool sent) noexcept;
    void WriteTraps(std::uint64_t cause) noexcept;

    void CheckedRequest(const view_parameters& checked) noexcept;
    void CheckedName(const view_parameters& checked) noexcept;
    void TrapBegins(int minor, const netsnmp_pdu& pdu) noexcept;
    void TrapEnds(int minor) noexcept;
    void Called(const tavos::msgbus::ObservedCall& call) noexcept;

    void Arm(bool now) noexcept;
    void DisarmIfDone() noexcept;
    void Disarm() noexcept;
    void TurnEnds() noexcept;

    RingWriter _ring;
    Door _door;
    PeerNames _peers;
    std::atomic<bool> _on{false};      // other threads' calls are observed, too
    bool _looked = false;              // since the start, in the main loop
    std::atomic<pthread_t> _thread{};  // the agent's
    unsigned int _alarm = 0;
    std::uint32_t _alarms = 0;  // registered so far
    bool _alarmIsNow = false;   // or it comes within a second

    RecordBuilder _request;
    /// The library gives each message that it parses a number of its own, which the agent's copies of it keep; the
    /// answer to a request that fails is another copy than the one that was checked.
    long _transaction = 0;
    bool _parsed = false;
    bool _allowed = false;    // the agent began to work on it
    std::int64_t _start = 0;  // steady, in nanoseconds
    std::uint32_t _namesRefused = 0;

    /// Of what was received last.
    const oid* _domain = nullptr;
    std::int64_t _arrival = 0;  // nanoseconds since 1970
    std::int64_t _arrivalSteady = 0;
    char _peer[256];
    std::size_t _peerLength = 0;
    StreamOctets _streams;
    StreamOctets::Octets _message;  // of the open request, when it came by a connection

    RecordBuilder _trap;
    unsigned _trapCallbacks = 0;   // the kinds of callback seen for the open trap
    std::byte _traps[kMaxRecord];  // of the open request: written after it, because they state its number
    std::size_t _trapsLength = 0;

    RecordBuilder _late;  // of a request that waited aside
    Waiting _waiting[kMaxWaiting] = {};
    std::size_t _waitingCount = 0;
};

}  // namespace trace
