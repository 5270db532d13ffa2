#include <cstring>

#include "lens/OrvexSnmpIris.h"
#include "support/CameraTest.h"

namespace {

class IrisTest : public MotionTest<OrvexSnmpIris> {
protected:
    IrisTest() : MotionTest("positionIrisLens") {}

    /// A handler's lines: the two that show every request's command, followed by the given ones.
    static Lines Shown(const std::string& decoded, const std::string& raw, const Lines& after) {
        const std::string name = "6 handle_positionIrisLens: ";
        return Handled("handle_positionIrisLens", Lines{name + "iris=" + decoded, name + "iris=" + raw} + after);
    }

    static Lines Move(int direction) {
        return {"8 MoveIris: Enter.", journal::Join("call iris MoveIris", direction),
                "6 MoveIris: moveIris=" + std::to_string(direction), "8 MoveIris: Done."};
    }
};

using IrisConstructionTest = ModuleTest;

TEST_F(IrisConstructionTest, TracesTheMakingOfItsClientAndDeletesIt) {
    EXPECT_THAT(MadeAndUnmade<OrvexSnmpIris>(), ElementsAre("8 OrvexSnmpIris: Enter", "bus CreateClient iris",
                                                            "8 OrvexSnmpIris: Done.", "bus DeleteClient iris"));
}

TEST_F(IrisTest, MoveIrisLogsCallsAndReportsFailure) {
    for (const int direction : {-1, 0, 1}) {
        ExpectProtocol<OrvexSnmpIris>(_provider,
                                      {"MoveIris",
                                       [direction](const OrvexSnmpIris& iris) { return iris.MoveIris(direction); },
                                       {},
                                       {journal::Join("call iris MoveIris", direction)},
                                       "6 moveIris=" + std::to_string(direction)});
    }
}

TEST_F(IrisTest, EveryRequestShowsTheCommandAndTheLastOne) {
    // The position twice: decoded, and as a little-endian word of the octets. The second speed is signed.
    EXPECT_EQ(Command({2, 0xEC, 0x12, 0x34}), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(), Shown("02 ec 1234,last=00 00 0000", "02 ffffffec 3412",
                            {"3 handle_positionIrisLens: absolute iris (2), NOT IMPLEMENTED"}));
    for (const int mode : {static_cast<int>(MODE_GET), static_cast<int>(MODE_GETNEXT), MODE_SET_RESERVE1,
                           MODE_SET_RESERVE2, MODE_SET_ACTION, MODE_SET_FREE, MODE_SET_UNDO, 6, 162, -1}) {
        SCOPED_TRACE(mode);
        SnmpRequest request(OrvexSnmpOid::oid_positionIrisLens);
        request.WithOctets({0xA3, 0x0F, 0x00, 0xCD});
        journal::Clear();
        EXPECT_EQ(request.Call(OrvexSnmpIris::handle_positionIrisLens, mode), SNMP_ERR_NOERROR);
        EXPECT_EQ(Done(), Shown("a3 0f 00cd,last=02 ec 3412", "a3 0f cd00", {}));
    }
}

TEST_F(IrisTest, StopEndsTheMove) {
    EXPECT_EQ(Command({0, 0, 0, 0}), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(), Shown("00 00 0000,last=00 00 0000", "00 00 0000",
                            Lines{"6 handle_positionIrisLens: stop iris (0)"} + Move(0)));
}

TEST_F(IrisTest, StopWithASpeedIsRefusedWithTheSignedSpeed) {
    EXPECT_EQ(Command({0, 3, 0, 0}), SNMP_ERR_GENERR);
    EXPECT_EQ(Done(), Shown("00 03 0000,last=00 00 0000", "00 03 0000",
                            {"6 handle_positionIrisLens: stop iris (0)",
                             "3 handle_positionIrisLens: stop iris speed not zero(3)"}));
    EXPECT_EQ(Command({0, 0x80, 0, 0}), SNMP_ERR_GENERR);
    EXPECT_THAT(journal::Logged(3), ElementsAre("handle_positionIrisLens: stop iris speed not zero(-128)"));
}

TEST_F(IrisTest, DeltaAndAbsoluteAreAcceptedButNotImplemented) {
    for (const auto& [mode, line] : {std::pair{u_char{1}, "delta iris (1), NOT IMPLEMENTED"},
                                     std::pair{u_char{2}, "absolute iris (2), NOT IMPLEMENTED"}}) {
        EXPECT_EQ(Command({mode, 0x80, 0xFF, 0xFF}), SNMP_ERR_NOERROR);
        EXPECT_THAT(journal::Logged(3), ElementsAre("handle_positionIrisLens: " + std::string(line)));
        EXPECT_THAT(journal::Calls(), IsEmpty());
        SnmpRequest get(OrvexSnmpOid::oid_positionIrisLens);
        get.Call(OrvexSnmpIris::handle_positionIrisLens, MODE_GET);
        EXPECT_THAT(get.Octets(), ElementsAre(mode, 0x80, 0xFF, 0xFF));
    }
}

TEST_F(IrisTest, ContinuousMovesAgainstTheSignOfTheSpeed) {
    EXPECT_EQ(Command({3, 20, 0, 0}), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(), Shown("03 14 0000,last=00 00 0000", "03 14 0000",
                            Move(-1) + Lines{"6 handle_positionIrisLens: continuous iris=3, speed=20"}));
    EXPECT_EQ(Command({3, 0xEC, 0, 0}), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(), Shown("03 ec 0000,last=03 14 0000", "03 ffffffec 0000",
                            Move(1) + Lines{"6 handle_positionIrisLens: continuous iris=3, speed=-20"}));
    EXPECT_EQ(Command({3, 0, 0, 0}), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(), Shown("03 00 0000,last=03 ec 0000", "03 00 0000",
                            Move(-1) + Lines{"6 handle_positionIrisLens: continuous iris=3, speed=0"}));
}

TEST_F(IrisTest, ContinuousAtMinus128IsRefusedAndStillLoggedAndAnswered) {
    SnmpRequest request(OrvexSnmpOid::oid_positionIrisLens);
    request.WithOctets({3, 0x80, 1, 2, 9});
    EXPECT_EQ(request.Call(OrvexSnmpIris::handle_positionIrisLens, MODE_SET_COMMIT), SNMP_ERR_GENERR);
    EXPECT_EQ(Done(), Shown("03 80 0102,last=00 00 0000", "03 ffffff80 0201",
                            {"6 handle_positionIrisLens: NTCIP speed -128 outside range of -127 to +127",
                             "6 handle_positionIrisLens: continuous iris=3, speed=-128"}));
    EXPECT_THAT(request.Octets(), ElementsAre(3, 0x80, 1, 2));
    SnmpRequest get(OrvexSnmpOid::oid_positionIrisLens);
    get.Call(OrvexSnmpIris::handle_positionIrisLens, MODE_GET);
    EXPECT_THAT(get.Octets(), ElementsAre(3, 0x80, 1, 2));
}

TEST_F(IrisTest, AnUnknownModeIsReportedByItsSpeed) {
    EXPECT_EQ(Command({4, 0xFE, 0, 0}), SNMP_ERR_GENERR);
    EXPECT_EQ(Done(), Shown("04 fe 0000,last=00 00 0000", "04 fffffffe 0000",
                            {"3 handle_positionIrisLens: unknown iris mode (-2)"}));
}

TEST_F(IrisTest, TheLastCommandIsKeptInTheOrderOfItsOctets) {
    EXPECT_EQ(_provider.GetLastIris(), 0);
    Command({2, 0x40, 0x46, 0x50});
    const int last = _provider.GetLastIris();
    u_char octets[4];
    std::memcpy(octets, &last, sizeof octets);
    EXPECT_THAT(octets, ElementsAre(2, 0x40, 0x46, 0x50));

    _provider.SetLastIris(0);
    SnmpRequest request(OrvexSnmpOid::oid_positionIrisLens);
    request.Call(OrvexSnmpIris::handle_positionIrisLens, MODE_GET);
    EXPECT_THAT(request.Octets(), ElementsAre(0, 0, 0, 0));
}

}  // namespace
