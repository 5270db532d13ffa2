#include "trace/reader/Plain.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <vector>

#include "trace/reader/Json.h"

namespace trace {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kWidth = 120;
constexpr const char* kIndent = "             ";  // below the time

bool IsContinued(char octet) {
    return (static_cast<unsigned char>(octet) & 0xc0) == 0x80;
}

/// In characters, not octets.
std::size_t Columns(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) { return !IsContinued(c); }));
}

/// The octets of the first `columns` characters.
std::size_t Cut(const std::string& text, std::size_t columns) {
    std::size_t place = 0;
    for (; place < text.size(); ++place) {
        if (!IsContinued(text[place]) && columns-- == 0) break;
    }
    return place;
}

/// Control characters would spoil the terminal.
std::string Harmless(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }, ' ');
    return text;
}

std::string Fitted(const std::string& line) {
    if (Columns(line) <= kWidth) return line + "\n";
    return line.substr(0, Cut(line, kWidth - 3)) + "...\n";
}

/// Breaks at blanks; further lines are indented more.
std::string Wrapped(const std::string& label, const std::string& text) {
    std::string lines;
    std::string line = kIndent + label + ": ";
    const std::string further(line.size(), ' ');
    std::string rest = Harmless(text);
    while (Columns(line) + Columns(rest) > kWidth) {
        const std::size_t room = Cut(rest, kWidth - Columns(line));
        std::size_t blank = rest.rfind(' ', room);
        if (blank == std::string::npos || blank == 0) blank = room;
        lines += line + rest.substr(0, blank) + "\n";
        rest = rest.substr(std::min(rest.size(), rest.find_first_not_of(' ', blank)));
        line = further;
    }
    return lines + line + rest + "\n";
}

std::string Padded(const std::string& text, std::size_t columns) {
    return text + std::string(columns > Columns(text) ? columns - Columns(text) : 0, ' ');
}

std::string Text(const Json& json) {
    return json.is_string() ? json.get<std::string>() : "";
}

std::string NameOf(const Json& binding) {
    const std::string name = Text(binding["name"]);
    return name.empty() ? Text(binding["oid"]) : name;
}

/// "name = value (meaning)", as short as it can be understood.
std::string BindingText(const Json& binding, bool isAsked) {
    const std::string value = Text(binding["value"]);
    const std::string meaning = Text(binding["meaning"]);
    std::string text = NameOf(binding);
    if (isAsked && Text(binding["type"]) == "NULL") return text;
    if (!value.empty()) text += " = " + value;
    if (!meaning.empty()) text += value.empty() ? ": " + meaning : " (" + meaning + ")";
    return text;
}

std::string MotionsText(const Json& entry) {
    std::string text;
    for (const Json& motion : entry["motions"]) text += "; " + Text(motion["axis"]) + " " + Text(motion["end"]);
    return text;
}

/// Its first bindings are the time and its name; the last is the one that it is about.
std::string Notification(const Json& entry) {
    const Json& last = entry["bindings"].back();
    const std::string name = entry["traps"].empty() ? "" : Text(entry["traps"][0]["trap"]);
    const bool isItsName = name.empty() || name == NameOf(last);
    return (isItsName ? "" : name + ": ") + BindingText(last, false);
}

/// What the request was about: of a SET what it asks for, otherwise what was answered.
std::string Subject(const Json& entry) {
    const Json& asked = entry["bindings"];
    const bool isSet = Text(entry["pdu"]) == "SET" || Text(entry["pdu"]) == "trap";
    const bool hasAnswer = entry["answer"].is_array() && !entry["answer"].empty();
    const Json& shown = !isSet && hasAnswer ? entry["answer"] : asked;
    if (shown.empty()) return "";
    if (Text(entry["pdu"]) == "trap") return Notification(entry);
    std::string text = BindingText(shown.front(), !hasAnswer);
    if (shown.size() > 1) text += " and " + std::to_string(shown.size() - 1) + " more";
    return text;
}

std::string Address(const Json& entry) {
    const std::string peer = Text(entry["peer"]);
    return peer.substr(0, peer.rfind(':'));
}

std::string Outcome(const Json& entry) {
    if (entry.contains("words")) return entry["failed"] ? "refused" : "done";
    if (Text(entry["pdu"]) == "trap") return entry["failed"] ? "refused" : "sent";
    if (!entry["error"].is_string()) return entry["failed"] ? "dropped" : "unknown";
    const std::string error = Text(entry["error"]);
    return error == "noError" ? "ok" : error;
}

