// Refreshing, closing and freeing data sets, with what these leave behind on purpose.
#include <kslib.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "datasets.hpp"
#include "fixture.hpp"

using namespace kit;

namespace {

struct CloseTest : LibraryTest {
    FakeFile& file() const { return host().file("cube.img"); }
    void SetUp() override {
        LibraryTest::SetUp();
        host().addFile("cube.img", 8, 6, {3, 3});
        file().set(kFileLevel, kWholeFile, "SensorModelName", "Imager 7");
        file().set(kChannelLevel, 1, "ResponseProfile_Type", "gaussian");
        file().set(kChannelLevel, 1, "ResponseProfile_Centre", "500");
        file().set(kChannelLevel, 1, "ResponseProfile_FWHM", "10");
        file().set(kChannelLevel, 2, "ResponseProfile_Type", "box");
        file().set(kChannelLevel, 2, "ResponseProfile_Centre", "600");
        file().set(kChannelLevel, 2, "ResponseProfile_FWHM", "20");
    }
};

// ---- refreshing ----

using KSRefreshMetadataTest = CloseTest;

TEST_F(KSRefreshMetadataTest, ReadsWhatChangedInTheFile) {
    KSDataSet* dataSet = KSOpen("cube.img", "r");
    ASSERT_NE(dataSet, nullptr);
    file().set(kFileLevel, kWholeFile, "SensorModelName", "Imager 8");
    file().set(kChannelLevel, 2, "Quality", "mask");
    file().set(kChannelLevel, 2, "ID", "5");
    EXPECT_EQ(KSRefreshMetadata(dataSet), 0);
    EXPECT_STREQ(dataSet->Sensor.szModelName, "Imager 8");
    ASSERT_EQ(dataSet->Sensor.nNumBands, 1);
    EXPECT_EQ(dataSet->pBandRefs[0].nChan, 2);
    EXPECT_EQ(dataSet->Sensor.peBandQual[0], KS_BQ_MASK);
    EXPECT_EQ(host().count("GDBOpen"), 1);
    EXPECT_EQ(host().count("GDBClose"), 0);
    EXPECT_EQ(KSClose(dataSet), 0);
}

TEST_F(KSRefreshMetadataTest, LeavesTheOldTransformsAllocated) {
    file().set(kFileLevel, kWholeFile, "NumberOfRadTrans", "2");
    KSDataSet* dataSet = KSOpen("cube.img", "r");
    ASSERT_NE(dataSet, nullptr);
    Chain old(*dataSet);
    EXPECT_EQ(KSRefreshMetadata(dataSet), 0);
    ASSERT_EQ(dataSet->nNumRadTrans, 2);
    EXPECT_NE(dataSet->papRadTransSeq[0], old.transforms[0]);
    EXPECT_NE(dataSet->papRadTransSeq[1], old.transforms[1]);
    EXPECT_EQ(old.transforms[0]->pafGains[1], 1.0F) << "still readable";
    old.freeFirst(2);
    while (dataSet->nNumRadTrans > 0) KSDelRadTrans(dataSet);
    EXPECT_EQ(KSClose(dataSet), 0);
}

TEST_F(KSRefreshMetadataTest, ReadsTheCubeAgainWithoutCleaningUp) {
    file().vq = FakeVQ{8, 6, {1}, {2}, 16, 4, 0, 4, {}, {}};
    KSDataSet* dataSet = KSOpen("cube.img", "r");
    ASSERT_NE(dataSet, nullptr);
    KSVQubeInfo old = dataSet->VQubeInfo;
    EXPECT_EQ(KSRefreshMetadata(dataSet), 0);
    EXPECT_EQ(host().count("VQubeGetInfo"), 2);
    EXPECT_EQ(host().count("VQubeCleanUp"), 0);
    EXPECT_NE(dataSet->VQubeInfo.panVQChans, old.panVQChans);
    VQubeCleanUp(&old);
    EXPECT_EQ(KSClose(dataSet), 0);
}

TEST_F(KSRefreshMetadataTest, ReleasesAuxiliaryFilesAndCustomSamples) {
    host().addFile("aux.img", 1, 1, {1});
    KSDataSet* dataSet = KSOpen("cube.img", "r");
    ASSERT_NE(dataSet, nullptr);
    dataSet->Sensor.pBandResp[1].eRespType = KS_RT_CUSTOM;
    dataSet->Sensor.pBandResp[1].pafSamples = heapArray(std::vector<float>{1.0F, 2.0F});
    dataSet->nNumAuxFiles = 1;
    dataSet->paAuxFiles = heapArray(std::vector<KSAuxFile>{{heapText("a"), host().open("aux.img"), 3, heapText("b")}});
    EXPECT_EQ(KSRefreshMetadata(dataSet), 0);
    EXPECT_EQ(host().callsOf({"GDBClose"}), (Names{"GDBClose(aux.img)"}));
    EXPECT_EQ(dataSet->nNumAuxFiles, 0);
    EXPECT_EQ(dataSet->paAuxFiles, nullptr);
    EXPECT_EQ(KSClose(dataSet), 0);
}

TEST_F(KSRefreshMetadataTest, ReportsANullDataSet) {
    EXPECT_EQ(KSRefreshMetadata(nullptr), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pDataSet == NULL\n", "KSRefreshMetadata()")}));
}

TEST_F(KSRefreshMetadataTest, AFailedReadingIsReportedAndLeavesARecordFitForFreeing) {
    KSDataSet* dataSet = KSOpen("cube.img", "r");
    ASSERT_NE(dataSet, nullptr);
    HostFile* fp = dataSet->GDBFile;
    dataSet->GDBFile = nullptr;
    EXPECT_EQ(KSRefreshMetadata(dataSet), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pDataSet->GDBFile == NULL\n", "KSReadMetadata()"),
                                       failure("%s: KSReadMetadata() failed\n", "KSRefreshMetadata()")}));
    KSFree(dataSet);
    GDBClose(fp);
}

