// The kernels, in whatever vector width the machine has. Multiplying and adding stay two rounded steps.
#include "ksunmix/kernels.hpp"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "ksunmix/kernels.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <algorithm>

HWY_BEFORE_NAMESPACE();
namespace ks::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Half a block at most, so that two sums at a time fill one.
using Floats = hn::CappedTag<float, kBlockPixels / 2>;

// ---- rows ----

/// Calls body(tag, column) for all columns, as many at a time as there are lanes and columns left.
template <class Body>
HWY_INLINE void forColumns(int columns, const Body& body) {
    const hn::CappedTag<double, 8> wide;
    const hn::CappedTag<double, 4> narrow;
    const hn::CappedTag<double, 1> single;
    int j = 0;
    for (; j + static_cast<int>(hn::Lanes(wide)) <= columns; j += static_cast<int>(hn::Lanes(wide))) body(wide, j);
    for (; j + static_cast<int>(hn::Lanes(narrow)) <= columns; j += static_cast<int>(hn::Lanes(narrow)))
        body(narrow, j);
    for (; j < columns; ++j) body(single, j);
}

template <class D>
HWY_INLINE void sumColumns(D d, const MatrixRows& matrix, const double* HWY_RESTRICT first,
                           const double* HWY_RESTRICT factors, double* HWY_RESTRICT sums) {
    const std::int64_t leading = matrix.leading;
    auto sum0 = hn::Zero(d);
    auto sum1 = hn::Zero(d);
    auto sum2 = hn::Zero(d);
    auto sum3 = hn::Zero(d);
    int i = 0;
    for (; i + 4 <= matrix.rows; i += 4, first += 4 * leading) {
        sum0 = hn::Add(sum0, hn::Mul(hn::Set(d, factors[i]), hn::LoadU(d, first)));
        sum1 = hn::Add(sum1, hn::Mul(hn::Set(d, factors[i + 1]), hn::LoadU(d, first + leading)));
        sum2 = hn::Add(sum2, hn::Mul(hn::Set(d, factors[i + 2]), hn::LoadU(d, first + 2 * leading)));
        sum3 = hn::Add(sum3, hn::Mul(hn::Set(d, factors[i + 3]), hn::LoadU(d, first + 3 * leading)));
    }
    if (i < matrix.rows) sum0 = hn::Add(sum0, hn::Mul(hn::Set(d, factors[i]), hn::LoadU(d, first)));
    if (i + 1 < matrix.rows) sum1 = hn::Add(sum1, hn::Mul(hn::Set(d, factors[i + 1]), hn::LoadU(d, first + leading)));
    if (i + 2 < matrix.rows) {
        sum2 = hn::Add(sum2, hn::Mul(hn::Set(d, factors[i + 2]), hn::LoadU(d, first + 2 * leading)));
    }
    hn::StoreU(hn::Add(hn::Add(sum0, sum1), hn::Add(sum2, sum3)), d, sums);
}

void sumRowsHere(const MatrixRows& matrix, const double* factors, double* sums) {
    forColumns(matrix.columns, [&](auto d, int j) { sumColumns(d, matrix, matrix.first + j, factors, sums + j); });
}

template <class D>
HWY_INLINE void addToColumns(D d, const MatrixRows& matrix, double* HWY_RESTRICT first,
                             const double* HWY_RESTRICT factors, const double* HWY_RESTRICT multiples) {
    const auto multiple = hn::LoadU(d, multiples);
    for (int i = 0; i < matrix.rows; ++i, first += matrix.leading) {
        hn::StoreU(hn::Add(hn::LoadU(d, first), hn::Mul(multiple, hn::Set(d, factors[i]))), d, first);
    }
}

void addToRowsHere(const MatrixRows& matrix, const double* factors, const double* multiples) {
    forColumns(matrix.columns,
               [&](auto d, int j) { addToColumns(d, matrix, matrix.first + j, factors, multiples + j); });
}

template <class D>
HWY_INLINE void turn(D d, double* upper, double* lower, double cosine, double sine) {
    const auto above = hn::LoadU(d, upper);
    const auto below = hn::LoadU(d, lower);
    const auto c = hn::Set(d, cosine);
    const auto s = hn::Set(d, sine);
    hn::StoreU(hn::Add(hn::Mul(c, above), hn::Mul(s, below)), d, upper);
    hn::StoreU(hn::Sub(hn::Mul(c, below), hn::Mul(s, above)), d, lower);
}

