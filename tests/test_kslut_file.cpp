// Look-up tables in a file: their place, their shape in the segment's metadata, and transfers of elements, with what
// becomes of a call that the host abandons.
#include <kslib/kslut.h>
#include <kslib/kslutvec.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <numeric>
#include <set>
#include <string>
#include <vector>

#include "locale.hpp"
#include "tables.hpp"

using namespace kit;

namespace {

constexpr int kSegment = 7;

/// Tables never report, whatever goes wrong.
struct FileTest : TableFileTest {
    void TearDown() override {
        EXPECT_EQ(host().reports, Reports{});
        TableFileTest::TearDown();
    }
    /// What a call that did not even ask for a trap leaves behind.
    static void expectUntrapped() {
        EXPECT_EQ(host().callsOf({"IMP_Protect", "IMPProtectBuffer", "IMPUnprotect"}), Names{});
        host().forget();
    }
    /// What a call that the host abandoned leaves behind: the host itself took the trap down.
    static void expectAbandoned(const std::string& what) {
        EXPECT_EQ(host().count("IMP_Protect"), 1) << what;
        EXPECT_EQ(host().count("IMPUnprotect"), 0) << what;
        EXPECT_EQ(host().armedTraps(), 0) << what;
        EXPECT_EQ(host().liveLists(), 0) << what;
    }
    /// What a call leaves behind for which no trap was to be had.
    static void expectUnprotected() {
        EXPECT_EQ(host().callsOf({"IMP_Protect", "IMPProtectBuffer", "IMPUnprotect"}), (Names{"IMP_Protect()"}));
        EXPECT_EQ(host().liveLists(), 0);
    }
};

/// A table of 2 and 3 indices, the second dimension with a label.
Table sample() {
    Table table = tableOf({2, 3}, 8);
    EXPECT_EQ(KSLUTSetLabel(table.get(), 1, "Wavelength"), kOk);
    setCoords(table, 0, {0.5F, -1.25F});
    setCoords(table, 1, {400.0F, 500.0F, 1e-3F});
    return table;
}

std::vector<std::pair<std::string, std::string>> sampleEntries() {
    return {{"KSLUTDimensions", "2"},
            {"KSLUTElementSize", "8"},
            {"KSLUTSize_0", "2"},
            {"KSLUTSize_1", "3"},
            {"KSLUTLabel_1", "Wavelength"},
            {"KSLUTCoords_0", "0.50000,-1.25000"},
            {"KSLUTCoords_1", "400.00000,500.00000,0.00100"}};
}

Names asList(const std::vector<std::pair<std::string, std::string>>& entries) {
    Names list;
    for (const auto& entry : entries) list.push_back(entry.first + "=" + entry.second);
    return list;
}

// ---- where a table is ----

using KSLUTFileInfoTest = FileTest;

TEST_F(KSLUTFileInfoTest, TakesAReferenceOfItsOwn) {
    addSegment(kSegment);
    Table table = tableOf({2});
    EXPECT_EQ(KSLUTSetFileInfo(table.get(), file, kSegment), kOk);
    EXPECT_EQ(host().callsOf({"fpValidate", "fp2type", "IDBSegInfoIO", "fpReference", "GDBClose"}),
              (Names{"fpValidate(tables.ks)", "fp2type(tables.ks)", "IDBSegInfoIO(tables.ks, 7, 0)",
                     "fpReference(tables.ks)"}));
    EXPECT_EQ(table->fp, file);
    EXPECT_EQ(table->nSegment, kSegment);
    EXPECT_EQ(file->references, 2);
    table.reset();
    EXPECT_EQ(file->references, 1);
    EXPECT_EQ(host().argumentsOf("GDBClose"), "tables.ks");
}

TEST_F(KSLUTFileInfoTest, NoFileIsAPlaceToo) {
    const Table table = tableOf({2});
    EXPECT_EQ(KSLUTSetFileInfo(table.get(), nullptr, 5), kOk);
    EXPECT_EQ(table->fp, nullptr);
    EXPECT_EQ(table->nSegment, 5);
    EXPECT_EQ(host().argumentsOf("fpReference"), "null");
    EXPECT_EQ(host().callsOf({"fpValidate", "fp2type", "IDBSegInfoIO", "GDBClose"}), Names{});
}

TEST_F(KSLUTFileInfoTest, NoFileGivesTheOldOneBack) {
    const Table table = tableOf({2});
    place(table, kSegment);
    EXPECT_EQ(KSLUTSetFileInfo(table.get(), nullptr, 0), kOk);
    EXPECT_EQ(table->fp, nullptr);
    EXPECT_EQ(table->nSegment, 0);
    EXPECT_EQ(file->references, 1);
}

TEST_F(KSLUTFileInfoTest, AnUnusablePlaceLeavesNone) {
    addSegment(kSegment);
    addSegment(8, 0, 116);
    host().addFile("memory.ks", 0, 0, {}).type = 60;
    host().file("memory.ks").segments[kSegment].type = kTableSegment;
    HostFile* memory = host().open("memory.ks", true);
    HostFile* dead = host().open("tables.ks", true);
    GDBClose(dead);
    addSegment(10).status = 'E';
    const struct {
        HostFile* fp;
        int segment;
        const char* what;
    } places[] = {{dead, kSegment, "closed"},
                  {memory, kSegment, "of another type"},
                  {file, 8, "of another segment"},
                  {file, 9, "without the segment"},
                  {file, 10, "whose segment is in no state to be used"},
                  {file, -1, "without such a number"}};
    for (const auto& place : places) {
        const Table table = tableOf({2});
        table->nSegment = 3;
        EXPECT_EQ(KSLUTSetFileInfo(table.get(), place.fp, place.segment), kFailed) << place.what;
        EXPECT_EQ(table->fp, nullptr) << place.what;
        EXPECT_EQ(table->nSegment, 0) << place.what;
        EXPECT_EQ(host().count("fpReference"), 0) << place.what;
    }
    EXPECT_EQ(file->references, 1);
    GDBClose(memory);
}

TEST_F(KSLUTFileInfoTest, AnUnusablePlaceStillGivesTheOldOneBack) {
    const Table table = tableOf({2});
    place(table, kSegment);
    host().addFile("other.ks", 0, 0, {});
    HostFile* other = host().open("other.ks", true);
    EXPECT_EQ(KSLUTSetFileInfo(table.get(), other, 1), kFailed);
    EXPECT_EQ(table->fp, nullptr);
    EXPECT_EQ(table->nSegment, 0);
    EXPECT_EQ(file->references, 1);
    EXPECT_EQ(other->references, 1);
    GDBClose(other);
}

TEST_F(KSLUTFileInfoTest, AnotherFileReplacesTheOldOne) {
    const Table table = tableOf({2});
    place(table, kSegment);
    host().addFile("other.ks", 0, 0, {}).segments[1].type = kTableSegment;
    HostFile* other = host().open("other.ks", true);
    EXPECT_EQ(KSLUTSetFileInfo(table.get(), other, 1), kOk);
    EXPECT_EQ(host().callsOf({"GDBClose", "fpReference"}), (Names{"GDBClose(tables.ks)", "fpReference(other.ks)"}));
    EXPECT_EQ(table->fp, other);
    EXPECT_EQ(table->nSegment, 1);
    EXPECT_EQ(file->references, 1);
    EXPECT_EQ(other->references, 2);
    GDBClose(other);
}

TEST_F(KSLUTFileInfoTest, AnotherSegmentOfTheFileKeepsOneReference) {
    const Table table = tableOf({2});
    place(table, kSegment);
    addSegment(8);
    EXPECT_EQ(KSLUTSetFileInfo(table.get(), file, 8), kOk);
    EXPECT_EQ(table->fp, file);
    EXPECT_EQ(table->nSegment, 8);
    EXPECT_EQ(file->references, 2);
    EXPECT_EQ(KSLUTSetFileInfo(table.get(), file, 9), kFailed);
    EXPECT_EQ(table->fp, nullptr);
    EXPECT_EQ(table->nSegment, 0);
    EXPECT_EQ(file->references, 1);
}

TEST_F(KSLUTFileInfoTest, TheOldPlaceIsGivenBackBeforeTheNewOneIsTaken) {
    const Table table = tableOf({2});
    place(table, kSegment);
    addSegment(8);
    EXPECT_EQ(KSLUTSetFileInfo(table.get(), file, 8), kOk);
    EXPECT_EQ(host().callsOf({"IDBSegInfoIO", "GDBClose", "fpReference"}),
              (Names{"IDBSegInfoIO(tables.ks, 7, 0)", "GDBClose(tables.ks)", "IDBSegInfoIO(tables.ks, 8, 0)",
                     "fpReference(tables.ks)"}))
        << "the same file is no exception";
    // With its last reference the file itself is gone.
    closeFile();
    host().forget();
    EXPECT_EQ(KSLUTSetFileInfo(table.get(), table->fp, kSegment), kFailed);
    EXPECT_EQ(host().callsOf({"GDBClose", "fpReference"}), (Names{"GDBClose(tables.ks)"}));
    EXPECT_EQ(table->fp, nullptr);
    EXPECT_EQ(table->nSegment, 0);
    EXPECT_EQ(host().liveHandles(), 0);
}

TEST_F(KSLUTFileInfoTest, AnOldPlaceThatIsNoneAnyMoreIsNotGivenBack) {
    const Table table = tableOf({2});
    place(table, kSegment);
    addSegment(8);
    stored().segments.erase(kSegment);
    EXPECT_EQ(KSLUTSetFileInfo(table.get(), file, 8), kOk);
    EXPECT_EQ(host().count("GDBClose"), 0);
    EXPECT_EQ(host().count("fpReference"), 1);
    EXPECT_EQ(file->references, 3);
    GDBClose(file);  // the reference that nobody gave back
}

TEST_F(KSLUTFileInfoTest, IsToldWhereAsked) {
    const Table table = tableOf({2});
    place(table, kSegment);
    HostFile* fp = nullptr;
    int segment = 77;
    EXPECT_EQ(KSLUTGetFileInfo(table.get(), &fp, &segment), kOk);
    EXPECT_EQ(fp, file);
    EXPECT_EQ(segment, kSegment);
    fp = nullptr;
    segment = 77;
    EXPECT_EQ(KSLUTGetFileInfo(table.get(), &fp, nullptr), kOk);
    EXPECT_EQ(fp, file);
    EXPECT_EQ(KSLUTGetFileInfo(table.get(), nullptr, &segment), kOk);
    EXPECT_EQ(segment, kSegment);
    EXPECT_EQ(KSLUTGetFileInfo(table.get(), nullptr, nullptr), kOk);
    EXPECT_EQ(KSLUTGetFileInfo(nullptr, &fp, &segment), kFailed);
    EXPECT_EQ(host().count("fpReference"), 0) << "the caller gets no reference";
}

TEST_F(KSLUTFileInfoTest, NoTableHasAPlace) {
    addSegment(kSegment);
    EXPECT_EQ(KSLUTSetFileInfo(nullptr, file, kSegment), kFailed);
    EXPECT_EQ(KSLUTIsFileInfoValid(nullptr), kFailed);
    EXPECT_EQ(file->references, 1);
}

TEST_F(KSLUTFileInfoTest, IsJudgedInOrder) {
    const Table table = tableOf({2});
    const auto judged = [&table](int expected, const Names& calls) {
        host().forget();
        EXPECT_EQ(KSLUTIsFileInfoValid(table.get()), expected);
        Names actual;
        for (const Call& call : host().calls) actual.push_back(call.name + "(" + call.arguments + ")");
        EXPECT_EQ(actual, calls);
    };
    judged(kFailed, {});
    place(table, kSegment);
    judged(kOk, {"fpValidate(tables.ks)", "fp2type(tables.ks)", "IDBSegInfoIO(tables.ks, 7, 0)"});
    stored().type = 60;
    judged(kFailed, {"fpValidate(tables.ks)", "fp2type(tables.ks)"});
    stored().type = 3;
    stored().segments[kSegment].type = 181;
    judged(kFailed, {"fpValidate(tables.ks)", "fp2type(tables.ks)", "IDBSegInfoIO(tables.ks, 7, 0)"});
    addSegment(kSegment).status = 'E';
    judged(kFailed, {"fpValidate(tables.ks)", "fp2type(tables.ks)", "IDBSegInfoIO(tables.ks, 7, 0)"});
    stored().segments.erase(kSegment);
    judged(kFailed, {"fpValidate(tables.ks)", "fp2type(tables.ks)", "IDBSegInfoIO(tables.ks, 7, 0)"});
    // Any other status will do.
    addSegment(kSegment).status = 'L';
    judged(kOk, {"fpValidate(tables.ks)", "fp2type(tables.ks)", "IDBSegInfoIO(tables.ks, 7, 0)"});
    host().failCall("IDBSegInfoIO");
    judged(kFailed, {"fpValidate(tables.ks)", "fp2type(tables.ks)", "IDBSegInfoIO(tables.ks, 7, 0)"});
    HostFile* live = table->fp;
    HostFile* dead = host().open("tables.ks");
    GDBClose(dead);
    table->fp = dead;
    judged(kFailed, {"fpValidate(dead)"});
    table->fp = live;
}

TEST_F(KSLUTFileInfoTest, ACopyTakesAFurtherReference) {
    const Table table = sample();
    place(table, kSegment);
    {
        const Table copy(KSLUTCreateFrom(table.get()));
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(copy->fp, file);
        EXPECT_EQ(copy->nSegment, kSegment);
        EXPECT_EQ(file->references, 3);
    }
    EXPECT_EQ(file->references, 2);
}

TEST_F(KSLUTFileInfoTest, ATableInAnUnusablePlaceIsNotCopied) {
    const Table table = sample();
    place(table, kSegment);
    stored().segments.erase(kSegment);
    EXPECT_EQ(KSLUTCreateFrom(table.get()), nullptr);
    EXPECT_EQ(file->references, 2);
    const Table target = tableOf({9, 9});
    EXPECT_EQ(KSLUTSetFrom(table.get(), target.get()), kFailed);
    EXPECT_EQ(coordsOf(target, 0), (Coords{0.5F, -1.25F})) << "the place comes last";
    EXPECT_EQ(target->fp, nullptr);
}

TEST_F(KSLUTFileInfoTest, CopyingFromATableWithoutAFileGivesTheTargetsBack) {
    const Table source = sample();
    const Table target = tableOf({1, 1});
    place(target, kSegment);
    EXPECT_EQ(KSLUTSetFrom(source.get(), target.get()), kOk);
    EXPECT_EQ(target->fp, nullptr);
    EXPECT_EQ(file->references, 1);
}

// ---- making a segment ----

using KSLUTCreateFileSegmentTest = FileTest;

TEST_F(KSLUTCreateFileSegmentTest, HandsItsTextsAndSizeToTheHostUnderATrap) {
    addSegment(2, 0, 116);
    const Table table = tableOf({4, 5, 6}, 8);
    int segment = 77;
    testing::internal::CaptureStdout();
    EXPECT_EQ(KSLUTCreateFileSegment(table.get(), file, &segment, "Radiances", "What it is for"), kOk);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(segment, 3);
    EXPECT_EQ(callsFromTrap(), guarded({"IDBSegCreate(tables.ks, Radiances, What it is for, 180, 4)"}));
    EXPECT_EQ(stored().segments.at(3).type, kTableSegment);
    EXPECT_EQ(stored().segments.at(3).bytes.size(), 4U * 512U);
    EXPECT_EQ(table->fp, nullptr) << "the place is the caller's to set";
    EXPECT_EQ(table->nSegment, 0);
    EXPECT_EQ(file->references, 1);
}

TEST_F(KSLUTCreateFileSegmentTest, TheNumberNeedNotBeWanted) {
    EXPECT_EQ(KSLUTCreateFileSegment(tableOf({4}).get(), file, nullptr, "a", "b"), kOk);
    EXPECT_EQ(stored().segments.count(1), 1U);
}

TEST_F(KSLUTCreateFileSegmentTest, ChecksTableAndFileBeforeTheSize) {
    const Table valid = tableOf({4});
    const Table invalid = tableOf({0});
    host().addFile("memory.ks", 0, 0, {}).type = 60;
    HostFile* memory = host().open("memory.ks", true);
    HostFile* dead = host().open("tables.ks", true);
    GDBClose(dead);
    host().forget();
    int segment = 77;
    testing::internal::CaptureStdout();
    EXPECT_EQ(KSLUTCreateFileSegment(nullptr, file, &segment, "a", "b"), kFailed);
    EXPECT_EQ(KSLUTCreateFileSegment(nullptr, nullptr, &segment, "a", "b"), kFailed);
    EXPECT_EQ(KSLUTCreateFileSegment(valid.get(), nullptr, &segment, "a", "b"), kFailed);
    EXPECT_EQ(KSLUTCreateFileSegment(invalid.get(), nullptr, &segment, "a", "b"), kFailed);
    EXPECT_EQ(host().calls.size(), 0U);
    for (const Table* table : {&valid, &invalid}) {
        host().forget();
        EXPECT_EQ(KSLUTCreateFileSegment(table->get(), dead, &segment, "a", "b"), kFailed);
        EXPECT_EQ(host().callNames(), (Names{"fpValidate"}));
        host().forget();
        EXPECT_EQ(KSLUTCreateFileSegment(table->get(), memory, &segment, "a", "b"), kFailed);
        EXPECT_EQ(host().callNames(), (Names{"fpValidate", "fp2type"}));
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(segment, 77);
    GDBClose(memory);
}

TEST_F(KSLUTCreateFileSegmentTest, ATableWithoutElementsIsSaidOnStandardOutput) {
    int segment = 77;
    testing::internal::CaptureStdout();
    EXPECT_EQ(KSLUTCreateFileSegment(tableOf({4, 0}).get(), file, &segment, "a", "b"), kFailed);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "KSLUTGetBlockSize() failed\n");
    EXPECT_EQ(segment, 77);
    EXPECT_EQ(host().count("IDBSegCreate"), 0);
    expectUntrapped();
}

TEST_F(KSLUTCreateFileSegmentTest, FailsWhenTheHostAbandonsIt) {
    int segment = 77;
    host().jumpFromCall("IDBSegCreate");
    EXPECT_EQ(KSLUTCreateFileSegment(tableOf({4}).get(), file, &segment, "a", "b"), kFailed);
    EXPECT_EQ(segment, 77);
    expectAbandoned("IDBSegCreate");
}

TEST_F(KSLUTCreateFileSegmentTest, GoesOnWhenThereIsNoTrap) {
    int segment = 77;
    host().failCall("IMP_Protect");
    EXPECT_EQ(KSLUTCreateFileSegment(tableOf({4}).get(), file, &segment, "a", "b"), kOk);
    EXPECT_EQ(segment, 1);
    expectUnprotected();
}

TEST_F(KSLUTCreateFileSegmentTest, DoesNotJudgeTheNumber) {
    int segment = 77;
    host().failCall("IMP_Protect");
    host().failCall("IDBSegCreate");
    EXPECT_EQ(KSLUTCreateFileSegment(tableOf({4}).get(), file, &segment, "a", "b"), kOk);
    EXPECT_EQ(segment, 0);
}

// ---- writing the shape ----

struct KSLUTSetAttributesTest : FileTest {
    /// The stored text of one dimension's coordinates.
    std::string storedCoords(const Coords& coords) const {
        const Table table = tableOf({static_cast<int>(coords.size())});
        setCoords(table, 0, coords);
        place(table, kSegment);
        EXPECT_EQ(KSLUTSetAttributes(table.get()), kOk);
        return entry(kSegment, "KSLUTCoords_0");
    }
    /// The same by the C library's own formatting.
    static std::string formatted(const Coords& coords) {
        std::string text;
        for (const float coord : coords) {
            char number[400];
            std::snprintf(number, sizeof number, "%.*f", 5, static_cast<double>(coord));
            text += (text.empty() ? "" : ",") + std::string(number);
        }
        return text;
    }
};

TEST_F(KSLUTSetAttributesTest, StoresEntriesInOrderUnderATrap) {
    const Table table = sample();
    place(table, kSegment);
    EXPECT_EQ(KSLUTSetAttributes(table.get()), kOk);
    EXPECT_EQ(entries(kSegment), asList(sampleEntries()));
    Names calls = callsFromTrap();
    Names numbers;
    for (auto call = calls.begin(); call != calls.end();) {
        if (call->rfind("MkName(", 0) == 0) {
            numbers.push_back(*call);
            call = calls.erase(call);
        } else {
            ++call;
        }
    }
    EXPECT_EQ(numbers, (Names{"MkName(2)", "MkName(8)", "MkName(2)", "MkName(3)"}));
    EXPECT_EQ(calls, guarded({"GDBMetaDataIO(tables.ks, 0, 180, 7, null)", "SetAuxEntry(null, KSLUTDimensions, 2)",
                              "SetAuxEntry(list, KSLUTElementSize, 8)", "SetAuxEntry(list, KSLUTSize_0, 2)",
                              "SetAuxEntry(list, KSLUTSize_1, 3)", "SetAuxEntry(list, KSLUTLabel_1, Wavelength)",
                              "SetAuxEntry(list, KSLUTCoords_0, 0.50000,-1.25000)",
                              "SetAuxEntry(list, KSLUTCoords_1, 400.00000,500.00000,0.00100)",
                              "GDBMetaDataIO(tables.ks, 1, 180, 7, list)", "DestroyStringList(list)"}));
}

TEST_F(KSLUTSetAttributesTest, AsksForAPatternThatKeepsItsOwnKeys) {
    const Table table = sample();
    place(table, kSegment);
    setEntries(kSegment, {{"Note", "x"}, {"KSLUTSize_5", "50"}, {"KSLUTDimensions", "9"}, {"MD_KSLUT", "y"}});
    EXPECT_EQ(KSLUTSetAttributes(table.get()), kOk);
    EXPECT_EQ(host().argumentsOf("DeleteAuxEntries"), "list, MD_KSLUT_*, 0, 1");
    Names order = host().callsOf({"GDBMetaDataIO", "DeleteAuxEntries", "SetAuxEntry"});
    order.resize(3);
    EXPECT_EQ(order, (Names{"GDBMetaDataIO(tables.ks, 0, 180, 7, null)", "DeleteAuxEntries(list, MD_KSLUT_*, 0, 1)",
                            "SetAuxEntry(list, KSLUTDimensions, 2)"}));
    EXPECT_EQ(entry(kSegment, "Note"), "x");
    EXPECT_EQ(entry(kSegment, "MD_KSLUT"), "y");
    EXPECT_EQ(entry(kSegment, "KSLUTSize_5"), "50");
    EXPECT_EQ(entry(kSegment, "KSLUTDimensions"), "2");
}

TEST_F(KSLUTSetAttributesTest, TwiceKeepsOneEntryPerKey) {
    const Table table = sample();
    place(table, kSegment);
    EXPECT_EQ(KSLUTSetAttributes(table.get()), kOk);
    setCoords(table, 0, {3.0F, 4.0F});
    EXPECT_EQ(KSLUTSetAttributes(table.get()), kOk);
    auto expected = sampleEntries();
    expected[5].second = "3.00000,4.00000";
    EXPECT_EQ(entries(kSegment), asList(expected));
}

TEST_F(KSLUTSetAttributesTest, KeysOfALargerTableStay) {
    const Table table = tableOf({1, 2, 3, 4, 5, 6, 7, 8, 9});
    place(table, kSegment);
    ASSERT_EQ(KSLUTSetAttributes(table.get()), kOk);
    ASSERT_EQ(KSLUTSetDimensions(table.get(), 3), kOk);
    const Sizes sizes = {4, 5, 6};
    ASSERT_EQ(KSLUTSetSizes(table.get(), sizes.data()), kOk);
    EXPECT_EQ(KSLUTSetAttributes(table.get()), kOk);
    EXPECT_EQ(entry(kSegment, "KSLUTDimensions"), "3");
    const char* const expected[] = {"4", "5", "6", "4", "5", "6", "7", "8", "9"};
    for (int d = 0; d < 9; ++d) {
        EXPECT_EQ(entry(kSegment, "KSLUTSize_" + std::to_string(d)), expected[d]);
        EXPECT_NE(entry(kSegment, "KSLUTCoords_" + std::to_string(d)), "(absent)");
    }
    EXPECT_EQ(entry(kSegment, "KSLUTSize_9"), "(absent)");
    EXPECT_EQ(entry(kSegment, "KSLUTSize"), "(absent)");
}

TEST_F(KSLUTSetAttributesTest, WritesOnlyTheLabelsAndCoordinatesThatThereAre) {
    const Table table = tableOf({2, 3});
    std::free(table->papafCoords[0]);
    table->papafCoords[0] = nullptr;
    place(table, kSegment);
    EXPECT_EQ(KSLUTSetAttributes(table.get()), kOk);
    EXPECT_EQ(entries(kSegment), (Names{"KSLUTDimensions=2", "KSLUTElementSize=8", "KSLUTSize_0=2", "KSLUTSize_1=3",
                                        "KSLUTCoords_1=0.00000,0.00000,0.00000"}));
}

TEST_F(KSLUTSetAttributesTest, CoordinatesHaveFiveDecimals) {
    EXPECT_EQ(storedCoords({1.0F}), "1.00000");
    const Coords values = {0.0F,        -0.0F,         0.000004F, 0.000006F, -0.000004F, 0.015625F,
                           123456.789F, 0.1F,          2.5e-5F,   1e10F,     99999.997F, 0.5F,
                           -7.0F,       3.4028235e38F, -3.4e38F,  1e-38F,    16777216.0F};
    EXPECT_EQ(storedCoords(values), formatted(values));
    const float infinite = std::numeric_limits<float>::infinity();
    const Coords odd = {infinite, -infinite, std::numeric_limits<float>::quiet_NaN()};
    EXPECT_EQ(storedCoords(odd), formatted(odd));
}

TEST_F(KSLUTSetAttributesTest, AnyNumberOfCoordinatesIsWritten) {
    Coords values(5000);
    std::iota(values.begin(), values.end(), -2500.5F);
    EXPECT_EQ(storedCoords(values), formatted(values));
    EXPECT_EQ(storedCoords(Coords(300, -3.4028235e38F)), formatted(Coords(300, -3.4028235e38F)));
}

#ifdef KSLIB_TEST_LOCALES
TEST_F(KSLUTSetAttributesTest, DoesNotDependOnTheLocale) {
    ASSERT_TRUE(useDecimalComma(KSLIB_TEST_LOCALES));
    const std::string text = storedCoords({0.5F, 1234.25F});
    std::setlocale(LC_NUMERIC, "C");
    EXPECT_EQ(text, "0.50000,1234.25000");
}
#endif

TEST_F(KSLUTSetAttributesTest, NeedsAValidTableInAValidPlace) {
    const Table table = sample();
    EXPECT_EQ(KSLUTSetAttributes(nullptr), kFailed);
    EXPECT_EQ(KSLUTSetAttributes(table.get()), kFailed) << "no file";
    place(table, kSegment);
    ASSERT_EQ(KSLUTSetSize(table.get(), 1, 0), kOk);
    EXPECT_EQ(KSLUTSetAttributes(table.get()), kFailed) << "no indices";
    ASSERT_EQ(KSLUTSetSize(table.get(), 1, 3), kOk);
    stored().segments.erase(kSegment);
    EXPECT_EQ(KSLUTSetAttributes(table.get()), kFailed) << "no segment";
    expectUntrapped();
    EXPECT_EQ(entries(kSegment), Names{});
}

TEST_F(KSLUTSetAttributesTest, FailsWhereverTheHostAbandonsIt) {
    const auto fresh = [this] {
        Table table = sample();
        place(table, kSegment);
        stored().lists.clear();
        setEntry(kSegment, "Note", "x");
        return table;
    };
    const Names before = {"Note=x"};
    for (const std::string name : {"GDBMetaDataIO", "DeleteAuxEntries", "MkName", "SetAuxEntry", "DestroyStringList"}) {
        ASSERT_EQ(KSLUTSetAttributes(fresh().get()), kOk);
        const int calls = host().count(name);
        EXPECT_GE(calls, 1) << name;
        for (int nth = 1; nth <= calls; ++nth) {
            const std::string what = name + " " + std::to_string(nth);
            const Table table = fresh();
            host().jumpFromCall(name, nth);
            EXPECT_EQ(KSLUTSetAttributes(table.get()), kFailed) << what;
            expectAbandoned(what);
            if (name != "DestroyStringList") {
                EXPECT_EQ(entries(kSegment), before) << what;
            }
        }
    }
}

TEST_F(KSLUTSetAttributesTest, GoesOnWhenThereIsNoTrap) {
    const Table table = sample();
    place(table, kSegment);
    host().failCall("IMP_Protect");
    EXPECT_EQ(KSLUTSetAttributes(table.get()), kOk);
    EXPECT_EQ(entries(kSegment), asList(sampleEntries()));
    expectUnprotected();
}

TEST_F(KSLUTSetAttributesTest, WritesNothingWithoutMemory) {
    const Table table = sample();
    place(table, kSegment);
    for (int nth = 1;; ++nth) {
        refuseAllocation(nth);
        const int result = KSLUTSetAttributes(table.get());
        if (!allocationRefused()) {
            EXPECT_EQ(result, kOk);
            return;
        }
        ASSERT_EQ(result, kFailed) << nth;
        EXPECT_EQ(entries(kSegment), Names{}) << nth;
    }
}

// ---- reading the shape ----

struct KSLUTGetAttributesTest : FileTest {
    Table table;

