// ks brdf: the trend across the columns is the one that the test computes itself, nothing else changes, and the image
// that was given stays as it was.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <sstream>

#include <nlohmann/json.hpp>

#include "clikit.hpp"
#include "polynomial.hpp"

namespace clitest {
namespace {

using Json = nlohmann::json;

constexpr double kNoData = -9999;
const double kNaN = std::numeric_limits<double>::quiet_NaN();

struct Rectangle {
    int x, y, width, height;
};

/// Float samples of an image, pixel by pixel.
struct Samples {
    int width = 0;
    int bands = 0;
    std::vector<float> values;

    double at(int x, int y, int b) const {
        return static_cast<double>(values[static_cast<std::size_t>((y * width + x) * bands + b)]);
    }
};

/// The trend that values at columns first, first + 1, ... follow, and its own mean.
class Fit {
public:
    Fit(const std::vector<double>& values, int first, int order) : polynomial_(values, first, order) {
        for (std::size_t k = 0; k < values.size(); ++k) {
            mean_ += polynomial_.at(first + static_cast<int>(k)) / static_cast<kit::Exact>(values.size());
        }
    }
    double change(int column) const { return static_cast<double>(polynomial_.at(column) - mean_); }
    double mean() const { return static_cast<double>(mean_); }

private:
    kit::Polynomial polynomial_;
    kit::Exact mean_ = 0;
};

/// Means of the columns of a rectangle, without values that are not-a-number.
template <class Value>
std::vector<double> columnMeans(const Rectangle& r, Value value) {
    std::vector<double> means;
    for (int x = r.x; x < r.x + r.width; ++x) {
        double sum = 0;
        int count = 0;
        for (int y = r.y; y < r.y + r.height; ++y) {
            const double v = value(x, y);
            if (std::isnan(v)) continue;
            sum += v;
            ++count;
        }
        means.push_back(count > 0 ? sum / count : kNaN);
    }
    return means;
}

class Brdf : public CliTest {
protected:
    /// Brightness that falls and rises across the columns, another way in every band, and texture.
    static Cube unevenCube() {
        Cube cube;
        cube.width = 31;
        cube.height = 17;
        cube.bands = 5;
        cube.type = 4;
        cube.header =
            "wavelength units = nm\nwavelength = {450, 550, 650, 850, 1600}\nfwhm = {10, 11, 12, 13, 14}\n"
            "band names = {blue, green, red, nir, swir}\nbbl = {1, 1, 1, 1, 0}\n";
        cube.value = [](int x, int y, int b) {
            std::mt19937 engine(static_cast<unsigned>((x * 131 + y) * 17 + b));
            const double texture = std::uniform_real_distribution<double>(-20, 20)(engine);
            const double t = (x - 11 - b) / 10.0;
            return static_cast<double>(
                static_cast<float>(400 + 100 * b + 40 * t - 25 * t * t + 6 * t * t * t + texture));
        };
        return cube;
    }

    Samples samples(const std::string& name, int width, int bands) const {
        const std::string bytes = read(name);
        Samples result;
        result.width = width;
        result.bands = bands;
        result.values.resize(bytes.size() / sizeof(float));
        std::memcpy(result.values.data(), bytes.data(), result.values.size() * sizeof(float));
        return result;
    }

