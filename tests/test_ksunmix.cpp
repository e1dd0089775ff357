// Unmixing of single pixels: what a call refuses, the set-up that is kept between pixels, odd sizes and values.
#include <kslib.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "bits.hpp"
#include "fixture.hpp"
#include "unmixing.hpp"

using namespace kit;
using namespace kit::unmixing;

namespace {

constexpr const char* kLabel = "get_endmember_fractions ()";
const Report kNoConvergence = {
    false, 84, 0, "No convergence in SVD in 30 iterations\n", "", "No convergence in SVD in 30 iterations\n"};
const Report kTooFewRows = {
    false, 83, 0, "Inappropriately sized matrix in SVD\n", "", "Inappropriately sized matrix in SVD\n"};

using UnmixingTest = LibraryTest;

// ---- what a call refuses ----

TEST_F(UnmixingTest, MissingArraysAndNegativeCountsAreReported) {
    float value = 1.0F;
    float* row = &value;
    float* noRow = nullptr;
    float fractions[2] = {7.0F, 8.0F};
    EXPECT_EQ(get_endmember_fractions(nullptr, &value, fractions, 1, 1, 0, 0, 0, 1), 1);
    EXPECT_EQ(get_endmember_fractions(&row, nullptr, fractions, 1, 1, 0, 0, 0, 1), 1);
    EXPECT_EQ(get_endmember_fractions(&row, &value, nullptr, 1, 1, 0, 0, 0, 1), 1);
    EXPECT_EQ(get_endmember_fractions(&row, &value, fractions, -1, 1, 0, 0, 0, 1), 1);
    EXPECT_EQ(get_endmember_fractions(&row, &value, fractions, 1, -1, 0, 0, 0, 1), 1);
    EXPECT_EQ(get_endmember_fractions(&row, &value, fractions, 1, std::numeric_limits<int>::max(), 1, 0, 0, 1), 1);
    EXPECT_EQ(get_endmember_fractions(&noRow, &value, fractions, 1, 1, 0, 0, 0, 1), 1);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: papafEndmembers == NULL.\n", kLabel), failure("%s: pafPixel == NULL.\n", kLabel),
                       failure("%s: pafFractions == NULL.\n", kLabel), failure("%s: nNumEndmembers < 0.\n", kLabel),
                       failure("%s: nNumBands (%d) is unusable.\n", kLabel, -1),
                       failure("%s: nNumBands (%d) is unusable.\n", kLabel, 2147483647),
                       failure("%s: a row of papafEndmembers is NULL.\n", kLabel)}));
    EXPECT_EQ(fractions[0], 7.0F);
    EXPECT_EQ(fractions[1], 8.0F);
}

TEST_F(UnmixingTest, LaterPixelsMustHaveTheSizesOfTheSetUp) {
    Random random(1);
    const Spectra spectra = random.spectra(6, 3);
    for (const bool nonNegative : {false, true}) {
        Caller plain(spectra, {false, nonNegative, false});
        Caller summing(spectra, {true, nonNegative, false});
        Caller wider(random.spectra(6, 4), {false, nonNegative, false});
        Caller longer(random.spectra(7, 3), {false, nonNegative, false});
        Caller shorter(random.spectra(5, 3), {false, nonNegative, false});
        summing.solve(random.pixel(6));
        for (Caller* caller : {&plain, &wider, &shorter}) {
            EXPECT_EQ(caller->call(random.pixel(3), false), 1);
            EXPECT_EQ(caller->fractions(), Values(caller->fractions().size(), -55.0F));
        }
        plain.call(random.pixel(6), true);
        EXPECT_EQ(longer.call(random.pixel(7), false), 1);
        const Report refusal = failure("%s: the sizes are not those of the set-up.\n", kLabel);
        EXPECT_EQ(host().reports, (Reports(4, refusal)));
        host().forget();
    }
}

