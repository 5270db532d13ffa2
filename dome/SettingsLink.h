#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "StoreWatch.h"
#include "tavos/settings/TavosSettingsClient.h"

namespace dome {

struct Camera;

/// Connects the camera with the settings store: the auto focus follows "[Imaging/Focus]Mode", and "[Dome/State]" keeps
/// the camera's state over a restart. Without a store it does neither.
class SettingsLink {
public:
    using Clock = std::chrono::steady_clock;

    /// Size and time of the store's file and of the log beside it: a change of the store changes them.
    struct Stamp {
        bool exists = false;
        std::int64_t size = 0, time = 0, logSize = 0, logTime = 0;
        bool operator==(const Stamp& other) const {
            return exists == other.exists && size == other.size && time == other.time && logSize == other.logSize &&
                   logTime == other.logTime;
        }
    };

    /// `store` is the file that TAVOS_SETTINGS_STORE names; with `keepPosition` positions are kept, too, not only
    /// relays. The camera must outlive this.
    SettingsLink(Camera& camera, std::string store, bool keepPosition);

    /// Restores the camera's state; call it before the camera is served. Skips values that no longer fit, such as the
    /// state of a relay that is gone, or malformed text.
    void Restore();

    /// The camera's serial number as the store has it now; empty without one.
    std::string SerialNumber() const;

    /// Call it when relays have changed, before the change is acknowledged: then the change survives a kill of the
    /// camera. The store stays open until the next Work that looks at it, at most a second later, ten after a failure
    /// of Work. Usually takes some tens of microseconds, some milliseconds when it waits for the disk, and up to a
    /// tenth of a second while another process is storing. After a failure it does nothing for a second; Work then
    /// stores the relays.
    void KeepRelays();

    /// Call it after each change of the camera, when Descriptor is readable, and when the time of NextWork has come. At
    /// most once a second it checks whether the store's files have changed, and reads the store only then. It writes
    /// when the camera is at rest and its state differs from the stored one. After a failure it leaves the store alone
    /// for ten seconds.
    void Work(Clock::time_point now);

    /// Readable when the store may have changed since the last Work.
    int Descriptor() const { return _watch.Descriptor(); }

    /// When Work must be called although nothing has happened; Clock::time_point::max() for never. It is never unless
    /// Work has just come too early, has failed, or cannot watch the store's files and must look once a second.
    Clock::time_point NextWork() const { return _watch.IsArmed() ? Clock::time_point::max() : _next; }

private:
    struct Kept {
        std::string relays;
        std::string positions;
    };

    Stamp Look() const;
    void Follow();
    void Keep();
    std::string RelaysAsText() const;
    Kept Picture() const;
    void RestoreRelays(const std::string& text);
    void RestoreLensAndHead(const std::string& text);

    Camera& _camera;
    const std::string _store;
    const bool _keepPosition;
    StoreWatch _watch{_store};
    tavos::settings::TavosSettingsClient _settings{tavos::settings::TavosSettingsClient::kReadWrite};
    Stamp _seen;
    std::string _focusMode = "Auto";
    Kept _kept;
    Clock::time_point _next{}, _nextNote{};
};

}  // namespace dome
