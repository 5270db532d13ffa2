#include <memory>

#include "io/OrvexSnmpAlarm.h"
#include "support/AgentLog.h"
#include "support/BankRows.h"
#include "support/ModuleTest.h"
#include "tavos/osa/Exception.h"

namespace {

const std::string kEnterprise = ".1.3.6.1.4.1." + std::to_string(ORVEX_ENTERPRISE_NUMBER);

using bankrows::Cell;
using bankrows::Columns;
using bankrows::Stored;
using testing::AllOf;
using testing::IsSupersetOf;
using testing::Pair;
using testing::SizeIs;

auto Entry(const char* bank, int id, int state) {
    return Pair(Pair(bank, id), state);
}

class AlarmTest : public ProviderTest<OrvexSnmpAlarm> {
protected:
    /// Two banks, three inputs; the list and the table are built, the journal is empty.
    void BuildTwoBanks() {
        Camera().alarms.banks = {{"BNK1", {true}}, {"BNK2", {false, true}}};
        _provider.init_alarmTable(false);
        journal::Clear();
    }

    netsnmp_table_data_set* DataSet() { return Agent().dataSets.at("alarmStatesTable"); }
    BankList& List() { return *_provider.GetAlarmTableVar(); }

    static int Call(SnmpRequest& request, int mode = MODE_GET) {
        return request.Call(&OrvexSnmpAlarm::handle_alarmStates, mode);
    }
    static int CallInputStatus(SnmpRequest& request, int mode = MODE_GET) {
        return request.Call(&OrvexSnmpAlarm::handle_inputStatus, mode);
    }

