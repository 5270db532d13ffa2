#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/HandlerSteps.h"
#include "core/NetSnmp.h"
#include "core/PlatformCall.h"
#include "tavos/core/Logger.h"

/// A table of the inputs or outputs of all banks. Both table providers of this folder have one. Agent's thread only.

/// ((bank, id in the bank), state). Row n of the table is entry n - 1.
using BankEntry = std::pair<std::pair<std::string, int>, int>;
using BankList = std::vector<BankEntry>;

enum BankColumn : unsigned { kBankNameColumn = 1, kBankIdColumn = 2, kBankStateColumn = 3, kUnusedColumn = 4 };

/// The max values that a table accepts from a service. Real cameras have far smaller ones. A service above a limit is
/// faulty: it would use up the agent's memory, or cause a call for each row. A SET of a relay reads every state again
/// and must end within a request's time.
constexpr int kMaxRows = 1024;  ///< of all banks together
constexpr int kMaxBanks = 100;
constexpr int kMaxBankName = 255;  ///< octets, as in a DisplayString

/// Returns false, with one Error line, for a number that a table does not accept. `what` describes the number.
bool IsAccepted(const tavos::core::Logger& logger, const char* name, const char* what, long long number, int maxNumber);

/// The same for the names of a service's banks.
bool AreAccepted(const tavos::core::Logger& logger, const char* name, const std::vector<std::string>& banks);

/// The texts that differ between the two providers when they build a list: `name`, and whole Error lines, not formats.
struct BankListLines {
    const char* name;
    const char* noBankNames;
    const char* noEntryCount;
    const char* noState;
};

/// Reads each bank's count and each entry's state once. Logs each failure; then uses the previous bank's count or the
/// previous entry's state. At the first count that a table refuses, logs it and returns nullopt.
template <class EntryCount, class State>
std::optional<BankList> ReadBanks(const tavos::core::Logger& logger, const BankListLines& lines, bool update,
                                  const std::vector<std::string>& banks, EntryCount&& entryCount, State&& getState) {
    BankList list;
    int count = 0;
    int state = 0;
    for (const auto& bank : banks) {
        try {
            count = entryCount(bank);
        } catch (...) {
            logger.Error("%s", lines.noEntryCount);
        }
        const int room = kMaxRows - static_cast<int>(list.size());
        if (!IsAccepted(logger, lines.name, "a bank's count", count, room)) return std::nullopt;
        for (int id = 0; id < count; ++id) {
            if (!update) {
                CaughtCall(logger, lines.noState, [&] { state = getState(bank, id) ? 1 : 0; });
            }
            list.push_back({{bank, id}, state});
        }
    }
    return list;
}

/// Builds the list again from a service. If its bank names cannot be read, the list is empty. With `update` every state
/// is 0, without calls. At the first number that a table refuses, it stops reading and does not change `list`.
/// `bankNames` sets the names and logs their number.
template <class BankNames, class EntryCount, class State>
void BuildBankList(const tavos::core::Logger& logger, const BankListLines& lines, bool update, BankList& list,
                   BankNames&& bankNames, EntryCount&& entryCount, State&& getState) {
    logger.Trace("%s: Enter.", lines.name);
    logger.Information("%s: update=%d", lines.name, update ? 1 : 0);
    std::vector<std::string> banks;
    try {
        bankNames(banks);
    } catch (...) {
        logger.Error("%s", lines.noBankNames);
    }
    if (AreAccepted(logger, lines.name, banks)) {
        if (auto read = ReadBanks(logger, lines, update, banks, entryCount, getState)) list = std::move(*read);
    }
    logger.Trace("%s: Done.", lines.name);
}

/// The table in the agent: a registered data set. Its rows are replaced when the banks change.
///
/// The agent looks up a request's row before it calls the module's handler, and keeps the row through all phases of a
/// SET. So rows must change only before that look-up. The table therefore adds a front handler before the agent's
/// handlers. If a name of the request can be a cell, it calls the owner's BeginTableRequest, which compares the service
/// with the list and may call ReplaceRows. The owner's handler runs last; Pass() is then kBegun or kRefused, and the
/// handler does not begin the request again. See docs/contract.md, rows-before-look-up.
class BankTable {
public:
    /// The state of the current request.
    enum class PassState {
        kOutside,  ///< no front handler ran: the owner's handler begins the request itself
        kBegun,
        kRefused,  ///< begun, and refused by the owner
    };

