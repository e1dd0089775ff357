// Data segments through the boundary: their directory, their metadata, what is refused, and large ones.
#include <sys/stat.h>

#include <algorithm>
#include <csetjmp>
#include <functional>
#include <limits>

#include "segmentkit.hpp"

using namespace hosttest;

namespace {

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kGiB = std::int64_t{1} << 30U;

}  // namespace

INSTANTIATE_TEST_SUITE_P(Files, Segments, testing::Bool(), kindOf);

// ---- the directory ----

TEST_P(Segments, ANewOneIsZerosUnderTheNextNumber) {
    HostFile* fp = create();
    EXPECT_EQ(segmentInfo(fp, 1), "E0");
    EXPECT_EQ(IDBSegCreate(fp, "first", "text", kTable, 4), 1);
    EXPECT_EQ(IDBSegCreate(fp, nullptr, nullptr, 7, 0), 2);
    EXPECT_EQ(IDBSegCreate(fp, "", "", 3, 1), 3);
    for (const bool again : {false, true}) {
        if (again) {
            GDBClose(fp);
            fp = open();
        }
        EXPECT_EQ(segmentInfo(fp, 1), "A180");
        EXPECT_EQ(segmentInfo(fp, 2), "A7");
        EXPECT_EQ(segmentInfo(fp, 3), "A3");
        for (const int none : {4, 0, -1}) EXPECT_EQ(segmentInfo(fp, none), "E0");
        EXPECT_EQ(bytesOf(fp, 1, 4 * kBlock), Bytes(4 * kBlock, 0));
        EXPECT_EQ(bytesOf(fp, 3, kBlock), Bytes(kBlock, 0));
    }
    EXPECT_EQ(IDBSegInfoIO(fp, 1, kRead, nullptr, nullptr, nullptr, nullptr, nullptr), 1);
    GDBClose(fp);
    expectNoReports();
}

TEST_P(Segments, AreStoredAtOnce) {
    HostFile* fp = create();
    const int segment = tableSegment(fp, 2000);
    const Bytes written = noise(2000, 1);
    EXPECT_EQ(writeBytes(fp, segment, 2000, 0, written), 1);
    // A process that never closes the file has stored them all the same.
    EXPECT_TRUE(succeeded(inChild([&] {
        HostFile* other = open();
        return segmentInfo(other, segment) == "A180" && bytesOf(other, segment, 2000) == written ? 0 : 1;
    })));
    GDBClose(fp);
    expectNoReports();
}

TEST_P(Segments, AreWalkedByTypeWithLayersBetween) {
    HostFile* fp = create();
    EXPECT_NE(GDBCreateLayer(fp, "spectra", "", ""), nullptr);
    EXPECT_EQ(tableSegment(fp, 100), 2);
    EXPECT_EQ(IDBSegCreate(fp, "", "", 9, 1), 3);
    EXPECT_NE(GDBCreateLayer(fp, "spectra", "", ""), nullptr);
    EXPECT_EQ(tableSegment(fp, 100), 5);
    EXPECT_EQ(tableSegment(fp, 100), 6);
    for (const bool again : {false, true}) {
        if (again) {
            GDBClose(fp);
            fp = open();
        }
        EXPECT_EQ(walk(fp, kLayer), (std::vector<int>{1, 4}));
        EXPECT_EQ(walk(fp, kTable), (std::vector<int>{2, 5, 6}));
        EXPECT_EQ(walk(fp, 9), (std::vector<int>{3}));
        EXPECT_EQ(walk(fp, 10), std::vector<int>{});
        EXPECT_EQ(GDBSegNext(fp, kTable, 4), 5);
        EXPECT_EQ(GDBSegNext(fp, kTable, -3), 2);
        EXPECT_EQ(GDBSegNext(fp, kTable, std::numeric_limits<int>::max()), -1);
    }
    expectNoReports();
    EXPECT_EQ(GDBGetLayer(fp, 2), nullptr);
    expectReport("no layer in segment 2");
    EXPECT_EQ(GDBVectorCopy(fp, 2, fp, 0, 0, 0, 0), 0);
    EXPECT_EQ(reports.all.size(), 1U);
    GDBClose(fp);
}

