// Radiance tables in memory: what makes one, buffers and their stored form, coordinates and wavelengths.
#include <kslib/ksdatset.h>
#include <kslib/ksld.h>
#include <kslib/ksrlut.h>
#include <kslib/kssio.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "bits.hpp"
#include "datasets.hpp"
#include "radiancetables.hpp"
#include "spectra.hpp"

using namespace kit;

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinite = std::numeric_limits<float>::infinity();

/// Radiance tables never report, whatever goes wrong.
struct RLUTTest : LibraryTest {
    void TearDown() override {
        EXPECT_EQ(host().reports, Reports{});
        LibraryTest::TearDown();
    }
};

/// Three wavelengths in each of 2 x 2 combinations.
Table sample() {
    Table table = radianceTable({2, 1, 1, 2, 1, 1, 1, 1, 3});
    setCoords(table, RLUT_SENSOR_ALTITUDE, {1.0F, 5.0F});
    setCoords(table, RLUT_METEOROLOGICAL_RANGE, {20.0F, 10.0F});
    setCoords(table, RLUT_WAVELENGTH, {400.0F, 500.0F, 600.0F});
    return table;
}

/// Every way in which a table is none of radiances, with a name.
struct Flaw {
    const char* what;
    void (*apply)(KSLUT*);
};
const Flaw kFlaws[] = {
    {"a dimension without indices", [](KSLUT* table) { EXPECT_EQ(KSLUTSetSize(table, 4, 0), kOk); }},
    {"elements of 4 bytes", [](KSLUT* table) { EXPECT_EQ(KSLUTSetElementSize(table, 4), kOk); }},
    {"elements of 16 bytes", [](KSLUT* table) { EXPECT_EQ(KSLUTSetElementSize(table, 16), kOk); }},
    {"another label", [](KSLUT* table) { EXPECT_EQ(KSLUTSetLabel(table, 3, "Surface"), kOk); }},
    {"a longer label", [](KSLUT* table) { EXPECT_EQ(KSLUTSetLabel(table, 8, "Wavelengths"), kOk); }},
    {"a missing label", [](KSLUT* table) { EXPECT_EQ(KSLUTSetLabel(table, 0, nullptr), kOk); }},
    {"labels in another order",
     [](KSLUT* table) {
         EXPECT_EQ(KSLUTSetLabel(table, 6, "View zenith angle"), kOk);
         EXPECT_EQ(KSLUTSetLabel(table, 7, "Relative view-solar azimuth"), kOk);
     }},
};

/// Calls body with no table and with tables that are none of radiances.
template <class Body>
void forOtherTables(Body body) {
    body(static_cast<KSLUT*>(nullptr), "none");
    for (const Flaw& flaw : kFlaws) {
        const Table table = sample();
        flaw.apply(table.get());
        body(table.get(), flaw.what);
    }
    const Table eight = tableOf({1, 1, 1, 1, 1, 1, 1, 1}, 8);
    const Table ten = tableOf({1, 1, 1, 1, 1, 1, 1, 1, 1, 1}, 8);
    for (int d = 0; d < 9; ++d) {
        if (d < 8) {
            ASSERT_EQ(KSLUTSetLabel(eight.get(), d, gaszRLUTLabels[d]), kOk);
        }
        ASSERT_EQ(KSLUTSetLabel(ten.get(), d, gaszRLUTLabels[d]), kOk);
    }
    body(eight.get(), "eight dimensions");
    body(ten.get(), "ten dimensions");
}

// ---- what makes a radiance table ----

using RLUTCreateTest = RLUTTest;

TEST_F(RLUTCreateTest, HasLabelsAndAnElementSizeButNoIndices) {
    const Table table(RLUTCreate());
    ASSERT_NE(table, nullptr);
    ASSERT_EQ(table->nDimensions, 9);
    EXPECT_EQ(table->nElementSize, 8);
    for (int d = 0; d < 9; ++d) {
        EXPECT_EQ(labelOf(table, d), gaszRLUTLabels[d]);
        EXPECT_NE(table->papszLabels[d], gaszRLUTLabels[d]);
        EXPECT_EQ(table->panSizes[d], 0);
        EXPECT_EQ(table->papafCoords[d], nullptr);
    }
    EXPECT_EQ(table->fp, nullptr);
    EXPECT_EQ(RLUTValidate(table.get()), kFailed);
}

TEST_F(RLUTCreateTest, GivesNothingWithoutMemory) {
    for (int nth = 1;; ++nth) {
        refuseAllocation(nth);
        const Table table(RLUTCreate());
        if (!allocationRefused()) {
            EXPECT_NE(table, nullptr);
            EXPECT_GE(nth, 2);
            break;
        }
        ASSERT_EQ(table, nullptr) << nth;
    }
    for (int nth = 1; nth <= 9; ++nth) {
        host().failCall("_HString", nth);
        EXPECT_EQ(RLUTCreate(), nullptr) << "label " << nth;
    }
}

using RLUTValidateTest = RLUTTest;

TEST_F(RLUTValidateTest, AcceptsItsLabelsInAnyCase) {
    const Table table = sample();
    EXPECT_EQ(RLUTValidate(table.get()), kOk);
    ASSERT_EQ(KSLUTSetLabel(table.get(), 3, "surface meteorological range"), kOk);
    ASSERT_EQ(KSLUTSetLabel(table.get(), 8, "WAVELENGTH"), kOk);
    EXPECT_EQ(RLUTValidate(table.get()), kOk);
}

TEST_F(RLUTValidateTest, RefusesEveryOtherTable) {
    forOtherTables([](KSLUT* table, const char* what) { EXPECT_EQ(RLUTValidate(table), kFailed) << what; });
}

// ---- buffers ----

struct RLUTBufferTest : RLUTTest {
    using Bytes = Block<void>;
    using Entries = Block<RLUTEntry>;
};

TEST_F(RLUTBufferTest, HoldsAllWavelengthsOfItsSpectra) {
    const Table table = sample();
    std::int64_t bytes = 77;
    const Bytes buffer(RLUTAllocBuffer(table.get(), 5, &bytes));
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(bytes, 3 * 8 * 5);
    std::memset(buffer.get(), 0x5A, 120);  // all of it can be written to
    EXPECT_NE(Bytes(RLUTAllocBuffer(table.get(), 1, nullptr)), nullptr);
}

