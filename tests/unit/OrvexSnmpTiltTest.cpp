#include "motion/OrvexSnmpTilt.h"
#include "support/CameraTest.h"

namespace {

class TiltTest : public MotionTest<OrvexSnmpTilt> {
protected:
    TiltTest() : MotionTest("positionTilt") {}
};

using TiltConstructionTest = ModuleTest;

TEST_F(TiltConstructionTest, MakesItsClientBeforeItTracesAndDeletesIt) {
    // The journal names the client by its axis.
    EXPECT_THAT(MadeAndUnmade<OrvexSnmpTilt>(), ElementsAre("bus CreateClient tilt", "8 OrvexSnmpTilt: Enter",
                                                            "8 OrvexSnmpTilt: Done.", "bus DeleteClient tilt"));
}

TEST_F(TiltTest, EveryWrapperLogsCallsAndReportsFailure) {
    Camera().answers["tilt.GetPosition"] = static_cast<std::uint32_t>(-45000);
    Camera().answers["tilt.GetMinPosition"] = -90000;
    Camera().answers["tilt.GetMaxPosition"] = 45;
    Camera().answers["tilt.GetRelativeVelocity"] = 0.5;
    const Wrapper<OrvexSnmpTilt> wrappers[] = {
        {"SetPosition",
         [](const OrvexSnmpTilt& tilt) { return tilt.SetPosition(22500); },
         {"6 SetPosition: NTCIP position 22500, tavosposition -45000"},
         {"call tilt SetPosition -45000 300"},
         "6 SetPosition=(-45000,300)"},
        {"SetPositionAtSpeed",
         [](const OrvexSnmpTilt& tilt) { return tilt.SetPositionAtSpeed(22500, 127); },
         {"6 SetPositionAtSpeed: NTCIP speed 127, tavosSpeed 1.000000",
          "6 SetPositionAtSpeed: NTCIP position 22500, tavosposition -45000"},
         {"call tilt SetPositionAtSpeed -45000 1 300"},
         "6 SetPositionAtSpeed(22500,1.000000, 300)"},
        Getter("GetPosition", &OrvexSnmpTilt::GetPosition, static_cast<unsigned>(-45000), "tilt",
               "6 currentTilt=-45000"),
        {"SetRelativeVelocity",
         [](const OrvexSnmpTilt& tilt) { return tilt.SetRelativeVelocity(-127); },
         {"6 SetRelativeVelocity: NTCIP speed -127, tavosSpeed -1.000000"},
         {"call tilt SetRelativeVelocity -1 300"},
         "6 SetRelativeVelocity(-1.000000,300)"},
        Getter("GetRelativeVelocity", &OrvexSnmpTilt::GetRelativeVelocity, 0.5, "tilt", "6 velocity=0.500000"),
        Getter("GetMinPosition", &OrvexSnmpTilt::GetMinPosition, -90000, "tilt", "6 topLimit=-90000"),
        Getter("GetMaxPosition", &OrvexSnmpTilt::GetMaxPosition, 45, "tilt", "6 bottomLimit=45"),
    };
    for (const auto& wrapper : wrappers) ExpectProtocol(_provider, wrapper);
}

TEST_F(TiltTest, PositionsOfAWholeTurnAreRefusedWithoutACallOrAnExitTrace) {
    EXPECT_EQ(_provider.SetPosition(36000), -1);
    EXPECT_THAT(Done(),
                ElementsAre("8 SetPosition: Enter.", "3 SetPosition: position=36000 outside NTCIP range of 0 - 35999"));
    journal::Clear();
    EXPECT_EQ(_provider.SetPositionAtSpeed(2147483647, 0), -1);
    EXPECT_THAT(Done(),
                ElementsAre("8 SetPositionAtSpeed: Enter.", "6 SetPositionAtSpeed: NTCIP speed 0, tavosSpeed 0.000000",
                            "3 SetPositionAtSpeed: position=2147483647 outside NTCIP range of 0 - 35999"));
}

struct Mapping {
    int position;
    int platform;
};

TEST_F(TiltTest, EachQuadrantIsMappedByItself) {
    const Mapping table[] = {
        {0, 0},          {1, 10},         {4500, 45000}, {8999, 89990}, {9000, 0},       {9001, 10},
        {13500, 45000},  {17999, 89990},  {18000, 0},    {18001, -10},  {22500, -45000}, {26999, -89990},
        {27000, -90000}, {31500, -45000}, {35999, -10},  {-1, -10},     {-500, -5000},   {-36500, -365000},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.position);
        journal::Clear();
        EXPECT_EQ(_provider.SetPosition(row.position), 0);
        EXPECT_EQ(_provider.SetPositionAtSpeed(row.position, 0), 0);
        EXPECT_THAT(journal::Calls(), ElementsAre(journal::Join("tilt SetPosition", row.platform, 300),
                                                  journal::Join("tilt SetPositionAtSpeed", row.platform, 0, 300)));
        const auto mapped = std::to_string(row.position) + ", tavosposition " + std::to_string(row.platform);
        EXPECT_THAT(journal::Logged(6), Contains("SetPosition: NTCIP position " + mapped));
        EXPECT_THAT(journal::Logged(6), Contains("SetPositionAtSpeed: NTCIP position " + mapped));
    }
}

