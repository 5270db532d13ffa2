#include <memory>

#include "io/OrvexSnmpPressure.h"
#include "support/ModuleTest.h"

namespace {

class PressureTest : public ProviderTest<OrvexSnmpPressure> {
protected:
    static int Call(SnmpRequest& request, int mode = MODE_GET) {
        return request.Call(&OrvexSnmpPressure::handle_alarmStatus, mode);
    }
    /// The lines of a read request between its first and last lines.
    static Lines Read(const Lines& inBetween, const std::string& rangeEnd = "") {
        return Lines{"log 8 handle_alarmStatus: Enter.", "log 7 handle_alarmStatus: Received OID " + rangeEnd,
                     "log 8 GetAlarmState: Enter.", "call alarm GetAlarmState BNK2 0"} +
               inBetween + Lines{"log 8 handle_alarmStatus: Done."};
    }
};

TEST_F(ModuleTest, PressureOpensItsClientBetweenItsTwoLinesAndDeletesIt) {
    tavos::msgbus::MsgBus bus;
    journal::Clear();
    auto pressure = std::make_unique<OrvexSnmpPressure>(bus);
    EXPECT_EQ(OrvexSnmpPressure::GetInstance(), pressure.get());
    pressure.reset();
    EXPECT_EQ(OrvexSnmpPressure::GetInstance(), nullptr);
    EXPECT_THAT(journal::All(),
                ElementsAre("logger ClearAppenders", "logger ConfigureLogging log log.level=3 log.stdout=true",
                            "log 8 OrvexSnmpPressure: Enter", "bus CreateClient alarm",
                            "log 8 OrvexSnmpPressure: Done.", "bus DeleteClient alarm"));
}

TEST_F(PressureTest, StateIsThatOfTheFirstInputOfBnk2) {
    Camera().alarms.banks = {{"BNK1", {false}}, {"BNK2", {true, false}}};
    bool state = false;
    EXPECT_EQ(_provider.GetAlarmState(state), 0);
    EXPECT_TRUE(state);
    EXPECT_THAT(journal::All(),
                ElementsAre("log 8 GetAlarmState: Enter.", "call alarm GetAlarmState BNK2 0",
                            "log 6 GetAlarmState: bankName=BNK2 alarmId=0 state=1", "log 8 GetAlarmState: Done."));
    Camera().alarms.banks[1].second[0] = false;
    EXPECT_EQ(_provider.GetAlarmState(state), 0);
    EXPECT_FALSE(state);
    EXPECT_THAT(journal::Logged(6), Contains("GetAlarmState: bankName=BNK2 alarmId=0 state=0"));
}

TEST_F(PressureTest, FailedStateLeavesTheArgumentAlone) {
    Camera().failing = {"alarm.GetAlarmState"};
    for (const bool throwsInt : {false, true}) {
        journal::Clear();
        Camera().throwsInt = throwsInt;
        bool state = true;
        EXPECT_EQ(_provider.GetAlarmState(state), -1);
        EXPECT_TRUE(state);
        EXPECT_THAT(journal::Logged(), ElementsAre("8 GetAlarmState: Enter.", "3 Exception while GetAlarmState",
                                                   "8 GetAlarmState: Done."));
    }
}

TEST_F(PressureTest, ActiveInputIsBitFour) {
    Camera().alarms.banks = {{"BNK2", {true}}};
    SnmpRequest request(OrvexSnmpOid::oid_alarmStatus);
    EXPECT_EQ(Call(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_OCTET_STR);
    EXPECT_THAT(request.Octets(), ElementsAre(0x10));
    EXPECT_THAT(journal::All(),
                ElementsAreArray(Read({"log 6 GetAlarmState: bankName=BNK2 alarmId=0 state=1",
                                       "log 8 GetAlarmState: Done.", "log 6 handle_alarmStatus: alarmTemp=TRUE"})));
}

TEST_F(PressureTest, InactiveInputIsZero) {
    Camera().alarms.banks = {{"BNK2", {false}}};
    SnmpRequest request(OrvexSnmpOid::oid_alarmStatus);
    request.WithRangeEnd({1, 3, 6, 1});
    EXPECT_EQ(Call(request, MODE_GETNEXT), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_OCTET_STR);
    EXPECT_THAT(request.Octets(), ElementsAre(0x00));
    EXPECT_THAT(journal::All(),
                ElementsAreArray(Read({"log 6 GetAlarmState: bankName=BNK2 alarmId=0 state=0",
                                       "log 8 GetAlarmState: Done.", "log 6 handle_alarmStatus: alarmTemp=FALSE"},
                                      ".1.3.6.1")));
}

TEST_F(PressureTest, FailedServiceIsAnsweredAllClearAndNoEarlierValueIsKept) {
    Camera().alarms.banks = {{"BNK2", {true}}};
    SnmpRequest good(OrvexSnmpOid::oid_alarmStatus);
    Call(good);
    for (const bool throwsInt : {false, true}) {
        Camera().failing = {"alarm.GetAlarmState"};
        Camera().throwsInt = throwsInt;
        journal::Clear();
        SnmpRequest bad(OrvexSnmpOid::oid_alarmStatus);
        EXPECT_EQ(Call(bad), SNMP_ERR_NOERROR);
        EXPECT_EQ(bad.Mark(), 0);
        EXPECT_EQ(bad.Type(), ASN_OCTET_STR);
        EXPECT_THAT(bad.Octets(), ElementsAre(0x00));
        EXPECT_THAT(journal::All(),
                    ElementsAreArray(Read({"log 3 Exception while GetAlarmState", "log 8 GetAlarmState: Done.",
                                           "log 6 handle_alarmStatus: alarmTemp=FALSE"})));
    }
}

TEST_F(PressureTest, EveryOtherModeIsRefused) {
    Camera().alarms.banks = {{"BNK2", {true}}};
    const int otherModes[] = {MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_ACTION, MODE_SET_COMMIT,
                              MODE_SET_FREE,     MODE_SET_UNDO,     MODE_GETBULK,    77};
    for (const int mode : otherModes) {
        journal::Clear();
        SnmpRequest request(OrvexSnmpOid::oid_alarmStatus);
        request.WithOctets({0x55});
        EXPECT_EQ(Call(request, mode), SNMP_ERR_GENERR);
        EXPECT_THAT(request.Octets(), ElementsAre(0x55));
        EXPECT_EQ(request.Mark(), 0);
        EXPECT_THAT(journal::All(),
                    ElementsAre("log 8 handle_alarmStatus: Enter.",
                                "log 3 handle_alarmStatus: unknown mode (" + std::to_string(mode) + ")"));
    }
}

TEST_F(PressureTest, WhatWasReadIsHandedOutAfterTheSuccessWasLogged) {
    Camera().alarms.banks = {{"BNK2", {true}}};
    Camera().failing = {"log 6 GetAlarmState: bankName=BNK2 alarmId=0 state=1"};
    bool state = false;
    EXPECT_EQ(_provider.GetAlarmState(state), -1);
    EXPECT_FALSE(state);
    EXPECT_THAT(journal::Logged(3), ElementsAre("Exception while GetAlarmState"));
}

}  // namespace
