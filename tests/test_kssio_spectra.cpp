// Spectra: making and freeing them, taking them from a data set, and the texts that stand for regions and enumerations.
#include <kslib.h>

#include <cmath>
#include <string>
#include <vector>

#include <malloc.h>

#include "datasets.hpp"
#include "fixture.hpp"
#include "spectra.hpp"

using namespace kit;

namespace {

// ---- making ----

struct KSCreateSpecTest : LibraryTest {
    Schema schema = schemaOf({KS_FLD_TARGET}, {400.25F, 500, 450}, {400.25F});
    Spectrum spectrum;
};

TEST_F(KSCreateSpecTest, HasRoomForTheMeasurements) {
    spectrum.reset(KSCreateSpec(schema.get()));
    ASSERT_NE(spectrum, nullptr);
    EXPECT_EQ(spectrum->nNumMeasVals, 3);
    EXPECT_EQ(spectrum->pMeas->dim, 3U);
    EXPECT_EQ(spectrum->pSD->dim, 3U);
    EXPECT_EQ((std::vector<float>{spectrum->pafWlen, spectrum->pafWlen + 3}), (std::vector<float>{400.25F, 500, 450}));
    ASSERT_NE(spectrum->peBandQual, nullptr);
    for (int i = 0; i < 3; ++i) spectrum->peBandQual[i] = KS_BQ_PLOT;
    EXPECT_EQ(host().callNames(), Names{});
}

TEST_F(KSCreateSpecTest, TheRestIsZero) {
    spectrum.reset(KSCreateSpec(schema.get()));
    ASSERT_NE(spectrum, nullptr);
    EXPECT_EQ(spectrum->szTarget, nullptr);
    EXPECT_EQ(spectrum->eRadQuant, 0);
    EXPECT_EQ(spectrum->szSourceFile, nullptr);
    EXPECT_EQ(spectrum->szROIFile, nullptr);
    EXPECT_EQ(spectrum->paROI, nullptr);
    EXPECT_EQ(spectrum->nNumROIs, 0);
    EXPECT_EQ(spectrum->nNumSamples, 0);
    EXPECT_EQ(spectrum->nSpare, 0);
}

TEST_F(KSCreateSpecTest, MayHaveNoMeasurements) {
    schema = schemaOf({KS_FLD_TARGET}, {});
    spectrum.reset(KSCreateSpec(schema.get()));
    ASSERT_NE(spectrum, nullptr);
    EXPECT_EQ(spectrum->nNumMeasVals, 0);
    EXPECT_EQ(spectrum->pMeas->dim, 0U);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSCreateSpecTest, RefusesANullSchema) {
    EXPECT_EQ(KSCreateSpec(nullptr), nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pSTSchema == NULL\n", "KSCreateSpec ()")}));
}

TEST_F(KSCreateSpecTest, WithoutMemoryThereIsNone) {
    refuseAllocation(1);
    EXPECT_EQ(KSCreateSpec(schema.get()), nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pSpectrum == NULL, HMalloc() failed.\n", "KSCreateSpec ()")}));
}

TEST_F(KSCreateSpecTest, AFailedVectorLeavesTheSpectrumPartlyBuilt) {
    refuseVector(1);
    spectrum.reset(KSCreateSpec(schema.get()));
    ASSERT_NE(spectrum, nullptr);
    EXPECT_EQ(spectrum->nNumMeasVals, 3);
    EXPECT_EQ(spectrum->pMeas, nullptr);
    EXPECT_EQ(spectrum->pSD, nullptr);
    EXPECT_EQ(spectrum->peBandQual, nullptr);
    EXPECT_EQ(spectrum->pafWlen, nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pSpectrum->pMeas == NULL, v_get() failed.\n", "KSCreateSpec ()")}));

    host().forget();
    refuseVector(2);
    spectrum.reset(KSCreateSpec(schema.get()));
    ASSERT_NE(spectrum, nullptr);
    EXPECT_NE(spectrum->pMeas, nullptr);
    EXPECT_EQ(spectrum->pSD, nullptr);
    EXPECT_EQ(spectrum->pafWlen, nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pSpectrum->pSD == NULL, v_get() failed.\n", "KSCreateSpec ()")}));
}

TEST_F(KSCreateSpecTest, AFailedArrayLeavesTheSpectrumPartlyBuilt) {
    refuseAllocation(2);
    spectrum.reset(KSCreateSpec(schema.get()));
    ASSERT_NE(spectrum, nullptr);
    EXPECT_NE(spectrum->pSD, nullptr);
    EXPECT_EQ(spectrum->peBandQual, nullptr);
    EXPECT_EQ(spectrum->pafWlen, nullptr);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: pSpectrum->peBandQual == NULL, HMalloc() failed.\n", "KSCreateSpec ()")}));

    host().forget();
    refuseAllocation(3);
    spectrum.reset(KSCreateSpec(schema.get()));
    ASSERT_NE(spectrum, nullptr);
    EXPECT_NE(spectrum->peBandQual, nullptr);
    EXPECT_EQ(spectrum->pafWlen, nullptr);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: pSpectrum->pafWlen == NULL, HMalloc() failed.\n", "KSCreateSpec ()")}));

    host().forget();
    refuseAllocation(4);
    refuseVector(3);
    spectrum.reset(KSCreateSpec(schema.get()));
    EXPECT_FALSE(allocationRefused());
    EXPECT_EQ(vectors(), 2);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSCreateSpecTest, IsFreedWithAllThatItOwns) {
    KSFreeSpec(nullptr);
    KSSpectrum* full = KSCreateSpec(schema.get());
    ASSERT_NE(full, nullptr);
    full->szTarget = heapText("Snow");
    full->szSourceFile = heapText("cube.img");
    full->szROIFile = heapText("regions");
    full->paROI = KSAddROI(KSAddROI(nullptr, 0), 1);
    full->nNumROIs = 2;
    for (int i = 0; i < 2; ++i) {
        full->paROI[i].eROIType = KS_ROI_BITMAP;
        full->paROI[i].nXSize = full->paROI[i].nYSize = 3;
        ASSERT_EQ(KSAllocROIBitmap(&full->paROI[i]), 0);
    }
    KSFreeSpec(full);
    KSFreeSpec(heapRecord<KSSpectrum>());
    EXPECT_EQ(host().reports, Reports{});
}

// ---- regions as text ----

Report regionFailure(const std::string& format, const std::string& label) {
    return {false, 107, 0, format, label, label + format.substr(2)};
}

using ROIStructToStrTest = LibraryTest;

std::string textOf(const KSROI& region) {
    const Text text(_ROIStructToStr(&region));
    return text == nullptr ? "(null)" : text.get();
}

TEST_F(ROIStructToStrTest, WritesEachKind) {
    EXPECT_EQ(textOf({KS_ROI_POINT, 10, 20, 3, 7, nullptr, 5}), "point xoff 10 yoff 20 size 3");
    EXPECT_EQ(textOf({KS_ROI_RECTANGLE, 1, 2, 3, 4, nullptr, 5}), "rectangle xoff 1 yoff 2 xsize 3 ysize 4");
    EXPECT_EQ(textOf({KS_ROI_BITMAP, 1, 2, 3, 4, nullptr, 5}), "bitmap 5");
    EXPECT_EQ(textOf({KS_ROI_BITMAP, 1, 2, 3, 4, nullptr, -1}), "bitmap -1");
    constexpr int kLeast = -2147483647 - 1;
    EXPECT_EQ(textOf({KS_ROI_RECTANGLE, kLeast, kLeast, kLeast, kLeast, nullptr, 0}),
              "rectangle xoff -2147483648 yoff -2147483648 xsize -2147483648 ysize -2147483648");
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(ROIStructToStrTest, ANullRegionIsAnEmptyText) {
    const Text text(_ROIStructToStr(nullptr));
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text.get(), "");
    EXPECT_GE(malloc_usable_size(text.get()), 256U);
}

TEST_F(ROIStructToStrTest, TheTextHas256Bytes) {
    const KSROI region = {KS_ROI_BITMAP, 0, 0, 1, 1, nullptr, 5};
    const Text text(_ROIStructToStr(&region));
    EXPECT_GE(malloc_usable_size(text.get()), 256U);
}

TEST_F(ROIStructToStrTest, RefusesOtherKinds) {
    for (const int kind : {0, 4, -1}) {
        host().forget();
        EXPECT_EQ(textOf({kind, 1, 1, 1, 1, nullptr, 1}), "(null)");
        EXPECT_EQ(host().reports, (Reports{failure("%s: Unrecognized ROI type.\n", "_ROIStructToStr ()")}));
    }
}

TEST_F(ROIStructToStrTest, WithoutMemoryThereIsNone) {
    refuseAllocation(1);
    EXPECT_EQ(textOf({KS_ROI_POINT, 10, 20, 3, 7, nullptr, 5}), "(null)");
    refuseAllocation(1);
    EXPECT_EQ(_ROIStructToStr(nullptr), nullptr);
    const Report promised = failure("%s: szRetVal == NULL, error in HMalloc ().\n", "_ROIStructToStr ()");
    EXPECT_EQ(host().reports, (Reports{promised, promised}));
}

struct ROIStrToStructTest : LibraryTest {
    struct Free {
        void operator()(KSROI* parsed) const { KSFreeROI(parsed); }
    };
    std::unique_ptr<KSROI, Free> region;

    KSROI* parse(std::string text) {
        host().forget();
        region.reset(_ROIStrToStruct(text.data()));
        return region.get();
    }
    std::vector<int> members() const {
        return {region->eROIType, region->nXOff, region->nYOff, region->nXSize, region->nYSize, region->nBitmapID};
    }
    void expectRefused(const std::string& text, const Report& report) {
        EXPECT_EQ(parse(text), nullptr) << text;
        EXPECT_EQ(host().reports, (Reports{report})) << text;
    }
};

TEST_F(ROIStrToStructTest, ReadsPoints) {
    for (const char* text : {"point xoff 10 yoff 20 size 3", "point size 3 yoff 20 xoff 10",
                             "   point   yoff  20 xoff    10 size 3", "point xoff +10 yoff 020 size 3"}) {
        ASSERT_NE(parse(text), nullptr) << text;
        EXPECT_EQ(members(), (std::vector<int>{KS_ROI_POINT, 10, 20, 3, -1, -1})) << text;
        EXPECT_EQ(region->pbyBitmap, nullptr);
        EXPECT_EQ(host().reports, Reports{});
    }
    ASSERT_NE(parse("point xoff 0 yoff 0 size 0"), nullptr);
    EXPECT_EQ(members(), (std::vector<int>{KS_ROI_POINT, 0, 0, 0, -1, -1}));
}

TEST_F(ROIStrToStructTest, ReadsRectangles) {
    for (const char* text : {"rectangle xoff 1 yoff 2 xsize 3 ysize 4", "rectangle ysize 4 xsize 3 yoff 2 xoff 1",
                             "  rectangle  xsize 3  xoff 1 ysize   4 yoff 2"}) {
        ASSERT_NE(parse(text), nullptr) << text;
        EXPECT_EQ(members(), (std::vector<int>{KS_ROI_RECTANGLE, 1, 2, 3, 4, -1})) << text;
        EXPECT_EQ(region->pbyBitmap, nullptr);
        EXPECT_EQ(host().reports, Reports{});
    }
}

TEST_F(ROIStrToStructTest, ReadsBitmaps) {
    for (const char* text : {"bitmap 5", "  bitmap    5"}) {
        ASSERT_NE(parse(text), nullptr) << text;
        EXPECT_EQ(members(), (std::vector<int>{KS_ROI_BITMAP, -1, -1, -1, -1, 5})) << text;
        EXPECT_EQ(region->pbyBitmap, nullptr);
        EXPECT_EQ(host().reports, Reports{});
    }
    ASSERT_NE(parse("bitmap 1"), nullptr);
    EXPECT_EQ(region->nBitmapID, 1);
}

TEST_F(ROIStrToStructTest, BlankTextsAreNoRegionAndNoFailure) {
    for (const char* text : {"", " ", "      "}) {
        EXPECT_EQ(parse(text), nullptr);
        EXPECT_EQ(host().reports, Reports{});
    }
}

TEST_F(ROIStrToStructTest, KindsAreKnownByTheirExactNames) {
    for (const char* text : {"unknown xoff 1 yoff 1 size 1", "circle xoff 1", "Point xoff 1 yoff 1 size 1", "unknown",
                             "points xoff 1 yoff 1 size 1", "pointxoff 1", "poin", "\tpoint xoff 1 yoff 1 size 1",
                             "point\txoff 1 yoff 1 size 1", "bitmap5", "5"}) {
        expectRefused(text, regionFailure("%s: ROI type is unrecognized\n", "_ROIStrToStruct ()"));
    }
}

TEST_F(ROIStrToStructTest, RefusesPointsWithOtherWordsOrNegativeNumbers) {
    for (const char* text :
         {"point xoff 10 yoff 20 xsize 3", "point xoff -1 yoff 20 size 3", "point size -3 xoff 1 yoff 1",
          "point xoff 1 yoff -20 size 3", "point Xoff 10 yoff 20 size 3", "point 10 20 3"}) {
        expectRefused(text, regionFailure("%s: invalid point ROI specification.\n", "_InterpROIPoint ()"));
    }
}

TEST_F(ROIStrToStructTest, RefusesIncompletePoints) {
    for (const char* text : {"point xoff 10 yoff 20", "point yoff 20 size 3", "point size 3 xoff 10", "point",
                             "point xoff", "point xoff 10 yoff 20 size"}) {
        expectRefused(text, regionFailure("%s: point ROI specification is incomplete.\n", "_InterpROIPoint ()"));
    }
}

TEST_F(ROIStrToStructTest, RefusesRectanglesWithOtherWordsOrNegativeNumbers) {
    for (const char* text : {"rectangle xoff 1 yoff 2 xsize 3 size 4", "rectangle xoff -1 yoff 2 xsize 3 ysize 4",
                             "rectangle xoff 1 yoff 2 xsize 3 ysize -4", "rectangle xoff 1 yoff 2 xsize -3 ysize 4",
                             "rectangle yoff -2 xoff 1 xsize 3 ysize 4", "rectangle 1 2 3 4"}) {
        expectRefused(text, regionFailure("%s: invalid rectangle ROI specification.\n", "_InterpROIRect ()"));
    }
}

TEST_F(ROIStrToStructTest, RefusesIncompleteRectangles) {
    for (const char* text :
         {"rectangle xoff 1 yoff 2 xsize 3", "rectangle ysize 1 yoff 2 xsize 3", "rectangle xoff 1 ysize 2 xsize 3",
          "rectangle xoff 1 yoff 2 ysize 3", "rectangle", "rectangle xoff 1 yoff 2 xsize 3 ysize"}) {
        expectRefused(text, regionFailure("%s: rectangle ROI specification is incomplete.\n", "_InterpROIRect ()"));
    }
}

TEST_F(ROIStrToStructTest, RefusesBitmapsWithoutAPositiveNumber) {
    for (const char* text : {"bitmap 0", "bitmap -1", "bitmap", "bitmap five"}) {
        expectRefused(text, regionFailure("%s: invalid bitmap ROI specification.\n", "_InterpROIBitmap ()"));
    }
}

TEST_F(ROIStrToStructTest, NothingFollowsABitmapsNumber) {
    for (const char* text : {"bitmap 5 6", "bitmap 5 ", "bitmap 5 size 3"}) {
        expectRefused(text, regionFailure("%s: premature end of ROI specification.\n", "_InterpROIBitmap ()"));
    }
}

TEST_F(ROIStrToStructTest, WithoutMemoryThereIsNone) {
    std::string text = "point xoff 10 yoff 20 size 3";
    refuseAllocation(1);
    EXPECT_EQ(_ROIStrToStruct(text.data()), nullptr);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: pRetVal == NULL, HMalloc () failed.\n", "KSCreateROI ()"),
                       failure("%s: pRetVal == NULL, KSCreateROI () failed.\n", "_ROIStrToStruct ()")}));
}

TEST_F(ROIStrToStructTest, NoTextIsNoRegion) { EXPECT_EQ(_ROIStrToStruct(nullptr), nullptr); }

TEST_F(ROIStrToStructTest, LongTextsAreRead) {
    ASSERT_NE(parse("point" + std::string(100000, ' ') + "xoff 1 yoff 2 size 3"), nullptr);
    EXPECT_EQ(members(), (std::vector<int>{KS_ROI_POINT, 1, 2, 3, -1, -1}));
    expectRefused(std::string(100000, 'x'), regionFailure("%s: ROI type is unrecognized\n", "_ROIStrToStruct ()"));
}

TEST_F(ROIStrToStructTest, WhatIsWrittenIsReadBack) {
    const KSROI regions[] = {{KS_ROI_POINT, 0, 2147483647, 5, -1, nullptr, -1},
                             {KS_ROI_RECTANGLE, 7, 0, 2147483647, 1, nullptr, -1},
                             {KS_ROI_BITMAP, -1, -1, -1, -1, nullptr, 2147483647}};
    for (const KSROI& written : regions) {
        ASSERT_NE(parse(textOf(written)), nullptr);
        EXPECT_EQ(members(), (std::vector<int>{written.eROIType, written.nXOff, written.nYOff, written.nXSize,
                                               written.nYSize, written.nBitmapID}));
    }
}

// ---- enumerations as text ----

using EnumTextTest = LibraryTest;

std::string named(char* text) {
    const Text owner(text);
    return text == nullptr ? "(null)" : text;
}

TEST_F(EnumTextTest, QualitiesHaveNames) {
    const Names names = {"unknown", "plot", "skip", "mask", "bmask"};
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(named(_BandQualEnumToStr(i)), names[static_cast<std::size_t>(i)]);
        std::string text = names[static_cast<std::size_t>(i)];
        EXPECT_EQ(_BandQualStrToEnum(text.data()), i);
    }
    EXPECT_EQ(named(_BandQualEnumToStr(5)), "(null)");
    EXPECT_EQ(named(_BandQualEnumToStr(-1)), "(null)");
}

TEST_F(EnumTextTest, QualitiesAreLowerCasedInPlace) {
    std::string text = "BMask";
    EXPECT_EQ(_BandQualStrToEnum(text.data()), KS_BQ_BMASK);
    EXPECT_EQ(text, "bmask");
    for (std::string other : {"", "good", "plot ", "plots", "plo"}) EXPECT_EQ(_BandQualStrToEnum(other.data()), 0);
    EXPECT_EQ(_BandQualStrToEnum(nullptr), 0);
}

TEST_F(EnumTextTest, QuantitiesHaveNames) {
    const Names names = {"unknown", "uncal", "adj_no_units", "apprad", "scrad", "scirrad", "refl"};
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(named(_RadQuantEnumToStr(i)), names[static_cast<std::size_t>(i)]);
        EXPECT_EQ(_RadQuantStrToEnum(names[static_cast<std::size_t>(i)].c_str()), i);
    }
    EXPECT_EQ(named(_RadQuantEnumToStr(7)), "(null)");
    EXPECT_EQ(named(_RadQuantEnumToStr(-1)), "(null)");
    for (const char* other : {"", "REFL", "Refl", "refl ", " refl", "reflectance"}) {
        EXPECT_EQ(_RadQuantStrToEnum(other), 0) << other;
    }
    EXPECT_EQ(_RadQuantStrToEnum(nullptr), 0);
}

