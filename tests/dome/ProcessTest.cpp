// The real process on a private bus, as its users see it: through the platform's clients and domectl.

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <thread>

#include "Desk.h"
#include "dome/CallLog.h"
#include "dome/Faults.h"
#include "dome/StateFolder.h"
#include "tavos/interfaces/IAlarmV3Provider.h"
#include "tavos/interfaces/IAxisProvider.h"
#include "tavos/interfaces/IFanV2Provider.h"
#include "tavos/interfaces/IFocusProvider.h"
#include "tavos/interfaces/IFocusV2Provider.h"
#include "tavos/interfaces/IIrisProvider.h"
#include "tavos/interfaces/IPanProvider.h"
#include "tavos/interfaces/IPowerV2Provider.h"
#include "tavos/interfaces/IPresetsV2Provider.h"
#include "tavos/interfaces/IRelayV3Provider.h"
#include "tavos/interfaces/ITemperatureV2Provider.h"
#include "tavos/interfaces/IVoltageV2Provider.h"
#include "tavos/interfaces/IZoomProvider.h"
#include "tavos/msgbus/MsgBus.h"
#include "tavos/osa/Exception.h"

namespace dome::test {
namespace {

using namespace std::chrono_literals;
using namespace tavos::interfaces;
using nlohmann::json;
using tavos::osa::Exception;
using Clock = std::chrono::steady_clock;

template <class Interface>
using Client = std::unique_ptr<Interface>;

bool IsOneLine(const std::string& text) {
    return std::count(text.begin(), text.end(), '\n') == 1 && text.back() == '\n';
}

struct ProcessTest : testing::Test {
    void SetUp() override {
        setenv("TAVOS_BUS_ADDRESS", desk.BusAddress().c_str(), 1);
        ASSERT_NO_FATAL_FAILURE(desk.StartBus());
        ASSERT_NO_FATAL_FAILURE(desk.StartDome());
        bus = std::make_unique<tavos::msgbus::MsgBus>();
        pan.reset(IPanProvider::CreateClient(bus.get()));
        fan.reset(IFanV2Provider::CreateClient(bus.get()));
    }

    /// The services' calls, "service call", in order.
    Words CallNames() {
        Words names;
        for (const json& call : desk.Calls()) {
            names.push_back(call["service"].get<std::string>() + " " + call["call"].get<std::string>());
        }
        return names;
    }

