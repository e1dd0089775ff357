// What a copy of an image holds: which bands and samples of the source, at which level, as which sample type, and which
// metadata entries. Converting follows the plan, checking compares the result with it.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "image/blocks.hpp"
#include "image/dataset.hpp"

namespace kscli {

/// Nothing for a text that names no sample type, such as "same".
std::optional<int> sampleTypeNamed(const std::string& name);

struct CopyPlan {
    std::vector<int> bands;                    // of the source, 0-based
    Area area;                                 // of the source
    std::array<int, 4> window = {0, 0, 0, 0};  // the rectangle asked for: x, y, width, height
    int every = 1;
    int level = 0;  // transforms applied to the samples, and so gone from the copy
    int sampleType = kFloat32;
};

struct TypeRange {
    double low;
    double high;
};
/// What a sample type can hold; unbounded for float32.
TypeRange rangeOf(int sampleType);
/// The smallest type that holds the samples of all these channel types unchanged.
int typeHoldingAll(const DataSet& dataSet, const std::vector<int>& bands);

/// Turns samples into what the copy stores: rounded to nearest and clamped for integers, samples that are not numbers
/// become the no-data value (or 0). Returns how many samples could not be kept.
class SampleFitter {
public:
    SampleFitter(const DataSet& source, const CopyPlan& plan);
    std::size_t fit(float* samples, std::size_t pixels) const;

private:
    TypeRange range_;
    bool integers_;
    std::vector<float> forNaN_;
};

/// The no-data value that a band of the copy has: the source's, where the copy's type can hold it.
std::vector<std::optional<double>> noDataOfCopy(const DataSet& source, const CopyPlan& plan);

using Items = std::vector<std::pair<std::string, std::string>>;
/// The entries that the copy's lists must have, in the source's order: everything of the source, with transforms
/// renumbered and what speaks of bands, pixels or calibration of the source adapted or left out where that is no longer
/// so.
Items fileEntriesOfCopy(const DataSet& source, const CopyPlan& plan);
Items channelEntriesOfCopy(const DataSet& source, const CopyPlan& plan, int band);

}  // namespace kscli
