#include "lut/table.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <numeric>
#include <sstream>

#include "app/report.hpp"
#include "app/staging.hpp"
#include "image/entries.hpp"

namespace kscli {

const char* const kRadianceAxisUnits[RLUT_DIMENSIONS] = {"km", "degrees", "",        "km", "g cm-2",
                                                         "km", "degrees", "degrees", "nm"};
const char* const kRadianceUnits = "uW cm-2 nm-1 sr-1";

namespace {

constexpr int kRead = 0;
constexpr int kWrite = 1;

// Our own keys of a table's segment, beside those of its shape.
constexpr const char* kNameKey = "KSTable_Name";
constexpr const char* kTextKey = "KSTable_Description";
constexpr const char* kTypeKey = "KSTable_Type";
constexpr const char* kUnitsKey = "KSTable_Units";
constexpr const char* kValueNamesKey = "KSTable_ValueNames";
constexpr const char* kAxisUnitsKey = "KSTable_AxisUnits";
constexpr const char* kAssumedKey = "KSTable_Assumed";
constexpr const char* kCoordinatesKey = "KSTable_Coords";

std::string keyOf(const char* base, int dimension) { return fmt::format("{}_{}", base, dimension); }

std::string textOf(const Entries& entries, const std::string& key) {
    const char* value = entries.find(key);
    return value != nullptr ? value : "";
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
    return parts;
}

// ---- coordinates ----

/// A coordinate as the library stores it, with five decimals, read back.
float asStored(float coordinate) {
    return static_cast<float>(std::strtod(fmt::format("{:.5f}", coordinate).c_str(), nullptr));
}

/// Five decimals are not enough for every axis: where they are not, the exact coordinates are kept beside them.
void storeExactCoordinates(Entries& entries, const std::vector<float>& coordinates, int dimension) {
    const auto isExact = [](float coordinate) { return asStored(coordinate) == coordinate; };
    if (std::all_of(coordinates.begin(), coordinates.end(), isExact)) {
        entries.remove(keyOf(kCoordinatesKey, dimension));
    } else {
        entries.set(keyOf(kCoordinatesKey, dimension), fmt::format("{}", fmt::join(coordinates, ",")));
    }
}

/// Coordinates of the record, or the exact ones where these belong to them.
std::vector<float> coordinatesOf(const KSLUT& record, int dimension, const Entries& entries) {
    std::vector<float> stored(static_cast<std::size_t>(record.panSizes[dimension]));
    if (KSLUTGetCoords(&record, dimension, stored.data()) != 1) return stored;
    const std::vector<std::string> texts = split(textOf(entries, keyOf(kCoordinatesKey, dimension)), ',');
    if (texts.size() != stored.size()) return stored;
    std::vector<float> exact;
    for (const std::string& text : texts) exact.push_back(std::strtof(text.c_str(), nullptr));
    const bool belong =
        std::equal(exact.begin(), exact.end(), stored.begin(), [](float a, float b) { return asStored(a) == b; });
    return belong ? exact : stored;
}

// ---- descriptions ----

ElementType typeOf(const KSLUT* record, const Entries& entries) {
    for (ElementType type : {ElementType::float32, ElementType::float64, ElementType::pair}) {
        const bool isNamed = textOf(entries, kTypeKey) == elementTypeName(type);
        if (isNamed && bytesPerElement(type) == record->nElementSize) return type;
    }
    if (RLUTValidate(record) == 1) return ElementType::pair;
    if (record->nElementSize == bytesPerElement(ElementType::float32)) return ElementType::float32;
    if (record->nElementSize == bytesPerElement(ElementType::float64)) return ElementType::float64;
    return ElementType::unknown;
}

TableDescription describe(KSLUT* record) {
    const Entries entries = Entries::ofSegment(record->fp, kTableSegment, record->nSegment);
    TableDescription description;
    description.name = textOf(entries, kNameKey);
    description.text = textOf(entries, kTextKey);
    description.type = typeOf(record, entries);
    description.valueNames = split(textOf(entries, kValueNamesKey), '|');
    description.units = textOf(entries, kUnitsKey);
    for (int d = 0; d < record->nDimensions; ++d) {
        TableAxis axis;
        if (record->papszLabels[d] != nullptr) axis.label = record->papszLabels[d];
        axis.units = textOf(entries, keyOf(kAxisUnitsKey, d));
        axis.coordinates = coordinatesOf(*record, d, entries);
        axis.assumed = axis.size() == 1 && entries.find(keyOf(kAssumedKey, d)) != nullptr;
        // The record works with the exact coordinates too.
        KSLUTSetCoords(record, d, axis.coordinates.data());
        description.axes.push_back(axis);
    }
    return description;
}

void setOrRemove(Entries& entries, const std::string& key, const std::string& value) {
    if (value.empty()) {
        entries.remove(key);
    } else {
        entries.set(key, value);
    }
}

void storeDescription(const KSLUT& record, const TableDescription& description) {
    Entries entries = Entries::ofSegment(record.fp, kTableSegment, record.nSegment);
    setOrRemove(entries, kNameKey, description.name);
    setOrRemove(entries, kTextKey, description.text);
    entries.set(kTypeKey, elementTypeName(description.type));
    setOrRemove(entries, kUnitsKey, description.units);
    setOrRemove(entries, kValueNamesKey, fmt::format("{}", fmt::join(description.valueNames, "|")));
    for (int d = 0; d < record.nDimensions; ++d) {
        const TableAxis& axis = description.axes[static_cast<std::size_t>(d)];
        setOrRemove(entries, keyOf(kAxisUnitsKey, d), axis.units);
        setOrRemove(entries, keyOf(kAssumedKey, d), axis.assumed ? "yes" : "");
        storeExactCoordinates(entries, axis.coordinates, d);
    }
    entries.storeInSegment(record.fp, kTableSegment, record.nSegment);
}

void fillRecord(KSLUT* record, const TableDescription& description) {
    bool done = KSLUTSetElementSize(record, bytesPerElement(description.type)) == 1;
    for (int d = 0; d < record->nDimensions && done; ++d) {
        const TableAxis& axis = description.axes[static_cast<std::size_t>(d)];
        done = KSLUTSetSize(record, d, axis.size()) == 1 &&
               KSLUTSetLabel(record, d, axis.label.empty() ? nullptr : axis.label.c_str()) == 1 &&
               KSLUTSetCoords(record, d, axis.coordinates.data()) == 1;
    }
    if (!done) throw std::bad_alloc();
}

// ---- choosing ----

/// "2 (path radiance, 5 x 5 x 246)", or that it was never finished.
std::string listed(HostFile* file, int segment) {
    try {
        const LookupTable table = LookupTable::open(file, "", segment);
        std::vector<int> sizes;
        for (int d = 0; d < table.dimensions(); ++d) sizes.push_back(table.size(d));
        const std::string& name = table.description().name;
        return fmt::format("{} ({}{}{})", segment, name, name.empty() ? "" : ", ", fmt::join(sizes, " x "));
    } catch (const Failure&) {
        return fmt::format("{} (without a shape)", segment);
    }
}

int chooseSegment(HostFile* file, const std::string& shown, int asked) {
    const std::vector<int> segments = tableSegments(file);
    if (segments.empty()) fail("{} holds no look-up table. 'ks lut import' makes one.", shown);
    if (asked == 0 && segments.size() == 1) return segments[0];
    if (std::find(segments.begin(), segments.end(), asked) != segments.end()) return asked;
    std::vector<std::string> list;
    for (int segment : segments) list.push_back(listed(file, segment));
    if (asked == 0) {
        fail("{} holds {} tables; choose one with --segment: {}.", shown, segments.size(), fmt::join(list, ", "));
    }
    fail("{} has no table in segment {}; it has: {}.", shown, asked, fmt::join(list, ", "));
}

bool fitsInto(const KSLUT& record, const TableBox& box) {
    const auto dimensions = static_cast<std::size_t>(record.nDimensions);
    if (box.offset.size() != dimensions || box.count.size() != dimensions) return false;
    for (std::size_t d = 0; d < dimensions; ++d) {
        if (box.offset[d] < 0 || box.count[d] < 1 || box.offset[d] + box.count[d] > record.panSizes[d]) return false;
    }
    return true;
}

}  // namespace

const char* elementTypeName(ElementType type) {
    switch (type) {
        case ElementType::float32:
            return "float32";
        case ElementType::float64:
            return "float64";
        case ElementType::pair:
            return "float32 pair";
        default:
            return "unknown";
    }
}

int bytesPerElement(ElementType type) {
    constexpr int kFloatBytes = 4;
    if (type == ElementType::unknown) fail("elements of an unknown type have no size.");
    return type == ElementType::float32 ? kFloatBytes : 2 * kFloatBytes;
}

int valuesPerElement(ElementType type) {
    if (type == ElementType::unknown) {
        fail("what the elements of this table hold is not known; ks reads elements of 4 and 8 bytes.");
    }
    return type == ElementType::pair ? 2 : 1;
}

std::string TableAxis::nameOr(int dimension) const {
    return label.empty() ? fmt::format("axis {}", dimension + 1) : label;
}

std::int64_t TableBox::elements() const {
    return std::accumulate(count.begin(), count.end(), std::int64_t{1}, std::multiplies<>());
}

// ---- files ----

std::vector<int> tableSegments(HostFile* file) {
    std::vector<int> segments;
    for (int s = GDBSegNext(file, kTableSegment, 0); s > 0; s = GDBSegNext(file, kTableSegment, s)) {
        segments.push_back(s);
    }
    return segments;
}

OpenHostFile openTableFile(const std::string& name, const char* access) {
    requireReadable(name, "file");
    OpenHostFile file(GDBOpen(name.c_str(), access));
    if (!file) fail("{} cannot be opened (see above).", name);
    return file;
}

LookupTable LookupTable::open(const std::string& file, int segment) {
    const OpenHostFile handle = openTableFile(file, "r");
    return open(handle.get(), file, segment);
}

LookupTable LookupTable::open(HostFile* file, const std::string& shown, int segment) {
    const int chosen = chooseSegment(file, shown, segment);
    Record record(KSLUTCreate(1));
    if (!record) throw std::bad_alloc();
    if (KSLUTSetFileInfo(record.get(), file, chosen) != 1) fail("{}: segment {} cannot be used.", shown, chosen);
    if (KSLUTGetAttributes(record.get()) != 1 || KSLUTIsValid(record.get()) != 1) {
        fail("{}: the table in segment {} has no usable shape; it may never have been completed.", shown, chosen);
    }
    TableDescription description = describe(record.get());
    return {std::move(record), std::move(description), shown};
}

LookupTable LookupTable::create(HostFile* file, const TableDescription& description) {
    Record record(KSLUTCreate(static_cast<int>(description.axes.size())));
    if (!record) throw std::bad_alloc();
    fillRecord(record.get(), description);
    int segment = 0;
    const char* const name = description.name.c_str();
    const char* const text = description.text.c_str();
    if (KSLUTCreateFileSegment(record.get(), file, &segment, name, text) != 1 || segment < 1 ||
        KSLUTSetFileInfo(record.get(), file, segment) != 1) {
        fail("no room could be made for the table (see above).");
    }
    return {std::move(record), description, fp2filename(file)};
}

void LookupTable::finish() {
    if (KSLUTSetAttributes(record_.get()) != 1) fail("the shape of the table could not be stored (see above).");
    storeDescription(*record_, description_);
    requireComplete("the table");
}

// ---- the table ----

LookupTable::LookupTable(Record record, TableDescription description, std::string file)
    : record_(std::move(record)), description_(std::move(description)), file_(std::move(file)) {}

std::int64_t LookupTable::elementCount() const { return wholeBox().elements(); }

std::string LookupTable::valueName(int value) const {
    const auto index = static_cast<std::size_t>(value);
    if (index < description_.valueNames.size()) return description_.valueNames[index];
    if (type() != ElementType::pair) return "value";
    return value == 0 ? "first value" : "second value";
}

TableBox LookupTable::wholeBox() const {
    TableBox box;
    for (int d = 0; d < dimensions(); ++d) {
        box.offset.push_back(0);
        box.count.push_back(size(d));
    }
    return box;
}

void LookupTable::transfer(int mode, const TableBox& box, void* buffer, std::int64_t bytes) const {
    if (!fitsInto(*record_, box) || bytes != box.elements() * elementBytes()) {
        throw std::logic_error("a rectangle that does not lie in its table");
    }
    TableBox copy = box;
    KSLUTVector offset = {dimensions(), copy.offset.data()};
    KSLUTVector count = {dimensions(), copy.count.data()};
    std::int64_t moved = 0;
    const int done = KSLUTFileIO(record_.get(), mode, &offset, &count, nullptr, nullptr, 0, buffer, bytes, &moved);
    if (done == 1 && moved == bytes) return;
    throw Incomplete(fmt::format("{}: values of the table in segment {} could not be {} (see above).", file_, segment(),
                                 mode == kRead ? "read" : "written"));
}

void LookupTable::read(const TableBox& box, void* buffer, std::int64_t bytes) const {
    transfer(kRead, box, buffer, bytes);
}

void LookupTable::write(const TableBox& box, const void* buffer, std::int64_t bytes) {
    // The host only reads from what it writes; its one call for both directions cannot say so.
    transfer(kWrite, box, const_cast<void*>(buffer), bytes);
}

std::vector<double> LookupTable::readValues(const TableBox& box) const {
    const auto count = static_cast<std::size_t>(box.elements() * valuesPerElement(type()));
    if (type() == ElementType::float64) {
        std::vector<double> values(count);
        read(box, values.data(), static_cast<std::int64_t>(count * sizeof(double)));
        return values;
    }
    std::vector<float> values(count);
    read(box, values.data(), static_cast<std::int64_t>(count * sizeof(float)));
    return {values.begin(), values.end()};
}

void LookupTable::writeValues(const TableBox& box, const std::vector<double>& values) {
    if (type() == ElementType::float64) {
        write(box, values.data(), static_cast<std::int64_t>(values.size() * sizeof(double)));
        return;
    }
    std::vector<float> narrow;
    narrow.reserve(values.size());
    for (double value : values) narrow.push_back(static_cast<float>(value));
    write(box, narrow.data(), static_cast<std::int64_t>(narrow.size() * sizeof(float)));
}

std::vector<RLUTEntry> LookupTable::readEntries(const TableBox& box) const {
    std::vector<RLUTEntry> entries(static_cast<std::size_t>(box.elements()));
    read(box, entries.data(), static_cast<std::int64_t>(entries.size() * sizeof(RLUTEntry)));
    return entries;
}

void LookupTable::writeEntries(const TableBox& box, const std::vector<RLUTEntry>& entries) {
    write(box, entries.data(), static_cast<std::int64_t>(entries.size() * sizeof(RLUTEntry)));
}

}  // namespace kscli
