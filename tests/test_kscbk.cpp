// Codebooks: their life cycle, single code vectors, copying by band, and their way from and to a cube.
#include <kslib.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "bits.hpp"
#include "datasets.hpp"
#include "fixture.hpp"
#include "quantized.hpp"

using namespace kit;

namespace {

constexpr int kMost = std::numeric_limits<int>::max();

struct CodebookTest : LibraryTest {
    KSCbk codebook{};

    void use(const KSCbk& other) {
        KSFreeCbk(&codebook);
        codebook = other;
    }
    void TearDown() override {
        EXPECT_EQ(KSFreeCbk(&codebook), 0);
        LibraryTest::TearDown();
    }
};

// ---- initialising and freeing ----

using KSInitCbkTest = CodebookTest;

TEST_F(KSInitCbkTest, ZeroesTheRecordAndReturnsIt) {
    KSCbk record;
    std::memset(&record, 0x5a, sizeof record);
    EXPECT_EQ(KSInitCbk(&record), &record);
    EXPECT_EQ(record.nRadTransLev, 0);
    EXPECT_EQ(record.nNumBands, 0);
    EXPECT_EQ(record.panBandMap, nullptr);
    EXPECT_EQ(record.nNumVects, 0);
    EXPECT_EQ(record.pafCodebook, nullptr);
    EXPECT_EQ(record.papafCodeVect, nullptr);
    EXPECT_EQ(host().calls, std::vector<Call>{});
}

using KSFreeCbkTest = CodebookTest;

TEST_F(KSFreeCbkTest, RefusesNull) {
    EXPECT_EQ(KSFreeCbk(nullptr), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pCbk == NULL\n", "KSFreeCbk()")}));
}

TEST_F(KSFreeCbkTest, ClearsTheArraysAndKeepsTheRest) {
    codebook = codebookOf({4, 2}, {1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 6.0F});
    codebook.nRadTransLev = 2;
    EXPECT_EQ(KSFreeCbk(&codebook), 0);
    EXPECT_EQ(codebook.panBandMap, nullptr);
    EXPECT_EQ(codebook.pafCodebook, nullptr);
    EXPECT_EQ(codebook.papafCodeVect, nullptr);
    EXPECT_EQ(codebook.nNumBands, 2);
    EXPECT_EQ(codebook.nNumVects, 3);
    EXPECT_EQ(codebook.nRadTransLev, 2);
    EXPECT_EQ(KSFreeCbk(&codebook), 0) << "twice";
    EXPECT_EQ(host().reports, Reports{});
}

// ---- allocating ----

using KSAllocCbkTest = CodebookTest;

TEST_F(KSAllocCbkTest, LaysCodeVectorsOutInOneBlock) {
    codebook.nNumBands = 3;
    codebook.nNumVects = 4;
    codebook.nRadTransLev = 7;
    ASSERT_EQ(KSAllocCbk(&codebook), 0);
    for (int v = 0; v < 4; ++v) EXPECT_EQ(codebook.papafCodeVect[v], codebook.pafCodebook + 3 * v);
    std::fill_n(codebook.pafCodebook, 12, 1.0F);
    std::fill_n(codebook.panBandMap, 3, 9);
    EXPECT_EQ(codebook.nRadTransLev, 7);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSAllocCbkTest, CountsBelowOneLeaveTheirArraysNull) {
    for (const int none : {0, -3}) {
        KSInitCbk(&codebook);
        codebook.nNumBands = 2;
        codebook.nNumVects = none;
        EXPECT_EQ(KSAllocCbk(&codebook), 0);
        EXPECT_NE(codebook.panBandMap, nullptr);
        EXPECT_EQ(codebook.pafCodebook, nullptr);
        EXPECT_EQ(codebook.papafCodeVect, nullptr);
        KSFreeCbk(&codebook);

        codebook.nNumBands = none;
        codebook.nNumVects = 2;
        EXPECT_EQ(KSAllocCbk(&codebook), 0);
        EXPECT_EQ(codebook.panBandMap, nullptr);
        EXPECT_EQ(codebook.pafCodebook, nullptr);
        ASSERT_NE(codebook.papafCodeVect, nullptr);
        EXPECT_EQ(codebook.papafCodeVect[0], nullptr);
        EXPECT_EQ(codebook.papafCodeVect[1], nullptr);
        KSFreeCbk(&codebook);

        codebook.nNumVects = none;
        EXPECT_EQ(KSAllocCbk(&codebook), 0);
        EXPECT_EQ(codebook.panBandMap, nullptr);
        EXPECT_EQ(codebook.papafCodeVect, nullptr);
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSAllocCbkTest, ReportsANullRecord) {
    EXPECT_EQ(KSAllocCbk(nullptr), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pCbk == NULL\n", "KSAllocCbk()")}));
}

TEST_F(KSAllocCbkTest, ForgetsThePointersItFinds) {
    int foreign = 0;
    float value = 0.0F;
    float* start = &value;
    codebook = {0, 0, &foreign, 0, &value, &start};
    EXPECT_EQ(KSAllocCbk(&codebook), 0);
    EXPECT_EQ(codebook.panBandMap, nullptr);
    EXPECT_EQ(codebook.pafCodebook, nullptr);
    EXPECT_EQ(codebook.papafCodeVect, nullptr);
}

TEST_F(KSAllocCbkTest, NamesWhatCouldNotBeAllocated) {
    const auto expectRefused = [this](int nth, const Report& report) {
        KSInitCbk(&codebook);
        codebook.nNumBands = 3;
        codebook.nNumVects = 4;
        host().forget();
        refuseAllocation(nth);
        EXPECT_EQ(KSAllocCbk(&codebook), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
        EXPECT_EQ(codebook.pafCodebook, nullptr);
        EXPECT_EQ(codebook.papafCodeVect, nullptr);
    };
    expectRefused(1, failure("%s: pCbk->panBandMap == NULL, HMalloc() failed\n", "KSAllocCbk()"));
    EXPECT_EQ(codebook.panBandMap, nullptr);
    expectRefused(2, failure("%s: pCbk->pafCodebook == NULL, HMalloc() failed\n", "KSAllocCbk()"));
    EXPECT_EQ(codebook.panBandMap, nullptr);
    expectRefused(3, failure("%s: pCbk->papafCodeVect == NULL, HMalloc() failed\n", "KSAllocCbk()"));
    EXPECT_NE(codebook.panBandMap, nullptr) << "the band map stays";
    KSFreeCbk(&codebook);
    refuseAllocation(4);
    EXPECT_EQ(KSAllocCbk(&codebook), 0);
    EXPECT_FALSE(allocationRefused());
}

// ---- code vectors ----

struct CodeVectorTest : CodebookTest {
    VEC* vector = v_get(2);

    void SetUp() override {
        CodebookTest::SetUp();
        codebook = codebookOf({0, 1}, {1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 6.0F});
    }
    void TearDown() override {
        v_free(vector);
        CodebookTest::TearDown();
    }
    std::vector<double> components() const { return {vector->ve[0], vector->ve[1]}; }
};

using KSExtractVectCbkTest = CodeVectorTest;

TEST_F(KSExtractVectCbkTest, WidensTheCodeVector) {
    codebook.papafCodeVect[2][0] = 0.1F;
    EXPECT_EQ(KSExtractVectCbk(vector, &codebook, 2), 0);
    EXPECT_EQ(components(), (std::vector<double>{static_cast<double>(0.1F), 6.0}));
    EXPECT_EQ(KSExtractVectCbk(vector, &codebook, 0), 0);
    EXPECT_EQ(components(), (std::vector<double>{1.0, 2.0}));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSExtractVectCbkTest, ChecksTheRangeBeforeTheDimension) {
    VEC* wrong = v_get(3);
    const auto expectRefused = [](VEC* to, const KSCbk* from, int number, const Report& report) {
        host().forget();
        EXPECT_EQ(KSExtractVectCbk(to, from, number), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
    };
    expectRefused(nullptr, nullptr, 9, failure("%s: pCodeVect == NULL\n", "ExtractVectCbk()"));
    expectRefused(wrong, nullptr, 9, failure("%s: pCbk == NULL\n", "ExtractVectCbk()"));
    for (const int number : {-1, 3, kMost}) {
        expectRefused(wrong, &codebook, number,
                      failure("%s: nCodeVect >= pCbk->nNumVects || nCodeVect < 0\n", "ExtractVectCbk()"));
    }
    expectRefused(wrong, &codebook, 2,
                  failure("%s: pCodeVect->dim != (u_int) (pCbk->nNumBands)\n", "ExtractVectCbk()"));
    drop(codebook.papafCodeVect);
    expectRefused(vector, &codebook, 2, failure("%s: pCbk->papafCodeVect == NULL\n", "ExtractVectCbk()"));
    v_free(wrong);
}

using KSInsertVectCbkTest = CodeVectorTest;

TEST_F(KSInsertVectCbkTest, NarrowsIntoTheCodeVectorAndNoOther) {
    vector->ve[0] = 0.1;
    vector->ve[1] = 16777217.0;  // halfway between two singles: to the even one
    EXPECT_EQ(KSInsertVectCbk(vector, &codebook, 1), 0);
    EXPECT_EQ(values(codebook), (std::vector<float>{1.0F, 2.0F, 0.1F, 16777216.0F, 5.0F, 6.0F}));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSInsertVectCbkTest, ChecksTheRangeBeforeTheDimension) {
    VEC* wrong = v_get(1);
    const auto expectRefused = [](const VEC* from, KSCbk* to, int number, const Report& report) {
        host().forget();
        EXPECT_EQ(KSInsertVectCbk(from, to, number), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
    };
    expectRefused(nullptr, nullptr, 9, failure("%s: pCodeVect == NULL\n", "InsertVectCbk()"));
    expectRefused(wrong, nullptr, 9, failure("%s: pCbk == NULL\n", "InsertVectCbk()"));
    for (const int number : {-1, 3}) {
        expectRefused(wrong, &codebook, number,
                      failure("%s: nCodeVect >= pCbk->nNumVects || nCodeVect < 0\n", "InsertVectCbk()"));
    }
    expectRefused(wrong, &codebook, 2, failure("%s: pCodeVect->dim != pCbk->nNumBands\n", "InsertVectCbk()"));
    EXPECT_EQ(values(codebook), (std::vector<float>{1.0F, 2.0F, 3.0F, 4.0F, 5.0F, 6.0F}));
    drop(codebook.papafCodeVect);
    expectRefused(vector, &codebook, 2, failure("%s: pCbk->papafCodeVect == NULL\n", "InsertVectCbk()"));
    v_free(wrong);
}

// ---- copying ----

struct KSCopyCbkTest : CodebookTest {
    KSCbk source{};

    void SetUp() override {
        CodebookTest::SetUp();
        source = codebookOf({3, 5}, {1.0F, 2.0F, 3.0F, 4.0F});
    }
    void TearDown() override {
        KSFreeCbk(&source);
        CodebookTest::TearDown();
    }
    void expectRefused(const Reports& reports) {
        host().forget();
        EXPECT_EQ(KSCopyCbk(&source, &codebook), 1);
        EXPECT_EQ(host().reports, reports);
    }
};

TEST_F(KSCopyCbkTest, MatchesComponentsByBand) {
    codebook = codebookOf({5}, {-1.0F, -1.0F});
    EXPECT_EQ(KSCopyCbk(&source, &codebook), 0);
    EXPECT_EQ(values(codebook), (std::vector<float>{2.0F, 4.0F}));
    use(codebookOf({5, 3, 5}, std::vector<float>(6)));
    EXPECT_EQ(KSCopyCbk(&source, &codebook), 0);
    EXPECT_EQ(values(codebook), (std::vector<float>{2.0F, 1.0F, 2.0F, 4.0F, 3.0F, 4.0F}));
    source.panBandMap[0] = 5;
    EXPECT_EQ(KSCopyCbk(&source, &codebook), 1) << "band 3 is gone";
    codebook.panBandMap[1] = 5;
    EXPECT_EQ(KSCopyCbk(&source, &codebook), 0);
    EXPECT_EQ(values(codebook), (std::vector<float>{1.0F, 1.0F, 1.0F, 3.0F, 3.0F, 3.0F})) << "the first of equal bands";
}

TEST_F(KSCopyCbkTest, ChecksInOrder) {
    EXPECT_EQ(KSCopyCbk(nullptr, nullptr), 1);
    EXPECT_EQ(KSCopyCbk(&source, nullptr), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pCbkSrc == NULL\n", "KSCopyCbk ()"),
                                       failure("%s: pCbkDst == NULL\n", "KSCopyCbk ()")}));
    codebook = codebookOf({9}, {0.0F});
    expectRefused({failure("%s: pCbkSrc->nNumVects != pCbkDst->nNumVects\n", "KSCopyCbk ()")});
    use(codebookOf({3, 9}, std::vector<float>(4, -1.0F)));
    refuseVector(0);
    expectRefused({failure("%s: destination band vector component %d does not match a source band vector component\n",
                           "KSCopyCbk ()", 1)});
    EXPECT_EQ(vectors(), 0);
    EXPECT_EQ(values(codebook), std::vector<float>(4, -1.0F));
}

TEST_F(KSCopyCbkTest, NamesWhatCouldNotBeAllocated) {
    codebook = codebookOf({5}, {-1.0F, -1.0F});
    refuseAllocation(1);
    expectRefused({failure("%s: pnCompMap == NULL, HMalloc () failed\n", "KSCopyCbk ()")});
    refuseVector(1);
    expectRefused({failure("%s: failed to allocate pCodeVectSrc\n", "KSCopyCbk ()")});
    refuseVector(2);
    expectRefused({failure("%s: failed to allocate pCodeVectDst\n", "KSCopyCbk ()")});
    EXPECT_EQ(values(codebook), (std::vector<float>{-1.0F, -1.0F}));
    refuseAllocation(2);
    refuseVector(3);
    EXPECT_EQ(KSCopyCbk(&source, &codebook), 0);
    EXPECT_FALSE(allocationRefused());
}

TEST_F(KSCopyCbkTest, TheFirstVectorThatFailsStopsTheCopy) {
    codebook = codebookOf({5}, {-1.0F, -1.0F});
    float** starts = source.papafCodeVect;
    source.papafCodeVect = nullptr;
    expectRefused({failure("%s: pCbk->papafCodeVect == NULL\n", "ExtractVectCbk()"),
                   failure("%s failed to extract codevector %d from pCbkSrc\n", "KSCopyCbk ()", 0)});
    source.papafCodeVect = starts;
    starts = codebook.papafCodeVect;
    codebook.papafCodeVect = nullptr;
    expectRefused({failure("%s: pCbk->papafCodeVect == NULL\n", "InsertVectCbk()"),
                   failure("%s failed to insert codevector %d into pCbkDst\n", "KSCopyCbk ()", 0)});
    codebook.papafCodeVect = starts;
    EXPECT_EQ(values(codebook), (std::vector<float>{-1.0F, -1.0F}));
}

TEST_F(KSCopyCbkTest, CodebooksWithoutVectorsSucceed) {
    KSFreeCbk(&source);
    source = codebookOf({3, 5}, {});
    codebook = codebookOf({5}, {});
    EXPECT_EQ(KSCopyCbk(&source, &codebook), 0);
    EXPECT_EQ(host().reports, Reports{});
}

// ---- data sets with a cube ----

/// A cube of three bands and four code vectors, and a fourth band in an explicit channel.
struct CubeTest : CodebookTest {
    static constexpr int kVectors = 4;
    static constexpr int kCubeBands = 3;
    KSDataSet* dataSet = nullptr;

    FakeVQ& cube() const { return *host().file("cube.tif").vq; }

    void SetUp() override {
        LibraryTest::SetUp();
        FakeVQ made;
        made.pixels = 8;
        made.lines = 6;
        made.channels = {1, 2, 3};
        made.otherChannels = {4};
        made.codeVectors = kVectors;
        dataSet = heapCubeDataSet("cube.tif", 8, 6, 4, made);
        dataSet->pBandRefs[3].eStorage = KS_STORE_EXPLICIT;
        store(4, std::vector<float>{0, 1, 2, 10, 11, 12, 20, 21, 22, 30, 31, 32});
    }
    void TearDown() override {
        freeCubeDataSet(dataSet);
        CodebookTest::TearDown();
    }
    template <class T>
    void store(int type, const std::vector<T>& components) const {
        cube().codebook = bytesOf(components);
        cube().dataType = dataSet->VQubeInfo.nDataType = type;
    }
    void addTransforms() const {
        appendTransform(*dataSet,
                        heapTransform(KS_RQ_APPRAD, {2.0F, 3.0F, 4.0F, 5.0F}, {1.0F, 10.0F, 100.0F, 1000.0F}));
        appendTransform(*dataSet, heapTransform(KS_RQ_REFL, {0.5F, 0.5F, 0.5F, 0.5F}, {0.25F, 0.25F, 0.25F, 0.25F}));
    }
    void useBands(const std::vector<int>& bands, int count = kVectors) {
        use(codebookOf(bands, std::vector<float>(bands.size() * static_cast<std::size_t>(count), -1.0F)));
    }
    void rename(const char* name) const {
        std::free(dataSet->szFileName);
        dataSet->szFileName = name == nullptr ? nullptr : heapText(name);
    }
};

struct KSReadCbkTest : CubeTest {
    void expectRefused(const Report& report) {
        host().forget();
        EXPECT_EQ(KSReadCbk(dataSet, &codebook), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
        EXPECT_EQ(host().count("VQubeGetCodeBook"), 0);
    }
};

TEST_F(KSReadCbkTest, PicksTheComponentsOfItsBands) {
    useBands({2, 0});
    EXPECT_EQ(KSReadCbk(dataSet, &codebook), 0);
    EXPECT_EQ(values(codebook), (std::vector<float>{2, 0, 12, 10, 22, 20, 32, 30}));
    EXPECT_EQ(host().callsOf({"VQubeGetCodeBook"}), (Names{"VQubeGetCodeBook(cube.tif:1)"}));
    EXPECT_EQ(host().calls.size(), 1U);
}

TEST_F(KSReadCbkTest, ReadsEveryStoredType) {
    useBands({1});
    store(1, std::vector<std::uint8_t>{0, 10, 0, 0, 127, 0, 0, 128, 0, 0, 255, 0});
    EXPECT_EQ(KSReadCbk(dataSet, &codebook), 0);
    EXPECT_EQ(values(codebook), (std::vector<float>{10, 127, 128, 255}));
    store(2, std::vector<std::int16_t>{0, -32768, 0, 0, -1, 0, 0, 1, 0, 0, 32767, 0});
    EXPECT_EQ(KSReadCbk(dataSet, &codebook), 0);
    EXPECT_EQ(values(codebook), (std::vector<float>{-32768, -1, 1, 32767}));
    store(3, std::vector<std::uint16_t>{0, 0, 0, 0, 32768, 0, 0, 40000, 0, 0, 65535, 0});
    EXPECT_EQ(KSReadCbk(dataSet, &codebook), 0);
    EXPECT_EQ(values(codebook), (std::vector<float>{0, 32768, 40000, 65535}));
    const float tiny = std::numeric_limits<float>::denorm_min();
    store(4, std::vector<float>{0, 0.1F, 0, 0, -tiny, 0, 0, -0.0F, 0, 0, -INFINITY, 0});
    EXPECT_EQ(KSReadCbk(dataSet, &codebook), 0);
    EXPECT_TRUE(sameBits(values(codebook), {0.1F, -tiny, -0.0F, -INFINITY}));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSReadCbkTest, AGainOfTwoAndAnOffsetOfOneTurnTenInto21) {
    store(1, std::vector<std::uint8_t>{10, 10, 10, 0, 0, 0, 255, 255, 255, 1, 2, 3});
    addTransforms();
    useBands({0, 2});
    codebook.nRadTransLev = 1;
    EXPECT_EQ(KSReadCbk(dataSet, &codebook), 0);
    EXPECT_EQ(values(codebook), (std::vector<float>{21, 140, 1, 100, 511, 1120, 3, 112}));
    codebook.nRadTransLev = 2;
    EXPECT_EQ(KSReadCbk(dataSet, &codebook), 0);
    // Gains 1 and 2, offsets 0.5 * 1 + 0.25 and 0.5 * 100 + 0.25.
    EXPECT_EQ(values(codebook), (std::vector<float>{10.75F, 70.25F, 0.75F, 50.25F, 255.75F, 560.25F, 1.75F, 56.25F}));
    for (const int level : {0, -1}) {
        codebook.nRadTransLev = level;
        EXPECT_EQ(KSReadCbk(dataSet, &codebook), 0);
        EXPECT_EQ(values(codebook), (std::vector<float>{10, 10, 0, 0, 255, 255, 1, 3}));
    }
}

TEST_F(KSReadCbkTest, MultipliesThenAddsInSinglePrecisionToTheBit) {
    const std::vector<float> gains = {0.1F, 3.0F, 1e20F, 0.0F};
    const std::vector<float> offsets = {0.7F, -1e8F, 1e20F, 0.0F};
    appendTransform(*dataSet, heapTransform(KS_RQ_REFL, gains, offsets));
    useBands({2, 1, 0});
    codebook.nRadTransLev = 1;
    for (const Kind& kind : kindsOfData(kVectors * kCubeBands)) {
        store(4, kind.values);
        ASSERT_EQ(KSReadCbk(dataSet, &codebook), 0);
        std::vector<float> expected;
        for (std::size_t v = 0; v < kVectors; ++v) {
            for (const std::size_t band : {2U, 1U, 0U}) {
                volatile const float product = kind.values[v * kCubeBands + band] * gains[band];
                expected.push_back(product + offsets[band]);
            }
        }
        EXPECT_TRUE(sameBits(values(codebook), expected)) << kind.name;
    }
}

TEST_F(KSReadCbkTest, ChecksInOrder) {
    HostFile* const channel = host().onlyHandle();
    EXPECT_EQ(KSReadCbk(nullptr, nullptr), 1);
    drop(dataSet->VQubeInfo.papfVQChan);
    EXPECT_EQ(KSReadCbk(dataSet, nullptr), 1);
    dataSet->VQubeInfo.papfVQChan = heapArray(std::vector<HostFile*>{nullptr});
    EXPECT_EQ(KSReadCbk(dataSet, nullptr), 1) << "before the codebook is looked at";
    dataSet->VQubeInfo.papfVQChan[0] = channel;
    EXPECT_EQ(KSReadCbk(dataSet, nullptr), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: pDataSet == NULL\n", "KSReadCbk()"),
                                       failure("%s: *(pDataSet->VQubeInfo.pafpVQChan) == NULL\n", "KSReadCbk()"),
                                       failure("%s: *(pDataSet->VQubeInfo.pafpVQChan) == NULL\n", "KSReadCbk()"),
                                       failure("%s: pCbk == NULL\n", "KSReadCbk()")}));
    const KSCbk good = codebookOf({3, 0}, std::vector<float>(8));
    codebook = {3, 0, nullptr, 5, nullptr, nullptr};
    dataSet->VQubeInfo.nCodeVectors = 0;
    dataSet->VQubeInfo.nDataType = 9;
    addTransforms();
    expectRefused(failure("%s: pCbk->nNumBands <= 0\n", "KSReadCbk()"));
    codebook.nNumBands = 2;
    expectRefused(failure("%s: pCbk->panBandMap == NULL\n", "KSReadCbk()"));
    codebook.panBandMap = good.panBandMap;
    expectRefused(failure("%s: pCbk->nRadTransLev > pDataSet->nNumRadTrans\n", "KSReadCbk()"));
    codebook.nRadTransLev = 2;
    expectRefused(failure("%s: pDataSet->VQubeInfo.nCodeVectors == 0\n", "KSReadCbk()"));
    dataSet->VQubeInfo.nCodeVectors = kVectors;
    for (const int other : {5, 3}) {
        codebook.nNumVects = other;
        expectRefused(failure("%s: pCbk->nNumVects != pDataSet->VQubeInfo.nCodeVectors\n", "KSReadCbk()"));
    }
    codebook.nNumVects = kVectors;
    expectRefused(failure("%s: pCbk->pafCodebook == NULL\n", "KSReadCbk()"));
    codebook.pafCodebook = good.pafCodebook;
    expectRefused(failure("%s: pCbk->papafCodeVect == NULL\n", "KSReadCbk()"));
    codebook.papafCodeVect = good.papafCodeVect;
    refuseAllocation(1);
    expectRefused(
        debugOutput("%s: the codebook represents a band not stored in vector quantized format.\n", "KSReadCbk()"));
    EXPECT_EQ(allocations(), 0) << "before any transform or buffer is made";
    codebook.panBandMap[0] = 2;
    refuseAllocation(0);
    for (const int type : {9, 0, 5, -1}) {
        dataSet->VQubeInfo.nDataType = type;
        expectRefused(failure("%s: pDataSet->VQubeInfo.nDataType not supported\n", "KSReadCbk()"));
    }
    dataSet->VQubeInfo.nDataType = 4;
    EXPECT_EQ(KSReadCbk(dataSet, &codebook), 0);
}

TEST_F(KSReadCbkTest, BandsThatTheDataSetOrItsCubeLacksAreRefused) {
    for (const int band : {4, -1, kMost}) {
        useBands({0, band});
        expectRefused(failure("%s: pCbk->panBandMap[%d] (= %d) is outside of valid range\n", "KSReadCbk()", 1, band));
    }
    useBands({2, 1});
    dataSet->VQubeInfo.nNumVQChans = 2;
    expectRefused(
        failure("%s: pCbk->panBandMap[%d] (= %d) >= pDataSet->VQubeInfo.nNumVQChans (= %d)\n", "KSReadCbk()", 0, 2, 2));
    dataSet->VQubeInfo.nNumVQChans = kCubeBands;
    drop(dataSet->pBandRefs);
    expectRefused(failure("%s: pDataSet->pBandRefs == NULL\n", "KSReadCbk()"));
}

TEST_F(KSReadCbkTest, NamesWhatCouldNotBeMade) {
    addTransforms();
    useBands({0});
    codebook.nRadTransLev = 2;
    const auto expectRefusedLast = [this](const Report& report) {
        host().forget();
        EXPECT_EQ(KSReadCbk(dataSet, &codebook), 1);
        ASSERT_FALSE(host().reports.empty());
        EXPECT_EQ(host().reports.back(), report);
        EXPECT_EQ(values(codebook), std::vector<float>(kVectors, -1.0F));
    };
    int refused = 0;
    for (;; ++refused) {
        host().forget();
        refuseAllocation(refused + 1);
        if (KSReadCbk(dataSet, &codebook) == 0) break;
        const std::string text = host().reports.back().text;
        if (text != "KSReadCbk(): pRadTrans == NULL, KSCreateRadTrans() failed\n") break;
        refuseAllocation(refused + 1);
        expectRefusedLast(failure("%s: pRadTrans == NULL, KSCreateRadTrans() failed\n", "KSReadCbk()"));
    }
    EXPECT_GE(refused, 1);
    refuseAllocation(refused + 1);
    expectRefusedLast(failure("%s: pBuf == NULL, HMalloc () failed\n", "KSReadCbk()"));
    refuseAllocation(0);
    KSRadTrans* second = dataSet->papRadTransSeq[1];
    dataSet->papRadTransSeq[1] = nullptr;
    expectRefusedLast(failure("%s: KSCombRadTrans() failed\n", "KSReadCbk()"));
    dataSet->papRadTransSeq[1] = second;
    host().forget();
    refuseAllocation(refused + 2);
    EXPECT_EQ(KSReadCbk(dataSet, &codebook), 0);
    EXPECT_FALSE(allocationRefused());
}

TEST_F(KSReadCbkTest, ARefusalByTheHostIsReported) {
    useBands({0});
    host().failCall("VQubeGetCodeBook");
    EXPECT_EQ(KSReadCbk(dataSet, &codebook), 1);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: ! VQubeGetCodeBook (fpVQ, pBuf), VQubeGetCodeBook() failed \n", "KSReadCbk()")}));
    EXPECT_EQ(values(codebook), std::vector<float>(kVectors, -1.0F));
}

// ---- writing ----

struct KSWriteCbkTest : CubeTest {
    template <class T>
    std::vector<T> stored() const {
        std::vector<T> components(cube().codebook.size() / sizeof(T));
        std::memcpy(components.data(), cube().codebook.data(), components.size() * sizeof(T));
        return components;
    }
    void expectRefused(const Report& report) {
        host().forget();
        EXPECT_EQ(KSWriteCbk(dataSet, &codebook), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
        EXPECT_EQ(host().count("VQubePutCodeBook"), 0);
    }
};

TEST_F(KSWriteCbkTest, HandsOverItsOwnBandsAndTheChannelsOfAll) {
    use(codebookOf({2, 0}, {1, 2, 3, 4, 5, 6, 7, 8}));
    dataSet->pBandRefs[1].nChan = 7;
    EXPECT_EQ(KSWriteCbk(dataSet, &codebook), 0);
    EXPECT_EQ(host().callsOf({"DKCheck", "fp2filename", "TokenizeDelim", "VQubePutCodeBook", "DestroyStringList"}),
              (Names{"DKCheck(cube.tif)", "fp2filename(cube.tif:1)", "TokenizeDelim(cube.tif:1, :)",
                     "VQubePutCodeBook(cube.tif, 4, 4, 2, 4, [1 7 3 4])", "DestroyStringList(list)"}));
    EXPECT_EQ(stored<float>(), (std::vector<float>{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSWriteCbkTest, ANameWithoutAColonIsTakenWhole) {
    host().onlyHandle()->name = "cube.tif";
    useBands({0});
    EXPECT_EQ(KSWriteCbk(dataSet, &codebook), 0);
    EXPECT_EQ(host().argumentsOf("VQubePutCodeBook"), "cube.tif, 4, 4, 1, 4, [1 2 3 4]");
}

TEST_F(KSWriteCbkTest, IntegerTypesKeepTheLowBitsOfTheTruncatedValue) {
    use(codebookOf({0, 1}, {-1.7F, 300.9F, 0.99F, -0.99F, 255.5F, 256.0F, 65537.25F, -32769.0F}));
    dataSet->VQubeInfo.nDataType = 1;
    EXPECT_EQ(KSWriteCbk(dataSet, &codebook), 0);
    EXPECT_EQ(stored<std::uint8_t>(), (std::vector<std::uint8_t>{255, 44, 0, 0, 255, 0, 1, 255}));
    dataSet->VQubeInfo.nDataType = 2;
    EXPECT_EQ(KSWriteCbk(dataSet, &codebook), 0);
    EXPECT_EQ(stored<std::int16_t>(), (std::vector<std::int16_t>{-1, 300, 0, 0, 255, 256, 1, 32767}));
    dataSet->VQubeInfo.nDataType = 3;
    EXPECT_EQ(KSWriteCbk(dataSet, &codebook), 0);
    EXPECT_EQ(stored<std::uint16_t>(), (std::vector<std::uint16_t>{65535, 300, 0, 0, 255, 256, 1, 32767}));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSWriteCbkTest, ValuesBeyondEveryIntegerAreStillWritten) {
    // 2^31 + 256 is a single-precision value whose low 16 bits are 256.
    use(codebookOf({0, 1}, {NAN, INFINITY, -INFINITY, 1e30F, -1e30F, 2147483904.0F, -2147483904.0F, 4294967296.0F}));
    for (const int type : {1, 2, 3}) {
        dataSet->VQubeInfo.nDataType = type;
        EXPECT_EQ(KSWriteCbk(dataSet, &codebook), 0);
    }
    std::vector<std::uint16_t> kept = stored<std::uint16_t>();
    kept.erase(kept.begin(), kept.begin() + 5);
    EXPECT_EQ(kept, (std::vector<std::uint16_t>{256, 65536 - 256, 0}));
}

TEST_F(KSWriteCbkTest, TransformsAreNotUndone) {
    addTransforms();
    use(codebookOf({0}, {21, 22, 23, 24}));
    codebook.nRadTransLev = 1;
    EXPECT_EQ(KSWriteCbk(dataSet, &codebook), 0);
    EXPECT_EQ(stored<float>(), (std::vector<float>{21, 22, 23, 24}));
}

TEST_F(KSWriteCbkTest, MoreVectorsThanTheCubeArePassedOn) {
    useBands({0}, kVectors + 1);
    EXPECT_EQ(KSWriteCbk(dataSet, &codebook), 0);
    EXPECT_EQ(host().argumentsOf("VQubePutCodeBook"), "cube.tif, 4, 4, 1, 4, [1 2 3 4]");
}

TEST_F(KSWriteCbkTest, ChecksInOrder) {
    EXPECT_EQ(KSWriteCbk(nullptr, nullptr), 1);
    EXPECT_EQ(KSWriteCbk(dataSet, nullptr), 1);
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: pDataSet == NULL\n", "KSWriteCbk()"),
                                       debugOutput("%s: pCbk == NULL\n", "KSWriteCbk()")}));
    EXPECT_EQ(host().count("DKCheck"), 0);
    useBands({0, 3});
    const KSCbk good = codebook;
    codebook = {99, 0, codebook.panBandMap, 0, nullptr, nullptr};
    dataSet->VQubeInfo.nDataType = 0;
    HostFile* const channel = host().onlyHandle();
    drop(dataSet->VQubeInfo.papfVQChan);
    for (const char* name : {static_cast<const char*>(nullptr), ""}) {
        rename(name);
        expectRefused(debugOutput("%s: pDataSet->szFileName == NULL or zero-length\n", "KSWriteCbk()"));
        EXPECT_EQ(host().count("DKCheck"), 0);
    }
    rename("gone.tif");
    expectRefused(debugOutput("%s: pDataSet->szFileName ('%s') was not found\n", "KSWriteCbk()", "gone.tif"));
    rename("cube.tif");
    for (const int type : {0, 5, -1}) {
        dataSet->VQubeInfo.nDataType = type;
        expectRefused(debugOutput("%s: pDataSet->VQubeInfo.nDataType is invalid.\n", "KSWriteCbk()"));
    }
    dataSet->VQubeInfo.nDataType = 3;
    expectRefused(debugOutput("%s: pCbk->nNumBands < 1\n", "KSWriteCbk()"));
    codebook.nNumBands = 2;
    expectRefused(debugOutput("%s: pCbk->nNumVects < 1\n", "KSWriteCbk()"));
    codebook.nNumVects = kVectors;
    expectRefused(
        debugOutput("%s: the codebook represents a band not stored in vector quantized format.\n", "KSWriteCbk()"));
    codebook.panBandMap[1] = 2;
    expectRefused(debugOutput("%s: pCbk->pafCodebook == NULL\n", "KSWriteCbk()"));
    codebook.pafCodebook = good.pafCodebook;
    expectRefused(failure("%s: pDataSet->VQubeInfo.papfVQChan[0] = NULL", "KSWriteCbk()"));
    dataSet->VQubeInfo.papfVQChan = heapArray(std::vector<HostFile*>{nullptr});
    expectRefused(failure("%s: pDataSet->VQubeInfo.papfVQChan[0] = NULL", "KSWriteCbk()"));
    dataSet->VQubeInfo.papfVQChan[0] = channel;
    EXPECT_EQ(KSWriteCbk(dataSet, &codebook), 0);
    codebook.papafCodeVect = good.papafCodeVect;
}

TEST_F(KSWriteCbkTest, ADataSetWithoutBandsIsReportedWrittenAndFailed) {
    useBands({0});
    for (const int none : {0, -1}) {
        host().forget();
        dataSet->Sensor.nNumBands = none;
        EXPECT_EQ(KSWriteCbk(dataSet, &codebook), 1);
        EXPECT_EQ(host().reports, (Reports{debugOutput("%s: pDataSet->Sensor.nNumBands < 1\n", "KSWriteCbk()")}));
        EXPECT_EQ(host().argumentsOf("VQubePutCodeBook"), "cube.tif, 4, 4, 1, " + std::to_string(none) + ", []");
    }
    host().forget();
    dataSet->VQubeInfo.nDataType = 7;
    EXPECT_EQ(KSWriteCbk(dataSet, &codebook), 1);
    EXPECT_EQ(host().reports,
              (Reports{debugOutput("%s: pDataSet->Sensor.nNumBands < 1\n", "KSWriteCbk()"),
                       debugOutput("%s: pDataSet->VQubeInfo.nDataType is invalid.\n", "KSWriteCbk()")}));
    EXPECT_EQ(host().count("VQubePutCodeBook"), 0);
}

TEST_F(KSWriteCbkTest, RecordsThatCannotBeVouchedForAreRefused) {
    for (const int band : {4, -1}) {
        useBands({0, band});
        expectRefused(
            debugOutput("%s: pCbk->panBandMap[%d] (= %d) is outside of valid range\n", "KSWriteCbk()", 1, band));
    }
    useBands({0}, kVectors - 1);
    expectRefused(debugOutput("%s: pCbk->nNumVects < pDataSet->VQubeInfo.nCodeVectors\n", "KSWriteCbk()"));
    useBands({0});
    drop(codebook.panBandMap);
    expectRefused(debugOutput("%s: pCbk->panBandMap == NULL\n", "KSWriteCbk()"));
    useBands({0});
    drop(dataSet->pBandRefs);
    expectRefused(debugOutput("%s: pDataSet->pBandRefs == NULL\n", "KSWriteCbk()"));
}

TEST_F(KSWriteCbkTest, AllocationFailuresAreReported) {
    useBands({0});
    dataSet->VQubeInfo.nDataType = 2;
    for (int n = 1; n <= 2; ++n) {
        host().forget();
        refuseAllocation(n);
        EXPECT_EQ(KSWriteCbk(dataSet, &codebook), 1);
        ASSERT_EQ(host().reports.size(), 1U);
        EXPECT_TRUE(host().reports[0].debug);
        EXPECT_EQ(host().reports[0].label, "KSWriteCbk()");
        EXPECT_EQ(host().count("VQubePutCodeBook"), 0);
    }
    refuseAllocation(3);
    EXPECT_EQ(KSWriteCbk(dataSet, &codebook), 0);
    EXPECT_EQ(allocations(), 2);
    dataSet->VQubeInfo.nDataType = 4;
    refuseAllocation(2);
    EXPECT_EQ(KSWriteCbk(dataSet, &codebook), 0) << "single precision goes out as it is";
    EXPECT_EQ(allocations(), 1);
}

TEST_F(KSWriteCbkTest, HostFailures) {
    useBands({0});
    host().failCall("VQubePutCodeBook");
    EXPECT_EQ(KSWriteCbk(dataSet, &codebook), 1);
    EXPECT_EQ(host().reports, Reports{}) << "a refusal is silent";
    host().failCall("TokenizeDelim");
    EXPECT_EQ(KSWriteCbk(dataSet, &codebook), 1);
    ASSERT_EQ(host().reports.size(), 1U);
    EXPECT_TRUE(host().reports[0].debug);
    EXPECT_EQ(host().count("VQubePutCodeBook"), 1);
}

// ---- mixed storage ----

TEST_F(KSReadCbkTest, WritesAndReadsBackBesideAnExplicitBand) {
    // All bands of the cube, in its own order: what the fake stores is what it hands out again.
    use(codebookOf({0, 1, 2}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
    dataSet->VQubeInfo.nDataType = 3;
    ASSERT_EQ(KSWriteCbk(dataSet, &codebook), 0);
    std::fill_n(codebook.pafCodebook, 12, 0.0F);
    ASSERT_EQ(KSReadCbk(dataSet, &codebook), 0);
    EXPECT_EQ(values(codebook), (std::vector<float>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));

    // The explicit band is read through its channel by the same record.
    for (int y = 0; y < 6; ++y) {
        for (int x = 0; x < 8; ++x) host().file("cube.tif").sample(4, x, y) = static_cast<float>(x * y);
    }
    dataSet->GDBFile = host().onlyHandle();
    KSWinEx window;
    KSInitWinEx(&window);
    window.nXSize = 8;
    window.nYSize = 6;
    window.SampDesc.nXSampleInt = window.SampDesc.nYSampleInt = window.SampDesc.nNumBands = 1;
    ASSERT_EQ(KSAllocWinEx(&window), 0);
    window.SampDesc.panBandMap[0] = 3;
    EXPECT_EQ(KSReadWinEx(dataSet, &window), 0);
    EXPECT_EQ(window.pafSamples[5 * 8 + 7], 35.0F);
    KSFreeWinEx(&window);
    dataSet->GDBFile = nullptr;
    EXPECT_EQ(host().reports, Reports{});
}

}  // namespace
