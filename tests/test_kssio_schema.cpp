// Schemas from a layer's field names, and comparing schemas.
#include <kslib.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "fixture.hpp"
#include "spectra.hpp"

using namespace kit;

namespace {

using Numbers = std::vector<int>;
using Wavelengths = std::vector<float>;

// ---- schemas from a layer ----

struct KSSTSchemaFromLayerTest : LibraryTest {
    FakeLayer* layer = nullptr;
    HostFile* fp = nullptr;
    Schema schema;

    void SetUp() override {
        LibraryTest::SetUp();
        fp = host().openMemoryFile();
    }
    void TearDown() override {
        host().whenCalled = nullptr;
        GDBClose(fp);
        LibraryTest::TearDown();
    }
    void make(const Names& names) { layer = &host().addLayer(fp, "spectra", fieldsNamed(names)); }
    KSSTSchema* read() {
        schema.reset(KSSTSchemaFromLayer(layer));
        return schema.get();
    }
    Wavelengths measured() const { return wavelengths(schema->pMeasFld, schema->nNumMeasFlds); }
    Wavelengths qualified() const { return wavelengths(schema->pQualFld, schema->nNumQualFlds); }
    Numbers matches() const { return qualityIndexes(schema->pMeasFld, schema->nNumMeasFlds); }

