#include "tavos/msgbus/Pings.h"

#include <algorithm>

namespace tavos::msgbus {

using namespace std::chrono_literals;

namespace {

/// A stopped service answers the first ping when it continues; another ping only replaces a lost one. The bus queues
/// pings that a silent service does not read, so they must be few.
constexpr std::chrono::microseconds kPingTimeout = 10s;
constexpr auto kMinInterval = 200ms;

}  // namespace

int Pings::OnAnswer(sd_bus_message* answer, void* sent, sd_bus_error*) {
    auto& ping = *static_cast<SentPing*>(sent);
    ping.ended = true;
    ping.earliestNext = Clock::now() + kMinInterval;
    const sd_bus_error* const error = sd_bus_message_get_error(answer);
    const bool serviceEnded = error && (sd_bus_error_has_name(error, SD_BUS_ERROR_SERVICE_UNKNOWN) > 0 ||
                                        sd_bus_error_has_name(error, SD_BUS_ERROR_NAME_HAS_NO_OWNER) > 0);
    if (serviceEnded) {
        ping.silent->ServiceEnded(ping.service);
    } else if (!error || IsAnswer(error->name)) {
        ping.silent->PingAnswered(ping.service);
    }
    return 0;
}

void Pings::SendTo(const SilentServices::PingTarget& target) {
    sd_bus_message* made = nullptr;
    CheckBus(sd_bus_message_new_method_call(_bus, &made, target.service.c_str(), target.path.c_str(),
                                            "org.freedesktop.DBus.Peer", "Ping"));
    const MessagePtr message(made);
    CheckBus(sd_bus_message_set_auto_start(made, 0));
    SentPing& ping = _sent[target.service] = {};
    ping.silent = &_silent;
    ping.service = target.service;
    sd_bus_slot* slot = nullptr;
    CheckBus(sd_bus_call_async(_bus, &slot, made, OnAnswer, &ping, kPingTimeout.count()));
    ping.slot.reset(slot);
}

Clock::time_point Pings::Send() {
    auto next = Clock::time_point::max();
    const auto now = Clock::now();
    for (const auto& target : _silent.PingTargets()) {
        auto due = target.due;
        const auto sent = _sent.find(target.service);
        if (sent != _sent.end()) {
            if (!sent->second.ended) continue;
            due = std::max(due, sent->second.earliestNext);
        }
        if (due <= now) {
            SendTo(target);
        } else {
            next = std::min(next, due);
        }
    }
    return next;
}

}  // namespace tavos::msgbus
