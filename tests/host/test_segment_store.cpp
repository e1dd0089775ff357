// How data segments are stored: what a killed, failing or hindered process leaves, what other programs do meanwhile,
// and files that are damaged, older or not ours.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "otherprogram.hpp"
#include "segmentkit.hpp"

using namespace hosttest;

namespace {

constexpr std::int64_t kSize = 4 * kStoredPage;

/// The integer that a query of another program gives.
std::int64_t query(const std::string& path, const char* sql) {
    sqlite3* db = nullptr;
    sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    std::int64_t value = -1;
    sqlite3_exec(
        db, sql,
        [](void* to, int, char** columns, char**) {
            *static_cast<std::int64_t*>(to) = columns[0] == nullptr ? -1 : std::atoll(columns[0]);
            return 0;
        },
        &value, nullptr);
    sqlite3_close(db);
    return value;
}

std::vector<std::string> history(HostFile* fp) { return takeList(KSHostGetHistory(fp)); }

}  // namespace

class StoredSegments : public Segments {
protected:
    /// A file with one table of known bytes, which are given back.
    Bytes makeTable() {
        HostFile* fp = create();
        Bytes bytes = noise(kSize, 1);
        EXPECT_EQ(tableSegment(fp, kSize), 1);
        EXPECT_EQ(writeBytes(fp, 1, kSize, 0, bytes), 1);
        GDBClose(fp);
        expectNoReports();
        return bytes;
    }
};
INSTANTIATE_TEST_SUITE_P(Files, StoredSegments, testing::Bool(), kindOf);

// ---- together with what was gathered ----

TEST_P(StoredSegments, WhatWasGatheredIsStoredBeforeASegmentIsMade) {
    HostFile* fp = create();
    setList(fp, 1, -1, "Key", "gathered");
    GDBWriteHistory(fp, 1, -1, "an entry");
    GDBCreateLayer(fp, "spectra", "", "");
    ASSERT_EQ(tableSegment(fp, 960), 2);
    EXPECT_TRUE(succeeded(inChild([&] {  // another process sees only what is on the disk
        return query(store, "SELECT count(*) FROM entries WHERE entry = 'Key=gathered'") == 1 &&
                       query(store, "SELECT count(*) FROM history") == 1 &&
                       query(store, "SELECT count(*) FROM segments") == 2
                   ? 0
                   : 1;
    })));
    setList(fp, kTable, 2, "Key", "of the table");
    EXPECT_EQ(query(store, "SELECT count(*) FROM entries"), 1);
    EXPECT_EQ(writeBytes(fp, 2, 960, 0, Bytes(1, 7)), 1);
    EXPECT_EQ(query(store, "SELECT count(*) FROM entries"), 2) << "and before one is written to";
    GDBClose(fp);
    expectNoReports();
}

TEST_P(StoredSegments, WhatCannotBeStoredKeepsASegmentFromBeingMade) {
    const Bytes before = makeTable();
    HostFile* fp = open("r+");
    setList(fp, 1, -1, "Key", "gathered");
    {
        OtherProgram other(store);
        other.run("BEGIN IMMEDIATE");
        EXPECT_EQ(tableSegment(fp, 960), 0);
        expectReport("locked by another program");
        EXPECT_EQ(writeBytes(fp, 1, kSize, 0, Bytes(8, 0)), 0);
        expectReport("locked by another program");
        EXPECT_EQ(walk(fp, kTable), std::vector<int>{1});
    }
    EXPECT_EQ(bytesOf(fp, 1, kSize), before);
    EXPECT_EQ(tableSegment(fp, 960), 2);
    GDBClose(fp);
    fp = open();
    EXPECT_STREQ(GDBFetchMetaDataEntry(fp, 1, -1, "Key"), "gathered");
    GDBClose(fp);
    EXPECT_EQ(allReports(), "");
}

