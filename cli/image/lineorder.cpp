#include "image/lineorder.hpp"

#include <algorithm>
#include <cmath>

namespace kscli {
namespace {

constexpr std::size_t kMostDetectors = 8;
constexpr double kWideGap = 3;

}  // namespace

LineOrder::LineOrder(const DataSet& dataSet, const std::vector<int>& bands) {
    const bool byWavelength = dataSet.hasWavelengths();
    for (std::size_t i = 0; i < bands.size(); ++i) {
        const double x = byWavelength ? dataSet.wavelength(bands[i]) : bands[i] + 1;
        if (byWavelength && !(x > 0)) continue;
        points_.push_back({i, x, bands[i], dataSet.isGood(bands[i])});
    }
    arrange();
    cut();
}

double LineOrder::x(std::size_t position) const {
    return std::find_if(points_.begin(), points_.end(), [&](const Point& p) { return p.position == position; })->x;
}

std::vector<std::pair<double, double>> LineOrder::badStretches() const {
    std::vector<std::pair<double, double>> stretches;
    bool open = false;
    for (std::size_t i = 0; i < points_.size(); ++i) {
        const bool follows = i > 0 && points_[i].x > points_[i - 1].x;
        if (points_[i].good || !follows) open = false;
        if (points_[i].good) continue;
        if (!open) stretches.emplace_back(points_[i].x - halfStep(i), points_[i].x);
        stretches.back().second = points_[i].x + halfStep(i);
        open = true;
    }
    return stretches;
}

void LineOrder::arrange() {
    std::size_t back = 0;
    for (std::size_t i = 1; i < points_.size(); ++i) back += points_[i].x < points_[i - 1].x ? 1U : 0U;
    // Bands stored from long to short waves, as of instruments that measure wavenumbers.
    if (points_.size() > 1 && 2 * back > points_.size()) {
        std::reverse(points_.begin(), points_.end());
        back = points_.size() - 1 - back;
    }
    // A handful of steps back are detectors that overlap; more is no order at all.
    if (back > kMostDetectors) {
        std::stable_sort(points_.begin(), points_.end(), [](const Point& a, const Point& b) { return a.x < b.x; });
    }
}

void LineOrder::cut() {
    std::vector<double> steps;
    for (std::size_t i = 1; i < points_.size(); ++i) {
        if (points_[i].x > points_[i - 1].x) steps.push_back(points_[i].x - points_[i - 1].x);
    }
    if (!steps.empty()) {
        std::nth_element(steps.begin(), steps.begin() + static_cast<std::ptrdiff_t>(steps.size() / 2), steps.end());
        usualStep_ = steps[steps.size() / 2];
    }
    bool interrupted = true;
    for (std::size_t i = 0; i < points_.size(); ++i) {
        if (!points_[i].good) {
            interrupted = true;
            continue;
        }
        const double step = i > 0 ? points_[i].x - points_[i - 1].x : 0;
        if (interrupted || step < 0 || step > kWideGap * usualStep_) pieces_.emplace_back();
        pieces_.back().push_back(points_[i].position);
        interrupted = false;
    }
}

double LineOrder::halfStep(std::size_t i) const {
    const auto distance = [&](std::size_t a, std::size_t b) { return std::abs(points_[a].x - points_[b].x); };
    double step = usualStep_;
    if (i > 0) step = std::min(step, distance(i, i - 1));
    if (i + 1 < points_.size()) step = std::min(step, distance(i, i + 1));
    return std::max(step, 0.2 * usualStep_) / 2;
}

}  // namespace kscli
