#pragma once

#include <string>
#include <vector>

namespace dome {

/// `domectl trace`: shows what the agent was asked and what the camera made of it. `state` is the camera's folder,
/// `bus` its bus's address, `words` the options after "trace". Returns the exit status, 2 for options that it does not
/// know. Throws tavos::osa::Exception when neither the agent nor the camera can be reached.
int Trace(const std::string& state, const std::string& bus, const std::vector<std::string>& words);

/// Its lines in the usage.
extern const char* const kTraceUsage;

}  // namespace dome