TEST_P(StoredSegments, LayersListsAndHistorySurviveTheFirstSegment) {
    HostFile* fp = create();
    HostLayer* layer = GDBCreateLayer(fp, "spectra", "a text", "");
    GDBDefineNewField(layer, "m450_000", 2);
    GDBSetValue(layer, GDBCreateShape(layer, 0), 0, 0.1);
    setList(fp, 1, -1, "Key", "of the file");
    setList(fp, 3, 1, "Key", "of the layer");
    GDBWriteHistory(fp, 1, -1, "an entry");
    GDBClose(fp);
    EXPECT_LT(query(store, "PRAGMA page_size"), 65536) << "files without data stay small";
    fp = open("r+");
    ASSERT_EQ(tableSegment(fp, 960), 2);
    GDBClose(fp);
    EXPECT_EQ(query(store, "PRAGMA page_size"), 65536);
    EXPECT_EQ(query(store, "PRAGMA user_version"), 4);
    fp = open();
    EXPECT_EQ(GDBGetValue(GDBGetLayer(fp, 1), 0, 0), 0.1);
    EXPECT_STREQ(GDBFetchMetaDataEntry(fp, 1, -1, "Key"), "of the file");
    EXPECT_STREQ(GDBFetchMetaDataEntry(fp, kLayer, 1, "Key"), "of the layer");
    EXPECT_EQ(history(fp), Texts{"an entry"});
    GDBClose(fp);
    EXPECT_EQ(folder.names().size(), GetParam() ? 3U : 1U) << "nothing lies about";
    expectNoReports();
}

// ---- locks ----

TEST_P(StoredSegments, ALockedFileIsReportedAndReadingGoesOnBesideAWriter) {
    const Bytes before = makeTable();
    HostFile* fp = open("r+");
    {
        OtherProgram other(store);
        other.run("BEGIN IMMEDIATE");
        EXPECT_EQ(bytesOf(fp, 1, kSize), before);
        EXPECT_EQ(writeBytes(fp, 1, kSize, 5, Bytes(100, 9)), 0);
        expectReport("locked by another program");
        EXPECT_EQ(tableSegment(fp, 960), 0);
        expectReport("locked by another program");
        other.run("ROLLBACK; BEGIN EXCLUSIVE");
        Bytes buffer(10, 3);
        std::int64_t moved = -1;
        EXPECT_EQ(move(fp, kRead, 1, stretch(kSize, 0, 10), buffer.data(), &moved), 0);
        EXPECT_EQ(moved, 0);
        expectReport("locked by another program");
    }
    EXPECT_EQ(bytesOf(fp, 1, kSize), before);
    {
        OtherProgram other(store);
        other.run("BEGIN EXCLUSIVE; ROLLBACK");  // no call of ours has left a lock
    }
    GDBClose(fp);
}

TEST_P(StoredSegments, ProcessesThatWriteAtTheSameTimeWaitForEachOther) {
    setenv("KSHOST_BUSY_TIMEOUT", "60000", 1);
    HostFile* fp = create();
    ASSERT_EQ(tableSegment(fp, 4000), 1);
    GDBClose(fp);
    constexpr int kWrites = 25;
    std::vector<pid_t> children;
    for (int child = 0; child < 2; ++child) {
        children.push_back(fork());
        if (children.back() != 0) continue;
        HostFile* mine = open("r+");
        int done = 0;
        for (int i = 0; i < kWrites; ++i)
            done += writeBytes(mine, 1, 4000, 2 * i + child, Bytes(1, static_cast<unsigned char>(1 + child)));
        _exit(done == kWrites ? 0 : 1);
    }
    for (const pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(succeeded(status));
    }
    Bytes expected(4000, 0);
    for (int i = 0; i < kWrites; ++i) expected[sizeOf(2 * i)] = 1, expected[sizeOf(2 * i + 1)] = 2;
    fp = open();
    EXPECT_EQ(bytesOf(fp, 1, 4000), expected);
    GDBClose(fp);
}

