// Interpolation between 256 spectra, in whatever vector width the machine has. Lanes are values of the entries, so each
// is summed over the corners in their order and comes out the same at every width.
#include <kslib/ksat.h>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "ksat/interpolation.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <cstddef>

HWY_BEFORE_NAMESPACE();
namespace ks::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

constexpr int kCorners = 256;

/// One corner's values, first and second ones alternating.
HWY_INLINE const float* valuesOf(const RLUTEntry* entries) { return &entries->fFirst; }

/// Sums of four vectors of values at a time hide the latency of additions.
template <class D>
HWY_INLINE std::size_t sumWide(D d, const RLUTEntry* const* corners, const double* weights, std::size_t value,
                               std::size_t count, float* out) {
    const hn::Rebind<float, D> f;
    const std::size_t lanes = hn::Lanes(d);
    for (; value + 4 * lanes <= count; value += 4 * lanes) {
        auto sum0 = hn::Zero(d);
        auto sum1 = hn::Zero(d);
        auto sum2 = hn::Zero(d);
        auto sum3 = hn::Zero(d);
        for (int k = 0; k < kCorners; ++k) {
            const float* from = valuesOf(corners[k]) + value;
            const auto weight = hn::Set(d, weights[k]);
            sum0 = hn::Add(sum0, hn::Mul(hn::PromoteTo(d, hn::LoadU(f, from)), weight));
            sum1 = hn::Add(sum1, hn::Mul(hn::PromoteTo(d, hn::LoadU(f, from + lanes)), weight));
            sum2 = hn::Add(sum2, hn::Mul(hn::PromoteTo(d, hn::LoadU(f, from + 2 * lanes)), weight));
            sum3 = hn::Add(sum3, hn::Mul(hn::PromoteTo(d, hn::LoadU(f, from + 3 * lanes)), weight));
        }
        hn::StoreU(hn::DemoteTo(f, sum0), f, out + value);
        hn::StoreU(hn::DemoteTo(f, sum1), f, out + value + lanes);
        hn::StoreU(hn::DemoteTo(f, sum2), f, out + value + 2 * lanes);
        hn::StoreU(hn::DemoteTo(f, sum3), f, out + value + 3 * lanes);
    }
    return value;
}

void interpolateHere(const RLUTEntry* const* corners, const double* weights, std::size_t count, float* out) {
    std::size_t value = sumWide(hn::CappedTag<double, 8>(), corners, weights, 0, count, out);
    for (; value < count; ++value) {
        double sum = 0.0;
        for (int k = 0; k < kCorners; ++k) sum += static_cast<double>(valuesOf(corners[k])[value]) * weights[k];
        out[value] = static_cast<float>(sum);
    }
}

}  // namespace ks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace ks {

HWY_EXPORT(interpolateHere);

namespace {

constexpr int kDimensions = 8;
constexpr int kAllCorners = 1 << kDimensions;

/// The share of every corner: bit i of its number says which bound of dimension i it lies at.
void fillWeights(const float* point, const float* bounds, double* weights) {
    double upper[kDimensions];
    for (int i = 0; i < kDimensions; ++i) {
        const double low = static_cast<double>(bounds[2 * i]);
        const double high = static_cast<double>(bounds[2 * i + 1]);
        upper[i] = (static_cast<double>(point[i]) - low) / (high - low);
    }
    for (int k = 0; k < kAllCorners; ++k) {
        double weight = 1.0;
        for (int i = 0; i < kDimensions; ++i) weight *= ((k >> i) & 1) != 0 ? upper[i] : 1.0 - upper[i];
        weights[k] = weight;
    }
}

void interpolate(const RLUTEntry* const* corners, const double* weights, std::size_t count, float* out) {
    HWY_DYNAMIC_DISPATCH(interpolateHere)(corners, weights, count, out);
}

}  // namespace
}  // namespace ks

void KSInterpSpec(const float* pafPoint, const float* pafBounds, const RLUTEntry* const* papCorners, RLUTEntry* paOut,
                  int nEntries) {
    if (nEntries < 1) return;
    double weights[ks::kAllCorners];
    ks::fillWeights(pafPoint, pafBounds, weights);
    ks::interpolate(papCorners, weights, 2 * static_cast<std::size_t>(nEntries), &paOut->fFirst);
}
#endif
