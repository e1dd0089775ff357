// ks smooth: compared with windows that are cut and weighed here, value by value.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "speckit.hpp"

namespace clitest {
namespace {

using kscli::kMaskedValue;
using kscli::readLibrary;

struct Piece {
    std::size_t first;
    std::size_t last;
};

/// The mean of a window around every value of each run, with a Gaussian of a full width at half maximum over positions.
std::vector<double> gaussian(const std::vector<double>& values, const std::vector<double>& positions,
                             const std::vector<Piece>& pieces, std::size_t reach, double fwhm) {
    std::vector<double> result = values;
    for (const Piece& piece : pieces) {
        for (std::size_t c = piece.first; c <= piece.last; ++c) {
            const std::size_t r = std::min({reach, c - piece.first, piece.last - c});
            double sum = 0;
            double total = 0;
            for (std::size_t i = c - r; i <= c + r; ++i) {
                const double d = (positions[i] - positions[c]) / fwhm;
                const double weight = std::exp(-4 * std::log(2.0) * d * d);
                sum += weight * values[i];
                total += weight;
            }
            result[c] = sum / total;
        }
    }
    return result;
}

std::vector<double> median(const std::vector<double>& values, const std::vector<Piece>& pieces, std::size_t reach) {
    std::vector<double> result = values;
    for (const Piece& piece : pieces) {
        for (std::size_t c = piece.first; c <= piece.last; ++c) {
            const std::size_t r = std::min({reach, c - piece.first, piece.last - c});
            std::vector<double> window;
            for (std::size_t i = c - r; i <= c + r; ++i) window.push_back(values[i]);
            std::sort(window.begin(), window.end());
            result[c] = window[r];
        }
    }
    return result;
}

std::vector<double> counted(std::size_t size) {
    std::vector<double> positions(size);
    for (std::size_t i = 0; i < size; ++i) positions[i] = static_cast<double>(i);
    return positions;
}

LibrarySpectrum noisy(const std::string& name, unsigned seed, std::size_t size = 40) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> distribution(-0.1, 1.0);
    LibrarySpectrum spectrum = makeSpectrum(name, {}, {});
    for (std::size_t i = 0; i < size; ++i) {
        spectrum.wavelengths.push_back(400 + 10 * static_cast<float>(i));
        spectrum.values.push_back(distribution(random));
        spectrum.quality.push_back(KS_BQ_PLOT);
    }
    return spectrum;
}

void expectNear(const std::vector<double>& actual, const std::vector<double>& expected, double tolerance) {
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < actual.size(); ++i) {
        EXPECT_NEAR(actual[i], expected[i], tolerance * (1 + std::abs(expected[i]))) << i;
    }
}