TEST_P(StoredSegments, ProcessesThatMakeTheFirstSegmentAtTheSameTimeLeaveEachWhatItWasTold) {
    setenv("KSHOST_BUSY_TIMEOUT", "60000", 1);
    int made = 0;
    for (int round = 0; round < 8; ++round) {
        HostFile* fp = create();
        ASSERT_NE(fp, nullptr);
        setList(fp, 1, -1, "Key", "kept");
        GDBClose(fp);
        std::vector<pid_t> children;
        for (int child = 0; child < 2; ++child) {
            children.push_back(fork());
            if (children.back() == 0) _exit(tableSegment(open("r+"), 960));
        }
        std::vector<int> told;
        for (const pid_t child : children) {
            int status = 0;
            waitpid(child, &status, 0);
            ASSERT_TRUE(WIFEXITED(status));
            if (WEXITSTATUS(status) != 0) told.push_back(WEXITSTATUS(status));
        }
        std::sort(told.begin(), told.end());
        fp = open();
        ASSERT_NE(fp, nullptr);
        EXPECT_EQ(walk(fp, kTable), told);
        EXPECT_STREQ(GDBFetchMetaDataEntry(fp, 1, -1, "Key"), "kept");
        for (const int segment : told) EXPECT_EQ(bytesOf(fp, segment, 960), Bytes(960, 0));
        GDBClose(fp);
        made += static_cast<int>(told.size());
        for (const std::string& file : folder.names()) unlink((folder / file).c_str());
    }
    EXPECT_GE(made, 8) << "one of two is never refused";
    expectNoReports();
}

// ---- other programs ----

TEST_P(StoredSegments, WhatAnotherProgramWritesIsReadAtOnce) {
    makeTable();
    HostFile* fp = open();
    const Bytes theirs = noise(kSize, 2);
    EXPECT_TRUE(succeeded(inChild([&] {
        HostFile* other = open("r+");
        return writeBytes(other, 1, kSize, 0, theirs) == 1 ? 0 : 1;
    })));
    EXPECT_EQ(bytesOf(fp, 1, kSize), theirs);
    GDBClose(fp);
    expectNoReports();
}

TEST_P(StoredSegments, ANumberTakenByAnotherProgramIsReportedAndItsSegmentStays) {
    makeTable();
    HostFile* fp = open("r+");
    const Bytes theirs = noise(3000, 3);
    EXPECT_TRUE(succeeded(inChild([&] {
        HostFile* other = open("r+");
        return tableSegment(other, 3000) == 2 && writeBytes(other, 2, 3000, 0, theirs) == 1 ? 0 : 1;
    })));
    EXPECT_EQ(tableSegment(fp, 960), 0);
    expectReport("another segment 2 from another program");
    HostFile* again = open("r+");
    EXPECT_EQ(segmentInfo(fp, 2), "A180");
    EXPECT_EQ(bytesOf(fp, 2, 3000), theirs);
    EXPECT_EQ(tableSegment(fp, 960), 3);
    GDBClose(again);
    GDBClose(fp);
    EXPECT_EQ(allReports(), "");
}

TEST_P(StoredSegments, ASegmentThatAnotherProgramTookAwayIsReported) {
    makeTable();
    HostFile* fp = open("r+");
    OtherProgram(store).run("DELETE FROM data_segments; DELETE FROM segments; DELETE FROM data_pages");
    Bytes buffer(10, 3);
    std::int64_t moved = -1;
    for (const int mode : {kRead, kWrite}) {
        EXPECT_EQ(move(fp, mode, 1, stretch(kSize, 0, 10), buffer.data(), &moved), 0);
        EXPECT_EQ(moved, 0);
        expectReport("no data in segment 1");
    }
    EXPECT_EQ(query(store, "SELECT count(*) FROM data_pages"), 0);
    GDBClose(fp);
}

