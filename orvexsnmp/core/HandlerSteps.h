#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "core/NetSnmp.h"
#include "tavos/core/Logger.h"

/// The steps that the handlers share. All of them run on the agent's thread, and all take the handler's name, with
/// which every log line begins.

/// The first N octets of a value's buffer, whatever its BER type; octets that the value lacks are 0. An INTEGER's
/// buffer is a native long. See docs/contract.md, any-type-taken and docs/contract.md, missing-octets-0.
template <std::size_t N>
std::array<std::uint8_t, N> ReadOctets(const netsnmp_variable_list& variable) {
    std::array<std::uint8_t, N> octets{};
    // A value whose BER type is an SNMPv2 exception (0x80 to 0x82) arrives without a buffer.
    if (variable.val.string != nullptr) {
        std::memcpy(octets.data(), variable.val.string, variable.val_len < N ? variable.val_len : N);
    }
    return octets;
}

/// The low 32 bits of an INTEGER's value; octets that the value lacks are 0.
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

/// Logs the end of the range that the first request asks for: the end of the registered subtree on GETNEXT and
/// GETBULK, an empty text on GET and SET. It is not the variable's name. `end` is what the line ends with.
void LogReceivedOid(const tavos::core::Logger& logger, tavos::core::LogLevel level, const char* name,
                    const netsnmp_request_info* requests, const char* end = "");

/// The entry of a handler that only answers reads: logs the entry, refuses every mode but GET and GETNEXT with an
/// Error line, logs the range end. False: the handler returns SNMP_ERR_GENERR at once.
bool BeginRead(const tavos::core::Logger& logger, const char* name, const netsnmp_agent_request_info* info,
               const netsnmp_request_info* requests, tavos::core::LogLevel entryLevel = tavos::core::kTrace,
               tavos::core::LogLevel oidLevel = tavos::core::kDebug);

bool IsReadMode(const netsnmp_agent_request_info* info);

/// The Error line for a mode that a handler does not know; returns SNMP_ERR_GENERR.
int UnknownMode(const tavos::core::Logger& logger, const char* name, const netsnmp_agent_request_info* info);

/// A whole handler: answers reads with a constant of Value's width and refuses everything else. `line`, if there is
/// one, is the whole Information line, no format; `done` is the level of the exit's line.
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

/// "TRUE" or "FALSE", as the log lines write a truth value.
inline const char* TruthWord(bool value) {
    return value ? "TRUE" : "FALSE";
}
