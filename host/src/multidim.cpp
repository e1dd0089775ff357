// Cubes in netCDF and HDF5 files. The axes of an array come in any order and are told apart by their names, by a list
// of wavelengths of the right length, or by their place; the arrays are read in whole chunks, which are compressed as a
// rule.
#include <ogr_spatialref.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <numeric>
#include <set>

#include "rasterformats.hpp"
#include "text.hpp"

namespace kshost {
namespace {

using Array = std::shared_ptr<GDALMDArray>;

constexpr std::int64_t kMostBoxBytes = std::int64_t{256} << 20;
constexpr std::int64_t kPlainBoxBytes = std::int64_t{8} << 20;
// Less than this between two wanted bands is cheaper to read than to skip.
constexpr std::int64_t kGapBytes = 4096;
constexpr int kDeepestGroup = 16;
constexpr std::size_t kLongestAttribute = 4096;

bool isNumeric(const GDALMDArray& array) {
    SampleType ignored;
    return array.GetDataType().GetClass() == GEDTC_NUMERIC &&
           sampleTypeOf(array.GetDataType().GetNumericDataType(), ignored);
}

bool isOneOf(const std::string& name, std::initializer_list<const char*> names) {
    return std::any_of(names.begin(), names.end(), [&](const char* n) { return name == n; });
}

bool namesWavelengths(const std::string& name) {
    return isOneOf(name, {"wavelength", "wavelengths", "wl", "wvl", "lambda", "band_wavelength", "band_wavelengths",
                          "center_wavelength", "center_wavelengths", "centre_wavelength", "centre_wavelengths",
                          "central_wavelength", "wavelength_center", "sensor_band_wavelength"});
}

bool namesBandAxis(const std::string& name) {
    if (namesWavelengths(name)) return true;
    for (const char* part : {"band", "wavelength", "spectral", "channel"})
        if (name.find(part) != std::string::npos) return true;
    return false;
}

void collectArrays(const std::shared_ptr<GDALGroup>& group, int depth, std::vector<Array>& arrays) {
    for (const std::string& name : group->GetMDArrayNames())
        if (Array array = group->OpenMDArray(name)) arrays.push_back(std::move(array));
    if (depth >= kDeepestGroup) return;
    for (const std::string& name : group->GetGroupNames())
        if (auto inner = group->OpenGroup(name)) collectArrays(inner, depth + 1, arrays);
}

// Sizes that an image can have.
bool fits(const GDALMDArray& array) {
    for (const auto& dimension : array.GetDimensions())
        if (dimension->GetSize() < 1 || dimension->GetSize() > std::numeric_limits<int>::max()) return false;
    return true;
}

Array largest(const std::vector<Array>& arrays, std::size_t dimensions) {
    Array best;
    double bestSize = 0;
    for (const Array& array : arrays) {
        if (array->GetDimensionCount() != dimensions || !isNumeric(*array) || !fits(*array)) continue;
        double size = 1;
        for (const auto& dimension : array->GetDimensions()) size *= static_cast<double>(dimension->GetSize());
        if (size <= bestSize) continue;
        best = array;
        bestSize = size;
    }
    return best;
}

Array chooseArray(const std::vector<Array>& arrays, const std::string& variable, std::string& why) {
    if (variable.empty()) {
        Array array = largest(arrays, 3);
        if (array == nullptr) array = largest(arrays, 2);
        if (array == nullptr) why = "the file has no numeric array of three or two dimensions that could be an image";
        return array;
    }
    const std::string wanted = variable.substr(std::min(variable.find_first_not_of('/'), variable.size()));
    for (const Array& array : arrays) {
        if (array->GetFullName() != "/" + wanted && array->GetName() != wanted) continue;
        const std::size_t dimensions = array->GetDimensionCount();
        if (isNumeric(*array) && fits(*array) && (dimensions == 2 || dimensions == 3)) return array;
        why = "\"" + variable + "\" is not a numeric array of three or two dimensions";
        return nullptr;
    }
    why = "the file has no array \"" + variable + "\"";
    return nullptr;
}

std::vector<double> numbersOf(const GDALMDArray& array, std::size_t count) {
    std::vector<double> values(count);
    const GUInt64 start = 0;
    const std::size_t counts = count;
    if (array.GetDimensionCount() != 1 || !isNumeric(array) || array.GetDimensions()[0]->GetSize() != count) return {};
    if (!array.Read(&start, &counts, nullptr, nullptr, GDALExtendedDataType::Create(GDT_Float64), values.data()))
        return {};
    return values;
}

// An array of one value a band whose name satisfies the test, from anywhere in the file; the shortest path first.
Array bandList(const std::vector<Array>& arrays, std::size_t bands,
               const std::function<bool(const std::string&)>& named) {
    Array best;
    for (const Array& array : arrays) {
        if (array->GetDimensionCount() != 1 || array->GetDimensions()[0]->GetSize() != bands || !isNumeric(*array))
            continue;
        if (!named(lowered(array->GetName()))) continue;
        if (best == nullptr || array->GetFullName().size() < best->GetFullName().size()) best = array;
    }
    return best;
}

std::string attributeText(GDALAttribute& attribute) {
    const std::vector<GUInt64> sizes = attribute.GetDimensionsSize();
    if (sizes.empty()) {
        const char* text = attribute.ReadAsString();
        return text != nullptr ? text : "";
    }
    std::string joined;
    const CPLStringList values(attribute.ReadAsStringArray());
    for (int i = 0; i < values.size() && joined.size() <= kLongestAttribute; ++i)
        joined += (i > 0 ? "," : "") + std::string(values[i]);
    return joined;
}

std::string unitOf(const GDALMDArray& array) {
    if (!array.GetUnit().empty()) return array.GetUnit();
    const auto attribute = array.GetAttribute("units");
    return attribute != nullptr ? attributeText(*attribute) : "";
}

void addAttributes(const std::vector<std::shared_ptr<GDALAttribute>>& attributes, Items& items) {
    std::set<std::string> known;
    for (const auto& item : items) known.insert(item.first);
    for (const auto& attribute : attributes) {
        if (attribute == nullptr || !known.insert(attribute->GetName()).second) continue;
        std::string text = attributeText(*attribute);
        if (text.size() <= kLongestAttribute) items.emplace_back(attribute->GetName(), std::move(text));
    }
}

// ---- the axes ----

struct Axes {
    int band = -1;  // -1: an array of two dimensions
    int line = 0;
    int column = 1;
};

Axes findAxes(const GDALMDArray& array, const std::vector<Array>& arrays, std::vector<std::string>& remarks) {
    if (array.GetDimensionCount() == 2) return {};
    const auto& dimensions = array.GetDimensions();
    int band = -1;
    for (int i = 0; i < 3 && band < 0; ++i)
        if (namesBandAxis(lowered(dimensions[static_cast<std::size_t>(i)]->GetName()))) band = i;
    for (int i = 0; i < 3 && band < 0; ++i)
        if (bandList(arrays, dimensions[static_cast<std::size_t>(i)]->GetSize(), namesWavelengths) != nullptr) band = i;
    if (band < 0) {
        band = 0;
        remarks.push_back("nothing says which axis of \"" + array.GetFullName() +
                          "\" is the spectral one: the first is taken");
    }
    return {band, band == 0 ? 1 : 0, band == 2 ? 1 : 2};
}

// ---- the raster ----

// A box of an array in its own order of axes.
struct Box {
    std::array<std::int64_t, 3> start{};
    std::array<std::int64_t, 3> count{};
    bool contains(const Box& o) const {
        for (std::size_t i = 0; i < 3; ++i)
            if (o.start[i] < start[i] || o.start[i] + o.count[i] > start[i] + count[i]) return false;
        return true;
    }
};

class MultidimRaster : public Raster {
public:
    MultidimRaster(GdalDataset dataset, Array array, const Axes& axes, RasterFacts facts)
        : dataset_(std::move(dataset)), array_(std::move(array)) {
        facts_ = std::move(facts);
        sampleTypeOf(array_->GetDataType().GetNumericDataType(), type_);
        // An image of two dimensions is treated as if a first one of a single band came before the others.
        hasBands_ = axes.band >= 0;
        band_ = hasBands_ ? static_cast<std::size_t>(axes.band) : 0;
        line_ = static_cast<std::size_t>(axes.line) + (hasBands_ ? 0 : 1);
        column_ = static_cast<std::size_t>(axes.column) + (hasBands_ ? 0 : 1);
        const std::vector<GUInt64> blocks = array_->GetBlockSize();
        for (std::size_t i = 0; i < 3; ++i) {
            const bool own = hasBands_ || i > 0;
            const std::size_t at = hasBands_ ? i : i - 1;
            size_[i] = own ? static_cast<std::int64_t>(array_->GetDimensions()[at]->GetSize()) : 1;
            block_[i] = own && at < blocks.size() ? static_cast<std::int64_t>(blocks[at]) : 1;
            chunked_ = chunked_ || block_[i] > 1;
            block_[i] = std::clamp<std::int64_t>(block_[i], 1, size_[i]);
        }
    }