TEST_F(EnumTextTest, WithoutMemoryThereIsNone) {
    refuseAllocation(1);
    EXPECT_EQ(named(_BandQualEnumToStr(KS_BQ_MASK)), "(null)");
    EXPECT_TRUE(allocationRefused());
    refuseAllocation(1);
    EXPECT_EQ(named(_RadQuantEnumToStr(KS_RQ_REFL)), "(null)");
    EXPECT_TRUE(allocationRefused());
}

// ---- from a data set ----

/// An image of 4 x 3 pixels and three bands; band b of pixel (x, y) is 100 (b + 1) + 10 y + x.
struct KSEvalSpecFromDataSetTest : LibraryTest {
    KSDataSet* dataSet = nullptr;
    std::vector<int> bands = {2, 0};
    KSSampDesc sampling{};
    Spectrum spectrum;

    void SetUp() override {
        LibraryTest::SetUp();
        FakeFile& file = host().addFile("cube.img", 4, 3, {4, 4, 4});
        for (int b = 0; b < 3; ++b) {
            for (int y = 0; y < 3; ++y) {
                for (int x = 0; x < 4; ++x) file.sample(b + 1, x, y) = static_cast<float>(100 * (b + 1) + 10 * y + x);
            }
        }
        dataSet = heapDataSet(3);
        dataSet->szFileName = heapText("cube.img");
        dataSet->nXSize = 4;
        dataSet->nYSize = 3;
        dataSet->GDBFile = host().open("cube.img");
        dataSet->Sensor.peBandQual[0] = KS_BQ_BMASK;
        dataSet->Sensor.peBandQual[1] = KS_BQ_SKIP;
        dataSet->Sensor.peBandQual[2] = KS_BQ_MASK;
        sampling = {1, 1, 2, bands.data()};
        const Schema schema = schemaOf({}, {420, 400});
        spectrum.reset(KSCreateSpec(schema.get()));
        useRegion({KS_ROI_RECTANGLE, 1, 1, 2, 2, nullptr, -1});
    }
    void TearDown() override {
        GDBClose(dataSet->GDBFile);
        freeWhole(dataSet);
        LibraryTest::TearDown();
    }
    void useRegion(const KSROI& region) {
        KSFreeROI(spectrum->paROI);
        spectrum->paROI = KSCreateROI();
        *spectrum->paROI = region;
        spectrum->nNumROIs = 1;
    }
    void useTransforms() {
        appendTransform(*dataSet, heapTransform(KS_RQ_APPRAD, {2, 3, 4}, {1, 1, 1}));
        appendTransform(*dataSet, heapTransform(KS_RQ_REFL, {0.5F, 0.5F, 0.5F}, {0, 0, 0}));
    }
    int eval(int level = 0) { return KSEvalSpecFromDataSet(dataSet, level, &sampling, spectrum.get()); }
    void expectValues(const std::vector<double>& means, const std::vector<double>& deviations) const {
        ASSERT_EQ(spectrum->pMeas->dim, means.size());
        ASSERT_EQ(spectrum->pSD->dim, deviations.size());
        for (std::size_t i = 0; i < means.size(); ++i) {
            EXPECT_NEAR(spectrum->pMeas->ve[i], means[i], 1e-9) << i;
            EXPECT_NEAR(spectrum->pSD->ve[i], deviations[i], 1e-6) << i;
        }
    }
};

