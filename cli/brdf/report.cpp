#include "brdf/report.hpp"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>

#include "app/plot.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "image/bands.hpp"

namespace kscli {
namespace {

constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();

/// Trends are told by their span: how far the fitted polynomial goes from its lowest to its highest point within the
/// sampled columns.
struct BandChange {
    double mean = kUnknown;
    double before = kUnknown;
    double after = kUnknown;
    double largest = kUnknown;  // change of a column
};

BandChange changeOf(const BrdfReport& report, std::size_t index) {
    if (!report.trends[index]) return {};
    const ColumnTrend& trend = *report.trends[index];
    const int first = report.task.sampled[0];
    BandChange change;
    change.mean = trend.mean();
    change.before = trend.span();
    change.after = ColumnTrend(report.after.of(static_cast<int>(index)), first, report.task.order).span();
    change.largest = 0;
    for (int x = report.task.corrected[0]; x < report.task.corrected[0] + report.task.corrected[2]; ++x) {
        change.largest = std::max(change.largest, std::abs(trend.at(x) - trend.mean()));
    }
    return change;
}

std::vector<BandChange> changesOf(const BrdfReport& report) {
    std::vector<BandChange> changes;
    for (std::size_t i = 0; i < report.bands.size(); ++i) changes.push_back(changeOf(report, i));
    return changes;
}

/// Of the bands that have it; the spans are parts of the mean.
double medianPart(const std::vector<BandChange>& changes, double BandChange::*span) {
    std::vector<double> parts;
    for (const BandChange& change : changes) {
        if (change.*span >= 0 && change.mean != 0) parts.push_back(change.*span / std::abs(change.mean));
    }
    if (parts.empty()) return kUnknown;
    const auto middle = parts.begin() + static_cast<std::ptrdiff_t>(parts.size() / 2);
    std::nth_element(parts.begin(), middle, parts.end());
    return *middle;
}

std::string number(double value) { return std::isnan(value) ? std::string() : fmt::format("{:.9g}", value); }

std::string csv(const DataSet& image, const BrdfReport& report) {
    std::string text = "band,wavelength_nm,mean,trend_before,trend_after,largest_change\n";
    const std::vector<BandChange> changes = changesOf(report);
    for (std::size_t i = 0; i < changes.size(); ++i) {
        const double nm = image.wavelength(report.bands[i]);
        text +=
            fmt::format("{},{},{},{},{},{}\n", report.bands[i] + 1, nm > 0 ? number(nm) : "", number(changes[i].mean),
                        number(changes[i].before), number(changes[i].after), number(changes[i].largest));
    }
    return text;
}

Curve curveOf(const std::string& label, const std::vector<double>& values, int first) {
    Curve curve;
    curve.label = label;
    bool open = false;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (std::isnan(values[i])) {
            open = false;
            continue;
        }
        if (!open) curve.pieces.emplace_back();
        open = true;
        curve.pieces.back().emplace_back(static_cast<double>(first) + static_cast<double>(i), values[i]);
    }
    return curve;
}

}  // namespace

std::string summaryOf(const BrdfReport& report) {
    const std::vector<BandChange> changes = changesOf(report);
    return fmt::format(
        "{} band{}, order {}; the trend across the columns went from {:.3g} to {:.2g} % of the mean (median of the "
        "bands).",
        report.bands.size(), report.bands.size() == 1 ? "" : "s", report.task.order,
        100 * medianPart(changes, &BandChange::before), 100 * medianPart(changes, &BandChange::after));
}

std::string tableOf(const DataSet& image, const BrdfReport& report, const std::string& name) {
    return lowerExtension(name) == ".json" ? jsonText(jsonOf(image, report)) : csv(image, report);
}

Json jsonOf(const DataSet& image, const BrdfReport& report) {
    const std::vector<BandChange> changes = changesOf(report);
    Json bands = Json::array();
    for (std::size_t i = 0; i < changes.size(); ++i) {
        const double nm = image.wavelength(report.bands[i]);
        bands.push_back({{"band", report.bands[i] + 1},
                         {"wavelength_nm", orNull(shortest(static_cast<float>(nm)), nm > 0)},
                         {"mean", orNull(changes[i].mean)},
                         {"trend_before", orNull(changes[i].before)},
                         {"trend_after", orNull(changes[i].after)},
                         {"largest_change", orNull(changes[i].largest)}});
    }
    return {{"file", report.file},
            {"order", report.task.order},
            {"sampled", report.task.sampled},
            {"corrected", report.task.corrected},
            {"bands", bands}};
}

void drawColumns(const DataSet& image, const BrdfReport& report, std::size_t index, const std::string& name) {
    const int first = report.task.sampled[0];
    const std::vector<double> before = report.before.of(static_cast<int>(index));
    std::vector<double> trend;
    for (int i = 0; report.trends[index] && i < report.task.sampled[2]; ++i) {
        trend.push_back(report.trends[index]->at(first + i));
    }
    Plot plot;
    plot.title = fmt::format("{}, {}: means of the columns", std::filesystem::path(report.file).filename().string(),
                             bandName(image, report.bands[index]));
    plot.xLabel = "Column";
    plot.countedX = true;
    plot.yLabel = "Mean of " + image.levelDescriptions().back();
    plot.curves = {curveOf("before", before, first),
                   curveOf(fmt::format("trend, order {}", report.task.order), trend, first),
                   curveOf("after", report.after.of(static_cast<int>(index)), first)};
    if (trend.empty()) warn("{} holds no data; its plot is empty.", bandName(image, report.bands[index]));
    drawPlot(plot, name);
}

}  // namespace kscli
