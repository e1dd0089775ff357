// The values of band statistics: what the extremes make of odd numbers, and every sum to the bit at every vector width.
#include <kslib.h>

#include <limits>
#include <string>
#include <vector>

#include "statistics.hpp"
#include "targets.hpp"

using namespace kit;

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinite = std::numeric_limits<float>::infinity();
constexpr double kNaNSum = std::numeric_limits<double>::quiet_NaN();

std::size_t countOf(int width, int height, int bands) {
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * static_cast<std::size_t>(bands);
}

/// Band counts on both sides of every multiple of a vector's width, up to 70.
std::vector<int> bandCounts() {
    std::vector<int> counts;
    for (int bands = 1; bands <= 70; ++bands) {
        if (bands <= 18 || bands % 8 >= 7 || bands % 8 <= 1 || bands == 70) counts.push_back(bands);
    }
    return counts;
}

Sampling shuffled(int bands) {
    Sampling sampling;
    for (int b = 0; b < bands; ++b) sampling.bandMap.push_back((b * 13 + 5) % bands);
    return sampling;
}

using KSEvalBandStatsTest = EvaluationTest;

TEST_F(KSEvalBandStatsTest, OneSampleIsItsOwnStatistics) {
    use(1, 1, 2, {3.25F, 7.0F});
    StatsRecord record(2);
    ASSERT_EQ(KSEvalBandStats(dataSet, 0, nullptr, nullptr, &record), 0);
    const Statistics one = {1, {3.25, 7.0}, {3.25, 7.0}, {3.25, 7.0}, {0.0, 0.0}, {0.0, 0.0, 0.0, 0.0}};
    EXPECT_TRUE(sameStatistics(valuesOf(record), one));
}

TEST_F(KSEvalBandStatsTest, DividesByTheNumberOfSamples) {
    use(2, 2, 2, {1.0F, 10.0F, 2.0F, 20.0F, 3.0F, 60.0F, 6.0F, 30.0F});
    StatsRecord record(2);
    ASSERT_EQ(KSEvalBandStats(dataSet, 0, nullptr, nullptr, &record), 0);
    // Sums 12 and 120, of squares 50 and 5000, of products 410.
    const Statistics four = {
        4, {1.0, 10.0}, {6.0, 60.0}, {3.0, 30.0}, {std::sqrt(3.5), std::sqrt(350.0)}, {3.5, 12.5, 12.5, 350.0}};
    EXPECT_TRUE(sameStatistics(valuesOf(record), four));
}

TEST_F(KSEvalBandStatsTest, TheMaximumOfNegativeValuesIsWhereItStarts) {
    use(2, 2, 2, {-1.0F, -3.0F, -2.0F, 0.0F, -3.0F, -1.0F, -9.0F, -0.0F});
    const Statistics found = evaluated({{0, 1}});
    EXPECT_EQ(found.maximum, (std::vector<double>{kSmallestNormalFloat, kSmallestNormalFloat}));
    EXPECT_EQ(found.minimum, (std::vector<double>{-9.0, -3.0}));
}

TEST_F(KSEvalBandStatsTest, ExtremesCompareAsTheyDo) {
    constexpr float kLeastNormal = std::numeric_limits<float>::min();
    constexpr float kTiny = std::numeric_limits<float>::denorm_min();
    constexpr double kTinySum = static_cast<double>(kTiny);
    constexpr double kLimitless = std::numeric_limits<double>::infinity();
    const struct {
        std::vector<float> values;  // of four samples
        double minimum;
        double maximum;
    } cases[] = {
        // A not-a-number becomes the maximum, and gives way to whatever comes next.
        {{1.0F, 0.5F, kNaN, -8.0F}, -8.0, -8.0},
        {{1.0F, kNaN, -8.0F, 0.5F}, -8.0, 0.5},
        {{1.0F, 2.0F, 3.0F, kNaN}, 1.0, kNaNSum},
        {{kNaN, kNaN, kNaN, kNaN}, kLargestFloat, kNaNSum},
        {{kNaN, -5.0F, -6.0F, -7.0F}, -7.0, -5.0},
        {{kInfinite, kInfinite, kInfinite, kInfinite}, kLargestFloat, kLimitless},
        {{-kInfinite, -kInfinite, -kInfinite, -kInfinite}, -kLimitless, kSmallestNormalFloat},
        {{kTiny, kTiny, kTiny, kTiny}, kTinySum, kSmallestNormalFloat},
        {{kLeastNormal, kTiny, kTiny, kTiny}, kTinySum, kSmallestNormalFloat},
        {{0.0F, -0.0F, 0.0F, -0.0F}, 0.0, kSmallestNormalFloat},
        {{-0.0F, 0.0F, -0.0F, 0.0F}, -0.0, kSmallestNormalFloat},
    };
    forEachTarget([&](const char* target) {
        for (const auto& [values, minimum, maximum] : cases) {
            for (const int count : {1, 3, 9, 17}) {
                std::vector<float> image;
                for (const float value : values) image.insert(image.end(), static_cast<std::size_t>(count), value);
                use(2, 2, count, image);
                const Statistics found = evaluated(shuffled(count));
                const auto size = static_cast<std::size_t>(count);
                EXPECT_TRUE(sameBits("minimum", found.minimum, std::vector<double>(size, minimum))) << target;
                EXPECT_TRUE(sameBits("maximum", found.maximum, std::vector<double>(size, maximum))) << target;
            }
        }
    });
}

