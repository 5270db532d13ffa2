#pragma once

#include "tavos/Api.h"
#include "tavos/core/Event.h"

namespace tavos::msgbus {
class IMsgBus;
}

namespace tavos::interfaces {

/// The supply voltage's monitor, org.tavos.Voltage2. Status codes: 0 normal, 1 low, 2 high.
class TAVOS_API IVoltageV2Provider {
public:
    /// A client owned by the caller.
    static IVoltageV2Provider* CreateClient(msgbus::IMsgBus* bus);

    virtual ~IVoltageV2Provider() = default;
    virtual int GetVoltageStatus() = 0;
    /// (status); fired on the bus's event thread when the status changes.
    virtual core::Event1<int>& OnVoltageStatusChange() = 0;
};

}  // namespace tavos::interfaces