    void SetUp() override {
        FileTest::SetUp();
        addSegment(kSegment);
        use(2);
    }
    void TearDown() override {
        table.reset();
        FileTest::TearDown();
    }
    /// A table without a shape in the segment.
    void use(int dimensions) {
        table.reset(KSLUTCreate(dimensions));
        ASSERT_EQ(KSLUTSetFileInfo(table.get(), file, kSegment), kOk);
        host().forget();
    }
    /// Reads the shape of the sample with one entry changed, or removed where there is no value.
    int readWith(const std::string& key, const char* value) {
        stored().lists.clear();
        for (const auto& entry : sampleEntries()) {
            if (entry.first != key) setEntry(kSegment, entry.first, entry.second);
        }
        if (value != nullptr) setEntry(kSegment, key, value);
        use(2);
        const int result = KSLUTGetAttributes(table.get());
        EXPECT_EQ(host().liveLists(), 0) << key;
        EXPECT_EQ(host().armedTraps(), 0) << key;
        EXPECT_EQ(host().count("IMPUnprotect"), 1) << key;
        return result;
    }
    void expectSample() const {
        ASSERT_EQ(table->nDimensions, 2);
        EXPECT_EQ(table->nElementSize, 8);
        EXPECT_EQ(sizesOf(table), (Sizes{2, 3}));
        EXPECT_EQ(labelOf(table, 0), "(none)");
        EXPECT_EQ(labelOf(table, 1), "Wavelength");
        EXPECT_EQ(coordsOf(table, 0), (Coords{0.5F, -1.25F}));
        EXPECT_EQ(coordsOf(table, 1), (Coords{400.0F, 500.0F, 1e-3F}));
    }
};

TEST_F(KSLUTGetAttributesTest, ReadsWhatIsStored) {
    setEntries(kSegment, sampleEntries());
    for (const int dimensions : {1, 2, 9}) {
        use(dimensions);
        EXPECT_EQ(KSLUTIsValid(table.get()), kFailed) << "need not be a table yet";
        EXPECT_EQ(KSLUTGetAttributes(table.get()), kOk);
        expectSample();
    }
}

TEST_F(KSLUTGetAttributesTest, ReadsWhatATableWrote) {
    const Table writer = tableOf({1, 4, 2}, 12);
    const char* const labels[] = {"", "a label = \"odd\", with text", nullptr};
    ASSERT_EQ(KSLUTSetLabels(writer.get(), labels), kOk);
    setCoords(writer, 0, {-1.5F});
    setCoords(writer, 1, {0.0F, 0.25F, 1e20F, 7.0F});
    place(writer, kSegment);
    ASSERT_EQ(KSLUTSetAttributes(writer.get()), kOk);
    EXPECT_EQ(KSLUTGetAttributes(table.get()), kOk);
    ASSERT_EQ(table->nDimensions, 3);
    EXPECT_EQ(table->nElementSize, 12);
    EXPECT_EQ(sizesOf(table), (Sizes{1, 4, 2}));
    EXPECT_EQ(labelOf(table, 0), "");
    EXPECT_EQ(labelOf(table, 1), "a label = \"odd\", with text");
    EXPECT_EQ(labelOf(table, 2), "(none)");
    EXPECT_EQ(coordsOf(table, 0), (Coords{-1.5F}));
    EXPECT_EQ(coordsOf(table, 1), (Coords{0.0F, 0.25F, 1e20F, 7.0F}));
    EXPECT_EQ(coordsOf(table, 2), (Coords{0.0F, 0.0F}));
}

TEST_F(KSLUTGetAttributesTest, AsksTheHostUnderATrap) {
    setEntries(kSegment, {{"KSLUTDimensions", "2"},
                          {"KSLUTElementSize", "8"},
                          {"KSLUTSize_0", "1"},
                          {"KSLUTSize_1", "2"},
                          {"KSLUTLabel_0", "a"},
                          {"KSLUTCoords_1", "1,2"}});
    EXPECT_EQ(KSLUTGetAttributes(table.get()), kOk);
    EXPECT_EQ(
        callsFromTrap(),
        guarded({"GDBMetaDataIO(tables.ks, 0, 180, 7, null)", "FetchAuxEntry(list, KSLUTDimensions)",
                 "FetchAuxEntry(list, KSLUTElementSize)", "FetchAuxEntry(list, KSLUTSize)",
                 "FetchAuxEntry(list, KSLUTSize_0)", "FetchAuxEntry(list, KSLUTSize_1)",
                 "FetchAuxEntry(list, KSLUTLabel_0)", "_HString(a)", "FetchAuxEntry(list, KSLUTLabel_1)",
                 "FetchAuxEntry(list, KSLUTCoords_0)", "FetchAuxEntry(list, KSLUTCoords_1)", "TokenizeDelim(1,2, ,)",
                 "CountStringList(list)", "DestroyStringList(list)", "DestroyStringList(list)"}));
}

TEST_F(KSLUTGetAttributesTest, NeedsAValidPlace) {
    setEntries(kSegment, sampleEntries());
    EXPECT_EQ(KSLUTGetAttributes(nullptr), kFailed);
    EXPECT_EQ(KSLUTGetAttributes(sample().get()), kFailed);
    stored().segments.erase(kSegment);
    EXPECT_EQ(KSLUTGetAttributes(table.get()), kFailed);
    expectUntrapped();
}

TEST_F(KSLUTGetAttributesTest, NeedsAList) {
    EXPECT_EQ(KSLUTGetAttributes(table.get()), kFailed);
    EXPECT_EQ(table->nDimensions, 2);
    EXPECT_EQ(callsFromTrap(), guarded({"GDBMetaDataIO(tables.ks, 0, 180, 7, null)"}));
}

TEST_F(KSLUTGetAttributesTest, NeedsDimensions) {
    for (const char* value : {static_cast<const char*>(nullptr), "0", "-2", "many", ""}) {
        EXPECT_EQ(readWith("KSLUTDimensions", value), kFailed);
        EXPECT_EQ(table->nDimensions, 2);
        EXPECT_EQ(table->nElementSize, 0) << "reading stopped";
    }
    EXPECT_EQ(readWith("KSLUTDimensions", "  2nd"), kOk) << "as much of a number as there is";
    expectSample();
}

TEST_F(KSLUTGetAttributesTest, NeedsAnElementSize) {
    for (const char* value : {static_cast<const char*>(nullptr), "0", "-8", "some", ""}) {
        EXPECT_EQ(readWith("KSLUTElementSize", value), kFailed);
        EXPECT_EQ(table->nElementSize, 0);
        EXPECT_EQ(sizesOf(table), (Sizes{0, 0})) << "reading stopped";
    }
    EXPECT_EQ(readWith("KSLUTElementSize", "16 bytes"), kOk);
    EXPECT_EQ(table->nElementSize, 16);
}

TEST_F(KSLUTGetAttributesTest, NeedsTheSizeOfEveryDimension) {
    EXPECT_EQ(readWith("KSLUTSize_0", nullptr), kFailed);
    EXPECT_EQ(sizesOf(table), (Sizes{0, 0}));
    EXPECT_EQ(readWith("KSLUTSize_1", nullptr), kFailed);
    EXPECT_EQ(sizesOf(table), (Sizes{2, 0})) << "dimensions already set keep what was set";
    EXPECT_EQ(labelOf(table, 1), "(none)") << "reading stopped";
}

TEST_F(KSLUTGetAttributesTest, OneSizeMayStandForAll) {
    setEntries(kSegment, {{"KSLUTDimensions", "3"}, {"KSLUTElementSize", "8"}, {"KSLUTSize", "5"}});
    EXPECT_EQ(KSLUTGetAttributes(table.get()), kOk);
    EXPECT_EQ(sizesOf(table), (Sizes{5, 5, 5}));
    setEntries(kSegment, {{"KSLUTSize_0", "1"}, {"KSLUTSize_1", "2"}, {"KSLUTSize_2", "3"}});
    EXPECT_EQ(KSLUTGetAttributes(table.get()), kOk);
    EXPECT_EQ(sizesOf(table), (Sizes{5, 5, 5})) << "it goes before the others";
}

TEST_F(KSLUTGetAttributesTest, ASizeBelowOneIsReadLikeAnyOther) {
    for (const char* value : {"0", "-3", "none"}) {
        stored().lists.clear();
        setEntries(kSegment, {{"KSLUTDimensions", "2"}, {"KSLUTElementSize", "8"}});
        setEntries(kSegment, {{"KSLUTSize_0", value}, {"KSLUTSize_1", "2"}});
        EXPECT_EQ(KSLUTGetAttributes(table.get()), kOk) << value;
        EXPECT_LT(table->panSizes[0], 1) << value;
        EXPECT_EQ(table->panSizes[1], 2);
        EXPECT_EQ(KSLUTIsValid(table.get()), kFailed) << value;
    }
}

TEST_F(KSLUTGetAttributesTest, ALabelThatIsNotStoredStays) {
    setEntries(kSegment, sampleEntries());
    ASSERT_EQ(KSLUTSetLabel(table.get(), 0, "mine"), kOk);
    ASSERT_EQ(KSLUTSetLabel(table.get(), 1, "mine too"), kOk);
    EXPECT_EQ(KSLUTGetAttributes(table.get()), kOk);
    EXPECT_EQ(labelOf(table, 0), "mine");
    EXPECT_EQ(labelOf(table, 1), "Wavelength");
    ASSERT_EQ(KSLUTSetDimensions(table.get(), 1), kOk);
    ASSERT_EQ(KSLUTSetLabel(table.get(), 0, "mine"), kOk);
    EXPECT_EQ(KSLUTGetAttributes(table.get()), kOk);
    EXPECT_EQ(labelOf(table, 0), "(none)") << "another number of dimensions starts afresh";
}

TEST_F(KSLUTGetAttributesTest, FailsWhenALabelCannotBeCopied) {
    setEntries(kSegment, sampleEntries());
    host().failCall("_HString");
    EXPECT_EQ(KSLUTGetAttributes(table.get()), kFailed);
    EXPECT_EQ(sizesOf(table), (Sizes{2, 3}));
    EXPECT_EQ(coordsOf(table, 0), Coords(2, 0.0F)) << "reading stopped";
    EXPECT_EQ(host().count("IMPUnprotect"), 1);
}

TEST_F(KSLUTGetAttributesTest, CoordinatesThatAreNotStoredAreZero) {
    setEntries(kSegment, sampleEntries());
    ASSERT_EQ(KSLUTGetAttributes(table.get()), kOk);
    stored().lists.clear();
    setEntries(kSegment, {{"KSLUTDimensions", "2"}, {"KSLUTElementSize", "8"}});
    setEntries(kSegment, {{"KSLUTSize_0", "2"}, {"KSLUTSize_1", "3"}});
    EXPECT_EQ(KSLUTGetAttributes(table.get()), kOk);
    EXPECT_EQ(coordsOf(table, 0), Coords(2, 0.0F));
    EXPECT_EQ(coordsOf(table, 1), Coords(3, 0.0F));
}

TEST_F(KSLUTGetAttributesTest, AsManyCoordinatesAsIndices) {
    for (const char* value : {"1,2", "1", "1,2,3,4", "", ",,"}) {
        EXPECT_EQ(readWith("KSLUTCoords_1", value), kFailed) << value;
        EXPECT_EQ(sizesOf(table), (Sizes{2, 3}));
        EXPECT_EQ(labelOf(table, 1), "Wavelength");
        EXPECT_EQ(coordsOf(table, 0), (Coords{0.5F, -1.25F})) << "dimensions already set keep what was set";
        EXPECT_EQ(coordsOf(table, 1), Coords(3, 0.0F));
    }
    EXPECT_EQ(readWith("KSLUTCoords_0", "1,2,3"), kFailed);
    EXPECT_EQ(coordsOf(table, 1), Coords(3, 0.0F)) << "reading stopped";
}

TEST_F(KSLUTGetAttributesTest, CoordinatesAreNumbersAsFarAsTheyGo) {
    EXPECT_EQ(readWith("KSLUTCoords_1", "1e2, 2.5nm,none"), kOk);
    EXPECT_EQ(coordsOf(table, 1), (Coords{100.0F, 2.5F, 0.0F}));
    EXPECT_EQ(readWith("KSLUTCoords_1", "-0.1,  .5,+3"), kOk);
    EXPECT_EQ(coordsOf(table, 1), (Coords{-0.1F, 0.5F, 3.0F}));
}

#ifdef KSLIB_TEST_LOCALES
TEST_F(KSLUTGetAttributesTest, DoesNotDependOnTheLocale) {
    ASSERT_TRUE(useDecimalComma(KSLIB_TEST_LOCALES));
    const int result = readWith("KSLUTCoords_1", "0.50000,1234.25000,1.5");
    std::setlocale(LC_NUMERIC, "C");
    EXPECT_EQ(result, kOk);
    EXPECT_EQ(coordsOf(table, 1), (Coords{0.5F, 1234.25F, 1.5F}));
}
#endif

TEST_F(KSLUTGetAttributesTest, FailsWhereverTheHostAbandonsIt) {
    setEntries(kSegment, sampleEntries());
    for (const std::string name :
         {"GDBMetaDataIO", "FetchAuxEntry", "TokenizeDelim", "CountStringList", "DestroyStringList"}) {
        use(4);
        ASSERT_EQ(KSLUTGetAttributes(table.get()), kOk);
        const int calls = host().count(name);
        EXPECT_GE(calls, 1) << name;
        for (int nth = 1; nth <= calls; ++nth) {
            const std::string what = name + " " + std::to_string(nth);
            use(4);
            host().jumpFromCall(name, nth);
            EXPECT_EQ(KSLUTGetAttributes(table.get()), kFailed) << what;
            expectAbandoned(what);
            EXPECT_EQ(file->references, 2) << what << ": the table is still there";
        }
    }
}

TEST_F(KSLUTGetAttributesTest, GoesOnWhenThereIsNoTrap) {
    setEntries(kSegment, sampleEntries());
    host().failCall("IMP_Protect");
    EXPECT_EQ(KSLUTGetAttributes(table.get()), kOk);
    expectSample();
    expectUnprotected();
}

TEST_F(KSLUTGetAttributesTest, WithoutMemoryForTheDimensionsTheRecordIsReleased) {
    setEntries(kSegment, sampleEntries());
    for (int nth = 1;; ++nth) {
        use(4);
        refuseAllocation(nth);
        const int result = KSLUTGetAttributes(table.get());
        if (!allocationRefused()) {
            EXPECT_EQ(result, kOk);
            EXPECT_EQ(nth, 6) << "three arrays, and the coordinates of two dimensions";
            expectSample();
            return;
        }
        ASSERT_EQ(result, kFailed) << nth;
        EXPECT_EQ(host().count("IMPUnprotect"), 1) << nth;
        EXPECT_EQ(host().liveLists(), 0) << nth;
        const bool isReleased = nth <= 3;
        EXPECT_EQ(file->references, isReleased ? 1 : 2) << nth;
        if (isReleased) static_cast<void>(table.release());
    }
}

// ---- elements ----

struct KSLUTFileIOTest : FileTest {
    static constexpr int kElementSize = 4;
    Table table;