TEST_F(KSRefreshMetadataTest, ManyTimesInARow) {
    KSDataSet* dataSet = KSOpen("cube.img", "r");
    ASSERT_NE(dataSet, nullptr);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(KSRefreshMetadata(dataSet), 0);
    EXPECT_EQ(dataSet->Sensor.nNumBands, 2);
    EXPECT_EQ(KSClose(dataSet), 0);
}

// ---- closing ----

using KSCloseTest = CloseTest;

TEST_F(KSCloseTest, ReportsANullDataSet) {
    EXPECT_EQ(KSClose(nullptr), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s pDataSet == NULL", "KSClose ()")}));
}

TEST_F(KSCloseTest, OfAReadOnlyDataSetWritesNothing) {
    KSDataSet* dataSet = KSOpen("cube.img", "r");
    ASSERT_NE(dataSet, nullptr);
    const auto before = file().lists;
    host().forget();
    EXPECT_EQ(KSClose(dataSet), 0);
    EXPECT_EQ(host().callsOf({"GDBMetaDataIO", "SetAuxEntry", "DeleteAuxEntries"}), Names{});
    EXPECT_EQ(host().count("GDBClose"), 1);
    EXPECT_EQ(file().lists, before);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSCloseTest, WritesMetadataBeforeClosingTheFile) {
    KSDataSet* dataSet = KSOpen("cube.img", "r+");
    ASSERT_NE(dataSet, nullptr);
    dataSet->Mission.nYear = 2021;
    host().forget();
    EXPECT_EQ(KSClose(dataSet), 0);
    EXPECT_EQ(file().get(kFileLevel, kWholeFile, "NominalTime_Year"), "2021");
    const Names order = host().callsOf({"GDBMetaDataIO", "GDBClose", "VQubeCleanUp"});
    ASSERT_EQ(order.size(), 8U);
    EXPECT_EQ(order[6], "GDBClose(cube.img)");
    EXPECT_EQ(order[7], "VQubeCleanUp(pointer)");
}

TEST_F(KSCloseTest, KeepsTheRecordAndTheFileWhenMetadataCannotBeWritten) {
    KSDataSet* dataSet = KSOpen("cube.img", "r+");
    ASSERT_NE(dataSet, nullptr);
    dataSet->Mission.nMonth = 13;
    EXPECT_EQ(KSClose(dataSet), 1);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: pDataSet->Mission.nMonth value is not in [1,12]\n", "KSWriteMetadata"),
                       failure("%s Failed to update in-file metadata.", "KSClose ()")}));
    EXPECT_EQ(host().count("GDBClose"), 0);
    EXPECT_STREQ(dataSet->szFileName, "cube.img");
    dataSet->Mission.nMonth = 12;
    EXPECT_EQ(KSClose(dataSet), 0) << "and it can be tried again";
    EXPECT_EQ(file().get(kFileLevel, kWholeFile, "NominalTime_Month"), "12");
}

