#pragma once

#include <cstdint>
#include <limits>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "CallLog.h"
#include "EventRows.h"
#include "Faults.h"
#include "ModelClock.h"
#include "dome/services/Services.h"

namespace dome {

/// What domectl can ask of the running camera; domectl's usage text tells the commands.
class Control {
public:
    Control(Camera& camera, ModelClock& clock, Services& services, CallLog& calls, Faults& faults)
        : _camera(camera), _clock(clock), _services(services), _calls(calls), _faults(faults) {}

    struct Answer {
        std::string text;        ///< to be printed
        std::uint64_t more = 0;  ///< not 0: it goes on, and the command "more", with this number, tells how it stands
    };

    /// Carries out one command. Throws tavos::osa::Exception, with one line of text and the camera unchanged, for one
    /// that cannot be carried out.
    Answer Execute(const std::vector<std::string>& words);

    /// While events wait to be told, TellEvents is to be called again and again; it tells some of them.
    bool HasEvents() const { return !_events.IsEmpty(); }
    void TellEvents();

    static constexpr std::size_t kAllPoints = std::numeric_limits<std::size_t>::max();

    /// The whole camera, as JSON; not its clock, so that a camera at rest stays the same text. With more inputs or more
    /// relays than `mostPoints` it shows the first ones of each only and says so ("shortened": true).
    std::string State(std::size_t mostPoints = kAllPoints) const;

private:
    nlohmann::ordered_json Picture(std::size_t mostPoints) const;
    std::string StateAndClock() const;
    void SetClock(const std::vector<std::string>& arguments);
    std::string Calls(const std::vector<std::string>& arguments);
    void Set(const std::vector<std::string>& arguments);
    void SetMaxZoom(const std::string& value);
    int ParseSensor(const std::string& text) const;
    void SetBank(Banks& banks, const std::vector<std::string>& arguments);
    void ReplaceBanks(const std::vector<std::string>& arguments);
    std::uint64_t AddEvents(const std::vector<std::string>& arguments);
    Answer Progress(std::uint64_t lastEvent) const;

    Camera& _camera;
    ModelClock& _clock;
    Services& _services;
    CallLog& _calls;
    Faults& _faults;
    EventRows _events;
};

}  // namespace dome