TEST_F(KSEvalBandStatsTest, AVarianceThatRoundsBelowZeroIsNotANumber) {
    constexpr int kWidth = 61;
    constexpr int kHeight = 53;
    bool happened = false;
    for (int i = 1; i < 20; ++i) {
        const float value = static_cast<float>(i) / 97.0F;
        use(kWidth, kHeight, 1, std::vector<float>(countOf(kWidth, kHeight, 1), value));
        const Statistics wanted = expected(whole(), {{0}});
        happened = happened || std::isnan(wanted.deviation[0]);
        EXPECT_TRUE(sameStatistics(evaluated({{0}}), wanted)) << value;
    }
    EXPECT_TRUE(happened);
}

TEST_F(KSEvalBandStatsTest, EveryWidthAndBandCountIsTheSameToTheBit) {
    constexpr int kWidth = 4;
    constexpr int kHeight = 5;
    forEachTarget([&](const char* target) {
        for (const int count : bandCounts()) {
            for (const Kind& kind : kindsOfData(countOf(kWidth, kHeight, count))) {
                use(kWidth, kHeight, count, kind.values);
                const Sampling sampling = shuffled(count);
                host().memory = memoryForLines(2, kWidth, count);
                EXPECT_TRUE(sameStatistics(evaluated(sampling), expected(whole(), sampling)))
                    << target << ", " << kind.name << ", " << count << " bands";
            }
        }
    });
}

TEST_F(KSEvalBandStatsTest, BlocksAndRegionsDoNotChangeTheOrderOfTheSums) {
    constexpr int kWidth = 23;
    constexpr int kHeight = 17;
    constexpr int kBands = 11;
    forEachTarget([&](const char* target) {
        for (const Kind& kind : kindsOfData(countOf(kWidth, kHeight, kBands))) {
            use(kWidth, kHeight, kBands, kind.values);
            const Sampling sampling = shuffled(kBands);
            const Area box = {2, 3, 19, 13};
            const Bitmap odd(box, [](int x, int y) { return (x * 7 + y * 5) % 3 != 0; });
            for (const int lines : {1, 2, 5, 16, 17, 1000}) {
                host().memory = memoryForLines(lines, kWidth, kBands);
                EXPECT_TRUE(sameStatistics(evaluated(sampling), expected(whole(), sampling)))
                    << target << ", " << kind.name << ", " << lines;
                EXPECT_TRUE(sameStatistics(evaluated(sampling, &odd.region), expected(box, sampling, &odd.region)))
                    << target << ", " << kind.name << ", " << lines;
            }
        }
    });
}

TEST_F(KSEvalBandStatsTest, SampleIntervalsWithBlocksAndRegions) {
    constexpr int kWidth = 24;
    constexpr int kHeight = 24;
    use(kWidth, kHeight, 5);
    const Area box = {3, 2, 18, 20};
    const Bitmap odd(box, [](int x, int y) { return (x * 7 + y * 5) % 3 != 0; });
    const KSROI rectangle = rectangleRegion(box.x, box.y, box.width, box.height);
    for (const int xInterval : {1, 2, 3, 5}) {
        for (const int yInterval : {1, 2, 4}) {
            const Sampling sampling = {{4, 0, 2}, xInterval, yInterval};
            for (const int lines : {4, 8, 1000}) {
                const std::string what =
                    std::to_string(xInterval) + " " + std::to_string(yInterval) + " " + std::to_string(lines);
                host().memory = memoryForLines(lines, kWidth / xInterval, 3);
                EXPECT_TRUE(sameStatistics(evaluated(sampling), expected(whole(), sampling))) << what;
                host().memory = memoryForLines(lines, box.width / xInterval, 3);
                EXPECT_TRUE(sameStatistics(evaluated(sampling, &rectangle), expected(box, sampling, &rectangle)))
                    << what;
                EXPECT_TRUE(sameStatistics(evaluated(sampling, &odd.region), expected(box, sampling, &odd.region)))
                    << what;
            }
        }
    }
}

