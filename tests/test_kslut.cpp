// Look-up tables in memory: dimensions, sizes, labels, coordinates, and what follows from them.
#include <kslib/kslut.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

#include "bits.hpp"
#include "tables.hpp"

using namespace kit;

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr int kSmallest = std::numeric_limits<int>::min();
constexpr int kLargest = std::numeric_limits<int>::max();

/// Tables never report, whatever goes wrong.
struct TableTest : LibraryTest {
    void TearDown() override {
        EXPECT_EQ(host().reports, Reports{});
        LibraryTest::TearDown();
    }
};

/// The dimensions that a table of three does not have.
constexpr int kNoDimension[] = {-1, 3, kSmallest, kLargest};

/// A table of 2, 3 and 1 indices with labels and coordinates.
Table sample() {
    Table table = tableOf({2, 3, 1}, 4);
    const char* const labels[] = {"Altitude", nullptr, "Wavelength"};
    EXPECT_EQ(KSLUTSetLabels(table.get(), labels), kOk);
    setCoords(table, 0, {1.5F, 2.5F});
    setCoords(table, 1, {-1.0F, 0.0F, 1.0F});
    setCoords(table, 2, {550.0F});
    return table;
}

void expectSample(const Table& table) {
    EXPECT_EQ(table->nDimensions, 3);
    EXPECT_EQ(table->nElementSize, 4);
    EXPECT_EQ(sizesOf(table), (Sizes{2, 3, 1}));
    EXPECT_EQ(labelOf(table, 0), "Altitude");
    EXPECT_EQ(labelOf(table, 1), "(none)");
    EXPECT_EQ(labelOf(table, 2), "Wavelength");
    EXPECT_EQ(coordsOf(table, 0), (Coords{1.5F, 2.5F}));
    EXPECT_EQ(coordsOf(table, 1), (Coords{-1.0F, 0.0F, 1.0F}));
    EXPECT_EQ(coordsOf(table, 2), (Coords{550.0F}));
}

/// Loses the coordinates of a dimension that keeps its size.
void dropCoords(const Table& table, int d) {
    std::free(table->papafCoords[d]);
    table->papafCoords[d] = nullptr;
}

// ---- making ----

using KSLUTCreateTest = TableTest;

TEST_F(KSLUTCreateTest, ANewTableIsEmpty) {
    const Table table(KSLUTCreate(3));
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->nDimensions, 3);
    EXPECT_EQ(table->nElementSize, 0);
    EXPECT_EQ(table->fp, nullptr);
    EXPECT_EQ(table->nSegment, 0);
    for (int d = 0; d < 3; ++d) {
        EXPECT_EQ(table->panSizes[d], 0);
        EXPECT_EQ(table->papszLabels[d], nullptr);
        EXPECT_EQ(table->papafCoords[d], nullptr);
    }
    EXPECT_EQ(host().calls.size(), 0U);
}

TEST_F(KSLUTCreateTest, NeedsADimension) {
    EXPECT_EQ(KSLUTCreate(0), nullptr);
    EXPECT_EQ(KSLUTCreate(-1), nullptr);
    EXPECT_EQ(KSLUTCreate(kSmallest), nullptr);
    EXPECT_EQ(allocations(), 0);
}

TEST_F(KSLUTCreateTest, GivesNothingWithoutMemory) {
    for (int nth = 1;; ++nth) {
        refuseAllocation(nth);
        const Table table(KSLUTCreate(3));
        if (!allocationRefused()) {
            EXPECT_NE(table, nullptr);
            EXPECT_EQ(nth, 5) << "a record and its three arrays";
            return;
        }
        ASSERT_EQ(table, nullptr) << nth;
    }
}

TEST_F(KSLUTCreateTest, NoTableIsDestroyed) {
    KSLUTDestroy(nullptr);
    EXPECT_EQ(host().calls.size(), 0U);
}

TEST_F(KSLUTCreateTest, ATableWithoutAFileIsDestroyedWithoutTheHost) {
    KSLUTDestroy(sample().release());
    EXPECT_EQ(host().count("GDBClose"), 0);
}

// ---- the number of dimensions ----

using KSLUTSetDimensionsTest = TableTest;

TEST_F(KSLUTSetDimensionsTest, ANewNumberStartsAfresh) {
    for (const int dimensions : {1, 2, 4, 9}) {
        const Table table = sample();
        EXPECT_EQ(KSLUTSetDimensions(table.get(), dimensions), kOk);
        EXPECT_EQ(table->nDimensions, dimensions);
        EXPECT_EQ(sizesOf(table), Sizes(static_cast<std::size_t>(dimensions), 0));
        for (int d = 0; d < dimensions; ++d) {
            EXPECT_EQ(table->papszLabels[d], nullptr);
            EXPECT_EQ(table->papafCoords[d], nullptr);
        }
        EXPECT_EQ(table->nElementSize, 4) << "the element size is not a dimension's";
    }
}

TEST_F(KSLUTSetDimensionsTest, TheSameNumberChangesNothing) {
    const Table table = sample();
    refuseAllocation(0);
    EXPECT_EQ(KSLUTSetDimensions(table.get(), 3), kOk);
    EXPECT_EQ(allocations(), 0);
    expectSample(table);
}

TEST_F(KSLUTSetDimensionsTest, RefusesLessThanOne) {
    const Table table = sample();
    EXPECT_EQ(KSLUTSetDimensions(table.get(), 0), kFailed);
    EXPECT_EQ(KSLUTSetDimensions(table.get(), -3), kFailed);
    EXPECT_EQ(KSLUTSetDimensions(table.get(), kSmallest), kFailed);
    expectSample(table);
    EXPECT_EQ(KSLUTSetDimensions(nullptr, 3), kFailed);
}

TEST_F(KSLUTSetDimensionsTest, WithoutMemoryTheRecordIsReleased) {
    for (int nth = 1;; ++nth) {
        KSLUT* table = sample().release();
        refuseAllocation(nth);
        const int result = KSLUTSetDimensions(table, 5);
        if (!allocationRefused()) {
            EXPECT_EQ(result, kOk);
            EXPECT_EQ(nth, 4) << "three arrays";
            KSLUTDestroy(table);
            return;
        }
        // The table is gone: what it owned would be found as lost memory otherwise.
        ASSERT_EQ(result, kFailed) << nth;
    }
}

TEST_F(KSLUTSetDimensionsTest, AReleasedRecordGivesItsFileBack) {
    host().addFile("tables.ks", 0, 0, {}).segments[1].type = kTableSegment;
    HostFile* file = host().open("tables.ks", true);
    KSLUT* table = sample().release();
    ASSERT_EQ(KSLUTSetFileInfo(table, file, 1), kOk);
    ASSERT_EQ(file->references, 2);
    refuseAllocation(2);
    EXPECT_EQ(KSLUTSetDimensions(table, 5), kFailed);
    EXPECT_EQ(file->references, 1);
    GDBClose(file);
}

