// The makers of rasters, one for each way that the host reads and writes, and what they share. Internal to the raster
// sources; the rest of the host sees raster.hpp.
#pragma once

#include <gdal_priv.h>

#include <memory>
#include <string>
#include <vector>

#include "enviheader.hpp"
#include "raster.hpp"
#include "rawcube.hpp"

namespace kshost {

/// Collects what GDAL has to say while it lives, in place of its own printing.
class GdalMessages {
public:
    GdalMessages();
    ~GdalMessages();
    GdalMessages(const GdalMessages&) = delete;
    GdalMessages& operator=(const GdalMessages&) = delete;
    /// The failures, or `otherwise` when there were none.
    std::string text(const std::string& otherwise) const;

private:
    static void CPL_STDCALL collect(CPLErr kind, CPLErrorNum number, const char* text);
    std::vector<std::string> failures_;
};

using GdalDataset = std::unique_ptr<GDALDataset, GDALDatasetUniquePtrDeleter>;

/// A raster whose samples are read and written by our own reader.
class RawRaster : public Raster {
public:
    RawRaster(RasterFacts facts, RawLayout layout, bool writable);
    std::string read(const Transfer& transfer, float* buffer) override { return cube_.read(transfer, buffer); }
    std::string write(const Transfer& transfer, const float* buffer) override { return cube_.write(transfer, buffer); }
    std::string flush() override { return cube_.flush(); }

private:
    RawCube cube_;
};

/// Where the header of an ENVI image may lie, the surest first.
std::vector<std::string> enviHeaderNames(const std::string& path);
/// The header beside an ENVI image, or an empty text.
std::string findEnviHeader(const std::string& path);
/// Sizes, sample type and order of an ENVI header; throws with what is wrong. True when our own reader can take the
/// samples; complex and compressed ones go through GDAL.
bool readEnviLayout(const EnviHeader& header, RawLayout& layout, RasterFacts& facts);
std::unique_ptr<Raster> openEnvi(const std::string& path, const std::string& header, bool writable, std::string& why);
std::unique_ptr<Raster> createEnvi(const std::string& path, int width, int height, int channels, int type,
                                   std::string& why);

/// By the one GDAL driver that the file's content calls for: others may take it for what lies beside it. `header` is
/// the ENVI header that an image of that format was found with, else null.
struct HeaderFile {
    std::string path;
    std::string text;
};
std::unique_ptr<Raster> openGdal(const std::string& path, const char* driver, bool writable, const HeaderFile* header,
                                 std::string& why);
std::unique_ptr<Raster> createGeoTiff(const std::string& path, int width, int height, int channels, int type,
                                      std::string& why);

/// A cube of a netCDF or HDF5 file; `variable` empty for the largest.
std::unique_ptr<Raster> openMultidim(const std::string& path, const std::string& variable, bool netcdfFirst,
                                     std::string& why);

/// Everything that GDAL's classic interface knows about an image, but for the sizes and types of its layout.
void gatherItems(GDALDataset& dataset, RasterFacts& facts);
/// Size, sample type and channel types of GDAL's classic interface.
void gatherStructure(GDALDataset& dataset, RasterFacts& facts);
/// A text that changes when the description of the image changes, for formats without a header file.
std::string describeFacts(const RasterFacts& facts);

/// A coordinate system as text, in the older notation that every program reads where that can say it.
std::string wktOf(const OGRSpatialReference& system);

/// The channel type of the boundary for a sample type.
int channelTypeOf(GDALDataType type);
/// Our sample type of a GDAL type; false for complex and unknown ones.
bool sampleTypeOf(GDALDataType type, SampleType& sample);

/// The bytes of a file, or false with a reason.
bool readWholeFile(const std::string& path, std::string& bytes, std::string& why);
/// Puts a file in the place of another, whole or not at all, and on the disk.
std::string replaceFile(const std::string& path, const std::string& bytes);
/// Several files that belong together: all are written whole before the first takes its place, in the given order. When
/// they are `fresh`, none may exist, and those that took their place go away again when a later one fails.
struct NewFile {
    std::string path;
    std::string bytes;
};
std::string placeFiles(const std::vector<NewFile>& files, bool fresh);
/// True when a file begins as the images that are told by their first bytes.
bool hasImageSignature(const std::string& path);
bool pathExists(const std::string& path);
/// The path with the extension of its last part replaced, or added.
std::string withExtension(const std::string& path, const std::string& extension);

}  // namespace kshost
