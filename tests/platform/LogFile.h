#pragma once

#include <cstddef>
#include <string>

#include "TemporaryFolder.h"
#include "tavos/core/IniFile.h"
#include "tavos/core/Logger.h"

/// While it lives, the platform logs to a file, at level 6.
class LogFile {
public:
    LogFile() {
        tavos::core::IniFile log;
        log.SetValue("log", "log.file", _folder.File("log"));
        log.SetValue("log", "log.level", "6");
        tavos::core::Logger::ClearAppenders();
        tavos::core::Logger::ConfigureLogging(log, "log");
    }
    ~LogFile() { tavos::core::Logger::ClearAppenders(); }
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    std::string Text() const { return FileText(_folder.File("log")); }
    std::size_t Count(const std::string& part) const {
        const std::string text = Text();
        std::size_t found = 0;
        for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
        return found;
    }

private:
    TemporaryFolder _folder;
};
