// What the camera remembers of calls, motions, actions and events, and how they are joined.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "dome/Control.h"
#include "tavos/osa/Exception.h"

namespace dome {
namespace {

using Json = nlohmann::json;
using tavos::osa::Exception;
using Words = std::vector<std::string>;

struct HistoryTest : testing::Test {
    /// The head of an answer and its entries, optionally of one kind only.
    Json Head(std::uint64_t since = 0) { return Read(since).front(); }
    std::vector<Json> Entries(const std::string& kind = "", std::uint64_t since = 0) {
        std::vector<Json> entries = Read(since);
        const auto isOther = [&](const Json& json) {
            return json["kind"] == "history" || (!kind.empty() && json["kind"] != kind);
        };
        entries.erase(std::remove_if(entries.begin(), entries.end(), isOther), entries.end());
        return entries;
    }
    Json Last(const std::string& kind) { return Entries(kind).back(); }

    std::vector<Json> Read(std::uint64_t since) {
        std::istringstream lines(history.Since(since));
        std::vector<Json> read;
        for (std::string line; std::getline(lines, line);) read.push_back(Json::parse(line));
        return read;
    }

    /// As the process does it with a call from the bus.
    void Call(const std::string& operation, std::uint64_t serial, const std::function<void()>& serve) {
        history.TimePasses();
        tavos::msgbus::ReceivedCall call{"org.tavos.Pan1", operation, {}};
        call.sender = ":1.7";
        call.serial = serial;
        history.AddCall("pan", call, "ok");
        serve();
    }

    void Act(const Words& words) {
        history.Act("domectl", words, [&] {
            control.Execute(words);
            return std::string();
        });
    }

    void Pass(double seconds) {
        history.TimePasses();
        clock.Step(seconds);
    }

