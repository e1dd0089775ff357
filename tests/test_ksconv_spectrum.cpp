// Resampling of spectra: weighted means, and the choice of samples.
#include <kslib.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "datasets.hpp"
#include "fixture.hpp"
#include "resampling.hpp"

using namespace kit;

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// ---- converting a spectrum ----

struct KSConvSpecTest : LibraryTest {
    Schema schema = targetAt(evenly(400.0F, 10.0F, 11));  // 400..500
    Spectrum in;
    Spectrum out;
    const std::vector<int> first = {0};

    void SetUp() override {
        LibraryTest::SetUp();
        in = spectrumOf(evenly(400.0F, 10.0F, 11), {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11});
        out = blankSpectrum(1);
    }
    int convert(const Coeffs& coeffs, int useQuality = 0) {
        return KSConvSpec(in.get(), out.get(), coeffs.get(), useQuality, first.data(), 1);
    }
    void expectMasked(const std::string& what) const {
        EXPECT_EQ(values(out), std::vector<double>{kMaskedValue}) << what;
        EXPECT_EQ(qualities(out), std::vector<int>{KS_BQ_MASK}) << what;
    }
    void expectValue(double value, const std::string& what) const {
        EXPECT_EQ(values(out), std::vector<double>{value}) << what;
        EXPECT_EQ(qualities(out), std::vector<int>{KS_BQ_PLOT}) << what;
    }
};

TEST_F(KSConvSpecTest, ChecksItsArgumentsInOrder) {
    const char* label = "KSConvSpec ()";
    const Coeffs other(KSCreateConvCoeffs(10, 0));
    const Coeffs none(KSCreateConvCoeffs(11, 0));
    const Coeffs two(KSCreateConvCoeffs(11, 2));
    const Coeffs one(KSCreateConvCoeffs(11, 1));
    const auto expectRefused = [&](const KSSpectrum* from, KSSpectrum* to, const Coeffs* coeffs, const int* bands,
                                   int count, const Report& report) {
        EXPECT_EQ(KSConvSpec(from, to, coeffs == nullptr ? nullptr : coeffs->get(), 0, bands, count), 1);
        expectReports({report}, report.format);
    };
    expectRefused(nullptr, nullptr, nullptr, nullptr, 0, failure("%s: pSpectrumIn == NULL.\n", label));
    expectRefused(in.get(), nullptr, nullptr, nullptr, 0, failure("%s: pSpectrumOut == NULL.\n", label));
    expectRefused(in.get(), out.get(), nullptr, nullptr, 0, failure("%s: pConvCoeffs == NULL.\n", label));
    expectRefused(in.get(), out.get(), &other, nullptr, 0, failure("%s: panSelBands == NULL.\n", label));
    expectRefused(in.get(), out.get(), &other, first.data(), 0, failure("%s: nNumSelBands <= 0.\n", label));
    expectRefused(in.get(), out.get(), &other, first.data(), -1, failure("%s: nNumSelBands <= 0.\n", label));
    expectRefused(in.get(), out.get(), &other, first.data(), 2,
                  failure("%s: pSpectrumIn->nNumMeasVals != pConvCoeffs->nNumCoeffs.\n", label));
    expectRefused(in.get(), out.get(), &none, first.data(), 2,
                  failure("%s: pSpectrumOut->nNumMeasVals > pConvCoeffs->nNumOutBands.\n", label));
    expectRefused(in.get(), out.get(), &two, first.data(), 2,
                  failure("%s: pSpectrumOut->nNumMeasVals != nNumSelBands.\n", label));
    expectRefused(in.get(), out.get(), &one, first.data(), 2,
                  failure("%s: pSpectrumOut->nNumMeasVals != nNumSelBands.\n", label));
    expectValue(77.0, "untouched");
    EXPECT_EQ(out->szTarget, nullptr);
}

