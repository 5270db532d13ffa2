#include "frame/OrvexSnmpMain.h"

#include <exception>
#include <utility>

#include "core/GuardedHandler.h"
#include "core/OrvexSnmpOid.h"
#include "core/OrvexSnmpTrapSend.h"
#include "frame/OrvexSnmpDevice.h"
#include "frame/RebootHandler.h"
#include "frame/ScalarRegistration.h"
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
    // Both live until the process ends; GetInstance returns them.
    new OrvexSnmpTrapSend();
    new OrvexSnmpDevice();
    _logger->Trace("%s: Done.", "OrvexSnmpMain");
}

OrvexSnmpMain::~OrvexSnmpMain() {
    _logger = nullptr;
}

namespace {

constexpr auto kName = "init_orvexsnmp";

// Set by deinit_orvexsnmp: the next init_orvexsnmp reuses the existing objects.
// See docs/contract.md, unload-path.
bool s_unloaded = false;

int RegisterEverything(const Logger& logger) {
    BeginGuardedStart();
    ApplySensorAvailability();
    // Fixed: docs/contract.md, refused-registration.
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

// A reload creates nothing, so no failure here can end a working agent.
int Resume(const Logger& logger) {
    try {
        logger.Trace("%s: Enter.", kName);
        OrvexSnmpDevice::GetInstance()->Reload();
        OrvexSnmpTrapSend::GetInstance()->Resume();
        return RegisterEverything(logger);
    } catch (const std::exception& e) {
        logger.Error("%s: the module cannot be loaded again: %s", kName, e.what());
    } catch (...) {
        logger.Error("%s: the module cannot be loaded again", kName);
    }
    return -1;
}

}  // namespace

int init_orvexsnmp() {
    const bool reload = std::exchange(s_unloaded, false) && OrvexSnmpMain::GetInstance() != nullptr;
    if (reload) return Resume(*OrvexSnmpMain::GetLogger());
    new OrvexSnmpMain();
    const auto& logger = *OrvexSnmpMain::GetLogger();
    logger.Trace("%s: Enter.", kName);
    return RegisterEverything(logger);
}

int deinit_orvexsnmp() {
    if (OrvexSnmpMain::GetInstance() == nullptr) return 0;
    UnregisterInstances();
    OrvexSnmpAlarm::GetInstance()->UnregisterTable();
    OrvexSnmpRelay::GetInstance()->UnregisterTable();
    OrvexSnmpTrapSend::GetInstance()->Suspend();
    s_unloaded = true;
    return 0;
}
