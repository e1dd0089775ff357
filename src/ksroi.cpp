// Regions of interest: records, which samples of a window they cover, and bitmaps of arbitrary pixels.
// Coordinates are computed in 64 bits, so that no sum of a caller's offsets and sizes can overflow.
#include <kslib/ksroi.h>

#include <kslib/ksld.h>
#include <kslib/kswinex.h>
#include <kslib/kswinim.h>

#include <algorithm>
#include <cstdint>
#include <limits>

#include "support/heap.hpp"
#include "support/narrow.hpp"
#include "support/region.hpp"
#include "support/report.hpp"

using namespace ks;

namespace {

void reset(KSROI& region) { region = {KS_ROI_UNKNOWN, -1, -1, -1, -1, nullptr, -1}; }

/// Rows and columns from first to last, both included; empty when the first lies behind the last.
struct Extent {
    std::int64_t x0;
    std::int64_t y0;
    std::int64_t x1;
    std::int64_t y1;

    bool holds(std::int64_t x, std::int64_t y) const { return x0 <= x && x <= x1 && y0 <= y && y <= y1; }
    Extent clippedTo(const Extent& other) const {
        return {std::max(x0, other.x0), std::max(y0, other.y0), std::min(x1, other.x1), std::min(y1, other.y1)};
    }
};

Extent rectangle(std::int64_t x, std::int64_t y, std::int64_t width, std::int64_t height) {
    return {x, y, x + width - 1, y + height - 1};
}

Extent extentOf(const KSROI& region) {
    if (region.eROIType != KS_ROI_POINT) return rectangle(region.nXOff, region.nYOff, region.nXSize, region.nYSize);
    const std::int64_t half = region.nXSize / 2;
    return {region.nXOff - half, region.nYOff - half, region.nXOff + half, region.nYOff + half};
}

bool isKnownType(const KSROI& region) {
    return region.eROIType == KS_ROI_POINT || region.eROIType == KS_ROI_RECTANGLE || region.eROIType == KS_ROI_BITMAP;
}

bool isEvenPoint(const KSROI& region) { return region.eROIType == KS_ROI_POINT && region.nXSize % 2 == 0; }

// ---- bitmaps ----

std::int64_t bitmapBytes(const KSROI& region) { return (std::int64_t{region.nXSize} * region.nYSize + 7) / 8; }

/// Where a pixel's bit is; a region without a bitmap has none, nor has a pixel outside of it.
struct Bit {
    unsigned char* byte;
    unsigned mask;
};

Bit bitOf(const KSROI& region, std::int64_t x, std::int64_t y) {
    if (region.pbyBitmap == nullptr || x < 0 || x >= region.nXSize || y < 0 || y >= region.nYSize) return {nullptr, 0};
    const std::int64_t index = y * region.nXSize + x;
    return {region.pbyBitmap + index / 8, 0x80U >> (index % 8)};
}

bool isSet(const KSROI& region, std::int64_t x, std::int64_t y) {
    const Bit bit = bitOf(region, x, y);
    return bit.byte != nullptr && (*bit.byte & bit.mask) != 0;
}

void set(KSROI& region, std::int64_t x, std::int64_t y) {
    if (const Bit bit = bitOf(region, x, y); bit.byte != nullptr) {
        *bit.byte = static_cast<unsigned char>(*bit.byte | bit.mask);
    }
}

/// Sets the pixels of a source region in the consolidated one, as far as they lie in it.
void draw(const KSROI& source, KSROI& consolidated) {
    const Extent pixels = extentOf(source).clippedTo(extentOf(consolidated));
    for (std::int64_t y = pixels.y0; y <= pixels.y1; ++y) {
        for (std::int64_t x = pixels.x0; x <= pixels.x1; ++x) {
            if (source.eROIType != KS_ROI_BITMAP || isSet(source, x - source.nXOff, y - source.nYOff)) {
                set(consolidated, x - consolidated.nXOff, y - consolidated.nYOff);
            }
        }
    }
}

/// The box around all regions. A point spans its size from its first pixel, which for an even size is one less than
/// what it covers.
Extent boxAround(const KSROI* regions, int count) {
    constexpr std::int64_t kFar = std::numeric_limits<std::int64_t>::max();
    Extent box = {kFar, kFar, -kFar, -kFar};
    for (int i = 0; i < count; ++i) {
        const KSROI& region = regions[i];
        Extent extent = extentOf(region);
        if (region.eROIType == KS_ROI_POINT) extent = rectangle(extent.x0, extent.y0, region.nXSize, region.nXSize);
        box = {std::min(box.x0, extent.x0), std::min(box.y0, extent.y0), std::max(box.x1, extent.x1),
               std::max(box.y1, extent.y1)};
    }
    return box;
}

// ---- windows ----

/// First pixel and sample intervals of a window.
struct Grid {
    int xOff;
    int yOff;
    int xInterval;
    int yInterval;
};

Grid gridOf(const KSWinEx& window) {
    return {window.nXOff, window.nYOff, window.SampDesc.nXSampleInt, window.SampDesc.nYSampleInt};
}

Grid gridOf(const KSWinIM& window) { return {window.nXOff, window.nYOff, window.nXSampleInt, window.nYSampleInt}; }

int checkGrid(int xInterval, int yInterval, const char* label) {
    if (xInterval <= 0) return KS_FAIL("%s: nXSampleInt <= 0.\n", label);
    if (yInterval <= 0) return KS_FAIL("%s: nYSampleInt <= 0.\n", label);
    return kOk;
}

int checkRegion(const KSROI* region, const char* label) {
    if (region == nullptr) return KS_FAIL("%s: pROI == NULL\n", label);
    if (!isKnownType(*region)) return KS_FAIL("%s: Unsupported ROI type.\n", label);
    return kOk;
}

int checkBitmapRegion(const KSROI* region, const char* label) {
    if (region == nullptr) return KS_FAIL("%s: pROI == NULL\n", label);
    if (region->eROIType != KS_ROI_BITMAP) return KS_FAIL("%s: ROI is not of type bitmap\n", label);
    return kOk;
}

}  // namespace

