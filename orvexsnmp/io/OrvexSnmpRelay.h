#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "core/OrvexSnmpBaseProvider.h"
#include "io/BankTable.h"
#include "tavos/interfaces/IRelayV3Provider.h"
#include "tavos/msgbus/MsgBus.h"

/// The camera's relay outputs: the table relayStatesTable (orvexEnterprise.1.3.2), whose state column drives the
/// relays, and NTCIP 1205 outputStatus and outputControl for relay 0 of the bank "BNK2". Agent's thread only.
class OrvexSnmpRelay final : public OrvexSnmpBaseProvider<OrvexSnmpRelay>, private BankTable::Owner {
public:
    /// Throws CreateClient's exceptions.
    explicit OrvexSnmpRelay(tavos::msgbus::MsgBus& bus);
    ~OrvexSnmpRelay() override = default;

    // The service's operations. Return 0, or -1 if the call failed; set outputs on success only.
    int GetRelayCount(int& count) const;
    int GetRelayState(const std::string& bank, int relayId, bool& state) const;
    int SetRelay(const std::string& bank, int relayId, int value) const;
    int ClearRelay(const std::string& bank, int relayId) const;

    // Fixed: docs/contract.md, unused-operations.
    /// The table's rows, in row order.
    BankList* GetRelayTableVar() { return &_list; }

    /// Rebuilds the list from the service; with `update` all states are 0. The table's rows stay as they are.
    void CreateRelayTable(bool update);

    /// Rebuilds the list and the table's rows; the first call registers the table. 0, or -1 when the agent refuses the
    /// registration.
    int init_relayTable(bool update);

    /// Unregisters the table; the next init_relayTable registers it again.
    void UnregisterTable() { _table.Unregister(); }

    static Netsnmp_Node_Handler handle_relayStates;
    // The handlers of its objects.
#include "objects/OrvexSnmpRelay.inc"

private:
    bool BeginTableRequest(netsnmp_agent_request_info* info, netsnmp_request_info* requests) override;
    int HandleRequests(netsnmp_agent_request_info* info, netsnmp_request_info* requests);
    int HandleCell(netsnmp_agent_request_info* info, netsnmp_request_info* request, const BankEntry& entry);
    static int RefusalOfMissingRow(const netsnmp_agent_request_info* info, netsnmp_request_info* request);
    int RememberRow(netsnmp_agent_request_info* info, netsnmp_request_info* request);
    int CommitRow(netsnmp_request_info* request) const;
    int ReadCell(const std::string& bank, int id) const;
    int Drive(const char* name, const std::string& bank, int relayId, bool energise) const;
    int CommitControl(const char* name, netsnmp_request_info* requests);

    std::unique_ptr<tavos::interfaces::IRelayV3Provider> _client;
    BankList _list;
    BankTable _table;
    std::array<std::uint8_t, 2> _committedControl{};  ///< outputControl as of the last commit
    std::array<std::uint8_t, 2> _control{};           ///< outputControl of the current request
    std::uint8_t _outputStatus = 0;                   ///< the last value that could be read
};
