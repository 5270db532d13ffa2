// An observer sees each call that the process makes or fails to make, and changes none.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Failure.h"
#include "FakeServices.h"
#include "HostThread.h"
#include "PrivateBus.h"
#include "Waiting.h"
#include "tavos/interfaces/Serve.h"
#include "tavos/msgbus/CallObserver.h"
#include "tavos/msgbus/MsgBus.h"
#include "tavos/osa/Exception.h"

using namespace tavos::interfaces;
using tavos::msgbus::MsgBus;
using tavos::msgbus::ObservedCall;
using tavos::msgbus::ReceivedCall;
using tavos::msgbus::ServiceHost;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

struct Seen {
    ObservedCall::Outcome outcome;
    std::uint32_t microseconds;
    std::uint64_t serial;
    std::string sender, service, operation, arguments, error;
};

std::mutex s_mutex;
std::vector<Seen> s_seen;

void Observe(const ObservedCall& call) {
    const std::lock_guard<std::mutex> lock(s_mutex);
    s_seen.push_back({call.outcome, call.microseconds, call.serial, call.sender, call.service, call.operation,
                      call.arguments, call.error});
}

std::vector<Seen> Take() {
    const std::lock_guard<std::mutex> lock(s_mutex);
    return std::exchange(s_seen, {});
}

Seen TakeOne() {
    const auto seen = Take();
    EXPECT_EQ(seen.size(), 1U);
    return seen.empty() ? Seen{} : seen.front();
}

class ObserverTest : public testing::Test {
protected:
    ObserverTest() {
        setenv("TAVOS_CALL_TIMEOUT_MS", "300", 1);
        host = std::make_unique<HostThread>(bus.Address());
        host->Do([this](ServiceHost& h) {
            Serve(h, pan);
            Serve(h, relay);
        });
        host->HangWhen([this](const ReceivedCall&) {
            if (fail) throw tavos::osa::Exception("the service has failed");
            return hang.load();
        });
        messages = std::make_unique<MsgBus>();
        messages->StartServer();
        panClient.reset(IPanProvider::CreateClient(messages.get()));
        relayClient.reset(IRelayV3Provider::CreateClient(messages.get()));
        tavos_observe_calls(&Observe);
        Take();
    }
    ~ObserverTest() override { tavos_observe_calls(nullptr); }

    PrivateBus bus;
    fake::Pan pan;
    fake::Relay relay;
    std::atomic<bool> fail{false}, hang{false};
    std::unique_ptr<HostThread> host;
    std::unique_ptr<MsgBus> messages;
    std::unique_ptr<IPanProvider> panClient;
    std::unique_ptr<IRelayV3Provider> relayClient;
};

TEST_F(ObserverTest, AnAnsweredCallIsSeenWithWhatTheServiceKnowsItBy) {
    panClient->SetPositionAtSpeed(180000, 0.5, 300);
    panClient->GetMaxPosition();
    const auto seen = Take();
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0].outcome, ObservedCall::Outcome::kAnswered);
    EXPECT_EQ(seen[0].service, "org.tavos.Pan1");
    EXPECT_EQ(seen[0].operation, "SetPositionAtSpeed");
    EXPECT_EQ(seen[0].arguments, "[180000,0.5,300]");
    EXPECT_EQ(seen[0].error, "");
    EXPECT_THAT(seen[0].sender, StartsWith(":1."));
    EXPECT_GT(seen[0].serial, 0U);
    EXPECT_GT(seen[0].microseconds, 0U);
    EXPECT_EQ(seen[1].arguments, "[]");
    EXPECT_EQ(seen[1].sender, seen[0].sender);
    EXPECT_GT(seen[1].serial, seen[0].serial);
}

TEST_F(ObserverTest, ArgumentsAreJsonWhateverTheyHold) {
    relayClient->SetRelay("quote \" backslash \\ tab \t T\xC3\xBCr", 1, -1);
    EXPECT_EQ(TakeOne().arguments, "[\"quote \\\" backslash \\\\ tab \\u0009 T\xC3\xBCr\",1,-1]");
    panClient->SetRelativeVelocity(std::numeric_limits<double>::infinity(), 1);
    EXPECT_EQ(TakeOne().arguments, "[null,1]");
    EXPECT_THROW(relayClient->SetRelay(std::string("\xFF\0x", 3), 1, 1), tavos::osa::Exception);
    const Seen refused = TakeOne();
    EXPECT_EQ(refused.outcome, ObservedCall::Outcome::kFailed);
    EXPECT_EQ(refused.arguments, "[\"\xEF\xBF\xBD\\u0000x\",1,1]");
    EXPECT_EQ(refused.error, "a text is not UTF-8");
    EXPECT_EQ(refused.serial, 0U);
}

TEST_F(ObserverTest, ACallThatTheServiceRefusesIsSeenWithItsError) {
    fail = true;
    const std::string failure = Failure([&] { panClient->GetMaxPosition(); });
    const Seen seen = TakeOne();
    EXPECT_EQ(seen.outcome, ObservedCall::Outcome::kFailed);
    EXPECT_EQ(seen.error, "the service has failed");
    EXPECT_EQ(failure, "org.tavos.Pan1 GetMaxPosition: the service has failed");
    EXPECT_GT(seen.serial, 0U);
}

TEST_F(ObserverTest, ALateCallFailsAndThoseAfterItAreNotMade) {
    hang = true;
    EXPECT_THROW(panClient->GetMaxPosition(), tavos::osa::Exception);
    EXPECT_THROW(panClient->GetMinPosition(), tavos::osa::Exception);
    const auto seen = Take();
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0].outcome, ObservedCall::Outcome::kFailed);
    EXPECT_EQ(seen[0].error, "no answer within 300 ms");
    EXPECT_GT(seen[0].serial, 0U);
    EXPECT_GE(seen[0].microseconds, 300000U);
    EXPECT_EQ(seen[1].outcome, ObservedCall::Outcome::kNotMade);
    EXPECT_EQ(seen[1].operation, "GetMinPosition");
    EXPECT_EQ(seen[1].error, "the service is silent");
    EXPECT_EQ(seen[1].serial, 0U);
}

TEST_F(ObserverTest, ACallWithoutABusFails) {
    bus.Stop();
    EXPECT_THROW(panClient->GetMaxPosition(), tavos::osa::Exception);
    const Seen seen = TakeOne();
    EXPECT_EQ(seen.outcome, ObservedCall::Outcome::kFailed);
    EXPECT_THAT(seen.error, HasSubstr("cannot be reached"));
    EXPECT_EQ(seen.serial, 0U);
}

TEST_F(ObserverTest, NobodyObservesAnyMore) {
    tavos_observe_calls(nullptr);
    panClient->GetMaxPosition();
    EXPECT_TRUE(Take().empty());
}

TEST_F(ObserverTest, WhatAnObserverThrowsStaysWithIt) {
    tavos_observe_calls([](const ObservedCall&) { throw 1; });
    EXPECT_EQ(panClient->GetMaxPosition(), 359999U);
}

}  // namespace
