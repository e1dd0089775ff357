// Spectra: making and freeing them, and taking one from a data set.
#include <kslib/kssio.h>

#include <kslib/ksdatset.h>
#include <kslib/ksld.h>
#include <kslib/ksradtrans.h>
#include <kslib/ksroi.h>
#include <kslib/ksstats.h>
#include <kslib/kswinex.h>

#include "support/heap.hpp"
#include "support/matrix.hpp"
#include "support/report.hpp"

using namespace ks;

namespace {

constexpr const char* kEvalLabel = "KSEvalSpecFromDataSet ()";

int checkRequest(const KSDataSet* dataSet, int level, const KSSampDesc* sampling, const KSSpectrum* spectrum) {
    constexpr const char* label = kEvalLabel;
    if (dataSet == nullptr) return KS_FAIL("%s: pDataSet == NULL.\n", label);
    if (sampling == nullptr) return KS_FAIL("%s: pSampDesc == NULL.\n", label);
    if (spectrum == nullptr) return KS_FAIL("%s: pSpectrum == NULL.\n", label);
    if (spectrum->paROI == nullptr) return KS_FAIL("%s: pSpectrum->paROI == NULL.\n", label);
    if (spectrum->nNumMeasVals != sampling->nNumBands) {
        return KS_FAIL("%s: pSpectrum->nNumMeasVals != pSampDesc->nNumBands.\n", label);
    }
    if (dataSet->Sensor.pBandResp == nullptr) return KS_FAIL("%s: pDataSet->Sensor.pBandResp == NULL.\n", label);
    if (level > dataSet->nNumRadTrans) return KS_FAIL("%s: nRadTransLev > pDataSet->nNumRadTrans.\n", label);
    if (level > 0 && dataSet->papRadTransSeq == nullptr) {
        return KS_FAIL("%s: nRadTransLev > 0 && pDataSet->papRadTransSeq == NULL.\n", label);
    }
    if (spectrum->peBandQual == nullptr) return KS_FAIL("%s: pSpectrum->peBandQual == NULL.\n", label);
    return kOk;
}

/// Takes over the qualities of the bands that the values stand for.
int copyQualities(const KSSensor& sensor, const KSSampDesc& sampling, KSSpectrum& spectrum) {
    constexpr const char* label = kEvalLabel;
    for (int j = 0; j < sampling.nNumBands; ++j) {
        const int band = sampling.panBandMap[j];
        if (band < 0 || band >= sensor.nNumBands) {
            return KS_FAIL("%s: pSampDesc->panBandMap[%d] (= %d) is outside of valid range\n", label, j, band);
        }
        spectrum.peBandQual[j] = sensor.peBandQual == nullptr ? KS_BQ_UNKNOWN : sensor.peBandQual[band];
        if (sensor.pBandResp[band].eRespType == KS_RT_UNKNOWN) {
            return KS_FAIL("%s: pDataSet->Sensor.pBandResp[%d].eRespType == KS_RT_UNKNOWN.\n", label, band);
        }
    }
    return kOk;
}

}  // namespace

KSSpectrum* KSCreateSpec(const KSSTSchema* pSTSchema) {
    constexpr const char* label = "KSCreateSpec ()";
    if (pSTSchema == nullptr) return KS_FAIL("%s: pSTSchema == NULL\n", label), nullptr;
    const int values = pSTSchema->nNumMeasFlds;
    KSSpectrum* spectrum = allocateZeroed<KSSpectrum>().release();
    if (spectrum == nullptr) return KS_FAIL("%s: pSpectrum == NULL, HMalloc() failed.\n", label), nullptr;
    spectrum->nNumMeasVals = values;
    spectrum->pMeas = makeVector(values).release();
    if (spectrum->pMeas == nullptr) {
        return KS_FAIL("%s: pSpectrum->pMeas == NULL, v_get() failed.\n", label), spectrum;
    }
    spectrum->pSD = makeVector(values).release();
    if (spectrum->pSD == nullptr) return KS_FAIL("%s: pSpectrum->pSD == NULL, v_get() failed.\n", label), spectrum;
    spectrum->peBandQual = allocateZeroedArray<int>(values).release();
    if (spectrum->peBandQual == nullptr) {
        return KS_FAIL("%s: pSpectrum->peBandQual == NULL, HMalloc() failed.\n", label), spectrum;
    }
    spectrum->pafWlen = allocateArray<float>(std::int64_t{values}).release();
    if (spectrum->pafWlen == nullptr) {
        return KS_FAIL("%s: pSpectrum->pafWlen == NULL, HMalloc() failed.\n", label), spectrum;
    }
    for (int i = 0; i < values; ++i) spectrum->pafWlen[i] = pSTSchema->pMeasFld[i].fWlen;
    return spectrum;
}

void KSFreeSpec(KSSpectrum* pSpectrum) {
    if (pSpectrum == nullptr) return;
    freeAndClear(pSpectrum->szTarget);
    freeAndClear(pSpectrum->szSourceFile);
    freeAndClear(pSpectrum->szROIFile);
    Vector(pSpectrum->pMeas).reset();
    Vector(pSpectrum->pSD).reset();
    freeAndClear(pSpectrum->peBandQual);
    freeAndClear(pSpectrum->pafWlen);
    KSFreeROIList(pSpectrum->paROI, pSpectrum->nNumROIs);
    std::free(pSpectrum);
}

int KSEvalSpecFromDataSet(const KSDataSet* pDataSet, int nRadTransLev, const KSSampDesc* pSampDesc,
                          KSSpectrum* pSpectrum) {
    if (checkRequest(pDataSet, nRadTransLev, pSampDesc, pSpectrum) != kOk) return kFailed;
    constexpr const char* label = kEvalLabel;
    KSBandStats stats = {};
    stats.pMean = pSpectrum->pMeas;
    stats.pSD = pSpectrum->pSD;
    if (KSEvalBandStats(pDataSet, nRadTransLev, pSampDesc, pSpectrum->paROI, &stats) != kOk) {
        return KS_FAIL("%s: Failed to evaluate the measurement vector, failure in KSEvalbandStats ().\n", label);
    }
    pSpectrum->nNumSamples = static_cast<int>(stats.nNumSamples);
    pSpectrum->eRadQuant = nRadTransLev == 0 ? KS_RQ_UNCAL : pDataSet->papRadTransSeq[nRadTransLev - 1]->eRadQuant;
    if (copyQualities(pDataSet->Sensor, *pSampDesc, *pSpectrum) != kOk) return kFailed;
    freeAndClear(pSpectrum->szSourceFile);
    pSpectrum->szSourceFile = _HString(pDataSet->szFileName);
    return kOk;
}