// The four pixels differ from their mean by 5.5 and 4.5, both ways.
TEST_F(KSEvalSpecFromDataSetTest, TakesMeansAndDeviationsOverTheRegion) {
    ASSERT_EQ(eval(), 0);
    const double deviation = std::sqrt((2 * 5.5 * 5.5 + 2 * 4.5 * 4.5) / 4);
    expectValues({316.5, 116.5}, {deviation, deviation});
    EXPECT_EQ(spectrum->nNumSamples, 4);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSEvalSpecFromDataSetTest, APointHasNoDeviation) {
    useRegion({KS_ROI_POINT, 3, 2, 1, -1, nullptr, -1});
    ASSERT_EQ(eval(), 0);
    expectValues({323, 123}, {0, 0});
    EXPECT_EQ(spectrum->nNumSamples, 1);
}

TEST_F(KSEvalSpecFromDataSetTest, ABitmapChoosesPixels) {
    useRegion({KS_ROI_BITMAP, 0, 0, 4, 3, nullptr, -1});
    ASSERT_EQ(KSAllocROIBitmap(spectrum->paROI), 0);
    KSSetROIBit(spectrum->paROI, 0, 0);
    KSSetROIBit(spectrum->paROI, 2, 1);
    ASSERT_EQ(eval(), 0);
    expectValues({306, 106}, {6, 6});
    EXPECT_EQ(spectrum->nNumSamples, 2);
}

