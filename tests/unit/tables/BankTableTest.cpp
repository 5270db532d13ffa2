#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <random>
#include <tuple>

#include "core/GuardedHandler.h"
#include "io/OrvexSnmpAlarm.h"
#include "io/OrvexSnmpRelay.h"
#include "support/FakePlatform.h"
#include "support/Journal.h"
#include "tables/ExpectedLeak.h"
#include "tables/RealAgent.h"
#include "tavos/msgbus/MsgBus.h"

// The bank tables in the real agent: its table handlers look rows up and keep them over the phases of a SET, while the
// module replaces rows. Under a memory checker these tests show that no request uses a freed row.

namespace {

using journal::Lines;
using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Banks = std::vector<std::pair<std::string, std::vector<bool>>>;

enum class Table { kAlarm, kRelay };

const Banks kThree = {{"BNK1", {true}}, {"BNK2", {false, true}}};
const Banks kOne = {{"North", {true}}};
const Banks kFive = {{"South", {true, true, false}},
                     {"A bank with a name of more than twenty-four octets", {true, false}}};
const Banks kNone = {};

std::string ToText(const std::vector<oid>& name) {
    std::string text;
    for (const auto part : name) text += "." + std::to_string(part);
    return text;
}

class TablesTest : public testing::Test {
protected:
    TablesTest() : _agent(RealAgent::Get()) {
        ResetCamera();
        Start(kThree);
    }
    ~TablesTest() override {
        Camera().onCall = nullptr;
        Stop();
    }

    void Start(const Banks& banks) {
        SetBanks(banks);
        _alarm = std::make_unique<OrvexSnmpAlarm>(_bus);
        _relay = std::make_unique<OrvexSnmpRelay>(_bus);
        EXPECT_EQ(_alarm->init_alarmTable(false), 0);
        EXPECT_EQ(_relay->init_relayTable(false), 0);
        journal::Clear();
    }
    void Stop() {
        _relay.reset();
        _alarm.reset();
    }

    static void SetBanks(const Banks& banks) {
        Camera().alarms.banks = banks;
        Camera().relays.banks = banks;
    }

    /// Changes the banks at the `nth` read of the service's count (1 and up) from now on.
    static void ChangeAtCount(int nth, const Banks& banks) {
        auto remaining = std::make_shared<int>(nth);
        Camera().onCall = [remaining, banks](const std::string& call) {
            if ((call == "relay GetRelayCount" || call == "alarm GetAlarmCount") && --*remaining == 0) SetBanks(banks);
        };
    }

    static std::vector<oid> Cell(Table table, oid column, oid row) {
        const auto& root = table == Table::kAlarm ? OrvexSnmpOid::oid_alarm : OrvexSnmpOid::oid_relay;
        std::vector<oid> name(std::begin(root), std::end(root));
        name.insert(name.end(), {1, column, row});
        return name;
    }
    static RealAgent::Binding Ask(Table table, oid column, oid row) { return {Cell(table, column, row), {}}; }
    static RealAgent::Binding NewState(oid row, long value, oid column = 3) {
        RealAgent::Value integer;
        integer.type = ASN_INTEGER;
        integer.integer = value;
        return {Cell(Table::kRelay, column, row), integer};
    }
    static std::string Line(Table table, oid column, oid row, const std::string& value) {
        return ToText(Cell(table, column, row)) + " = " + value;
    }

    RealAgent::Answer Get(const std::vector<RealAgent::Binding>& bindings) {
        return _agent.Send(SNMP_MSG_GET, bindings);
    }
    RealAgent::Answer Set(const std::vector<RealAgent::Binding>& bindings) {
        return _agent.Send(SNMP_MSG_SET, bindings);
    }

    /// Everything below the table, by GETNEXT or, with repetitions, by GETBULK.
    Lines Walk(Table table, long repetitions = 0) {
        const auto& root = table == Table::kAlarm ? OrvexSnmpOid::oid_alarm : OrvexSnmpOid::oid_relay;
        const std::vector<oid> start(std::begin(root), std::end(root));
        Lines lines;
        auto name = start;
        for (int round = 0; round < 200; ++round) {
            const auto answer =
                _agent.Send(repetitions == 0 ? SNMP_MSG_GETNEXT : SNMP_MSG_GETBULK, {{name, {}}}, repetitions);
            EXPECT_EQ(answer.error, SNMP_ERR_NOERROR);
            if (answer.bindings.empty()) break;
            for (const auto& binding : answer.bindings) {
                const bool inside = binding.name.size() > start.size() &&
                                    std::equal(start.begin(), start.end(), binding.name.begin()) &&
                                    binding.value.type != SNMP_ENDOFMIBVIEW;
                if (!inside) return lines;
                EXPECT_GT(binding.name, name) << "the walk does not advance";
                name = binding.name;
                lines.push_back(binding.Text());
            }
        }
        ADD_FAILURE() << "the walk does not end";
        return lines;
    }

    /// A walk's lines when the table has these banks.
    static Lines Expected(Table table, const Banks& banks) {
        Lines names, ids, states;
        oid row = 0;
        for (const auto& [bank, inputs] : banks) {
            for (std::size_t id = 0; id < inputs.size(); ++id) {
                ++row;
                names.push_back(Line(table, 1, row, bank));
                ids.push_back(Line(table, 2, row, std::to_string(id)));
                states.push_back(Line(table, 3, row, inputs[id] ? "1" : "0"));
            }
        }
        names.insert(names.end(), ids.begin(), ids.end());
        names.insert(names.end(), states.begin(), states.end());
        return names;
    }

    static Lines Driven() {
        auto lines = journal::All("call relay SetRelay");
        const auto cleared = journal::All("call relay ClearRelay");
        lines.insert(lines.end(), cleared.begin(), cleared.end());
        return lines;
    }

