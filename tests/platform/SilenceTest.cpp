// The client waits once for a service that hangs, and then pings it in the background.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>

#include "Failure.h"
#include "FakeServices.h"
#include "HostThread.h"
#include "LogFile.h"
#include "PrivateBus.h"
#include "Sockets.h"
#include "Waiting.h"
#include "tavos/interfaces/Serve.h"
#include "tavos/msgbus/MsgBus.h"
#include "tavos/msgbus/Service.h"
#include "tavos/osa/Exception.h"

using namespace tavos::interfaces;
using tavos::msgbus::MsgBus;
using tavos::msgbus::ReceivedCall;
using tavos::msgbus::ServiceHost;
using testing::HasSubstr;

namespace {

constexpr const char* kLate = "org.tavos.Pan1 GetMaxPosition: no answer within 300 ms";
constexpr const char* kSilent = "org.tavos.Pan1 GetMaxPosition: the service is silent";
constexpr const char* kRefused = "org.tavos.Pan1 GetMaxPosition: the service has failed";
constexpr const char* kMissing = "org.tavos.Pan1 GetMaxPosition: the service is missing";

/// A pan axis and a temperature in one process on a bus, and a client with a running event thread. The parameter is
/// TAVOS_BUS_LANES; with "on", calls take lanes from the beginning of each test.
class SilenceTest : public testing::TestWithParam<const char*> {
protected:
    SilenceTest() {
        setenv("TAVOS_CALL_TIMEOUT_MS", "300", 1);
        setenv("TAVOS_BUS_LANES", GetParam(), 1);
        host = std::make_unique<HostThread>(bus.Address());
        host->Do([this](ServiceHost& h) {
            Serve(h, pan);
            Serve(h, temperature);
        });
        host->HangWhen([this](const ReceivedCall& call) { return Hangs(call); });
        messages = std::make_unique<MsgBus>();
        messages->StartServer();
        panClient.reset(IPanProvider::CreateClient(messages.get()));
        temperatureClient.reset(ITemperatureV2Provider::CreateClient(messages.get()));
        if (GetParam() == std::string("on")) UseLanes();
    }
    ~SilenceTest() override { unsetenv("TAVOS_BUS_LANES"); }

    void UseLanes() {
        // To the bus: of host, calls and events. Of each lane: both ends.
        constexpr std::size_t kSockets = 3 + 2 * 2;
        const auto areUsed = [&] {
            EXPECT_EQ(PanFailure(), "");
            EXPECT_EQ(OtherFailure(), "");
            return Sockets().size() == socketsBefore + kSockets;
        };
        EXPECT_TRUE(Eventually(areUsed));
        arrived = 0;
    }

    bool Hangs(const ReceivedCall& call) {
        if (call.service != "org.tavos.Pan1") {
            std::this_thread::sleep_for(std::chrono::milliseconds(temperatureTakes));
            return false;
        }
        if (call.operation == "Ping") return pingsHang;
        ++arrived;
        if (callsFail) throw tavos::osa::Exception("the service has failed");
        return callsHang;
    }

    void Hang(bool hangs) {
        pingsHang = hangs;
        callsHang = hangs;
    }

    /// The error of a call to the pan axis, or "".
    std::string PanFailure() const {
        return Failure([&] { panClient->GetMaxPosition(); });
    }

    /// The error of a call to the temperature, or "".
    std::string OtherFailure() const {
        return Failure([&] { temperatureClient->GetTemperatureDegreesCelsius(0); });
    }

    /// Ensures that the next call's deadline is 50 ms after that of the first, which now waits for the service.
    void AwaitCallUnderWay() const {
        EXPECT_TRUE(Eventually([&] { return arrived == 1; }));
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }

    /// True when a call fails with that error within the time; "" stands for success.
    bool ComesTo(const std::string& failure) const {
        return Eventually([&] { return PanFailure() == failure; });
    }

    std::size_t Logged(const std::string& line) const { return log.Count(line); }

