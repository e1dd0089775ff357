// Opening data sets and decoding their metadata.
#include <kslib.h>

#include <clocale>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "datasets.hpp"
#include "fixture.hpp"
#include "locale.hpp"

using namespace kit;

namespace {

/// An image of 8 x 6 pixels and three channels, and the data set that a test opens on it.
struct OpenTest : LibraryTest {
    KSDataSet* dataSet = nullptr;

    FakeFile& file() const { return host().file("cube.img"); }
    void fileValue(const std::string& key, const std::string& value) const {
        file().set(kFileLevel, kWholeFile, key, value);
    }
    void channelValue(int channel, const std::string& key, const std::string& value) const {
        file().set(kChannelLevel, channel, key, value);
    }
    KSDataSet* open(const char* access = "r") { return dataSet = KSOpen("cube.img", access); }

    void SetUp() override {
        LibraryTest::SetUp();
        host().addFile("cube.img", 8, 6, {1, 3, 4});
    }
    void TearDown() override {
        if (dataSet != nullptr) {
            GDBClose(dataSet->GDBFile);
            freeWhole(dataSet);
        }
        LibraryTest::TearDown();
    }
};

using KSOpenTest = OpenTest;

TEST_F(KSOpenTest, AsksForTheFileBeforeOpeningIt) {
    ASSERT_NE(open(), nullptr);
    EXPECT_EQ(host().callsOf({"DKCheck", "ImageRegister", "GDBOpen", "GDBChanXSize", "GDBChanYSize", "GDBChanNum"}),
              (Names{"DKCheck(cube.img)", "ImageRegister()", "GDBOpen(cube.img, r)", "GDBChanXSize(cube.img)",
                     "GDBChanYSize(cube.img)", "GDBChanNum(cube.img)"}));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSOpenTest, FillsTheRecord) {
    std::string name = "cube.img";
    ASSERT_NE(dataSet = KSOpen(name.c_str(), "r"), nullptr);
    EXPECT_STREQ(dataSet->szFileName, "cube.img");
    EXPECT_NE(dataSet->szFileName, name.c_str());
    EXPECT_EQ(dataSet->eOpenMode, KS_OPEN_READ);
    EXPECT_EQ(fpValidate(dataSet->GDBFile), 1);
    EXPECT_EQ(dataSet->nXSize, 8);
    EXPECT_EQ(dataSet->nYSize, 6);
    EXPECT_EQ(dataSet->Sensor.nNumBands, 3);
}

TEST_F(KSOpenTest, OpensForWriting) {
    ASSERT_NE(open("r+"), nullptr);
    EXPECT_EQ(dataSet->eOpenMode, KS_OPEN_READWRITE);
    EXPECT_EQ(host().argumentsOf("GDBOpen"), "cube.img, r+");
}

TEST_F(KSOpenTest, ChecksItsArgumentsInOrder) {
    EXPECT_EQ(KSOpen(nullptr, nullptr), nullptr);
    EXPECT_EQ(KSOpen("cube.img", nullptr), nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: szFileName == NULL.\n", "KSOpen()"),
                                       failure("%s: szAccess == NULL.\n", "KSOpen()")}));
    EXPECT_EQ(host().callNames(), (Names{"IMPError", "IMPError"}));
}

TEST_F(KSOpenTest, RefusesOtherAccessTexts) {
    for (const char* access : {"w", "", "unknown", "R", "r ", "rw", "read"}) {
        host().forget();
        EXPECT_EQ(KSOpen("nosuch.img", access), nullptr) << access;
        EXPECT_EQ(host().reports, (Reports{failure("%s: Invalid OpenMode value.\n", "KSOpen()")})) << access;
        EXPECT_EQ(host().callNames(), (Names{"IMPError"})) << access;
    }
}

TEST_F(KSOpenTest, AMissingFileIsNamedAndNotOpened) {
    EXPECT_EQ(KSOpen("nosuch.img", "r"), nullptr);
    EXPECT_EQ(host().reports, (Reports{missingFile("%s: FILE: %s\n", "KSOpen()", "nosuch.img")}));
    EXPECT_EQ(host().callNames(), (Names{"DKCheck", "IMPError"}));
}

