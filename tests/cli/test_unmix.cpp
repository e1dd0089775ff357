// ks unmix: known mixtures, the true fractions of a made-up scene within its noise, and what is refused.
#include <kslib.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <sstream>

#include "clikit.hpp"
#include "image/bands.hpp"
#include "image/dataset.hpp"
#include "image/entries.hpp"
#include "speckit.hpp"

namespace clitest {
namespace {

using kscli::DataSet;
using nlohmann::json;

constexpr int kWidth = 6;
constexpr int kHeight = 5;
constexpr int kBands = 12;
constexpr int kEndmembers = 3;
constexpr const char* kMap = "map info = {UTM, 1, 1, 365055, 5807085, 30, 30, 33, North, WGS-84, units=Meters}\n";

double centre(int b) { return 450 + 25 * b; }
double endmember(int e, int b) {
    const double t = static_cast<double>(b) / kBands;
    if (e == 0) return 0.1 + 0.5 * t;
    return e == 1 ? 0.6 - 0.3 * t * t : 0.3 + 0.2 * std::sin(7 * t);
}
double fraction(int x, int y, int e) {
    const double first = static_cast<double>(x) / (kWidth - 1);
    const double second = (1 - first) * y / (kHeight - 1);
    return e == 0 ? first : e == 1 ? second : 1 - first - second;
}
double mixed(int x, int y, int b) {
    double sum = 0;
    for (int e = 0; e < kEndmembers; ++e) sum += fraction(x, y, e) * endmember(e, b);
    return sum;
}

std::string wavelengthLines() {
    std::vector<double> centres;
    for (int b = 0; b < kBands; ++b) centres.push_back(centre(b));
    return "wavelength units = Nanometers\nwavelength = " + braces(centres) +
           "\nfwhm = " + braces(std::vector<double>(kBands, 20)) + "\n";
}

Cube mixtureCube() {
    Cube cube;
    cube.width = kWidth;
    cube.height = kHeight;
    cube.bands = kBands;
    cube.type = 4;
    cube.value = mixed;
    cube.header = wavelengthLines() + kMap;
    return cube;
}

Library endmemberLibrary(int firstBand = 0, double scale = 1) {
    const char* const names[] = {"soil", "dry grass", "water"};
    Library library;
    for (int e = 0; e < kEndmembers; ++e) {
        std::vector<float> wavelengths;
        std::vector<double> values;
        for (int b = firstBand; b < kBands; ++b) {
            wavelengths.push_back(static_cast<float>(centre(b)));
            values.push_back(scale * endmember(e, b));
        }
        library.push_back(makeSpectrum(names[e], wavelengths, values));
    }
    return library;
}

class Unmix : public CliTest {
protected:
    void SetUp() override {
        CliTest::SetUp();
        writeCube(dir() / "scene.img", mixtureCube());
        write("lib.csv", tableOf(endmemberLibrary()));
    }

    Result succeed(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "unmix");
        Result result = ks(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        return result;
    }
    void refused(std::vector<std::string> arguments, const std::string& reason) const {
        const std::vector<std::string> before = files();
        arguments.insert(arguments.begin(), "unmix");
        const Result result = ks(arguments);
        EXPECT_EQ(result.status, 1) << result.err;
        EXPECT_TRUE(contains(result.err, reason)) << result.err;
        EXPECT_EQ(files(), before);
    }

    /// The fractions are those of the mixtures, the misfit is 0 and every pixel was solved.
    void expectTruth(const std::string& name, double tolerance) const {
        const std::vector<float> found = floats(name);
        ASSERT_EQ(found.size(), static_cast<std::size_t>(kWidth * kHeight * (kEndmembers + 2)));
        std::size_t at = 0;
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                for (int e = 0; e < kEndmembers; ++e) {
                    EXPECT_NEAR(static_cast<double>(found[at++]), fraction(x, y, e), tolerance) << x << "," << y;
                }
                EXPECT_NEAR(static_cast<double>(found[at++]), 0, tolerance);
                EXPECT_EQ(found[at++], 0.0F);
            }
        }
    }
};

std::vector<std::string> optionArguments(bool sumToOne, bool nonNegative, bool normalise) {
    std::vector<std::string> arguments;
    if (sumToOne) arguments.emplace_back("--sum-to-one");
    if (nonNegative) arguments.emplace_back("--non-negative");
    if (normalise) arguments.emplace_back("--normalise");
    return arguments;
}