TEST_F(KSLUTSetDimensionsTest, AreToldWithoutBeingWrittenToNull) {
    const Table table = sample();
    int dimensions = 77;
    EXPECT_EQ(KSLUTGetDimensions(table.get(), &dimensions), kOk);
    EXPECT_EQ(dimensions, 3);
    EXPECT_EQ(KSLUTGetDimensions(table.get(), nullptr), kOk);
    dimensions = 77;
    EXPECT_EQ(KSLUTGetDimensions(nullptr, &dimensions), kFailed);
    EXPECT_EQ(dimensions, 77);
}

// ---- the element size ----

using KSLUTElementSizeTest = TableTest;

TEST_F(KSLUTElementSizeTest, IsSetAndTold) {
    const Table table(KSLUTCreate(1));
    int size = 77;
    EXPECT_EQ(KSLUTGetElementSize(table.get(), &size), kOk);
    EXPECT_EQ(size, 0);
    for (const int set : {1, 8, kLargest}) {
        EXPECT_EQ(KSLUTSetElementSize(table.get(), set), kOk);
        EXPECT_EQ(KSLUTGetElementSize(table.get(), &size), kOk);
        EXPECT_EQ(size, set);
    }
    EXPECT_EQ(KSLUTGetElementSize(table.get(), nullptr), kOk);
}

TEST_F(KSLUTElementSizeTest, IsAtLeastOne) {
    const Table table = sample();
    EXPECT_EQ(KSLUTSetElementSize(table.get(), 0), kFailed);
    EXPECT_EQ(KSLUTSetElementSize(table.get(), -8), kFailed);
    EXPECT_EQ(table->nElementSize, 4);
    EXPECT_EQ(KSLUTSetElementSize(nullptr, 8), kFailed);
    int size = 77;
    EXPECT_EQ(KSLUTGetElementSize(nullptr, &size), kFailed);
    EXPECT_EQ(size, 77);
}

// ---- sizes ----

using KSLUTSizeTest = TableTest;

TEST_F(KSLUTSizeTest, ASizeBringsAsManyZeroCoordinates) {
    const Table table = sample();
    EXPECT_EQ(KSLUTSetSize(table.get(), 1, 5), kOk);
    EXPECT_EQ(sizesOf(table), (Sizes{2, 5, 1}));
    EXPECT_EQ(coordsOf(table, 1), Coords(5, 0.0F));
    EXPECT_EQ(coordsOf(table, 0), (Coords{1.5F, 2.5F})) << "the other dimensions stay";
    EXPECT_EQ(labelOf(table, 0), "Altitude");
}

TEST_F(KSLUTSizeTest, TheSameSizeForgetsTheCoordinatesToo) {
    const Table table = sample();
    EXPECT_EQ(KSLUTSetSize(table.get(), 0, 2), kOk);
    EXPECT_EQ(coordsOf(table, 0), (Coords{0.0F, 0.0F}));
}

TEST_F(KSLUTSizeTest, ASizeBelowOneLeavesTheCoordinates) {
    for (const int size : {0, -1, kSmallest}) {
        const Table table = sample();
        const float* coords = table->papafCoords[0];
        EXPECT_EQ(KSLUTSetSize(table.get(), 0, size), kOk);
        EXPECT_EQ(table->panSizes[0], size);
        ASSERT_EQ(table->papafCoords[0], coords);
        EXPECT_EQ(coords[0], 1.5F);
        EXPECT_EQ(coords[1], 2.5F);
    }
}

TEST_F(KSLUTSizeTest, WithoutMemoryThereAreNoCoordinates) {
    const Table table = sample();
    refuseAllocation(1);
    EXPECT_EQ(KSLUTSetSize(table.get(), 1, 5), kFailed);
    EXPECT_TRUE(allocationRefused());
    EXPECT_EQ(table->panSizes[1], 5);
    EXPECT_EQ(table->papafCoords[1], nullptr);
}

TEST_F(KSLUTSizeTest, OnlyDimensionsThatAreThereHaveASize) {
    const Table table = sample();
    int size = 77;
    for (const int d : kNoDimension) {
        EXPECT_EQ(KSLUTSetSize(table.get(), d, 1), kFailed) << d;
        EXPECT_EQ(KSLUTGetSize(table.get(), d, &size), kFailed) << d;
        EXPECT_EQ(KSLUTGetSize(table.get(), d, nullptr), kFailed) << d;
    }
    EXPECT_EQ(KSLUTSetSize(nullptr, 0, 1), kFailed);
    EXPECT_EQ(KSLUTGetSize(nullptr, 0, &size), kFailed);
    EXPECT_EQ(KSLUTGetSize(nullptr, 0, nullptr), kFailed);
    EXPECT_EQ(size, 77);
    expectSample(table);
}

TEST_F(KSLUTSizeTest, IsTold) {
    const Table table = sample();
    for (int d = 0; d < 3; ++d) {
        int size = 77;
        EXPECT_EQ(KSLUTGetSize(table.get(), d, &size), kOk);
        EXPECT_EQ(size, sizesOf(table)[static_cast<std::size_t>(d)]);
    }
    EXPECT_EQ(KSLUTGetSize(table.get(), 0, nullptr), kOk);
}

TEST_F(KSLUTSizeTest, AllAreSetAndTold) {
    const Table table(KSLUTCreate(3));
    const Sizes sizes = {4, 0, 6};
    EXPECT_EQ(KSLUTSetSizes(table.get(), sizes.data()), kOk);
    EXPECT_EQ(sizesOf(table), sizes);
    EXPECT_EQ(coordsOf(table, 0), Coords(4, 0.0F));
    EXPECT_EQ(table->papafCoords[1], nullptr);
    EXPECT_EQ(coordsOf(table, 2), Coords(6, 0.0F));
    Sizes told(4, 77);
    EXPECT_EQ(KSLUTGetSizes(table.get(), told.data()), kOk);
    EXPECT_EQ(told, (Sizes{4, 0, 6, 77}));
    EXPECT_EQ(KSLUTGetSizes(table.get(), nullptr), kOk);
}

TEST_F(KSLUTSizeTest, NoArrayMakesEverySizeZero) {
    const Table table = sample();
    EXPECT_EQ(KSLUTSetSizes(table.get(), nullptr), kOk);
    EXPECT_EQ(sizesOf(table), (Sizes{0, 0, 0}));
    ASSERT_NE(table->papafCoords[0], nullptr);
    EXPECT_EQ(table->papafCoords[0][1], 2.5F);
}

