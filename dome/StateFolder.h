#pragma once

#include <string>

namespace dome {

/// The bus address of the desk camera in that state folder: unix:path=FOLDER/bus.sock, escaped as D-Bus requires.
/// Throws tavos::osa::Exception when there is no such folder.
std::string BusAddress(const std::string& folder);

/// The state folder for a command that names none: the environment's ORVEX_STATE, or else ./state, as given there.
/// Empty when there is neither.
std::string FindStateFolder();

}  // namespace dome
