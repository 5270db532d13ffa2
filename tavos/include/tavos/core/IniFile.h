#pragma once

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "tavos/Api.h"

namespace tavos::core {

/// Sections of key-value strings, in memory. Section names may contain slashes ("Device/ReadOnly"); sections and keys
/// are kept in the order of their names. Not thread-safe.
class TAVOS_API IniFile {
public:
    using Section = std::map<std::string, std::string>;

    void SetValue(const std::string& section, const std::string& key, const std::string& value);

    /// The value, or an empty string when the section or the key is missing.
    std::string GetValue(const std::string& section, const std::string& key) const;

    bool HasValue(const std::string& section, const std::string& key) const;

    const std::map<std::string, Section>& Sections() const { return _sections; }

    /// True for a name that Write accepts: not empty, no control characters, no blank at either end;
    /// a section's has no brackets, a key's no '=' and none of '[', '#' and ';' as its first character.
    static bool IsSectionName(const std::string& name);
    static bool IsKeyName(const std::string& name);

    /// A value as Write writes it, on one line.
    static std::string Escaped(const std::string& value);

    /// Adds what the text holds: "[section]" lines, "key = value" lines (blanks around both are dropped), empty lines
    /// and lines that start with '#' or ';'. Inside a value the escapes \n, \r, \t, \\ and "\ " (a blank at either
    /// end) stand for themselves, so that Write followed by Read gives back every value, octet by octet.
    /// Throws tavos::osa::Exception with the line's number for anything else; this object is then unchanged.
    void Read(std::istream& text);

    /// Writes every section in the form that Read takes. Throws tavos::osa::Exception, before anything is written,
    /// when a name cannot be written.
    void Write(std::ostream& text) const;

private:
    std::map<std::string, Section> _sections;
};

}  // namespace tavos::core
