#pragma once

namespace tavos::msgbus {

/// A switch in the environment: false for "off". Any word other than "on" and "off" counts as on and
/// is named in an Error line.
bool IsOn(const char* variable);

}  // namespace tavos::msgbus
