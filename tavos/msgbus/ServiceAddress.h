#pragma once

#include <string>

namespace tavos::msgbus {

/// The address of a service on the bus.
struct ServiceAddress {
    std::string service;  ///< well-known name
    std::string path;
    std::string interface;
    bool hasLanes = false;  ///< its interface has OpenLane (see Lane.h); the service need not implement it
};

}  // namespace tavos::msgbus
