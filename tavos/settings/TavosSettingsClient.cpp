#include "tavos/settings/TavosSettingsClient.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <thread>

#include "Database.h"
#include "tavos/core/IniFile.h"
#include "tavos/core/Logger.h"
#include "tavos/osa/Exception.h"

namespace tavos::settings {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kBusyTime{1000};
constexpr std::chrono::milliseconds kBusyPoll{1};
constexpr int kQuickBusyTime = 100;   // milliseconds, for values that must survive only a kill
constexpr off_t kMaxLog = 4'000'000;  // bytes of the log beside the file: the library's own limit is a little above

struct Key {
    std::string section;
    std::string name;
};

/// "[Section]Key".
Key Parsed(const std::string& text) {
    const auto end = text.find(']');
    if (!text.empty() && text.front() == '[' && end != std::string::npos) {
        Key key{text.substr(1, end - 1), text.substr(end + 1)};
        if (core::IniFile::IsSectionName(key.section) && core::IniFile::IsKeyName(key.name)) return key;
    }
    throw osa::Exception("\"%s\" is not a key of the form [Section]Key", text.c_str());
}

std::string StorePath() {
    const char* const path = std::getenv("TAVOS_SETTINGS_STORE");
    const std::string given = path && *path ? path : "/var/lib/tavos/settings.db";
    std::error_code error;  // absolute: a daemon changes its working directory
    const auto absolute = std::filesystem::absolute(given, error);
    return error ? given : absolute.string();
}

/// `path` with its symbolic links resolved: the database library keeps its other files beside that file. `path` itself
/// if the file does not exist.
std::string Resolved(const std::string& path) {
    std::error_code error;
    const auto resolved = std::filesystem::canonical(path, error);
    return error ? path : resolved.string();
}

bool IsNoRegularFile(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

/// The database library's open of a FIFO would block without a deadline. It still blocks if a FIFO replaces a file in
/// the microseconds between this check and the open.
void RefuseOtherThanRegularFiles(const std::string& path) {
    if (IsNoRegularFile(path)) throw osa::Exception("it is no regular file");
    const std::string resolved = Resolved(path);
    for (const char* suffix : {"-wal", "-shm", "-journal"}) {
        const std::string beside = resolved + suffix;
        if (IsNoRegularFile(beside)) throw osa::Exception("%s is no regular file; remove it", beside.c_str());
    }
}

/// The database library's busy handler. The library's default handler waits up to 100 ms between attempts. Processes
/// that store many values took the lock first each time, and it failed although no process held the lock for long.
int WaitForLock(void* deadline, int /*attempts*/) {
    if (Clock::now() >= *static_cast<const Clock::time_point*>(deadline)) return 0;
    std::this_thread::sleep_for(kBusyPoll);
    return 1;
}

/// Size and time of a database file and size of the log beside it. Each change of the contents changes one of them.
struct Stamp {
    explicit Stamp(const std::string& path) {
        const std::string resolved = Resolved(path);
        struct stat status {};
        if (stat(resolved.c_str(), &status) == 0) {
            size = status.st_size;
            time = status.st_mtim;
        }
        if (stat((resolved + "-wal").c_str(), &status) == 0) logSize = status.st_size;
    }
    bool operator==(const Stamp& other) const {
        return size == other.size && logSize == other.logSize && time.tv_sec == other.time.tv_sec &&
               time.tv_nsec == other.time.tv_nsec;
    }

    off_t size = 0, logSize = 0;
    timespec time{};
};

std::string AsUri(const std::string& path) {
    std::string uri = "file:";
    for (const char c : path) {
        char octet[4];
        std::snprintf(octet, sizeof octet, "%%%02x", static_cast<unsigned char>(c));
        uri += c == '/' ? "/" : octet;
    }
    return uri;
}

bool HasTable(sqlite3* database) {
    return Statement(database, "SELECT 1 FROM sqlite_schema WHERE type = 'table' AND name = 'settings'").Step();
}

bool IsEmpty(sqlite3* database) {
    return !Statement(database, "SELECT 1 FROM sqlite_schema").Step();
}

/// Leaves changes in the log beside the file; the system writes the log to the disk later. The next process that closes
/// the file as its last user moves them into the file.
void LeaveToTheSystem(sqlite3* database, off_t logSize) {
    Run(database, "PRAGMA synchronous = NORMAL");
    if (logSize < kMaxLog) Check(database, sqlite3_db_config(database, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr));
    sqlite3_busy_timeout(database, kQuickBusyTime);
}

void Insert(Statement& insert, const core::IniFile& ini) {
    for (const auto& [section, values] : ini.Sections()) {
        if (!core::IniFile::IsSectionName(section))
            throw osa::Exception("\"%s\" is not a section name", section.c_str());
        for (const auto& [key, value] : values) {
            if (!core::IniFile::IsKeyName(key)) throw osa::Exception("\"%s\" is not a key name", key.c_str());
            insert.Bind(1, section);
            insert.Bind(2, key);
            insert.Bind(3, value);
            insert.Run();
        }
    }
}

/// Stores values in an open database, as one transaction each time. After a failure the database must be closed.
class Writer {
public:
    explicit Writer(sqlite3* database)
        : _begin(database, "BEGIN IMMEDIATE"),
          _insert(database, "INSERT OR REPLACE INTO settings (section, key, value) VALUES (?1, ?2, ?3)"),
          _commit(database, "COMMIT") {}

    void Write(const core::IniFile& ini) {
        _begin.Run();
        Insert(_insert, ini);
        _commit.Run();
    }

private:
    Statement _begin, _insert, _commit;
};

/// A file's identity; with its size and time, it also shows a change of the contents.
struct File {
    explicit File(const std::string& path) {
        struct stat status {};
        if (stat(path.c_str(), &status) != 0) return;
        exists = true;
        device = status.st_dev;
        inode = status.st_ino;
        size = status.st_size;
        time = status.st_mtim;
    }
    bool IsSame(const File& other) const {
        return exists && other.exists && device == other.device && inode == other.inode;
    }
    bool IsUnchanged(const File& other) const {
        return IsSame(other) && size == other.size && time.tv_sec == other.time.tv_sec &&
               time.tv_nsec == other.time.tv_nsec;
    }

    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec time{};
};

/// A store that stays open between writes that must survive only a kill: opening and closing it takes ten times as long
/// as such a write.
class OpenStore {
public:
    /// `file` is what `path` named before the database was opened.
    OpenStore(DatabasePtr database, const std::string& path, const File& file)
        : _path(path),
          _resolved(Resolved(path)),
          _file(file),
          _log(_resolved + "-wal"),
          _index(_resolved + "-shm"),
          _database(std::move(database)),
          _writer(_database.get()) {}

    /// False if another process would not find what is written here, or if the file must be checked again: one of the
    /// store's files has been replaced, removed or changed. Also if the log must not grow any more.
    bool IsUsable() const {
        const File log(_resolved + "-wal");
        return _process == getpid() && _file.IsUnchanged(File(_path)) && _log.IsSame(log) && log.size < kMaxLog &&
               _index.IsSame(File(_resolved + "-shm")) && !File(_resolved + "-journal").exists;
    }

    /// A forked child must not close the database: it has no part in its parent's locks.
    bool IsOfThisProcess() const { return _process == getpid(); }

    void Write(const core::IniFile& ini) { _writer.Write(ini); }

private:
    const pid_t _process = getpid();
    const std::string _path, _resolved;
    const File _file, _log, _index;
    const DatabasePtr _database;
    Writer _writer;
};

/// Creates the table in an empty database. Other processes may do the same at the same time. The library calls no busy
/// handler when the journal mode changes, so this function waits for them.
void MakeTable(sqlite3* database, Clock::time_point deadline) {
    for (bool done = false; !done;) {
        try {
            Run(database, "PRAGMA journal_mode = WAL");
            done = true;
        } catch (const DatabaseFailure& e) {
            if (!e.IsBusy() || !WaitForLock(&deadline, 0)) throw;
        }
    }
    Run(database, "BEGIN IMMEDIATE");
    Run(database,
        "CREATE TABLE IF NOT EXISTS settings (section TEXT NOT NULL, key TEXT NOT NULL, value TEXT NOT NULL, "
        "PRIMARY KEY (section, key)) WITHOUT ROWID");
    Run(database, "COMMIT");
}

}  // namespace

/// Opens the file for each operation and closes it afterwards, except between writes that must survive only a kill. A
/// database must not stay open across a fork: the child would rely on locks that it does not hold. Each operation also
/// uses a replaced or repaired file at once.
struct TavosSettingsClient::Store {
    explicit Store(int operationMode) : mode(operationMode), path(StorePath()) {}
    ~Store() { Release(); }
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    /// Runs `work`, which writes, with the open database.
    template <class Work>
    void Write(const Work& work) {
        LogFailures(writingFails, [&] { work(OpenToWrite().get()); });
    }

