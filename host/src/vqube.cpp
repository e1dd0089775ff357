// Vector-quantized cubes. On disk: a GeoTIFF of one unsigned 16-bit channel, the index map, and beside it a sidecar
// with the codebook. Callers see the decoded bands as channels, and address a cube by the name of a channel's handle,
// which they may cut at the first colon: so a file name goes into it with its colons encoded.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>

#include "rasterformats.hpp"
#include "report.hpp"
#include "vqraster.hpp"

namespace kshost {
namespace {

std::size_t size(int value) { return static_cast<std::size_t>(value); }

bool refused(const char* caller, const std::string& name, const std::string& why) {
    reportFailure(std::string(caller) + ": " + name + ": " + why);
    return false;
}

// ---- names ----

std::string encodedName(const std::string& name) {
    std::string encoded;
    for (const char c : name) {
        if (c == ':')
            encoded += "%3A";
        else if (c == '%')
            encoded += "%25";
        else
            encoded += c;
    }
    return encoded;
}

/// The name that encodedName made a text from; nothing for a text that it never makes.
std::optional<std::string> decodedName(const std::string& text) {
    std::string name;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == ':') return std::nullopt;
        if (text[i] != '%') {
            name += text[i];
            continue;
        }
        const std::string code = text.substr(i, 3);
        if (code != "%3A" && code != "%25") return std::nullopt;
        name += code == "%25" ? '%' : ':';
        i += 2;
    }
    return name;
}

/// What a name can mean: the handle of a channel, the part of its name before the colon, or simply a file.
struct Reading {
    std::string fileName;
    int channel = 0;  // 0: the whole cube
};

std::vector<Reading> readingsOf(const std::string& name) {
    std::vector<Reading> readings;
    const std::size_t colon = name.find(':');
    if (colon != std::string::npos) {
        const std::string number = name.substr(colon + 1);
        const bool digits = number.size() <= 5 && number.find_first_not_of("0123456789") == std::string::npos;
        const int channel = digits ? std::atoi(number.c_str()) : 0;
        const auto file = channel >= 1 ? decodedName(name.substr(0, colon)) : std::nullopt;
        if (file) readings.push_back({*file, channel});
    } else if (const auto file = decodedName(name)) {
        readings.push_back({*file, 0});
    }
    if (readings.empty() || readings.front().fileName != name) readings.push_back({name, 0});
    return readings;
}

// ---- cubes that are open ----

bool isCube(const HostFile& file) { return dynamic_cast<const VqRaster*>(file.raster.get()) != nullptr; }

VqRaster& rasterOf(const HostFile& cube) { return dynamic_cast<VqRaster&>(*cube.raster); }

/// The file of a cube or of one of its channels.
HostFile& ownerOf(HostFile& file) { return file.cube != nullptr ? *file.cube : file; }

bool hasChannel(const HostFile& file, int channel) { return channel >= 0 && channel <= file.raster->facts().channels; }

/// The cube that a put writes to. Opened here when it is not open already, and then closed again.
class Target {
public:
    Target(const char* caller, const char* szName) {
        if (szName == nullptr) {
            refused(caller, "-", "no file name given");
            return;
        }
        find(szName);
        if (file_ == nullptr) open(caller, szName);
        if (file_ == nullptr || file_->writable) return;
        refused(caller, file_->name, "the file was opened for reading only");
        file_ = nullptr;
    }
    ~Target() {
        if (opened_) guarded("GDBClose ()", false, [this] { return closeFile(file_); });
    }
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;

