#pragma once

#include "core/NetSnmp.h"

/// The camera's identity (orvexEnterprise.1.1) and its NTCIP 1201 module objects: read-only, answered from what
/// OrvexSnmpDevice gathered at start-up, without a call of any service. Agent's thread.
#include "objects/IdentityHandlers.inc"
