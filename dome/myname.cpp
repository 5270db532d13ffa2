// The identity command: prints this camera's identity from the settings store.

#include <cstdio>
#include <exception>
#include <optional>
#include <string>

#include "tavos/core/CommandLine.h"
#include "tavos/core/Logger.h"
#include "tavos/osa/Exception.h"
#include "tavos/settings/TavosSettingsClient.h"

namespace {

using tavos::core::CommandLine;
using tavos::osa::Exception;
using tavos::settings::TavosSettingsClient;

std::string Get(const TavosSettingsClient& settings, const char* name) {
    const std::string key = std::string("[Device/ReadOnly]") + name;
    const std::string value = settings.GetValue(key);
    if (value.empty()) throw Exception("the settings store has no %s; set it with tavos-settings", key.c_str());
    return value;
}

std::string Identity(const CommandLine& line) {
    const TavosSettingsClient settings(TavosSettingsClient::kReadOnly);
    if (line.count("-m") != 0) return Get(settings, "ModelNumber");
    if (line.count("-s") != 0) return Get(settings, "SerialNumber");
    return Get(settings, "AssemblyId") + "-" + Get(settings, "AssemblyVersion");
}

}  // namespace

int main(int argc, char** argv) {
    CommandLine line("myname", "Prints who the desk camera is.");
    line.add_flag("-m", "the model number");
    line.add_flag("-s", "the serial number");
    line.add_flag("-w", "the hardware version: assembly identifier and version, with a hyphen between");
    line.require_option(1);
    if (const std::optional<int> status = line.Parse(argc, argv)) return *status == 0 ? 0 : 1;
    tavos::core::Logger::ClearAppenders();  // only the answer may go to standard output
    try {
        const std::string identity = Identity(line);
        std::printf("%s\n", identity.c_str());
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "myname: %s\n", error.what());
        return 1;
    }
}
