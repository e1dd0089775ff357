// ks reflectance: tables and images are made here of reflectances and coefficients that are known, by equations written
// out in the test, and the reflectances have to come back.
#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <limits>

#include <kshost_app.h>
#include <nlohmann/json.hpp>

#include "clikit.hpp"
#include "image/entries.hpp"
#include "image/radianceunits.hpp"
#include "lut/netcdf.hpp"
#include "lut/table.hpp"
#include "reflectance/coefficients.hpp"
#include "speckit.hpp"

namespace clitest {
namespace {

using Json = nlohmann::json;
using kscli::TableAxis;

constexpr double kNoData = -9999;
constexpr double kTolerance = 5e-6;

/// Of a wavelength at a point: sensor altitude, solar zenith, (reflectance), visibility, water, elevation, azimuth,
/// view zenith. Linear in each, so that interpolating them is exact.
struct Truth {
    double c1, c2, c3, c4;

    double first(double r) const { return c1 * r / (1 - c3 * r); }
    double second(double r) const { return c4 + c2 * r / (1 - c3 * r); }
    double radiance(double r) const { return first(r) + second(r); }
};

using Point = std::array<double, RLUT_WAVELENGTH>;

Truth truthAt(const Point& p, double nm) {
    const double bright = (1 - 0.008 * p[1]) * (1 - 0.05 * p[4]) * (1 + 0.02 * p[5]) * (0.8 + 0.002 * p[3]);
    const double view = (1 - 0.003 * p[7]) * (1 + 0.0005 * p[6]) * (1 - 0.001 * p[0]);
    const double colour = 12 - 0.006 * (nm - 400);
    // The albedo does not depend on the point: what it does to the values is not linear.
    return {bright * view * colour, 0.15 * bright * view * colour * (1.2 - nm / 3000), 0.05 + 20.0 / nm,
            (2.5 - 0.0012 * nm) * (1 + 0.01 * p[7]) * (1 + 0.001 * p[1])};
}

struct TableShape {
    std::array<std::vector<float>, RLUT_DIMENSIONS> axes = {{{3, 10},
                                                             {20, 40, 60},
                                                             {0, 0.05F, 0.5F},
                                                             {10, 40},
                                                             {0.5F, 2, 4},
                                                             {0, 1},
                                                             {0, 90, 180},
                                                             {0, 20},
                                                             {450, 500, 550, 600, 700, 800, 1000, 1200, 1600, 2200}}};
    std::function<Truth(const Point&, double)> truth = truthAt;
    bool assumedSun = false;
    std::string units = kscli::kRadianceUnits;
};

/// A file for tables, new or with what it holds already.
kscli::OpenHostFile tableFile(const std::string& name) {
    return kscli::OpenHostFile(fs::exists(name) ? GDBOpen(name.c_str(), "r+")
                                                : GDBCreate(KSHOST_TYPE_NATIVE, name.c_str(), 512, 512, 0, 1, ""));
}

void makeTable(const std::string& name, const TableShape& shape) {
    const kscli::OpenHostFile file = tableFile(name);
    ASSERT_NE(file, nullptr);
    kscli::TableDescription description;
    description.name = "radiances";
    description.type = kscli::ElementType::pair;
    description.units = shape.units;
    std::int64_t count = 1;
    for (std::size_t d = 0; d < RLUT_DIMENSIONS; ++d) {
        TableAxis axis;
        axis.label = gaszRLUTLabels[d];
        axis.units = kscli::kRadianceAxisUnits[d];
        axis.coordinates = shape.axes[d];
        axis.assumed = d == RLUT_SOLAR_ZENITH && shape.assumedSun;
        description.axes.push_back(axis);
        count *= axis.size();
    }
    kscli::LookupTable table = kscli::LookupTable::create(file.get(), description);
    std::vector<RLUTEntry> entries;
    for (std::int64_t i = 0; i < count; ++i) {
        std::array<double, RLUT_DIMENSIONS> at{};
        std::int64_t rest = i;
        for (std::size_t d = RLUT_DIMENSIONS; d-- > 0;) {
            const auto size = static_cast<std::int64_t>(shape.axes[d].size());
            at[d] = static_cast<double>(shape.axes[d][static_cast<std::size_t>(rest % size)]);
            rest /= size;
        }
        Point point{};
        std::copy_n(at.begin(), point.size(), point.begin());
        const Truth truth = shape.truth(point, at[RLUT_WAVELENGTH]);
        const double r = at[RLUT_REFLECTANCE];
        entries.push_back({static_cast<float>(truth.first(r)), static_cast<float>(truth.second(r))});
    }
    table.writeEntries(table.wholeBox(), entries);
    table.finish();
}

/// A table that says nothing of radiance.
void makeOtherTable(const std::string& name, bool isCompleted) {
    const kscli::OpenHostFile file = tableFile(name);
    ASSERT_NE(file, nullptr);
    kscli::TableDescription description;
    description.axes.resize(1);
    description.axes[0].coordinates = {1, 2, 3};
    kscli::LookupTable table = kscli::LookupTable::create(file.get(), description);
    if (isCompleted) table.finish();
}

double knownReflectance(int x, int y, int b) { return 0.02 + 0.11 * x + 0.07 * y + 0.013 * b * (x % 3); }

constexpr const char* kRadianceTitle = "z plot titles = {Wavelength (nm), Radiance (uW cm-2 sr-1 nm-1)}\n";

class Reflectance : public CliTest {
protected:
    const Point point_ = {5, 33, 0, 25, 1.3, 0.4, 120, 12};