TEST_F(KSEvalSpecFromDataSetTest, SamplesAtTheIntervals) {
    useRegion({KS_ROI_RECTANGLE, 0, 0, 4, 1, nullptr, -1});
    sampling.nXSampleInt = 2;
    ASSERT_EQ(eval(), 0);
    expectValues({301, 101}, {1, 1});
    EXPECT_EQ(spectrum->nNumSamples, 2);
}

TEST_F(KSEvalSpecFromDataSetTest, StoredValuesAreUncalibrated) {
    useTransforms();
    spectrum->eRadQuant = KS_RQ_REFL;
    ASSERT_EQ(eval(0), 0);
    EXPECT_EQ(spectrum->eRadQuant, KS_RQ_UNCAL);
    expectValues({316.5, 116.5}, {std::sqrt(25.25), std::sqrt(25.25)});
}

TEST_F(KSEvalSpecFromDataSetTest, ALevelHasTheQuantityOfItsTransform) {
    useTransforms();
    useRegion({KS_ROI_POINT, 0, 0, 1, -1, nullptr, -1});
    ASSERT_EQ(eval(1), 0);
    EXPECT_EQ(spectrum->eRadQuant, KS_RQ_APPRAD);
    expectValues({4 * 300 + 1, 2 * 100 + 1}, {0, 0});
    ASSERT_EQ(eval(2), 0);
    EXPECT_EQ(spectrum->eRadQuant, KS_RQ_REFL);
    expectValues({(4 * 300 + 1) / 2.0, (2 * 100 + 1) / 2.0}, {0, 0});
}

