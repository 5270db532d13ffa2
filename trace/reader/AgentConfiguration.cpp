#include "trace/reader/AgentConfiguration.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iomanip>
#include <optional>
#include <sstream>

namespace trace {

namespace {

constexpr std::size_t kMaxFile = 1024 * 1024;  // octets
constexpr int kMaxFiles = 64;                  // that one includes: they may include each other

std::optional<std::string> TextOf(const std::string& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) return std::nullopt;
    struct stat status {};
    std::optional<std::string> text;
    if (fstat(file, &status) == 0 && S_ISREG(status.st_mode) && static_cast<std::size_t>(status.st_size) <= kMaxFile) {
        text.emplace(static_cast<std::size_t>(status.st_size), '\0');
        const ssize_t size = read(file, text->data(), text->size());
        text->resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    }
    close(file);
    return text;
}

std::vector<std::string> WordsOf(const std::string& line) {
    std::istringstream stream(line);
    std::vector<std::string> words;
    std::string word;
    while (stream >> std::ws) {
        const bool isSingle = stream.peek() == '\'';
        if (!(stream >> std::quoted(word, isSingle ? '\'' : '"'))) break;
        words.push_back(word);
    }
    if (!words.empty() && words[0][0] == '[') words.erase(words.begin());
    if (words.empty() || words[0].empty() || words[0][0] == '#') return {};
    std::transform(words[0].begin(), words[0].end(), words[0].begin(), [](unsigned char c) { return std::tolower(c); });
    return words;
}

class Reading {
public:
    /// `file`: the text's; empty: none, and it includes none.
    void AddText(const std::string& text, const std::string& file, int depth) {
        std::istringstream lines(text);
        int number = 0;
        for (std::string line; std::getline(lines, line);) {
            ++number;
            std::vector<std::string> words = WordsOf(line);
            if (words.empty()) continue;
            if (words[0].rfind("include", 0) == 0) {
                Include(words, file, depth);
                continue;
            }
            const std::string of = depth == 0 ? "" : " of " + file;
            read.directives.push_back({"line " + std::to_string(number) + of, std::move(words)});
        }
    }

    void AddFile(const std::string& path, int depth) {
        const std::optional<std::string> text = ++_files > kMaxFiles ? std::nullopt : TextOf(path);
        read.isWhole = read.isWhole && text;
        if (text) AddText(*text, path, depth);
    }

    AgentConfiguration read;

private:
    void Include(const std::vector<std::string>& words, const std::string& file, int depth) {
        const bool isFile = words[0] == "includefile" && words.size() > 1;
        if (isFile && !file.empty()) {
            AddFile(std::filesystem::path(file).parent_path() / words[1], depth + 1);
        } else {
            read.isWhole = false;
        }
    }

    int _files = 0;
};

}  // namespace

AgentConfiguration AgentConfiguration::OfText(const std::string& text) {
    Reading reading;
    reading.AddText(text, "", 0);
    return std::move(reading.read);
}

AgentConfiguration AgentConfiguration::OfFile(const std::string& path) {
    Reading reading;
    reading.AddFile(path, 0);
    return std::move(reading.read);
}

}  // namespace trace
