// Smoothing with a window of its own for every value, compared with plain loops over the formula.
#include <kslib.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "fixture.hpp"
#include "resampling.hpp"
#include "smoothing.hpp"

using namespace kit;

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

std::vector<float> evenWavelengths(std::size_t count) {
    std::vector<float> wlens;
    for (std::size_t i = 0; i < count; ++i) wlens.push_back(400.0F + 10.0F * static_cast<float>(i));
    return wlens;
}

std::vector<double> noise(std::size_t count, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> distribution(-1.0, 1.0);
    std::vector<double> values(count);
    for (double& value : values) value = distribution(random);
    return values;
}

/// The formula, value by value: reach values to either side, never beyond first and last.
std::vector<double> gaussReference(const std::vector<double>& values, const std::vector<float>& wlens, int first,
                                   int last, int reach, double width) {
    std::vector<double> result = values;
    for (int c = first; c <= last; ++c) {
        const int r = std::min({reach, c - first, last - c});
        double sum = 0;
        double total = 0;
        for (int i = c - r; i <= c + r; ++i) {
            const double d = static_cast<double>(wlens[static_cast<std::size_t>(i)]) -
                             static_cast<double>(wlens[static_cast<std::size_t>(c)]);
            const double weight = std::exp(-d * d / (width * width));
            sum += weight * values[static_cast<std::size_t>(i)];
            total += weight;
        }
        result[static_cast<std::size_t>(c)] = sum / total;
    }
    return result;
}

std::vector<double> medianReference(const std::vector<double>& values, int first, int last, int reach) {
    std::vector<double> result = values;
    for (int c = first; c <= last; ++c) {
        const int r = std::min({reach, c - first, last - c});
        std::vector<double> window(values.begin() + (c - r), values.begin() + (c + r + 1));
        std::sort(window.begin(), window.end());
        result[static_cast<std::size_t>(c)] = window[static_cast<std::size_t>(r)];
    }
    return result;
}

void expectNear(const std::vector<double>& actual, const std::vector<double>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < actual.size(); ++i) {
        if (std::isnan(expected[i])) {
            EXPECT_TRUE(std::isnan(actual[i])) << i;
        } else {
            EXPECT_NEAR(actual[i], expected[i], 1e-14 * (1 + std::abs(expected[i]))) << i;
        }
    }
}

using KSXSmoothTest = LibraryTest;

TEST_F(KSXSmoothTest, GaussianOfEveryValueOfASegmentIsCentredOnIt) {
    std::vector<float> wlens = evenWavelengths(30);
    for (std::size_t i = 0; i < wlens.size(); ++i) wlens[i] += static_cast<float>(i * i) * 0.1F;  // uneven
    const std::vector<double> start = noise(30, 1);
    for (const float width : {3.0F, 4.6F, 7.0F, 9.0F}) {
        const int reach = static_cast<int>(width + 0.5F) / 2;
        Parms parms(width, wlens, {{0, 29}});
        const Values values(start);
        ASSERT_EQ(KSXSmoothGauss(values.get(), parms.get()), 1);
        expectNear(values.all(), gaussReference(start, wlens, 0, 29, reach, static_cast<double>(width)));
    }
}

TEST_F(KSXSmoothTest, MedianOfEveryValueOfASegmentIsThatOfItsWindow) {
    const std::vector<double> start = noise(40, 2);
    for (const float width : {3.0F, 5.0F, 6.0F, 11.0F}) {
        const int reach = static_cast<int>(width + 0.5F) / 2;
        Parms parms(width, evenWavelengths(40), {{0, 39}});
        parms->pSTSchema = nullptr;
        const Values values(start);
        ASSERT_EQ(KSXSmoothMedian(values.get(), parms.get()), 1);
        EXPECT_EQ(values.all(), medianReference(start, 0, 39, reach));
    }
}

TEST_F(KSXSmoothTest, WindowsStayInTheirSegmentAndTheRestIsLeftAlone) {
    const std::vector<float> wlens = evenWavelengths(20);
    std::vector<double> start(20, 1.0);
    for (std::size_t i = 8; i < 12; ++i) start[i] = 1000.0;  // between the segments
    for (const KSSmoothFunc function : {KSXSmoothGauss, KSXSmoothMedian}) {
        Parms parms(7.0F, wlens, {{0, 7}, {12, 19}});
        const Values values(start);
        ASSERT_EQ(function(values.get(), parms.get()), 1);
        expectNear(values.all(), start);
    }
}

TEST_F(KSXSmoothTest, AStraightLineStaysWhereItIs) {
    std::vector<double> line;
    for (int i = 0; i < 25; ++i) line.push_back(3.0 + 0.25 * i);
    for (const KSSmoothFunc function : {KSXSmoothGauss, KSXSmoothMedian}) {
        Parms parms(9.0F, evenWavelengths(25), {{0, 24}});
        const Values values(line);
        ASSERT_EQ(function(values.get(), parms.get()), 1);
        expectNear(values.all(), line);
    }
}

TEST_F(KSXSmoothTest, UnusableValuesStayAndEndSegments) {
    const std::vector<float> wlens = evenWavelengths(16);
    std::vector<double> start = noise(16, 3);
    start[5] = kNaN;
    start[9] = kMaskedValue;
    std::vector<int> quality(16, KS_BQ_PLOT);
    quality[12] = KS_BQ_MASK;
    quality[0] = KS_BQ_UNKNOWN;  // unknown and bmask are no reproach
    quality[2] = KS_BQ_BMASK;
    std::vector<double> expected = start;
    for (const auto& [first, last] : std::vector<std::pair<int, int>>{{0, 4}, {6, 8}, {10, 11}, {13, 15}}) {
        expected = gaussReference(expected, wlens, first, last, 2, 5.0);
    }
    Parms parms(5.0F, wlens, {{0, 15}});
    parms->bCheckQual = 1;
    parms->peBandQual = quality.data();
    const Values values(start);
    ASSERT_EQ(KSXSmoothGauss(values.get(), parms.get()), 1);
    expectNear(values.all(), expected);
}