TEST_F(KSLUTSizeTest, TheTablesOwnArrayKeepsItsSizes) {
    const Table table = sample();
    EXPECT_EQ(KSLUTSetSizes(table.get(), table->panSizes), kOk);
    EXPECT_EQ(sizesOf(table), (Sizes{2, 3, 1}));
    EXPECT_EQ(coordsOf(table, 1), Coords(3, 0.0F));
    EXPECT_EQ(KSLUTGetSizes(table.get(), table->panSizes), kOk);
    EXPECT_EQ(sizesOf(table), (Sizes{2, 3, 1}));
}

TEST_F(KSLUTSizeTest, SettingAllStopsAtTheFirstFailure) {
    const Table table = sample();
    const Sizes sizes = {7, 8, 9};
    refuseAllocation(2);
    EXPECT_EQ(KSLUTSetSizes(table.get(), sizes.data()), kFailed);
    EXPECT_TRUE(allocationRefused());
    EXPECT_EQ(sizesOf(table), (Sizes{7, 8, 1}));
    EXPECT_EQ(coordsOf(table, 2), (Coords{550.0F}));
}

TEST_F(KSLUTSizeTest, NoTableHasSizes) {
    Sizes sizes = {1, 2, 3};
    EXPECT_EQ(KSLUTSetSizes(nullptr, sizes.data()), kFailed);
    EXPECT_EQ(KSLUTSetSizes(nullptr, nullptr), kFailed);
    EXPECT_EQ(KSLUTGetSizes(nullptr, sizes.data()), kFailed);
    EXPECT_EQ(KSLUTGetSizes(nullptr, nullptr), kFailed);
    EXPECT_EQ(sizes, (Sizes{1, 2, 3}));
}

// ---- labels ----

using KSLUTLabelTest = TableTest;

TEST_F(KSLUTLabelTest, IsACopyByTheHost) {
    const Table table(KSLUTCreate(2));
    std::string text = "View zenith angle";
    EXPECT_EQ(KSLUTSetLabel(table.get(), 1, text.c_str()), kOk);
    EXPECT_EQ(host().argumentsOf("_HString"), "View zenith angle");
    text[0] = 'X';
    EXPECT_EQ(labelOf(table, 0), "(none)");
    EXPECT_EQ(labelOf(table, 1), "View zenith angle");
    EXPECT_EQ(KSLUTSetLabel(table.get(), 1, ""), kOk);
    EXPECT_EQ(labelOf(table, 1), "") << "an empty label is one";
    EXPECT_EQ(KSLUTSetLabel(table.get(), 1, nullptr), kOk);
    EXPECT_EQ(table->papszLabels[1], nullptr);
    EXPECT_EQ(host().count("_HString"), 2) << "nothing is copied for no label";
}

TEST_F(KSLUTLabelTest, MayBeSetFromItself) {
    const Table table = sample();
    EXPECT_EQ(KSLUTSetLabel(table.get(), 0, table->papszLabels[0]), kOk);
    EXPECT_EQ(labelOf(table, 0), "Altitude");
    EXPECT_EQ(KSLUTSetLabel(table.get(), 2, table->papszLabels[2] + 4), kOk);
    EXPECT_EQ(labelOf(table, 2), "length");
    EXPECT_EQ(KSLUTSetLabels(table.get(), table->papszLabels), kOk);
    EXPECT_EQ(labelOf(table, 0), "Altitude");
    EXPECT_EQ(labelOf(table, 1), "(none)");
    EXPECT_EQ(labelOf(table, 2), "length");
}

TEST_F(KSLUTLabelTest, ThatCannotBeCopiedIsNone) {
    const Table table = sample();
    host().failCall("_HString");
    EXPECT_EQ(KSLUTSetLabel(table.get(), 0, "Other"), kFailed);
    EXPECT_EQ(table->papszLabels[0], nullptr);
}

TEST_F(KSLUTLabelTest, OnlyDimensionsThatAreThereHaveOne) {
    const Table table = sample();
    host().forget();
    for (const int d : kNoDimension) {
        EXPECT_EQ(KSLUTSetLabel(table.get(), d, "Other"), kFailed) << d;
        EXPECT_EQ(KSLUTSetLabel(table.get(), d, nullptr), kFailed) << d;
        EXPECT_EQ(KSLUTGetLabel(table.get(), d), nullptr) << d;
    }
    EXPECT_EQ(KSLUTSetLabel(nullptr, 0, "Other"), kFailed);
    EXPECT_EQ(KSLUTGetLabel(nullptr, 0), nullptr);
    EXPECT_EQ(host().calls.size(), 0U);
    expectSample(table);
}

TEST_F(KSLUTLabelTest, ACopyIsHandedOut) {
    const Table table = sample();
    host().forget();
    const Block<char> label(KSLUTGetLabel(table.get(), 2));
    ASSERT_NE(label, nullptr);
    EXPECT_EQ(std::string(label.get()), "Wavelength");
    EXPECT_NE(label.get(), table->papszLabels[2]);
    EXPECT_EQ(host().argumentsOf("_HString"), "Wavelength");
    EXPECT_EQ(KSLUTGetLabel(table.get(), 1), nullptr);
    EXPECT_EQ(host().count("_HString"), 1) << "nothing is copied where there is no label";
    host().failCall("_HString");
    EXPECT_EQ(KSLUTGetLabel(table.get(), 2), nullptr);
}

TEST_F(KSLUTLabelTest, AllAreSet) {
    const Table table(KSLUTCreate(3));
    const char* const labels[] = {"a", nullptr, "c"};
    EXPECT_EQ(KSLUTSetLabels(table.get(), labels), kOk);
    EXPECT_EQ(labelOf(table, 0), "a");
    EXPECT_EQ(labelOf(table, 1), "(none)");
    EXPECT_EQ(labelOf(table, 2), "c");
}

TEST_F(KSLUTLabelTest, NoArrayClearsThemAll) {
    const Table table = sample();
    EXPECT_EQ(KSLUTSetLabels(table.get(), nullptr), kOk);
    for (int d = 0; d < 3; ++d) EXPECT_EQ(table->papszLabels[d], nullptr);
}

TEST_F(KSLUTLabelTest, SettingAllStopsAtTheFirstFailure) {
    const Table table = sample();
    const char* const labels[] = {"a", "b", "c"};
    host().failCall("_HString", 2);
    EXPECT_EQ(KSLUTSetLabels(table.get(), labels), kFailed);
    EXPECT_EQ(labelOf(table, 0), "a");
    EXPECT_EQ(labelOf(table, 1), "(none)");
    EXPECT_EQ(labelOf(table, 2), "Wavelength");
}

