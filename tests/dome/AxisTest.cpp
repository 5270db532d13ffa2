#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "dome/model/Axis.h"

namespace dome {
namespace {

constexpr double kLong = 300;

AxisProperties Turning() {
    AxisProperties properties;
    properties.maximum = 360000;
    properties.endless = true;
    properties.maxSpeed = 100000;
    properties.defaultSpeed = 50000;
    return properties;
}

AxisProperties Nodding() {
    AxisProperties properties = Turning();
    properties.minimum = -90000;
    properties.maximum = 90000;
    properties.endless = false;
    return properties;
}

AxisProperties Heavy(AxisProperties properties) {
    properties.acceleration = 200000;  // half a second to the max speed, 25000 units to stop from it
    return properties;
}

/// Runs the axis in small uneven steps until it rests; returns the seconds it took.
double RunToRest(
    Axis& axis, const std::function<void()>& look = [] {}) {
    double seconds = 0;
    for (int i = 0; axis.IsMoving() && i < 100000; ++i) {
        const double step = i % 2 ? 0.0037 : 0.0101;
        axis.Tick(step);
        seconds += step;
        look();
    }
    EXPECT_FALSE(axis.IsMoving());
    return seconds;
}

TEST(Axis, StaysWhereItWasSet) {
    Axis axis(Turning());
    EXPECT_DOUBLE_EQ(axis.Position(), 0);
    axis.JumpTo(-1000);
    EXPECT_DOUBLE_EQ(axis.Position(), 359000);
    axis.Tick(10);
    EXPECT_DOUBLE_EQ(axis.Position(), 359000);
    EXPECT_FALSE(axis.IsMoving());
    EXPECT_FALSE(axis.Target());
}

TEST(Axis, MovesByTimeAndSpeed) {
    Axis axis(Turning());
    axis.MoveTo(90000, 0.5, kLong);
    EXPECT_TRUE(axis.IsMoving());
    axis.Tick(1);
    EXPECT_NEAR(axis.Position(), 50000, 1e-3);
    EXPECT_DOUBLE_EQ(axis.Velocity(), 0.5);
    EXPECT_EQ(axis.Target(), 90000);
    axis.Tick(0.79);
    EXPECT_TRUE(axis.IsMoving());
    axis.Tick(0.011);
    EXPECT_FALSE(axis.IsMoving());
    EXPECT_EQ(axis.Position(), 90000);
    EXPECT_EQ(axis.Velocity(), 0);
    EXPECT_EQ(axis.Target(), 90000);
}

TEST(Axis, MovesAtTheDefaultSpeedForSpeedZero) {
    Axis axis(Turning());
    axis.MoveTo(90000, 0, kLong);
    axis.Tick(1);
    EXPECT_NEAR(axis.Position(), 50000, 1e-3);
}

TEST(Axis, NeverExceedsItsMaxSpeed) {
    Axis axis(Turning());
    axis.MoveAt(7, kLong);
    axis.Tick(1);
    EXPECT_NEAR(axis.Position(), 100000, 1e-3);
    axis.MoveTo(0, -9, kLong);
    axis.Tick(0.5);
    EXPECT_NEAR(axis.Position(), 50000, 1e-3);
}

TEST(Axis, TurnsInTheShorterDirectionWithoutASpeed) {
    Axis axis(Turning());
    axis.JumpTo(10000);
    axis.MoveTo(350000, 0, kLong);
    axis.Tick(0.1);
    EXPECT_NEAR(axis.Position(), 5000, 1e-3);
    axis.Tick(0.2);
    EXPECT_NEAR(axis.Position(), 355000, 1e-3);
    RunToRest(axis);
    EXPECT_EQ(axis.Position(), 350000);

    axis.MoveTo(10000, 0, kLong);
    axis.Tick(0.1);
    EXPECT_NEAR(axis.Position(), 355000, 1e-3);
    RunToRest(axis);
    EXPECT_EQ(axis.Position(), 10000);

    axis.MoveTo(190000, 0, kLong);  // half a turn in both directions
    axis.Tick(0.1);
    EXPECT_NEAR(axis.Position(), 15000, 1e-3);
}

TEST(Axis, TurnsInTheDirectionOfTheSpeedsSign) {
    Axis axis(Turning());
    axis.JumpTo(10000);
    axis.MoveTo(350000, 1, kLong);
    axis.Tick(1);
    EXPECT_NEAR(axis.Position(), 110000, 1e-3);
    RunToRest(axis);
    EXPECT_EQ(axis.Position(), 350000);

    axis.MoveTo(10000, -1, kLong);
    axis.Tick(1);
    EXPECT_NEAR(axis.Position(), 250000, 1e-3);
    RunToRest(axis);
    EXPECT_EQ(axis.Position(), 10000);
}

TEST(Axis, StaysWhenItIsAtTheTarget) {
    Axis axis(Turning());
    axis.JumpTo(10000);
    for (const double speed : {-1.0, 0.0, 1.0}) {
        axis.MoveTo(10000, speed, kLong);
        EXPECT_FALSE(axis.IsMoving());
        axis.MoveTo(370000, speed, kLong);
        EXPECT_FALSE(axis.IsMoving());
        axis.Tick(1);
        EXPECT_EQ(axis.Position(), 10000);
    }
}

TEST(Axis, TakesPositionsModuloATurn) {
    Axis axis(Turning());
    axis.MoveTo(-10000, 0, kLong);
    EXPECT_EQ(axis.Target(), 350000);
    RunToRest(axis);
    EXPECT_EQ(axis.Position(), 350000);
    axis.MoveTo(3600000 + 20000, 0, kLong);
    RunToRest(axis);
    EXPECT_EQ(axis.Position(), 20000);
    axis.JumpTo(-1e-300);
    EXPECT_EQ(axis.Position(), 0);
}

TEST(Axis, TurnsWithoutEnd) {
    Axis axis(Turning());
    axis.MoveAt(1, kLong);
    axis.Tick(36 + 0.25);
    EXPECT_NEAR(axis.Position(), 25000, 1e-2);
    axis.MoveAt(-1, kLong);
    axis.Tick(0.5);
    EXPECT_NEAR(axis.Position(), 335000, 1e-2);
    EXPECT_DOUBLE_EQ(axis.Velocity(), -1);
    EXPECT_FALSE(axis.Target());
}

TEST(Axis, EndsAMoveAtItsTimeLimit) {
    Axis axis(Turning());
    axis.MoveAt(1, 2);
    axis.Tick(1.5);
    EXPECT_TRUE(axis.IsMoving());
    axis.Tick(100);
    EXPECT_FALSE(axis.IsMoving());
    EXPECT_NEAR(axis.Position(), 200000, 1e-3);

    axis.MoveTo(300000, 0.5, 1);
    axis.Tick(100);
    EXPECT_NEAR(axis.Position(), 250000, 1e-3);
    EXPECT_FALSE(axis.Target());

    axis.MoveAt(1, 0);
    axis.Tick(1);
    EXPECT_NEAR(axis.Position(), 250000, 1e-3);
}

TEST(Axis, ReplacesAMoveByTheNextOne) {
    Axis axis(Turning());
    axis.MoveTo(180000, 1, 1);
    axis.Tick(0.5);
    axis.MoveTo(20000, -1, kLong);  // the time limit is new, too
    axis.Tick(0.1);
    EXPECT_NEAR(axis.Position(), 40000, 1e-3);
    axis.MoveAt(0.1, kLong);
    axis.Tick(1);
    EXPECT_NEAR(axis.Position(), 50000, 1e-3);
    axis.Stop();
    axis.Tick(1);
    EXPECT_NEAR(axis.Position(), 50000, 1e-3);
    EXPECT_FALSE(axis.IsMoving());
}

TEST(Axis, StopsAtItsLimits) {
    Axis axis(Nodding());
    EXPECT_EQ(axis.Position(), 0);
    axis.MoveAt(1, kLong);
    axis.Tick(0.5);
    EXPECT_NEAR(axis.Position(), 50000, 1e-3);
    axis.Tick(10);
    EXPECT_EQ(axis.Position(), 90000);
    EXPECT_FALSE(axis.IsMoving());
    EXPECT_EQ(axis.Velocity(), 0);

    axis.MoveTo(-365000, 1, kLong);  // with limits, only one direction leads to the target
    EXPECT_EQ(axis.Target(), -90000);
    axis.Tick(10);
    EXPECT_EQ(axis.Position(), -90000);

    axis.MoveAt(-1, kLong);
    axis.Tick(1);
    EXPECT_EQ(axis.Position(), -90000);
    EXPECT_FALSE(axis.IsMoving());
}

TEST(Axis, MovesInsideNewLimits) {
    Axis axis(Nodding());
    axis.MoveTo(80000, 1, kLong);
    axis.Tick(0.1);
    axis.SetLimits(-1000, 20000);
    RunToRest(axis);
    EXPECT_EQ(axis.Position(), 20000);
    axis.SetLimits(-1000, 5000);
    EXPECT_EQ(axis.Position(), 5000);
    EXPECT_FALSE(axis.IsMoving());
}

/// What an observer sees of an axis, as text: "began FROM TARGET SPEED", "stopping", "HOW POSITION".
struct Observed {
    explicit Observed(Axis& observed) : axis(observed) {
        axis.Observe({[this](const MoveStart& start) {
                          const std::string target = start.target ? Whole(*start.target) : "none";
                          seen.push_back("began " + Whole(start.from) + ' ' + target + ' ' + Whole(100 * start.speed) +
                                         '%');
                      },
                      [this] { seen.push_back("stopping"); },
                      [this](MoveEnd how) { seen.push_back(Name(how) + ' ' + Whole(axis.Position())); }});
    }