TEST_P(Segments, HaveAMetadataListAtTheLevelOfSegmentsAndOfTheirType) {
    HostFile* fp = create();
    GDBCreateLayer(fp, "spectra", "", "");
    const int first = tableSegment(fp, 100);
    const int second = tableSegment(fp, 100);
    EXPECT_EQ(takeList(GDBMetaDataIO(fp, kRead, kTable, first, nullptr)), Texts{});
    setList(fp, kTable, first, "KSLUTDimensions", "3");
    setList(fp, 3, second, "KSLUTDimensions", "9");
    setList(fp, 3, 1, "Key", "of the layer");
    for (const bool again : {false, true}) {
        if (again) {
            GDBClose(fp);
            fp = open("r+");
        }
        for (const int level : {3, kTable}) {
            EXPECT_EQ(takeList(GDBMetaDataIO(fp, kRead, level, first, nullptr)), Texts{"KSLUTDimensions=3"});
            EXPECT_STREQ(GDBFetchMetaDataEntry(fp, level, second, "KSLUTDimensions"), "9");
        }
        EXPECT_STREQ(GDBFetchMetaDataEntry(fp, kLayer, 1, "Key"), "of the layer");
        expectNoReports();
        for (const int wrong : {kLayer, 4, 181}) {
            setList(fp, wrong, first, "KSLUTDimensions", "0");
            expectReport("no segment " + std::to_string(first) + " of type " + std::to_string(wrong));
            EXPECT_EQ(GDBMetaDataIO(fp, kRead, wrong, first, nullptr), nullptr);
            expectReport("no segment");
        }
        EXPECT_EQ(GDBFetchMetaDataEntry(fp, kTable, 1, "Key"), nullptr);
        expectReport("no segment 1 of type 180");
        EXPECT_EQ(GDBMetaDataIO(fp, kRead, kTable, 9, nullptr), nullptr);
        expectReport("no segment 9");
        KSHostResetErrorCount();
    }
    GDBClose(fp);
}

// ---- refusals ----

