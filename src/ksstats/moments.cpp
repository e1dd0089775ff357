// The summing kernels, in whatever vector width the machine has.
#include "ksstats/moments.hpp"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "ksstats/moments.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <algorithm>

HWY_BEFORE_NAMESPACE();
namespace ks::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using Doubles = hn::ScalableTag<double>;

/// Covers the bands from `first` on with vectors as wide as fit: body(tag, band) for each of them.
template <class Body>
HWY_INLINE void coverBands(std::size_t first, std::size_t bands, Body body) {
    const auto coverWith = [&](auto d) HWY_ATTR {
        for (; first + hn::Lanes(d) <= bands; first += hn::Lanes(d)) body(d, first);
    };
    coverWith(Doubles());
    coverWith(hn::CappedTag<double, 4>());
    coverWith(hn::CappedTag<double, 2>());
    coverWith(hn::CappedTag<double, 1>());
}

/// Folds all samples into the values of one statistic.
template <class Step>
HWY_INLINE void fold(const double* samples, std::size_t count, std::size_t bands, double* values, Step step) {
    if (values == nullptr) return;
    coverBands(0, bands, [=](auto d, std::size_t band) HWY_ATTR {
        auto folded = hn::LoadU(d, values + band);
        for (std::size_t s = 0; s < count; ++s) folded = step(folded, hn::LoadU(d, samples + s * bands + band));
        hn::StoreU(folded, d, values + band);
    });
}

constexpr std::size_t kRows = 4;  // rows of the product matrix at a time share their loads

/// The products of kRows bands from `i` on with a vector of bands from `j` on, which all lie right of the diagonal.
template <class D>
HWY_INLINE void addProducts(D d, const double* samples, std::size_t count, std::size_t bands, std::size_t i,
                            std::size_t j, double* const* products) {
    auto sum0 = hn::LoadU(d, products[i] + j);
    auto sum1 = hn::LoadU(d, products[i + 1] + j);
    auto sum2 = hn::LoadU(d, products[i + 2] + j);
    auto sum3 = hn::LoadU(d, products[i + 3] + j);
    for (std::size_t s = 0; s < count; ++s) {
        const double* sample = samples + s * bands;
        const auto right = hn::LoadU(d, sample + j);
        sum0 = hn::Add(sum0, hn::Mul(hn::Set(d, sample[i]), right));
        sum1 = hn::Add(sum1, hn::Mul(hn::Set(d, sample[i + 1]), right));
        sum2 = hn::Add(sum2, hn::Mul(hn::Set(d, sample[i + 2]), right));
        sum3 = hn::Add(sum3, hn::Mul(hn::Set(d, sample[i + 3]), right));
    }
    hn::StoreU(sum0, d, products[i] + j);
    hn::StoreU(sum1, d, products[i + 1] + j);
    hn::StoreU(sum2, d, products[i + 2] + j);
    hn::StoreU(sum3, d, products[i + 3] + j);
}

/// The same for two vectors of bands, whose eight independent sums hide the latency of additions.
HWY_INLINE void addWideProducts(const double* samples, std::size_t count, std::size_t bands, std::size_t i,
                                std::size_t j, double* const* products) {
    const Doubles d;
    const std::size_t k = j + hn::Lanes(d);
    auto sum0 = hn::LoadU(d, products[i] + j);
    auto sum1 = hn::LoadU(d, products[i + 1] + j);
    auto sum2 = hn::LoadU(d, products[i + 2] + j);
    auto sum3 = hn::LoadU(d, products[i + 3] + j);
    auto sum4 = hn::LoadU(d, products[i] + k);
    auto sum5 = hn::LoadU(d, products[i + 1] + k);
    auto sum6 = hn::LoadU(d, products[i + 2] + k);
    auto sum7 = hn::LoadU(d, products[i + 3] + k);
    for (std::size_t s = 0; s < count; ++s) {
        const double* sample = samples + s * bands;
        const auto near = hn::LoadU(d, sample + j);
        const auto far = hn::LoadU(d, sample + k);
        const auto value0 = hn::Set(d, sample[i]);
        const auto value1 = hn::Set(d, sample[i + 1]);
        const auto value2 = hn::Set(d, sample[i + 2]);
        const auto value3 = hn::Set(d, sample[i + 3]);
        sum0 = hn::Add(sum0, hn::Mul(value0, near));
        sum1 = hn::Add(sum1, hn::Mul(value1, near));
        sum2 = hn::Add(sum2, hn::Mul(value2, near));
        sum3 = hn::Add(sum3, hn::Mul(value3, near));
        sum4 = hn::Add(sum4, hn::Mul(value0, far));
        sum5 = hn::Add(sum5, hn::Mul(value1, far));
        sum6 = hn::Add(sum6, hn::Mul(value2, far));
        sum7 = hn::Add(sum7, hn::Mul(value3, far));
    }
    hn::StoreU(sum0, d, products[i] + j);
    hn::StoreU(sum1, d, products[i + 1] + j);
    hn::StoreU(sum2, d, products[i + 2] + j);
    hn::StoreU(sum3, d, products[i + 3] + j);
    hn::StoreU(sum4, d, products[i] + k);
    hn::StoreU(sum5, d, products[i + 1] + k);
    hn::StoreU(sum6, d, products[i + 2] + k);
    hn::StoreU(sum7, d, products[i + 3] + k);
}

