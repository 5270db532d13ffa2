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

    /// Those of that file. One that is missing, or that only another user may read, names none.
    static Communities OfFile(const std::string& path);

    std::optional<std::string> NameOf(const std::string& community) const;

    /// Their names, by community.
    const std::map<std::string, std::string>& All() const { return _names; }

private:
    std::map<std::string, std::string> _names;
};

}  // namespace trace
