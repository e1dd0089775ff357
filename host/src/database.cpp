// Connections and statements: opening, binding, and turning result codes into advice.
#include "database.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace kshost {
namespace {

constexpr int kBusyMilliseconds = 5000;

int busyMilliseconds() {
    const char* text = std::getenv("KSHOST_BUSY_TIMEOUT");
    if (text == nullptr) return kBusyMilliseconds;
    const long value = std::strtol(text, nullptr, 10);
    return value >= 0 && value <= 3600 * 1000 ? static_cast<int>(value) : kBusyMilliseconds;
}

bool outOfSpace(int code, int systemError) {
    return code == SQLITE_FULL ||
           ((code & 0xff) == SQLITE_IOERR && (systemError == ENOSPC || systemError == EDQUOT || systemError == EFBIG));
}

}  // namespace

std::string explanation(const std::string& path, int code, int systemError, const char* detail) {
    const int primary = code & 0xff;
    if (code == SQLITE_READONLY_ROLLBACK || code == SQLITE_READONLY_RECOVERY) {
        return path +
               " holds an interrupted write that must be undone first, and this needs permission to write: make " +
               path + ", " + path + "-journal and their folder writable and open the image once";
    }
    if (primary == SQLITE_BUSY || primary == SQLITE_LOCKED) {
        return path + " is locked by another program; try again when that has finished";
    }
    if (outOfSpace(code, systemError) ||
        (primary == SQLITE_CANTOPEN && (systemError == ENOSPC || systemError == EDQUOT))) {
        return "no room to write " + path + " (disk full, or a limit on file sizes); make room and try again";
    }
    if (primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB) {
        return path +
               " is damaged or no metadata file of this library; move it away to use the image without it, or put "
               "a good copy in its place";
    }
    if (primary == SQLITE_READONLY || primary == SQLITE_CANTOPEN || primary == SQLITE_PERM || primary == SQLITE_AUTH) {
        const std::string reason = systemError != 0 ? std::string(" (") + std::strerror(systemError) + ")" : "";
        return path + " cannot be opened or written" + reason +
               "; check the permissions of the file and its folder, or copy the image to a folder that can be written";
    }
    return path + ": " + detail;
}

Connection::Connection(const std::string& path, int flags) : path_(path) {
    // A leading "./" keeps names that mean something to SQLite (":memory:") names of files.
    const std::string name = path.empty() || path[0] == '/' ? path : "./" + path;
    const int code = sqlite3_open_v2(name.c_str(), &db_, flags, nullptr);
    if (code != SQLITE_OK) {
        const DatabaseError error = errorOf(code);
        sqlite3_close(db_);
        throw error;
    }
    sqlite3_extended_result_codes(db_, 1);
    sqlite3_busy_timeout(db_, busyMilliseconds());
}

void Connection::run(const char* sql) {
    const int code = sqlite3_exec(db_, sql, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) throw errorOf(code);
}

DatabaseError Connection::errorOf(int code) const {
    const int seen = errno;
    const int told = db_ != nullptr ? sqlite3_system_errno(db_) : 0;
    // SQLite forgets the reason of a write that failed while it committed; nothing has been called since.
    const int systemError = told == 0 && (code & 0xff) == SQLITE_IOERR ? seen : told;
    const int extended =
        db_ != nullptr && sqlite3_extended_errcode(db_) != SQLITE_OK ? sqlite3_extended_errcode(db_) : code;
    const char* detail = db_ != nullptr ? sqlite3_errmsg(db_) : sqlite3_errstr(code);
    return DatabaseError(explanation(path_, extended, systemError, detail), extended);
}

Statement::Statement(Connection& connection, const char* sql) : connection_(connection) {
    check(sqlite3_prepare_v2(connection.handle(), sql, -1, &statement_, nullptr));
}

Statement& Statement::bind(const std::string& text) {
    return bound(sqlite3_bind_text64(statement_, ++position_, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
}

Statement& Statement::bindBlob(const void* bytes, size_t size) {
    // A null pointer would be stored as null, and no bytes are a blob too.
    return bound(sqlite3_bind_blob64(statement_, ++position_, size > 0 ? bytes : "", size, SQLITE_STATIC));
}

void Statement::run() {
    while (step()) {
    }
    reset();
}

void Statement::reset() {
    check(sqlite3_reset(statement_));
    position_ = 0;
}

bool Statement::step() {
    const int code = sqlite3_step(statement_);
    if (code != SQLITE_ROW && code != SQLITE_DONE) throw connection_.errorOf(code);
    return code == SQLITE_ROW;
}

double Statement::real(int column) const {
    return isNull(column) ? std::numeric_limits<double>::quiet_NaN() : sqlite3_column_double(statement_, column);
}

std::string Statement::text(int column) const {
    const unsigned char* bytes = sqlite3_column_text(statement_, column);
    const auto size = static_cast<size_t>(sqlite3_column_bytes(statement_, column));
    return bytes == nullptr ? std::string() : std::string(bytes, bytes + size);
}

std::string_view Statement::blob(int column) const {
    if (sqlite3_column_type(statement_, column) != SQLITE_BLOB) return {};
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_, column));
    const auto size = static_cast<size_t>(sqlite3_column_bytes(statement_, column));
    return bytes == nullptr ? std::string_view("", 0) : std::string_view(bytes, size);
}

bool Statement::appendBlob(int column, std::vector<unsigned char>& bytes, size_t most) const {
    const std::string_view found = blob(column);
    if (found.empty() || found.size() > most - bytes.size()) return false;
    bytes.insert(bytes.end(), found.begin(), found.end());
    return true;
}

int integerOf(Connection& connection, const char* sql) {
    Statement statement(connection, sql);
    return statement.step() ? statement.integer(0) : 0;
}

}  // namespace kshost
