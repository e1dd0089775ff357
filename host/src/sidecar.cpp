// The SQLite database behind a sidecar. A rollback journal and full synchronisation make a commit all or nothing, also
// when the process is killed; the schema belongs to the first commit, so that a half-made file is an empty database.
#include "sidecar.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <memory>
#include <string_view>

#include "database.hpp"

namespace kshost {
namespace {

constexpr int kApplicationId = 0x6b736c62;  // "kslb"
constexpr int kVersion = 4;
constexpr int kCodebookVersion = 2;  // the first that can hold a codebook
constexpr int kLayerVersion = 3;     // the first that can hold layers
constexpr int kDataVersion = 4;      // the first that can hold data segments
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
    const int version = integerOf(connection, "PRAGMA user_version");
    if (version >= kCodebookVersion) content.codebook = readCodebook(connection);
    if (version >= kLayerVersion) content.segments = readSegments(connection);
    return content;
}

/// Reads within one transaction; false when the database holds nothing.
template <class Read>
bool readThrough(const std::string& path, int flags, Read read) {
    Connection connection(path, flags);
    connection.run("PRAGMA cell_size_check=ON; PRAGMA trusted_schema=OFF");
    connection.run("BEGIN");
    const bool held = holdsContent(connection);
    if (held) read(connection);
    connection.run("COMMIT");
    return held;
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

/// Makes the tables that a sidecar of an earlier version lacks.
void ensureVersion(Connection& connection, int version) {
    const int found = integerOf(connection, "PRAGMA user_version");
    if (found >= version) return;
    if (found < kCodebookVersion) connection.run(kCodebookSchema);
    if (found < kLayerVersion && version >= kLayerVersion) makeLayerSchema(connection);
    if (found < kDataVersion && version >= kDataVersion) makeDataSchema(connection);
    setVersion(connection, version);
}

void writeCodebook(Connection& connection, const Codebook& codebook) {
    ensureVersion(connection, kCodebookVersion);
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
    for (const auto& [segment, layer] : changes.layers) {
        ensureVersion(connection, kLayerVersion);
        writeLayer(connection, segment, layer, count);
    }
    if (changes.dataSegment) {
        ensureVersion(connection, kDataVersion);
        createDataSegment(connection, *changes.dataSegment, count);
    }
}

/// Takes changes into what is known, as commit number `count`.
void apply(const SidecarChanges& changes, std::int64_t count, SidecarContent& content) {
    content.image = changes.image;
    content.changes = count;
    for (const auto& [id, list] : changes.lists) content.lists[id] = list;
    for (const auto& [channel, text] : changes.descriptions) content.descriptions[channel] = text;
    if (changes.georeference) content.georeference = changes.georeference;
    content.history.insert(content.history.end(), changes.history.begin(), changes.history.end());
    if (changes.codebook != nullptr) content.codebook = changes.codebook;
    for (const auto& [segment, layer] : changes.layers)
        content.segments[segment] = {kLayerSegment, layer.table->name(), layer.table->description(), count};
    if (changes.dataSegment) content.segments[changes.dataSegment->number] = changes.dataSegment->segment;
}

void makeSchema(Connection& connection) {
    connection.run(("PRAGMA application_id=" + std::to_string(kApplicationId)).c_str());
    setVersion(connection, kVersion);
    connection.run(kSchema);
    connection.run(kCodebookSchema);
    makeLayerSchema(connection);
    makeDataSchema(connection);
}

void dropListsWithoutSegment(SidecarContent& content) {
    for (auto list = content.lists.begin(); list != content.lists.end();) {
        const auto [level, number] = list->first;
        const bool stays = level != kSegmentLevel || content.segments.count(number) != 0;
        list = stays ? std::next(list) : content.lists.erase(list);
    }
}

/// Makes a sidecar of all that is known: one that vanished meanwhile must not take other levels with it. Data segments,
/// and layers that were not read before, are gone with it all the same, and so are their lists.
SidecarContent storeAnew(Connection& connection, const SidecarChanges& changes, const SidecarContent& known) {
    makeSchema(connection);
    SidecarChanges all = changes;
    all.layers.insert(changes.unchangedLayers.begin(), changes.unchangedLayers.end());
    for (auto& [segment, layer] : all.layers) layer.revision = 0;
    SidecarContent whole = known;
    whole.segments.clear();
    apply(all, 1, whole);
    dropListsWithoutSegment(whole);
    all.lists = whole.lists;
    all.descriptions = whole.descriptions;
    all.georeference = whole.georeference;
    all.history = whole.history;
    all.codebook = whole.codebook;
    writeChanges(connection, all, whole.changes);
    return whole;
}

/// Stores within an open transaction and gives back what the sidecar then holds.
SidecarContent storeWithin(Connection& connection, const SidecarChanges& changes, const SidecarContent& known) {
    if (!holdsContent(connection)) return storeAnew(connection, changes, known);
    SidecarContent stored;
    readImage(connection, stored);
    const SidecarImage& image = stored.image;
    if (image.width != changes.image.width || image.height != changes.image.height ||
        image.channels != changes.image.channels) {
        connection.refuse("belongs to another image by now; open the image again");
    }
    SidecarContent whole = stored.changes == known.changes ? known : readContent(connection);
    apply(changes, stored.changes + 1, whole);
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

void prepareToWrite(Connection& connection) {
    holdsContent(connection);  // refuses what is not ours before anything of it changes, its journal mode included
    connection.run(
        "PRAGMA journal_mode=DELETE; PRAGMA synchronous=FULL; PRAGMA cell_size_check=ON; PRAGMA trusted_schema=OFF");
}

/// Runs a body in one transaction, which a failure undoes.
template <class Body>
void inTransaction(Connection& connection, Body body) {
    connection.run("BEGIN IMMEDIATE");
    try {
        body();
        connection.run("COMMIT");
    } catch (...) {
        connection.undo();
        throw;
    }
}

SidecarContent commitOnce(const std::string& path, const SidecarChanges& changes, const SidecarContent& known) {
    Connection connection(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    prepareToWrite(connection);
    if (changes.dataSegment) widenPages(connection);
    SidecarContent whole;
    inTransaction(connection, [&] { whole = storeWithin(connection, changes, known); });
    return whole;
}

/// Reads a sidecar that is there; an interrupted commit is undone first.
template <class Read>
bool readPresent(const std::string& path, std::string& why, Read read) {
    why.clear();
    if (stateOf(path, why) != FileState::kPresent || !why.empty()) return false;
    try {
        try {
            return readThrough(path, SQLITE_OPEN_READONLY, read);
        } catch (const DatabaseError& error) {
            if (error.code != SQLITE_READONLY_ROLLBACK && error.code != SQLITE_READONLY_RECOVERY) throw;
        }
        // A killed writer left its journal: reading means undoing it, which only a writable connection can.
        if (eaccess(path.c_str(), W_OK) != 0) {
            why = explanation(path, SQLITE_READONLY_ROLLBACK, 0, "");
            return false;
        }
        return readThrough(path, SQLITE_OPEN_READWRITE, read);
    } catch (const DatabaseError& error) {
        why = error.what();
        return false;
    }
}

std::string vanished(const std::string& path) { return path + " has vanished"; }

/// Throws unless the segment holds data and the whole array fits into it.
void requireRoom(Connection& connection, int segment, const HyperRectangle& rectangle) {
    if (!holdsContent(connection) || integerOf(connection, "PRAGMA user_version") < kDataVersion)
        connection.refuse("holds no data segments");
    const std::int64_t bytes = dataSegmentBytes(connection, segment);
    if (rectangle.arrayBytes() > bytes) {
        connection.refuse("has " + std::to_string(bytes) + " bytes in segment " + std::to_string(segment) +
                          ", too few for an array of " + std::to_string(rectangle.arrayBytes()));
    }
}

}  // namespace

std::optional<SidecarContent> readSidecar(const std::string& path, std::string& why) {
    SidecarContent content;
    const bool held = readPresent(path, why, [&](Connection& connection) { content = readContent(connection); });
    return held ? std::optional(std::move(content)) : std::nullopt;
}

std::string readStoredLayer(const std::string& path, int segment, EditableTable& table, std::int64_t& revision) {
    std::string why;
    const bool held = readPresent(path, why, [&](Connection& connection) {
        if (integerOf(connection, "PRAGMA user_version") < kLayerVersion) connection.refuse("holds no layers");
        readLayer(connection, segment, table);
        revision = readSegments(connection)[segment].revision;
    });
    return held || !why.empty() ? why : vanished(path);
}

std::string readData(const std::string& path, int segment, const HyperRectangle& rectangle, unsigned char* to) {
    std::string why;
    const bool held = readPresent(path, why, [&](Connection& connection) {
        requireRoom(connection, segment, rectangle);
        DataPages pages(connection, segment);
        rectangle.forEachRun([&](std::int64_t position, std::int64_t bytes) {
            pages.read(position, bytes, to);
            to += bytes;
        });
    });
    return held || !why.empty() ? why : vanished(path);
}

std::string writeData(const std::string& path, int segment, const HyperRectangle& rectangle,
                      const unsigned char* from) {
    std::string why;
    if (stateOf(path, why) == FileState::kAbsent) return why.empty() ? vanished(path) : why;
    try {
        Connection connection(path, SQLITE_OPEN_READWRITE);
        prepareToWrite(connection);
        inTransaction(connection, [&] {
            requireRoom(connection, segment, rectangle);
            DataPages pages(connection, segment);
            rectangle.forEachRun([&](std::int64_t position, std::int64_t bytes) {
                pages.write(position, bytes, from);
                from += bytes;
            });
            pages.finish();
        });
        return {};
    } catch (const DatabaseError& error) {
        return error.what();
    }
}

void keepInMemory(const SidecarChanges& changes, SidecarContent& content) {
    apply(changes, content.changes + 1, content);
}

bool looksLikeSidecar(const std::string& path) {
    struct stat info = {};
    if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return false;
    // SQLite's header: its own title, and the number that a program marks its databases with.
    std::ifstream file(path, std::ios::binary);
    std::array<char, 72> start{};
    file.read(start.data(), start.size());
    const std::string_view bytes(start.data(), start.size());
    constexpr std::string_view kMark("\x6b\x73\x6c\x62", 4);
    return file.gcount() == static_cast<std::streamsize>(start.size()) &&
           bytes.substr(0, 16) == std::string_view("SQLite format 3\0", 16) && bytes.substr(68, 4) == kMark;
}

std::string commitSidecar(const std::string& path, const SidecarChanges& changes, SidecarContent& content) {
    std::string why;
    const bool existed = stateOf(path, why) != FileState::kAbsent;
    if (!why.empty()) return why;
    for (int attempt = 1;; ++attempt) {
        try {
            content = commitOnce(path, changes, content);
            return {};
        } catch (const DatabaseError& error) {
            if (error.code == SQLITE_READONLY_DBMOVED && attempt < kCommitAttempts) continue;
            if (!existed) removeIfEmpty(path);
            return error.what();
        }
    }
}

}  // namespace kshost
