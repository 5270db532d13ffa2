#pragma once

#include <systemd/sd-bus.h>

#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

namespace bench {

struct SdFree {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};

using BusPtr = std::unique_ptr<sd_bus, SdFree>;
using MessagePtr = std::unique_ptr<sd_bus_message, SdFree>;

/// Throws for the bus library's negative results.
inline int Check(int result, const char* what) {
    if (result < 0) throw std::runtime_error(std::string(what) + ": " + std::strerror(-result));
    return result;
}

/// A client's connection to the bus at that address.
inline BusPtr Connected(const std::string& address) {
    sd_bus* made = nullptr;
    Check(sd_bus_new(&made), "sd_bus_new");
    BusPtr bus(made);
    Check(sd_bus_set_address(made, address.c_str()), "sd_bus_set_address");
    Check(sd_bus_set_bus_client(made, 1), "sd_bus_set_bus_client");
    Check(sd_bus_start(made), "sd_bus_start");
    return bus;
}

}  // namespace bench
