#pragma once

#include <cstdint>

#include "tavos/Api.h"

namespace tavos::msgbus {
class IMsgBus;
}

namespace tavos::interfaces {

/// Stored positions, org.tavos.Presets2.
class TAVOS_API IPresetsV2Provider {
public:
    /// A client owned by the caller.
    static IPresetsV2Provider* CreateClient(msgbus::IMsgBus* bus);

    virtual ~IPresetsV2Provider() = default;
    virtual std::uint32_t GetMaxPresets() = 0;  ///< number of presets of the camera
};

}  // namespace tavos::interfaces
