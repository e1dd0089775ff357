// Spectra layers: making one in memory, finding one in a file, writing one to a file, telling what is one.
#include <kslib.h>

#include <algorithm>
#include <string>
#include <vector>

#include "fixture.hpp"
#include "spectra.hpp"

using namespace kit;

namespace {

using Numbers = std::vector<int>;

// ---- making ----

struct KSCreateSpectraLayerTest : LibraryTest {
    Schema schema = schemaOf(allMetadata(), {400, 450.5F}, {400, 450.5F});
    FakeLayer* layer = nullptr;

    FakeLayer* make() { return layer = static_cast<FakeLayer*>(KSCreateSpectraLayer(schema.get())); }
    void TearDown() override {
        if (layer != nullptr) GDBClose(layer->fp);
        LibraryTest::TearDown();
    }
    void expectRefused(const Report& report) {
        host().forget();
        EXPECT_EQ(make(), nullptr);
        EXPECT_EQ(host().reports, (Reports{report}));
        EXPECT_EQ(host().liveHandles(), 0);
    }
};

TEST_F(KSCreateSpectraLayerTest, MakesFieldAfterField) {
    schema = schemaOf({KS_FLD_TARGET, KS_FLD_QUANTITY}, {400, 450.5F}, {400});
    ASSERT_NE(make(), nullptr);
    EXPECT_EQ(
        host().callsOf(
            {"GDBCreate", "GDBCreateLayer", "GDBDefineNewField", "GDBGenFieldFormat", "GDBSetFieldFormat", "GDBClose"}),
        (Names{"GDBCreate(60, , 512, 512, 0, 1, )", "GDBCreateLayer(memory 1, spectra, , )",
               "GDBDefineNewField(Target, 3)", "GDBGenFieldFormat(3, 80, 0, 0)", "GDBSetFieldFormat(0, 3:80:0:0)",
               "GDBDefineNewField(Quantity, 3)", "GDBGenFieldFormat(3, 80, 0, 0)", "GDBSetFieldFormat(1, 3:80:0:0)",
               "GDBDefineNewField(m400_000, 2)", "GDBDefineNewField(m450_500, 2)", "GDBDefineNewField(q400_000, 3)"}));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSCreateSpectraLayerTest, FieldsFollowTheThreeArrays) {
    ASSERT_NE(make(), nullptr);
    EXPECT_EQ(layer->name, "spectra");
    EXPECT_EQ(layer->fields, (FakeFields{{"Target", 3},
                                         {"Quantity", 3},
                                         {"Source_File", 3},
                                         {"ROI_File", 3},
                                         {"ROI", 3},
                                         {"m400_000", 2},
                                         {"m450_500", 2},
                                         {"q400_000", 3},
                                         {"q450_500", 3}}));
    EXPECT_EQ(layer->formats.size(), 5U) << "only metadata have a format";
    EXPECT_TRUE(layer->shapes.empty());
    EXPECT_EQ(layer->nFlags, 0U);
}

TEST_F(KSCreateSpectraLayerTest, PositionsGoBackIntoTheSchema) {
    schema = schemaOf({KS_FLD_ROI, KS_FLD_TARGET}, {500, 400}, {500, 400});
    for (int i = 0; i < 2; ++i) {
        schema->pMetaFlds[i].nFldInd = schema->pMeasFld[i].nFldInd = schema->pQualFld[i].nFldInd = 77;
    }
    ASSERT_NE(make(), nullptr);
    EXPECT_EQ(indexes(schema->pMetaFlds, 2), (Numbers{0, 1}));
    EXPECT_EQ(indexes(schema->pMeasFld, 2), (Numbers{2, 3}));
    EXPECT_EQ(indexes(schema->pQualFld, 2), (Numbers{4, 5}));
    EXPECT_EQ(layer->fields[0].first, "ROI");
    EXPECT_EQ(layer->fields[2].first, "m500_000");
}

TEST_F(KSCreateSpectraLayerTest, EachLayerHasAFileOfItsOwn) {
    ASSERT_NE(make(), nullptr);
    HostLayer* other = KSCreateSpectraLayer(schema.get());
    ASSERT_NE(other, nullptr);
    EXPECT_NE(other->fp, layer->fp);
    GDBClose(other->fp);
    EXPECT_EQ(host().liveHandles(), 1);
}

TEST_F(KSCreateSpectraLayerTest, AnEmptySchemaMakesALayerWithoutFields) {
    schema = schemaOf({}, {});
    ASSERT_NE(make(), nullptr);
    EXPECT_TRUE(layer->fields.empty());
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSCreateSpectraLayerTest, ManyFields) {
    std::vector<float> wavelengths(2151);
    for (std::size_t b = 0; b < wavelengths.size(); ++b) wavelengths[b] = 350.0F + static_cast<float>(b);
    schema = schemaOf(allMetadata(), wavelengths, wavelengths);
    ASSERT_NE(make(), nullptr);
    ASSERT_EQ(layer->fields.size(), 4307U);
    EXPECT_EQ(layer->fields[5].first, "m350_000");
    EXPECT_EQ(layer->fields[2155].first, "m2500_000");
    EXPECT_EQ(layer->fields[2156].first, "q350_000");
    EXPECT_EQ(layer->fields[4306].first, "q2500_000");
    EXPECT_EQ(schema->pQualFld[2150].nFldInd, 4306);
}

constexpr const char* kCreate = "KSCreateSpectraLayer ()";

TEST_F(KSCreateSpectraLayerTest, RefusesANullSchema) {
    EXPECT_EQ(KSCreateSpectraLayer(nullptr), nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pSTSchema == NULL.\n", kCreate)}));
    EXPECT_EQ(host().callNames(), (Names{"IMPError"}));
}

TEST_F(KSCreateSpectraLayerTest, AFileThatCannotBeMadeIsReported) {
    host().failCall("GDBCreate");
    expectRefused(failure("%s: Failed to create the in-memory file, error in GDBCreate ().\n", kCreate));
    EXPECT_EQ(host().count("GDBCreateLayer"), 0);
    EXPECT_EQ(host().count("GDBClose"), 0);
}

TEST_F(KSCreateSpectraLayerTest, ALayerThatCannotBeMadeClosesTheFile) {
    host().failCall("GDBCreateLayer");
    expectRefused(failure("%s: Failed to create the layer, error in GDBCreateLayer ().\n", kCreate));
    EXPECT_EQ(host().count("GDBClose"), 1);
    EXPECT_EQ(host().count("GDBDefineNewField"), 0);
}

TEST_F(KSCreateSpectraLayerTest, UnknownMetadataCloseTheFile) {
    for (const int identifier : {0, 6, 7, 8, -1}) {
        schema = schemaOf({KS_FLD_TARGET, identifier, KS_FLD_ROI}, {400});
        expectRefused(failure("%s: Unrecognized spectrum metadata field type.\n", kCreate));
        EXPECT_EQ(host().count("GDBClose"), 1);
        EXPECT_EQ(host().count("GDBGenFieldFormat"), 1) << identifier;
    }
}

TEST_F(KSCreateSpectraLayerTest, AMissingFormatClosesTheFile) {
    for (const int nth : {1, 5}) {
        host().failCall("GDBGenFieldFormat", nth);
        expectRefused(failure("%s: szFormat == NULL GDBGenFieldFormat () failed.\n", kCreate));
        EXPECT_EQ(host().count("GDBClose"), 1);
        EXPECT_EQ(host().count("GDBSetFieldFormat"), nth - 1);
    }
}

TEST_F(KSCreateSpectraLayerTest, NegativeWavelengthsAreReportedAndLeftOut) {
    schema = schemaOf({KS_FLD_TARGET}, {400, -1, 500}, {-2, 400});
    ASSERT_NE(make(), nullptr);
    EXPECT_EQ(layer->fields, (FakeFields{{"Target", 3}, {"m400_000", 2}, {"m500_000", 2}, {"q400_000", 3}}));
    EXPECT_EQ(schema->pMeasFld[2].nFldInd, 2);
    EXPECT_EQ(schema->pQualFld[1].nFldInd, 3);
    EXPECT_EQ(host().reports, (Reports{failure("%s: fWavelength (%f) < 0.0 .\n", "_WlenToMeasFldName ()", -1.0),
                                       failure("%s: fWavelength (%f) < 0.0 .\n", "_WlenToQualFldName ()", -2.0)}));
}

// ---- finding ----

struct SpectraFileTest : LibraryTest {
    HostFile* fp = nullptr;

    void SetUp() override {
        LibraryTest::SetUp();
        host().addFile("library.ks", 0, 0, {});
        fp = host().open("library.ks", true);
    }
    void TearDown() override {
        GDBClose(fp);
        LibraryTest::TearDown();
    }
    FakeLayer* addLayer(const Names& fields) const { return &host().addLayer(fp, "layer", fieldsNamed(fields)); }
};

using KSReadSpectraLayerTest = SpectraFileTest;

TEST_F(KSReadSpectraLayerTest, ReturnsTheFirstSpectraLayer) {
    addLayer({"name", "m450"});
    FakeLayer* first = addLayer({"Target", "m450_000"});
    addLayer({"Target", "m450_000"});
    EXPECT_EQ(KSReadSpectraLayer(fp), first);
    EXPECT_EQ(host().callsOf({"GDBSegNext", "GDBGetLayer"}),
              (Names{"GDBSegNext(library.ks, 116, 0)", "GDBGetLayer(library.ks, 1)", "GDBSegNext(library.ks, 116, 1)",
                     "GDBGetLayer(library.ks, 2)"}));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSReadSpectraLayerTest, LooksOnlyAtLayers) {
    IDBSegCreate(fp, "table", "", 170, 1);
    FakeLayer* layer = addLayer({"Target", "m450_000"});
    host().forget();
    EXPECT_EQ(KSReadSpectraLayer(fp), layer);
    EXPECT_EQ(host().callsOf({"GDBGetLayer"}), (Names{"GDBGetLayer(library.ks, 2)"}));
}

TEST_F(KSReadSpectraLayerTest, WithoutASpectraLayerThereIsNoneAndNoReport) {
    EXPECT_EQ(KSReadSpectraLayer(fp), nullptr);
    addLayer({"Target"});
    addLayer({});
    addLayer({"m450", "q450"});
    EXPECT_EQ(KSReadSpectraLayer(fp), nullptr);
    EXPECT_EQ(host().reports, Reports{});
    EXPECT_EQ(host().callsOf({"GDBSegNext"}).back(), "GDBSegNext(library.ks, 116, 3)");
}

TEST_F(KSReadSpectraLayerTest, ALayerThatDoesNotLoadIsReportedAndPassed) {
    addLayer({"Target", "m450"})->unreadable = true;
    addLayer({"name"});
    addLayer({"Target", "m450"})->unreadable = true;
    FakeLayer* layer = addLayer({"Target", "m450"});
    EXPECT_EQ(KSReadSpectraLayer(fp), layer);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: Failed to read layer %d from file.\n", "KSReadSpectraLayer ()", 1),
                       failure("%s: Failed to read layer %d from file.\n", "KSReadSpectraLayer ()", 3)}));
}

