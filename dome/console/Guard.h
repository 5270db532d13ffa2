#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace dome::console {

/// Checks the headers: a request must come from this console's page or from a program. A page from elsewhere can reach
/// a console on loopback only with another host name (Host) or from another origin.
class Guard {
public:
    /// `address` is the one that the console listens on, as text; `names` are further host names under which it is
    /// reached.
    explicit Guard(std::string address, std::vector<std::string> names = {});

    /// True for a Host header that names this console: loopback's usual names, its address, its names, and any
    /// numeric address when the console listens on all addresses.
    bool IsOwnHost(std::string_view host) const;

private:
    const std::string _address;
    const std::vector<std::string> _names;
    const bool _anyAddress;
};

/// True for a valid Origin header ("" for none) of a request to that host.
bool IsOwnOrigin(std::string_view origin, std::string_view host);

/// True for a valid Sec-Fetch-Site header ("" for none) of a request to the API.
bool IsOwnSite(std::string_view site);

/// True for "application/json", with or without parameters, in any case.
bool IsJson(std::string_view contentType);

}  // namespace dome::console