// ---- results ----

TEST_F(Unmix, GivesTheFractionsOfKnownMixtures) {
    const Result result = succeed({"scene.img", "out.img", "--endmembers", "lib.csv"});
    expectTruth("out.img", 1e-5);
    EXPECT_FALSE(contains(result.err, "resampled")) << "the library has the image's wavelengths: " << result.err;
    EXPECT_FALSE(contains(result.err, "warning")) << result.err;
}

TEST_F(Unmix, NamesItsBandsAndKeepsPlaceAndHistory) {
    succeed({"scene.img", "out.img", "--endmembers", "lib.csv", "--non-negative"});
    const DataSet output = DataSet::open(path("out.img"));
    ASSERT_EQ(output.bandCount(), kEndmembers + 2);
    EXPECT_EQ(output->nNumRadTrans, 0);
    EXPECT_FALSE(output.hasWavelengths()) << "fractions have none";
    const char* const names[] = {"soil", "dry grass", "water", "RMS misfit",
                                 "status: 0 solved / 1 not converged / 2 invalid"};
    for (int band = 0; band < kEndmembers + 2; ++band) {
        char name[256] = {};
        GDBChanDescIO(output.file(), 0, band + 1, name);
        EXPECT_STREQ(name, names[band]);
        EXPECT_TRUE(contains(read("out.hdr"), names[band]));
    }
    double place[6] = {};
    ASSERT_NE(KSHostGetGeoTransform(output.file(), place), 0);
    EXPECT_EQ(std::vector<double>(place, place + 6), (std::vector<double>{365055, 30, 0, 5807085, 0, -30}));
    const kscli::Entries history(KSHostGetHistory(output.file()));
    ASSERT_EQ(history.texts().size(), 1U);
    EXPECT_TRUE(contains(history.texts()[0], "ks unmix scene.img --endmembers lib.csv --bands b1-b12 --non-negative"));
}

TEST_F(Unmix, EveryCombinationOfOptionsGivesWhatTheLibraryGivesForEachPixel) {
    // Noise, so that the options matter.
    Cube cube = mixtureCube();
    cube.value = [](int x, int y, int b) { return mixed(x, y, b) + 0.05 * std::sin(12.9 * x + 78.2 * y + 37.7 * b); };
    writeCube(dir() / "noisy.img", cube);
    for (int options = 0; options < 8; ++options) {
        const bool sumToOne = (options & 1) != 0;
        const bool nonNegative = (options & 2) != 0;
        const bool normalise = (options & 4) != 0;
        std::vector<std::string> arguments = {"noisy.img", "out.img", "--endmembers", "lib.csv", "--force"};
        for (const std::string& option : optionArguments(sumToOne, nonNegative, normalise)) arguments.push_back(option);
        succeed(arguments);
        const std::vector<float> found = floats("out.img");
        ASSERT_EQ(found.size(), static_cast<std::size_t>(kWidth * kHeight * (kEndmembers + 2)));

        float matrix[kBands + 1][kEndmembers];
        float* rows[kBands + 1];
        for (int b = 0; b <= kBands; ++b) {
            rows[b] = matrix[b];
            for (int e = 0; b < kBands && e < kEndmembers; ++e) matrix[b][e] = static_cast<float>(endmember(e, b));
        }
        float pixel[kBands + 1];
        float fractions[kEndmembers + 1];
        for (int i = 0; i < kWidth * kHeight; ++i) {
            for (int b = 0; b < kBands; ++b) pixel[b] = static_cast<float>(cube.value(i % kWidth, i / kWidth, b));
            ASSERT_EQ(get_endmember_fractions(rows, pixel, fractions, kEndmembers, kBands, sumToOne, nonNegative,
                                              normalise, i == 0),
                      0);
            for (int k = 0; k <= kEndmembers; ++k) {
                EXPECT_EQ(found[static_cast<std::size_t>(i * (kEndmembers + 2) + k)], fractions[k]) << options;
            }
        }
    }
}

TEST_F(Unmix, NormalisedFractionsSumToOne) {
    Cube cube = mixtureCube();
    cube.value = [](int x, int y, int b) { return 0.8 * mixed(x, y, b) + 0.02 * std::sin(5.0 * b + x); };
    writeCube(dir() / "dim.img", cube);
    succeed({"dim.img", "out.img", "--endmembers", "lib.csv", "--sum-to-one", "--non-negative", "--normalize"});
    const std::vector<float> found = floats("out.img");
    for (std::size_t i = 0; i < found.size(); i += kEndmembers + 2) {
        EXPECT_NEAR(found[i] + found[i + 1] + found[i + 2], 1.0F, 1e-6F);
        for (std::size_t e = 0; e < kEndmembers; ++e) EXPECT_GE(found[i + e], 0.0F);
    }
}

