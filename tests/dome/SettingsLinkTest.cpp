// What the camera reads from its settings, and what it stores there for a restart.

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>

#include "Desk.h"
#include "dome/SettingsLink.h"
#include "dome/model/Camera.h"
#include "tavos/core/Logger.h"
#include "tavos/settings/TavosSettingsClient.h"

namespace dome::test {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using tavos::settings::TavosSettingsClient;

struct SettingsLinkTest : testing::Test {
    void SetUp() override {
        setenv("TAVOS_SETTINGS_STORE", store.c_str(), 1);
        settings = std::make_unique<TavosSettingsClient>(TavosSettingsClient::kCreate);
        settings->SetValue("[Imaging/Focus]Mode", "Auto");
    }
    void TearDown() override { unsetenv("TAVOS_SETTINGS_STORE"); }

    void SetMode(const std::string& mode) { settings->SetValue("[Imaging/Focus]Mode", mode); }

    /// Checks the settings again one second later.
    void Look(SettingsLink& link) { link.Work(now += 1s); }

    Desk desk;  // uses only its folder
    const std::string store = desk.Folder() + "/settings.db";
    std::unique_ptr<TavosSettingsClient> settings;
    SettingsLink::Clock::time_point now = SettingsLink::Clock::now();
    Camera camera;
};

TEST_F(SettingsLinkTest, FollowsTheModeOfTheAutoFocus) {
    SettingsLink link(camera, store, false);
    link.Restore();
    EXPECT_TRUE(camera.focus.IsAuto());
    EXPECT_FALSE(camera.IsMoving());
    SetMode("Manual");
    Look(link);
    EXPECT_FALSE(camera.focus.IsAuto());
    SetMode("anything");
    link.Work(now + 900ms);  // too early
    EXPECT_FALSE(camera.focus.IsAuto());
    Look(link);
    EXPECT_TRUE(camera.focus.IsAuto());
}

bool IsReadable(int descriptor, int milliseconds) {
    pollfd watched{descriptor, POLLIN, 0};
    return poll(&watched, 1, milliseconds) == 1;
}

constexpr auto kNever = SettingsLink::Clock::time_point::max();

TEST_F(SettingsLinkTest, SleepsUntilTheStoreChanges) {
    SettingsLink link(camera, store, false);
    link.Restore();
    Look(link);
    EXPECT_EQ(link.NextWork(), kNever);
    EXPECT_FALSE(IsReadable(link.Descriptor(), 50));
    SetMode("Manual");
    ASSERT_TRUE(IsReadable(link.Descriptor(), 5000));
    link.Work(now + 100ms);  // too early for another look
    EXPECT_FALSE(IsReadable(link.Descriptor(), 0)) << "the change would wake the camera until it looks";
    EXPECT_EQ(link.NextWork(), now + 1s);
    Look(link);
    EXPECT_FALSE(camera.focus.IsAuto());
    Look(link);  // the read of the store has changed the files beside it
    EXPECT_EQ(link.NextWork(), kNever);
    EXPECT_FALSE(IsReadable(link.Descriptor(), 50));
}

TEST_F(SettingsLinkTest, WakesForAStoreThatAppearsOrIsReplaced) {
    std::filesystem::rename(store, store + ".later");
    SettingsLink link(camera, store, false);
    link.Restore();
    Look(link);
    EXPECT_EQ(link.NextWork(), kNever);
    std::filesystem::rename(store + ".later", store);
    EXPECT_TRUE(IsReadable(link.Descriptor(), 5000));
    Look(link);
    Look(link);
    EXPECT_FALSE(IsReadable(link.Descriptor(), 50));
    std::filesystem::copy(store, store + ".copy");
    Look(link);
    std::filesystem::rename(store + ".copy", store);
    EXPECT_TRUE(IsReadable(link.Descriptor(), 5000));
    Look(link);
    std::ofstream(store, std::ios::app) << "";  // no change
    std::filesystem::last_write_time(store, std::filesystem::file_time_type::clock::now());
    EXPECT_TRUE(IsReadable(link.Descriptor(), 5000)) << "the file that replaced the first one is watched, too";
}

TEST_F(SettingsLinkTest, LooksOnceASecondWhereItCannotWatch) {
    const std::string link = desk.Folder() + "/linked.db";
    std::filesystem::create_symlink(store, link);
    SettingsLink followed(camera, link, false);
    followed.Restore();
    Look(followed);
    EXPECT_EQ(followed.NextWork(), now + 1s);
    SetMode("Manual");
    Look(followed);
    EXPECT_FALSE(camera.focus.IsAuto());
    SettingsLink nowhere(camera, desk.Folder() + "/missing/settings.db", false);
    nowhere.Work(now);
    EXPECT_EQ(nowhere.NextWork(), now + 1s);
}

TEST_F(SettingsLinkTest, ComesBackToAStoreThatFailed) {
    SettingsLink link(camera, store, false);
    link.Restore();
    Look(link);
    std::ofstream(store) << "no store";
    Look(link);
    EXPECT_EQ(link.NextWork(), now + 10s);
}

TEST_F(SettingsLinkTest, BeginsWithoutTheAutoFocusWhenItIsManual) {
    SetMode("Manual");
    SettingsLink link(camera, store, false);
    link.Restore();
    EXPECT_FALSE(camera.focus.IsAuto());
}

TEST_F(SettingsLinkTest, LeavesWhatWasSwitchedSinceTheModeChanged) {
    SetMode("Manual");
    SettingsLink link(camera, store, false);
    link.Restore();
    camera.focus.SetAuto(true);
    settings->SetValue("[Other]Key", "1");
    Look(link);
    EXPECT_TRUE(camera.focus.IsAuto());
}

TEST_F(SettingsLinkTest, KeepsTheRelays) {
    {
        SettingsLink link(camera, store, false);
        link.Restore();
        camera.relays.Set("BNK1", 3, true);
        camera.relays.Set("BNK2", 0, true);
        Look(link);
    }
    Camera next;
    SettingsLink link(next, store, false);
    link.Restore();
    EXPECT_EQ(next.relays.All()[0].states, (std::vector<bool>{false, false, false, true}));
    EXPECT_EQ(next.relays.All()[1].states, (std::vector<bool>{true, false}));
    EXPECT_EQ(settings->GetValue("[Dome/State]Positions"), "");

    CameraProperties fewer;
    fewer.relays = {{"NEW", 2}, {"BNK1", 2}};
    Camera other(fewer);
    SettingsLink(other, store, false).Restore();
    EXPECT_EQ(other.relays.All()[0].states, (std::vector<bool>{false, false}));
    EXPECT_EQ(other.relays.All()[1].states, (std::vector<bool>{false, false}));
}

TEST_F(SettingsLinkTest, StoresRelaysAtOnceOnRequest) {
    SettingsLink link(camera, store, false);
    link.Restore();
    int changes = 0;
    camera.relays.OnChange([&] { ++changes, link.KeepRelays(); });
    camera.relays.Set("BNK1", 3, false);
    EXPECT_EQ(changes, 0) << "the state was the same";
    camera.relays.Set("BNK1", 3, true);
    EXPECT_EQ(changes, 1);
    const std::string log = store + "-wal";
    EXPECT_GT(std::filesystem::file_size(log), 0u);
    EXPECT_EQ(settings->GetValue("[Dome/State]Relays"), R"({"BNK1":"0001","BNK2":"00"})");
    Look(link);
    EXPECT_FALSE(std::filesystem::exists(log)) << "a second later it is in the store's file";
    EXPECT_EQ(settings->GetValue("[Dome/State]Relays"), R"({"BNK1":"0001","BNK2":"00"})");
}

/// Of the store's files, also of removed ones.
int DescriptorsOf(const std::string& store) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        count += std::filesystem::read_symlink(entry, error).string().rfind(store, 0) == 0 ? 1 : 0;
    }
    return count;
}

