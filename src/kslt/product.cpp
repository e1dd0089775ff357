#include "kslt/product.hpp"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kslt/product.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace ks::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

void multiplyTileHere(const MAT& transform, const double* HWY_RESTRICT source, double* HWY_RESTRICT destination) {
    const hn::CappedTag<double, 8> d;
    const std::size_t lanes = hn::Lanes(d);
    for (u_int row = 0; row < transform.m; ++row) {
        const double* factors = transform.me[row];
        // Four sums at a time hide the latency of additions; multiplying and adding stay two rounded steps.
        for (std::size_t s = 0; s < kTileSamples; s += 4 * lanes) {
            auto sum0 = hn::Zero(d);
            auto sum1 = hn::Zero(d);
            auto sum2 = hn::Zero(d);
            auto sum3 = hn::Zero(d);
            const double* samples = source + s;
            for (u_int k = 0; k < transform.n; ++k, samples += kTileSamples) {
                const auto factor = hn::Set(d, factors[k]);
                sum0 = hn::Add(sum0, hn::Mul(factor, hn::LoadU(d, samples)));
                sum1 = hn::Add(sum1, hn::Mul(factor, hn::LoadU(d, samples + lanes)));
                sum2 = hn::Add(sum2, hn::Mul(factor, hn::LoadU(d, samples + 2 * lanes)));
                sum3 = hn::Add(sum3, hn::Mul(factor, hn::LoadU(d, samples + 3 * lanes)));
            }
            double* out = destination + std::size_t{row} * kTileSamples + s;
            hn::StoreU(sum0, d, out);
            hn::StoreU(sum1, d, out + lanes);
            hn::StoreU(sum2, d, out + 2 * lanes);
            hn::StoreU(sum3, d, out + 3 * lanes);
        }
    }
}

}  // namespace ks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace ks {

HWY_EXPORT(multiplyTileHere);

void multiplyTile(const MAT& transform, const double* source, double* destination) {
    HWY_DYNAMIC_DISPATCH(multiplyTileHere)(transform, source, destination);
}

}  // namespace ks
#endif
