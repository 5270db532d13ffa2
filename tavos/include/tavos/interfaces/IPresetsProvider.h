#pragma once

#include "tavos/Api.h"

namespace tavos::msgbus {
class IMsgBus;
}

namespace tavos::interfaces {

/// Stored positions, org.tavos.Presets1. No user of this platform calls it yet: a client can be had, and the service
/// can be present or missing, but it has no operation.
class TAVOS_API IPresetsProvider {
public:
    /// A client owned by the caller.
    static IPresetsProvider* CreateClient(msgbus::IMsgBus* bus);

    virtual ~IPresetsProvider() = default;
};

}  // namespace tavos::interfaces
