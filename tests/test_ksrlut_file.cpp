// Radiance tables in a file: opening them, and moving spectra between the segment and spectrum records.
#include <kslib/ksmatrix.h>
#include <kslib/ksrlut.h>
#include <kslib/kssio.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "radiancetables.hpp"

using namespace kit;

namespace {

constexpr int kSegment = 7;

/// Radiance tables never report, whatever goes wrong.
struct FileTest : TableFileTest {
    void TearDown() override {
        EXPECT_EQ(host().reports, Reports{});
        TableFileTest::TearDown();
    }
};

// ---- opening ----

struct RLUTOpenTest : FileTest {
    void SetUp() override {
        FileTest::SetUp();
        addSegment(kSegment);
        storeShape();
        IMPFatal(1);
        host().forget();
    }
    void TearDown() override {
        IMPFatal(0);
        FileTest::TearDown();
    }
    /// The shape of a radiance table of sizes 1, 2, ..., 9.
    static void storeShape() {
        stored().lists.clear();
        setEntries(kSegment, {{"KSLUTDimensions", "9"}, {"KSLUTElementSize", "8"}});
        for (int d = 0; d < 9; ++d) {
            setEntry(kSegment, "KSLUTSize_" + std::to_string(d), std::to_string(d + 1));
            setEntry(kSegment, "KSLUTLabel_" + std::to_string(d), gaszRLUTLabels[d]);
        }
        setEntry(kSegment, "KSLUTCoords_1", "0.00000,30.00000");
    }
    static Names calls() {
        return host().callsOf({"IMPFatal", "GDBOpen", "fpReference", "GDBMetaDataIO", "GDBClose", "IMPUnprotect"});
    }
    /// Nothing but the test's own handle is open, and errors are as fatal as they were.
    void expectNothingOpen(const std::string& what) const {
        EXPECT_EQ(host().liveHandles(), 1) << what;
        EXPECT_EQ(file->references, 1) << what;
        EXPECT_EQ(host().armedTraps(), 0) << what;
        EXPECT_EQ(IMPFatal(1), 1) << what;
    }
};

TEST_F(RLUTOpenTest, ReadsTheTableAndKeepsOneReference) {
    {
        const Table table(RLUTOpen("tables.ks", kSegment, "r"));
        ASSERT_NE(table, nullptr);
        EXPECT_EQ(calls(),
                  (Names{"IMPFatal(0)", "GDBOpen(tables.ks, r)", "IMPFatal(1)", "fpReference(tables.ks)",
                         "GDBMetaDataIO(tables.ks, 0, 180, 7, null)", "IMPUnprotect()", "GDBClose(tables.ks)"}));
        EXPECT_EQ(RLUTValidate(table.get()), kOk);
        EXPECT_EQ(sizesOf(table), (Sizes{1, 2, 3, 4, 5, 6, 7, 8, 9}));
        EXPECT_EQ(coordsOf(table, 1), (Coords{0.0F, 30.0F}));
        ASSERT_NE(table->fp, nullptr);
        EXPECT_NE(table->fp, file);
        EXPECT_EQ(table->fp->references, 1);
        EXPECT_FALSE(table->fp->writable);
        EXPECT_EQ(table->nSegment, kSegment);
    }
    expectNothingOpen("after the table");
}

TEST_F(RLUTOpenTest, OpensAsTheCallerSays) {
    const Table table(RLUTOpen("tables.ks", kSegment, "r+"));
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(host().argumentsOf("GDBOpen"), "tables.ks, r+");
    EXPECT_TRUE(table->fp->writable);
}

TEST_F(RLUTOpenTest, ErrorsAreNotFatalWhileTheFileIsOpened) {
    std::vector<std::string> during;
    host().whenCalled = [&during](const Call& call) {
        if (call.name != "GDBOpen") return;
        during.push_back(std::to_string(IMPFatal(0)));
    };
    const Table table(RLUTOpen("tables.ks", kSegment, "r"));
    EXPECT_EQ(during, (std::vector<std::string>{"0"}));
    host().whenCalled = nullptr;
    EXPECT_EQ(IMPFatal(1), 1);
    IMPFatal(0);
    host().forget();
    EXPECT_NE(Table(RLUTOpen("tables.ks", kSegment, "r")), nullptr);
    EXPECT_EQ(host().callsOf({"IMPFatal"}), (Names{"IMPFatal(0)", "IMPFatal(0)"})) << "the setting that was there";
    IMPFatal(1);
}

TEST_F(RLUTOpenTest, WithoutAFileThereIsNoTable) {
    EXPECT_EQ(RLUTOpen("nowhere.ks", kSegment, "r"), nullptr);
    EXPECT_EQ(calls(), (Names{"IMPFatal(0)", "GDBOpen(nowhere.ks, r)", "IMPFatal(1)"}));
    host().failCall("GDBOpen");
    EXPECT_EQ(RLUTOpen("tables.ks", kSegment, "r"), nullptr);
    expectNothingOpen("no file");
}

TEST_F(RLUTOpenTest, WithoutATableSegmentThereIsNoTable) {
    addSegment(8, 0, 116);
    for (const int segment : {6, 8, -1, 0}) {
        host().forget();
        EXPECT_EQ(RLUTOpen("tables.ks", segment, "r"), nullptr) << segment;
        EXPECT_EQ(calls(), (Names{"IMPFatal(0)", "GDBOpen(tables.ks, r)", "IMPFatal(1)", "GDBClose(tables.ks)"}))
            << segment;
        expectNothingOpen(std::to_string(segment));
    }
}

TEST_F(RLUTOpenTest, OtherTablesAreNotOpened) {
    const struct {
        const char* key;
        const char* value;
    } changes[] = {{"KSLUTDimensions", "8"},     {"KSLUTDimensions", "0"},   {"KSLUTElementSize", "4"},
                   {"KSLUTElementSize", "none"}, {"KSLUTSize_3", "0"},       {"KSLUTSize", "-1"},
                   {"KSLUTLabel_3", "Surface"},  {"KSLUTCoords_1", "1,2,3"}, {"KSLUTCoords_8", "1"}};
    for (const auto& change : changes) {
        const std::string what = std::string(change.key) + "=" + change.value;
        storeShape();
        setEntry(kSegment, change.key, change.value);
        host().forget();
        EXPECT_EQ(RLUTOpen("tables.ks", kSegment, "r"), nullptr) << what;
        EXPECT_EQ(host().callsOf({"GDBClose"}), (Names{"GDBClose(tables.ks)", "GDBClose(tables.ks)"}))
            << what << ": the table's reference and the caller's";
        expectNothingOpen(what);
    }
    storeShape();
    setEntry(kSegment, "KSLUTLabel_3", "surface METEOROLOGICAL range");
    EXPECT_NE(Table(RLUTOpen("tables.ks", kSegment, "r")), nullptr);
    stored().lists.clear();
    EXPECT_EQ(RLUTOpen("tables.ks", kSegment, "r"), nullptr);
    expectNothingOpen("no metadata");
}

TEST_F(RLUTOpenTest, LabelsThatAreNotStoredAreTheUsualOnes) {
    stored().lists.clear();
    setEntries(kSegment, {{"KSLUTDimensions", "9"}, {"KSLUTElementSize", "8"}, {"KSLUTSize", "2"}});
    const Table table(RLUTOpen("tables.ks", kSegment, "r"));
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(labelOf(table, 8), "Wavelength");
}

TEST_F(RLUTOpenTest, GivesUpWhenTheHostDoes) {
    for (const std::string name : {"GDBMetaDataIO", "TokenizeDelim"}) {
        host().forget();
        host().jumpFromCall(name);
        EXPECT_EQ(RLUTOpen("tables.ks", kSegment, "r"), nullptr) << name;
        EXPECT_EQ(host().count("IMPUnprotect"), 0) << name;
        EXPECT_EQ(host().liveLists(), 0) << name;
        expectNothingOpen(name);
    }
}

TEST_F(RLUTOpenTest, GivesNothingWithoutMemory) {
    // A table of another number of dimensions has its record released on the way.
    for (const char* dimensions : {"9", "3"}) {
        setEntry(kSegment, "KSLUTDimensions", dimensions);
        bool isRefused = true;
        for (int nth = 1; isRefused; ++nth) {
            const std::string what = dimensions + (" dimensions, allocation " + std::to_string(nth));
            host().forget();
            refuseAllocation(nth);
            const Table table(RLUTOpen("tables.ks", kSegment, "r"));
            isRefused = allocationRefused();
            refuseAllocation(0);
            if (!isRefused) {
                EXPECT_EQ(table != nullptr, dimensions == std::string("9"));
                break;
            }
            ASSERT_EQ(table, nullptr) << what;
            EXPECT_EQ(host().liveLists(), 0) << what;
            expectNothingOpen(what);
            if (nth == 1) {
                EXPECT_EQ(host().count("GDBOpen"), 0) << "the table is made first";
            }
        }
    }
}

// ---- moving spectra ----

/// Records of spectra one after another, whose values start at `start` and grow by one from record to record and by a
/// hundred from value to value.
class Spectra {
public:
    Spectra(int spectra, int values, double start) {
        for (int s = 0; s < spectra; ++s) {
            KSSpectrum record{};
            record.nNumMeasVals = values;
            record.pMeas = v_get(values);
            for (int i = 0; i < values; ++i) record.pMeas->ve[i] = start + s + 100.0 * i;
            records_.push_back(record);
        }
    }
    Spectra(const Spectra&) = delete;
    Spectra& operator=(const Spectra&) = delete;
    ~Spectra() {
        for (KSSpectrum& record : records_) {
            if (record.pMeas != nullptr) v_free(record.pMeas);
        }
    }
    KSSpectrum* data() { return records_.data(); }
    KSSpectrum& operator[](std::size_t s) { return records_[s]; }
    std::vector<double> values(std::size_t s) const {
        const VEC* values = records_[s].pMeas;
        return {values->ve, values->ve + values->dim};
    }
    /// All of them, to see whether anything changed.
    std::vector<std::vector<double>> all() const {
        std::vector<std::vector<double>> found;
        for (std::size_t s = 0; s < records_.size(); ++s) found.push_back(values(s));
        return found;
    }

private:
    std::vector<KSSpectrum> records_;
};

/// Six spectra of four wavelengths: two altitudes by three meteorological ranges.
struct RLUTFileIOTest : FileTest {
    static constexpr int kSpectra = 6;
    static constexpr int kWavelengths = 4;
    Table table;
    Vector offset = vectorOf({0, 0, 0, 0, 0, 0, 0, 0, 0});
    Vector count = vectorOf({2, 1, 1, 3, 1, 1, 1, 1, 4});
    int moved = -77;