TEST_F(KSLUTLabelTest, CopiesOfAllAreHandedOut) {
    const Table table = sample();
    char** labels = KSLUTGetLabels(table.get());
    ASSERT_NE(labels, nullptr);
    EXPECT_EQ(std::string(labels[0]), "Altitude");
    EXPECT_EQ(labels[1], nullptr);
    EXPECT_EQ(std::string(labels[2]), "Wavelength");
    EXPECT_NE(labels[0], table->papszLabels[0]);
    for (int d = 0; d < 3; ++d) std::free(labels[d]);
    std::free(labels);
}

TEST_F(KSLUTLabelTest, AllOrNoneAreHandedOut) {
    const Table table = sample();
    host().failCall("_HString", 2);
    EXPECT_EQ(KSLUTGetLabels(table.get()), nullptr);
    refuseAllocation(1);
    EXPECT_EQ(KSLUTGetLabels(table.get()), nullptr);
    EXPECT_TRUE(allocationRefused());
    EXPECT_EQ(KSLUTGetLabels(nullptr), nullptr);
    const char* const labels[] = {"a"};
    EXPECT_EQ(KSLUTSetLabels(nullptr, labels), kFailed);
    EXPECT_EQ(KSLUTSetLabels(nullptr, nullptr), kFailed);
}

// ---- a dimension by its label ----

using KSLUTGetDimensionFromLabelTest = TableTest;

TEST_F(KSLUTGetDimensionFromLabelTest, IgnoresCase) {
    const Table table = sample();
    for (const char* label : {"Wavelength", "wavelength", "WAVELENGTH", "wAvElEnGtH"}) {
        int d = 77;
        EXPECT_EQ(KSLUTGetDimensionFromLabel(table.get(), label, &d), kOk) << label;
        EXPECT_EQ(d, 2) << label;
    }
    EXPECT_EQ(KSLUTGetDimensionFromLabel(table.get(), "altitude", nullptr), kOk);
}

TEST_F(KSLUTGetDimensionFromLabelTest, ComparesWholeLabels) {
    const Table table = sample();
    int d = 77;
    for (const char* label : {"Wave", "Wavelengths", "Wavelength ", " Wavelength", "", "Wave-length"}) {
        EXPECT_EQ(KSLUTGetDimensionFromLabel(table.get(), label, &d), kFailed) << label;
    }
    EXPECT_EQ(d, 77);
}

TEST_F(KSLUTGetDimensionFromLabelTest, FindsTheFirstOne) {
    const Table table(KSLUTCreate(3));
    const char* const labels[] = {nullptr, "angle", "Angle"};
    ASSERT_EQ(KSLUTSetLabels(table.get(), labels), kOk);
    int d = 77;
    EXPECT_EQ(KSLUTGetDimensionFromLabel(table.get(), "Angle", &d), kOk);
    EXPECT_EQ(d, 1);
}

TEST_F(KSLUTGetDimensionFromLabelTest, NeedsATableALabelAndDimensions) {
    const Table table = sample();
    int d = 77;
    EXPECT_EQ(KSLUTGetDimensionFromLabel(nullptr, "Altitude", &d), kFailed);
    EXPECT_EQ(KSLUTGetDimensionFromLabel(table.get(), nullptr, &d), kFailed);
    table->nDimensions = 0;
    EXPECT_EQ(KSLUTGetDimensionFromLabel(table.get(), "Altitude", &d), kFailed);
    table->nDimensions = 3;
    EXPECT_EQ(d, 77);
}

// ---- coordinates ----

using KSLUTCoordTest = TableTest;

TEST_F(KSLUTCoordTest, IsSetAndTold) {
    const Table table = sample();
    EXPECT_EQ(KSLUTSetCoord(table.get(), 1, 0, -7.25F), kOk);
    EXPECT_EQ(KSLUTSetCoord(table.get(), 1, 2, kNaN), kOk);
    EXPECT_TRUE(sameBits(coordsOf(table, 1), Coords{-7.25F, 0.0F, kNaN}));
    float coord = 77.0F;
    EXPECT_EQ(KSLUTGetCoord(table.get(), 1, 0, &coord), kOk);
    EXPECT_EQ(coord, -7.25F);
    EXPECT_EQ(KSLUTGetCoord(table.get(), 1, 1, nullptr), kOk);
}

TEST_F(KSLUTCoordTest, IsThereForEveryIndexOnly) {
    const Table table = sample();
    float coord = 77.0F;
    const auto expectNone = [&](KSLUT* of, int d, int i) {
        EXPECT_EQ(KSLUTSetCoord(of, d, i, 5.0F), kFailed) << d << " " << i;
        EXPECT_EQ(KSLUTGetCoord(of, d, i, &coord), kFailed) << d << " " << i;
        EXPECT_EQ(KSLUTGetCoord(of, d, i, nullptr), kFailed) << d << " " << i;
    };
    for (const int d : kNoDimension) expectNone(table.get(), d, 0);
    for (const int i : {-1, 3, kSmallest, kLargest}) expectNone(table.get(), 1, i);
    expectNone(nullptr, 0, 0);
    expectSample(table);
    EXPECT_EQ(KSLUTSetSize(table.get(), 0, 0), kOk);
    expectNone(table.get(), 0, 0);
    EXPECT_EQ(table->papafCoords[0][0], 1.5F) << "the array is still there, but stands for no index";
    dropCoords(table, 1);
    expectNone(table.get(), 1, 0);
    EXPECT_EQ(coord, 77.0F);
}

TEST_F(KSLUTCoordTest, AllOfADimensionAreSet) {
    const Table table = sample();
    const Coords coords = {4.0F, 5.0F, 6.0F};
    EXPECT_EQ(KSLUTSetCoords(table.get(), 1, coords.data()), kOk);
    EXPECT_EQ(coordsOf(table, 1), coords);
    EXPECT_EQ(coordsOf(table, 0), (Coords{1.5F, 2.5F}));
    EXPECT_EQ(KSLUTSetCoords(table.get(), 1, table->papafCoords[1]), kOk);
    EXPECT_EQ(coordsOf(table, 1), coords);
    EXPECT_EQ(KSLUTSetCoords(table.get(), 1, nullptr), kOk);
    EXPECT_EQ(coordsOf(table, 1), (Coords{0.0F, 0.0F, 0.0F}));
}

