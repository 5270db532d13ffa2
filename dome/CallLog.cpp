#include "CallLog.h"

#include <nlohmann/json.hpp>

#include "Faults.h"

namespace dome {

namespace {

using tavos::msgbus::Treatment;

std::string Quoted(const std::string& text) {
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

/// Arguments arrive as text without their types. The only strings are the banks of alarms and relays, as the first
/// argument. All others are numbers and booleans, whose text is already JSON (except "nan" and "inf").
std::string Argument(const std::string& service, std::size_t index, const std::string& text) {
    const bool isBank = index == 0 && (service == "alarm" || service == "relay");
    const bool isJson = !isBank && nlohmann::json::accept(text);
    return isJson ? text : Quoted(text);
}

}  // namespace

void CallLog::Add(const std::string& service, const tavos::msgbus::ReceivedCall& call, Treatment treatment) {
    std::string line = "{\"service\":" + Quoted(service) + ",\"call\":" + Quoted(call.operation) + ",\"args\":[";
    for (std::size_t i = 0; i < call.arguments.size(); ++i) {
        if (i > 0) line += ',';
        line += Argument(service, i, call.arguments[i]);
    }
    line += std::string("],\"outcome\":\"") + Outcome(treatment) + "\"}\n";
    _bytes += line.size();
    _lines.push_back(std::move(line));
    while (_lines.size() > kMaxCalls || _bytes > kMaxBytes) {
        _bytes -= _lines.front().size();
        _lines.pop_front();
    }
}

std::string CallLog::Lines() const {
    std::string lines;
    lines.reserve(_bytes);
    for (const std::string& line : _lines) lines += line;
    return lines;
}

void CallLog::Clear() {
    _lines.clear();
    _bytes = 0;
}

}  // namespace dome
