#pragma once

#include <cstdint>
#include <functional>

#include "Axis.h"

namespace dome {

/// The zoom. Magnifications are thousandths: 1000 is 1.0x. Up to the optical maximum the lens does it, beyond it the
/// picture is cropped.
class Zoom {
public:
    struct Properties {
        std::uint32_t opticalMaximum = 20000;
        std::uint32_t digitalMaximum = 12000;  ///< on top of the optical one
        double rate = 5000;                    ///< thousandths a second
    };
    static constexpr std::uint32_t kMinimum = 1000;

    explicit Zoom(const Properties& properties);

    /// Goes as far as the range allows; a time limit in seconds.
    void MoveTo(double magnification, double timeLimit) { _drive.MoveTo(magnification, 0, timeLimit); }

    /// +1 in, -1 out, 0 stop.
    void Move(int direction, double timeLimit) { _drive.MoveAt(direction, timeLimit); }

    void Place(double magnification) { _drive.Place(magnification); }

    /// Throws std::out_of_range below kMinimum and above GreatestMaximum. A magnification beyond the new maximum
    /// falls to it.
    void SetMaximum(std::uint32_t maximum);

    void Tick(double seconds) { _drive.Tick(seconds); }

    std::uint32_t Magnification() const;
    std::uint32_t Maximum() const;
    std::uint32_t OpticalMaximum() const { return _properties.opticalMaximum; }
    std::uint32_t DigitalMaximum() const { return _properties.digitalMaximum; }
    std::uint32_t GreatestMaximum() const;  ///< both together
    const Axis& Drive() const { return _drive; }

private:
    Properties _properties;
    Axis _drive;
};

/// The focus, in percent from near (0) to far (100). A run of the auto focus goes to where the picture is sharp, hunts
/// about it for kHuntWay of way and comes to rest on it.
class Focus {
public:
    static constexpr double kRate = 50;     ///< percent a second, unless the camera is told otherwise
    static constexpr double kSharp = 50;    ///< where the picture of a camera in its first position is sharp
    static constexpr double kHuntWay = 26;  ///< percent: at kRate 0.52 s on top of the way to the sharp picture
    static constexpr double kUnsharp = 1;   ///< percent off: a smaller error does not make the auto focus run

    /// `sharp` tells where the picture is sharp now; it is asked when a run begins.
    Focus(double rate, std::function<double()> sharp);

    /// Any move by hand breaks off a run of the auto focus; the auto focus's mode stays.
    void MoveTo(double percent);
    void Move(int direction);  ///< +1 far, -1 near, 0 stop
    void Place(double percent);

    void SetAuto(bool enabled);  ///< switched on, it starts with a run
    void Refocus(bool start);    ///< one run, whatever the mode; false breaks one off

    /// The camera or its zoom has come to rest from a move. The auto focus, if it is on and nobody moves the focus
    /// by hand just now, runs when the picture is not sharp any more.
    void ViewChanged();

    bool IsAuto() const { return _auto; }
    bool IsFocusing() const { return _focusing; }

    void Tick(double seconds);

    double Percent() const { return _drive.Position(); }
    const Axis& Drive() const { return _drive; }

private:
    void Swing();

    Axis _drive;
    std::function<double()> _findSharp;
    double _sharp = kSharp;  // of the run
    std::size_t _swing = 0;  // of the run: what comes next
    double _side = 1;        // of the sharp picture, on which the run swings first
    bool _auto = true;
    bool _focusing = false;
};

/// The iris, in percent from closed (0) to open (100). Its automatic wants as much of it open as is lacking in light.
class Iris {
public:
    static constexpr double kRate = 50;   ///< percent a second, unless the camera is told otherwise
    static constexpr double kLight = 50;  ///< percent, likewise

    Iris(double rate, double light);

    /// How light it is before the camera, 0 (night) to 100 (glaring). The automatic, if it is on, follows.
    void SetLight(double percent);
    double Light() const { return _light; }

    void Place(double percent) { _drive.Place(percent); }

    void Move(int direction);    ///< +1 opens, -1 closes, 0 stops; the automatic's mode stays
    void SetAuto(bool enabled);  ///< switched on, it drives to its pick
    bool IsAuto() const { return _auto; }

    void Tick(double seconds) { _drive.Tick(seconds); }

    double Percent() const { return _drive.Position(); }
    const Axis& Drive() const { return _drive; }

private:
    void Expose();

    Axis _drive;
    double _light;
    bool _auto = true;
};

}  // namespace dome