    /// Leaves the database open.
    void WriteQuickly(const core::IniFile& ini) {
        LogFailures(writingFails, [&] {
            if (kept && kept->IsUsable() && IsWrittenToKept(ini)) return;
            Release();
            auto opened = OpenToKeep();
            opened->Write(ini);
            kept = std::move(opened);
        });
    }

    /// False if the store must be opened again: then it works, or the reason is found.
    bool IsWrittenToKept(const core::IniFile& ini) {
        try {
            kept->Write(ini);
            return true;
        } catch (const DatabaseFailure& e) {
            Release();
            if (e.IsBusy()) throw;  // another wait would be as long
            return false;
        } catch (...) {
            Release();
            throw;
        }
    }

    /// Closes what WriteQuickly has left open.
    void Release() {
        if (kept && !kept->IsOfThisProcess()) static_cast<void>(kept.release());
        kept.reset();
    }

    /// Like Write, for work that only reads and may run twice. An open database requires two more files beside it. If
    /// they cannot be created (full or read-only disk), this reads the database file alone, unless one of them holds
    /// newer changes.
    template <class Work>
    void Read(const Work& work) {
        LogFailures(readingFails, [&] {
            Release();
            const Stamp before(path);
            try {
                work(Open().get());
            } catch (const DatabaseFailure& e) {
                if (!e.MayBeWriteFailure() || before.logSize > 0) throw;
                work(OpenFileAlone().get());
                if (!(Stamp(path) == before)) throw;
            }
        });
    }

