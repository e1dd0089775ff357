// The channels of one image. Raw binary layouts are read and written by our own pread and pwrite (rawcube.cpp),
// everything else through GDAL in full block rows (raster.cpp), multi-dimensional files through GDAL's multidimensional
// interface.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "facts.hpp"
#include "stringlist.hpp"

namespace kshost {

/// A rectangle of several channels and the pixel-interleaved buffer that it is reduced to (reading) or comes from.
struct Transfer {
    int xOff, yOff, width, height;
    int bufWidth, bufHeight;
    std::vector<int> channels;   // from 1, any order, repeats allowed
    std::vector<float> missing;  // what a NaN becomes in an integer channel, one for each of `channels`; empty: 0

    /// The image's column (line) of the buffer's i-th: the first pixel of each cell.
    std::int64_t column(std::int64_t i) const { return xOff + (i * width) / bufWidth; }
    std::int64_t line(std::int64_t i) const { return yOff + (i * height) / bufHeight; }
    bool everyColumn() const { return bufWidth == width; }
    bool everyLine() const { return bufHeight == height; }
};

class Raster {
public:
    virtual ~Raster() = default;
    const RasterFacts& facts() const { return facts_; }

    /// Both return an empty text on success, else what went wrong. The rectangle and channels have been checked.
    virtual std::string read(const Transfer& transfer, float* buffer) = 0;
    virtual std::string write(const Transfer& transfer, const float* buffer) = 0;

    /// Writes what other programs should see of an image that the host created: wavelengths, widths, bad bands, gains,
    /// place. Replaces a header file whole and atomically. Empty text on success.
    virtual std::string describe(const StringList& fileList, const std::vector<StringList>& channelLists,
                                 const Georeference& georeference);
    /// Brings written samples to the disk.
    virtual std::string flush() { return {}; }

protected:
    RasterFacts facts_;
};

/// Makes exactly the formats of our own choice known to GDAL; idempotent.
void registerFormats();

/// Opens an image; null with a reason in `why`.
std::unique_ptr<Raster> openRaster(const std::string& name, bool writable, std::string& why);

/// Creates an image of one sample type (1 uint8, 2 int16, 3 uint16, 4 float32): GeoTIFF for .tif and .tiff, else ENVI
/// BIP with a .hdr. Refuses a name whose image or header exists and leaves nothing behind on failure.
std::unique_ptr<Raster> createRaster(const std::string& name, int width, int height, int channels, int type,
                                     std::string& why);

/// The file behind a name: the name itself, or PATH of NETCDF:"PATH":variable and HDF5:"PATH"://variable. Absolute, so
/// that it stays the same file when the program changes its folder.
std::string fileOfName(const std::string& name);
/// The sidecar's path of an image name, absolute too.
std::string sidecarPath(const std::string& name);

}  // namespace kshost
