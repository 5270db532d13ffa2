#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "tavos/settings/TavosSettingsClient.h"

namespace dome {

struct Camera;

/// The camera and the settings store: the auto focus follows "[Imaging/Focus]Mode", and under "[Dome/State]" stands
/// what the camera keeps over a restart. Without a store nothing is followed or kept.
class SettingsLink {
public:
    using Clock = std::chrono::steady_clock;

    /// Of the store's file and the file of its latest changes: a change of the store changes this.
    struct Stamp {
        bool exists = false;
        std::int64_t size = 0, time = 0, logSize = 0, logTime = 0;
        bool operator==(const Stamp& other) const {
            return exists == other.exists && size == other.size && time == other.time && logSize == other.logSize &&
                   logTime == other.logTime;
        }
    };

    /// `store` is the file that TAVOS_SETTINGS_STORE names, `keepPosition` whether positions are kept as the relays
    /// are. The camera must outlive this.
    SettingsLink(Camera& camera, std::string store, bool keepPosition);

    /// Before the camera is served: puts it as it was. What does not fit it any more (a relay that is gone, a text that
    /// is none of ours) is left out.
    void Restore();

    /// To be called when relays have changed and before anybody is told so: what was acknowledged survives a kill of
    /// the camera. Mostly takes a fraction of a millisecond; some where the disk has to be waited for, and a tenth of a
    /// second when another process is storing. After a refusal nothing is noted for a second: Work stores the relays.
    void KeepRelays();

    /// To be called now and then. At most once a second it looks whether the store's files have changed, and only then
    /// reads it; and when the camera is at rest and other than it was stored, it writes. A store that refuses is left
    /// alone for ten seconds.
    void Work(Clock::time_point now);

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
    void PlaceRelays(const std::string& text);
    void PlaceLensAndHead(const std::string& text);

    Camera& _camera;
    const std::string _store;
    const bool _keepPosition;
    tavos::settings::TavosSettingsClient _settings{tavos::settings::TavosSettingsClient::kReadWrite};
    Stamp _seen;
    std::string _focusMode = "Auto";
    Kept _kept;
    Clock::time_point _next{}, _nextNote{};
};

}  // namespace dome
