// What neighbouring pixels tell of the noise: they mostly show the same ground, so that half the covariance of their
// differences is the noise's.
#pragma once

#include <string>
#include <vector>

#include "image/dataset.hpp"
#include "transform/eigentransform.hpp"

namespace kscli {

/// Which neighbours are compared: the next pixel of the line, that of the next line, or both.
enum class Neighbours { alongLine, acrossLines, both };

struct NoiseEstimate {
    Matrix covariance;
    long long pairs = 0;
};

/// From the pairs of neighbours in a region (null: the image) that both hold data in every band, at a level. The first
/// of a pair lies on every `every`-th column and line; its neighbour is always the next pixel.
NoiseEstimate noiseFromNeighbours(const DataSet& dataSet, const std::vector<int>& bands, int level, const KSROI* region,
                                  Neighbours neighbours, int every);

}  // namespace kscli
