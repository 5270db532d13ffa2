#include "tavos/msgbus/WorkTime.h"

#include <algorithm>

namespace tavos::msgbus {

void WorkTime::Begin(Clock::duration limit) {
    _owner = std::this_thread::get_id();
    _limit = limit;
    _left = limit;
    _slowCalls.clear();
}

Clock::duration WorkTime::Left() const {
    return IsOwner() ? _left : Clock::duration::max();
}

const ServiceAddress* WorkTime::Spend(const ServiceAddress& service, Clock::duration time, bool slow) {
    if (!IsOwner() || _left <= Clock::duration::zero()) return nullptr;
    _left -= time;
    if (slow) {
        const auto known = std::find_if(_slowCalls.begin(), _slowCalls.end(),
                                        [&](const auto& call) { return call.first.service == service.service; });
        if (known == _slowCalls.end()) {
            _slowCalls.emplace_back(service, time);
        } else {
            known->second += time;
        }
    }
    return _left <= Clock::duration::zero() ? Slowest() : nullptr;
}

const ServiceAddress* WorkTime::Slowest() const {
    const auto slowest = std::max_element(_slowCalls.begin(), _slowCalls.end(),
                                          [](const auto& a, const auto& b) { return a.second < b.second; });
    return slowest == _slowCalls.end() || slowest->second < _limit / 4 ? nullptr : &slowest->first;
}

}  // namespace tavos::msgbus
