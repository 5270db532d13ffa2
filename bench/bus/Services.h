#pragma once

#include <string>

#include "bus/Sd.h"

namespace bench {

/// Serves the part of the camera that the experiments require (the temperature, alarm inputs, the pan's absolute move),
/// at almost no cost, until the process is ended. Prints "ready".
[[noreturn]] void ServeOnBus(const std::string& address);

/// The same without a bus: each client connects directly to this process, which also answers the client's calls to the
/// bus (its name, match rules).
[[noreturn]] void ServePeers(const std::string& socketPath);

/// The service's end of one such connection; takes the descriptor.
BusPtr Peer(int descriptor);

}  // namespace bench
