#include "trace/agent/Companion.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <new>
#include <string>

#include "trace/agent/CallTap.h"
#include "trace/agent/LibraryAlarm.h"
#include "trace/agent/PduSection.h"

namespace trace {

namespace {

constexpr std::uint64_t kDefaultKib = 8192;
constexpr std::uint64_t kMinKib = 256;
constexpr std::uint64_t kMaxKib = 1048576;
/// Longer than the retries of AgentX and of a proxy.
constexpr std::int64_t kMaxWait = 30'000'000'000;

constexpr unsigned kTrap1Seen = 1;
constexpr unsigned kTrap2Seen = 2;

std::int64_t Now(clockid_t clock) noexcept {
    timespec now{};
    clock_gettime(clock, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

std::int64_t Steady() noexcept {
    return Now(CLOCK_MONOTONIC);
}

std::int64_t MicrosecondsSince(std::int64_t start) noexcept {
    return (Steady() - start) / 1000;
}

/// The ring's size in KiB: ORVEX_TRACE_KIB, or the default.
std::uint64_t ConfiguredKib() {
    const char* const text = std::getenv("ORVEX_TRACE_KIB");
    if (text == nullptr || *text == '\0') return kDefaultKib;
    std::uint64_t kib = 0;
    const char* const end = text + std::strlen(text);
    const auto [rest, error] = std::from_chars(text, end, kib);
    if (error == std::errc() && rest == end && kib >= kMinKib && kib <= kMaxKib) return kib;
    snmp_log(LOG_ERR, "orvextrace: ORVEX_TRACE_KIB is \"%.40s\", must be 256 to 1048576: the trace keeps 8192 KiB\n",
             text);
    return kDefaultKib;
}

std::uint16_t ShortLength(const char* text) noexcept {
    return static_cast<std::uint16_t>(std::min<std::size_t>(std::strlen(text), 0xFFFF));
}

/// Arguments longer than any of this system's: a call must not take the whole record.
constexpr std::size_t kMaxArguments = 65536;

}  // namespace

// --- start and end ---

Companion& Companion::Instance() {
    // Never destroyed: the agent calls hooks and callbacks until the process has ended. Without (): the buffers stay
    // untouched, and untouched memory costs nothing.
    alignas(Companion) static std::byte room[sizeof(Companion)];
    static auto* const companion = new (room) Companion;
    return *companion;
}

bool Companion::OpenRing() {
    if (_ring.IsOpen() && _door.IsOpen()) return true;
    const char* const path = std::getenv("ORVEX_TRACE_SOCKET");
    if (path == nullptr || *path == '\0') {
        snmp_log(LOG_NOTICE, "orvextrace: ORVEX_TRACE_SOCKET names no socket: nothing is traced\n");
        return false;
    }
    if (!_ring.IsOpen() && !_ring.Open(ConfiguredKib() * 1024)) {
        snmp_log(LOG_ERR, "orvextrace: the trace's memory cannot be made: %s: nothing is traced\n",
                 std::strerror(errno));
        return false;
    }
    std::string reason;
    if (_door.Open(path, _ring.Descriptor(), reason)) return true;
    snmp_log(LOG_ERR, "orvextrace: the socket %s cannot be opened: %s: nothing is traced\n", path, reason.c_str());
    return false;
}

void Companion::Start() noexcept {
    if (_on) return;
    try {
        if (!OpenRing()) return;
    } catch (const std::exception& e) {
        snmp_log(LOG_ERR, "orvextrace: cannot start: %s: nothing is traced\n", e.what());
        return;
    }
    if (!_door.Watch()) {
        snmp_log(LOG_ERR, "orvextrace: the agent cannot watch one more descriptor: nothing is traced\n");
        return;
    }
    _thread = pthread_self();
    _on = true;
    _looked = false;
    _peers.Forget();
    _streams.Forget();
    RegisterCallbacks();
    SetTransportWatcher(this);
    Arm(true);  // the agent opens its sockets after it has loaded its modules
}

void Companion::Stop() noexcept {
    if (!_on) return;
    EndRequest();
    EndTrap();
    EndWaitingBefore(INT64_MAX, kNotAwaited);
    Disarm();
    _streams.Forget();
    _on = false;
    SetTransportWatcher(nullptr);
    UnhookSessions();
    UnregisterCallbacks();
    TapCalls(nullptr);
    _door.Unwatch();
}

/// Hooks what has been opened since. A daemon's child has another process id than the one that loaded the module.
void Companion::LookAround() noexcept {
    HookSessions();
    _ring.SetAgentPid(getpid());
    TapCalls([](const tavos::msgbus::ObservedCall& call) { Instance().Called(call); });
}

// --- the agent's callbacks ---

struct Companion::Callback {
    int major;
    int minor;
    int priority;
    SNMPCallback* function;
};

/// The access checks come last, when the verdict is known; the first one for traps before the trap is sent, the last
/// one after it.
const Companion::Callback Companion::kCallbacks[] = {
    {SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_POST_READ_CONFIG, NETSNMP_CALLBACK_LOWEST_PRIORITY, &Companion::OnConfigured},
    {SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_ACM_CHECK_INITIAL, NETSNMP_CALLBACK_LOWEST_PRIORITY,
     &Companion::OnRequestChecked},
    {SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_ACM_CHECK, NETSNMP_CALLBACK_LOWEST_PRIORITY, &Companion::OnNameChecked},
    {SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_SEND_TRAP1, NETSNMP_CALLBACK_HIGHEST_PRIORITY, &Companion::OnTrap},
    {SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_SEND_TRAP1, NETSNMP_CALLBACK_LOWEST_PRIORITY, &Companion::OnTrapSent},
    {SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_SEND_TRAP2, NETSNMP_CALLBACK_HIGHEST_PRIORITY, &Companion::OnTrap},
    {SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_SEND_TRAP2, NETSNMP_CALLBACK_LOWEST_PRIORITY, &Companion::OnTrapSent},
};

int Companion::OnConfigured(int, int, void*, void*) {
    Instance().LookAround();
    return 0;
}

int Companion::OnRequestChecked(int, int, void* checked, void*) {
    if (checked != nullptr) Instance().CheckedRequest(*static_cast<const view_parameters*>(checked));
    return 0;
}

int Companion::OnNameChecked(int, int, void* checked, void*) {
    if (checked != nullptr) Instance().CheckedName(*static_cast<const view_parameters*>(checked));
    return 0;
}

int Companion::OnTrap(int, int minor, void* pdu, void*) {
    if (pdu != nullptr) Instance().TrapBegins(minor, *static_cast<const netsnmp_pdu*>(pdu));
    return 0;
}

int Companion::OnTrapSent(int, int minor, void*, void*) {
    Instance().TrapEnds(minor);
    return 0;
}

void Companion::RegisterCallbacks() noexcept {
    for (const auto& callback : kCallbacks) {
        if (netsnmp_register_callback(callback.major, callback.minor, callback.function, nullptr, callback.priority) !=
            SNMPERR_SUCCESS) {
            snmp_log(LOG_ERR, "orvextrace: an agent's callback cannot be registered: the trace lacks something\n");
        }
    }
}

void Companion::UnregisterCallbacks() noexcept {
    for (const auto& callback : kCallbacks) {
        snmp_unregister_callback(callback.major, callback.minor, callback.function, nullptr, 1);
    }
}

// --- a request ---

/// Of what was received last.
void Companion::BeginRequest(const void* octets, std::size_t length) noexcept {
    SettleRequest();
    _request.Begin(RecordKind::kRequest, _arrival);
    _start = _arrivalSteady;
    _parsed = _allowed = false;
    _namesRefused = 0;
    _request.Add(Section::kPeer, _peer, _peerLength);
    _request.Add(Section::kMessageIn, octets, length);
    Arm(true);
}

/// False when the connection's next message is not whole yet.
bool Companion::BeginNext() noexcept {
    const auto message = _streams.Next();
    if (message.data == nullptr) return false;
    BeginRequest(message.data, message.length);
    _message = message;
    return true;
}

void Companion::Received(netsnmp_transport& transport, const void* octets, int length, void* from,
                         int fromLength) noexcept {
    SettleRequests();
    _arrival = Now(CLOCK_REALTIME);
    _arrivalSteady = Steady();
    _domain = transport.domain;
    const auto peer = _peers.Of(transport, from, fromLength);
    _peerLength = std::min(peer.length, sizeof _peer);
    std::memcpy(_peer, peer.text, _peerLength);
    const auto size = static_cast<std::size_t>(length);
    if ((transport.flags & NETSNMP_TRANSPORT_FLAG_STREAM) == 0) {
        BeginRequest(octets, size);
    } else if (size == 0) {
        const auto rest = _streams.TakeRest(transport);
        if (rest.length > 0) BeginRequest(rest.data, rest.length);
    } else if (_streams.Add(transport, octets, size)) {
        BeginNext();
    }
}

/// Opens the record of the message that the agent has parsed: it drops some of those that a connection brings at once.
bool Companion::FindMessageOf(const netsnmp_pdu& pdu) noexcept {
    while (!_request.IsOpen() || _parsed || (_streams.HasNext() && !MayBeOf(pdu, _message.data, _message.length))) {
        if (!BeginNext()) return false;
    }
    return true;
}

void Companion::CheckedRequest(const view_parameters& checked) noexcept {
    if (!_on || checked.pdu == nullptr) return;
    if (checked.pdu->tDomain != _domain) {  // a query of the agent to itself
        if (!_parsed) SettleRequest();      // the agent is done with what came before
        return;
    }
    if (!FindMessageOf(*checked.pdu)) return;
    _parsed = true;
    _transaction = checked.pdu->transid;
    const auto verdict = static_cast<std::int32_t>(checked.errorcode);
    _allowed = verdict == VACM_SUCCESS;
    _request.Head().flags |= kParsed;
    _request.Add(Section::kVerdict, &verdict, sizeof verdict);
    if (!IsEncrypted(*checked.pdu)) return;
    AddPdu(_request, Section::kRequestPdu, *checked.pdu);
    const std::size_t context = checked.pdu->contextName != nullptr ? checked.pdu->contextNameLen : 0;
    if (context > 0) _request.Add(Section::kContext, checked.pdu->contextName, context);
}

void Companion::CheckedName(const view_parameters& checked) noexcept {
    if (!_on || checked.errorcode == VACM_SUCCESS || checked.name == nullptr) return;
    const bool here = _request.IsOpen() && _parsed && checked.pdu != nullptr && checked.pdu->transid == _transaction;
    if (!here) return;
    if (++_namesRefused > kMaxNamesRefused) {
        // What a walk passes over explains nothing.
        const bool walks = checked.pdu->command == SNMP_MSG_GETNEXT || checked.pdu->command == SNMP_MSG_GETBULK;
        if (!walks) _request.Head().flags |= kCut;
        return;
    }
    const auto verdict = static_cast<std::int32_t>(checked.errorcode);
    const auto count = static_cast<std::uint32_t>(std::min<std::size_t>(checked.namelen, MAX_OID_LEN));
    _request.Open(Section::kNameRefused);
    _request.Put(&verdict, sizeof verdict);
    _request.Put(&count, sizeof count);
    for (std::uint32_t i = 0; i < count; ++i) {
        const auto subidentifier = static_cast<std::uint32_t>(checked.name[i]);
        _request.Put(&subidentifier, sizeof subidentifier);
    }
    _request.Close();
}

void Companion::Called(const tavos::msgbus::ObservedCall& call) noexcept {
    // Other threads of the process may call, too: their calls belong to no request.
    if (!_on || pthread_equal(_thread, pthread_self()) == 0 || !_request.IsOpen()) return;
    CallHead head{};
    head.outcome = static_cast<CallOutcome>(call.outcome);
    head.microseconds = call.microseconds;
    head.serial = call.serial;
    head.senderLength = ShortLength(call.sender);
    head.serviceLength = ShortLength(call.service);
    head.operationLength = ShortLength(call.operation);
    head.errorLength = ShortLength(call.error);
    const std::size_t arguments = std::strlen(call.arguments);
    const bool fits = arguments <= kMaxArguments;
    head.argumentsLength = fits ? static_cast<std::uint32_t>(arguments) : 0;
    if (!fits) _request.Head().flags |= kCut;
    _request.Open(Section::kCall);
    _request.Put(&head, sizeof head);
    _request.Put(call.sender, head.senderLength);
    _request.Put(call.service, head.serviceLength);
    _request.Put(call.operation, head.operationLength);
    _request.Put(call.arguments, head.argumentsLength);
    _request.Put(call.error, head.errorLength);
    _request.Close();
}

/// Before the agent has parsed a message it can only answer that it does not understand it.
bool Companion::AnswersRequest(const netsnmp_pdu& pdu) const noexcept {
    if (!_request.IsOpen() || (pdu.command != SNMP_MSG_REPORT && pdu.command != SNMP_MSG_RESPONSE)) return false;
    return !_parsed || pdu.transid == _transaction;
}

void Companion::Sent(netsnmp_transport& transport, const netsnmp_pdu* pdu, const void* octets, int length, void* to,
                     int toLength, bool sent) noexcept {
    if (pdu == nullptr || octets == nullptr || length <= 0) return;
    if (pdu->command == SNMP_MSG_TRAP || pdu->command == SNMP_MSG_TRAP2 || pdu->command == SNMP_MSG_INFORM) {
        AddReceiver(transport, octets, length, to, toLength, sent);
        return;
    }
    // The agent reports what is wrong with a message without checking who asks.
    if (pdu->command == SNMP_MSG_REPORT && _streams.HasNext() && !(_request.IsOpen() && _parsed)) FindMessageOf(*pdu);
    if (AnswersRequest(*pdu)) {
        Answered(_request, *pdu, octets, length, sent);
        EndRequest();
    } else {
        AnswerWaiting(*pdu, octets, length, sent);
    }
}

void Companion::Answered(RecordBuilder& record, const netsnmp_pdu& pdu, const void* octets, int length,
                         bool sent) noexcept {
    if (sent) record.Head().flags |= kAnswered;
    record.Add(Section::kMessageOut, octets, static_cast<std::size_t>(length));
    if (IsEncrypted(pdu)) AddPdu(record, Section::kAnswerPdu, pdu);
}

void Companion::EndRequest() noexcept {
    if (!_request.IsOpen()) return;
    _request.Head().microseconds = MicrosecondsSince(_start);
    WriteTraps(_ring.Append(_request.Finish()));
    DisarmIfDone();
}

/// The agent is done with the message for now.
void Companion::SettleRequest() noexcept {
    if (_request.IsOpen() && !(_allowed && PutAside())) EndRequest();
}

/// The agent is done with all that was received.
void Companion::SettleRequests() noexcept {
    do {
        SettleRequest();
    } while (BeginNext());
}

// --- requests that somebody else answers ---

/// False without memory: then the record ends without its answer.
bool Companion::PutAside() noexcept {
    if (_waitingCount == kMaxWaiting) EndWaiting(_waiting[0], kNotAwaited);
    auto* const copy = static_cast<std::byte*>(std::malloc(_request.Length()));
    if (copy == nullptr) return false;
    std::memcpy(copy, _request.Data(), _request.Length());
    _waiting[_waitingCount++] = {_transaction, _start, _request.Length(), copy};
    static_cast<void>(_request.Finish());
    WriteTraps(0);
    return true;
}

void Companion::AnswerWaiting(const netsnmp_pdu& pdu, const void* octets, int length, bool sent) noexcept {
    for (std::size_t i = 0; i < _waitingCount; ++i) {
        if (_waiting[i].transaction != pdu.transid) continue;
        _late.Load(_waiting[i].record, _waiting[i].length);
        Answered(_late, pdu, octets, length, sent);
        EndWaiting(_waiting[i], 0);
        return;
    }
}

/// Writes the record, with the answer if `_late` has it already.
void Companion::EndWaiting(Waiting& waiting, std::uint32_t flags) noexcept {
    if (!_late.IsOpen()) _late.Load(waiting.record, waiting.length);
    _late.Head().flags |= flags;
    _late.Head().microseconds = MicrosecondsSince(waiting.start);
    _ring.Append(_late.Finish());
    std::free(waiting.record);
    std::move(&waiting + 1, _waiting + _waitingCount, &waiting);  // keeps their order: the oldest is the first
    --_waitingCount;
}

void Companion::EndWaitingBefore(std::int64_t start, std::uint32_t flags) noexcept {
    while (_waitingCount > 0 && _waiting[0].start < start) EndWaiting(_waiting[0], flags);
}

// --- a trap ---

void Companion::BeginTrap() noexcept {
    EndTrap();
    _trap.Begin(RecordKind::kTrap, Now(CLOCK_REALTIME));
    _trapCallbacks = 0;
    Arm(true);
}

/// The agent shows each trap twice: as a trap of SNMPv1, then as one of SNMPv2. Either may be missing.
void Companion::TrapBegins(int minor, const netsnmp_pdu& pdu) noexcept {
    if (!_on) return;
    // The first trap, at the agent's start, comes before the first request.
    if (_looked) {
        HookSessions();
    } else {
        LookAround();
    }
    const bool isFirst = minor == SNMPD_CALLBACK_SEND_TRAP1;
    const unsigned here = isFirst ? kTrap1Seen : kTrap2Seen;
    const bool isNext = isFirst ? _trapCallbacks != 0 : (_trapCallbacks & kTrap2Seen) != 0;
    if (!_trap.IsOpen() || isNext) BeginTrap();
    _trapCallbacks |= here;
    if (!isFirst) AddPdu(_trap, Section::kTrapPdu, pdu);
}

void Companion::TrapEnds(int minor) noexcept {
    if (!_on) return;
    if (minor == SNMPD_CALLBACK_SEND_TRAP2) EndTrap();
    HookSessions();  // sessions that the agent has opened to send this trap
}

void Companion::AddReceiver(netsnmp_transport& transport, const void* octets, int length, void* to, int toLength,
                            bool sent) noexcept {
    if (!_trap.IsOpen()) BeginTrap();  // sent before the callbacks, or an inform again
    const std::int32_t result = sent ? 1 : 0;
    const auto peer = _peers.Of(transport, to, toLength);
    _trap.Open(Section::kReceiver);
    _trap.Put(&result, sizeof result);
    _trap.Put(peer.text, peer.length);
    _trap.Close();
    _trap.Add(Section::kTrapMessage, octets, static_cast<std::size_t>(length));
}

/// A trap's record names the request that was in work. That request's number is not known before its record is written:
/// numbers follow the ring's order.
void Companion::EndTrap() noexcept {
    if (!_trap.IsOpen()) return;
    std::byte* const record = _trap.Finish();
    const std::size_t length = _trap.Length();
    if (_request.IsOpen() && length <= sizeof _traps - _trapsLength) {
        std::memcpy(_traps + _trapsLength, record, length);
        _trapsLength += length;
    } else {
        _ring.Append(record);
    }
    DisarmIfDone();
}

void Companion::WriteTraps(std::uint64_t cause) noexcept {
    for (std::size_t at = 0; at < _trapsLength;) {
        RecordHead head;
        std::memcpy(&head, _traps + at, sizeof head);
        head.cause = cause;
        std::memcpy(_traps + at, &head, sizeof head);
        _ring.Append(_traps + at);
        at += head.length;
    }
    _trapsLength = 0;
}

// --- the end of the main loop's turn ---

void Companion::Arm(bool now) noexcept {
    if (_alarm != 0 && _alarmIsNow >= now) return;
    // The library numbers alarms with 32 bits. When the numbers repeat, it would unregister an alarm of the agent
    // itself.
    constexpr std::uint32_t kMaxAlarms = 2'000'000'000;
    if (_alarms == kMaxAlarms) return;
    ++_alarms;
    Disarm();
    _alarmIsNow = now;
    // 0 without memory: the next message ends the record then.
    _alarm = RegisterAlarm(now, [](unsigned int, void*) { Instance().TurnEnds(); });
}

/// The agent sleeps without a timer while nothing is open.
void Companion::DisarmIfDone() noexcept {
    const bool isOpen = _request.IsOpen() || _trap.IsOpen() || _waitingCount > 0 || _streams.HasNext();
    if (_looked && !isOpen) Disarm();
}

void Companion::Disarm() noexcept {
    if (_alarm != 0) snmp_alarm_unregister(_alarm);
    _alarm = 0;
}

void Companion::TurnEnds() noexcept {
    _alarm = 0;
    if (!_on) return;
    SettleRequests();
    EndTrap();
    EndWaitingBefore(Steady() - kMaxWait, 0);
    if (!_looked) {
        LookAround();
        _looked = true;
    }
    if (_waitingCount > 0) Arm(false);
}

}  // namespace trace