    Desk desk;
    std::unique_ptr<tavos::msgbus::MsgBus> bus;
    Client<IPanProvider> pan;
    Client<IFanV2Provider> fan;
};

TEST_F(ProcessTest, PansFromEndToEnd) {
    pan->SetPositionAtSpeed(30000, 0.5039370078740157, 300);
    EXPECT_EQ(desk.State()["pan"]["target"], 30000);
    EXPECT_TRUE(Await([&] { return desk.State()["pan"]["moving"] == false; }));
    EXPECT_EQ(pan->GetPosition(), 30000u);
    EXPECT_EQ(pan->GetRelativeVelocity(), 0);
    EXPECT_EQ(desk.State()["pan"]["position"], 30000);
}

TEST_F(ProcessTest, MovesNoFurtherThanTheTimeAllows) {
    const auto started = Clock::now();
    // Long enough for the camera to wait for the next call several times.
    EXPECT_TRUE(Await([&] { return Clock::now() - started > 500ms; }));
    const auto before = Clock::now();
    pan->SetRelativeVelocity(1, 300);
    const double position = pan->GetPosition();
    const double seconds = std::chrono::duration<double>(Clock::now() - before).count();
    EXPECT_LE(position, seconds * 120000);
    EXPECT_TRUE(Await([&] { return pan->GetRelativeVelocity() == 1; }));
    const auto first = Clock::now();
    const double from = pan->GetPosition();
    EXPECT_TRUE(Await([&] { return Clock::now() - first > 300ms; }));
    const double to = pan->GetPosition();
    const double maxSeconds = std::chrono::duration<double>(Clock::now() - first).count();
    EXPECT_LE(to - from, maxSeconds * 120000 + 2);
    EXPECT_GE(to - from, 0.3 * 120000 - 2);
}

// Measures the process's own processor time, so that a busy machine makes no difference.
TEST_F(ProcessTest, RestsWhileNothingHappens) {
    fan->IsRunning();
    const double before = desk.Dome().ProcessorSeconds();
    std::this_thread::sleep_for(3s);
    const double after = desk.Dome().ProcessorSeconds();
    EXPECT_LT(after - before, 0.15) << "an idle camera takes far less than 5 % of a core";
    EXPECT_TRUE(Await([&] {
        for (int i = 0; i < 100; ++i) fan->IsRunning();
        return desk.Dome().ProcessorSeconds() > after;
    })) << "calls increase the measured time";
}

TEST_F(ProcessTest, ServesEveryService) {
    const Client<IAxisProvider> tilt(IAxisProvider::CreateClient(bus.get(), "tilt"));
    const Client<IZoomProvider> zoom(IZoomProvider::CreateClient(bus.get()));
    const Client<IFocusProvider> focus(IFocusProvider::CreateClient(bus.get()));
    const Client<IFocusV2Provider> focus2(IFocusV2Provider::CreateClient(bus.get()));
    const Client<IIrisProvider> iris(IIrisProvider::CreateClient(bus.get()));
    const Client<IPresetsV2Provider> presets2(IPresetsV2Provider::CreateClient(bus.get()));
    const Client<IAlarmV3Provider> alarm(IAlarmV3Provider::CreateClient(bus.get()));
    const Client<IRelayV3Provider> relay(IRelayV3Provider::CreateClient(bus.get()));
    const Client<ITemperatureV2Provider> temperature(ITemperatureV2Provider::CreateClient(bus.get()));
    const Client<IVoltageV2Provider> voltage(IVoltageV2Provider::CreateClient(bus.get()));
    const Client<IPowerV2Provider> power(IPowerV2Provider::CreateClient(bus.get()));
    desk.Control({"set", "tilt", "-45000"});
    desk.Control({"set", "temperature", "1", "-7"});
    desk.Control({"set", "voltage", "2"});
    desk.Control({"set", "power", "1"});

    EXPECT_EQ(pan->GetMaxPosition(), 359999u);
    EXPECT_EQ(static_cast<int>(tilt->GetPosition()), -45000);
    EXPECT_EQ(zoom->GetMaxMagnificationThousandthsX(), 20000u);
    focus->SetAutoFocus(false);
    focus2->SetPosition(62.5);
    EXPECT_TRUE(iris->GetAutoIris());
    EXPECT_EQ(presets2->GetMaxPresets(), 64u);
    EXPECT_EQ(alarm->GetBankNames(), (Words{"BNK1", "BNK2"}));
    relay->SetRelay("BNK2", 1, 1);
    EXPECT_EQ(temperature->GetTemperatureDegreesCelsius(1), -7);
    EXPECT_EQ(voltage->GetVoltageStatus(), 2);
    EXPECT_EQ(power->GetPowerStatus(), 1);
    EXPECT_FALSE(fan->IsRunning());

    EXPECT_EQ(desk.State()["focus"]["auto"], false);
    EXPECT_EQ(desk.State()["focus"]["target"], 62.5);
    EXPECT_EQ(desk.State()["relay"]["BNK2"], json::parse("[false,true]"));

    const Words names{"pan GetMaxPosition",
                      "tilt GetPosition",
                      "zoom GetMaxMagnificationThousandthsX",
                      "focus SetAutoFocus",
                      "focus2 SetPosition",
                      "iris GetAutoIris",
                      "presets2 GetMaxPresets",
                      "alarm GetBankNames",
                      "relay SetRelay",
                      "temperature GetTemperatureDegreesCelsius",
                      "voltage GetVoltageStatus",
                      "power GetPowerStatus",
                      "fan IsRunning"};
    EXPECT_EQ(CallNames(), names);
    const std::vector<json> calls = desk.Calls();
    ASSERT_EQ(calls.size(), names.size());
    EXPECT_EQ(calls[3]["args"], json::parse("[false]"));
    EXPECT_EQ(calls[4]["args"], json::parse("[62.5]"));
    EXPECT_EQ(calls[8]["args"], json::parse(R"(["BNK2",1,1])"));
}

TEST_F(ProcessTest, LogsCallsInOrder) {
    pan->SetPositionAtSpeed(180000, 0.5039370078740157, 300);
    pan->SetRelativeVelocity(0, 300);
    fan->IsRunning();
    EXPECT_EQ(desk.Control({"calls"}),
              R"({"service":"pan","call":"SetPositionAtSpeed","args":[180000,0.5039370078740157,300],"outcome":"ok"})"
              "\n"
              R"({"service":"pan","call":"SetRelativeVelocity","args":[0,300],"outcome":"ok"})"
              "\n"
              R"({"service":"fan","call":"IsRunning","args":[],"outcome":"ok"})"
              "\n");
    EXPECT_EQ(desk.Calls().size(), 3u);  // reading the log keeps it, and is not logged itself
    desk.Control({"calls", "--clear"});
    EXPECT_EQ(desk.Control({"calls"}), "");
}

TEST_F(ProcessTest, StaysSmallHoweverManyCallsItReceives) {
#ifdef ORVEX_ASAN
    GTEST_SKIP() << "a sanitizer takes additional memory";
#endif
    for (std::size_t i = 0; i < CallLog::kMaxCalls + 5000; ++i) fan->IsRunning();
    const std::string calls = desk.Control({"calls"});
    EXPECT_EQ(std::count(calls.begin(), calls.end(), '\n'), static_cast<std::ptrdiff_t>(CallLog::kMaxCalls));
    EXPECT_LT(desk.Dome().ResidentMegabytes(), 20);
}

TEST_F(ProcessTest, RefusesBadArguments) {
    EXPECT_THROW(pan->SetRelativeVelocity(1.5, 300), Exception);
    const Client<IAlarmV3Provider> alarm(IAlarmV3Provider::CreateClient(bus.get()));
    try {
        alarm->GetAlarmState("BNK9", 0);
        FAIL() << "an unknown bank was answered";
    } catch (const Exception& refused) {
        EXPECT_NE(std::string(refused.what()).find("no bank BNK9"), std::string::npos) << refused.what();
    }
    EXPECT_EQ(desk.State()["pan"]["moving"], false);
    EXPECT_EQ(CallNames(), (Words{"pan SetRelativeVelocity", "alarm GetAlarmState"}));
}

TEST_F(ProcessTest, HasAsManyInputsAsTheAgentTakes) {
    desk.Control({"banks", "alarm", "BIG=1023", "5=1"});
    desk.Control({"set", "alarm", "BIG", "1022", "1"});
    const Client<IAlarmV3Provider> alarm(IAlarmV3Provider::CreateClient(bus.get()));
    EXPECT_EQ(alarm->GetBankNames(), (Words{"BIG", "5"}));
    EXPECT_EQ(alarm->GetAlarmCount(), 1024);
    EXPECT_TRUE(alarm->GetAlarmState("BIG", 1022));
    EXPECT_FALSE(alarm->GetAlarmState("5", 0));
    EXPECT_EQ(desk.State()["alarm"]["BIG"].size(), 1023u);
    EXPECT_EQ(desk.Calls().back()["args"], json::parse(R"(["5",0])"));
}

class Recorder {
public:
    void OnTemperature(int sensor, int degrees) { Add({sensor, degrees}); }
    void OnStatus(int status) { Add({status}); }
    std::vector<std::vector<int>> Events() const {
        std::lock_guard<std::mutex> lock(_mutex);
        return _events;
    }
    void Clear() {
        std::lock_guard<std::mutex> lock(_mutex);
        _events.clear();
    }

private:
    void Add(std::vector<int> event) {
        std::lock_guard<std::mutex> lock(_mutex);
        _events.push_back(std::move(event));
    }
    mutable std::mutex _mutex;
    std::vector<std::vector<int>> _events;
};

TEST_F(ProcessTest, EmitsItsEvents) {
    using Events = std::vector<std::vector<int>>;
    Recorder recorder;
    const Client<ITemperatureV2Provider> temperature(ITemperatureV2Provider::CreateClient(bus.get()));
    const Client<IVoltageV2Provider> voltage(IVoltageV2Provider::CreateClient(bus.get()));
    const Client<IPowerV2Provider> power(IPowerV2Provider::CreateClient(bus.get()));
    temperature->OnTemperatureChange().AddHandler(tavos::core::CreateDelegate(&recorder, &Recorder::OnTemperature));
    voltage->OnVoltageStatusChange().AddHandler(tavos::core::CreateDelegate(&recorder, &Recorder::OnStatus));
    power->OnPowerStatusChange().AddHandler(tavos::core::CreateDelegate(&recorder, &Recorder::OnStatus));
    bus->StartServer();
    // No event arrives before the subscriptions have reached the bus.
    for (const Words& event :
         {Words{"event", "temperature", "0", "1"}, Words{"event", "voltage", "1"}, Words{"event", "power", "1"}}) {
        recorder.Clear();
        ASSERT_TRUE(Await([&] {
            desk.Control(event);
            return !recorder.Events().empty();
        }));
    }
    const auto heard = [&](const Words& command, const Events& expected) {
        desk.Control({"event", "power", "-1"});  // pending events arrive before this event
        EXPECT_TRUE(Await([&] { return !recorder.Events().empty() && recorder.Events().back()[0] == -1; }));
        recorder.Clear();
        desk.Control(command);
        EXPECT_TRUE(Await([&] { return recorder.Events() == expected; })) << command[1];
    };
    heard({"set", "temperature", "1", "31"}, {{1, 31}});
    heard({"set", "voltage", "2"}, {{2}});
    heard({"set", "power", "1"}, {{1}});
    heard({"event", "temperature", "1", "-20"}, {{1, -20}});
    heard({"event", "voltage", "7", "--count", "3"}, {{7}, {8}, {9}});
    EXPECT_EQ(temperature->GetTemperatureDegreesCelsius(1), 31);
    EXPECT_EQ(voltage->GetVoltageStatus(), 2);
}

/// Records the voltage's events.
struct ManyEventsTest : ProcessTest {
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(ProcessTest::SetUp());
        voltage.reset(IVoltageV2Provider::CreateClient(bus.get()));
        voltage->OnVoltageStatusChange().AddHandler(tavos::core::CreateDelegate(&recorder, &Recorder::OnStatus));
        bus->StartServer();
        ASSERT_TRUE(Await([&] {
            desk.Control({"event", "voltage", "-1"});
            return !recorder.Events().empty();
        }));
    }

