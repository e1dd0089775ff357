// Images that GDAL reads: GeoTIFF, PNG, VRT, and the rare ENVI image that our own reader does not take. A GeoTIFF whose
// samples lie plainly in the file is handed to our own reader; everything else is read in whole rows of blocks, with
// GDAL's cache large enough for one row of all channels, so that no block is decoded twice.
#include <fcntl.h>
#include <ogr_spatialref.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "rasterformats.hpp"
#include "report.hpp"
#include "text.hpp"

namespace kshost {
namespace {

constexpr std::int64_t kStripBytes = 16 * 1024 * 1024;

std::int64_t physicalMemory() {
    return static_cast<std::int64_t>(::sysconf(_SC_PHYS_PAGES)) * static_cast<std::int64_t>(::sysconf(_SC_PAGESIZE));
}

// One row of blocks of every channel, and a little more.
std::int64_t blockRowBytes(GDALDataset& dataset) {
    std::int64_t wanted = 0;
    for (int i = 1; i <= dataset.GetRasterCount(); ++i) {
        GDALRasterBand* band = dataset.GetRasterBand(i);
        int blockWidth = 0, blockHeight = 0;
        band->GetBlockSize(&blockWidth, &blockHeight);
        const std::int64_t across = (std::int64_t{dataset.GetRasterXSize()} + blockWidth - 1) / blockWidth;
        wanted += across * blockWidth * blockHeight * GDALGetDataTypeSizeBytes(band->GetRasterDataType());
    }
    return wanted + wanted / 8 + (std::int64_t{4} << 20);
}

// Room in GDAL's cache, which all open images share, for a row of blocks of each; up to a quarter of the machine's
// memory.
class CacheRoom {
public:
    explicit CacheRoom(std::int64_t bytes) : bytes_(bytes) {
        const std::int64_t wanted = std::min(all_ += bytes_, physicalMemory() / 4);
        if (wanted > GDALGetCacheMax64()) GDALSetCacheMax64(wanted);
    }
    ~CacheRoom() { all_ -= bytes_; }
    CacheRoom(const CacheRoom&) = delete;
    CacheRoom& operator=(const CacheRoom&) = delete;

private:
    static inline std::atomic<std::int64_t> all_{0};
    std::int64_t bytes_;
};

bool hasSignedBytes(GDALRasterBand& band) {
    const char* kind = band.GetMetadataItem("PIXELTYPE", "IMAGE_STRUCTURE");
    return kind != nullptr && EQUAL(kind, "SIGNEDBYTE");
}

class GdalRaster : public Raster {
public:
    GdalRaster(GdalDataset dataset, std::string path, RasterFacts facts, std::string whyReadOnly)
        : dataset_(std::move(dataset)),
          room_(blockRowBytes(*dataset_)),
          path_(std::move(path)),
          whyReadOnly_(std::move(whyReadOnly)) {
        facts_ = std::move(facts);
        int blockWidth = 0;
        dataset_->GetRasterBand(1)->GetBlockSize(&blockWidth, &blockHeight_);
        blockHeight_ = std::max(1, blockHeight_);
        for (int i = 1; i <= facts_.channels; ++i) signedBytes_.push_back(hasSignedBytes(*dataset_->GetRasterBand(i)));
        if (std::find(signedBytes_.begin(), signedBytes_.end(), true) != signedBytes_.end())
            whyReadOnly_ = "images of signed bytes are not written here";
    }

    // Closing writes what GDAL still holds.
    ~GdalRaster() override {
        const GdalMessages messages;
        dataset_.reset();
        const std::string why = messages.text("");
        if (openForWriting_ && !why.empty()) reportFailure(path_ + ": closing the image failed: " + why);
    }

    std::string read(const Transfer& t, float* buffer) override {
        const GdalMessages messages;
        if (dataset_ == nullptr) return "the image could not be opened again after it was written";
        const std::string why =
            t.everyColumn() && t.everyLine() ? readPlain(t, buffer, messages) : readReduced(t, buffer, messages);
        if (why.empty()) mendSignedBytes(t, buffer);
        return why;
    }