TEST_F(SettingsLinkTest, KeepsTheStoreOpenForASecondAtMost) {
    SettingsLink link(camera, store, false);
    link.Restore();
    camera.relays.OnChange([&] { link.KeepRelays(); });
    camera.relays.Set("BNK1", 3, true);
    EXPECT_GT(DescriptorsOf(store), 0);
    std::filesystem::remove(store);
    Look(link);
    EXPECT_EQ(DescriptorsOf(store), 0);
}

TEST_F(SettingsLinkTest, StoresLaterWhatItCouldNotStoreAtOnce) {
    SettingsLink link(camera, store, false);
    link.Restore();
    camera.relays.OnChange([&] { link.KeepRelays(); });
    camera.relays.Set("BNK1", 3, true);
    EXPECT_EQ(settings->GetValue("[Dome/State]Relays"), R"({"BNK1":"0001","BNK2":"00"})");
    std::filesystem::rename(store, store + ".away");
    camera.relays.Set("BNK1", 3, false);
    std::filesystem::rename(store + ".away", store);
    Look(link);
    EXPECT_EQ(settings->GetValue("[Dome/State]Relays"), R"({"BNK1":"0000","BNK2":"00"})");
}

TEST_F(SettingsLinkTest, SwitchesRelaysWithAStoreThatRefusesThem) {
    SettingsLink link(camera, store, false);
    link.Restore();
    std::ofstream(store, std::ios::trunc) << "no store";
    camera.relays.OnChange([&] { link.KeepRelays(); });
    camera.relays.Set("BNK1", 3, true);  // refused
    std::filesystem::remove(store);
    camera.relays.Set("BNK1", 2, true);  // left alone
    EXPECT_FALSE(std::filesystem::exists(store));
    EXPECT_EQ(camera.relays.All()[0].states, (std::vector<bool>{false, false, true, true}));
}

TEST_F(SettingsLinkTest, StoresNothingForAnUnchangedCamera) {
    SettingsLink link(camera, store, true);
    link.Restore();
    Look(link);
    EXPECT_EQ(settings->GetValue("[Dome/State]Relays"), "");
    EXPECT_EQ(settings->GetValue("[Dome/State]Positions"), "");
}

