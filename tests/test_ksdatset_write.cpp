// Storing a data set's metadata in its file.
#include <kslib.h>

#include <clocale>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "datasets.hpp"
#include "fixture.hpp"
#include "locale.hpp"

using namespace kit;

namespace {

const std::string kAbsent = "(absent)";

struct KSWriteMetadataTest : LibraryTest {
    KSDataSet* dataSet = nullptr;

    FakeFile& file() const { return host().file("cube.img"); }
    int write() const { return KSWriteMetadata(dataSet); }
    std::string fileValue(const std::string& key) const { return file().get(kFileLevel, kWholeFile, key); }
    std::string channelValue(int channel, const std::string& key) const {
        return file().get(kChannelLevel, channel, key);
    }
    void expectRefused(const Report& report) const {
        host().forget();
        EXPECT_EQ(write(), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
        EXPECT_EQ(host().liveLists(), 0);
    }

    void SetUp() override {
        LibraryTest::SetUp();
        host().addFile("cube.img", 8, 6, {3, 3});
        dataSet = heapDataSet(2);
        dataSet->GDBFile = host().open("cube.img", true);
        dataSet->eOpenMode = KS_OPEN_READWRITE;
    }
    void TearDown() override {
        GDBClose(dataSet->GDBFile);
        freeWhole(dataSet);
        LibraryTest::TearDown();
    }
};

TEST_F(KSWriteMetadataTest, ChecksItsArgumentsInOrder) {
    KSDataSet closed{};
    EXPECT_EQ(KSWriteMetadata(nullptr), 1);
    EXPECT_EQ(KSWriteMetadata(&closed), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pDataSet == NULL\n", "KSWriteMetadata"),
                                       failure("%s: pDataSet->GDBFile == NULL\n", "KSWriteMetadata")}));
}

TEST_F(KSWriteMetadataTest, ReportsMissingBandReferences) {
    KSBandRef* references = dataSet->pBandRefs;
    dataSet->pBandRefs = nullptr;
    expectRefused(failure("%s: pDataSet->pBandRefs == NULL\n", "KSWriteMetadata"));
    dataSet->pBandRefs = references;
}

TEST_F(KSWriteMetadataTest, UnknownValuesLeaveWhatIsStored) {
    const std::vector<std::string> keys = {"SensorModelName",
                                           "SensorType",
                                           "NominalTime_Year",
                                           "NominalTime_Month",
                                           "NominalTime_Day",
                                           "NominalTime_Hour",
                                           "NominalTime_Minute",
                                           "NominalLocation_Latitude",
                                           "NominalLocation_Longitude",
                                           "NominalLocation_Height",
                                           "NominalHeading",
                                           "ForeAftTilt",
                                           "FieldOfView_Left",
                                           "FieldOfView_Right",
                                           "FieldOfView_Fore",
                                           "FieldOfView_Aft"};
    for (const std::string& key : keys) file().set(kFileLevel, kWholeFile, key, "stored");
    dataSet->Sensor.szModelName = heapText("never written");
    ASSERT_EQ(write(), 0);
    for (const std::string& key : keys) EXPECT_EQ(fileValue(key), "stored") << key;
    EXPECT_EQ(fileValue("NumberOfRadTrans"), "0");
}

TEST_F(KSWriteMetadataTest, UnknownValuesAddNothing) {
    ASSERT_EQ(write(), 0);
    EXPECT_EQ((file().lists[{kFileLevel, kWholeFile}]), (std::vector<std::string>{"NumberOfRadTrans=0"}));
}

