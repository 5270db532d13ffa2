#pragma once

#include "tavos/Api.h"

namespace tavos::msgbus {
class IMsgBus;
}

namespace tavos::interfaces {

/// The iris, org.tavos.Iris1.
class TAVOS_API IIrisProvider {
public:
    /// A client owned by the caller.
    static IIrisProvider* CreateClient(msgbus::IMsgBus* bus);

    virtual ~IIrisProvider() = default;
    virtual void SetAutoIris(bool enabled) = 0;
    virtual bool GetAutoIris() = 0;
    virtual void MoveIris(int direction) = 0;  ///< +1 opens, -1 closes, 0 stops
};

}  // namespace tavos::interfaces
