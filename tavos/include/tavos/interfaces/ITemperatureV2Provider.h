#pragma once

#include "tavos/Api.h"
#include "tavos/core/Event.h"

namespace tavos::msgbus {
class IMsgBus;
}

namespace tavos::interfaces {

/// Temperature sensors, numbered from 0, org.tavos.Temperature2. Whole degrees Celsius, signed.
class TAVOS_API ITemperatureV2Provider {
public:
    /// A client owned by the caller.
    static ITemperatureV2Provider* CreateClient(msgbus::IMsgBus* bus);

    virtual ~ITemperatureV2Provider() = default;
    virtual int GetTemperatureDegreesCelsius(int sensor) = 0;
    /// (sensor, degrees); fired on the bus's event thread when a reading changes.
    virtual core::Event2<int, int>& OnTemperatureChange() = 0;
};

}  // namespace tavos::interfaces