TEST_F(KSEvalBandStatsTest, WithoutMembersTheSamplesAreStillCounted) {
    use(5, 7, 3);
    KSBandStats none = {777, nullptr, nullptr, nullptr, nullptr, nullptr};
    const KSROI region = rectangleRegion(1, 1, 3, 4);
    EXPECT_EQ(KSEvalBandStats(dataSet, 0, nullptr, nullptr, &none), 0);
    EXPECT_EQ(none.nNumSamples, 35U);
    EXPECT_EQ(KSEvalBandStats(dataSet, 0, nullptr, &region, &none), 0);
    EXPECT_EQ(none.nNumSamples, 12U);
    EXPECT_EQ(KSEvalDiffBandStats(dataSet, 0, 1, 1, nullptr, nullptr, &none), 0);
    EXPECT_EQ(none.nNumSamples, 3U * 5U);
    EXPECT_EQ(KSEvalDiffBandStats(dataSet, 0, 1, 1, nullptr, &region, &none), 0);
    EXPECT_EQ(none.nNumSamples, 2U * 3U);
}

TEST_F(KSEvalBandStatsTest, ARecordIsStartedAfresh) {
    use(5, 4, 3);
    StatsRecord record(3);
    for (int twice = 0; twice < 2; ++twice) {
        ASSERT_EQ(KSEvalBandStats(dataSet, 0, nullptr, nullptr, &record), 0);
        EXPECT_TRUE(sameStatistics(valuesOf(record), expected(whole(), {{0, 1, 2}})));
    }
}

// ---- differences ----

using KSEvalDiffBandStatsTest = EvaluationTest;

TEST_F(KSEvalDiffBandStatsTest, LeavesOutTheLastPairsEachWay) {
    use(4, 3, 1, {1.0F, 3.0F, 9.0F, 100.0F, 2.0F, 5.0F, 7.0F, 200.0F, 0.0F, 0.0F, 0.0F, 0.0F});
    // Across: two of the three pairs of each of the first two rows.
    const Statistics across = evaluatedDifferences({{0}}, 1, 0);
    EXPECT_EQ(across.samples, 4U);
    EXPECT_EQ(across.mean, (std::vector<double>{(2.0 + 6.0 + 3.0 + 2.0) / 4.0}));
    // Down: three columns of one of the two pairs.
    const Statistics down = evaluatedDifferences({{0}}, 0, 1);
    EXPECT_EQ(down.samples, 3U);
    EXPECT_EQ(down.mean, (std::vector<double>{(1.0 + 2.0 + 2.0) / 3.0}));
    EXPECT_EQ(down.maximum, (std::vector<double>{2.0}));
}

TEST_F(KSEvalDiffBandStatsTest, EqualNeighboursHaveTheMaximumItStartsAt) {
    use(4, 4, 2, std::vector<float>(32, 5.0F));
    const Statistics found = evaluatedDifferences({{0, 1}}, 1, 1);
    EXPECT_EQ(found.samples, 4U);
    EXPECT_EQ(found.minimum, (std::vector<double>{0.0, 0.0}));
    EXPECT_EQ(found.maximum, (std::vector<double>{kSmallestNormalFloat, kSmallestNormalFloat}));
}

TEST_F(KSEvalDiffBandStatsTest, PairsAreWithinABlock) {
    use(7, 12, 3);
    const Sampling sampling = {{2, 0, 1}};
    for (const int lines : {1, 2, 3, 4, 5, 12}) {
        host().memory = memoryForLines(lines, 7, 3);
        for (const int dx : {0, 1, 3, 5, 6, 9}) {
            for (const int dy : {0, 1, 2, 10, 11, 20}) {
                EXPECT_TRUE(sameStatistics(evaluatedDifferences(sampling, dx, dy),
                                           expectedDifferences(whole(), sampling, dx, dy)))
                    << lines << ": " << dx << ", " << dy;
            }
        }
    }
}

TEST_F(KSEvalDiffBandStatsTest, OffsetsCountSamplesNotPixels) {
    use(12, 12, 2);
    host().memory = memoryForLines(4, 6, 2);
    const Sampling sampling = {{1, 0}, 2, 1};
    EXPECT_TRUE(sameStatistics(evaluatedDifferences(sampling, 2, 1), expectedDifferences(whole(), sampling, 2, 1)));
    host().memory = memoryForLines(9, 4, 2);
    const Sampling coarse = {{1, 0}, 3, 2};
    EXPECT_TRUE(sameStatistics(evaluatedDifferences(coarse, 1, 1), expectedDifferences(whole(), coarse, 1, 1)));
}

