#include "io/BankTable.h"

#include <algorithm>
#include <utility>

#include "core/GuardedHandler.h"

namespace {

// Indexes into an instance's name: orvexEnterprise.1.3.T, entry, column, row.
constexpr std::size_t kEntryIndex = 10;
constexpr std::size_t kColumnIndex = 11;
constexpr std::size_t kRowIndex = 12;

constexpr auto kFrontHandlerName = "orvexBankTable";
constexpr auto kTableHandlerName = "table";

// In the later phases of a SET the agent uses the row that it looked up in the first phase.
bool RowsMayChange(int mode) {
    return mode != MODE_SET_RESERVE2 && mode != MODE_SET_ACTION && mode != MODE_SET_COMMIT && mode != MODE_SET_FREE &&
           mode != MODE_SET_UNDO;
}

bool NamesColumn(const netsnmp_variable_list& variable) {
    return variable.name_length > kColumnIndex && variable.name[kEntryIndex] == 1 &&
           variable.name[kColumnIndex] >= kBankNameColumn && variable.name[kColumnIndex] <= kBankStateColumn;
}

/// For a name with a column. The table's only index is the number after the column.
bool NamesRow(const netsnmp_variable_list& variable) {
    return variable.name_length == kRowIndex + 1;
}

/// True if the table has no name after this one. The agent also passes names that precede the table.
bool IsAfterColumns(const netsnmp_variable_list& variable, const netsnmp_handler_registration& table) {
    if (variable.name_length <= kEntryIndex ||
        snmp_oidtree_compare(variable.name, variable.name_length, table.rootoid, table.rootoid_len) != 0) {
        return false;
    }
    const auto entry = variable.name[kEntryIndex];
    const auto column = variable.name_length > kColumnIndex ? variable.name[kColumnIndex] : 0;
    return entry > 1 || (entry == 1 && column > kBankStateColumn);
}

/// Passes only valid requests to the agent's table handlers. While this object lives, the other requests are not in the
/// list; it answers them as net-snmp 5.9 does. One such name would break the answers to other names:
/// SET without a column: every release refuses it, then dereferences a null pointer when it frees that SET.
/// SET of a column whose index is missing or too long: 5.4 dereferences a null pointer at once. Later releases refuse
/// the whole SET and call no handler.
/// GET of a column without an index: 5.4 answers the list's first name with noSuchInstance instead.
/// GETNEXT of a name after the table: 5.4 reads column 0 for it, and all names fail.
class TableRequests {
public:
    TableRequests(const netsnmp_handler_registration& table, netsnmp_agent_request_info* info,
                  netsnmp_request_info* requests) {
        for (auto* request = requests; request != nullptr; request = request->next) {
            _all.push_back({request, request->next});
        }
        auto** link = &_first;
        for (const auto& [request, next] : _all) {
            if (!IsFit(table, info, request)) continue;
            *link = request;
            link = &request->next;
        }
        *link = nullptr;
    }
    ~TableRequests() {
        for (const auto& [request, next] : _all) request->next = next;
    }
    TableRequests(const TableRequests&) = delete;
    TableRequests& operator=(const TableRequests&) = delete;

    /// Null when no request is left.
    netsnmp_request_info* First() const { return _isSetRefused ? nullptr : _first; }

private:
    bool IsFit(const netsnmp_handler_registration& table, netsnmp_agent_request_info* info,
               netsnmp_request_info* request) {
        const auto& variable = *request->requestvb;
        const bool isSet = MODE_IS_SET(info->mode);
        if (!isSet && info->mode != MODE_GET) return !IsAfterColumns(variable, table);
        if (!NamesColumn(variable)) {
            Refuse(info, request, SNMP_ERR_NOTWRITABLE, SNMP_NOSUCHOBJECT);
            return false;
        }
        if (NamesRow(variable)) return true;
        Refuse(info, request, SNMP_ERR_NOCREATION, SNMP_NOSUCHINSTANCE);
        _isSetRefused = isSet;
        return false;
    }

    // Refuse only in the first phase of a SET: FREE gets the same names again.
    static void Refuse(netsnmp_agent_request_info* info, netsnmp_request_info* request, int setError, int getError) {
        if (info->mode == MODE_SET_RESERVE1) netsnmp_set_request_error(info, request, setError);
        if (info->mode == MODE_GET) netsnmp_set_request_error(info, request, getError);
    }

    std::vector<std::pair<netsnmp_request_info*, netsnmp_request_info*>> _all;  // each with its original next
    netsnmp_request_info* _first = nullptr;
    bool _isSetRefused = false;
};

void SetInteger(netsnmp_table_row* row, BankColumn column, int value) {
    netsnmp_set_row_column(row, column, ASN_INTEGER, reinterpret_cast<const char*>(&value), sizeof value);
}

netsnmp_table_row* NewRow(long number) {
    auto* row = netsnmp_create_table_data_row();
    netsnmp_table_row_add_index(row, ASN_INTEGER, &number, sizeof number);
    return row;
}

}  // namespace

bool IsAccepted(const tavos::core::Logger& logger, const char* name, const char* what, long long number,
                int maxNumber) {
    if (number >= 0 && number <= maxNumber) return true;
    logger.Error("%s: the service gives %lld for %s, which must be 0 to %d: the rows stay as they were", name, number,
                 what, maxNumber);
    return false;
}

