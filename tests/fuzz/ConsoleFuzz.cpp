#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <boost/asio/ip/tcp.hpp>
#include <cctype>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>

#include "Bytes.h"
#include "dome/CallLog.h"
#include "dome/Control.h"
#include "dome/Faults.h"
#include "dome/ModelClock.h"
#include "dome/OneLine.h"
#include "dome/console/Command.h"
#include "dome/console/Connection.h"
#include "dome/console/Console.h"
#include "support/Opened.h"
#include "tavos/core/Logger.h"

// The octets of one browser's connection to the console of a camera; no network, no thread. The first octet says in how
// many pieces they arrive.

struct PrepareTag {
    using Type = std::function<dome::console::Reply()> (dome::console::Console::*)(const std::string&,
                                                                                   const nlohmann::json&);
    friend Type MemberOf(PrepareTag);
};
template struct Opened<PrepareTag, &dome::console::Console::Prepare>;

struct HandoverTag {
    using Type = dome::console::Handover dome::console::Console::*;
    friend Type MemberOf(HandoverTag);
};
template struct Opened<HandoverTag, &dome::console::Console::_handover>;

struct ConnectionsTag {
    using Type = std::unordered_map<dome::console::Connection*, std::shared_ptr<dome::console::Connection>>
        dome::console::Hub::*;
    friend Type MemberOf(ConnectionsTag);
};
template struct Opened<ConnectionsTag, &dome::console::Hub::_connections>;

namespace {

using dome::console::Console;
using dome::console::Hub;
using nlohmann::json;
using tcp = boost::asio::ip::tcp;

constexpr const char* kServices[] = {"pan",      "tilt",  "zoom",  "focus",       "focus2",  "iris",  "presets",
                                     "presets2", "alarm", "relay", "temperature", "voltage", "power", "fan"};

/// A camera and everything that uses it.
struct Desk {
    dome::Camera camera;
    dome::ModelClock clock{camera};
    dome::Services services{camera};
    dome::CallLog calls;
    dome::Faults faults{{std::begin(kServices), std::end(kServices)}, [](const std::string&, bool) {}};
    dome::History history{camera, services, clock, calls};
    dome::Control control{camera, clock, services, calls, faults, history};
};

/// Reset for each input, but always at the same address, because the console keeps it.
std::optional<Desk> s_desk;

Console& TheConsole() {
    // Nobody connects to its own server.
    static auto* const console = [] {
        tavos::core::Logger::ClearAppenders();
        dome::console::CameraAccess access;
        access.state = [](std::size_t maxPoints) { return s_desk->control.State(maxPoints); };
        access.execute = [](const std::vector<std::string>& words) { s_desk->control.Execute(words); };
        access.call = [](const std::string& service, const std::vector<std::string>&,
                         const std::function<void()>& carryOut) {
            const dome::Fault fault = s_desk->faults.All().at(service);
            if (fault == dome::Fault::kOk) carryOut();
            return fault;
        };
        return new Console({}, s_desk->services, std::move(access));
    }();
    return *console;
}

Hub& TheHub() {
    static auto* const hub = [] {
        auto& console = TheConsole();
        dome::console::Api api;
        api.hello = "{}";
        api.readState = [] { return dome::console::Reply{200, s_desk->control.State(Console::kMaxPoints)}; };
        api.prepare = [&console](const std::string& path, const json& body) {
            return (console.*MemberOf(PrepareTag()))(path, body);
        };
        api.trace = [](std::uint64_t /*since*/, const std::function<void(dome::console::Reply)>& finished) {
            finished({200, "{}"});
            return true;
        };
        api.packets = api.trace;
        api.objects = [] { return dome::console::Reply{200, dome::OneLine(dome::console::ObjectsJson())}; };
        const auto explain = [](const json& body) {
            const json words = dome::console::Explain(dome::console::CommandOf(body));
            return dome::console::Reply{200, dome::OneLine(words)};
        };
        api.explain = explain;
        api.send = [explain](const json& body, const dome::console::Sender::Page& page) {
            page.finished(explain(body));
        };
        return new Hub(console.*MemberOf(HandoverTag()), std::move(api), "127.0.0.1");
    }();
    return *hub;
}

void Work() {
    auto& hub = TheHub();
    hub.io.restart();
    hub.io.poll();
    TheConsole().Work();
    hub.Refresh();
    hub.io.restart();
    hub.io.poll();
}

/// Returns what a browser receives that sends these octets and nothing after them.
std::string Exchange(const std::string& sent, std::size_t pieces) {
    std::array<int, 2> ends{};
    MUST(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()) == 0, "socketpair");
    auto& hub = TheHub();
    tcp::socket socket(hub.io);
    socket.assign(tcp::v4(), ends[0]);
    hub.Open(std::move(socket));

