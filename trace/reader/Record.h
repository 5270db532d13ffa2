#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "trace/Format.h"
#include "trace/reader/Message.h"

namespace trace {

/// A name that the access check has refused.
struct RefusedName {
    std::int32_t verdict = 0;  ///< as kVerdict
    ObjectId name;
};

/// A call of a camera service, made or not.
struct Call {
    CallOutcome outcome = CallOutcome::kAnswered;
    std::uint32_t microseconds = 0;
    std::uint64_t serial = 0;  ///< 0: no message was made
    std::string sender;        ///< the connection's unique bus name
    std::string service;       ///< "org.tavos.Pan1"
    std::string operation;     ///< "SetPositionAtSpeed"
    std::string arguments;     ///< a JSON array
    std::string error;         ///< empty when the call was answered
};

/// Where a notification went.
struct Receiver {
    std::string peer;     ///< as the transport formats it
    bool isSent = false;  ///< false: the socket refused it
    std::string message;  ///< the octets that were sent; empty when they are not known
};

/// A record of the ring, taken apart.
struct Record {
    RecordKind kind = RecordKind::kRequest;
    std::uint64_t number = 0;
    std::int64_t time = 0;          ///< nanoseconds since 1970
    std::int64_t microseconds = 0;  ///< until the answer or the drop
    std::uint64_t cause = 0;        ///< of a trap: the request's number; 0: none
    bool isCut = false;
    bool isAnswered = false;
    bool isParsed = false;
    bool isNotAwaited = false;  ///< another process was to answer; whether it did is not known
    std::string peer;           ///< as the transport formats it
    std::string context;        ///< of SNMPv3, also of an encrypted message; empty for the default one
    std::string messageIn;
    std::string messageOut;
    Message in;
    Message out;                         ///< empty when nothing was answered
    std::optional<Pdu> pdu;              ///< the request's, also of an encrypted message, or the notification's
    std::optional<std::int64_t> sentId;  ///< of a notification: the request id that its first receiver was sent
    std::optional<Pdu> answer;
    std::optional<std::int32_t> verdict;
    std::vector<RefusedName> refused;
    std::vector<Call> calls;
    std::vector<Receiver> receivers;
};

/// Takes apart what RingReader::Next has copied. Sections that are cut short or unknown are left out; throws
/// tavos::osa::Exception only for octets that are too few for a record's head.
Record DecodeRecord(const std::vector<std::byte>& octets);

}  // namespace trace
