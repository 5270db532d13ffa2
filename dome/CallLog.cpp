#include "CallLog.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <type_traits>
#include <variant>

#include "OneLine.h"

namespace dome {

namespace {

std::string Quoted(const std::string& text) {
    return OneLine(nlohmann::json(text));
}

/// JSON has no "nan" and no "inf".
std::string Argument(const tavos::msgbus::Value& value) {
    const std::string text = tavos::msgbus::Text(value);
    const auto json = [&](const auto& held) {
        if constexpr (std::is_arithmetic_v<std::decay_t<decltype(held)>>) {
            if (std::isfinite(static_cast<double>(held))) return text;
        }
        return Quoted(text);
    };
    return std::visit(json, value);
}

}  // namespace

void CallLog::Add(const std::string& service, const tavos::msgbus::ReceivedCall& call, const std::string& outcome) {
    std::string line = "{\"service\":" + Quoted(service) + ",\"call\":" + Quoted(call.operation) + ",\"args\":[";
    for (std::size_t i = 0; i < call.arguments.size(); ++i) {
        if (i > 0) line += ',';
        line += Argument(call.arguments[i]);
    }
    line += std::string("],\"outcome\":\"") + outcome + "\"}\n";
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