TEST_F(KSEvalSpecFromDataSetTest, TakesTheBandsQualities) {
    ASSERT_EQ(eval(), 0);
    EXPECT_EQ((std::vector<int>{spectrum->peBandQual[0], spectrum->peBandQual[1]}),
              (std::vector<int>{KS_BQ_MASK, KS_BQ_BMASK}));
}

TEST_F(KSEvalSpecFromDataSetTest, CopiesTheFileNameInPlaceOfTheOldOne) {
    spectrum->szSourceFile = heapText("another.img");
    ASSERT_EQ(eval(), 0);
    EXPECT_STREQ(spectrum->szSourceFile, "cube.img");
    EXPECT_NE(spectrum->szSourceFile, dataSet->szFileName);
    ASSERT_EQ(eval(), 0) << "again, over its own results";
    EXPECT_STREQ(spectrum->szSourceFile, "cube.img");
}

TEST_F(KSEvalSpecFromDataSetTest, LeavesTheRestAlone) {
    spectrum->szTarget = heapText("Snow");
    spectrum->szROIFile = heapText("regions");
    KSROI* const region = spectrum->paROI;
    ASSERT_EQ(eval(), 0);
    EXPECT_STREQ(spectrum->szTarget, "Snow");
    EXPECT_STREQ(spectrum->szROIFile, "regions");
    EXPECT_EQ(spectrum->paROI, region);
    EXPECT_EQ(spectrum->nNumROIs, 1);
    EXPECT_EQ(spectrum->pafWlen[0], 420.0F);
}

