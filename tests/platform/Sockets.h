#pragma once

#include <filesystem>
#include <set>
#include <string>

/// This process's open sockets.
inline std::set<std::string> Sockets() {
    std::set<std::string> sockets;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        const auto target = std::filesystem::read_symlink(entry, error).string();
        if (target.find("socket:") == 0) sockets.insert(target);
    }
    return sockets;
}