    RealAgent& _agent;
    tavos::msgbus::MsgBus _bus;
    std::unique_ptr<OrvexSnmpAlarm> _alarm;
    std::unique_ptr<OrvexSnmpRelay> _relay;
};

class BothTablesTest : public TablesTest, public testing::WithParamInterface<Table> {};
std::string TableName(const testing::TestParamInfo<Table>& parameter) {
    return parameter.param == Table::kAlarm ? "Alarm" : "Relay";
}
INSTANTIATE_TEST_SUITE_P(Of, BothTablesTest, testing::Values(Table::kAlarm, Table::kRelay), TableName);

// --- reads ---

TEST_P(BothTablesTest, WalksShowEveryCellInOrder) {
    EXPECT_THAT(Walk(GetParam()), ElementsAreArray(Expected(GetParam(), kThree)));
    for (const long repetitions : {1, 2, 4, 9, 50}) {
        EXPECT_THAT(Walk(GetParam(), repetitions), ElementsAreArray(Expected(GetParam(), kThree))) << repetitions;
    }
}

TEST_P(BothTablesTest, WalksShowTheStatesOfTheMoment) {
    SetBanks({{"BNK1", {false}}, {"BNK2", {true, false}}});
    EXPECT_THAT(Walk(GetParam()), ElementsAreArray(Expected(GetParam(), Camera().alarms.banks)));
}

TEST_P(BothTablesTest, GetAnswersOneCell) {
    EXPECT_THAT(Get({Ask(GetParam(), 1, 3)}).Text(), ElementsAre(Line(GetParam(), 1, 3, "BNK2")));
    EXPECT_THAT(Get({Ask(GetParam(), 2, 3)}).Text(), ElementsAre(Line(GetParam(), 2, 3, "1")));
    EXPECT_THAT(Get({Ask(GetParam(), 3, 3)}).Text(), ElementsAre(Line(GetParam(), 3, 3, "1")));
}

TEST_P(BothTablesTest, MissingCellsAreNoSuchInstanceOrObject) {
    for (const auto& [column, row] : {std::pair<oid, oid>{3, 4}, {3, 0}, {4, 1}, {5, 1}, {0, 1}, {1, 0xFFFFFFFF}}) {
        const auto answer = Get({Ask(GetParam(), column, row)});
        EXPECT_EQ(answer.error, SNMP_ERR_NOERROR);
        EXPECT_THAT(answer.Text(), ElementsAre(AnyOf(Line(GetParam(), column, row, "noSuchInstance"),
                                                     Line(GetParam(), column, row, "noSuchObject"))));
    }
    auto longer = Ask(GetParam(), 3, 1);
    longer.name.push_back(1);
    const auto answer = Get({longer});
    EXPECT_EQ(answer.error, SNMP_ERR_NOERROR);
    EXPECT_THAT(answer.Text(), ElementsAre(EndsWith("noSuchInstance")));
}

TEST_P(BothTablesTest, MissingCellsDoNotDisturbTheOthersOfARequest) {
    const auto answer = Get({Ask(GetParam(), 3, 9), Ask(GetParam(), 5, 1), Ask(GetParam(), 1, 1)});
    EXPECT_EQ(answer.error, SNMP_ERR_NOERROR);
    ASSERT_EQ(answer.bindings.size(), 3u);
    EXPECT_THAT(answer.Text()[0], EndsWith("noSuchInstance"));
    EXPECT_THAT(answer.Text()[1], testing::HasSubstr("noSuch"));
    EXPECT_EQ(answer.Text()[2], Line(GetParam(), 1, 1, "BNK1"));
}

TEST_F(TablesTest, AlarmAnswersItsFirstCellLiveAndTheOthersFromTheStoredRows) {
    SetBanks({{"BNK1", {false}}, {"BNK2", {true, false}}});
    EXPECT_THAT(
        Get({Ask(Table::kAlarm, 3, 1), Ask(Table::kAlarm, 3, 2), Ask(Table::kAlarm, 3, 3)}).Text(),
        ElementsAre(Line(Table::kAlarm, 3, 1, "0"), Line(Table::kAlarm, 3, 2, "0"), Line(Table::kAlarm, 3, 3, "1")));
}

TEST_F(TablesTest, RelayAnswersEveryCellLive) {
    SetBanks({{"BNK1", {false}}, {"BNK2", {true, false}}});
    EXPECT_THAT(
        Get({Ask(Table::kRelay, 3, 1), Ask(Table::kRelay, 3, 2), Ask(Table::kRelay, 3, 3)}).Text(),
        ElementsAre(Line(Table::kRelay, 3, 1, "0"), Line(Table::kRelay, 3, 2, "1"), Line(Table::kRelay, 3, 3, "0")));
}

TEST_P(BothTablesTest, TablesWithoutEntriesShowNothing) {
    SetBanks(kNone);
    EXPECT_THAT(Walk(GetParam()), IsEmpty());
    EXPECT_THAT(Walk(GetParam(), 10), IsEmpty());
    EXPECT_THAT(Get({Ask(GetParam(), 1, 1)}).Text(), ElementsAre(Line(GetParam(), 1, 1, "noSuchInstance")));
}

TEST_P(BothTablesTest, WholeRequestIsLoggedFromItsEntryToItsEndOnce) {
    Get({Ask(GetParam(), 1, 1)});
    const std::string handler = GetParam() == Table::kAlarm ? "handle_alarmStates" : "handle_relayStates";
    EXPECT_THAT(journal::Logged(8), Contains(handler + ": Enter.").Times(1));
    EXPECT_THAT(journal::Logged(8), Contains(handler + ": Done.").Times(1));
    EXPECT_EQ(journal::Logged().front(), "8 " + handler + ": Enter.");
    EXPECT_EQ(journal::Logged().back(), "8 " + handler + ": Done.");
}

TEST_P(BothTablesTest, RequestWithoutANameOfACellCallsNoServiceAndLogsNothing) {
    auto longer = Ask(GetParam(), 3, 1);
    longer.name.push_back(1);
    for (const auto& binding : {Ask(GetParam(), 0, 1), Ask(GetParam(), 4, 1), longer}) {
        journal::Clear();
        EXPECT_EQ(Get({binding}).error, SNMP_ERR_NOERROR);
        EXPECT_THAT(journal::All(), IsEmpty());
    }
}

// --- banks that change between requests ---

TEST_P(BothTablesTest, NextRequestServesTheNewBanks) {
    for (const auto& banks : {kFive, kOne, kNone, kThree, kNone, kFive, kThree, kOne}) {
        SetBanks(banks);
        EXPECT_THAT(Walk(GetParam()), ElementsAreArray(Expected(GetParam(), banks)));
        EXPECT_THAT(Walk(GetParam(), 7), ElementsAreArray(Expected(GetParam(), banks)));
    }
}

TEST_P(BothTablesTest, RequestThatFindsNewBanksIsAnsweredFromThem) {
    SetBanks(kFive);
    EXPECT_THAT(Get({Ask(GetParam(), 1, 5)}).Text(), ElementsAre(Line(GetParam(), 1, 5, kFive[1].first)));
    SetBanks(kOne);
    EXPECT_THAT(Get({Ask(GetParam(), 1, 1), Ask(GetParam(), 1, 5)}).Text(),
                ElementsAre(Line(GetParam(), 1, 1, "North"), Line(GetParam(), 1, 5, "noSuchInstance")));
}

TEST_F(TablesTest, RebuiltAlarmRowsHaveStateZeroUntilTheyAreReadLive) {
    SetBanks(kFive);
    EXPECT_THAT(Get({Ask(Table::kAlarm, 3, 1), Ask(Table::kAlarm, 3, 2)}).Text(),
                ElementsAre(Line(Table::kAlarm, 3, 1, "1"), Line(Table::kAlarm, 3, 2, "0")));
}

TEST_P(BothTablesTest, WalkContinuesWhileTheBanksChange) {
    for (const long repetitions : {0, 1, 3, 10}) {
        for (int nth = 1; nth <= 12; ++nth) {
            for (const auto& banks : {kFive, kOne, kNone}) {
                SetBanks(kThree);
                Walk(GetParam());
                ChangeAtCount(nth, banks);
                Walk(GetParam(), repetitions);
                Camera().onCall = nullptr;
                SetBanks(banks);
                EXPECT_THAT(Walk(GetParam()), ElementsAreArray(Expected(GetParam(), banks)));
            }
        }
    }
}

// --- sets ---

TEST_F(TablesTest, SetOfOneEnergisesAndAnythingElseReleases) {
    EXPECT_EQ(Set({NewState(3, 1)}).error, SNMP_ERR_NOERROR);
    EXPECT_EQ(Set({NewState(1, 0)}).error, SNMP_ERR_NOERROR);
    const auto answer = Set({NewState(2, 5)});
    EXPECT_EQ(answer.error, SNMP_ERR_NOERROR);
    EXPECT_THAT(answer.Text(), ElementsAre(Line(Table::kRelay, 3, 2, "5")));
    EXPECT_THAT(journal::All("call relay SetRelay"), ElementsAre("call relay SetRelay BNK2 1 1"));
    EXPECT_THAT(journal::All("call relay ClearRelay"),
                ElementsAre("call relay ClearRelay BNK1 0 0", "call relay ClearRelay BNK2 0 0"));
}

TEST_F(TablesTest, SetOfSeveralRowsDrivesTheLastOncePerRow) {
    EXPECT_EQ(Set({NewState(1, 0), NewState(2, 0), NewState(3, 1)}).error, SNMP_ERR_NOERROR);
    EXPECT_THAT(Driven(), ElementsAre("call relay SetRelay BNK2 1 1", "call relay SetRelay BNK2 1 1",
                                      "call relay SetRelay BNK2 1 1"));
    EXPECT_THAT(Walk(Table::kRelay), ElementsAreArray(Expected(Table::kRelay, kThree)));
}

TEST_F(TablesTest, SetOfOneRowTwiceIsCarriedOut) {
    EXPECT_EQ(Set({NewState(1, 0), NewState(1, 1)}).error, SNMP_ERR_NOERROR);
    EXPECT_THAT(Driven(), ElementsAre("call relay SetRelay BNK1 0 1", "call relay SetRelay BNK1 0 1"));
    EXPECT_THAT(Walk(Table::kRelay), ElementsAreArray(Expected(Table::kRelay, kThree)));
}

TEST_F(TablesTest, WrongTypeIsRefused) {
    RealAgent::Value octets;
    octets.type = ASN_OCTET_STR;
    octets.octets = "1";
    const auto answer = Set({NewState(1, 1), {Cell(Table::kRelay, 3, 2), octets}});
    EXPECT_EQ(answer.error, SNMP_ERR_WRONGTYPE);
    EXPECT_EQ(answer.index, 2);
    EXPECT_THAT(Driven(), IsEmpty());
}

TEST_F(TablesTest, OtherColumnsOfTheRelayTableAreNotWritable) {
    for (const oid column : {oid{1}, oid{2}}) {
        EXPECT_EQ(Set({NewState(1, 1, column)}).error, SNMP_ERR_NOTWRITABLE) << column;
    }
    EXPECT_THAT(Driven(), IsEmpty());
}

TEST_F(TablesTest, MissingRelaysCannotBeCreated) {
    for (const oid row : {oid{0}, oid{4}, oid{0xFFFFFFFF}}) {
        EXPECT_EQ(Set({NewState(row, 1)}).error, SNMP_ERR_NOCREATION) << row;
    }
    EXPECT_THAT(Driven(), IsEmpty());
}

TEST_F(TablesTest, NoCellOfTheAlarmTableCanBeSetAndTheServiceIsNotAsked) {
    SetBanks(kOne);
    for (const oid column : {oid{1}, oid{2}, oid{3}}) {
        auto binding = NewState(1, 1, column);
        binding.name = Cell(Table::kAlarm, column, 1);
        journal::Clear();
        EXPECT_THAT(Set({binding}).error, AnyOf(SNMP_ERR_NOTWRITABLE, SNMP_ERR_GENERR));
        EXPECT_THAT(journal::Calls(), IsEmpty());
    }
    EXPECT_THAT(Walk(Table::kAlarm), ElementsAreArray(Expected(Table::kAlarm, kOne)));
}

// The agent's table handlers would dereference a null pointer here.
TEST_P(BothTablesTest, SetOfACellTogetherWithNamesOfNoColumnIsRefused) {
    const auto named = [](std::vector<oid> behindTable) {
        auto binding = NewState(1, 1);
        binding.name = Cell(GetParam(), 3, 1);
        binding.name.resize(binding.name.size() - 3);
        binding.name.insert(binding.name.end(), behindTable.begin(), behindTable.end());
        return binding;
    };
    const auto cell = named({1, 3, 1});
    for (const auto& other : {named({1, 0, 1}), named({1, 4, 1}), named({2, 3, 1}), named({1}), named({})}) {
        for (const auto& bindings : {std::vector{cell, other}, std::vector{other, cell},
                                     std::vector{other, cell, other}, std::vector{other, other}, std::vector{other}}) {
            SCOPED_TRACE(other.Text());
            const auto answer = Set(bindings);
            EXPECT_EQ(answer.error, SNMP_ERR_NOTWRITABLE);
            const bool isCellFirst = bindings.front().name == cell.name;
            EXPECT_EQ(answer.index, isCellFirst && GetParam() == Table::kRelay ? 2 : 1);
        }
    }
    EXPECT_THAT(journal::Calls(), Not(Contains(AnyOf(HasSubstr(" Set"), HasSubstr(" Clear")))));
    EXPECT_EQ(Set({NewState(1, 1)}).error, SNMP_ERR_NOERROR);
}

/// A handler between the table's front handler and the agent's table handlers; it records names that it gets.
class Listener {
public:
    explicit Listener(Table table) {
        const auto& root = table == Table::kAlarm ? OrvexSnmpOid::oid_alarm : OrvexSnmpOid::oid_relay;
        s_received.clear();
        auto* registered = netsnmp_subtree_find(root, OID_LENGTH(root), nullptr, "");
        auto* handler = netsnmp_create_handler("listener", &Listener::Handle);
        EXPECT_EQ(netsnmp_inject_handler_before(registered->reginfo, handler, "table"), SNMPERR_SUCCESS);
    }
    const std::vector<std::vector<oid>>& Received() const { return s_received; }

private:
    static int Handle(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                      netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
        for (const auto* request = requests; request != nullptr; request = request->next) {
            const auto& variable = *request->requestvb;
            s_received.emplace_back(variable.name, variable.name + variable.name_length);
        }
        return netsnmp_call_next_handler(handler, registration, info, requests);
    }

