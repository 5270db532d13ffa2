#pragma once

#include <cstddef>
#include <deque>
#include <string>

#include "tavos/msgbus/ServiceHost.h"

namespace dome {

/// The service calls that the camera has received, in the order of their arrival, oldest first; what is beyond the
/// bounds falls out at the old end.
class CallLog {
public:
    static constexpr std::size_t kMostCalls = 20000;
    static constexpr std::size_t kMostBytes = 2 * 1024 * 1024;

    /// `service` is the short name ("pan"); `treatment` what became of the call.
    void Add(const std::string& service, const tavos::msgbus::ReceivedCall& call, tavos::msgbus::Treatment treatment);

    /// One JSON object a line: service, call, args, outcome ("ok", "fail" or "hang").
    std::string Lines() const;

    void Clear();

private:
    std::deque<std::string> _lines;
    std::size_t _bytes = 0;
};

}  // namespace dome
