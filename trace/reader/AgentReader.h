#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "trace/reader/Ring.h"
#include "trace/reader/Story.h"

namespace trace {

/// Reads an agent's records into a story, over the agent's restarts. One thread at a time.
class AgentReader {
public:
    /// `socketPath`: the companion's socket. It may be missing, and may appear later. Records after the number `since`
    /// that are gone count as lost. `stop`: a descriptor that ends each wait once it is readable; -1: none.
    AgentReader(std::string socketPath, std::uint64_t since, int stop = -1)
        : _path(std::move(socketPath)), _stop(stop), _next(since + 1) {}

    /// Adds the records that are there now: with those that come meanwhile it might not end. Connects when it is not
    /// connected; waits up to 2 seconds for an agent that is busy. Returns why nothing more comes; empty when all is
    /// well.
    std::string Read(Story& story);

private:
    void Connect(Story& story);
    std::uint64_t LostBefore(std::uint64_t number);

    std::string _path;
    int _stop;
    std::unique_ptr<RingReader> _ring;
    std::uint64_t _next;  // the number of the record that must come next
    bool _wasConnected = false;
};

}  // namespace trace