    /// Null after a report.
    HostFile* file() const { return file_; }

private:
    void find(const std::string& name) {
        for (const Reading& reading : readingsOf(name)) {
            HostFile* found = openCubeNamed(reading.fileName);
            if (found == nullptr || !hasChannel(*found, reading.channel)) continue;
            file_ = found;
            return;
        }
    }
    void open(const char* caller, const std::string& name) {
        const char* why = "there is no such file";
        for (const Reading& reading : readingsOf(name)) {
            if (!pathExists(fileOfName(reading.fileName))) continue;
            HostFile* file = openFile(reading.fileName, "r+");
            if (file == nullptr) return;  // which has been reported
            opened_ = isCube(*file) && hasChannel(*file, reading.channel);
            if (opened_) {
                file_ = file;
                return;
            }
            why = "holds no vector-quantized cube";
            closeFile(file);
        }
        refused(caller, name, why);
    }

    HostFile* file_ = nullptr;
    bool opened_ = false;
};

/// The cube behind a live handle; null after a report.
HostFile* cubeBehind(HostFile* fp, const char* caller) {
    HostFile* file = live(fp, caller);
    if (file == nullptr) return nullptr;
    HostFile& owner = ownerOf(*file);
    if (isCube(owner)) return &owner;
    refused(caller, owner.name, "holds no vector-quantized cube");
    return nullptr;
}

// ---- describing ----

template <class T>
T* listOf(const std::vector<T>& values) {
    T* list = static_cast<T*>(std::malloc(values.size() * sizeof(T)));
    if (list != nullptr) std::copy(values.begin(), values.end(), list);
    return list;
}

const std::vector<std::unique_ptr<HostFile>>& channelHandles(HostFile& cube) {
    if (cube.lent.empty()) {
        std::vector<std::string> names;
        for (int channel = 1; channel <= cube.raster->facts().channels; ++channel)
            names.push_back(encodedName(cube.name) + ":" + std::to_string(channel));
        makeLentHandles(cube, names);
    }
    return cube.lent;
}

bool describeCube(HostFile& cube, KSVQubeInfo& info) {
    const VqRaster& raster = rasterOf(cube);
    std::vector<int> channels;
    std::vector<HostFile*> handles;
    for (const auto& handle : channelHandles(cube)) {
        handles.push_back(handle.get());
        channels.push_back(static_cast<int>(handles.size()));
    }
    KSVQubeInfo filled = {};
    filled.nPixels = raster.facts().width;
    filled.nLines = raster.facts().height;
    filled.nNumVQChans = raster.facts().channels;
    filled.panVQChans = listOf(channels);
    filled.papfVQChan = listOf(handles);
    filled.nCodeVectors = raster.vectors();
    filled.nDataType = raster.type();
    filled.nBitsPerIndex = bitsPerIndex(raster.vectors());
    if (filled.panVQChans == nullptr || filled.papfVQChan == nullptr) {
        VQubeCleanUp(&filled);
        return refused("VQubeGetInfo ()", cube.name, "out of memory");
    }
    info = filled;
    return true;
}

// ---- creating ----

/// Makes the index map, all zeros, on the disk. A failure leaves no file.
std::string makeIndexMap(const std::string& path, int pixels, int lines) {
    constexpr int kStripPixels = 512 * 1024;
    const GdalMessages messages;
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("GTiff");
    if (driver == nullptr) return "GDAL has no GeoTIFF driver";
    // Made here first, so that a file that appears meanwhile is never overwritten.
    const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor < 0) return std::strerror(errno);
    const std::string strip = "BLOCKYSIZE=" + std::to_string(std::clamp(kStripPixels / pixels, 1, lines));
    const char* const options[] = {"BIGTIFF=IF_SAFER", "TILED=NO", strip.c_str(), nullptr};
    GdalDataset image(driver->Create(path.c_str(), pixels, lines, 1, GDT_UInt16, const_cast<char**>(options)));
    std::string why = image == nullptr ? messages.text("the GeoTIFF cannot be made") : std::string();
    image.reset();  // the zeros are written now
    if (why.empty()) why = messages.text("");
    if (why.empty() && ::fsync(descriptor) != 0) why = std::strerror(errno);
    ::close(descriptor);
    if (!why.empty()) ::unlink(path.c_str());
    return why;
}

