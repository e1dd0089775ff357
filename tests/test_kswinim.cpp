// Index-map windows: their life cycle, reading with and without subsampling, copying, and writing whole index maps.
#include <kslib.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "datasets.hpp"
#include "fixture.hpp"
#include "quantized.hpp"

using namespace kit;

namespace {

using Indexes = std::vector<std::uint16_t>;
constexpr int kMost = std::numeric_limits<int>::max();

struct IndexTest : LibraryTest {
    KSWinIM window{};

    void use(const KSWinIM& other) {
        KSFreeWinIM(&window);
        window = other;
    }
    void expectEmpty() const {
        EXPECT_EQ(window.pau16Samples, nullptr);
        EXPECT_EQ(window.papau16Start, nullptr);
    }
    void TearDown() override {
        EXPECT_EQ(KSFreeWinIM(&window), 0);
        LibraryTest::TearDown();
    }
};

// ---- initialising and freeing ----

using KSInitWinIMTest = IndexTest;

TEST_F(KSInitWinIMTest, ZeroesTheRecordAndReturnsIt) {
    KSWinIM record;
    std::memset(&record, 0x5a, sizeof record);
    EXPECT_EQ(KSInitWinIM(&record), &record);
    EXPECT_EQ((std::vector<int>{record.nXOff, record.nYOff, record.nXSize, record.nYSize, record.nXSampleInt,
                                record.nYSampleInt, record.nNumXSamples, record.nNumYSamples}),
              std::vector<int>(8, 0));
    EXPECT_EQ(record.pau16Samples, nullptr);
    EXPECT_EQ(record.papau16Start, nullptr);
    EXPECT_EQ(host().calls, std::vector<Call>{});
}

using KSFreeWinIMTest = IndexTest;

TEST_F(KSFreeWinIMTest, RefusesNull) {
    EXPECT_EQ(KSFreeWinIM(nullptr), 1);
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: pWinIM == NULL\n", "KSFreeWinIM()")}));
}

TEST_F(KSFreeWinIMTest, ClearsTheArraysAndKeepsTheRest) {
    window = allocatedIndexes(6, 4, 7, 2, 1);
    window.nXOff = 3;
    EXPECT_EQ(KSFreeWinIM(&window), 0);
    expectEmpty();
    EXPECT_EQ((std::vector<int>{window.nXOff, window.nXSize, window.nYSize, window.nXSampleInt, window.nNumXSamples,
                                window.nNumYSamples}),
              (std::vector<int>{3, 6, 4, 2, 3, 4}));
    EXPECT_EQ(KSFreeWinIM(&window), 0) << "twice";
    EXPECT_EQ(KSAllocWinIM(&window), 0) << "and allocated again";
    EXPECT_EQ(host().calls, std::vector<Call>{});
}

// ---- allocating ----

using KSAllocWinIMTest = IndexTest;

TEST_F(KSAllocWinIMTest, TruncatesTheCountsAndLaysRowsOutInOneBlock) {
    window = indexesOf(10, 7, 3, 2);
    window.nXOff = 5;
    window.nYOff = 6;
    ASSERT_EQ(KSAllocWinIM(&window), 0);
    EXPECT_EQ(window.nNumXSamples, 3);
    EXPECT_EQ(window.nNumYSamples, 3);
    for (int y = 0; y < 3; ++y) EXPECT_EQ(window.papau16Start[y], window.pau16Samples + y * 3);
    std::fill_n(window.pau16Samples, 9, std::uint16_t{65535});
    EXPECT_EQ(window.papau16Start[2][2], 65535);
    EXPECT_EQ(window.nXOff, 5);
    EXPECT_EQ(window.nYOff, 6);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSAllocWinIMTest, ANullRecordIsReportedTwice) {
    EXPECT_EQ(KSAllocWinIM(nullptr), 1);
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: pWinIM == NULL\n", "KSAllocWinIM()"),
                                       debugOutput("%s: pWinIM == NULL\n", "KSFreeWinIM()")}));
}

