#pragma once

#include "core/NetSnmp.h"

/// The camera's identity (orvexEnterprise.1.1) and its NTCIP 1201 module objects: read-only, answered from what
/// OrvexSnmpDevice gathered at start-up, without a call of any service. Agent's thread.
Netsnmp_Node_Handler handle_modelNumber;
Netsnmp_Node_Handler handle_modelName;
Netsnmp_Node_Handler handle_serialNumber;
Netsnmp_Node_Handler handle_fwVersion;  ///< fwVersion and swVersion
Netsnmp_Node_Handler handle_hwVersion;
Netsnmp_Node_Handler handle_globalMaxModules;
Netsnmp_Node_Handler handle_moduleNumber;
Netsnmp_Node_Handler handle_moduleDeviceNode;
Netsnmp_Node_Handler handle_moduleMake;
Netsnmp_Node_Handler handle_moduleModel;
Netsnmp_Node_Handler handle_moduleVersion;
Netsnmp_Node_Handler handle_moduleType;