namespace {

/// A transfer of the whole of 4 x 5 x 6 elements, of which a test spoils one argument.
struct Asked {
    int mode = kRead;
    int segment = 2;
    int dimensions = 3;
    Numbers sizes = {4, 5, 6};
    int elementSize = 8;
    Numbers offset = {0, 0, 0};
    Numbers count = {4, 5, 6};
    Numbers step = {1, 1, 1};
    Numbers resume = {0, 0, 0};
    std::int64_t limit = 0;
    std::int64_t bytes = 960;
    bool nullBuffer = false;
};

int call(HostFile* fp, const Asked& a, unsigned char* buffer, std::int64_t* moved) {
    return IDBMultiArrayIO(fp, a.mode, a.segment, a.dimensions, orNull(a.sizes), a.elementSize, orNull(a.offset),
                           orNull(a.count), orNull(a.step), orNull(a.resume), a.limit, a.nullBuffer ? nullptr : buffer,
                           a.bytes, moved);
}

struct Refusal {
    std::function<void(Asked&)> spoil;
    const char* reason;
};

std::vector<Refusal> refusals() {
    return {{[](Asked& a) { a.mode = 2; }, "mode 2"},
            {[](Asked& a) { a.mode = -1; }, "mode -1"},
            {[](Asked& a) { a.segment = 9; }, "no segment 9"},
            {[](Asked& a) { a.segment = 0; }, "no segment 0"},
            {[](Asked& a) { a.segment = -2; }, "no segment -2"},
            {[](Asked& a) { a.segment = 1; }, "segment 1 is a layer"},
            {[](Asked& a) { a.nullBuffer = true; }, "no buffer"},
            {[](Asked& a) { a.dimensions = 0; }, "at least one dimension"},
            {[](Asked& a) { a.dimensions = -3; }, "at least one dimension"},
            {[](Asked& a) { a.sizes.clear(); }, "no sizes"},
            {[](Asked& a) { a.offset.clear(); }, "offsets"},
            {[](Asked& a) { a.count.clear(); }, "counts"},
            {[](Asked& a) { a.elementSize = 0; }, "at least one byte"},
            {[](Asked& a) { a.elementSize = -8; }, "at least one byte"},
            {[](Asked& a) { a.limit = -1; }, "cannot be negative"},
            {[](Asked& a) { a.bytes = -1; }, "negative size"},
            {[](Asked& a) { a.sizes[1] = 0; }, "the size 0 in dimension 1"},
            {[](Asked& a) { a.sizes[0] = -4; }, "the size -4 in dimension 0"},
            {[](Asked& a) { a.count[2] = -1; }, "the count -1 in dimension 2"},
            {[](Asked& a) { a.count[0] = std::numeric_limits<std::int64_t>::min(); }, "in dimension 0 is negative"},
            {[](Asked& a) { a.step[1] = 0; }, "the step 0 in dimension 1"},
            {[](Asked& a) { a.step[1] = -1; }, "the step -1 in dimension 1"},
            {[](Asked& a) { a.offset[0] = -1; }, "leave the array"},
            {[](Asked& a) { a.offset[2] = 6; }, "leave the array"},
            {[](Asked& a) { a.offset[1] = kMost; }, "leave the array"},
            {[](Asked& a) { a.offset[1] = 1; }, "leave the array"},
            {[](Asked& a) { a.count[1] = 6; }, "leave the array"},
            {[](Asked& a) { a.count[1] = kMost; }, "leave the array"},
            {[](Asked& a) { a.step[2] = 2; }, "leave the array"},
            {[](Asked& a) { a.step[2] = kMost; }, "leave the array"},
            {[](Asked& a) { a.resume[0] = 4; }, "is not in the rectangle"},
            {[](Asked& a) { a.resume[2] = -1; }, "is not in the rectangle"},
            {[](Asked& a) { a.sizes[0] = 5; }, "too few for an array of 1200"},
            {[](Asked& a) { a.elementSize = 9; }, "too few for an array of 1080"},
            {[](Asked& a) { a.sizes[0] = kMost; }, "more bytes than can be counted"},
            {[](Asked& a) {
                 a.sizes = {std::int64_t{1} << 31U, std::int64_t{1} << 31U, 2}, a.count = {1, 1, 1};
             },
             "more bytes than can be counted"},
            {[](Asked& a) {
                 a.sizes = {std::int64_t{1} << 32U, std::int64_t{1} << 32U, 6}, a.count = {1, 1, 1};
             },
             "more bytes than can be counted"}};
}

using Action = std::function<void(HostFile*)>;

/// True when an action jumps to a trap, which is then gone. The jump skips destructors: an action owns nothing.
bool jumps(HostFile* fp, const Action& action) {
    volatile bool returned = false;
    if (IMP_Protect() == nullptr) return false;
    if (setjmp(*IMPProtectBuffer()) == 0) {
        action(fp);
        returned = true;
        IMPUnprotect();
    }
    EXPECT_EQ(IMPProtectBuffer(), nullptr);
    return !returned;
}

}  // namespace

TEST_P(Segments, WhatMakesNoSenseIsRefusedWithAReportAndNothingMoves) {
    HostFile* fp = create();
    GDBCreateLayer(fp, "spectra", "", "");
    ASSERT_EQ(tableSegment(fp, 960), 2);
    ASSERT_EQ(tableSegment(fp, 960), 3);
    ASSERT_EQ(writeBytes(fp, 2, 960, 0, noise(960, 10)), 1);
    Bytes buffer(960, 0x77);
    int number = 0;
    for (const Refusal& refusal : refusals()) {
        for (const int mode : {kRead, kWrite}) {
            Asked asked;
            asked.mode = mode;
            refusal.spoil(asked);
            std::int64_t moved = -1;
            EXPECT_EQ(call(fp, asked, buffer.data(), &moved), 0) << number;
            EXPECT_EQ(moved, 0) << number;
            expectReport(refusal.reason);
            moved = -1;
            EXPECT_TRUE(jumps(fp, [&](HostFile* f) { call(f, asked, buffer.data(), &moved); })) << number;
            EXPECT_EQ(moved, 0) << number;
            expectReport(refusal.reason);
            EXPECT_EQ(call(fp, asked, buffer.data(), nullptr), 0) << number;
            reports.all.clear();
        }
        ++number;
    }
    EXPECT_EQ(buffer, Bytes(960, 0x77));
    EXPECT_EQ(bytesOf(fp, 2, 960), noise(960, 10));
    EXPECT_FALSE(jumps(fp, [&](HostFile* f) { call(f, Asked(), buffer.data(), nullptr); }));
    EXPECT_EQ(buffer, noise(960, 10));
    EXPECT_EQ(allReports(), "");
    GDBClose(fp);
}

