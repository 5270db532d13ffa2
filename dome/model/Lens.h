#pragma once

#include <cstdint>

#include "Axis.h"

namespace dome {

/// The zoom. Magnifications are thousandths: 1000 is 1.0x. Up to the optical maximum the lens does it, beyond it the
/// picture is cropped.
class Zoom {
public:
    static constexpr std::uint32_t kMinimum = 1000;
    static constexpr std::uint32_t kOpticalMaximum = 20000;
    static constexpr std::uint32_t kDigitalMaximum = 12000;  ///< on top of the optical one
    static constexpr std::uint32_t kGreatestMaximum = kOpticalMaximum / 1000 * kDigitalMaximum;
    static constexpr double kRate = 5000;  ///< thousandths a second

    Zoom();

    /// Goes as far as the range allows; a time limit in seconds.
    void MoveTo(double magnification, double timeLimit) { _drive.MoveTo(magnification, 0, timeLimit); }

    /// +1 in, -1 out, 0 stop.
    void Move(int direction, double timeLimit) { _drive.MoveAt(direction, timeLimit); }

    void Place(double magnification) { _drive.Place(magnification); }

    /// Throws std::out_of_range below kMinimum and above kGreatestMaximum. A magnification beyond the new maximum
    /// falls to it.
    void SetMaximum(std::uint32_t maximum);

    void Tick(double seconds) { _drive.Tick(seconds); }

    std::uint32_t Magnification() const;
    std::uint32_t Maximum() const;
    const Axis& Drive() const { return _drive; }

private:
    Axis _drive;
};

/// The focus, in percent from near (0) to far (100).
class Focus {
public:
    static constexpr double kRate = 50;   ///< percent a second
    static constexpr double kSharp = 50;  ///< where the auto focus finds the desk camera's one scene

    Focus();

    /// Any move by hand breaks off a run of the auto focus; the auto focus's mode stays.
    void MoveTo(double percent);
    void Move(int direction);  ///< +1 far, -1 near, 0 stop
    void Place(double percent);

    void SetAuto(bool enabled);  ///< switched on, it starts with a run
    void Refocus(bool start);    ///< one run, whatever the mode; false breaks one off
    bool IsAuto() const { return _auto; }
    bool IsFocusing() const { return _focusing; }

    void Tick(double seconds);

    double Percent() const { return _drive.Position(); }
    const Axis& Drive() const { return _drive; }

private:
    Axis _drive;
    bool _auto = true;
    bool _focusing = false;
};

/// The iris, in percent from closed (0) to open (100).
class Iris {
public:
    static constexpr double kRate = 50;     ///< percent a second
    static constexpr double kExposed = 50;  ///< what the automatic picks for the desk camera's one scene

    Iris();

    void Place(double percent) { _drive.Place(percent); }

    void Move(int direction);    ///< +1 opens, -1 closes, 0 stops; the automatic's mode stays
    void SetAuto(bool enabled);  ///< switched on, it drives to its pick
    bool IsAuto() const { return _auto; }

    void Tick(double seconds) { _drive.Tick(seconds); }

    double Percent() const { return _drive.Position(); }
    const Axis& Drive() const { return _drive; }

private:
    Axis _drive;
    bool _auto = true;
};

}  // namespace dome