TEST_F(KSXSmoothTest, QualityOfTheSensorCountsWhereTheSpectrumHasNone) {
    std::vector<int> quality = {KS_BQ_PLOT, KS_BQ_PLOT, KS_BQ_SKIP, KS_BQ_PLOT, KS_BQ_PLOT, KS_BQ_PLOT};
    KSSensor sensor = {};
    sensor.nNumBands = 6;
    sensor.peBandQual = quality.data();
    const std::vector<double> start = {1, 9, 5, 1, 9, 2};
    Parms parms(3.0F, evenWavelengths(6), {{0, 5}});
    parms->pSensor = &sensor;
    parms->bCheckQual = 1;
    const Values checked(start);
    ASSERT_EQ(KSXSmoothMedian(checked.get(), parms.get()), 1);
    EXPECT_EQ(checked.all(), (std::vector<double>{1, 9, 5, 1, 2, 2}));
    parms->bCheckQual = 0;
    const Values unchecked(start);
    ASSERT_EQ(KSXSmoothMedian(unchecked.get(), parms.get()), 1);
    EXPECT_EQ(unchecked.all(), (std::vector<double>{1, 5, 5, 5, 2, 2}));
}

TEST_F(KSXSmoothTest, SegmentsAndWidthsBeyondTheVectorAreCut) {
    const std::vector<double> start = noise(7, 4);
    Parms parms(1e30F, evenWavelengths(7), {{-100, 2}, {3, std::numeric_limits<int>::max()}, {5, 4}});
    const Values values(start);
    ASSERT_EQ(KSXSmoothMedian(values.get(), parms.get()), 1);
    EXPECT_EQ(values.all(), medianReference(medianReference(start, 0, 2, 7), 3, 6, 7));
    for (const float width : {0.0F, 1.2F, -5.0F, std::numeric_limits<float>::quiet_NaN()}) {
        Parms narrow(width, evenWavelengths(7), {{0, 6}});
        const Values same(start);
        EXPECT_EQ(KSXSmoothGauss(same.get(), narrow.get()), 1);
        EXPECT_EQ(KSXSmoothMedian(same.get(), narrow.get()), 1);
        EXPECT_EQ(same.all(), start);
    }
}

TEST_F(KSXSmoothTest, ReportsWhatIsNotThere) {
    const Values values({1, 2, 3});
    Parms parms(3.0F, evenWavelengths(3), {{0, 2}});
    EXPECT_EQ(KSXSmoothGauss(nullptr, parms.get()), 0);
    EXPECT_EQ(KSXSmoothMedian(values.get(), nullptr), 0);
    expectReports({failure("%s: pValues == NULL.\n", "KSXSmoothGauss ()"),
                   failure("%s: psParms == NULL.\n", "KSXSmoothMedian ()")},
                  "null arguments");
    Parms shorter(3.0F, evenWavelengths(2), {{0, 2}});
    EXPECT_EQ(KSXSmoothGauss(values.get(), shorter.get()), 0);
    expectReports({failure("%s: psParms->pSTSchema->nNumMeasFlds < pValues->dim.\n", "KSXSmoothGauss ()")}, "fields");
    parms->pSTSchema = nullptr;
    EXPECT_EQ(KSXSmoothGauss(values.get(), parms.get()), 0);
    expectReports({failure("%s: psParms->pSTSchema == NULL.\n", "KSXSmoothGauss ()")}, "schema");
    EXPECT_EQ(values.all(), (std::vector<double>{1, 2, 3}));
}

TEST_F(KSXSmoothTest, FailsWithoutMemoryAndChangesNothing) {
    for (const KSSmoothFunc function : {KSXSmoothGauss, KSXSmoothMedian}) {
        const Values values({1, 5, 3});
        Parms parms(3.0F, evenWavelengths(3), {{0, 2}});
        refuseAllocation(1);
        EXPECT_EQ(function(values.get(), parms.get()), 0);
        refuseAllocation(0);
        EXPECT_EQ(values.all(), (std::vector<double>{1, 5, 3}));
        const char* label = function == KSXSmoothGauss ? "KSXSmoothGauss ()" : "KSXSmoothMedian ()";
        expectReports({failure("%s: Failed to allocate the window, HMalloc() failed.\n", label)}, label);
    }
}

TEST_F(KSXSmoothTest, SmoothsWindowsThroughTheDriver) {
    KSWinEx window;
    KSInitWinEx(&window);
    window.nXSize = 2;
    window.nYSize = 1;
    window.SampDesc.nXSampleInt = window.SampDesc.nYSampleInt = 1;
    window.SampDesc.nNumBands = 5;
    ASSERT_EQ(KSAllocWinEx(&window), 0);
    for (int b = 0; b < 5; ++b) window.SampDesc.panBandMap[b] = b;
    const std::vector<float> samples = {1, 9, 2, 8, 3, 5, 4, 3, 2, 1};
    std::copy(samples.begin(), samples.end(), window.pafSamples);
    Parms parms(3.0F, evenWavelengths(5), {{0, 4}});
    EXPECT_EQ(KSSmoothWinEx(&window, parms.get(), KSXSmoothMedian), 0);
    EXPECT_EQ(std::vector<float>(window.pafSamples, window.pafSamples + 10),
              (std::vector<float>{1, 2, 8, 3, 3, 5, 4, 3, 2, 1}));
    KSFreeWinEx(&window);
}

}  // namespace
