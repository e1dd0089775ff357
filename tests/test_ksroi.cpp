// Regions of interest: records and arrays of them, what they cover of a window, unions, and bits.
#include <kslib.h>

#include <cstdlib>
#include <functional>
#include <limits>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "datasets.hpp"
#include "fixture.hpp"

using namespace kit;

namespace {

constexpr int kUntouched = 12345;
constexpr int kMost = std::numeric_limits<int>::max();

KSROI point(int x, int y, int size, int unused = -1) { return {KS_ROI_POINT, x, y, size, unused, nullptr, -1}; }

KSROI rectangle(int x, int y, int width, int height) { return {KS_ROI_RECTANGLE, x, y, width, height, nullptr, -1}; }

using Pixel = std::pair<int, int>;
using Pixels = std::set<Pixel>;

/// A bitmap region with its own memory; the bits of the given pixels, relative to its corner, are set one by one.
KSROI bitmap(int x, int y, int width, int height, const Pixels& pixels = {}) {
    const auto bytes = static_cast<std::size_t>((width * height + 7) / 8);
    KSROI region = {KS_ROI_BITMAP, x, y, width, height, heapArray(std::vector<unsigned char>(bytes)), -1};
    for (const Pixel& pixel : pixels) {
        const int index = pixel.second * width + pixel.first;
        region.pbyBitmap[index / 8] = static_cast<unsigned char>(region.pbyBitmap[index / 8] | (0x80U >> (index % 8)));
    }
    return region;
}

/// The pixels of the image that a region holds, one by one from the definition of its kind.
Pixels pixelsOf(const KSROI& region) {
    Pixels held;
    if (region.eROIType == KS_ROI_POINT) {
        const int half = region.nXSize / 2;
        for (int y = -half; y <= half; ++y) {
            for (int x = -half; x <= half; ++x) held.insert({region.nXOff + x, region.nYOff + y});
        }
        return held;
    }
    for (int y = 0; y < region.nYSize; ++y) {
        for (int x = 0; x < region.nXSize; ++x) {
            const int index = y * region.nXSize + x;
            const bool in =
                region.eROIType == KS_ROI_RECTANGLE || (region.pbyBitmap[index / 8] >> (7 - index % 8) & 1) != 0;
            if (in) held.insert({region.nXOff + x, region.nYOff + y});
        }
    }
    return held;
}

bool isReset(const KSROI& region) {
    return region.eROIType == KS_ROI_UNKNOWN && region.nXOff == -1 && region.nYOff == -1 && region.nXSize == -1 &&
           region.nYSize == -1 && region.pbyBitmap == nullptr && region.nBitmapID == -1;
}

// ---- records ----

using KSCreateROITest = LibraryTest;

TEST_F(KSCreateROITest, GivesARecordThatIsReset) {
    KSROI* region = KSCreateROI();
    ASSERT_NE(region, nullptr);
    EXPECT_TRUE(isReset(*region));
    KSFreeROI(region);
    EXPECT_EQ(host().calls, std::vector<Call>{});
}

TEST_F(KSCreateROITest, ReportsThatThereIsNoMemory) {
    refuseAllocation(1);
    EXPECT_EQ(KSCreateROI(), nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pRetVal == NULL, HMalloc () failed.\n", "KSCreateROI ()")}));
}

TEST(ROITypeNames, AreIndexedByTheType) {
    EXPECT_STREQ(aKSROIType[KS_ROI_UNKNOWN].szName, "unknown");
    EXPECT_STREQ(aKSROIType[KS_ROI_POINT].szName, "point");
    EXPECT_STREQ(aKSROIType[KS_ROI_RECTANGLE].szName, "rectangle");
    EXPECT_STREQ(aKSROIType[KS_ROI_BITMAP].szName, "bitmap");
    EXPECT_EQ((std::vector<int>{KS_ROI_UNKNOWN, KS_ROI_POINT, KS_ROI_RECTANGLE, KS_ROI_BITMAP}),
              (std::vector<int>{0, 1, 2, 3}));
}

using KSFreeROITest = LibraryTest;

TEST_F(KSFreeROITest, AcceptsNullAndFreesTheBitmapWithTheRecord) {
    KSFreeROI(nullptr);
    KSROI* region = heapRecord<KSROI>();
    *region = bitmap(0, 0, 5, 5);
    KSFreeROI(region);
    KSFreeROIList(nullptr, 3);
    KSFreeROIList(
        heapArray(std::vector<KSROI>{point(1, 1, 1), bitmap(0, 0, 9, 9), rectangle(0, 0, 2, 2), bitmap(0, 0, 1, 1)}),
        4);
    EXPECT_EQ(host().calls, std::vector<Call>{});
}

using KSAddROITest = LibraryTest;

TEST_F(KSAddROITest, StartsAnArrayAndIgnoresThePointerOfAnEmptyOne) {
    KSROI foreign = rectangle(1, 2, 3, 4);
    KSROI* array = KSAddROI(&foreign, 0);
    ASSERT_NE(array, nullptr);
    EXPECT_NE(array, &foreign);
    EXPECT_TRUE(isReset(array[0]));
    EXPECT_EQ(foreign.nYSize, 4);
    KSFreeROIList(array, 1);
}

TEST_F(KSAddROITest, KeepsTheOldRecordsAndResetsTheNewOne) {
    KSROI* array = nullptr;
    for (int count = 0; count < 20; ++count) {
        array = KSAddROI(array, count);
        ASSERT_NE(array, nullptr);
        EXPECT_TRUE(isReset(array[count]));
        array[count] = count % 2 == 0 ? rectangle(count, 2 * count, 3, 4) : bitmap(count, 2 * count, 3, 4, {{1, 1}});
    }
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(array[i].nXOff, i);
        EXPECT_EQ(array[i].nYOff, 2 * i);
        if (i % 2 == 1) {
            EXPECT_EQ(array[i].pbyBitmap[0], 0x08);
        }
    }
    KSFreeROIList(array, 20);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSAddROITest, WithoutMemoryTheOldArrayStays) {
    const Report report = failure("%s: paRetVal == NULL, HMalloc () or KSRealloc () failed.\n", "KSAddROI ()");
    refuseAllocation(1);
    EXPECT_EQ(KSAddROI(nullptr, 0), nullptr);
    KSROI* array = heapArray(std::vector<KSROI>{rectangle(1, 2, 3, 4)});
    refuseAllocation(1);
    EXPECT_EQ(KSAddROI(array, 1), nullptr);
    EXPECT_EQ(host().reports, (Reports{report, report}));
    EXPECT_EQ(array[0].nXSize, 3);
    KSFreeROIList(array, 1);
}

// ---- regions and windows ----

/// A window by its first pixel, sample counts and intervals.
struct Samples {
    int xOff, yOff, across, down, xInterval, yInterval;
};

struct Overlap {
    int overlap = kUntouched, xStart = kUntouched, yStart = kUntouched, xEnd = kUntouched, yEnd = kUntouched;
    bool operator==(const Overlap& other) const {
        return overlap == other.overlap && xStart == other.xStart && yStart == other.yStart && xEnd == other.xEnd &&
               yEnd == other.yEnd;
    }
};
std::ostream& operator<<(std::ostream& out, const Overlap& o) {
    return out << o.overlap << ": " << o.xStart << ", " << o.yStart << " to " << o.xEnd << ", " << o.yEnd;
}

KSWinEx explicitWindow(const Samples& w) {
    KSWinEx window{};
    window.nXOff = w.xOff;
    window.nYOff = w.yOff;
    window.nNumXSamples = w.across;
    window.nNumYSamples = w.down;
    window.SampDesc.nXSampleInt = w.xInterval;
    window.SampDesc.nYSampleInt = w.yInterval;
    return window;
}

KSWinIM indexWindow(const Samples& w) {
    KSWinIM window{};
    window.nXOff = w.xOff;
    window.nYOff = w.yOff;
    window.nNumXSamples = w.across;
    window.nNumYSamples = w.down;
    window.nXSampleInt = w.xInterval;
    window.nYSampleInt = w.yInterval;
    return window;
}

/// The same question through the three entries, which must agree.
Overlap overlapOf(const KSROI* region, const Samples& w, int status = 0) {
    Overlap a;
    Overlap b;
    Overlap c;
    EXPECT_EQ(KSROIWin(region, w.xOff, w.yOff, w.across, w.down, w.xInterval, w.yInterval, &a.overlap, &a.xStart,
                       &a.yStart, &a.xEnd, &a.yEnd),
              status);
    const KSWinEx ex = explicitWindow(w);
    EXPECT_EQ(KSROIWinEx(region, &ex, &b.overlap, &b.xStart, &b.yStart, &b.xEnd, &b.yEnd), status);
    const KSWinIM im = indexWindow(w);
    EXPECT_EQ(KSROIWinIM(region, &im, &c.overlap, &c.xStart, &c.yStart, &c.xEnd, &c.yEnd), status);
    EXPECT_EQ(a, b);
    EXPECT_EQ(a, c);
    return a;
}

int inside(const KSROI* region, const Samples& w, int x, int y, int status = 0) {
    int a = kUntouched;
    int b = kUntouched;
    int c = kUntouched;
    EXPECT_EQ(KSInROIWin(region, w.xOff, w.yOff, w.xInterval, w.yInterval, x, y, &a), status);
    const KSWinEx ex = explicitWindow(w);
    EXPECT_EQ(KSInROIWinEx(region, &ex, x, y, &b), status);
    const KSWinIM im = indexWindow(w);
    EXPECT_EQ(KSInROIWinIM(region, &im, x, y, &c), status);
    EXPECT_EQ(a, b);
    EXPECT_EQ(a, c);
    return a;
}

/// A kind of argument that is refused, with every later check of the list broken as well.
struct Refusal {
    const char* what;
    const KSROI* region;
    int xInterval;
    int yInterval;
    Report report;
};

struct ROIWindowTest : LibraryTest {
    const KSROI unknown = {KS_ROI_UNKNOWN, 0, 0, 2, 2, nullptr, -1};
    const KSROI beyond = {4, 0, 0, 2, 2, nullptr, -1};
    const KSROI negative = {-1, 0, 0, 2, 2, nullptr, -1};
    const KSROI two = point(5, 5, 2);
    const KSROI none = point(5, 5, 0);
    const KSROI minusTwo = point(5, 5, -2);
    const KSROI good = rectangle(0, 0, 2, 2);