KSROI* KSCreateROI(void) {
    Heap<KSROI> region = allocateZeroed<KSROI>();
    if (!region) {
        KS_FAIL("%s: pRetVal == NULL, HMalloc () failed.\n", "KSCreateROI ()");
        return nullptr;
    }
    reset(*region);
    return region.release();
}

void KSFreeROI(KSROI* pROI) {
    if (pROI == nullptr) return;
    freeAndClear(pROI->pbyBitmap);
    std::free(pROI);
}

KSROI* KSAddROI(KSROI* paROI, int nNumROIs) {
    const std::int64_t count = std::max(nNumROIs, 0);
    KSROI* grown = reallocateArray(count == 0 ? nullptr : paROI, count + 1);
    if (grown == nullptr) {
        KS_FAIL("%s: paRetVal == NULL, HMalloc () or KSRealloc () failed.\n", "KSAddROI ()");
        return nullptr;
    }
    reset(grown[count]);
    return grown;
}

void KSFreeROIList(KSROI* paROI, int nNumROIs) {
    if (paROI == nullptr) return;
    for (int i = 0; i < nNumROIs; ++i) freeAndClear(paROI[i].pbyBitmap);
    std::free(paROI);
}

int KSROIWin(const KSROI* pROI, int nXOff, int nYOff, int nNumXSamples, int nNumYSamples, int nXSampleInt,
             int nYSampleInt, int* pbOverlap, int* pnXStart, int* pnYStart, int* pnXEnd, int* pnYEnd) {
    constexpr const char* label = "KSROIWin ()";
    if (checkRegion(pROI, label) != kOk) return kFailed;
    if (isEvenPoint(*pROI)) {
        return KS_FAIL("%s: Point neighbourhood X-dimension is not an odd number of pixels.\n", label);
    }
    if (checkGrid(nXSampleInt, nYSampleInt, label) != kOk) return kFailed;
    // The whole interval of the last sample counts.
    const Extent window =
        rectangle(nXOff, nYOff, std::int64_t{nNumXSamples} * nXSampleInt, std::int64_t{nNumYSamples} * nYSampleInt);
    const Extent region = extentOf(*pROI);
    if (region.x0 > window.x1 || region.x1 < window.x0 || region.y0 > window.y1 || region.y1 < window.y0) {
        *pbOverlap = 0;
        return kOk;
    }
    const Extent covered = region.clippedTo(window);
    *pbOverlap = 1;
    *pnXStart = narrow((covered.x0 - nXOff) / nXSampleInt);
    *pnYStart = narrow((covered.y0 - nYOff) / nYSampleInt);
    *pnXEnd = narrow((covered.x1 - nXOff) / nXSampleInt);
    *pnYEnd = narrow((covered.y1 - nYOff) / nYSampleInt);
    return kOk;
}