    std::string read(const Transfer& t, float* buffer) override {
        const GdalMessages messages;
        const std::vector<BandRun> runs = runsOf(t.channels);
        held_.resize(runs.size());
        std::int64_t bands = 0;
        for (const BandRun& run : runs) bands += rounded(run.last - run.first + 1, block_[band_]);
        const std::int64_t lines = linesAtOnce(bands, t.width);
        for (std::int64_t row = 0; row < t.bufHeight;) {
            const std::int64_t line = t.line(row);
            std::int64_t rows = 1;
            while (row + rows < t.bufHeight && t.line(row + rows) < (line / lines + 1) * lines) ++rows;
            const std::int64_t lastLine = t.line(row + rows - 1);
            const std::int64_t step = columnsAtOnce(bands, lastLine - line + 1, t.width);
            for (std::int64_t first = 0; first < t.bufWidth;) {
                const std::int64_t x = t.column(first);
                std::int64_t next = first + 1;
                while (next < t.bufWidth && t.column(next) - x < step) ++next;
                Box wanted;
                set(wanted, line_, line, lastLine - line + 1);
                set(wanted, column_, x, t.column(next - 1) - x + 1);
                for (std::size_t i = 0; i < runs.size(); ++i) {
                    set(wanted, band_, runs[i].first, runs[i].last - runs[i].first + 1);
                    if (!hold(held_[i], wanted)) return messages.text("the samples cannot be read");
                    for (std::int64_t r = row; r < row + rows; ++r)
                        copyRow(t, runs[i], held_[i], r, first, next, buffer);
                }
                first = next;
            }
            row += rows;
        }
        return {};
    }

