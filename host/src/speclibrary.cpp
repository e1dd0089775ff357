// ENVI spectral libraries, read and written. Reading takes one spectrum at a time from the file; what the header says
// of wavelengths goes through the same import as an image's. Writing makes the header from the fields' names.
#include "speclibrary.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>

#include "enviheader.hpp"
#include "import.hpp"
#include "kshost_app.h"
#include "rasterformats.hpp"
#include "report.hpp"
#include "text.hpp"

namespace kshost {
namespace {

constexpr const char* kTarget = "Target";
constexpr const char* kQuantity = "Quantity";
constexpr const char* kReflectance = "refl";
constexpr const char* kUnknown = "unknown";
constexpr const char* kLayerName = "spectra";
constexpr const char* kQuantities = "spectra quantities";
constexpr int kTargetField = 0;
constexpr int kFirstMeasurement = 2;
// No instrument has more; a header that claims more would have memory taken for fields that are not there.
constexpr int kMostWavelengths = 100000;

/// Entries that would mean something else in the header of an image, or that the layer shows.
constexpr std::array<std::string_view, 7> kNotOfBands = {
    "band names",       "spectra names",      kQuantities,        "reflectance scale factor",
    "data gain values", "data offset values", "data ignore value"};

bool isLibraryHeader(const EnviHeader& header) {
    const std::string* type = header.find("file type");
    return type != nullptr && lowered(*type).find("spectral library") != std::string::npos;
}

// ---- values ----

template <class Sample>
void decodeAs(const char* bytes, bool swapped, std::vector<double>& values) {
    for (double& value : values) {
        std::array<char, sizeof(Sample)> one{};
        std::memcpy(one.data(), bytes, one.size());
        if (swapped) std::reverse(one.begin(), one.end());
        Sample sample;
        std::memcpy(&sample, one.data(), sizeof sample);
        value = static_cast<double>(sample);
        bytes += sizeof(Sample);
    }
}

void decode(SampleType type, const char* bytes, bool swapped, std::vector<double>& values) {
    switch (type) {
        case SampleType::UInt8:
            return decodeAs<std::uint8_t>(bytes, swapped, values);
        case SampleType::Int16:
            return decodeAs<std::int16_t>(bytes, swapped, values);
        case SampleType::UInt16:
            return decodeAs<std::uint16_t>(bytes, swapped, values);
        case SampleType::Int32:
            return decodeAs<std::int32_t>(bytes, swapped, values);
        case SampleType::UInt32:
            return decodeAs<std::uint32_t>(bytes, swapped, values);
        case SampleType::Int64:
            return decodeAs<std::int64_t>(bytes, swapped, values);
        case SampleType::UInt64:
            return decodeAs<std::uint64_t>(bytes, swapped, values);
        case SampleType::Float32:
            return decodeAs<float>(bytes, swapped, values);
        case SampleType::Float64:
            return decodeAs<double>(bytes, swapped, values);
    }
}

/// What a header makes of a stored value.
struct Calibration {
    double scale = 1.0;             // stored values are this many times the quantity
    std::optional<double> missing;  // a stored value that stands for none

    double operator()(double stored) const {
        if (missing && stored == *missing) return std::numeric_limits<double>::quiet_NaN();
        return scale == 1.0 ? stored : stored / scale;
    }
};

/// The spectra of a file, of which one at a time is in memory.
class LibraryTable : public Table {
public:
    LibraryTable(RawLayout layout, const Calibration& calibration)
        : layout_(std::move(layout)), calibration_(calibration), values_(static_cast<size_t>(layout_.width)) {
        file_ = ::open(layout_.path.c_str(), O_RDONLY | O_CLOEXEC);
        if (file_ < 0) throw std::runtime_error(std::strerror(errno));
        name_ = kLayerName;
        fields_ = {{kTarget, kTextField, {}}, {kQuantity, kTextField, {}}};
    }
    ~LibraryTable() override { ::close(file_); }
    LibraryTable(const LibraryTable&) = delete;
    LibraryTable& operator=(const LibraryTable&) = delete;

    /// A field for a column of the file; the columns of a header's unusable wavelengths have none.
    void addMeasurement(double wavelengthNm, size_t column) {
        fields_.push_back({measurementField(wavelengthNm), kRealField, {}});
        columns_.push_back(column);
    }
    void describe(std::vector<std::string> names, std::vector<std::string> quantities) {
        names_ = std::move(names);
        quantities_ = std::move(quantities);
    }

