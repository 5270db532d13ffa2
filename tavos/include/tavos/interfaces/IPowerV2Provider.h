#pragma once

#include "tavos/Api.h"
#include "tavos/core/Event.h"

namespace tavos::msgbus {
class IMsgBus;
}

namespace tavos::interfaces {

/// The power supply's monitor, org.tavos.Power2. Status codes: 0 mains, 1 backup, 2 failing.
class TAVOS_API IPowerV2Provider {
public:
    /// A client owned by the caller.
    static IPowerV2Provider* CreateClient(msgbus::IMsgBus* bus);

    virtual ~IPowerV2Provider() = default;
    virtual int GetPowerStatus() = 0;
    /// (status); fired on the bus's event thread when the status changes.
    virtual core::Event1<int>& OnPowerStatusChange() = 0;
};

}  // namespace tavos::interfaces
