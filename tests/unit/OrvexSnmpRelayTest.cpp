// What only the relay outputs do; AlarmAndRelayTest.cpp has what they and the alarm inputs do alike.
#include <set>

#include "support/AlarmAndRelay.h"

namespace {

using bankrows::Stored;
using testing::SizeIs;
using Answer = FakeAgent::Answer;

using RelayTest = BankTest<RelayOutputs>;
using CellRequest = CellOf<RelayOutputs>;

constexpr int kModes[] = {MODE_GET,          MODE_GETNEXT,    MODE_SET_RESERVE1,
                          MODE_SET_RESERVE2, MODE_SET_ACTION, MODE_SET_COMMIT,
                          MODE_SET_FREE,     MODE_SET_UNDO,   77};

std::string Place(int row, int column) {
    return RelayOutputs::RowLines(row, column).at(0);
}

const std::string kDone = "log 8 handle_relayStates: Done.";

/// The calls that change a relay.
Lines Driven() {
    return journal::All("call relay SetRelay") + journal::All("call relay ClearRelay");
}

TEST_F(ModuleTest, RelayOpensItsClientBetweenItsLines) {
    tavos::msgbus::MsgBus bus;
    journal::Clear();
    const OrvexSnmpRelay relay(bus);
    EXPECT_THAT(journal::All(),
                ElementsAre("logger ClearAppenders", "logger ConfigureLogging log log.level=3 log.stdout=true",
                            "log 8 OrvexSnmpRelay: Enter", "bus CreateClient relay",
                            "log 6 OrvexSnmpRelay: making new relay table", "log 8 OrvexSnmpRelay: Done."));
    EXPECT_EQ(OrvexSnmpRelay::GetInstance(), &relay);
}

// --- the service's operations ---

TEST_F(RelayTest, SetPassesItsValueOn) {
    EXPECT_EQ(_provider.SetRelay("North", 2, 5), 0);
    EXPECT_THAT(journal::All(), ElementsAre("log 8 SetRelay: Enter.", "call relay SetRelay North 2 5",
                                            "log 6 SetRelay: bankName=North relayId=2", "log 8 SetRelay: Done."));
}

TEST_F(RelayTest, ClearPassesZeroAsItsThirdArgument) {
    EXPECT_EQ(_provider.ClearRelay("North", 2), 0);
    EXPECT_THAT(journal::All(), ElementsAre("log 8 ClearRelay: Enter.", "call relay ClearRelay North 2 0",
                                            "log 6 ClearRelay: bankName=North relayId=2", "log 8 ClearRelay: Done."));
}

TEST_F(RelayTest, FailedCallsAreLoggedAndLeaveTheirArgumentsAlone) {
    Camera().failing = {"relay.GetRelayCount", "relay.GetRelayState", "relay.SetRelay", "relay.ClearRelay"};
    for (const bool throwsInt : {false, true}) {
        Camera().throwsInt = throwsInt;
        journal::Clear();
        int count = -5;
        bool state = true;
        EXPECT_EQ(_provider.GetRelayCount(count), -1);
        EXPECT_EQ(_provider.GetRelayState("North", 1, state), -1);
        EXPECT_EQ(_provider.SetRelay("North", 1, 1), -1);
        EXPECT_EQ(_provider.ClearRelay("North", 1), -1);
        EXPECT_EQ(count, -5);
        EXPECT_TRUE(state);
        EXPECT_THAT(journal::Logged(),
                    ElementsAre("8 GetRelayCount: Enter.", "3 Exception while GetRelayCount", "8 GetRelayCount: Done.",
                                "8 GetRelayState: Enter.", "3 GetRelayState:Exception while GetRelayState",
                                "8 GetRelayState: Done.", "8 SetRelay: Enter.", "3 Exception while setting relay",
                                "8 SetRelay: Done.", "8 ClearRelay: Enter.", "3 Exception while clearing Relay",
                                "8 ClearRelay: Done."));
    }
}

// --- the table ---

TEST_F(RelayTest, FirstBuildRegistersTheTableAndLogsThroughThePlatformOnly) {
    Camera().relays.banks = {{"BNK2", {true}}};
    EXPECT_EQ(_provider.init_relayTable(false), 0);
    EXPECT_THAT(Stored(DataSet()), ElementsAre(".1: octets 4 BNK2, integer 4 0, integer 4 1 w"));
    EXPECT_THAT(journal::All("log 6 init_"), ElementsAre("log 6 init_relayTable: Enter. update=0\n",
                                                         "log 6 init_relayTable: Registration for Relay table OID OK"));
    EXPECT_THAT(journal::All("agent register"),
                ElementsAre("agent register_table_data_set relayStatesTable " + kEnterprise + ".1.3.2 3"));
    EXPECT_THAT(journal::All("agentlog 7"), IsEmpty());
    EXPECT_THAT(journal::All("agentlog 6"), IsEmpty());
}

// --- reads of the table ---

TEST_F(RelayTest, EveryRequestOfTheListIsAnsweredAndThoseWithoutARowAreSkipped) {
    BuildTwoBanks();
    CellRequest zero(2, 0);
    CellRequest first(2, 1);
    CellRequest beyond(2, 4);
    CellRequest last(1, 2);
    zero.Chain(first);
    first.Chain(beyond);
    beyond.Chain(last);
    EXPECT_EQ(Call(zero), SNMP_ERR_NOERROR);
    EXPECT_EQ(zero.Type(), ASN_NULL);
    EXPECT_EQ(first.Integer(), 0);
    EXPECT_EQ(beyond.Type(), ASN_NULL);
    EXPECT_THAT(last.Octets(), ElementsAre('B', 'N', 'K', '2'));
    EXPECT_THAT(
        journal::All(),
        ElementsAreArray(Begun() + Lines{Place(0, 2), Place(1, 2), "log 6 handle_relayStates: table_info->colnum is 2",
                                         Place(4, 2), Place(2, 1), "log 6 handle_relayStates: table_info->colnum is 1",
                                         kDone}));
}

TEST_F(RelayTest, EmptyListSkipsEveryRowInEveryMode) {
    _provider.init_relayTable(false);
    for (const int mode : kModes) {
        journal::Clear();
        CellRequest request(3, 1);
        EXPECT_EQ(Call(request, mode), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Type(), ASN_NULL);
        EXPECT_EQ(request.Mark(), 0);
        EXPECT_THAT(journal::All(), ElementsAreArray(Begun(0) + Lines{Place(1, 3), kDone}));
    }
}

TEST_F(RelayTest, UnknownModeIsRefusedAtTheFirstRow) {
    BuildTwoBanks();
    CellRequest first(3, 1);
    CellRequest second(3, 2);
    first.Chain(second);
    EXPECT_EQ(Call(first, 77), SNMP_ERR_GENERR);
    EXPECT_EQ(first.Type(), ASN_NULL);
    EXPECT_THAT(journal::All(),
                ElementsAreArray(Begun() + Lines{Place(1, 3), "log 3 handle_relayStates: unknown mode (77)"}));
}

// --- following the service ---

TEST_F(RelayTest, DifferentCountRebuildsListAndTableInEveryMode) {
    for (const int mode : kModes) {
        BuildTwoBanks();
        _provider.init_relayTable(true);
        journal::Clear();
        Camera().relays.banks = {{"North", {true, true, true, true}}};
        CellRequest beyond(3, 9);
        EXPECT_EQ(Call(beyond, mode), SNMP_ERR_NOERROR);
        EXPECT_THAT(List(), ElementsAre(Entry("North", 0, 0), Entry("North", 1, 0), Entry("North", 2, 0),
                                        Entry("North", 3, 0)));
        EXPECT_THAT(Stored(DataSet()), SizeIs(4));
        EXPECT_THAT(
            journal::All(),
            ElementsAreArray(
                Begun(4) +
                Lines{"log 6 handle_relayStates: Updating relayTable...", "log 6 init_relayTable: Enter. update=1\n",
                      "log 8 CreateRelayTable: Enter.", "log 6 CreateRelayTable: update=1", "call relay GetBankNames",
                      "log 6 CreateRelayTable: Relay bankNames size is 1", "call relay GetBankRelayCount North",
                      "log 8 CreateRelayTable: Done.", "log 6 init_relayTable: deleting table to make new one",
                      "log 6 init_relayTable: making new relay table", Place(9, 3), kDone}));
    }
}

// --- sets of the table ---

TEST_F(RelayTest, WrongTypeIsMarkedAndTheOtherRequestsAreStillLookedAt) {
    BuildTwoBanks();
    CellRequest octets(3, 1);
    CellRequest integer(3, 2);
    CellRequest gauge(3, 3);
    octets.WithOctets({1});
    integer.WithInteger(1);
    const long one = 1;
    gauge.With(ASN_GAUGE, &one, sizeof one);
    octets.Chain(integer);
    integer.Chain(gauge);
    EXPECT_EQ(Call(octets, MODE_SET_RESERVE1), SNMP_ERR_NOERROR);
    EXPECT_EQ(octets.Mark(), SNMP_ERR_WRONGTYPE);
    EXPECT_EQ(integer.Mark(), 0);
    EXPECT_EQ(gauge.Mark(), SNMP_ERR_WRONGTYPE);
    EXPECT_THAT(journal::All(), ElementsAreArray(Begun() + Lines{Place(1, 3), Place(2, 3), Place(3, 3), kDone}));
}

TEST_F(RelayTest, WrongTypeFailsTheSetAndDrivesNothing) {
    BuildTwoBanks();
    CellRequest request(3, 1);
    request.WithOctets({'1'});
    EXPECT_EQ(Set(request), SNMP_ERR_WRONGTYPE);
    EXPECT_THAT(Driven(), IsEmpty());
}

TEST_F(RelayTest, WrongTypeOfARowThatIsNotThereIsNotMarked) {
    BuildTwoBanks();
    CellRequest request(3, 4);
    request.WithOctets({1});
    EXPECT_EQ(Call(request, MODE_SET_RESERVE1), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Mark(), 0);
}

TEST_F(RelayTest, Reserve2RefreshesTheListAndNotTheRows) {
    BuildTwoBanks();
    Camera().relays.banks[0].second[0] = false;
    Camera().relays.banks[1].second = {true, false};
    const auto rows = Stored(DataSet());
    CellRequest request(3, 2);
    request.WithInteger(1);
    EXPECT_EQ(Call(request, MODE_SET_RESERVE2), SNMP_ERR_NOERROR);
    EXPECT_THAT(List(), ElementsAre(Entry("BNK1", 0, 0), Entry("BNK2", 0, 1), Entry("BNK2", 1, 0)));
    EXPECT_EQ(Stored(DataSet()), rows);
    EXPECT_THAT(journal::All(),
                ElementsAreArray(
                    Begun() + Lines{Place(2, 3), "log 8 CreateRelayTable: Enter.", "log 6 CreateRelayTable: update=0",
                                    "call relay GetBankNames", "log 6 CreateRelayTable: Relay bankNames size is 2",
                                    "call relay GetBankRelayCount BNK1", "call relay GetRelayState BNK1 0",
                                    "call relay GetBankRelayCount BNK2", "call relay GetRelayState BNK2 0",
                                    "call relay GetRelayState BNK2 1", "log 8 CreateRelayTable: Done.", kDone}));
}

TEST_F(RelayTest, ActionRemembersTheValueAndDrivesNothing) {
    BuildTwoBanks();
    for (const int value : {1, 0, -7, 2147483647}) {
        journal::Clear();
        CellRequest request(3, 2);
        request.WithInteger(value);
        EXPECT_EQ(Call(request, MODE_SET_ACTION), SNMP_ERR_NOERROR);
        EXPECT_THAT(journal::All(),
                    ElementsAreArray(Begun() + Lines{Place(2, 3),
                                                     "log 6 handle_relayStates: newRelayValue in MODE_SET_ACTION is " +
                                                         std::to_string(value),
                                                     kDone}));
    }
}

TEST_F(RelayTest, SetOfOneEnergisesTheRowsRelayAndAnswersOne) {
    BuildTwoBanks();
    CellRequest request(3, 3);
    request.WithInteger(1);
    Call(request, MODE_SET_RESERVE1);
    Call(request, MODE_SET_RESERVE2);
    Call(request, MODE_SET_ACTION);
    journal::Clear();
    EXPECT_EQ(Call(request, MODE_SET_COMMIT), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_INTEGER);
    EXPECT_EQ(request.Integer(), 1);
    EXPECT_THAT(Agent().answers, ElementsAre(Answer{ASN_INTEGER, 4}));
    EXPECT_THAT(
        journal::All(),
        ElementsAreArray(Begun() + Lines{Place(3, 3), "log 6 handle_relayStates: newRelayState in MODE_SET_COMMIT is 1",
                                         "log 8 SetRelay: Enter.", "call relay SetRelay BNK2 1 1",
                                         "log 6 SetRelay: bankName=BNK2 relayId=1", "log 8 SetRelay: Done.", kDone}));
}

TEST_F(RelayTest, SetOfAnythingElseReleasesTheRowsRelayAndAnswersWhatWasSet) {
    BuildTwoBanks();
    for (const int value : {0, 2, 5, -1, 256, 257}) {
        journal::Clear();
        CellRequest request(3, 2);
        request.WithInteger(value);
        EXPECT_EQ(Set(request), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Type(), ASN_INTEGER);
        EXPECT_EQ(request.Integer(), value);
        EXPECT_THAT(Driven(), ElementsAre("call relay ClearRelay BNK2 0 0"));
        EXPECT_THAT(journal::Logged(6),
                    Contains("handle_relayStates: newRelayState in MODE_SET_COMMIT is " + std::to_string(value)));
    }
}

TEST_F(RelayTest, ColumnOfASetIsNotLookedAt) {
    BuildTwoBanks();
    CellRequest request(2, 1);
    request.WithInteger(1);
    EXPECT_EQ(Set(request), SNMP_ERR_NOERROR);
    EXPECT_THAT(Driven(), ElementsAre("call relay SetRelay BNK1 0 1"));
}

TEST_F(RelayTest, SetOfARowThatIsNotThereDrivesNothing) {
    BuildTwoBanks();
    for (const oid row : {oid{0}, oid{4}, oid{0xFFFFFFFF}}) {
        CellRequest request(3, row);
        request.WithInteger(1);
        EXPECT_EQ(Set(request), SNMP_ERR_NOERROR);
        EXPECT_THAT(Driven(), IsEmpty());
    }
}

TEST_F(RelayTest, FailedCommitIsAGeneralErrorForBothWays) {
    BuildTwoBanks();
    const std::tuple<int, const char*, const char*, const char*> ways[] = {
        {1, "SetRelay", "BNK1 0 1", "Exception while setting relay"},
        {0, "ClearRelay", "BNK1 0 0", "Exception while clearing Relay"}};
    for (const auto& [value, operation, arguments, failure] : ways) {
        Camera().failing = {std::string("relay.") + operation};
        CellRequest first(3, 2);
        CellRequest second(3, 1);
        first.WithInteger(value);
        second.WithInteger(value);
        first.Chain(second);
        for (const int mode : {MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_ACTION}) Call(first, mode);
        journal::Clear();
        EXPECT_EQ(Call(first, MODE_SET_COMMIT), SNMP_ERR_GENERR);
        EXPECT_EQ(first.Mark(), 0);
        EXPECT_THAT(Agent().answers, IsEmpty());
        const std::string name = operation;
        EXPECT_THAT(
            journal::All(),
            ElementsAreArray(Begun() + Lines{Place(2, 3),
                                             "log 6 handle_relayStates: newRelayState in MODE_SET_COMMIT is " +
                                                 std::to_string(value),
                                             "log 8 " + name + ": Enter.", "call relay " + name + " " + arguments,
                                             std::string("log 3 ") + failure, "log 8 " + name + ": Done.",
                                             "log 6 handle_relayStates: SetRelay returned with exception"}));
    }
}

TEST_F(RelayTest, SetOfSeveralRowsDrivesTheLastRowOncePerRow) {
    BuildTwoBanks();
    CellRequest first(3, 1);
    CellRequest second(3, 2);
    CellRequest last(3, 3);
    first.WithInteger(0);
    second.WithInteger(0);
    last.WithInteger(1);
    first.Chain(second);
    second.Chain(last);
    EXPECT_EQ(Set(first), SNMP_ERR_NOERROR);
    EXPECT_THAT(
        journal::All("call relay SetRelay"),
        ElementsAre("call relay SetRelay BNK2 1 1", "call relay SetRelay BNK2 1 1", "call relay SetRelay BNK2 1 1"));
    EXPECT_THAT(journal::All("call relay ClearRelay"), IsEmpty());
    EXPECT_EQ(first.Integer(), 1);
    EXPECT_EQ(second.Integer(), 1);
    EXPECT_EQ(last.Integer(), 1);
}

TEST_F(RelayTest, UndoPutsTheRememberedStateBackAndDrivesNothing) {
    BuildTwoBanks();
    const std::pair<oid, int> rowsAndStates[] = {{1, 1}, {2, 0}};
    for (const auto& [row, state] : rowsAndStates) {
        CellRequest request(3, row);
        request.WithInteger(17);
        for (const int mode : {MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_ACTION}) Call(request, mode);
        journal::Clear();
        EXPECT_EQ(Call(request, MODE_SET_UNDO), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Integer(), 17);
        EXPECT_THAT(journal::All(),
                    ElementsAreArray(Begun() + Lines{Place(static_cast<int>(row), 3),
                                                     "log 6 handle_relayStates: newRelayState in MODE_SET_UNDO is " +
                                                         std::to_string(state),
                                                     kDone}));
        // A commit would drive the stored value.
        journal::Clear();
        Call(request, MODE_SET_COMMIT);
        EXPECT_THAT(journal::Logged(6),
                    Contains("handle_relayStates: newRelayState in MODE_SET_COMMIT is " + std::to_string(state)));
    }
}

TEST_F(RelayTest, FreeDoesNothing) {
    BuildTwoBanks();
    CellRequest request(3, 1);
    request.WithInteger(17);
    EXPECT_EQ(Call(request, MODE_SET_FREE), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Integer(), 17);
    EXPECT_THAT(journal::All(), ElementsAreArray(Begun() + Lines{Place(1, 3), kDone}));
}

TEST_F(RelayTest, PendingRowIsThatOfReserve2AndNotOfTheCommit) {
    BuildTwoBanks();
    CellRequest request(3, 1);
    request.WithInteger(1);
    for (const int mode : {MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_ACTION}) Call(request, mode);
    Camera().relays.banks = {{"North", {false}}};
    Call(request, MODE_SET_COMMIT);
    EXPECT_THAT(Driven(), ElementsAre("call relay SetRelay BNK1 0 1"));
}

// A commit must drive the row's relay or none: never the relay of an earlier SET.

TEST_F(RelayTest, SetWhoseBanksCannotBeReadFailsBeforeItDrivesTheRelayOfAnEarlierSet) {
    BuildTwoBanks();
    CellRequest earlier(3, 1);
    earlier.WithInteger(0);
    EXPECT_EQ(Set(earlier), SNMP_ERR_NOERROR);
    journal::Clear();
    Camera().onCall = [names = 0](const std::string& call) mutable {
        if (call == "relay GetBankNames") Camera().failing.clear();
        if (call == "relay GetBankNames" && ++names == 1) Camera().failing = {"relay.GetBankNames"};
    };
    CellRequest request(3, 3);
    request.WithInteger(1);
    EXPECT_EQ(Set(request), SNMP_ERR_GENERR);
    EXPECT_THAT(Driven(), IsEmpty());
}

// --- outputControl ---

class OutputControlTest : public RelayTest {
protected:
    OutputControlTest() {
        Camera().relays.banks = {{"BNK2", {false}}};
        journal::Clear();
    }

