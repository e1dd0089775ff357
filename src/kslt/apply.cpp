// Linear transforms of windows and codebooks. The first sample goes through Meschach, which judges the operands; the
// others follow in tiles through our own kernel, which gives the same bits.
#include <kslib/kslt.h>

#include <kslib/kscbk.h>
#include <kslib/kswinex.h>

#include <algorithm>
#include <cstdint>

#include "kslt/product.hpp"
#include "kswinex/components.hpp"
#include "support/heap.hpp"
#include "support/matrix.hpp"
#include "support/report.hpp"

using namespace ks;

namespace {

constexpr const char* kWindowLabel = "KSLTWinEx()";
constexpr const char* kCodebookLabel = "KSLTCbk()";

/// dst = T (src - sub) + add; sub and add may be null.
struct Transform {
    MAT* matrix;
    VEC* sub;
    VEC* add;
};

/// Vectors for the sample that Meschach computes.
struct SampleVectors {
    Vector source;
    Vector destination;
};

int makeVectors(const MAT& matrix, SampleVectors& vectors, const char* label) {
    vectors.source = makeVector(static_cast<int>(matrix.n));
    if (!vectors.source) return KS_DEBUG_FAIL("%s: failed to allocate memory for SrcVect\n", label);
    vectors.destination = makeVector(static_cast<int>(matrix.m));
    if (!vectors.destination) return KS_DEBUG_FAIL("%s: failed to allocate memory for DstVect\n", label);
    return kOk;
}

bool subtract(VEC* from, VEC* what) {
    return underMatrixTrap(static_cast<VEC*>(nullptr), [=] { return v_sub(from, what, from); }) != nullptr;
}

bool add(VEC* to, VEC* what) {
    return underMatrixTrap(static_cast<VEC*>(nullptr), [=] { return v_add(to, what, to); }) != nullptr;
}

bool multiply(MAT* matrix, VEC* source, VEC* destination) {
    return underMatrixTrap(static_cast<VEC*>(nullptr), [=] { return mv_mlt(matrix, source, destination); }) != nullptr;
}

/// Samples side by side on their way through the kernel.
class Tile {
public:
    /// False when there is no memory.
    [[nodiscard]] bool allocate(const MAT& matrix) {
        source_ = allocateZeroedArray<double>(std::int64_t{matrix.n} * kTileSamples);
        destination_ = allocateZeroedArray<double>(std::int64_t{matrix.m} * kTileSamples);
        return source_ && destination_;
    }

    /// Transforms `count` samples, the i-th of them from source(i) to destination(i). All are read before any is
    /// written.
    template <class Locate, class LocateDestination>
    void run(const Transform& transform, int count, Locate source, LocateDestination destination) {
        const int columns = static_cast<int>(transform.matrix->n);
        const int rows = static_cast<int>(transform.matrix->m);
        for (int i = 0; i < count; ++i) load(source(i), columns, transform.sub, i);
        multiplyTile(*transform.matrix, source_.get(), destination_.get());
        for (int i = 0; i < count; ++i) store(destination(i), rows, transform.add, i);
    }

private:
    void load(Components sample, int columns, const VEC* sub, int lane) {
        double* value = source_.get() + lane;
        for (int k = 0; k < columns; ++k, value += kTileSamples) {
            *value = static_cast<double>(sample.first[k * sample.step]);
            if (sub != nullptr) *value -= sub->ve[k];
        }
    }

    void store(Components sample, int rows, const VEC* add, int lane) {
        const double* value = destination_.get() + lane;
        for (int k = 0; k < rows; ++k, value += kTileSamples) {
            sample.first[k * sample.step] = static_cast<float>(add != nullptr ? *value + add->ve[k] : *value);
        }
    }