    std::vector<Refusal> refusals(const char* label, const std::function<Report(const char*)>& evenPoint) const {
        const Report type = failure("%s: Unsupported ROI type.\n", label);
        const Report x = failure("%s: nXSampleInt <= 0.\n", label);
        const Report y = failure("%s: nYSampleInt <= 0.\n", label);
        return {{"null", nullptr, 0, 0, failure("%s: pROI == NULL\n", label)},
                {"unknown", &unknown, 0, 0, type},
                {"beyond", &beyond, 0, 0, type},
                {"negative", &negative, 0, 0, type},
                {"size 2", &two, 0, 0, evenPoint(label)},
                {"size 0", &none, 0, 0, evenPoint(label)},
                {"size -2", &minusTwo, 0, 0, evenPoint(label)},
                {"x interval 0", &good, 0, 0, x},
                {"x interval -1", &good, -1, 0, x},
                {"y interval 0", &good, 1, 0, y},
                {"y interval -1", &good, 1, -1, y}};
    }
};

using KSROIWinTest = ROIWindowTest;

TEST_F(KSROIWinTest, ChecksInOrderAndWritesNothing) {
    const auto evenPoint = [](const char* label) {
        return failure("%s: Point neighbourhood X-dimension is not an odd number of pixels.\n", label);
    };
    for (const Refusal& refusal : refusals("KSROIWin ()", evenPoint)) {
        host().forget();
        const Overlap result = overlapOf(refusal.region, {0, 0, 4, 4, refusal.xInterval, refusal.yInterval}, 1);
        EXPECT_EQ(result, Overlap{}) << refusal.what;
        EXPECT_EQ(host().reports, Reports(3, refusal.report)) << refusal.what;
    }
}

TEST_F(KSROIWinTest, NullWindowsAreReported) {
    Overlap o;
    EXPECT_EQ(KSROIWinEx(&good, nullptr, &o.overlap, &o.xStart, &o.yStart, &o.xEnd, &o.yEnd), 1);
    EXPECT_EQ(KSROIWinIM(&good, nullptr, &o.overlap, &o.xStart, &o.yStart, &o.xEnd, &o.yEnd), 1);
    EXPECT_EQ(o, Overlap{});
    EXPECT_EQ(host().reports, (Reports{failure("%s: pWinEx == NULL\n", "KSROIWinEx ()"),
                                       failure("%s: pWinIM == NULL\n", "KSROIWinIM ()")}));
}

TEST_F(KSROIWinTest, AtIntervalsOfOneTheIndicesAreClippedOffsets) {
    const Samples window = {10, 20, 8, 6, 1, 1};
    const auto covered = [&](const KSROI& region) { return overlapOf(&region, window); };
    EXPECT_EQ(covered(rectangle(12, 21, 3, 2)), (Overlap{1, 2, 1, 4, 2}));
    EXPECT_EQ(covered(rectangle(0, 0, 100, 100)), (Overlap{1, 0, 0, 7, 5}));
    EXPECT_EQ(covered(rectangle(15, 24, 100, 100)), (Overlap{1, 5, 4, 7, 5}));
    EXPECT_EQ(covered(rectangle(0, 0, 11, 21)), (Overlap{1, 0, 0, 0, 0}));
    EXPECT_EQ(covered(point(12, 22, 1)), (Overlap{1, 2, 2, 2, 2}));
    EXPECT_EQ(covered(point(12, 22, 3)), (Overlap{1, 1, 1, 3, 3}));
    EXPECT_EQ(covered(point(9, 19, 3)), (Overlap{1, 0, 0, 0, 0}));
    EXPECT_EQ(covered({KS_ROI_BITMAP, 12, 21, 3, 2, nullptr, -1}), (Overlap{1, 2, 1, 4, 2})) << "by its extent alone";
}

TEST_F(KSROIWinTest, WithoutOverlapOnlyThatIsWritten) {
    const Samples window = {10, 20, 8, 6, 1, 1};
    const KSROI outside[] = {rectangle(0, 20, 10, 6), rectangle(18, 20, 5, 6),
                             rectangle(10, 0, 8, 20), rectangle(10, 26, 8, 1),
                             point(8, 22, 3),         point(19, 22, 3),
                             rectangle(-9, -9, 4, 4), rectangle(kMost, kMost, kMost, kMost)};
    for (const KSROI& region : outside) {
        Overlap nothing;
        nothing.overlap = 0;
        EXPECT_EQ(overlapOf(&region, window), nothing);
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSROIWinTest, ARegionInTheGapAfterTheLastSampleOverlapsIt) {
    const Samples window = {0, 0, 3, 2, 4, 5};  // columns 0 to 11, rows 0 to 9
    const KSROI gap = rectangle(9, 6, 3, 4);
    EXPECT_EQ(overlapOf(&gap, window), (Overlap{1, 2, 1, 2, 1}));
    const KSROI corner = point(11, 9, 1);
    EXPECT_EQ(overlapOf(&corner, window), (Overlap{1, 2, 1, 2, 1}));
    const KSROI behind = point(12, 9, 1);
    EXPECT_EQ(overlapOf(&behind, window).overlap, 0);
}

TEST_F(KSROIWinTest, ThePointsSecondSizeHasNoEffect) {
    for (const int unused : {-5, 0, 2, 100}) {
        const KSROI region = point(5, 5, 3, unused);
        EXPECT_EQ(overlapOf(&region, {0, 0, 10, 10, 1, 1}), (Overlap{1, 4, 4, 6, 6}));
        EXPECT_EQ(inside(&region, {0, 0, 10, 10, 1, 1}, 6, 6), 1);
        EXPECT_EQ(inside(&region, {0, 0, 10, 10, 1, 1}, 6, 7), 0);
    }
}

TEST_F(KSROIWinTest, FindsWhatGoingThroughThePixelsFinds) {
    std::mt19937 engine(7U);
    const auto from = [&engine](int low, int high) { return std::uniform_int_distribution<int>(low, high)(engine); };
    int overlapping = 0;
    for (int trial = 0; trial < 3000; ++trial) {
        const KSROI region = trial % 3 == 0 ? point(from(-12, 20), from(-12, 20), 2 * from(0, 4) + 1)
                                            : rectangle(from(-15, 20), from(-15, 20), from(1, 12), from(1, 12));
        const Samples w = {from(-6, 6), from(-6, 6), from(1, 6), from(1, 6), from(1, 4), from(1, 4)};
        Overlap expected;
        expected.overlap = 0;
        for (const Pixel& pixel : pixelsOf(region)) {
            const int x = pixel.first - w.xOff;
            const int y = pixel.second - w.yOff;
            if (x < 0 || y < 0 || x >= w.across * w.xInterval || y >= w.down * w.yInterval) continue;
            const int i = x / w.xInterval;
            const int j = y / w.yInterval;
            const bool first = expected.overlap == 0;
            expected = {1, first ? i : std::min(expected.xStart, i), first ? j : std::min(expected.yStart, j),
                        first ? i : std::max(expected.xEnd, i), first ? j : std::max(expected.yEnd, j)};
        }
        overlapping += expected.overlap;
        EXPECT_EQ(overlapOf(&region, w), expected);
    }
    EXPECT_GT(overlapping, 300);
    EXPECT_LT(overlapping, 2500);
}

using KSInROIWinTest = ROIWindowTest;

TEST_F(KSInROIWinTest, ChecksInOrderAndWritesNothing) {
    const auto evenPoint = [](const char* label) {
        return failure("%s: Point neighbourhood dimension is not\nan odd number of pixels.\n", label);
    };
    for (const Refusal& refusal : refusals("KSInROIWin ()", evenPoint)) {
        host().forget();
        EXPECT_EQ(inside(refusal.region, {0, 0, 4, 4, refusal.xInterval, refusal.yInterval}, 0, 0, 1), kUntouched)
            << refusal.what;
        EXPECT_EQ(host().reports, Reports(3, refusal.report)) << refusal.what;
    }
}

TEST_F(KSInROIWinTest, NullWindowsAreReported) {
    int answer = kUntouched;
    EXPECT_EQ(KSInROIWinEx(&good, nullptr, 0, 0, &answer), 1);
    EXPECT_EQ(KSInROIWinIM(&good, nullptr, 0, 0, &answer), 1);
    EXPECT_EQ(answer, kUntouched);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pWinEx == NULL\n", "KSInROIWinEx ()"),
                                       failure("%s: pWinIM == NULL\n", "KSInROIWinIM ()")}));
}

