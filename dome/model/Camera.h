#pragma once

#include <cstdint>
#include <vector>

#include "Axis.h"
#include "Banks.h"
#include "Lens.h"
#include "Sensors.h"

namespace dome {

/// What a camera is; as it stands here, the desk camera.
struct CameraProperties {
    struct Positioner {
        double minimum;       ///< thousandths of a degree; of the pan, that turns without an end: 0
        double maximum;       ///< likewise; of the pan: the turn
        double speed;         ///< thousandths of a degree a second, the greatest
        double ownSpeed;      ///< fraction of the greatest: of moves that name no speed
        double accelerating;  ///< seconds from rest to the greatest speed
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

/// The camera. It knows no bus, no thread and no clock of its own: time passes in Tick.
struct Camera {
    explicit Camera(const CameraProperties& properties = {});
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    void Tick(double seconds);
    bool IsMoving() const;

    /// Where the focus makes the picture of the present view sharp: kSharp ahead at no magnification, up to 10 more to
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

/// A position in the whole thousandths that the camera reports; of an endless axis it stays below the maximum.
int Thousandths(const Axis& axis);

}  // namespace dome
