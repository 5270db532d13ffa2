#pragma once

#include "core/NetSnmp.h"

/// The camera's identity (orvexEnterprise.1.1) and its NTCIP 1201 module objects. Read-only. The handlers answer values
/// that OrvexSnmpDevice read at the start, without a service call. Agent's thread.
#include "objects/IdentityHandlers.inc"