TEST_F(Unmix, PixelsWithoutDataAreInvalidAndNotNumbers) {
    Cube cube = mixtureCube();
    cube.header += "data ignore value = -9999\n";
    cube.value = [](int x, int y, int b) {
        if (x == 2 && y == 1) return -9999.0;
        if (x == 3 && y == 1 && b == 4) return std::numeric_limits<double>::quiet_NaN();
        return mixed(x, y, b);
    };
    writeCube(dir() / "holes.img", cube);
    for (const bool nonNegative : {false, true}) {
        std::vector<std::string> arguments = {"holes.img", "out.img", "--endmembers", "lib.csv", "--force", "--json"};
        if (nonNegative) arguments.emplace_back("--non-negative");
        const Result result = succeed(arguments);
        EXPECT_TRUE(contains(result.err, "2 of 30 pixels hold no data")) << result.err;
        EXPECT_EQ(json::parse(result.out)["pixels"]["invalid"], 2);
        EXPECT_EQ(json::parse(result.out)["pixels"]["solved"], 28);
        const std::vector<float> found = floats("out.img");
        for (std::size_t i = 0; i < 30; ++i) {
            const bool hole = i == 8 || i == 9;
            EXPECT_EQ(found[i * 5 + 4], hole ? 2.0F : 0.0F) << i;
            for (std::size_t k = 0; k < 4; ++k) EXPECT_EQ(std::isnan(found[i * 5 + k]), hole) << i;
        }
    }
    EXPECT_TRUE(contains(read("out.hdr"), "data ignore value = nan"));
}

TEST_F(Unmix, ACubeLargerThanTheMemoryAllowanceGivesTheSame) {
    Cube cube = mixtureCube();
    cube.width = 40;
    cube.height = 50;
    cube.value = [](int x, int y, int b) {
        return mixed(x % kWidth, y % kHeight, b) + 0.01 * std::sin(x + 3.0 * y * b);
    };
    writeCube(dir() / "large.img", cube);
    succeed({"large.img", "a.img", "--endmembers", "lib.csv", "--non-negative", "--pictures"});
    // Some rows at a time.
    setenv("KSHOST_MEMORY", "20000", 1);
    succeed({"large.img", "b.img", "--endmembers", "lib.csv", "--non-negative", "--pictures"});
    unsetenv("KSHOST_MEMORY");
    EXPECT_EQ(read("a.img").size(), 40U * 50 * 5 * 4);
    EXPECT_EQ(read("a.img"), read("b.img"));
    EXPECT_EQ(read("a_fractions/fraction_01_soil.png"), read("b_fractions/fraction_01_soil.png"));
}

TEST_F(Unmix, WritesGeoTiff) {
    succeed({"scene.img", "out.tif", "--endmembers", "lib.csv"});
    const DataSet output = DataSet::open(path("out.tif"));
    EXPECT_EQ(output.bandCount(), kEndmembers + 2);
    kscli::Window window(1, 1, 1, 1, kscli::allBands(output));
    window.place(5, 0);
    window.read(output, 0);
    EXPECT_NEAR(window.samples()[0], 1.0F, 1e-5F);
    char name[256] = {};
    GDBChanDescIO(output.file(), 0, 2, name);
    EXPECT_STREQ(name, "dry grass");
    double place[6] = {};
    ASSERT_NE(KSHostGetGeoTransform(output.file(), place), 0);
    EXPECT_EQ(place[0], 365055);
}

