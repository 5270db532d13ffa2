#pragma once

#include <cstdint>
#include <functional>
#include <utility>

#include "Axis.h"

namespace dome {

/// The zoom. Magnifications are thousandths: 1000 is 1.0x. The lens zooms up to the optical maximum; beyond it the
/// picture is cropped.
class Zoom {
public:
    struct Properties {
        std::uint32_t opticalMaximum = 20000;
        std::uint32_t digitalMaximum = 12000;  ///< multiplies the optical one
        double rate = 5000;                    ///< thousandths a second
    };
    static constexpr std::uint32_t kMinimum = 1000;

    explicit Zoom(const Properties& properties);

    /// Moves as far as the range allows; the time limit is in seconds.
    void MoveTo(double magnification, double timeLimit) { _drive.MoveTo(magnification, 0, timeLimit); }

    /// +1 in, -1 out, 0 stop.
    void Move(int direction, double timeLimit) { _drive.MoveAt(direction, timeLimit); }

    void JumpTo(double magnification) { _drive.JumpTo(magnification); }

    /// Throws std::out_of_range below kMinimum and above CombinedMaximum. A magnification above the new maximum
    /// is lowered to it.
    void SetMaximum(std::uint32_t maximum);

    void Tick(double seconds) { _drive.Tick(seconds); }

    std::uint32_t Magnification() const;
    std::uint32_t Maximum() const;
    std::uint32_t OpticalMaximum() const { return _properties.opticalMaximum; }
    std::uint32_t DigitalMaximum() const { return _properties.digitalMaximum; }
    std::uint32_t CombinedMaximum() const;  ///< optical times digital: the limit of SetMaximum
    const Axis& Drive() const { return _drive; }
    void Observe(MoveObserver observer) { _drive.Observe(std::move(observer)); }

private:
    Properties _properties;
    Axis _drive;
};

/// The focus, in percent from near (0) to far (100). A run of the auto focus moves to the sharp position, hunts around
/// it over kHuntDistance and comes to rest on it.
class Focus {
public:
    static constexpr double kRate = 50;          ///< default, percent a second
    static constexpr double kSharp = 50;         ///< the sharp position in the camera's initial view
    static constexpr double kHuntDistance = 26;  ///< percent: at kRate 0.52 s more than the move to the sharp position
    static constexpr double kUnsharp = 1;        ///< percent: a smaller error does not start the auto focus

    /// `sharp` returns the current sharp position; it is called when a run begins.
    Focus(double rate, std::function<double()> sharp);

    /// A manual move stops a run of the auto focus. The mode of the auto focus stays.
    void MoveTo(double percent);
    void Move(int direction);  ///< +1 far, -1 near, 0 stop
    void JumpTo(double percent);

    void SetAuto(bool enabled);  ///< starts a run when switched on
    void Refocus(bool start);    ///< one run, in any mode; false stops it

    /// Call it when the camera or its zoom has come to rest. Starts a run when the auto focus is on, no manual move is
    /// under way and the picture is no longer sharp.
    void ViewChanged();

    bool IsAuto() const { return _auto; }
    bool IsFocusing() const { return _focusing; }

    void Tick(double seconds);

    double Percent() const { return _drive.Position(); }
    const Axis& Drive() const { return _drive; }

    /// A run of the auto focus is one move, whose target is the sharp position. The focus must stay where it is in
    /// memory from then on.
    void Observe(MoveObserver observer);

private:
    void Swing();

    Axis _drive;
    std::function<double()> _findSharp;
    double _sharp = kSharp;  // of the run
    std::size_t _swing = 0;  // of the run: index of the next swing
    double _side = 1;        // of the sharp position, to which the run swings first
    bool _auto = true;
    bool _focusing = false;
};

/// The iris, in percent from closed (0) to open (100). Auto iris opens it wider in less light.
class Iris {
public:
    static constexpr double kRate = 50;   ///< default, percent a second
    static constexpr double kLight = 50;  ///< default, percent

    Iris(double rate, double light);

    /// The light in front of the camera, 0 (night) to 100 (glaring). Auto iris, if on, follows.
    void SetLight(double percent);
    double Light() const { return _light; }

    void JumpTo(double percent) { _drive.JumpTo(percent); }

    void Move(int direction);    ///< +1 opens, -1 closes, 0 stops; keeps the mode of the auto iris
    void SetAuto(bool enabled);  ///< moves the iris to match the light when switched on
    bool IsAuto() const { return _auto; }

    void Tick(double seconds) { _drive.Tick(seconds); }

    double Percent() const { return _drive.Position(); }
    const Axis& Drive() const { return _drive; }
    void Observe(MoveObserver observer) { _drive.Observe(std::move(observer)); }

private:
    void Expose();

    Axis _drive;
    double _light;
    bool _auto = true;
};

}  // namespace dome
