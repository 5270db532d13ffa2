#pragma once

#include <atomic>
#include <cstdarg>
#include <string>

#include "tavos/Api.h"

namespace tavos::core {

class IniFile;

/// Level numbers of the platform's logger. A line is written if the configured level is at least its number.
enum LogLevel : int { kError = 3, kInformation = 6, kDebug = 7, kTrace = 8 };

/// Printf-style logger. All loggers of a process share one level and one set of appenders; the name only labels the
/// lines. Any thread. Only ConfigureLogging throws.
class TAVOS_API Logger {
public:
    /// The logger of that name, created at its first use. Owned by the platform, valid until the process ends.
    static Logger* GetLogger(const char* name);

    /// Removes all appenders. Lines are dropped until the next ConfigureLogging.
    static void ClearAppenders();

    /// Sets the level and the appenders from a section of `ini`. A missing key does not change its setting.
    ///   log.level   a level number, 0 (nothing) to 8 (everything)
    ///   log.stdout  "true" adds standard output
    ///   log.file    a path adds that file, lines appended; a FIFO requires a reader
    /// Throws tavos::osa::Exception, with the key and its value on one line, if log.level is not a number or the file
    /// cannot be opened. Level and appenders then do not change; but if there is no appender, standard output is added,
    /// so that the failure can be logged.
    static void ConfigureLogging(const IniFile& ini, const char* section);

    /// Enables the operator's override: from now on a level number in the environment variable TAVOS_LOG_LEVEL replaces
    /// every configured level. Without the variable, or if its value is not a number, nothing changes.
    static void EnableDebugLogging();

    bool IsEnabled(int level) const { return level <= s_level.load(std::memory_order_relaxed); }

    void Error(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void Information(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void Debug(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void Trace(const char* format, ...) const __attribute__((format(printf, 2, 3)));

    /// Writes the line whatever the configured level is. Adds no second newline to a text that ends with one.
    void LogMessageV(int level, const char* format, va_list arguments) const __attribute__((format(printf, 3, 0)));

    const std::string& Name() const { return _name; }

    explicit Logger(std::string name) : _name(std::move(name)) {}
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

private:
    static std::atomic<int> s_level;

    std::string _name;
};

}  // namespace tavos::core
