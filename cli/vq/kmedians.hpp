// Clustering by city-block distance: code vectors that are the component-wise medians of the pixels nearest to them.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "image/quantized.hpp"

namespace kscli {

struct Clustering {
    int vectors = 256;
    int iterations = 10;
    std::uint64_t seed = 1;
};

struct Clusters {
    Codebook codebook;
    int iterations = 0;       // that were needed
    double meanDistance = 0;  // of the sample to its nearest code vectors
};

/// Clusters pixels (finite values, pixel after pixel, at least one). There are fewer code vectors than asked for when
/// there are fewer different pixels. `fit` turns code vectors into values that can be stored: (values, vectors).
Clusters clusterPixels(const std::vector<float>& values, const std::vector<int>& bands, const Clustering& clustering,
                       const std::function<void(float*, std::size_t)>& fit);

}  // namespace kscli
