// One spectrum as one shape of a layer, and back.
#include <kslib.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "fixture.hpp"
#include "spectra.hpp"

using namespace kit;

namespace {

using Numbers = std::vector<int>;
constexpr unsigned kAdding = 0x100;

/// A layer with all metadata and three wavelengths, and a spectrum for it.
struct ShapeTest : LibraryTest {
    Schema schema = schemaOf(allMetadata(), {400, 500, 600}, {400, 500, 600});
    FakeLayer* layer = nullptr;
    Spectrum spectrum;

    void SetUp() override {
        LibraryTest::SetUp();
        layer = static_cast<FakeLayer*>(KSCreateSpectraLayer(schema.get()));
        ASSERT_NE(layer, nullptr);
        spectrum.reset(KSCreateSpec(schema.get()));
        ASSERT_NE(spectrum, nullptr);
        host().forget();
    }
    void TearDown() override {
        if (layer != nullptr) GDBClose(layer->fp);
        LibraryTest::TearDown();
    }
    void fill() const {
        spectrum->szTarget = heapText("Snow");
        spectrum->eRadQuant = KS_RQ_REFL;
        spectrum->szSourceFile = heapText("cube.img");
        spectrum->szROIFile = heapText("regions");
        spectrum->paROI = KSCreateROI();
        *spectrum->paROI = {KS_ROI_POINT, 10, 20, 3, -1, nullptr, -1};
        spectrum->nNumROIs = 1;
        setValues({0.25, 0.5, 0.75}, {KS_BQ_PLOT, KS_BQ_MASK, KS_BQ_BMASK});
    }
    void setValues(const std::vector<double>& values, const Numbers& qualities) const {
        std::copy(values.begin(), values.end(), spectrum->pMeas->ve);
        std::copy(qualities.begin(), qualities.end(), spectrum->peBandQual);
    }
    std::vector<double> values() const { return {spectrum->pMeas->ve, spectrum->pMeas->ve + 3}; }
    Numbers qualities() const { return {spectrum->peBandQual, spectrum->peBandQual + 3}; }
};

// ---- adding ----

struct KSAddShapeFromSpecTest : ShapeTest {
    void SetUp() override {
        ShapeTest::SetUp();
        fill();
    }
    int add() const { return KSAddShapeFromSpec(layer, schema.get(), spectrum.get()); }
    void expectFlagsRestored(unsigned flags = 0) const { EXPECT_EQ(layer->nFlags, flags); }
    const std::string& text(int field) const { return layer->shapes.back().texts[field]; }
};

TEST_F(KSAddShapeFromSpecTest, SetsFieldAfterField) {
    ASSERT_EQ(add(), 0);
    EXPECT_EQ(host().callsOf({"GDBCreateShape", "GDBSetValueString", "GDBSetValue"}),
              (Names{"GDBCreateShape(0)", "GDBSetValueString(0, 0, Snow)", "GDBSetValueString(0, 1, refl)",
                     "GDBSetValueString(0, 2, cube.img)", "GDBSetValueString(0, 3, regions)",
                     "GDBSetValueString(0, 4, point xoff 10 yoff 20 size 3)", "GDBSetValue(0, 5, 0.25)",
                     "GDBSetValue(0, 6, 0.5)", "GDBSetValue(0, 7, 0.75)", "GDBSetValueString(0, 8, plot)",
                     "GDBSetValueString(0, 9, mask)", "GDBSetValueString(0, 10, bmask)"}));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSAddShapeFromSpecTest, AppendsOneShapeForEachCall) {
    ASSERT_EQ(add(), 0);
    spectrum->pMeas->ve[0] = 7;
    ASSERT_EQ(add(), 0);
    ASSERT_EQ(layer->shapes.size(), 2U);
    EXPECT_EQ(layer->shapes[0].numbers[5], 0.25);
    EXPECT_EQ(layer->shapes[1].numbers[5], 7.0);
}

TEST_F(KSAddShapeFromSpecTest, TheLayerIsFlaggedForAsLongAsItTakes) {
    for (const unsigned before : {0U, 5U, kAdding, 0xFFFFFFFFU}) {
        layer->nFlags = before;
        host().layerFlags.clear();
        ASSERT_EQ(add(), 0);
        ASSERT_EQ(host().layerFlags.size(), 12U);
        for (const auto& [call, flags] : host().layerFlags) EXPECT_EQ(flags, before | kAdding) << call;
        expectFlagsRestored(before);
    }
}

TEST_F(KSAddShapeFromSpecTest, ValuesAreDoubles) {
    constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
    setValues({0.1, -1.23e34, kNaN}, {0, 3, 2});
    ASSERT_EQ(add(), 0);
    EXPECT_EQ(layer->shapes[0].numbers[5], 0.1);
    EXPECT_EQ(layer->shapes[0].numbers[6], -1.23e34);
    EXPECT_TRUE(std::isnan(layer->shapes[0].numbers[7]));
    EXPECT_EQ(text(8), "unknown");
}

TEST_F(KSAddShapeFromSpecTest, NullTextsAreWrittenAsEmptyOnes) {
    spectrum.reset(KSCreateSpec(schema.get()));
    setValues({1, 2, 3}, {1, 1, 1});
    ASSERT_EQ(add(), 0);
    EXPECT_EQ(text(0), "");
    EXPECT_EQ(text(1), "unknown");
    for (const int field : {2, 3, 4}) {
        EXPECT_EQ(layer->shapes[0].texts.count(field), 1U);
        EXPECT_EQ(text(field), "") << field;
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSAddShapeFromSpecTest, TextsOfAnyLength) {
    std::free(spectrum->szTarget);
    const std::string target = "  " + std::string(100000, 'x') + " \t";
    spectrum->szTarget = heapText(target);
    ASSERT_EQ(add(), 0);
    EXPECT_EQ(text(0), target) << "as it is, blanks included";
}

TEST_F(KSAddShapeFromSpecTest, GoesByTheFieldIndexesOfTheSchema) {
    schema->pMetaFlds[0].nFldInd = 4;
    schema->pMetaFlds[4].nFldInd = 0;
    schema->pMeasFld[0].nFldInd = 7;
    schema->pMeasFld[2].nFldInd = 5;
    ASSERT_EQ(add(), 0);
    EXPECT_EQ(text(4), "Snow");
    EXPECT_EQ(text(0), "point xoff 10 yoff 20 size 3");
    EXPECT_EQ(layer->shapes[0].numbers[7], 0.25);
    EXPECT_EQ(layer->shapes[0].numbers[5], 0.75);
}

TEST_F(KSAddShapeFromSpecTest, OtherMetadataAreSkipped) {
    schema->pMetaFlds[0].eFldID = KS_FLD_UNKNOWN;
    schema->pMetaFlds[1].eFldID = 6;
    schema->pMetaFlds[2].eFldID = -1;
    schema->pMetaFlds[3].eFldID = 99;
    ASSERT_EQ(add(), 0);
    EXPECT_EQ(host().callsOf({"GDBSetValueString"}).front(), "GDBSetValueString(0, 4, point xoff 10 yoff 20 size 3)");
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSAddShapeFromSpecTest, ASchemaWithoutQualitiesSetsNone) {
    schema->nNumQualFlds = 0;
    ASSERT_EQ(add(), 0);
    EXPECT_EQ(host().callsOf({"GDBSetValueString"}).size(), 5U);
}

constexpr const char* kAdd = "KSAddShapeFromSpec ()";

TEST_F(KSAddShapeFromSpecTest, ChecksInOrderBeforeAShapeIsMade) {
    EXPECT_EQ(KSAddShapeFromSpec(nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(KSAddShapeFromSpec(nullptr, schema.get(), nullptr), 1);
    EXPECT_EQ(KSAddShapeFromSpec(layer, schema.get(), nullptr), 1);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: pSTSchema == NULL.\n", kAdd), failure("%s: hLayer == NULL.\n", kAdd),
                       failure("%s: pSpectrum == NULL.\n", kAdd)}));
    EXPECT_EQ(host().callNames(), (Names{"IMPError", "IMPError", "IMPError"}));
}

TEST_F(KSAddShapeFromSpecTest, AnUnknownQuantityFails) {
    for (const int quantity : {7, -1}) {
        layer->nFlags = 5;
        host().forget();
        spectrum->eRadQuant = quantity;
        EXPECT_EQ(add(), 1);
        EXPECT_EQ(host().reports, (Reports{failure("%s: szString == NULL, error in _RadQuantEnumToStr ().\n", kAdd)}));
        EXPECT_EQ(host().callsOf({"GDBSetValueString", "GDBSetValue"}).size(), 1U) << "the target is set already";
        expectFlagsRestored(5);
    }
}

TEST_F(KSAddShapeFromSpecTest, ARegionOfUnknownTypeFails) {
    layer->nFlags = 5;
    spectrum->paROI->eROIType = KS_ROI_UNKNOWN;
    EXPECT_EQ(add(), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: Unrecognized ROI type.\n", "_ROIStructToStr ()"),
                                       failure("%s: szString == NULL, error in _ROIStructToStr().\n", kAdd)}));
    EXPECT_EQ(host().count("GDBSetValue"), 0);
    expectFlagsRestored(5);
}

