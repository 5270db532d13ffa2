#pragma once

#include <cstdint>
#include <vector>

#include "Axis.h"
#include "Banks.h"
#include "Lens.h"
#include "Sensors.h"

namespace dome {

/// A camera's properties; the defaults are the desk camera's.
struct CameraProperties {
    struct Positioner {
        double minimum;       ///< thousandths of a degree; 0 for the endless pan
        double maximum;       ///< likewise; a turn for the pan
        double speed;         ///< max, thousandths of a degree a second
        double defaultSpeed;  ///< of moves that name no speed, as a fraction of the max
        double accelerating;  ///< seconds from rest to the max speed
    };
    Positioner pan{0, 360000, 120000, 0.5, 0.2};
    Positioner tilt{-90000, 90000, 60000, 0.5, 0.2};
    Zoom::Properties zoom;
    double focusRate = Focus::kRate;
    double irisRate = Iris::kRate;
    double light = Iris::kLight;
    std::uint32_t presets = 64;
    std::vector<Banks::Size> alarms{{"BNK1", 4}, {"BNK2", 2}};
    std::vector<Banks::Size> relays{{"BNK1", 4}, {"BNK2", 2}};
    std::vector<int> temperatures{25, 22};  ///< degrees Celsius, one a sensor
    Sensors::Drift drift;
};

/// The camera. It knows no bus, thread or clock: time passes in Tick.
struct Camera {
    explicit Camera(const CameraProperties& properties = {});
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    void Tick(double seconds);
    bool IsMoving() const;

    /// True: Tick changes nothing.
    bool IsAtRest() const { return !IsMoving() && !sensors.IsDrifting(); }

    /// The focus percentage that makes the current view sharp: kSharp ahead at no magnification, up to 10 more to
    /// the right and less to the left (the sine of the pan), up to 20 more above and less below (the sine of the tilt),
    /// and up to 10 more with the zoom (its logarithm, to the end of the optical range).
    double SharpFocus() const;

    Axis pan;   ///< thousandths of a degree, growing clockwise
    Axis tilt;  ///< thousandths of a degree, positive upwards
    Zoom zoom;
    Focus focus;
    Iris iris;
    std::uint32_t presets;
    Banks alarms;
    Banks relays;
    Sensors sensors;

private:
    bool IsViewMoving() const;
};

/// The position in whole thousandths, as the camera reports it; on an endless axis below the maximum.
int Thousandths(const Axis& axis);

}  // namespace dome
