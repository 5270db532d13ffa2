#pragma once

#include <string>
#include <vector>

namespace dome {

class ControlLink;

/// `domectl wait`: returns when none of the named axes moves, without names when nothing moves. `words` are those after
/// "wait". Returns the exit status: 1 at the timeout and when the camera refuses, 2 for a word that it does not know;
/// each with one line on standard error. Throws tavos::osa::Exception when the camera does not answer.
int Wait(ControlLink& camera, const std::vector<std::string>& words);

/// Its lines in the usage.
extern const char* const kWaitUsage;

}  // namespace dome
