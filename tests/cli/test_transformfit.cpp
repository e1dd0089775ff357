// ks transform pca and mnf on images whose statistics are computed here by plain loops, and on noise that is known.
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <memory>
#include <sstream>

#include <nlohmann/json.hpp>

#include <kslib.h>

#include "clikit.hpp"
#include "eigencheck.hpp"
#include "image/dataset.hpp"
#include "transform/noisecovariance.hpp"

namespace clitest {
namespace {

using kscli::DataSet;
using kscli::Matrix;
using kscli::Neighbours;
using nlohmann::json;
using Rows = std::vector<std::vector<double>>;

constexpr int kWidth = 40;
constexpr int kHeight = 30;
constexpr int kBands = 6;

double hashed(int x, int y, int z) {
    std::uint32_t state = static_cast<std::uint32_t>(x) * 73856093U ^ static_cast<std::uint32_t>(y) * 19349663U ^
                          static_cast<std::uint32_t>(z) * 83492791U;
    for (int i = 0; i < 3; ++i) state = (state ^ (state >> 15U)) * 0x2c1b3c6dU;
    return static_cast<double>(state >> 8U) / 16777216.0 - 0.5;
}

// Ground in patches, a slope, and noise that bands share in part.
double value(int x, int y, int b) {
    const double patch = 200 * hashed(x / 10, y / 10, 50 + b % 3) * (b + 1);
    const double noise = (4 + b) * hashed(x, y, b) + 6 * hashed(x, y, 40) * (b % 2 == 0 ? 1 : -1);
    return std::round(1000 + 100 * b + patch + 2 * x * (b == 4 ? 1 : 0) + noise);
}

Cube sceneCube() {
    Cube cube;
    cube.width = kWidth;
    cube.height = kHeight;
    cube.bands = kBands;
    cube.value = value;
    cube.header =
        "wavelength units = Nanometers\nwavelength = {450, 550, 650, 750, 850, 950}\n"
        "data gain values = {0.1, 0.2, 0.3, 0.4, 0.5, 0.6}\ndata offset values = {1, 2, 3, 4, 5, 6}\n";
    return cube;
}

using Value = std::function<double(int, int, int)>;

Rows pixelsOf(const Value& valueAt, int bands, int x0 = 0, int y0 = 0, int x1 = kWidth, int y1 = kHeight,
              int every = 1) {
    Rows rows;
    for (int y = y0; y < y1; y += every) {
        for (int x = x0; x < x1; x += every) {
            rows.emplace_back();
            for (int b = 0; b < bands; ++b) rows.back().push_back(valueAt(x, y, b));
        }
    }
    return rows;
}

Rows differencesOf(const Value& valueAt, int bands, int dx, int dy) {
    Rows rows;
    for (int y = 0; y + dy < kHeight; ++y) {
        for (int x = 0; x + dx < kWidth; ++x) {
            rows.emplace_back();
            for (int b = 0; b < bands; ++b) rows.back().push_back(valueAt(x, y, b) - valueAt(x + dx, y + dy, b));
        }
    }
    return rows;
}

Matrix expectedNoise(const Value& valueAt, int bands) {
    const Rows along = differencesOf(valueAt, bands, 1, 0);
    const Rows across = differencesOf(valueAt, bands, 0, 1);
    const Matrix a = covarianceOfRows(along);
    const Matrix b = covarianceOfRows(across);
    Matrix noise(a.rows, a.columns);
    const auto nA = static_cast<double>(along.size());
    const auto nB = static_cast<double>(across.size());
    for (std::size_t i = 0; i < noise.values.size(); ++i) {
        noise.values[i] = (nA * a.values[i] + nB * b.values[i]) / (nA + nB) / 2;
    }
    return noise;
}

std::vector<double> meansOf(const Rows& rows) {
    std::vector<double> means(rows[0].size(), 0.0);
    for (const auto& row : rows) {
        for (std::size_t b = 0; b < means.size(); ++b) means[b] += row[b] / static_cast<double>(rows.size());
    }
    return means;
}

struct Parameters {
    Matrix forward;
    Matrix inverse;
    std::vector<double> shift;
    std::vector<int> numbers;
};

Matrix fromLibrary(MAT* m) {
    Matrix result(m->m, m->n);
    for (u_int i = 0; i < m->m; ++i) {
        for (u_int j = 0; j < m->n; ++j) result.at(i, j) = m->me[i][j];
    }
    m_free(m);
    return result;
}

class TransformFit : public CliTest {
protected:
    Parameters parameters(const std::string& name) const {
        MAT* forward = nullptr;
        MAT* inverse = nullptr;
        VEC* shift = nullptr;
        IVEC* numbers = nullptr;
        Parameters result;
        EXPECT_EQ(KSReadLTP(path(name).c_str(), &forward, &inverse, &shift, &numbers), 0);
        if (forward == nullptr || inverse == nullptr || shift == nullptr || numbers == nullptr) return result;
        result.forward = fromLibrary(forward);
        result.inverse = fromLibrary(inverse);
        result.shift.assign(shift->ve, shift->ve + shift->dim);
        result.numbers.assign(numbers->ive, numbers->ive + numbers->dim);
        v_free(shift);
        iv_free(numbers);
        return result;
    }

