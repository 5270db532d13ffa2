// Calls that take a direct connection to the service: the same results as on the bus, whatever happens to either side.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Disturbance.h"
#include "Failure.h"
#include "FakeServices.h"
#include "HostThread.h"
#include "LogFile.h"
#include "PrivateBus.h"
#include "Sockets.h"
#include "Waiting.h"
#include "tavos/interfaces/Serve.h"
#include "tavos/msgbus/CallObserver.h"
#include "tavos/msgbus/MsgBus.h"
#include "tavos/msgbus/Service.h"

using namespace std::chrono_literals;
using namespace tavos::interfaces;
using tavos::msgbus::MsgBus;
using tavos::msgbus::ObservedCall;
using tavos::msgbus::ReceivedCall;
using tavos::msgbus::ServiceHost;
using testing::HasSubstr;

namespace {

constexpr const char* kLate = "org.tavos.Pan1 GetMaxPosition: no answer within 300 ms";
constexpr const char* kSilent = "org.tavos.Pan1 GetMaxPosition: the service is silent";
constexpr const char* kMissing = "org.tavos.Pan1 GetMaxPosition: the service is missing";
constexpr const char* kEnded =
    "org.tavos.Pan1 GetMaxPosition: Message recipient disconnected from message bus without replying";

using CallId = std::pair<std::string, std::uint64_t>;  // sender, serial
std::mutex s_mutex;
std::vector<CallId> s_made;

void Observe(const ObservedCall& call) {
    const std::lock_guard<std::mutex> lock(s_mutex);
    s_made.emplace_back(call.sender, call.serial);
}

class LaneTest : public testing::Test {
protected:
    LaneTest() {
        unsetenv("TAVOS_BUS_LANES");
        setenv("TAVOS_CALL_TIMEOUT_MS", "300", 1);
        StartHost();
        Connect();
    }
    ~LaneTest() override {
        tavos_observe_calls(nullptr);
        unsetenv("TAVOS_BUS_LANES");
    }

    void StartHost() {
        host = std::make_unique<HostThread>(bus.Address());
        host->Do([this](ServiceHost& h) {
            Serve(h, pan);
            Serve(h, alarm);
        });
        host->HangWhen([this](const ReceivedCall& call) { return Hangs(call); });
    }

    void Connect() {
        panClient.reset();
        alarmClient.reset();
        messages = std::make_unique<MsgBus>();
        messages->StartServer();
        panClient.reset(IPanProvider::CreateClient(messages.get()));
        alarmClient.reset(IAlarmV3Provider::CreateClient(messages.get()));
    }

    /// Only the pan axis hangs.
    bool Hangs(const ReceivedCall& call) {
        if (call.operation == "Ping") return hang;
        const std::lock_guard<std::mutex> lock(mutex);
        received.push_back(call);
        received.back().answer = {};  // holds the bus, which is the host's thread's
        return hang && call.service == "org.tavos.Pan1";
    }

    std::vector<ReceivedCall> Received() {
        const std::lock_guard<std::mutex> lock(mutex);
        return std::exchange(received, {});
    }

    /// The error of a call to the pan axis, or "".
    std::string PanFailure() const {
        return Failure([&] { panClient->GetMaxPosition(); });
    }

    std::size_t Lanes() const {
        std::size_t lanes = 0;
        host->Do([&](ServiceHost& h) { lanes = h.Internals().Lanes(); });
        return lanes;
    }

    /// Calls the pan axis until its calls take a lane.
    void UseLane() {
        // To the bus: of host, calls and events. Of the lane: both ends.
        constexpr std::size_t kSockets = 3 + 2;
        const auto isUsed = [&] {
            EXPECT_EQ(PanFailure(), "");
            return Lanes() == 1 && Sockets().size() == socketsBefore + kSockets;
        };
        ASSERT_TRUE(Eventually(isUsed));
        Received();
    }

