#pragma once

#include <cstddef>
#include <deque>
#include <string>

#include "tavos/msgbus/ServiceHost.h"

namespace dome {

/// The service calls that the camera has received, oldest first. Above either limit the oldest calls are dropped.
class CallLog {
public:
    static constexpr std::size_t kMaxCalls = 20000;
    static constexpr std::size_t kMaxBytes = 2 * 1024 * 1024;

    /// `service` is the short name ("pan"), `outcome` "ok", "fail" or "hang".
    void Add(const std::string& service, const tavos::msgbus::ReceivedCall& call, const std::string& outcome);

    /// One JSON object a line: service, call, args, outcome ("ok", "fail" or "hang").
    std::string Lines() const;

    void Clear();

private:
    std::deque<std::string> _lines;
    std::size_t _bytes = 0;
};

}  // namespace dome
