// Sensors, coefficients and spectra for tests of resampling and smoothing.
#pragma once

#include <gtest/gtest.h>
#include <kslib.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "expected.hpp"
#include "spectra.hpp"

namespace kit {

constexpr double kMaskedValue = -1.23e34;

inline KSBandResp symmetric(int type, float centre, float width, float topWidth = 0.0F) {
    KSBandResp response{};
    response.eRespType = type;
    response.fCentre = centre;
    response.fFWHM = width;
    response.fWidth2 = topWidth;
    return response;
}

inline KSBandResp gaussian(float centre, float width) { return symmetric(KS_RT_GAUSSIAN, centre, width); }
inline KSBandResp box(float centre, float width) { return symmetric(KS_RT_BOX, centre, width); }

/// A tabulated response; the samples stay the test's.
inline KSBandResp custom(float start, float end, std::vector<float>& samples) {
    KSBandResp response{};
    response.eRespType = KS_RT_CUSTOM;
    response.fCentre = (start + end) / 2.0F;
    response.fParm1 = start;
    response.fParm2 = end;
    response.nNumSamples = static_cast<int>(samples.size());
    response.pafSamples = samples.data();
    return response;
}

struct Sensor : KSSensor {
    std::vector<KSBandResp> responses;

    explicit Sensor(std::vector<KSBandResp> bands) : KSSensor{}, responses(std::move(bands)) {
        nNumBands = static_cast<int>(responses.size());
        pBandResp = responses.data();
    }
    Sensor(const Sensor&) = delete;
    Sensor& operator=(const Sensor&) = delete;
};

struct CoeffsDeleter {
    void operator()(KSConvCoeffs* coeffs) const {
        KSFreeConvCoeffs(coeffs);
        std::free(coeffs);
    }
};
using Coeffs = std::unique_ptr<KSConvCoeffs, CoeffsDeleter>;

inline Coeffs coeffsFor(const Schema& schema, const Sensor& sensor) {
    return Coeffs(KSGenSpPrConvCoeffs(schema.get(), &sensor));
}

inline std::vector<float> weights(const Coeffs& coeffs) {
    return {coeffs->pafCoeffs, coeffs->pafCoeffs + coeffs->nNumCoeffs};
}

using Range = std::pair<int, int>;
constexpr Range kUncovered = {-1, -1};

inline Range rangeOf(const Coeffs& coeffs, int band) { return {coeffs->panStartInd[band], coeffs->panEndInd[band]}; }

inline std::vector<float> evenly(float first, float step, int count) {
    std::vector<float> values;
    for (int i = 0; i < count; ++i) values.push_back(first + step * static_cast<float>(i));
    return values;
}

/// A schema of a target and its measurements.
inline Schema targetAt(const std::vector<float>& wavelengths) { return schemaOf({KS_FLD_TARGET}, wavelengths); }

inline Spectrum spectrumOf(const std::vector<float>& wlens, const std::vector<double>& values) {
    const Schema schema = targetAt(wlens);
    Spectrum spectrum(KSCreateSpec(schema.get()));
    for (std::size_t i = 0; i < values.size(); ++i) {
        spectrum->pMeas->ve[i] = values[i];
        spectrum->pSD->ve[i] = values[i] / 8.0;
        spectrum->peBandQual[i] = KS_BQ_PLOT;
    }
    return spectrum;
}

/// A spectrum to be filled, with another one's traces in it.
inline Spectrum blankSpectrum(int values) {
    return spectrumOf(std::vector<float>(static_cast<std::size_t>(values)),
                      std::vector<double>(static_cast<std::size_t>(values), 77.0));
}

inline std::vector<double> values(const Spectrum& spectrum) {
    return {spectrum->pMeas->ve, spectrum->pMeas->ve + spectrum->nNumMeasVals};
}

inline std::vector<double> deviations(const Spectrum& spectrum) {
    return {spectrum->pSD->ve, spectrum->pSD->ve + spectrum->nNumMeasVals};
}

inline std::vector<int> qualities(const Spectrum& spectrum) {
    return {spectrum->peBandQual, spectrum->peBandQual + spectrum->nNumMeasVals};
}

inline std::vector<float> wavelengthsOf(const Spectrum& spectrum) {
    return {spectrum->pafWlen, spectrum->pafWlen + spectrum->nNumMeasVals};
}

/// What a call reports: its own text, after those of what it called.
inline void expectReports(const Reports& expected, const std::string& what) {
    EXPECT_EQ(host().reports, expected) << what;
    host().forget();
}

}  // namespace kit
