// The library's vector quantization on the embedded host: a cube is created, opened, given a codebook and an index map,
// closed, and comes back the same, and decoding it in the library and in the host gives the same samples.
#include <gtest/gtest.h>
#include <kshost_app.h>
#include <kslib.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "datasets.hpp"
#include "embedded.hpp"
#include "windows.hpp"

using namespace kit;

namespace {

constexpr int kWidth = 17;
constexpr int kHeight = 9;
constexpr int kBands = 4;
constexpr int kVectors = 30;
constexpr float kGain = 0.25F;
constexpr float kOffset = -2.0F;

/// A value that every data type holds exactly.
float component(int vector, int band) { return static_cast<float>((vector * 7 + band * 13) % 128); }
std::uint16_t indexAt(int x, int y) { return static_cast<std::uint16_t>((x * 5 + y * 11) % kVectors); }
float sampleAt(int x, int y, int band) { return component(indexAt(x, y), band); }

/// A codebook of the bands of a map, allocated.
struct Codebook : KSCbk {
    Codebook(const std::vector<int>& bandMap, int level) : KSCbk{} {
        nRadTransLev = level;
        nNumBands = static_cast<int>(bandMap.size());
        nNumVects = kVectors;
        EXPECT_EQ(KSAllocCbk(this), 0);
        std::copy(bandMap.begin(), bandMap.end(), panBandMap);
    }
    ~Codebook() { KSFreeCbk(this); }
    Codebook(const Codebook&) = delete;
    Codebook& operator=(const Codebook&) = delete;
};

struct IndexWindow : KSWinIM {
    IndexWindow(int x, int y, int width, int height) : KSWinIM{} {
        nXOff = x;
        nYOff = y;
        nXSize = width;
        nYSize = height;
        nXSampleInt = nYSampleInt = 1;
        EXPECT_EQ(KSAllocWinIM(this), 0);
    }
    ~IndexWindow() { KSFreeWinIM(this); }
    IndexWindow(const IndexWindow&) = delete;
    IndexWindow& operator=(const IndexWindow&) = delete;
};

/// What a caller fills in to have a cube made.
KSDataSet* description(const std::string& name, int type) {
    KSDataSet* dataSet = heapDataSet(kBands);
    dataSet->szFileName = heapText(name);
    dataSet->nXSize = kWidth;
    dataSet->nYSize = kHeight;
    for (int b = 0; b < kBands; ++b) {
        dataSet->pBandRefs[b].eStorage = KS_STORE_VQ;
        dataSet->pBandRefs[b].nChanType = type;
    }
    dataSet->VQubeInfo.nNumVQChans = kBands;
    dataSet->VQubeInfo.nCodeVectors = kVectors;
    dataSet->VQubeInfo.nDataType = type;
    dataSet->VQubeInfo.nBitsPerIndex = 5;
    return dataSet;
}

/// Codebook and index map, through the library.
void writeCube(KSDataSet* dataSet) {
    Codebook codebook({0, 1, 2, 3}, 0);
    for (int v = 0; v < kVectors; ++v)
        for (int b = 0; b < kBands; ++b) codebook.papafCodeVect[v][b] = component(v, b);
    ASSERT_EQ(KSWriteCbk(dataSet, &codebook), 0);
    IndexWindow window(0, 0, kWidth, kHeight);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) window.papau16Start[y][x] = indexAt(x, y);
    ASSERT_EQ(KSWriteWinIM(dataSet, &window), 0);
}

/// Wavelengths, identities and one transform, to be stored when the data set is closed.
void describe(KSDataSet& dataSet) {
    for (int b = 0; b < kBands; ++b) {
        KSBandResp& response = dataSet.Sensor.pBandResp[b];
        response.eRespType = KS_RT_GAUSSIAN;
        response.fCentre = 500.5F + 100.0F * static_cast<float>(b);
        response.fFWHM = 10.0F;
        dataSet.pBandRefs[b].nID = 40 + b;
    }
    KSRadTrans* transform = KSCreateRadTrans(kBands);
    transform->eRadQuant = KS_RQ_REFL;
    std::fill_n(transform->pafGains, kBands, kGain);
    std::fill_n(transform->pafOffsets, kBands, kOffset);
    ASSERT_EQ(KSAddRadTrans(&dataSet, transform), 0);
}

struct VqEndToEnd : EmbeddedTest, testing::WithParamInterface<std::tuple<const char*, int>> {
    std::string name = folder.path(std::get<0>(GetParam()));
    int type = std::get<1>(GetParam());

    void TearDown() override {
        EXPECT_EQ(reports, std::vector<std::string>());
        EmbeddedTest::TearDown();
    }

    void make() {
        KSDataSet* wanted = description(name, type);
        ASSERT_EQ(KSCreate(wanted), 0);
        EXPECT_EQ(wanted->GDBFile, nullptr);
        freeWhole(wanted);
        KSDataSet* dataSet = KSOpen(name.c_str(), "r+");
        ASSERT_NE(dataSet, nullptr);
        ASSERT_EQ(dataSet->VQubeInfo.nNumVQChans, kBands);
        EXPECT_EQ(dataSet->VQubeInfo.nCodeVectors, kVectors);
        EXPECT_EQ(dataSet->VQubeInfo.nDataType, type);
        EXPECT_EQ(dataSet->VQubeInfo.nBitsPerIndex, 5);
        writeCube(dataSet);
        describe(*dataSet);
        ASSERT_EQ(KSClose(dataSet), 0);
    }
};
INSTANTIATE_TEST_SUITE_P(Cubes, VqEndToEnd,
                         testing::Combine(testing::Values("cube.vq", "a:b %3A gr\xc3\xbc\xc3\x9f.tif"),
                                          testing::Values(1, 2, 3, 4)),
                         [](const auto& test) {
                             const std::string kind =
                                 std::string(std::get<0>(test.param)) == "cube.vq" ? "Plain" : "Colon";
                             return kind + std::to_string(std::get<1>(test.param));
                         });

}  // namespace