    int shapes() const override { return layout_.height; }
    int shapeType(int) const override { return 0; }
    double number(int shape, int field) override {
        if (shape != loaded_) load(shape);
        return values_[columns_[static_cast<size_t>(field - kFirstMeasurement)]];
    }
    std::string_view text(int shape, int field) override {
        return (field == kTargetField ? names_ : quantities_)[static_cast<size_t>(shape)];
    }

private:
    void load(int shape) {
        loaded_ = -1;
        std::string bytes(values_.size() * sampleSize(layout_.type), '\0');
        const std::int64_t start = layout_.offset + layout_.lineStride * shape;
        for (size_t done = 0; done < bytes.size();) {
            const ssize_t got = ::pread(file_, bytes.data() + done, bytes.size() - done,
                                        static_cast<off_t>(start + static_cast<std::int64_t>(done)));
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) throw std::runtime_error(layout_.path + ": " + std::strerror(errno));
            if (got == 0) throw std::runtime_error(layout_.path + " has become shorter since it was opened");
            done += static_cast<size_t>(got);
        }
        decode(layout_.type, bytes.data(), layout_.bigEndian != (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__), values_);
        for (double& value : values_) value = calibration_(value);
        loaded_ = shape;
    }

    RawLayout layout_;
    Calibration calibration_;
    int file_ = -1;
    std::vector<std::string> names_, quantities_;
    std::vector<size_t> columns_;
    std::vector<double> values_;
    int loaded_ = -1;
};

// ---- reading a header ----

class LibraryReader {
public:
    LibraryReader(const std::string& path, const EnviHeader& header, SpectralLibrary& library)
        : path_(path), header_(header), library_(library) {}

    void read() {
        layout_.path = path_;
        if (!readEnviLayout(header_, layout_, library_.facts))
            throw std::runtime_error(
                "spectral libraries that are compressed or hold complex numbers are not read here");
        if (layout_.bands != 1)
            throw std::runtime_error("a spectral library has one band, this one has " + std::to_string(layout_.bands));
        checkLength();
        const std::vector<std::optional<double>> wavelengths = wavelengthsInNm();
        auto table = std::make_shared<LibraryTable>(layout_, calibration());
        for (size_t column = 0; column < wavelengths.size(); ++column)
            if (wavelengths[column]) table->addMeasurement(*wavelengths[column], column);
        if (table->fields().size() == kFirstMeasurement)
            throw std::runtime_error("no wavelength of the header can be used");
        table->describe(names(), quantities());
        library_.layer.table = std::move(table);
        library_.facts.channels = 0;
        library_.facts.channelTypes.clear();
        library_.facts.driver = "ENVI Spectral Library";
        library_.facts.interleave.clear();
    }

private:
    void remark(std::string text) { library_.layer.remarks.push_back(std::move(text)); }

    std::string valueOf(const char* key) const {
        const std::string* value = header_.find(key);
        return value != nullptr ? std::string(trimmed(*value)) : std::string();
    }

    void checkLength() {
        struct stat status {};
        if (::stat(path_.c_str(), &status) != 0) throw std::runtime_error(std::strerror(errno));
        const std::int64_t length = layout_.fileSize();
        const std::string sizes = "the file has " + std::to_string(status.st_size) + " bytes where its header says " +
                                  std::to_string(length) + " (" + std::to_string(layout_.height) + " spectra of " +
                                  std::to_string(layout_.width) + " values)";
        if (status.st_size < length) throw std::runtime_error(sizes + "; get the whole file");
        if (status.st_size > length) remark(sizes + "; what follows is ignored");
        if (layout_.width > kMostWavelengths)
            throw std::runtime_error("a spectrum has at most " + std::to_string(kMostWavelengths) + " values here");
    }

    /// Units, wavenumbers and missing units are judged as in the header of an image with a band for each wavelength.
    std::vector<std::optional<double>> wavelengthsInNm() {
        const size_t given = enviListItems(valueOf("wavelength")).size();
        if (given != static_cast<size_t>(layout_.width))
            throw std::runtime_error(given == 0 ? "the header has no wavelengths"
                                                : "the header has " + std::to_string(given) + " wavelengths for " +
                                                      std::to_string(layout_.width) + " values");
        RasterFacts facts = library_.facts;
        facts.driver = "ENVI";
        facts.channels = layout_.width;
        facts.headerText = "ENVI\n";
        for (const auto& [key, value] : header_.entries)
            if (std::find(kNotOfBands.begin(), kNotOfBands.end(), key) == kNotOfBands.end())
                facts.headerText.append(key).append(" = ").append(value).append("\n");
        ImportedMetadata imported = importMetadata(facts);
        for (const std::vector<std::string>& remarks : {header_.remarks, imported.remarks})
            for (const std::string& text : remarks) remark(text);
        library_.layer.fileList = std::move(imported.file);
        std::vector<std::optional<double>> wavelengths;
        for (const StringList& list : imported.channels) {
            const char* centre = list.find("ResponseProfile_Centre");
            wavelengths.push_back(centre != nullptr ? wholeNumber(centre) : std::nullopt);
        }
        return wavelengths;
    }

