// Images of every kind that the host opens and makes: what they say about themselves, their samples, and bad files.
#include <gdal_priv.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <raster.hpp>

#include <cmath>
#include <cstring>
#include <fstream>
#include <numeric>
#include <random>
#include <sstream>

#include "hostkit.hpp"

using kshost::Georeference;
using kshost::Raster;
using kshost::RasterFacts;
using kshost::StringList;
using kshost::Transfer;

namespace {

std::unique_ptr<Raster> opened(const std::string& name, bool writable = false) {
    std::string why;
    auto raster = kshost::openRaster(name, writable, why);
    EXPECT_NE(nullptr, raster) << why;
    return raster;
}

std::string whyNot(const std::string& name) {
    std::string why;
    EXPECT_EQ(nullptr, kshost::openRaster(name, false, why));
    EXPECT_NE("", why);
    return why;
}

std::vector<int> firstChannels(int count) {
    std::vector<int> channels(static_cast<std::size_t>(count));
    std::iota(channels.begin(), channels.end(), 1);
    return channels;
}

Transfer whole(const RasterFacts& f) {
    return {0, 0, f.width, f.height, f.width, f.height, firstChannels(f.channels), {}};
}

std::vector<float> readAll(Raster& raster) {
    const RasterFacts& f = raster.facts();
    std::vector<float> samples(static_cast<std::size_t>(f.width) * static_cast<std::size_t>(f.height) *
                               static_cast<std::size_t>(f.channels));
    EXPECT_EQ("", raster.read(whole(f), samples.data()));
    return samples;
}

std::string enviHeader(int samples, int lines, int bands, int type, const std::string& interleave, int order = 0,
                       const std::string& more = "") {
    return "ENVI\nsamples = " + std::to_string(samples) + "\nlines = " + std::to_string(lines) +
           "\nbands = " + std::to_string(bands) +
           "\nheader offset = 0\nfile type = ENVI Standard\ndata type = " + std::to_string(type) +
           "\ninterleave = " + interleave + "\nbyte order = " + std::to_string(order) + "\n" + more;
}

using DatasetPtr = std::unique_ptr<GDALDataset>;

// A GeoTIFF written by GDAL itself, with a known sample everywhere.
double sampleAt(int x, int y, int band) { return (x * 7 + y * 13 + band * 101) % 251; }

void makeTiff(const std::string& path, int width, int height, int bands, GDALDataType type,
              const std::vector<const char*>& options, bool signedBytes = false) {
    kshost::registerFormats();
    std::vector<const char*> list = options;
    list.push_back(nullptr);
    const DatasetPtr image(GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
        path.c_str(), width, height, bands, type, const_cast<char**>(list.data())));
    ASSERT_NE(nullptr, image);
    for (int b = 1; b <= bands; ++b) {
        std::vector<double> samples;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) samples.push_back(sampleAt(x, y, b) - (signedBytes ? 125 : 0));
        if (signedBytes) {
            std::vector<signed char> bytes(samples.begin(), samples.end());
            ASSERT_EQ(CE_None, image->GetRasterBand(b)->RasterIO(GF_Write, 0, 0, width, height, bytes.data(), width,
                                                                 height, GDT_Byte, 0, 0, nullptr));
        } else {
            ASSERT_EQ(CE_None, image->GetRasterBand(b)->RasterIO(GF_Write, 0, 0, width, height, samples.data(), width,
                                                                 height, GDT_Float64, 0, 0, nullptr));
        }
    }
}

void expectKnownSamples(Raster& raster, double shift = 0) {
    const RasterFacts& f = raster.facts();
    std::mt19937 random(3);
    for (int round = 0; round < 20; ++round) {
        const auto pick = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
        Transfer t{};
        t.xOff = pick(0, f.width - 1);
        t.yOff = pick(0, f.height - 1);
        t.width = pick(1, f.width - t.xOff);
        t.height = pick(1, f.height - t.yOff);
        t.bufWidth = round % 2 == 0 ? t.width : pick(1, t.width);
        t.bufHeight = round % 2 == 0 ? t.height : pick(1, t.height);
        for (int i = pick(1, f.channels + 2); i > 0; --i) t.channels.push_back(pick(1, f.channels));
        std::vector<float> samples(static_cast<std::size_t>(t.bufWidth) * static_cast<std::size_t>(t.bufHeight) *
                                   t.channels.size());
        ASSERT_EQ("", raster.read(t, samples.data()));
        std::size_t i = 0;
        for (int row = 0; row < t.bufHeight; ++row)
            for (int column = 0; column < t.bufWidth; ++column)
                for (const int channel : t.channels) {
                    const int x = t.xOff + column * t.width / t.bufWidth;
                    const int y = t.yOff + row * t.height / t.bufHeight;
                    ASSERT_EQ(static_cast<float>(sampleAt(x, y, channel) - shift), samples[i++])
                        << x << "," << y << "," << channel;
                }
    }
}

// ---- ENVI ----

