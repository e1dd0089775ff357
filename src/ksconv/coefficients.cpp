// Weights of a sensor's bands at the wavelengths of a schema. Wavelengths, widths and response values are single
// precision; everything is computed from them in double precision, and a weight is rounded to single precision once,
// when it is stored.
#include <kslib/ksconv.h>

#include <kslib/ksdatset.h>
#include <kslib/kssio.h>

#include <algorithm>
#include <cmath>

#include "support/heap.hpp"
#include "support/report.hpp"

using namespace ks;

namespace {

constexpr int kUncovered = -1;

/// What every step checks before it looks at a band; the label is the step's.
int checkBand(const KSConvCoeffs* coeffs, const KSSTSchema* schema, const KSSensor* sensor, int band,
              const char* label) {
    if (coeffs == nullptr) return KS_FAIL("%s: pConvCoeffs == NULL.\n", label);
    if (schema == nullptr) return KS_FAIL("%s: pSTSchema == NULL.\n", label);
    if (sensor == nullptr) return KS_FAIL("%s: pSensor == NULL.\n", label);
    if (sensor->pBandResp == nullptr) return KS_FAIL("%s: pSensor->KSBandResp == NULL.\n", label);
    if (band < 0 || band >= sensor->nNumBands) {
        return KS_FAIL("%s: nOutBand < 0 || nOutBand >= pSensor->nNumBands.\n", label);
    }
    const int type = sensor->pBandResp[band].eRespType;
    if (type <= KS_RT_UNKNOWN || type > KS_RT_CUSTOM) return KS_FAIL("%s: Unrecognized response type.\n", label);
    return kOk;
}

/// Coefficients that were made for another schema or sensor have no room for the band.
int checkRoom(const KSConvCoeffs& coeffs, const KSSTSchema& schema, int band, const char* label) {
    if (band >= coeffs.nNumOutBands) return KS_FAIL("%s: nOutBand >= pConvCoeffs->nNumOutBands.\n", label);
    if (schema.nNumMeasFlds > coeffs.nNumCoeffs) {
        return KS_FAIL("%s: pSTSchema->nNumMeasFlds > pConvCoeffs->nNumCoeffs.\n", label);
    }
    if (coeffs.panStartInd == nullptr) return KS_FAIL("%s: pConvCoeffs->panStartInd == NULL.\n", label);
    if (coeffs.panEndInd == nullptr) return KS_FAIL("%s: pConvCoeffs->panEndInd == NULL.\n", label);
    if (coeffs.pafCoeffs == nullptr) return KS_FAIL("%s: pConvCoeffs->pafCoeffs == NULL.\n", label);
    if (schema.pMeasFld == nullptr && schema.nNumMeasFlds > 0) {
        return KS_FAIL("%s: pSTSchema->pMeasFld == NULL.\n", label);
    }
    return kOk;
}

struct Interval {
    double low;
    double high;
};

Interval intervalOf(const KSBandResp& response) {
    if (response.eRespType == KS_RT_CUSTOM) {
        return {static_cast<double>(response.fParm1), static_cast<double>(response.fParm2)};
    }
    const double centre = static_cast<double>(response.fCentre);
    const double halfWidth = static_cast<double>(response.fFWHM) * 0.5;
    return {centre - halfWidth, centre + halfWidth};
}

double wavelengthOf(const KSSTSchema& schema, int input) { return static_cast<double>(schema.pMeasFld[input].fWlen); }

/// The first input at or above a wavelength; the number of inputs when there is none.
int firstFrom(const KSSTSchema& schema, double low) {
    int input = 0;
    while (input < schema.nNumMeasFlds && !(wavelengthOf(schema, input) >= low)) ++input;
    return input;
}

/// The last input at or below a wavelength; -1 when there is none.
int lastUpTo(const KSSTSchema& schema, double high) {
    int input = schema.nNumMeasFlds - 1;
    while (input >= 0 && !(wavelengthOf(schema, input) <= high)) --input;
    return input;
}

bool isCovered(const KSConvCoeffs& coeffs, int band) {
    return coeffs.panStartInd[band] >= 0 && coeffs.panEndInd[band] >= 0;
}

/// Stores weight(wavelength) for each input of a covered band.
template <class Weight>
void storeWeights(KSConvCoeffs& coeffs, const KSSTSchema& schema, int band, Weight weight) {
    if (!isCovered(coeffs, band)) return;
    // checkRoom has seen that the schema is not the longer one; the indices are the caller's own.
    const int last = std::min(coeffs.panEndInd[band], schema.nNumMeasFlds - 1);
    for (int input = coeffs.panStartInd[band]; input <= last; ++input) {
        coeffs.pafCoeffs[input] = static_cast<float>(weight(wavelengthOf(schema, input)));
    }
}

/// A tabulated response: the points lie a step apart, the first at the start wavelength, and the table is taken to go
/// on with zeroes.
class TabulatedResponse {
public:
    explicit TabulatedResponse(const KSBandResp& response)
        : start_(static_cast<double>(response.fParm1)),
          step_((static_cast<double>(response.fParm2) - start_) / (static_cast<double>(response.nNumSamples) + 1.0)),
          points_(static_cast<double>(response.nNumSamples)),
          samples_(response.pafSamples) {}

