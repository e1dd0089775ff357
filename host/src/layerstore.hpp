// How segments and vector layers lie in a database: a directory of segments, the fields of each layer as rows, and one
// row a shape with its numbers in one blob and its texts in another.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "database.hpp"
#include "table.hpp"

namespace kshost {

constexpr int kLayerSegment = 116;

/// What a file's directory says about one of its segments, which are numbered from 1.
struct Segment {
    int type = kLayerSegment;
    std::string name;
    std::string description;
    std::int64_t revision = 0;  // the commit that stored it last; 0 when it was never stored
};
using Segments = std::map<int, Segment>;

/// A layer to be stored, and the revision that its changes go with.
struct StoredLayer {
    std::shared_ptr<EditableTable> table;
    std::int64_t revision = 0;
};
using StoredLayers = std::map<int, StoredLayer>;

void makeLayerSchema(Connection& connection);
Segments readSegments(Connection& connection);
/// Puts a segment into the directory, in place of the one of its number.
void addToDirectory(Connection& connection, int number, const Segment& segment, const std::string& detail,
                    std::int64_t revision);
/// Throws because another program has taken the number of a segment.
[[noreturn]] void refuseTaken(Connection& connection, int segment);
/// Fills a table with what is stored; throws when there is no such layer or it is damaged.
void readLayer(Connection& connection, int segment, EditableTable& table);
/// Stores what has changed since the layer's revision, or all of it when the stored one is another by now. Throws when
/// another program has taken the number of a new layer.
void writeLayer(Connection& connection, int segment, const StoredLayer& layer, std::int64_t revision);

}  // namespace kshost