// The scene's own account of itself: radiance is a column's brightness times the mixture of what each material sends.
TEST_F(Unmix, RecoversTheTrueFractionsOfASceneWithinItsNoise) {
    constexpr std::size_t kMaterials = 5;
    ASSERT_EQ(ks({"synth", "synth.img", "--size", "48x40", "--bands", "60", "--materials", "5"}).status, 0);
    const auto numbers = [&](const std::string& name) {
        std::vector<std::vector<double>> rows;
        std::istringstream text(read("synth_truth/" + name));
        std::string line;
        for (std::getline(text, line); std::getline(text, line);) {
            rows.emplace_back();
            std::istringstream fields(line);
            for (std::string field; std::getline(fields, field, ',');) rows.back().push_back(std::stod(field));
        }
        return rows;
    };
    const auto reflectance = numbers("endmembers.csv");
    const auto light = numbers("illumination.csv");
    const auto trend = numbers("trend.csv");
    ASSERT_EQ(reflectance.size(), 60U);
    Library library(kMaterials);
    for (std::size_t m = 0; m < kMaterials; ++m) {
        std::vector<float> wavelengths;
        std::vector<double> values;
        for (std::size_t b = 0; b < 60; ++b) {
            wavelengths.push_back(static_cast<float>(reflectance[b][0]));
            values.push_back(light[b][1] * reflectance[b][m + 1] + light[b][2]);
        }
        library[m] = makeSpectrum("material " + std::to_string(m + 1), wavelengths, values);
    }
    write("radiance.csv", tableOf(library));

    // The standard deviation of a least-squares fraction from the noise of a white surface, which bounds that of all
    // others: the diagonal of (A'A)^-1 A' N A (A'A)^-1 for the good bands.
    const DataSet image = DataSet::open(path("synth.img"));
    const std::vector<int> good = kscli::goodBands(image);
    constexpr std::size_t n = kMaterials;
    double left[n][2 * n] = {};
    for (const int band : good) {
        const auto b = static_cast<std::size_t>(band);
        for (std::size_t i = 0; i < n; ++i) {
            for (std::size_t j = 0; j < n; ++j) left[i][j] += library[i].values[b] * library[j].values[b];
        }
    }
    for (std::size_t i = 0; i < n; ++i) left[i][n + i] = 1;
    for (std::size_t p = 0; p < n; ++p) {  // elimination; the matrix is positive definite
        const double pivot = left[p][p];
        for (double& value : left[p]) value /= pivot;
        for (std::size_t i = 0; i < n; ++i) {
            const double factor = left[i][p];
            for (std::size_t j = 0; i != p && j < 2 * n; ++j) left[i][j] -= factor * left[p][j];
        }
    }
    double variance[n] = {};
    for (const int band : good) {
        const auto b = static_cast<std::size_t>(band);
        for (std::size_t i = 0; i < n; ++i) {
            double weight = 0;
            for (std::size_t j = 0; j < n; ++j) weight += left[i][n + j] * library[j].values[b];
            variance[i] += weight * weight * light[b][3] * light[b][3];
        }
    }

    const DataSet truth = DataSet::open(path("synth_truth/fractions.img"));
    const std::vector<float> expected = floats("synth_truth/fractions.img");
    for (const bool nonNegative : {false, true}) {
        std::vector<std::string> arguments = {"synth.img", "out.img", "--endmembers", "radiance.csv",
                                              "--level",   "1",       "--force"};
        if (nonNegative) arguments.emplace_back("--non-negative");
        const Result result = succeed(arguments);
        EXPECT_FALSE(contains(result.err, "warning")) << result.err;
        const std::vector<float> found = floats("out.img");
        ASSERT_EQ(found.size(), 48U * 40 * (n + 2));
        for (std::size_t m = 0; m < n; ++m) {
            double squares = 0;
            double largest = 0;
            for (std::size_t i = 0; i < 48 * 40; ++i) {
                const double brightness = trend[i % 48][1];
                const double wanted = brightness * static_cast<double>(expected[i * n + m]);
                const double error = (static_cast<double>(found[i * (n + 2) + m]) - wanted) / std::sqrt(variance[m]);
                squares += error * error;
                largest = std::max(largest, std::abs(error));
                EXPECT_EQ(found[i * (n + 2) + n + 1], 0.0F);
            }
            EXPECT_LT(std::sqrt(squares / (48 * 40)), 1.1) << "material " << m << (nonNegative ? ", NNLS" : "");
            EXPECT_LT(largest, 6) << "material " << m;
            EXPECT_GT(squares, 0) << "the noise is there";
        }
        double misfit = 0;
        double noise = 0;
        for (std::size_t i = 0; i < 48 * 40; ++i) misfit += static_cast<double>(found[i * (n + 2) + n]) / (48 * 40);
        for (const int band : good) noise = std::max(noise, light[static_cast<std::size_t>(band)][3]);
        EXPECT_LT(misfit, noise);
        EXPECT_GT(misfit, 0);
    }
    EXPECT_LT(std::sqrt(*std::max_element(variance, variance + n)), 0.2) << "the bound means something";
}

