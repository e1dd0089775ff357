// Coefficients of resampling: where a band is covered, and the weights of every response.
#include <kslib.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "fixture.hpp"
#include "resampling.hpp"

using namespace kit;

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// ---- making and freeing coefficients ----

using KSCreateConvCoeffsTest = LibraryTest;

TEST_F(KSCreateConvCoeffsTest, StartsWithoutWeightsAndWithEveryBandUncovered) {
    const Coeffs coeffs(KSCreateConvCoeffs(3, 2));
    ASSERT_NE(coeffs, nullptr);
    EXPECT_EQ(coeffs->nNumCoeffs, 3);
    EXPECT_EQ(coeffs->nNumOutBands, 2);
    EXPECT_EQ(weights(coeffs), (std::vector<float>{0.0F, 0.0F, 0.0F}));
    EXPECT_EQ(rangeOf(coeffs, 0), kUncovered);
    EXPECT_EQ(rangeOf(coeffs, 1), kUncovered);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSCreateConvCoeffsTest, HasArraysOfNoLength) {
    const Coeffs coeffs(KSCreateConvCoeffs(0, 0));
    ASSERT_NE(coeffs, nullptr);
    EXPECT_NE(coeffs->pafCoeffs, nullptr);
    EXPECT_NE(coeffs->panStartInd, nullptr);
    EXPECT_NE(coeffs->panEndInd, nullptr);
}

TEST_F(KSCreateConvCoeffsTest, NamesWhatCouldNotBeAllocated) {
    const char* label = "KSCreateConvCoeffs ()";
    const Reports expected = {failure("%s: pRetVal == NULL, HMalloc () failed.\n", label),
                              failure("%s: pRetVal->pafCoeffs == NULL, HMalloc () failed.\n", label),
                              failure("%s: pRetVal->panStartInd == NULL, HMalloc () failed.\n", label),
                              failure("%s: pRetVal->panEndInd == NULL, HMalloc () failed.\n", label)};
    for (int nth = 1; nth <= 4; ++nth) {
        refuseAllocation(nth);
        EXPECT_EQ(KSCreateConvCoeffs(3, 2), nullptr);
        expectReports({expected[static_cast<std::size_t>(nth) - 1]}, std::to_string(nth));
    }
    refuseAllocation(0);
    EXPECT_EQ(KSCreateConvCoeffs(-1, 2), nullptr);
    expectReports({expected[1]}, "no such number of weights");
    EXPECT_EQ(KSCreateConvCoeffs(3, -1), nullptr);
    expectReports({expected[2]}, "no such number of bands");
}

using KSFreeConvCoeffsTest = LibraryTest;

TEST_F(KSFreeConvCoeffsTest, ClearsTheArraysAndLeavesTheRecord) {
    KSFreeConvCoeffs(nullptr);
    KSConvCoeffs* coeffs = KSCreateConvCoeffs(3, 2);
    KSFreeConvCoeffs(coeffs);
    EXPECT_EQ(coeffs->pafCoeffs, nullptr);
    EXPECT_EQ(coeffs->panStartInd, nullptr);
    EXPECT_EQ(coeffs->panEndInd, nullptr);
    EXPECT_EQ(coeffs->nNumCoeffs, 3);
    EXPECT_EQ(coeffs->nNumOutBands, 2);
    KSFreeConvCoeffs(coeffs);
    std::free(coeffs);
    EXPECT_EQ(host().reports, Reports{});
}

// ---- the steps of one band: what they check ----

using Step = int (*)(KSConvCoeffs*, const KSSTSchema*, const KSSensor*, int);

struct NamedStep {
    Step step;
    const char* label;
    int type;  // of the bands that it is for
};

const NamedStep kSteps[] = {{_EvalStartEndInds, "_EvalInterval ()", KS_RT_BOX},
                            {_GenGaussianConvCoeffs, "_GenGaussConvCoeffs ()", KS_RT_GAUSSIAN},
                            {_GenTriangularConvCoeffs, "_GenTrianConvCoeffs ()", KS_RT_TRIANGULAR},
                            {_GenBoxConvCoeffs, "_GenBoxConvCoeffs ()", KS_RT_BOX},
                            {_GenTrapConvCoeffs, "_GenTrapConvCoeffs ()", KS_RT_TRAPEZOIDAL},
                            {_GenCustConvCoeffs, "_GenCustConvCoeffs ()", KS_RT_CUSTOM}};