TEST_F(KSInROIWinTest, AClearBitInsideTheExtentIsOutside) {
    KSROI region = bitmap(3, 4, 3, 3, {{1, 1}});
    EXPECT_EQ(inside(&region, {0, 0, 9, 9, 1, 1}, 4, 5), 1);
    EXPECT_EQ(inside(&region, {0, 0, 9, 9, 1, 1}, 3, 4), 0);
    EXPECT_EQ(inside(&region, {0, 0, 9, 9, 1, 1}, 2, 4), 0);
    std::free(region.pbyBitmap);
}

TEST_F(KSInROIWinTest, TheSamplesPixelDecidesWhereverItIs) {
    KSROI regions[] = {point(6, 7, 1), point(6, 7, 5), rectangle(3, -2, 7, 9),
                       bitmap(2, 3, 9, 7, {{0, 0}, {8, 6}, {3, 3}, {4, 3}, {0, 6}, {7, 1}})};
    for (const KSROI& region : regions) {
        const Pixels held = pixelsOf(region);
        for (const Samples& w : {Samples{0, 0, 0, 0, 1, 1}, Samples{-3, 2, 0, 0, 2, 3}, Samples{5, -4, 0, 0, 3, 1}}) {
            for (int y = -3; y < 12; ++y) {
                for (int x = -3; x < 12; ++x) {
                    const Pixel pixel = {w.xOff + x * w.xInterval, w.yOff + y * w.yInterval};
                    EXPECT_EQ(inside(&region, w, x, y), static_cast<int>(held.count(pixel)));
                }
            }
        }
    }
    std::free(regions[3].pbyBitmap);
    EXPECT_EQ(host().reports, Reports{});
}

