// How data segments lie in a database: a directory of sizes, and pages of bytes. A page that was never written is not
// there and reads as zeros, so that a large table takes only the room of what it holds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "database.hpp"
#include "layerstore.hpp"

namespace kshost {

constexpr std::int64_t kBlockBytes = 512;

/// A data segment to be made.
struct NewDataSegment {
    int number = 0;
    Segment segment;
    std::int64_t blocks = 0;
};

void makeDataSchema(Connection& connection);
/// Small database pages turn each large blob into a chain that is followed page by page; reading is four to five times
/// faster from large ones. Rewrites a database with small pages, outside of any transaction.
void widenPages(Connection& connection);
/// Throws when another program has taken the number.
void createDataSegment(Connection& connection, const NewDataSegment& created, std::int64_t revision);
/// Throws when there is no such data segment.
std::int64_t dataSegmentBytes(Connection& connection, int segment);

/// Moves bytes of a segment, page by page; positions must increase. A page is fetched once and stored once.
class DataPages {
public:
    DataPages(Connection& connection, int segment);
    void read(std::int64_t position, std::int64_t bytes, unsigned char* to);
    void write(std::int64_t position, std::int64_t bytes, const unsigned char* from);
    /// Stores the last page that was written to.
    void finish();

private:
    /// The page's bytes, fetched unless all of them are about to be replaced.
    unsigned char* page(std::int64_t number, bool replaced);
    void fetch();

    Connection& connection_;
    Statement select_;
    int segment_;
    std::int64_t number_ = -1;
    bool changed_ = false;
    std::vector<unsigned char> bytes_;
};

}  // namespace kshost