/// Stores an all-zero codebook beside a new index map.
std::string storeFirstCodebook(const std::string& name, std::shared_ptr<const Codebook> codebook) {
    std::string why;
    HostFile file;
    file.name = name;
    file.path = fileOfName(name);
    file.sidecar = sidecarPath(name);
    auto indexMap = openRaster(name, false, why);
    if (indexMap == nullptr) return why;
    if (!indexMap->facts().remarks.empty()) return indexMap->facts().remarks.front();
    file.raster = std::make_unique<VqRaster>(file, std::move(indexMap), *codebook);
    file.store = openStore(name, file.raster->facts(), true, why);
    if (file.store == nullptr) return why;
    file.store->markCreated();
    return file.store->putCodebook(std::move(codebook));
}

std::string whyNotCreated(const std::string& name, int pixels, int lines) {
    if (pixels < 1 || lines < 1) return "a cube has at least one pixel and one line";
    const std::string path = fileOfName(name);
    std::error_code ignored;
    if (std::filesystem::absolute(path, ignored) != std::filesystem::absolute(name, ignored))
        return "netCDF and HDF5 files do not hold vector-quantized cubes";
    for (const std::string& taken : {path, sidecarPath(name), path + ".aux.xml"})
        if (pathExists(taken)) return taken + " exists";
    return {};
}

bool createCube(const char* szName, int pixels, int lines, int bands, int vectors, int type) {
    constexpr const char* kCaller = "VQubeCreate ()";
    if (szName == nullptr || *szName == '\0') return refused(kCaller, "-", "no file name given");
    const std::string name = szName;
    std::string why = whyNotCreated(name, pixels, lines);
    if (why.empty()) why = whyNoCodebook(vectors, bands, type);
    if (!why.empty()) return refused(kCaller, name, why);
    registerFormats();
    auto codebook = std::make_shared<Codebook>(Codebook{vectors, bands, type, {}});
    codebook->values.resize(codebook->bytes());
    const std::string path = fileOfName(name);
    why = makeIndexMap(path, pixels, lines);
    if (!why.empty()) return refused(kCaller, name, why);
    try {
        why = storeFirstCodebook(name, std::move(codebook));
    } catch (...) {
        ::unlink(path.c_str());
        throw;
    }
    if (why.empty()) return true;
    ::unlink(path.c_str());
    return refused(kCaller, name, why);
}

// ---- codebooks ----

bool getCodebook(HostFile* fp, void* buffer) {
    constexpr const char* kCaller = "VQubeGetCodeBook ()";
    const HostFile* cube = cubeBehind(fp, kCaller);
    if (cube == nullptr) return false;
    if (buffer == nullptr) return refused(kCaller, cube->name, "no buffer given");
    std::string why;
    const auto codebook = rasterOf(*cube).codebook(why);
    if (codebook == nullptr) return refused(kCaller, cube->name, why);
    std::memcpy(buffer, codebook->values.data(), codebook->values.size());
    return true;
}

std::string differing(const char* what, int given, int wanted) {
    return std::string("the codebook given has ") + what + " " + std::to_string(given) + ", the cube " +
           std::to_string(wanted);
}

/// A codebook to be stored: component j of each vector belongs to channel channels[j].
struct CodebookPut {
    int vectors, type, bands, dataSetBands;
    const int* channels;
    const void* values;
};

std::string whyNoPut(const CodebookPut& put, const VqRaster& cube) {
    const int bands = cube.facts().channels;
    if (put.channels == nullptr || put.values == nullptr) return "no channel list or no code vectors given";
    if (put.vectors != cube.vectors()) return differing("a number of code vectors of", put.vectors, cube.vectors());
    if (put.type != cube.type()) return differing("data type", put.type, cube.type());
    if (put.bands != bands) return differing("a number of bands of", put.bands, bands);
    if (put.dataSetBands != bands)
        return "the channel list has " + std::to_string(put.dataSetBands) + " entries, the cube " +
               std::to_string(bands) + " bands";
    std::vector<bool> named(size(bands));
    for (int j = 0; j < bands; ++j) {
        const int channel = put.channels[j];
        if (channel < 1 || channel > bands) return "there is no channel " + std::to_string(channel);
        if (named[size(channel - 1)]) return "channel " + std::to_string(channel) + " is named twice";
        named[size(channel - 1)] = true;
    }
    return {};
}

