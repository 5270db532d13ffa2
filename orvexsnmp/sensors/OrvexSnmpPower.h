#pragma once

#include <memory>

#include "core/OrvexSnmpBaseProvider.h"
#include "tavos/interfaces/IPowerV2Provider.h"
#include "tavos/msgbus/MsgBus.h"

/// The power status code of the power service, an INTEGER.
class OrvexSnmpPower final : public OrvexSnmpBaseProvider<OrvexSnmpPower> {
public:
    /// Subscribes to the service's changes. Throws what the making of the client throws.
    explicit OrvexSnmpPower(tavos::msgbus::MsgBus& bus);
    ~OrvexSnmpPower() override = default;

    /// Agent's thread. Always sets `type`, the SNMP type of the object. Asks the service; 0, or -1 for a call that
    /// failed, with `value` left alone.
    int GetMibIntData(int& value, unsigned char& type) const;

    /// The bus's event thread: a change becomes a trap.
    void SendPowerTrap(int status);

private:
    std::unique_ptr<tavos::interfaces::IPowerV2Provider> _client;
};
