#pragma once

#include <memory>

#include "core/OrvexSnmpBaseProvider.h"
#include "tavos/interfaces/IPowerV2Provider.h"
#include "tavos/msgbus/MsgBus.h"

/// The power status code of the power service, an INTEGER.
class OrvexSnmpPower final : public OrvexSnmpBaseProvider<OrvexSnmpPower> {
public:
    /// Subscribes to the service's changes. Throws CreateClient's exceptions.
    explicit OrvexSnmpPower(tavos::msgbus::MsgBus& bus);
    ~OrvexSnmpPower() override = default;

    /// Agent's thread. Calls the service. Always sets `type`, the SNMP type of the object. Returns 0, or -1 if the call
    /// failed; then `value` stays unchanged.
    int GetMibIntData(int& value, unsigned char& type) const;

    /// The bus's event thread: sends a change as a trap.
    void SendPowerTrap(int status);

private:
    std::unique_ptr<tavos::interfaces::IPowerV2Provider> _client;
};
