// What the tests of data segments share: files that hold them, and arrays in memory that a plain loop moves.
#pragma once

#include <gtest/gtest.h>
#include <kshost_app.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <numeric>
#include <string>
#include <vector>

#include "hostkit.hpp"

namespace hosttest {

using Bytes = std::vector<unsigned char>;
using Numbers = std::vector<std::int64_t>;
using Texts = std::vector<std::string>;

constexpr int kRead = 0;
constexpr int kWrite = 1;
constexpr int kTable = 180;
constexpr int kLayer = 116;
constexpr std::int64_t kBlock = 512;
constexpr std::int64_t kStoredPage = 256 * 1024;  // bytes that are stored together

inline std::size_t sizeOf(std::int64_t bytes) { return static_cast<std::size_t>(bytes); }

/// A rectangle of an array as a caller asks for it; an empty step or resume stands for null.
struct Rectangle {
    Numbers sizes;
    int elementSize = 1;
    Numbers offset;
    Numbers count;
    Numbers step = {};
    Numbers resume = {};
    std::int64_t limit = 0;
    std::int64_t room = 0;  // bytes of the buffer

    std::int64_t elements() const {
        return std::accumulate(count.begin(), count.end(), std::int64_t{1}, std::multiplies<>());
    }
};

/// A stretch of bytes.
inline Rectangle stretch(std::int64_t total, std::int64_t from, std::int64_t bytes) {
    return {{total}, 1, {from}, {bytes}, {}, {}, 0, bytes};
}

inline const std::int64_t* orNull(const Numbers& numbers) { return numbers.empty() ? nullptr : numbers.data(); }

inline int move(HostFile* fp, int mode, int segment, const Rectangle& r, void* buffer, std::int64_t* moved) {
    return IDBMultiArrayIO(fp, mode, segment, static_cast<int>(r.sizes.size()), r.sizes.data(), r.elementSize,
                           r.offset.data(), r.count.data(), orNull(r.step), orNull(r.resume), r.limit, buffer, r.room,
                           moved);
}

/// Where in the array the elements that are to be moved begin, in the order of the buffer: counted one by one.
inline Numbers placesOf(const Rectangle& r) {
    Numbers places;
    if (r.elements() == 0) return places;
    Numbers index(r.sizes.size(), 0);
    bool begun = r.resume.empty();
    for (;;) {
        begun = begun || index == r.resume;
        const auto soFar = static_cast<std::int64_t>(places.size());
        if ((r.limit > 0 && soFar == r.limit) || (soFar + 1) * r.elementSize > r.room) return places;
        if (begun) {
            std::int64_t element = 0;
            for (std::size_t d = 0; d < index.size(); ++d)
                element = element * r.sizes[d] + r.offset[d] + index[d] * (r.step.empty() ? 1 : r.step[d]);
            places.push_back(element * r.elementSize);
        }
        std::size_t d = index.size();
        while (d > 0 && ++index[d - 1] == r.count[d - 1]) index[--d] = 0;
        if (d == 0) return places;
    }
}

/// Bytes that follow from a seed and no short pattern.
inline Bytes noise(std::int64_t bytes, std::uint64_t seed) {
    Bytes made(sizeOf(bytes));
    std::uint64_t state = seed * 2654435761U + 1;
    for (unsigned char& byte : made) {
        state = state * 6364136223846793005U + 1442695040888963407U;
        byte = static_cast<unsigned char>(state >> 56U);
    }
    return made;
}

inline Bytes bytesOf(HostFile* fp, int segment, std::int64_t total, std::int64_t from, std::int64_t bytes) {
    Bytes read(sizeOf(bytes), 0xee);
    std::int64_t moved = -1;
    EXPECT_EQ(move(fp, kRead, segment, stretch(total, from, bytes), read.data(), &moved), 1);
    EXPECT_EQ(moved, bytes);
    return read;
}
inline Bytes bytesOf(HostFile* fp, int segment, std::int64_t total) { return bytesOf(fp, segment, total, 0, total); }

inline int writeBytes(HostFile* fp, int segment, std::int64_t total, std::int64_t from, Bytes bytes) {
    std::int64_t moved = -1;
    const int done =
        move(fp, kWrite, segment, stretch(total, from, static_cast<std::int64_t>(bytes.size())), bytes.data(), &moved);
    EXPECT_EQ(moved, done == 1 ? static_cast<std::int64_t>(bytes.size()) : 0);
    return done;
}

inline int tableSegment(HostFile* fp, std::int64_t bytes) {
    return IDBSegCreate(fp, "table", "a table", kTable, (bytes + kBlock - 1) / kBlock);
}

/// Status and type of a segment.
inline std::string segmentInfo(HostFile* fp, int segment) {
    char status = '?';
    int type = -1;
    EXPECT_EQ(IDBSegInfoIO(fp, segment, kRead, &status, &type, nullptr, nullptr, nullptr), 1);
    return std::string(1, status) + std::to_string(type);
}

inline std::vector<int> walk(HostFile* fp, int type) {
    std::vector<int> found;
    for (int s = GDBSegNext(fp, type, 0); s != -1 && found.size() < 100; s = GDBSegNext(fp, type, s))
        found.push_back(s);
    return found;
}

inline Texts takeList(HostStringList list) {
    Texts texts;
    for (int i = 0; i < CountStringList(list); ++i) texts.emplace_back(list[i]);
    DestroyStringList(list);
    return texts;
}

inline void setList(HostFile* fp, int level, int number, const char* key, const char* value) {
    HostStringList list = SetAuxEntry(nullptr, key, value);
    GDBMetaDataIO(fp, kWrite, level, number, list);
    DestroyStringList(list);
}

/// Tests of segments in a native file and in the sidecar of an image.
class SegmentTest : public testing::Test {
protected:
    explicit SegmentTest(const std::filesystem::path& place = std::filesystem::temp_directory_path()) : folder(place) {}