TEST_F(KSOpenTest, AFailedHostOpenIsReported) {
    host().failCall("GDBOpen");
    EXPECT_EQ(KSOpen("cube.img", "r"), nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pDataSet->GDBFile == NULL, GDBOpen() failed.\n", "KSOpen()")}));
}

TEST_F(KSOpenTest, AFailedRecordIsReportedBeforeTheHostOpens) {
    refuseAllocation(1);
    EXPECT_EQ(KSOpen("cube.img", "r"), nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pDataSet == NULL, HCalloc() failed.\n", "KSOpen()")}));
    EXPECT_EQ(host().callNames(), (Names{"DKCheck", "IMPError"}));
}

/// What a failed KSOpen leaves open is the test's to close.
void closeWhatStaysOpen() {
    EXPECT_EQ(host().liveHandles(), 1) << "a file that was opened stays open";
    EXPECT_EQ(host().count("GDBClose"), 0);
    HostFile* fp = host().onlyHandle();
    ASSERT_NE(fp, nullptr);
    GDBClose(fp);
}

TEST_F(KSOpenTest, AFailedFileNameLeavesTheFileOpen) {
    refuseAllocation(2);
    EXPECT_EQ(KSOpen("cube.img", "r"), nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pDataSet->szFileName == NULL, HMalloc() failed.\n", "KSOpen()")}));
    closeWhatStaysOpen();
}

TEST_F(KSOpenTest, FailedDecodingLeavesTheFileOpenAndIsReportedTwice) {
    channelValue(2, "ResponseProfile_Type", "square");
    EXPECT_EQ(KSOpen("cube.img", "r"), nullptr);
    EXPECT_EQ(
        host().reports,
        (Reports{badMetadata(
                     "%s ResponseProfile_Type for band %d is %s, not one of \"gaussian,\" \"triangular,\" or \"box.\"",
                     "KSReadMetadata()", 1, "square"),
                 failure("%s: KSReadMetadata (pDataSet) failed.\n", "KSOpen()")}));
    closeWhatStaysOpen();
}

TEST_F(KSOpenTest, EveryRefusedAllocationEndsInAReportAndNull) {
    fileValue("NumberOfRadTrans", "2");
    for (int n = 1;; ++n) {
        host().forget();
        refuseAllocation(n);
        dataSet = KSOpen("cube.img", "r");
        if (dataSet != nullptr) break;
        EXPECT_TRUE(allocationRefused());
        EXPECT_FALSE(host().reports.empty());
        EXPECT_EQ(host().reports.back().label, "KSOpen()");
        while (HostFile* fp = host().onlyHandle()) GDBClose(fp);
        ASSERT_LT(n, 100);
    }
    EXPECT_FALSE(allocationRefused());
    EXPECT_EQ(dataSet->nNumRadTrans, 2);
    EXPECT_EQ(host().reports, Reports{});
}

/// A record around an open file, as KSOpen hands it to the decoder, without its allocations and calls.
struct KSReadMetadataTest : OpenTest {
    KSDataSet record{};

    int read() { return KSReadMetadata(&record); }
    void SetUp() override {
        OpenTest::SetUp();
        record.GDBFile = host().open("cube.img");
        // What was in the record before must not show through.
        record.Sensor.eType = 99;
        record.nNumRadTrans = 7;
        record.nNumAuxFiles = 7;
        record.VQubeInfo.nCodeVectors = 77;
        record.Sensor.nNumBands = 9;
    }
    void release() {
        const auto bands = static_cast<std::size_t>(record.Sensor.nNumBands);
        while (record.nNumRadTrans > 0) KSDelRadTrans(&record);
        std::free(record.pBandRefs);
        std::free(record.Sensor.szModelName);
        std::free(record.Sensor.peBandQual);
        for (std::size_t b = 0; record.Sensor.pBandResp != nullptr && b < bands; ++b) {
            EXPECT_EQ(record.Sensor.pBandResp[b].pafSamples, nullptr);
        }
        std::free(record.Sensor.pBandResp);
        VQubeCleanUp(&record.VQubeInfo);
        GDBClose(record.GDBFile);
        record = KSDataSet{};
    }
    void TearDown() override {
        release();
        OpenTest::TearDown();
    }
};

TEST_F(KSReadMetadataTest, ChecksItsArgumentsInOrder) {
    KSDataSet closed{};
    EXPECT_EQ(KSReadMetadata(nullptr), 1);
    EXPECT_EQ(KSReadMetadata(&closed), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pDataSet == NULL\n", "KSReadMetadata()"),
                                       failure("%s: pDataSet->GDBFile == NULL\n", "KSReadMetadata()")}));
    ASSERT_EQ(read(), 0);
}

TEST_F(KSReadMetadataTest, UnknownValuesAreTheirSentinels) {
    ASSERT_EQ(read(), 0);
    const KSSensor& sensor = record.Sensor;
    EXPECT_EQ(sensor.szModelName, nullptr);
    EXPECT_EQ(sensor.eType, KS_SENSOR_UNKNOWN);
    EXPECT_EQ((std::vector<float>{sensor.fFOVLeft, sensor.fFOVRight, sensor.fFOVFore, sensor.fFOVAft}),
              (std::vector<float>{-1.0F, -1.0F, -1.0F, -1.0F}));
    const KSMission& m = record.Mission;
    EXPECT_EQ((std::vector<int>{m.nYear, m.nMonth, m.nDay, m.nHour, m.nMinute, m.nMissionSpare}),
              (std::vector<int>{-1, -1, -1, -1, -1, -1}));
    EXPECT_EQ(m.dLatitude, 1000.0);
    EXPECT_EQ(m.dLongitude, 1000.0);
    EXPECT_EQ(m.fHeight, -10000.0F);
    EXPECT_EQ(m.fHeading, 1000.0F);
    EXPECT_EQ(m.fForeAftTilt, 1000.0F);
    EXPECT_EQ(record.nNumRadTrans, 0);
    EXPECT_EQ(record.nNumAuxFiles, 0);
    EXPECT_EQ(record.paAuxFiles, nullptr);
    EXPECT_EQ(record.VQubeInfo.nCodeVectors, 0);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSReadMetadataTest, ReadsTheFileLevelKeysInOrder) {
    fileValue("Other", "1");
    ASSERT_EQ(read(), 0);
    Names expected;
    for (const char* key :
         {"SensorModelName", "SensorType", "NominalTime_Year", "NominalTime_Month", "NominalTime_Day",
          "NominalTime_Hour", "NominalTime_Minute", "NominalLocation_Latitude", "NominalLocation_Longitude",
          "NominalLocation_Height", "NominalHeading", "ForeAftTilt", "FieldOfView_Left", "FieldOfView_Right",
          "FieldOfView_Fore", "FieldOfView_Aft", "NumberOfRadTrans"}) {
        expected.push_back(std::string("FetchAuxEntry(list, ") + key + ")");
    }
    Names actual = host().callsOf({"FetchAuxEntry"});
    ASSERT_GE(actual.size(), expected.size());
    actual.resize(expected.size());
    EXPECT_EQ(actual, expected);
    EXPECT_EQ(host().callsOf({"GDBMetaDataIO"}).front(), "GDBMetaDataIO(cube.img, 0, 1, -1, null)");
}

TEST_F(KSReadMetadataTest, DecodesTheFileLevel) {
    fileValue("SensorModelName", "Imager 7");
    fileValue("NominalTime_Year", "2019");
    fileValue("NominalTime_Month", "13");
    fileValue("NominalTime_Day", "31");
    fileValue("NominalTime_Hour", "23");
    fileValue("NominalTime_Minute", "59");
    fileValue("NominalLocation_Latitude", "-45.123456");
    fileValue("NominalLocation_Longitude", "170.5");
    fileValue("NominalLocation_Height", "705.25");
    fileValue("NominalHeading", "-12.5");
    fileValue("ForeAftTilt", "0.125");
    fileValue("FieldOfView_Left", "10.5");
    fileValue("FieldOfView_Right", "11.5");
    fileValue("FieldOfView_Fore", "12.5");
    fileValue("FieldOfView_Aft", "13.5");
    ASSERT_EQ(read(), 0);
    EXPECT_STREQ(record.Sensor.szModelName, "Imager 7");
    const KSMission& m = record.Mission;
    EXPECT_EQ((std::vector<int>{m.nYear, m.nMonth, m.nDay, m.nHour, m.nMinute}),
              (std::vector<int>{2019, 13, 31, 23, 59}));
    EXPECT_EQ(m.dLatitude, -45.123456);
    EXPECT_EQ(m.dLongitude, 170.5);
    EXPECT_EQ(m.fHeight, 705.25F);
    EXPECT_EQ(m.fHeading, -12.5F);
    EXPECT_EQ(m.fForeAftTilt, 0.125F);
    const KSSensor& sensor = record.Sensor;
    EXPECT_EQ((std::vector<float>{sensor.fFOVLeft, sensor.fFOVRight, sensor.fFOVFore, sensor.fFOVAft}),
              (std::vector<float>{10.5F, 11.5F, 12.5F, 13.5F}));
}

TEST_F(KSReadMetadataTest, SensorTypesMatchExactly) {
    const std::vector<std::pair<const char*, int>> texts = {
        {"whiskbroom", KS_SENSOR_WHISKBROOM}, {"pushbroom", KS_SENSOR_PUSHBROOM}, {"frame", KS_SENSOR_FRAME},
        {"Pushbroom", KS_SENSOR_UNKNOWN},     {"push broom", KS_SENSOR_UNKNOWN},  {"", KS_SENSOR_UNKNOWN}};
    for (const auto& [text, type] : texts) {
        release();
        record.GDBFile = host().open("cube.img");
        fileValue("SensorType", text);
        ASSERT_EQ(read(), 0);
        EXPECT_EQ(record.Sensor.eType, type) << text;
    }
}

TEST_F(KSReadMetadataTest, KeysMatchExactly) {
    fileValue("nominaltime_year", "2001");
    fileValue("NominalTime_Year2", "2002");
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(record.Mission.nYear, -1);
}

TEST_F(KSReadMetadataTest, MalformedNumbersAreZeroAndTrailingTextIsIgnored) {
    fileValue("NominalTime_Year", "MMXIX");
    fileValue("NominalTime_Month", "7th");
    fileValue("NominalTime_Day", "");
    fileValue("NominalTime_Hour", "99999999999999");
    fileValue("NominalTime_Minute", "-99999999999999");
    fileValue("NominalLocation_Latitude", "north");
    fileValue("NominalLocation_Longitude", " 12.5 east");
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(record.Mission.nYear, 0);
    EXPECT_EQ(record.Mission.nMonth, 7);
    EXPECT_EQ(record.Mission.nDay, 0);
    EXPECT_EQ(record.Mission.nHour, 2147483647);
    EXPECT_EQ(record.Mission.nMinute, -2147483647 - 1);
    EXPECT_EQ(record.Mission.dLatitude, 0.0);
    EXPECT_EQ(record.Mission.dLongitude, 12.5);
}

TEST_F(KSReadMetadataTest, NumbersDoNotDependOnTheLocale) {
    ASSERT_TRUE(kit::useDecimalComma(KSLIB_TEST_LOCALES));
    fileValue("NominalLocation_Latitude", "12.75");
    EXPECT_EQ(read(), 0);
    std::setlocale(LC_NUMERIC, "C");
    EXPECT_EQ(record.Mission.dLatitude, 12.75);
}

TEST_F(KSReadMetadataTest, AFailedModelNameIsLeftNull) {
    fileValue("SensorModelName", "Imager 7");
    refuseAllocation(1);
    ASSERT_EQ(read(), 0);
    EXPECT_TRUE(allocationRefused());
    EXPECT_EQ(record.Sensor.szModelName, nullptr);
    EXPECT_EQ(record.Sensor.nNumBands, 3);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSReadMetadataTest, AFileWithoutChannelsHasNoBands) {
    file().channels.clear();
    fileValue("NumberOfRadTrans", "3");
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(record.Sensor.nNumBands, 0);
    EXPECT_EQ(record.pBandRefs, nullptr);
    EXPECT_EQ(record.Sensor.peBandQual, nullptr);
    EXPECT_EQ(record.Sensor.pBandResp, nullptr);
    EXPECT_EQ(record.nNumRadTrans, 0);
    EXPECT_EQ(host().count("VQubeGetInfo"), 0);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSReadMetadataTest, WithoutIDsEveryChannelIsABand) {
    ASSERT_EQ(read(), 0);
    ASSERT_EQ(record.Sensor.nNumBands, 3);
    const std::vector<int> types = {1, 3, 4};
    for (int b = 0; b < 3; ++b) {
        EXPECT_EQ(record.pBandRefs[b].nChan, b + 1);
        EXPECT_EQ(record.pBandRefs[b].nID, -1);
        EXPECT_EQ(record.pBandRefs[b].nChanType, types[static_cast<std::size_t>(b)]);
        EXPECT_EQ(record.pBandRefs[b].eStorage, KS_STORE_EXPLICIT);
        EXPECT_EQ(record.Sensor.peBandQual[b], KS_BQ_PLOT);
        EXPECT_EQ(record.Sensor.pBandResp[b].eRespType, KS_RT_UNKNOWN);
        EXPECT_EQ(record.Sensor.pBandResp[b].fCentre, -1.0F);
        EXPECT_EQ(record.Sensor.pBandResp[b].fFWHM, -1.0F);
        EXPECT_EQ(record.Sensor.pBandResp[b].nNumSamples, 0);
    }
}

TEST_F(KSReadMetadataTest, OnlyChannelsWithAnIDAreBandsWhenOneHasIt) {
    GDBClose(record.GDBFile);
    host().files().erase("cube.img");
    host().addFile("cube.img", 8, 6, {1, 1, 1, 1, 3, 1});
    record.GDBFile = host().open("cube.img");
    channelValue(5, "ID", "42");
    channelValue(2, "ID", "7");
    channelValue(5, "ResponseProfile_Centre", "500");
    ASSERT_EQ(read(), 0);
    ASSERT_EQ(record.Sensor.nNumBands, 2);
    EXPECT_EQ(record.pBandRefs[0].nChan, 2);
    EXPECT_EQ(record.pBandRefs[0].nID, 7);
    EXPECT_EQ(record.pBandRefs[1].nChan, 5);
    EXPECT_EQ(record.pBandRefs[1].nID, 42);
    EXPECT_EQ(record.pBandRefs[1].nChanType, 3);
    EXPECT_EQ(record.Sensor.pBandResp[1].fCentre, 500.0F);
}

TEST_F(KSReadMetadataTest, AMalformedIDStillMakesABand) {
    channelValue(3, "ID", "third");
    ASSERT_EQ(read(), 0);
    ASSERT_EQ(record.Sensor.nNumBands, 1);
    EXPECT_EQ(record.pBandRefs[0].nID, 0);
    EXPECT_EQ(record.pBandRefs[0].nChan, 3);
}

TEST_F(KSReadMetadataTest, DecodesQualities) {
    const std::vector<std::pair<const char*, int>> texts = {
        {"plot", KS_BQ_PLOT}, {"skip", KS_BQ_SKIP}, {"mask", KS_BQ_MASK},    {"bmask", KS_BQ_BMASK},
        {"bad", KS_BQ_PLOT},  {"Mask", KS_BQ_PLOT}, {"unknown", KS_BQ_PLOT}, {"", KS_BQ_PLOT}};
    for (const auto& [text, quality] : texts) {
        release();
        record.GDBFile = host().open("cube.img");
        channelValue(2, "Quality", text);
        ASSERT_EQ(read(), 0);
        EXPECT_EQ(record.Sensor.peBandQual[1], quality) << text;
        EXPECT_EQ(record.Sensor.peBandQual[0], KS_BQ_PLOT);
    }
}

TEST_F(KSReadMetadataTest, DecodesResponses) {
    const std::vector<std::string> texts = {"gaussian", "triangular", "box"};
    for (int b = 0; b < 3; ++b) {
        channelValue(b + 1, "ResponseProfile_Type", texts[static_cast<std::size_t>(b)]);
        channelValue(b + 1, "ResponseProfile_Centre", std::to_string(400 + b) + ".125");
        channelValue(b + 1, "ResponseProfile_FWHM", std::to_string(b) + ".5");
    }
    ASSERT_EQ(read(), 0);
    for (int b = 0; b < 3; ++b) {
        EXPECT_EQ(record.Sensor.pBandResp[b].eRespType, KS_RT_GAUSSIAN + b);
        EXPECT_EQ(record.Sensor.pBandResp[b].fCentre, 400.125F + static_cast<float>(b));
        EXPECT_EQ(record.Sensor.pBandResp[b].fFWHM, 0.5F + static_cast<float>(b));
    }
}

TEST_F(KSReadMetadataTest, RefusesOtherResponses) {
    for (const char* text : {"trapezoidal", "custom", "Gaussian", ""}) {
        release();
        host().forget();
        record.GDBFile = host().open("cube.img");
        channelValue(3, "ResponseProfile_Type", text);
        EXPECT_EQ(read(), 1);
        EXPECT_EQ(host().reports,
                  (Reports{badMetadata(
                      "%s ResponseProfile_Type for band %d is %s, not one of \"gaussian,\" \"triangular,\" or \"box.\"",
                      "KSReadMetadata()", 2, text)}));
        EXPECT_EQ(host().liveLists(), 0);
    }
}

// ---- transforms ----

TEST_F(KSReadMetadataTest, TransformsWithoutKeysAreTheIdentity) {
    fileValue("NumberOfRadTrans", "2");
    ASSERT_EQ(read(), 0);
    ASSERT_EQ(record.nNumRadTrans, 2);
    for (int k = 0; k < 2; ++k) {
        EXPECT_EQ(record.papRadTransSeq[k]->eRadQuant, KS_RQ_ADJ_NO_UNITS);
        for (int b = 0; b < 3; ++b) {
            EXPECT_EQ(record.papRadTransSeq[k]->pafGains[b], 1.0F);
            EXPECT_EQ(record.papRadTransSeq[k]->pafOffsets[b], 0.0F);
        }
    }
}

TEST_F(KSReadMetadataTest, DecodesTransformsByBandAndNumber) {
    fileValue("NumberOfRadTrans", "2");
    for (int channel = 1; channel <= 3; ++channel) {
        channelValue(channel, "RadiometricTrans_Quantity_1", "apprad");
        channelValue(channel, "RadiometricTrans_Gain_1", "0.0" + std::to_string(channel));
        channelValue(channel, "RadiometricTrans_Offset_1", std::to_string(-channel));
        channelValue(channel, "RadiometricTrans_Quantity_2", "refl");
        channelValue(channel, "RadiometricTrans_Gain_2", std::to_string(channel) + "e3");
    }
    ASSERT_EQ(read(), 0);
    ASSERT_EQ(record.nNumRadTrans, 2);
    EXPECT_EQ(record.papRadTransSeq[0]->eRadQuant, KS_RQ_APPRAD);
    EXPECT_EQ(record.papRadTransSeq[1]->eRadQuant, KS_RQ_REFL);
    const std::vector<float> gains = {0.01F, 0.02F, 0.03F};
    for (int b = 0; b < 3; ++b) {
        EXPECT_EQ(record.papRadTransSeq[0]->pafGains[b], gains[static_cast<std::size_t>(b)]);
        EXPECT_EQ(record.papRadTransSeq[0]->pafOffsets[b], static_cast<float>(-(b + 1)));
        EXPECT_EQ(record.papRadTransSeq[1]->pafGains[b], 1000.0F * static_cast<float>(b + 1));
        EXPECT_EQ(record.papRadTransSeq[1]->pafOffsets[b], 0.0F);
    }
}

TEST_F(KSReadMetadataTest, KnowsTheSixQuantities) {
    const std::vector<std::pair<const char*, int>> texts = {
        {"uncal", KS_RQ_UNCAL}, {"adj_no_units", KS_RQ_ADJ_NO_UNITS}, {"apprad", KS_RQ_APPRAD},
        {"scrad", KS_RQ_SCRAD}, {"scirrad", KS_RQ_SCIRRAD},           {"refl", KS_RQ_REFL}};
    fileValue("NumberOfRadTrans", "1");
    for (const auto& [text, quantity] : texts) {
        release();
        record.GDBFile = host().open("cube.img");
        for (int channel = 1; channel <= 3; ++channel) channelValue(channel, "RadiometricTrans_Quantity_1", text);
        ASSERT_EQ(read(), 0);
        EXPECT_EQ(record.papRadTransSeq[0]->eRadQuant, quantity) << text;
    }
}

TEST_F(KSReadMetadataTest, CountsOfTransformsBelowOneReadNone) {
    for (const char* count : {"0", "-2", "many"}) {
        release();
        record.GDBFile = host().open("cube.img");
        fileValue("NumberOfRadTrans", count);
        ASSERT_EQ(read(), 0);
        EXPECT_EQ(record.nNumRadTrans, 0) << count;
    }
}

// The transform that is being read when reading fails stays allocated.

TEST_F(KSReadMetadataTest, OneQuantityOnOneBandAndAnotherOnTheNextIsRefused) {
    fileValue("NumberOfRadTrans", "1");
    channelValue(1, "RadiometricTrans_Quantity_1", "refl");
    channelValue(2, "RadiometricTrans_Quantity_1", "apprad");
    EXPECT_EQ(read(), 1);
    EXPECT_EQ(
        host().reports,
        (Reports{badMetadata("%s RadiometricTrans_Quantity_%d inconsistent across bands\n", "KSReadMetadata()", 1)}));
    EXPECT_EQ(host().liveLists(), 0);
    EXPECT_EQ(record.nNumRadTrans, 0);
}

TEST_F(KSReadMetadataTest, AnAbsentQuantityIsInconsistentWithAnother) {
    fileValue("NumberOfRadTrans", "2");
    for (int channel = 1; channel <= 3; ++channel) channelValue(channel, "RadiometricTrans_Quantity_1", "refl");
    channelValue(3, "RadiometricTrans_Quantity_2", "refl");
    EXPECT_EQ(read(), 1);
    EXPECT_EQ(
        host().reports,
        (Reports{badMetadata("%s RadiometricTrans_Quantity_%d inconsistent across bands\n", "KSReadMetadata()", 2)}));
    EXPECT_EQ(record.nNumRadTrans, 1) << "the first transform had been appended";
}

TEST_F(KSReadMetadataTest, AnUnknownQuantityIsReportedWithItsChannel) {
    fileValue("NumberOfRadTrans", "1");
    channelValue(2, "ID", "1");
    channelValue(3, "ID", "2");
    channelValue(3, "RadiometricTrans_Quantity_1", "brightness");
    EXPECT_EQ(read(), 1);
    EXPECT_EQ(host().reports, (Reports{badMetadata("%s Bad value for RadiometricTrans_Quantity_%d for band %d: %s\n",
                                                   "KSReadMetadata()", 1, 3, "brightness")}));
    EXPECT_EQ(host().liveLists(), 0);
}

TEST_F(KSReadMetadataTest, TheWordUnknownIsNoQuantity) {
    fileValue("NumberOfRadTrans", "1");
    channelValue(1, "RadiometricTrans_Quantity_1", "unknown");
    EXPECT_EQ(read(), 1);
    EXPECT_EQ(host().reports, (Reports{badMetadata("%s Bad value for RadiometricTrans_Quantity_%d for band %d: %s\n",
                                                   "KSReadMetadata()", 1, 1, "unknown")}));
}

// ---- vector-quantized cubes ----

TEST_F(KSReadMetadataTest, BandsOfTheCubeAreStoredThere) {
    file().vq = FakeVQ{8, 6, {1, 3}, {2}, 256, 4, 0, 8, {}, {}};
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(record.VQubeInfo.nNumVQChans, 2);
    EXPECT_EQ(record.VQubeInfo.nCodeVectors, 256);
    EXPECT_EQ(record.pBandRefs[0].eStorage, KS_STORE_VQ);
    EXPECT_EQ(record.pBandRefs[1].eStorage, KS_STORE_EXPLICIT);
    EXPECT_EQ(record.pBandRefs[2].eStorage, KS_STORE_VQ);
}

TEST_F(KSReadMetadataTest, ACubeOfAnotherSizeIsRefusedWidthFirst) {
    file().vq = FakeVQ{9, 7, {1}, {}, 16, 4, 0, 4, {}, {}};
    EXPECT_EQ(read(), 1);
    release();
    file().vq = FakeVQ{8, 7, {1}, {}, 16, 4, 0, 4, {}, {}};
    record.GDBFile = host().open("cube.img");
    EXPECT_EQ(read(), 1);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: pDataSet->nXSize != pDataSet->VQubeInfo.nPixels\n", "KSReadMetadata()"),
                       failure("%s: pDataSet->nYSize != pDataSet->VQubeInfo.nLines\n", "KSReadMetadata()")}));
}

