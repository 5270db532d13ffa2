#include "Pan.h"

#include <tavos/osa/Exception.h>

#include <algorithm>
#include <cmath>

namespace {

constexpr double kTurn = 360000;       // thousandths of a degree
constexpr double kMaxSpeed = 100000;   // thousandths of a degree a second
constexpr double kDefaultSpeed = 0.5;  // a fraction of the max speed

/// The same direction within the first turn.
double WithinTurn(double position) {
    const double rest = std::fmod(position, kTurn);
    return rest < 0 ? rest + kTurn : rest;
}

void Check(const char* what, double fraction, int timeLimit) {
    if (!(std::fabs(fraction) <= 1)) throw tavos::osa::Exception("%s %g outside -1 to 1", what, fraction);
    if (timeLimit < 0) throw tavos::osa::Exception("time limit %d is negative", timeLimit);
}

}  // namespace

void Pan::SetPosition(int position, int timeLimit) {
    SetPositionAtSpeed(position, 0, timeLimit);
}

void Pan::SetPositionAtSpeed(int position, double speed, int timeLimit) {
    Check("speed", speed, timeLimit);
    double distance = WithinTurn(position - Position());
    if (distance > kTurn / 2) distance -= kTurn;  // the shorter direction
    const double velocity = kMaxSpeed * (speed == 0 ? kDefaultSpeed : std::fabs(speed));
    Drive(std::copysign(velocity, distance), std::min<double>(std::fabs(distance) / velocity, timeLimit));
}

std::uint32_t Pan::GetPosition() {
    return static_cast<std::uint32_t>(std::lround(Position())) % std::uint32_t(kTurn);
}

std::uint32_t Pan::GetMinPosition() {
    return 0;
}

std::uint32_t Pan::GetMaxPosition() {
    return static_cast<std::uint32_t>(kTurn) - 1;
}

void Pan::SetRelativeVelocity(double velocity, int timeLimit) {
    Check("velocity", velocity, timeLimit);
    Drive(kMaxSpeed * velocity, timeLimit);
}

double Pan::GetRelativeVelocity() {
    return SecondsDriven() < _seconds ? _velocity / kMaxSpeed : 0;
}

void Pan::Drive(double velocity, double seconds) {
    _start = Position();
    _velocity = velocity;
    _seconds = seconds;
    _since = Clock::now();
}

double Pan::Position() const {
    return WithinTurn(_start + _velocity * SecondsDriven());
}

double Pan::SecondsDriven() const {
    return std::min(std::chrono::duration<double>(Clock::now() - _since).count(), _seconds);
}
