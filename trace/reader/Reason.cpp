#include "trace/reader/Reason.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "trace/reader/Commands.h"
#include "trace/reader/Objects.h"
#include "trace/reader/Times.h"

namespace trace {

namespace {

// RFC 3416's error statuses that need more than their names.
enum Error : std::int64_t {
    kNoError = 0,
    kTooBig = 1,
    kNoSuchName = 2,
    kBadValue = 3,
    kReadOnly = 4,
    kGenErr = 5,
    kNoAccess = 6,
    kWrongType = 7,
    kWrongLength = 8,
    kWrongEncoding = 9,
    kWrongValue = 10,
    kNoCreation = 11,
    kAuthorizationError = 16,
    kNotWritable = 17,
};

// What an agent's access check says (VACM_...).
enum Verdict : std::int32_t {
    kAccepted = 0,
    kNoSecurityName = 1,
    kNoGroup = 2,
    kNoAccessRule = 3,
    kNoSuchContext = 6,
};

constexpr std::size_t kMaxReasons = 4;  // of a request with many bindings

/// Joins different reasons, at most kMaxReasons, and says how many there are beyond.
class Reasons {
public:
    void Add(const std::string& reason) {
        if (reason.empty() || std::find(_all.begin(), _all.end(), reason) != _all.end()) return;
        _all.push_back(reason);
    }
    bool IsEmpty() const { return _all.empty(); }
    std::string Text() const {
        std::string text;
        for (std::size_t i = 0; i < std::min(_all.size(), kMaxReasons); ++i) text += (i ? "; " : "") + _all[i];
        if (_all.size() > kMaxReasons) text += "; and " + std::to_string(_all.size() - kMaxReasons) + " more";
        return text;
    }

private:
    std::vector<std::string> _all;
};

bool IsSet(const Record& record) {
    return record.pdu && record.pdu->type == kSet;
}

bool IsGetNextOrBulk(const Record& record) {
    return record.pdu && (record.pdu->type == kGetNext || record.pdu->type == kGetBulk);
}

bool BeginsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

/// The error without the service and the operation that the platform sets before it.
std::string PlainError(const Call& call) {
    const std::string prefix = call.service + " " + call.operation + ": ";
    return BeginsWith(call.error, prefix) ? call.error.substr(prefix.size()) : call.error;
}

bool IsReading(const Call& call) {
    return BeginsWith(call.operation, "Get");
}

bool IsAnswered(const Call& call) {
    return call.outcome == CallOutcome::kAnswered;
}

std::string Level(const Security& security) {
    if (!security.isAuthenticated) return "noAuthNoPriv";
    return security.isEncrypted ? "authPriv" : "authNoPriv";
}

/// Reports say by a counter's name what is wrong (RFC 3414).
Judgement OfReport(const Record& record) {
    const ObjectId& name = record.answer->bindings.empty() ? ObjectId() : record.answer->bindings[0].name;
    const std::string counter = NameOf(name);
    const bool asksForEngine = record.in.security && record.in.security->engine.empty();
    const bool asksForTime = record.in.security && record.in.security->boots == 0 && record.in.security->time == 0;
    const std::string user = record.in.security ? ShownText(record.in.security->user) : "";
    if (counter == "usmStatsUnknownEngineIDs" && asksForEngine) {
        return {"discovery: the manager asked for the agent's engine ID", false};
    }
    if (counter == "usmStatsUnknownEngineIDs") return {"unknown engine ID: it is another agent's", true};
    if (counter == "usmStatsNotInTimeWindows" && asksForTime) {
        return {"discovery: the manager asked for the agent's time", false};
    }
    if (counter == "usmStatsNotInTimeWindows") {
        return {"not in time window: the message is more than 150 s from the agent's time, or repeated", true};
    }
    if (counter == "usmStatsUnknownUserNames") return {"unknown user: the agent has no user \"" + user + "\"", true};
    if (counter == "usmStatsWrongDigests") {
        return {"wrong key: the authentication pass phrase of \"" + user + "\", or its protocol, is another", true};
    }
    if (counter == "usmStatsDecryptionErrors") {
        return {"wrong key: the privacy pass phrase of \"" + user + "\", or its protocol, is another", true};
    }
    if (counter == "usmStatsUnsupportedSecLevels") {
        return {"unsupported security level: \"" + user + "\" has no key for it", true};
    }
    return {"the agent reported " + counter, true};
}

std::string OfUnsent(const Record& record) {
    constexpr std::size_t kMaxDatagram = 65507;  // of IPv4, without its heads
    const std::string reason = "the answer could not be sent";
    if (record.messageOut.size() <= kMaxDatagram) return reason;
    return reason + ": it has " + std::to_string(record.messageOut.size()) +
           " octets, more than a datagram has room for; ask for fewer values";
}

/// Whether the request's tilt was below the horizon, from where the module sends no delta.
bool IsDroppedTiltDelta(const Record& record, const Binding& binding) {
    if (FactsOf(binding.name).object != "positionTilt" || PositionWords(binding.value).mode != 1) return false;
    const auto isTilt = [](const Call& call) { return ShortService(call.service) == "tilt"; };
    const auto isRead = [&](const Call& call) { return isTilt(call) && IsReading(call) && IsAnswered(call); };
    const auto isMove = [&](const Call& call) { return isTilt(call) && !IsReading(call); };
    return std::any_of(record.calls.begin(), record.calls.end(), isRead) &&
           std::none_of(record.calls.begin(), record.calls.end(), isMove);
}

/// What a SET that succeeded did not do, whatever the services answered. `odd` has what is not a failure.
std::string WithoutEffect(const Record& record, Reasons& odd) {
    Reasons reasons;
    const bool isOne = record.pdu->bindings.size() == 1;
    for (const Binding& binding : record.pdu->bindings) {
        const ObjectFacts object = FactsOf(binding.name);
        const std::string name = isOne ? "" : object.name + ": ";
        if (const std::string why = WhyWithoutEffect(object, binding.value); !why.empty()) reasons.Add(name + why);
        if (IsDroppedTiltDelta(record, binding)) {
            reasons.Add(name +
                        "a delta from below the horizon, or past its end, moves nothing: use absolute positions");
        }
        if (const std::string oddity = Oddity(object, binding.value); !oddity.empty()) odd.Add(name + oddity);
    }
    return reasons.Text();
}

/// What the failed calls mean for the request.
std::string Consequence(const Record& record) {
    const bool isMove = IsSet(record) && std::any_of(record.pdu->bindings.begin(), record.pdu->bindings.end(),
                                                     [](const Binding& b) { return IsPosition(FactsOf(b.name)); });
    const auto hasActed = [](const Call& call) { return !IsReading(call) && IsAnswered(call); };
    const bool acted = std::any_of(record.calls.begin(), record.calls.end(), hasActed);
    if (!IsSet(record)) return "the answer is no reading of now";
    if (acted) return "the rest of the command was carried out";
    return isMove ? "nothing moved" : "nothing changed";
}

const Binding* BindingAt(const Record& record, std::int64_t index) {
    const auto& bindings = record.pdu->bindings;
    if (index < 1 || static_cast<std::size_t>(index) > bindings.size()) return nullptr;
    return &bindings[static_cast<std::size_t>(index) - 1];
}

/// A name that is no object's.
std::string OfMissing(const ObjectId& name) {
    const ObjectFacts object = FactsOf(name);
    if (object.name.empty() || object.isInstance) return "no such object: the agent serves nothing at " + Dotted(name);
    return "no such instance: " + object.name + "; ask for " + object.object + " at exactly its OID";
}

}  // namespace

std::string ShownText(const std::string& octets) {
    return IsText(octets) ? octets : Hexadecimal(octets);
}

std::string ShortService(const std::string& service) {
    static const std::map<std::string, std::string> names = {{"org.tavos.Pan1", "pan"},
                                                             {"org.tavos.Axis1.tilt", "tilt"},
                                                             {"org.tavos.Zoom1", "zoom"},
                                                             {"org.tavos.Focus1", "focus"},
                                                             {"org.tavos.Focus2", "focus2"},
                                                             {"org.tavos.Iris1", "iris"},
                                                             {"org.tavos.Presets1", "presets"},
                                                             {"org.tavos.Presets2", "presets2"},
                                                             {"org.tavos.Alarm3", "alarm"},
                                                             {"org.tavos.Relay3", "relay"},
                                                             {"org.tavos.Temperature2", "temperature"},
                                                             {"org.tavos.Voltage2", "voltage"},
                                                             {"org.tavos.Power2", "power"},
                                                             {"org.tavos.Fan2", "fan"}};
    const auto found = names.find(service);
    return found == names.end() ? service : found->second;
}

std::string Judge::Who(const Record& record) const {
    if (record.in.security) return ShownText(record.in.security->user) + " " + Level(*record.in.security);
    if (!record.in.community) return "";
    if (const auto name = _communities.NameOf(*record.in.community)) return *name;
    const std::string& community = *record.in.community;
    if (!record.verdict) return "(a community)";
    if (*record.verdict != kNoSecurityName) return "(an accepted community)";
    return _communities.IsWrong(community) ? ShownText(community) : "(a refused community)";
}

void Judge::Learn(const Record& record) {
    for (const Call& call : record.calls) {
        if (IsAnswered(call)) {
            _silent.erase(call.service);
        } else if (BeginsWith(PlainError(call), "no answer within")) {
            _silent[call.service] = {record.number, record.time};
        }
    }
}

Judgement Judge::Of(const Record& record) {
    Judgement judgement;
    if (record.kind != RecordKind::kRequest) {
        const auto isRefused = [](const Receiver& receiver) { return !receiver.isSent; };
        const bool failed = std::any_of(record.receivers.begin(), record.receivers.end(), isRefused);
        judgement = {failed ? "the socket refused the notification" : "", failed};
    } else {
        judgement = record.isAnswered ? OfAnswered(record) : OfDropped(record);
    }
    Learn(record);
    return judgement;
}

std::string Judge::OfVerdict(const Record& record) const {
    const std::string who = Who(record);
    switch (*record.verdict) {
        case kNoSecurityName:
            if (record.in.community && _communities.NameOf(*record.in.community)) {
                return "wrong community: " + who + " is not accepted from this address";
            }
            return "wrong community";
        case kNoGroup:
            return "refused by the view: " + who + " is in no group";
        case kNoAccessRule:
            return "refused by the view: no access rule for " + who + " at this security level";
        case kNoSuchContext:
            return record.context.empty()
                       ? "no such context"
                       : "no such context: the agent has none named \"" + ShownText(record.context) + "\"";
        default:
            return "refused by the view: " + who + " may see nothing";
    }
}

Judgement Judge::OfDropped(const Record& record) const {
    if (!record.in.wrong.empty()) return {"broken message: " + record.in.wrong, true};
    if (record.verdict && *record.verdict != kAccepted) return {OfVerdict(record), true};
    if (record.in.pdu && record.in.pdu->type != kGet && record.in.pdu->type != kGetNext &&
        record.in.pdu->type != kGetBulk && record.in.pdu->type != kSet) {
        return {"the agent dropped it: a " + PduName(record.in.pdu->type) + " is no request", true};
    }
    if (!record.isParsed && record.in.security) {
        const Security& security = *record.in.security;
        // An agent reports a wrong user, authentication key or time, but not what it cannot decrypt.
        if (security.isEncrypted && security.isReportable) {
            return {"wrong key: it could not be decrypted: the privacy pass phrase of \"" + ShownText(security.user) +
                        "\", or its protocol, is another",
                    true};
        }
        return {"the agent dropped it: engine, user, key or time are wrong", true};
    }
    if (!record.isParsed)
        return {"the agent dropped it: its host is not allowed (hosts.allow, hosts.deny), or this version is off",
                true};
    if (!record.messageOut.empty()) return {OfUnsent(record), true};
    if (record.isNotAwaited) {
        return {"the answer was not awaited: it comes from another process, and too many requests waited", false};
    }
    return {"the agent did not answer", true};
}

Judgement Judge::OfAnswered(const Record& record) const {
    if (!record.answer) return {"", false};
    if (record.answer->type == kReport) return OfReport(record);
    if (record.answer->errorStatus != kNoError) return OfError(record);
    Reasons reasons;
    Reasons odd;
    if (IsSet(record)) reasons.Add(WithoutEffect(record, odd));
    reasons.Add(OfCalls(record));
    const Judgement exceptions = OfExceptions(record);
    const bool failed = !reasons.IsEmpty() || exceptions.failed;
    reasons.Add(exceptions.reason);
    reasons.Add(odd.Text());
    return {reasons.Text(), failed};
}

std::string Judge::OfRefusedName(const Record& record, const ObjectId& name) const {
    const auto isIt = [&](const RefusedName& refused) { return refused.verdict != 0 && refused.name == name; };
    if (std::none_of(record.refused.begin(), record.refused.end(), isIt)) return "";
    return "refused by the view: " + Who(record) + " may not " + (IsSet(record) ? "write " : "read ") + NameOf(name);
}

Judgement Judge::OfExceptions(const Record& record) const {
    Reasons reasons;
    bool failed = false;
    for (const Binding& binding : record.answer->bindings) {
        const std::uint8_t type = binding.value.type;
        if (type == kEndOfMibView) reasons.Add("end of view");
        if (type != kNoSuchObject && type != kNoSuchInstance) continue;
        failed = true;
        const std::string refused = OfRefusedName(record, binding.name);
        const std::string instance = "no such instance: " + NameOf(binding.name);
        const bool isNear = !FactsOf(binding.name).name.empty() && !FactsOf(binding.name).isInstance;
        reasons.Add(!refused.empty() ? refused : type == kNoSuchObject || isNear ? OfMissing(binding.name) : instance);
    }
    return {reasons.Text(), failed};
}

Judgement Judge::OfError(const Record& record) const {
    const std::int64_t status = record.answer->errorStatus;
    if (!record.pdu) return {ErrorName(status), true};
    if (record.verdict && *record.verdict != kAccepted) return {OfVerdict(record), true};
    if (status == kTooBig) return {"the answer does not fit into a message: ask for fewer values", true};
    const Binding* const named = BindingAt(record, record.answer->errorIndex);
    if (status == kNoSuchName && IsGetNextOrBulk(record)) return {"end of view", false};
    if (named != nullptr) {
        const std::string why = OfBindingError(record, *named);
        const bool isOne = record.pdu->bindings.size() == 1;
        return {isOne ? why : NameOf(named->name) + ": " + why, true};
    }
    // An error of the last phase names no binding: find those that the module refuses.
    Reasons reasons;
    const bool isOne = record.pdu->bindings.size() == 1;
    for (const Binding& binding : record.pdu->bindings) {
        const std::string why = IsSet(record) ? WhyRefused(FactsOf(binding.name), binding.value) : "";
        if (!why.empty()) reasons.Add(isOne ? why : NameOf(binding.name) + ": " + why);
    }
    const bool isOfCall = reasons.IsEmpty();
    if (isOfCall) reasons.Add(OfCalls(record));
    if (reasons.IsEmpty())
        reasons.Add(IsSet(record) ? "the module could not carry it out" : "the module could not read it");
    if (!isOne && !isOfCall) reasons.Add("the other bindings have acted");
    return {reasons.Text(), true};
}

std::string Judge::OfBindingError(const Record& record, const Binding& binding) const {
    const ObjectFacts object = FactsOf(binding.name);
    const std::int64_t status = record.answer->errorStatus;
    if (const std::string refused = OfRefusedName(record, binding.name); !refused.empty()) return refused;
    const std::string verb = IsSet(record) ? "write " : "read ";
    if (status == kNoAccess || status == kAuthorizationError) {
        return "refused by the view: " + Who(record) + " may not " + verb + NameOf(binding.name);
    }
    const bool isMissing = object.name.empty() || (!object.isInstance && object.isCamera);
    if (status == kNoCreation && object.isInstance) return "no such instance: " + object.name;
    if (isMissing && (status == kNotWritable || status == kNoSuchName || status == kNoCreation)) {
        return OfMissing(binding.name);
    }
    if (!IsSet(record) && status == kNoSuchName) return "no such object: " + NameOf(binding.name);
    if (IsSet(record)) {
        if (const std::string why = WhyRefused(object, binding.value); !why.empty()) return why;
    }
    if (status == kNotWritable || status == kReadOnly || status == kNoSuchName) {
        return "not writable: " + NameOf(binding.name);
    }
    if (status == kWrongType || status == kWrongEncoding) {
        return "wrong type: " + TypeName(binding.value.type) + " for " + NameOf(binding.name);
    }
    if (status == kWrongLength) {
        return "wrong length: " + std::to_string(binding.value.octets.size()) + " octets for " + NameOf(binding.name);
    }
    if (status == kWrongValue || status == kBadValue) return "wrong value for " + NameOf(binding.name);
    if (const std::string calls = OfCalls(record); !calls.empty()) return calls;
    return ErrorName(status) + " for " + NameOf(binding.name);
}

std::string Judge::OfCall(const Record& record, const Call& call) const {
    const std::string service = "the " + ShortService(call.service) + " service";
    const std::string error = PlainError(call);
    if (BeginsWith(error, "no answer within")) return service + " gave " + error;
    if (error == "the service is missing") return service + " is missing: no process serves it";
    if (call.outcome == CallOutcome::kNotMade) {
        const auto silence = _silent.find(call.service);
        if (error == "the service is silent" && silence != _silent.end()) {
            const bool isEarlier = silence->second.number != record.number;
            return "not called: " + service + " is silent since " + ClockTime(silence->second.time) +
                   (isEarlier ? " (record " + std::to_string(silence->second.number) + ")" : "");
        }
        if (error == "the service is silent") return "not called: " + service + " is silent";
        return "not called: " + service + ": " + error;
    }
    return service + " failed: " + error;
}

std::string Judge::OfCalls(const Record& record) const {
    Reasons reasons;
    std::vector<std::string> named;
    for (const Call& call : record.calls) {
        if (IsAnswered(call) || std::find(named.begin(), named.end(), call.service) != named.end()) continue;
        named.push_back(call.service);  // its further calls fail for the same reason
        reasons.Add(OfCall(record, call));
    }
    return reasons.IsEmpty() ? "" : reasons.Text() + ": " + Consequence(record);
}

Judgement WithMotions(Judgement judgement, const std::vector<MotionEnd>& motions) {
    if (motions.empty() || !judgement.reason.empty()) return judgement;
    const auto isHeld = [](const MotionEnd& end) { return end.isHeld; };
    if (std::any_of(motions.begin(), motions.end(), isHeld)) return {"the camera's clock is paused", true};
    const bool allStill = std::all_of(motions.begin(), motions.end(), [](const MotionEnd& end) { return end.isStill; });
    if (!allStill) return judgement;
    const bool atLimit = std::any_of(motions.begin(), motions.end(), [](const MotionEnd& end) { return end.atLimit; });
    return {atLimit ? "it is at its limit already: nothing moved" : "it is there already: nothing moved", true};
}

}  // namespace trace
