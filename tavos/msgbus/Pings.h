#pragma once

#include <map>
#include <string>

#include "tavos/msgbus/Bus.h"
#include "tavos/msgbus/SilentServices.h"

namespace tavos::msgbus {

/// Pings silent services over one connection, one ping a service at a time. On the thread that processes the
/// connection.
class Pings {
public:
    /// Both outlive it.
    Pings(sd_bus* bus, SilentServices& silent) : _bus(bus), _silent(silent) {}

    /// Sends the pings that are due and not under way; returns when the next one is due.
    Clock::time_point Send();

private:
    struct Question {
        SilentServices* silent = nullptr;
        std::string service;
        SlotPtr slot;
        bool ended = false;
        Clock::time_point again;  // earliest time of the next ping; valid once `ended` is set
    };

    static int OnAnswer(sd_bus_message* answer, void* question, sd_bus_error*);
    void Ask(const SilentServices::Question& about);

    sd_bus* const _bus;
    SilentServices& _silent;
    std::map<std::string, Question> _asked;
};

}  // namespace tavos::msgbus
