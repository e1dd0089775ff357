// Cubes in netCDF and HDF5 files: which array, which axes, which values.
#include <gdal_priv.h>
#include <raster.hpp>

#include <cmath>
#include <limits>
#include <numeric>
#include <random>

#include "hostkit.hpp"

using kshost::Raster;
using kshost::RasterFacts;
using kshost::Transfer;

namespace {

using Dimensions = std::vector<std::shared_ptr<GDALDimension>>;

std::shared_ptr<GDALMDArray> addArray(GDALGroup& group, const std::string& name, const Dimensions& dimensions,
                                      GDALDataType type, const std::vector<double>& values,
                                      const char* blocks = nullptr, const double* noData = nullptr) {
    CPLStringList options;
    if (blocks != nullptr) {
        options.SetNameValue("BLOCKSIZE", blocks);
        options.SetNameValue("COMPRESS", "DEFLATE");
    }
    auto array = group.CreateMDArray(name, dimensions, GDALExtendedDataType::Create(type), options.List());
    EXPECT_NE(nullptr, array);
    if (noData != nullptr) {
        EXPECT_TRUE(array->SetNoDataValue(*noData));
    }
    std::vector<GUInt64> start(dimensions.size(), 0);
    std::vector<std::size_t> count;
    for (const auto& dimension : dimensions) count.push_back(static_cast<std::size_t>(dimension->GetSize()));
    EXPECT_TRUE(array->Write(start.data(), count.data(), nullptr, nullptr, GDALExtendedDataType::Create(GDT_Float64),
                             values.data()));
    return array;
}

void setText(GDALMDArray& array, const char* name, const char* text) {
    auto attribute = array.CreateAttribute(name, {}, GDALExtendedDataType::CreateString());
    ASSERT_NE(nullptr, attribute);
    ASSERT_TRUE(attribute->Write(text));
}

double sampleAt(std::size_t x, std::size_t y, std::size_t band) {
    return static_cast<double>(x * 10000 + y * 100 + band);
}

struct Shape {
    std::string bandName, lineName, columnName;
    std::string order;  // of 'b', 'y', 'x'
    const char* blocks;
};

constexpr std::size_t kBands = 9, kLines = 14, kColumns = 11;

// A netCDF-4 file with one cube and a smaller one.
void makeFile(const std::string& path, const Shape& shape, GDALDataType type, bool wavelengths) {
    kshost::registerFormats();
    const std::unique_ptr<GDALDataset> file(
        GetGDALDriverManager()->GetDriverByName("netCDF")->CreateMultiDimensional(path.c_str(), nullptr, nullptr));
    ASSERT_NE(nullptr, file);
    const auto root = file->GetRootGroup();
    const auto band = root->CreateDimension(shape.bandName, "", "", kBands, nullptr);
    const auto line = root->CreateDimension(shape.lineName, "", "", kLines, nullptr);
    const auto column = root->CreateDimension(shape.columnName, "", "", kColumns, nullptr);
    Dimensions dimensions;
    std::vector<std::size_t> sizes;
    for (const char axis : shape.order) {
        dimensions.push_back(axis == 'b' ? band : axis == 'y' ? line : column);
        sizes.push_back(static_cast<std::size_t>(dimensions.back()->GetSize()));
    }
    std::vector<double> values;
    for (std::size_t i = 0; i < sizes[0]; ++i)
        for (std::size_t j = 0; j < sizes[1]; ++j)
            for (std::size_t k = 0; k < sizes[2]; ++k) {
                const std::size_t at[3] = {i, j, k};
                values.push_back(
                    sampleAt(at[shape.order.find('x')], at[shape.order.find('y')], at[shape.order.find('b')]));
            }
    const double noData = -9999.0;
    const auto cube = addArray(*root, "radiance", dimensions, type, values, shape.blocks, &noData);
    setText(*cube, "long_name", "At-sensor radiance");
    addArray(*root, "mask", {line, column}, GDT_Byte, std::vector<double>(kLines * kColumns, 3.0));
    if (!wavelengths) return;
    const auto group = root->CreateGroup("sensor_band_parameters");
    std::vector<double> centres(kBands), widths(kBands, 7.5), good(kBands, 1.0);
    for (std::size_t b = 0; b < kBands; ++b) centres[b] = 400.0 + 10.0 * static_cast<double>(b);
    good[3] = 0.0;
    const auto list = addArray(*group, "wavelengths", {band}, GDT_Float64, centres);
    setText(*list, "units", "nm");
    addArray(*group, "fwhm", {band}, GDT_Float64, widths);
    addArray(*group, "good_wavelengths", {band}, GDT_Byte, good);
}

std::unique_ptr<Raster> opened(const std::string& name) {
    std::string why;
    auto raster = kshost::openRaster(name, false, why);
    EXPECT_NE(nullptr, raster) << why;
    return raster;
}

void expectKnownSamples(Raster& raster) {
    const RasterFacts& f = raster.facts();
    std::mt19937 random(11);
    const auto pick = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
    for (int round = 0; round < 20; ++round) {
        Transfer t{};
        t.xOff = pick(0, f.width - 1);
        t.yOff = pick(0, f.height - 1);
        t.width = pick(1, f.width - t.xOff);
        t.height = pick(1, f.height - t.yOff);
        t.bufWidth = round % 2 == 0 ? t.width : pick(1, t.width);
        t.bufHeight = round % 2 == 0 ? t.height : pick(1, t.height);
        for (int i = pick(1, f.channels + 2); i > 0; --i) t.channels.push_back(pick(1, f.channels));
        std::vector<float> samples(static_cast<std::size_t>(t.bufWidth * t.bufHeight) * t.channels.size());
        ASSERT_EQ("", raster.read(t, samples.data()));
        std::size_t i = 0;
        for (int row = 0; row < t.bufHeight; ++row)
            for (int column = 0; column < t.bufWidth; ++column)
                for (const int channel : t.channels)
                    ASSERT_EQ(
                        static_cast<float>(sampleAt(static_cast<std::size_t>(t.xOff + column * t.width / t.bufWidth),
                                                    static_cast<std::size_t>(t.yOff + row * t.height / t.bufHeight),
                                                    static_cast<std::size_t>(channel - 1))),
                        samples[i++]);
    }
}

TEST(Multidim, AxesAreFoundByNameInAnyOrder) {
    hosttest::TemporaryFolder folder;
    int number = 0;
    for (const Shape& shape :
         {Shape{"bands", "downtrack", "crosstrack", "yxb", nullptr}, Shape{"wavelength", "y", "x", "byx", nullptr},
          Shape{"nChannels", "along", "across", "ybx", nullptr},
          Shape{"bands", "downtrack", "crosstrack", "yxb", "4,4,2"},
          Shape{"bands", "downtrack", "crosstrack", "byx", "2,5,4"}})
        for (const GDALDataType type : {GDT_Float32, GDT_Float64, GDT_Int32}) {
            const std::string path = folder / (std::to_string(number++) + ".nc");
            makeFile(path, shape, type, true);
            const auto raster = opened(path);
            ASSERT_NE(nullptr, raster);
            const RasterFacts& f = raster->facts();
            EXPECT_EQ(static_cast<int>(kColumns), f.width);
            EXPECT_EQ(static_cast<int>(kLines), f.height);
            EXPECT_EQ(static_cast<int>(kBands), f.channels);
            EXPECT_EQ(shape.order[0] == 'b' ? "BSQ" : shape.order[1] == 'b' ? "BIL" : "BIP", f.interleave);
            EXPECT_TRUE(f.remarks.empty());
            expectKnownSamples(*raster);
        }
}

TEST(Multidim, BandListsAndAttributesAreFound) {
    hosttest::TemporaryFolder folder;
    makeFile(folder / "cube.nc", {"bands", "downtrack", "crosstrack", "yxb", nullptr}, GDT_Float32, true);
    const auto raster = opened(folder / "cube.nc");
    ASSERT_NE(nullptr, raster);
    const RasterFacts& f = raster->facts();
    EXPECT_EQ("netCDF", f.driver);
    ASSERT_EQ(kBands, f.wavelengths.size());
    EXPECT_EQ(480.0, f.wavelengths.back());
    EXPECT_EQ("nm", f.wavelengthUnit);
    EXPECT_EQ(std::vector<double>(kBands, 7.5), f.fwhm);
    ASSERT_EQ(kBands, f.good.size());
    EXPECT_FALSE(f.good[3]);
    EXPECT_TRUE(f.good[4]);
    EXPECT_EQ(kBands, f.georeference.noData.size());
    EXPECT_EQ(-9999.0, f.georeference.noData.at(1));
    EXPECT_NE(f.fileItems.end(), std::find(f.fileItems.begin(), f.fileItems.end(),
                                           std::pair<std::string, std::string>("long_name", "At-sensor radiance")));
    EXPECT_NE("", f.headerText);
}

TEST(Multidim, AnAxisOfTheWavelengthsLengthIsTheSpectralOne) {
    hosttest::TemporaryFolder folder;
    makeFile(folder / "cube.nc", {"d2", "d0", "d1", "yxb", nullptr}, GDT_Float32, true);
    const auto raster = opened(folder / "cube.nc");
    EXPECT_EQ(static_cast<int>(kBands), raster->facts().channels);
    expectKnownSamples(*raster);
    makeFile(folder / "bare.nc", {"d0", "d1", "d2", "byx", nullptr}, GDT_Float32, false);
    const auto bare = opened(folder / "bare.nc");
    EXPECT_EQ(static_cast<int>(kBands), bare->facts().channels);
    EXPECT_EQ(1U, bare->facts().remarks.size()) << "the first axis was only a guess";
    expectKnownSamples(*bare);
}

TEST(Multidim, AVariableIsChosenByName) {
    hosttest::TemporaryFolder folder;
    const std::string path = folder / "cube.nc";
    makeFile(path, {"bands", "downtrack", "crosstrack", "yxb", nullptr}, GDT_Float32, true);
    const auto mask = opened("NETCDF:\"" + path + "\":mask");
    ASSERT_NE(nullptr, mask);
    EXPECT_EQ(1, mask->facts().channels);
    EXPECT_EQ((std::vector<int>{1}), mask->facts().channelTypes);
    std::vector<float> samples(kLines * kColumns);
    ASSERT_EQ("", mask->read({0, 0, kColumns, kLines, kColumns, kLines, {1}, {}}, samples.data()));
    EXPECT_EQ(std::vector<float>(samples.size(), 3.0F), samples);
    expectKnownSamples(*opened("HDF5:\"" + path + "\"://radiance"));
    std::string why;
    EXPECT_EQ(nullptr, kshost::openRaster("NETCDF:\"" + path + "\":absent", false, why));
    EXPECT_NE(std::string::npos, why.find("no array \"absent\""));
    EXPECT_EQ(nullptr, kshost::openRaster("NETCDF:\"" + path + "\":/sensor_band_parameters/fwhm", false, why));
    EXPECT_NE(std::string::npos, why.find("not a numeric array"));
    EXPECT_EQ(nullptr, kshost::openRaster("NETCDF:\"" + (folder / "none.nc") + "\":x", false, why));
    EXPECT_EQ("No such file or directory", why);
}

TEST(Multidim, RegularAxesAreAPlaceAndScalesAreKept) {
    hosttest::TemporaryFolder folder;
    kshost::registerFormats();
    {
        const std::unique_ptr<GDALDataset> file(
            GetGDALDriverManager()->GetDriverByName("netCDF")->CreateMultiDimensional((folder / "map.nc").c_str(),
                                                                                      nullptr, nullptr));
        const auto root = file->GetRootGroup();
        const auto y = root->CreateDimension("y", "", "", 3, nullptr);
        const auto x = root->CreateDimension("x", "", "", 4, nullptr);
        const auto band = root->CreateDimension("band", "", "", 2, nullptr);
        // Centres of pixels of 30 by 20.
        addArray(*root, "x", {x}, GDT_Float64, {1015, 1045, 1075, 1105});
        addArray(*root, "y", {y}, GDT_Float64, {590, 570, 550});
        const double fill = -32768;
        std::vector<double> counts(24);
        std::iota(counts.begin(), counts.end(), 0.0);
        counts[5] = fill;
        const auto cube = addArray(*root, "counts", {band, y, x}, GDT_Int16, counts, nullptr, &fill);
        ASSERT_TRUE(cube->SetScale(0.5));
        ASSERT_TRUE(cube->SetOffset(10.0));
    }
    const auto raster = opened(folder / "map.nc");
    ASSERT_NE(nullptr, raster);
    const RasterFacts& f = raster->facts();
    ASSERT_TRUE(f.georeference.transform.has_value());
    EXPECT_EQ((std::array<double, 6>{1000, 30, 0, 600, 0, -20}), *f.georeference.transform);
    EXPECT_EQ((std::vector<double>{0.5, 0.5}), f.scales);
    EXPECT_EQ((std::vector<double>{10, 10}), f.offsets);
    EXPECT_EQ((std::map<int, double>{{1, -32768}, {2, -32768}}), f.georeference.noData);
    std::vector<float> samples(24);
    ASSERT_EQ("", raster->read({0, 0, 4, 3, 4, 3, {1, 2}, {}}, samples.data()));
    for (std::size_t pixel = 0; pixel < 12; ++pixel) {
        EXPECT_EQ(pixel == 5 ? -32768.0F : static_cast<float>(pixel), samples[2 * pixel]) << "as stored, not scaled";
        EXPECT_EQ(static_cast<float>(12 + pixel), samples[2 * pixel + 1]);
    }
}

TEST(Multidim, UnevenAxesAreNoPlace) {
    hosttest::TemporaryFolder folder;
    kshost::registerFormats();
    {
        const std::unique_ptr<GDALDataset> file(
            GetGDALDriverManager()->GetDriverByName("netCDF")->CreateMultiDimensional((folder / "map.nc").c_str(),
                                                                                      nullptr, nullptr));
        const auto root = file->GetRootGroup();
        const auto y = root->CreateDimension("y", "", "", 3, nullptr);
        const auto x = root->CreateDimension("x", "", "", 4, nullptr);
        addArray(*root, "x", {x}, GDT_Float64, {0, 1, 2, 3});
        addArray(*root, "y", {y}, GDT_Float64, {0, 1, 5});
        addArray(*root, "values", {y, x}, GDT_Float32, std::vector<double>(12, 1.0));
    }
    EXPECT_FALSE(opened(folder / "map.nc")->facts().georeference.transform.has_value());
}

TEST(Multidim, AFewChannelsFarApartCostNoMoreThanThemselves) {
    constexpr std::size_t kMany = 100, kSide = 80;
    hosttest::TemporaryFolder folder;
    kshost::registerFormats();
    std::vector<double> values(kMany * kSide * kSide);
    for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<double>(i / (kSide * kSide) + i % 7);
    for (const char* blocks : {static_cast<const char*>(nullptr), "1,80,80", "4,40,40"}) {
        const std::string path = folder / "cube.nc";
        {
            const std::unique_ptr<GDALDataset> file(
                GetGDALDriverManager()->GetDriverByName("netCDF")->CreateMultiDimensional(path.c_str(), nullptr,
                                                                                          nullptr));
            const auto root = file->GetRootGroup();
            const Dimensions dimensions = {root->CreateDimension("band", "", "", kMany, nullptr),
                                           root->CreateDimension("y", "", "", kSide, nullptr),
                                           root->CreateDimension("x", "", "", kSide, nullptr)};
            addArray(*root, "cube", dimensions, GDT_Float64, values, blocks);
        }
        const auto raster = opened(path);
        ASSERT_NE(nullptr, raster);
        std::vector<float> samples(kSide * kSide * 3);
        const long long before = hosttest::bytesRead();
        ASSERT_EQ("", raster->read({0, 0, kSide, kSide, kSide, kSide, {100, 1, 50}, {}}, samples.data()));
        const long long moved = hosttest::bytesRead() - before;
        for (std::size_t i = 0; i < kSide * kSide; ++i) {
            ASSERT_EQ(static_cast<float>(99 + (99 * kSide * kSide + i) % 7), samples[3 * i]);
            ASSERT_EQ(static_cast<float>(i % 7), samples[3 * i + 1]);
            ASSERT_EQ(static_cast<float>(49 + (49 * kSide * kSide + i) % 7), samples[3 * i + 2]);
        }
        if (before >= 0) {
            // Three bands of 51 kB, and the library's own look at the file's structure.
            EXPECT_LT(moved, blocks == nullptr ? 400000 : 200000) << "of 5 MB " << (blocks != nullptr ? blocks : "");
        }
        unlink(path.c_str());
    }
}

TEST(Multidim, IsNotWritten) {
    hosttest::TemporaryFolder folder;
    makeFile(folder / "cube.nc", {"bands", "downtrack", "crosstrack", "yxb", nullptr}, GDT_Float32, true);
    std::string why;
    const auto raster = kshost::openRaster(folder / "cube.nc", true, why);
    ASSERT_NE(nullptr, raster);
    const float value = 1;
    EXPECT_EQ("netCDF images cannot be written here", raster->write({0, 0, 1, 1, 1, 1, {1}, {}}, &value));
}

TEST(Multidim, ATruncatedFileHasAReason) {
    hosttest::TemporaryFolder folder;
    makeFile(folder / "cube.nc", {"bands", "downtrack", "crosstrack", "yxb", "4,4,2"}, GDT_Float32, true);
    const std::string bytes = hosttest::contentsOf(folder / "cube.nc");
    testing::internal::CaptureStderr();
    for (const std::size_t length : {std::size_t{10}, bytes.size() / 3, bytes.size() - 100}) {
        hosttest::write(folder / "short.nc", bytes.substr(0, length));
        std::string why;
        EXPECT_EQ(nullptr, kshost::openRaster(folder / "short.nc", false, why));
        EXPECT_NE("", why);
    }
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}

TEST(Multidim, ARealTableHasOnlyArraysThatAreNoImages) {
    const char* data = std::getenv("KSLIB_DATA");
    if (data == nullptr) GTEST_SKIP() << "KSLIB_DATA is not set";
    const std::string path = std::string(data) + "/radiance-lut-prism-netcdf/lut.nc";
    std::string why;
    EXPECT_EQ(nullptr, kshost::openRaster(path, false, why));
    EXPECT_NE(std::string::npos, why.find("no numeric array of three or two dimensions"));
    EXPECT_EQ(nullptr, kshost::openRaster("NETCDF:\"" + path + "\":rhoatm", false, why));
    EXPECT_NE(std::string::npos, why.find("not a numeric array of three or two dimensions"));
}

}  // namespace
