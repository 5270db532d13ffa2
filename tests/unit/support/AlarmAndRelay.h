#pragma once

#include <string>
#include <utility>
#include <vector>

#include "io/OrvexSnmpAlarm.h"
#include "io/OrvexSnmpRelay.h"
#include "support/AgentLog.h"
#include "support/BankRows.h"
#include "support/ModuleTest.h"
#include "support/Words.h"

/// The alarm inputs and the relay outputs: what their tests share, and the differences of what they do alike. In the
/// texts "<kind>" is "alarm" or "relay".

inline const std::string kEnterprise = ".1.3.6.1.4.1." + std::to_string(ORVEX_ENTERPRISE_NUMBER);

struct AlarmInputs {
    using Provider = OrvexSnmpAlarm;
    static constexpr auto kName = "alarm";
    static constexpr auto kGetCount = &Provider::GetAlarmCount;
    static constexpr auto kGetState = &Provider::GetAlarmState;
    static constexpr auto kCreateList = &Provider::CreateAlarmTable;
    static constexpr auto kInitTable = &Provider::init_alarmTable;
    static constexpr auto kList = &Provider::GetAlarmTableVar;
    static constexpr Netsnmp_Node_Handler* kTableHandler = Provider::handle_alarmStates;
    static constexpr Netsnmp_Node_Handler* kStatusHandler = Provider::handle_inputStatus;
    static constexpr const auto& kTableOid = OrvexSnmpOid::oid_alarm;
    static constexpr const auto& kStatusOid = OrvexSnmpOid::oid_inputStatus;
    static FakeCamera::Banks& Banks() { return Camera().alarms; }

    static constexpr auto kStateColumn = "3 type 2";
    static constexpr auto kWritable = "";
    static constexpr auto kNoBankNames = "CreateAlarmTable: Retry for GetBankNames for 0";
    static constexpr auto kRegistered = "agentlog 6 Registration for Alarm table OID OK\n";
    static constexpr auto kNotRegistered = "agentlog 6 Registration for Alarm table OID not OK\n";
    static constexpr auto kReceivedOid = "log 7 handle_alarmStates: Received OID ";
    static std::string StateLine(const std::string& bank, int id, int state) {
        return "log 6 GetAlarmState: bankName=" + bank + " alarmId=" + std::to_string(id) +
               " state=" + std::to_string(state);
    }
    static Lines RowLines(int /*row*/, int /*column*/) { return {}; }
    static Lines LiveLines(const std::string& bank, int id, int state) {
        return {"log 6 handle_alarmStates bankname=" + bank + ": bankvalue=" + std::to_string(id) +
                ", state=" + std::to_string(state)};
    }
    static Lines RebuildLines() {
        return {"agentlog 7 init_alarmTable deleting table to make new one\n",
                "agentlog 7 init_alarmTable making new table\n"};
    }

    static constexpr auto kStatusName = "handle_inputStatus";
    static constexpr auto kActive = "log 6 handle_inputStatus: GetAlarmState alarmState=TRUE, AlarmOne.inputAlarm1=1";
    static constexpr auto kClear = "log 6 handle_inputStatus: GetAlarmState alarmState=FALSE, AlarmOne.inputAlarm1=0";
    static constexpr auto kUnread = "log 3 handle_inputStatus: GetAlarmState(BNK2,0,FALSE)returned with exception";
    static constexpr auto kActiveEnd = "log 6 handle_inputStatus bankname=BNK2: bankvalue=0, state=1";
    static constexpr auto kClearEnd = "log 6 handle_inputStatus bankname=BNK2: bankvalue=0, state=0:";
};

struct RelayOutputs {
    using Provider = OrvexSnmpRelay;
    static constexpr auto kName = "relay";
    static constexpr auto kGetCount = &Provider::GetRelayCount;
    static constexpr auto kGetState = &Provider::GetRelayState;
    static constexpr auto kCreateList = &Provider::CreateRelayTable;
    static constexpr auto kInitTable = &Provider::init_relayTable;
    static constexpr auto kList = &Provider::GetRelayTableVar;
    static constexpr Netsnmp_Node_Handler* kTableHandler = Provider::handle_relayStates;
    static constexpr Netsnmp_Node_Handler* kStatusHandler = Provider::handle_outputStatus;
    static constexpr const auto& kTableOid = OrvexSnmpOid::oid_relay;
    static constexpr const auto& kStatusOid = OrvexSnmpOid::oid_outputStatus;
    static FakeCamera::Banks& Banks() { return Camera().relays; }

    static constexpr auto kStateColumn = "3 type 2 w";
    static constexpr auto kWritable = " w";
    static constexpr auto kNoBankNames = "CreateRelayTable: Exception GetBankNames for 0";
    static constexpr auto kRegistered = "log 6 init_relayTable: Registration for Relay table OID OK";
    static constexpr auto kNotRegistered = "log 6 init_relayTable: Registration for Relay table OID not OK";
    static constexpr auto kReceivedOid = "log 8 handle_relayStates: Received OID ";
    static std::string StateLine(const std::string& bank, int id, int state) {
        return "log 6 GetRelayState: bankName = " + bank + " relayId=" + std::to_string(id) +
               " state=" + std::to_string(state);
    }
    static Lines RowLines(int row, int column) {
        return {"log 6 handle_relayStates: relayNumber is " + std::to_string(row) + ", col no is " +
                std::to_string(column)};
    }
    static Lines LiveLines(const std::string& /*bank*/, int /*id*/, int /*state*/) { return {}; }
    static Lines RebuildLines() {
        return {"log 6 init_relayTable: deleting table to make new one",
                "log 6 init_relayTable: making new relay table"};
    }