TEST_F(KSWriteMetadataTest, WritesEveryFileLevelKeyInOrderAndFormat) {
    dataSet->Sensor.eType = KS_SENSOR_PUSHBROOM;
    dataSet->Mission = {2019, 7, 3, 0, 9, 5, -45.1234567, 170.5, 705.25F, -12.56F, 0.12349F};
    dataSet->Sensor.fFOVLeft = 10.04F;
    dataSet->Sensor.fFOVRight = 0.0F;
    dataSet->Sensor.fFOVFore = 12.5F;
    dataSet->Sensor.fFOVAft = 100.0F;
    ASSERT_EQ(write(), 0);
    const std::vector<std::pair<std::string, std::string>> expected = {{"SensorType", "pushbroom"},
                                                                       {"NominalTime_Year", "2019"},
                                                                       {"NominalTime_Month", "7"},
                                                                       {"NominalTime_Day", "3"},
                                                                       {"NominalTime_Hour", "0"},
                                                                       {"NominalTime_Minute", "9"},
                                                                       {"NominalLocation_Latitude", "-45.123457"},
                                                                       {"NominalLocation_Longitude", "170.500000"},
                                                                       {"NominalLocation_Height", "705.250"},
                                                                       {"NominalHeading", "-12.6"},
                                                                       {"ForeAftTilt", "0.123"},
                                                                       {"FieldOfView_Left", "10.0"},
                                                                       {"FieldOfView_Right", "0.0"},
                                                                       {"FieldOfView_Fore", "12.5"},
                                                                       {"NumberOfRadTrans", "0"},
                                                                       {"FieldOfView_Aft", "100.0"}};
    std::vector<std::string> entries;
    Names calls;
    for (const auto& [key, value] : expected) {
        entries.push_back(key + "=" + value);
        calls.push_back("DeleteAuxEntries(" + std::string(calls.empty() ? "null" : "list") + ", " + key + ", 0, 1)");
        calls.push_back("SetAuxEntry(" + std::string(calls.size() == 1 ? "null" : "list") + ", " + key + ", " + value +
                        ")");
    }
    EXPECT_EQ((file().lists[{kFileLevel, kWholeFile}]), entries);
    Names actual = host().callsOf({"DeleteAuxEntries", "SetAuxEntry"});
    ASSERT_GE(actual.size(), calls.size());
    actual.resize(calls.size());
    EXPECT_EQ(actual, calls);
}

TEST_F(KSWriteMetadataTest, KnowsThreeSensorTypes) {
    const std::vector<std::pair<int, std::string>> types = {
        {KS_SENSOR_WHISKBROOM, "whiskbroom"}, {KS_SENSOR_PUSHBROOM, "pushbroom"}, {KS_SENSOR_FRAME, "frame"}};
    for (const auto& [type, text] : types) {
        dataSet->Sensor.eType = type;
        ASSERT_EQ(write(), 0);
        EXPECT_EQ(fileValue("SensorType"), text);
    }
    for (const int type : {4, -1}) {
        file().lists.clear();
        dataSet->Sensor.eType = type;
        dataSet->Mission.nMonth = 13;
        expectRefused(failure("%s: Unrecognized pDataSet->Sensor.eType value\n", "KSWriteMetadata"));
        EXPECT_TRUE(file().lists.empty());
    }
}

TEST_F(KSWriteMetadataTest, DatesOutsideTheirRangesStopTheWriteInOrder) {
    const auto expectNothingStored = [this](const Report& report) {
        expectRefused(report);
        EXPECT_TRUE(file().lists.empty());
        EXPECT_EQ(host().callsOf({"GDBMetaDataIO"}), (Names{"GDBMetaDataIO(cube.img, 0, 1, -1, null)"}));
    };
    dataSet->Mission.nYear = 2147483647;
    dataSet->Mission.nMonth = 13;
    dataSet->Mission.nDay = 32;
    dataSet->Mission.nHour = 24;
    dataSet->Mission.nMinute = 60;
    expectNothingStored(failure("%s: pDataSet->Mission.nMonth value is not in [1,12]\n", "KSWriteMetadata"));
    dataSet->Mission.nMonth = 0;
    expectNothingStored(failure("%s: pDataSet->Mission.nMonth value is not in [1,12]\n", "KSWriteMetadata"));
    dataSet->Mission.nMonth = 12;
    expectNothingStored(failure("%s: pDataSet->Mission.nDay value is not in [1,31]\n", "KSWriteMetadata"));
    dataSet->Mission.nDay = 0;
    expectNothingStored(failure("%s: pDataSet->Mission.nDay value is not in [1,31]\n", "KSWriteMetadata"));
    dataSet->Mission.nDay = 31;
    expectNothingStored(failure("%s: pDataSet->Mission.nHour value is not in [0,23]\n", "KSWriteMetadata"));
    dataSet->Mission.nHour = 23;
    expectNothingStored(failure("%s: pDataSet->Mission.nMinute value is not in [0,59]\n", "KSWriteMetadata"));
    dataSet->Mission.nMinute = 59;
    EXPECT_EQ(write(), 0);
    EXPECT_EQ(fileValue("NominalTime_Year"), "2147483647");
    EXPECT_EQ(fileValue("NominalTime_Minute"), "59");
}

TEST_F(KSWriteMetadataTest, NegativeDatesAreSkipped) {
    dataSet->Mission.nYear = -2;
    dataSet->Mission.nMonth = -13;
    EXPECT_EQ(write(), 0);
    EXPECT_EQ(fileValue("NominalTime_Year"), kAbsent);
    EXPECT_EQ(fileValue("NominalTime_Month"), kAbsent);
}