    static int Call(SnmpRequest& request, int mode = MODE_GET) {
        return request.Call(&OrvexSnmpRelay::handle_outputControl, mode);
    }
    static int SetOctets(const std::vector<u_char>& octets) {
        SnmpRequest request(OrvexSnmpOid::oid_outputControl);
        return request.WithOctets(octets).Set(&OrvexSnmpRelay::handle_outputControl);
    }
    static std::vector<u_char> Get() {
        SnmpRequest request(OrvexSnmpOid::oid_outputControl);
        EXPECT_EQ(Call(request), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Type(), ASN_OCTET_STR);
        return request.Octets();
    }
    static Lines Handled(const Lines& inBetween = {}, const std::string& rangeEnd = "") {
        return Lines{"log 6 handle_outputControl: Enter.", "log 6 handle_outputControl: Received OID " + rangeEnd} +
               inBetween + Lines{"log 6 handle_outputControl: Done."};
    }
};

TEST_F(OutputControlTest, IsTwoZeroOctetsBeforeAnySet) {
    EXPECT_THAT(Get(), ElementsAre(0x00, 0x00));
    EXPECT_THAT(journal::All(), ElementsAreArray(Handled()));
}

TEST_F(OutputControlTest, SelectedRelayIsEnergisedByTheTopBitOfTheSecondOctet) {
    SnmpRequest request(OrvexSnmpOid::oid_outputControl);
    request.WithOctets({0x01, 0x80});
    EXPECT_EQ(Call(request, MODE_SET_ACTION), SNMP_ERR_NOERROR);
    journal::Clear();
    EXPECT_EQ(Call(request, MODE_SET_COMMIT), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Type(), ASN_OCTET_STR);
    EXPECT_THAT(request.Octets(), ElementsAre(0x01, 0x80));
    EXPECT_THAT(journal::All(),
                ElementsAreArray(Handled({"log 8 SetRelay: Enter.", "call relay SetRelay BNK2 0 1",
                                          "log 6 SetRelay: bankName=BNK2 relayId=0", "log 8 SetRelay: Done."})));
    EXPECT_THAT(Get(), ElementsAre(0x01, 0x80));
}

struct Control {
    std::vector<u_char> octets;
    std::vector<u_char> kept;
    const char* driven;
};

TEST_F(OutputControlTest, OnlyTwoBitsHaveAnEffectAndTwoOctetsAreKept) {
    const auto* const set = "call relay SetRelay BNK2 0 1";
    const auto* const clear = "call relay ClearRelay BNK2 0 0";
    const Control controls[] = {
        {{0x01, 0x80}, {0x01, 0x80}, set},     {{0xFF, 0xFF}, {0xFF, 0xFF}, set},
        {{0x01, 0x00}, {0x01, 0x00}, clear},   {{0x01, 0x7F}, {0x01, 0x7F}, clear},
        {{0x00, 0x80}, {0x00, 0x80}, nullptr}, {{0xFE, 0xFF}, {0xFE, 0xFF}, nullptr},
        {{0x80, 0x01}, {0x80, 0x01}, nullptr}, {{0x03, 0x81, 0x44}, {0x03, 0x81}, set},
        {{0x01}, {0x01, 0x00}, clear},         {{0x02}, {0x02, 0x00}, nullptr},
        {{}, {0x00, 0x00}, nullptr},
    };
    for (const auto& control : controls) {
        SCOPED_TRACE(testing::PrintToString(control.octets));
        journal::Clear();
        SnmpRequest request(OrvexSnmpOid::oid_outputControl);
        request.WithOctets(control.octets);
        EXPECT_EQ(request.Set(&OrvexSnmpRelay::handle_outputControl), SNMP_ERR_NOERROR);
        EXPECT_EQ(request.Octets(), control.kept);
        EXPECT_EQ(Driven(), control.driven == nullptr ? Lines{} : Lines{control.driven});
        EXPECT_EQ(Get(), control.kept);
    }
}

TEST_F(OutputControlTest, MissingOctetsAreZeroWhateverTheBufferHolds) {
    SnmpRequest request(OrvexSnmpOid::oid_outputControl);
    request.WithOctets({0x01, 0x80});
    request.Raw().requestvb->val_len = 1;
    EXPECT_EQ(request.Set(&OrvexSnmpRelay::handle_outputControl), SNMP_ERR_NOERROR);
    EXPECT_THAT(Driven(), ElementsAre("call relay ClearRelay BNK2 0 0"));
    EXPECT_THAT(Get(), ElementsAre(0x01, 0x00));
}

TEST_F(OutputControlTest, WrongTypeIsMarkedAndReturned) {
    SnmpRequest request(OrvexSnmpOid::oid_outputControl);
    request.WithInteger(1);
    EXPECT_EQ(Call(request, MODE_SET_RESERVE1), SNMP_ERR_WRONGTYPE);
    EXPECT_EQ(request.Mark(), SNMP_ERR_WRONGTYPE);
    EXPECT_THAT(journal::All(),
                ElementsAre("log 6 handle_outputControl: Enter.", "log 6 handle_outputControl: Received OID "));
}

TEST_F(OutputControlTest, RightTypePassesReserve1) {
    SnmpRequest request(OrvexSnmpOid::oid_outputControl);
    request.WithOctets({0x01, 0x80});
    EXPECT_EQ(Call(request, MODE_SET_RESERVE1), SNMP_ERR_NOERROR);
    EXPECT_EQ(request.Mark(), 0);
    EXPECT_THAT(journal::All(), ElementsAreArray(Handled()));
}

TEST_F(OutputControlTest, ModesWithoutWorkLeaveTheValueAlone) {
    SetOctets({0x03, 0x81});
    const int modes[] = {MODE_SET_RESERVE2, MODE_SET_FREE, MODE_GETNEXT};
    for (const int mode : modes) {
        journal::Clear();
        SnmpRequest request(OrvexSnmpOid::oid_outputControl);
        request.WithOctets({0x55}).WithRangeEnd({1, 3, 6});
        EXPECT_EQ(Call(request, mode), SNMP_ERR_NOERROR);
        EXPECT_THAT(request.Octets(), ElementsAre(0x55));
        EXPECT_EQ(request.Mark(), 0);
        EXPECT_THAT(journal::All(), ElementsAreArray(Handled({}, ".1.3.6")));
    }
    EXPECT_THAT(Get(), ElementsAre(0x03, 0x81));
}

TEST_F(OutputControlTest, ActionDrivesNothingAndKeepsNothing) {
    SnmpRequest request(OrvexSnmpOid::oid_outputControl);
    request.WithOctets({0x01, 0x80});
    EXPECT_EQ(Call(request, MODE_SET_ACTION), SNMP_ERR_NOERROR);
    EXPECT_THAT(journal::All(), ElementsAreArray(Handled()));
    EXPECT_THAT(Get(), ElementsAre(0x00, 0x00));
}

TEST_F(OutputControlTest, CommitDrivesByItsOwnValueAndAnswersThatOfTheAction) {
    SnmpRequest action(OrvexSnmpOid::oid_outputControl);
    action.WithOctets({0x00, 0x42});
    Call(action, MODE_SET_ACTION);
    SnmpRequest commit(OrvexSnmpOid::oid_outputControl);
    commit.WithOctets({0x01, 0x80});
    EXPECT_EQ(Call(commit, MODE_SET_COMMIT), SNMP_ERR_NOERROR);
    EXPECT_THAT(Driven(), ElementsAre("call relay SetRelay BNK2 0 1"));
    EXPECT_THAT(commit.Octets(), ElementsAre(0x00, 0x42));
    EXPECT_THAT(Get(), ElementsAre(0x00, 0x42));
}

TEST_F(OutputControlTest, UndoAfterTheActionForgetsTheNewValue) {
    SetOctets({0x02, 0x11});
    SnmpRequest request(OrvexSnmpOid::oid_outputControl);
    request.WithOctets({0x01, 0x80});
    Call(request, MODE_SET_ACTION);
    journal::Clear();
    EXPECT_EQ(Call(request, MODE_SET_UNDO), SNMP_ERR_NOERROR);
    EXPECT_THAT(journal::All(), ElementsAreArray(Handled()));
    // A commit would store the buffer.
    SnmpRequest commit(OrvexSnmpOid::oid_outputControl);
    commit.WithOctets({0x00, 0x00});
    Call(commit, MODE_SET_COMMIT);
    EXPECT_THAT(commit.Octets(), ElementsAre(0x02, 0x11));
}

TEST_F(OutputControlTest, FailedCommitIsAGeneralErrorAndTheNewValueStays) {
    const std::tuple<std::vector<u_char>, const char*, const char*, const char*> ways[] = {
        {{0x01, 0x80}, "SetRelay", "BNK2 0 1", "Exception while setting relay"},
        {{0x01, 0x00}, "ClearRelay", "BNK2 0 0", "Exception while clearing Relay"}};
    for (const auto& [octets, operation, arguments, failure] : ways) {
        SetOctets({0x02, 0x11});
        const std::string name = operation;
        Camera().failing = {"relay." + name};
        SnmpRequest request(OrvexSnmpOid::oid_outputControl);
        request.WithOctets(octets);
        Call(request, MODE_SET_ACTION);
        journal::Clear();
        EXPECT_EQ(Call(request, MODE_SET_COMMIT), SNMP_ERR_GENERR);
        EXPECT_EQ(request.Mark(), 0);
        EXPECT_THAT(Agent().answers, IsEmpty());
        EXPECT_THAT(journal::All(),
                    ElementsAre("log 6 handle_outputControl: Enter.", "log 6 handle_outputControl: Received OID ",
                                "log 8 " + name + ": Enter.", "call relay " + name + " " + arguments,
                                std::string("log 3 ") + failure, "log 8 " + name + ": Done.",
                                "log 6 handle_outputControl: SetRelay returned with exception"));
        EXPECT_EQ(Call(request, MODE_SET_UNDO), SNMP_ERR_NOERROR);
        EXPECT_EQ(Get(), octets);
        Camera().failing.clear();
    }
}

TEST_F(OutputControlTest, UnknownModeIsMarkedAndReturnedWithoutALine) {
    for (const int mode : {MODE_SET_BEGIN, 77}) {
        journal::Clear();
        SnmpRequest request(OrvexSnmpOid::oid_outputControl);
        request.WithOctets({0x55});
        EXPECT_EQ(Call(request, mode), SNMP_ERR_GENERR);
        EXPECT_EQ(request.Mark(), SNMP_ERR_GENERR);
        EXPECT_THAT(request.Octets(), ElementsAre(0x55));
        EXPECT_THAT(journal::All(),
                    ElementsAre("log 6 handle_outputControl: Enter.", "log 6 handle_outputControl: Received OID "));
    }
}

TEST_F(RelayTest, TableAndControlDoNotTouchEachOther) {
    BuildTwoBanks();
    SnmpRequest control(OrvexSnmpOid::oid_outputControl);
    control.WithOctets({0x01, 0x80}).Set(&OrvexSnmpRelay::handle_outputControl);
    CellRequest cell(3, 1);
    cell.WithInteger(0);
    EXPECT_EQ(Set(cell), SNMP_ERR_NOERROR);
    SnmpRequest read(OrvexSnmpOid::oid_outputControl);
    read.Call(&OrvexSnmpRelay::handle_outputControl, MODE_GET);
    EXPECT_THAT(read.Octets(), ElementsAre(0x01, 0x80));
    EXPECT_THAT(Driven(), ElementsAre("call relay SetRelay BNK2 0 1", "call relay ClearRelay BNK1 0 0"));
}

TEST_F(RelayTest, SetOfSeveralRowsDrivesNoneByTheValueOfAnother) {
    BuildTwoBanks();
    const auto banks = Camera().relays.banks;
    Camera().onCall = [&, phase = 0](const std::string& call) mutable {
        if (call != "relay GetRelayCount") return;
        Camera().relays.banks = banks;
        if (++phase == 3) Camera().relays.banks = {{"BNK1", {true}}};  // ACTION: the last row is missing
    };
    CellRequest first(3, 1);
    CellRequest last(3, 3);
    first.WithInteger(1);
    last.WithInteger(0);
    first.Chain(last);
    EXPECT_EQ(Set(first), SNMP_ERR_GENERR);
    EXPECT_THAT(Driven(), IsEmpty());
}

TEST_F(RelayTest, SetWhoseRowIsAwayInAPhaseDrivesNothingThatAnEarlierSetHasLeft) {
    // Phase 1 is RESERVE1. A row missing in ACTION would get the value of an earlier SET.
    for (const std::set<int>& away : {std::set<int>{2}, {1, 2}, {3}, {1, 3}, {2, 3}, {1, 2, 3}}) {
        BuildTwoBanks();
        CellRequest earlier(3, 1);
        earlier.WithInteger(1);
        EXPECT_EQ(Set(earlier), SNMP_ERR_NOERROR);
        journal::Clear();
        const auto banks = Camera().relays.banks;
        Camera().onCall = [&, phase = 0](const std::string& call) mutable {
            if (call != "relay GetRelayCount") return;
            Camera().relays.banks = banks;
            if (away.count(++phase) != 0) Camera().relays.banks = {{"BNK1", {true}}};
        };
        CellRequest request(3, 3);
        request.WithInteger(0);
        EXPECT_EQ(Set(request), SNMP_ERR_GENERR) << testing::PrintToString(away);
        EXPECT_THAT(Driven(), IsEmpty()) << testing::PrintToString(away);
        Camera().onCall = nullptr;
    }
}

TEST_F(RelayTest, ABulkRequestIsAnUnknownMode) {
    BuildTwoBanks();
    CellRequest cell(3, 1);
    EXPECT_EQ(Call(cell, MODE_GETBULK), SNMP_ERR_GENERR);
    EXPECT_EQ(cell.Type(), ASN_NULL);
    EXPECT_THAT(journal::All(),
                ElementsAreArray(Begun() + Lines{Place(1, 3), "log 3 handle_relayStates: unknown mode (165)"}));

    journal::Clear();
    SnmpRequest status(OrvexSnmpOid::oid_outputStatus);
    EXPECT_EQ(status.Call(&OrvexSnmpRelay::handle_outputStatus, MODE_GETBULK), SNMP_ERR_GENERR);
    EXPECT_EQ(status.Type(), ASN_NULL);
    EXPECT_THAT(journal::All(),
                ElementsAre("log 6 handle_outputStatus: Enter.", "log 3 handle_outputStatus: unknown mode (165)"));

    journal::Clear();
    SnmpRequest control(OrvexSnmpOid::oid_outputControl);
    EXPECT_EQ(control.Call(&OrvexSnmpRelay::handle_outputControl, MODE_GETBULK), SNMP_ERR_GENERR);
    EXPECT_EQ(control.Mark(), SNMP_ERR_GENERR);
    EXPECT_EQ(control.Type(), ASN_NULL);
    EXPECT_THAT(journal::All(),
                ElementsAre("log 6 handle_outputControl: Enter.", "log 6 handle_outputControl: Received OID "));
}

// --- the refresh of RESERVE2 ---

TEST_F(RelayTest, UndoGoesBackToTheStateThatReserve2HasRead) {
    BuildTwoBanks();
    CellRequest request(3, 2);
    request.WithInteger(17);
    Call(request, MODE_SET_RESERVE1);
    Camera().relays.banks[1].second[0] = true;
    Call(request, MODE_SET_RESERVE2);
    Camera().relays.banks[1].second[0] = false;
    Call(request, MODE_SET_ACTION);
    Call(request, MODE_SET_UNDO);
    EXPECT_THAT(journal::Logged(6), Contains("handle_relayStates: newRelayState in MODE_SET_UNDO is 1"));
}

TEST_F(RelayTest, TheRelayDrivenIsTheOneThatReserve2HasFoundInTheRow) {
    BuildTwoBanks();
    CellRequest request(3, 2);
    request.WithInteger(1);
    Call(request, MODE_SET_RESERVE1);
    // As many relays as before, so no rebuild.
    Camera().relays.banks = {{"North", {true, false, true}}};
    Call(request, MODE_SET_RESERVE2);
    Camera().relays.banks = {{"South", {true, false, true}}};
    Call(request, MODE_SET_ACTION);
    EXPECT_EQ(Call(request, MODE_SET_COMMIT), SNMP_ERR_NOERROR);
    EXPECT_THAT(Driven(), ElementsAre("call relay SetRelay North 1 1"));
    EXPECT_THAT(journal::Logged(6), Not(Contains("handle_relayStates: Updating relayTable...")));
}

// --- requests that the agent has already handled ---

TEST_F(RelayTest, ASetIsCarriedOutAlsoForARequestThatTheAgentHasMarkedAsProcessed) {
    BuildTwoBanks();
    CellRequest wrong(3, 1);
    wrong.WithOctets({1});
    wrong.Raw().processed = 1;
    Call(wrong, MODE_SET_RESERVE1);
    EXPECT_EQ(wrong.Mark(), SNMP_ERR_WRONGTYPE);

    CellRequest request(3, 3);
    request.WithInteger(1);
    request.Raw().processed = 1;
    journal::Clear();
    EXPECT_EQ(Set(request), SNMP_ERR_NOERROR);
    EXPECT_THAT(Driven(), ElementsAre("call relay SetRelay BNK2 1 1"));
    EXPECT_EQ(request.Integer(), 1);

    journal::Clear();
    for (const int mode : {MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_ACTION, MODE_SET_UNDO}) Call(request, mode);
    EXPECT_THAT(journal::Logged(6), Contains("handle_relayStates: newRelayState in MODE_SET_UNDO is 1"));
}

TEST_F(RelayTest, AReadThatTheAgentHasAnsweredIsLeftAlone) {
    BuildTwoBanks();
    for (const int mode : {static_cast<int>(MODE_GET), static_cast<int>(MODE_GETNEXT)}) {
        CellRequest answered(1, 1);
        CellRequest open(1, 2);
        answered.Raw().processed = 1;
        answered.Chain(open);
        journal::Clear();
        EXPECT_EQ(Call(answered, mode), SNMP_ERR_NOERROR);
        EXPECT_EQ(answered.Type(), ASN_NULL);
        EXPECT_THAT(open.Octets(), ElementsAre('B', 'N', 'K', '2'));
        EXPECT_THAT(journal::Logged(6), Contains("handle_relayStates: relayNumber is 1, col no is 1"));
    }
}

// --- what the two scalars store ---

TEST_F(RelayTest, OutputStatusKeepsItsOctetOverEveryFailureAndWhateverIsControlled) {
    Camera().relays.banks = {{"BNK2", {true}}};
    SnmpRequest good(OrvexSnmpOid::oid_outputStatus);
    CallStatus(good);
    Camera().failing = {"relay.GetRelayState"};
    for (int failure = 0; failure < 3; ++failure) {
        SnmpRequest control(OrvexSnmpOid::oid_outputControl);
        control.WithOctets({0x01, 0x00}).Set(&OrvexSnmpRelay::handle_outputControl);
        SnmpRequest bad(OrvexSnmpOid::oid_outputStatus);
        EXPECT_EQ(CallStatus(bad), SNMP_ERR_NOERROR);
        EXPECT_THAT(bad.Octets(), ElementsAre(0x01));
    }
    Camera().failing.clear();
    Camera().relays.banks[0].second[0] = false;
    SnmpRequest released(OrvexSnmpOid::oid_outputStatus);
    CallStatus(released);
    Camera().failing = {"relay.GetRelayState"};
    SnmpRequest bad(OrvexSnmpOid::oid_outputStatus);
    CallStatus(bad);
    EXPECT_THAT(bad.Octets(), ElementsAre(0x00));
}

TEST_F(OutputControlTest, AGetBetweenActionAndCommitTakesTheActionBack) {
    SetOctets({0x02, 0x11});
    SnmpRequest request(OrvexSnmpOid::oid_outputControl);
    request.WithOctets({0x01, 0x80});
    Call(request, MODE_SET_ACTION);
    EXPECT_THAT(Get(), ElementsAre(0x02, 0x11));
    journal::Clear();
    EXPECT_EQ(Call(request, MODE_SET_COMMIT), SNMP_ERR_NOERROR);
    // Drives the request's value, but stores and answers the buffer.
    EXPECT_THAT(Driven(), ElementsAre("call relay SetRelay BNK2 0 1"));
    EXPECT_THAT(request.Octets(), ElementsAre(0x02, 0x11));
    EXPECT_THAT(Get(), ElementsAre(0x02, 0x11));
}

TEST_F(OutputControlTest, NothingButAGetTakesTheActionBackBeforeTheCommit) {
    for (const int mode : {MODE_SET_RESERVE1, MODE_SET_RESERVE2, MODE_SET_FREE, static_cast<int>(MODE_GETNEXT), 77}) {
        SetOctets({0x02, 0x11});
        SnmpRequest request(OrvexSnmpOid::oid_outputControl);
        request.WithOctets({0x00, 0x42});
        Call(request, MODE_SET_ACTION);
        SnmpRequest between(OrvexSnmpOid::oid_outputControl);
        between.WithOctets({0x7F, 0x7F});
        Call(between, mode);
        EXPECT_EQ(Call(request, MODE_SET_COMMIT), SNMP_ERR_NOERROR);
        EXPECT_THAT(request.Octets(), ElementsAre(0x00, 0x42)) << mode;
    }
}

TEST_F(OutputControlTest, TheNewValueIsKeptBeforeTheRelayIsDriven) {
    SetOctets({0x02, 0x11});
    std::vector<u_char> kept;
    Camera().onCall = [&](const std::string& call) {
        if (call == "relay SetRelay BNK2 0 1") kept = Get();
    };
    SetOctets({0x01, 0x80});
    EXPECT_THAT(kept, ElementsAre(0x01, 0x80));
}

TEST_F(OutputControlTest, UndoAfterAFailedCommitKeepsTheNewValueInTheBuffer) {
    SetOctets({0x02, 0x11});
    Camera().failing = {"relay.SetRelay"};
    SnmpRequest request(OrvexSnmpOid::oid_outputControl);
    request.WithOctets({0x01, 0x80});
    Call(request, MODE_SET_ACTION);
    EXPECT_EQ(Call(request, MODE_SET_COMMIT), SNMP_ERR_GENERR);
    EXPECT_EQ(Call(request, MODE_SET_UNDO), SNMP_ERR_NOERROR);
    SnmpRequest commit(OrvexSnmpOid::oid_outputControl);
    commit.WithOctets({0x00, 0x00});
    Call(commit, MODE_SET_COMMIT);
    EXPECT_THAT(commit.Octets(), ElementsAre(0x01, 0x80));
}

}  // namespace