TEST_F(KSAddShapeFromSpecTest, AnUnknownQualityFailsWithoutAReport) {
    layer->nFlags = 5;
    spectrum->peBandQual[1] = 5;
    EXPECT_EQ(add(), 1);
    EXPECT_EQ(host().reports, Reports{});
    EXPECT_EQ(host().count("GDBSetValue"), 3);
    EXPECT_EQ(host().callNames().back(), "GDBSetValueString");
    EXPECT_EQ(host().calls.back().arguments, "0, 8, plot");
    expectFlagsRestored(5);
}

TEST_F(KSAddShapeFromSpecTest, MemoryThatRunsOutFails) {
    const std::vector<Reports> promised = {
        {failure("%s: szString == NULL, error in _RadQuantEnumToStr ().\n", kAdd)},
        {failure("%s: szRetVal == NULL, error in HMalloc ().\n", "_ROIStructToStr ()"),
         failure("%s: szString == NULL, error in _ROIStructToStr().\n", kAdd)},
        {},
        {},
        {}};
    for (std::size_t n = 0; n < promised.size(); ++n) {
        host().forget();
        refuseAllocation(static_cast<int>(n) + 1);
        EXPECT_EQ(add(), 1);
        EXPECT_TRUE(allocationRefused());
        EXPECT_EQ(host().reports, promised[n]) << "allocation " << n + 1;
        expectFlagsRestored();
    }
    refuseAllocation(static_cast<int>(promised.size()) + 1);
    EXPECT_EQ(add(), 0);
    EXPECT_FALSE(allocationRefused());
}

