#pragma once

#include <string>
#include <vector>

namespace trace {

/// One directive of an snmpd.conf.
struct Directive {
    std::string where;               ///< "line 3", or "line 3 of /etc/snmp/more.conf" in an included file
    std::vector<std::string> words;  ///< at least one; the first is in lower case, since net-snmp takes any
};

/// An snmpd.conf as net-snmp reads it: comments left out, words in single or double quotes, sections' names ignored.
struct AgentConfiguration {
    std::vector<Directive> directives;
    bool isWhole = true;  ///< false: there is more that could not be read, such as an included file

    /// Of a text. The files that it includes are not read.
    static AgentConfiguration OfText(const std::string& text);

    /// Of a file, with those that it includes. What is no regular file is not opened: a FIFO would block.
    static AgentConfiguration OfFile(const std::string& path);
};

}  // namespace trace
