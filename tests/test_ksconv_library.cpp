// Resampling of whole layers: which spectra come back, in which order, and what is told and freed when one fails.
#include <kslib.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "datasets.hpp"
#include "fixture.hpp"
#include "resampling.hpp"

using namespace kit;

namespace {

constexpr const char* kLabel = "KSConvLib ()";
constexpr int kUntouched = -77;
const Names kFields = {"Target",   "Quantity", "m400_000", "m410_000", "m420_000",
                       "m430_000", "m440_000", "m450_000", "q430_000"};

struct KSConvLibTest : LibraryTest {
    HostFile* file = nullptr;
    FakeLayer* layer = nullptr;
    KSSpectrum** spectra = nullptr;
    int count = kUntouched;

    void SetUp() override {
        LibraryTest::SetUp();
        file = host().openMemoryFile();
        layer = &host().addLayer(file, "spectra", fieldsNamed(kFields));
    }
    void TearDown() override {
        release();
        GDBClose(file);
        LibraryTest::TearDown();
    }
    void release() {
        for (int i = 0; spectra != nullptr && i < count; ++i) KSFreeSpec(spectra[i]);
        std::free(spectra);
        spectra = nullptr;
        count = kUntouched;
    }
    /// A shape with values at 400, 410, ... 450.
    FakeShape& add(const std::string& target, const std::vector<double>& values) {
        FakeShape shape;
        shape.texts[0] = target;
        shape.texts[1] = "refl";
        for (std::size_t i = 0; i < values.size(); ++i) shape.numbers[static_cast<int>(i) + 2] = values[i];
        shape.texts[8] = "mask";
        layer->shapes.push_back(shape);
        return layer->shapes.back();
    }
    void convert(const KSSensor& sensor, const std::vector<int>& bands) {
        release();
        spectra = KSConvLib(layer, &sensor, bands.data(), static_cast<int>(bands.size()), &count);
    }
    std::vector<double> valuesOf(int i) const {
        return {spectra[i]->pMeas->ve, spectra[i]->pMeas->ve + spectra[i]->nNumMeasVals};
    }
};

TEST_F(KSConvLibTest, ChecksItsArgumentsInOrder) {
    const Sensor sensor({box(425.0F, 20.0F)});
    const int band = 0;
    EXPECT_EQ(KSConvLib(nullptr, nullptr, nullptr, 1, nullptr), nullptr);
    expectReports({debugOutput("%s: pSensor == NULL.\n", kLabel)}, "sensor");
    EXPECT_EQ(KSConvLib(nullptr, &sensor, nullptr, 1, nullptr), nullptr);
    expectReports({debugOutput("%s: panSelBands == NULL.\n", kLabel)}, "bands");
    EXPECT_EQ(KSConvLib(nullptr, &sensor, &band, 1, nullptr), nullptr);
    expectReports({debugOutput("%s: hLibLayer == NULL.\n", kLabel)}, "layer");
    EXPECT_EQ(KSConvLib(layer, &sensor, &band, 1, nullptr), nullptr);
    expectReports({debugOutput("%s: pnSpectra == NULL.\n", kLabel)}, "count");
    EXPECT_EQ(host().calls, std::vector<Call>{});
}

TEST_F(KSConvLibTest, ConvertsEveryShapeToTheSelectedBands) {
    add("oak", {0.1, 0.2, 0.3, 0.4, 0.5, 0.6});
    add("elm", {0.6, 0.5, 0.4, 0.3, 0.2, 0.1});
    const Sensor sensor({box(415.0F, 12.0F), box(400.0F, 10.0F), box(435.0F, 12.0F)});
    convert(sensor, {2, 1, 0});
    ASSERT_NE(spectra, nullptr);
    ASSERT_EQ(count, 2);
    EXPECT_STREQ(spectra[0]->szTarget, "oak (resampled)");
    EXPECT_STREQ(spectra[1]->szTarget, "elm (resampled)");
    EXPECT_EQ(spectra[0]->eRadQuant, KS_RQ_REFL);
    EXPECT_EQ(valuesOf(0), (std::vector<double>{(0.4 + 0.5) / 2.0, kMaskedValue, (0.2 + 0.3) / 2.0}))
        << "a quality of mask at 430 does not count";
    EXPECT_EQ(valuesOf(1), (std::vector<double>{(0.3 + 0.2) / 2.0, kMaskedValue, (0.5 + 0.4) / 2.0}));
    EXPECT_EQ(spectra[0]->peBandQual[0], KS_BQ_PLOT);
    EXPECT_EQ(spectra[0]->peBandQual[1], KS_BQ_MASK);
    EXPECT_EQ(spectra[0]->pafWlen[0], 435.0F);
    EXPECT_EQ(spectra[0]->pafWlen[2], 415.0F);
    EXPECT_EQ(host().reports, Reports{});
    EXPECT_EQ(
        host().callsOf({"GDBGetFirst", "GDBGetNext"}),
        (Names{"GDBGetFirst()", "GDBGetNext(0)", "GDBGetNext(1)", "GDBGetFirst()", "GDBGetNext(0)", "GDBGetNext(1)"}));
}

TEST_F(KSConvLibTest, OnlyFiltersSpectraThatHaveTheWavelengths) {
    add("oak", {0.1, 0.2, 0.3, 0.4, 0.5, 0.6});
    add("elm", {0.6, 0.5, 0.4, 0.3, 0.0, 0.1});
    const Sensor sensor({gaussian(440.0F, 1000.0F), gaussian(410.0F, 10.0F)});
    convert(sensor, {1, 0});
    ASSERT_EQ(count, 2);
    EXPECT_STREQ(spectra[0]->szTarget, "oak (selected samples)");
    EXPECT_EQ(valuesOf(0), (std::vector<double>{0.2, 0.5}));
    EXPECT_EQ(valuesOf(1), (std::vector<double>{0.5, 0.0}));
    EXPECT_EQ(spectra[1]->pafWlen[1], 440.0F);
    EXPECT_EQ(spectra[1]->peBandQual[1], KS_BQ_SKIP);

    convert(sensor, {0, 1});
    ASSERT_EQ(count, 2);
    EXPECT_STREQ(spectra[0]->szTarget, "oak (resampled)") << "the same wavelengths in another order are not similar";
    EXPECT_EQ(valuesOf(0).at(0), kMaskedValue) << "and the wide band is not covered";

    convert(sensor, {});
    ASSERT_EQ(spectra, nullptr) << "an empty list of bands";
    host().forget();
}

TEST_F(KSConvLibTest, NoBandsAreAllThere) {
    add("oak", {0.1, 0.2, 0.3, 0.4, 0.5, 0.6});
    const Sensor sensor({gaussian(440.0F, 10.0F)});
    const int band = 0;
    spectra = KSConvLib(layer, &sensor, &band, 0, &count);
    ASSERT_NE(spectra, nullptr);
    ASSERT_EQ(count, 1);
    EXPECT_EQ(spectra[0]->nNumMeasVals, 0);
    EXPECT_STREQ(spectra[0]->szTarget, "oak (selected samples)");
}

TEST_F(KSConvLibTest, ALayerWithoutShapesGivesAnEmptyArray) {
    convert(Sensor({box(425.0F, 12.0F)}), {0});
    EXPECT_NE(spectra, nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSConvLibTest, TellsWhenThereIsNoSchema) {
    layer->fields.clear();
    convert(Sensor({box(425.0F, 12.0F)}), {0});
    EXPECT_EQ(spectra, nullptr);
    ASSERT_EQ(host().reports.size(), 2U);
    EXPECT_EQ(host().reports[0].label, "KSSTSchemaFromLayer ()");
    EXPECT_EQ(host().reports[1], debugOutput("%s: KSSTSchemaFromLayer() failed\n", kLabel));

    host().forget();
    layer->fields = fieldsNamed(kFields);
    convert(Sensor({box(425.0F, 12.0F), symmetric(KS_RT_UNKNOWN, 430.0F, 1.0F)}), {0, 1});
    EXPECT_EQ(spectra, nullptr);
    ASSERT_EQ(host().reports.size(), 2U);
    EXPECT_EQ(host().reports[0].label, "KSSTSchemaFromProfile ()");
    EXPECT_EQ(host().reports[1], debugOutput("%s: KSSTSchemaFromProfile() failed\n", kLabel));
    EXPECT_EQ(count, kUntouched);
}

TEST_F(KSConvLibTest, TellsWhenThereAreNoCoefficients) {
    add("oak", {0.1, 0.2, 0.3, 0.4, 0.5, 0.6});
    std::vector<float> samples = {1.0F};
    KSBandResp hollow = custom(415.0F, 435.0F, samples);
    hollow.pafSamples = nullptr;
    convert(Sensor({hollow}), {0});
    EXPECT_EQ(spectra, nullptr);
    ASSERT_EQ(host().reports.size(), 3U);
    EXPECT_EQ(host().reports[2], debugOutput("%s: KSGenSpPrConvCoeffs () failed\n", kLabel));
    EXPECT_EQ(count, kUntouched);
}

TEST_F(KSConvLibTest, AnUnknownBandThatIsNotSelectedMasksThoseBehindIt) {
    add("oak", {0.1, 0.2, 0.3, 0.4, 0.5, 0.6});
    convert(Sensor({box(415.0F, 12.0F), symmetric(KS_RT_UNKNOWN, 430.0F, 1.0F), box(435.0F, 12.0F)}), {0, 2});
    ASSERT_EQ(count, 1);
    EXPECT_EQ(valuesOf(0), (std::vector<double>{(0.2 + 0.3) / 2.0, kMaskedValue}));
    ASSERT_EQ(host().reports.size(), 2U);
    EXPECT_EQ(host().reports[1].label, "KSGenSpPrConvCoeffs ()");
}

TEST_F(KSConvLibTest, AShapeThatCannotBeReadEndsTheCall) {
    add("oak", {0.1, 0.2, 0.3, 0.4, 0.5, 0.6});
    add("elm", {0.1, 0.2, 0.3, 0.4, 0.5, 0.6}).nullTexts.insert(0);
    convert(Sensor({box(415.0F, 12.0F)}), {0});
    EXPECT_EQ(spectra, nullptr);
    EXPECT_EQ(count, kUntouched);
    ASSERT_EQ(host().reports.size(), 2U);
    EXPECT_EQ(host().reports[0].label, "KSEvalSpecFromShape ()");
    EXPECT_EQ(host().reports[1], debugOutput("%s: KSEvalSpecFromShape () failed\n", kLabel));
}

/// What KSConvLib says last for every allocation that can fail on the way.
std::set<std::string> lastWords(KSConvLibTest& test, const KSSensor& sensor) {
    std::set<std::string> words;
    for (int nth = 1;; ++nth) {
        refuseAllocation(nth);
        host().forget();
        test.convert(sensor, {0});
        if (!allocationRefused()) break;
        EXPECT_EQ(test.spectra, nullptr) << nth;
        EXPECT_EQ(test.count, kUntouched) << nth;
        if (host().reports.empty()) {
            ADD_FAILURE() << "no report of allocation " << nth;
            break;
        }
        EXPECT_TRUE(host().reports.back().debug) << nth;
        words.insert(host().reports.back().format);
    }
    EXPECT_NE(test.spectra, nullptr);
    return words;
}

TEST_F(KSConvLibTest, NamesTheStepThatRanOutOfMemory) {
    add("oak", {0.1, 0.2, 0.3, 0.4, 0.5, 0.6});
    add("elm", {0.1, 0.2, 0.3, 0.4, 0.5, 0.6});
    const Sensor other({box(415.0F, 12.0F)});
    EXPECT_EQ(
        lastWords(*this, other),
        (std::set<std::string>{"%s: KSSTSchemaFromLayer() failed\n", "%s: KSSTSchemaFromProfile() failed\n",
                               "%s: KSGenSpPrConvCoeffs () failed\n", "%s: Memory allocation for papsSpectrum failed\n",
                               "%s: KSCreateSpec () failed\n", "%s: KSConvSpec () failed\n"}));
    const Sensor same({box(420.0F, 12.0F)});
    EXPECT_EQ(lastWords(*this, same),
              (std::set<std::string>{"%s: KSSTSchemaFromLayer() failed\n", "%s: KSSTSchemaFromProfile() failed\n",
                                     "%s: Memory allocation for papsSpectrum failed\n", "%s: KSCreateSpec () failed\n",
                                     "%s: KSFiltSpecSamples () failed\n"}));
}

TEST_F(KSConvLibTest, NamesTheSpectrumThatCouldNotBeMade) {
    add("oak", {0.1, 0.2, 0.3, 0.4, 0.5, 0.6});
    const Sensor sensor({box(415.0F, 12.0F)});
    constexpr int kVectors = 4;  // values and deviations of the stored spectrum and of the converted one
    for (int nth = 1; nth <= kVectors; ++nth) {
        refuseVector(nth);
        host().forget();
        convert(sensor, {0});
        EXPECT_EQ(spectra, nullptr) << nth;
        ASSERT_EQ(host().reports.size(), 2U) << nth;
        EXPECT_EQ(host().reports[0].label, "KSCreateSpec ()");
        EXPECT_EQ(host().reports[1], debugOutput("%s: KSCreateSpec () failed\n", kLabel));
    }
    refuseVector(kVectors + 1);
    convert(sensor, {0});
    EXPECT_NE(spectra, nullptr);
    EXPECT_EQ(vectors(), kVectors);
}

}  // namespace