    std::string write(const Transfer&, const float*) override {
        return facts_.driver + " images cannot be written here";
    }

private:
    static void set(Box& box, std::size_t axis, std::int64_t start, std::int64_t count) {
        box.start[axis] = start;
        box.count[axis] = count;
    }

    /// Bands that are read together, and where in the channel list they are wanted.
    struct BandRun {
        std::int64_t first, last;
        std::vector<std::size_t> places;
    };

    // Bands with a chunk that nobody wants between them, or with much of the file, are read apart.
    std::vector<BandRun> runsOf(const std::vector<int>& channels) const {
        std::vector<std::size_t> places(channels.size());
        std::iota(places.begin(), places.end(), std::size_t{0});
        std::stable_sort(places.begin(), places.end(),
                         [&](std::size_t a, std::size_t b) { return channels[a] < channels[b]; });
        std::vector<BandRun> runs;
        for (const std::size_t place : places) {
            const std::int64_t band = channels[place] - 1;
            if (runs.empty() || !together(runs.back().last, band)) runs.push_back({band, band, {}});
            runs.back().last = band;
            runs.back().places.push_back(place);
        }
        return runs;
    }
    bool together(std::int64_t band, std::int64_t next) const {
        if (block_[band_] > 1) return next / block_[band_] - band / block_[band_] <= 1;
        std::int64_t between = std::max<std::int64_t>(0, next - band - 1) * sampleBytes();
        for (std::size_t axis = band_ + 1; axis < 3; ++axis)
            if (__builtin_mul_overflow(between, chunked_ ? block_[axis] : size_[axis], &between)) return false;
        return between <= kGapBytes;
    }

