#include "brdf/columntrend.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include <Eigen/Dense>

namespace kscli {
namespace {

/// Legendre polynomials 0 .. order at t.
std::vector<double> legendre(double t, std::size_t order) {
    std::vector<double> values = {1.0, t};
    for (std::size_t n = 1; n < order; ++n) {
        const double k = static_cast<double>(n);
        values.push_back(((2 * k + 1) * t * values[n] - k * values[n - 1]) / (k + 1));
    }
    values.resize(order + 1);
    return values;
}

}  // namespace

ColumnMeans::ColumnMeans(const std::array<int, 4>& rectangle, int bands)
    : rectangle_(rectangle), bands_(static_cast<std::size_t>(bands)) {
    sums_.resize(static_cast<std::size_t>(rectangle[2]) * bands_);
    counts_.resize(sums_.size());
}

void ColumnMeans::addLine(int line, int x, int columns, const float* samples) {
    const auto [left, top, width, height] = rectangle_;
    if (line < top || line >= top + height) return;
    const int begin = std::max(left, x);
    const int end = std::min(left + width, x + columns);
    if (begin >= end) return;
    const float* value = samples + static_cast<std::size_t>(begin - x) * bands_;
    std::size_t i = static_cast<std::size_t>(begin - left) * bands_;
    const std::size_t stop = static_cast<std::size_t>(end - left) * bands_;
    for (; i < stop; ++i, ++value) {
        const bool counts = std::isfinite(*value);
        sums_[i] += counts ? static_cast<double>(*value) : 0.0;
        counts_[i] += counts ? 1.0 : 0.0;
    }
    lines_ += 1;
}

std::vector<double> ColumnMeans::of(int band) const {
    std::vector<double> means;
    for (std::size_t i = static_cast<std::size_t>(band); i < sums_.size(); i += bands_) {
        means.push_back(counts_[i] > 0 ? sums_[i] / counts_[i] : std::numeric_limits<double>::quiet_NaN());
    }
    return means;
}

bool ColumnMeans::anyMissing() const {
    return std::any_of(counts_.begin(), counts_.end(), [this](double count) { return count < lines_; });
}

ColumnTrend::ColumnTrend(const std::vector<double>& values, int first, int order)
    : middle_(first + (static_cast<double>(values.size()) - 1) / 2),
      half_(std::max((static_cast<double>(values.size()) - 1) / 2, 1.0)) {
    const auto columns = static_cast<int>(values.size());
    const auto known = std::count_if(values.begin(), values.end(), [](double value) { return !std::isnan(value); });
    Eigen::MatrixXd design(known, order + 1);
    Eigen::VectorXd right(known);
    Eigen::Index row = 0;
    for (int i = 0; i < columns; ++i) {
        const double value = values[static_cast<std::size_t>(i)];
        if (std::isnan(value)) continue;
        const std::vector<double> terms = legendre(scaled(first + i), static_cast<std::size_t>(order));
        design.row(row) = Eigen::Map<const Eigen::RowVectorXd>(terms.data(), order + 1);
        right(row++) = value;
    }
    const Eigen::VectorXd solution = design.householderQr().solve(right);
    coefficients_.assign(solution.data(), solution.data() + solution.size());
    lowest_ = highest_ = at(first);
    for (int i = 0; i < columns; ++i) {
        const double value = at(first + i);
        lowest_ = std::min(lowest_, value);
        highest_ = std::max(highest_, value);
        mean_ += value / columns;
    }
}

double ColumnTrend::at(int column) const {
    const std::vector<double> terms = legendre(scaled(column), coefficients_.size() - 1);
    double sum = 0;
    for (std::size_t n = 0; n < terms.size(); ++n) sum += coefficients_[n] * terms[n];
    return sum;
}

double ColumnTrend::largest() const { return std::max(std::abs(lowest_), std::abs(highest_)); }

}  // namespace kscli
