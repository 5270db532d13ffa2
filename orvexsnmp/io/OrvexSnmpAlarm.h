#pragma once

#include <memory>
#include <string>

#include "core/OrvexSnmpBaseProvider.h"
#include "io/BankTable.h"
#include "tavos/interfaces/IAlarmV3Provider.h"
#include "tavos/msgbus/MsgBus.h"

/// The camera's alarm inputs: the table alarmStatesTable (orvexEnterprise.1.3.1), and NTCIP 1205 inputStatus, whose
/// bit 0 is input 0 of the bank "BNK2". Agent's thread only.
class OrvexSnmpAlarm final : public OrvexSnmpBaseProvider<OrvexSnmpAlarm>, private BankTable::Owner {
public:
    /// Throws CreateClient's exceptions.
    explicit OrvexSnmpAlarm(tavos::msgbus::MsgBus& bus);
    ~OrvexSnmpAlarm() override = default;

    // The service's operations. Return 0, or -1 if the call failed; set outputs on success only.
    int GetAlarmCount(int& count) const;
    int GetAlarmState(const std::string& bank, int alarmId, bool& state) const;

    // Fixed: docs/contract.md, unused-operations.
    /// The table's rows, in row order.
    BankList* GetAlarmTableVar() { return &_list; }

    /// Rebuilds the list from the service; with `update` all states are 0.
    void CreateAlarmTable(bool update);

    /// Rebuilds the list and the table's rows; the first call registers the table. 0, or -1 when the agent refuses the
    /// registration.
    int init_alarmTable(bool update);

    /// Unregisters the table; the next init_alarmTable registers it again.
    void UnregisterTable() { _table.Unregister(); }

    static Netsnmp_Node_Handler handle_alarmStates;
    // The handlers of its objects.
#include "objects/OrvexSnmpAlarm.inc"

private:
    bool BeginTableRequest(netsnmp_agent_request_info* info, netsnmp_request_info* requests) override;
    int ReadCell(const std::string& bank, int id) const;

    std::unique_ptr<tavos::interfaces::IAlarmV3Provider> _client;
    BankList _list;
    BankTable _table;
    std::uint8_t _inputStatus = 0;  ///< the last value that could be read
};
