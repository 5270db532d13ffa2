#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <thread>

#include "AgentUsers.h"
#include "Handover.h"
#include "trace/reader/Message.h"

namespace dome::console {

/// Sends SETs to the agent on a UDP port of this machine, as one of its own users, one after the other on a thread of
/// its own. Only that thread may use net-snmp in this process.
class Sender {
public:
    static constexpr std::size_t kMaxWaiting = 16;

    /// `configuration`: the agent's snmpd.conf, read for each SET. A port of 0 sends nothing.
    Sender(std::string address, std::uint16_t port, std::string configuration);
    ~Sender();
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    /// [{"name", "version", "level", "authentication", "privacy"}]: the users, each in every version that it can use,
    /// with the names of its protocols. No secret is in it. Any thread may call it.
    nlohmann::json Users() const;

    /// Who asks for a SET.
    struct Page {
        std::function<bool()> isThere;        ///< false once nobody waits for the answer; called on the sender's thread
        std::function<void(Reply)> finished;  ///< called on the sender's thread
    };

    /// Carries out {"oid", "type", "value", "user", "version"}, and finishes with the answer that docs/console.md
    /// describes. Does not send what is older than 3 seconds, or what nobody waits for any more: the camera would move
    /// by itself. Throws Refusal for a body that is none, or when too many wait. Any thread may call it.
    void Send(const nlohmann::json& body, Page page);

    /// Makes the thread end after the message under way, whose answer it awaits for 2 seconds at most. What waits
    /// stays unanswered. Any thread may call it.
    void BeginStop();

    /// BeginStop, and waits until the thread has ended. Any thread but the sender's may call it.
    void Stop();

private:
    struct Job {
        trace::Binding command;
        AgentUser user;
        long version;  // net-snmp's number
        Page page;
        std::chrono::steady_clock::time_point asked;
    };

    void Run();
    Reply CarryOut(const Job& job);
    void CheckWanted(const Job& job);

    const std::string _address;
    const std::uint16_t _port;
    const std::string _configuration;
    std::mutex _mutex;
    std::condition_variable _changed;
    bool _isStopped = false;
    std::deque<Job> _jobs;
    std::thread _thread;
};

}  // namespace dome::console