// ---- bitmaps ----

using KSAllocROIBitmapTest = LibraryTest;

TEST_F(KSAllocROIBitmapTest, GivesZerosForTheSizes) {
    for (const auto& [width, height, bytes] :
         {std::array<int, 3>{5, 5, 4}, {8, 1, 1}, {9, 1, 2}, {1, 1, 1}, {16, 3, 6}}) {
        KSROI region = {KS_ROI_BITMAP, 3, 4, width, height, nullptr, 9};
        ASSERT_EQ(KSAllocROIBitmap(&region), 0);
        ASSERT_NE(region.pbyBitmap, nullptr);
        for (int i = 0; i < bytes; ++i) EXPECT_EQ(region.pbyBitmap[i], 0);
        KSSetROIBit(&region, width - 1, height - 1);
        EXPECT_NE(region.pbyBitmap[bytes - 1], 0);
        EXPECT_EQ(region.nBitmapID, 9);
        std::free(region.pbyBitmap);
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSAllocROIBitmapTest, ABitmapThatIsThereIsNotFreed) {
    KSROI region = bitmap(0, 0, 8, 1, {{0, 0}});
    unsigned char* old = region.pbyBitmap;
    ASSERT_EQ(KSAllocROIBitmap(&region), 0);
    EXPECT_NE(region.pbyBitmap, old);
    EXPECT_EQ(region.pbyBitmap[0], 0);
    EXPECT_EQ(old[0], 0x80);
    std::free(old);
    std::free(region.pbyBitmap);
}

TEST_F(KSAllocROIBitmapTest, RefusesWhatIsNoBitmap) {
    constexpr const char* kLabel = "KSAllocROIBitmap()";
    EXPECT_EQ(KSAllocROIBitmap(nullptr), 1);
    for (const int type : std::vector<int>{KS_ROI_UNKNOWN, KS_ROI_POINT, KS_ROI_RECTANGLE, 4}) {
        KSROI region = {type, 0, 0, 3, 3, nullptr, -1};
        EXPECT_EQ(KSAllocROIBitmap(&region), 1);
        EXPECT_EQ(region.pbyBitmap, nullptr);
    }
    KSROI region = {KS_ROI_BITMAP, 0, 0, 3, 3, nullptr, -1};
    refuseAllocation(1);
    EXPECT_EQ(KSAllocROIBitmap(&region), 1);
    EXPECT_EQ(region.pbyBitmap, nullptr);
    Reports expected = {failure("%s: pROI == NULL\n", kLabel)};
    expected.insert(expected.end(), 4, failure("%s: ROI is not of type bitmap\n", kLabel));
    expected.push_back(failure("%s: pROI->pbyBitmap == NULL, HCalloc() failed\n", kLabel));
    EXPECT_EQ(host().reports, expected);
}

TEST_F(KSAllocROIBitmapTest, SizesMayExceed32Bits) {
    constexpr int kSide = 65536;  // 2^32 pixels
    KSROI region = {KS_ROI_BITMAP, 0, 0, kSide, kSide, nullptr, -1};
    ASSERT_EQ(KSAllocROIBitmap(&region), 0);
    KSSetROIBit(&region, kSide - 1, kSide - 1);
    EXPECT_EQ(region.pbyBitmap[std::size_t{kSide} * kSide / 8 - 1], 0x01);
    EXPECT_EQ(KSGetROIBit(&region, kSide - 1, kSide - 1), 1);
    EXPECT_EQ(KSGetROIBit(&region, kSide - 1, kSide - 2), 0);
    std::free(region.pbyBitmap);
}

using ROIBitTest = LibraryTest;

TEST_F(ROIBitTest, TheFirstPixelIsTheTopBitOfTheFirstByte) {
    KSROI region = bitmap(100, 200, 10, 3);
    KSSetROIBit(&region, 0, 0);
    EXPECT_EQ(region.pbyBitmap[0], 0x80);
    KSSetROIBit(&region, 8, 0);
    EXPECT_EQ(region.pbyBitmap[1], 0x80);
    KSSetROIBit(&region, 0, 1);
    EXPECT_EQ(region.pbyBitmap[1], 0xa0);
    KSClrROIBit(&region, 8, 0);
    EXPECT_EQ(region.pbyBitmap[1], 0x20);
    EXPECT_EQ(KSGetROIBit(&region, 0, 0), 1);
    EXPECT_EQ(KSGetROIBit(&region, 8, 0), 0);
    EXPECT_EQ(KSGetROIBit(&region, 0, 1), 1);
    std::free(region.pbyBitmap);
}

TEST_F(ROIBitTest, EachPixelHasABitOfItsOwn) {
    KSROI region = bitmap(0, 0, 7, 5);
    for (int one = 0; one < 35; ++one) {
        KSSetROIBit(&region, one % 7, one / 7);
        KSSetROIBit(&region, one % 7, one / 7);
        for (int i = 0; i < 35; ++i) EXPECT_EQ(KSGetROIBit(&region, i % 7, i / 7), i == one ? 1 : 0);
        KSClrROIBit(&region, one % 7, one / 7);
        KSClrROIBit(&region, one % 7, one / 7);
    }
    for (int i = 0; i < 5; ++i) EXPECT_EQ(region.pbyBitmap[i], 0);
    std::free(region.pbyBitmap);
}

using KSBitmapROIBoundsTest = LibraryTest;

TEST_F(KSBitmapROIBoundsTest, RefusesWhatHasNoBits) {
    constexpr const char* kLabel = "KSBitmapROIBounds ()";
    int first = kUntouched;
    int last = kUntouched;
    const KSROI square = rectangle(0, 0, 3, 3);
    const KSROI empty = {KS_ROI_BITMAP, 0, 0, 3, 3, nullptr, -1};
    EXPECT_EQ(KSBitmapROIBounds(nullptr, &first, &last), 1);
    EXPECT_EQ(KSBitmapROIBounds(&square, &first, &last), 1);
    EXPECT_EQ(KSBitmapROIBounds(&empty, &first, &last), 1);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: pROI == NULL\n", kLabel), failure("%s: ROI is not of type bitmap\n", kLabel),
                       failure("%s: pROI->pbyBitmap  == NULL\n", kLabel)}));
    EXPECT_EQ(first, kUntouched);
    EXPECT_EQ(last, kUntouched);
}