TEST_F(KSEvalSpecFromDataSetTest, WithoutBandsThereAreNoSamples) {
    const Schema schema = schemaOf({}, {});
    spectrum.reset(KSCreateSpec(schema.get()));
    useRegion({KS_ROI_POINT, 0, 0, 1, -1, nullptr, -1});
    spectrum->nNumSamples = 77;
    sampling.nNumBands = 0;
    ASSERT_EQ(eval(), 0);
    EXPECT_EQ(spectrum->nNumSamples, 0);
    EXPECT_EQ(spectrum->eRadQuant, KS_RQ_UNCAL);
    EXPECT_STREQ(spectrum->szSourceFile, "cube.img");
}

constexpr const char* kFromDataSet = "KSEvalSpecFromDataSet ()";
const Report kFailedStatistics =
    failure("%s: Failed to evaluate the measurement vector, failure in KSEvalbandStats ().\n", kFromDataSet);

TEST_F(KSEvalSpecFromDataSetTest, ChecksInOrder) {
    const auto refused = [](const KSDataSet* from, const KSSampDesc* description, KSSpectrum* into) {
        EXPECT_EQ(KSEvalSpecFromDataSet(from, 1, description, into), 1);
    };
    KSBandResp* const responses = dataSet->Sensor.pBandResp;
    KSROI* const region = spectrum->paROI;
    dataSet->Sensor.pBandResp = nullptr;
    spectrum->paROI = nullptr;
    sampling.nNumBands = 1;
    refused(nullptr, nullptr, nullptr);
    refused(dataSet, nullptr, nullptr);
    refused(dataSet, &sampling, nullptr);
    refused(dataSet, &sampling, spectrum.get());
    spectrum->paROI = region;
    refused(dataSet, &sampling, spectrum.get());
    sampling.nNumBands = 2;
    refused(dataSet, &sampling, spectrum.get());
    dataSet->Sensor.pBandResp = responses;
    refused(dataSet, &sampling, spectrum.get());
    dataSet->nNumRadTrans = 1;
    refused(dataSet, &sampling, spectrum.get());
    dataSet->nNumRadTrans = 0;
    EXPECT_EQ(
        host().reports,
        (Reports{failure("%s: pDataSet == NULL.\n", kFromDataSet), failure("%s: pSampDesc == NULL.\n", kFromDataSet),
                 failure("%s: pSpectrum == NULL.\n", kFromDataSet),
                 failure("%s: pSpectrum->paROI == NULL.\n", kFromDataSet),
                 failure("%s: pSpectrum->nNumMeasVals != pSampDesc->nNumBands.\n", kFromDataSet),
                 failure("%s: pDataSet->Sensor.pBandResp == NULL.\n", kFromDataSet),
                 failure("%s: nRadTransLev > pDataSet->nNumRadTrans.\n", kFromDataSet),
                 failure("%s: nRadTransLev > 0 && pDataSet->papRadTransSeq == NULL.\n", kFromDataSet)}));
    EXPECT_EQ(host().count("GDBRealChanIOLow"), 0);
}

