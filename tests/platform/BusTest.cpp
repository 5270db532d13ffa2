// What happens when the bus, a service or the other side fails or misbehaves.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <thread>

#include "Disturbance.h"
#include "Failure.h"
#include "FakeServices.h"
#include "HostThread.h"
#include "LogFile.h"
#include "OtherPan.h"
#include "PrivateBus.h"
#include "Waiting.h"
#include "tavos/interfaces/Serve.h"
#include "tavos/msgbus/MsgBus.h"
#include "tavos/msgbus/Service.h"
#include "tavos/osa/Exception.h"

using namespace std::chrono_literals;
using namespace tavos::interfaces;
using tavos::msgbus::MsgBus;
using tavos::msgbus::ReceivedCall;
using tavos::msgbus::ServiceHost;
using tavos::osa::Exception;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class BusTest : public testing::Test {
protected:
    BusTest() { setenv("TAVOS_CALL_TIMEOUT_MS", "5000", 1); }

    std::unique_ptr<IPanProvider> PanClient(MsgBus& messages) {
        return std::unique_ptr<IPanProvider>(IPanProvider::CreateClient(&messages));
    }

    PrivateBus bus;
    fake::Pan pan;
    fake::Temperature temperature;
};

TEST_F(BusTest, AMissingServiceThrowsAtOnce) {
    setenv("TAVOS_CALL_TIMEOUT_MS", "20000", 1);
    MsgBus messages;
    const auto client = PanClient(messages);
    std::string failure;
    const auto time = TimeOf([&] { failure = Failure([&] { client->SetPosition(1, 2); }); });
    EXPECT_EQ(failure, "org.tavos.Pan1 SetPosition: the service is missing");
    EXPECT_LT(time, 5s);
}

TEST_F(BusTest, AServiceThatAppearsLaterWorks) {
    MsgBus messages;
    const auto client = PanClient(messages);
    EXPECT_THROW(client->GetMaxPosition(), Exception);
    HostThread host(bus.Address());
    host.Do([&](ServiceHost& h) { Serve(h, pan); });
    EXPECT_EQ(client->GetMaxPosition(), 359999U);
}

TEST_F(BusTest, AReceivedCallNamesItsSenderAndItsSerial) {
    std::vector<ReceivedCall> received;
    HostThread host(bus.Address());
    host.Do([&](ServiceHost& h) {
        Serve(h, pan);
        h.SetCallFilter([&](const ReceivedCall& call) {
            received.push_back(call);
            return false;
        });
    });
    MsgBus one;
    MsgBus other;
    PanClient(one)->GetPosition();
    PanClient(one)->GetPosition();
    PanClient(other)->GetPosition();
    std::vector<ReceivedCall> calls;
    host.Do([&](ServiceHost&) { calls = received; });
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].sender.front(), ':');
    EXPECT_EQ(calls[1].sender, calls[0].sender);
    EXPECT_NE(calls[2].sender, calls[0].sender);
    EXPECT_GT(calls[0].serial, 0u);
    EXPECT_GT(calls[1].serial, calls[0].serial);
}

TEST_F(BusTest, AServiceThatHangsThrowsAfterTheDeadline) {
    setenv("TAVOS_CALL_TIMEOUT_MS", "300", 1);
    HostThread host(bus.Address());
    std::atomic<bool> hang{true};
    host.Do([&](ServiceHost& h) { Serve(h, pan); });
    host.HangWhen([&](const ReceivedCall&) { return hang.load(); });
    MsgBus messages;
    const auto client = PanClient(messages);
    for (int i = 0; i < 6; ++i) {  // more than the bus's max of unanswered calls for one connection
        std::string failure;
        const auto time = TimeOf([&] { failure = Failure([&] { client->GetPosition(); }); });
        EXPECT_EQ(failure, "org.tavos.Pan1 GetPosition: no answer within 300 ms");
        EXPECT_GE(time, 290ms);
        EXPECT_LT(time, 1500ms);
    }
    hang = false;
    EXPECT_EQ(client->GetMaxPosition(), 359999U);
}