    json succeed(std::vector<std::string> arguments) const {
        arguments.emplace_back("--json");
        const Result result = ks(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        return json::parse(result.out, nullptr, false);
    }
    void run(const std::vector<std::string>& arguments) const {
        const Result result = ks(arguments);
        ASSERT_EQ(result.status, 0) << result.err;
    }
    void refused(const std::vector<std::string>& arguments, const std::string& reason) const {
        const std::vector<std::string> before = files();
        const Result result = ks(arguments);
        EXPECT_EQ(result.status, 1) << result.err;
        EXPECT_TRUE(contains(result.err, reason)) << result.err;
        EXPECT_EQ(files(), before);
    }

    Rows componentsOf(const std::string& name, std::size_t bands) const {
        const std::vector<float> values = floats(name);
        Rows rows;
        for (std::size_t i = 0; i + bands <= values.size(); i += bands) {
            rows.emplace_back(values.begin() + static_cast<std::ptrdiff_t>(i),
                              values.begin() + static_cast<std::ptrdiff_t>(i + bands));
        }
        return rows;
    }
};

void expectEigenvalues(const json& result, const char* name, const std::vector<double>& expected, double tolerance) {
    ASSERT_EQ(result["components"].size(), expected.size());
    for (std::size_t k = 0; k < expected.size(); ++k) {
        EXPECT_NEAR(result["components"][k][name].get<double>(), expected[k], tolerance * expected[0]) << k;
    }
}

TEST_F(TransformFit, PcaAgreesWithPlainLoopsAndRotations) {
    writeCube(dir() / "scene.img", sceneCube());
    const json result = succeed({"transform", "pca", "scene.img", "pca.mat"});
    const Rows rows = pixelsOf(value, kBands);
    const Jacobi expected(covarianceOfRows(rows));
    expectEigenvalues(result, "variance", expected.values, 1e-10);
    EXPECT_EQ(result["samples"], kWidth * kHeight);
    const Parameters found = parameters("pca.mat");
    const std::vector<double> means = meansOf(rows);
    for (std::size_t b = 0; b < kBands; ++b) EXPECT_NEAR(found.shift[b], means[b], 1e-9 * means[b]);
    EXPECT_EQ(found.numbers, (std::vector<int>{1, 2, 3, 4, 5, 6}));
    for (std::size_t k = 0; k < kBands; ++k) {
        double along = 0;
        for (std::size_t b = 0; b < kBands; ++b) along += found.forward.at(k, b) * expected.vectors.at(b, k);
        EXPECT_NEAR(std::abs(along), 1, 1e-8) << k;
    }
}

TEST_F(TransformFit, ComponentsHaveTheVariancesPromisedAndNothingInCommon) {
    writeCube(dir() / "scene.img", sceneCube());
    for (const std::string kind : {"pca", "mnf"}) {
        const std::string file = kind + ".mat";
        const json result = succeed({"transform", kind, "scene.img", file});
        run({"transform", "apply", "scene.img", file, kind + ".img"});
        const Matrix covariance = covarianceOfRows(componentsOf(kind + ".img", kBands));
        const char* const name = kind == "pca" ? "variance" : "variance_over_noise";
        for (std::size_t i = 0; i < kBands; ++i) {
            const double expected = result["components"][i][name].get<double>();
            EXPECT_NEAR(covariance.at(i, i), expected, 1e-5 * expected) << kind << i;
            for (std::size_t j = 0; j < i; ++j) {
                EXPECT_NEAR(covariance.at(i, j), 0, 1e-5 * std::sqrt(covariance.at(i, i) * covariance.at(j, j)));
            }
        }
    }
}

TEST_F(TransformFit, ForwardThenInverseReturnsTheCube) {
    writeCube(dir() / "scene.img", sceneCube());
    const std::vector<std::vector<std::string>> ways = {{"pca"}, {"pca", "--standardise"}, {"mnf"}};
    for (const auto& way : ways) {
        std::vector<std::string> fit = {"transform", way[0], "scene.img", "t.mat", "--force"};
        fit.insert(fit.end(), way.begin() + 1, way.end());
        run(fit);
        run({"transform", "apply", "scene.img", "t.mat", "c.img", "--force"});
        run({"transform", "invert", "c.img", "t.mat", "back.img", "--like", "scene.img", "--force"});
        const auto back = floats("back.img");
        ASSERT_EQ(back.size(), 1U * kWidth * kHeight * kBands);
        std::size_t at = 0;
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                for (int b = 0; b < kBands; ++b) ASSERT_NEAR(back[at++], value(x, y, b), 0.002) << way[0];
            }
        }
    }
}

TEST_F(TransformFit, StandardisedPcaIsThatOfTheCorrelation) {
    writeCube(dir() / "scene.img", sceneCube());
    const json result = succeed({"transform", "pca", "scene.img", "pca.mat", "--standardise"});
    Matrix m = covarianceOfRows(pixelsOf(value, kBands));
    std::vector<double> sd;
    for (std::size_t i = 0; i < kBands; ++i) sd.push_back(std::sqrt(m.at(i, i)));
    for (std::size_t i = 0; i < kBands; ++i) {
        for (std::size_t j = 0; j < kBands; ++j) m.at(i, j) /= sd[i] * sd[j];
    }
    expectEigenvalues(result, "variance", Jacobi(m).values, 1e-10);
}

TEST_F(TransformFit, MnfAgreesWithPlainLoopsAndRotations) {
    writeCube(dir() / "scene.img", sceneCube());
    const json result = succeed({"transform", "mnf", "scene.img", "mnf.mat"});
    EXPECT_EQ(result["pairs"], (kWidth - 1) * kHeight + kWidth * (kHeight - 1));
    // With N = E D E', the eigenvalues of the covariance seen through D^-1/2 E' are those of the pencil.
    const Matrix noise = expectedNoise(value, kBands);
    const Jacobi ofNoise(noise);
    Matrix whitening(kBands, kBands);
    for (std::size_t k = 0; k < kBands; ++k) {
        for (std::size_t b = 0; b < kBands; ++b) {
            whitening.at(k, b) = ofNoise.vectors.at(b, k) / std::sqrt(ofNoise.values[k]);
        }
    }
    const Matrix covariance = covarianceOfRows(pixelsOf(value, kBands));
    const Jacobi expected(product(product(whitening, covariance), transposed(whitening)));
    expectEigenvalues(result, "variance_over_noise", expected.values, 1e-9);
    const Parameters found = parameters("mnf.mat");
    const Matrix unit = product(product(found.forward, noise), transposed(found.forward));
    for (std::size_t i = 0; i < kBands; ++i) {
        EXPECT_NEAR(result["bands"][i]["noise_sd"].get<double>(), std::sqrt(noise.at(i, i)), 1e-9);
        for (std::size_t j = 0; j < kBands; ++j) EXPECT_NEAR(unit.at(i, j), i == j ? 1 : 0, 1e-8);
        if (i > 0) {
            EXPECT_LE(result["components"][i]["signal_to_noise"], result["components"][i - 1]["signal_to_noise"]);
        }
    }
}

// Noise of variance 9 in each band, covariance +6 between even and -6 between unlike bands; absolute differences would
// give +6 for both.
TEST_F(TransformFit, KnownNoiseIsFoundWithItsSigns) {
    Cube cube;
    cube.width = 300;
    cube.height = 200;
    cube.bands = 4;
    cube.type = 4;
    Numbers numbers(77);
    std::vector<double> noise;
    for (int i = 0; i < 300 * 200; ++i) {
        const double common = std::sqrt(6.0) * numbers.normal();
        for (int b = 0; b < 4; ++b)
            noise.push_back(std::sqrt(3.0) * numbers.normal() + (b % 2 == 0 ? common : -common));
    }
    cube.value = [&](int x, int y, int b) {
        // A slope is no noise.
        return 500 + 0.5 * x - 0.25 * y + noise[static_cast<std::size_t>((y * 300 + x) * 4 + b)];
    };
    writeCube(dir() / "noise.img", cube);
    const DataSet image = DataSet::open(path("noise.img"));
    for (const Neighbours which : {Neighbours::alongLine, Neighbours::acrossLines, Neighbours::both}) {
        const auto found = kscli::noiseFromNeighbours(image, {0, 1, 2, 3}, 0, nullptr, which, 1);
        for (std::size_t i = 0; i < 4; ++i) {
            for (std::size_t j = 0; j < 4; ++j) {
                const double expected = i == j ? 9 : (i + j) % 2 == 0 ? 6 : -6;
                EXPECT_NEAR(found.covariance.at(i, j), expected, 0.25) << i << "," << j;
            }
        }
    }
}

// 256 pairs along the lines fill the batches of the estimate to the last place.
TEST_F(TransformFit, FullBatchesAndManyBandsGiveTheSame) {
    Cube cube = sceneCube();
    cube.width = 17;
    cube.height = 16;
    cube.bands = 60;
    cube.header.clear();
    cube.value = [](int x, int y, int b) { return 1000 + std::round(300 * hashed(x, y, b)); };
    writeCube(dir() / "scene.img", cube);
    for (const std::string which : {"along", "both"}) {
        const json result = succeed({"transform", "mnf", "scene.img", which + ".mat", "--noise", which});
        ASSERT_EQ(result["pairs"], which == "along" ? 256 : 256 + 255);
    }
    Rows rows;
    for (int y = 0; y < 16; ++y) {
        for (int x = 0; x < 16; ++x) {
            rows.emplace_back();
            for (int b = 0; b < 60; ++b) rows.back().push_back(cube.value(x, y, b) - cube.value(x + 1, y, b));
        }
    }
    const Matrix expected = covarianceOfRows(rows);
    const DataSet image = DataSet::open(path("scene.img"));
    std::vector<int> bands;
    for (int b = 0; b < 60; ++b) bands.push_back(b);
    const auto found = kscli::noiseFromNeighbours(image, bands, 0, nullptr, Neighbours::alongLine, 1);
    for (std::size_t i = 0; i < expected.values.size(); ++i) {
        ASSERT_NEAR(found.covariance.values[i], expected.values[i] / 2, 1e-8) << i;
    }
}

TEST_F(TransformFit, NoiseComesFromTheDirectionAskedFor) {
    // Stripes: every other column is brighter, so that only lines are alike.
    Cube cube = sceneCube();
    cube.value = [](int x, int y, int b) { return std::round(value(x, y, b) + (x % 2 == 0 ? 500 : 0)); };
    writeCube(dir() / "stripes.img", cube);
    const json along = succeed({"transform", "mnf", "stripes.img", "a.mat", "--noise", "along"});
    const json across = succeed({"transform", "mnf", "stripes.img", "b.mat", "--noise", "across"});
    EXPECT_EQ(along["pairs"], (kWidth - 1) * kHeight);
    EXPECT_EQ(across["pairs"], kWidth * (kHeight - 1));
    const Matrix a = covarianceOfRows(differencesOf(cube.value, kBands, 1, 0));
    const Matrix b = covarianceOfRows(differencesOf(cube.value, kBands, 0, 1));
    for (std::size_t i = 0; i < kBands; ++i) {
        EXPECT_NEAR(along["bands"][i]["noise_sd"].get<double>(), std::sqrt(a.at(i, i) / 2), 1e-8);
        EXPECT_NEAR(across["bands"][i]["noise_sd"].get<double>(), std::sqrt(b.at(i, i) / 2), 1e-8);
    }
}

TEST_F(TransformFit, RegionsAndIntervalsChooseTheSamples) {
    writeCube(dir() / "scene.img", sceneCube());
    const json inside =
        succeed({"transform", "pca", "scene.img", "r.mat", "--roi", "rectangle xoff 3 yoff 5 xsize 20 ysize 11"});
    const Rows region = pixelsOf(value, kBands, 3, 5, 23, 16);
    EXPECT_EQ(inside["samples"], region.size());
    expectEigenvalues(inside, "variance", Jacobi(covarianceOfRows(region)).values, 1e-10);
    const json thinned = succeed({"transform", "pca", "scene.img", "e.mat", "--every", "5"});
    const Rows fifth = pixelsOf(value, kBands, 0, 0, kWidth, kHeight, 5);
    EXPECT_EQ(thinned["samples"], fifth.size());
    expectEigenvalues(thinned, "variance", Jacobi(covarianceOfRows(fifth)).values, 1e-10);
}

TEST_F(TransformFit, ThinnedNoiseStillComparesAdjacentPixels) {
    writeCube(dir() / "scene.img", sceneCube());
    const json result = succeed({"transform", "mnf", "scene.img", "m.mat", "--every", "3"});
    Rows along;
    Rows across;
    for (int y = 0; y < kHeight; y += 3) {
        for (int x = 0; x < kWidth; x += 3) {
            std::vector<double> next;
            std::vector<double> below;
            for (int b = 0; b < kBands; ++b) {
                next.push_back(value(x, y, b) - value(x + 1, y, b));
                below.push_back(value(x, y, b) - value(x, y + 1, b));
            }
            if (x + 1 < kWidth) along.push_back(next);
            if (y + 1 < kHeight) across.push_back(below);
        }
    }
    ASSERT_EQ(result["pairs"], along.size() + across.size());
    const Matrix a = covarianceOfRows(along);
    const Matrix b = covarianceOfRows(across);
    for (std::size_t i = 0; i < kBands; ++i) {
        const double sum =
            static_cast<double>(along.size()) * a.at(i, i) + static_cast<double>(across.size()) * b.at(i, i);
        const double expected = std::sqrt(sum / static_cast<double>(along.size() + across.size()) / 2);
        EXPECT_NEAR(result["bands"][i]["noise_sd"].get<double>(), expected, 1e-8);
    }
}

TEST_F(TransformFit, NoisePairsLieInTheRegion) {
    writeCube(dir() / "scene.img", sceneCube());
    const json result =
        succeed({"transform", "mnf", "scene.img", "m.mat", "--roi", "rectangle xoff 10 yoff 10 xsize 10 ysize 8"});
    EXPECT_EQ(result["pairs"], 9 * 8 + 10 * 7);
    EXPECT_EQ(result["samples"], 80);
}

TEST_F(TransformFit, LevelsAreCalibratedFirst) {
    writeCube(dir() / "scene.img", sceneCube());
    const json result = succeed({"transform", "pca", "scene.img", "pca.mat", "--level", "1"});
    const auto calibrated = [](int x, int y, int b) {
        const float gain = 0.1F * static_cast<float>(b + 1);
        return 0.1 * (b + 1) * value(x, y, b) + (b + 1) + 0 * static_cast<double>(gain);
    };
    expectEigenvalues(result, "variance", Jacobi(covarianceOfRows(pixelsOf(calibrated, kBands))).values, 1e-5);
    run({"transform", "apply", "scene.img", "pca.mat", "c.img", "--level", "1"});
    run({"transform", "invert", "c.img", "pca.mat", "back.img", "--like", "scene.img", "--level", "1"});
    EXPECT_NEAR(floats("back.img")[4], calibrated(0, 0, 4), 1e-3);
}

TEST_F(TransformFit, BandsOfTheParametersAreFoundAgain) {
    Cube cube = sceneCube();
    cube.header += "bbl = {1, 1, 0, 1, 1, 1}\n";
    writeCube(dir() / "scene.img", cube);
    run({"transform", "pca", "scene.img", "good.mat"});
    EXPECT_EQ(parameters("good.mat").numbers, (std::vector<int>{1, 2, 4, 5, 6}));
    run({"transform", "pca", "scene.img", "some.mat", "--bands", "b5,b2,b3"});
    EXPECT_EQ(parameters("some.mat").numbers, (std::vector<int>{5, 2, 3}));
    run({"transform", "apply", "scene.img", "some.mat", "c.img"});
    run({"transform", "invert", "c.img", "some.mat", "back.img", "--like", "scene.img"});
    const auto back = floats("back.img");
    EXPECT_NEAR(back[0], value(0, 0, 4), 0.002);
    EXPECT_NEAR(back[1], value(0, 0, 1), 0.002);
    EXPECT_NEAR(back[2], value(0, 0, 2), 0.002);
    EXPECT_EQ(DataSet::open(path("back.img")).wavelength(0), 850);
    // What is written on the command line counts.
    run({"transform", "apply", "scene.img", "some.mat", "d.img", "--bands", "b1,b2,b3"});
    EXPECT_FALSE(read("d.img") == read("c.img"));
}

TEST_F(TransformFit, CodebooksRefuseParametersOfOtherBands) {
    writeCube(dir() / "scene.img", sceneCube());
    run({"vq", "encode", "scene.img", "vq.tif", "--train", "12"});
    run({"transform", "pca", "scene.img", "turned.mat", "--bands", "b2,b1,b3,b4,b5,b6"});
    refused({"transform", "apply", "vq.tif", "turned.mat", "c.tif", "--codebook"}, "another order");
    run({"transform", "pca", "vq.tif", "own.mat"});
    run({"transform", "apply", "vq.tif", "own.mat", "c.tif", "--codebook"});
}

TEST_F(TransformFit, FewerComponentsAreKeptByNumberVarianceOrNoise) {
    writeCube(dir() / "scene.img", sceneCube());
    const json all = succeed({"transform", "pca", "scene.img", "all.mat"});
    const json two = succeed({"transform", "pca", "scene.img", "two.mat", "--components", "2"});
    EXPECT_EQ(two["components_kept"], 2);
    EXPECT_EQ(two["components"].size(), 6U);
    const Parameters whole = parameters("all.mat");
    const Parameters part = parameters("two.mat");
    ASSERT_EQ(part.forward.rows, 2U);
    ASSERT_EQ(part.inverse.columns, 2U);
    for (std::size_t b = 0; b < kBands; ++b) {
        EXPECT_EQ(part.forward.at(1, b), whole.forward.at(1, b));
        EXPECT_EQ(part.inverse.at(b, 1), whole.inverse.at(b, 1));
    }
    const double enough = all["components"][2]["cumulative_percent"].get<double>();
    const auto keptFor = [&](double percent) {
        std::ostringstream text;
        text.precision(17);
        text << percent;
        return succeed({"transform", "pca", "scene.img", "v.mat", "--force", "--variance", text.str()})
            .at("components_kept")
            .get<int>();
    };
    EXPECT_EQ(keptFor(enough - 1e-6), 3);
    EXPECT_EQ(keptFor(enough + 1e-6), 4);
    EXPECT_EQ(keptFor(100), 6);
    EXPECT_EQ(keptFor(0), 1);
    const json mnf = succeed({"transform", "mnf", "scene.img", "m.mat"});
    const double snr = mnf["components"][1]["signal_to_noise"].get<double>();
    const json loud = succeed({"transform", "mnf", "scene.img", "n.mat", "--snr", std::to_string(snr * 0.999)});
    EXPECT_EQ(loud["components_kept"], 2);
    refused({"transform", "mnf", "scene.img", "o.mat", "--snr", "1e9"}, "no component has a signal-to-noise ratio");
    refused({"transform", "pca", "scene.img", "o.mat", "--components", "7"}, "6 bands give no more than 6 components");
    refused({"transform", "pca", "scene.img", "o.mat", "--components", "2", "--variance", "9"}, "excludes");
}

TEST_F(TransformFit, PixelsWithoutDataAreLeftOut) {
    Cube cube = sceneCube();
    cube.type = 4;
    cube.header += "data ignore value = -9999\n";
    const auto isHole = [](int x, int y) { return (x * 7 + y * 3) % 11 == 0; };
    cube.value = [&](int x, int y, int b) {
        if (x == 12 && y == 12 && b == 3) return std::numeric_limits<double>::quiet_NaN();
        return isHole(x, y) && b == 1 ? -9999.0 : value(x, y, b);
    };
    writeCube(dir() / "holes.img", cube);
    Rows rows;
    long long holes = 0;
    long long pairs = 0;
    const auto valid = [&](int x, int y) {
        return x < kWidth && y < kHeight && !isHole(x, y) && !(x == 12 && y == 12);
    };
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            if (!valid(x, y)) {
                ++holes;
                continue;
            }
            rows.push_back(pixelsOf(value, kBands, x, y, x + 1, y + 1)[0]);
            pairs += (valid(x + 1, y) ? 1 : 0) + (valid(x, y + 1) ? 1 : 0);
        }
    }
    const json pca = succeed({"transform", "pca", "holes.img", "p.mat"});
    EXPECT_EQ(pca["samples"], rows.size());
    EXPECT_EQ(pca["pixels_without_data"], holes);
    expectEigenvalues(pca, "variance", Jacobi(covarianceOfRows(rows)).values, 1e-10);
    const json mnf = succeed({"transform", "mnf", "holes.img", "m.mat"});
    EXPECT_EQ(mnf["pairs"], pairs);
    for (const Parameters& found : {parameters("p.mat"), parameters("m.mat")}) {
        for (double number : found.forward.values) EXPECT_TRUE(std::isfinite(number));
        for (double number : found.inverse.values) EXPECT_TRUE(std::isfinite(number));
    }
}

