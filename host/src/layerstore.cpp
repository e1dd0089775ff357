// The tables of segments, fields and shapes. Values go in as the bytes they are in memory, so that a NaN and -0 come
// back as they were; texts are C texts and lie one behind the other, each with its 0.
#include "layerstore.hpp"

namespace kshost {
namespace {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "numbers are stored as they are in memory");

// The directory also lists data segments (datastore.cpp), which have no detail.
constexpr const char* kSchema = R"sql(
CREATE TABLE segments(
  number INTEGER PRIMARY KEY CHECK (number > 0), type INTEGER NOT NULL, name TEXT NOT NULL, description TEXT NOT NULL,
  detail TEXT NOT NULL, revision INTEGER NOT NULL);
CREATE TABLE fields(
  segment INTEGER NOT NULL, position INTEGER NOT NULL, name TEXT NOT NULL, type INTEGER NOT NULL, format TEXT NOT NULL,
  PRIMARY KEY (segment, position)) WITHOUT ROWID;
CREATE TABLE shapes(
  id INTEGER PRIMARY KEY, segment INTEGER NOT NULL, number INTEGER NOT NULL, type INTEGER NOT NULL,
  numbers BLOB NOT NULL, texts BLOB NOT NULL, UNIQUE (segment, number));
)sql";

[[noreturn]] void refuseDamaged(Connection& connection, int segment) {
    connection.refuse("holds a damaged layer in segment " + std::to_string(segment) + "; put a good copy in its place");
}

}  // namespace

void refuseTaken(Connection& connection, int segment) {
    connection.refuse("has got another segment " + std::to_string(segment) +
                      " from another program meanwhile; open the file again");
}

namespace {

void clearLayer(Connection& connection, int segment) {
    Statement(connection, "DELETE FROM segments WHERE number = ?").bind(segment).run();
    Statement(connection, "DELETE FROM fields WHERE segment = ?").bind(segment).run();
    Statement(connection, "DELETE FROM shapes WHERE segment = ?").bind(segment).run();
}

void writeFields(Connection& connection, int segment, const Table& table) {
    Statement(connection, "DELETE FROM fields WHERE segment = ?").bind(segment).run();
    Statement add(connection, "INSERT INTO fields VALUES (?, ?, ?, ?, ?)");
    int position = 0;
    for (const Field& field : table.fields())
        add.bind(segment).bind(position++).bind(field.name).bind(field.type).bind(field.format).run();
}

class ShapeWriter {
public:
    ShapeWriter(Connection& connection, int segment, const EditableTable& table)
        : add_(connection,
               "INSERT INTO shapes(segment, number, type, numbers, texts) VALUES (?, ?, ?, ?, ?)"
               " ON CONFLICT (segment, number) DO UPDATE SET"
               " type = excluded.type, numbers = excluded.numbers, texts = excluded.texts"),
          segment_(segment),
          table_(table) {}

    void write(int shape) {
        const std::string numbers = table_.packedNumbers(shape);
        const std::string texts = table_.packedTexts(shape);
        add_.bind(segment_).bind(shape).bind(table_.shapeType(shape));
        add_.bindBlob(numbers.data(), numbers.size()).bindBlob(texts.data(), texts.size()).run();
    }

private:
    Statement add_;
    int segment_;
    const EditableTable& table_;
};

/// The revision of the stored layer; 0 when there is none. Throws when the segment is not a layer.
std::int64_t storedRevision(Connection& connection, int segment) {
    Statement row(connection, "SELECT revision, type FROM segments WHERE number = ?");
    row.bind(segment);
    if (!row.step()) return 0;
    if (row.integer(1) != kLayerSegment) refuseTaken(connection, segment);
    return row.integer64(0);
}

}  // namespace

void makeLayerSchema(Connection& connection) { connection.run(kSchema); }

Segments readSegments(Connection& connection) {
    Segments segments;
    Statement rows(connection, "SELECT number, type, name, description, revision FROM segments");
    while (rows.step()) segments[rows.integer(0)] = {rows.integer(1), rows.text(2), rows.text(3), rows.integer64(4)};
    return segments;
}

void addToDirectory(Connection& connection, int number, const Segment& segment, const std::string& detail,
                    std::int64_t revision) {
    Statement(connection, "INSERT OR REPLACE INTO segments VALUES (?, ?, ?, ?, ?, ?)")
        .bind(number)
        .bind(segment.type)
        .bind(segment.name)
        .bind(segment.description)
        .bind(detail)
        .bind(revision)
        .run();
}

void readLayer(Connection& connection, int segment, EditableTable& table) {
    Statement head(connection, "SELECT name, description, detail FROM segments WHERE number = ? AND type = ?");
    head.bind(segment).bind(kLayerSegment);
    if (!head.step()) connection.refuse("has no layer in segment " + std::to_string(segment));
    table.clear(head.text(0), head.text(1), head.text(2));
    Statement fields(connection, "SELECT position, name, type, format FROM fields WHERE segment = ? ORDER BY position");
    fields.bind(segment);
    for (int position = 0; fields.step(); ++position) {
        const int type = fields.integer(2);
        if (fields.integer(0) != position || (type != kRealField && type != kTextField))
            refuseDamaged(connection, segment);
        table.addField(fields.text(1), type);
        table.setFormat(position, fields.text(3));
    }
    Statement shapes(connection, "SELECT number, type, numbers, texts FROM shapes WHERE segment = ? ORDER BY number");
    shapes.bind(segment);
    for (int shape = 0; shapes.step(); ++shape) {
        if (shapes.integer64(0) != shape || !table.addPacked(shapes.integer(1), shapes.blob(2), shapes.blob(3)))
            refuseDamaged(connection, segment);
    }
    table.markStored();
}

void writeLayer(Connection& connection, int segment, const StoredLayer& layer, std::int64_t revision) {
    const EditableTable& table = *layer.table;
    const std::int64_t stored = storedRevision(connection, segment);
    if (layer.revision == 0 && stored != 0) refuseTaken(connection, segment);
    const bool whole = stored == 0 || stored != layer.revision || table.changedWhole();
    if (whole) clearLayer(connection, segment);
    addToDirectory(connection, segment, {kLayerSegment, table.name(), table.description(), 0}, table.detail(),
                   revision);
    writeFields(connection, segment, table);
    ShapeWriter writer(connection, segment, table);
    if (!whole) {
        for (const int shape : table.touchedShapes()) writer.write(shape);
    }
    for (int shape = whole ? 0 : table.storedShapes(); shape < table.shapes(); ++shape) writer.write(shape);
}

}  // namespace kshost