    std::string received;
    bool isEnded = false;
    const auto receive = [&] {
        std::array<char, 65536> some;
        ssize_t size;
        while ((size = read(ends[1], some.data(), some.size())) > 0) {
            received.append(some.data(), static_cast<std::size_t>(size));
        }
        isEnded = size == 0;
    };
    const std::size_t piece = sent.size() / pieces + 1;
    for (std::size_t at = 0; at < sent.size(); at += piece) {
        const auto count = std::min(piece, sent.size() - at);
        // The console has closed the connection and accepts no more octets.
        if (send(ends[1], sent.data() + at, count, MSG_NOSIGNAL) != static_cast<ssize_t>(count)) break;
        Work();
        receive();
    }
    shutdown(ends[1], SHUT_WR);
    constexpr int kRounds = 6;
    for (int round = 0; round < kRounds && !isEnded; ++round) {
        Work();
        receive();
    }
    close(ends[1]);
    const auto& connections = hub.*MemberOf(ConnectionsTag());
    for (int round = 0; round < kRounds && !connections.empty(); ++round) Work();
    MUST(connections.empty(), "a connection is still open");
    return received;
}

std::string Lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string HeaderOf(const std::string& answer, const std::string& name) {
    const auto head = answer.substr(0, answer.find("\r\n\r\n") + 2);
    const auto at = head.find("\r\n" + name + ": ");
    if (at == std::string::npos) return "";
    const auto start = at + 2 + name.size() + 2;
    return head.substr(start, head.find("\r\n", start) - start);
}

/// Checks the first answer: it is whole and has one of the console's statuses.
void CheckAnswer(const std::string& sent, const std::string& answer) {
    if (answer.empty()) return;
    const auto end = answer.find("\r\n\r\n");
    MUST(answer.compare(0, 9, "HTTP/1.1 ") == 0 && end != std::string::npos, "%s", answer.c_str());
    const auto status = std::atoi(answer.c_str() + 9);
    constexpr int kKnown[] = {200, 400, 403, 404, 405, 413, 415, 422, 431, 503};
    MUST(std::count(std::begin(kKnown), std::end(kKnown), status) == 1, "%d", status);
    MUST(!HeaderOf(answer, "Content-Security-Policy").empty(), "%s", answer.c_str());
    const auto type = HeaderOf(answer, "Content-Type");
    // The stream and the answer to a HEAD have no body of a known length.
    if (type == "text/event-stream" || sent.find("HEAD ") != std::string::npos) return;
    const auto length = static_cast<std::size_t>(std::atoi(HeaderOf(answer, "Content-Length").c_str()));
    MUST(answer.size() >= end + 4 + length, "%zu octets of %zu", answer.size() - end - 4, length);
    if (type != "application/json") return;
    const auto body = json::parse(answer.substr(end + 4, length), nullptr, false);
    MUST(!body.is_discarded(), "%s", answer.c_str());
    MUST(status == 200 || (body.is_object() && body.contains("error")), "%s", answer.c_str());
}

void CheckAxis(const dome::Axis& axis) {
    MUST(axis.Position() >= axis.Minimum() && axis.Position() <= axis.Maximum() && std::isfinite(axis.Velocity()),
         "%f of %f to %f at %f", axis.Position(), axis.Minimum(), axis.Maximum(), axis.Velocity());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes bytes(data, size);
    const std::size_t pieces = 1 + bytes.Below(4);
    const auto sent = bytes.Rest();
    s_desk.emplace();
    auto& desk = *s_desk;
    static const auto atRest = desk.control.State(1);
    CheckAnswer(sent, Exchange(sent, pieces));

    // Only a program or the console's page can move the camera: other pages cannot send this type.
    if (sent.find("POST /api/") == std::string::npos || Lower(sent).find("application/json") == std::string::npos) {
        MUST(desk.control.State(1) == atRest, "changed: %s", desk.control.State(1).c_str());
    }
    constexpr int kMaxRounds = 20;
    for (int round = 0; round < kMaxRounds && desk.control.HasEvents(); ++round) desk.control.EmitEvents();
    for (int tick = 0; tick < 3; ++tick) desk.camera.Tick(dome::ModelClock::kTick);
    CheckAxis(desk.camera.pan);
    CheckAxis(desk.camera.tilt);
    return 0;
}
