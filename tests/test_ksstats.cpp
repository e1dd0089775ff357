// Band statistics: members, blocks, regions, and every sum to the bit.
#include <kslib.h>

#include <functional>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "statistics.hpp"

using namespace kit;

namespace {

constexpr int kPlentyOfMemory = std::numeric_limits<int>::max();

// ---- members ----

using KSAllocMembsBandStatsTest = LibraryTest;

TEST_F(KSAllocMembsBandStatsTest, AllocatesExactlyTheMembersNamed) {
    for (unsigned members = 0; members < 256; ++members) {
        VEC foreignVector{};
        MAT foreignMatrix{};
        KSBandStats record = {42, &foreignVector, &foreignVector, &foreignVector, &foreignVector, &foreignMatrix};
        ASSERT_EQ(KSAllocMembsBandStats(&record, static_cast<unsigned char>(members), 3), 0);
        EXPECT_EQ(record.nNumSamples, 42U);
        const auto expectVector = [](const VEC* vector, bool wanted) {
            EXPECT_EQ(vector != nullptr, wanted);
            if (vector != nullptr) {
                EXPECT_EQ(vector->dim, 3U);
            }
        };
        expectVector(record.pMin, (members & 0x01U) != 0);
        expectVector(record.pMax, (members & 0x02U) != 0);
        expectVector(record.pMean, (members & 0x04U) != 0);
        expectVector(record.pSD, (members & 0x08U) != 0);
        EXPECT_EQ(record.pCov != nullptr, (members & 0x10U) != 0);
        if (record.pCov != nullptr) {
            EXPECT_EQ(record.pCov->m, 3U);
            EXPECT_EQ(record.pCov->n, 3U);
        }
        KSFreeMembsBandStats(&record);
    }
    EXPECT_EQ(host().calls, std::vector<Call>{});
}

TEST_F(KSAllocMembsBandStatsTest, RefusesNoRecordAndNoBands) {
    constexpr const char* kLabel = "KSAllocMembsBandStats ()";
    VEC foreign{};
    KSBandStats record = {42, &foreign, nullptr, nullptr, nullptr, nullptr};
    EXPECT_EQ(KSAllocMembsBandStats(nullptr, kAllMembers, 0), 1);
    EXPECT_EQ(KSAllocMembsBandStats(&record, kAllMembers, 0), 1);
    EXPECT_EQ(KSAllocMembsBandStats(&record, kAllMembers, -1), 1);
    EXPECT_EQ(record.nNumSamples, 42U);
    const Report noBands = failure("%s: nNumBands <= 0\n", kLabel);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pBandStats == NULL\n", kLabel), noBands, noBands}));
}

TEST_F(KSAllocMembsBandStatsTest, AFailureNamesTheMemberAndLeavesNone) {
    constexpr const char* kLabel = "KSAllocMembsBandStats ()";
    const auto expectRefused = [](MatrixCall call, int nth, const Report& report) {
        host().forget();
        KSBandStats record{};
        refuseMatrixCall(call, nth);
        EXPECT_EQ(KSAllocMembsBandStats(&record, kAllMembers, 4), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
        EXPECT_EQ(record.pMin, nullptr);
        EXPECT_EQ(record.pMax, nullptr);
        EXPECT_EQ(record.pMean, nullptr);
        EXPECT_EQ(record.pSD, nullptr);
        EXPECT_EQ(record.pCov, nullptr);
        KSFreeMembsBandStats(&record);
    };
    expectRefused(MatrixCall::kVGet, 1, failure("%s: pBandStats->pMin == NULL, v_get () failed\n", kLabel));
    expectRefused(MatrixCall::kVGet, 2, failure("%s: pBandStats->pMax == NULL, v_get () failed\n", kLabel));
    expectRefused(MatrixCall::kVGet, 3, failure("%s: pBandStats->pMean == NULL, v_get () failed\n", kLabel));
    expectRefused(MatrixCall::kVGet, 4, failure("%s: pBandStats->pSD == NULL, v_get () failed\n", kLabel));
    expectRefused(MatrixCall::kMGet, 1, failure("%s: pBandStats->pCov == NULL, m_get () failed\n", kLabel));
}

using KSFreeMembsBandStatsTest = LibraryTest;

TEST_F(KSFreeMembsBandStatsTest, ClearsTheMembersAndAcceptsNull) {
    KSFreeMembsBandStats(nullptr);
    KSBandStats record{};
    record.nNumSamples = 9;
    ASSERT_EQ(KSAllocMembsBandStats(&record, kAllMembers, 2), 0);
    for (int twice = 0; twice < 2; ++twice) {
        KSFreeMembsBandStats(&record);
        EXPECT_EQ(record.pMin, nullptr);
        EXPECT_EQ(record.pMax, nullptr);
        EXPECT_EQ(record.pMean, nullptr);
        EXPECT_EQ(record.pSD, nullptr);
        EXPECT_EQ(record.pCov, nullptr);
        EXPECT_EQ(record.nNumSamples, 9U);
    }
}

// ---- the checks, shared by both evaluations ----

/// One of the two evaluations, behind the arguments that they share.
struct Evaluation {
    const char* name;
    const char* label;
    std::function<int(const KSDataSet*, int, const KSSampDesc*, const KSROI*, KSBandStats*)> run;
    bool differences;
};

std::ostream& operator<<(std::ostream& out, const Evaluation& evaluation) { return out << evaluation.name; }

const Evaluation kEvaluations[] = {
    {"Samples", "KSEvalBandStats ()",
     [](const KSDataSet* dataSet, int level, const KSSampDesc* desc, const KSROI* region, KSBandStats* record) {
         return KSEvalBandStats(dataSet, level, desc, region, record);
     },
     false},
    {"Differences", "KSEvalDiffBandStats ()",
     [](const KSDataSet* dataSet, int level, const KSSampDesc* desc, const KSROI* region, KSBandStats* record) {
         return KSEvalDiffBandStats(dataSet, level, 1, 1, desc, region, record);
     },
     true}};

struct BothEvaluations : EvaluationTest, testing::WithParamInterface<Evaluation> {
    const char* const label = GetParam().label;

    int run(const KSSampDesc* desc, const KSROI* region, KSBandStats* record, int level = 0) const {
        return GetParam().run(dataSet, level, desc, region, record);
    }
    Statistics plain(const Area& area, const Sampling& sampling, const KSROI* region = nullptr) const {
        return GetParam().differences ? expectedDifferences(area, sampling, 1, 1, region)
                                      : expected(area, sampling, region);
    }
    Report refusedWindow() const { return failure("%s: failed to allocated memory for WinEx\n", label); }
};

INSTANTIATE_TEST_SUITE_P(, BothEvaluations, testing::ValuesIn(kEvaluations),
                         [](const auto& made) { return std::string(made.param.name); });

TEST_P(BothEvaluations, CheckArgumentsInOrder) {
    use(4, 3, 2);
    appendTransform(*dataSet, heapTransform(KS_RQ_REFL, {1.0F, 1.0F}, {0.0F, 0.0F}));
    StatsRecord record(2);
    KSSampDesc none = {1, 1, 0, nullptr};
    const auto expectRefused = [&](const Report& report, const KSDataSet* of, int level, KSBandStats* into) {
        host().forget();
        EXPECT_EQ(GetParam().run(of, level, &none, nullptr, into), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
    };
    expectRefused(failure("%s: pDataSet == NULL\n", label), nullptr, -1, nullptr);
    for (const int level : {-1, 2}) {
        expectRefused(failure("%s: nRadTRansLev < 0 || nRadTransLev > pDataSet->nNumRadTrans\n", label), dataSet, level,
                      nullptr);
    }
    for (const int level : {0, 1}) {
        expectRefused(failure("%s: pBandStats == NULL\n", label), dataSet, level, nullptr);
    }
    EXPECT_EQ(record.nNumSamples, 777U);
}

TEST_P(BothEvaluations, WithoutBandsNothingIsDone) {
    use(4, 3, 2);
    for (const int count : {0, -1}) {
        const KSSampDesc none = {0, 0, count, nullptr};
        StatsRecord record(5);  // would not fit
        record.pMin->ve[4] = 3.0;
        EXPECT_EQ(run(&none, nullptr, &record), 0);
        EXPECT_EQ(record.nNumSamples, 777U);
        EXPECT_EQ(record.pMin->ve[4], 3.0);
    }
    dataSet->Sensor.nNumBands = 0;
    StatsRecord record(5);
    EXPECT_EQ(run(nullptr, nullptr, &record), 0);
    EXPECT_EQ(record.nNumSamples, 777U);
    dataSet->Sensor.nNumBands = 2;
    EXPECT_EQ(host().calls, std::vector<Call>{});
}

TEST_P(BothEvaluations, EveryMemberMustFitTheBands) {
    use(4, 3, 2);
    KSSampDesc desc = {0, 0, 2, nullptr};  // looked at later
    VEC* three = v_get(3);
    MAT* wide = m_get(2, 3);
    MAT* tall = m_get(3, 2);
    VEC* two = v_get(2);
    const auto expectRefused = [&](const Report& report, KSBandStats record) {
        host().forget();
        EXPECT_EQ(run(&desc, nullptr, &record), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
    };
    expectRefused(failure("%s: pMin->dim is %d, should be %d\n", label, 3, 2), {0, three, three, three, three, tall});
    expectRefused(failure("%s: pMax->dim is %d, should be %d\n", label, 3, 2), {0, two, three, three, three, tall});
    expectRefused(failure("%s: pMean->dim is %d, should be %d\n", label, 3, 2), {0, two, two, three, three, tall});
    expectRefused(failure("%s: pSD->dim is %d, should be %d\n", label, 3, 2), {0, two, two, two, three, tall});
    expectRefused(failure("%s: pCov->m is %d, should be %d\n", label, 3, 2), {0, two, two, two, two, tall});
    expectRefused(failure("%s: pCov->n is %d, should be %d\n", label, 3, 2), {0, two, two, two, two, wide});
    KSBandStats record = {0, three, nullptr, nullptr, nullptr, nullptr};
    dataSet->Sensor.nNumBands = 1;
    host().forget();
    EXPECT_EQ(run(nullptr, nullptr, &record), 1) << "without a sample description the data set's bands count";
    EXPECT_EQ(host().reports, (Reports{failure("%s: pMin->dim is %d, should be %d\n", label, 3, 1)}));
    dataSet->Sensor.nNumBands = 2;
    for (VEC* vector : {two, three}) v_free(vector);
    for (MAT* matrix : {wide, tall}) m_free(matrix);
}

TEST_P(BothEvaluations, ANarrowAreaFailsWithTheBlockHeight) {
    use(4, 3, 2);
    StatsRecord record(2);
    std::vector<int> bandMap = {0, 1};
    const KSSampDesc desc = {5, 1, 2, bandMap.data()};
    EXPECT_EQ(run(&desc, nullptr, &record), 1);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: nNumXSamples <= 0.\n", "KSLPS()"), unlabelledFailure("KSLPS failed\n")}));
    host().forget();
    const KSSampDesc coarse = {1, 4, 2, bandMap.data()};
    EXPECT_EQ(run(&coarse, nullptr, &record), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: nMaxLPS < 1.\n", "KSLPS()"), unlabelledFailure("KSLPS failed\n")}));
}

TEST_P(BothEvaluations, AnIntervalBelowOneIsTheWindowsToReport) {
    use(4, 3, 2);
    StatsRecord record(2);
    const auto expectRefused = [&](int xInterval, int yInterval, const Report& report) {
        host().forget();
        std::vector<int> bandMap = {0, 1};
        const KSSampDesc desc = {xInterval, yInterval, 2, bandMap.data()};
        EXPECT_EQ(run(&desc, nullptr, &record), 1);
        EXPECT_EQ(host().reports, (Reports{report, refusedWindow()}));
        EXPECT_EQ(host().count("GDBRealChanIOLow"), 0);
    };
    for (const int none : {0, -1, std::numeric_limits<int>::min()}) {
        expectRefused(none, 1, failure("%s: pWinEx->SampDesc.nXSampleInt <= 0.\n", "KSAllocWinEx()"));
        expectRefused(none, none, failure("%s: pWinEx->SampDesc.nXSampleInt <= 0.\n", "KSAllocWinEx()"));
        expectRefused(1, none, failure("%s: pWinEx->SampDesc.nYSampleInt <= 0.\n", "KSAllocWinEx()"));
    }
}

TEST_P(BothEvaluations, ReadBlocksOfTheHeightThatFits) {
    use(5, 11, 3);
    Sampling sampling = {{2, 0}};
    for (const int lines : {1, 2, 3, 4, 11, 20}) {
        host().memory = memoryForLines(lines, 5, 2);
        host().forget();
        const KSSampDesc desc = sampling.desc();
        StatsRecord record(2);
        EXPECT_EQ(run(&desc, nullptr, &record), 0);
        Names wanted;
        for (const Block& block : blocksOf(whole(), 1, 1, std::min(lines, 11))) {
            wanted.push_back("0, " + std::to_string(block.y) + ", 5, " + std::to_string(block.height) + ", 5, " +
                             std::to_string(block.height));
        }
        EXPECT_EQ(transfers(), wanted) << lines;
        EXPECT_EQ(host().count("IMPGetMemory"), 1);
        EXPECT_EQ(host().callNames().front(), "IMPGetMemory");
        EXPECT_TRUE(sameStatistics(valuesOf(record), plain(whole(), sampling))) << lines;
    }
}

TEST_P(BothEvaluations, AShortLastBlockIsReadInItsOwnHeight) {
    use(5, 7, 2);
    host().memory = memoryForLines(3, 5, 2);
    StatsRecord record(2);
    host().forget();
    EXPECT_EQ(run(nullptr, nullptr, &record), 0);
    EXPECT_EQ(transfers(), (Names{"0, 0, 5, 3, 5, 3", "0, 3, 5, 3, 5, 3", "0, 6, 5, 1, 5, 1"}));
}

TEST_P(BothEvaluations, ARowIntervalLeavesGapsBetweenBlocks) {
    use(6, 24, 2);
    Sampling sampling = {{1, 0}, 2, 2};
    host().memory = kPlentyOfMemory;
    KSSampDesc desc = sampling.desc();
    {
        StatsRecord record(2);  // twelve lines fit by the samples, twelve lines of pixels are read
        host().forget();
        EXPECT_EQ(run(&desc, nullptr, &record), 0);
        EXPECT_EQ(transfers(), (Names{"0, 0, 6, 12, 3, 6"}));
        EXPECT_TRUE(sameStatistics(valuesOf(record), plain(whole(), sampling)));
    }
    host().memory = memoryForLines(5, 3, 2);
    StatsRecord record(2);
    host().forget();
    EXPECT_EQ(run(&desc, nullptr, &record), 0);
    EXPECT_EQ(transfers(), (Names{"0, 0, 6, 5, 3, 2", "0, 10, 6, 5, 3, 2", "0, 20, 6, 4, 3, 2"}));
    EXPECT_TRUE(sameStatistics(valuesOf(record), plain(whole(), sampling)));
}

TEST_P(BothEvaluations, ALastBlockOfTheUsualHeightIsNotReallocated) {
    use(6, 9, 2);
    host().memory = memoryForLines(3, 6, 2);
    Sampling sampling = {{0, 1}, 1, 2};
    const KSSampDesc desc = sampling.desc();
    StatsRecord record(2);
    host().forget();
    ASSERT_EQ(run(&desc, nullptr, &record), 0);
    EXPECT_EQ(transfers(), (Names{"0, 0, 6, 3, 6, 1", "0, 6, 6, 3, 6, 1"}));
    EXPECT_TRUE(sameStatistics(valuesOf(record), plain(whole(), sampling)));
}

TEST_P(BothEvaluations, BlocksLowerThanTheRowIntervalCannotBeHad) {
    use(6, 8, 2);
    StatsRecord record(2);
    std::vector<int> bandMap = {0, 1};
    const KSSampDesc desc = {1, 3, 2, bandMap.data()};
    host().memory = memoryForLines(2, 6, 2);
    EXPECT_EQ(run(&desc, nullptr, &record), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pWinEx->nNumYSamples < 1.\n", "_KSAllocWinEx()"),
                                       failure("%s: _KSAllocWinEx() failed.\n", "KSAllocWinEx()"), refusedWindow()}));
}

TEST_P(BothEvaluations, AFailingLastBlockHasAMessageOfItsOwn) {
    use(6, 7, 2);
    StatsRecord record(2);
    std::vector<int> bandMap = {0, 1};
    const KSSampDesc desc = {1, 2, 2, bandMap.data()};
    host().memory = kPlentyOfMemory;  // three lines; the last block starts at row 6 with one row
    EXPECT_EQ(run(&desc, nullptr, &record), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pWinEx->nNumYSamples < 1.\n", "_KSAllocWinEx()"),
                                       failure("%s: _KSAllocWinEx() failed.\n", "KSAllocWinEx()"),
                                       failure("%s: failed to allocate memory for WinEx.\n", label)}));
    EXPECT_EQ(transfers(), (Names{"0, 0, 6, 3, 6, 1"}));
}

TEST_P(BothEvaluations, WithoutASampleDescriptionEveryBandAndSampleCounts) {
    use(4, 5, 3);
    StatsRecord record(3);
    ASSERT_EQ(run(nullptr, nullptr, &record), 0);
    EXPECT_TRUE(sameStatistics(valuesOf(record), plain(whole(), {{0, 1, 2}})));
}

TEST_P(BothEvaluations, PointsRectanglesAndBitmapsSelectSamples) {
    use(12, 10, 3);
    Sampling sampling = {{2, 1, 0}};
    const KSSampDesc desc = sampling.desc();
    const Area box = {2, 1, 7, 8};
    const Bitmap chequered(box, [](int x, int y) { return (x + y) % 2 == 0; });
    const Bitmap empty(box, [](int, int) { return false; });
    const Bitmap corner(box, [](int x, int y) { return x == 6 && y == 7; });
    const struct {
        const char* name;
        KSROI region;
        Area area;
    } cases[] = {{"point", pointRegion(5, 4, 5), {3, 2, 5, 5}},
                 {"rectangle", rectangleRegion(3, 2, 6, 7), {3, 2, 6, 7}},
                 {"image", rectangleRegion(0, 0, 12, 10), {0, 0, 12, 10}},
                 {"chequered", chequered.region, box},
                 {"empty", empty.region, box},
                 {"corner", corner.region, box}};
    for (const auto& [name, region, area] : cases) {
        for (const int lines : {1, 2, 3, 100}) {
            host().memory = memoryForLines(lines, area.width, 3);
            StatsRecord record(3);
            ASSERT_EQ(run(&desc, &region, &record), 0) << name;
            EXPECT_TRUE(sameStatistics(valuesOf(record), plain(area, sampling, &region))) << name << ", " << lines;
        }
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_P(BothEvaluations, NoSamplesLeaveTheMembersAsTheyStart) {
    use(6, 6, 2);
    const Bitmap empty({0, 0, 6, 6}, [](int, int) { return false; });
    StatsRecord record(2);
    for (int b = 0; b < 2; ++b) record.pMean->ve[b] = record.pSD->ve[b] = record.pCov->me[1][b] = 5.0;
    ASSERT_EQ(run(nullptr, &empty.region, &record), 0);
    const Statistics start = {0,
                              {kLargestFloat, kLargestFloat},
                              {kSmallestNormalFloat, kSmallestNormalFloat},
                              {0.0, 0.0},
                              {0.0, 0.0},
                              {0.0, 0.0, 0.0, 0.0}};
    EXPECT_TRUE(sameStatistics(valuesOf(record), start));
}

TEST_P(BothEvaluations, APointOfEvenSizeIsRefusedBeforeAnyRead) {
    use(6, 6, 2);
    StatsRecord record(2);
    const KSROI region = pointRegion(3, 3, 2);
    EXPECT_EQ(run(nullptr, &region, &record), 1);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: Point neighbourhood X-dimension is not an odd number of pixels.\n", "KSROIWin ()"),
                       unlabelledFailure("KSROIWinEx () failed.\n")}));
    EXPECT_EQ(host().count("GDBRealChanIOLow"), 0);
}

