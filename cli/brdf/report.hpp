// What a correction of across-track trends did, band by band: as a sentence, a table, JSON and a picture.
#pragma once

#include <string>
#include <vector>

#include "app/output.hpp"
#include "brdf/columntrend.hpp"
#include "brdf/copy.hpp"
#include "image/dataset.hpp"

namespace kscli {

struct BrdfReport {
    std::string file;  // the image that was corrected
    std::vector<int> bands;
    BrdfTask task;
    ColumnMeans before;
    ColumnMeans after;
    ColumnTrends trends;
};

std::string summaryOf(const BrdfReport& report);
/// CSV or JSON, as the name's extension says.
std::string tableOf(const DataSet& image, const BrdfReport& report, const std::string& name);
Json jsonOf(const DataSet& image, const BrdfReport& report);
/// The column means of one band (an index into the report's bands) before and after, and the trend.
void drawColumns(const DataSet& image, const BrdfReport& report, std::size_t index, const std::string& name);

}  // namespace kscli