TEST_F(TransformFit, SmallBlocksFindTheSameNoise) {
    writeCube(dir() / "scene.img", sceneCube());
    const json whole = succeed({"transform", "mnf", "scene.img", "a.mat"});
    ASSERT_EQ(setenv("KSHOST_MEMORY", "3000", 1), 0);
    const json parts = succeed({"transform", "mnf", "scene.img", "b.mat"});
    unsetenv("KSHOST_MEMORY");
    EXPECT_EQ(parts["pairs"], whole["pairs"]);
    for (std::size_t b = 0; b < kBands; ++b) {
        EXPECT_EQ(parts["bands"][b]["noise_sd"], whole["bands"][b]["noise_sd"]);
    }
}

// ---- what cannot be estimated ----

TEST_F(TransformFit, ConstantAndCopiedBandsAreNamedAndStillReturn) {
    Cube cube = sceneCube();
    cube.value = [](int x, int y, int b) { return b == 1 ? 4095 : b == 5 ? value(x, y, 2) : value(x, y, b); };
    writeCube(dir() / "scene.img", cube);
    for (const std::string kind : {"pca", "mnf"}) {
        const Result result = ks({"transform", kind, "scene.img", kind + ".mat"});
        ASSERT_EQ(result.status, 0) << result.err;
        EXPECT_TRUE(contains(result.err, "b2: the same value everywhere")) << result.err;
        EXPECT_EQ(contains(result.err, "1 combination of bands shows no noise"), kind == "mnf") << result.err;
        run({"transform", "apply", "scene.img", kind + ".mat", "c.img", "--force"});
        run({"transform", "invert", "c.img", kind + ".mat", "back.img", "--like", "scene.img", "--force"});
        const auto back = floats("back.img");
        std::size_t at = 0;
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                for (int b = 0; b < kBands; ++b) ASSERT_NEAR(back[at++], cube.value(x, y, b), 0.005) << kind << b;
            }
        }
    }
    const json mnf = succeed({"transform", "mnf", "scene.img", "x.mat"});
    EXPECT_LT(mnf["components"][4]["variance_over_noise"], 0.1);
    EXPECT_LT(mnf["components"][5]["variance_over_noise"], 0.1);
    EXPECT_GT(mnf["components"][3]["variance_over_noise"], 0.5);
}