TEST_F(KSBitmapROIBoundsTest, GoesByWholeBytes) {
    KSROI region = bitmap(50, 60, 10, 10, {{5, 4}});  // bit 45, in byte 5: rows 4 and (40 + 8) / 10 + 1
    int first = kUntouched;
    int last = kUntouched;
    ASSERT_EQ(KSBitmapROIBounds(&region, &first, &last), 0);
    EXPECT_EQ(first, 4);
    EXPECT_EQ(last, 5);
    KSSetROIBit(&region, 1, 2);  // bit 21, in byte 2, which starts in row 1
    KSSetROIBit(&region, 9, 9);
    ASSERT_EQ(KSBitmapROIBounds(&region, &first, &last), 0);
    EXPECT_EQ(first, 1);
    EXPECT_EQ(last, 9);
    std::free(region.pbyBitmap);
}

TEST_F(KSBitmapROIBoundsTest, WithoutBitsItIsTheWholeBitmap) {
    KSROI region = bitmap(0, 0, 4, 7);
    int first = kUntouched;
    int last = kUntouched;
    EXPECT_EQ(KSBitmapROIBounds(&region, &first, &last), 0);
    EXPECT_EQ(first, 0);
    EXPECT_EQ(last, 6);
    EXPECT_EQ(host().reports, Reports{});
    std::free(region.pbyBitmap);
}

