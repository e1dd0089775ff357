// Linear transforms of windows and codebooks: checks, failures of every step, what is added when, and the kernel
// against Meschach's own operations, to the bit and at every vector width.
#include <kslib.h>

#include <algorithm>
#include <cstdlib>
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

VEC* vectorOf(const std::vector<double>& components) {
    VEC* vector = v_get(static_cast<int>(components.size()));
    std::copy(components.begin(), components.end(), vector->ve);
    return vector;
}

MAT* matrixOf(std::size_t rows, std::size_t columns, const std::vector<double>& entries) {
    MAT* matrix = m_get(static_cast<int>(rows), static_cast<int>(columns));
    for (std::size_t i = 0; i < entries.size(); ++i) matrix->me[i / columns][i % columns] = entries[i];
    return matrix;
}

/// Numbers of every size, or data of a kind as doubles.
std::vector<double> reals(std::size_t count, unsigned seed) {
    std::mt19937 engine(seed);
    std::uniform_real_distribution<double> uniform(-2.0, 2.0);
    std::vector<double> values(count);
    for (double& value : values) value = std::ldexp(uniform(engine), static_cast<int>(engine() % 40U) - 20);
    return values;
}
std::vector<double> widened(const std::vector<float>& values) { return {values.begin(), values.end()}; }

/// The transform of every band vector by Meschach itself.
std::vector<float> transformedByMeschach(const std::vector<float>& values, MAT* matrix, VEC* sub, VEC* add) {
    VEC* source = v_get(static_cast<int>(matrix->n));
    VEC* destination = v_get(static_cast<int>(matrix->m));
    std::vector<float> transformed;
    for (std::size_t at = 0; at < values.size(); at += matrix->n) {
        std::copy_n(values.begin() + static_cast<std::ptrdiff_t>(at), matrix->n, source->ve);
        if (sub != nullptr) v_sub(source, sub, source);
        mv_mlt(matrix, source, destination);
        if (add != nullptr) v_add(destination, add, destination);
        for (u_int k = 0; k < matrix->m; ++k) transformed.push_back(static_cast<float>(destination->ve[k]));
    }
    v_free(source);
    v_free(destination);
    return transformed;
}

struct TransformTest : LibraryTest {
    MAT* matrix = nullptr;
    VEC* sub = nullptr;
    VEC* add = nullptr;

    void useTransform(MAT* t, VEC* s, VEC* a) {
        if (matrix != nullptr) m_free(matrix);
        if (sub != nullptr) v_free(sub);
        if (add != nullptr) v_free(add);
        matrix = t;
        sub = s;
        add = a;
    }
    void TearDown() override {
        useTransform(nullptr, nullptr, nullptr);
        LibraryTest::TearDown();
    }
};

/// Which of the two vectors are given.
struct Given {
    bool sub;
    bool add;
};
constexpr Given kGiven[] = {{false, false}, {true, false}, {false, true}, {true, true}};

struct Size {
    std::size_t columns;
    std::size_t rows;
    int width;
    int height;
};
// Samples fall into tiles of 32 after the first one: none, one short of, exactly, one more, several.
const std::vector<Size> kSizes = {{1, 1, 1, 1}, {1, 3, 4, 8},   {3, 1, 33, 1}, {2, 2, 17, 2},  {5, 4, 8, 4},
                                  {7, 9, 1, 3}, {16, 3, 13, 5}, {33, 2, 9, 8}, {224, 10, 5, 3}};

// ---- windows ----

struct KSLTWinExTest : TransformTest {
    KSWinEx source{};
    KSWinEx destination{};

