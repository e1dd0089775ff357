// Regions of interest as users name them, owned, and cut to the image.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "image/dataset.hpp"

namespace kscli {

struct RegionDeleter {
    void operator()(KSROI* region) const { KSFreeROI(region); }
};
using Region = std::unique_ptr<KSROI, RegionDeleter>;

/// How --roi is written, for help texts.
extern const char* const kRegionHelp;

/// A region from what a user writes for --roi: the text of a point or rectangle, or the name of a file of regions, of
/// polygons or of a mask image; the union when that gives several. Throws a Failure that shows what is allowed, or says
/// that nothing lies in the image.
Region parseRegion(const DataSet& dataSet, const std::string& text);

/// One of the regions that such a text or file gives.
struct NamedRegion {
    std::string name;  // what its file calls it; may be empty
    Region region;
};
/// All of them, in order, without those that lie outside the image, which are counted in a note.
std::vector<NamedRegion> parseRegions(const DataSet& dataSet, const std::string& text);

/// The regions of a file of polygons, with what such a file cannot say itself.
struct ShapeOptions {
    bool pixels = false;      // the coordinates are pixels and lines, also when the image lies on a map
    bool allTouched = false;  // every pixel that a polygon touches, not only those whose centre lies in it
};
std::vector<NamedRegion> rasterizeShapes(const DataSet& dataSet, const std::string& file, const ShapeOptions& options);

/// The image that holds the bitmaps of a file of regions: bitmap N is its channel N.
std::string maskOfRegionFile(const std::string& file);

/// The rectangle that a region spans.
struct Extent {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};
Extent extentOf(const KSROI& region);

/// Number of pixels in a region, of those in every n-th column and line of its extent (see makeArea).
long long pixelCount(const KSROI& region, int every = 1);

/// "rectangle xoff 1 yoff 2 xsize 3 ysize 4".
std::string regionText(const KSROI& region);

Region rectangleRegion(const Extent& extent);
/// A bitmap without a pixel.
Region emptyBitmap(const Extent& extent);
/// A bitmap that just holds the pixels of another one; null when that has none.
Region trimmedBitmap(Region bitmap);
/// A bitmap of all pixels of the regions; there is at least one.
Region unionOf(const std::vector<const KSROI*>& regions);

/// Pixels whose values can be computed with.
struct ValidPixels {
    Region region;           // a bitmap; null when every pixel is valid, which then needs no bitmap
    long long valid = 0;     // pixels
    long long excluded = 0;  // pixels left out
    /// Bands that have no value in any of the pixels; only the other bands decide about a pixel.
    std::vector<int> emptyBands;
};
/// The pixels in `within` (null: the image) whose every value in the bands is a number and not the no-data value. Only
/// every n-th column and line of its extent is looked at.
ValidPixels validPixels(const DataSet& dataSet, const std::vector<int>& bands, int level, const KSROI* within,
                        int every = 1);

}  // namespace kscli