TEST_P(StoredSegments, NoNumberFollowsTheHighest) {
    makeTable();
    OtherProgram(store).run("UPDATE segments SET number = 2147483647");
    HostFile* fp = open("r+");
    EXPECT_EQ(tableSegment(fp, 960), 0);
    expectReport("segment 2147483647, the last that there can be");
    EXPECT_EQ(GDBCreateLayer(fp, "layer", nullptr, nullptr), nullptr);
    expectReport("segment 2147483647, the last that there can be");
    GDBClose(fp);
}

TEST_P(StoredSegments, ALayerIsNotStoredOverTheTableOfAnotherProgram) {
    HostFile* fp = create();
    HostLayer* layer = GDBCreateLayer(fp, "layer", nullptr, nullptr);
    ASSERT_EQ(KSHostFlush(fp), 1);
    EXPECT_EQ(GDBDefineNewField(layer, "x", 2), 0);
    OtherProgram(store).run("UPDATE segments SET type = 180");
    EXPECT_EQ(KSHostFlush(fp), 0);
    expectReport("another segment 1 from another program");
    EXPECT_EQ(query(store, "SELECT type FROM segments"), 180);
    GDBClose(fp);
}

// ---- what vanishes ----

TEST_P(StoredSegments, AStoreDeletedMeanwhileIsReported) {
    makeTable();
    HostFile* fp = open("r+");
    unlink(store.c_str());
    Bytes buffer(10, 3);
    std::int64_t moved = -1;
    EXPECT_EQ(move(fp, kRead, 1, stretch(kSize, 0, 10), buffer.data(), &moved), 0);
    EXPECT_EQ(moved, 0);
    expectReport("has vanished");
    EXPECT_EQ(move(fp, kWrite, 1, stretch(kSize, 0, 10), buffer.data(), &moved), 0);
    EXPECT_EQ(moved, 0);
    expectReport(GetParam() ? "has vanished" : "deleted or replaced");
    EXPECT_NE(access(store.c_str(), F_OK), 0) << "a failed write makes no file";
    GDBClose(fp);
}

TEST_F(SegmentTest, ASidecarDeletedMeanwhileIsMadeAnewWithoutItsTables) {
    HostFile* fp = newImage();
    ASSERT_EQ(tableSegment(fp, 960), 1);
    setList(fp, kTable, 1, "Key", "of the table");
    setList(fp, 2, 1, "Key", "of the channel");
    ASSERT_EQ(KSHostFlush(fp), 1);
    unlink(store.c_str());
    const int segment = tableSegment(fp, 2000);
    ASSERT_GE(segment, 1);
    EXPECT_EQ(query(store, "PRAGMA page_size"), 65536);
    const Bytes bytes = noise(2000, 4);
    EXPECT_EQ(writeBytes(fp, segment, 2000, 0, bytes), 1);
    for (const bool again : {false, true}) {
        if (again) {
            GDBClose(fp);
            fp = open();
        }
        EXPECT_EQ(walk(fp, kTable), std::vector<int>{segment});
        EXPECT_EQ(takeList(GDBMetaDataIO(fp, kRead, kTable, segment, nullptr)), Texts{});
        EXPECT_STREQ(GDBFetchMetaDataEntry(fp, 2, 1, "Key"), "of the channel");
        EXPECT_EQ(bytesOf(fp, segment, 2000), bytes);
    }
    GDBClose(fp);
    expectNoReports();
}

TEST_F(SegmentTest, AnImageReplacedMeanwhileTakesNoTables) {
    HostFile* fp = newImage();
    ASSERT_EQ(tableSegment(fp, 960), 1);
    const std::string image = contentsOf(name);
    hosttest::write(folder / "successor", image);
    ASSERT_EQ(rename((folder / "successor").c_str(), name.c_str()), 0);
    EXPECT_EQ(tableSegment(fp, 960), 0);
    expectReport("deleted or replaced");
    EXPECT_EQ(writeBytes(fp, 1, 960, 0, Bytes(10, 1)), 0);
    expectReport("deleted or replaced");
    EXPECT_EQ(bytesOf(fp, 1, 960), Bytes(960, 0));
    GDBClose(fp);
}

