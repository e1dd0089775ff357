#include <cctype>
#include <cmath>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "clikit.hpp"
#include "image/bands.hpp"
#include "image/dataset.hpp"

namespace clitest {
namespace {

using kscli::DataSet;

class Synth : public CliTest {
protected:
    /// The numbers of a CSV file without its head line.
    std::vector<std::vector<double>> numbers(const std::string& name) const {
        std::vector<std::vector<double>> rows;
        std::istringstream text(read(name));
        std::string line;
        std::getline(text, line);
        while (std::getline(text, line)) {
            rows.emplace_back();
            std::istringstream fields(line);
            for (std::string field; std::getline(fields, field, ',');) rows.back().push_back(std::stod(field));
        }
        return rows;
    }
};

std::vector<float> samplesOf(const DataSet& dataSet, int level) {
    kscli::Window window(dataSet->nXSize, dataSet->nYSize, 1, 1, kscli::allBands(dataSet));
    window.place(0, 0);
    window.read(dataSet, level);
    return {window.samples(), window.samples() + window.sampleCount()};
}

TEST_F(Synth, SameSeedSameSceneOtherSeedOtherScene) {
    const std::vector<std::string> common = {"--size", "40x30", "--bands", "24"};
    const auto make = [&](const std::string& name, const std::string& seed) {
        std::vector<std::string> arguments = {"synth", name, "--seed", seed};
        arguments.insert(arguments.end(), common.begin(), common.end());
        ASSERT_EQ(ks(arguments).status, 0);
    };
    make("a.img", "5");
    make("b.img", "5");
    make("c.img", "6");
    EXPECT_EQ(read("a.img"), read("b.img"));
    EXPECT_EQ(read("a_truth/fractions.img"), read("b_truth/fractions.img"));
    EXPECT_NE(read("a.img"), read("c.img"));
    EXPECT_NE(read("a_truth/fractions.img"), read("c_truth/fractions.img"));
    EXPECT_NE(read("a_truth/trend.csv"), read("c_truth/trend.csv"));
}

TEST_F(Synth, FractionsSumToOneAndReachPureMaterials) {
    ASSERT_EQ(ks({"synth", "scene.img", "--size", "64x64", "--bands", "4", "--materials", "5"}).status, 0);
    const DataSet fractions = DataSet::open(path("scene_truth/fractions.img"));
    ASSERT_EQ(fractions.bandCount(), 5);
    const std::vector<float> values = samplesOf(fractions, 0);
    double purest = 0;
    double mostMixed = 1;
    for (std::size_t pixel = 0; pixel < 64 * 64; ++pixel) {
        double sum = 0;
        double largest = 0;
        for (std::size_t m = 0; m < 5; ++m) {
            const double fraction = static_cast<double>(values[5 * pixel + m]);
            EXPECT_GE(fraction, 0);
            sum += fraction;
            largest = std::max(largest, fraction);
        }
        EXPECT_NEAR(sum, 1, 1e-6);
        purest = std::max(purest, largest);
        mostMixed = std::min(mostMixed, largest);
    }
    EXPECT_GT(purest, 0.95);
    EXPECT_LT(mostMixed, 0.6);
    char name[256] = {};
    GDBChanDescIO(fractions.file(), 0, 1, name);
    EXPECT_STREQ(name, "vegetation");
}

// Radiance rebuilt from the truth files differs from the calibrated image by nothing but noise of the stated size.
TEST_F(Synth, TruthExplainsTheImageUpToItsNoise) {
    constexpr int kWidth = 48;
    constexpr int kHeight = 40;
    constexpr int kBands = 32;
    ASSERT_EQ(ks({"synth", "scene.img", "--size", "48x40", "--bands", "32"}).status, 0);
    const DataSet image = DataSet::open(path("scene.img"));
    ASSERT_EQ(image->nNumRadTrans, 1);
    EXPECT_EQ(image->papRadTransSeq[0]->eRadQuant, KS_RQ_APPRAD);
    const std::vector<float> radiance = samplesOf(image, 1);
    const std::vector<float> fractions = samplesOf(DataSet::open(path("scene_truth/fractions.img")), 0);
    const auto endmembers = numbers("scene_truth/endmembers.csv");
    const auto light = numbers("scene_truth/illumination.csv");
    const auto trend = numbers("scene_truth/trend.csv");
    ASSERT_EQ(endmembers.size(), static_cast<std::size_t>(kBands));
    ASSERT_EQ(trend.size(), static_cast<std::size_t>(kWidth));
    double sum = 0;
    double squares = 0;
    for (std::size_t pixel = 0; pixel < kWidth * kHeight; ++pixel) {
        for (std::size_t band = 0; band < kBands; ++band) {
            double reflectance = 0;
            for (std::size_t m = 0; m < 6; ++m) {
                reflectance += static_cast<double>(fractions[6 * pixel + m]) * endmembers[band][m + 1];
            }
            const double expected = trend[pixel % kWidth][1] * (light[band][1] * reflectance + light[band][2]);
            const double gain = light[band][4];
            const double variance = std::pow(0.0008 + 6 * gain, 2) + 2.5e-5 * expected + gain * gain / 12;
            const double normalised =
                (static_cast<double>(radiance[kBands * pixel + band]) - expected) / std::sqrt(variance);
            EXPECT_LT(std::abs(normalised), 4.5) << "pixel " << pixel << ", band " << band;
            sum += normalised;
            squares += normalised * normalised;
        }
    }
    constexpr double kCount = kWidth * kHeight * kBands;
    EXPECT_NEAR(sum / kCount, 0, 5 / std::sqrt(kCount));
    EXPECT_NEAR(squares / kCount, 1, 0.03);
}

TEST_F(Synth, ImageIsDescribedCompletely) {
    ASSERT_EQ(ks({"synth", "scene.tif", "--size", "20x10", "--bands", "224"}).status, 0);
    const DataSet image = DataSet::open(path("scene.tif"));
    EXPECT_EQ(image->nXSize, 20);
    EXPECT_EQ(image->nYSize, 10);
    EXPECT_EQ(image->pBandRefs[0].nChanType, 3);
    EXPECT_FLOAT_EQ(static_cast<float>(image.wavelength(0)), 400);
    EXPECT_FLOAT_EQ(static_cast<float>(image.wavelength(223)), 2500);
    EXPECT_GT(image.fwhm(100), 5);
    EXPECT_NE(image->Sensor.szModelName, nullptr);
    EXPECT_EQ(image->Sensor.eType, KS_SENSOR_PUSHBROOM);
    EXPECT_EQ(image->Mission.nYear, 2024);
    EXPECT_EQ(image->Mission.fHeading, 12.5F);
    double transform[6] = {};
    EXPECT_EQ(KSHostGetGeoTransform(image.file(), transform), 1);
    EXPECT_EQ(transform[1], 10);
    const auto light = numbers("scene_truth/illumination.csv");
    int masked = 0;
    for (int band = 0; band < 224; ++band) {
        // Written with nine digits, so the single-precision gain comes back exactly.
        EXPECT_EQ(image->papRadTransSeq[0]->pafGains[band],
                  static_cast<float>(light[static_cast<std::size_t>(band)][4]))
            << band;
        const double nm = image.wavelength(band);
        const bool inAbsorption = (nm >= 1340 && nm <= 1430) || (nm >= 1810 && nm <= 1950);
        EXPECT_EQ(image.isGood(band), !inAbsorption) << nm;
        masked += inAbsorption ? 1 : 0;
    }
    EXPECT_GT(masked, 10);
}

TEST_F(Synth, GeoTiffStandsOnItsOwnWithoutItsSidecar) {
    ASSERT_EQ(ks({"synth", "scene.tif", "--size", "20x10", "--bands", "12"}).status, 0);
    ASSERT_TRUE(fs::remove(dir() / "scene.tif.ks"));
    const DataSet image = DataSet::open(path("scene.tif"));
    double transform[6] = {};
    EXPECT_EQ(KSHostGetGeoTransform(image.file(), transform), 1);
    EXPECT_EQ(transform[1], 10);
    EXPECT_TRUE(contains(KSHostGetCoordinateSystem(image.file()), "UTM zone 33N"));
    EXPECT_FLOAT_EQ(static_cast<float>(image.wavelength(11)), 2500);
}

// Absorption bands, red edge: what anyone would look for in such a scene.
TEST_F(Synth, SpectraLookLikeWhatTheyAre) {
    ASSERT_EQ(ks({"synth", "scene.img", "--size", "4x4", "--bands", "211"}).status, 0);  // every 10 nm
    const auto endmembers = numbers("scene_truth/endmembers.csv");
    const auto light = numbers("scene_truth/illumination.csv");
    const auto at = [](double nm) { return static_cast<std::size_t>(std::lround((nm - 400) / 10)); };
    EXPECT_GT(endmembers[at(800)][1], 5 * endmembers[at(670)][1]);  // vegetation
    EXPECT_GT(endmembers[at(550)][1], endmembers[at(670)][1]);
    EXPECT_LT(endmembers[at(800)][3], 0.02);  // water
    for (const auto& [centre, shoulder] :
         std::vector<std::pair<double, double>>{{760, 780}, {940, 880}, {1130, 1070}, {1380, 1280}, {1880, 1700}}) {
        EXPECT_LT(light[at(centre)][1], 0.8 * light[at(shoulder)][1]) << centre;
    }
    EXPECT_LT(light[at(1380)][1], 0.01 * light[at(1280)][1]);
    for (const auto& row : endmembers) {
        for (std::size_t m = 1; m < row.size(); ++m) EXPECT_TRUE(row[m] > 0 && row[m] < 1);
    }
}

// In the column of brightness 1 the scene's atmosphere gives back the mixture of the materials, up to the noise.
TEST_F(Synth, AtmosphereGivesBackTheReflectance) {
    constexpr int kWidth = 33;
    constexpr int kHeight = 64;
    constexpr std::size_t kMiddle = 16;
    constexpr std::size_t kBands = 24;
    ASSERT_EQ(ks({"synth", "scene.img", "--size", "33x64", "--bands", "24"}).status, 0);
    ASSERT_EQ(ks({"lut", "import", "--radiance", "scene_truth/atmosphere.nc", "t.kslut"}).status, 0);
    const Result result = ks({"reflectance", "scene.img", "r.img", "--lut", "t.kslut", "--water", "2"});
    ASSERT_EQ(result.status, 0) << result.err;
    const std::vector<float> reflectance = samplesOf(DataSet::open(path("r.img")), 0);
    const std::vector<float> fractions = samplesOf(DataSet::open(path("scene_truth/fractions.img")), 0);
    const auto endmembers = numbers("scene_truth/endmembers.csv");
    const auto light = numbers("scene_truth/illumination.csv");
    ASSERT_EQ(numbers("scene_truth/trend.csv")[kMiddle][1], 1);
    for (std::size_t band = 0; band < kBands; ++band) {
        double difference = 0;
        for (std::size_t line = 0; line < kHeight; ++line) {
            const std::size_t pixel = line * kWidth + kMiddle;
            difference += static_cast<double>(reflectance[pixel * kBands + band]) / kHeight;
            for (std::size_t m = 0; m < 6; ++m)
                difference -= static_cast<double>(fractions[6 * pixel + m]) * endmembers[band][m + 1] / kHeight;
        }
        const double noiseOfMean = light[band][3] / light[band][1] / std::sqrt(kHeight);
        EXPECT_LT(std::abs(difference), 5 * noiseOfMean) << band;
    }
}

// What twice the water lets through is the square of what half of that does.
TEST_F(Synth, AtmosphereKnowsOtherWater) {
    ASSERT_EQ(ks({"synth", "scene.img", "--size", "4x4", "--bands", "211"}).status, 0);  // every 10 nm
    ASSERT_EQ(ks({"lut", "import", "--radiance", "scene_truth/atmosphere.nc", "t.kslut"}).status, 0);
    const auto white = [&](const std::string& water) {
        const std::vector<std::string> point = {"--at", "water=" + water, "--at", "refl=0.5"};
        std::vector<std::string> arguments = {"lut", "interp", "t.kslut", "-o", "w" + water + ".csv"};
        arguments.insert(arguments.end(), point.begin(), point.end());
        EXPECT_EQ(ks(arguments).status, 0);
        std::vector<double> values;
        std::istringstream text(read("w" + water + ".csv"));
        for (std::string line; std::getline(text, line);) {
            if (std::isdigit(static_cast<unsigned char>(line[0])) != 0)
                values.push_back(2 * std::stod(line.substr(line.find(',') + 1)));
        }
        return values;
    };
    const auto one = white("1");
    const auto two = white("2");
    const auto four = white("4");
    const auto light = numbers("scene_truth/illumination.csv");
    ASSERT_EQ(two.size(), 211U);
    for (std::size_t band = 0; band < two.size(); ++band) {
        EXPECT_NEAR(two[band] / light[band][1], 1, 1e-6) << band;
        EXPECT_NEAR(four[band] / two[band], std::pow(two[band] / one[band], 2), 1e-5) << band;
    }
    const std::size_t vapour = (940 - 400) / 10;
    const std::size_t window = (860 - 400) / 10;
    EXPECT_LT(four[vapour], 0.7 * two[vapour]);
    EXPECT_NEAR(four[window] / two[window], 1, 0.02);
}

TEST_F(Synth, SmallestScene) {
    ASSERT_EQ(ks({"synth", "tiny.img", "--size", "1x1", "--bands", "1", "--materials", "1"}).status, 0);
    EXPECT_EQ(DataSet::open(path("tiny.img")).bandCount(), 1);
}

TEST_F(Synth, ExistingSceneIsKeptUnlessForced) {
    ASSERT_EQ(ks({"synth", "s.img", "--size", "4x4", "--seed", "1"}).status, 0);
    const std::string first = read("s.img");
    EXPECT_EQ(ks({"synth", "s.img", "--size", "4x4", "--seed", "2"}).status, 1);
    EXPECT_EQ(read("s.img"), first);
    ASSERT_EQ(ks({"synth", "s.img", "--size", "4x4", "--seed", "2", "--force"}).status, 0);
    EXPECT_NE(read("s.img"), first);
    EXPECT_EQ(ks({"synth", "s.img", "--size", "0x4"}).status, 1);
    EXPECT_EQ(ks({"synth", "s.img", "--size", "4"}).status, 1);
}

}  // namespace
}  // namespace clitest