    static KSWinEx windowWith(int interleave, int width, int height, std::size_t bands) {
        return allocatedWindow(interleave, width, height, std::vector<int>(bands, 0));
    }
    void useWindows(const KSWinEx& from, const KSWinEx& to) {
        KSFreeWinEx(&source);
        KSFreeWinEx(&destination);
        source = from;
        destination = to;
    }
    static void set(const KSWinEx& window, const std::vector<float>& values) {
        std::size_t at = 0;
        for (int y = 0; y < window.nNumYSamples; ++y) {
            for (int x = 0; x < window.nNumXSamples; ++x) {
                for (int b = 0; b < window.SampDesc.nNumBands; ++b) component(window, x, y, b) = values.at(at++);
            }
        }
    }
    static std::vector<float> samples(const KSWinEx& window) {
        std::vector<float> values;
        for (int y = 0; y < window.nNumYSamples; ++y) {
            for (int x = 0; x < window.nNumXSamples; ++x) {
                for (int b = 0; b < window.SampDesc.nNumBands; ++b) values.push_back(component(window, x, y, b));
            }
        }
        return values;
    }
    void SetUp() override {
        TransformTest::SetUp();
        useWindows(windowWith(KS_INTLV_PIXEL, 3, 2, 2), windowWith(KS_INTLV_BAND, 3, 2, 3));
        set(source, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
        set(destination, std::vector<float>(18, -1.0F));
        useTransform(matrixOf(3, 2, {1, 0, 0, 1, 1, 1}), vectorOf({1, 2}), vectorOf({10, 20, 30}));
    }
    void TearDown() override {
        useWindows(KSWinEx{}, KSWinEx{});
        TransformTest::TearDown();
    }
    int transform() { return KSLTWinEx(&source, &destination, matrix, sub, add); }
    void expectRefused(const Reports& reports) {
        host().forget();
        EXPECT_EQ(transform(), 1);
        EXPECT_EQ(host().reports, reports);
        EXPECT_EQ(samples(destination), std::vector<float>(18, -1.0F));
    }
};

TEST_F(KSLTWinExTest, SubtractsMultipliesAndAdds) {
    EXPECT_EQ(transform(), 0);
    EXPECT_EQ(samples(destination),
              (std::vector<float>{10, 20, 30, 12, 22, 34, 14, 24, 38, 16, 26, 42, 18, 28, 46, 20, 30, 50}));
    EXPECT_EQ(samples(source), (std::vector<float>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSLTWinExTest, AnIdentityMovesTheOrigin) {
    useTransform(matrixOf(2, 2, {1, 0, 0, 1}), vectorOf({0.5, 2}), vectorOf({-4, 100}));
    useWindows(windowWith(KS_INTLV_LINE, 40, 3, 2), windowWith(KS_INTLV_PIXEL, 40, 3, 2));
    std::vector<float> values(240);
    for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<float>(i);
    set(source, values);
    EXPECT_EQ(transform(), 0);
    for (std::size_t i = 0; i < values.size(); ++i) values[i] += i % 2 == 0 ? -0.5F - 4.0F : -2.0F + 100.0F;
    EXPECT_EQ(samples(destination), values);
}

TEST_F(KSLTWinExTest, EitherVectorMayBeMissing) {
    EXPECT_EQ(KSLTWinEx(&source, &destination, matrix, nullptr, nullptr), 0);
    EXPECT_EQ(component(destination, 2, 1, 2), 23.0F);
    EXPECT_EQ(KSLTWinEx(&source, &destination, matrix, sub, nullptr), 0);
    EXPECT_EQ(component(destination, 2, 1, 2), 20.0F);
    EXPECT_EQ(KSLTWinEx(&source, &destination, matrix, nullptr, add), 0);
    EXPECT_EQ(component(destination, 2, 1, 2), 53.0F);
}

TEST_F(KSLTWinExTest, OffsetsIntervalsAndBandMapsAreNotCompared) {
    source.nXOff = 9;
    source.SampDesc.nYSampleInt = 4;
    source.SampDesc.panBandMap[0] = 6;
    destination.nRadTransLev = 3;
    EXPECT_EQ(transform(), 0);
    EXPECT_EQ(component(destination, 2, 1, 2), 50.0F);
}

TEST_F(KSLTWinExTest, ChecksInOrder) {
    EXPECT_EQ(KSLTWinEx(nullptr, nullptr, nullptr, sub, add), 1);
    EXPECT_EQ(KSLTWinEx(&source, nullptr, nullptr, sub, add), 1);
    EXPECT_EQ(KSLTWinEx(&source, &destination, nullptr, sub, add), 1);
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: pWinExSrc == NULL\n", "KSLTWinEx()"),
                                       debugOutput("%s: pWinExDst == NULL\n", "KSLTWinEx()"),
                                       debugOutput("%s: pT == NULL\n", "KSLTWinEx()")}));
    const auto expectRefusedEarly = [this](const Report& report) {
        refuseVector(1);
        expectRefused({report});
        EXPECT_EQ(vectors(), 0);
        refuseVector(0);
    };
    useTransform(matrixOf(4, 3, std::vector<double>(12)), vectorOf({1, 2}), vectorOf({1}));
    const KSWinEx small = windowWith(KS_INTLV_PIXEL, 2, 1, 2);
    const KSWinEx large = source;
    source = small;
    expectRefusedEarly(debugOutput("%s: psSub->dim != pT->n\n", "KSLTWinEx()"));
    useTransform(matrixOf(4, 3, std::vector<double>(12)), vectorOf({1, 2, 3}), vectorOf({1}));
    expectRefusedEarly(debugOutput("%s: psAdd->dim != pT->m\n", "KSLTWinEx()"));
    useTransform(matrixOf(4, 3, std::vector<double>(12)), vectorOf({1, 2, 3}), vectorOf({1, 2, 3, 4}));
    expectRefusedEarly(debugOutput("%s: pT->n != pWinExSrc->SampDesc.nNumBands\n", "KSLTWinEx()"));
    useTransform(matrixOf(4, 2, std::vector<double>(8)), nullptr, nullptr);
    expectRefusedEarly(debugOutput("%s: pT->m != pWinExDst->SampDesc.nNumBands\n", "KSLTWinEx()"));
    useTransform(matrixOf(3, 2, std::vector<double>(6)), nullptr, nullptr);
    expectRefusedEarly(debugOutput("%s: pWinExSrc->nNumXSamples != pWinExDst->nNumXSamples\n", "KSLTWinEx()"));
    source.nNumXSamples = 3;
    expectRefusedEarly(debugOutput("%s: pWinExSrc->nNumYSamples != pWinExDst->nNumYSamples\n", "KSLTWinEx()"));
    KSFreeWinEx(&source);
    source = large;
    EXPECT_EQ(transform(), 0);
}

