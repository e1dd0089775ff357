// The SQLite database behind a sidecar. A rollback journal and full synchronisation make a commit all or nothing, also
// when the process is killed; the schema belongs to the first commit, so that a half-made file is an empty database.
#include "sidecar.hpp"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>

namespace kshost {
namespace {

constexpr int kApplicationId = 0x6b736c62;  // "kslb"
constexpr int kVersion = 2;
constexpr int kCodebookVersion = 2;  // the first that can hold a codebook
constexpr int kBusyMilliseconds = 5000;
constexpr int kCommitAttempts = 3;

constexpr const char* kSchema = R"sql(
CREATE TABLE image(
  id INTEGER PRIMARY KEY CHECK (id = 1),
  width INTEGER NOT NULL, height INTEGER NOT NULL, channels INTEGER NOT NULL,
  created INTEGER NOT NULL,
  header_hash TEXT NOT NULL, former_header_hash TEXT NOT NULL,
  changes INTEGER NOT NULL);
CREATE TABLE lists(level INTEGER NOT NULL, number INTEGER NOT NULL, PRIMARY KEY (level, number)) WITHOUT ROWID;
CREATE TABLE entries(
  level INTEGER NOT NULL, number INTEGER NOT NULL, position INTEGER NOT NULL, entry TEXT NOT NULL,
  PRIMARY KEY (level, number, position)) WITHOUT ROWID;
CREATE TABLE channels(number INTEGER PRIMARY KEY, description TEXT NOT NULL);
CREATE TABLE history(id INTEGER PRIMARY KEY, time TEXT NOT NULL, entry TEXT NOT NULL);
CREATE TABLE place(
  id INTEGER PRIMARY KEY CHECK (id = 1), wkt TEXT NOT NULL,
  t0 REAL, t1 REAL, t2 REAL, t3 REAL, t4 REAL, t5 REAL);
CREATE TABLE no_data(channel INTEGER PRIMARY KEY, value REAL);
)sql";

// Code vectors are kept in runs, each under the number of its first, because one blob can be too large for SQLite.
constexpr const char* kCodebookSchema = R"sql(
CREATE TABLE codebook(
  id INTEGER PRIMARY KEY CHECK (id = 1),
  vectors INTEGER NOT NULL, bands INTEGER NOT NULL, data_type INTEGER NOT NULL, checksum INTEGER NOT NULL);
CREATE TABLE code_vectors(first INTEGER PRIMARY KEY, components BLOB NOT NULL);
)sql";
constexpr size_t kRunBytes = size_t{1} << 20U;
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "components are stored as they are in memory");

/// A failure that leaves through one place, where the transaction is undone and the text handed back.
struct SidecarError : std::runtime_error {
    SidecarError(const std::string& text, int resultCode) : std::runtime_error(text), code(resultCode) {}
    int code;
};

bool outOfSpace(int code, int systemError) {
    return code == SQLITE_FULL ||
           ((code & 0xff) == SQLITE_IOERR && (systemError == ENOSPC || systemError == EDQUOT || systemError == EFBIG));
}

/// Says what happened and what to do about it.
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

int busyMilliseconds() {
    const char* text = std::getenv("KSHOST_BUSY_TIMEOUT");
    if (text == nullptr) return kBusyMilliseconds;
    const long value = std::strtol(text, nullptr, 10);
    return value >= 0 && value <= 3600 * 1000 ? static_cast<int>(value) : kBusyMilliseconds;
}

class Connection {
public:
    Connection(const std::string& path, int flags) : path_(path) {
        // A leading "./" keeps names that mean something to SQLite (":memory:") names of files.
        const std::string name = path.empty() || path[0] == '/' ? path : "./" + path;
        const int code = sqlite3_open_v2(name.c_str(), &db_, flags, nullptr);
        if (code != SQLITE_OK) {
            const SidecarError error = errorOf(code);
            sqlite3_close(db_);
            throw error;
        }
        sqlite3_extended_result_codes(db_, 1);
        sqlite3_busy_timeout(db_, busyMilliseconds());
    }
    ~Connection() { sqlite3_close(db_); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void run(const char* sql) {
        const int code = sqlite3_exec(db_, sql, nullptr, nullptr, nullptr);
        if (code != SQLITE_OK) throw errorOf(code);
    }
    /// Undoes an open transaction; there is nothing to do when the failure has undone it already.
    void undo() noexcept { sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr); }