TEST_F(KSReadMetadataTest, ACubeWithoutCodeVectorsIsNone) {
    file().vq = FakeVQ{99, 99, {1, 2}, {}, 0, 4, 0, 4, {}, {}};
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(record.pBandRefs[0].eStorage, KS_STORE_EXPLICIT);
    EXPECT_EQ(record.pBandRefs[1].eStorage, KS_STORE_EXPLICIT);
}

// ---- memory ----

TEST_F(KSReadMetadataTest, NamesWhatCouldNotBeAllocated) {
    fileValue("NumberOfRadTrans", "2");
    const Report ownTransform = failure("%s KSCreateRadTrans() failed.", "KSReadMetadata()");
    const Report ownAppending = failure("%s KSAddRadTrans() failed.", "KSReadMetadata()");
    const Reports record1 = {debugOutput("%s: pRadTrans == NULL, HMalloc() failed\n", "KSCreateRadTrans()"),
                             ownTransform};
    const Reports gains = {debugOutput("%s: pRadTrans->pafGains == NULL, HMalloc() failed\n", "KSCreateRadTrans()"),
                           ownTransform};
    const Reports offsets = {debugOutput("%s: pRadTrans->pafOffsets == NULL, HMalloc() failed\n", "KSCreateRadTrans()"),
                             ownTransform};
    const Reports chain = {
        debugOutput("%s: pDataSet->papRadTransSeq == NULL, HMalloc or HRealloc failed\n", "KSAddRadTrans()"),
        ownAppending};
    const std::vector<Reports> promised = {
        {failure("%s failed to allocate memory for pDataSet->pBandRefs\n", "KSReadMetadata()")},
        {failure("   %s  pDataSet->Sensor.peBandQual == NULL, HMalloc() failed.\n", "KSReadMetadata()")},
        {failure("%s pDataSet->Sensor.pBandResp == NULL, HMalloc() failed.\n", "KSReadMetadata()")},
        record1,
        gains,
        offsets,
        chain,
        record1,
        gains,
        offsets,
        chain};
    for (std::size_t n = 0; n < promised.size(); ++n) {
        release();
        host().forget();
        record.GDBFile = host().open("cube.img");
        refuseAllocation(static_cast<int>(n) + 1);
        EXPECT_EQ(read(), 1);
        EXPECT_EQ(host().reports, promised[n]) << "allocation " << n + 1;
        EXPECT_EQ(host().liveLists(), 0);
    }
    release();
    record.GDBFile = host().open("cube.img");
    refuseAllocation(static_cast<int>(promised.size()) + 1);
    EXPECT_EQ(read(), 0);
    EXPECT_FALSE(allocationRefused());
}

}  // namespace
