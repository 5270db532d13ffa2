#include "support/Journal.h"

#include <mutex>

namespace journal {

namespace {

std::mutex s_mutex;
Lines s_lines;

Lines After(const std::string& prefix) {
    Lines found;
    for (const auto& line : All(prefix)) found.push_back(line.substr(prefix.size()));
    return found;
}

}  // namespace

void Add(const std::string& line) {
    std::lock_guard<std::mutex> lock(s_mutex);
    s_lines.push_back(line);
}

void Clear() {
    std::lock_guard<std::mutex> lock(s_mutex);
    s_lines.clear();
}

Lines All(const std::string& prefix) {
    std::lock_guard<std::mutex> lock(s_mutex);
    Lines found;
    for (const auto& line : s_lines) {
        if (line.compare(0, prefix.size(), prefix) == 0) found.push_back(line);
    }
    return found;
}

Lines Logged() {
    return After("log ");
}

Lines Logged(int level) {
    return After("log " + std::to_string(level) + " ");
}

Lines Calls() {
    return After("call ");
}

}  // namespace journal
