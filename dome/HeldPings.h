#pragma once

#include <algorithm>
#include <cstddef>
#include <deque>
#include <string>
#include <utility>

#include "tavos/msgbus/ServiceHost.h"

namespace dome {

/// The pings of services that hang. A service that only hung answers them when it continues. Above the limit the oldest
/// are dropped. On the host's thread.
class HeldPings {
public:
    static constexpr std::size_t kMax = 100;

    void Hold(const std::string& service, const tavos::msgbus::ReceivedCall& ping) {
        if (_pings.size() == kMax) _pings.pop_front();
        _pings.emplace_back(service, ping);
    }

    /// Answers the pings of the services for which `hangs(service)` is false.
    template <class Hangs>
    void Answer(Hangs hangs) {
        const auto answered = [&](const auto& held) {
            if (hangs(held.first)) return false;
            held.second.answer();
            return true;
        };
        _pings.erase(std::remove_if(_pings.begin(), _pings.end(), answered), _pings.end());
    }

private:
    std::deque<std::pair<std::string, tavos::msgbus::ReceivedCall>> _pings;
};

}  // namespace dome