TEST_F(BusTest, SignalsDoNotCutAWaitShort) {
    setenv("TAVOS_CALL_TIMEOUT_MS", "300", 1);
    HostThread host(bus.Address());
    std::atomic<bool> hang{true};
    host.Do([&](ServiceHost& h) { Serve(h, pan); });
    host.HangWhen([&](const ReceivedCall&) { return hang.load(); });
    const Disturbance disturbance;
    MsgBus messages;
    const auto client = PanClient(messages);
    std::string failure;
    const auto time = TimeOf([&] { failure = Failure([&] { client->GetPosition(); }); });
    EXPECT_EQ(failure, "org.tavos.Pan1 GetPosition: no answer within 300 ms");
    EXPECT_GE(time, 290ms);
    EXPECT_LT(time, 1500ms);
    hang = false;
    for (int i = 0; i < 50; ++i) EXPECT_EQ(Failure([&] { client->GetPosition(); }), "");
}

TEST_F(BusTest, ABusThatDoesNotAnswerThrowsAfterTheDeadline) {
    setenv("TAVOS_CALL_TIMEOUT_MS", "300", 1);
    bus.Freeze();
    MsgBus messages;
    const auto client = PanClient(messages);
    std::string failure;
    const auto time = TimeOf([&] { failure = Failure([&] { client->GetPosition(); }); });
    EXPECT_THAT(failure, AllOf(HasSubstr("org.tavos.Pan1 GetPosition: "), HasSubstr("no answer in time")));
    EXPECT_GE(time, 290ms);
    EXPECT_LT(time, 1500ms);
    bus.Thaw();
    EXPECT_TRUE(Eventually([&] {
        return Failure([&] { client->GetPosition(); }) == "org.tavos.Pan1 GetPosition: the service is missing";
    }));
}

TEST_F(BusTest, ConstructionNeedsNoBus) {
    bus.Stop();
    MsgBus messages;
    messages.StartServer();
    const auto client = PanClient(messages);
    EXPECT_THAT(Failure([&] { client->GetPosition(); }),
                HasSubstr("org.tavos.Pan1 GetPosition: the message bus cannot be reached: "));
}

TEST_F(BusTest, AClientNeedsABus) {
    EXPECT_THROW(IPanProvider::CreateClient(nullptr), Exception);
}

TEST_F(BusTest, ARefusalAndAFailureReachTheCaller) {
    struct Stubborn : fake::Pan {
        void SetPosition(int, int) override { throw Exception("beyond the %s stop \xFF", "left"); }
        void SetRelativeVelocity(double, int) override { throw 42; }
    } stubborn;
    HostThread host(bus.Address());
    host.Do([&](ServiceHost& h) { Serve(h, stubborn); });
    host.HangWhen([](const ReceivedCall& call) {
        if (call.operation == "GetPosition") throw tavos::osa::Exception("the service has failed");
        return false;
    });
    MsgBus messages;
    const auto client = PanClient(messages);
    EXPECT_EQ(Failure([&] { client->SetPosition(1, 2); }), "org.tavos.Pan1 SetPosition: beyond the left stop ?");
    EXPECT_EQ(Failure([&] { client->SetRelativeVelocity(1, 2); }),
              "org.tavos.Pan1 SetRelativeVelocity: the service has failed");
    EXPECT_EQ(Failure([&] { client->GetPosition(); }), "org.tavos.Pan1 GetPosition: the service has failed");
    EXPECT_EQ(client->GetMaxPosition(), 359999U);
}

struct OtherPan : test::IOtherPan {
    std::string GetPosition() override { return "north"; }
    std::int32_t GetMinPosition() override { return -1; }
    void GetMaxPosition() override {}
    void SetPosition(const std::string&) override {}
};

