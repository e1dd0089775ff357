// ks stats against statistics computed here in two passes over the samples that the cube was made of.
#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "clikit.hpp"

namespace clitest {
namespace {

using nlohmann::json;

using Samples = std::vector<std::vector<double>>;  // of each pixel, its bands

struct Expected {
    std::vector<double> min, max, mean, sd;
    std::vector<std::vector<double>> covariance;
};

Expected statisticsOf(const Samples& samples) {
    Expected e;
    const std::size_t bands = samples[0].size();
    const auto count = static_cast<long double>(samples.size());
    std::vector<long double> means(bands, 0);
    for (const auto& pixel : samples)
        for (std::size_t b = 0; b < bands; ++b) means[b] += static_cast<long double>(pixel[b]) / count;
    e.min = e.max = samples[0];
    e.covariance.assign(bands, std::vector<double>(bands));
    for (std::size_t i = 0; i < bands; ++i)
        for (std::size_t j = 0; j < bands; ++j) {
            long double sum = 0;
            for (const auto& pixel : samples)
                sum +=
                    (static_cast<long double>(pixel[i]) - means[i]) * (static_cast<long double>(pixel[j]) - means[j]);
            e.covariance[i][j] = static_cast<double>(sum / count);
        }
    for (std::size_t b = 0; b < bands; ++b) {
        for (const auto& pixel : samples) {
            e.min[b] = std::min(e.min[b], pixel[b]);
            e.max[b] = std::max(e.max[b], pixel[b]);
        }
        e.mean.push_back(static_cast<double>(means[b]));
        e.sd.push_back(std::sqrt(e.covariance[b][b]));
    }
    return e;
}

// Sums of squares of values of size `scale` carry that many digits.
constexpr double kTolerance = 1e-12;

class Stats : public CliTest {
protected:
    static constexpr int kWidth = 13;
    static constexpr int kHeight = 9;
    static constexpr int kBands = 4;

    // Band 0 is all negative, bands 1 and 2 go together, band 3 is coarse.
    static double value(int x, int y, int band) {
        switch (band) {
            case 0:
                return -1000.0 - 3 * x - 17 * y;
            case 1:
                return (x * 37 + y * 101) % 59 - 20.0;
            case 2:
                return 2.0 * ((x * 37 + y * 101) % 59) + (x * y) % 5;
            default:
                return x > 6 ? 250.0 : -4.0;
        }
    }
    Cube cube() const {
        Cube cube;
        cube.width = kWidth;
        cube.height = kHeight;
        cube.bands = kBands;
        cube.type = 4;
        cube.header = "wavelength units = nm\nwavelength = {500, 600.5, 700, 800}\n";
        cube.value = value;
        return cube;
    }
    /// The samples of the pixels for which `take` holds.
    template <class Take>
    static Samples samplesOf(Take take) {
        Samples samples;
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                if (!take(x, y)) continue;
                samples.emplace_back();
                for (int b = 0; b < kBands; ++b) samples.back().push_back(value(x, y, b));
            }
        return samples;
    }
    static bool everywhere(int, int) { return true; }

