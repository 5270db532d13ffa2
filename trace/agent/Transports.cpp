#include "trace/agent/Transports.h"

#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>

namespace trace {

namespace {

/// The first members of the library's list of open sessions, the same in all releases; 5.4 does not publish it.
struct OpenSession {
    OpenSession* next;
    netsnmp_session* session;
    netsnmp_transport* transport;
};

constexpr long kAgentXVersion = 0xC0;

/// What was in a transport before. Transports of one domain have the same functions, and a connection that a listening
/// transport accepts copies them, hooks included: so they are kept by domain, not by transport.
struct Original {
    const oid* domain;
    decltype(netsnmp_transport::f_recv) receive;
    decltype(netsnmp_transport::f_send) send;
};

constexpr std::size_t kMaxDomains = 16;
std::array<Original, kMaxDomains> s_originals{};
std::size_t s_domains = 0;
TransportWatcher* s_watcher = nullptr;

const Original* OriginalOf(const netsnmp_transport& transport) noexcept {
    for (std::size_t i = 0; i < s_domains; ++i) {
        if (s_originals[i].domain == transport.domain) return &s_originals[i];
    }
    return nullptr;
}

/// Whether something has come, or a connection has ended.
bool IsArrival(const netsnmp_transport& transport, int length, bool isSenderKnown) noexcept {
    if (length > 0) return true;
#ifdef NETSNMP_TRANSPORT_FLAG_EMPTY_PKT
    if ((transport.flags & NETSNMP_TRANSPORT_FLAG_EMPTY_PKT) != 0) return false;
#endif
    if ((transport.flags & NETSNMP_TRANSPORT_FLAG_STREAM) != 0) return true;
    return length == 0 && isSenderKnown;
}

int Receive(netsnmp_transport* transport, void* buffer, int size, void** from, int* fromLength) {
    const Original* const original = OriginalOf(*transport);
    if (original == nullptr) {  // cannot be: see Original
        errno = EBADF;
        return -1;
    }
    const int length = original->receive(transport, buffer, size, from, fromLength);
    const int reason = errno;
    const bool known = from != nullptr && fromLength != nullptr && *from != nullptr;
    if (s_watcher == nullptr || !IsArrival(*transport, length, known)) return length;
    s_watcher->Received(*transport, buffer, std::max(length, 0), known ? *from : nullptr, known ? *fromLength : 0);
    errno = reason;
    return length;
}

/// The library passes pointers to two members of the PDU; both must fit.
const netsnmp_pdu* PduAround(void** to, int* toLength) noexcept {
    if (to == nullptr || toLength == nullptr) return nullptr;
    auto* const start = reinterpret_cast<std::byte*>(to) - offsetof(netsnmp_pdu, transport_data);
    const bool fits =
        start + offsetof(netsnmp_pdu, transport_data_length) == reinterpret_cast<const std::byte*>(toLength);
    return fits ? reinterpret_cast<const netsnmp_pdu*>(start) : nullptr;
}

/// `Octets` is const void since 5.8, void before.
template <class Octets>
int Send(netsnmp_transport* transport, Octets* octets, int length, void** to, int* toLength) {
    const Original* const original = OriginalOf(*transport);
    if (original == nullptr) {  // cannot be: see Original
        errno = EBADF;
        return -1;
    }
    const int result = original->send(transport, octets, length, to, toLength);
    if (s_watcher == nullptr) return result;
    const int reason = errno;
    const bool known = to != nullptr && toLength != nullptr;
    s_watcher->Sent(*transport, PduAround(to, toLength), octets, length, known ? *to : nullptr, known ? *toLength : 0,
                    result >= 0);
    errno = reason;
    return result;
}

constexpr decltype(netsnmp_transport::f_recv) kReceive = &Receive;
constexpr decltype(netsnmp_transport::f_send) kSend = &Send;

/// The library's list of open sessions. Only of the object that opens them: another one may have a variable of that
/// name, too.
OpenSession** FindSessions() noexcept {
    void* const list = dlsym(RTLD_DEFAULT, "Sessions");
    Dl_info here{};
    Dl_info library{};
    const bool isLibrarys = list != nullptr && dladdr(list, &here) != 0 &&
                            dladdr(reinterpret_cast<const void*>(&snmp_open), &library) != 0 &&
                            here.dli_fbase == library.dli_fbase;
    if (isLibrarys) return static_cast<OpenSession**>(list);
    snmp_log(LOG_ERR, "orvextrace: the library's list of sessions is not found: no message is traced\n");
    return nullptr;
}

OpenSession* OpenSessions() noexcept {
    static OpenSession** const list = FindSessions();
    return list != nullptr ? *list : nullptr;
}

/// The functions that belong to the transport's domain; nullptr when they cannot be kept.
const Original* Keep(const netsnmp_transport& transport) noexcept {
    const Original* const known = OriginalOf(transport);
    if (known != nullptr || s_domains == kMaxDomains) return known;
    if (transport.f_recv == kReceive || transport.f_send == kSend) return nullptr;
    s_originals[s_domains] = {transport.domain, transport.f_recv, transport.f_send};
    return &s_originals[s_domains++];
}

bool SpeaksSnmp(const OpenSession& open) noexcept {
    return open.session != nullptr && open.transport != nullptr && open.transport->domain != nullptr &&
           open.transport->f_recv != nullptr && open.transport->f_send != nullptr &&
           open.session->version != kAgentXVersion;
}

}  // namespace

void SetTransportWatcher(TransportWatcher* watcher) noexcept {
    s_watcher = watcher;
}

void HookSessions() noexcept {
    for (OpenSession* open = OpenSessions(); open != nullptr; open = open->next) {
        if (!SpeaksSnmp(*open)) continue;
        netsnmp_transport& transport = *open->transport;
        const Original* const original = Keep(transport);
        if (original == nullptr) continue;
        // A transport with functions of somebody else stays as it is.
        if (transport.f_send == original->send) transport.f_send = kSend;
        const bool listens = open->session->isAuthoritative == SNMP_SESS_AUTHORITATIVE;
        if (listens && transport.f_recv == original->receive) transport.f_recv = kReceive;
    }
}

void UnhookSessions() noexcept {
    for (OpenSession* open = OpenSessions(); open != nullptr; open = open->next) {
        if (open->transport == nullptr) continue;
        netsnmp_transport& transport = *open->transport;
        const Original* const original = OriginalOf(transport);
        if (original == nullptr) continue;
        if (transport.f_recv == kReceive) transport.f_recv = original->receive;
        if (transport.f_send == kSend) transport.f_send = original->send;
    }
}

}  // namespace trace
