#pragma once

#include <string>

#include "core/NetSnmp.h"
#include "support/Journal.h"

/// While it lives, the agent's log goes into the journal, as "agentlog 7 text", newlines included.
class AgentLog {
public:
    AgentLog() {
        // Otherwise the registered handlers (usually standard error) would write the lines, too.
        snmp_disable_log();
        _handler = netsnmp_register_loghandler(NETSNMP_LOGHANDLER_CALLBACK, LOG_DEBUG);
        snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, &AgentLog::Write, nullptr);
    }
    ~AgentLog() {
        snmp_unregister_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, &AgentLog::Write, nullptr, 0);
        netsnmp_remove_loghandler(_handler);
    }
    AgentLog(const AgentLog&) = delete;
    AgentLog& operator=(const AgentLog&) = delete;

private:
    static int Write(int, int, void* message, void*) {
        const auto* line = static_cast<const snmp_log_message*>(message);
        journal::Add("agentlog " + std::to_string(line->priority) + " " + line->msg);
        return 0;
    }

    netsnmp_log_handler* _handler;
};
