#pragma once

#include <atomic>
#include <cstdarg>
#include <string>

#include "tavos/Api.h"

namespace tavos::core {

class IniFile;

/// Level numbers of the platform's logger: a line is written when the configured level is at least its number.
enum LogLevel : int { kError = 3, kInformation = 6, kDebug = 7, kTrace = 8 };

/// Printf-style logger. All loggers of a process share one level and one set of appenders; the name only
/// labels the lines. Every member may be called from any thread. Nothing here throws, ConfigureLogging excepted.
class TAVOS_API Logger {
public:
    /// The logger of that name, made at its first use. Owned by the platform, valid until the process ends.
    static Logger* GetLogger(const char* name);

    /// Removes every appender; lines are dropped until the next ConfigureLogging.
    static void ClearAppenders();

    /// Takes the level and the appenders from a section of `ini`; a key that is missing leaves its setting as it is:
    ///   log.level   a level number, 0 (nothing) to 8 (everything)
    ///   log.stdout  "true" adds standard output
    ///   log.file    a path adds that file, lines appended; a FIFO requires a reader
    /// Throws tavos::osa::Exception, with the key and its value on one line, when log.level is no number or the file
    /// cannot be opened. The level is then as before the call, and so are the appenders; where there are none, standard
    /// output is added, so that the failure can be logged.
    static void ConfigureLogging(const IniFile& ini, const char* section);

    /// Enables the operator's override: a level number in the environment's TAVOS_LOG_LEVEL replaces every configured
    /// level from now on. Without the variable (or with a value that is no number) nothing changes.
    static void EnableDebugLogging();

    bool IsEnabled(int level) const { return level <= s_level.load(std::memory_order_relaxed); }

    void Error(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void Information(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void Debug(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void Trace(const char* format, ...) const __attribute__((format(printf, 2, 3)));

    /// Writes the line regardless of the configured level. A newline that ends the text is not doubled.
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
