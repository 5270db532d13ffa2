#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "Bytes.h"
#include "tavos/core/IniFile.h"
#include "tavos/core/Logger.h"
#include "tavos/osa/Exception.h"
#include "tavos/settings/TavosSettingsClient.h"

// A settings import into an empty store: it stores everything or nothing, and all functions that read return the same.
// The first line of an input is a path and a key to read, the rest is the text.

using tavos::core::IniFile;
using tavos::osa::Exception;
using tavos::settings::TavosSettingsClient;

namespace {

using Sections = std::map<std::string, IniFile::Section>;

/// A store in memory, if the system has such a folder; removed when the process ends.
struct StoreFolder {
    StoreFolder() {
        const std::filesystem::path memory = "/dev/shm";
        std::string name = ((std::filesystem::exists(memory) ? memory : std::filesystem::temp_directory_path()) /
                            "orvexsnmp-fuzz-XXXXXX")
                               .string();
        MUST(mkdtemp(name.data()) != nullptr, "cannot make %s", name.c_str());
        path = name;
        setenv("TAVOS_SETTINGS_STORE", (path / "settings.db").c_str(), 1);
        tavos::core::Logger::ClearAppenders();
    }
    ~StoreFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    void Empty() const {
        for (const char* file : {"settings.db", "settings.db-wal", "settings.db-shm"}) unlink((path / file).c_str());
    }
    std::filesystem::path path;
};

Sections WithoutEmptyOnes(Sections sections) {
    for (auto section = sections.begin(); section != sections.end();) {
        section = section->second.empty() ? sections.erase(section) : std::next(section);
    }
    return sections;
}

Sections Stored(const std::string& path) {
    IniFile ini;
    TavosSettingsClient(TavosSettingsClient::kReadOnly).GetSettings(path, ini);
    return ini.Sections();
}

void CheckStored(const Sections& expected, const std::string& path, const std::string& key) {
    MUST(Stored("") == expected, "the whole store");
    Sections below;
    for (const auto& [section, values] : expected) {
        if (path.empty() || section == path || section.compare(0, path.size() + 1, path + "/") == 0) {
            below[section] = values;
        }
    }
    MUST(Stored(path) == below, "below %s", path.c_str());

    const TavosSettingsClient client(TavosSettingsClient::kReadOnly);
    int asked = 0;
    for (const auto& [section, values] : expected) {
        for (const auto& [name, value] : values) {
            if (++asked > 4) return;
            MUST(client.GetValue("[" + section + "]" + name) == value, "[%s]%s", section.c_str(), name.c_str());
        }
    }
    try {
        client.GetValue(key);
    } catch (const Exception&) {
        const auto end = key.find(']');
        MUST(key.empty() || key[0] != '[' || end == std::string::npos ||
                 !IniFile::IsSectionName(key.substr(1, end - 1)) || !IniFile::IsKeyName(key.substr(end + 1)),
             "%s", key.c_str());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const StoreFolder folder;
    folder.Empty();
    const std::string input(reinterpret_cast<const char*>(data), size);
    std::istringstream stream(input);
    std::string path;
    std::string key;
    std::getline(stream, path);
    std::getline(stream, key);

    IniFile ini;
    try {
        ini.Read(stream);
    } catch (const Exception&) {
        return 0;
    }
    TavosSettingsClient(TavosSettingsClient::kCreate).SetSettings(ini);
    const auto expected = WithoutEmptyOnes(ini.Sections());
    CheckStored(expected, path, key);

    // An import with one invalid name stores nothing.
    IniFile bad;
    bad.SetValue("A", "key", "value");
    bad.SetValue("B", "=" + path, "value");
    try {
        TavosSettingsClient(TavosSettingsClient::kReadWrite).SetSettings(bad);
        MUST(false, "a bad name is stored");
    } catch (const Exception&) {
    }
    MUST(Stored("") == expected, "a refused import has changed a value");
    return 0;
}
