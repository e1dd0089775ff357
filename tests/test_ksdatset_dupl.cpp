// Detached copies of data sets.
#include <kslib.h>

#include <string>
#include <vector>

#include "datasets.hpp"
#include "fixture.hpp"

using namespace kit;

namespace {

struct KSDuplTest : LibraryTest {
    KSDataSet* source = nullptr;
    KSDataSet* copy = nullptr;

    void SetUp() override {
        LibraryTest::SetUp();
        host().addFile("aux.img", 1, 1, {1});
        source = heapDataSet(3);
        source->szFileName = heapText("cube.img");
        source->eOpenMode = KS_OPEN_READWRITE;
        source->nXSize = 20;
        source->nYSize = 10;
        source->Sensor.szModelName = heapText("Imager 7");
        source->Sensor.eType = KS_SENSOR_FRAME;
        source->Sensor.fFOVLeft = 1.0F;
        source->Sensor.fFOVRight = 2.0F;
        source->Sensor.fFOVFore = 3.0F;
        source->Sensor.fFOVAft = 4.0F;
        source->Mission = {2019, 7, 3, 4, 9, 5, -45.125, 170.5, 705.25F, -12.5F, 0.125F};
        for (int b = 0; b < 3; ++b) {
            source->pBandRefs[b] = {KS_STORE_EXPLICIT, 10 + b, 20 + b, 30 + b};
            source->Sensor.peBandQual[b] = b + 2;
            KSBandResp& response = source->Sensor.pBandResp[b];
            response.fParm1 = 0.1F + static_cast<float>(b);
            response.fParm2 = 0.2F + static_cast<float>(b);
            response.fWidth2 = 0.3F + static_cast<float>(b);
        }
        source->Sensor.pBandResp[2].eRespType = KS_RT_CUSTOM;
        source->Sensor.pBandResp[2].nNumSamples = 2;
        source->Sensor.pBandResp[2].pafSamples = heapArray(std::vector<float>{5.0F, 6.0F});
        source->nNumAuxFiles = 1;
        source->paAuxFiles = heapArray(std::vector<KSAuxFile>{{heapText("a"), nullptr, 3, heapText("b")}});
        appendTransform(*source, heapTransform(KS_RQ_APPRAD, {1.0F, 2.0F, 3.0F}, {10.0F, 20.0F, 30.0F}));
        appendTransform(*source, heapTransform(KS_RQ_REFL, {4.0F, 5.0F, 6.0F}, {40.0F, 50.0F, 60.0F}));
    }
    void TearDown() override {
        freeWhole(copy);
        freeWhole(source);
        LibraryTest::TearDown();
    }
    KSDataSet* dupl(const std::vector<int>& map) {
        return copy = KSDupl(source, static_cast<int>(map.size()), map.data());
    }
};

TEST_F(KSDuplTest, DescribesTheMappedBandsInOrder) {
    ASSERT_NE(dupl({2, 0}), nullptr);
    EXPECT_EQ(copy->Sensor.nNumBands, 2);
    for (const int i : {0, 1}) {
        const int b = i == 0 ? 2 : 0;
        EXPECT_EQ(copy->pBandRefs[i].eStorage, KS_STORE_EXPLICIT);
        EXPECT_EQ(copy->pBandRefs[i].nID, 10 + b);
        EXPECT_EQ(copy->pBandRefs[i].nChan, 20 + b);
        EXPECT_EQ(copy->pBandRefs[i].nChanType, 30 + b);
        EXPECT_EQ(copy->Sensor.peBandQual[i], b + 2);
        const KSBandResp& from = source->Sensor.pBandResp[b];
        const KSBandResp& to = copy->Sensor.pBandResp[i];
        EXPECT_EQ(to.eRespType, from.eRespType);
        EXPECT_EQ(to.fCentre, from.fCentre);
        EXPECT_EQ(to.fParm1, from.fParm1);
        EXPECT_EQ(to.fParm2, from.fParm2);
        EXPECT_EQ(to.fFWHM, from.fFWHM);
        EXPECT_EQ(to.fWidth2, from.fWidth2);
        for (int k = 0; k < 2; ++k) {
            EXPECT_EQ(copy->papRadTransSeq[k]->pafGains[i], source->papRadTransSeq[k]->pafGains[b]);
            EXPECT_EQ(copy->papRadTransSeq[k]->pafOffsets[i], source->papRadTransSeq[k]->pafOffsets[b]);
        }
    }
    ASSERT_EQ(copy->nNumRadTrans, 2);
    EXPECT_EQ(copy->papRadTransSeq[0]->eRadQuant, KS_RQ_APPRAD);
    EXPECT_EQ(copy->papRadTransSeq[1]->eRadQuant, KS_RQ_REFL);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSDuplTest, CopiesCustomSamples) {
    ASSERT_NE(dupl({2, 0}), nullptr);
    ASSERT_NE(copy->Sensor.pBandResp[0].pafSamples, nullptr);
    EXPECT_NE(copy->Sensor.pBandResp[0].pafSamples, source->Sensor.pBandResp[2].pafSamples);
    EXPECT_EQ(copy->Sensor.pBandResp[0].nNumSamples, 2);
    EXPECT_EQ(copy->Sensor.pBandResp[0].pafSamples[1], 6.0F);
    EXPECT_EQ(copy->Sensor.pBandResp[1].pafSamples, nullptr);
}

TEST_F(KSDuplTest, IsDetached) {
    ASSERT_NE(dupl({1}), nullptr);
    EXPECT_EQ(copy->szFileName, nullptr);
    EXPECT_EQ(copy->GDBFile, nullptr);
    EXPECT_EQ(copy->eOpenMode, 0);
    EXPECT_EQ(copy->nNumAuxFiles, 0);
    EXPECT_EQ(copy->paAuxFiles, nullptr);
}

TEST_F(KSDuplTest, CopiesSizeSensorAndMissionButNotTheHeading) {
    ASSERT_NE(dupl({1}), nullptr);
    EXPECT_EQ(copy->nXSize, 20);
    EXPECT_EQ(copy->nYSize, 10);
    EXPECT_STREQ(copy->Sensor.szModelName, "Imager 7");
    EXPECT_NE(copy->Sensor.szModelName, source->Sensor.szModelName);
    EXPECT_EQ(copy->Sensor.eType, KS_SENSOR_FRAME);
    const KSSensor& sensor = copy->Sensor;
    EXPECT_EQ((std::vector<float>{sensor.fFOVLeft, sensor.fFOVRight, sensor.fFOVFore, sensor.fFOVAft}),
              (std::vector<float>{1.0F, 2.0F, 3.0F, 4.0F}));
    const KSMission& m = copy->Mission;
    EXPECT_EQ((std::vector<int>{m.nYear, m.nMonth, m.nDay, m.nHour, m.nMinute, m.nMissionSpare}),
              (std::vector<int>{2019, 7, 3, 4, 9, 5}));
    EXPECT_EQ(m.dLatitude, -45.125);
    EXPECT_EQ(m.dLongitude, 170.5);
    EXPECT_EQ(m.fHeight, 705.25F);
    EXPECT_EQ(m.fForeAftTilt, 0.125F);
    EXPECT_EQ(m.fHeading, 0.0F);
}

TEST_F(KSDuplTest, WithoutAMapTakesAllBandsWhateverTheCount) {
    for (const int count : {0, 1, -5, 99}) {
        copy = KSDupl(source, count, nullptr);
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(copy->Sensor.nNumBands, 3);
        EXPECT_EQ(copy->pBandRefs[2].nChan, 22);
        freeWhole(copy);
        copy = nullptr;
    }
}

TEST_F(KSDuplTest, ABandMayComeTwice) {
    ASSERT_NE(dupl({1, 1, 2, 2}), nullptr);
    EXPECT_EQ(copy->Sensor.nNumBands, 4);
    EXPECT_NE(copy->Sensor.pBandResp[2].pafSamples, copy->Sensor.pBandResp[3].pafSamples);
}

TEST_F(KSDuplTest, AMapWithoutEntriesGivesNoBands) {
    const int unused = 0;
    copy = KSDupl(source, 0, &unused);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->Sensor.nNumBands, 0);
    EXPECT_EQ(copy->nNumRadTrans, 2);
}