TEST_P(BothEvaluations, ARegionOfUnknownKindIsRefused) {
    use(6, 6, 2);
    StatsRecord record(2);
    const KSROI region = {KS_ROI_UNKNOWN, 0, 0, 4, 4, nullptr, -1};
    EXPECT_EQ(run(nullptr, &region, &record), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: Unsupported ROI type.\n", "KSROIWin ()"),
                                       unlabelledFailure("KSROIWinEx () failed.\n")}));
}

TEST_P(BothEvaluations, ARegionIsNotClippedToTheImage) {
    use(6, 6, 2);
    const auto expectRefused = [&](const KSROI& region, const Report& report) {
        host().forget();
        StatsRecord record(2);
        EXPECT_EQ(run(nullptr, &region, &record), 1);
        EXPECT_EQ(host().reports, (Reports{report, unlabelledFailure("KSReadWinEx () failed.\n")}));
        EXPECT_EQ(host().count("GDBRealChanIOLow"), 0);
    };
    const Report across = failure("%s: pWinEx->nXOff + pWinEx->nXSize > pDataSet->nXSize.\n", "KSReadWinEx()");
    expectRefused(rectangleRegion(3, 3, 4, 2), across);
    expectRefused(rectangleRegion(-1, 0, 3, 3), failure("%s: pWinEx->nXOff < 0.\n", "KSReadWinEx()"));
    expectRefused(pointRegion(2, 0, 3), failure("%s: pWinEx->nYOff < 0.\n", "KSReadWinEx()"));
    expectRefused(rectangleRegion(100, 100, 2, 2), across);
    expectRefused(
        rectangleRegion(0, 5, 2, 2),
        failure("%s: pWinEx->nYOff (%d) + pWinEx->nYSize (%d) > pDataSet->nYSize (%d).\n", "KSReadWinEx()", 5, 2, 6));
}