    static std::string Whole(double number) { return std::to_string(std::lround(number)); }

    static std::string Name(MoveEnd how) {
        const char* const names[] = {"arrived", "replaced", "stopped", "limit", "time", "jumped"};
        return names[static_cast<int>(how)];
    }

    /// Since the last Take.
    std::vector<std::string> Take() { return std::exchange(seen, {}); }

    Axis& axis;
    std::vector<std::string> seen;
};

using Seen = std::vector<std::string>;

TEST(MoveObserver, SeesAMoveArrive) {
    Axis axis(Turning());
    Observed observed(axis);
    axis.MoveTo(350000, 0, kLong);
    axis.Tick(0.1);
    EXPECT_EQ(observed.Take(), Seen{"began 0 350000 -50%"});
    RunToRest(axis);
    EXPECT_EQ(observed.Take(), Seen{"arrived 350000"});
    axis.MoveTo(350000, 1, kLong);
    EXPECT_EQ(observed.Take(), (Seen{"began 350000 350000 100%", "arrived 350000"})) << "without a tick";
}

TEST(MoveObserver, SeesTheNextMoveReplaceTheOneBefore) {
    Axis axis(Heavy(Turning()));
    Observed observed(axis);
    axis.MoveTo(180000, 1, kLong);
    axis.Tick(0.25);
    const std::string there = Observed::Whole(axis.Position());
    axis.MoveTo(20000, 1, kLong);
    EXPECT_EQ(observed.Take(), (Seen{"began 0 180000 100%", "replaced " + there, "began " + there + " 20000 100%"}));
    axis.MoveAt(-0.5, kLong);
    EXPECT_EQ(observed.Take(), (Seen{"replaced " + there, "began " + there + " none -50%"}));
}

TEST(MoveObserver, SeesAStoppedMoveEndWhereItComesToRest) {
    Axis axis(Heavy(Turning()));
    Observed observed(axis);
    axis.MoveAt(1, kLong);
    axis.Tick(1);
    observed.Take();
    axis.Stop();
    axis.Stop();
    axis.Tick(0.1);
    EXPECT_EQ(observed.Take(), Seen{"stopping"}) << "it still brakes";
    RunToRest(axis);
    EXPECT_EQ(observed.Take(), Seen{"stopped " + Observed::Whole(axis.Position())});
    axis.Stop();
    EXPECT_EQ(observed.Take(), Seen{}) << "nothing was moving";

    axis.MoveAt(1, kLong);
    axis.Tick(1);
    axis.Stop();
    observed.Take();
    axis.MoveAt(0.5, kLong);
    EXPECT_EQ(observed.Take().front(), "stopped " + Observed::Whole(axis.Position())) << "it was stopped before";
    axis.Stop();
    observed.Take();
    axis.MoveAt(-1, kLong);
    axis.MoveAt(0, kLong);
    EXPECT_EQ(observed.Take().at(2), "stopping") << "a velocity of 0 is a stop";
}

TEST(MoveObserver, SeesAMoveEndAtALimit) {
    Axis axis(Nodding());
    Observed observed(axis);
    axis.MoveAt(1, kLong);
    axis.Tick(2);
    EXPECT_EQ(observed.Take(), (Seen{"began 0 none 100%", "limit 90000"}));
    axis.MoveAt(0.5, kLong);
    EXPECT_EQ(observed.Take(), (Seen{"began 90000 none 50%", "limit 90000"})) << "without a tick";
    EXPECT_FALSE(axis.IsMoving());
    axis.MoveTo(-365000, 1, kLong);
    axis.Tick(3);
    EXPECT_EQ(observed.Take(), (Seen{"began 90000 -90000 -100%", "limit -90000"})) << "the target is beyond";
    axis.MoveTo(-90000, 1, kLong);
    EXPECT_EQ(observed.Take(), (Seen{"began -90000 -90000 100%", "arrived -90000"}));
}

TEST(MoveObserver, SeesNewLimitsEndAMove) {
    Axis axis(Nodding());
    Observed observed(axis);
    axis.MoveTo(80000, 1, kLong);
    axis.Tick(0.4);
    axis.SetLimits(-1000, 60000);
    EXPECT_EQ(observed.Take(), Seen{"began 0 80000 100%"});
    axis.Tick(1);
    EXPECT_EQ(observed.Take(), Seen{"limit 60000"});
    axis.MoveAt(-1, kLong);
    axis.Tick(0.1);
    observed.Take();
    axis.SetLimits(-1000, 5000);
    EXPECT_EQ(observed.Take(), Seen{"limit 5000"});
    EXPECT_FALSE(axis.IsMoving());
}

TEST(MoveObserver, SeesAMoveEndAtItsTimeLimit) {
    Axis axis(Heavy(Turning()));
    Observed observed(axis);
    axis.MoveTo(300000, 1, 1);
    axis.Tick(1);
    axis.Tick(0.1);
    axis.Stop();
    EXPECT_EQ(observed.Take(), Seen{"began 0 300000 100%"}) << "it brakes, and no stop brakes it";
    RunToRest(axis);
    EXPECT_EQ(observed.Take(), Seen{"time " + Observed::Whole(axis.Position())});
}

TEST(MoveObserver, SeesAJumpEndAMoveWhereItWas) {
    Axis axis(Turning());
    Observed observed(axis);
    axis.MoveAt(1, kLong);
    axis.Tick(0.5);
    axis.JumpTo(200000);
    EXPECT_EQ(observed.Take(), (Seen{"began 0 none 100%", "jumped 50000"}));
    axis.JumpTo(100000);
    EXPECT_EQ(observed.Take(), Seen{}) << "nothing was moving";
}

TEST(HeavyAxis, SpeedsUpAndSlowsDown) {
    Axis axis(Heavy(Turning()));
    axis.MoveTo(100000, 1, kLong);
    axis.Tick(0.25);
    EXPECT_NEAR(axis.Velocity(), 0.5, 1e-9);
    EXPECT_NEAR(axis.Position(), 6250, 100);
    double fastest = 0;
    double farthest = 0;
    const double seconds = 0.25 + RunToRest(axis, [&] {
                               fastest = std::max(fastest, axis.Velocity());
                               farthest = std::max(farthest, axis.Position());
                           });
    EXPECT_EQ(axis.Position(), 100000);
    EXPECT_NEAR(farthest, 100000, 1e-6);
    EXPECT_LE(fastest, 1.0);
    EXPECT_NEAR(seconds, 1.5, 0.03);  // 0.5 s up, 0.5 s at full speed, 0.5 s down
}

TEST(HeavyAxis, NeverChangesItsSpeedAtOnce) {
    Axis axis(Heavy(Turning()));
    double before = 0;
    const auto tick = [&] {
        axis.Tick(0.001);
        // Twice the rate, because coming to rest may skip one step.
        EXPECT_LE(std::fabs(axis.Velocity() - before), 2 * 0.002 + 1e-9);
        before = axis.Velocity();
    };
    axis.MoveAt(1, kLong);
    for (int i = 0; i < 1000; ++i) tick();
    EXPECT_DOUBLE_EQ(axis.Velocity(), 1);
    axis.MoveTo(axis.Position() - 20000, -0.5, kLong);
    for (int i = 0; i < 3000; ++i) tick();
    axis.MoveAt(-1, 0.3);
    for (int i = 0; i < 1000; ++i) tick();
    EXPECT_FALSE(axis.IsMoving());
    EXPECT_EQ(axis.Velocity(), 0);
}

TEST(HeavyAxis, SlowsDownAfterAStop) {
    Axis axis(Heavy(Turning()));
    axis.MoveAt(1, kLong);
    axis.Tick(1);
    const double position = axis.Position();
    axis.Stop();
    EXPECT_TRUE(axis.IsMoving());
    axis.Tick(0.6);
    EXPECT_FALSE(axis.IsMoving());
    EXPECT_NEAR(axis.Position() - position, 25000, 200);
}

TEST(HeavyAxis, ReturnsToATargetThatItOvershoots) {
    Axis axis(Heavy(Turning()));
    axis.MoveAt(1, kLong);
    axis.Tick(1);
    const double target = axis.Position() + 10000;
    axis.MoveTo(target, 1, kLong);
    RunToRest(axis);
    EXPECT_EQ(axis.Position(), target);
}

TEST(HeavyAxis, StaysInsideItsLimitsAtAnySpeed) {
    for (const double speed : {0.01, 0.3, 1.0}) {
        Axis axis(Heavy(Nodding()));
        const auto look = [&] {
            EXPECT_LE(axis.Position(), 90000);
            EXPECT_GE(axis.Position(), -90000);
        };
        axis.MoveAt(speed, 1000);
        RunToRest(axis, look);
        EXPECT_EQ(axis.Position(), 90000);
        axis.MoveAt(-speed, 1000);
        RunToRest(axis, look);
        EXPECT_EQ(axis.Position(), -90000);
    }
}

}  // namespace
}  // namespace dome