TEST_F(KSAllocWinIMTest, ChecksIntervalsThenSizesAndFreesWhatTheRecordHeld) {
    const auto expectRefused = [this](int xInterval, int yInterval, int width, int height, const Report& report) {
        window = allocatedIndexes(2, 2, 0);
        window.nXSampleInt = xInterval;
        window.nYSampleInt = yInterval;
        window.nXSize = width;
        window.nYSize = height;
        host().forget();
        EXPECT_EQ(KSAllocWinIM(&window), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
        expectEmpty();
    };
    for (const int none : {0, -1}) {
        expectRefused(none, none, none, none, debugOutput("%s: pWinIM->nXSampleInt <= 0\n", "KSAllocWinIM()"));
        expectRefused(1, none, none, none, debugOutput("%s: pWinIM->nYSampleInt <= 0\n", "KSAllocWinIM()"));
        expectRefused(1, 1, none, none, debugOutput("%s: pWinIM->nXSize <= 0\n", "KSAllocWinIM()"));
        expectRefused(1, 1, 1, none, debugOutput("%s: pWinIM->nYSize <= 0\n", "KSAllocWinIM()"));
    }
}

TEST_F(KSAllocWinIMTest, AnIntervalWiderThanTheWindowGivesEmptyArrays) {
    window = indexesOf(2, 9, 3, 1);
    ASSERT_EQ(KSAllocWinIM(&window), 0);
    EXPECT_EQ(window.nNumXSamples, 0);
    EXPECT_EQ(window.nNumYSamples, 9);
    EXPECT_NE(window.pau16Samples, nullptr);
    EXPECT_EQ(window.papau16Start[8], window.pau16Samples);
    use(indexesOf(2, 9, 3, 10));
    ASSERT_EQ(KSAllocWinIM(&window), 0);
    EXPECT_EQ(window.nNumYSamples, 0);
    EXPECT_NE(window.pau16Samples, nullptr);
    EXPECT_NE(window.papau16Start, nullptr);
    EXPECT_EQ(KSResizeWinIM(&window, 2, 2, 1, 1), 0) << "empty arrays count as allocated";
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSAllocWinIMTest, NamesWhatCouldNotBeAllocated) {
    const std::vector<Report> promised = {
        debugOutput("%s: pWinIM->pau16Samples == NULL, HMalloc()  failed\n", "_KSAllocWinIM()"),
        debugOutput("%s: pWinIM->papau16Start == NULL, HMalloc() failed\n", "_KSAllocWinIM()")};
    for (std::size_t n = 0; n < promised.size(); ++n) {
        host().forget();
        window = indexesOf(5, 3);
        refuseAllocation(static_cast<int>(n) + 1);
        EXPECT_EQ(KSAllocWinIM(&window), 1);
        EXPECT_EQ(host().reports,
                  (Reports{promised[n], debugOutput("%s: _KSAllocWinIM() failed.\n", "KSAllocWinIM()")}));
        expectEmpty();
    }
    refuseAllocation(3);
    EXPECT_EQ(KSAllocWinIM(&window), 0);
    EXPECT_FALSE(allocationRefused());
}

TEST_F(KSAllocWinIMTest, TheInnerOneWorksFromTheSampleCounts) {
    window.nNumXSamples = 3;
    window.nNumYSamples = 4;
    ASSERT_EQ(_KSAllocWinIM(&window), 0);
    EXPECT_EQ(window.papau16Start[3], window.pau16Samples + 9);
    EXPECT_EQ(window.nXSize, 0);
    EXPECT_EQ(_KSAllocWinIM(nullptr), 1);
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: pWinIM == NULL\n", "_KSAllocWinIM()")}));
}

TEST_F(KSAllocWinIMTest, NegativeCountsAreAFailedAllocation) {
    for (const auto& [across, down] : {std::pair{-1, 2}, std::pair{2, -1}, std::pair{-2, -2}}) {
        host().forget();
        window.nNumXSamples = across;
        window.nNumYSamples = down;
        EXPECT_EQ(_KSAllocWinIM(&window), 1);
        EXPECT_EQ(host().reports,
                  (Reports{debugOutput("%s: pWinIM->pau16Samples == NULL, HMalloc()  failed\n", "_KSAllocWinIM()")}));
        expectEmpty();
    }
}

// ---- resizing ----

using KSResizeWinIMTest = IndexTest;

TEST_F(KSResizeWinIMTest, KeepsTheOffsets) {
    window = allocatedIndexes(6, 4, 1);
    window.nXOff = 7;
    window.nYOff = 8;
    EXPECT_EQ(KSResizeWinIM(&window, 10, 9, 3, 2), 0);
    EXPECT_EQ((std::vector<int>{window.nXOff, window.nYOff, window.nXSize, window.nYSize, window.nXSampleInt,
                                window.nYSampleInt, window.nNumXSamples, window.nNumYSamples}),
              (std::vector<int>{7, 8, 10, 9, 3, 2, 3, 4}));
    std::fill_n(window.pau16Samples, 12, std::uint16_t{1});
    EXPECT_EQ(window.papau16Start[3], window.pau16Samples + 9);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSResizeWinIMTest, ANullRecordIsReportedTwice) {
    EXPECT_EQ(KSResizeWinIM(nullptr, 1, 1, 1, 1), 1);
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: pWinIM == NULL\n", "KSResizeWinIM()"),
                                       debugOutput("%s: pWinIM == NULL\n", "KSFreeWinIM()")}));
}

