#pragma once

#include <cstdint>
#include <limits>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "CallLog.h"
#include "EventQueue.h"
#include "Faults.h"
#include "History.h"
#include "ModelClock.h"
#include "dome/services/Services.h"

namespace dome {

/// Carries out domectl's commands on the running camera; domectl's usage text lists them.
class Control {
public:
    Control(Camera& camera, ModelClock& clock, Services& services, CallLog& calls, Faults& faults, History& history)
        : _camera(camera), _clock(clock), _services(services), _calls(calls), _faults(faults), _history(history) {}

    struct Answer {
        std::string text;        ///< for domectl to print
        std::uint64_t more = 0;  ///< not 0: still running; the command "more" with this number asks for progress
    };

    /// Carries out one command. Throws tavos::osa::Exception with one line of text when it cannot, a WrongWord for a
    /// word that it does not know; the camera is then unchanged.
    Answer Execute(const std::vector<std::string>& words);

    /// True for a command that changes the camera, its clock or its faults, or emits events, if it is carried out.
    static bool IsAction(const std::vector<std::string>& words);

    /// While events wait, EmitEvents must be called repeatedly; each call emits some of them.
    bool HasEvents() const { return !_events.IsEmpty(); }
    void EmitEvents();

    static constexpr std::size_t kAllPoints = std::numeric_limits<std::size_t>::max();

    /// The whole camera as JSON, without its clock, so that the text of a camera at rest does not change. With more
    /// than `maxPoints` inputs or relays it shows only the first ones of each and contains "shortened": true.
    std::string State(std::size_t maxPoints = kAllPoints) const;

private:
    nlohmann::ordered_json Picture(std::size_t maxPoints) const;
    std::string StateAndClock() const;
    void SetClock(const std::vector<std::string>& arguments);
    std::string Calls(const std::vector<std::string>& arguments);
    std::string Moving(const std::vector<std::string>& axes) const;
    std::string ReadHistory(const std::vector<std::string>& arguments) const;
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
    History& _history;
    EventQueue _events;
};

}  // namespace dome