    Result mustRun(const std::vector<std::string>& arguments) const {
        Result result = ks(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        return result;
    }

    std::string errorOf(const std::vector<std::string>& arguments) const {
        const Result result = ks(arguments);
        EXPECT_EQ(result.status, 1) << result.err;
        return result.err;
    }
};

void expectSingle(double value, double expected, double scale, const std::string& where) {
    EXPECT_NEAR(value, expected, 4 * static_cast<double>(std::numeric_limits<float>::epsilon()) * scale) << where;
}

/// Every sample inside the rectangle is corrected by the fit, every other one is as it was.
void expectCorrected(const Cube& cube, const std::vector<int>& bands, const Samples& result, const Rectangle& sampled,
                     const Rectangle& corrected, int order) {
    ASSERT_EQ(result.values.size(), static_cast<std::size_t>(cube.width * cube.height) * bands.size());
    for (std::size_t i = 0; i < bands.size(); ++i) {
        const auto value = [&](int x, int y) { return cube.value(x, y, bands[i]); };
        const Fit fit(columnMeans(sampled, value), sampled.x, order);
        for (int y = 0; y < cube.height; ++y) {
            for (int x = 0; x < cube.width; ++x) {
                const std::string where = std::to_string(x) + " " + std::to_string(y) + " " + std::to_string(bands[i]);
                const double out = result.at(x, y, static_cast<int>(i));
                const bool inside = x >= corrected.x && x < corrected.x + corrected.width && y >= corrected.y &&
                                    y < corrected.y + corrected.height;
                if (inside) {
                    expectSingle(out, value(x, y) - fit.change(x), 1500, where);
                } else {
                    EXPECT_EQ(out, value(x, y)) << where;
                }
            }
        }
    }
}

TEST_F(Brdf, EqualsAnIndependentFit) {
    const Cube cube = unevenCube();
    writeCube(dir() / "in.img", cube);
    const Rectangle whole = {0, 0, cube.width, cube.height};
    for (int order : {1, 2, 4}) {
        mustRun({"brdf", "in.img", "out.img", "--order", std::to_string(order), "--force"});
        expectCorrected(cube, {0, 1, 2, 3, 4}, samples("out.img", cube.width, 5), whole, whole, order);
    }
    mustRun({"brdf", "in.img", "default.img"});
    expectCorrected(cube, {0, 1, 2, 3, 4}, samples("default.img", cube.width, 5), whole, whole, 2);
}

TEST_F(Brdf, WindowsAndBandsAreThoseAskedFor) {
    const Cube cube = unevenCube();
    writeCube(dir() / "in.img", cube);
    const Result result = mustRun({"brdf", "in.img", "out.img", "--order", "3", "--sample", "5,2,20,9", "--process",
                                   "8,1,15,14", "--bands", "b4,b2"});
    EXPECT_FALSE(contains(result.err, "outside of the sampled ones")) << result.err;
    expectCorrected(cube, {3, 1}, samples("out.img", cube.width, 2), {5, 2, 20, 9}, {8, 1, 15, 14}, 3);
    const Result beyond = mustRun({"brdf", "in.img", "beyond.img", "--sample", "5,2,20,9"});
    EXPECT_TRUE(contains(beyond.err, "columns outside of the sampled ones, 5 to 24")) << beyond.err;
    expectCorrected(cube, {0, 1, 2, 3, 4}, samples("beyond.img", cube.width, 5), {5, 2, 20, 9},
                    {0, 0, cube.width, cube.height}, 2);
}

TEST_F(Brdf, CalibratedValuesAreCorrected) {
    Cube cube = unevenCube();
    cube.type = 12;
    const auto stored = [shape = cube.value](int x, int y, int b) { return std::floor(shape(x, y, b)); };
    cube.value = stored;
    cube.header += "data gain values = {0.5, 0.25, 2, 1.5, 0.125}\ndata offset values = {1, 2, -3, 4, 5}\n";
    writeCube(dir() / "in.img", cube);
    const double gains[] = {0.5, 0.25, 2, 1.5, 0.125};
    const double offsets[] = {1, 2, -3, 4, 5};
    const Rectangle whole = {0, 0, cube.width, cube.height};
    mustRun({"brdf", "in.img", "out.img"});
    Cube radiance = cube;
    radiance.value = [&](int x, int y, int b) { return gains[b] * stored(x, y, b) + offsets[b]; };
    expectCorrected(radiance, {0, 1, 2, 3, 4}, samples("out.img", cube.width, 5), whole, whole, 2);
    // The values are radiances already, and no calibration is left to be applied to them.
    const Json info = Json::parse(mustRun({"info", "out.img", "--json"}).out);
    EXPECT_EQ(info.dump().find("data gain values"), std::string::npos);
    EXPECT_EQ(read("out.hdr").find("data gain"), std::string::npos) << read("out.hdr");
}

TEST_F(Brdf, PixelsWithoutDataNeitherCountNorChange) {
    Cube cube = unevenCube();
    const auto shape = cube.value;
    // Band 5 is empty; column 0 everywhere, column 13 in band 2; and scattered pixels.
    const auto isMissing = [](int x, int y, int b) {
        return b == 4 || x == 0 || (x == 13 && b == 1) || (x * 7 + y * 3 + b) % 11 == 0;
    };
    cube.value = [&](int x, int y, int b) {
        if (b == 2 && isMissing(x, y, b) && y % 2 == 0) return kNaN;  // the one as well as the other
        return isMissing(x, y, b) ? kNoData : shape(x, y, b);
    };
    cube.header += "data ignore value = -9999\n";
    writeCube(dir() / "in.img", cube);
    const Result result = mustRun({"brdf", "in.img", "out.img", "--order", "2"});
    EXPECT_TRUE(contains(result.err, "b5 without any data")) << result.err;
    const Samples out = samples("out.img", cube.width, 5);
    ASSERT_EQ(out.values.size(), static_cast<std::size_t>(cube.width * cube.height * 5));
    for (int b = 0; b < 5; ++b) {
        const auto value = [&](int x, int y) { return isMissing(x, y, b) ? kNaN : shape(x, y, b); };
        const Rectangle whole = {0, 0, cube.width, cube.height};
        const std::vector<double> means = b == 4 ? std::vector<double>(31, 1.0) : columnMeans(whole, value);
        const Fit fit(means, 0, 2);
        for (int y = 0; y < cube.height; ++y) {
            for (int x = 0; x < cube.width; ++x) {
                const std::string where = std::to_string(x) + " " + std::to_string(y) + " " + std::to_string(b);
                if (isMissing(x, y, b)) {
                    EXPECT_EQ(out.at(x, y, b), kNoData) << where;
                } else {
                    expectSingle(out.at(x, y, b), shape(x, y, b) - fit.change(x), 1500, where);
                }
            }
        }
    }
    EXPECT_TRUE(contains(read("out.hdr"), "-9999")) << read("out.hdr");
}

TEST_F(Brdf, ManyColumnsOfOneBrightnessKeepIt) {
    Cube cube;
    cube.width = 9000;
    cube.height = 2;
    cube.bands = 1;
    cube.type = 4;
    cube.value = [](int x, int y, int) { return 0.1234 + (x % 2 == y ? 1e-4 : -1e-4); };
    writeCube(dir() / "in.img", cube);
    mustRun({"brdf", "in.img", "out.img"});
    const Samples out = samples("out.img", cube.width, 1);
    ASSERT_EQ(out.values.size(), 18000U);
    for (int y = 0; y < cube.height; ++y) {
        for (int x = 0; x < cube.width; ++x) {
            ASSERT_NEAR(out.at(x, y, 0), cube.value(x, y, 0), 1e-7) << x << " " << y;
        }
    }
}

// ---- the synthetic scene ----

/// How much of a known shape is in the column means: the slope of the regression on it.
double amplitude(const std::vector<double>& means, const std::vector<double>& shape) {
    double meanOfMeans = 0;
    double meanOfShape = 0;
    for (std::size_t i = 0; i < means.size(); ++i) meanOfMeans += means[i], meanOfShape += shape[i];
    meanOfMeans /= static_cast<double>(means.size());
    meanOfShape /= static_cast<double>(means.size());
    double product = 0;
    double square = 0;
    for (std::size_t i = 0; i < means.size(); ++i) {
        product += (means[i] - meanOfMeans) * (shape[i] - meanOfShape);
        square += (shape[i] - meanOfShape) * (shape[i] - meanOfShape);
    }
    return product / square;
}

TEST_F(Brdf, TheTrendOfTheSyntheticSceneIsGone) {
    constexpr int kWidth = 96;
    constexpr int kHeight = 48;
    constexpr int kBands = 40;
    for (const char* materials : {"1", "6"}) {
        mustRun({"synth", "scene.img", "--size", "96x48", "--bands", "40", "--materials", materials, "--force"});
        mustRun({"convert", "scene.img", "before.img", "--level", "1", "--force"});
        mustRun({"brdf", "scene.img", "after.img", "--force"});
        std::istringstream truth(read("scene_truth/trend.csv"));
        std::string line;
        std::getline(truth, line);
        std::vector<double> trend;
        while (std::getline(truth, line)) trend.push_back(std::stod(line.substr(line.find(',') + 1)));
        ASSERT_EQ(trend.size(), static_cast<std::size_t>(kWidth));
        const Samples before = samples("before.img", kWidth, kBands);
        const Samples after = samples("after.img", kWidth, kBands);
        ASSERT_EQ(before.values.size(), static_cast<std::size_t>(kWidth * kHeight * kBands));
        ASSERT_EQ(after.values.size(), before.values.size());
        for (int b = 0; b < kBands; ++b) {
            const Rectangle whole = {0, 0, kWidth, kHeight};
            const auto meansOf = [&](const Samples& of) {
                return columnMeans(whole, [&](int x, int y) { return of.at(x, y, b); });
            };
            const double was = std::abs(amplitude(meansOf(before), trend));
            const double is = std::abs(amplitude(meansOf(after), trend));
            EXPECT_LT(is, 0.01 * was) << materials << " materials, band " << b + 1;
        }
    }
}

// ---- what comes with the result ----

TEST_F(Brdf, DescribesTheResultAndLeavesTheSourceAlone) {
    const Cube cube = unevenCube();
    writeCube(dir() / "in.img", cube);
    const std::string image = read("in.img");
    const std::string header = read("in.hdr");
    const Result result = mustRun({"brdf", "in.img", "out.img", "--order", "3", "--bands", "b2,b3"});
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(contains(result.err, "out.img: 2 bands, order 3; the trend across the columns went from"))
        << result.err;
    EXPECT_EQ(read("in.img"), image);
    EXPECT_EQ(read("in.hdr"), header);
    EXPECT_EQ(files(), (std::vector<std::string>{"in.hdr", "in.img", "out.hdr", "out.img", "out.img.ks"}));
    const std::string made = read("out.hdr");
    for (const char* part : {"550", "650", "green", "red"}) EXPECT_TRUE(contains(made, part)) << part << "\n" << made;
    EXPECT_FALSE(contains(made, "BRDFCOR")) << made;
    const Json info = Json::parse(mustRun({"info", "out.img", "--json"}).out);
    const std::string history = info.at("history").dump();
    EXPECT_TRUE(contains(history, "ks brdf in.img --order 3 --sample 0,0,31,17 --process 0,0,31,17 --bands b2-b3"))
        << history;
    EXPECT_TRUE(contains(history, "BRDFCOR: DBIC=1, ORDER=3")) << history;
    EXPECT_TRUE(contains(history, "BRDFCOR: DBIC=2, ORDER=3")) << history;
}

TEST_F(Brdf, WritesGeoTiffToo) {
    Cube cube = unevenCube();
    cube.header += "map info = {UTM, 1, 1, 500000, 5700000, 10, 10, 33, North, WGS-84, units=Meters}\n";
    writeCube(dir() / "in.img", cube);
    mustRun({"brdf", "in.img", "out.tif"});
    mustRun({"brdf", "in.img", "same.img"});
    mustRun({"convert", "out.tif", "out.img"});
    EXPECT_EQ(read("out.img"), read("same.img"));
    const Json tif = Json::parse(mustRun({"info", "out.tif", "--json"}).out);
    const Json envi = Json::parse(mustRun({"info", "same.img", "--json"}).out);
    EXPECT_EQ(tif.at("band_table"), envi.at("band_table"));
    EXPECT_EQ(tif.at("place"), envi.at("place"));
    EXPECT_FALSE(tif.at("place").is_null());
}

TEST_F(Brdf, ReportsEveryBand) {
    const Cube cube = unevenCube();
    writeCube(dir() / "in.img", cube);
    const Result result = mustRun(
        {"brdf", "in.img", "out.img", "--json", "--report", "bands.csv", "--plot", "plot.svg", "--plot-band", "850"});
    const Json whole = Json::parse(result.out);
    EXPECT_EQ(whole.at("order"), 2);
    ASSERT_EQ(whole.at("bands").size(), 5U);
    for (int b = 0; b < 5; ++b) {
        const Fit fit(columnMeans({0, 0, 31, 17}, [&](int x, int y) { return cube.value(x, y, b); }), 0, 2);
        double low = fit.change(0);
        double high = low;
        for (int x = 0; x < 31; ++x) {
            low = std::min(low, fit.change(x));
            high = std::max(high, fit.change(x));
        }
        const Json& band = whole.at("bands").at(static_cast<std::size_t>(b));
        EXPECT_EQ(band.at("band"), b + 1);
        EXPECT_NEAR(band.at("mean").get<double>(), fit.mean(), 1e-9 * fit.mean());
        EXPECT_NEAR(band.at("trend_before").get<double>(), high - low, 1e-6);
        EXPECT_NEAR(band.at("trend_after").get<double>(), 0, 1e-3);
        EXPECT_NEAR(band.at("largest_change").get<double>(), std::max(high, -low), 1e-6);
    }
    EXPECT_EQ(count(read("bands.csv"), "\n"), 6);
    EXPECT_TRUE(contains(read("bands.csv"), "band,wavelength_nm,mean,trend_before,trend_after,largest_change\n1,450,"));
    const std::string plot = read("plot.svg");
    EXPECT_TRUE(contains(plot, "<svg")) << plot.substr(0, 100);
    mustRun({"brdf", "in.img", "again.img", "--plot", "plot.png"});
    EXPECT_GT(readPicture(dir() / "plot.png").width, 0);
}

TEST_F(Brdf, LinesComeInBlocksThatFitTheMemory) {
    // One line takes more than the memory that is allowed, so that every line is a block of its own.
    Cube cube = unevenCube();
    cube.width = 300;
    writeCube(dir() / "in.img", cube);
    mustRun({"brdf", "in.img", "large.img"});
    setenv("KSHOST_MEMORY", "4096", 1);
    const Result result = ks({"brdf", "in.img", "small.img"});
    unsetenv("KSHOST_MEMORY");
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(read("small.img"), read("large.img"));
}

// ---- in place ----

TEST_F(Brdf, InPlaceChangesTheImageItself) {
    const Cube cube = unevenCube();
    writeCube(dir() / "in.img", cube);
    const std::string header = read("in.hdr");
    const Result result = mustRun({"brdf", "--in-place", "in.img"});
    EXPECT_TRUE(contains(result.err, "warning: in.img itself is changed and cannot be brought back")) << result.err;
    const Rectangle whole = {0, 0, cube.width, cube.height};
    expectCorrected(cube, {0, 1, 2, 3, 4}, samples("in.img", cube.width, 5), whole, whole, 2);
    EXPECT_EQ(read("in.hdr"), header);
    EXPECT_TRUE(contains(Json::parse(mustRun({"info", "in.img", "--json"}).out).at("history").dump(),
                         "BRDFCOR: DBIC=5, ORDER=2"));
}

TEST_F(Brdf, InPlaceKeepsToTheSampleTypeAndSaysSo) {
    Cube cube = unevenCube();
    cube.type = 12;
    const auto shape = cube.value;
    cube.value = [&](int x, int y, int b) { return std::floor(shape(x, y, b)); };
    cube.header += "data gain values = {0.5, 0.25, 2, 1.5, 0.125}\ndata offset values = {1, 2, -3, 4, 5}\n";
    writeCube(dir() / "in.img", cube);
    const Result result = mustRun({"brdf", "in.img", "--in-place", "--bands", "b1-b3"});
    EXPECT_TRUE(contains(result.err, "rounded")) << result.err;
    const std::string bytes = read("in.img");
    for (int b = 0; b < 5; ++b) {
        // A gain is the same for trend and values, so that stored values can be compared.
        const Fit fit(columnMeans({0, 0, 31, 17}, [&](int x, int y) { return cube.value(x, y, b); }), 0, 2);
        for (int y = 0; y < cube.height; ++y) {
            for (int x = 0; x < cube.width; ++x) {
                std::uint16_t stored = 0;
                std::memcpy(&stored, bytes.data() + 2 * ((y * cube.width + x) * 5 + b), 2);
                const double wanted = cube.value(x, y, b) - (b < 3 ? fit.change(x) : 0);
                EXPECT_NEAR(static_cast<double>(stored), wanted, b < 3 ? 0.501 : 0) << x << " " << y << " " << b;
            }
        }
    }
}

TEST_F(Brdf, InPlaceRefusesWhatItWouldSpoil) {
    Cube cube = unevenCube();
    writeCube(dir() / "in.img", cube);
    EXPECT_TRUE(contains(errorOf({"brdf", "in.img", "--in-place", "--bands", "b2,b3"}), "overwrite the first bands"));
    EXPECT_TRUE(contains(errorOf({"brdf", "in.img", "out.img", "--in-place"}), "either the name"));
    EXPECT_TRUE(contains(errorOf({"brdf", "in.img"}), "either the name"));
    cube.header += "data ignore value = -9999\n";
    const auto shape = cube.value;
    cube.value = [&](int x, int y, int b) { return x == 3 && y == 4 && b == 1 ? kNoData : shape(x, y, b); };
    writeCube(dir() / "holes.img", cube);
    const std::string before = read("holes.img");
    EXPECT_TRUE(contains(errorOf({"brdf", "holes.img", "--in-place"}), "pixels without data"));
    EXPECT_EQ(read("holes.img"), before);
    EXPECT_EQ(files(), (std::vector<std::string>{"holes.hdr", "holes.img", "in.hdr", "in.img"}));
}

TEST_F(Brdf, InPlaceOnAFileThatCannotBeWrittenSaysSo) {
    writeCube(dir() / "in.img", unevenCube());
    const std::string before = read("in.img");
    fs::permissions(dir() / "in.img", fs::perms::owner_read);
    RunOptions ordinary;
    ordinary.heedPermissions = true;
    const Result result = ks({"brdf", "in.img", "--in-place"}, ordinary);
    EXPECT_EQ(result.status, 2) << result.err;
    EXPECT_TRUE(contains(result.err, "in.img is corrected in part or not at all")) << result.err;
    EXPECT_EQ(read("in.img"), before);
}

// ---- mistakes ----

TEST_F(Brdf, RefusesWhatCannotBeDone) {
    const Cube cube = unevenCube();
    writeCube(dir() / "in.img", cube);
    EXPECT_TRUE(contains(errorOf({"brdf", "in.img", "out.img", "--order", "0"}), "--order"));
    EXPECT_TRUE(contains(errorOf({"brdf", "in.img", "out.img", "--order", "9"}), "--order"));
    EXPECT_TRUE(contains(errorOf({"brdf", "in.img", "out.img", "--sample", "0,0,3,17"}),
                         "a polynomial of order 2 needs 4 columns or more to sample, not 3"));
    EXPECT_TRUE(contains(errorOf({"brdf", "in.img", "out.img", "--sample", "0,0,32,17"}), "does not lie inside"));
    EXPECT_TRUE(contains(errorOf({"brdf", "in.img", "out.img", "--process", "30,0,2,17"}), "does not lie inside"));
    EXPECT_TRUE(contains(errorOf({"brdf", "in.img", "out.img", "--sample", "1,2,3"}), "--sample"));
    EXPECT_TRUE(contains(errorOf({"brdf", "in.img", "out.img", "--bands", "b6"}), "b6"));
    EXPECT_TRUE(contains(errorOf({"brdf", "in.img", "out.img", "--plot", "plot.txt"}), ".svg or .png"));
    EXPECT_TRUE(contains(errorOf({"brdf", "in.img", "out.img", "--report", "report.svg"}), ".csv or .json"));
    EXPECT_TRUE(
        contains(errorOf({"brdf", "in.img", "out.img", "--bands", "b1", "--plot", "p.svg", "--plot-band", "b2"}),
                 "--plot-band"));
    EXPECT_TRUE(contains(errorOf({"brdf", "missing.img", "out.img"}), "no such file"));
    EXPECT_TRUE(contains(errorOf({"brdf", "in.img", "in.img"}), "onto itself"));
    EXPECT_TRUE(contains(errorOf({"brdf", "in.img", "out.img", "--plot", "in.hdr"}), "in.hdr"));
    EXPECT_TRUE(contains(errorOf({"brdf", "in.img", "out.png"}), "images are written as"));
    EXPECT_EQ(files(), (std::vector<std::string>{"in.hdr", "in.img"}));
    write("out.img", "mine");
    EXPECT_TRUE(contains(errorOf({"brdf", "in.img", "out.img"}), "--force"));
    EXPECT_EQ(read("out.img"), "mine");
    EXPECT_TRUE(contains(ks({"brdf", "--help"}).out, "Example:\n  ks brdf"));
}

TEST_F(Brdf, RefusesBandsWithTooFewColumnsOfData) {
    Cube cube = unevenCube();
    const auto shape = cube.value;
    cube.value = [&](int x, int y, int b) { return b == 2 && x > 2 ? kNoData : shape(x, y, b); };
    cube.header += "data ignore value = -9999\n";
    writeCube(dir() / "in.img", cube);
    EXPECT_TRUE(contains(errorOf({"brdf", "in.img", "out.img"}), "b3 (650.0 nm) has data in 3 of the sampled columns"));
    EXPECT_TRUE(contains(errorOf({"brdf", "in.img", "out.img", "--bands", "b3", "--sample", "4,0,20,17"}), "no data"));
    EXPECT_EQ(files(), (std::vector<std::string>{"in.hdr", "in.img"}));
}

TEST_F(Brdf, RefusesACorrectionThatLostItsDigits) {
    Cube cube = unevenCube();
    cube.width = 4000;
    cube.height = 2;
    cube.bands = 1;
    cube.header.clear();
    cube.value = [](int x, int, int) { return 1000 + std::sin(x * 1.7) * 50; };
    writeCube(dir() / "in.img", cube);
    const std::vector<std::string> far = {"brdf",     "in.img",      "out.img",   "--order",    "8",
                                          "--sample", "3980,0,20,2", "--process", "3980,0,20,2"};
    EXPECT_TRUE(contains(errorOf(far), "cannot be computed precisely enough with order 8"));
    EXPECT_EQ(files(), (std::vector<std::string>{"in.hdr", "in.img"}));
}

TEST_F(Brdf, LargeValuesAroundZeroAreNoLossOfDigits) {
    Cube cube = unevenCube();
    const auto shape = cube.value;
    cube.value = [&](int x, int y, int b) { return (y % 2 == 0 ? 1e6 : -1e6) + 0.001 * shape(x, y, b); };
    cube.height = 16;
    writeCube(dir() / "in.img", cube);
    mustRun({"brdf", "in.img", "out.img"});
}

TEST_F(Brdf, AnImageThatIsCutOffGivesNothing) {
    const Cube cube = unevenCube();
    writeCube(dir() / "in.img", cube);
    const std::string whole = read("in.img");
    write("in.img", whole.substr(0, whole.size() / 2));
    const Result result = ks({"brdf", "in.img", "out.img"});
    EXPECT_EQ(result.status, 2) << result.err;
    EXPECT_EQ(files(), (std::vector<std::string>{"in.hdr", "in.img"}));
}

}  // namespace
}  // namespace clitest
