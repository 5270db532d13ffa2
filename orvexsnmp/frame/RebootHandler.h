#pragma once

#include "core/NetSnmp.h"

/// rebootDevice (orvexEnterprise.1.1.100.0): a SET of any INTEGER starts the platform's restart script, three seconds
/// after the SET's answer. GET answers the last value written. Agent's thread.
Netsnmp_Node_Handler handle_rebootDevice;