    static std::vector<std::vector<oid>> s_received;
};
std::vector<std::vector<oid>> Listener::s_received;

// net-snmp 5.4 would dereference a null pointer here. Later agents refuse such a SET and ignore its other names: one
// that is not writable does not change the answer.
TEST_P(BothTablesTest, SetWithAnInvalidIndexNeverReachesTheAgentsTableHandlers) {
    const auto named = [](std::vector<oid> index, oid column = 3) {
        auto binding = NewState(1, 1);
        binding.name = Cell(GetParam(), column, 1);
        binding.name.pop_back();
        binding.name.insert(binding.name.end(), index.begin(), index.end());
        return binding;
    };
    const Listener listener(GetParam());
    for (const auto& other :
         {named({}), named({77, 5}), named({1, 1}), named(std::vector<oid>(100, 1)), named({}, 1)}) {
        for (const auto& good : {named({1}), named({1}, 1), named({99})}) {
            for (const auto& bindings : {std::vector{good, other}, std::vector{other, good}, std::vector{other},
                                         std::vector{good, other, good}, std::vector{other, other}}) {
                SCOPED_TRACE(ToText(other.name) + " and " + ToText(good.name));
                const auto answer = Set(bindings);
                EXPECT_EQ(answer.error, SNMP_ERR_NOCREATION);
                EXPECT_EQ(answer.index, bindings.front().name == other.name ? 1 : 2);
            }
        }
    }
    EXPECT_THAT(listener.Received(), IsEmpty());
    Set({named({1})});
    EXPECT_THAT(listener.Received(), Contains(Cell(GetParam(), 3, 1)));
    EXPECT_THAT(Driven(), testing::SizeIs(GetParam() == Table::kRelay ? 1 : 0));
}

// net-snmp 5.4 answers other names wrongly because of these.
TEST_P(BothTablesTest, ReadsOfMissingCellsNeverReachTheAgentsTableHandlers) {
    const auto ask = [](std::vector<oid> behindTable) {
        auto name = Cell(GetParam(), 3, 1);
        name.resize(name.size() - 3);
        name.insert(name.end(), behindTable.begin(), behindTable.end());
        return RealAgent::Binding{name, {}};
    };
    const auto cell = ask({1, 3, 1});
    const auto noObject = {ask({}), ask({1}), ask({2}), ask({1, 0, 1}), ask({1, 4}), ask({1, 4, 1}), ask({2, 3, 1})};
    const auto noInstance = {ask({1, 3}), ask({1, 1}), ask({1, 3, 77, 5}), ask({1, 3, 1, 1})};
    const auto behind = {ask({2}), ask({1, 4}), ask({1, 4, 1}), ask({2, 3, 1})};
    const Listener listener(GetParam());
    for (const auto& [others, answer] : {std::pair{noObject, "noSuchObject"}, {noInstance, "noSuchInstance"}}) {
        for (const auto& other : others) {
            const auto line = ToText(other.name) + " = " + answer;
            EXPECT_THAT(Get({cell, other, cell}).Text(),
                        ElementsAre(Line(GetParam(), 3, 1, "1"), line, Line(GetParam(), 3, 1, "1")));
        }
    }
    for (const auto& other : behind) {
        for (const int command : {SNMP_MSG_GETNEXT, SNMP_MSG_GETBULK}) {
            const auto answer = _agent.Send(command, {other, cell}, 1);
            EXPECT_EQ(answer.error, SNMP_ERR_NOERROR);
            ASSERT_EQ(answer.bindings.size(), 2U);
            EXPECT_EQ(answer.bindings[1].Text(), Line(GetParam(), 3, 2, "0"));
        }
        EXPECT_THAT(listener.Received(), Not(Contains(other.name)));
    }
    EXPECT_THAT(listener.Received(), Each(Cell(GetParam(), 3, 1)));
}

TEST_F(TablesTest, FailedCommitIsReported) {
    Camera().failing = {"relay.SetRelay"};
    EXPECT_EQ(Set({NewState(1, 1)}).error, SNMP_ERR_GENERR);
    Camera().failing.clear();
    EXPECT_THAT(Walk(Table::kRelay), ElementsAreArray(Expected(Table::kRelay, kThree)));
    EXPECT_EQ(Set({NewState(1, 1)}).error, SNMP_ERR_NOERROR);
}

// --- banks that change between the phases of a set ---

// A successful SET has four phases; each reads the count once, first of all.
constexpr int kPhases = 4;

class ChangingSetTest : public TablesTest, public testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(Phase, ChangingSetTest, testing::Range(1, kPhases + 1), testing::PrintToStringParamName());

TEST_P(ChangingSetTest, SetDrivesTheRelayThatItsRowNamedOrNone) {
    for (const auto& banks : {kFive, kOne, kNone}) {
        for (const oid row : {oid{1}, oid{3}}) {
            SetBanks(kThree);
            Walk(Table::kRelay);
            journal::Clear();
            ChangeAtCount(GetParam(), banks);
            const auto answer = Set({NewState(row, 1)});
            EXPECT_NE(answer.error, -1);
            Camera().onCall = nullptr;
            const std::string before = row == 1 ? "BNK1 0" : "BNK2 1";
            // The SET drives the new banks when they change before the row's look-up, otherwise the old ones.
            for (const auto& line : Driven()) {
                if (GetParam() <= 2) {
                    EXPECT_NE(line, "call relay SetRelay " + before + " 1");
                } else {
                    EXPECT_EQ(line, "call relay SetRelay " + before + " 1");
                }
            }
            EXPECT_THAT(Walk(Table::kRelay), ElementsAreArray(Expected(Table::kRelay, banks)));
        }
    }
}

TEST_P(ChangingSetTest, SetOfSeveralRowsTouchesNoRowThatIsGone) {
    for (const auto& banks : {kFive, kOne, kNone}) {
        SetBanks(kThree);
        Walk(Table::kRelay);
        ChangeAtCount(GetParam(), banks);
        EXPECT_NE(Set({NewState(3, 1), NewState(1, 0), NewState(2, 1), NewState(3, 0)}).error, -1);
        Camera().onCall = nullptr;
        EXPECT_THAT(Walk(Table::kRelay), ElementsAreArray(Expected(Table::kRelay, banks)));
        EXPECT_THAT(Walk(Table::kRelay, 6), ElementsAreArray(Expected(Table::kRelay, banks)));
    }
}

TEST_P(ChangingSetTest, NextSetFindsTheNewRows) {
    for (const auto& banks : {kFive, kOne, kNone}) {
        SetBanks(kThree);
        Walk(Table::kRelay);
        ChangeAtCount(GetParam(), banks);
        Set({NewState(2, 1)});
        Camera().onCall = nullptr;
        journal::Clear();
        EXPECT_EQ(Set({NewState(1, 1)}).error, banks.empty() ? SNMP_ERR_NOCREATION : SNMP_ERR_NOERROR);
        EXPECT_EQ(Driven(), banks.empty() ? Lines{} : Lines{"call relay SetRelay " + banks[0].first + " 0 1"});
    }
}

TEST_P(ChangingSetTest, FailedCommitTouchesNoRowThatIsGone) {
    for (const auto& banks : {kFive, kOne, kNone}) {
        SetBanks(kThree);
        Walk(Table::kRelay);
        Camera().failing = {"relay.SetRelay"};
        ChangeAtCount(GetParam(), banks);
        EXPECT_NE(Set({NewState(1, 1), NewState(2, 1)}).error, -1);
        Camera().onCall = nullptr;
        Camera().failing.clear();
        EXPECT_THAT(Walk(Table::kRelay), ElementsAreArray(Expected(Table::kRelay, banks)));
    }
}

TEST_F(TablesTest, HandlersCalledWithoutTheAgentAfterARequestDoAllTheirStepsThemselves) {
    Walk(Table::kAlarm);
    Set({NewState(1, 1)});
    const std::pair<Netsnmp_Node_Handler*, const char*> handlers[] = {
        {&OrvexSnmpAlarm::handle_alarmStates, "alarm GetAlarmCount"},
        {&OrvexSnmpRelay::handle_relayStates, "relay GetRelayCount"}};
    for (const auto& [handler, call] : handlers) {
        journal::Clear();
        netsnmp_variable_list variable{};
        netsnmp_request_info request{};
        request.requestvb = &variable;
        netsnmp_agent_request_info info{};
        info.mode = MODE_GET;
        EXPECT_EQ(handler(nullptr, nullptr, &info, &request), SNMP_ERR_NOERROR);
        EXPECT_THAT(journal::Calls(), ElementsAre(call));
    }
}

TEST_F(TablesTest, TableThatIsRebuiltBetweenRequestsIsServedAtOnce) {
    EXPECT_EQ(Set({NewState(1, 1)}).error, SNMP_ERR_NOERROR);
    SetBanks({{"Other", {true, true, true}}});  // the same number of rows: a request would not notice
    EXPECT_EQ(_relay->init_relayTable(true), 0);
    EXPECT_EQ(_alarm->init_alarmTable(true), 0);
    EXPECT_THAT(Walk(Table::kRelay), ElementsAreArray(Expected(Table::kRelay, Camera().relays.banks)));
    EXPECT_THAT(Get({Ask(Table::kAlarm, 2, 1), Ask(Table::kAlarm, 1, 2)}).Text(),
                ElementsAre(Line(Table::kAlarm, 2, 1, "0"), Line(Table::kAlarm, 1, 2, "Other")));
}

/// An object next to the tables that fails in one phase of a SET.
class Spoiler {
public:
    explicit Spoiler(int mode) {
        s_mode = mode;
        _registration = netsnmp_create_handler_registration("spoiler", &Spoiler::Handle, kName, OID_LENGTH(kName),
                                                            HANDLER_CAN_RWRITE);
        EXPECT_EQ(netsnmp_register_instance(_registration), MIB_REGISTERED_OK);
    }
    ~Spoiler() { netsnmp_unregister_handler(_registration); }
    Spoiler(const Spoiler&) = delete;
    Spoiler& operator=(const Spoiler&) = delete;