TEST_F(RLUTBufferTest, EntriesStartAtZero) {
    const Table table = sample();
    std::int64_t count = 77;
    const Entries entries(RLUTAllocEntries(table.get(), 5, &count));
    ASSERT_NE(entries, nullptr);
    ASSERT_EQ(count, 15);
    const RLUTEntry zero{};
    for (int i = 0; i < 15; ++i) EXPECT_EQ(std::memcmp(entries.get() + i, &zero, sizeof zero), 0) << i;
    EXPECT_NE(Entries(RLUTAllocEntries(table.get(), 1, nullptr)), nullptr);
}

TEST_F(RLUTBufferTest, GrowsAndShrinksWithWhatItHolds) {
    const Table table = sample();
    std::int64_t bytes = 0;
    Bytes buffer(RLUTAllocBuffer(table.get(), 2, &bytes));
    ASSERT_NE(buffer, nullptr);
    std::memset(buffer.get(), 0x5A, 48);
    for (const int spectra : {6, 1}) {
        void* resized = RLUTReallocBuffer(buffer.get(), table.get(), spectra, &bytes);
        ASSERT_NE(resized, nullptr);
        static_cast<void>(buffer.release());
        buffer.reset(resized);
        EXPECT_EQ(bytes, 24 * spectra);
        const auto* kept = static_cast<const unsigned char*>(buffer.get());
        EXPECT_TRUE(std::all_of(kept, kept + std::min<std::int64_t>(bytes, 48), [](int b) { return b == 0x5A; }));
        std::memset(buffer.get(), 0x5A, static_cast<std::size_t>(bytes));
    }
    std::int64_t count = 0;
    Entries entries(RLUTAllocEntries(table.get(), 2, &count));
    ASSERT_NE(entries, nullptr);
    for (int i = 0; i < 6; ++i) entries.get()[i] = {static_cast<float>(i), -1.0F};
    RLUTEntry* resized = RLUTReallocEntries(entries.get(), table.get(), 4, &count);
    ASSERT_NE(resized, nullptr);
    static_cast<void>(entries.release());
    entries.reset(resized);
    EXPECT_EQ(count, 12);
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(entries.get()[i].fFirst, static_cast<float>(i));
        EXPECT_EQ(entries.get()[i].fSecond, -1.0F);
    }
    entries.get()[11] = {1.0F, 2.0F};
}

TEST_F(RLUTBufferTest, AResizeOfNothingIsANewBlock) {
    const Table table = sample();
    const Bytes buffer(RLUTReallocBuffer(nullptr, table.get(), 2, nullptr));
    const Entries entries(RLUTReallocEntries(nullptr, table.get(), 2, nullptr));
    ASSERT_NE(buffer, nullptr);
    ASSERT_NE(entries, nullptr);
    std::memset(buffer.get(), 1, 48);
    std::memset(static_cast<void*>(entries.get()), 1, 48);
}

TEST_F(RLUTBufferTest, NeedsARadianceTableAndSpectra) {
    std::int64_t count = 77;
    const auto expectNone = [&count](const KSLUT* table, int spectra, const std::string& what) {
        Bytes bytes(std::malloc(1));
        Entries entries(static_cast<RLUTEntry*>(std::malloc(sizeof(RLUTEntry))));
        EXPECT_EQ(RLUTAllocBuffer(table, spectra, &count), nullptr) << what;
        EXPECT_EQ(RLUTAllocEntries(table, spectra, &count), nullptr) << what;
        // The old block stays the caller's, who frees it here.
        EXPECT_EQ(RLUTReallocBuffer(bytes.get(), table, spectra, &count), nullptr) << what;
        EXPECT_EQ(RLUTReallocEntries(entries.get(), table, spectra, &count), nullptr) << what;
    };
    forOtherTables([&](KSLUT* table, const char* what) { expectNone(table, 1, what); });
    const Table table = sample();
    for (const int spectra : {0, -1, std::numeric_limits<int>::min()}) {
        expectNone(table.get(), spectra, std::to_string(spectra));
    }
    EXPECT_EQ(count, 77);
}

TEST_F(RLUTBufferTest, IsCountedIn64Bits) {
    // The sanitizers' allocator refuses what is too large for a machine with a report of its own; here it is never
    // asked.
    const Table table = sample();
    table->panSizes[RLUT_WAVELENGTH] = std::numeric_limits<int>::max();
    std::int64_t count = 77;
    refuseAllocation(1);
    EXPECT_EQ(RLUTAllocBuffer(table.get(), std::numeric_limits<int>::max(), &count), nullptr);
    refuseAllocation(1);
    EXPECT_EQ(RLUTAllocEntries(table.get(), std::numeric_limits<int>::max(), &count), nullptr);
    EXPECT_EQ(count, 77);
    table->panSizes[RLUT_WAVELENGTH] = 3;
}

TEST_F(RLUTBufferTest, GivesNothingWithoutMemory) {
    const Table table = sample();
    std::int64_t count = 77;
    const Bytes bytes(RLUTAllocBuffer(table.get(), 1, nullptr));
    const Entries entries(RLUTAllocEntries(table.get(), 1, nullptr));
    refuseAllocation(1);
    EXPECT_EQ(RLUTAllocBuffer(table.get(), 2, &count), nullptr);
    EXPECT_TRUE(allocationRefused());
    refuseAllocation(1);
    EXPECT_EQ(RLUTAllocEntries(table.get(), 2, &count), nullptr);
    EXPECT_TRUE(allocationRefused());
    refuseAllocation(1);
    EXPECT_EQ(RLUTReallocBuffer(bytes.get(), table.get(), 2, &count), nullptr);
    EXPECT_TRUE(allocationRefused());
    refuseAllocation(1);
    EXPECT_EQ(RLUTReallocEntries(entries.get(), table.get(), 2, &count), nullptr);
    EXPECT_TRUE(allocationRefused());
    EXPECT_EQ(count, 77);
}

// ---- the stored form ----

struct RLUTSerializeTest : RLUTTest {
    const std::vector<RLUTEntry> entries = {{1.0F, -2.0F}, {0.5F, 1e-3F}};
    /// The four bytes of each value, the lowest first: IEEE 754 single precision.
    const std::vector<unsigned char> bytes = {0x00, 0x00, 0x80, 0x3F, 0x00, 0x00, 0x00, 0xC0,
                                              0x00, 0x00, 0x00, 0x3F, 0x6F, 0x12, 0x83, 0x3A};

    static std::vector<unsigned char> bytesOf(const void* buffer, std::size_t count) {
        const auto* first = static_cast<const unsigned char*>(buffer);
        return {first, first + count};
    }
};