std::shared_ptr<const Codebook> arranged(const CodebookPut& put) {
    auto codebook = std::make_shared<Codebook>(Codebook{put.vectors, put.bands, put.type, {}});
    codebook->values.resize(codebook->bytes());
    const std::size_t width = componentBytes(put.type);
    const auto* from = static_cast<const unsigned char*>(put.values);
    for (int v = 0; v < put.vectors; ++v) {
        unsigned char* vector = codebook->values.data() + size(v) * codebook->vectorBytes();
        for (int j = 0; j < put.bands; ++j, from += width)
            std::memcpy(vector + size(put.channels[j] - 1) * width, from, width);
    }
    return codebook;
}

bool putCodebook(const char* szName, const CodebookPut& put) {
    constexpr const char* kCaller = "VQubePutCodeBook ()";
    const Target target(kCaller, szName);
    HostFile* file = target.file();
    if (file == nullptr) return false;
    std::string why = whyNoPut(put, rasterOf(*file));
    if (!why.empty()) return refused(kCaller, file->name, why);
    if (!commitFile(*file)) return false;
    why = file->store->putCodebook(arranged(put));
    return why.empty() || refused(kCaller, file->name, "the codebook cannot be stored: " + why);
}

// ---- index maps ----

std::string whyOutside(const int* window, const RasterFacts& facts) {
    const bool inside = window[0] >= 0 && window[1] >= 0 && window[2] >= 1 && window[3] >= 1 &&
                        std::int64_t{window[0]} + window[2] <= facts.width &&
                        std::int64_t{window[1]} + window[3] <= facts.height;
    if (inside) return {};
    return "the window " + std::to_string(window[0]) + ", " + std::to_string(window[1]) + " of " +
           std::to_string(window[2]) + " x " + std::to_string(window[3]) + " does not lie in the cube of " +
           std::to_string(facts.width) + " x " + std::to_string(facts.height);
}

VqRaster::Window windowOf(const int* window) { return {window[0], window[1], window[2], window[3]}; }

bool getIndexMap(HostFile* fp, const int* window, std::uint16_t* buffer) {
    constexpr const char* kCaller = "VQubeGetIndexMap ()";
    const HostFile* cube = cubeBehind(fp, kCaller);
    if (cube == nullptr) return false;
    if (window == nullptr || buffer == nullptr) return refused(kCaller, cube->name, "no window or no buffer given");
    VqRaster& raster = rasterOf(*cube);
    std::string why = whyOutside(window, raster.facts());
    if (why.empty()) why = raster.readIndexes(windowOf(window), buffer);
    return why.empty() || refused(kCaller, cube->name, why);
}

/// Indexes to be stored in a window.
struct IndexPut {
    const int* window;
    int vectors, width, height;
    const std::uint16_t* indexes;
};

std::string whyNoPut(const IndexPut& put, const VqRaster& cube) {
    if (put.window == nullptr || put.indexes == nullptr) return "no window or no indexes given";
    std::string why = whyOutside(put.window, cube.facts());
    if (!why.empty()) return why;
    if (put.window[2] != put.width || put.window[3] != put.height)
        return "the index map given has " + std::to_string(put.width) + " x " + std::to_string(put.height) +
               " indexes, the window " + std::to_string(put.window[2]) + " x " + std::to_string(put.window[3]);
    if (put.vectors != cube.vectors())
        return "the index map given is for " + std::to_string(put.vectors) + " code vectors, the cube has " +
               std::to_string(cube.vectors());
    const std::uint16_t* end = put.indexes + size(put.width) * size(put.height);
    const auto* bad = std::find_if(put.indexes, end, [&](std::uint16_t index) { return index >= put.vectors; });
    if (bad == end) return {};
    return "index " + std::to_string(*bad) + " has no code vector: there are " + std::to_string(put.vectors);
}