// ---- space and permissions ----

TEST_P(StoredSegments, AFullDiskLeavesTheSegmentAsItWas) {
    HostFile* fp = create();
    constexpr std::int64_t kLarge = 32 * kStoredPage;  // more than SQLite keeps in memory before it writes
    ASSERT_EQ(tableSegment(fp, kLarge), 1);
    const Bytes before = noise(kStoredPage, 5);
    ASSERT_EQ(writeBytes(fp, 1, kLarge, 1000, before), 1);
    for (const rlim_t limit : {rlim_t{400} << 10U, rlim_t{2} << 20U, rlim_t{6} << 20U}) {
        {
            const FullDisk full(limit);
            EXPECT_EQ(writeBytes(fp, 1, kLarge, 0, noise(kLarge, 6)), 0);
        }
        expectReport("no room to write");
        EXPECT_EQ(bytesOf(fp, 1, kLarge, 1000, kStoredPage), before);
        EXPECT_EQ(bytesOf(fp, 1, kLarge, 2 * kStoredPage, 10 * kStoredPage), Bytes(10 * kStoredPage, 0));
    }
    EXPECT_EQ(writeBytes(fp, 1, kLarge, 0, noise(kLarge, 6)), 1);
    EXPECT_TRUE(bytesOf(fp, 1, kLarge) == noise(kLarge, 6));
    GDBClose(fp);
    EXPECT_EQ(allReports(), "");
}

TEST_P(StoredSegments, AFullDiskTakesNoNewSegment) {
    HostFile* fp = create();
    setList(fp, 1, -1, "Key", "kept");
    ASSERT_EQ(KSHostFlush(fp), 1);
    {
        const FullDisk full(100 * 1000);  // less than two pages of a database that holds data
        EXPECT_EQ(tableSegment(fp, 960), 0);
    }
    expectReport("no room to write");
    EXPECT_EQ(walk(fp, kTable), std::vector<int>{});
    EXPECT_EQ(tableSegment(fp, 960), 1);
    GDBClose(fp);
    fp = open();
    EXPECT_STREQ(GDBFetchMetaDataEntry(fp, 1, -1, "Key"), "kept");
    EXPECT_EQ(walk(fp, kTable), std::vector<int>{1});
    GDBClose(fp);
    EXPECT_EQ(allReports(), "");
}

TEST_P(StoredSegments, ReadOnlyMediaAreRead) {
    const Bytes bytes = makeTable();
    for (const std::string& file : folder.names()) ASSERT_EQ(chmod((folder / file).c_str(), 0444), 0);
    ASSERT_EQ(chmod(folder.path().c_str(), 0555), 0);
    EXPECT_TRUE(succeeded(asNobody([&] {
        HostFile* fp = open();
        if (fp == nullptr) return 1;
        if (walk(fp, kTable) != std::vector<int>{1}) return 2;
        if (bytesOf(fp, 1, kSize) != bytes) return 3;
        GDBClose(fp);
        return KSHostErrorCount() == 0 ? 0 : 4;
    })));
    EXPECT_TRUE(succeeded(asNobody([&] {
        HostFile* fp = open("r+");  // an image opens for its metadata, and then has no place for them
        if (fp == nullptr) return 0;
        const bool refused = tableSegment(fp, 960) == 0 && writeBytes(fp, 1, kSize, 0, Bytes(1, 1)) == 0;
        return refused && reports.mention("cannot be opened or written") ? 0 : 1;
    })));
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
}

// ---- files that are not as they should be ----