TEST_F(KSConvSpecTest, RefusesRecordsThatLackTheirArrays) {
    const char* label = "KSConvSpec ()";
    const auto expectRefused = [&](const std::function<void(KSSpectrum&, KSSpectrum&, KSConvCoeffs&)>& edit,
                                   const Report& report) {
        const Spectrum from = spectrumOf(evenly(400.0F, 10.0F, 11), std::vector<double>(11, 1.0));
        const Spectrum to = blankSpectrum(1);
        const Coeffs coeffs(KSCreateConvCoeffs(11, 1));
        edit(*from, *to, *coeffs);
        EXPECT_EQ(KSConvSpec(from.get(), to.get(), coeffs.get(), 1, first.data(), 1), 1);
        expectReports({report}, report.format);
    };
    expectRefused([](KSSpectrum& from, KSSpectrum&, KSConvCoeffs&) { from.pMeas->dim = 10; },
                  failure("%s: pSpectrumIn->pMeas holds fewer than nNumMeasVals values.\n", label));
    expectRefused(
        [](KSSpectrum& from, KSSpectrum&, KSConvCoeffs&) {
            v_free(from.pMeas);
            from.pMeas = nullptr;
        },
        failure("%s: pSpectrumIn->pMeas holds fewer than nNumMeasVals values.\n", label));
    expectRefused([&](KSSpectrum& from, KSSpectrum&, KSConvCoeffs&) { drop(from.peBandQual); },
                  failure("%s: pSpectrumIn->peBandQual == NULL.\n", label));
    expectRefused([](KSSpectrum&, KSSpectrum& to, KSConvCoeffs&) { to.pMeas->dim = 0; },
                  failure("%s: pSpectrumOut->pMeas holds fewer than nNumMeasVals values.\n", label));
    expectRefused([&](KSSpectrum&, KSSpectrum& to, KSConvCoeffs&) { drop(to.peBandQual); },
                  failure("%s: pSpectrumOut->peBandQual == NULL.\n", label));
    expectRefused([&](KSSpectrum&, KSSpectrum&, KSConvCoeffs& coeffs) { drop(coeffs.pafCoeffs); },
                  failure("%s: pConvCoeffs->pafCoeffs == NULL.\n", label));
    expectRefused([&](KSSpectrum&, KSSpectrum&, KSConvCoeffs& coeffs) { drop(coeffs.panStartInd); },
                  failure("%s: pConvCoeffs->panStartInd == NULL.\n", label));
    expectRefused([&](KSSpectrum&, KSSpectrum&, KSConvCoeffs& coeffs) { drop(coeffs.panEndInd); },
                  failure("%s: pConvCoeffs->panEndInd == NULL.\n", label));

    drop(in->peBandQual);
    EXPECT_EQ(convert(coeffsFor(schema, Sensor({box(450.0F, 20.0F)}))), 0) << "qualities that nobody asks for";
    expectValue(6.0, "without qualities");
}

TEST_F(KSConvSpecTest, NamesTheTargetAndCopiesTheQuantity) {
    const Coeffs coeffs = coeffsFor(schema, Sensor({box(450.0F, 20.0F)}));
    in->szTarget = heapText("oak");
    in->eRadQuant = KS_RQ_REFL;
    out->szTarget = heapText("what was there before");
    EXPECT_EQ(convert(coeffs), 0);
    EXPECT_STREQ(out->szTarget, "oak (resampled)");
    EXPECT_EQ(out->eRadQuant, KS_RQ_REFL);
    EXPECT_STREQ(in->szTarget, "oak");

    std::free(in->szTarget);
    in->szTarget = heapText("");
    EXPECT_EQ(convert(coeffs), 0);
    EXPECT_STREQ(out->szTarget, " (resampled)") << "an empty name is a name";

    std::free(in->szTarget);
    in->szTarget = nullptr;
    EXPECT_EQ(convert(coeffs), 0);
    EXPECT_STREQ(out->szTarget, " (resampled)") << "no name leaves the old one";
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSConvSpecTest, WithoutMemoryForTheNameLeavesTheOutputAsItWas) {
    const Coeffs coeffs = coeffsFor(schema, Sensor({box(450.0F, 20.0F)}));
    in->szTarget = heapText("oak");
    in->eRadQuant = KS_RQ_REFL;
    out->szTarget = heapText("old");
    refuseAllocation(1);
    EXPECT_EQ(convert(coeffs), 1);
    expectReports({failure("%s: pSpectrumOut->szTarget == NULL, HMalloc() failed.\n", "KSConvSpec ()")}, "target");
    EXPECT_STREQ(out->szTarget, "old");
    EXPECT_EQ(out->eRadQuant, KS_RQ_UNKNOWN);
    expectValue(77.0, "untouched");
    refuseAllocation(2);
    EXPECT_EQ(convert(coeffs), 0);
    EXPECT_FALSE(allocationRefused());
}