/// A wrong community may be long, and must not hide what follows it.
std::string Who(const Json& entry) {
    constexpr std::size_t kMaxColumns = 20;
    const std::string who = Text(entry["who"]);
    if (Columns(who) <= kMaxColumns) return who;
    return who.substr(0, Cut(who, kMaxColumns - 3)) + "...";
}

std::string HeadLine(const Json& entry) {
    std::array<char, 32> number{};
    const bool isNumbered = entry["number"].is_number();
    std::snprintf(number.data(), number.size(), "%8s", isNumbered ? entry["number"].dump().c_str() : "-");
    const std::string time = Text(entry["time"]).substr(11, 12);
    const std::string pdu = Text(entry["pdu"]);
    const std::string subject = entry.contains("words") ? Text(entry["words"]) : Subject(entry);
    return Fitted(Harmless(std::string(number.data()) + " " + time + " " + Padded(Address(entry), 15) + " " +
                           Padded(Who(entry), 8) + " " + Padded(pdu.empty() ? "?" : pdu, 7) + " " +
                           Padded(Outcome(entry), 7) + " " + subject + MotionsText(entry)));
}

std::string CallText(const Json& call) {
    std::string text = Text(call["service"]) + " " + Text(call["operation"]) + " " + Line(call["arguments"]) + " " +
                       Text(call["outcome"]);
    if (!Text(call["error"]).empty()) text += " (" + Text(call["error"]) + ")";
    return text + " in " + call["microseconds"].dump() + " us";
}

std::string TrapText(const Json& trap) {
    std::string text = Text(trap["trap"]);
    for (const Json& receiver : trap["receivers"]) {
        text += (receiver["sent"] ? ", sent to " : ", refused for ") + Text(receiver["peer"]);
    }
    if (trap["event"].is_object()) text += ", for event " + trap["event"]["number"].dump();
    return text;
}

std::string AllDetails(const Json& entry) {
    std::string lines;
    std::string asked = Text(entry["peer"]);
    if (entry["version"].is_string()) asked += ", SNMPv" + Text(entry["version"]);
    if (entry["id"].is_number()) asked += ", request id " + entry["id"].dump();
    if (entry["microseconds"].is_number()) asked += ", " + entry["microseconds"].dump() + " us";
    if (!entry.contains("words") && !Text(entry["peer"]).empty()) lines += Wrapped("from", asked);
    for (const Json& binding : entry["bindings"]) {
        lines += Wrapped("asked", BindingText(binding, true) + ", " + Text(binding["oid"]));
    }
    if (entry["answer"].is_array()) {
        for (const Json& binding : entry["answer"]) lines += Wrapped("answered", BindingText(binding, false));
    }
    return lines;
}

}  // namespace

std::string PlainLines(const nlohmann::ordered_json& entry, Details details) {
    std::string lines;
    if (entry.contains("lost")) lines += kIndent + entry["lost"].dump() + " records were lost before this one\n";
    lines += HeadLine(entry);
    const bool isAll = details == Details::kAll;
    const bool isFailed = entry["failed"];
    if (!Text(entry["reason"]).empty() && (isAll || isFailed)) lines += Wrapped("why", Text(entry["reason"]));
    if (!isAll && !isFailed) return lines;
    if (isAll) lines += AllDetails(entry);
    for (const Json& call : entry["calls"]) {
        if (isAll || Text(call["outcome"]) != "answered") lines += Wrapped("call", CallText(call));
    }
    for (const Json& motion : entry["motions"]) lines += Wrapped("motion", Text(motion["words"]));
    for (const Json& trap : entry["traps"]) lines += Wrapped("trap", TrapText(trap));
    return lines;
}

std::string PlainEnd(const nlohmann::ordered_json& entry) {
    std::string lines;
    const std::string label = entry["number"].is_number() ? "motion of " + entry["number"].dump() : "motion";
    for (const Json& motion : entry["motions"]) lines += Wrapped(label, Text(motion["words"]));
    if (!Text(entry["reason"]).empty()) lines += Wrapped("why", Text(entry["reason"]));
    return lines;
}

}  // namespace trace
