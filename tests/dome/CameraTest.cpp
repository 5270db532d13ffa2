#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>
#include <vector>

#include "dome/model/Camera.h"

namespace dome {
namespace {

TEST(Camera, StartsAtRest) {
    Camera camera;
    EXPECT_FALSE(camera.IsMoving());
    EXPECT_EQ(Thousandths(camera.pan), 0);
    EXPECT_EQ(Thousandths(camera.tilt), 0);
    EXPECT_EQ(camera.zoom.Magnification(), 1000u);
    EXPECT_EQ(camera.zoom.Maximum(), 20000u);
    EXPECT_TRUE(camera.focus.IsAuto());
    EXPECT_TRUE(camera.iris.IsAuto());
    EXPECT_EQ(camera.presets, 64u);
    EXPECT_EQ(camera.sensors.Temperature(0), 25);
    EXPECT_EQ(camera.sensors.VoltageStatus(), 0);
    EXPECT_EQ(camera.sensors.PowerStatus(), 0);
}

TEST(Camera, TurnsAtItsStatedSpeeds) {
    Camera camera;
    camera.pan.MoveAt(1, 300);
    camera.tilt.MoveAt(-1, 300);
    camera.Tick(1);  // longer than the acceleration
    const double pan = camera.pan.Position();
    const double tilt = camera.tilt.Position();
    EXPECT_NEAR(pan, 120000 * 0.9, 200);
    camera.Tick(0.25);
    EXPECT_NEAR(camera.pan.Position() - pan, 30000, 1e-3);
    EXPECT_NEAR(camera.tilt.Position() - tilt, -15000, 1e-3);
    camera.Tick(10);
    EXPECT_EQ(Thousandths(camera.tilt), -90000);
    EXPECT_TRUE(camera.IsMoving());  // the pan keeps moving
    camera.pan.Stop();
    camera.Tick(2);  // now the auto focus stops, too
    EXPECT_FALSE(camera.IsMoving());
}

TEST(Camera, ReportsNoPositionOfAWholeTurn) {
    Camera camera;
    camera.pan.JumpTo(359999.7);
    EXPECT_EQ(Thousandths(camera.pan), 0);
    camera.pan.JumpTo(359999.2);
    EXPECT_EQ(Thousandths(camera.pan), 359999);
    camera.tilt.JumpTo(-89999.7);
    EXPECT_EQ(Thousandths(camera.tilt), -90000);
    camera.tilt.JumpTo(90000);
    EXPECT_EQ(Thousandths(camera.tilt), 90000);
}

TEST(Zoom, MovesAtItsRateWithinItsRange) {
    Zoom zoom{Zoom::Properties{}};
    zoom.MoveTo(11000, 300);
    zoom.Tick(1);
    EXPECT_EQ(zoom.Magnification(), 6000u);
    zoom.Tick(1.01);
    EXPECT_EQ(zoom.Magnification(), 11000u);
    zoom.Move(1, 300);
    zoom.Tick(60);
    EXPECT_EQ(zoom.Magnification(), 20000u);
    zoom.Move(-1, 1);
    zoom.Tick(60);
    EXPECT_EQ(zoom.Magnification(), 15000u);
    zoom.MoveTo(0, 300);
    zoom.Tick(60);
    EXPECT_EQ(zoom.Magnification(), 1000u);
}

TEST(Zoom, ObeysItsMaximum) {
    Zoom zoom{Zoom::Properties{}};
    zoom.SetMaximum(zoom.CombinedMaximum());
    zoom.MoveTo(240000, 300);
    zoom.Tick(60);
    EXPECT_EQ(zoom.Magnification(), 240000u);
    zoom.SetMaximum(30000);
    EXPECT_EQ(zoom.Magnification(), 30000u);
    EXPECT_EQ(zoom.Maximum(), 30000u);
    EXPECT_THROW(zoom.SetMaximum(999), std::out_of_range);
    EXPECT_THROW(zoom.SetMaximum(240001), std::out_of_range);
    EXPECT_EQ(zoom.Maximum(), 30000u);
}

TEST(Focus, MovesByHandAndByItself) {
    Focus focus(Focus::kRate, [] { return Focus::kSharp; });
    focus.MoveTo(100);
    focus.Tick(0.5);
    EXPECT_NEAR(focus.Percent(), 75, 1e-6);
    focus.Move(-1);
    focus.Tick(10);
    EXPECT_EQ(focus.Percent(), 0);
    EXPECT_TRUE(focus.IsAuto());

    focus.Refocus(true);
    focus.Tick(0.1);
    EXPECT_TRUE(focus.IsFocusing());
    focus.Tick(10);
    EXPECT_FALSE(focus.IsFocusing());
    EXPECT_EQ(focus.Percent(), Focus::kSharp);
}

TEST(Focus, StopsARunOfTheAutoFocus) {
    Focus focus(Focus::kRate, [] { return Focus::kSharp; });
    focus.SetAuto(false);
    EXPECT_FALSE(focus.IsAuto());
    focus.JumpTo(0);
    focus.Refocus(true);
    focus.Tick(0.5);
    focus.Refocus(false);
    focus.Tick(10);
    EXPECT_NEAR(focus.Percent(), 25, 1e-6);
    EXPECT_FALSE(focus.IsAuto());

    focus.SetAuto(true);
    EXPECT_TRUE(focus.IsFocusing());
    focus.MoveTo(10);
    EXPECT_FALSE(focus.IsFocusing());
    focus.Refocus(false);  // no run of the auto focus to stop: the manual move continues
    focus.Tick(10);
    EXPECT_EQ(focus.Percent(), 10);
}

/// Ticks the camera until it rests; returns the seconds it took.
double RunToRest(Camera& camera) {
    double seconds = 0;
    for (; camera.IsMoving() && seconds < 100; seconds += 0.01) camera.Tick(0.01);
    EXPECT_FALSE(camera.IsMoving());
    return seconds;
}

TEST(Focus, HuntsForTheStatedTimeAndSettles) {
    Focus focus(50, [] { return 70.0; });
    focus.JumpTo(20);
    focus.Refocus(true);
    double seconds = 0;
    double min = 100;
    double max = 0;
    for (; focus.IsFocusing() && seconds < 10; seconds += 0.001) {
        const double before = focus.Percent();
        focus.Tick(0.001);
        ASSERT_LE(std::fabs(focus.Percent() - before), 50 * 0.001 + 1e-9);
        max = std::max(max, focus.Percent());
        if (max > 75) min = std::min(min, focus.Percent());
    }
    EXPECT_NEAR(seconds, (50 + Focus::kHuntDistance) / 50, 0.01);
    EXPECT_NEAR(max, 76, 0.1);
    EXPECT_NEAR(min, 66, 0.1);
    EXPECT_EQ(focus.Percent(), 70);
    EXPECT_FALSE(focus.Drive().IsMoving());
}

TEST(Focus, HuntsTheSameInOneTickAsInMany) {
    Focus focus(50, [] { return 70.0; });
    focus.JumpTo(20);
    focus.Refocus(true);
    focus.Tick((50 + 26) / 50.0 + 0.01);
    EXPECT_FALSE(focus.IsFocusing());
    EXPECT_EQ(focus.Percent(), 70);
}

TEST(Focus, FollowsTheViewWhenItHasComeToRest) {
    Camera camera;
    camera.tilt.MoveTo(30000, 1, 300);  // half of the 20 percent for looking straight up
    while (camera.tilt.IsMoving()) {
        EXPECT_EQ(camera.focus.Percent(), 50);
        camera.Tick(0.01);
    }
    EXPECT_TRUE(camera.focus.IsFocusing());
    RunToRest(camera);
    EXPECT_NEAR(camera.focus.Percent(), 60, 1e-9);
    camera.pan.MoveTo(270000, 0, 300);
    RunToRest(camera);
    EXPECT_NEAR(camera.focus.Percent(), 50, 1e-9);
    camera.zoom.MoveTo(20000, 300);
    RunToRest(camera);
    EXPECT_NEAR(camera.focus.Percent(), 60, 1e-9);
    camera.zoom.SetMaximum(100000);
    camera.zoom.MoveTo(100000, 300);  // digital zoom crops the picture; the lens stays
    RunToRest(camera);
    EXPECT_NEAR(camera.focus.Percent(), 60, 1e-9);
}

TEST(Focus, StaysWithoutAutoFocus) {
    Camera camera;
    camera.focus.SetAuto(false);
    camera.tilt.MoveTo(-90000, 1, 300);
    camera.zoom.MoveTo(20000, 300);
    RunToRest(camera);
    EXPECT_EQ(camera.focus.Percent(), 50);
    camera.focus.SetAuto(true);
    RunToRest(camera);
    EXPECT_NEAR(camera.focus.Percent(), 40, 1e-9);
}

TEST(Focus, StaysForAViewThatHardlyChangesOrWasSet) {
    Camera camera;
    camera.tilt.MoveTo(2000, 1, 300);  // 0.7 percent
    RunToRest(camera);
    EXPECT_EQ(camera.focus.Percent(), 50);
    camera.tilt.JumpTo(90000);
    camera.Tick(1);
    EXPECT_EQ(camera.focus.Percent(), 50);
}

TEST(Focus, DoesNotInterruptAManualMove) {
    Camera camera;
    camera.focus.JumpTo(0);
    camera.tilt.MoveTo(30000, 1, 300);
    camera.Tick(0.3);
    camera.focus.MoveTo(90);  // takes longer than the tilt
    RunToRest(camera);
    EXPECT_EQ(camera.focus.Percent(), 90);
    EXPECT_TRUE(camera.focus.IsAuto());
}

TEST(Iris, FollowsTheLightWithAutoIris) {
    Iris iris(50, 50);
    iris.SetLight(90);
    iris.Tick(0.5);
    EXPECT_NEAR(iris.Percent(), 25, 1e-6);
    iris.Tick(10);
    EXPECT_EQ(iris.Percent(), 10);
    iris.SetAuto(false);
    iris.SetLight(0);
    iris.Tick(10);
    EXPECT_EQ(iris.Percent(), 10);
    iris.SetAuto(true);
    iris.Tick(10);
    EXPECT_EQ(iris.Percent(), 100);
}

TEST(Iris, MovesByHandAndReturnsToAutoIris) {
    Iris iris(Iris::kRate, Iris::kLight);
    iris.SetAuto(false);
    EXPECT_FALSE(iris.IsAuto());
    iris.Move(1);
    iris.Tick(0.5);
    EXPECT_NEAR(iris.Percent(), 75, 1e-6);
    iris.Move(0);
    iris.Tick(1);
    EXPECT_NEAR(iris.Percent(), 75, 1e-6);
    iris.Move(-1);
    iris.Tick(10);
    EXPECT_EQ(iris.Percent(), 0);
    iris.SetAuto(true);
    iris.Tick(10);
    EXPECT_EQ(iris.Percent(), 50);
}

TEST(Banks, CountAndKeepStates) {
    Banks banks({{"BNK1", 4}, {"BNK2", 2}});
    EXPECT_EQ(banks.Names(), (std::vector<std::string>{"BNK1", "BNK2"}));
    EXPECT_EQ(banks.Count("BNK1"), 4);
    EXPECT_EQ(banks.Total(), 6);
    EXPECT_FALSE(banks.State("BNK2", 1));
    banks.Set("BNK2", 1, true);
    EXPECT_TRUE(banks.State("BNK2", 1));
    EXPECT_FALSE(banks.State("BNK1", 1));
    banks.Set("BNK2", 1, false);
    EXPECT_FALSE(banks.State("BNK2", 1));
}

TEST(Banks, RefuseWhatDoesNotExist) {
    Banks banks({{"BNK1", 4}});
    EXPECT_THROW(banks.Count("BNK9"), std::out_of_range);
    EXPECT_THROW(banks.State("BNK9", 0), std::out_of_range);
    EXPECT_THROW(banks.State("BNK1", 4), std::out_of_range);
    EXPECT_THROW(banks.State("BNK1", -1), std::out_of_range);
    EXPECT_THROW(banks.Set("BNK1", 4, true), std::out_of_range);
    EXPECT_THROW(banks.Set("", 0, true), std::out_of_range);
}

TEST(Banks, KeepWhatStaysWhenTheyAreReplaced) {
    Banks banks({{"A", 2}, {"B", 2}});
    banks.Set("A", 0, true);
    banks.Set("A", 1, true);
    banks.Set("B", 1, true);
    banks.Replace({{"C", 1}, {"B", 4}, {"A", 1}});
    EXPECT_EQ(banks.Names(), (std::vector<std::string>{"C", "B", "A"}));
    EXPECT_FALSE(banks.State("C", 0));
    EXPECT_TRUE(banks.State("B", 1));
    EXPECT_FALSE(banks.State("B", 3));
    EXPECT_TRUE(banks.State("A", 0));
    EXPECT_EQ(banks.Count("A"), 1);
    banks.Replace({});
    EXPECT_EQ(banks.Total(), 0);
}

TEST(Banks, AreUnchangedByARefusedReplacement) {
    Banks banks({{"A", 2}});
    EXPECT_THROW(banks.Replace({{"B", 1}, {"B", 2}}), std::invalid_argument);
    EXPECT_THROW(banks.Replace({{"B", -1}}), std::invalid_argument);
    EXPECT_THROW(banks.Replace({{"B", 1025}}), std::invalid_argument);
    EXPECT_THROW(banks.Replace({{"B", 1000}, {"C", 25}}), std::invalid_argument);
    EXPECT_THROW(banks.Replace({{"B", 2147483647}, {"C", 2147483647}}), std::invalid_argument);
    EXPECT_THROW(banks.Replace({{"", 1}}), std::invalid_argument);
    EXPECT_THROW(banks.Replace({{std::string(256, 'x'), 1}}), std::invalid_argument);
    EXPECT_EQ(banks.Names(), std::vector<std::string>{"A"});
    banks.Replace({{"B", 1000}, {std::string(255, 'x'), 24}});
    EXPECT_EQ(banks.Total(), 1024);
}

TEST(Sensors, ReportChangesOnly) {
    Sensors sensors({25, 22}, {});
    std::vector<std::pair<int, int>> temperatures;
    std::vector<int> voltages;
    std::vector<int> powers;
    sensors.ObserveTemperature([&](int sensor, int degrees) { temperatures.emplace_back(sensor, degrees); });
    sensors.ObserveVoltage([&](int status) { voltages.push_back(status); });
    sensors.ObservePower([&](int status) { powers.push_back(status); });
    sensors.SetTemperature(0, 25);
    sensors.SetTemperature(1, -40);
    sensors.SetTemperature(1, -40);
    sensors.SetTemperature(0, 26);
    sensors.SetVoltageStatus(0);
    sensors.SetVoltageStatus(2);
    sensors.SetPowerStatus(1);
    sensors.SetPowerStatus(1);
    sensors.SetPowerStatus(0);
    EXPECT_EQ(temperatures, (std::vector<std::pair<int, int>>{{1, -40}, {0, 26}}));
    EXPECT_EQ(voltages, std::vector<int>{2});
    EXPECT_EQ(powers, (std::vector<int>{1, 0}));
    EXPECT_THROW(sensors.SetTemperature(2, 20), std::out_of_range);
    EXPECT_THROW(sensors.Temperature(-1), std::out_of_range);
}

TEST(Sensors, DriftInWholeDegrees) {
    Sensors sensors({25, 22}, {3, 100});
    std::vector<int> readings;
    sensors.ObserveTemperature([&](int sensor, int degrees) {
        if (sensor == 0) readings.push_back(degrees);
    });
    for (int i = 0; i < 1000; ++i) sensors.Tick(0.1);
    EXPECT_EQ(readings, (std::vector<int>{26, 27, 28, 27, 26, 25, 24, 23, 22, 23, 24, 25}));
    EXPECT_EQ(sensors.Temperatures(), (std::vector<int>{25, 22}));
    sensors.Tick(25);
    sensors.SetTemperature(0, 60);  // set at the max of the drift, which continues from there
    EXPECT_EQ(sensors.Temperature(0), 60);
    EXPECT_EQ(sensors.Temperature(1), 25);
    sensors.Tick(50);
    EXPECT_EQ(sensors.Temperature(0), 54);
    EXPECT_EQ(sensors.Temperature(1), 19);
}

TEST(Sensors, StayWithoutDrift) {
    Camera camera;
    camera.sensors.ObserveTemperature([](int, int) { ADD_FAILURE() << "a temperature changed"; });
    camera.Tick(100000);
    EXPECT_EQ(camera.sensors.Temperatures(), (std::vector<int>{25, 22}));
}

TEST(Sensors, SwitchTheFan) {
    Sensors sensors({25, 22}, {});
    EXPECT_FALSE(sensors.IsFanRunning());
    sensors.SetTemperature(1, Sensors::kFanOn);
    EXPECT_TRUE(sensors.IsFanRunning());
    sensors.SetTemperature(1, Sensors::kFanOff + 1);
    EXPECT_TRUE(sensors.IsFanRunning());
    sensors.SetTemperature(1, Sensors::kFanOff);
    EXPECT_FALSE(sensors.IsFanRunning());
}

}  // namespace
}  // namespace dome