TEST(EnviImage, EverySampleTypeHasItsChannelTypeAndItsValues) {
    hosttest::TemporaryFolder folder;
    const std::string path = folder / "cube.img";
    const std::vector<std::tuple<int, std::size_t, int, std::string>> types = {
        {1, 1, 1, "Byte"},    {2, 2, 2, "Int16"},   {3, 4, 4, "Int32"},  {4, 4, 4, "Float32"}, {5, 8, 4, "Float64"},
        {12, 2, 3, "UInt16"}, {13, 4, 4, "UInt32"}, {14, 8, 4, "Int64"}, {15, 8, 4, "UInt64"}};
    for (const auto& [code, size, channelType, name] : types)
        for (const int order : {0, 1}) {
            hosttest::write(folder / "cube.hdr", enviHeader(2, 1, 1, code, "bsq", order));
            // The values 1 and 200 in the type's own bytes.
            std::string bytes;
            for (const double value : {1.0, 100.0}) {
                char word[8] = {};
                if (code == 4) {
                    const auto real = static_cast<float>(value);
                    std::memcpy(word, &real, 4);
                } else if (code == 5) {
                    std::memcpy(word, &value, 8);
                } else {
                    word[0] = static_cast<char>(value);
                }
                std::string sample(word, size);
                if (order == 1) std::reverse(sample.begin(), sample.end());
                bytes += sample;
            }
            hosttest::write(path, bytes);
            const auto raster = opened(path);
            ASSERT_NE(nullptr, raster);
            EXPECT_EQ(std::vector<int>{channelType}, raster->facts().channelTypes) << code;
            EXPECT_EQ(name, raster->facts().sampleType);
            EXPECT_EQ(order == 1, raster->facts().bigEndian);
            EXPECT_EQ((std::vector<float>{1, 100}), readAll(*raster)) << code;
        }
}

TEST(EnviImage, ComplexSamplesGiveTheirRealPart) {
    hosttest::TemporaryFolder folder;
    const std::string path = folder / "cube.img";
    hosttest::write(folder / "cube.hdr", enviHeader(1, 2, 1, 6, "bsq"));
    const float samples[4] = {1.5F, -9, 2.5F, -9};
    hosttest::write(path, std::string(reinterpret_cast<const char*>(samples), sizeof samples));
    const auto raster = opened(path);
    ASSERT_NE(nullptr, raster);
    EXPECT_EQ((std::vector<float>{1.5F, 2.5F}), readAll(*raster));
    ASSERT_EQ(1U, raster->facts().remarks.size());
    EXPECT_EQ(folder / "cube.hdr", raster->facts().headerPath);
}

TEST(EnviImage, SaysWhatItsHeaderSays) {
    hosttest::TemporaryFolder folder;
    const std::string header =
        enviHeader(3, 2, 2, 12, "bil", 1,
                   "wavelength units = Nanometers\nwavelength = {400.5, 500}\ndefault bands = {2}\n"
                   "data ignore value = 9\ndata gain values = {0.5, 0.25}\n"
                   "map info = {UTM, 1, 1, 500000, 4000000, 30, 30, 33, North, WGS-84}\n");
    hosttest::write(folder / "a.b.hdr", header);
    hosttest::write(folder / "a.b.raw", std::string(24, '\0'));
    const auto raster = opened(folder / "a.b.raw");
    ASSERT_NE(nullptr, raster);
    const RasterFacts& f = raster->facts();
    EXPECT_EQ("ENVI", f.driver);
    EXPECT_EQ(3, f.width);
    EXPECT_EQ(2, f.height);
    EXPECT_EQ(2, f.channels);
    EXPECT_EQ("BIL", f.interleave);
    EXPECT_TRUE(f.bigEndian);
    EXPECT_EQ(folder / "a.b.hdr", f.headerPath);
    EXPECT_EQ(header, f.headerText);
    EXPECT_EQ((std::vector<int>{2}), f.defaultChannels);
    EXPECT_EQ((std::vector<double>{0.5, 0.25}), f.scales);
    EXPECT_EQ((std::map<int, double>{{1, 9}, {2, 9}}), f.georeference.noData);
    ASSERT_TRUE(f.georeference.transform.has_value());
    EXPECT_EQ((std::array<double, 6>{500000, 30, 0, 4000000, 0, -30}), *f.georeference.transform);
    EXPECT_NE(std::string::npos, f.georeference.wkt.find("Transverse_Mercator"));
    ASSERT_EQ(2U, f.bandItems.size());
    EXPECT_NE(f.bandItems[0].end(), std::find(f.bandItems[0].begin(), f.bandItems[0].end(),
                                              std::pair<std::string, std::string>("wavelength", "400.5")));
    EXPECT_TRUE(f.remarks.empty());
}

TEST(EnviImage, TheHeaderMayBearTheWholeName) {
    hosttest::TemporaryFolder folder;
    hosttest::write(folder / "cube.v1.hdr", enviHeader(1, 1, 1, 1, "bip"));
    hosttest::write(folder / "cube.v1", "a");
    EXPECT_EQ((std::vector<float>{97}), readAll(*opened(folder / "cube.v1")));
}

TEST(EnviImage, ManyBandsOfAWideImageAreNoObstacle) {
    hosttest::TemporaryFolder folder;
    // Pixel-interleaved and wide: one line of all bands is 32 MB, which some readers hold once for every band.
    hosttest::write(folder / "wide.hdr", enviHeader(8000, 3, 2000, 12, "bip"));
    hosttest::write(folder / "wide.img", "x");
    ASSERT_EQ(0, truncate((folder / "wide.img").c_str(), 8000LL * 3 * 2000 * 2));
    const auto raster = opened(folder / "wide.img");
    ASSERT_NE(nullptr, raster);
    EXPECT_EQ(2000, raster->facts().channels);
    float first = 0;
    EXPECT_EQ("", raster->read({0, 0, 1, 1, 1, 1, {1}, {}}, &first));
    EXPECT_EQ(static_cast<float>('x'), first);
}