TEST_F(KSLUTCoordTest, SettingThoseOfADimensionWithoutIndicesDoesNothing) {
    const Table table = sample();
    const Coords coords = {4.0F, 5.0F};
    for (const int size : {0, -2}) {
        ASSERT_EQ(KSLUTSetSize(table.get(), 0, size), kOk);
        EXPECT_EQ(KSLUTSetCoords(table.get(), 0, coords.data()), kOk);
        EXPECT_EQ(KSLUTSetCoords(table.get(), 0, nullptr), kOk);
        EXPECT_EQ(table->papafCoords[0][0], 1.5F);
    }
    const Table unset(KSLUTCreate(1));
    EXPECT_EQ(KSLUTSetCoords(unset.get(), 0, coords.data()), kOk);
}

TEST_F(KSLUTCoordTest, AreSetOnlyWhereThereIsAnArray) {
    const Table table = sample();
    const Coords coords = {4.0F, 5.0F, 6.0F};
    dropCoords(table, 1);
    EXPECT_EQ(KSLUTSetCoords(table.get(), 1, coords.data()), kFailed);
    EXPECT_EQ(KSLUTSetCoords(table.get(), 1, nullptr), kFailed);
    for (const int d : kNoDimension) EXPECT_EQ(KSLUTSetCoords(table.get(), d, coords.data()), kFailed);
    EXPECT_EQ(KSLUTSetCoords(nullptr, 0, coords.data()), kFailed);
}

TEST_F(KSLUTCoordTest, AllOfADimensionAreTold) {
    const Table table = sample();
    Coords coords(4, 77.0F);
    EXPECT_EQ(KSLUTGetCoords(table.get(), 1, coords.data()), kOk);
    EXPECT_EQ(coords, (Coords{-1.0F, 0.0F, 1.0F, 77.0F}));
    EXPECT_EQ(KSLUTGetCoords(table.get(), 1, nullptr), kOk);
    EXPECT_EQ(KSLUTGetCoords(table.get(), 1, table->papafCoords[1]), kOk);
    expectSample(table);
}

TEST_F(KSLUTCoordTest, ADimensionWithoutIndicesOrArrayTellsNone) {
    const Table table = sample();
    Coords coords(3, 77.0F);
    ASSERT_EQ(KSLUTSetSize(table.get(), 0, 0), kOk);
    dropCoords(table, 1);
    for (const int d : {0, 1, -1, 3}) {
        EXPECT_EQ(KSLUTGetCoords(table.get(), d, coords.data()), kFailed) << d;
        EXPECT_EQ(KSLUTGetCoords(table.get(), d, nullptr), kFailed) << d;
    }
    EXPECT_EQ(KSLUTGetCoords(nullptr, 0, coords.data()), kFailed);
    EXPECT_EQ(coords, Coords(3, 77.0F));
}

TEST_F(KSLUTCoordTest, AllOfAllDimensionsAreSet) {
    const Table table = sample();
    const Coords first = {4.0F, 5.0F};
    const Coords third = {9.0F};
    const float* const all[] = {first.data(), nullptr, third.data()};
    EXPECT_EQ(KSLUTSetAllCoords(table.get(), all), kOk);
    EXPECT_EQ(coordsOf(table, 0), first);
    EXPECT_EQ(coordsOf(table, 1), Coords(3, 0.0F)) << "no array for a dimension means zeros";
    EXPECT_EQ(coordsOf(table, 2), third);
    EXPECT_EQ(KSLUTSetAllCoords(table.get(), table->papafCoords), kOk);
    EXPECT_EQ(coordsOf(table, 0), first);
    EXPECT_EQ(KSLUTSetAllCoords(table.get(), nullptr), kOk);
    EXPECT_EQ(coordsOf(table, 0), Coords(2, 0.0F));
    EXPECT_EQ(coordsOf(table, 2), Coords(1, 0.0F));
}

TEST_F(KSLUTCoordTest, SettingAllStopsAtTheFirstFailure) {
    const Table table = sample();
    dropCoords(table, 1);
    EXPECT_EQ(KSLUTSetAllCoords(table.get(), nullptr), kFailed);
    EXPECT_EQ(coordsOf(table, 0), Coords(2, 0.0F));
    EXPECT_EQ(coordsOf(table, 2), (Coords{550.0F}));
    EXPECT_EQ(KSLUTSetAllCoords(nullptr, nullptr), kFailed);
}

TEST_F(KSLUTCoordTest, AllOfAllDimensionsAreTold) {
    const Table table = sample();
    Coords first(2, 77.0F);
    Coords third(1, 77.0F);
    float* const all[] = {first.data(), nullptr, third.data()};
    EXPECT_EQ(KSLUTGetAllCoords(table.get(), all), kOk);
    EXPECT_EQ(first, (Coords{1.5F, 2.5F}));
    EXPECT_EQ(third, (Coords{550.0F}));
}

TEST_F(KSLUTCoordTest, TellingAllStopsAtTheFirstFailure) {
    const Table table = sample();
    Coords first(2, 77.0F);
    Coords third(1, 77.0F);
    float* const all[] = {first.data(), nullptr, third.data()};
    dropCoords(table, 1);
    EXPECT_EQ(KSLUTGetAllCoords(table.get(), all), kFailed);
    EXPECT_EQ(first, (Coords{1.5F, 2.5F}));
    EXPECT_EQ(third, (Coords{77.0F}));
    EXPECT_EQ(KSLUTGetAllCoords(table.get(), nullptr), kOk) << "nothing was asked for";
    EXPECT_EQ(KSLUTGetAllCoords(nullptr, all), kFailed);
    EXPECT_EQ(KSLUTGetAllCoords(nullptr, nullptr), kFailed);
}

// ---- evenly spaced coordinates ----

struct KSLUTCoordRangeTest : TableTest {
    static Coords spaced(int size, float from, float to) {
        const Table table = tableOf({size});
        EXPECT_EQ(KSLUTSetCoordRange(table.get(), 0, from, to), kOk);
        return coordsOf(table, 0);
    }
};

TEST_F(KSLUTCoordRangeTest, AreSpacedEvenly) {
    EXPECT_EQ(spaced(5, 0.0F, 1.0F), (Coords{0.0F, 0.25F, 0.5F, 0.75F, 1.0F}));
    EXPECT_EQ(spaced(3, 10.0F, -10.0F), (Coords{10.0F, 0.0F, -10.0F}));
    EXPECT_EQ(spaced(4, 7.0F, 7.0F), Coords(4, 7.0F));
    EXPECT_EQ(spaced(2, 400.0F, 2500.0F), (Coords{400.0F, 2500.0F}));
}

TEST_F(KSLUTCoordRangeTest, OneCoordinateIsTheFirst) { EXPECT_EQ(spaced(1, 3.5F, 9.0F), (Coords{3.5F})); }