TEST_F(RLUTSerializeTest, ANewBufferHoldsTheEntries) {
    std::int64_t count = 77;
    const Block<void> buffer(RLUTSerialize(entries.data(), 2, &count));
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(count, 16);
    EXPECT_EQ(bytesOf(buffer.get(), 16), bytes);
    const Block<void> uncounted(RLUTSerialize(entries.data(), 1, nullptr));
    ASSERT_NE(uncounted, nullptr);
    EXPECT_EQ(bytesOf(uncounted.get(), 8), bytesOf(bytes.data(), 8));
}

TEST_F(RLUTSerializeTest, ACallersBufferHoldsTheEntries) {
    std::vector<unsigned char> buffer(17, 0x77);
    std::int64_t count = 77;
    EXPECT_EQ(RLUTSerialize2(entries.data(), 2, buffer.data(), &count), kOk);
    EXPECT_EQ(count, 16);
    EXPECT_EQ(bytesOf(buffer.data(), 16), bytes);
    EXPECT_EQ(buffer[16], 0x77);
    EXPECT_EQ(RLUTSerialize2(entries.data(), 1, buffer.data(), nullptr), kOk);
}

TEST_F(RLUTSerializeTest, NeedsEntriesAndABuffer) {
    std::vector<unsigned char> buffer(16, 0x77);
    std::int64_t count = 77;
    for (const std::int64_t none : {std::int64_t{0}, std::int64_t{-1}, std::numeric_limits<std::int64_t>::min()}) {
        EXPECT_EQ(RLUTSerialize(entries.data(), none, &count), nullptr);
        EXPECT_EQ(RLUTSerialize2(entries.data(), none, buffer.data(), &count), kFailed);
    }
    EXPECT_EQ(RLUTSerialize(nullptr, 2, &count), nullptr);
    EXPECT_EQ(RLUTSerialize2(nullptr, 2, buffer.data(), &count), kFailed);
    EXPECT_EQ(RLUTSerialize2(entries.data(), 2, nullptr, &count), kFailed);
    refuseAllocation(1);
    EXPECT_EQ(RLUTSerialize(entries.data(), 2, &count), nullptr);
    EXPECT_TRUE(allocationRefused());
    EXPECT_EQ(RLUTSerialize(entries.data(), std::numeric_limits<std::int64_t>::max() / 4, &count), nullptr)
        << "no such number of bytes";
    EXPECT_EQ(count, 77);
    EXPECT_EQ(buffer, std::vector<unsigned char>(16, 0x77));
}

TEST_F(RLUTSerializeTest, NewEntriesComeFromTheBuffer) {
    std::int64_t count = 77;
    const Block<RLUTEntry> read(RLUTDeserialize(bytes.data(), 16, &count));
    ASSERT_NE(read, nullptr);
    ASSERT_EQ(count, 2);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(read.get()[i].fFirst, entries[i].fFirst);
        EXPECT_EQ(read.get()[i].fSecond, entries[i].fSecond);
    }
    EXPECT_NE(Block<RLUTEntry>(RLUTDeserialize(bytes.data(), 8, nullptr)), nullptr);
}

TEST_F(RLUTSerializeTest, CallersEntriesComeFromTheBuffer) {
    std::vector<RLUTEntry> read(3, RLUTEntry{7.0F, 7.0F});
    std::int64_t count = 77;
    EXPECT_EQ(RLUTDeserialize2(bytes.data(), 16, read.data(), &count), kOk);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(read[1].fFirst, 0.5F);
    EXPECT_EQ(read[1].fSecond, 1e-3F);
    EXPECT_EQ(read[2].fFirst, 7.0F);
    EXPECT_EQ(RLUTDeserialize2(bytes.data(), 8, read.data(), nullptr), kOk);
}

TEST_F(RLUTSerializeTest, BytesOfNoWholeEntryAreIgnored) {
    for (const int length : {8, 9, 15}) {
        std::int64_t count = 77;
        const std::vector<unsigned char> cut(bytes.begin(), bytes.begin() + length);
        const Block<RLUTEntry> read(RLUTDeserialize(cut.data(), length, &count));
        ASSERT_NE(read, nullptr) << length;
        EXPECT_EQ(count, 1) << length;
        EXPECT_EQ(read.get()[0].fSecond, -2.0F);
        std::vector<RLUTEntry> one(1);
        EXPECT_EQ(RLUTDeserialize2(cut.data(), length, one.data(), &count), kOk);
        EXPECT_EQ(count, 1) << length;
    }
}

TEST_F(RLUTSerializeTest, NeedsABufferOfOneEntryAtLeast) {
    RLUTEntry entry = {7.0F, 7.0F};
    std::int64_t count = 77;
    for (const std::int64_t length : {std::int64_t{7}, std::int64_t{0}, std::int64_t{-8}}) {
        EXPECT_EQ(RLUTDeserialize(bytes.data(), length, &count), nullptr);
        EXPECT_EQ(RLUTDeserialize2(bytes.data(), length, &entry, &count), kFailed);
    }
    EXPECT_EQ(RLUTDeserialize(nullptr, 8, &count), nullptr);
    EXPECT_EQ(RLUTDeserialize2(nullptr, 8, &entry, &count), kFailed);
    EXPECT_EQ(RLUTDeserialize2(bytes.data(), 8, nullptr, &count), kFailed);
    refuseAllocation(1);
    EXPECT_EQ(RLUTDeserialize(bytes.data(), 8, &count), nullptr);
    EXPECT_TRUE(allocationRefused());
    EXPECT_EQ(count, 77);
    EXPECT_EQ(entry.fFirst, 7.0F);
}

TEST_F(RLUTSerializeTest, EveryEntryIsCopiedUnchanged) {
    // A signalling NaN among them, which arithmetic would change.
    std::vector<unsigned char> patterns = {0x01, 0x00, 0x80, 0x7F, 0x00, 0x00, 0x80, 0xFF};
    for (int i = 0; i < 8; ++i) patterns.push_back(static_cast<unsigned char>(0x10 + i));
    std::int64_t count = 0;
    const Block<RLUTEntry> read(RLUTDeserialize(patterns.data(), 16, &count));
    ASSERT_NE(read, nullptr);
    const Block<void> written(RLUTSerialize(read.get(), count, nullptr));
    ASSERT_NE(written, nullptr);
    EXPECT_EQ(bytesOf(written.get(), 16), patterns);
}

