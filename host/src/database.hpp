// SQLite as the host uses it: a connection that lives as long as one call, prepared statements, and failures that say
// what happened and what to do about it.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kshost {

/// A failure that leaves through one place, where the transaction is undone and the text handed back.
struct DatabaseError : std::runtime_error {
    DatabaseError(const std::string& text, int resultCode) : std::runtime_error(text), code(resultCode) {}
    int code;
};

/// What happened to a database and what to do about it, from SQLite's result and the system's error.
std::string explanation(const std::string& path, int code, int systemError, const char* detail);

class Connection {
public:
    Connection(const std::string& path, int flags);
    ~Connection() { sqlite3_close(db_); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void run(const char* sql);
    /// Undoes an open transaction; there is nothing to do when the failure has undone it already.
    void undo() noexcept { sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr); }

    DatabaseError errorOf(int code) const;
    [[noreturn]] void refuse(const std::string& text) const { throw DatabaseError(path_ + " " + text, SQLITE_ERROR); }

    sqlite3* handle() const { return db_; }
    const std::string& path() const { return path_; }

private:
    std::string path_;
    sqlite3* db_ = nullptr;
};

/// A prepared statement: bind values in order, step through rows or run.
class Statement {
public:
    Statement(Connection& connection, const char* sql);
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(int value) { return bound(sqlite3_bind_int(statement_, ++position_, value)); }
    Statement& bind(std::int64_t value) { return bound(sqlite3_bind_int64(statement_, ++position_, value)); }
    /// SQLite has no NaN: it is kept as null.
    Statement& bind(double value) { return bound(sqlite3_bind_double(statement_, ++position_, value)); }
    Statement& bindNull() { return bound(sqlite3_bind_null(statement_, ++position_)); }
    Statement& bind(const std::string& text);
    /// The bytes must stay until the statement has run.
    Statement& bindBlob(const void* bytes, size_t size);
    /// Runs to the end; the statement can then be bound again.
    void run();
    bool step();
    /// Ready to be bound and stepped through again.
    void reset();

    int integer(int column) const { return sqlite3_column_int(statement_, column); }
    std::int64_t integer64(int column) const { return sqlite3_column_int64(statement_, column); }
    bool isNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }
    double real(int column) const;
    std::string text(int column) const;
    /// The bytes of a blob, until the next step; null data when the value is no blob.
    std::string_view blob(int column) const;
    /// Adds a blob's bytes to others, or false when the value is no blob or would make them more than `most`.
    bool appendBlob(int column, std::vector<unsigned char>& bytes, size_t most) const;

private:
    void check(int code) const {
        if (code != SQLITE_OK) throw connection_.errorOf(code);
    }
    Statement& bound(int code) {
        check(code);
        return *this;
    }

    Connection& connection_;
    sqlite3_stmt* statement_ = nullptr;
    int position_ = 0;
};

/// The first value of a query, or 0.
int integerOf(Connection& connection, const char* sql);

}  // namespace kshost
