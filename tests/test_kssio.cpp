// Field names of wavelengths, and schemas from a sensor and from a layer's field names.
#include <kslib.h>

#include <algorithm>
#include <clocale>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "datasets.hpp"
#include "fixture.hpp"
#include "locale.hpp"
#include "spectra.hpp"

using namespace kit;

namespace {

using Numbers = std::vector<int>;
using Wavelengths = std::vector<float>;

// ---- names of wavelengths ----

struct FieldNameTest : LibraryTest {
    static std::string measurement(float wavelength) { return asText(_WlenToMeasFldName(wavelength)); }
    static std::string quality(float wavelength) { return asText(_WlenToQualFldName(wavelength)); }
    static std::string asText(char* name) {
        const Text owner(name);
        return name == nullptr ? "(null)" : name;
    }
};

TEST_F(FieldNameTest, HasTheWavelengthInThousandths) {
    EXPECT_EQ(measurement(450.5F), "m450_500");
    EXPECT_EQ(quality(450.5F), "q450_500");
    EXPECT_EQ(measurement(2200.0F), "m2200_000");
    EXPECT_EQ(quality(2200.0F), "q2200_000");
    EXPECT_EQ(measurement(0.0F), "m0_000");
    EXPECT_EQ(quality(0.0F), "q0_000");
    EXPECT_EQ(measurement(-0.0F), "m0_000");
    EXPECT_EQ(measurement(0.001F), "m0_001");
    EXPECT_EQ(quality(2.0625F), "q2_062") << "the halfway case as printf rounds it";
    EXPECT_EQ(measurement(12345.25F), "m12345_250");
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(FieldNameTest, AFractionThatRoundsUpStaysInItsNanometre) {
    EXPECT_EQ(measurement(450.9996F), "m450_000");
    EXPECT_EQ(quality(450.9996F), "q450_000");
}

TEST_F(FieldNameTest, MayBeLongerThanAnyWavelengthMakesIt) {
    EXPECT_EQ(measurement(2147483520.0F), "m2147483520_000");
    EXPECT_EQ(quality(2147483520.0F), "q2147483520_000");
}

TEST_F(FieldNameTest, RefusesNegativeWavelengths) {
    EXPECT_EQ(measurement(-0.5F), "(null)");
    EXPECT_EQ(quality(-450.0F), "(null)");
    EXPECT_EQ(host().reports, (Reports{failure("%s: fWavelength (%f) < 0.0 .\n", "_WlenToMeasFldName ()", -0.5),
                                       failure("%s: fWavelength (%f) < 0.0 .\n", "_WlenToQualFldName ()", -450.0)}));
}

TEST_F(FieldNameTest, DoesNotDependOnTheLocale) {
    ASSERT_TRUE(useDecimalComma(KSLIB_TEST_LOCALES));
    const std::string names = measurement(450.5F) + " " + quality(0.125F);
    std::setlocale(LC_NUMERIC, "C");
    EXPECT_EQ(names, "m450_500 q0_125");
}

TEST_F(FieldNameTest, WithoutMemoryThereIsNone) {
    refuseAllocation(1);
    EXPECT_EQ(measurement(450.5F), "(null)");
    EXPECT_TRUE(allocationRefused());
    refuseAllocation(1);
    EXPECT_EQ(quality(450.5F), "(null)");
    EXPECT_TRUE(allocationRefused());
    EXPECT_EQ(host().reports, Reports{});
}

// ---- schemas from a sensor ----

/// Five bands at 400, 410, ..., 440.
struct KSSTSchemaFromProfileTest : LibraryTest {
    KSDataSet* dataSet = nullptr;
    Schema schema;

    void SetUp() override {
        LibraryTest::SetUp();
        dataSet = heapDataSet(5);
    }
    void TearDown() override {
        freeWhole(dataSet);
        LibraryTest::TearDown();
    }
    KSSensor* sensor() const { return &dataSet->Sensor; }
    KSSTSchema* make(const Numbers& bands, int full) {
        schema.reset(KSSTSchemaFromProfile(sensor(), bands.data(), static_cast<int>(bands.size()), full));
        return schema.get();
    }
};

TEST_F(KSSTSchemaFromProfileTest, AShortSchemaHasTargetAndQuantityAndMeasurements) {
    ASSERT_NE(make({1, 3, 4}, 0), nullptr);
    EXPECT_EQ(identifiers(schema->pMetaFlds, schema->nNumMetaFlds), (Numbers{KS_FLD_TARGET, KS_FLD_QUANTITY}));
    EXPECT_EQ(indexes(schema->pMetaFlds, schema->nNumMetaFlds), (Numbers{0, 1}));
    EXPECT_EQ(identifiers(schema->pMeasFld, schema->nNumMeasFlds), Numbers(3, KS_FLD_MEAS));
    EXPECT_EQ(wavelengths(schema->pMeasFld, schema->nNumMeasFlds), (Wavelengths{410, 430, 440}));
    EXPECT_EQ(indexes(schema->pMeasFld, schema->nNumMeasFlds), (Numbers{2, 3, 4}));
    EXPECT_EQ(qualityIndexes(schema->pMeasFld, schema->nNumMeasFlds), Numbers(3, -1));
    EXPECT_EQ(schema->nNumQualFlds, 0);
    EXPECT_EQ(host().callNames(), Names{});
}

TEST_F(KSSTSchemaFromProfileTest, AFullSchemaHasAllMetadataAndQualities) {
    ASSERT_NE(make({0, 2}, 1), nullptr);
    EXPECT_EQ(identifiers(schema->pMetaFlds, schema->nNumMetaFlds),
              (Numbers{KS_FLD_TARGET, KS_FLD_QUANTITY, KS_FLD_SOURCE_FILE, KS_FLD_ROI_FILE, KS_FLD_ROI}));
    EXPECT_EQ(indexes(schema->pMetaFlds, schema->nNumMetaFlds), (Numbers{0, 1, 2, 3, 4}));
    EXPECT_EQ(identifiers(schema->pMeasFld, schema->nNumMeasFlds), Numbers(2, KS_FLD_MEAS));
    EXPECT_EQ(wavelengths(schema->pMeasFld, schema->nNumMeasFlds), (Wavelengths{400, 420}));
    EXPECT_EQ(indexes(schema->pMeasFld, schema->nNumMeasFlds), (Numbers{5, 6}));
    EXPECT_EQ(qualityIndexes(schema->pMeasFld, schema->nNumMeasFlds), (Numbers{7, 8}));
    EXPECT_EQ(identifiers(schema->pQualFld, schema->nNumQualFlds), Numbers(2, KS_FLD_QUAL));
    EXPECT_EQ(wavelengths(schema->pQualFld, schema->nNumQualFlds), (Wavelengths{400, 420}));
    EXPECT_EQ(indexes(schema->pQualFld, schema->nNumQualFlds), (Numbers{7, 8}));
    EXPECT_EQ(host().callNames(), Names{});
}

TEST_F(KSSTSchemaFromProfileTest, MeasurementsComeInTheOrderOfTheSelection) {
    ASSERT_NE(make({4, 0, 4, 2}, 1), nullptr);
    EXPECT_EQ(wavelengths(schema->pMeasFld, schema->nNumMeasFlds), (Wavelengths{440, 400, 440, 420}));
    EXPECT_EQ(wavelengths(schema->pQualFld, schema->nNumQualFlds), (Wavelengths{440, 400, 440, 420}));
    EXPECT_EQ(qualityIndexes(schema->pMeasFld, schema->nNumMeasFlds), (Numbers{9, 10, 11, 12}));
}

TEST_F(KSSTSchemaFromProfileTest, WithoutASelectionThereAreOnlyMetadata) {
    for (const int full : {0, 1}) {
        schema.reset(KSSTSchemaFromProfile(sensor(), nullptr, 0, full));
        ASSERT_NE(schema, nullptr);
        EXPECT_EQ(schema->nNumMetaFlds, full == 0 ? 2 : 5);
        EXPECT_EQ(schema->nNumMeasFlds, 0);
        EXPECT_EQ(schema->nNumQualFlds, 0);
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSSTSchemaFromProfileTest, ChecksItsArgumentsInOrder) {
    EXPECT_EQ(KSSTSchemaFromProfile(nullptr, nullptr, 1, 0), nullptr);
    EXPECT_EQ(KSSTSchemaFromProfile(sensor(), nullptr, 1, 0), nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pSensor == NULL.\n", "KSSTSchemaFromProfile ()"),
                                       failure("%s: panSelBands == NULL.\n", "KSSTSchemaFromProfile ()")}));
}

void expectOneReportOf(const char* label) {
    ASSERT_EQ(host().reports.size(), 1U);
    EXPECT_FALSE(host().reports[0].debug);
    EXPECT_EQ(host().reports[0].code, 83);
    EXPECT_EQ(host().reports[0].severity, 0);
    EXPECT_EQ(host().reports[0].label, label);
}

TEST_F(KSSTSchemaFromProfileTest, ASensorWithoutResponsesIsRefusedBeforeTheSelectionIsLookedAt) {
    KSSensor bare{};
    bare.nNumBands = 5;
    EXPECT_EQ(KSSTSchemaFromProfile(&bare, nullptr, 1, 0), nullptr);
    expectOneReportOf("KSSTSchemaFromProfile ()");
    EXPECT_NE(host().reports[0].format, "%s: panSelBands == NULL.\n");
}

TEST_F(KSSTSchemaFromProfileTest, BandsThatTheSensorLacksAreRefused) {
    for (const int band : {-1, 5}) {
        host().forget();
        EXPECT_EQ(make({0, band}, 0), nullptr) << band;
        expectOneReportOf("KSSTSchemaFromProfile ()");
    }
}

TEST_F(KSSTSchemaFromProfileTest, ANegativeCountSelectsNothing) {
    const Numbers bands = {0};
    schema.reset(KSSTSchemaFromProfile(sensor(), bands.data(), -1, 1));
    EXPECT_TRUE(schema == nullptr || schema->nNumMeasFlds == 0);
}

TEST_F(KSSTSchemaFromProfileTest, ABandOfUnknownResponseIsRefusedByItsIndex) {
    sensor()->pBandResp[3].eRespType = KS_RT_UNKNOWN;
    for (const int full : {0, 1}) {
        host().forget();
        EXPECT_EQ(make({4, 3, 0}, full), nullptr);
        EXPECT_EQ(host().reports, (Reports{failure("%s: pSensor->pBandResp[%d].eRespType == KS_RT_UNKNOWN\n",
                                                   "KSSTSchemaFromProfile ()", 3)}));
    }
    host().forget();
    EXPECT_NE(make({4, 2}, 0), nullptr) << "bands that are not selected do not matter";
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSSTSchemaFromProfileTest, NamesWhatCouldNotBeAllocated) {
    const Reports promised = {
        failure("%s: pRetVal == NULL, error in HMalloc ().\n", "KSSTSchemaFromProfile ()"),
        failure("%s: pRetVal->pMetaFlds == NULL, error in HMalloc ().\n", "KSSTSchemaFromProfile ()"),
        failure("%s: pRetVal->pMeasFld == NULL, error in HMalloc ().\n", "KSSTSchemaFromProfile ()"),
        failure("%s: pRetVal->pQualFld == NULL, error in HMalloc ().\n", "KSSTSchemaFromProfile ()")};
    for (const int full : {0, 1}) {
        const int count = full == 0 ? 3 : 4;
        for (int n = 1; n <= count; ++n) {
            host().forget();
            refuseAllocation(n);
            EXPECT_EQ(make({0, 1}, full), nullptr);
            EXPECT_EQ(host().reports, (Reports{promised[static_cast<std::size_t>(n - 1)]})) << "allocation " << n;
        }
        host().forget();
        refuseAllocation(count + 1);
        EXPECT_NE(make({0, 1}, full), nullptr);
        EXPECT_FALSE(allocationRefused());
        EXPECT_EQ(host().reports, Reports{});
    }
}

// ---- one field of a layer ----

struct LayerTest : LibraryTest {
    FakeLayer* layer = nullptr;
    HostFile* fp = nullptr;

