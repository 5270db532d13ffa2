#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Agent.h"
#include "Handover.h"
#include "Sender.h"

namespace dome::console {

/// Thrown for a malformed request.
struct Refusal {
    unsigned status;
    std::string reason;
};

/// What the HTTP interface serves.
struct Api {
    std::string hello;               ///< JSON; the first event of every stream
    std::optional<Agent> agent;      ///< whose answering is streamed
    std::vector<std::string> names;  ///< further host names of this server
    std::string fleet;               ///< the folder of the camera's fleet; empty: none
    /// On the camera's thread.
    std::function<Reply()> readState;
    /// On the camera's thread: what the page of a fleet shows of this camera.
    std::function<Reply()> summary;
    /// On the server's thread: the camera's work for a POST to "/api/control" or "/api/call", whose body is a JSON
    /// object. Throws Refusal.
    std::function<std::function<Reply()>(const std::string& path, const nlohmann::json& body)> prepare;
    /// On the server's thread: calls `finished`, on another thread, with the trace's records after the number `since`.
    /// False when too many questions wait.
    std::function<bool(std::uint64_t since, std::function<void(Reply)> finished)> trace;
    /// As `trace`, with the messages of the records for a packet capture.
    std::function<bool(std::uint64_t since, std::function<void(Reply)> finished)> packets;
    /// On the server's thread: what can be set, and as whom.
    std::function<Reply()> objects;
    /// On the server's thread: what the agent will make of a SET. Throws Refusal.
    std::function<Reply(const nlohmann::json& body)> explain;
    /// On the server's thread: sends a SET. Throws Refusal.
    std::function<void(const nlohmann::json& body, Sender::Page page)> send;
    /// On any thread: how often the position of the focus was read on the bus. The agent reads it for each request that
    /// names its object.
    std::function<std::uint64_t()> focusReads;
};

/// The console's HTTP server: one thread, bounded connections, bounded memory a connection.
class Server {
public:
    /// Listens at once. Throws tavos::osa::Exception when it cannot listen on the address and port. `handover` must
    /// outlive the server.
    Server(const std::string& address, std::uint16_t port, Handover& handover, Api api);

    /// Ends its thread and every connection; after that no function of `api` runs.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    std::uint16_t Port() const;

private:
    struct Private;
    std::unique_ptr<Private> _private;
};

}  // namespace dome::console
