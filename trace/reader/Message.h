#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "trace/reader/Ber.h"

namespace trace {

/// The tags of values (RFC 3416).
enum ValueType : std::uint8_t {
    kInteger = 0x02,
    kOctetString = 0x04,
    kNull = 0x05,
    kObjectId = 0x06,
    kIpAddress = 0x40,
    kCounter32 = 0x41,
    kGauge32 = 0x42,
    kTimeTicks = 0x43,
    kOpaque = 0x44,
    kCounter64 = 0x46,
    kNoSuchObject = 0x80,
    kNoSuchInstance = 0x81,
    kEndOfMibView = 0x82,
};

/// The tags of PDUs.
enum PduType : std::uint8_t {
    kGet = 0xa0,
    kGetNext = 0xa1,
    kResponse = 0xa2,
    kSet = 0xa3,
    kTrapV1 = 0xa4,
    kGetBulk = 0xa5,
    kInform = 0xa6,
    kTrap = 0xa7,
    kReport = 0xa8,
};

struct Value {
    std::uint8_t type = kNull;
    std::int64_t number = 0;  ///< of the integer types; a Counter64's 64 bits
    std::string octets;       ///< of OCTET STRING, IpAddress, Opaque and unknown types
    ObjectId id;              ///< of OBJECT IDENTIFIER
};

struct Binding {
    ObjectId name;
    Value value;
};

struct Pdu {
    std::uint8_t type = 0;
    std::int64_t requestId = 0;
    std::int64_t errorStatus = 0;  ///< of a GETBULK the non-repeaters
    std::int64_t errorIndex = 0;   ///< of a GETBULK the max repetitions
    std::vector<Binding> bindings;
};

/// What an SNMPv3 message says before its PDU.
struct Security {
    std::string engine;  ///< octets; empty when the manager does not know it yet
    std::int64_t boots = 0;
    std::int64_t time = 0;
    std::string user;
    bool isAuthenticated = false;
    bool isEncrypted = false;
    bool isReportable = false;  ///< the agent may report what is wrong
    std::string context;        ///< the context's name; empty for the default one, and when it is encrypted
};

constexpr int kVersion1 = 0;
constexpr int kVersion2c = 1;
constexpr int kVersion3 = 3;

/// A message as far as it could be understood.
struct Message {
    std::optional<int> version;            ///< as on the wire: kVersion1, kVersion2c, kVersion3, or another number
    std::optional<std::string> community;  ///< of version 1 and 2c
    std::optional<Security> security;      ///< of version 3
    std::optional<Pdu> pdu;                ///< none when it is encrypted
    std::string wrong;                     ///< empty, or what makes it a broken message, in words
};

/// Never throws for what the octets are: `wrong` then says what is wrong, and what stands before it is there.
Message DecodeMessage(std::string_view octets);

}  // namespace trace
