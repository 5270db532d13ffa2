#pragma once

#include <sqlite3.h>

#include <initializer_list>
#include <memory>
#include <string>

#include "tavos/osa/Exception.h"

namespace tavos::settings {

struct DatabaseCloser {
    void operator()(sqlite3* database) const { sqlite3_close(database); }
};
using DatabasePtr = std::unique_ptr<sqlite3, DatabaseCloser>;

/// A failure of the database library.
class DatabaseFailure : public osa::Exception {
public:
    DatabaseFailure(int result, const char* text) : Exception("%s", text), _kind(result & 0xff) {}

    /// True if the cause may be a file that cannot be created or written.
    bool MayBeWriteFailure() const {
        return _kind == SQLITE_CANTOPEN || _kind == SQLITE_IOERR || _kind == SQLITE_READONLY || _kind == SQLITE_FULL;
    }

    /// True if another process has locked the database.
    bool IsBusy() const { return _kind == SQLITE_BUSY; }

private:
    int _kind;
};

/// Throws DatabaseFailure if `result` is a failure. `database` may be null.
void Check(sqlite3* database, int result);

/// A prepared statement. The database must outlive it. Members throw DatabaseFailure.
class Statement {
public:
    Statement(sqlite3* database, const char* sql, std::initializer_list<const std::string*> values = {});
    ~Statement() { sqlite3_finalize(_statement); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    void Bind(int index, const std::string& value);

    /// True if there is a row.
    bool Step();

    void Reset() { sqlite3_reset(_statement); }

    /// Runs it to its end; it can then be run again.
    void Run();

    std::string Text(int column);

private:
    sqlite3* _database;
    sqlite3_stmt* _statement = nullptr;
};

void Run(sqlite3* database, const char* sql);

}  // namespace tavos::settings