    Recorder recorder;
    Client<IVoltageV2Provider> voltage;
};

TEST_F(ManyEventsTest, AreEmitted) {
    desk.Control({"event", "voltage", "1", "--count", "20000"});
    ASSERT_TRUE(Await([&] { return recorder.Events().back()[0] == 20000; }, 20s)) << recorder.Events().back()[0];
    auto events = recorder.Events();
    events.erase(events.begin(), std::find(events.begin(), events.end(), std::vector<int>{1}));
    ASSERT_EQ(events.size(), 20000u);
    for (int i = 0; i < 20000; ++i) ASSERT_EQ(events[static_cast<std::size_t>(i)][0], i + 1);
}

TEST_F(ManyEventsTest, LeaveTheServicesTimeToAnswer) {
    constexpr int kCount = 50000;
    recorder.Clear();
    std::atomic<bool> isDone{false};
    std::thread emitting([&] {
        desk.Control({"event", "voltage", "1", "--count", std::to_string(kCount)});
        isDone = true;
    });
    EXPECT_TRUE(Await([&] { return !recorder.Events().empty(); }));
    int answered = 0;
    auto maxTime = 0ms;
    while (!isDone) {
        const auto asked = Clock::now();
        EXPECT_FALSE(fan->IsRunning());
        maxTime = std::max(maxTime, std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - asked));
        ++answered;
    }
    emitting.join();
    EXPECT_GT(answered, 20);
    EXPECT_LT(maxTime, 400ms) << answered;  // a call's deadline is 500 ms
    RecordProperty("max_ms", static_cast<int>(maxTime.count()));
    // domectl returns after all events are sent: its next queries come after them.
    desk.Control({"set", "voltage", "2"});
    ASSERT_TRUE(Await([&] { return recorder.Events().back()[0] == 2 && recorder.Events().size() > 2; }, 20s));
    EXPECT_EQ(recorder.Events().size(), kCount + 1u);
    EXPECT_EQ(recorder.Events()[kCount - 1][0], kCount);
}