TEST_P(VqEndToEnd, WhatIsWrittenComesBack) {
    ASSERT_NO_FATAL_FAILURE(make());
    KSDataSet* dataSet = KSOpen(name.c_str(), "r");
    ASSERT_NE(dataSet, nullptr);
    ASSERT_EQ(dataSet->Sensor.nNumBands, kBands);
    for (int b = 0; b < kBands; ++b) {
        EXPECT_EQ(dataSet->pBandRefs[b].eStorage, KS_STORE_VQ);
        EXPECT_EQ(dataSet->pBandRefs[b].nChan, b + 1);
        EXPECT_EQ(dataSet->pBandRefs[b].nChanType, type);
        EXPECT_EQ(dataSet->pBandRefs[b].nID, 40 + b);
        EXPECT_EQ(dataSet->Sensor.pBandResp[b].fCentre, 500.5F + 100.0F * static_cast<float>(b));
    }
    ASSERT_EQ(dataSet->nNumRadTrans, 1);

    Codebook codebook({2, 0}, 0);
    ASSERT_EQ(KSReadCbk(dataSet, &codebook), 0);
    Codebook calibrated({2, 0}, 1);
    ASSERT_EQ(KSReadCbk(dataSet, &calibrated), 0);
    for (int v = 0; v < kVectors; ++v) {
        EXPECT_EQ(codebook.papafCodeVect[v][0], component(v, 2));
        EXPECT_EQ(codebook.papafCodeVect[v][1], component(v, 0));
        EXPECT_EQ(calibrated.papafCodeVect[v][0], component(v, 2) * kGain + kOffset);
    }

    IndexWindow indexes(3, 2, 10, 5);
    ASSERT_EQ(KSReadWinIM(dataSet, &indexes), 0);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 10; ++x) EXPECT_EQ(indexes.papau16Start[y][x], indexAt(3 + x, 2 + y));
    EXPECT_EQ(KSClose(dataSet), 0);
}

TEST_P(VqEndToEnd, DecodingInTheLibraryAndInTheHostAgree) {
    ASSERT_NO_FATAL_FAILURE(make());
    KSDataSet* dataSet = KSOpen(name.c_str(), "r");
    ASSERT_NE(dataSet, nullptr);
    const std::vector<int> bandMap = {3, 0, 2};
    Codebook codebook(bandMap, 0);
    ASSERT_EQ(KSReadCbk(dataSet, &codebook), 0);
    IndexWindow indexes(0, 0, kWidth, kHeight);
    ASSERT_EQ(KSReadWinIM(dataSet, &indexes), 0);
    KSWinEx window = allocatedWindow(KS_INTLV_PIXEL, 12, 6, bandMap);
    window.nXOff = 4;
    window.nYOff = 1;
    ASSERT_EQ(KSVQDecodeWin(&codebook, &indexes, &window), 0);

    const int channels[] = {4, 1, 3};
    std::vector<float> samples(12 * 6 * 3);
    ASSERT_EQ(GDBRealChanIOLow(dataSet->GDBFile, 0, 4, 1, 12, 6, samples.data(), 12, 6, 3, channels), 1);
    EXPECT_EQ(std::vector<float>(window.pafSamples, window.pafSamples + samples.size()), samples);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 12; ++x)
            for (std::size_t b = 0; b < 3; ++b)
                EXPECT_EQ(samples[(static_cast<std::size_t>(y) * 12 + static_cast<std::size_t>(x)) * 3 + b],
                          sampleAt(4 + x, 1 + y, bandMap[b]));

    // Reading bands of a cube is reading bands: nothing in an ordinary window says how they are stored.
    KSWinEx read = allocatedWindow(KS_INTLV_LINE, 12, 6, bandMap);
    read.nXOff = 4;
    read.nYOff = 1;
    read.nRadTransLev = 1;
    ASSERT_EQ(KSReadWinEx(dataSet, &read), 0);
    EXPECT_EQ(kit::component(read, 5, 4, 1), sampleAt(9, 5, 0) * kGain + kOffset);
    KSFreeWinEx(&read);
    KSFreeWinEx(&window);
    EXPECT_EQ(KSClose(dataSet), 0);
}

TEST_P(VqEndToEnd, EncodingItsOwnSamplesFindsTheirCodeVectors) {
    ASSERT_NO_FATAL_FAILURE(make());
    KSDataSet* dataSet = KSOpen(name.c_str(), "r+");
    ASSERT_NE(dataSet, nullptr);
    const std::vector<int> bandMap = {0, 1, 2, 3};
    Codebook codebook(bandMap, 0);
    ASSERT_EQ(KSReadCbk(dataSet, &codebook), 0);
    // Sample by sample, because the encoder carries its best distance along.
    IndexWindow all(0, 0, kWidth, kHeight);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            KSWinEx one = allocatedWindow(KS_INTLV_PIXEL, 1, 1, bandMap);
            one.nXOff = x;
            one.nYOff = y;
            ASSERT_EQ(KSReadWinEx(dataSet, &one), 0);
            IndexWindow found(x, y, 1, 1);
            ASSERT_EQ(KSVQEncodeWin(&codebook, &found, &one), 0);
            EXPECT_EQ(found.papau16Start[0][0], indexAt(x, y));
            all.papau16Start[y][x] = found.papau16Start[0][0];
            KSFreeWinEx(&one);
        }
    EXPECT_EQ(KSWriteWinIM(dataSet, &all), 0);
    EXPECT_EQ(KSClose(dataSet), 0);
}
