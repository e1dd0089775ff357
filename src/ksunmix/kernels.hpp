// The loops that unmixing spends its time in.
#pragma once

#include <cstdint>

namespace ks {

/// A piece of a matrix in rows.
struct MatrixRows {
    double* first;
    std::int64_t leading;  // from one row to the next
    int rows;
    int columns;
};

/// sums[j] = sum over i of factors[i] * element (i, j), by way of four sums of every fourth row each: their additions
/// overlap.
void sumRows(const MatrixRows& matrix, const double* factors, double* sums);
/// Element (i, j) += factors[i] * multiples[j].
void addToRows(const MatrixRows& matrix, const double* factors, const double* multiples);
/// (upper, lower) = (cosine * upper + sine * lower, cosine * lower - sine * upper).
void turnRows(double* upper, double* lower, int columns, double cosine, double sine);

// Several pixels at a time: their values interleaved, pixel fastest, so that each pixel is a lane of a vector and its
// sums are formed in the same order as those of a pixel by itself.

inline constexpr int kBlockPixels = 16;

/// The kept decomposition of an endmember matrix.
struct KeptDecomposition {
    const float* u;  // `equations` rows of `endmembers` values
    const float* w;
    const float* v;
    int equations;
    int endmembers;
};

/// The fractions of a block of pixels by back-substitution.
/// pixels     `equations` rows of kBlockPixels values
/// fractions  `endmembers` rows;  work  the same
void backSubstituteBlock(const KeptDecomposition& kept, const float* pixels, float* fractions, float* work);

/// The sums of squared differences over the bands between a block of pixels and its model.
/// matrix  `bands` rows of `endmembers` values
void misfitBlock(const float* matrix, int bands, int endmembers, const float* pixels, const float* fractions,
                 float* squares);

/// Which pixels of a block have finite values only.
void areFinite(const float* pixels, int bands, bool* finite);

}  // namespace ks
