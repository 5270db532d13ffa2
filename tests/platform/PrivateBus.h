#pragma once

#include <sys/types.h>

#include <string>

#include "TemporaryFolder.h"

/// A private message bus in a temporary folder. TAVOS_BUS_ADDRESS points at it while it lives.
class PrivateBus {
public:
    /// `limits` are further elements of the daemon's configuration.
    explicit PrivateBus(const std::string& limits = "");
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    const std::string& Address() const { return _address; }

    /// Returns when the bus accepts connections; throws std::runtime_error when it does not.
    void Start();
    void Stop();
    /// Freeze stops the daemon's process: it does not answer, and keeps its connections. Thaw continues it.
    void Freeze();
    void Thaw();

private:
    TemporaryFolder _folder;
    std::string _address;
    pid_t _daemon = -1;
};
