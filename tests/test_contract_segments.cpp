// What every host keeps to about data segments, through the C boundary alone, on the same two hosts as the rest of the
// contract.
#include <gtest/gtest.h>
#include <kshost.h>

#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "contract_host.hpp"

using namespace contract;

namespace {

/// Every test of data segments runs on a native file and beside an image.
struct SegmentContract : HostContract, testing::WithParamInterface<bool> {
    using Numbers = std::vector<int64_t>;

    std::string name;
    HostFile* fp = nullptr;
    const Numbers sizes = {4, 5, 6};
    const Numbers none = {};

    void SetUp() override {
        HostContract::SetUp();
        name = contract::freshName(GetParam() ? "image.img" : "tables.ksl");
        const int counts[4] = {1, 0, 0, 0};
        fp = GetParam() ? IDBCreate(name.c_str(), 3, 2, counts, "PIXEL")
                        : GDBCreate(kNativeFile, name.c_str(), 512, 512, 0, 1, "");
        ASSERT_NE(fp, nullptr);
    }
    void TearDown() override {
        GDBClose(fp);
        HostContract::TearDown();
    }
    void reopen(const char* access) {
        GDBClose(fp);
        fp = GDBOpen(name.c_str(), access);
        ASSERT_NE(fp, nullptr);
    }
    /// Moves elements of a table of sizes; the amount in bytes, or -1.
    int64_t transfer(int mode, int segment, const Numbers& offset, const Numbers& count, const Numbers& step,
                     const Numbers& resume, int64_t limit, std::vector<int64_t>& elements, int64_t room = -1) const {
        int64_t moved = -5;
        const int done = IDBMultiArrayIO(
            fp, mode, segment, 3, sizes.data(), 8, offset.data(), count.data(), step.empty() ? nullptr : step.data(),
            resume.empty() ? nullptr : resume.data(), limit, elements.data(),
            room >= 0 ? room : static_cast<int64_t>(elements.size() * sizeof(int64_t)), &moved);
        if (done != 1) {
            EXPECT_EQ(moved, 0);
        }
        return done == 1 ? moved : -1;
    }
    /// A segment that holds the table of which element i is i + 1.
    int filledTable() const {
        const int segment = IDBSegCreate(fp, "table", "a table", kTableSegment, 2);
        Numbers all(120);
        for (std::size_t i = 0; i < all.size(); ++i) all[i] = static_cast<int64_t>(i) + 1;
        EXPECT_EQ(transfer(kWrite, segment, {0, 0, 0}, sizes, none, none, 0, all), 960);
        return segment;
    }
};
INSTANTIATE_TEST_SUITE_P(Files, SegmentContract, testing::Bool(),
                         [](const auto& test) { return std::string(test.param ? "BesideAnImage" : "Native"); });

TEST_P(SegmentContract, SegmentsAreMadeDescribedAndWalked) {
    EXPECT_EQ(GDBSegNext(fp, kTableSegment, 0), -1);
    EXPECT_EQ(IDBSegCreate(fp, "first", "text", kTableSegment, 2), 1);
    EXPECT_EQ(IDBSegCreate(fp, nullptr, nullptr, 7, 0), 2);
    ASSERT_NE(GDBCreateLayer(fp, "spectra", "", ""), nullptr);
    EXPECT_EQ(IDBSegCreate(fp, "last", "", kTableSegment, 1), 4);
    for (const bool again : {false, true}) {
        if (again) reopen("r");
        EXPECT_EQ(GDBSegNext(fp, kTableSegment, 0), 1);
        EXPECT_EQ(GDBSegNext(fp, kTableSegment, 1), 4);
        EXPECT_EQ(GDBSegNext(fp, kTableSegment, 4), -1);
        EXPECT_EQ(GDBSegNext(fp, kLayerSegment, 0), 3);
        char status = ' ';
        int type = -1;
        EXPECT_EQ(IDBSegInfoIO(fp, 2, kRead, &status, &type, nullptr, nullptr, nullptr), 1);
        EXPECT_EQ(status, 'A');
        EXPECT_EQ(type, 7);
        EXPECT_EQ(IDBSegInfoIO(fp, 5, kRead, &status, &type, nullptr, nullptr, nullptr), 1);
        EXPECT_EQ(status, 'E');
        EXPECT_EQ(IDBSegInfoIO(fp, 1, kRead, nullptr, nullptr, nullptr, nullptr, nullptr), 1);
    }
}

TEST_P(SegmentContract, ANewSegmentIsZerosAndKeepsWhatIsWritten) {
    const int segment = IDBSegCreate(fp, "", "", kTableSegment, 2);
    Numbers all(120, 9);
    EXPECT_EQ(transfer(kRead, segment, {0, 0, 0}, sizes, none, none, 0, all), 960);
    EXPECT_EQ(all, Numbers(120, 0));
    const int filled = filledTable();
    reopen("r");
    EXPECT_EQ(transfer(kRead, filled, {0, 0, 0}, sizes, none, none, 0, all), 960);
    for (std::size_t i = 0; i < all.size(); ++i) EXPECT_EQ(all[i], static_cast<int64_t>(i) + 1);
    EXPECT_EQ(transfer(kRead, segment, {0, 0, 0}, sizes, none, none, 0, all), 960);
    EXPECT_EQ(all, Numbers(120, 0));
}

TEST_P(SegmentContract, ARectangleWithStepsIsMovedInOrder) {
    const int segment = filledTable();
    Numbers part(8);
    EXPECT_EQ(transfer(kRead, segment, {1, 0, 2}, {2, 2, 2}, {2, 3, 1}, none, 0, part), 64);
    // Element (a, b, c) is number 30 a + 6 b + c, counted from 0.
    EXPECT_EQ(part, (Numbers{33, 34, 51, 52, 93, 94, 111, 112}));
    Numbers written = {-1, -2, -3, -4, -5, -6, -7, -8};
    EXPECT_EQ(transfer(kWrite, segment, {1, 0, 2}, {2, 2, 2}, {2, 3, 1}, none, 0, written), 64);
    Numbers all(120);
    EXPECT_EQ(transfer(kRead, segment, {0, 0, 0}, sizes, none, none, 0, all), 960);
    Numbers expected(120);
    for (std::size_t i = 0; i < expected.size(); ++i) expected[i] = static_cast<int64_t>(i) + 1;
    for (std::size_t i = 0; i < part.size(); ++i) expected[static_cast<std::size_t>(part[i] - 1)] = written[i];
    EXPECT_EQ(all, expected);
}

TEST_P(SegmentContract, ATransferResumesAndIsLimited) {
    const int segment = filledTable();
    Numbers part(5, -1);
    EXPECT_EQ(transfer(kRead, segment, {0, 1, 0}, {4, 2, 6}, none, {1, 1, 4}, 3, part), 24);
    EXPECT_EQ(part, (Numbers{47, 48, 67, -1, -1}));
    EXPECT_EQ(transfer(kRead, segment, {0, 1, 0}, {4, 2, 6}, none, {3, 1, 3}, 0, part), 24) << "up to the end";
    EXPECT_EQ(part, (Numbers{106, 107, 108, -1, -1}));
    part.assign(5, -1);
    EXPECT_EQ(transfer(kRead, segment, {0, 0, 0}, sizes, none, none, 0, part, 20), 16) << "whole elements only";
    EXPECT_EQ(part, (Numbers{1, 2, -1, -1, -1}));
    EXPECT_EQ(transfer(kRead, segment, {0, 0, 0}, sizes, none, none, 9, part, 24), 24) << "the buffer limits too";
    EXPECT_EQ(transfer(kRead, segment, {0, 0, 0}, {4, 0, 6}, none, none, 0, part), 0) << "no element is asked for";
    Numbers written = {-7, -8, -9};
    EXPECT_EQ(transfer(kWrite, segment, {2, 0, 0}, {1, 1, 6}, none, {0, 0, 3}, 2, written), 16);
    part.assign(6, 0);
    EXPECT_EQ(transfer(kRead, segment, {2, 0, 0}, {1, 1, 6}, none, none, 0, part), 48);
    EXPECT_EQ(part, (Numbers{61, 62, 63, -7, -8, 66}));
}

TEST_P(SegmentContract, WhatMakesNoSenseMovesNothing) {
    const int segment = filledTable();
    ASSERT_NE(GDBCreateLayer(fp, "spectra", "", ""), nullptr);
    Numbers buffer(120, -1);
    const Numbers start = {0, 0, 0};
    for (const int mode : {kRead, kWrite}) {
        EXPECT_EQ(transfer(mode, 9, start, sizes, none, none, 0, buffer), -1);
        EXPECT_EQ(transfer(mode, segment + 1, start, sizes, none, none, 0, buffer), -1) << "a layer";
        EXPECT_EQ(transfer(mode, segment, {0, 0, 1}, sizes, none, none, 0, buffer), -1);
        EXPECT_EQ(transfer(mode, segment, {0, -1, 0}, {1, 1, 1}, none, none, 0, buffer), -1);
        EXPECT_EQ(transfer(mode, segment, {4, 0, 0}, {1, 1, 1}, none, none, 0, buffer), -1);
        EXPECT_EQ(transfer(mode, segment, start, {4, 5, 7}, none, none, 0, buffer), -1);
        EXPECT_EQ(transfer(mode, segment, start, {-4, 5, 6}, none, none, 0, buffer), -1);
        EXPECT_EQ(transfer(mode, segment, start, {4, 5, 6}, {1, 0, 1}, none, 0, buffer), -1);
        EXPECT_EQ(transfer(mode, segment, start, {4, 5, 6}, {1, 1, 2}, none, 0, buffer), -1);
        EXPECT_EQ(transfer(mode, segment, start, {2, 2, 2}, none, {0, 2, 0}, 0, buffer), -1);
        EXPECT_EQ(transfer(mode, segment, start, {2, 2, 2}, none, {0, -1, 0}, 0, buffer), -1);
        EXPECT_EQ(transfer(mode, segment, start, sizes, none, none, -1, buffer), -1);
    }
    EXPECT_EQ(transfer(2, segment, start, sizes, none, none, 0, buffer), -1);
    int64_t moved = -5;
    const int64_t whole[3] = {4, 5, 6};
    const auto move = [&](int dimensions, const int64_t* given, int elementSize, void* to) {
        moved = -5;
        return IDBMultiArrayIO(fp, kRead, segment, dimensions, given, elementSize, start.data(), whole, nullptr,
                               nullptr, 0, to, 960, &moved);
    };
    EXPECT_EQ(move(3, whole, 9, buffer.data()), 0) << "the array is larger than the segment";
    EXPECT_EQ(moved, 0);
    EXPECT_EQ(move(0, whole, 8, buffer.data()), 0);
    EXPECT_EQ(move(3, nullptr, 8, buffer.data()), 0);
    EXPECT_EQ(move(3, whole, 0, buffer.data()), 0);
    EXPECT_EQ(move(3, whole, 8, nullptr), 0);
    const int64_t vast[3] = {4, 5, INT64_MAX / 2};
    EXPECT_EQ(move(3, vast, 8, buffer.data()), 0);
    EXPECT_EQ(moved, 0);
    EXPECT_EQ(buffer, Numbers(120, -1));
    EXPECT_EQ(transfer(kRead, segment, start, sizes, none, none, 0, buffer), 960);
    EXPECT_EQ(buffer.front(), 1);
    EXPECT_EQ(buffer.back(), 120);
}

TEST_P(SegmentContract, SegmentsThatCannotBeMadeAreNot) {
    EXPECT_EQ(IDBSegCreate(fp, "", "", kTableSegment, -1), 0);
    EXPECT_EQ(IDBSegCreate(fp, "", "", kLayerSegment, 1), 0);
    EXPECT_EQ(IDBSegCreate(fp, "", "", 0, 1), 0);
    EXPECT_EQ(IDBSegCreate(nullptr, "", "", kTableSegment, 1), 0);
    EXPECT_EQ(IDBSegInfoIO(nullptr, 1, kRead, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
    HostFile* memory = GDBCreate(kMemoryFile, "", 512, 512, 0, 1, "");
    EXPECT_EQ(IDBSegCreate(memory, "", "", kTableSegment, 1), 0);
    GDBClose(memory);
    const int segment = filledTable();
    EXPECT_EQ(segment, 1);
    reopen("r");
    EXPECT_EQ(IDBSegCreate(fp, "", "", kTableSegment, 1), 0);
    Numbers buffer(120, -1);
    EXPECT_EQ(transfer(kWrite, segment, {0, 0, 0}, sizes, none, none, 0, buffer), -1);
    EXPECT_EQ(transfer(kRead, segment, {0, 0, 0}, {1, 1, 2}, none, none, 0, buffer), 16);
    EXPECT_EQ(buffer[1], 2);
}

TEST_P(SegmentContract, ASegmentHasAListAtItsOwnLevel) {
    const int segment = filledTable();
    HostStringList list = SetAuxEntry(nullptr, "KSLUTDimensions", "3");
    EXPECT_EQ(GDBMetaDataIO(fp, kWrite, kTableSegment, segment, list), nullptr);
    DestroyStringList(list);
    for (const bool again : {false, true}) {
        if (again) reopen("r");
        for (const int level : {kTableSegment, 3})
            EXPECT_EQ(takeEntries(GDBMetaDataIO(fp, kRead, level, segment, nullptr)),
                      (std::vector<std::string>{"KSLUTDimensions=3"}))
                << level;
        EXPECT_STREQ(GDBFetchMetaDataEntry(fp, kTableSegment, segment, "KSLUTDimensions"), "3");
        EXPECT_EQ(GDBMetaDataIO(fp, kRead, kLayerSegment, segment, nullptr), nullptr) << "of another type";
        EXPECT_EQ(GDBMetaDataIO(fp, kRead, kTableSegment, segment + 1, nullptr), nullptr);
    }
}

int transferUnderATrap(HostFile* fp, int segment, int64_t* pnMoved) {
    const int64_t size = 120;
    const int64_t start = 0;
    int64_t element = 0;
    if (IMP_Protect() == nullptr) return -1;
    if (setjmp(*IMPProtectBuffer()) != 0) return 1;
    IDBMultiArrayIO(fp, kRead, segment, 1, &size, 8, &start, &size, nullptr, nullptr, 1, &element, 8, pnMoved);
    IMPUnprotect();
    return 0;
}

int createUnderATrap(HostFile* fp, int64_t blocks) {
    if (IMP_Protect() == nullptr) return -1;
    if (setjmp(*IMPProtectBuffer()) != 0) return 1;
    IDBSegCreate(fp, "", "", kTableSegment, blocks);
    IMPUnprotect();
    return 0;
}

TEST_P(SegmentContract, AFailureJumpsToTheTrapAndMovesNothing) {
    const int segment = filledTable();
    int64_t moved = -5;
    EXPECT_EQ(transferUnderATrap(fp, segment + 1, &moved), 1);
    EXPECT_EQ(moved, 0);
    EXPECT_EQ(transferUnderATrap(fp, segment, &moved), 0);
    EXPECT_EQ(moved, 8);
    EXPECT_EQ(createUnderATrap(fp, -1), 1);
    EXPECT_EQ(createUnderATrap(fp, 1), 0);
    EXPECT_EQ(IDBSegCreate(fp, "", "", kTableSegment, -1), 0) << "no trap is left to jump to";
}

}  // namespace
