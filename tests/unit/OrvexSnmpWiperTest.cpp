#include <cstdio>

#include "lens/OrvexSnmpWiper.h"
#include "support/CameraTest.h"

namespace {

const CameraObject kControl{"systemCameraFeatureControl"};
const CameraObject kEquipped{"systemCameraEquipped"};

class WiperTest : public ProviderTest<OrvexSnmpWiper> {
protected:
    std::vector<u_char> Get(const CameraObject& object, int mode = MODE_GET) {
        SnmpRequest request(object.oidName, object.length);
        journal::Clear();
        EXPECT_EQ(request.Call(object.handler, mode), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Type(), ASN_OCTET_STR);
        EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
        return request.Octets();
    }

    int Set(const CameraObject& object, const std::vector<u_char>& octets) {
        SnmpRequest request(object.oidName, object.length);
        return request.WithOctets(octets).Set(object.handler);
    }
};

using WiperConstructionTest = ModuleTest;

TEST_F(WiperConstructionTest, TracesTheMakingOfTheFanClientAndDeletesIt) {
    EXPECT_THAT(MadeAndUnmade<OrvexSnmpWiper>(), ElementsAre("8 OrvexSnmpWiper: Enter", "bus CreateClient fan",
                                                             "8 OrvexSnmpWiper: Done.", "bus DeleteClient fan"));
}

TEST_F(WiperConstructionTest, ComesToNothingWithoutTheFanClient) {
    ExpectNoProviderWithout<OrvexSnmpWiper>("fan");
}

TEST_F(WiperConstructionTest, WhatWasSetIsForgottenWithTheProvider) {
    tavos::msgbus::MsgBus bus;
    {
        const OrvexSnmpWiper wiper{bus};
        Commit(kControl, {1, 2});
        Commit(kEquipped, {3});
    }
    const OrvexSnmpWiper wiper{bus};
    SnmpRequest control(OrvexSnmpOid::oid_systemCameraFeatureControl);
    control.Call(kControl.handler, MODE_GET);
    EXPECT_THAT(control.Octets(), ElementsAre(0, 0));
    SnmpRequest equipped(OrvexSnmpOid::oid_systemCameraEquipped);
    equipped.Call(kEquipped.handler, MODE_GET);
    EXPECT_THAT(equipped.Octets(), ElementsAre(0));
}

// --- systemCameraFeatureControl ---

TEST_F(WiperTest, ControlIsRememberedAndMovesNothing) {
    EXPECT_THAT(Get(kControl), ElementsAre(0, 0));
    EXPECT_EQ(Set(kControl, {0x01, 0x00}), SNMP_ERR_NOERROR);
    EXPECT_THAT(journal::Calls(), IsEmpty());
    EXPECT_THAT(Get(kControl), ElementsAre(0x01, 0x00));
    EXPECT_THAT(Agent().answers, ElementsAre(Answer{ASN_OCTET_STR, 2}));
    EXPECT_EQ(Done(),
              Handled("handle_systemCameraFeatureControl", {"6 handle_systemCameraFeatureControl: last=01 00"}));
}

TEST_F(WiperTest, ControlIsStoredInTheCommitAloneAndNotAnsweredThere) {
    EXPECT_EQ(Set(kControl, {0xAB, 0x0C}), SNMP_ERR_NOERROR);
    for (const int mode : {static_cast<int>(MODE_GETNEXT), MODE_SET_RESERVE2, MODE_SET_ACTION, MODE_SET_FREE,
                           MODE_SET_UNDO, MODE_SET_COMMIT}) {
        SCOPED_TRACE(mode);
        SnmpRequest request(OrvexSnmpOid::oid_systemCameraFeatureControl);
        request.WithOctets({0x11, 0x22, 0x33});
        journal::Clear();
        EXPECT_EQ(request.Call(kControl.handler, mode), SNMP_ERR_NOERROR);
        EXPECT_EQ(Done(),
                  Handled("handle_systemCameraFeatureControl", {"6 handle_systemCameraFeatureControl: last=ab 0c"}));
        EXPECT_THAT(Agent().answers, IsEmpty());
        EXPECT_THAT(request.Octets(), ElementsAre(0x11, 0x22, 0x33));
        EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
        if (mode == MODE_SET_COMMIT) break;
        EXPECT_THAT(Get(kControl), ElementsAre(0xAB, 0x0C));
    }
    EXPECT_THAT(Get(kControl), ElementsAre(0x11, 0x22));
}

TEST_F(WiperTest, ControlLogsWrongTypeInEveryReserve1AndMarksOnlyWrongTypes) {
    SnmpRequest right(OrvexSnmpOid::oid_systemCameraFeatureControl);
    right.WithOctets({1, 2});
    EXPECT_EQ(right.Call(kControl.handler, MODE_SET_RESERVE1), SNMP_ERR_NOERROR);
    EXPECT_EQ(right.Mark(), SNMP_ERR_NOERROR);
    const Lines lines = Handled("handle_systemCameraFeatureControl",
                                {"6 handle_systemCameraFeatureControl: last=00 00",
                                 "6 handle_systemCameraFeatureControl: Wrong type, must be octet string..."});
    EXPECT_EQ(Done(), lines);

    SnmpRequest wrong(OrvexSnmpOid::oid_systemCameraFeatureControl);
    wrong.WithInteger(1);
    journal::Clear();
    EXPECT_EQ(wrong.Call(kControl.handler, MODE_SET_RESERVE1), SNMP_ERR_NOERROR);
    EXPECT_EQ(wrong.Mark(), SNMP_ERR_WRONGTYPE);
    EXPECT_EQ(Done(), lines);
}

TEST_F(WiperTest, ControlOfAWrongTypeFailsAndKeepsWhatWasStored) {
    EXPECT_EQ(Set(kControl, {5, 6}), SNMP_ERR_NOERROR);
    SnmpRequest request(OrvexSnmpOid::oid_systemCameraFeatureControl);
    EXPECT_EQ(request.WithInteger(1).Set(kControl.handler), SNMP_ERR_WRONGTYPE);
    EXPECT_THAT(Get(kControl), ElementsAre(5, 6));
}

TEST_F(WiperTest, ControlReportsAnUnknownMode) {
    for (const int mode : kUnknownModes) {
        SCOPED_TRACE(mode);
        SnmpRequest request(OrvexSnmpOid::oid_systemCameraFeatureControl);
        journal::Clear();
        EXPECT_EQ(request.Call(kControl.handler, mode), SNMP_ERR_GENERR);
        EXPECT_EQ(Done(),
                  Handled("handle_systemCameraFeatureControl",
                          {"6 handle_systemCameraFeatureControl: last=00 00",
                           "3 handle_systemCameraFeatureControl: unknown mode (" + std::to_string(mode) + ")"}));
        EXPECT_THAT(Agent().answers, IsEmpty());
    }
}

// --- systemCameraEquipped ---

TEST_F(WiperTest, EquippedIsStoredAndReportedAsFailed) {
    EXPECT_THAT(Get(kEquipped), ElementsAre(0x00));
    for (const u_char octet : {u_char{0x01}, u_char{0xFF}, u_char{0x00}, u_char{0x40}}) {
        EXPECT_EQ(Set(kEquipped, {octet, 9}), SNMP_ERR_GENERR);
        EXPECT_THAT(Get(kEquipped), ElementsAre(octet));
        EXPECT_THAT(Agent().answers, ElementsAre(Answer{ASN_OCTET_STR, 1}));
        EXPECT_EQ(Done(), Handled("handle_systemCameraEquipped", {}));
        EXPECT_THAT(Get(kEquipped, MODE_GETNEXT), ElementsAre(octet));
        EXPECT_EQ(Done(), Handled("handle_systemCameraEquipped", {}));
    }
}

TEST_F(WiperTest, EquippedIsStoredInTheCommitAlone) {
    for (const int mode : {MODE_SET_RESERVE2, MODE_SET_ACTION, MODE_SET_FREE, MODE_SET_UNDO}) {
        SCOPED_TRACE(mode);
        SnmpRequest request(OrvexSnmpOid::oid_systemCameraEquipped);
        request.WithOctets({7});
        journal::Clear();
        EXPECT_EQ(request.Call(kEquipped.handler, mode), SNMP_ERR_NOERROR);
        EXPECT_EQ(Done(), Handled("handle_systemCameraEquipped", {}));
        EXPECT_THAT(Agent().answers, IsEmpty());
        EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
        EXPECT_THAT(Get(kEquipped), ElementsAre(0x00));
    }
    SnmpRequest request(OrvexSnmpOid::oid_systemCameraEquipped);
    request.WithOctets({7, 8});
    journal::Clear();
    EXPECT_EQ(request.Call(kEquipped.handler, MODE_SET_COMMIT), SNMP_ERR_GENERR);
    EXPECT_EQ(Done(), Handled("handle_systemCameraEquipped", {}));
    EXPECT_THAT(request.Octets(), ElementsAre(7, 8));
    EXPECT_EQ(request.Mark(), SNMP_ERR_NOERROR);
    EXPECT_THAT(Get(kEquipped), ElementsAre(7));
}

TEST_F(WiperTest, EquippedLogsWrongTypeInEveryReserve1AndMarksOnlyWrongTypes) {
    const Lines lines =
        Handled("handle_systemCameraEquipped", {"6 handle_systemCameraEquipped: Wrong type, must be octet string..."});
    SnmpRequest right(OrvexSnmpOid::oid_systemCameraEquipped);
    right.WithOctets({1});
    EXPECT_EQ(right.Call(kEquipped.handler, MODE_SET_RESERVE1), SNMP_ERR_NOERROR);
    EXPECT_EQ(right.Mark(), SNMP_ERR_NOERROR);
    EXPECT_EQ(Done(), lines);

    SnmpRequest wrong(OrvexSnmpOid::oid_systemCameraEquipped);
    wrong.WithInteger(1);
    journal::Clear();
    EXPECT_EQ(wrong.Call(kEquipped.handler, MODE_SET_RESERVE1), SNMP_ERR_NOERROR);
    EXPECT_EQ(wrong.Mark(), SNMP_ERR_WRONGTYPE);
    EXPECT_EQ(Done(), lines);
    EXPECT_THAT(Get(kEquipped), ElementsAre(0x00));
}

TEST_F(WiperTest, EquippedReportsAnUnknownMode) {
    for (const int mode : kUnknownModes) {
        SCOPED_TRACE(mode);
        SnmpRequest request(OrvexSnmpOid::oid_systemCameraEquipped);
        journal::Clear();
        EXPECT_EQ(request.Call(kEquipped.handler, mode), SNMP_ERR_GENERR);
        EXPECT_EQ(Done(), Handled("handle_systemCameraEquipped",
                                  {"3 handle_systemCameraEquipped: unknown mode (" + std::to_string(mode) + ")"}));
        EXPECT_THAT(Agent().answers, IsEmpty());
    }
}

// --- systemCameraFeatureStatus ---

TEST_F(WiperTest, StatusIsZeroWhateverWasSet) {
    Set(kControl, {0xFF, 0xFF});
    Set(kEquipped, {0xFF});
    for (const int mode : {static_cast<int>(MODE_GET), static_cast<int>(MODE_GETNEXT)}) {
        SnmpRequest request(OrvexSnmpOid::oid_systemCameraFeatureStatus);
        journal::Clear();
        EXPECT_EQ(request.Call(OrvexSnmpWiper::handle_systemCameraFeatureStatus, mode), SNMP_ERR_NOERROR);
        EXPECT_EQ(Done(), Handled("handle_systemCameraFeatureStatus", {}));
        EXPECT_EQ(request.Type(), ASN_OCTET_STR);
        EXPECT_THAT(request.Octets(), ElementsAre(0x00));
        EXPECT_THAT(Agent().answers, ElementsAre(Answer{ASN_OCTET_STR, 1}));
    }
}

TEST_F(WiperTest, ControlKeepsEveryBitOfBothOctets) {
    for (int octet = 0; octet <= 255; ++octet) {
        const auto bits = static_cast<u_char>(octet);
        const auto others = static_cast<u_char>(~octet);
        EXPECT_EQ(Set(kControl, {others, bits}), SNMP_ERR_NOERROR);
        EXPECT_THAT(Get(kControl), ElementsAre(others, bits));
        char line[80];
        std::snprintf(line, sizeof line, "6 handle_systemCameraFeatureControl: last=%02x %02x", others, bits);
        EXPECT_THAT(Done(), Contains(line));
    }
}

}  // namespace
