#include "io/OrvexSnmpRelay.h"

#include <algorithm>
#include <vector>

#include "core/PlatformCall.h"

namespace {

const std::string kBank = "BNK2";
constexpr int kRelay = 0;
constexpr std::uint8_t kOutputStatus1 = 0x01;
constexpr std::uint8_t kControlSelect = 0x01;    // outputControl, octet 0: selects relay 0
constexpr std::uint8_t kControlEnergise = 0x80;  // outputControl, octet 1: its new state
constexpr int kEnergise = 1;                     // fixed: docs/contract.md, relay-only-1

constexpr auto kTableHandler = "handle_relayStates";

// Fixed: docs/contract.md, one-attempt.
constexpr BankListLines kListLines = {
    "CreateRelayTable",
    "CreateRelayTable: Exception GetBankNames for 0",
    "CreateRelayTable: Retry for GetBankRelayCount for 0",
    "CreateRelayTable: Exception in GetRelayState()",
};

constexpr BankCountLines kCountLines = {
    kTableHandler,
    "handle_relayStates: calling GetRelayCount()...",
    "handle_relayStates: calling relayTable.size()...",
    "handle_relayStates: Updating relayTable...",
};

// The row of the current SET, one only. Fixed: docs/contract.md, relay-last-row.
struct PendingRelaySet {
    std::string bank;
    int relayId = 0;
    int oldState = 0;
    int newValue = 0;
    unsigned long row = 0;                 // the row whose relay RESERVE2 of this SET read; 0: none
    bool hasValue = false;                 // ACTION of this SET read that row's value
    std::vector<unsigned long> foundRows;  // rows that RESERVE1 of this SET found
};

PendingRelaySet s_pending;

}  // namespace

OrvexSnmpRelay::OrvexSnmpRelay(tavos::msgbus::MsgBus& bus) : _table(*this, "relayStatesTable", true) {
    _logger->Trace("%s: Enter", "OrvexSnmpRelay");
    _client.reset(tavos::interfaces::IRelayV3Provider::CreateClient(&bus));
    _logger->Information("%s: making new relay table", "OrvexSnmpRelay");
    _table.Create();
    _logger->Trace("%s: Done.", "OrvexSnmpRelay");
}

int OrvexSnmpRelay::GetRelayCount(int& count) const {
    return PlatformRead(
        *_logger, "GetRelayCount", "Exception while GetRelayCount", count, [this] { return _client->GetRelayCount(); },
        [this](int total) { _logger->Information("GetRelayCount: count=%d", total); });
}

int OrvexSnmpRelay::GetRelayState(const std::string& bank, int relayId, bool& state) const {
    return PlatformRead(
        *_logger, "GetRelayState", "GetRelayState:Exception while GetRelayState", state,
        [&] { return _client->GetRelayState(bank, relayId); },
        [&](bool on) {
            _logger->Information("GetRelayState: bankName = %s relayId=%d state=%d", bank.c_str(), relayId, on ? 1 : 0);
        });
}

int OrvexSnmpRelay::SetRelay(const std::string& bank, int relayId, int value) const {
    constexpr auto kName = "SetRelay";
    return PlatformCall(*_logger, kName, "Exception while setting relay", [&] {
        _client->SetRelay(bank, relayId, value);
        _logger->Information("%s: bankName=%s relayId=%d", kName, bank.c_str(), relayId);
    });
}

int OrvexSnmpRelay::ClearRelay(const std::string& bank, int relayId) const {
    constexpr auto kName = "ClearRelay";
    return PlatformCall(*_logger, kName, "Exception while clearing Relay", [&] {
        _client->ClearRelay(bank, relayId, 0);
        _logger->Information("%s: bankName=%s relayId=%d", kName, bank.c_str(), relayId);
    });
}