TEST_F(KSConvSpecTest, TakesTheWeightedMeanOfTheInputsInside) {
    EXPECT_EQ(convert(coeffsFor(schema, Sensor({box(450.0F, 20.0F)}))), 0);
    expectValue((5.0 + 6.0 + 7.0) / 3.0, "box");
    // Weights 0.5, 1, 0.5 over 5, 6, 8.
    in->pMeas->ve[6] = 8.0;
    EXPECT_EQ(convert(coeffsFor(schema, Sensor({symmetric(KS_RT_TRIANGULAR, 450.0F, 40.0F)}))), 0);
    expectValue((0.5 * 5.0 + 6.0 + 0.5 * 8.0) / 2.0, "triangle");
    EXPECT_EQ(out->pSD->ve[0], 77.0 / 8.0) << "deviations are not converted";
    EXPECT_EQ(out->pafWlen[0], 0.0F) << "nor are wavelengths";
}

TEST_F(KSConvSpecTest, QualitiesCountOnRequestOnly) {
    const Coeffs coeffs = coeffsFor(schema, Sensor({box(450.0F, 40.0F)}));  // inputs 3..7
    in->peBandQual[3] = KS_BQ_UNKNOWN;
    in->peBandQual[4] = KS_BQ_SKIP;
    in->peBandQual[5] = KS_BQ_MASK;
    in->peBandQual[6] = KS_BQ_BMASK;
    in->peBandQual[7] = KS_BQ_PLOT;
    EXPECT_EQ(convert(coeffs, 0), 0);
    expectValue(6.0, "all");
    EXPECT_EQ(convert(coeffs, 1), 0);
    expectValue((7.0 + 8.0) / 2.0, "plot and bmask");
    EXPECT_EQ(convert(coeffs, -3), 0);
    expectValue((7.0 + 8.0) / 2.0, "any number that is not 0");
    in->peBandQual[6] = in->peBandQual[7] = KS_BQ_MASK;
    EXPECT_EQ(convert(coeffs, 1), 0);
    expectMasked("nothing of use");
}

TEST_F(KSConvSpecTest, NegativeInputsAreLeftOut) {
    const Coeffs coeffs = coeffsFor(schema, Sensor({box(450.0F, 20.0F)}));  // inputs 4..6
    in->pMeas->ve[5] = -1e-300;
    EXPECT_EQ(convert(coeffs), 0);
    expectValue(6.0, "5 and 7");
    in->pMeas->ve[5] = 0.0;
    EXPECT_EQ(convert(coeffs), 0);
    expectValue(4.0, "a zero counts");
    in->pMeas->ve[5] = -0.0;
    EXPECT_EQ(convert(coeffs), 0);
    expectValue(4.0, "either zero");
    for (const int i : {4, 5, 6}) in->pMeas->ve[i] = -5.0;
    EXPECT_EQ(convert(coeffs), 0);
    expectMasked("all negative");
    for (const int i : {4, 5, 6}) in->pMeas->ve[i] = kMaskedValue;
    EXPECT_EQ(convert(coeffs), 0);
    expectMasked("all masked");
    in->pMeas->ve[5] = static_cast<double>(kNaN);
    EXPECT_EQ(convert(coeffs), 0);
    expectMasked("not a number");
}

TEST_F(KSConvSpecTest, TheWeightedSumHasToExceedALimit) {
    const Coeffs single = coeffsFor(schema, Sensor({box(450.0F, 2.0F)}));  // input 5 alone, weight 1
    const auto expectOf = [&](double value, bool masked) {
        in->pMeas->ve[5] = value;
        EXPECT_EQ(convert(single), 0);
        if (masked) {
            expectMasked(std::to_string(value));
        } else {
            expectValue(value, std::to_string(value));
        }
    };
    expectOf(0.0, true);
    expectOf(1e-5, true);
    expectOf(std::nextafter(1e-5, 1.0), false);
    // The sum over many inputs passes where each alone would not.
    for (const int i : {4, 5, 6}) in->pMeas->ve[i] = 0.5e-5;
    EXPECT_EQ(convert(coeffsFor(schema, Sensor({box(450.0F, 20.0F)}))), 0);
    EXPECT_DOUBLE_EQ(out->pMeas->ve[0], 0.5e-5);
    EXPECT_EQ(out->peBandQual[0], KS_BQ_PLOT);
    EXPECT_EQ(convert(coeffsFor(schema, Sensor({symmetric(KS_RT_TRIANGULAR, 450.0F, 20.0F)}))), 0);
    expectMasked("small by its weights");
}

