// Detached copies of a data set record for a subset of its bands: how a derived data set is described before it is
// created.
#include <kslib/ksdatset.h>

#include <kslib/ksradtrans.h>

#include <algorithm>

#include "ksdatset/bandlist.hpp"
#include "support/heap.hpp"
#include "support/radtrans.hpp"
#include "support/report.hpp"

using namespace ks;

namespace {

/// The bands that a copy takes over, in its own order.
struct BandMap {
    const int* bands;
    int count;
};

/// Frees a copy with its whole chain, also one that is still empty; KSFree alone would leave part of it.
struct DataSetDeleter {
    void operator()(KSDataSet* dataSet) const {
        while (dataSet->nNumRadTrans > 0) KSDelRadTrans(dataSet);
        freeAndClear(dataSet->papRadTransSeq);
        KSFree(dataSet);
    }
};

Heap<float[]> gather(const float* values, BandMap map) {
    if (values == nullptr && map.count > 0) return nullptr;
    Heap<float[]> gathered = allocateArray<float>(map.count);
    for (int i = 0; gathered && i < map.count; ++i) gathered[static_cast<std::size_t>(i)] = values[map.bands[i]];
    return gathered;
}

int duplicateBandRefs(const KSDataSet& source, BandMap map, KSDataSet& copy) {
    if (source.pBandRefs == nullptr || map.count == 0) return kOk;
    Heap<KSBandRef[]> refs = allocateArray<KSBandRef>(map.count);
    if (!refs) return KS_FAIL("%s: pBandRefs == NULL, HMalloc() failed\n", "BandRefsDupl ()");
    for (int i = 0; i < map.count; ++i) refs[static_cast<std::size_t>(i)] = source.pBandRefs[map.bands[i]];
    copy.pBandRefs = refs.release();
    return kOk;
}

RadTrans duplicateTransform(const KSRadTrans& source, BandMap map) {
    constexpr const char* kLabel = "KSRadTrans ()";
    RadTrans copy(allocateZeroed<KSRadTrans>().release());
    if (!copy) return IMPError(83, 0, "%s: pRadTrans == NULL, HMalloc() failed\n", kLabel), nullptr;
    copy->eRadQuant = source.eRadQuant;
    copy->pafGains = gather(source.pafGains, map).release();
    if (copy->pafGains == nullptr) {
        return IMPError(83, 0, "%s: pRadTransDupl->pafGains  == NULL, HMalloc() failed\n", kLabel), nullptr;
    }
    copy->pafOffsets = gather(source.pafOffsets, map).release();
    if (copy->pafOffsets == nullptr) {
        return IMPError(83, 0, "%s: pRadTransDupl->pafOffsets  == NULL, HMalloc() failed\n", kLabel), nullptr;
    }
    return copy;
}

int duplicateTransforms(const KSDataSet& source, BandMap map, KSDataSet& copy) {
    constexpr const char* kLabel = "RadTransDupl ()";
    const int count = source.papRadTransSeq != nullptr ? source.nNumRadTrans : 0;
    if (count < 1) return kOk;
    copy.papRadTransSeq = allocateArray<KSRadTrans*>(count).release();
    if (copy.papRadTransSeq == nullptr) return KS_FAIL("%s: papRadTransSeq == NULL, HMalloc() failed\n", kLabel);
    for (int i = 0; i < count; ++i) {
        RadTrans transform;
        if (source.papRadTransSeq[i] != nullptr) {
            transform = duplicateTransform(*source.papRadTransSeq[i], map);
            if (!transform) return KS_FAIL("%s: *ppDst == NULL, RadTransDupl () failed\n", kLabel);
        }
        copy.papRadTransSeq[copy.nNumRadTrans++] = transform.release();
    }
    return kOk;
}

int duplicateQualities(const KSSensor& source, BandMap map, KSSensor& copy) {
    if (source.peBandQual == nullptr || map.count == 0) return kOk;
    Heap<int[]> qualities = allocateArray<int>(map.count);
    if (!qualities) return KS_FAIL("%s: paeBandQual == NULL, HMalloc() failed\n", "BandQualDupl ()");
    for (int i = 0; i < map.count; ++i) qualities[static_cast<std::size_t>(i)] = source.peBandQual[map.bands[i]];
    copy.peBandQual = qualities.release();
    return kOk;
}

int duplicateResponse(const KSBandResp& source, KSBandResp& copy) {
    copy = source;
    copy.nNumSamples = 0;
    copy.pafSamples = nullptr;
    if (source.eRespType != KS_RT_CUSTOM || source.pafSamples == nullptr || source.nNumSamples < 1) return kOk;
    copy.pafSamples = allocateArray<float>(source.nNumSamples).release();
    if (copy.pafSamples == nullptr) {
        return KS_FAIL("%s: pDst[i].pafSamples == NULL, HMalloc() failed\n", "BandRespDupl ()");
    }
    copy.nNumSamples = source.nNumSamples;
    std::copy_n(source.pafSamples, source.nNumSamples, copy.pafSamples);
    return kOk;
}

int duplicateResponses(const KSSensor& source, BandMap map, KSSensor& copy) {
    if (source.pBandResp == nullptr || map.count == 0) return kOk;
    copy.pBandResp = allocateZeroedArray<KSBandResp>(map.count).release();
    if (copy.pBandResp == nullptr) return KS_FAIL("%s: pBandResp == NULL, HMalloc() failed\n", "BandRespDupl ()");
    for (int i = 0; i < map.count; ++i) {
        if (duplicateResponse(source.pBandResp[map.bands[i]], copy.pBandResp[i]) != kOk) return kFailed;
    }
    return kOk;
}

int duplicateSensor(const KSSensor& source, BandMap map, KSSensor& copy) {
    copy.szModelName = source.szModelName != nullptr ? _HString(source.szModelName) : nullptr;
    copy.eType = source.eType;
    copy.fFOVLeft = source.fFOVLeft;
    copy.fFOVRight = source.fFOVRight;
    copy.fFOVFore = source.fFOVFore;
    copy.fFOVAft = source.fFOVAft;
    copy.nNumBands = map.count;
    if (duplicateQualities(source, map, copy) != kOk) return kFailed;
    return duplicateResponses(source, map, copy);
}

/// Counts the copied bands inside and outside the cube, taking band b to be channel b + 1.
void describeCube(const KSVQubeInfo& source, BandMap map, KSVQubeInfo& copy) {
    for (int i = 0; i < map.count; ++i) {
        const int channel = map.bands[i] + 1;
        if (contains(source.panVQChans, source.nNumVQChans, channel)) {
            ++copy.nNumVQChans;
        } else if (contains(source.panNonVQChans, source.nNumNonVQChans, channel)) {
            ++copy.nNumNonVQChans;
        }
    }
    copy.nPixels = source.nPixels;
    copy.nLines = source.nLines;
    copy.nDataType = source.nDataType;
    copy.nSpare = source.nSpare;
    copy.nCodeVectors = copy.nNumVQChans > 0 ? source.nCodeVectors : 0;
    copy.nBitsPerIndex = copy.nNumVQChans > 0 ? source.nBitsPerIndex : 0;
}

KSDataSet* duplicate(const KSDataSet& source, BandMap map) {
    std::unique_ptr<KSDataSet, DataSetDeleter> copy(allocateZeroed<KSDataSet>().release());
    if (!copy) return nullptr;
    copy->nXSize = source.nXSize;
    copy->nYSize = source.nYSize;
    if (duplicateBandRefs(source, map, *copy) != kOk) return nullptr;
    if (duplicateTransforms(source, map, *copy) != kOk) return nullptr;
    if (duplicateSensor(source.Sensor, map, copy->Sensor) != kOk) return nullptr;
    copy->Mission = source.Mission;
    // A copy starts without a heading: derived images are often turned.
    copy->Mission.fHeading = 0.0f;
    describeCube(source.VQubeInfo, map, copy->VQubeInfo);
    return copy.release();
}

}  // namespace

extern "C" KSDataSet* KSDupl(const KSDataSet* pDataSet, int nNumBands, const int* panBandMap) {
    constexpr const char* kLabel = "KSDupl ()";
    if (pDataSet == nullptr) return IMPError(83, 0, "%s: pDataSet == NULL.\n", kLabel), nullptr;
    const int sourceBands = std::max(pDataSet->Sensor.nNumBands, 0);

    if (panBandMap == nullptr) {
        Heap<int[]> all = allocateArray<int>(sourceBands);
        if (!all) return IMPError(83, 0, "%s: panBandMap == NULL HMalloc () failed.\n", kLabel), nullptr;
        for (int b = 0; b < sourceBands; ++b) all[static_cast<std::size_t>(b)] = b;
        return duplicate(*pDataSet, {all.get(), sourceBands});
    }
    for (int i = 0; i < nNumBands; ++i) {
        if (panBandMap[i] < 0 || panBandMap[i] >= sourceBands) {
            return IMPError(83, 0, "%s: input band map contains a bad value.\n", kLabel), nullptr;
        }
    }
    return duplicate(*pDataSet, {panBandMap, std::max(nNumBands, 0)});
}
