// Band maps and wavelengths.
#include <kslib.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <vector>

#include "datasets.hpp"
#include "fixture.hpp"

using namespace kit;

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

struct BandsTest : LibraryTest {
    KSDataSet* dataSet = nullptr;

    void useCentres(const std::vector<float>& centres) {
        freeWhole(dataSet);
        dataSet = heapDataSet(static_cast<int>(centres.size()));
        for (std::size_t b = 0; b < centres.size(); ++b) dataSet->Sensor.pBandResp[b].fCentre = centres[b];
    }
    void TearDown() override {
        freeWhole(dataSet);
        LibraryTest::TearDown();
    }
};

// ---- comparing wavelengths ----

using KSWlenCompTest = BandsTest;

TEST_F(KSWlenCompTest, ComparesWholeThousandths) {
    EXPECT_EQ(KSWlenComp(0.5004F, 0.5F), 0);
    EXPECT_EQ(KSWlenComp(0.5006F, 0.5F), 1);
    EXPECT_EQ(KSWlenComp(0.5F, 0.5006F), -1);
    EXPECT_EQ(KSWlenComp(1234.5F, 1234.5F), 0);
    EXPECT_EQ(KSWlenComp(0.0F, 0.0004F), 0);
}

TEST_F(KSWlenCompTest, NegativeWavelengthsAreAboveEveryPositiveOne) {
    EXPECT_EQ(KSWlenComp(-1.0F, 4000.0F), 1);
    EXPECT_EQ(KSWlenComp(4000.0F, -1.0F), -1);
    EXPECT_EQ(KSWlenComp(-2.0F, -1.0F), -1);
}

TEST_F(KSWlenCompTest, TruncatesTowardZero) {
    EXPECT_EQ(KSWlenComp(-0.0004F, 0.0F), 0);
    EXPECT_EQ(KSWlenComp(-0.001F, 0.0F), 0) << "-1 + 0.5 truncates to 0";
    EXPECT_EQ(KSWlenComp(-0.002F, 0.0F), 1);
}

TEST_F(KSWlenCompTest, HoldsForAnyValue) {
    const float huge = std::numeric_limits<float>::max();
    const float infinite = std::numeric_limits<float>::infinity();
    EXPECT_EQ(KSWlenComp(kNaN, kNaN), 0);
    EXPECT_EQ(KSWlenComp(huge, infinite), 0);
    EXPECT_EQ(KSWlenComp(-huge, -infinite), 0);
    EXPECT_EQ(KSWlenComp(infinite, 400.0F), 1) << "the low 32 bits of the largest integer are all set";
    EXPECT_EQ(KSWlenComp(-infinite, 0.0F), 0) << "the low 32 bits of the smallest integer are all clear";
}

// ---- selecting bands ----