int KSROIWinEx(const KSROI* pROI, const KSWinEx* pWinEx, int* pbOverlap, int* pnXStart, int* pnYStart, int* pnXEnd,
               int* pnYEnd) {
    if (pWinEx == nullptr) return KS_FAIL("%s: pWinEx == NULL\n", "KSROIWinEx ()");
    const Grid grid = gridOf(*pWinEx);
    return KSROIWin(pROI, grid.xOff, grid.yOff, pWinEx->nNumXSamples, pWinEx->nNumYSamples, grid.xInterval,
                    grid.yInterval, pbOverlap, pnXStart, pnYStart, pnXEnd, pnYEnd);
}

int KSROIWinIM(const KSROI* pROI, const KSWinIM* pWinIM, int* pbOverlap, int* pnXStart, int* pnYStart, int* pnXEnd,
               int* pnYEnd) {
    if (pWinIM == nullptr) return KS_FAIL("%s: pWinIM == NULL\n", "KSROIWinIM ()");
    const Grid grid = gridOf(*pWinIM);
    return KSROIWin(pROI, grid.xOff, grid.yOff, pWinIM->nNumXSamples, pWinIM->nNumYSamples, grid.xInterval,
                    grid.yInterval, pbOverlap, pnXStart, pnYStart, pnXEnd, pnYEnd);
}

int KSInROIWin(const KSROI* pROI, int nXOff, int nYOff, int nXSampleInt, int nYSampleInt, int nXSample, int nYSample,
               int* pbInROI) {
    constexpr const char* label = "KSInROIWin ()";
    if (checkRegion(pROI, label) != kOk) return kFailed;
    if (isEvenPoint(*pROI)) {
        return KS_FAIL("%s: Point neighbourhood dimension is not\nan odd number of pixels.\n", label);
    }
    if (checkGrid(nXSampleInt, nYSampleInt, label) != kOk) return kFailed;
    const std::int64_t x = nXOff + std::int64_t{nXSample} * nXSampleInt;
    const std::int64_t y = nYOff + std::int64_t{nYSample} * nYSampleInt;
    const bool isInside = extentOf(*pROI).holds(x, y);
    *pbInROI = isInside && (pROI->eROIType != KS_ROI_BITMAP || isSet(*pROI, x - pROI->nXOff, y - pROI->nYOff)) ? 1 : 0;
    return kOk;
}

int KSInROIWinEx(const KSROI* pROI, const KSWinEx* pWinEx, int nXSample, int nYSample, int* pbInROI) {
    if (pWinEx == nullptr) return KS_FAIL("%s: pWinEx == NULL\n", "KSInROIWinEx ()");
    const Grid grid = gridOf(*pWinEx);
    return KSInROIWin(pROI, grid.xOff, grid.yOff, grid.xInterval, grid.yInterval, nXSample, nYSample, pbInROI);
}

int KSInROIWinIM(const KSROI* pROI, const KSWinIM* pWinIM, int nXSample, int nYSample, int* pbInROI) {
    if (pWinIM == nullptr) return KS_FAIL("%s: pWinIM == NULL\n", "KSInROIWinIM ()");
    const Grid grid = gridOf(*pWinIM);
    return KSInROIWin(pROI, grid.xOff, grid.yOff, grid.xInterval, grid.yInterval, nXSample, nYSample, pbInROI);
}