TEST_F(KSResizeWinIMTest, ChecksTheRecordAsItStandsInOrder) {
    const auto expectRefused = [this](auto breakIt, const Report& report) {
        window = allocatedIndexes(6, 4, 0);
        breakIt();
        host().forget();
        EXPECT_EQ(KSResizeWinIM(&window, 3, 3, 1, 1), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
        expectEmpty();
        EXPECT_NE(window.nXSize, 3) << "the new values are not stored";
    };
    // Each breaks its own check and all later ones.
    const auto starts = [&] { drop(window.papau16Start); };
    const auto samples = [&] { starts(), drop(window.pau16Samples); };
    const auto ySize = [&] { samples(), window.nYSize = 0; };
    const auto xSize = [&] { ySize(), window.nXSize = -1; };
    const auto yInterval = [&] { xSize(), window.nYSampleInt = 0; };
    const auto xInterval = [&] { yInterval(), window.nXSampleInt = -2; };
    expectRefused(xInterval, debugOutput("%s: pWinIM->nXSampleInt <= 0\n", "KSResizeWinIM()"));
    expectRefused(yInterval, debugOutput("%s: pWinIM->nYSampleInt <= 0\n", "KSResizeWinIM()"));
    expectRefused(xSize, debugOutput("%s: pWinIM->nXSize <= 0\n", "KSResizeWinIM()"));
    expectRefused(ySize, debugOutput("%s: pWinIM->nYSize <= 0\n", "KSResizeWinIM()"));
    expectRefused(samples, debugOutput("%s: pWinIM->pau16Samples == NULL\n", "KSResizeWinIM()"));
    expectRefused(starts, debugOutput("%s: pWinIM->papau16Start == NULL\n", "KSResizeWinIM()"));
}

TEST_F(KSResizeWinIMTest, NewIntervalsOfZeroLeaveNoSamplesWithoutADivision) {
    window = allocatedIndexes(6, 4, 0);
    EXPECT_EQ(KSResizeWinIM(&window, 6, 4, 0, 0), 0);
    EXPECT_EQ(window.nNumXSamples, 0);
    EXPECT_EQ(window.nNumYSamples, 0);
}

TEST_F(KSResizeWinIMTest, NewSizesAreNotChecked) {
    window = allocatedIndexes(6, 4, 0);
    EXPECT_EQ(KSResizeWinIM(&window, 0, 0, 1, 1), 0);
    EXPECT_EQ(window.nNumXSamples, 0);
    EXPECT_EQ(KSResizeWinIM(&window, 3, 3, 1, 1), 1) << "but an emptied record is refused by the next resize";
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: pWinIM->nXSize <= 0\n", "KSResizeWinIM()")}));
}

TEST_F(KSResizeWinIMTest, NamesWhatCouldNotBeAllocated) {
    const std::vector<Report> promised = {
        debugOutput("%s: pWinIM->pau16Samples == NULL, HMalloc()  failed\n", "_KSAllocWinIM()"),
        debugOutput("%s: pWinIM->papau16Start == NULL, HMalloc() failed\n", "_KSAllocWinIM()")};
    for (std::size_t n = 0; n < promised.size(); ++n) {
        window = allocatedIndexes(5, 3, 0);
        host().forget();
        refuseAllocation(static_cast<int>(n) + 1);
        EXPECT_EQ(KSResizeWinIM(&window, 4, 4, 1, 1), 1);
        EXPECT_EQ(host().reports,
                  (Reports{promised[n], debugOutput("%s: _KSAllocWinIM() failed.\n", "KSResizeWinIM()")}));
        expectEmpty();
        EXPECT_EQ(window.nXSize, 4) << "the new sizes are stored before the arrays are made";
    }
    window = allocatedIndexes(5, 3, 0);
    refuseAllocation(3);
    EXPECT_EQ(KSResizeWinIM(&window, 4, 4, 1, 1), 0);
    EXPECT_FALSE(allocationRefused());
}

// ---- reading ----

/// A cube of 8 x 6 pixels whose index at (x, y) is 10 * y + x + 1.
struct CubeTest : IndexTest {
    KSDataSet* dataSet = nullptr;

    static std::uint16_t stored(int x, int y) { return static_cast<std::uint16_t>(10 * y + x + 1); }
    FakeVQ& cube() const { return *host().file("cube.tif").vq; }

    void SetUp() override {
        LibraryTest::SetUp();
        FakeVQ made;
        made.pixels = 8;
        made.lines = 6;
        made.channels = {1, 2};
        made.codeVectors = 64;
        for (int y = 0; y < 6; ++y) {
            for (int x = 0; x < 8; ++x) made.indexes.push_back(stored(x, y));
        }
        dataSet = heapCubeDataSet("cube.tif", 8, 6, 2, made);
    }
    void TearDown() override {
        freeCubeDataSet(dataSet);
        IndexTest::TearDown();
    }
};

struct KSReadWinIMTest : CubeTest {
    void expectRefused(const Report& report) {
        host().forget();
        EXPECT_EQ(KSReadWinIM(dataSet, &window), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
        EXPECT_EQ(host().count("VQubeGetIndexMap"), 0);
    }
};

TEST_F(KSReadWinIMTest, ReadsStraightIntoAWindowWithoutSubsampling) {
    window = allocatedIndexes(3, 2, 999);
    window.nXOff = 5;
    window.nYOff = 4;
    refuseAllocation(1);
    EXPECT_EQ(KSReadWinIM(dataSet, &window), 0);
    EXPECT_EQ(allocations(), 0);
    EXPECT_EQ(indexes(window), (Indexes{46, 47, 48, 56, 57, 58}));
    EXPECT_EQ(host().callsOf({"VQubeGetIndexMap"}), (Names{"VQubeGetIndexMap(cube.tif:1, [5 4 3 2])"}));
    EXPECT_EQ(host().calls.size(), 1U);
}

TEST_F(KSReadWinIMTest, SubsamplingStartsOneIntervalIn) {
    window = allocatedIndexes(4, 4, 999, 2, 2);
    EXPECT_EQ(KSReadWinIM(dataSet, &window), 0);
    // Columns 2 and 4 of lines 0 and 2, column 4 being column 0 of the line after.
    EXPECT_EQ(indexes(window), (Indexes{stored(2, 0), stored(0, 1), stored(2, 2), stored(0, 3)}));
    EXPECT_EQ(host().argumentsOf("VQubeGetIndexMap"), "cube.tif:1, [0 0 4 4]");
}

TEST_F(KSReadWinIMTest, SubsamplingAWidthThatIsNoMultipleStaysInItsRow) {
    window = allocatedIndexes(7, 6, 999, 3, 2);
    window.nXOff = 1;
    EXPECT_EQ(KSReadWinIM(dataSet, &window), 0);
    EXPECT_EQ(indexes(window),
              (Indexes{stored(4, 0), stored(7, 0), stored(4, 2), stored(7, 2), stored(4, 4), stored(7, 4)}));
}

TEST_F(KSReadWinIMTest, SubsamplingOneWayOnly) {
    window = allocatedIndexes(3, 4, 999, 1, 2);
    EXPECT_EQ(KSReadWinIM(dataSet, &window), 0);
    EXPECT_EQ(indexes(window),
              (Indexes{stored(1, 0), stored(2, 0), stored(0, 1), stored(1, 2), stored(2, 2), stored(0, 3)}));
    use(allocatedIndexes(4, 2, 999, 2, 1));
    EXPECT_EQ(KSReadWinIM(dataSet, &window), 0);
    EXPECT_EQ(indexes(window), (Indexes{stored(2, 0), stored(0, 1), stored(2, 1), 0}));
}

TEST_F(KSReadWinIMTest, TheElementPastTheEndIsZero) {
    window = allocatedIndexes(4, 1, 999, 4, 1);
    EXPECT_EQ(KSReadWinIM(dataSet, &window), 0);
    EXPECT_EQ(indexes(window), (Indexes{0}));
    use(allocatedIndexes(8, 6, 999, 8, 1));
    EXPECT_EQ(KSReadWinIM(dataSet, &window), 0);
    EXPECT_EQ(indexes(window), (Indexes{stored(0, 1), stored(0, 2), stored(0, 3), stored(0, 4), stored(0, 5), 0}));
}

TEST_F(KSReadWinIMTest, ChecksInOrder) {
    KSDataSet* const kept = dataSet;
    window = allocatedIndexes(4, 4, 5);
    const KSWinIM good = window;
    dataSet = nullptr;
    EXPECT_EQ(KSReadWinIM(dataSet, nullptr), 1);
    dataSet = kept;
    EXPECT_EQ(KSReadWinIM(dataSet, nullptr), 1);
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: pDataSet == NULL\n", "KSReadWinIM()"),
                                       debugOutput("%s: pWinIM == NULL\n", "KSReadWinIM()")}));
    // Every later check is broken from the start; one after another is mended.
    window = KSWinIM{-1, -1, 10, 8, 0, -1, 3, 3, nullptr, nullptr};
    dataSet->VQubeInfo.nCodeVectors = 0;
    drop(dataSet->VQubeInfo.papfVQChan);
    expectRefused(debugOutput("%s: pWinIM->nXSampleInt <= 0\n", "KSReadWinIM()"));
    window.nXSampleInt = 1;
    expectRefused(debugOutput("%s: pWinIM->nYSampleInt <= 0\n", "KSReadWinIM()"));
    window.nYSampleInt = 1;
    expectRefused(debugOutput("%s: pWinIM->nXOff < 0\n", "KSReadWinIM()"));
    window.nXOff = 5;
    expectRefused(debugOutput("%s: pWinIM->nYOff < 0\n", "KSReadWinIM()"));
    window.nYOff = 3;
    expectRefused(debugOutput("%s: pWinIM->nXOff + pWinIM->nXSize > pDataSet->nXSize\n", "KSReadWinIM()"));
    window.nXSize = 4;
    expectRefused(debugOutput("%s: pWinIM->nXOff + pWinIM->nXSize > pDataSet->nXSize\n", "KSReadWinIM()"));
    window.nXOff = 4;
    expectRefused(debugOutput("%s: pWinIM->nYOff + pWinIM->nYSize > pDataSet->nYSize\n", "KSReadWinIM()"));
    window.nYSize = 4;
    window.nYOff = 2;
    expectRefused(debugOutput("%s: pDataSet->VQubeInfo.nCodeVectors == 0\n", "KSReadWinIM()"));
    dataSet->VQubeInfo.nCodeVectors = 64;
    expectRefused(debugOutput("%s: pWinIM->nNumXSamples != pWinIM->nXSize / pWinIM->nXSampleInt\n", "KSReadWinIM()"));
    window.nNumXSamples = 4;
    expectRefused(debugOutput("%s: pWinIM->nNumYSamples != pWinIM->nYSize / pWinIM->nYSampleInt\n", "KSReadWinIM()"));
    window.nNumYSamples = 4;
    expectRefused(debugOutput("%s: pWinIM->papau16Start == NULL\n", "KSReadWinIM()"));
    window.papau16Start = good.papau16Start;
    expectRefused(debugOutput("%s: pWinIM->pau16Samples == NULL\n", "KSReadWinIM()"));
    window.pau16Samples = good.pau16Samples;
    expectRefused(debugOutput("%s: pDataSet->VQubeInfo.papfVQChan[0] == NULL\n", "KSReadWinIM()"));
    dataSet->VQubeInfo.papfVQChan = heapArray(std::vector<HostFile*>{nullptr});
    expectRefused(debugOutput("%s: pDataSet->VQubeInfo.papfVQChan[0] == NULL\n", "KSReadWinIM()"));
    dataSet->VQubeInfo.papfVQChan[0] = host().onlyHandle();
    EXPECT_EQ(KSReadWinIM(dataSet, &window), 0);
    EXPECT_EQ(window.papau16Start[3][3], stored(7, 5));
}

