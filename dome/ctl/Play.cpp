#include "Play.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "tavos/osa/Exception.h"

namespace dome {

const char* const kPlayUsage = R"(
  play [--pace X] FILE                   plays a scenario, a TOML file, on the camera's clock; see docs/python.md
      --pace X                           the camera's seconds a second; by default as fast as it can)";

void Play(const std::string& state, const std::string& bus, const std::vector<std::string>& words) {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) throw tavos::osa::Exception("play: /proc/self/exe cannot be read: %s", error.message().c_str());
    const std::string player = self.parent_path() / "orvex-session";
    std::vector<std::string> command{player, "play", "--domectl", self, "--state", state};
    if (!bus.empty()) command.insert(command.end(), {"--bus", bus});
    command.insert(command.end(), words.begin(), words.end());

    std::vector<char*> arguments;
    for (std::string& word : command) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    execv(player.c_str(), arguments.data());
    throw tavos::osa::Exception("play: %s cannot be started: %s; the package python3-orvex-camera has it",
                                player.c_str(), std::strerror(errno));
}

}  // namespace dome