TEST_F(KSBitmapROIBoundsTest, HoldsEverySetBitOfAnyBitmap) {
    for (int width = 1; width <= 20; ++width) {
        for (int one = 0; one < width * 6; ++one) {
            for (const int other : {one, width * 6 - 1}) {
                KSROI region = bitmap(0, 0, width, 6, {{one % width, one / width}, {other % width, other / width}});
                int first = kUntouched;
                int last = kUntouched;
                EXPECT_EQ(KSBitmapROIBounds(&region, &first, &last), 0);
                EXPECT_EQ(first, one / 8 * 8 / width);
                EXPECT_EQ(last, std::min((other / 8 * 8 + 8) / width + 1, 5));
                EXPECT_LE(first, one / width);
                EXPECT_GE(last, other / width);
                std::free(region.pbyBitmap);
            }
        }
    }
}

// ---- unions ----

struct KSConsolidateROIsTest : LibraryTest {
    static constexpr const char* kLabel = "KSConsolidateROIs ()";

    static void expectExtent(const KSROI& region, int x, int y, int width, int height) {
        EXPECT_EQ(region.eROIType, KS_ROI_BITMAP);
        EXPECT_EQ((std::vector<int>{region.nXOff, region.nYOff, region.nXSize, region.nYSize}),
                  (std::vector<int>{x, y, width, height}));
    }
    static Pixels unionOf(const std::vector<KSROI>& regions) {
        Pixels all;
        for (const KSROI& region : regions) all.merge(pixelsOf(region));
        return all;
    }
};

