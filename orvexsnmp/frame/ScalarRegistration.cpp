#include "frame/ScalarRegistration.h"

#include <cstring>
#include <vector>

#include "core/GuardedHandler.h"
#include "frame/OrvexSnmpMain.h"
#include "sensors/OrvexSnmpPower.h"
#include "sensors/OrvexSnmpTemp.h"
#include "sensors/OrvexSnmpVoltage.h"

namespace {

constexpr std::uint8_t kOff = 0;
constexpr std::uint8_t kOn = 1;

// The registrations that the agent has accepted, for UnregisterInstances.
std::vector<netsnmp_handler_registration*> s_registered;

void EnableRows(const char* namePrefix, bool available) {
    for (auto& row : ScalarTable()) {
        if (std::strncmp(row.name, namePrefix, std::strlen(namePrefix)) == 0) row.enabled = available ? kOn : kOff;
    }
}

}  // namespace

void ApplySensorAvailability() {
    constexpr bool kPresetsAvailable = true;
    int value = 0;
    unsigned char type = 0;
    // The power and voltage services return -1 when they have no reading; for a thermometer -1 is a temperature.
    // Fixed: docs/contract.md, minus-1-reading.
    const bool power = OrvexSnmpPower::GetInstance()->GetMibIntData(value, type) != -1 && value != -1;
    value = 0;
    const bool voltage = OrvexSnmpVoltage::GetInstance()->GetMibIntData(value, type) != -1 && value != -1;
    value = 0;
    const bool temperature = OrvexSnmpTemp::GetInstance()->GetMibIntData(value, type) != -1;

    EnableRows("temperature", temperature);
    EnableRows("voltage", voltage);
    EnableRows("power", power);
    // Fixed: docs/contract.md, presets-rule.
    EnableRows("presets", kPresetsAvailable);
}

int RegisterScalars() {
    const auto& logger = *OrvexSnmpMain::GetLogger();
    for (auto& row : ScalarTable()) {
        if (row.enabled == kOff) continue;
        row.registrationResult = RegisterInstance(row.name, row.handler, row.objectId, row.oidLength, row.access);
        if (row.registrationResult != 0) {
            logger.Error("%s: Registration for %s OID not OK", "init_orvexsnmp", row.name);
            return -1;
        }
        logger.Information("%s: Registration for %s OID OK", "init_orvexsnmp", row.name);
    }
    return 0;
}

int RegisterInstance(const char* name, Netsnmp_Node_Handler* handler, const oid* objectId, std::size_t oidLength,
                     int access) {
    // Registered as an instance: the agent's scalar helper would append one more sub-identifier.
    auto* registration = CreateGuardedRegistration(name, handler, objectId, oidLength, access);
    if (registration == nullptr) return MIB_REGISTRATION_FAILED;
    const int result = netsnmp_register_instance(registration);
    // The agent has already freed a registration that it refused.
    if (result == 0) s_registered.push_back(registration);
    return result;
}

void UnregisterInstances() {
    for (auto* registration : s_registered) netsnmp_unregister_handler(registration);
    s_registered.clear();
}
