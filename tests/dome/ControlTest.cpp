#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "dome/Control.h"
#include "tavos/osa/Exception.h"

namespace dome {
namespace {

using Json = nlohmann::ordered_json;
using tavos::osa::Exception;

struct ControlTest : testing::Test {
    std::string Execute(const std::vector<std::string>& words) { return control.Execute(words).text; }
    Json State() { return Json::parse(control.State()); }

    Camera camera;
    ModelClock clock{camera};
    Services services{camera};
    CallLog calls;
    std::vector<std::pair<std::string, bool>> presence;
    Faults faults{{"pan", "alarm"},
                  [this](const std::string& service, bool present) { presence.emplace_back(service, present); }};
    History history{camera, services, clock, calls};
    Control control{camera, clock, services, calls, faults, history};
};

TEST_F(ControlTest, SetsThings) {
    Execute({"set", "pan", "359999"});
    Execute({"set", "tilt", "-45000"});
    Execute({"set", "zoom-max", "30000"});
    Execute({"set", "zoom", "25000"});
    Execute({"set", "focus", "12.5"});
    Execute({"set", "iris", "75"});
    Execute({"set", "auto-focus", "0"});
    Execute({"set", "auto-iris", "0"});
    Execute({"set", "light", "12"});
    Execute({"set", "presets", "255"});
    Execute({"set", "temperature", "-5"});
    Execute({"set", "temperature", "1", "70"});
    Execute({"set", "voltage", "2"});
    Execute({"set", "power", "1"});
    Execute({"set", "alarm", "BNK1", "3", "1"});
    Execute({"set", "relay", "BNK2", "0", "1"});
    const Json state = State();
    EXPECT_EQ(state["pan"]["position"], 359999);
    EXPECT_EQ(state["tilt"]["position"], -45000);
    EXPECT_EQ(state["zoom"]["maximum"], 30000);
    EXPECT_EQ(state["zoom"]["position"], 25000);
    EXPECT_EQ(state["focus"]["position"], 12.5);
    EXPECT_EQ(state["focus"]["auto"], false);
    EXPECT_EQ(state["iris"]["position"], 75);
    EXPECT_EQ(state["iris"]["auto"], false);
    EXPECT_EQ(state["iris"]["light"], 12);
    EXPECT_EQ(state["presets"], 255);
    EXPECT_EQ(state["temperature"], Json::parse("[-5,70]"));
    EXPECT_EQ(state["fan"], true);
    EXPECT_EQ(state["voltage"], 2);
    EXPECT_EQ(state["power"], 1);
    EXPECT_EQ(state["alarm"]["BNK1"], Json::parse("[false,false,false,true]"));
    EXPECT_EQ(state["relay"]["BNK2"], Json::parse("[true,false]"));
}

TEST_F(ControlTest, ShowsMotion) {
    camera.pan.MoveTo(180000, 0.5, 300);
    camera.tilt.MoveAt(-1, 300);
    camera.Tick(0.5);
    const Json state = State();
    EXPECT_EQ(state["pan"]["moving"], true);
    EXPECT_EQ(state["pan"]["target"], 180000);
    EXPECT_EQ(state["pan"]["velocity"], 0.5);
    EXPECT_EQ(state["pan"]["minimum"], 0);
    EXPECT_EQ(state["pan"]["maximum"], 359999);
    EXPECT_EQ(state["tilt"]["velocity"], -1);
    EXPECT_TRUE(state["tilt"]["target"].is_null());
    EXPECT_EQ(state["tilt"]["minimum"], -90000);
    EXPECT_EQ(state["tilt"]["maximum"], 90000);
}

TEST_F(ControlTest, RefusesWhatItDoesNotUnderstandAndChangesNothing) {
    const std::string before = Execute({"state"});
    const std::vector<std::vector<std::string>> bad = {
        {},
        {"dance"},
        {"state", "now"},
        {"calls", "--all"},
        {"set"},
        {"set", "pan"},
        {"set", "pan", ""},
        {"set", "pan", "north"},
        {"set", "pan", "12x"},
        {"set", "pan", "1.5"},
        {"set", "pan", "99999999999"},
        {"set", "pan", "1", "2"},
        {"set", "pan", "-1"},
        {"set", "pan", "360000"},
        {"set", "tilt", "90001"},
        {"set", "tilt", "-90001"},
        {"set", "zoom", "999"},
        {"set", "zoom", "20001"},
        {"set", "zoom-max", "999"},
        {"set", "zoom-max", "-1"},
        {"set", "focus", "101"},
        {"set", "focus", "nan"},
        {"set", "light", "101"},
        {"set", "auto-iris", "2"},
        {"set", "auto-focus", "yes"},
        {"set", "temperature", "2", "20"},
        {"set", "temperature", "-1", "20"},
        {"set", "temperature", "0", "20", "1"},
        {"set", "voltage", "low"},
        {"set", "alarm", "BNK1", "4", "1"},
        {"set", "alarm", "BNK1", "1", "2"},
        {"set", "alarm", "BNK1", "1"},
        {"set", "relay", "BNK3", "0", "1"},
        {"set", "wiper", "1"},
        {"banks"},
        {"banks", "lamps", "A=1"},
        {"banks", "alarm"},
        {"banks", "relay"},
        {"banks", "relay", "none", "A=1"},
        {"banks", "alarm", "A"},
        {"banks", "alarm", "A="},
        {"banks", "alarm", "=1"},
        {"banks", "alarm", "A=-1"},
        {"banks", "alarm", "A=1025"},
        {"banks", "relay", "A=1000", "B=25"},
        {"banks", "relay", "A=1", "A=2"},
        {"clock"},
        {"clock", "back"},
        {"clock", "run", "1"},
        {"clock", "step"},
        {"clock", "step", "0"},
        {"clock", "step", "-1"},
        {"clock", "step", "nan"},
        {"clock", "step", "3600.1"},
        {"clock", "rate"},
        {"clock", "rate", "0"},
        {"clock", "rate", "101"},
        {"clock", "rate", "fast"},
        {"event"},
        {"event", "wiper", "1"},
        {"event", "temperature", "30"},
        {"event", "temperature", "2", "30"},
        {"event", "temperature", "-1", "30"},
        {"event", "voltage", "x"},
        {"event", "voltage", "1", "2"},
        {"event", "voltage", "1", "--count", "0"},
        {"event", "voltage", "1", "--count", "100001"},
        {"event", "voltage", "2147483647", "--count", "2"},
        {"event", "voltage", "1", "--count"},
        {"event", "--count", "3"},
        {"fault", "pan"},
        {"fault", "pan", "broken"},
        {"fault", "wiper", "ok"},
    };
    for (const auto& words : bad) {
        std::string all;
        for (const std::string& word : words) all += word + " ";
        EXPECT_THROW(Execute(words), Exception) << all;
    }
    EXPECT_EQ(Execute({"state"}), before);
    EXPECT_TRUE(presence.empty());
}

TEST_F(ControlTest, NamesTheMaxNumberOfRows) {
    try {
        Execute({"banks", "relay", "A=1000", "B=25"});
        ADD_FAILURE() << "taken";
    } catch (const Exception& refused) {
        EXPECT_STREQ(refused.what(), "bank B: all banks together have more than 1024 rows");
    }
}

TEST_F(ControlTest, NamesTheValueAndItsRange) {
    Execute({"banks", "alarm", "BNK1=4", "EMPTY=0"});
    const std::vector<std::pair<std::vector<std::string>, std::string>> refusals = {
        {{"set", "pan", "999999"}, "pan 999999 outside 0 to 359999"},
        {{"set", "pan", "99999999999999999999"}, "pan 99999999999999999999 outside 0 to 359999"},
        {{"set", "pan", "1.5"}, "pan: not a whole number: 1.5"},
        {{"set", "tilt", "-90001"}, "tilt -90001 outside -90000 to 90000"},
        {{"set", "zoom", "20001"}, "zoom 20001 outside 1000 to 20000"},
        {{"set", "zoom-max", "240001"}, "zoom-max 240001 outside 1000 to 240000"},
        {{"set", "zoom-max", "-1"}, "zoom-max -1 outside 1000 to 240000"},
        {{"set", "focus", "100.5"}, "focus 100.5 outside 0 to 100"},
        {{"set", "iris", "-1"}, "iris -1 outside 0 to 100"},
        {{"set", "light", "nan"}, "light nan outside 0 to 100"},
        {{"set", "auto-iris", "2"}, "not 0 or 1: 2"},
        {{"set", "presets", "4294967296"}, "presets 4294967296 outside 0 to 4294967295"},
        {{"set", "voltage", "2147483648"}, "voltage 2147483648 outside -2147483648 to 2147483647"},
        {{"set", "temperature", "2", "30"}, "temperature sensor 2 outside 0 to 1"},
        {{"set", "temperature", "9999999999"}, "temperature 9999999999 outside -2147483648 to 2147483647"},
        {{"set", "alarm", "BNK1", "4", "1"}, "number in bank BNK1: 4 outside 0 to 3"},
        {{"set", "alarm", "EMPTY", "0", "1"}, "bank EMPTY has nothing to set"},
        {{"banks", "relay"}, "banks relay: NAME=COUNT or none is missing"},
        {{"event", "temperature", "7", "30"}, "temperature sensor 7 outside 0 to 1"},
        {{"event", "power", "2147483648"}, "power 2147483648 outside -2147483648 to 2147483647"},
        {{"event", "power", "1", "--count", "100001"}, "--count 100001 outside 1 to 100000"},
        {{"event", "power", "2147483647", "--count", "2"}, "2 events from 2147483647 on end above 2147483647"},
    };
    for (const auto& [words, reason] : refusals) {
        try {
            Execute(words);
            ADD_FAILURE() << "accepted, not refused with: " << reason;
        } catch (const Exception& refused) {
            EXPECT_EQ(refused.what(), reason);
        }
    }
}

TEST_F(ControlTest, ReplacesBanks) {
    Execute({"set", "alarm", "BNK2", "1", "1"});
    Execute({"banks", "alarm", "zz=1", "BNK2=3", "a=b=2"});
    EXPECT_EQ(State()["alarm"].dump(), R"({"zz":[false],"BNK2":[false,true,false],"a=b":[false,false]})");
    EXPECT_EQ(State()["relay"]["BNK1"].size(), 4u);
    Execute({"banks", "relay", "R=1000", "S=24"});
    EXPECT_EQ(State()["relay"]["R"].size(), 1000u);
    Execute({"banks", "relay", "none"});
    EXPECT_EQ(State()["relay"].dump(), "{}");
}

TEST_F(ControlTest, ShowsAsManyPointsAsItIsAskedFor) {
    for (const char* kind : {"alarm", "relay"}) {
        Execute({"banks", kind, "A=500", "B=12"});
        const Json all = Json::parse(control.State(512));
        EXPECT_EQ(all[kind]["A"].size(), 500u);
        EXPECT_EQ(all[kind]["B"].size(), 12u);
        EXPECT_FALSE(all.contains("shortened")) << "512 are within the max";
        Execute({"banks", kind, "A=500", "B=13"});
        const Json first = Json::parse(control.State(512));
        EXPECT_EQ(first[kind]["B"].size(), 12u);
        EXPECT_EQ(first["shortened"], true);
        Execute({"banks", kind, "A=1"});
    }
}

struct Recorder {
    void OnTemperature(int sensor, int degrees) { temperatures.emplace_back(sensor, degrees); }
    void OnStatus(int status) { statuses.push_back(status); }
    std::vector<std::pair<int, int>> temperatures;
    std::vector<int> statuses;
};

TEST_F(ControlTest, FiresEventsThatLeaveTheReadingsAlone) {
    Recorder temperature;
    Recorder voltage;
    Recorder power;
    services.temperature.OnTemperatureChange().AddHandler(
        tavos::core::CreateDelegate(&temperature, &Recorder::OnTemperature));
    services.voltage.OnVoltageStatusChange().AddHandler(tavos::core::CreateDelegate(&voltage, &Recorder::OnStatus));
    services.power.OnPowerStatusChange().AddHandler(tavos::core::CreateDelegate(&power, &Recorder::OnStatus));
    const std::string before = control.State();
    Execute({"event", "temperature", "1", "-3"});
    Execute({"event", "temperature", "0", "40", "--count", "2"});
    Execute({"event", "voltage", "1"});
    Execute({"event", "power", "5", "--count", "3"});
    EXPECT_EQ(temperature.temperatures, (std::vector<std::pair<int, int>>{{1, -3}, {0, 40}, {0, 41}}));
    EXPECT_EQ(voltage.statuses, std::vector<int>{1});
    EXPECT_EQ(power.statuses, (std::vector<int>{5, 6, 7}));
    EXPECT_EQ(control.State(), before);
}

TEST_F(ControlTest, EmitsASeriesOfEventsAfterItsAnswer) {
    Recorder power;
    services.power.OnPowerStatusChange().AddHandler(tavos::core::CreateDelegate(&power, &Recorder::OnStatus));
    const std::uint64_t row = control.Execute({"event", "power", "1", "--count", "1000"}).more;
    ASSERT_NE(row, 0u);
    EXPECT_LT(power.statuses.size(), 100u) << "other work must get its turn";
    EXPECT_TRUE(control.HasEvents());
    const std::uint64_t next = control.Execute({"event", "power", "-1"}).more;
    const std::string number = std::to_string(row);
    while (control.Execute({"more", number}).more == row) control.EmitEvents();
    EXPECT_GE(power.statuses.size(), 1000u);
    while (control.HasEvents()) control.EmitEvents();
    EXPECT_EQ(control.Execute({"more", std::to_string(next)}).more, 0u);
    ASSERT_EQ(power.statuses.size(), 1001u);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(power.statuses[static_cast<std::size_t>(i)], i + 1);
    EXPECT_EQ(power.statuses.back(), -1) << "the series keep their order";
    EXPECT_EQ(control.Execute({"event", "power", "3"}).more, 0u) << "one alone is emitted at once";
    EXPECT_EQ(power.statuses.back(), 3);
    EXPECT_THROW(control.Execute({"more"}), Exception);
    EXPECT_THROW(control.Execute({"more", "events"}), Exception);
    EXPECT_EQ(control.Execute({"more", "1002"}).more, 0u);
    EXPECT_THROW(control.Execute({"more", "1003"}), Exception) << "so many were never requested";
}

TEST_F(ControlTest, TakesAndReleasesNamesOnlyOnAChange) {
    using Presence = std::vector<std::pair<std::string, bool>>;
    Execute({"fault", "pan", "fail"});
    EXPECT_EQ(faults.Treatment("pan"), Treatment::kFail);
    Execute({"fault", "pan", "hang"});
    EXPECT_EQ(faults.Treatment("pan"), Treatment::kHang);
    EXPECT_EQ(faults.Treatment("alarm"), Treatment::kServe);
    EXPECT_EQ(presence, Presence{});
    Execute({"fault", "pan", "gone"});
    Execute({"fault", "pan", "gone"});
    EXPECT_EQ(presence, (Presence{{"pan", false}}));
    EXPECT_EQ(State()["faults"]["pan"], "gone");
    Execute({"fault", "pan", "ok"});
    EXPECT_EQ(presence, (Presence{{"pan", false}, {"pan", true}}));
    EXPECT_EQ(faults.Treatment("pan"), Treatment::kServe);
}

TEST_F(ControlTest, EveryFaultIsSetAndShownByItsName) {
    for (const FaultKind& kind : kFaultKinds) {
        presence.clear();
        Execute({"fault", "pan", kind.name});
        EXPECT_EQ(State()["faults"]["pan"], kind.name);
        EXPECT_EQ(faults.All().at("pan"), kind.fault);
        EXPECT_EQ(faults.Treatment("pan"), kind.treatment);
        EXPECT_EQ(presence.empty(), kind.present) << kind.name;
    }
}

TEST(CallLog, WritesArgumentsByTheirKind) {
    CallLog log;
    log.Add("pan", {"org.tavos.Pan1", "SetPositionAtSpeed", {180000, 0.5039370078740157, 300}}, "ok");
    log.Add("focus", {"org.tavos.Focus1", "SetAutoFocus", {true}}, "fail");
    log.Add("relay", {"org.tavos.Relay3", "SetRelay", {"12", 3, -1}}, "hang");
    log.Add("alarm", {"org.tavos.Alarm3", "GetBankAlarmCount", {"a \"b\"\n"}}, "ok");
    log.Add("pan", {"org.tavos.Pan1", "SetRelativeVelocity", {1e-05, std::nan("")}}, "ok");
    log.Add("fan", {"org.tavos.Fan2", "IsRunning", {}}, "ok");
    EXPECT_EQ(log.Lines(),
              R"({"service":"pan","call":"SetPositionAtSpeed","args":[180000,0.5039370078740157,300],"outcome":"ok"})"
              "\n"
              R"({"service":"focus","call":"SetAutoFocus","args":[true],"outcome":"fail"})"
              "\n"
              R"({"service":"relay","call":"SetRelay","args":["12",3,-1],"outcome":"hang"})"
              "\n"
              R"({"service":"alarm","call":"GetBankAlarmCount","args":["a \"b\"\n"],"outcome":"ok"})"
              "\n"
              R"({"service":"pan","call":"SetRelativeVelocity","args":[1e-05,"nan"],"outcome":"ok"})"
              "\n"
              R"({"service":"fan","call":"IsRunning","args":[],"outcome":"ok"})"
              "\n");
    log.Clear();
    EXPECT_EQ(log.Lines(), "");
}

