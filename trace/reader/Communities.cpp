#include "trace/reader/Communities.h"

#include <string_view>
#include <vector>

namespace trace {

namespace {

bool BeginsWith(const std::string& text, std::string_view start) {
    return text.compare(0, start.size(), start) == 0;
}

}  // namespace

Communities::Communities(const AgentConfiguration& configuration) : _isWhole(configuration.isWhole) {
    for (const auto& [where, words] : configuration.directives) {
        const std::string& directive = words[0];
        const std::string name = directive + " in " + where;
        if (BeginsWith(directive, "com2sec")) {
            // com2sec [-Cn CONTEXT] NAME SOURCE COMMUNITY
            const std::size_t first = words.size() > 1 && words[1] == "-Cn" ? 3 : 1;
            if (words.size() > first + 2) _names.emplace(words[first + 2], words[first]);
        } else if (BeginsWith(directive, "rocommunity") || BeginsWith(directive, "rwcommunity")) {
            if (words.size() > 1) _names.emplace(words[1], name);
        } else if (BeginsWith(directive, "authcommunity")) {
            // authcommunity TYPES COMMUNITY
            if (words.size() > 2) _names.emplace(words[2], name);
        }
    }
}

Communities Communities::OfFile(const std::string& path) {
    return Communities(AgentConfiguration::OfFile(path));
}

std::optional<std::string> Communities::NameOf(const std::string& community) const {
    const auto found = _names.find(community);
    if (found == _names.end()) return std::nullopt;
    return found->second;
}

}  // namespace trace