TEST_F(KSAddShapeFromSpecTest, WithoutAShapeNothingIsSet) {
    layer->nFlags = 5;
    host().failCall("GDBCreateShape");
    EXPECT_EQ(add(), 1);
    EXPECT_EQ(host().count("GDBSetValueString") + host().count("GDBSetValue"), 0);
    expectFlagsRestored(5);
}

TEST_F(KSAddShapeFromSpecTest, ASpectrumThatIsTooShortForTheSchemaIsNotReadPastItsEnd) {
    const Schema shorter = schemaOf({}, {400, 500});
    spectrum.reset(KSCreateSpec(shorter.get()));
    spectrum->peBandQual[0] = spectrum->peBandQual[1] = KS_BQ_PLOT;
    EXPECT_EQ(add(), 1);
    EXPECT_FALSE(host().reports.empty());
    expectFlagsRestored();
}

// ---- reading ----

struct KSEvalSpecFromShapeTest : ShapeTest {
    FakeShape* shape = nullptr;

    void SetUp() override {
        ShapeTest::SetUp();
        layer->shapes.resize(2);
        shape = &layer->shapes[1];
        shape->texts = {{0, "Snow"},     {1, "refl"}, {2, "cube.img"}, {3, "regions"},
                        {4, "bitmap 5"}, {8, "plot"}, {9, "mask"},     {10, "bmask"}};
        shape->numbers = {{5, 0.25}, {6, 0.5}, {7, 0.75}};
    }
    int eval() { return KSEvalSpecFromShape(layer, 1, schema.get(), spectrum.get()); }
};