TEST_F(BusTest, AnAnswerOfTheWrongFormIsAFailure) {
    OtherPan other;
    HostThread host(bus.Address());
    host.Do([&](ServiceHost& h) { EXPECT_EQ(test::Serve(h, other), "org.tavos.Pan1"); });
    MsgBus messages;
    const auto client = PanClient(messages);
    EXPECT_EQ(Failure([&] { client->GetPosition(); }),
              "org.tavos.Pan1 GetPosition: the answer has the wrong form (\"s\" instead of \"u\")");
    EXPECT_EQ(Failure([&] { client->GetMinPosition(); }),
              "org.tavos.Pan1 GetMinPosition: the answer has the wrong form (\"i\" instead of \"u\")");
    EXPECT_EQ(Failure([&] { client->GetMaxPosition(); }),
              "org.tavos.Pan1 GetMaxPosition: the answer has the wrong form (\"\" instead of \"u\")");
    EXPECT_NE(Failure([&] { client->SetPosition(1, 2); }), "");      // arguments of another type
    EXPECT_NE(Failure([&] { client->GetRelativeVelocity(); }), "");  // no such operation
    const std::unique_ptr<test::IOtherPan> right(test::IOtherPan::CreateClient(&messages));
    EXPECT_EQ(right->GetPosition(), "north");
}

TEST_F(BusTest, TextsThatCannotTravelAreRefused) {
    fake::Alarm alarm;
    HostThread host(bus.Address());
    host.Do([&](ServiceHost& h) { Serve(h, alarm); });
    MsgBus messages;
    const std::unique_ptr<IAlarmV3Provider> client(IAlarmV3Provider::CreateClient(&messages));
    for (const std::string& text : {std::string("a\0b", 3), std::string("\xFF"), std::string("\xC0\x80"),
                                    std::string("\xED\xA0\x80"), std::string("\xE2\x82")}) {
        EXPECT_EQ(Failure([&] { client->GetBankAlarmCount(text); }),
                  "org.tavos.Alarm3 GetBankAlarmCount: a text is not UTF-8");
    }
    EXPECT_EQ(client->GetBankAlarmCount("\xF0\x9F\x8E\xA5"), 7);
    EXPECT_THAT(alarm.Take(), ElementsAre("GetBankAlarmCount \xF0\x9F\x8E\xA5"));
}

TEST_F(BusTest, TheFilterSeesEveryCallInOrderWithTypedArguments) {
    fake::Alarm alarm;
    fake::Iris iris;
    HostThread host(bus.Address());
    Journal seen;
    host.Do([&](ServiceHost& h) {
        Serve(h, pan);
        Serve(h, alarm);
        Serve(h, iris);
        h.SetCallFilter([&](const ReceivedCall& call) {
            std::string line = call.service + "|" + call.operation;
            constexpr const char* kTypes[] = {"i", "u", "d", "b", "s", "as"};
            for (const auto& argument : call.arguments) {
                line += std::string("|") + kTypes[argument.index()] + " " + tavos::msgbus::Text(argument);
            }
            seen.Note(line.c_str());
            return false;
        });
    });
    MsgBus messages;
    const auto pans = PanClient(messages);
    const std::unique_ptr<IAlarmV3Provider> alarms(IAlarmV3Provider::CreateClient(&messages));
    const std::unique_ptr<IIrisProvider> irises(IIrisProvider::CreateClient(&messages));
    pans->SetPositionAtSpeed(-45000, 0.1, 300);
    pans->SetRelativeVelocity(-1.0, 60);
    pans->SetRelativeVelocity(100.0 / 127.0, 60);
    pans->GetPosition();
    alarms->GetAlarmState("front door", 1);
    irises->SetAutoIris(true);
    EXPECT_THAT(
        seen.Take(),
        ElementsAre("org.tavos.Pan1|SetPositionAtSpeed|i -45000|d 0.1|i 300",
                    "org.tavos.Pan1|SetRelativeVelocity|d -1|i 60",
                    "org.tavos.Pan1|SetRelativeVelocity|d 0.7874015748031497|i 60", "org.tavos.Pan1|GetPosition",
                    "org.tavos.Alarm3|GetAlarmState|s front door|i 1", "org.tavos.Iris1|SetAutoIris|b true"));
    EXPECT_THAT(pan.Take(), testing::SizeIs(3));  // they were executed, too
}

