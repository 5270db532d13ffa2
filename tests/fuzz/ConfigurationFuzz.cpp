#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "Bytes.h"
#include "dome/Configuration.h"
#include "dome/model/Camera.h"
#include "tavos/osa/Exception.h"

// The desk camera's configuration: a text is accepted, with every value in its range, or refused with one line that
// names the file.

namespace {

void CheckWithin(const dome::Axis& axis) {
    MUST(axis.Position() >= axis.Minimum() && axis.Position() <= axis.Maximum(), "%f, %f to %f", axis.Position(),
         axis.Minimum(), axis.Maximum());
}

/// Every accepted text gives a camera that moves within its limits.
void CheckCamera(const dome::CameraProperties& properties) {
    dome::Camera camera(properties);
    camera.pan.MoveAt(1, 300);
    camera.tilt.MoveAt(-1, 300);
    camera.zoom.Move(1, 300);
    for (int tick = 0; tick < 10; ++tick) {
        camera.Tick(0.02);
        CheckWithin(camera.pan);
        CheckWithin(camera.tilt);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int file = memfd_create("configuration", MFD_CLOEXEC);
    static const std::string name = "/proc/self/fd/" + std::to_string(file);
    MUST(ftruncate(file, 0) == 0 && pwrite(file, data, size, 0) == static_cast<ssize_t>(size), "memory file");
    try {
        CheckCamera(dome::ReadConfiguration(name).camera);
    } catch (const tavos::osa::Exception& exception) {
        const std::string reason = exception.what();
        MUST(reason.compare(0, name.size() + 1, name + ":") == 0 && reason.find('\n') == std::string::npos, "%s",
             reason.c_str());
    }
    return 0;
}
