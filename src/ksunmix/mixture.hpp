// The arithmetic around the two solvers that a single pixel and a whole window share.
#pragma once

#include <cmath>

namespace ks {

/// What a set-up that is kept between pixels is for.
struct UnmixOptions {
    bool sumToOne;
    bool nonNegative;
    bool normalise;
};

/// The right-hand side of the equation that asks for a sum of one, and each of its coefficients: the largest sum of a
/// band's endmember values, times the number of bands.
float sumToOneTarget(const float* const* rows, int bands, int endmembers);

/// Clears the singular values below 1e-5 of the largest.
void clearSmallSingularValues(float* singularValues, int endmembers);

/// Clips and rescales fractions as the options ask.
void normaliseFractions(float* fractions, int endmembers, const UnmixOptions& options);

/// From the sum of squared differences over the bands.
inline float rootMeanSquare(float squares, int bands) {
    constexpr float kWithoutBands = 1e-10F;
    return std::sqrt(bands == 0 ? kWithoutBands : squares / static_cast<float>(bands));
}

}  // namespace ks