void turnRowsHere(double* upper, double* lower, int columns, double cosine, double sine) {
    forColumns(columns, [&](auto d, int j) { turn(d, upper + j, lower + j, cosine, sine); });
}

// ---- blocks of pixels ----

/// Sums over the rows of factors times values, for four series of factors at once: their additions overlap. The rows of
/// values and the sums are `width` apart, the factors `step`.
template <class D, class T = hn::TFromD<D>>
HWY_INLINE void fourSums(D d, int rows, const T* HWY_RESTRICT factors0, const T* HWY_RESTRICT factors1,
                         const T* HWY_RESTRICT factors2, const T* HWY_RESTRICT factors3, std::ptrdiff_t step,
                         const T* HWY_RESTRICT values, std::ptrdiff_t width, T* HWY_RESTRICT sums) {
    auto sum0 = hn::Zero(d);
    auto sum1 = hn::Zero(d);
    auto sum2 = hn::Zero(d);
    auto sum3 = hn::Zero(d);
    for (std::ptrdiff_t row = 0, at = 0; row < rows; ++row, at += step, values += width) {
        const auto value = hn::LoadU(d, values);
        sum0 = hn::Add(sum0, hn::Mul(hn::Set(d, factors0[at]), value));
        sum1 = hn::Add(sum1, hn::Mul(hn::Set(d, factors1[at]), value));
        sum2 = hn::Add(sum2, hn::Mul(hn::Set(d, factors2[at]), value));
        sum3 = hn::Add(sum3, hn::Mul(hn::Set(d, factors3[at]), value));
    }
    hn::StoreU(sum0, d, sums);
    hn::StoreU(sum1, d, sums + width);
    hn::StoreU(sum2, d, sums + 2 * width);
    hn::StoreU(sum3, d, sums + 3 * width);
}

template <class D, class T = hn::TFromD<D>>
HWY_INLINE void oneSum(D d, int rows, const T* HWY_RESTRICT factors, std::ptrdiff_t step, const T* HWY_RESTRICT values,
                       std::ptrdiff_t width, T* HWY_RESTRICT sums) {
    auto sum = hn::Zero(d);
    for (std::ptrdiff_t row = 0, at = 0; row < rows; ++row, at += step, values += width) {
        sum = hn::Add(sum, hn::Mul(hn::Set(d, factors[at]), hn::LoadU(d, values)));
    }
    hn::StoreU(sum, d, sums);
}

/// The product of a matrix, given by the factors of each row of the product, with a block of vectors.
template <class D, class FactorsOf, class T = hn::TFromD<D>>
HWY_INLINE void product(D d, int count, int rows, const FactorsOf& factorsOf, std::ptrdiff_t step, const T* values,
                        std::ptrdiff_t width, T* sums) {
    for (std::ptrdiff_t s = 0; s < width; s += static_cast<std::ptrdiff_t>(hn::Lanes(d))) {
        int done = 0;
        for (; done + 4 <= count; done += 4) {
            fourSums(d, rows, factorsOf(done), factorsOf(done + 1), factorsOf(done + 2), factorsOf(done + 3), step,
                     values + s, width, sums + done * width + s);
        }
        for (; done < count; ++done) {
            oneSum(d, rows, factorsOf(done), step, values + s, width, sums + done * width + s);
        }
    }
}

void backSubstituteBlockHere(const KeptDecomposition& kept, const float* pixels, float* fractions, float* work) {
    const Floats d;
    const int n = kept.endmembers;
    product(
        d, n, kept.equations, [&](int k) { return kept.u + k; }, n, pixels, kBlockPixels, work);
    for (int k = 0; k < n; ++k) {
        float* const t = work + std::ptrdiff_t{k} * kBlockPixels;
        const auto singularValue = hn::Set(d, kept.w[k]);
        for (std::size_t s = 0; s < kBlockPixels; s += hn::Lanes(d)) {
            const auto divided = hn::Div(hn::LoadU(d, t + s), singularValue);
            hn::StoreU(kept.w[k] != 0.0F ? divided : hn::Zero(d), d, t + s);
        }
    }
    const auto rowOfV = [&](int e) { return kept.v + std::ptrdiff_t{e} * n; };
    product(d, n, n, rowOfV, 1, work, kBlockPixels, fractions);
}

