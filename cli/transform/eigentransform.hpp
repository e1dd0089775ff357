// Linear transforms of band vectors that second moments determine: principal components, and components ordered by how
// far their variance exceeds that of the noise. Both come with the exact inverse.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace kscli {

/// Row after row.
struct Matrix {
    std::size_t rows = 0;
    std::size_t columns = 0;
    std::vector<double> values;

    Matrix() = default;
    Matrix(std::size_t r, std::size_t c) : rows(r), columns(c), values(r * c, 0.0) {}
    Matrix(std::size_t r, std::size_t c, std::vector<double> v) : rows(r), columns(c), values(std::move(v)) {}
    double& at(std::size_t i, std::size_t j) { return values[i * columns + j]; }
    double at(std::size_t i, std::size_t j) const { return values[i * columns + j]; }
};

/// component = forward (value - mean), value = inverse component + mean. The element of largest size in each row of
/// `forward`, in units of the bands' own spread, is positive.
struct EigenTransform {
    Matrix forward;                   // a row for each component
    Matrix inverse;                   // a column for each component
    std::vector<double> eigenvalues;  // of all components, the largest first; also after keep()
    std::size_t withoutNoise = 0;     // directions in which next to no noise was found, see noiseAdjusted()

    std::size_t components() const { return forward.rows; }
    /// Leaves the first `count` components; the inverse then gives the nearest values that these can tell.
    void keep(std::size_t count);
};

/// Components that are uncorrelated, in order of variance. Standardised: of bands divided by their standard deviation;
/// a band without variance keeps its unit. The eigenvalues are the variances of the components.
EigenTransform principalComponents(const Matrix& covariance, bool standardised);

/// Components that are uncorrelated, as their noise is, in units in which that has variance 1, in order of variance and
/// so of signal to noise. The eigenvalues are these variances; 1 is noise alone.
///  covariance  of the values.   noise  covariance of their noise; may be singular.
/// Where bands are scaled to a noise of 1, a direction whose noise variance is below kLeastNoise counts as having that,
/// so that every component can be inverted. A band without variance keeps its unit and its noise counts as 1: it ends
/// among the last. A band with variance and no noise counts as having a noise variance of kLeastNoise of its own.
EigenTransform noiseAdjusted(const Matrix& covariance, const Matrix& noise);

/// A ten-thousandth of a band's noise: about what rounding to float32 adds to a signal a thousand times the noise.
constexpr double kLeastNoise = 1e-8;

}  // namespace kscli