TEST_F(SettingsLinkTest, KeepsPositionsOnceTheyHaveComeToRest) {
    SettingsLink link(camera, store, true);
    link.Restore();
    camera.focus.SetAuto(false);
    camera.pan.MoveTo(12345, 1, 300);
    camera.tilt.MoveTo(-45000, 1, 300);
    camera.zoom.MoveTo(3000, 300);
    camera.focus.MoveTo(62.5);
    camera.Tick(0.1);
    Look(link);
    EXPECT_EQ(settings->GetValue("[Dome/State]Positions"), "") << "not stored while it moves";
    camera.Tick(10);
    Look(link);
    Camera next;
    SettingsLink(next, store, true).Restore();
    EXPECT_EQ(next.pan.Position(), 12345);
    EXPECT_EQ(next.tilt.Position(), -45000);
    EXPECT_EQ(next.zoom.Magnification(), 3000u);
    EXPECT_EQ(next.focus.Percent(), 62.5);
    EXPECT_EQ(next.iris.Percent(), 50);
    EXPECT_FALSE(next.IsMoving());

    Camera forgetful;
    SettingsLink(forgetful, store, false).Restore();
    EXPECT_EQ(forgetful.pan.Position(), 0);
}

TEST_F(SettingsLinkTest, IgnoresMalformedTexts) {
    for (const char* text : {"", "nonsense", "[1,2]", "{\"pan\":\"x\",\"tilt\":1e9,\"BNK1\":7,\"zoom\":null}"}) {
        settings->SetValue("[Dome/State]Relays", text);
        settings->SetValue("[Dome/State]Positions", text);
        Camera next;
        SettingsLink(next, store, true).Restore();
        EXPECT_EQ(next.pan.Position(), 0) << text;
        EXPECT_EQ(next.tilt.Position(), 0) << text;
        EXPECT_EQ(next.zoom.Magnification(), 1000u) << text;
        EXPECT_EQ(next.relays.All()[0].states, std::vector<bool>(4)) << text;
    }
}

TEST_F(SettingsLinkTest, DoesNotTouchAStoreThatHasNotChanged) {
    SettingsLink link(camera, store, true);
    link.Restore();
    Look(link);
    Look(link);
    // Reading it now would fail: the file is not a store any more, but has its old size and time.
    const auto time = std::filesystem::last_write_time(store);
    const auto size = std::filesystem::file_size(store);
    std::ofstream(store, std::ios::trunc) << std::string(size, 'x');
    std::filesystem::last_write_time(store, time);
    camera.focus.SetAuto(false);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Look(link);
    EXPECT_EQ(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr(), "");
    EXPECT_FALSE(camera.focus.IsAuto());
    camera.relays.Set("BNK1", 0, true);
    EXPECT_NO_THROW(Look(link));  // the read fails; the camera keeps running
}

TEST_F(SettingsLinkTest, RunsWithoutAStore) {
    std::filesystem::remove(store);
    SettingsLink link(camera, store, true);
    link.Restore();
    camera.relays.Set("BNK1", 0, true);
    Look(link);
    EXPECT_FALSE(std::filesystem::exists(store));
    EXPECT_TRUE(camera.focus.IsAuto());
}

TEST(KeptState, SurvivesAKillOfTheCamera) {
    Desk desk;
    ASSERT_NO_FATAL_FAILURE(desk.StartBus());
    const std::string store = desk.Folder() + "/settings.db";
    ASSERT_EQ(desk.Run("tavos-settings", {"--store", store, "import", DOME_TEST_SETTINGS}).status, 0);
    const std::string configuration = desk.Folder() + "/camera.toml";
    std::ofstream(configuration) << "keep_position = true\n";
    ASSERT_NO_FATAL_FAILURE(desk.StartDome({"--config", configuration}));
    desk.Control({"set", "relay", "BNK2", "1", "1"});
    desk.Control({"set", "tilt", "-30000"});
    const auto stored = [&](const char* key) {
        return desk.Run("tavos-settings", {"--store", store, "get", std::string("[Dome/State]") + key}).output;
    };
    ASSERT_TRUE(Await([&] { return stored("Relays").find("\"01\"") != std::string::npos; })) << stored("Relays");
    ASSERT_TRUE(Await([&] { return stored("Positions").find("-30000") != std::string::npos; })) << stored("Positions");
    ASSERT_EQ(desk.Run("tavos-settings", {"--store", store, "set", "[Imaging/Focus]Mode", "Manual"}).status, 0);
    EXPECT_TRUE(Await([&] { return desk.State()["focus"]["auto"] == false; }));
    desk.Dome().Signal(SIGKILL);
    desk.Dome().Wait();
    ASSERT_NO_FATAL_FAILURE(desk.StartDome({"--config", configuration}));
    const json state = desk.State();
    EXPECT_EQ(state["relay"]["BNK2"], json::parse("[false,true]"));
    EXPECT_EQ(state["tilt"]["position"], -30000);
    EXPECT_EQ(state["focus"]["auto"], false);
    EXPECT_EQ(desk.Read("dome.err"), "");
}

}  // namespace
}  // namespace dome::test