TEST_F(TransformFit, BandsWithoutNoiseAreNamed) {
    // Band 4 has two values, one in each half; its only neighbours that differ are left out by the region.
    Cube cube = sceneCube();
    cube.value = [](int x, int y, int b) { return b == 3 ? (x < 20 ? 100 : 900) : value(x, y, b); };
    cube.type = 4;
    const auto whole = cube.value;
    cube.value = [&](int x, int y, int b) {
        return x == 20 ? std::numeric_limits<double>::quiet_NaN() : whole(x, y, b);
    };
    writeCube(dir() / "scene.img", cube);
    const Result result = ks({"transform", "mnf", "scene.img", "m.mat"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.err, "b4: neighbours do not differ")) << result.err;
    EXPECT_FALSE(contains(result.err, "combination")) << result.err;
    for (double number : parameters("m.mat").forward.values) EXPECT_TRUE(std::isfinite(number));
}

TEST_F(TransformFit, TooLittleDataIsRefused) {
    Cube flat = sceneCube();
    flat.value = [](int, int, int) { return 7; };
    writeCube(dir() / "flat.img", flat);
    refused({"transform", "pca", "flat.img", "p.mat"}, "the same value in all 1200 samples");
    writeCube(dir() / "scene.img", sceneCube());
    refused({"transform", "mnf", "scene.img", "m.mat", "--roi", "rectangle xoff 0 yoff 0 xsize 2 ysize 2"},
            "4 pairs of neighbours");
    refused({"transform", "pca", "scene.img", "m.mat", "--roi", "point xoff 4 yoff 4 size 1"}, "one sample");
    Cube empty = sceneCube();
    empty.type = 4;
    empty.value = [](int, int, int) { return std::numeric_limits<double>::quiet_NaN(); };
    writeCube(dir() / "empty.img", empty);
    refused({"transform", "pca", "empty.img", "p.mat"}, "no pixel has data");
}