TEST(CallLog, QuotesEveryText) {
    const std::pair<std::string, std::string> kTexts[] = {
        {"", R"("")"},           {" ~", R"(" ~")"},    {"a\\b", R"("a\\b")"},    {"\"", R"("\"")"},
        {"\x1F", R"("\u001f")"}, {"\x7F", "\"\x7F\""}, {"\u00e9", "\"\u00e9\""}, {"\xFF", "\"\uFFFD\""},
    };
    for (const auto& [text, quoted] : kTexts) {
        CallLog log;
        log.Add("alarm", {"org.tavos.Alarm3", "GetBankAlarmCount", {text}}, "ok");
        EXPECT_EQ(log.Lines(),
                  R"({"service":"alarm","call":"GetBankAlarmCount","args":[)" + quoted + "],\"outcome\":\"ok\"}\n");
    }
}

TEST(CallLog, KeepsTheLatestCallsOnly) {
    CallLog log;
    for (std::size_t i = 0; i < CallLog::kMaxCalls + 5; ++i) {
        log.Add("power", {"org.tavos.Power2", "GetPowerStatus", {static_cast<std::uint32_t>(i)}}, "ok");
    }
    const std::string lines = log.Lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), static_cast<std::ptrdiff_t>(CallLog::kMaxCalls));
    EXPECT_EQ(lines.substr(0, lines.find('\n')),
              R"({"service":"power","call":"GetPowerStatus","args":[5],"outcome":"ok"})");

    log.Clear();
    const std::string big(CallLog::kMaxBytes / 32, 'x');
    for (int i = 0; i < 40; ++i) log.Add("alarm", {"", "GetBankAlarmCount", {big}}, "ok");
    EXPECT_LE(log.Lines().size(), CallLog::kMaxBytes);
    EXPECT_GT(log.Lines().size(), CallLog::kMaxBytes / 2);
}

}  // namespace
}  // namespace dome