struct KSSelectBandsTest : BandsTest {
    void SetUp() override {
        BandsTest::SetUp();
        useCentres({0.7F, 0.3F, 0.5F, 0.4F, 0.9F});
    }
    std::vector<int> select(const float* interval, int goodOnly = 0, int numChans = 0,
                            const int* channels = nullptr) const {
        int count = -7;
        int* map = nullptr;
        EXPECT_EQ(KSSelectBands(dataSet, interval, goodOnly, numChans, channels, &count, &map), 0);
        EXPECT_EQ(host().reports, Reports{});
        if (count == 0) {
            EXPECT_EQ(map, nullptr);
        }
        const std::vector<int> bands(map, map + count);
        std::free(map);
        return bands;
    }
    void expectRefused(std::vector<float> interval, const Report& report) const {
        host().forget();
        int count = -7;
        int mark = 0;
        int* map = &mark;
        EXPECT_EQ(KSSelectBands(dataSet, interval.data(), 0, 0, nullptr, &count, &map), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
        EXPECT_EQ(count, -7);
        EXPECT_EQ(map, &mark);
    }
};

TEST_F(KSSelectBandsTest, SortsByWavelength) { EXPECT_EQ(select(nullptr), (std::vector<int>{1, 3, 2, 0, 4})); }

TEST_F(KSSelectBandsTest, SortsThroughTheHostWithWavelengthEquality) {
    EXPECT_EQ(select(nullptr).size(), 5U);
    EXPECT_EQ(host().count("ORV_qsort"), 1);
    // Centres that agree in thousandths are equal to the sort, and a negative one goes last.
    useCentres({-1.0F, 0.5F, 0.4F});
    EXPECT_EQ(select(nullptr), (std::vector<int>{2, 1, 0}));
}

TEST_F(KSSelectBandsTest, IncludesTheEndsOfAnInterval) {
    const float interval[2] = {0.4F, 0.7F};
    EXPECT_EQ(select(interval), (std::vector<int>{3, 2, 0}));
}

TEST_F(KSSelectBandsTest, ExcludesAnIntervalWithItsEnds) {
    const float interval[2] = {-0.4F, -0.7F};
    EXPECT_EQ(select(interval), (std::vector<int>{1, 4}));
}

TEST_F(KSSelectBandsTest, ZeroBelongsToEitherSign) {
    const float included[2] = {0.0F, 0.4F};
    EXPECT_EQ(select(included), (std::vector<int>{1, 3}));
    const float excluded[2] = {0.0F, -0.4F};
    EXPECT_EQ(select(excluded), (std::vector<int>{2, 0, 4}));
    const float point[2] = {0.0F, 0.0F};
    EXPECT_EQ(select(point), std::vector<int>{}) << "inclusion of nothing but 0";
    const float exact[2] = {0.5F, 0.5F};
    EXPECT_EQ(select(exact), (std::vector<int>{2}));
}

TEST_F(KSSelectBandsTest, RefusesWrongIntervals) {
    expectRefused({0.7F, 0.4F},
                  failure("%s: Both elements of pafWlenInt are positive\n         but element 0 > element 1.\n",
                          "KSSelectBands()"));
    expectRefused({0.4F, 0.0F},
                  failure("%s: Both elements of pafWlenInt are positive\n         but element 0 > element 1.\n",
                          "KSSelectBands()"));
    expectRefused({0.4F, -0.7F}, failure("%s: pafWlenInt elements not both positive nor\n         both negative\n.",
                                         "KSSelectBands()"));
    expectRefused({-0.4F, 0.7F}, failure("%s: pafWlenInt elements not both positive nor\n         both negative\n.",
                                         "KSSelectBands()"));
    expectRefused(
        {-0.7F, -0.4F},
        failure("%s: Both elements of pafWlenInt are negative\n         but abs(element 0) > abs(element 1).\n",
                "KSSelectBands()"));
    expectRefused(
        {-0.7F, 0.0F},
        failure("%s: Both elements of pafWlenInt are negative\n         but abs(element 0) > abs(element 1).\n",
                "KSSelectBands()"));
    expectRefused({kNaN, 0.7F},
                  failure("%s: The elements of pafWlenInt are neither both\n         negative nor both positive\n",
                          "KSSelectBands()"));
    expectRefused({-0.4F, kNaN},
                  failure("%s: The elements of pafWlenInt are neither both\n         negative nor both positive\n",
                          "KSSelectBands()"));
}

TEST_F(KSSelectBandsTest, ReportsANullDataSet) {
    int count = 0;
    int* map = nullptr;
    EXPECT_EQ(KSSelectBands(nullptr, nullptr, 0, 0, nullptr, &count, &map), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pDataSet == NULL\n", "KSSelectBands()")}));
}

TEST_F(KSSelectBandsTest, BandsOfUnknownResponsePassAnyInterval) {
    dataSet->Sensor.pBandResp[4].eRespType = KS_RT_GAUSSIAN;
    dataSet->Sensor.pBandResp[1].eRespType = KS_RT_UNKNOWN;
    const float included[2] = {0.6F, 0.8F};
    EXPECT_EQ(select(included), (std::vector<int>{1, 0}));
    const float excluded[2] = {-0.2F, -0.8F};
    EXPECT_EQ(select(excluded), (std::vector<int>{1, 4}));
}

TEST_F(KSSelectBandsTest, OnlyTheLastBandDecidesAboutSorting) {
    dataSet->Sensor.pBandResp[4].eRespType = KS_RT_UNKNOWN;
    EXPECT_EQ(select(nullptr), (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_EQ(host().count("ORV_qsort"), 0);
    const float interval[2] = {0.45F, 0.75F};
    EXPECT_EQ(select(interval), (std::vector<int>{0, 2, 4}));

    dataSet->Sensor.pBandResp[4].eRespType = KS_RT_BOX;
    dataSet->Sensor.pBandResp[0].eRespType = KS_RT_UNKNOWN;
    EXPECT_EQ(select(nullptr), (std::vector<int>{1, 3, 2, 0, 4}));
    const int channels[1] = {1};
    EXPECT_EQ(select(nullptr, 0, 1, channels), (std::vector<int>{0})) << "also when the last band is not selected";
}

TEST_F(KSSelectBandsTest, WithoutResponsesAllAreUnknown) {
    KSBandResp* responses = dataSet->Sensor.pBandResp;
    dataSet->Sensor.pBandResp = nullptr;
    const float interval[2] = {0.4F, 0.5F};
    EXPECT_EQ(select(interval), (std::vector<int>{0, 1, 2, 3, 4}));
    dataSet->Sensor.pBandResp = responses;
}

TEST_F(KSSelectBandsTest, GoodBandsArePlotAndBmask) {
    const std::vector<int> qualities = {KS_BQ_PLOT, KS_BQ_SKIP, KS_BQ_MASK, KS_BQ_BMASK, KS_BQ_UNKNOWN};
    std::copy(qualities.begin(), qualities.end(), dataSet->Sensor.peBandQual);
    EXPECT_EQ(select(nullptr, 1), (std::vector<int>{3, 0}));
    EXPECT_EQ(select(nullptr, 0).size(), 5U);
    int* kept = dataSet->Sensor.peBandQual;
    dataSet->Sensor.peBandQual = nullptr;
    EXPECT_EQ(select(nullptr, 1).size(), 5U) << "without qualities every band passes";
    dataSet->Sensor.peBandQual = kept;
}

TEST_F(KSSelectBandsTest, BandsBelongToTheChannels) {
    const int channels[3] = {5, 99, 1};
    EXPECT_EQ(select(nullptr, 0, 3, channels), (std::vector<int>{0, 4}));
    EXPECT_EQ(select(nullptr, 0, 2, channels), (std::vector<int>{4}));
    EXPECT_EQ(select(nullptr, 0, 0, channels), std::vector<int>{});
    EXPECT_EQ(select(nullptr, 0, -1, channels), std::vector<int>{});
    EXPECT_EQ(select(nullptr, 0, 3, nullptr).size(), 5U) << "the count says nothing without a list";
}

TEST_F(KSSelectBandsTest, NothingSelectedIsNotSorted) {
    const float interval[2] = {5.0F, 6.0F};
    EXPECT_EQ(select(interval), std::vector<int>{});
    EXPECT_EQ(host().count("ORV_qsort"), 0);
    useCentres({});
    EXPECT_EQ(select(nullptr), std::vector<int>{});
}

TEST_F(KSSelectBandsTest, ManyBands) {
    std::vector<float> centres(2151);
    for (std::size_t b = 0; b < centres.size(); ++b) centres[b] = static_cast<float>(2500 - b);
    useCentres(centres);
    const std::vector<int> bands = select(nullptr);
    ASSERT_EQ(bands.size(), centres.size());
    for (std::size_t i = 0; i < bands.size(); ++i) EXPECT_EQ(bands[i], static_cast<int>(bands.size() - 1 - i));
}

// The list grows by 10 entries at a time, silently when it cannot; then come the pairs that are sorted.
TEST_F(KSSelectBandsTest, EveryRefusedAllocationLeavesTheOutputs) {
    useCentres(std::vector<float>(25, 0.5F));
    const std::vector<Reports> promised = {
        {}, {}, {}, {failure("%s: paBandWlen == NULL,          error in HMalloc ().\n", "KSSelectBands()")}};
    int mark = 0;
    for (std::size_t n = 0; n < promised.size(); ++n) {
        host().forget();
        refuseAllocation(static_cast<int>(n) + 1);
        int count = -7;
        int* map = &mark;
        EXPECT_EQ(KSSelectBands(dataSet, nullptr, 0, 0, nullptr, &count, &map), 1);
        EXPECT_EQ(host().reports, promised[n]) << "allocation " << n + 1;
        EXPECT_EQ(count, -7);
        EXPECT_EQ(map, &mark);
    }
    host().forget();
    refuseAllocation(static_cast<int>(promised.size()) + 1);
    EXPECT_EQ(select(nullptr).size(), 25U);
    EXPECT_FALSE(allocationRefused());
}

// ---- converting ----

using KSChanToBandTest = BandsTest;

TEST_F(KSChanToBandTest, GivesTheFirstBandOfTheChannel) {
    useCentres({0.4F, 0.5F, 0.6F});
    dataSet->pBandRefs[0].nChan = 7;
    dataSet->pBandRefs[2].nChan = 2;
    EXPECT_EQ(KSChanToBand(dataSet, 7), 0);
    EXPECT_EQ(KSChanToBand(dataSet, 2), 1);
    EXPECT_EQ(KSChanToBand(dataSet, 3), -1);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSChanToBandTest, WithoutBandsThereIsNone) {
    KSDataSet empty{};
    EXPECT_EQ(KSChanToBand(&empty, 1), -1);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSChanToBandTest, ReportsANullDataSet) {
    EXPECT_EQ(KSChanToBand(nullptr, 1), -1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pDataSet == NULL.\n", "KSChanToBand ()")}));
}

using KSBandToChanTest = BandsTest;

TEST_F(KSBandToChanTest, GivesTheChannel) {
    useCentres({0.4F, 0.5F});
    dataSet->pBandRefs[1].nChan = 9;
    EXPECT_EQ(KSBandToChan(dataSet, 0), 1);
    EXPECT_EQ(KSBandToChan(dataSet, 1), 9);
}

TEST_F(KSBandToChanTest, ReportsWhatIsNoBand) {
    useCentres({0.4F, 0.5F});
    EXPECT_EQ(KSBandToChan(dataSet, 2), -1);
    EXPECT_EQ(KSBandToChan(dataSet, -1), -1);
    EXPECT_EQ(KSBandToChan(nullptr, -1), -1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: nBandInd is outside of valid range.\n", "KSBandToChan ()"),
                                       failure("%s: nBandInd is outside of valid range.\n", "KSBandToChan ()"),
                                       failure("%s: pDataSet == NULL.\n", "KSBandToChan ()")}));
}

using KSBandToWlenTest = BandsTest;

TEST_F(KSBandToWlenTest, GivesTheCentre) {
    useCentres({0.4F, 0.5F});
    EXPECT_EQ(KSBandToWlen(dataSet, 1), 0.5F);
}

TEST_F(KSBandToWlenTest, ReportsWhatHasNoWavelength) {
    useCentres({0.4F, 0.5F});
    dataSet->Sensor.pBandResp[1].eRespType = KS_RT_UNKNOWN;
    EXPECT_EQ(KSBandToWlen(nullptr, 5), -1.0F);
    EXPECT_EQ(KSBandToWlen(dataSet, 2), -1.0F);
    EXPECT_EQ(KSBandToWlen(dataSet, -1), -1.0F);
    EXPECT_EQ(KSBandToWlen(dataSet, 1), -1.0F);
    EXPECT_EQ(
        host().reports,
        (Reports{failure("%s: pDataSet == NULL.\n", "KSBandToWlen ()"),
                 failure("%s: nBandInd is outside of valid range.\n", "KSBandToWlen ()"),
                 failure("%s: nBandInd is outside of valid range.\n", "KSBandToWlen ()"),
                 failure("%s: pDataSet->Sensor.pBandResp[%d].eRespType  == KS_RT_UNKNOWN\n", "KSBandToWlen ()", 1)}));
}

using KSWlenToBandTest = BandsTest;

TEST_F(KSWlenToBandTest, GivesTheFirstBandOfEqualWavelength) {
    useCentres({0.4F, 0.5004F, 0.5F, 0.6F});
    EXPECT_EQ(KSWlenToBand(dataSet, 0.5F), 1);
    EXPECT_EQ(KSWlenToBand(dataSet, 0.6004F), 3);
    EXPECT_EQ(KSWlenToBand(dataSet, 0.45F), -1);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSWlenToBandTest, ABandOfUnknownResponseEndsTheSearch) {
    useCentres({0.4F, 0.5F, 0.6F});
    dataSet->Sensor.pBandResp[1].eRespType = KS_RT_UNKNOWN;
    EXPECT_EQ(KSWlenToBand(dataSet, 0.4F), 0);
    EXPECT_EQ(host().reports, Reports{});
    EXPECT_EQ(KSWlenToBand(dataSet, 0.6F), -1);
    dataSet->Sensor.pBandResp[0].eRespType = KS_RT_UNKNOWN;
    EXPECT_EQ(KSWlenToBand(dataSet, 0.4F), -1);
    EXPECT_EQ(
        host().reports,
        (Reports{failure("%s: pDataSet->Sensor.pBandResp[%d].eRespType  == KS_RT_UNKNOWN\n", "KSWlenToBand ()", 1),
                 failure("%s: pDataSet->Sensor.pBandResp[%d].eRespType  == KS_RT_UNKNOWN\n", "KSWlenToBand ()", 0)}));
}

TEST_F(KSWlenToBandTest, NoBandsAndNoDataSet) {
    KSDataSet empty{};
    EXPECT_EQ(KSWlenToBand(&empty, 0.4F), -1);
    EXPECT_EQ(host().reports, Reports{});
    EXPECT_EQ(KSWlenToBand(nullptr, 0.4F), -1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pDataSet == NULL.\n", "KSWlenToBand ()")}));
}

// ---- storage ----

using KSEvalBandMapFmtTest = BandsTest;

TEST_F(KSEvalBandMapFmtTest, CountsAndListsTheBandsOfAStorage) {
    useCentres({0.4F, 0.5F, 0.6F});
    dataSet->pBandRefs[0].eStorage = KS_STORE_VQ;
    dataSet->pBandRefs[2].eStorage = KS_STORE_VQ;
    std::vector<int> map(3, -7);
    int count = -7;
    EXPECT_EQ(KSEvalBandMapFmt(dataSet, KS_STORE_VQ, map.data(), &count), 0);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(map, (std::vector<int>{0, 2, -7}));
    EXPECT_EQ(KSEvalBandMapFmt(dataSet, KS_STORE_EXPLICIT, nullptr, &count), 0);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(KSEvalBandMapFmt(dataSet, 5, map.data(), &count), 0);
    EXPECT_EQ(count, 0);
}

TEST_F(KSEvalBandMapFmtTest, WithoutBandsTheCountIsZero) {
    KSDataSet empty{};
    int count = -7;
    EXPECT_EQ(KSEvalBandMapFmt(&empty, KS_STORE_VQ, nullptr, &count), 0);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSEvalBandMapFmtTest, ReportsWhatIsMissing) {
    KSDataSet hollow{};
    hollow.Sensor.nNumBands = 1;
    int count = 0;
    EXPECT_EQ(KSEvalBandMapFmt(nullptr, KS_STORE_VQ, nullptr, &count), 1);
    EXPECT_EQ(KSEvalBandMapFmt(&hollow, KS_STORE_VQ, nullptr, &count), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pDataSet == NULL.\n", "KSEvalBandMapFmt ()"),
                                       failure("%s: pDataSet->pBandRefs == NULL && pDataSet->Sensor.nNumBands > 0.\n",
                                               "KSEvalBandMapFmt ()")}));
}

// ---- placeholder responses ----

using KSDummyBandRespTest = BandsTest;

TEST_F(KSDummyBandRespTest, NumbersTheBandsAndReturnsOne) {
    useCentres({0.4F, 0.5F, 0.6F});
    EXPECT_EQ(KSDummyBandResp(dataSet), 1);
    for (int b = 0; b < 3; ++b) {
        EXPECT_EQ(dataSet->Sensor.pBandResp[b].eRespType, KS_RT_BOX);
        EXPECT_EQ(dataSet->Sensor.pBandResp[b].fCentre, static_cast<float>(b + 1));
        EXPECT_EQ(dataSet->Sensor.pBandResp[b].fFWHM, 1.0F);
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSDummyBandRespTest, LeavesCustomSamplesAllocated) {
    useCentres({0.4F});
    float* samples = heapArray(std::vector<float>{1.0F, 2.0F});
    dataSet->Sensor.pBandResp[0].eRespType = KS_RT_CUSTOM;
    dataSet->Sensor.pBandResp[0].pafSamples = samples;
    EXPECT_EQ(KSDummyBandResp(dataSet), 1);
    EXPECT_EQ(samples[1], 2.0F);
    std::free(samples);
}

TEST_F(KSDummyBandRespTest, ReportsWhatIsMissing) {
    KSDataSet hollow{};
    hollow.Sensor.nNumBands = 1;
    EXPECT_EQ(KSDummyBandResp(nullptr), 1);
    EXPECT_EQ(KSDummyBandResp(&hollow), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pDataSet == NULL.\n", "KSDummyBandResp ()"),
                                       failure("%s: pDataSet->Sensor.pBandResp == NULL.\n", "KSDummyBandResp ()")}));
}

}  // namespace