TEST_F(TransformFit, BandsWithoutAnyDataAreLeftOut) {
    Cube cube = sceneCube();
    cube.type = 4;
    cube.value = [](int x, int y, int b) { return b == 2 ? std::numeric_limits<double>::quiet_NaN() : value(x, y, b); };
    writeCube(dir() / "scene.img", cube);
    const Result result = ks({"transform", "mnf", "scene.img", "m.mat"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.err, "b3: no pixel has data")) << result.err;
    EXPECT_EQ(parameters("m.mat").numbers, (std::vector<int>{1, 2, 4, 5, 6}));
}

// ---- outputs ----

TEST_F(TransformFit, ReportsAndPicturesAreWritten) {
    writeCube(dir() / "scene.img", sceneCube());
    run({"transform", "mnf", "scene.img", "m.mat", "--report", "m.csv", "--report", "m.json", "--report", "m.svg",
         "--pictures", "m.png"});
    const std::string csv = read("m.csv");
    EXPECT_EQ(count(csv, "\n"), 1 + kBands);
    EXPECT_TRUE(contains(csv, "component,kept,variance_over_noise,signal_to_noise\n1,yes,")) << csv;
    EXPECT_EQ(json::parse(read("m.json"))["components"].size(), 6U);
    EXPECT_TRUE(contains(read("m.svg"), "<svg"));
    // Six pictures of 40 x 30, 3 to a row would be the squarest.
    const Picture picture = readPicture(dir() / "m.png");
    EXPECT_EQ(picture.width, 3 * kWidth + 2 * 4);
    EXPECT_EQ(picture.height, 2 * kHeight + 4);
    EXPECT_EQ(picture.at(kWidth + 1, 5), (std::vector<int>{255, 255, 255}));
}

