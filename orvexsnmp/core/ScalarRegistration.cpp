#include "core/ScalarRegistration.h"

#include <cstring>
#include <vector>

#include "core/GuardedHandler.h"
#include "core/OrvexSnmpMain.h"
#include "core/OrvexSnmpOid.h"
#include "device/IdentityHandlers.h"
#include "io/OrvexSnmpAlarm.h"
#include "io/OrvexSnmpPressure.h"
#include "io/OrvexSnmpRelay.h"
#include "lens/OrvexSnmpFocus.h"
#include "lens/OrvexSnmpIris.h"
#include "lens/OrvexSnmpWiper.h"
#include "lens/OrvexSnmpZoom.h"
#include "motion/OrvexSnmpPan.h"
#include "motion/OrvexSnmpPresets.h"
#include "motion/OrvexSnmpTilt.h"
#include "sensors/OrvexSnmpPower.h"
#include "sensors/OrvexSnmpTemp.h"
#include "sensors/OrvexSnmpVoltage.h"

namespace {

constexpr int kReadOnly = HANDLER_CAN_RONLY;
constexpr int kReadWrite = HANDLER_CAN_RWRITE;
constexpr std::uint8_t kOff = 0;
constexpr std::uint8_t kOn = 1;

template <std::size_t NameSize, std::size_t OidLength>
constexpr ScalarRegistration Row(const char (&name)[NameSize], const oid (&objectId)[OidLength],
                                 Netsnmp_Node_Handler* handler, int access, std::uint8_t enabled = kOn) {
    static_assert(NameSize <= ScalarRegistration::kNameRoom);
    ScalarRegistration row{OidLength, handler, {}, 0, objectId, enabled, access};
    for (std::size_t i = 0; i < NameSize; ++i) row.name[i] = name[i];
    return row;
}

using Oid = OrvexSnmpOid;

std::array<ScalarRegistration, kScalarCount> s_table = {{
    Row("modelNumber", Oid::oid_modelNumber, handle_modelNumber, kReadOnly),
    Row("modelName", Oid::oid_modelName, handle_modelName, kReadOnly),
    Row("serialNumber", Oid::oid_serialNumber, handle_serialNumber, kReadOnly),
    Row("fwVersion", Oid::oid_fwVersion, handle_fwVersion, kReadOnly),
    // The software's version is the firmware's.
    Row("swVersion", Oid::oid_swVersion, handle_fwVersion, kReadOnly),
    Row("hwVersion", Oid::oid_hwVersion, handle_hwVersion, kReadOnly),
    Row("temperature", Oid::oid_temperature, OrvexSnmpBaseProvider<OrvexSnmpTemp>::MibIntHandler, kReadOnly, kOff),
    Row("power", Oid::oid_power, OrvexSnmpBaseProvider<OrvexSnmpPower>::MibIntHandler, kReadOnly, kOff),
    Row("voltage", Oid::oid_voltage, OrvexSnmpBaseProvider<OrvexSnmpVoltage>::MibIntHandler, kReadOnly, kOff),
    Row("globalMaxModules", Oid::oid_globalMaxModules, handle_globalMaxModules, kReadOnly),
    Row("moduleNumber", Oid::oid_moduleNumber, handle_moduleNumber, kReadOnly),
    Row("moduleDeviceNode", Oid::oid_moduleDeviceNode, handle_moduleDeviceNode, kReadOnly),
    Row("moduleMake", Oid::oid_moduleMake, handle_moduleMake, kReadOnly),
    Row("moduleModel", Oid::oid_moduleModel, handle_moduleModel, kReadOnly),
    Row("moduleVersion", Oid::oid_moduleVersion, handle_moduleVersion, kReadOnly),
    Row("moduleType", Oid::oid_moduleType, handle_moduleType, kReadOnly),
    Row("rangeMaximumPreset", Oid::oid_rangeMaximumPreset, OrvexSnmpPresets::handle_rangeMaximumPreset, kReadOnly),
    Row("rangePanLeftLimit", Oid::oid_rangePanLeftLimit, OrvexSnmpPan::handle_rangePanLeftLimit, kReadOnly),
    Row("rangePanRightLimit", Oid::oid_rangePanRightLimit, OrvexSnmpPan::handle_rangePanRightLimit, kReadOnly),
    Row("rangePanHomePosition", Oid::oid_rangePanHomePosition, OrvexSnmpPan::handle_rangePanHomePosition, kReadOnly),
    Row("rangeTrueNorthOffset", Oid::oid_rangeTrueNorthOffset, OrvexSnmpPan::handle_rangeTrueNorthOffset, kReadWrite),
    Row("rangeTiltUpLimit", Oid::oid_rangeTiltUpLimit, OrvexSnmpTilt::handle_rangeTiltUpLimit, kReadOnly),
    Row("rangeTiltDownLimit", Oid::oid_rangeTiltDownLimit, OrvexSnmpTilt::handle_rangeTiltDownLimit, kReadOnly),
    Row("rangeZoomLimit", Oid::oid_rangeZoomLimit, OrvexSnmpZoom::handle_rangeZoomLimit, kReadOnly),
    Row("rangeFocusLimit", Oid::oid_rangeFocusLimit, OrvexSnmpFocus::handle_rangeFocusLimit, kReadOnly),
    Row("rangeIrisLimit", Oid::oid_rangeIrisLimit, OrvexSnmpIris::handle_rangeIrisLimit, kReadOnly),
    Row("rangeMinimumPanStepAngle", Oid::oid_rangeMinimumPanStepAngle, OrvexSnmpPan::handle_rangeMinimumPanStepAngle,
        kReadOnly),
    Row("rangeMinimumTiltStepAngle", Oid::oid_rangeMinimumTiltStepAngle,
        OrvexSnmpTilt::handle_rangeMinimumTiltStepAngle, kReadOnly),
    Row("timeoutPan", Oid::oid_timeoutPan, OrvexSnmpPan::handle_timeoutPan, kReadWrite),
    Row("timeoutTilt", Oid::oid_timeoutTilt, OrvexSnmpTilt::handle_timeoutTilt, kReadWrite),
    Row("timeoutZoom", Oid::oid_timeoutZoom, OrvexSnmpZoom::handle_timeoutZoom, kReadWrite),
    Row("timeoutFocus", Oid::oid_timeoutFocus, OrvexSnmpFocus::handle_timeoutFocus, kReadWrite),
    Row("timeoutIris", Oid::oid_timeoutIris, OrvexSnmpIris::handle_timeoutIris, kReadWrite),
    Row("presetGotoPosition", Oid::oid_presetGotoPosition, OrvexSnmpPresets::handle_presetGotoPosition, kReadWrite),
    Row("presetStorePosition", Oid::oid_presetStorePosition, OrvexSnmpPresets::handle_presetStorePosition, kReadWrite),
    Row("positionPan", Oid::oid_positionPan, OrvexSnmpPan::handle_positionPan, kReadWrite),
    Row("positionTilt", Oid::oid_positionTilt, OrvexSnmpTilt::handle_positionTilt, kReadWrite),
    Row("positionZoomLens", Oid::oid_positionZoomLens, OrvexSnmpZoom::handle_positionZoomLens, kReadWrite),
    Row("positionFocusLens", Oid::oid_positionFocusLens, OrvexSnmpFocus::handle_positionFocusLens, kReadWrite),
    Row("positionIrisLens", Oid::oid_positionIrisLens, OrvexSnmpIris::handle_positionIrisLens, kReadWrite),
    Row("systemCameraFeatureControl", Oid::oid_systemCameraFeatureControl,
        OrvexSnmpWiper::handle_systemCameraFeatureControl, kReadWrite),
    Row("systemCameraFeatureStatus", Oid::oid_systemCameraFeatureStatus,
        OrvexSnmpWiper::handle_systemCameraFeatureStatus, kReadOnly),
    Row("systemCameraEquipped", Oid::oid_systemCameraEquipped, OrvexSnmpWiper::handle_systemCameraEquipped, kReadWrite),
    Row("systemLensFeatureControl", Oid::oid_systemLensFeatureControl, OrvexSnmpFocus::handle_systemLensFeatureControl,
        kReadWrite),
    Row("systemLensFeatureStatus", Oid::oid_systemLensFeatureStatus, OrvexSnmpFocus::handle_systemLensFeatureStatus,
        kReadOnly),
    Row("systemLensEquipped", Oid::oid_systemLensEquipped, OrvexSnmpFocus::handle_systemLensEquipped, kReadWrite),
    Row("alarmStatus", Oid::oid_alarmStatus, OrvexSnmpPressure::handle_alarmStatus, kReadOnly),
    Row("inputStatus", Oid::oid_inputStatus, OrvexSnmpAlarm::handle_inputStatus, kReadOnly),
    Row("outputStatus", Oid::oid_outputStatus, OrvexSnmpRelay::handle_outputStatus, kReadOnly),
    Row("outputControl", Oid::oid_outputControl, OrvexSnmpRelay::handle_outputControl, kReadWrite),
}};

// What the agent has accepted, for the unloading of the module.
std::vector<netsnmp_handler_registration*> s_registered;

void EnableRows(const char* namePrefix, bool available) {
    for (auto& row : s_table) {
        if (std::strncmp(row.name, namePrefix, std::strlen(namePrefix)) == 0) row.enabled = available ? kOn : kOff;
    }
}

}  // namespace

