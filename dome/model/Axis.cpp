#include "Axis.h"

#include <algorithm>
#include <cmath>

namespace dome {

namespace {

// Seconds; short enough that acceleration in steps stays within a thousandth of the true curve.
constexpr double kMaxIntegrationStep = 0.001;

}  // namespace

Axis::Axis(const AxisProperties& properties) : _properties(properties), _position(properties.minimum) {
    if (!_properties.endless && Clamp(0) == 0) _position = 0;
}

void Axis::MoveTo(double position, double speed, double timeLimit) {
    Interrupt(MoveEnd::kReplaced);
    const double target = _properties.endless ? Wrap(position) : Clamp(position);
    _remaining = target - _position;
    if (_properties.endless) {
        const double turn = _properties.maximum - _properties.minimum;
        const double growing = _remaining < 0 ? _remaining + turn : _remaining;
        const bool grow = speed > 0 || (speed == 0 && growing <= turn / 2) || growing == 0;
        _remaining = grow ? growing : growing - turn;
    }
    const double magnitude = std::min(std::fabs(speed), 1.0) * _properties.maxSpeed;
    _cruise = speed == 0 ? _properties.defaultSpeed : magnitude;
    _target = target;
    _timeLeft = timeLimit;
    _mode = Mode::kPositioned;
    Begin(_properties.endless || target == position ? MoveEnd::kArrived : MoveEnd::kLimit);
    if (_remaining == 0 && _velocity == 0) ComeToRest(target);
}

void Axis::MoveAt(double velocity, double timeLimit) {
    if (velocity == 0) return Stop();
    Interrupt(MoveEnd::kReplaced);
    _cruise = std::clamp(velocity, -1.0, 1.0) * _properties.maxSpeed;
    _target.reset();
    _timeLeft = timeLimit;
    _mode = Mode::kContinuous;
    Begin(MoveEnd::kLimit);
    if (_velocity == 0 && DistanceToGo() == 0) ComeToRest(_position);
}

void Axis::Stop() {
    if (_expected && _mode != Mode::kRest && _observer.stopping) _observer.stopping();
    Brake(MoveEnd::kStopped);
}

void Axis::JumpTo(double position) {
    Interrupt(MoveEnd::kJumped);
    ComeToRest(_properties.endless ? Wrap(position) : Clamp(position));
    _target.reset();
}

void Axis::SetLimits(double minimum, double maximum) {
    _properties.minimum = minimum;
    _properties.maximum = maximum;
    if (Clamp(_position) != _position) {
        _position = Clamp(_position);
        Interrupt(MoveEnd::kLimit);
        JumpTo(_position);
    }
    if (_mode == Mode::kPositioned && Clamp(*_target) != *_target) {
        _target = Clamp(*_target);
        _remaining = *_target - _position;
        _expected = MoveEnd::kLimit;
    }
}

double Axis::Tick(double seconds) {
    while (seconds > 0 && IsMoving()) {
        const bool timed = _mode != Mode::kRest;
        if (timed && _timeLeft <= 0) {
            Brake(MoveEnd::kTimeLimit);
            continue;
        }
        double step = std::min(seconds, kMaxIntegrationStep);
        if (timed) step = std::min(step, _timeLeft);
        Advance(step);
        _timeLeft -= step;
        seconds -= step;
    }
    return std::max(seconds, 0.0);
}

double Axis::Wrap(double position) const {
    const double turn = _properties.maximum - _properties.minimum;
    const double offset = std::fmod(position - _properties.minimum, turn);
    const double wrapped = offset < 0 ? offset + turn : offset;
    // The sum of a tiny negative offset and a turn can be the turn itself.
    return _properties.minimum + (wrapped < turn ? wrapped : 0);
}

double Axis::Clamp(double position) const {
    return std::clamp(position, _properties.minimum, _properties.maximum);
}

double Axis::DistanceToGo() const {
    if (_mode == Mode::kPositioned) return _remaining;
    if (_properties.endless) return std::copysign(std::numeric_limits<double>::infinity(), _cruise);
    return Limit() - _position;
}

double Axis::Limit() const {
    return _cruise > 0 ? _properties.maximum : _properties.minimum;
}

double Axis::WantedVelocity() const {
    if (_mode == Mode::kRest) return 0;
    const double distance = DistanceToGo();
    double speed = std::fabs(_cruise);
    if (std::isfinite(_properties.acceleration)) {
        // The max speed from which steps of the max length still come to rest within the distance.
        const double a = _properties.acceleration;
        const double half = kMaxIntegrationStep / 2;
        speed = std::min(speed, a * (std::sqrt(half * half + 2 * std::fabs(distance) / a) - half));
    }
    return distance < 0 ? -speed : speed;
}

bool Axis::Arrives(double distance, double step) const {
    if (_mode == Mode::kRest) return false;
    // Above this speed it overshoots the target and comes back. Below it, some speed may be left because the last steps
    // are of uneven length; the axis drops that speed at once.
    if (std::fabs(_velocity) > 4 * _properties.acceleration * kMaxIntegrationStep) return false;
    const double travel = _velocity * step;
    if (travel * distance >= 0 && std::fabs(travel) >= std::fabs(distance)) return true;
    // This close, the steps would get shorter and shorter and never reach the target.
    return std::isfinite(_properties.acceleration) &&
           std::fabs(distance) <= _properties.acceleration * kMaxIntegrationStep * kMaxIntegrationStep / 2;
}

void Axis::Advance(double step) {
    const double change = _properties.acceleration * step;
    _velocity += std::clamp(WantedVelocity() - _velocity, -change, change);
    if (Arrives(DistanceToGo(), step)) {
        ComeToRest(_mode == Mode::kPositioned ? *_target : Limit());
        return;
    }
    const double travel = _velocity * step;
    _remaining -= travel;
    _position += travel;
    if (_properties.endless) {
        _position = Wrap(_position);
    } else if (Clamp(_position) != _position) {
        _position = Clamp(_position);
        _velocity = 0;
        _remaining = _target ? *_target - _position : 0;
    }
    if (_mode == Mode::kRest && _velocity == 0) ComeToRest(_position);
}

void Axis::Brake(MoveEnd end) {
    if (_expected && _mode != Mode::kRest) _expected = end;
    _cruise = 0;
    _target.reset();
    _mode = Mode::kRest;
    if (_velocity == 0) ComeToRest(_position);
}

void Axis::ComeToRest(double position) {
    _position = position;
    _velocity = 0;
    _mode = Mode::kRest;
    if (_expected) End(*_expected);
}

void Axis::Begin(MoveEnd expected) {
    _expected = expected;
    if (!_observer.began) return;
    const double speed = _target ? std::copysign(_cruise, _remaining) : _cruise;
    _observer.began({_position, _target, speed / _properties.maxSpeed});
}

void Axis::End(MoveEnd end) {
    _expected.reset();
    if (_observer.ended) _observer.ended(end);
}

/// Ends the current move where it is. One that is already braking ends as it would have at rest.
void Axis::Interrupt(MoveEnd end) {
    if (_expected) End(_mode == Mode::kRest ? *_expected : end);
}

}  // namespace dome