    Calibration calibration() {
        Calibration made;
        for (const char* key : {"data gain values", "data offset values"})
            if (!valueOf(key).empty()) remark(std::string("\"") + key + "\" is not applied to spectra");
        const std::optional<double> factor = wholeNumber(valueOf("reflectance scale factor"));
        if (factor && *factor > 0.0) {
            made.scale = *factor;
            reflectance_ = true;
        }
        const std::string missing = valueOf("data ignore value");
        made.missing = wholeNumber(missing);
        // The header's text is decimal, the samples may be single precision.
        if (made.missing && layout_.type == SampleType::Float32)
            made.missing = static_cast<double>(static_cast<float>(*made.missing));
        return made;
    }

    std::vector<std::string> names() {
        const auto count = static_cast<size_t>(layout_.height);
        std::vector<std::string> all = enviListItems(valueOf("spectra names"));
        if (all.size() != count)
            remark("the header names " + std::to_string(all.size()) + " spectra of " + std::to_string(count) +
                   (all.size() < count ? "; the others are numbered" : "; the last names are ignored"));
        for (size_t i = all.size(); i < count; ++i) all.push_back("spectrum " + std::to_string(i + 1));
        all.resize(count);
        return all;
    }

    std::vector<std::string> quantities() {
        const auto count = static_cast<size_t>(layout_.height);
        std::vector<std::string> all = enviListItems(valueOf(kQuantities));
        if (all.size() == count) return all;
        if (!all.empty())
            remark("the header has " + std::to_string(all.size()) + " quantities for " + std::to_string(count) +
                   " spectra; ignored");
        return std::vector<std::string>(count, reflectance_ ? kReflectance : kUnknown);
    }

    const std::string& path_;
    const EnviHeader& header_;
    SpectralLibrary& library_;
    RawLayout layout_;
    bool reflectance_ = false;
};

// ---- writing ----

/// The wavelength that a field of measurements is named after, as text; empty for any other field.
std::string wavelengthText(const Field& field) {
    constexpr std::string_view kDigits = "0123456789";
    std::string_view name = field.name;
    if (field.type != kRealField || !startsWith(name, "m")) return {};
    name.remove_prefix(1);
    const size_t whole = std::min(name.find_first_not_of(kDigits), name.size());
    std::string text(name.substr(0, whole));
    if (whole == name.size() || text.empty()) return text;
    const std::string_view fraction = name.substr(whole + 1);
    if (name[whole] != '_' || fraction.find_first_not_of(kDigits) != std::string_view::npos) return {};
    return fraction.empty() ? text : text + "." + std::string(fraction);
}

class LibraryFormat : public TableFormat {
public:
    explicit LibraryFormat(std::string path) : path_(std::move(path)) {}

    int type() const override { return KSHOST_TYPE_SPECTRAL_LIBRARY; }

    std::string whyNotNamed() const override {
        return withExtension(path_, ".hdr") == path_ ? "a name that ends in .hdr is for the header of a library" : "";
    }

    std::vector<std::string> files() const override {
        std::vector<std::string> all = enviHeaderNames(path_);
        all.push_back(path_);
        return all;
    }

    std::vector<KeptField> kept(const std::vector<Field>& fields) const override {
        std::vector<KeptField> all;
        std::set<std::string> taken;
        for (size_t i = 0; i < fields.size(); ++i) {
            const Field& field = fields[i];
            const bool describes = field.type == kTextField && (field.name == kTarget || field.name == kQuantity);
            if (!wavelengthText(field).empty() || (describes && taken.insert(field.name).second))
                all.push_back({static_cast<int>(i), field.name});
        }
        return all;
    }