TEST_F(KSConsolidateROIsTest, RefusesWhatIsNoArray) {
    const KSROI square = rectangle(0, 0, 2, 2);
    KSROI kept = bitmap(0, 0, 2, 2, {{0, 0}});
    EXPECT_EQ(KSConsolidateROIs(nullptr, 1, &kept), nullptr);
    EXPECT_EQ(KSConsolidateROIs(&square, 0, &kept), nullptr);
    EXPECT_EQ(KSConsolidateROIs(&square, -1, &kept), nullptr);
    EXPECT_EQ(host().reports, Reports(3, failure("%s: paROI == NULL || nNumROIs == 0 \n", kLabel)));
    EXPECT_EQ(kept.pbyBitmap[0], 0x80);
    std::free(kept.pbyBitmap);
}

TEST_F(KSConsolidateROIsTest, RefusesAResultThatCannotHoldBits) {
    const KSROI square = rectangle(0, 0, 2, 2);
    KSROI wrong = rectangle(0, 0, 2, 2);
    KSROI empty = {KS_ROI_BITMAP, 0, 0, 2, 2, nullptr, -1};
    EXPECT_EQ(KSConsolidateROIs(&square, 1, &wrong), nullptr);
    EXPECT_EQ(KSConsolidateROIs(&square, 1, &empty), nullptr);
    EXPECT_EQ(KSConsolidateROIs(nullptr, 1, &empty), nullptr) << "the array is looked at first";
    EXPECT_EQ(host().reports, (Reports{failure("%s: pConsROI->eROIType != KS_ROI_BITMAP\n", kLabel),
                                       failure("%s: pConsROI->pbyBitmap == NULL\n", kLabel),
                                       failure("%s: paROI == NULL || nNumROIs == 0 \n", kLabel)}));
}

TEST_F(KSConsolidateROIsTest, ANewRegionJustHoldsThemAll) {
    const KSROI regions[] = {rectangle(10, 10, 3, 2), point(20, 5, 3)};
    KSROI* all = KSConsolidateROIs(regions, 2, nullptr);
    ASSERT_NE(all, nullptr);
    expectExtent(*all, 10, 4, 12, 8);
    EXPECT_EQ(all->nBitmapID, -1);
    ASSERT_NE(all->pbyBitmap, nullptr);
    const Pixels held = pixelsOf(*all);
    EXPECT_EQ(held.size(), 6U + 9U);
    EXPECT_EQ(held, unionOf({regions[0], regions[1]}));
    KSFreeROI(all);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSConsolidateROIsTest, IsTheUnionOfThePixels) {
    std::mt19937 engine(11U);
    const auto from = [&engine](int low, int high) { return std::uniform_int_distribution<int>(low, high)(engine); };
    for (int trial = 0; trial < 200; ++trial) {
        std::vector<KSROI> regions;
        const int count = from(1, 5);
        for (int i = 0; i < count; ++i) {
            const int kind = from(1, 3);
            const int x = from(-20, 20);
            const int y = from(-20, 20);
            if (kind == KS_ROI_POINT) {
                regions.push_back(point(x, y, 2 * from(0, 3) + 1, from(-3, 9)));
            } else if (kind == KS_ROI_RECTANGLE) {
                regions.push_back(rectangle(x, y, from(1, 9), from(1, 9)));
            } else {
                regions.push_back(bitmap(x, y, 7, 6, {{from(0, 6), from(0, 5)}, {from(0, 6), from(0, 5)}, {0, 0}}));
            }
        }
        int left = kMost;
        int top = kMost;
        int right = -kMost;
        int bottom = -kMost;
        for (const KSROI& region : regions) {
            const bool isPoint = region.eROIType == KS_ROI_POINT;
            const int half = isPoint ? region.nXSize / 2 : 0;
            left = std::min(left, region.nXOff - half);
            top = std::min(top, region.nYOff - half);
            right = std::max(right, region.nXOff - half + region.nXSize - 1);
            bottom = std::max(bottom, region.nYOff - half + (isPoint ? region.nXSize : region.nYSize) - 1);
        }
        KSROI* all = KSConsolidateROIs(regions.data(), count, nullptr);
        ASSERT_NE(all, nullptr);
        expectExtent(*all, left, top, right - left + 1, bottom - top + 1);
        EXPECT_EQ(pixelsOf(*all), unionOf(regions));
        KSFreeROI(all);
        for (const KSROI& region : regions) std::free(region.pbyBitmap);
    }
}

