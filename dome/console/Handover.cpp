#include "Handover.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <iterator>
#include <nlohmann/json.hpp>

#include "dome/OneLine.h"
#include "tavos/core/Logger.h"
#include "tavos/osa/Exception.h"

namespace dome::console {

void CarryOut(const Request& request) noexcept {
    try {
        Reply reply{500, "{}"};
        try {
            reply = request.work();
        } catch (const std::exception& error) {
            reply.body = OneLine({{"error", error.what()}});
        }
        request.finished(std::move(reply));
    } catch (const std::exception& error) {
        tavos::core::Logger::GetLogger("console")->Error("an answer is dropped: %s", error.what());
    }
}

Handover::Handover() : _descriptor(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (_descriptor < 0) throw tavos::osa::Exception("console: no event descriptor: %s", std::strerror(errno));
}

Handover::~Handover() {
    close(_descriptor);
}

bool Handover::Ask(Request request) {
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        if (_requests.size() >= kMaxRequests) return false;
        _requests.push_back(std::move(request));
    }
    Wake();
    return true;
}

std::vector<Request> Handover::TakeRequests() {
    eventfd_t count = 0;
    if (eventfd_read(_descriptor, &count) != 0) return {};  // nothing new
    const std::lock_guard<std::mutex> lock(_mutex);
    std::vector<Request> requests(std::make_move_iterator(_requests.begin()), std::make_move_iterator(_requests.end()));
    _requests.clear();
    return requests;
}

void Handover::SetWatchers(int count) {
    if (_watchers.exchange(count) == 0 && count > 0) Wake();
}

void Handover::OnPublished(std::function<void()> published) {
    const std::lock_guard<std::mutex> lock(_mutex);
    _published = std::move(published);
}

void Handover::Publish(std::string state) {
    auto shared = std::make_shared<const std::string>(std::move(state));
    const std::lock_guard<std::mutex> lock(_mutex);
    _state = std::move(shared);
    if (_published) _published();
}

void Handover::Add(Activity activity) {
    if (activity.arguments.size() > kMaxArguments) activity.arguments.resize(kMaxArguments);
    for (std::string& text : activity.arguments) {
        if (text.size() > kMaxText) text.resize(kMaxText);
    }
    const std::lock_guard<std::mutex> lock(_mutex);
    activity.number = ++_lastNumber;
    _activities.push_back(std::move(activity));
    if (_activities.size() > kMaxActivities) _activities.pop_front();
}

void Handover::Announce() {
    const std::lock_guard<std::mutex> lock(_mutex);
    if (_published) _published();
}

std::shared_ptr<const std::string> Handover::State() const {
    const std::lock_guard<std::mutex> lock(_mutex);
    return _state;
}

std::vector<Activity> Handover::ActivitiesAfter(std::uint64_t number) const {
    const std::lock_guard<std::mutex> lock(_mutex);
    const auto first = std::find_if(_activities.begin(), _activities.end(),
                                    [&](const Activity& activity) { return activity.number > number; });
    return {first, _activities.end()};
}

void Handover::Wake() {
    // Cannot overflow: the camera's thread reads it long before 2^64 wake-ups.
    eventfd_write(_descriptor, 1);
}

}  // namespace dome::console
