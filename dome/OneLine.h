#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace dome {

/// A JSON value on one line. Octets that are no UTF-8 become U+FFFD: names and words come from callers.
template <class Json = nlohmann::json>
std::string OneLine(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace dome