TEST_F(KSLUTCoordRangeTest, EveryStepIsRoundedToSinglePrecision) {
    const std::vector<Kind> kinds = kindsOfData(40);
    for (const Kind& kind : kinds) {
        for (std::size_t i = 0; i + 1 < kind.values.size(); ++i) {
            const float from = kind.values[i];
            const float to = kind.values[i + 1];
            const int size = 2 + static_cast<int>(i % 17);
            Coords expected = {from};
            for (int k = 1; k < size; ++k) {
                volatile float value = to - from;
                value = static_cast<float>(k) * value;
                value = value / static_cast<float>(size - 1);
                value = value + from;
                expected.push_back(float{value});
            }
            ASSERT_TRUE(sameBits(spaced(size, from, to), expected)) << kind.name << " " << from << " " << to;
        }
    }
}

TEST_F(KSLUTCoordRangeTest, TheLastOneIsComputedLikeTheOthers) {
    // 0.1 - 1e8 rounds to -1e8, and with 1e8 added nothing is left.
    const Coords coords = spaced(3, 1e8F, 0.1F);
    EXPECT_EQ(coords.front(), 1e8F);
    EXPECT_EQ(coords.back(), 0.0F);
}

TEST_F(KSLUTCoordRangeTest, TheFirstOneIsExact) {
    const Coords coords = spaced(2, -0.0F, 5.0F);
    EXPECT_TRUE(std::signbit(coords[0]));
    EXPECT_EQ(spaced(3, 1.5F, std::numeric_limits<float>::infinity()).front(), 1.5F);
}

TEST_F(KSLUTCoordRangeTest, NeedIndicesAndAnArray) {
    const Table table = sample();
    for (const int d : kNoDimension) EXPECT_EQ(KSLUTSetCoordRange(table.get(), d, 0.0F, 1.0F), kFailed);
    EXPECT_EQ(KSLUTSetCoordRange(nullptr, 0, 0.0F, 1.0F), kFailed);
    expectSample(table);
    ASSERT_EQ(KSLUTSetSize(table.get(), 0, 0), kOk);
    EXPECT_EQ(KSLUTSetCoordRange(table.get(), 0, 0.0F, 1.0F), kFailed);
    EXPECT_EQ(table->papafCoords[0][0], 1.5F);
    dropCoords(table, 1);
    EXPECT_EQ(KSLUTSetCoordRange(table.get(), 1, 0.0F, 1.0F), kFailed);
}

TEST_F(KSLUTCoordRangeTest, AllDimensionsGetTheirOwn) {
    const Table table = sample();
    const Coords least = {0.0F, 1.0F, 2.0F};
    const Coords most = {10.0F, 3.0F, 9.0F};
    EXPECT_EQ(KSLUTSetCoordRanges(table.get(), least.data(), most.data()), kOk);
    EXPECT_EQ(coordsOf(table, 0), (Coords{0.0F, 10.0F}));
    EXPECT_EQ(coordsOf(table, 1), (Coords{1.0F, 2.0F, 3.0F}));
    EXPECT_EQ(coordsOf(table, 2), (Coords{2.0F}));
}

TEST_F(KSLUTCoordRangeTest, WithoutBothArraysAllAreZero) {
    const Coords values = {1.0F, 2.0F, 3.0F};
    const float* const arrays[][2] = {{nullptr, values.data()}, {values.data(), nullptr}, {nullptr, nullptr}};
    for (const auto& pair : arrays) {
        const Table table = sample();
        EXPECT_EQ(KSLUTSetCoordRanges(table.get(), pair[0], pair[1]), kOk);
        EXPECT_EQ(coordsOf(table, 0), Coords(2, 0.0F));
        EXPECT_EQ(coordsOf(table, 1), Coords(3, 0.0F));
        EXPECT_EQ(coordsOf(table, 2), Coords(1, 0.0F));
    }
}

TEST_F(KSLUTCoordRangeTest, SettingAllStopsAtTheFirstFailure) {
    const Table table = sample();
    ASSERT_EQ(KSLUTSetSize(table.get(), 1, 0), kOk);
    EXPECT_EQ(KSLUTSetCoordRanges(table.get(), nullptr, nullptr), kFailed);
    EXPECT_EQ(coordsOf(table, 0), Coords(2, 0.0F));
    EXPECT_EQ(coordsOf(table, 2), (Coords{550.0F}));
    EXPECT_EQ(KSLUTSetCoordRanges(nullptr, nullptr, nullptr), kFailed);
}

// ---- copying ----

using KSLUTCopyTest = TableTest;

TEST_F(KSLUTCopyTest, ACopyOwnsWhatItHas) {
    const Table source = sample();
    const Table copy(KSLUTCreateFrom(source.get()));
    ASSERT_NE(copy, nullptr);
    expectSample(copy);
    EXPECT_EQ(copy->fp, nullptr);
    for (int d = 0; d < 3; ++d) EXPECT_NE(copy->papafCoords[d], source->papafCoords[d]);
    EXPECT_NE(copy->papszLabels[0], source->papszLabels[0]);
    source->papafCoords[0][0] = 99.0F;
    source->papszLabels[0][0] = 'X';
    expectSample(copy);
}

TEST_F(KSLUTCopyTest, ATableWithoutAnElementSizeIsNotCopied) {
    const Table source(KSLUTCreate(3));
    EXPECT_EQ(KSLUTCreateFrom(source.get()), nullptr);
    const Table target = sample();
    EXPECT_EQ(KSLUTSetFrom(source.get(), target.get()), kFailed);
    expectSample(target);
}

TEST_F(KSLUTCopyTest, ATableWithoutSizesIsCopied) {
    const Table source(KSLUTCreate(2));
    ASSERT_EQ(KSLUTSetElementSize(source.get(), 8), kOk);
    const Table copy(KSLUTCreateFrom(source.get()));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(sizesOf(copy), (Sizes{0, 0}));
    EXPECT_EQ(copy->papafCoords[0], nullptr);
}

TEST_F(KSLUTCopyTest, NeedsTwoTablesOfAsManyDimensions) {
    const Table source = sample();
    const Table other = tableOf({7, 7});
    EXPECT_EQ(KSLUTSetFrom(source.get(), other.get()), kFailed);
    EXPECT_EQ(sizesOf(other), (Sizes{7, 7}));
    EXPECT_EQ(other->nElementSize, 8);
    EXPECT_EQ(KSLUTSetFrom(source.get(), nullptr), kFailed);
    EXPECT_EQ(KSLUTSetFrom(nullptr, other.get()), kFailed);
    EXPECT_EQ(KSLUTSetFrom(nullptr, nullptr), kFailed);
    EXPECT_EQ(KSLUTCreateFrom(nullptr), nullptr);
}