TEST(EnviImage, AShortFileIsRemarkedAndWhatIsMissingFails) {
    hosttest::TemporaryFolder folder;
    hosttest::write(folder / "cube.hdr", enviHeader(100, 100, 300, 2, "bip"));
    hosttest::write(folder / "cube.img", std::string(60000, '\1'));
    const auto raster = opened(folder / "cube.img");
    ASSERT_NE(nullptr, raster);
    ASSERT_EQ(1U, raster->facts().remarks.size());
    EXPECT_NE(std::string::npos, raster->facts().remarks[0].find("60000 bytes where it should have 6000000"));
    std::vector<float> line(100 * 300);
    EXPECT_EQ("", raster->read({0, 0, 100, 1, 100, 1, firstChannels(300), {}}, line.data()));
    EXPECT_EQ(257.0F, line.back());
    EXPECT_NE(std::string::npos,
              raster->read({0, 1, 100, 1, 100, 1, firstChannels(300), {}}, line.data()).find("it should have 6000000"));
}

TEST(EnviImage, BadHeadersHaveReasons) {
    hosttest::TemporaryFolder folder;
    const std::string path = folder / "cube.img";
    hosttest::write(path, std::string(100, 'a'));
    const auto why = [&](const std::string& header) {
        hosttest::write(folder / "cube.hdr", header);
        return whyNot(path);
    };
    EXPECT_NE(std::string::npos, why("ENVI\n").find("no \"samples\""));
    EXPECT_NE(std::string::npos, why(enviHeader(0, 1, 1, 1, "bip")).find("samples = 0"));
    EXPECT_NE(std::string::npos, why(enviHeader(-5, 1, 1, 1, "bip")).find("samples = -5"));
    EXPECT_NE(std::string::npos, why(enviHeader(1, 1, 0, 1, "bip")).find("bands = 0"));
    EXPECT_NE(std::string::npos, why(enviHeader(1, 1, 1, 77, "bip")).find("data type = 77"));
    EXPECT_NE(std::string::npos, why(enviHeader(1, 1, 1, 1, "zigzag")).find("interleave = zigzag"));
    EXPECT_NE(std::string::npos, why(enviHeader(2147483647, 2147483647, 3, 5, "bip")).find("larger than a file"));
    EXPECT_NE(std::string::npos, why(enviHeader(1, 1, 2147483647, 1, "bip")).find("bands = 2147483647"));
    hosttest::write(folder / "cube.hdr", enviHeader(2147483647, 2147483647, 1, 1, "bsq"));
    // A file could be that large: it opens, and is short.
    const auto huge = opened(path);
    ASSERT_NE(nullptr, huge);
    EXPECT_EQ(1U, huge->facts().remarks.size());
    float sample = 0;
    EXPECT_NE("", huge->read({2147483646, 2147483646, 1, 1, 1, 1, {1}, {}}, &sample));
    EXPECT_EQ("", huge->read({99, 0, 1, 1, 1, 1, {1}, {}}, &sample));
    EXPECT_EQ(97.0F, sample);
}

TEST(EnviImage, AContradictingAuxiliaryFileIsRemarkedAndTheHeaderHolds) {
    hosttest::TemporaryFolder folder;
    hosttest::write(folder / "cube.hdr", enviHeader(1, 1, 2, 1, "bip", 0, "data ignore value = 7\n"));
    hosttest::write(folder / "cube.img", "ab");
    hosttest::write(folder / "cube.img.aux.xml",
                    "<PAMDataset><GeoTransform>1, 2, 0, 3, 0, -2</GeoTransform>"
                    "<PAMRasterBand band=\"1\"><NoDataValue>-1</NoDataValue></PAMRasterBand></PAMDataset>");
    const auto raster = opened(folder / "cube.img");
    ASSERT_NE(nullptr, raster);
    EXPECT_EQ((std::map<int, double>{{1, 7}, {2, 7}}), raster->facts().georeference.noData);
    ASSERT_TRUE(raster->facts().georeference.transform.has_value());
    EXPECT_EQ(2.0, (*raster->facts().georeference.transform)[1]);
    ASSERT_EQ(1U, raster->facts().remarks.size());
    EXPECT_NE(std::string::npos,
              raster->facts().remarks[0].find("no-data value -1 for channel 1 where the header has 7"));

    hosttest::write(folder / "cube.img.aux.xml", "<PAMDataset><PAMRasterBand band=\"3\"/></PAMDataset>");
    ASSERT_EQ(1U, opened(folder / "cube.img")->facts().remarks.size());
    hosttest::write(folder / "cube.img.aux.xml", "<PAMDa");
    ASSERT_EQ(1U, opened(folder / "cube.img")->facts().remarks.size());
}

TEST(EnviImage, WhatTheHeaderLeavesOpenIsGuessedAndSaid) {
    hosttest::TemporaryFolder folder;
    hosttest::write(folder / "cube.img", "abcdef");
    hosttest::write(
        folder / "cube.hdr",
        "ENVI\nSamples=3\nLINES = 1\nbands = 2\ndata type = 1\nheader offset =\nbyte order =\ninterleave =\n");
    const auto raster = opened(folder / "cube.img");
    ASSERT_NE(nullptr, raster);
    EXPECT_EQ("BSQ", raster->facts().interleave);
    ASSERT_EQ(1U, raster->facts().remarks.size());
    EXPECT_NE(std::string::npos, raster->facts().remarks[0].find("interleave"));
    EXPECT_EQ((std::vector<float>{'a', 'd', 'b', 'e', 'c', 'f'}), readAll(*raster));
}

TEST(EnviImage, OneHeaderBesideTwoImagesIsRemarked) {
    hosttest::TemporaryFolder folder;
    hosttest::write(folder / "a.hdr", enviHeader(3, 1, 2, 1, "bip"));
    hosttest::write(folder / "a.bip", "abcdef");
    hosttest::write(folder / "a.bil", "acebdf");
    EXPECT_TRUE(opened(folder / "a.bip")->facts().remarks.empty());
    const auto doubtful = opened(folder / "a.bil");
    ASSERT_EQ(1U, doubtful->facts().remarks.size());
    EXPECT_NE(std::string::npos, doubtful->facts().remarks[0].find("samples are bip and the name says bil"));
    // A header of the image's own name settles it.
    hosttest::write(folder / "a.bil.hdr", enviHeader(3, 1, 2, 1, "bil"));
    const auto sure = opened(folder / "a.bil");
    EXPECT_TRUE(sure->facts().remarks.empty());
    EXPECT_EQ((std::vector<float>{'a', 'b', 'c', 'd', 'e', 'f'}), readAll(*sure));
}

