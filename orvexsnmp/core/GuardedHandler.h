#pragma once

#include <exception>

#include "core/NetSnmp.h"
#include "tavos/msgbus/MsgBus.h"

/// A guard between the agent and every handler of the module. Catches every exception, because the agent is written in
/// C. Limits how long one request waits for services. Agent's thread only.
///
/// A request is one PDU: calls of several handlers, and all phases of a SET. The PDU's pair (transid, reqid) identifies
/// it. Each message from the network has a new transid. The agent's internal queries all have transid 0, each with a
/// new reqid. The session's address does not identify a request: the next request often has the same address. The
/// agent's callback before a request's access check does not mark a new request: internal queries skip it and would
/// inherit the previous request's state.

/// Like netsnmp_create_handler_registration, with the guard before `handler`. Returns null if memory runs out.
netsnmp_handler_registration* CreateGuardedRegistration(const char* name, Netsnmp_Node_Handler* handler,
                                                        const oid* objectId, std::size_t oidLength, int modes);

/// The handler that was passed to CreateGuardedRegistration.
Netsnmp_Node_Handler* GuardedHandlerOf(const netsnmp_mib_handler* handler);

/// The bus whose calls are limited; null: no limit. It must outlive the registrations, or be reset to null here.
void SetGuardedBus(tavos::msgbus::MsgBus* bus);

/// Starts the time limit of the module's start, which is longer than a request's. See IMsgBus::BeginWork.
void BeginGuardedStart();

/// Begins a new request when the call's request differs from the last one.
void BeginGuardedRequest(const netsnmp_agent_request_info* info);

/// Logs one Error line with `name` (the object's or the callback's) and the current exception.
void LogGuardedFailure(const char* name) noexcept;

/// Runs `body` for the agent. If it throws, logs the exception and returns SNMP_ERR_GENERR.
template <class Body>
int Guarded(const char* name, const netsnmp_agent_request_info* info, Body&& body) noexcept {
    try {
        BeginGuardedRequest(info);
        return body();
    } catch (...) {
        LogGuardedFailure(name);
        return SNMP_ERR_GENERR;
    }
}