TEST_F(KSDuplTest, ChecksItsArgumentsInOrder) {
    EXPECT_EQ(KSDupl(nullptr, 1, nullptr), nullptr);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pDataSet == NULL.\n", "KSDupl ()")}));
    for (const std::vector<int>& map : {std::vector<int>{0, 3}, std::vector<int>{-1, 0}}) {
        host().forget();
        EXPECT_EQ(dupl(map), nullptr);
        EXPECT_EQ(host().reports, (Reports{failure("%s: input band map contains a bad value.\n", "KSDupl ()")}));
    }
}

TEST_F(KSDuplTest, NullQualitiesAndResponsesStayNull) {
    int* qualities = source->Sensor.peBandQual;
    KSBandResp* responses = source->Sensor.pBandResp;
    source->Sensor.peBandQual = nullptr;
    source->Sensor.pBandResp = nullptr;
    ASSERT_NE(dupl({0, 1}), nullptr);
    EXPECT_EQ(copy->Sensor.peBandQual, nullptr);
    EXPECT_EQ(copy->Sensor.pBandResp, nullptr);
    source->Sensor.peBandQual = qualities;
    source->Sensor.pBandResp = responses;
}

TEST_F(KSDuplTest, CountsTheMappedBandsOfTheCube) {
    std::vector<int> cube = {1, 3};
    std::vector<int> others = {2};
    source->VQubeInfo = {20, 10, 2, cube.data(), nullptr, 1, others.data(), nullptr, 256, 3, 77, 8};
    ASSERT_NE(dupl({2, 1, 0, 2}), nullptr);
    const KSVQubeInfo& info = copy->VQubeInfo;
    EXPECT_EQ(info.nNumVQChans, 3);
    EXPECT_EQ(info.nNumNonVQChans, 1);
    EXPECT_EQ(info.panVQChans, nullptr);
    EXPECT_EQ(info.papfVQChan, nullptr);
    EXPECT_EQ(info.panNonVQChans, nullptr);
    EXPECT_EQ(info.papfNonVQChan, nullptr);
    EXPECT_EQ(info.nPixels, 20);
    EXPECT_EQ(info.nLines, 10);
    EXPECT_EQ(info.nDataType, 3);
    EXPECT_EQ(info.nSpare, 77);
    EXPECT_EQ(info.nCodeVectors, 256);
    EXPECT_EQ(info.nBitsPerIndex, 8);
    source->VQubeInfo = KSVQubeInfo{};
}