std::array<ScalarRegistration, kScalarCount>& ScalarTable() {
    return s_table;
}

void ApplySensorAvailability() {
    constexpr bool kPresetsAvailable = true;
    int value = 0;
    unsigned char type = 0;
    // -1 is how the power and voltage services say that they have no reading; to a thermometer it is a temperature.
    const bool power = OrvexSnmpPower::GetInstance()->GetMibIntData(value, type) != -1 && value != -1;
    value = 0;
    const bool voltage = OrvexSnmpVoltage::GetInstance()->GetMibIntData(value, type) != -1 && value != -1;
    value = 0;
    const bool temperature = OrvexSnmpTemp::GetInstance()->GetMibIntData(value, type) != -1;

    EnableRows("temperature", temperature);
    EnableRows("voltage", voltage);
    EnableRows("power", power);
    EnableRows("presets", kPresetsAvailable);
}

int RegisterScalars() {
    const auto& logger = *OrvexSnmpMain::GetLogger();
    for (auto& row : s_table) {
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
    // As an instance: the agent's scalar helper would append one more sub-identifier to what the table gives.
    auto* registration = CreateGuardedRegistration(name, handler, objectId, oidLength, access);
    if (registration == nullptr) return MIB_REGISTRATION_FAILED;
    const int result = netsnmp_register_instance(registration);
    // A registration that was refused has been freed by the agent.
    if (result == 0) s_registered.push_back(registration);
    return result;
}

void UnregisterInstances() {
    for (auto* registration : s_registered) netsnmp_unregister_handler(registration);
    s_registered.clear();
}
