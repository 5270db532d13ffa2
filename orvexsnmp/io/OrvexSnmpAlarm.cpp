#include "io/OrvexSnmpAlarm.h"

#include "core/PlatformCall.h"

namespace {

const std::string kBank = "BNK2";
constexpr int kInput = 0;
constexpr std::uint8_t kInputAlarm1 = 0x01;

constexpr auto kTableHandler = "handle_alarmStates";

// Fixed: docs/contract.md, one-attempt.
constexpr BankListLines kListLines = {
    "CreateAlarmTable",
    "CreateAlarmTable: Retry for GetBankNames for 0",
    "CreateAlarmTable: Retry for GetBankAlarmCount for 0",
    "CreateAlarmTable: Exception in GetAlarmState()",
};

constexpr BankCountLines kCountLines = {
    kTableHandler,
    "handle_alarmStates: calling GetAlarmCount()...",
    "handle_alarmStates: calling alarmTable.size()...",
    "handle_alarmStates: Updating alarmTable...",
};

}  // namespace

OrvexSnmpAlarm::OrvexSnmpAlarm(tavos::msgbus::MsgBus& bus) : _table(*this, "alarmStatesTable", false) {
    _logger->Trace("%s: Enter", "OrvexSnmpAlarm");
    _client.reset(tavos::interfaces::IAlarmV3Provider::CreateClient(&bus));
    _logger->Trace("%s: making new alarm table", "OrvexSnmpAlarm");
    // Fixed: docs/contract.md, enter-lines.
    _logger->Information("%s: Done.", "OrvexSnmpAlarm");
}

int OrvexSnmpAlarm::GetAlarmCount(int& count) const {
    return PlatformRead(
        *_logger, "GetAlarmCount", "Exception while GetAlarmCount", count, [this] { return _client->GetAlarmCount(); },
        [this](int total) { _logger->Information("GetAlarmCount: count=%d", total); });
}

int OrvexSnmpAlarm::GetAlarmState(const std::string& bank, int alarmId, bool& state) const {
    return PlatformRead(
        *_logger, "GetAlarmState", "GetAlarmState:Exception while GetAlarmState", state,
        [&] { return _client->GetAlarmState(bank, alarmId); },
        [&](bool on) {
            _logger->Information("GetAlarmState: bankName=%s alarmId=%d state=%d", bank.c_str(), alarmId, on ? 1 : 0);
        });
}

void OrvexSnmpAlarm::CreateAlarmTable(bool update) {
    BuildBankList(
        *_logger, kListLines, update, _list,
        [this](std::vector<std::string>& banks) {
            banks = _client->GetBankNames();
            _logger->Information("%s: Alarm bankNames size is %d", kListLines.name, static_cast<int>(banks.size()));
        },
        [this](const std::string& bank) { return _client->GetBankAlarmCount(bank); },
        [this](const std::string& bank, int id) { return _client->GetAlarmState(bank, id); });
}

int OrvexSnmpAlarm::init_alarmTable(bool update) {
    _logger->Information("%s: Enter. update=%d\n", "init_alarmTable", update ? 1 : 0);
    CreateAlarmTable(update);
    // Fixed: docs/contract.md, table-logs.
    if (update) snmp_log(LOG_DEBUG, "init_alarmTable deleting table to make new one\n");
    snmp_log(LOG_DEBUG, "init_alarmTable making new table\n");
    _table.Create();
    if (!_table.IsRegistered()) {
        if (_table.Register(&OrvexSnmpAlarm::handle_alarmStates, OrvexSnmpOid::oid_alarm,
                            OID_LENGTH(OrvexSnmpOid::oid_alarm)) != 0) {
            snmp_log(LOG_INFO, "Registration for Alarm table OID not OK\n");
            return -1;
        }
        snmp_log(LOG_INFO, "Registration for Alarm table OID OK\n");
    }
    _table.ReplaceRows(_list);
    return 0;
}

bool OrvexSnmpAlarm::BeginTableRequest(netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    if (!BeginRead(*_logger, kTableHandler, info, requests)) return false;
    FollowService(
        *_logger, kCountLines, _list, [this](int& count) { return GetAlarmCount(count); },
        // Fixed: docs/contract.md, rebuilt-states-0.
        [this] { init_alarmTable(true); });
    return true;
}

int OrvexSnmpAlarm::ReadCell(const std::string& bank, int id) const {
    bool state = false;
    // Fixed: docs/contract.md, state-unread-is-0.
    if (GetAlarmState(bank, id, state) != 0) return 0;
    const int value = state ? 1 : 0;
    _logger->Information("%s bankname=%s: bankvalue=%d, state=%d", kTableHandler, bank.c_str(), id, value);
    return value;
}

int OrvexSnmpAlarm::handle_alarmStates(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                       netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    auto& alarm = *GetInstance();
    const auto pass = alarm._table.Pass();
    if (pass == BankTable::PassState::kRefused) return SNMP_ERR_GENERR;
    if (pass == BankTable::PassState::kOutside && !alarm.BeginTableRequest(info, requests)) return SNMP_ERR_GENERR;

    // Fixed: docs/contract.md, alarm-first-cell.
    for (auto* request = requests; request != nullptr; request = request->next) {
        // See docs/contract.md, already-answered.
        if (request->processed) continue;
        const auto* entry = RequestedEntry(alarm._list, *request);
        if (entry == nullptr) continue;
        const int result = AnswerCell(alarm.GetLogger(), kTableHandler, request, *entry,
                                      [&](const std::string& bank, int id) { return alarm.ReadCell(bank, id); });
        if (result != SNMP_ERR_NOERROR) return result;
        break;
    }
    alarm.GetLogger().Trace("%s: Done.", kTableHandler);
    return SNMP_ERR_NOERROR;
}

int OrvexSnmpAlarm::handle_inputStatus(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                       netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    constexpr auto kName = "handle_inputStatus";
    auto& alarm = *GetInstance();
    const auto& logger = alarm.GetLogger();
    if (!BeginRead(logger, kName, info, requests, tavos::core::kInformation, tavos::core::kInformation)) {
        return SNMP_ERR_GENERR;
    }
    auto& octet = alarm._inputStatus;
    bool state = false;
    if (alarm.GetAlarmState(kBank, kInput, state) == 0) {
        octet = static_cast<std::uint8_t>(state ? octet | kInputAlarm1 : octet & ~kInputAlarm1);
        logger.Information("%s: GetAlarmState alarmState=%s, AlarmOne.inputAlarm1=%d", kName, TruthWord(state),
                           octet & kInputAlarm1);
    } else {
        logger.Error("%s: GetAlarmState(%s,0,%s)returned with exception", kName, kBank.c_str(), TruthWord(state));
    }
    // Fixed: docs/contract.md, input-words.
    logger.Information("%s bankname=%s: bankvalue=%d, state=%s", kName, kBank.c_str(), kInput, state ? "1" : "0:");
    AnswerOctets(requests, &octet, sizeof octet);
    return SNMP_ERR_NOERROR;
}
