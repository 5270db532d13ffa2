#include "Guard.h"

#include <algorithm>
#include <boost/asio/ip/address.hpp>
#include <cctype>

namespace dome::console {

namespace {

using boost::asio::ip::make_address;

bool SameText(std::string_view a, std::string_view b) {
    const auto lower = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [&](char x, char y) { return lower(x) == lower(y); });
}

bool IsPort(std::string_view text) {
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    return !text.empty() && text.size() <= 5 && std::all_of(text.begin(), text.end(), isDigit);
}

// The host without its port and IPv6 brackets; empty when it is malformed.
std::string_view NameOf(std::string_view host) {
    const bool isBracketed = !host.empty() && host.front() == '[';
    const std::size_t end = isBracketed ? host.find(']') : host.find(':');
    const std::string_view name = host.substr(isBracketed ? 1 : 0, isBracketed ? end - 1 : end);
    if (end == std::string_view::npos) return isBracketed ? std::string_view() : name;
    const std::string_view rest = host.substr(isBracketed ? end + 1 : end);
    const bool isEnd = rest.empty() || (rest.front() == ':' && IsPort(rest.substr(1)));
    return isEnd ? name : std::string_view();
}

}  // namespace

Guard::Guard(std::string address, std::vector<std::string> names)
    : _address(std::move(address)), _names(std::move(names)), _anyAddress(make_address(_address).is_unspecified()) {}

bool Guard::IsOwnHost(std::string_view host) const {
    const std::string_view name = NameOf(host);
    if (name.empty()) return false;
    if (SameText(name, "localhost") || name == "127.0.0.1" || name == "::1" || SameText(name, _address)) return true;
    if (std::any_of(_names.begin(), _names.end(), [name](const auto& own) { return SameText(name, own); })) return true;
    boost::system::error_code error;
    make_address(std::string(name), error);
    return _anyAddress && !error;
}

bool IsOwnOrigin(std::string_view origin, std::string_view host) {
    constexpr std::string_view kScheme = "http://";
    if (origin.empty()) return true;
    return origin.substr(0, kScheme.size()) == kScheme && SameText(origin.substr(kScheme.size()), host);
}

bool IsOwnSite(std::string_view site) {
    return site.empty() || site == "same-origin" || site == "none";
}

bool IsJson(std::string_view contentType) {
    std::string_view type = contentType.substr(0, contentType.find(';'));
    while (!type.empty() && (type.back() == ' ' || type.back() == '\t')) type.remove_suffix(1);
    return SameText(type, "application/json");
}

}  // namespace dome::console
