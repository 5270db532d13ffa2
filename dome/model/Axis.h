#pragma once

#include <cstdint>
#include <limits>
#include <optional>

namespace dome {

/// What a drive can do. Positions are in whatever unit the axis is measured in, speeds in units a second.
struct AxisProperties {
    double minimum = 0;
    double maximum = 0;  ///< an endless axis: the length of a turn above `minimum`, itself never a position
    bool endless = false;
    double greatestSpeed = 0;
    double ownSpeed = 0;  ///< of a positioned move that names no speed; at most greatestSpeed
    /// Units a second squared, both ways; infinite: the drive reaches its speed at once.
    double acceleration = std::numeric_limits<double>::infinity();
};

/// One motor: pan, tilt, and the lens's drives. It moves only in Tick; a new move replaces the one before, starting
/// from the velocity that the axis has. It is never beyond a limit and never faster than its greatest speed.
/// Speeds and velocities of the moves are fractions of the greatest speed, -1 to 1 (beyond that: taken as -1 or 1).
/// Time limits are in seconds of Tick's clock; at its limit a move is stopped as by Stop.
class Axis {
public:
    explicit Axis(const AxisProperties& properties);

    /// An endless axis takes the position modulo a turn and goes the way of the speed's sign, or with speed 0 the
    /// shorter way (growing, when both are equal). An axis with ends goes as far as its limit, whatever the sign.
    void MoveTo(double position, double speed, double timeLimit);

    void MoveAt(double velocity, double timeLimit);

    /// Slows down as fast as the drive can; at rest some ticks later.
    void Stop();

    /// Puts the axis, at rest, on that position, as a hand on the camera would (as MoveTo where it is out of range).
    void Place(double position);

    /// An axis that is out of the new range is put on the nearer end. Not for endless axes.
    void SetLimits(double minimum, double maximum);

    /// Returns the seconds, the last ones of them, that the axis was at rest.
    double Tick(double seconds);

    double Position() const { return _position; }
    double Velocity() const { return _velocity / _properties.greatestSpeed; }

    /// False: Tick will change nothing.
    bool IsMoving() const { return _velocity != 0 || _mode != Mode::kRest; }

    /// The end of the positioned move that runs or was the last and was not broken off.
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
    double _remaining = 0;  // signed way to the target of a positioned move
    double _timeLeft = 0;
    std::optional<double> _target;
};

}  // namespace dome
