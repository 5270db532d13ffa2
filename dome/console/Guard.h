#pragma once

#include <string>
#include <string_view>

namespace dome::console {

/// Whether a request comes from a page of this console's own or from a program, judged by its headers. A page of
/// somebody else's reaches a console on loopback under a name of its own (its Host) or from its own origin.
class Guard {
public:
    /// `address` is the one that the console listens on, as text.
    explicit Guard(std::string address);

    /// The Host header. Loopback has its usual names; beside them counts the address, and where the console listens
    /// on all addresses, any address written in numbers.
    bool IsOwnHost(std::string_view host) const;

private:
    const std::string _address;
    const bool _anyAddress;
};

/// The Origin header, "" for none, of a request to that host.
bool IsOwnOrigin(std::string_view origin, std::string_view host);

/// The Sec-Fetch-Site header, "" for none, of a request to the API.
bool IsOwnSite(std::string_view site);

/// True for "application/json", with or without parameters, in any case.
bool IsJson(std::string_view contentType);

}  // namespace dome::console
