#pragma once

#include "Arguments.h"
#include "dome/model/Camera.h"
#include "tavos/interfaces/IPanProvider.h"

namespace dome {

class PanService final : public tavos::interfaces::IPanProvider {
public:
    explicit PanService(Axis& axis) : _axis(axis) {}

    void SetPosition(int position, int timeLimit) override { SetPositionAtSpeed(position, 0, timeLimit); }

    void SetPositionAtSpeed(int position, double speed, int timeLimit) override {
        CheckFraction("speed", speed);
        CheckTimeLimit(timeLimit);
        _axis.MoveTo(position, speed, timeLimit);
    }

    std::uint32_t GetPosition() override { return static_cast<std::uint32_t>(Thousandths(_axis)); }
    std::uint32_t GetMinPosition() override { return static_cast<std::uint32_t>(_axis.Minimum()); }
    /// The last position before a full turn.
    std::uint32_t GetMaxPosition() override { return static_cast<std::uint32_t>(_axis.Maximum()) - 1; }

    void SetRelativeVelocity(double velocity, int timeLimit) override {
        CheckFraction("velocity", velocity);
        CheckTimeLimit(timeLimit);
        _axis.MoveAt(velocity, timeLimit);
    }

    double GetRelativeVelocity() override { return _axis.Velocity(); }

private:
    Axis& _axis;
};

}  // namespace dome
