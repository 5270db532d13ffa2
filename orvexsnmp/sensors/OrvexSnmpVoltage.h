#pragma once

#include <memory>

#include "core/OrvexSnmpBaseProvider.h"
#include "tavos/interfaces/IVoltageV2Provider.h"
#include "tavos/msgbus/MsgBus.h"

/// The voltage status code of the voltage service, an INTEGER.
class OrvexSnmpVoltage final : public OrvexSnmpBaseProvider<OrvexSnmpVoltage> {
public:
    /// Subscribes to the service's changes. Throws CreateClient's exceptions.
    explicit OrvexSnmpVoltage(tavos::msgbus::MsgBus& bus);
    ~OrvexSnmpVoltage() override = default;

    /// Agent's thread. Calls the service. Always sets `type`, the SNMP type of the object. Returns 0, or -1 if the call
    /// failed; then `value` stays unchanged.
    int GetMibIntData(int& value, unsigned char& type) const;

    /// The bus's event thread: sends a change as a trap.
    void SendVoltageTrap(int status);

private:
    std::unique_ptr<tavos::interfaces::IVoltageV2Provider> _client;
};
