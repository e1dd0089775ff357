#include "datastore.hpp"

#include <algorithm>
#include <cstring>
#include <limits>

namespace kshost {
namespace {

constexpr std::int64_t kPageBytes = 256 * 1024;
constexpr int kDatabasePageBytes = 65536;

constexpr const char* kSchema = R"sql(
CREATE TABLE data_segments(number INTEGER PRIMARY KEY, blocks INTEGER NOT NULL);
CREATE TABLE data_pages(
  id INTEGER PRIMARY KEY, segment INTEGER NOT NULL, page INTEGER NOT NULL, bytes BLOB NOT NULL, UNIQUE (segment, page));
)sql";

[[noreturn]] void refuseDamaged(Connection& connection, int segment) {
    connection.refuse("holds damaged data in segment " + std::to_string(segment) + "; put a good copy in its place");
}

/// Calls part(page, first byte within it, bytes) for each page that a stretch of a segment touches.
template <class Part>
void forEachPage(std::int64_t position, std::int64_t bytes, Part part) {
    while (bytes > 0) {
        const std::int64_t within = position % kPageBytes;
        const std::int64_t length = std::min(kPageBytes - within, bytes);
        part(position / kPageBytes, within, length);
        position += length;
        bytes -= length;
    }
}

}  // namespace

void makeDataSchema(Connection& connection) { connection.run(kSchema); }

void widenPages(Connection& connection) {
    if (integerOf(connection, "PRAGMA page_size") >= kDatabasePageBytes) return;
    connection.run(("PRAGMA page_size=" + std::to_string(kDatabasePageBytes)).c_str());
    if (integerOf(connection, "SELECT count(*) FROM sqlite_master") > 0) connection.run("VACUUM");
}

void createDataSegment(Connection& connection, const NewDataSegment& created, std::int64_t revision) {
    const int number = created.number;
    Statement taken(connection, "SELECT 1 FROM segments WHERE number = ?");
    taken.bind(number);
    if (taken.step()) refuseTaken(connection, number);
    addToDirectory(connection, number, created.segment, "", revision);
    Statement(connection, "INSERT INTO data_segments VALUES (?, ?)").bind(number).bind(created.blocks).run();
}

std::int64_t dataSegmentBytes(Connection& connection, int segment) {
    Statement row(connection, "SELECT blocks FROM data_segments WHERE number = ?");
    row.bind(segment);
    if (!row.step()) connection.refuse("has no data in segment " + std::to_string(segment));
    const std::int64_t blocks = row.integer64(0);
    if (blocks < 0 || blocks > std::numeric_limits<std::int64_t>::max() / kBlockBytes)
        refuseDamaged(connection, segment);
    return blocks * kBlockBytes;
}

DataPages::DataPages(Connection& connection, int segment)
    : connection_(connection),
      select_(connection, "SELECT bytes FROM data_pages WHERE segment = ? AND page = ?"),
      segment_(segment),
      bytes_(static_cast<std::size_t>(kPageBytes)) {}

void DataPages::read(std::int64_t position, std::int64_t bytes, unsigned char* to) {
    forEachPage(position, bytes, [&](std::int64_t number, std::int64_t within, std::int64_t length) {
        std::memcpy(to, page(number, false) + within, static_cast<std::size_t>(length));
        to += length;
    });
}

void DataPages::write(std::int64_t position, std::int64_t bytes, const unsigned char* from) {
    forEachPage(position, bytes, [&](std::int64_t number, std::int64_t within, std::int64_t length) {
        std::memcpy(page(number, length == kPageBytes) + within, from, static_cast<std::size_t>(length));
        changed_ = true;
        from += length;
    });
}

void DataPages::finish() {
    if (!changed_) return;
    changed_ = false;
    Statement(connection_,
              "INSERT INTO data_pages(segment, page, bytes) VALUES (?, ?, ?)"
              " ON CONFLICT (segment, page) DO UPDATE SET bytes = excluded.bytes")
        .bind(segment_)
        .bind(number_)
        .bindBlob(bytes_.data(), bytes_.size())
        .run();
}

unsigned char* DataPages::page(std::int64_t number, bool replaced) {
    if (number != number_) {
        finish();
        number_ = number;
        if (!replaced) fetch();
    }
    return bytes_.data();
}

void DataPages::fetch() {
    const bool stored = select_.bind(segment_).bind(number_).step();
    const std::string_view found = stored ? select_.blob(0) : std::string_view();
    if (stored && found.size() != bytes_.size()) refuseDamaged(connection_, segment_);
    if (stored) {
        std::memcpy(bytes_.data(), found.data(), found.size());
    } else {
        std::fill(bytes_.begin(), bytes_.end(), static_cast<unsigned char>(0));
    }
    select_.reset();
}

}  // namespace kshost
