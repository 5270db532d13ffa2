#include "trace/reader/AgentReader.h"

#include <cstddef>
#include <exception>
#include <vector>

#include "trace/reader/Record.h"

namespace trace {

std::string AgentReader::Read(Story& story) {
    try {
        if (!_ring) Connect(story);
        const bool isGone = _ring->AgentIsGone();  // asked before reading: nothing comes after that
        std::vector<std::byte> octets;
        const std::uint64_t end = _ring->Facts().nextNumber;
        for (std::uint64_t number = 0; number + 1 < end && _ring->Next(octets);) {
            number = HeadOf(octets).number;
            story.AddRecord(DecodeRecord(octets), LostBefore(number));
        }
        if (!isGone) return "";
        _ring.reset();
        return "the agent has ended, or no longer keeps the trace";
    } catch (const std::exception& error) {
        return error.what();  // the ring, if there is one, goes on after a broken record
    }
}

void AgentReader::Connect(Story& story) {
    _ring = std::make_unique<RingReader>(_path, _stop);
    if (_wasConnected) _next = 1;
    _wasConnected = true;
    story.ForgetAgent();
}

std::uint64_t AgentReader::LostBefore(std::uint64_t number) {
    const std::uint64_t lost = number > _next ? number - _next : 0;
    _next = number + 1;
    return lost;
}

}  // namespace trace
