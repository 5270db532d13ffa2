#include "support/Journal.h"

#include <mutex>
#include <utility>

namespace journal {

namespace {

std::mutex s_mutex;
Lines s_lines;
std::function<void(const std::string&)> s_watcher;

Lines After(const std::string& prefix) {
    Lines found;
    for (const auto& line : All(prefix)) found.push_back(line.substr(prefix.size()));
    return found;
}

}  // namespace

void Add(const std::string& line) {
    std::unique_lock<std::mutex> lock(s_mutex);
    s_lines.push_back(line);
    if (!s_watcher) return;
    const auto watcher = s_watcher;
    lock.unlock();
    watcher(line);
}

void Clear() {
    std::lock_guard<std::mutex> lock(s_mutex);
    s_lines.clear();
}

void Watch(std::function<void(const std::string&)> watcher) {
    std::lock_guard<std::mutex> lock(s_mutex);
    s_watcher = std::move(watcher);
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
