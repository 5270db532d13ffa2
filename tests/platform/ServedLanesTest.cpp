// What a host does with clients that misuse a lane: it closes the lane, and nobody else notices.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "FakeServices.h"
#include "HostThread.h"
#include "PrivateBus.h"
#include "Waiting.h"
#include "tavos/interfaces/Serve.h"
#include "tavos/msgbus/MsgBus.h"
#include "tavos/msgbus/Service.h"
#include "tavos/msgbus/SpinWait.h"

using namespace std::chrono_literals;
using namespace tavos::interfaces;
using tavos::msgbus::ReceivedCall;
using tavos::msgbus::ServiceHost;
using testing::HasSubstr;

namespace {

std::atomic<bool> s_interrupt{false};  // the host's next look whether a lane has ended, as if by a signal
std::atomic<int> s_interruptions{0};

}  // namespace

/// In place of the C library's, also for the platform's library.
extern "C" __attribute__((visibility("default"))) int poll(pollfd* watched, nfds_t count, int timeout) {
    if (count == 1 && timeout == 0 && s_interrupt.exchange(false)) {
        ++s_interruptions;
        usleep(150);  // so that it is the spin's last look
        errno = EINTR;
        return -1;
    }
    const timespec time{timeout / 1000, timeout % 1000 * 1'000'000L};
    return ppoll(watched, count, timeout < 0 ? nullptr : &time, nullptr);
}

namespace {

constexpr const char* kPanPath = "/org/tavos/Pan1";
constexpr const char* kPan = "org.tavos.Pan1";

void Pad(std::string& octets, std::size_t to) {
    while (octets.size() % to != 0) octets += '\0';
}

void AppendNumber(std::string& octets, std::uint32_t number) {
    for (int shift = 0; shift < 32; shift += 8) octets += static_cast<char>(number >> shift & 0xFF);
}

void AppendField(std::string& fields, char code, char type, const std::string& text) {
    Pad(fields, 8);
    fields += {code, 1, type, '\0'};
    AppendNumber(fields, static_cast<std::uint32_t>(text.size()));
    fields += text + '\0';
}

/// The octets of a call without arguments.
std::string Call(const std::string& path, const std::string& interface, const std::string& operation, char type = 1,
                 char flags = 0) {
    std::string fields;
    AppendField(fields, 1, 'o', path);
    if (!interface.empty()) AppendField(fields, 2, 's', interface);
    AppendField(fields, 3, 's', operation);
    std::string octets = {'l', type, flags, 1};
    AppendNumber(octets, 0);   // no body
    AppendNumber(octets, 77);  // serial
    AppendNumber(octets, static_cast<std::uint32_t>(fields.size()));
    octets += fields;
    Pad(octets, 8);
    return octets;
}

std::string PanCall() {
    return Call(kPanPath, kPan, "GetMaxPosition");
}

/// A client that does with its lanes what it likes.
class RawClient {
public:
    explicit RawClient(const std::string& address) {
        sd_bus_new(&_bus);
        sd_bus_set_address(_bus, address.c_str());
        sd_bus_set_bus_client(_bus, 1);
        if (sd_bus_start(_bus) < 0) throw std::runtime_error("no bus");
    }
    ~RawClient() {
        for (const int lane : _lanes) close(lane);
        sd_bus_flush_close_unref(_bus);
    }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    /// Returns the lane's descriptor, or -1; then Error has the error's name.
    int OpenLane(const char* service = kPan, const char* path = kPanPath) {
        sd_bus_error error{};
        sd_bus_message* answer = nullptr;
        int lane = -1;
        int received = -1;
        if (sd_bus_call_method(_bus, service, path, service, "OpenLane", &error, &answer, "") >= 0 &&
            sd_bus_message_read(answer, "h", &received) > 0) {
            lane = dup(received);
            _lanes.push_back(lane);
        }
        _error = error.name ? error.name : "";
        sd_bus_error_free(&error);
        sd_bus_message_unref(answer);
        return lane;
    }
    const std::string& Error() const { return _error; }

