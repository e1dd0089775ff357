// Reading windows from data sets and writing them back: checks, the one transfer, interleaves, gains and offsets to the
// bit.
#include <kslib.h>

#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

#include "bits.hpp"
#include "datasets.hpp"
#include "fixture.hpp"
#include "windows.hpp"

using namespace kit;

namespace {

/// An image of 8 x 6 pixels and four channels of distinct values, open for writing, and a window that a test sets up.
struct TransferTest : LibraryTest {
    KSDataSet* dataSet = nullptr;
    KSWinEx window{};

    static float stored(int channel, int x, int y) { return static_cast<float>(1000 * channel + 10 * x + y); }
    FakeFile& file() const { return host().file("cube.img"); }

    void SetUp() override {
        LibraryTest::SetUp();
        host().addFile("cube.img", 8, 6, {4, 4, 4, 4});
        for (int channel = 1; channel <= 4; ++channel) {
            for (int y = 0; y < 6; ++y) {
                for (int x = 0; x < 8; ++x) file().sample(channel, x, y) = stored(channel, x, y);
            }
        }
        dataSet = heapDataSet(4);
        dataSet->nXSize = 8;
        dataSet->nYSize = 6;
        dataSet->GDBFile = host().open("cube.img", true);
    }
    void TearDown() override {
        KSFreeWinEx(&window);
        GDBClose(dataSet->GDBFile);
        freeWhole(dataSet);
        LibraryTest::TearDown();
    }
    void use(const KSWinEx& other) {
        KSFreeWinEx(&window);
        window = other;
    }
    void addTransforms() const {
        appendTransform(*dataSet,
                        heapTransform(KS_RQ_APPRAD, {2.0F, 3.0F, 4.0F, 5.0F}, {1.0F, 10.0F, 100.0F, 1000.0F}));
        appendTransform(*dataSet, heapTransform(KS_RQ_REFL, {0.5F, 0.5F, 0.5F, 0.5F}, {0.25F, 0.25F, 0.25F, 0.25F}));
    }
    /// Puts values into the channels in pixel order, bands fastest.
    void store(const std::vector<float>& values) const {
        std::size_t at = 0;
        for (int y = 0; y < 6; ++y) {
            for (int x = 0; x < 8; ++x) {
                for (int channel = 1; channel <= 4; ++channel) file().sample(channel, x, y) = values[at++];
            }
        }
    }
    std::vector<float> allStored() const {
        std::vector<float> values;
        for (int y = 0; y < 6; ++y) {
            for (int x = 0; x < 8; ++x) {
                for (int channel = 1; channel <= 4; ++channel) values.push_back(file().sample(channel, x, y));
            }
        }
        return values;
    }
};

// ---- reading ----

struct KSReadWinExTest : TransferTest {
    void expectRefused(const Report& report) {
        host().forget();
        EXPECT_EQ(KSReadWinEx(dataSet, &window), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
        EXPECT_EQ(host().count("GDBRealChanIOLow"), 0);
    }
};

TEST_F(KSReadWinExTest, PlacesTheValuesInEveryInterleave) {
    for (const int interleave : kInterleaves) {
        use(allocatedWindow(interleave, 3, 2, {3, 0}));
        window.nXOff = 4;
        window.nYOff = 1;
        ASSERT_EQ(KSReadWinEx(dataSet, &window), 0);
        for (int y = 0; y < 2; ++y) {
            for (int x = 0; x < 3; ++x) {
                EXPECT_EQ(component(window, x, y, 0), stored(4, 4 + x, 1 + y));
                EXPECT_EQ(component(window, x, y, 1), stored(1, 4 + x, 1 + y));
            }
        }
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSReadWinExTest, MakesOneTransferWithBothSizesAndTheChannelMap) {
    use(windowOf(KS_INTLV_LINE, 7, 5, 3));
    window.nXOff = 1;
    window.SampDesc.nXSampleInt = 3;
    window.SampDesc.nYSampleInt = 2;
    ASSERT_EQ(KSAllocWinEx(&window), 0);
    dataSet->pBandRefs[2].nChan = 4;
    for (int j = 0; j < 3; ++j) window.SampDesc.panBandMap[j] = 2 - j;
    ASSERT_EQ(KSReadWinEx(dataSet, &window), 0);
    EXPECT_EQ(host().argumentsOf("GDBRealChanIOLow"), "cube.img, 0, 1, 0, 7, 5, pointer, 2, 2, 3, [4 2 1]");
}

TEST_F(KSReadWinExTest, ReadsEveryStorageFromItsChannel) {
    dataSet->pBandRefs[1].eStorage = KS_STORE_VQ;
    use(allocatedWindow(KS_INTLV_PIXEL, 1, 1, {1}));
    ASSERT_EQ(KSReadWinEx(dataSet, &window), 0);
    EXPECT_EQ(window.pafSamples[0], stored(2, 0, 0));
}

TEST_F(KSReadWinExTest, AnUnknownInterleaveIsHandledAsBandSequential) {
    use(allocatedWindow(KS_INTLV_BAND, 3, 2, {1, 2}));
    window.eBandIntlv = 7;
    ASSERT_EQ(KSReadWinEx(dataSet, &window), 0);
    window.eBandIntlv = KS_INTLV_BAND;
    EXPECT_EQ(component(window, 2, 1, 0), stored(2, 2, 1));
    EXPECT_EQ(component(window, 2, 1, 1), stored(3, 2, 1));
}

TEST_F(KSReadWinExTest, AppliesGainsAndOffsetsByBand) {
    addTransforms();
    for (const int interleave : kInterleaves) {
        use(allocatedWindow(interleave, 2, 1, {3, 1}));
        window.nRadTransLev = 1;
        ASSERT_EQ(KSReadWinEx(dataSet, &window), 0);
        EXPECT_EQ(component(window, 1, 0, 0), 5.0F * stored(4, 1, 0) + 1000.0F);
        EXPECT_EQ(component(window, 1, 0, 1), 3.0F * stored(2, 1, 0) + 10.0F);
    }
}

TEST_F(KSReadWinExTest, LevelsUpToTheChainAreAccepted) {
    addTransforms();
    use(allocatedWindow(KS_INTLV_PIXEL, 1, 1, {0}));
    for (const int level : {-1, 0}) {
        window.nRadTransLev = level;
        ASSERT_EQ(KSReadWinEx(dataSet, &window), 0);
        EXPECT_EQ(window.pafSamples[0], stored(1, 0, 0));
    }
    window.nRadTransLev = 2;
    ASSERT_EQ(KSReadWinEx(dataSet, &window), 0);
    EXPECT_EQ(window.pafSamples[0], 1.0F * stored(1, 0, 0) + 0.75F);
    window.nRadTransLev = 3;
    expectRefused(failure("%s: pWinEx->nRadTransLev > pDataSet->nNumRadTrans.\n", "KSReadWinEx()"));
}

TEST_F(KSReadWinExTest, MultipliesThenAddsInSinglePrecisionToTheBit) {
    const std::vector<float> gains = {0.1F, 3.0F, -1e-3F, 1e20F};
    const std::vector<float> offsets = {0.7F, -1e8F, 0.0F, 1e20F};
    appendTransform(*dataSet, heapTransform(KS_RQ_REFL, gains, offsets));
    const std::vector<int> bandMap = {2, 0, 3, 1};
    for (const Kind& kind : kindsOfData(8 * 6 * 4)) {
        store(kind.values);
        for (const int interleave : kInterleaves) {
            use(allocatedWindow(interleave, 8, 6, bandMap));
            window.nRadTransLev = 1;
            ASSERT_EQ(KSReadWinEx(dataSet, &window), 0);
            std::vector<float> actual;
            std::vector<float> expected;
            for (int y = 0; y < 6; ++y) {
                for (int x = 0; x < 8; ++x) {
                    for (std::size_t j = 0; j < bandMap.size(); ++j) {
                        const auto band = static_cast<std::size_t>(bandMap[j]);
                        volatile const float product = gains[band] * file().sample(bandMap[j] + 1, x, y);
                        expected.push_back(product + offsets[band]);
                        actual.push_back(component(window, x, y, static_cast<int>(j)));
                    }
                }
            }
            EXPECT_TRUE(sameBits(actual, expected)) << kind.name << ", interleave " << interleave;
        }
    }
}

TEST_F(KSReadWinExTest, StoredValuesComeThroughToTheBit) {
    for (const Kind& kind : kindsOfData(8 * 6 * 4)) {
        store(kind.values);
        for (const int interleave : kInterleaves) {
            use(allocatedWindow(interleave, 8, 6, {0, 1, 2, 3}));
            ASSERT_EQ(KSReadWinEx(dataSet, &window), 0);
            std::vector<float> actual;
            for (int y = 0; y < 6; ++y) {
                for (int x = 0; x < 8; ++x) {
                    for (int b = 0; b < 4; ++b) actual.push_back(component(window, x, y, b));
                }
            }
            EXPECT_TRUE(sameBits(actual, kind.values)) << kind.name << ", interleave " << interleave;
        }
    }
}

TEST_F(KSReadWinExTest, WindowsWiderThanAnyBlockOfTheKernel) {
    constexpr int kWidth = 101;
    constexpr int kBands = 67;
    GDBClose(dataSet->GDBFile);
    freeWhole(dataSet);
    FakeFile& wide = host().addFile("wide.img", kWidth, 2, std::vector<int>(kBands, 4));
    std::vector<float> gains;
    std::vector<float> offsets;
    std::vector<int> bandMap;
    for (int b = 0; b < kBands; ++b) {
        for (int x = 0; x < kWidth; ++x) wide.sample(b + 1, x, 1) = static_cast<float>(b * 1000 + x) / 7.0F;
        gains.push_back(0.3F * static_cast<float>(b));
        offsets.push_back(-0.9F * static_cast<float>(b));
        bandMap.push_back((b * 13) % kBands);
    }
    dataSet = heapDataSet(kBands);
    dataSet->nXSize = kWidth;
    dataSet->nYSize = 2;
    dataSet->GDBFile = host().open("wide.img");
    appendTransform(*dataSet, heapTransform(KS_RQ_REFL, gains, offsets));
    for (const int interleave : kInterleaves) {
        use(allocatedWindow(interleave, kWidth, 2, bandMap));
        window.nRadTransLev = 1;
        ASSERT_EQ(KSReadWinEx(dataSet, &window), 0);
        for (int x = 0; x < kWidth; ++x) {
            for (int j = 0; j < kBands; ++j) {
                const int b = bandMap[static_cast<std::size_t>(j)];
                volatile const float product = gains[static_cast<std::size_t>(b)] * wide.sample(b + 1, x, 1);
                ASSERT_TRUE(sameBits(component(window, x, 1, j), product + offsets[static_cast<std::size_t>(b)]));
            }
        }
    }
}

// Everything is broken at first and mended in the order in which it is tested.
TEST_F(KSReadWinExTest, ChecksInOrder) {
    EXPECT_EQ(KSReadWinEx(nullptr, nullptr), 1);
    EXPECT_EQ(KSReadWinEx(dataSet, nullptr), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pDataSet == NULL.\n", "KSReadWinEx()"),
                                       failure("%s: pWinEx == NULL.\n", "KSReadWinEx()")}));
    KSInitWinEx(&window);
    window.nXOff = -1;
    window.nYOff = -1;
    window.nXSize = 10;
    window.nYSize = 8;
    window.nRadTransLev = 1;
    window.nNumXSamples = 99;
    window.nNumYSamples = 99;
    expectRefused(failure("%s: pWinEx->SampDesc.nXSampleInt <= 0.\n", "KSReadWinEx()"));
    window.SampDesc.nXSampleInt = 2;
    expectRefused(failure("%s: pWinEx->SampDesc.nYSampleInt <= 0.\n", "KSReadWinEx()"));
    window.SampDesc.nYSampleInt = 2;
    expectRefused(failure("%s: pWinEx->nXOff < 0.\n", "KSReadWinEx()"));
    window.nXOff = 1;
    expectRefused(failure("%s: pWinEx->nYOff < 0.\n", "KSReadWinEx()"));
    window.nYOff = 1;
    expectRefused(failure("%s: pWinEx->nXOff + pWinEx->nXSize > pDataSet->nXSize.\n", "KSReadWinEx()"));
    window.nXSize = 7;
    expectRefused(
        failure("%s: pWinEx->nYOff (%d) + pWinEx->nYSize (%d) > pDataSet->nYSize (%d).\n", "KSReadWinEx()", 1, 8, 6));
    window.nYSize = 5;
    expectRefused(failure("%s: pWinEx->SampDesc.nNumBands <= 0.\n", "KSReadWinEx()"));
    window.SampDesc.nNumBands = 2;
    expectRefused(failure("%s: pWinEx->SampDesc.panBandMap == NULL.\n", "KSReadWinEx()"));
    window.SampDesc.panBandMap = heapArray(std::vector<int>{0, 1});
    expectRefused(failure("%s: pWinEx->nRadTransLev > pDataSet->nNumRadTrans.\n", "KSReadWinEx()"));
    window.nRadTransLev = 0;
    expectRefused(
        failure("%s: pWinEx->nNumXSamples != pWinEx->nXSize / pWinEx->SampDesc.nXSampleInt.\n", "KSReadWinEx()"));
    window.nNumXSamples = 3;
    expectRefused(
        failure("%s: pWinEx->nNumYSamples != pWinEx->nYSize / pWinEx->SampDesc.nYSampleInt.\n", "KSReadWinEx()"));
    window.nNumYSamples = 2;
    expectRefused(failure("%s: pWinEx->papafStart == NULL.\n", "KSReadWinEx()"));
    window.papafStart = static_cast<float**>(std::calloc(2, sizeof(float*)));
    expectRefused(failure("%s: pWinEx->pafSamples == NULL.\n", "KSReadWinEx()"));
    window.pafSamples = heapArray(std::vector<float>(12));
    EXPECT_EQ(KSReadWinEx(dataSet, &window), 0);
}

TEST_F(KSReadWinExTest, OffsetPlusSizeDoesNotOverflow) {
    use(allocatedWindow(KS_INTLV_PIXEL, 3, 2, {0}));
    window.nXOff = std::numeric_limits<int>::max();
    expectRefused(failure("%s: pWinEx->nXOff + pWinEx->nXSize > pDataSet->nXSize.\n", "KSReadWinEx()"));
    window.nXOff = 0;
    window.nYOff = std::numeric_limits<int>::max();
    expectRefused(failure("%s: pWinEx->nYOff (%d) + pWinEx->nYSize (%d) > pDataSet->nYSize (%d).\n", "KSReadWinEx()",
                          std::numeric_limits<int>::max(), 2, 6));
}

TEST_F(KSReadWinExTest, AWindowOfNoSizeSucceedsWithoutTheHost) {
    use(allocatedWindow(KS_INTLV_PIXEL, 3, 2, {0}));
    window.nXSize = 0;
    window.nNumXSamples = 0;
    EXPECT_EQ(KSReadWinEx(dataSet, &window), 0);
    window.nXSize = 3;
    window.nNumXSamples = 3;
    window.nYSize = 0;
    window.nNumYSamples = 0;
    EXPECT_EQ(KSReadWinEx(dataSet, &window), 0);
    EXPECT_EQ(host().calls, std::vector<Call>{});
}

TEST_F(KSReadWinExTest, BandsOutsideTheDataSetAreRefusedBeforeTheHostIsCalled) {
    for (const int band : {4, -1}) {
        use(allocatedWindow(KS_INTLV_PIXEL, 3, 2, {0, band}));
        host().forget();
        EXPECT_EQ(KSReadWinEx(dataSet, &window), 1);
        ASSERT_EQ(host().reports.size(), 1U);
        EXPECT_EQ(host().reports[0].code, 83);
        EXPECT_EQ(host().reports[0].label, "KSReadWinEx()");
        EXPECT_EQ(host().count("GDBRealChanIOLow"), 0);
    }
}

TEST_F(KSReadWinExTest, TheResultOfTheTransferIsNotUsed) {
    use(allocatedWindow(KS_INTLV_LINE, 3, 2, {0}));
    host().failCall("GDBRealChanIOLow");
    EXPECT_EQ(KSReadWinEx(dataSet, &window), 0);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSReadWinExTest, NamesWhatCouldNotBeAllocated) {
    addTransforms();
    const Report ownTransform = failure("%s: pRadTrans == NULL, KSCreateRadTrans() failed.\n", "KSReadWinEx()");
    const std::vector<Reports> transform = {
        {debugOutput("%s: pRadTrans == NULL, HMalloc() failed\n", "KSCreateRadTrans()"), ownTransform},
        {debugOutput("%s: pRadTrans->pafGains == NULL, HMalloc() failed\n", "KSCreateRadTrans()"), ownTransform},
        {debugOutput("%s: pRadTrans->pafOffsets == NULL, HMalloc() failed\n", "KSCreateRadTrans()"), ownTransform},
        {failure("%s: pafGains == NULL, HMalloc() failed.\n", "KSReadWinEx()")},
        {failure("%s: pafOffsets == NULL, HMalloc() failed.\n", "KSReadWinEx()")}};
    const Reports buffer = {failure("%s: pBuf == NULL.\n", "KSReadWinEx()")};
    const Reports channels = {failure("%s: failed to allocate memory for the channel map array.\n", "KSReadWinEx()")};
    for (const int interleave : kInterleaves) {
        for (const int level : {0, 1}) {
            std::vector<Reports> promised = level == 0 ? std::vector<Reports>{} : transform;
            if (interleave != KS_INTLV_PIXEL) promised.push_back(buffer);
            promised.push_back(channels);
            use(allocatedWindow(interleave, 3, 2, {0, 1}));
            window.nRadTransLev = level;
            for (std::size_t n = 0; n < promised.size(); ++n) {
                host().forget();
                refuseAllocation(static_cast<int>(n) + 1);
                EXPECT_EQ(KSReadWinEx(dataSet, &window), 1);
                EXPECT_EQ(host().reports, promised[n]) << "allocation " << n + 1;
                EXPECT_EQ(host().count("GDBRealChanIOLow"), 0);
                EXPECT_NE(window.pafSamples, nullptr);
            }
            refuseAllocation(static_cast<int>(promised.size()) + 1);
            EXPECT_EQ(KSReadWinEx(dataSet, &window), 0);
            EXPECT_FALSE(allocationRefused());
            refuseAllocation(0);
        }
    }
}

TEST_F(KSReadWinExTest, ABrokenChainIsReported) {
    addTransforms();
    KSRadTrans* second = dataSet->papRadTransSeq[1];
    dataSet->papRadTransSeq[1] = nullptr;
    use(allocatedWindow(KS_INTLV_PIXEL, 3, 2, {0}));
    window.nRadTransLev = 2;
    EXPECT_EQ(KSReadWinEx(dataSet, &window), 1);
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: *(papRadTransSeq + i) == NULL\n", "KSCombRadTrans()"),
                                       failure("%s: KSCombRadTrans() failed.\n", "KSReadWinEx()")}));
    dataSet->papRadTransSeq[1] = second;
}