class Smooth : public CliTest {
protected:
    Library smoothed(const std::vector<std::string>& options) const {
        std::vector<std::string> arguments = {"smooth", "lib.csv", "out.kslib", "--force"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Result result = ks(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        return readLibrary(path("out.kslib"));
    }
    /// Samples of a float32 image of band-interleaved pixels.
    std::vector<double> samples(const std::string& name) const {
        const std::string bytes = read(name);
        std::vector<double> values;
        for (std::size_t at = 0; at + sizeof(float) <= bytes.size(); at += sizeof(float)) {
            float value = 0;
            std::memcpy(&value, bytes.data() + at, sizeof value);
            values.push_back(static_cast<double>(value));
        }
        return values;
    }
};

TEST_F(Smooth, GaussianOverSpectra) {
    const Library library = {noisy("a", 1), noisy("b", 2)};
    write("lib.csv", tableOf(library));
    const Library byDefault = smoothed({});
    const Library wide = smoothed({"--width", "9", "--method", "gauss"});
    for (std::size_t s = 0; s < 2; ++s) {
        EXPECT_EQ(byDefault[s].name, library[s].name);
        expectNear(byDefault[s].values, gaussian(library[s].values, counted(40), {{0, 39}}, 2, 2.5), 1e-6);
        expectNear(wide[s].values, gaussian(library[s].values, counted(40), {{0, 39}}, 4, 4.5), 1e-6);
    }
}

TEST_F(Smooth, GaussianOfAWidthInNanometres) {
    LibrarySpectrum spectrum = noisy("a", 3);
    for (std::size_t i = 20; i < 40; ++i) spectrum.wavelengths[i] += static_cast<float>(i - 19) * 7;  // wider steps
    write("lib.csv", tableOf({spectrum}));
    const std::vector<double> nm(spectrum.wavelengths.begin(), spectrum.wavelengths.end());
    expectNear(smoothed({"--fwhm", "25", "--width", "7"})[0].values, gaussian(spectrum.values, nm, {{0, 39}}, 3, 25),
               1e-5);
    // The window reaches 1.5 widths at the usual step of 17 nm or less: 3 values.
    const std::vector<double> alone = smoothed({"--fwhm", "25"})[0].values;
    const std::vector<double> three = gaussian(spectrum.values, nm, {{0, 39}}, 3, 25);
    const std::vector<double> four = gaussian(spectrum.values, nm, {{0, 39}}, 4, 25);
    for (std::size_t i = 0; i < alone.size(); ++i) {
        EXPECT_LT(std::min(std::abs(alone[i] - three[i]), std::abs(alone[i] - four[i])), 1e-5) << i;
    }
}

TEST_F(Smooth, MedianOverSpectra) {
    const Library library = {noisy("a", 4)};
    write("lib.csv", tableOf(library));
    EXPECT_EQ(smoothed({"--method", "median", "--width", "7"})[0].values, median(library[0].values, {{0, 39}}, 3));
}

TEST_F(Smooth, SegmentsInNanometresAndBands) {
    const Library library = {noisy("a", 5)};
    write("lib.csv", tableOf(library));
    // 445 to 560 nm are values 5 to 16; bands 21 to 30 are values 20 to 29.
    EXPECT_EQ(smoothed({"--method", "median", "--segments", "b21-b30, 445-560"})[0].values,
              median(library[0].values, {{5, 16}, {20, 29}}, 2));
    for (const char* wrong : {"445-", "560-445", "b0-b3", "b30-b99", "b3-b1", "x", "445-560,b17-b20,,", "1-2"}) {
        const Result result = ks({"smooth", "lib.csv", "no.kslib", "--segments", wrong});
        EXPECT_EQ(result.status, 1) << wrong;
    }
    const Result overlapping = ks({"smooth", "lib.csv", "no.kslib", "--segments", "445-560,b10-b12"});
    EXPECT_TRUE(contains(overlapping.err, "overlap")) << overlapping.err;
}

TEST_F(Smooth, GapsInTheWavelengthsEndSegments) {
    LibrarySpectrum spectrum = noisy("a", 7, 20);
    for (std::size_t i = 8; i < 20; ++i) spectrum.wavelengths[i] += 100;
    write("lib.csv", tableOf({spectrum}));
    EXPECT_EQ(smoothed({"--method", "median"})[0].values, median(spectrum.values, {{0, 7}, {8, 19}}, 2));
    EXPECT_EQ(smoothed({"--method", "median", "--segments", "b1-b20"})[0].values,
              median(spectrum.values, {{0, 19}}, 2));
}

TEST_F(Smooth, MissingAndMarkedValuesStayAndEndSegments) {
    LibrarySpectrum spectrum = noisy("a", 6, 12);
    spectrum.values[4] = kMaskedValue;
    write("lib.csv", tableOf({spectrum}));
    EXPECT_EQ(smoothed({"--method", "median"})[0].values, median(spectrum.values, {{0, 3}, {5, 11}}, 2));
    write("lib.csv", "Target,m400_000,m410_000,m420_000,q400_000,q410_000,q420_000\nroof,1,9,2,plot,mask,plot\n");
    const Library marked = smoothed({"--width", "3"});
    EXPECT_EQ(marked[0].values, (std::vector<double>{1, 9, 2}));
    EXPECT_EQ(marked[0].quality, (std::vector<int>{KS_BQ_PLOT, KS_BQ_MASK, KS_BQ_PLOT}));
}

TEST_F(Smooth, NegativeValuesAndZerosAreSmoothedAndKeepTheirQuality) {
    write("lib.csv", "wavelength_nm,a\n400,0\n410,-2\n420,-1\n430,0\n440,5\n");
    const Library out = smoothed({"--method", "median", "--width", "3"});
    EXPECT_EQ(out[0].values, (std::vector<double>{0, -1, -1, 0, 5}));
    EXPECT_EQ(out[0].quality, std::vector<int>(5, KS_BQ_PLOT));
}

class SmoothImage : public Smooth {
protected:
    // Two detectors: the wavelengths turn back at band 7. Band 4 is bad.
    Cube cube() const {
        Cube cube;
        cube.width = 5;
        cube.height = 4;
        cube.bands = 12;
        cube.type = 2;
        cube.header =
            "wavelength units = nm\nwavelength = {400, 410, 420, 430, 440, 450, 445, 455, 465, 475, 485, 495}\n"
            "bbl = {1, 1, 1, 0, 1, 1, 1, 1, 1, 1, 1, 1}\ndata ignore value = -99\n"
            "data gain values = {0.5, 0.5, 0.5, 0.5, 0.5, 0.5, 2, 2, 2, 2, 2, 2}\n"
            "data offset values = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}\n";
        cube.value = [](int x, int y, int b) {
            if (x == 1 && y == 1) return -99.0;
            return (x == 2 && y == 2 && b == 9) ? -99.0 : std::round(100 + 80 * std::sin(1.7 * b + x + 3 * y));
        };
        return cube;
    }
    static std::vector<double> physical(const Cube& cube, int x, int y) {
        std::vector<double> values;
        for (int b = 0; b < cube.bands; ++b) values.push_back((b < 6 ? 0.5 : 2) * cube.value(x, y, b) + 1);
        return values;
    }
};

TEST_F(SmoothImage, WholeCubeAtItsHighestLevelWithinDetectors) {
    const Cube source = cube();
    writeCube(dir() / "cube.img", source);
    const Result result = ks({"smooth", "cube.img", "out.img", "--width", "3"});
    ASSERT_EQ(result.status, 0) << result.err;
    const std::vector<double> out = samples("out.img");
    ASSERT_EQ(out.size(), 5U * 4U * 12U);
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 5; ++x) {
            const std::size_t at = static_cast<std::size_t>(y * 5 + x) * 12;
            const std::vector<double> pixel(out.begin() + static_cast<std::ptrdiff_t>(at),
                                            out.begin() + static_cast<std::ptrdiff_t>(at) + 12);
            if (x == 1 && y == 1) {
                EXPECT_EQ(pixel, std::vector<double>(12, -99));
                continue;
            }
            std::vector<Piece> pieces = {{0, 2}, {4, 5}, {6, 11}};
            std::vector<double> values = physical(source, x, y);
            if (x == 2 && y == 2) {
                pieces = {{0, 2}, {4, 5}, {6, 8}, {10, 11}};
                values[9] = -99;  // no data, stored as it was
            }
            expectNear(pixel, gaussian(values, counted(12), pieces, 1, 1.5), 1e-6);
        }
    }
    const Result info = ks({"info", "out.img", "--json"});
    EXPECT_TRUE(contains(info.out, "ks smooth cube.img")) << info.out;
    EXPECT_EQ(ks({"info", "out.img"}).status, 0);
}