TEST_F(KSWriteMetadataTest, PlacesOutsideTheirRangesAreSkippedSilently) {
    file().set(kFileLevel, kWholeFile, "NominalLocation_Latitude", "12.000000");
    dataSet->Mission.dLatitude = 90.0000001;
    dataSet->Mission.dLongitude = -180.5;
    dataSet->Mission.fHeight = -0.5F;
    dataSet->Mission.fHeading = 360.5F;
    dataSet->Mission.fForeAftTilt = -90.5F;
    dataSet->Sensor.fFOVFore = -0.5F;
    EXPECT_EQ(write(), 0);
    EXPECT_EQ(fileValue("NominalLocation_Latitude"), "12.000000");
    for (const char* key :
         {"NominalLocation_Longitude", "NominalLocation_Height", "NominalHeading", "ForeAftTilt", "FieldOfView_Fore"}) {
        EXPECT_EQ(fileValue(key), kAbsent) << key;
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSWriteMetadataTest, RangesIncludeTheirEnds) {
    for (const double sign : {1.0, -1.0}) {
        dataSet->Mission.dLatitude = sign * 90.0;
        dataSet->Mission.dLongitude = sign * 180.0;
        dataSet->Mission.fHeading = static_cast<float>(sign * 360.0);
        dataSet->Mission.fForeAftTilt = static_cast<float>(sign * 90.0);
        dataSet->Mission.fHeight = 0.0F;
        ASSERT_EQ(write(), 0);
        const std::string minus = sign < 0 ? "-" : "";
        EXPECT_EQ(fileValue("NominalLocation_Latitude"), minus + "90.000000");
        EXPECT_EQ(fileValue("NominalLocation_Longitude"), minus + "180.000000");
        EXPECT_EQ(fileValue("NominalHeading"), minus + "360.0");
        EXPECT_EQ(fileValue("ForeAftTilt"), minus + "90.000");
        EXPECT_EQ(fileValue("NominalLocation_Height"), "0.000");
    }
}

TEST_F(KSWriteMetadataTest, NotANumberIsSkipped) {
    dataSet->Mission.dLatitude = std::numeric_limits<double>::quiet_NaN();
    dataSet->Mission.fHeight = std::numeric_limits<float>::quiet_NaN();
    dataSet->Sensor.fFOVLeft = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(write(), 0);
    EXPECT_EQ(fileValue("NominalLocation_Latitude"), kAbsent);
    EXPECT_EQ(fileValue("NominalLocation_Height"), kAbsent);
    EXPECT_EQ(fileValue("FieldOfView_Left"), kAbsent);
}

TEST_F(KSWriteMetadataTest, NumbersDoNotDependOnTheLocale) {
    ASSERT_TRUE(kit::useDecimalComma(KSLIB_TEST_LOCALES));
    dataSet->Mission.dLatitude = 12.75;
    EXPECT_EQ(write(), 0);
    std::setlocale(LC_NUMERIC, "C");
    EXPECT_EQ(fileValue("NominalLocation_Latitude"), "12.750000");
    EXPECT_EQ(channelValue(1, "ResponseProfile_Centre"), "400.000");
}

TEST_F(KSWriteMetadataTest, OtherKeysStay) {
    file().set(kFileLevel, kWholeFile, "Owner", "a=b=c");
    file().set(kChannelLevel, 1, "Note", "kept");
    file().set(kChannelLevel, 1, "Quality", "mask");
    ASSERT_EQ(write(), 0);
    EXPECT_EQ(fileValue("Owner"), "a=b=c");
    EXPECT_EQ(channelValue(1, "Note"), "kept");
    EXPECT_EQ(channelValue(1, "Quality"), "mask") << "qualities are never written";
}

TEST_F(KSWriteMetadataTest, WritesTheLevelsInOrder) {
    ASSERT_EQ(write(), 0);
    EXPECT_EQ(host().callsOf({"GDBMetaDataIO"}),
              (Names{"GDBMetaDataIO(cube.img, 0, 1, -1, null)", "GDBMetaDataIO(cube.img, 1, 1, -1, list)",
                     "GDBMetaDataIO(cube.img, 0, 2, 1, null)", "GDBMetaDataIO(cube.img, 1, 2, 1, list)",
                     "GDBMetaDataIO(cube.img, 0, 2, 2, null)", "GDBMetaDataIO(cube.img, 1, 2, 2, list)"}));
}

TEST_F(KSWriteMetadataTest, BandsGoToTheirChannels) {
    dataSet->pBandRefs[0].nChan = 2;
    dataSet->pBandRefs[1].nChan = 1;
    ASSERT_EQ(write(), 0);
    EXPECT_EQ(channelValue(2, "ResponseProfile_Centre"), "400.000");
    EXPECT_EQ(channelValue(1, "ResponseProfile_Centre"), "410.000");
}

TEST_F(KSWriteMetadataTest, OnlyPositiveIDsAreWritten) {
    file().set(kChannelLevel, 2, "ID", "9");
    dataSet->pBandRefs[0].nID = 1;
    dataSet->pBandRefs[1].nID = 0;
    ASSERT_EQ(write(), 0);
    EXPECT_EQ(channelValue(1, "ID"), "1");
    EXPECT_EQ(channelValue(2, "ID"), "9");
}

TEST_F(KSWriteMetadataTest, WritesThreeResponsesWithThreeDecimals) {
    const std::vector<std::pair<int, std::string>> types = {
        {KS_RT_GAUSSIAN, "gaussian"}, {KS_RT_TRIANGULAR, "triangular"}, {KS_RT_BOX, "box"}};
    dataSet->Sensor.pBandResp[0].fCentre = 1234.56789F;
    dataSet->Sensor.pBandResp[0].fFWHM = 0.0625F;
    for (const auto& [type, text] : types) {
        dataSet->Sensor.pBandResp[0].eRespType = type;
        ASSERT_EQ(write(), 0);
        EXPECT_EQ(channelValue(1, "ResponseProfile_Type"), text);
        EXPECT_EQ(channelValue(1, "ResponseProfile_Centre"), "1234.568");
        EXPECT_EQ(channelValue(1, "ResponseProfile_FWHM"), "0.062");
    }
}

TEST_F(KSWriteMetadataTest, AnUnknownResponseDeletesTheTypeAndKeepsTheRest) {
    file().set(kChannelLevel, 2, "ResponseProfile_Type", "box");
    file().set(kChannelLevel, 2, "ResponseProfile_Centre", "777.000");
    dataSet->Sensor.pBandResp[1].eRespType = KS_RT_UNKNOWN;
    ASSERT_EQ(write(), 0);
    EXPECT_EQ(channelValue(2, "ResponseProfile_Type"), kAbsent);
    EXPECT_EQ(channelValue(2, "ResponseProfile_Centre"), "777.000");
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSWriteMetadataTest, WithoutResponsesAllAreUnknown) {
    KSBandResp* responses = dataSet->Sensor.pBandResp;
    dataSet->Sensor.pBandResp = nullptr;
    EXPECT_EQ(write(), 0);
    dataSet->Sensor.pBandResp = responses;
    EXPECT_EQ(channelValue(1, "ResponseProfile_Type"), kAbsent);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSWriteMetadataTest, OtherResponsesAreRefusedAfterTheFileLevelWasStored) {
    for (const int type : std::vector<int>{KS_RT_TRAPEZOIDAL, KS_RT_CUSTOM, 6, -1}) {
        file().lists.clear();
        dataSet->Sensor.pBandResp[1].eRespType = type;
        expectRefused(
            failure("%s: pDataSet->Sensor.pBandResp[%d].eRespType value is not supported", "KSWriteMetadata", 1));
        EXPECT_EQ(fileValue("NumberOfRadTrans"), "0");
        EXPECT_EQ(channelValue(1, "ResponseProfile_Type"), "gaussian");
        EXPECT_EQ((file().lists.count({kChannelLevel, 2})), 0U);
    }
    dataSet->Sensor.pBandResp[1].eRespType = KS_RT_BOX;
}

TEST_F(KSWriteMetadataTest, WritesTransformsNumberedFromOne) {
    appendTransform(*dataSet, heapTransform(KS_RQ_APPRAD, {0.0123456789F, 2.0F}, {-1.0F, 0.5F}));
    appendTransform(*dataSet, heapTransform(KS_RQ_REFL, {1.0F, 1e7F}, {0.0F, 0.0F}));
    ASSERT_EQ(write(), 0);
    EXPECT_EQ(fileValue("NumberOfRadTrans"), "2");
    EXPECT_EQ(channelValue(1, "RadiometricTrans_Quantity_1"), "apprad");
    EXPECT_EQ(channelValue(1, "RadiometricTrans_Gain_1"), "0.012346");
    EXPECT_EQ(channelValue(1, "RadiometricTrans_Offset_1"), "-1.000000");
    EXPECT_EQ(channelValue(2, "RadiometricTrans_Gain_1"), "2.000000");
    EXPECT_EQ(channelValue(2, "RadiometricTrans_Offset_1"), "0.500000");
    EXPECT_EQ(channelValue(2, "RadiometricTrans_Quantity_2"), "refl");
    EXPECT_EQ(channelValue(2, "RadiometricTrans_Gain_2"), "10000000.000000");
}

TEST_F(KSWriteMetadataTest, EntriesOfFormerTransformsStay) {
    file().set(kChannelLevel, 1, "RadiometricTrans_Gain_2", "5.000000");
    appendTransform(*dataSet, heapTransform(KS_RQ_REFL, {1.0F, 1.0F}, {0.0F, 0.0F}));
    ASSERT_EQ(write(), 0);
    EXPECT_EQ(channelValue(1, "RadiometricTrans_Gain_2"), "5.000000");
}

TEST_F(KSWriteMetadataTest, WritesTheSixQuantitiesAndNoOther) {
    appendTransform(*dataSet, heapTransform(0, {1.0F, 1.0F}, {0.0F, 0.0F}));
    appendTransform(*dataSet, heapTransform(0, {1.0F, 1.0F}, {0.0F, 0.0F}));
    const std::vector<std::pair<int, std::string>> texts = {
        {KS_RQ_UNCAL, "uncal"}, {KS_RQ_ADJ_NO_UNITS, "adj_no_units"}, {KS_RQ_APPRAD, "apprad"},
        {KS_RQ_SCRAD, "scrad"}, {KS_RQ_SCIRRAD, "scirrad"},           {KS_RQ_REFL, "refl"}};
    for (const auto& [quantity, text] : texts) {
        for (int k = 0; k < 2; ++k) dataSet->papRadTransSeq[k]->eRadQuant = quantity;
        ASSERT_EQ(write(), 0);
        EXPECT_EQ(channelValue(2, "RadiometricTrans_Quantity_2"), text);
    }
    for (const int quantity : {0, 7, -1}) {
        dataSet->papRadTransSeq[1]->eRadQuant = quantity;
        expectRefused(
            failure("%s: pDataSet->papRadTransSeq[%d]->eRadQuant value is not recognized\n", "KSWriteMetadata", 1));
    }
}

TEST_F(KSWriteMetadataTest, WhatWasWrittenIsReadBack) {
    dataSet->Sensor.eType = KS_SENSOR_FRAME;
    dataSet->Mission = {2019, 7, 3, 4, 9, 5, -45.125, 170.5, 705.25F, -12.5F, 0.125F};
    dataSet->Sensor.fFOVLeft = 10.5F;
    dataSet->pBandRefs[0].nID = 3;
    dataSet->pBandRefs[1].nID = 4;
    appendTransform(*dataSet, heapTransform(KS_RQ_APPRAD, {0.5F, 2.0F}, {-1.0F, 0.5F}));
    ASSERT_EQ(write(), 0);

    KSDataSet* read = KSOpen("cube.img", "r");
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->Sensor.eType, KS_SENSOR_FRAME);
    EXPECT_EQ(read->Mission.nYear, 2019);
    EXPECT_EQ(read->Mission.nMissionSpare, -1) << "has no key";
    EXPECT_EQ(read->Mission.dLatitude, -45.125);
    EXPECT_EQ(read->Mission.fHeading, -12.5F);
    EXPECT_EQ(read->Sensor.fFOVLeft, 10.5F);
    EXPECT_EQ(read->Sensor.fFOVAft, -1.0F);
    EXPECT_EQ(read->pBandRefs[1].nID, 4);
    EXPECT_EQ(read->Sensor.pBandResp[1].fCentre, 410.0F);
    ASSERT_EQ(read->nNumRadTrans, 1);
    EXPECT_EQ(read->papRadTransSeq[0]->pafGains[1], 2.0F);
    EXPECT_EQ(read->papRadTransSeq[0]->pafOffsets[0], -1.0F);
    EXPECT_EQ(KSClose(read), 0);
}

TEST_F(KSWriteMetadataTest, WithoutBandsOnlyTheFileLevelIsWritten) {
    dataSet->Sensor.nNumBands = 0;
    EXPECT_EQ(write(), 0);
    EXPECT_EQ(host().count("GDBMetaDataIO"), 2);
    EXPECT_EQ(fileValue("NumberOfRadTrans"), "0");
}

}  // namespace