KSROI* KSConsolidateROIs(const KSROI* paROI, int nNumROIs, KSROI* pConsROI) {
    constexpr const char* label = "KSConsolidateROIs ()";
    if (paROI == nullptr || nNumROIs <= 0) {
        KS_FAIL("%s: paROI == NULL || nNumROIs == 0 \n", label);
        return nullptr;
    }
    // Owned here in either case: an unknown type among the regions frees the caller's record as well.
    Region consolidated;
    if (pConsROI != nullptr) {
        if (pConsROI->eROIType != KS_ROI_BITMAP) {
            KS_FAIL("%s: pConsROI->eROIType != KS_ROI_BITMAP\n", label);
            return nullptr;
        }
        if (pConsROI->pbyBitmap == nullptr) {
            KS_FAIL("%s: pConsROI->pbyBitmap == NULL\n", label);
            return nullptr;
        }
        consolidated.reset(pConsROI);
    } else {
        consolidated.reset(KSCreateROI());
        if (!consolidated) return nullptr;
        const Extent box = boxAround(paROI, nNumROIs);
        consolidated->eROIType = KS_ROI_BITMAP;
        consolidated->nXOff = narrow(box.x0);
        consolidated->nYOff = narrow(box.y0);
        consolidated->nXSize = narrow(box.x1 - box.x0 + 1);
        consolidated->nYSize = narrow(box.y1 - box.y0 + 1);
        if (KSAllocROIBitmap(consolidated.get()) != kOk) {
            KS_FAIL("%s: KSAllocROIBitmap() failed.\n", label);
            return consolidated.release();
        }
    }
    for (int i = 0; i < nNumROIs; ++i) {
        if (!isKnownType(paROI[i])) {
            KS_FAIL("%s: Unrecognized ROI type.\n", label);
            return nullptr;
        }
        draw(paROI[i], *consolidated);
    }
    return consolidated.release();
}

int KSAllocROIBitmap(KSROI* pROI) {
    constexpr const char* label = "KSAllocROIBitmap()";
    if (checkBitmapRegion(pROI, label) != kOk) return kFailed;
    pROI->pbyBitmap = allocateZeroedArray<unsigned char>(bitmapBytes(*pROI)).release();
    if (pROI->pbyBitmap == nullptr) return KS_FAIL("%s: pROI->pbyBitmap == NULL, HCalloc() failed\n", label);
    return kOk;
}

void KSSetROIBit(KSROI* pROI, int nX, int nY) { set(*pROI, nX, nY); }

void KSClrROIBit(KSROI* pROI, int nX, int nY) {
    if (const Bit bit = bitOf(*pROI, nX, nY); bit.byte != nullptr) {
        *bit.byte = static_cast<unsigned char>(*bit.byte & ~bit.mask);
    }
}

int KSGetROIBit(const KSROI* pROI, int nX, int nY) { return isSet(*pROI, nX, nY) ? 1 : 0; }

int KSBitmapROIBounds(const KSROI* pROI, int* pnFirstRow, int* pnLastRow) {
    constexpr const char* label = "KSBitmapROIBounds ()";
    if (checkBitmapRegion(pROI, label) != kOk) return kFailed;
    if (pROI->pbyBitmap == nullptr) return KS_FAIL("%s: pROI->pbyBitmap  == NULL\n", label);
    const bool hasPixels = pROI->nXSize > 0 && pROI->nYSize > 0;
    const unsigned char* const begin = pROI->pbyBitmap;
    const unsigned char* const end = begin + (hasPixels ? bitmapBytes(*pROI) : 0);
    const auto isNotZero = [](unsigned char byte) { return byte != 0; };
    const unsigned char* const first = std::find_if(begin, end, isNotZero);
    if (first == end) {
        *pnFirstRow = 0;
        *pnLastRow = pROI->nYSize - 1;
        return kOk;
    }
    const unsigned char* last = end - 1;
    while (*last == 0) --last;
    // Byte by byte: a row or two more than needed, never one less.
    *pnFirstRow = narrow(8 * (first - begin) / pROI->nXSize);
    *pnLastRow = narrow(std::min((8 * (last - begin) + 8) / pROI->nXSize + 1, std::int64_t{pROI->nYSize} - 1));
    return kOk;
}