TEST(EnviImage, CompressedSamplesAreRead) {
    hosttest::TemporaryFolder folder;
    kshost::registerFormats();
    for (const char* interleave : {"bip", "bil", "bsq"}) {
        hosttest::write(folder / "cube.hdr", enviHeader(31, 17, 5, 12, interleave, 0, "file compression = 1\n"));
        std::vector<std::uint16_t> stored(31 * 17 * 5);
        const std::string order = interleave;
        for (std::size_t y = 0; y < 17; ++y)
            for (std::size_t x = 0; x < 31; ++x)
                for (std::size_t b = 0; b < 5; ++b) {
                    const std::size_t at = order == "bip"   ? (y * 31 + x) * 5 + b
                                           : order == "bil" ? (y * 5 + b) * 31 + x
                                                            : (b * 17 + y) * 31 + x;
                    stored[at] = static_cast<std::uint16_t>(
                        sampleAt(static_cast<int>(x), static_cast<int>(y), static_cast<int>(b) + 1));
                }
        VSILFILE* file = VSIFOpenL(("/vsigzip/" + (folder / "cube.img")).c_str(), "wb");
        ASSERT_NE(nullptr, file);
        VSIFWriteL(stored.data(), sizeof stored[0], stored.size(), file);
        VSIFCloseL(file);
        const auto raster = opened(folder / "cube.img");
        ASSERT_NE(nullptr, raster);
        EXPECT_EQ(5, raster->facts().channels);
        expectKnownSamples(*raster);
        std::string why;
        const auto writable = kshost::openRaster(folder / "cube.img", true, why);
        ASSERT_NE(nullptr, writable) << why;
        const float value = 1;
        EXPECT_NE("", writable->write({0, 0, 1, 1, 1, 1, {1}, {}}, &value));
        unlink((folder / "cube.img").c_str());
    }
}

// ---- files that are no images ----