    Heap<double[]> source_;
    Heap<double[]> destination_;
};

/// Samples 1 .. count - 1 in tiles; sample 0 has been computed.
template <class Locate, class LocateDestination>
int transformRest(const Transform& transform, std::int64_t count, Locate source, LocateDestination destination,
                  const char* label) {
    if (count < 2) return kOk;
    Tile tile;
    if (!tile.allocate(*transform.matrix)) return KS_DEBUG_FAIL("%s: failed to allocate memory for the tile\n", label);
    for (std::int64_t first = 1; first < count; first += kTileSamples) {
        const int samples = static_cast<int>(std::min<std::int64_t>(kTileSamples, count - first));
        tile.run(
            transform, samples, [&](int i) { return source(first + i); },
            [&](int i) { return destination(first + i); });
    }
    return kOk;
}

// ---- windows ----

int checkWindows(const KSWinEx* source, const KSWinEx* destination, const Transform& transform) {
    constexpr const char* label = kWindowLabel;
    if (source == nullptr) return KS_DEBUG_FAIL("%s: pWinExSrc == NULL\n", label);
    if (destination == nullptr) return KS_DEBUG_FAIL("%s: pWinExDst == NULL\n", label);
    if (transform.matrix == nullptr) return KS_DEBUG_FAIL("%s: pT == NULL\n", label);
    const MAT& matrix = *transform.matrix;
    if (transform.sub != nullptr && transform.sub->dim != matrix.n) {
        return KS_DEBUG_FAIL("%s: psSub->dim != pT->n\n", label);
    }
    if (transform.add != nullptr && transform.add->dim != matrix.m) {
        return KS_DEBUG_FAIL("%s: psAdd->dim != pT->m\n", label);
    }
    if (static_cast<int>(matrix.n) != source->SampDesc.nNumBands) {
        return KS_DEBUG_FAIL("%s: pT->n != pWinExSrc->SampDesc.nNumBands\n", label);
    }
    if (static_cast<int>(matrix.m) != destination->SampDesc.nNumBands) {
        return KS_DEBUG_FAIL("%s: pT->m != pWinExDst->SampDesc.nNumBands\n", label);
    }
    if (source->nNumXSamples != destination->nNumXSamples) {
        return KS_DEBUG_FAIL("%s: pWinExSrc->nNumXSamples != pWinExDst->nNumXSamples\n", label);
    }
    if (source->nNumYSamples != destination->nNumYSamples) {
        return KS_DEBUG_FAIL("%s: pWinExSrc->nNumYSamples != pWinExDst->nNumYSamples\n", label);
    }
    return kOk;
}

int transformFirstSample(const KSWinEx& source, KSWinEx& destination, const Transform& transform,
                         const SampleVectors& vectors) {
    constexpr const char* label = kWindowLabel;
    VEC* src = vectors.source.get();
    VEC* dst = vectors.destination.get();
    if (KSExtractVectWinEx(src, &source, 0, 0) != kOk) {
        return KS_DEBUG_FAIL("%s: KSExtractVectWinEx() failed\n", label);
    }
    if (transform.sub != nullptr && !subtract(src, transform.sub)) {
        return KS_DEBUG_FAIL("%s: v_sub (pSrcVec, ps, pSrcVec) failed\n", label);
    }
    if (!multiply(transform.matrix, src, dst)) {
        return KS_DEBUG_FAIL("%s: mv_mlt (pT, pSrcVect, pDstVect) failed\n", label);
    }
    if (transform.add != nullptr && !add(dst, transform.add)) {
        return KS_DEBUG_FAIL("%s: v_add (pDstVect, psAdd, pDstVect) failed\n", label);
    }
    if (KSInsertVectWinEx(dst, &destination, 0, 0) != kOk) {
        return KS_DEBUG_FAIL("%s: KSInsertVectWinEx() failed\n", label);
    }
    return kOk;
}

// ---- codebooks ----

int checkCodebooks(const KSCbk* source, const KSCbk* destination, const Transform& transform) {
    constexpr const char* label = kCodebookLabel;
    if (source == nullptr) return KS_DEBUG_FAIL("%s: pCbkSrc == NULL\n", label);
    if (destination == nullptr) return KS_DEBUG_FAIL("%s: pCbkDst == NULL\n", label);
    if (transform.matrix == nullptr) return KS_DEBUG_FAIL("%s: pT == NULL\n", label);
    const MAT& matrix = *transform.matrix;
    if (static_cast<int>(matrix.n) != source->nNumBands) {
        return KS_DEBUG_FAIL("%s: pT->n != pCbkSrc->nNumBands\n", label);
    }
    if (static_cast<int>(matrix.m) != destination->nNumBands) {
        return KS_DEBUG_FAIL("%s: pT->m != pCbkDst->nNumBands\n", label);
    }
    if (transform.sub != nullptr && transform.sub->dim != matrix.n) {
        return KS_DEBUG_FAIL("%s: psSub->dim != pT->n\n", label);
    }
    if (transform.add != nullptr && transform.add->dim != matrix.m) {
        return KS_DEBUG_FAIL("%s: psAdd->dim != pT->m\n", label);
    }
    return kOk;
}

int transformCodeVector(const KSCbk& source, KSCbk& destination, int codeVector, const Transform& transform,
                        const SampleVectors& vectors) {
    constexpr const char* label = kCodebookLabel;
    VEC* src = vectors.source.get();
    VEC* dst = vectors.destination.get();
    if (KSExtractVectCbk(src, &source, codeVector) != kOk) {
        return KS_DEBUG_FAIL("%s: KSExtractVectCbk() failed\n", label);
    }
    if (transform.sub != nullptr && !subtract(src, transform.sub)) {
        return KS_DEBUG_FAIL("%s: v_sub (pSrcVec, psSub, pSrcVec) failed\n", label);
    }
    if (!multiply(transform.matrix, src, dst)) {
        return KS_DEBUG_FAIL("%s: mv_mlt (pT, pSrcVect, pDstVect) failed\n", label);
    }
    // A codebook is added to where it is subtracted from, and only there.
    if (transform.sub != nullptr && !add(dst, transform.add)) {
        return KS_DEBUG_FAIL("%s: v_add (pDstVect, psAdd, pDstVect) failed\n", label);
    }
    if (KSInsertVectCbk(dst, &destination, codeVector) != kOk) {
        return KS_DEBUG_FAIL("%s: KSInsertVectCbk() failed\n", label);
    }
    return kOk;
}

}  // namespace