bool putIndexMap(const char* szName, const IndexPut& put) {
    constexpr const char* kCaller = "VQubePutIndexMap ()";
    const Target target(kCaller, szName);
    HostFile* file = target.file();
    if (file == nullptr) return false;
    VqRaster& raster = rasterOf(*file);
    std::string why = whyNoPut(put, raster);
    if (!why.empty()) return refused(kCaller, file->name, why);
    if (!commitFile(*file)) return false;
    why = raster.writeIndexes(windowOf(put.window), put.indexes);
    return why.empty() || refused(kCaller, file->name, "the index map cannot be stored: " + why);
}

/// An exported operation: 1, or 0 after a report and a jump to the trap, if one is armed.
template <class Body>
int operation(const char* caller, Body body) {
    const bool done = guarded(caller, false, body);
    if (!done) abandonIfTrapped();
    return done ? 1 : 0;
}

}  // namespace
}  // namespace kshost

using kshost::operation;

int VQubeGetInfo(HostFile* fp, KSVQubeInfo* pInfo) {
    return kshost::guarded("VQubeGetInfo ()", 0, [=] {
        if (pInfo == nullptr || fpValidate(fp) == 0) return 0;
        HostFile& cube = kshost::ownerOf(*fp);
        return kshost::isCube(cube) && kshost::describeCube(cube, *pInfo) ? 1 : 0;
    });
}

int VQubeCreate(const char* szFileName, int nPixels, int nLines, int nBands, int nCodeVectors, int nDataType) {
    return operation("VQubeCreate ()",
                     [=] { return kshost::createCube(szFileName, nPixels, nLines, nBands, nCodeVectors, nDataType); });
}

void VQubeCleanUp(KSVQubeInfo* pInfo) {
    if (pInfo == nullptr) return;
    std::free(pInfo->panVQChans);
    std::free(pInfo->papfVQChan);
    std::free(pInfo->panNonVQChans);
    std::free(pInfo->papfNonVQChan);
    pInfo->panVQChans = nullptr;
    pInfo->papfVQChan = nullptr;
    pInfo->panNonVQChans = nullptr;
    pInfo->papfNonVQChan = nullptr;
    pInfo->nNumVQChans = 0;
    pInfo->nNumNonVQChans = 0;
}

int VQubeGetCodeBook(HostFile* fpVQ, void* pBuf) {
    return operation("VQubeGetCodeBook ()", [=] { return kshost::getCodebook(fpVQ, pBuf); });
}

int VQubePutCodeBook(const char* szFileName, int nCodeVectors, int nDataType, int nCbkBands, int nDataSetBands,
                     const int* panChans, const void* pBuf) {
    const kshost::CodebookPut put = {nCodeVectors, nDataType, nCbkBands, nDataSetBands, panChans, pBuf};
    return operation("VQubePutCodeBook ()", [&] { return kshost::putCodebook(szFileName, put); });
}

int VQubeGetIndexMap(HostFile* fpVQ, const int anWindow[4], uint16_t* pau16Buf) {
    return operation("VQubeGetIndexMap ()", [=] { return kshost::getIndexMap(fpVQ, anWindow, pau16Buf); });
}

int VQubePutIndexMap(const char* szFileName, const int anWindow[4], int nCodeVectors, int nXSize, int nYSize,
                     const uint16_t* pau16Buf) {
    const kshost::IndexPut put = {anWindow, nCodeVectors, nXSize, nYSize, pau16Buf};
    return operation("VQubePutIndexMap ()", [&] { return kshost::putIndexMap(szFileName, put); });
}
