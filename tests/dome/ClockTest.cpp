// The camera's clock: paused, stepped and at other rates.

#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>

#include "Desk.h"
#include "dome/ModelClock.h"
#include "dome/model/Camera.h"
#include "tavos/interfaces/IPanProvider.h"
#include "tavos/msgbus/MsgBus.h"

namespace dome::test {
namespace {

using nlohmann::json;

TEST(ModelClock, PassesTimeTimesTheRate) {
    Camera camera;
    ModelClock clock(camera);
    camera.zoom.Move(1, 300);
    clock.Pass(0.5);
    EXPECT_NEAR(camera.zoom.Drive().Position(), 3500, 1e-6);
    clock.SetRate(2);
    clock.Pass(0.25);
    EXPECT_NEAR(camera.zoom.Drive().Position(), 6000, 1e-6);
    clock.SetRate(0.01);
    clock.Pass(1);
    EXPECT_NEAR(camera.zoom.Drive().Position(), 6050, 1e-6);
    EXPECT_NEAR(clock.Time(), 1.01, 1e-12);
}

TEST(ModelClock, SkipsTheTicksOfACameraAtRest) {
    Camera camera;
    ModelClock clock(camera);
    clock.SetRate(ModelClock::kMaxRate);
    const double year = 365.0 * 24 * 3600;
    clock.Pass(year);  // would be 158 thousand million ticks
    EXPECT_EQ(clock.Time(), year * ModelClock::kMaxRate);
    camera.zoom.Move(1, 300);
    clock.Pass(0.005);
    EXPECT_NEAR(camera.zoom.Drive().Position(), 3500, 1e-6);
}

TEST(ModelClock, PassesTheTimeOfDriftingTemperaturesInTicks) {
    CameraProperties properties;
    properties.temperatures = {20};
    properties.drift = {5, 100};
    Camera camera(properties);
    int changes = 0;
    camera.sensors.ObserveTemperature([&](int, int) { ++changes; });
    ModelClock(camera).Pass(100);
    EXPECT_EQ(changes, 20);  // five up, ten down, five up
}

TEST(ModelClock, StandsStillWhilePaused) {
    Camera camera;
    ModelClock clock(camera);
    camera.zoom.Move(1, 300);
    clock.Pause();
    EXPECT_FALSE(clock.IsRunning());
    clock.Pass(5);
    EXPECT_EQ(camera.zoom.Magnification(), 1000u);
    EXPECT_EQ(clock.Time(), 0);
    clock.SetRate(100);
    clock.Step(0.5);  // independent of the rate
    EXPECT_EQ(camera.zoom.Magnification(), 3500u);
    EXPECT_EQ(clock.Time(), 0.5);
    clock.SetRate(1);
    clock.Run();
    clock.Pass(0.5);
    EXPECT_EQ(camera.zoom.Magnification(), 6000u);
}

TEST(ModelClock, StepsTheSameHoweverTheStepIsCut) {
    Camera whole;
    Camera cut;
    for (Camera* camera : {&whole, &cut}) camera->pan.MoveTo(123456, 0.7, 300);
    ModelClock(whole).Step(1);
    ModelClock clock(cut);
    for (int i = 0; i < 50; ++i) clock.Step(0.02);
    EXPECT_EQ(whole.pan.Position(), cut.pan.Position());
    EXPECT_EQ(whole.pan.Velocity(), cut.pan.Velocity());
}

TEST(ModelClock, RefusesWhatIsOutOfRange) {
    Camera camera;
    ModelClock clock(camera);
    for (const double rate : {0.0, -1.0, 0.009, 100.1}) EXPECT_THROW(clock.SetRate(rate), std::out_of_range);
    for (const double seconds : {0.0, -1.0, 3600.1}) EXPECT_THROW(clock.Step(seconds), std::out_of_range);
    EXPECT_EQ(clock.Rate(), 1);
    EXPECT_EQ(clock.Time(), 0);
}

struct DeskClock : testing::Test {
    void SetUp() override {
        setenv("TAVOS_BUS_ADDRESS", desk.BusAddress().c_str(), 1);
        ASSERT_NO_FATAL_FAILURE(desk.StartBus());
        ASSERT_NO_FATAL_FAILURE(desk.StartDome());
        bus = std::make_unique<tavos::msgbus::MsgBus>();
        pan.reset(tavos::interfaces::IPanProvider::CreateClient(bus.get()));
    }

    Desk desk;
    std::unique_ptr<tavos::msgbus::MsgBus> bus;
    std::unique_ptr<tavos::interfaces::IPanProvider> pan;
};

TEST_F(DeskClock, StepsAMoveByTheSecond) {
    desk.Control({"clock", "pause"});
    const double paused = desk.State()["clock"]["time"];
    pan->SetRelativeVelocity(1, 300);
    EXPECT_EQ(desk.State()["pan"]["position"], 0);
    desk.Control({"clock", "step", "1"});
    json state = desk.State();
    // The 0.2 s to the full speed of 120000 a second cover 12000, the next 0.8 s cover 96000.
    const int second = state["pan"]["position"];
    EXPECT_NEAR(second, 108000, 100);
    EXPECT_EQ(state["pan"]["velocity"], 1);
    EXPECT_EQ(state["clock"]["mode"], "pause");
    EXPECT_EQ(state["clock"]["rate"], 1.0);
    EXPECT_DOUBLE_EQ(state["clock"]["time"].get<double>(), paused + 1);
    desk.Control({"clock", "step", "0.5"});
    EXPECT_NEAR(desk.State()["pan"]["position"].get<int>(), second + 60000, 1);
    EXPECT_EQ(desk.State()["clock"], desk.State()["clock"]);  // the clock stands still

    pan->SetRelativeVelocity(0, 300);
    desk.Control({"clock", "step", "0.3"});
    state = desk.State();
    EXPECT_EQ(state["pan"]["moving"], false);
    EXPECT_NEAR(state["pan"]["position"].get<int>(), second + 60000 + 12000, 100);
}

TEST_F(DeskClock, RunsAtItsRate) {
    desk.Control({"clock", "rate", "100"});
    pan->SetRelativeVelocity(0.1, 300);
    // The move ends after 300 s of the camera's time: 3 s of real time.
    EXPECT_TRUE(Await([&] { return desk.State()["pan"]["moving"] == false; }));
    const json clock = desk.State()["clock"];
    EXPECT_EQ(clock["mode"], "run");
    EXPECT_EQ(clock["rate"], 100.0);
    EXPECT_GE(clock["time"].get<double>(), 300);
}

}  // namespace
}  // namespace dome::test