    /// Sends calls over the bus without waiting for the answers.
    void Post(const char* operation, int count) {
        for (int i = 0; i < count; ++i) {
            sd_bus_message* call = nullptr;
            sd_bus_message_new_method_call(_bus, &call, kPan, kPanPath, kPan, operation);
            sd_bus_message_set_expect_reply(call, 0);
            EXPECT_GE(sd_bus_send(_bus, call, nullptr), 0);
            sd_bus_message_unref(call);
        }
        EXPECT_GE(sd_bus_flush(_bus), 0);
    }

private:
    sd_bus* _bus = nullptr;
    std::vector<int> _lanes;
    std::string _error;
};

bool Send(int lane, const std::string& octets) {
    return send(lane, octets.data(), octets.size(), MSG_NOSIGNAL | MSG_DONTWAIT) == static_cast<ssize_t>(octets.size());
}

/// True when the host closes the lane within the time. Answers that are read meanwhile are dropped.
bool IsClosed(int lane, std::chrono::milliseconds within = 10s) {
    return Eventually(
        [&] {
            char octets[4096];
            const ssize_t count = recv(lane, octets, sizeof octets, MSG_DONTWAIT);
            return count == 0 || (count < 0 && errno != EAGAIN);
        },
        within);
}

bool IsAnswered(int lane) {
    pollfd answer{lane, POLLIN, 0};
    char octets[4096];
    return poll(&answer, 1, 10000) == 1 && recv(lane, octets, sizeof octets, MSG_DONTWAIT) > 0 && octets[1] == 2;
}

std::size_t Descriptors() {
    using Entries = std::filesystem::directory_iterator;
    return static_cast<std::size_t>(std::distance(Entries("/proc/self/fd"), Entries()));
}

/// This process's resident memory in kB.
long Resident() {
    const std::string status = FileText("/proc/self/status");
    return std::stol(status.substr(status.find("VmRSS:") + 6));
}

class ServedLanesTest : public testing::Test {
protected:
    ServedLanesTest() {
        unsetenv("TAVOS_BUS_LANES");
        setenv("TAVOS_CALL_TIMEOUT_MS", "5000", 1);
        host.Do([this](ServiceHost& h) {
            Serve(h, pan);
            Serve(h, iris);
        });
        panClient.reset(IPanProvider::CreateClient(&messages));
    }

    std::size_t Lanes() {
        std::size_t lanes = 0;
        host.Do([&](ServiceHost& h) { lanes = h.Internals().Lanes(); });
        return lanes;
    }

    void ExpectOthersAreServed() { EXPECT_EQ(panClient->GetMaxPosition(), 359999U); }

    PrivateBus bus;
    fake::Pan pan;
    fake::Iris iris;
    HostThread host{bus.Address()};
    tavos::msgbus::MsgBus messages;
    std::unique_ptr<IPanProvider> panClient;
    RawClient client{bus.Address()};
};

TEST_F(ServedLanesTest, MessagesFlowAtOnceWithoutAuthentication) {
    const int lane = client.OpenLane();
    ASSERT_GE(lane, 0) << client.Error();
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(Send(lane, PanCall()));
        EXPECT_TRUE(IsAnswered(lane));
    }
}

TEST_F(ServedLanesTest, CallsThatArriveTogetherAreAnsweredAtOnce) {
    const int lane = client.OpenLane();
    char octets[4096];
    EXPECT_TRUE(Send(lane, PanCall()));
    pollfd answer{lane, POLLIN, 0};
    ASSERT_EQ(poll(&answer, 1, 10000), 1);
    const ssize_t size = recv(lane, octets, sizeof octets, MSG_DONTWAIT);
    EXPECT_TRUE(Send(lane, PanCall() + PanCall() + PanCall()));  // and nothing else stirs
    ssize_t received = 0;
    EXPECT_TRUE(Eventually(
        [&] {
            received += std::max<ssize_t>(0, recv(lane, octets, sizeof octets, MSG_DONTWAIT));
            return received == 3 * size;
        },
        2s))
        << received << " octets instead of three times " << size;
}

TEST_F(ServedLanesTest, ALaneIsGoodForItsServiceOnly) {
    const std::string others[] = {
        Call("/org/tavos/Iris1", "org.tavos.Iris1", "GetAutoIris"),
        Call(kPanPath, "org.tavos.Iris1", "GetAutoIris"),
        Call("/org/tavos/Iris1", kPan, "GetMaxPosition"),
        Call(kPanPath, "", "GetMaxPosition"),
        Call(kPanPath, "org.freedesktop.DBus.Peer", "GetMachineId"),
        Call(kPanPath, "org.freedesktop.DBus.Introspectable", "Introspect"),
        Call(kPanPath, "org.freedesktop.DBus.Properties", "GetAll"),
    };
    for (const auto& other : others) {
        const int lane = client.OpenLane();
        EXPECT_TRUE(Send(lane, other));
        EXPECT_TRUE(IsClosed(lane)) << other;
    }
    EXPECT_EQ(Lanes(), 0U);
    EXPECT_TRUE(iris.Take().empty());
}