TEST_F(KSEvalSpecFromShapeTest, TakesEverything) {
    ASSERT_EQ(eval(), 0);
    EXPECT_STREQ(spectrum->szTarget, "Snow");
    EXPECT_EQ(spectrum->eRadQuant, KS_RQ_REFL);
    EXPECT_STREQ(spectrum->szSourceFile, "cube.img");
    EXPECT_STREQ(spectrum->szROIFile, "regions");
    ASSERT_NE(spectrum->paROI, nullptr);
    EXPECT_EQ(spectrum->paROI->eROIType, KS_ROI_BITMAP);
    EXPECT_EQ(spectrum->paROI->nBitmapID, 5);
    EXPECT_EQ(spectrum->nNumROIs, 1);
    EXPECT_EQ(values(), (std::vector<double>{0.25, 0.5, 0.75}));
    EXPECT_EQ(qualities(), (Numbers{KS_BQ_PLOT, KS_BQ_MASK, KS_BQ_BMASK}));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSEvalSpecFromShapeTest, ReadsMetadataFirstThenValueAfterValue) {
    ASSERT_EQ(eval(), 0);
    EXPECT_EQ(
        host().callsOf({"GDBGetValueString", "GDBGetValue"}),
        (Names{"GDBGetValueString(1, 0)", "GDBGetValueString(1, 1)", "GDBGetValueString(1, 2)",
               "GDBGetValueString(1, 3)", "GDBGetValueString(1, 4)", "GDBGetValue(1, 5)", "GDBGetValueString(1, 8)",
               "GDBGetValue(1, 6)", "GDBGetValueString(1, 9)", "GDBGetValue(1, 7)", "GDBGetValueString(1, 10)"}));
}

TEST_F(KSEvalSpecFromShapeTest, TextsAreTheHostsCopies) {
    ASSERT_EQ(eval(), 0);
    const Names copies = host().callsOf({"_HString"});
    for (const char* copy : {"_HString(Snow)", "_HString(cube.img)", "_HString(regions)"}) {
        EXPECT_EQ(std::count(copies.begin(), copies.end(), copy), 1) << copy;
    }
}

TEST_F(KSEvalSpecFromShapeTest, ReplacesWhatWasThere) {
    fill();
    KSFreeROI(spectrum->paROI);
    spectrum->paROI = KSCreateROI();
    spectrum->paROI->eROIType = KS_ROI_BITMAP;
    spectrum->paROI->nXSize = spectrum->paROI->nYSize = 9;
    ASSERT_EQ(KSAllocROIBitmap(spectrum->paROI), 0);
    shape->texts[0] = "Ice";
    ASSERT_EQ(eval(), 0);
    EXPECT_STREQ(spectrum->szTarget, "Ice");
    EXPECT_EQ(spectrum->paROI->pbyBitmap, nullptr);
    EXPECT_EQ(spectrum->paROI->nBitmapID, 5);
}

TEST_F(KSEvalSpecFromShapeTest, CutsWhiteSpaceOffTexts) {
    shape->texts[0] = " \t\r\n fresh \t snow \n\v\f ";
    shape->texts[1] = "  refl\t";
    shape->texts[2] = " \t ";
    shape->texts[3] = "";
    shape->texts[4] = "\t point xoff 1 yoff 2 size 3 \n";
    ASSERT_EQ(eval(), 0);
    EXPECT_STREQ(spectrum->szTarget, "fresh \t snow");
    EXPECT_EQ(spectrum->eRadQuant, KS_RQ_REFL);
    EXPECT_STREQ(spectrum->szSourceFile, "");
    EXPECT_STREQ(spectrum->szROIFile, "");
    EXPECT_EQ(spectrum->paROI->eROIType, KS_ROI_POINT);
    EXPECT_STREQ(shape->texts[0].c_str() + 5, "fresh \t snow") << "in place";
    ASSERT_EQ(eval(), 0) << "and again";
    EXPECT_STREQ(spectrum->szTarget, "fresh \t snow");
}