TEST_F(KSReadSpectraLayerTest, ALayerThatCannotBeJudgedIsPassed) {
    addLayer({"Target", "", "m450"});
    FakeLayer* layer = addLayer({"Target", "m450"});
    EXPECT_EQ(KSReadSpectraLayer(fp), layer);
    EXPECT_EQ(host().reports, (Reports{failure("%s: GDBGetFieldName () returned \"\".\n", "EvalSTFldHdr ()"),
                                       failure("%s: EvalSTFldHdr () failed.\n", "KSIsASpectraLayer ()")}));
}

TEST_F(KSReadSpectraLayerTest, RefusesANullFile) {
    EXPECT_EQ(KSReadSpectraLayer(nullptr), nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: fpFilI == NULL.\n", "KSReadSpectraLayer ()")}));
    EXPECT_EQ(host().callNames(), (Names{"IMPError"}));
}

TEST_F(KSReadSpectraLayerTest, AFailedWalkFindsNothing) {
    addLayer({"Target", "m450"});
    host().failCall("GDBSegNext");
    EXPECT_EQ(KSReadSpectraLayer(fp), nullptr);
    EXPECT_EQ(host().count("GDBGetLayer"), 0);
}

// ---- telling ----

struct KSIsASpectraLayerTest : SpectraFileTest {
    int isOne(const Names& fields) const { return KSIsASpectraLayer(addLayer(fields)); }
};

TEST_F(KSIsASpectraLayerTest, NeedsATargetAndAMeasurement) {
    EXPECT_EQ(isOne({"Target", "m450_500"}), 1);
    EXPECT_EQ(isOne({"m450", "comment", "Target"}), 1);
    EXPECT_EQ(isOne({"m", "Target"}), 1);
    EXPECT_EQ(isOne({"Target"}), 0);
    EXPECT_EQ(isOne({"Target", "Quantity", "Source_File", "ROI_File", "ROI", "q450"}), 0);
    EXPECT_EQ(isOne({"m450", "m460", "q450", "Quantity"}), 0);
    EXPECT_EQ(isOne({"target", "m450"}), 0);
    EXPECT_EQ(isOne({"Target", "M450", "m45a"}), 0);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSIsASpectraLayerTest, ALayerWithoutFieldsIsNone) {
    EXPECT_EQ(isOne({}), 0);
    EXPECT_EQ(KSIsASpectraLayer(nullptr), 0);
}

TEST_F(KSIsASpectraLayerTest, LooksNoFurtherThanItHasTo) {
    EXPECT_EQ(isOne({"Target", "m450", "m460", ""}), 1);
    EXPECT_EQ(host().callsOf({"GDBGetFieldName"}), (Names{"GDBGetFieldName(0)", "GDBGetFieldName(1)"}));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSIsASpectraLayerTest, AFieldWithoutANameMakesItNone) {
    EXPECT_EQ(isOne({"", "Target", "m450"}), 0);
    EXPECT_EQ(host().reports, (Reports{failure("%s: GDBGetFieldName () returned \"\".\n", "EvalSTFldHdr ()"),
                                       failure("%s: EvalSTFldHdr () failed.\n", "KSIsASpectraLayer ()")}));
}

// ---- writing ----

struct KSWriteSpectraLayerTest : SpectraFileTest {
    FakeLayer* layer = nullptr;

    void SetUp() override {
        SpectraFileTest::SetUp();
        addLayer({"name"});
        layer = addLayer({"Target", "m400_000", "m500_000", "q400_000", "q500_000"});
        for (int i = 0; i < 3; ++i) {
            layer->shapes.push_back({{{1, 0.1 * i}, {2, -7.5}}, {{0, "Snow " + std::to_string(i)}, {3, "plot"}}, {}});
        }
        host().forget();
    }
    int write(int type = 3) const { return KSWriteSpectraLayer("new.ks", layer, type); }
    static FakeLayer& written() { return *host().file("new.ks").layers.at(1); }
};

TEST_F(KSWriteSpectraLayerTest, CopiesTheLayerIntoANewFile) {
    ASSERT_EQ(write(), 0);
    EXPECT_EQ(host().callsOf({"GDBCreate", "GDBVectorCopy", "GDBGetLayer", "GDBClose"}),
              (Names{"GDBCreate(3, new.ks, 512, 512, 0, 1, )", "GDBVectorCopy(library.ks, 2, new.ks, 0, 0, 0, 0)",
                     "GDBGetLayer(new.ks, 1)", "GDBClose(new.ks)"}));
    EXPECT_EQ(written().fields, layer->fields);
    ASSERT_EQ(written().shapes.size(), 3U);
    EXPECT_EQ(written().shapes[2].numbers, layer->shapes[2].numbers);
    EXPECT_EQ(written().shapes[2].texts, layer->shapes[2].texts);
    EXPECT_EQ(host().reports, Reports{});
    EXPECT_EQ(host().liveHandles(), 1);
}

TEST_F(KSWriteSpectraLayerTest, TheFileHasTheTypeThatIsAskedFor) {
    ASSERT_EQ(write(29), 0);
    EXPECT_EQ(host().argumentsOf("GDBCreate"), "29, new.ks, 512, 512, 0, 1, ");
    EXPECT_EQ(host().file("new.ks").type, 29);
}

TEST_F(KSWriteSpectraLayerTest, WarnsOfFieldsThatWereDropped) {
    // clang-format off
    const char* const format = "The last %d fields were dropped when spectra were\noutput to %s, because the maxmium-number-of-fields\nlimit of the file format was exceeded.";
    // clang-format on
    const std::string start = "The last 3 fields were dropped when spectra were\noutput to new.ks, because ";
    host().fieldLimits[17] = 2;
    EXPECT_EQ(write(17), 0);
    ASSERT_EQ(host().reports.size(), 1U);
    const Report& warning = host().reports[0];
    EXPECT_FALSE(warning.debug);
    EXPECT_EQ(warning.code, -1);
    EXPECT_EQ(warning.severity, 2);
    EXPECT_EQ(warning.format, format);
    EXPECT_EQ(warning.text.substr(0, start.size()), start);
    EXPECT_EQ(written().fields.size(), 2U);
    EXPECT_EQ(host().callNames().back(), "GDBClose");
}

TEST_F(KSWriteSpectraLayerTest, AFormatThatHoldsAllFieldsGivesNoWarning) {
    host().fieldLimits[17] = 5;
    EXPECT_EQ(write(17), 0);
    EXPECT_EQ(host().reports, Reports{});
}

constexpr const char* kWrite = "KSWriteSpectraLayer ()";

TEST_F(KSWriteSpectraLayerTest, ChecksInOrderBeforeAFileIsMade) {
    EXPECT_EQ(KSWriteSpectraLayer(nullptr, nullptr, 3), 1);
    EXPECT_EQ(KSWriteSpectraLayer("new.ks", nullptr, 3), 1);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: szFilO == NULL.\n", kWrite), failure("%s: hLayer == NULL.\n", kWrite)}));
    EXPECT_EQ(host().callNames(), (Names{"IMPError", "IMPError"}));
}

TEST_F(KSWriteSpectraLayerTest, AFileThatCannotBeMadeIsReported) {
    EXPECT_EQ(KSWriteSpectraLayer("library.ks", layer, 3), 1) << "it exists";
    EXPECT_EQ(host().reports, (Reports{failure("%s: fpFilO == NULL, error ib GDBCreate.\n", kWrite)}));
    EXPECT_EQ(host().callNames(), (Names{"GDBCreate", "IMPError"}));
}

TEST_F(KSWriteSpectraLayerTest, AFailedCopyClosesTheFile) {
    host().failCall("GDBVectorCopy");
    EXPECT_EQ(write(), 1);
    EXPECT_EQ(host().callNames().back(), "GDBClose");
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSWriteSpectraLayerTest, ACopyThatCannotBeFetchedClosesTheFile) {
    host().failCall("GDBGetLayer");
    EXPECT_EQ(write(), 1);
    EXPECT_EQ(host().callNames().back(), "GDBClose");
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSWriteSpectraLayerTest, WhatIsMadeIsWrittenAndFound) {
    const Schema schema = schemaOf(allMetadata(), {400, 450.5F}, {400, 450.5F});
    HostLayer* made = KSCreateSpectraLayer(schema.get());
    ASSERT_NE(made, nullptr);
    ASSERT_EQ(KSWriteSpectraLayer("made.ks", made, 3), 0);
    GDBClose(made->fp);
    HostFile* again = host().open("made.ks");
    HostLayer* found = KSReadSpectraLayer(again);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(GDBGetNumFields(found), 9);
    GDBClose(again);
}

}  // namespace