TEST_F(UnmixingTest, ADecompositionIsNotAskedOfANonNegativeSetUpNorTheReverse) {
    Random random(2);
    const Spectra spectra = random.spectra(6, 3);
    Caller plain(spectra, kPlain);
    Caller nonNegative(spectra, kNonNegative);
    nonNegative.solve(random.pixel(6));
    EXPECT_EQ(plain.call(random.pixel(6), false), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: no decomposition was set up.\n", kLabel)}));
    EXPECT_EQ(plain.fractions(), Values(4, -55.0F));
    host().forget();

    plain.solve(random.pixel(6));
    nonNegative.fractions() = {0.25F, 0.5F, 0.25F, -1.0F};
    EXPECT_EQ(nonNegative.call(random.pixel(6), false), 1) << "its working arrays are gone";
    EXPECT_EQ(nonNegative.fractions()[0], 0.25F);
    EXPECT_EQ(host().reports, Reports{});
}

// ---- the set-up ----

TEST_F(UnmixingTest, LaterPixelsUseTheDecompositionThatTheRowsHold) {
    Random random(6);
    const Spectra spectra = random.reflectances(30, 4);
    const Values second = random.mixture(spectra, 5.0F);
    Caller fresh(spectra, kPlain);
    const Values expected = fresh.solve(second);

    Caller caller(spectra, kPlain);
    caller.solve(random.mixture(spectra, 5.0F));
    EXPECT_NE(caller.rows(), spectra) << "the rows hold U now";
    const Spectra u = caller.rows();
    refuseAllocation(0);
    EXPECT_EQ(caller.call(second, false), 0);
    EXPECT_EQ(allocations(), 0);
    EXPECT_EQ(caller.rows(), u);
    EXPECT_TRUE(sameBits(caller.fractions(), expected));
}

TEST_F(UnmixingTest, NonNegativeRowsStayAndLaterPixelsAllocateNothing) {
    Random random(7);
    const Spectra spectra = random.reflectances(30, 4);
    const Values second = random.mixture(spectra, 5.0F);
    Caller fresh(spectra, kNonNegative);
    const Values expected = fresh.solve(second);

    Caller caller(spectra, kNonNegative);
    caller.solve(random.mixture(spectra, 5.0F));
    refuseAllocation(0);
    EXPECT_EQ(caller.call(second, false), 0);
    EXPECT_EQ(allocations(), 0);
    EXPECT_EQ(caller.rows(), spectra);
    EXPECT_TRUE(sameBits(caller.fractions(), expected));
}

TEST_F(UnmixingTest, TheSumToOneRowAndPixelElementAreTheLargestRowSumTimesTheBands) {
    const Spectra spectra = {{1, 2}, {5, -1}, {2, 3}, {0, 0}};
    Caller caller(spectra, {true, true, false});
    caller.solve({1, 1, 1, 1});
    EXPECT_EQ(caller.rows()[4], (Values{20, 20}));
    EXPECT_EQ(caller.pixel()[4], 20.0F);
    caller.pixel()[4] = 3.0F;
    EXPECT_EQ(caller.call({1, 1, 1, 1}, false), 0);
    EXPECT_EQ(caller.pixel()[4], 3.0F) << "filled by a set-up only";

    // The largest sum counts also when all are negative.
    Caller negative({{-1, -2}, {-4, -1}}, {true, true, false});
    negative.call({1, 1}, true);
    EXPECT_EQ(negative.rows()[2], (Values{-6, -6}));
    EXPECT_EQ(negative.pixel()[2], -6.0F);
}

TEST_F(UnmixingTest, TheSumToOneRowDrawsTheFractionsButDoesNotCountInTheMisfit) {
    Random random(8);
    const Spectra spectra = random.reflectances(40, 3);
    Values pixel;
    for (const Values& row : spectra) pixel.push_back(0.6F * row[0] + 0.6F * row[1] + 0.1F * row[2]);
    for (const bool nonNegative : {false, true}) {
        Caller caller(spectra, {true, nonNegative, false});
        const Values& x = caller.solve(pixel);
        EXPECT_NEAR(x[0] + x[1] + x[2], 1.0F, 2e-3F);
        double squares = 0.0;
        for (std::size_t b = 0; b < pixel.size(); ++b) {
            double sum = -static_cast<double>(pixel[b]);
            for (std::size_t e = 0; e < 3; ++e) sum += static_cast<double>(x[e]) * static_cast<double>(spectra[b][e]);
            squares += sum * sum;
        }
        EXPECT_NEAR(static_cast<double>(caller.misfit()), std::sqrt(squares / 40), 1e-2);
        EXPECT_GT(caller.misfit(), 50.0F);
    }
}

TEST_F(UnmixingTest, ANewSetUpTakesThePlaceOfTheOldOneWhateverItsKind) {
    Random random(9);
    for (int trial = 0; trial < 40; ++trial) {
        const Options options = everyOption()[at(trial) % 8];
        const int endmembers = 1 + trial % 5;
        const Spectra spectra = random.reflectances(20 + trial % 7, endmembers);
        const Values pixel = column(spectra, at(trial % endmembers));
        Caller caller(spectra, options);
        const Values& found = caller.solve(pixel);
        EXPECT_NEAR(found[at(trial % endmembers)], 1.0F, 5e-3F) << options;
    }
}

TEST_F(UnmixingTest, AFailedAllocationOfTheWorkingArraysIsReportedAndNothingIsSolved) {
    Random random(10);
    const Spectra spectra = random.reflectances(10, 3);
    const Values pixel = random.mixture(spectra, 1.0F);
    const char* kNnls = "setup_nnls ()";
    const Reports reports = {failure("%s: a == NULL, HMalloc() failed.\n", kNnls),
                             failure("%s: b == NULL, HMalloc() failed.\n", kNnls),
                             failure("%s: x == NULL, HMalloc() failed.\n", kNnls),
                             failure("%s: w == NULL, HMalloc() failed.\n", kNnls),
                             failure("%s: zz == NULL, HMalloc() failed.\n", kNnls),
                             failure("%s: nIndex == NULL, HMalloc() failed.\n", kNnls)};
    for (int nth = 1; nth <= 6; ++nth) {
        Caller caller(spectra, {false, true, true});
        caller.fractions() = {1.0F, 0.0F, -2.0F, 99.0F};
        host().forget();
        refuseAllocation(nth);
        EXPECT_EQ(caller.call(pixel, true), 1);
        EXPECT_EQ(allocations(), 6) << "the others are still asked for";
        EXPECT_EQ(host().reports, (Reports{reports[at(nth - 1)]}));
        EXPECT_EQ(caller.call(pixel, false), 1) << "and later pixels have no arrays either";
        EXPECT_EQ(host().reports.size(), 1U);
        caller.fractions().pop_back();
        EXPECT_EQ(caller.fractions(), (Values{1.0F, 0.0F, -2.0F})) << "not even normalised";
    }
    refuseAllocation(0);
    host().forget();
    Caller(spectra, kNonNegative).solve(pixel);
}

TEST_F(UnmixingTest, AFailedAllocationForTheDecompositionLeavesRowsAndFractions) {
    Random random(11);
    const Spectra spectra = random.reflectances(10, 3);
    const Values pixel = random.mixture(spectra, 1.0F);
    int failures = 0;
    for (int nth = 1;; ++nth) {
        Caller caller(spectra, kPlain);
        host().forget();
        refuseAllocation(nth);
        const int result = caller.call(pixel, true);
        if (!allocationRefused()) {
            EXPECT_EQ(result, 0);
            break;
        }
        ++failures;
        EXPECT_EQ(result, 1);
        ASSERT_EQ(host().reports.size(), 1U);
        EXPECT_EQ(host().reports[0].code, 83);
        EXPECT_EQ(caller.rows(), spectra);
        EXPECT_EQ(caller.fractions(), Values(4, -55.0F));
        EXPECT_EQ(caller.call(pixel, false), 1);
        EXPECT_EQ(host().reports[1], failure("%s: no decomposition was set up.\n", kLabel));
    }
    EXPECT_GE(failures, 3);
}

// ---- small and odd sizes ----

TEST_F(UnmixingTest, WithoutBandsTheMisfitIsAConstant) {
    float row[2] = {1.0F, 2.0F};
    float* rows[1] = {row};
    float pixel[1] = {3.0F};
    float fractions[3] = {5.0F, 6.0F, 7.0F};
    EXPECT_EQ(get_endmember_fractions(rows, pixel, fractions, 2, 0, 0, 0, 0, 1), 0);
    EXPECT_EQ(fractions[0], 0.0F);
    EXPECT_EQ(fractions[1], 0.0F);
    EXPECT_EQ(fractions[2], static_cast<float>(std::sqrt(1e-10)));
    EXPECT_EQ(host().reports, (Reports{kTooFewRows}));
    host().forget();

    // The solver refuses a problem without equations; the misfit is stored all the same.
    fractions[0] = 5.0F;
    fractions[2] = 7.0F;
    EXPECT_EQ(get_endmember_fractions(rows, pixel, fractions, 2, 0, 0, 1, 1, 1), 1);
    EXPECT_EQ(fractions[0], 5.0F);
    EXPECT_EQ(fractions[2], static_cast<float>(std::sqrt(1e-10)));

    // With the sum alone there is one equation, of zeros.
    EXPECT_EQ(get_endmember_fractions(rows, pixel, fractions, 2, 0, 1, 1, 0, 1), 0);
    EXPECT_EQ(row[0], 0.0F);
    EXPECT_EQ(pixel[0], 0.0F);
    EXPECT_EQ(fractions[0], 0.0F);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(UnmixingTest, WithoutEndmembersTheMisfitIsThePixel) {
    float* rows[2] = {nullptr, nullptr};
    float pixel[2] = {3.0F, 4.0F};
    float misfit = -1.0F;
    EXPECT_EQ(get_endmember_fractions(rows, pixel, &misfit, 0, 2, 0, 0, 1, 1), 0);
    EXPECT_EQ(misfit, std::sqrt(12.5F));
    misfit = -1.0F;
    EXPECT_EQ(get_endmember_fractions(rows, pixel, &misfit, 0, 2, 0, 1, 1, 1), 1) << "nothing to solve";
    EXPECT_EQ(misfit, std::sqrt(12.5F));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(UnmixingTest, FewerBandsThanEndmembersAreReportedAndGiveTheShortestSolution) {
    Caller caller({{3, 4, 0}, {0, 0, 2}}, kPlain);
    EXPECT_EQ(caller.call({5, 3}, true), 0);
    EXPECT_EQ(host().reports, (Reports{kTooFewRows}));
    const Values& x = caller.fractions();
    EXPECT_NEAR(x[0], 0.6F, 1e-5F);
    EXPECT_NEAR(x[1], 0.8F, 1e-5F);
    EXPECT_NEAR(x[2], 1.5F, 1e-5F);
    EXPECT_NEAR(caller.misfit(), 0.0F, 1e-5F);
}

TEST_F(UnmixingTest, SingularValuesBelowAHundredThousandthOfTheLargestDoNotContribute) {
    // Two directions, the second a little above or below the threshold.
    for (const float second : {2e-5F, 0.5e-5F}) {
        Caller caller({{1, 0}, {0, second}, {0, 0}}, kPlain);
        const Values& x = caller.solve({1, 1, 0});
        EXPECT_NEAR(x[0], 1.0F, 1e-5F);
        EXPECT_NEAR(x[1] * second, second > 1e-5F ? 1.0F : 0.0F, 1e-4F) << second;
    }
    // Twice the same endmember: the fraction is shared.
    Caller twins({{1, 1}, {2, 2}, {3, 3}}, kPlain);
    const Values& x = twins.solve({2, 4, 6});
    EXPECT_NEAR(x[0], 1.0F, 1e-5F);
    EXPECT_NEAR(x[1], 1.0F, 1e-5F);
}

TEST_F(UnmixingTest, EndmembersOfZerosGiveFractionsOfZero) {
    Caller caller({{0, 0}, {0, 0}, {0, 0}}, kPlain);
    EXPECT_EQ(caller.solve({1, 2, 2}), (Values{0, 0, std::sqrt(3.0F)}));
}

// ---- normalising ----

TEST_F(UnmixingTest, NormalisedFractionsAreNonNegativeAndSumToOne) {
    Random random(12);
    for (int trial = 0; trial < 60; ++trial) {
        const int endmembers = 2 + trial % 6;
        const Spectra spectra = random.reflectances(30, endmembers);
        Caller caller(spectra, {true, true, true});
        const Values& x = caller.solve(random.mixture(spectra, 20.0F));
        float sum = 0.0F;
        for (int e = 0; e < endmembers; ++e) {
            EXPECT_GE(x[at(e)], 0.0F);
            sum += x[at(e)];
        }
        EXPECT_NEAR(sum, 1.0F, 1e-5F);
    }
}

TEST_F(UnmixingTest, NormalisingDividesByTheSumOfWhatIsAboveAMillionth) {
    // The solution is (2, 0.5, 5e-7), and the last is divided although it does not count.
    float rows[4][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}};
    float* pointers[4] = {rows[0], rows[1], rows[2], rows[3]};
    float pixel[4] = {2.0F, 0.5F, 5e-7F, 0.0F};
    float fractions[4];
    EXPECT_EQ(get_endmember_fractions(pointers, pixel, fractions, 3, 3, 0, 1, 0, 1), 0);
    EXPECT_EQ(fractions[0], 2.0F);
    // The sum counts for normalising alone: the set-up of three equations stays.
    EXPECT_EQ(get_endmember_fractions(pointers, pixel, fractions, 3, 3, 1, 1, 1, 0), 0);
    EXPECT_EQ(fractions[0], 2.0F / 2.5F);
    EXPECT_EQ(fractions[1], 0.5F / 2.5F);
    EXPECT_EQ(fractions[2], 5e-7F / 2.5F);
    // Without the sum-to-one option nothing is divided.
    EXPECT_EQ(get_endmember_fractions(pointers, pixel, fractions, 3, 3, 0, 1, 1, 0), 0);
    EXPECT_EQ(fractions[0], 2.0F);
}

TEST_F(UnmixingTest, NormalisingNextToNothingGivesZeros) {
    for (const Values& solution : {Values{5e-7F, 9e-7F}, Values{3.0F, -3.0F}}) {
        float rows[3][2] = {{1, 0}, {0, 1}, {0, 0}};
        float* pointers[3] = {rows[0], rows[1], rows[2]};
        float pixel[3] = {solution[0], solution[1], 0.0F};
        float fractions[3];
        ASSERT_EQ(get_endmember_fractions(pointers, pixel, fractions, 2, 2, 0, 0, 0, 1), 0);
        ASSERT_NEAR(fractions[0], solution[0], 1e-6F * std::abs(solution[0]));
        EXPECT_EQ(get_endmember_fractions(pointers, pixel, fractions, 2, 2, 1, 0, 1, 0), 0);
        EXPECT_EQ(fractions[0], 0.0F);
        EXPECT_EQ(fractions[1], 0.0F);
        EXPECT_FLOAT_EQ(fractions[2], std::hypot(solution[0], solution[1]) / std::sqrt(2.0F))
            << "from the new fractions";
    }
}

TEST_F(UnmixingTest, NegativeFractionsStayWhereTheyMayBeNegative) {
    float rows[3][2] = {{1, 0}, {0, 1}, {0, 0}};
    float* pointers[3] = {rows[0], rows[1], rows[2]};
    float pixel[3] = {3.0F, -1.0F, 0.0F};
    float fractions[3];
    ASSERT_EQ(get_endmember_fractions(pointers, pixel, fractions, 2, 2, 0, 0, 1, 1), 0);
    EXPECT_NEAR(fractions[1], -1.0F, 1e-6F);
    ASSERT_EQ(get_endmember_fractions(pointers, pixel, fractions, 2, 2, 1, 0, 1, 0), 0);
    EXPECT_NEAR(fractions[0], 1.5F, 1e-6F);
    EXPECT_NEAR(fractions[1], -0.5F, 1e-6F);
}

// ---- what is no number ----

TEST_F(UnmixingTest, EndmembersThatAreNoNumbersDoNotConvergeAndSaySo) {
    Random random(13);
    for (const float bad : {kNaN, kInfinite, -kInfinite}) {
        for (const bool everywhere : {false, true}) {
            Spectra spectra = random.reflectances(12, 3);
            spectra[4][1] = bad;
            if (everywhere) spectra.assign(12, Values(3, bad));
            Caller caller(spectra, kPlain);
            host().forget();
            EXPECT_EQ(caller.call(random.pixel(12), true), 0);
            ASSERT_FALSE(host().reports.empty());
            for (const Report& report : host().reports) EXPECT_EQ(report, kNoConvergence);
            EXPECT_LE(host().reports.size(), 3U);
            EXPECT_FALSE(std::isfinite(caller.misfit()));
        }
    }
}

TEST_F(UnmixingTest, PixelsThatAreNoNumbersEndTheNonNegativeSolver) {
    Random random(14);
    for (const float bad : {kNaN, kInfinite, -kInfinite}) {
        for (const Options& options : everyOption()) {
            const Spectra spectra = random.reflectances(12, 4);
            Values pixel = random.mixture(spectra, 1.0F);
            pixel[5] = bad;
            Caller caller(spectra, options);
            EXPECT_EQ(caller.call(pixel, true), 0);
            EXPECT_FALSE(std::isfinite(caller.misfit())) << options;
            Spectra badSpectra = spectra;
            badSpectra[3][2] = bad;
            Caller other(badSpectra, {options.sumToOne, true, options.normalise});
            other.call(random.mixture(spectra, 1.0F), true);
        }
    }
}

// ---- giving up ----

TEST_F(UnmixingTest, TooManyIterationsLeaveTheFractionsAndStoreTheirMisfit) {
    for (const bool normalise : {false, true}) {
        Caller caller(kLongWay, {false, true, normalise});
        caller.fractions() = {1.0F, -2.0F, 0.0F, 0.5F, 0.25F, 99.0F};
        EXPECT_EQ(caller.call(kLongWayPixel, true), 1);
        EXPECT_EQ(host().reports, Reports{});
        double squares = 0.0;
        for (std::size_t b = 0; b < 6; ++b) {
            const Values& row = kLongWay[b];
            const double sum = static_cast<double>(row[0] - 2.0F * row[1] + 0.5F * row[3] + 0.25F * row[4]);
            squares += std::pow(sum - static_cast<double>(kLongWayPixel[b]), 2);
        }
        EXPECT_NEAR(static_cast<double>(caller.misfit()), std::sqrt(squares / 6), 1e-4);
        caller.fractions().pop_back();
        EXPECT_EQ(caller.fractions(), (Values{1.0F, -2.0F, 0.0F, 0.5F, 0.25F}));
    }
}

}  // namespace