TEST_F(KSLTWinExTest, NamesTheStepThatFailed) {
    refuseVector(1);
    expectRefused({debugOutput("%s: failed to allocate memory for SrcVect\n", "KSLTWinEx()")});
    refuseVector(2);
    expectRefused({debugOutput("%s: failed to allocate memory for DstVect\n", "KSLTWinEx()")});
    refuseVector(0);
    refuseMatrixCall(MatrixCall::kVSub, 1);
    expectRefused({debugOutput("%s: v_sub (pSrcVec, ps, pSrcVec) failed\n", "KSLTWinEx()")});
    refuseMatrixCall(MatrixCall::kMvMlt, 1);
    expectRefused({debugOutput("%s: mv_mlt (pT, pSrcVect, pDstVect) failed\n", "KSLTWinEx()")});
    refuseMatrixCall(MatrixCall::kVAdd, 1);
    expectRefused({debugOutput("%s: v_add (pDstVect, psAdd, pDstVect) failed\n", "KSLTWinEx()")});
    refuseNoMatrixCall();
    source.eBandIntlv = 3;
    expectRefused({failure("%s: Unsupported pWinEx->eBandIntlv value.\n", "KSExtractVectWinEx()"),
                   debugOutput("%s: KSExtractVectWinEx() failed\n", "KSLTWinEx()")});
    source.eBandIntlv = KS_INTLV_PIXEL;
    float** starts = destination.papafStart;
    destination.papafStart = nullptr;
    expectRefused({failure("%s: pWinEx->papafStart == NULL.\n", "KSInsertVectWinEx()"),
                   debugOutput("%s: KSInsertVectWinEx() failed\n", "KSLTWinEx()")});
    destination.papafStart = starts;
    EXPECT_EQ(transform(), 0);
}

