#include "trace/reader/Json.h"

#include "trace/reader/Meaning.h"
#include "trace/reader/Objects.h"
#include "trace/reader/Peer.h"
#include "trace/reader/Times.h"

namespace trace {

namespace {

using Json = nlohmann::ordered_json;

/// Every member that every object has, in their order.
Json Blank() {
    Json json;
    for (const char* const member : {"number", "time", "peer", "version", "who", "pdu", "id", "bindings", "error",
                                     "index", "reason", "answer", "microseconds", "calls", "motions", "traps"}) {
        json[member] = nullptr;
    }
    for (const char* const list : {"bindings", "calls", "motions", "traps"}) json[list] = Json::array();
    json["reason"] = "";
    json["failed"] = false;
    return json;
}

Json Version(const Message& message) {
    if (!message.version) return nullptr;
    switch (*message.version) {
        case kVersion1:
            return "1";
        case kVersion2c:
            return "2c";
        case kVersion3:
            return "3";
        default:
            return std::to_string(*message.version);
    }
}

const char* OutcomeName(CallOutcome outcome) {
    switch (outcome) {
        case CallOutcome::kAnswered:
            return "answered";
        case CallOutcome::kFailed:
            return "failed";
        case CallOutcome::kNotMade:
            return "not made";
    }
    return "unknown";
}

Json ArgumentsJson(const Call& call) {
    Json arguments = Json::parse(call.arguments, nullptr, false);
    return arguments.is_discarded() ? Json(call.arguments) : arguments;
}

Json CallsJson(const std::vector<Call>& calls) {
    Json list = Json::array();
    for (const Call& call : calls) {
        list.push_back({{"service", ShortService(call.service)},
                        {"operation", call.operation},
                        {"arguments", ArgumentsJson(call)},
                        {"outcome", OutcomeName(call.outcome)},
                        {"error", call.error},
                        {"microseconds", call.microseconds}});
    }
    return list;
}

bool IsRelayDrive(const Call& call) {
    return call.operation == "SetRelay" || call.operation == "ClearRelay";
}

/// Only the call says which relay a row is.
void NameRelay(const Record& record, Json& bindings) {
    for (const Call& call : record.calls) {
        if (!IsRelayDrive(call) || bindings.size() != 1) continue;
        if (bindings[0]["name"].get<std::string>().rfind("relayStatesTable", 0) != 0) return;
        const Json arguments = ArgumentsJson(call);
        if (!arguments.is_array() || arguments.size() < 2 || !arguments[0].is_string()) return;
        bindings[0]["meaning"] = std::string(call.operation == "SetRelay" ? "energise" : "release") + " relay " +
                                 arguments[1].dump() + " of " + arguments[0].get<std::string>();
        return;
    }
}

Json ErrorJson(const Record& record) {
    if (!record.answer || !record.isAnswered) return nullptr;
    if (record.answer->type != kReport) return ErrorName(record.answer->errorStatus);
    return record.answer->bindings.empty() ? "report" : NameOf(record.answer->bindings[0].name);
}

void FillRequest(const Record& record, Json& json) {
    const bool isSet = record.pdu && record.pdu->type == kSet;
    json["peer"] = ParsePeer(record.peer).Text();
    json["version"] = Version(record.in);
    if (record.pdu) {
        json["pdu"] = PduName(record.pdu->type);
        json["id"] = record.pdu->requestId;
        json["bindings"] = BindingsJson(record.pdu->bindings, isSet);
        NameRelay(record, json["bindings"]);
    }
    json["error"] = ErrorJson(record);
    if (record.answer && record.isAnswered) {
        json["index"] = record.answer->errorIndex;
        json["answer"] = BindingsJson(record.answer->bindings, isSet);
    }
    json["microseconds"] = record.microseconds;
    json["calls"] = CallsJson(record.calls);
}

void FillTrap(const Record& record, Json& json) {
    json["pdu"] = "trap";
    json["peer"] = "";
    if (!record.pdu) return;
    if (record.sentId) json["id"] = *record.sentId;
    json["bindings"] = BindingsJson(record.pdu->bindings, false);
}

}  // namespace

nlohmann::ordered_json RecordJson(const Record& record, const std::string& who, const Judgement& judgement,
                                  std::uint64_t lost) {
    Json json = Blank();
    json["number"] = record.number;
    json["time"] = IsoTime(record.time);
    json["who"] = who;
    record.kind == RecordKind::kRequest ? FillRequest(record, json) : FillTrap(record, json);
    json["reason"] = judgement.reason;
    json["failed"] = judgement.failed;
    if (record.pdu && record.pdu->type == kGetBulk) {
        json["nonRepeaters"] = record.pdu->errorStatus;
        json["maxRepetitions"] = record.pdu->errorIndex;
    }
    if (!record.context.empty()) json["context"] = ShownText(record.context);
    if (lost != 0) json["lost"] = lost;
    if (record.isCut) json["cut"] = true;
    return json;
}

nlohmann::ordered_json ActionJson(std::int64_t time, const std::string& by, std::uint64_t number,
                                  const std::string& words, const std::string& refused) {
    Json json = Blank();
    json["time"] = IsoTime(time);
    json["peer"] = "";
    json["who"] = by;
    json["pdu"] = by;
    json["id"] = number;
    json["reason"] = refused;
    json["failed"] = !refused.empty();
    json["words"] = words;
    return json;
}

nlohmann::ordered_json BindingsJson(const std::vector<Binding>& bindings, bool isSet) {
    Json list = Json::array();
    for (const Binding& binding : bindings) {
        const ObjectFacts object = FactsOf(binding.name);
        list.push_back({{"oid", Dotted(binding.name)},
                        {"name", object.name},
                        {"type", TypeName(binding.value.type)},
                        {"value", ValueText(object, binding.value)},
                        {"meaning", Meaning(object, binding.value, isSet)}});
    }
    return list;
}

std::string Line(const nlohmann::ordered_json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace trace
