#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "tavos/core/IniFile.h"
#include "tavos/core/Logger.h"
#include "tavos/osa/Exception.h"
#include "tavos/settings/TavosSettingsClient.h"

namespace {

using tavos::core::IniFile;
using tavos::osa::Exception;
using tavos::settings::TavosSettingsClient;
using Words = std::vector<std::string>;

struct UsageError {};

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

void Run(Words words) {
    if (words.size() >= 2 && words[0] == "--store") {
        setenv("TAVOS_SETTINGS_STORE", words[1].c_str(), 1);
        words.erase(words.begin(), words.begin() + 2);
    }
    const std::string command = words.empty() ? "" : words[0];
    const std::size_t count = words.size();
    if (command == "get" && count == 2) {
        Get(words[1]);
    } else if (command == "set" && count == 3) {
        TavosSettingsClient(TavosSettingsClient::kReadWrite).SetValue(words[1], words[2]);
    } else if (command == "list" && count <= 2) {
        List(count == 2 ? words[1] : "");
    } else if (command == "import" && count == 2) {
        Import(words[1]);
    } else if (command == "export" && count <= 2) {
        Export(count == 2 ? words[1] : "-");
    } else {
        throw UsageError();
    }
    std::cout.flush();
    if (!std::cout) throw Exception("standard output cannot be written");
}

}  // namespace

int main(int argc, char** argv) {
    tavos::core::Logger::ClearAppenders();  // this command reports each failure itself, once
    try {
        Run(Words(argv + 1, argv + argc));
        return 0;
    } catch (const UsageError&) {
        std::cerr << "usage: tavos-settings [--store FILE] get KEY | set KEY VALUE | list [PATH] | import FILE | "
                     "export [FILE]\n       KEY is \"[Section/Name]Key\"; a FILE to import or export may be \"-\"\n";
        return 2;
    } catch (const std::exception& e) {
        std::cerr << "tavos-settings: " << e.what() << '\n';
        return 1;
    }
}
