#pragma once

#include <cstdint>

// The layout of the trace: a ring of records in shared memory, written by the agent's companion and read by anybody who
// may connect to its socket. All numbers are in the machine's own byte order: writer and readers share one machine.
namespace trace {

inline constexpr std::uint64_t kMagic = 0x3130435254585652;  // "RVXTRC01"
inline constexpr std::uint32_t kPageSize = 4096;

/// The ring's first page; `capacity` octets of data follow it. `begin` and `end` count octets since the ring was made:
/// octet N is at N % capacity. The records from `begin` to `end` are whole. The writer moves `begin` behind what it is
/// about to overwrite before it writes, and `end` after it has written; both with release order, read with acquire.
/// A reader copies a record, then reads `begin` again: a copy that starts before it is worthless.
/// std::atomic has no part in the layout; both fields are accessed by atomic operations only.
struct RingHeader {
    std::uint64_t magic;
    std::uint64_t capacity;  ///< a multiple of 8
    std::uint64_t begin;
    std::uint64_t end;
    std::uint64_t nextNumber;  ///< the number of the next record; numbers start at 1 and have no gaps
    std::uint64_t cut;         ///< records that were longer than kMaxRecord and have lost sections
    std::int64_t started;      ///< nanoseconds since 1970, when the ring was made
    std::int32_t agentPid;
    std::int32_t reserved;
};

/// No record is longer, with its head.
inline constexpr std::uint32_t kMaxRecord = 256 * 1024;

enum class RecordKind : std::uint32_t {
    kRequest = 1,  ///< a message that the agent received, and what became of it
    kTrap = 2,     ///< a notification that the agent sent
};

/// Every record begins with this, 8-aligned; sections follow until `length`.
struct RecordHead {
    std::uint32_t length;  ///< of the whole record, with this head; a multiple of 8
    RecordKind kind;
    std::uint64_t number;
    std::int64_t time;          ///< nanoseconds since 1970: the message's arrival, or the trap's making
    std::int64_t microseconds;  ///< from arrival to answer, or until the agent dropped the message; of a trap 0
    std::uint64_t cause;        ///< of a trap: the number of the request that was in work; otherwise 0
    std::uint32_t flags;        ///< RecordFlags
    std::uint32_t reserved;
};

enum RecordFlags : std::uint32_t {
    kCut = 1,         ///< sections are missing: the record would have been longer than kMaxRecord
    kAnswered = 2,    ///< the agent has sent an answer or a report
    kParsed = 4,      ///< the agent understood the message and checked who may ask (kVerdict is there)
    kNotAwaited = 8,  ///< another process was to answer, and the trace could not wait for that answer
};

/// A section: this head, `length` octets, and padding to a multiple of 8.
struct SectionHead {
    std::uint32_t kind;    ///< Section
    std::uint32_t length;  ///< of the contents, without head and padding
};

enum class Section : std::uint32_t {
    kPeer = 1,         ///< text, as the transport formats it: "UDP: [127.0.0.1]:40123->[127.0.0.1]:1161"
    kMessageIn = 2,    ///< the message's octets, as received
    kRequestPdu = 3,   ///< a PduHead and its bindings; only of an encrypted message
    kVerdict = 4,      ///< std::int32_t: what ACM_CHECK_INITIAL said, VACM_SUCCESS (0) to VACM_SUBTREE_UNKNOWN
    kNameRefused = 5,  ///< std::int32_t what ACM_CHECK said, std::uint32_t count, `count` std::uint32_t sub-identifiers
    kCall = 6,         ///< a CallHead and its texts
    kMessageOut = 7,   ///< the answer's octets, as sent
    kAnswerPdu = 8,    ///< a PduHead and its bindings; only of an encrypted message
    kTrapPdu = 9,      ///< a PduHead and its bindings, as the agent was given them
    kReceiver = 10,    ///< std::int32_t 1 sent, 0 refused by the socket; then text, the peer's address; one a receiver
    kTrapMessage = 11,  ///< the octets that went to the receiver before it
    kContext = 12       ///< the name of the context; only of an encrypted message, and not of the default one
};

/// `count` bindings follow, each a BindingHead, its sub-identifiers (std::uint32_t), its value, and padding to a
/// multiple of 4. Values: integer types std::int64_t (unsigned ones zero-extended), Counter64 std::uint64_t, object
/// identifiers their sub-identifiers as std::uint32_t, all others their octets.
struct PduHead {
    std::int32_t command;  ///< SNMP_MSG_GET and so on
    std::int32_t errorStatus;
    std::int32_t errorIndex;
    std::uint32_t requestId;
    std::uint32_t count;
};

struct BindingHead {
    std::uint16_t nameLength;  ///< in sub-identifiers
    std::uint16_t type;        ///< the BER tag: ASN_INTEGER, SNMP_NOSUCHOBJECT and so on
    std::uint32_t valueLength;
};

enum class CallOutcome : std::uint32_t {
    kAnswered = 1,
    kFailed = 2,   ///< the service answered with an error, or could not be reached, or timed out: see the error's text
    kNotMade = 3,  ///< the service or the bus is known to be silent, or the request had no time left
};

/// Five texts follow, without terminators: sender (the connection's unique bus name), service ("org.tavos.Pan1"),
/// operation, arguments (a JSON array), error (empty when the call was answered). The service knows the call as the
/// message `serial` from `sender`.
struct CallHead {
    CallOutcome outcome;
    std::uint32_t microseconds;
    std::uint64_t serial;  ///< 0: no message was made
    std::uint16_t senderLength;
    std::uint16_t serviceLength;
    std::uint16_t operationLength;
    std::uint16_t errorLength;
    std::uint32_t argumentsLength;
    std::uint32_t reserved;
};

}  // namespace trace