TEST_F(ManyEventsTest, LetDomectlEndWhenTheCameraEndsAmongThem) {
    recorder.Clear();
    Result result{};
    std::thread emitting([&] { result = desk.TryControl({"event", "voltage", "1", "--count", "100000"}); });
    EXPECT_TRUE(Await([&] { return recorder.Events().size() > 100; }));
    desk.Dome().Signal(SIGKILL);
    desk.Dome().Wait();
    emitting.join();
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(IsOneLine(result.errors)) << result.errors;
}

TEST_F(ProcessTest, FailsOnRequest) {
    desk.Control({"fault", "pan", "fail"});
    EXPECT_THROW(pan->SetPosition(1000, 300), Exception);
    EXPECT_FALSE(fan->IsRunning());
    EXPECT_EQ(desk.State()["pan"]["moving"], false);
    EXPECT_EQ(desk.State()["faults"]["pan"], "fail");
    EXPECT_EQ(desk.State()["faults"]["fan"], "ok");
    desk.Control({"fault", "pan", "ok"});
    EXPECT_EQ(pan->GetPosition(), 0u);
    const std::vector<json> calls = desk.Calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0]["outcome"], "fail");
    EXPECT_EQ(calls[0]["args"], json::parse("[1000,300]"));
    EXPECT_EQ(calls[1]["outcome"], "ok");
    EXPECT_EQ(calls[2]["outcome"], "ok");
}

TEST_F(ProcessTest, HangsOnRequest) {
    desk.Control({"fault", "pan", "hang"});
    const auto started = Clock::now();
    EXPECT_THROW(pan->SetPosition(1000, 300), Exception);
    EXPECT_GE(Clock::now() - started, 450ms);  // the client's deadline, not an answer
    EXPECT_FALSE(fan->IsRunning());
    EXPECT_EQ(desk.State()["pan"]["moving"], false);
    desk.Control({"fault", "pan", "ok"});
    EXPECT_EQ(pan->GetPosition(), 0u);
    const std::vector<json> calls = desk.Calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0]["call"], "SetPosition");
    EXPECT_EQ(calls[0]["outcome"], "hang");
}