TEST_P(StoredSegments, DamagedDataAreRefusedAndTheRestIsRead) {
    const Bytes bytes = makeTable();
    const std::string good = contentsOf(store);
    struct Damage {
        const char* sql;
        const char* reason;
        bool wholePage;  // a page that is replaced whole is good again
    };
    const std::vector<Damage> damages = {
        {"UPDATE data_pages SET bytes = x'0011' WHERE page = 1", "damaged data in segment 1", true},
        {"UPDATE data_pages SET bytes = x'' WHERE page = 1", "damaged data in segment 1", true},
        {"UPDATE data_pages SET bytes = zeroblob(262145) WHERE page = 1", "damaged data in segment 1", true},
        {"UPDATE data_pages SET bytes = 'text' WHERE page = 1", "damaged data in segment 1", true},
        {"UPDATE data_pages SET bytes = 17 WHERE page = 1", "damaged data in segment 1", true},
        {"DELETE FROM data_segments", "no data in segment 1", false},
        {"UPDATE data_segments SET blocks = 9223372036854775807", "damaged data in segment 1", false},
        {"UPDATE data_segments SET blocks = -5", "damaged data in segment 1", false},
        {"UPDATE data_segments SET blocks = 'text'", "too few for an array", false},
        {"UPDATE data_segments SET blocks = 3", "too few for an array", false}};
    for (const Damage& damage : damages) {
        hosttest::write(store, good);
        OtherProgram(store).run(damage.sql);
        HostFile* fp = open("r+");
        ASSERT_NE(fp, nullptr);
        Bytes buffer(100, 3);
        std::int64_t moved = -1;
        for (const int mode : {kRead, kWrite}) {
            EXPECT_EQ(move(fp, mode, 1, stretch(kSize, kStoredPage + 5, 100), buffer.data(), &moved), 0) << damage.sql;
            EXPECT_EQ(moved, 0);
            expectReport(damage.reason);
        }
        if (damage.wholePage) {
            EXPECT_EQ(bytesOf(fp, 1, kSize, 0, kStoredPage), Bytes(bytes.begin(), bytes.begin() + kStoredPage));
            const Bytes replaced = noise(kStoredPage, 7);
            EXPECT_EQ(writeBytes(fp, 1, kSize, kStoredPage, replaced), 1);
            EXPECT_EQ(bytesOf(fp, 1, kSize, kStoredPage, kStoredPage), replaced);
        }
        GDBClose(fp);
        EXPECT_EQ(allReports(), "");
    }
}

TEST_P(StoredSegments, ADatabaseBrokenAnywhereNeverCrashes) {
    makeTable();
    const std::string good = contentsOf(store);
    int refused = 0;
    for (std::size_t at = 0; at < good.size(); at += at < 200 ? 7 : good.size() / 60) {
        std::string bad = good;
        for (std::size_t i = at; i < std::min(bad.size(), at + 16); ++i) bad[i] = static_cast<char>(~bad[i]);
        hosttest::write(store, bad);
        HostFile* fp = open("r+");
        if (fp != nullptr) {
            Bytes buffer(sizeOf(kSize));
            std::int64_t moved = -1;
            const bool read = move(fp, kRead, 1, stretch(kSize, 0, kSize), buffer.data(), &moved) == 1;
            EXPECT_EQ(moved, read ? kSize : 0);
            const bool written = move(fp, kWrite, 1, stretch(kSize, 0, 100), buffer.data(), &moved) == 1;
            EXPECT_EQ(moved, written ? 100 : 0);
            refused += !read || !written ? 1 : 0;
            EXPECT_EQ(!read || !written, !reports.all.empty());
        } else {
            ++refused;
        }
        GDBClose(fp);
        reports.all.clear();
    }
    EXPECT_GT(refused, 3);
}