    std::vector<std::string> arguments(const std::string& output = "out.img") const {
        return {
            "reflectance", "in.img",        output, "--lut",   "table.ks", "--altitude",  "5",   "--sun-zenith",
            "33",          "--visibility",  "25",   "--water", "1.3",      "--elevation", "0.4", "--relative-azimuth",
            "120",         "--view-zenith", "12"};
    }
    std::vector<std::string> with(std::vector<std::string> more) const {
        std::vector<std::string> all = arguments();
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
    /// Without an option and its value.
    std::vector<std::string> without(const std::string& option) const {
        std::vector<std::string> all = arguments();
        const auto at = std::find(all.begin(), all.end(), option);
        all.erase(at, at + 2);
        return all;
    }

    /// Radiances of the known reflectances at a point.
    static Cube cubeOf(const std::vector<double>& wavelengths, const Point& point) {
        Cube cube;
        cube.width = 7;
        cube.height = 5;
        cube.bands = static_cast<int>(wavelengths.size());
        cube.type = 4;
        cube.header = std::string("wavelength units = nm\nwavelength = ") + braces(wavelengths) + "\n" + kRadianceTitle;
        cube.value = [wavelengths, point](int x, int y, int b) {
            return truthAt(point, wavelengths[static_cast<std::size_t>(b)]).radiance(knownReflectance(x, y, b));
        };
        return cube;
    }
    Cube plainCube() const { return cubeOf({450, 500, 550, 600, 700, 800, 1000, 1200, 1600, 2200}, point_); }

    /// The result holds the known reflectances; in the bands listed nothing.
    void expectKnown(const Cube& cube, const std::string& name, const std::vector<int>& empty = {},
                     double tolerance = kTolerance) const {
        const std::vector<float> out = floats(name);
        ASSERT_EQ(out.size(), static_cast<std::size_t>(cube.width * cube.height * cube.bands));
        std::size_t i = 0;
        for (int y = 0; y < cube.height; ++y) {
            for (int x = 0; x < cube.width; ++x) {
                for (int b = 0; b < cube.bands; ++b, ++i) {
                    if (std::count(empty.begin(), empty.end(), b) != 0) {
                        EXPECT_TRUE(std::isnan(out[i])) << x << " " << y << " " << b;
                    } else {
                        EXPECT_NEAR(static_cast<double>(out[i]), knownReflectance(x, y, b), tolerance)
                            << x << " " << y << " " << b;
                    }
                }
            }
        }
    }

    Result mustRun(const std::vector<std::string>& words) const {
        Result result = ks(words);
        EXPECT_EQ(result.status, 0) << result.err;
        return result;
    }
    std::string errorOf(const std::vector<std::string>& words) const {
        const Result result = ks(words);
        EXPECT_EQ(result.status, 1) << result.err;
        return result.err;
    }
};

// ---- the equations ----

TEST(SurfaceCoefficients, AreThoseTheValuesWereMadeOf) {
    for (int i = 0; i < 200; ++i) {
        const Truth truth = {0.3 + 0.11 * i, 0.02 * (i % 13), 0.003 * (i % 70), 0.5 * (i % 11)};
        const double r1 = 0.02 + 0.01 * (i % 9);
        const double r2 = r1 + 0.2 + 0.05 * (i % 7);
        const RLUTEntry at1 = {static_cast<float>(truth.first(static_cast<double>(static_cast<float>(r1)))),
                               static_cast<float>(truth.second(static_cast<double>(static_cast<float>(r1))))};
        const RLUTEntry at2 = {static_cast<float>(truth.first(static_cast<double>(static_cast<float>(r2)))),
                               static_cast<float>(truth.second(static_cast<double>(static_cast<float>(r2))))};
        const auto solved = kscli::solveSurface(at1, at2, static_cast<double>(static_cast<float>(r1)),
                                                static_cast<double>(static_cast<float>(r2)));
        ASSERT_TRUE(solved.has_value()) << i;
        EXPECT_NEAR(solved->albedo, truth.c3, 1e-5) << i;
        EXPECT_NEAR(solved->ground, truth.c1 + truth.c2, 1e-5 * (truth.c1 + truth.c2 + truth.c4)) << i;
        EXPECT_NEAR(solved->path, truth.c4, 1e-5 * (1 + truth.c4)) << i;
        for (double r : {0.0, 0.1, 0.37, 0.9}) {
            EXPECT_NEAR(solved->reflectance(truth.radiance(r)), r, 2e-5) << i;
        }
    }
}

TEST(SurfaceCoefficients, AreNoneWithoutLightFromTheGround) {
    EXPECT_FALSE(kscli::solveSurface({0, 3}, {0, 3}, 0.1, 0.5).has_value());
    EXPECT_FALSE(kscli::solveSurface({2, 3}, {1, 3}, 0.1, 0.5).has_value());
    EXPECT_FALSE(kscli::solveSurface({1, 3}, {5, 3}, 0.5, 0.5).has_value());
    EXPECT_FALSE(kscli::solveSurface({1, 3}, {std::numeric_limits<float>::infinity(), 3}, 0.1, 0.5).has_value());
}

TEST(RadianceUnits, AreReadHoweverTheyAreWritten) {
    const auto expectScale = [](const char* text, double scale) {
        const auto found = kscli::radianceScale(text);
        ASSERT_TRUE(found.has_value()) << text;
        EXPECT_NEAR(*found, scale, 1e-12 * scale) << text;
    };
    expectScale("uW cm-2 nm-1 sr-1", 1);
    expectScale("uW/cm^2/SR/nm", 1);
    expectScale("\xC2\xB5W/(cm\xC2\xB2 nm sr)", 1);
    expectScale("microwatts per cm2 per nanometer per steradian", 1);
    expectScale("W m-2 um-1 sr-1", 0.1);
    expectScale("W/(sr*m^2*\xCE\xBCm)", 0.1);
    expectScale("mW/m^2/sr/nm", 0.1);
    expectScale("W m-2 nm-1 sr-1", 100);
    for (const char* text : {"reflectance", "nm", "W m-2 um-1", "DN", "", "uW cm-2"}) {
        EXPECT_FALSE(kscli::radianceScale(text).has_value()) << text;
    }
}

// ---- images ----

TEST_F(Reflectance, KnownReflectancesComeBack) {
    makeTable(path("table.ks"), {});
    const Cube cube = plainCube();
    writeCube(dir() / "in.img", cube);
    const Result result = mustRun(arguments());
    expectKnown(cube, "out.img");
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(contains(result.err, "of the values in good bands lie between 0 and 1")) << result.err;
    EXPECT_FALSE(contains(result.err, "warning")) << result.err;
    EXPECT_FALSE(contains(result.err, "interpolated")) << result.err;
}

TEST_F(Reflectance, TheResultSaysWhatItIs) {
    makeTable(path("table.ks"), {});
    Cube cube = plainCube();
    cube.header += "band names = {a, b, c, d, e, f, g, h, i, j}\nsensor type = Test\n";
    writeCube(dir() / "in.img", cube);
    mustRun(with({"--bands", "b2,b3"}));
    const Json info = Json::parse(mustRun({"info", "out.img", "--json"}).out);
    ASSERT_EQ(info.at("band_table").size(), 2U);
    EXPECT_EQ(info.at("band_table").at(0).at("wavelength_nm"), 500);
    EXPECT_TRUE(contains(info.at("levels").dump(), "\"reflectance\"")) << info.at("levels");
    const std::string history = info.at("history").dump();
    EXPECT_TRUE(contains(history,
                         "ks reflectance in.img --lut table.ks --altitude 5 --sun-zenith 33 --visibility 25 "
                         "--water 1.3 --elevation 0.4 --relative-azimuth 120 --view-zenith 12 "
                         "--radiance-scale 1 --level 0 --bands b2-b3"))
        << history;
    EXPECT_TRUE(contains(history, "assumed: one geometry and atmosphere for the whole image")) << history;
    const std::string header = read("out.hdr");
    EXPECT_FALSE(contains(header, "Radiance")) << header;
    EXPECT_TRUE(contains(header, "data type = 4")) << header;
    EXPECT_EQ(files(), (std::vector<std::string>{"in.hdr", "in.img", "out.hdr", "out.img", "out.img.ks", "table.ks"}));
}

TEST_F(Reflectance, CalibratedRadianceIsTaken) {
    makeTable(path("table.ks"), {});
    Cube cube = plainCube();
    const auto radiance = cube.value;
    cube.value = [&](int x, int y, int b) { return (radiance(x, y, b) - 0.25) / 0.5; };
    cube.header += "data gain values = " + braces(std::vector<double>(10, 0.5)) +
                   "\ndata offset values = " + braces(std::vector<double>(10, 0.25)) + "\n";
    writeCube(dir() / "in.img", cube);
    mustRun(arguments());
    expectKnown(cube, "out.img");
    const Json info = Json::parse(mustRun({"info", "out.img", "--json"}).out);
    EXPECT_EQ(info.at("levels").size(), 2U) << info.at("levels");
    EXPECT_FALSE(contains(info.at("levels").dump(), "radiance"));
}

TEST_F(Reflectance, GeoTiffAndSmallMemoryGiveTheSame) {
    makeTable(path("table.ks"), {});
    const Cube cube = plainCube();
    writeCube(dir() / "in.img", cube);
    mustRun(arguments());
    mustRun(arguments("out.tif"));
    mustRun({"convert", "out.tif", "back.img"});
    EXPECT_EQ(read("back.img"), read("out.img"));
    setenv("KSHOST_MEMORY", "1024", 1);
    const Result small = ks(arguments("small.img"));
    unsetenv("KSHOST_MEMORY");
    ASSERT_EQ(small.status, 0) << small.err;
    EXPECT_EQ(read("small.img"), read("out.img"));
}

TEST_F(Reflectance, PixelsWithoutDataStayWithout) {
    makeTable(path("table.ks"), {});
    Cube cube = plainCube();
    const auto radiance = cube.value;
    const auto isMissing = [](int x, int y, int b) { return (x + 2 * y + b) % 5 == 0; };
    cube.value = [&](int x, int y, int b) { return isMissing(x, y, b) ? kNoData : radiance(x, y, b); };
    cube.header += "data ignore value = -9999\n";
    writeCube(dir() / "in.img", cube);
    mustRun(arguments());
    const std::vector<float> out = floats("out.img");
    ASSERT_EQ(out.size(), static_cast<std::size_t>(cube.width * cube.height * cube.bands));
    std::size_t i = 0;
    for (int y = 0; y < cube.height; ++y) {
        for (int x = 0; x < cube.width; ++x) {
            for (int b = 0; b < cube.bands; ++b, ++i) {
                if (isMissing(x, y, b)) {
                    EXPECT_TRUE(std::isnan(out[i])) << x << " " << y << " " << b;
                } else {
                    EXPECT_NEAR(static_cast<double>(out[i]), knownReflectance(x, y, b), kTolerance);
                }
            }
        }
    }
    EXPECT_FALSE(contains(read("out.hdr"), "-9999")) << read("out.hdr");
}

// ---- wavelengths ----

/// Everything is linear in the wavelength, so that between two of the table's, and averaged symmetrically, it is exact.
Truth linearTruth(const Point& p, double nm) {
    Truth truth = truthAt(p, nm);
    truth.c2 = 0.1 * truth.c1;
    truth.c3 = 0.11;
    return truth;
}

Cube linearCube(const std::vector<double>& wavelengths, const Point& point) {
    Cube cube;
    cube.width = 7;
    cube.height = 5;
    cube.bands = static_cast<int>(wavelengths.size());
    cube.type = 4;
    cube.header = std::string("wavelength units = nm\nwavelength = ") + braces(wavelengths) + "\n" + kRadianceTitle;
    cube.value = [wavelengths, point](int x, int y, int b) {
        return linearTruth(point, wavelengths[static_cast<std::size_t>(b)]).radiance(knownReflectance(x, y, b));
    };
    return cube;
}

TEST_F(Reflectance, BandsBetweenTheTablesWavelengthsAreInterpolated) {
    TableShape shape;
    shape.truth = linearTruth;
    makeTable(path("table.ks"), shape);
    // Out of order, some of them the table's own.
    const Cube cube = linearCube({800, 620, 475, 450, 2100, 1300}, point_);
    writeCube(dir() / "in.img", cube);
    const Result result = mustRun(arguments());
    expectKnown(cube, "out.img");
    EXPECT_TRUE(contains(result.err, "4 bands lie between wavelengths of the table")) << result.err;
}

TEST_F(Reflectance, WideBandsAreAveraged) {
    TableShape shape;
    shape.truth = linearTruth;
    shape.axes[RLUT_WAVELENGTH].clear();
    for (int nm = 400; nm <= 700; nm += 2) shape.axes[RLUT_WAVELENGTH].push_back(static_cast<float>(nm));
    for (std::size_t d : {0U, 3U, 5U, 6U}) shape.axes[d].resize(2);
    makeTable(path("table.ks"), shape);
    Cube cube = linearCube({451, 500, 640}, {5, 33, 0, 25, 1.3, 0.4, 60, 12});
    cube.header += "fwhm = {14, 20, 30}\n";
    writeCube(dir() / "in.img", cube);
    const Result result = mustRun({"reflectance", "in.img", "out.img", "--lut", "table.ks", "--altitude", "5",
                                   "--sun-zenith", "33", "--visibility", "25", "--water", "1.3", "--elevation", "0.4",
                                   "--relative-azimuth", "60", "--view-zenith", "12"});
    expectKnown(cube, "out.img", {}, 2e-5);
    EXPECT_TRUE(contains(result.err, "3 bands are wider than the steps of the table")) << result.err;
}

TEST_F(Reflectance, AveragesFollowTheResponse) {
    // A narrow line, which a band of 20 nm sees as a shallow one.
    const auto lined = [](const Point& p, double nm) {
        Truth truth = linearTruth(p, nm);
        truth.c1 *= 1 - 0.8 * std::exp(-std::pow((nm - 520) / 3, 2));
        return truth;
    };
    TableShape shape;
    shape.truth = lined;
    shape.axes[RLUT_WAVELENGTH].clear();
    for (int nm = 400; nm <= 700; nm += 1) shape.axes[RLUT_WAVELENGTH].push_back(static_cast<float>(nm));
    for (std::size_t d : {0U, 1U, 3U, 4U, 5U, 6U, 7U}) shape.axes[d].resize(1);
    makeTable(path("table.ks"), shape);
    // The mean of the first value under a Gaussian that is cut at half its width from the centre.
    const Point point = {3, 20, 0, 10, 0.5, 0, 0, 0};
    double sum = 0;
    double weights = 0;
    const double centre = 522;
    const double width = 20;
    for (int nm = 400; nm <= 700; ++nm) {
        if (std::abs(nm - centre) > width / 2) continue;
        const double weight = std::exp(-std::log(2.0) * std::pow((nm - centre) / (width / 2), 2));
        sum += weight * lined(point, nm).c1;
        weights += weight;
    }
    Truth seen = linearTruth(point, centre);
    seen.c1 = sum / weights;
    Cube cube = linearCube({centre}, point);
    cube.value = [&](int x, int y, int b) { return seen.radiance(knownReflectance(x, y, b)); };
    cube.header += "fwhm = {20}\n";
    writeCube(dir() / "in.img", cube);
    mustRun({"reflectance", "in.img", "out.img", "--lut", "table.ks"});
    expectKnown(cube, "out.img", {}, 2e-5);
}

TEST_F(Reflectance, ATableMadeForTheBandsIsTakenAsItIs) {
    makeTable(path("table.ks"), {});
    Cube cube = plainCube();
    // Several of the table's wavelengths lie under each band.
    cube.header += "fwhm = " + braces(std::vector<double>(10, 220)) + "\n";
    writeCube(dir() / "in.img", cube);
    const Result result = mustRun(arguments());
    expectKnown(cube, "out.img");
    EXPECT_FALSE(contains(result.err, "averaged")) << result.err;
}

TEST_F(Reflectance, BandsThatTheTableDoesNotReachAreMasked) {
    makeTable(path("table.ks"), {});
    const std::vector<double> wavelengths = {440, 450, 700, 2200, 2300};
    const Cube cube = cubeOf(wavelengths, point_);
    writeCube(dir() / "in.img", cube);
    const Result result = mustRun(arguments());
    expectKnown(cube, "out.img", {0, 4});
    EXPECT_TRUE(contains(result.err, "warning: b1, b5: not within the table's wavelengths, 450 to 2200 nm"))
        << result.err;
    const Json info = Json::parse(mustRun({"info", "out.img", "--json"}).out);
    EXPECT_EQ(info.at("band_table").at(0).at("quality"), "mask");
    EXPECT_NE(info.at("band_table").at(1).at("quality"), "mask");
    EXPECT_EQ(info.at("band_table").at(4).at("quality"), "mask");

    writeCube(dir() / "in.img", cubeOf({300, 320}, point_));
    const std::string error = errorOf(with({"--force"}));
    EXPECT_TRUE(contains(error, "no band of the image lies within the table's wavelengths")) << error;
}

TEST_F(Reflectance, BandsWithoutLightFromTheGroundAreMasked) {
    TableShape shape;
    shape.truth = [](const Point& p, double nm) {
        Truth truth = truthAt(p, nm);
        if (nm > 1100 && nm < 1300) truth.c1 = truth.c2 = 0;
        return truth;
    };
    makeTable(path("table.ks"), shape);
    const Cube cube = plainCube();
    writeCube(dir() / "in.img", cube);
    const Result result = mustRun(arguments());
    expectKnown(cube, "out.img", {7});
    EXPECT_TRUE(contains(result.err, "warning: b8: by the table no light comes from the ground")) << result.err;
}

// ---- the point in the table ----

TEST_F(Reflectance, WhatTheTableHasOneValueOfNeedNotBeGiven) {
    TableShape shape;
    for (std::size_t d : {0U, 1U, 3U, 4U, 5U, 6U, 7U}) shape.axes[d].resize(1);
    shape.assumedSun = true;
    makeTable(path("table.ks"), shape);
    const Point point = {3, 20, 0, 10, 0.5, 0, 0, 0};
    const Cube cube = cubeOf({500, 700, 1600}, point);
    writeCube(dir() / "in.img", cube);
    const std::vector<std::string> plain = {"reflectance", "in.img", "out.img", "--lut", "table.ks"};
    const Result result = mustRun(plain);
    expectKnown(cube, "out.img");
    EXPECT_TRUE(contains(result.err, "Vertical water vapor column 0.5 g cm-2, the only one of the table"))
        << result.err;
    EXPECT_TRUE(contains(result.err, "Solar zenith angle 20 degrees, the only one of the table, and assumed there"))
        << result.err;
    std::vector<std::string> other = plain;
    other.insert(other.end(), {"--water", "3", "--force"});
    EXPECT_TRUE(contains(errorOf(other), "made for 0.5 g cm-2 only"));
    other.emplace_back("--extrapolate");
    mustRun(other);
    expectKnown(cube, "out.img");
}

TEST_F(Reflectance, WhatIsMissingIsAskedFor) {
    makeTable(path("table.ks"), {});
    writeCube(dir() / "in.img", plainCube());
    for (const char* option :
         {"--altitude", "--sun-zenith", "--visibility", "--water", "--elevation", "--relative-azimuth"}) {
        const std::string error = errorOf(without(option));
        EXPECT_TRUE(contains(error, std::string("give ") + option)) << error;
        EXPECT_TRUE(contains(error, "the table has")) << error;
    }
    EXPECT_EQ(files(), (std::vector<std::string>{"in.hdr", "in.img", "table.ks"}));
}

TEST_F(Reflectance, AViewStraightDownIsAssumed) {
    makeTable(path("table.ks"), {});
    Point down = point_;
    down[RLUT_VIEW_ZENITH] = 0;
    // Straight down there is no azimuth, and the first of the table is taken.
    down[RLUT_RELATIVE_AZIMUTH] = 0;
    const Cube cube = cubeOf({500, 700, 1600}, down);
    writeCube(dir() / "in.img", cube);
    const Result result = mustRun({"reflectance", "in.img", "out.img", "--lut", "table.ks", "--altitude", "5",
                                   "--sun-zenith", "33", "--visibility", "25", "--water", "1.3", "--elevation", "0.4"});
    expectKnown(cube, "out.img");
    EXPECT_TRUE(contains(result.err, "assumed: a view straight down")) << result.err;
}

TEST_F(Reflectance, LeftAndRightOfTheSunAreAlike) {
    makeTable(path("table.ks"), {});
    writeCube(dir() / "in.img", plainCube());
    std::vector<std::string> turned = arguments();
    *(std::find(turned.begin(), turned.end(), "--relative-azimuth") + 1) = "240";
    mustRun(turned);
    expectKnown(plainCube(), "out.img");
    *(std::find(turned.begin(), turned.end(), "--relative-azimuth") + 1) = "-120";
    turned.emplace_back("--force");
    mustRun(turned);
    expectKnown(plainCube(), "out.img");
}

TEST_F(Reflectance, OutsideOfTheTableIsRefusedUnlessAskedFor) {
    TableShape shape;
    makeTable(path("table.ks"), shape);
    Point far = point_;
    far[RLUT_WATER_VAPOR] = 4.5;
    const Cube cube = cubeOf({500, 700, 1600}, far);
    writeCube(dir() / "in.img", cube);
    std::vector<std::string> words = arguments();
    *(std::find(words.begin(), words.end(), "--water") + 1) = "4.5";
    EXPECT_TRUE(contains(errorOf(words), "Vertical water vapor column 4.5 lies outside of the table"));
    words.emplace_back("--extrapolate");
    mustRun(words);
    expectKnown(cube, "out.img");
}

/// The sun's zenith by the low-precision formulas of an astronomical almanac.
double almanacZenith(double daysSince2000, double latitude, double longitude) {
    const double degree = std::acos(-1.0) / 180;
    const double meanLongitude = 280.460 + 0.9856474 * daysSince2000;
    const double anomaly = (357.528 + 0.9856003 * daysSince2000) * degree;
    const double ecliptic = (meanLongitude + 1.915 * std::sin(anomaly) + 0.020 * std::sin(2 * anomaly)) * degree;
    const double obliquity = (23.439 - 0.0000004 * daysSince2000) * degree;
    const double ascension = std::atan2(std::cos(obliquity) * std::sin(ecliptic), std::cos(ecliptic));
    const double declination = std::asin(std::sin(obliquity) * std::sin(ecliptic));
    const double sidereal = (280.46061837 + 360.98564736629 * daysSince2000) * degree;
    const double hourAngle = sidereal + longitude * degree - ascension;
    return std::acos(std::sin(latitude * degree) * std::sin(declination) +
                     std::cos(latitude * degree) * std::cos(declination) * std::cos(hourAngle)) /
           degree;
}

TEST_F(Reflectance, SunAndHeightComeFromTheImage) {
    makeTable(path("table.ks"), {});
    // The scene is of 2024-06-21 10:40 at 52 north and 15 east, seen from 3000 m: 8937.9444 days after noon of
    // 2000-01-01.
    mustRun({"synth", "in.img", "--size", "8x8", "--bands", "12"});
    const std::vector<std::string> words = {"reflectance", "in.img",       "out.img", "--lut",
                                            "table.ks",    "--visibility", "25",      "--water",
                                            "1.3",         "--elevation",  "0.4"};
    const Result result = mustRun(words);
    EXPECT_TRUE(contains(result.err, "sensor altitude 3 km")) << result.err;
    const std::string start = "solar zenith angle ";
    const std::size_t at = result.err.find(start);
    ASSERT_NE(at, std::string::npos) << result.err;
    const double zenith = std::stod(result.err.substr(at + start.size()));
    EXPECT_NEAR(zenith, almanacZenith(8937.9444, 52, 15), 0.3);
    // The synthetic scene's stored values are calibrated to radiance, and reach beyond the table on both sides.
    EXPECT_TRUE(contains(result.err, "not within the table's wavelengths")) << result.err;
    EXPECT_TRUE(contains(result.err, "values times 1 (for 'Radiance (uW cm-2 sr-1 nm-1)' in the metadata)"))
        << result.err;
}

// ---- units and quantities ----

TEST_F(Reflectance, UnitsAreBroughtToThoseOfTheTable) {
    makeTable(path("table.ks"), {});
    Cube cube = plainCube();
    const auto radiance = cube.value;
    cube.value = [&](int x, int y, int b) { return 10 * radiance(x, y, b); };
    const std::string title = kRadianceTitle;
    std::string& header = cube.header;
    header.replace(header.find(title), title.size(), "");
    const std::string bare = header;
    header = bare + "data units = W/m2/um/sr\n";
    writeCube(dir() / "in.img", cube);
    mustRun(arguments());
    expectKnown(cube, "out.img");
    header = bare;
    writeCube(dir() / "in.img", cube);
    EXPECT_TRUE(contains(errorOf(with({"--force"})), "give --radiance-scale"));
    mustRun(with({"--force", "--radiance-scale", "0.1"}));
    expectKnown(cube, "out.img");
    const Result wrong = mustRun(with({"--force", "--radiance-scale", "1"}));
    EXPECT_TRUE(contains(wrong.err, "warning: that is less than half")) << wrong.err;
    // Calibrated, but without units.
    header = bare + "data gain values = " + braces(std::vector<double>(10, 0.1)) + "\n";
    writeCube(dir() / "in.img", cube);
    const Result assumed = mustRun(with({"--force"}));
    EXPECT_TRUE(contains(assumed.err, "assuming uW cm-2 nm-1 sr-1, for the image names no units")) << assumed.err;
    expectKnown(cube, "out.img");
}

TEST_F(Reflectance, RefusesWhatIsNoRadiance) {
    makeTable(path("table.ks"), {});
    Cube cube = plainCube();
    cube.header += "reflectance scale factor = 10000\n";
    writeCube(dir() / "in.img", cube);
    EXPECT_TRUE(contains(errorOf(arguments()), "no level of the image is said to be at-sensor radiance"));
    EXPECT_TRUE(contains(errorOf(with({"--level", "1"})), "is reflectance, not at-sensor radiance"));
    EXPECT_TRUE(contains(errorOf(with({"--level", "2"})), "level 2 does not exist"));
    // The stored values may be radiances all the same.
    mustRun(with({"--level", "0"}));
    expectKnown(cube, "out.img");
    EXPECT_FALSE(contains(read("out.hdr"), "10000")) << read("out.hdr");
    const Json info = Json::parse(mustRun({"info", "out.img", "--json"}).out);
    EXPECT_EQ(info.at("levels").size(), 2U) << info.at("levels");
}

TEST_F(Reflectance, ThePlaceMayBeThatOfTheMap) {
    makeTable(path("table.ks"), {});
    Cube cube = plainCube();
    // A pixel is a degree, and 51 north, 15.5 east the middle.
    cube.header +=
        "map info = {Geographic Lat/Lon, 1, 1, 12, 53.5, 1, 1, WGS-84, units=Degrees}\n"
        "acquisition time = 2024-06-21T10:40:00Z\n";
    writeCube(dir() / "in.img", cube);
    const Result result = mustRun(without("--sun-zenith"));
    const std::string start = "solar zenith angle ";
    const std::size_t at = result.err.find(start);
    ASSERT_NE(at, std::string::npos) << result.err;
    EXPECT_NEAR(std::stod(result.err.substr(at + start.size())), almanacZenith(8937.9444, 51, 15.5), 0.3);
}

TEST_F(Reflectance, ASunBelowTheHorizonIsRefused) {
    makeTable(path("table.ks"), {});
    mustRun({"synth", "in.img", "--size", "8x8", "--bands", "12"});
    HostFile* file = GDBOpen(path("in.img").c_str(), "r+");
    ASSERT_NE(file, nullptr);
    kscli::Entries list = kscli::Entries::ofFile(file);
    list.set("NominalTime_Hour", "23");
    list.storeInFile(file);
    GDBClose(file);
    EXPECT_TRUE(contains(errorOf(without("--sun-zenith")), "the sun was below the horizon"));
}

TEST_F(Reflectance, TheOnlyRadianceTableIsFoundAmongOthers) {
    const Cube cube = plainCube();
    writeCube(dir() / "in.img", cube);
    makeOtherTable(path("table.ks"), true);
    EXPECT_TRUE(contains(errorOf(arguments()), "table.ks holds no radiance table"));
    makeOtherTable(path("table.ks"), false);
    EXPECT_TRUE(contains(errorOf(arguments()), "table.ks holds no radiance table"));
    makeTable(path("table.ks"), {});
    mustRun(arguments());
    expectKnown(cube, "out.img");
    EXPECT_TRUE(contains(errorOf(with({"--segment", "1", "--force"})), "table.ks holds no radiance table"));
    makeTable(path("table.ks"), {});
    EXPECT_TRUE(contains(errorOf(with({"--force"})), "table.ks holds 4 tables; choose one with --segment: 1 ("));
    mustRun(with({"--segment", "4", "--force"}));
    expectKnown(cube, "out.img");
}

// ---- mistakes ----

TEST_F(Reflectance, RefusesWhatIsNoSuitableTable) {
    const Cube cube = plainCube();
    writeCube(dir() / "in.img", cube);
    EXPECT_TRUE(contains(errorOf(arguments()), "table.ks: no such file"));
    write("table.ks", "nothing of the kind");
    EXPECT_TRUE(contains(errorOf(arguments()), "table.ks"));
    fs::remove(dir() / "table.ks");
    TableShape shape;
    shape.axes[RLUT_REFLECTANCE] = {0, 0.5F};
    makeTable(path("table.ks"), shape);
    EXPECT_TRUE(contains(errorOf(arguments()), "two reflectances above 0"));
    fs::remove(dir() / "table.ks");
    shape = {};
    shape.units = "W m-2";
    makeTable(path("table.ks"), shape);
    EXPECT_TRUE(contains(errorOf(arguments()), "the table's values are in W m-2"));
    fs::remove(dir() / "table.ks");
    shape = {};
    shape.truth = [](const Point& p, double nm) {
        Truth truth = truthAt(p, nm);
        truth.c1 = -truth.c1;
        return truth;
    };
    makeTable(path("table.ks"), shape);
    EXPECT_TRUE(contains(errorOf(arguments()), "in no band do the table's values tell the light from the ground"));
    EXPECT_EQ(files(), (std::vector<std::string>{"in.hdr", "in.img", "table.ks"}));
}

TEST_F(Reflectance, RefusesMistakes) {
    makeTable(path("table.ks"), {});
    Cube cube = plainCube();
    writeCube(dir() / "in.img", cube);
    const auto replaced = [&](const std::string& option, const std::string& value) {
        std::vector<std::string> words = arguments();
        *(std::find(words.begin(), words.end(), option) + 1) = value;
        return words;
    };
    EXPECT_TRUE(contains(errorOf(replaced("--sun-zenith", "95")), "--sun-zenith must be 0 to less than 90"));
    EXPECT_TRUE(contains(errorOf(replaced("--sun-zenith", "nan")), "--sun-zenith"));
    EXPECT_TRUE(contains(errorOf(replaced("--sun-zenith", "noon")), "--sun-zenith"));
    EXPECT_TRUE(contains(errorOf(replaced("--view-zenith", "-1")), "--view-zenith"));
    EXPECT_TRUE(contains(errorOf(with({"--radiance-scale", "0"})), "--radiance-scale must be more than 0"));
    EXPECT_TRUE(contains(errorOf(with({"--segment", "7"})), "segment 7"));
    EXPECT_TRUE(contains(errorOf(with({"--bands", "b11"})), "b11"));
    EXPECT_TRUE(contains(errorOf(arguments("in.img")), "onto itself"));
    EXPECT_TRUE(contains(errorOf(arguments("table.ks")), "table.ks"));
    EXPECT_TRUE(contains(errorOf({"reflectance", "in.img", "out.img"}), "--lut"));
    cube.header = kRadianceTitle;
    writeCube(dir() / "plain.img", cube);
    std::vector<std::string> plain = arguments();
    plain[1] = "plain.img";
    EXPECT_TRUE(contains(errorOf(plain), "no wavelengths"));
    EXPECT_EQ(files(), (std::vector<std::string>{"in.hdr", "in.img", "plain.hdr", "plain.img", "table.ks"}));
    write("out.img", "mine");
    EXPECT_TRUE(contains(errorOf(arguments()), "--force"));
    EXPECT_EQ(read("out.img"), "mine");
    EXPECT_TRUE(contains(ks({"reflectance", "--help"}).out, "Example:\n  ks reflectance"));
}

TEST_F(Reflectance, AnImageThatIsCutOffGivesNothing) {
    makeTable(path("table.ks"), {});
    writeCube(dir() / "in.img", plainCube());
    const std::string whole = read("in.img");
    write("in.img", whole.substr(0, whole.size() / 2));
    const Result result = ks(arguments());
    EXPECT_EQ(result.status, 2) << result.err;
    EXPECT_EQ(files(), (std::vector<std::string>{"in.hdr", "in.img", "table.ks"}));
}

// ---- sample data ----

/// The values of a netCDF variable over wavelengths, at one index of each of the other three dimensions.
std::vector<double> overWavelengths(const kscli::NetcdfReader& file, const std::string& name, std::size_t aerosol,
                                    std::size_t water, std::size_t view) {
    const kscli::NetcdfVariable* variable = file.find(name);
    if (variable == nullptr) return {};
    return file.read(*variable, {0, aerosol, water, view}, {file.shapeOf(*variable)[0], 1, 1, 1});
}

TEST_F(Reflectance, TwoRealPixelsAreThoseOfTheQuantitiesBehindTheTable) {
    const std::string quantities = sampleData("radiance-lut-prism-netcdf/lut.nc");
    const std::string image = sampleData("pixels-prism-with-geometry/prm20231110t071521_rdn_two_px");
    if (quantities.empty() || image.empty()) GTEST_SKIP() << "KSLIB_DATA does not name a folder with these";
    mustRun({"lut", "import", "--radiance", quantities, "prism.kslut"});
    const kscli::LookupTable table = kscli::LookupTable::open(path("prism.kslut"));
    const auto coordinate = [&](int d, std::size_t i) { return std::to_string(table.axis(d).coordinates[i]); };
    // A grid point; the visibilities are in the opposite order of the aerosol's optical depths.
    const std::vector<float>& visibilities = table.axis(RLUT_METEOROLOGICAL_RANGE).coordinates;
    ASSERT_EQ(visibilities.size(), 5U);
    ASSERT_LT(visibilities.front(), visibilities.back());
    const std::size_t aerosol = 3;
    mustRun({"reflectance", image, "out.img", "--lut", "prism.kslut", "--radiance-scale", "1", "--visibility",
             coordinate(RLUT_METEOROLOGICAL_RANGE, 4 - aerosol), "--water", coordinate(RLUT_WATER_VAPOR, 2),
             "--view-zenith", coordinate(RLUT_VIEW_ZENITH, 1)});
    const std::vector<float> out = floats("out.img");
    ASSERT_EQ(out.size(), 2U * 246U);

    const kscli::NetcdfReader file(quantities);
    const auto of = [&](const char* name) { return overWavelengths(file, name, aerosol, 2, 1); };
    const std::vector<double> path = of("rhoatm");  // a radiance in this file
    const std::vector<double> albedo = of("sphalb");
    std::vector<double> ground(246);
    for (const char* name : {"dir-dir", "dif-dir", "dir-dif", "dif-dif"}) {
        const std::vector<double> part = of(name);
        ASSERT_EQ(part.size(), 246U) << name;
        for (std::size_t b = 0; b < 246; ++b) ground[b] += part[b];
    }
    std::ifstream stream(image, std::ios::binary);
    std::vector<float> radiances(2U * 246U);
    stream.read(reinterpret_cast<char*>(radiances.data()),
                static_cast<std::streamsize>(radiances.size() * sizeof(float)));
    for (std::size_t i = 0; i < out.size(); ++i) {
        const std::size_t b = i % 246;
        const double x = static_cast<double>(radiances[i]) - path[b];
        const double expected = x / (ground[b] + albedo[b] * x);
        EXPECT_NEAR(static_cast<double>(out[i]), expected, 1e-5 * (std::abs(expected) + 0.1)) << i;
    }
    // The second pixel is a plant: dark in the red, bright beyond it.
    const double red = static_cast<double>(out[246 + 112]);       // 668 nm
    const double infrared = static_cast<double>(out[246 + 184]);  // 872 nm
    EXPECT_GT((infrared - red) / (infrared + red), 0.6);
    for (std::size_t b = 35; b < 196; ++b) {  // 450 to 900 nm
        EXPECT_GT(out[246 + b], -0.02F) << b;
        EXPECT_LT(out[246 + b], 1.0F) << b;
    }
}

}  // namespace
}  // namespace clitest