/// One product of the matrix.
HWY_INLINE void addProduct(const double* samples, std::size_t count, std::size_t bands, std::size_t i, std::size_t j,
                           double* const* products) {
    double sum = products[i][j];
    for (std::size_t s = 0; s < count; ++s) sum += samples[s * bands + i] * samples[s * bands + j];
    products[i][j] = sum;
}

HWY_INLINE void addAllProducts(const double* samples, std::size_t count, std::size_t bands, double* const* products) {
    const std::size_t wide = 2 * hn::Lanes(Doubles());
    for (std::size_t i = 0; i < bands; i += kRows) {
        const std::size_t end = std::min(i + kRows, bands);
        // Beside the diagonal, and where fewer than kRows rows are left.
        for (std::size_t row = i; row < end; ++row) {
            for (std::size_t j = row; j < end; ++j) addProduct(samples, count, bands, row, j, products);
        }
        std::size_t j = end;
        for (; j + wide <= bands; j += wide) addWideProducts(samples, count, bands, i, j, products);
        coverBands(j, bands, [=](auto d, std::size_t band) HWY_ATTR {
            addProducts(d, samples, count, bands, i, band, products);
        });
    }
}

HWY_INLINE void foldExtremes(const double* samples, std::size_t count, std::size_t bands, const Moments& moments) {
    if (moments.marksNaN) {
        // A not-a-number in the statistic stays there: no comparison with it is true.
        fold(samples, count, bands, moments.min, [](auto least, auto value) HWY_ATTR {
            return hn::IfThenElse(hn::Or(hn::Lt(value, least), hn::IsNaN(value)), value, least);
        });
        fold(samples, count, bands, moments.max, [](auto most, auto value) HWY_ATTR {
            return hn::IfThenElse(hn::Or(hn::Gt(value, most), hn::IsNaN(value)), value, most);
        });
        return;
    }
    fold(samples, count, bands, moments.min,
         [](auto least, auto value) HWY_ATTR { return hn::IfThenElse(hn::Gt(least, value), value, least); });
    fold(samples, count, bands, moments.max,
         [](auto most, auto value) HWY_ATTR { return hn::IfThenElse(hn::Ge(most, value), most, value); });
}

void addSamplesHere(const double* samples, std::size_t count, const Moments& moments) {
    const std::size_t bands = static_cast<std::size_t>(moments.bands);
    foldExtremes(samples, count, bands, moments);
    fold(samples, count, bands, moments.sum, [](auto sum, auto value) HWY_ATTR { return hn::Add(sum, value); });
    fold(samples, count, bands, moments.squares,
         [](auto sum, auto value) HWY_ATTR { return hn::Add(sum, hn::Mul(value, value)); });
    if (moments.products != nullptr) addAllProducts(samples, count, bands, moments.products);
}

}  // namespace ks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace ks {

HWY_EXPORT(addSamplesHere);

void addSamples(const double* samples, std::size_t count, const Moments& moments) {
    HWY_DYNAMIC_DISPATCH(addSamplesHere)(samples, count, moments);
}

}  // namespace ks
#endif