TEST_P(StoredSegments, AFileOfAnEarlierVersionIsReadAndGrowsWithItsFirstSegment) {
    for (const int version : {3, 2, 1}) {
        HostFile* fp = create();
        ASSERT_NE(fp, nullptr);
        GDBWriteHistory(fp, 1, -1, "kept");
        if (version == 3) GDBCreateLayer(fp, "spectra", "", "");
        GDBClose(fp);
        {
            OtherProgram older(store);
            older.run("DROP TABLE data_segments; DROP TABLE data_pages; PRAGMA user_version = 3");
            if (version < 3)
                older.run("DROP TABLE segments; DROP TABLE fields; DROP TABLE shapes; PRAGMA user_version = 2");
            if (version < 2) older.run("DROP TABLE codebook; DROP TABLE code_vectors; PRAGMA user_version = 1");
        }
        fp = open("r+");
        ASSERT_NE(fp, nullptr);
        EXPECT_EQ(walk(fp, kTable), std::vector<int>{});
        GDBWriteHistory(fp, 1, -1, "more");
        const int segment = tableSegment(fp, 3000);
        EXPECT_EQ(segment, version == 3 ? 2 : 1);
        const Bytes bytes = noise(3000, 8);
        EXPECT_EQ(writeBytes(fp, segment, 3000, 0, bytes), 1);
        EXPECT_NE(GDBCreateLayer(fp, "spectra", "", ""), nullptr);
        GDBClose(fp);
        EXPECT_EQ(query(store, "PRAGMA user_version"), 4);
        fp = open();
        EXPECT_EQ(bytesOf(fp, segment, 3000), bytes);
        EXPECT_EQ(walk(fp, kLayer).back(), segment + 1);
        EXPECT_EQ(history(fp), (Texts{"kept", "more"}));
        GDBClose(fp);
        for (const std::string& file : folder.names()) unlink((folder / file).c_str());
    }
    expectNoReports();
}

TEST_P(StoredSegments, AnEarlierVersionWithAPageOfDataButNoTableForItIsRefused) {
    makeTable();
    OtherProgram(store).run("DROP TABLE data_segments; DROP TABLE data_pages; PRAGMA user_version = 3");
    HostFile* fp = open("r+");
    ASSERT_NE(fp, nullptr);
    Bytes buffer(10);
    std::int64_t moved = -1;
    for (const int mode : {kRead, kWrite}) {
        EXPECT_EQ(move(fp, mode, 1, stretch(kSize, 0, 10), buffer.data(), &moved), 0);
        EXPECT_EQ(moved, 0);
        expectReport("holds no data segments");
    }
    GDBClose(fp);
}

TEST_F(SegmentTest, ADatabaseOfAnotherProgramIsRefusedAndNotRewritten) {
    for (const char* mode : {"DELETE", "WAL"}) {
        HostFile* fp = newImage(std::string(mode) + ".img");
        ASSERT_EQ(tableSegment(fp, 960), 1);
        unlink(store.c_str());
        {
            OtherProgram other(store);
            other.run((std::string("PRAGMA page_size = 1024; PRAGMA journal_mode = ") + mode).c_str());
            other.run("CREATE TABLE theirs(a); INSERT INTO theirs VALUES (1), (2)");
        }
        const std::string before = contentsOf(store);
        EXPECT_EQ(tableSegment(fp, 960), 0);
        expectReport("database of another program");
        EXPECT_EQ(writeBytes(fp, 1, 960, 0, Bytes(10, 1)), 0);
        expectReport("database of another program");
        Bytes buffer(10);
        EXPECT_EQ(move(fp, kRead, 1, stretch(960, 0, 10), buffer.data(), nullptr), 0);
        expectReport("database of another program");
        EXPECT_TRUE(contentsOf(store) == before) << mode;
        GDBClose(fp);
        EXPECT_EQ(allReports(), "");
        EXPECT_EQ(query(store, "SELECT sum(a) FROM theirs"), 3);
    }
}

TEST_F(SegmentTest, ASidecarOfAnotherImageIsRefused) {
    const std::array<int, 4> channels = {0, 0, 1, 0};
    GDBClose(IDBCreate((folder / "other.img").c_str(), 9, 9, channels.data(), "PIXEL"));
    HostFile* fp = newImage();
    ASSERT_EQ(tableSegment(fp, 960), 1);
    std::filesystem::copy_file(folder / "other.img.ks", store, std::filesystem::copy_options::overwrite_existing);
    EXPECT_EQ(tableSegment(fp, 960), 0);
    expectReport("belongs to another image");
    GDBClose(fp);
}
