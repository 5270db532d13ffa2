#pragma once

#include "tavos/Api.h"

namespace tavos::msgbus {
class IMsgBus;
}

namespace tavos::interfaces {

/// The focus drive, org.tavos.Focus1.
class TAVOS_API IFocusProvider {
public:
    /// A client owned by the caller.
    static IFocusProvider* CreateClient(msgbus::IMsgBus* bus);

    virtual ~IFocusProvider() = default;
    virtual void SetAutoFocus(bool enabled) = 0;
    virtual void MoveFocus(int direction) = 0;  ///< -1 near, 0 stop, +1 far
};

}  // namespace tavos::interfaces