void misfitBlockHere(const float* matrix, int bands, int endmembers, const float* pixels, const float* fractions,
                     float* squares) {
    const Floats d;
    const std::size_t lanes = hn::Lanes(d);
    for (std::size_t s = 0; s < kBlockPixels; s += 2 * lanes) {
        auto squares0 = hn::Zero(d);
        auto squares1 = hn::Zero(d);
        const float* factors = matrix;
        const float* measured = pixels + s;
        for (int band = 0; band < bands; ++band, measured += kBlockPixels) {
            auto modelled0 = hn::Zero(d);
            auto modelled1 = hn::Zero(d);
            const float* fraction = fractions + s;
            for (int e = 0; e < endmembers; ++e, fraction += kBlockPixels) {
                const auto factor = hn::Set(d, *factors++);
                modelled0 = hn::Add(modelled0, hn::Mul(factor, hn::LoadU(d, fraction)));
                modelled1 = hn::Add(modelled1, hn::Mul(factor, hn::LoadU(d, fraction + lanes)));
            }
            const auto difference0 = hn::Sub(modelled0, hn::LoadU(d, measured));
            const auto difference1 = hn::Sub(modelled1, hn::LoadU(d, measured + lanes));
            squares0 = hn::Add(squares0, hn::Mul(difference0, difference0));
            squares1 = hn::Add(squares1, hn::Mul(difference1, difference1));
        }
        hn::StoreU(squares0, d, squares + s);
        hn::StoreU(squares1, d, squares + s + lanes);
    }
}

void areFiniteHere(const float* pixels, int bands, bool* finite) {
    const Floats d;
    float ones[kBlockPixels];
    for (std::size_t s = 0; s < kBlockPixels; s += hn::Lanes(d)) {
        auto sofar = hn::Eq(hn::Zero(d), hn::Zero(d));
        for (int band = 0; band < bands; ++band) {
            sofar = hn::And(sofar, hn::IsFinite(hn::LoadU(d, pixels + std::ptrdiff_t{band} * kBlockPixels + s)));
        }
        hn::StoreU(hn::IfThenElseZero(sofar, hn::Set(d, 1.0F)), d, ones + s);
    }
    for (int i = 0; i < kBlockPixels; ++i) finite[i] = ones[i] == 1.0F;
}

}  // namespace ks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace ks {

HWY_EXPORT(sumRowsHere);
HWY_EXPORT(addToRowsHere);
HWY_EXPORT(turnRowsHere);
HWY_EXPORT(backSubstituteBlockHere);
HWY_EXPORT(misfitBlockHere);
HWY_EXPORT(areFiniteHere);

void sumRows(const MatrixRows& matrix, const double* factors, double* sums) {
    HWY_DYNAMIC_DISPATCH(sumRowsHere)(matrix, factors, sums);
}

void addToRows(const MatrixRows& matrix, const double* factors, const double* multiples) {
    HWY_DYNAMIC_DISPATCH(addToRowsHere)(matrix, factors, multiples);
}

void turnRows(double* upper, double* lower, int columns, double cosine, double sine) {
    HWY_DYNAMIC_DISPATCH(turnRowsHere)(upper, lower, columns, cosine, sine);
}

void backSubstituteBlock(const KeptDecomposition& kept, const float* pixels, float* fractions, float* work) {
    HWY_DYNAMIC_DISPATCH(backSubstituteBlockHere)(kept, pixels, fractions, work);
}

void misfitBlock(const float* matrix, int bands, int endmembers, const float* pixels, const float* fractions,
                 float* squares) {
    HWY_DYNAMIC_DISPATCH(misfitBlockHere)(matrix, bands, endmembers, pixels, fractions, squares);
}

void areFinite(const float* pixels, int bands, bool* finite) {
    HWY_DYNAMIC_DISPATCH(areFiniteHere)(pixels, bands, finite);
}

}  // namespace ks
#endif