// ---- endmembers ----

TEST_F(Unmix, ChoosesEndmembersByNameAndNumber) {
    succeed({"scene.img", "a.img", "--endmembers", "lib.csv", "--select", "water,1"});
    const DataSet output = DataSet::open(path("a.img"));
    ASSERT_EQ(output.bandCount(), 4);
    char name[256] = {};
    GDBChanDescIO(output.file(), 0, 1, name);
    EXPECT_STREQ(name, "soil");
    GDBChanDescIO(output.file(), 0, 2, name);
    EXPECT_STREQ(name, "water");
    refused({"scene.img", "b.img", "--endmembers", "lib.csv", "--select", "gold"}, "gold");
    refused({"scene.img", "b.img", "--endmembers", "lib.csv", "--select", "7"}, "there is no spectrum 7");
}

TEST_F(Unmix, TakesEndmembersFromPixelsAndRegions) {
    // Pure are (5,0), (0,4) and (0,0).
    succeed({"scene.img", "a.img", "--pixel", "5,0", "--pixel", "0,4", "--roi", "point xoff 0 yoff 0 size 1"});
    expectTruth("a.img", 1e-5);
    const DataSet output = DataSet::open(path("a.img"));
    char name[256] = {};
    GDBChanDescIO(output.file(), 0, 1, name);
    EXPECT_STREQ(name, "pixel 5 0");
    GDBChanDescIO(output.file(), 0, 3, name);
    EXPECT_STREQ(name, "point xoff 0 yoff 0 size 1");

    const Result result = succeed({"scene.img", "b.img", "--endmembers", "lib.csv", "--select", "soil", "--roi",
                                   "rectangle xoff 0 yoff 2 xsize 1 ysize 2"});
    EXPECT_TRUE(contains(result.err, "mean of 2 pixels")) << result.err;
    const std::vector<float> found = floats("b.img");
    ASSERT_EQ(found.size(), 30U * 4);
    // The region's mean is half way between its two pixels.
    EXPECT_NEAR(found[(2 * 6 + 0) * 4 + 1] + found[(3 * 6 + 0) * 4 + 1], 2.0F, 0.05F);
}

TEST_F(Unmix, EndmembersOfTheSameNameAreToldApart) {
    succeed({"scene.img", "a.img", "--pixel", "5,0", "--pixel", "5,0", "--non-negative"});
    EXPECT_TRUE(contains(read("a.hdr"), "pixel 5 0, pixel 5 0 (2)")) << read("a.hdr");
}

TEST_F(Unmix, ResamplesALibraryOfOtherWavelengthsAndSaysSo) {
    // Lines, which the mean over any symmetric band leaves as they are.
    const auto line = [](int e, double nm) { return e == 0 ? 0.1 + nm / 2000 : 0.9 - nm / 1500; };
    Cube cube = mixtureCube();
    cube.value = [&](int x, int, int b) { return 0.2 * x * line(0, centre(b)) + (1 - 0.2 * x) * line(1, centre(b)); };
    writeCube(dir() / "lines.img", cube);
    Library library;
    for (int e = 0; e < 2; ++e) {
        std::vector<float> wavelengths;
        std::vector<double> values;
        for (int nm = 400; nm <= 800; nm += 2) {
            wavelengths.push_back(static_cast<float>(nm) + 0.5F);
            values.push_back(line(e, nm + 0.5));
        }
        library.push_back(makeSpectrum(e == 0 ? "up" : "down", wavelengths, values));
    }
    write("fine.csv", tableOf(library));
    const Result result = succeed({"lines.img", "out.img", "--endmembers", "fine.csv"});
    EXPECT_TRUE(contains(result.err, "2 spectra resampled to the bands of the image")) << result.err;
    const std::vector<float> found = floats("out.img");
    for (std::size_t i = 0; i < 30; ++i) {
        EXPECT_NEAR(found[i * 4], 0.2F * static_cast<float>(i % 6), 2e-3F);
        EXPECT_NEAR(found[i * 4 + 1], 1 - 0.2F * static_cast<float>(i % 6), 2e-3F);
    }
}

