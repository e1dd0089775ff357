#include "lut/survey.hpp"

#include <algorithm>
#include <cmath>

#include "lut/blocks.hpp"

namespace kscli {
namespace {

constexpr std::size_t kShownHoles = 5;

void count(double value, ValueSummary& summary) {
    if (std::isnan(value)) {
        ++summary.notNumbers;
    } else if (std::isinf(value)) {
        ++summary.infinities;
    } else {
        ++summary.numbers;
        summary.least = std::min(summary.least, value);
        summary.greatest = std::max(summary.greatest, value);
    }
}

/// Distances in a box, in numbers: between neighbours along an axis, and how many of them a whole turn of it takes.
struct Strides {
    std::size_t step = 1;
    std::size_t length = 0;

    Strides(const TableBox& box, int axis, int valuesEach) : step(static_cast<std::size_t>(valuesEach)) {
        for (std::size_t d = box.count.size() - 1; d > static_cast<std::size_t>(axis); --d) {
            step *= static_cast<std::size_t>(box.count[d]);
        }
        length = step * static_cast<std::size_t>(box.count[static_cast<std::size_t>(axis)]);
    }
};

class ErrorSum {
public:
    ErrorSum(const LookupTable& table, int axis)
        : axis_(axis), valuesEach_(valuesPerElement(table.type())), grid_(table.axis(axis).coordinates) {}

    void add(const TableBox& box, const std::vector<double>& values) {
        const Strides strides(box, axis_, valuesEach_);
        for (std::size_t outer = 0; outer < values.size(); outer += strides.length) {
            for (std::size_t i = 1; i + 1 < grid_.size(); ++i) {
                const double share = shareOf(i);
                const std::size_t row = outer + i * strides.step;
                for (std::size_t at = row; at < row + strides.step; ++at) {
                    const double low = values[at - strides.step];
                    const double high = values[at + strides.step];
                    const double largest = std::max({std::abs(low), std::abs(values[at]), std::abs(high)});
                    addPoint(low + share * (high - low) - values[at], largest, box, at);
                }
            }
        }
    }

    AxisError result() const {
        AxisError error = error_;
        if (error.points > 0) error.mean = sum_ / static_cast<double>(error.points);
        return error;
    }

private:
    double shareOf(std::size_t i) const {
        const auto at = [this](std::size_t k) { return static_cast<double>(grid_[k]); };
        return (at(i) - at(i - 1)) / (at(i + 1) - at(i - 1));
    }

    void addPoint(double difference, double largest, const TableBox& box, std::size_t at) {
        const double relative = difference == 0 ? 0 : std::abs(difference) / largest;
        if (!std::isfinite(relative)) {
            ++error_.leftOut;
            return;
        }
        ++error_.points;
        sum_ += relative;
        if (relative <= error_.largest && !error_.worst.index.empty()) return;
        error_.largest = relative;
        const auto each = static_cast<std::size_t>(valuesEach_);
        error_.worst = {indexOf(box, static_cast<std::int64_t>(at / each)), static_cast<int>(at % each), false};
    }

    int axis_;
    int valuesEach_;
    const std::vector<float>& grid_;
    AxisError error_;
    double sum_ = 0;
};

}  // namespace

Coverage surveyCoverage(const LookupTable& table) {
    Coverage coverage;
    coverage.cells = table.elementCount();
    const auto each = static_cast<std::size_t>(valuesPerElement(table.type()));
    coverage.values.resize(each);
    forEachBox(table, kNoAxis, [&](const TableBox& box, const std::vector<double>& values) {
        for (std::size_t element = 0; element < values.size() / each; ++element) {
            bool isCovered = true;
            for (std::size_t v = 0; v < each; ++v) {
                const double value = values[element * each + v];
                count(value, coverage.values[v]);
                if (std::isfinite(value)) continue;
                isCovered = false;
                if (coverage.firstHoles.size() < kShownHoles) {
                    const auto index = indexOf(box, static_cast<std::int64_t>(element));
                    coverage.firstHoles.push_back({index, static_cast<int>(v), std::isinf(value)});
                }
            }
            if (isCovered) ++coverage.covered;
        }
    });
    return coverage;
}

AxisError leaveOneOut(const LookupTable& table, int axis) {
    constexpr int kNeighbours = 2;
    if (table.size(axis) <= kNeighbours) return {};
    ErrorSum sum(table, axis);
    forEachBox(table, axis, [&](const TableBox& box, const std::vector<double>& values) { sum.add(box, values); });
    return sum.result();
}

}  // namespace kscli
