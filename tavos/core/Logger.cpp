#include "tavos/core/Logger.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spdlog/details/log_msg.h>
#include <spdlog/details/null_mutex.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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
class DescriptorSink final : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
public:
    DescriptorSink(int descriptor, bool owned) : _descriptor(descriptor), _owned(owned) {
        set_formatter_(std::make_unique<spdlog::pattern_formatter>("%Y-%m-%d %H:%M:%S.%e %n %v"));
    }
    ~DescriptorSink() override {
        if (_owned) close(_descriptor);
    }
    DescriptorSink(const DescriptorSink&) = delete;
    DescriptorSink& operator=(const DescriptorSink&) = delete;

private:
    void sink_it_(const spdlog::details::log_msg& message) override {
        spdlog::memory_buf_t line;
        formatter_->format(message, line);
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
    void flush_() override {}

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

using Appenders = std::map<std::string, spdlog::sink_ptr>;  // by path

void AddStandardOutput(Appenders& appenders) {
    if (appenders.count(kStandardOutput) != 0) return;
    appenders[kStandardOutput] = std::make_shared<DescriptorSink>(STDOUT_FILENO, false);
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

spdlog::sink_ptr OpenFile(const std::string& path) {
    // Without O_NONBLOCK, open waits for a FIFO's reader without a deadline.
    const int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    const int descriptor = open(path.c_str(), flags, 0640);
    if (descriptor < 0) {
        const char* const reason = errno == ENXIO ? "it is a FIFO without a reader, or a socket" : std::strerror(errno);
        throw osa::Exception("log.file %s: %s", IniFile::Escaped(path).c_str(), reason);
    }
    return std::make_shared<DescriptorSink>(descriptor, true);
}

const char* LevelWord(int level) {
    if (level <= kError) return "Error";
    if (level <= kInformation) return "Information";
    return level <= kDebug ? "Debug" : "Trace";
}

/// A line's level and text. A short line allocates nothing, so that "out of memory" can be logged.
class LineText {
public:
    __attribute__((format(printf, 3, 0))) LineText(int level, const char* format, va_list arguments) {
        va_list again;
        va_copy(again, arguments);
        _start = static_cast<std::size_t>(std::snprintf(_short, sizeof _short, "%s ", LevelWord(level)));
        const int length = std::vsnprintf(_short + _start, sizeof _short - _start, format, arguments);
        if (length < 0) {
            _long = std::string(_short, _start) + format;
        } else if (_start + static_cast<std::size_t>(length) >= sizeof _short) {
            _long.assign(_short, _start);
            _long.resize(_start + static_cast<std::size_t>(length) + 1);
            std::vsnprintf(_long.data() + _start, static_cast<std::size_t>(length) + 1, format, again);
            _long.pop_back();
        }
        va_end(again);
    }

    /// The text without a newline at its end.
    std::string_view View() const {
        std::string_view text = _long.empty() ? std::string_view(_short) : std::string_view(_long);
        if (text.back() == '\n') text.remove_suffix(1);
        return text;
    }

private:
    char _short[512];
    std::size_t _start;
    std::string _long;  // empty for a line that fits into _short
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
        const LineText line(level, format, arguments);
        const auto text = line.View();
        State& state = Shared();
        std::lock_guard<std::mutex> lock(state.mutex);
        // Read the time under the lock, so that the lines' times never decrease.
        const spdlog::details::log_msg message(_name, spdlog::level::info,
                                               spdlog::string_view_t(text.data(), text.size()));
        for (const auto& [path, sink] : state.appenders) sink->log(message);
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
