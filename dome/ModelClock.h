#pragma once

namespace dome {

struct Camera;

/// The camera's time, which a user may stop, step and stretch. Real time comes in by Pass; the camera gets it in
/// ticks, so that what it does in a given time does not depend on how often the process looked at it.
class ModelClock {
public:
    static constexpr double kTick = 0.02;  ///< seconds, the longest tick that the camera gets
    static constexpr double kLeastRate = 0.01;
    static constexpr double kGreatestRate = 100;
    static constexpr double kLongestStep = 3600;  ///< seconds

    /// Runs, at rate 1. The camera must outlive the clock.
    explicit ModelClock(Camera& camera) : _camera(camera) {}

    /// Lets that many real seconds pass: as many for the camera times the rate, or none while it is paused.
    void Pass(double seconds);

    void Pause() { _running = false; }
    void Run() { _running = true; }

    /// Advances the camera by exactly that many seconds at once, in ticks of kTick and a last one of what is left;
    /// paused or not, whatever the rate. Throws std::out_of_range unless it is above 0 and at most kLongestStep.
    void Step(double seconds);

    /// Throws std::out_of_range outside kLeastRate to kGreatestRate.
    void SetRate(double rate);

    bool IsRunning() const { return _running; }
    double Rate() const { return _rate; }
    double Time() const { return _time; }  ///< the camera's seconds since the start

private:
    void Advance(double seconds);

    Camera& _camera;
    bool _running = true;
    double _rate = 1;
    double _time = 0;
};

}  // namespace dome
