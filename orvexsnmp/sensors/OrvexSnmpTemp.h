#pragma once

#include <memory>

#include "core/OrvexSnmpBaseProvider.h"
#include "tavos/interfaces/ITemperatureV2Provider.h"
#include "tavos/msgbus/MsgBus.h"

/// The temperature of sensor 0, degrees Celsius: a signed reading, served as a Gauge32 of its 32 bits.
class OrvexSnmpTemp final : public OrvexSnmpBaseProvider<OrvexSnmpTemp> {
public:
    /// Subscribes to the service's changes. Throws what the making of the client throws.
    explicit OrvexSnmpTemp(tavos::msgbus::MsgBus& bus);
    ~OrvexSnmpTemp() override = default;

    /// Agent's thread. Always sets `type`, the SNMP type of the object. Asks the service; 0, or -1 for a call that
    /// failed, with `value` left alone.
    int GetMibIntData(int& value, unsigned char& type) const;

    /// The bus's event thread: a change becomes a trap.
    void SendTemperatureTrap(int sensor, int degrees);

private:
    std::unique_ptr<tavos::interfaces::ITemperatureV2Provider> _client;
};
