#pragma once

#include <cstdint>

#include "Axis.h"
#include "Banks.h"
#include "Lens.h"
#include "Sensors.h"

namespace dome {

/// The camera. It knows no bus, no thread and no clock of its own: time passes in Tick.
struct Camera {
    static constexpr double kTurn = 360000;      ///< thousandths of a degree
    static constexpr double kPanSpeed = 120000;  ///< thousandths of a degree a second, the greatest
    static constexpr double kTiltSpeed = 60000;  ///< likewise
    static constexpr double kOwnSpeed = 0.5;     ///< fraction of the greatest: of moves that name no speed
    static constexpr double kSecondsToFullSpeed = 0.2;

    Camera();

    void Tick(double seconds);
    bool IsMoving() const;

    Axis pan;   ///< thousandths of a degree, growing clockwise
    Axis tilt;  ///< thousandths of a degree, positive upwards
    Zoom zoom;
    Focus focus;
    Iris iris;
    std::uint32_t presets = 64;
    Banks alarms;
    Banks relays;
    Sensors sensors;
};

/// A position in the whole thousandths that the camera reports; of an endless axis it stays below the maximum.
int Thousandths(const Axis& axis);

}  // namespace dome