TEST_F(ServedLanesTest, NoLaneLeadsToMoreLanes) {
    const int lane = client.OpenLane();
    EXPECT_TRUE(Send(lane, Call(kPanPath, kPan, "OpenLane")));
    char octets[4096];
    pollfd answer{lane, POLLIN, 0};
    ASSERT_EQ(poll(&answer, 1, 10000), 1);
    ASSERT_GT(recv(lane, octets, sizeof octets, 0), 1);
    EXPECT_EQ(octets[1], 3) << "an error";
    EXPECT_EQ(Lanes(), 1U);
}

TEST_F(ServedLanesTest, RubbishClosesTheLane) {
    std::string huge = PanCall();
    huge[6] = 0x7F;  // announces a body of 8 MB
    const std::string rubbish[] = {
        "GET / HTTP/1.1\r\nHost: camera\r\n\r\n",      std::string(5000, '\0'), std::string(5000, '\xFF'), huge,
        Call(kPanPath, kPan, "GetMaxPosition", 4),      // a signal
        Call(kPanPath, kPan, "GetMaxPosition", 2),      // an answer
        Call(kPanPath, kPan, "GetMaxPosition", 1, 1),   // expects no answer
        Call(kPanPath, kPan, std::string(5000, 'x')),   // too large
        std::string(PanCall()).replace(16, 1, "\x63"),  // an unknown field instead of the path
        std::string(PanCall()).replace(3, 1, "\x09"),   // another version of the protocol
    };
    for (const auto& octets : rubbish) {
        const int lane = client.OpenLane();
        ASSERT_GE(lane, 0);
        EXPECT_TRUE(Send(lane, octets));
        EXPECT_TRUE(IsClosed(lane)) << octets.substr(0, 40);
        ExpectOthersAreServed();
    }
    EXPECT_EQ(Lanes(), 1U) << "of the platform's client";
}

TEST_F(ServedLanesTest, AClientThatNeverReadsLosesItsLaneBeforeMemoryGrows) {
    ExpectOthersAreServed();
    const long before = Resident();
    const int lane = client.OpenLane();
    std::size_t sent = 0;
    EXPECT_TRUE(Eventually([&] {
        for (int i = 0; i < 100; ++i) sent += Send(lane, PanCall()) ? 1 : 0;
        return Lanes() == 0;
    }));
    EXPECT_GT(sent, 100U);
    EXPECT_LT(Resident() - before, 8000);
    ExpectOthersAreServed();
}

TEST_F(ServedLanesTest, AClientThatStopsInTheMiddleOfALargeAnswerHoldsNobodyUp) {
    struct Library : fake::Alarm {
        fake::Names GetBankNames() override { return fake::Names(100, std::string(20000, 'x')); }  // 2 MB
    } library;
    host.Do([&](ServiceHost& h) { Serve(h, library); });
    const int lane = client.OpenLane("org.tavos.Alarm3", "/org/tavos/Alarm3");
    EXPECT_TRUE(Send(lane, Call("/org/tavos/Alarm3", "org.tavos.Alarm3", "GetBankNames")));
    for (int i = 0; i < 20; ++i) ExpectOthersAreServed();
    EXPECT_EQ(Lanes(), 2U) << "it may still read; the other lane is the platform's client's";
    EXPECT_TRUE(Send(lane, Call("/org/tavos/Alarm3", "org.tavos.Alarm3", "GetBankNames")));
    EXPECT_TRUE(Eventually([&] { return Lanes() == 1; })) << "its next call comes before it has read the answer";
    host.Do([](ServiceHost& h) { h.SetPresent("org.tavos.Alarm3", false); });
}

