#pragma once

#include <map>
#include <string>

#include "tavos/msgbus/Bus.h"
#include "tavos/msgbus/SilentServices.h"

namespace tavos::msgbus {

/// Pings silent services over one connection, at most one ping per service at a time. Only on the thread that processes
/// the connection.
class Pings {
public:
    /// `bus` and `silent` must outlive this object.
    Pings(sd_bus* bus, SilentServices& silent) : _bus(bus), _silent(silent) {}

    /// Sends the pings that are due, except to services with an unanswered ping. Returns the time of the next ping.
    Clock::time_point Send();

private:
    struct SentPing {
        SilentServices* silent = nullptr;
        std::string service;
        SlotPtr slot;
        bool ended = false;
        Clock::time_point earliestNext;  // of the next ping; valid if `ended`
    };

    static int OnAnswer(sd_bus_message* answer, void* sent, sd_bus_error*);
    void SendTo(const SilentServices::PingTarget& target);

    sd_bus* const _bus;
    SilentServices& _silent;
    std::map<std::string, SentPing> _sent;
};

}  // namespace tavos::msgbus
