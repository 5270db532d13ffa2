#pragma once

#include "Arguments.h"
#include "dome/model/Camera.h"
#include "tavos/interfaces/IAxisProvider.h"

namespace dome {

/// A position beyond a limit is no error: the axis stops at the limit.
class TiltService final : public tavos::interfaces::IAxisProvider {
public:
    explicit TiltService(Axis& axis) : _axis(axis) {}

    void SetPosition(int position, int timeLimit) override { SetPositionAtSpeed(position, 0, timeLimit); }

    void SetPositionAtSpeed(int position, double speed, int timeLimit) override {
        CheckFraction("speed", speed);
        CheckTimeLimit(timeLimit);
        _axis.MoveTo(position, speed, timeLimit);
    }

    std::uint32_t GetPosition() override { return static_cast<std::uint32_t>(Thousandths(_axis)); }

    void SetRelativeVelocity(double velocity, int timeLimit) override {
        CheckFraction("velocity", velocity);
        CheckTimeLimit(timeLimit);
        _axis.MoveAt(velocity, timeLimit);
    }

    double GetRelativeVelocity() override { return _axis.Velocity(); }
    int GetMinPosition() override { return static_cast<int>(_axis.Minimum()); }
    int GetMaxPosition() override { return static_cast<int>(_axis.Maximum()); }

private:
    Axis& _axis;
};

}  // namespace dome
