// Encoding and decoding: checks, the best match that is carried from sample to sample, and the search kernel against a
// plain loop, to the bit and at every vector width.
#include <kslib.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "bits.hpp"
#include "datasets.hpp"
#include "fixture.hpp"
#include "quantized.hpp"
#include "targets.hpp"
#include "windows.hpp"

using namespace kit;

namespace {

using Indexes = std::vector<std::uint16_t>;
constexpr int kMost = std::numeric_limits<int>::max();

struct QuantizationTest : LibraryTest {
    KSCbk codebook{};
    KSWinIM map{};
    KSWinEx window{};

    void useCodebook(const KSCbk& other) {
        KSFreeCbk(&codebook);
        codebook = other;
    }
    void useMap(const KSWinIM& other) {
        KSFreeWinIM(&map);
        map = other;
    }
    void useWindow(const KSWinEx& other) {
        KSFreeWinEx(&window);
        window = other;
    }
    /// Sets the samples of the window row by row, components fastest.
    void setSamples(const std::vector<float>& values) const {
        std::size_t at = 0;
        for (int y = 0; y < window.nNumYSamples; ++y) {
            for (int x = 0; x < window.nNumXSamples; ++x) {
                for (int b = 0; b < window.SampDesc.nNumBands; ++b) component(window, x, y, b) = values.at(at++);
            }
        }
    }
    std::vector<float> samples() const {
        std::vector<float> values;
        for (int y = 0; y < window.nNumYSamples; ++y) {
            for (int x = 0; x < window.nNumXSamples; ++x) {
                for (int b = 0; b < window.SampDesc.nNumBands; ++b) values.push_back(component(window, x, y, b));
            }
        }
        return values;
    }
    void TearDown() override {
        KSFreeCbk(&codebook);
        KSFreeWinIM(&map);
        KSFreeWinEx(&window);
        LibraryTest::TearDown();
    }
};

/// The two encoders, which differ in one thing only.
struct Encoder {
    int (*encode)(const KSCbk*, KSWinIM*, const KSWinEx*);
    const char* label;
    bool carriesOver;
};
const Encoder kCarrying = {KSVQEncodeWin, "KSVQEncodeWin()", true};
const Encoder kNearest = {KSXVQEncodeNearest, "KSXVQEncodeNearest()", false};

/// The search written out: every distance in full, by component, in double precision.
Indexes encodedPlainly(const std::vector<float>& values, const std::vector<float>& codes, std::size_t bands,
                       std::size_t count, bool carriesOver) {
    Indexes found;
    const std::size_t vectors = codes.size() / bands;
    double best = std::numeric_limits<double>::infinity();
    std::size_t index = 0;
    for (std::size_t s = 0; s < count; ++s) {
        if (!carriesOver) {
            best = std::numeric_limits<double>::infinity();
            index = 0;
        }
        for (std::size_t c = 0; c < vectors; ++c) {
            double distance = 0.0;
            for (std::size_t b = 0; b < bands; ++b) {
                distance +=
                    std::fabs(static_cast<double>(values[s * bands + b]) - static_cast<double>(codes[c * bands + b]));
            }
            if (distance < best) {
                best = distance;
                index = c;
            }
        }
        found.push_back(static_cast<std::uint16_t>(index));
    }
    return found;
}

// ---- encoding ----

struct EncodeTest : QuantizationTest, testing::WithParamInterface<Encoder> {
    void SetUp() override {
        QuantizationTest::SetUp();
        codebook = codebookOf({0, 1}, {0, 0, 10, 0, 0, 10, 10, 10});
        map = allocatedIndexes(3, 2, 999);
        window = allocatedWindow(KS_INTLV_PIXEL, 3, 2, {0, 1});
        std::fill_n(window.pafSamples, 12, 0.0F);
    }
    int encode() { return GetParam().encode(&codebook, &map, &window); }
    const char* label() const { return GetParam().label; }
    void expectRefused(const Reports& reports) {
        host().forget();
        EXPECT_EQ(encode(), 1);
        EXPECT_EQ(host().reports, reports);
        EXPECT_EQ(indexes(map), Indexes(6, 999));
    }
};

INSTANTIATE_TEST_SUITE_P(Both, EncodeTest, testing::Values(kCarrying, kNearest), [](const auto& test) {
    return test.param.carriesOver ? std::string("Carrying") : std::string("Nearest");
});

TEST_P(EncodeTest, ChecksNullsInOrder) {
    EXPECT_EQ(GetParam().encode(nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(GetParam().encode(&codebook, nullptr, nullptr), 1);
    EXPECT_EQ(GetParam().encode(&codebook, &map, nullptr), 1);
    EXPECT_EQ(host().reports,
              (Reports{debugOutput("%s: pCbk == NULL\n", label()), debugOutput("%s: pWinIM == NULL\n", label()),
                       debugOutput("%s: pWinEx == NULL\n", label())}));
}

TEST_P(EncodeTest, ChecksBandsThenColumnsAndRowsBeforeAnyAllocation) {
    refuseVector(1);
    useMap(allocatedIndexes(2, 3, 999));
    codebook.nNumBands = 3;
    expectRefused({debugOutput("%s: pWinEx->SampDesc.nNumBands != pCbk->nNumBands\n", label())});
    codebook.nNumBands = 2;
    expectRefused({debugOutput("%s: pWinEx->nNumXSamples > pWinIM->nNumXSamples\n", label())});
    // Rows are reported in the words of columns.
    useMap(allocatedIndexes(6, 1, 999));
    expectRefused({debugOutput("%s: pWinEx->nNumXSamples > pWinIM->nNumXSamples\n", label())});
    EXPECT_EQ(vectors(), 0);
    useMap(allocatedIndexes(3, 2, 999));
    expectRefused({debugOutput("%s: pBandVect == NULL\n", label())});
    EXPECT_EQ(vectors(), 1);
    EXPECT_EQ(encode(), 0);
}

TEST_P(EncodeTest, MapsIntervalsAndOffsetsAreNotCompared) {
    window.SampDesc.panBandMap[0] = 77;
    window.SampDesc.nXSampleInt = 3;
    window.nXOff = 100;
    map.nYOff = -4;
    map.nYSampleInt = 2;
    std::fill_n(window.pafSamples, 12, 10.0F);
    EXPECT_EQ(encode(), 0);
    EXPECT_EQ(indexes(map), Indexes(6, 3));
}

TEST_P(EncodeTest, TiesKeepTheLowerIndex) {
    setSamples({5, 0, 5, 0, 5, 5, 5, 0, 5, 0, 5, 0});
    EXPECT_EQ(encode(), 0);
    EXPECT_EQ(indexes(map), Indexes(6, 0));
    useCodebook(codebookOf({0, 1}, {9, 9, 6, 0, 4, 0, 6, 0}));
    setSamples(std::vector<float>{5, 0, 5, 0, 5, 0, 5, 0, 5, 0, 5, 0});
    EXPECT_EQ(encode(), 0);
    EXPECT_EQ(indexes(map), Indexes(6, 1));
}

TEST_P(EncodeTest, WithoutCodeVectorsEverySampleIsZero) {
    useCodebook(codebookOf({0, 1}, {}));
    EXPECT_EQ(encode(), 0);
    EXPECT_EQ(indexes(map), Indexes(6, 0));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_P(EncodeTest, IndexesBesideTheWindowStayAsTheyWere) {
    useWindow(allocatedWindow(KS_INTLV_LINE, 2, 1, {0, 1}));
    setSamples({0, 10, 0, 10});
    EXPECT_EQ(encode(), 0);
    EXPECT_EQ(indexes(map), (Indexes{2, 2, 999, 999, 999, 999}));
}

TEST_P(EncodeTest, AWindowWithoutSamplesSucceeds) {
    window.nNumYSamples = 0;
    EXPECT_EQ(encode(), 0);
    EXPECT_EQ(indexes(map), Indexes(6, 999));
    KSWinIM none;
    KSInitWinIM(&none);
    EXPECT_EQ(GetParam().encode(&codebook, &none, &window), 1) << "three columns into none";
    window.nNumXSamples = 0;
    EXPECT_EQ(GetParam().encode(&codebook, &none, &window), 0);
}

TEST_P(EncodeTest, AWindowThatCannotBeReadFails) {
    window.eBandIntlv = 5;
    expectRefused({failure("%s: Unsupported pWinEx->eBandIntlv value.\n", "KSExtractVectWinEx()"),
                   debugOutput("%s: KSExtractVectWinEx() failed\n", label())});
}

TEST_P(EncodeTest, MissingArraysAndMemoryAreReported) {
    float** vectorStarts = codebook.papafCodeVect;
    codebook.papafCodeVect = nullptr;
    expectRefused({debugOutput("%s: pCbk->papafCodeVect == NULL\n", label())});
    codebook.papafCodeVect = vectorStarts;
    std::uint16_t** rows = map.papau16Start;
    map.papau16Start = nullptr;
    expectRefused({debugOutput("%s: pWinIM->papau16Start == NULL\n", label())});
    map.papau16Start = rows;
    int n = 1;
    for (refuseAllocation(n); encode() != 0; refuseAllocation(++n)) {
        ASSERT_TRUE(allocationRefused());
        EXPECT_EQ(host().reports.back().label, label());
        EXPECT_TRUE(host().reports.back().debug);
        EXPECT_EQ(indexes(map), Indexes(6, 999));
    }
    EXPECT_GT(n, 1);
}

TEST_P(EncodeTest, IndexesAreNarrowedTo16Bits) {
    std::vector<float> codes(65540, 100.0F);
    codes[65538] = 1.0F;
    useCodebook(codebookOf({0}, codes));
    useWindow(allocatedWindow(KS_INTLV_BAND, 3, 2, {0}));
    setSamples(std::vector<float>(6, 1.0F));
    EXPECT_EQ(encode(), 0);
    EXPECT_EQ(indexes(map), Indexes(6, 2));
}

TEST_P(EncodeTest, CarriesOrResetsTheBest) {
    // The first sample is code vector 2; the second is at a distance of 5 from every one, from 3 least of all others.
    useWindow(allocatedWindow(KS_INTLV_PIXEL, 3, 1, {0, 1}));
    setSamples({0, 10, 11, 14, 0, 0});
    EXPECT_EQ(encode(), 0);
    const Indexes expected = GetParam().carriesOver ? Indexes{2, 2, 2, 999, 999, 999} : Indexes{2, 3, 0, 999, 999, 999};
    EXPECT_EQ(indexes(map), expected);
}

TEST_P(EncodeTest, ACloserSampleTakesOver) {
    useWindow(allocatedWindow(KS_INTLV_PIXEL, 3, 2, {0, 1}));
    setSamples({1, 3, 7, 0, 9, 0, 10, 9.5F, 0, 0, 10, 0});
    EXPECT_EQ(encode(), 0);
    // Distances to the nearest: 4, 3, 1, 0.5, 0, 0. The last ties with the sample before it.
    const Indexes expected = GetParam().carriesOver ? Indexes{0, 1, 1, 3, 0, 0} : Indexes{0, 1, 1, 3, 0, 1};
    EXPECT_EQ(indexes(map), expected);
}

TEST_P(EncodeTest, SamplesWithoutADistanceKeepWhatIsHeld) {
    useWindow(allocatedWindow(KS_INTLV_PIXEL, 3, 2, {0, 1}));
    setSamples({NAN, 0, 10, 0, 10, NAN, INFINITY, 0, -INFINITY, 10, 0, 10});
    EXPECT_EQ(encode(), 0);
    const Indexes expected = GetParam().carriesOver ? Indexes{0, 1, 1, 1, 1, 1} : Indexes{0, 1, 0, 0, 0, 2};
    EXPECT_EQ(indexes(map), expected);
}

TEST_P(EncodeTest, DistancesAreSummedInDoublePrecision) {
    // 2^24 and 1 add up to 2^24 in single precision, where both code vectors would tie.
    useCodebook(codebookOf({0, 1}, {16777216.0F, 1.0F, 16777216.0F, 0.0F}));
    EXPECT_EQ(encode(), 0);
    EXPECT_EQ(indexes(map), Indexes(6, 1));
}

TEST_P(EncodeTest, AgreesWithAPlainLoopToTheBitAtEveryWidth) {
    struct Size {
        std::size_t bands;
        std::size_t vectors;
        int width;
        int height;
    };
    const std::vector<Size> sizes = {{1, 1, 7, 3},    {1, 33, 8, 4},   {2, 31, 5, 5},  {3, 32, 6, 3},
                                     {15, 65, 4, 4},  {16, 96, 5, 3},  {17, 40, 3, 5}, {33, 257, 4, 3},
                                     {224, 19, 3, 2}, {2, 65535, 3, 2}};
    int targets = 0;
    forEachTarget([&](const char* target) {
        ++targets;
        for (const Size& size : sizes) {
            const auto count = static_cast<std::size_t>(size.width * size.height);
            const std::vector<Kind> sampleKinds = kindsOfData(count * size.bands);
            const std::vector<Kind> codeKinds = kindsOfData(size.vectors * size.bands);
            useMap(allocatedIndexes(size.width, size.height, 999));
            for (std::size_t k = 0; k < sampleKinds.size(); ++k) {
                // Data of a kind with codes of the same and of another; in the large case one each is enough.
                for (const std::size_t other : {k, (k + 3) % codeKinds.size()}) {
                    if (size.vectors > 60000 && other != k) continue;
                    std::vector<float> codes = codeKinds[other].values;
                    std::rotate(codes.begin(), codes.begin() + static_cast<std::ptrdiff_t>(codes.size() / 2),
                                codes.end());
                    std::vector<int> bandMap(size.bands, 0);
                    useCodebook(codebookOf(bandMap, codes));
                    const Indexes expected =
                        encodedPlainly(sampleKinds[k].values, codes, size.bands, count, GetParam().carriesOver);
                    for (const int interleave : kInterleaves) {
                        useWindow(allocatedWindow(interleave, size.width, size.height, bandMap));
                        setSamples(sampleKinds[k].values);
                        std::fill_n(map.pau16Samples, count, std::uint16_t{999});
                        ASSERT_EQ(encode(), 0);
                        ASSERT_EQ(indexes(map), expected)
                            << target << ": " << sampleKinds[k].name << " with " << codeKinds[other].name << ", "
                            << size.bands << " bands, " << size.vectors << " vectors, interleave " << interleave;
                        if (size.vectors > 60000) break;
                    }
                }
            }
        }
    });
    EXPECT_GE(targets, 1);
}

TEST_P(EncodeTest, NearTiesAreDecidedByTheOrderOfSummation) {
    // Values of very different sizes round differently in every order of addition: a reordered sum picks other vectors.
    constexpr std::size_t kBands = 37;
    std::mt19937 engine(7U);
    std::vector<float> base(kBands);
    std::uniform_real_distribution<float> reals(0.0F, 1.0F);
    for (float& value : base) value = std::ldexp(reals(engine), static_cast<int>(engine() % 60U));
    std::vector<float> codes;
    for (int v = 0; v < 200; ++v) {
        std::shuffle(base.begin(), base.end(), engine);
        codes.insert(codes.end(), base.begin(), base.end());
    }
    useCodebook(codebookOf(std::vector<int>(kBands, 0), codes));
    useWindow(allocatedWindow(KS_INTLV_PIXEL, 3, 2, std::vector<int>(kBands, 0)));
    // From a constant sample below all, every distance is the sum of the same numbers, in another order.
    const std::vector<float> values(6 * kBands, -1.0F);
    setSamples(values);
    const Indexes expected = encodedPlainly(values, codes, kBands, 6, GetParam().carriesOver);
    EXPECT_NE(expected[0], 0) << "rounding decides in this data";
    forEachTarget([&](const char* target) {
        EXPECT_EQ(encode(), 0);
        EXPECT_EQ(indexes(map), expected) << target;
    });
}

// ---- decoding ----

struct KSVQDecodeWinTest : QuantizationTest {
    void SetUp() override {
        QuantizationTest::SetUp();
        codebook = codebookOf({4, 1}, {1, 2, 3, 4, 5, 6});
        map = allocatedIndexes(3, 2, 0);
        const Indexes set = {0, 1, 2, 2, 1, 0};
        std::copy(set.begin(), set.end(), map.pau16Samples);
        useFresh(KS_INTLV_PIXEL, 3, 2);
    }
    void useFresh(int interleave, int width, int height) {
        useWindow(allocatedWindow(interleave, width, height, {4, 1}));
        std::fill_n(window.pafSamples, width * height * 2, -1.0F);
    }
    int decode() { return KSVQDecodeWin(&codebook, &map, &window); }
    void expectRefused(const Reports& reports) {
        host().forget();
        EXPECT_EQ(decode(), 1);
        EXPECT_EQ(host().reports, reports);
        EXPECT_EQ(samples(), std::vector<float>(12, -1.0F));
    }
};

TEST_F(KSVQDecodeWinTest, GivesTheCodeVectorsSampleBySample) {
    for (const int interleave : kInterleaves) {
        useFresh(interleave, 3, 2);
        window.nXOff = map.nXOff = 40;
        window.nYOff = map.nYOff = 50;
        window.nRadTransLev = 9;
        EXPECT_EQ(decode(), 0);
        EXPECT_EQ(samples(), (std::vector<float>{1, 2, 3, 4, 5, 6, 5, 6, 3, 4, 1, 2}));
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSVQDecodeWinTest, FollowsTheOffsetsInImageUnits) {
    useFresh(KS_INTLV_PIXEL, 1, 1);
    window.nXOff = 12;
    map.nXOff = 10;
    window.nYOff = -4;
    map.nYOff = -5;
    EXPECT_EQ(decode(), 0);
    EXPECT_EQ(samples(), (std::vector<float>{1, 2}));
    // Sample 1 of an interval of 2 begins at pixel 2, but column 1 of the map is what is taken.
    window.SampDesc.nXSampleInt = map.nXSampleInt = 2;
    window.nXOff = 11;
    EXPECT_EQ(decode(), 0);
    EXPECT_EQ(samples(), (std::vector<float>{3, 4}));
}

TEST_F(KSVQDecodeWinTest, OutsideTheMapIsZero) {
    useFresh(KS_INTLV_BAND, 3, 2);
    window.nXOff = 2;
    window.nYOff = 1;
    EXPECT_EQ(decode(), 0);
    EXPECT_EQ(samples(), (std::vector<float>{1, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    for (const int far : {kMost, -kMost - 1}) {
        useFresh(KS_INTLV_BAND, 3, 2);
        window.nXOff = window.nYOff = far;
        map.nXOff = map.nYOff = far < 0 ? kMost : -kMost - 1;
        EXPECT_EQ(decode(), 0);
        EXPECT_EQ(samples(), std::vector<float>(12, 0.0F));
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSVQDecodeWinTest, ChecksInOrder) {
    EXPECT_EQ(KSVQDecodeWin(nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(KSVQDecodeWin(&codebook, nullptr, nullptr), 1);
    EXPECT_EQ(KSVQDecodeWin(&codebook, &map, nullptr), 1);
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: pCbk == NULL\n", "KSVQDecodeWin()"),
                                       debugOutput("%s: pWinIM == NULL\n", "KSVQDecodeWin()"),
                                       debugOutput("%s: pWinEx == NULL\n", "KSVQDecodeWin()")}));
    refuseVector(1);
    window.SampDesc.nXSampleInt = window.SampDesc.nYSampleInt = 2;
    codebook.nNumBands = 3;
    std::swap(window.SampDesc.panBandMap[0], window.SampDesc.panBandMap[1]);
    expectRefused({debugOutput("%s: X-sample intervals for the windows differ\n", "KSVQDecodeWin()")});
    window.SampDesc.nXSampleInt = 1;
    expectRefused({debugOutput("%s: Y-sample intervals for the windows differ\n", "KSVQDecodeWin()")});
    window.SampDesc.nYSampleInt = 1;
    expectRefused(
        {debugOutput("%s: pWinEx->SampDesc.nNumBands (%d) != pCbk->nNumBands (%d)\n", "KSVQDecodeWin()", 2, 3)});
    codebook.nNumBands = 2;
    expectRefused({debugOutput("%s: Cbk and WinEx have different band maps\n", "KSVQDecodeWin()")});
    std::swap(window.SampDesc.panBandMap[0], window.SampDesc.panBandMap[1]);
    codebook.panBandMap[1] = 2;
    expectRefused({debugOutput("%s: Cbk and WinEx have different band maps\n", "KSVQDecodeWin()")});
    codebook.panBandMap[1] = 1;
    EXPECT_EQ(vectors(), 0);
    expectRefused({debugOutput("%s: pBandVect == NULL\n", "KSVQDecodeWin()")});
    EXPECT_EQ(decode(), 0);
}

TEST_F(KSVQDecodeWinTest, AnIndexWithoutACodeVectorStopsWhatWasBegun) {
    map.pau16Samples[3] = 3;
    EXPECT_EQ(decode(), 1);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: nCodeVect >= pCbk->nNumVects || nCodeVect < 0\n", "ExtractVectCbk()"),
                       debugOutput("%s: KSExtractVectCbk() failed \n", "KSVQDecodeWin()")}));
    EXPECT_EQ(samples(), (std::vector<float>{1, 2, 3, 4, 5, 6, -1, -1, -1, -1, -1, -1}));
}

TEST_F(KSVQDecodeWinTest, IndexesAreUnsigned) {
    std::vector<float> codes(2 * 65535, 0.0F);
    codes[2 * 65534] = 7.0F;
    codes[2 * 65534 + 1] = 8.0F;
    useCodebook(codebookOf({4, 1}, codes));
    std::fill_n(map.pau16Samples, 6, std::uint16_t{65534});
    EXPECT_EQ(decode(), 0);
    EXPECT_EQ(samples(), (std::vector<float>{7, 8, 7, 8, 7, 8, 7, 8, 7, 8, 7, 8}));
}

TEST_F(KSVQDecodeWinTest, AWindowThatCannotBeWrittenFails) {
    window.eBandIntlv = -1;
    host().forget();
    EXPECT_EQ(decode(), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: Unsupported pWinEx->eBandIntlv value.\n", "KSInsertVectWinEx()"),
                                       debugOutput("%s: KSInsertVectWinEx() failed\n", "KSVQDecodeWin()")}));
}

TEST_F(KSVQDecodeWinTest, MissingArraysAreReported) {
    std::uint16_t** rows = map.papau16Start;
    map.papau16Start = nullptr;
    expectRefused({debugOutput("%s: pWinIM->papau16Start == NULL\n", "KSVQDecodeWin()")});
    map.papau16Start = rows;
    int* bands = codebook.panBandMap;
    codebook.panBandMap = nullptr;
    expectRefused({debugOutput("%s: Cbk and WinEx have different band maps\n", "KSVQDecodeWin()")});
    codebook.panBandMap = bands;
    float** starts = codebook.papafCodeVect;
    codebook.papafCodeVect = nullptr;
    expectRefused({failure("%s: pCbk->papafCodeVect == NULL\n", "ExtractVectCbk()"),
                   debugOutput("%s: KSExtractVectCbk() failed \n", "KSVQDecodeWin()")});
    codebook.papafCodeVect = starts;
}

TEST_F(KSVQDecodeWinTest, WindowsWithoutSamplesSucceed) {
    KSWinIM none = indexesOf(0, 0);
    window.nNumYSamples = 0;
    EXPECT_EQ(KSVQDecodeWin(&codebook, &none, &window), 0);
    window.nNumYSamples = 2;
    EXPECT_EQ(KSVQDecodeWin(&codebook, &none, &window), 0) << "an empty map has no position inside";
    EXPECT_EQ(samples(), std::vector<float>(12, 0.0F));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSVQDecodeWinTest, DecodingWhatTheNearestEncoderGaveIsTheNearestVector) {
    useFresh(KS_INTLV_LINE, 3, 2);
    setSamples({1.2F, 2, 5, 5.9F, 3, 4, 1, 2.4F, 4.9F, 6, 3.1F, 4});
    ASSERT_EQ(KSXVQEncodeNearest(&codebook, &map, &window), 0);
    ASSERT_EQ(decode(), 0);
    EXPECT_EQ(samples(), (std::vector<float>{1, 2, 5, 6, 3, 4, 1, 2, 5, 6, 3, 4}));
}

}  // namespace