TEST_F(KSLTWinExTest, AbsentVectorsAreNeitherSubtractedNorAdded) {
    refuseMatrixCall(MatrixCall::kVSub, 1);
    refuseMatrixCall(MatrixCall::kVAdd, 1);
    EXPECT_EQ(KSLTWinEx(&source, &destination, matrix, nullptr, nullptr), 0);
    EXPECT_EQ(matrixCalls(MatrixCall::kVSub), 0);
    EXPECT_EQ(matrixCalls(MatrixCall::kVAdd), 0);
}

TEST_F(KSLTWinExTest, EveryAllocationThatFailsIsReported) {
    int n = 1;
    for (refuseAllocation(n); transform() != 0; refuseAllocation(++n)) {
        ASSERT_TRUE(allocationRefused());
        ASSERT_EQ(host().reports.size(), 1U);
        EXPECT_TRUE(host().reports[0].debug);
        EXPECT_EQ(host().reports[0].label, "KSLTWinEx()");
        host().forget();
    }
    EXPECT_FALSE(allocationRefused());
}

TEST_F(KSLTWinExTest, WindowsWithoutSamplesSucceed) {
    for (const auto& [across, down] : {std::pair{0, 2}, std::pair{3, 0}, std::pair{0, 0}}) {
        source.nNumXSamples = destination.nNumXSamples = across;
        source.nNumYSamples = destination.nNumYSamples = down;
        source.eBandIntlv = 9;
        EXPECT_EQ(transform(), 0);
    }
    EXPECT_EQ(host().reports, Reports{});
    refuseVector(1);
    EXPECT_EQ(transform(), 1) << "the vectors are asked for all the same";
}

TEST_F(KSLTWinExTest, FailuresLeaveTheCallersErrorSettings) {
    const int flag = set_err_flag(EF_JUMP);
    for (int i = 0; i < 150; ++i) {
        refuseMatrixCall(MatrixCall::kMvMlt, 1);
        expectRefused({debugOutput("%s: mv_mlt (pT, pSrcVect, pDstVect) failed\n", "KSLTWinEx()")});
    }
    EXPECT_EQ(set_err_flag(flag), EF_JUMP);
    EXPECT_EQ(count_errs(TRUE), TRUE);
}

TEST_F(KSLTWinExTest, GivesMeschachsResultsToTheBitAtEveryWidth) {
    int targets = 0;
    forEachTarget([&](const char* target) {
        ++targets;
        for (const Size& size : kSizes) {
            const auto count = static_cast<std::size_t>(size.width * size.height);
            const std::vector<Kind> kinds = kindsOfData(count * size.columns);
            for (std::size_t k = 0; k < kinds.size(); ++k) {
                const Given given = kGiven[k % 4];
                useTransform(matrixOf(size.rows, size.columns, reals(size.rows * size.columns, 1U)),
                             given.sub ? vectorOf(reals(size.columns, 2U)) : nullptr,
                             given.add ? vectorOf(reals(size.rows, 3U)) : nullptr);
                const std::vector<float> expected = transformedByMeschach(kinds[k].values, matrix, sub, add);
                for (int from = 0; from < 3; ++from) {
                    const int to = (from + static_cast<int>(k)) % 3;
                    useWindows(windowWith(kInterleaves[from], size.width, size.height, size.columns),
                               windowWith(kInterleaves[to], size.width, size.height, size.rows));
                    set(source, kinds[k].values);
                    ASSERT_EQ(transform(), 0);
                    ASSERT_TRUE(sameBits(samples(destination), expected))
                        << target << ": " << kinds[k].name << ", " << size.columns << " to " << size.rows << " bands, "
                        << size.width << " x " << size.height;
                }
            }
        }
    });
    EXPECT_GE(targets, 1);
}

