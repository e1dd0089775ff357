// How many lines of an image are held at a time.
#include <kslib.h>

#include <limits>
#include <vector>

#include "fixture.hpp"

using namespace kit;

namespace {

constexpr int kUntouched = -4711;
constexpr int kPlenty = 1000000;
constexpr int kLargestBudget = 0x1400000;
constexpr int kDoubles = 0;
constexpr int kFloats = 1;

struct KSLPSTest : LibraryTest {
    KSDataSet dataSet{};

    int lines(int samples, int bands, int use, int floats, float fraction, int most = kPlenty) const {
        int found = kUntouched;
        EXPECT_EQ(KSLPS(&dataSet, samples, bands, use, floats, fraction, most, &found), 0);
        EXPECT_EQ(host().reports, Reports{});
        return found;
    }
    /// Expects that exactly `lines` lines fit when they and the fixed cost just fit, and one fewer in a byte less.
    void expectCost(std::int64_t fixed, std::int64_t perLine, int samples, int bands, int use, int floats) const {
        for (const int count : {2, 3, 17}) {
            const auto all = static_cast<int>(fixed + count * perLine);
            host().memory = all;
            EXPECT_EQ(lines(samples, bands, use, floats, 1.0F), count);
            host().memory = all - 1;
            EXPECT_EQ(lines(samples, bands, use, floats, 1.0F), count - 1);
        }
    }
};

TEST_F(KSLPSTest, ChecksInOrder) {
    constexpr const char* kLabel = "KSLPS()";
    constexpr float kNot = 2.0F;
    int found = kUntouched;
    const auto expectRefused = [&](const Report& report, const KSDataSet* of, int samples, int bands, int use,
                                   float fraction, int most) {
        host().forget();
        EXPECT_EQ(KSLPS(of, samples, bands, use, kFloats, fraction, most, &found), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
        EXPECT_EQ(host().count("IMPGetMemory"), 0);
        EXPECT_EQ(found, kUntouched);
    };
    expectRefused(failure("%s: pDataSet == NULL.\n", kLabel), nullptr, 0, 0, 3, kNot, 0);
    for (const int none : {0, -1}) {
        expectRefused(failure("%s: nNumXSamples <= 0.\n", kLabel), &dataSet, none, 0, 3, kNot, 0);
        expectRefused(failure("%s: nNumSelBands <= 0.\n", kLabel), &dataSet, 1, none, 3, kNot, 0);
    }
    for (const int use : {-1, 3, 4}) {
        expectRefused(failure("%s: Unrecognized value for eWinUse.\n", kLabel), &dataSet, 1, 1, use, kNot, 0);
    }
    for (const float fraction : {1.0001F, -0.0001F, 2.0F, -std::numeric_limits<float>::infinity()}) {
        expectRefused(failure("%s: fFrac > 1.0 || fFrac < 0.0.\n", kLabel), &dataSet, 1, 1, KS_USE_EX, fraction, 0);
    }
    for (const int most : {0, -1}) {
        expectRefused(failure("%s: nMaxLPS < 1.\n", kLabel), &dataSet, 1, 1, KS_USE_EX, 0.5F, most);
    }
}

TEST_F(KSLPSTest, AsksTheHostOnce) {
    EXPECT_EQ(lines(10, 10, KS_USE_EX, kFloats, 0.25F, 7), 7);
    EXPECT_EQ(host().callNames(), Names{"IMPGetMemory"});
}

TEST_F(KSLPSTest, WithoutALimitItIsOneLine) {
    host().memoryFlag = 0;
    host().memory = std::numeric_limits<int>::max();
    EXPECT_EQ(lines(1, 1, KS_USE_EX, kFloats, 1.0F), 1);
    host().memoryFlag = -3;
    EXPECT_GT(lines(1, 1, KS_USE_EX, kFloats, 1.0F), 1);
}

TEST_F(KSLPSTest, AnExplicitLineCostsItsValuesAndAStart) {
    dataSet.VQubeInfo.nCodeVectors = 65535;  // not held
    expectCost(0, 50 * 7 * 4 + 4, 50, 7, KS_USE_EX, kFloats);
    expectCost(0, 50 * 7 * 4 + 4, 50, 7, KS_USE_EX, -1);
    expectCost(0, 50 * 7 * 8 + 4, 50, 7, KS_USE_EX, kDoubles);
}

TEST_F(KSLPSTest, AnIndexLineCostsItsIndexesAndTheCodebookIsHeldOnce) {
    dataSet.VQubeInfo.nCodeVectors = 256;
    constexpr int kFixed = 4 * (256 * (7 + 1) + 7);
    expectCost(kFixed, 2 * 50 + 4, 50, 7, KS_USE_IM, kFloats);
    expectCost(kFixed, 2 * 50 + 4, 50, 7, KS_USE_IM, kDoubles);
    dataSet.VQubeInfo.nCodeVectors = 0;
    expectCost(4 * 7, 2 * 50 + 4, 50, 7, KS_USE_IM, kFloats);
}

TEST_F(KSLPSTest, BothWindowsCostBoth) {
    dataSet.VQubeInfo.nCodeVectors = 100;
    constexpr int kFixed = 4 * (100 * (3 + 1) + 3);
    expectCost(kFixed, 2 * 20 + 4 + 20 * 3 * 4 + 4, 20, 3, KS_USE_BOTH, kFloats);
    expectCost(kFixed, 2 * 20 + 4 + 20 * 3 * 8 + 4, 20, 3, KS_USE_BOTH, kDoubles);
}

TEST_F(KSLPSTest, OnlyTheFractionOfTheAllowanceIsUsed) {
    constexpr int kLine = 10 * 4 + 4;
    host().memory = 4 * (5 * kLine);
    EXPECT_EQ(lines(10, 1, KS_USE_EX, kFloats, 0.25F), 5);
    host().memory -= 1;  // the fraction is truncated to whole bytes
    EXPECT_EQ(lines(10, 1, KS_USE_EX, kFloats, 0.25F), 4);
    EXPECT_EQ(lines(10, 1, KS_USE_EX, kFloats, 0.0F), 1);
}

TEST_F(KSLPSTest, TheFractionIsTakenInDoublePrecision) {
    // In single precision the allowance would round up to 20000004, which is three lines.
    constexpr int kLine = 20000004 / 3;
    host().memory = 20000003;
    EXPECT_EQ(lines((kLine - 4) / 4, 1, KS_USE_EX, kFloats, 1.0F), 2);
}

TEST_F(KSLPSTest, NeverPlansWithMoreThanTwentyMebibytes) {
    constexpr int kLine = 64 * 4 + 4;
    for (const int memory : {kLargestBudget, kLargestBudget + 1, std::numeric_limits<int>::max()}) {
        host().memory = memory;
        EXPECT_EQ(lines(64, 1, KS_USE_EX, kFloats, 1.0F), kLargestBudget / kLine);
    }
    host().memory = std::numeric_limits<int>::max();
    EXPECT_EQ(lines(kLargestBudget / 8 - 1, 1, KS_USE_EX, kFloats, 1.0F), 2) << "exactly two lines fit";
    EXPECT_EQ(lines(kLargestBudget / 8, 1, KS_USE_EX, kFloats, 1.0F), 1);
}

TEST_F(KSLPSTest, StaysBetweenOneAndTheMost) {
    host().memory = std::numeric_limits<int>::max();
    EXPECT_EQ(lines(4, 4, KS_USE_EX, kFloats, 1.0F, 5), 5);
    EXPECT_EQ(lines(4, 4, KS_USE_EX, kFloats, 1.0F, 1), 1);
    host().memory = 100;
    EXPECT_EQ(lines(1000, 4, KS_USE_EX, kFloats, 1.0F), 1) << "less than a line";
    dataSet.VQubeInfo.nCodeVectors = 1000;
    EXPECT_EQ(lines(1, 4, KS_USE_IM, kFloats, 1.0F), 1) << "less than the fixed cost";
    for (const int memory : {0, -1, std::numeric_limits<int>::min()}) {
        host().memory = memory;
        EXPECT_EQ(lines(4, 4, KS_USE_EX, kFloats, 1.0F, 9), 1);
    }
}

TEST_F(KSLPSTest, CostsBeyond32BitsAreOneLine) {
    constexpr int kMost = std::numeric_limits<int>::max();
    host().memory = kMost;
    dataSet.VQubeInfo.nCodeVectors = 65535;
    EXPECT_EQ(lines(65536, 65536, KS_USE_EX, kFloats, 1.0F), 1);
    EXPECT_EQ(lines(65536, 16384, KS_USE_EX, kFloats, 1.0F), 1);
    EXPECT_EQ(lines(1, 16384, KS_USE_IM, kFloats, 1.0F), 1);
    for (const int use : {KS_USE_EX, KS_USE_IM, KS_USE_BOTH}) {
        for (const int floats : {kDoubles, kFloats}) EXPECT_EQ(lines(kMost, kMost, use, floats, 1.0F), 1);
    }
}

}  // namespace
