// Encoding windows to index maps and decoding them.
#include <kslib/ksvq.h>

#include <kslib/extra.h>
#include <kslib/kscbk.h>
#include <kslib/kswinex.h>
#include <kslib/kswinim.h>

#include <cstdint>
#include <limits>

#include "ksvq/codetable.hpp"
#include "support/matrix.hpp"
#include "support/report.hpp"

using namespace ks;

namespace {

constexpr Nearest kNothingYet = {std::numeric_limits<double>::infinity(), 0};

/// Whether the best match of one sample goes on counting for the next.
enum class Best { kCarriedOver, kPerSample };

bool hasSamples(const KSWinEx& window) { return window.nNumXSamples > 0 && window.nNumYSamples > 0; }

int checkEncode(const KSCbk* codebook, const KSWinIM* indexes, const KSWinEx* window, const char* label) {
    if (codebook == nullptr) return KS_DEBUG_FAIL("%s: pCbk == NULL\n", label);
    if (indexes == nullptr) return KS_DEBUG_FAIL("%s: pWinIM == NULL\n", label);
    if (window == nullptr) return KS_DEBUG_FAIL("%s: pWinEx == NULL\n", label);
    if (window->SampDesc.nNumBands != codebook->nNumBands) {
        return KS_DEBUG_FAIL("%s: pWinEx->SampDesc.nNumBands != pCbk->nNumBands\n", label);
    }
    // Columns and rows share one text.
    if (window->nNumXSamples > indexes->nNumXSamples || window->nNumYSamples > indexes->nNumYSamples) {
        return KS_DEBUG_FAIL("%s: pWinEx->nNumXSamples > pWinIM->nNumXSamples\n", label);
    }
    return kOk;
}

int encode(const KSCbk* codebook, KSWinIM* indexes, const KSWinEx* window, Best best, const char* label) {
    if (checkEncode(codebook, indexes, window, label) != kOk) return kFailed;
    const Vector bandVector = makeVector(codebook->nNumBands);
    if (!bandVector) return KS_DEBUG_FAIL("%s: pBandVect == NULL\n", label);
    if (!hasSamples(*window)) return kOk;
    if (codebook->nNumVects > 0 && codebook->papafCodeVect == nullptr) {
        return KS_DEBUG_FAIL("%s: pCbk->papafCodeVect == NULL\n", label);
    }
    if (indexes->papau16Start == nullptr) return KS_DEBUG_FAIL("%s: pWinIM->papau16Start == NULL\n", label);
    CodeTable table;
    if (!table.fill(*codebook)) return KS_DEBUG_FAIL("%s: pafCodeTable == NULL, HMalloc() failed\n", label);

    Nearest nearest = kNothingYet;
    for (int y = 0; y < window->nNumYSamples; ++y) {
        for (int x = 0; x < window->nNumXSamples; ++x) {
            if (KSExtractVectWinEx(bandVector.get(), window, x, y) != kOk) {
                return KS_DEBUG_FAIL("%s: KSExtractVectWinEx() failed\n", label);
            }
            if (best == Best::kPerSample) nearest = kNothingYet;
            findNearest(bandVector->ve, table, nearest);
            indexes->papau16Start[y][x] = static_cast<std::uint16_t>(nearest.index);
        }
    }
    return kOk;
}

int checkDecode(const KSCbk* codebook, const KSWinIM* indexes, const KSWinEx* window, const char* label) {
    if (codebook == nullptr) return KS_DEBUG_FAIL("%s: pCbk == NULL\n", label);
    if (indexes == nullptr) return KS_DEBUG_FAIL("%s: pWinIM == NULL\n", label);
    if (window == nullptr) return KS_DEBUG_FAIL("%s: pWinEx == NULL\n", label);
    const KSSampDesc& desc = window->SampDesc;
    if (desc.nXSampleInt != indexes->nXSampleInt) {
        return KS_DEBUG_FAIL("%s: X-sample intervals for the windows differ\n", label);
    }
    if (desc.nYSampleInt != indexes->nYSampleInt) {
        return KS_DEBUG_FAIL("%s: Y-sample intervals for the windows differ\n", label);
    }
    if (desc.nNumBands != codebook->nNumBands) {
        return KS_DEBUG_FAIL("%s: pWinEx->SampDesc.nNumBands (%d) != pCbk->nNumBands (%d)\n", label, desc.nNumBands,
                             codebook->nNumBands);
    }
    for (int j = 0; j < desc.nNumBands; ++j) {
        const bool comparable = desc.panBandMap != nullptr && codebook->panBandMap != nullptr;
        if (!comparable || desc.panBandMap[j] != codebook->panBandMap[j]) {
            return KS_DEBUG_FAIL("%s: Cbk and WinEx have different band maps\n", label);
        }
    }
    return kOk;
}

bool within(std::int64_t position, int count) { return position >= 0 && position < count; }

}  // namespace

extern "C" {

int KSVQEncodeWin(const KSCbk* pCbk, KSWinIM* pWinIM, const KSWinEx* pWinEx) {
    return encode(pCbk, pWinIM, pWinEx, Best::kCarriedOver, "KSVQEncodeWin()");
}

int KSXVQEncodeNearest(const KSCbk* pCbk, KSWinIM* pWinIM, const KSWinEx* pWinEx) {
    return encode(pCbk, pWinIM, pWinEx, Best::kPerSample, "KSXVQEncodeNearest()");
}

int KSVQDecodeWin(const KSCbk* pCbk, const KSWinIM* pWinIM, KSWinEx* pWinEx) {
    constexpr const char* kLabel = "KSVQDecodeWin()";
    if (checkDecode(pCbk, pWinIM, pWinEx, kLabel) != kOk) return kFailed;
    const Vector bandVector = makeVector(pCbk->nNumBands);
    if (!bandVector) return KS_DEBUG_FAIL("%s: pBandVect == NULL\n", kLabel);
    if (!hasSamples(*pWinEx)) return kOk;
    if (pWinIM->nNumXSamples > 0 && pWinIM->nNumYSamples > 0 && pWinIM->papau16Start == nullptr) {
        return KS_DEBUG_FAIL("%s: pWinIM->papau16Start == NULL\n", kLabel);
    }

    for (int y = 0; y < pWinEx->nNumYSamples; ++y) {
        const std::int64_t indexY = std::int64_t{y} + pWinEx->nYOff - pWinIM->nYOff;
        for (int x = 0; x < pWinEx->nNumXSamples; ++x) {
            const std::int64_t indexX = std::int64_t{x} + pWinEx->nXOff - pWinIM->nXOff;
            // Beside the index map there is nothing to decode, whether in one direction or in both.
            if (!within(indexY, pWinIM->nNumYSamples) || !within(indexX, pWinIM->nNumXSamples)) {
                v_zero(bandVector.get());
            } else if (KSExtractVectCbk(bandVector.get(), pCbk, pWinIM->papau16Start[indexY][indexX]) != kOk) {
                return KS_DEBUG_FAIL("%s: KSExtractVectCbk() failed \n", kLabel);
            }
            if (KSInsertVectWinEx(bandVector.get(), pWinEx, x, y) != kOk) {
                return KS_DEBUG_FAIL("%s: KSInsertVectWinEx() failed\n", kLabel);
            }
        }
    }
    return kOk;
}

}  // extern "C"
