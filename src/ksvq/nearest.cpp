// The search kernel, in whatever vector width the machine has. Lanes are code vectors, so each distance is summed in
// the order of its components and comes out the same at every width.
#include "ksvq/codetable.hpp"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "ksvq/nearest.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <algorithm>
#include <limits>

HWY_BEFORE_NAMESPACE();
namespace ks::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using Doubles = hn::CappedTag<double, 8>;
using Floats = hn::Rebind<float, Doubles>;
using Distances = hn::Vec<Doubles>;

constexpr std::size_t kSums = 4;  // independent sums at a time hide the latency of additions

/// Distances of kSums * lanes code vectors from `first` on; false when none of them can be below `best`.
HWY_INLINE bool distancesBelow(const double* sample, const CodeTable& table, std::int64_t first, double best,
                               double* HWY_RESTRICT distances) {
    constexpr int kStride = 16;  // components between two looks at the chances
    const Doubles d;
    const Floats f;
    const std::size_t lanes = hn::Lanes(d);
    Distances sum0 = hn::Zero(d);
    Distances sum1 = hn::Zero(d);
    Distances sum2 = hn::Zero(d);
    Distances sum3 = hn::Zero(d);
    const auto limit = hn::Set(d, best);

    for (int band = 0; band < table.bands();) {
        const int end = std::min(band + kStride, table.bands());
        for (; band < end; ++band) {
            const float* codes = table.component(band) + first;
            const auto value = hn::Set(d, sample[band]);
            sum0 = hn::Add(sum0, hn::Abs(hn::Sub(value, hn::PromoteTo(d, hn::LoadU(f, codes)))));
            sum1 = hn::Add(sum1, hn::Abs(hn::Sub(value, hn::PromoteTo(d, hn::LoadU(f, codes + lanes)))));
            sum2 = hn::Add(sum2, hn::Abs(hn::Sub(value, hn::PromoteTo(d, hn::LoadU(f, codes + 2 * lanes)))));
            sum3 = hn::Add(sum3, hn::Abs(hn::Sub(value, hn::PromoteTo(d, hn::LoadU(f, codes + 3 * lanes)))));
        }
        const auto alive =
            hn::Or(hn::Or(hn::Lt(sum0, limit), hn::Lt(sum1, limit)), hn::Or(hn::Lt(sum2, limit), hn::Lt(sum3, limit)));
        if (hn::AllFalse(d, alive)) return false;
    }
    hn::StoreU(sum0, d, distances);
    hn::StoreU(sum1, d, distances + lanes);
    hn::StoreU(sum2, d, distances + 2 * lanes);
    hn::StoreU(sum3, d, distances + 3 * lanes);
    return true;
}

void findNearestHere(const double* sample, const CodeTable& table, Nearest& nearest) {
    const std::int64_t step = static_cast<std::int64_t>(kSums * hn::Lanes(Doubles()));
    double distances[CodeTable::kBlock];
    for (std::int64_t first = 0; first < table.vectors(); first += step) {
        if (!distancesBelow(sample, table, first, nearest.distance, distances)) continue;
        const std::int64_t end = std::min<std::int64_t>(first + step, table.vectors());
        for (std::int64_t c = first; c < end; ++c) {
            const double distance = distances[c - first];
            if (distance < nearest.distance) nearest = {distance, static_cast<int>(c)};
        }
    }
}

}  // namespace ks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace ks {

HWY_EXPORT(findNearestHere);

void findNearest(const double* sample, const CodeTable& table, Nearest& nearest) {
    HWY_DYNAMIC_DISPATCH(findNearestHere)(sample, table, nearest);
}

bool CodeTable::fill(const KSCbk& codebook) {
    vectors_ = std::max(codebook.nNumVects, 0);
    bands_ = std::max(codebook.nNumBands, 0);
    padded_ = (std::int64_t{vectors_} + kBlock - 1) / kBlock * kBlock;
    values_ = allocateArray<float>(std::int64_t{bands_}, padded_);
    if (!values_) return false;
    float* value = values_.get();
    for (int band = 0; band < bands_; ++band) {
        for (int v = 0; v < vectors_; ++v) *value++ = codebook.papafCodeVect[v][band];
        value = std::fill_n(value, padded_ - vectors_, std::numeric_limits<float>::infinity());
    }
    return true;
}

}  // namespace ks
#endif
