#include "tavos/core/Logger.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

#include "tavos/core/IniFile.h"
#include "tavos/osa/Exception.h"

namespace tavos::core {

namespace {

/// Blocks SIGPIPE: a write to a pipe without a reader must not kill the process.
class PipeSignalBlocked {
public:
    PipeSignalBlocked() {
        sigset_t pending;
        sigpending(&pending);
        _wasPending = sigismember(&pending, SIGPIPE) == 1;
        sigemptyset(&_pipe);
        sigaddset(&_pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &_pipe, &_before);
    }
    ~PipeSignalBlocked() {
        const timespec now{0, 0};
        if (_broken && !_wasPending) sigtimedwait(&_pipe, nullptr, &now);
        pthread_sigmask(SIG_SETMASK, &_before, nullptr);
    }
    PipeSignalBlocked(const PipeSignalBlocked&) = delete;
    PipeSignalBlocked& operator=(const PipeSignalBlocked&) = delete;

    void Broken() { _broken = true; }

private:
    sigset_t _pipe{};
    sigset_t _before{};
    bool _wasPending = false;
    bool _broken = false;
};

/// Writes each line with one write, so that no line stays in a buffer when the process is killed. A line that cannot be
/// written is lost: a full disk or a stopped reader must not stop the camera.
class Appender {
public:
    Appender(int descriptor, bool owned) : _descriptor(descriptor), _owned(owned) {}
    ~Appender() {
        if (_owned) close(_descriptor);
    }
    Appender(const Appender&) = delete;
    Appender& operator=(const Appender&) = delete;

    void Write(std::string_view line) {
        PipeSignalBlocked guard;
        const char* rest = line.data();
        const char* const end = rest + line.size();
        while (rest != end && CanTake()) {
            const ssize_t written = write(_descriptor, rest, AtMost(static_cast<std::size_t>(end - rest)));
            if (written > 0) {
                rest += written;
            } else if (written == 0 || (errno != EINTR && errno != EAGAIN)) {
                if (written < 0 && errno == EPIPE) guard.Broken();
                return;
            }
        }
    }

private:
    /// A ready pipe accepts at least this much without blocking.
    static std::size_t AtMost(std::size_t size) { return std::min<std::size_t>(size, PIPE_BUF); }

    /// Waits briefly for a slow reader. After a timeout it does not wait again until the reader continues.
    bool CanTake() {
        constexpr int kMaxWait = 100;  // milliseconds
        pollfd descriptor{_descriptor, POLLOUT, 0};
        int ready = 0;
        do {
            ready = poll(&descriptor, 1, _stopped ? 0 : kMaxWait);
        } while (ready < 0 && errno == EINTR);
        _stopped = ready == 0;
        return ready != 0;
    }

    int _descriptor;
    bool _owned;
    bool _stopped = false;
};

constexpr const char* kStandardOutput = "";  // no file has this path

using Appenders = std::map<std::string, std::shared_ptr<Appender>>;  // by path

void AddStandardOutput(Appenders& appenders) {
    if (appenders.count(kStandardOutput) != 0) return;
    appenders[kStandardOutput] = std::make_shared<Appender>(STDOUT_FILENO, false);
}

struct State {
    State() { AddStandardOutput(appenders); }

    std::mutex mutex;  // guards all members below, and the writing of lines
    Appenders appenders;
    std::map<std::string, std::unique_ptr<Logger>> loggers;
    bool overridden = false;
};

/// Never destroyed: loggers are used until the process ends.
State& Shared() {
    static State* const state = [] {
        auto* const made = new State;
        // The child copies the mutex, so only the forking thread may hold it at the fork.
        pthread_atfork([] { Shared().mutex.lock(); }, [] { Shared().mutex.unlock(); }, [] { Shared().mutex.unlock(); });
        return made;
    }();
    return *state;
}

std::optional<int> Number(const std::string& text) {
    int number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end) return std::nullopt;
    return number;
}

/// The section's level, if any.
std::optional<int> LevelOf(const IniFile& ini, const char* section) {
    if (!ini.HasValue(section, "log.level")) return std::nullopt;
    const std::string text = ini.GetValue(section, "log.level");
    const auto level = Number(text);
    if (!level) throw osa::Exception("log.level is not a number: \"%s\"", IniFile::Escaped(text).c_str());
    return level;
}

std::shared_ptr<Appender> OpenFile(const std::string& path) {
    // Without O_NONBLOCK, open waits for a FIFO's reader without a deadline.
    const int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    const int descriptor = open(path.c_str(), flags, 0640);
    if (descriptor < 0) {
        const char* const reason = errno == ENXIO ? "it is a FIFO without a reader, or a socket" : std::strerror(errno);
        throw osa::Exception("log.file %s: %s", IniFile::Escaped(path).c_str(), reason);
    }
    return std::make_shared<Appender>(descriptor, true);
}

const char* LevelWord(int level) {
    if (level <= kError) return "Error";
    if (level <= kInformation) return "Information";
    return level <= kDebug ? "Debug" : "Trace";
}

/// A whole line. A short one allocates nothing, so that "out of memory" can be logged.
class Line {
public:
    __attribute__((format(printf, 4, 0)))
    Line(const std::string& name, int level, const char* format, va_list arguments) {
        va_list again;
        va_copy(again, arguments);
        _size = Print(_short, sizeof _short, name, level, format, arguments);
        if (_size + 1 >= sizeof _short) {
            _long.resize(_size + 2);  // a newline, a zero
            _start = _long.data();
            Print(_start, _long.size(), name, level, format, again);
        }
        va_end(again);
        if (_start[_size - 1] != '\n') _start[_size++] = '\n';
    }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    /// The line as of now.
    std::string_view Stamped() {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        tm local{};
        localtime_r(&now.tv_sec, &local);
        char time[64];
        const std::size_t size = std::strftime(time, sizeof time, "%Y-%m-%d %H:%M:%S", &local);
        std::snprintf(time + size, sizeof time - size, ".%03ld ", now.tv_nsec / 1000000);
        std::memcpy(_start, time, kStamp);
        return {_start, _size};
    }

private:
    static constexpr std::size_t kStamp = 24;  // octets of "2026-01-31 23:59:59.999 "