bool AreAccepted(const tavos::core::Logger& logger, const char* name, const std::vector<std::string>& banks) {
    const auto count = static_cast<long long>(banks.size());
    if (!IsAccepted(logger, name, "the number of banks", count, kMaxBanks)) return false;
    return std::all_of(banks.begin(), banks.end(), [&](const std::string& bank) {
        return IsAccepted(logger, name, "the octets of a bank's name", static_cast<long long>(bank.size()),
                          kMaxBankName);
    });
}

BankTable::BankTable(Owner& owner, const char* name, bool stateWritable)
    : _owner(owner), _name(name), _stateWritable(stateWritable) {}

BankTable::~BankTable() {
    Unregister();
}

void BankTable::Unregister() {
    _waitingRows = nullptr;
    if (auto* const registration = std::exchange(_registration, nullptr)) netsnmp_unregister_handler(registration);
    if (_dataSet == nullptr) return;
    RemoveRows();
#ifdef ORVEX_HAVE_DELETE_TABLE_DATA_SET
    netsnmp_delete_table_data_set(_dataSet);
#endif  // otherwise each reload leaks an empty data set
    _dataSet = nullptr;
}

void BankTable::Create() {
    if (_dataSet != nullptr) return;
    _dataSet = netsnmp_create_table_data_set(_name);
    netsnmp_table_dataset_add_index(_dataSet, ASN_INTEGER);
    // For each column: number, type, writable, default value and its length; then a 0. The arguments are variadic: null
    // pointers and lengths need explicit types.
    netsnmp_table_set_multi_add_default_row(
        _dataSet, static_cast<unsigned>(kBankNameColumn), ASN_OCTET_STR, 0, static_cast<void*>(nullptr), std::size_t{0},
        static_cast<unsigned>(kBankIdColumn), ASN_INTEGER, 0, static_cast<void*>(nullptr), std::size_t{0},
        static_cast<unsigned>(kBankStateColumn), ASN_INTEGER, _stateWritable ? 1 : 0, static_cast<void*>(nullptr),
        std::size_t{0}, 0u);
}

int BankTable::Register(Netsnmp_Node_Handler* handler, const oid* tableId, std::size_t tableIdLength) {
    auto* registration = CreateGuardedRegistration(_name, handler, tableId, tableIdLength, HANDLER_CAN_RWRITE);
    if (registration == nullptr) return MIB_REGISTRATION_FAILED;
    const int result = netsnmp_register_table_data_set(registration, _dataSet, nullptr);
    if (result != 0) return result;
    // Without the front handler, rows would change while the agent uses them: so do not register the table.
    auto* front = netsnmp_create_handler(kFrontHandlerName, &BankTable::FrontHandler);
    if (front == nullptr || netsnmp_inject_handler_before(registration, front, kTableHandlerName) != SNMPERR_SUCCESS) {
        netsnmp_unregister_handler(registration);
        return MIB_REGISTRATION_FAILED;
    }
    front->myvoid = this;
    _registration = registration;
    return result;
}

int BankTable::FrontHandler(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                            netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    auto& table = *static_cast<BankTable*>(handler->myvoid);
    const int result =
        Guarded(table._name, info, [&] { return table.HandlePass(handler, registration, info, requests); });
    table._pass = PassState::kOutside;
    table._rowsInUse = false;
    return result;
}

int BankTable::HandlePass(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                          netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    _rowsInUse = !RowsMayChange(info->mode);
    if (_waitingRows != nullptr) ReplaceRows(*_waitingRows);
    // See docs/contract.md, column-check.
    const TableRequests fit(*registration, info, requests);
    if (fit.First() == nullptr) return SNMP_ERR_NOERROR;
    _pass = _owner.BeginTableRequest(info, requests) ? PassState::kBegun : PassState::kRefused;
    return netsnmp_call_next_handler(handler, registration, info, fit.First());
}

void BankTable::ReplaceRows(const BankList& list) {
    _waitingRows = _rowsInUse ? &list : nullptr;
    if (_rowsInUse) return;
    RemoveRows();
    AddRows(list);
}

void BankTable::RemoveRows() {
    while (auto* row = netsnmp_table_data_set_get_first_row(_dataSet)) {
        netsnmp_table_dataset_remove_and_delete_row(_dataSet, row);
    }
}

void BankTable::AddRows(const BankList& list) {
    long number = 0;
    for (const auto& [key, state] : list) {
        const auto& [bank, id] = key;
        auto* row = NewRow(++number);
        netsnmp_set_row_column(row, kBankNameColumn, ASN_OCTET_STR, bank.data(), bank.size());
        SetInteger(row, kBankIdColumn, id);
        SetInteger(row, kBankStateColumn, state);
        if (_stateWritable) netsnmp_mark_row_column_writable(row, kBankStateColumn, 1);
        netsnmp_table_dataset_add_row(_dataSet, row);
    }
    // Fixed: docs/contract.md, row-without-values.
    if (list.empty()) netsnmp_table_dataset_add_row(_dataSet, NewRow(1));
}

unsigned long RequestedRow(const netsnmp_request_info& request) {
    const auto& variable = *request.requestvb;
    return variable.name_length > kRowIndex ? variable.name[kRowIndex] : 0;
}

unsigned RequestedColumn(const netsnmp_request_info& request) {
    const auto& variable = *request.requestvb;
    return variable.name_length > kColumnIndex ? static_cast<unsigned>(variable.name[kColumnIndex]) : 0;
}

const BankEntry* RequestedEntry(const BankList& list, const netsnmp_request_info& request) {
    const auto row = RequestedRow(request);
    // See docs/contract.md, row-0-refused.
    return row >= 1 && row <= list.size() ? &list[row - 1] : nullptr;
}
