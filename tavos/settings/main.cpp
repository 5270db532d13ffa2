#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

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

IniFile Everything(const std::string& path) {
    IniFile ini;
    TavosSettingsClient(TavosSettingsClient::kReadOnly).GetSettings(path, ini);
    return ini;
}

/// Like TavosSettingsClient::GetValue, but throws for a missing value.
void Get(const std::string& key) {
    const std::string value = TavosSettingsClient(TavosSettingsClient::kReadOnly).GetValue(key);
    const auto end = key.find(']');
    const std::string section = key.substr(1, end - 1);
    if (value.empty() && !Everything(section).HasValue(section, key.substr(end + 1))) {
        throw Exception("%s: no such value", key.c_str());
    }
    std::cout << value << '\n';
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
    if (command == "set") TavosSettingsClient(TavosSettingsClient::kReadWrite).SetValue(first, words[2]);
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
    line.AddCommand("set", 2, 2, "\n  set KEY VALUE  stores it");
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
    } catch (const std::exception& e) {
        std::cerr << "tavos-settings: " << e.what() << '\n';
        return 1;
    }
}
