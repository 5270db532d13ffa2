#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "Handover.h"

namespace dome::console {

/// Thrown for a request that is not well formed.
struct Refusal {
    unsigned status;
    std::string reason;
};

/// What stands behind the HTTP interface.
struct Api {
    std::string hello;            ///< JSON; the first event of every stream
    std::uint16_t agentPort = 0;  ///< UDP, on this machine: the agent that streams say of whether it answers; 0: none
    /// On the camera's thread.
    std::function<Reply()> readState;
    /// On the server's thread: what the camera is to do for a POST to "/api/control" or "/api/call", whose body is a
    /// JSON object. Throws Refusal.
    std::function<std::function<Reply()>(const std::string& path, const nlohmann::json& body)> prepare;
};

/// The console's HTTP server: one thread, bounded connections, bounded memory a connection.
class Server {
public:
    /// Listens at once. Throws tavos::osa::Exception when the address or the port cannot be had. `handover` must
    /// outlive the server.
    Server(const std::string& address, std::uint16_t port, Handover& handover, Api api);

    /// Ends its thread and every connection; nothing of `api` runs any more.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    std::uint16_t Port() const;

private:
    struct Private;
    std::unique_ptr<Private> _private;
};

}  // namespace dome::console
