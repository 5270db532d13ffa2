#pragma once

#include <charconv>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

/// What the module did, in order, as lines of text. The recorders write it, tests read it:
///   "log 6 handle_positionPan: absolute pan (2)"           a log line, with its level
///   "call pan SetPositionAtSpeed 180000 0.5 300"           a call of a service
///   "bus CreateClient pan", "bus DeleteClient pan", "bus StartServer"
///   "settings GetValue [Imaging/Focus]Mode"                a use of the settings store
///   "logger ClearAppenders", "logger ConfigureLogging log log.level=3 log.stdout=true", "logger EnableDebugLogging"
///   "agent register_instance modelNumber .1.3.6... 1"      a call of the agent
/// Thread-safe.
namespace journal {

using Lines = std::vector<std::string>;

void Add(const std::string& line);
void Clear();

/// Calls `watcher` for every line from now on, on the thread that has just added it. So a test can check the module in
/// the middle of its work, or throw into it. An empty function ends it, and so does ResetCamera.
void Watch(std::function<void(const std::string& line)> watcher);

/// Everything so far, or only the lines that begin with `prefix`.
Lines All(const std::string& prefix = "");

/// Log lines only: "6 handle_positionPan: absolute pan (2)".
Lines Logged();

/// Log lines of one level, without the level.
Lines Logged(int level);

/// Calls of services only: "pan SetPositionAtSpeed 180000 0.5 300".
Lines Calls();

inline std::string Text(const std::string& value) {
    return value;
}
inline std::string Text(const char* value) {
    return value;
}
inline std::string Text(bool value) {
    return value ? "true" : "false";
}

/// Writes a double with the fewest digits that read back to the same number.
template <class Number, class = std::enable_if_t<std::is_arithmetic_v<Number>>>
std::string Text(Number value) {
    char text[64];
    return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

template <class... Words>
std::string Join(const Words&... words) {
    std::string line;
    ((line += line.empty() ? Text(words) : " " + Text(words)), ...);
    return line;
}

}  // namespace journal
