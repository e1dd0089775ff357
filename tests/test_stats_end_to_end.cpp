// Band statistics of real cubes on the embedded host, against tables that were computed independently, and over regions
// and differences against what the samples themselves say.
#include <gtest/gtest.h>
#include <kshost_app.h>
#include <kslib.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr unsigned char kAllMembers = KS_BS_MIN | KS_BS_MAX | KS_BS_MEAN | KS_BS_SD | KS_BS_COV;
constexpr double kWhereTheMaximumStarts = 1.1754943508222875e-38;

/// One band of a table: the covariance is that with the next band, with one sample fewer in its denominator.
struct KnownBand {
    double min, max, mean, deviation, covariance;
};

std::vector<KnownBand> readTable(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    EXPECT_EQ(line,
              "band_1based,wavelength,min,max,mean,sd_divided_by_n,sd_divided_by_n_minus_1,"
              "covariance_with_next_band_divided_by_n_minus_1");
    std::vector<KnownBand> bands;
    while (std::getline(file, line)) {
        std::istringstream fields(line);
        std::vector<double> values;
        for (std::string text; std::getline(fields, text, ',');) values.push_back(text.empty() ? 0.0 : std::stod(text));
        values.resize(8);
        bands.push_back({values[2], values[3], values[4], values[5], values[7]});
    }
    return bands;
}

/// A single as the table's nine digits tell it.
double single(double value) { return static_cast<double>(static_cast<float>(value)); }

/// Statistics with all members, freed with it.
struct Record : KSBandStats {
    explicit Record(int bands) : KSBandStats{} { EXPECT_EQ(KSAllocMembsBandStats(this, kAllMembers, bands), 0); }
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;
    ~Record() { KSFreeMembsBandStats(this); }
};

struct Cube {
    std::string name;
    std::vector<KnownBand> known;
    KSDataSet* dataSet;
};

struct RealStatistics : testing::Test {
    std::vector<Cube> cubes;

    void SetUp() override {
        const char* data = std::getenv("KSLIB_DATA");
        if (data == nullptr) GTEST_SKIP() << "KSLIB_DATA does not name a folder of sample cubes";
        KSHostResetErrorCount();
        const std::string ending = ".statistics.csv";
        for (const char* folder : {"cube-aviris-jasper-ridge", "cube-aviris-ng-cutouts", "cube-enmap-potsdam"}) {
            int found = 0;
            for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(data) / folder)) {
                const std::string path = entry.path().string();
                if (path.size() <= ending.size() || path.substr(path.size() - ending.size()) != ending) continue;
                const std::string name = path.substr(0, path.size() - ending.size());
                KSDataSet* dataSet = KSOpen(name.c_str(), "r");
                ASSERT_NE(dataSet, nullptr) << name;
                cubes.push_back({name, readTable(path), dataSet});
                ++found;
            }
            EXPECT_GT(found, 0) << folder;
        }
    }
    void TearDown() override {
        for (const Cube& cube : cubes) {
            while (cube.dataSet->nNumRadTrans > 0) KSDelRadTrans(cube.dataSet);
            EXPECT_EQ(KSClose(cube.dataSet), 0);
        }
        KSHostSetMemory(0);
        EXPECT_EQ(KSHostErrorCount(), 0);
    }
};

void expectMoments(const KSBandStats& record, const std::vector<KnownBand>& known) {
    const double samples = record.nNumSamples;
    for (std::size_t b = 0; b < known.size(); ++b) {
        const KnownBand& band = known[b];
        EXPECT_EQ(record.pMin->ve[b], single(band.min)) << "band " << b;
        EXPECT_NEAR(record.pMean->ve[b], band.mean, 1e-7 * std::max(std::abs(band.mean), band.deviation))
            << "band " << b;
        EXPECT_NEAR(record.pSD->ve[b], band.deviation, 1e-7 * band.deviation) << "band " << b;
        const double variance = band.deviation * band.deviation;
        EXPECT_NEAR(record.pCov->me[b][b], variance, 1e-7 * variance) << "band " << b;
        if (b + 1 == known.size()) continue;
        const double covariance = band.covariance * (samples - 1.0) / samples;
        EXPECT_NEAR(record.pCov->me[b][b + 1], covariance,
                    1e-7 * std::max(std::abs(covariance), band.deviation * known[b + 1].deviation))
            << "band " << b;
        EXPECT_EQ(record.pCov->me[b + 1][b], record.pCov->me[b][b + 1]) << "band " << b;
    }
}

TEST_F(RealStatistics, AreThoseOfTheirTables) {
    int negativeBands = 0;
    for (const Cube& cube : cubes) {
        SCOPED_TRACE(cube.name);
        const auto bands = static_cast<int>(cube.known.size());
        ASSERT_EQ(cube.dataSet->Sensor.nNumBands, bands);
        for (const int memory : {0, 3000000}) {  // the usual allowance, and one for blocks of a few lines
            KSHostSetMemory(memory);
            Record given(bands);
            ASSERT_EQ(KSEvalBandStats(cube.dataSet, 0, nullptr, nullptr, &given), 0);
            EXPECT_EQ(given.nNumSamples, static_cast<unsigned>(cube.dataSet->nXSize * cube.dataSet->nYSize));
            expectMoments(given, cube.known);
            Record exact(bands);
            ASSERT_EQ(KSXEvalBandStats(cube.dataSet, 0, nullptr, nullptr, &exact), 0);
            EXPECT_EQ(exact.nNumSamples, given.nNumSamples);
            expectMoments(exact, cube.known);
            for (int b = 0; b < bands; ++b) {
                const double largest = single(cube.known[static_cast<std::size_t>(b)].max);
                EXPECT_EQ(exact.pMax->ve[b], largest) << "band " << b;
                EXPECT_EQ(given.pMax->ve[b], std::max(largest, kWhereTheMaximumStarts)) << "band " << b;
                negativeBands += largest < 0.0 ? 1 : 0;
            }
        }
    }
    EXPECT_GT(negativeBands, 0) << "some bands lie wholly below zero";
}