    static RealAgent::Binding NewBinding() {
        RealAgent::Value one;
        one.type = ASN_INTEGER;
        one.integer = 1;
        return {std::vector<oid>(std::begin(kName), std::end(kName)), one};
    }

private:
    static int Handle(netsnmp_mib_handler*, netsnmp_handler_registration*, netsnmp_agent_request_info* info,
                      netsnmp_request_info* requests) {
        if (info->mode != s_mode) return SNMP_ERR_NOERROR;
        netsnmp_set_request_error(info, requests, SNMP_ERR_RESOURCEUNAVAILABLE);
        return SNMP_ERR_RESOURCEUNAVAILABLE;
    }

    static constexpr oid kName[] = {1, 3, 6, 1, 4, 1, ORVEX_ENTERPRISE_NUMBER, 1, 3, 9, 0};
    static int s_mode;
    netsnmp_handler_registration* _registration;
};
int Spoiler::s_mode = 0;

TEST_F(TablesTest, SetThatFailsElsewhereIsUndoneWhateverChangesMeanwhile) {
    const std::tuple<int, int> modesAndCounts[] = {
        {MODE_SET_RESERVE1, 2}, {MODE_SET_RESERVE2, 3}, {MODE_SET_ACTION, 4}, {MODE_SET_COMMIT, 4}};
    for (const auto& [mode, counts] : modesAndCounts) {
        const Spoiler spoiler(mode);
        for (int nth = 1; nth <= counts; ++nth) {
            for (const auto& banks : {kFive, kOne, kNone}) {
                SetBanks(kThree);
                Walk(Table::kRelay);
                ChangeAtCount(nth, banks);
                EXPECT_NE(Set({NewState(1, 1), Spoiler::NewBinding(), NewState(3, 0)}).error, SNMP_ERR_NOERROR);
                Camera().onCall = nullptr;
                SetBanks(banks);
                EXPECT_THAT(Walk(Table::kRelay), ElementsAreArray(Expected(Table::kRelay, banks)));
            }
        }
    }
}

TEST_F(TablesTest, UndoneSetDrivesNothing) {
    const Spoiler spoiler(MODE_SET_ACTION);
    EXPECT_NE(Set({NewState(1, 1), Spoiler::NewBinding()}).error, SNMP_ERR_NOERROR);
    EXPECT_THAT(Driven(), IsEmpty());
    EXPECT_THAT(journal::Logged(6), Contains("handle_relayStates: newRelayState in MODE_SET_UNDO is 1"));
    EXPECT_THAT(Walk(Table::kRelay), ElementsAreArray(Expected(Table::kRelay, kThree)));
}

// --- relays whose rows disappear during a SET ---

class GoneRowTest : public TablesTest {
protected:
    /// A SET of row 3. The banks change before phase `nth` and, unless `back` is 0, change back before phase `back`.
    RealAgent::Answer SetWhileGone(int nth, int back = 0) {
        auto phase = std::make_shared<int>(0);
        Camera().onCall = [=](const std::string& call) {
            if (call != "relay GetRelayCount") return;
            if (++*phase == nth) SetBanks(kOne);
            if (*phase == back) SetBanks(kThree);
        };
        auto answer = Set({NewState(3, 1)});
        Camera().onCall = nullptr;
        return answer;
    }
};

TEST_F(GoneRowTest, ASetOfARowThatHasDisappearedIsRefused) {
    EXPECT_EQ(SetWhileGone(1).error, SNMP_ERR_NOCREATION);
    EXPECT_THAT(Driven(), IsEmpty());
}

TEST_F(GoneRowTest, ASetWhoseRowDisappearsInTheMiddleFails) {
    for (int phase = 2; phase <= kPhases; ++phase) {
        SetBanks(kThree);
        Walk(Table::kRelay);
        EXPECT_EQ(SetWhileGone(phase).error, SNMP_ERR_GENERR) << phase;
        EXPECT_THAT(Driven(), IsEmpty());
    }
}

TEST_F(GoneRowTest, ASetWhoseRowIsBackAtTheCommitFailsAllTheSame) {
    for (int phase = 2; phase < kPhases; ++phase) {
        SetBanks(kThree);
        Walk(Table::kRelay);
        EXPECT_EQ(SetWhileGone(phase, kPhases).error, SNMP_ERR_GENERR) << phase;
        EXPECT_THAT(Driven(), IsEmpty());
    }
}

TEST_F(GoneRowTest, ASetAfterAFailedRefreshIsRefusedUntilTheServiceAnswers) {
    Camera().failing = {"relay.GetRelayCount", "relay.GetBankNames", "relay.SetRelay"};
    EXPECT_EQ(Set({NewState(1, 1)}).error, SNMP_ERR_GENERR);
    const auto answer = Set({NewState(2, 1), NewState(1, 1)});
    EXPECT_EQ(answer.error, SNMP_ERR_NOCREATION);
    EXPECT_EQ(answer.index, 1);
    EXPECT_THAT(Driven(), IsEmpty());
    Camera().failing.clear();
    EXPECT_EQ(Set({NewState(1, 1)}).error, SNMP_ERR_NOERROR);
    EXPECT_THAT(Driven(), ElementsAre("call relay SetRelay BNK1 0 1"));
}

TEST_F(GoneRowTest, TheNextSetIsCarriedOut) {
    SetWhileGone(kPhases);
    EXPECT_EQ(Set({NewState(1, 1)}).error, SNMP_ERR_NOERROR);
    EXPECT_THAT(Driven(), ElementsAre("call relay SetRelay North 0 1"));
}

// --- services that return impossible values ---

class AbsurdTest : public BothTablesTest {
protected:
    FakeCamera::Banks& Service() { return GetParam() == Table::kAlarm ? Camera().alarms : Camera().relays; }
    std::string Name(const char* alarm, const char* relay) { return GetParam() == Table::kAlarm ? alarm : relay; }