    /// Logs the first failure after a success, and rethrows each failure with the store's name.
    template <class Work>
    void LogFailures(bool& failing, const Work& work) {
        std::string fault;
        try {
            work();
            failing = false;
            return;
        } catch (const DatabaseFailure& e) {
            fault = e.what() + (e.MayBeWriteFailure() ? LikelyReason() : "");
        } catch (const osa::Exception& e) {
            fault = e.what();
        }
        const osa::Exception whole("settings store %s: %s", path.c_str(), fault.c_str());
        if (!failing) core::Logger::GetLogger("tavos")->Error("%s", whole.what());
        failing = true;
        throw whole;
    }

    /// The likely cause in the file system; the database library does not report it.
    std::string LikelyReason() const {
        constexpr std::uint64_t kRoom = 64 * 1024;  // bytes, for the files that an open database needs
        const std::string folder = std::filesystem::path(path).parent_path().string();
        const auto refused = [](const std::string& name, int access) {
            return faccessat(AT_FDCWD, name.c_str(), access, AT_EACCESS) != 0;
        };
        struct statvfs disk {};
        int reason = 0;
        if (refused(path, mode == kReadOnly ? R_OK : R_OK | W_OK) || refused(folder, W_OK)) {
            reason = errno;
        } else if (statvfs(folder.c_str(), &disk) == 0 && std::uint64_t{disk.f_bavail} * disk.f_frsize < kRoom) {
            reason = ENOSPC;
        }
        return reason ? std::string(" (") + std::strerror(reason) + ")" : "";
    }

    DatabasePtr OpenFileAlone() const {
        RefuseOtherThanRegularFiles(path);
        sqlite3* opened = nullptr;
        const std::string uri = AsUri(path) + "?immutable=1";
        const int result = sqlite3_open_v2(uri.c_str(), &opened,
                                           SQLITE_OPEN_READONLY | SQLITE_OPEN_PRIVATECACHE | SQLITE_OPEN_URI, nullptr);
        DatabasePtr database(opened);
        Check(opened, result);
        if (!HasTable(opened)) throw osa::Exception("it is not a settings store");
        return database;
    }

