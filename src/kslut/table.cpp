// The table in memory: dimensions, sizes, labels, coordinates, and what follows from them. Nothing is reported, and
// success is 1 in this family.
#include <kslib/kslut.h>

#include <algorithm>
#include <cstdint>
#include <limits>

#include <strings.h>

#include "kshost.h"
#include "support/heap.hpp"
#include "support/tablestatus.hpp"

using namespace ks;

namespace {

bool hasDimension(const KSLUT* table, int d) { return table != nullptr && d >= 0 && d < table->nDimensions; }

bool hasCoords(const KSLUT* table, int d) {
    return hasDimension(table, d) && table->panSizes[d] >= 1 && table->papafCoords[d] != nullptr;
}

bool hasCoord(const KSLUT* table, int d, int i) { return hasCoords(table, d) && i >= 0 && i < table->panSizes[d]; }

/// Calls step(d) for each dimension in order until one fails.
template <class Step>
int forEachDimension(const KSLUT* table, Step step) {
    if (table == nullptr) return kTableFailed;
    for (int d = 0; d < table->nDimensions; ++d) {
        if (step(d) != kTableOk) return kTableFailed;
    }
    return kTableOk;
}

/// The arrays that have an element for each dimension.
struct DimensionArrays {
    Heap<char*[]> labels;
    Heap<int[]> sizes;
    Heap<float*[]> coords;

    bool allocate(int dimensions) {
        labels = allocateZeroedArray<char*>(dimensions);
        sizes = allocateZeroedArray<int>(dimensions);
        coords = allocateZeroedArray<float*>(dimensions);
        return labels && sizes && coords;
    }
    void moveInto(KSLUT& table, int dimensions) {
        table.papszLabels = labels.release();
        table.panSizes = sizes.release();
        table.papafCoords = coords.release();
        table.nDimensions = dimensions;
    }
};

void freeDimensions(KSLUT& table) {
    for (int d = 0; d < table.nDimensions; ++d) {
        if (table.papszLabels != nullptr) std::free(table.papszLabels[d]);
        if (table.papafCoords != nullptr) std::free(table.papafCoords[d]);
    }
    freeAndClear(table.papszLabels);
    freeAndClear(table.panSizes);
    freeAndClear(table.papafCoords);
    table.nDimensions = 0;
}

void freeLabels(char** labels, int count) {
    for (int d = 0; d < count; ++d) std::free(labels[d]);
    std::free(labels);
}

}  // namespace

// ---- making and copying ----

KSLUT* KSLUTCreate(int nDimensions) {
    if (nDimensions < 1) return nullptr;
    Heap<KSLUT> table = allocateZeroed<KSLUT>();
    DimensionArrays arrays;
    if (!table || !arrays.allocate(nDimensions)) return nullptr;
    arrays.moveInto(*table, nDimensions);
    return table.release();
}

KSLUT* KSLUTCreateFrom(const KSLUT* pSrc) {
    if (pSrc == nullptr) return nullptr;
    KSLUT* copy = KSLUTCreate(pSrc->nDimensions);
    if (KSLUTSetFrom(pSrc, copy) == kTableOk) return copy;
    KSLUTDestroy(copy);
    return nullptr;
}

int KSLUTSetFrom(const KSLUT* pSrc, KSLUT* pDst) {
    if (pSrc == nullptr || pDst == nullptr || pSrc->nDimensions != pDst->nDimensions) return kTableFailed;
    if (pSrc == pDst) return tableStatus(pSrc->nElementSize >= 1);
    return tableStatus(
        KSLUTSetElementSize(pDst, pSrc->nElementSize) == kTableOk && KSLUTSetSizes(pDst, pSrc->panSizes) == kTableOk &&
        KSLUTSetLabels(pDst, pSrc->papszLabels) == kTableOk && KSLUTSetAllCoords(pDst, pSrc->papafCoords) == kTableOk &&
        KSLUTSetFileInfo(pDst, pSrc->fp, pSrc->nSegment) == kTableOk);
}

void KSLUTDestroy(KSLUT* pLUT) {
    if (pLUT == nullptr) return;
    freeDimensions(*pLUT);
    if (pLUT->fp != nullptr) GDBClose(pLUT->fp);
    std::free(pLUT);
}

int KSLUTSetDimensions(KSLUT* pLUT, int nDimensions) {
    if (pLUT == nullptr || nDimensions < 1) return kTableFailed;
    if (nDimensions == pLUT->nDimensions) return kTableOk;
    freeDimensions(*pLUT);
    DimensionArrays arrays;
    if (!arrays.allocate(nDimensions)) return KSLUTDestroy(pLUT), kTableFailed;
    arrays.moveInto(*pLUT, nDimensions);
    return kTableOk;
}

// ---- sizes ----

int KSLUTSetSize(KSLUT* pLUT, int nDimension, int nSize) {
    if (!hasDimension(pLUT, nDimension)) return kTableFailed;
    pLUT->panSizes[nDimension] = nSize;
    if (nSize < 1) return kTableOk;
    freeAndClear(pLUT->papafCoords[nDimension]);
    pLUT->papafCoords[nDimension] = allocateZeroedArray<float>(nSize).release();
    return tableStatus(pLUT->papafCoords[nDimension] != nullptr);
}

