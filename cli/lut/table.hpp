// Look-up tables in files: found, described, read and written by hyper-rectangles. Beyond sizes, labels and coordinates
// a table made here remembers what its values are, in metadata of its segment that other readers may ignore.
#pragma once

#include <kslib.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <kshost_app.h>

#include "image/entries.hpp"

namespace kscli {

struct HostFileCloser {
    void operator()(HostFile* file) const { GDBClose(file); }
};
using OpenHostFile = std::unique_ptr<HostFile, HostFileCloser>;

/// What an element holds. Where a table does not say, 4 bytes are a float32, the 8 bytes of a radiance table two of
/// them, and any other 8 bytes a float64.
enum class ElementType { unknown, float32, float64, pair };
const char* elementTypeName(ElementType type);
/// Throws a Failure for elements of an unknown type.
int bytesPerElement(ElementType type);
int valuesPerElement(ElementType type);

struct TableAxis {
    std::string label;  // empty: none
    std::string units;  // empty: not known
    std::vector<float> coordinates;
    /// The axis has one index, and what it stands for was not known when the table was made.
    bool assumed = false;

    int size() const { return static_cast<int>(coordinates.size()); }
    /// "Solar zenith angle", or "axis 3" where there is no label.
    std::string nameOr(int dimension) const;
};

struct TableDescription {
    std::string name;
    std::string text;  // where it comes from
    ElementType type = ElementType::float32;
    std::vector<std::string> valueNames;  // of an element's values; may be empty
    std::string units;                    // of the values
    std::vector<TableAxis> axes;          // the last one varies fastest
};

/// A hyper-rectangle: first index and number of indices of each dimension.
struct TableBox {
    std::vector<std::int64_t> offset;
    std::vector<std::int64_t> count;

    std::int64_t elements() const;
};

/// Which axes radiance tables have is given by gaszRLUTLabels; these are the units that ks stores them in.
extern const char* const kRadianceAxisUnits[RLUT_DIMENSIONS];
extern const char* const kRadianceUnits;

class LookupTable {
public:
    /// Opens a table for reading. segment 0 stands for the only one; a file of several is refused with a list of them.
    /// Throws a Failure that tells a missing file, one without tables and one with an unfinished table apart.
    static LookupTable open(const std::string& file, int segment = 0);
    /// The same in a file that is open; `shown` names it in messages.
    static LookupTable open(HostFile* file, const std::string& shown, int segment);
    /// Makes a table of zeros in a file that is open for writing. Its shape is stored by finish() only, so that a
    /// table that was never completed cannot be taken for one.
    static LookupTable create(HostFile* file, const TableDescription& description);
    void finish();

    const TableDescription& description() const { return description_; }
    int dimensions() const { return record_->nDimensions; }
    const TableAxis& axis(int dimension) const { return description_.axes[static_cast<std::size_t>(dimension)]; }
    int size(int dimension) const { return axis(dimension).size(); }
    int segment() const { return record_->nSegment; }
    int elementBytes() const { return record_->nElementSize; }
    std::int64_t elementCount() const;
    ElementType type() const { return description_.type; }
    /// Nine labelled dimensions and elements of two values; the record can then be given to the RLUT functions.
    bool isRadianceTable() const { return type() == ElementType::pair && RLUTValidate(record_.get()) == 1; }
    /// What an element's value number `value` is: its name where the table says, else "value", "first value", ...
    std::string valueName(int value) const;
    KSLUT* record() const { return record_.get(); }

    TableBox wholeBox() const;
    /// Reads a rectangle, last dimension fastest. Throws Incomplete when not everything could be read.
    void read(const TableBox& box, void* buffer, std::int64_t bytes) const;
    void write(const TableBox& box, const void* buffer, std::int64_t bytes);
    /// valuesPerElement() numbers for each element.
    std::vector<double> readValues(const TableBox& box) const;
    void writeValues(const TableBox& box, const std::vector<double>& values);
    /// For elements of two values.
    std::vector<RLUTEntry> readEntries(const TableBox& box) const;
    void writeEntries(const TableBox& box, const std::vector<RLUTEntry>& entries);

private:
    struct Destroyer {
        void operator()(KSLUT* table) const { KSLUTDestroy(table); }
    };
    using Record = std::unique_ptr<KSLUT, Destroyer>;
    LookupTable(Record record, TableDescription description, std::string file);
    void transfer(int mode, const TableBox& box, void* buffer, std::int64_t bytes) const;

    Record record_;
    TableDescription description_;
    std::string file_;
};

/// The numbers of a file's table segments, finished or not.
std::vector<int> tableSegments(HostFile* file);
/// Opens a file for its tables; access "r" or "r+". Throws a Failure.
OpenHostFile openTableFile(const std::string& name, const char* access);

}  // namespace kscli
