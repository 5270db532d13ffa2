#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <utility>

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

/// How a move ended.
enum class MoveEnd {
    kArrived,    ///< at its target
    kReplaced,   ///< the next move began
    kStopped,    ///< Stop
    kLimit,      ///< at an end of the axis: a continuous move, or one whose target was beyond it
    kTimeLimit,  ///< its time limit
    kJumped      ///< JumpTo
};

/// A move as it begins.
struct MoveStart {
    double from;
    std::optional<double> target;  ///< none: a continuous move
    double speed;                  ///< a fraction of the max speed; negative: towards smaller positions
};

/// Sees the moves of an axis: all members are set. Each move that began ends once, and before the next one begins. A
/// move that changes nothing begins and ends at once.
struct MoveObserver {
    std::function<void(const MoveStart& start)> began;
    std::function<void()> stopping;          ///< Stop has begun to brake the move
    std::function<void(MoveEnd end)> ended;  ///< Position() is where it ended
};

/// One motor: pan, tilt, and the lens's drives. It moves only in Tick; a new move replaces the previous one and starts
/// at the axis's current velocity. It never passes a limit or its max speed. Speeds and velocities of the moves are
/// fractions of the max speed, -1 to 1 (clamped to that range). Time limits are in seconds of Tick's clock; at its
/// limit a move is stopped as by Stop.
class Axis {
public:
    explicit Axis(const AxisProperties& properties);

    /// Replaces the observer before. A move that was stopped or has reached its time limit ends when the axis is at
    /// rest, or when the next move begins.
    void Observe(MoveObserver observer) { _observer = std::move(observer); }

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
    void Brake(MoveEnd end);
    void ComeToRest(double position);
    void Begin(MoveEnd expected);
    void End(MoveEnd end);
    void Interrupt(MoveEnd end);

    AxisProperties _properties;
    Mode _mode = Mode::kRest;
    double _position = 0;
    double _velocity = 0;   // units a second
    double _cruise = 0;     // units a second; signed in a continuous move
    double _remaining = 0;  // signed distance to the target of a positioned move
    double _timeLeft = 0;
    std::optional<double> _target;
    MoveObserver _observer;
    std::optional<MoveEnd> _expected;  // how the current move ends unless something else happens; none: no move
};

}  // namespace dome
