#pragma once

#include <map>
#include <optional>
#include <string>

#include "trace/reader/AgentConfiguration.h"

namespace trace {

/// The agent's communities by their names in its configuration, so that nobody needs to show a community itself.
class Communities {
public:
    Communities() = default;
    /// Takes com2sec directives with their security names, and those that name none, such as rocommunity, by directive
    /// and line ("rocommunity in line 3").
    explicit Communities(const AgentConfiguration& configuration);

    /// Those of an snmpd.conf. One that is missing, or that only another user may read, names none.
    static Communities OfFile(const std::string& path);

    std::optional<std::string> NameOf(const std::string& community) const;

    /// Whether a community that the agent refused is no secret: none of its communities has that text. False, too, when
    /// the configuration could not be read as a whole.
    bool IsWrong(const std::string& community) const { return _isWhole && !NameOf(community); }

    /// Their names, by community.
    const std::map<std::string, std::string>& All() const { return _names; }

private:
    std::map<std::string, std::string> _names;
    bool _isWhole = true;
};

}  // namespace trace
