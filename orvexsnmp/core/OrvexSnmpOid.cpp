#include "core/OrvexSnmpOid.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

OrvexSnmpOid::OrvexSnmpOid(const oid* source, std::int32_t count)
    : _name(static_cast<oid*>(std::malloc(static_cast<std::size_t>(count) * sizeof(oid)))), _length(count) {
    if (_name != nullptr && count > 0) std::memcpy(_name, source, static_cast<std::size_t>(count));
}

OrvexSnmpOid::~OrvexSnmpOid() {
    if (_name != nullptr) std::free(_name);
    _name = nullptr;
    _length = 0;
}

char* OrvexSnmpOid::OidString(const oid* name, std::int32_t length, char** out) {
    constexpr std::size_t kTextRoom = 256;
    std::size_t room = kTextRoom;
    if (*out == nullptr) {
        room = static_cast<std::size_t>(std::max(length, 0)) * 11 + 1;
        *out = static_cast<char*>(std::malloc(room));
    }
    if (*out == nullptr) return nullptr;

    char before[kTextRoom] = "";
    char text[kTextRoom] = "";
    for (std::int32_t i = 0; i < length; ++i) {
        // 32 bits, signed: an oid is wider than that on some machines.
        const long subIdentifier = static_cast<std::int32_t>(name[i]);
        if (std::snprintf(text, sizeof text, "%s.%ld", before, subIdentifier) < 0) break;
        std::memcpy(before, text, sizeof before);
    }
    // A negative sub-identifier of ten digits needs one character more than the 11 that were allocated for it.
    std::snprintf(*out, room, "%s", text);
    return *out;
}

#define ORVEX_PRIVATE_OBJECTS 1, 3, 6, 1, 4, 1, ORVEX_ENTERPRISE_NUMBER, 1, 1
#define ORVEX_PRIVATE_TABLES 1, 3, 6, 1, 4, 1, ORVEX_ENTERPRISE_NUMBER, 1, 3
#define NTCIP_GLOBAL 1, 3, 6, 1, 4, 1, 1206, 4, 2, 6, 1
#define NTCIP_CCTV 1, 3, 6, 1, 4, 1, 1206, 4, 2, 7

const oid OrvexSnmpOid::oid_modelNumber[11] = {ORVEX_PRIVATE_OBJECTS, 1, 0};
const oid OrvexSnmpOid::oid_modelName[11] = {ORVEX_PRIVATE_OBJECTS, 2, 0};
const oid OrvexSnmpOid::oid_serialNumber[11] = {ORVEX_PRIVATE_OBJECTS, 3, 0};
const oid OrvexSnmpOid::oid_fwVersion[11] = {ORVEX_PRIVATE_OBJECTS, 4, 0};
const oid OrvexSnmpOid::oid_swVersion[11] = {ORVEX_PRIVATE_OBJECTS, 5, 0};
const oid OrvexSnmpOid::oid_hwVersion[11] = {ORVEX_PRIVATE_OBJECTS, 6, 0};
const oid OrvexSnmpOid::oid_temperature[11] = {ORVEX_PRIVATE_OBJECTS, 7, 0};
const oid OrvexSnmpOid::oid_power[11] = {ORVEX_PRIVATE_OBJECTS, 8, 0};
const oid OrvexSnmpOid::oid_voltage[11] = {ORVEX_PRIVATE_OBJECTS, 9, 0};
const oid OrvexSnmpOid::oid_rebootDevice[11] = {ORVEX_PRIVATE_OBJECTS, 100, 0};

const oid OrvexSnmpOid::oid_alarm[10] = {ORVEX_PRIVATE_TABLES, 1};
const oid OrvexSnmpOid::oid_relay[10] = {ORVEX_PRIVATE_TABLES, 2};

const oid OrvexSnmpOid::oid_globalSetIDParameter[13] = {NTCIP_GLOBAL, 1, 0};
const oid OrvexSnmpOid::oid_globalMaxModules[13] = {NTCIP_GLOBAL, 2, 0};
const oid OrvexSnmpOid::oid_moduleNumber[15] = {NTCIP_GLOBAL, 3, 1, 1, 1};
const oid OrvexSnmpOid::oid_moduleDeviceNode[15] = {NTCIP_GLOBAL, 3, 1, 2, 1};
const oid OrvexSnmpOid::oid_moduleMake[15] = {NTCIP_GLOBAL, 3, 1, 3, 1};
const oid OrvexSnmpOid::oid_moduleModel[15] = {NTCIP_GLOBAL, 3, 1, 4, 1};
const oid OrvexSnmpOid::oid_moduleVersion[15] = {NTCIP_GLOBAL, 3, 1, 5, 1};
const oid OrvexSnmpOid::oid_moduleType[15] = {NTCIP_GLOBAL, 3, 1, 6, 1};

