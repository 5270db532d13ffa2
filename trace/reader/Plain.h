#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace trace {

enum class Details {
    kFailed,  ///< below failed entries, what they need
    kAll,     ///< below every entry, all that is known
};

/// Lines for people, at most 120 columns wide: one for the entry, and below it, indented, its details.
std::string PlainLines(const nlohmann::ordered_json& entry, Details details);

/// The line that follows when the motions of an entry that was shown before have ended.
std::string PlainEnd(const nlohmann::ordered_json& entry);

}  // namespace trace