// ---- coordinate ranges ----

using RLUTGetCoordRangeTest = RLUTTest;

TEST_F(RLUTGetCoordRangeTest, IsTheFirstAndTheLastCoordinate) {
    const Table table = sample();
    float first = 77.0F;
    float last = 77.0F;
    EXPECT_EQ(RLUTGetCoordRange(table.get(), RLUT_METEOROLOGICAL_RANGE, &first, &last), kOk);
    EXPECT_EQ(first, 20.0F) << "not the smaller one";
    EXPECT_EQ(last, 10.0F);
    EXPECT_EQ(RLUTGetCoordRange(table.get(), RLUT_WAVELENGTH, &first, nullptr), kOk);
    EXPECT_EQ(first, 400.0F);
    EXPECT_EQ(RLUTGetCoordRange(table.get(), RLUT_WAVELENGTH, nullptr, &last), kOk);
    EXPECT_EQ(last, 600.0F);
    EXPECT_EQ(RLUTGetCoordRange(table.get(), RLUT_WAVELENGTH, nullptr, nullptr), kOk);
}

TEST_F(RLUTGetCoordRangeTest, IsToldForAllDimensions) {
    const Table table = sample();
    Coords first(10, 77.0F);
    Coords last(10, 77.0F);
    EXPECT_EQ(RLUTGetCoordRanges(table.get(), first.data(), last.data()), kOk);
    EXPECT_EQ(first, (Coords{1, 0, 0, 20, 0, 0, 0, 0, 400, 77}));
    EXPECT_EQ(last, (Coords{5, 0, 0, 10, 0, 0, 0, 0, 600, 77}));
    Coords other(9, 77.0F);
    EXPECT_EQ(RLUTGetCoordRanges(table.get(), other.data(), nullptr), kOk);
    EXPECT_EQ(other, (Coords{1, 0, 0, 20, 0, 0, 0, 0, 400}));
    EXPECT_EQ(RLUTGetCoordRanges(table.get(), nullptr, other.data()), kOk);
    EXPECT_EQ(other, (Coords{5, 0, 0, 10, 0, 0, 0, 0, 600}));
    EXPECT_EQ(RLUTGetCoordRanges(table.get(), nullptr, nullptr), kOk);
}

