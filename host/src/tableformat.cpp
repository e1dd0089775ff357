// Tables for other programs through GDAL's vector drivers. They are made in memory, where nothing can go wrong halfway,
// and take their place on the disk whole.
#include "tableformat.hpp"

#include <cpl_vsi.h>
#include <gdal_priv.h>
#include <ogrsf_frmts.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <set>
#include <stdexcept>
#include <utility>

#include "kshost_app.h"
#include "rasterformats.hpp"
#include "report.hpp"
#include "speclibrary.hpp"
#include "text.hpp"

namespace kshost {
namespace {

/// What tells one driver's tables from another's.
struct Recipe {
    int type;
    const char* driver;
    std::array<const char*, 2> extensions;  // of the files that the driver makes, that of the table last; "" for none
    size_t mostFields;                      // 0: any number
    size_t longestName;                     // 0: any length
    bool numbersAsText;                     // where the driver's own way with numbers loses digits
    bool utf8;                              // texts have to be UTF-8
    const char* option;                     // of its layers
};

// The widths of a table of dBASE: a record of 255 fields of 254 characters still fits.
constexpr int kTextWidth = 254;
constexpr int kNumberWidth = 24;
constexpr int kDecimals = 15;
constexpr double kTooLarge = 1e7;  // a sign, seven digits, a point and the decimals

constexpr std::array<Recipe, 3> kRecipes = {{
    {KSHOST_TYPE_CSV, "CSV", {"", ".csv"}, 0, 0, true, false, "STRING_QUOTING=IF_NEEDED"},
    {KSHOST_TYPE_GEOJSON, "GeoJSON", {"", ".geojson"}, 0, 0, false, true, "SIGNIFICANT_FIGURES=17"},
    {KSHOST_TYPE_DBF, "ESRI Shapefile", {".cpg", ".dbf"}, 255, 10, false, true, "ENCODING=UTF-8"},
}};

/// A folder in GDAL's memory that goes away with its owner.
class MemoryFolder {
public:
    MemoryFolder() {
        static std::atomic<int> count{0};
        path_ = "/vsimem/kshost-table-" + std::to_string(count++);
        VSIMkdir(path_.c_str(), 0777);
    }
    ~MemoryFolder() { VSIRmdirRecursive(path_.c_str()); }
    MemoryFolder(const MemoryFolder&) = delete;
    MemoryFolder& operator=(const MemoryFolder&) = delete;
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

/// Cuts a UTF-8 text to a number of bytes, never within a character.
std::string_view cutTo(std::string_view text, size_t bytes) {
    if (text.size() <= bytes) return text;
    while (bytes > 0 && (static_cast<unsigned char>(text[bytes]) & 0xc0) == 0x80) --bytes;
    return text.substr(0, bytes);
}

/// A name that no other field has: drivers tell names apart without regard to case.
std::string uniqueName(const std::string& name, size_t longest, std::set<std::string>& taken) {
    const auto fitting = [&](const std::string& tail) {
        const size_t room = longest > 0 ? longest - tail.size() : name.size();
        return std::string(cutTo(name, room)) + tail;
    };
    std::string made = fitting("");
    for (int i = 2; !taken.insert(lowered(made)).second; ++i) made = fitting("_" + std::to_string(i));
    return made;
}

[[noreturn]] void fail(const GdalMessages& messages, const char* what) {
    throw std::runtime_error(messages.text(what));
}

class TableWriter {
public:
    TableWriter(const Recipe& recipe, Table& table) : recipe_(recipe), table_(table) {}

    void write(const std::string& path) {
        GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(recipe_.driver);
        if (driver == nullptr) throw std::runtime_error(std::string("GDAL has no ") + recipe_.driver + " driver");
        GdalDataset dataset(driver->Create(path.c_str(), 0, 0, 0, GDT_Unknown, nullptr));
        if (dataset == nullptr) fail(messages_, "the file cannot be made");
        const char* const options[] = {recipe_.option, nullptr};
        layer_ = dataset->CreateLayer("spectra", nullptr, wkbNone, const_cast<char**>(options));
        if (layer_ == nullptr) fail(messages_, "the table cannot be made");
        defineFields();
        for (int shape = 0; shape < table_.shapes(); ++shape) addFeature(shape);
        dataset.reset();
        if (const std::string failure = messages_.text(""); !failure.empty()) throw std::runtime_error(failure);
    }

    size_t cutTexts() const { return cutTexts_; }
    size_t leftOut() const { return leftOut_; }

private:
    bool limited() const { return recipe_.type == KSHOST_TYPE_DBF; }
    bool isReal(size_t field) const { return table_.fields()[field].type == kRealField; }

    /// As wide as its texts, so that a table of many short words stays small.
    int widthOf(int field) const {
        size_t width = 1;
        for (int shape = 0; shape < table_.shapes(); ++shape)
            width = std::max(width, asUtf8(table_.text(shape, field)).size());
        return static_cast<int>(std::min<size_t>(width, kTextWidth));
    }

