#include "tavos/msgbus/Pings.h"

#include <algorithm>

namespace tavos::msgbus {

using namespace std::chrono_literals;

namespace {

/// A service that is only stopped answers the first ping when it continues; a second one is for a ping that was lost.
/// The bus queues the pings that a silent service does not read, so they must be few.
constexpr std::chrono::microseconds kPatience = 10s;
constexpr auto kPause = 200ms;

}  // namespace

int Pings::OnAnswer(sd_bus_message* answer, void* question, sd_bus_error*) {
    auto& asked = *static_cast<Question*>(question);
    asked.ended = true;
    asked.again = Clock::now() + kPause;
    const sd_bus_error* const error = sd_bus_message_get_error(answer);
    const bool ended = error && (sd_bus_error_has_name(error, SD_BUS_ERROR_SERVICE_UNKNOWN) > 0 ||
                                 sd_bus_error_has_name(error, SD_BUS_ERROR_NAME_HAS_NO_OWNER) > 0);
    if (ended) {
        asked.silent->Ended(asked.service);
    } else if (!error || IsAnswer(error->name)) {
        asked.silent->Heard(asked.service);
    }
    return 0;
}

void Pings::Ask(const SilentServices::Question& about) {
    sd_bus_message* made = nullptr;
    CheckBus(sd_bus_message_new_method_call(_bus, &made, about.service.c_str(), about.path.c_str(),
                                            "org.freedesktop.DBus.Peer", "Ping"));
    const MessagePtr ping(made);
    CheckBus(sd_bus_message_set_auto_start(made, 0));
    Question& question = _asked[about.service] = {};
    question.silent = &_silent;
    question.service = about.service;
    sd_bus_slot* slot = nullptr;
    CheckBus(sd_bus_call_async(_bus, &slot, made, OnAnswer, &question, kPatience.count()));
    question.slot.reset(slot);
}

Clock::time_point Pings::Send() {
    auto next = Clock::time_point::max();
    const auto now = Clock::now();
    for (const auto& question : _silent.Questions()) {
        auto due = question.due;
        const auto asked = _asked.find(question.service);
        if (asked != _asked.end()) {
            if (!asked->second.ended) continue;
            due = std::max(due, asked->second.again);
        }
        if (due <= now) {
            Ask(question);
        } else {
            next = std::min(next, due);
        }
    }
    return next;
}

}  // namespace tavos::msgbus