    std::string write(const Transfer& t, const float* buffer) override {
        const GdalMessages messages;
        std::string why = prepareToWrite(messages);
        if (!why.empty()) return why;
        // GDAL rounds halves away from zero and adds before it cuts: it is given whole numbers.
        const std::size_t channels = t.channels.size();
        const std::size_t rowSamples = static_cast<std::size_t>(t.width) * channels;
        std::vector<SampleType> types(channels, SampleType::Float64);
        for (std::size_t c = 0; c < channels; ++c)
            sampleTypeOf(dataset_->GetRasterBand(t.channels[c])->GetRasterDataType(), types[c]);
        const int step = rowsAtOnce(t.width, channels, sizeof(double));
        std::vector<double> rows;
        for (int row = 0; row < t.height;) {
            const int count = std::min(step, t.height - row);
            rows.resize(rowSamples * static_cast<std::size_t>(count));
            const float* from = buffer + rowSamples * static_cast<std::size_t>(row);
            for (std::size_t i = 0; i < rows.size(); ++i) {
                const std::size_t c = i % channels;
                rows[i] = storedValue(types[c], from[i], t.missing.empty() ? 0.0F : t.missing[c]);
            }
            std::vector<int> bands = t.channels;
            if (dataset_->RasterIO(GF_Write, t.xOff, t.yOff + row, t.width, count, rows.data(), t.width, count,
                                   GDT_Float64, static_cast<int>(channels), bands.data(), pixelBytes<double>(t),
                                   pixelBytes<double>(t) * t.width, sizeof(double), nullptr) != CE_None)
                return messages.text("the samples cannot be written");
            row += count;
        }
        written_ = true;
        return {};
    }

    // GDAL keeps the end of compressed samples back until an image is closed; the next write opens it again.
    std::string flush() override {
        if (!written_) return {};
        const GdalMessages messages;
        dataset_.reset();
        openForWriting_ = written_ = false;
        dataset_ = openTiff(GDAL_OF_READONLY);
        return messages.text("");
    }

protected:
    /// Hands the samples to the system and keeps the image open for writing.
    std::string flushCache() {
        if (!written_) return {};
        const GdalMessages messages;
        dataset_->FlushCache(false);
        const std::string why = messages.text("");
        if (why.empty()) written_ = false;
        return why;
    }
    GDALDataset& dataset() { return *dataset_; }
    void markOpenForWriting() { openForWriting_ = true; }
    void markWritten() { written_ = true; }
    const std::string& path() const { return path_; }

private:
    template <class T>
    static GSpacing pixelBytes(const Transfer& t) {
        return static_cast<GSpacing>(t.channels.size() * sizeof(T));
    }

    int rowsAtOnce(int width, std::size_t channels, std::size_t sampleBytes) const {
        const std::int64_t rowBytes = std::int64_t{width} * static_cast<std::int64_t>(channels * sampleBytes);
        return static_cast<int>(
            std::clamp<std::int64_t>(kStripBytes / std::max<std::int64_t>(1, rowBytes), 1, 1 << 20));
    }

    CPLErr readInto(const Transfer& t, int x, int y, int width, int height, float* to) {
        std::vector<int> bands = t.channels;
        const GSpacing pixel = pixelBytes<float>(t);
        return dataset_->RasterIO(GF_Read, x, y, width, height, to, width, height, GDT_Float32,
                                  static_cast<int>(bands.size()), bands.data(), pixel, pixel * width, sizeof(float),
                                  nullptr);
    }

    // One row of blocks after another, each only as far as it is wanted.
    std::string readPlain(const Transfer& t, float* buffer, const GdalMessages& messages) {
        const int end = t.yOff + t.height;
        for (int y = t.yOff; y < end;) {
            const std::int64_t next = (std::int64_t{y} / blockHeight_ + 1) * blockHeight_;
            const int stop = static_cast<int>(std::min<std::int64_t>(next, end));
            const std::size_t row = static_cast<std::size_t>(y - t.yOff);
            float* to = buffer + row * static_cast<std::size_t>(t.width) * t.channels.size();
            if (readInto(t, t.xOff, y, t.width, stop - y, to) != CE_None)
                return messages.text("the samples cannot be read");
            y = stop;
        }
        return {};
    }

