// Windows in memory: their life cycle, the band vectors of samples, and copying.
#include <kslib.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

#include "datasets.hpp"
#include "fixture.hpp"
#include "windows.hpp"

using namespace kit;

namespace {

struct WindowTest : LibraryTest {
    KSWinEx window{};

    void expectEmpty() const {
        EXPECT_EQ(window.pafSamples, nullptr);
        EXPECT_EQ(window.papafStart, nullptr);
        EXPECT_EQ(window.SampDesc.panBandMap, nullptr);
    }
    void TearDown() override {
        EXPECT_EQ(KSFreeWinEx(&window), 0);
        LibraryTest::TearDown();
    }
};

// ---- initialising and freeing ----

using KSInitWinExTest = WindowTest;

TEST_F(KSInitWinExTest, SetsPixelInterleaveAndZeroesTheRest) {
    KSWinEx record;
    std::memset(&record, 0x5a, sizeof record);
    KSInitWinEx(&record);
    EXPECT_EQ(record.eBandIntlv, KS_INTLV_PIXEL);
    EXPECT_EQ(record.nRadTransLev, 0);
    EXPECT_EQ(record.nXOff, 0);
    EXPECT_EQ(record.nYOff, 0);
    EXPECT_EQ(record.nXSize, 0);
    EXPECT_EQ(record.nYSize, 0);
    EXPECT_EQ(record.SampDesc.nXSampleInt, 0);
    EXPECT_EQ(record.SampDesc.nYSampleInt, 0);
    EXPECT_EQ(record.SampDesc.nNumBands, 0);
    EXPECT_EQ(record.SampDesc.panBandMap, nullptr);
    EXPECT_EQ(record.nNumXSamples, 0);
    EXPECT_EQ(record.nNumYSamples, 0);
    EXPECT_EQ(record.pafSamples, nullptr);
    EXPECT_EQ(record.papafStart, nullptr);
}

using KSFreeWinExTest = WindowTest;

TEST_F(KSFreeWinExTest, AcceptsNullAndEmptyRecords) {
    EXPECT_EQ(KSFreeWinEx(nullptr), 0);
    KSInitWinEx(&window);
    EXPECT_EQ(KSFreeWinEx(&window), 0);
    EXPECT_EQ(host().calls, std::vector<Call>{});
}

TEST_F(KSFreeWinExTest, ClearsTheArraysAndKeepsTheRest) {
    window = allocatedWindow(KS_INTLV_LINE, 6, 4, {2, 1});
    EXPECT_EQ(KSFreeWinEx(&window), 0);
    expectEmpty();
    EXPECT_EQ(window.eBandIntlv, KS_INTLV_LINE);
    EXPECT_EQ(window.nXSize, 6);
    EXPECT_EQ(window.nNumYSamples, 4);
    EXPECT_EQ(window.SampDesc.nNumBands, 2);
    EXPECT_EQ(KSFreeWinEx(&window), 0) << "twice";
    EXPECT_EQ(KSAllocWinEx(&window), 0) << "and allocated again";
}

// ---- allocating ----

using KSAllocWinExTest = WindowTest;

TEST_F(KSAllocWinExTest, LaysOutOneBlockByInterleave) {
    for (const int interleave : kInterleaves) {
        window = windowOf(interleave, 5, 3, 4);
        ASSERT_EQ(KSAllocWinEx(&window), 0);
        EXPECT_EQ(window.nNumXSamples, 5);
        EXPECT_EQ(window.nNumYSamples, 3);
        const bool planes = interleave == KS_INTLV_BAND;
        for (int i = 0; i < (planes ? 4 : 3); ++i) {
            EXPECT_EQ(window.papafStart[i], window.pafSamples + i * (planes ? 3 * 5 : 4 * 5));
        }
        // Every value and every map entry is the window's to write.
        std::fill_n(window.pafSamples, 4 * 5 * 3, 1.0F);
        std::fill_n(window.SampDesc.panBandMap, 4, 7);
        KSFreeWinEx(&window);
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSAllocWinExTest, TruncatesTheSampleCounts) {
    window = windowOf(KS_INTLV_PIXEL, 10, 7, 1);
    window.SampDesc.nXSampleInt = 3;
    window.SampDesc.nYSampleInt = 2;
    ASSERT_EQ(KSAllocWinEx(&window), 0);
    EXPECT_EQ(window.nNumXSamples, 3);
    EXPECT_EQ(window.nNumYSamples, 3);
}

TEST_F(KSAllocWinExTest, ReportsANullRecord) {
    EXPECT_EQ(KSAllocWinEx(nullptr), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pWinEx == NULL\n", "KSAllocWinEx()")}));
}

TEST_F(KSAllocWinExTest, ChecksTheSizesInOrder) {
    KSInitWinEx(&window);
    window.eBandIntlv = 9;
    window.SampDesc.nXSampleInt = -1;
    const auto expectRefused = [this](const Report& report) {
        host().forget();
        window.SampDesc.panBandMap = heapArray(std::vector<int>{1, 2});
        EXPECT_EQ(KSAllocWinEx(&window), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
        expectEmpty();
    };
    expectRefused(failure("%s: pWinEx->SampDesc.nXSampleInt <= 0.\n", "KSAllocWinEx()"));
    window.SampDesc.nXSampleInt = 1;
    expectRefused(failure("%s: pWinEx->SampDesc.nYSampleInt <= 0.\n", "KSAllocWinEx()"));
    window.SampDesc.nYSampleInt = 1;
    expectRefused(failure("%s: pWinEx->nXSize <= 0.\n", "KSAllocWinEx()"));
    window.nXSize = 2;
    expectRefused(failure("%s: pWinEx->nYSize <= 0.\n", "KSAllocWinEx()"));
    window.nYSize = 2;
    expectRefused(failure("%s: pWinEx->SampDesc.nNumBands <= 0.\n", "KSAllocWinEx()"));
}

TEST_F(KSAllocWinExTest, AnIntervalWiderThanTheWindowLeavesNoBuffers) {
    window = windowOf(KS_INTLV_PIXEL, 2, 9, 3);
    window.SampDesc.nXSampleInt = 3;
    EXPECT_EQ(KSAllocWinEx(&window), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pWinEx->nNumXSamples < 1.\n", "_KSAllocWinEx()"),
                                       failure("%s: _KSAllocWinEx() failed.\n", "KSAllocWinEx()")}));
    expectEmpty();
    host().forget();
    window = windowOf(KS_INTLV_PIXEL, 2, 9, 3);
    window.SampDesc.nYSampleInt = 10;
    EXPECT_EQ(KSAllocWinEx(&window), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pWinEx->nNumYSamples < 1.\n", "_KSAllocWinEx()"),
                                       failure("%s: _KSAllocWinEx() failed.\n", "KSAllocWinEx()")}));
}