// ---- writing ----

struct KSWriteWinExTest : TransferTest {
    void expectRefused(const Report& report) {
        host().forget();
        EXPECT_EQ(KSWriteWinEx(dataSet, &window), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
        EXPECT_EQ(host().count("GDBRealChanIOLow"), 0);
    }
    void fill() const {
        for (int y = 0; y < window.nNumYSamples; ++y) {
            for (int x = 0; x < window.nNumXSamples; ++x) {
                for (int b = 0; b < window.SampDesc.nNumBands; ++b) {
                    component(window, x, y, b) = static_cast<float>(-(100 * b + 10 * x + y + 1));
                }
            }
        }
    }
};

TEST_F(KSWriteWinExTest, StoresEveryInterleave) {
    for (const int interleave : kInterleaves) {
        use(allocatedWindow(interleave, 3, 2, {3, 0}));
        window.nXOff = 4;
        window.nYOff = 1;
        fill();
        host().forget();
        ASSERT_EQ(KSWriteWinEx(dataSet, &window), 0);
        EXPECT_EQ(host().argumentsOf("GDBRealChanIOLow"), "cube.img, 1, 4, 1, 3, 2, pointer, 3, 2, 2, [4 1]");
        for (int y = 0; y < 2; ++y) {
            for (int x = 0; x < 3; ++x) {
                EXPECT_EQ(file().sample(4, 4 + x, 1 + y), component(window, x, y, 0));
                EXPECT_EQ(file().sample(1, 4 + x, 1 + y), component(window, x, y, 1));
            }
        }
        EXPECT_EQ(file().sample(4, 3, 1), stored(4, 3, 1)) << "beside the window";
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSWriteWinExTest, UndoesGainsByComponentNotByBand) {
    addTransforms();
    for (const int interleave : kInterleaves) {
        use(allocatedWindow(interleave, 1, 1, {3, 1}));
        window.nRadTransLev = 1;
        component(window, 0, 0, 0) = 21.0F;
        component(window, 0, 0, 1) = 40.0F;
        ASSERT_EQ(KSWriteWinEx(dataSet, &window), 0);
        EXPECT_EQ(file().sample(4, 0, 0), (21.0F - 1.0F) / 2.0F);
        EXPECT_EQ(file().sample(2, 0, 0), (40.0F - 10.0F) / 3.0F);
    }
}

TEST_F(KSWriteWinExTest, OnlyAPixelInterleavedWindowHoldsTheStoredValuesAfterwards) {
    addTransforms();
    for (const int interleave : kInterleaves) {
        use(allocatedWindow(interleave, 1, 1, {0, 1}));
        window.nRadTransLev = 1;
        component(window, 0, 0, 0) = 21.0F;
        component(window, 0, 0, 1) = 40.0F;
        ASSERT_EQ(KSWriteWinEx(dataSet, &window), 0);
        const bool pixel = interleave == KS_INTLV_PIXEL;
        EXPECT_EQ(component(window, 0, 0, 0), pixel ? 10.0F : 21.0F);
        EXPECT_EQ(component(window, 0, 0, 1), pixel ? 10.0F : 40.0F);
    }
}

TEST_F(KSWriteWinExTest, SubtractsThenDividesInSinglePrecisionToTheBit) {
    const std::vector<float> gains = {0.1F, 3.0F, -1e-3F, 0.0F};
    const std::vector<float> offsets = {0.7F, -1e8F, 0.0F, 5.0F};
    appendTransform(*dataSet, heapTransform(KS_RQ_REFL, gains, offsets));
    for (const Kind& kind : kindsOfData(8 * 6 * 4)) {
        for (const int interleave : kInterleaves) {
            use(allocatedWindow(interleave, 8, 6, {0, 1, 2, 3}));
            window.nRadTransLev = 1;
            std::vector<float> expected;
            for (std::size_t i = 0; i < kind.values.size(); ++i) {
                const std::size_t b = i % 4;
                const int x = static_cast<int>(i / 4 % 8);
                const int y = static_cast<int>(i / 32);
                component(window, x, y, static_cast<int>(b)) = kind.values[i];
                volatile const float difference = kind.values[i] - offsets[b];
                expected.push_back(difference / gains[b]);
            }
            ASSERT_EQ(KSWriteWinEx(dataSet, &window), 0);
            EXPECT_TRUE(sameBits(allStored(), expected)) << kind.name << ", interleave " << interleave;
        }
    }
}

TEST_F(KSWriteWinExTest, LevelsBelowOneUndoNothing) {
    addTransforms();
    use(allocatedWindow(KS_INTLV_PIXEL, 1, 1, {0}));
    window.pafSamples[0] = 3.5F;
    for (const int level : {-1, 0}) {
        window.nRadTransLev = level;
        EXPECT_EQ(KSWriteWinEx(dataSet, &window), 0);
        EXPECT_EQ(file().sample(1, 0, 0), 3.5F);
    }
}

TEST_F(KSWriteWinExTest, ChecksInOrder) {
    EXPECT_EQ(KSWriteWinEx(nullptr, nullptr), 1);
    EXPECT_EQ(KSWriteWinEx(dataSet, nullptr), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pDataSet == NULL.\n", "KSWriteWinEx()"),
                                       failure("%s: pWinEx == NULL.\n", "KSWriteWinEx()")}));
    KSInitWinEx(&window);
    window.SampDesc.nXSampleInt = 2;
    window.SampDesc.nYSampleInt = 0;
    window.nXOff = -1;
    window.nYOff = -1;
    window.nXSize = 10;
    window.nYSize = 8;
    window.nRadTransLev = 1;
    dataSet->pBandRefs[1].eStorage = KS_STORE_VQ;
    dataSet->pBandRefs[2].eStorage = KS_STORE_VQ;
    expectRefused(failure("%s: pWinEx->SampDesc.nXSampleInt != 1.\n", "KSWriteWinEx()"));
    window.SampDesc.nXSampleInt = 1;
    expectRefused(failure("%s: pWinEx->SampDesc.nYSampleInt != 1.\n", "KSWriteWinEx()"));
    window.SampDesc.nYSampleInt = 1;
    expectRefused(failure("%s: pWinEx->nXOff < 0.\n", "KSWriteWinEx()"));
    window.nXOff = 1;
    expectRefused(failure("%s: pWinEx->nYOff < 0.\n", "KSWriteWinEx()"));
    window.nYOff = 1;
    expectRefused(failure("%s: pWinEx->nXOff + pWinEx->nXSize > pDataSet->nXSize.\n", "KSWriteWinEx()"));
    window.nXSize = 7;
    expectRefused(failure("%s: pWinEx->nYOff + pWinEx->nYSize > pDataSet->nXSize.\n", "KSWriteWinEx()"));
    window.nYSize = 5;
    expectRefused(failure("%s: pWinEx->SampDesc.nNumBands <= 0.\n", "KSWriteWinEx()"));
    window.SampDesc.nNumBands = 3;
    expectRefused(failure("%s: pWinEx->SampDesc.panBandMap == NULL.\n", "KSWriteWinEx()"));
    window.SampDesc.panBandMap = heapArray(std::vector<int>{0, 2, 1});
    expectRefused(failure("%s: pWinEx->nRadTransLev > pDataSet->nNumRadTrans.\n", "KSWriteWinEx()"));
    window.nRadTransLev = 0;
    expectRefused(failure("%s: window contains data for a band %d, which is not stored in explicit format.\n",
                          "KSWriteWinEx()", 3));
    dataSet->pBandRefs[2].eStorage = KS_STORE_EXPLICIT;
    expectRefused(failure("%s: window contains data for a band %d, which is not stored in explicit format.\n",
                          "KSWriteWinEx()", 2));
}

