// What only the alarm inputs do; AlarmAndRelayTest.cpp has what they and the relay outputs do alike.
#include "support/AlarmAndRelay.h"

namespace {

using bankrows::Stored;
using testing::SizeIs;

using AlarmTest = BankTest<AlarmInputs>;
using CellRequest = CellOf<AlarmInputs>;

const int kOtherModes[] = {MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_ACTION, MODE_SET_COMMIT,
                           MODE_SET_FREE,     MODE_SET_UNDO,     MODE_GETBULK,    77};

TEST_F(ModuleTest, AlarmOpensItsClientBetweenItsTwoFirstLines) {
    tavos::msgbus::MsgBus bus;
    journal::Clear();
    const OrvexSnmpAlarm alarm(bus);
    EXPECT_THAT(journal::All(),
                ElementsAre("logger ClearAppenders", "logger ConfigureLogging log log.level=3 log.stdout=true",
                            "log 8 OrvexSnmpAlarm: Enter", "bus CreateClient alarm",
                            "log 8 OrvexSnmpAlarm: making new alarm table", "log 6 OrvexSnmpAlarm: Done."));
    EXPECT_EQ(OrvexSnmpAlarm::GetInstance(), &alarm);
}

TEST_F(AlarmTest, FirstBuildSaysWhatItDoesInTheAgentsLog) {
    Camera().alarms.banks = {{"BNK2", {true}}};
    _provider.init_alarmTable(false);
    EXPECT_THAT(journal::All(),
                ElementsAre("log 6 init_alarmTable: Enter. update=0\n", "log 8 CreateAlarmTable: Enter.",
                            "log 6 CreateAlarmTable: update=0", "call alarm GetBankNames",
                            "log 6 CreateAlarmTable: Alarm bankNames size is 1", "call alarm GetBankAlarmCount BNK2",
                            "call alarm GetAlarmState BNK2 0", "log 8 CreateAlarmTable: Done.",
                            "agentlog 7 init_alarmTable making new table\n",
                            "agent register_table_data_set alarmStatesTable " + kEnterprise + ".1.3.1 3",
                            "agentlog 6 Registration for Alarm table OID OK\n"));
}

TEST_F(AlarmTest, EveryOtherModeIsRefusedBeforeAnythingIsAsked) {
    BuildTwoBanks();
    Camera().alarms.banks = {{"A", {true}}};
    for (const int mode : kOtherModes) {
        journal::Clear();
        CellRequest request(3, 1);
        request.WithInteger(1).WithRangeEnd({1, 3});
        EXPECT_EQ(Call(request, mode), SNMP_ERR_GENERR);
        EXPECT_EQ(request.Integer(), 1);
        EXPECT_EQ(request.Mark(), 0);
        EXPECT_THAT(journal::All(),
                    ElementsAre("log 8 handle_alarmStates: Enter.",
                                "log 3 handle_alarmStates: unknown mode (" + std::to_string(mode) + ")"));
        EXPECT_THAT(List(), SizeIs(3));
        EXPECT_THAT(Stored(DataSet()), SizeIs(3));
    }
}

TEST_F(AlarmTest, OnlyTheFirstAcceptableRequestIsAnswered) {
    BuildTwoBanks();
    CellRequest beyond(2, 9);
    CellRequest first(1, 1);
    CellRequest second(2, 3);
    beyond.Chain(first);
    first.Chain(second);
    EXPECT_EQ(Call(beyond), SNMP_ERR_NOERROR);
    EXPECT_EQ(beyond.Type(), ASN_NULL);
    EXPECT_THAT(first.Octets(), ElementsAre('B', 'N', 'K', '1'));
    EXPECT_EQ(second.Type(), ASN_NULL);
    EXPECT_THAT(journal::Logged(6), Not(Contains("handle_alarmStates: table_info->colnum is 2")));
}

}  // namespace