TEST_P(Segments, OnesThatCannotBeMadeAreRefused) {
    HostFile* fp = create();
    const auto refused = [&](int type, std::int64_t blocks) {
        EXPECT_EQ(IDBSegCreate(fp, "", "", type, blocks), 0);
        const std::string report = onlyReport();
        EXPECT_TRUE(jumps(fp, [&](HostFile* f) { IDBSegCreate(f, "", "", type, blocks); }));
        EXPECT_EQ(onlyReport(), report);
        return report;
    };
    EXPECT_NE(refused(kTable, -1).find("-1 blocks"), std::string::npos);
    EXPECT_NE(refused(kTable, kMost / kBlock + 1).find("blocks"), std::string::npos);
    EXPECT_NE(refused(kLayer, 1).find("of type 116"), std::string::npos);
    EXPECT_NE(refused(0, 1).find("of type 0"), std::string::npos);
    EXPECT_NE(refused(-180, 1).find("of type -180"), std::string::npos);
    EXPECT_EQ(walk(fp, kTable), std::vector<int>{});
    EXPECT_EQ(tableSegment(fp, 1), 1);
    GDBClose(fp);
}

TEST_P(Segments, OfAFileOpenForReadingAreOnlyRead) {
    HostFile* fp = create();
    ASSERT_EQ(tableSegment(fp, 960), 1);
    GDBClose(fp);
    const std::string before = contentsOf(store);
    fp = open("r");
    EXPECT_EQ(tableSegment(fp, 960), 0);
    expectReport("open for reading only");
    EXPECT_EQ(writeBytes(fp, 1, 960, 0, noise(960, 11)), 0);
    expectReport("open for reading only");
    const Rectangle first = stretch(960, 0, 1);
    unsigned char byte = 0;
    EXPECT_TRUE(jumps(fp, [&](HostFile* f) { move(f, kWrite, 1, first, &byte, nullptr); }));
    EXPECT_TRUE(jumps(fp, [](HostFile* f) { tableSegment(f, 960); }));
    EXPECT_EQ(bytesOf(fp, 1, 960), Bytes(960, 0));
    GDBClose(fp);
    EXPECT_EQ(contentsOf(store), before);
}

TEST_P(Segments, OfADeadHandleAreNotLookedInto) {
    HostFile* fp = create();
    ASSERT_EQ(tableSegment(fp, 960), 1);
    GDBClose(fp);
    const Rectangle first = stretch(960, 0, 1);
    for (HostFile* dead : {fp, static_cast<HostFile*>(nullptr)}) {
        unsigned char byte = 0x11;
        std::int64_t moved = -1;
        char status = ' ';
        int type = 77;
        const std::vector<Action> calls = {
            [&](HostFile* f) { EXPECT_EQ(tableSegment(f, 1), 0); },
            [&](HostFile* f) { EXPECT_EQ(GDBSegNext(f, kTable, 0), -1); },
            [&](HostFile* f) { EXPECT_EQ(IDBSegInfoIO(f, 1, kRead, &status, &type, nullptr, nullptr, nullptr), 0); },
            [&](HostFile* f) { EXPECT_EQ(move(f, kRead, 1, first, &byte, &moved), 0); },
            [&](HostFile* f) { EXPECT_EQ(move(f, kWrite, 1, first, &byte, &moved), 0); },
            [&](HostFile* f) { EXPECT_EQ(GDBMetaDataIO(f, kRead, kTable, 1, nullptr), nullptr); }};
        for (const Action& action : calls) {
            moved = 0;
            action(dead);
            expectReport(dead == nullptr ? "no file given" : "the file is not open");
            EXPECT_EQ(moved, 0);
            EXPECT_TRUE(jumps(dead, action));
            reports.all.clear();
        }
        EXPECT_EQ(status, 'E');
        EXPECT_EQ(type, 0);
        EXPECT_EQ(byte, 0x11);
    }
}

