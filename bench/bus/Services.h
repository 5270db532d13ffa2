#pragma once

#include <string>

namespace bench {

/// Serves the little of the camera that the experiments ask for (the temperature, alarm inputs, the pan's absolute
/// move), with next to no work of its own, until the process is ended. Prints "ready".
[[noreturn]] void ServeOnBus(const std::string& address);

/// The same without a bus: each client that connects to the socket talks to this process alone, which also answers what
/// a client asks of a bus (its own name, match rules).
[[noreturn]] void ServePeers(const std::string& socketPath);

}  // namespace bench
