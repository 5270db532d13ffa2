#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <regex>
#include <thread>
#include <vector>

#include "Failure.h"
#include "TemporaryFolder.h"
#include "tavos/core/IniFile.h"
#include "tavos/core/Logger.h"
#include "tavos/osa/Exception.h"

using tavos::core::IniFile;
using tavos::core::Logger;
using testing::MatchesRegex;

// clang's sanitizers define these functions themselves, and a program cannot replace them.
#if !defined(ORVEX_ASAN) && !defined(ORVEX_TSAN)
#define CAN_REPLACE_ALLOCATION
#endif

#ifdef CAN_REPLACE_ALLOCATION
namespace {

thread_local bool t_outOfMemory = false;

}  // namespace

/// Like the library's operator new, but throws while the test simulates that this thread is out of memory.
void* operator new(std::size_t size) {
    if (t_outOfMemory) throw std::bad_alloc();
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
#endif

namespace {

IniFile Settings(std::initializer_list<std::pair<const char*, std::string>> values) {
    IniFile ini;
    for (const auto& [key, value] : values) ini.SetValue("log", key, value);
    return ini;
}

/// The lines without their times.
std::string WithoutTimes(const std::string& text) {
    return std::regex_replace(text, std::regex("(^|\n)\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} "), "$1");
}

class LoggerTest : public testing::Test {
protected:
    LoggerTest() { unsetenv("TAVOS_LOG_LEVEL"); }

    /// Sends all log lines to the file from now on.
    void UseFile(const std::string& level) {
        Logger::ClearAppenders();
        Logger::ConfigureLogging(Settings({{"log.level", level}, {"log.file", file}}), "log");
    }

    void LogAtEveryLevel() {
        log->Error("e");
        log->Information("i");
        log->Debug("d");
        log->Trace("t");
    }

    std::string Lines() { return WithoutTimes(FileText(file)); }

    TemporaryFolder folder;
    const std::string file = folder.File("log");
    Logger* const log = Logger::GetLogger("Test");
};

TEST_F(LoggerTest, StartsWithErrorsOnStandardOutput) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // the death test runs in a process that has not logged yet
    EXPECT_EXIT(
        {
            std::fflush(stdout);  // flushes the test program's output first
            dup2(STDERR_FILENO, STDOUT_FILENO);
            log->Error("%s: unknown pan mode (%d)", "handle_positionPan", 9);
            log->Information("unheard");
            _exit(log->IsEnabled(3) && !log->IsEnabled(6) ? 0 : 1);
        },
        testing::ExitedWithCode(0),
        MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} Test Error "
                     "handle_positionPan: unknown pan mode \\(9\\)\n"));
}

TEST_F(LoggerTest, ALineIsWrittenWhenTheLevelIsAtLeastItsNumber) {
    const std::vector<std::pair<const char*, const char*>> expected = {
        {"0", ""},
        {"2", ""},
        {"3", "Test Error e\n"},
        {"5", "Test Error e\n"},
        {"6", "Test Error e\nTest Information i\n"},
        {"7", "Test Error e\nTest Information i\nTest Debug d\n"},
        {"8", "Test Error e\nTest Information i\nTest Debug d\nTest Trace t\n"}};
    for (const auto& [level, lines] : expected) {
        UseFile(level);
        LogAtEveryLevel();
        EXPECT_EQ(Lines(), lines) << level;
        unlink(file.c_str());
    }
}

TEST_F(LoggerTest, LogMessageVWritesAtAnyLevel) {
    UseFile("0");
    const auto write = [&](int level, const char* format, ...) __attribute__((format(printf, 3, 4))) {
        va_list arguments;
        va_start(arguments, format);
        log->LogMessageV(level, format, arguments);
        va_end(arguments);
    };
    write(8, "%d%%", 5);
    write(3, "x");
    EXPECT_EQ(Lines(), "Test Trace 5%\nTest Error x\n");
}