TEST_F(KSConsolidateROIsTest, AGivenRegionClipsAndKeepsItsBits) {
    KSROI* all = heapRecord<KSROI>();
    *all = bitmap(5, 5, 6, 4, {{5, 3}, {2, 2}});
    all->nBitmapID = 4;
    Pixels expected = pixelsOf(*all);
    std::vector<KSROI> regions = {rectangle(0, 0, 7, 7), point(11, 8, 3), bitmap(9, 4, 4, 4, {{0, 0}, {0, 1}, {3, 1}}),
                                  rectangle(100, 100, 5, 5)};
    for (const Pixel& pixel : unionOf(regions)) {
        if (pixel.first >= 5 && pixel.first < 11 && pixel.second >= 5 && pixel.second < 9) expected.insert(pixel);
    }
    EXPECT_EQ(KSConsolidateROIs(regions.data(), 4, all), all);
    expectExtent(*all, 5, 5, 6, 4);
    EXPECT_EQ(all->nBitmapID, 4);
    EXPECT_EQ(pixelsOf(*all), expected);
    EXPECT_EQ(host().reports, Reports{});
    std::free(regions[2].pbyBitmap);
    KSFreeROI(all);
}

TEST_F(KSConsolidateROIsTest, AnUnknownKindFreesTheResultWhosoeverItIs) {
    for (const int type : {0, 4, -7}) {
        const KSROI regions[] = {rectangle(0, 0, 2, 2), {type, 0, 0, 2, 2, nullptr, -1}, rectangle(5, 5, 2, 2)};
        KSROI* given = heapRecord<KSROI>();
        *given = bitmap(0, 0, 4, 4);
        EXPECT_EQ(KSConsolidateROIs(regions, 3, given), nullptr);
        EXPECT_EQ(KSConsolidateROIs(regions, 3, nullptr), nullptr);
        EXPECT_EQ(host().reports, Reports(2, failure("%s: Unrecognized ROI type.\n", kLabel)));
        host().forget();
    }
}

TEST_F(KSConsolidateROIsTest, WithoutARecordThereIsNone) {
    const KSROI square = rectangle(0, 0, 2, 2);
    refuseAllocation(1);
    EXPECT_EQ(KSConsolidateROIs(&square, 1, nullptr), nullptr);
    ASSERT_FALSE(host().reports.empty());
    EXPECT_EQ(host().reports.front(), failure("%s: pRetVal == NULL, HMalloc () failed.\n", "KSCreateROI ()"));
}

TEST_F(KSConsolidateROIsTest, WithoutABitmapTheRegionComesBackHalfBuilt) {
    // A record of an unknown kind counts in the box by its sizes.
    const KSROI regions[] = {rectangle(10, 10, 3, 2), {KS_ROI_UNKNOWN, 0, 5, 20, 30, nullptr, -1}};
    refuseAllocation(2);
    KSROI* half = KSConsolidateROIs(regions, 2, nullptr);
    ASSERT_NE(half, nullptr);
    expectExtent(*half, 0, 5, 20, 30);
    EXPECT_EQ(half->pbyBitmap, nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pROI->pbyBitmap == NULL, HCalloc() failed\n", "KSAllocROIBitmap()"),
                                       failure("%s: KSAllocROIBitmap() failed.\n", kLabel)}));
    KSFreeROI(half);
}

TEST_F(KSConsolidateROIsTest, ABitmapRegionWithoutABitmapAddsNothing) {
    const KSROI regions[] = {rectangle(0, 0, 2, 2), {KS_ROI_BITMAP, 4, 0, 2, 2, nullptr, -1}};
    KSROI* all = KSConsolidateROIs(regions, 2, nullptr);
    ASSERT_NE(all, nullptr);
    expectExtent(*all, 0, 0, 6, 2);
    EXPECT_EQ(pixelsOf(*all), pixelsOf(regions[0]));
    KSFreeROI(all);
}

}  // namespace
