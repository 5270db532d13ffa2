#pragma once

#include <limits>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "CallLog.h"
#include "Faults.h"
#include "ModelClock.h"
#include "dome/services/Services.h"

namespace dome {

/// What domectl can ask of the running camera; domectl's usage text tells the commands.
class Control {
public:
    Control(Camera& camera, ModelClock& clock, Services& services, CallLog& calls, Faults& faults)
        : _camera(camera), _clock(clock), _services(services), _calls(calls), _faults(faults) {}

    /// Carries out one command and returns what is to be printed. Throws tavos::osa::Exception, with one line of
    /// text and the camera unchanged, for one that cannot be carried out.
    std::string Execute(const std::vector<std::string>& words);

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
    void SetBank(Banks& banks, const std::vector<std::string>& arguments);
    void ReplaceBanks(const std::vector<std::string>& arguments);
    void FireEvents(const std::vector<std::string>& arguments);

    Camera& _camera;
    ModelClock& _clock;
    Services& _services;
    CallLog& _calls;
    Faults& _faults;
};

}  // namespace dome