TEST_F(KSEvalSpecFromDataSetTest, FailedStatisticsAreReportedAfterTheirOwnReports) {
    spectrum->eRadQuant = KS_RQ_REFL;
    useRegion({KS_ROI_POINT, 1, 1, 2, -1, nullptr, -1});
    EXPECT_EQ(eval(), 1);
    ASSERT_GE(host().reports.size(), 2U);
    EXPECT_EQ(host().reports.back(), kFailedStatistics);

    host().forget();
    EXPECT_EQ(eval(-1), 1);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: nRadTRansLev < 0 || nRadTransLev > pDataSet->nNumRadTrans\n", "KSEvalBandStats ()"),
                       kFailedStatistics}));
    EXPECT_EQ(spectrum->eRadQuant, KS_RQ_REFL);
    EXPECT_EQ(spectrum->szSourceFile, nullptr);
}

TEST_F(KSEvalSpecFromDataSetTest, ABandOfUnknownResponseEndsTheFilling) {
    dataSet->Sensor.pBandResp[0].eRespType = KS_RT_UNKNOWN;
    spectrum->szSourceFile = heapText("another.img");
    spectrum->peBandQual[0] = -9;
    EXPECT_EQ(eval(), 1);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: pDataSet->Sensor.pBandResp[%d].eRespType == KS_RT_UNKNOWN.\n", kFromDataSet, 0)}));
    EXPECT_EQ(spectrum->peBandQual[0], KS_BQ_MASK);
    EXPECT_EQ(spectrum->nNumSamples, 4);
    EXPECT_EQ(spectrum->eRadQuant, KS_RQ_UNCAL);
    expectValues({316.5, 116.5}, {std::sqrt(25.25), std::sqrt(25.25)});
    EXPECT_STREQ(spectrum->szSourceFile, "another.img");
}

