#pragma once

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "Agent.h"

namespace dome::console {

/// The octets of every probe of an agent.
class ProbeMessages {
public:
    /// Throws for a community of more than 64 octets.
    explicit ProbeMessages(const std::string& community);

    const std::string& Of(bool asksFocus) const { return asksFocus ? _withFocus : _withoutFocus; }
    bool Has(std::string_view message) const { return message == _withoutFocus || message == _withFocus; }

private:
    const std::string _withoutFocus;
    const std::string _withFocus;
};

/// Probes the SNMP agent once a second: an SNMPv2c GET (RFC 3416) of sysUpTime.0 and of the position objects, which
/// answer the last commands, with the agent's community. The agent answers it without a call to the camera, but for the
/// focus: it reads its position for each request that names its object. So the focus is asked only after somebody else
/// has. Nothing here blocks. All members run on the thread of `io`.
class AgentProbe {
public:
    /// The request ID of every probe.
    static constexpr std::int64_t kRequestId = 0x4465736b;  // "Desk"

    struct Reports {
        /// Each outcome: true for an answer; false when the port is closed, or after two seconds of silence.
        std::function<void(bool answers)> answers;
        /// What the position objects answered, as JSON: the bindings of the trace. [] once the agent is silent.
        std::function<void(const std::string& commands)> commands;
    };

    /// `focusReads`: how often somebody has read the position of the focus. Throws for an address that is not one of
    /// IPv4, and for a community of more than 64 octets.
    AgentProbe(boost::asio::io_context& io, const Agent& agent, std::function<std::uint64_t()> focusReads,
               Reports reports);

    /// Probes at once and then once a second; nothing is reported before this returns.
    void Start();

    /// Nothing is reported until the next Start. The socket is closed.
    void Stop();

private:
    void Ask();
    void AskIn(std::chrono::seconds time);
    bool Connect();
    void Receive();
    void Fail();
    void Close();
    void Lose();
    bool IsAnswer(std::size_t size) const;
    void TakeCommands(std::size_t size);

    const boost::asio::ip::udp::endpoint _agent;
    const ProbeMessages _messages;
    const std::function<std::uint64_t()> _focusReads;
    const Reports _reports;
    boost::asio::ip::udp::socket _socket;
    boost::asio::steady_timer _next;
    std::array<char, 1024> _answer{};
    int _unanswered = 0;
    unsigned _run = 0;  ///< handlers of an earlier run are ignored
    bool _asksFocus = false;
    std::uint64_t _readsAtAsk = 0;
    std::uint64_t _readsKnown = 0;  ///< the answered command of the focus is as new as these reads
    std::map<std::string, nlohmann::ordered_json> _commands;  ///< by OID
};

}  // namespace dome::console
