#pragma once

#include <cstdint>

#include "tavos/Api.h"

namespace tavos::msgbus {
class IMsgBus;
}

namespace tavos::interfaces {

/// An axis with two ends, org.tavos.Axis1.NAME (the desk camera has "tilt"). Positions are signed thousandths of a
/// degree, positive upwards; speeds, velocities and time limits as in IPanProvider.
class TAVOS_API IAxisProvider {
public:
    /// A client of the axis of that name, owned by the caller.
    static IAxisProvider* CreateClient(msgbus::IMsgBus* bus, const char* axis);

    virtual ~IAxisProvider() = default;
    virtual void SetPosition(int position, int timeLimit) = 0;
    virtual void SetPositionAtSpeed(int position, double speed, int timeLimit) = 0;
    virtual std::uint32_t GetPosition() = 0;  ///< the signed position's 32 bits
    virtual void SetRelativeVelocity(double velocity, int timeLimit) = 0;
    virtual double GetRelativeVelocity() = 0;
    /// The ends of the range: the min position is the lowest, the max position the highest. The module's log lines call
    /// the first one topLimit and the second one bottomLimit; it does not use them otherwise.
    virtual int GetMinPosition() = 0;
    virtual int GetMaxPosition() = 0;
};

}  // namespace tavos::interfaces