TEST_F(SmoothImage, AWindowOfStoredValues) {
    const Cube source = cube();
    writeCube(dir() / "cube.img", source);
    const Result result =
        ks({"smooth", "cube.img", "out.img", "--method", "median", "--window", "3,2,2,1", "--level", "0"});
    ASSERT_EQ(result.status, 0) << result.err;
    const std::vector<double> out = samples("out.img");
    ASSERT_EQ(out.size(), 2U * 12U);
    for (std::size_t i = 0; i < 2; ++i) {
        std::vector<double> values;
        for (int b = 0; b < 12; ++b) values.push_back(source.value(3 + static_cast<int>(i), 2, b));
        const auto first = out.begin() + static_cast<std::ptrdiff_t>(12 * i);
        EXPECT_EQ(std::vector<double>(first, first + 12), median(values, {{0, 2}, {4, 5}, {6, 11}}, 2));
    }
    EXPECT_EQ(ks({"smooth", "cube.img", "o2.img", "--window", "3,2,9,1"}).status, 1);
    EXPECT_EQ(ks({"smooth", "cube.img", "cube.img", "--force"}).status, 1);
    EXPECT_EQ(ks({"smooth", "cube.img", "o3.img", "--codebook"}).status, 1);
}

TEST_F(SmoothImage, BlocksUnderASmallMemoryAllowanceGiveTheSameResult) {
    Cube source = cube();
    source.height = 60;
    writeCube(dir() / "cube.img", source);
    ASSERT_EQ(ks({"smooth", "cube.img", "whole.img"}).status, 0);
    setenv("KSHOST_MEMORY", "4000", 1);
    const Result result = ks({"smooth", "cube.img", "blocks.img"});
    unsetenv("KSHOST_MEMORY");
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(read("blocks.img"), read("whole.img"));
}