TEST_F(KSLUTCopyTest, ReplacesWhatTheTargetHad) {
    const Table source = sample();
    const Table target = tableOf({5, 5, 5}, 2);
    const char* const labels[] = {"x", "y", "z"};
    ASSERT_EQ(KSLUTSetLabels(target.get(), labels), kOk);
    EXPECT_EQ(KSLUTSetFrom(source.get(), target.get()), kOk);
    expectSample(target);
}

TEST_F(KSLUTCopyTest, MissingCoordinatesOfTheSourceAreZeros) {
    const Table source = sample();
    dropCoords(source, 1);
    const Table copy(KSLUTCreateFrom(source.get()));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(coordsOf(copy, 1), Coords(3, 0.0F));
}

TEST_F(KSLUTCopyTest, ACopyOfItselfKeepsTheTable) {
    const Table table = sample();
    EXPECT_EQ(KSLUTSetFrom(table.get(), table.get()), kOk);
    expectSample(table);
}

TEST_F(KSLUTCopyTest, StopsAtTheFirstStepThatFails) {
    const Table source = sample();
    {
        const Table target(KSLUTCreate(3));
        refuseAllocation(2);  // the coordinates of the second dimension
        EXPECT_EQ(KSLUTSetFrom(source.get(), target.get()), kFailed);
        EXPECT_TRUE(allocationRefused());
        EXPECT_EQ(target->nElementSize, 4) << "set first";
        EXPECT_EQ(sizesOf(target), (Sizes{2, 3, 0}));
        EXPECT_EQ(labelOf(target, 0), "(none)") << "labels come behind sizes";
    }
    {
        const Table target(KSLUTCreate(3));
        host().failCall("_HString", 2);
        EXPECT_EQ(KSLUTSetFrom(source.get(), target.get()), kFailed);
        EXPECT_EQ(sizesOf(target), (Sizes{2, 3, 1}));
        EXPECT_EQ(labelOf(target, 0), "Altitude");
        EXPECT_EQ(coordsOf(target, 0), Coords(2, 0.0F)) << "coordinates come behind labels";
    }
}

TEST_F(KSLUTCopyTest, GivesNothingWithoutMemory) {
    const Table source = sample();
    for (int nth = 1;; ++nth) {
        refuseAllocation(nth);
        const Table copy(KSLUTCreateFrom(source.get()));
        if (!allocationRefused()) {
            ASSERT_NE(copy, nullptr);
            expectSample(copy);
            EXPECT_EQ(nth, 8) << "a record, three arrays, and the coordinates of three dimensions";
            return;
        }
        ASSERT_EQ(copy, nullptr) << nth;
    }
}

TEST_F(KSLUTCopyTest, GivesNothingWhenALabelCannotBeCopied) {
    const Table source = sample();
    for (const int nth : {1, 2}) {
        host().failCall("_HString", nth);
        EXPECT_EQ(KSLUTCreateFrom(source.get()), nullptr) << nth;
    }
}

// ---- validity and what follows from the sizes ----

using KSLUTShapeTest = TableTest;

TEST_F(KSLUTShapeTest, IsValidWhenEveryDimensionHasIndices) {
    EXPECT_EQ(KSLUTIsValid(tableOf({1}).get()), kOk);
    EXPECT_EQ(KSLUTIsValid(tableOf({4, 5, 6}).get()), kOk);
    for (const Sizes& sizes : {Sizes{0}, Sizes{4, 0, 6}, Sizes{0, 5, 6}, Sizes{4, 5, 0}, Sizes{4, -1, 6}}) {
        EXPECT_EQ(KSLUTIsValid(tableOf(sizes).get()), kFailed);
    }
    EXPECT_EQ(KSLUTIsValid(nullptr), kFailed);
    const Table withoutDimensions = tableOf({4});
    withoutDimensions->nDimensions = 0;
    EXPECT_EQ(KSLUTIsValid(withoutDimensions.get()), kFailed);
    withoutDimensions->nDimensions = 1;
    const Table withoutElementSize(KSLUTCreate(1));
    ASSERT_EQ(KSLUTSetSize(withoutElementSize.get(), 0, 2), kOk);
    EXPECT_EQ(KSLUTIsValid(withoutElementSize.get()), kOk) << "the element size does not count";
}

TEST_F(KSLUTShapeTest, CountsElementsAndDistances) {
    const Table table = tableOf({4, 5, 6});
    std::int64_t elements = 0;
    EXPECT_EQ(KSLUTGetNumElems(table.get(), &elements), kOk);
    EXPECT_EQ(elements, 120);
    Extents distances(4, 77);
    EXPECT_EQ(KSLUTGetElemDist(table.get(), distances.data()), kOk);
    EXPECT_EQ(distances, (Extents{30, 6, 1, 77}));
    EXPECT_EQ(KSLUTGetNumElems(table.get(), nullptr), kOk);
    EXPECT_EQ(KSLUTGetElemDist(table.get(), nullptr), kOk);
}

TEST_F(KSLUTShapeTest, CountsIn64Bits) {
    const Table table = tableOf({3, 1, 1}, kLargest);
    // Sizes alone count; nobody has that much memory for coordinates.
    table->panSizes[1] = table->panSizes[2] = 1 << 20;
    std::int64_t elements = 0;
    EXPECT_EQ(KSLUTGetNumElems(table.get(), &elements), kOk);
    EXPECT_EQ(elements, std::int64_t{3} << 40);
    Extents distances(3);
    EXPECT_EQ(KSLUTGetElemDist(table.get(), distances.data()), kOk);
    EXPECT_EQ(distances, (Extents{std::int64_t{1} << 40, 1 << 20, 1}));
    table->nElementSize = 1 << 20;
    std::int64_t blocks = 0;
    EXPECT_EQ(KSLUTGetBlockSize(table.get(), &blocks), kOk);
    EXPECT_EQ(blocks, (std::int64_t{3} << 51) + 2);
}

TEST_F(KSLUTShapeTest, NoCountIsMadeUp) {
    const Table table = tableOf({1, 1, 1, 1}, kLargest);
    for (int d = 0; d < 3; ++d) table->panSizes[d] = 1 << 20;
    std::int64_t count = 77;
    EXPECT_EQ(KSLUTGetBlockSize(table.get(), &count), kFailed) << "2^60 elements of 2^31 bytes";
    table->panSizes[3] = 1 << 20;
    EXPECT_EQ(KSLUTGetNumElems(table.get(), &count), kFailed) << "2^80 elements";
    EXPECT_EQ(KSLUTGetBlockSize(table.get(), &count), kFailed);
    EXPECT_EQ(count, 77);
}