TEST_F(TiltTest, AbsoluteCommandLogsEveryStepInOrder) {
    EXPECT_EQ(Command({0x02, 0x7F, 0x57, 0xE4}), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(), Handled("handle_positionTilt",
                              {"6 handle_positionTilt: absolute tilt (2)", "8 SetPositionAtSpeed: Enter.",
                               "6 SetPositionAtSpeed: NTCIP speed 127, tavosSpeed 1.000000",
                               "6 SetPositionAtSpeed: NTCIP position 22500, tavosposition -45000",
                               "call tilt SetPositionAtSpeed -45000 1 300",
                               "6 SetPositionAtSpeed: SetPositionAtSpeed(22500,1.000000, 300)",
                               "8 SetPositionAtSpeed: Done."}));
}

TEST_F(TiltTest, AbsoluteCommandsReachTheWholeCircle) {
    EXPECT_EQ(Command({2, 0, 0x23, 0x28}), SNMP_ERR_NOERROR);
    EXPECT_THAT(journal::Calls(), ElementsAre("tilt SetPositionAtSpeed 0 0 300"));
    EXPECT_EQ(Command({2, 0x81, 0x8C, 0x9F}), SNMP_ERR_NOERROR);
    EXPECT_THAT(journal::Calls(), ElementsAre("tilt SetPositionAtSpeed -10 -1 300"));
}

TEST_F(TiltTest, AnUnknownModeIsReportedByItself) {
    EXPECT_EQ(Command({7, 0, 0, 0}), SNMP_ERR_GENERR);
    EXPECT_EQ(Done(), Handled("handle_positionTilt", {"3 handle_positionTilt: unknown tilt mode (7)"}));
    EXPECT_EQ(Command({0xFF, 0x05, 0, 0}), SNMP_ERR_GENERR);
    EXPECT_THAT(journal::Logged(3), ElementsAre("handle_positionTilt: unknown tilt mode (255)"));
}

TEST_F(TiltTest, DeltaLogsEveryStepInOrder) {
    Camera().answers["tilt.GetPosition"] = 45000;
    EXPECT_EQ(Command({0x01, 0x05, 0x01, 0xF4}), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(),
              Handled("handle_positionTilt",
                      {"6 handle_positionTilt: delta tilt (1)", "8 GetPosition: Enter.", "call tilt GetPosition",
                       "6 GetPosition: currentTilt=45000", "8 GetPosition: Done.",
                       "6 handle_positionTilt: tilt upward,speed=5,new tilt=5000", "8 SetPositionAtSpeed: Enter.",
                       "6 SetPositionAtSpeed: NTCIP speed 5, tavosSpeed 0.039370",
                       "6 SetPositionAtSpeed: NTCIP position 5000, tavosposition 50000",
                       journal::Join("call tilt SetPositionAtSpeed", 50000, 5 / 127.0, 300),
                       "6 SetPositionAtSpeed: SetPositionAtSpeed(5000,0.039370, 300)", "8 SetPositionAtSpeed: Done."}));
}

TEST_F(TiltTest, EveryDeltaFromAnAngleBelowZeroIsRefusedWithoutAnError) {
    for (const int angle : {-90000, -45000, -1}) {
        for (const int speed : {10, -10}) {
            SCOPED_TRACE(journal::Join(angle, speed));
            Camera().answers["tilt.GetPosition"] = static_cast<std::uint32_t>(angle);
            const unsigned base = static_cast<std::uint32_t>(angle) / 10;
            const unsigned target = speed > 0 ? base + 1000 : base - 1000;
            EXPECT_EQ(Command({1, static_cast<u_char>(speed & 0xFF), 0x03, 0xE8}), SNMP_ERR_NOERROR);
            EXPECT_THAT(journal::Calls(), ElementsAre("tilt GetPosition"));
            EXPECT_THAT(journal::Logged(6),
                        Contains(std::string("handle_positionTilt: tilt ") + (speed > 0 ? "upward" : "downward") +
                                 ",speed=" + std::to_string(speed) + ",new tilt=" + std::to_string(target)));
            EXPECT_THAT(journal::Logged(3),
                        ElementsAre("SetPositionAtSpeed: position=" + std::to_string(target - 36000) +
                                    " outside NTCIP range of 0 - 35999"));
        }
    }
}

}  // namespace