TEST_P(Segments, TheirDescriptionIsNotWritten) {
    HostFile* fp = create();
    ASSERT_EQ(tableSegment(fp, 960), 1);
    char status = 'A';
    int type = 5;
    EXPECT_EQ(IDBSegInfoIO(fp, 1, kWrite, &status, &type, nullptr, nullptr, nullptr), 0);
    expectReport("only read");
    EXPECT_TRUE(jumps(fp, [](HostFile* f) { IDBSegInfoIO(f, 1, 1, nullptr, nullptr, nullptr, nullptr, nullptr); }));
    EXPECT_FALSE(jumps(fp, [](HostFile* f) { IDBSegInfoIO(f, 9, 0, nullptr, nullptr, nullptr, nullptr, nullptr); }))
        << "none of that number is an answer";
    EXPECT_FALSE(jumps(fp, [](HostFile* f) { GDBSegNext(f, kTable, 1); })) << "and so is the end";
    EXPECT_EQ(segmentInfo(fp, 1), "A180");
    GDBClose(fp);
}

TEST_F(SegmentTest, AFileInMemoryOrOfAnotherFormatTakesNone) {
    const std::vector<std::pair<int, std::string>> files = {{KSHOST_TYPE_MEMORY, ""},
                                                            {KSHOST_TYPE_SPECTRAL_LIBRARY, folder / "a.sli"},
                                                            {KSHOST_TYPE_CSV, folder / "a.csv"},
                                                            {KSHOST_TYPE_GEOJSON, folder / "a.geojson"},
                                                            {KSHOST_TYPE_DBF, folder / "a.dbf"}};
    for (const auto& [type, file] : files) {
        HostFile* fp = GDBCreate(type, file.c_str(), 512, 512, 0, 1, "");
        ASSERT_NE(fp, nullptr) << type;
        EXPECT_EQ(tableSegment(fp, 960), 0);
        expectReport("holds no data segments");
        EXPECT_EQ(segmentInfo(fp, 1), "E0");
        EXPECT_EQ(walk(fp, kTable), std::vector<int>{});
        unsigned char byte = 0;
        std::int64_t moved = -1;
        EXPECT_EQ(move(fp, kWrite, 1, stretch(960, 0, 1), &byte, &moved), 0);
        EXPECT_EQ(moved, 0);
        expectReport("no segment 1");
        if (type == KSHOST_TYPE_MEMORY) {
            GDBCreateLayer(fp, "spectra", "", "");
            EXPECT_EQ(move(fp, kRead, 1, stretch(960, 0, 1), &byte, &moved), 0);
            expectReport("segment 1 is a layer");
        }
        GDBClose(fp);
    }
    reports.all.clear();
    EXPECT_TRUE(folder.names().empty());
}

// ---- handles ----

TEST_P(Segments, HandlesOnOneFileSeeEachOthersAtOnce) {
    HostFile* fp = create();
    GDBClose(fp);
    HostFile* reader = open("r");
    HostFile* writer = open("r+");
    HostFile* other = open("r+");
    EXPECT_EQ(tableSegment(writer, 3000), 1);
    EXPECT_EQ(tableSegment(other, 3000), 2) << "and their numbers do not collide";
    EXPECT_EQ(walk(reader, kTable), (std::vector<int>{1, 2}));
    const Bytes first = noise(1000, 12);
    const Bytes second = noise(1000, 13);
    EXPECT_EQ(writeBytes(writer, 1, 3000, 0, first), 1);
    EXPECT_EQ(writeBytes(other, 1, 3000, 2000, second), 1);
    for (HostFile* each : {reader, writer, other}) {
        EXPECT_EQ(bytesOf(each, 1, 3000, 0, 1000), first);
        EXPECT_EQ(bytesOf(each, 1, 3000, 2000, 1000), second);
    }
    setList(writer, kTable, 1, "Key", "gathered");
    EXPECT_STREQ(GDBFetchMetaDataEntry(reader, kTable, 1, "Key"), "gathered");
    for (HostFile* each : {reader, writer, other}) GDBClose(each);
    expectNoReports();
}

// ---- large ones ----

