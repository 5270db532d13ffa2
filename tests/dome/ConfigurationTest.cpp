#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>

#include "Desk.h"
#include "dome/Configuration.h"
#include "tavos/osa/Exception.h"

namespace dome::test {
namespace {

using nlohmann::json;

struct ConfigurationTest : testing::Test {
    std::string Write(const std::string& text) {
        std::ofstream(File()) << text;
        return File();
    }
    std::string File() const { return desk.Folder() + "/camera.toml"; }

    /// The error of reading the text.
    std::string Refusal(const std::string& text) {
        try {
            ReadConfiguration(Write(text));
        } catch (const tavos::osa::Exception& refused) {
            return refused.what();
        }
        return "accepted";
    }

    Desk desk;
};

TEST_F(ConfigurationTest, DefaultsToTheDeskCamera) {
    for (const std::string& file : {Write(""), std::string(DOME_TEST_CONFIGURATION)}) {
        const Configuration read = ReadConfiguration(file);
        const CameraProperties defaults;
        const CameraProperties& is = read.camera;
        EXPECT_FALSE(read.keepPosition);
        EXPECT_EQ(is.presets, defaults.presets);
        const auto same = [](const CameraProperties::Positioner& a, const CameraProperties::Positioner& b) {
            EXPECT_EQ(a.minimum, b.minimum);
            EXPECT_EQ(a.maximum, b.maximum);
            EXPECT_EQ(a.speed, b.speed);
            EXPECT_EQ(a.defaultSpeed, b.defaultSpeed);
            EXPECT_EQ(a.accelerating, b.accelerating);
        };
        same(is.pan, defaults.pan);
        same(is.tilt, defaults.tilt);
        EXPECT_EQ(is.zoom.opticalMaximum, defaults.zoom.opticalMaximum);
        EXPECT_EQ(is.zoom.digitalMaximum, defaults.zoom.digitalMaximum);
        EXPECT_EQ(is.zoom.rate, defaults.zoom.rate);
        EXPECT_EQ(is.focusRate, defaults.focusRate);
        EXPECT_EQ(is.irisRate, defaults.irisRate);
        EXPECT_EQ(is.light, defaults.light);
        const auto sameBanks = [](const std::vector<Banks::Size>& a, const std::vector<Banks::Size>& b) {
            EXPECT_TRUE(std::equal(
                a.begin(), a.end(), b.begin(), b.end(),
                [](const Banks::Size& x, const Banks::Size& y) { return x.name == y.name && x.count == y.count; }));
        };
        sameBanks(is.alarms, defaults.alarms);
        sameBanks(is.relays, defaults.relays);
        EXPECT_EQ(is.temperatures, defaults.temperatures);
        EXPECT_EQ(is.drift.degrees, defaults.drift.degrees);
        EXPECT_EQ(is.drift.period, defaults.drift.period);
    }
}

TEST_F(ConfigurationTest, NamesFileLineAndKeyOfAMistake) {
    const auto refused = [&](const std::string& text, const std::string& line, const std::string& what) {
        const std::string refusal = Refusal(text);
        EXPECT_EQ(refusal.find(File() + ':' + line + ": "), 0u) << refusal;
        EXPECT_NE(refusal.find(what), std::string::npos) << refusal;
        EXPECT_EQ(refusal.find('\n'), std::string::npos) << refusal;
    };
    refused("\nwiper = 1\n", "2", "wiper is not known");
    refused("[pan]\nminimum = 0\n", "2", "pan.minimum is not known");
    refused("[tilt]\nown_speed = 0.5\n", "2",
            "tilt.own_speed is not known; the known keys are minimum, maximum, speed, default_speed, accelerating");
    refused("\"two\\nlines\" = 1\n", "1", "two?lines is not known");
    refused("[sensors]\n\ndrfit = 1\n", "3", "sensors.drfit is not known");
    refused("presets = \"many\"\n", "1", "presets must be a whole number");
    refused("presets = 64.0\n", "1", "presets must be a whole number");
    refused("presets = -1\n", "1", "presets must be from 0");
    refused("keep_position = 1\n", "1", "keep_position must be true or false");
    refused("pan = 3\n", "1", "pan must be a table");
    refused("[tilt]\nspeed = true\n", "2", "tilt.speed must be a number");
    refused("[tilt]\nspeed = nan\n", "2", "tilt.speed must be from");
    refused("[tilt]\nminimum = 10\nmaximum = 5\n", "3", "tilt.maximum must be above minimum");
    refused("[zoom]\noptical_maximum = 0.5\n", "2", "zoom.optical_maximum must be from 1 to 100");
    refused("[sensors]\ntemperatures = []\n", "2", "sensors.temperatures must be a non-empty list");
    refused("[sensors]\ntemperatures = [1, 2.5]\n", "2", "sensors.temperatures must be a whole number");
    refused("alarm = 4\n", "1", "alarm must be a list of banks");
    refused("[[alarm]]\nname = \"A\"\n", "1", "alarm requires a name and a count");
    refused("[[alarm]]\nname = \"A\"\ncount = 1\nsize = 2\n", "4", "alarm.size is not known");
    refused("[[relay]]\nname = \"A\"\ncount = 1\n[[relay]]\nname = \"A\"\ncount = 1\n", "1", "bank A twice");
    refused("presets = 1\npresets = \n", "2", "");
    for (const std::string& file : {desk.Folder() + "/nowhere.toml", desk.Folder()}) {
        try {
            ReadConfiguration(file);
            ADD_FAILURE() << file << " was read";
        } catch (const tavos::osa::Exception& refusal) {
            EXPECT_EQ(std::string(refusal.what()).find(file + ":"), 0u) << refusal.what();
        }
    }
}

TEST_F(ConfigurationTest, MakesAnotherCamera) {
    Write(R"(presets = 7
[tilt]
minimum = -10.5
maximum = 80
[zoom]
optical_maximum = 30
[iris]
light = 80
[[alarm]]
name = "Door"
count = 1
[sensors]
temperatures = [30]
)");
    ASSERT_NO_FATAL_FAILURE(desk.StartBus());
    ASSERT_NO_FATAL_FAILURE(desk.StartDome({"--config", File()}));
    const json state = desk.State();
    EXPECT_EQ(state["presets"], 7);
    EXPECT_EQ(state["tilt"]["minimum"], -10500);
    EXPECT_EQ(state["tilt"]["maximum"], 80000);
    EXPECT_EQ(state["zoom"]["maximum"], 30000);
    EXPECT_EQ(state["iris"]["position"], 20);
    EXPECT_EQ(state["alarm"], json::parse(R"({"Door": [false]})"));
    EXPECT_EQ(state["relay"]["BNK1"].size(), 4u);
    EXPECT_EQ(state["temperature"], json::parse("[30]"));
    EXPECT_EQ(state["pan"]["maximum"], 359999);
}

TEST_F(ConfigurationTest, RefusesAFifo) {
    const std::string fifo = desk.Folder() + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const Result result = desk.Run("orvex-dome", {"--state", desk.Folder(), "--config", fifo});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "orvex-dome: " + fifo + ":0: is not a regular file\n");
}

TEST_F(ConfigurationTest, MovesWithoutASpeedUseTheDefaultSpeed) {
    const CameraProperties properties =
        ReadConfiguration(Write("[pan]\ndefault_speed = 0.25\n[tilt]\ndefault_speed = 0.125\n")).camera;
    Camera camera(properties);
    camera.pan.MoveTo(170000, 0, 300);
    camera.tilt.MoveTo(-80000, 0, 300);
    camera.Tick(1);  // past the acceleration, far from the end
    EXPECT_NEAR(camera.pan.Velocity(), 0.25, 1e-9);
    EXPECT_NEAR(camera.tilt.Velocity(), -0.125, 1e-9);
    camera.pan.MoveTo(0, 1, 300);
    camera.Tick(1);
    EXPECT_NEAR(camera.pan.Velocity(), 1, 1e-9) << "a move that names a speed uses it";
}

TEST_F(ConfigurationTest, EndsTheCameraWithOneLineWhenItIsWrong) {
    Write("presets = 7\nwiper = true\n");
    const Result result = desk.Run("orvex-dome", {"--state", desk.Folder(), "--config", File()});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors,
              "orvex-dome: " + File() +
                  ":2: wiper is not known; the known keys are keep_position, presets, pan, tilt, zoom, " +
                  "focus, iris, alarm, relay, sensors\n");
}

}  // namespace
}  // namespace dome::test