    void SetUp() override {
        FileTest::SetUp();
        table = tableOf({4, 5, 6}, kElementSize);
        place(table, kSegment);
        std::vector<std::int32_t> numbers(120);
        std::iota(numbers.begin(), numbers.end(), 0);
        std::memcpy(stored().segments[kSegment].bytes.data(), numbers.data(), 480);
    }
    void TearDown() override {
        table.reset();
        FileTest::TearDown();
    }
    std::int32_t element(std::size_t at) const {
        std::int32_t value = 0;
        std::memcpy(&value, &stored().segments[kSegment].bytes[at * 4], 4);
        return value;
    }
};

TEST_F(KSLUTFileIOTest, ReadsARectangleUnderATrap) {
    const Vector offset = vectorOf({1, 2, 3});
    const Vector count = vectorOf({2, 1, 3});
    std::vector<std::int32_t> buffer(7, -1);
    std::int64_t moved = 77;
    EXPECT_EQ(KSLUTFileIO(table.get(), 0, offset.get(), count.get(), nullptr, nullptr, 0, buffer.data(), 28, &moved),
              kOk);
    EXPECT_EQ(buffer, (std::vector<std::int32_t>{45, 46, 47, 75, 76, 77, -1}));
    EXPECT_EQ(moved, 24);
    EXPECT_EQ(callsFromTrap(),
              guarded({"IDBMultiArrayIO(tables.ks, 0, 7, [4 5 6], 4, [1 2 3], [2 1 3], null, null, 0, pointer, 28)"}));
    EXPECT_EQ(valuesOf(offset), (Extents{1, 2, 3}));
    EXPECT_EQ(valuesOf(count), (Extents{2, 1, 3}));
}

TEST_F(KSLUTFileIOTest, WritesARectangle) {
    const Vector offset = vectorOf({3, 0, 4});
    const Vector count = vectorOf({1, 2, 2});
    std::vector<std::int32_t> buffer = {-1, -2, -3, -4};
    EXPECT_EQ(KSLUTFileIO(table.get(), 1, offset.get(), count.get(), nullptr, nullptr, 0, buffer.data(), 16, nullptr),
              kOk);
    const std::set<std::size_t> changed = {94, 95, 100, 101};
    std::int32_t next = -1;
    for (std::size_t i = 0; i < 120; ++i) {
        EXPECT_EQ(element(i), changed.count(i) != 0 ? next-- : static_cast<std::int32_t>(i)) << i;
    }
}

TEST_F(KSLUTFileIOTest, HandsEverythingElseThrough) {
    const Vector offset = vectorOf({0, 0, 0});
    const Vector count = vectorOf({2, 2, 3});
    const Vector step = vectorOf({3, 4, 2});
    const Vector resume = vectorOf({0, 1, 2});
    std::vector<std::int32_t> buffer(12, -1);
    std::int64_t moved = 77;
    EXPECT_EQ(
        KSLUTFileIO(table.get(), 0, offset.get(), count.get(), step.get(), resume.get(), 3, buffer.data(), 48, &moved),
        kOk);
    EXPECT_EQ(host().argumentsOf("IDBMultiArrayIO"),
              "tables.ks, 0, 7, [4 5 6], 4, [0 0 0], [2 2 3], [3 4 2], [0 1 2], 3, pointer, 48");
    // From the last element of the rectangle's second row on.
    EXPECT_EQ(buffer, (std::vector<std::int32_t>{28, 90, 92, -1, -1, -1, -1, -1, -1, -1, -1, -1}));
    EXPECT_EQ(moved, 12);
}

TEST_F(KSLUTFileIOTest, EachOptionalVectorMayBeMissing) {
    const Vector offset = vectorOf({0, 0, 0});
    const Vector count = vectorOf({1, 1, 1});
    const Vector other = vectorOf({1, 1, 1});
    std::int32_t value = -1;
    EXPECT_EQ(KSLUTFileIO(table.get(), 0, offset.get(), count.get(), other.get(), nullptr, 0, &value, 4, nullptr), kOk);
    EXPECT_EQ(host().argumentsOf("IDBMultiArrayIO"),
              "tables.ks, 0, 7, [4 5 6], 4, [0 0 0], [1 1 1], [1 1 1], null, 0, pointer, 4");
    host().forget();
    const Vector start = vectorOf({0, 0, 0});
    EXPECT_EQ(KSLUTFileIO(table.get(), 0, offset.get(), count.get(), nullptr, start.get(), 0, &value, 4, nullptr), kOk);
    EXPECT_EQ(host().argumentsOf("IDBMultiArrayIO"),
              "tables.ks, 0, 7, [4 5 6], 4, [0 0 0], [1 1 1], null, [0 0 0], 0, pointer, 4");
}

TEST_F(KSLUTFileIOTest, ModeAndCountsReachTheHostUnchanged) {
    const std::int64_t many = std::int64_t{5} << 32;
    const Vector offset = vectorOf({0, many, -1});
    const Vector count = vectorOf({0, many, 1});
    EXPECT_EQ(
        KSLUTFileIO(table.get(), 9, offset.get(), count.get(), nullptr, nullptr, many + 1, nullptr, many + 2, nullptr),
        kFailed)
        << "it is the host that refuses them";
    EXPECT_EQ(host().argumentsOf("IDBMultiArrayIO"),
              "tables.ks, 9, 7, [4 5 6], 4, [0 21474836480 -1], [0 21474836480 1], null, null, 21474836481, null, "
              "21474836482");
}

TEST_F(KSLUTFileIOTest, NeedsAValidTableInAValidPlaceAndVectorsOfItsDimensions) {
    const Vector good = vectorOf({1, 1, 1});
    const Vector shorter = vectorOf({1, 1});
    const Vector longer = vectorOf({1, 1, 1, 1});
    std::int32_t value = -1;
    std::int64_t moved = 77;
    const auto io = [&](KSLUT* of, const Vector& offset, const Vector& count) {
        return KSLUTFileIO(of, 0, offset.get(), count.get(), nullptr, nullptr, 0, &value, 4, &moved);
    };
    EXPECT_EQ(io(nullptr, good, good), kFailed);
    EXPECT_EQ(io(table.get(), nullptr, good), kFailed);
    EXPECT_EQ(io(table.get(), good, nullptr), kFailed);
    EXPECT_EQ(io(table.get(), shorter, good), kFailed);
    EXPECT_EQ(io(table.get(), good, shorter), kFailed);
    EXPECT_EQ(io(table.get(), longer, good), kFailed);
    EXPECT_EQ(io(table.get(), good, longer), kFailed);
    EXPECT_EQ(io(tableOf({4, 5, 6}).get(), good, good), kFailed) << "no file";
    ASSERT_EQ(KSLUTSetSize(table.get(), 1, 0), kOk);
    EXPECT_EQ(io(table.get(), good, good), kFailed) << "no indices";
    ASSERT_EQ(KSLUTSetSize(table.get(), 1, 5), kOk);
    stored().segments.erase(kSegment);
    EXPECT_EQ(io(table.get(), good, good), kFailed) << "no segment";
    expectUntrapped();
    EXPECT_EQ(value, -1);
    EXPECT_EQ(moved, 77);
    addSegment(kSegment, 480);
    EXPECT_EQ(io(table.get(), good, good), kOk);
}

TEST_F(KSLUTFileIOTest, TheHostNeverReadsPastAVector) {
    const Vector good = vectorOf({0, 0, 0});
    const Vector shorter = vectorOf({0, 0});
    KSLUTVector withoutValues{3, nullptr};
    std::int32_t value = -1;
    const auto io = [&](KSLUTVector* offset, KSLUTVector* count, KSLUTVector* step, KSLUTVector* resume) {
        return KSLUTFileIO(table.get(), 0, offset, count, step, resume, 0, &value, 4, nullptr);
    };
    EXPECT_EQ(io(good.get(), good.get(), shorter.get(), nullptr), kFailed);
    EXPECT_EQ(io(good.get(), good.get(), nullptr, shorter.get()), kFailed);
    EXPECT_EQ(io(&withoutValues, good.get(), nullptr, nullptr), kFailed);
    EXPECT_EQ(io(good.get(), &withoutValues, nullptr, nullptr), kFailed);
    expectUntrapped();
}

TEST_F(KSLUTFileIOTest, FailsWhenTheHostAbandonsIt) {
    const Vector offset = vectorOf({0, 0, 0});
    const Vector count = vectorOf({1, 1, 1});
    std::int32_t value = -1;
    std::int64_t moved = 77;
    host().jumpFromCall("IDBMultiArrayIO");
    EXPECT_EQ(KSLUTFileIO(table.get(), 0, offset.get(), count.get(), nullptr, nullptr, 0, &value, 4, &moved), kFailed);
    EXPECT_EQ(value, -1);
    EXPECT_EQ(moved, 0);
    expectAbandoned("IDBMultiArrayIO");
}

TEST_F(KSLUTFileIOTest, GoesOnWhenThereIsNoTrap) {
    const Vector offset = vectorOf({0, 0, 5});
    const Vector count = vectorOf({1, 1, 1});
    std::int32_t value = -1;
    host().failCall("IMP_Protect");
    EXPECT_EQ(KSLUTFileIO(table.get(), 0, offset.get(), count.get(), nullptr, nullptr, 0, &value, 4, nullptr), kOk);
    EXPECT_EQ(value, 5);
    expectUnprotected();
}

TEST_F(KSLUTFileIOTest, DoesNotJudgeWhatTheHostAnswers) {
    const Vector offset = vectorOf({0, 0, 5});
    const Vector count = vectorOf({1, 1, 1});
    std::int32_t value = -1;
    host().failCall("IMP_Protect");
    host().failCall("IDBMultiArrayIO");
    EXPECT_EQ(KSLUTFileIO(table.get(), 0, offset.get(), count.get(), nullptr, nullptr, 0, &value, 4, nullptr), kOk);
    EXPECT_EQ(value, -1);
}

TEST_F(KSLUTFileIOTest, MovesNothingWithoutMemory) {
    const Vector offset = vectorOf({0, 0, 0});
    const Vector count = vectorOf({1, 1, 1});
    std::int32_t value = -1;
    refuseAllocation(1);
    EXPECT_EQ(KSLUTFileIO(table.get(), 0, offset.get(), count.get(), nullptr, nullptr, 0, &value, 4, nullptr), kFailed);
    EXPECT_TRUE(allocationRefused());
    EXPECT_EQ(host().count("IDBMultiArrayIO"), 0);
    EXPECT_EQ(value, -1);
}

// ---- a life ----

TEST_F(FileTest, ATableIsBuiltKeptAndUsedAgain) {
    std::vector<double> elements(24);
    std::iota(elements.begin(), elements.end(), 0.5);
    const Vector offset = vectorOf({0, 0});
    const Vector count = vectorOf({8, 3});
    int segment = 0;
    {
        const Table table = tableOf({8, 3}, 8);
        ASSERT_EQ(KSLUTSetCoordRange(table.get(), 0, 0.0F, 70.0F), kOk);
        ASSERT_EQ(KSLUTCreateFileSegment(table.get(), file, &segment, "table", "a test"), kOk);
        ASSERT_EQ(KSLUTSetFileInfo(table.get(), file, segment), kOk);
        ASSERT_EQ(KSLUTSetAttributes(table.get()), kOk);
        ASSERT_EQ(
            KSLUTFileIO(table.get(), 1, offset.get(), count.get(), nullptr, nullptr, 0, elements.data(), 192, nullptr),
            kOk);
    }
    closeFile();
    EXPECT_EQ(host().liveHandles(), 0);
    const Table table(KSLUTCreate(1));
    HostFile* again = host().open("tables.ks");
    ASSERT_EQ(KSLUTSetFileInfo(table.get(), again, segment), kOk);
    GDBClose(again);
    ASSERT_EQ(KSLUTGetAttributes(table.get()), kOk);
    EXPECT_EQ(coordsOf(table, 0), (Coords{0.0F, 10.0F, 20.0F, 30.0F, 40.0F, 50.0F, 60.0F, 70.0F}));
    std::vector<double> read(24);
    ASSERT_EQ(KSLUTFileIO(table.get(), 0, offset.get(), count.get(), nullptr, nullptr, 0, read.data(), 192, nullptr),
              kOk);
    EXPECT_EQ(read, elements);
}

}  // namespace