TEST_F(KSWriteWinExTest, TheImagesHeightIsWhatTheLinesAreComparedWith) {
    dataSet->nXSize = 3;  // the message names nXSize; the comparison does not use it
    use(allocatedWindow(KS_INTLV_PIXEL, 3, 6, {0}));
    fill();
    EXPECT_EQ(KSWriteWinEx(dataSet, &window), 0);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSWriteWinExTest, AWindowOfNoSizeSucceedsWithoutTheHostAfterTheStorageCheck) {
    use(allocatedWindow(KS_INTLV_PIXEL, 3, 2, {1}));
    window.nXSize = 0;
    EXPECT_EQ(KSWriteWinEx(dataSet, &window), 0);
    window.nXSize = 3;
    window.nYSize = -1;
    EXPECT_EQ(KSWriteWinEx(dataSet, &window), 0);
    EXPECT_EQ(host().calls, std::vector<Call>{});
    dataSet->pBandRefs[1].eStorage = KS_STORE_VQ;
    expectRefused(failure("%s: window contains data for a band %d, which is not stored in explicit format.\n",
                          "KSWriteWinEx()", 2));
}

TEST_F(KSWriteWinExTest, WhatTheRecordCannotVouchForIsRefusedBeforeTheHostIsCalled) {
    const auto expectOwnReport = [this](const char* what) {
        host().forget();
        EXPECT_EQ(KSWriteWinEx(dataSet, &window), 1) << what;
        ASSERT_EQ(host().reports.size(), 1U) << what;
        EXPECT_EQ(host().reports[0].label, "KSWriteWinEx()");
        EXPECT_EQ(host().count("GDBRealChanIOLow"), 0) << what;
    };
    use(allocatedWindow(KS_INTLV_PIXEL, 3, 2, {0, 4}));
    expectOwnReport("a band past the last");
    use(allocatedWindow(KS_INTLV_PIXEL, 3, 2, {-1}));
    expectOwnReport("a band before the first");
    addTransforms();
    use(allocatedWindow(KS_INTLV_PIXEL, 3, 2, {0, 1, 2, 3, 0}));
    window.nRadTransLev = 1;
    expectOwnReport("more components than the transform has bands");
    window.nRadTransLev = 0;
    fill();
    host().forget();
    EXPECT_EQ(KSWriteWinEx(dataSet, &window), 0) << "which do not matter without a transform";
}

