#pragma once

#include <exception>

#include "core/NetSnmp.h"
#include "tavos/msgbus/MsgBus.h"

/// What stands between the agent and every handler of the module. It lets nothing be thrown into the agent, which is
/// written in C, and limits how long one request waits for services. Agent's thread only.
///
/// A request is a PDU: several calls of several handlers, and several phases of a SET. What tells one from the next is
/// the pair (transid, reqid) of the PDU that each call leads to. The agent gives each message from the network a
/// transid of its own; its queries to itself all have transid 0, and a reqid of their own each. The session's address
/// is of no use: the next request often gets it again. Nor is the agent's own callback for each request, before its
/// access is checked: it does not come for the queries to itself, which would go on with what another request has left.

/// As netsnmp_create_handler_registration, with the guard before `handler`. Null when there is no memory.
netsnmp_handler_registration* CreateGuardedRegistration(const char* name, Netsnmp_Node_Handler* handler,
                                                        const oid* objectId, std::size_t oidLength, int modes);

/// The module's own handler of a registration that CreateGuardedRegistration has made.
Netsnmp_Node_Handler* GuardedHandlerOf(const netsnmp_mib_handler* handler);

/// Whose calls are limited; null: nobody's. It must outlive the registrations, or be taken back here.
void SetGuardedBus(tavos::msgbus::MsgBus* bus);

/// The module's start begins: its calls have more time than those of a request. See IMsgBus::BeginWork.
void BeginGuardedStart();

/// Begins a request when the call belongs to another one than the last.
void BeginGuardedRequest(const netsnmp_agent_request_info* info);

/// Logs one Error line with `name`, the object's or the callback's, and the exception in hand.
void LogGuardedFailure(const char* name) noexcept;

/// Runs `body` for the agent. What it throws is logged and answered with SNMP_ERR_GENERR.
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
