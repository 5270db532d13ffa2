#include "HistoryEntries.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "OneLine.h"

namespace dome {

namespace {

using Json = nlohmann::ordered_json;

std::string Text(const Json& json) {
    return OneLine(json) + '\n';
}

template <class Entry>
Json Head(const char* kind, const Entry& entry) {
    return {{"kind", kind},
            {"change", entry.change},
            {"number", entry.number},
            {"time", entry.moment.time},
            {"clock", entry.moment.clock}};
}

Json ToJson(const Cause& cause) {
    switch (cause.kind) {
        case Cause::Kind::kCall:
            return {{"sender", cause.name}, {"serial", cause.number}};
        case Cause::Kind::kAction:
            return {{"action", cause.number}};
        case Cause::Kind::kNamed:
            return cause.name;
        case Cause::Kind::kNone:
            break;
    }
    return nullptr;
}

const char* Name(MoveEnd end) {
    switch (end) {
        case MoveEnd::kArrived:
            return "arrived";
        case MoveEnd::kReplaced:
            return "replaced";
        case MoveEnd::kStopped:
            return "stopped";
        case MoveEnd::kLimit:
            return "limit";
        case MoveEnd::kTimeLimit:
            return "time";
        case MoveEnd::kJumped:
            return "jumped";
    }
    return "";
}

Json Position(const Motion& motion, double position) {
    return motion.isWhole ? Json(std::lround(position)) : Json(position);
}

Json ToJson(const Motion& motion, const Motion::Ended& ended) {
    Json json = {{"how", Name(ended.how)},
                 {"time", ended.moment.time},
                 {"clock", ended.moment.clock},
                 {"position", Position(motion, ended.position)}};
    if (motion.endedBy.kind != Cause::Kind::kNone) json["by"] = ToJson(motion.endedBy);
    if (ended.replacement != 0) json["motion"] = ended.replacement;
    return json;
}

}  // namespace

std::size_t Action::Bytes() const {
    std::size_t bytes = sizeof *this + refused.size();
    for (const std::string& word : words) bytes += sizeof word + word.size();
    return bytes;
}

std::string Line(const ServiceCall& call) {
    Json head = Head("call", call);
    head["sender"] = call.sender;
    head["serial"] = call.serial;
    std::string line = Text(head);
    line.replace(line.size() - 2, 2, ",");
    return line + call.line.substr(1);
}

std::string Line(const Motion& motion) {
    Json json = Head("motion", motion);
    json["axis"] = motion.axis;
    json["cause"] = ToJson(motion.cause);
    json["from"] = Position(motion, motion.start.from);
    json["target"] = motion.start.target ? Position(motion, *motion.start.target) : Json();
    json["speed"] = motion.start.speed;
    json["ended"] = motion.ended ? ToJson(motion, *motion.ended) : Json();
    return Text(json);
}

std::string Line(const Action& action) {
    Json json = Head("action", action);
    json["by"] = action.by;
    json["words"] = action.words;
    json["refused"] = action.refused.empty() ? Json() : Json(action.refused);
    return Text(json);
}

std::string Line(const EmittedEvent& event) {
    Json json = Head("event", event);
    json["event"] = event.event;
    json["sensor"] = event.sensor ? Json(*event.sensor) : Json();
    json["value"] = event.value;
    json["cause"] = ToJson(event.cause);
    return Text(json);
}

}  // namespace dome