TEST_F(KSWriteWinExTest, TheResultOfTheTransferIsNotUsed) {
    use(allocatedWindow(KS_INTLV_LINE, 3, 2, {0}));
    fill();
    host().failCall("GDBRealChanIOLow");
    EXPECT_EQ(KSWriteWinEx(dataSet, &window), 0);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSWriteWinExTest, NamesWhatCouldNotBeAllocatedAndWritesNothing) {
    addTransforms();
    const Report ownTransform = failure("%s: pRadTrans == NULL, KSCreateRadTrans() failed.\n", "KSWriteWinEx()");
    const std::vector<Reports> transform = {
        {debugOutput("%s: pRadTrans == NULL, HMalloc() failed\n", "KSCreateRadTrans()"), ownTransform},
        {debugOutput("%s: pRadTrans->pafGains == NULL, HMalloc() failed\n", "KSCreateRadTrans()"), ownTransform},
        {debugOutput("%s: pRadTrans->pafOffsets == NULL, HMalloc() failed\n", "KSCreateRadTrans()"), ownTransform}};
    const Reports buffer = {failure("%s: pBuf == NULL.\n", "KSWriteWinEx()")};
    const Reports channels = {failure("%s: failed to allocate memory for the channel map array.\n", "KSWriteWinEx()")};
    const std::vector<float> before = allStored();
    for (const int interleave : kInterleaves) {
        std::vector<Reports> promised = transform;
        if (interleave != KS_INTLV_PIXEL) promised.push_back(buffer);
        promised.push_back(channels);
        use(allocatedWindow(interleave, 3, 2, {0, 1}));
        window.nRadTransLev = 1;
        fill();
        for (std::size_t n = 0; n < promised.size(); ++n) {
            host().forget();
            refuseAllocation(static_cast<int>(n) + 1);
            EXPECT_EQ(KSWriteWinEx(dataSet, &window), 1);
            EXPECT_EQ(host().reports, promised[n]) << "allocation " << n + 1;
            EXPECT_EQ(host().count("GDBRealChanIOLow"), 0);
            EXPECT_EQ(component(window, 0, 0, 0), -1.0F) << "the samples are as they were";
        }
    }
    EXPECT_EQ(allStored(), before);
}

TEST_F(KSWriteWinExTest, ABrokenChainIsReported) {
    addTransforms();
    KSRadTrans* first = dataSet->papRadTransSeq[0];
    dataSet->papRadTransSeq[0] = nullptr;
    use(allocatedWindow(KS_INTLV_PIXEL, 3, 2, {0}));
    fill();
    window.nRadTransLev = 1;
    EXPECT_EQ(KSWriteWinEx(dataSet, &window), 1);
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: *(papRadTransSeq + i) == NULL\n", "KSCombRadTrans()"),
                                       failure("%s: KSCombRadTrans() failed.\n", "KSWriteWinEx()")}));
    dataSet->papRadTransSeq[0] = first;
}

TEST_F(KSWriteWinExTest, WhatIsReadAtALevelIsWrittenBackAtIt) {
    addTransforms();
    const std::vector<float> before = allStored();
    for (const int interleave : kInterleaves) {
        use(allocatedWindow(interleave, 8, 6, {0, 1, 2, 3}));
        window.nRadTransLev = 1;
        ASSERT_EQ(KSReadWinEx(dataSet, &window), 0);
        ASSERT_EQ(KSWriteWinEx(dataSet, &window), 0);
        EXPECT_EQ(allStored(), before);
    }
}

}  // namespace