/// All samples of a cube, pixel after pixel, bands fastest.
std::vector<double> samplesOf(const KSDataSet& dataSet) {
    KSWinEx window;
    KSInitWinEx(&window);
    window.nXSize = dataSet.nXSize;
    window.nYSize = dataSet.nYSize;
    window.SampDesc.nXSampleInt = window.SampDesc.nYSampleInt = 1;
    window.SampDesc.nNumBands = dataSet.Sensor.nNumBands;
    EXPECT_EQ(KSAllocWinEx(&window), 0);
    for (int b = 0; b < window.SampDesc.nNumBands; ++b) window.SampDesc.panBandMap[b] = b;
    EXPECT_EQ(KSReadWinEx(&dataSet, &window), 0);
    const auto count =
        static_cast<std::ptrdiff_t>(window.nNumXSamples) * window.nNumYSamples * dataSet.Sensor.nNumBands;
    std::vector<double> samples(window.pafSamples, window.pafSamples + count);
    KSFreeWinEx(&window);
    return samples;
}

/// Mean and population deviation, from two passes in extended precision.
struct Moments {
    double mean, deviation;
};

Moments momentsOf(const std::vector<double>& values) {
    long double sum = 0.0L;
    for (const double value : values) sum += static_cast<long double>(value);
    const long double mean = sum / static_cast<long double>(values.size());
    long double squares = 0.0L;
    for (const double value : values) {
        squares += (static_cast<long double>(value) - mean) * (static_cast<long double>(value) - mean);
    }
    return {static_cast<double>(mean),
            static_cast<double>(std::sqrt(squares / static_cast<long double>(values.size())))};
}

TEST_F(RealStatistics, OfABitmapRegionAreThoseOfItsPixels) {
    KSHostSetMemory(3000000);
    for (const Cube& cube : cubes) {
        SCOPED_TRACE(cube.name);
        const KSDataSet& dataSet = *cube.dataSet;
        const std::vector<double> samples = samplesOf(dataSet);
        const int bands = dataSet.Sensor.nNumBands;
        const auto holds = [](int x, int y) { return (3 * x + 5 * y) % 7 < 4; };
        KSROI region = {KS_ROI_BITMAP, 0, 0, dataSet.nXSize, dataSet.nYSize, nullptr, -1};
        ASSERT_EQ(KSAllocROIBitmap(&region), 0);
        std::vector<std::vector<double>> values(static_cast<std::size_t>(bands));
        for (int y = 0; y < dataSet.nYSize; ++y) {
            for (int x = 0; x < dataSet.nXSize; ++x) {
                if (!holds(x, y)) continue;
                KSSetROIBit(&region, x, y);
                for (int b = 0; b < bands; ++b) {
                    const auto at = static_cast<std::size_t>((y * dataSet.nXSize + x) * bands + b);
                    values[static_cast<std::size_t>(b)].push_back(samples[at]);
                }
            }
        }
        Record record(bands);
        ASSERT_EQ(KSEvalBandStats(&dataSet, 0, nullptr, &region, &record), 0);
        EXPECT_EQ(record.nNumSamples, values[0].size());
        for (int b = 0; b < bands; ++b) {
            const std::vector<double>& band = values[static_cast<std::size_t>(b)];
            const Moments known = momentsOf(band);
            EXPECT_EQ(record.pMin->ve[b], *std::min_element(band.begin(), band.end()));
            EXPECT_NEAR(record.pMean->ve[b], known.mean, 1e-12 * std::abs(known.mean) + 1e-15) << "band " << b;
            EXPECT_NEAR(record.pSD->ve[b], known.deviation, 1e-8 * known.deviation) << "band " << b;
        }
        std::free(region.pbyBitmap);
    }
}

TEST_F(RealStatistics, OfDifferencesAreThoseOfAllPairs) {
    KSHostSetMemory(3000000);
    for (const Cube& cube : cubes) {
        SCOPED_TRACE(cube.name);
        const KSDataSet& dataSet = *cube.dataSet;
        const std::vector<double> samples = samplesOf(dataSet);
        const int bands = dataSet.Sensor.nNumBands;
        Record record(bands);
        ASSERT_EQ(KSXEvalDiffBandStats(&dataSet, 0, 1, 2, nullptr, nullptr, &record), 0);
        for (int b = 0; b < bands; b += 10) {
            std::vector<double> differences;
            for (int y = 0; y + 2 < dataSet.nYSize; ++y) {
                for (int x = 0; x + 1 < dataSet.nXSize; ++x) {
                    const auto at = static_cast<std::size_t>((y * dataSet.nXSize + x) * bands + b);
                    const auto other = static_cast<std::size_t>(((y + 2) * dataSet.nXSize + x + 1) * bands + b);
                    differences.push_back(std::abs(samples[at] - samples[other]));
                }
            }
            EXPECT_EQ(record.nNumSamples, differences.size());
            const Moments known = momentsOf(differences);
            EXPECT_EQ(record.pMax->ve[b], *std::max_element(differences.begin(), differences.end()));
            EXPECT_NEAR(record.pMean->ve[b], known.mean, 1e-12 * known.mean + 1e-15) << "band " << b;
            EXPECT_NEAR(record.pSD->ve[b], known.deviation, 1e-8 * known.deviation) << "band " << b;
        }
    }
}

}  // namespace
