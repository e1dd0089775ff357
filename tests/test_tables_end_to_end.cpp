// Look-up tables on the embedded host: made in a native file or beside an image, described, filled, closed, found again
// and read in pieces; radiance tables larger than 4 GiB, of which the file holds what was written.
#include <gtest/gtest.h>
#include <kshost_app.h>
#include <kslib.h>

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "embedded.hpp"
#include "lookuptables.hpp"

using namespace kit;

namespace {

constexpr int kRead = 0;
constexpr int kWrite = 1;
constexpr int kWavelengths = 2151;

/// Spectrum records that lie together, as transfers take them.
class Spectra {
public:
    Spectra(int count, int values) : spectra_(static_cast<std::size_t>(count)) {
        for (KSSpectrum& spectrum : spectra_) {
            spectrum.nNumMeasVals = values;
            spectrum.pMeas = v_get(values);
        }
    }
    ~Spectra() {
        for (KSSpectrum& spectrum : spectra_) v_free(spectrum.pMeas);
    }
    Spectra(const Spectra&) = delete;
    Spectra& operator=(const Spectra&) = delete;
    KSSpectrum* data() { return spectra_.data(); }
    double& at(int spectrum, int value) { return spectra_[static_cast<std::size_t>(spectrum)].pMeas->ve[value]; }

private:
    std::vector<KSSpectrum> spectra_;
};

/// Every test runs on a native file and on an image with its sidecar.
struct TablesEndToEnd : EmbeddedTest, testing::WithParamInterface<bool> {
    std::string name = folder.path(GetParam() ? "cube.img" : "tables.ksl");
    std::string store = GetParam() ? name + ".ks" : name;

