// Smoothing of a vector: which centres a segment has, Gaussian means, medians, and what makes a window unusable.
#include <kslib.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fixture.hpp"
#include "resampling.hpp"
#include "smoothing.hpp"

using namespace kit;

namespace {

constexpr int kMost = std::numeric_limits<int>::max();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// ---- parameters ----

using KSCreateSmoothParmsTest = LibraryTest;

TEST_F(KSCreateSmoothParmsTest, GivesZeroesAndRoomForSegments) {
    KSSmoothParms* parms = KSCreateSmoothParms(3);
    ASSERT_NE(parms, nullptr);
    EXPECT_EQ(parms->fWidth, 0.0F);
    EXPECT_EQ(parms->pSTSchema, nullptr);
    EXPECT_EQ(parms->peBandQual, nullptr);
    EXPECT_EQ(parms->pSensor, nullptr);
    EXPECT_EQ(parms->bCheckQual, 0);
    EXPECT_EQ(parms->nNumSegments, 3);
    for (int s = 0; s < 3; ++s) {
        EXPECT_EQ(parms->pnIndex1[s], 0);
        EXPECT_EQ(parms->pnIndex2[s], 0);
    }
    KSFreeSmoothParms(parms);
    KSFreeSmoothParms(nullptr);

    parms = KSCreateSmoothParms(0);
    ASSERT_NE(parms, nullptr);
    std::free(parms->pnIndex1);
    parms->pnIndex1 = nullptr;
    KSFreeSmoothParms(parms);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSCreateSmoothParmsTest, NamesWhatCouldNotBeAllocated) {
    const char* label = "KSCreateSmoothParms()";
    const Report first = failure("%s: psSmoothParms->pnIndex1 = NULL, HCalloc() failed.\n", label);
    const Report second = failure("%s: psSmoothParms->pnIndex2 = NULL, HCalloc() failed.\n", label);
    refuseAllocation(1);
    EXPECT_EQ(KSCreateSmoothParms(3), nullptr);
    expectReports({failure("%s: psSmoothParms = NULL, HCalloc() failed.\n", label)}, "record");
    refuseAllocation(2);
    EXPECT_EQ(KSCreateSmoothParms(3), nullptr);
    expectReports({first}, "first indices");
    refuseAllocation(3);
    EXPECT_EQ(KSCreateSmoothParms(3), nullptr);
    expectReports({second}, "last indices");
    refuseAllocation(0);
    EXPECT_EQ(KSCreateSmoothParms(-1), nullptr);
    expectReports({first}, "no such number of segments");
}

// ---- both functions ----

struct NamedSmoother {
    KSSmoothFunc smooth;
    const char* label;
    int allocations;
    int belowTwo;  // the answer for windows of fewer than two values
};

struct Smoother : LibraryTest, testing::WithParamInterface<NamedSmoother> {
    KSSmoothFunc smooth = GetParam().smooth;
    const char* label = GetParam().label;
};
INSTANTIATE_TEST_SUITE_P(Functions, Smoother,
                         testing::Values(NamedSmoother{KSSmoothGauss, "KSSmoothGauss()", 3, 0},
                                         NamedSmoother{KSSmoothMedian, "KSSmoothMedian()", 2, 1}),
                         [](const auto& named) { return std::string(named.param.label, 6, 5); });

TEST_P(Smoother, ChecksItsArgumentsInOrder) {
    const Values values(std::vector<double>(10, 1.0));
    Parms parms(3.0F, evenly(400.0F, 10.0F, 10), {{0, 9}});
    EXPECT_EQ(smooth(nullptr, nullptr), 0);
    expectReports({failure("%s: pValues == NULL.\n", label)}, "values");
    EXPECT_EQ(smooth(values.get(), nullptr), 0);
    expectReports({failure("%s: psParms == NULL.\n", label)}, "parameters");
    int* last = std::exchange(parms->pnIndex2, nullptr);
    EXPECT_EQ(smooth(values.get(), parms.get()), 0);
    expectReports({failure("%s: psParms->pnIndex2 == NULL.\n", label)}, "last indices");
    int* first = std::exchange(parms->pnIndex1, nullptr);
    EXPECT_EQ(smooth(values.get(), parms.get()), 0);
    expectReports({failure("%s: psParms->pnIndex1 == NULL.\n", label)}, "first indices");
    parms->pSTSchema = nullptr;
    EXPECT_EQ(smooth(values.get(), parms.get()), 0);
    expectReports({failure("%s: psParms->pSTSchema == NULL.\n", label)}, "schema");
    parms->nNumSegments = 0;
    EXPECT_EQ(smooth(values.get(), parms.get()), 1) << "without segments nothing of it is needed";
    parms->nNumSegments = -1;
    EXPECT_EQ(smooth(values.get(), parms.get()), 1);
    expectReports({}, "no segments");
    EXPECT_EQ(values.all(), std::vector<double>(10, 1.0));
    parms->pnIndex1 = first;
    parms->pnIndex2 = last;
}

TEST_P(Smoother, AWindowOfFewerThanTwoValuesChangesNothing) {
    const std::vector<double> before = {5.0, 1.0, 4.0, 2.0, 3.0, 9.0};
    Parms parms(0.0F, evenly(400.0F, 10.0F, 6), {{0, 5}});
    for (const float width : {1.2F, 1.0F, 1.49F, 0.0F, -4.0F, std::numeric_limits<float>::quiet_NaN(),
                              -std::numeric_limits<float>::infinity()}) {
        const Values values(before);
        parms->fWidth = width;
        EXPECT_EQ(smooth(values.get(), parms.get()), GetParam().belowTwo) << width;
        EXPECT_EQ(values.all(), before) << width;
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_P(Smoother, TellsOfMemoryThatCouldNotBeHad) {
    const std::vector<double> before = {5.0, 1.0, 4.0, 2.0, 3.0, 9.0};
    Parms parms(2.0F, evenly(400.0F, 10.0F, 6), {{0, 5}});
    const Values values(before);
    for (int nth = 1; nth <= GetParam().allocations; ++nth) {
        refuseAllocation(nth);
        EXPECT_EQ(smooth(values.get(), parms.get()), 0);
        expectReports({failure("%s: Failed to allocate the window, HMalloc() failed.\n", label)}, std::to_string(nth));
        EXPECT_EQ(values.all(), before);
    }
    refuseAllocation(GetParam().allocations + 1);
    EXPECT_EQ(smooth(values.get(), parms.get()), 1);
    EXPECT_FALSE(allocationRefused());
    EXPECT_NE(values.all(), before);
}

/// Values of which no two are alike and no mean or median is the middle one's own.
std::vector<double> ragged(std::size_t count) {
    std::vector<double> values;
    for (std::size_t i = 0; i < count; ++i) values.push_back((i % 2 == 0 ? 1000.0 : 1.0) + static_cast<double>(i * i));
    return values;
}

/// The centres that come out changed when segments of random values are smoothed. A mean or median can be what the
/// middle value was, but not for one spectrum after the other.
std::vector<int> changed(KSSmoothFunc smooth, float width, int count,
                         const std::vector<std::pair<int, int>>& segments) {
    std::mt19937 engine(29U);
    std::uniform_real_distribution<double> value(0.0, 1.0);
    std::set<int> centres;
    Parms parms(width, evenly(400.0F, 10.0F, count), segments);
    for (int round = 0; round < 50; ++round) {
        std::vector<double> before(static_cast<std::size_t>(count));
        std::generate(before.begin(), before.end(), [&] { return value(engine); });
        const Values values(before);
        EXPECT_EQ(smooth(values.get(), parms.get()), 1);
        for (int i = 0; i < count; ++i) {
            if (values.get()->ve[i] != before[static_cast<std::size_t>(i)]) centres.insert(i);
        }
    }
    return {centres.begin(), centres.end()};
}

std::vector<int> fromTo(int first, int last) {
    std::vector<int> numbers;
    for (int i = first; i <= last; ++i) numbers.push_back(i);
    return numbers;
}

TEST_P(Smoother, CentresKeepHalfAWindowFromTheStartAndStopBeforeTheEnd) {
    const auto centres = [this](float width, int first, int last) {
        return changed(smooth, width, 100, {{first, last}});
    };
    EXPECT_EQ(centres(4.6F, 0, 20), fromTo(2, 19)) << "five values";
    EXPECT_EQ(centres(4.6F, 1, 20), fromTo(3, 19)) << "a start below half a window moves by half a window";
    EXPECT_EQ(centres(4.6F, 2, 20), fromTo(2, 19));
    EXPECT_EQ(centres(4.6F, 7, 20), fromTo(7, 19)) << "and reaches into what lies before the segment";
    EXPECT_EQ(centres(4.6F, 50, 96), fromTo(50, 95)) << "a whole window before the end of the spectrum";
    EXPECT_EQ(centres(4.6F, 50, 97), fromTo(50, 94)) << "nearer to it";
    EXPECT_EQ(centres(4.6F, 50, 99), fromTo(50, 96));
    EXPECT_EQ(centres(1.5F, 0, 20), fromTo(1, 19)) << "two values";
    EXPECT_EQ(centres(2.49F, 0, 20), fromTo(1, 19));
    EXPECT_EQ(centres(3.49F, 0, 20), fromTo(1, 19)) << "three values";
    EXPECT_EQ(centres(3.5F, 0, 20), fromTo(2, 19)) << "four values";
    EXPECT_EQ(host().reports, Reports{});
}

TEST_P(Smoother, SegmentsShorterThanAWindowAreSkipped) {
    const auto centres = [this](int first, int last) { return changed(smooth, 5.0F, 100, {{first, last}}); };
    EXPECT_EQ(centres(10, 13), (std::vector<int>{})) << "four of five";
    EXPECT_EQ(centres(10, 14), fromTo(10, 13));
    EXPECT_EQ(centres(0, 5), (std::vector<int>{})) << "from 2 on";
    EXPECT_EQ(centres(0, 6), fromTo(2, 5));
    EXPECT_EQ(centres(93, 98), (std::vector<int>{})) << "up to 96";
    EXPECT_EQ(centres(92, 98), fromTo(92, 95));
    EXPECT_EQ(centres(20, 10), (std::vector<int>{})) << "backwards";
    EXPECT_EQ(changed(smooth, std::numeric_limits<float>::infinity(), 10, {}), (std::vector<int>{}));
    EXPECT_EQ(changed(smooth, 1e6F, 10, {{0, 9}}), (std::vector<int>{})) << "a window longer than the spectrum";
    EXPECT_EQ(host().reports, Reports{});
}

TEST_P(Smoother, EverySegmentReadsTheOriginalValues) {
    const std::vector<float> wlens = evenly(400.0F, 10.0F, 40);
    const std::vector<double> before = ragged(40);
    Parms both(4.0F, wlens, {{0, 20}, {20, 39}});
    Parms front(4.0F, wlens, {{0, 20}});
    Parms back(4.0F, wlens, {{20, 39}});
    const Values together(before);
    const Values first(before);
    const Values second(before);
    EXPECT_EQ(smooth(together.get(), both.get()), 1);
    EXPECT_EQ(smooth(first.get(), front.get()), 1);
    EXPECT_EQ(smooth(second.get(), back.get()), 1);
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ(together.get()->ve[i], i < 20 ? first.get()->ve[i] : second.get()->ve[i]) << i;
    }
    // The windows at 20 and 21 reach back to 18 and 19, which the first segment has changed.
    EXPECT_NE(together.get()->ve[19], before[19]);
}

// ---- windows outside the vector ----

TEST_P(Smoother, TellsOfWindowsOutsideTheVectorAndCountsZeroesThere) {
    const Report below = failure("%s: nStart < 0\n ", "CopyRange()");
    const Report above = failure("%s: nStart > pValues->dim\n ", "CopyRange()");
    const std::vector<float> wlens = evenly(400.0F, 10.0F, 10);
    const auto expectLike = [&](int count, const std::pair<int, int>& segment, int shift,
                                const std::vector<double>& wide, const Reports& reports) {
        Parms parms(4.0F, wlens, {segment});
        const Values values(std::vector<double>(wide.begin() + shift, wide.begin() + shift + count));
        EXPECT_EQ(smooth(values.get(), parms.get()), 1);
        expectReports(reports, "outside");
        return values.all();
    };
    // Six values with four zeroes on either side. Centres -1, 0, 1: the first two windows reach below the vector.
    const std::vector<double> wide = {0, 0, 0, 0, 5, 9, 2, 8, 3, 7, 0, 0, 0, 0};
    const std::vector<double> low = expectLike(6, {-3, 2}, 4, wide, {below, below, below});
    EXPECT_EQ((std::vector<double>(low.begin() + 2, low.end())), (std::vector<double>{2, 8, 3, 7}));
    EXPECT_NE(low[0], 5.0);
    EXPECT_NE(low[1], 9.0);
    // Centres 3 to 7 and two of them past the vector, which has six values.
    const std::vector<double> high = expectLike(6, {3, 10}, 4, wide, {above, above, above});
    EXPECT_EQ((std::vector<double>(high.begin(), high.begin() + 3)), (std::vector<double>{5, 9, 2}));
    for (const int i : {3, 4, 5}) EXPECT_NE(high[static_cast<std::size_t>(i)], wide[static_cast<std::size_t>(i) + 4]);
    // The last centre alone, against the same windows inside a longer vector.
    const std::vector<double> inside = expectLike(10, {3, 8}, 4, wide, {});
    EXPECT_TRUE(std::equal(high.begin() + 3, high.end(), inside.begin() + 3));
}

TEST_P(Smoother, AWindowCanReachOutOnBothSides) {
    Parms parms(8.0F, evenly(400.0F, 10.0F, 20), {{-6, 6}});
    const Values values({1.0, 2.0});
    EXPECT_EQ(smooth(values.get(), parms.get()), 1);
    // Centres -2 to 5: windows begin below 0 up to centre 3, and end past 2 from centre -1 on.
    const Report below = failure("%s: nStart < 0\n ", "CopyRange()");
    const Report above = failure("%s: nStart > pValues->dim\n ", "CopyRange()");
    Reports expected = {below};
    for (int centre = -1; centre <= 3; ++centre) expected.insert(expected.end(), {below, above});
    expected.insert(expected.end(), {above, above});
    expectReports(expected, "both sides");
}

TEST_P(Smoother, AVectorWithoutValuesIsNeverWritten) {
    Parms parms(2.0F, evenly(400.0F, 10.0F, 20), {{0, 4}});
    const Values values(std::vector<double>{});
    EXPECT_EQ(smooth(values.get(), parms.get()), 1);
    EXPECT_EQ(host().reports.size(), 3U) << "centres 1, 2, 3";
}

TEST_P(Smoother, IndicesAsLargeAsTheyGetDoNotOverflow) {
    Parms parms(3.0F, evenly(400.0F, 10.0F, 10),
                {{kMost, kMost}, {kMost, -kMost - 1}, {kMost - 1, kMost}, {3, -kMost - 1}});
    const Values values(ragged(10));
    EXPECT_EQ(smooth(values.get(), parms.get()), 1);
    EXPECT_EQ(values.all(), ragged(10));
    EXPECT_EQ(host().reports, Reports{});
}

// ---- usable values ----

TEST_P(Smoother, OneValueOfZeroOrBelowLeavesItsWindowsAlone) {
    for (const double bad : {0.0, -0.0, -1.0, kNaN}) {
        std::vector<double> before = ragged(20);
        before[10] = bad;
        Parms parms(4.0F, evenly(400.0F, 10.0F, 20), {{0, 16}});
        for (const int check : {0, 1, -2}) {
            const Values values(before);
            parms->bCheckQual = check;
            EXPECT_EQ(smooth(values.get(), parms.get()), 1);
            // A window of four holds the centre, two values below and one above: centres 9 to 12 see value 10.
            for (int i = 2; i < 16; ++i) {
                if (i == 10 && std::isnan(bad)) continue;
                const bool blocked = check != 0 && i >= 9 && i <= 12;
                EXPECT_EQ(values.get()->ve[i] == before[static_cast<std::size_t>(i)], blocked)
                    << bad << " with bCheckQual " << check << " at " << i;
            }
        }
    }
}

TEST_P(Smoother, AMissingValueIsNotUsable) {
    Parms parms(4.0F, evenly(400.0F, 10.0F, 10), {{-3, 2}});
    parms->bCheckQual = 1;
    const Values values({5, 9, 2, 8, 3, 7});
    EXPECT_EQ(smooth(values.get(), parms.get()), 1);
    EXPECT_EQ(values.all(), (std::vector<double>{5, 9, 2, 8, 3, 7}));
    EXPECT_EQ(host().reports.size(), 3U) << "told all the same";
}

TEST_P(Smoother, SpectrumAndSensorQualitiesFollowRulesOfTheirOwn) {
    const std::vector<double> before = ragged(6);
    const auto isSmoothed = [&](int* spectrumQualities, KSSensor* sensor, int check) {
        Parms parms(2.0F, evenly(400.0F, 10.0F, 6), {{2, 4}});  // centres 2 and 3; the window of 3 is values 2 and 3
        parms->bCheckQual = check;
        parms->peBandQual = spectrumQualities;
        parms->pSensor = sensor;
        const Values values(before);
        EXPECT_EQ(smooth(values.get(), parms.get()), 1);
        return values.get()->ve[3] != before[3];
    };
    const bool bySpectrum[] = {false, true, true, true, false, true};
    const bool bySensor[] = {false, true, false, false, true, false};
    for (int quality = KS_BQ_UNKNOWN; quality <= KS_BQ_BMASK + 1; ++quality) {
        for (const std::size_t at : {std::size_t{2}, std::size_t{3}}) {
            std::vector<int> good(6, KS_BQ_PLOT);
            std::vector<int> marked = good;
            marked[at] = quality;
            KSSensor sensor{};
            sensor.nNumBands = 6;
            sensor.peBandQual = marked.data();
            KSSensor goodSensor = sensor;
            goodSensor.peBandQual = good.data();
            EXPECT_EQ(isSmoothed(marked.data(), nullptr, 1), bySpectrum[quality]) << quality;
            EXPECT_EQ(isSmoothed(nullptr, &sensor, 1), bySensor[quality]) << quality;
            EXPECT_EQ(isSmoothed(marked.data(), &goodSensor, 1), true) << "the sensor decides";
            EXPECT_EQ(isSmoothed(good.data(), &sensor, 1), bySensor[quality]) << "the sensor decides";
            EXPECT_EQ(isSmoothed(nullptr, nullptr, 1), true) << "nobody decides";
            EXPECT_EQ(isSmoothed(marked.data(), &sensor, 0), true) << "nobody asks";
        }
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_P(Smoother, QualitiesThatASensorDoesNotHaveAreUnknown) {
    std::vector<int> good(3, KS_BQ_PLOT);
    KSSensor sensor{};
    sensor.nNumBands = 3;
    sensor.peBandQual = good.data();
    const std::vector<double> before = ragged(8);
    Parms parms(2.0F, evenly(400.0F, 10.0F, 8), {{0, 6}});
    parms->bCheckQual = 1;
    parms->pSensor = &sensor;
    const Values values(before);
    EXPECT_EQ(smooth(values.get(), parms.get()), 1);
    EXPECT_NE(values.get()->ve[1], before[1]);
    for (int i = 3; i < 8; ++i) EXPECT_EQ(values.get()->ve[i], before[static_cast<std::size_t>(i)]) << i;

    sensor.peBandQual = nullptr;
    const Values others(before);
    EXPECT_EQ(smooth(others.get(), parms.get()), 1);
    EXPECT_EQ(others.all(), before);
}

// ---- Gaussian means ----

using KSSmoothGaussTest = LibraryTest;

/// The definition in long double: one window of N values, the last of which is 0 when N is odd.
double gaussianMean(const std::vector<double>& values, const std::vector<float>& wlens, float width, int length,
                    int start, int centre) {
    const int half = length / 2;
    long double middle = 0;
    for (int j = 0; j < length; ++j) middle += wlens[static_cast<std::size_t>(start - half + j)];
    middle /= length;
    long double sum = 0;
    long double total = 0;
    for (int j = 0; j < length; ++j) {
        const long double distance = (wlens[static_cast<std::size_t>(start - half + j)] - middle) / width;
        const long double weight = std::exp(-distance * distance);
        sum += j < 2 * half ? weight * values[static_cast<std::size_t>(centre - half + j)] : 0.0L;
        total += weight;
    }
    return static_cast<double>(sum / total);
}

TEST_F(KSSmoothGaussTest, TakesWeightedMeansWithTheWeightsOfTheFirstWindow) {
    std::mt19937 engine(17U);
    std::uniform_real_distribution<double> value(0.0, 1.0);
    constexpr double kTolerance = 1e-13;
    for (const float width : {1.6F, 2.0F, 3.0F, 4.0F, 4.6F, 7.0F, 12.3F}) {
        const int length = static_cast<int>(width + 0.5F);
        const int half = length / 2;
        // Steps that grow, so that the first window's wavelengths are not the others'.
        std::vector<float> wlens;
        std::vector<double> before;
        for (int i = 0; i < 80; ++i) {
            wlens.push_back(400.0F + 0.5F * static_cast<float>(i) + 0.01F * static_cast<float>(i * i));
            before.push_back(value(engine));
        }
        Parms parms(width, wlens, {{0, 30}, {41, 79}});
        const Values values(before);
        ASSERT_EQ(KSSmoothGauss(values.get(), parms.get()), 1);
        for (int i = 0; i < 80; ++i) {
            double expected = before[static_cast<std::size_t>(i)];
            if (i >= half && i < 30) expected = gaussianMean(before, wlens, width, length, half, i);
            if (i >= 41 && i < 79 - half) expected = gaussianMean(before, wlens, width, length, 41, i);
            EXPECT_NEAR(values.get()->ve[i], expected, kTolerance) << "width " << width << " at " << i;
        }
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSSmoothGaussTest, AnEvenWindowKeepsAConstantAndAnOddOneLosesItsLastWeight) {
    const Values even(std::vector<double>(20, 3.0));
    Parms four(4.0F, evenly(400.0F, 1.0F, 20), {{0, 16}});
    EXPECT_EQ(KSSmoothGauss(even.get(), four.get()), 1);
    for (int i = 0; i < 20; ++i) EXPECT_DOUBLE_EQ(even.get()->ve[i], 3.0);

    const Values odd(std::vector<double>(20, 3.0));
    Parms three(3.0F, evenly(400.0F, 1.0F, 20), {{0, 16}});
    EXPECT_EQ(KSSmoothGauss(odd.get(), three.get()), 1);
    const double side = std::exp(-1.0 / 9.0);
    for (int i = 1; i < 16; ++i) EXPECT_DOUBLE_EQ(odd.get()->ve[i], 3.0 * (side + 1.0) / (side + 1.0 + side));
    EXPECT_EQ(odd.get()->ve[16], 3.0);
}

TEST_F(KSSmoothGaussTest, WavelengthsThatTheSchemaLacksHaveNoWeight) {
    // The first window begins at -1: of its four wavelengths three are there, around their own mean.
    const std::vector<double> before = {5, 9, 2, 8, 3, 7};
    Parms parms(4.0F, evenly(400.0F, 1.0F, 12), {{-1, 5}});
    const Values values(before);
    EXPECT_EQ(KSSmoothGauss(values.get(), parms.get()), 1);
    const double side = std::exp(-1.0 / 16.0);
    EXPECT_DOUBLE_EQ(values.get()->ve[1], (5.0 * side + 9.0 + 2.0 * side) / (side + 1.0 + side));
    EXPECT_EQ(host().reports.size(), 1U) << "the window of centre 1 alone begins below 0";
}

TEST_F(KSSmoothGaussTest, ASegmentWithoutAnyWavelengthIsTold) {
    const std::vector<double> before = ragged(30);
    Parms parms(3.0F, evenly(400.0F, 10.0F, 10), {{2, 6}, {11, 20}});
    const Values values(before);
    EXPECT_EQ(KSSmoothGauss(values.get(), parms.get()), 0);
    expectReports(
        {failure("%s: psParms->pSTSchema has no wavelengths at pnIndex1[%d] (= %d).\n", "KSSmoothGauss()", 1, 11)},
        "behind the schema");
    EXPECT_NE(values.get()->ve[2], before[2]) << "the first segment is smoothed";
    EXPECT_EQ(values.get()->ve[12], before[12]);

    parms->pSTSchema->nNumMeasFlds = 30;
    KSSTFld* fields = std::exchange(parms->pSTSchema->pMeasFld, nullptr);
    EXPECT_EQ(KSSmoothGauss(values.get(), parms.get()), 0);
    expectReports(
        {failure("%s: psParms->pSTSchema has no wavelengths at pnIndex1[%d] (= %d).\n", "KSSmoothGauss()", 0, 2)},
        "a count without fields");
    parms->pSTSchema->pMeasFld = fields;
}

// ---- medians ----

using KSSmoothMedianTest = LibraryTest;

TEST_F(KSSmoothMedianTest, OfTwoValuesIsTheGreater) {
    Parms parms(2.0F, evenly(400.0F, 10.0F, 8), {{0, 6}});
    const Values values({5, 1, 4, 2, 3, 9, 8, 7});
    EXPECT_EQ(KSSmoothMedian(values.get(), parms.get()), 1);
    EXPECT_EQ(values.all(), (std::vector<double>{5, 5, 4, 4, 3, 9, 8, 7}));
}

TEST_F(KSSmoothMedianTest, OfFourValuesIsTheMeanOfTheThirdAndTheFourth) {
    Parms parms(4.0F, evenly(400.0F, 10.0F, 12), {{0, 7}});
    const Values values({5, 1, 4, 2, 3, 9, 8, 7, 7, 7, 7, 7});
    EXPECT_EQ(KSSmoothMedian(values.get(), parms.get()), 1);
    // Sorted windows: 1 2 4 5, 1 2 3 4, 2 3 4 9, 2 3 8 9, 3 7 8 9 at centres 2 to 6.
    EXPECT_EQ(values.all(), (std::vector<double>{5, 1, 4.5, 3.5, 6.5, 8.5, 8.5, 7, 7, 7, 7, 7}));
}

TEST_F(KSSmoothMedianTest, AnOddWindowHoldsTheGreatestOfTheLastOne) {
    Parms parms(3.0F, evenly(400.0F, 10.0F, 12), {{0, 5}, {7, 10}});
    const Values values({5, 1, 4, 2, 3, 9, 8, 6, 7, 7, 7, 7});
    EXPECT_EQ(KSSmoothMedian(values.get(), parms.get()), 1);
    // {5, 1, 0} gives 1 and keeps 5; {1, 4, 5} gives 4; {4, 2, 5} 4; {2, 3, 5} 3: centres 1 to 4 of the first segment.
    // The second segment has centres 7 to 9 and goes on with 5: {8, 6, 5} 6, keeps 8; {6, 7, 8} 7; {7, 7, 8} 7.
    EXPECT_EQ(values.all(), (std::vector<double>{5, 1, 4, 4, 3, 9, 8, 6, 7, 7, 7, 7}));
}

/// The definition, by picking the elements out one after the other.
std::vector<double> mediansOf(const std::vector<double>& values, int length,
                              const std::vector<std::pair<int, int>>& centres, const std::vector<bool>& usable) {
    std::vector<double> result = values;
    const int half = length / 2;
    double kept = 0.0;
    for (const auto& [start, end] : centres) {
        for (int c = start; c < end; ++c) {
            std::multiset<double> sorted;
            bool good = true;
            for (int i = c - half; i < c + half; ++i) {
                good = good && usable[static_cast<std::size_t>(i)];
                sorted.insert(values[static_cast<std::size_t>(i)]);
            }
            if (!good) continue;
            if (length % 2 != 0) sorted.insert(kept);
            const std::vector<double> order(sorted.begin(), sorted.end());
            const auto middle = static_cast<std::size_t>(half);
            result[static_cast<std::size_t>(c)] =
                length % 2 != 0 ? order[middle] : (order[middle] + order[std::min(middle + 1, order.size() - 1)]) * 0.5;
            kept = *sorted.rbegin();
        }
    }
    return result;
}

TEST_F(KSSmoothMedianTest, FollowsItsDefinitionOnManySpectra) {
    std::mt19937 engine(23U);
    std::uniform_real_distribution<double> value(-0.2, 1.0);
    for (int round = 0; round < 60; ++round) {
        const int length = 2 + round % 11;
        const int half = length / 2;
        std::vector<double> before(120);
        std::generate(before.begin(), before.end(), [&] { return value(engine); });
        const bool check = round % 2 != 0;
        std::vector<bool> usable;
        for (const double v : before) usable.push_back(!check || v > 0.0);
        Parms parms(static_cast<float>(length), evenly(400.0F, 10.0F, 120), {{0, 40}, {50, 52 + half}, {70, 119}});
        parms->bCheckQual = check ? 1 : 0;
        std::vector<std::pair<int, int>> centres = {{half, 40}};
        if (3 + half >= length) centres.emplace_back(50, 52 + half);
        centres.emplace_back(70, 119 - half);
        const Values values(before);
        ASSERT_EQ(KSSmoothMedian(values.get(), parms.get()), 1);
        EXPECT_EQ(values.all(), mediansOf(before, length, centres, usable)) << "length " << length;
    }
}

TEST_F(KSSmoothMedianTest, NotANumberSortsBehindNumbers) {
    Parms parms(4.0F, evenly(400.0F, 10.0F, 12), {{2, 7}});
    const Values values({kNaN, 1, kNaN, 2, 3, kNaN, 8, 7, 7, 7, 7, 7});
    EXPECT_EQ(KSSmoothMedian(values.get(), parms.get()), 1);
    EXPECT_TRUE(std::isnan(values.get()->ve[2])) << "1, 2, then two that are none";
    EXPECT_TRUE(std::isnan(values.get()->ve[3])) << "1, 2, 3 and one that is none";
}

}  // namespace