TEST_F(ServedLanesTest, ABusyBusKeepsNoLaneWaiting) {
    const int lane = client.OpenLane();
    constexpr int kCalls = 200;
    std::atomic<int> onTheBus{0};
    int before = kCalls;
    host.HangWhen([&](const ReceivedCall& call) {
        if (call.operation == "GetMinPosition") ++onTheBus;
        if (call.operation == "GetMaxPosition") before = onTheBus;
        return false;
    });
    host.Do([&](ServiceHost&) {  // so that all calls are there when it processes the first
        client.Post("GetMinPosition", kCalls);
        EXPECT_TRUE(Send(lane, PanCall()));
    });
    EXPECT_TRUE(IsAnswered(lane));
    EXPECT_TRUE(Eventually([&] { return onTheBus == kCalls; }));
    host.Do([&](ServiceHost&) { EXPECT_LT(before, kCalls / 4); });
}

TEST_F(ServedLanesTest, ABusyLaneKeepsNoCallOnTheBusWaiting) {
    const int lane = client.OpenLane();
    std::atomic<int> onTheBus{0};
    constexpr int kRounds = 20;
    host.HangWhen([&](const ReceivedCall& call) {
        if (call.operation == "GetMinPosition") ++onTheBus;
        return false;
    });
    for (int round = 1; round <= kRounds; ++round) {
        EXPECT_TRUE(Send(lane, PanCall()));
        client.Post("GetMinPosition", 2);  // while the host serves the lane
        EXPECT_TRUE(IsAnswered(lane));
        EXPECT_TRUE(Eventually([&] { return onTheBus == 2 * round; }, 1s)) << round;
    }
}

TEST_F(ServedLanesTest, ALaneThatIsNeverQuietKeepsNoCallOnTheBusWaiting) {
    const int lane = client.OpenLane();
    constexpr int kCalls = 20000;
    std::atomic<int> onLane{0};
    std::atomic<int> before{-1};
    host.HangWhen([&](const ReceivedCall& call) {
        if (call.operation == "GetMinPosition") before = onLane.load();
        if (call.operation != "GetMaxPosition" || ++onLane == kCalls) return false;
        if (onLane == kCalls / 100) client.Post("GetMinPosition", 1);
        char octets[4096];
        while (recv(lane, octets, sizeof octets, MSG_DONTWAIT) > 0) {
        }
        return !Send(lane, PanCall());
    });
    EXPECT_TRUE(Send(lane, PanCall()));
    EXPECT_TRUE(Eventually([&] { return onLane == kCalls && before >= 0; }));
    EXPECT_LT(before, kCalls / 2);
}

TEST_F(ServedLanesTest, ASignalDelaysNoCall) {
    if (!tavos::msgbus::SpinWait::IsWanted()) GTEST_SKIP() << "this machine has one processor";
    const int lane = client.OpenLane();
    s_interruptions = 0;
    constexpr int kInterruptions = 3;
    std::atomic<bool> stop{false};
    std::thread calling([&] {
        const auto end = std::chrono::steady_clock::now() + 20s;  // on a busy machine the host spins seldom
        while (s_interruptions < kInterruptions && std::chrono::steady_clock::now() < end) {
            for (int quick = 0; quick < 20; ++quick) EXPECT_TRUE(Send(lane, PanCall()) && IsAnswered(lane));
            s_interrupt = true;
            EXPECT_LT(TimeOf([&] { EXPECT_TRUE(Send(lane, PanCall()) && IsAnswered(lane)); }), 2s);
        }
        s_interrupt = false;
        stop = true;
        EXPECT_TRUE(Send(lane, PanCall()) && IsAnswered(lane));
    });
    host.Do([&](ServiceHost& h) {
        while (!stop) h.Process(4000);
    });
    calling.join();
    EXPECT_GE(s_interruptions, kInterruptions);
}

TEST_F(ServedLanesTest, WithoutAWaitTheHostServesWhatIsThere) {
    const int lane = client.OpenLane();
    EXPECT_TRUE(Send(lane, PanCall()));
    EXPECT_TRUE(IsAnswered(lane));
    bool served = false;
    host.HangWhen([&](const ReceivedCall& call) { return served = call.operation == "GetMinPosition"; });
    host.Do([&](ServiceHost& h) {
        client.Post("GetMinPosition", 1);
        EXPECT_TRUE(Eventually([&] { return h.Process(0), served; }, 1s));
    });
}