extern "C" {

int KSLTWinEx(const KSWinEx* pWinExSrc, KSWinEx* pWinExDst, MAT* pT, VEC* psSub, VEC* psAdd) {
    const Transform transform = {pT, psSub, psAdd};
    if (checkWindows(pWinExSrc, pWinExDst, transform) != kOk) return kFailed;
    SampleVectors vectors;
    if (makeVectors(*pT, vectors, kWindowLabel) != kOk) return kFailed;
    const int across = pWinExSrc->nNumXSamples;
    if (across < 1 || pWinExSrc->nNumYSamples < 1) return kOk;

    if (transformFirstSample(*pWinExSrc, *pWinExDst, transform, vectors) != kOk) return kFailed;
    const auto locator = [across](const KSWinEx& window) {
        return [&window, across](std::int64_t i) {
            return componentsOf(window, static_cast<int>(i % across), static_cast<int>(i / across));
        };
    };
    return transformRest(transform, std::int64_t{across} * pWinExSrc->nNumYSamples, locator(*pWinExSrc),
                         locator(*pWinExDst), kWindowLabel);
}

int KSLTCbk(const KSCbk* pCbkSrc, KSCbk* pCbkDst, MAT* pT, VEC* psSub, VEC* psAdd) {
    const Transform transform = {pT, psSub, psAdd};
    if (checkCodebooks(pCbkSrc, pCbkDst, transform) != kOk) return kFailed;
    SampleVectors vectors;
    if (makeVectors(*pT, vectors, kCodebookLabel) != kOk) return kFailed;
    if (pCbkSrc->nNumVects < 1) return kOk;

    if (transformCodeVector(*pCbkSrc, *pCbkDst, 0, transform, vectors) != kOk) return kFailed;
    const auto locator = [](const KSCbk& codebook) {
        return [&codebook](std::int64_t v) { return Components{codebook.papafCodeVect[v], 1}; };
    };
    const int shared = std::min(pCbkSrc->nNumVects, pCbkDst->nNumVects);
    const Transform applied = {pT, psSub, psSub != nullptr ? psAdd : nullptr};
    if (transformRest(applied, shared, locator(*pCbkSrc), locator(*pCbkDst), kCodebookLabel) != kOk) return kFailed;
    // The first code vector that the destination lacks says so itself.
    if (shared < pCbkSrc->nNumVects) return transformCodeVector(*pCbkSrc, *pCbkDst, shared, transform, vectors);
    return kOk;
}

}  // extern "C"