TEST_F(TransformFit, PicturesShowTheComponents) {
    writeCube(dir() / "scene.img", sceneCube());
    run({"transform", "pca", "scene.img", "p.mat", "--pictures", "p.png"});
    run({"transform", "apply", "scene.img", "p.mat", "c.img"});
    const Picture picture = readPicture(dir() / "p.png");
    const auto components = floats("c.img");
    // Brighter means larger: compare pairs of pixels of component 5, which lies in the second row.
    int compared = 0;
    for (int i = 0; i + 7 < kWidth * kHeight; i += 7) {
        const int j = i + 7;
        const float a = components[static_cast<std::size_t>(i * kBands + 4)];
        const float b = components[static_cast<std::size_t>(j * kBands + 4)];
        const auto shadeOf = [&](int pixel) {
            return picture.at(kWidth + 4 + pixel % kWidth, kHeight + 4 + pixel / kWidth)[0];
        };
        if (shadeOf(i) == shadeOf(j)) continue;
        EXPECT_EQ(shadeOf(i) < shadeOf(j), a < b) << i;
        ++compared;
    }
    EXPECT_GT(compared, 100);
}

TEST_F(TransformFit, TheSameInputGivesTheSameBytes) {
    writeCube(dir() / "scene.img", sceneCube());
    run({"transform", "mnf", "scene.img", "a.mat"});
    run({"transform", "mnf", "scene.img", "b.mat"});
    EXPECT_TRUE(read("a.mat") == read("b.mat"));
}