    std::string write(Table& table) const override {
        std::vector<int> measurements;
        std::vector<std::string> wavelengths;
        int target = -1, quantity = -1;
        for (size_t i = 0; i < table.fields().size(); ++i) {
            const Field& field = table.fields()[i];
            const std::string wavelength = wavelengthText(field);
            if (!wavelength.empty()) {
                measurements.push_back(static_cast<int>(i));
                wavelengths.push_back(wavelength);
            } else {
                (field.name == kTarget ? target : quantity) = static_cast<int>(i);
            }
        }
        if (measurements.empty()) return "a spectral library has at least one field of measurements, such as m450_500";
        if (table.shapes() == 0) return "a spectral library has at least one spectrum";
        const std::string header = composeHeader(table, wavelengths, textsOf(table, target), textsOf(table, quantity));
        // The library itself comes last: where it lies, it is whole.
        const std::string why =
            placeFiles({{withExtension(path_, ".hdr"), header}, {path_, samplesOf(table, measurements)}}, !written_);
        written_ = written_ || why.empty();
        return why;
    }

private:
    static std::vector<std::string> textsOf(Table& table, int field) {
        std::vector<std::string> texts;
        for (int shape = 0; field >= 0 && shape < table.shapes(); ++shape) texts.emplace_back(table.text(shape, field));
        return texts;
    }

    static std::string samplesOf(Table& table, const std::vector<int>& measurements) {
        std::string bytes;
        bytes.reserve(static_cast<size_t>(table.shapes()) * measurements.size() * sizeof(double));
        for (int shape = 0; shape < table.shapes(); ++shape) {
            for (const int field : measurements) {
                const double value = table.number(shape, field);
                bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
            }
        }
        return bytes;
    }

    std::string composeHeader(const Table& table, const std::vector<std::string>& wavelengths,
                              const std::vector<std::string>& names, const std::vector<std::string>& quantities) const {
        std::string text = "ENVI\n";
        const auto line = [&](const std::string& key, const std::string& value) { text += key + " = " + value + "\n"; };
        line("samples", std::to_string(wavelengths.size()));
        line("lines", std::to_string(table.shapes()));
        line("bands", "1");
        line("header offset", "0");
        line("file type", "ENVI Spectral Library");
        line("data type", "5");
        line("interleave", "bsq");
        line("byte order", "0");
        const auto all = [&](const char* word) {
            return std::all_of(quantities.begin(), quantities.end(),
                               [=](const std::string& quantity) { return quantity == word; });
        };
        if (!quantities.empty() && all(kReflectance)) {
            line("reflectance scale factor", "1");
        } else if (!all(kUnknown)) {
            line(kQuantities, listOf(quantities));
        }
        line("wavelength units", "Nanometers");
        line("wavelength", enviListText(wavelengths));
        if (!names.empty()) line("spectra names", listOf(names));
        return text;
    }

    /// A header list; texts that one cannot hold as they are are changed, and that is said.
    std::string listOf(const std::vector<std::string>& texts) const {
        const auto changed = std::count_if(texts.begin(), texts.end(),
                                           [](const std::string& text) { return enviListItem(text) != text; });
        if (changed > 0)
            reportNotice(path_ + ": " + std::to_string(changed) + " of " + std::to_string(texts.size()) +
                         " names hold commas, braces or line breaks, or begin or end with blanks, which an ENVI header "
                         "cannot keep; they are changed.");
        return enviListText(texts);
    }

    std::string path_;
    mutable bool written_ = false;
};

}  // namespace

std::string findLibraryHeader(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || hasImageSignature(path)) return {};
    std::string header = findEnviHeader(path);
    std::string text, ignored;
    if (header.empty() || !readWholeFile(header, text, ignored)) return {};
    if (lowered(text).find("spectral library") == std::string::npos) return {};
    return isLibraryHeader(parseEnviHeader(text)) ? header : std::string();
}

bool readLibrary(const std::string& path, const std::string& header, SpectralLibrary& library, std::string& why) {
    library.facts.headerPath = header;
    if (!readWholeFile(header, library.facts.headerText, why)) return false;
    try {
        LibraryReader(path, parseEnviHeader(library.facts.headerText), library).read();
        return true;
    } catch (const std::exception& e) {
        why = e.what();
        return false;
    }
}

std::unique_ptr<TableFormat> newLibraryFormat(const std::string& path) { return std::make_unique<LibraryFormat>(path); }

std::string measurementField(double wavelengthNm) {
    std::string name = "m" + fixedText(wavelengthNm, 3);
    std::replace(name.begin(), name.end(), '.', '_');
    return name;
}

}  // namespace kshost
