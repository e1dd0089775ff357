// Smoothing of spectra within segments of the band list. Everything is computed in double precision from the values,
// the single precision wavelengths and the single precision width.
#include <kslib/kssmooth.h>

#include <kslib/kscbk.h>
#include <kslib/ksdatset.h>
#include <kslib/ksld.h>
#include <kslib/kssio.h>
#include <kslib/kswinex.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>

#include "support/heap.hpp"
#include "support/matrix.hpp"
#include "support/report.hpp"
#include "support/spectra.hpp"

using namespace ks;

namespace {

// Smoothing functions answer the other way round than the library's other calls; the drivers test for it.
constexpr int kSmoothed = 1;
constexpr int kNotSmoothed = 0;

/// A width rounded half up to whole values; saturated, and 0 for not-a-number.
int windowLength(float width) {
    const double length = static_cast<double>(width) + 0.5;
    if (!(length > 0.0)) return 0;
    return length < static_cast<double>(INT_MAX) ? static_cast<int>(length) : INT_MAX;
}

/// Centres from start up to but excluding end. Indices are a caller's own, hence the room to add to them.
struct Centres {
    std::int64_t start;
    std::int64_t end;
};

Centres centresOf(const KSSmoothParms& parms, int segment, std::int64_t half) {
    const std::int64_t first = parms.pnIndex1[segment];
    const std::int64_t last = parms.pnIndex2[segment];
    // The last value that may be a segment's own end lies one whole window before the end of the spectrum.
    const bool farFromEnd = last <= parms.pSTSchema->nNumMeasFlds - 2 * half;
    return {first < half ? first + half : first, farFromEnd ? last : last - half};
}

/// A quality that the record does not have is unknown.
int qualityOf(const KSSensor& sensor, std::int64_t index) {
    return sensor.peBandQual != nullptr && index < sensor.nNumBands ? sensor.peBandQual[index] : KS_BQ_UNKNOWN;
}

// The bands of a sensor have to be good ones; the values of a spectrum, which are above 0 already, have only to be
// known and not to border on a masked range.
bool passesQuality(const KSSmoothParms& parms, std::int64_t index) {
    if (parms.pSensor != nullptr) {
        const int quality = qualityOf(*parms.pSensor, index);
        return quality == KS_BQ_PLOT || quality == KS_BQ_BMASK;
    }
    if (parms.peBandQual != nullptr) {
        const int quality = parms.peBandQual[index];
        return quality != KS_BQ_UNKNOWN && quality != KS_BQ_BMASK;
    }
    return true;
}

/// The values before smoothing and the window over them that is worked on.
class Window {
public:
    /// N values of which a copy fills the first 2 (N / 2): the last one of an odd number keeps what it had, 0 at first.
    Window(const VEC& values, const KSSmoothParms& parms, int length)
        : parms_(parms),
          size_(values.dim),
          half_(length / 2),
          values_(allocateArray<double>(size_)),
          work_(allocateZeroedArray<double>(length)) {
        if (values_) std::copy(values.ve, values.ve + size_, values_.get());
    }

    bool isAllocated() const { return values_ != nullptr && work_ != nullptr; }
    double* work() { return work_.get(); }

