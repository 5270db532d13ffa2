#include "motion/OrvexSnmpPan.h"
#include "support/ModuleTest.h"

namespace {

using PanTest = ProviderTest<OrvexSnmpPan>;

TEST_F(PanTest, AbsoluteCommandCallsThePlatformInItsUnitsAndLogsEveryStep) {
    SnmpRequest request(OrvexSnmpOid::oid_positionPan);
    request.WithOctets({0x02, 0x40, 0x46, 0x50});

    EXPECT_EQ(request.Call(OrvexSnmpPan::handle_positionPan, MODE_SET_COMMIT), SNMP_ERR_NOERROR);

    EXPECT_THAT(journal::All(),
                ElementsAre("log 8 handle_positionPan: Enter.", "log 7 handle_positionPan: Received OID ",
                            "log 6 handle_positionPan: absolute pan (2)", "log 8 SetPositionAtSpeed: Enter.",
                            "log 6 SetPositionAtSpeed: NTCIP speed 64, tavosSpeed 0.503937",
                            "call pan SetPositionAtSpeed 180000 0.5039370078740157 300",
                            "log 6 SetPositionAtSpeed: SetPositionAtSpeed(180000,0.503937,300)",
                            "log 8 SetPositionAtSpeed: Done.", "log 8 handle_positionPan: Done."));
    EXPECT_EQ(request.Type(), ASN_OCTET_STR);
    EXPECT_THAT(request.Octets(), ElementsAre(0x02, 0x40, 0x46, 0x50));
}

}  // namespace