    /// Prints as snprintf does, with room for the time, and returns the whole line's size.
    __attribute__((format(printf, 5, 0))) static std::size_t Print(char* to, std::size_t room, const std::string& name,
                                                                   int level, const char* format, va_list arguments) {
        const int head =
            std::snprintf(to, room, "%*s%s %s ", static_cast<int>(kStamp), "", name.c_str(), LevelWord(level));
        const std::size_t used = std::min(static_cast<std::size_t>(head), room);
        int length = std::vsnprintf(to + used, room - used, format, arguments);
        if (length < 0) length = std::snprintf(to + used, room - used, "%s", format);  // better than no line
        return static_cast<std::size_t>(head + length);
    }

    char _short[512];
    std::string _long;  // empty for a line that fits into _short
    char* _start = _short;
    std::size_t _size;
};

}  // namespace

std::atomic<int> Logger::s_level{kError};

Logger* Logger::GetLogger(const char* name) {
    State& state = Shared();
    std::lock_guard<std::mutex> lock(state.mutex);
    auto& logger = state.loggers[name];
    if (!logger) logger = std::make_unique<Logger>(name);
    return logger.get();
}

void Logger::ClearAppenders() {
    State& state = Shared();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.appenders.clear();
}

void Logger::ConfigureLogging(const IniFile& ini, const char* section) {
    State& state = Shared();
    std::lock_guard<std::mutex> lock(state.mutex);
    try {
        const auto level = LevelOf(ini, section);
        Appenders appenders = state.appenders;
        if (ini.GetValue(section, "log.stdout") == "true") AddStandardOutput(appenders);
        const std::string file = ini.GetValue(section, "log.file");
        if (!file.empty() && appenders.count(file) == 0) appenders[file] = OpenFile(file);
        state.appenders.swap(appenders);
        if (level && !state.overridden) s_level = *level;
    } catch (...) {
        if (state.appenders.empty()) AddStandardOutput(state.appenders);
        throw;
    }
}

void Logger::EnableDebugLogging() {
    const char* const text = std::getenv("TAVOS_LOG_LEVEL");
    const auto level = text ? Number(text) : std::nullopt;
    if (!level) return;
    State& state = Shared();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.overridden = true;
    s_level = *level;
}

void Logger::LogMessageV(int level, const char* format, va_list arguments) const {
    try {
        Line line(_name, level, format, arguments);
        State& state = Shared();
        std::lock_guard<std::mutex> lock(state.mutex);
        // Read the time under the lock, so that the lines' times never decrease.
        const std::string_view text = line.Stamped();
        for (const auto& [path, appender] : state.appenders) appender->Write(text);
    } catch (...) {
        // A line that cannot be written is lost.
    }
}

void Logger::Error(const char* format, ...) const {
    if (!IsEnabled(kError)) return;
    va_list arguments;
    va_start(arguments, format);
    LogMessageV(kError, format, arguments);
    va_end(arguments);
}

void Logger::Information(const char* format, ...) const {
    if (!IsEnabled(kInformation)) return;
    va_list arguments;
    va_start(arguments, format);
    LogMessageV(kInformation, format, arguments);
    va_end(arguments);
}

void Logger::Debug(const char* format, ...) const {
    if (!IsEnabled(kDebug)) return;
    va_list arguments;
    va_start(arguments, format);
    LogMessageV(kDebug, format, arguments);
    va_end(arguments);
}

void Logger::Trace(const char* format, ...) const {
    if (!IsEnabled(kTrace)) return;
    va_list arguments;
    va_start(arguments, format);
    LogMessageV(kTrace, format, arguments);
    va_end(arguments);
}

}  // namespace tavos::core
