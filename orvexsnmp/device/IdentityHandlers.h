#pragma once

#include "core/NetSnmp.h"

/// The camera's identity (orvexEnterprise.1.1) and its NTCIP 1201 module objects: read-only, answered from what
/// OrvexSnmpDevice gathered at start-up, without a call of any service. Agent's thread.
#include "objects/IdentityHandlers.inc"

/// A whole handler of a constant object. `line` is logged at Information with the handler's name and the value.
int AnswerIdentity(const char* name, const netsnmp_agent_request_info* info, netsnmp_request_info* requests, int value,
                   const char* line);
int AnswerIdentity(const char* name, const netsnmp_agent_request_info* info, netsnmp_request_info* requests,
                   const char* text, const char* line);
