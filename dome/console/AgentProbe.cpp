#include "AgentProbe.h"

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <chrono>
#include <string_view>
#include <utility>

#include "tavos/osa/Exception.h"
#include "trace/reader/Json.h"
#include "trace/reader/Message.h"

namespace dome::console {

namespace {

namespace asio = boost::asio;
using asio::ip::udp;
using boost::system::error_code;
using namespace std::chrono_literals;
using namespace std::string_view_literals;

constexpr auto kAskEvery = 1s;
constexpr int kMaxUnanswered = 2;  // a call to a hanging service blocks the agent for half a second

// An INTEGER of four octets, which every agent returns unchanged.
constexpr auto kRequestIdOctets =
    "\x02\x04"
    "Desk"sv;
constexpr auto kVersion2 = "\x02\x01\x01"sv;
constexpr std::size_t kMaxCommunity = 64;
constexpr auto kNoError = "\x02\x01\x00\x02\x01\x00"sv;
constexpr auto kSysUpTime = "\x2B\x06\x01\x02\x01\x01\x03\x00"sv;
// Without their last two numbers: 1 to 5 for pan, tilt, zoom, focus and iris, and the instance.
constexpr auto kPosition = "\x2B\x06\x01\x04\x01\x89\x36\x04\x02\x07\x04"sv;
constexpr char kFocus = 4;

std::string Element(char tag, const std::string& contents) {
    std::string element(1, tag);
    if (contents.size() > 0x7f) element += '\x81';  // no message here has more than 255 octets
    return element + static_cast<char>(contents.size()) + contents;
}

std::string Binding(std::string name) {
    return Element('\x30', Element('\x06', std::move(name)) + Element('\x05', ""));
}

std::string ProbeMessage(const std::string& community, bool asksFocus) {
    std::string bindings = Binding(std::string(kSysUpTime));
    for (char axis = 1; axis <= 5; ++axis) {
        if (axis != kFocus || asksFocus) bindings += Binding(std::string(kPosition) + axis + '\0');
    }
    const std::string get =
        Element('\xA0', std::string(kRequestIdOctets) + std::string(kNoError) + Element('\x30', bindings));
    return Element('\x30', std::string(kVersion2) + Element('\x04', community) + get);
}

}  // namespace

ProbeMessages::ProbeMessages(const std::string& community)
    : _withoutFocus(ProbeMessage(community, false)), _withFocus(ProbeMessage(community, true)) {
    if (community.size() > kMaxCommunity) throw tavos::osa::Exception("a community has at most 64 octets");
}

AgentProbe::AgentProbe(asio::io_context& io, const Agent& agent, std::function<std::uint64_t()> focusReads,
                       Reports reports)
    : _agent(asio::ip::make_address_v4(agent.address), agent.port),
      _messages(agent.community),
      _focusReads(std::move(focusReads)),
      _reports(std::move(reports)),
      _socket(io),
      _next(io) {}

void AgentProbe::Start() {
    ++_run;
    _unanswered = 0;
    AskIn(0s);
}

void AgentProbe::Stop() {
    ++_run;
    _next.cancel();
    Close();
}

void AgentProbe::Ask() {
    if (_unanswered >= kMaxUnanswered) Lose();
    ++_unanswered;
    _readsAtAsk = _focusReads();
    _asksFocus = _readsAtAsk != _readsKnown;
    error_code error;
    if (_socket.is_open() || Connect()) _socket.send(asio::buffer(_messages.Of(_asksFocus)), 0, error);
    if (error) Fail();
    AskIn(kAskEvery);
}

void AgentProbe::AskIn(std::chrono::seconds time) {
    _next.expires_after(time);
    _next.async_wait([this, run = _run](error_code cancelled) {
        if (!cancelled && run == _run) Ask();
    });
}

bool AgentProbe::Connect() {
    error_code error;
    _socket.open(udp::v4(), error);
    if (!error) _socket.non_blocking(true, error);
    if (!error) _socket.connect(_agent, error);
    if (error) {
        Fail();
        return false;
    }
    Receive();
    return true;
}

void AgentProbe::Receive() {
    _socket.async_receive(asio::buffer(_answer), [this, run = _run](error_code error, std::size_t size) {
        if (run != _run || error == asio::error::operation_aborted) return;
        if (error) {
            Fail();  // most likely the port is closed
            return;
        }
        if (IsAnswer(size)) {
            _unanswered = 0;
            _reports.answers(true);
            TakeCommands(size);
        }
        Receive();
    });
}

/// The next request gets a new socket.
void AgentProbe::Fail() {
    Close();
    Lose();
}

/// Another agent may answer next, which has had no command yet.
void AgentProbe::Lose() {
    _readsKnown = 0;
    _commands.clear();
    _reports.answers(false);
    _reports.commands("[]");
}

void AgentProbe::Close() {
    error_code ignored;
    _socket.close(ignored);
}

bool AgentProbe::IsAnswer(std::size_t size) const {
    return std::string_view(_answer.data(), size).find(kRequestIdOctets) != std::string_view::npos;
}

void AgentProbe::TakeCommands(std::size_t size) {
    const trace::Message message = trace::DecodeMessage({_answer.data(), size});
    if (!message.pdu) return;
    for (nlohmann::ordered_json& binding : trace::BindingsJson(message.pdu->bindings, false)) {
        const std::string name = binding["name"];
        const std::string oid = binding["oid"];
        const bool isThere = binding["type"] == "OCTET STRING";  // otherwise the agent has no such object
        if (isThere && name.rfind("position", 0) == 0) _commands[oid] = std::move(binding);
    }
    // The agent has read the focus once for this answer. More reads: somebody else has asked meanwhile.
    const std::uint64_t reads = _focusReads();
    if (_asksFocus && reads <= _readsAtAsk + 1) _readsKnown = reads;
    auto commands = nlohmann::ordered_json::array();
    for (const auto& [id, binding] : _commands) commands.push_back(binding);
    _reports.commands(trace::Line(commands));
}

}  // namespace dome::console
