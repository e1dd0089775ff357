#include "image/regionoutput.hpp"

#include <algorithm>
#include <filesystem>

#include "app/output.hpp"
#include "app/report.hpp"
#include "image/blocks.hpp"
#include "image/copymeta.hpp"

namespace fs = std::filesystem;

namespace kscli {
namespace {

bool isTextName(const std::string& name) {
    const std::string extension = lowerExtension(name);
    return extension == ".roi" || extension == ".txt";
}

// A file of regions has one line for each.
std::string oneLine(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r' || c == '\t' || c == '#'; }, ' ');
    return text;
}

// An image of zeros that is being made; the host refuses to write after a failure, so that the count of those tells.
class MaskImage {
public:
    MaskImage(const std::string& path, int width, int height, int channels) {
        const int counts[4] = {channels, 0, 0, 0};
        file_ = IDBCreate(path.c_str(), width, height, counts, "PIXEL");
        if (file_ == nullptr) fail("the mask image could not be created (see above).");
    }
    ~MaskImage() { GDBClose(file_); }
    MaskImage(const MaskImage&) = delete;
    MaskImage& operator=(const MaskImage&) = delete;
    HostFile* file() const { return file_; }

private:
    HostFile* file_;
};

// Ones where the region covers the rows from `first` on, in its channel of a pixel-interleaved block.
void drawInto(std::vector<float>& block, std::size_t width, int first, int rows, const KSROI& region,
              std::size_t channel, std::size_t channels) {
    const Extent extent = extentOf(region);
    const int end = std::min(first + rows, extent.y + extent.height);
    for (int y = std::max(first, extent.y); y < end; ++y) {
        for (int x = extent.x; x < extent.x + extent.width; ++x) {
            if (region.eROIType == KS_ROI_BITMAP && KSGetROIBit(&region, x - extent.x, y - extent.y) == 0) continue;
            const std::size_t pixel = static_cast<std::size_t>(y - first) * width + static_cast<std::size_t>(x);
            block[pixel * channels + channel] = 1.0F;
        }
    }
}

}  // namespace

RegionOutput::RegionOutput(const DataSet& dataSet, const std::string& cube, const std::string& name, bool force)
    : dataSet_(dataSet), cube_(cube), name_(name), isText_(isTextName(name)), staging_(name, force) {
    if (isText_) return;
    refuseSourceFiles(dataSet, cube, name);
    staging_.alsoMakes(companionsOf(name));
}

void RegionOutput::write(std::vector<NamedRegion>& regions, const std::string& history) {
    std::vector<const NamedRegion*> masked;
    for (NamedRegion& region : regions) {
        if (isText_ && region.region->eROIType != KS_ROI_BITMAP) continue;
        masked.push_back(&region);
        region.region->nBitmapID = static_cast<int>(masked.size());
    }
    if (isText_) {
        const std::string mask = maskOfRegionFile(name_);
        std::vector<fs::path> companions = companionsOf(mask);
        companions.emplace_back(mask);
        if (!masked.empty() || fs::exists(name_)) staging_.alsoMakes(companions);
        writeText(regions);
        if (!masked.empty()) writeMask(masked, maskOfRegionFile(staging_.path()), history);
    } else {
        writeMask(masked, staging_.path(), history);
    }
    staging_.publish();
}

void RegionOutput::writeText(const std::vector<NamedRegion>& regions) const {
    std::string text =
        fmt::format("# regions of {}, {} x {} pixels\n", oneLine(cube_), dataSet_->nXSize, dataSet_->nYSize);
    for (const NamedRegion& region : regions) {
        text += regionText(*region.region);
        if (!region.name.empty()) text += "  # " + oneLine(region.name);
        text += '\n';
    }
    kscli::writeText(text, staging_.path());
}

void RegionOutput::writeMask(const std::vector<const NamedRegion*>& regions, const std::string& path,
                             const std::string& history) const {
    const std::size_t channels = regions.size();
    const auto width = static_cast<std::size_t>(dataSet_->nXSize);
    {
        const MaskImage mask(path, dataSet_->nXSize, dataSet_->nYSize, static_cast<int>(channels));
        KSHostCopyGeoreference(dataSet_.file(), mask.file(), nullptr, 1, 1);
        GDBWriteHistory(mask.file(), 0, 0, history.c_str());
        std::vector<int> numbers;
        for (const NamedRegion* region : regions) {
            numbers.push_back(static_cast<int>(numbers.size()) + 1);
            std::string name = oneLine(region->name.empty() ? regionText(*region->region) : region->name);
            GDBChanDescIO(mask.file(), 1, numbers.back(), name.data());
        }
        const double rowBytes = sizeof(float) * static_cast<double>(width) * static_cast<double>(channels);
        const int rowsAtOnce = rowsPerBlock(rowBytes, dataSet_->nYSize);
        std::vector<float> block;
        forEachBlock(dataSet_->nYSize, rowsAtOnce, [&](int first, int rows) {
            block.assign(static_cast<std::size_t>(rows) * width * channels, 0.0F);
            for (std::size_t i = 0; i < channels; ++i) {
                drawInto(block, width, first, rows, *regions[i]->region, i, channels);
            }
            GDBRealChanIOLow(mask.file(), 1, 0, first, dataSet_->nXSize, rows, block.data(), dataSet_->nXSize, rows,
                             static_cast<int>(channels), numbers.data());
        });
    }
    requireComplete("the mask image");
}

}  // namespace kscli