TEST_F(SmoothImage, CodebookOfAQuantizedCube) {
    Cube source = cube();
    source.header =
        "wavelength units = nm\nwavelength = {400, 410, 420, 430, 440, 450, 460, 470, 480, 490, 500, 510}\n";
    source.value = [](int x, int y, int b) { return std::round(1000 + 800 * std::sin(1.7 * b + x % 2 + 3 * (y % 2))); };
    writeCube(dir() / "cube.img", source);
    ASSERT_EQ(ks({"vq", "train", "cube.img", "vq.tif", "--vectors", "4"}).status, 0);
    const Result result = ks({"smooth", "vq.tif", "smooth.tif", "--codebook", "--method", "median", "--width", "3"});
    ASSERT_EQ(result.status, 0) << result.err;
    // Both cubes as spectra of one pixel.
    ASSERT_EQ(ks({"spectrum", "vq.tif", "2,1", "before.csv"}).status, 0);
    ASSERT_EQ(ks({"spectrum", "smooth.tif", "2,1", "after.csv"}).status, 0);
    const Library before = readLibrary(path("before.csv"));
    const Library after = readLibrary(path("after.csv"));
    EXPECT_EQ(after[0].values, median(before[0].values, {{0, 11}}, 1));
    EXPECT_NE(after[0].values, before[0].values);
}

TEST_F(Smooth, RefusesWhatMakesNoSense) {
    write("lib.csv", tableOf({noisy("a", 1)}));
    for (const std::vector<std::string>& options :
         std::vector<std::vector<std::string>>{{"--width", "4"},
                                               {"--width", "1"},
                                               {"--fwhm", "-3"},
                                               {"--method", "mean"},
                                               {"--window", "0,0,1,1"},
                                               {"--codebook"},
                                               {"--fwhm", "20", "--method", "median"}}) {
        std::vector<std::string> arguments = {"smooth", "lib.csv", "out.kslib"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        EXPECT_EQ(ks(arguments).status, 1) << options[0];
    }
    EXPECT_EQ(files(), (std::vector<std::string>{"lib.csv"}));
    EXPECT_TRUE(contains(ks({"smooth", "--help"}).out, "Example:\n  ks smooth"));
}

}  // namespace
}  // namespace clitest
