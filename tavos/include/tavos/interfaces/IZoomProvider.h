#pragma once

#include <cstdint>

#include "tavos/Api.h"

namespace tavos::msgbus {
class IMsgBus;
}

namespace tavos::interfaces {

/// The zoom lens, org.tavos.Zoom1. Magnifications are in thousandths: 1000 is 1.0x. Time limits are in seconds.
class TAVOS_API IZoomProvider {
public:
    /// A client owned by the caller.
    static IZoomProvider* CreateClient(msgbus::IMsgBus* bus);

    virtual ~IZoomProvider() = default;
    virtual void SetMagnificationThousandthsX(std::uint32_t magnification, int timeLimit) = 0;
    virtual void SetMaxMagnificationThousandthsX(std::uint32_t magnification) = 0;
    virtual std::uint32_t GetMagnificationThousandthsX() = 0;
    virtual std::uint32_t GetMaxMagnificationThousandthsX() = 0;
    virtual std::uint32_t GetMaxDigitalMagnificationThousandthsX() = 0;
    virtual std::uint32_t GetMaxOpticalMagnificationThousandthsX() = 0;
    virtual void ZoomRelative(int direction, int timeLimit) = 0;  ///< +1 in, -1 out, 0 stop
};

}  // namespace tavos::interfaces