    /// Copies the values around a centre; false when one of them must not be used.
    bool moveTo(std::int64_t centre) {
        constexpr const char* kLabel = "CopyRange()";
        const std::int64_t first = centre - half_;
        // Told and gone on from: what lies outside counts as 0.
        if (first < 0) IMPError(83, 0, "%s: nStart < 0\n ", kLabel);
        if (centre + half_ > size_) IMPError(83, 0, "%s: nStart > pValues->dim\n ", kLabel);
        for (std::int64_t j = 0; j < 2 * half_; ++j) {
            const std::int64_t index = first + j;
            const double value = index >= 0 && index < size_ ? values_.get()[index] : 0.0;
            if (parms_.bCheckQual != 0 && !(value > 0.0 && passesQuality(parms_, index))) return false;
            work_.get()[j] = value;
        }
        return true;
    }

private:
    const KSSmoothParms& parms_;
    std::int64_t size_;
    std::int64_t half_;
    Heap<double[]> values_;
    Heap<double[]> work_;
};

/// Reports what the parameters of a smoothing function lack.
int checkParms(const KSSmoothParms& parms, const char* label) {
    if (parms.nNumSegments <= 0) return kOk;
    if (parms.pSTSchema == nullptr) return KS_FAIL("%s: psParms->pSTSchema == NULL.\n", label);
    if (parms.pnIndex1 == nullptr) return KS_FAIL("%s: psParms->pnIndex1 == NULL.\n", label);
    if (parms.pnIndex2 == nullptr) return KS_FAIL("%s: psParms->pnIndex2 == NULL.\n", label);
    return kOk;
}

/// Gives each centre of a segment the result of combine(work vector), or leaves it where the window cannot be used.
template <class Combine>
void smoothSegment(VEC& values, Window& window, const Centres& centres, Combine combine) {
    const std::int64_t size = values.dim;
    for (std::int64_t centre = centres.start; centre < centres.end; ++centre) {
        if (!window.moveTo(centre)) continue;
        const double smoothed = combine(window.work());
        if (centre >= 0 && centre < size) values.ve[centre] = smoothed;
    }
}

// ---- Gaussian weights ----

/// Weights by the distance from the mean of a segment's first wavelengths; where the schema has none the weight is 0.
class GaussianWeights {
public:
    GaussianWeights(const KSSmoothParms& parms, int length)
        : schema_(*parms.pSTSchema),
          fields_(schema_.pMeasFld == nullptr ? 0 : schema_.nNumMeasFlds),
          squaredWidth_(static_cast<double>(parms.fWidth) * static_cast<double>(parms.fWidth)),
          length_(length),
          weights_(allocateArray<double>(length)) {}

    bool isAllocated() const { return weights_ != nullptr; }

    /// Sets the weights for windows that begin at a measurement field; false when the schema ends before it.
    bool startAt(std::int64_t field) {
        begin_ = std::clamp<std::int64_t>(-field, 0, length_);
        end_ = std::clamp<std::int64_t>(fields_ - field, begin_, length_);
        if (begin_ == end_) return false;
        double mean = 0.0;
        for (std::int64_t j = begin_; j < end_; ++j) mean += wavelength(field + j);
        mean /= static_cast<double>(end_ - begin_);
        total_ = 0.0;
        for (std::int64_t j = begin_; j < end_; ++j) {
            const double distance = wavelength(field + j) - mean;
            weights_.get()[j] = std::exp(-(distance * distance) / squaredWidth_);
            total_ += weights_.get()[j];
        }
        return true;
    }

    double mean(const double* work) const {
        double sum = 0.0;
        for (std::int64_t j = begin_; j < end_; ++j) sum += weights_.get()[j] * work[j];
        return sum / total_;
    }

private:
    double wavelength(std::int64_t field) const { return static_cast<double>(schema_.pMeasFld[field].fWlen); }

    const KSSTSchema& schema_;
    std::int64_t fields_;
    double squaredWidth_;
    std::int64_t length_;
    Heap<double[]> weights_;
    std::int64_t begin_ = 0;
    std::int64_t end_ = 0;
    double total_ = 0.0;
};

// ---- medians ----

/// Sorts the work vector, numbers before not-a-numbers, and takes its middle.
double median(double* work, int length) {
    std::sort(work, work + length, [](double a, double b) { return std::isnan(b) ? !std::isnan(a) : a < b; });
    const int half = length / 2;
    if (length % 2 != 0) return work[half];
    // Two values have no third: the upper one then counts twice.
    return (work[half] + work[std::min(half + 1, length - 1)]) * 0.5;
}

}  // namespace

