// How brightness varies across the columns of an image: means of columns, and a polynomial through them.
#pragma once

#include <array>
#include <cstddef>
#include <vector>

namespace kscli {

/// Means of the columns of a rectangle, band by band; values that are not finite do not count.
class ColumnMeans {
public:
    /// The rectangle is x, y, width, height.
    ColumnMeans(const std::array<int, 4>& rectangle, int bands);

    /// Adds the band vectors of a line of `columns` pixels that begins at image column x; what lies outside the
    /// rectangle is left out.
    void addLine(int line, int x, int columns, const float* samples);
    const std::array<int, 4>& rectangle() const { return rectangle_; }
    /// Of one band in every column of the rectangle: not-a-number where a column has no value.
    std::vector<double> of(int band) const;
    /// Some value of the rectangle did not count.
    bool anyMissing() const;

private:
    std::array<int, 4> rectangle_;
    std::size_t bands_;
    std::vector<double> sums_;  // all bands of a column together
    std::vector<double> counts_;
    double lines_ = 0;
};

/// The polynomial through values at columns first, first + 1, ... with the least squares; values that are not-a-number
/// are left out. It is computed in columns scaled to -1..1, in which even high orders stay exact.
class ColumnTrend {
public:
    ColumnTrend(const std::vector<double>& values, int first, int order);

    double at(int column) const;
    /// Of all columns of the rectangle, those without a value too.
    double mean() const { return mean_; }
    /// From the lowest to the highest point within the rectangle.
    double span() const { return highest_ - lowest_; }
    double largest() const;

private:
    double scaled(int column) const { return (column - middle_) / half_; }
    double middle_;
    double half_;
    std::vector<double> coefficients_;  // of Legendre polynomials
    double mean_ = 0;
    double lowest_ = 0;
    double highest_ = 0;
};

}  // namespace kscli
