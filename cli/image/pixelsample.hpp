// A bounded choice of an image's pixels that depends on nothing but the seed, and the test for pixels without data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "image/dataset.hpp"

namespace kscli {

/// Tells pixels that hold data from those that do not: a sample is not finite, or all samples are their bands' no-data
/// values. A no-data value in a few bands alone may be a measured one: dark bands are full of zeros.
class DataTest {
public:
    DataTest(const DataSet& dataSet, const std::vector<int>& bands);
    /// Of the stored values of one pixel.
    bool hasData(const float* pixel) const;

private:
    std::size_t bandCount_;
    std::vector<float> noData_;  // empty unless every band has one
};

struct PixelSample {
    std::vector<float> values;  // pixel after pixel
    std::size_t pixels = 0;
    std::size_t withData = 0;  // of the whole image
    std::size_t withoutData = 0;
};

/// Stored values of at most `most` pixels with data, each with the same chance, in image order.
PixelSample samplePixels(const DataSet& dataSet, const std::vector<int>& bands, std::size_t most, std::uint64_t seed);

}  // namespace kscli