    Camera camera;
    ModelClock clock{camera};
    Services services{camera};
    CallLog calls;
    Faults faults{{"pan"}, [](const std::string&, bool) {}};
    History history{camera, services, clock, calls};
    Control control{camera, clock, services, calls, faults, history};
};

const Json kCall12 = {{"sender", ":1.7"}, {"serial", 12}};
const Json kCall13 = {{"sender", ":1.7"}, {"serial", 13}};

TEST_F(HistoryTest, JoinsACallWithItsMotionToTheEnd) {
    Pass(2);
    Call("SetPosition", 12, [&] { services.pan.SetPosition(3000, 300); });
    const Json call = Last("call");
    EXPECT_EQ(call["number"], 1);
    EXPECT_EQ(call["sender"], ":1.7");
    EXPECT_EQ(call["serial"], 12);
    EXPECT_EQ(call["service"], "pan");
    EXPECT_EQ(call["call"], "SetPosition");
    EXPECT_EQ(call["args"], Json::array());
    EXPECT_EQ(call["outcome"], "ok");
    EXPECT_EQ(call["clock"], 2.0);
    const Json begun = Last("motion");
    EXPECT_EQ(begun["number"], 1);
    EXPECT_EQ(begun["axis"], "pan");
    EXPECT_EQ(begun["cause"], kCall12);
    EXPECT_EQ(begun["from"], 0);
    EXPECT_EQ(begun["target"], 3000);
    EXPECT_EQ(begun["speed"], 0.5);
    EXPECT_EQ(begun["clock"], 2.0);
    EXPECT_TRUE(begun["ended"].is_null());
    Pass(5);
    ASSERT_EQ(Entries("motion").size(), 1u) << "the end replaces the begin";
    const Json ended = Last("motion");
    EXPECT_EQ(ended["number"], 1);
    EXPECT_GT(ended["change"], begun["change"]);
    EXPECT_EQ(ended["time"], begun["time"]);
    EXPECT_EQ(ended["ended"]["how"], "arrived");
    EXPECT_EQ(ended["ended"]["position"], 3000);
    EXPECT_FALSE(ended["ended"].contains("by"));
    EXPECT_GT(ended["ended"]["clock"], 2.1) << "within the step";
    EXPECT_LT(ended["ended"]["clock"], 3.0);
    EXPECT_GT(ended["ended"]["time"], ended["time"]);
}

TEST_F(HistoryTest, NamesWhoReplacedStoppedAndSetAnAxis) {
    camera.focus.SetAuto(false);
    Call("SetPosition", 12, [&] { services.tilt.SetPosition(30000, 300); });
    Pass(0.1);
    Call("SetPosition", 13, [&] { services.tilt.SetPosition(-30000, 300); });
    EXPECT_EQ(Entries("motion")[0]["ended"]["how"], "replaced");
    EXPECT_EQ(Entries("motion")[0]["ended"]["motion"], 2);
    EXPECT_EQ(Entries("motion")[0]["ended"]["by"], kCall13);
    EXPECT_EQ(Last("motion")["number"], 2);
    Pass(0.1);
    Call("SetRelativeVelocity", 12, [&] { services.tilt.SetRelativeVelocity(0, 300); });
    EXPECT_TRUE(Last("motion")["ended"].is_null()) << "it still brakes";
    Pass(2);
    EXPECT_EQ(Last("motion")["ended"]["how"], "stopped");
    EXPECT_EQ(Last("motion")["ended"]["by"], kCall12);
    Call("SetRelativeVelocity", 13, [&] { services.tilt.SetRelativeVelocity(-1, 300); });
    Act({"set", "tilt", "5"});
    EXPECT_EQ(Last("motion")["target"], nullptr);
    EXPECT_EQ(Last("motion")["speed"], -1.0);
    EXPECT_EQ(Last("motion")["ended"]["how"], "jumped");
    EXPECT_EQ(Last("motion")["ended"]["by"], (Json{{"action", 1}}));
}

TEST_F(HistoryTest, KeepsActionsWithTheirRefusals) {
    Act({"set", "light", "20"});
    EXPECT_THROW(Act({"set", "pan", "north"}), Exception);
    history.Act("page", {"call", "pan", "SetPosition"}, [] { return std::string("pan is set to hang"); });
    const std::vector<Json> actions = Entries("action");
    ASSERT_EQ(actions.size(), 3u);
    EXPECT_EQ(actions[0]["by"], "domectl");
    EXPECT_EQ(actions[0]["words"], (Json{"set", "light", "20"}));
    EXPECT_TRUE(actions[0]["refused"].is_null());
    EXPECT_EQ(actions[1]["refused"], "pan: not a whole number: north");
    EXPECT_EQ(actions[2]["by"], "page");
    EXPECT_EQ(actions[2]["refused"], "pan is set to hang");
    EXPECT_EQ(actions[2]["number"], 3);
    EXPECT_EQ(Last("motion")["axis"], "iris");
    EXPECT_EQ(Last("motion")["cause"], (Json{{"action", 1}}));
    EXPECT_EQ(Last("motion")["target"], 80.0);
}

TEST_F(HistoryTest, NamesTheCameraItselfInAStep) {
    Call("SetPosition", 12, [&] { services.tilt.SetPosition(30000, 300); });
    Act({"clock", "step", "5"});
    const Json focus = Last("motion");
    EXPECT_EQ(focus["axis"], "focus");
    EXPECT_EQ(focus["cause"], "auto focus") << "and not the action that advanced the clock";
    ASSERT_EQ(Entries("motion").size(), 2u) << "one run of the auto focus is one motion";
    EXPECT_EQ(focus["from"], 50.0);
    EXPECT_NEAR(focus["target"].get<double>(), 60, 1e-9);
    EXPECT_EQ(focus["ended"]["how"], "arrived");
    EXPECT_NEAR(focus["ended"]["position"].get<double>(), 60, 1e-9);
}

TEST_F(HistoryTest, NamesWhoStartedAndStoppedTheAutoFocus) {
    Act({"set", "focus", "0"});
    Call("AutoFocus", 12, [&] { services.focus2.AutoFocus(true); });
    Pass(0.5);
    Call("AutoFocus", 13, [&] { services.focus2.AutoFocus(false); });
    Pass(1);
    const Json focus = Last("motion");
    EXPECT_EQ(focus["cause"], kCall12);
    EXPECT_EQ(focus["target"], 50.0);
    EXPECT_EQ(focus["ended"]["how"], "stopped");
    EXPECT_EQ(focus["ended"]["by"], kCall13);
    EXPECT_NEAR(focus["ended"]["position"].get<double>(), 25, 1e-6);
}

TEST_F(HistoryTest, KeepsEventsInOrderWithTheirCauses) {
    Act({"event", "temperature", "1", "30", "--count", "50"});  // more than are emitted at once
    Act({"set", "voltage", "2"});
    history.TimePasses();
    while (control.HasEvents()) control.EmitEvents();
    services.power.OnPowerStatusChange().Fire(1);
    const std::vector<Json> events = Entries("event");
    ASSERT_EQ(events.size(), 52u);
    for (std::size_t i = 0; i < events.size(); ++i) EXPECT_EQ(events[i]["number"], i + 1);
    EXPECT_EQ(events[0]["event"], "temperature");
    EXPECT_EQ(events[0]["sensor"], 1);
    EXPECT_EQ(events[0]["value"], 30);
    EXPECT_EQ(events[0]["cause"], (Json{{"action", 1}}));
    EXPECT_EQ(events[40]["event"], "voltage");
    EXPECT_TRUE(events[40]["sensor"].is_null());
    EXPECT_EQ(events[40]["value"], 2);
    EXPECT_EQ(events[40]["cause"], (Json{{"action", 2}}));
    EXPECT_EQ(events[50]["value"], 79);
    EXPECT_EQ(events[50]["cause"], (Json{{"action", 1}})) << "long after the command";
    EXPECT_EQ(events[51]["event"], "power");
    EXPECT_EQ(events[51]["cause"], "drift");
}

TEST_F(HistoryTest, ReadsOnlyWhatHasChangedSince) {
    EXPECT_EQ(Head()["change"], 0);
    Call("SetPosition", 12, [&] { services.pan.SetPosition(3000, 300); });
    const std::uint64_t seen = Head()["change"];
    EXPECT_EQ(seen, 2u);
    EXPECT_TRUE(Entries("", seen).empty());
    EXPECT_EQ(Head(seen)["change"], seen);
    EXPECT_EQ(Head(seen)["more"], false);
    Pass(5);
    Act({"set", "presets", "3"});
    const std::vector<Json> entries = Entries("", seen);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0]["kind"], "motion") << "it has ended";
    EXPECT_EQ(entries[1]["kind"], "action");
    EXPECT_EQ(Head(seen)["change"], entries[1]["change"]);
    EXPECT_GT(Head()["started"].get<std::int64_t>(), 1'500'000'000'000'000'000);
    EXPECT_EQ(control.Execute({"history", "--since", "3"}).text.find("\"motion\""), std::string::npos);
    for (const Words& words : {Words{"history", "5"}, Words{"history", "--since"}, Words{"history", "--since", "x"},
                               Words{"history", "--since", "5"}, Words{"history", "--since", "-1"}}) {
        EXPECT_THROW(control.Execute(words), Exception);
    }
}