const oid OrvexSnmpOid::oid_rangeMaximumPreset[13] = {NTCIP_CCTV, 1, 1, 0};
const oid OrvexSnmpOid::oid_rangePanLeftLimit[13] = {NTCIP_CCTV, 1, 2, 0};
const oid OrvexSnmpOid::oid_rangePanRightLimit[13] = {NTCIP_CCTV, 1, 3, 0};
const oid OrvexSnmpOid::oid_rangePanHomePosition[13] = {NTCIP_CCTV, 1, 4, 0};
const oid OrvexSnmpOid::oid_rangeTrueNorthOffset[13] = {NTCIP_CCTV, 1, 5, 0};
const oid OrvexSnmpOid::oid_rangeTiltUpLimit[13] = {NTCIP_CCTV, 1, 6, 0};
const oid OrvexSnmpOid::oid_rangeTiltDownLimit[13] = {NTCIP_CCTV, 1, 7, 0};
const oid OrvexSnmpOid::oid_rangeZoomLimit[13] = {NTCIP_CCTV, 1, 8, 0};
const oid OrvexSnmpOid::oid_rangeFocusLimit[13] = {NTCIP_CCTV, 1, 9, 0};
const oid OrvexSnmpOid::oid_rangeIrisLimit[13] = {NTCIP_CCTV, 1, 10, 0};
const oid OrvexSnmpOid::oid_rangeMinimumPanStepAngle[13] = {NTCIP_CCTV, 1, 11, 0};
const oid OrvexSnmpOid::oid_rangeMinimumTiltStepAngle[13] = {NTCIP_CCTV, 1, 12, 0};
const oid OrvexSnmpOid::oid_timeoutPan[13] = {NTCIP_CCTV, 2, 1, 0};
const oid OrvexSnmpOid::oid_timeoutTilt[13] = {NTCIP_CCTV, 2, 2, 0};
const oid OrvexSnmpOid::oid_timeoutZoom[13] = {NTCIP_CCTV, 2, 3, 0};
const oid OrvexSnmpOid::oid_timeoutFocus[13] = {NTCIP_CCTV, 2, 4, 0};
const oid OrvexSnmpOid::oid_timeoutIris[13] = {NTCIP_CCTV, 2, 5, 0};
const oid OrvexSnmpOid::oid_presetGotoPosition[13] = {NTCIP_CCTV, 3, 1, 0};
const oid OrvexSnmpOid::oid_presetStorePosition[13] = {NTCIP_CCTV, 3, 2, 0};
const oid OrvexSnmpOid::oid_positionPan[13] = {NTCIP_CCTV, 4, 1, 0};
const oid OrvexSnmpOid::oid_positionTilt[13] = {NTCIP_CCTV, 4, 2, 0};
const oid OrvexSnmpOid::oid_positionZoomLens[13] = {NTCIP_CCTV, 4, 3, 0};
const oid OrvexSnmpOid::oid_positionFocusLens[13] = {NTCIP_CCTV, 4, 4, 0};
const oid OrvexSnmpOid::oid_positionIrisLens[13] = {NTCIP_CCTV, 4, 5, 0};
const oid OrvexSnmpOid::oid_systemCameraFeatureControl[13] = {NTCIP_CCTV, 5, 1, 0};
const oid OrvexSnmpOid::oid_systemCameraFeatureStatus[13] = {NTCIP_CCTV, 5, 2, 0};
const oid OrvexSnmpOid::oid_systemCameraEquipped[13] = {NTCIP_CCTV, 5, 3, 0};
const oid OrvexSnmpOid::oid_systemLensFeatureControl[13] = {NTCIP_CCTV, 5, 4, 0};
const oid OrvexSnmpOid::oid_systemLensFeatureStatus[13] = {NTCIP_CCTV, 5, 5, 0};
const oid OrvexSnmpOid::oid_systemLensEquipped[13] = {NTCIP_CCTV, 5, 6, 0};
const oid OrvexSnmpOid::oid_alarmStatus[13] = {NTCIP_CCTV, 6, 1, 0};
const oid OrvexSnmpOid::oid_inputStatus[13] = {NTCIP_CCTV, 7, 1, 0};
const oid OrvexSnmpOid::oid_outputStatus[13] = {NTCIP_CCTV, 8, 1, 0};
const oid OrvexSnmpOid::oid_outputControl[13] = {NTCIP_CCTV, 8, 2, 0};

const oid OrvexSnmpOid::oid_snmpTrap[11] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
