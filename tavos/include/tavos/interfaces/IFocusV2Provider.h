#pragma once

#include "tavos/Api.h"

namespace tavos::msgbus {
class IMsgBus;
}

namespace tavos::interfaces {

/// The positioned focus drive, org.tavos.Focus2. Positions and translations are percentages, 0.0 to 100.0.
class TAVOS_API IFocusV2Provider {
public:
    /// A client owned by the caller.
    static IFocusV2Provider* CreateClient(msgbus::IMsgBus* bus);

    virtual ~IFocusV2Provider() = default;
    virtual void AutoFocus(bool start) = 0;  ///< runs the auto focus once, in any mode
    virtual double GetMinPosition() = 0;
    virtual double GetMaxPosition() = 0;
    virtual double GetMinTranslation() = 0;
    virtual double GetMaxTranslation() = 0;
    virtual double GetPosition() = 0;
    virtual void SetPosition(double position) = 0;
    virtual void RelativeFocus(double translation) = 0;
};

}  // namespace tavos::interfaces
