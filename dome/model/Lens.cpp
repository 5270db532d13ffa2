#include "Lens.h"

#include <cmath>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>

namespace dome {

namespace {

// The swings of an auto focus run: offsets from the sharp position, in percent. The moves from the sharp position over
// these offsets add up to kHuntDistance.
constexpr double kSwings[] = {6, -4, 2, -1, 0};

constexpr double kNoTimeLimit = std::numeric_limits<double>::infinity();

AxisProperties LensDrive(double minimum, double maximum, double rate) {
    AxisProperties properties;
    properties.minimum = minimum;
    properties.maximum = maximum;
    properties.maxSpeed = rate;
    properties.defaultSpeed = rate;
    return properties;
}

}  // namespace

Zoom::Zoom(const Properties& properties)
    : _properties(properties), _drive(LensDrive(kMinimum, properties.opticalMaximum, properties.rate)) {}

void Zoom::SetMaximum(std::uint32_t maximum) {
    if (maximum < kMinimum || maximum > CombinedMaximum()) {
        throw std::out_of_range("maximum magnification " + std::to_string(maximum) + " outside " +
                                std::to_string(kMinimum) + " to " + std::to_string(CombinedMaximum()));
    }
    _drive.SetLimits(kMinimum, maximum);
}

std::uint32_t Zoom::Magnification() const {
    return static_cast<std::uint32_t>(std::lround(_drive.Position()));
}

std::uint32_t Zoom::Maximum() const {
    return static_cast<std::uint32_t>(std::lround(_drive.Maximum()));
}

std::uint32_t Zoom::CombinedMaximum() const {
    return static_cast<std::uint32_t>(std::uint64_t{_properties.opticalMaximum} * _properties.digitalMaximum / 1000);
}

Focus::Focus(double rate, std::function<double()> sharp)
    : _drive(LensDrive(0, 100, rate)), _findSharp(std::move(sharp)) {
    _drive.JumpTo(kSharp);
}

void Focus::MoveTo(double percent) {
    _focusing = false;
    _drive.MoveTo(percent, 0, kNoTimeLimit);
}

void Focus::Move(int direction) {
    _focusing = false;
    _drive.MoveAt(direction, kNoTimeLimit);
}

void Focus::JumpTo(double percent) {
    _focusing = false;
    _drive.JumpTo(percent);
}

void Focus::SetAuto(bool enabled) {
    _auto = enabled;
    Refocus(enabled);
}

void Focus::Refocus(bool start) {
    if (start) {
        _sharp = _findSharp();
        _side = Percent() <= _sharp ? 1 : -1;  // swings past the sharp position first
        _swing = 0;
        _focusing = true;
        Swing();
    } else if (_focusing) {
        Move(0);
    }
}

void Focus::ViewChanged() {
    if (!_auto || (_drive.IsMoving() && !_focusing)) return;
    if (_focusing || std::fabs(_findSharp() - Percent()) > kUnsharp) Refocus(true);
}

void Focus::Swing() {
    if (_swing == std::size(kSwings)) {
        _focusing = false;
    } else {
        _drive.MoveTo(_sharp + _side * kSwings[_swing++], 0, kNoTimeLimit);
    }
}

void Focus::Observe(MoveObserver observer) {
    MoveObserver drive;
    drive.began = [this, began = std::move(observer.began)](MoveStart start) {
        const bool isLaterSwing = _focusing && _swing > 1;
        if (isLaterSwing) return;
        if (_focusing) start.target = _sharp;
        began(start);
    };
    drive.stopping = std::move(observer.stopping);
    drive.ended = [this, ended = std::move(observer.ended)](MoveEnd end) {
        const bool isAtTarget = end == MoveEnd::kArrived || end == MoveEnd::kLimit;
        const bool goesOn = _focusing && isAtTarget && _swing < std::size(kSwings);
        if (!goesOn) ended(end);
    };
    _drive.Observe(std::move(drive));
}

void Focus::Tick(double seconds) {
    double left = _drive.Tick(seconds);
    while (_focusing && !_drive.IsMoving()) {
        Swing();
        left = _drive.Tick(left);
    }
}

Iris::Iris(double rate, double light) : _drive(LensDrive(0, 100, rate)), _light(light) {
    _drive.JumpTo(100 - light);
}

void Iris::SetLight(double percent) {
    _light = percent;
    if (_auto) Expose();
}

void Iris::Move(int direction) {
    _drive.MoveAt(direction, kNoTimeLimit);
}

void Iris::SetAuto(bool enabled) {
    _auto = enabled;
    if (enabled) Expose();
}

void Iris::Expose() {
    _drive.MoveTo(100 - _light, 0, kNoTimeLimit);
}

}  // namespace dome
