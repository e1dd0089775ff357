#include "lut/axes.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "app/report.hpp"
#include "app/text.hpp"

namespace kscli {
namespace {

/// Lower case, with blanks for underscores and hyphens.
std::string folded(std::string text) {
    for (char& c : text) {
        c = c == '_' || c == '-' ? ' ' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

std::string listOf(const std::vector<TableAxis>& axes) {
    std::string list;
    for (std::size_t d = 0; d < axes.size(); ++d) {
        list += fmt::format("{}{} {}", d == 0 ? "" : ", ", d + 1, axes[d].nameOr(static_cast<int>(d)));
    }
    return list;
}

double finiteNumber(const std::string& text, const std::string& whole) {
    const auto value = parseNumber(text);
    if (!value || !std::isfinite(*value)) fail("'{}': '{}' is not a number.", whole, text);
    return *value;
}

/// Between two grid points, in double precision; exact at both.
double shareBetween(float from, float to, float coordinate) {
    const double low = static_cast<double>(from);
    return (static_cast<double>(coordinate) - low) / (static_cast<double>(to) - low);
}

AxisCell locateOnOne(float only, double coordinate) {
    // Half of the last decimal that tables keep, and the precision of a float.
    const double tolerance = 5e-6 + 1e-6 * std::abs(static_cast<double>(only));
    return {0, 0, std::abs(coordinate - static_cast<double>(only)) <= tolerance};
}

}  // namespace

int findAxis(const std::vector<TableAxis>& axes, const std::string& name) {
    const std::string wanted = folded(name);
    std::vector<int> starts;
    std::vector<int> parts;
    for (std::size_t d = 0; d < axes.size(); ++d) {
        const std::string label = folded(axes[d].label);
        const std::size_t at = wanted.empty() ? std::string::npos : label.find(wanted);
        if (!label.empty() && label == wanted) return static_cast<int>(d);
        if (at == 0) starts.push_back(static_cast<int>(d));
        if (at != std::string::npos) parts.push_back(static_cast<int>(d));
    }
    if (starts.size() == 1) return starts[0];
    if (parts.size() == 1) return parts[0];
    if (!parts.empty()) fail("'{}' fits more than one axis; the table has: {}.", name, listOf(axes));
    for (std::size_t d = 0; d < axes.size(); ++d) {
        if (wanted == fmt::format("{}", d + 1)) return static_cast<int>(d);
    }
    fail("'{}' is no axis of the table; it has: {}.", name, listOf(axes));
}

std::vector<std::optional<double>> parseCoordinates(const std::vector<TableAxis>& axes,
                                                    const std::vector<std::string>& texts) {
    std::vector<std::optional<double>> coordinates(axes.size());
    for (const std::string& text : texts) {
        const std::size_t equals = text.rfind('=');
        if (equals == std::string::npos) fail("'{}': write LABEL=VALUE, such as 'solar zenith=30'.", text);
        const int d = findAxis(axes, text.substr(0, equals));
        std::optional<double>& coordinate = coordinates[static_cast<std::size_t>(d)];
        if (coordinate) fail("'{}' is given twice.", axes[static_cast<std::size_t>(d)].nameOr(d));
        coordinate = finiteNumber(text.substr(equals + 1), text);
    }
    return coordinates;
}

int nearestIndex(const TableAxis& axis, double coordinate) {
    const std::vector<float>& grid = axis.coordinates;
    const auto distance = [coordinate](float c) { return std::abs(static_cast<double>(c) - coordinate); };
    const auto nearest =
        std::min_element(grid.begin(), grid.end(), [&](float a, float b) { return distance(a) < distance(b); });
    return static_cast<int>(nearest - grid.begin());
}

AxisCell locate(const TableAxis& axis, double coordinate) {
    const std::vector<float>& grid = axis.coordinates;
    if (grid.size() == 1) return locateOnOne(grid[0], coordinate);
    const auto x = static_cast<float>(coordinate);
    const bool rising = grid.front() < grid.back();
    const auto isBefore = [rising](float a, float b) { return rising ? a < b : a > b; };
    const auto after = std::upper_bound(grid.begin(), grid.end(), x, isBefore);
    const auto last = static_cast<std::ptrdiff_t>(grid.size()) - 2;
    const auto lower = std::clamp<std::ptrdiff_t>(after - grid.begin() - 1, 0, last);
    const auto cell = static_cast<std::size_t>(lower);
    AxisCell found = {static_cast<int>(lower), shareBetween(grid[cell], grid[cell + 1], x), true};
    // What is off by rounding, of the stored coordinates or of the asked one, lies on the edge.
    constexpr double kRounding = 1e-4;
    if (found.share < 0 && found.share >= -kRounding) found.share = 0;
    if (found.share > 1 && found.share <= 1 + kRounding) found.share = 1;
    found.inside = found.share >= 0 && found.share <= 1;
    return found;
}

void requireMonotonic(const TableAxis& axis, int dimension) {
    const std::vector<float>& grid = axis.coordinates;
    for (std::size_t i = 1; i < grid.size(); ++i) {
        const bool rising = grid[1] > grid[0];
        if (rising ? grid[i] > grid[i - 1] : grid[i] < grid[i - 1]) continue;
        fail("the coordinates of '{}' neither all increase nor all decrease: number {} is {}, number {} is {}.",
             axis.nameOr(dimension), i, grid[i - 1], i + 1, grid[i]);
    }
}

}  // namespace kscli
