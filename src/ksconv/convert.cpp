// Spectra through coefficients: weighted means in double precision of the inputs that each band reaches, and the choice
// of samples where a spectrum already has a sensor's wavelengths.
#include <kslib/ksconv.h>

#include <kslib/ksld.h>
#include <kslib/kssio.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "support/heap.hpp"
#include "support/report.hpp"
#include "support/wavelength.hpp"

using namespace ks;

namespace {

constexpr const char* kConvLabel = "KSConvSpec ()";
constexpr const char* kFiltLabel = "KSFiltSpecSamples ()";

constexpr double kMaskedValue = -1.23e34;
/// The weighted sum that a value must exceed; on the sum and not on the weights, so that dark spectra are masked.
constexpr double kLeastSum = 1e-5;

/// A text with another one behind it; null when there is no memory.
char* joinedText(const char* text, const char* suffix) {
    const std::size_t length = std::strlen(text);
    const std::size_t suffixBytes = std::strlen(suffix) + 1;
    Heap<char[]> joined = allocateArray<char>(static_cast<std::int64_t>(length + suffixBytes));
    if (!joined) return nullptr;
    std::memcpy(joined.get(), text, length);
    std::memcpy(joined.get() + length, suffix, suffixBytes);
    return joined.release();
}

bool holds(const VEC* vector, int count) { return vector != nullptr && static_cast<int>(vector->dim) >= count; }

// ---- converting ----

int checkConversion(const KSSpectrum* in, const KSSpectrum* out, const KSConvCoeffs* coeffs, const int* selectedBands,
                    int count) {
    constexpr const char* label = kConvLabel;
    if (in == nullptr) return KS_FAIL("%s: pSpectrumIn == NULL.\n", label);
    if (out == nullptr) return KS_FAIL("%s: pSpectrumOut == NULL.\n", label);
    if (coeffs == nullptr) return KS_FAIL("%s: pConvCoeffs == NULL.\n", label);
    if (selectedBands == nullptr) return KS_FAIL("%s: panSelBands == NULL.\n", label);
    if (count <= 0) return KS_FAIL("%s: nNumSelBands <= 0.\n", label);
    if (in->nNumMeasVals != coeffs->nNumCoeffs) {
        return KS_FAIL("%s: pSpectrumIn->nNumMeasVals != pConvCoeffs->nNumCoeffs.\n", label);
    }
    if (out->nNumMeasVals > coeffs->nNumOutBands) {
        return KS_FAIL("%s: pSpectrumOut->nNumMeasVals > pConvCoeffs->nNumOutBands.\n", label);
    }
    if (out->nNumMeasVals != count) return KS_FAIL("%s: pSpectrumOut->nNumMeasVals != nNumSelBands.\n", label);
    return kOk;
}

/// The arrays behind the counts: a spectrum that ran out of memory while it was made lacks some of them.
int checkArrays(const KSSpectrum& in, const KSSpectrum& out, const KSConvCoeffs& coeffs, bool useQuality) {
    constexpr const char* label = kConvLabel;
    if (!holds(in.pMeas, in.nNumMeasVals)) {
        return KS_FAIL("%s: pSpectrumIn->pMeas holds fewer than nNumMeasVals values.\n", label);
    }
    if (useQuality && in.peBandQual == nullptr) return KS_FAIL("%s: pSpectrumIn->peBandQual == NULL.\n", label);
    if (!holds(out.pMeas, out.nNumMeasVals)) {
        return KS_FAIL("%s: pSpectrumOut->pMeas holds fewer than nNumMeasVals values.\n", label);
    }
    if (out.peBandQual == nullptr) return KS_FAIL("%s: pSpectrumOut->peBandQual == NULL.\n", label);
    if (coeffs.pafCoeffs == nullptr) return KS_FAIL("%s: pConvCoeffs->pafCoeffs == NULL.\n", label);
    if (coeffs.panStartInd == nullptr) return KS_FAIL("%s: pConvCoeffs->panStartInd == NULL.\n", label);
    if (coeffs.panEndInd == nullptr) return KS_FAIL("%s: pConvCoeffs->panEndInd == NULL.\n", label);
    return kOk;
}

int copyTarget(const KSSpectrum& in, KSSpectrum& out) {
    if (in.szTarget == nullptr) return kOk;
    char* target = joinedText(in.szTarget, " (resampled)");
    if (target == nullptr) return KS_FAIL("%s: pSpectrumOut->szTarget == NULL, HMalloc() failed.\n", kConvLabel);
    std::free(out.szTarget);
    out.szTarget = target;
    return kOk;
}

struct Sample {
    double value = kMaskedValue;
    int quality = KS_BQ_MASK;
};

/// The weighted mean of the usable inputs from start to end.
Sample meanOf(const KSSpectrum& in, const KSConvCoeffs& coeffs, int start, int end, bool useQuality) {
    double sum = 0.0;
    double weights = 0.0;
    int count = 0;
    for (int i = start; i <= end; ++i) {
        if (useQuality && in.peBandQual[i] != KS_BQ_PLOT && in.peBandQual[i] != KS_BQ_BMASK) continue;
        const double value = in.pMeas->ve[i];
        if (value < 0.0) continue;
        const double weight = static_cast<double>(coeffs.pafCoeffs[i]);
        sum += weight * value;
        weights += weight;
        ++count;
    }
    if (count > 0 && sum > kLeastSum) return {sum / weights, KS_BQ_PLOT};
    return {};
}

Sample convert(const KSSpectrum& in, const KSConvCoeffs& coeffs, int band, bool useQuality) {
    if (band < 0 || band >= coeffs.nNumOutBands) return {};
    const int start = coeffs.panStartInd[band];
    const int end = coeffs.panEndInd[band];
    if (start < 0 || end < 0) return {};
    return meanOf(in, coeffs, start, std::min(end, coeffs.nNumCoeffs - 1), useQuality);
}

// ---- filtering ----

/// Finds wavelengths among a schema's in any order. It looks behind the last one found first, so that two lists in the
/// same order are walked once.
class WavelengthFinder {
public:
    explicit WavelengthFinder(const KSSTSchema& schema)
        : fields_(schema.pMeasFld), count_(schema.pMeasFld == nullptr ? 0 : schema.nNumMeasFlds) {}