TEST_F(KSReadWinIMTest, SumsAtTheEdgeOfTheIntegersDoNotWrap) {
    window = allocatedIndexes(4, 4, 5);
    window.nXOff = kMost;
    expectRefused(debugOutput("%s: pWinIM->nXOff + pWinIM->nXSize > pDataSet->nXSize\n", "KSReadWinIM()"));
    window.nXOff = 0;
    window.nYOff = kMost;
    expectRefused(debugOutput("%s: pWinIM->nYOff + pWinIM->nYSize > pDataSet->nYSize\n", "KSReadWinIM()"));
}

TEST_F(KSReadWinIMTest, AnEmptyWindowSucceedsUntouched) {
    for (const auto& [width, height] : {std::pair{0, 3}, std::pair{3, 0}, std::pair{-2, 3}}) {
        window = allocatedIndexes(3, 3, 999);
        window.nXSize = window.nNumXSamples = width;
        window.nYSize = window.nNumYSamples = height;
        EXPECT_EQ(KSReadWinIM(dataSet, &window), 0);
        for (int i = 0; i < 9; ++i) EXPECT_EQ(window.pau16Samples[i], 999);
        KSFreeWinIM(&window);
    }
    EXPECT_EQ(host().calls, std::vector<Call>{});
}

TEST_F(KSReadWinIMTest, SaysWhichReadTheHostRefused) {
    window = allocatedIndexes(4, 4, 999);
    host().failCall("VQubeGetIndexMap");
    EXPECT_EQ(KSReadWinIM(dataSet, &window), 1);
    EXPECT_EQ(host().reports,
              (Reports{debugOutput("%s:! VQubeGetIndexMap (fpVQ, anWindow, pWinIM->pau16Samples\n", "KSReadWinIM()")}));
    for (const auto& [xInterval, yInterval] : {std::pair{2, 1}, std::pair{1, 2}}) {
        use(allocatedIndexes(4, 4, 999, xInterval, yInterval));
        host().forget();
        host().failCall("VQubeGetIndexMap");
        EXPECT_EQ(KSReadWinIM(dataSet, &window), 1);
        EXPECT_EQ(host().reports,
                  (Reports{debugOutput("%s: ! VQubeGetIndexMap (fpVQ, anWindow, pau16Samples)\n", "KSReadWinIM()")}));
        EXPECT_EQ(indexes(window), Indexes(8, 999));
    }
}

