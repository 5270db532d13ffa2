#include <climits>
#include <cstdlib>

#include "motion/OrvexSnmpPan.h"
#include "support/CameraTest.h"

namespace {

class PanTest : public MotionTest<OrvexSnmpPan> {
protected:
    PanTest() : MotionTest("positionPan") {}

    SnmpRequest _offset{OrvexSnmpOid::oid_rangeTrueNorthOffset};

    long Offset() {
        SnmpRequest request(OrvexSnmpOid::oid_rangeTrueNorthOffset);
        EXPECT_EQ(request.Call(OrvexSnmpPan::handle_rangeTrueNorthOffset, MODE_GET), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Type(), ASN_INTEGER);
        EXPECT_THAT(Agent().answers, ElementsAre(Answer{ASN_INTEGER, 4}));
        return request.Integer();
    }

    void SetOffset(long value) {
        SnmpRequest request(OrvexSnmpOid::oid_rangeTrueNorthOffset);
        request.WithInteger(value);
        EXPECT_EQ(request.Set(OrvexSnmpPan::handle_rangeTrueNorthOffset), SNMP_ERR_NOERROR);
        EXPECT_EQ(Offset(), value);
        journal::Clear();
    }

    static Lines OffsetLines(const Lines& between) {
        return Lines{"7 handle_rangeTrueNorthOffset: Enter."} + between + Lines{"7 handle_rangeTrueNorthOffset: Done."};
    }
};

using PanConstructionTest = ModuleTest;

TEST_F(PanConstructionTest, TracesTheMakingOfItsClientAndDeletesIt) {
    EXPECT_THAT(MadeAndUnmade<OrvexSnmpPan>(), ElementsAre("8 OrvexSnmpPan: Enter", "bus CreateClient pan",
                                                           "8 OrvexSnmpPan: Done.", "bus DeleteClient pan"));
}

TEST_F(PanTest, EveryWrapperLogsCallsAndReportsFailure) {
    Camera().answers["pan.GetPosition"] = 123450;
    Camera().answers["pan.GetMinPosition"] = 11;
    Camera().answers["pan.GetMaxPosition"] = 359990;
    Camera().answers["pan.GetRelativeVelocity"] = -0.25;
    const Wrapper<OrvexSnmpPan> wrappers[] = {
        {"SetPosition",
         [](const OrvexSnmpPan& pan) { return pan.SetPosition(36001); },
         {},
         {"call pan SetPosition 360010 300"},
         "6 SetPosition=(360010,300)"},
        {"SetPositionAtSpeed",
         [](const OrvexSnmpPan& pan) { return pan.SetPositionAtSpeed(-37000, -127); },
         {"6 SetPositionAtSpeed: NTCIP speed -127, tavosSpeed -1.000000"},
         {"call pan SetPositionAtSpeed -370000 -1 300"},
         "6 SetPositionAtSpeed(-370000,-1.000000,300)"},
        Getter("GetPosition", &OrvexSnmpPan::GetPosition, 123450U, "pan", "6 currentPosition=123450"),
        Getter("GetMinPosition", &OrvexSnmpPan::GetMinPosition, 11U, "pan", "6 leftLimit=11"),
        Getter("GetMaxPosition", &OrvexSnmpPan::GetMaxPosition, 359990U, "pan", "6 rightLimit=359990"),
        {"SetRelativeVelocity",
         [](const OrvexSnmpPan& pan) { return pan.SetRelativeVelocity(127); },
         {"6 SetRelativeVelocity: NTCIP speed 127, tavosSpeed 1.000000"},
         {"call pan SetRelativeVelocity 1 300"},
         "6 SetRelativeVelocity(1.000000,300)"},
        Getter("GetRelativeVelocity", &OrvexSnmpPan::GetRelativeVelocity, -0.25, "pan", "6 velocity=-0.250000"),
    };
    for (const auto& wrapper : wrappers) ExpectProtocol(_provider, wrapper);
}

TEST_F(PanTest, PositionsOfTheServiceArePrintedSigned) {
    Camera().answers["pan.GetPosition"] = 0xFFFFFFFB;
    unsigned position = 0;
    EXPECT_EQ(_provider.GetPosition(position), 0);
    EXPECT_EQ(position, 0xFFFFFFFB);
    EXPECT_THAT(journal::Logged(6), ElementsAre("GetPosition: currentPosition=-5"));
}

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

TEST_F(PanTest, AbsoluteCommandsReachFromZeroToJustBelowATurn) {
    EXPECT_EQ(Command({2, 0x7F, 0x23, 0x28}), SNMP_ERR_NOERROR);
    EXPECT_THAT(journal::Calls(), ElementsAre("pan SetPositionAtSpeed 90000 1 300"));
    EXPECT_EQ(Command({2, 0x81, 0x00, 0x00}), SNMP_ERR_NOERROR);
    EXPECT_THAT(journal::Calls(), ElementsAre("pan SetPositionAtSpeed 0 -1 300"));
    EXPECT_EQ(Command({2, 0x00, 0x8C, 0x9F}), SNMP_ERR_NOERROR);
    EXPECT_THAT(journal::Calls(), ElementsAre("pan SetPositionAtSpeed 359990 0 300"));
}

TEST_F(PanTest, AnUnknownModeIsReportedByItsSpeed) {
    EXPECT_EQ(Command({9, 0xFE, 0, 0}), SNMP_ERR_GENERR);
    EXPECT_EQ(Done(), Handled("handle_positionPan", {"3 handle_positionPan: unknown pan mode (-2)"}));
}

TEST_F(PanTest, DeltaLogsEveryStepInOrder) {
    Camera().answers["pan.GetPosition"] = 10000;
    EXPECT_EQ(Command({1, 0xF6, 0x07, 0xD0}), SNMP_ERR_NOERROR);
    EXPECT_EQ(
        Done(),
        Handled("handle_positionPan",
                {"6 handle_positionPan: delta pan (1)", "8 GetPosition: Enter.", "call pan GetPosition",
                 "6 GetPosition: currentPosition=10000", "8 GetPosition: Done.",
                 "6 handle_positionPan: pan negative counter-clockwise,speed=-10,new pan=-1000",
                 "8 SetPositionAtSpeed: Enter.", "6 SetPositionAtSpeed: NTCIP speed -10, tavosSpeed -0.078740",
                 journal::Join("call pan SetPositionAtSpeed", -370000, -10 / 127.0, 300),
                 "6 SetPositionAtSpeed: SetPositionAtSpeed(-370000,-0.078740,300)", "8 SetPositionAtSpeed: Done."}));
}

TEST_F(PanTest, DeltaFromAnAngleBelowZeroWrapsAround32Bits) {
    // The service's -1 read as unsigned: 429496729 NTCIP units, a turn less, times ten in 32 bits.
    Camera().answers["pan.GetPosition"] = 0xFFFFFFFF;
    EXPECT_EQ(Command({1, 1, 0, 0}), SNMP_ERR_NOERROR);
    EXPECT_THAT(journal::Logged(6), Contains("handle_positionPan: pan positive clockwise,speed=1,new pan=429496729"));
    EXPECT_THAT(journal::Calls().back(), HasSubstr("SetPositionAtSpeed -360006 "));
}

// --- rangeTrueNorthOffset ---

using PanDeathTest = PanTest;

TEST_F(PanDeathTest, TrueNorthOffsetIs65535FromLoad) {
    // In a separate process: the offset outlives the provider.
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(std::_Exit(Offset() == 65535 && !HasFailure() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST_F(PanTest, TrueNorthOffsetIsRememberedAndNeverSentToTheService) {
    SetOffset(0);
    SetOffset(65535);
    SetOffset(65535);
    SetOffset(0);
    SnmpRequest request(OrvexSnmpOid::oid_rangeTrueNorthOffset);
    request.WithInteger(65535);
    EXPECT_EQ(request.Set(OrvexSnmpPan::handle_rangeTrueNorthOffset), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Integer(), 65535);
    EXPECT_THAT(journal::Calls(), IsEmpty());
}

TEST_F(PanTest, TrueNorthOffsetChangesNoPanCommand) {
    Camera().answers["pan.GetPosition"] = 100000;
    for (const long offset : {65535L, 0L}) {
        SetOffset(offset);
        Command({1, 10, 0, 0});
        EXPECT_THAT(journal::Calls().back(), HasSubstr("SetPositionAtSpeed 100000 "));
        Command({2, 10, 0x46, 0x50});
        EXPECT_THAT(journal::Calls().back(), HasSubstr("SetPositionAtSpeed 180000 "));
    }
}

TEST_F(PanConstructionTest, TrueNorthOffsetOutlivesTheProvider) {
    tavos::msgbus::MsgBus bus;
    for (const long offset : {0L, 65535L, 0L}) {
        SnmpRequest set(OrvexSnmpOid::oid_rangeTrueNorthOffset);
        {
            const OrvexSnmpPan pan{bus};
            set.WithInteger(offset).Set(OrvexSnmpPan::handle_rangeTrueNorthOffset);
        }
        const OrvexSnmpPan pan{bus};
        SnmpRequest get(OrvexSnmpOid::oid_rangeTrueNorthOffset);
        get.Call(OrvexSnmpPan::handle_rangeTrueNorthOffset, MODE_GET);
        EXPECT_EQ(get.Integer(), offset);
    }
}

TEST_F(PanTest, TrueNorthOffsetLogsItsGetAtDebugAndNoOid) {
    SetOffset(65535);
    _offset.WithRangeEnd({1, 3, 6});
    EXPECT_EQ(_offset.Call(OrvexSnmpPan::handle_rangeTrueNorthOffset, MODE_GET), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(), OffsetLines({}));
}

TEST_F(PanTest, TrueNorthOffsetOfAWrongTypeIsMarkedAndReturnedInReserve1) {
    SetOffset(65535);
    _offset.WithOctets({0, 0});
    EXPECT_EQ(_offset.Call(OrvexSnmpPan::handle_rangeTrueNorthOffset, MODE_SET_RESERVE1), SNMP_ERR_WRONGTYPE);
    EXPECT_EQ(_offset.Mark(), SNMP_ERR_WRONGTYPE);
    EXPECT_EQ(Done(), OffsetLines({}));
    EXPECT_EQ(Offset(), 65535);
}

TEST_F(PanTest, TrueNorthOffsetOtherThanItsTwoValuesIsMarkedWrongValueAndReturnsGenErr) {
    SetOffset(65535);
    for (const long value : {1L, -1L, 65534L, 65536L, 36000L, static_cast<long>(INT_MIN), static_cast<long>(INT_MAX)}) {
        SCOPED_TRACE(value);
        SnmpRequest request(OrvexSnmpOid::oid_rangeTrueNorthOffset);
        request.WithInteger(value);
        EXPECT_EQ(request.Call(OrvexSnmpPan::handle_rangeTrueNorthOffset, MODE_SET_RESERVE1), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
        journal::Clear();
        EXPECT_EQ(request.Call(OrvexSnmpPan::handle_rangeTrueNorthOffset, MODE_SET_RESERVE2), SNMP_ERR_GENERR);
        EXPECT_EQ(request.Mark(), SNMP_ERR_WRONGVALUE);
        EXPECT_EQ(Done(), OffsetLines({"3 handle_rangeTrueNorthOffset: true north offset can only be 0 or 65535"}));
        EXPECT_EQ(Offset(), 65535);
    }
}

TEST_F(PanTest, TrueNorthOffsetIsStoredInTheActionPhaseAloneAndNotUndone) {
    SetOffset(65535);
    _offset.WithInteger(0);
    for (const int mode : {MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_COMMIT, MODE_SET_FREE, MODE_SET_UNDO,
                           static_cast<int>(MODE_GETNEXT)}) {
        SCOPED_TRACE(mode);
        journal::Clear();
        EXPECT_EQ(_offset.Call(OrvexSnmpPan::handle_rangeTrueNorthOffset, mode), SNMP_ERR_NOERROR);
        EXPECT_THAT(Agent().answers, IsEmpty());
        EXPECT_EQ(Done(), OffsetLines({}));
        EXPECT_EQ(Offset(), 65535);
    }
    journal::Clear();
    EXPECT_EQ(_offset.Call(OrvexSnmpPan::handle_rangeTrueNorthOffset, MODE_SET_ACTION), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(), OffsetLines({}));
    EXPECT_EQ(Offset(), 0);
    EXPECT_EQ(_offset.Call(OrvexSnmpPan::handle_rangeTrueNorthOffset, MODE_SET_UNDO), SNMP_ERR_NOERROR);
    EXPECT_EQ(Offset(), 0);
    EXPECT_EQ(_offset.Mark(), SNMP_ERR_NOERROR);
}

TEST_F(PanTest, TrueNorthOffsetCountsMissingOctetsAsZero) {
    const u_char octets[] = {0xFF, 0xFF, 0, 0, 0, 0, 0, 0};
    const int expected[] = {0, -1, 65535, 65535, 65535, 65535, 65535, 65535, 65535};  // by length; -1: refused
    for (std::size_t length = 0; length <= sizeof octets; ++length) {
        SCOPED_TRACE(length);
        const int before = expected[length] == 0 ? 65535 : 0;
        SetOffset(before);
        SnmpRequest request(OrvexSnmpOid::oid_rangeTrueNorthOffset);
        request.With(ASN_INTEGER, octets, length);
        EXPECT_EQ(request.Set(OrvexSnmpPan::handle_rangeTrueNorthOffset),
                  expected[length] < 0 ? SNMP_ERR_GENERR : SNMP_ERR_NOERROR);
        EXPECT_EQ(Offset(), expected[length] < 0 ? before : expected[length]);
    }
}

TEST_F(PanTest, TrueNorthOffsetInAnUnknownModeIsMarkedAndReturnsGenErr) {
    for (const int mode : kUnknownModes) {
        SCOPED_TRACE(mode);
        SnmpRequest request(OrvexSnmpOid::oid_rangeTrueNorthOffset);
        request.WithInteger(0);
        journal::Clear();
        EXPECT_EQ(request.Call(OrvexSnmpPan::handle_rangeTrueNorthOffset, mode), SNMP_ERR_GENERR);
        EXPECT_EQ(request.Mark(), SNMP_ERR_GENERR);
        EXPECT_EQ(Done(), OffsetLines({"3 handle_rangeTrueNorthOffset: unknown mode (" + std::to_string(mode) + ")"}));
        EXPECT_THAT(Agent().answers, IsEmpty());
    }
}

}  // namespace