TEST_F(HistoryTest, HandsOutItsListsInAnswersOfABoundedSize) {
    for (std::uint64_t i = 0; i < 20000; ++i) {
        Call("SetPosition", i, [&] { services.pan.SetPosition(static_cast<int>(i % 2), 300); });
    }
    for (int i = 0; i < 300; ++i) Act({"set", "presets", "3"});
    std::map<std::string, std::uint64_t> last;
    std::map<std::string, int> counts;
    std::uint64_t change = 0;
    int answers = 0;
    for (bool isMore = true; isMore && answers < 1000; ++answers) {
        const std::string text = history.Since(change);
        EXPECT_LE(text.size(), History::kMaxAnswer + 1000);
        const std::vector<Json> entries = Read(change);
        for (std::size_t i = 1; i < entries.size(); ++i) {
            const std::string kind = entries[i]["kind"];
            ASSERT_GT(entries[i]["change"], change);
            change = entries[i]["change"];
            ++counts[kind];
        }
        isMore = entries[0]["more"];
        ASSERT_EQ(entries[0]["change"], change);
    }
    EXPECT_GT(answers, 5);
    EXPECT_EQ(counts["call"], 20000) << "none twice, none left out";
    EXPECT_GT(counts["motion"], 1000);
    EXPECT_LE(counts["motion"], static_cast<int>(History::kMaxMotions) + 1);
}

TEST_F(HistoryTest, IsBoundedInEachKind) {
    for (std::size_t i = 0; i < History::kMaxEvents + 5; ++i) services.power.OnPowerStatusChange().Fire(1);
    const std::string big(History::kMaxBytes / 16, 'x');
    const Words words{"banks", "alarm", big + "=1"};
    for (int i = 0; i < 40; ++i) EXPECT_THROW(Act(words), Exception);
    Call("SetPosition", 12, [&] { services.pan.SetPosition(3000, 300); });
    int events = 0;
    int actions = 0;
    std::uint64_t change = 0;
    for (bool isMore = true; isMore;) {
        for (const Json& entry : Read(change)) {
            if (entry["kind"] == "history") isMore = entry["more"];
            if (entry["kind"] == "event") ++events;
            if (entry["kind"] == "action") ++actions;
            change = entry["change"] > change ? entry["change"].get<std::uint64_t>() : change;
        }
    }
    EXPECT_EQ(events, static_cast<int>(History::kMaxEvents));
    EXPECT_GT(actions, 4);
    EXPECT_LT(actions, 17);
}

TEST_F(HistoryTest, KeepsCallsThatTheListOfCallsHides) {
    Call("GetPosition", 12, [] {});
    control.Execute({"calls", "--clear"});
    EXPECT_EQ(control.Execute({"calls"}).text, "");
    EXPECT_EQ(Entries("call").size(), 1u);
}

}  // namespace
}  // namespace dome
