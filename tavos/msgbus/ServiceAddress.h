#pragma once

#include <string>

namespace tavos::msgbus {

/// The address of a service on the bus.
struct ServiceAddress {
    std::string service;  ///< well-known name
    std::string path;
    std::string interface;
};

}  // namespace tavos::msgbus
