#pragma once

#include "core/NetSnmp.h"

/// The camera's identity (orvexEnterprise.1.1) and its NTCIP 1201 module objects. Read-only. Answered from what
/// OrvexSnmpDevice read at start-up, without a service call. Agent's thread.
#include "objects/IdentityHandlers.inc"
