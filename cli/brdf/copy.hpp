// A copy of an image that the correction of across-track trends can be run on: of the chosen bands, as float32, with
// something harmless where there is no data, and values around zero, for the task adds up means in single precision.
// Afterwards all that is put back.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "brdf/columntrend.hpp"
#include "brdf/task.hpp"
#include "image/blocks.hpp"
#include "image/copyplan.hpp"
#include "image/dataset.hpp"

namespace kscli {

/// Of each band; nothing for a band without any value.
using ColumnTrends = std::vector<std::optional<ColumnTrend>>;

/// What the task did to a copy.
struct BrdfOutcome {
    ColumnMeans after;           // of the sampled rectangle
    ColumnMeans changes;         // what was taken away from each column of the corrected rectangle
    std::vector<float> largest;  // absolute value of each band before
};

class BrdfCopy {
public:
    /// What is handed over stays the caller's and outlives the copy.
    BrdfCopy(const DataSet& source, const CopyPlan& plan, const BrdfTask& task, const ColumnTrends& trends,
             std::string name);

    /// Writes the copy. Missing samples of the sampled part become the mean of their column, or the trend where a
    /// column has no value at all, so that the fit stays what it is without them.
    void write(const ColumnMeans& means, const std::string& historyLine);

    /// Makes of it what the correction is to give: puts back missing samples, what was not to be corrected, and
    /// metadata.
    BrdfOutcome finish();

private:
    void prepare(Window& window, int first, const std::vector<float>& standIns) const;
    void takeResults(Window& result, Window& before, int first, BrdfOutcome& outcome) const;
    void describe(DataSet& copy);

    const DataSet& source_;
    const CopyPlan& plan_;
    const BrdfTask& task_;
    const ColumnTrends& trends_;
    std::string name_;
    SampleReader reader_;
    std::vector<float> offsets_;  // taken from each band of the copy
};

/// High powers of column numbers lose digits: throws a Failure where the changes are not those of the trends.
void requirePrecise(const DataSet& image, const std::vector<int>& bands, const BrdfTask& task,
                    const ColumnTrends& trends, const BrdfOutcome& outcome);

}  // namespace kscli
