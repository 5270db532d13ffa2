#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "dome/model/Axis.h"

namespace dome {

/// When something happened.
struct Moment {
    std::int64_t time = 0;  ///< nanoseconds since 1970
    double clock = 0;       ///< seconds of the camera's own clock, to the end of the tick (20 ms)
};

/// Why a motion began, or was stopped, or an event was emitted.
struct Cause {
    enum class Kind {
        kNone,    ///< nobody asked for it
        kCall,    ///< a service call
        kAction,  ///< what the page or domectl did
        kNamed    ///< `name` alone: "auto focus", "settings" or "drift"
    };
    Kind kind = Kind::kNone;
    std::string name{};        ///< of a call: its sender
    std::uint64_t number = 0;  ///< of a call: its serial; of an action: its number
};

/// Numbers count up from 1 within their kind of entry. `change` counts all changes of the history, from 1.

struct ServiceCall {
    std::uint64_t change;
    std::uint64_t number;
    Moment moment;
    std::string line;  ///< a JSON object with its end of line: service, call, args, outcome
    std::string sender;
    std::uint64_t serial;
    std::size_t Bytes() const { return line.size(); }
};

struct Motion {
    struct Ended {
        MoveEnd how;
        Moment moment;
        double position;
        std::uint64_t replacement;  ///< the number of the motion that replaced it, or 0
    };
    std::uint64_t change;  ///< of its end, once it has ended
    std::uint64_t number;
    Moment moment;
    const char* axis;
    bool isWhole;  ///< its positions are whole numbers
    Cause cause;
    MoveStart start;
    std::optional<Ended> ended;
    Cause endedBy;  ///< who stopped or replaced it, or set the position
    std::size_t Bytes() const { return sizeof *this + cause.name.size() + endedBy.name.size(); }
};

struct Action {
    std::uint64_t change;
    std::uint64_t number;
    Moment moment;
    const char* by;  ///< "page" or "domectl"
    std::vector<std::string> words;
    std::string refused;  ///< why the camera did nothing; empty: it did it
    std::size_t Bytes() const;
};

struct EmittedEvent {
    std::uint64_t change;
    std::uint64_t number;
    Moment moment;
    const char* event;          ///< "temperature", "voltage" or "power"
    std::optional<int> sensor;  ///< of a temperature
    int value;
    Cause cause;
    std::size_t Bytes() const { return sizeof *this + cause.name.size(); }
};

/// One JSON object with its end of line; docs/dome.md describes the members.
std::string Line(const ServiceCall& call);
std::string Line(const Motion& motion);
std::string Line(const Action& action);
std::string Line(const EmittedEvent& event);

}  // namespace dome