    json run(std::vector<std::string> more = {}) const {
        std::vector<std::string> arguments = {"stats", "cube.img", "--format", "json"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const Result result = ks(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        return result.status == 0 ? json::parse(result.out) : json();
    }
    static void expectEqual(const json& whole, const Samples& samples) {
        const Expected e = statisticsOf(samples);
        EXPECT_EQ(whole["samples"], samples.size());
        ASSERT_EQ(whole["bands"].size(), samples[0].size());
        for (std::size_t b = 0; b < samples[0].size(); ++b) {
            const json& band = whole["bands"][b];
            const double scale = std::max(std::abs(e.min[b]), std::abs(e.max[b])) + 1;
            EXPECT_EQ(band["min"], e.min[b]) << b;
            EXPECT_EQ(band["max"], e.max[b]) << b;
            EXPECT_NEAR(band["mean"], e.mean[b], kTolerance * scale) << b;
            const double variance = band["sd"].get<double>() * band["sd"].get<double>();
            EXPECT_NEAR(variance, e.covariance[b][b], kTolerance * scale * scale) << b;
        }
    }
};

TEST_F(Stats, NegativeValuesHaveTheirTrueMaximum) {
    writeCube(dir() / "cube.img", cube());
    const json whole = run();
    expectEqual(whole, samplesOf(everywhere));
    EXPECT_EQ(whole["bands"][0]["max"], -1000);
    EXPECT_EQ(whole["excluded"], 0);
    EXPECT_EQ(whole["pixels"], kWidth * kHeight);
    EXPECT_TRUE(whole["region"].is_null());
    EXPECT_TRUE(whole["difference"].is_null());
    EXPECT_EQ(whole["bands"][1]["wavelength_nm"], 600.5);
}

TEST_F(Stats, PixelsWithoutDataAreKeptOutAndCounted) {
    Cube holed = cube();
    holed.header += "data ignore value = -77\n";
    const auto isHole = [](int x, int y) { return (x == 2 && y == 3) || (x == 12 && y == 8) || (x == 5 && y == 0); };
    holed.value = [](int x, int y, int b) {
        if (x == 2 && y == 3 && b == 1) return std::numeric_limits<double>::quiet_NaN();
        if (x == 12 && y == 8) return -77.0;
        if (x == 5 && y == 0 && b == 3) return std::numeric_limits<double>::infinity();
        return value(x, y, b);
    };
    writeCube(dir() / "cube.img", holed);
    const json whole = run();
    expectEqual(whole, samplesOf([&](int x, int y) { return !isHole(x, y); }));
    EXPECT_EQ(whole["excluded"], 3);
    EXPECT_EQ(whole["samples"], kWidth * kHeight - 3);
    // Of the chosen bands only.
    EXPECT_EQ(run({"--bands", "b1,b3"})["excluded"], 1);
    const Result text = ks({"stats", "cube.img"});
    EXPECT_TRUE(contains(text.out, "114 valid samples; 3 of 117 pixels excluded for lack of data\n")) << text.out;
    const auto rows = cellsOf(ks({"stats", "cube.img", "--format", "csv"}).out);
    ASSERT_EQ(rows.size(), 5U);
    EXPECT_EQ(rows[0],
              (std::vector<std::string>{"band", "wavelength_nm", "samples", "excluded", "min", "max", "mean", "sd"}));
    EXPECT_EQ(rows[2][1], "600.5");
    EXPECT_EQ(rows[2][2], "114");
    EXPECT_EQ(rows[2][3], "3");
    EXPECT_EQ(rows[1][5], "-1000");
}

TEST_F(Stats, LevelOfValuesIsCalibratedAndNoDataStaysOut) {
    Cube calibrated = cube();
    calibrated.type = 2;
    calibrated.header +=
        "data gain values = {0.5, 0.25, 2, 1}\ndata offset values = {1, -2, 0, 8}\ndata ignore value = 250\n";
    writeCube(dir() / "cube.img", calibrated);
    Samples samples = samplesOf([](int x, int) { return x <= 6; });
    expectEqual(run({"--level", "0"}), samples);
    for (auto& pixel : samples) {
        pixel = {0.5 * pixel[0] + 1, 0.25 * pixel[1] - 2, 2 * pixel[2], pixel[3] + 8};
    }
    const json whole = run();
    expectEqual(whole, samples);
    EXPECT_EQ(whole["level"], 1);
    EXPECT_EQ(whole["quantity"], "at-sensor (apparent) radiance");
    EXPECT_EQ(whole["excluded"], 6 * kHeight);
}

TEST_F(Stats, RegionsLimitThePixels) {
    Cube holed = cube();
    holed.value = [](int x, int y, int b) { return x == 4 && y == 4 ? std::nan("") : value(x, y, b); };
    writeCube(dir() / "cube.img", holed);
    const json rectangle = run({"--roi", "rectangle xoff 3 yoff 2 xsize 5 ysize 4"});
    expectEqual(rectangle,
                samplesOf([](int x, int y) { return x >= 3 && x < 8 && y >= 2 && y < 6 && !(x == 4 && y == 4); }));
    EXPECT_EQ(rectangle["excluded"], 1);
    EXPECT_EQ(rectangle["pixels"], 20);
    EXPECT_EQ(rectangle["region"], "rectangle xoff 3 yoff 2 xsize 5 ysize 4");
    // Half outside, so that it is cut to the image.
    expectEqual(run({"--roi", "point xoff 12 yoff 0 size 3"}), samplesOf([](int x, int y) { return x > 10 && y < 2; }));
    // A single pixel.
    const json point = run({"--roi", "point xoff 1 yoff 1 size 1"});
    EXPECT_EQ(point["samples"], 1);
    EXPECT_EQ(point["bands"][0]["sd"], 0);
    EXPECT_EQ(point["bands"][0]["min"], value(1, 1, 0));
}

TEST_F(Stats, MaskFileAndPolygonSelectTheSamePixels) {
    writeCube(dir() / "cube.img", cube());
    const auto inside = [](int x, int y) { return x >= 2 && x < 6 && y >= 1 && y < 8; };
    Cube mask;
    mask.width = kWidth;
    mask.height = kHeight;
    mask.bands = 1;
    mask.type = 1;
    mask.value = [&](int x, int y, int) { return inside(x, y) ? 3.0 : 0.0; };
    writeCube(dir() / "mask.img", mask);
    write("area.csv", "x,y\n2,1\n6,1\n6,8\n2,8\n");
    write("area.roi",
          "# two that overlap\nrectangle xoff 2 yoff 1 xsize 4 ysize 5\r\n\n"
          "rectangle\txoff 2 yoff 3 xsize 4 ysize 5 # lower\n");
    for (const char* name : {"mask.img", "area.csv", "area.roi"}) {
        SCOPED_TRACE(name);
        expectEqual(run({"--roi", name}), samplesOf(inside));
    }
}

TEST_F(Stats, DifferencesTakeEveryPairOnce) {
    Cube holed = cube();
    holed.value = [](int x, int y, int b) { return x == 4 && y == 4 && b == 0 ? std::nan("") : value(x, y, b); };
    writeCube(dir() / "cube.img", holed);
    const auto pairs = [](int dx, int dy, int x0, int y0, int x1, int y1) {
        Samples differences;
        for (int y = y0; y + dy <= y1; ++y)
            for (int x = x0; x + dx <= x1; ++x) {
                if ((x == 4 && y == 4) || (x + dx == 4 && y + dy == 4)) continue;
                differences.emplace_back();
                for (int b = 0; b < kBands; ++b)
                    differences.back().push_back(std::abs(value(x, y, b) - value(x + dx, y + dy, b)));
            }
        return differences;
    };
    const json right = run({"--diff", "1,0"});
    expectEqual(right, pairs(1, 0, 0, 0, kWidth - 1, kHeight - 1));
    EXPECT_EQ(right["difference"], (json{1, 0}));
    EXPECT_EQ(right["samples"], 12 * 9 - 2);
    EXPECT_EQ(right["excluded"], 1);
    expectEqual(run({"--diff", "2,3"}), pairs(2, 3, 0, 0, kWidth - 1, kHeight - 1));
    expectEqual(run({"--diff", "0,1", "--roi", "rectangle xoff 3 yoff 2 xsize 5 ysize 4"}), pairs(0, 1, 3, 2, 7, 5));
    EXPECT_TRUE(contains(ks({"stats", "cube.img", "--diff", "1,0"}).out,
                         "106 pairs of valid pixels, 1 columns and 0 lines apart; 1 of 117 pixels excluded"));
}

TEST_F(Stats, EveryNthPixelIsCountedAlone) {
    Cube holed = cube();
    holed.value = [](int x, int y, int b) {
        return (x == 6 && y == 3) || (x == 1 && y == 1) ? std::nan("") : value(x, y, b);
    };
    writeCube(dir() / "cube.img", holed);
    const json whole = run({"--every", "3"});
    // Whole cells of 3 x 3 pixels.
    expectEqual(whole,
                samplesOf([](int x, int y) { return x % 3 == 0 && y % 3 == 0 && x < 12 && !(x == 6 && y == 3); }));
    EXPECT_EQ(whole["excluded"], 1);
    EXPECT_EQ(whole["pixels"], 12);
    expectEqual(run({"--every", "2", "--roi", "rectangle xoff 1 yoff 2 xsize 6 ysize 4"}),
                samplesOf([](int x, int y) { return x % 2 == 1 && x < 7 && (y == 2 || y == 4); }));
}

TEST_F(Stats, MatricesAreWrittenForPeopleAndForNumPy) {
    writeCube(dir() / "cube.img", cube());
    ASSERT_EQ(ks({"stats", "cube.img", "--bands", "b3,b1,b2", "--covariance", "cov.csv", "--correlation", "cor.npy",
                  "-o", "out.json"})
                  .status,
              0);
    const Expected e = statisticsOf(samplesOf(everywhere));
    const std::vector<std::size_t> order = {2, 0, 1};
    const auto rows = cellsOf(read("cov.csv"));
    ASSERT_EQ(rows.size(), 4U);
    EXPECT_EQ(rows[0], (std::vector<std::string>{"b3", "b1", "b2"}));
    const std::string bytes = read("cor.npy");
    ASSERT_EQ(bytes.substr(0, 8), std::string("\x93NUMPY\x01\x00", 8));
    const std::size_t start = 10 + static_cast<unsigned char>(bytes[8]) + 256U * static_cast<unsigned char>(bytes[9]);
    EXPECT_EQ(start % 64, 0U);
    EXPECT_EQ(bytes[start - 1], '\n');
    EXPECT_TRUE(contains(bytes.substr(0, start), "{'descr': '<f8', 'fortran_order': False, 'shape': (3, 3), }"));
    ASSERT_EQ(bytes.size(), start + 9 * sizeof(double));
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j) {
            const double covariance = e.covariance[order[i]][order[j]];
            EXPECT_NEAR(std::stod(rows[i + 1][j]), covariance, kTolerance * 1.5e6);
            double correlation = 0;
            std::memcpy(&correlation, bytes.data() + start + (3 * i + j) * sizeof correlation, sizeof correlation);
            EXPECT_NEAR(correlation, covariance / (e.sd[order[i]] * e.sd[order[j]]), 1e-9);
            if (i == j) {
                EXPECT_EQ(correlation, 1.0);
            }
        }
    EXPECT_EQ(json::parse(read("out.json"))["bands"][0]["band"], 3);
}

TEST_F(Stats, BandThatDoesNotVaryHasNoDeviationAndNoCorrelation) {
    Cube flat = cube();
    flat.value = [](int x, int, int b) { return b == 1 ? 0.1 : x; };
    writeCube(dir() / "cube.img", flat);
    const json whole = run({"--covariance", "cov.csv", "--correlation", "cor.csv"});
    EXPECT_EQ(whole["bands"][1]["sd"], 0.0);
    EXPECT_EQ(whole["bands"][1]["min"], 0.1);
    EXPECT_EQ(whole["bands"][1]["mean"].get<double>(), static_cast<double>(0.1F));
    const auto covariances = cellsOf(read("cov.csv"));
    const auto correlation = cellsOf(read("cor.csv"));
    EXPECT_EQ(covariances[2], (std::vector<std::string>{"0", "0", "0", "0"}));
    EXPECT_EQ(correlation[2], (std::vector<std::string>{"nan", "nan", "nan", "nan"}));
    EXPECT_EQ(correlation[1][1], "nan");
    EXPECT_EQ(correlation[1][2], "1");
}

TEST_F(Stats, BandsWithoutDataAreLeftOutAndSaid) {
    Cube gaps = cube();
    gaps.header += "data ignore value = -9\n";
    // Band 2 never holds data; band 4 has its first value late, so that earlier pixels do not count.
    gaps.value = [](int x, int y, int b) { return b == 1 || (b == 3 && y < 6) ? -9.0 : value(x, y, b); };
    writeCube(dir() / "cube.img", gaps);
    const Result result = ks({"stats", "cube.img", "--format", "json", "--covariance", "cov.csv"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.err, "b2 without any data")) << result.err;
    const json whole = json::parse(result.out);
    EXPECT_EQ(whole["samples"], kWidth * 3);
    EXPECT_EQ(whole["excluded"], kWidth * 6);
    EXPECT_TRUE(whole["bands"][1]["mean"].is_null());
    const Expected e = statisticsOf(samplesOf([](int, int y) { return y >= 6; }));
    EXPECT_EQ(whole["bands"][3]["max"], e.max[3]);
    EXPECT_NEAR(whole["bands"][2]["mean"], e.mean[2], 1e-9);
    EXPECT_EQ(cellsOf(read("cov.csv"))[0], (std::vector<std::string>{"b1", "b3", "b4"}));
    EXPECT_TRUE(contains(ks({"stats", "cube.img"}).out, "no data\n"));
    EXPECT_EQ(cellsOf(ks({"stats", "cube.img", "--format", "csv"}).out)[2],
              (std::vector<std::string>{"2", "600.5", "0", "117", "", "", "", ""}));
}

TEST_F(Stats, NoValidPixelIsAFailure) {
    Cube empty = cube();
    empty.header += "data ignore value = 0\n";
    empty.value = [](int x, int, int b) { return x % 2 == b % 2 ? 0.0 : 5.0; };
    writeCube(dir() / "cube.img", empty);
    const Result result = ks({"stats", "cube.img", "-o", "out.csv"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.err, "no pixel has data in every band")) << result.err;
    EXPECT_EQ(ks({"stats", "cube.img", "--bands", "b1,b3", "-o", "out.csv"}).status, 0);
    EXPECT_EQ(ks({"stats", "cube.img", "--bands", "b1", "--diff", "1,0"}).status, 1);
}

TEST_F(Stats, SmallBlocksGiveTheSameNumbers) {
    Cube holed = cube();
    holed.value = [](int x, int y, int b) { return x == 4 && y == 4 ? std::nan("") : value(x, y, b); };
    writeCube(dir() / "cube.img", holed);
    for (const std::vector<std::string>& more : {std::vector<std::string>{}, {"--diff", "1,2"}, {"--every", "2"}}) {
        const json whole = run(more);
        ASSERT_EQ(setenv("KSHOST_MEMORY", "2000", 1), 0);
        const json blocks = run(more);
        unsetenv("KSHOST_MEMORY");
        EXPECT_EQ(whole, blocks);
    }
}

TEST_F(Stats, TruncatedCubeGivesNoStatistics) {
    writeCube(dir() / "cube.img", cube());
    fs::resize_file(dir() / "cube.img", 1000);
    const auto before = files();
    const Result result = ks({"stats", "cube.img", "-o", "out.csv"});
    EXPECT_NE(result.status, 0);
    EXPECT_EQ(files(), before);
}

TEST_F(Stats, UnusableArgumentsAreExplained) {
    writeCube(dir() / "cube.img", cube());
    write("there.csv", "");
    const auto before = files();
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--level", "3"}, "level 3 does not exist"},
        {{"--bands", "b9"}, "b1 to b4"},
        {{"--diff", "0,0"}, "compares every pixel with itself"},
        {{"--diff", "-1,0"}, "not a whole number"},
        {{"--diff", "1,0", "--every", "2"}, "excludes"},
        {{"--diff", "13,0"}, "no two pixels with data lie 13 columns and 0 lines apart"},
        {{"--every", "0"}, "not a whole number"},
        {{"--format", "xml"}, "xml"},
        {{"--covariance", "cov.txt"}, "a matrix is written as .csv, or as .npy"},
        {{"--covariance", "a.csv", "--correlation", "a.csv"}, "named for two outputs"},
        {{"-o", "there.csv"}, "there.csv exists"},
        {{"-o", "cube.hdr", "--force"}, "belongs to the image"},
        {{"-o", "cube.img", "--force"}, "belongs to the image"},
        {{"-o", "nowhere/out.csv"}, "folder"},
        {{"--roi", "rectangle xoff 13 yoff 0 xsize 2 ysize 2"}, "lies outside the image of 13 x 9 pixels"},
        {{"--roi", "missing.roi"}, "neither a region nor the name of a file"}};
    for (const auto& [more, words] : cases) {
        std::vector<std::string> arguments = {"stats", "cube.img"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const Result result = ks(arguments);
        EXPECT_EQ(result.status, 1) << testing::PrintToString(arguments);
        EXPECT_TRUE(contains(result.err, words)) << testing::PrintToString(arguments) << result.err;
    }
    EXPECT_EQ(files(), before);
}

}  // namespace
}  // namespace clitest