TEST_F(ProcessTest, IsGoneOnRequest) {
    desk.Control({"fault", "pan", "gone"});
    const auto started = Clock::now();
    EXPECT_THROW(pan->GetPosition(), Exception);
    EXPECT_LT(Clock::now() - started, 400ms);  // refused at once, without waiting for the deadline
    EXPECT_FALSE(fan->IsRunning());
    desk.Control({"fault", "pan", "ok"});
    EXPECT_EQ(pan->GetPosition(), 0u);
    EXPECT_EQ(CallNames(), (Words{"fan IsRunning", "pan GetPosition"}));
}

TEST_F(ProcessTest, KeepsItsStateThroughARestartOfTheBus) {
    pan->SetPosition(10000, 300);
    desk.Control({"fault", "iris", "gone"});
    ASSERT_TRUE(Await([&] { return pan->GetPosition() == 10000; }));
    desk.StopBus();
    EXPECT_THROW(pan->GetPosition(), Exception);
    EXPECT_EQ(desk.TryControl({"state"}).status, 1);
    ASSERT_NO_FATAL_FAILURE(desk.StartBus());
    ASSERT_TRUE(Await([&] { return desk.TryControl({"state"}).status == 0; }));
    EXPECT_TRUE(desk.Dome().IsRunning());
    EXPECT_EQ(pan->GetPosition(), 10000u);
    EXPECT_FALSE(fan->IsRunning());
    const Client<IIrisProvider> iris(IIrisProvider::CreateClient(bus.get()));
    EXPECT_THROW(iris->GetAutoIris(), Exception);
    desk.Control({"fault", "iris", "ok"});
    EXPECT_TRUE(iris->GetAutoIris());
}

TEST_F(ProcessTest, EndsCleanlyOnASignal) {
    desk.Dome().Signal(SIGTERM);
    EXPECT_EQ(desk.Dome().Wait(), 0);
    EXPECT_EQ(desk.Read("dome.err"), "");
    ASSERT_NO_FATAL_FAILURE(desk.StartDome());  // the names are free again
    pan->SetRelativeVelocity(1, 300);
    desk.Dome().Signal(SIGINT);
    EXPECT_EQ(desk.Dome().Wait(), 0);
    EXPECT_EQ(desk.Read("dome.err"), "");
}

TEST_F(ProcessTest, EndsOnASignalAlsoWithoutTheBus) {
    desk.StopBus();
    desk.Dome().Signal(SIGTERM);
    EXPECT_EQ(desk.Dome().Wait(), 0);
}

TEST_F(ProcessTest, ReportsThatItsNamesAreTaken) {
    const Result second = desk.Run("orvex-dome", {"--state", desk.Folder()});
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.output, "");
    EXPECT_TRUE(IsOneLine(second.errors)) << second.errors;
    EXPECT_NE(second.errors.find("org.tavos.Pan1"), std::string::npos) << second.errors;
    EXPECT_EQ(pan->GetPosition(), 0u);
}

TEST_F(ProcessTest, UsesABusByItsAddress) {
    desk.Dome().Signal(SIGTERM);
    desk.Dome().Wait();
    Desk other;  // a folder without a bus
    const Process process(
        {std::string(DOME_TEST_BINARIES) + "/orvex-dome", "--state", other.Folder(), "--bus", desk.BusAddress()},
        other.Folder() + "/out", other.Folder() + "/err");
    ASSERT_TRUE(Await([&] { return other.Read("out") == "ready\n"; })) << other.Read("err");
    EXPECT_EQ(desk.State()["pan"]["position"], 0);
    for (const Words& words : {Words{"--state", other.Folder(), "--bus", desk.BusAddress(), "state"},
                               Words{"--state=" + other.Folder(), "--bus=" + desk.BusAddress(), "state"}}) {
        const Result seen = other.Run("domectl", words);
        EXPECT_EQ(seen.status, 0) << seen.errors;
    }
}

TEST_F(ProcessTest, RunsBesideOthers) {
    Desk other;
    ASSERT_NO_FATAL_FAILURE(other.StartBus());
    ASSERT_NO_FATAL_FAILURE(other.StartDome());
    other.Control({"set", "pan", "5000"});
    EXPECT_EQ(desk.State()["pan"]["position"], 0);
    EXPECT_EQ(other.State()["pan"]["position"], 5000);
}

