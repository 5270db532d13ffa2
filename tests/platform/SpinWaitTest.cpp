// Waits that spin before they sleep: when, how long, and that calls on lanes use them on both sides.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

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
using tavos::msgbus::SpinPause;
using tavos::msgbus::SpinWait;
using testing::HasSubstr;

namespace {

thread_local long t_yields = 0;  // how often this thread has offered its processor: once at least in nearly each spin

}  // namespace

/// In place of the C library's, also for the platform's library.
extern "C" __attribute__((visibility("default"))) int sched_yield() noexcept {
    ++t_yields;
    return static_cast<int>(syscall(SYS_sched_yield));
}

namespace {

class SpinWaitTest : public testing::Test {
protected:
    SpinWaitTest() {
        unsetenv("TAVOS_BUS_LANES");
        unsetenv("TAVOS_BUS_SPIN");
    }
    ~SpinWaitTest() override {
        unsetenv("TAVOS_BUS_LANES");
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
    /// The next failed spin that ends at `now` causes its whole pause.
    void UseUpSavedTime() {
        wait.Waited(1us);
        pause.Failed(now - 220ms, 10ms);  // 320 ms, of which 100 were saved
    }
    bool HasOneProcessor() const { return CPU_COUNT(&_processors) == 1; }

    const Clock::time_point now{1h};
    SpinPause pause;
    SpinWait wait{&pause};

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
    wait.Waited(199us);
    EXPECT_TRUE(wait.Spins(now));
    wait.Waited(200us);
    EXPECT_FALSE(wait.Spins(now));
}

TEST_F(SpinWaitTest, ARareFailedSpinCausesNoPause) {
    wait.Waited(1us);
    for (int i = 0; i < 31; ++i) {  // 31 x 100 us x 32 < 100 ms
        wait.Spun(now, now + 100us);
        EXPECT_TRUE(wait.Spins(now + 100us)) << i;
    }
    wait.Spun(now, now + 100us);
    EXPECT_FALSE(wait.Spins(now + 100us));
}

TEST_F(SpinWaitTest, FailedSpinsTakeAtMostOnePartIn32) {
    UseUpSavedTime();
    wait.Spun(now, now + 99us);
    EXPECT_TRUE(wait.Spins(now + 99us));
    wait.Spun(now - 100us, now);
    EXPECT_FALSE(wait.Spins(now + 3199us));
    EXPECT_TRUE(wait.Spins(now + 3200us));
}

TEST_F(SpinWaitTest, TimeWithoutFailedSpinsIsSavedUpToATenthOfASecond) {
    UseUpSavedTime();
    wait.Spun(now + 1h - 10ms, now + 1h);
    EXPECT_FALSE(wait.Spins(now + 1h + 219ms));
    EXPECT_TRUE(wait.Spins(now + 1h + 220ms));
}

TEST_F(SpinWaitTest, WaitsThatShareAPausePauseTogether) {
    SpinWait other(&pause);
    other.Waited(1us);
    EXPECT_TRUE(other.Spins(now));
    wait.Spun(now, now + 10ms);
    EXPECT_FALSE(other.Spins(now + 10ms));
}

TEST_F(SpinWaitTest, ALostProcessorPausesSpinningForLonger) {
    UseUpSavedTime();
    wait.Spun(now - 3ms, now);
    EXPECT_FALSE(wait.Spins(now + 95ms));
    EXPECT_TRUE(wait.Spins(now + 96ms));
}

TEST_F(SpinWaitTest, AStoppedProcessPausesForAThirdOfASecondAtMost) {
    UseUpSavedTime();
    wait.Spun(now - 1min, now);
    EXPECT_TRUE(wait.Spins(now + 320ms));
}

TEST_F(SpinWaitTest, AfterAShortSleepAsksInsteadOfSleeping) {
    const auto asks = [&] {
        int asked = 0;
        bool slept = false;
        wait.Wait(
            Clock::time_point::max(), [&] { return ++asked == 3; }, [&] { slept = true; });
        return asked == 3 && !slept;
    };
    EXPECT_TRUE(Eventually(asks));
}

TEST_F(SpinWaitTest, DoesNotSpinBeyondTheWaitsEnd) {
    const auto asksOnce = [&] {
        int asked = 0;
        wait.Wait(
            Clock::now(),
            [&] {
                ++asked;
                return false;
            },
            [] {});
        return asked == 1;
    };
    EXPECT_TRUE(Eventually(asksOnce));
}

TEST_F(SpinWaitTest, AWaitThatWasLongThoughItSpunIsNoReasonToSpin) {
    wait.Waited(1us);
    wait.Wait(
        Clock::time_point::max(),
        [] {
            std::this_thread::sleep_for(1ms);  // as if the processor were lost
            return true;
        },
        [] {});
    EXPECT_FALSE(wait.Spins(Clock::now() + 1h));
    wait.Waited(1us);
    wait.Sleep([] { std::this_thread::sleep_for(1ms); });
    EXPECT_FALSE(wait.Spins(Clock::now() + 1h));
}

TEST_F(SpinWaitTest, NeverAsksWhenItIsOff) {
    SpinWait off(nullptr);
    int slept = 0;
    for (int i = 0; i < 100; ++i) {
        off.Wait(
            Clock::time_point::max(),
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
    EXPECT_THAT(log.Text(), HasSubstr("TAVOS_BUS_SPIN must be on or off, not \"0\"; it counts as on"));
}

class SpinningCallsTest : public SpinWaitTest {
protected:
    void Connect() {
        host = std::make_unique<HostThread>(bus.Address());
        host->Do([this](ServiceHost& h) { Serve(h, pan); });
        messages = std::make_unique<MsgBus>();
        messages->StartServer();
        client.reset(IPanProvider::CreateClient(messages.get()));
    }

    /// True if 100 calls made this thread, or the host's, spin.
    bool ClientSpins() {
        const long before = t_yields;
        Call();
        return t_yields > before;
    }
    bool HostSpins() {
        Call();
        long yields = 0;
        host->Do([&](ServiceHost&) { yields = t_yields; });
        return yields > 0;
    }

    void Call() {
        for (int i = 0; i < 100; ++i) client->GetMaxPosition();
    }

    PrivateBus bus;
    fake::Pan pan;
    std::unique_ptr<HostThread> host;
    std::unique_ptr<MsgBus> messages;
    std::unique_ptr<IPanProvider> client;
};

TEST_F(SpinningCallsTest, BothSidesOfALaneSpin) {
    if (HasOneProcessor()) GTEST_SKIP() << "this machine has one processor";
    Connect();
    EXPECT_TRUE(Eventually([&] { return ClientSpins(); }));
    EXPECT_TRUE(Eventually([&] { return HostSpins(); }));
}

TEST_F(SpinningCallsTest, NobodySpinsWhenItIsOff) {
    setenv("TAVOS_BUS_SPIN", "off", 1);
    Connect();
    for (int i = 0; i < 20; ++i) EXPECT_FALSE(ClientSpins() || HostSpins());
}

TEST_F(SpinningCallsTest, NobodySpinsOnTheBus) {
    setenv("TAVOS_BUS_LANES", "off", 1);
    Connect();
    for (int i = 0; i < 20; ++i) EXPECT_FALSE(ClientSpins() || HostSpins());
}

}  // namespace