TEST_P(BothEvaluations, AFailureInALaterBlockLeavesPartialSums) {
    use(6, 6, 2);
    host().memory = memoryForLines(2, 3, 2);
    const KSROI region = rectangleRegion(1, 2, 3, 6);
    StatsRecord record(2);
    EXPECT_EQ(run(nullptr, &region, &record), 1);
    EXPECT_EQ(transfers(), (Names{"1, 2, 3, 2, 3, 2", "1, 4, 3, 2, 3, 2"}));
    EXPECT_EQ(host().reports.back(), unlabelledFailure("KSReadWinEx () failed.\n"));
}

TEST_P(BothEvaluations, BandsThatTheDataSetLacksAreRefused) {
    use(6, 6, 2);
    for (const int band : {-1, 2, 1000}) {
        host().forget();
        StatsRecord record(2);
        std::vector<int> bandMap = {0, band};
        const KSSampDesc desc = {1, 1, 2, bandMap.data()};
        EXPECT_EQ(run(&desc, nullptr, &record), 1);
        EXPECT_EQ(host().reports.back(), unlabelledFailure("KSReadWinEx () failed.\n"));
        EXPECT_EQ(host().count("GDBRealChanIOLow"), 0);
    }
}

TEST_P(BothEvaluations, BandsWithoutAMapAreRefused) {
    use(6, 6, 2);
    StatsRecord record(2);
    const KSSampDesc desc = {1, 1, 2, nullptr};
    EXPECT_EQ(run(&desc, nullptr, &record), 1);
    EXPECT_FALSE(host().reports.empty());
    EXPECT_EQ(host().count("GDBRealChanIOLow"), 0);
}