TEST_F(KSAllocWinExTest, RefusesOtherInterleaves) {
    for (const int interleave : {3, -1}) {
        host().forget();
        window = windowOf(interleave, 2, 2, 2);
        EXPECT_EQ(KSAllocWinEx(&window), 1);
        EXPECT_EQ(host().reports, (Reports{failure("%s: unsupported pWinEx->eBandIntlv value.\n", "_KSAllocWinEx()"),
                                           failure("%s: _KSAllocWinEx() failed.\n", "KSAllocWinEx()")}));
        expectEmpty();
    }
}

TEST_F(KSAllocWinExTest, NamesWhatCouldNotBeAllocated) {
    const std::vector<Reports> promised = {
        {failure("%s: pWinEx->pafSamples == NULL, HMalloc() failed.\n", "_KSAllocWinEx()"),
         failure("%s: _KSAllocWinEx() failed.\n", "KSAllocWinEx()")},
        {failure("%s: pWinEx->papafStart == NULL, HMalloc() failed.\n", "_KSAllocWinEx()"),
         failure("%s: _KSAllocWinEx() failed.\n", "KSAllocWinEx()")},
        {failure("%s: pWinEx->SampDesc.panBandMap == NULL, HMalloc() failed.\n", "KSAllocWinEx()")}};
    for (const int interleave : kInterleaves) {
        for (std::size_t n = 0; n < promised.size(); ++n) {
            host().forget();
            window = windowOf(interleave, 5, 3, 4);
            refuseAllocation(static_cast<int>(n) + 1);
            EXPECT_EQ(KSAllocWinEx(&window), 1);
            EXPECT_EQ(host().reports, promised[n]);
            expectEmpty();
        }
        refuseAllocation(4);
        EXPECT_EQ(KSAllocWinEx(&window), 0);
        EXPECT_FALSE(allocationRefused());
        KSFreeWinEx(&window);
    }
}

