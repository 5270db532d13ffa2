// Waits that spin before they sleep: when, how long, and that calls on lanes use them on both sides.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>

#include "FakeServices.h"
#include "HostThread.h"
#include "LogFile.h"
#include "PrivateBus.h"
#include "Waiting.h"
#include "tavos/interfaces/Serve.h"
#include "tavos/msgbus/MsgBus.h"
#include "tavos/msgbus/SpinWait.h"

using namespace std::chrono_literals;
using namespace tavos::interfaces;
using tavos::msgbus::Clock;
using tavos::msgbus::MsgBus;
using tavos::msgbus::ServiceHost;
using tavos::msgbus::SpinWait;
using testing::HasSubstr;

namespace {

class SpinWaitTest : public testing::Test {
protected:
    SpinWaitTest() { unsetenv("TAVOS_BUS_SPIN"); }
    ~SpinWaitTest() override {
        unsetenv("TAVOS_BUS_SPIN");
        sched_setaffinity(0, sizeof _processors, &_processors);
    }

    void UseProcessors(int count) {
        cpu_set_t used;
        CPU_ZERO(&used);
        for (int i = 0; i < CPU_SETSIZE && CPU_COUNT(&used) < count; ++i) {
            if (CPU_ISSET(i, &_processors)) CPU_SET(i, &used);
        }
        ASSERT_EQ(sched_setaffinity(0, sizeof used, &used), 0);
    }
    bool HasOneProcessor() const { return CPU_COUNT(&_processors) == 1; }

    const Clock::time_point now{1h};
    SpinWait wait{true};

private:
    const cpu_set_t _processors = [] {
        cpu_set_t processors;
        CPU_ZERO(&processors);
        sched_getaffinity(0, sizeof processors, &processors);
        return processors;
    }();
};

TEST_F(SpinWaitTest, SpinsOnlyWhileWaitsAreShort) {
    EXPECT_FALSE(wait.Spins(now)) << "nothing is known yet";
    wait.Slept(now, now + 199us);
    EXPECT_TRUE(wait.Spins(now));
    wait.Slept(now, now + 200us);
    EXPECT_FALSE(wait.Spins(now));
}

TEST_F(SpinWaitTest, SpinsInVainTakeAtMostOnePartIn32) {
    wait.Slept(now, now + 1us);
    wait.Spun(now, now + 99us);
    EXPECT_TRUE(wait.Spins(now + 99us));
    wait.Spun(now, now + 100us);
    EXPECT_FALSE(wait.Spins(now + 100us + 3199us));
    EXPECT_TRUE(wait.Spins(now + 100us + 3200us));
}

TEST_F(SpinWaitTest, ALostProcessorPausesSpinningForLonger) {
    wait.Slept(now, now + 1us);
    wait.Spun(now, now + 3ms);
    EXPECT_FALSE(wait.Spins(now + 3ms + 95ms));
    EXPECT_TRUE(wait.Spins(now + 3ms + 96ms));
}

TEST_F(SpinWaitTest, AfterAShortSleepAsksInsteadOfSleeping) {
    int asked = 0;
    const auto spins = [&] {
        asked = 0;
        bool slept = false;
        wait.Wait([&] { return ++asked == 3; }, [&] { slept = true; });
        return asked == 3 && !slept;
    };
    EXPECT_TRUE(Eventually(spins));
}

TEST_F(SpinWaitTest, SleepsForAWhileAfterASpinInVain) {
    bool asked = false;
    const auto isAsked = [&] {
        wait.Wait(
            [&] {
                asked = true;
                return false;
            },
            [] {});
        return asked;
    };
    ASSERT_TRUE(Eventually(isAsked));
    bool slept = false;
    wait.Wait([] { return true; }, [&] { slept = true; });
    EXPECT_TRUE(slept) << "the pause";
}

TEST_F(SpinWaitTest, NeverAsksWhenItIsOff) {
    SpinWait off(false);
    int slept = 0;
    for (int i = 0; i < 100; ++i) {
        off.Wait(
            [] {
                ADD_FAILURE();
                return true;
            },
            [&] { ++slept; });
    }
    EXPECT_EQ(slept, 100);
}

TEST_F(SpinWaitTest, IsNotWantedOnOneProcessor) {
    EXPECT_EQ(SpinWait::IsWanted(), !HasOneProcessor());
    UseProcessors(1);
    EXPECT_FALSE(SpinWait::IsWanted());
}

TEST_F(SpinWaitTest, OffMeansOffAndAnotherWordIsNamed) {
    const LogFile log;
    setenv("TAVOS_BUS_SPIN", "off", 1);
    EXPECT_FALSE(SpinWait::IsWanted());
    EXPECT_EQ(log.Text(), "");
    setenv("TAVOS_BUS_SPIN", "0", 1);
    EXPECT_EQ(SpinWait::IsWanted(), !HasOneProcessor());
    EXPECT_THAT(log.Text(), HasSubstr("TAVOS_BUS_SPIN must be on or off, not \"0\"; it stays on"));
}

long Sleeps() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nvcsw;
}

class SpinningCallsTest : public SpinWaitTest {
protected:
    SpinningCallsTest() {
        host.Do([this](ServiceHost& h) { Serve(h, pan); });
        messages.StartServer();
        client.reset(IPanProvider::CreateClient(&messages));
    }

    /// How often this thread slept during 100 calls.
    long SleepsOfCalls() {
        const long before = Sleeps();
        for (int i = 0; i < 100; ++i) client->GetMaxPosition();
        return Sleeps() - before;
    }

    /// How often the host's thread slept during 100 calls of a client that works for 30 us between them.
    long SleepsOfHost() {
        long before = 0;
        long after = 0;
        host.Do([&](ServiceHost&) { before = Sleeps(); });
        for (int i = 0; i < 100; ++i) {
            client->GetMaxPosition();
            const auto next = Clock::now() + 30us;
            while (Clock::now() < next) continue;
        }
        host.Do([&](ServiceHost&) { after = Sleeps(); });
        return after - before;
    }

    PrivateBus bus;
    fake::Pan pan;
    HostThread host{bus.Address()};
    MsgBus messages;
    std::unique_ptr<IPanProvider> client;
};

TEST_F(SpinningCallsTest, AnAnswerThatComesSoonIsAwaitedWithoutSleep) {
    if (HasOneProcessor()) GTEST_SKIP() << "this machine has one processor";
    EXPECT_TRUE(Eventually([&] { return SleepsOfCalls() < 50; }));
}

TEST_F(SpinningCallsTest, AServiceAwaitsTheNextCallOfALaneWithoutSleep) {
    if (HasOneProcessor()) GTEST_SKIP() << "this machine has one processor";
    EXPECT_TRUE(Eventually([&] { return SleepsOfHost() < 50; }));
}

}  // namespace
