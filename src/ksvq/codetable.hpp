// Code vectors arranged for comparing one sample with many of them at once, and the search among them.
#pragma once

#include <kslib/kscbk.h>

#include <cstdint>

#include "support/heap.hpp"

namespace ks {

/// The code vectors of a codebook with the components outermost: the first components of all vectors, then the second
/// ones, ... Padded to whole blocks with vectors that are infinitely far from everything.
class CodeTable {
public:
    static constexpr std::int64_t kBlock = 32;  // code vectors that are compared together

    /// False when there is no memory.
    [[nodiscard]] bool fill(const KSCbk& codebook);

    int vectors() const { return vectors_; }
    int bands() const { return bands_; }
    std::int64_t padded() const { return padded_; }
    const float* component(int band) const { return values_.get() + band * padded_; }

private:
    Heap<float[]> values_;
    int vectors_ = 0;
    int bands_ = 0;
    std::int64_t padded_ = 0;
};

/// The closest code vector met so far.
struct Nearest {
    double distance;
    int index;
};

/// Compares a sample with every code vector in order, by city-block distance accumulated in component order. A strictly
/// smaller distance than the one held takes its place. Vectors that cannot win any more are left before their last
/// component: a sum of magnitudes never falls.
void findNearest(const double* sample, const CodeTable& table, Nearest& nearest);

}  // namespace ks
