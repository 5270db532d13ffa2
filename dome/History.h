#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "BoundedList.h"
#include "CallLog.h"
#include "HistoryEntries.h"
#include "ModelClock.h"
#include "dome/services/Services.h"
#include "tavos/msgbus/ServiceHost.h"

namespace dome {

/// What happened to the camera, in order: calls, motions, actions and events, each in a bounded list of its own, so
/// that many of one kind leave the others alone. It needs no timer: a move's end is noted when the camera's clock is
/// advanced.
class History {
public:
    static constexpr std::size_t kMaxMotions = 10000;
    static constexpr std::size_t kMaxActions = 5000;
    static constexpr std::size_t kMaxEvents = 10000;
    static constexpr std::size_t kMaxBytes = 2 * 1024 * 1024;  ///< of each list
    static constexpr std::size_t kMaxAnswer = 256 * 1024;      ///< of Since, unless one line alone is longer

    /// Observes the camera's axes, which must be at rest, and the services' events: nobody may use them after the
    /// history is destroyed.
    History(Camera& camera, Services& services, const ModelClock& clock, CallLog& calls);
    History(const History&) = delete;
    History& operator=(const History&) = delete;

    /// While it lives, motions and events begin with its cause. Ends before the one around it.
    class [[nodiscard]] Because {
    public:
        Because(History& history, Cause cause)
            : _current(history._cause), _before(std::exchange(_current, std::move(cause))) {}
        ~Because() { _current = std::move(_before); }
        Because(const Because&) = delete;
        Because& operator=(const Because&) = delete;

    private:
        Cause& _current;
        Cause _before;
    };
    const Cause& CurrentCause() const { return _cause; }

    /// Notes a call that is about to be served; it is the current cause until TimePasses.
    void AddCall(const std::string& service, const tavos::msgbus::ReceivedCall& call, const std::string& outcome);

    /// What was served is done: what begins now has no cause but the camera's own.
    void TimePasses() { _cause = {}; }

    /// Notes an action of `by` ("page" or "domectl") and carries it out. `work` returns why the camera did nothing, or
    /// nothing; the text of its exception, which is passed on, is noted as that, too.
    void Act(const char* by, const std::vector<std::string>& words, const std::function<std::string()>& work);

    /// What has changed after the given change: a head line and then one JSON object a line, in the order of the
    /// changes, as docs/dome.md describes them. Throws tavos::osa::Exception for a change that has not happened.
    std::string Since(std::uint64_t change) const;

private:
    struct Watched {
        const char* name;
        const Axis* axis;
        bool isWhole;  ///< reports whole positions
    };
    MoveObserver Watch(const Watched& watched);
    void Began(const Watched& watched, MoveStart start);
    void Ended(const Watched& watched, MoveEnd how);
    Motion& Moving(const Watched& watched);
    void OnTemperature(int sensor, int degrees);
    void OnVoltage(int status);
    void OnPower(int status);
    void AddEvent(const char* event, std::optional<int> sensor, int value);
    Moment Now() const;

    const ModelClock& _clock;
    CallLog& _calls;
    const std::int64_t _started;
    Cause _cause;
    std::uint64_t _changes = 0;
    std::uint64_t _motionCount = 0;
    std::uint64_t _actionCount = 0;
    std::uint64_t _eventCount = 0;
    std::vector<Motion> _moving;                           // one an axis at most
    BoundedList<Motion> _motions{kMaxMotions, kMaxBytes};  // those that have ended, in the order of their ends
    BoundedList<Action> _actions{kMaxActions, kMaxBytes};
    BoundedList<EmittedEvent> _events{kMaxEvents, kMaxBytes};
};

}  // namespace dome
