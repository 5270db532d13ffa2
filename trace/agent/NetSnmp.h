#pragma once

// The agent's headers. They must be included in this order.
#include <net-snmp/net-snmp-config.h>
//
#include <net-snmp/net-snmp-includes.h>
//
#include <net-snmp/agent/net-snmp-agent-includes.h>
//
#include <net-snmp/agent/agent_callbacks.h>