    SidecarError errorOf(int code) const {
        const int seen = errno;
        const int told = db_ != nullptr ? sqlite3_system_errno(db_) : 0;
        // SQLite forgets the reason of a write that failed while it committed; nothing has been called since.
        const int systemError = told == 0 && (code & 0xff) == SQLITE_IOERR ? seen : told;
        const int extended =
            db_ != nullptr && sqlite3_extended_errcode(db_) != SQLITE_OK ? sqlite3_extended_errcode(db_) : code;
        const char* detail = db_ != nullptr ? sqlite3_errmsg(db_) : sqlite3_errstr(code);
        return SidecarError(explanation(path_, extended, systemError, detail), extended);
    }
    [[noreturn]] void refuse(const std::string& text) const { throw SidecarError(path_ + " " + text, SQLITE_ERROR); }

    sqlite3* handle() const { return db_; }
    const std::string& path() const { return path_; }

private:
    std::string path_;
    sqlite3* db_ = nullptr;
};

/// A prepared statement: bind values in order, step through rows or run.
class Statement {
public:
    Statement(Connection& connection, const char* sql) : connection_(connection) {
        check(sqlite3_prepare_v2(connection.handle(), sql, -1, &statement_, nullptr));
    }
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(int value) { return bound(sqlite3_bind_int(statement_, ++position_, value)); }
    Statement& bind(std::int64_t value) { return bound(sqlite3_bind_int64(statement_, ++position_, value)); }
    /// SQLite has no NaN: it is kept as null.
    Statement& bind(double value) { return bound(sqlite3_bind_double(statement_, ++position_, value)); }
    Statement& bindNull() { return bound(sqlite3_bind_null(statement_, ++position_)); }
    Statement& bind(const std::string& text) {
        return bound(
            sqlite3_bind_text64(statement_, ++position_, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
    }
    /// The bytes must stay until the statement has run.
    Statement& bindBlob(const unsigned char* bytes, size_t size) {
        return bound(sqlite3_bind_blob64(statement_, ++position_, bytes, size, SQLITE_STATIC));
    }
    void run() {
        while (step()) {
        }
        check(sqlite3_reset(statement_));
        position_ = 0;
    }
    bool step() {
        const int code = sqlite3_step(statement_);
        if (code != SQLITE_ROW && code != SQLITE_DONE) throw connection_.errorOf(code);
        return code == SQLITE_ROW;
    }
    int integer(int column) const { return sqlite3_column_int(statement_, column); }
    std::int64_t integer64(int column) const { return sqlite3_column_int64(statement_, column); }
    bool isNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }
    double real(int column) const {
        return isNull(column) ? std::numeric_limits<double>::quiet_NaN() : sqlite3_column_double(statement_, column);
    }
    std::string text(int column) const {
        const unsigned char* bytes = sqlite3_column_text(statement_, column);
        const auto size = static_cast<size_t>(sqlite3_column_bytes(statement_, column));
        return bytes == nullptr ? std::string() : std::string(bytes, bytes + size);
    }
    /// Adds a blob's bytes to others, or false when the value is no blob or would make them more than `most`.
    bool appendBlob(int column, std::vector<unsigned char>& bytes, size_t most) const {
        if (sqlite3_column_type(statement_, column) != SQLITE_BLOB) return false;
        const auto* blob = static_cast<const unsigned char*>(sqlite3_column_blob(statement_, column));
        const auto size = static_cast<size_t>(sqlite3_column_bytes(statement_, column));
        if (blob == nullptr || size > most - bytes.size()) return false;
        bytes.insert(bytes.end(), blob, blob + size);
        return true;
    }

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

int integerOf(Connection& connection, const char* sql) {
    Statement statement(connection, sql);
    return statement.step() ? statement.integer(0) : 0;
}

/// True when the database holds our tables, false when it holds nothing at all; anything else is refused.
bool holdsContent(Connection& connection) {
    if (integerOf(connection, "SELECT count(*) FROM sqlite_master") == 0) return false;
    if (integerOf(connection, "PRAGMA application_id") != kApplicationId) {
        connection.refuse("is a database of another program; move it away to use the image without it");
    }
    const int version = integerOf(connection, "PRAGMA user_version");
    if (version > kVersion) {
        connection.refuse("was written by a newer version of this library (format " + std::to_string(version) +
                          ", this one knows up to " + std::to_string(kVersion) +
                          "); use that version, or move the file away to use the image without it");
    }
    if (version < 1) connection.refuse("has no valid format number; put a good copy in its place or move it away");
    return true;
}

// ---- reading ----

void readImage(Connection& connection, SidecarContent& content) {
    Statement row(connection,
                  "SELECT width, height, channels, created, header_hash, former_header_hash, changes FROM image");
    if (!row.step())
        connection.refuse("does not say which image it belongs to; put a good copy in its place or move it away");
    content.image = {row.integer(0), row.integer(1), row.integer(2), row.integer(3) != 0, row.text(4), row.text(5)};
    content.changes = row.integer64(6);
}

void readLists(Connection& connection, SidecarContent& content) {
    std::map<ListId, std::vector<std::string>> entries;
    Statement lists(connection, "SELECT level, number FROM lists");
    while (lists.step()) entries[{lists.integer(0), lists.integer(1)}];
    Statement rows(connection, "SELECT level, number, entry FROM entries ORDER BY level, number, position");
    while (rows.step()) entries[{rows.integer(0), rows.integer(1)}].push_back(rows.text(2));
    for (auto& [id, list] : entries) content.lists.emplace(id, StringList(std::move(list)));
}

void readPlace(Connection& connection, SidecarContent& content) {
    Statement row(connection, "SELECT wkt, t0, t1, t2, t3, t4, t5 FROM place");
    if (!row.step()) return;
    Georeference place;
    place.wkt = row.text(0);
    if (!row.isNull(1)) {
        place.transform = {row.real(1), row.real(2), row.real(3), row.real(4), row.real(5), row.real(6)};
    }
    Statement values(connection, "SELECT channel, value FROM no_data");
    while (values.step()) place.noData[values.integer(0)] = values.real(1);
    content.georeference = std::move(place);
}

bool readCodeVectors(Connection& connection, Codebook& codebook) {
    Statement rows(connection, "SELECT first, components FROM code_vectors ORDER BY first");
    while (rows.step()) {
        const std::int64_t first = rows.integer64(0);
        if (first < 0 || static_cast<size_t>(first) * codebook.vectorBytes() != codebook.values.size()) return false;
        if (!rows.appendBlob(1, codebook.values, codebook.bytes())) return false;
    }
    return codebook.values.size() == codebook.bytes();
}

std::shared_ptr<const Codebook> readCodebook(Connection& connection) {
    Statement row(connection, "SELECT vectors, bands, data_type, checksum FROM codebook");
    if (!row.step()) return nullptr;
    const auto codebook = std::make_shared<Codebook>();
    codebook->vectors = row.integer(0);
    codebook->bands = row.integer(1);
    codebook->type = row.integer(2);
    if (!whyNoCodebook(codebook->vectors, codebook->bands, codebook->type).empty() ||
        !readCodeVectors(connection, *codebook) || checksumOf(codebook->values) != row.integer64(3)) {
        connection.refuse(
            "holds a damaged codebook; put a good copy in its place, or move it away to open the index map as an image "
            "of one channel");
    }
    return codebook;
}

SidecarContent readContent(Connection& connection) {
    SidecarContent content;
    readImage(connection, content);
    readLists(connection, content);
    readPlace(connection, content);
    Statement channels(connection, "SELECT number, description FROM channels");
    while (channels.step()) content.descriptions[channels.integer(0)] = channels.text(1);
    Statement history(connection, "SELECT entry FROM history ORDER BY id");
    while (history.step()) content.history.push_back(history.text(0));
    if (integerOf(connection, "PRAGMA user_version") >= kCodebookVersion) content.codebook = readCodebook(connection);
    return content;
}

std::optional<SidecarContent> readThrough(const std::string& path, int flags) {
    Connection connection(path, flags);
    connection.run("PRAGMA cell_size_check=ON; PRAGMA trusted_schema=OFF");
    connection.run("BEGIN");
    std::optional<SidecarContent> content;
    if (holdsContent(connection)) content = readContent(connection);
    connection.run("COMMIT");
    return content;
}

enum class FileState { kAbsent, kEmpty, kPresent };

FileState stateOf(const std::string& path, std::string& why) {
    struct stat info = {};
    if (stat(path.c_str(), &info) != 0) {
        // A name that is too long for a file is the name of none.
        if (errno != ENOENT && errno != ENOTDIR && errno != ENAMETOOLONG)
            why = explanation(path, SQLITE_CANTOPEN, errno, "");
        return FileState::kAbsent;
    }
    if (!S_ISREG(info.st_mode)) why = path + " is not a file; move it away";
    if (info.st_size == 0) return FileState::kEmpty;
    // SQLite takes a fragment of a first page for an empty database and would write over it.
    constexpr off_t kSmallestPage = 512;
    const bool fragment = info.st_size < kSmallestPage && access((path + "-journal").c_str(), F_OK) != 0;
    if (fragment) why = explanation(path, SQLITE_CORRUPT, 0, "");
    return FileState::kPresent;
}

// ---- writing ----

void writeImage(Connection& connection, const SidecarImage& image, std::int64_t changes) {
    Statement(connection, "INSERT OR REPLACE INTO image VALUES (1, ?, ?, ?, ?, ?, ?, ?)")
        .bind(image.width)
        .bind(image.height)
        .bind(image.channels)
        .bind(image.created ? 1 : 0)
        .bind(image.headerHash)
        .bind(image.formerHeaderHash)
        .bind(changes)
        .run();
}

void writeLists(Connection& connection, const std::map<ListId, StringList>& lists) {
    Statement mark(connection, "INSERT OR IGNORE INTO lists VALUES (?, ?)");
    Statement clear(connection, "DELETE FROM entries WHERE level = ? AND number = ?");
    Statement add(connection, "INSERT INTO entries VALUES (?, ?, ?, ?)");
    for (const auto& [id, list] : lists) {
        mark.bind(id.first).bind(id.second).run();
        clear.bind(id.first).bind(id.second).run();
        int position = 0;
        for (const std::string& entry : list.entries()) {
            add.bind(id.first).bind(id.second).bind(position++).bind(entry).run();
        }
    }
}

void writePlace(Connection& connection, const Georeference& place) {
    Statement row(connection, "INSERT OR REPLACE INTO place VALUES (1, ?, ?, ?, ?, ?, ?, ?)");
    row.bind(place.wkt);
    for (size_t i = 0; i < 6; ++i) {
        if (place.transform)
            row.bind((*place.transform)[i]);
        else
            row.bindNull();
    }
    row.run();
    connection.run("DELETE FROM no_data");
    Statement add(connection, "INSERT INTO no_data VALUES (?, ?)");
    for (const auto& [channel, value] : place.noData) add.bind(channel).bind(value).run();
}

void setVersion(Connection& connection, int version) {
    connection.run(("PRAGMA user_version=" + std::to_string(version)).c_str());
}

void writeCodebook(Connection& connection, const Codebook& codebook) {
    if (integerOf(connection, "PRAGMA user_version") < kCodebookVersion) {
        connection.run(kCodebookSchema);
        setVersion(connection, kCodebookVersion);
    }
    Statement(connection, "INSERT OR REPLACE INTO codebook VALUES (1, ?, ?, ?, ?)")
        .bind(codebook.vectors)
        .bind(codebook.bands)
        .bind(codebook.type)
        .bind(checksumOf(codebook.values))
        .run();
    connection.run("DELETE FROM code_vectors");
    Statement add(connection, "INSERT INTO code_vectors VALUES (?, ?)");
    const size_t vectorBytes = codebook.vectorBytes();
    const size_t run = std::max<size_t>(1, kRunBytes / vectorBytes);
    const auto vectors = static_cast<size_t>(codebook.vectors);
    for (size_t first = 0; first < vectors; first += run) {
        add.bind(static_cast<std::int64_t>(first))
            .bindBlob(codebook.values.data() + first * vectorBytes, std::min(run, vectors - first) * vectorBytes)
            .run();
    }
}

void writeChanges(Connection& connection, const SidecarChanges& changes, std::int64_t count) {
    writeImage(connection, changes.image, count);
    writeLists(connection, changes.lists);
    Statement describe(connection, "INSERT OR REPLACE INTO channels VALUES (?, ?)");
    for (const auto& [channel, text] : changes.descriptions) describe.bind(channel).bind(text).run();
    if (changes.georeference) writePlace(connection, *changes.georeference);
    Statement add(connection, "INSERT INTO history(time, entry) VALUES (strftime('%Y-%m-%dT%H:%M:%SZ', 'now'), ?)");
    for (const std::string& entry : changes.history) add.bind(entry).run();
    if (changes.codebook != nullptr) writeCodebook(connection, *changes.codebook);
}

void apply(const SidecarChanges& changes, SidecarContent& content) {
    content.image = changes.image;
    for (const auto& [id, list] : changes.lists) content.lists[id] = list;
    for (const auto& [channel, text] : changes.descriptions) content.descriptions[channel] = text;
    if (changes.georeference) content.georeference = changes.georeference;
    content.history.insert(content.history.end(), changes.history.begin(), changes.history.end());
    if (changes.codebook != nullptr) content.codebook = changes.codebook;
}

void makeSchema(Connection& connection) {
    connection.run(("PRAGMA application_id=" + std::to_string(kApplicationId)).c_str());
    setVersion(connection, kVersion);
    connection.run(kSchema);
    connection.run(kCodebookSchema);
}

/// Stores within an open transaction and gives back what the sidecar then holds.
SidecarContent storeWithin(Connection& connection, const SidecarChanges& changes, const SidecarContent& known) {
    SidecarContent whole = known;
    if (!holdsContent(connection)) {
        // All that is known goes in: a sidecar that vanished meanwhile must not take other levels with it.
        makeSchema(connection);
        apply(changes, whole);
        whole.changes = 1;
        writeChanges(connection,
                     {whole.image, whole.lists, whole.descriptions, whole.georeference, whole.history, whole.codebook},
                     1);
        return whole;
    }
    SidecarContent stored;
    readImage(connection, stored);
    const SidecarImage& image = stored.image;
    if (image.width != changes.image.width || image.height != changes.image.height ||
        image.channels != changes.image.channels) {
        connection.refuse("belongs to another image by now; open the image again");
    }
    if (stored.changes != known.changes) whole = readContent(connection);
    apply(changes, whole);
    whole.changes = stored.changes + 1;
    writeChanges(connection, changes, whole.changes);
    return whole;
}

/// Removes the empty file that a failed first commit leaves, unless another program is just about to fill it: that
/// would hold a lock on the bytes that SQLite locks in every database. (SQLite itself cannot lock an empty database
/// without writing, which on a full disk fails.) Whoever comes later finds that the file has lost its name and starts
/// again.
void removeIfEmpty(const std::string& path) noexcept {
    constexpr off_t kLockBytes = 0x40000000;
    constexpr off_t kLockLength = 512;
    const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (file < 0) return;
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = kLockBytes;
    lock.l_len = kLockLength;
    struct stat info = {};
    if (fcntl(file, F_SETLK, &lock) == 0 && fstat(file, &info) == 0 && info.st_size == 0) unlink(path.c_str());
    close(file);
}

SidecarContent commitOnce(const std::string& path, const SidecarChanges& changes, const SidecarContent& known) {
    Connection connection(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    connection.run(
        "PRAGMA journal_mode=DELETE; PRAGMA synchronous=FULL; PRAGMA cell_size_check=ON; PRAGMA trusted_schema=OFF");
    connection.run("BEGIN IMMEDIATE");
    try {
        SidecarContent whole = storeWithin(connection, changes, known);
        connection.run("COMMIT");
        return whole;
    } catch (...) {
        connection.undo();
        throw;
    }
}

}  // namespace

std::optional<SidecarContent> readSidecar(const std::string& path, std::string& why) {
    why.clear();
    if (stateOf(path, why) != FileState::kPresent || !why.empty()) return std::nullopt;
    try {
        try {
            return readThrough(path, SQLITE_OPEN_READONLY);
        } catch (const SidecarError& error) {
            if (error.code != SQLITE_READONLY_ROLLBACK && error.code != SQLITE_READONLY_RECOVERY) throw;
        }
        // A killed writer left its journal: reading means undoing it, which only a writable connection can.
        if (eaccess(path.c_str(), W_OK) != 0) {
            why = explanation(path, SQLITE_READONLY_ROLLBACK, 0, "");
            return std::nullopt;
        }
        return readThrough(path, SQLITE_OPEN_READWRITE);
    } catch (const SidecarError& error) {
        why = error.what();
        return std::nullopt;
    }
}

std::string commitSidecar(const std::string& path, const SidecarChanges& changes, SidecarContent& content) {
    std::string why;
    const bool existed = stateOf(path, why) != FileState::kAbsent;
    if (!why.empty()) return why;
    for (int attempt = 1;; ++attempt) {
        try {
            content = commitOnce(path, changes, content);
            return {};
        } catch (const SidecarError& error) {
            if (error.code == SQLITE_READONLY_DBMOVED && attempt < kCommitAttempts) continue;
            if (!existed) removeIfEmpty(path);
            return error.what();
        }
    }
}

}  // namespace kshost