TEST_F(LoggerTest, ANewlineAtTheEndIsNotDoubled) {
    UseFile("8");
    log->Error("one\n");
    log->Error("two\n\n");
    log->Error("\n");
    log->Error("%s", "");
    log->Error("%s", std::string(3000, 'x').c_str());
    EXPECT_EQ(Lines(), "Test Error one\nTest Error two\n\nTest Error \nTest Error \nTest Error " +
                           std::string(3000, 'x') + "\n");
}

#ifdef CAN_REPLACE_ALLOCATION
TEST_F(LoggerTest, AShortLineIsWrittenWithoutMemory) {
    UseFile("3");
    t_outOfMemory = true;
    Logger::GetLogger("Test")->Error("%s: given up after an exception: %s", "relayStatesTable", "std::bad_alloc");
    log->Error("again\n");
    t_outOfMemory = false;
    EXPECT_EQ(Lines(),
              "Test Error relayStatesTable: given up after an exception: std::bad_alloc\n"
              "Test Error again\n");
}
#endif

TEST_F(LoggerTest, LinesOfEveryLengthAreWhole) {
    UseFile("3");
    std::string expected;
    for (std::size_t length = 450; length < 530; ++length) {
        const std::string text(length, 'x');
        log->Error("%s", text.c_str());
        expected += "Test Error " + text + "\n";
    }
    for (const std::size_t length : {480, 510, 520, 2000}) {
        const std::string name(length, 'n');
        Logger::GetLogger(name.c_str())->Error("%s", "x");
        expected += name + " Error x\n";
    }
    EXPECT_EQ(Lines(), expected);
}

TEST_F(LoggerTest, LoggersOfOneNameAreOne) {
    UseFile("3");
    EXPECT_EQ(Logger::GetLogger("Test"), log);
    EXPECT_NE(Logger::GetLogger("Other"), log);
    Logger::GetLogger("Other")->Error("x");
    EXPECT_EQ(Lines(), "Other Error x\n");
}

TEST_F(LoggerTest, ClearAppendersSilences) {
    UseFile("8");
    Logger::ClearAppenders();
    testing::internal::CaptureStdout();
    LogAtEveryLevel();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(Lines(), "");
    UseFile("3");
    log->Error("again");
    EXPECT_EQ(Lines(), "Test Error again\n");
}

TEST_F(LoggerTest, AppendersAddUpAndAMissingKeyChangesNothing) {
    UseFile("6");
    testing::internal::CaptureStdout();
    Logger::ConfigureLogging(Settings({{"log.stdout", "true"}}), "log");
    Logger::ConfigureLogging(Settings({{"log.stdout", "true"}, {"log.file", file}}), "log");  // no second copy
    Logger::ConfigureLogging(IniFile(), "log");
    log->Information("both");
    EXPECT_EQ(WithoutTimes(testing::internal::GetCapturedStdout()), "Test Information both\n");
    EXPECT_EQ(Lines(), "Test Information both\n");
}

TEST_F(LoggerTest, AFileIsAppendedTo) {
    WriteFile(file, "before\n");
    UseFile("3");
    log->Error("x");
    EXPECT_EQ(Lines(), "before\nTest Error x\n");
}

TEST_F(LoggerTest, ARefusedConfigurationChangesNothing) {
    UseFile("6");
    const std::string absent = folder.File("no/such/folder/log");
    for (const char* level : {"", "x", "7x", " 7", "99999999999999999999"}) {
        EXPECT_THROW(Logger::ConfigureLogging(Settings({{"log.level", level}, {"log.stdout", "true"}}), "log"),
                     tavos::osa::Exception)
            << level;
    }
    EXPECT_THROW(
        Logger::ConfigureLogging(Settings({{"log.level", "8"}, {"log.stdout", "true"}, {"log.file", absent}}), "log"),
        tavos::osa::Exception);
    testing::internal::CaptureStdout();
    LogAtEveryLevel();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(Lines(), "Test Error e\nTest Information i\n");
}

