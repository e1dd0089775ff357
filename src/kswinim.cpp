// Windows of code-vector indexes: their life cycle, and their way from and to the cube of a data set.
#include <kslib/kswinim.h>

#include <kslib/ksdatset.h>

#include <algorithm>
#include <cstdint>

#include "support/heap.hpp"
#include "support/report.hpp"
#include "support/vqchannel.hpp"

using namespace ks;

namespace {

constexpr const char* kReadLabel = "KSReadWinIM()";
constexpr const char* kWriteLabel = "KSWriteWinIM()";

/// Samples of a size at an interval; an interval that cannot be divided by leaves none.
int sampleCount(int size, int interval) { return interval > 0 ? size / interval : 0; }

void releaseIndexes(KSWinIM& window) {
    freeAndClear(window.pau16Samples);
    freeAndClear(window.papau16Start);
}

int checkSizes(const KSWinIM* window, const char* label) {
    if (window == nullptr) return KS_DEBUG_FAIL("%s: pWinIM == NULL\n", label);
    if (window->nXSampleInt < 1) return KS_DEBUG_FAIL("%s: pWinIM->nXSampleInt <= 0\n", label);
    if (window->nYSampleInt < 1) return KS_DEBUG_FAIL("%s: pWinIM->nYSampleInt <= 0\n", label);
    if (window->nXSize < 1) return KS_DEBUG_FAIL("%s: pWinIM->nXSize <= 0\n", label);
    if (window->nYSize < 1) return KS_DEBUG_FAIL("%s: pWinIM->nYSize <= 0\n", label);
    return kOk;
}

int allocateFor(KSWinIM& window, const char* label) {
    window.nNumXSamples = sampleCount(window.nXSize, window.nXSampleInt);
    window.nNumYSamples = sampleCount(window.nYSize, window.nYSampleInt);
    if (_KSAllocWinIM(&window) != kOk) return KS_DEBUG_FAIL("%s: _KSAllocWinIM() failed.\n", label);
    return kOk;
}

int allocate(KSWinIM* window, const char* label) {
    if (checkSizes(window, label) != kOk) return kFailed;
    return allocateFor(*window, label);
}

int resize(KSWinIM* window, int xSize, int ySize, int xInterval, int yInterval, const char* label) {
    if (checkSizes(window, label) != kOk) return kFailed;
    if (window->pau16Samples == nullptr) return KS_DEBUG_FAIL("%s: pWinIM->pau16Samples == NULL\n", label);
    if (window->papau16Start == nullptr) return KS_DEBUG_FAIL("%s: pWinIM->papau16Start == NULL\n", label);
    window->nXSize = xSize;
    window->nYSize = ySize;
    window->nXSampleInt = xInterval;
    window->nYSampleInt = yInterval;
    releaseIndexes(*window);
    return allocateFor(*window, label);
}

int checkRead(const KSDataSet* dataSet, const KSWinIM* window) {
    constexpr const char* label = kReadLabel;
    if (dataSet == nullptr) return KS_DEBUG_FAIL("%s: pDataSet == NULL\n", label);
    if (window == nullptr) return KS_DEBUG_FAIL("%s: pWinIM == NULL\n", label);
    if (window->nXSampleInt <= 0) return KS_DEBUG_FAIL("%s: pWinIM->nXSampleInt <= 0\n", label);
    if (window->nYSampleInt <= 0) return KS_DEBUG_FAIL("%s: pWinIM->nYSampleInt <= 0\n", label);
    if (window->nXOff < 0) return KS_DEBUG_FAIL("%s: pWinIM->nXOff < 0\n", label);
    if (window->nYOff < 0) return KS_DEBUG_FAIL("%s: pWinIM->nYOff < 0\n", label);
    if (std::int64_t{window->nXOff} + window->nXSize > dataSet->nXSize) {
        return KS_DEBUG_FAIL("%s: pWinIM->nXOff + pWinIM->nXSize > pDataSet->nXSize\n", label);
    }
    if (std::int64_t{window->nYOff} + window->nYSize > dataSet->nYSize) {
        return KS_DEBUG_FAIL("%s: pWinIM->nYOff + pWinIM->nYSize > pDataSet->nYSize\n", label);
    }
    if (dataSet->VQubeInfo.nCodeVectors == 0) {
        return KS_DEBUG_FAIL("%s: pDataSet->VQubeInfo.nCodeVectors == 0\n", label);
    }
    if (window->nNumXSamples != window->nXSize / window->nXSampleInt) {
        return KS_DEBUG_FAIL("%s: pWinIM->nNumXSamples != pWinIM->nXSize / pWinIM->nXSampleInt\n", label);
    }
    if (window->nNumYSamples != window->nYSize / window->nYSampleInt) {
        return KS_DEBUG_FAIL("%s: pWinIM->nNumYSamples != pWinIM->nYSize / pWinIM->nYSampleInt\n", label);
    }
    if (window->papau16Start == nullptr) return KS_DEBUG_FAIL("%s: pWinIM->papau16Start == NULL\n", label);
    if (window->pau16Samples == nullptr) return KS_DEBUG_FAIL("%s: pWinIM->pau16Samples == NULL\n", label);
    return kOk;
}

int readSubsampled(HostFile* cube, const int hostWindow[4], KSWinIM& window) {
    const std::int64_t width = window.nXSize;
    const std::int64_t elements = width * window.nYSize;
    const Heap<std::uint16_t[]> full = allocateArray<std::uint16_t>(width, std::int64_t{window.nYSize});
    if (!full) return KS_DEBUG_FAIL("%s: pau16Buf == NULL, HMalloc() failed\n", kReadLabel);
    if (VQubeGetIndexMap(cube, hostWindow, full.get()) == 0) {
        return KS_DEBUG_FAIL("%s: ! VQubeGetIndexMap (fpVQ, anWindow, pau16Samples)\n", kReadLabel);
    }
    for (int y = 0; y < window.nNumYSamples; ++y) {
        for (int x = 0; x < window.nNumXSamples; ++x) {
            // Columns start one interval in, so the last one can lie on the next row, or past the end.
            const std::int64_t element =
                std::int64_t{y} * window.nYSampleInt * width + (std::int64_t{x} + 1) * window.nXSampleInt;
            window.papau16Start[y][x] = element < elements ? full[static_cast<std::size_t>(element)] : std::uint16_t{0};
        }
    }
    return kOk;
}

int checkWrite(const KSDataSet* dataSet, const KSWinIM* window) {
    constexpr const char* label = kWriteLabel;
    if (dataSet == nullptr) return KS_DEBUG_FAIL("%s: pDataSet == NULL\n", label);
    if (window == nullptr) return KS_DEBUG_FAIL("%s: pWinIM == NULL\n", label);
    const char* name = dataSet->szFileName;
    if (name == nullptr || *name == '\0') {
        return KS_DEBUG_FAIL("%s: pDataSet->szFileName == NULL or zero-length\n", label);
    }
    if (DKCheck(name) == 0) return KS_DEBUG_FAIL("%s: pDataSet->szFileName ('%s') was not found\n", label, name);
    if (dataSet->nXSize < 1) return KS_DEBUG_FAIL("%s: pDataSet->nXSize < 1\n", label);
    if (dataSet->nYSize < 1) return KS_DEBUG_FAIL("%s: pDataSet->nYSize < 1\n", label);
    if (dataSet->VQubeInfo.nBitsPerIndex < 1) {
        return KS_DEBUG_FAIL("%s: pDataSet->VQubeInfo.nBitsPerIndex < 1\n", label);
    }
    return kOk;
}

int checkWriteWindow(const KSWinIM& window) {
    if (window.pau16Samples == nullptr) return KS_DEBUG_FAIL("%s: pWinIM->pau16Samples == NULL\n", kWriteLabel);
    if (window.nXSampleInt != 1) return KS_DEBUG_FAIL("%s: pWinIM->nXSampleInt != 1\n", kWriteLabel);
    if (window.nYSampleInt != 1) return KS_DEBUG_FAIL("%s: pWinIM->nYSampleInt != 1\n", kWriteLabel);
    return kOk;
}

}  // namespace

