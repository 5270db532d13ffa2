#pragma once

#include <string>

namespace bench {

/// Runs the dbus-broker program at that path, with a bus without restrictions at that socket, until this process is
/// ended. Prints "ready". Replaces dbus-broker-launch, which runs only under systemd.
int RunBroker(const std::string& program, const std::string& socketPath);

}  // namespace bench
