#include "tavos/msgbus/SilentServices.h"

#include <algorithm>
#include <utility>

#include "tavos/core/Logger.h"

namespace tavos::msgbus {

using namespace std::chrono_literals;

namespace {

/// Zero after the first miss, 200 ms after the second, doubled after each further miss.
Clock::duration Delay(int misses) {
    constexpr auto kFirst = 200ms;
    constexpr auto kMaxDelay = 10000ms;
    constexpr int kMaxDoublings = 10;
    if (misses < 2) return 0ms;
    return std::min(kFirst * (1 << std::min(misses - 2, kMaxDoublings)), kMaxDelay);
}

}  // namespace

const ServiceAddress& SilentServices::TheBus() {
    static const auto* const bus =
        new ServiceAddress{"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"};
    return *bus;
}

void SilentServices::SetPinger(std::function<void()> wake) {
    const std::lock_guard<std::mutex> lock(_mutex);
    _wakePinger = std::move(wake);
    if (_wakePinger) return;
    _records.clear();
    _any = false;
}

bool SilentServices::IsSilent(const std::string& service) const {
    if (!_any) return false;
    const std::lock_guard<std::mutex> lock(_mutex);
    const auto record = _records.find(service);
    return record != _records.end() && record->second.silent;
}

void SilentServices::Missed(const ServiceAddress& service) {
    if (!MarkSilent(service)) return;
    core::Logger::GetLogger("tavos")->Error("%s does not answer: until it does, calls to it fail at once",
                                            service.service.c_str());
}

void SilentServices::TimeUsedUp(const ServiceAddress& service) {
    if (!MarkSilent(service)) return;
    core::Logger::GetLogger("tavos")->Error(
        "%s is so slow that a request has waited too long: until it answers a ping, calls to it fail at once",
        service.service.c_str());
}

bool SilentServices::MarkSilent(const ServiceAddress& service) {
    const std::lock_guard<std::mutex> lock(_mutex);
    if (!_wakePinger) return false;
    Record& record = _records[service.service];
    record.path = service.path;
    record.silent = true;
    record.due = Clock::now() + Delay(++record.misses);
    _any = true;
    _wakePinger();
    return true;
}

bool SilentServices::EndSilence(const std::string& service) {
    const std::lock_guard<std::mutex> lock(_mutex);
    const auto record = _records.find(service);
    return record != _records.end() && std::exchange(record->second.silent, false);
}

void SilentServices::Forget(const std::string& service) {
    const std::lock_guard<std::mutex> lock(_mutex);
    _records.erase(service);
    _any = !_records.empty();
}

void SilentServices::PingAnswered(const std::string& service) {
    if (!EndSilence(service)) return;
    core::Logger::GetLogger("tavos")->Information("%s answers again", service.c_str());
}

void SilentServices::ServiceEnded(const std::string& service) {
    Forget(service);
    core::Logger::GetLogger("tavos")->Information("%s has ended", service.c_str());
}

void SilentServices::Answered(const std::string& service, bool slowly) {
    if (!_any) return;
    PingAnswered(service);
    if (!slowly) Forget(service);
}

std::vector<SilentServices::PingTarget> SilentServices::PingTargets() const {
    std::vector<PingTarget> targets;
    if (!_any) return targets;
    const std::lock_guard<std::mutex> lock(_mutex);
    for (const auto& [service, record] : _records) {
        if (record.silent) targets.push_back({service, record.path, record.due});
    }
    return targets;
}

}  // namespace tavos::msgbus