    void SetUp() override {
        FileTest::SetUp();
        table = radianceTable({2, 1, 1, 3, 1, 1, 1, 1, kWavelengths});
        place(table, kSegment);
        std::vector<RLUTEntry> entries;
        for (int i = 0; i < kSpectra * kWavelengths; ++i) {
            entries.push_back({static_cast<float>(i) + 0.5F, -static_cast<float>(i)});
        }
        std::memcpy(stored().segments[kSegment].bytes.data(), entries.data(), 192);
    }
    void TearDown() override {
        table.reset();
        FileTest::TearDown();
    }
    static std::vector<RLUTEntry> entries() {
        std::vector<RLUTEntry> found(24);
        std::memcpy(static_cast<void*>(found.data()), stored().segments[kSegment].bytes.data(), 192);
        return found;
    }
    static std::vector<unsigned char> bytes() { return stored().segments[kSegment].bytes; }
    int io(int mode, KSSpectrum* first, KSSpectrum* second, int most = kSpectra) {
        return RLUTFileIO(table.get(), mode, offset.get(), count.get(), nullptr, nullptr, 0, first, second, most,
                          &moved);
    }
    /// The same with the second optional vector.
    int resumed(int mode, const Vector& resume, int limit, Spectra& first, Spectra& second, int most = kSpectra) {
        return RLUTFileIO(table.get(), mode, offset.get(), count.get(), nullptr, resume.get(), limit, first.data(),
                          second.data(), most, &moved);
    }
};

TEST_F(RLUTFileIOTest, WritesTheValueOfASpectrumsOwnNumber) {
    Spectra first(kSpectra, kWavelengths, 1000.0);
    Spectra second(kSpectra, kWavelengths, 5000.0);
    const auto firstBefore = first.all();
    EXPECT_EQ(io(1, first.data(), second.data()), kOk);
    EXPECT_EQ(moved, 6);
    const std::vector<RLUTEntry> written = entries();
    // A spectrum has four values: the fifth and sixth have none of their number.
    const float expectedFirst[] = {1000.0F, 1101.0F, 1202.0F, 1303.0F, 0.0F, 0.0F};
    const float expectedSecond[] = {5000.0F, 5101.0F, 5202.0F, 5303.0F, 0.0F, 0.0F};
    for (std::size_t s = 0; s < 6; ++s) {
        for (std::size_t w = 0; w < 4; ++w) {
            EXPECT_EQ(written[s * 4 + w].fFirst, expectedFirst[s]) << s << " " << w;
            EXPECT_EQ(written[s * 4 + w].fSecond, expectedSecond[s]) << s << " " << w;
        }
    }
    EXPECT_EQ(first.all(), firstBefore);
    EXPECT_EQ(callsFromTrap(), guarded({"IDBMultiArrayIO(tables.ks, 1, 7, [2 1 1 3 1 1 1 1 4], 8, "
                                        "[0 0 0 0 0 0 0 0 0], [2 1 1 3 1 1 1 1 4], null, null, 0, pointer, 192)"}));
}

TEST_F(RLUTFileIOTest, ReadsTheLastWavelengthIntoTheValueOfASpectrumsOwnNumber) {
    Spectra first(kSpectra, kWavelengths, 1000.0);
    Spectra second(kSpectra, kWavelengths, 5000.0);
    auto expectedFirst = first.all();
    auto expectedSecond = second.all();
    for (std::size_t s = 0; s < 4; ++s) {
        const auto last = static_cast<double>(s * 4 + 3);
        expectedFirst[s][s] = last + 0.5;
        expectedSecond[s][s] = -last;
    }
    const std::vector<unsigned char> before = bytes();
    EXPECT_EQ(io(0, first.data(), second.data()), kOk);
    EXPECT_EQ(moved, 6);
    EXPECT_EQ(first.all(), expectedFirst);
    EXPECT_EQ(second.all(), expectedSecond);
    EXPECT_EQ(bytes(), before);
    EXPECT_EQ(callsFromTrap(), guarded({"IDBMultiArrayIO(tables.ks, 0, 7, [2 1 1 3 1 1 1 1 4], 8, "
                                        "[0 0 0 0 0 0 0 0 0], [2 1 1 3 1 1 1 1 4], null, null, 0, pointer, 192)"}));
}

TEST_F(RLUTFileIOTest, ReadsWhicheverOfTheTwoIsWanted) {
    Spectra values(kSpectra, kWavelengths, 1000.0);
    EXPECT_EQ(io(0, values.data(), nullptr), kOk);
    EXPECT_EQ(values.values(1), (std::vector<double>{1001.0, 7.5, 1201.0, 1301.0}));
    EXPECT_EQ(io(0, nullptr, values.data()), kOk);
    EXPECT_EQ(values.values(1), (std::vector<double>{1001.0, -7.0, 1201.0, 1301.0}));
}

TEST_F(RLUTFileIOTest, ValuesAreOfSinglePrecisionInTheFile) {
    Spectra first(kSpectra, kWavelengths, 0.0);
    Spectra second(kSpectra, kWavelengths, 0.0);
    first[0].pMeas->ve[0] = 0.1;
    second[0].pMeas->ve[0] = 16777217.0;
    EXPECT_EQ(io(1, first.data(), second.data()), kOk);
    EXPECT_EQ(entries()[0].fFirst, 0.1F);
    EXPECT_EQ(entries()[0].fSecond, 16777216.0F);
    EXPECT_EQ(io(0, first.data(), second.data()), kOk);
    EXPECT_EQ(first.values(0)[0], static_cast<double>(0.1F));
    EXPECT_EQ(second.values(0)[0], 16777216.0);
}

TEST_F(RLUTFileIOTest, NothingIsReadOrWrittenPastAVector) {
    Spectra first(kSpectra, kWavelengths, 1000.0);
    Spectra second(kSpectra, kWavelengths, 5000.0);
    v_free(first[1].pMeas);
    first[1].pMeas = nullptr;
    v_free(second[2].pMeas);
    second[2].pMeas = v_get(2);
    second[2].pMeas->ve[0] = second[2].pMeas->ve[1] = 3.0;
    EXPECT_EQ(io(1, first.data(), second.data()), kOk);
    EXPECT_EQ(entries()[4].fFirst, 0.0F);
    EXPECT_EQ(entries()[4].fSecond, 5101.0F);
    EXPECT_EQ(entries()[8].fFirst, 1202.0F);
    EXPECT_EQ(entries()[8].fSecond, 0.0F);
    EXPECT_EQ(io(0, first.data(), second.data()), kOk);
    EXPECT_EQ(second.values(2), (std::vector<double>{3.0, 3.0}));
}

TEST_F(RLUTFileIOTest, WavelengthsAlwaysMoveWhole) {
    Spectra values(kSpectra, kWavelengths, 1000.0);
    offset->panValues[8] = 3;
    count->panValues[8] = 1;
    const Vector step = vectorOf({1, 1, 1, 1, 1, 1, 1, 1, 1});
    const Vector resume = vectorOf({0, 0, 0, 0, 0, 0, 0, 0, 2});
    EXPECT_EQ(RLUTFileIO(table.get(), 0, offset.get(), count.get(), step.get(), resume.get(), 99, values.data(),
                         nullptr, 6, &moved),
              kOk);
    EXPECT_EQ(valuesOf(offset), (Extents{0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(valuesOf(count), (Extents{2, 1, 1, 3, 1, 1, 1, 1, 4}));
    EXPECT_EQ(valuesOf(resume), (Extents{0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(valuesOf(step), (Extents{1, 1, 1, 1, 1, 1, 1, 1, 1}));
    EXPECT_EQ(values.values(0)[0], 3.5);
}

TEST_F(RLUTFileIOTest, TheRectangleMayBeAnyPart) {
    offset = vectorOf({1, 0, 0, 1, 0, 0, 0, 0, 0});
    count = vectorOf({1, 1, 1, 2, 1, 1, 1, 1, 4});
    Spectra values(2, kWavelengths, 1000.0);
    EXPECT_EQ(io(0, values.data(), nullptr), kOk);
    EXPECT_EQ(moved, 2);
    EXPECT_EQ(values.values(0), (std::vector<double>{19.5, 1100.0, 1200.0, 1300.0}));
    EXPECT_EQ(values.values(1), (std::vector<double>{1001.0, 23.5, 1201.0, 1301.0}));
}

TEST_F(RLUTFileIOTest, MovesAsManySpectraAsTheLimitsAllow) {
    const Vector resume = vectorOf({0, 0, 0, 0, 0, 0, 0, 0, 0});
    const struct {
        bool isResumed;
        int most;
        int limit;
        int expected;
    } cases[] = {{false, 6, 0, 6}, {false, 7, 2, 6}, {false, 5, -1, 5}, {false, 1, 9, 1},
                 {true, 6, 6, 6},  {true, 6, 7, 6},  {true, 6, 5, 5},   {true, 4, 5, 4},
                 {true, 4, 4, 4},  {true, 4, 1, 1},  {true, 99, 99, 6}};
    for (const auto& c : cases) {
        const std::string what = std::to_string(c.most) + " " + std::to_string(c.limit);
        Spectra first(kSpectra, kWavelengths, 1000.0);
        Spectra second(kSpectra, kWavelengths, 5000.0);
        host().forget();
        const int result = c.isResumed ? resumed(0, resume, c.limit, first, second, c.most)
                                       : RLUTFileIO(table.get(), 0, offset.get(), count.get(), nullptr, nullptr,
                                                    c.limit, first.data(), second.data(), c.most, &moved);
        EXPECT_EQ(result, kOk) << what;
        EXPECT_EQ(moved, c.expected) << what;
        // The position is the number of elements that the host may move, where it resumes.
        const std::string position = c.isResumed ? std::to_string(c.expected * 4) : "0";
        const std::string arguments = host().argumentsOf("IDBMultiArrayIO");
        const std::string end = ", " + position + ", pointer, " + std::to_string(c.expected * 32);
        ASSERT_GT(arguments.size(), end.size());
        EXPECT_EQ(arguments.substr(arguments.size() - end.size()), end) << what;
        for (int s = 0; s < 4; ++s) {
            const auto at = static_cast<std::size_t>(s);
            EXPECT_EQ(first.values(at)[at], s < c.expected ? s * 4 + 3.5 : 1000.0 + s + 100.0 * s) << what << " " << s;
        }
    }
}

TEST_F(RLUTFileIOTest, WithoutSpectraToMoveItFails) {
    const Vector resume = vectorOf({0, 0, 0, 0, 0, 0, 0, 0, 5});
    Spectra first(kSpectra, kWavelengths, 1000.0);
    Spectra second(kSpectra, kWavelengths, 5000.0);
    for (const int none : {0, -1, std::numeric_limits<int>::min()}) {
        EXPECT_EQ(io(0, first.data(), nullptr, none), kFailed) << none;
        EXPECT_EQ(resumed(1, resume, none, first, second), kFailed) << none;
    }
    EXPECT_EQ(resume->panValues[8], 0) << "by then the vectors have been set";
    for (const std::int64_t none : {0, -3}) {
        count = vectorOf({2, 1, 1, none, 1, 1, 1, 1, 1});
        offset->panValues[8] = 2;
        EXPECT_EQ(io(0, first.data(), nullptr), kFailed) << none;
        EXPECT_EQ(count->panValues[8], 4);
        EXPECT_EQ(offset->panValues[8], 0);
    }
    EXPECT_EQ(moved, -77);
    EXPECT_EQ(host().count("IDBMultiArrayIO"), 0);
}

TEST_F(RLUTFileIOTest, SpectraAreCountedIn64Bits) {
    const std::int64_t half = 65536;
    count = vectorOf({half, 1, 1, half, 1, 1, 1, 1, 4});
    Spectra values(kSpectra, kWavelengths, 1000.0);
    host().failCall("IMP_Protect");  // the host refuses the rectangle, which is not what is tested here
    EXPECT_EQ(io(0, values.data(), nullptr, 2), kOk);
    EXPECT_EQ(moved, 2);
    EXPECT_EQ(host().argumentsOf("IDBMultiArrayIO"),
              "tables.ks, 0, 7, [2 1 1 3 1 1 1 1 4], 8, [0 0 0 0 0 0 0 0 0], [65536 1 1 65536 1 1 1 1 4], null, null, "
              "0, pointer, 64");
    const std::int64_t huge = std::int64_t{1} << 32;
    count = vectorOf({huge, huge, huge, 3, 1, 1, 1, 1, 4});
    moved = -77;
    EXPECT_EQ(io(0, values.data(), nullptr, 2), kFailed) << "no 64 bits hold that product";
    EXPECT_EQ(moved, -77);
}

TEST_F(RLUTFileIOTest, StepsReachTheHost) {
    count = vectorOf({2, 1, 1, 2, 1, 1, 1, 1, 4});
    const Vector step = vectorOf({1, 1, 1, 2, 1, 1, 1, 1, 1});
    Spectra values(4, kWavelengths, 1000.0);
    EXPECT_EQ(RLUTFileIO(table.get(), 0, offset.get(), count.get(), step.get(), nullptr, 1, values.data(), nullptr, 6,
                         &moved),
              kOk);
    EXPECT_EQ(moved, 4);
    const double expected[] = {3.5, 11.5, 15.5, 23.5};
    for (std::size_t s = 0; s < 4; ++s) EXPECT_EQ(values.values(s)[s], expected[s]);
    EXPECT_EQ(host().argumentsOf("IDBMultiArrayIO"),
              "tables.ks, 0, 7, [2 1 1 3 1 1 1 1 4], 8, [0 0 0 0 0 0 0 0 0], [2 1 1 2 1 1 1 1 4], "
              "[1 1 1 2 1 1 1 1 1], null, 0, pointer, 128");
}

TEST_F(RLUTFileIOTest, ALargeTableMovesInParts) {
    for (int part = 0; part < 3; ++part) {
        const int done = 2 * part;
        const Vector resume = vectorOf({done / 3, 0, 0, done % 3, 0, 0, 0, 0, 0});
        Spectra first(2, kWavelengths, 10.0 * part);
        Spectra second(2, kWavelengths, -10.0 * part);
        ASSERT_EQ(resumed(1, resume, 2, first, second), kOk);
        EXPECT_EQ(moved, 2);
    }
    const float expected[] = {0.0F, 101.0F, 10.0F, 111.0F, 20.0F, 121.0F};
    const std::vector<RLUTEntry> written = entries();
    for (std::size_t i = 0; i < 24; ++i) EXPECT_EQ(written[i].fFirst, expected[i / 4]) << i;
    Spectra first(2, kWavelengths, 1000.0);
    Spectra second(2, kWavelengths, 1000.0);
    ASSERT_EQ(resumed(0, vectorOf({1, 0, 0, 1, 0, 0, 0, 0, 0}), 2, first, second), kOk);
    EXPECT_EQ(first.values(0)[0], 20.0);
    EXPECT_EQ(first.values(1)[1], 121.0);
}

TEST_F(RLUTFileIOTest, WhatTheHostDoesNotDeliverReadsAsZero) {
    Spectra first(kSpectra, kWavelengths, 1000.0);
    Spectra second(kSpectra, kWavelengths, 5000.0);
    ASSERT_EQ(resumed(0, vectorOf({1, 0, 0, 2, 0, 0, 0, 0, 0}), 3, first, second), kOk);
    EXPECT_EQ(moved, 3) << "one was left in the rectangle";
    EXPECT_EQ(first.values(0)[0], 23.5);
    EXPECT_EQ(first.values(1)[1], 0.0);
    EXPECT_EQ(second.values(2)[2], 0.0);
    host().failCall("IMP_Protect");
    host().failCall("IDBMultiArrayIO");
    ASSERT_EQ(io(0, first.data(), second.data()), kOk);
    EXPECT_EQ(first.values(0)[0], 0.0);
    EXPECT_EQ(second.values(3)[3], 0.0);
}

TEST_F(RLUTFileIOTest, TheNumberNeedNotBeWanted) {
    Spectra values(kSpectra, kWavelengths, 1000.0);
    EXPECT_EQ(
        RLUTFileIO(table.get(), 0, offset.get(), count.get(), nullptr, nullptr, 0, values.data(), nullptr, 6, nullptr),
        kOk);
    EXPECT_EQ(values.values(0).at(0), 3.5);
}

TEST_F(RLUTFileIOTest, NeedsARadianceTableInAValidPlace) {
    Spectra values(kSpectra, kWavelengths, 1000.0);
    const auto refuses = [&](KSLUT* of) {
        return RLUTFileIO(of, 0, offset.get(), count.get(), nullptr, nullptr, 0, values.data(), nullptr, 6, &moved) ==
               kFailed;
    };
    count->panValues[8] = 1;
    EXPECT_TRUE(refuses(nullptr));
    EXPECT_TRUE(refuses(radianceTable({2, 1, 1, 3, 1, 1, 1, 1, 4}).get())) << "no file";
    ASSERT_EQ(KSLUTSetElementSize(table.get(), 4), kOk);
    EXPECT_TRUE(refuses(table.get())) << "element size";
    ASSERT_EQ(KSLUTSetElementSize(table.get(), 8), kOk);
    ASSERT_EQ(KSLUTSetLabel(table.get(), 0, "Altitude"), kOk);
    EXPECT_TRUE(refuses(table.get())) << "label";
    ASSERT_EQ(KSLUTSetLabel(table.get(), 0, gaszRLUTLabels[0]), kOk);
    stored().segments[kSegment].type = 116;
    EXPECT_TRUE(refuses(table.get())) << "segment";
    stored().segments[kSegment].type = kTableSegment;
    stored().type = 60;
    EXPECT_TRUE(refuses(table.get())) << "file type";
    stored().type = 3;
    EXPECT_EQ(moved, -77);
    EXPECT_EQ(count->panValues[8], 1) << "the vectors are left alone";
    EXPECT_EQ(host().count("IMP_Protect"), 0);
    EXPECT_FALSE(refuses(table.get()));
}

TEST_F(RLUTFileIOTest, NeedsVectorsOfNineValues) {
    const Vector nine = vectorOf({0, 0, 0, 0, 0, 0, 0, 0, 0});
    const Vector eight = vectorOf({1, 1, 1, 1, 1, 1, 1, 1});
    const Vector ten = vectorOf({1, 1, 1, 1, 1, 1, 1, 1, 1, 1});
    KSLUTVector withoutValues{9, nullptr};
    Spectra values(kSpectra, kWavelengths, 1000.0);
    const auto refuses = [&](KSLUTVector* first, KSLUTVector* number, KSLUTVector* step, KSLUTVector* resume) {
        return RLUTFileIO(table.get(), 0, first, number, step, resume, 6, values.data(), nullptr, 6, &moved) == kFailed;
    };
    EXPECT_TRUE(refuses(nullptr, count.get(), nullptr, nullptr));
    EXPECT_TRUE(refuses(offset.get(), nullptr, nullptr, nullptr));
    for (KSLUTVector* bad : {eight.get(), ten.get(), &withoutValues}) {
        EXPECT_TRUE(refuses(bad, count.get(), nullptr, nullptr));
        EXPECT_TRUE(refuses(offset.get(), bad, nullptr, nullptr));
        EXPECT_TRUE(refuses(offset.get(), count.get(), bad, nullptr));
        EXPECT_TRUE(refuses(offset.get(), count.get(), nullptr, bad));
    }
    EXPECT_EQ(moved, -77);
    EXPECT_EQ(host().count("IMP_Protect"), 0);
    EXPECT_FALSE(refuses(offset.get(), count.get(), nullptr, nine.get()));
}

TEST_F(RLUTFileIOTest, WritingNeedsBothArraysAndReadingOne) {
    Spectra values(kSpectra, kWavelengths, 1000.0);
    count->panValues[8] = 1;
    const std::vector<unsigned char> before = bytes();
    EXPECT_EQ(io(1, values.data(), nullptr), kFailed);
    EXPECT_EQ(io(1, nullptr, values.data()), kFailed);
    EXPECT_EQ(io(1, nullptr, nullptr), kFailed);
    EXPECT_EQ(io(0, nullptr, nullptr), kFailed);
    EXPECT_EQ(moved, -77);
    EXPECT_EQ(count->panValues[8], 1) << "the vectors are left alone";
    EXPECT_EQ(bytes(), before);
    EXPECT_EQ(host().count("IMP_Protect"), 0);
}

TEST_F(RLUTFileIOTest, TheFirstSpectrumTellsTheNumberOfValues) {
    for (const int number : {kWavelengths - 1, kWavelengths + 1, 0}) {
        Spectra good(kSpectra, kWavelengths, 1000.0);
        Spectra bad(kSpectra, kWavelengths, 5000.0);
        bad[0].nNumMeasVals = number;
        for (const int mode : {0, 1}) {
            EXPECT_EQ(io(mode, good.data(), bad.data()), kFailed) << mode << " " << number;
            EXPECT_EQ(io(mode, bad.data(), good.data()), kFailed) << mode << " " << number;
        }
        EXPECT_EQ(io(0, bad.data(), nullptr), kFailed) << number;
        EXPECT_EQ(io(0, nullptr, bad.data()), kFailed) << number;
        bad[0].nNumMeasVals = kWavelengths;
        bad[1].nNumMeasVals = number;
        EXPECT_EQ(io(0, good.data(), bad.data()), kOk) << "the others are not asked";
    }
}

TEST_F(RLUTFileIOTest, AnyOtherModeWritesWithoutLookingAtTheNumberOfValues) {
    for (const int mode : {2, -1, std::numeric_limits<int>::max()}) {
        Spectra first(kSpectra, kWavelengths, 1000.0 + mode % 7);
        Spectra second(kSpectra, kWavelengths, 5000.0);
        first[0].nNumMeasVals = 1;
        second[0].nNumMeasVals = 99;
        host().forget();
        EXPECT_EQ(io(mode, first.data(), second.data()), kOk) << mode;
        EXPECT_EQ(moved, 6);
        EXPECT_EQ(host().argumentsOf("IDBMultiArrayIO").substr(0, 16), "tables.ks, 1, 7,") << mode;
        EXPECT_EQ(entries()[7].fFirst, static_cast<float>(first.values(1)[1])) << mode;
        EXPECT_EQ(entries()[7].fSecond, 5101.0F) << mode;
        host().forget();
        EXPECT_EQ(io(mode, first.data(), nullptr), kFailed) << mode;
        EXPECT_EQ(io(mode, nullptr, second.data()), kFailed) << mode;
        EXPECT_EQ(io(mode, nullptr, nullptr), kFailed) << mode;
        EXPECT_EQ(host().count("IDBMultiArrayIO"), 0) << mode;
    }
}

TEST_F(RLUTFileIOTest, FailsWhenTheHostAbandonsIt) {
    const std::vector<unsigned char> before = bytes();
    for (const int mode : {0, 1}) {
        Spectra first(kSpectra, kWavelengths, 1000.0);
        Spectra second(kSpectra, kWavelengths, 5000.0);
        const auto firstBefore = first.all();
        host().forget();
        host().jumpFromCall("IDBMultiArrayIO");
        EXPECT_EQ(io(mode, first.data(), second.data()), kFailed) << mode;
        EXPECT_EQ(moved, -77) << mode;
        EXPECT_EQ(first.all(), firstBefore) << mode;
        EXPECT_EQ(host().count("IMPUnprotect"), 0) << mode;
        EXPECT_EQ(host().armedTraps(), 0) << mode;
    }
    EXPECT_EQ(bytes(), before);
}

TEST_F(RLUTFileIOTest, MovesNothingWithoutMemory) {
    const std::vector<unsigned char> before = bytes();
    for (const int mode : {0, 1}) {
        for (int nth = 1;; ++nth) {
            Spectra first(kSpectra, kWavelengths, 1000.0);
            Spectra second(kSpectra, kWavelengths, 5000.0);
            const auto firstBefore = first.all();
            moved = -77;
            refuseAllocation(nth);
            const int result = io(mode, first.data(), second.data());
            if (!allocationRefused()) {
                EXPECT_EQ(result, kOk);
                EXPECT_GE(nth, 3) << "a buffer and its entries";
                break;
            }
            ASSERT_EQ(result, kFailed) << mode << " " << nth;
            EXPECT_EQ(moved, -77) << mode << " " << nth;
            EXPECT_EQ(first.all(), firstBefore) << mode << " " << nth;
            EXPECT_EQ(bytes(), before) << mode << " " << nth;
        }
    }
}

}  // namespace