TEST_F(KSDuplTest, WithoutCubeBandsThereIsNoCodebook) {
    std::vector<int> cube = {1};
    source->VQubeInfo = {20, 10, 1, cube.data(), nullptr, 0, nullptr, nullptr, 256, 3, 77, 8};
    ASSERT_NE(dupl({1, 2}), nullptr);
    EXPECT_EQ(copy->VQubeInfo.nNumVQChans, 0);
    EXPECT_EQ(copy->VQubeInfo.nNumNonVQChans, 0) << "in neither list";
    EXPECT_EQ(copy->VQubeInfo.nCodeVectors, 0);
    EXPECT_EQ(copy->VQubeInfo.nBitsPerIndex, 0);
    EXPECT_EQ(copy->VQubeInfo.nDataType, 3);
    source->VQubeInfo = KSVQubeInfo{};
}

// With a null map, in the order in which a copy is made. An empty list is a failure that has no message.
TEST_F(KSDuplTest, NamesWhatCouldNotBeAllocated) {
    const Report chain = failure("%s: *ppDst == NULL, RadTransDupl () failed\n", "RadTransDupl ()");
    const Reports transform = {failure("%s: pRadTrans == NULL, HMalloc() failed\n", "KSRadTrans ()"), chain};
    const Reports gains = {failure("%s: pRadTransDupl->pafGains  == NULL, HMalloc() failed\n", "KSRadTrans ()"), chain};
    const Reports offsets = {failure("%s: pRadTransDupl->pafOffsets  == NULL, HMalloc() failed\n", "KSRadTrans ()"),
                             chain};
    const std::vector<Reports> promised = {
        {failure("%s: panBandMap == NULL HMalloc () failed.\n", "KSDupl ()")},
        {},
        {failure("%s: pBandRefs == NULL, HMalloc() failed\n", "BandRefsDupl ()")},
        {failure("%s: papRadTransSeq == NULL, HMalloc() failed\n", "RadTransDupl ()")},
        transform,
        gains,
        offsets,
        transform,
        gains,
        offsets,
        {failure("%s: paeBandQual == NULL, HMalloc() failed\n", "BandQualDupl ()")},
        {failure("%s: pBandResp == NULL, HMalloc() failed\n", "BandRespDupl ()")},
        {failure("%s: pDst[i].pafSamples == NULL, HMalloc() failed\n", "BandRespDupl ()")}};
    for (std::size_t n = 0; n < promised.size(); ++n) {
        host().forget();
        refuseAllocation(static_cast<int>(n) + 1);
        EXPECT_EQ(KSDupl(source, 0, nullptr), nullptr);
        EXPECT_TRUE(allocationRefused());
        EXPECT_EQ(host().reports, promised[n]) << "allocation " << n + 1;
    }
    host().forget();
    refuseAllocation(static_cast<int>(promised.size()) + 1);
    copy = KSDupl(source, 0, nullptr);
    ASSERT_NE(copy, nullptr) << "a failure is forgotten by the next call";
    EXPECT_FALSE(allocationRefused());
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSDuplTest, AFailureLeavesTheSourceAsItWas) {
    const KSDataSet before = *source;
    refuseAllocation(6);
    EXPECT_EQ(KSDupl(source, 0, nullptr), nullptr);
    EXPECT_EQ(source->papRadTransSeq, before.papRadTransSeq);
    EXPECT_EQ(source->nNumRadTrans, 2);
    EXPECT_EQ(source->Sensor.nNumBands, 3);
    EXPECT_EQ(source->Mission.fHeading, -12.5F);
}

TEST_F(KSDuplTest, ACopyCanBeCreated) {
    ASSERT_NE(dupl({0, 1}), nullptr);
    copy->szFileName = heapText("derived.img");
    for (int i = 0; i < 2; ++i) copy->pBandRefs[i].nChan = i + 1;
    EXPECT_EQ(KSCreate(copy), 0);
    while (copy->nNumRadTrans > 0) KSDelRadTrans(copy);
    EXPECT_EQ(KSClose(copy), 0);
    copy = nullptr;
    EXPECT_EQ(host().file("derived.img").get(kChannelLevel, 2, "ResponseProfile_Centre"), "410.000");
    EXPECT_EQ(host().file("derived.img").get(kFileLevel, kWholeFile, "NominalHeading"), "0.0");
}

}  // namespace