TEST_F(TransformFit, TheTableEndsWhereItGetsLong) {
    Cube cube = sceneCube();
    cube.bands = 25;
    cube.header.clear();
    writeCube(dir() / "scene.img", cube);
    const Result result = ks({"transform", "pca", "scene.img", "p.mat"});
    EXPECT_EQ(count(result.out, "\n"), 1 + 20 + 1) << result.out;
    EXPECT_TRUE(contains(result.out, "and 5 components more"));
    EXPECT_TRUE(contains(result.err, "next: ks transform apply scene.img p.mat")) << result.err;
}

TEST_F(TransformFit, MistakesAreRefused) {
    writeCube(dir() / "scene.img", sceneCube());
    write("there.mat", "x");
    refused({"transform", "pca", "scene.img", "there.mat"}, "--force");
    refused({"transform", "pca", "scene.img", "scene.img", "--force"}, "part of the image");
    refused({"transform", "pca", "scene.img", "scene.hdr", "--force"}, "part of the image");
    refused({"transform", "pca", "scene.img", "p.mat", "--report", "p.txt"}, "a report ends in");
    refused({"transform", "pca", "scene.img", "p.mat", "--pictures", "p.jpg"}, ".png");
    refused({"transform", "pca", "scene.img", "p.mat", "--report", "p.png", "--pictures", "./p.png"}, "two outputs");
    refused({"transform", "pca", "scene.img", "p.mat", "--level", "2"}, "level 2 does not exist");
    refused({"transform", "pca", "scene.img", "p.mat", "--variance", "101"}, "--variance");
    refused({"transform", "pca", "scene.img", "p.mat", "--components", "0"}, "--components");
    refused({"transform", "pca", "none.img", "p.mat"}, "none.img");
    refused({"transform", "pca", "scene.img", "no/folder/p.mat"}, "no/folder");
    refused({"transform", "pca", "scene.img", "p.mat", "--roi", "rectangle xoff 100 yoff 0 xsize 2 ysize 2"}, "image");
    refused({"transform", "mnf", "scene.img", "p.mat", "--noise", "sideways"}, "--noise");
}

