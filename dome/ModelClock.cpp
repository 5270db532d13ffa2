#include "ModelClock.h"

#include <stdexcept>

#include "dome/model/Camera.h"

namespace dome {

void ModelClock::Pass(double seconds) {
    if (_running) Advance(seconds * _rate);
}

void ModelClock::Step(double seconds) {
    if (!(seconds > 0 && seconds <= kMaxStep))
        throw std::out_of_range("a step must be above 0 and at most 3600 seconds");
    Advance(seconds);
}

void ModelClock::SetRate(double rate) {
    if (!(rate >= kMinRate && rate <= kMaxRate)) throw std::out_of_range("a rate must be from 0.01 to 100");
    _rate = rate;
}

void ModelClock::Advance(double seconds) {
    // A rounding error in a number of whole ticks must not add an almost empty tick.
    const auto ticks = static_cast<long>(seconds / kTick + 1e-9);
    const double begin = _time;
    // A camera at rest skips the ticks: an hour has 180000, and the first call after it would wait for them.
    for (long i = 0; i < ticks && !_camera.IsAtRest(); ++i) {
        _time = begin + static_cast<double>(i + 1) * kTick;
        _camera.Tick(kTick);
    }
    _time = begin + seconds;
    const double rest = seconds - static_cast<double>(ticks) * kTick;
    if (rest > 0) _camera.Tick(rest);
}

}  // namespace dome