    // Only the wanted lines, each in pieces of bounded size.
    std::string readReduced(const Transfer& t, float* buffer, const GdalMessages& messages) {
        const std::size_t channels = t.channels.size();
        const std::int64_t widest =
            std::max<std::int64_t>(1, kStripBytes / static_cast<std::int64_t>(channels * sizeof(float)));
        std::vector<float> piece;
        for (std::int64_t row = 0; row < t.bufHeight; ++row) {
            const int y = static_cast<int>(t.line(row));
            float* to = buffer + static_cast<std::size_t>(row) * static_cast<std::size_t>(t.bufWidth) * channels;
            for (std::int64_t first = 0; first < t.bufWidth;) {
                const std::int64_t start = t.column(first);
                std::int64_t next = first + 1;
                while (next < t.bufWidth && t.column(next) - start < widest) ++next;
                const int width = static_cast<int>(t.column(next - 1) - start + 1);
                piece.resize(static_cast<std::size_t>(width) * channels);
                if (readInto(t, static_cast<int>(start), y, width, 1, piece.data()) != CE_None)
                    return messages.text("the samples cannot be read");
                for (; first < next; ++first)
                    std::copy_n(piece.data() + static_cast<std::size_t>(t.column(first) - start) * channels, channels,
                                to + static_cast<std::size_t>(first) * channels);
            }
        }
        return {};
    }

    // GDAL hands out signed bytes as unsigned ones.
    void mendSignedBytes(const Transfer& t, float* buffer) const {
        const std::size_t channels = t.channels.size();
        const std::size_t pixels = static_cast<std::size_t>(t.bufWidth) * static_cast<std::size_t>(t.bufHeight);
        for (std::size_t c = 0; c < channels; ++c) {
            if (!signedBytes_[static_cast<std::size_t>(t.channels[c] - 1)]) continue;
            for (std::size_t p = 0; p < pixels; ++p)
                if (buffer[p * channels + c] > 127.0F) buffer[p * channels + c] -= 256.0F;
        }
    }

    GdalDataset openTiff(unsigned access) const {
        const char* const drivers[] = {"GTiff", nullptr};
        return GdalDataset(GDALDataset::Open(path_.c_str(), GDAL_OF_RASTER | access, drivers, nullptr, nullptr));
    }

    // A foreign file is opened for update only when samples are to be written, so that nothing else can touch it.
    std::string prepareToWrite(const GdalMessages& messages) {
        if (!whyReadOnly_.empty()) return whyReadOnly_;
        if (openForWriting_) return {};
        GdalDataset writable = openTiff(GDAL_OF_UPDATE);
        if (writable == nullptr) return messages.text("the file cannot be written");
        dataset_ = std::move(writable);
        openForWriting_ = true;
        return {};
    }

    GdalDataset dataset_;
    CacheRoom room_;
    std::string path_;
    std::string whyReadOnly_;
    int blockHeight_ = 1;
    std::vector<bool> signedBytes_;
    bool openForWriting_ = false;
    bool written_ = false;
};

// A GeoTIFF that this process has just made. As long as it is open other programs' words for its bands can be put into
// it.
class CreatedGeoTiff : public GdalRaster {
public:
    CreatedGeoTiff(GdalDataset dataset, std::string path, RasterFacts facts)
        : GdalRaster(std::move(dataset), std::move(path), std::move(facts), {}) {
        markOpenForWriting();
        markWritten();
    }

    std::string flush() override { return flushCache(); }

