#include "core/HandlerSteps.h"
#include "core/OrvexSnmpOid.h"
#include "frame/IdentityHandlers.h"
#include "frame/ScalarRegistration.h"
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

// The handlers of the constant objects.
#include "objects/Constants.inc"

namespace {

template <std::size_t NameSize, std::size_t OidLength>
constexpr ScalarRegistration Row(const char (&name)[NameSize], const oid (&objectId)[OidLength],
                                 Netsnmp_Node_Handler* handler, int access, std::uint8_t enabled) {
    static_assert(NameSize <= ScalarRegistration::kNameRoom);
    ScalarRegistration row{OidLength, handler, {}, 0, objectId, enabled, access};
    for (std::size_t i = 0; i < NameSize; ++i) row.name[i] = name[i];
    return row;
}

std::array<ScalarRegistration, kScalarCount> s_table = {{
#include "objects/ScalarRows.inc"
}};

}  // namespace

std::array<ScalarRegistration, kScalarCount>& ScalarTable() {
    return s_table;
}