    std::int64_t sampleBytes() const { return static_cast<std::int64_t>(sampleSize(type_)); }
    static std::int64_t rounded(std::int64_t value, std::int64_t step) { return (value + step - 1) / step * step; }

    // Whole rows of chunks; of an array without chunks as many lines as make a good read.
    std::int64_t linesAtOnce(std::int64_t bands, std::int64_t width) const {
        if (chunked_ && block_[line_] > 1) return block_[line_];
        const double lineBytes =
            static_cast<double>(bands) * static_cast<double>(width) * static_cast<double>(sampleBytes());
        return static_cast<std::int64_t>(std::clamp(static_cast<double>(kPlainBoxBytes) / lineBytes, 1.0, 4096.0));
    }
    std::int64_t columnsAtOnce(std::int64_t bands, std::int64_t lines, std::int64_t width) const {
        const double columnBytes = static_cast<double>(rounded(bands, block_[band_])) *
                                   static_cast<double>(rounded(lines, block_[line_])) *
                                   static_cast<double>(sampleBytes());
        const auto most =
            static_cast<std::int64_t>(std::clamp(static_cast<double>(kMostBoxBytes) / columnBytes, 1.0, 2147483647.0));
        return most >= width ? width : std::max<std::int64_t>(1, most / block_[column_] * block_[column_]);
    }

    std::int64_t bytesOf(const Box& box) const {
        std::int64_t bytes = sampleBytes();
        for (const std::int64_t count : box.count)
            if (__builtin_mul_overflow(bytes, count, &bytes)) return std::numeric_limits<std::int64_t>::max();
        return bytes;
    }

    // A box of the array in memory.
    struct Held {
        Box box;
        std::vector<unsigned char> bytes;
    };

    // Reads the wanted box, grown to whole chunks where they are not too many; a box read before serves again.
    bool hold(Held& held, const Box& wanted) const {
        if (!held.bytes.empty() && held.box.contains(wanted)) return true;
        Box box = wanted;
        for (std::size_t i = 0; i < 3; ++i) {
            const std::int64_t start = box.start[i] / block_[i] * block_[i];
            const std::int64_t end = std::min(rounded(box.start[i] + box.count[i], block_[i]), size_[i]);
            set(box, i, start, end - start);
        }
        if (bytesOf(box) > kMostBoxBytes / static_cast<std::int64_t>(held_.size())) box = wanted;
        std::array<GUInt64, 3> start{};
        std::array<std::size_t, 3> count{};
        for (std::size_t i = 0; i < 3; ++i) {
            start[i] = static_cast<GUInt64>(box.start[i]);
            count[i] = static_cast<std::size_t>(box.count[i]);
        }
        held.bytes.resize(static_cast<std::size_t>(bytesOf(box)));
        held.box = box;
        const std::size_t skip = hasBands_ ? 0 : 1;
        if (array_->Read(start.data() + skip, count.data() + skip, nullptr, nullptr, array_->GetDataType(),
                         held.bytes.data()))
            return true;
        held.bytes.clear();
        return false;
    }