extern "C" {

KSSmoothParms* KSCreateSmoothParms(int nNumSegments) {
    constexpr const char* kLabel = "KSCreateSmoothParms()";
    Heap<KSSmoothParms> parms = allocateZeroed<KSSmoothParms>();
    if (!parms) return IMPError(83, 0, "%s: psSmoothParms = NULL, HCalloc() failed.\n", kLabel), nullptr;
    Heap<int[]> firsts = allocateZeroedArray<int>(nNumSegments);
    if (!firsts) return IMPError(83, 0, "%s: psSmoothParms->pnIndex1 = NULL, HCalloc() failed.\n", kLabel), nullptr;
    Heap<int[]> lasts = allocateZeroedArray<int>(nNumSegments);
    if (!lasts) return IMPError(83, 0, "%s: psSmoothParms->pnIndex2 = NULL, HCalloc() failed.\n", kLabel), nullptr;
    parms->pnIndex1 = firsts.release();
    parms->pnIndex2 = lasts.release();
    parms->nNumSegments = nNumSegments;
    return parms.release();
}

void KSFreeSmoothParms(KSSmoothParms* psSmoothParms) {
    if (psSmoothParms == nullptr) return;
    std::free(psSmoothParms->pnIndex1);
    std::free(psSmoothParms->pnIndex2);
    std::free(psSmoothParms);
}

int KSSmoothGauss(VEC* pValues, KSSmoothParms* psParms) {
    constexpr const char* kLabel = "KSSmoothGauss()";
    if (pValues == nullptr) return IMPError(83, 0, "%s: pValues == NULL.\n", kLabel), kNotSmoothed;
    if (psParms == nullptr) return IMPError(83, 0, "%s: psParms == NULL.\n", kLabel), kNotSmoothed;
    const int length = windowLength(psParms->fWidth);
    if (length < 2) return kNotSmoothed;
    if (checkParms(*psParms, kLabel) != kOk) return kNotSmoothed;
    if (psParms->nNumSegments <= 0) return kSmoothed;

    const int half = length / 2;
    Window window(*pValues, *psParms, length);
    GaussianWeights weights(*psParms, length);
    if (!window.isAllocated() || !weights.isAllocated()) {
        return IMPError(83, 0, "%s: Failed to allocate the window, HMalloc() failed.\n", kLabel), kNotSmoothed;
    }
    for (int segment = 0; segment < psParms->nNumSegments; ++segment) {
        const Centres centres = centresOf(*psParms, segment, half);
        if (centres.end - centres.start + 1 < length) continue;
        if (!weights.startAt(centres.start - half)) {
            return IMPError(83, 0, "%s: psParms->pSTSchema has no wavelengths at pnIndex1[%d] (= %d).\n", kLabel,
                            segment, psParms->pnIndex1[segment]),
                   kNotSmoothed;
        }
        smoothSegment(*pValues, window, centres, [&weights](const double* work) { return weights.mean(work); });
    }
    return kSmoothed;
}

int KSSmoothMedian(VEC* pValues, KSSmoothParms* psParms) {
    constexpr const char* kLabel = "KSSmoothMedian()";
    if (pValues == nullptr) return IMPError(83, 0, "%s: pValues == NULL.\n", kLabel), kNotSmoothed;
    if (psParms == nullptr) return IMPError(83, 0, "%s: psParms == NULL.\n", kLabel), kNotSmoothed;
    const int length = windowLength(psParms->fWidth);
    if (length < 2) return kSmoothed;
    if (checkParms(*psParms, kLabel) != kOk) return kNotSmoothed;
    if (psParms->nNumSegments <= 0) return kSmoothed;

    Window window(*pValues, *psParms, length);
    if (!window.isAllocated()) {
        return IMPError(83, 0, "%s: Failed to allocate the window, HMalloc() failed.\n", kLabel), kNotSmoothed;
    }
    for (int segment = 0; segment < psParms->nNumSegments; ++segment) {
        const Centres centres = centresOf(*psParms, segment, length / 2);
        if (centres.end - centres.start + 1 < length) continue;
        smoothSegment(*pValues, window, centres, [length](double* work) { return median(work, length); });
    }
    return kSmoothed;
}

int KSSmoothSpectrum(KSSpectrum* psSpe, KSSmoothParms* psParms, KSSmoothFunc pfSmoothFunc) {
    constexpr const char* kLabel = "KSSmoothSpectrum()";
    if (psSpe == nullptr) return KS_FAIL("%s: psSpe = NULL.\n", kLabel);
    if (psParms == nullptr) return KS_FAIL("%s: psParms = NULL.\n", kLabel);
    if (pfSmoothFunc == nullptr) return KS_FAIL("%s: pfSmoothFunc = NULL.\n", kLabel);
    psParms->peBandQual = psSpe->peBandQual;
    pfSmoothFunc(psSpe->pMeas, psParms);
    return kOk;
}

int KSSmoothWinEx(KSWinEx* psWinEx, KSSmoothParms* psParms, KSSmoothFunc pfSmoothFunc) {
    constexpr const char* kLabel = "KSSmoothWinEx()";
    if (psWinEx == nullptr) return KS_FAIL("%s: psWinEx == NULL.\n", kLabel);
    if (psParms == nullptr) return KS_FAIL("%s: psParms == NULL.\n", kLabel);
    if (pfSmoothFunc == nullptr) return KS_FAIL("%s: pfSmoothFunc == NULL.\n", kLabel);
    const Vector sample = makeVector(psWinEx->SampDesc.nNumBands);
    if (!sample) return KS_FAIL("%s: Failed to allocate psSample, v_get failed.\n", kLabel);
    for (int y = 0; y < psWinEx->nNumYSamples; ++y) {
        for (int x = 0; x < psWinEx->nNumXSamples; ++x) {
            if (KSExtractVectWinEx(sample.get(), psWinEx, x, y) != kOk) {
                return KS_FAIL("%s: failed to extract vector from (%d, %d) in psWinEx\n", kLabel, x, y);
            }
            if (pfSmoothFunc(sample.get(), psParms) == kNotSmoothed) {
                return KS_FAIL("%s: failed to smooth vector  (%d, %d) from psWinEx\n", kLabel, x, y);
            }
            if (KSInsertVectWinEx(sample.get(), psWinEx, x, y) != kOk) return kFailed;
        }
    }
    return kOk;
}

int KSSmoothCbk(KSCbk* psCbk, KSSmoothParms* psParms, KSSmoothFunc pfSmoothFunc) {
    constexpr const char* kLabel = "KSSmoothCbk()";
    if (psCbk == nullptr) return KS_FAIL("%s: psCbk == NULL.\n", kLabel);
    if (psParms == nullptr) return KS_FAIL("%s: psParms == NULL.\n", kLabel);
    if (pfSmoothFunc == nullptr) return KS_FAIL("%s: pfSmoothFunc == NULL.\n", kLabel);
    const Vector sample = makeVector(psCbk->nNumBands);
    if (!sample) return KS_FAIL("%s: Failed to allocate psSample, v_get failed.\n", kLabel);
    for (int v = 0; v < psCbk->nNumVects; ++v) {
        if (KSExtractVectCbk(sample.get(), psCbk, v) != kOk) {
            return KS_FAIL("%s: failed to extract vector %d from psCbk\n", kLabel, v);
        }
        if (pfSmoothFunc(sample.get(), psParms) == kNotSmoothed) {
            return KS_FAIL("%s: failed to smooth vector %d from psCbk\n", kLabel, v);
        }
        if (KSInsertVectCbk(sample.get(), psCbk, v) != kOk) return kFailed;
    }
    return kOk;
}

int KSSmoothLib(HostLayer* hLayerIn, HostLayer* hLayerOut, KSSmoothParms* psParms, KSSmoothFunc pfSmoothFunc) {
    constexpr const char* kLabel = "KSSmoothLib()";
    if (hLayerIn == nullptr) return KS_FAIL("%s: hLayerIn == NULL.\n", kLabel);
    if (hLayerOut == nullptr) return KS_FAIL("%s: hLayerOut == NULL.\n", kLabel);
    if (psParms == nullptr) return KS_FAIL("%s: psParms == NULL.\n", kLabel);
    if (pfSmoothFunc == nullptr) return KS_FAIL("%s: pfSmoothFunc == NULL.\n", kLabel);
    const Schema schema(KSSTSchemaFromLayer(hLayerIn));
    if (!schema) return kFailed;
    const Spectrum spectrum = makeSpectrum(*schema);
    if (!spectrum) return kFailed;

    // A layer that takes its own smoothed spectra grows at the end that the walk comes to.
    int left = hLayerIn == hLayerOut ? countShapes(hLayerIn) : INT_MAX;
    for (int shape = GDBGetFirst(hLayerIn); shape != -1 && left > 0; shape = GDBGetNext(hLayerIn, shape), --left) {
        // What cannot be read, smoothed or stored has been reported, and the other spectra are still wanted.
        KSEvalSpecFromShape(hLayerIn, shape, schema.get(), spectrum.get());
        psParms->peBandQual = spectrum->peBandQual;
        pfSmoothFunc(spectrum->pMeas, psParms);
        KSAddShapeFromSpec(hLayerOut, schema.get(), spectrum.get());
    }
    // Goes with the spectrum.
    psParms->peBandQual = nullptr;
    return kOk;
}

}  // extern "C"
