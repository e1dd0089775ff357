// Creating the file of a data set.
#include <kslib.h>

#include <string>
#include <vector>

#include "datasets.hpp"
#include "fixture.hpp"

using namespace kit;

namespace {

struct KSCreateTest : LibraryTest {
    KSDataSet* dataSet = nullptr;

    void SetUp() override {
        LibraryTest::SetUp();
        dataSet = heapDataSet(3);
        dataSet->szFileName = heapText("new.img");
        dataSet->nXSize = 20;
        dataSet->nYSize = 10;
        for (int b = 0; b < 3; ++b) dataSet->pBandRefs[b].nChanType = 3;
    }
    void TearDown() override {
        if (dataSet != nullptr) {
            GDBClose(dataSet->GDBFile);
            freeWhole(dataSet);
        }
        LibraryTest::TearDown();
    }
    void useCube() const {
        dataSet->VQubeInfo.nNumVQChans = 3;
        dataSet->VQubeInfo.nCodeVectors = 256;
        dataSet->VQubeInfo.nDataType = 3;
        dataSet->VQubeInfo.nBitsPerIndex = 8;
        for (int b = 0; b < 3; ++b) dataSet->pBandRefs[b].eStorage = KS_STORE_VQ;
    }
    void expectRefused(const Report& report) const {
        EXPECT_EQ(KSCreate(dataSet), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
        EXPECT_EQ(host().count("IDBCreate"), 0);
        EXPECT_EQ(host().count("VQubeCreate"), 0);
        EXPECT_EQ(dataSet->eOpenMode, 0);
        host().forget();
    }
};

TEST_F(KSCreateTest, MakesAnImageWithAllChannelsOfTheFirstBandsType) {
    dataSet->pBandRefs[1].nChanType = 1;
    dataSet->pBandRefs[2].nChanType = 4;
    EXPECT_EQ(KSCreate(dataSet), 0);
    EXPECT_EQ(host().callsOf({"DKCheck", "IDBCreate"}),
              (Names{"DKCheck(new.img)", "IDBCreate(new.img, 20, 10, [0 0 3 0], PIXEL)"}));
    EXPECT_NE(dataSet->GDBFile, nullptr);
    EXPECT_EQ(dataSet->eOpenMode, KS_OPEN_READWRITE);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSCreateTest, CountsTypesOneTwoThreeAndAnyOther) {
    const std::vector<std::pair<int, std::string>> counts = {{1, "[3 0 0 0]"}, {2, "[0 3 0 0]"}, {3, "[0 0 3 0]"},
                                                             {4, "[0 0 0 3]"}, {0, "[0 0 0 3]"}, {17, "[0 0 0 3]"},
                                                             {-1, "[0 0 0 3]"}};
    for (const auto& [type, text] : counts) {
        host().forget();
        host().files().erase("new.img");
        dataSet->pBandRefs[0].nChanType = type;
        EXPECT_EQ(KSCreate(dataSet), 0);
        EXPECT_EQ(host().argumentsOf("IDBCreate"), "new.img, 20, 10, " + text + ", PIXEL");
        GDBClose(dataSet->GDBFile);
        dataSet->GDBFile = nullptr;
    }
}

TEST_F(KSCreateTest, ClosingStoresTheMetadata) {
    EXPECT_EQ(KSCreate(dataSet), 0);
    EXPECT_EQ(KSClose(dataSet), 0);
    dataSet = nullptr;
    EXPECT_EQ(host().file("new.img").get(kChannelLevel, 3, "ResponseProfile_Centre"), "420.000");
}

TEST_F(KSCreateTest, ReportsANullDataSet) {
    EXPECT_EQ(KSCreate(nullptr), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pDataSet == NULL.\n", "KSCreate")}));
}

TEST_F(KSCreateTest, AnExistingFileIsLeftAlone) {
    host().addFile("new.img", 1, 1, {1}).sample(1, 0, 0) = 9.0F;
    expectRefused(failure("%s: pDataSet->szFileName ('%s') already exists.\n", "KSCreate", "new.img"));
    EXPECT_EQ(host().file("new.img").sample(1, 0, 0), 9.0F);
}

// Everything is broken at first, and mended one thing after the other in the order in which it is tested.
TEST_F(KSCreateTest, ChecksTheRecordInOrder) {
    useCube();
    char* name = dataSet->szFileName;
    KSBandRef* references = dataSet->pBandRefs;
    KSBandResp* responses = dataSet->Sensor.pBandResp;
    host().addFile("new.img", 1, 1, {1});
    dataSet->szFileName = nullptr;
    dataSet->nXSize = 0;
    dataSet->nYSize = -4;
    dataSet->Sensor.nNumBands = 0;
    dataSet->pBandRefs = nullptr;
    dataSet->VQubeInfo.nCodeVectors = 0;
    dataSet->VQubeInfo.nBitsPerIndex = 17;

    expectRefused(failure("%s: pDataSet->szFileName == NULL or zero-length.\n", "KSCreate"));
    std::string empty;
    dataSet->szFileName = empty.data();
    expectRefused(failure("%s: pDataSet->szFileName == NULL or zero-length.\n", "KSCreate"));
    dataSet->szFileName = name;
    expectRefused(failure("%s: pDataSet->szFileName ('%s') already exists.\n", "KSCreate", "new.img"));
    host().files().clear();
    expectRefused(failure("%s: pDataSet->nXSize (= %d) not set.\n", "KSCreate", 0));
    dataSet->nXSize = 20;
    expectRefused(failure("%s: pDataSet->nYSize (= %d) not set.\n", "KSCreate", -4));
    dataSet->nYSize = 10;
    expectRefused(failure("%s: pDataSet->pDataSet->Sensor.nNumBands (=%d) not set.\n", "KSCreate", 0));
    dataSet->Sensor.nNumBands = 3;
    expectRefused(failure("%s: pDataSet->pBandRefs == NULL.\n", "KSCreate"));
    dataSet->pBandRefs = references;
    expectRefused(
        failure("%s: pDataSet->VQubeInfo.nCodeVectors (=%d)\nmust be in the range of 1 to 65535.\n", "KSCreate", 0));
    dataSet->VQubeInfo.nCodeVectors = 65536;
    expectRefused(failure("%s: pDataSet->VQubeInfo.nCodeVectors (=%d)\nmust be in the range of 1 to 65535.\n",
                          "KSCreate", 65536));
    dataSet->VQubeInfo.nCodeVectors = 65535;
    expectRefused(
        failure("%s: pDataSet->VQubeInfo.nBitsPerIndex (=%d)\nmust be in the range of 1 to 16.\n", "KSCreate", 17));
    dataSet->VQubeInfo.nBitsPerIndex = 0;
    expectRefused(
        failure("%s: pDataSet->VQubeInfo.nBitsPerIndex (=%d)\nmust be in the range of 1 to 16.\n", "KSCreate", 0));
    dataSet->VQubeInfo.nBitsPerIndex = 16;
    EXPECT_EQ(KSCreate(dataSet), 0);
    EXPECT_EQ(dataSet->Sensor.pBandResp, responses);
}

TEST_F(KSCreateTest, CubeLimitsOnlyMatterWithCubeChannels) {
    dataSet->VQubeInfo.nCodeVectors = 65536;
    dataSet->VQubeInfo.nBitsPerIndex = 99;
    EXPECT_EQ(KSCreate(dataSet), 0);
    EXPECT_EQ(host().count("IDBCreate"), 1);
}

TEST_F(KSCreateTest, MakesACubeAndKeepsTheFileAsItWas) {
    useCube();
    EXPECT_EQ(KSCreate(dataSet), 0);
    EXPECT_EQ(host().argumentsOf("VQubeCreate"), "new.img, 20, 10, 3, 256, 3");
    EXPECT_EQ(host().count("IDBCreate"), 0);
    EXPECT_EQ(dataSet->GDBFile, nullptr);
    EXPECT_EQ(dataSet->eOpenMode, KS_OPEN_READWRITE);
}

TEST_F(KSCreateTest, TheResultOfMakingACubeIsNotUsed) {
    useCube();
    host().failCall("VQubeCreate");
    EXPECT_EQ(KSCreate(dataSet), 0);
    EXPECT_EQ(dataSet->eOpenMode, KS_OPEN_READWRITE);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSCreateTest, WithOtherChannelsOrNoCubeBandsMakesAnImage) {
    useCube();
    dataSet->VQubeInfo.nNumNonVQChans = 1;
    EXPECT_EQ(KSCreate(dataSet), 0);
    EXPECT_EQ(host().count("IDBCreate"), 1);
    GDBClose(dataSet->GDBFile);

    host().files().clear();
    host().forget();
    dataSet->VQubeInfo.nNumNonVQChans = 0;
    for (int b = 0; b < 3; ++b) dataSet->pBandRefs[b].eStorage = KS_STORE_EXPLICIT;
    EXPECT_EQ(KSCreate(dataSet), 0);
    EXPECT_EQ(host().count("IDBCreate"), 1);
    GDBClose(dataSet->GDBFile);

    host().files().clear();
    host().forget();
    dataSet->pBandRefs[2].eStorage = KS_STORE_VQ;
    dataSet->VQubeInfo.nNumVQChans = 0;
    EXPECT_EQ(KSCreate(dataSet), 0);
    EXPECT_EQ(host().count("IDBCreate"), 1);
    EXPECT_EQ(host().count("VQubeCreate"), 0);
}

TEST_F(KSCreateTest, OneCubeBandIsEnoughForACube) {
    useCube();
    dataSet->pBandRefs[0].eStorage = KS_STORE_EXPLICIT;
    dataSet->pBandRefs[1].eStorage = KS_STORE_EXPLICIT;
    EXPECT_EQ(KSCreate(dataSet), 0);
    EXPECT_EQ(host().count("VQubeCreate"), 1);
}

TEST_F(KSCreateTest, AFailedHostCreateIsReported) {
    host().failCall("IDBCreate");
    EXPECT_EQ(KSCreate(dataSet), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: IDBCreate () failed.\n", "KSCreate")}));
    EXPECT_EQ(dataSet->GDBFile, nullptr);
}

}  // namespace
