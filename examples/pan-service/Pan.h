#pragma once

#include <tavos/interfaces/IPanProvider.h>

#include <chrono>

/// The camera's pan axis, without a motor: it computes where one with constant speed would be. Put your motor behind
/// Drive and Position. IPanProvider.h states units and ranges. All members run on the host's thread; an exception is
/// the caller's error.
class Pan final : public tavos::interfaces::IPanProvider {
public:
    void SetPosition(int position, int timeLimit) override;
    void SetPositionAtSpeed(int position, double speed, int timeLimit) override;
    std::uint32_t GetPosition() override;
    std::uint32_t GetMinPosition() override;
    std::uint32_t GetMaxPosition() override;
    void SetRelativeVelocity(double velocity, int timeLimit) override;
    double GetRelativeVelocity() override;

private:
    using Clock = std::chrono::steady_clock;

    /// Replaces the present motion: thousandths of a degree a second (negative: counter-clockwise), and the seconds
    /// until the axis stops. Returns at once, because the agent waits for the answer.
    void Drive(double velocity, double seconds);

    /// Thousandths of a degree, 0 to below 360000.
    double Position() const;

    double SecondsDriven() const;

    double _start = 0;  // where the motion began
    double _velocity = 0;
    double _seconds = 0;
    Clock::time_point _since = Clock::now();
};