    class Owner {
    public:
        /// The first steps of a table request. False: the request is refused.
        virtual bool BeginTableRequest(netsnmp_agent_request_info* info, netsnmp_request_info* requests) = 0;

    protected:
        ~Owner() = default;
    };

    /// `name` must live as long as the table.
    BankTable(Owner& owner, const char* name, bool stateWritable);
    ~BankTable();
    BankTable(const BankTable&) = delete;
    BankTable& operator=(const BankTable&) = delete;

    /// Creates the data set if there is none.
    void Create();
    bool IsCreated() const { return _dataSet != nullptr; }

    /// Registers the data set for `handler`. Returns the agent's answer, 0 for success.
    int Register(Netsnmp_Node_Handler* handler, const oid* tableId, std::size_t tableIdLength);

    bool IsRegistered() const { return _registration != nullptr; }

    /// Unregisters and frees the data set. Create and Register may follow.
    void Unregister();

    /// Serves the list's entries from now on; an empty list gives one row without values. In the later phases of a SET
    /// the rows are replaced at the next request. `list` must live as long as the table.
    void ReplaceRows(const BankList& list);

    PassState Pass() const { return _pass; }

private:
    static int FrontHandler(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                            netsnmp_agent_request_info* info, netsnmp_request_info* requests);
    int HandlePass(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                   netsnmp_agent_request_info* info, netsnmp_request_info* requests);
    void RemoveRows();
    void AddRows(const BankList& list);

    Owner& _owner;
    const char* _name;
    bool _stateWritable;
    netsnmp_table_data_set* _dataSet = nullptr;
    netsnmp_handler_registration* _registration = nullptr;
    PassState _pass = PassState::kOutside;
    bool _rowsInUse = false;                 ///< the agent holds rows of a SET
    const BankList* _waitingRows = nullptr;  ///< served once the agent no longer holds rows
};

/// The row in a request's name, from 1; 0 if the name has none.
unsigned long RequestedRow(const netsnmp_request_info& request);

/// The column in a request's name; 0 if the name has none.
unsigned RequestedColumn(const netsnmp_request_info& request);

/// The list's entry for a request; null if the list does not have the row.
const BankEntry* RequestedEntry(const BankList& list, const netsnmp_request_info& request);

/// The texts that differ between the providers when they compare list and service: `name`, and whole lines, not
/// formats.
struct BankCountLines {
    const char* name;
    const char* count;
    const char* size;
    const char* update;
};

/// Compares the service's count with the list and rebuilds the table if they differ. A count that cannot be read, or
/// that a table refuses, changes nothing. `getCount` is the provider's wrapper.
template <class GetCount, class Rebuild>
void FollowService(const tavos::core::Logger& logger, const BankCountLines& lines, const BankList& list,
                   GetCount&& getCount, Rebuild&& rebuild) {
    logger.Information("%s", lines.count);
    int count = 0;
    const bool counted = getCount(count) == 0;
    logger.Information("%s", lines.size);
    // See docs/contract.md, count-unread; fixed: docs/contract.md, same-total-unnoticed.
    if (!counted || static_cast<int>(list.size()) == count) return;
    if (!IsAccepted(logger, lines.name, "the number of rows", count, kMaxRows)) return;
    logger.Information("%s", lines.update);
    rebuild();
}

/// Answers a read of one cell. `readState` returns the value of column 3. Returns an SNMP error.
template <class ReadState>
int AnswerCell(const tavos::core::Logger& logger, const char* name, netsnmp_request_info* request,
               const BankEntry& entry, ReadState&& readState) {
    const auto& [bank, id] = entry.first;
    const auto column = RequestedColumn(*request);
    logger.Information("%s: table_info->colnum is %d", name, static_cast<int>(column));
    switch (column) {
        case kBankNameColumn:
            AnswerOctets(request, bank.data(), bank.size());
            return SNMP_ERR_NOERROR;
        case kBankIdColumn:
            AnswerInteger(request, id);
            return SNMP_ERR_NOERROR;
        case kBankStateColumn:
            AnswerInteger(request, readState(bank, id));
            return SNMP_ERR_NOERROR;
        // Fixed: docs/contract.md, column-4.
        case kUnusedColumn:
            return SNMP_ERR_NOERROR;
        default:
            logger.Error("%s: unknown colnum (%d)", name, static_cast<int>(column));
            return SNMP_ERR_GENERR;
    }
}
