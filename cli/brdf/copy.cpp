#include "brdf/copy.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <utility>

#include <kslib.h>

#include "app/report.hpp"
#include "image/bands.hpp"
#include "image/copymeta.hpp"

namespace kscli {
namespace {

constexpr double kHalf = 0.5;  // two windows share the memory
constexpr const char* kResult = "the corrected image";

std::vector<float> standIns(const ColumnMeans& means, const ColumnTrends& trends) {
    const std::size_t bands = trends.size();
    const std::size_t columns = static_cast<std::size_t>(means.rectangle()[2]);
    std::vector<float> values(columns * bands, 0.0F);
    for (std::size_t b = 0; b < bands; ++b) {
        if (!trends[b]) continue;
        const std::vector<double> ofBand = means.of(static_cast<int>(b));
        for (std::size_t x = 0; x < columns; ++x) {
            const double curve = trends[b]->at(means.rectangle()[0] + static_cast<int>(x));
            values[x * bands + b] = static_cast<float>(std::isnan(ofBand[x]) ? curve : ofBand[x]);
        }
    }
    return values;
}

void addLines(ColumnMeans& means, Window& window, int first) {
    for (int y = 0; y < window.rows(); ++y) means.addLine(first + y, 0, window.columns(), window.pixel(0, y));
}

/// Results where the source has no value become what the source has there.
void restoreMissing(Window& result, Window& before, const std::vector<std::optional<double>>& noData) {
    for (std::size_t i = 0; i < result.sampleCount(); ++i) {
        const float was = before.samples()[i];
        if (std::isfinite(was)) continue;
        const auto& value = noData[i % noData.size()];
        result.samples()[i] = std::isnan(was) && value ? static_cast<float>(*value) : was;
    }
}

bool isInside(const std::array<int, 4>& rectangle, int x, int y) {
    const auto [left, top, width, height] = rectangle;
    return x >= left && x < left + width && y >= top && y < top + height;
}

}  // namespace

BrdfCopy::BrdfCopy(const DataSet& source, const CopyPlan& plan, const BrdfTask& task, const ColumnTrends& trends,
                   std::string name)
    : source_(source),
      plan_(plan),
      task_(task),
      trends_(trends),
      name_(std::move(name)),
      reader_(source, plan.bands, plan.level, SampleReader::NoData::asNaN) {
    for (const auto& trend : trends) offsets_.push_back(trend ? static_cast<float>(trend->mean()) : 0.0F);
}

void BrdfCopy::write(const ColumnMeans& means, const std::string& historyLine) {
    const std::vector<float> fill = standIns(means, trends_);
    DataSet copy = source_.describe(plan_.bands);
    copy.dropFirstTransforms(plan_.level);
    copy.create(name_, kFloat32);
    BlockWriter writer(copy, kResult);
    readBlocks(reader_, plan_.area, kHalf, [&](int first, Window& window) {
        prepare(window, first, fill);
        writer.write(window, first);
    });
    copy.writeMetadata();
    completeCopy(source_, plan_, copy.file(), historyLine);
    copy.close();
    requireComplete(kResult);
}

void BrdfCopy::prepare(Window& window, int first, const std::vector<float>& standIns) const {
    const auto [left, top, width, height] = task_.sampled;
    for (int y = 0; y < window.rows(); ++y) {
        if (first + y < top || first + y >= top + height) continue;
        float* sample = window.pixel(left, y);
        for (const float standIn : standIns) {
            if (!std::isfinite(*sample)) *sample = standIn;
            ++sample;
        }
    }
    float* sample = window.samples();
    for (std::size_t pixel = 0; pixel < window.pixelCount(); ++pixel) {
        for (const float offset : offsets_) *sample++ -= offset;
    }
}

BrdfOutcome BrdfCopy::finish() {
    BrdfOutcome outcome = {ColumnMeans(task_.sampled, task_.bands), ColumnMeans(task_.corrected, task_.bands),
                           std::vector<float>(offsets_.size(), 0.0F)};
    DataSet copy = DataSet::openForUpdate(name_);
    const SampleReader resultReader(copy, allBands(copy), 0, SampleReader::NoData::asStored);
    const auto noData = noDataOfCopy(source_, plan_);
    std::unique_ptr<Window> result;
    readBlocks(reader_, plan_.area, kHalf, [&](int first, Window& window) {
        if (!result) result = std::make_unique<Window>(window.columns(), window.rows(), 1, 1, allBands(copy));
        result->resizeRows(window.rows());
        result->place(0, first);
        resultReader.read(*result);
        takeResults(*result, window, first, outcome);
        addLines(outcome.after, *result, first);
        restoreMissing(*result, window, noData);
        result->write(copy);
        for (std::size_t i = 0; i < result->sampleCount(); ++i) window.samples()[i] -= result->samples()[i];
        addLines(outcome.changes, window, first);
        requireComplete(kResult);
    });
    describe(copy);
    return outcome;
}

/// Makes results of the task's values; where the source has no value they are not-a-number.
void BrdfCopy::takeResults(Window& result, Window& before, int first, BrdfOutcome& outcome) const {
    for (int y = 0; y < result.rows(); ++y) {
        for (int x = 0; x < result.columns(); ++x) {
            const bool isCorrected = isInside(task_.corrected, x, first + y);
            const float* was = before.pixel(x, y);
            float* value = result.pixel(x, y);
            for (std::size_t b = 0; b < offsets_.size(); ++b, ++was, ++value) {
                if (!std::isfinite(*was)) {
                    *value = std::numeric_limits<float>::quiet_NaN();
                    continue;
                }
                *value = isCorrected ? *value + offsets_[b] : *was;
                outcome.largest[b] = std::max(outcome.largest[b], std::abs(*was));
            }
        }
    }
}

/// The task stores texts of its own as the bands' descriptions, and numbers with few decimals.
void BrdfCopy::describe(DataSet& copy) {
    for (int band = 0; band < copy.bandCount(); ++band) {
        char none[1] = {};
        GDBChanDescIO(copy.file(), 1, copy.channel(band), none);
    }
    Completion completion(copy.file());
    completion.addFileEntries(fileEntriesOfCopy(source_, plan_));
    completion.addBands(source_, plan_);
    copy.close();
    requireComplete(kResult);
}

void requirePrecise(const DataSet& image, const std::vector<int>& bands, const BrdfTask& task,
                    const ColumnTrends& trends, const BrdfOutcome& outcome) {
    constexpr double kOfTrend = 1e-3;
    constexpr double kOfValues = 1e-6;
    for (std::size_t b = 0; b < bands.size(); ++b) {
        if (!trends[b]) continue;
        const ColumnTrend& trend = *trends[b];
        const std::vector<double> applied = outcome.changes.of(static_cast<int>(b));
        double largest = 0;
        double error = 0;
        for (std::size_t i = 0; i < applied.size(); ++i) {
            const double wanted = trend.at(task.corrected[0] + static_cast<int>(i)) - trend.mean();
            largest = std::max(largest, std::abs(wanted));
            if (!std::isnan(applied[i])) error = std::max(error, std::abs(applied[i] - wanted));
        }
        if (error > kOfTrend * largest + kOfValues * static_cast<double>(outcome.largest[b])) {
            fail(
                "the trend of {} cannot be computed precisely enough with order {}; lower --order, or sample more "
                "columns.",
                bandName(image, bands[b]), task.order);
        }
    }
}

}  // namespace kscli
