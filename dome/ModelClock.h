#pragma once

namespace dome {

struct Camera;

/// The camera's clock, which a user can pause, step and run at another rate. Pass takes real time. The camera gets it
/// in ticks, so that its motion does not depend on how often the process calls Pass.
class ModelClock {
public:
    static constexpr double kTick = 0.02;  ///< seconds, the max tick
    static constexpr double kMinRate = 0.01;
    static constexpr double kMaxRate = 100;
    static constexpr double kMaxStep = 3600;  ///< seconds

    /// Starts running at rate 1. The camera must outlive the clock.
    explicit ModelClock(Camera& camera) : _camera(camera) {}

    /// Advances the camera by that many real seconds times the rate; not at all while it is paused.
    void Pass(double seconds);

    void Pause() { _running = false; }
    void Run() { _running = true; }

    /// Advances the camera by exactly that many seconds at once, in ticks of kTick and a shorter last one. The pause
    /// and the rate have no effect on it. Throws std::out_of_range unless it is above 0 and at most kMaxStep.
    void Step(double seconds);

    /// Throws std::out_of_range outside kMinRate to kMaxRate.
    void SetRate(double rate);

    bool IsRunning() const { return _running; }
    double Rate() const { return _rate; }
    /// The camera's seconds since the start; within a tick of the camera, the time at which the tick ends.
    double Time() const { return _time; }

private:
    void Advance(double seconds);

    Camera& _camera;
    bool _running = true;
    double _rate = 1;
    double _time = 0;
};

}  // namespace dome
