#include "AgentProbe.h"

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <chrono>
#include <string_view>
#include <utility>

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
constexpr auto kRequestId =
    "\x02\x04"
    "Desk"sv;
constexpr auto kRequest =
    "\x30\x29"
    "\x02\x01\x01"                              // SNMPv2c
    "\x04\x06public"                            // community
    "\xA0\x1C"                                  // GET
    "\x02\x04"                                  // request ID
    "Desk"                                      //
    "\x02\x01\x00\x02\x01\x00"                  // error status and index
    "\x30\x0E\x30\x0C"                          // one binding
    "\x06\x08\x2B\x06\x01\x02\x01\x01\x03\x00"  // sysUpTime.0
    "\x05\x00"sv;
static_assert(kRequest.size() == 2 + 0x29);

}  // namespace

AgentProbe::AgentProbe(asio::io_context& io, std::uint16_t port, std::function<void(bool answers)> report)
    : _agent(asio::ip::address_v4::loopback(), port), _report(std::move(report)), _socket(io), _next(io) {}

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
    if (_unanswered >= kMaxUnanswered) _report(false);
    ++_unanswered;
    error_code error;
    if (_socket.is_open() || Connect()) _socket.send(asio::buffer(kRequest.data(), kRequest.size()), 0, error);
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
            _report(true);
        }
        Receive();
    });
}

/// The next request gets a new socket.
void AgentProbe::Fail() {
    Close();
    _report(false);
}

void AgentProbe::Close() {
    error_code ignored;
    _socket.close(ignored);
}

bool AgentProbe::IsAnswer(std::size_t size) const {
    return std::string_view(_answer.data(), size).find(kRequestId) != std::string_view::npos;
}

}  // namespace dome::console
