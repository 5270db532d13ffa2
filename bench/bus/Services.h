#pragma once

#include <string>

namespace bench {

/// Serves the part of the camera that the experiments require (the temperature, alarm inputs, the pan's absolute move),
/// at almost no cost, until the process is ended. Prints "ready".
[[noreturn]] void ServeOnBus(const std::string& address);

/// The same without a bus: each client that connects to the socket talks to this process alone, which also answers a
/// client's calls to the bus (its name, match rules).
[[noreturn]] void ServePeers(const std::string& socketPath);

}  // namespace bench
