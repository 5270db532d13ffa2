// The HTTP server without a camera: what a browser sees when the camera's thread hangs, or when something fails.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <string>

#include "../platform/LogFile.h"
#include "dome/console/AgentProbe.h"
#include "dome/console/Server.h"
#include "tavos/osa/Exception.h"

namespace {

using dome::console::Api;
using dome::console::CarryOut;
using dome::console::Handover;
using dome::console::ProbeMessages;
using dome::console::Reply;
using dome::console::Request;
using dome::console::Server;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kPatience = 20s;

Api ApiThatFails() {
    Api api;
    api.hello = "{}";
    api.objects = []() -> Reply { throw std::runtime_error("no users"); };
    api.readState = []() -> Reply { throw std::runtime_error("no state"); };
    return api;
}

bool IsReadable(int descriptor, std::chrono::milliseconds time) {
    pollfd watched{descriptor, POLLIN, 0};
    return poll(&watched, 1, static_cast<int>(time.count())) == 1;
}

/// A browser's connection.
class Client {
public:
    Client(std::uint16_t port, const std::string& path) : _socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        const std::string request = "GET " + path + " HTTP/1.1\r\nHost: localhost\r\n\r\n";
        EXPECT_EQ(send(_socket, request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client() { close(_socket); }

    /// Reads until that text has come; false when the connection ends or the time is over.
    bool ReadTo(const std::string& text, std::chrono::milliseconds time = kPatience) {
        const auto deadline = Clock::now() + time;
        while (_text.find(text) == std::string::npos) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            if (left <= 0ms || !IsReadable(_socket, left) || !ReadSome()) return false;
        }
        return true;
    }

    /// What the server has sent, once it has closed the connection.
    std::string ReadToEnd() {
        while (IsReadable(_socket, kPatience)) {
            if (!ReadSome()) return _text;
        }
        return "the connection stays open after: " + _text;
    }

private:
    bool ReadSome() {
        char octets[4096];
        const ssize_t size = recv(_socket, octets, sizeof octets, 0);
        if (size > 0) _text.append(octets, static_cast<std::size_t>(size));
        return size > 0;
    }

    int _socket;
    std::string _text;
};

TEST(ServerTest, TheStreamBeatsOnlyWithTheCamerasThread) {
    Handover handover;
    Server server("127.0.0.1", 0, handover, ApiThatFails());
    Client browser(server.Port(), "/api/stream");
    ASSERT_TRUE(browser.ReadTo("event: hello"));
    handover.TakeRequests();  // the first watcher's
    ASSERT_TRUE(IsReadable(handover.Descriptor(), kPatience)) << "the camera's thread is asked";
    const auto requests = handover.TakeRequests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_FALSE(browser.ReadTo("event: beat", 100ms)) << "it hangs";
    CarryOut(requests.front());
    EXPECT_TRUE(browser.ReadTo("event: beat"));
}

TEST(ServerTest, AFailureOnItsThreadIsAnsweredAndEndsTheConnection) {
    Handover handover;
    const Server server("127.0.0.1", 0, handover, ApiThatFails());
    const std::string answer = Client(server.Port(), "/api/objects").ReadToEnd();
    EXPECT_EQ(answer.substr(0, 13), "HTTP/1.1 500 ") << answer;
    EXPECT_NE(answer.find("no users"), std::string::npos) << answer;
}

TEST(ServerTest, AFailureOnTheCamerasThreadIsAnswered) {
    Handover handover;
    const Server server("127.0.0.1", 0, handover, ApiThatFails());
    Client browser(server.Port(), "/api/state");
    ASSERT_TRUE(IsReadable(handover.Descriptor(), kPatience));
    for (const Request& request : handover.TakeRequests()) CarryOut(request);
    EXPECT_TRUE(browser.ReadTo("no state"));
    EXPECT_TRUE(browser.ReadTo("HTTP/1.1 500 "));
}

TEST(ServerTest, ACommunityThatNoProbeCanHoldIsRefused) {
    EXPECT_NO_THROW(ProbeMessages(std::string(64, 'c')));
    try {
        ProbeMessages(std::string(65, 'c'));
        FAIL() << "it was taken";
    } catch (const tavos::osa::Exception& error) {
        EXPECT_STREQ(error.what(), "a community has at most 64 octets");
    }
}

TEST(ServerTest, AnAnswerThatCannotBeFinishedIsDropped) {
    const LogFile log;
    CarryOut({[] { return Reply{}; }, [](const Reply&) { throw std::runtime_error("no room"); }});
    EXPECT_EQ(log.Count(" console Error an answer is dropped: no room\n"), 1u) << log.Text();
}

}  // namespace