    double operator()(double wavelength) const {
        const double point = std::trunc((wavelength - start_) / step_);
        const double below = sample(point);
        const double above = sample(point + 1.0);
        return below + (above - below) * (wavelength - (point * step_ + start_)) / step_;
    }

private:
    // The number stays a double: it need not fit an integer, nor be a number at all.
    double sample(double point) const {
        return point >= 0.0 && point < points_ ? static_cast<double>(samples_[static_cast<int>(point)]) : 0.0;
    }

    double start_;
    double step_;
    double points_;
    const float* samples_;
};

}  // namespace

extern "C" {

KSConvCoeffs* KSGenSpPrConvCoeffs(const KSSTSchema* pSTSchema, const KSSensor* pSensor) {
    constexpr const char* kLabel = "KSGenSpPrConvCoeffs ()";
    if (pSTSchema == nullptr) return IMPError(83, 0, "%s: pSTSchema == NULL.\n", kLabel), nullptr;
    if (pSensor == nullptr) return IMPError(83, 0, "%s: pSensor == NULL.\n", kLabel), nullptr;
    if (pSensor->pBandResp == nullptr) return IMPError(83, 0, "%s: pSensor->peBandResp == NULL.\n", kLabel), nullptr;
    KSConvCoeffs* coeffs = KSCreateConvCoeffs(pSTSchema->nNumMeasFlds, pSensor->nNumBands);
    if (coeffs == nullptr) {
        return IMPError(83, 0, "%s: pRetVal == NULL, KSCreateConvCoeffs() failed.\n", kLabel), nullptr;
    }
    Undo undo([coeffs] {
        KSFreeConvCoeffs(coeffs);
        std::free(coeffs);
    });

    for (int band = 0; band < pSensor->nNumBands; ++band) {
        if (_EvalStartEndInds(coeffs, pSTSchema, pSensor, band) != kOk) {
            // The bands before this one are of use, and the others are marked as uncovered.
            IMPError(83, 0, "%s: _EvalStartEndInds () failed.\n", kLabel);
            break;
        }
        switch (pSensor->pBandResp[band].eRespType) {
            case KS_RT_GAUSSIAN:
                if (_GenGaussianConvCoeffs(coeffs, pSTSchema, pSensor, band) == kOk) continue;
                return IMPError(83, 0, "%s: _GenGaussianConvCoeffs () failed.\n", kLabel), nullptr;
            case KS_RT_TRIANGULAR:
                if (_GenTriangularConvCoeffs(coeffs, pSTSchema, pSensor, band) == kOk) continue;
                return IMPError(83, 0, "%s: _GenTriangularConvCoeffs () failed.\n", kLabel), nullptr;
            case KS_RT_BOX:
                if (_GenBoxConvCoeffs(coeffs, pSTSchema, pSensor, band) == kOk) continue;
                return IMPError(83, 0, "%s: _GenBoxConvCoeffs () failed.\n", kLabel), nullptr;
            case KS_RT_TRAPEZOIDAL:
                if (_GenTrapConvCoeffs(coeffs, pSTSchema, pSensor, band) == kOk) continue;
                return IMPError(83, 0, "%s: _GenTrapConvCoeffs () failed.\n", kLabel), nullptr;
            case KS_RT_CUSTOM:
                if (_GenCustConvCoeffs(coeffs, pSTSchema, pSensor, band) == kOk) continue;
                return IMPError(83, 0, "%s: _GenCustConvCoeffs () failed.\n", kLabel), nullptr;
            default:
                return IMPError(83, 0, "%s: Unrecognized response type.\n", kLabel), nullptr;
        }
    }
    undo.dismiss();
    return coeffs;
}

void KSFreeConvCoeffs(KSConvCoeffs* pConvCoeffs) {
    if (pConvCoeffs == nullptr) return;
    freeAndClear(pConvCoeffs->pafCoeffs);
    freeAndClear(pConvCoeffs->panStartInd);
    freeAndClear(pConvCoeffs->panEndInd);
}

KSConvCoeffs* KSCreateConvCoeffs(int nNumCoeffs, int nNumOutBands) {
    constexpr const char* kLabel = "KSCreateConvCoeffs ()";
    Heap<KSConvCoeffs> coeffs = allocateZeroed<KSConvCoeffs>();
    if (!coeffs) return IMPError(83, 0, "%s: pRetVal == NULL, HMalloc () failed.\n", kLabel), nullptr;
    Heap<float[]> weights = allocateZeroedArray<float>(nNumCoeffs);
    if (!weights) return IMPError(83, 0, "%s: pRetVal->pafCoeffs == NULL, HMalloc () failed.\n", kLabel), nullptr;
    Heap<int[]> starts = allocateArray<int>(nNumOutBands);
    if (!starts) return IMPError(83, 0, "%s: pRetVal->panStartInd == NULL, HMalloc () failed.\n", kLabel), nullptr;
    Heap<int[]> ends = allocateArray<int>(nNumOutBands);
    if (!ends) return IMPError(83, 0, "%s: pRetVal->panEndInd == NULL, HMalloc () failed.\n", kLabel), nullptr;
    std::fill_n(starts.get(), nNumOutBands, kUncovered);
    std::fill_n(ends.get(), nNumOutBands, kUncovered);
    *coeffs = {weights.release(), nNumCoeffs, nNumOutBands, starts.release(), ends.release()};
    return coeffs.release();
}

int _EvalStartEndInds(KSConvCoeffs* pConvCoeffs, const KSSTSchema* pSTSchema, const KSSensor* pSensor, int nOutBand) {
    constexpr const char* kLabel = "_EvalInterval ()";
    if (checkBand(pConvCoeffs, pSTSchema, pSensor, nOutBand, kLabel) != kOk) return kFailed;
    if (checkRoom(*pConvCoeffs, *pSTSchema, nOutBand, kLabel) != kOk) return kFailed;
    pConvCoeffs->panStartInd[nOutBand] = kUncovered;
    pConvCoeffs->panEndInd[nOutBand] = kUncovered;

    const Interval interval = intervalOf(pSensor->pBandResp[nOutBand]);
    const int start = firstFrom(*pSTSchema, interval.low);
    const int end = lastUpTo(*pSTSchema, interval.high);
    // An input on either side of the interval tells that the spectrum covers it whole.
    const bool inputBelow = start > 0 && start < pSTSchema->nNumMeasFlds;
    const bool inputAbove = end < pSTSchema->nNumMeasFlds - 1;
    if (!inputBelow || !inputAbove || start > end) return kOk;
    pConvCoeffs->panStartInd[nOutBand] = start;
    pConvCoeffs->panEndInd[nOutBand] = end;
    return kOk;
}

int _GenGaussianConvCoeffs(KSConvCoeffs* pConvCoeffs, const KSSTSchema* pSTSchema, const KSSensor* pSensor,
                           int nOutBand) {
    constexpr const char* kLabel = "_GenGaussConvCoeffs ()";
    if (checkBand(pConvCoeffs, pSTSchema, pSensor, nOutBand, kLabel) != kOk) return kFailed;
    const KSBandResp& response = pSensor->pBandResp[nOutBand];
    if (response.eRespType != KS_RT_GAUSSIAN) {
        return KS_FAIL("%s: pSensor->pBandResp[nOutBand].eRespType != KS_RT_GAUSSIAN.\n", kLabel);
    }
    if (checkRoom(*pConvCoeffs, *pSTSchema, nOutBand, kLabel) != kOk) return kFailed;
    const double centre = static_cast<double>(response.fCentre);
    const double width = static_cast<double>(response.fFWHM);
    // A line has to have some width for the exponent to be finite; half the response is reached at half the width.
    const double squaredWidth = width < 0.0001 ? 1e-8 : width * width;
    const double scale = squaredWidth * (-0.25 / std::log(0.5));
    storeWeights(*pConvCoeffs, *pSTSchema, nOutBand, [=](double wavelength) {
        const double distance = std::fabs(centre - wavelength);
        return std::exp(-(distance * distance) / scale);
    });
    return kOk;
}

int _GenTriangularConvCoeffs(KSConvCoeffs* pConvCoeffs, const KSSTSchema* pSTSchema, const KSSensor* pSensor,
                             int nOutBand) {
    constexpr const char* kLabel = "_GenTrianConvCoeffs ()";
    if (checkBand(pConvCoeffs, pSTSchema, pSensor, nOutBand, kLabel) != kOk) return kFailed;
    const KSBandResp& response = pSensor->pBandResp[nOutBand];
    if (response.eRespType != KS_RT_TRIANGULAR) {
        return KS_FAIL("%s: pSensor->pBandResp[nOutBand].eRespType != KS_RT_TRIANGULAR.\n", kLabel);
    }
    if (checkRoom(*pConvCoeffs, *pSTSchema, nOutBand, kLabel) != kOk) return kFailed;
    const double centre = static_cast<double>(response.fCentre);
    const double halfWidth = static_cast<double>(response.fFWHM) / 2.0;
    storeWeights(*pConvCoeffs, *pSTSchema, nOutBand,
                 [=](double wavelength) { return (halfWidth - std::fabs(centre - wavelength)) / halfWidth; });
    return kOk;
}

int _GenBoxConvCoeffs(KSConvCoeffs* pConvCoeffs, const KSSTSchema* pSTSchema, const KSSensor* pSensor, int nOutBand) {
    constexpr const char* kLabel = "_GenBoxConvCoeffs ()";
    if (checkBand(pConvCoeffs, pSTSchema, pSensor, nOutBand, kLabel) != kOk) return kFailed;
    if (pSensor->pBandResp[nOutBand].eRespType != KS_RT_BOX) {
        return KS_FAIL("%s: pSensor->eRespType != KS_RT_BOX.\n", kLabel);
    }
    if (checkRoom(*pConvCoeffs, *pSTSchema, nOutBand, kLabel) != kOk) return kFailed;
    storeWeights(*pConvCoeffs, *pSTSchema, nOutBand, [](double) { return 1.0; });
    return kOk;
}

int _GenTrapConvCoeffs(KSConvCoeffs* pConvCoeffs, const KSSTSchema* pSTSchema, const KSSensor* pSensor, int nOutBand) {
    constexpr const char* kLabel = "_GenTrapConvCoeffs ()";
    if (checkBand(pConvCoeffs, pSTSchema, pSensor, nOutBand, kLabel) != kOk) return kFailed;
    const KSBandResp& response = pSensor->pBandResp[nOutBand];
    if (response.eRespType != KS_RT_TRAPEZOIDAL) {
        return KS_FAIL("%s: pSensor->eRespType != KS_RT_TRAPEZOIDAL.\n", kLabel);
    }
    if (checkRoom(*pConvCoeffs, *pSTSchema, nOutBand, kLabel) != kOk) return kFailed;
    const double centre = static_cast<double>(response.fCentre);
    const double halfTop = static_cast<double>(response.fWidth2) / 2.0;
    const double flank = static_cast<double>(response.fFWHM) / 2.0 - halfTop;
    storeWeights(*pConvCoeffs, *pSTSchema, nOutBand, [=](double wavelength) {
        const double distance = std::fabs(centre - wavelength);
        return distance <= halfTop ? 1.0 : (flank - (distance - halfTop)) / flank;
    });
    return kOk;
}

int _GenCustConvCoeffs(KSConvCoeffs* pConvCoeffs, const KSSTSchema* pSTSchema, const KSSensor* pSensor, int nOutBand) {
    constexpr const char* kLabel = "_GenCustConvCoeffs ()";
    if (checkBand(pConvCoeffs, pSTSchema, pSensor, nOutBand, kLabel) != kOk) return kFailed;
    const KSBandResp& response = pSensor->pBandResp[nOutBand];
    if (response.eRespType != KS_RT_CUSTOM) {
        return KS_FAIL("%s: pSensor->pBandResp[nOutBand].eRespType != KS_RT_CUSTOM.\n", kLabel);
    }
    if (checkRoom(*pConvCoeffs, *pSTSchema, nOutBand, kLabel) != kOk) return kFailed;
    if (isCovered(*pConvCoeffs, nOutBand) && response.nNumSamples > 0 && response.pafSamples == nullptr) {
        return KS_FAIL("%s: pSensor->pBandResp[nOutBand].pafSamples == NULL.\n", kLabel);
    }
    storeWeights(*pConvCoeffs, *pSTSchema, nOutBand, TabulatedResponse(response));
    return kOk;
}

}  // extern "C"
