#pragma once

#include "tavos/Api.h"

namespace tavos::msgbus {
class IMsgBus;
}

namespace tavos::interfaces {

/// The dome's fan, org.tavos.Fan2.
class TAVOS_API IFanV2Provider {
public:
    /// A client owned by the caller.
    static IFanV2Provider* CreateClient(msgbus::IMsgBus* bus);

    virtual ~IFanV2Provider() = default;
    virtual bool IsRunning() = 0;
};

}  // namespace tavos::interfaces
