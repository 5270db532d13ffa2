#pragma once

#include <string>

namespace bench {

/// Runs dbus-broker, the program at that path, with a bus at that socket on which everybody may do everything, until
/// this process is ended. Prints "ready". It stands in for dbus-broker-launch, which runs under systemd only.
int RunBroker(const std::string& program, const std::string& socketPath);

}  // namespace bench
