// Band maps and wavelengths: selecting bands, and converting between bands, channels and wavelengths.
#include <kslib/ksdatset.h>

#include <kslib/ksld.h>

#include <cstdint>

#include "ksdatset/bandlist.hpp"
#include "support/heap.hpp"
#include "support/report.hpp"
#include "support/wavelength.hpp"

using namespace ks;

namespace {

constexpr const char* kSelectLabel = "KSSelectBands()";

// ---- selection ----

/// Which centres an interval lets through.
struct WavelengthFilter {
    enum Mode { kAll, kInclude, kExclude } mode = kAll;
    float low = 0.0f;
    float high = 0.0f;

    bool passes(float centre) const {
        if (mode == kAll) return true;
        const bool inside = low <= centre && centre <= high;
        return mode == kInclude ? inside : !inside;
    }
};

/// The signs of the interval choose the mode.
int interpretInterval(const float* interval, WavelengthFilter& filter) {
    if (interval == nullptr) return kOk;
    const float first = interval[0];
    const float second = interval[1];
    if (first >= 0.0f && second >= 0.0f) {
        if (first > second) {
            return KS_FAIL("%s: Both elements of pafWlenInt are positive\n         but element 0 > element 1.\n",
                           kSelectLabel);
        }
        filter = {WavelengthFilter::kInclude, first, second};
        return kOk;
    }
    if ((first > 0.0f && second < 0.0f) || (first < 0.0f && second > 0.0f)) {
        return KS_FAIL("%s: pafWlenInt elements not both positive nor\n         both negative\n.", kSelectLabel);
    }
    if (first <= 0.0f && second <= 0.0f) {
        if (first < second) {
            return KS_FAIL(
                "%s: Both elements of pafWlenInt are negative\n         but abs(element 0) > abs(element 1).\n",
                kSelectLabel);
        }
        filter = {WavelengthFilter::kExclude, -first, -second};
        return kOk;
    }
    return KS_FAIL("%s: The elements of pafWlenInt are neither both\n         negative nor both positive\n",
                   kSelectLabel);
}

bool isGood(int quality) { return quality == KS_BQ_PLOT || quality == KS_BQ_BMASK; }

/// The selected bands, in a list that grows as they are found.
class BandList {
public:
    [[nodiscard]] int append(int band) {
        if (count_ % kStep == 0) {
            int* grown = reallocateArray(bands_.get(), std::int64_t{count_} + kStep);
            if (grown == nullptr) return kFailed;
            static_cast<void>(bands_.release());
            bands_.reset(grown);
        }
        bands_[static_cast<std::size_t>(count_++)] = band;
        return kOk;
    }
    int count() const { return count_; }
    int& operator[](int i) { return bands_[static_cast<std::size_t>(i)]; }
    int* release() { return bands_.release(); }

private:
    static constexpr int kStep = 10;
    Heap<int[]> bands_;
    int count_ = 0;
};

struct BandWavelength {
    int band;
    float centre;
};

int compareBandWavelengths(const void* first, const void* second) {
    return KSWlenComp(static_cast<const BandWavelength*>(first)->centre,
                      static_cast<const BandWavelength*>(second)->centre);
}

int sortByWavelength(const KSSensor& sensor, BandList& list) {
    Heap<BandWavelength[]> pairs = allocateArray<BandWavelength>(list.count());
    if (!pairs) return KS_FAIL("%s: paBandWlen == NULL,          error in HMalloc ().\n", kSelectLabel);
    const std::size_t count = static_cast<std::size_t>(list.count());
    for (std::size_t i = 0; i < count; ++i) {
        const int band = list[static_cast<int>(i)];
        pairs[i] = {band, sensor.pBandResp[band].fCentre};
    }
    ORV_qsort(pairs.get(), count, sizeof(BandWavelength), compareBandWavelengths);
    for (std::size_t i = 0; i < count; ++i) list[static_cast<int>(i)] = pairs[i].band;
    return kOk;
}

/// Reports a band whose response is not known; the same words serve every conversion.
void reportUnknownResponse(const char* label, int band) {
    IMPError(83, 0, "%s: pDataSet->Sensor.pBandResp[%d].eRespType  == KS_RT_UNKNOWN\n", label, band);
}

}  // namespace