TEST_F(KSConvSpecTest, UncoveredAndForeignBandsAreMasked) {
    const Coeffs coeffs = coeffsFor(schema, Sensor({box(450.0F, 20.0F), box(400.0F, 20.0F), box(500.0F, 20.0F),
                                                    box(430.0F, 20.0F), box(460.0F, 2.0F), box(470.0F, 2.0F)}));
    const std::vector<int> bands = {3, 1, 2, 0, -1, 6};
    out = blankSpectrum(6);
    EXPECT_EQ(KSConvSpec(in.get(), out.get(), coeffs.get(), 0, bands.data(), 6), 0);
    EXPECT_EQ(values(out), (std::vector<double>{4.0, kMaskedValue, kMaskedValue, 6.0, kMaskedValue, kMaskedValue}));
    EXPECT_EQ(qualities(out),
              (std::vector<int>{KS_BQ_PLOT, KS_BQ_MASK, KS_BQ_MASK, KS_BQ_PLOT, KS_BQ_MASK, KS_BQ_MASK}));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSConvSpecTest, AHalfKnownRangeIsMaskedAndALongOneEndsWithTheInputs) {
    const Coeffs coeffs(KSCreateConvCoeffs(11, 1));
    std::fill_n(coeffs->pafCoeffs, 11, 1.0F);
    coeffs->panStartInd[0] = 8;
    EXPECT_EQ(convert(coeffs), 0);
    expectMasked("no end");
    coeffs->panEndInd[0] = std::numeric_limits<int>::max();
    EXPECT_EQ(convert(coeffs), 0);
    expectValue(10.0, "to the last input");
    coeffs->panStartInd[0] = -2;
    EXPECT_EQ(convert(coeffs), 0);
    expectMasked("no start");
    coeffs->panStartInd[0] = 11;
    EXPECT_EQ(convert(coeffs), 0);
    expectMasked("nothing inside");
}

TEST_F(KSConvSpecTest, OverlappingBandsUseTheWeightsOfTheLaterOne) {
    const Coeffs coeffs = coeffsFor(schema, Sensor({symmetric(KS_RT_TRIANGULAR, 440.0F, 40.0F), box(460.0F, 40.0F)}));
    const std::vector<int> bands = {0, 1};
    out = blankSpectrum(2);
    for (int i = 0; i < 11; ++i) in->pMeas->ve[i] = static_cast<double>(i * i);
    EXPECT_EQ(KSConvSpec(in.get(), out.get(), coeffs.get(), 0, bands.data(), 2), 0);
    // The triangle alone would weigh 0, 0.5, 1, 0.5, 0; the box has put 1 where it shares inputs 4, 5 and 6.
    EXPECT_DOUBLE_EQ(out->pMeas->ve[0], (0.5 * 9.0 + 16.0 + 25.0 + 36.0) / 3.5);
    EXPECT_DOUBLE_EQ(out->pMeas->ve[1], (16.0 + 25.0 + 36.0 + 49.0 + 64.0) / 5.0);
}

TEST_F(KSConvSpecTest, FollowsTheFormulaOnRealisticSpectra) {
    std::mt19937 engine(5U);
    std::uniform_real_distribution<double> value(-0.1, 1.0);
    const std::vector<float> wlens = evenly(350.0F, 1.0F, 2151);
    std::vector<double> measured(wlens.size());
    std::generate(measured.begin(), measured.end(), [&] { return value(engine); });
    const Spectrum fine = spectrumOf(wlens, measured);
    std::vector<KSBandResp> responses;
    std::vector<int> bands;
    for (int b = 0; b < 200; ++b) {
        bands.push_back(b);
        responses.push_back(gaussian(365.0F + 10.5F * static_cast<float>(b), 10.0F));
    }
    const Coeffs coeffs = coeffsFor(targetAt(wlens), Sensor(responses));
    const Spectrum coarse = blankSpectrum(200);
    ASSERT_EQ(KSConvSpec(fine.get(), coarse.get(), coeffs.get(), 0, bands.data(), 200), 0);
    for (std::size_t b = 0; b < 200; ++b) {
        long double sum = 0;
        long double total = 0;
        for (std::size_t i = 0; i < wlens.size(); ++i) {
            const long double distance = std::fabs(static_cast<long double>(wlens[i]) - responses[b].fCentre);
            if (distance > 5.0L || measured[i] < 0.0) continue;
            const long double weight = std::pow(0.5L, distance * distance / 25.0L);
            sum += weight * measured[i];
            total += weight;
        }
        EXPECT_NEAR(coarse->pMeas->ve[b], static_cast<double>(sum / total), 1e-7) << b;
        EXPECT_EQ(coarse->peBandQual[b], KS_BQ_PLOT);
    }
}

