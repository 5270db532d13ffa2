#include <cstdio>
#include <limits>

#include "lens/OrvexSnmpFocus.h"
#include "lens/OrvexSnmpZoom.h"
#include "support/CameraTest.h"

namespace {

class ZoomTest : public MotionTest<OrvexSnmpZoom> {
protected:
    ZoomTest() : MotionTest("positionZoomLens") {}

    /// Sends a delta or an absolute command with the speed and position; returns the resulting call of the service.
    std::string Requested(int mode, int speed, int position) {
        EXPECT_EQ(Command(mode, speed, position), SNMP_ERR_NOERROR);
        return journal::Calls().back();
    }
};

using ZoomConstructionTest = ModuleTest;

TEST_F(ZoomConstructionTest, TracesTheMakingOfItsClientAndDeletesIt) {
    EXPECT_THAT(MadeAndUnmade<OrvexSnmpZoom>(), ElementsAre("8 OrvexSnmpZoom: Enter", "bus CreateClient zoom",
                                                            "8 OrvexSnmpZoom: Done.", "bus DeleteClient zoom"));
}

TEST_F(ZoomTest, EveryWrapperLogsCallsAndReportsFailure) {
    Camera().answers["zoom.GetMagnificationThousandthsX"] = 1234;
    Camera().answers["zoom.GetMaxMagnificationThousandthsX"] = 0xFFFFFFFF;
    Camera().answers["zoom.GetMaxDigitalMagnificationThousandthsX"] = 12000;
    Camera().answers["zoom.GetMaxOpticalMagnificationThousandthsX"] = 35000;
    const Wrapper<OrvexSnmpZoom> wrappers[] = {
        {"SetMagnificationThousandthsX",
         [](const OrvexSnmpZoom& zoom) { return zoom.SetMagnificationThousandthsX(20000); },
         {},
         {"call zoom SetMagnificationThousandthsX 20000 300"},
         "6 SetMagnificationThousandthsX(20000,300)"},
        {"SetMaxMagnificationThousandthsX",
         [](const OrvexSnmpZoom& zoom) { return zoom.SetMaxMagnificationThousandthsX(12345); },
         {},
         {"call zoom SetMaxMagnificationThousandthsX 12345"},
         "6 SetMaxMagnificationThousandthsX(12345)"},
        Getter("GetMagnificationThousandthsX", &OrvexSnmpZoom::GetMagnificationThousandthsX, 1234, "zoom",
               "6 GetMagnificationThousandthsX(1234)"),
        Getter("GetMaxMagnificationThousandthsX", &OrvexSnmpZoom::GetMaxMagnificationThousandthsX, 0xFFFFFFFF, "zoom",
               "6 GetMaxMagnificationThousandthsX(-1)"),
        Getter("GetMaxDigitalMagnificationThousandthsX", &OrvexSnmpZoom::GetMaxDigitalMagnificationThousandthsX, 12000,
               "zoom", "6 GetMaxDigitalMagnificationThousandthsX(12000)"),
        Getter("GetMaxOpticalMagnificationThousandthsX", &OrvexSnmpZoom::GetMaxOpticalMagnificationThousandthsX, 35000,
               "zoom", "6 GetMaxOpticalMagnificationThousandthsX(35000)"),
        {"ZoomRelative",
         [](const OrvexSnmpZoom& zoom) { return zoom.ZoomRelative(-1); },
         {},
         {"call zoom ZoomRelative -1 300"},
         "6 ZoomRelative(-1,300)"},
    };
    for (const auto& wrapper : wrappers) ExpectProtocol(_provider, wrapper);
}

struct Scaling {
    std::uint32_t value, inMin, inMax, outMin, outMax;
    int scaled;
};

TEST_F(ZoomTest, ScalingTruncatesAndLosesTheSign) {
    const Scaling table[] = {
        {0, 0, 65535, 1000, 20000, 1000},
        {65535, 0, 65535, 1000, 20000, 20000},
        {32768, 0, 65535, 1000, 20000, 10500},
        {1000, 0, 65535, 1000, 20000, 1289},
        {20000, 1000, 20000, 0, 65535, 65535},
        {0, 1000, 20000, 0, 65535, 3449},        // -3449.21
        {500, 1000, 20000, 0, 65535, 1724},      // -1724.60
        {2000, 1000, 0, 0, 65535, 65535},        // -65535
        {65535, 0, 65535, 1000, 0, 0},           // a falling range
        {32768, 0, 65535, 1000, 0, 499},         // 499.99
        {10, 0, 10, 0, 0x7FFFFFFF, 0x7FFFFFFF},  // no wrap-around in the product
        {0xFFFFFFFF, 0, 0xFFFFFFFF, 0, 1000, 1000},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(journal::Join(row.value, row.inMin, row.inMax, row.outMin, row.outMax));
        EXPECT_EQ(_provider.ScaleValues(row.value, row.inMin, row.inMax, row.outMin, row.outMax), row.scaled);
    }
}

TEST_F(ZoomTest, AbsoluteCommandsReachFromOneToTheMaximum) {
    EXPECT_EQ(Requested(2, 0, 0), "zoom SetMagnificationThousandthsX 1000 300");
    EXPECT_EQ(Requested(2, 0, 65535), "zoom SetMagnificationThousandthsX 20000 300");
    EXPECT_EQ(Requested(2, 0, 32768), "zoom SetMagnificationThousandthsX 10500 300");
    EXPECT_EQ(Requested(2, -128, 32768), "zoom SetMagnificationThousandthsX 10500 300");
}

TEST_F(ZoomTest, AbsoluteCommandLogsEveryStepInOrder) {
    EXPECT_EQ(Command({2, 9, 0x80, 0x00}), SNMP_ERR_NOERROR);
    EXPECT_EQ(
        Done(),
        Handled("handle_positionZoomLens",
                {"6 handle_positionZoomLens: absolute zoom (2)", "8 GetMaxMagnificationThousandthsX: Enter.",
                 "call zoom GetMaxMagnificationThousandthsX",
                 "6 GetMaxMagnificationThousandthsX: GetMaxMagnificationThousandthsX(20000)",
                 "8 GetMaxMagnificationThousandthsX: Done.",
                 "6 handle_positionZoomLens: NTCIP zoom=32768,0.500008 percent, zoom thousandsths=10500,max=20000",
                 "8 SetMagnificationThousandthsX: Enter.", "call zoom SetMagnificationThousandthsX 10500 300",
                 "6 SetMagnificationThousandthsX: SetMagnificationThousandthsX(10500,300)",
                 "8 SetMagnificationThousandthsX: Done."}));
}

TEST_F(ZoomTest, DeltaCommandLogsEveryStepInOrder) {
    EXPECT_EQ(Command({1, 5, 0x03, 0xE8}), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(),
              Handled("handle_positionZoomLens",
                      {"6 handle_positionZoomLens: delta zoom (1)", "8 GetMaxMagnificationThousandthsX: Enter.",
                       "call zoom GetMaxMagnificationThousandthsX",
                       "6 GetMaxMagnificationThousandthsX: GetMaxMagnificationThousandthsX(20000)",
                       "8 GetMaxMagnificationThousandthsX: Done.", "8 GetMagnificationThousandthsX: Enter.",
                       "call zoom GetMagnificationThousandthsX",
                       "6 GetMagnificationThousandthsX: GetMagnificationThousandthsX(1000)",
                       "8 GetMagnificationThousandthsX: Done.",
                       "6 handle_positionZoomLens: NTCIP zoom cur=1000,req=1000,delta=0.015259 percent, tavos "
                       "cur=1000,req=1289,max=20000",
                       "8 SetMagnificationThousandthsX: Enter.", "call zoom SetMagnificationThousandthsX 1289 300",
                       "6 SetMagnificationThousandthsX: SetMagnificationThousandthsX(1289,300)",
                       "8 SetMagnificationThousandthsX: Done."}));
}

struct Step {
    std::uint32_t from, max;  ///< thousandths
    int speed;
    int position;
    int target;     ///< NTCIP, clamped
    int requested;  ///< thousandths
};

TEST_F(ZoomTest, DeltaTakesItsSignFromTheSpeedAndFromThePosition) {
    const Step steps[] = {
        {1000, 20000, 1, 1000, 1000, 1289},
        {1000, 20000, 0, 1000, 1000, 1289},      // a speed of 0 counts as positive
        {20000, 20000, -1, 1000, 64535, 19710},  // 1000 + 19000 * 64535 / 65535 = 19710.07
        {20000, 20000, -128, 1000, 64535, 19710},
        {20000, 20000, 1, 0xFFFF, 65534, 19999},   // a step of -1
        {20000, 20000, 1, 0x8000, 32767, 10499},   // a step of -32768
        {1000, 20000, -1, 0xFFFF, 1, 1000},        // a step of +1
        {20000, 20000, -1, 0x8000, 32767, 10499},  // -32768 again: its negation has no 16 bits
        {1000, 20000, -1, 0x8001, 32767, 10499},   // a step of +32767
        {1000, 20000, 1, 0x7FFF, 32767, 10499},
        {20000, 20000, 1, 1, 65535, 20000},  // clamped above
        {20000, 20000, 127, 0x7FFF, 65535, 20000},
        {1000, 20000, -1, 1, 0, 1000},  // clamped below
        {1000, 20000, 1, 0x8000, 0, 1000},
        {10000, 20000, -1, 0, 31042, 9999},   // 31042.89 and 9999.74, both truncated
        {500, 20000, 1, 0, 1724, 1499},       // below 1.0x: the sign is lost
        {30000, 20000, -1, 1, 65535, 20000},  // above the maximum
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(journal::Join(step.from, step.speed, step.position));
        Camera().answers["zoom.GetMagnificationThousandthsX"] = step.from;
        Camera().answers["zoom.GetMaxMagnificationThousandthsX"] = step.max;
        EXPECT_EQ(Requested(1, step.speed, step.position),
                  journal::Join("zoom SetMagnificationThousandthsX", step.requested, 300));
        char percent[32];
        std::snprintf(percent, sizeof percent, "%f", step.position / 65535.0);
        EXPECT_THAT(journal::Logged(6),
                    Contains("handle_positionZoomLens: NTCIP zoom cur=" + std::to_string(step.target) +
                             ",req=" + std::to_string(step.position) + ",delta=" + percent +
                             " percent, tavos cur=" + std::to_string(step.from) +
                             ",req=" + std::to_string(step.requested) + ",max=" + std::to_string(step.max)));
    }
}

TEST_F(ZoomTest, AMaximumOfOneLeavesNothingToZoom) {
    Camera().answers["zoom.GetMaxMagnificationThousandthsX"] = 1000;
    for (const int position : {0, 1, 32768, 65535}) {
        SCOPED_TRACE(position);
        EXPECT_EQ(Requested(2, 0, position), "zoom SetMagnificationThousandthsX 1000 300");
        // An empty range cannot scale the current position. Every position must request 1.0x.
        for (const unsigned current : {0U, 1000U, 20000U, 0xFFFFFFFFU}) {
            Camera().answers["zoom.GetMagnificationThousandthsX"] = current;
            EXPECT_EQ(Requested(1, 1, position), "zoom SetMagnificationThousandthsX 1000 300");
            EXPECT_EQ(Requested(1, -1, position), "zoom SetMagnificationThousandthsX 1000 300");
        }
    }
}

TEST_F(ZoomTest, AMaximumThatCannotBeReadCountsAsZero) {
    for (const auto thrown : kEveryThrow) {
        Fail("zoom.GetMaxMagnificationThousandthsX", thrown);
        EXPECT_EQ(Requested(2, 0, 0), "zoom SetMagnificationThousandthsX 1000 300");
        EXPECT_EQ(Requested(2, 0, 32768), "zoom SetMagnificationThousandthsX 499 300");
        EXPECT_EQ(journal::Logged(3), Lines{"Exception while GetMaxMagnificationThousandthsX"});
        EXPECT_THAT(journal::Logged(6), Contains("handle_positionZoomLens: NTCIP zoom=32768,0.500008 percent, zoom "
                                                 "thousandsths=499,max=0"));
        EXPECT_EQ(Requested(2, 0, 65535), "zoom SetMagnificationThousandthsX 0 300");

        Camera().answers["zoom.GetMagnificationThousandthsX"] = 2000;  // maps to -65535, which comes back positive
        EXPECT_EQ(Requested(1, -1, 1), "zoom SetMagnificationThousandthsX 0 300");
        EXPECT_THAT(journal::Logged(6),
                    Contains("handle_positionZoomLens: NTCIP zoom cur=65534,req=1,delta=0.000015 percent, tavos "
                             "cur=2000,req=0,max=0"));
    }
}

TEST_F(ZoomTest, AMagnificationThatCannotBeReadCountsAsZero) {
    for (const auto thrown : kEveryThrow) {
        Fail("zoom.GetMagnificationThousandthsX", thrown);
        EXPECT_EQ(Requested(1, 1, 1), "zoom SetMagnificationThousandthsX 2000 300");  // 3450: 1000 + 1000.22
        EXPECT_EQ(journal::Logged(3), Lines{"Exception while GetMagnificationThousandthsX"});
        EXPECT_THAT(journal::Logged(6),
                    Contains("handle_positionZoomLens: NTCIP zoom cur=3450,req=1,delta=0.000015 percent, tavos "
                             "cur=0,req=2000,max=20000"));
    }
}

TEST_F(ZoomTest, ADeltaWithNeitherReadGoesOnWithZeros) {
    for (const auto thrown : kEveryThrow) {
        Fail("zoom.GetMagnificationThousandthsX", thrown);
        Fail("zoom.GetMaxMagnificationThousandthsX", thrown);
        EXPECT_EQ(Requested(1, 1, 100), "zoom SetMagnificationThousandthsX 0 300");
        EXPECT_THAT(journal::Logged(6),
                    Contains("handle_positionZoomLens: NTCIP zoom cur=65535,req=100,delta=0.001526 percent, tavos "
                             "cur=0,req=0,max=0"));
        EXPECT_EQ(journal::Logged(3), (Lines{"Exception while GetMaxMagnificationThousandthsX",
                                             "Exception while GetMagnificationThousandthsX"}));
    }
}

TEST_F(ZoomTest, StopEndsTheMove) {
    EXPECT_EQ(Command({0, 0, 0x12, 0x34}), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(),
              Handled("handle_positionZoomLens", {"6 handle_positionZoomLens: stop zoom (0)", "8 ZoomRelative: Enter.",
                                                  "call zoom ZoomRelative 0 300", "6 ZoomRelative: ZoomRelative(0,300)",
                                                  "8 ZoomRelative: Done."}));
}

TEST_F(ZoomTest, StopWithASpeedIsRefusedAndAnsweredByTheNextGet) {
    EXPECT_EQ(Command({0, 0xFB, 0, 0}), SNMP_ERR_GENERR);
    EXPECT_EQ(Done(), Handled("handle_positionZoomLens", {"6 handle_positionZoomLens: stop zoom (0)",
                                                          "3 handle_positionZoomLens: stop zoom speed not zero(-5)"}));
    EXPECT_EQ(Command({0, 5, 0, 0}), SNMP_ERR_GENERR);
    EXPECT_THAT(journal::Logged(3), ElementsAre("handle_positionZoomLens: stop zoom speed not zero(5)"));
    SnmpRequest get(OrvexSnmpOid::oid_positionZoomLens);
    EXPECT_EQ(get.Call(OrvexSnmpZoom::handle_positionZoomLens, MODE_GET), SNMP_ERR_NOERROR);
    EXPECT_THAT(get.Octets(), ElementsAre(0, 5, 0, 0));
}

TEST_F(ZoomTest, ContinuousZoomsInForASpeedOfZeroOrMore) {
    for (const u_char speed : {u_char{0}, u_char{20}, u_char{127}}) {
        EXPECT_EQ(Command({3, speed, 0, 0}), SNMP_ERR_NOERROR);
        EXPECT_EQ(Done(), Handled("handle_positionZoomLens",
                                  {"8 ZoomRelative: Enter.", "call zoom ZoomRelative 1 300",
                                   "6 ZoomRelative: ZoomRelative(1,300)", "8 ZoomRelative: Done.",
                                   "6 handle_positionZoomLens: continuous zoom=3, direction=ZoomIn"}));
    }
}

TEST_F(ZoomTest, ContinuousZoomsOutForANegativeSpeed) {
    for (const u_char speed : {u_char{0xFF}, u_char{0x81}}) {
        EXPECT_EQ(Command({3, speed, 0, 0}), SNMP_ERR_NOERROR);
        EXPECT_EQ(Done(), Handled("handle_positionZoomLens",
                                  {"8 ZoomRelative: Enter.", "call zoom ZoomRelative -1 300",
                                   "6 ZoomRelative: ZoomRelative(-1,300)", "8 ZoomRelative: Done.",
                                   "6 handle_positionZoomLens: continuous zoom=3, direction=ZoomOut"}));
    }
}

TEST_F(ZoomTest, ContinuousAtMinus128EndsAtOnceWithoutAnAnswerOrAnExitTrace) {
    SnmpRequest request(OrvexSnmpOid::oid_positionZoomLens);
    request.WithOctets({3, 0x80, 1, 2, 3, 4});
    EXPECT_EQ(request.Call(OrvexSnmpZoom::handle_positionZoomLens, MODE_SET_COMMIT), SNMP_ERR_GENERR);
    EXPECT_THAT(Done(), ElementsAre("8 handle_positionZoomLens: Enter.", "7 handle_positionZoomLens: Received OID ",
                                    "6 handle_positionZoomLens: NTCIP speed -128 outside range of -127 to +127"));
    EXPECT_THAT(Agent().answers, IsEmpty());
    EXPECT_THAT(request.Octets(), ElementsAre(3, 0x80, 1, 2, 3, 4));
    EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
    SnmpRequest get(OrvexSnmpOid::oid_positionZoomLens);
    get.Call(OrvexSnmpZoom::handle_positionZoomLens, MODE_GET);
    EXPECT_THAT(get.Octets(), ElementsAre(3, 0x80, 1, 2));
}

TEST_F(ZoomTest, AnUnknownModeIsReportedByItsSpeed) {
    EXPECT_EQ(Command({7, 9, 0, 0}), SNMP_ERR_GENERR);
    EXPECT_EQ(Done(), Handled("handle_positionZoomLens", {"3 handle_positionZoomLens: unknown zoom mode (9)"}));
}

// --- scaling at its limits ---

TEST_F(ZoomTest, ScalingMultipliesBeforeItDivides) {
    const OrvexSnmpFocus focus{_bus};
    // Dividing first would make these results lower by one.
    EXPECT_EQ(_provider.ScaleValues(56283, 0, 65535, 1000, 35000), 30200);
    EXPECT_EQ(_provider.ScaleValues(39321, 0, 65535, 1000, 12000), 7600);
    EXPECT_EQ(focus.ScaleValues(56283, 0, 65535, 1000, 35000), 30200);
    EXPECT_EQ(focus.ScaleValues(39321, 0, 65535, 1000, 12000), 7600);
}

TEST_F(ZoomTest, ScalingTruncatesBeforeItChecksThatTheResultFits) {
    constexpr auto kAll = std::numeric_limits<std::uint32_t>::max();
    constexpr auto kSmallest = std::numeric_limits<int>::min();
    EXPECT_EQ(_provider.ScaleValues(1, 0, 2, 0, kAll), 2147483647);                // 2147483647.5
    EXPECT_EQ(_provider.ScaleValues(0, 1, 3, 0, kAll), 2147483647);                // -2147483647.5
    EXPECT_EQ(_provider.ScaleValues(2147483647, 0, 1, 0, 1), 2147483647);          // exactly
    EXPECT_EQ(_provider.ScaleValues(2147483648, 0, 1, 0, 1), kSmallest);           // 2147483648
    EXPECT_EQ(_provider.ScaleValues(0, 2147483648, 2147483649, 0, 1), kSmallest);  // -2147483648
    EXPECT_EQ(_provider.ScaleValues(kAll, 0, 1, 0, kAll), kSmallest);              // about 2^64
}

TEST_F(ZoomTest, ScalingOfAnEmptyRangeIsTheSmallestInt) {
    constexpr auto kSmallest = std::numeric_limits<int>::min();
    EXPECT_EQ(_provider.ScaleValues(8, 7, 7, 0, 100), kSmallest);  // infinity
    EXPECT_EQ(_provider.ScaleValues(6, 7, 7, 0, 100), kSmallest);  // minus infinity
    EXPECT_EQ(_provider.ScaleValues(7, 7, 7, 0, 100), kSmallest);  // not a number
    EXPECT_EQ(_provider.ScaleValues(8, 7, 7, 50, 50), kSmallest);  // not a number
}

}  // namespace