void OrvexSnmpRelay::CreateRelayTable(bool update) {
    BuildBankList(
        *_logger, kListLines, update, _list,
        [this](std::vector<std::string>& banks) {
            banks = _client->GetBankNames();
            _logger->Information("%s: Relay bankNames size is %d", kListLines.name, static_cast<int>(banks.size()));
        },
        [this](const std::string& bank) { return _client->GetBankRelayCount(bank); },
        [this](const std::string& bank, int id) { return _client->GetRelayState(bank, id); });
}

int OrvexSnmpRelay::init_relayTable(bool update) {
    constexpr auto kName = "init_relayTable";
    _logger->Information("%s: Enter. update=%d\n", kName, update ? 1 : 0);
    CreateRelayTable(update);
    if (update) _logger->Information("%s: deleting table to make new one", kName);
    // The constructor has already built the table of the start.
    if (update || !_table.IsCreated()) _logger->Information("%s: making new relay table", kName);
    _table.Create();
    if (!_table.IsRegistered()) {
        if (_table.Register(&OrvexSnmpRelay::handle_relayStates, OrvexSnmpOid::oid_relay,
                            OID_LENGTH(OrvexSnmpOid::oid_relay)) != 0) {
            _logger->Information("%s: Registration for Relay table OID not OK", kName);
            return -1;
        }
        _logger->Information("%s: Registration for Relay table OID OK", kName);
    }
    _table.ReplaceRows(_list);
    return 0;
}

bool OrvexSnmpRelay::BeginTableRequest(netsnmp_agent_request_info*, netsnmp_request_info* requests) {
    _logger->Trace("%s: Enter.", kTableHandler);
    LogReceivedOid(*_logger, tavos::core::kTrace, kTableHandler, requests);
    FollowService(
        *_logger, kCountLines, _list, [this](int& count) { return GetRelayCount(count); },
        [this] { init_relayTable(true); });
    return true;
}

int OrvexSnmpRelay::ReadCell(const std::string& bank, int id) const {
    bool state = false;
    return GetRelayState(bank, id, state) == 0 && state ? 1 : 0;
}

// 0, or -1 for a call that failed. Fixed: docs/contract.md, relay-words.
int OrvexSnmpRelay::Drive(const char* name, const std::string& bank, int relayId, bool energise) const {
    const int result = energise ? SetRelay(bank, relayId, kEnergise) : ClearRelay(bank, relayId);
    if (result == -1) _logger->Information("%s: SetRelay returned with exception", name);
    return result;
}

// Handles a row that the list does not have. Rule: a SET succeeds only if its relay was driven.
// If the agent has not found the row either, it has refused the request: skip it without an error.
// If the agent still has the row after a failed refresh, RESERVE1 refuses it as the agent refuses unknown rows.
// If list and service change during the SET, a row found in RESERVE1 can be missing in a later phase: that phase fails.
// Before COMMIT nothing was driven. The SET fails even when the row comes back: it may be another relay's (see
// CommitRow).
// Returns the SNMP error, or SNMP_ERR_NOERROR for a request to skip.
int OrvexSnmpRelay::RefusalOfMissingRow(const netsnmp_agent_request_info* info, netsnmp_request_info* request) {
    switch (info->mode) {
        case MODE_SET_RESERVE1:
            return netsnmp_extract_table_row(request) != nullptr ? SNMP_ERR_NOCREATION : SNMP_ERR_NOERROR;
        case MODE_SET_RESERVE2:
        case MODE_SET_ACTION:
        case MODE_SET_COMMIT: {
            const auto& foundRows = s_pending.foundRows;
            const bool wasFound =
                std::find(foundRows.begin(), foundRows.end(), RequestedRow(*request)) != foundRows.end();
            return wasFound ? SNMP_ERR_GENERR : SNMP_ERR_NOERROR;
        }
        default:
            return SNMP_ERR_NOERROR;
    }
}