// ---- choosing samples ----

using KSFiltSpecSamplesTest = LibraryTest;

TEST_F(KSFiltSpecSamplesTest, ChecksItsArgumentsInOrder) {
    const char* label = "KSFiltSpecSamples ()";
    const Spectrum spectrum = spectrumOf({400.0F}, {1.0});
    EXPECT_EQ(KSFiltSpecSamples(nullptr, nullptr), 1);
    expectReports({failure("%s: pSpectrum == NULL.\n", label)}, "spectrum");
    EXPECT_EQ(KSFiltSpecSamples(spectrum.get(), nullptr), 1);
    expectReports({failure("%s: pSTSchemaFilt == NULL.\n", label)}, "schema");
}

TEST_F(KSFiltSpecSamplesTest, RefusesASpectrumThatLacksItsArrays) {
    const char* label = "KSFiltSpecSamples ()";
    const Schema schema = targetAt({400.0F});
    const auto expectRefused = [&](const std::function<void(KSSpectrum&)>& edit, const Report& report) {
        const Spectrum spectrum = spectrumOf({400.0F, 410.0F}, {1.0, 2.0});
        edit(*spectrum);
        EXPECT_EQ(KSFiltSpecSamples(spectrum.get(), schema.get()), 1);
        EXPECT_EQ(spectrum->nNumMeasVals, 2);
        expectReports({report}, report.format);
    };
    expectRefused([](KSSpectrum& spectrum) { spectrum.pMeas->dim = 1; },
                  failure("%s: pSpectrum->pMeas holds fewer than nNumMeasVals values.\n", label));
    expectRefused(
        [](KSSpectrum& spectrum) {
            v_free(spectrum.pSD);
            spectrum.pSD = nullptr;
        },
        failure("%s: pSpectrum->pSD holds fewer than nNumMeasVals values.\n", label));
    expectRefused(
        [](KSSpectrum& spectrum) {
            std::free(spectrum.pafWlen);
            spectrum.pafWlen = nullptr;
        },
        failure("%s: pSpectrum->pafWlen == NULL.\n", label));
    expectRefused(
        [](KSSpectrum& spectrum) {
            std::free(spectrum.peBandQual);
            spectrum.peBandQual = nullptr;
        },
        failure("%s: pSpectrum->peBandQual == NULL.\n", label));
}

TEST_F(KSFiltSpecSamplesTest, KeepsMatchingValuesInTheirOrder) {
    const Spectrum spectrum = spectrumOf({400.0F, 410.0F, 420.0F, 430.0F, 440.0F}, {1.0, 2.0, 3.0, 4.0, 5.0});
    spectrum->szTarget = heapText("oak");
    spectrum->peBandQual[1] = KS_BQ_MASK;
    spectrum->peBandQual[3] = KS_BQ_BMASK;
    const Schema schema = targetAt({430.0F, 999.0F, 410.0F, 440.0F});
    EXPECT_EQ(KSFiltSpecSamples(spectrum.get(), schema.get()), 0);
    EXPECT_EQ(spectrum->nNumMeasVals, 3);
    EXPECT_EQ(wavelengthsOf(spectrum), (std::vector<float>{410.0F, 430.0F, 440.0F}));
    EXPECT_EQ(values(spectrum), (std::vector<double>{2.0, 4.0, 5.0}));
    EXPECT_EQ(deviations(spectrum), (std::vector<double>{0.25, 0.5, 0.625}));
    EXPECT_EQ(qualities(spectrum), (std::vector<int>{KS_BQ_MASK, KS_BQ_BMASK, KS_BQ_PLOT}));
    EXPECT_EQ(spectrum->pMeas->dim, 3U);
    EXPECT_EQ(spectrum->pSD->dim, 3U);
    EXPECT_STREQ(spectrum->szTarget, "oak (selected samples)");
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSFiltSpecSamplesTest, MatchesWholeThousandths) {
    const Schema schema = targetAt({400.0F});
    for (const auto& [wavelength, kept] : std::vector<std::pair<float, int>>{
             {400.0004F, 1}, {400.0006F, 0}, {399.9996F, 1}, {399.9994F, 0}, {400.0F, 1}, {-400.0F, 0}, {kNaN, 0}}) {
        const Spectrum spectrum = spectrumOf({wavelength}, {1.0});
        EXPECT_EQ(KSFiltSpecSamples(spectrum.get(), schema.get()), 0);
        EXPECT_EQ(spectrum->nNumMeasVals, kept) << wavelength;
    }
}