TEST_F(KSLTWinExTest, SpecialEntriesOfTheMatrixToo) {
    const std::vector<Kind> kinds = kindsOfData(35 * 4);
    for (const Kind& entries : kindsOfData(3 * 4)) {
        for (const Kind& kind : kinds) {
            useTransform(matrixOf(3, 4, widened(entries.values)), vectorOf({INFINITY, 0, -0.0, 1e300}),
                         vectorOf({-INFINITY, 0, 1e-300}));
            useWindows(windowWith(KS_INTLV_BAND, 7, 5, 4), windowWith(KS_INTLV_LINE, 7, 5, 3));
            set(source, kind.values);
            ASSERT_EQ(transform(), 0);
            ASSERT_TRUE(sameBits(samples(destination), transformedByMeschach(kind.values, matrix, sub, add)))
                << entries.name << " times " << kind.name;
        }
    }
}

TEST_F(KSLTWinExTest, ProductsAreRoundedBeforeTheyAreSummed) {
    // Each row takes a product away and puts the same product back: a fused step would leave its rounding error.
    constexpr std::size_t kRows = 50;
    const float factor = 1.0F / 3.0F;
    std::vector<double> rows;
    for (const double entry : reals(kRows, 11U)) {
        volatile const double product = entry * static_cast<double>(factor);
        rows.insert(rows.end(), {-product, entry});
    }
    useTransform(matrixOf(kRows, 2, rows), nullptr, nullptr);
    useWindows(windowWith(KS_INTLV_PIXEL, 40, 2, 2), windowWith(KS_INTLV_PIXEL, 40, 2, kRows));
    std::vector<float> values;
    for (int i = 0; i < 80; ++i) values.insert(values.end(), {1.0F, factor});
    set(source, values);
    forEachTarget([&](const char* target) {
        set(destination, std::vector<float>(80 * kRows, -1.0F));
        ASSERT_EQ(transform(), 0);
        EXPECT_EQ(samples(destination), std::vector<float>(80 * kRows, 0.0F)) << target;
    });
}

TEST_F(KSLTWinExTest, SumsThatCancelAreTakenInMeschachsOrder) {
    // Every row holds numbers and their negatives, shuffled: what is left is rounding, different for every order.
    constexpr std::size_t kColumns = 38;
    constexpr std::size_t kRows = 40;
    std::mt19937 engine(12U);
    std::vector<double> rows;
    for (unsigned row = 0; row < kRows; ++row) {
        std::vector<double> entries = reals(kColumns / 2, 100U + row);
        for (std::size_t i = 0; i < kColumns / 2; ++i) entries.push_back(-entries[i]);
        std::shuffle(entries.begin(), entries.end(), engine);
        rows.insert(rows.end(), entries.begin(), entries.end());
    }
    useTransform(matrixOf(kRows, kColumns, rows), nullptr, nullptr);
    const std::vector<float> values(35 * kColumns, 0.7F);
    const std::vector<float> expected = transformedByMeschach(values, matrix, nullptr, nullptr);
    EXPECT_NE(expected, std::vector<float>(expected.size(), 0.0F)) << "rounding shows in this data";
    useWindows(windowWith(KS_INTLV_LINE, 7, 5, kColumns), windowWith(KS_INTLV_BAND, 7, 5, kRows));
    set(source, values);
    forEachTarget([&](const char* target) {
        ASSERT_EQ(transform(), 0);
        EXPECT_TRUE(sameBits(samples(destination), expected)) << target;
    });
}

