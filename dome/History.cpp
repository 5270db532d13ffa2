#include "History.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>

#include "dome/model/Camera.h"
#include "tavos/osa/Exception.h"

namespace dome {

namespace {

std::int64_t NanosecondsSince1970() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

/// A list from its first unread entry on.
struct Unread {
    std::size_t next;
    std::size_t count;
    std::function<std::uint64_t(std::size_t)> change;
    std::function<std::string(std::size_t)> line;

    bool IsEmpty() const { return next == count; }
    bool operator<(const Unread& other) const {
        return !IsEmpty() && (other.IsEmpty() || change(next) < other.change(other.next));
    }
};

/// `entries` are in the order of their changes.
template <class Entries>
Unread After(std::uint64_t change, const Entries& entries) {
    const auto isRead = [change](const auto& entry) { return entry.change <= change; };
    const auto first = std::partition_point(entries.begin(), entries.end(), isRead);
    return {static_cast<std::size_t>(first - entries.begin()), entries.size(),
            [&entries](std::size_t i) { return entries[i].change; },
            [&entries](std::size_t i) { return Line(entries[i]); }};
}

double Reported(const Axis& axis, bool isWhole) {
    return isWhole ? Thousandths(axis) : axis.Position();
}

}  // namespace

History::History(Camera& camera, Services& services, const ModelClock& clock, CallLog& calls)
    : _clock(clock), _calls(calls), _started(NanosecondsSince1970()) {
    camera.pan.Observe(Watch({"pan", &camera.pan, true}));
    camera.tilt.Observe(Watch({"tilt", &camera.tilt, true}));
    camera.zoom.Observe(Watch({"zoom", &camera.zoom.Drive(), true}));
    camera.focus.Observe(Watch({"focus", &camera.focus.Drive(), false}));
    camera.iris.Observe(Watch({"iris", &camera.iris.Drive(), false}));
    using tavos::core::CreateDelegate;
    services.temperature.OnTemperatureChange().AddHandler(CreateDelegate(this, &History::OnTemperature));
    services.voltage.OnVoltageStatusChange().AddHandler(CreateDelegate(this, &History::OnVoltage));
    services.power.OnPowerStatusChange().AddHandler(CreateDelegate(this, &History::OnPower));
}

Moment History::Now() const {
    return {NanosecondsSince1970(), _clock.Time()};
}

void History::AddCall(const std::string& service, const tavos::msgbus::ReceivedCall& call, const std::string& outcome) {
    _calls.Add(service, call, outcome, ++_changes, Now());
    _cause = {Cause::Kind::kCall, call.sender, call.serial};
}

void History::Act(const char* by, const std::vector<std::string>& words, const std::function<std::string()>& work) {
    Action action{++_changes, ++_actionCount, Now(), by, words, ""};
    const Because because(*this, {Cause::Kind::kAction, "", action.number});
    try {
        action.refused = work();
    } catch (const std::exception& error) {
        action.refused = error.what();
        _actions.Add(std::move(action));
        throw;
    }
    _actions.Add(std::move(action));
}

MoveObserver History::Watch(const Watched& watched) {
    return {[this, watched](const MoveStart& start) { Began(watched, start); },
            [this, watched] { Moving(watched).endedBy = _cause; },
            [this, watched](MoveEnd how) { Ended(watched, how); }};
}

void History::Began(const Watched& watched, MoveStart start) {
    start.from = Reported(*watched.axis, watched.isWhole);
    // Nothing but the auto focus begins a move on its own.
    const Cause cause = _cause.kind == Cause::Kind::kNone ? Cause{Cause::Kind::kNamed, "auto focus"} : _cause;
    _moving.push_back(
        {++_changes, ++_motionCount, Now(), watched.name, watched.isWhole, cause, start, std::nullopt, Cause()});
}

void History::Ended(const Watched& watched, MoveEnd how) {
    Motion motion = std::move(Moving(watched));
    _moving.erase(_moving.begin() + (&Moving(watched) - _moving.data()));
    const std::uint64_t replacement = how == MoveEnd::kReplaced ? _motionCount + 1 : 0;  // it begins now
    motion.change = ++_changes;
    motion.ended = {how, Now(), Reported(*watched.axis, watched.isWhole), replacement};
    if (how == MoveEnd::kReplaced || how == MoveEnd::kJumped) motion.endedBy = _cause;
    _motions.Add(std::move(motion));
}

Motion& History::Moving(const Watched& watched) {
    return *std::find_if(_moving.begin(), _moving.end(), [&](const Motion& m) { return m.axis == watched.name; });
}

void History::OnTemperature(int sensor, int degrees) {
    AddEvent("temperature", sensor, degrees);
}

void History::OnVoltage(int status) {
    AddEvent("voltage", std::nullopt, status);
}

void History::OnPower(int status) {
    AddEvent("power", std::nullopt, status);
}

void History::AddEvent(const char* event, std::optional<int> sensor, int value) {
    // Nothing but the drift changes a reading on its own.
    const Cause cause = _cause.kind == Cause::Kind::kNone ? Cause{Cause::Kind::kNamed, "drift"} : _cause;
    _events.Add({++_changes, ++_eventCount, Now(), event, sensor, value, cause});
}

std::string History::Since(std::uint64_t change) const {
    if (change > _changes) {
        throw tavos::osa::Exception("there is no change %s; the last one is %s", std::to_string(change).c_str(),
                                    std::to_string(_changes).c_str());
    }
    Unread lists[] = {After(change, _calls.All()), After(change, _motions.All()), After(change, _moving),
                      After(change, _actions.All()), After(change, _events.All())};
    std::string lines;
    Unread* oldest = std::min_element(std::begin(lists), std::end(lists));
    for (; !oldest->IsEmpty(); oldest = std::min_element(std::begin(lists), std::end(lists))) {
        const std::string line = oldest->line(oldest->next);
        if (!lines.empty() && lines.size() + line.size() > kMaxAnswer) break;
        change = oldest->change(oldest->next++);
        lines += line;
    }
    const bool isMore = !oldest->IsEmpty();
    const nlohmann::ordered_json head = {{"kind", "history"},
                                         {"change", isMore ? change : _changes},
                                         {"more", isMore},
                                         {"time", NanosecondsSince1970()},
                                         {"clock", _clock.Time()},
                                         {"started", _started},
                                         {"running", _clock.IsRunning()}};
    return head.dump() + '\n' + lines;
}

}  // namespace dome