TEST_F(BusTest, AServiceCanGoAndComeBack) {
    HostThread host(bus.Address());
    host.Do([&](ServiceHost& h) { Serve(h, pan); });
    MsgBus messages;
    const auto client = PanClient(messages);
    EXPECT_EQ(client->GetMinPosition(), 1U);
    host.Do([](ServiceHost& h) { h.SetPresent("org.tavos.Pan1", false); });
    EXPECT_EQ(Failure([&] { client->GetMinPosition(); }), "org.tavos.Pan1 GetMinPosition: the service is missing");
    host.Do([](ServiceHost& h) { h.SetPresent("org.tavos.Pan1", true); });
    EXPECT_EQ(client->GetMinPosition(), 1U);
    EXPECT_THROW(host.Do([](ServiceHost& h) { h.SetPresent("org.tavos.Fan2", true); }), Exception);
}

TEST_F(BusTest, ANameHasOneOwner) {
    HostThread first(bus.Address());
    HostThread second(bus.Address());
    first.Do([&](ServiceHost& h) { Serve(h, pan); });
    fake::Pan other;
    EXPECT_THROW(second.Do([&](ServiceHost& h) { Serve(h, other); }), Exception);
    first.Do([](ServiceHost& h) { h.SetPresent("org.tavos.Pan1", false); });
    second.Do([&](ServiceHost& h) { Serve(h, other); });  // nothing remains of the failed attempt
    EXPECT_THROW(first.Do([](ServiceHost& h) { h.SetPresent("org.tavos.Pan1", true); }), Exception);
    MsgBus messages;
    PanClient(messages)->SetPosition(1, 2);
    EXPECT_THAT(other.Take(), ElementsAre("SetPosition 1 2"));
    EXPECT_THAT(pan.Take(), ElementsAre());
}

TEST_F(BusTest, AHostNeedsABus) {
    bus.Stop();
    EXPECT_THAT(Failure([&] { ServiceHost host(bus.Address()); }), HasSubstr("cannot be reached"));
}

struct Listener {
    void Pair(int a, int b) { journal.Note("Pair", a, b); }
    Journal journal;
};

TEST_F(BusTest, ANameThatSomebodyElseHasIsTakenWhenItIsFree) {
    const LogFile log;
    HostThread host(bus.Address());
    host.Do([&](ServiceHost& h) { Serve(h, pan); });
    fake::Pan other;
    std::optional<HostThread> stranger;
    // The host is blocked while the bus restarts, so that the stranger gets the name first.
    host.Do([&](ServiceHost&) {
        bus.Stop();
        bus.Start();
        stranger.emplace(bus.Address());
        stranger->Do([&](ServiceHost& h) { Serve(h, other); });
    });
    const std::string refused = " tavos Error org.tavos.Pan1: cannot take the name: File exists\n";
    EXPECT_TRUE(Eventually([&] { return log.Count(refused) >= 1; })) << log.Text();
    const auto since = std::chrono::steady_clock::now();
    MsgBus messages;
    const auto client = PanClient(messages);
    client->SetPosition(1, 2);
    EXPECT_THAT(other.Take(), ElementsAre("SetPosition 1 2")) << "the host does not intercept the call";
    stranger.reset();
    EXPECT_TRUE(Eventually([&] {
        Failure([&] { client->SetPosition(3, 4); });
        return !pan.Take().empty();
    })) << log.Text();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - since);
    EXPECT_LE(log.Count(refused), 2U + static_cast<std::size_t>(seconds.count())) << "it retries once a second";
}

