#pragma once

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "tavos/Api.h"

namespace tavos::core {

/// Sections of key-value strings, in memory. Section names may contain slashes ("Device/ReadOnly"). Sections and keys
/// are sorted by name. Not thread-safe.
class TAVOS_API IniFile {
public:
    using Section = std::map<std::string, std::string>;

    void SetValue(const std::string& section, const std::string& key, const std::string& value);

    /// The value, or an empty string if the section or the key is missing.
    std::string GetValue(const std::string& section, const std::string& key) const;

    bool HasValue(const std::string& section, const std::string& key) const;

    const std::map<std::string, Section>& Sections() const { return _sections; }

    /// True for a name that Write accepts: not empty, no control characters, no blank at either end. A section's name
    /// has no brackets; a key's name has no '=' and does not begin with '[', '#' or ';'.
    static bool IsSectionName(const std::string& name);
    static bool IsKeyName(const std::string& name);

    /// The value in the form that Write writes, on one line.
    static std::string Escaped(const std::string& value);

    /// Adds the text's values. Accepts "[section]" lines, "key = value" lines (drops blanks around both), empty lines,
    /// and lines that start with '#' or ';'. Decodes the escapes \n, \r, \t, \\ and "\ " (a blank at either end) in a
    /// value, so that Write followed by Read restores every octet. Throws tavos::osa::Exception with the line's number
    /// for any other line; this object is then unchanged.
    void Read(std::istream& text);

    /// Writes every section in the form that Read accepts. If a name cannot be written, throws tavos::osa::Exception
    /// and writes nothing.
    void Write(std::ostream& text) const;

private:
    std::map<std::string, Section> _sections;
};

}  // namespace tavos::core