TEST_F(KSLTWinExTest, AWindowMayBeTransformedInPlace) {
    for (const int interleave : kInterleaves) {
        const std::vector<Kind> kinds = kindsOfData(45 * 5);
        useTransform(matrixOf(5, 5, reals(25, 4U)), vectorOf(reals(5, 5U)), vectorOf(reals(5, 6U)));
        useWindows(windowWith(interleave, 9, 5, 5), KSWinEx{});
        for (const Kind& kind : kinds) {
            set(source, kind.values);
            ASSERT_EQ(KSLTWinEx(&source, &source, matrix, sub, add), 0);
            ASSERT_TRUE(sameBits(samples(source), transformedByMeschach(kind.values, matrix, sub, add))) << kind.name;
        }
    }
}

// ---- codebooks ----

struct KSLTCbkTest : TransformTest {
    KSCbk source{};
    KSCbk destination{};

    void useCodebooks(const KSCbk& from, const KSCbk& to) {
        KSFreeCbk(&source);
        KSFreeCbk(&destination);
        source = from;
        destination = to;
    }
    static KSCbk codebookWith(std::size_t bands, const std::vector<float>& values) {
        return codebookOf(std::vector<int>(bands, 0), values);
    }
    void SetUp() override {
        TransformTest::SetUp();
        useCodebooks(codebookWith(2, {1, 2, 3, 4, 5, 6}), codebookWith(3, std::vector<float>(9, -1.0F)));
        useTransform(matrixOf(3, 2, {1, 0, 0, 1, 1, 1}), vectorOf({1, 2}), vectorOf({10, 20, 30}));
    }
    void TearDown() override {
        useCodebooks(KSCbk{}, KSCbk{});
        TransformTest::TearDown();
    }
    int transform() { return KSLTCbk(&source, &destination, matrix, sub, add); }
    void expectRefused(const Reports& reports) {
        host().forget();
        EXPECT_EQ(transform(), 1);
        EXPECT_EQ(host().reports, reports);
        EXPECT_EQ(values(destination), std::vector<float>(9, -1.0F));
    }
};

TEST_F(KSLTCbkTest, SubtractsMultipliesAndAdds) {
    EXPECT_EQ(transform(), 0);
    EXPECT_EQ(values(destination), (std::vector<float>{10, 20, 30, 12, 22, 34, 14, 24, 38}));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSLTCbkTest, AddsOnlyWhereItSubtracts) {
    EXPECT_EQ(KSLTCbk(&source, &destination, matrix, nullptr, add), 0);
    EXPECT_EQ(values(destination), (std::vector<float>{1, 2, 3, 3, 4, 7, 5, 6, 11}));
    EXPECT_EQ(KSLTCbk(&source, &destination, matrix, nullptr, nullptr), 0);
    EXPECT_EQ(values(destination), (std::vector<float>{1, 2, 3, 3, 4, 7, 5, 6, 11}));
}

TEST_F(KSLTCbkTest, ASubtractionAloneFailsToAdd) {
    v_free(add);
    add = nullptr;
    expectRefused({debugOutput("%s: v_add (pDstVect, psAdd, pDstVect) failed\n", "KSLTCbk()")});
}