TEST_P(BothEvaluations, ValuesAreThoseOfTheLevel) {
    use(5, 6, 3);
    appendTransform(*dataSet, heapTransform(KS_RQ_APPRAD, {2.0F, -4.0F, 0.5F}, {1.0F, 8.0F, -16.0F}));
    appendTransform(*dataSet, heapTransform(KS_RQ_REFL, {0.5F, 0.5F, 0.5F}, {0.0F, 0.0F, 0.0F}));
    Sampling sampling = {{2, 0, 1}};
    const KSSampDesc desc = sampling.desc();
    StatsRecord record(3);
    ASSERT_EQ(run(&desc, nullptr, &record, 1), 0);
    for (int y = 0; y < 6; ++y) {
        for (int x = 0; x < 5; ++x) {
            stored(x, y, 0) = 2.0F * stored(x, y, 0) + 1.0F;
            stored(x, y, 1) = -4.0F * stored(x, y, 1) + 8.0F;
            stored(x, y, 2) = 0.5F * stored(x, y, 2) - 16.0F;
        }
    }
    EXPECT_TRUE(sameStatistics(valuesOf(record), plain(whole(), sampling)));
}

TEST_P(BothEvaluations, AbsentMembersDoNotChangeTheOthers) {
    use(5, 6, 3);
    const Statistics all = plain(whole(), {{0, 1, 2}});
    for (unsigned members = 0; members < 32; ++members) {
        StatsRecord record(3, static_cast<unsigned char>(members));
        ASSERT_EQ(run(nullptr, nullptr, &record), 0);
        Statistics wanted = all;
        if ((members & KS_BS_MIN) == 0) wanted.minimum.clear();
        if ((members & KS_BS_MAX) == 0) wanted.maximum.clear();
        if ((members & KS_BS_MEAN) == 0) wanted.mean.clear();
        if ((members & KS_BS_SD) == 0) wanted.deviation.clear();
        if ((members & KS_BS_COV) == 0) wanted.covariance.clear();
        EXPECT_TRUE(sameStatistics(valuesOf(record), wanted)) << members;
    }
}

