#pragma once

#include "tavos/Api.h"

namespace tavos::msgbus {
class IMsgBus;
}

namespace tavos::interfaces {

/// Stored positions, org.tavos.Presets1. It has no operation yet; a client can be created, and the service can be
/// present or missing.
class TAVOS_API IPresetsProvider {
public:
    /// A client owned by the caller.
    static IPresetsProvider* CreateClient(msgbus::IMsgBus* bus);

    virtual ~IPresetsProvider() = default;
};

}  // namespace tavos::interfaces