TEST_F(KSLTCbkTest, ChecksInOrder) {
    EXPECT_EQ(KSLTCbk(nullptr, nullptr, nullptr, sub, add), 1);
    EXPECT_EQ(KSLTCbk(&source, nullptr, nullptr, sub, add), 1);
    EXPECT_EQ(KSLTCbk(&source, &destination, nullptr, sub, add), 1);
    EXPECT_EQ(host().reports, (Reports{debugOutput("%s: pCbkSrc == NULL\n", "KSLTCbk()"),
                                       debugOutput("%s: pCbkDst == NULL\n", "KSLTCbk()"),
                                       debugOutput("%s: pT == NULL\n", "KSLTCbk()")}));
    const auto expectRefusedEarly = [this](const Report& report) {
        refuseVector(1);
        expectRefused({report});
        EXPECT_EQ(vectors(), 0);
        refuseVector(0);
    };
    // The bands come before the vectors here.
    useTransform(matrixOf(4, 3, std::vector<double>(12)), vectorOf({1}), vectorOf({1}));
    expectRefusedEarly(debugOutput("%s: pT->n != pCbkSrc->nNumBands\n", "KSLTCbk()"));
    useTransform(matrixOf(4, 2, std::vector<double>(8)), vectorOf({1}), vectorOf({1}));
    expectRefusedEarly(debugOutput("%s: pT->m != pCbkDst->nNumBands\n", "KSLTCbk()"));
    useTransform(matrixOf(3, 2, std::vector<double>(6)), vectorOf({1}), vectorOf({1}));
    expectRefusedEarly(debugOutput("%s: psSub->dim != pT->n\n", "KSLTCbk()"));
    useTransform(matrixOf(3, 2, std::vector<double>(6)), vectorOf({1, 2}), vectorOf({1}));
    expectRefusedEarly(debugOutput("%s: psAdd->dim != pT->m\n", "KSLTCbk()"));
    useTransform(matrixOf(3, 2, std::vector<double>(6)), nullptr, vectorOf({1}));
    expectRefusedEarly(debugOutput("%s: psAdd->dim != pT->m\n", "KSLTCbk()"));
}

TEST_F(KSLTCbkTest, NamesTheStepThatFailed) {
    refuseVector(1);
    expectRefused({debugOutput("%s: failed to allocate memory for SrcVect\n", "KSLTCbk()")});
    refuseVector(2);
    expectRefused({debugOutput("%s: failed to allocate memory for DstVect\n", "KSLTCbk()")});
    refuseVector(0);
    refuseMatrixCall(MatrixCall::kVSub, 1);
    expectRefused({debugOutput("%s: v_sub (pSrcVec, psSub, pSrcVec) failed\n", "KSLTCbk()")});
    refuseMatrixCall(MatrixCall::kMvMlt, 1);
    expectRefused({debugOutput("%s: mv_mlt (pT, pSrcVect, pDstVect) failed\n", "KSLTCbk()")});
    refuseMatrixCall(MatrixCall::kVAdd, 1);
    expectRefused({debugOutput("%s: v_add (pDstVect, psAdd, pDstVect) failed\n", "KSLTCbk()")});
    refuseNoMatrixCall();
    float** starts = source.papafCodeVect;
    source.papafCodeVect = nullptr;
    expectRefused({failure("%s: pCbk->papafCodeVect == NULL\n", "ExtractVectCbk()"),
                   debugOutput("%s: KSExtractVectCbk() failed\n", "KSLTCbk()")});
    source.papafCodeVect = starts;
    starts = destination.papafCodeVect;
    destination.papafCodeVect = nullptr;
    expectRefused({failure("%s: pCbk->papafCodeVect == NULL\n", "InsertVectCbk()"),
                   debugOutput("%s: KSInsertVectCbk() failed\n", "KSLTCbk()")});
    destination.papafCodeVect = starts;
    EXPECT_EQ(transform(), 0);
}

TEST_F(KSLTCbkTest, EveryAllocationThatFailsIsReported) {
    int n = 1;
    for (refuseAllocation(n); transform() != 0; refuseAllocation(++n)) {
        ASSERT_TRUE(allocationRefused());
        ASSERT_EQ(host().reports.size(), 1U);
        EXPECT_TRUE(host().reports[0].debug);
        EXPECT_EQ(host().reports[0].label, "KSLTCbk()");
        host().forget();
    }
    EXPECT_FALSE(allocationRefused());
}

