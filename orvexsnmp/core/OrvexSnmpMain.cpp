#include "core/OrvexSnmpMain.h"

#include "core/OrvexSnmpOid.h"
#include "core/OrvexSnmpTrapSend.h"
#include "core/ScalarRegistration.h"
#include "device/OrvexSnmpDevice.h"
#include "device/RebootHandler.h"
#include "io/OrvexSnmpAlarm.h"
#include "io/OrvexSnmpRelay.h"
#include "tavos/osa/Exception.h"

using tavos::core::Logger;

OrvexSnmpMain* OrvexSnmpMain::s_instance = nullptr;

OrvexSnmpMain::OrvexSnmpMain() : _logger(Logger::GetLogger("OrvexSnmp")) {
    if (s_instance != nullptr) {
        _logger->Error("%s: Duplicate instance, exiting!", "OrvexSnmpMain");
        throw tavos::osa::Exception("Duplicate Instance");
    }
    s_instance = this;
    _logger->Trace("%s: Enter", "OrvexSnmpMain");
    // Both live until the module is unloaded and are found through their own GetInstance.
    new OrvexSnmpTrapSend();
    new OrvexSnmpDevice();
    _logger->Trace("%s: Done.", "OrvexSnmpMain");
}

OrvexSnmpMain::~OrvexSnmpMain() {
    _logger = nullptr;
}

int init_orvexsnmp() {
    constexpr auto kName = "init_orvexsnmp";
    new OrvexSnmpMain();
    const auto& logger = *OrvexSnmpMain::GetLogger();
    logger.Trace("%s: Enter.", kName);

    ApplySensorAvailability();
    if (RegisterScalars() != 0) return -1;
    OrvexSnmpAlarm::GetInstance()->init_alarmTable(false);
    OrvexSnmpRelay::GetInstance()->init_relayTable(false);
    if (RegisterInstance("rebootDevice", handle_rebootDevice, OrvexSnmpOid::oid_rebootDevice,
                         OID_LENGTH(OrvexSnmpOid::oid_rebootDevice), HANDLER_CAN_RWRITE) != 0) {
        logger.Error("%s: Registration for rebootDevice OID not OK", kName);
        logger.Trace("%s: Done.", kName);
        return -1;
    }
    logger.Information("%s: Registration for rebootDevice OID OK", kName);
    logger.Trace("%s: Done.", kName);
    return 0;
}

int deinit_orvexsnmp() {
    UnregisterInstances();
    if (auto* trapSend = OrvexSnmpTrapSend::GetInstance()) trapSend->Close();
    // The last of the providers' events has been delivered when their clients are gone.
    OrvexSnmpDevice::DeleteProviders();
    delete OrvexSnmpDevice::GetInstance();
    OrvexSnmpDevice::ForgetInstance();
    delete OrvexSnmpTrapSend::GetInstance();
    OrvexSnmpTrapSend::ForgetInstance();
    delete OrvexSnmpMain::GetInstance();
    OrvexSnmpMain::ForgetInstance();
    return 0;
}