TEST_F(LoggerTest, ARefusedConfigurationWithoutAppendersIsLoggedToStandardOutput) {
    for (const auto& [key, value, text] :
         {std::tuple{"log.level", "loud\nand more", "log.level is not a number: \"loud\\nand more\""},
          std::tuple{"log.file", "/no/such\n/file", "log.file /no/such\\n/file: No such file or directory"}}) {
        testing::internal::CaptureStdout();
        Logger::ClearAppenders();
        std::string thrown;
        try {
            Logger::ConfigureLogging(Settings({{key, value}}), "log");
        } catch (const tavos::osa::Exception& exception) {
            thrown = exception.what();
        }
        log->Error("said");
        EXPECT_EQ(thrown, text);
        EXPECT_EQ(WithoutTimes(testing::internal::GetCapturedStdout()), "Test Error said\n");
    }
}

TEST_F(LoggerTest, TheOperatorsLevelWins) {
    const auto body = [this] {
        setenv("TAVOS_LOG_LEVEL", "8", 1);
        UseFile("3");
        EXPECT_FALSE(log->IsEnabled(6));  // not armed yet
        Logger::EnableDebugLogging();
        EXPECT_TRUE(log->IsEnabled(8));
        UseFile("3");
        LogAtEveryLevel();
        EXPECT_EQ(Lines(), "Test Error e\nTest Information i\nTest Debug d\nTest Trace t\n");
        setenv("TAVOS_LOG_LEVEL", "0", 1);
        Logger::EnableDebugLogging();
        UseFile("8");
        EXPECT_FALSE(log->IsEnabled(3));
    };
    // In a child: the level stays with its process.
    EXPECT_EXIT((body(), _exit(HasFailure() ? 1 : 0)), testing::ExitedWithCode(0), "");
}

TEST_F(LoggerTest, WithoutAnOperatorsLevelNothingChanges) {
    UseFile("6");
    Logger::EnableDebugLogging();
    setenv("TAVOS_LOG_LEVEL", "trace", 1);
    Logger::EnableDebugLogging();
    EXPECT_TRUE(log->IsEnabled(6));
    EXPECT_FALSE(log->IsEnabled(7));
    UseFile("7");
    EXPECT_TRUE(log->IsEnabled(7));
}

/// Replaces standard output while the object lives.
class Redirected {
public:
    explicit Redirected(int descriptor) : _before(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 10)) {
        fflush(stdout);
        if (descriptor >= 0) {
            dup2(descriptor, STDOUT_FILENO);
        } else {
            close(STDOUT_FILENO);
        }
    }
    ~Redirected() {
        dup2(_before, STDOUT_FILENO);
        close(_before);
    }

private:
    int _before;
};

TEST_F(LoggerTest, AnOutputThatCannotBeWrittenDisturbsNoOther) {
    ASSERT_NE(signal(SIGPIPE, SIG_DFL), SIG_ERR);
    Logger::ClearAppenders();
    Logger::ConfigureLogging(Settings({{"log.level", "3"}, {"log.stdout", "true"}, {"log.file", file}}), "log");
    {
        const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
        ASSERT_GE(full, 0);
        Redirected output(full);
        log->Error("full");
        close(full);
    }
    {
        Redirected output(-1);
        log->Error("closed");
    }
    {
        int pipe[2];
        ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
        close(pipe[0]);
        Redirected output(pipe[1]);
        log->Error("broken");
        close(pipe[1]);
    }
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
    EXPECT_EQ(Lines(), "Test Error full\nTest Error closed\nTest Error broken\n");
}