TEST_F(KSAllocWinExTest, SizesBeyondTheAddressSpaceAreAFailedAllocation) {
    const int most = std::numeric_limits<int>::max();
    window = windowOf(KS_INTLV_BAND, most, most, most);
    EXPECT_EQ(KSAllocWinEx(&window), 1);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: pWinEx->pafSamples == NULL, HMalloc() failed.\n", "_KSAllocWinEx()"),
                       failure("%s: _KSAllocWinEx() failed.\n", "KSAllocWinEx()")}));
}

TEST_F(KSAllocWinExTest, TheInnerOneWorksFromTheSampleCounts) {
    window = windowOf(KS_INTLV_BAND, 0, 0, 2);
    window.nNumXSamples = 3;
    window.nNumYSamples = 4;
    ASSERT_EQ(_KSAllocWinEx(&window), 0);
    EXPECT_EQ(window.papafStart[1], window.pafSamples + 12);
    EXPECT_EQ(window.SampDesc.panBandMap, nullptr);
    EXPECT_EQ(_KSAllocWinEx(nullptr), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pWinEx == NULL.\n", "_KSAllocWinEx()")}));
}

// ---- resizing ----

using KSResizeWinExTest = WindowTest;

TEST_F(KSResizeWinExTest, KeepsEverythingButSizesAndSamples) {
    window = allocatedWindow(KS_INTLV_BAND, 6, 4, {5, 3});
    window.nXOff = 7;
    window.nYOff = 8;
    window.nRadTransLev = 2;
    int* map = window.SampDesc.panBandMap;
    EXPECT_EQ(KSResizeWinEx(&window, 10, 9, 3, 2), 0);
    EXPECT_EQ(window.nXSize, 10);
    EXPECT_EQ(window.nYSize, 9);
    EXPECT_EQ(window.SampDesc.nXSampleInt, 3);
    EXPECT_EQ(window.SampDesc.nYSampleInt, 2);
    EXPECT_EQ(window.nNumXSamples, 3);
    EXPECT_EQ(window.nNumYSamples, 4);
    EXPECT_EQ(window.nXOff, 7);
    EXPECT_EQ(window.nYOff, 8);
    EXPECT_EQ(window.nRadTransLev, 2);
    EXPECT_EQ(window.eBandIntlv, KS_INTLV_BAND);
    EXPECT_EQ(window.SampDesc.panBandMap, map);
    EXPECT_EQ(map[0], 5);
    EXPECT_EQ(window.papafStart[1], window.pafSamples + 12);
    std::fill_n(window.pafSamples, 2 * 3 * 4, 1.0F);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSResizeWinExTest, ChecksTheRecordAsItStandsInOrder) {
    EXPECT_EQ(KSResizeWinEx(nullptr, 1, 1, 1, 1), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pWinEx == NULL.\n", "KSResizeWinEx()")}));
    const auto expectRefused = [this](auto breakIt, const Report& report) {
        window = allocatedWindow(KS_INTLV_PIXEL, 6, 4, {0, 1});
        breakIt();
        host().forget();
        EXPECT_EQ(KSResizeWinEx(&window, 3, 3, 1, 1), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
        expectEmpty();
    };
    // Each breaks its own check and all later ones.
    const auto samples = [&] { drop(window.pafSamples); };
    const auto starts = [&] { samples(), drop(window.papafStart); };
    const auto map = [&] { starts(), drop(window.SampDesc.panBandMap); };
    const auto bands = [&] { map(), window.SampDesc.nNumBands = 0; };
    const auto ySize = [&] { bands(), window.nYSize = 0; };
    const auto xSize = [&] { ySize(), window.nXSize = -1; };
    const auto yInterval = [&] { xSize(), window.SampDesc.nYSampleInt = 0; };
    const auto xInterval = [&] { yInterval(), window.SampDesc.nXSampleInt = -2; };
    expectRefused(xInterval, failure("%s: pWinEx->SampDesc.nXSampleInt <= 0.\n", "KSResizeWinEx()"));
    expectRefused(yInterval, failure("%s: pWinEx->SampDesc.nYSampleInt <= 0.\n", "KSResizeWinEx()"));
    expectRefused(xSize, failure("%s: pWinEx->nXSize <= 0.\n", "KSResizeWinEx()"));
    expectRefused(ySize, failure("%s: pWinEx->nYSize <= 0.\n", "KSResizeWinEx()"));
    expectRefused(bands, failure("%s: pWinEx->SampDesc.nNumBands <= 0.\n", "KSResizeWinEx()"));
    expectRefused(map, failure("%s: pWinEx->SampDesc.panBandMap == NULL.\n", "KSResizeWinEx()"));
    expectRefused(starts, failure("%s: pWinEx->papafStart == NULL.\n", "KSResizeWinEx()"));
    expectRefused(samples, failure("%s: pWinEx->pafSamples == NULL.\n", "KSResizeWinEx()"));
}

TEST_F(KSResizeWinExTest, AFailureFreesTheBandMapAsWell) {
    window = allocatedWindow(KS_INTLV_PIXEL, 6, 4, {0, 1});
    EXPECT_EQ(KSResizeWinEx(&window, 2, 9, 3, 1), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pWinEx->nNumXSamples < 1.\n", "_KSAllocWinEx()"),
                                       failure("%s: _KSAllocWinEx() failed.\n", "KSResizeWinEx()")}));
    expectEmpty();
    EXPECT_EQ(window.nXSize, 2) << "the new sizes are stored before the buffers are made";
}

TEST_F(KSResizeWinExTest, ANewIntervalOfZeroFailsWithoutADivision) {
    window = allocatedWindow(KS_INTLV_PIXEL, 6, 4, {0, 1});
    EXPECT_EQ(KSResizeWinEx(&window, 6, 4, 0, 1), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pWinEx->nNumXSamples < 1.\n", "_KSAllocWinEx()"),
                                       failure("%s: _KSAllocWinEx() failed.\n", "KSResizeWinEx()")}));
    expectEmpty();
    host().forget();
    window = allocatedWindow(KS_INTLV_PIXEL, 6, 4, {0, 1});
    EXPECT_EQ(KSResizeWinEx(&window, 6, 4, 1, 0), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pWinEx->nNumYSamples < 1.\n", "_KSAllocWinEx()"),
                                       failure("%s: _KSAllocWinEx() failed.\n", "KSResizeWinEx()")}));
}