TEST_F(Unmix, BandsThatALibraryLacksAreLeftOutOrRefused) {
    write("short.csv", tableOf(endmemberLibrary(3)));
    const Result result = succeed({"scene.img", "out.img", "--endmembers", "short.csv", "--json"});
    EXPECT_TRUE(contains(result.err, "3 of 12 bands are left out")) << result.err;
    EXPECT_TRUE(contains(result.err, "'dry grass' for b1-b3")) << result.err;
    EXPECT_EQ(json::parse(result.out)["bands"], "b4-b12");
    expectTruth("out.img", 1e-5);
    refused({"scene.img", "b.img", "--endmembers", "short.csv", "--bands", "all"},
            "Leave these bands out: --bands b4-b12");
    succeed({"scene.img", "c.img", "--endmembers", "short.csv", "--bands", "b4-b12"});
    EXPECT_EQ(read("out.img"), read("c.img"));

    Library elsewhere = endmemberLibrary();
    for (LibrarySpectrum& spectrum : elsewhere) {
        for (float& wavelength : spectrum.wavelengths) wavelength += 1000;
    }
    write("elsewhere.csv", tableOf(elsewhere));
    refused({"scene.img", "b.img", "--endmembers", "elsewhere.csv"}, "no band that every endmember has a value for");
}

TEST_F(Unmix, BadBandsAreLeftAloneUnlessAskedFor) {
    Cube cube = mixtureCube();
    cube.header += "bbl = {1, 1, 0, 1, 1, 1, 1, 1, 1, 1, 1, 0}\n";
    cube.value = [](int x, int y, int b) { return b == 2 || b == 11 ? 7.0 : mixed(x, y, b); };
    writeCube(dir() / "bad.img", cube);
    const Result result = succeed({"bad.img", "out.img", "--endmembers", "lib.csv", "--json"});
    EXPECT_EQ(json::parse(result.out)["bands"], "b1-b2, b4-b11");
    expectTruth("out.img", 1e-5);
    succeed({"bad.img", "all.img", "--endmembers", "lib.csv", "--bands", "all"});
    EXPECT_GT(floats("all.img")[3], 1.0F) << "the bad bands misfit";
}

TEST_F(Unmix, WithoutWavelengthsTheBandsAreTakenInOrder) {
    Cube cube = mixtureCube();
    cube.header = "";
    writeCube(dir() / "plain.img", cube);
    const Result result = succeed({"plain.img", "out.img", "--endmembers", "lib.csv"});
    EXPECT_TRUE(contains(result.err, "gives no wavelengths; the 12 values of the spectra are taken for its bands"));
    expectTruth("out.img", 1e-5);
    write("short.csv", tableOf(endmemberLibrary(3)));
    refused({"plain.img", "b.img", "--endmembers", "short.csv"}, "they cannot be matched");
}

TEST_F(Unmix, ScalesThatAreFarApartAreTold) {
    write("percent.csv", tableOf(endmemberLibrary(0, 10000)));
    const Result result = succeed({"scene.img", "out.img", "--endmembers", "percent.csv"});
    EXPECT_TRUE(contains(result.err, "warning")) << result.err;
    EXPECT_TRUE(contains(result.err, "the fractions are wrong by that factor")) << result.err;
    EXPECT_NEAR(floats("out.img")[5 * 5], 1e-4F, 1e-8F);
}

TEST_F(Unmix, TheLevelIsThatOfTheLibrarysQuantity) {
    Cube cube = mixtureCube();
    cube.type = 2;
    cube.header += "reflectance scale factor = 10000\n";
    cube.value = [](int x, int y, int b) { return std::lround(10000 * mixed(x, y, b)); };
    writeCube(dir() / "scaled.img", cube);
    // A library taken from the image knows its quantity.
    ASSERT_EQ(ks({"library", "take", "scaled.img", "taken.sli", "--roi", "point xoff 5 yoff 0 size 1", "--roi",
                  "point xoff 0 yoff 4 size 1", "--roi", "point xoff 0 yoff 0 size 1"})
                  .status,
              0);
    const Result result = succeed({"scaled.img", "out.img", "--endmembers", "taken.sli"});
    EXPECT_TRUE(contains(result.err, "level 1 of the image is used")) << result.err;
    EXPECT_FALSE(contains(result.err, "warning")) << result.err;
    expectTruth("out.img", 2e-3);
    const Result other = succeed({"scaled.img", "b.img", "--endmembers", "taken.sli", "--level", "0"});
    EXPECT_TRUE(contains(other.err, "fractions need values of one kind")) << other.err;
}