TEST_F(KSEvalDiffBandStatsTest, ARegionLeavesOutItsLastColumnAndRow) {
    use(9, 9, 2);
    const Area area = {2, 3, 4, 3};
    const KSROI region = rectangleRegion(area.x, area.y, area.width, area.height);
    for (const auto& [dx, dy] : {std::pair(0, 0), std::pair(1, 0), std::pair(0, 1), std::pair(1, 1)}) {
        const Statistics found = evaluatedDifferences({{0, 1}}, dx, dy, &region);
        EXPECT_EQ(found.samples, 3U * 2U);
        EXPECT_TRUE(sameStatistics(found, expectedDifferences(area, {{0, 1}}, dx, dy, &region)));
    }
}

TEST_F(KSEvalDiffBandStatsTest, APairThatLeavesItsBlockFailsTheWhole) {
    use(9, 9, 2);
    const KSROI region = rectangleRegion(2, 3, 4, 3);
    const Report across = failure("%s: nXSample >= pWinEx->nNumXSamples || nXSample < 0.\n", "KSExtractVectWinEx()");
    const Report down = failure("%s: nYSample >= pWinEx->nNumYSamples || nYSample < 0.\n", "KSExtractVectWinEx()");
    constexpr int kMost = std::numeric_limits<int>::max();
    const auto expectRefused = [&](const KSROI* of, int dx, int dy, const Report& report) {
        host().forget();
        StatsRecord record(2);
        EXPECT_EQ(KSEvalDiffBandStats(dataSet, 0, dx, dy, nullptr, of, &record), 1);
        EXPECT_EQ(host().reports, (Reports{report, unlabelledFailure("KSExtractVectWinEx () failed.\n")}));
    };
    expectRefused(&region, 2, 0, across);
    expectRefused(&region, -1, 0, across);
    expectRefused(&region, 0, 2, down);
    expectRefused(&region, 0, -1, down);
    expectRefused(&region, 2, 2, across);
    expectRefused(nullptr, -1, 0, across);
    expectRefused(nullptr, 0, -1, down);
    expectRefused(nullptr, -kMost - 1, 0, across);
    expectRefused(&region, kMost, 0, across);
    expectRefused(&region, -kMost - 1, -kMost - 1, across);
    host().memory = memoryForLines(2, 4, 2);  // row 5 is the first of the last block, alone
    StatsRecord record(2);
    host().forget();
    EXPECT_EQ(KSEvalDiffBandStats(dataSet, 0, 1, 1, nullptr, &region, &record), 0);
    EXPECT_EQ(record.nNumSamples, 3U);
}

TEST_F(KSEvalDiffBandStatsTest, HugeOffsetsWithoutARegionHaveNoPairs) {
    use(9, 9, 2);
    constexpr int kMost = std::numeric_limits<int>::max();
    EXPECT_EQ(evaluatedDifferences({{0, 1}}, kMost, 0).samples, 0U);
    EXPECT_EQ(evaluatedDifferences({{0, 1}}, 0, kMost).samples, 0U);
}

TEST_F(KSEvalDiffBandStatsTest, SamplesOutsideABitmapNeedNoPair) {
    use(9, 9, 2);
    const Area box = {1, 1, 6, 6};
    const Bitmap left(box, [](int x, int) { return x < 2; });
    EXPECT_TRUE(sameStatistics(evaluatedDifferences({{0, 1}}, 4, 0, &left.region),
                               expectedDifferences(box, {{0, 1}}, 4, 0, &left.region)));
}

TEST_F(KSEvalDiffBandStatsTest, EveryWidthAndBandCountIsTheSameToTheBit) {
    constexpr int kWidth = 5;
    constexpr int kHeight = 7;
    forEachTarget([&](const char* target) {
        for (const int count : bandCounts()) {
            for (const Kind& kind : kindsOfData(countOf(kWidth, kHeight, count))) {
                use(kWidth, kHeight, count, kind.values);
                const Sampling sampling = shuffled(count);
                host().memory = memoryForLines(4, kWidth, count);
                EXPECT_TRUE(
                    sameStatistics(evaluatedDifferences(sampling, 1, 1), expectedDifferences(whole(), sampling, 1, 1)))
                    << target << ", " << kind.name << ", " << count << " bands";
            }
        }
    });
}

}  // namespace