TEST_F(BusTest, AHostThatWaitsLongTakesANameWhenItIsFree) {
    const LogFile log;
    const int wake = eventfd(0, EFD_CLOEXEC);
    ServiceHost host(bus.Address());
    host.WakeOn(wake);
    Serve(host, pan);
    bus.Stop();
    bus.Start();
    fake::Pan other;
    auto stranger = std::make_unique<HostThread>(bus.Address());
    stranger->Do([&](ServiceHost& h) { Serve(h, other); });
    std::atomic<bool> stop{false};
    std::thread waiting([&] {
        while (!stop) host.Process(3'600'000);
    });
    EXPECT_TRUE(Eventually([&] { return log.Count("org.tavos.Pan1: cannot take the name") >= 2; })) << log.Text();
    stranger.reset();
    MsgBus messages;
    const auto client = PanClient(messages);
    EXPECT_TRUE(Eventually([&] {
        Failure([&] { client->SetPosition(1, 2); });
        return !pan.Take().empty();
    })) << log.Text();
    stop = true;
    eventfd_write(wake, 1);
    waiting.join();
    close(wake);
}

TEST_F(BusTest, ABusThatRefusesToDeliverAnEventIsNamed) {
    const PrivateBus strict("  <limit name=\"max_match_rules_per_connection\">0</limit>\n");
    const LogFile log;
    HostThread host(strict.Address());
    host.Do([&](ServiceHost& h) {
        Serve(h, pan);
        Serve(h, temperature);
    });
    MsgBus messages;
    messages.StartServer();
    const std::unique_ptr<ITemperatureV2Provider> client(ITemperatureV2Provider::CreateClient(&messages));
    const std::string refused =
        " tavos Error the message bus refuses to deliver TemperatureChange of org.tavos.Temperature2\n";
    EXPECT_TRUE(Eventually([&] { return log.Count(refused) == 1; })) << log.Text();
    EXPECT_EQ(PanClient(messages)->GetMinPosition(), 1U) << "calls require no rule";
}

TEST_F(BusTest, CallsAndEventsOutliveTheBus) {
    const LogFile log;
    HostThread host(bus.Address());
    host.Do([&](ServiceHost& h) {
        Serve(h, pan);
        Serve(h, temperature);
    });
    MsgBus messages;
    Listener first;  // the listeners outlive their clients
    Listener second;
    // The first subscription is made before the thread runs, the second while it does.
    const std::unique_ptr<ITemperatureV2Provider> early(ITemperatureV2Provider::CreateClient(&messages));
    messages.StartServer();
    const auto client = PanClient(messages);
    EXPECT_EQ(client->GetMinPosition(), 1U);
    const std::unique_ptr<ITemperatureV2Provider> late(ITemperatureV2Provider::CreateClient(&messages));
    early->OnTemperatureChange().AddHandler(tavos::core::CreateDelegate(&first, &Listener::Pair));
    late->OnTemperatureChange().AddHandler(tavos::core::CreateDelegate(&second, &Listener::Pair));
    const auto heard = [&](Listener& listener, int degrees) {
        return Eventually([&] {
            host.Do([&](ServiceHost&) { temperature.change.Fire(0, degrees); });
            const auto lines = listener.journal.Take();
            return !lines.empty() && lines.back() == "Pair 0 " + std::to_string(degrees);
        });
    };
    EXPECT_TRUE(heard(first, 20));
    EXPECT_TRUE(heard(second, 21));

    bus.Stop();
    EXPECT_TRUE(Eventually([&] { return Failure([&] { client->GetMinPosition(); }) != ""; }));
    for (int i = 0; i < 3; ++i) {
        EXPECT_THAT(Failure([&] { client->GetMinPosition(); }), HasSubstr("the message bus cannot be reached"));
    }
    bus.Start();
    EXPECT_TRUE(Eventually([&] { return Failure([&] { client->GetMinPosition(); }).empty(); }));
    EXPECT_TRUE(heard(first, 30));
    EXPECT_TRUE(heard(second, 31));

    // The host and the client each log it once.
    EXPECT_EQ(log.Count(" tavos Error the message bus at " + bus.Address() + " cannot be reached: "), 2U) << log.Text();
    EXPECT_EQ(log.Count(" tavos Information the message bus at " + bus.Address() + " is reachable again\n"), 2U)
        << log.Text();
}