    static constexpr auto kStatusName = "handle_outputStatus";
    static constexpr auto kActive =
        "log 6 handle_outputStatus: GetRelayState relayState=TRUE, RelayOne.outputStatus1=1";
    static constexpr auto kClear =
        "log 6 handle_outputStatus: GetRelayState relayState=FALSE, RelayOne.outputStatus1=0";
    static constexpr auto kUnread = "log 3 handle_outputStatus: GetRelayState(BNK2,0,FALSE)returned with exception";
    static constexpr auto kActiveEnd = "log 6 handle_outputStatus: Done.";
    static constexpr auto kClearEnd = kActiveEnd;
};

/// A request for one cell of the table.
template <class Kind>
struct CellOf : SnmpRequest {
    CellOf(oid column, oid row) : CellOf(bankrows::Cell(Kind::kTableOid, column, row)) {}

private:
    explicit CellOf(const std::vector<oid>& name) : SnmpRequest(name.data(), name.size()) {}
};

/// An entry of the list.
inline auto Entry(const char* bank, int id, int state) {
    return testing::Pair(testing::Pair(bank, id), state);
}

template <class Kind>
class BankTest : public ProviderTest<typename Kind::Provider> {
protected:
    /// Two banks, three entries; the list and the table are built, the journal is empty.
    void BuildTwoBanks() {
        Kind::Banks().banks = {{"BNK1", {true}}, {"BNK2", {false, true}}};
        InitTable(false);
        journal::Clear();
    }

    int InitTable(bool update) { return (this->_provider.*Kind::kInitTable)(update); }
    void CreateList(bool update) { (this->_provider.*Kind::kCreateList)(update); }
    int GetCount(int& count) { return (this->_provider.*Kind::kGetCount)(count); }
    int GetState(const char* bank, int id, bool& state) { return (this->_provider.*Kind::kGetState)(bank, id, state); }
    BankList& List() { return *(this->_provider.*Kind::kList)(); }
    netsnmp_table_data_set* DataSet() const { return Agent().dataSets.at(Text("<kind>StatesTable")); }

    static int Call(SnmpRequest& request, int mode = MODE_GET) { return request.Call(Kind::kTableHandler, mode); }
    static int Set(SnmpRequest& request) { return request.Set(Kind::kTableHandler); }
    static int CallStatus(SnmpRequest& request, int mode = MODE_GET) {
        return request.Call(Kind::kStatusHandler, mode);
    }

    std::string Text(const std::string& text) const { return _words.Text(text); }
    Lines Texts(const Lines& lines) const { return _words.All(lines); }

    /// A stored row: ".1: octets 4 BNK2, integer 4 0, integer 4 1".
    static std::string Row(int number, const std::string& bank, int id, int state) {
        return "." + std::to_string(number) + ": octets " + std::to_string(bank.size()) + " " + bank + ", integer 4 " +
               std::to_string(id) + ", integer 4 " + std::to_string(state) + Kind::kWritable;
    }

    /// The first lines of every table request when the service's `count` is the list's.
    Lines Begun(int count = 3, const std::string& rangeEnd = "") const {
        return Texts({"log 8 handle_<kind>States: Enter.", Kind::kReceivedOid + rangeEnd,
                      "log 6 handle_<kind>States: calling Get<Kind>Count()...", "log 8 Get<Kind>Count: Enter.",
                      "call <kind> Get<Kind>Count", "log 6 Get<Kind>Count: count=" + std::to_string(count),
                      "log 8 Get<Kind>Count: Done.", "log 6 handle_<kind>States: calling <kind>Table.size()..."});
    }

    /// The last line of a table request that succeeds.
    Lines Ended() const { return Texts({"log 8 handle_<kind>States: Done."}); }

    /// The lines of the read of one cell up to its answer.
    Lines Asked(int column, int row, const std::string& rangeEnd = "") const {
        return Begun(3, rangeEnd) + Kind::RowLines(row, column) +
               Texts({"log 6 handle_<kind>States: table_info->colnum is " + std::to_string(column)});
    }

    /// The lines of a state's read, and of one that fails.
    Lines StateRead(const std::string& bank, int id, int state) const {
        return Texts({"log 8 Get<Kind>State: Enter.", "call <kind> Get<Kind>State " + bank + " " + std::to_string(id),
                      Kind::StateLine(bank, id, state), "log 8 Get<Kind>State: Done."});
    }
    Lines StateUnread(const std::string& bank, int id) const {
        return Texts({"log 8 Get<Kind>State: Enter.", "call <kind> Get<Kind>State " + bank + " " + std::to_string(id),
                      "log 3 Get<Kind>State:Exception while Get<Kind>State", "log 8 Get<Kind>State: Done."});
    }

    AgentLog _agentLog;

private:
    const Words _words{"kind", Kind::kName};
};
