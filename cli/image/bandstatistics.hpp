// Statistics of the valid pixels of some bands, right for all values, regions and offsets.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "image/dataset.hpp"
#include "image/region.hpp"

namespace kscli {

/// Pairs of samples so many columns and rows apart.
struct PairOffset {
    int x = 0;
    int y = 0;
};

struct BandStatistics {
    std::vector<int> bands;
    unsigned samples = 0;    // valid samples, or pairs of them, behind the values
    long long excluded = 0;  // pixels of the region that hold no data
    std::vector<double> min, max, mean, sd;
    std::vector<double> covariance;  // row after row; empty unless asked for

    double cov(std::size_t i, std::size_t j) const { return covariance[i * bands.size() + j]; }
};

/// Statistics at a level over a region (null: the image); of absolute differences with an offset. Throws a Failure when
/// no valid sample is left, and when a band has no data at all.
BandStatistics bandStatistics(const DataSet& dataSet, const std::vector<int>& bands, int level, const KSROI* region,
                              bool withCovariance, std::optional<PairOffset> difference = std::nullopt);

/// The same for pixels that validPixels() found for a region and interval, of the bands among `bands` that have data.
BandStatistics statisticsOfValid(const DataSet& dataSet, const std::vector<int>& bands, int level, const KSROI* region,
                                 const ValidPixels& valid, bool withCovariance,
                                 std::optional<PairOffset> difference = std::nullopt, int every = 1);

/// Correlations, row after row like the covariances; not-a-number for a band that does not vary.
std::vector<double> correlations(const BandStatistics& statistics);

}  // namespace kscli
