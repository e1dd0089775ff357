// Polynomials through values by the normal equations, in a precision that results can be compared with.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

namespace kit {

using Exact = long double;

/// Solves a small system by elimination with pivots.
inline std::vector<Exact> solved(std::vector<std::vector<Exact>> a, std::vector<Exact> b) {
    const std::size_t n = b.size();
    for (std::size_t k = 0; k < n; ++k) {
        std::size_t pivot = k;
        for (std::size_t i = k; i < n; ++i) {
            if (std::abs(a[i][k]) > std::abs(a[pivot][k])) pivot = i;
        }
        std::swap(a[k], a[pivot]);
        std::swap(b[k], b[pivot]);
        for (std::size_t i = k + 1; i < n; ++i) {
            const Exact share = a[i][k] / a[k][k];
            for (std::size_t j = k; j < n; ++j) a[i][j] -= share * a[k][j];
            b[i] -= share * b[k];
        }
    }
    for (std::size_t k = n; k-- > 0;) {
        for (std::size_t j = k + 1; j < n; ++j) b[k] -= a[k][j] * b[j];
        b[k] /= a[k][k];
    }
    return b;
}

/// Through values at columns first, first + 1, ..., scaled to -1..1; values that are not-a-number are left out.
class Polynomial {
public:
    template <class Value>
    Polynomial(const std::vector<Value>& values, int first, int order)
        : middle_(static_cast<Exact>(first) + static_cast<Exact>(values.size() - 1) / 2),
          half_(std::max<Exact>(static_cast<Exact>(values.size() - 1) / 2, 1)) {
        const std::size_t n = static_cast<std::size_t>(order) + 1;
        std::vector<std::vector<Exact>> a(n, std::vector<Exact>(n));
        std::vector<Exact> b(n);
        for (std::size_t k = 0; k < values.size(); ++k) {
            if (std::isnan(values[k])) continue;
            const Exact s = scaled(static_cast<Exact>(first) + static_cast<Exact>(k));
            for (std::size_t i = 0; i < n; ++i) {
                for (std::size_t j = 0; j < n; ++j) a[i][j] += std::pow(s, static_cast<Exact>(i + j));
                b[i] += std::pow(s, static_cast<Exact>(i)) * static_cast<Exact>(values[k]);
            }
        }
        coefficients_ = solved(a, b);
    }
    Exact at(int column) const {
        Exact sum = 0;
        for (std::size_t p = 0; p < coefficients_.size(); ++p) {
            sum += coefficients_[p] * std::pow(scaled(static_cast<Exact>(column)), static_cast<Exact>(p));
        }
        return sum;
    }

private:
    Exact scaled(Exact column) const { return (column - middle_) / half_; }
    Exact middle_, half_;
    std::vector<Exact> coefficients_;
};

}  // namespace kit
