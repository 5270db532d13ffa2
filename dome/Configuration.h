#pragma once

#include <string>

#include "dome/model/Camera.h"

namespace dome {

/// What a configuration file may change about the desk camera; dome/desk.toml describes every key.
struct Configuration {
    CameraProperties camera;
    bool keepPosition = false;
};

/// Throws tavos::osa::Exception, one line of text that begins with FILE:LINE, for a file that cannot be read, a key
/// that is not known, a value of another type and one out of range.
Configuration ReadConfiguration(const std::string& file);

}  // namespace dome