TEST_F(TransformFit, ADamagedImageGivesNoParameters) {
    writeCube(dir() / "scene.img", sceneCube());
    const std::string bytes = read("scene.img");
    write("scene.img", bytes.substr(0, bytes.size() / 2));
    const Result result = ks({"transform", "mnf", "scene.img", "m.mat"});
    EXPECT_EQ(result.status, 2) << result.err;
    EXPECT_FALSE(fs::exists(dir() / "m.mat"));
}

TEST_F(TransformFit, HelpShowsAnExample) {
    for (const char* command : {"pca", "mnf"}) {
        const Result result = ks({"transform", command, "--help"});
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(contains(result.out, std::string("ks transform ") + command + " scene.img")) << result.out;
    }
}

// ---- a real scene ----

class JasperRidge : public TransformFit {
protected:
    void SetUp() override {
        TransformFit::SetUp();
        const char* data = std::getenv("KSLIB_DATA");
        if (data == nullptr) GTEST_SKIP() << "KSLIB_DATA does not name a folder of sample cubes";
        image_ = std::string(data) + "/cube-aviris-jasper-ridge/jasperRidge2_R198.img";
        if (!fs::exists(image_)) GTEST_SKIP() << image_ << " is not there";
    }
    std::string image_;
};

TEST_F(JasperRidge, TheVariancesSumToThoseOfTheBands) {
    const json result = succeed({"transform", "pca", image_, "p.mat"});
    std::ifstream statistics(image_ + ".statistics.csv");
    std::string line;
    std::getline(statistics, line);
    double expected = 0;
    std::size_t band = 0;
    while (std::getline(statistics, line)) {
        std::istringstream fields(line);
        std::vector<double> numbers;
        for (std::string field; std::getline(fields, field, ',') && numbers.size() < 6;) {
            numbers.push_back(std::atof(field.c_str()));
        }
        EXPECT_NEAR(result["bands"][band]["mean"].get<double>(), numbers[4], 1e-4);
        expected += numbers[5] * numbers[5];
        ++band;
    }
    ASSERT_EQ(band, 198U);
    double found = 0;
    for (const auto& component : result["components"]) found += component["variance"].get<double>();
    EXPECT_NEAR(found, expected, 1e-7 * expected);
}

TEST_F(JasperRidge, AllComponentsReturnTheCube) {
    run({"convert", image_, "scene.img", "--type", "float32"});
    const auto original = floats("scene.img");
    for (const std::string kind : {"pca", "mnf"}) {
        const json result = succeed({"transform", kind, image_, kind + ".mat"});
        run({"transform", "apply", image_, kind + ".mat", "c.img", "--force"});
        run({"transform", "invert", "c.img", kind + ".mat", "back.img", "--like", image_, "--force"});
        const auto back = floats("back.img");
        ASSERT_EQ(back.size(), original.size());
        float worst = 0;
        for (std::size_t i = 0; i < back.size(); ++i) worst = std::max(worst, std::abs(back[i] - original[i]));
        EXPECT_LT(worst, 0.01F) << kind;
        const Rows components = componentsOf("c.img", 198);
        const char* const name = kind == "pca" ? "variance" : "variance_over_noise";
        for (std::size_t k : {0U, 1U, 50U, 197U}) {
            double sum = 0;
            double squares = 0;
            for (const auto& pixel : components) sum += pixel[k], squares += pixel[k] * pixel[k];
            const auto n = static_cast<double>(components.size());
            const double expected = result["components"][k][name].get<double>();
            EXPECT_NEAR(squares / n - sum * sum / n / n, expected, 1e-3 * expected) << kind << k;
        }
    }
}

}  // namespace
}  // namespace clitest