struct BandStep : LibraryTest, testing::WithParamInterface<NamedStep> {};
INSTANTIATE_TEST_SUITE_P(Steps, BandStep, testing::ValuesIn(kSteps), [](const auto& named) {
    const std::string label = named.param.label;
    return label.substr(1, label.find(' ') - 1);
});

TEST_P(BandStep, ChecksItsArgumentsInOrder) {
    const auto [step, label, type] = GetParam();
    const Schema schema = targetAt(evenly(400.0F, 10.0F, 5));
    Sensor sensor({symmetric(type, 420.0F, 20.0F), symmetric(KS_RT_UNKNOWN, 420.0F, 20.0F),
                   symmetric(-1, 420.0F, 20.0F), symmetric(6, 420.0F, 20.0F)});
    Sensor unknown({});
    unknown.pBandResp = nullptr;
    const Coeffs coeffs(KSCreateConvCoeffs(5, 4));

    EXPECT_EQ(step(nullptr, nullptr, nullptr, -1), 1);
    expectReports({failure("%s: pConvCoeffs == NULL.\n", label)}, "coefficients");
    EXPECT_EQ(step(coeffs.get(), nullptr, nullptr, -1), 1);
    expectReports({failure("%s: pSTSchema == NULL.\n", label)}, "schema");
    EXPECT_EQ(step(coeffs.get(), schema.get(), nullptr, -1), 1);
    expectReports({failure("%s: pSensor == NULL.\n", label)}, "sensor");
    EXPECT_EQ(step(coeffs.get(), schema.get(), &unknown, -1), 1);
    expectReports({failure("%s: pSensor->KSBandResp == NULL.\n", label)}, "responses");
    for (const int band : {-1, 4, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_EQ(step(coeffs.get(), schema.get(), &sensor, band), 1);
        expectReports({failure("%s: nOutBand < 0 || nOutBand >= pSensor->nNumBands.\n", label)}, std::to_string(band));
    }
    for (const int band : {1, 2, 3}) {
        EXPECT_EQ(step(coeffs.get(), schema.get(), &sensor, band), 1);
        expectReports({failure("%s: Unrecognized response type.\n", label)}, std::to_string(band));
    }
    EXPECT_EQ(step(coeffs.get(), schema.get(), &sensor, 0), 0);
    expectReports({}, "a good band");
}

TEST_P(BandStep, RefusesWhatHasNoRoomForTheBand) {
    const auto [step, label, type] = GetParam();
    const Schema schema = targetAt(evenly(400.0F, 10.0F, 5));
    const Sensor sensor({box(420.0F, 20.0F), symmetric(type, 420.0F, 20.0F)});
    const auto expectRefused = [&, step = step](int inputs, int bands, const std::function<void(KSConvCoeffs&)>& edit,
                                                const Report& report) {
        const Coeffs coeffs(KSCreateConvCoeffs(inputs, bands));
        edit(*coeffs);
        EXPECT_EQ(step(coeffs.get(), schema.get(), &sensor, 1), 1);
        expectReports({report}, report.format);
    };
    const auto drop = [](auto member) {
        return [member](KSConvCoeffs& coeffs) {
            std::free(coeffs.*member);
            coeffs.*member = nullptr;
        };
    };
    const auto nothing = [](KSConvCoeffs&) {};
    expectRefused(5, 1, nothing, failure("%s: nOutBand >= pConvCoeffs->nNumOutBands.\n", label));
    expectRefused(4, 2, nothing, failure("%s: pSTSchema->nNumMeasFlds > pConvCoeffs->nNumCoeffs.\n", label));
    expectRefused(5, 2, drop(&KSConvCoeffs::panStartInd), failure("%s: pConvCoeffs->panStartInd == NULL.\n", label));
    expectRefused(5, 2, drop(&KSConvCoeffs::panEndInd), failure("%s: pConvCoeffs->panEndInd == NULL.\n", label));
    expectRefused(5, 2, drop(&KSConvCoeffs::pafCoeffs), failure("%s: pConvCoeffs->pafCoeffs == NULL.\n", label));

    const Coeffs coeffs(KSCreateConvCoeffs(5, 2));
    std::free(schema->pMeasFld);
    schema->pMeasFld = nullptr;
    EXPECT_EQ(step(coeffs.get(), schema.get(), &sensor, 1), 1);
    expectReports({failure("%s: pSTSchema->pMeasFld == NULL.\n", label)}, "fields");
}

using KSGenSpPrConvCoeffsTest = LibraryTest;

TEST_F(KSGenSpPrConvCoeffsTest, EachGeneratorIsForItsOwnType) {
    const Schema schema = targetAt(evenly(400.0F, 10.0F, 5));
    const Coeffs coeffs(KSCreateConvCoeffs(5, 1));
    const auto expectRefused = [&](Step step, int own, const Report& report) {
        for (int type = KS_RT_GAUSSIAN; type <= KS_RT_CUSTOM; ++type) {
            if (type == own) continue;
            const Sensor sensor({symmetric(type, 420.0F, 20.0F)});
            EXPECT_EQ(step(coeffs.get(), schema.get(), &sensor, 0), 1);
            expectReports({report}, std::to_string(type));
        }
    };
    expectRefused(_GenGaussianConvCoeffs, KS_RT_GAUSSIAN,
                  failure("%s: pSensor->pBandResp[nOutBand].eRespType != KS_RT_GAUSSIAN.\n", "_GenGaussConvCoeffs ()"));
    expectRefused(
        _GenTriangularConvCoeffs, KS_RT_TRIANGULAR,
        failure("%s: pSensor->pBandResp[nOutBand].eRespType != KS_RT_TRIANGULAR.\n", "_GenTrianConvCoeffs ()"));
    expectRefused(_GenBoxConvCoeffs, KS_RT_BOX,
                  failure("%s: pSensor->eRespType != KS_RT_BOX.\n", "_GenBoxConvCoeffs ()"));
    expectRefused(_GenTrapConvCoeffs, KS_RT_TRAPEZOIDAL,
                  failure("%s: pSensor->eRespType != KS_RT_TRAPEZOIDAL.\n", "_GenTrapConvCoeffs ()"));
    expectRefused(_GenCustConvCoeffs, KS_RT_CUSTOM,
                  failure("%s: pSensor->pBandResp[nOutBand].eRespType != KS_RT_CUSTOM.\n", "_GenCustConvCoeffs ()"));
}

TEST_F(KSGenSpPrConvCoeffsTest, ChecksItsArgumentsInOrder) {
    const char* label = "KSGenSpPrConvCoeffs ()";
    const Schema schema = targetAt({400.0F});
    const KSSensor blank{};
    EXPECT_EQ(KSGenSpPrConvCoeffs(nullptr, nullptr), nullptr);
    expectReports({failure("%s: pSTSchema == NULL.\n", label)}, "schema");
    EXPECT_EQ(KSGenSpPrConvCoeffs(schema.get(), nullptr), nullptr);
    expectReports({failure("%s: pSensor == NULL.\n", label)}, "sensor");
    EXPECT_EQ(KSGenSpPrConvCoeffs(schema.get(), &blank), nullptr);
    expectReports({failure("%s: pSensor->peBandResp == NULL.\n", label)}, "responses");
}

TEST_F(KSGenSpPrConvCoeffsTest, TellsOfRecordsThatCouldNotBeMade) {
    const Schema schema = targetAt({400.0F});
    const Sensor sensor({box(400.0F, 1.0F)});
    for (int nth = 1; nth <= 4; ++nth) {
        refuseAllocation(nth);
        EXPECT_EQ(KSGenSpPrConvCoeffs(schema.get(), &sensor), nullptr);
        ASSERT_EQ(host().reports.size(), 2U);
        EXPECT_EQ(host().reports[0].label, "KSCreateConvCoeffs ()");
        EXPECT_EQ(host().reports[1],
                  failure("%s: pRetVal == NULL, KSCreateConvCoeffs() failed.\n", "KSGenSpPrConvCoeffs ()"));
        host().forget();
    }
    refuseAllocation(5);
    EXPECT_NE(coeffsFor(schema, sensor), nullptr);
    EXPECT_FALSE(allocationRefused());
}

TEST_F(KSGenSpPrConvCoeffsTest, ABandOfNoKnownTypeEndsTheWorkAndKeepsWhatWasDone) {
    const Schema schema = targetAt(evenly(400.0F, 10.0F, 9));
    for (const int type : {0, -1, 6}) {
        const Sensor sensor({box(420.0F, 20.0F), symmetric(type, 440.0F, 20.0F), box(460.0F, 20.0F)});
        const Coeffs coeffs = coeffsFor(schema, sensor);
        expectReports({failure("%s: Unrecognized response type.\n", "_EvalInterval ()"),
                       failure("%s: _EvalStartEndInds () failed.\n", "KSGenSpPrConvCoeffs ()")},
                      std::to_string(type));
        ASSERT_NE(coeffs, nullptr);
        EXPECT_EQ(rangeOf(coeffs, 0), Range(1, 3));
        EXPECT_EQ(rangeOf(coeffs, 1), kUncovered);
        EXPECT_EQ(rangeOf(coeffs, 2), kUncovered) << "never looked at";
        EXPECT_EQ(weights(coeffs), (std::vector<float>{0, 1, 1, 1, 0, 0, 0, 0, 0}));
    }
}

TEST_F(KSGenSpPrConvCoeffsTest, ATableWithoutSamplesFailsWhereItIsNeeded) {
    const Schema schema = targetAt(evenly(400.0F, 10.0F, 9));
    std::vector<float> samples = {1.0F, 2.0F};
    KSBandResp response = custom(415.0F, 445.0F, samples);
    response.pafSamples = nullptr;
    EXPECT_EQ(coeffsFor(schema, Sensor({box(420.0F, 20.0F), response})), nullptr);
    expectReports({failure("%s: pSensor->pBandResp[nOutBand].pafSamples == NULL.\n", "_GenCustConvCoeffs ()"),
                   failure("%s: _GenCustConvCoeffs () failed.\n", "KSGenSpPrConvCoeffs ()")},
                  "covered");
    response.fParm1 = 300.0F;
    EXPECT_NE(coeffsFor(schema, Sensor({response})), nullptr) << "uncovered";
    response.fParm1 = 415.0F;
    response.nNumSamples = 0;
    const Coeffs coeffs = coeffsFor(schema, Sensor({response}));
    ASSERT_NE(coeffs, nullptr);
    EXPECT_EQ(rangeOf(coeffs, 0), Range(2, 4));
    EXPECT_EQ(weights(coeffs), std::vector<float>(9, 0.0F)) << "no samples to need";
    expectReports({}, "not needed");
}

// ---- where a band is covered ----

using CoverageTest = LibraryTest;

TEST_F(CoverageTest, NeedsAnInputBelowAndAnInputAboveTheInterval) {
    const Schema schema = targetAt(evenly(400.0F, 10.0F, 11));  // 400..500
    std::vector<float> samples = {1.0F, 1.0F};
    const auto rangeFor = [&](const KSBandResp& response) {
        const Coeffs coeffs = coeffsFor(schema, Sensor({response}));
        return rangeOf(coeffs, 0);
    };
    EXPECT_EQ(rangeFor(box(450.0F, 20.0F)), Range(4, 6)) << "both ends belong to it";
    EXPECT_EQ(rangeFor(box(450.0F, 19.0F)), Range(5, 5));
    EXPECT_EQ(rangeFor(box(455.0F, 8.0F)), kUncovered) << "between two inputs";
    EXPECT_EQ(rangeFor(box(410.0F, 0.0F)), Range(1, 1)) << "no width, on an input";
    EXPECT_EQ(rangeFor(box(405.0F, 9.0F)), kUncovered) << "between the first two inputs";

    EXPECT_EQ(rangeFor(box(410.0F, 20.0F)), kUncovered) << "starts at the first input";
    EXPECT_EQ(rangeFor(box(410.0F, 22.0F)), kUncovered) << "starts below the first input";
    EXPECT_EQ(rangeFor(box(410.0F, 19.5F)), Range(1, 1)) << "starts above the first input";
    EXPECT_EQ(rangeFor(box(490.0F, 20.0F)), kUncovered) << "ends at the last input";
    EXPECT_EQ(rangeFor(box(490.0F, 22.0F)), kUncovered) << "ends above the last input";
    EXPECT_EQ(rangeFor(box(490.0F, 19.5F)), Range(9, 9)) << "ends below the last input";
    EXPECT_EQ(rangeFor(box(300.0F, 20.0F)), kUncovered) << "below all";
    EXPECT_EQ(rangeFor(box(600.0F, 20.0F)), kUncovered) << "above all";
    EXPECT_EQ(rangeFor(box(450.0F, -20.0F)), kUncovered) << "a negative width";
    EXPECT_EQ(rangeFor(box(kNaN, 20.0F)), kUncovered);
    EXPECT_EQ(rangeFor(box(450.0F, kNaN)), kUncovered);

    EXPECT_EQ(rangeFor(custom(410.0F, 490.0F, samples)), Range(1, 9)) << "its own limits, not centre and width";
    EXPECT_EQ(rangeFor(custom(400.0F, 490.0F, samples)), kUncovered);
    EXPECT_EQ(rangeFor(custom(410.0F, 500.0F, samples)), kUncovered);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(CoverageTest, IsTakenAtHalfTheWidthForEverySymmetricType) {
    const Schema schema = targetAt(evenly(400.0F, 10.0F, 11));
    for (const int type : {KS_RT_GAUSSIAN, KS_RT_TRIANGULAR, KS_RT_BOX, KS_RT_TRAPEZOIDAL}) {
        const Coeffs coeffs = coeffsFor(schema, Sensor({symmetric(type, 450.0F, 40.0F, 30.0F)}));
        EXPECT_EQ(rangeOf(coeffs, 0), Range(3, 7)) << type;
    }
}

TEST_F(CoverageTest, FewInputsCoverNothing) {
    for (const int inputs : {0, 1, 2}) {
        const Schema schema = targetAt(evenly(400.0F, 10.0F, inputs));
        const Coeffs coeffs = coeffsFor(schema, Sensor({box(405.0F, 4.0F), box(400.0F, 0.0F), box(405.0F, 100.0F)}));
        ASSERT_NE(coeffs, nullptr);
        for (int band = 0; band < 3; ++band) EXPECT_EQ(rangeOf(coeffs, band), kUncovered) << inputs;
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(CoverageTest, OldIndicesAreForgotten) {
    const Schema schema = targetAt(evenly(400.0F, 10.0F, 11));
    const Sensor sensor({box(400.0F, 20.0F)});
    const Coeffs coeffs(KSCreateConvCoeffs(11, 1));
    coeffs->panStartInd[0] = 3;
    coeffs->panEndInd[0] = 5;
    EXPECT_EQ(_EvalStartEndInds(coeffs.get(), schema.get(), &sensor, 0), 0);
    EXPECT_EQ(rangeOf(coeffs, 0), kUncovered);
}

TEST_F(CoverageTest, EndsAreTheFirstFromBelowAndTheFirstFromAboveInAnyOrder) {
    std::mt19937 engine(20240612U);
    std::uniform_real_distribution<float> wavelength(400.0F, 500.0F);
    int covered = 0;
    for (int round = 0; round < 500; ++round) {
        std::vector<float> wlens;
        for (int i = 0; i < 12; ++i) wlens.push_back(i % 5 == round % 7 ? kNaN : wavelength(engine));
        const float centre = wavelength(engine);
        const float width = (wavelength(engine) - 400.0F) / 2.0F;
        const double low = static_cast<double>(centre) - static_cast<double>(width) / 2.0;
        const double high = static_cast<double>(centre) + static_cast<double>(width) / 2.0;
        Range expected = kUncovered;
        for (int start = 0; start < 12; ++start) {
            if (!(static_cast<double>(wlens[static_cast<std::size_t>(start)]) >= low)) continue;
            for (int end = 11; end >= 0; --end) {
                if (!(static_cast<double>(wlens[static_cast<std::size_t>(end)]) <= high)) continue;
                if (start > 0 && end < 11 && start <= end) expected = {start, end};
                break;
            }
            break;
        }
        const Coeffs coeffs = coeffsFor(targetAt(wlens), Sensor({box(centre, width)}));
        EXPECT_EQ(rangeOf(coeffs, 0), expected) << "round " << round;
        if (expected != kUncovered) ++covered;
    }
    EXPECT_GT(covered, 50);
    EXPECT_LT(covered, 450);
}

// ---- weights ----

using WeightsTest = LibraryTest;

TEST_F(WeightsTest, AGaussianIsHalfAtHalfItsWidth) {
    const Schema schema = targetAt(evenly(485.0F, 5.0F, 7));  // 485..515
    const Coeffs coeffs = coeffsFor(schema, Sensor({gaussian(500.0F, 10.0F)}));
    EXPECT_EQ(rangeOf(coeffs, 0), Range(2, 4));
    EXPECT_FLOAT_EQ(coeffs->pafCoeffs[2], 0.5F);
    EXPECT_EQ(coeffs->pafCoeffs[3], 1.0F);
    EXPECT_FLOAT_EQ(coeffs->pafCoeffs[4], 0.5F);
    EXPECT_EQ(coeffs->pafCoeffs[1], 0.0F) << "outside nothing is written";
    EXPECT_EQ(coeffs->pafCoeffs[5], 0.0F);
}

TEST_F(WeightsTest, AVeryNarrowGaussianCountsAsOneOfAFixedWidth) {
    // exp(-(2e-5)^2 ln 2 / (0.25 * 1e-8)), as a width of 0.0001 would give.
    const double fixed = std::exp(-4e-10 * std::log(2.0) / 0.25e-8);
    const double own = std::exp(-4e-10 * std::log(2.0) / (0.25 * 6.4e-9));
    const Schema schema = targetAt({0.4F, 0.5F, 0.50002F, 0.6F});
    const Coeffs coeffs = coeffsFor(schema, Sensor({gaussian(0.5F, 8e-5F)}));
    EXPECT_EQ(rangeOf(coeffs, 0), Range(1, 2));
    EXPECT_EQ(coeffs->pafCoeffs[1], 1.0F);
    EXPECT_NEAR(static_cast<double>(coeffs->pafCoeffs[2]), fixed, 1e-3);  // 0.50002F is off by half an ulp
    EXPECT_GT(fixed - own, 0.04);

    const Coeffs line = coeffsFor(schema, Sensor({gaussian(0.5F, 0.0F)}));
    EXPECT_EQ(rangeOf(line, 0), Range(1, 1));
    EXPECT_EQ(line->pafCoeffs[1], 1.0F);
}

TEST_F(WeightsTest, ATriangleFallsToNothingAtItsBase) {
    const Schema schema = targetAt(evenly(480.0F, 2.5F, 17));  // 480..520
    const Coeffs coeffs = coeffsFor(schema, Sensor({symmetric(KS_RT_TRIANGULAR, 500.0F, 20.0F)}));
    EXPECT_EQ(rangeOf(coeffs, 0), Range(4, 12));
    const std::vector<float> all = weights(coeffs);
    EXPECT_EQ((std::vector<float>(all.begin() + 4, all.begin() + 13)),
              (std::vector<float>{0.0F, 0.25F, 0.5F, 0.75F, 1.0F, 0.75F, 0.5F, 0.25F, 0.0F}));
}

TEST_F(WeightsTest, ATrapezoidIsFlatUpToHalfItsTopWidth) {
    const Schema schema = targetAt(evenly(480.0F, 2.5F, 17));
    const Coeffs coeffs = coeffsFor(schema, Sensor({symmetric(KS_RT_TRAPEZOIDAL, 500.0F, 30.0F, 10.0F)}));
    EXPECT_EQ(rangeOf(coeffs, 0), Range(2, 14));
    const std::vector<float> all = weights(coeffs);
    EXPECT_EQ((std::vector<float>(all.begin() + 2, all.begin() + 15)),
              (std::vector<float>{0.0F, 0.25F, 0.5F, 0.75F, 1.0F, 1.0F, 1.0F, 1.0F, 1.0F, 0.75F, 0.5F, 0.25F, 0.0F}));

    const Coeffs steep = coeffsFor(schema, Sensor({symmetric(KS_RT_TRAPEZOIDAL, 500.0F, 30.0F, 30.0F)}));
    EXPECT_EQ(rangeOf(steep, 0), Range(2, 14));
    for (int i = 2; i <= 14; ++i) EXPECT_EQ(steep->pafCoeffs[i], 1.0F) << "a top as wide as the base";
}

TEST_F(WeightsTest, ATableIsInterpolatedAndGoesOnWithZeroes) {
    std::vector<float> samples = {0.25F, 1.0F, 0.5F, 0.75F};    // at 400, 420, 440, 460; then 0 at 480 and 500
    const Schema schema = targetAt(evenly(390.0F, 10.0F, 13));  // 390..510
    const Coeffs coeffs = coeffsFor(schema, Sensor({custom(400.0F, 500.0F, samples)}));
    EXPECT_EQ(rangeOf(coeffs, 0), Range(1, 11));
    EXPECT_EQ(weights(coeffs), (std::vector<float>{0.0F, 0.25F, 0.625F, 1.0F, 0.75F, 0.5F, 0.625F, 0.75F, 0.375F, 0.0F,
                                                   0.0F, 0.0F, 0.0F}));
}

TEST_F(WeightsTest, ATableNeverReadsOutsideItself) {
    std::vector<float> samples = {1.0F};
    KSBandResp response = custom(400.0F, 500.0F, samples);
    // In no order: an input below the start wavelength lies between two inside.
    const Schema unsorted = targetAt({390.0F, 410.0F, 100.0F, -1e30F, 1e30F, kNaN, 460.0F, 510.0F});
    const Coeffs coeffs = coeffsFor(unsorted, Sensor({response}));
    EXPECT_EQ(rangeOf(coeffs, 0), Range(1, 6));
    EXPECT_EQ(coeffs->pafCoeffs[1], 0.8F) << "1 at 400, 0 at 450";
    EXPECT_EQ(coeffs->pafCoeffs[2], 0.0F);
    EXPECT_EQ(coeffs->pafCoeffs[3], 0.0F);
    EXPECT_EQ(coeffs->pafCoeffs[4], 0.0F);
    EXPECT_EQ(coeffs->pafCoeffs[6], 0.0F);

    const Schema schema = targetAt({390.0F, 410.0F, 450.0F, 510.0F});
    for (const int count : {-1, -5, std::numeric_limits<int>::min()}) {
        response.nNumSamples = count;
        EXPECT_NE(coeffsFor(schema, Sensor({response})), nullptr);
    }
    response.nNumSamples = 1;
    response.fParm1 = response.fParm2 = 410.0F;
    EXPECT_EQ(rangeOf(coeffsFor(schema, Sensor({response})), 0), Range(1, 1)) << "a step of no length";
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(WeightsTest, AnUncoveredBandWritesNothing) {
    std::vector<float> samples = {1.0F, 1.0F};
    const Schema schema = targetAt(evenly(400.0F, 10.0F, 5));
    for (const NamedStep& named : kSteps) {
        if (named.step == _EvalStartEndInds) continue;
        KSBandResp response = custom(415.0F, 425.0F, samples);
        response.eRespType = named.type;
        const Sensor sensor({response});
        const Coeffs coeffs(KSCreateConvCoeffs(5, 1));
        std::fill_n(coeffs->pafCoeffs, 5, 7.0F);
        EXPECT_EQ(named.step(coeffs.get(), schema.get(), &sensor, 0), 0);
        EXPECT_EQ(weights(coeffs), std::vector<float>(5, 7.0F)) << named.label;
        coeffs->panStartInd[0] = 2;
        EXPECT_EQ(named.step(coeffs.get(), schema.get(), &sensor, 0), 0);
        EXPECT_EQ(weights(coeffs), std::vector<float>(5, 7.0F)) << named.label << " with a start alone";
        coeffs->panEndInd[0] = std::numeric_limits<int>::max();
        EXPECT_EQ(named.step(coeffs.get(), schema.get(), &sensor, 0), 0);
        EXPECT_EQ(coeffs->pafCoeffs[1], 7.0F) << named.label;
        EXPECT_NE(coeffs->pafCoeffs[4], 7.0F) << named.label << " with an end past the schema";
    }
    EXPECT_EQ(host().reports, Reports{});
}

/// A response as its definition reads, in long double.
long double response(const KSBandResp& band, float atWavelength) {
    const long double distance = std::fabs(static_cast<long double>(band.fCentre) - atWavelength);
    const long double base = static_cast<long double>(band.fFWHM) / 2;
    const long double top = static_cast<long double>(band.fWidth2) / 2;
    switch (band.eRespType) {
        case KS_RT_GAUSSIAN:
            return std::pow(0.5L, (distance / base) * (distance / base));
        case KS_RT_TRIANGULAR:
            return 1 - distance / base;
        case KS_RT_BOX:
            return 1;
        case KS_RT_TRAPEZOIDAL:
            return distance <= top ? 1 : (base - distance) / (base - top);
        default: {
            const long double start = band.fParm1;
            const long double position = (atWavelength - start) * (band.nNumSamples + 1) / (band.fParm2 - start);
            const int point = static_cast<int>(position);
            const auto sample = [&band](int i) { return i < band.nNumSamples ? band.pafSamples[i] : 0.0L; };
            return sample(point) + (sample(point + 1) - sample(point)) * (position - point);
        }
    }
}

TEST_F(WeightsTest, FollowTheirDefinitionsOnManyBands) {
    std::mt19937 engine(11U);
    std::uniform_real_distribution<float> unit(0.0F, 1.0F);
    std::vector<float> samples(37);
    std::generate(samples.begin(), samples.end(), [&] { return unit(engine); });
    std::vector<float> wlens;
    for (float at = 350.0F; at < 2500.0F; at += 0.2F + 3.0F * unit(engine)) wlens.push_back(at);
    const Schema schema = targetAt(wlens);
    constexpr double kTolerance = 2e-7;  // single precision, and a table's steep flanks
    for (int round = 0; round < 200; ++round) {
        KSBandResp band = custom(0.0F, 0.0F, samples);
        band.eRespType = round % 5 + 1;
        band.fCentre = 450.0F + 1900.0F * unit(engine);
        band.fFWHM = 5.0F + 100.0F * unit(engine);
        band.fWidth2 = band.fFWHM * unit(engine);
        band.fParm1 = band.fCentre - 40.0F;
        band.fParm2 = band.fCentre + 60.0F * unit(engine);
        const Coeffs coeffs = coeffsFor(schema, Sensor({band}));
        const auto [start, end] = rangeOf(coeffs, 0);
        ASSERT_GT(start, 0);
        ASSERT_GE(end, start);
        for (int i = start; i <= end; ++i) {
            EXPECT_NEAR(static_cast<double>(coeffs->pafCoeffs[i]),
                        static_cast<double>(response(band, wlens[static_cast<std::size_t>(i)])), kTolerance)
                << "type " << band.eRespType << " round " << round << " input " << i;
        }
    }
}

TEST_F(WeightsTest, OfALaterBandStandWhereBandsOverlap) {
    const Schema schema = targetAt(evenly(400.0F, 10.0F, 11));
    const Coeffs coeffs = coeffsFor(schema, Sensor({symmetric(KS_RT_TRIANGULAR, 440.0F, 80.0F), box(460.0F, 40.0F)}));
    EXPECT_EQ(rangeOf(coeffs, 0), kUncovered) << "starts at the first input";
    const Coeffs both = coeffsFor(schema, Sensor({symmetric(KS_RT_TRIANGULAR, 440.0F, 40.0F), box(460.0F, 40.0F)}));
    EXPECT_EQ(rangeOf(both, 0), Range(2, 6));
    EXPECT_EQ(rangeOf(both, 1), Range(4, 8));
    EXPECT_EQ(weights(both), (std::vector<float>{0.0F, 0.0F, 0.0F, 0.5F, 1.0F, 1.0F, 1.0F, 1.0F, 1.0F, 0.0F, 0.0F}));
}

}  // namespace