TEST_F(KSCloseTest, AcceptsARecordWithoutAFile) {
    EXPECT_EQ(KSClose(heapDataSet(2)), 0);
    EXPECT_EQ(host().count("GDBClose"), 0);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSCloseTest, OfAWritableRecordWithoutAFileReportsTheNullFile) {
    KSDataSet* dataSet = heapDataSet(2);
    dataSet->eOpenMode = KS_OPEN_READWRITE;
    EXPECT_EQ(KSClose(dataSet), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pDataSet->GDBFile == NULL\n", "KSWriteMetadata"),
                                       failure("%s Failed to update in-file metadata.", "KSClose ()")}));
    KSFree(dataSet);
}

// ---- freeing ----

using KSFreeTest = CloseTest;

TEST_F(KSFreeTest, AcceptsNull) {
    KSFree(nullptr);
    EXPECT_EQ(host().calls, std::vector<Call>{});
}

TEST_F(KSFreeTest, DoesNotCloseTheFile) {
    KSDataSet* dataSet = heapDataSet(1);
    HostFile* fp = dataSet->GDBFile = host().open("cube.img");
    KSFree(dataSet);
    EXPECT_EQ(host().callNames(), (Names{"VQubeCleanUp"}));
    EXPECT_EQ(fpValidate(fp), 1);
    GDBClose(fp);
}

TEST_F(KSFreeTest, AcceptsAnEmptyRecord) {
    KSFree(heapRecord<KSDataSet>());
    EXPECT_EQ(host().reports, Reports{});
}

// Of n transforms the last ceil(n / 2) go; the sanitizers see a double free below if more do, and a leak if fewer.
TEST_F(KSFreeTest, ReleasesTheLastHalfOfTheTransformsRoundedUp) {
    for (int count = 0; count <= 7; ++count) {
        KSDataSet* dataSet = heapDataSet(1);
        for (int k = 0; k < count; ++k)
            appendTransform(*dataSet, heapTransform(KS_RQ_REFL, {static_cast<float>(k)}, {0.0F}));
        Chain chain(*dataSet);
        KSFree(dataSet);
        const auto kept = static_cast<std::size_t>(count / 2);
        for (std::size_t k = 0; k < kept; ++k) EXPECT_EQ(chain.transforms[k]->pafGains[0], static_cast<float>(k));
        if (count == 1) chain.array = nullptr;  // the last transform took the array along
        chain.freeFirst(kept);
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSFreeTest, ClosesAuxiliaryFilesAndFreesTheirTexts) {
    host().addFile("one.img", 1, 1, {1});
    KSDataSet* dataSet = heapDataSet(1);
    dataSet->nNumAuxFiles = 2;
    dataSet->paAuxFiles = heapArray(std::vector<KSAuxFile>{{heapText("a"), host().open("one.img"), 0, heapText("b")},
                                                           {heapText("c"), nullptr, 0, nullptr}});
    KSFree(dataSet);
    EXPECT_EQ(host().callsOf({"GDBClose"}), (Names{"GDBClose(one.img)"}));
}

TEST_F(KSFreeTest, FreesSamplesOfCustomResponsesOnly) {
    std::vector<float> notOwned = {1.0F};
    KSDataSet* dataSet = heapDataSet(2);
    dataSet->Sensor.pBandResp[0].eRespType = KS_RT_CUSTOM;
    dataSet->Sensor.pBandResp[0].pafSamples = heapArray(std::vector<float>{1.0F, 2.0F});
    dataSet->Sensor.pBandResp[1].pafSamples = notOwned.data();
    KSFree(dataSet);
    EXPECT_EQ(notOwned[0], 1.0F);
}

TEST_F(KSFreeTest, CleansUpTheCube) {
    file().vq = FakeVQ{8, 6, {1}, {2}, 16, 4, 0, 4, {}, {}};
    KSDataSet* dataSet = KSOpen("cube.img", "r");
    ASSERT_NE(dataSet, nullptr);
    EXPECT_EQ(host().liveCubes(), 4);
    EXPECT_EQ(KSClose(dataSet), 0);
    EXPECT_EQ(host().liveCubes(), 0);
}

}  // namespace