    DatabasePtr OpenToWrite() {
        DatabasePtr database = Open();
        if (mode == kReadOnly) throw osa::Exception("it is open for reading only");
        return database;
    }

    std::unique_ptr<OpenStore> OpenToKeep() {
        const File file(path);
        const off_t logSize = Stamp(path).logSize;
        DatabasePtr database = OpenToWrite();
        LeaveToTheSystem(database.get(), logSize);
        return std::make_unique<OpenStore>(std::move(database), path, file);
    }

    DatabasePtr Open() {
        Release();
        RefuseOtherThanRegularFiles(path);
        deadline = Clock::now() + kBusyTime;
        if (mode == kCreate) CreateFile();
        sqlite3* opened = nullptr;
        const int flags = (mode == kReadOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE) | SQLITE_OPEN_PRIVATECACHE;
        const int result = sqlite3_open_v2(path.c_str(), &opened, flags, nullptr);
        DatabasePtr database(opened);
        Check(opened, result);
        sqlite3_busy_handler(opened, WaitForLock, &deadline);
        if (mode != kReadOnly) Run(opened, "PRAGMA synchronous = FULL");
        if (mode == kCreate && IsEmpty(opened)) MakeTable(opened, deadline);
        if (!HasTable(opened)) throw osa::Exception("it is not a settings store");
        return database;
    }

    /// Readable by the owner only: the store may hold passwords later.
    void CreateFile() const {
        const int descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (descriptor >= 0) {
            close(descriptor);
        } else if (errno != EEXIST) {
            throw osa::Exception("%s", std::strerror(errno));
        }
    }

    const int mode;
    const std::string path;
    Clock::time_point deadline{};  // of the current operation's wait for another process's lock
    bool readingFails = false;
    bool writingFails = false;
    std::unique_ptr<OpenStore> kept;
};

TavosSettingsClient::TavosSettingsClient(int operationMode) : _store(std::make_unique<Store>(operationMode)) {}

TavosSettingsClient::~TavosSettingsClient() = default;

std::string TavosSettingsClient::GetValue(const std::string& key) const {
    const Key parsed = Parsed(key);
    std::string value;
    _store->Read([&](sqlite3* database) {
        Statement select(database, "SELECT value FROM settings WHERE section = ?1 AND key = ?2",
                         {&parsed.section, &parsed.name});
        if (select.Step()) value = select.Text(0);
    });
    return value;
}

void TavosSettingsClient::SetValue(const std::string& key, const std::string& value) {
    const Key parsed = Parsed(key);
    core::IniFile one;
    one.SetValue(parsed.section, parsed.name, value);
    SetSettings(one);
}

bool TavosSettingsClient::DeleteValue(const std::string& key) {
    const Key parsed = Parsed(key);
    bool existed = false;
    _store->Write([&](sqlite3* database) {
        Statement remove(database, "DELETE FROM settings WHERE section = ?1 AND key = ?2",
                         {&parsed.section, &parsed.name});
        remove.Run();
        existed = sqlite3_changes(database) > 0;
    });
    return existed;
}

void TavosSettingsClient::GetSettings(const std::string& path, core::IniFile& ini) const {
    const std::string first = path + "/";
    const std::string beyond = path + "0";  // '0' comes next after '/'
    core::IniFile found;
    _store->Read([&](sqlite3* database) {
        found = core::IniFile();
        Statement select(database, path.empty() ? "SELECT section, key, value FROM settings"
                                                : "SELECT section, key, value FROM settings "
                                                  "WHERE section = ?1 OR (section >= ?2 AND section < ?3)");
        if (!path.empty()) {
            select.Bind(1, path);
            select.Bind(2, first);
            select.Bind(3, beyond);
        }
        while (select.Step()) found.SetValue(select.Text(0), select.Text(1), select.Text(2));
    });
    for (const auto& [section, values] : found.Sections()) {
        for (const auto& [key, value] : values) ini.SetValue(section, key, value);
    }
}

void TavosSettingsClient::SetSettings(const core::IniFile& ini, Survives what) {
    if (what == Survives::kKill) {
        _store->WriteQuickly(ini);
    } else {
        _store->Write([&](sqlite3* database) { Writer(database).Write(ini); });
    }
}

void TavosSettingsClient::Release() {
    _store->Release();
}

}  // namespace tavos::settings