TEST_F(BusTest, ARestartOfTheBusBetweenTwoCallsIsNotNoticed) {
    HostThread host(bus.Address());
    host.Do([&](ServiceHost& h) { Serve(h, pan); });
    MsgBus messages;
    const auto client = PanClient(messages);
    EXPECT_EQ(client->GetMinPosition(), 1U);
    bus.Stop();
    bus.Start();
    MsgBus others;
    const auto other = PanClient(others);
    ASSERT_TRUE(Eventually([&] { return Failure([&] { other->GetMinPosition(); }).empty(); }));
    EXPECT_EQ(Failure([&] { client->GetMinPosition(); }), "");
}

TEST_F(BusTest, AnEventOfTheWrongFormIsDropped) {
    const LogFile log;
    HostThread host(bus.Address());
    host.Do([&](ServiceHost& h) { Serve(h, temperature); });
    MsgBus messages;
    messages.StartServer();
    Listener listener;
    const std::unique_ptr<ITemperatureV2Provider> client(ITemperatureV2Provider::CreateClient(&messages));
    client->OnTemperatureChange().AddHandler(tavos::core::CreateDelegate(&listener, &Listener::Pair));
    const auto heard = [&] {
        host.Do([&](ServiceHost&) { temperature.change.Fire(1, 2); });
        return !listener.journal.Take().empty();
    };
    ASSERT_TRUE(Eventually(heard));
    host.Do([&](ServiceHost& h) {
        const tavos::msgbus::ServiceAddress from{"org.tavos.Temperature2", "/org/tavos/Temperature2",
                                                 "org.tavos.Temperature2"};
        h.Internals().Emit(from, "TemperatureChange", [](tavos::msgbus::Writer& writer) { writer.Put(7); });
        h.Internals().Emit(from, "TemperatureChange",
                           [](tavos::msgbus::Writer& writer) { writer.Put(std::string("warm")); });
        temperature.change.Fire(3, 4);
    });
    EXPECT_TRUE(Eventually([&] {
        const auto lines = listener.journal.Take();
        for (const auto& line : lines) EXPECT_THAT(line, testing::AnyOf("Pair 1 2", "Pair 3 4"));
        return !lines.empty() && lines.back() == "Pair 3 4";
    }));
    const std::string lost =
        " tavos Error TemperatureChange of org.tavos.Temperature2 is lost: it has the wrong form\n";
    EXPECT_EQ(log.Count(lost), 2U) << log.Text();
}

TEST_F(BusTest, OnlyTheServiceItselfIsListenedTo) {
    HostThread host(bus.Address());
    HostThread stranger(bus.Address());
    host.Do([&](ServiceHost& h) { Serve(h, temperature); });
    MsgBus messages;
    messages.StartServer();
    Listener listener;
    const std::unique_ptr<ITemperatureV2Provider> client(ITemperatureV2Provider::CreateClient(&messages));
    client->OnTemperatureChange().AddHandler(tavos::core::CreateDelegate(&listener, &Listener::Pair));
    const auto fire = [&](int degrees) { host.Do([&](ServiceHost&) { temperature.change.Fire(0, degrees); }); };
    ASSERT_TRUE(Eventually([&] {
        fire(1);
        return !listener.journal.Take().empty();
    }));
    stranger.Do([&](ServiceHost& h) {
        h.Internals().Emit({"", "/org/tavos/Temperature2", "org.tavos.Temperature2"}, "TemperatureChange",
                           [](tavos::msgbus::Writer& writer) {
                               writer.Put(666);
                               writer.Put(666);
                           });
    });
    // The bus's rules let a signal through that is addressed to one process.
    for (int name = 0; name < 10; ++name) {
        const std::string send =
            "dbus-send --bus='" + bus.Address() + "' --type=signal --dest=:1." + std::to_string(name) +
            " /org/tavos/Temperature2 org.tavos.Temperature2.TemperatureChange int32:666 int32:666";
        ASSERT_EQ(std::system(send.c_str()), 0);
    }
    fire(2);
    std::vector<std::string> all;
    EXPECT_TRUE(Eventually([&] {
        for (const auto& line : listener.journal.Take()) all.push_back(line);
        return !all.empty() && all.back() == "Pair 0 2";
    }));
    EXPECT_THAT(all, testing::Not(testing::Contains("Pair 666 666")));
}