TEST_F(KSReadWinIMTest, NamesTheBufferThatCouldNotBeAllocated) {
    window = allocatedIndexes(4, 4, 999, 2, 2);
    refuseAllocation(1);
    expectRefused(debugOutput("%s: pau16Buf == NULL, HMalloc() failed\n", "KSReadWinIM()"));
    refuseAllocation(2);
    EXPECT_EQ(KSReadWinIM(dataSet, &window), 0);
    EXPECT_EQ(allocations(), 1);
}

// ---- copying ----

struct KSCopyWinIMTest : IndexTest {
    KSWinIM source{};

    void SetUp() override {
        IndexTest::SetUp();
        source = allocatedIndexes(4, 3, 7);
        window = allocatedIndexes(2, 2, 999);
    }
    void TearDown() override {
        KSFreeWinIM(&source);
        IndexTest::TearDown();
    }
};

TEST_F(KSCopyWinIMTest, WithinTheSourceEitherWayIsZero) {
    for (const auto& [xOff, yOff] : {std::pair{0, 0}, std::pair{4, 0}, std::pair{0, 3}, std::pair{-9, 2}}) {
        std::fill_n(window.pau16Samples, 4, std::uint16_t{999});
        window.nXOff = xOff;
        window.nYOff = yOff;
        EXPECT_EQ(KSCopyWinIM(&source, &window), 0);
        EXPECT_EQ(indexes(window), Indexes(4, 0));
    }
    EXPECT_EQ(indexes(source), Indexes(12, 7));
    EXPECT_EQ(host().calls, std::vector<Call>{});
}

