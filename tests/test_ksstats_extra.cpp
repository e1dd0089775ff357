// The statistics that a user expects: for every value, region and interval, whatever the memory.
#include <kslib.h>

#include <limits>
#include <string>
#include <vector>

#include "statistics.hpp"
#include "targets.hpp"

using namespace kit;

namespace {

constexpr double kLimitless = std::numeric_limits<double>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

using Holds = std::function<bool(int, int)>;  // by pixel of the image

bool everywhere(int, int) { return true; }

/// Positions along one direction: those of the whole intervals from the first pixel that lies in the image.
std::vector<int> positions(int first, int size, int imageSize, int interval) {
    const int from = std::max(first, 0);
    const int count = (std::min(first + size, imageSize) - from) / interval;
    std::vector<int> found;
    for (int i = 0; i < count; ++i) found.push_back(from + i * interval);
    return found;
}

struct ExtraTest : StatisticsTest {
    /// All pairs, row after row; an offset of nothing stands for the samples themselves.
    Statistics expected(const Area& area, const Sampling& sampling, const Holds& holds, int dx = -1,
                        int dy = -1) const {
        const std::vector<int> columns = positions(area.x, area.width, width, sampling.xInterval);
        const std::vector<int> rows = positions(area.y, area.height, height, sampling.yInterval);
        const bool pairs = dx >= 0;
        const auto right = static_cast<std::size_t>(std::max(dx, 0));
        const auto down = static_cast<std::size_t>(std::max(dy, 0));
        PlainSums sums(sampling.bandMap.size(), exactRules());
        for (std::size_t j = 0; j + down < rows.size(); ++j) {
            for (std::size_t i = 0; i + right < columns.size(); ++i) {
                if (!holds(columns[i], rows[j])) continue;
                std::vector<double> sample = sampleAt(columns[i], rows[j], sampling.bandMap);
                if (pairs) {
                    const int x = columns[i + right];
                    const int y = rows[j + down];
                    if (!holds(x, y)) continue;
                    const std::vector<double> other = sampleAt(x, y, sampling.bandMap);
                    for (std::size_t b = 0; b < other.size(); ++b) sample[b] = std::fabs(sample[b] - other[b]);
                }
                sums.add(sample);
            }
        }
        return sums.finished();
    }
    Statistics evaluated(Sampling sampling, const KSROI* region = nullptr) const {
        const KSSampDesc desc = sampling.desc();
        StatsRecord record(desc.nNumBands);
        EXPECT_EQ(KSXEvalBandStats(dataSet, 0, &desc, region, &record), 0);
        EXPECT_EQ(host().reports, Reports{});
        return valuesOf(record);
    }
    Statistics evaluatedDifferences(Sampling sampling, int dx, int dy, const KSROI* region = nullptr) const {
        const KSSampDesc desc = sampling.desc();
        StatsRecord record(desc.nNumBands);
        EXPECT_EQ(KSXEvalDiffBandStats(dataSet, 0, dx, dy, &desc, region, &record), 0);
        EXPECT_EQ(host().reports, Reports{});
        return valuesOf(record);
    }
    Area whole() const { return {0, 0, width, height}; }
};

std::size_t countOf(int width, int height, int bands) {
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * static_cast<std::size_t>(bands);
}

Sampling shuffled(int bands) {
    Sampling sampling;
    for (int b = 0; b < bands; ++b) sampling.bandMap.push_back((b * 13 + 5) % bands);
    return sampling;
}

TEST_F(ExtraTest, NegativeValuesHaveTheirOwnMaximum) {
    use(2, 2, 2, {-1.0F, -3.0F, -2.0F, 0.0F, -3.0F, -1.0F, -9.0F, -0.0F});
    const Statistics found = evaluated({{0, 1}});
    EXPECT_EQ(found.maximum, (std::vector<double>{-1.0, 0.0}));
    EXPECT_EQ(found.minimum, (std::vector<double>{-9.0, -3.0}));
}

TEST_F(ExtraTest, EqualNeighboursHaveDifferencesOfZero) {
    use(3, 3, 1, std::vector<float>(9, 4.0F));
    const Statistics found = evaluatedDifferences({{0}}, 1, 0);
    EXPECT_EQ(found.samples, 6U);
    EXPECT_EQ(found.maximum, std::vector<double>{0.0});
    EXPECT_EQ(found.minimum, std::vector<double>{0.0});
}

TEST_F(ExtraTest, ANotANumberMarksItsBandAndNoOther) {
    forEachTarget([&](const char* target) {
        for (const int count : {2, 5, 9, 20}) {
            for (std::size_t where = 0; where < 4; ++where) {
                const auto bandCount = static_cast<std::size_t>(count);
                std::vector<float> values(4 * bandCount, 3.0F);
                values[where * bandCount + 1] = kNaN;
                use(2, 2, count, values);
                const Statistics found = evaluated({everyBand()});
                for (std::size_t b = 0; b < bandCount; ++b) {
                    EXPECT_EQ(std::isnan(found.minimum[b]), b == 1) << target << ", sample " << where;
                    EXPECT_EQ(std::isnan(found.maximum[b]), b == 1) << target << ", sample " << where;
                    EXPECT_EQ(std::isnan(found.mean[b]), b == 1);
                    EXPECT_EQ(std::isnan(found.deviation[b]), b == 1);
                    for (std::size_t j = 0; j < bandCount; ++j) {
                        EXPECT_EQ(std::isnan(found.covariance[b * bandCount + j]), b == 1 || j == 1);
                    }
                }
            }
        }
    });
}

TEST_F(ExtraTest, NoVarianceIsNegative) {
    constexpr int kWidth = 61;
    constexpr int kHeight = 53;
    for (int i = 1; i < 20; ++i) {
        const float value = static_cast<float>(i) / 97.0F;
        use(kWidth, kHeight, 1, std::vector<float>(countOf(kWidth, kHeight, 1), value));
        const Statistics found = evaluated({{0}});
        EXPECT_GE(found.deviation[0], 0.0) << value;
        EXPECT_LT(found.deviation[0], 1e-6) << value;
        EXPECT_GE(found.covariance[0], 0.0) << value;
    }
}

TEST_F(ExtraTest, NothingSampledLeavesTheExtremesWhereTheyStart) {
    use(6, 6, 2);
    const Bitmap empty({1, 1, 4, 4}, [](int, int) { return false; });
    const KSROI outside = rectangleRegion(6, 0, 4, 4);
    const Statistics start = {0,          {kLimitless, kLimitless}, {-kLimitless, -kLimitless}, {0.0, 0.0},
                              {0.0, 0.0}, {0.0, 0.0, 0.0, 0.0}};
    EXPECT_TRUE(sameStatistics(evaluated({{0, 1}}, &empty.region), start));
    EXPECT_TRUE(sameStatistics(evaluated({{0, 1}}, &outside), start));
    EXPECT_TRUE(sameStatistics(evaluatedDifferences({{0, 1}}, 6, 0), start));
    EXPECT_TRUE(sameStatistics(evaluatedDifferences({{0, 1}}, 0, 6), start));
    EXPECT_TRUE(sameStatistics(evaluatedDifferences({{0, 1}}, std::numeric_limits<int>::max(), 0), start));
}

TEST_F(ExtraTest, RegionsAreClippedToTheImage) {
    use(9, 8, 3);
    const Sampling sampling = {{2, 0, 1}};
    for (const Area& area : {Area{-3, -2, 6, 5}, Area{5, 6, 10, 10}, Area{-5, -5, 100, 100}, Area{8, 7, 1, 1}}) {
        const KSROI rectangle = rectangleRegion(area.x, area.y, area.width, area.height);
        const Statistics found = evaluated(sampling, &rectangle);
        EXPECT_GT(found.samples, 0U);
        EXPECT_TRUE(sameStatistics(found, expected(area, sampling, everywhere)));
        EXPECT_TRUE(sameStatistics(evaluatedDifferences(sampling, 1, 1, &rectangle),
                                   expected(area, sampling, everywhere, 1, 1)));
        const Bitmap odd(area, [](int x, int y) { return (x + 2 * y) % 3 != 0; });
        const auto holds = [&](int x, int y) { return ((x - area.x) + 2 * (y - area.y)) % 3 != 0; };
        EXPECT_TRUE(sameStatistics(evaluated(sampling, &odd.region), expected(area, sampling, holds)));
        EXPECT_TRUE(
            sameStatistics(evaluatedDifferences(sampling, 1, 1, &odd.region), expected(area, sampling, holds, 1, 1)));
    }
    const KSROI corner = pointRegion(0, 7, 3);
    EXPECT_TRUE(sameStatistics(evaluated(sampling, &corner), expected({-1, 6, 3, 3}, sampling, everywhere)));
}

TEST_F(ExtraTest, EveryIntervalSamplesTheWholeHeightWhateverTheMemory) {
    use(24, 23, 3);
    const Area box = {2, 1, 20, 21};
    const KSROI rectangle = rectangleRegion(box.x, box.y, box.width, box.height);
    const Bitmap odd(box, [](int x, int y) { return (x * 7 + y * 5) % 3 != 0; });
    const auto holds = [&](int x, int y) { return ((x - box.x) * 7 + (y - box.y) * 5) % 3 != 0; };
    for (const int xInterval : {1, 2, 3, 5}) {
        for (const int yInterval : {1, 2, 3, 4, 7}) {
            const Sampling sampling = {{1, 2, 0}, xInterval, yInterval};
            const Statistics wholeImage = expected(whole(), sampling, everywhere);
            EXPECT_EQ(wholeImage.samples, static_cast<unsigned>((24 / xInterval) * (23 / yInterval)));
            for (const int lines : {1, 2, 5, 1000}) {
                const std::string what =
                    std::to_string(xInterval) + " " + std::to_string(yInterval) + " " + std::to_string(lines);
                host().memory = memoryForLines(lines, 24 / xInterval, 3);
                EXPECT_TRUE(sameStatistics(evaluated(sampling), wholeImage)) << what;
                EXPECT_TRUE(sameStatistics(evaluated(sampling, &rectangle), expected(box, sampling, everywhere)))
                    << what;
                EXPECT_TRUE(sameStatistics(evaluated(sampling, &odd.region), expected(box, sampling, holds))) << what;
                for (const auto& [dx, dy] : {std::pair(1, 0), std::pair(0, 1), std::pair(2, 2), std::pair(0, 0)}) {
                    EXPECT_TRUE(sameStatistics(evaluatedDifferences(sampling, dx, dy),
                                               expected(whole(), sampling, everywhere, dx, dy)))
                        << what << " by " << dx << ", " << dy;
                    EXPECT_TRUE(sameStatistics(evaluatedDifferences(sampling, dx, dy, &odd.region),
                                               expected(box, sampling, holds, dx, dy)))
                        << what << " by " << dx << ", " << dy;
                }
            }
        }
    }
}

TEST_F(ExtraTest, PairsMayBeAsFarApartAsTheImageIsHigh) {
    use(5, 12, 2);
    const Sampling sampling = {{1, 0}};
    for (const int lines : {1, 3, 100}) {
        host().memory = memoryForLines(lines, 5, 2);
        for (int dy = 0; dy < 13; ++dy) {
            for (const int dx : {0, 1, 4, 5}) {
                EXPECT_TRUE(sameStatistics(evaluatedDifferences(sampling, dx, dy),
                                           expected(whole(), sampling, everywhere, dx, dy)))
                    << lines << ": " << dx << ", " << dy;
            }
        }
    }
}

TEST_F(ExtraTest, EveryWidthAndBandCountIsTheSameToTheBit) {
    constexpr int kWidth = 4;
    constexpr int kHeight = 5;
    forEachTarget([&](const char* target) {
        for (const int count : {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 33, 64, 70}) {
            for (const Kind& kind : kindsOfData(countOf(kWidth, kHeight, count))) {
                use(kWidth, kHeight, count, kind.values);
                const Sampling sampling = shuffled(count);
                host().memory = memoryForLines(2, kWidth, count);
                EXPECT_TRUE(sameStatistics(evaluated(sampling), expected(whole(), sampling, everywhere)))
                    << target << ", " << kind.name << ", " << count << " bands";
                EXPECT_TRUE(
                    sameStatistics(evaluatedDifferences(sampling, 1, 1), expected(whole(), sampling, everywhere, 1, 1)))
                    << target << ", " << kind.name << ", " << count << " bands";
            }
        }
    });
}

TEST_F(ExtraTest, LevelsAndAbsentDescriptions) {
    use(4, 5, 2);
    appendTransform(*dataSet, heapTransform(KS_RQ_REFL, {2.0F, -1.0F}, {0.5F, 0.25F}));
    StatsRecord record(2);
    ASSERT_EQ(KSXEvalBandStats(dataSet, 1, nullptr, nullptr, &record), 0);
    for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 4; ++x) {
            stored(x, y, 0) = 2.0F * stored(x, y, 0) + 0.5F;
            stored(x, y, 1) = -1.0F * stored(x, y, 1) + 0.25F;
        }
    }
    EXPECT_TRUE(sameStatistics(valuesOf(record), expected(whole(), {{0, 1}}, everywhere)));
}