int KSLUTSetSizes(KSLUT* pLUT, const int* panSizes) {
    return forEachDimension(pLUT, [=](int d) { return KSLUTSetSize(pLUT, d, panSizes == nullptr ? 0 : panSizes[d]); });
}

int KSLUTGetSize(const KSLUT* pLUT, int nDimension, int* pnSize) {
    if (!hasDimension(pLUT, nDimension)) return kTableFailed;
    if (pnSize != nullptr) *pnSize = pLUT->panSizes[nDimension];
    return kTableOk;
}

int KSLUTGetSizes(const KSLUT* pLUT, int* panSizes) {
    return forEachDimension(pLUT,
                            [=](int d) { return KSLUTGetSize(pLUT, d, panSizes == nullptr ? nullptr : panSizes + d); });
}

// ---- labels ----

int KSLUTSetLabel(KSLUT* pLUT, int nDimension, const char* pszLabel) {
    if (!hasDimension(pLUT, nDimension)) return kTableFailed;
    // Copied before the old one goes: it may be the same text.
    char* copy = pszLabel == nullptr ? nullptr : _HString(pszLabel);
    std::free(pLUT->papszLabels[nDimension]);
    pLUT->papszLabels[nDimension] = copy;
    return tableStatus(pszLabel == nullptr || copy != nullptr);
}

int KSLUTSetLabels(KSLUT* pLUT, const char* const* papszLabels) {
    return forEachDimension(
        pLUT, [=](int d) { return KSLUTSetLabel(pLUT, d, papszLabels == nullptr ? nullptr : papszLabels[d]); });
}

char* KSLUTGetLabel(const KSLUT* pLUT, int nDimension) {
    if (!hasDimension(pLUT, nDimension) || pLUT->papszLabels[nDimension] == nullptr) return nullptr;
    return _HString(pLUT->papszLabels[nDimension]);
}

char** KSLUTGetLabels(const KSLUT* pLUT) {
    if (pLUT == nullptr || pLUT->nDimensions < 1) return nullptr;
    char** labels = allocateZeroedArray<char*>(pLUT->nDimensions).release();
    if (labels == nullptr) return nullptr;
    for (int d = 0; d < pLUT->nDimensions; ++d) {
        labels[d] = KSLUTGetLabel(pLUT, d);
        if (labels[d] == nullptr && pLUT->papszLabels[d] != nullptr) {
            freeLabels(labels, pLUT->nDimensions);
            return nullptr;
        }
    }
    return labels;
}

int KSLUTGetDimensionFromLabel(const KSLUT* pLUT, const char* pszLabel, int* pnDimension) {
    if (pLUT == nullptr || pszLabel == nullptr) return kTableFailed;
    for (int d = 0; d < pLUT->nDimensions; ++d) {
        if (pLUT->papszLabels[d] == nullptr || strcasecmp(pLUT->papszLabels[d], pszLabel) != 0) continue;
        if (pnDimension != nullptr) *pnDimension = d;
        return kTableOk;
    }
    return kTableFailed;
}

// ---- coordinates ----

int KSLUTSetCoord(KSLUT* pLUT, int nDimension, int nIndex, float fCoord) {
    if (!hasCoord(pLUT, nDimension, nIndex)) return kTableFailed;
    pLUT->papafCoords[nDimension][nIndex] = fCoord;
    return kTableOk;
}

int KSLUTGetCoord(const KSLUT* pLUT, int nDimension, int nIndex, float* pfCoord) {
    if (!hasCoord(pLUT, nDimension, nIndex)) return kTableFailed;
    if (pfCoord != nullptr) *pfCoord = pLUT->papafCoords[nDimension][nIndex];
    return kTableOk;
}

int KSLUTSetCoords(KSLUT* pLUT, int nDimension, const float* pafCoords) {
    if (!hasDimension(pLUT, nDimension)) return kTableFailed;
    for (int i = 0; i < pLUT->panSizes[nDimension]; ++i) {
        if (KSLUTSetCoord(pLUT, nDimension, i, pafCoords == nullptr ? 0.0F : pafCoords[i]) != kTableOk) {
            return kTableFailed;
        }
    }
    return kTableOk;
}

int KSLUTGetCoords(const KSLUT* pLUT, int nDimension, float* pafCoords) {
    if (!hasCoords(pLUT, nDimension)) return kTableFailed;
    const float* coords = pLUT->papafCoords[nDimension];
    if (pafCoords != nullptr && pafCoords != coords) std::copy_n(coords, pLUT->panSizes[nDimension], pafCoords);
    return kTableOk;
}

int KSLUTSetAllCoords(KSLUT* pLUT, const float* const* papafCoords) {
    return forEachDimension(
        pLUT, [=](int d) { return KSLUTSetCoords(pLUT, d, papafCoords == nullptr ? nullptr : papafCoords[d]); });
}