TEST_F(KSLUTShapeTest, InvalidTablesHaveNoCounts) {
    const Table table = tableOf({4, 0, 6});
    KSLUT* const tables[] = {table.get(), nullptr};
    for (KSLUT* invalid : tables) {
        std::int64_t count = 77;
        Extents distances(3, 77);
        EXPECT_EQ(KSLUTGetNumElems(invalid, &count), kFailed);
        EXPECT_EQ(KSLUTGetNumElems(invalid, nullptr), kFailed);
        EXPECT_EQ(KSLUTGetElemDist(invalid, distances.data()), kFailed);
        EXPECT_EQ(KSLUTGetElemDist(invalid, nullptr), kFailed);
        EXPECT_EQ(KSLUTGetBlockSize(invalid, &count), kFailed);
        EXPECT_EQ(KSLUTGetBlockSize(invalid, nullptr), kFailed);
        EXPECT_EQ(count, 77);
        EXPECT_EQ(distances, Extents(3, 77));
    }
}

TEST_F(KSLUTShapeTest, BlocksHold512BytesAndTwoAreSpare) {
    const auto blocks = [](const Sizes& sizes, int elementSize) {
        std::int64_t count = 0;
        EXPECT_EQ(KSLUTGetBlockSize(tableOf(sizes, elementSize).get(), &count), kOk);
        return count;
    };
    EXPECT_EQ(blocks({4, 5, 6}, 8), 4);
    EXPECT_EQ(blocks({1}, 1), 3);
    EXPECT_EQ(blocks({512}, 1), 3);
    EXPECT_EQ(blocks({513}, 1), 4);
    EXPECT_EQ(blocks({64}, 8), 3);
    EXPECT_EQ(blocks({65}, 8), 4);
    EXPECT_EQ(blocks({3}, 512), 5);
    EXPECT_EQ(KSLUTGetBlockSize(tableOf({1}).get(), nullptr), kOk);
    const Table withoutElementSize(KSLUTCreate(1));
    ASSERT_EQ(KSLUTSetSize(withoutElementSize.get(), 0, 100), kOk);
    std::int64_t count = 0;
    EXPECT_EQ(KSLUTGetBlockSize(withoutElementSize.get(), &count), kOk);
    EXPECT_EQ(count, 2) << "no bytes at all";
}

// ---- elements per transfer ----

struct KSLUTEPSTest : TableTest {
    static constexpr std::int64_t kMostBytes = 20971520;

    static std::int64_t elements(int elementSize, float fraction, const std::int64_t* most = nullptr) {
        const Table table(KSLUTCreate(1));
        EXPECT_EQ(KSLUTSetElementSize(table.get(), elementSize), kOk);
        std::int64_t count = 77;
        EXPECT_EQ(KSLUTEPS(table.get(), fraction, &count, most), kOk);
        return count;
    }
    static std::int64_t atMost(std::int64_t most, int elementSize, float fraction) {
        return elements(elementSize, fraction, &most);
    }
};

TEST_F(KSLUTEPSTest, AreTheShareOfTheHostsMemory) {
    host().memory = 1000;
    EXPECT_EQ(elements(8, 0.5F), 62) << "500 / 8";
    EXPECT_EQ(elements(1, 0.25F), 250);
    EXPECT_EQ(elements(1, 0.9999F), 999) << "bytes are truncated before they are divided";
    EXPECT_EQ(elements(500, 0.999F), 1);
    EXPECT_EQ(elements(8, 1.0F), 125);
    EXPECT_EQ(elements(8, 2.0F), 250);
    EXPECT_EQ(elements(2000, 1.0F), 0) << "not even one element fits";
    EXPECT_EQ(elements(8, 0.0F), 0);
    EXPECT_EQ(host().count("IMPGetMemory"), 8);
}

TEST_F(KSLUTEPSTest, TheShareIsTakenInDoublePrecision) {
    // No float lies between 16777216 and 16777218.
    host().memory = 16777217;
    EXPECT_EQ(elements(1, 1.0F), 16777217);
}

TEST_F(KSLUTEPSTest, NeverTakeMoreThan20MiB) {
    host().memory = 20971519;
    EXPECT_EQ(elements(1, 1.0F), 20971519);
    host().memory = 20971520;
    EXPECT_EQ(elements(1, 1.0F), kMostBytes);
    host().memory = 20971521;
    EXPECT_EQ(elements(1, 1.0F), kMostBytes);
    host().memory = kLargest;
    EXPECT_EQ(elements(1, 1.0F), kMostBytes);
    EXPECT_EQ(elements(8, 1.0F), kMostBytes / 8);
    EXPECT_EQ(elements(8, 1e30F), kMostBytes / 8);
    EXPECT_EQ(elements(7, std::numeric_limits<float>::infinity()), kMostBytes / 7);
}

TEST_F(KSLUTEPSTest, AHostWithoutALimitMovesOne) {
    host().memoryFlag = 0;
    for (const float fraction : {0.0F, 0.25F, 1.0F, 1e30F, -1.0F}) EXPECT_EQ(elements(8, fraction), 1) << fraction;
    EXPECT_EQ(atMost(1, 8, 0.5F), 1);
    EXPECT_EQ(atMost(5, 8, 0.5F), 1);
    EXPECT_EQ(atMost(0, 8, 0.5F), 0) << "the caller's limit holds all the same";
}

TEST_F(KSLUTEPSTest, NeverExceedTheCallersLimit) {
    host().memory = 800;
    EXPECT_EQ(atMost(99, 8, 1.0F), 99);
    EXPECT_EQ(atMost(100, 8, 1.0F), 100);
    EXPECT_EQ(atMost(101, 8, 1.0F), 100);
    EXPECT_EQ(atMost(0, 8, 1.0F), 0);
    EXPECT_EQ(atMost(-3, 8, 1.0F), -3);
    EXPECT_EQ(atMost(std::numeric_limits<std::int64_t>::max(), 8, 1.0F), 100);
}

TEST_F(KSLUTEPSTest, NeedATableWithAnElementSize) {
    const Table table(KSLUTCreate(1));
    std::int64_t count = 77;
    EXPECT_EQ(KSLUTEPS(table.get(), 0.5F, &count, nullptr), kFailed);
    table->nElementSize = -8;
    EXPECT_EQ(KSLUTEPS(table.get(), 0.5F, &count, nullptr), kFailed);
    EXPECT_EQ(KSLUTEPS(nullptr, 0.5F, &count, nullptr), kFailed);
    EXPECT_EQ(count, 77);
    EXPECT_EQ(host().count("IMPGetMemory"), 0);
    table->nElementSize = 8;
    EXPECT_EQ(KSLUTEPS(table.get(), 0.5F, nullptr, nullptr), kOk);
}

}  // namespace
