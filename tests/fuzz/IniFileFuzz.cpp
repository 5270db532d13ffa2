#include <sstream>

#include "Bytes.h"
#include "tavos/core/IniFile.h"
#include "tavos/osa/Exception.h"

// Texts for the settings' import: a text that can be read can be written, and reads back the same; a text that cannot
// be read changes nothing. The same for values and names of any octets: what can be written reads back unchanged.

using tavos::core::IniFile;

namespace {

IniFile Read(const std::string& text) {
    std::istringstream stream(text);
    IniFile ini;
    ini.Read(stream);
    return ini;
}

std::string Written(const IniFile& ini) {
    std::ostringstream stream;
    ini.Write(stream);
    return stream.str();
}

void CheckText(const std::string& text) {
    IniFile ini;
    ini.SetValue("before", "key", "value");
    const auto before = ini.Sections();
    std::istringstream stream(text);
    try {
        ini.Read(stream);
    } catch (const tavos::osa::Exception& exception) {
        MUST(*exception.what() != 0, "no reason");
        MUST(ini.Sections() == before, "a refused text has changed a value");
        return;
    }
    MUST(ini.HasValue("before", "key"), "reading adds");
    const auto written = Written(ini);
    MUST(Written(Read(written)) == written, "written: %s", written.c_str());
    // An empty section has no value to compare.
    auto again = Read(written).Sections();
    MUST(again == ini.Sections(), "written: %s", written.c_str());
    for (const auto& [section, values] : ini.Sections()) {
        for (const auto& [key, value] : values) MUST(ini.GetValue(section, key) == value, "%s", key.c_str());
    }
}

void CheckValues(Bytes& bytes) {
    IniFile ini;
    bool isWritable = true;
    while (!bytes.IsEmpty()) {
        const auto text = [&bytes] {
            const auto octets = bytes.Octets(bytes.Length());
            return std::string(octets.begin(), octets.end());
        };
        const auto section = text();
        const auto key = text();
        ini.SetValue(section, key, text());
        isWritable = isWritable && IniFile::IsSectionName(section) && IniFile::IsKeyName(key);
    }
    std::ostringstream stream;
    try {
        ini.Write(stream);
    } catch (const tavos::osa::Exception&) {
        MUST(!isWritable && stream.str().empty(), "refused");
        return;
    }
    MUST(isWritable, "written: %s", stream.str().c_str());
    MUST(Read(stream.str()).Sections() == ini.Sections(), "written: %s", stream.str().c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes bytes(data, size);
    if (size != 0 && data[0] == 0) {
        bytes.Byte();
        CheckValues(bytes);
    } else {
        CheckText(bytes.Rest());
    }
    return 0;
}