int KSLUTGetAllCoords(const KSLUT* pLUT, float* const* papafCoords) {
    if (pLUT == nullptr) return kTableFailed;
    if (papafCoords == nullptr) return kTableOk;
    return forEachDimension(pLUT, [=](int d) { return KSLUTGetCoords(pLUT, d, papafCoords[d]); });
}

int KSLUTSetCoordRange(KSLUT* pLUT, int nDimension, float fMin, float fMax) {
    if (!hasCoords(pLUT, nDimension)) return kTableFailed;
    float* coords = pLUT->papafCoords[nDimension];
    const int size = pLUT->panSizes[nDimension];
    coords[0] = fMin;
    for (int k = 1; k < size; ++k) {
        coords[k] = (static_cast<float>(k) * (fMax - fMin)) / static_cast<float>(size - 1) + fMin;
    }
    return kTableOk;
}

int KSLUTSetCoordRanges(KSLUT* pLUT, const float* pafMin, const float* pafMax) {
    const bool isGiven = pafMin != nullptr && pafMax != nullptr;
    return forEachDimension(pLUT, [=](int d) {
        return KSLUTSetCoordRange(pLUT, d, isGiven ? pafMin[d] : 0.0F, isGiven ? pafMax[d] : 0.0F);
    });
}

// ---- the whole table ----

int KSLUTGetDimensions(const KSLUT* pLUT, int* pnDimensions) {
    if (pLUT == nullptr) return kTableFailed;
    if (pnDimensions != nullptr) *pnDimensions = pLUT->nDimensions;
    return kTableOk;
}

int KSLUTSetElementSize(KSLUT* pLUT, int nElementSize) {
    if (pLUT == nullptr || nElementSize < 1) return kTableFailed;
    pLUT->nElementSize = nElementSize;
    return kTableOk;
}

int KSLUTGetElementSize(const KSLUT* pLUT, int* pnElementSize) {
    if (pLUT == nullptr) return kTableFailed;
    if (pnElementSize != nullptr) *pnElementSize = pLUT->nElementSize;
    return kTableOk;
}

int KSLUTIsValid(const KSLUT* pLUT) {
    if (pLUT == nullptr || pLUT->nDimensions < 1) return kTableFailed;
    return tableStatus(std::all_of(pLUT->panSizes, pLUT->panSizes + pLUT->nDimensions, [](int n) { return n >= 1; }));
}

int KSLUTGetNumElems(const KSLUT* pLUT, int64_t* pnElems) {
    if (KSLUTIsValid(pLUT) != kTableOk) return kTableFailed;
    std::int64_t elements = 1;
    for (int d = 0; d < pLUT->nDimensions; ++d) {
        if (__builtin_mul_overflow(elements, pLUT->panSizes[d], &elements)) return kTableFailed;
    }
    if (pnElems != nullptr) *pnElems = elements;
    return kTableOk;
}

int KSLUTGetElemDist(const KSLUT* pLUT, int64_t* panDist) {
    if (KSLUTGetNumElems(pLUT, nullptr) != kTableOk) return kTableFailed;
    if (panDist == nullptr) return kTableOk;
    std::int64_t distance = 1;
    for (int d = pLUT->nDimensions - 1; d >= 0; --d) {
        panDist[d] = distance;
        distance *= pLUT->panSizes[d];
    }
    return kTableOk;
}

int KSLUTGetBlockSize(const KSLUT* pLUT, int64_t* pnBlocks) {
    constexpr int kBlockBytes = 512;
    constexpr int kSpareBlocks = 2;
    std::int64_t bytes = 0;
    if (KSLUTGetNumElems(pLUT, &bytes) != kTableOk) return kTableFailed;
    if (__builtin_mul_overflow(bytes, pLUT->nElementSize, &bytes)) return kTableFailed;
    if (__builtin_add_overflow(bytes, kBlockBytes - 1, &bytes)) return kTableFailed;
    if (pnBlocks != nullptr) *pnBlocks = bytes / kBlockBytes + kSpareBlocks;
    return kTableOk;
}

int KSLUTEPS(const KSLUT* pLUT, float fFraction, int64_t* pnElems, const int64_t* pnMaxElems) {
    constexpr std::int64_t kMostBytes = 20 << 20;
    constexpr double kLeast = std::numeric_limits<int>::min();
    if (pLUT == nullptr || pLUT->nElementSize < 1) return kTableFailed;
    int isLimited = 0;
    const double share = static_cast<double>(IMPGetMemory(&isLimited)) * static_cast<double>(fFraction);
    const std::int64_t bytes =
        share < static_cast<double>(kMostBytes) ? static_cast<std::int64_t>(std::max(share, kLeast)) : kMostBytes;
    std::int64_t elements = isLimited == 0 ? 1 : bytes / pLUT->nElementSize;
    if (pnMaxElems != nullptr) elements = std::min(elements, *pnMaxElems);
    if (pnElems != nullptr) *pnElems = elements;
    return kTableOk;
}
