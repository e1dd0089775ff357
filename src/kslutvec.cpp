// Vectors of 64-bit values. Success is 1 in this family.
#include <kslib/kslutvec.h>

#include <algorithm>

#include "support/heap.hpp"
#include "support/tablestatus.hpp"

using namespace ks;

namespace {

bool hasValues(const KSLUTVector* vector) {
    return vector != nullptr && vector->nDimensions >= 1 && vector->panValues != nullptr;
}

bool holds(const KSLUTVector* vector, int i) { return hasValues(vector) && i >= 0 && i < vector->nDimensions; }

}  // namespace

KSLUTVector* KSLUTVectorCreate(int nDimensions) {
    if (nDimensions < 1) return nullptr;
    Heap<KSLUTVector> vector = allocateZeroed<KSLUTVector>();
    if (!vector) return nullptr;
    vector->nDimensions = nDimensions;
    vector->panValues = allocateZeroedArray<std::int64_t>(nDimensions).release();
    return vector->panValues == nullptr ? nullptr : vector.release();
}

KSLUTVector* KSLUTVectorCreateFrom(const KSLUTVector* pSrc) {
    if (pSrc == nullptr) return nullptr;
    KSLUTVector* copy = KSLUTVectorCreate(pSrc->nDimensions);
    if (KSLUTVectorSetFrom(pSrc, copy) == kTableOk) return copy;
    KSLUTVectorDestroy(copy);
    return nullptr;
}

int KSLUTVectorSetFrom(const KSLUTVector* pSrc, KSLUTVector* pDst) {
    if (!hasValues(pSrc) || !hasValues(pDst) || pSrc->nDimensions != pDst->nDimensions) return kTableFailed;
    if (pSrc != pDst) std::copy_n(pSrc->panValues, pSrc->nDimensions, pDst->panValues);
    return kTableOk;
}

void KSLUTVectorDestroy(KSLUTVector* pVec) {
    if (pVec == nullptr) return;
    freeAndClear(pVec->panValues);
    std::free(pVec);
}

int KSLUTVectorZero(KSLUTVector* pVec) { return KSLUTVectorSetValues(pVec, nullptr); }

int KSLUTVectorSetValues(KSLUTVector* pVec, const int64_t* panValues) {
    if (!hasValues(pVec)) return kTableFailed;
    if (panValues == nullptr) {
        std::fill_n(pVec->panValues, pVec->nDimensions, 0);
    } else if (panValues != pVec->panValues) {
        std::copy_n(panValues, pVec->nDimensions, pVec->panValues);
    }
    return kTableOk;
}

int KSLUTVectorGetValues(const KSLUTVector* pVec, int64_t* panValues) {
    if (!hasValues(pVec)) return kTableFailed;
    if (panValues != nullptr && panValues != pVec->panValues) {
        std::copy_n(pVec->panValues, pVec->nDimensions, panValues);
    }
    return kTableOk;
}

int KSLUTVectorSetValue(KSLUTVector* pVec, int i, int64_t nValue) {
    if (!holds(pVec, i)) return kTableFailed;
    pVec->panValues[i] = nValue;
    return kTableOk;
}

int KSLUTVectorGetValue(const KSLUTVector* pVec, int i, int64_t* pnValue) {
    if (!holds(pVec, i)) return kTableFailed;
    if (pnValue != nullptr) *pnValue = pVec->panValues[i];
    return kTableOk;
}

int KSLUTVectorGetDimensions(const KSLUTVector* pVec, int* pnDimensions) {
    if (pVec == nullptr) return kTableFailed;
    if (pnDimensions != nullptr) *pnDimensions = pVec->nDimensions;
    return kTableOk;
}
