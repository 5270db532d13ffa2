#include "StateFolder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "tavos/osa/Exception.h"

namespace dome {

namespace {

/// Another user's folder could name any addresses as those of its cameras.
bool IsOfThisUser(const std::string& file) {
    struct stat status {};
    return stat(file.c_str(), &status) == 0 && (status.st_uid == geteuid() || status.st_uid == 0);
}

}  // namespace

std::string BusAddress(const std::string& folder) {
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error)) {
        throw tavos::osa::Exception("no such state folder: %s", folder.c_str());
    }
    std::string address = "unix:path=";
    for (const char c : (std::filesystem::absolute(folder) / "bus.sock").string()) {
        const auto octet = static_cast<unsigned char>(c);
        if (std::isalnum(octet) || (c != '\0' && std::strchr("-_/.*", c))) {
            address += c;
        } else {
            char escaped[4];
            std::snprintf(escaped, sizeof escaped, "%%%02x", octet);
            address += escaped;
        }
    }
    return address;
}

std::string FindStateFolder() {
    const char* const named = std::getenv("ORVEX_STATE");
    if (named && *named) return named;
    std::error_code error;
    return std::filesystem::is_directory("state", error) ? "state" : "";
}

int FleetSize(const std::string& folder) {
    constexpr int kMaxSize = 9999;
    const std::string file = folder + "/fleet";
    std::error_code error;
    int size = 0;
    // To open another kind of file could block.
    if (std::filesystem::is_regular_file(file, error)) std::ifstream(file) >> size;
    return size > 0 && size <= kMaxSize ? size : 0;
}

std::string FleetOf(const std::string& state) {
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::canonical(state, error);
    const std::string name = folder.filename().string();
    if (error || name.empty() || name.find_first_not_of("0123456789") != std::string::npos) return "";
    const std::string parent = folder.parent_path().string();
    return IsOfThisUser(parent) && IsOfThisUser(parent + "/fleet") && FleetSize(parent) != 0 ? parent : "";
}

}  // namespace dome