TEST_F(KSResizeWinExTest, NamesWhatCouldNotBeAllocated) {
    const std::vector<Report> promised = {
        failure("%s: pWinEx->pafSamples == NULL, HMalloc() failed.\n", "_KSAllocWinEx()"),
        failure("%s: pWinEx->papafStart == NULL, HMalloc() failed.\n", "_KSAllocWinEx()")};
    for (std::size_t n = 0; n < promised.size(); ++n) {
        window = allocatedWindow(KS_INTLV_LINE, 6, 4, {0, 1});
        host().forget();
        refuseAllocation(static_cast<int>(n) + 1);
        EXPECT_EQ(KSResizeWinEx(&window, 5, 5, 1, 1), 1);
        EXPECT_EQ(host().reports, (Reports{promised[n], failure("%s: _KSAllocWinEx() failed.\n", "KSResizeWinEx()")}));
        expectEmpty();
    }
    window = allocatedWindow(KS_INTLV_LINE, 6, 4, {0, 1});
    refuseAllocation(3);
    EXPECT_EQ(KSResizeWinEx(&window, 5, 5, 1, 1), 0);
    EXPECT_FALSE(allocationRefused());
}

// ---- band vectors ----

struct VectorTest : WindowTest {
    VEC* vector = v_get(3);

    void fill(int interleave) {
        KSFreeWinEx(&window);
        window = allocatedWindow(interleave, 4, 2, {0, 1, 2});
        for (int y = 0; y < 2; ++y) {
            for (int x = 0; x < 4; ++x) {
                for (int b = 0; b < 3; ++b) component(window, x, y, b) = static_cast<float>(100 * y + 10 * x + b);
            }
        }
        for (int b = 0; b < 3; ++b) vector->ve[b] = -1.0;
    }
    std::vector<double> components() const { return {vector->ve[0], vector->ve[1], vector->ve[2]}; }
    std::vector<float> samples() const { return {window.pafSamples, window.pafSamples + 24}; }
    void TearDown() override {
        v_free(vector);
        WindowTest::TearDown();
    }
};

