#pragma once

#include <string>

#include "dome/model/Camera.h"

namespace dome {

/// The desk camera's configuration; dome/desk.toml describes every key of the file.
struct Configuration {
    CameraProperties camera;
    bool keepPosition = false;
};

/// Throws tavos::osa::Exception, one line of text that begins with FILE:LINE, for a file that cannot be read, an
/// unknown key, or a value of the wrong type or out of range.
Configuration ReadConfiguration(const std::string& file);

}  // namespace dome