    /// While the bus is stopped, only lanes carry calls.
    bool TakesLane() {
        bus.Freeze();
        const std::string failure = PanFailure();
        bus.Thaw();
        return failure.empty();
    }

    const std::size_t socketsBefore = Sockets().size();
    PrivateBus bus;
    fake::Pan pan;
    fake::Alarm alarm;
    std::atomic<bool> hang{false};
    std::mutex mutex;
    std::vector<ReceivedCall> received;
    std::unique_ptr<HostThread> host;
    std::unique_ptr<MsgBus> messages;
    std::unique_ptr<IPanProvider> panClient;
    std::unique_ptr<IAlarmV3Provider> alarmClient;
};

TEST_F(LaneTest, CallsLeaveTheBusAfterAFewAnswers) {
    EXPECT_EQ(PanFailure(), "");
    EXPECT_EQ(Lanes(), 0U) << "a single call requires no lane";
    UseLane();
    EXPECT_TRUE(TakesLane());
    panClient->SetPositionAtSpeed(-1, 0.5, 300);
    EXPECT_THAT(pan.Take(), testing::ElementsAre("SetPositionAtSpeed -1 0.5 300"));
    EXPECT_EQ(panClient->GetPosition(), 4294967295U);
}

TEST_F(LaneTest, AnAgentThatIsSeldomAskedGetsALaneToo) {
    for (int i = 0; i < 4; ++i) EXPECT_EQ(PanFailure(), "");
    std::this_thread::sleep_for(1100ms);  // longer than a request may be unanswered
    UseLane();
}

TEST_F(LaneTest, OffMeansThatAllCallsTakeTheBus) {
    setenv("TAVOS_BUS_LANES", "off", 1);
    Connect();
    for (int i = 0; i < 50; ++i) EXPECT_EQ(PanFailure(), "");
    EXPECT_EQ(Lanes(), 0U);
    EXPECT_FALSE(TakesLane());
}

TEST_F(LaneTest, AnotherWordThanOnOrOffIsNamedAndLeavesLanesOn) {
    const LogFile log;
    for (const char* const word : {"", "on", "OFF"}) {
        EXPECT_EQ(log.Text(), "") << "before " << word;
        setenv("TAVOS_BUS_LANES", word, 1);
        Connect();
    }
    EXPECT_THAT(log.Text(), HasSubstr("TAVOS_BUS_LANES must be on or off, not \"OFF\"; it counts as on"));
    UseLane();
}

TEST_F(LaneTest, SenderAndSerialAreOneCountOnTheBusAndOnLanesAndEqualOnBothSides) {
    s_made.clear();
    tavos_observe_calls(&Observe);
    UseLane();  // forgets what it received
    const std::size_t first = s_made.size();
    for (int i = 0; i < 3; ++i) {
        panClient->GetMinPosition();   // on the lane
        alarmClient->GetAlarmCount();  // on the bus
    }
    std::vector<CallId> seen;
    for (const auto& call : Received()) seen.emplace_back(call.sender, call.serial);
    EXPECT_EQ(seen, std::vector<CallId>(s_made.begin() + static_cast<std::ptrdiff_t>(first), s_made.end()));
    ASSERT_EQ(seen.size(), 6U);
    for (std::size_t i = 1; i < s_made.size(); ++i) {
        EXPECT_EQ(s_made[i].first, s_made[0].first);
        EXPECT_GT(s_made[i].second, s_made[i - 1].second);
    }
    EXPECT_THAT(s_made[0].first, testing::StartsWith(":1."));
}

TEST_F(LaneTest, AServiceThatGivesUpItsNameIsMissingAndGivesANewLaneLater) {
    UseLane();
    host->Do([](ServiceHost& h) { h.SetPresent("org.tavos.Pan1", false); });
    EXPECT_EQ(Lanes(), 0U);
    EXPECT_EQ(PanFailure(), kMissing);
    host->Do([](ServiceHost& h) { h.SetPresent("org.tavos.Pan1", true); });
    UseLane();
    EXPECT_TRUE(TakesLane());
}

TEST_F(LaneTest, TheSuccessorOfAServiceGivesANewLane) {
    UseLane();
    host.reset();
    EXPECT_EQ(PanFailure(), kMissing);
    StartHost();
    UseLane();
    EXPECT_TRUE(TakesLane());
}

TEST_F(LaneTest, ACallDuringWhichTheServiceEndsFailsAndIsNotRepeated) {
    UseLane();
    hang = true;
    std::string failure;
    std::thread caller([&] { failure = PanFailure(); });
    EXPECT_TRUE(Eventually([&] {
        const std::lock_guard<std::mutex> lock(mutex);
        return received.size() == 1;
    }));
    host.reset();
    hang = false;
    StartHost();
    caller.join();
    EXPECT_EQ(failure, kEnded);
    EXPECT_EQ(Received().size(), 1U);
    EXPECT_EQ(PanFailure(), "");
}

TEST_F(LaneTest, ALateAnswerIsNotTakenForTheNextOne) {
    std::function<void()> answerLate;
    host->Do([&](ServiceHost& h) {
        h.SetCallFilter([&](const ReceivedCall& call) {
            if (call.operation != "GetMaxPosition" || !hang) return false;
            answerLate = call.answer;
            return true;
        });
    });
    UseLane();
    hang = true;
    EXPECT_EQ(PanFailure(), kLate);
    hang = false;
    host->Do([&](ServiceHost&) { answerLate(); });  // its form is wrong for every other call
    EXPECT_TRUE(Eventually([&] { return Failure([&] { panClient->GetMinPosition(); }).empty(); }));
    EXPECT_EQ(panClient->GetMinPosition(), 1U);
}

TEST_F(LaneTest, SignalsNeitherFailACallNorCutAWaitShort) {
    UseLane();
    const Disturbance disturbance;
    for (int i = 0; i < 2000; ++i) ASSERT_EQ(PanFailure(), "");
    EXPECT_EQ(Lanes(), 1U) << "a signal has closed the lane, and calls took the bus";
    hang = true;
    const auto time = TimeOf([&] { EXPECT_EQ(PanFailure(), kLate); });
    EXPECT_GE(time, 290ms);
    EXPECT_LT(time, 1500ms);
    hang = false;
}

TEST_F(LaneTest, AServiceThatHangsIsWaitedForOnceAndCalledAgainAfterAPing) {
    UseLane();
    hang = true;
    EXPECT_EQ(PanFailure(), kLate);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(PanFailure(), kSilent);
    EXPECT_EQ(Received().size(), 1U);
    EXPECT_EQ(alarmClient->GetAlarmCount(), 9);
    hang = false;
    EXPECT_TRUE(Eventually([&] { return PanFailure().empty(); }));
}

TEST_F(LaneTest, AFailureOfTheServiceReachesTheCaller) {
    struct Stubborn : fake::Pan {
        void SetPosition(int, int) override { throw tavos::osa::Exception("beyond the stop"); }
    } stubborn;
    host.reset();
    host = std::make_unique<HostThread>(bus.Address());
    host->Do([&](ServiceHost& h) { Serve(h, stubborn); });
    UseLane();
    EXPECT_EQ(Failure([&] { panClient->SetPosition(1, 2); }), "org.tavos.Pan1 SetPosition: beyond the stop");
    EXPECT_EQ(Lanes(), 1U) << "an error is an answer";
    host.reset();
}

TEST_F(LaneTest, TheTimeOfARequestLimitsCallsOnLanes) {
    setenv("TAVOS_REQUEST_TIMEOUT_MS", "200", 1);
    Connect();
    unsetenv("TAVOS_REQUEST_TIMEOUT_MS");
    UseLane();
    hang = true;
    messages->BeginWork(tavos::msgbus::Work::kRequest);
    EXPECT_EQ(PanFailure(), "org.tavos.Pan1 GetMaxPosition: no answer within 200 ms");
    EXPECT_THAT(Failure([&] { alarmClient->GetAlarmCount(); }), HasSubstr("has waited too long for services already"));
}

TEST_F(LaneTest, ALargeCallTakesTheBusAndALargeAnswerTheLane) {
    struct Library : fake::Alarm {
        fake::Names GetBankNames() override { return fake::Names(100, std::string(20000, 'x')); }
    } library;
    setenv("TAVOS_CALL_TIMEOUT_MS", "5000", 1);
    Connect();
    host.reset();
    host = std::make_unique<HostThread>(bus.Address());
    host->Do([&](ServiceHost& h) { Serve(h, library); });
    EXPECT_TRUE(Eventually([&] { return alarmClient->GetAlarmCount() == 9 && Lanes() == 1; }));
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(alarmClient->GetBankAlarmCount(std::string(100'000, 'b')), 7);
        EXPECT_EQ(alarmClient->GetBankNames(), library.GetBankNames());  // 2 MB: more than the socket's buffer
    }
    EXPECT_EQ(Lanes(), 1U);
    alarmClient.reset();
    host.reset();
}

TEST_F(LaneTest, ABusThatRestartsEndsTheLanes) {
    UseLane();
    bus.Stop();
    EXPECT_TRUE(Eventually([&] { return Lanes() == 0; }));
    EXPECT_THAT(PanFailure(), HasSubstr("the message bus cannot be reached"));
    bus.Start();
    EXPECT_TRUE(Eventually([&] { return PanFailure().empty(); }));
    UseLane();
    EXPECT_TRUE(TakesLane());
}

TEST_F(LaneTest, ABusThatHangsStopsOnlyServicesWithoutALane) {
    UseLane();
    bus.Freeze();
    EXPECT_NE(Failure([&] { alarmClient->GetAlarmCount(); }), "");
    EXPECT_EQ(PanFailure(), "");
    EXPECT_NE(Failure([&] { alarmClient->GetAlarmCount(); }), "");  // now the bus itself is silent
    EXPECT_EQ(PanFailure(), "");
    bus.Thaw();
    EXPECT_TRUE(Eventually([&] { return Failure([&] { alarmClient->GetAlarmCount(); }).empty(); }));
}

TEST_F(LaneTest, AForkedChildUsesLanesOfItsOwn) {
    UseLane();
    const auto parents = Sockets();
    const pid_t child = fork();
    if (child == 0) {
        ::alarm(20);
        int result = 0;
        for (const auto& socket : Sockets()) result |= parents.count(socket) != 0 ? 0 : 2;
        for (int i = 0; i < 20 && result == 0; ++i) result = PanFailure().empty() ? 0 : 1;
        _exit(result);
    }
    int status = 0;
    for (int i = 0; i < 20; ++i) EXPECT_EQ(PanFailure(), "");
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(PanFailure(), "");
}

TEST_F(LaneTest, WithoutAFreeDescriptorCallsTakeTheBus) {
    EXPECT_EQ(PanFailure(), "");
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    rlimit few = before;
    const int highest = dup(0);
    close(highest);
    for (int spare = 0; spare < 8; ++spare) {  // what is missing differs: for the reply, for the pairs, for the copies
        few.rlim_cur = static_cast<rlim_t>(highest + spare);
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
        for (int i = 0; i < 20; ++i) EXPECT_EQ(PanFailure(), "") << spare;
        setrlimit(RLIMIT_NOFILE, &before);
    }
}

TEST_F(LaneTest, NothingIsLogged) {
    const LogFile log;
    UseLane();
    host->Do([](ServiceHost& h) { h.SetPresent("org.tavos.Pan1", false); });
    EXPECT_EQ(PanFailure(), kMissing);
    host->Do([](ServiceHost& h) { h.SetPresent("org.tavos.Pan1", true); });
    UseLane();
    EXPECT_EQ(log.Text(), "");
}

/// A pan axis of another library: it knows GetMaxPosition, and what it does with other calls is up to the test.
class OtherService {
public:
    enum class Otherwise { kRefuse, kIgnore, kGivePipe, kGiveDatagrams };

    OtherService(std::string address, Otherwise otherwise) : _address(std::move(address)), _otherwise(otherwise) {
        if (_otherwise == Otherwise::kGivePipe && pipe(_ends) != 0) throw std::runtime_error("no pipe");
        if (_otherwise == Otherwise::kGiveDatagrams && socketpair(AF_UNIX, SOCK_DGRAM, 0, _ends) != 0) {
            throw std::runtime_error("no sockets");
        }
        _thread = std::thread([this] { Run(); });
        EXPECT_TRUE(Eventually([this] { return _ready.load(); }));
    }
    ~OtherService() {
        _stop = true;
        _thread.join();
        for (const int end : _ends) {
            if (end >= 0) close(end);
        }
    }
    int Requests() const { return _requests; }

private:
    static int OnMessage(sd_bus_message* message, void* userdata, sd_bus_error*) {
        auto& service = *static_cast<OtherService*>(userdata);
        if (sd_bus_message_is_method_call(message, "org.tavos.Pan1", "GetMaxPosition") > 0) {
            return sd_bus_reply_method_return(message, "u", 359999U);
        }
        if (sd_bus_message_is_method_call(message, "org.tavos.Pan1", "OpenLane") > 0) {
            ++service._requests;
            if (service._ends[0] >= 0) return sd_bus_reply_method_return(message, "h", service._ends[0]);
        }
        return service._otherwise == Otherwise::kIgnore ? 1 : 0;
    }

    void Run() {
        sd_bus* bus = nullptr;
        sd_bus_new(&bus);
        sd_bus_set_address(bus, _address.c_str());
        sd_bus_set_bus_client(bus, 1);
        sd_bus_start(bus);
        sd_bus_request_name(bus, "org.tavos.Pan1", 0);
        sd_bus_add_filter(bus, nullptr, OnMessage, this);
        _ready = true;
        while (!_stop) {
            if (sd_bus_process(bus, nullptr) == 0) sd_bus_wait(bus, 5000);
        }
        sd_bus_flush_close_unref(bus);
    }

    const std::string _address;
    const Otherwise _otherwise;
    std::atomic<bool> _stop{false};
    std::atomic<bool> _ready{false};
    int _ends[2] = {-1, -1};  // the first is handed out
    std::atomic<int> _requests{0};
    std::thread _thread;
};

TEST_F(LaneTest, AServiceWithoutLanesIsAskedOnceInItsLife) {
    host->Do([](ServiceHost& h) { h.SetPresent("org.tavos.Pan1", false); });
    for (int life = 1; life <= 2; ++life) {
        const OtherService service(bus.Address(), OtherService::Otherwise::kRefuse);
        for (int i = 0; i < 100; ++i) EXPECT_EQ(PanFailure(), "");
        EXPECT_EQ(service.Requests(), 1) << life;
    }
}

TEST_F(LaneTest, WhatIsNoSocketForALaneIsNotUsed) {
    host->Do([](ServiceHost& h) { h.SetPresent("org.tavos.Pan1", false); });
    for (const auto otherwise : {OtherService::Otherwise::kGivePipe, OtherService::Otherwise::kGiveDatagrams}) {
        const OtherService service(bus.Address(), otherwise);
        for (int i = 0; i < 100; ++i) EXPECT_EQ(PanFailure(), "");
        EXPECT_EQ(service.Requests(), 1);
    }
}

TEST_F(LaneTest, ARequestThatIsNeverAnsweredDelaysNothing) {
    host->Do([](ServiceHost& h) { h.SetPresent("org.tavos.Pan1", false); });
    const OtherService service(bus.Address(), OtherService::Otherwise::kIgnore);
    EXPECT_LT(TimeOf([&] {
                  for (int i = 0; i < 100; ++i) EXPECT_EQ(PanFailure(), "");
              }),
              2s);
    EXPECT_EQ(service.Requests(), 1);
}

}  // namespace