TEST(OpenRaster, WhatIsNoImageHasAReason) {
    hosttest::TemporaryFolder folder;
    testing::internal::CaptureStderr();
    EXPECT_EQ("No such file or directory", whyNot(folder / "absent"));
    EXPECT_EQ("this is a folder", whyNot(folder.path()));
    EXPECT_EQ("the name is empty", whyNot(""));
    EXPECT_EQ("this is not a regular file", whyNot("/dev/null"));
    hosttest::write(folder / "empty.tif", "");
    EXPECT_EQ("the file is empty", whyNot(folder / "empty.tif"));
    hosttest::write(folder / "text.txt", "Hello\n");
    EXPECT_NE(std::string::npos, whyNot(folder / "text.txt").find("no image format known here"));
    hosttest::write(folder / "cube.hdr", enviHeader(1, 1, 1, 1, "bip"));
    EXPECT_NE(std::string::npos, whyNot(folder / "cube.hdr").find("this is a header"));
    hosttest::write(folder / "bad.tif", std::string("II*\0\x08\0\0\0", 8) + "garbage that is no directory");
    whyNot(folder / "bad.tif");
    hosttest::write(folder / "bad.png", "\x89PNG\r\n\x1a\n....");
    whyNot(folder / "bad.png");
    hosttest::write(folder / "bad.h5", "\x89HDF\r\n\x1a\n....");
    whyNot(folder / "bad.h5");
    hosttest::write(folder / "bad.nc", "CDF\x01....");
    whyNot(folder / "bad.nc");
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

TEST(OpenRaster, AnUnreadableFileHasAReason) {
    hosttest::TemporaryFolder folder;
    hosttest::write(folder / "cube.hdr", enviHeader(1, 1, 1, 1, "bip"));
    hosttest::write(folder / "cube.img", "a");
    ASSERT_EQ(0, chmod((folder / "cube.img").c_str(), 0));
    ASSERT_EQ(0, chmod(folder.path().c_str(), 0755));
    // Root reads everything: the check runs as somebody else in a process of its own.
    const pid_t child = fork();
    if (child == 0) {
        if (geteuid() == 0 && seteuid(65534) != 0) _exit(2);
        std::string why;
        const bool refused = kshost::openRaster(folder / "cube.img", false, why) == nullptr;
        _exit(refused && why == "Permission denied" ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST(OpenRaster, AHeaderOfNoUseIsNamed) {
    hosttest::TemporaryFolder folder;
    hosttest::write(folder / "cube.img", "a");
    for (const char* header : {"", "samples = 1\n"}) {
        hosttest::write(folder / "cube.hdr", header);
        EXPECT_NE(std::string::npos, whyNot(folder / "cube.img").find("cube.hdr is no ENVI header"));
    }
    hosttest::write(folder / "cube.hdr", enviHeader(1, 1, 1, 1, "bip"));
    ASSERT_EQ(0, chmod((folder / "cube.hdr").c_str(), 0));
    ASSERT_EQ(0, chmod(folder.path().c_str(), 0755));
    EXPECT_TRUE(hosttest::succeeded(hosttest::asNobody([&] {
        std::string why;
        const bool refused = kshost::openRaster(folder / "cube.img", false, why) == nullptr;
        return refused && why.find("cube.hdr: Permission denied") != std::string::npos ? 0 : 1;
    })));
}

TEST(OpenRaster, NoOtherFormatsAreKnown) {
    kshost::registerFormats();
    std::vector<std::string> names;
    for (int i = 0; i < GetGDALDriverManager()->GetDriverCount(); ++i)
        names.emplace_back(GetGDALDriverManager()->GetDriver(i)->GetDescription());
    std::sort(names.begin(), names.end());
    EXPECT_EQ((std::vector<std::string>{"CSV", "ENVI", "ESRI Shapefile", "GTiff", "GeoJSON", "HDF5", "HDF5Image", "MEM",
                                        "PNG", "VRT", "netCDF"}),
              names);
}

TEST(OpenRaster, NamesOfVariablesLeadToTheirFile) {
    EXPECT_EQ("/a/b.nc", kshost::fileOfName("NETCDF:\"/a/b.nc\":x"));
    EXPECT_EQ("/a/b.nc", kshost::fileOfName("netcdf:/a/b.nc:x"));
    EXPECT_EQ("/a/b.h5", kshost::fileOfName("HDF5:\"/a/b.h5\"://g/x"));
    EXPECT_EQ("/a/b.img", kshost::fileOfName("/a/b.img"));
    EXPECT_EQ("/a/b.img.ks", kshost::sidecarPath("/a/b.img"));
    EXPECT_EQ("/a/b.h5.g.x.ks", kshost::sidecarPath("HDF5:\"/a/b.h5\"://g/x"));
}

// ---- GeoTIFF and others ----

TEST(TiffImage, EveryLayoutReadsItsSamples) {
    hosttest::TemporaryFolder folder;
    const std::vector<std::vector<const char*>> layouts = {
        {"INTERLEAVE=PIXEL"},
        {"INTERLEAVE=BAND"},
        {"INTERLEAVE=PIXEL", "BLOCKYSIZE=7"},
        {"INTERLEAVE=BAND", "BLOCKYSIZE=5", "ENDIANNESS=BIG"},
        {"INTERLEAVE=PIXEL", "TILED=YES", "BLOCKXSIZE=32", "BLOCKYSIZE=16"},
        {"INTERLEAVE=BAND", "TILED=YES", "BLOCKXSIZE=16", "BLOCKYSIZE=32", "COMPRESS=DEFLATE"},
        {"INTERLEAVE=PIXEL", "COMPRESS=LZW", "BIGTIFF=YES"}};
    for (std::size_t i = 0; i < layouts.size(); ++i)
        for (const GDALDataType type : {GDT_Byte, GDT_Int16, GDT_UInt16, GDT_Float32, GDT_Float64, GDT_Int32}) {
            const std::string path = folder / ("t" + std::to_string(i) + GDALGetDataTypeName(type) + ".tif");
            makeTiff(path, 75, 43, 6, type, layouts[i]);
            const auto raster = opened(path);
            ASSERT_NE(nullptr, raster);
            EXPECT_EQ("GTiff", raster->facts().driver);
            expectKnownSamples(*raster);
            const auto writable = opened(path, true);
            expectKnownSamples(*writable);
        }
}

TEST(TiffImage, ATruncatedFileFailsWhereItsSamplesAreMissing) {
    hosttest::TemporaryFolder folder;
    for (const char* compression : {"COMPRESS=NONE", "COMPRESS=DEFLATE"}) {
        const std::string path = folder / "short.tif";
        makeTiff(path, 300, 200, 3, GDT_UInt16, {compression, "BLOCKYSIZE=1"});
        // The directory comes first, the samples after it.
        const auto length = static_cast<off_t>(std::filesystem::file_size(path));
        ASSERT_EQ(0, truncate(path.c_str(), length * 3 / 4));
        const auto raster = opened(path);
        ASSERT_NE(nullptr, raster) << compression;
        std::vector<float> line(300);
        EXPECT_EQ("", raster->read({0, 0, 300, 1, 300, 1, {1}, {}}, line.data()));
        EXPECT_EQ(static_cast<float>(sampleAt(299, 0, 1)), line.back());
        EXPECT_NE("", raster->read({0, 199, 300, 1, 300, 1, {1}, {}}, line.data())) << compression;
        unlink(path.c_str());
    }
}

TEST(TiffImage, TilesReadLineByLineAreDecodedOnce) {
    hosttest::TemporaryFolder folder;
    const std::string path = folder / "tiles.tif";
    makeTiff(path, 300, 256, 40, GDT_UInt16, {"INTERLEAVE=PIXEL", "TILED=YES", "BLOCKXSIZE=128", "BLOCKYSIZE=128"});
    const auto raster = opened(path);
    ASSERT_NE(nullptr, raster);
    const long long before = hosttest::bytesRead();
    if (before < 0) GTEST_SKIP() << "this system does not count what is read";
    std::vector<float> line(300 * 40);
    for (int y = 0; y < 256; ++y)
        ASSERT_EQ("", raster->read({0, y, 300, 1, 300, 1, firstChannels(40), {}}, line.data()));
    const auto length = static_cast<long long>(std::filesystem::file_size(path));
    EXPECT_LT(hosttest::bytesRead() - before, length + length / 10);
}

TEST(TiffImage, BitsAndSignsThatRawBytesDoNotShow) {
    hosttest::TemporaryFolder folder;
    makeTiff(folder / "bits.tif", 20, 10, 2, GDT_UInt16, {"NBITS=12"});
    expectKnownSamples(*opened(folder / "bits.tif"));
    makeTiff(folder / "signed.tif", 20, 10, 2, GDT_Byte, {"PIXELTYPE=SIGNEDBYTE"}, true);
    const auto raster = opened(folder / "signed.tif");
    EXPECT_EQ((std::vector<int>{2, 2}), raster->facts().channelTypes);
    expectKnownSamples(*raster, 125);
}

TEST(TiffImage, SparseStripsReadAsGdalReadsThem) {
    hosttest::TemporaryFolder folder;
    kshost::registerFormats();
    const char* const options[] = {"SPARSE_OK=TRUE", "INTERLEAVE=PIXEL", nullptr};
    {
        const DatasetPtr image(GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
            (folder / "sparse.tif").c_str(), 500, 400, 3, GDT_UInt16, const_cast<char**>(options)));
        const std::vector<std::uint16_t> line(500, 77);
        ASSERT_EQ(CE_None,
                  image->GetRasterBand(2)->RasterIO(GF_Write, 0, 200, 500, 1, const_cast<std::uint16_t*>(line.data()),
                                                    500, 1, GDT_UInt16, 0, 0, nullptr));
    }
    const auto raster = opened(folder / "sparse.tif");
    ASSERT_NE(nullptr, raster);
    const std::vector<float> samples = readAll(*raster);
    EXPECT_EQ(77.0F, samples[(200 * 500 + 3) * 3 + 1]);
    EXPECT_EQ(77.0 * 500, std::accumulate(samples.begin(), samples.end(), 0.0));
}

TEST(TiffImage, WritingChangesSamplesAndOnlyThem) {
    hosttest::TemporaryFolder folder;
    for (const std::vector<const char*>& layout :
         {std::vector<const char*>{"INTERLEAVE=PIXEL"},
          {"INTERLEAVE=BAND"},
          {"INTERLEAVE=PIXEL", "TILED=YES", "BLOCKXSIZE=16", "BLOCKYSIZE=16"}}) {
        const std::string path = folder / ("w" + std::to_string(layout.size()) + layout[0] + ".tif");
        makeTiff(path, 40, 30, 3, GDT_UInt16, layout);
        const std::vector<float> values = {70000.0F, -3.0F, 2.5F, 3.5F, std::nanf(""), 8.4F};
        {
            const auto raster = opened(path, true);
            Transfer t{5, 6, 3, 1, 3, 1, {3, 1}, {9.0F, 11.0F}};
            ASSERT_EQ("", raster->write(t, values.data()));
            ASSERT_EQ("", raster->flush());
        }
        const auto raster = opened(path);
        std::vector<float> back(6);
        ASSERT_EQ("", raster->read({5, 6, 3, 1, 3, 1, {3, 1}, {}}, back.data()));
        EXPECT_EQ((std::vector<float>{65535, 0, 2, 4, 9, 8}), back);
        float neighbour = 0;
        ASSERT_EQ("", raster->read({5, 6, 1, 1, 1, 1, {2}, {}}, &neighbour));
        EXPECT_EQ(static_cast<float>(sampleAt(5, 6, 2)), neighbour);
    }
}

TEST(TiffImage, OpeningForWritingLeavesTheBytesAlone) {
    hosttest::TemporaryFolder folder;
    for (const char* compression : {"COMPRESS=NONE", "COMPRESS=DEFLATE"}) {
        const std::string path = folder / "same.tif";
        makeTiff(path, 40, 30, 3, GDT_UInt16, {compression});
        const std::string before = hosttest::contentsOf(path);
        { readAll(*opened(path, true)); }
        EXPECT_EQ(before, hosttest::contentsOf(path));
        unlink(path.c_str());
    }
    EXPECT_TRUE(folder.names().empty());
}

TEST(PngImage, IsReadAndNotWritten) {
    hosttest::TemporaryFolder folder;
    makeTiff(folder / "in.tif", 20, 10, 3, GDT_Byte, {"PHOTOMETRIC=RGB"});
    {
        const DatasetPtr in(GDALDataset::Open((folder / "in.tif").c_str()));
        const DatasetPtr out(GetGDALDriverManager()->GetDriverByName("PNG")->CreateCopy(
            (folder / "out.png").c_str(), in.get(), 0, nullptr, nullptr, nullptr));
    }
    unlink((folder / "out.png.aux.xml").c_str());
    const auto raster = opened(folder / "out.png", true);
    ASSERT_NE(nullptr, raster);
    expectKnownSamples(*raster);
    EXPECT_EQ((std::vector<int>{1, 2, 3}), raster->facts().defaultChannels);
    const float value = 1;
    EXPECT_EQ("PNG images cannot be written here", raster->write({0, 0, 1, 1, 1, 1, {1}, {}}, &value));
}

TEST(OpenRaster, TheHeaderOfANamesakeMakesNoRawCubeOfAnotherFormat) {
    hosttest::TemporaryFolder folder;
    makeTiff(folder / "scene.tif", 20, 10, 1, GDT_Byte, {});
    const DatasetPtr tiff(GDALDataset::Open((folder / "scene.tif").c_str()));
    hosttest::write(folder / "scene.hdr", enviHeader(20, 10, 2, 4, "bsq"));
    for (const std::string format : {"PNG", "VRT"}) {
        const std::string path = folder / ("scene." + format);
        DatasetPtr(GetGDALDriverManager()
                       ->GetDriverByName(format.c_str())
                       ->CreateCopy(path.c_str(), tiff.get(), 0, nullptr, nullptr, nullptr));
        const auto raster = opened(path);
        ASSERT_NE(nullptr, raster);
        EXPECT_EQ(format, raster->facts().driver);
        EXPECT_EQ(1, raster->facts().channels);
        expectKnownSamples(*raster);
    }
    EXPECT_EQ("GTiff", opened(folder / "scene.tif")->facts().driver);
}

// ---- making images ----

std::unique_ptr<Raster> created(const std::string& name, int width, int height, int channels, int type) {
    std::string why;
    auto raster = kshost::createRaster(name, width, height, channels, type, why);
    EXPECT_NE(nullptr, raster) << why;
    return raster;
}

TEST(CreateRaster, WhatIsWrittenIsReadByUsAndByGdal) {
    hosttest::TemporaryFolder folder;
    for (const char* name : {"a.img", "b", "c.tif", "d.TIFF"})
        for (const int type : {1, 2, 3, 4}) {
            const std::string path = folder / (std::to_string(type) + name);
            std::vector<float> values(7 * 5 * 3);
            std::iota(values.begin(), values.end(), type == 2 ? -50.0F : 0.0F);
            {
                const auto raster = created(path, 7, 5, 3, type);
                ASSERT_NE(nullptr, raster);
                EXPECT_EQ((std::vector<int>(3, type)), raster->facts().channelTypes);
                EXPECT_EQ("BIP", raster->facts().interleave);
                EXPECT_EQ(std::vector<float>(values.size(), 0.0F), readAll(*raster));
                ASSERT_EQ("", raster->write(whole(raster->facts()), values.data()));
                EXPECT_EQ(values, readAll(*raster));
                ASSERT_EQ("", raster->flush());
            }
            const auto again = opened(path);
            EXPECT_EQ(values, readAll(*again));
            EXPECT_EQ((std::vector<int>(3, type)), again->facts().channelTypes);
            const DatasetPtr image(GDALDataset::Open(path.c_str()));
            ASSERT_NE(nullptr, image);
            std::vector<float> seen(values.size());
            ASSERT_EQ(CE_None, image->RasterIO(GF_Read, 0, 0, 7, 5, seen.data(), 7, 5, GDT_Float32, 3, nullptr, 12, 84,
                                               4, nullptr));
            EXPECT_EQ(values, seen);
        }
}

TEST(CreateRaster, RefusesNamesThatAreTakenAndLeavesNothingBehind) {
    hosttest::TemporaryFolder folder;
    const auto refused = [&](const std::string& name, const std::string& reason, int channels = 1, int width = 1,
                             int height = 1) {
        std::string why;
        EXPECT_EQ(nullptr, kshost::createRaster(folder / name, width, height, channels, 4, why));
        EXPECT_NE(std::string::npos, why.find(reason)) << why;
    };
    for (const char* taken : {"a.img", "b.hdr", "c.img.hdr", "d.img.ks", "e.tif", "f.tif.ks"})
        hosttest::write(folder / taken, "x");
    const std::vector<std::string> before = folder.names();
    refused("a.img", "exists");
    refused("b.img", "b.hdr exists");
    refused("c.img", "c.img.hdr exists");
    refused("d.img", "d.img.ks exists");
    refused("e.tif", "exists");
    refused("f.tif", "f.tif.ks exists");
    refused("g.hdr", "header");
    refused("h.img", "at least one", 0);
    refused("i.img", "at least one", 1, -1);
    refused("j.img", "larger than a file can be", 100000, 2147483647, 2147483647);
    refused("o.img", "at most 100000", 2147483647);
    refused("k.img", "cannot make a file", 8, 2147483647, 134217728);
    refused("l.tif", "65535", 65536);
    refused("no-folder/m.img", "No such file");
    refused("no-folder/n.tif", "No such file");
    EXPECT_EQ(before, folder.names());
}

StringList listOf(std::vector<std::string> entries) { return StringList(std::move(entries)); }

TEST(CreateRaster, OtherProgramsSeeItsDescription) {
    hosttest::TemporaryFolder folder;
    Georeference place;
    place.transform = std::array<double, 6>{500000, 30, 0, 4000000, 0, -30};
    place.noData = {{1, -1.0}, {2, -1.0}};
    OGRSpatialReference system;
    ASSERT_EQ(OGRERR_NONE, system.importFromEPSG(32633));
    char* wkt = nullptr;
    system.exportToWkt(&wkt);
    place.wkt = wkt;
    CPLFree(wkt);
    const std::vector<StringList> channels = {
        listOf({"ResponseProfile_Type=gaussian", "ResponseProfile_Centre=400.500", "ResponseProfile_FWHM=5.000",
                "RadiometricTrans_Gain_1=0.500000", "RadiometricTrans_Offset_1=1.000000"}),
        listOf({"ResponseProfile_Type=gaussian", "ResponseProfile_Centre=500.250", "ResponseProfile_FWHM=6.000",
                "RadiometricTrans_Gain_1=0.250000", "RadiometricTrans_Offset_1=0.000000", "Quality=mask"})};
    for (const char* name : {"new.img", "new.tif"}) {
        const std::string path = folder / name;
        std::string described;
        {
            const auto raster = created(path, 4, 3, 2, 2);
            ASSERT_NE(nullptr, raster);
            ASSERT_EQ("", raster->describe(listOf({"NumberOfRadTrans=1"}), channels, place));
            described = raster->facts().headerText;
        }
        EXPECT_EQ(described, opened(path)->facts().headerText) << "a later open takes the description for another one";
        const DatasetPtr image(GDALDataset::Open(path.c_str()));
        ASSERT_NE(nullptr, image);
        GDALRasterBand* second = image->GetRasterBand(2);
        ASSERT_NE(nullptr, second->GetMetadataItem("wavelength")) << name;
        EXPECT_EQ(500.25, CPLAtof(second->GetMetadataItem("wavelength"))) << name;
        EXPECT_STREQ("Nanometers", second->GetMetadataItem("wavelength_units"));
        EXPECT_EQ(0.25, second->GetScale());
        EXPECT_EQ(1.0, image->GetRasterBand(1)->GetOffset());
        EXPECT_EQ(-1.0, second->GetNoDataValue());
        std::array<double, 6> transform{};
        ASSERT_EQ(CE_None, image->GetGeoTransform(transform.data()));
        EXPECT_EQ(*place.transform, transform);
        ASSERT_NE(nullptr, image->GetSpatialRef());
        EXPECT_NE(std::string::npos, std::string(image->GetSpatialRef()->GetName()).find("33N"));
    }
    EXPECT_EQ(3U, folder.names().size()) << "an image, its header, and a GeoTIFF";
}

TEST(CreateRaster, AHeaderThatCannotBeReplacedStaysWhole) {
    hosttest::TemporaryFolder folder;
    const auto raster = created(folder / "new.img", 1, 1, 1, 1);
    ASSERT_NE(nullptr, raster);
    // A folder in the place of the header: the rename fails.
    ASSERT_EQ(0, unlink((folder / "new.hdr").c_str()));
    ASSERT_EQ(0, mkdir((folder / "new.hdr").c_str(), 0755));
    EXPECT_NE("", raster->describe({}, std::vector<StringList>(1), {}));
    EXPECT_EQ(2U, folder.names().size());
}

// ---- real cubes ----

struct Known {
    const char* path;
    int channels;
};

class RealCube : public testing::TestWithParam<Known> {};

// Minimum and maximum of every band, from tables that were computed elsewhere.
TEST_P(RealCube, BandsHaveTheirKnownRange) {
    const char* data = std::getenv("KSLIB_DATA");
    if (data == nullptr) GTEST_SKIP() << "KSLIB_DATA is not set";
    const std::string path = std::string(data) + "/" + GetParam().path;
    const auto raster = opened(path);
    ASSERT_NE(nullptr, raster);
    const auto channels = static_cast<std::size_t>(GetParam().channels);
    ASSERT_EQ(GetParam().channels, raster->facts().channels);
    EXPECT_TRUE(raster->facts().remarks.empty());
    const std::vector<float> samples = readAll(*raster);
    std::ifstream table(path + ".statistics.csv");
    std::string line;
    ASSERT_TRUE(std::getline(table, line));
    std::vector<std::string> names;
    std::stringstream heads(line);
    for (std::string name; std::getline(heads, name, ',');) names.push_back(name);
    const auto columnOf = [&](const char* part) {
        const auto found =
            std::find_if(names.begin(), names.end(), [&](const std::string& n) { return n.rfind(part, 0) == 0; });
        return static_cast<std::size_t>(found - names.begin());
    };
    const std::size_t low = columnOf("min"), high = columnOf("max");
    ASSERT_LT(low, names.size());
    ASSERT_LT(high, names.size());
    std::size_t band = 0;
    for (; std::getline(table, line); ++band) {
        std::vector<std::string> cells;
        std::stringstream row(line);
        for (std::string cell; std::getline(row, cell, ',');) cells.push_back(cell);
        float least = samples[band], most = samples[band];
        for (std::size_t i = band; i < samples.size(); i += channels) {
            least = std::min(least, samples[i]);
            most = std::max(most, samples[i]);
        }
        ASSERT_EQ(static_cast<float>(std::atof(cells[low].c_str())), least) << band;
        ASSERT_EQ(static_cast<float>(std::atof(cells[high].c_str())), most) << band;
    }
    EXPECT_EQ(channels, band);
}

INSTANTIATE_TEST_SUITE_P(
    Real, RealCube,
    testing::Values(Known{"cube-aviris-jasper-ridge/jasperRidge2_R198.img", 198},
                    Known{"cube-enmap-potsdam/enmap_potsdam_128x64_int16.bip", 224},
                    Known{"cube-aviris-ng-cutouts/ang20140912t192359_corr_v1c_img_2580-2590_540-550.img", 432},
                    Known{"cube-aviris-ng-cutouts/ang20150420t182808_corr_v1e_img_4200-4210_70-80.img", 432}));

TEST(RealImages, TilesAndOddShapesOpen) {
    const char* data = std::getenv("KSLIB_DATA");
    if (data == nullptr) GTEST_SKIP() << "KSLIB_DATA is not set";
    const std::string root = data;
    // The tiles are parts of the cube, and must agree with it sample for sample.
    const auto cube = opened(root + "/cube-enmap-potsdam/enmap_potsdam_128x64_int16.bip");
    const auto tile = opened(root + "/cube-enmap-potsdam/tiles/enmap_potsdam_tile_128_128.tif");
    ASSERT_TRUE(cube && tile);
    ASSERT_TRUE(cube->facts().georeference.transform && tile->facts().georeference.transform);
    const auto& outer = *cube->facts().georeference.transform;
    const auto& inner = *tile->facts().georeference.transform;
    const int x = static_cast<int>(std::lround((inner[0] - outer[0]) / outer[1]));
    const int y = static_cast<int>(std::lround((inner[3] - outer[3]) / outer[5]));
    std::vector<float> part(32 * 32 * 224);
    ASSERT_EQ("", cube->read({x, y, 32, 32, 32, 32, firstChannels(224), {}}, part.data()));
    EXPECT_EQ(part, readAll(*tile));

    const auto pixel = opened(root + "/cube-aviris-ng-cutouts/f080702t01p00r08rdn_c_sc01_ort_img_123_456.img");
    ASSERT_NE(nullptr, pixel);
    EXPECT_EQ(224U, readAll(*pixel).size());
    const auto two = opened(root + "/pixels-prism-with-geometry/prm20231110t071521_obs_two_px");
    ASSERT_NE(nullptr, two);
    EXPECT_EQ(11, two->facts().channels);
    EXPECT_NEAR(41.0, readAll(*two)[4], 0.1);
}

}  // namespace
