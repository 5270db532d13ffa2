// The identity command: prints this camera's identity from the settings store.

#include <cstdio>
#include <exception>
#include <string>

#include "tavos/core/Logger.h"
#include "tavos/osa/Exception.h"
#include "tavos/settings/TavosSettingsClient.h"

namespace {

using tavos::osa::Exception;
using tavos::settings::TavosSettingsClient;

std::string Get(const TavosSettingsClient& settings, const char* name) {
    const std::string key = std::string("[Device/ReadOnly]") + name;
    const std::string value = settings.GetValue(key);
    if (value.empty()) throw Exception("the settings store has no %s; set it with tavos-settings", key.c_str());
    return value;
}

std::string Identity(int argc, char** argv) {
    const std::string option = argc == 2 ? argv[1] : "";
    const TavosSettingsClient settings(TavosSettingsClient::kReadOnly);
    if (option == "-m") return Get(settings, "ModelNumber");
    if (option == "-s") return Get(settings, "SerialNumber");
    if (option == "-w") return Get(settings, "AssemblyId") + "-" + Get(settings, "AssemblyVersion");
    throw Exception("usage: myname -m|-s|-w");
}

}  // namespace

int main(int argc, char** argv) {
    tavos::core::Logger::ClearAppenders();  // only the answer may go to standard output
    try {
        const std::string identity = Identity(argc, argv);
        std::printf("%s\n", identity.c_str());
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "myname: %s\n", error.what());
        return 1;
    }
}