    AgentLog _agentLog;
};

/// A request for one cell of the alarm table.
struct CellRequest : SnmpRequest {
    CellRequest(oid column, oid row) : CellRequest(Cell(OrvexSnmpOid::oid_alarm, column, row)) {}

private:
    explicit CellRequest(const std::vector<oid>& name) : SnmpRequest(name.data(), name.size()) {}
};

const int kOtherModes[] = {MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_ACTION, MODE_SET_COMMIT,
                           MODE_SET_FREE,     MODE_SET_UNDO,     MODE_GETBULK,    77};

const Lines kUnchangedCount = {
    "log 6 handle_alarmStates: calling GetAlarmCount()...",
    "log 8 GetAlarmCount: Enter.",
    "call alarm GetAlarmCount",
    "log 6 GetAlarmCount: count=3",
    "log 8 GetAlarmCount: Done.",
    "log 6 handle_alarmStates: calling alarmTable.size()...",
};

Lines operator+(Lines first, const Lines& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/// All lines of a table request when the service's count equals the list's, with `answer` in between.
Lines TableRequest(const Lines& answer, const std::string& rangeEnd = "") {
    return Lines{"log 8 handle_alarmStates: Enter.", "log 7 handle_alarmStates: Received OID " + rangeEnd} +
           kUnchangedCount + answer;
}

// --- construction ---

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

TEST_F(ModuleTest, AlarmDeletesItsClientAndLetsGoOfItsInstance) {
    tavos::msgbus::MsgBus bus;
    auto alarm = std::make_unique<OrvexSnmpAlarm>(bus);
    journal::Clear();
    alarm.reset();
    EXPECT_THAT(journal::All(), ElementsAre("bus DeleteClient alarm"));
    EXPECT_EQ(OrvexSnmpAlarm::GetInstance(), nullptr);
}

TEST_F(ModuleTest, AlarmPassesOnWhatTheMakingOfItsClientThrows) {
    tavos::msgbus::MsgBus bus;
    Camera().failing = {"alarm.CreateClient"};
    EXPECT_THROW(OrvexSnmpAlarm{bus}, tavos::osa::Exception);
}

TEST_F(AlarmTest, SecondAlarmIsRefusedAndTheFirstStays) {
    EXPECT_THROW(OrvexSnmpAlarm{_bus}, tavos::osa::Exception);
    EXPECT_THAT(journal::Logged(3), ElementsAre("OrvexSnmpBaseProvider: Duplicate instance, exiting!"));
    EXPECT_EQ(OrvexSnmpAlarm::GetInstance(), &_provider);
    EXPECT_THAT(journal::All("bus"), IsEmpty());
}

TEST_F(AlarmTest, ListIsEmptyBeforeTheFirstBuild) {
    EXPECT_THAT(List(), IsEmpty());
    EXPECT_THAT(journal::All("agent"), IsEmpty());
}

// --- the service's operations ---

TEST_F(AlarmTest, CountIsTheServicesTotal) {
    Camera().alarms.total = 7;
    int count = -5;
    EXPECT_EQ(_provider.GetAlarmCount(count), 0);
    EXPECT_EQ(count, 7);
    EXPECT_THAT(journal::All(), ElementsAre("log 8 GetAlarmCount: Enter.", "call alarm GetAlarmCount",
                                            "log 6 GetAlarmCount: count=7", "log 8 GetAlarmCount: Done."));
}

TEST_F(AlarmTest, FailedCountLeavesTheArgumentAlone) {
    Camera().failing = {"alarm.GetAlarmCount"};
    for (const bool throwsInt : {false, true}) {
        journal::Clear();
        Camera().throwsInt = throwsInt;
        int count = -5;
        EXPECT_EQ(_provider.GetAlarmCount(count), -1);
        EXPECT_EQ(count, -5);
        EXPECT_THAT(journal::Logged(), ElementsAre("8 GetAlarmCount: Enter.", "3 Exception while GetAlarmCount",
                                                   "8 GetAlarmCount: Done."));
    }
}

TEST_F(AlarmTest, StateIsThatOfTheBanksInput) {
    Camera().alarms.banks = {{"North", {false, true}}};
    bool state = false;
    EXPECT_EQ(_provider.GetAlarmState("North", 1, state), 0);
    EXPECT_TRUE(state);
    EXPECT_THAT(journal::All(),
                ElementsAre("log 8 GetAlarmState: Enter.", "call alarm GetAlarmState North 1",
                            "log 6 GetAlarmState: bankName=North alarmId=1 state=1", "log 8 GetAlarmState: Done."));
    EXPECT_EQ(_provider.GetAlarmState("North", 0, state), 0);
    EXPECT_FALSE(state);
    EXPECT_THAT(journal::Logged(6), Contains("GetAlarmState: bankName=North alarmId=0 state=0"));
}

TEST_F(AlarmTest, FailedStateLeavesTheArgumentAlone) {
    Camera().failing = {"alarm.GetAlarmState"};
    for (const bool throwsInt : {false, true}) {
        journal::Clear();
        Camera().throwsInt = throwsInt;
        bool state = true;
        EXPECT_EQ(_provider.GetAlarmState("North", 1, state), -1);
        EXPECT_TRUE(state);
        EXPECT_THAT(journal::Logged(),
                    ElementsAre("8 GetAlarmState: Enter.", "3 GetAlarmState:Exception while GetAlarmState",
                                "8 GetAlarmState: Done."));
    }
}

// --- the list ---

TEST_F(AlarmTest, ListHasEveryInputOfEveryBankInOrderWithItsState) {
    Camera().alarms.banks = {{"North", {false, true}}, {"BNK2", {true}}};
    _provider.CreateAlarmTable(false);
    EXPECT_THAT(List(), ElementsAre(Entry("North", 0, 0), Entry("North", 1, 1), Entry("BNK2", 0, 1)));
    EXPECT_THAT(journal::All(),
                ElementsAre("log 8 CreateAlarmTable: Enter.", "log 6 CreateAlarmTable: update=0",
                            "call alarm GetBankNames", "log 6 CreateAlarmTable: Alarm bankNames size is 2",
                            "call alarm GetBankAlarmCount North", "call alarm GetAlarmState North 0",
                            "call alarm GetAlarmState North 1", "call alarm GetBankAlarmCount BNK2",
                            "call alarm GetAlarmState BNK2 0", "log 8 CreateAlarmTable: Done."));
}

TEST_F(AlarmTest, UpdatedListHasStateZeroEverywhereAndAsksForNone) {
    Camera().alarms.banks = {{"North", {true, true}}, {"BNK2", {true}}};
    _provider.CreateAlarmTable(true);
    EXPECT_THAT(List(), ElementsAre(Entry("North", 0, 0), Entry("North", 1, 0), Entry("BNK2", 0, 0)));
    EXPECT_THAT(
        journal::All(),
        ElementsAre("log 8 CreateAlarmTable: Enter.", "log 6 CreateAlarmTable: update=1", "call alarm GetBankNames",
                    "log 6 CreateAlarmTable: Alarm bankNames size is 2", "call alarm GetBankAlarmCount North",
                    "call alarm GetBankAlarmCount BNK2", "log 8 CreateAlarmTable: Done."));
}

TEST_F(AlarmTest, BuildingAgainReplacesTheList) {
    Camera().alarms.banks = {{"North", {true, true}}};
    _provider.CreateAlarmTable(false);
    Camera().alarms.banks = {{"South", {false}}};
    _provider.CreateAlarmTable(false);
    EXPECT_THAT(List(), ElementsAre(Entry("South", 0, 0)));
}

TEST_F(AlarmTest, BankNamesAreAskedForOnceAndFailingLeaveAnEmptyList) {
    for (const bool throwsInt : {false, true}) {
        BuildTwoBanks();
        Camera().failing = {"alarm.GetBankNames"};
        Camera().throwsInt = throwsInt;
        _provider.CreateAlarmTable(false);
        EXPECT_THAT(List(), IsEmpty());
        EXPECT_THAT(
            journal::All(),
            ElementsAre("log 8 CreateAlarmTable: Enter.", "log 6 CreateAlarmTable: update=0", "call alarm GetBankNames",
                        "log 3 CreateAlarmTable: Retry for GetBankNames for 0", "log 8 CreateAlarmTable: Done."));
        Camera().failing.clear();
    }
}

TEST_F(AlarmTest, BankWhoseCountFailsGetsTheCountOfTheBankBefore) {
    Camera().alarms.banks = {{"A", {true, false}}, {"B", {false, true, true}}, {"C", {true}}};
    Camera().failing = {"alarm.GetBankAlarmCount B"};
    for (const bool throwsInt : {false, true}) {
        journal::Clear();
        Camera().throwsInt = throwsInt;
        _provider.CreateAlarmTable(false);
        EXPECT_THAT(List(), ElementsAre(Entry("A", 0, 1), Entry("A", 1, 0), Entry("B", 0, 0), Entry("B", 1, 1),
                                        Entry("C", 0, 1)));
        EXPECT_THAT(journal::Logged(3), ElementsAre("CreateAlarmTable: Retry for GetBankAlarmCount for 0"));
        EXPECT_EQ(journal::All("call alarm GetBankAlarmCount B").size(), 1u);
    }
}

TEST_F(AlarmTest, FirstBankWhoseCountFailsGetsNoInputs) {
    Camera().alarms.banks = {{"A", {true, false}}, {"B", {true}}};
    Camera().failing = {"alarm.GetBankAlarmCount A"};
    _provider.CreateAlarmTable(false);
    EXPECT_THAT(List(), ElementsAre(Entry("B", 0, 1)));
}

TEST_F(AlarmTest, EveryFailingCountIsCarriedOverFromTheLastThatSucceeded) {
    Camera().alarms.banks = {{"A", {true}}, {"B", {true, true}}, {"C", {}}, {"D", {}}};
    Camera().failing = {"alarm.GetBankAlarmCount C", "alarm.GetBankAlarmCount D"};
    _provider.CreateAlarmTable(true);
    EXPECT_THAT(List(), ElementsAre(Entry("A", 0, 0), Entry("B", 0, 0), Entry("B", 1, 0), Entry("C", 0, 0),
                                    Entry("C", 1, 0), Entry("D", 0, 0), Entry("D", 1, 0)));
}

TEST_F(AlarmTest, InputWhoseStateFailsGetsTheStateOfTheEntryBefore) {
    Camera().alarms.banks = {{"A", {true, true}}, {"B", {false, false}}};
    Camera().failing = {"alarm.GetAlarmState A 0", "alarm.GetAlarmState B 0"};
    for (const bool throwsInt : {false, true}) {
        journal::Clear();
        Camera().throwsInt = throwsInt;
        _provider.CreateAlarmTable(false);
        EXPECT_THAT(List(), ElementsAre(Entry("A", 0, 0), Entry("A", 1, 1), Entry("B", 0, 1), Entry("B", 1, 0)));
        EXPECT_THAT(journal::Logged(3), ElementsAre("CreateAlarmTable: Exception in GetAlarmState()",
                                                    "CreateAlarmTable: Exception in GetAlarmState()"));
        EXPECT_EQ(journal::All("call alarm GetAlarmState A 0").size(), 1u);
    }
}

// --- the table ---

TEST_F(AlarmTest, FirstBuildRegistersTheTableAndAddsItsRows) {
    Camera().alarms.banks = {{"North", {false, true}}, {"BNK2", {true}}};
    EXPECT_EQ(_provider.init_alarmTable(false), 0);
    EXPECT_THAT(Stored(DataSet()), ElementsAre(".1: octets 5 North, integer 4 0, integer 4 0",
                                               ".2: octets 5 North, integer 4 1, integer 4 1",
                                               ".3: octets 4 BNK2, integer 4 0, integer 4 1"));
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

TEST_F(AlarmTest, TableHasThreeColumnsNoneOfThemWritable) {
    BuildTwoBanks();
    EXPECT_THAT(Columns(DataSet()), ElementsAre("1 type 4", "2 type 2", "3 type 2"));
    EXPECT_EQ(DataSet()->table->indexes_template->type, ASN_INTEGER);
    EXPECT_EQ(DataSet()->table->indexes_template->next_variable, nullptr);
    EXPECT_STREQ(DataSet()->table->name, "alarmStatesTable");
    EXPECT_EQ(DataSet()->allow_creation, 0);
    EXPECT_EQ(DataSet()->rowstatus_column, 0u);
}

TEST_F(AlarmTest, RebuildServesTheNewRowsWithoutRegisteringAgain) {
    BuildTwoBanks();
    auto* registered = DataSet();
    Camera().alarms.banks = {{"South", {true, true}}};
    EXPECT_EQ(_provider.init_alarmTable(true), 0);
    EXPECT_EQ(DataSet(), registered);
    EXPECT_THAT(Stored(registered), ElementsAre(".1: octets 5 South, integer 4 0, integer 4 0",
                                                ".2: octets 5 South, integer 4 1, integer 4 0"));
    EXPECT_THAT(Columns(registered), ElementsAre("1 type 4", "2 type 2", "3 type 2"));
    EXPECT_THAT(
        journal::All(),
        ElementsAre("log 6 init_alarmTable: Enter. update=1\n", "log 8 CreateAlarmTable: Enter.",
                    "log 6 CreateAlarmTable: update=1", "call alarm GetBankNames",
                    "log 6 CreateAlarmTable: Alarm bankNames size is 1", "call alarm GetBankAlarmCount South",
                    "log 8 CreateAlarmTable: Done.", "agentlog 7 init_alarmTable deleting table to make new one\n",
                    "agentlog 7 init_alarmTable making new table\n"));
}

TEST_F(AlarmTest, ServiceWithoutBanksGivesOneRowWithoutValues) {
    EXPECT_EQ(_provider.init_alarmTable(false), 0);
    EXPECT_THAT(Stored(DataSet()), ElementsAre(".1:"));
}

TEST_F(AlarmTest, BanksWithoutInputsGiveOneRowWithoutValues) {
    Camera().alarms.banks = {{"BNK1", {}}, {"BNK2", {}}};
    EXPECT_EQ(_provider.init_alarmTable(false), 0);
    EXPECT_THAT(Stored(DataSet()), ElementsAre(".1:"));
}

TEST_F(AlarmTest, RowWithoutValuesGoesWhenThereAreInputsAndComesBackWhenThereAreNone) {
    _provider.init_alarmTable(false);
    Camera().alarms.banks = {{"A", {true}}};
    _provider.init_alarmTable(true);
    EXPECT_THAT(Stored(DataSet()), ElementsAre(".1: octets 1 A, integer 4 0, integer 4 0"));
    Camera().alarms.banks.clear();
    _provider.init_alarmTable(true);
    EXPECT_THAT(Stored(DataSet()), ElementsAre(".1:"));
}

TEST_F(AlarmTest, RefusedRegistrationIsReportedAndTriedAgainByTheNextBuild) {
    Camera().alarms.banks = {{"A", {true}}};
    Agent().refusing = {"alarmStatesTable"};
    EXPECT_EQ(_provider.init_alarmTable(false), -1);
    EXPECT_EQ(journal::All().back(), "agentlog 6 Registration for Alarm table OID not OK\n");
    EXPECT_EQ(_provider.init_alarmTable(true), -1);
    EXPECT_THAT(journal::All("agent register"), SizeIs(2));

    Agent().refusing.clear();
    EXPECT_EQ(_provider.init_alarmTable(true), 0);
    EXPECT_EQ(journal::All().back(), "agentlog 6 Registration for Alarm table OID OK\n");
    EXPECT_THAT(Stored(DataSet()), ElementsAre(".1: octets 1 A, integer 4 0, integer 4 0"));
    EXPECT_EQ(_provider.init_alarmTable(true), 0);
    EXPECT_THAT(journal::All("agent register"), SizeIs(3));
}

TEST_F(ModuleTest, AlarmTakesItsRegistrationBackWhenItGoes) {
    const AgentLog agentLog;
    tavos::msgbus::MsgBus bus;
    auto alarm = std::make_unique<OrvexSnmpAlarm>(bus);
    alarm->init_alarmTable(false);
    journal::Clear();
    alarm.reset();
    EXPECT_THAT(journal::All("agent unregister"), ElementsAre("agent unregister alarmStatesTable"));
}

// --- requests for the table ---

TEST_F(AlarmTest, BankNameIsAnswered) {
    BuildTwoBanks();
    CellRequest request(1, 3);
    EXPECT_EQ(Call(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_OCTET_STR);
    EXPECT_THAT(request.Octets(), ElementsAre('B', 'N', 'K', '2'));
    EXPECT_THAT(journal::All(), ElementsAreArray(TableRequest({"log 6 handle_alarmStates: table_info->colnum is 1",
                                                               "log 8 handle_alarmStates: Done."})));
}

TEST_F(AlarmTest, IdWithinTheBankIsAnswered) {
    BuildTwoBanks();
    CellRequest request(2, 3);
    EXPECT_EQ(Call(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_INTEGER);
    EXPECT_EQ(request.Integer(), 1);
    EXPECT_THAT(journal::All(), ElementsAreArray(TableRequest({"log 6 handle_alarmStates: table_info->colnum is 2",
                                                               "log 8 handle_alarmStates: Done."})));
}

TEST_F(AlarmTest, StateIsReadLive) {
    BuildTwoBanks();
    Camera().alarms.banks[1].second[0] = true;
    CellRequest request(3, 2);
    EXPECT_EQ(Call(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_INTEGER);
    EXPECT_EQ(request.Integer(), 1);
    EXPECT_THAT(journal::All(),
                ElementsAreArray(TableRequest(
                    {"log 6 handle_alarmStates: table_info->colnum is 3", "log 8 GetAlarmState: Enter.",
                     "call alarm GetAlarmState BNK2 0", "log 6 GetAlarmState: bankName=BNK2 alarmId=0 state=1",
                     "log 8 GetAlarmState: Done.", "log 6 handle_alarmStates bankname=BNK2: bankvalue=0, state=1",
                     "log 8 handle_alarmStates: Done."})));
}

TEST_F(AlarmTest, ClearStateIsAnsweredAsZero) {
    BuildTwoBanks();
    Camera().alarms.banks[1].second[1] = false;
    CellRequest request(3, 3);
    EXPECT_EQ(Call(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Integer(), 0);
    EXPECT_THAT(journal::Logged(6), Contains("handle_alarmStates bankname=BNK2: bankvalue=1, state=0"));
}

TEST_F(AlarmTest, StateThatCannotBeReadIsAnsweredAsZeroWithoutAnError) {
    BuildTwoBanks();
    Camera().failing = {"alarm.GetAlarmState"};
    CellRequest request(3, 1);  // stored as active
    EXPECT_EQ(Call(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_INTEGER);
    EXPECT_EQ(request.Integer(), 0);
    EXPECT_EQ(request.Mark(), 0);
    EXPECT_THAT(journal::All(),
                ElementsAreArray(TableRequest({"log 6 handle_alarmStates: table_info->colnum is 3",
                                               "log 8 GetAlarmState: Enter.", "call alarm GetAlarmState BNK1 0",
                                               "log 3 GetAlarmState:Exception while GetAlarmState",
                                               "log 8 GetAlarmState: Done.", "log 8 handle_alarmStates: Done."})));
}

TEST_F(AlarmTest, FourthColumnIsLeftUnanswered) {
    BuildTwoBanks();
    CellRequest request(4, 1);
    EXPECT_EQ(Call(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_NULL);
    EXPECT_THAT(journal::All(), ElementsAreArray(TableRequest({"log 6 handle_alarmStates: table_info->colnum is 4",
                                                               "log 8 handle_alarmStates: Done."})));
}

TEST_F(AlarmTest, OtherColumnsAreAnError) {
    BuildTwoBanks();
    for (const int column : {0, 5, 99}) {
        journal::Clear();
        CellRequest request(static_cast<oid>(column), 1);
        EXPECT_EQ(Call(request), SNMP_ERR_GENERR);
        EXPECT_EQ(request.Type(), ASN_NULL);
        const auto number = std::to_string(column);
        EXPECT_THAT(journal::All(),
                    ElementsAreArray(TableRequest({"log 6 handle_alarmStates: table_info->colnum is " + number,
                                                   "log 3 handle_alarmStates: unknown colnum (" + number + ")"})));
    }
}

TEST_F(AlarmTest, GetNextIsAnsweredAndItsRangeEndLogged) {
    BuildTwoBanks();
    CellRequest request(2, 2);
    request.WithRangeEnd({1, 3, 6, 1, 4, 1, ORVEX_ENTERPRISE_NUMBER, 1, 3, 2});
    EXPECT_EQ(Call(request, MODE_GETNEXT), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Integer(), 0);
    EXPECT_THAT(journal::All(), ElementsAreArray(TableRequest({"log 6 handle_alarmStates: table_info->colnum is 2",
                                                               "log 8 handle_alarmStates: Done."},
                                                              kEnterprise + ".1.3.2")));
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

TEST_F(AlarmTest, RowsThatTheListDoesNotHaveAreLeftUnanswered) {
    BuildTwoBanks();
    for (const oid row : {oid{0}, oid{4}, oid{0x7FFFFFFF}, oid{0xFFFFFFFF}}) {
        journal::Clear();
        CellRequest request(3, row);
        EXPECT_EQ(Call(request), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Type(), ASN_NULL);
        EXPECT_EQ(request.Mark(), 0);
        EXPECT_THAT(journal::All(), ElementsAreArray(TableRequest({"log 8 handle_alarmStates: Done."})));
    }
}

TEST_F(AlarmTest, NamesWithoutARowAreLeftUnanswered) {
    BuildTwoBanks();
    SnmpRequest request(OrvexSnmpOid::oid_alarm);
    EXPECT_EQ(Call(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_NULL);
}

TEST_F(AlarmTest, EmptyListAnswersNoRow) {
    _provider.init_alarmTable(false);
    journal::Clear();
    CellRequest request(3, 1);
    EXPECT_EQ(Call(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_NULL);
    EXPECT_THAT(journal::Calls(), ElementsAre("alarm GetAlarmCount"));
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

TEST_F(AlarmTest, DifferentCountRebuildsListAndTableBeforeTheAnswer) {
    BuildTwoBanks();
    Camera().alarms.banks = {{"North", {true, true, true, true}}};
    CellRequest request(3, 4);
    EXPECT_EQ(Call(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Integer(), 1);
    EXPECT_THAT(List(),
                ElementsAre(Entry("North", 0, 0), Entry("North", 1, 0), Entry("North", 2, 0), Entry("North", 3, 0)));
    EXPECT_THAT(Stored(DataSet()), SizeIs(4));
    EXPECT_THAT(Stored(DataSet()), Each(HasSubstr("octets 5 North")));
    EXPECT_THAT(Stored(DataSet()), Each(testing::EndsWith("integer 4 0")));
    EXPECT_THAT(
        journal::All(),
        ElementsAre("log 8 handle_alarmStates: Enter.", "log 7 handle_alarmStates: Received OID ",
                    "log 6 handle_alarmStates: calling GetAlarmCount()...", "log 8 GetAlarmCount: Enter.",
                    "call alarm GetAlarmCount", "log 6 GetAlarmCount: count=4", "log 8 GetAlarmCount: Done.",
                    "log 6 handle_alarmStates: calling alarmTable.size()...",
                    "log 6 handle_alarmStates: Updating alarmTable...", "log 6 init_alarmTable: Enter. update=1\n",
                    "log 8 CreateAlarmTable: Enter.", "log 6 CreateAlarmTable: update=1", "call alarm GetBankNames",
                    "log 6 CreateAlarmTable: Alarm bankNames size is 1", "call alarm GetBankAlarmCount North",
                    "log 8 CreateAlarmTable: Done.", "agentlog 7 init_alarmTable deleting table to make new one\n",
                    "agentlog 7 init_alarmTable making new table\n",
                    "log 6 handle_alarmStates: table_info->colnum is 3", "log 8 GetAlarmState: Enter.",
                    "call alarm GetAlarmState North 3", "log 6 GetAlarmState: bankName=North alarmId=3 state=1",
                    "log 8 GetAlarmState: Done.", "log 6 handle_alarmStates bankname=North: bankvalue=3, state=1",
                    "log 8 handle_alarmStates: Done."));
}

TEST_F(AlarmTest, RowThatTheRebuildTakesAwayIsLeftUnanswered) {
    BuildTwoBanks();
    Camera().alarms.banks = {{"North", {true}}};
    CellRequest request(1, 2);
    EXPECT_EQ(Call(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_NULL);
}

TEST_F(AlarmTest, CountThatCannotBeReadRebuildsNothing) {
    BuildTwoBanks();
    Camera().alarms.banks = {{"North", {true}}};
    Camera().failing = {"alarm.GetAlarmCount"};
    CellRequest request(1, 2);
    EXPECT_EQ(Call(request), SNMP_ERR_NOERROR);
    EXPECT_THAT(request.Octets(), ElementsAre('B', 'N', 'K', '2'));
    EXPECT_THAT(List(), SizeIs(3));
    EXPECT_THAT(journal::All(),
                ElementsAre("log 8 handle_alarmStates: Enter.", "log 7 handle_alarmStates: Received OID ",
                            "log 6 handle_alarmStates: calling GetAlarmCount()...", "log 8 GetAlarmCount: Enter.",
                            "call alarm GetAlarmCount", "log 3 Exception while GetAlarmCount",
                            "log 8 GetAlarmCount: Done.", "log 6 handle_alarmStates: calling alarmTable.size()...",
                            "log 6 handle_alarmStates: table_info->colnum is 1", "log 8 handle_alarmStates: Done."));
}

TEST_F(AlarmTest, BanksWithTheSameTotalAreNotNoticed) {
    BuildTwoBanks();
    Camera().alarms.banks = {{"North", {true, true, true}}};
    CellRequest request(1, 2);
    EXPECT_EQ(Call(request), SNMP_ERR_NOERROR);
    EXPECT_THAT(request.Octets(), ElementsAre('B', 'N', 'K', '2'));
}

// --- inputStatus ---

Lines InputStatus(const Lines& inBetween, const std::string& rangeEnd = "") {
    return Lines{"log 6 handle_inputStatus: Enter.", "log 6 handle_inputStatus: Received OID " + rangeEnd,
                 "log 8 GetAlarmState: Enter.", "call alarm GetAlarmState BNK2 0"} +
           inBetween;
}

TEST_F(AlarmTest, InputStatusHasTheStateOfTheFirstInputOfBnk2InBitZero) {
    Camera().alarms.banks = {{"BNK1", {false, false}}, {"BNK2", {true, false}}};
    SnmpRequest request(OrvexSnmpOid::oid_inputStatus);
    EXPECT_EQ(CallInputStatus(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_OCTET_STR);
    EXPECT_THAT(request.Octets(), ElementsAre(0x01));
    EXPECT_THAT(journal::All(),
                ElementsAreArray(
                    InputStatus({"log 6 GetAlarmState: bankName=BNK2 alarmId=0 state=1", "log 8 GetAlarmState: Done.",
                                 "log 6 handle_inputStatus: GetAlarmState alarmState=TRUE, AlarmOne.inputAlarm1=1",
                                 "log 6 handle_inputStatus bankname=BNK2: bankvalue=0, state=1"})));
}

TEST_F(AlarmTest, InputStatusOfAClearInputIsZero) {
    Camera().alarms.banks = {{"BNK2", {false}}};
    SnmpRequest request(OrvexSnmpOid::oid_inputStatus);
    request.WithRangeEnd({1, 3, 6});
    EXPECT_EQ(CallInputStatus(request, MODE_GETNEXT), SNMP_ERR_NOERROR);
    EXPECT_THAT(request.Octets(), ElementsAre(0x00));
    EXPECT_THAT(journal::All(),
                ElementsAreArray(
                    InputStatus({"log 6 GetAlarmState: bankName=BNK2 alarmId=0 state=0", "log 8 GetAlarmState: Done.",
                                 "log 6 handle_inputStatus: GetAlarmState alarmState=FALSE, AlarmOne.inputAlarm1=0",
                                 "log 6 handle_inputStatus bankname=BNK2: bankvalue=0, state=0:"},
                                ".1.3.6")));
}

TEST_F(AlarmTest, InputStatusBeforeAnySuccessIsZero) {
    Camera().failing = {"alarm.GetAlarmState"};
    SnmpRequest request(OrvexSnmpOid::oid_inputStatus);
    EXPECT_EQ(CallInputStatus(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_OCTET_STR);
    EXPECT_THAT(request.Octets(), ElementsAre(0x00));
    EXPECT_THAT(
        journal::All(),
        ElementsAreArray(InputStatus({"log 3 GetAlarmState:Exception while GetAlarmState", "log 8 GetAlarmState: Done.",
                                      "log 3 handle_inputStatus: GetAlarmState(BNK2,0,FALSE)returned with exception",
                                      "log 6 handle_inputStatus bankname=BNK2: bankvalue=0, state=0:"})));
}

TEST_F(AlarmTest, InputStatusRepeatsTheLastGoodValueAfterAFailure) {
    Camera().alarms.banks = {{"BNK2", {true}}};
    SnmpRequest good(OrvexSnmpOid::oid_inputStatus);
    CallInputStatus(good);
    Camera().failing = {"alarm.GetAlarmState"};
    Camera().alarms.banks[0].second[0] = false;
    SnmpRequest bad(OrvexSnmpOid::oid_inputStatus);
    EXPECT_EQ(CallInputStatus(bad), SNMP_ERR_NOERROR);
    EXPECT_THAT(bad.Octets(), ElementsAre(0x01));
    Camera().failing.clear();
    SnmpRequest again(OrvexSnmpOid::oid_inputStatus);
    CallInputStatus(again);
    EXPECT_THAT(again.Octets(), ElementsAre(0x00));
}

TEST_F(AlarmTest, InputStatusRefusesEveryOtherMode) {
    Camera().alarms.banks = {{"BNK2", {true}}};
    for (const int mode : kOtherModes) {
        journal::Clear();
        SnmpRequest request(OrvexSnmpOid::oid_inputStatus);
        request.WithOctets({0x55});
        EXPECT_EQ(CallInputStatus(request, mode), SNMP_ERR_GENERR);
        EXPECT_THAT(request.Octets(), ElementsAre(0x55));
        EXPECT_THAT(journal::All(),
                    ElementsAre("log 6 handle_inputStatus: Enter.",
                                "log 3 handle_inputStatus: unknown mode (" + std::to_string(mode) + ")"));
    }
}

TEST_F(AlarmTest, WhatWasReadIsHandedOutAfterTheSuccessWasLogged) {
    Camera().alarms.banks = {{"North", {true}}};
    Camera().failing = {"log 6 GetAlarmCount: count=1", "log 6 GetAlarmState: bankName=North alarmId=0 state=1"};
    int count = -5;
    bool state = false;
    EXPECT_EQ(_provider.GetAlarmCount(count), -1);
    EXPECT_EQ(_provider.GetAlarmState("North", 0, state), -1);
    EXPECT_EQ(count, -5);
    EXPECT_FALSE(state);
    EXPECT_THAT(journal::Logged(3),
                ElementsAre("Exception while GetAlarmCount", "GetAlarmState:Exception while GetAlarmState"));
}

}  // namespace
