#include "Lens.h"

#include <cmath>
#include <stdexcept>
#include <string>

namespace dome {

namespace {

constexpr double kNoTimeLimit = std::numeric_limits<double>::infinity();

AxisProperties LensDrive(double minimum, double maximum, double rate) {
    AxisProperties properties;
    properties.minimum = minimum;
    properties.maximum = maximum;
    properties.greatestSpeed = rate;
    properties.ownSpeed = rate;
    return properties;
}

}  // namespace

Zoom::Zoom() : _drive(LensDrive(kMinimum, kOpticalMaximum, kRate)) {}

void Zoom::SetMaximum(std::uint32_t maximum) {
    if (maximum < kMinimum || maximum > kGreatestMaximum) {
        throw std::out_of_range("maximum magnification " + std::to_string(maximum) + " outside " +
                                std::to_string(kMinimum) + " to " + std::to_string(kGreatestMaximum));
    }
    _drive.SetLimits(kMinimum, maximum);
}

std::uint32_t Zoom::Magnification() const {
    return static_cast<std::uint32_t>(std::lround(_drive.Position()));
}

std::uint32_t Zoom::Maximum() const {
    return static_cast<std::uint32_t>(std::lround(_drive.Maximum()));
}

Focus::Focus() : _drive(LensDrive(0, 100, kRate)) {
    _drive.Place(kSharp);
}

void Focus::MoveTo(double percent) {
    _focusing = false;
    _drive.MoveTo(percent, 0, kNoTimeLimit);
}

void Focus::Move(int direction) {
    _focusing = false;
    _drive.MoveAt(direction, kNoTimeLimit);
}

void Focus::Place(double percent) {
    _focusing = false;
    _drive.Place(percent);
}

void Focus::SetAuto(bool enabled) {
    _auto = enabled;
    Refocus(enabled);
}

void Focus::Refocus(bool start) {
    if (start) {
        _drive.MoveTo(kSharp, 0, kNoTimeLimit);
        _focusing = _drive.IsMoving();
    } else if (_focusing) {
        Move(0);
    }
}

void Focus::Tick(double seconds) {
    _drive.Tick(seconds);
    if (!_drive.IsMoving()) _focusing = false;
}

Iris::Iris() : _drive(LensDrive(0, 100, kRate)) {
    _drive.Place(kExposed);
}

void Iris::Move(int direction) {
    _drive.MoveAt(direction, kNoTimeLimit);
}

void Iris::SetAuto(bool enabled) {
    _auto = enabled;
    if (enabled) _drive.MoveTo(kExposed, 0, kNoTimeLimit);
}

}  // namespace dome