TEST_F(ProcessTest, IsFoundByTheEnvironmentOrInTheWorkingFolder) {
    desk.Control({"set", "pan", "4000"});
    const auto pans4 = [&](const Result& seen) {
        EXPECT_EQ(seen.status, 0) << seen.errors;
        return seen.output.find("\"position\":4000,") != std::string::npos;
    };
    EXPECT_TRUE(pans4(desk.Run("domectl", {"state"}, {"ORVEX_STATE=" + desk.Folder()})));

    Desk elsewhere;
    const std::string command = "cd '" + elsewhere.Folder() + "' && exec " DOME_TEST_BINARIES "/domectl state";
    const auto runThere = [&](const Words& environment) {
        Process process({"sh", "-c", command}, desk.Folder() + "/there.out", desk.Folder() + "/there.err", environment);
        const int status = process.Wait();
        return Result{status, desk.Read("there.out"), desk.Read("there.err")};
    };
    const Result none = runThere({"ORVEX_STATE="});
    EXPECT_EQ(none.status, 2);
    EXPECT_TRUE(IsOneLine(none.errors)) << none.errors;
    EXPECT_NE(none.errors.find("no camera's folder"), std::string::npos) << none.errors;

    std::filesystem::create_directory_symlink(desk.Folder(), elsewhere.Folder() + "/state");
    EXPECT_TRUE(pans4(runThere({"ORVEX_STATE="})));
    const Result other = runThere({"ORVEX_STATE=/nowhere"});
    EXPECT_EQ(other.status, 1) << "the environment comes before ./state";
    EXPECT_NE(other.errors.find("/nowhere"), std::string::npos) << other.errors;
}

TEST_F(ProcessTest, WaitReturnsWhenTheMoveEnds) {
    desk.Control({"clock", "pause"});
    EXPECT_EQ(desk.Control({"wait"}), "") << "nothing moves";
    pan->SetPositionAtSpeed(30000, 1, 300);
    EXPECT_EQ(desk.Control({"wait", "tilt", "zoom"}), "") << "only the pan moves";
    {
        Process waiting({DOME_TEST_BINARIES "/domectl", "--state", desk.Folder(), "wait", "pan", "--timeout", "60"},
                        desk.Folder() + "/wait.out", desk.Folder() + "/wait.err");
        EXPECT_FALSE(Await([&] { return !waiting.IsRunning(); }, 500ms)) << "the move is held in its midst";
        desk.Control({"clock", "step", "60"});
        EXPECT_EQ(waiting.Wait(), 0) << desk.Read("wait.err");
    }
    EXPECT_EQ(desk.Read("wait.out"), "");
    EXPECT_EQ(desk.State()["pan"]["position"], 30000);
    EXPECT_EQ(desk.Control({"wait", "--timeout", "0"}), "");
}

TEST_F(ProcessTest, WaitFailsAtItsTimeoutAndNamesWhatMoves) {
    pan->SetRelativeVelocity(0.1, 300);  // without an end
    const auto started = Clock::now();
    const Result late = desk.TryControl({"wait", "--timeout", "0.5"});
    EXPECT_GE(Clock::now() - started, 500ms);
    EXPECT_EQ(late.status, 1);
    EXPECT_EQ(late.output, "");
    EXPECT_EQ(late.errors, "domectl: wait: after 0.5 s these still move: pan; --timeout S waits longer\n");

    desk.Control({"clock", "pause"});
    const Result paused = desk.TryControl({"wait", "pan", "iris", "--timeout", "0"});
    EXPECT_EQ(paused.status, 1);
    EXPECT_EQ(paused.errors,
              "domectl: wait: after 0 s these still move: pan; the camera's clock is paused, domectl clock run lets it "
              "go on\n");
}