/// Refuses one allocation after another, of the library and of Meschach, and collects the last report of each run. A
/// run that can do without the memory has to be right all the same.
std::set<std::string> lastReports(const std::function<int()>& run, const std::function<bool()>& isRight) {
    std::set<std::string> formats;
    const auto note = [&](int status) {
        EXPECT_EQ(status, host().reports.empty() ? 0 : 1);
        EXPECT_TRUE(status != 0 || isRight());
        if (!host().reports.empty()) formats.insert(host().reports.back().format);
        host().forget();
    };
    constexpr int kMany = 1000;
    for (int nth = 1; nth < kMany; ++nth) {
        refuseAllocation(nth);
        note(run());
        if (!allocationRefused()) break;
    }
    refuseAllocation(0);
    for (int nth = 1; nth < kMany; ++nth) {
        refuseVector(nth);
        note(run());
        if (vectors() < nth) break;
    }
    refuseNoMatrixCall();
    return formats;
}

TEST_P(BothEvaluations, EveryFailingAllocationIsReportedAndNothingLeaks) {
    use(5, 7, 2);
    host().memory = memoryForLines(3, 5, 2);
    std::set<std::string> wanted = {"%s: failed to allocated memory for WinEx\n",
                                    "%s: failed to allocate memory for WinEx.\n",
                                    "%s: failed to allocated memory for pBandVect\n", "KSReadWinEx () failed.\n"};
    if (GetParam().differences) {
        wanted.insert(
            {"%s: failed to allocated memory for pBandVectOff\n", "%s: failed to allocated memory for pBandVectDif\n"});
    }
    const Statistics right = plain(whole(), {{0, 1}});
    StatsRecord full(2);
    EXPECT_EQ(lastReports([&] { return run(nullptr, nullptr, &full); },
                          [&] { return static_cast<bool>(sameStatistics(valuesOf(full), right)); }),
              wanted);
    wanted.insert("%s: failed to allocated memory for pMean\n");
    for (const int member : {KS_BS_SD, KS_BS_COV}) {
        StatsRecord record(2, static_cast<unsigned char>(member));
        EXPECT_EQ(lastReports([&] { return run(nullptr, nullptr, &record); },
                              [&] { return record.nNumSamples == right.samples; }),
                  wanted);
    }
}

}  // namespace