    const std::size_t socketsBefore = Sockets().size();
    const LogFile log;
    PrivateBus bus;
    fake::Pan pan;
    fake::Temperature temperature;
    std::atomic<bool> pingsHang{false};
    std::atomic<bool> callsHang{false};
    std::atomic<bool> callsFail{false};
    std::atomic<int> arrived{0};
    std::atomic<int> temperatureTakes{0};  // milliseconds
    std::unique_ptr<HostThread> host;
    std::unique_ptr<MsgBus> messages;
    std::unique_ptr<IPanProvider> panClient;
    std::unique_ptr<ITemperatureV2Provider> temperatureClient;
};

/// Without lanes: calls that take them do not notice that the bus hangs (LaneTest).
class SilenceOfTheBusTest : public SilenceTest {};

INSTANTIATE_TEST_SUITE_P(Lanes, SilenceTest, testing::Values("on", "off"),
                         [](const auto& lanes) { return std::string(lanes.param); });
INSTANTIATE_TEST_SUITE_P(Lanes, SilenceOfTheBusTest, testing::Values("off"),
                         [](const auto& lanes) { return std::string(lanes.param); });

}  // namespace

TEST_P(SilenceTest, OneCallWaitsAndTheNextFailWithoutReachingTheService) {
    Hang(true);
    EXPECT_EQ(PanFailure(), kLate);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(PanFailure(), kSilent);
    EXPECT_EQ(arrived, 1);
    EXPECT_EQ(Logged(" tavos Error org.tavos.Pan1 does not answer: until it does, calls to it fail at once\n"), 1U);
}

TEST_P(SilenceTest, OtherServicesAnswerMeanwhile) {
    Hang(true);
    EXPECT_EQ(PanFailure(), kLate);
    EXPECT_NO_THROW(temperatureClient->GetTemperatureDegreesCelsius(0));
    EXPECT_EQ(PanFailure(), kSilent);
}

TEST_P(SilenceTest, AfterAnAnsweredPingItIsCalledAgain) {
    Hang(true);
    EXPECT_EQ(PanFailure(), kLate);
    EXPECT_EQ(PanFailure(), kSilent);
    Hang(false);
    EXPECT_TRUE(ComesTo(""));
    EXPECT_TRUE(Eventually([&] { return Logged(" tavos Information org.tavos.Pan1 answers again\n") == 1U; }));
    EXPECT_EQ(arrived, 2);

    Hang(true);  // earlier misses no longer count
    EXPECT_EQ(PanFailure(), kLate);
    Hang(false);
    EXPECT_TRUE(ComesTo(""));
}

TEST_P(SilenceTest, AnErrorIsAnAnswer) {
    Hang(true);
    EXPECT_EQ(PanFailure(), kLate);
    host->Do([](ServiceHost& h) { h.SetPresent("org.tavos.Pan1", false); });
    Hang(false);
    EXPECT_TRUE(ComesTo(kMissing));
}

TEST_P(SilenceTest, AServiceThatEndsIsMissing) {
    Hang(true);
    EXPECT_EQ(PanFailure(), kLate);
    host.reset();
    EXPECT_TRUE(ComesTo(kMissing));
    EXPECT_TRUE(Eventually([&] { return Logged(" tavos Information org.tavos.Pan1 has ended\n") == 1U; }));
    EXPECT_EQ(Logged("answers again"), 0U);
}

TEST_P(SilenceTest, AServiceThatEndsInTheMiddleOfACallIsNotSilent) {
    callsHang = true;
    std::string failure;
    std::thread caller([&] { failure = PanFailure(); });
    EXPECT_TRUE(Eventually([&] { return arrived == 1; }));
    host.reset();
    caller.join();
    EXPECT_THAT(failure, HasSubstr("disconnected"));
    EXPECT_EQ(PanFailure(), kMissing);
    EXPECT_EQ(Logged("does not answer"), 0U);
}

TEST_P(SilenceTest, AServiceThatAnswersOnlyPingsIsCalledLessOften) {
    callsHang = true;
    for (int miss = 1; miss <= 4; ++miss) {
        EXPECT_TRUE(ComesTo(kLate)) << miss;
        EXPECT_EQ(arrived, miss);
    }
    // After the fourth miss the client makes no call for 800 ms: meanwhile at most one call every 5 ms fails.
    int failures = 0;
    EXPECT_TRUE(Eventually([&] { return PanFailure() == kLate || ++failures < 0; }));
    EXPECT_GT(failures, 5);
    callsHang = false;
    EXPECT_TRUE(ComesTo(""));
}