extern "C" {

int KSWlenComp(float fWlen1, float fWlen2) {
    // Only the low 32 bits count: a negative wavelength is above every positive one.
    const auto first = static_cast<std::uint32_t>(thousandths(fWlen1));
    const auto second = static_cast<std::uint32_t>(thousandths(fWlen2));
    return first > second ? 1 : first < second ? -1 : 0;
}

int KSSelectBands(const KSDataSet* pDataSet, const float* pafWlenInt, int bGoodOnly, int nNumChans, const int* panChans,
                  int* pnNumBands, int** ppanBandMap) {
    if (pDataSet == nullptr) return KS_FAIL("%s: pDataSet == NULL\n", kSelectLabel);
    WavelengthFilter filter;
    if (interpretInterval(pafWlenInt, filter) != kOk) return kFailed;

    const KSSensor& sensor = pDataSet->Sensor;
    BandList selected;
    for (int band = 0; band < sensor.nNumBands; ++band) {
        const bool known = respType(sensor, band) != KS_RT_UNKNOWN;
        if (known && !filter.passes(sensor.pBandResp[band].fCentre)) continue;
        if (bGoodOnly != 0 && sensor.peBandQual != nullptr && !isGood(sensor.peBandQual[band])) continue;
        if (panChans != nullptr) {
            if (pDataSet->pBandRefs == nullptr) continue;
            if (!contains(panChans, nNumChans, pDataSet->pBandRefs[band].nChan)) continue;
        }
        if (selected.append(band) != kOk) return kFailed;
    }
    // The last band speaks for all: files give wavelengths to every band or to none.
    if (selected.count() > 0 && respType(sensor, sensor.nNumBands - 1) != KS_RT_UNKNOWN) {
        if (sortByWavelength(sensor, selected) != kOk) return kFailed;
    }
    *pnNumBands = selected.count();
    *ppanBandMap = selected.release();
    return kOk;
}

int KSChanToBand(const KSDataSet* pDataSet, int nChan) {
    constexpr int kNoBand = -1;
    if (pDataSet == nullptr) return IMPError(83, 0, "%s: pDataSet == NULL.\n", "KSChanToBand ()"), kNoBand;
    for (int band = 0; pDataSet->pBandRefs != nullptr && band < pDataSet->Sensor.nNumBands; ++band) {
        if (pDataSet->pBandRefs[band].nChan == nChan) return band;
    }
    return kNoBand;
}

int KSBandToChan(const KSDataSet* pDataSet, int nBandInd) {
    constexpr const char* kLabel = "KSBandToChan ()";
    constexpr int kNoChannel = -1;
    if (pDataSet == nullptr) return IMPError(83, 0, "%s: pDataSet == NULL.\n", kLabel), kNoChannel;
    if (nBandInd < 0 || nBandInd >= pDataSet->Sensor.nNumBands || pDataSet->pBandRefs == nullptr) {
        return IMPError(83, 0, "%s: nBandInd is outside of valid range.\n", kLabel), kNoChannel;
    }
    return pDataSet->pBandRefs[nBandInd].nChan;
}

float KSBandToWlen(const KSDataSet* pDataSet, int nBandInd) {
    constexpr const char* kLabel = "KSBandToWlen ()";
    constexpr float kNoWavelength = -1.0f;
    if (pDataSet == nullptr) return IMPError(83, 0, "%s: pDataSet == NULL.\n", kLabel), kNoWavelength;
    if (nBandInd < 0 || nBandInd >= pDataSet->Sensor.nNumBands) {
        return IMPError(83, 0, "%s: nBandInd is outside of valid range.\n", kLabel), kNoWavelength;
    }
    if (respType(pDataSet->Sensor, nBandInd) == KS_RT_UNKNOWN) {
        return reportUnknownResponse(kLabel, nBandInd), kNoWavelength;
    }
    return pDataSet->Sensor.pBandResp[nBandInd].fCentre;
}

int KSWlenToBand(const KSDataSet* pDataSet, float fWlen) {
    constexpr const char* kLabel = "KSWlenToBand ()";
    constexpr int kNoBand = -1;
    if (pDataSet == nullptr) return IMPError(83, 0, "%s: pDataSet == NULL.\n", kLabel), kNoBand;
    for (int band = 0; band < pDataSet->Sensor.nNumBands; ++band) {
        if (respType(pDataSet->Sensor, band) == KS_RT_UNKNOWN) return reportUnknownResponse(kLabel, band), kNoBand;
        if (KSWlenComp(pDataSet->Sensor.pBandResp[band].fCentre, fWlen) == 0) return band;
    }
    return kNoBand;
}

int KSEvalBandMapFmt(const KSDataSet* pDataSet, int eStorage, int* panBandMap, int* pnNumBands) {
    constexpr const char* kLabel = "KSEvalBandMapFmt ()";
    if (pDataSet == nullptr) return KS_FAIL("%s: pDataSet == NULL.\n", kLabel);
    if (pDataSet->pBandRefs == nullptr && pDataSet->Sensor.nNumBands > 0) {
        return KS_FAIL("%s: pDataSet->pBandRefs == NULL && pDataSet->Sensor.nNumBands > 0.\n", kLabel);
    }
    int count = 0;
    for (int band = 0; band < pDataSet->Sensor.nNumBands; ++band) {
        if (pDataSet->pBandRefs[band].eStorage != eStorage) continue;
        if (panBandMap != nullptr) panBandMap[count] = band;
        ++count;
    }
    *pnNumBands = count;
    return kOk;
}

int KSDummyBandResp(KSDataSet* pDataSet) {
    // 1 in every case: callers never took it for a failure.
    constexpr int kDone = 1;
    constexpr const char* kLabel = "KSDummyBandResp ()";
    if (pDataSet == nullptr) return IMPError(83, 0, "%s: pDataSet == NULL.\n", kLabel), kDone;
    KSSensor& sensor = pDataSet->Sensor;
    if (sensor.pBandResp == nullptr) return IMPError(83, 0, "%s: pDataSet->Sensor.pBandResp == NULL.\n", kLabel), kDone;
    for (int band = 0; band < sensor.nNumBands; ++band) {
        sensor.pBandResp[band].eRespType = KS_RT_BOX;
        sensor.pBandResp[band].fCentre = static_cast<float>(band + 1);
        sensor.pBandResp[band].fFWHM = 1.0f;
    }
    return kDone;
}

}  // extern "C"
