// Regions as users write them: a text, or a file of such texts, of shapes, or of pixels.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <new>
#include <optional>
#include <sstream>

#include "app/report.hpp"
#include "app/staging.hpp"
#include "app/text.hpp"
#include "image/bands.hpp"
#include "image/blocks.hpp"
#include "image/region.hpp"

namespace fs = std::filesystem;

namespace kscli {

const char* const kRegionHelp =
    "'point xoff X yoff Y size N' (N odd), 'rectangle xoff X yoff Y xsize W ysize H', or a file: of such regions, of "
    "polygons (.geojson, .json, .shp, .csv), or a mask image";

namespace {

// The library separates the words of a region with blanks alone.
std::string withBlanks(std::string text) {
    std::replace(text.begin(), text.end(), '\t', ' ');
    return trimmed(text);
}

bool isRegionText(const std::string& text) {
    const std::string word = text.substr(0, text.find(' '));
    for (int type : {KS_ROI_POINT, KS_ROI_RECTANGLE, KS_ROI_BITMAP}) {
        if (word == aKSROIType[type].szName) return true;
    }
    return false;
}

// ---- one region ----

// The part of a region that lies in the image; null for none.
Region cutToImage(const DataSet& dataSet, Region region) {
    const Extent extent = extentOf(*region);
    const auto cut = [](int offset, int length, int size, int& first, int& count) {
        const long long end = std::min<long long>(static_cast<long long>(offset) + length, size);
        first = std::max(offset, 0);
        count = static_cast<int>(std::max<long long>(end - first, 0));
    };
    Extent inside;
    cut(extent.x, extent.width, dataSet->nXSize, inside.x, inside.width);
    cut(extent.y, extent.height, dataSet->nYSize, inside.y, inside.height);
    if (inside.width < 1 || inside.height < 1) return nullptr;
    if (inside.width == extent.width && inside.height == extent.height) return region;
    return rectangleRegion(inside);
}

Region regionOf(std::string text) {
    const std::string written = text;
    Region region(_ROIStrToStruct(text.data()));
    if (region == nullptr) fail("'{}' is not a region. Write {}.", written, kRegionHelp);
    if (region->eROIType == KS_ROI_POINT && region->nXSize % 2 == 0) {
        fail("'{}': the size of a point is the side of a square around its pixel, so it must be odd.", written);
    }
    if (region->eROIType == KS_ROI_RECTANGLE && (region->nXSize < 1 || region->nYSize < 1)) {
        fail("'{}' has no pixels; xsize and ysize must be 1 or more.", written);
    }
    return region;
}

// ---- masks ----

DataSet openMask(const DataSet& dataSet, const std::string& name) {
    DataSet mask = DataSet::open(name);
    if (mask->nXSize != dataSet->nXSize || mask->nYSize != dataSet->nYSize) {
        fail("{} is a mask of {} x {} pixels, but the image has {} x {}; a mask has the size of its image.", name,
             mask->nXSize, mask->nYSize, dataSet->nXSize, dataSet->nYSize);
    }
    return mask;
}

// The pixels of each band that are neither 0 nor without data.
std::vector<Region> bitmapsOf(const DataSet& mask, const std::vector<int>& bands) {
    const Extent image = {0, 0, mask->nXSize, mask->nYSize};
    std::vector<Region> bitmaps;
    for (std::size_t i = 0; i < bands.size(); ++i) bitmaps.push_back(emptyBitmap(image));
    const SampleReader reader(mask, bands, 0, SampleReader::NoData::asNaN);
    readBlocks(reader, wholeImage(mask), 1.0, [&](int first, Window& window) {
        for (int row = 0; row < window.rows(); ++row) {
            for (int x = 0; x < window.columns(); ++x) {
                const float* pixel = window.pixel(x, row);
                for (std::size_t i = 0; i < bitmaps.size(); ++i) {
                    const bool inside = !std::isnan(pixel[i]) && std::abs(pixel[i]) > 0;
                    if (inside) KSSetROIBit(bitmaps[i].get(), x, first + row);
                }
            }
        }
    });
    requireComplete("the mask");
    return bitmaps;
}

std::string channelName(const DataSet& mask, int band) {
    char text[1024] = {};
    GDBChanDescIO(mask.file(), 0, mask.channel(band), text);
    return text;
}

std::vector<NamedRegion> readMask(const DataSet& dataSet, const std::string& name) {
    const DataSet mask = openMask(dataSet, name);
    const std::vector<int> bands = allBands(mask);
    std::vector<Region> bitmaps = bitmapsOf(mask, bands);
    std::vector<NamedRegion> regions;
    for (std::size_t i = 0; i < bands.size(); ++i) {
        bitmaps[i]->nBitmapID = mask.channel(bands[i]);
        regions.push_back({channelName(mask, bands[i]), trimmedBitmap(std::move(bitmaps[i]))});
    }
    return regions;
}

// ---- files of regions ----

std::ifstream openText(const std::string& file) {
    std::ifstream stream(file);
    if (!stream) fail("{} cannot be read.", file);
    return stream;
}

// A line of a file of regions: the region, and after '#' its name.
struct Line {
    std::string text;
    std::string name;
};
Line lineOf(const std::string& line) {
    const std::size_t hash = line.find('#');
    return {withBlanks(line.substr(0, hash)), hash == std::string::npos ? "" : withBlanks(line.substr(hash + 1))};
}

// Told by its first line that is no remark. An image may hold anything, so only a little of it is looked at.
bool isRegionFile(const std::string& file) {
    std::ifstream stream = openText(file);
    std::string start(4096, '\0');
    stream.read(start.data(), static_cast<std::streamsize>(start.size()));
    start.resize(static_cast<std::size_t>(stream.gcount()));
    std::istringstream lines(start);
    for (std::string line; std::getline(lines, line);) {
        const std::string text = lineOf(line).text;
        if (!text.empty()) return isRegionText(text);
    }
    return !start.empty() && start[0] == '#';
}

std::vector<NamedRegion> readRegionFile(const DataSet& dataSet, const std::string& file) {
    std::ifstream stream = openText(file);
    std::vector<NamedRegion> regions;
    std::vector<std::size_t> bitmaps;  // which of them still lack their pixels
    int number = 0;
    for (std::string text; std::getline(stream, text);) {
        ++number;
        Line line = lineOf(text);
        if (line.text.empty()) continue;
        if (!isRegionText(line.text)) fail("{}, line {}: '{}' is not a region.", file, number, line.text);
        Region region = regionOf(line.text);
        if (region->eROIType == KS_ROI_BITMAP) {
            bitmaps.push_back(regions.size());
        } else {
            region = cutToImage(dataSet, std::move(region));
        }
        regions.push_back({std::move(line.name), std::move(region)});
    }
    if (bitmaps.empty()) return regions;

    const std::string maskName = maskOfRegionFile(file);
    std::error_code ec;
    if (!fs::exists(maskName, ec)) fail("{} holds bitmaps, but their mask image {} is missing.", file, maskName);
    const DataSet mask = openMask(dataSet, maskName);
    std::vector<int> bands;
    for (std::size_t i : bitmaps) {
        const int band = KSChanToBand(mask.get(), regions[i].region->nBitmapID);
        if (band < 0) fail("{}: there is no channel {} in {}.", file, regions[i].region->nBitmapID, maskName);
        bands.push_back(band);
    }
    std::vector<Region> pixels = bitmapsOf(mask, bands);
    for (std::size_t i = 0; i < bitmaps.size(); ++i) {
        Region& region = regions[bitmaps[i]].region;
        pixels[i]->nBitmapID = region->nBitmapID;
        region = trimmedBitmap(std::move(pixels[i]));
    }
    return regions;
}

// ---- shapes ----

struct ShapesCloser {
    void operator()(KSHostShapes* shapes) const { KSHostCloseShapes(shapes); }
};

Region drawn(const KSHostShapes* shapes, int shape, bool allTouched) {
    int window[4] = {};
    if (KSHostShapeWindow(shapes, shape, window) == 0) return nullptr;
    Region bitmap = emptyBitmap({window[0], window[1], window[2], window[3]});
    const int rowsAtOnce = rowsPerBlock(window[2], window[3]);
    std::vector<unsigned char> mask;
    for (int first = 0; first < window[3]; first += rowsAtOnce) {
        const int part[4] = {window[0], window[1] + first, window[2], std::min(rowsAtOnce, window[3] - first)};
        mask.assign(static_cast<std::size_t>(part[2]) * static_cast<std::size_t>(part[3]), 0);
        if (KSHostRasterizeShape(shapes, shape, allTouched ? 1 : 0, part, mask.data()) == 0) throw std::bad_alloc();
        const unsigned char* inside = mask.data();
        for (int y = 0; y < part[3]; ++y) {
            for (int x = 0; x < part[2]; ++x) {
                if (*inside++ != 0) KSSetROIBit(bitmap.get(), x, first + y);
            }
        }
    }
    return trimmedBitmap(std::move(bitmap));
}

bool isShapeFile(const std::string& file) {
    const std::string extension = lowerExtension(file);
    return extension == ".geojson" || extension == ".json" || extension == ".shp" || extension == ".csv";
}

// ---- all of them ----

std::vector<NamedRegion> readFile(const DataSet& dataSet, const std::string& file) {
    if (isShapeFile(file)) return rasterizeShapes(dataSet, file, {});
    if (isRegionFile(file)) return readRegionFile(dataSet, file);
    return readMask(dataSet, file);
}

// Leaves out the regions without a pixel in the image; their places in a list would only mislead.
std::vector<NamedRegion> withPixels(const DataSet& dataSet, std::vector<NamedRegion> regions, const std::string& file) {
    const auto isEmpty = [](const NamedRegion& region) { return region.region == nullptr; };
    const auto end = std::remove_if(regions.begin(), regions.end(), isEmpty);
    const auto missing = std::distance(end, regions.end());
    if (end == regions.begin()) {
        fail("{}: none of its regions has a pixel in the image of {} x {} pixels.{}", file, dataSet->nXSize,
             dataSet->nYSize,
             isShapeFile(file) ? " Are the coordinates right? 'ks roi rasterize' can take them as pixels, and take in "
                                 "all pixels that a polygon touches."
                               : "");
    }
    if (missing > 0)
        note("{}: {} of its regions {} no pixel in the image.", file, missing, missing == 1 ? "has" : "have");
    regions.erase(end, regions.end());
    return regions;
}

}  // namespace

std::string maskOfRegionFile(const std::string& file) { return file + ".img"; }

std::vector<NamedRegion> rasterizeShapes(const DataSet& dataSet, const std::string& file, const ShapeOptions& options) {
    const std::unique_ptr<KSHostShapes, ShapesCloser> shapes(
        KSHostOpenShapes(file.c_str(), dataSet.file(), options.pixels ? 1 : 0));
    if (shapes == nullptr) fail("{} cannot be read as polygons (see above).", file);
    std::vector<NamedRegion> regions;
    for (int shape = 0; shape < KSHostShapeCount(shapes.get()); ++shape) {
        throwIfInterrupted();
        regions.push_back({KSHostShapeName(shapes.get(), shape), drawn(shapes.get(), shape, options.allTouched)});
    }
    return withPixels(dataSet, std::move(regions), file);
}

std::vector<NamedRegion> parseRegions(const DataSet& dataSet, const std::string& written) {
    const std::string text = withBlanks(written);
    std::error_code ec;
    if (!isRegionText(text)) {
        if (!fs::exists(written, ec)) {
            fail("'{}' is neither a region nor the name of a file. Write {}.", written, kRegionHelp);
        }
        return withPixels(dataSet, readFile(dataSet, written), written);
    }
    Region region = regionOf(text);
    if (region->eROIType == KS_ROI_BITMAP) {
        fail("'{}': a bitmap's pixels lie in a mask image; give the name of that image or of its file of regions.",
             text);
    }
    std::vector<NamedRegion> regions(1);
    regions[0].region = cutToImage(dataSet, std::move(region));
    if (regions[0].region == nullptr) {
        fail("'{}' lies outside the image of {} x {} pixels.", text, dataSet->nXSize, dataSet->nYSize);
    }
    return regions;
}

Region parseRegion(const DataSet& dataSet, const std::string& text) {
    std::vector<NamedRegion> regions = parseRegions(dataSet, text);
    if (regions.size() == 1) return std::move(regions[0].region);
    std::vector<const KSROI*> all;
    for (const NamedRegion& region : regions) all.push_back(region.region.get());
    return unionOf(all);
}

}  // namespace kscli
