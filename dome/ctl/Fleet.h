#pragma once

#include <string>
#include <vector>

namespace dome {

/// Has the cameras of a fleet's folder carry out one command, one after the other. Prints each line of an answer after
/// the camera's number and a colon; reports a camera that refuses or does not answer on standard error, and goes on
/// with the next. `only` names the cameras, "1,4-6" for example; empty: all.
///
/// The exit status of domectl: 0, 1 if a camera did not carry it out, 2 for an unknown word. Throws
/// tavos::osa::Exception for a folder without a fleet, or when `only` names other cameras.
int CommandFleet(const std::string& folder, const std::string& only, const std::vector<std::string>& words);

}  // namespace dome