TEST_F(KSEvalSpecFromShapeTest, TextsOfAnyLength) {
    const std::string target(100000, 'x');
    shape->texts[0] = std::string(100000, ' ') + target + std::string(100000, ' ');
    ASSERT_EQ(eval(), 0);
    EXPECT_EQ(spectrum->szTarget, target);
}

TEST_F(KSEvalSpecFromShapeTest, QuantitiesAreComparedExactly) {
    for (const char* text : {"REFL", "Refl", "reflectance", "", "unknown"}) {
        shape->texts[1] = text;
        spectrum->eRadQuant = KS_RQ_APPRAD;
        ASSERT_EQ(eval(), 0);
        EXPECT_EQ(spectrum->eRadQuant, KS_RQ_UNKNOWN) << text;
    }
}

TEST_F(KSEvalSpecFromShapeTest, QualitiesAreComparedInLowerCaseAfterLeadingBlanks) {
    shape->texts[8] = "MASK";
    shape->texts[9] = "   BMask";
    shape->texts[10] = "plot ";
    ASSERT_EQ(eval(), 0);
    EXPECT_EQ(qualities(), (Numbers{KS_BQ_MASK, KS_BQ_BMASK, KS_BQ_UNKNOWN}));
    EXPECT_EQ(shape->texts[8], "mask") << "in place";
    for (const char* text : {"", "   ", "good", "masked"}) {
        shape->texts[8] = text;
        spectrum->peBandQual[0] = KS_BQ_PLOT;
        ASSERT_EQ(eval(), 0);
        EXPECT_EQ(spectrum->peBandQual[0], KS_BQ_UNKNOWN) << text;
    }
}

TEST_F(KSEvalSpecFromShapeTest, ValuesThatAreNotPositiveAreSkippedWhateverTheirQuality) {
    constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
    const double infinite = std::numeric_limits<double>::infinity();
    for (const double value : {0.0, -0.0, -0.5, -1.23e34, -infinite, kNaN}) {
        host().forget();
        shape->numbers[6] = value;
        shape->texts[9] = "plot";
        ASSERT_EQ(eval(), 0);
        EXPECT_EQ(qualities(), (Numbers{KS_BQ_PLOT, KS_BQ_SKIP, KS_BQ_BMASK})) << value;
        EXPECT_TRUE(spectrum->pMeas->ve[1] == value || std::isnan(value));
        const Names asked = host().callsOf({"GDBGetValueString"});
        EXPECT_EQ(std::count(asked.begin(), asked.end(), "GDBGetValueString(1, 9)"), 0) << value;
    }
    for (const double value : {5e-324, infinite}) {
        shape->numbers[6] = value;
        ASSERT_EQ(eval(), 0);
        EXPECT_EQ(spectrum->peBandQual[1], KS_BQ_PLOT) << value;
    }
}

TEST_F(KSEvalSpecFromShapeTest, AValueWithoutAQualityFieldIsPlotted) {
    for (int i = 0; i < 3; ++i) schema->pMeasFld[i].nQualFldInd = -1;
    shape->numbers[7] = -1;
    ASSERT_EQ(eval(), 0);
    EXPECT_EQ(qualities(), (Numbers{KS_BQ_PLOT, KS_BQ_PLOT, KS_BQ_SKIP}));
    EXPECT_EQ(host().count("GDBGetValueString"), 5);
}

// Position 0 is where the target stands in layers of this library, so it has never counted as a quality's.
TEST_F(KSEvalSpecFromShapeTest, AQualityFieldAtPosition0IsNone) {
    schema = schemaOf({}, {400}, {});
    schema->pMeasFld[0].nFldInd = 5;
    schema->pMeasFld[0].nQualFldInd = 0;
    spectrum.reset(KSCreateSpec(schema.get()));
    shape->texts[0] = "mask";
    ASSERT_EQ(eval(), 0);
    EXPECT_EQ(spectrum->peBandQual[0], KS_BQ_PLOT);
}