TEST_F(KSLTCbkTest, FailsAtTheFirstCodeVectorThatTheDestinationLacks) {
    const Reports lacking = {failure("%s: nCodeVect >= pCbk->nNumVects || nCodeVect < 0\n", "InsertVectCbk()"),
                             debugOutput("%s: KSInsertVectCbk() failed\n", "KSLTCbk()")};
    useCodebooks(codebookWith(2, std::vector<float>(100, 1.0F)), codebookWith(3, std::vector<float>(3 * 40, -1.0F)));
    EXPECT_EQ(transform(), 1);
    EXPECT_EQ(host().reports, lacking);
    for (int v = 0; v < 40; ++v) EXPECT_EQ(destination.papafCodeVect[v][0], 10.0F) << v;
    host().forget();
    useCodebooks(codebookWith(2, {1, 2}), codebookWith(3, {}));
    EXPECT_EQ(transform(), 1);
    EXPECT_EQ(host().reports, lacking);
}

TEST_F(KSLTCbkTest, ALargerDestinationKeepsTheRest) {
    useCodebooks(codebookWith(2, {1, 2}), codebookWith(3, {0, 0, 0, 7, 8, 9}));
    EXPECT_EQ(transform(), 0);
    EXPECT_EQ(values(destination), (std::vector<float>{10, 20, 30, 7, 8, 9}));
}

TEST_F(KSLTCbkTest, CodebooksWithoutVectorsSucceed) {
    useCodebooks(codebookWith(2, {}), codebookWith(3, {}));
    v_free(add);
    add = nullptr;
    EXPECT_EQ(transform(), 0);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSLTCbkTest, GivesMeschachsResultsToTheBitAtEveryWidth) {
    forEachTarget([&](const char* target) {
        for (const Size& size : kSizes) {
            const std::size_t count = static_cast<std::size_t>(size.width * size.height);
            const std::vector<Kind> kinds = kindsOfData(count * size.columns);
            for (std::size_t k = 0; k < kinds.size(); ++k) {
                const bool both = k % 2 == 0;
                useTransform(matrixOf(size.rows, size.columns, reals(size.rows * size.columns, 1U)),
                             both ? vectorOf(reals(size.columns, 2U)) : nullptr, vectorOf(reals(size.rows, 3U)));
                useCodebooks(codebookWith(size.columns, kinds[k].values),
                             codebookWith(size.rows, std::vector<float>(count * size.rows)));
                ASSERT_EQ(transform(), 0);
                ASSERT_TRUE(sameBits(values(destination),
                                     transformedByMeschach(kinds[k].values, matrix, sub, both ? add : nullptr)))
                    << target << ": " << kinds[k].name << ", " << size.columns << " to " << size.rows << " bands";
            }
        }
    });
}

TEST_F(KSLTCbkTest, ACodebookMayBeTransformedInPlace) {
    useTransform(matrixOf(5, 5, reals(25, 4U)), vectorOf(reals(5, 5U)), vectorOf(reals(5, 6U)));
    for (const Kind& kind : kindsOfData(70 * 5)) {
        useCodebooks(codebookWith(5, kind.values), KSCbk{});
        ASSERT_EQ(KSLTCbk(&source, &source, matrix, sub, add), 0);
        ASSERT_TRUE(sameBits(values(source), transformedByMeschach(kind.values, matrix, sub, add))) << kind.name;
    }
}

TEST_F(KSLTCbkTest, ManyCodeVectorsOfFewBands) {
    const std::vector<Kind> kinds = kindsOfData(65535);
    useTransform(matrixOf(2, 1, {0.1, -3}), vectorOf({0.7}), vectorOf({1e-3, 5}));
    useCodebooks(codebookWith(1, kinds[0].values), codebookWith(2, std::vector<float>(2 * 65535)));
    ASSERT_EQ(transform(), 0);
    EXPECT_TRUE(sameBits(values(destination), transformedByMeschach(kinds[0].values, matrix, sub, add)));
}

}  // namespace