    /// Changes a field's name when the fields were counted and are looked at again.
    void renameAfterCounting(std::size_t field, const std::string& name) {
        host().forget();
        int ignored = 0;
        ASSERT_EQ(_CountFields(layer, &ignored, &ignored, &ignored), 0);
        const int counting = host().count("GDBGetFieldName");
        host().forget();
        host().whenCalled = [this, counting, field, name](const Call& call) {
            if (call.name != "GDBGetFieldName" || host().count("GDBGetFieldName") <= counting) return;
            layer->fields[field].first = name;
        };
    }
};

TEST_F(KSSTSchemaFromLayerTest, TellsTheKindsApartAndSortsTheWavelengths) {
    make({"Target", "m500_000", "comment", "q400_000", "ROI", "m400_000", "Quantity", "q500_000", "unknown"});
    ASSERT_NE(read(), nullptr);
    EXPECT_EQ(identifiers(schema->pMetaFlds, schema->nNumMetaFlds),
              (Numbers{KS_FLD_TARGET, KS_FLD_ROI, KS_FLD_QUANTITY}));
    EXPECT_EQ(indexes(schema->pMetaFlds, schema->nNumMetaFlds), (Numbers{0, 4, 6}));
    EXPECT_EQ(identifiers(schema->pMeasFld, schema->nNumMeasFlds), Numbers(2, KS_FLD_MEAS));
    EXPECT_EQ(measured(), (Wavelengths{400, 500}));
    EXPECT_EQ(indexes(schema->pMeasFld, schema->nNumMeasFlds), (Numbers{5, 1}));
    EXPECT_EQ(matches(), (Numbers{3, 7}));
    EXPECT_EQ(identifiers(schema->pQualFld, schema->nNumQualFlds), Numbers(2, KS_FLD_QUAL));
    EXPECT_EQ(qualified(), (Wavelengths{400, 500}));
    EXPECT_EQ(indexes(schema->pQualFld, schema->nNumQualFlds), (Numbers{3, 7}));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSSTSchemaFromLayerTest, TheHostSorts) {
    make({"Target", "m500", "m400", "m450", "q500", "q400"});
    ASSERT_NE(read(), nullptr);
    EXPECT_EQ(host().callsOf({"ORV_qsort"}), (Names{"ORV_qsort(pointer, 3, 16)", "ORV_qsort(pointer, 2, 16)"}));
}

TEST_F(KSSTSchemaFromLayerTest, WithoutQualitiesNothingMatches) {
    make({"m500", "m400", "Target"});
    ASSERT_NE(read(), nullptr);
    EXPECT_EQ(measured(), (Wavelengths{400, 500}));
    EXPECT_EQ(matches(), (Numbers{-1, -1}));
    EXPECT_EQ(schema->nNumQualFlds, 0);
    EXPECT_EQ(host().count("ORV_qsort"), 1);
}

TEST_F(KSSTSchemaFromLayerTest, QualitiesMatchInWholeThousandths) {
    make({"m450_0004", "m450_0016", "m600", "m350", "q450_002", "q450_000", "q700", "q600_001"});
    ASSERT_NE(read(), nullptr);
    EXPECT_EQ(measured(), (Wavelengths{350, 450.0004F, 450.0016F, 600}));
    EXPECT_EQ(matches(), (Numbers{-1, 5, 4, -1}));
}

TEST_F(KSSTSchemaFromLayerTest, WavelengthsAreSortedAsNumbersNotAsNames) {
    make({"m1000", "m900", "m90_5", "m", "m1000_001"});
    ASSERT_NE(read(), nullptr);
    EXPECT_EQ(measured(), (Wavelengths{0, 90.5F, 900, 1000, 1000.001F}));
}

TEST_F(KSSTSchemaFromLayerTest, MetadataAloneAreASchemaToo) {
    make({"comment", "ROI", "Target", "Target"});
    ASSERT_NE(read(), nullptr);
    EXPECT_EQ(indexes(schema->pMetaFlds, schema->nNumMetaFlds), (Numbers{1, 2, 3}));
    EXPECT_EQ(schema->nNumMeasFlds, 0);
    EXPECT_EQ(schema->nNumQualFlds, 0);
    make({"comment"});
    ASSERT_NE(read(), nullptr);
    EXPECT_EQ(schema->nNumMetaFlds, 0);
    make({"q450"});
    ASSERT_NE(read(), nullptr);
    EXPECT_EQ(qualified(), (Wavelengths{450}));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSSTSchemaFromLayerTest, ASpectralLibraryFileEndsAt3000) {
    make({"Target", "m3500", "m2999", "m3000", "m3000_001", "m400", "q2999", "q400", "q3000", "q3001", "q3500"});
    layer->type = 29;
    ASSERT_NE(read(), nullptr);
    EXPECT_EQ(measured(), (Wavelengths{400, 2999, 3000}));
    EXPECT_EQ(qualified(), (Wavelengths{400, 2999, 3000}));
    EXPECT_EQ(matches(), (Numbers{7, 6, 8}));
    EXPECT_EQ(host().callsOf({"ORV_qsort"}), (Names{"ORV_qsort(pointer, 5, 16)", "ORV_qsort(pointer, 3, 16)"}))
        << "measurements are cut after sorting, qualities before";
}

TEST_F(KSSTSchemaFromLayerTest, ItsQualitiesEndAtTheFirstBeyond3000AsStored) {
    make({"m400", "m500", "m3100", "q500", "q3100", "q400"});
    layer->type = 29;
    ASSERT_NE(read(), nullptr);
    EXPECT_EQ(measured(), (Wavelengths{400, 500}));
    EXPECT_EQ(qualified(), (Wavelengths{500}));
    EXPECT_EQ(matches(), (Numbers{-1, 3}));

    make({"m400", "q3100", "q400"});
    layer->type = 29;
    ASSERT_NE(read(), nullptr);
    EXPECT_EQ(schema->nNumQualFlds, 0);
    EXPECT_EQ(matches(), (Numbers{-1}));

    make({"Target", "m3100", "m3200"});
    layer->type = 29;
    ASSERT_NE(read(), nullptr);
    EXPECT_EQ(schema->nNumMeasFlds, 0);
}

TEST_F(KSSTSchemaFromLayerTest, OtherLayersAreNotCut) {
    for (const int type : {3, 60, 0, 28, 30}) {
        make({"m3500", "m400", "q3500", "q400"});
        layer->type = type;
        ASSERT_NE(read(), nullptr);
        EXPECT_EQ(measured(), (Wavelengths{400, 3500}));
        EXPECT_EQ(matches(), (Numbers{3, 2}));
    }
}

// As many as a field spectrometer's library has.
TEST_F(KSSTSchemaFromLayerTest, ManyFieldsInAnyOrder) {
    constexpr int kBands = 2151;
    Names names = {"Target", "Quantity", "Source_File", "ROI_File", "ROI"};
    for (int b = 0; b < kBands; ++b) {
        const std::string number = std::to_string(350 + b * 1000 % kBands) + "_000";
        names.push_back("m" + number);
        names.push_back("q" + number);
    }
    ASSERT_EQ(names.size(), 4307U);
    make(names);
    ASSERT_NE(read(), nullptr);
    EXPECT_EQ(schema->nNumMetaFlds, 5);
    ASSERT_EQ(schema->nNumMeasFlds, kBands);
    ASSERT_EQ(schema->nNumQualFlds, kBands);
    for (int b = 0; b < kBands; ++b) {
        const KSSTFld& field = schema->pMeasFld[b];
        ASSERT_EQ(field.fWlen, static_cast<float>(350 + b));
        ASSERT_EQ(names[static_cast<std::size_t>(field.nFldInd)], "m" + std::to_string(350 + b) + "_000");
        ASSERT_EQ(field.nQualFldInd, field.nFldInd + 1);
        ASSERT_EQ(schema->pQualFld[b].nFldInd, field.nFldInd + 1);
    }
}

TEST_F(KSSTSchemaFromLayerTest, ChecksInOrder) {
    EXPECT_EQ(read(), nullptr);
    make({});
    EXPECT_EQ(read(), nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: hLayer == NULL.\n", "KSSTSchemaFromLayer ()"),
                                       failure("%s: nNumFields == 0.\n", "KSSTSchemaFromLayer ()")}));
}