    void defineFields() {
        for (size_t i = 0; i < table_.fields().size(); ++i) {
            const bool number = isReal(i) && !recipe_.numbersAsText;
            OGRFieldDefn field(table_.fields()[i].name.c_str(), number ? OFTReal : OFTString);
            if (limited()) {
                field.SetWidth(number ? kNumberWidth : widthOf(static_cast<int>(i)));
                if (number) field.SetPrecision(kDecimals);
            }
            if (layer_->CreateField(&field) != OGRERR_NONE) fail(messages_, "a field cannot be made");
        }
    }

    void addFeature(int shape) {
        OGRFeature feature(layer_->GetLayerDefn());
        for (int i = 0; i < feature.GetFieldCount(); ++i) {
            if (isReal(static_cast<size_t>(i)))
                setNumber(feature, i, table_.number(shape, i));
            else
                setText(feature, i, table_.text(shape, i));
        }
        if (layer_->CreateFeature(&feature) != OGRERR_NONE) fail(messages_, "a record cannot be written");
    }

    void setNumber(OGRFeature& feature, int field, double value) {
        if (recipe_.numbersAsText) {
            feature.SetField(field, shortestText(value).c_str());
        } else if (!std::isfinite(value) || (limited() && std::fabs(value) >= kTooLarge)) {
            ++leftOut_;
            feature.SetFieldNull(field);
        } else {
            feature.SetField(field, value);
        }
    }

    void setText(OGRFeature& feature, int field, std::string_view text) {
        std::string value = recipe_.utf8 ? asUtf8(text) : std::string(text);
        if (limited() && value.size() > kTextWidth) {
            ++cutTexts_;
            value = std::string(cutTo(value, kTextWidth));
        }
        feature.SetField(field, value.c_str());
    }

    const Recipe& recipe_;
    Table& table_;
    GdalMessages messages_;
    OGRLayer* layer_ = nullptr;
    size_t cutTexts_ = 0;
    size_t leftOut_ = 0;
};

class GdalTableFormat : public TableFormat {
public:
    GdalTableFormat(const Recipe& recipe, std::string path) : recipe_(recipe), path_(std::move(path)) {}

    int type() const override { return recipe_.type; }

    std::string whyNotNamed() const override {
        const bool table = withExtension(path_, ".dbf") == path_;
        return recipe_.type == KSHOST_TYPE_DBF && !table ? "the name of such a table ends in .dbf" : "";
    }

    std::vector<std::string> files() const override {
        std::vector<std::string> all;
        if (recipe_.extensions[0][0] != '\0') all.push_back(withExtension(path_, recipe_.extensions[0]));
        all.push_back(path_);
        return all;
    }

    std::vector<KeptField> kept(const std::vector<Field>& fields) const override {
        std::vector<KeptField> all;
        std::set<std::string> taken;
        for (const Field& field : fields) {
            if (recipe_.mostFields > 0 && all.size() == recipe_.mostFields) break;
            all.push_back({static_cast<int>(all.size()), uniqueName(field.name, recipe_.longestName, taken)});
        }
        return all;
    }

    std::string write(Table& table) const override {
        if (table.fields().empty()) return "a table has at least one field";
        registerFormats();
        const MemoryFolder folder;
        TableWriter writer(recipe_, table);
        const std::string name = std::string("table") + recipe_.extensions[1];
        try {
            writer.write(folder / name);
        } catch (const std::runtime_error& e) {
            return e.what();
        }
        std::vector<NewFile> made;
        const std::vector<std::string> targets = files();
        if (targets.size() > 1)
            made.push_back({targets[0], bytesOf(folder / ("table" + std::string(recipe_.extensions[0])))});
        made.push_back({targets.back(), bytesOf(folder / name)});
        const std::string why = placeFiles(made, !written_);
        written_ = written_ || why.empty();
        if (why.empty()) tell(writer);
        return why;
    }

private:
    static std::string bytesOf(const std::string& path) {
        vsi_l_offset size = 0;
        const GByte* bytes = VSIGetMemFileBuffer(path.c_str(), &size, FALSE);
        return bytes != nullptr ? std::string(bytes, bytes + size) : std::string();
    }

    void tell(const TableWriter& writer) const {
        if (writer.leftOut() > 0)
            reportNotice(path_ + ": " + std::to_string(writer.leftOut()) +
                         " values that are no finite numbers, or too large for the format, are left empty.");
        if (writer.cutTexts() > 0)
            reportNotice(path_ + ": " + std::to_string(writer.cutTexts()) + " texts are cut to " +
                         std::to_string(kTextWidth) + " bytes.");
    }

    const Recipe& recipe_;
    std::string path_;
    mutable bool written_ = false;
};

}  // namespace

std::unique_ptr<TableFormat> newTableFormat(int type, const std::string& path, std::string& why) {
    if (type == KSHOST_TYPE_NATIVE) return nullptr;
    if (type == KSHOST_TYPE_SPECTRAL_LIBRARY) return newLibraryFormat(path);
    const auto recipe =
        std::find_if(kRecipes.begin(), kRecipes.end(), [type](const Recipe& r) { return r.type == type; });
    if (recipe == kRecipes.end()) {
        why = "there are no files of type " + std::to_string(type);
        return nullptr;
    }
    return std::make_unique<GdalTableFormat>(*recipe, path);
}

}  // namespace kshost