TEST_F(KSEvalSpecFromDataSetTest, BandsThatAreNotSelectedMayBeUnknown) {
    dataSet->Sensor.pBandResp[1].eRespType = KS_RT_UNKNOWN;
    EXPECT_EQ(eval(), 0);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSEvalSpecFromDataSetTest, BandsOutsideTheDataSetAreRefused) {
    for (const int band : {-1, 3}) {
        bands[1] = band;
        host().forget();
        EXPECT_EQ(eval(), 1) << band;
        EXPECT_FALSE(host().reports.empty());
    }
}

TEST_F(KSEvalSpecFromDataSetTest, MemoryThatRunsOutFailsOrDoesNotShow) {
    int failures = 0;
    for (int nth = 1;; ++nth) {
        host().forget();
        refuseAllocation(nth);
        const int result = eval();
        if (result != 0) {
            ++failures;
            ASSERT_GE(host().reports.size(), 2U) << "allocation " << nth;
            EXPECT_EQ(host().reports.back(), kFailedStatistics) << "allocation " << nth;
            continue;
        }
        expectValues({316.5, 116.5}, {std::sqrt(25.25), std::sqrt(25.25)});
        EXPECT_EQ(host().reports, Reports{});
        if (!allocationRefused()) break;
    }
    EXPECT_GE(failures, 3) << "a window has three arrays";
}

}  // namespace
