#include "core/HandlerSteps.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <memory>

#include "core/OrvexSnmpOid.h"

using tavos::core::Logger;
using tavos::core::LogLevel;

namespace {

struct Free {
    void operator()(char* text) const { std::free(text); }
};

// For levels that the caller chooses; each logger operation has a fixed level.
void Log(const Logger& logger, LogLevel level, const char* format, ...) __attribute__((format(printf, 3, 4)));

void Log(const Logger& logger, LogLevel level, const char* format, ...) {
    if (!logger.IsEnabled(level)) return;
    va_list arguments;
    va_start(arguments, format);
    logger.LogMessageV(level, format, arguments);
    va_end(arguments);
}

}  // namespace

std::int32_t ReadInteger(const netsnmp_variable_list& variable) {
    long value = 0;
    if (variable.val.integer != nullptr) {
        std::memcpy(&value, variable.val.integer, std::min(variable.val_len, sizeof value));
    }
    return static_cast<std::int32_t>(value);
}

void AnswerOctets(netsnmp_request_info* requests, const void* octets, std::size_t length) {
    snmp_set_var_typed_value(requests->requestvb, ASN_OCTET_STR, static_cast<const u_char*>(octets), length);
}

void LogReceivedOid(const Logger& logger, LogLevel level, const char* name, const netsnmp_request_info* requests,
                    const char* end) {
    if (!logger.IsEnabled(level)) return;
    // Fixed: docs/contract.md, range-end-line.
    char* text = nullptr;
    // See docs/contract.md, oid-text-freed.
    const std::unique_ptr<char, Free> owned(
        OrvexSnmpOid::OidString(requests->range_end, static_cast<std::int32_t>(requests->range_end_len), &text));
    if (owned != nullptr) Log(logger, level, "%s: Received OID %s%s", name, owned.get(), end);
}

bool IsReadMode(const netsnmp_agent_request_info* info) {
    return info->mode == MODE_GET || info->mode == MODE_GETNEXT;
}

int UnknownMode(const Logger& logger, const char* name, const netsnmp_agent_request_info* info) {
    logger.Error("%s: unknown mode (%d)", name, info->mode);
    return SNMP_ERR_GENERR;
}

bool BeginRead(const Logger& logger, const char* name, const netsnmp_agent_request_info* info,
               const netsnmp_request_info* requests, LogLevel entryLevel, LogLevel oidLevel) {
    Log(logger, entryLevel, "%s: Enter.", name);
    // Fixed: docs/contract.md, timeouts-refuse-sets.
    if (!IsReadMode(info)) {
        UnknownMode(logger, name, info);
        return false;
    }
    LogReceivedOid(logger, oidLevel, name, requests);
    return true;
}
