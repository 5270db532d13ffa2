#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

#include "BoundedList.h"
#include "HistoryEntries.h"
#include "tavos/msgbus/ServiceHost.h"

namespace dome {

/// The service calls that the camera has received, oldest first. Above either limit the oldest calls are dropped.
class CallLog {
public:
    static constexpr std::size_t kMaxCalls = 20000;
    static constexpr std::size_t kMaxBytes = 2 * 1024 * 1024;

    /// `service` is the short name ("pan"), `outcome` "ok", "fail" or "hang"; `change` its number in the history.
    void Add(const std::string& service, const tavos::msgbus::ReceivedCall& call, const std::string& outcome,
             std::uint64_t change = 0, const Moment& moment = {});

    /// One JSON object a line: service, call, args, outcome ("ok", "fail" or "hang").
    std::string Lines() const;

    /// Hides the calls so far from Lines; All keeps them.
    void Clear() { _cleared = _count; }

    const std::deque<ServiceCall>& All() const { return _calls.All(); }

private:
    BoundedList<ServiceCall> _calls{kMaxCalls, kMaxBytes};
    std::uint64_t _count = 0;
    std::uint64_t _cleared = 0;  // the number of the last hidden call
};

}  // namespace dome
