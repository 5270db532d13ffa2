#pragma once

#include <memory>

#include "core/OrvexSnmpBaseProvider.h"
#include "tavos/interfaces/IVoltageV2Provider.h"
#include "tavos/msgbus/MsgBus.h"

/// The voltage status code of the voltage service, an INTEGER.
class OrvexSnmpVoltage final : public OrvexSnmpBaseProvider<OrvexSnmpVoltage> {
public:
    /// Subscribes to the service's changes. Throws what CreateClient throws.
    explicit OrvexSnmpVoltage(tavos::msgbus::MsgBus& bus);
    ~OrvexSnmpVoltage() override = default;

    /// Agent's thread. Always sets `type`, the SNMP type of the object. Calls the service. 0, or -1 for a call that
    /// failed; `value` then stays unchanged.
    int GetMibIntData(int& value, unsigned char& type) const;

    /// The bus's event thread: sends a change as a trap.
    void SendVoltageTrap(int status);

private:
    std::unique_ptr<tavos::interfaces::IVoltageV2Provider> _client;
};