    void ExpectTheOldRows(const std::string& refusal, std::size_t maxCalls) {
        SCOPED_TRACE(refusal);
        journal::Clear();
        const auto answer = Get({Ask(GetParam(), 1, 3)});
        EXPECT_THAT(answer.Text(), ElementsAre(Line(GetParam(), 1, 3, "BNK2")));
        EXPECT_THAT(journal::Logged(3), ElementsAre(refusal + ": the rows stay as they were"));
        EXPECT_LE(journal::Calls().size(), maxCalls);
        EXPECT_EQ(Walk(GetParam()).size(), 9u);
    }
    std::string List() { return Name("CreateAlarmTable", "CreateRelayTable"); }
    std::string Handler() { return Name("handle_alarmStates", "handle_relayStates"); }
};
INSTANTIATE_TEST_SUITE_P(Of, AbsurdTest, testing::Values(Table::kAlarm, Table::kRelay), TableName);

TEST_P(AbsurdTest, ImpossibleTotalsAreRefusedWithoutFurtherCalls) {
    for (const int total : {2147483647, 1025, -1, -2147483647 - 1}) {
        Service().total = total;
        ExpectTheOldRows(Handler() + ": the service gives " + std::to_string(total) +
                             " for the number of rows, which must be 0 to 1024",
                         1);
    }
}

TEST_P(AbsurdTest, ImpossibleCountsOfABankAreRefusedWithoutFurtherCalls) {
    for (const int count : {2147483647, 1025, 1024, -1, -2147483647 - 1}) {
        Service().bankCount["BNK2"] = count;
        Service().total = 100;
        ExpectTheOldRows(
            List() + ": the service gives " + std::to_string(count) + " for a bank's count, which must be 0 to 1023",
            4);
    }
}

TEST_P(AbsurdTest, TooManyBanksAreRefusedWithoutFurtherCalls) {
    Banks banks;
    for (int i = 0; i < 101; ++i) banks.push_back({"B" + std::to_string(i), {true}});
    Service().banks = banks;
    ExpectTheOldRows(List() + ": the service gives 101 for the number of banks, which must be 0 to 100", 2);
}

TEST_P(AbsurdTest, TooLongNamesOfBanksAreRefusedWithoutFurtherCalls) {
    Service().banks = {{"BNK1", {true}}, {std::string(256, 'x'), {true}}};
    ExpectTheOldRows(List() + ": the service gives 256 for the octets of a bank's name, which must be 0 to 255", 2);
}

TEST_P(AbsurdTest, TheMaxNumberOfRowsIsServed) {
    Banks banks;
    for (int i = 0; i < 100; ++i) banks.push_back({std::string(252, 'x') + std::to_string(100 + i), {}});
    banks[0].second.assign(1000, true);
    banks[99].second.assign(24, true);
    SetBanks(banks);
    EXPECT_EQ(Get({Ask(GetParam(), 2, 1024)}).Text(), Lines{Line(GetParam(), 2, 1024, "23")});
    EXPECT_THAT(journal::Logged(3), IsEmpty());
}

TEST_P(AbsurdTest, ServicesThatReturnPossibleValuesAgainAreServedAgain) {
    Service().total = 2147483647;
    Walk(GetParam());
    Service() = FakeCamera::Banks{kFive, {}, {}};
    EXPECT_THAT(Walk(GetParam()), ElementsAreArray(Expected(GetParam(), kFive)));
}

TEST_F(TablesTest, ASetWithAnAbsurdServiceDrivesTheRelayThatTheRowNames) {
    Camera().relays.bankCount["BNK1"] = 2147483647;
    Camera().relays.total = 3;
    EXPECT_EQ(Set({NewState(3, 1)}).error, SNMP_ERR_NOERROR);
    EXPECT_THAT(Driven(), ElementsAre("call relay SetRelay BNK2 1 1"));
}

// --- the guard before the handlers ---

TEST_P(BothTablesTest, AnExceptionInATableRequestIsOnlyAGenErr) {
    Camera().onLog = [](const std::string& line) {
        if (line.find("calling ") != std::string::npos) throw std::bad_alloc();
    };
    EXPECT_EQ(Get({Ask(GetParam(), 1, 1)}).error, SNMP_ERR_GENERR);
    Camera().onLog = [](const std::string& line) {
        if (line.find("colnum is") != std::string::npos) throw std::bad_alloc();
    };
    EXPECT_EQ(Get({Ask(GetParam(), 1, 1)}).error, SNMP_ERR_GENERR);
    Camera().onLog = nullptr;
    EXPECT_EQ(journal::Logged(3).size(), 2u);
    SetBanks(kFive);
    EXPECT_THAT(Walk(GetParam()), ElementsAreArray(Expected(GetParam(), kFive)));
}

TEST_F(TablesTest, EachRequestBeginsOnce) {
    SetGuardedBus(&_bus);
    Get({Ask(Table::kAlarm, 1, 1), Ask(Table::kRelay, 1, 1), Ask(Table::kRelay, 3, 2)});
    EXPECT_EQ(Camera().begun.size(), 1u);
    Set({NewState(1, 1), NewState(2, 0)});
    EXPECT_EQ(Camera().begun.size(), 2u);
    Walk(Table::kRelay, 50);
    EXPECT_EQ(Camera().begun.size(), 3u);
    SetGuardedBus(nullptr);
}

// --- registration ---

TEST_F(TablesTest, TablesDisappearAndReturnWithTheirProviders) {
    for (int i = 0; i < 5; ++i) {
        Stop();
        EXPECT_THAT(Get({Ask(Table::kRelay, 1, 1)}).Text(), ElementsAre(Line(Table::kRelay, 1, 1, "noSuchObject")));
        EXPECT_THAT(Walk(Table::kAlarm), IsEmpty());
        Start(i % 2 == 0 ? kFive : kThree);
        EXPECT_THAT(Walk(Table::kAlarm), ElementsAreArray(Expected(Table::kAlarm, Camera().alarms.banks)));
        EXPECT_EQ(Set({NewState(1, 1)}).error, SNMP_ERR_NOERROR);
    }
}

TEST_F(TablesTest, RegistrationThatTheAgentRefusesIsTriedAgain) {
    Stop();
    for (const auto table : {Table::kAlarm, Table::kRelay}) {
        const auto& root = table == Table::kAlarm ? OrvexSnmpOid::oid_alarm : OrvexSnmpOid::oid_relay;
        const auto passOn = [](netsnmp_mib_handler*, netsnmp_handler_registration*, netsnmp_agent_request_info*,
                               netsnmp_request_info*) { return SNMP_ERR_NOERROR; };
        auto* occupant =
            netsnmp_create_handler_registration("occupant", passOn, root, OID_LENGTH(root), HANDLER_CAN_RWRITE);
        ASSERT_EQ(netsnmp_register_handler(occupant), MIB_REGISTERED_OK);
        OrvexSnmpAlarm alarm(_bus);
        OrvexSnmpRelay relay(_bus);
        const auto build = [&](bool update) {
            return table == Table::kAlarm ? alarm.init_alarmTable(update) : relay.init_relayTable(update);
        };
        {
            const ExpectedLeak expectedLeak;
            EXPECT_EQ(build(false), -1);
            EXPECT_EQ(build(true), -1);
        }
        netsnmp_unregister_handler(occupant);
        EXPECT_EQ(build(true), 0);
        EXPECT_THAT(Walk(table), ElementsAreArray(Expected(table, kThree)));
    }
    Start(kThree);
}

// --- everything at once ---

TEST_F(TablesTest, AnyRequestsWhileAnythingChangesAtAnyTime) {
    std::mt19937 random(20240229);
    const auto below = [&](unsigned bound) { return random() % bound; };
    const Banks banks[] = {kThree, kOne, kFive, kNone};
    const char* const failures[] = {"relay.SetRelay",     "relay.GetRelayState", "relay.GetRelayCount",
                                    "relay.GetBankNames", "alarm.GetBankNames",  "alarm.GetAlarmState"};
    for (int i = 0; i < 3000; ++i) {
        Camera().onCall = [&](const std::string&) {
            if (below(4) == 0) SetBanks(banks[below(4)]);
            if (below(16) == 0) Camera().failing = {failures[below(6)]};
            if (below(4) == 0) Camera().failing.clear();
        };
        std::vector<RealAgent::Binding> bindings;
        const int command = std::array{SNMP_MSG_GET, SNMP_MSG_GETNEXT, SNMP_MSG_GETBULK, SNMP_MSG_SET}[below(4)];
        for (unsigned n = 1 + below(4); n > 0; --n) {
            const auto table = below(2) == 0 && command != SNMP_MSG_SET ? Table::kAlarm : Table::kRelay;
            bindings.push_back(command == SNMP_MSG_SET ? NewState(1 + below(4), static_cast<long>(below(2)))
                                                       : Ask(table, below(5), below(6)));
        }
        EXPECT_NE(_agent.Send(command, bindings, 1 + below(8)).error, -1);
        journal::Clear();
    }
    Camera().onCall = nullptr;
    Camera().failing.clear();
    for (const auto& last : banks) {
        SetBanks(last);
        // The module does not notice other banks with the same total. A change of the total reveals them.
        for (const auto table : {Table::kAlarm, Table::kRelay}) {
            const auto lines = Walk(table);
            EXPECT_EQ(lines.size(), Expected(table, last).size());
        }
    }
    SetBanks(kOne);
    Walk(Table::kAlarm);
    EXPECT_THAT(Walk(Table::kRelay), ElementsAreArray(Expected(Table::kRelay, kOne)));
}

// --- unloading and loading again ---

TEST_F(TablesTest, UnregisteredTablesAreGoneAndServeAgainOnceTheyAreBuilt) {
    for (int i = 0; i < 3; ++i) {
        _alarm->UnregisterTable();
        _relay->UnregisterTable();
        for (const auto table : {Table::kAlarm, Table::kRelay}) {
            EXPECT_THAT(Get({Ask(table, 1, 1)}).Text(), ElementsAre(Line(table, 1, 1, "noSuchObject")));
        }
        SetBanks(i % 2 == 0 ? kOne : kThree);
        EXPECT_EQ(_alarm->init_alarmTable(false), 0);
        EXPECT_EQ(_relay->init_relayTable(false), 0);
        for (const auto table : {Table::kAlarm, Table::kRelay}) {
            EXPECT_THAT(Get({Ask(table, 1, 1)}).Text(), ElementsAre(Line(table, 1, 1, i % 2 == 0 ? "North" : "BNK1")));
        }
        EXPECT_EQ(Set({NewState(1, 0)}).error, SNMP_ERR_NOERROR);
    }
}

}  // namespace