// The refreshed list may be shorter than the list in which the row was found, or empty if the service failed. Such a
// SET must stop: it would drive the relay of an earlier SET. See docs/contract.md, relay-guard.
int OrvexSnmpRelay::RememberRow(netsnmp_agent_request_info* info, netsnmp_request_info* request) {
    // Fixed: docs/contract.md, relay-set-asks-all.
    CreateRelayTable(false);
    const auto* entry = RequestedEntry(_list, *request);
    if (entry == nullptr) {
        netsnmp_set_request_error(info, request, SNMP_ERR_GENERR);
        return SNMP_ERR_GENERR;
    }
    s_pending.bank = entry->first.first;
    s_pending.relayId = entry->first.second;
    s_pending.oldState = entry->second;
    s_pending.row = RequestedRow(*request);
    return SNMP_ERR_NOERROR;
}

int OrvexSnmpRelay::CommitRow(netsnmp_request_info* request) const {
    _logger->Information("%s: newRelayState in MODE_SET_COMMIT is %d", kTableHandler, s_pending.newValue);
    // The row was missing in RESERVE2 or ACTION: the relay or the value would be that of another row or an earlier SET.
    if (s_pending.row == 0 || !s_pending.hasValue) return SNMP_ERR_GENERR;
    if (Drive(kTableHandler, s_pending.bank, s_pending.relayId, s_pending.newValue == kEnergise) == -1) {
        return SNMP_ERR_GENERR;
    }
    AnswerInteger(request, s_pending.newValue);
    return SNMP_ERR_NOERROR;
}

int OrvexSnmpRelay::HandleCell(netsnmp_agent_request_info* info, netsnmp_request_info* request,
                               const BankEntry& entry) {
    switch (info->mode) {
        case MODE_SET_RESERVE1:
            s_pending.foundRows.push_back(RequestedRow(*request));
            if (request->requestvb->type != ASN_INTEGER) netsnmp_set_request_error(info, request, SNMP_ERR_WRONGTYPE);
            return SNMP_ERR_NOERROR;
        case MODE_SET_RESERVE2:
            return RememberRow(info, request);
        case MODE_SET_ACTION:
            s_pending.newValue = ReadInteger(*request->requestvb);
            s_pending.hasValue = RequestedRow(*request) == s_pending.row;
            _logger->Information("%s: newRelayValue in MODE_SET_ACTION is %d", kTableHandler, s_pending.newValue);
            return SNMP_ERR_NOERROR;
        case MODE_SET_COMMIT:
            return CommitRow(request);
        case MODE_SET_FREE:
            return SNMP_ERR_NOERROR;
        case MODE_SET_UNDO:
            // Fixed: docs/contract.md, relay-undo.
            s_pending.newValue = s_pending.oldState;
            _logger->Information("%s: newRelayState in MODE_SET_UNDO is %d", kTableHandler, s_pending.newValue);
            return SNMP_ERR_NOERROR;
        case MODE_GET:
        case MODE_GETNEXT:
            return AnswerCell(*_logger, kTableHandler, request, entry,
                              [this](const std::string& bank, int id) { return ReadCell(bank, id); });
        default:
            return UnknownMode(*_logger, kTableHandler, info);
    }
}

int OrvexSnmpRelay::handle_relayStates(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                       netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    auto& relay = *GetInstance();
    const auto& logger = relay.GetLogger();
    if (relay._table.Pass() == BankTable::PassState::kOutside) relay.BeginTableRequest(info, requests);
    if (info->mode == MODE_SET_RESERVE1) s_pending = PendingRelaySet();
    const int result = relay.HandleRequests(info, requests);
    const bool isLastPhase =
        info->mode == MODE_SET_COMMIT || info->mode == MODE_SET_FREE || info->mode == MODE_SET_UNDO;
    if (isLastPhase) s_pending.foundRows.clear();
    if (result == SNMP_ERR_NOERROR) logger.Trace("%s: Done.", kTableHandler);
    return result;
}

