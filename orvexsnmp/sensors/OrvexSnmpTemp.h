#pragma once

#include <memory>

#include "core/OrvexSnmpBaseProvider.h"
#include "tavos/interfaces/ITemperatureV2Provider.h"
#include "tavos/msgbus/MsgBus.h"

/// The temperature of sensor 0 in degrees Celsius: a signed reading, served as the Gauge32 of the same 32 bits.
class OrvexSnmpTemp final : public OrvexSnmpBaseProvider<OrvexSnmpTemp> {
public:
    /// Subscribes to the service's changes. Throws CreateClient's exceptions.
    explicit OrvexSnmpTemp(tavos::msgbus::MsgBus& bus);
    ~OrvexSnmpTemp() override = default;

    /// Agent's thread. Calls the service. Always sets `type`, the SNMP type of the object. Returns 0, or -1 if the call
    /// failed; then `value` stays unchanged.
    int GetMibIntData(int& value, unsigned char& type) const;

    /// The bus's event thread: sends a change as a trap.
    void SendTemperatureTrap(int sensor, int degrees);

private:
    std::unique_ptr<tavos::interfaces::ITemperatureV2Provider> _client;
};
