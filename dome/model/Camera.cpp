#include "Camera.h"

#include <algorithm>
#include <cmath>

namespace dome {

namespace {

constexpr double kRadians = 3.141592653589793 / 180000;  // a thousandth of a degree

// Seconds; longer ticks are split, so that the focus reacts soon to a change of the view.
constexpr double kMaxTick = 0.02;

AxisProperties Drive(const CameraProperties::Positioner& positioner, bool endless) {
    AxisProperties properties;
    properties.minimum = positioner.minimum;
    properties.maximum = positioner.maximum;
    properties.endless = endless;
    properties.maxSpeed = positioner.speed;
    properties.defaultSpeed = positioner.speed * positioner.defaultSpeed;
    properties.acceleration = positioner.speed / positioner.accelerating;
    return properties;
}

}  // namespace

Camera::Camera(const CameraProperties& properties)
    : pan(Drive(properties.pan, true)),
      tilt(Drive(properties.tilt, false)),
      zoom(properties.zoom),
      focus(properties.focusRate, [this] { return SharpFocus(); }),
      iris(properties.irisRate, properties.light),
      presets(properties.presets),
      alarms(properties.alarms),
      relays(properties.relays),
      sensors(properties.temperatures, properties.drift) {}

void Camera::Tick(double seconds) {
    sensors.Tick(seconds);
    while (seconds > 0 && IsMoving()) {
        const double tick = std::min(seconds, kMaxTick);
        const bool wasViewMoving = IsViewMoving();
        pan.Tick(tick);
        tilt.Tick(tick);
        zoom.Tick(tick);
        focus.Tick(tick);
        iris.Tick(tick);
        if (wasViewMoving && !IsViewMoving()) focus.ViewChanged();
        seconds -= tick;
    }
}

bool Camera::IsViewMoving() const {
    return pan.IsMoving() || tilt.IsMoving() || zoom.Drive().IsMoving();
}

bool Camera::IsMoving() const {
    return IsViewMoving() || focus.Drive().IsMoving() || iris.Drive().IsMoving();
}

double Camera::SharpFocus() const {
    const double optical = std::min<double>(zoom.Drive().Position(), zoom.OpticalMaximum());
    const double zoomed = std::log(optical / Zoom::kMinimum) / std::log(20.0);
    return Focus::kSharp + 10 * std::sin(pan.Position() * kRadians) + 20 * std::sin(tilt.Position() * kRadians) +
           10 * std::min(zoomed, 1.0);
}

int Thousandths(const Axis& axis) {
    const long rounded = std::lround(axis.Position());
    return static_cast<int>(axis.IsEndless() && rounded >= axis.Maximum() ? std::lround(axis.Minimum()) : rounded);
}

}  // namespace dome