int OrvexSnmpRelay::HandleRequests(netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    for (auto* request = requests; request != nullptr; request = request->next) {
        _logger->Information("%s: relayNumber is %d, col no is %d", kTableHandler,
                             static_cast<int>(RequestedRow(*request)), static_cast<int>(RequestedColumn(*request)));
        // Skips reads that the agent has already answered: a GETNEXT past the last row.
        if (request->processed && IsReadMode(info)) continue;
        const auto* entry = RequestedEntry(_list, *request);
        if (entry == nullptr) {
            const int refusal = RefusalOfMissingRow(info, request);
            if (refusal == SNMP_ERR_NOERROR) continue;
            netsnmp_set_request_error(info, request, refusal);
            return refusal;
        }
        if (const int result = HandleCell(info, request, *entry); result != SNMP_ERR_NOERROR) return result;
    }
    return SNMP_ERR_NOERROR;
}

int OrvexSnmpRelay::handle_outputStatus(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                        netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    constexpr auto kName = "handle_outputStatus";
    auto& relay = *GetInstance();
    const auto& logger = relay.GetLogger();
    if (!BeginRead(logger, kName, info, requests, tavos::core::kInformation, tavos::core::kInformation)) {
        return SNMP_ERR_GENERR;
    }
    auto& octet = relay._outputStatus;
    bool state = false;
    if (relay.GetRelayState(kBank, kRelay, state) == 0) {
        octet = static_cast<std::uint8_t>(state ? octet | kOutputStatus1 : octet & ~kOutputStatus1);
        logger.Information("%s: GetRelayState relayState=%s, RelayOne.outputStatus1=%d", kName, TruthWord(state),
                           octet & kOutputStatus1);
    } else {
        logger.Error("%s: GetRelayState(%s,0,%s)returned with exception", kName, kBank.c_str(), TruthWord(state));
    }
    AnswerOctets(requests, &octet, sizeof octet);
    logger.Information("%s: Done.", kName);
    return SNMP_ERR_NOERROR;
}

int OrvexSnmpRelay::CommitControl(const char* name, netsnmp_request_info* requests) {
    // Fixed: docs/contract.md, output-undo.
    _committedControl = _control;
    const auto received = ReadOctets<2>(*requests->requestvb);
    // Fixed: docs/contract.md, output-unselected.
    if ((received[0] & kControlSelect) != 0 &&
        Drive(name, kBank, kRelay, (received[1] & kControlEnergise) != 0) == -1) {
        return SNMP_ERR_GENERR;
    }
    AnswerOctets(requests, _control);
    return SNMP_ERR_NOERROR;
}

int OrvexSnmpRelay::handle_outputControl(netsnmp_mib_handler*, netsnmp_handler_registration*,
                                         netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    constexpr auto kName = "handle_outputControl";
    auto& relay = *GetInstance();
    const auto& logger = relay.GetLogger();
    logger.Information("%s: Enter.", kName);
    LogReceivedOid(logger, tavos::core::kInformation, kName, requests);
    switch (info->mode) {
        case MODE_SET_RESERVE1:
            if (requests->requestvb->type != ASN_OCTET_STR) {
                netsnmp_set_request_error(info, requests, SNMP_ERR_WRONGTYPE);
                return SNMP_ERR_WRONGTYPE;
            }
            break;
        case MODE_SET_RESERVE2:
        case MODE_SET_FREE:
        case MODE_GETNEXT:
            break;
        case MODE_SET_ACTION:
            relay._control = ReadOctets<2>(*requests->requestvb);
            break;
        case MODE_SET_COMMIT:
            if (const int result = relay.CommitControl(kName, requests); result != SNMP_ERR_NOERROR) return result;
            break;
        case MODE_SET_UNDO:
            relay._control = relay._committedControl;
            break;
        case MODE_GET:
            relay._control = relay._committedControl;
            AnswerOctets(requests, relay._control);
            break;
        default:
            netsnmp_set_request_error(info, requests, SNMP_ERR_GENERR);
            return SNMP_ERR_GENERR;
    }
    logger.Information("%s: Done.", kName);
    return SNMP_ERR_NOERROR;
}
