#include "trace/reader/Communities.h"

#include <fstream>
#include <iomanip>
#include <sstream>
#include <vector>

namespace trace {

namespace {

std::vector<std::string> Words(const std::string& line) {
    std::istringstream stream(line);
    std::vector<std::string> words;
    for (std::string word; stream >> std::quoted(word);) words.push_back(word);
    return words;
}

}  // namespace

Communities::Communities(const std::string& configuration) {
    std::istringstream lines(configuration);
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        std::vector<std::string> words = Words(line);
        if (words.empty()) continue;
        const std::string& directive = words[0];
        if (directive == "com2sec" || directive == "com2sec6") {
            // com2sec [-Cn CONTEXT] NAME SOURCE COMMUNITY
            const std::size_t first = words.size() > 1 && words[1] == "-Cn" ? 3 : 1;
            if (words.size() > first + 2) _names.emplace(words[first + 2], words[first]);
        } else if (directive.rfind("rocommunity", 0) == 0 || directive.rfind("rwcommunity", 0) == 0) {
            if (words.size() > 1) _names.emplace(words[1], directive + " in line " + std::to_string(number));
        }
    }
}

Communities Communities::OfFile(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return Communities(text.str());
}

std::optional<std::string> Communities::NameOf(const std::string& community) const {
    const auto found = _names.find(community);
    if (found == _names.end()) return std::nullopt;
    return found->second;
}

}  // namespace trace
