#pragma once

#include <cstdint>

#include "tavos/Api.h"

namespace tavos::msgbus {
class IMsgBus;
}

namespace tavos::interfaces {

/// The endless pan axis, org.tavos.Pan1. Positions are thousandths of a degree: 360000 a turn, growing clockwise.
/// Speeds and velocities are fractions of the axis's max speed, -1.0 to 1.0, positive clockwise; a speed of 0 in a
/// positioned move selects the axis's default speed. A time limit, in seconds, ends a move that lasts longer.
/// Here as in every service interface: operations are synchronous, throw tavos::osa::Exception when the service is
/// missing, refuses, or does not answer in time, and may be called from any thread, one call at a time.
class TAVOS_API IPanProvider {
public:
    /// A client owned by the caller. Works also while the service is missing; only its operations then throw.
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