TEST_F(KSSTSchemaFromLayerTest, AFieldWithoutANameFailsTheCount) {
    make({"Target", "m400", ""});
    EXPECT_EQ(read(), nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: GDBGetFieldName () returned \"\".\n", "EvalSTFldHdr ()"),
                                       failure("%s: _EvalSTFldHdr () failed.\n", "_CountFields ()"),
                                       failure("%s: _CountFields () failed\n", "KSSTSchemaFromLayer ()")}));
}

TEST_F(KSSTSchemaFromLayerTest, AFieldThatLosesItsNameAfterTheCountFailsWithTheFieldsOwnReport) {
    for (const std::size_t field : {0U, 1U, 2U}) {
        make({"Target", "m400", "q400"});
        renameAfterCounting(field, "");
        EXPECT_EQ(read(), nullptr);
        EXPECT_EQ(host().reports, (Reports{failure("%s: GDBGetFieldName () returned \"\".\n", "EvalSTFldHdr ()")}));
    }
}

TEST_F(KSSTSchemaFromLayerTest, LostMetadataLeaveTheSchemaAsFarAsBuilt) {
    make({"Target", "ROI", "m500", "m400"});
    renameAfterCounting(1, "comment");
    ASSERT_NE(read(), nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: nMetaInd != pRetVal->nNumMetaFlds.\n", "KSSTSchemaFromLayer ()")}));
    ASSERT_GE(schema->nNumMetaFlds, 1);
    EXPECT_EQ(schema->pMetaFlds[0].eFldID, KS_FLD_TARGET);
    EXPECT_EQ(host().count("ORV_qsort"), 0);
}

TEST_F(KSSTSchemaFromLayerTest, LostMeasurementsLeaveTheSchemaAsFarAsBuilt) {
    make({"Target", "m500", "m400", "q400"});
    renameAfterCounting(2, "comment");
    ASSERT_NE(read(), nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: nMeasInd != pRetVal->nNumMeasFlds.\n", "KSSTSchemaFromLayer ()")}));
    EXPECT_EQ(indexes(schema->pMetaFlds, schema->nNumMetaFlds), (Numbers{0}));
    ASSERT_GE(schema->nNumMeasFlds, 1);
    EXPECT_EQ(schema->pMeasFld[0].fWlen, 500.0F);
    EXPECT_EQ(host().count("ORV_qsort"), 0);
}

TEST_F(KSSTSchemaFromLayerTest, LostMetadataAreReportedBeforeLostMeasurements) {
    make({"Target", "m500"});
    renameAfterCounting(0, "comment");
    const auto rename = host().whenCalled;
    host().whenCalled = [this, rename](const Call& call) {
        rename(call);
        if (layer->fields[0].first == "comment") layer->fields[1].first = "comment";
    };
    ASSERT_NE(read(), nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: nMetaInd != pRetVal->nNumMetaFlds.\n", "KSSTSchemaFromLayer ()")}));
}

TEST_F(KSSTSchemaFromLayerTest, FieldsThatAppearAfterTheCountAreNotWrittenPastIt) {
    for (const char* name : {"ROI", "m600", "q600"}) {
        make({"Target", "m500", "q500", "comment"});
        renameAfterCounting(3, name);
        ASSERT_NE(read(), nullptr) << name;
        EXPECT_EQ(schema->nNumMetaFlds, 1);
        EXPECT_EQ(schema->nNumMeasFlds, 1);
        EXPECT_EQ(schema->nNumQualFlds, 1);
        EXPECT_EQ(schema->pMeasFld[0].fWlen, 500.0F);
        EXPECT_EQ(schema->pQualFld[0].fWlen, 500.0F);
    }
}

TEST_F(KSSTSchemaFromLayerTest, QualitiesLostAfterTheCountAreNotMadeUp) {
    make({"Target", "m500", "m400", "q500", "q400"});
    renameAfterCounting(3, "comment");
    ASSERT_NE(read(), nullptr);
    EXPECT_EQ(measured(), (Wavelengths{400, 500}));
    EXPECT_EQ(qualified(), (Wavelengths{400}));
    EXPECT_EQ(matches(), (Numbers{4, -1}));
}

TEST_F(KSSTSchemaFromLayerTest, NamesWhatCouldNotBeAllocated) {
    make({"Target", "m500", "q500"});
    const Reports promised = {
        failure("%s: pRetVal == NULL,HMalloc () failed", "KSSTSchemaFromLayer ()"),
        failure("%s: pRetVal->pMetaFlds == NULL,\nHMalloc () failed.\n.", "KSSTSchemaFromLayer ()"),
        failure("%s: pRetVal->pMeasFlds == NULL,\nHMalloc () failed.\n", "KSSTSchemaFromLayer ()"),
        failure("%s: pQualFlds == NULL,\nHMalloc () failed.\n", "KSSTSchemaFromLayer ()")};
    for (std::size_t n = 0; n < promised.size(); ++n) {
        host().forget();
        refuseAllocation(static_cast<int>(n) + 1);
        EXPECT_EQ(read(), nullptr);
        EXPECT_EQ(host().reports, (Reports{promised[n]})) << "allocation " << n + 1;
    }
    host().forget();
    refuseAllocation(static_cast<int>(promised.size()) + 1);
    EXPECT_NE(read(), nullptr);
    EXPECT_FALSE(allocationRefused());
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSSTSchemaFromLayerTest, WhatAProfileMakesIsReadBack) {
    KSDataSet* dataSet = heapDataSet(4);
    const Numbers bands = {3, 1, 0};
    const Schema made(KSSTSchemaFromProfile(&dataSet->Sensor, bands.data(), 3, 1));
    freeWhole(dataSet);
    ASSERT_NE(made, nullptr);
    HostLayer* created = KSCreateSpectraLayer(made.get());
    ASSERT_NE(created, nullptr);
    schema.reset(KSSTSchemaFromLayer(created));
    GDBClose(created->fp);
    ASSERT_NE(schema, nullptr);
    EXPECT_EQ(identifiers(schema->pMetaFlds, schema->nNumMetaFlds), allMetadata());
    EXPECT_EQ(measured(), (Wavelengths{400, 410, 430}));
    EXPECT_EQ(indexes(schema->pMeasFld, 3), (Numbers{7, 6, 5}));
    EXPECT_EQ(matches(), (Numbers{10, 9, 8}));
}

// ---- comparing ----

struct KSSimilarSTSchemaTest : LibraryTest {
    static int similar(const Wavelengths& one, const Wavelengths& other) {
        const Schema first = schemaOf({KS_FLD_TARGET}, one);
        const Schema second = schemaOf({}, other);
        return KSSimilarSTSchema(first.get(), second.get());
    }
    static void expectBothWays(const Wavelengths& one, const Wavelengths& other, int answer) {
        EXPECT_EQ(similar(one, other), answer);
        EXPECT_EQ(similar(other, one), answer);
    }
};

TEST_F(KSSimilarSTSchemaTest, TheShorterOneHasToBeFoundInTheLonger) {
    expectBothWays({400, 500}, {400, 450, 500}, 1);
    expectBothWays({400, 500}, {400, 500}, 1);
    expectBothWays({450}, {400, 450, 500}, 1);
    expectBothWays({400, 460}, {400, 450, 500}, 0);
    expectBothWays({400, 510}, {400, 450, 500}, 0);
    expectBothWays({399}, {400, 450, 500}, 0);
}

TEST_F(KSSimilarSTSchemaTest, TheOrderMatters) {
    expectBothWays({500, 400}, {400, 500}, 0);
    expectBothWays({500, 400}, {400, 450, 500}, 0);
    expectBothWays({500, 400}, {400, 500, 400}, 1);
}

TEST_F(KSSimilarSTSchemaTest, AMatchedFieldMayMatchAgain) {
    expectBothWays({400, 400}, {400, 500, 600}, 1);
    expectBothWays({500, 500, 600, 600}, {400, 500, 600, 700, 800}, 1);
}

TEST_F(KSSimilarSTSchemaTest, OnATieTheFirstIsLookedUpInTheSecond) {
    EXPECT_EQ(similar({400, 400}, {400, 500}), 1);
    EXPECT_EQ(similar({400, 500}, {400, 400}), 0);
}

TEST_F(KSSimilarSTSchemaTest, ComparesWholeThousandths) {
    expectBothWays({0.5004F}, {0.5F}, 1);
    expectBothWays({0.5006F}, {0.5F}, 0);
    expectBothWays({450.0004F, 500}, {450, 499.9996F}, 1);
    expectBothWays({450.001F}, {450}, 0);
}

TEST_F(KSSimilarSTSchemaTest, AnEmptyOneIsSimilarToAny) {
    expectBothWays({}, {400, 500}, 1);
    expectBothWays({}, {}, 1);
}

TEST_F(KSSimilarSTSchemaTest, LooksOnlyAtMeasurements) {
    const Schema full = schemaOf(allMetadata(), {400, 500}, {400, 500});
    const Schema bare = schemaOf({}, {400, 500});
    EXPECT_EQ(KSSimilarSTSchema(full.get(), bare.get()), 1);
    EXPECT_EQ(KSSimilarSTSchema(bare.get(), full.get()), 1);
    EXPECT_EQ(host().callNames(), Names{});
}

TEST_F(KSSimilarSTSchemaTest, NothingIsNotSimilar) {
    const Schema schema = schemaOf({}, {400});
    EXPECT_EQ(KSSimilarSTSchema(nullptr, schema.get()), 0);
    EXPECT_EQ(KSSimilarSTSchema(schema.get(), nullptr), 0);
    EXPECT_EQ(KSSimilarSTSchema(nullptr, nullptr), 0);
}

// ---- releasing ----

using KSFreeSTSchemaTest = LibraryTest;

TEST_F(KSFreeSTSchemaTest, TakesWhatIsThere) {
    KSFreeSTSchema(nullptr);
    KSFreeSTSchema(heapRecord<KSSTSchema>());
    KSFreeSTSchema(schemaOf(allMetadata(), {400}, {400}).release());
    EXPECT_EQ(host().callNames(), Names{});
}

}  // namespace
