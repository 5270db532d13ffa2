#pragma once

#include <cstdint>

#include "tavos/Api.h"

namespace tavos::msgbus {
class IMsgBus;
}

namespace tavos::interfaces {

/// The endless pan axis, org.tavos.Pan1. Positions are thousandths of a degree: 360000 a turn, growing clockwise.
/// Speeds and velocities are fractions of the axis's max speed, -1.0 to 1.0, positive clockwise. In a move to a
/// position a speed of 0 selects the axis's default speed. A move stops at its time limit, in seconds. For every
/// service interface: operations are synchronous and may be called from any thread, one call at a time. They throw
/// tavos::osa::Exception if the service is missing, refuses, or misses the deadline.
class TAVOS_API IPanProvider {
public:
    /// A client owned by the caller. It can be created while the service is missing; then only its operations throw.
    static IPanProvider* CreateClient(msgbus::IMsgBus* bus);

    virtual ~IPanProvider() = default;
    virtual void SetPosition(int position, int timeLimit) = 0;
    virtual void SetPositionAtSpeed(int position, double speed, int timeLimit) = 0;
    virtual std::uint32_t GetPosition() = 0;
    virtual std::uint32_t GetMinPosition() = 0;  ///< left limit
    virtual std::uint32_t GetMaxPosition() = 0;  ///< right limit
    virtual void SetRelativeVelocity(double velocity, int timeLimit) = 0;
    virtual double GetRelativeVelocity() = 0;
};

}  // namespace tavos::interfaces
