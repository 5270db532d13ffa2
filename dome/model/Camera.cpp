#include "Camera.h"

#include <cmath>

namespace dome {

namespace {

AxisProperties Positioner(double minimum, double maximum, double greatestSpeed) {
    AxisProperties properties;
    properties.minimum = minimum;
    properties.maximum = maximum;
    properties.greatestSpeed = greatestSpeed;
    properties.ownSpeed = greatestSpeed * Camera::kOwnSpeed;
    properties.acceleration = greatestSpeed / Camera::kSecondsToFullSpeed;
    return properties;
}

AxisProperties Pan() {
    AxisProperties properties = Positioner(0, Camera::kTurn, Camera::kPanSpeed);
    properties.endless = true;
    return properties;
}

}  // namespace

Camera::Camera()
    : pan(Pan()),
      tilt(Positioner(-90000, 90000, kTiltSpeed)),
      alarms({{"BNK1", 4}, {"BNK2", 2}}),
      relays({{"BNK1", 4}, {"BNK2", 2}}) {}

void Camera::Tick(double seconds) {
    pan.Tick(seconds);
    tilt.Tick(seconds);
    zoom.Tick(seconds);
    focus.Tick(seconds);
    iris.Tick(seconds);
}

bool Camera::IsMoving() const {
    return pan.IsMoving() || tilt.IsMoving() || zoom.Drive().IsMoving() || focus.Drive().IsMoving() ||
           iris.Drive().IsMoving();
}

int Thousandths(const Axis& axis) {
    const long rounded = std::lround(axis.Position());
    return static_cast<int>(axis.IsEndless() && rounded >= axis.Maximum() ? std::lround(axis.Minimum()) : rounded);
}

}  // namespace dome
