#include "trace/reader/Story.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <sstream>

#include "tavos/osa/Exception.h"
#include "trace/reader/Json.h"
#include "trace/reader/Meaning.h"
#include "trace/reader/Objects.h"
#include "trace/reader/Peer.h"
#include "trace/reader/Times.h"

namespace trace {

namespace {

using tavos::osa::Exception;
using Json = nlohmann::ordered_json;

constexpr std::size_t kMaxMotions = 20000;
constexpr std::size_t kMaxRequests = 50000;
constexpr std::size_t kMaxEvents = 20000;
constexpr std::size_t kMaxOpen = 5000;  // shown, with motions that have not ended
constexpr std::size_t kMaxAgents = 1000;
constexpr std::int64_t kSlack = 1'000'000'000;  // between two times that belong to one request
constexpr std::int64_t kMaxTime = std::numeric_limits<std::int64_t>::max() / 4;
/// A motion is known to have been replaced as soon as the call is made, the request that made it only when it has been
/// answered: ten times at ten a second are longer than a call may take.
constexpr int kMaxWaited = 10;
constexpr double kSamePosition = 0.0005;

/// A damaged ring may state any time.
std::int64_t ToTime(std::int64_t nanoseconds) {
    return std::clamp<std::int64_t>(nanoseconds, 0, kMaxTime);
}

std::string Position(const std::string& axis, double position) {
    std::array<char, 40> text{};
    if (axis == "pan" || axis == "tilt") {
        std::snprintf(text.data(), text.size(), "%.2f°", position / 1000.0);
    } else if (axis == "zoom") {
        std::snprintf(text.data(), text.size(), "%.2fx", position / 1000.0);
    } else {
        std::snprintf(text.data(), text.size(), "%.1f %%", position);
    }
    return text.data();
}

std::string EndWords(const std::string& how) {
    static const std::map<std::string, std::string> words = {{"arrived", "arrived"},
                                                             {"replaced", "replaced by another motion"},
                                                             {"stopped", "stopped"},
                                                             {"limit", "stopped by its limit"},
                                                             {"time", "stopped by its time limit"},
                                                             {"jumped", "set by hand"}};
    const auto found = words.find(how);
    return found == words.end() ? how : found->second;
}

bool HasEnded(const Json& motion) {
    return motion["ended"].is_object();
}

MotionEnd EndOf(const Json& motion, bool isPaused) {
    if (!HasEnded(motion)) return {false, false, isPaused};
    const Json& ended = motion["ended"];
    const std::string how = ended["how"];
    const double distance = std::abs(ended["position"].get<double>() - motion["from"].get<double>());
    return {(how == "arrived" || how == "limit") && distance < kSamePosition, how == "limit", false};
}

std::string Words(const Json& words) {
    std::string text;
    for (const Json& word : words) {
        text += (text.empty() ? "" : " ") + (word.is_string() ? word.get<std::string>() : word.dump());
    }
    return text;
}

}  // namespace

void Story::Keep(Open open) {
    _open.push_back(std::move(open));
}

void Story::AddRecord(Record record, std::uint64_t lost) {
    _recordsFollow = true;
    const auto shared = std::make_shared<const Record>(std::move(record));
    Open open;
    open.judgement = _judge.Of(*shared);
    open.entry.time = shared->time;
    open.entry.json = RecordJson(*shared, _judge.Who(*shared), open.judgement, lost);
    open.entry.record = shared;
    if (shared->kind == RecordKind::kTrap) {
        AddTrap(std::move(open));
        return;
    }
    for (const Call& call : shared->calls) {
        if (call.serial == 0) continue;
        const CallKey key{call.sender, call.serial};
        open.calls.push_back(key);
        const RequestKey request{call.sender, call.serial, shared->time};
        if (_requests.insert_or_assign(request, shared->number).second) _requestOrder.push_back(request);
        if (_agents.size() < kMaxAgents) _agents.insert(call.sender);
    }
    AttachWaitingTraps(open);
    Keep(std::move(open));
}

void Story::AddTrap(Open open) {
    const std::uint64_t cause = open.entry.record->cause;
    if (cause == 0) {
        Keep(std::move(open));
        return;
    }
    const auto isCause = [&](const Open& other) {
        return !other.isShown && other.entry.record && other.entry.record->kind == RecordKind::kRequest &&
               other.entry.record->number == cause;
    };
    const auto request = std::find_if(_open.rbegin(), _open.rend(), isCause);
    if (request != _open.rend()) {
        request->entry.traps.push_back(open.entry.record);
    } else {
        _waitingTraps.push_back({std::move(open)});
    }
}

void Story::AttachWaitingTraps(Open& request) {
    const auto isMine = [&](const WaitingTrap& trap) {
        return trap.open.entry.record->cause == request.entry.record->number;
    };
    for (const WaitingTrap& trap : _waitingTraps) {
        if (isMine(trap)) request.entry.traps.push_back(trap.open.entry.record);
    }
    _waitingTraps.erase(std::remove_if(_waitingTraps.begin(), _waitingTraps.end(), isMine), _waitingTraps.end());
}

/// Their request was overwritten: they stand alone.
void Story::ReleaseOverdueTraps() {
    std::vector<WaitingTrap> waiting;
    for (WaitingTrap& trap : _waitingTraps) {
        if (trap.isOverdue) {
            Keep(std::move(trap.open));
        } else {
            trap.isOverdue = true;
            waiting.push_back(std::move(trap));
        }
    }
    _waitingTraps = std::move(waiting);
}

void Story::ForgetCamera() {
    _change = 0;
    _started = 0;
    _hasMore = false;
    _isPaused = false;
    _motions.clear();
    _motionsOfCalls.clear();
    _motionsOfActions.clear();
    _events.clear();
    const auto isShown = [](const Open& open) { return open.isShown; };
    _open.erase(std::remove_if(_open.begin(), _open.end(), isShown), _open.end());
}

void Story::ForgetAgent() {
    _recordsFollow = false;
    _judge.ForgetSilence();
    ReleaseOverdueTraps();
    ReleaseOverdueTraps();
}

void Story::ReadHead(const Json& head) {
    const std::int64_t started = head.at("started");
    if (_started != 0 && started != _started) ForgetCamera();
    _started = started;
    _change = head.at("change");
    _hasMore = head.at("more");
    _isPaused = !head.at("running").get<bool>();
}

void Story::AddHistory(const std::string& lines) {
    try {
        std::istringstream stream(lines);
        for (std::string text; std::getline(stream, text);) {
            if (text.empty()) continue;
            const Json line = Json::parse(text);
            const std::string kind = line.at("kind");
            if (kind == "history") ReadHead(line);
            if (kind == "motion") AddMotion(line);
            if (kind == "action") AddAction(line);
            if (kind == "event") _events.push_back(line);
        }
    } catch (const nlohmann::json::exception& error) {
        throw Exception("the camera's history cannot be read: %s", error.what());
    }
}

void Story::AddMotion(const Json& line) {
    const std::uint64_t number = line.at("number");
    const bool isNew = _motions.find(number) == _motions.end();
    _motions[number] = line;
    const Json& cause = line.at("cause");
    if (!isNew || !cause.is_object()) return;
    if (cause.contains("sender")) {
        _motionsOfCalls.emplace(CallKey{cause.at("sender"), cause.at("serial")}, number);
    } else if (cause.contains("action")) {
        _motionsOfActions.emplace(cause.at("action").get<std::uint64_t>(), number);
    }
}

void Story::AddAction(const Json& line) {
    Open open;
    open.entry.time = line.at("time");
    open.action = line.at("number");
    const std::string by = line.at("by");
    const Json& refused = line.at("refused");
    open.judgement.reason = refused.is_string() ? refused.get<std::string>() : "";
    open.judgement.failed = !open.judgement.reason.empty();
    open.entry.json = ActionJson(open.entry.time, by, open.action, Words(line.at("words")), open.judgement.reason);
    Keep(std::move(open));
}

/// The number of the last request before `time` that made this call; nullptr when none is known.
const std::uint64_t* Story::RequestOf(const Json& cause, std::int64_t time) const {
    const CallKey call{cause.at("sender"), cause.at("serial")};
    auto next = _requests.upper_bound(RequestKey{call.first, call.second, ToTime(time) + kSlack});
    if (next == _requests.begin()) return nullptr;
    const auto& [key, number] = *--next;
    return std::get<0>(key) == call.first && std::get<1>(key) == call.second ? &number : nullptr;
}

/// Whether the motion was ended by a call whose request may still come.
bool Story::MayBecomeKnown(const Json& motion) const {
    if (!_recordsFollow || !HasEnded(motion) || !motion["ended"].contains("by")) return false;
    const Json& by = motion["ended"]["by"];
    return by.is_object() && by.contains("sender") && RequestOf(by, motion["ended"]["time"]) == nullptr;
}

Json Story::CauseJson(const Json& cause, std::int64_t time) const {
    if (!cause.is_object() || !cause.contains("sender")) return cause;
    if (const std::uint64_t* const request = RequestOf(cause, time)) return {{"request", *request}};
    const bool isOfAgent = _agents.count(cause.at("sender")) != 0;
    return isOfAgent ? "a request that is not known" : "another caller";
}

Json Story::MotionJson(const Json& motion, bool isEnderKnown) const {
    const std::string axis = motion["axis"];
    Json json = {{"number", motion["number"]},
                 {"axis", axis},
                 {"from", motion["from"]},
                 {"target", motion["target"]},
                 {"speed", motion["speed"]},
                 {"end", "moving"},
                 {"position", nullptr},
                 {"seconds", nullptr},
                 {"by", nullptr},
                 {"words", ""}};
    std::string words = axis + " from " + Position(axis, motion["from"]);
    if (motion["target"].is_number()) words += " to " + Position(axis, motion["target"]);
    if (!HasEnded(motion)) {
        json["words"] = words + ": moving";
        return json;
    }
    const Json& ended = motion["ended"];
    const double seconds = ended["clock"].get<double>() - motion["clock"].get<double>();
    json["end"] = ended["how"] == "time" ? Json("time limit") : ended["how"];
    json["position"] = ended["position"];
    json["seconds"] = std::round(seconds * 1000.0) / 1000.0;
    if (ended.contains("by") && isEnderKnown) json["by"] = CauseJson(ended["by"], ended["time"]);
    std::array<char, 40> time{};
    std::snprintf(time.data(), time.size(), " after %.2f s", seconds);
    json["words"] = words + ": " + EndWords(ended["how"]) + " at " + Position(axis, ended["position"]) + time.data();
    return json;
}

std::vector<const Json*> Story::MotionsOf(const Open& open) const {
    std::vector<const Json*> motions;
    const auto add = [&](auto range, const auto& isOf) {
        for (auto it = range.first; it != range.second; ++it) {
            const auto found = _motions.find(it->second);
            if (found != _motions.end() && isOf(found->second)) motions.push_back(&found->second);
        }
    };
    const std::int64_t time = ToTime(open.entry.time);
    const std::int64_t microseconds = open.entry.record ? open.entry.record->microseconds : 0;
    const std::int64_t first = time - kSlack;
    const std::int64_t last = time + ToTime(microseconds * 1000) + kSlack;
    const auto beganMeanwhile = [&](const Json& motion) { return motion["time"] >= first && motion["time"] <= last; };
    for (const CallKey& call : open.calls) add(_motionsOfCalls.equal_range(call), beganMeanwhile);
    if (open.action != 0) add(_motionsOfActions.equal_range(open.action), [](const Json&) { return true; });
    return motions;
}

/// Returns whether one of them is under way, or more may become known of it.
bool Story::AddMotions(Open& open) const {
    const std::vector<const Json*> motions = MotionsOf(open);
    if (motions.empty()) return false;
    Json& json = open.entry.json;
    json["motions"] = Json::array();
    std::vector<MotionEnd> ends;
    bool isMoving = false;
    bool waits = false;
    for (const Json* motion : motions) {
        const bool mayBecomeKnown = open.waited < kMaxWaited && MayBecomeKnown(*motion);
        json["motions"].push_back(MotionJson(*motion, !mayBecomeKnown));
        ends.push_back(EndOf(*motion, _isPaused));
        isMoving = isMoving || !HasEnded(*motion);
        waits = waits || mayBecomeKnown;
    }
    if (waits) ++open.waited;
    const Judgement judgement = WithMotions(open.judgement, ends);
    json["reason"] = judgement.reason;
    json["failed"] = judgement.failed;
    return isMoving || waits;
}

/// The event that a sensor's notification reports: the first one of its kind and value that no notification has
/// reported yet, and that is not older than the delivery may take; otherwise the last one.
Json Story::EventOf(const Record& record) {
    constexpr std::int64_t kMaxDelay = 10'000'000'000;
    if (!record.pdu || record.pdu->bindings.empty()) return nullptr;
    const Binding& reading = record.pdu->bindings.back();
    const std::string kind = FactsOf(reading.name).object;
    const auto bits = static_cast<std::uint32_t>(reading.value.number);
    auto best = _events.end();
    for (auto event = _events.begin(); event != _events.end(); ++event) {
        if ((*event)["event"] != kind || (*event)["time"].get<std::int64_t>() > record.time) continue;
        if (static_cast<std::uint32_t>((*event)["value"].get<std::int64_t>()) != bits) continue;
        if ((*event)["sensor"].is_number() && (*event)["sensor"] != 0) continue;  // only sensor 0 has notifications
        best = event;
        if (record.time - (*event)["time"].get<std::int64_t>() < kMaxDelay) break;
    }
    if (best == _events.end()) return nullptr;
    const Json event = *best;
    _events.erase(best);
    return {{"number", event["number"]}, {"time", IsoTime(event["time"])},
            {"event", event["event"]},   {"sensor", event["sensor"]},
            {"value", event["value"]},   {"cause", CauseJson(event["cause"], event["time"])}};
}

Json Story::TrapJson(const Record& record) {
    Json receivers = Json::array();
    for (const Receiver& receiver : record.receivers) {
        receivers.push_back({{"peer", ParsePeer(receiver.peer).Text()}, {"sent", receiver.isSent}});
    }
    static const ObjectId trapId = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
    std::string name;
    Json bindings = Json::array();
    if (record.pdu) {
        bindings = BindingsJson(record.pdu->bindings, false);
        for (const Binding& binding : record.pdu->bindings) {
            if (binding.name == trapId) name = NameOf(binding.value.id);
        }
    }
    return {{"number", record.number}, {"time", IsoTime(record.time)}, {"trap", name},
            {"bindings", bindings},    {"receivers", receivers},       {"event", EventOf(record)}};
}

void Story::AddTraps(Open& open) {
    Json& json = open.entry.json;
    const auto& record = open.entry.record;
    if (record && record->kind == RecordKind::kTrap) json["traps"].push_back(TrapJson(*record));
    for (const auto& trap : open.entry.traps) json["traps"].push_back(TrapJson(*trap));
}

std::vector<Entry> Story::Take() {
    ReleaseOverdueTraps();
    std::vector<Entry> entries;
    std::deque<Open> moving;
    for (Open& open : _open) {
        if (!open.isShown) AddTraps(open);
        const bool isMoving = AddMotions(open);
        if (!open.isShown || !isMoving) {
            open.entry.isAgain = open.isShown;
            if (open.isShown) open.entry.json.erase("lost");
            entries.push_back(open.entry);
        }
        open.isShown = true;
        if (isMoving) moving.push_back(std::move(open));
    }
    _open = std::move(moving);
    Forget();
    const auto isEarlier = [](const Entry& left, const Entry& right) { return left.time < right.time; };
    std::stable_sort(entries.begin(), entries.end(), isEarlier);
    return entries;
}

void Story::Forget() {
    while (_open.size() > kMaxOpen) _open.pop_front();
    while (_events.size() > kMaxEvents) _events.pop_front();
    for (; _requestOrder.size() > kMaxRequests; _requestOrder.pop_front()) _requests.erase(_requestOrder.front());
    while (_motions.size() > kMaxMotions) {
        const std::uint64_t number = _motions.begin()->first;
        const auto erase = [number](auto& index) {
            for (auto it = index.begin(); it != index.end();)
                it = it->second == number ? index.erase(it) : std::next(it);
        };
        erase(_motionsOfCalls);
        erase(_motionsOfActions);
        _motions.erase(_motions.begin());
    }
}

}  // namespace trace
