#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <vector>

#include "Failure.h"
#include "TemporaryFolder.h"
#include "tavos/core/IniFile.h"
#include "tavos/core/Logger.h"
#include "tavos/osa/Exception.h"
#include "tavos/settings/TavosSettingsClient.h"

using tavos::core::IniFile;
using tavos::osa::Exception;
using tavos::settings::TavosSettingsClient;
using testing::AllOf;
using testing::HasSubstr;
using Survives = TavosSettingsClient::Survives;

namespace {

/// "[a]b" with this value.
IniFile OneValue(const std::string& value) {
    IniFile ini;
    ini.SetValue("a", "b", value);
    return ini;
}

class SettingsTest : public testing::Test {
protected:
    SettingsTest() { setenv("TAVOS_SETTINGS_STORE", store.c_str(), 1); }

    void Execute(const char* sql) {
        sqlite3* database = nullptr;
        ASSERT_EQ(sqlite3_open(store.c_str(), &database), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(database);
        sqlite3_close(database);
    }

    TemporaryFolder folder;
    const std::string store = folder.File("settings.db");
};

TEST_F(SettingsTest, ValuesComeBack) {
    TavosSettingsClient client(TavosSettingsClient::kCreate);
    std::string all;
    for (int octet = 0; octet < 256; ++octet) all += static_cast<char>(octet);
    client.SetValue("[Device/ReadOnly]Model", "D1");
    client.SetValue("[Device/ReadOnly]Model", "D2");
    client.SetValue("[x]all octets", all);
    client.SetValue("[x]empty", "");
    for (const int mode : {0, 1, 2}) {
        TavosSettingsClient reader(mode);
        EXPECT_EQ(reader.GetValue("[Device/ReadOnly]Model"), "D2");
        EXPECT_EQ(reader.GetValue("[x]all octets"), all);
        EXPECT_EQ(reader.GetValue("[x]empty"), "");
        EXPECT_EQ(reader.GetValue("[x]missing"), "");
        EXPECT_EQ(reader.GetValue("[y]Model"), "");
    }
}

TEST_F(SettingsTest, KeysOfAnotherFormAreRefused) {
    TavosSettingsClient client(TavosSettingsClient::kCreate);
    for (const char* key : {"", "a", "[a]", "[]b", "a]b", "[a", "[a]b=c", "[a\n]b", "[a] b", "[[a]b", "[a]#b"}) {
        EXPECT_THAT(Failure([&] { client.SetValue(key, "1"); }), HasSubstr("is not a key of the form [Section]Key"))
            << key;
        EXPECT_NE(Failure([&] { client.GetValue(key); }), "") << key;
    }
}

TEST_F(SettingsTest, SettingsAreASectionAndWhatIsBelow) {
    TavosSettingsClient client(TavosSettingsClient::kCreate);
    for (const char* section : {"App", "App/One", "App/One/Deep", "Apple", "App0", "App.", "ap", "Zoo"}) {
        client.SetValue(std::string("[") + section + "]k", section);
    }
    const auto sections = [&](const std::string& path) {
        IniFile ini;
        ini.SetValue("before", "k", "kept");
        client.GetSettings(path, ini);
        EXPECT_EQ(ini.GetValue("before", "k"), "kept");
        std::string names;
        for (const auto& [name, values] : ini.Sections()) {
            if (name != "before") names += name + " ";
        }
        return names;
    };
    EXPECT_EQ(sections("App"), "App App/One App/One/Deep ");
    EXPECT_EQ(sections("App/One"), "App/One App/One/Deep ");
    EXPECT_EQ(sections("None"), "");
    EXPECT_EQ(sections(""), "App App. App/One App/One/Deep App0 Apple Zoo ap ");
}

TEST_F(SettingsTest, AMissingStoreIsAFailureUntilItIsThere) {
    TavosSettingsClient reader(TavosSettingsClient::kReadOnly);
    TavosSettingsClient writer(TavosSettingsClient::kReadWrite);
    EXPECT_THAT(Failure([&] { reader.GetValue("[a]b"); }), AllOf(HasSubstr(store), HasSubstr("unable to open")));
    EXPECT_NE(Failure([&] { writer.SetValue("[a]b", "1"); }), "");
    EXPECT_NE(access(store.c_str(), F_OK), 0);
    TavosSettingsClient(TavosSettingsClient::kCreate).SetValue("[a]b", "1");
    EXPECT_EQ(reader.GetValue("[a]b"), "1");
    writer.SetValue("[a]b", "2");
    EXPECT_EQ(reader.GetValue("[a]b"), "2");
}

TEST_F(SettingsTest, AnEmptyStoreIsMadeForItsOwnerAlone) {
    umask(0);
    IniFile ini;
    TavosSettingsClient(TavosSettingsClient::kCreate).GetSettings("", ini);
    EXPECT_TRUE(ini.Sections().empty());
    struct stat status {};
    ASSERT_EQ(stat(store.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    EXPECT_EQ(FileText(store).substr(18, 2), "\x02\x02");  // the file's mark for WAL
}

TEST_F(SettingsTest, ADamagedStoreIsReportedAndLeftAlone) {
    for (const std::string& rubbish : {std::string(5000, 'x'), std::string("no database")}) {
        WriteFile(store, rubbish);
        for (const int mode : {0, 1, 2}) {
            TavosSettingsClient client(mode);
            EXPECT_THAT(Failure([&] { client.GetValue("[a]b"); }),
                        AllOf(HasSubstr(store), HasSubstr("not a database")));
            EXPECT_NE(Failure([&] { client.SetValue("[a]b", "1"); }), "");
            IniFile ini;
            EXPECT_NE(Failure([&] { client.GetSettings("", ini); }), "");
        }
        EXPECT_EQ(FileText(store), rubbish);
    }
}

TEST_F(SettingsTest, AStoreDamagedInTheMiddleIsReported) {
    {
        TavosSettingsClient client(TavosSettingsClient::kCreate);
        IniFile many;
        for (int i = 0; i < 500; ++i) many.SetValue("s" + std::to_string(i), "k", std::string(100, 'v'));
        client.SetSettings(many);
    }
    std::string text = FileText(store);
    ASSERT_GT(text.size(), 20000U);
    for (std::size_t at = 4096; at < text.size(); ++at) text[at] = 'x';
    WriteFile(store, text);
    TavosSettingsClient client(TavosSettingsClient::kReadWrite);
    EXPECT_THAT(Failure([&] { client.GetValue("[s7]k"); }), HasSubstr("malformed"));
    EXPECT_THAT(Failure([&] { client.SetValue("[s7]k", "1"); }), HasSubstr("malformed"));
    EXPECT_EQ(FileText(store), text);
}

TEST_F(SettingsTest, AnotherProgramsDatabaseIsLeftAlone) {
    Execute("CREATE TABLE other (x)");
    const std::string before = FileText(store);
    for (const int mode : {0, 1, 2}) {
        TavosSettingsClient client(mode);
        EXPECT_THAT(Failure([&] { client.GetValue("[a]b"); }), HasSubstr("it is not a settings store")) << mode;
    }
    EXPECT_EQ(FileText(store), before);
}

TEST_F(SettingsTest, ReadOnlyDoesNotWrite) {
    TavosSettingsClient(TavosSettingsClient::kCreate).SetValue("[a]b", "1");
    TavosSettingsClient reader(TavosSettingsClient::kReadOnly);
    EXPECT_THAT(Failure([&] { reader.SetValue("[a]b", "2"); }), HasSubstr("reading only"));
    EXPECT_EQ(reader.GetValue("[a]b"), "1");
}

/// Like a full disk: files can be created but not written.
class NothingCanBeWritten {
public:
    NothingCanBeWritten() {
        getrlimit(RLIMIT_FSIZE, &_before);
        const rlimit none{0, _before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &none);
        _handler = signal(SIGXFSZ, SIG_IGN);
    }
    ~NothingCanBeWritten() {
        setrlimit(RLIMIT_FSIZE, &_before);
        signal(SIGXFSZ, _handler);
    }

private:
    rlimit _before{};
    sighandler_t _handler;
};

TEST_F(SettingsTest, WhatIsStoredCanBeReadWhenNothingCanBeWritten) {
    const std::string odd = folder.File("100% sure? #1.db");
    for (const std::string& path : {store, odd}) {
        setenv("TAVOS_SETTINGS_STORE", path.c_str(), 1);
        TavosSettingsClient(TavosSettingsClient::kCreate).SetValue("[a]b", "1");
        const NothingCanBeWritten guard;
        for (const int mode : {0, 1, 2}) {
            TavosSettingsClient client(mode);
            IniFile ini;
            EXPECT_EQ(Failure([&] { EXPECT_EQ(client.GetValue("[a]b"), "1"); }), "") << mode;
            EXPECT_EQ(Failure([&] { client.GetSettings("", ini); }), "") << mode;
            EXPECT_EQ(ini.GetValue("a", "b"), "1");
            EXPECT_NE(Failure([&] { client.SetValue("[a]b", "2"); }), "");
        }
    }
    TavosSettingsClient client(TavosSettingsClient::kReadWrite);
    client.SetValue("[a]b", "2");
    EXPECT_EQ(client.GetValue("[a]b"), "2");
}

TEST_F(SettingsTest, TheLogOfAKilledWriterIsRead) {
    TavosSettingsClient(TavosSettingsClient::kCreate).SetValue("[a]b", "old");
    const pid_t child = fork();
    if (child == 0) {
        sqlite3* database = nullptr;
        sqlite3_open(store.c_str(), &database);
        sqlite3_exec(database, "UPDATE settings SET value = 'new'", nullptr, nullptr, nullptr);
        _exit(0);  // without closing the database
    }
    waitpid(child, nullptr, 0);
    ASSERT_GT(FileText(store + "-wal").size(), 0U);
    unlink((store + "-shm").c_str());  // creating it again needs disk space
    TavosSettingsClient client(TavosSettingsClient::kReadOnly);
    {
        const NothingCanBeWritten guard;
        EXPECT_NE(Failure([&] { client.GetValue("[a]b"); }), "");
    }
    EXPECT_EQ(client.GetValue("[a]b"), "new");
}

TEST_F(SettingsTest, AFailureNamesItsCause) {
    TavosSettingsClient client(TavosSettingsClient::kReadWrite);
    EXPECT_THAT(Failure([&] { client.GetValue("[a]b"); }), HasSubstr("No such file or directory"));
}

/// Ends the test program when an open blocks.
class EndsInTime {
public:
    EndsInTime() { alarm(30); }
    ~EndsInTime() { alarm(0); }
};

void MakeSocket(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof address.sun_path);
    path.copy(address.sun_path, path.size());
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(descriptor);
}

const std::map<std::string, std::function<void(const std::string&)>> kOtherFiles = {
    {"a FIFO", [](const std::string& path) { EXPECT_EQ(mkfifo(path.c_str(), 0600), 0); }},
    {"a socket", MakeSocket},
    {"a folder", [](const std::string& path) { EXPECT_TRUE(std::filesystem::create_directory(path)); }},
    {"a link to a device", [](const std::string& path) { EXPECT_EQ(symlink("/dev/zero", path.c_str()), 0); }},
};

TEST_F(SettingsTest, OtherThanARegularFileIsRefusedBeforeItIsOpened) {
    const EndsInTime guard;
    TavosSettingsClient(TavosSettingsClient::kCreate).SetValue("[a]b", "1");
    const std::string whole = FileText(store);
    for (const auto& [kind, make] : kOtherFiles) {
        for (const std::string suffix : {"", "-wal", "-shm", "-journal"}) {
            const std::string path = store + suffix;
            std::filesystem::remove(path);
            make(path);
            const std::string reason =
                suffix.empty() ? store + ": it is no regular file" : store + ": " + path + " is no regular file";
            for (const int mode : {0, 1, 2}) {
                TavosSettingsClient client(mode);
                EXPECT_THAT(Failure([&] { client.GetValue("[a]b"); }), HasSubstr(reason)) << kind << mode;
                EXPECT_THAT(Failure([&] { client.SetValue("[a]b", "2"); }), HasSubstr(reason)) << kind << mode;
            }
            std::filesystem::remove(path);
            if (suffix.empty()) WriteFile(store, whole);
            EXPECT_EQ(TavosSettingsClient(TavosSettingsClient::kReadWrite).GetValue("[a]b"), "1") << kind << path;
        }
    }
}

TEST_F(SettingsTest, AStoreMayBeALinkToARegularFile) {
    const EndsInTime guard;
    const std::string elsewhere = folder.File("elsewhere");
    std::filesystem::create_directory(elsewhere);
    const std::string target = elsewhere + "/the store.db";
    ASSERT_EQ(symlink(target.c_str(), store.c_str()), 0);
    WriteFile(target, "");
    TavosSettingsClient client(TavosSettingsClient::kCreate);
    client.SetValue("[a]b", "1");
    EXPECT_EQ(client.GetValue("[a]b"), "1");
    ASSERT_EQ(mkfifo((target + "-journal").c_str(), 0600), 0);  // the library opens it beside the target
    EXPECT_THAT(Failure([&] { client.GetValue("[a]b"); }), HasSubstr(target + "-journal is no regular file"));
    std::filesystem::remove(target + "-journal");
    EXPECT_EQ(client.GetValue("[a]b"), "1");
}

TEST_F(SettingsTest, TheLogBesideALinksTargetIsRead) {
    const std::string elsewhere = folder.File("elsewhere");
    std::filesystem::create_directory(elsewhere);
    const std::string target = elsewhere + "/the store.db";
    ASSERT_EQ(symlink(target.c_str(), store.c_str()), 0);
    WriteFile(target, "");
    TavosSettingsClient client(TavosSettingsClient::kCreate);
    client.SetValue("[a]b", "old");
    client.SetSettings(OneValue("new"), Survives::kKill);
    ASSERT_NE(FileText(target + "-wal"), "");
    unlink((target + "-shm").c_str());
    {
        const NothingCanBeWritten guard;
        EXPECT_NE(Failure([&] { client.GetValue("[a]b"); }), "") << "the old value must not be returned";
    }
    EXPECT_EQ(client.GetValue("[a]b"), "new");
}

TEST_F(SettingsTest, ManyValuesOrNone) {
    TavosSettingsClient client(TavosSettingsClient::kCreate);
    client.SetValue("[a]a", "old");
    IniFile bad;
    bad.SetValue("a", "a", "new");
    bad.SetValue("b", "b", "new");
    bad.SetValue("c", "no=name", "new");
    EXPECT_NE(Failure([&] { client.SetSettings(bad); }), "");
    EXPECT_EQ(client.GetValue("[a]a"), "old");
    EXPECT_EQ(client.GetValue("[b]b"), "");

    IniFile good;
    good.SetValue("a", "a", "new");
    good.SetValue("b", "b", "new");
    client.SetSettings(good);
    EXPECT_EQ(client.GetValue("[a]a"), "new");
    EXPECT_EQ(client.GetValue("[b]b"), "new");
}

TEST_F(SettingsTest, ABusyStoreIsWaitedForButNotForever) {
    TavosSettingsClient client(TavosSettingsClient::kCreate);
    client.SetValue("[a]b", "1");
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(store.c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_EQ(client.GetValue("[a]b"), "1");  // readers do not wait
    EXPECT_THAT(Failure([&] { client.SetValue("[a]b", "2"); }), HasSubstr("locked"));
    ASSERT_EQ(sqlite3_exec(other, "COMMIT", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(other);
    client.SetValue("[a]b", "2");
    EXPECT_EQ(client.GetValue("[a]b"), "2");
}

/// In memory: a disk may take more than a second for one process's changes, and then the others rightly fail.
class SharedSettingsTest : public SettingsTest {
protected:
    SharedSettingsTest() { setenv("TAVOS_SETTINGS_STORE", memory.File("settings.db").c_str(), 1); }

    TemporaryFolder memory{"/dev/shm"};
};

TEST_F(SharedSettingsTest, ManyProcessesShareAStore) {
    constexpr int kProcesses = 4;
    constexpr int kValues = 25;
    std::vector<pid_t> children;
    for (int p = 0; p < kProcesses; ++p) {
        children.push_back(fork());
        if (children.back() != 0) continue;
        int result = 0;
        try {
            tavos::core::Logger::ClearAppenders();
            TavosSettingsClient client(TavosSettingsClient::kCreate);  // all of them create it at the same time
            for (int i = 0; i < kValues; ++i) {
                client.SetValue("[p" + std::to_string(p) + "]k" + std::to_string(i), std::to_string(i));
            }
        } catch (const std::exception& e) {
            fprintf(stderr, "%s\n", e.what());
            result = 1;
        }
        _exit(result);
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    IniFile ini;
    TavosSettingsClient(TavosSettingsClient::kReadOnly).GetSettings("", ini);
    for (int p = 0; p < kProcesses; ++p) {
        for (int i = 0; i < kValues; ++i) {
            EXPECT_EQ(ini.GetValue("p" + std::to_string(p), "k" + std::to_string(i)), std::to_string(i));
        }
    }
}

TEST_F(SharedSettingsTest, ProcessesThatMakeAStoreAtTheSameTimeAllMakeIt) {
    constexpr int kProcesses = 6;
    for (int round = 0; round < 10; ++round) {
        setenv("TAVOS_SETTINGS_STORE", memory.File("store" + std::to_string(round)).c_str(), 1);
        int start[2];
        ASSERT_EQ(pipe(start), 0);
        std::vector<pid_t> children;
        for (int p = 0; p < kProcesses; ++p) {
            children.push_back(fork());
            if (children.back() != 0) continue;
            tavos::core::Logger::ClearAppenders();
            close(start[1]);
            char none;
            [[maybe_unused]] const ssize_t ended = read(start[0], &none, 1);  // blocks until the parent closes the pipe
            const std::string fault = Failure([] {
                IniFile ini;
                TavosSettingsClient(TavosSettingsClient::kCreate).GetSettings("", ini);
            });
            if (!fault.empty()) fprintf(stderr, "%s\n", fault.c_str());
            _exit(fault.empty() ? 0 : 1);
        }
        close(start[0]);
        close(start[1]);
        for (const pid_t child : children) {
            int status = -1;
            waitpid(child, &status, 0);
            EXPECT_EQ(status, 0) << "round " << round;
        }
    }
}

/// Kills a process that stores numbers, and checks that the last acknowledged one is there.
void KillAWriter(TavosSettingsClient::Survives what) {
    TavosSettingsClient(TavosSettingsClient::kCreate).SetValue("[a]b", "0");
    int progress[2];
    ASSERT_EQ(pipe(progress), 0);
    const pid_t child = fork();
    if (child == 0) {
        TavosSettingsClient client(TavosSettingsClient::kReadWrite);
        for (int i = 1;; ++i) {
            client.SetSettings(OneValue(std::to_string(i)), what);
            if (write(progress[1], &i, sizeof i) != sizeof i) _exit(1);
        }
    }
    close(progress[1]);
    int last = 0;
    while (last < 20 && read(progress[0], &last, sizeof last) == sizeof last) {
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    while (read(progress[0], &last, sizeof last) == sizeof last) {
    }
    close(progress[0]);
    const int kept = std::stoi(TavosSettingsClient(TavosSettingsClient::kReadOnly).GetValue("[a]b"));
    EXPECT_GE(kept, last);
    EXPECT_LE(kept, last + 1);
    EXPECT_GE(last, 20);
}

TEST_F(SettingsTest, ValuesSurviveAKill) {
    KillAWriter(Survives::kPowerLoss);
}

TEST_F(SettingsTest, QuicklyStoredValuesSurviveAKill) {
    KillAWriter(Survives::kKill);
}

TEST_F(SettingsTest, AWriteThatMustSurviveOnlyAKillWaitsForNoDisk) {
    TavosSettingsClient writer(TavosSettingsClient::kCreate);
    writer.SetValue("[a]b", "old");
    ASSERT_EQ(FileText(store + "-wal"), "");
    const auto before = FileText(store);
    writer.SetSettings(OneValue("new"), Survives::kKill);
    EXPECT_EQ(FileText(store), before) << "the file is not written, so nothing has to reach the disk first";
    EXPECT_NE(FileText(store + "-wal"), "");
    EXPECT_EQ(TavosSettingsClient(TavosSettingsClient::kReadOnly).GetValue("[a]b"), "new");
    writer.SetValue("[c]d", "1");
    EXPECT_EQ(FileText(store + "-wal"), "") << "the next durable write leaves nothing beside the file";
    EXPECT_EQ(writer.GetValue("[a]b"), "new");
}

/// A client that has stored "old" quickly, so that its store is open.
struct OpenSettingsTest : SettingsTest {
    void SetUp() override {
        TavosSettingsClient(TavosSettingsClient::kCreate).SetValue("[a]b", "first");
        StoreQuickly("old");
    }

    void StoreQuickly(const std::string& value) { client.SetSettings(OneValue(value), Survives::kKill); }

    /// What another process finds.
    static std::string Found() { return TavosSettingsClient(TavosSettingsClient::kReadOnly).GetValue("[a]b"); }

    int Descriptors() const {
        int count = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code error;
            count += std::filesystem::read_symlink(entry, error).string().rfind(store, 0) == 0 ? 1 : 0;
        }
        return count;
    }

    const EndsInTime guard;
    TavosSettingsClient client{TavosSettingsClient::kReadWrite};
};

TEST_F(OpenSettingsTest, OpensTheFileOnceForManyQuickWrites) {
    const int changes = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(inotify_add_watch(changes, store.c_str(), IN_OPEN), 0);
    for (int i = 0; i < 10; ++i) StoreQuickly(std::to_string(i));
    inotify_event opened{};
    EXPECT_LT(read(changes, &opened, sizeof opened), 0);
    close(changes);
    EXPECT_EQ(Found(), "9");
}

TEST_F(OpenSettingsTest, AnyOtherOperationClosesTheFile) {
    IniFile ini;
    const std::function<void()> operations[] = {[&] { client.GetValue("[a]b"); }, [&] { client.GetSettings("", ini); },
                                                [&] { client.SetValue("[c]d", "1"); },
                                                [&] { client.DeleteValue("[c]d"); }, [&] { client.Release(); }};
    for (const auto& operation : operations) {
        StoreQuickly("new");
        EXPECT_GT(Descriptors(), 0);
        operation();
        EXPECT_EQ(Descriptors(), 0);
    }
}

TEST_F(OpenSettingsTest, AReplacedFileIsUsedAtOnce) {
    client.Release();
    std::filesystem::copy(store, folder.File("other"));
    StoreQuickly("in the file that goes");
    for (const char* suffix : {"-wal", "-shm"}) std::filesystem::remove(store + suffix);
    std::filesystem::rename(folder.File("other"), store);
    StoreQuickly("in the new one");
    EXPECT_EQ(Found(), "in the new one");
    client.Release();
    EXPECT_EQ(Found(), "in the new one");
}

TEST_F(OpenSettingsTest, ARemovedLogLosesNoLaterWrite) {
    for (const char* suffix : {"-wal", "-shm"}) {
        std::filesystem::remove(store + suffix);
        StoreQuickly(suffix);
        client.Release();
        EXPECT_EQ(Found(), suffix);
        StoreQuickly("open again");
    }
}

TEST_F(OpenSettingsTest, ADamagedFileIsReported) {
    WriteFile(store, std::string(5000, 'x'));
    EXPECT_THAT(Failure([&] { StoreQuickly("new"); }), AllOf(HasSubstr(store), HasSubstr("not a database")));
    std::filesystem::remove(store);
    EXPECT_THAT(Failure([&] { StoreQuickly("new"); }), HasSubstr("unable to open"));
    EXPECT_FALSE(std::filesystem::exists(store));
    EXPECT_EQ(Descriptors(), 0);
}

TEST_F(OpenSettingsTest, ATableThatIsGoneIsReported) {
    Execute("DROP TABLE settings; CREATE TABLE other (x)");
    EXPECT_THAT(Failure([&] { StoreQuickly("new"); }), HasSubstr("it is not a settings store"));
}

TEST_F(OpenSettingsTest, OtherThanARegularFileIsRefused) {
    const std::string whole = FileText(store);
    for (const std::string suffix : {"", "-wal", "-shm", "-journal"}) {
        const std::string path = store + suffix;
        std::filesystem::remove(path);
        ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
        EXPECT_THAT(Failure([&] { StoreQuickly("new"); }), HasSubstr("no regular file")) << suffix;
        std::filesystem::remove(path);
        if (suffix.empty()) WriteFile(store, whole);
        StoreQuickly("new");
        EXPECT_EQ(Found(), "new");
    }
}

TEST_F(OpenSettingsTest, OthersWriteBetweenQuickWrites) {
    for (int i = 0; i < 3; ++i) {
        TavosSettingsClient(TavosSettingsClient::kReadWrite).SetValue("[c]d", std::to_string(i));
        StoreQuickly(std::to_string(i));
        EXPECT_EQ(client.GetValue("[c]d"), std::to_string(i));
        EXPECT_EQ(client.GetValue("[a]b"), std::to_string(i));
        StoreQuickly("open again");
    }
}

TEST_F(OpenSettingsTest, ALockedStoreIsWaitedForBriefly) {
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(store.c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_THAT(Failure([&] { StoreQuickly("new"); }), HasSubstr("locked"));
    ASSERT_EQ(sqlite3_exec(other, "COMMIT", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(other);
    EXPECT_EQ(Found(), "old");
    StoreQuickly("new");
    EXPECT_EQ(Found(), "new");
}

TEST_F(OpenSettingsTest, AnInvalidNameStoresNothing) {
    IniFile bad;
    bad.SetValue("a", "b", "new");
    bad.SetValue("a", "no=name", "new");
    EXPECT_NE(Failure([&] { client.SetSettings(bad, Survives::kKill); }), "");
    EXPECT_EQ(Found(), "old");
    StoreQuickly("new");
    EXPECT_EQ(Found(), "new");
}

TEST_F(OpenSettingsTest, TheLogIsBounded) {
    std::uintmax_t max = 0;
    for (int i = 0; i < 2500; ++i) {
        StoreQuickly(std::to_string(i));
        max = std::max(max, std::filesystem::file_size(store + "-wal"));
    }
    EXPECT_GT(max, 1'000'000U);
    EXPECT_LT(max, 4'300'000U);
    EXPECT_EQ(Found(), "2499");
}

TEST_F(SettingsTest, TheLogNamesAFailureOnce) {
    const std::string file = folder.File("log");
    IniFile ini;
    ini.SetValue("log", "log.file", file);
    tavos::core::Logger::ClearAppenders();
    tavos::core::Logger::ConfigureLogging(ini, "log");
    TavosSettingsClient client(TavosSettingsClient::kReadWrite);
    const auto lines = [&] {
        const std::string text = FileText(file);
        return std::count(text.begin(), text.end(), '\n');
    };
    for (int i = 0; i < 3; ++i) EXPECT_NE(Failure([&] { client.GetValue("[a]b"); }), "");
    EXPECT_EQ(lines(), 1);
    EXPECT_THAT(FileText(file), HasSubstr(" tavos Error settings store " + store + ": unable to open"));
    TavosSettingsClient(TavosSettingsClient::kCreate).SetValue("[a]b", "1");
    EXPECT_EQ(client.GetValue("[a]b"), "1");
    EXPECT_EQ(lines(), 1);
    unlink(store.c_str());
    EXPECT_NE(Failure([&] { client.GetValue("[a]b"); }), "");
    EXPECT_EQ(lines(), 2);
    tavos::core::Logger::ClearAppenders();
}

}  // namespace
