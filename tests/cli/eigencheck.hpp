// Plain loops that the transforms are compared with: products, covariances, and Jacobi's rotations for eigenvalues.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "transform/eigentransform.hpp"

namespace clitest {

using kscli::Matrix;

inline Matrix product(const Matrix& a, const Matrix& b) {
    Matrix c(a.rows, b.columns);
    for (std::size_t i = 0; i < a.rows; ++i) {
        for (std::size_t j = 0; j < b.columns; ++j) {
            for (std::size_t k = 0; k < a.columns; ++k) c.at(i, j) += a.at(i, k) * b.at(k, j);
        }
    }
    return c;
}

inline Matrix transposed(const Matrix& a) {
    Matrix t(a.columns, a.rows);
    for (std::size_t i = 0; i < a.rows; ++i) {
        for (std::size_t j = 0; j < a.columns; ++j) t.at(j, i) = a.at(i, j);
    }
    return t;
}

/// Uniform from -1 to 1.
class Numbers {
public:
    explicit Numbers(std::uint32_t seed) : state_(seed) {}
    double next() {
        state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<double>(state_ >> 11U) / 4503599627370496.0 - 1;
    }
    /// Of variance 1, nearly normal.
    double normal() {
        double sum = 0;
        for (int i = 0; i < 12; ++i) sum += next() / 2;
        return sum;
    }
    Matrix matrix(std::size_t rows, std::size_t columns) {
        Matrix m(rows, columns);
        for (double& value : m.values) value = next();
        return m;
    }

private:
    std::uint64_t state_;
};

/// The eigenvalues of a symmetric matrix by Jacobi's cyclic rotations, largest first; vectors in the columns of the
/// second.
struct Jacobi {
    std::vector<double> values;
    Matrix vectors;

    explicit Jacobi(Matrix a) : vectors(a.rows, a.rows) {
        const std::size_t n = a.rows;
        for (std::size_t i = 0; i < n; ++i) vectors.at(i, i) = 1;
        for (int sweep = 0; sweep < 60; ++sweep) {
            for (std::size_t p = 0; p < n; ++p) {
                for (std::size_t q = p + 1; q < n; ++q) rotate(a, p, q);
            }
        }
        std::vector<std::size_t> order;
        for (std::size_t i = 0; i < n; ++i) order.push_back(i);
        for (std::size_t i = 0; i < n; ++i) {
            for (std::size_t j = i + 1; j < n; ++j) {
                if (a.at(order[j], order[j]) > a.at(order[i], order[i])) std::swap(order[i], order[j]);
            }
        }
        Matrix sorted(n, n);
        for (std::size_t k = 0; k < n; ++k) {
            values.push_back(a.at(order[k], order[k]));
            for (std::size_t i = 0; i < n; ++i) sorted.at(i, k) = vectors.at(i, order[k]);
        }
        vectors = sorted;
    }

private:
    void rotate(Matrix& a, std::size_t p, std::size_t q) {
        if (a.at(p, q) == 0) return;
        const double theta = (a.at(q, q) - a.at(p, p)) / (2 * a.at(p, q));
        const double t = (theta < 0 ? -1 : 1) / (std::abs(theta) + std::sqrt(theta * theta + 1));
        const double c = 1 / std::sqrt(t * t + 1);
        const double s = t * c;
        for (std::size_t k = 0; k < a.rows; ++k) {
            const double kp = a.at(k, p);
            const double kq = a.at(k, q);
            a.at(k, p) = c * kp - s * kq;
            a.at(k, q) = s * kp + c * kq;
            const double vp = vectors.at(k, p);
            const double vq = vectors.at(k, q);
            vectors.at(k, p) = c * vp - s * vq;
            vectors.at(k, q) = s * vp + c * vq;
        }
        for (std::size_t k = 0; k < a.rows; ++k) {
            const double pk = a.at(p, k);
            const double qk = a.at(q, k);
            a.at(p, k) = c * pk - s * qk;
            a.at(q, k) = s * pk + c * qk;
        }
    }
};

/// A population covariance in two passes; a row for each sample.
inline Matrix covarianceOfRows(const std::vector<std::vector<double>>& rows) {
    const std::size_t n = rows[0].size();
    std::vector<double> mean(n, 0.0);
    for (const auto& row : rows) {
        for (std::size_t b = 0; b < n; ++b) mean[b] += row[b] / static_cast<double>(rows.size());
    }
    Matrix covariance(n, n);
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < n; ++i) {
            for (std::size_t j = 0; j < n; ++j) {
                covariance.at(i, j) += (row[i] - mean[i]) * (row[j] - mean[j]) / static_cast<double>(rows.size());
            }
        }
    }
    return covariance;
}

}  // namespace clitest
