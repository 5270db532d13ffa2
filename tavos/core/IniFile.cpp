#include "tavos/core/IniFile.h"

#include <algorithm>
#include <istream>
#include <ostream>

#include "tavos/osa/Exception.h"

namespace tavos::core {

namespace {

constexpr const char* kBlanks = " \t";

std::string Trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(kBlanks);
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool IsPlain(const std::string& name) {
    const auto control = [](unsigned char c) { return c < 0x20 || c == 0x7F; };
    return !name.empty() && name.front() != ' ' && name.back() != ' ' &&
           std::none_of(name.begin(), name.end(), control);
}

/// Drops the blanks at both ends, except a blank after a backslash.
std::string TrimmedValue(const std::string& text) {
    std::string value = Trimmed(text);
    const auto lastOther = value.find_last_not_of('\\');
    const auto backslashes = value.size() - (lastOther == std::string::npos ? 0 : lastOther + 1);
    const auto end = text.find_last_not_of(kBlanks) + 1;
    if (backslashes % 2 == 1 && end < text.size() && text[end] == ' ') value += ' ';
    return value;
}

char Unescaped(char code, int line) {
    switch (code) {
        case 'n':
            return '\n';
        case 'r':
            return '\r';
        case 't':
            return '\t';
        case '\\':
        case ' ':
            return code;
        default:
            throw osa::Exception("line %d: unknown escape in a value", line);
    }
}

std::string UnescapedValue(const std::string& text, int line) {
    std::string value;
    for (auto c = text.begin(); c != text.end(); ++c) {
        if (*c != '\\') {
            value += *c;
        } else if (++c == text.end()) {
            throw osa::Exception("line %d: a value ends in a lone backslash", line);
        } else {
            value += Unescaped(*c, line);
        }
    }
    return value;
}

}  // namespace

void IniFile::SetValue(const std::string& section, const std::string& key, const std::string& value) {
    _sections[section][key] = value;
}

std::string IniFile::GetValue(const std::string& section, const std::string& key) const {
    const auto found = _sections.find(section);
    if (found == _sections.end()) return {};
    const auto value = found->second.find(key);
    return value == found->second.end() ? std::string() : value->second;
}

bool IniFile::HasValue(const std::string& section, const std::string& key) const {
    const auto found = _sections.find(section);
    return found != _sections.end() && found->second.count(key) != 0;
}

bool IniFile::IsSectionName(const std::string& name) {
    return IsPlain(name) && name.find_first_of("[]") == std::string::npos;
}

bool IniFile::IsKeyName(const std::string& name) {
    return IsPlain(name) && name.find('=') == std::string::npos &&
           std::string("[#;").find(name.front()) == std::string::npos;
}

std::string IniFile::Escaped(const std::string& value) {
    std::string text;
    for (std::size_t at = 0; at < value.size(); ++at) {
        const bool atEnd = at == 0 || at + 1 == value.size();
        switch (value[at]) {
            case '\n':
                text += "\\n";
                break;
            case '\r':
                text += "\\r";
                break;
            case '\t':
                text += "\\t";
                break;
            case '\\':
                text += "\\\\";
                break;
            case ' ':
                text += atEnd ? "\\ " : " ";
                break;
            default:
                text += value[at];
        }
    }
    return text;
}

void IniFile::Read(std::istream& text) {
    auto sections = _sections;
    Section* section = nullptr;
    std::string line;
    for (int number = 1; std::getline(text, line); ++number) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        const std::string content = Trimmed(line);
        if (content.empty() || content.front() == '#' || content.front() == ';') continue;
        if (content.front() == '[') {
            const std::string name = content.substr(1, content.size() - 2);
            if (content.back() != ']' || content.size() < 3 || !IsSectionName(name)) {
                throw osa::Exception("line %d: not a section's name in brackets", number);
            }
            section = &sections[name];
            continue;
        }
        const auto equals = line.find('=');
        const std::string key = Trimmed(line.substr(0, equals));
        if (equals == std::string::npos || !IsKeyName(key))
            throw osa::Exception("line %d: not \"key = value\"", number);
        if (section == nullptr) throw osa::Exception("line %d: a key before the first section", number);
        (*section)[key] = UnescapedValue(TrimmedValue(line.substr(equals + 1)), number);
    }
    if (text.bad()) throw osa::Exception("the text cannot be read");
    _sections.swap(sections);
}

void IniFile::Write(std::ostream& text) const {
    for (const auto& [name, section] : _sections) {
        if (!IsSectionName(name)) throw osa::Exception("\"%s\" cannot be written as a section's name", name.c_str());
        for (const auto& [key, value] : section) {
            if (!IsKeyName(key)) throw osa::Exception("\"%s\" cannot be written as a key's name", key.c_str());
        }
    }
    for (const auto& [name, section] : _sections) {
        text << '[' << name << "]\n";
        for (const auto& [key, value] : section) text << key << " = " << Escaped(value) << '\n';
    }
}

}  // namespace tavos::core
