#pragma once

#include <cstdint>
#include <limits>
#include <optional>

namespace dome {

/// What a drive can do. Positions are in the axis's unit, speeds in units a second.
struct AxisProperties {
    double minimum = 0;
    double maximum = 0;  ///< on an endless axis `minimum` plus one turn; not a position itself
    bool endless = false;
    double maxSpeed = 0;
    double defaultSpeed = 0;  ///< of positioned moves that name no speed; at most maxSpeed
    /// Units a second squared, speeding up and braking; infinite: the drive reaches its speed at once.
    double acceleration = std::numeric_limits<double>::infinity();
};

/// One motor: pan, tilt, and the lens's drives. It moves only in Tick; a new move replaces the previous one and starts
/// at the axis's current velocity. It never passes a limit or its max speed. Speeds and velocities of the moves are
/// fractions of the max speed, -1 to 1 (clamped to that range). Time limits are in seconds of Tick's clock; at its
/// limit a move is stopped as by Stop.
class Axis {
public:
    explicit Axis(const AxisProperties& properties);

    /// An endless axis takes the position modulo a turn. It moves in the direction of the speed's sign; with speed 0 in
    /// the shorter direction (towards larger positions when both are equal). An axis with ends moves towards the
    /// position, at most to its limit, and ignores the sign.
    void MoveTo(double position, double speed, double timeLimit);

    void MoveAt(double velocity, double timeLimit);

    /// Brakes at full deceleration; at rest some ticks later.
    void Stop();

    /// Sets the position at once, without motion, and ends any move. Out of range: as MoveTo.
    void JumpTo(double position);

    /// Sets an axis that is out of the new range to the nearer end. Not for endless axes.
    void SetLimits(double minimum, double maximum);

    /// Returns for how many of the seconds, at their end, the axis was at rest.
    double Tick(double seconds);

    double Position() const { return _position; }
    double Velocity() const { return _velocity / _properties.maxSpeed; }

    /// False: Tick changes nothing.
    bool IsMoving() const { return _velocity != 0 || _mode != Mode::kRest; }

    /// The target of the current or last positioned move; none after another kind of move.
    std::optional<double> Target() const { return _target; }

    bool IsEndless() const { return _properties.endless; }
    double Minimum() const { return _properties.minimum; }
    double Maximum() const { return _properties.maximum; }

private:
    enum class Mode { kRest, kPositioned, kContinuous };

    double Wrap(double position) const;
    double Clamp(double position) const;
    double DistanceToGo() const;
    double Limit() const;
    double WantedVelocity() const;
    bool Arrives(double distance, double step) const;
    void Advance(double step);
    void ComeToRest(double position);

    AxisProperties _properties;
    Mode _mode = Mode::kRest;
    double _position = 0;
    double _velocity = 0;   // units a second
    double _cruise = 0;     // units a second; signed in a continuous move
    double _remaining = 0;  // signed distance to the target of a positioned move
    double _timeLeft = 0;
    std::optional<double> _target;
};

}  // namespace dome