TEST_F(KSCopyWinIMTest, OutsideTheSourceBothWaysIsZeroToo) {
    for (const auto& [xOff, yOff] :
         {std::pair{4, 3}, std::pair{-2, -2}, std::pair{kMost, kMost}, std::pair{-kMost - 1, -kMost - 1}}) {
        std::fill_n(window.pau16Samples, 4, std::uint16_t{999});
        window.nXOff = xOff;
        window.nYOff = yOff;
        EXPECT_EQ(KSCopyWinIM(&source, &window), 0);
        EXPECT_EQ(indexes(window), Indexes(4, 0));
    }
}

TEST_F(KSCopyWinIMTest, ChecksInOrder) {
    EXPECT_EQ(KSCopyWinIM(nullptr, nullptr), 1);
    EXPECT_EQ(KSCopyWinIM(&source, nullptr), 1);
    window.nXSampleInt = 2;
    window.nYSampleInt = 2;
    EXPECT_EQ(KSCopyWinIM(&source, &window), 1);
    window.nXSampleInt = 1;
    EXPECT_EQ(KSCopyWinIM(&source, &window), 1);
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: pWinIMSrc == NULL\n", "KSCopyWinIM()"),
                                       debugOutput("%s: pWinIMDst == NULL\n", "KSCopyWinIM()"),
                                       debugOutput("%s: X sample intervals for windows differ.\n", "KSCopyWinIM()"),
                                       debugOutput("%s: Y sample intervals for windows differ.\n", "KSCopyWinIM()")}));
    EXPECT_EQ(indexes(window), Indexes(4, 999));
}