    bool find(float wavelength) {
        const std::int64_t wanted = thousandths(wavelength);
        for (int steps = 0; steps < count_; ++steps) {
            if (thousandths(fields_[at_].fWlen) == wanted) return true;
            at_ = at_ + 1 < count_ ? at_ + 1 : 0;
        }
        return false;
    }

private:
    const KSSTFld* fields_;
    int count_;
    int at_ = 0;
};

int checkFilter(const KSSpectrum* spectrum, const KSSTSchema* filter) {
    constexpr const char* label = kFiltLabel;
    if (spectrum == nullptr) return KS_FAIL("%s: pSpectrum == NULL.\n", label);
    if (filter == nullptr) return KS_FAIL("%s: pSTSchemaFilt == NULL.\n", label);
    if (!holds(spectrum->pMeas, spectrum->nNumMeasVals)) {
        return KS_FAIL("%s: pSpectrum->pMeas holds fewer than nNumMeasVals values.\n", label);
    }
    if (!holds(spectrum->pSD, spectrum->nNumMeasVals)) {
        return KS_FAIL("%s: pSpectrum->pSD holds fewer than nNumMeasVals values.\n", label);
    }
    if (spectrum->pafWlen == nullptr) return KS_FAIL("%s: pSpectrum->pafWlen == NULL.\n", label);
    if (spectrum->peBandQual == nullptr) return KS_FAIL("%s: pSpectrum->peBandQual == NULL.\n", label);
    return kOk;
}

}  // namespace

extern "C" {

int KSConvSpec(const KSSpectrum* pSpectrumIn, KSSpectrum* pSpectrumOut, const KSConvCoeffs* pConvCoeffs,
               int bUseBandQual, const int* panSelBands, int nNumSelBands) {
    if (checkConversion(pSpectrumIn, pSpectrumOut, pConvCoeffs, panSelBands, nNumSelBands) != kOk) return kFailed;
    const bool useQuality = bUseBandQual != 0;
    if (checkArrays(*pSpectrumIn, *pSpectrumOut, *pConvCoeffs, useQuality) != kOk) return kFailed;

    if (copyTarget(*pSpectrumIn, *pSpectrumOut) != kOk) return kFailed;
    pSpectrumOut->eRadQuant = pSpectrumIn->eRadQuant;
    for (int k = 0; k < nNumSelBands; ++k) {
        const Sample sample = convert(*pSpectrumIn, *pConvCoeffs, panSelBands[k], useQuality);
        pSpectrumOut->pMeas->ve[k] = sample.value;
        pSpectrumOut->peBandQual[k] = sample.quality;
    }
    return kOk;
}

int KSFiltSpecSamples(KSSpectrum* pSpectrum, const KSSTSchema* pSTSchemaFilt) {
    if (checkFilter(pSpectrum, pSTSchemaFilt) != kOk) return kFailed;
    KSSpectrum& spectrum = *pSpectrum;
    WavelengthFinder wanted(*pSTSchemaFilt);
    int kept = 0;
    for (int i = 0; i < spectrum.nNumMeasVals; ++i) {
        if (!wanted.find(spectrum.pafWlen[i])) continue;
        spectrum.pafWlen[kept] = spectrum.pafWlen[i];
        spectrum.pMeas->ve[kept] = spectrum.pMeas->ve[i];
        spectrum.pSD->ve[kept] = spectrum.pSD->ve[i];
        spectrum.peBandQual[kept] = spectrum.peBandQual[i];
        ++kept;
    }
    const bool dropped = kept < spectrum.nNumMeasVals;
    spectrum.nNumMeasVals = kept;
    // The vectors keep their memory: a shorter one is still freed whole.
    spectrum.pMeas->dim = static_cast<unsigned>(kept);
    spectrum.pSD->dim = static_cast<unsigned>(kept);
    if (!dropped || spectrum.szTarget == nullptr) return kOk;

    char* target = joinedText(spectrum.szTarget, " (selected samples)");
    if (target == nullptr) return KS_FAIL("%s: szTargetNew == NULL, HMalloc() failed.\n", kFiltLabel);
    std::free(spectrum.szTarget);
    spectrum.szTarget = target;
    return kOk;
}

}  // extern "C"
