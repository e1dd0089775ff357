// Sums over band vectors, the inner loop of all statistics.
// Lanes are bands: every sum grows by one sample after another, so that it comes out the same at every vector width.
#pragma once

#include <cstddef>

namespace ks {

/// One value a band each, or null where a statistic is not wanted.
struct Moments {
    int bands;
    double* min;
    double* max;
    double* sum;
    double* squares;
    double* const* products;  // rows of a square matrix; the upper triangle with the diagonal
    /// What a not-a-number does to the extremes: it stays in both, or never becomes the minimum, and is the maximum
    /// until the next value.
    bool marksNaN;
};

/// Adds `count` band vectors that lie one after another.
void addSamples(const double* samples, std::size_t count, const Moments& moments);

}  // namespace ks