TEST_F(Unmix, EndmembersThatDependOnEachOtherAreTold) {
    const Result twins = succeed({"scene.img", "a.img", "--pixel", "5,0", "--pixel", "5,0"});
    EXPECT_TRUE(contains(twins.err, "depend on each other")) << twins.err;
    const Result many = succeed({"scene.img", "b.img", "--endmembers", "lib.csv", "--bands", "b1,b6"});
    EXPECT_TRUE(contains(many.err, "more endmembers (3) than equations (2)")) << many.err;
}

// ---- pictures and JSON ----

TEST_F(Unmix, PicturesShowFractionsFromBlackToWhite) {
    succeed({"scene.img", "out.img", "--endmembers", "lib.csv", "--pictures"});
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir() / "out_fractions")) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names,
              (std::vector<std::string>{"fraction_01_soil.png", "fraction_02_dry_grass.png", "fraction_03_water.png"}));
    const Picture soil = readPicture(dir() / "out_fractions" / "fraction_01_soil.png");
    ASSERT_EQ(soil.width, kWidth);
    ASSERT_EQ(soil.height, kHeight);
    for (int x = 0; x < kWidth; ++x) EXPECT_NEAR(soil.at(x, 2)[0], 51 * x, 1);
    refused({"scene.img", "out.img", "--endmembers", "lib.csv", "--pictures"}, "exists");
    succeed({"scene.img", "out.img", "--endmembers", "lib.csv", "--pictures", "--force"});
}

TEST_F(Unmix, TellsWhatWasDoneAsJson) {
    const Result result = succeed({"scene.img", "out.img", "--endmembers", "lib.csv", "--sum-to-one", "--json"});
    const json told = json::parse(result.out);
    EXPECT_EQ(told["file"], "out.img");
    EXPECT_EQ(told["level"], 0);
    EXPECT_EQ(told["bands"], "b1-b12");
    EXPECT_EQ(told["sum_to_one"], true);
    EXPECT_EQ(told["non_negative"], false);
    EXPECT_EQ(told["endmembers"][1]["name"], "dry grass");
    double sum = 0;
    for (int i = 0; i < kWidth * kHeight; ++i) sum += fraction(i % kWidth, i / kWidth, 1);
    EXPECT_NEAR(told["endmembers"][1]["mean"].get<double>(), sum / (kWidth * kHeight), 1e-3);
    EXPECT_EQ(told["pixels"]["solved"], kWidth * kHeight);
}

// ---- refusals ----

TEST_F(Unmix, RefusesWhatCannotBe) {
    refused({"scene.img", "b.img"}, "no endmembers are given");
    refused({"scene.img", "b.img", "--endmembers", "none.csv"}, "none.csv");
    refused({"missing.img", "b.img", "--endmembers", "lib.csv"}, "missing.img");
    refused({"scene.img", "b.img", "--pixel", "6,0"}, "pixel 6,0 is outside the image, which has 6 x 5 pixels");
    refused({"scene.img", "b.img", "--pixel", "1;2"}, "'1;2' is not a pixel");
    refused({"scene.img", "b.img", "--endmembers", "lib.csv", "--bands", "b99"}, "band b99 does not exist");
    refused({"scene.img", "b.img", "--endmembers", "lib.csv", "--level", "3"}, "level");
    refused({"scene.img", "scene.img", "--endmembers", "lib.csv"}, "onto itself");
    refused({"scene.img", "b.img", "--select", "1"}, "--endmembers");
    refused({"scene.img", "nowhere/b.img", "--endmembers", "lib.csv"}, "nowhere");
    write("b.img", "kept");
    refused({"scene.img", "b.img", "--endmembers", "lib.csv"}, "exists");
    EXPECT_EQ(read("b.img"), "kept");
}

TEST_F(Unmix, ACubeThatEndsEarlyGivesNoResult) {
    const std::string bytes = read("scene.img");
    write("scene.img", bytes.substr(0, bytes.size() / 2));
    const std::vector<std::string> before = files();
    const Result result = ks({"unmix", "scene.img", "out.img", "--endmembers", "lib.csv"});
    EXPECT_EQ(result.status, 2) << result.err;
    EXPECT_EQ(files(), before);
}

TEST_F(Unmix, HelpHasAnExample) {
    const Result result = ks({"unmix", "--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(contains(result.out, "Example:\n  ks unmix scene.img fractions.img")) << result.out;
}

}  // namespace
}  // namespace clitest
