#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "dome/services/Services.h"
#include "tavos/osa/Exception.h"

namespace dome {
namespace {

using tavos::osa::Exception;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

struct ServicesTest : testing::Test {
    Camera camera;
    Services services{camera};
};

TEST_F(ServicesTest, PanMovesTheCamera) {
    services.pan.SetPosition(-10000, 300);
    camera.Tick(10);
    EXPECT_EQ(services.pan.GetPosition(), 350000u);
    services.pan.SetPositionAtSpeed(0, 0.5, 300);
    EXPECT_EQ(camera.pan.Target(), 0);
    services.pan.SetRelativeVelocity(-0.25, 300);
    camera.Tick(1);
    EXPECT_DOUBLE_EQ(services.pan.GetRelativeVelocity(), -0.25);
    services.pan.SetRelativeVelocity(0, 300);
    camera.Tick(1);
    EXPECT_EQ(services.pan.GetRelativeVelocity(), 0);
    EXPECT_EQ(services.pan.GetMinPosition(), 0u);
    EXPECT_EQ(services.pan.GetMaxPosition(), 359999u);
}

TEST_F(ServicesTest, TimeLimitsReachTheCamera) {
    services.pan.SetRelativeVelocity(1, 1);
    services.tilt.SetPositionAtSpeed(90000, 0.1, 1);
    services.zoom.ZoomRelative(1, 1);
    camera.Tick(100);
    EXPECT_FALSE(camera.IsMoving());
    EXPECT_LT(services.pan.GetPosition(), 125000u);
    EXPECT_LT(static_cast<int>(services.tilt.GetPosition()), 7000);
    EXPECT_EQ(services.zoom.GetMagnificationThousandthsX(), 6000u);
}

TEST_F(ServicesTest, TiltGivesSignedPositionsAsTheirBits) {
    EXPECT_EQ(services.tilt.GetMinPosition(), -90000);
    EXPECT_EQ(services.tilt.GetMaxPosition(), 90000);
    services.tilt.SetPosition(-45000, 300);
    camera.Tick(10);
    EXPECT_EQ(services.tilt.GetPosition(), 4294922296u);
    services.tilt.SetPosition(-365000, 300);
    camera.Tick(10);
    EXPECT_EQ(static_cast<int>(services.tilt.GetPosition()), services.tilt.GetMinPosition());
    services.tilt.SetRelativeVelocity(1, 300);
    camera.Tick(10);
    EXPECT_EQ(static_cast<int>(services.tilt.GetPosition()), services.tilt.GetMaxPosition());
    EXPECT_EQ(services.tilt.GetRelativeVelocity(), 0);
}

TEST_F(ServicesTest, AxesRefuseBadArguments) {
    for (const double speed : {1.01, -1.01, kNan, HUGE_VAL}) {
        EXPECT_THROW(services.pan.SetPositionAtSpeed(100, speed, 300), Exception) << speed;
        EXPECT_THROW(services.pan.SetRelativeVelocity(speed, 300), Exception) << speed;
        EXPECT_THROW(services.tilt.SetPositionAtSpeed(100, speed, 300), Exception) << speed;
        EXPECT_THROW(services.tilt.SetRelativeVelocity(speed, 300), Exception) << speed;
    }
    EXPECT_THROW(services.pan.SetPosition(100, -1), Exception);
    EXPECT_THROW(services.pan.SetRelativeVelocity(1, -1), Exception);
    EXPECT_THROW(services.tilt.SetPosition(100, -1), Exception);
    EXPECT_THROW(services.tilt.SetRelativeVelocity(1, -1), Exception);
    EXPECT_FALSE(camera.IsMoving());
}

TEST_F(ServicesTest, ZoomMovesTheLens) {
    services.zoom.SetMagnificationThousandthsX(11000, 300);
    camera.Tick(10);
    EXPECT_EQ(services.zoom.GetMagnificationThousandthsX(), 11000u);
    services.zoom.ZoomRelative(-1, 300);
    camera.Tick(1);
    services.zoom.ZoomRelative(0, 300);
    camera.Tick(1);
    EXPECT_EQ(services.zoom.GetMagnificationThousandthsX(), 6000u);
    services.zoom.SetMaxMagnificationThousandthsX(40000);
    EXPECT_EQ(services.zoom.GetMaxMagnificationThousandthsX(), 40000u);
    EXPECT_EQ(services.zoom.GetMaxOpticalMagnificationThousandthsX(), 20000u);
    EXPECT_EQ(services.zoom.GetMaxDigitalMagnificationThousandthsX(), 12000u);
    EXPECT_THROW(services.zoom.SetMaxMagnificationThousandthsX(0), Exception);
    EXPECT_THROW(services.zoom.ZoomRelative(2, 300), Exception);
    EXPECT_THROW(services.zoom.ZoomRelative(1, -1), Exception);
    EXPECT_THROW(services.zoom.SetMagnificationThousandthsX(2000, -1), Exception);
}

TEST_F(ServicesTest, FocusMovesTheLens) {
    services.focus2.SetPosition(100);
    camera.Tick(10);
    EXPECT_EQ(services.focus2.GetPosition(), 100);
    services.focus2.RelativeFocus(-30);
    camera.Tick(10);
    EXPECT_NEAR(services.focus2.GetPosition(), 70, 1e-9);
    services.focus.MoveFocus(-1);
    camera.Tick(1);
    services.focus.MoveFocus(0);
    camera.Tick(1);
    EXPECT_NEAR(services.focus2.GetPosition(), 20, 1e-6);
    services.focus2.AutoFocus(true);
    camera.Tick(10);
    EXPECT_EQ(services.focus2.GetPosition(), Focus::kSharp);
    services.focus2.RelativeFocus(100);
    camera.Tick(10);
    EXPECT_EQ(services.focus2.GetPosition(), services.focus2.GetMaxPosition());
    services.focus.SetAutoFocus(false);
    EXPECT_FALSE(camera.focus.IsAuto());
    EXPECT_EQ(services.focus2.GetMinPosition(), 0);
    EXPECT_EQ(services.focus2.GetMinTranslation(), 0);
    EXPECT_EQ(services.focus2.GetMaxTranslation(), 100);
}

TEST_F(ServicesTest, FocusRefusesBadArguments) {
    for (const double percent : {-0.01, 100.01, kNan, HUGE_VAL}) {
        EXPECT_THROW(services.focus2.SetPosition(percent), Exception) << percent;
    }
    EXPECT_THROW(services.focus2.RelativeFocus(-100.01), Exception);
    EXPECT_THROW(services.focus2.RelativeFocus(kNan), Exception);
    EXPECT_THROW(services.focus.MoveFocus(-2), Exception);
    EXPECT_FALSE(camera.IsMoving());
}

TEST_F(ServicesTest, IrisMovesTheLens) {
    EXPECT_TRUE(services.iris.GetAutoIris());
    services.iris.SetAutoIris(false);
    EXPECT_FALSE(services.iris.GetAutoIris());
    services.iris.MoveIris(1);
    camera.Tick(10);
    EXPECT_EQ(camera.iris.Percent(), 100);
    EXPECT_THROW(services.iris.MoveIris(2), Exception);
}

TEST_F(ServicesTest, PresetsAreCounted) {
    EXPECT_EQ(services.presets2.GetMaxPresets(), 64u);
}

TEST_F(ServicesTest, AlarmsAreRead) {
    camera.alarms.Set("BNK2", 1, true);
    EXPECT_EQ(services.alarm.GetBankNames(), (std::vector<std::string>{"BNK1", "BNK2"}));
    EXPECT_EQ(services.alarm.GetBankAlarmCount("BNK1"), 4);
    EXPECT_EQ(services.alarm.GetAlarmCount(), 6);
    EXPECT_TRUE(services.alarm.GetAlarmState("BNK2", 1));
    EXPECT_FALSE(services.alarm.GetAlarmState("BNK2", 0));
    EXPECT_THROW(services.alarm.GetBankAlarmCount("BNK3"), Exception);
    EXPECT_THROW(services.alarm.GetAlarmState("BNK3", 0), Exception);
    EXPECT_THROW(services.alarm.GetAlarmState("BNK2", 2), Exception);
}

TEST_F(ServicesTest, RelaysAreSwitched) {
    services.relay.SetRelay("BNK1", 3, 1);
    EXPECT_TRUE(services.relay.GetRelayState("BNK1", 3));
    EXPECT_TRUE(camera.relays.State("BNK1", 3));
    services.relay.SetRelay("BNK1", 3, 0);
    EXPECT_TRUE(services.relay.GetRelayState("BNK1", 3));
    services.relay.ClearRelay("BNK1", 3, 1);
    EXPECT_FALSE(services.relay.GetRelayState("BNK1", 3));
    services.relay.SetRelay("BNK1", 3, 0);
    EXPECT_FALSE(services.relay.GetRelayState("BNK1", 3));
    services.relay.SetRelay("BNK2", 0, -7);
    EXPECT_TRUE(services.relay.GetRelayState("BNK2", 0));
    EXPECT_EQ(services.relay.GetRelayCount(), 6);
    EXPECT_EQ(services.relay.GetBankRelayCount("BNK2"), 2);
    EXPECT_EQ(services.relay.GetBankNames(), (std::vector<std::string>{"BNK1", "BNK2"}));
    EXPECT_THROW(services.relay.SetRelay("BNK3", 0, 1), Exception);
    EXPECT_THROW(services.relay.SetRelay("BNK1", 4, 1), Exception);
    EXPECT_THROW(services.relay.ClearRelay("BNK1", -1, 0), Exception);
    EXPECT_THROW(services.relay.GetBankRelayCount(""), Exception);
}

struct Recorder {
    void OnTemperature(int sensor, int degrees) { temperatures.emplace_back(sensor, degrees); }
    void OnStatus(int status) { statuses.push_back(status); }
    std::vector<std::pair<int, int>> temperatures;
    std::vector<int> statuses;
};

TEST_F(ServicesTest, ChangesOfTheSensorsFireEvents) {
    Recorder temperature;
    Recorder voltage;
    Recorder power;
    services.temperature.OnTemperatureChange().AddHandler(
        tavos::core::CreateDelegate(&temperature, &Recorder::OnTemperature));
    services.voltage.OnVoltageStatusChange().AddHandler(tavos::core::CreateDelegate(&voltage, &Recorder::OnStatus));
    services.power.OnPowerStatusChange().AddHandler(tavos::core::CreateDelegate(&power, &Recorder::OnStatus));
    camera.sensors.SetTemperature(1, 30);
    camera.sensors.SetTemperature(1, 30);
    camera.sensors.SetVoltageStatus(2);
    camera.sensors.SetPowerStatus(1);
    camera.sensors.SetPowerStatus(1);
    EXPECT_EQ(temperature.temperatures, (std::vector<std::pair<int, int>>{{1, 30}}));
    EXPECT_EQ(voltage.statuses, std::vector<int>{2});
    EXPECT_EQ(power.statuses, std::vector<int>{1});
    EXPECT_EQ(services.temperature.GetTemperatureDegreesCelsius(1), 30);
    EXPECT_EQ(services.voltage.GetVoltageStatus(), 2);
    EXPECT_EQ(services.power.GetPowerStatus(), 1);
    EXPECT_THROW(services.temperature.GetTemperatureDegreesCelsius(2), Exception);
    EXPECT_FALSE(services.fan.IsRunning());
    camera.sensors.SetTemperature(0, 60);
    EXPECT_TRUE(services.fan.IsRunning());
}

}  // namespace
}  // namespace dome