    // Columns first to next of one row of the buffer, in the channels of one run.
    void copyRow(const Transfer& t, const BandRun& run, const Held& held, std::int64_t row, std::int64_t first,
                 std::int64_t next, float* buffer) {
        const SampleCodec& codec = sampleCodec(type_, false);
        const std::size_t bytes = sampleSize(type_);
        const Box& box = held.box;
        std::array<std::size_t, 3> stride{};
        stride[2] = 1;
        stride[1] = static_cast<std::size_t>(box.count[2]);
        stride[0] = stride[1] * static_cast<std::size_t>(box.count[1]);
        const auto within = [&box](std::size_t axis, std::int64_t at) {
            return static_cast<std::size_t>(at - box.start[axis]);
        };
        const unsigned char* line = held.bytes.data() + within(line_, t.line(row)) * stride[line_] * bytes;
        const auto count = static_cast<std::size_t>(next - first);
        columns_.resize(count);
        for (std::size_t i = 0; i < count; ++i)
            columns_[i] = within(column_, t.column(first + static_cast<std::int64_t>(i)));
        offsets_.clear();
        for (const std::size_t place : run.places)
            offsets_.push_back(within(band_, t.channels[place] - 1) * stride[band_]);
        picked_.resize(count * offsets_.size());
        if (stride[column_] == 1 && t.everyColumn()) {
            rows_.clear();
            for (const std::size_t offset : offsets_) rows_.push_back(line + (offset + columns_.front()) * bytes);
            codec.rowsToPixels(rows_.data(), rows_.size(), count, picked_.data(), rows_.size());
        } else {
            codec.pickPixels(line, stride[column_], columns_.data(), count, offsets_.data(), offsets_.size(),
                             picked_.data());
        }
        const std::size_t channels = t.channels.size();
        float* to = buffer + (static_cast<std::size_t>(row) * static_cast<std::size_t>(t.bufWidth) +
                              static_cast<std::size_t>(first)) *
                                 channels;
        const float* from = picked_.data();
        for (std::size_t i = 0; i < count; ++i, to += channels)
            for (const std::size_t place : run.places) to[place] = *from++;
    }

