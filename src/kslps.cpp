// The number of lines that a reader of large images holds at a time.
#include <kslib/kslps.h>

#include <kslib/ksdatset.h>

#include <algorithm>
#include <cstdint>

#include "support/report.hpp"

using namespace ks;

namespace {

// Above this, more lines at a time do not make reading any faster.
constexpr std::int64_t kLargestBudget = 20 << 20;

__extension__ typedef __int128 Wide;  // sums of products of three ints

int check(const KSDataSet* dataSet, int samples, int bands, int use, float fraction, int most) {
    constexpr const char* label = "KSLPS()";
    if (dataSet == nullptr) return KS_FAIL("%s: pDataSet == NULL.\n", label);
    if (samples < 1) return KS_FAIL("%s: nNumXSamples <= 0.\n", label);
    if (bands < 1) return KS_FAIL("%s: nNumSelBands <= 0.\n", label);
    if (use != KS_USE_EX && use != KS_USE_IM && use != KS_USE_BOTH) {
        return KS_FAIL("%s: Unrecognized value for eWinUse.\n", label);
    }
    if (fraction > 1.0F || fraction < 0.0F) return KS_FAIL("%s: fFrac > 1.0 || fFrac < 0.0.\n", label);
    if (most < 1) return KS_FAIL("%s: nMaxLPS < 1.\n", label);
    return kOk;
}

std::int64_t budgetOf(int memory, float fraction) {
    const double share = static_cast<double>(memory) * static_cast<double>(fraction);
    return share < static_cast<double>(kLargestBudget) ? static_cast<std::int64_t>(share) : kLargestBudget;
}

}  // namespace

int KSLPS(const KSDataSet* pDataSet, int nNumXSamples, int nNumSelBands, int eWinUse, int bFloatSamples, float fFrac,
          int nMaxLPS, int* pnLPS) {
    if (check(pDataSet, nNumXSamples, nNumSelBands, eWinUse, fFrac, nMaxLPS) != kOk) return kFailed;
    int isLimited = 0;
    const std::int64_t budget = budgetOf(IMPGetMemory(&isLimited), fFrac);
    if (isLimited == 0) {
        *pnLPS = 1;
        return kOk;
    }
    const Wide samples = nNumXSamples;
    const Wide bands = nNumSelBands;
    Wide fixed = 0;
    Wide perLine = 0;
    if (eWinUse != KS_USE_EX) {  // the codebook, and an index and a row start
        fixed = 4 * (pDataSet->VQubeInfo.nCodeVectors * (bands + 1) + bands);
        perLine += 2 * samples + 4;
    }
    if (eWinUse != KS_USE_IM) perLine += samples * bands * (bFloatSamples != 0 ? 4 : 8) + 4;
    const Wide lines = (budget - fixed) / perLine;
    *pnLPS = static_cast<int>(std::max<Wide>(std::min<Wide>(lines, nMaxLPS), 1));
    return kOk;
}