    void TearDown() override {
        EXPECT_EQ(reports, std::vector<std::string>());
        EmbeddedTest::TearDown();
    }
    HostFile* create() const {
        const std::array<int, 4> channels = {0, 0, 0, 2};
        return GetParam() ? IDBCreate(name.c_str(), 5, 4, channels.data(), "PIXEL")
                          : GDBCreate(3, name.c_str(), 512, 512, 0, 1, "");
    }
    HostFile* open(const char* access) const { return GDBOpen(name.c_str(), access); }
    /// Gives a table its place in a new segment of a file, and stores its shape.
    static int place(const Table& table, HostFile* fp) {
        int segment = 0;
        EXPECT_EQ(KSLUTCreateFileSegment(table.get(), fp, &segment, "table", "a table"), kOk);
        EXPECT_EQ(KSLUTSetFileInfo(table.get(), fp, segment), kOk);
        EXPECT_EQ(KSLUTSetAttributes(table.get()), kOk);
        return segment;
    }
};
INSTANTIATE_TEST_SUITE_P(Files, TablesEndToEnd, testing::Bool(),
                         [](const auto& test) { return std::string(test.param ? "BesideAnImage" : "Native"); });

// ---- tables of any shape ----

double elementOf(std::int64_t i, std::int64_t j, std::int64_t k) {
    return 100.0 * static_cast<double>(i) + 10.0 * static_cast<double>(j) + static_cast<double>(k) + 0.1;
}

Table smallTable() {
    Table table = tableOf({4, 5, 6}, 8);
    EXPECT_EQ(KSLUTSetLabel(table.get(), 0, "Sensor altitude"), kOk);
    EXPECT_EQ(KSLUTSetLabel(table.get(), 2, "gr\xc3\xbc\xc3\x9f, \"x\" = 2"), kOk);
    setCoords(table, 0, {-1.5F, 0.0F, 1.0F / 3.0F, 1e6F});
    setCoords(table, 2, {400.0F, 450.5F, 500.0F, 600.25F, 700.0F, 2500.0F});
    return table;
}

/// Writes all elements, one index of the first dimension at a time.
void fill(const Table& table) {
    for (std::int64_t i = 0; i < 4; ++i) {
        std::vector<double> slab;
        for (std::int64_t j = 0; j < 5; ++j)
            for (std::int64_t k = 0; k < 6; ++k) slab.push_back(elementOf(i, j, k));
        const Vector offset = vectorOf({i, 0, 0});
        const Vector count = vectorOf({1, 5, 6});
        std::int64_t moved = -1;
        EXPECT_EQ(
            KSLUTFileIO(table.get(), kWrite, offset.get(), count.get(), nullptr, nullptr, 0, slab.data(), 240, &moved),
            kOk);
        EXPECT_EQ(moved, 240);
    }
}

/// The elements of a rectangle, moved a few at a time.
std::vector<double> readInPieces(const Table& table, const Extents& offset, const Extents& count, const Extents& step,
                                 std::int64_t most) {
    const std::int64_t total = count[0] * count[1] * count[2];
    std::vector<double> all;
    while (static_cast<std::int64_t>(all.size()) < total) {
        const auto done = static_cast<std::int64_t>(all.size());
        const Vector from = vectorOf(offset);
        const Vector extents = vectorOf(count);
        const Vector steps = vectorOf(step);
        const Vector resume = vectorOf({done / (count[1] * count[2]), done / count[2] % count[1], done % count[2]});
        std::vector<double> piece(static_cast<std::size_t>(total), -1.0);
        std::int64_t moved = -1;
        EXPECT_EQ(KSLUTFileIO(table.get(), kRead, from.get(), extents.get(), steps.get(), resume.get(), most,
                              piece.data(), total * 8, &moved),
                  kOk);
        EXPECT_EQ(moved, std::min(most, total - done) * 8);
        if (moved <= 0) break;
        all.insert(all.end(), piece.begin(), piece.begin() + moved / 8);
    }
    return all;
}

TEST_P(TablesEndToEnd, ATableIsMadeFilledFoundAgainAndReadInPieces) {
    int segment = 0;
    {
        HostFile* fp = create();
        ASSERT_NE(fp, nullptr);
        ASSERT_NE(GDBCreateLayer(fp, "spectra", "", ""), nullptr);
        const Table table = smallTable();
        segment = place(table, fp);
        GDBClose(fp);  // the table holds a reference of its own
        fill(table);
    }
    EXPECT_EQ(segment, 2);
    HostFile* fp = open("r");
    ASSERT_NE(fp, nullptr);
    ASSERT_EQ(GDBSegNext(fp, kTableSegment, 0), segment);
    EXPECT_EQ(GDBSegNext(fp, kTableSegment, segment), -1);
    const Table table(KSLUTCreate(1));
    ASSERT_EQ(KSLUTSetFileInfo(table.get(), fp, segment), kOk);
    GDBClose(fp);
    ASSERT_EQ(KSLUTGetAttributes(table.get()), kOk);
    EXPECT_EQ(sizesOf(table), (Sizes{4, 5, 6}));
    EXPECT_EQ(table->nElementSize, 8);
    EXPECT_EQ(labelOf(table, 0), "Sensor altitude");
    EXPECT_EQ(labelOf(table, 1), "(none)");
    EXPECT_EQ(labelOf(table, 2), "gr\xc3\xbc\xc3\x9f, \"x\" = 2");
    EXPECT_EQ(coordsOf(table, 0), (Coords{-1.5F, 0.0F, 0.33333F, 1e6F})) << "five decimals are kept";
    EXPECT_EQ(coordsOf(table, 1), Coords(5, 0.0F));
    EXPECT_EQ(coordsOf(table, 2), (Coords{400.0F, 450.5F, 500.0F, 600.25F, 700.0F, 2500.0F}));
    std::vector<double> whole;
    std::vector<double> some;
    for (std::int64_t i = 0; i < 4; ++i) {
        for (std::int64_t j = 0; j < 5; ++j) {
            for (std::int64_t k = 0; k < 6; ++k) {
                whole.push_back(elementOf(i, j, k));
                if (i >= 1 && j % 2 == 1 && k % 3 == 2) some.push_back(elementOf(i, j, k));
            }
        }
    }
    EXPECT_EQ(readInPieces(table, {0, 0, 0}, {4, 5, 6}, {1, 1, 1}, 120), whole);
    EXPECT_EQ(readInPieces(table, {0, 0, 0}, {4, 5, 6}, {1, 1, 1}, 7), whole);
    EXPECT_EQ(readInPieces(table, {1, 1, 2}, {3, 2, 2}, {1, 2, 3}, 5), some);
}

TEST_P(TablesEndToEnd, ATransferThatTheHostRefusesFailsAndLeavesNoTrap) {
    HostFile* fp = create();
    const Table table = smallTable();
    place(table, fp);
    fill(table);
    const Vector offset = vectorOf({0, 0, 3});
    const Vector count = vectorOf({4, 5, 6});
    std::vector<double> buffer(120, -1.0);
    std::int64_t moved = -1;
    EXPECT_EQ(
        KSLUTFileIO(table.get(), kRead, offset.get(), count.get(), nullptr, nullptr, 0, buffer.data(), 960, &moved),
        kFailed);
    EXPECT_EQ(moved, 0);
    EXPECT_EQ(buffer, std::vector<double>(120, -1.0));
    EXPECT_EQ(reports.size(), 1U);
    EXPECT_EQ(IMPProtectBuffer(), nullptr);
    int segment = -1;
    const Table vast = tableOf({1 << 30, 1 << 30, 7}, 8);  // more bytes than can be counted
    EXPECT_EQ(KSLUTCreateFileSegment(vast.get(), fp, &segment, "", ""), kFailed);
    EXPECT_EQ(GDBSegNext(fp, kTableSegment, 1), -1);
    GDBClose(fp);
    reports.clear();
    KSHostResetErrorCount();
}

TEST_P(TablesEndToEnd, AFileThatIsOpenForReadingTakesNoTable) {
    GDBClose(create());
    HostFile* fp = open("r");
    const Table table = smallTable();
    int segment = 77;
    EXPECT_EQ(KSLUTCreateFileSegment(table.get(), fp, &segment, "", ""), kFailed);
    EXPECT_EQ(reports.size(), 1U);
    GDBClose(fp);
    reports.clear();
    KSHostResetErrorCount();
}

TEST_P(TablesEndToEnd, TablesOfOneFileAreApart) {
    HostFile* fp = create();
    std::vector<int> segments;
    for (int t = 0; t < 3; ++t) {
        const Table table = tableOf({2, t + 1}, 4);
        segments.push_back(place(table, fp));
        std::vector<std::int32_t> values(static_cast<std::size_t>(2 * (t + 1)), 1000 + t);
        const Vector offset = vectorOf({0, 0});
        const Vector count = vectorOf({2, t + 1});
        EXPECT_EQ(KSLUTFileIO(table.get(), kWrite, offset.get(), count.get(), nullptr, nullptr, 0, values.data(),
                              static_cast<std::int64_t>(values.size() * 4), nullptr),
                  kOk);
    }
    GDBClose(fp);
    fp = open("r");
    int segment = 0;
    for (int t = 0; t < 3; ++t) {
        segment = GDBSegNext(fp, kTableSegment, segment);
        EXPECT_EQ(segment, segments[static_cast<std::size_t>(t)]);
        const Table table(KSLUTCreate(9));
        ASSERT_EQ(KSLUTSetFileInfo(table.get(), fp, segment), kOk);
        ASSERT_EQ(KSLUTGetAttributes(table.get()), kOk);
        EXPECT_EQ(sizesOf(table), (Sizes{2, t + 1}));
        std::int32_t last = 0;
        const Vector offset = vectorOf({1, t});
        const Vector count = vectorOf({1, 1});
        EXPECT_EQ(KSLUTFileIO(table.get(), kRead, offset.get(), count.get(), nullptr, nullptr, 0, &last, 4, nullptr),
                  kOk);
        EXPECT_EQ(last, 1000 + t);
    }
    GDBClose(fp);
}

// ---- radiance tables ----

/// More than 4 GiB: 302,400 spectra of 2151 wavelengths, 8 bytes each.
const Sizes kLarge = {5, 6, 2, 5, 6, 4, 7, 6, kWavelengths};

std::int64_t spectraOf(const Sizes& sizes) {
    std::int64_t spectra = 1;
    for (std::size_t d = 0; d < 8; ++d) spectra *= sizes[d];
    return spectra;
}

/// The indexes of a spectrum, counted from 0 in the table's order; value 8 is 0.
Extents placeOf(std::int64_t spectrum, const Sizes& sizes) {
    Extents place(9, 0);
    for (std::size_t d = 8; d-- > 0;) {
        place[d] = spectrum % sizes[d];
        spectrum /= sizes[d];
    }
    return place;
}

RLUTEntry entryOf(std::int64_t spectrum, int wavelength) {
    return {static_cast<float>(spectrum) * 0.5F + static_cast<float>(wavelength),
            -static_cast<float>(spectrum % 1000) - 0.25F * static_cast<float>(wavelength)};
}

std::vector<RLUTEntry> entriesOf(std::int64_t spectrum) {
    std::vector<RLUTEntry> entries;
    for (int w = 0; w < kWavelengths; ++w) entries.push_back(entryOf(spectrum, w));
    return entries;
}

bool same(const RLUTEntry& a, const RLUTEntry& b) { return a.fFirst == b.fFirst && a.fSecond == b.fSecond; }

/// Moves one spectrum as it is; the bytes that moved.
std::int64_t moveSpectrum(const Table& table, int mode, const Extents& place, std::vector<RLUTEntry>& entries) {
    const Vector offset = vectorOf(place);
    const Vector count = vectorOf({1, 1, 1, 1, 1, 1, 1, 1, kWavelengths});
    std::int64_t moved = -1;
    EXPECT_EQ(KSLUTFileIO(table.get(), mode, offset.get(), count.get(), nullptr, nullptr, 0, entries.data(),
                          static_cast<std::int64_t>(entries.size() * sizeof(RLUTEntry)), &moved),
              kOk);
    return moved;
}

std::vector<RLUTEntry> storedSpectrum(const Table& table, const Extents& place) {
    std::vector<RLUTEntry> entries(kWavelengths, RLUTEntry{-1.0F, -1.0F});
    EXPECT_EQ(moveSpectrum(table, kRead, place, entries), kWavelengths * 8);
    return entries;
}

void expectSpectrum(const Table& table, std::int64_t spectrum, const std::vector<RLUTEntry>& expected) {
    const std::vector<RLUTEntry> found = storedSpectrum(table, placeOf(spectrum, kLarge));
    ASSERT_TRUE(std::equal(found.begin(), found.end(), expected.begin(), expected.end(), same)) << spectrum;
}

struct RadianceTables : TablesEndToEnd {
    /// The first and last spectrum, those on either side of 2^31 and 2^32 bytes, and some in between.
    static std::vector<std::int64_t> written() {
        constexpr std::int64_t kSpectrum = kWavelengths * 8;
        const std::int64_t below = (std::int64_t{1} << 31U) / kSpectrum;
        const std::int64_t across = (std::int64_t{1} << 32U) / kSpectrum;
        return {0, 1, 77777, below, below + 1, across - 1, across, across + 1, spectraOf(kLarge) - 1};
    }
    int make() const {
        HostFile* fp = create();
        EXPECT_NE(fp, nullptr);
        const Table table(RLUTCreate());
        EXPECT_EQ(KSLUTSetSizes(table.get(), kLarge.data()), kOk);
        const std::array<float, 9> low = {1.0F, 0.0F, 0.1F, 5.0F, 0.5F, 0.0F, 0.0F, 0.0F, 350.0F};
        const std::array<float, 9> high = {21.0F, 75.0F, 0.6F, 45.0F, 5.5F, 3.0F, 180.0F, 50.0F, 2500.0F};
        EXPECT_EQ(KSLUTSetCoordRanges(table.get(), low.data(), high.data()), kOk);
        const int segment = place(table, fp);
        GDBClose(fp);
        for (const std::int64_t spectrum : written()) {
            std::vector<RLUTEntry> entries = entriesOf(spectrum);
            EXPECT_EQ(moveSpectrum(table, kWrite, placeOf(spectrum, kLarge), entries), kWavelengths * 8);
        }
        return segment;
    }
};
INSTANTIATE_TEST_SUITE_P(Files, RadianceTables, testing::Bool(),
                         [](const auto& test) { return std::string(test.param ? "BesideAnImage" : "Native"); });

TEST_P(RadianceTables, OneAbove4GiBTakesRoomForWhatWasWrittenAndComesBack) {
    ASSERT_GT(spectraOf(kLarge) * kWavelengths * 8, std::int64_t{1} << 32U);
    const int segment = make();
    struct stat info {};
    ASSERT_EQ(stat(store.c_str(), &info), 0);
    EXPECT_LT(info.st_size, 16 << 20);
    const Table table(RLUTOpen(name.c_str(), segment, "r"));
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(sizesOf(table), kLarge);
    std::int64_t elements = 0;
    EXPECT_EQ(KSLUTGetNumElems(table.get(), &elements), kOk);
    EXPECT_EQ(elements, spectraOf(kLarge) * kWavelengths);
    const std::vector<std::int64_t> all = written();
    for (const std::int64_t spectrum : all)
        ASSERT_NO_FATAL_FAILURE(expectSpectrum(table, spectrum, entriesOf(spectrum)));
    const std::vector<RLUTEntry> zeros(kWavelengths, RLUTEntry{0.0F, 0.0F});
    for (const std::int64_t spectrum : all) {
        for (const std::int64_t beside : {spectrum - 1, spectrum + 1}) {
            const bool isThere = beside >= 0 && beside < spectraOf(kLarge);
            if (isThere && std::find(all.begin(), all.end(), beside) == all.end()) {
                ASSERT_NO_FATAL_FAILURE(expectSpectrum(table, beside, zeros));
            }
        }
    }
}

TEST_P(RadianceTables, AReopenedOneIsSearchedAndReadAroundACoordinate) {
    const int segment = make();
    const Table table(RLUTOpen(name.c_str(), segment, "r+"));
    ASSERT_NE(table, nullptr);
    float first = -1.0F;
    float last = -1.0F;
    EXPECT_EQ(RLUTGetCoordRange(table.get(), RLUT_SOLAR_ZENITH, &first, &last), kOk);
    EXPECT_EQ(first, 0.0F);
    EXPECT_EQ(last, 75.0F);
    // Zenith angles of 0, 15, 30, 45, 60, 75 degrees; wavelengths a nanometre apart.
    float index = -1.0F;
    EXPECT_EQ(RLUTGetIndexFromCoord(table.get(), RLUT_SOLAR_ZENITH, 40.0F, &index), kOk);
    EXPECT_NEAR(index, 2.0 + 10.0 / 15.0, 1e-6);
    EXPECT_EQ(RLUTGetIndexFromCoord(table.get(), RLUT_WAVELENGTH, 1000.25F, &index), kOk);
    EXPECT_NEAR(index, 650.25, 1e-3);
    int from = -1;
    int to = -1;
    EXPECT_EQ(RLUTGetIndexesFromCoordRange(table.get(), RLUT_SOLAR_ZENITH, 20.0F, 50.0F, &from, &to, 1), kOk);
    EXPECT_EQ(from, 2);
    EXPECT_EQ(to, 3);
    EXPECT_EQ(RLUTGetIndexesFromCoordRange(table.get(), RLUT_SOLAR_ZENITH, 20.0F, 50.0F, &from, &to, 0), kOk);
    EXPECT_EQ(from, 1);
    EXPECT_EQ(to, 4);
    // The spectra at both zenith angles around 40 degrees, written here and read together by their bands.
    const Extents low = {4, 2, 1, 3, 2, 1, 5, 2, 0};
    Extents high = low;
    high[RLUT_SOLAR_ZENITH] = 3;
    std::vector<RLUTEntry> entries = entriesOf(111);
    EXPECT_EQ(moveSpectrum(table, kWrite, low, entries), kWavelengths * 8);
    entries = entriesOf(222);
    EXPECT_EQ(moveSpectrum(table, kWrite, high, entries), kWavelengths * 8);
    Extents corner = low;
    corner[RLUT_WAVELENGTH] = 650;
    const Vector offset = vectorOf(corner);
    const Vector count = vectorOf({1, 2, 1, 1, 1, 1, 1, 1, 2});
    std::array<RLUTEntry, 4> around{};
    std::int64_t moved = -1;
    EXPECT_EQ(
        KSLUTFileIO(table.get(), kRead, offset.get(), count.get(), nullptr, nullptr, 0, around.data(), 32, &moved),
        kOk);
    EXPECT_EQ(moved, 32);
    EXPECT_TRUE(same(around[0], entryOf(111, 650)));
    EXPECT_TRUE(same(around[1], entryOf(111, 651)));
    EXPECT_TRUE(same(around[2], entryOf(222, 650)));
    EXPECT_TRUE(same(around[3], entryOf(222, 651)));
    KSSTSchema* schema = KSSTSchemaFromRLUT(table.get());
    ASSERT_NE(schema, nullptr);
    EXPECT_EQ(schema->nNumMeasFlds, kWavelengths);
    EXPECT_NEAR(schema->pMeasFld[kWavelengths - 1].fWlen, 2500.0, 1e-3);
    KSFreeSTSchema(schema);
}

TEST_P(RadianceTables, SpectraAreMovedByTheirOwnNumbers) {
    const int segment = make();
    const Table table(RLUTOpen(name.c_str(), segment, "r+"));
    ASSERT_NE(table, nullptr);
    const Extents start = {4, 5, 0, 0, 0, 0, 0, 0, 0};
    const Vector offset = vectorOf(start);
    const Vector count = vectorOf({1, 1, 1, 1, 1, 1, 1, 3, 1});
    const Vector step = vectorOf({1, 1, 1, 1, 1, 1, 1, 2, 1});
    Spectra first(3, kWavelengths);
    Spectra second(3, kWavelengths);
    for (int s = 0; s < 3; ++s) {
        for (int w = 0; w < kWavelengths; ++w) {
            first.at(s, w) = 10.0 * s + w;
            second.at(s, w) = -0.5 * w;
        }
    }
    int spectra = 0;
    ASSERT_EQ(RLUTFileIO(table.get(), kWrite, offset.get(), count.get(), step.get(), nullptr, 0, first.data(),
                         second.data(), 10, &spectra),
              kOk);
    EXPECT_EQ(spectra, 3);
    // Spectrum s is stored as its value number s throughout, at every other view angle.
    for (int s = 0; s < 3; ++s) {
        Extents place = start;
        place[RLUT_VIEW_ZENITH] = 2 * s;
        const std::vector<RLUTEntry> found = storedSpectrum(table, place);
        const RLUTEntry pair = {static_cast<float>(11 * s), -0.5F * static_cast<float>(s)};
        EXPECT_TRUE(std::all_of(found.begin(), found.end(), [&](const RLUTEntry& e) { return same(e, pair); })) << s;
        place[RLUT_VIEW_ZENITH] = 2 * s + 1;
        const std::vector<RLUTEntry> between = storedSpectrum(table, place);
        EXPECT_TRUE(std::all_of(between.begin(), between.end(), [](const RLUTEntry& e) {
            return same(e, {0.0F, 0.0F});
        })) << s;
    }
    // And its last entry comes back as value number s; the others stay as they are.
    Spectra readFirst(3, kWavelengths);
    Spectra readSecond(3, kWavelengths);
    const Vector resume = vectorOf({0, 0, 0, 0, 0, 0, 0, 1, 0});
    ASSERT_EQ(RLUTFileIO(table.get(), kRead, offset.get(), count.get(), step.get(), resume.get(), 2, readFirst.data(),
                         readSecond.data(), 10, &spectra),
              kOk);
    EXPECT_EQ(spectra, 2);
    EXPECT_EQ(readFirst.at(0, 0), 11.0);
    EXPECT_EQ(readFirst.at(1, 1), 22.0);
    EXPECT_EQ(readFirst.at(2, 2), 0.0) << "the limit is two spectra";
    EXPECT_EQ(readSecond.at(0, 0), -0.5);
    EXPECT_EQ(readSecond.at(1, 1), -1.0);
    EXPECT_EQ(readFirst.at(0, 1), 0.0);
    const Vector lastPlace = vectorOf(placeOf(spectraOf(kLarge) - 1, kLarge));
    const Vector one = vectorOf({1, 1, 1, 1, 1, 1, 1, 1, 1});
    Spectra last(1, kWavelengths);
    ASSERT_EQ(RLUTFileIO(table.get(), kRead, lastPlace.get(), one.get(), nullptr, nullptr, 0, last.data(), nullptr, 1,
                         &spectra),
              kOk);
    EXPECT_EQ(spectra, 1);
    EXPECT_EQ(last.at(0, 0), static_cast<double>(entryOf(spectraOf(kLarge) - 1, kWavelengths - 1).fFirst));
}

TEST_P(RadianceTables, OnlyASegmentThatHoldsOneIsOpened) {
    HostFile* fp = create();
    ASSERT_NE(GDBCreateLayer(fp, "spectra", "", ""), nullptr);
    const int generic = place(smallTable(), fp);
    const int bare = IDBSegCreate(fp, "", "", kTableSegment, 4);
    const int other = IDBSegCreate(fp, "", "", 181, 4);
    GDBClose(fp);
    for (const int segment : {1, generic, bare, other, other + 1, 0, -1})
        EXPECT_EQ(RLUTOpen(name.c_str(), segment, "r"), nullptr) << segment;
    EXPECT_EQ(reports, std::vector<std::string>());
    EXPECT_EQ(RLUTOpen((name + ".nosuch").c_str(), generic, "r"), nullptr);
    EXPECT_EQ(reports.size(), 1U) << "the host says that there is no such file";
    reports.clear();
    KSHostResetErrorCount();
}

}  // namespace