    std::string describe(const StringList& fileList, const std::vector<StringList>& channelLists,
                         const Georeference& georeference) override {
        const GdalMessages messages;
        GDALDataset& image = dataset();
        if (georeference.transform) {
            std::array<double, 6> transform = *georeference.transform;
            image.SetGeoTransform(transform.data());
        }
        if (!georeference.wkt.empty()) image.SetProjection(georeference.wkt.c_str());
        const char* transforms = fileList.find("NumberOfRadTrans");
        const bool scaled = transforms != nullptr && leadingNumber(transforms) == 1.0;
        for (int i = 1; i <= facts_.channels; ++i) {
            GDALRasterBand& band = *image.GetRasterBand(i);
            const auto index = static_cast<std::size_t>(i - 1);
            if (index < channelLists.size()) describeBand(band, channelLists[index], scaled);
            const auto noData = georeference.noData.find(i);
            if (noData != georeference.noData.end()) band.SetNoDataValue(noData->second);
        }
        markWritten();
        image.FlushCache(false);
        // What the file now says is what a later open will find.
        std::string why = messages.text("");
        const auto reopened = why.empty() ? openGdal(path(), facts_.driver.c_str(), false, nullptr, why) : nullptr;
        if (reopened != nullptr) facts_.headerText = reopened->facts().headerText;
        return why;
    }

private:
    static void describeBand(GDALRasterBand& band, const StringList& list, bool scaled) {
        const auto item = [&band](const char* name, const char* value) { band.SetMetadataItem(name, value); };
        const char* centre = list.find("ResponseProfile_Centre");
        item("wavelength", centre);
        item("wavelength_units", centre != nullptr ? "Nanometers" : nullptr);
        item("fwhm", list.find("ResponseProfile_FWHM"));
        const char* quality = list.find("Quality");
        if (quality != nullptr)
            item("bbl", std::strcmp(quality, "mask") == 0 || std::strcmp(quality, "skip") == 0 ? "0" : "1");
        if (const char* name = list.find("ENVI:band names")) band.SetDescription(name);
        if (!scaled) return;
        if (const char* gain = list.find("RadiometricTrans_Gain_1")) band.SetScale(leadingNumber(gain));
        if (const char* offset = list.find("RadiometricTrans_Offset_1")) band.SetOffset(leadingNumber(offset));
    }
};

const char* interleaveOf(GDALDataset& dataset) {
    const char* text = dataset.GetMetadataItem("INTERLEAVE", "IMAGE_STRUCTURE");
    if (text == nullptr) return "";
    return EQUAL(text, "PIXEL") ? "BIP" : EQUAL(text, "LINE") ? "BIL" : EQUAL(text, "BAND") ? "BSQ" : "";
}

// Whether the strips of a GeoTIFF really lie where the layout says: a sparse file lacks some, and a file that was
// edited may hold them in any order.
bool stripsInOrder(GDALDataset& dataset, const RawLayout& layout) {
    int blockWidth = 0, blockHeight = 0;
    dataset.GetRasterBand(1)->GetBlockSize(&blockWidth, &blockHeight);
    if (blockWidth != dataset.GetRasterXSize() || blockHeight < 1) return false;
    const int bands = layout.pixelInterleaved() ? 1 : layout.bands;
    for (int i = 0; i < bands; ++i) {
        GDALRasterBand* band = dataset.GetRasterBand(i + 1);
        for (int y = 0; y < layout.height; y += blockHeight) {
            const std::string item = "BLOCK_OFFSET_0_" + std::to_string(y / blockHeight);
            const char* offset = band->GetMetadataItem(item.c_str(), "TIFF");
            if (offset == nullptr) return false;
            const std::int64_t expected = layout.offset + layout.lineStride * y + layout.bandStride * i;
            if (expected <= 0 || std::strtoll(offset, nullptr, 10) != expected) return false;
            if (y > layout.height - blockHeight) break;
        }
    }
    return true;
}

bool rawLayoutOf(GDALDataset& dataset, const std::string& path, RawLayout& layout) {
    GDALDataset::RawBinaryLayout raw;
    if (!dataset.GetRawBinaryLayout(raw) || raw.osRawFilename != path) return false;
    if (!sampleTypeOf(raw.eDataType, layout.type)) return false;
    if (hasSignedBytes(*dataset.GetRasterBand(1))) return false;
    layout.path = path;
    layout.bigEndian = !raw.bLittleEndianOrder;
    layout.width = dataset.GetRasterXSize();
    layout.height = dataset.GetRasterYSize();
    layout.bands = dataset.GetRasterCount();
    layout.offset = static_cast<std::int64_t>(raw.nImageOffset);
    layout.pixelStride = raw.nPixelOffset;
    layout.lineStride = raw.nLineOffset;
    layout.bandStride = raw.nBandOffset;
    if (layout.bands == 1) layout.bandStride = std::max(layout.bandStride, layout.lineStride);
    return layout.problem().empty() && stripsInOrder(dataset, layout);
}

std::string whyNotWritable(const std::string& driver, const std::string& path, bool writable) {
    if (!writable) return "the file was opened for reading only";
    if (driver != "GTiff") return driver + " images cannot be written here";
    if (::eaccess(path.c_str(), W_OK) != 0) return std::string("the file cannot be written: ") + std::strerror(errno);
    return {};
}

bool tiffIsBigEndian(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return file.get() == 'M' && file.get() == 'M';
}

}  // namespace

GdalMessages::GdalMessages() { CPLPushErrorHandlerEx(collect, this); }
GdalMessages::~GdalMessages() { CPLPopErrorHandler(); }

void CPL_STDCALL GdalMessages::collect(CPLErr kind, CPLErrorNum, const char* text) {
    if (kind != CE_Failure && kind != CE_Fatal) return;
    auto* self = static_cast<GdalMessages*>(CPLGetErrorHandlerUserData());
    // GDAL repeats itself for every block: a few lines say all there is.
    constexpr std::size_t kMost = 4;
    if (self->failures_.size() < kMost &&
        std::find(self->failures_.begin(), self->failures_.end(), text) == self->failures_.end())
        self->failures_.emplace_back(text);
}

std::string GdalMessages::text(const std::string& otherwise) const {
    std::string all;
    for (const std::string& failure : failures_) all += (all.empty() ? "" : "; ") + failure;
    return all.empty() ? otherwise : all;
}

std::string wktOf(const OGRSpatialReference& system) {
    // Some systems have no form in the older notation.
    for (const char* notation : {"FORMAT=WKT1_GDAL", "FORMAT=WKT2_2019"}) {
        const char* const options[] = {notation, nullptr};
        char* text = nullptr;
        const bool done = system.exportToWkt(&text, options) == OGRERR_NONE && text != nullptr;
        const std::string wkt = done ? text : "";
        CPLFree(text);
        if (done) return wkt;
    }
    return {};
}

RawRaster::RawRaster(RasterFacts facts, RawLayout layout, bool writable) : cube_(std::move(layout), writable) {
    facts_ = std::move(facts);
    // A short file is opened all the same: what is there can be read.
    if (const std::string shortness = cube_.shortness(); !shortness.empty())
        facts_.remarks.push_back(shortness + ": the samples at its end are missing");
}

int channelTypeOf(GDALDataType type) {
    return type == GDT_Byte ? 1 : type == GDT_Int16 ? 2 : type == GDT_UInt16 ? 3 : 4;
}

bool sampleTypeOf(GDALDataType type, SampleType& sample) {
    switch (type) {
        case GDT_Byte:
            return sample = SampleType::UInt8, true;
        case GDT_Int16:
            return sample = SampleType::Int16, true;
        case GDT_UInt16:
            return sample = SampleType::UInt16, true;
        case GDT_Int32:
            return sample = SampleType::Int32, true;
        case GDT_UInt32:
            return sample = SampleType::UInt32, true;
        case GDT_Int64:
            return sample = SampleType::Int64, true;
        case GDT_UInt64:
            return sample = SampleType::UInt64, true;
        case GDT_Float32:
            return sample = SampleType::Float32, true;
        case GDT_Float64:
            return sample = SampleType::Float64, true;
        default:
            return false;
    }
}

void gatherStructure(GDALDataset& dataset, RasterFacts& facts) {
    facts.driver = dataset.GetDriver() != nullptr ? dataset.GetDriver()->GetDescription() : "";
    facts.width = dataset.GetRasterXSize();
    facts.height = dataset.GetRasterYSize();
    facts.channels = dataset.GetRasterCount();
    facts.interleave = interleaveOf(dataset);
    for (int i = 1; i <= facts.channels; ++i) {
        GDALRasterBand* band = dataset.GetRasterBand(i);
        const bool signedByte = hasSignedBytes(*band);
        facts.channelTypes.push_back(signedByte ? channelTypeOf(GDT_Int16) : channelTypeOf(band->GetRasterDataType()));
        if (i == 1) facts.sampleType = signedByte ? "Int8" : GDALGetDataTypeName(band->GetRasterDataType());
        if (i == 1 && GDALDataTypeIsComplex(band->GetRasterDataType()) != FALSE)
            facts.remarks.emplace_back("the samples are complex numbers: their real part is read");
    }
}

namespace {

Items itemsOf(char** metadata) {
    Items items;
    for (char** entry = metadata; entry != nullptr && *entry != nullptr; ++entry) {
        const char* equals = std::strchr(*entry, '=');
        if (equals != nullptr)
            items.emplace_back(std::string(*entry, static_cast<std::size_t>(equals - *entry)), equals + 1);
    }
    return items;
}

std::vector<int> displayChannels(GDALDataset& dataset) {
    std::array<int, 3> found{};
    for (int i = dataset.GetRasterCount(); i >= 1; --i) {
        const GDALColorInterp use = dataset.GetRasterBand(i)->GetColorInterpretation();
        if (use == GCI_RedBand) found[0] = i;
        if (use == GCI_GreenBand) found[1] = i;
        if (use == GCI_BlueBand) found[2] = i;
    }
    if (found[0] > 0 && found[1] > 0 && found[2] > 0) return {found.begin(), found.end()};
    if (dataset.GetRasterCount() == 1) return {1};
    return {};
}

std::string coordinateSystem(GDALDataset& dataset) {
    const char* wkt = dataset.GetProjectionRef();
    if (wkt != nullptr && wkt[0] != '\0') return wkt;
    const OGRSpatialReference* system = dataset.GetSpatialRef();
    return system != nullptr ? wktOf(*system) : std::string();
}

bool noDataOf(GDALRasterBand& band, double& value) {
    int has = 0;
    switch (band.GetRasterDataType()) {
        case GDT_Int64:
            value = static_cast<double>(band.GetNoDataValueAsInt64(&has));
            break;
        case GDT_UInt64:
            value = static_cast<double>(band.GetNoDataValueAsUInt64(&has));
            break;
        default:
            value = band.GetNoDataValue(&has);
            break;
    }
    return has != 0;
}

}  // namespace

void gatherItems(GDALDataset& dataset, RasterFacts& facts) {
    facts.fileItems = itemsOf(dataset.GetMetadata());
    std::vector<double> scales, offsets;
    bool anyScale = false, anyOffset = false;
    for (int i = 1; i <= dataset.GetRasterCount(); ++i) {
        GDALRasterBand& band = *dataset.GetRasterBand(i);
        facts.bandItems.push_back(itemsOf(band.GetMetadata()));
        facts.bandNames.emplace_back(band.GetDescription());
        int has = 0;
        const double scale = band.GetScale(&has);
        scales.push_back(has != 0 ? scale : 1.0);
        anyScale = anyScale || has != 0;
        const double offset = band.GetOffset(&has);
        offsets.push_back(has != 0 ? offset : 0.0);
        anyOffset = anyOffset || has != 0;
        double noData = 0;
        if (noDataOf(band, noData)) facts.georeference.noData[i] = noData;
    }
    if (anyScale || anyOffset) {
        facts.scales = std::move(scales);
        facts.offsets = std::move(offsets);
    }
    std::array<double, 6> transform{};
    if (dataset.GetGeoTransform(transform.data()) == CE_None) facts.georeference.transform = transform;
    facts.georeference.wkt = coordinateSystem(dataset);
    facts.defaultChannels = displayChannels(dataset);
}

std::string describeFacts(const RasterFacts& facts) {
    std::string text = facts.driver + " " + std::to_string(facts.width) + " x " + std::to_string(facts.height) + " x " +
                       std::to_string(facts.channels) + " " + facts.sampleType + " " + facts.interleave + "\n";
    for (const int type : facts.channelTypes) text += std::to_string(type) + " ";
    const auto addItems = [&text](const Items& items) {
        for (const auto& [key, value] : items) text += key + "=" + value + "\n";
    };
    const auto addNumbers = [&text](const std::vector<double>& values) {
        text += "\n";
        for (const double value : values) text += shortestText(value) + " ";
    };
    addItems(facts.fileItems);
    for (const Items& items : facts.bandItems) addItems(items);
    for (const std::string& name : facts.bandNames) text += name + "\n";
    addNumbers(facts.wavelengths);
    addNumbers(facts.fwhm);
    addNumbers(facts.scales);
    addNumbers(facts.offsets);
    for (const bool good : facts.good) text += good ? '1' : '0';
    if (facts.georeference.transform)
        addNumbers({facts.georeference.transform->begin(), facts.georeference.transform->end()});
    text += "\n" + facts.georeference.wkt + "\n";
    for (const auto& [channel, value] : facts.georeference.noData)
        text += std::to_string(channel) + ":" + shortestText(value) + " ";
    return text;
}

std::unique_ptr<Raster> openGdal(const std::string& path, const char* driver, bool writable, const HeaderFile* header,
                                 std::string& why) {
    const GdalMessages messages;
    const char* const drivers[] = {driver, nullptr};
    GdalDataset dataset(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY, drivers, nullptr, nullptr));
    if (dataset == nullptr) return why = messages.text(""), nullptr;
    if (dataset->GetRasterCount() < 1) return why = "the file holds no image", nullptr;
    RasterFacts facts;
    gatherStructure(*dataset, facts);
    gatherItems(*dataset, facts);
    RawLayout layout;
    const bool raw = facts.driver == "GTiff" && rawLayoutOf(*dataset, path, layout);
    if (facts.driver == "GTiff") facts.bigEndian = tiffIsBigEndian(path);
    facts.headerPath = header != nullptr ? header->path : "";
    facts.headerText = header != nullptr ? header->text : describeFacts(facts);
    if (!raw) {
        const std::string readOnly = whyNotWritable(facts.driver, path, writable);
        return std::make_unique<GdalRaster>(std::move(dataset), path, std::move(facts), readOnly);
    }
    try {
        return std::make_unique<RawRaster>(std::move(facts), std::move(layout), writable);
    } catch (const std::exception& e) {
        why = e.what();
        return nullptr;
    }
}