TEST_F(ServedLanesTest, WhatAClientHasGivenUpIsNotCarriedOut) {
    std::atomic<int> carriedOut{0};
    host.HangWhen([&](const ReceivedCall& call) {
        if (call.operation == "GetMinPosition") ++carriedOut;
        return false;
    });
    const int lane = client.OpenLane();
    host.Do([&](ServiceHost&) {
        EXPECT_TRUE(Send(lane, Call(kPanPath, kPan, "GetMinPosition")));
        shutdown(lane, SHUT_RDWR);
    });
    EXPECT_TRUE(Eventually([&] { return Lanes() == 0; }));
    EXPECT_EQ(carriedOut, 0);
}

TEST_F(ServedLanesTest, WhatABusyClientHasGivenUpIsNotCarriedOut) {
    for (int calls = 50; calls < 54; ++calls) {  // the host does not look at everything after each call
        const int lane = client.OpenLane();
        int left = calls;
        std::atomic<int> carriedOut{0};
        host.HangWhen([&](const ReceivedCall& call) {
            if (call.operation == "GetMinPosition") ++carriedOut;
            if (call.operation != "GetMaxPosition") return false;
            if (--left > 0) return !Send(lane, PanCall());
            Send(lane, Call(kPanPath, kPan, "GetMinPosition"));
            shutdown(lane, SHUT_RDWR);
            return true;  // its answer would close the lane
        });
        EXPECT_TRUE(Send(lane, PanCall()));
        EXPECT_TRUE(Eventually([&] { return Lanes() == 0; }));
        EXPECT_EQ(carriedOut, 0) << calls;
    }
}

TEST_F(ServedLanesTest, RequestsForLanesInARowKeepFewDescriptors) {
    std::size_t max = 0;
    host.HangWhen([&](const ReceivedCall&) {
        max = std::max(max, Descriptors());
        return false;
    });
    const std::size_t before = Descriptors();
    host.Do([&](ServiceHost&) {
        for (int i = 0; i < 10; ++i) {
            client.Post("OpenLane", 10);
            client.Post("GetMinPosition", 1);
        }
    });
    EXPECT_TRUE(Eventually([&] { return Lanes() == 0; })) << "nobody took the other ends";
    host.Do([&](ServiceHost&) {
        EXPECT_GT(max, 0U);
        EXPECT_LT(max, before + 16);
    });
}

TEST_F(ServedLanesTest, ABusyClientDelaysOthersByItsCallsOneByOne) {
    const int lane = client.OpenLane();
    std::string calls;
    for (int i = 0; i < 100; ++i) calls += PanCall();
    for (int i = 0; i < 50; ++i) {
        Send(lane, calls);
        ExpectOthersAreServed();
        char octets[65536];
        while (recv(lane, octets, sizeof octets, MSG_DONTWAIT) > 0) {
        }
    }
}

TEST_F(ServedLanesTest, AServiceHandsOutFewLanesAndOneToEachClient) {
    const int first = client.OpenLane();
    const int second = client.OpenLane();
    EXPECT_TRUE(IsClosed(first)) << "replaced";
    EXPECT_EQ(Lanes(), 1U);
    std::vector<std::unique_ptr<RawClient>> others;
    for (int i = 0; i < 3; ++i) {
        others.push_back(std::make_unique<RawClient>(bus.Address()));
        EXPECT_GE(others.back()->OpenLane(), 0);
    }
    RawClient tooMany(bus.Address());
    EXPECT_EQ(tooMany.OpenLane(), -1);
    EXPECT_EQ(tooMany.Error(), "org.freedesktop.DBus.Error.LimitsExceeded");
    EXPECT_GE(tooMany.OpenLane("org.tavos.Iris1", "/org/tavos/Iris1"), 0) << "the limit is each service's";
    EXPECT_TRUE(Send(second, PanCall()));
    EXPECT_TRUE(IsAnswered(second));
    for (int i = 0; i < 20; ++i) ExpectOthersAreServed();  // over the bus: there is no lane for it
    others.pop_back();
    EXPECT_TRUE(Eventually([&] { return tooMany.OpenLane() >= 0; })) << "a closed lane makes room";
}

TEST_F(ServedLanesTest, AServiceWithoutItsNameHandsOutNone) {
    const int lane = client.OpenLane();
    host.Do([](ServiceHost& h) { h.SetPresent("org.tavos.Pan1", false); });
    EXPECT_TRUE(IsClosed(lane));
    EXPECT_EQ(client.OpenLane(), -1);
    host.Do([](ServiceHost& h) { h.SetPresent("org.tavos.Pan1", true); });
    EXPECT_GE(client.OpenLane(), 0);
}

}  // namespace