TEST_P(Segments, OneAbove4GiBTakesRoomOnlyWhereItIsWritten) {
    constexpr std::int64_t kSize = 5 * kGiB;
    HostFile* fp = create();
    const int segment = tableSegment(fp, kSize);
    ASSERT_EQ(segment, 1);
    const Bytes piece = noise(3000, 14);
    const std::vector<std::int64_t> places = {0, 2 * kGiB - 1500, 4 * kGiB - 1500, 4 * kGiB + kStoredPage,
                                              kSize - 3000};
    for (const std::int64_t place : places) ASSERT_EQ(writeBytes(fp, segment, kSize, place, piece), 1);
    GDBClose(fp);
    struct stat info {};
    ASSERT_EQ(stat(store.c_str(), &info), 0);
    EXPECT_LT(info.st_size, 8 << 20);
    fp = open();
    for (const std::int64_t place : places) {
        EXPECT_EQ(bytesOf(fp, segment, kSize, place, 3000), piece) << place;
        if (place > 0) {
            EXPECT_EQ(bytesOf(fp, segment, kSize, place - 500, 500), Bytes(500, 0)) << place;
        }
        if (place + 3000 < kSize) {
            EXPECT_EQ(bytesOf(fp, segment, kSize, place + 3000, 500), Bytes(500, 0)) << place;
        }
    }
    // The same bytes as an array of three dimensions, of which one element lies on either side of 2^32.
    Bytes sides(2 * 8);
    const Rectangle around = {{5, 1 << 15, 1 << 12}, 8, {0, 0, 0}, {1, 1, 1}, {}, {}, 0, 8};
    ASSERT_EQ(around.sizes[0] * around.sizes[1] * around.sizes[2] * around.elementSize, kSize);
    Rectangle below = around;
    below.offset = {3, (1 << 15) - 1, (1 << 12) - 1};
    Rectangle above = around;
    above.offset = {4, 0, 0};
    std::int64_t moved = 0;
    EXPECT_EQ(move(fp, kRead, segment, below, sides.data(), &moved), 1);
    EXPECT_EQ(move(fp, kRead, segment, above, sides.data() + 8, &moved), 1);
    EXPECT_TRUE(std::equal(sides.begin(), sides.end(), piece.begin() + 1492));
    Bytes pair(2 * 8);
    const Rectangle stepped = {{5, 1 << 15, 1 << 12}, 8, {0, 0, 0}, {2, 1, 1}, {4, 1, 1}, {}, 0, 16};
    EXPECT_EQ(move(fp, kRead, segment, stepped, pair.data(), &moved), 1);
    EXPECT_TRUE(std::equal(pair.begin(), pair.begin() + 8, piece.begin()));
    EXPECT_TRUE(std::equal(pair.begin() + 8, pair.end(), piece.begin() + 1500));
    GDBClose(fp);
    expectNoReports();
}

TEST_P(Segments, TheLargestThereCanBeIsAddressedToItsLastByte) {
    constexpr std::int64_t kSize = kMost / kBlock * kBlock;
    HostFile* fp = create();
    const int segment = IDBSegCreate(fp, "", "", kTable, kMost / kBlock);
    ASSERT_EQ(segment, 1);
    const Bytes end = noise(100, 15);
    EXPECT_EQ(writeBytes(fp, segment, kSize, kSize - 100, end), 1);
    EXPECT_EQ(bytesOf(fp, segment, kSize, kSize - 100, 100), end);
    EXPECT_EQ(bytesOf(fp, segment, kSize, kSize - 200, 100), Bytes(100, 0));
    EXPECT_EQ(bytesOf(fp, segment, kSize, 0, 100), Bytes(100, 0));
    Bytes two(2);
    std::int64_t moved = 0;
    const Rectangle ends = {{kSize}, 1, {0}, {2}, {kSize - 1}, {}, 0, 2};
    EXPECT_EQ(move(fp, kRead, segment, ends, two.data(), &moved), 1);
    EXPECT_EQ(two, (Bytes{0, end.back()}));
    GDBClose(fp);
    expectNoReports();
}

// ---- other files ----