TEST_F(KSFiltSpecSamplesTest, NamesTheTargetOnlyWhenSomethingWasDropped) {
    const Schema schema = targetAt({400.0F, 410.0F});
    const Spectrum whole = spectrumOf({410.0F, 400.0F, 410.0F}, {1.0, 2.0, 3.0});
    whole->szTarget = heapText("oak");
    refuseAllocation(1);
    EXPECT_EQ(KSFiltSpecSamples(whole.get(), schema.get()), 0);
    EXPECT_FALSE(allocationRefused());
    EXPECT_STREQ(whole->szTarget, "oak");
    EXPECT_EQ(values(whole), (std::vector<double>{1.0, 2.0, 3.0})) << "a wavelength may match twice";

    refuseAllocation(0);
    const Spectrum nameless = spectrumOf({400.0F, 405.0F}, {1.0, 2.0});
    EXPECT_EQ(KSFiltSpecSamples(nameless.get(), schema.get()), 0);
    EXPECT_EQ(nameless->szTarget, nullptr);
    EXPECT_EQ(nameless->nNumMeasVals, 1);
}

TEST_F(KSFiltSpecSamplesTest, ASchemaWithoutFieldsKeepsNothing) {
    const Spectrum spectrum = spectrumOf({400.0F, 405.0F}, {1.0, 2.0});
    spectrum->szTarget = heapText("oak");
    EXPECT_EQ(KSFiltSpecSamples(spectrum.get(), targetAt({}).get()), 0);
    EXPECT_EQ(spectrum->nNumMeasVals, 0);
    EXPECT_EQ(spectrum->pMeas->dim, 0U);
    EXPECT_EQ(spectrum->pSD->dim, 0U);
    EXPECT_STREQ(spectrum->szTarget, "oak (selected samples)");

    KSSTSchema hollow{};
    hollow.nNumMeasFlds = 3;
    EXPECT_EQ(KSFiltSpecSamples(spectrum.get(), &hollow), 0) << "a count without fields";
    EXPECT_STREQ(spectrum->szTarget, "oak (selected samples)") << "nothing more to drop";
}

TEST_F(KSFiltSpecSamplesTest, WithoutMemoryForTheNameTheOldOneStays) {
    const Spectrum spectrum = spectrumOf({400.0F, 405.0F}, {1.0, 2.0});
    spectrum->szTarget = heapText("oak");
    refuseAllocation(1);
    EXPECT_EQ(KSFiltSpecSamples(spectrum.get(), targetAt({400.0F}).get()), 1);
    expectReports({failure("%s: szTargetNew == NULL, HMalloc() failed.\n", "KSFiltSpecSamples ()")}, "target");
    EXPECT_STREQ(spectrum->szTarget, "oak");
    EXPECT_EQ(spectrum->nNumMeasVals, 1);
}

TEST_F(KSFiltSpecSamplesTest, FindsWhatALinearSearchFinds) {
    std::mt19937 engine(3U);
    std::uniform_int_distribution<int> whole(400, 460);
    for (int round = 0; round < 200; ++round) {
        std::vector<float> wlens;
        std::vector<double> numbers;
        std::vector<float> wanted;
        for (int i = 0; i < 30; ++i) {
            wlens.push_back(static_cast<float>(whole(engine)));
            numbers.push_back(i);
            if (i % 2 == 0) wanted.push_back(static_cast<float>(whole(engine)));
        }
        std::vector<double> expected;
        for (std::size_t i = 0; i < 30; ++i) {
            if (std::count(wanted.begin(), wanted.end(), wlens[i]) > 0) expected.push_back(numbers[i]);
        }
        const Spectrum spectrum = spectrumOf(wlens, numbers);
        ASSERT_EQ(KSFiltSpecSamples(spectrum.get(), targetAt(wanted).get()), 0);
        EXPECT_EQ(values(spectrum), expected) << "round " << round;
    }
}

}  // namespace
