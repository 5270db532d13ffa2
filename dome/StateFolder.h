#pragma once

#include <string>

namespace dome {

/// The bus address of the desk camera in that state folder: unix:path=FOLDER/bus.sock, escaped as D-Bus requires.
/// Throws tavos::osa::Exception when there is no such folder.
std::string BusAddress(const std::string& folder);

/// The state folder for a command that names none: the environment's ORVEX_STATE, or else ./state, as given there.
/// Empty when there is neither.
std::string FindStateFolder();

/// How many cameras the fleet in that folder has, in its folders 1, 2, ...; 0 when there is no fleet.
int FleetSize(const std::string& folder);

/// The folder of the fleet whose member the camera in that state folder is; empty for a camera that stands alone, and
/// for a folder of another user than this process's and root.
std::string FleetOf(const std::string& state);

}  // namespace dome