TEST_F(KSEvalSpecFromShapeTest, OtherMetadataAreReadAndLeft) {
    schema->pMetaFlds[0].eFldID = KS_FLD_UNKNOWN;
    schema->pMetaFlds[1].eFldID = 6;
    ASSERT_EQ(eval(), 0);
    EXPECT_EQ(spectrum->szTarget, nullptr);
    EXPECT_EQ(spectrum->eRadQuant, KS_RQ_UNKNOWN);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSEvalSpecFromShapeTest, ABadRegionTextLeavesNoRegionAndDoesNotFail) {
    fill();
    shape->texts[4] = "bitmap 0";
    ASSERT_EQ(eval(), 0);
    EXPECT_EQ(spectrum->paROI, nullptr);
    EXPECT_EQ(spectrum->nNumROIs, 0);
    EXPECT_EQ(host().reports, (Reports{{false, 107, 0, "%s: invalid bitmap ROI specification.\n", "_InterpROIBitmap ()",
                                        "_InterpROIBitmap (): invalid bitmap ROI specification.\n"}}));
    EXPECT_EQ(values(), (std::vector<double>{0.25, 0.5, 0.75}));
}

TEST_F(KSEvalSpecFromShapeTest, ABlankRegionTextLeavesNoRegion) {
    fill();
    shape->texts[4] = "   ";
    ASSERT_EQ(eval(), 0);
    EXPECT_EQ(spectrum->paROI, nullptr);
    EXPECT_EQ(spectrum->nNumROIs, 0);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSEvalSpecFromShapeTest, TheHostsRegionTextIsNotEditedByTheParser) {
    shape->texts[4] = "point xoff 1 yoff 2 size 3";
    ASSERT_EQ(eval(), 0);
    EXPECT_STREQ(shape->texts[4].c_str(), "point xoff 1 yoff 2 size 3");
}

TEST_F(KSEvalSpecFromShapeTest, ASchemaWithoutARegionLeavesTheRegion) {
    fill();
    schema->nNumMetaFlds = 2;
    ASSERT_EQ(eval(), 0);
    EXPECT_STREQ(spectrum->szSourceFile, "cube.img");
    ASSERT_NE(spectrum->paROI, nullptr);
    EXPECT_EQ(spectrum->paROI->eROIType, KS_ROI_POINT);
    EXPECT_EQ(spectrum->nNumROIs, 1);
}

TEST_F(KSEvalSpecFromShapeTest, DeviationsStayAsTheyAre) {
    spectrum->pSD->ve[1] = 0.125;
    ASSERT_EQ(eval(), 0);
    EXPECT_EQ(spectrum->pSD->ve[1], 0.125);
}

constexpr const char* kEval = "KSEvalSpecFromShape ()";

TEST_F(KSEvalSpecFromShapeTest, ChecksInOrder) {
    EXPECT_EQ(KSEvalSpecFromShape(nullptr, -1, nullptr, nullptr), 1);
    EXPECT_EQ(KSEvalSpecFromShape(nullptr, -1, schema.get(), nullptr), 1);
    EXPECT_EQ(KSEvalSpecFromShape(layer, -1, schema.get(), nullptr), 1);
    EXPECT_EQ(KSEvalSpecFromShape(layer, 1, schema.get(), nullptr), 1);
    schema->nNumMeasFlds = 2;
    EXPECT_EQ(KSEvalSpecFromShape(layer, 1, schema.get(), spectrum.get()), 1);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: pSTSchema == NULL.\n", kEval), failure("%s: hLayer == NULL.\n", kEval),
                       failure("%s: hShapeID < 0.\n", kEval), failure("%s: pSpectrum == NULL.\n", kEval),
                       failure("%s: pSpectrum->nNumMeasVals != pSTSchema->nNumMeasFlds.\n", kEval)}));
    EXPECT_EQ(host().callNames(), Names(5, "IMPError"));
}

