// Reading a vector-quantized cube block by block: the index map comes through the raster that any GeoTIFF has, so a
// cube needs no more memory than a block of indexes and the codebook.
#include "vqraster.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "sidecar.hpp"

namespace kshost {
namespace {

constexpr int kBlockPixels = 256 * 1024;
constexpr int kUInt16 = 3;

std::size_t size(int value) { return static_cast<std::size_t>(value); }

template <class T>
float component(const unsigned char* vector, std::size_t i) {
    T value;
    std::memcpy(&value, vector + i * sizeof value, sizeof value);
    return static_cast<float>(value);
}

bool consecutive(const std::vector<int>& channels) {
    for (std::size_t c = 1; c < channels.size(); ++c)
        if (channels[c] != channels[c - 1] + 1) return false;
    return true;
}

/// The components of some channels, for pixels one after another.
template <class T>
void decode(const Codebook& codebook, const std::vector<int>& channels, const float* indexes, std::size_t pixels,
            float* to) {
    const std::size_t vectorBytes = codebook.vectorBytes();
    const std::size_t count = channels.size();
    const std::size_t first = size(channels.front() - 1);
    const bool run = consecutive(channels);
    for (std::size_t p = 0; p < pixels; ++p, to += count) {
        const unsigned char* vector = codebook.values.data() + static_cast<std::size_t>(indexes[p]) * vectorBytes;
        if (run) {
            for (std::size_t c = 0; c < count; ++c) to[c] = component<T>(vector, first + c);
        } else {
            for (std::size_t c = 0; c < count; ++c) to[c] = component<T>(vector, size(channels[c] - 1));
        }
    }
}

using Decode = void (*)(const Codebook&, const std::vector<int>&, const float*, std::size_t, float*);
constexpr std::array<Decode, 5> kDecoders = {nullptr, decode<std::uint8_t>, decode<std::int16_t>, decode<std::uint16_t>,
                                             decode<float>};

RasterFacts factsOfCube(const RasterFacts& indexMap, const Codebook& shape) {
    constexpr std::array<const char*, 5> kSampleTypes = {"", "Byte", "Int16", "UInt16", "Float32"};
    RasterFacts facts;
    facts.width = indexMap.width;
    facts.height = indexMap.height;
    facts.channels = shape.bands;
    facts.channelTypes.assign(size(shape.bands), shape.type);
    facts.driver = indexMap.driver;
    facts.sampleType = kSampleTypes[size(shape.type)];
    facts.bigEndian = indexMap.bigEndian;
    facts.headerText = indexMap.headerText;
    facts.bandItems.resize(size(shape.bands));
    facts.bandNames.resize(size(shape.bands));
    // A value that marks missing indexes says nothing about samples.
    facts.georeference = indexMap.georeference;
    facts.georeference.noData.clear();
    facts.remarks = indexMap.remarks;
    return facts;
}

/// Lines of a width that are moved together.
int linesAtOnce(int width) { return std::max(1, kBlockPixels / width); }

std::string syncFile(const std::string& path) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool synced = descriptor >= 0 && ::fsync(descriptor) == 0;
    const int error = errno;
    if (descriptor >= 0) ::close(descriptor);
    return synced ? std::string() : std::string("cannot bring the index map to the disk: ") + std::strerror(error);
}

}  // namespace

VqRaster::VqRaster(const HostFile& file, std::unique_ptr<Raster> indexMap, const Codebook& shape)
    : file_(file), indexMap_(std::move(indexMap)), vectors_(shape.vectors), type_(shape.type) {
    facts_ = factsOfCube(indexMap_->facts(), shape);
}

std::shared_ptr<const Codebook> VqRaster::codebook(std::string& why) const {
    auto stored = file_.store->codebook();
    if (stored != nullptr && stored->vectors == vectors_ && stored->bands == facts_.channels && stored->type == type_) {
        return stored;
    }
    why = "the codebook is no longer the one of this cube; open the file again";
    return nullptr;
}