TEST_F(ProcessTest, RefusesWrongCommandsWithClearErrors) {
    const auto fails = [&](const Words& command, int status, const std::string& word) {
        const Result result = desk.TryControl(command);
        EXPECT_EQ(result.status, status) << word;
        EXPECT_EQ(result.output, "") << word;
        EXPECT_NE(result.errors.find(word), std::string::npos) << result.errors;
        EXPECT_TRUE(IsOneLine(result.errors)) << result.errors;
    };
    fails({"set", "wiper", "1"}, 2, "unknown word 'wiper' after set, expected auto-focus, auto-iris, focus");
    fails({"set", "pan", "north"}, 1, "north");
    fails({"set", "tilt", "-90001"}, 1, "tilt -90001 outside");
    fails({"fault", "pam", "fail"}, 2, "unknown word 'pam' after fault, expected alarm, fan, ");
    fails({"fault", "pan", "broken"}, 2, "unknown word 'broken' after fault pan, expected ok, fail, hang, gone");
    fails({"event", "wiper", "1"}, 2, "unknown word 'wiper' after event, expected temperature, voltage, power");
    fails({"clock", "back"}, 2, "unknown word 'back' after clock, expected pause, run, step, rate");
    fails({"banks", "lamp", "A=1"}, 2, "unknown word 'lamp' after banks, expected alarm, relay");
    fails({"banks", "alarm", "A=many"}, 1, "many");
    fails({"event", "temperature", "0", "hot"}, 1, "hot");
    fails({"dance"}, 2,
          "unknown word 'dance', expected state, calls, history, trace, wait, play, set, banks, clock, event, fault, "
          "--help, "
          "--version");
    fails({"set", "pan", "999999"}, 1, "pan 999999 outside 0 to 359999");
    fails({"event", "temperature", "7", "30"}, 1, "temperature sensor 7 outside 0 to 1");
    fails({"banks", "relay"}, 2, "banks: has 1 words after it, expected 2 or more (domectl --help shows the usage)");
    fails({"set", "pan"}, 2, "set: has 1 words after it, expected 2 or more");
    fails({"state", "pan"}, 2, "state: surplus word 'pan', has 1 words after it, expected max 0");
    fails({"calls", "--all"}, 2, "unknown word '--all' after calls, expected --clear");
    fails({"history", "--all"}, 2, "unknown word '--all' after history, expected --since");
    fails({"wait", "pam"}, 2, "unknown word 'pam' after wait, expected focus, iris, pan, tilt, zoom, --timeout");
    fails({"wait", "--timeout"}, 2, "wait --timeout: its value is missing");
    for (const char* time : {"soon", "-1", "nan", "inf", "86401", "", "1s"}) {
        fails({"wait", "--timeout", time}, 2, std::string("not a number from 0 to 86400: ") + time + "\n");
    }
    fails({}, 2, "a command is missing, expected state, calls, history, trace, wait, play, set");

    const Result nowhere = desk.Run("domectl", {"--state", desk.Folder() + "/nowhere", "state"});
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_TRUE(IsOneLine(nowhere.errors)) << nowhere.errors;
    EXPECT_NE(nowhere.errors.find("/nowhere"), std::string::npos) << nowhere.errors;

    desk.Dome().Signal(SIGTERM);
    desk.Dome().Wait();
    fails({"state"}, 1, desk.Folder());
    desk.StopBus();
    fails({"state"}, 1, desk.Folder());
}

TEST(ProcessCommandLine, ShowsItsHelpAndVersionOnStandardOutput) {
    Desk desk;
    for (const char* program : {"orvex-dome", "domectl", "myname", "tavos-settings"}) {
        for (const Words& words : {Words{"--help"}, Words{"-h"}, Words{"--version"}}) {
            const Result result = desk.Run(program, words);
            EXPECT_EQ(result.status, 0) << program << ' ' << words[0];
            EXPECT_EQ(result.errors, "") << program << ' ' << words[0];
            const bool isVersion = words[0] == "--version";
            const std::string expected = isVersion ? program + std::string(" " ORVEX_VERSION "\n") : "--version";
            EXPECT_NE(result.output.find(expected), std::string::npos) << result.output;
        }
    }
    EXPECT_NE(desk.Run("domectl", {"fault", "-h"}).output.find("SERVICE " + FaultNames("|")), std::string::npos);
    EXPECT_NE(desk.Run("domectl", {"clock", "--help"}).output.find("clock step SECONDS"), std::string::npos);
}

TEST(ProcessCommandLine, NamesTheWrongWordAndWhatWasExpected) {
    Desk desk;
    const auto refuses = [&](const Words& words, const std::string& reason) {
        const Result result = desk.Run("orvex-dome", words);
        EXPECT_EQ(result.status, 2) << reason;
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, "orvex-dome: " + reason + " (orvex-dome --help shows the usage)\n");
    };
    const std::string options =
        "expected --help, --version, --state, --bus, --config, --console-port, --console-address, --trace, "
        "--console-name, --agent-address, --agent-community, --agent-port";
    refuses({"--dance", "x", "--state", "y"}, "unknown word '--dance', " + options);
    refuses({"--state", "x", "y"}, "unknown word 'y', " + options);
    refuses({"--bus", "x"}, "--state is required");
    refuses({"--state=x", "--agent-port=65536"}, "--agent-port: Value 65536 not in range 0 to 65535");
    refuses({"--state=x", "--console-name=camera:8205"},
            "--console-name: requires a host name without port and path, not 'camera:8205'");
}