TEST_F(RLUTGetCoordRangeTest, NeedsARadianceTableADimensionAndItsCoordinates) {
    float first = 77.0F;
    Coords all(9, 77.0F);
    forOtherTables([&](KSLUT* table, const char* what) {
        EXPECT_EQ(RLUTGetCoordRange(table, 0, &first, &first), kFailed) << what;
        EXPECT_EQ(RLUTGetCoordRange(table, 0, nullptr, nullptr), kFailed) << what;
        EXPECT_EQ(RLUTGetCoordRanges(table, all.data(), all.data()), kFailed) << what;
    });
    const Table table = sample();
    for (const int d : {-1, 9, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        EXPECT_EQ(RLUTGetCoordRange(table.get(), d, &first, &first), kFailed) << d;
    }
    std::free(table->papafCoords[5]);
    table->papafCoords[5] = nullptr;
    EXPECT_EQ(RLUTGetCoordRange(table.get(), 5, &first, nullptr), kFailed);
    EXPECT_EQ(RLUTGetCoordRange(table.get(), 5, nullptr, nullptr), kFailed);
    EXPECT_EQ(first, 77.0F);
    EXPECT_EQ(all, Coords(9, 77.0F));
    EXPECT_EQ(RLUTGetCoordRanges(table.get(), all.data(), nullptr), kFailed);
    EXPECT_EQ(all[4], 0.0F) << "those before it are told";
    EXPECT_EQ(all[6], 77.0F);
}

// ---- fractional indexes ----

struct RLUTGetIndexFromCoordTest : RLUTTest {
    /// The fractional index by the table.
    static float index(const Coords& coords, float x) {
        const Table table = tableOfWavelengths(coords);
        float found = -77.0F;
        EXPECT_EQ(RLUTGetIndexFromCoord(table.get(), RLUT_WAVELENGTH, x, &found), kOk);
        return found;
    }
    /// The same, every operation rounded to single precision.
    static float expected(const Coords& c, float x) {
        const std::size_t n = c.size();
        if (x < c[0]) return divided(difference(x, c[0]), difference(c[n - 1], x));
        if (x > c[n - 1] || std::isunordered(x, c[n - 1])) {
            return sum(divided(difference(x, c[n - 1]), difference(x, c[0])), n - 1);
        }
        for (std::size_t i = 1; i < n; ++i) {
            if (!(x <= c[i])) continue;
            const float step = difference(c[i], c[i - 1]);
            if (std::fabs(static_cast<double>(step)) < 1e-9) return static_cast<float>(i - 1);
            return sum(divided(difference(x, c[i - 1]), step), i - 1);
        }
        return 0.0F;
    }

private:
    static float difference(float a, float b) {
        volatile float result = a - b;
        return result;
    }
    static float divided(float a, float b) {
        volatile float result = a / b;
        return result;
    }
    static float sum(float a, std::size_t b) {
        volatile float result = a + static_cast<float>(b);
        return result;
    }
};

TEST_F(RLUTGetIndexFromCoordTest, LiesBetweenTheNeighbours) {
    const Coords coords = {0.0F, 1.0F, 2.0F, 3.0F};
    EXPECT_EQ(index(coords, 1.5F), 1.5F);
    EXPECT_EQ(index(coords, 2.0F), 2.0F);
    EXPECT_EQ(index(coords, 0.0F), 0.0F);
    EXPECT_EQ(index(coords, 3.0F), 3.0F);
    EXPECT_EQ(index({400.0F, 500.0F, 900.0F}, 600.0F), 1.25F);
}

TEST_F(RLUTGetIndexFromCoordTest, GoesOnOutside) {
    const Coords coords = {0.0F, 1.0F, 2.0F, 3.0F};
    EXPECT_EQ(index(coords, -1.0F), -0.25F);
    EXPECT_EQ(index(coords, 4.0F), 3.25F);
    EXPECT_EQ(index(coords, -9.0F), -0.75F) << "never as far as one index";
    EXPECT_EQ(index(coords, 6.0F), 3.5F);
}

TEST_F(RLUTGetIndexFromCoordTest, EqualNeighboursGiveTheLowerIndex) {
    EXPECT_EQ(index({0.0F, 1.0F, 1.0F, 2.0F}, 1.0F), 1.0F) << "that of the first neighbour that reaches it";
    EXPECT_EQ(index({1.0F, 1.0F, 2.0F}, 1.0F), 0.0F);
    EXPECT_EQ(index({1.0F, 1.0F}, 1.0F), 0.0F);
    const float tiny = 5e-10F;
    EXPECT_EQ(index({0.0F, tiny, 1.0F}, 0.5F * tiny), 0.0F) << "a step below 1e-9 is none";
    EXPECT_EQ(index({-1.0F, 0.0F, tiny, 1.0F}, 0.5F * tiny), 1.0F);
    EXPECT_EQ(index({0.0F, 4e-9F, 1.0F}, 1e-9F), 0.25F) << "a larger one is";
}

TEST_F(RLUTGetIndexFromCoordTest, OneCoordinateHasIndexZero) {
    EXPECT_EQ(index({5.0F}, 5.0F), 0.0F);
    // Below and above, the distance to the last coordinate is that to the first.
    EXPECT_EQ(index({5.0F}, 4.0F), -1.0F);
    EXPECT_EQ(index({5.0F}, 7.0F), 1.0F);
}

TEST_F(RLUTGetIndexFromCoordTest, WhatCannotBeComparedLiesBehindTheLast) {
    EXPECT_TRUE(std::isnan(index({0.0F, 1.0F}, kNaN)));
    EXPECT_TRUE(std::isnan(index({0.0F, 1.0F}, kInfinite)));
    EXPECT_TRUE(std::isnan(index({0.0F, 1.0F}, -kInfinite)));
    EXPECT_TRUE(std::isnan(index({0.0F, kNaN}, 0.5F)));
}

TEST_F(RLUTGetIndexFromCoordTest, EveryOperationIsInSinglePrecision) {
    std::mt19937 engine(5U);
    std::uniform_real_distribution<float> reals(-1000.0F, 1000.0F);
    std::uniform_real_distribution<float> around(-1300.0F, 1300.0F);
    for (int round = 0; round < 60; ++round) {
        Coords coords(1U + static_cast<std::size_t>(round % 30));
        for (float& coord : coords) coord = reals(engine);
        std::sort(coords.begin(), coords.end());
        if (round % 7 == 0) std::reverse(coords.begin(), coords.end());
        if (round % 11 == 0 && coords.size() > 4) coords[2] = coords[3];
        Coords points = coords;
        for (int i = 0; i < 40; ++i) points.push_back(around(engine));
        const Table table = tableOfWavelengths(coords);
        for (const float x : points) {
            float found = -77.0F;
            ASSERT_EQ(RLUTGetIndexFromCoord(table.get(), RLUT_WAVELENGTH, x, &found), kOk);
            ASSERT_TRUE(sameBits(found, expected(coords, x))) << found << " " << expected(coords, x) << " at " << x;
        }
    }
}

TEST_F(RLUTGetIndexFromCoordTest, NeedsARadianceTableADimensionAndItsCoordinates) {
    float index = -77.0F;
    forOtherTables([&](KSLUT* table, const char* what) {
        EXPECT_EQ(RLUTGetIndexFromCoord(table, 0, 1.0F, &index), kFailed) << what;
        EXPECT_EQ(RLUTGetIndexFromCoord(table, 0, 1.0F, nullptr), kFailed) << what;
    });
    const Table table = sample();
    for (const int d : {-1, 9, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        EXPECT_EQ(RLUTGetIndexFromCoord(table.get(), d, 1.0F, &index), kFailed) << d;
        EXPECT_EQ(RLUTGetIndexFromCoord(table.get(), d, 1.0F, nullptr), kFailed) << d;
    }
    EXPECT_EQ(RLUTGetIndexFromCoord(table.get(), 0, 1.0F, nullptr), kOk);
    std::free(table->papafCoords[0]);
    table->papafCoords[0] = nullptr;
    EXPECT_EQ(RLUTGetIndexFromCoord(table.get(), 0, 1.0F, &index), kFailed);
    EXPECT_EQ(index, -77.0F);
}

// ---- index ranges ----

struct RLUTGetIndexesFromCoordRangeTest : RLUTTest {
    using Range = std::pair<int, int>;
    static Range range(const Coords& coords, float low, float high, int inside) {
        const Table table = tableOfWavelengths(coords);
        Range found = {-77, -77};
        EXPECT_EQ(
            RLUTGetIndexesFromCoordRange(table.get(), RLUT_WAVELENGTH, low, high, &found.first, &found.second, inside),
            kOk);
        return found;
    }
    const Coords four = {0.0F, 1.0F, 2.0F, 3.0F};
};

TEST_F(RLUTGetIndexesFromCoordRangeTest, LieWithinTheRangeOrEncloseIt) {
    EXPECT_EQ(range(four, 0.5F, 2.5F, 1), Range(1, 2));
    EXPECT_EQ(range(four, 0.5F, 2.5F, 0), Range(0, 3));
    EXPECT_EQ(range(four, 0.5F, 2.5F, 2), Range(0, 3)) << "only 1 is inside";
    EXPECT_EQ(range(four, 0.5F, 2.5F, -1), Range(0, 3));
    EXPECT_EQ(range(four, 1.25F, 1.75F, 1), Range(2, 1)) << "there is none inside";
    EXPECT_EQ(range(four, 1.25F, 1.75F, 0), Range(1, 2));
}

TEST_F(RLUTGetIndexesFromCoordRangeTest, CoordinatesOfTheTableAreInside) {
    EXPECT_EQ(range(four, 1.0F, 2.0F, 1), Range(1, 2));
    EXPECT_EQ(range(four, 0.0F, 3.0F, 1), Range(0, 3));
    EXPECT_EQ(range(four, 2.0F, 2.0F, 1), Range(2, 2));
    EXPECT_EQ(range(four, 0.0F, 3.0F, 0), Range(0, 3));
    // What encloses a range that ends on indexes reaches one further.
    EXPECT_EQ(range(four, 1.0F, 2.0F, 0), Range(0, 3));
}

TEST_F(RLUTGetIndexesFromCoordRangeTest, RangesOutsideHaveNoIndex) {
    EXPECT_EQ(range(four, 5.0F, 6.0F, 1), Range(4, 3)) << "one past the end";
    EXPECT_EQ(range(four, 5.0F, 6.0F, 0), Range(4, 3));
    EXPECT_EQ(range(four, -6.0F, -5.0F, 1), Range(0, -1));
    EXPECT_EQ(range(four, -6.0F, -5.0F, 0), Range(0, -1));
    EXPECT_EQ(range(four, -6.0F, 5.0F, 1), Range(0, 3));
    EXPECT_EQ(range(four, -6.0F, 1.5F, 1), Range(0, 1));
    EXPECT_EQ(range(four, 1.5F, 6.0F, 1), Range(2, 3));
}

TEST_F(RLUTGetIndexesFromCoordRangeTest, AreForgivingByAHundredThousandth) {
    const float near = 5e-6F;
    const float off = 2e-5F;
    EXPECT_EQ(range(four, 1.0F + near, 3.0F, 1).first, 1);
    EXPECT_EQ(range(four, 1.0F + off, 3.0F, 1).first, 2);
    EXPECT_EQ(range(four, 1.0F - off, 3.0F, 1).first, 1);
    EXPECT_EQ(range(four, near, 3.0F, 1).first, 0);
    EXPECT_EQ(range(four, off, 3.0F, 1).first, 1);
    EXPECT_EQ(range(four, off, 3.0F, 0).first, 0);
    EXPECT_EQ(range(four, 0.0F, 2.0F - near, 1).second, 2);
    EXPECT_EQ(range(four, 0.0F, 2.0F - off, 1).second, 1);
    EXPECT_EQ(range(four, 0.0F, 2.0F + off, 1).second, 2);
    EXPECT_EQ(range(four, 0.0F, 3.0F - near, 1).second, 3);
    EXPECT_EQ(range(four, 0.0F, 3.0F - off, 1).second, 2);
    EXPECT_EQ(range(four, 0.0F, 3.0F - off, 0).second, 3);
    // Outside, indexes grow by a fraction of the distance to the far end: k = -d / (3 + d) and 3 + d / (3 + d).
    EXPECT_EQ(range(four, -1.0F, -1e-5F, 1).second, 0);
    EXPECT_EQ(range(four, -1.0F, -6e-5F, 1).second, -1);
    EXPECT_EQ(range(four, 3.0F + 1e-5F, 9.0F, 1).first, 3);
    EXPECT_EQ(range(four, 3.0F + 6e-5F, 9.0F, 1).first, 4);
}

TEST_F(RLUTGetIndexesFromCoordRangeTest, AreForgivingInLongDimensionsToo) {
    // Around 2000, numbers of single precision are further apart than the tolerance.
    Coords many(4000);
    for (std::size_t i = 0; i < many.size(); ++i) many[i] = static_cast<float>(i);
    for (const int i : {1, 255, 256, 511, 512, 1023, 1024, 2000, 3998}) {
        const auto x = static_cast<float>(i);
        EXPECT_EQ(range(many, x, x, 1), Range(i, i)) << i;
        EXPECT_EQ(range(many, x + 0.5F, x + 0.5F, 0), Range(i, i + 1)) << i;
    }
}

TEST_F(RLUTGetIndexesFromCoordRangeTest, EitherIndexMayBeLeftOut) {
    const Table table = tableOfWavelengths(four);
    int index = -77;
    const auto indexes = [&](int* first, int* last) {
        return RLUTGetIndexesFromCoordRange(table.get(), RLUT_WAVELENGTH, 0.5F, 2.5F, first, last, 1);
    };
    EXPECT_EQ(indexes(&index, nullptr), kOk);
    EXPECT_EQ(index, 1);
    EXPECT_EQ(indexes(nullptr, &index), kOk);
    EXPECT_EQ(index, 2);
    EXPECT_EQ(indexes(nullptr, nullptr), kOk);
}

TEST_F(RLUTGetIndexesFromCoordRangeTest, OneCoordinateIsARangeOfItsOwn) {
    for (const int inside : {0, 1}) {
        EXPECT_EQ(range({5.0F}, 5.0F, 5.0F, inside), Range(0, 0));
        EXPECT_EQ(range({5.0F}, 4.0F, 6.0F, inside), Range(0, 0));
        EXPECT_EQ(range({5.0F}, 6.0F, 7.0F, inside), Range(1, 0));
        EXPECT_EQ(range({5.0F}, 3.0F, 4.0F, inside), Range(0, -1));
    }
}

TEST_F(RLUTGetIndexesFromCoordRangeTest, NeedsARadianceTableADimensionItsCoordinatesAndARange) {
    int first = -77;
    int last = -77;
    const auto fails = [&](KSLUT* table, int d, float low, float high) {
        return RLUTGetIndexesFromCoordRange(table, d, low, high, &first, &last, 1) == kFailed &&
               RLUTGetIndexesFromCoordRange(table, d, low, high, nullptr, nullptr, 1) == kFailed;
    };
    forOtherTables([&](KSLUT* table, const char* what) { EXPECT_TRUE(fails(table, 0, 1.0F, 2.0F)) << what; });
    const Table table = tableOfWavelengths(four);
    for (const int d : {-1, 9, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        EXPECT_TRUE(fails(table.get(), d, 1.0F, 2.0F)) << d;
    }
    EXPECT_TRUE(fails(table.get(), RLUT_WAVELENGTH, 2.0F, 1.0F));
    EXPECT_TRUE(fails(table.get(), RLUT_WAVELENGTH, kNaN, 1.0F));
    EXPECT_TRUE(fails(table.get(), RLUT_WAVELENGTH, 1.0F, kNaN));
    EXPECT_TRUE(fails(table.get(), RLUT_WAVELENGTH, kNaN, kNaN));
    std::free(table->papafCoords[2]);
    table->papafCoords[2] = nullptr;
    EXPECT_TRUE(fails(table.get(), 2, 0.0F, 0.0F));
    EXPECT_EQ(first, -77);
    EXPECT_EQ(last, -77);
}

TEST_F(RLUTGetIndexesFromCoordRangeTest, EndlessRangesHoldNoSurprise) {
    // Infinite ends have no index that is a number; whatever is told must be one that callers can test.
    const Table table = tableOfWavelengths(four);
    int first = -77;
    int last = -77;
    EXPECT_EQ(RLUTGetIndexesFromCoordRange(table.get(), RLUT_WAVELENGTH, -kInfinite, kInfinite, &first, &last, 1), kOk);
    EXPECT_GE(first, 0);
    EXPECT_LE(first, 4);
    EXPECT_GE(last, -1);
    EXPECT_LE(last, 3);
}

// ---- spectra per transfer ----

struct RLUTSPSTest : RLUTTest {
    static int spectra(int wavelengths, float fraction, const int* most = nullptr) {
        const Table table = radianceTable({1, 1, 1, 1, 1, 1, 1, 1, wavelengths});
        int count = -77;
        EXPECT_EQ(RLUTSPS(table.get(), fraction, &count, most), kOk);
        return count;
    }
    static int atMost(int most, int wavelengths, float fraction) { return spectra(wavelengths, fraction, &most); }
};

TEST_F(RLUTSPSTest, AreWholeSpectraOfTheShare) {
    host().memory = 8000;
    EXPECT_EQ(spectra(10, 1.0F), 100);
    EXPECT_EQ(spectra(10, 0.5F), 50);
    EXPECT_EQ(spectra(7, 1.0F), 142);
    EXPECT_EQ(spectra(1000, 1.0F), 1);
    host().memory = std::numeric_limits<int>::max();
    EXPECT_EQ(spectra(1, 1.0F), 20971520 / 8) << "20 MiB at most";
}

TEST_F(RLUTSPSTest, AreAtLeastOne) {
    host().memory = 8000;
    EXPECT_EQ(spectra(1001, 1.0F), 1);
    EXPECT_EQ(spectra(10, 0.0F), 1);
    host().memory = 1;
    EXPECT_EQ(spectra(10, 1.0F), 1);
    host().memoryFlag = 0;
    EXPECT_EQ(spectra(10, 1.0F), 1) << "a host without a limit moves one element";
}

TEST_F(RLUTSPSTest, AreAtMostTheCallersLimit) {
    host().memory = 8000;
    EXPECT_EQ(atMost(99, 10, 1.0F), 99);
    EXPECT_EQ(atMost(100, 10, 1.0F), 100);
    EXPECT_EQ(atMost(101, 10, 1.0F), 100);
    EXPECT_EQ(atMost(1, 10, 0.0F), 1);
    EXPECT_EQ(atMost(0, 10, 1.0F), 0) << "the caller's limit comes last";
    EXPECT_EQ(atMost(-2, 10, 1.0F), -2);
}

TEST_F(RLUTSPSTest, NeedARadianceTable) {
    int count = -77;
    forOtherTables([&](KSLUT* table, const char* what) {
        EXPECT_EQ(RLUTSPS(table, 0.5F, &count, nullptr), kFailed) << what;
        EXPECT_EQ(RLUTSPS(table, 0.5F, nullptr, nullptr), kFailed) << what;
    });
    EXPECT_EQ(count, -77);
    EXPECT_EQ(RLUTSPS(sample().get(), 0.5F, nullptr, nullptr), kOk);
}

// ---- a schema of the wavelengths ----

struct KSSTSchemaFromRLUTTest : RLUTTest {
    /// Field by field, in order of the record.
    static std::vector<float> fields(const KSSTFld* of, int count) {
        std::vector<float> all;
        for (int i = 0; i < count; ++i) {
            all.insert(all.end(), {static_cast<float>(of[i].eFldID), of[i].fWlen, static_cast<float>(of[i].nFldInd),
                                   static_cast<float>(of[i].nQualFldInd)});
        }
        return all;
    }
};

TEST_F(KSSTSchemaFromRLUTTest, HasTargetQuantityAndTheWavelengths) {
    const Schema schema(KSSTSchemaFromRLUT(sample().get()));
    ASSERT_NE(schema, nullptr);
    EXPECT_EQ(identifiers(schema->pMetaFlds, schema->nNumMetaFlds), (Sizes{KS_FLD_TARGET, KS_FLD_QUANTITY}));
    EXPECT_EQ(indexes(schema->pMetaFlds, schema->nNumMetaFlds), (Sizes{0, 1}));
    EXPECT_EQ(identifiers(schema->pMeasFld, schema->nNumMeasFlds), Sizes(3, KS_FLD_MEAS));
    EXPECT_EQ(wavelengths(schema->pMeasFld, schema->nNumMeasFlds), (Coords{400.0F, 500.0F, 600.0F}));
    EXPECT_EQ(indexes(schema->pMeasFld, schema->nNumMeasFlds), (Sizes{2, 3, 4}));
    EXPECT_EQ(qualityIndexes(schema->pMeasFld, schema->nNumMeasFlds), Sizes(3, -1));
    EXPECT_EQ(schema->pQualFld, nullptr);
    EXPECT_EQ(schema->nNumQualFlds, 0);
}

TEST_F(KSSTSchemaFromRLUTTest, IsThatOfASensorWithTheseBands) {
    KSDataSet* dataSet = heapDataSet(4);
    const Schema ofSensor(KSSTSchemaFromProfile(&dataSet->Sensor, std::vector<int>{0, 1, 2, 3}.data(), 4, 0));
    const Schema ofTable(KSSTSchemaFromRLUT(tableOfWavelengths({400.0F, 410.0F, 420.0F, 430.0F}).get()));
    freeWhole(dataSet);
    ASSERT_NE(ofSensor, nullptr);
    ASSERT_NE(ofTable, nullptr);
    EXPECT_EQ(fields(ofTable->pMetaFlds, ofTable->nNumMetaFlds), fields(ofSensor->pMetaFlds, ofSensor->nNumMetaFlds));
    EXPECT_EQ(fields(ofTable->pMeasFld, ofTable->nNumMeasFlds), fields(ofSensor->pMeasFld, ofSensor->nNumMeasFlds));
    EXPECT_EQ(ofTable->pQualFld, ofSensor->pQualFld);
    EXPECT_EQ(ofTable->nNumQualFlds, ofSensor->nNumQualFlds);
}

TEST_F(KSSTSchemaFromRLUTTest, NeedsWavelengthsThatIncrease) {
    const auto refuses = [](const Coords& wavelengths) {
        return KSSTSchemaFromRLUT(tableOfWavelengths(wavelengths).get()) == nullptr;
    };
    EXPECT_TRUE(refuses({400.0F, 500.0F, 500.0F, 600.0F}));
    EXPECT_TRUE(refuses({400.0F, 500.0F, 499.0F, 600.0F}));
    EXPECT_TRUE(refuses({500.0F, 400.0F}));
    EXPECT_TRUE(refuses({0.0F, 0.0F}));
    EXPECT_TRUE(refuses({400.0F, kNaN, 600.0F}));
    EXPECT_TRUE(refuses({kNaN}));
    EXPECT_TRUE(refuses({kNaN, 400.0F}));
    EXPECT_TRUE(refuses({400.0F, kNaN}));
    const Schema one(KSSTSchemaFromRLUT(tableOfWavelengths({400.0F}).get()));
    ASSERT_NE(one, nullptr);
    EXPECT_EQ(one->nNumMeasFlds, 1);
}

TEST_F(KSSTSchemaFromRLUTTest, NeedsARadianceTableWithWavelengths) {
    forOtherTables([](KSLUT* table, const char* what) { EXPECT_EQ(KSSTSchemaFromRLUT(table), nullptr) << what; });
    const Table table = sample();
    std::free(table->papafCoords[RLUT_WAVELENGTH]);
    table->papafCoords[RLUT_WAVELENGTH] = nullptr;
    EXPECT_EQ(KSSTSchemaFromRLUT(table.get()), nullptr);
}

TEST_F(KSSTSchemaFromRLUTTest, GivesNothingWithoutMemory) {
    const Table table = sample();
    for (int nth = 1;; ++nth) {
        refuseAllocation(nth);
        const Schema schema(KSSTSchemaFromRLUT(table.get()));
        if (!allocationRefused()) {
            EXPECT_NE(schema, nullptr);
            EXPECT_EQ(nth, 4) << "the schema and its two lists of fields";
            return;
        }
        ASSERT_EQ(schema, nullptr) << nth;
    }
}

// ---- comparison with a data set ----

struct RLUTIsDatasetSimilarTest : LibraryTest {
    KSDataSet* dataSet = nullptr;

    void SetUp() override {
        LibraryTest::SetUp();
        dataSet = heapDataSet(4);  // 400, 410, 420, 430
    }
    void TearDown() override {
        freeWhole(dataSet);
        LibraryTest::TearDown();
    }
    int similar(const Coords& wavelengths) const {
        const Table table = tableOfWavelengths(wavelengths);
        int answer = -77;
        EXPECT_EQ(RLUTIsDatasetSimilar(table.get(), dataSet, &answer), kOk);
        EXPECT_EQ(host().reports, Reports{});
        return answer;
    }
    bool fails() const {
        const Table table = tableOfWavelengths({400.0F, 410.0F});
        int answer = -77;
        return RLUTIsDatasetSimilar(table.get(), dataSet, &answer) == kFailed && answer == -77;
    }
};

TEST_F(RLUTIsDatasetSimilarTest, WhenTheShorterListIsFoundInTheLongerOne) {
    EXPECT_EQ(similar({400.0F, 410.0F, 420.0F, 430.0F}), 1);
    EXPECT_EQ(similar({400.0F, 420.0F}), 1);
    EXPECT_EQ(similar({390.0F, 400.0F, 410.0F, 420.0F, 430.0F, 440.0F}), 1);
    EXPECT_EQ(similar({400.0003F, 410.0F}), 1) << "wavelengths are compared in thousandths";
    EXPECT_EQ(similar({400.0F, 415.0F}), 0);
    EXPECT_EQ(similar({500.0F}), 0);
    EXPECT_EQ(similar({390.0F, 400.0F, 410.0F, 420.0F, 440.0F}), 0);
}

TEST_F(RLUTIsDatasetSimilarTest, ComparesBandsByWavelengthAndNotByOrder) {
    std::swap(dataSet->Sensor.pBandResp[0], dataSet->Sensor.pBandResp[3]);
    EXPECT_EQ(similar({400.0F, 410.0F, 420.0F, 430.0F}), 1);
}

TEST_F(RLUTIsDatasetSimilarTest, BandsOfPoorQualityCountToo) {
    for (int b = 0; b < 4; ++b) dataSet->Sensor.peBandQual[b] = KS_BQ_MASK;
    EXPECT_EQ(similar({400.0F, 410.0F, 420.0F, 430.0F}), 1);
}

TEST_F(RLUTIsDatasetSimilarTest, TheAnswerNeedNotBeWanted) {
    EXPECT_EQ(RLUTIsDatasetSimilar(tableOfWavelengths({400.0F}).get(), dataSet, nullptr), kOk);
    EXPECT_EQ(RLUTIsDatasetSimilar(tableOfWavelengths({500.0F}).get(), dataSet, nullptr), kOk);
}

TEST_F(RLUTIsDatasetSimilarTest, NeedsARadianceTableWithIncreasingWavelengths) {
    int answer = -77;
    forOtherTables([&](KSLUT* table, const char* what) {
        EXPECT_EQ(RLUTIsDatasetSimilar(table, dataSet, &answer), kFailed) << what;
    });
    EXPECT_EQ(RLUTIsDatasetSimilar(tableOfWavelengths({410.0F, 400.0F}).get(), dataSet, &answer), kFailed);
    EXPECT_EQ(answer, -77);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(RLUTIsDatasetSimilarTest, NeedsBandsWithKnownResponses) {
    int answer = -77;
    EXPECT_EQ(RLUTIsDatasetSimilar(tableOfWavelengths({400.0F}).get(), nullptr, &answer), kFailed);
    EXPECT_EQ(answer, -77);
    for (int b = 0; b < 4; ++b) {
        dataSet->Sensor.pBandResp[b].eRespType = KS_RT_UNKNOWN;
        EXPECT_TRUE(fails()) << b;
        dataSet->Sensor.pBandResp[b].eRespType = KS_RT_CUSTOM;
    }
    EXPECT_FALSE(fails());
    const int bands = dataSet->Sensor.nNumBands;
    for (const int count : {0, -1}) {
        dataSet->Sensor.nNumBands = count;
        EXPECT_TRUE(fails()) << count;
    }
    dataSet->Sensor.nNumBands = bands;
    KSBandResp* responses = dataSet->Sensor.pBandResp;
    dataSet->Sensor.pBandResp = nullptr;
    EXPECT_TRUE(fails());
    dataSet->Sensor.pBandResp = responses;
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(RLUTIsDatasetSimilarTest, FailsWithoutMemoryAndLosesNone) {
    const Table table = tableOfWavelengths({400.0F, 410.0F});
    for (int nth = 1;; ++nth) {
        int answer = -77;
        refuseAllocation(nth);
        const int result = RLUTIsDatasetSimilar(table.get(), dataSet, &answer);
        if (!allocationRefused()) {
            EXPECT_EQ(result, kOk);
            EXPECT_EQ(answer, 1);
            EXPECT_GE(nth, 7) << "two schemas of three blocks each";
            return;
        }
        ASSERT_EQ(result, kFailed) << nth;
        ASSERT_EQ(answer, -77) << nth;
    }
}

}  // namespace