    GdalDataset dataset_;
    Array array_;
    SampleType type_ = SampleType::Float32;
    bool hasBands_ = true;
    std::size_t band_ = 0, line_ = 1, column_ = 2;
    std::array<std::int64_t, 3> size_{};
    std::array<std::int64_t, 3> block_{};
    bool chunked_ = false;
    std::vector<Held> held_;  // one for each run of bands
    std::vector<std::size_t> columns_;
    std::vector<std::size_t> offsets_;
    std::vector<const void*> rows_;
    std::vector<float> picked_;
};

// ---- facts ----

// Pixel centres at equal distances along both axes make an affine map.
void addPlace(const GDALMDArray& array, const Axes& axes, RasterFacts& facts) {
    if (const auto system = array.GetSpatialRef()) facts.georeference.wkt = wktOf(*system);
    std::array<double, 2> start{}, step{};
    const std::array<int, 2> which = {axes.column, axes.line};
    for (std::size_t i = 0; i < 2; ++i) {
        const auto variable = array.GetDimensions()[static_cast<std::size_t>(which[i])]->GetIndexingVariable();
        if (variable == nullptr || !variable->IsRegularlySpaced(start[i], step[i]) || step[i] == 0.0) return;
    }
    facts.georeference.transform = {start[0] - step[0] / 2, step[0], 0, start[1] - step[1] / 2, 0, step[1]};
}

void addBandLists(const std::vector<Array>& arrays, const GDALMDArray& array, int bandAxis, RasterFacts& facts) {
    const auto bands = static_cast<std::size_t>(facts.channels);
    Array wavelengths = bandList(arrays, bands, namesWavelengths);
    if (wavelengths == nullptr) {
        const auto variable = array.GetDimensions()[static_cast<std::size_t>(bandAxis)]->GetIndexingVariable();
        if (variable != nullptr && !unitOf(*variable).empty()) wavelengths = variable;
    }
    if (wavelengths != nullptr) {
        facts.wavelengths = numbersOf(*wavelengths, bands);
        if (!facts.wavelengths.empty()) facts.wavelengthUnit = unitOf(*wavelengths);
    }
    const auto numbers = [&](std::initializer_list<const char*> names) {
        const Array list = bandList(arrays, bands, [&](const std::string& name) { return isOneOf(name, names); });
        return list != nullptr ? numbersOf(*list, bands) : std::vector<double>();
    };
    facts.fwhm = numbers({"fwhm", "fwhms", "full_width_half_max", "band_fwhm"});
    for (const double flag : numbers({"good_wavelengths", "good_bands", "good_wavelength", "bbl"}))
        facts.good.push_back(flag != 0.0);
}

RasterFacts factsOf(const GDALDataset& dataset, const std::shared_ptr<GDALGroup>& root,
                    const std::vector<Array>& arrays, const GDALMDArray& array, Axes& axes) {
    RasterFacts facts;
    GDALDriver* driver = const_cast<GDALDataset&>(dataset).GetDriver();
    facts.driver = driver != nullptr ? driver->GetDescription() : "";
    axes = findAxes(array, arrays, facts.remarks);
    const auto sizeOf = [&](int axis) {
        return static_cast<int>(array.GetDimensions()[static_cast<std::size_t>(axis)]->GetSize());
    };
    facts.width = sizeOf(axes.column);
    facts.height = sizeOf(axes.line);
    facts.channels = axes.band >= 0 ? sizeOf(axes.band) : 1;
    facts.interleave = axes.band < 0 ? "" : axes.band == 0 ? "BSQ" : axes.band == 1 ? "BIL" : "BIP";
    const GDALDataType type = array.GetDataType().GetNumericDataType();
    facts.sampleType = GDALGetDataTypeName(type);
    const auto channels = static_cast<std::size_t>(facts.channels);
    facts.channelTypes.assign(channels, channelTypeOf(type));
    facts.bandItems.resize(channels);
    facts.bandNames.resize(channels);
    addAttributes(array.GetAttributes(), facts.fileItems);
    addAttributes(root->GetAttributes(), facts.fileItems);
    if (axes.band >= 0) addBandLists(arrays, array, axes.band, facts);
    bool hasScale = false, hasOffset = false, hasNoData = false;
    const double scale = array.GetScale(&hasScale);
    const double offset = array.GetOffset(&hasOffset);
    if (hasScale || hasOffset) {
        facts.scales.assign(channels, hasScale ? scale : 1.0);
        facts.offsets.assign(channels, hasOffset ? offset : 0.0);
    }
    const double noData = array.GetNoDataValueAsDouble(&hasNoData);
    if (hasNoData && !std::isnan(noData))
        for (int c = 1; c <= facts.channels; ++c) facts.georeference.noData[c] = noData;
    addPlace(array, axes, facts);
    facts.headerText = array.GetFullName() + "\n" + describeFacts(facts);
    return facts;
}

}  // namespace

std::unique_ptr<Raster> openMultidim(const std::string& path, const std::string& variable, bool netcdfFirst,
                                     std::string& why) {
    const GdalMessages messages;
    for (const char* driver : {netcdfFirst ? "netCDF" : "HDF5", netcdfFirst ? "HDF5" : "netCDF"}) {
        const char* const drivers[] = {driver, nullptr};
        GdalDataset dataset(
            GDALDataset::Open(path.c_str(), GDAL_OF_MULTIDIM_RASTER | GDAL_OF_READONLY, drivers, nullptr, nullptr));
        const auto root = dataset != nullptr ? dataset->GetRootGroup() : nullptr;
        if (root == nullptr) continue;
        std::vector<Array> arrays;
        collectArrays(root, 0, arrays);
        const Array array = chooseArray(arrays, variable, why);
        if (array == nullptr) return nullptr;
        Axes axes;
        RasterFacts facts = factsOf(*dataset, root, arrays, *array, axes);
        return std::make_unique<MultidimRaster>(std::move(dataset), array, axes, std::move(facts));
    }
    why = messages.text("this is not a file that the netCDF and HDF5 libraries can read");
    return nullptr;
}

}  // namespace kshost
