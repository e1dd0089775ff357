// Rectangles of multi-dimensional arrays in data segments, against a plain loop over an array in memory.
#include <algorithm>
#include <cstring>
#include <limits>
#include <random>

#include "hyperrectangle.hpp"
#include "segmentkit.hpp"

using namespace hosttest;

namespace {

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();

class Random {
public:
    explicit Random(unsigned seed) : engine_(seed) {}
    std::int64_t within(std::int64_t low, std::int64_t high) {
        return std::uniform_int_distribution<std::int64_t>(low, high)(engine_);
    }
    bool oneIn(int n) { return within(1, n) == 1; }

private:
    std::mt19937 engine_;
};

/// Sizes of a rank whose elements fit into so many bytes.
Numbers randomSizes(Random& random, int rank, std::int64_t elements) {
    Numbers sizes(sizeOf(rank), 1);
    std::vector<std::size_t> order(sizes.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    for (std::size_t i = order.size(); i-- > 1;)
        std::swap(order[i], order[sizeOf(random.within(0, static_cast<std::int64_t>(i)))]);
    std::int64_t left = std::max<std::int64_t>(1, random.within(elements / 4, elements));
    for (std::size_t i = 0; i < order.size(); ++i) {
        const bool last = i + 1 == order.size();
        const std::int64_t most = last ? left : std::min<std::int64_t>(left, random.oneIn(4) ? 40 : 6);
        sizes[order[i]] = last ? most : random.within(1, most);
        left /= sizes[order[i]];
    }
    return sizes;
}

/// A rectangle of an array that takes at most so many bytes; small ones are not rare, and neither are whole dimensions.
Rectangle randomRectangle(Random& random, int rank, int elementSize, std::int64_t bytes) {
    Rectangle r;
    r.elementSize = elementSize;
    r.sizes = randomSizes(random, rank, bytes / elementSize);
    const bool steps = random.oneIn(2);
    const bool resumes = random.oneIn(3);
    for (const std::int64_t size : r.sizes) {
        const bool whole = random.oneIn(2);
        const std::int64_t offset = whole ? 0 : random.within(0, size - 1);
        const std::int64_t step = steps && !whole ? random.within(1, std::max<std::int64_t>(1, size / 2)) : 1;
        const std::int64_t most = (size - 1 - offset) / step + 1;
        const std::int64_t count = random.oneIn(100) ? 0 : whole ? most : random.within(1, most);
        r.offset.push_back(offset);
        r.count.push_back(count);
        if (steps) r.step.push_back(step);
        if (resumes) r.resume.push_back(count > 0 ? random.within(0, count - 1) : 0);
    }
    const std::int64_t all = r.elements() * elementSize;
    r.room = random.oneIn(4) ? random.within(0, all + 2 * elementSize) : all;
    if (random.oneIn(4)) r.limit = random.within(1, r.elements() + 2);
    return r;
}

std::string listed(const Numbers& numbers) {
    std::string text;
    for (const std::int64_t number : numbers) text += std::to_string(number) + " ";
    return text;
}

std::string describe(const Rectangle& r) {
    return "sizes " + listed(r.sizes) + "x " + std::to_string(r.elementSize) + " bytes, offset " + listed(r.offset) +
           "count " + listed(r.count) + "step " + listed(r.step) + "resume " + listed(r.resume) + "limit " +
           std::to_string(r.limit) + " room " + std::to_string(r.room);
}

constexpr std::array<int, 5> kElementSizes = {1, 3, 8, 12, 1000};

int elementSizeOf(int round) { return kElementSizes[sizeOf(round) % kElementSizes.size()]; }
int rankOf(int round) { return 1 + round / 5 % 9; }

}  // namespace

// ---- rectangles by themselves ----

TEST(HyperRectangles, RunsMoveTheElementsOfAPlainLoopInOrder) {
    Random random(1);
    for (int round = 0; round < 20000; ++round) {
        const Rectangle r = randomRectangle(random, rankOf(round), elementSizeOf(round), 40000);
        const kshost::ArrayTransfer asked = {static_cast<int>(r.sizes.size()),
                                             r.sizes.data(),
                                             r.elementSize,
                                             r.offset.data(),
                                             r.count.data(),
                                             orNull(r.step),
                                             orNull(r.resume),
                                             r.limit,
                                             r.room};
        std::string why;
        const auto rectangle = kshost::HyperRectangle::of(asked, why);
        ASSERT_TRUE(rectangle) << why << " for " << describe(r);
        const Numbers expected = placesOf(r);
        ASSERT_EQ(rectangle->bytes(), static_cast<std::int64_t>(expected.size()) * r.elementSize) << describe(r);
        Numbers found;
        rectangle->forEachRun([&](std::int64_t at, std::int64_t bytes) {
            for (std::int64_t b = 0; b < bytes; b += r.elementSize) found.push_back(at + b);
        });
        ASSERT_EQ(found, expected) << describe(r);
    }
}

TEST(HyperRectangles, WhatLiesTogetherIsOneRun) {
    const auto runs = [](const Rectangle& r) {
        const kshost::ArrayTransfer asked = {static_cast<int>(r.sizes.size()),
                                             r.sizes.data(),
                                             r.elementSize,
                                             r.offset.data(),
                                             r.count.data(),
                                             orNull(r.step),
                                             nullptr,
                                             0,
                                             r.elements() * r.elementSize};
        std::string why;
        int count = 0;
        const auto rectangle = kshost::HyperRectangle::of(asked, why);
        if (rectangle) rectangle->forEachRun([&](std::int64_t, std::int64_t) { ++count; });
        return count;
    };
    EXPECT_EQ(runs({{4, 5, 6}, 8, {0, 0, 0}, {4, 5, 6}}), 1);
    EXPECT_EQ(runs({{4, 5, 6}, 8, {1, 2, 0}, {1, 3, 6}}), 1);
    EXPECT_EQ(runs({{4, 5, 6}, 8, {1, 2, 0}, {1, 3, 6}, {3, 1, 1}}), 1);
    EXPECT_EQ(runs({{4, 5, 6}, 8, {1, 0, 0}, {2, 4, 6}}), 2);
    EXPECT_EQ(runs({{4, 5, 6}, 8, {0, 0, 1}, {4, 5, 5}}), 20);
    EXPECT_EQ(runs({{4, 5, 6}, 8, {0, 0, 0}, {4, 5, 3}, {1, 1, 2}}), 60);
}

// ---- rectangles in segments ----

INSTANTIATE_TEST_SUITE_P(Files, Segments, testing::Bool(), kindOf);

TEST_P(Segments, RandomRectanglesAreReadAsByAPlainLoop) {
    constexpr std::int64_t kBytes = 700 * 1024;
    HostFile* fp = create();
    const int segment = tableSegment(fp, kBytes);
    const Bytes array = noise(kBytes, 2);
    ASSERT_EQ(writeBytes(fp, segment, kBytes, 0, array), 1);
    Random random(GetParam() ? 3 : 4);
    for (int round = 0; round < 1500; ++round) {
        const Rectangle r = randomRectangle(random, rankOf(round), elementSizeOf(round), kBytes);
        const Numbers places = placesOf(r);
        Bytes expected(sizeOf(r.room), 0xcd);
        for (std::size_t i = 0; i < places.size(); ++i)
            std::memcpy(&expected[i * sizeOf(r.elementSize)], &array[sizeOf(places[i])], sizeOf(r.elementSize));
        Bytes found(sizeOf(r.room) + 1, 0xcd);  // never empty, so that it has an address
        std::int64_t moved = -1;
        ASSERT_EQ(move(fp, kRead, segment, r, found.data(), &moved), 1) << describe(r) << allReports();
        found.pop_back();
        ASSERT_EQ(moved, static_cast<std::int64_t>(places.size()) * r.elementSize) << describe(r);
        ASSERT_TRUE(found == expected) << describe(r);
    }
    GDBClose(fp);
    expectNoReports();
}

TEST_P(Segments, RandomRectanglesAreWrittenAsByAPlainLoopAndNothingElseIs) {
    constexpr std::int64_t kBytes = 600 * 1024;
    HostFile* fp = create();
    const int segment = tableSegment(fp, kBytes);
    const int neighbour = tableSegment(fp, kBytes);
    const Bytes untouched = noise(kBytes, 5);
    ASSERT_EQ(writeBytes(fp, neighbour, kBytes, 0, untouched), 1);
    Bytes array(kBytes, 0);
    Random random(GetParam() ? 6 : 7);
    for (int round = 0; round < 300; ++round) {
        const Rectangle r = randomRectangle(random, rankOf(round), elementSizeOf(round), kBytes);
        const Numbers places = placesOf(r);
        Bytes given = noise(r.room + 1, static_cast<std::uint64_t>(round));
        const Bytes before = given;
        for (std::size_t i = 0; i < places.size(); ++i)
            std::memcpy(&array[sizeOf(places[i])], &given[i * sizeOf(r.elementSize)], sizeOf(r.elementSize));
        std::int64_t moved = -1;
        ASSERT_EQ(move(fp, kWrite, segment, r, given.data(), &moved), 1) << describe(r) << allReports();
        ASSERT_EQ(moved, static_cast<std::int64_t>(places.size()) * r.elementSize) << describe(r);
        ASSERT_TRUE(given == before) << "the caller's buffer stays";
        ASSERT_TRUE(bytesOf(fp, segment, kBytes) == array) << describe(r);
    }
    EXPECT_TRUE(bytesOf(fp, neighbour, kBytes) == untouched);
    GDBClose(fp);
    fp = open();
    EXPECT_TRUE(bytesOf(fp, segment, kBytes) == array);
    GDBClose(fp);
    expectNoReports();
}

TEST_P(Segments, StretchesAcrossTheBordersOfStoredPagesComeBack) {
    constexpr std::int64_t kBytes = 4 * kStoredPage + 1000;
    HostFile* fp = create();
    const int segment = tableSegment(fp, kBytes);
    Bytes array(kBytes, 0);
    std::uint64_t seed = 0;
    for (const std::int64_t border : {std::int64_t{0}, kStoredPage, 2 * kStoredPage, 4 * kStoredPage}) {
        for (const std::int64_t before : {1, 0, -1}) {
            for (const std::int64_t length : {std::int64_t{1}, std::int64_t{2}, kStoredPage, kStoredPage + 2}) {
                const std::int64_t from = border - before;
                if (from < 0 || from + length > kBytes) continue;
                const Bytes written = noise(length, ++seed);
                std::copy(written.begin(), written.end(), array.begin() + from);
                ASSERT_EQ(writeBytes(fp, segment, kBytes, from, written), 1);
                ASSERT_TRUE(bytesOf(fp, segment, kBytes, from, length) == written) << from << " " << length;
            }
        }
    }
    GDBClose(fp);
    fp = open();
    EXPECT_TRUE(bytesOf(fp, segment, kBytes) == array);
    GDBClose(fp);
    expectNoReports();
}

TEST_P(Segments, ARectangleIsMovedInPiecesThatResume) {
    HostFile* fp = create();
    const Rectangle whole = {{5, 7, 11}, 12, {1, 2, 0}, {3, 2, 4}, {1, 3, 2}, {}, 0, 3 * 2 * 4 * 12};
    const int segment = tableSegment(fp, 5 * 7 * 11 * 12);
    const Bytes given = noise(whole.room, 8);
    for (const int mode : {kWrite, kRead}) {
        Bytes buffer = mode == kWrite ? given : Bytes(given.size(), 0);
        for (std::int64_t done = 0; done < 24;) {
            Rectangle piece = whole;
            piece.resume = {done / 8, done / 4 % 2, done % 4};
            piece.limit = mode == kWrite ? 5 : 0;
            piece.room = mode == kWrite ? whole.room - done * 12 : 7 * 12 + 11;
            Bytes part(buffer.begin() + done * 12, buffer.end());
            part.resize(sizeOf(std::max<std::int64_t>(piece.room, static_cast<std::int64_t>(part.size()))));
            std::int64_t moved = -1;
            ASSERT_EQ(move(fp, mode, segment, piece, part.data(), &moved), 1);
            ASSERT_EQ(moved, std::min<std::int64_t>(mode == kWrite ? 5 : 7, 24 - done) * 12);
            std::copy_n(part.begin(), moved, buffer.begin() + done * 12);
            done += moved / 12;
        }
        EXPECT_EQ(buffer, given);
    }
    Bytes all(given.size());
    EXPECT_EQ(move(fp, kRead, segment, whole, all.data(), nullptr), 1) << "the amount may be null";
    EXPECT_EQ(all, given);
    GDBClose(fp);
    expectNoReports();
}

TEST_P(Segments, NothingIsMovedWhereACountIsZeroOrTheBufferTakesNoElement) {
    HostFile* fp = create();
    const int segment = tableSegment(fp, 960);
    const Bytes before = noise(960, 9);
    ASSERT_EQ(writeBytes(fp, segment, 960, 0, before), 1);
    const std::vector<Rectangle> none = {{{4, 5, 6}, 8, {0, 0, 0}, {0, 5, 6}, {}, {}, 0, 960},
                                         {{4, 5, 6}, 8, {1, 1, 1}, {2, 0, 2}, {}, {}, 0, 960},
                                         {{4, 5, 6}, 8, {0, 0, 5}, {2, 3, 0}, {2, 2, 2}, {}, 0, 960},
                                         {{4, 5, 6}, 8, {0, 0, 0}, {0, 0, 0}, {}, {0, 0, 0}, 3, 960},
                                         {{4, 5, 6}, 8, {0, 0, 0}, {0, 5, 6}, {kMost, 1, 1}, {}, 0, 960},
                                         {{4, 5, 6}, 8, {0, 0, 0}, {4, 5, 6}, {}, {}, 0, 7},
                                         {{4, 5, 6}, 8, {0, 0, 0}, {4, 5, 6}, {}, {}, 0, 0}};
    for (const Rectangle& r : none) {
        for (const int mode : {kRead, kWrite}) {
            Bytes buffer(960, 0x55);
            std::int64_t moved = -1;
            EXPECT_EQ(move(fp, mode, segment, r, buffer.data(), &moved), 1) << describe(r) << allReports();
            EXPECT_EQ(moved, 0);
            EXPECT_EQ(buffer, Bytes(960, 0x55));
        }
    }
    // A step of any size leads nowhere from a single index.
    const Rectangle single = {{4, 5, 6}, 8, {3, 4, 5}, {1, 1, 1}, {kMost, kMost, kMost}, {}, 0, 8};
    Bytes element(8);
    std::int64_t moved = -1;
    EXPECT_EQ(move(fp, kRead, segment, single, element.data(), &moved), 1);
    EXPECT_EQ(moved, 8);
    EXPECT_TRUE(std::equal(element.begin(), element.end(), before.begin() + 8 * (3 * 30 + 4 * 6 + 5)));
    EXPECT_EQ(bytesOf(fp, segment, 960), before);
    GDBClose(fp);
    expectNoReports();
}