    FakeLayer* make(const Names& names) {
        if (fp == nullptr) fp = host().openMemoryFile();
        return layer = &host().addLayer(fp, "spectra", fieldsNamed(names));
    }
    void TearDown() override {
        if (fp != nullptr) GDBClose(fp);
        LibraryTest::TearDown();
    }
};

struct EvalSTFldHdrTest : LayerTest {
    /// What a field of one name is.
    KSSTFld fieldOf(const std::string& name) {
        make({"comment", name});
        KSSTFld field{-9, -9.0F, -9, -9};
        EXPECT_EQ(_EvalSTFldHdr(layer, 1, &field), 0) << name;
        EXPECT_EQ(field.nFldInd, 1) << name;
        return field;
    }
};

TEST_F(EvalSTFldHdrTest, KnowsMetadataByTheirExactNames) {
    const std::vector<std::pair<std::string, int>> kinds = {
        {"Target", KS_FLD_TARGET},     {"Quantity", KS_FLD_QUANTITY}, {"Source_File", KS_FLD_SOURCE_FILE},
        {"ROI_File", KS_FLD_ROI_FILE}, {"ROI", KS_FLD_ROI},           {"unknown", KS_FLD_UNKNOWN},
        {"target", KS_FLD_UNKNOWN},    {"TARGET", KS_FLD_UNKNOWN},    {"Target ", KS_FLD_UNKNOWN},
        {" ROI", KS_FLD_UNKNOWN},      {"ROI_Fil", KS_FLD_UNKNOWN},   {"Source File", KS_FLD_UNKNOWN}};
    for (const auto& [name, kind] : kinds) EXPECT_EQ(fieldOf(name).eFldID, kind) << name;
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(EvalSTFldHdrTest, ReadsWavelengthsFromNames) {
    const std::vector<std::pair<std::string, float>> numbers = {{"", 0.0F},
                                                                {"_", 0.0F},
                                                                {"450_", 450.0F},
                                                                {"450_5", 450.5F},
                                                                {"450_500", 450.5F},
                                                                {"450", 450.0F},
                                                                {"_25", 0.25F},
                                                                {"2200_000", 2200.0F},
                                                                {"0_000", 0.0F},
                                                                {"00450_50", 450.5F},
                                                                {"450_0005", 450.0005F},
                                                                {"0_0000001", 1e-7F},
                                                                {"123456789_5", 123456789.5F},
                                                                {"12345678901234_5", 12345678901234.5F}};
    for (const auto& [number, wavelength] : numbers) {
        const KSSTFld measurement = fieldOf("m" + number);
        EXPECT_EQ(measurement.eFldID, KS_FLD_MEAS) << number;
        EXPECT_EQ(measurement.fWlen, wavelength) << number;
        const KSSTFld quality = fieldOf("q" + number);
        EXPECT_EQ(quality.eFldID, KS_FLD_QUAL) << number;
        EXPECT_EQ(quality.fWlen, wavelength) << number;
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(EvalSTFldHdrTest, OtherNamesAreOfNoKind) {
    for (const char* name : {"m45a",  "M450",  "Q450",    "m450.5",  "m450_5_0", "m450__5", "m-450",  "m+450",
                             "m 450", "m450 ", "m450_5 ", "mm450",   "mq450",    "q450a",   "q450.5", "q_5_",
                             "n450",  "450",   "_450",    "m450_5a", "m1e3",     "m0x10",   "minf",   "mnan"}) {
        EXPECT_EQ(fieldOf(name).eFldID, KS_FLD_UNKNOWN) << name;
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(EvalSTFldHdrTest, NamesOfAnyLengthAreRead) {
    const KSSTFld wide = fieldOf("m450_" + std::string(5000, '0') + "1");
    EXPECT_EQ(wide.eFldID, KS_FLD_MEAS);
    EXPECT_EQ(wide.fWlen, 450.0F);
    EXPECT_EQ(fieldOf("q" + std::string(5000, '0') + "7").fWlen, 7.0F);
    EXPECT_EQ(fieldOf("m" + std::string(5000, '9') + "x").eFldID, KS_FLD_UNKNOWN);
}

TEST_F(EvalSTFldHdrTest, DoesNotDependOnTheLocale) {
    ASSERT_TRUE(useDecimalComma(KSLIB_TEST_LOCALES));
    const float wavelength = fieldOf("m450_500").fWlen;
    std::setlocale(LC_NUMERIC, "C");
    EXPECT_EQ(wavelength, 450.5F);
}

TEST_F(EvalSTFldHdrTest, ChecksInOrder) {
    KSSTFld field{};
    EXPECT_EQ(_EvalSTFldHdr(nullptr, -1, &field), 1);
    make({});
    EXPECT_EQ(_EvalSTFldHdr(layer, -1, &field), 1);
    EXPECT_EQ(_EvalSTFldHdr(layer, 0, &field), 1);
    make({"Target", ""});
    EXPECT_EQ(_EvalSTFldHdr(layer, 2, &field), 1);
    EXPECT_EQ(_EvalSTFldHdr(layer, 3, &field), 1);
    EXPECT_EQ(_EvalSTFldHdr(layer, 1, &field), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: hLayer == NULL.\n", "EvalSTFldHdr ()"),
                                       failure("%s: nFldInd < 0.\n", "EvalSTFldHdr ()"),
                                       failure("%s: GDBGetNumFields () returned 0.\n", "EvalSTFldHdr ()"),
                                       failure("%s: nFldInd > nNumFields.\n", "EvalSTFldHdr ()"),
                                       failure("%s: nFldInd > nNumFields.\n", "EvalSTFldHdr ()"),
                                       failure("%s: GDBGetFieldName () returned \"\".\n", "EvalSTFldHdr ()")}));
    EXPECT_EQ(_EvalSTFldHdr(layer, 0, &field), 0);
}

TEST_F(EvalSTFldHdrTest, ANameThatTheHostCannotGiveCountsAsEmpty) {
    make({"Target"});
    host().failCall("GDBGetFieldName");
    KSSTFld field{};
    EXPECT_EQ(_EvalSTFldHdr(layer, 0, &field), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: GDBGetFieldName () returned \"\".\n", "EvalSTFldHdr ()")}));
}

// ---- counting ----

struct CountFieldsTest : LayerTest {
    int meta = -9;
    int measurements = -9;
    int qualities = -9;
    int count() { return _CountFields(layer, &meta, &measurements, &qualities); }
};

TEST_F(CountFieldsTest, CountsByKind) {
    make({"Target", "m1", "comment", "q1", "ROI", "m2_5", "q2_5", "m3", "unknown", "M4"});
    ASSERT_EQ(count(), 0);
    EXPECT_EQ((Numbers{meta, measurements, qualities}), (Numbers{2, 3, 2}));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(CountFieldsTest, EveryMetadataFieldIsCounted) {
    make({"ROI", "ROI_File", "Source_File", "Quantity", "Target", "Target"});
    ASSERT_EQ(count(), 0);
    EXPECT_EQ((Numbers{meta, measurements, qualities}), (Numbers{6, 0, 0}));
}

TEST_F(CountFieldsTest, QualitiesNeedNotBeAskedFor) {
    make({"Target", "m1", "q1"});
    ASSERT_EQ(_CountFields(layer, &meta, &measurements, nullptr), 0);
    EXPECT_EQ((Numbers{meta, measurements}), (Numbers{1, 1}));
}

TEST_F(CountFieldsTest, ChecksInOrder) {
    EXPECT_EQ(_CountFields(nullptr, nullptr, nullptr, nullptr), 1);
    make({});
    EXPECT_EQ(_CountFields(layer, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(_CountFields(layer, &meta, nullptr, nullptr), 1);
    EXPECT_EQ(count(), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: hLayer == NULL.\n", "_CountFields ()"),
                                       failure("%s: pnNumMetaFields == NULL.\n", "_CountFields ()"),
                                       failure("%s: pnNumMeasFields == NULL.\n", "_CountFields ()"),
                                       failure("%s: nNumFields == 0.\n", "_CountFields ()")}));
}

TEST_F(CountFieldsTest, AFieldWithoutANameFails) {
    make({"Target", "", "m1"});
    EXPECT_EQ(count(), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: GDBGetFieldName () returned \"\".\n", "EvalSTFldHdr ()"),
                                       failure("%s: _EvalSTFldHdr () failed.\n", "_CountFields ()")}));
}

}  // namespace