TEST_F(SegmentTest, AForeignImageGetsASidecarWithItsFirstSegmentAndKeepsItsHeader) {
    name = folder / "foreign.img";
    store = name + ".ks";
    const std::string header =
        "ENVI\nsamples = 2\nlines = 2\nbands = 1\nheader offset = 0\ndata type = 1\ninterleave = bsq\nbyte order = 0\n";
    hosttest::write(folder / "foreign.hdr", header);
    hosttest::write(name, "abcd");
    HostFile* fp = open();
    EXPECT_EQ(walk(fp, kTable), std::vector<int>{});
    unsigned char byte = 0;
    EXPECT_EQ(move(fp, kRead, 1, stretch(960, 0, 1), &byte, nullptr), 0);
    expectReport("no segment 1");
    EXPECT_EQ(folder.names().size(), 2U);
    GDBClose(fp);
    fp = open("r+");
    EXPECT_EQ(tableSegment(fp, 960), 1);
    EXPECT_EQ(writeBytes(fp, 1, 960, 0, noise(960, 16)), 1);
    GDBClose(fp);
    fp = open();
    EXPECT_EQ(bytesOf(fp, 1, 960), noise(960, 16));
    EXPECT_EQ(GDBChanNum(fp), 1);
    GDBClose(fp);
    EXPECT_EQ(contentsOf(folder / "foreign.hdr"), header);
    EXPECT_EQ(contentsOf(name), "abcd");
    EXPECT_EQ(folder.names().size(), 3U);
    EXPECT_EQ(allReports(), "");
}

TEST_F(SegmentTest, TheSidecarOfASpectralLibraryHoldsThemBehindItsSpectra) {
    name = folder / "library.sli";
    hosttest::write(folder / "library.hdr",
                    "ENVI\nsamples = 2\nlines = 1\nbands = 1\nheader offset = 0\ndata type = 4\ninterleave = bsq\nbyte "
                    "order = 0\nfile type = ENVI Spectral Library\nwavelength units = Nanometers\nwavelength = {400, "
                    "500}\nspectra names = {grass}\n");
    hosttest::write(name, std::string(8, '\0'));
    HostFile* fp = open("r+");
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(walk(fp, kLayer), std::vector<int>{1});
    EXPECT_EQ(tableSegment(fp, 960), 2);
    EXPECT_EQ(writeBytes(fp, 2, 960, 0, noise(960, 17)), 1);
    GDBClose(fp);
    fp = open();
    EXPECT_EQ(walk(fp, kLayer), std::vector<int>{1});
    EXPECT_EQ(walk(fp, kTable), std::vector<int>{2});
    EXPECT_EQ(bytesOf(fp, 2, 960), noise(960, 17));
    EXPECT_EQ(move(fp, kRead, 1, stretch(8, 0, 8), Bytes(8).data(), nullptr), 0);
    expectReport("segment 1 is a layer");
    GDBClose(fp);
    EXPECT_EQ(allReports(), "");
}

TEST_F(SegmentTest, ACubeHoldsThemBesideItsCodebookAndItsChannelsOnlyReadThem) {
    name = folder / "cube.vq";
    store = name + ".ks";
    ASSERT_EQ(VQubeCreate(name.c_str(), 4, 3, 2, 3, 1), 1);
    HostFile* fp = open("r+");
    KSVQubeInfo info{};
    ASSERT_EQ(VQubeGetInfo(fp, &info), 1);
    const Bytes codebook = {1, 2, 3, 4, 5, 6};
    ASSERT_EQ(VQubePutCodeBook(name.c_str(), 3, 1, 2, 2, info.panVQChans, codebook.data()), 1);
    const int segment = tableSegment(fp, 960);
    EXPECT_EQ(segment, 1);
    EXPECT_EQ(writeBytes(fp, segment, 960, 0, noise(960, 18)), 1);
    HostFile* channel = info.papfVQChan[1];
    EXPECT_EQ(bytesOf(channel, segment, 960), noise(960, 18));
    EXPECT_EQ(tableSegment(channel, 960), 0);
    expectReport("open for reading only");
    VQubeCleanUp(&info);
    GDBClose(fp);
    fp = open();
    Bytes kept(6);
    EXPECT_EQ(VQubeGetCodeBook(fp, kept.data()), 1);
    EXPECT_EQ(kept, codebook);
    EXPECT_EQ(bytesOf(fp, segment, 960), noise(960, 18));
    GDBClose(fp);
    EXPECT_EQ(allReports(), "");
}
