#pragma once

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

/// Deletes the providers that a device has created; the module itself never does.
inline void DeleteProviders() {
    delete OrvexSnmpPressure::GetInstance();
    delete OrvexSnmpWiper::GetInstance();
    delete OrvexSnmpTilt::GetInstance();
    delete OrvexSnmpPan::GetInstance();
    delete OrvexSnmpZoom::GetInstance();
    delete OrvexSnmpIris::GetInstance();
    delete OrvexSnmpFocus::GetInstance();
    delete OrvexSnmpPresets::GetInstance();
    delete OrvexSnmpVoltage::GetInstance();
    delete OrvexSnmpPower::GetInstance();
    delete OrvexSnmpRelay::GetInstance();
    delete OrvexSnmpAlarm::GetInstance();
    delete OrvexSnmpTemp::GetInstance();
}
