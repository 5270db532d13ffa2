#pragma once

#include "tavos/Api.h"

namespace tavos::msgbus {
class IMsgBus;
}

namespace tavos::interfaces {

/// Stored positions, org.tavos.Presets1. The interface has no operations yet. A client can be created while the service
/// is present or missing.
class TAVOS_API IPresetsProvider {
public:
    /// A client owned by the caller.
    static IPresetsProvider* CreateClient(msgbus::IMsgBus* bus);

    virtual ~IPresetsProvider() = default;
};

}  // namespace tavos::interfaces