    void SetUp() override {
        setenv("KSHOST_BUSY_TIMEOUT", "50", 1);
        KSHostResetErrorCount();
    }
    void TearDown() override { unsetenv("KSHOST_BUSY_TIMEOUT"); }

    HostFile* newNative() {
        name = store = folder / "tables.ksl";
        return GDBCreate(KSHOST_TYPE_NATIVE, name.c_str(), 512, 512, 0, 1, "");
    }
    HostFile* newImage(const std::string& file = "cube.img") {
        name = folder / file;
        store = name + ".ks";
        const std::array<int, 4> channels = {0, 0, 2, 0};
        return IDBCreate(name.c_str(), 4, 3, channels.data(), "PIXEL");
    }
    HostFile* newFile(bool beside) { return beside ? newImage() : newNative(); }
    HostFile* open(const char* access = "r") { return GDBOpen(name.c_str(), access); }
    std::string onlyReport() {
        EXPECT_EQ(reports.all.size(), 1U);
        for (const Report& report : reports.all) EXPECT_EQ(std::to_string(report.code), "62");
        for (const Report& report : reports.all) EXPECT_EQ(report.severity, 1) << report.text;
        std::string text = reports.all.empty() ? std::string() : reports.all.back().text;
        reports.all.clear();
        return text;
    }
    void expectReport(const std::string& part) { EXPECT_NE(onlyReport().find(part), std::string::npos) << part; }
    std::string allReports() const {
        std::string text;
        for (const Report& report : reports.all) text += report.text + "\n";
        return text;
    }
    void expectNoReports() {
        EXPECT_EQ(allReports(), "");
        EXPECT_EQ(KSHostErrorCount(), 0);
    }

    TemporaryFolder folder;
    std::string name;   // of the file
    std::string store;  // the database that holds its segments
    Reports reports;
};

/// Tests that run on a native file and beside an image.
class Segments : public SegmentTest, public testing::WithParamInterface<bool> {
protected:
    HostFile* create() { return newFile(GetParam()); }
};

inline std::string kindOf(const testing::TestParamInfo<bool>& test) { return test.param ? "BesideAnImage" : "Native"; }

}  // namespace hosttest
