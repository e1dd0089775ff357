// What a raster says about itself in its own format's words, before it becomes the library's metadata.
// raster.cpp gathers the facts, import.cpp turns them into lists; neither needs to know the other's job.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kshost {

using Items = std::vector<std::pair<std::string, std::string>>;

/// Where an image lies and which value marks missing samples.
struct Georeference {
    std::optional<std::array<double, 6>> transform;  // GDAL's order; absent when the image has none
    std::string wkt;                                 // coordinate system; empty when the image has none
    std::map<int, double> noData;                    // by channel, from 1
};

struct RasterFacts {
    int width = 0;
    int height = 0;
    int channels = 0;
    std::vector<int> channelTypes;  // boundary types 1, 2, 3, 4 and up; one per channel
    std::string driver;             // "ENVI", "GTiff", "netCDF", ...
    std::string interleave;         // "BIP", "BIL", "BSQ" or empty
    std::string sampleType;         // of channel 1, GDAL's name
    bool bigEndian = false;
    std::string headerPath;              // the .hdr beside an ENVI image, else empty
    std::string headerText;              // its bytes, else a text that changes when the image's description changes
    Items fileItems;                     // GDAL's default-domain items of the image
    std::vector<Items> bandItems;        // of each channel
    std::vector<std::string> bandNames;  // channel descriptions; empty texts where there are none
    // Band axes of formats that keep them as arrays (netCDF, HDF5); empty, or one value per channel.
    std::vector<double> wavelengths;
    std::string wavelengthUnit;
    std::vector<double> fwhm;
    std::vector<bool> good;
    // Scale and offset that GDAL reports for each channel; empty, or one per channel.
    std::vector<double> scales;
    std::vector<double> offsets;
    Georeference georeference;
    std::vector<int> defaultChannels;  // that the image names for display, from 1: none, one (grey) or three
    std::vector<std::string> remarks;  // what opening the raster had to guess or ignore
};

}  // namespace kshost
