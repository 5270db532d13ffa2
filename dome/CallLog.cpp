#include "CallLog.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <type_traits>
#include <variant>

#include "OneLine.h"

namespace dome {

namespace {

/// Plain text needs no JSON library; that is faster, and the caller waits.
std::string Quoted(const std::string& text) {
    const auto isPlain = [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; };
    if (std::all_of(text.begin(), text.end(), isPlain)) return '"' + text + '"';
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

void CallLog::Add(const std::string& service, const tavos::msgbus::ReceivedCall& call, const std::string& outcome,
                  std::uint64_t change, const Moment& moment) {
    constexpr std::size_t kUsualLine = 128;
    std::string line;
    line.reserve(kUsualLine);
    line.append("{\"service\":\"").append(service).append("\",\"call\":\"").append(call.operation);
    line += "\",\"args\":[";
    for (std::size_t i = 0; i < call.arguments.size(); ++i) {
        if (i > 0) line += ',';
        line += Argument(call.arguments[i]);
    }
    line.append("],\"outcome\":\"").append(outcome).append("\"}\n");
    _calls.Add({change, ++_count, moment, std::move(line), call.sender, call.serial});
}

std::string CallLog::Lines() const {
    std::string lines;
    for (const ServiceCall& call : _calls.All()) {
        if (call.number > _cleared) lines += call.line;
    }
    return lines;
}

}  // namespace dome
