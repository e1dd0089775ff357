#include "transform/eigentransform.hpp"

#include <algorithm>
#include <cmath>

#include <Eigen/Eigenvalues>

#include "app/report.hpp"

namespace kscli {
namespace {

using RowMajor = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
using Eigen::MatrixXd;
using Eigen::VectorXd;

MatrixXd toEigen(const Matrix& matrix) {
    return Eigen::Map<const RowMajor>(matrix.values.data(), static_cast<Eigen::Index>(matrix.rows),
                                      static_cast<Eigen::Index>(matrix.columns));
}

Matrix fromEigen(const MatrixXd& matrix) {
    Matrix result(static_cast<std::size_t>(matrix.rows()), static_cast<std::size_t>(matrix.cols()));
    Eigen::Map<RowMajor>(result.values.data(), matrix.rows(), matrix.cols()) = matrix;
    return result;
}

struct Spectrum {
    VectorXd values;   // largest first, none below 0
    MatrixXd vectors;  // columns
};

// What a covariance has below zero is rounding.
Spectrum decompose(const MatrixXd& symmetric) {
    const Eigen::SelfAdjointEigenSolver<MatrixXd> solver(symmetric);
    if (solver.info() != Eigen::Success) {
        fail("the eigenvalues of these bands cannot be computed; leave out bands of extreme values with --bands.");
    }
    return {solver.eigenvalues().reverse().cwiseMax(0.0), solver.eigenvectors().rowwise().reverse()};
}

// Eigenvectors have no sign of their own. Of elements of equal size the first decides, also where rounding parts them.
VectorXd signsOf(const MatrixXd& columns) {
    constexpr double kAsLarge = 1 - 1e-6;
    VectorXd signs(columns.cols());
    for (Eigen::Index k = 0; k < columns.cols(); ++k) {
        const double most = columns.col(k).cwiseAbs().maxCoeff() * kAsLarge;
        Eigen::Index first = 0;
        while (std::abs(columns(first, k)) < most) ++first;
        signs(k) = columns(first, k) < 0 ? -1 : 1;
    }
    return signs;
}

VectorXd inverseOf(const VectorXd& values) { return values.cwiseInverse(); }

EigenTransform assemble(const MatrixXd& forward, const MatrixXd& inverse, const VectorXd& eigenvalues) {
    EigenTransform result;
    result.forward = fromEigen(forward);
    result.inverse = fromEigen(inverse);
    result.eigenvalues.assign(eigenvalues.data(), eigenvalues.data() + eigenvalues.size());
    return result;
}

}  // namespace

void EigenTransform::keep(std::size_t count) {
    Matrix narrow(inverse.rows, count);
    for (std::size_t i = 0; i < narrow.rows; ++i) {
        for (std::size_t k = 0; k < count; ++k) narrow.at(i, k) = inverse.at(i, k);
    }
    inverse = std::move(narrow);
    forward.values.resize(count * forward.columns);
    forward.rows = count;
}

EigenTransform principalComponents(const Matrix& covariance, bool standardised) {
    const MatrixXd sigma = toEigen(covariance);
    VectorXd units = VectorXd::Ones(sigma.rows());
    for (Eigen::Index b = 0; standardised && b < units.size(); ++b) {
        if (sigma(b, b) > 0) units(b) = std::sqrt(sigma(b, b));
    }
    const VectorXd perUnit = inverseOf(units);
    const Spectrum spectrum = decompose(perUnit.asDiagonal() * sigma * perUnit.asDiagonal());
    const MatrixXd vectors = spectrum.vectors * signsOf(spectrum.vectors).asDiagonal();
    return assemble(vectors.transpose() * perUnit.asDiagonal(), units.asDiagonal() * vectors, spectrum.values);
}

EigenTransform noiseAdjusted(const Matrix& covariance, const Matrix& noise) {
    const MatrixXd sigma = toEigen(covariance);
    MatrixXd ofNoise = toEigen(noise);
    VectorXd units = VectorXd::Ones(sigma.rows());
    for (Eigen::Index b = 0; b < units.size(); ++b) {
        const double variance = sigma(b, b);
        if (!(variance > 0)) {
            ofNoise.row(b).setZero();
            ofNoise.col(b).setZero();
            ofNoise(b, b) = 1;
        }
        const double own = ofNoise(b, b);
        units(b) = std::sqrt(own > kLeastNoise * variance ? own : variance);
    }
    const VectorXd perUnit = inverseOf(units);
    const Spectrum whitened = decompose(perUnit.asDiagonal() * ofNoise * perUnit.asDiagonal());
    const VectorXd spread = whitened.values.cwiseMax(kLeastNoise).cwiseSqrt();
    const MatrixXd whitening = whitened.vectors * inverseOf(spread).asDiagonal();

    const MatrixXd scaled = perUnit.asDiagonal() * sigma * perUnit.asDiagonal();
    const MatrixXd ofWhite = whitening.transpose() * scaled * whitening;
    const Spectrum spectrum = decompose(0.5 * (ofWhite + ofWhite.transpose()));
    const MatrixXd weights = whitening * spectrum.vectors;
    const MatrixXd mixing = whitened.vectors * spread.asDiagonal() * spectrum.vectors;
    const VectorXd signs = signsOf(weights);
    EigenTransform result = assemble(signs.asDiagonal() * weights.transpose() * perUnit.asDiagonal(),
                                     units.asDiagonal() * mixing * signs.asDiagonal(), spectrum.values);
    result.withoutNoise = static_cast<std::size_t>((whitened.values.array() < kLeastNoise).count());
    return result;
}

}  // namespace kscli
