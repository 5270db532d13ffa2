#include "SettingsLink.h"

#include <sys/stat.h>

#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <utility>

#include "OneLine.h"
#include "dome/model/Camera.h"
#include "tavos/core/IniFile.h"
#include "tavos/osa/Exception.h"

namespace dome {

namespace {

using nlohmann::json;
using Client = tavos::settings::TavosSettingsClient;
using tavos::osa::Exception;
using namespace std::chrono_literals;

constexpr auto kLookEvery = 1s;
constexpr auto kLeaveAlone = 10s;
const char* const kSection = "Dome/State";
const char* const kRelays = "Relays";
const char* const kPositions = "Positions";

std::int64_t Nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

bool Exists(const std::string& file) {
    struct stat status {};
    return stat(file.c_str(), &status) == 0;
}

/// The object's number if it is within the range, else NaN.
double Number(const json& object, const char* key, double min, double max) {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_number()) return std::nan("");
    const double number = found->get<double>();
    return number >= min && number <= max ? number : std::nan("");
}

template <class Drive>
void RestorePosition(Drive& drive, const Axis& axis, const json& positions, const char* key) {
    const double position = Number(positions, key, axis.Minimum(), axis.Maximum());
    if (!std::isnan(position)) drive.JumpTo(position);
}

json Parsed(const std::string& text) {
    json parsed = json::parse(text, nullptr, false);
    return parsed.is_object() ? parsed : json::object();
}

}  // namespace

SettingsLink::SettingsLink(Camera& camera, std::string store, bool keepPosition)
    : _camera(camera), _store(std::move(store)), _keepPosition(keepPosition) {}

SettingsLink::Stamp SettingsLink::Look() const {
    Stamp stamp;
    std::error_code error;  // the log is beside the target of symbolic links
    const std::string store = std::filesystem::canonical(_store, error).string();
    struct stat status {};
    if (error || stat(store.c_str(), &status) != 0) return stamp;
    stamp.exists = true;
    stamp.size = status.st_size;
    stamp.time = Nanoseconds(status.st_mtim);
    // A reader may leave an empty log, which is not a change.
    if (stat((store + "-wal").c_str(), &status) == 0 && status.st_size > 0) {
        stamp.logSize = status.st_size;
        stamp.logTime = Nanoseconds(status.st_mtim);
    }
    return stamp;
}

void SettingsLink::Restore() {
    _seen = Look();
    if (_seen.exists) {
        try {
            Follow();
            tavos::core::IniFile kept;
            _settings.GetSettings(kSection, kept);
            RestoreRelays(kept.GetValue(kSection, kRelays));
            if (_keepPosition) RestoreLensAndHead(kept.GetValue(kSection, kPositions));
        } catch (const Exception&) {
            _seen = Stamp();  // already logged; Work retries at its next check
        }
    }
    _kept = Picture();
}

std::string SettingsLink::SerialNumber() const {
    if (!Look().exists) return "";
    try {
        return _settings.GetValue("[Device/ReadOnly]SerialNumber");
    } catch (const Exception&) {
        return "";  // already logged
    }
}

void SettingsLink::Work(Clock::time_point now) {
    // Whatever the watch has seen, or the camera has changed: this call or one at _next looks at it.
    _watch.Disarm();
    if (now < _next) return;
    _next = now + kLookEvery;
    _settings.Release();
    _watch.Arm();  // before the look: a change after it is seen
    const Stamp stamp = Look();
    if (!stamp.exists) return;
    try {
        if (!(stamp == _seen)) Follow();
        _seen = stamp;  // taken before the read: a change during the read is seen next time
        if (!_camera.IsMoving()) Keep();
    } catch (const Exception&) {
        _next = now + kLeaveAlone;
        _watch.Disarm();
    }
}

void SettingsLink::KeepRelays() {
    _kept.relays.clear();  // Work must store the relays durably, even if this write succeeds
    const auto now = Clock::now();
    if (now < _nextNote || !Exists(_store)) return;
    try {
        tavos::core::IniFile changed;
        changed.SetValue(kSection, kRelays, RelaysAsText());
        _settings.SetSettings(changed, Client::Survives::kKill);
    } catch (const Exception&) {
        _nextNote = now + kLookEvery;
    }
}

void SettingsLink::Follow() {
    const std::string mode = _settings.GetValue("[Imaging/Focus]Mode");
    if (mode == _focusMode) return;  // keeps a later change by a service
    _focusMode = mode;
    const bool isAuto = mode != "Manual";
    if (isAuto != _camera.focus.IsAuto()) _camera.focus.SetAuto(isAuto);
}

void SettingsLink::Keep() {
    Kept kept = Picture();
    tavos::core::IniFile changed;
    if (kept.relays != _kept.relays) changed.SetValue(kSection, kRelays, kept.relays);
    if (kept.positions != _kept.positions) changed.SetValue(kSection, kPositions, kept.positions);
    if (changed.Sections().empty()) return;
    _settings.SetSettings(changed);
    _kept = std::move(kept);
}

std::string SettingsLink::RelaysAsText() const {
    json relays = json::object();
    for (const Banks::Bank& bank : _camera.relays.All()) {
        std::string states;
        for (const bool energised : bank.states) states += energised ? '1' : '0';
        relays[bank.name] = states;
    }
    return OneLine(relays);
}

SettingsLink::Kept SettingsLink::Picture() const {
    Kept kept;
    kept.relays = RelaysAsText();
    if (!_keepPosition) return kept;
    const json positions = {{"pan", _camera.pan.Position()},
                            {"tilt", _camera.tilt.Position()},
                            {"zoom", _camera.zoom.Drive().Position()},
                            {"focus", _camera.focus.Percent()},
                            {"iris", _camera.iris.Percent()}};
    kept.positions = positions.dump();
    return kept;
}

void SettingsLink::RestoreRelays(const std::string& text) {
    const json relays = Parsed(text);
    for (const Banks::Bank& bank : std::vector<Banks::Bank>(_camera.relays.All())) {
        const auto found = relays.find(bank.name);
        if (found == relays.end() || !found->is_string()) continue;
        const std::string states = found->get<std::string>();
        for (std::size_t i = 0; i < bank.states.size() && i < states.size(); ++i) {
            _camera.relays.Set(bank.name, static_cast<int>(i), states[i] == '1');
        }
    }
}

void SettingsLink::RestoreLensAndHead(const std::string& text) {
    const json positions = Parsed(text);
    RestorePosition(_camera.pan, _camera.pan, positions, "pan");
    RestorePosition(_camera.tilt, _camera.tilt, positions, "tilt");
    RestorePosition(_camera.zoom, _camera.zoom.Drive(), positions, "zoom");
    RestorePosition(_camera.focus, _camera.focus.Drive(), positions, "focus");
    RestorePosition(_camera.iris, _camera.iris.Drive(), positions, "iris");
}

}  // namespace dome
