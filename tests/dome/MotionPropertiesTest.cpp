// Properties of a drive that hold for all commands in any order.

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "dome/model/Camera.h"

namespace dome {
namespace {

constexpr double kTick = 0.02;
constexpr double kLong = 300;

AxisProperties Heavy(bool endless) {
    AxisProperties properties;
    properties.minimum = endless ? 0 : -90000;
    properties.maximum = endless ? 360000 : 90000;
    properties.endless = endless;
    properties.maxSpeed = 100000;
    properties.defaultSpeed = 50000;
    properties.acceleration = 400000;
    return properties;
}

/// The distance from one position to the next; for a turn, the shorter one.
double Distance(const AxisProperties& properties, double from, double to) {
    return properties.endless ? std::remainder(to - from, properties.maximum - properties.minimum) : to - from;
}

class RandomDriver {
public:
    explicit RandomDriver(unsigned seed) : _engine(seed) {}

    double Between(double min, double max) { return std::uniform_real_distribution<double>(min, max)(_engine); }
    int Choice(int count) { return std::uniform_int_distribution<int>(0, count - 1)(_engine); }

    /// Mostly moves; sometimes a stop, a speed out of range or an invalid speed.
    void Command(Axis& axis, double min, double max) {
        const double limit = Choice(4) == 0 ? Between(0, 1) : kLong;
        switch (Choice(5)) {
            case 0:
            case 1:
                axis.MoveTo(Between(2 * min, 2 * max), Choice(3) == 0 ? 0 : Between(-1.5, 1.5), limit);
                break;
            case 2:
            case 3:
                axis.MoveAt(Between(-1.5, 1.5), limit);
                break;
            default:
                axis.Stop();
        }
    }

private:
    std::mt19937 _engine;
};

struct RandomMotion : testing::TestWithParam<unsigned> {};

/// Checks one tick of an axis: limits, speed, and that position and velocity do not jump.
void TickChecked(Axis& axis, const AxisProperties& properties, double seconds) {
    const double position = axis.Position();
    const double velocity = axis.Velocity();
    axis.Tick(seconds);
    ASSERT_GE(axis.Position(), properties.minimum);
    ASSERT_LE(axis.Position(), properties.maximum);
    if (properties.endless) {
        ASSERT_LT(axis.Position(), properties.maximum);
    }
    ASSERT_LE(std::fabs(axis.Velocity()), 1.0 + 1e-12);
    // The last step to the target covers the remaining distance: less than one internal step.
    const double maxDistance = properties.maxSpeed * seconds + 1e-6;
    ASSERT_LE(std::fabs(Distance(properties, position, axis.Position())), maxDistance);
    const double maxChange = properties.acceleration / properties.maxSpeed * (seconds + 0.004);
    ASSERT_LE(std::fabs(axis.Velocity() - velocity), maxChange + 1e-9);
}

void DriveAtRandom(const AxisProperties& properties, unsigned seed) {
    RandomDriver driver(seed);
    Axis axis(properties);
    for (int command = 0; command < 60; ++command) {
        const double position = axis.Position();
        const double velocity = axis.Velocity();
        driver.Command(axis, properties.minimum, properties.maximum);
        ASSERT_EQ(axis.Position(), position);
        if (axis.IsMoving()) {
            ASSERT_EQ(axis.Velocity(), velocity) << "a new move starts at the current velocity";
        }
        const int ticks = driver.Choice(60);
        for (int i = 0; i < ticks; ++i) {
            ASSERT_NO_FATAL_FAILURE(TickChecked(axis, properties, driver.Choice(3) ? kTick : driver.Between(0, kTick)));
        }
        if (driver.Choice(6) != 0) continue;
        const double before = axis.Position();
        const double speed = std::fabs(axis.Velocity()) * properties.maxSpeed;
        axis.Stop();
        axis.Tick(properties.maxSpeed / properties.acceleration + kTick);
        ASSERT_FALSE(axis.IsMoving());
        ASSERT_EQ(axis.Velocity(), 0);
        const double braking = speed * speed / (2 * properties.acceleration);
        ASSERT_LE(std::fabs(Distance(properties, before, axis.Position())), braking + 1);
    }
}

TEST_P(RandomMotion, KeepsToItsLimitsAndSpeeds) {
    ASSERT_NO_FATAL_FAILURE(DriveAtRandom(Heavy(true), GetParam()));
    ASSERT_NO_FATAL_FAILURE(DriveAtRandom(Heavy(false), GetParam()));
}

TEST_P(RandomMotion, EndsAtItsTarget) {
    RandomDriver driver(GetParam());
    for (const bool endless : {true, false}) {
        const AxisProperties properties = Heavy(endless);
        Axis axis(properties);
        for (int i = 0; i < 8; ++i) {
            axis.MoveAt(driver.Between(-1, 1), kLong);
            axis.Tick(driver.Between(0, 0.5));
            const double target = driver.Between(properties.minimum, properties.maximum);
            axis.MoveTo(target, driver.Choice(2) ? 1 : -1, kLong);
            axis.Tick(10);
            ASSERT_FALSE(axis.IsMoving());
            ASSERT_EQ(axis.Position(), target);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomMotion, testing::Range(1u, 41u));

TEST(Braking, CoversTheDistanceOfItsAcceleration) {
    const AxisProperties properties = Heavy(true);
    for (const double speed : {0.1, 0.25, 0.5, 1.0}) {
        Axis axis(properties);
        axis.MoveAt(speed, kLong);
        axis.Tick(1);
        const double before = axis.Position();
        axis.Stop();
        double seconds = 0;
        for (; axis.IsMoving() && seconds < 1; seconds += 0.001) axis.Tick(0.001);
        const double v = speed * properties.maxSpeed;
        const double a = properties.acceleration;
        EXPECT_NEAR(seconds, v / a, 0.002) << speed;
        EXPECT_NEAR(axis.Position() - before, v * v / (2 * a), v * 0.001) << speed;
    }
}

TEST(Braking, IsSoftAtTheLimitsOfTheTilt) {
    for (const double speed : {-1.0, 1.0}) {
        Camera camera;
        camera.tilt.MoveAt(speed, kLong);
        const double acceleration = 1 / CameraProperties().tilt.accelerating;  // fraction of the max speed, per second
        double before = 0;
        double latestFast = 0;  // the last position at full speed
        for (int i = 0; i < 5000 && (camera.tilt.IsMoving() || i == 0); ++i) {
            camera.tilt.Tick(0.001);
            const double velocity = camera.tilt.Velocity();
            ASSERT_LE(std::fabs(velocity - before), 4 * acceleration * 0.001 + 1e-9);
            if (std::fabs(velocity) > 0.9999) latestFast = camera.tilt.Position();
            before = velocity;
        }
        EXPECT_FALSE(camera.tilt.IsMoving());
        EXPECT_EQ(camera.tilt.Position(), speed * 90000);
        const double braking = CameraProperties().tilt.speed * CameraProperties().tilt.accelerating / 2;
        EXPECT_NEAR(std::fabs(latestFast), 90000 - braking, 200);
    }
}

TEST(Replaced, StartsAtTheCurrentVelocity) {
    Axis axis(Heavy(true));
    axis.MoveAt(1, kLong);
    axis.Tick(1);
    const double position = axis.Position();
    axis.MoveAt(-1, kLong);
    axis.Tick(0.001);
    EXPECT_NEAR(axis.Velocity(), 0.996, 1e-9);  // it slows down first, and does not reverse at once
    EXPECT_GT(axis.Position(), position);
    axis.Tick(0.5);
    EXPECT_DOUBLE_EQ(axis.Velocity(), -1);
}

}  // namespace
}  // namespace dome
