#pragma once

#include <map>
#include <optional>
#include <string>

namespace trace {

/// The agent's communities by their names in its configuration, so that nobody needs to show a community itself.
class Communities {
public:
    Communities() = default;
    /// `configuration`: the text of an snmpd.conf. Takes com2sec lines with their security names, and rocommunity and
    /// rwcommunity lines, which have none, by directive and line ("rocommunity in line 3"). Files that it includes are
    /// not read.
    explicit Communities(const std::string& configuration);

    std::optional<std::string> NameOf(const std::string& community) const;

private:
    std::map<std::string, std::string> _names;
};

}  // namespace trace