TEST_F(KSEvalSpecFromShapeTest, AMissingMetadataTextFails) {
    shape->nullTexts = {2};
    EXPECT_EQ(eval(), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: szString == NULL.\n", kEval)}));
    EXPECT_STREQ(spectrum->szTarget, "Snow") << "what was read until then stays";
    EXPECT_EQ(spectrum->eRadQuant, KS_RQ_REFL);
    EXPECT_EQ(spectrum->szROIFile, nullptr);
    EXPECT_EQ(host().count("GDBGetValue"), 0);
}

TEST_F(KSEvalSpecFromShapeTest, AMissingQualityTextFails) {
    setValues({-9, -9, -9}, {-9, -9, -9});
    shape->nullTexts = {9};
    EXPECT_EQ(eval(), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: szString == NULL.\n", kEval)}));
    EXPECT_EQ(values(), (std::vector<double>{0.25, 0.5, -9}));
    EXPECT_EQ(spectrum->peBandQual[0], KS_BQ_PLOT);
    EXPECT_EQ(spectrum->peBandQual[2], -9);
}

TEST_F(KSEvalSpecFromShapeTest, TextsThatCannotBeCopiedAreLeftOut) {
    fill();
    host().failCall("_HString");
    EXPECT_EQ(eval(), 0);
    EXPECT_EQ(spectrum->szTarget, nullptr);
    EXPECT_STREQ(spectrum->szSourceFile, "cube.img");
}

// ---- there and back ----

TEST_F(ShapeTest, WhatIsAddedIsReadBack) {
    fill();
    ASSERT_EQ(KSAddShapeFromSpec(layer, schema.get(), spectrum.get()), 0);
    const Schema found(KSSTSchemaFromLayer(layer));
    ASSERT_NE(found, nullptr);
    const Spectrum back(KSCreateSpec(found.get()));
    ASSERT_EQ(KSEvalSpecFromShape(layer, GDBGetFirst(layer), found.get(), back.get()), 0);
    EXPECT_STREQ(back->szTarget, "Snow");
    EXPECT_EQ(back->eRadQuant, KS_RQ_REFL);
    EXPECT_STREQ(back->szSourceFile, "cube.img");
    EXPECT_STREQ(back->szROIFile, "regions");
    ASSERT_NE(back->paROI, nullptr);
    EXPECT_EQ(back->paROI->nYOff, 20);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(back->pafWlen[i], spectrum->pafWlen[i]);
        EXPECT_EQ(back->pMeas->ve[i], spectrum->pMeas->ve[i]);
        EXPECT_EQ(back->peBandQual[i], spectrum->peBandQual[i]);
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(ShapeTest, ThousandsOfBandsThereAndBack) {
    constexpr int kBands = 2151;
    std::vector<float> bands(kBands);
    for (int b = 0; b < kBands; ++b) bands[static_cast<std::size_t>(b)] = 350.0F + static_cast<float>(b);
    const Schema large = schemaOf(allMetadata(), bands, bands);
    HostLayer* wide = KSCreateSpectraLayer(large.get());
    ASSERT_NE(wide, nullptr);
    const Spectrum there(KSCreateSpec(large.get()));
    for (int b = 0; b < kBands; ++b) {
        there->pMeas->ve[b] = 1.0 / (b + 1);
        there->peBandQual[b] = b % 5;
    }
    ASSERT_EQ(KSAddShapeFromSpec(wide, large.get(), there.get()), 0);
    const Schema found(KSSTSchemaFromLayer(wide));
    const Spectrum back(KSCreateSpec(found.get()));
    ASSERT_EQ(KSEvalSpecFromShape(wide, 0, found.get(), back.get()), 0);
    for (int b = 0; b < kBands; ++b) {
        ASSERT_EQ(back->pMeas->ve[b], 1.0 / (b + 1));
        ASSERT_EQ(back->peBandQual[b], b % 5);
    }
    GDBClose(wide->fp);
}

}  // namespace