TEST_F(KSCopyWinIMTest, ADestinationWithoutSamplesSucceedsAtOnce) {
    KSWinIM empty = indexesOf(2, 2);
    EXPECT_EQ(KSCopyWinIM(&source, &empty), 0);
    empty.nNumXSamples = 2;
    EXPECT_EQ(KSCopyWinIM(&source, &empty), 0);
    empty.nNumYSamples = 2;
    EXPECT_EQ(KSCopyWinIM(&source, &empty), 1) << "samples that were never allocated";
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: pWinIMDst->papau16Start == NULL\n", "KSCopyWinIM()")}));
}

// ---- writing ----

struct KSWriteWinIMTest : CubeTest {
    void SetUp() override {
        CubeTest::SetUp();
        window = allocatedIndexes(8, 6, 63);
    }
    void expectRefused(const Report& report) {
        host().forget();
        EXPECT_EQ(KSWriteWinIM(dataSet, &window), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
        EXPECT_EQ(host().count("VQubePutIndexMap"), 0);
    }
    void rename(const char* name) const {
        std::free(dataSet->szFileName);
        dataSet->szFileName = name == nullptr ? nullptr : heapText(name);
    }
};

TEST_F(KSWriteWinIMTest, WritesTheWholeImageWhateverTheOffsets) {
    window.nXOff = 3;
    window.nYOff = -2;
    EXPECT_EQ(KSWriteWinIM(dataSet, &window), 0);
    EXPECT_EQ(host().reports, Reports{});
    EXPECT_EQ(
        host().callsOf({"DKCheck", "fp2filename", "VQubePutIndexMap"}),
        (Names{"DKCheck(cube.tif)", "fp2filename(cube.tif:1)", "VQubePutIndexMap(cube.tif:1, [0 0 8 6], 64, 8, 6)"}));
    EXPECT_EQ(cube().indexes, Indexes(48, 63));
}

TEST_F(KSWriteWinIMTest, HandsOnTheWindowsOwnSize) {
    window.nYSize = 3;
    EXPECT_EQ(KSWriteWinIM(dataSet, &window), 0);
    EXPECT_EQ(host().argumentsOf("VQubePutIndexMap"), "cube.tif:1, [0 0 8 6], 64, 8, 3");
    EXPECT_EQ(cube().indexes[23], 63);
    EXPECT_EQ(cube().indexes[24], stored(0, 3));
}

TEST_F(KSWriteWinIMTest, AHeightBelowOneIsNotLookedAt) {
    window.nYSize = 0;
    EXPECT_EQ(KSWriteWinIM(dataSet, &window), 0);
    EXPECT_EQ(host().reports, Reports{});
    EXPECT_EQ(host().argumentsOf("VQubePutIndexMap"), "cube.tif:1, [0 0 8 6], 64, 8, 0");
}

TEST_F(KSWriteWinIMTest, AWidthOfZeroIsReportedWrittenAndFailed) {
    window.nXSize = 0;
    EXPECT_EQ(KSWriteWinIM(dataSet, &window), 1);
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: pWinIM->nXSize < 1\n", "KSWriteWinIM()")}));
    EXPECT_EQ(
        host().callsOf({"Debug", "VQubePutIndexMap"}),
        (Names{"Debug(KSWriteWinIM(): pWinIM->nXSize < 1\n)", "VQubePutIndexMap(cube.tif:1, [0 0 8 6], 64, 0, 6)"}));
}

TEST_F(KSWriteWinIMTest, ARefusalByTheHostIsSilent) {
    host().failCall("VQubePutIndexMap");
    EXPECT_EQ(KSWriteWinIM(dataSet, &window), 1);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSWriteWinIMTest, ChecksInOrder) {
    EXPECT_EQ(KSWriteWinIM(nullptr, nullptr), 1);
    EXPECT_EQ(KSWriteWinIM(dataSet, nullptr), 1);
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: pDataSet == NULL\n", "KSWriteWinIM()"),
                                       debugOutput("%s: pWinIM == NULL\n", "KSWriteWinIM()")}));
    EXPECT_EQ(host().count("DKCheck"), 0);
    const KSWinIM good = window;
    window.pau16Samples = nullptr;
    window.nXSampleInt = window.nYSampleInt = 2;
    dataSet->nXSize = dataSet->nYSize = dataSet->VQubeInfo.nBitsPerIndex = 0;
    drop(dataSet->VQubeInfo.papfVQChan);
    for (const char* name : {static_cast<const char*>(nullptr), ""}) {
        rename(name);
        expectRefused(debugOutput("%s: pDataSet->szFileName == NULL or zero-length\n", "KSWriteWinIM()"));
        EXPECT_EQ(host().count("DKCheck"), 0);
    }
    rename("gone.tif");
    expectRefused(debugOutput("%s: pDataSet->szFileName ('%s') was not found\n", "KSWriteWinIM()", "gone.tif"));
    rename("cube.tif");
    expectRefused(debugOutput("%s: pDataSet->nXSize < 1\n", "KSWriteWinIM()"));
    dataSet->nXSize = 8;
    expectRefused(debugOutput("%s: pDataSet->nYSize < 1\n", "KSWriteWinIM()"));
    dataSet->nYSize = 6;
    expectRefused(debugOutput("%s: pDataSet->VQubeInfo.nBitsPerIndex < 1\n", "KSWriteWinIM()"));
    dataSet->VQubeInfo.nBitsPerIndex = 8;
    expectRefused(debugOutput("%s: pWinIM->pau16Samples == NULL\n", "KSWriteWinIM()"));
    window.pau16Samples = good.pau16Samples;
    expectRefused(debugOutput("%s: pWinIM->nXSampleInt != 1\n", "KSWriteWinIM()"));
    window.nXSampleInt = 1;
    expectRefused(debugOutput("%s: pWinIM->nYSampleInt != 1\n", "KSWriteWinIM()"));
    window.nYSampleInt = 1;
    expectRefused(failure("%s: pDataSet->VQubeInfo.papfVQChan[0] = NULL", "KSWriteWinIM()"));
    dataSet->VQubeInfo.papfVQChan = heapArray(std::vector<HostFile*>{nullptr});
    expectRefused(failure("%s: pDataSet->VQubeInfo.papfVQChan[0] = NULL", "KSWriteWinIM()"));
    dataSet->VQubeInfo.papfVQChan[0] = host().onlyHandle();
    EXPECT_EQ(KSWriteWinIM(dataSet, &window), 0);
}

TEST_F(KSWriteWinIMTest, TheReportOfTheWidthComesBeforeTheLaterChecks) {
    window.nXSize = -1;
    window.nYSampleInt = 3;
    EXPECT_EQ(KSWriteWinIM(dataSet, &window), 1);
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: pWinIM->nXSize < 1\n", "KSWriteWinIM()"),
                                       debugOutput("%s: pWinIM->nYSampleInt != 1\n", "KSWriteWinIM()")}));
    EXPECT_EQ(host().count("VQubePutIndexMap"), 0);
}

}  // namespace
