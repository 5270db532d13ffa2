#pragma once

#include <cstdint>

#include "core/NetSnmp.h"

/// The OIDs of everything that the module serves or sends, and an OID's text. An array's length is its number of
/// sub-identifiers; the arrays of scalars include the instance, exactly as managers use them.
class OrvexSnmpOid {
public:
    OrvexSnmpOid() = default;

    /// Room for `count` sub-identifiers, of which only the first `count` bytes are copied from `source`.
    OrvexSnmpOid(const oid* source, std::int32_t count);
    ~OrvexSnmpOid();
    OrvexSnmpOid(const OrvexSnmpOid&) = delete;
    OrvexSnmpOid& operator=(const OrvexSnmpOid&) = delete;

    /// The OID as dotted text with a leading dot, at most 255 characters; empty for a length of 0 or less. A null
    /// `*out` is replaced by malloc'd memory of length * 11 + 1 bytes, which the caller frees and to which the text is
    /// cut; otherwise `*out` must have room for the whole text and its end: 256 bytes are always enough. Returns
    /// `*out`. Sub-identifiers are printed as signed 32-bit numbers, at most 12 characters each with the dot.
    static char* OidString(const oid* name, std::int32_t length, char** out);

    // The private subtree, orvexEnterprise.1.1
    static const oid oid_modelNumber[11];
    static const oid oid_modelName[11];
    static const oid oid_serialNumber[11];
    static const oid oid_fwVersion[11];
    static const oid oid_swVersion[11];
    static const oid oid_hwVersion[11];
    static const oid oid_temperature[11];
    static const oid oid_power[11];
    static const oid oid_voltage[11];
    static const oid oid_rebootDevice[11];

    // The private tables, orvexEnterprise.1.3
    static const oid oid_alarm[10];
    static const oid oid_relay[10];

    // NTCIP 1201, global and module objects
    static const oid oid_globalSetIDParameter[13];  ///< not served
    static const oid oid_globalMaxModules[13];
    static const oid oid_moduleNumber[15];
    static const oid oid_moduleDeviceNode[15];
    static const oid oid_moduleMake[15];
    static const oid oid_moduleModel[15];
    static const oid oid_moduleVersion[15];
    static const oid oid_moduleType[15];

    // NTCIP 1205, closed circuit television camera control
    static const oid oid_rangeMaximumPreset[13];
    static const oid oid_rangePanLeftLimit[13];
    static const oid oid_rangePanRightLimit[13];
    static const oid oid_rangePanHomePosition[13];
    static const oid oid_rangeTrueNorthOffset[13];
    static const oid oid_rangeTiltUpLimit[13];
    static const oid oid_rangeTiltDownLimit[13];
    static const oid oid_rangeZoomLimit[13];
    static const oid oid_rangeFocusLimit[13];
    static const oid oid_rangeIrisLimit[13];
    static const oid oid_rangeMinimumPanStepAngle[13];
    static const oid oid_rangeMinimumTiltStepAngle[13];
    static const oid oid_timeoutPan[13];
    static const oid oid_timeoutTilt[13];
    static const oid oid_timeoutZoom[13];
    static const oid oid_timeoutFocus[13];
    static const oid oid_timeoutIris[13];
    static const oid oid_presetGotoPosition[13];
    static const oid oid_presetStorePosition[13];
    static const oid oid_positionPan[13];
    static const oid oid_positionTilt[13];
    static const oid oid_positionZoomLens[13];
    static const oid oid_positionFocusLens[13];
    static const oid oid_positionIrisLens[13];
    static const oid oid_systemCameraFeatureControl[13];
    static const oid oid_systemCameraFeatureStatus[13];
    static const oid oid_systemCameraEquipped[13];
    static const oid oid_systemLensFeatureControl[13];
    static const oid oid_systemLensFeatureStatus[13];
    static const oid oid_systemLensEquipped[13];
    static const oid oid_alarmStatus[13];
    static const oid oid_inputStatus[13];
    static const oid oid_outputStatus[13];
    static const oid oid_outputControl[13];

    /// snmpTrapOID.0 (RFC 3418), the first binding of every SNMPv2 trap.
    static const oid oid_snmpTrap[11];

private:
    oid* _name = nullptr;
    std::int32_t _length = 0;
};
