// The agent becomes a daemon by a fork after it has loaded the module: bus and settings must keep working in the child.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "FakeServices.h"
#include "PrivateBus.h"
#include "Sockets.h"
#include "TemporaryFolder.h"
#include "Waiting.h"
#include "tavos/core/Logger.h"
#include "tavos/interfaces/Serve.h"
#include "tavos/msgbus/MsgBus.h"
#include "tavos/msgbus/ServiceHost.h"
#include "tavos/settings/TavosSettingsClient.h"

using namespace tavos::interfaces;
using tavos::msgbus::MsgBus;
using tavos::msgbus::ServiceHost;

namespace {

/// A child that runs `work` and exits with its result; killed after 20 s.
class Child {
public:
    explicit Child(const std::function<int()>& work) : _process(fork()) {
        if (_process != 0) return;
        alarm(20);
        int result = 99;
        try {
            result = work();
        } catch (...) {
        }
        _exit(result);
    }
    ~Child() { Kill(); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    int Wait() {
        int status = 0;
        waitpid(_process, &status, 0);
        _process = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    void Kill() {
        if (_process <= 0) return;
        kill(_process, SIGKILL);
        waitpid(_process, nullptr, 0);
        _process = -1;
    }

private:
    pid_t _process;
};

/// True when a fork of a process with several threads can hang the child in AddressSanitizer's allocator: the child
/// inherits locks whose owners, other threads, do not exist in it.
constexpr bool kAllocatorBreaksInChildren =
#ifdef ORVEX_ASAN
    true;
#else
    false;
#endif

struct Counter {
    void Pair(int, int) { ++count; }
    std::atomic<int> count{0};
};

class ForkTest : public testing::Test {
protected:
    ForkTest() { setenv("TAVOS_CALL_TIMEOUT_MS", "5000", 1); }

    /// Serves the pan axis and emits temperature events repeatedly.
    int ServeForever() {
        fake::Pan pan;
        fake::Temperature temperature;
        ServiceHost host(bus.Address());
        Serve(host, pan);
        Serve(host, temperature);
        for (;;) {
            host.Process(5);
            temperature.change.Fire(0, 1);
        }
    }

    PrivateBus bus;
};

TEST_F(ForkTest, CallsAndEventsGoOnInTheChildAndInTheParent) {
    Child service([this] { return ServeForever(); });
    MsgBus messages;
    messages.StartServer();
    const std::unique_ptr<IPanProvider> pan(IPanProvider::CreateClient(&messages));
    Counter counter;
    const std::unique_ptr<ITemperatureV2Provider> client(ITemperatureV2Provider::CreateClient(&messages));
    client->OnTemperatureChange().AddHandler(tavos::core::CreateDelegate(&counter, &Counter::Pair));
    ASSERT_TRUE(Eventually([&] {
        try {
            return pan->GetMinPosition() == 1U;
        } catch (const std::exception&) {
            return false;  // the service is not on the bus yet
        }
    }));
    ASSERT_TRUE(Eventually([&] { return counter.count > 0; }));

    for (int round = 0; round < 10; ++round) {
        Child daemon([&] {
            // A second fork, as daemons do.
            Child grandchild([&] {
                counter.count = 0;
                if (!Eventually([&] { return counter.count > 0; })) return 2;
                return pan->GetMaxPosition() == 359999U ? 0 : 1;
            });
            return grandchild.Wait();
        });
        EXPECT_EQ(pan->GetMaxPosition(), 359999U);
        EXPECT_EQ(daemon.Wait(), 0);
    }
    counter.count = 0;
    EXPECT_TRUE(Eventually([&] { return counter.count > 0; }));
    EXPECT_EQ(pan->GetMaxPosition(), 359999U);
}

TEST_F(ForkTest, AForkDuringABurstIsNotInTheMiddleOfAHandler) {
    Child service([this] {
        fake::Temperature temperature;
        ServiceHost host(bus.Address());
        Serve(host, temperature);
        for (;;) {
            for (int i = 0; i < 100; ++i) temperature.change.Fire(0, 1);
            host.Process(1);
        }
        return 0;
    });
    struct Slow {
        void Pair(int, int) {
            works = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            works = false;
            ++count;
        }
        std::atomic<bool> works{false};
        std::atomic<int> count{0};
    } slow;
    MsgBus messages;
    messages.StartServer();
    const std::unique_ptr<ITemperatureV2Provider> client(ITemperatureV2Provider::CreateClient(&messages));
    client->OnTemperatureChange().AddHandler(tavos::core::CreateDelegate(&slow, &Slow::Pair));
    for (int round = 0; round < 8; ++round) {
        const int before = slow.count;
        ASSERT_TRUE(Eventually([&] { return slow.count > before + 5; }));
        EXPECT_EQ(Child([&] { return slow.works ? 1 : 0; }).Wait(), 0) << round;
    }
}

TEST_F(ForkTest, TheChildKeepsNoConnectionOfTheParents) {
    Child service([this] { return ServeForever(); });
    const auto before = Sockets();
    MsgBus messages;
    messages.StartServer();
    const std::unique_ptr<IPanProvider> pan(IPanProvider::CreateClient(&messages));
    Counter counter;
    const std::unique_ptr<ITemperatureV2Provider> client(ITemperatureV2Provider::CreateClient(&messages));
    client->OnTemperatureChange().AddHandler(tavos::core::CreateDelegate(&counter, &Counter::Pair));
    ASSERT_TRUE(Eventually([&] { return counter.count > 0; }));
    EXPECT_EQ(pan->GetMinPosition(), 1U);
    ASSERT_EQ(Sockets().size(), before.size() + 2);
    const auto parents = Sockets();
    EXPECT_EQ(Child([&] {
                  for (const auto& socket : Sockets()) {
                      if (parents.count(socket) > before.count(socket)) return 1;
                  }
                  return 0;
              }).Wait(),
              0);
    EXPECT_EQ(Sockets(), parents);
}

TEST_F(ForkTest, ABusWithoutServerThreadForksToo) {
    Child service([this] { return ServeForever(); });
    MsgBus messages;
    const std::unique_ptr<IPanProvider> pan(IPanProvider::CreateClient(&messages));
    const auto works = [&] {
        try {
            return pan->GetMinPosition() == 1U;
        } catch (const std::exception&) {
            return false;
        }
    };
    ASSERT_TRUE(Eventually(works));
    EXPECT_EQ(Child([&] { return works() ? 0 : 1; }).Wait(), 0);
    EXPECT_TRUE(works());
}

TEST_F(ForkTest, TheLoggerWorksInAChildWhileOthersLog) {
    if (kAllocatorBreaksInChildren) GTEST_SKIP() << "AddressSanitizer's allocator does not survive a fork";
    tavos::core::Logger::ClearAppenders();
    tavos::core::Logger* const log = tavos::core::Logger::GetLogger("Fork");
    std::atomic<bool> stop{false};
    std::thread busy([&] {
        while (!stop) log->Error("busy");
    });
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(Child([&] {
                      log->Error("child");
                      return 0;
                  }).Wait(),
                  0);
    }
    stop = true;
    busy.join();
}

TEST_F(ForkTest, SettingsWrittenByTheChildAreThere) {
    TemporaryFolder folder;
    setenv("TAVOS_SETTINGS_STORE", folder.File("store").c_str(), 1);
    tavos::settings::TavosSettingsClient settings(tavos::settings::TavosSettingsClient::kCreate);
    settings.SetValue("[a]b", "parent");
    EXPECT_EQ(Child([&] {
                  if (settings.GetValue("[a]b") != "parent") return 1;
                  settings.SetValue("[a]b", "child");
                  return 0;
              }).Wait(),
              0);
    EXPECT_EQ(settings.GetValue("[a]b"), "child");
}

}  // namespace