using KSExtractVectWinExTest = VectorTest;

TEST_F(KSExtractVectWinExTest, CopiesTheSampleInEveryInterleave) {
    for (const int interleave : kInterleaves) {
        fill(interleave);
        EXPECT_EQ(KSExtractVectWinEx(vector, &window, 2, 1), 0);
        EXPECT_EQ(components(), (std::vector<double>{120.0, 121.0, 122.0}));
        EXPECT_EQ(KSExtractVectWinEx(vector, &window, 3, 0), 0);
        EXPECT_EQ(components(), (std::vector<double>{30.0, 31.0, 32.0}));
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSExtractVectWinExTest, WidensWithoutRounding) {
    fill(KS_INTLV_LINE);
    component(window, 0, 0, 0) = 0.1F;
    component(window, 0, 0, 1) = std::numeric_limits<float>::denorm_min();
    component(window, 0, 0, 2) = -std::numeric_limits<float>::infinity();
    EXPECT_EQ(KSExtractVectWinEx(vector, &window, 0, 0), 0);
    EXPECT_EQ(components(), (std::vector<double>{static_cast<double>(0.1F),
                                                 static_cast<double>(std::numeric_limits<float>::denorm_min()),
                                                 -std::numeric_limits<double>::infinity()}));
}

TEST_F(KSExtractVectWinExTest, ChecksInOrder) {
    fill(KS_INTLV_PIXEL);
    VEC* wrong = v_get(2);
    const auto expectRefused = [this](VEC* to, const KSWinEx* from, int x, int y, const Report& report) {
        host().forget();
        EXPECT_EQ(KSExtractVectWinEx(to, from, x, y), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
        EXPECT_EQ(components(), (std::vector<double>{-1.0, -1.0, -1.0}));
    };
    window.eBandIntlv = 3;
    expectRefused(nullptr, nullptr, 9, 9, failure("%s: pBandVect == NULL.\n", "KSExtractVectWinEx()"));
    expectRefused(wrong, nullptr, 9, 9, failure("%s: pWinEx == NULL.\n", "KSExtractVectWinEx()"));
    expectRefused(wrong, &window, 9, 9,
                  failure("%s: pBandVect->dim != pWinEx->SampDesc.nNumBands.\n", "KSExtractVectWinEx()"));
    for (const int x : {4, -1}) {
        expectRefused(vector, &window, x, 9,
                      failure("%s: nXSample >= pWinEx->nNumXSamples || nXSample < 0.\n", "KSExtractVectWinEx()"));
    }
    for (const int y : {2, -1}) {
        expectRefused(vector, &window, 3, y,
                      failure("%s: nYSample >= pWinEx->nNumYSamples || nYSample < 0.\n", "KSExtractVectWinEx()"));
    }
    expectRefused(vector, &window, 3, 1,
                  failure("%s: Unsupported pWinEx->eBandIntlv value.\n", "KSExtractVectWinEx()"));
    window.eBandIntlv = KS_INTLV_PIXEL;
    v_free(wrong);
}

using KSInsertVectWinExTest = VectorTest;

TEST_F(KSInsertVectWinExTest, StoresTheSampleAndNoOther) {
    for (const int interleave : kInterleaves) {
        fill(interleave);
        std::vector<float> expected = samples();
        for (int b = 0; b < 3; ++b) {
            vector->ve[b] = 0.5 + b;
            expected[static_cast<std::size_t>(&component(window, 1, 1, b) - window.pafSamples)] =
                0.5F + static_cast<float>(b);
        }
        EXPECT_EQ(KSInsertVectWinEx(vector, &window, 1, 1), 0);
        EXPECT_EQ(samples(), expected);
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSInsertVectWinExTest, NarrowsToTheNearestValue) {
    fill(KS_INTLV_BAND);
    vector->ve[0] = 16777217.0;  // halfway between two singles: to the even one
    vector->ve[1] = 0.1;
    vector->ve[2] = 1e300;
    EXPECT_EQ(KSInsertVectWinEx(vector, &window, 0, 0), 0);
    EXPECT_EQ(component(window, 0, 0, 0), 16777216.0F);
    EXPECT_EQ(component(window, 0, 0, 1), 0.1F);
    EXPECT_EQ(component(window, 0, 0, 2), std::numeric_limits<float>::infinity());
}

TEST_F(KSInsertVectWinExTest, ChecksInOrder) {
    fill(KS_INTLV_PIXEL);
    const std::vector<float> before = samples();
    VEC* wrong = v_get(4);
    const auto expectRefused = [&](const VEC* from, KSWinEx* to, int x, int y, const Report& report) {
        host().forget();
        EXPECT_EQ(KSInsertVectWinEx(from, to, x, y), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
        EXPECT_EQ(samples(), before);
    };
    window.eBandIntlv = -1;
    expectRefused(nullptr, nullptr, 9, 9, failure("%s: pBandVect == NULL.\n", "KSInsertVectWinEx()"));
    expectRefused(wrong, nullptr, 9, 9, failure("%s: pWinEx == NULL.\n", "KSInsertVectWinEx()"));
    expectRefused(wrong, &window, 9, 9,
                  failure("%s: pBandVect->dim != pWinEx->SampDesc.nNumBands.\n", "KSInsertVectWinEx()"));
    for (const int x : {4, -1}) {
        expectRefused(
            vector, &window, x, 9,
            failure("%s: nXSample (%d) >= pWinEx->nNumXSamples (%d) || nXSample < 0.\n", "KSInsertVectWinEx()", x, 4));
    }
    // The message about the row carries the column.
    for (const int y : {2, -1}) {
        expectRefused(
            vector, &window, 3, y,
            failure("%s: nYSample (%d) >= pWinEx->nNumYSamples (%d) || nYSample < 0.\n", "KSInsertVectWinEx()", 3, 2));
    }
    expectRefused(vector, &window, 3, 1, failure("%s: Unsupported pWinEx->eBandIntlv value.\n", "KSInsertVectWinEx()"));
    window.eBandIntlv = KS_INTLV_PIXEL;
    v_free(wrong);
}

// ---- copying ----

struct KSCopyWinExTest : WindowTest {
    KSWinEx source{};

    void SetUp() override {
        WindowTest::SetUp();
        source = allocatedWindow(KS_INTLV_PIXEL, 4, 3, {5, 6, 7});
        window = allocatedWindow(KS_INTLV_BAND, 2, 2, {7, 5});
        std::fill_n(source.pafSamples, 36, 1.0F);
        std::fill_n(window.pafSamples, 8, -1.0F);
    }
    void TearDown() override {
        KSFreeWinEx(&source);
        WindowTest::TearDown();
    }
    void expectRefused(const Reports& reports) {
        host().forget();
        EXPECT_EQ(KSCopyWinEx(&source, &window), 1);
        EXPECT_EQ(host().reports, reports);
        for (int i = 0; i < 8; ++i) EXPECT_EQ(window.pafSamples[i], -1.0F);
    }
};

TEST_F(KSCopyWinExTest, NeverWritesADestinationWithSamples) {
    expectRefused({failure("%s: failed to insert vector at (%d, %d) in WinExDst\n", "KSCopyWinEx()", 0, 0)});
}

TEST_F(KSCopyWinExTest, SucceedsWithoutDestinationSamples) {
    window.nNumXSamples = 0;
    EXPECT_EQ(KSCopyWinEx(&source, &window), 0);
    window.nNumXSamples = 2;
    window.nNumYSamples = 0;
    EXPECT_EQ(KSCopyWinEx(&source, &window), 0);
    EXPECT_EQ(host().reports, Reports{});
    EXPECT_EQ(vectors(), 4);
    window.nNumYSamples = 2;
}

TEST_F(KSCopyWinExTest, ReportsNullWindows) {
    EXPECT_EQ(KSCopyWinEx(nullptr, nullptr), 1);
    EXPECT_EQ(KSCopyWinEx(&source, nullptr), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pWinExSrc == NULL.\n", "KSCopyWinEx()"),
                                       failure("%s: pWinExDst == NULL.\n", "KSCopyWinEx()")}));
}

TEST_F(KSCopyWinExTest, DifferentIntervalsAreRefusedBeforeAnyAllocation) {
    window.SampDesc.nXSampleInt = 2;
    window.SampDesc.nYSampleInt = 2;
    refuseAllocation(1);
    refuseVector(1);
    expectRefused({failure("%s: X-sample intervals for the windows differ.\n", "KSCopyWinEx()")});
    window.SampDesc.nXSampleInt = 1;
    expectRefused({failure("%s: Y-sample intervals for the windows differ.\n", "KSCopyWinEx()")});
    EXPECT_EQ(allocations(), 0);
    EXPECT_EQ(vectors(), 0);
}

TEST_F(KSCopyWinExTest, NamesWhatCouldNotBeAllocated) {
    refuseAllocation(1);
    expectRefused({failure("%s: pnCompMap == NULL, HMalloc () failed.\n", "KSCopyWinEx()")});
    refuseVector(1);
    expectRefused({failure("%s: Failed to allocate pBandVectSrc, v_get failed.\n", "KSCopyWinEx()")});
    refuseVector(2);
    expectRefused({failure("%s: Failed to allocate pBandVectDst, v_get failed.\n", "KSCopyWinEx()")});
    refuseVector(3);
    expectRefused({failure("%s: failed to insert vector at (%d, %d) in WinExDst\n", "KSCopyWinEx()", 0, 0)});
}

TEST_F(KSCopyWinExTest, FailingVectorsNeverEndTheProcessAndLeaveTheCallersErrorSettings) {
    const int flag = set_err_flag(EF_JUMP);
    volatile int returns = 0;
    if (setjmp(restart) != 0) ++returns;
    if (returns == 0) {
        for (int i = 0; i < 150; ++i) {
            refuseVector(1);
            expectRefused({failure("%s: Failed to allocate pBandVectSrc, v_get failed.\n", "KSCopyWinEx()")});
        }
        EXPECT_EQ(set_err_flag(EF_JUMP), EF_JUMP);
        EXPECT_EQ(count_errs(TRUE), TRUE);
        refuseVector(1);
        v_free(v_get(1));  // comes back to the caller's own return point
        ADD_FAILURE() << "the caller's trap was lost";
    }
    EXPECT_EQ(returns, 1);
    set_err_flag(flag);
}

TEST_F(KSCopyWinExTest, ABandThatTheSourceLacksIsRefused) {
    window.SampDesc.panBandMap[1] = 99;
    expectRefused({failure("%s: Destination band vector component %d does not match a source band vector component.\n",
                           "KSCopyWinEx()", 0)});
}

TEST_F(KSCopyWinExTest, ComponentsPastTheSourcesCountAreRefused) {
    KSFreeWinEx(&window);
    window = allocatedWindow(KS_INTLV_BAND, 2, 1, {5, 6, 7, 5});
    std::fill_n(window.pafSamples, 8, -1.0F);
    expectRefused({failure("%s: Destination band vector component %d does not match a source band vector component.\n",
                           "KSCopyWinEx()", 0)});
}

TEST_F(KSCopyWinExTest, OutsideOneWayFailsToExtract) {
    window.nXOff = 4;
    expectRefused({failure("%s: nXSample >= pWinEx->nNumXSamples || nXSample < 0.\n", "KSExtractVectWinEx()"),
                   failure("%s: failed to extract vector from (%d, %d) in WinExSrc\n", "KSCopyWinEx()", 4, 0)});
    window.nXOff = 2;
    window.nYOff = -1;
    expectRefused({failure("%s: nYSample >= pWinEx->nNumYSamples || nYSample < 0.\n", "KSExtractVectWinEx()"),
                   failure("%s: failed to extract vector from (%d, %d) in WinExSrc\n", "KSCopyWinEx()", 2, -1)});
}

TEST_F(KSCopyWinExTest, OutsideBothWaysIsZero) {
    window.nXOff = 4;
    window.nYOff = 3;
    expectRefused({failure("%s: failed to insert vector at (%d, %d) in WinExDst\n", "KSCopyWinEx()", 0, 0)});
}

TEST_F(KSCopyWinExTest, OffsetsAreNotDividedByTheInterval) {
    source.SampDesc.nXSampleInt = window.SampDesc.nXSampleInt = 2;
    window.nXOff = 6;  // sample 3 of the source in image units of 2, but column 6 here
    expectRefused({failure("%s: nXSample >= pWinEx->nNumXSamples || nXSample < 0.\n", "KSExtractVectWinEx()"),
                   failure("%s: failed to extract vector from (%d, %d) in WinExSrc\n", "KSCopyWinEx()", 6, 0)});
}

}  // namespace
