// What the alarm inputs and the relay outputs do alike: the service's operations, the list, the table and its reads,
// and the two status octets. OrvexSnmpAlarmTest.cpp and OrvexSnmpRelayTest.cpp have what only one of them does.
#include <memory>

#include "support/AlarmAndRelay.h"

namespace {

using bankrows::Columns;
using bankrows::Stored;
using testing::SizeIs;

const int kOtherModes[] = {MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_ACTION, MODE_SET_COMMIT,
                           MODE_SET_FREE,     MODE_SET_UNDO,     MODE_GETBULK,    77};

using Kinds = testing::Types<AlarmInputs, RelayOutputs>;

template <class Kind>
class AlarmAndRelayTest : public BankTest<Kind> {};
TYPED_TEST_SUITE(AlarmAndRelayTest, Kinds, KindNames);

// --- construction ---

template <class Kind>
class AlarmAndRelayConstructionTest : public ModuleTest {
protected:
    AgentLog _agentLog;
    tavos::msgbus::MsgBus _bus;
    std::unique_ptr<typename Kind::Provider> _provider = std::make_unique<typename Kind::Provider>(_bus);
};
TYPED_TEST_SUITE(AlarmAndRelayConstructionTest, Kinds, KindNames);

TYPED_TEST(AlarmAndRelayConstructionTest, ItsEndDeletesTheClient) {
    journal::Clear();
    this->_provider.reset();
    EXPECT_THAT(journal::All(), ElementsAre(std::string("bus DeleteClient ") + TypeParam::kName));
    EXPECT_EQ(TypeParam::Provider::GetInstance(), nullptr);
}

TYPED_TEST(AlarmAndRelayConstructionTest, ItsEndTakesTheRegistrationBackAndDeletesTheClient) {
    ((*this->_provider).*TypeParam::kInitTable)(false);
    journal::Clear();
    this->_provider.reset();
    const std::string kind = TypeParam::kName;
    EXPECT_THAT(journal::All(), ElementsAre("agent unregister " + kind + "StatesTable", "bus DeleteClient " + kind));
    EXPECT_EQ(TypeParam::Provider::GetInstance(), nullptr);
}

TYPED_TEST(AlarmAndRelayTest, ListIsEmptyBeforeTheFirstBuild) {
    EXPECT_THAT(this->List(), IsEmpty());
    EXPECT_THAT(journal::All("agent"), IsEmpty());
}

// --- the service's operations ---

TYPED_TEST(AlarmAndRelayTest, CountIsTheServicesTotal) {
    TypeParam::Banks().total = 7;
    int count = -5;
    EXPECT_EQ(this->GetCount(count), 0);
    EXPECT_EQ(count, 7);
    EXPECT_EQ(journal::All(), this->Texts({"log 8 Get<Kind>Count: Enter.", "call <kind> Get<Kind>Count",
                                           "log 6 Get<Kind>Count: count=7", "log 8 Get<Kind>Count: Done."}));
}

TYPED_TEST(AlarmAndRelayTest, FailedCountLeavesTheArgumentAlone) {
    Camera().failing = {this->Text("<kind>.Get<Kind>Count")};
    for (const bool throwsInt : {false, true}) {
        journal::Clear();
        Camera().throwsInt = throwsInt;
        int count = -5;
        EXPECT_EQ(this->GetCount(count), -1);
        EXPECT_EQ(count, -5);
        EXPECT_EQ(journal::Logged(), this->Texts({"8 Get<Kind>Count: Enter.", "3 Exception while Get<Kind>Count",
                                                  "8 Get<Kind>Count: Done."}));
    }
}

TYPED_TEST(AlarmAndRelayTest, StateIsThatOfTheBanksEntry) {
    TypeParam::Banks().banks = {{"North", {false, true}}};
    bool state = false;
    EXPECT_EQ(this->GetState("North", 1, state), 0);
    EXPECT_TRUE(state);
    EXPECT_EQ(journal::All(), this->StateRead("North", 1, 1));
    EXPECT_EQ(this->GetState("North", 0, state), 0);
    EXPECT_FALSE(state);
    EXPECT_THAT(journal::All(), Contains(TypeParam::StateLine("North", 0, 0)));
}

TYPED_TEST(AlarmAndRelayTest, FailedStateLeavesTheArgumentAlone) {
    Camera().failing = {this->Text("<kind>.Get<Kind>State")};
    for (const bool throwsInt : {false, true}) {
        journal::Clear();
        Camera().throwsInt = throwsInt;
        bool state = true;
        EXPECT_EQ(this->GetState("North", 1, state), -1);
        EXPECT_TRUE(state);
        EXPECT_EQ(journal::All(), this->StateUnread("North", 1));
    }
}

TYPED_TEST(AlarmAndRelayTest, WhatWasReadIsHandedOutAfterTheSuccessWasLogged) {
    TypeParam::Banks().banks = {{"North", {true}}};
    Camera().failing = {this->Text("log 6 Get<Kind>Count: count=1"), TypeParam::StateLine("North", 0, 1)};
    int count = -5;
    bool state = false;
    EXPECT_EQ(this->GetCount(count), -1);
    EXPECT_EQ(this->GetState("North", 0, state), -1);
    EXPECT_EQ(count, -5);
    EXPECT_FALSE(state);
    EXPECT_EQ(journal::Logged(3),
              this->Texts({"Exception while Get<Kind>Count", "Get<Kind>State:Exception while Get<Kind>State"}));
}

// --- the list ---

TYPED_TEST(AlarmAndRelayTest, ListHasEveryEntryOfEveryBankInOrderWithItsState) {
    TypeParam::Banks().banks = {{"North", {false, true}}, {"BNK2", {true}}};
    this->CreateList(false);
    EXPECT_THAT(this->List(), ElementsAre(Entry("North", 0, 0), Entry("North", 1, 1), Entry("BNK2", 0, 1)));
    EXPECT_EQ(journal::All(),
              this->Texts({"log 8 Create<Kind>Table: Enter.", "log 6 Create<Kind>Table: update=0",
                           "call <kind> GetBankNames", "log 6 Create<Kind>Table: <Kind> bankNames size is 2",
                           "call <kind> GetBank<Kind>Count North", "call <kind> Get<Kind>State North 0",
                           "call <kind> Get<Kind>State North 1", "call <kind> GetBank<Kind>Count BNK2",
                           "call <kind> Get<Kind>State BNK2 0", "log 8 Create<Kind>Table: Done."}));
}

TYPED_TEST(AlarmAndRelayTest, UpdatedListHasStateZeroEverywhereAndAsksForNone) {
    TypeParam::Banks().banks = {{"North", {true, true}}, {"BNK2", {true}}};
    this->CreateList(true);
    EXPECT_THAT(this->List(), ElementsAre(Entry("North", 0, 0), Entry("North", 1, 0), Entry("BNK2", 0, 0)));
    EXPECT_EQ(
        journal::All(),
        this->Texts({"log 8 Create<Kind>Table: Enter.", "log 6 Create<Kind>Table: update=1", "call <kind> GetBankNames",
                     "log 6 Create<Kind>Table: <Kind> bankNames size is 2", "call <kind> GetBank<Kind>Count North",
                     "call <kind> GetBank<Kind>Count BNK2", "log 8 Create<Kind>Table: Done."}));
}

TYPED_TEST(AlarmAndRelayTest, BuildingAgainReplacesTheList) {
    TypeParam::Banks().banks = {{"North", {true, true}}};
    this->CreateList(false);
    TypeParam::Banks().banks = {{"South", {false}}};
    this->CreateList(false);
    EXPECT_THAT(this->List(), ElementsAre(Entry("South", 0, 0)));
}

TYPED_TEST(AlarmAndRelayTest, BankNamesAreAskedForOnceAndFailingLeaveAnEmptyList) {
    for (const bool throwsInt : {false, true}) {
        this->BuildTwoBanks();
        Camera().failing = {this->Text("<kind>.GetBankNames")};
        Camera().throwsInt = throwsInt;
        this->CreateList(false);
        EXPECT_THAT(this->List(), IsEmpty());
        EXPECT_EQ(journal::All(),
                  this->Texts({"log 8 Create<Kind>Table: Enter.", "log 6 Create<Kind>Table: update=0",
                               "call <kind> GetBankNames", std::string("log 3 ") + TypeParam::kNoBankNames,
                               "log 8 Create<Kind>Table: Done."}));
        Camera().failing.clear();
    }
}

TYPED_TEST(AlarmAndRelayTest, BankWhoseCountFailsGetsTheCountOfTheBankBefore) {
    TypeParam::Banks().banks = {{"Z", {true}}, {"A", {true, false}}, {"B", {false, true, true}}, {"C", {true}}};
    Camera().failing = {this->Text("<kind>.GetBank<Kind>Count Z"), this->Text("<kind>.GetBank<Kind>Count B")};
    for (const bool throwsInt : {false, true}) {
        journal::Clear();
        Camera().throwsInt = throwsInt;
        this->CreateList(false);
        EXPECT_THAT(this->List(), ElementsAre(Entry("A", 0, 1), Entry("A", 1, 0), Entry("B", 0, 0), Entry("B", 1, 1),
                                              Entry("C", 0, 1)));
        const auto failure = this->Text("Create<Kind>Table: Retry for GetBank<Kind>Count for 0");
        EXPECT_THAT(journal::Logged(3), ElementsAre(failure, failure));
        EXPECT_THAT(journal::All(this->Text("call <kind> GetBank<Kind>Count B")), SizeIs(1));
    }
}

TYPED_TEST(AlarmAndRelayTest, EveryFailingCountIsCarriedOverFromTheLastThatSucceeded) {
    TypeParam::Banks().banks = {{"A", {true}}, {"B", {true, true}}, {"C", {}}, {"D", {}}};
    Camera().failing = {this->Text("<kind>.GetBank<Kind>Count C"), this->Text("<kind>.GetBank<Kind>Count D")};
    this->CreateList(true);
    EXPECT_THAT(this->List(), ElementsAre(Entry("A", 0, 0), Entry("B", 0, 0), Entry("B", 1, 0), Entry("C", 0, 0),
                                          Entry("C", 1, 0), Entry("D", 0, 0), Entry("D", 1, 0)));
}

TYPED_TEST(AlarmAndRelayTest, EntryWhoseStateFailsGetsTheStateOfTheEntryBefore) {
    TypeParam::Banks().banks = {{"A", {true, true}}, {"B", {false, false}}};
    Camera().failing = {this->Text("<kind>.Get<Kind>State A 0"), this->Text("<kind>.Get<Kind>State B 0")};
    for (const bool throwsInt : {false, true}) {
        journal::Clear();
        Camera().throwsInt = throwsInt;
        this->CreateList(false);
        EXPECT_THAT(this->List(), ElementsAre(Entry("A", 0, 0), Entry("A", 1, 1), Entry("B", 0, 1), Entry("B", 1, 0)));
        const auto failure = this->Text("Create<Kind>Table: Exception in Get<Kind>State()");
        EXPECT_THAT(journal::Logged(3), ElementsAre(failure, failure));
        EXPECT_THAT(journal::All(this->Text("call <kind> Get<Kind>State A 0")), SizeIs(1));
    }
}

// --- the table ---

TYPED_TEST(AlarmAndRelayTest, FirstBuildRegistersTheTableAndAddsItsRows) {
    TypeParam::Banks().banks = {{"North", {false, true}}, {"BNK2", {true}}};
    EXPECT_EQ(this->InitTable(false), 0);
    EXPECT_THAT(Stored(this->DataSet()),
                ElementsAre(this->Row(1, "North", 0, 0), this->Row(2, "North", 1, 1), this->Row(3, "BNK2", 0, 1)));
}

TYPED_TEST(AlarmAndRelayTest, TableHasThreeColumnsAndOnlyTheRelaysStateIsWritable) {
    this->BuildTwoBanks();
    const auto* table = this->DataSet();
    EXPECT_THAT(Columns(table), ElementsAre("1 type 4", "2 type 2", TypeParam::kStateColumn));
    EXPECT_THAT(Stored(table),
                ElementsAre(this->Row(1, "BNK1", 0, 1), this->Row(2, "BNK2", 0, 0), this->Row(3, "BNK2", 1, 1)));
    EXPECT_EQ(table->table->indexes_template->type, ASN_INTEGER);
    EXPECT_EQ(table->table->indexes_template->next_variable, nullptr);
    EXPECT_EQ(table->table->name, this->Text("<kind>StatesTable"));
    EXPECT_EQ(table->allow_creation, 0);
    EXPECT_EQ(table->rowstatus_column, 0u);
}

TYPED_TEST(AlarmAndRelayTest, RebuildServesTheNewRowsWithoutRegisteringAgain) {
    this->BuildTwoBanks();
    auto* registered = this->DataSet();
    TypeParam::Banks().banks = {{"South", {true, true}}};
    EXPECT_EQ(this->InitTable(true), 0);
    EXPECT_EQ(this->DataSet(), registered);
    EXPECT_THAT(Stored(registered), ElementsAre(this->Row(1, "South", 0, 0), this->Row(2, "South", 1, 0)));
    EXPECT_THAT(Columns(registered), ElementsAre("1 type 4", "2 type 2", TypeParam::kStateColumn));
    EXPECT_EQ(journal::All(),
              this->Texts({"log 6 init_<kind>Table: Enter. update=1\n", "log 8 Create<Kind>Table: Enter.",
                           "log 6 Create<Kind>Table: update=1", "call <kind> GetBankNames",
                           "log 6 Create<Kind>Table: <Kind> bankNames size is 1",
                           "call <kind> GetBank<Kind>Count South", "log 8 Create<Kind>Table: Done."}) +
                  TypeParam::RebuildLines());
}

TYPED_TEST(AlarmAndRelayTest, ServiceWithoutBanksOrEntriesGivesOneRowWithoutValues) {
    EXPECT_EQ(this->InitTable(false), 0);
    EXPECT_THAT(Stored(this->DataSet()), ElementsAre(".1:"));
    TypeParam::Banks().banks = {{"BNK1", {}}, {"BNK2", {}}};
    for (const bool update : {false, true}) {
        EXPECT_EQ(this->InitTable(update), 0);
        EXPECT_THAT(Stored(this->DataSet()), ElementsAre(".1:"));
    }
}

TYPED_TEST(AlarmAndRelayTest, RowWithoutValuesGoesWhenThereAreEntriesAndComesBackWhenThereAreNone) {
    this->InitTable(false);
    TypeParam::Banks().banks = {{"A", {true}}};
    this->InitTable(true);
    EXPECT_THAT(Stored(this->DataSet()), ElementsAre(this->Row(1, "A", 0, 0)));
    TypeParam::Banks().banks.clear();
    this->InitTable(true);
    EXPECT_THAT(Stored(this->DataSet()), ElementsAre(".1:"));
}

TYPED_TEST(AlarmAndRelayTest, RefusedRegistrationIsReportedAndTriedAgainByTheNextBuild) {
    TypeParam::Banks().banks = {{"A", {true}}};
    Agent().refusing = {this->Text("<kind>StatesTable")};
    EXPECT_EQ(this->InitTable(false), -1);
    EXPECT_EQ(journal::All().back(), TypeParam::kNotRegistered);
    EXPECT_EQ(this->InitTable(true), -1);
    EXPECT_THAT(journal::All("agent register"), SizeIs(2));

    Agent().refusing.clear();
    EXPECT_EQ(this->InitTable(true), 0);
    EXPECT_EQ(journal::All().back(), TypeParam::kRegistered);
    EXPECT_THAT(Stored(this->DataSet()), ElementsAre(this->Row(1, "A", 0, 0)));
    EXPECT_EQ(this->InitTable(true), 0);
    EXPECT_THAT(journal::All("agent register"), SizeIs(3));
}

// --- reads of the table ---

TYPED_TEST(AlarmAndRelayTest, BankNameIsAnswered) {
    this->BuildTwoBanks();
    CellOf<TypeParam> request(1, 3);
    EXPECT_EQ(this->Call(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_OCTET_STR);
    EXPECT_THAT(request.Octets(), ElementsAre('B', 'N', 'K', '2'));
    EXPECT_EQ(journal::All(), this->Asked(1, 3) + this->Ended());
}

TYPED_TEST(AlarmAndRelayTest, IdWithinTheBankIsAnsweredOnGetNextTooWithItsRangeEndLogged) {
    this->BuildTwoBanks();
    const std::string rangeEnds[] = {"", kEnterprise + ".1.3.9"};
    for (const auto& rangeEnd : rangeEnds) {
        journal::Clear();
        CellOf<TypeParam> request(2, 3);
        if (!rangeEnd.empty()) request.WithRangeEnd({1, 3, 6, 1, 4, 1, ORVEX_ENTERPRISE_NUMBER, 1, 3, 9});
        EXPECT_EQ(this->Call(request, rangeEnd.empty() ? MODE_GET : MODE_GETNEXT), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Type(), ASN_INTEGER);
        EXPECT_EQ(request.Integer(), 1);
        EXPECT_THAT(Agent().answers, ElementsAre(FakeAgent::Answer{ASN_INTEGER, 4}));
        EXPECT_EQ(journal::All(), this->Asked(2, 3, rangeEnd) + this->Ended());
    }
}

TYPED_TEST(AlarmAndRelayTest, StateIsReadLive) {
    this->BuildTwoBanks();
    for (const bool state : {true, false}) {
        TypeParam::Banks().banks[1].second[0] = state;
        journal::Clear();
        CellOf<TypeParam> request(3, 2);
        EXPECT_EQ(this->Call(request), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Type(), ASN_INTEGER);
        EXPECT_EQ(request.Integer(), state ? 1 : 0);
        EXPECT_THAT(Agent().answers, ElementsAre(FakeAgent::Answer{ASN_INTEGER, 4}));
        EXPECT_EQ(journal::All(), this->Asked(3, 2) + this->StateRead("BNK2", 0, state) +
                                      TypeParam::LiveLines("BNK2", 0, state) + this->Ended());
    }
}

TYPED_TEST(AlarmAndRelayTest, StateThatCannotBeReadIsAnsweredAsZeroWithoutAnError) {
    this->BuildTwoBanks();
    Camera().failing = {this->Text("<kind>.Get<Kind>State")};
    CellOf<TypeParam> request(3, 1);  // stored as 1
    EXPECT_EQ(this->Call(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_INTEGER);
    EXPECT_EQ(request.Integer(), 0);
    EXPECT_EQ(request.Mark(), 0);
    EXPECT_EQ(journal::All(), this->Asked(3, 1) + this->StateUnread("BNK1", 0) + this->Ended());
}

TYPED_TEST(AlarmAndRelayTest, FourthColumnIsLeftUnansweredAndOthersAreAnError) {
    this->BuildTwoBanks();
    CellOf<TypeParam> fourth(4, 1);
    EXPECT_EQ(this->Call(fourth), SNMP_ERR_NOERROR);
    EXPECT_EQ(fourth.Type(), ASN_NULL);
    EXPECT_EQ(journal::All(), this->Asked(4, 1) + this->Ended());
    for (const int column : {0, 5, 99}) {
        journal::Clear();
        CellOf<TypeParam> request(static_cast<oid>(column), 1);
        EXPECT_EQ(this->Call(request), SNMP_ERR_GENERR);
        EXPECT_EQ(request.Type(), ASN_NULL);
        const auto number = std::to_string(column);
        EXPECT_EQ(journal::All(),
                  this->Asked(column, 1) + this->Texts({"log 3 handle_<kind>States: unknown colnum (" + number + ")"}));
    }
}

TYPED_TEST(AlarmAndRelayTest, RowsThatTheListDoesNotHaveAreLeftUnanswered) {
    this->BuildTwoBanks();
    for (const oid row : {oid{0}, oid{4}, oid{0x7FFFFFFF}, oid{0xFFFFFFFF}}) {
        journal::Clear();
        CellOf<TypeParam> request(3, row);
        EXPECT_EQ(this->Call(request), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Type(), ASN_NULL);
        EXPECT_EQ(request.Mark(), 0);
        EXPECT_EQ(journal::All(), this->Begun() + TypeParam::RowLines(static_cast<int>(row), 3) + this->Ended());
    }
}

TYPED_TEST(AlarmAndRelayTest, NamesWithoutARowAreLeftUnanswered) {
    this->BuildTwoBanks();
    SnmpRequest request(TypeParam::kTableOid);
    EXPECT_EQ(this->Call(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_NULL);
}

TYPED_TEST(AlarmAndRelayTest, EmptyListAnswersNoRow) {
    this->InitTable(false);
    journal::Clear();
    CellOf<TypeParam> request(3, 1);
    EXPECT_EQ(this->Call(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_NULL);
    EXPECT_THAT(journal::Calls(), ElementsAre(this->Text("<kind> Get<Kind>Count")));
}

// --- following the service ---

TYPED_TEST(AlarmAndRelayTest, DifferentCountRebuildsListAndTableBeforeTheAnswer) {
    this->BuildTwoBanks();
    TypeParam::Banks().banks = {{"North", {true, true, true, true}}};
    CellOf<TypeParam> request(3, 4);
    EXPECT_EQ(this->Call(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Integer(), 1);
    EXPECT_THAT(this->List(),
                ElementsAre(Entry("North", 0, 0), Entry("North", 1, 0), Entry("North", 2, 0), Entry("North", 3, 0)));
    EXPECT_THAT(Stored(this->DataSet()), ElementsAre(this->Row(1, "North", 0, 0), this->Row(2, "North", 1, 0),
                                                     this->Row(3, "North", 2, 0), this->Row(4, "North", 3, 0)));
    EXPECT_EQ(journal::All(),
              this->Begun(4) +
                  this->Texts({"log 6 handle_<kind>States: Updating <kind>Table...",
                               "log 6 init_<kind>Table: Enter. update=1\n", "log 8 Create<Kind>Table: Enter.",
                               "log 6 Create<Kind>Table: update=1", "call <kind> GetBankNames",
                               "log 6 Create<Kind>Table: <Kind> bankNames size is 1",
                               "call <kind> GetBank<Kind>Count North", "log 8 Create<Kind>Table: Done."}) +
                  TypeParam::RebuildLines() + TypeParam::RowLines(4, 3) +
                  this->Texts({"log 6 handle_<kind>States: table_info->colnum is 3"}) + this->StateRead("North", 3, 1) +
                  TypeParam::LiveLines("North", 3, 1) + this->Ended());
}

TYPED_TEST(AlarmAndRelayTest, RowThatTheRebuildTakesAwayIsLeftUnanswered) {
    this->BuildTwoBanks();
    TypeParam::Banks().banks = {{"North", {true}}};
    CellOf<TypeParam> request(1, 2);
    EXPECT_EQ(this->Call(request), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_NULL);
}

TYPED_TEST(AlarmAndRelayTest, CountThatCannotBeReadRebuildsNothing) {
    this->BuildTwoBanks();
    TypeParam::Banks().banks = {{"North", {true}}};
    Camera().failing = {this->Text("<kind>.Get<Kind>Count")};
    CellOf<TypeParam> request(1, 2);
    EXPECT_EQ(this->Call(request), SNMP_ERR_NOERROR);
    EXPECT_THAT(request.Octets(), ElementsAre('B', 'N', 'K', '2'));
    EXPECT_THAT(this->List(), SizeIs(3));
    Lines lines = this->Asked(1, 2);
    lines[5] = this->Text("log 3 Exception while Get<Kind>Count");  // instead of the count
    EXPECT_EQ(journal::All(), lines + this->Ended());
}

TYPED_TEST(AlarmAndRelayTest, BanksWithTheSameTotalAreNotNoticed) {
    this->BuildTwoBanks();
    TypeParam::Banks().banks = {{"North", {true, true, true}}};
    CellOf<TypeParam> request(1, 2);
    EXPECT_EQ(this->Call(request), SNMP_ERR_NOERROR);
    EXPECT_THAT(request.Octets(), ElementsAre('B', 'N', 'K', '2'));
}

// --- inputStatus and outputStatus ---

template <class Kind>
class InputAndOutputStatusTest : public BankTest<Kind> {
protected:
    /// Reads the object and expects the octet; the journal then has only the lines of this read.
    void Expect(int octet, int mode = MODE_GET, const std::vector<oid>& rangeEnd = {}) {
        journal::Clear();
        SnmpRequest request(Kind::kStatusOid);
        if (!rangeEnd.empty()) request.WithRangeEnd(rangeEnd);
        EXPECT_EQ(this->CallStatus(request, mode), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Type(), ASN_OCTET_STR);
        EXPECT_THAT(request.Octets(), ElementsAre(octet));
    }

    /// All lines of a read: those of the state, and the last two.
    static Lines AllLines(const Lines& state, const char* line, const char* end, const std::string& rangeEnd = "") {
        const std::string name = Kind::kStatusName;
        return Lines{"log 6 " + name + ": Enter.", "log 6 " + name + ": Received OID " + rangeEnd} + state +
               Lines{line, end};
    }
};
TYPED_TEST_SUITE(InputAndOutputStatusTest, Kinds, KindNames);

TYPED_TEST(InputAndOutputStatusTest, HasTheFirstStateOfBnk2InBitZero) {
    TypeParam::Banks().banks = {{"BNK1", {false, false}}, {"BNK2", {true, false}}};
    this->Expect(0x01);
    EXPECT_EQ(journal::All(), this->AllLines(this->StateRead("BNK2", 0, 1), TypeParam::kActive, TypeParam::kActiveEnd));
}

TYPED_TEST(InputAndOutputStatusTest, OfAClearStateIsZero) {
    TypeParam::Banks().banks = {{"BNK2", {false}}};
    this->Expect(0x00, MODE_GETNEXT, {1, 3, 6});
    EXPECT_EQ(journal::All(),
              this->AllLines(this->StateRead("BNK2", 0, 0), TypeParam::kClear, TypeParam::kClearEnd, ".1.3.6"));
}

TYPED_TEST(InputAndOutputStatusTest, BeforeAnySuccessIsZero) {
    TypeParam::Banks().banks = {{"BNK2", {true}}};
    Camera().failing = {this->Text("<kind>.Get<Kind>State")};
    this->Expect(0x00);
    EXPECT_EQ(journal::All(), this->AllLines(this->StateUnread("BNK2", 0), TypeParam::kUnread, TypeParam::kClearEnd));
}

TYPED_TEST(InputAndOutputStatusTest, RepeatsTheLastGoodValueAfterAFailure) {
    TypeParam::Banks().banks = {{"BNK2", {true}}};
    this->Expect(0x01);
    Camera().failing = {this->Text("<kind>.Get<Kind>State")};
    TypeParam::Banks().banks[0].second[0] = false;
    this->Expect(0x01);
    Camera().failing.clear();
    this->Expect(0x00);
}

TYPED_TEST(InputAndOutputStatusTest, RefusesEveryOtherMode) {
    TypeParam::Banks().banks = {{"BNK2", {true}}};
    for (const int mode : kOtherModes) {
        journal::Clear();
        SnmpRequest request(TypeParam::kStatusOid);
        request.WithOctets({0x55});
        EXPECT_EQ(this->CallStatus(request, mode), SNMP_ERR_GENERR);
        EXPECT_THAT(request.Octets(), ElementsAre(0x55));
        const std::string name = TypeParam::kStatusName;
        EXPECT_THAT(journal::All(), ElementsAre("log 6 " + name + ": Enter.",
                                                "log 3 " + name + ": unknown mode (" + std::to_string(mode) + ")"));
    }
}

}  // namespace