std::string VqRaster::read(const Transfer& t, float* buffer) {
    std::string why;
    const auto codebook = this->codebook(why);
    if (codebook == nullptr) return why;
    const Decode decode = kDecoders[size(type_)];
    return eachBlock(t, [&](const float* indexes, std::size_t pixels, std::size_t firstPixel) {
        decode(*codebook, t.channels, indexes, pixels, buffer + firstPixel * t.channels.size());
    });
}

std::string VqRaster::write(const Transfer&, const float*) {
    return "samples of a vector-quantized cube are not written; put a codebook and an index map";
}

std::string VqRaster::readIndexes(const Window& w, std::uint16_t* indexes) {
    return eachBlock({w[0], w[1], w[2], w[3], w[2], w[3], {1}, {}},
                     [=](const float* block, std::size_t pixels, std::size_t firstPixel) {
                         std::transform(block, block + pixels, indexes + firstPixel,
                                        [](float index) { return static_cast<std::uint16_t>(index); });
                     });
}

std::string VqRaster::writeIndexes(const Window& w, const std::uint16_t* indexes) {
    std::vector<float> block;
    const int step = linesAtOnce(w[2]);
    for (int row = 0; row < w[3];) {
        const int count = std::min(step, w[3] - row);
        const std::uint16_t* from = indexes + size(row) * size(w[2]);
        block.assign(from, from + size(count) * size(w[2]));
        std::string why = indexMap_->write({w[0], w[1] + row, w[2], count, w[2], count, {1}, {}}, block.data());
        if (!why.empty()) return why;
        row += count;
    }
    std::string why = indexMap_->flush();
    return why.empty() ? syncFile(file_.path) : why;
}

/// Hands out the indexes of a transfer, rows of the buffer after each other; all have a code vector.
std::string VqRaster::eachBlock(const Transfer& t, const TakeBlock& take) {
    const bool everyLine = t.bufHeight == t.height;
    const int step = everyLine ? linesAtOnce(t.bufWidth) : 1;
    std::vector<float> indexes;
    for (int row = 0; row < t.bufHeight;) {
        const int count = std::min(step, t.bufHeight - row);
        const int line = t.yOff + static_cast<int>((std::int64_t{row} * t.height) / t.bufHeight);
        const Transfer block = {t.xOff, line, t.width, count, t.bufWidth, count, {1}, {}};
        indexes.resize(size(count) * size(t.bufWidth));
        std::string why = indexMap_->read(block, indexes.data());
        if (why.empty()) why = whyNoVector(block, indexes);
        if (!why.empty()) return why;
        take(indexes.data(), indexes.size(), size(row) * size(t.bufWidth));
        row += count;
    }
    return {};
}

std::string VqRaster::whyNoVector(const Transfer& block, const std::vector<float>& indexes) const {
    const auto limit = static_cast<float>(vectors_);
    const auto bad = std::find_if_not(indexes.begin(), indexes.end(), [=](float index) { return index < limit; });
    if (bad == indexes.end()) return {};
    const auto at = bad - indexes.begin();
    const std::int64_t column = block.xOff + ((at % block.bufWidth) * block.width) / block.bufWidth;
    const std::int64_t line = block.yOff + at / block.bufWidth;
    return "the index map is damaged: pixel " + std::to_string(column) + " of line " + std::to_string(line) +
           " holds index " + std::to_string(static_cast<std::int64_t>(*bad)) + ", and there are " +
           std::to_string(vectors_) + " code vectors";
}

void dressAsCube(HostFile& file) {
    const RasterFacts& facts = file.raster->facts();
    if (facts.driver != "GTiff" || facts.channels != 1 || facts.channelTypes[0] != kUInt16) return;
    std::string unusable;  // is said when the store opens the same sidecar
    const auto content = readSidecar(file.sidecar, unusable);
    if (!content || content->codebook == nullptr) return;
    const SidecarImage& image = content->image;
    const Codebook& codebook = *content->codebook;
    if (image.width != facts.width || image.height != facts.height || image.channels != codebook.bands) return;
    file.raster = std::make_unique<VqRaster>(file, std::move(file.raster), codebook);
}

}  // namespace kshost
