#include "Database.h"

namespace tavos::settings {

void Check(sqlite3* database, int result) {
    if (result == SQLITE_OK || result == SQLITE_ROW || result == SQLITE_DONE) return;
    throw DatabaseFailure(result, database ? sqlite3_errmsg(database) : sqlite3_errstr(result));
}

Statement::Statement(sqlite3* database, const char* sql, std::initializer_list<const std::string*> values)
    : _database(database) {
    Check(database, sqlite3_prepare_v2(database, sql, -1, &_statement, nullptr));
    int index = 0;
    for (const auto* value : values) Bind(++index, *value);
}

void Statement::Bind(int index, const std::string& value) {
    Check(_database,
          sqlite3_bind_text(_statement, index, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT));
}

bool Statement::Step() {
    const int result = sqlite3_step(_statement);
    Check(_database, result);
    return result == SQLITE_ROW;
}

void Statement::Run() {
    while (Step()) {
    }
    Reset();
}

std::string Statement::Text(int column) {
    const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(_statement, column));
    return text ? std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(_statement, column))) : std::string();
}

void Run(sqlite3* database, const char* sql) {
    Statement(database, sql).Run();
}

}  // namespace tavos::settings