TEST_F(BusTest, NoHandlerRunsAfterItsClientIsGone) {
    HostThread host(bus.Address());
    host.Do([&](ServiceHost& h) { Serve(h, temperature); });
    MsgBus messages;
    messages.StartServer();
    std::atomic<bool> stop{false};
    std::thread firing([&] {
        while (!stop) host.Do([&](ServiceHost&) { temperature.change.Fire(1, 1); });
    });
    std::atomic<int> late{0};
    for (int i = 0; i < 20; ++i) {
        struct Slow {
            void Pair(int, int) {
                ++runs;
                poll(nullptr, 0, 2);
                if (gone) ++*late;
            }
            std::atomic<int>* late;
            std::atomic<int> runs{0};
            std::atomic<bool> gone{false};
        } slow;
        slow.late = &late;
        std::unique_ptr<ITemperatureV2Provider> client(ITemperatureV2Provider::CreateClient(&messages));
        client->OnTemperatureChange().AddHandler(tavos::core::CreateDelegate(&slow, &Slow::Pair));
        EXPECT_TRUE(Eventually([&] { return slow.runs > 0; }));
        client.reset();
        slow.gone = true;
        const int runs = slow.runs;
        poll(nullptr, 0, 5);
        EXPECT_EQ(slow.runs, runs);
    }
    stop = true;
    firing.join();
    EXPECT_EQ(late, 0);
}

TEST_F(BusTest, AHandlerMayThrowAndMayCall) {
    HostThread host(bus.Address());
    host.Do([&](ServiceHost& h) {
        Serve(h, pan);
        Serve(h, temperature);
    });
    MsgBus messages;
    messages.StartServer();
    const auto pans = PanClient(messages);
    struct Caller {
        void Pair(int sensor, int) {
            pans->SetPosition(sensor, 0);
            if (sensor == 1) throw Exception("too warm");
            if (sensor == 2) throw 2;
        }
        IPanProvider* pans;
    } caller{pans.get()};
    const std::unique_ptr<ITemperatureV2Provider> client(ITemperatureV2Provider::CreateClient(&messages));
    client->OnTemperatureChange().AddHandler(tavos::core::CreateDelegate(&caller, &Caller::Pair));
    for (int sensor = 1; sensor <= 3; ++sensor) {
        EXPECT_TRUE(Eventually([&] {
            host.Do([&](ServiceHost&) { temperature.change.Fire(sensor, 0); });
            const auto lines = pan.Take();
            return !lines.empty() && lines.back() == "SetPosition " + std::to_string(sensor) + " 0";
        }));
    }
}

TEST_F(BusTest, CallsFromManyThreads) {
    HostThread host(bus.Address());
    host.Do([&](ServiceHost& h) { Serve(h, pan); });
    setenv("TAVOS_CALL_TIMEOUT_MS", "20000", 1);
    MsgBus messages;
    const auto client = PanClient(messages);
    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 50; ++i) good += client->GetMaxPosition() == 359999U ? 1 : 0;
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(good, 200);
}

TEST_F(BusTest, DescriptorsAreCloseOnExec) {
    HostThread host(bus.Address());
    host.Do([&](ServiceHost& h) { Serve(h, pan); });
    MsgBus messages;
    messages.StartServer();
    PanClient(messages)->GetPosition();
    int checked = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        const auto target = std::filesystem::read_symlink(entry, error).string();
        if (target.find("socket:") == 0 || target.find("eventfd") != std::string::npos) {
            std::string flags = FileText("/proc/self/fdinfo/" + entry.path().filename().string());
            flags = flags.substr(flags.find("flags:"), flags.find('\n', flags.find("flags:")) - flags.find("flags:"));
            EXPECT_TRUE(std::stol(flags.substr(6), nullptr, 8) & 02000000) << target << ' ' << flags;
            ++checked;
        }
    }
    EXPECT_GE(checked, 3);  // of host, calls and wake-up; the events' descriptor is opened a little later
}

}  // namespace