TEST_F(LoggerTest, AReaderThatStopsReadingBlocksNobody) {
    Logger::ClearAppenders();
    Logger::ConfigureLogging(Settings({{"log.level", "3"}, {"log.stdout", "true"}, {"log.file", file}}), "log");
    int pipe[2];
    ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
    {
        Redirected output(pipe[1]);
        const std::string text(100, 'x');
        for (int i = 0; i < 2000; ++i) log->Error("%s", text.c_str());  // three times a pipe's size
        EXPECT_EQ(fcntl(STDOUT_FILENO, F_GETFL) & O_NONBLOCK, 0) << "other processes share the pipe";

        char buffer[4096];
        std::string read;
        ASSERT_EQ(fcntl(pipe[0], F_SETFL, O_NONBLOCK), 0);
        for (ssize_t size = 0; (size = ::read(pipe[0], buffer, sizeof buffer)) > 0;) {
            read.append(buffer, static_cast<std::size_t>(size));
        }
        EXPECT_EQ(read.back(), '\n') << "no line is cut";
        log->Error("once more");
        const ssize_t size = ::read(pipe[0], buffer, sizeof buffer);
        ASSERT_GT(size, 0);
        EXPECT_THAT(std::string(buffer, static_cast<std::size_t>(size)), testing::EndsWith(" Test Error once more\n"));
    }
    close(pipe[0]);
    close(pipe[1]);
    const std::string lines = Lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 2001) << "the other appenders lose nothing";
}

TEST_F(LoggerTest, AFifoThatNobodyReadsIsRefused) {
    const std::string fifo = folder.File("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    alarm(30);  // ends this program when the open blocks
    EXPECT_EQ(Failure([&] {
                  Logger::ConfigureLogging(Settings({{"log.file", fifo}}), "log");
              }),
              "log.file " + fifo + ": it is a FIFO without a reader, or a socket");
    alarm(0);

    const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    Logger::ClearAppenders();
    Logger::ConfigureLogging(Settings({{"log.level", "3"}, {"log.file", fifo}}), "log");
    const std::string text(100, 'x');
    for (int i = 0; i < 2000; ++i) log->Error("%s", text.c_str());  // three times its size
    std::string read;
    char buffer[4096];
    for (ssize_t size = 0; (size = ::read(reader, buffer, sizeof buffer)) > 0;) {
        read.append(buffer, static_cast<std::size_t>(size));
    }
    EXPECT_THAT(read, testing::EndsWith(" Test Error " + text + "\n")) << "no line is cut";
    log->Error("once more");
    const ssize_t size = ::read(reader, buffer, sizeof buffer);
    ASSERT_GT(size, 0);
    EXPECT_THAT(std::string(buffer, static_cast<std::size_t>(size)), testing::EndsWith(" Test Error once more\n"));
    close(reader);
    log->Error("nobody reads");  // and no SIGPIPE
}

TEST_F(LoggerTest, AFileThatCannotGrowDisturbsNoOther) {
    ASSERT_NE(signal(SIGXFSZ, SIG_IGN), SIG_ERR);
    UseFile("3");
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    rlimit none = before;
    none.rlim_cur = 0;
    setrlimit(RLIMIT_FSIZE, &none);
    log->Error("lost");
    setrlimit(RLIMIT_FSIZE, &before);
    log->Error("kept");
    EXPECT_EQ(Lines(), "Test Error kept\n");
}

TEST_F(LoggerTest, LinesOfManyThreadsStayWhole) {
    UseFile("3");
    const std::string text(200, 'x');
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 100; ++i) log->Error("%s", text.c_str());
        });
    }
    for (auto& thread : threads) thread.join();
    std::string expected;
    for (int i = 0; i < 400; ++i) expected += "Test Error " + text + "\n";
    EXPECT_EQ(Lines(), expected);
}

TEST_F(LoggerTest, TheLogFileIsNotInherited) {
    UseFile("3");
    Logger::ConfigureLogging(Settings({{"log.file", file}}), "log");
    bool found = false;
    for (int descriptor = 3; descriptor < 64; ++descriptor) {
        char name[4096] = {};
        const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
        if (readlink(link.c_str(), name, sizeof name - 1) < 0 || file != name) continue;
        found = true;
        EXPECT_TRUE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC);
    }
    EXPECT_TRUE(found);
}

}  // namespace
