#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "core/NetSnmp.h"
#include "tavos/core/Logger.h"

/// Steps that the handlers share. All run on the agent's thread. `name` is the handler's name; every log line begins
/// with it.

/// The first N octets of a value's buffer, whatever its BER type; missing octets are 0. An INTEGER's buffer is a native
/// long. See docs/contract.md, any-type-taken and docs/contract.md, missing-octets-0.
template <std::size_t N>
std::array<std::uint8_t, N> ReadOctets(const netsnmp_variable_list& variable) {
    std::array<std::uint8_t, N> octets{};
    // A value whose BER type is an SNMPv2 exception (0x80 to 0x82) arrives without a buffer.
    if (variable.val.string != nullptr) {
        std::memcpy(octets.data(), variable.val.string, variable.val_len < N ? variable.val_len : N);
    }
    return octets;
}

/// The low 32 bits of an INTEGER's value; missing octets are 0.
std::int32_t ReadInteger(const netsnmp_variable_list& variable);

/// Sets the first request's variable to an INTEGER of sizeof(Value) bytes.
template <class Value>
void AnswerInteger(netsnmp_request_info* requests, Value value, u_char type = ASN_INTEGER) {
    static_assert(std::is_integral_v<Value> && sizeof(Value) <= 4);
    snmp_set_var_typed_value(requests->requestvb, type, reinterpret_cast<const u_char*>(&value), sizeof value);
}

void AnswerOctets(netsnmp_request_info* requests, const void* octets, std::size_t length);

template <std::size_t N>
void AnswerOctets(netsnmp_request_info* requests, const std::array<std::uint8_t, N>& octets) {
    AnswerOctets(requests, octets.data(), N);
}

/// Logs the end of the first request's range, not the variable's name: the end of the registered subtree for GETNEXT
/// and GETBULK, an empty text for GET and SET. `end` is appended to the line.
void LogReceivedOid(const tavos::core::Logger& logger, tavos::core::LogLevel level, const char* name,
                    const netsnmp_request_info* requests, const char* end = "");

/// Begins a read-only handler: logs the entry, refuses every mode except GET and GETNEXT with an Error line, logs the
/// range end. If it returns false, the handler returns SNMP_ERR_GENERR at once.
bool BeginRead(const tavos::core::Logger& logger, const char* name, const netsnmp_agent_request_info* info,
               const netsnmp_request_info* requests, tavos::core::LogLevel entryLevel = tavos::core::kTrace,
               tavos::core::LogLevel oidLevel = tavos::core::kDebug);

bool IsReadMode(const netsnmp_agent_request_info* info);

/// Logs the Error line for an unknown mode; returns SNMP_ERR_GENERR.
int UnknownMode(const tavos::core::Logger& logger, const char* name, const netsnmp_agent_request_info* info);

/// A whole handler: answers reads with a constant of Value's width and refuses all other modes. `line`, if not null, is
/// the whole Information line, not a format. `done` is the level of the exit line.
template <class Value>
int AnswerConstant(const tavos::core::Logger& logger, const char* name, const netsnmp_agent_request_info* info,
                   netsnmp_request_info* requests, Value value, const char* line, u_char type,
                   tavos::core::LogLevel done) {
    if (!BeginRead(logger, name, info, requests)) return SNMP_ERR_GENERR;
    if (line != nullptr) logger.Information("%s", line);
    snmp_set_var_typed_value(requests->requestvb, type, reinterpret_cast<const u_char*>(&value), sizeof value);
    done == tavos::core::kInformation ? logger.Information("%s: Done.", name) : logger.Trace("%s: Done.", name);
    return SNMP_ERR_NOERROR;
}

/// "TRUE" or "FALSE", for the log lines.
inline const char* TruthWord(bool value) {
    return value ? "TRUE" : "FALSE";
}
