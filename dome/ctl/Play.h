#pragma once

#include <string>
#include <vector>

namespace dome {

/// `domectl play`: replaces this process by orvex-session, which plays the scenario on the camera of the folder `state`
/// through this domectl. `bus` is its bus's address, empty for the one in the folder; `words` are the options after
/// "play". Returns only by throwing tavos::osa::Exception: when orvex-session cannot be started.
[[noreturn]] void Play(const std::string& state, const std::string& bus, const std::vector<std::string>& words);

/// Its lines in the usage.
extern const char* const kPlayUsage;

}  // namespace dome