std::unique_ptr<Raster> createGeoTiff(const std::string& path, int width, int height, int channels, int type,
                                      std::string& why) {
    constexpr std::array<GDALDataType, 5> kTypes = {GDT_Unknown, GDT_Byte, GDT_Int16, GDT_UInt16, GDT_Float32};
    constexpr int kMostBands = 65535;
    if (channels > kMostBands) return why = "a GeoTIFF has at most 65535 channels", nullptr;
    const GdalMessages messages;
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("GTiff");
    if (driver == nullptr) return why = "GDAL has no GeoTIFF driver", nullptr;
    // Made here first, so that a file that appears meanwhile is never overwritten.
    const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor < 0) return why = std::strerror(errno), nullptr;
    ::close(descriptor);
    const char* const options[] = {"BIGTIFF=IF_SAFER", "INTERLEAVE=PIXEL", "TILED=NO", nullptr};
    GdalDataset dataset(driver->Create(path.c_str(), width, height, channels, kTypes[static_cast<std::size_t>(type)],
                                       const_cast<char**>(options)));
    if (dataset == nullptr) {
        why = messages.text("the GeoTIFF cannot be made");
        ::unlink(path.c_str());
        return nullptr;
    }
    RasterFacts facts;
    gatherStructure(*dataset, facts);
    gatherItems(*dataset, facts);
    facts.interleave = "BIP";
    facts.headerText = describeFacts(facts);
    return std::make_unique<CreatedGeoTiff>(std::move(dataset), path, std::move(facts));
}

}  // namespace kshost