TEST_P(SilenceTest, AnswersThatAreErrorsResetTheCountOfMisses) {
    for (int round = 0; round < 4; ++round) {
        callsHang = true;
        EXPECT_TRUE(ComesTo(kLate)) << round;
        callsHang = false;
        callsFail = true;
        EXPECT_TRUE(ComesTo(kRefused)) << round;
        callsFail = false;
    }
    callsHang = true;
    EXPECT_TRUE(ComesTo(kLate));
    callsHang = false;
    // If they counted as consecutive misses, calls would be blocked for 1600 ms now: some 300 failures.
    int failures = 0;
    EXPECT_TRUE(Eventually([&] { return PanFailure().empty() || ++failures < 0; }));
    EXPECT_LT(failures, 100);
}

TEST_P(SilenceOfTheBusTest, ABusThatHangsIsWaitedForOnce) {
    EXPECT_EQ(PanFailure(), "");
    bus.Freeze();
    EXPECT_EQ(PanFailure(), kLate);  // on the existing connection
    EXPECT_EQ(PanFailure(), kSilent);
    EXPECT_THAT(OtherFailure(), HasSubstr("the message bus cannot be reached: no answer in time"));  // on a new one
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(OtherFailure(), "org.tavos.Temperature2 GetTemperatureDegreesCelsius: the message bus is silent");
        EXPECT_EQ(PanFailure(), "org.tavos.Pan1 GetMaxPosition: the message bus is silent");
    }
    bus.Thaw();
    EXPECT_TRUE(ComesTo(""));
    EXPECT_TRUE(Eventually([&] { return OtherFailure().empty(); }));
}

TEST_P(SilenceOfTheBusTest, ABusThatHangsRepeatedlyIsTriedAtOnceEachTime) {
    EXPECT_EQ(PanFailure(), "");
    for (int time = 1; time <= 5; ++time) {
        bus.Freeze();
        EXPECT_EQ(PanFailure(), kLate) << time;
        EXPECT_THAT(OtherFailure(), HasSubstr("the message bus cannot be reached: no answer in time")) << time;
        bus.Thaw();
        // If it were treated like a service that answers only pings, it would get no calls for 1.6 s after the fifth
        // miss.
        EXPECT_LT(TimeOf([&] { EXPECT_TRUE(ComesTo("")); }), std::chrono::seconds(1)) << time;
    }
}

TEST_P(SilenceTest, ACallQueuedBehindAWaitingCallIsNotSent) {
    Hang(true);
    std::string first;
    std::thread caller([&] { first = PanFailure(); });
    AwaitCallUnderWay();
    EXPECT_EQ(PanFailure(), kSilent);
    caller.join();
    EXPECT_EQ(first, kLate);
    EXPECT_EQ(arrived, 1);
}

TEST_P(SilenceTest, ACallThatSpentItsDeadlineQueuedIsNoEvidenceOfSilence) {
    Hang(true);
    std::thread caller([&] { EXPECT_EQ(PanFailure(), kLate); });
    AwaitCallUnderWay();
    temperatureTakes = 120;
    EXPECT_NE(OtherFailure(), "");  // the waiting call leaves too little time
    caller.join();
    temperatureTakes = 0;
    EXPECT_EQ(OtherFailure(), "");
    EXPECT_EQ(Logged("does not answer"), 1U);
}

TEST_P(SilenceTest, ASilentServiceIsCalledAgainOnANewBus) {
    Hang(true);
    EXPECT_EQ(PanFailure(), kLate);
    bus.Stop();
    bus.Start();
    Hang(false);
    EXPECT_TRUE(ComesTo(""));
}

TEST_P(SilenceTest, WithoutTheEventThreadEachCallWaits) {
    MsgBus quiet;
    panClient.reset(IPanProvider::CreateClient(&quiet));
    Hang(true);
    EXPECT_EQ(PanFailure(), kLate);
    EXPECT_EQ(PanFailure(), kLate);
    Hang(false);
    EXPECT_EQ(PanFailure(), "");
}
