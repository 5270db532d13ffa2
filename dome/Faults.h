#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tavos/msgbus/ServiceHost.h"

namespace dome {

/// How each service behaves: "ok", "fail" (its calls get an error), "hang" (it never answers) or "gone" (it gives up
/// its name). Services are identified by their short names.
class Faults {
public:
    /// Takes or gives up the name of a service; may throw.
    using SetPresent = std::function<void(const std::string& service, bool present)>;

    /// All services are "ok" at first.
    Faults(const std::vector<std::string>& services, SetPresent setPresent);

    /// Throws tavos::osa::Exception for an unknown service or fault, and what SetPresent throws; then nothing changes.
    void Set(const std::string& service, const std::string& fault);

    tavos::msgbus::Treatment Treatment(const std::string& service) const;

    const std::map<std::string, std::string>& All() const { return _faults; }

private:
    std::map<std::string, std::string> _faults;
    SetPresent _setPresent;
};

}  // namespace dome