TEST(ProcessCommandLine, NeverTakesOneCamerasCommandForAWholeFleets) {
    Desk desk;
    const auto refuses = [&](const Words& words, const std::string& reason) {
        const Result result = desk.Run("domectl", words);
        EXPECT_NE(result.status, 0) << reason;
        EXPECT_NE(result.errors.find(reason), std::string::npos) << result.errors;
    };
    refuses({"--fleet", "x", "--state", "x/3", "state"}, "--state excludes --fleet");
    refuses({"--fleet", "x", "--bus", "unix:path=y", "state"}, "--bus excludes --fleet");
    refuses({"--fleet", "x", "--only", "", "state"}, "--only requires numbers such as 1,4-6");
}

TEST(StateFolderTest, BelievesNoFleetOfAnotherUser) {
    Desk desk;
    const std::string fleet = desk.Folder() + "/fleet-of", file = fleet + "/fleet", camera = fleet + "/1";
    std::filesystem::create_directories(camera);
    std::ofstream(file) << "1\n";
    EXPECT_EQ(FleetOf(camera), std::filesystem::canonical(fleet).string());
    if (geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
    constexpr uid_t kNobody = 65534;
    ASSERT_EQ(chown(file.c_str(), kNobody, kNobody), 0);
    EXPECT_EQ(FleetOf(camera), "");
}

TEST(ProcessStart, NamesItsVersionInTheLogsFirstLine) {
    Desk desk;
    ASSERT_NO_FATAL_FAILURE(desk.StartBus());
    const Process dome({DOME_TEST_BINARIES "/orvex-dome", "--state", desk.Folder()}, desk.Folder() + "/out",
                       desk.Folder() + "/err", {"TAVOS_LOG_LEVEL=6"});
    ASSERT_TRUE(Await([&] { return desk.Read("out").find("ready\n") != std::string::npos; })) << desk.Read("err");
    const std::string line = desk.Read("out").substr(0, desk.Read("out").find('\n'));
    const std::string expected = " orvex-dome Information version " ORVEX_VERSION;
    ASSERT_GT(line.size(), expected.size());
    EXPECT_EQ(line.substr(line.size() - expected.size()), expected) << desk.Read("out");
}

TEST(ProcessStart, ReportsWhyItCannotStart) {
    Desk desk;
    const Result noBus = desk.Run("orvex-dome", {"--state", desk.Folder()});
    EXPECT_EQ(noBus.status, 1);
    EXPECT_EQ(noBus.output, "");
    EXPECT_TRUE(IsOneLine(noBus.errors)) << noBus.errors;
    EXPECT_NE(noBus.errors.find(desk.Folder()), std::string::npos) << noBus.errors;

    const Result noFolder = desk.Run("orvex-dome", {"--state", desk.Folder() + "/nowhere"});
    EXPECT_EQ(noFolder.status, 1);
    EXPECT_TRUE(IsOneLine(noFolder.errors)) << noFolder.errors;

    for (const Words& wrong : {Words{}, Words{"--state"}, Words{"--bus", "x"}, Words{"--state", "x", "y"},
                               Words{"--dance", "x", "--state", "y"}}) {
        EXPECT_EQ(desk.Run("orvex-dome", wrong).status, 2);
    }
}

struct MynameTest : testing::Test {
    Result Myname(const Words& arguments) {
        return desk.Run("myname", arguments, {"TAVOS_SETTINGS_STORE=" + desk.Folder() + "/settings.db"});
    }
    void Settings(const Words& arguments) {
        Words words{"--store", desk.Folder() + "/settings.db"};
        words.insert(words.end(), arguments.begin(), arguments.end());
        const Result result = desk.Run("tavos-settings", words);
        ASSERT_EQ(result.status, 0) << result.errors;
    }
    void Fails(const Words& arguments) {
        const Result result = Myname(arguments);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.output, "");
        EXPECT_TRUE(IsOneLine(result.errors)) << result.errors;
    }
    Desk desk;
};

TEST_F(MynameTest, PrintsTheDeskCamerasIdentity) {
    Settings({"import", DOME_TEST_SETTINGS});
    EXPECT_EQ(Myname({"-w"}).output, "1234-05\n");
    EXPECT_EQ(Myname({"-m"}).output, "OD20-DESK\n");
    EXPECT_EQ(Myname({"-s"}).output, "OD20-000001\n");
    EXPECT_EQ(Myname({"-s"}).status, 0);
    EXPECT_EQ(Myname({"-s"}).errors, "");
}

TEST_F(MynameTest, NamesWhatIsMissing) {
    Fails({"-m"});  // no store
    Settings({"import", DOME_TEST_SETTINGS});
    Settings({"set", "[Device/ReadOnly]AssemblyVersion", ""});
    Fails({"-w"});
    Fails({});
    Fails({"-x"});
    Fails({"-m", "-s"});
    EXPECT_EQ(Myname({"-m"}).status, 0);
}

}  // namespace
}  // namespace dome::test
