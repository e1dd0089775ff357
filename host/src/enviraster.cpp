// ENVI images. The layout is read from the header here, because GDAL's own reader refuses sample types, sizes and short
// files that are no obstacle to ours. What GDAL knows about the header's place, names and wavelengths it is asked about
// a header of a one-pixel image in memory with the same entries.
#include <cpl_minixml.h>
#include <cpl_vsi.h>
#include <fcntl.h>
#include <ogr_spatialref.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <stdexcept>

#include "enviheader.hpp"
#include "rasterformats.hpp"
#include "text.hpp"

namespace kshost {
namespace {

// No instrument has more; a header that claims more would have memory taken for bands that are not there.
constexpr int kMostBands = 100000;
constexpr std::array<std::string_view, 9> kStructureKeys = {"samples",
                                                            "lines",
                                                            "bands",
                                                            "header offset",
                                                            "data type",
                                                            "interleave",
                                                            "byte order",
                                                            "file compression",
                                                            "major frame offsets"};

bool startsAsEnvi(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    // One that may not be read is a header all the same, for who opens it to say so.
    if (!file) return pathExists(path);
    std::array<char, 7> start{};
    file.read(start.data(), start.size());
    const char* text = std::memcmp(start.data(), "\xef\xbb\xbf", 3) == 0 ? start.data() + 3 : start.data();
    return std::memcmp(text, "ENVI", 4) == 0;
}

// A header entry that must be a whole number; throws with the reason otherwise.
std::int64_t wholeEntry(const EnviHeader& header, const char* key, std::int64_t lowest, std::int64_t highest) {
    const std::string* text = header.find(key);
    if (text == nullptr) throw std::runtime_error(std::string("the header has no \"") + key + "\"");
    const std::optional<double> value = wholeNumber(*text);
    if (!value || std::trunc(*value) != *value || *value < static_cast<double>(lowest) ||
        *value > static_cast<double>(highest))
        throw std::runtime_error(std::string("the header's \"") + key + " = " + text->substr(0, 40) +
                                 "\" cannot be used");
    return static_cast<std::int64_t>(*value);
}

bool says(const EnviHeader& header, const char* key) {
    const std::string* text = header.find(key);
    return text != nullptr && !trimmed(*text).empty();
}

std::int64_t wholeEntryOr(const EnviHeader& header, const char* key, std::int64_t otherwise, std::int64_t highest) {
    return says(header, key) ? wholeEntry(header, key, 0, highest) : otherwise;
}

// The order of the samples. A header that leaves it open means the plainest one; a name that says otherwise is worth a
// word, since one header may lie beside two images.
std::string interleaveOf(const EnviHeader& header, const std::string& path, std::vector<std::string>& remarks) {
    const bool named = says(header, "interleave");
    const std::string text = named ? lowered(trimmed(*header.find("interleave"))) : "bsq";
    const std::string order = text.substr(0, 3);
    if (!named) remarks.emplace_back("the header does not name the interleave: taken as bsq");
    if (order != "bip" && order != "bil" && order != "bsq")
        throw std::runtime_error("the header's \"interleave = " + text.substr(0, 40) + "\" is unknown");
    for (const char* other : {"bip", "bil", "bsq"})
        if (order != other && lowered(path) == lowered(withExtension(path, std::string(".") + other)))
            remarks.push_back("the header says that the samples are " + order + " and the name says " + other +
                              "; the header counts");
    return order;
}

struct EnviType {
    int code;
    SampleType sample;
    GDALDataType gdal;
    const char* name;
};
constexpr std::array<EnviType, 9> kTypes = {{{1, SampleType::UInt8, GDT_Byte, "Byte"},
                                             {2, SampleType::Int16, GDT_Int16, "Int16"},
                                             {3, SampleType::Int32, GDT_Int32, "Int32"},
                                             {4, SampleType::Float32, GDT_Float32, "Float32"},
                                             {5, SampleType::Float64, GDT_Float64, "Float64"},
                                             {12, SampleType::UInt16, GDT_UInt16, "UInt16"},
                                             {13, SampleType::UInt32, GDT_UInt32, "UInt32"},
                                             {14, SampleType::Int64, GDT_Int64, "Int64"},
                                             {15, SampleType::UInt64, GDT_UInt64, "UInt64"}}};

}  // namespace

bool readEnviLayout(const EnviHeader& header, RawLayout& layout, RasterFacts& facts) {
    constexpr int kMost = std::numeric_limits<int>::max();
    layout.width = facts.width = static_cast<int>(wholeEntry(header, "samples", 1, kMost));
    layout.height = facts.height = static_cast<int>(wholeEntry(header, "lines", 1, kMost));
    layout.bands = facts.channels = static_cast<int>(wholeEntry(header, "bands", 1, kMostBands));
    layout.offset = wholeEntryOr(header, "header offset", 0, std::int64_t{1} << 53);
    layout.bigEndian = facts.bigEndian = wholeEntryOr(header, "byte order", 0, 1) == 1;
    const std::string* frames = header.find("major frame offsets");
    if (frames != nullptr)
        for (const std::string& item : enviListItems(*frames))
            if (leadingNumber(item.c_str()) != 0.0)
                throw std::runtime_error("images with \"major frame offsets\" are not read here");

    const std::string order = interleaveOf(header, layout.path, facts.remarks);
    const std::int64_t code = wholeEntry(header, "data type", 0, 1000);
    if (code == 6 || code == 9) return false;
    const auto* type = std::find_if(kTypes.begin(), kTypes.end(), [code](const EnviType& t) { return t.code == code; });
    if (type == kTypes.end())
        throw std::runtime_error("the header's \"data type = " + std::to_string(code) + "\" is unknown");
    layout.type = type->sample;
    facts.sampleType = type->name;
    const int channelType = channelTypeOf(type->gdal);
    const std::int64_t bytes = static_cast<std::int64_t>(sampleSize(layout.type));
    const auto product = [](std::int64_t a, std::int64_t b) {
        std::int64_t result = 0;
        if (__builtin_mul_overflow(a, b, &result)) throw std::runtime_error("the image is larger than a file can be");
        return result;
    };
    if (order == "bip") {
        facts.interleave = "BIP";
        layout.bandStride = bytes;
        layout.pixelStride = product(bytes, layout.bands);
        layout.lineStride = product(layout.pixelStride, layout.width);
    } else if (order == "bil") {
        facts.interleave = "BIL";
        layout.pixelStride = bytes;
        layout.bandStride = product(bytes, layout.width);
        layout.lineStride = product(layout.bandStride, layout.bands);
    } else {
        facts.interleave = "BSQ";
        layout.pixelStride = bytes;
        layout.lineStride = product(bytes, layout.width);
        layout.bandStride = product(layout.lineStride, layout.height);
    }
    const std::string problem = layout.problem();
    if (!problem.empty()) throw std::runtime_error(problem);
    facts.channelTypes.assign(static_cast<std::size_t>(facts.channels), channelType);
    return wholeEntryOr(header, "file compression", 0, 1000) == 0;
}

namespace {

// A file in GDAL's memory that goes away with its owner.
class MemoryFile {
public:
    MemoryFile(std::string name, const void* bytes, std::size_t count) : name_(std::move(name)) {
        VSILFILE* file = VSIFOpenL(name_.c_str(), "wb");
        if (file == nullptr) throw std::runtime_error("no memory for a header");
        VSIFWriteL(bytes, 1, count, file);
        VSIFCloseL(file);
    }
    ~MemoryFile() { VSIUnlink(name_.c_str()); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    const std::string& name() const { return name_; }

private:
    std::string name_;
};

// GDAL reads a header line by line, each of limited length.
std::string brokenAtCommas(const std::string& value) {
    std::string broken;
    int items = 0;
    for (const char c : value) {
        if (c == '\n' || c == '\r') {
            broken += ' ';
            continue;
        }
        broken += c;
        if (c == ',' && ++items % 16 == 0) broken += "\n ";
    }
    return broken;
}

void gatherThroughGdal(const EnviHeader& header, RasterFacts& facts) {
    static std::atomic<int> count{0};
    const std::string stem = "/vsimem/kshost-header-" + std::to_string(count++);
    std::string text = "ENVI\nsamples = 1\nlines = 1\nbands = " + std::to_string(facts.channels) +
                       "\nheader offset = 0\ndata type = 4\ninterleave = bsq\nbyte order = 0\n";
    for (const auto& [key, value] : header.entries)
        if (std::find(kStructureKeys.begin(), kStructureKeys.end(), key) == kStructureKeys.end() && !value.empty())
            text += key + " = " + (value.front() == '{' ? brokenAtCommas(value) : value) + "\n";
    const std::vector<float> samples(static_cast<std::size_t>(facts.channels), 0.0F);
    const MemoryFile headerFile(stem + ".hdr", text.data(), text.size());
    const MemoryFile dataFile(stem + ".img", samples.data(), samples.size() * sizeof(float));
    const char* const drivers[] = {"ENVI", nullptr};
    const GdalDataset dataset(
        GDALDataset::Open(dataFile.name().c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY, drivers, nullptr, nullptr));
    if (dataset == nullptr) {
        facts.remarks.emplace_back("the header's description of place and bands cannot be read and is left out");
        facts.bandItems.resize(static_cast<std::size_t>(facts.channels));
        facts.bandNames.resize(static_cast<std::size_t>(facts.channels));
        return;
    }
    gatherItems(*dataset, facts);
}

std::vector<int> defaultBands(const EnviHeader& header, int channels) {
    std::vector<int> bands;
    const std::string* value = header.find("default bands");
    if (value == nullptr) return bands;
    for (const std::string& item : enviListItems(*value)) {
        const std::optional<double> number = wholeNumber(item);
        if (!number || *number < 1 || *number > channels) return {};
        bands.push_back(static_cast<int>(*number));
    }
    // Two values are a header cut short: nothing to go by.
    if (bands.size() != 1 && bands.size() != 3) bands.clear();
    return bands;
}

// ---- the .aux.xml that GDAL based programs leave beside an image ----

struct XmlDeleter {
    void operator()(CPLXMLNode* node) const { CPLDestroyXMLNode(node); }
};

std::string sameChannels(const std::vector<int>& channels, int all) {
    if (static_cast<int>(channels.size()) == all) return "every channel";
    return "channel " + std::to_string(channels.front()) +
           (channels.size() > 1 ? " and " + std::to_string(channels.size() - 1) + " more" : "");
}

// The header is what the samples were written with: it wins, and the other file only fills what it leaves open.
void mergeAuxiliaryFile(const std::string& path, RasterFacts& facts) {
    if (!pathExists(path)) return;
    const std::unique_ptr<CPLXMLNode, XmlDeleter> tree(CPLParseXMLFile(path.c_str()));
    const CPLXMLNode* top = tree == nullptr ? nullptr : CPLGetXMLNode(tree.get(), "=PAMDataset");
    if (top == nullptr) {
        facts.remarks.push_back(path + " cannot be read and is ignored");
        return;
    }
    std::vector<int> different;
    int highest = 0;
    double found = 0;
    std::map<int, double> filled = facts.georeference.noData;
    for (const CPLXMLNode* node = top->psChild; node != nullptr; node = node->psNext) {
        if (node->eType != CXT_Element || !EQUAL(node->pszValue, "PAMRasterBand")) continue;
        const int band = std::atoi(CPLGetXMLValue(node, "band", "0"));
        highest = std::max(highest, band);
        const char* text = CPLGetXMLValue(node, "NoDataValue", nullptr);
        if (text == nullptr || band < 1 || band > facts.channels) continue;
        const double value = CPLAtof(text);
        const auto known = facts.georeference.noData.find(band);
        if (known == facts.georeference.noData.end()) {
            filled[band] = value;
        } else if (known->second != value && !(std::isnan(value) && std::isnan(known->second))) {
            different.push_back(band);
            found = value;
        }
    }
    if (highest > facts.channels) {
        facts.remarks.push_back(path + " describes " + std::to_string(highest) + " channels where the header has " +
                                std::to_string(facts.channels) + "; it belongs to another image and is ignored");
        return;
    }
    facts.georeference.noData = std::move(filled);
    if (!different.empty())
        facts.remarks.push_back(path + " gives the no-data value " + shortestText(found) + " for " +
                                sameChannels(different, facts.channels) + " where the header has " +
                                shortestText(facts.georeference.noData[different.front()]) + "; the header's is used");
    if (const char* text = CPLGetXMLValue(top, "GeoTransform", nullptr)) {
        const std::vector<std::string> items = enviListItems(std::string("{") + text + "}");
        std::array<double, 6> transform{};
        if (items.size() == transform.size()) {
            std::transform(items.begin(), items.end(), transform.begin(),
                           [](const std::string& item) { return CPLAtof(item.c_str()); });
            const auto& known = facts.georeference.transform;
            const auto near = [](double a, double b) {
                return std::abs(a - b) <= 1e-9 * std::max(std::abs(a), std::abs(b));
            };
            if (!known)
                facts.georeference.transform = transform;
            else if (!std::equal(known->begin(), known->end(), transform.begin(), near))
                facts.remarks.push_back(path +
                                        " places the image elsewhere than the header; the header's place is used");
        }
    }
    const char* wkt = CPLGetXMLValue(top, "SRS", nullptr);
    if (wkt == nullptr || wkt[0] == '\0') return;
    if (facts.georeference.wkt.empty()) {
        facts.georeference.wkt = wkt;
        return;
    }
    OGRSpatialReference ours, theirs;
    const char* const ignoring[] = {"IGNORE_DATA_AXIS_TO_SRS_AXIS_MAPPING=YES",
                                    "CRITERION=EQUIVALENT_EXCEPT_AXIS_ORDER_GEOGCRS", nullptr};
    if (ours.SetFromUserInput(facts.georeference.wkt.c_str()) == OGRERR_NONE &&
        theirs.SetFromUserInput(wkt) == OGRERR_NONE && ours.IsSame(&theirs, ignoring) == FALSE)
        facts.remarks.push_back(path + " names another coordinate system than the header; the header's is used");
}

// ---- the raster ----

class EnviRaster : public RawRaster {
public:
    using RawRaster::RawRaster;