extern "C" {

KSWinIM* KSInitWinIM(KSWinIM* pWinIM) {
    *pWinIM = KSWinIM{};
    return pWinIM;
}

int KSAllocWinIM(KSWinIM* pWinIM) {
    const int result = allocate(pWinIM, "KSAllocWinIM()");
    if (result != kOk) KSFreeWinIM(pWinIM);
    return result;
}

int _KSAllocWinIM(KSWinIM* pWinIM) {
    constexpr const char* kLabel = "_KSAllocWinIM()";
    if (pWinIM == nullptr) return KS_DEBUG_FAIL("%s: pWinIM == NULL\n", kLabel);
    Undo undo([pWinIM] { releaseIndexes(*pWinIM); });
    pWinIM->papau16Start = nullptr;
    pWinIM->pau16Samples =
        allocateArray<std::uint16_t>(std::int64_t{pWinIM->nNumXSamples}, std::int64_t{pWinIM->nNumYSamples}).release();
    if (pWinIM->pau16Samples == nullptr) {
        return KS_DEBUG_FAIL("%s: pWinIM->pau16Samples == NULL, HMalloc()  failed\n", kLabel);
    }
    pWinIM->papau16Start = allocateArray<std::uint16_t*>(pWinIM->nNumYSamples).release();
    if (pWinIM->papau16Start == nullptr) {
        return KS_DEBUG_FAIL("%s: pWinIM->papau16Start == NULL, HMalloc() failed\n", kLabel);
    }
    for (int y = 0; y < pWinIM->nNumYSamples; ++y) {
        pWinIM->papau16Start[y] = pWinIM->pau16Samples + std::ptrdiff_t{y} * pWinIM->nNumXSamples;
    }
    undo.dismiss();
    return kOk;
}

int KSResizeWinIM(KSWinIM* pWinIM, int nXSize, int nYSize, int nXSampleInt, int nYSampleInt) {
    const int result = resize(pWinIM, nXSize, nYSize, nXSampleInt, nYSampleInt, "KSResizeWinIM()");
    if (result != kOk) KSFreeWinIM(pWinIM);
    return result;
}

int KSFreeWinIM(KSWinIM* pWinIM) {
    if (pWinIM == nullptr) return KS_DEBUG_FAIL("%s: pWinIM == NULL\n", "KSFreeWinIM()");
    releaseIndexes(*pWinIM);
    return kOk;
}

int KSReadWinIM(const KSDataSet* pDataSet, KSWinIM* pWinIM) {
    if (checkRead(pDataSet, pWinIM) != kOk) return kFailed;
    if (pWinIM->nXSize < 1 || pWinIM->nYSize < 1) return kOk;
    HostFile* cube = firstCubeChannel(*pDataSet);
    if (cube == nullptr) return KS_DEBUG_FAIL("%s: pDataSet->VQubeInfo.papfVQChan[0] == NULL\n", kReadLabel);

    const int hostWindow[4] = {pWinIM->nXOff, pWinIM->nYOff, pWinIM->nXSize, pWinIM->nYSize};
    if (pWinIM->nXSampleInt != 1 || pWinIM->nYSampleInt != 1) return readSubsampled(cube, hostWindow, *pWinIM);
    if (VQubeGetIndexMap(cube, hostWindow, pWinIM->pau16Samples) == 0) {
        return KS_DEBUG_FAIL("%s:! VQubeGetIndexMap (fpVQ, anWindow, pWinIM->pau16Samples\n", kReadLabel);
    }
    return kOk;
}

int KSCopyWinIM(const KSWinIM* pWinIMSrc, KSWinIM* pWinIMDst) {
    constexpr const char* kLabel = "KSCopyWinIM()";
    if (pWinIMSrc == nullptr) return KS_DEBUG_FAIL("%s: pWinIMSrc == NULL\n", kLabel);
    if (pWinIMDst == nullptr) return KS_DEBUG_FAIL("%s: pWinIMDst == NULL\n", kLabel);
    if (pWinIMSrc->nXSampleInt != pWinIMDst->nXSampleInt) {
        return KS_DEBUG_FAIL("%s: X sample intervals for windows differ.\n", kLabel);
    }
    if (pWinIMSrc->nYSampleInt != pWinIMDst->nYSampleInt) {
        return KS_DEBUG_FAIL("%s: Y sample intervals for windows differ.\n", kLabel);
    }
    if (pWinIMDst->nNumYSamples < 1 || pWinIMDst->nNumXSamples < 1) return kOk;
    if (pWinIMDst->papau16Start == nullptr) return KS_DEBUG_FAIL("%s: pWinIMDst->papau16Start == NULL\n", kLabel);
    // A position within the source's rows or columns gives 0; one outside both has no index, which is 0 too.
    for (int y = 0; y < pWinIMDst->nNumYSamples; ++y) {
        std::fill_n(pWinIMDst->papau16Start[y], pWinIMDst->nNumXSamples, std::uint16_t{0});
    }
    return kOk;
}

int KSWriteWinIM(const KSDataSet* pDataSet, const KSWinIM* pWinIM) {
    if (checkWrite(pDataSet, pWinIM) != kOk) return kFailed;
    int result = kOk;
    // A window without width is reported and still handed on: the host has the last word on what it writes.
    if (pWinIM->nXSize < 1) result = KS_DEBUG_FAIL("%s: pWinIM->nXSize < 1\n", kWriteLabel);
    if (checkWriteWindow(*pWinIM) != kOk) return kFailed;
    HostFile* cube = firstCubeChannel(*pDataSet);
    if (cube == nullptr) return KS_FAIL("%s: pDataSet->VQubeInfo.papfVQChan[0] = NULL", kWriteLabel);

    const int wholeImage[4] = {0, 0, pDataSet->nXSize, pDataSet->nYSize};
    const int written = VQubePutIndexMap(fp2filename(cube), wholeImage, pDataSet->VQubeInfo.nCodeVectors,
                                         pWinIM->nXSize, pWinIM->nYSize, pWinIM->pau16Samples);
    return written != 0 ? result : kFailed;
}

}  // extern "C"
