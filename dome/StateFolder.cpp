#include "StateFolder.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "tavos/osa/Exception.h"

namespace dome {

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

}  // namespace dome
