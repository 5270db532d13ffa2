#pragma once

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <functional>

namespace dome::console {

/// Probes the SNMP agent on a UDP port of this machine once a second. The probe is an SNMPv2c GET of sysUpTime.0 with
/// the community "public" (RFC 3416); the agent answers it without a call to the camera. Nothing here blocks. All
/// members run on the thread of `io`.
class AgentProbe {
public:
    /// `report` gets each outcome: true for an answer; false when the port is closed, or after two seconds of silence.
    AgentProbe(boost::asio::io_context& io, std::uint16_t port, std::function<void(bool answers)> report);

    /// Probes at once and then once a second; `report` is not called before this returns.
    void Start();

    /// `report` is no longer called until the next Start. The socket is closed.
    void Stop();

private:
    void Ask();
    void AskIn(std::chrono::seconds time);
    bool Connect();
    void Receive();
    void Fail();
    void Close();
    bool IsAnswer(std::size_t size) const;

    const boost::asio::ip::udp::endpoint _agent;
    const std::function<void(bool)> _report;
    boost::asio::ip::udp::socket _socket;
    boost::asio::steady_timer _next;
    std::array<char, 512> _answer{};
    int _unanswered = 0;
    unsigned _run = 0;  ///< handlers of an earlier run are ignored
};

}  // namespace dome::console