    std::string describe(const StringList& fileList, const std::vector<StringList>& channelLists,
                         const Georeference& georeference) override {
        const std::string text = composeEnviHeader(facts_, fileList, channelLists, georeference);
        std::string why = replaceFile(facts_.headerPath, text);
        if (why.empty()) facts_.headerText = text;
        return why;
    }
};

}  // namespace

std::vector<std::string> enviHeaderNames(const std::string& path) {
    // The image's whole name first: a header that bears only a part of it may belong to a namesake.
    std::vector<std::string> names;
    for (const char* extension : {".hdr", ".HDR"}) names.push_back(path + extension);
    for (const char* extension : {".hdr", ".HDR"})
        if (std::string name = withExtension(path, extension); name != path) names.push_back(std::move(name));
    return names;
}

std::string findEnviHeader(const std::string& path) {
    for (std::string& name : enviHeaderNames(path))
        if (startsAsEnvi(name)) return std::move(name);
    return {};
}

std::unique_ptr<Raster> openEnvi(const std::string& path, const std::string& header, bool writable, std::string& why) {
    try {
        RasterFacts facts;
        facts.driver = "ENVI";
        facts.headerPath = header;
        if (!readWholeFile(header, facts.headerText, why)) return nullptr;
        const EnviHeader entries = parseEnviHeader(facts.headerText);
        RawLayout layout;
        layout.path = path;
        if (!readEnviLayout(entries, layout, facts)) {
            const HeaderFile file{header, facts.headerText};
            return openGdal(path, "ENVI", false, &file, why);
        }
        gatherThroughGdal(entries, facts);
        facts.defaultChannels = defaultBands(entries, facts.channels);
        mergeAuxiliaryFile(path + ".aux.xml", facts);
        return std::make_unique<EnviRaster>(std::move(facts), std::move(layout), writable);
    } catch (const std::exception& e) {
        why = header + ": " + e.what();
        return nullptr;
    }
}

std::unique_ptr<Raster> createEnvi(const std::string& path, int width, int height, int channels, int type,
                                   std::string& why) {
    constexpr std::array<const char*, 5> kNames = {"", "Byte", "Int16", "UInt16", "Float32"};
    const std::string header = withExtension(path, ".hdr");
    if (header == path) {
        why = "a name that ends in .hdr is for the header of an image";
        return nullptr;
    }
    for (const std::string& other : enviHeaderNames(path))
        if (pathExists(other)) {
            why = other + " exists";
            return nullptr;
        }
    if (channels > kMostBands) {
        why = "an image has at most " + std::to_string(kMostBands) + " channels";
        return nullptr;
    }
    std::int64_t bytes = type == 1 ? 1 : type == 4 ? 4 : 2;
    for (const int factor : {width, height, channels})
        if (__builtin_mul_overflow(bytes, std::int64_t{factor}, &bytes)) {
            why = "the image is larger than a file can be";
            return nullptr;
        }
    RasterFacts facts;
    facts.driver = "ENVI";
    facts.width = width;
    facts.height = height;
    facts.channels = channels;
    facts.interleave = "BIP";
    facts.sampleType = kNames[static_cast<std::size_t>(type)];
    facts.channelTypes.assign(static_cast<std::size_t>(channels), type);
    const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor < 0) {
        why = std::strerror(errno);
        return nullptr;
    }
    // The samples that are never written take no room on the disk and read as zero.
    if (::ftruncate(descriptor, bytes) != 0)
        why = "cannot make a file of " + std::to_string(bytes) + " bytes: " + std::strerror(errno);
    if (::close(descriptor) != 0 && why.empty()) why = std::strerror(errno);
    std::unique_ptr<Raster> raster;
    if (why.empty()) {
        const std::vector<StringList> none(static_cast<std::size_t>(channels));
        why = replaceFile(header, composeEnviHeader(facts, StringList(), none, Georeference()));
        if (why.empty()) raster = openEnvi(path, header, true, why);
        if (raster == nullptr) ::unlink(header.c_str());
    }
    if (raster == nullptr) ::unlink(path.c_str());
    return raster;
}

}  // namespace kshost