TEST_F(ExtraTest, WhatCannotBeEvaluatedIsReported) {
    use(6, 6, 2);
    StatsRecord record(2);
    StatsRecord wrong(3);
    const KSROI even = pointRegion(3, 3, 2);
    const KSROI unknown = {KS_ROI_UNKNOWN, 0, 0, 2, 2, nullptr, -1};
    std::vector<int> bandMap = {0, 1};
    std::vector<int> lacking = {0, 2};
    const KSSampDesc good = {1, 1, 2, bandMap.data()};
    const auto expectRefused = [&](const char* what, const KSDataSet* of, int level, const KSSampDesc& desc,
                                   const KSROI* region, KSBandStats* into) {
        host().forget();
        EXPECT_EQ(KSXEvalBandStats(of, level, &desc, region, into), 1) << what;
        EXPECT_FALSE(host().reports.empty()) << what;
        host().forget();
        EXPECT_EQ(KSXEvalDiffBandStats(of, level, 1, 1, &desc, region, into), 1) << what;
        EXPECT_FALSE(host().reports.empty()) << what;
        EXPECT_NE(host().reports.front().label, "") << what;
    };
    expectRefused("no data set", nullptr, 0, good, nullptr, &record);
    expectRefused("no record", dataSet, 0, good, nullptr, nullptr);
    expectRefused("a level below 0", dataSet, -1, good, nullptr, &record);
    expectRefused("a level past the chain", dataSet, 1, good, nullptr, &record);
    expectRefused("members of another size", dataSet, 0, good, nullptr, &wrong);
    expectRefused("a column interval of 0", dataSet, 0, {0, 1, 2, bandMap.data()}, nullptr, &record);
    expectRefused("a row interval of -1", dataSet, 0, {1, -1, 2, bandMap.data()}, nullptr, &record);
    expectRefused("no band map", dataSet, 0, {1, 1, 2, nullptr}, nullptr, &record);
    expectRefused("a band that is not there", dataSet, 0, {1, 1, 2, lacking.data()}, nullptr, &record);
    expectRefused("an even point", dataSet, 0, good, &even, &record);
    expectRefused("an unknown region", dataSet, 0, good, &unknown, &record);
    host().forget();
    EXPECT_EQ(KSXEvalDiffBandStats(dataSet, 0, -1, 0, &good, nullptr, &record), 1);
    EXPECT_EQ(KSXEvalDiffBandStats(dataSet, 0, 0, -1, &good, nullptr, &record), 1);
    EXPECT_EQ(host().reports.size(), 2U);
}

TEST_F(ExtraTest, FailingAllocationsAreReportedAndNothingLeaks) {
    use(5, 7, 2);
    host().memory = memoryForLines(3, 5, 2);
    StatsRecord record(2, KS_BS_SD);
    const std::vector<double> right = evaluated({{0, 1}}).deviation;
    const auto run = [&] {
        const int status = KSXEvalBandStats(dataSet, 0, nullptr, nullptr, &record);
        EXPECT_EQ(status, host().reports.empty() ? 0 : 1);
        EXPECT_TRUE(status != 0 || sameBits("deviation", valuesOf(record.pSD), right));
        host().forget();
        return status;
    };
    int failures = 0;
    for (int nth = 1; nth < 1000; ++nth) {
        refuseAllocation(nth);
        failures += run();
        if (!allocationRefused()) break;
    }
    EXPECT_GE(failures, 4) << "samples, starts, band map, and what reading takes";
    refuseAllocation(0);
    for (int nth = 1; nth <= 2; ++nth) {
        refuseVector(nth);
        EXPECT_EQ(run(), 1);
    }
}

}  // namespace
