#pragma once

#include "core/FixedLogging.h"
#include "core/HandlerSteps.h"
#include "core/NetSnmp.h"
#include "core/OrvexSnmpOid.h"
#include "core/OrvexSnmpTrapSend.h"
#include "tavos/core/Logger.h"
#include "tavos/osa/Exception.h"

/// Base of every provider class T (CRTP): the single instance of the class, the logger, and the trap. Create and
/// destroy providers on the agent's thread, between requests.
template <class T>
class OrvexSnmpBaseProvider {
public:
    OrvexSnmpBaseProvider(const OrvexSnmpBaseProvider&) = delete;
    OrvexSnmpBaseProvider& operator=(const OrvexSnmpBaseProvider&) = delete;

    virtual ~OrvexSnmpBaseProvider() {
        _logger = nullptr;
        s_instance = nullptr;
    }

    /// Any thread. Builds the SNMPv2 trap `trapOid` and adds it to the trap queue. `trapOidLength` counts
    /// sub-identifiers. The trap's one object has the trap's OID as its name; its value is a Gauge32 with the 32 bits
    /// of `value`.
    virtual void SendTrap(const oid* trapOid, std::size_t trapOidLength, int value);

    /// Null before the instance is constructed. Never creates one.
    static T* GetInstance() { return static_cast<T*>(s_instance); }

    const tavos::core::Logger& GetLogger() const { return *_logger; }

    /// The handler of the sensors' scalars: asks T::GetMibIntData for the value and its type.
    static int MibIntHandler(netsnmp_mib_handler*, netsnmp_handler_registration*, netsnmp_agent_request_info* info,
                             netsnmp_request_info* requests);

protected:
    /// Resets logging to standard output at level 3, the module's fixed setup. Throws tavos::osa::Exception when T
    /// already has an instance; that instance stays.
    OrvexSnmpBaseProvider();

    tavos::core::Logger* _logger;

private:
    static OrvexSnmpBaseProvider* s_instance;
};

template <class T>
OrvexSnmpBaseProvider<T>* OrvexSnmpBaseProvider<T>::s_instance = nullptr;

template <class T>
OrvexSnmpBaseProvider<T>::OrvexSnmpBaseProvider() : _logger(tavos::core::Logger::GetLogger("OrvexSnmp")) {
    ApplyFixedLogging();
    if (s_instance != nullptr) {
        // Fixed: docs/contract.md, duplicate-instance.
        _logger->Error("%s: Duplicate instance, exiting!", "OrvexSnmpBaseProvider");
        throw tavos::osa::Exception("Duplicate Instance");
    }
    s_instance = this;
}

template <class T>
void OrvexSnmpBaseProvider<T>::SendTrap(const oid* trapOid, std::size_t trapOidLength, int value) {
    netsnmp_variable_list* list = nullptr;
    snmp_varlist_add_variable(&list, OrvexSnmpOid::oid_snmpTrap, OID_LENGTH(OrvexSnmpOid::oid_snmpTrap), ASN_OBJECT_ID,
                              reinterpret_cast<const u_char*>(trapOid), trapOidLength * sizeof(oid));
    // Fixed: docs/contract.md, trap-names-itself.
    snmp_varlist_add_variable(&list, trapOid, trapOidLength, ASN_GAUGE, reinterpret_cast<const u_char*>(&value),
                              sizeof value);
    OrvexSnmpTrapSend::GetInstance()->send_v2trap(list);
    _logger->Information("%s: trap sent to TrapSend object.", "SendTrap");
}

template <class T>
int OrvexSnmpBaseProvider<T>::MibIntHandler(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                            netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    constexpr auto kName = "MibIntHandler";
    const T& provider = *GetInstance();
    const auto& logger = provider.GetLogger();
    logger.Trace("%s: Enter.", kName);
    LogReceivedOid(logger, tavos::core::kTrace, kName, requests);
    if (info->mode != MODE_GET) return UnknownMode(logger, kName, info);

    int result = SNMP_ERR_NOERROR;
    int value = 0;
    unsigned char type = 0;
    if (provider.GetMibIntData(value, type) >= 0) {
        AnswerInteger(requests, value, type);
    } else {
        logger.Error("%s: Exception in GetMibIntData call", kName);
        result = SNMP_ERR_GENERR;
    }
    logger.Trace("%s: Done.", kName);
    return result;
}
