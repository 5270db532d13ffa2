#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <numeric>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Keys.h"
#include "tavos/core/CommandLine.h"
#include "tavos/core/IniFile.h"
#include "tavos/core/Logger.h"
#include "tavos/osa/Exception.h"
#include "tavos/settings/TavosSettingsClient.h"

namespace {

using tavos::core::IniFile;
using tavos::osa::Exception;
using tavos::settings::TavosSettingsClient;
using Words = std::vector<std::string>;

/// A word that the command refuses before it opens the store for writing.
class WrongWord : public Exception {
public:
    explicit WrongWord(const std::string& text) : Exception("%s", text.c_str()) {}
};

IniFile Everything(const std::string& path) {
    IniFile ini;
    TavosSettingsClient(TavosSettingsClient::kReadOnly).GetSettings(path, ini);
    return ini;
}

/// The value, or nothing when there is none. Throws for an invalid key.
std::optional<std::string> Find(const std::string& key) {
    const std::string value = TavosSettingsClient(TavosSettingsClient::kReadOnly).GetValue(key);
    const auto end = key.find(']');
    const std::string section = key.substr(1, end - 1);
    if (value.empty() && !Everything(section).HasValue(section, key.substr(end + 1))) return std::nullopt;
    return value;
}

void Get(const std::string& key) {
    const auto value = Find(key);
    if (!value) throw Exception("%s: no such value", key.c_str());
    std::cout << *value << '\n';
}

/// How many characters must be inserted, removed or replaced, in upper or lower case, to make one text the other.
std::size_t Distance(const std::string& one, const std::string& other) {
    std::vector<std::size_t> row(other.size() + 1);  // of the first characters of `one`, to those of `other`
    std::iota(row.begin(), row.end(), 0);
    for (const char c : one) {
        std::size_t diagonal = std::exchange(row[0], row[0] + 1);
        for (std::size_t i = 0; i < other.size(); ++i) {
            const bool isSame =
                std::tolower(static_cast<unsigned char>(c)) == std::tolower(static_cast<unsigned char>(other[i]));
            const std::size_t replaced = diagonal + (isSame ? 0 : 1);
            diagonal = std::exchange(row[i + 1], std::min({row[i] + 1, row[i + 1] + 1, replaced}));
        }
    }
    return row.back();
}

std::string NearestKeys(const std::string& key) {
    constexpr std::size_t kCount = 2;
    std::vector<std::pair<std::size_t, std::string>> nearest;
    for (const auto& known : tavos::settings::kKnownKeys) nearest.emplace_back(Distance(key, known.key), known.key);
    std::sort(nearest.begin(), nearest.end());
    nearest.resize(std::min(kCount, nearest.size()));
    std::string names;
    for (const auto& [distance, name] : nearest) names += (names.empty() ? "" : ", ") + name;
    return names;
}

/// A key that the store has already is known, too: the camera's other software may have made it.
void CheckKnown(const std::string& key) {
    const auto* const end = std::end(tavos::settings::kKnownKeys);
    const bool isListed =
        std::any_of(std::begin(tavos::settings::kKnownKeys), end, [&](const auto& known) { return key == known.key; });
    if (isListed || Find(key)) return;
    throw WrongWord("unknown key '" + key + "', nearest are " + NearestKeys(key) + " (set --force stores it)");
}

/// `words` after "set": KEY VALUE, with --force before or after them. A key never begins with a hyphen.
void Set(Words words) {
    const bool isForced = words.size() == 3 && (words.front() == "--force" || words.back() == "--force");
    if (isForced) words.erase(words.front() == "--force" ? words.begin() : words.end() - 1);
    if (words.front() == "--force") throw WrongWord("set --force: KEY or VALUE is missing");
    if (words.size() != 2) throw WrongWord("set: surplus word '" + words.back() + "', expected KEY VALUE");
    if (!isForced) CheckKnown(words[0]);
    TavosSettingsClient(TavosSettingsClient::kReadWrite).SetValue(words[0], words[1]);
}

void Delete(const std::string& key) {
    if (!TavosSettingsClient(TavosSettingsClient::kReadWrite).DeleteValue(key)) {
        throw Exception("%s: no such value", key.c_str());
    }
}

void ListKnownKeys() {
    for (const auto& known : tavos::settings::kKnownKeys) std::cout << known.key << "  " << known.meaning << '\n';
}

void List(const std::string& path) {
    const IniFile ini = Everything(path);
    for (const auto& [section, values] : ini.Sections()) {
        for (const auto& [key, value] : values) {
            std::cout << '[' << section << ']' << key << " = " << IniFile::Escaped(value) << '\n';
        }
    }
}

void Import(const std::string& file) {
    IniFile ini;
    try {
        if (file == "-") {
            ini.Read(std::cin);
        } else {
            std::ifstream text(file);
            if (!text) throw Exception("cannot be opened");
            ini.Read(text);
        }
    } catch (const Exception& e) {
        throw Exception("%s: %s", file.c_str(), e.what());
    }
    TavosSettingsClient(TavosSettingsClient::kCreate).SetSettings(ini);
}

void Export(const std::string& file) {
    const IniFile ini = Everything("");
    if (file == "-") {
        ini.Write(std::cout);
        return;
    }
    std::ofstream text(file);
    ini.Write(text);
    text.close();
    if (!text) throw Exception("%s: cannot be written", file.c_str());
}

void Run(const Words& words) {
    const std::string& command = words[0];
    const std::string first = words.size() > 1 ? words[1] : "";
    if (command == "get") Get(first);
    if (command == "set") Set(Words(words.begin() + 1, words.end()));
    if (command == "delete") Delete(first);
    if (command == "keys") ListKnownKeys();
    if (command == "list") List(first);
    if (command == "import") Import(first);
    if (command == "export") Export(words.size() > 1 ? first : "-");
    std::cout.flush();
    if (!std::cout) throw Exception("standard output cannot be written");
}

}  // namespace

int main(int argc, char** argv) {
    tavos::core::CommandLine line("tavos-settings", "Shows and changes a camera's settings.");
    std::string store;
    line.add_option("--store", store, "the settings store (default: the one that TAVOS_SETTINGS_STORE names)")
        ->type_name("FILE");
    line.AddCommand("get", 1, 1, "\n  get KEY        prints the value; KEY is \"[Section/Name]Key\"");
    line.AddCommand("set", 2, 3, R"(
  set [--force] KEY VALUE
                 stores it; refuses a key that is neither known nor in the store, unless --force is given)");
    line.AddCommand("delete", 1, 1, "\n  delete KEY     removes the value; fails if there is none");
    line.AddCommand("keys", 0, 0, "\n  keys           prints the known keys and their meanings");
    line.AddCommand("list", 0, 1, "\n  list [PATH]    prints all values, or those of that section and below");
    line.AddCommand("import", 1, 1, "\n  import FILE    stores all values of an INI file; \"-\" is standard input");
    line.AddCommand("export", 0, 1,
                    "\n  export [FILE]  writes all values as an INI file, to standard output by default");
    if (const std::optional<int> status = line.Parse(argc, argv)) return *status;
    if (!store.empty()) setenv("TAVOS_SETTINGS_STORE", store.c_str(), 1);
    tavos::core::Logger::ClearAppenders();  // this command reports each failure itself, once
    try {
        Run(line.Words());
        return 0;
    } catch (const WrongWord& e) {
        std::cerr << "tavos-settings: " << e.what() << '\n';
        return 2;
    } catch (const std::exception& e) {
        std::cerr << "tavos-settings: " << e.what() << '\n';
        return 1;
    }
}
