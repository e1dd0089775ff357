#include "lut/interp.hpp"

#include <array>
#include <cmath>

#include "app/report.hpp"

namespace kscli {
namespace {

constexpr int kInterpolated = RLUT_DIMENSIONS - 1;
constexpr int kCorners = 1 << kInterpolated;

[[noreturn]] void refuseOutside(const TableAxis& axis, int dimension, double coordinate) {
    const std::string units = axis.units.empty() ? "" : " " + axis.units;
    if (axis.size() == 1) {
        fail(
            "{} {} lies outside of the table, which was made for {}{} only; give --extrapolate to use it all the same.",
            axis.nameOr(dimension), coordinate, axis.coordinates[0], units);
    }
    fail("{} {} lies outside of the table, which has {} to {}{}; give --extrapolate to continue it linearly.",
         axis.nameOr(dimension), coordinate, axis.coordinates.front(), axis.coordinates.back(), units);
}

/// The coordinate that gives a cell's share: where the share was moved to an edge, the edge's.
float coordinateIn(const AxisCell& cell, const TableAxis& axis, double coordinate) {
    const auto lower = static_cast<std::size_t>(cell.lower);
    if (cell.share == 0) return axis.coordinates[lower];
    if (cell.share == 1) return axis.coordinates[lower + 1];
    return static_cast<float>(coordinate);
}

void addToBox(TableBox& box, const AxisCell& cell) {
    box.offset.push_back(cell.lower + (cell.share == 1 ? 1 : 0));
    box.count.push_back(cell.share == 0 || cell.share == 1 ? 1 : 2);
}

/// Lower and upper coordinate of each cell. The library divides by their difference, so an axis of one index gets an
/// upper one too; it has no weight.
std::array<float, 2 * kInterpolated> boundsOf(const LookupTable& table, const GridPoint& point) {
    std::array<float, 2 * kInterpolated> bounds{};
    for (std::size_t d = 0; d < kInterpolated; ++d) {
        const std::vector<float>& grid = table.axis(static_cast<int>(d)).coordinates;
        const auto lower = static_cast<std::size_t>(point.cells[d].lower);
        bounds[2 * d] = grid[lower];
        bounds[2 * d + 1] = grid.size() > 1 ? grid[lower + 1] : std::nextafter(grid[0], INFINITY);
    }
    return bounds;
}

/// For each corner the spectrum that was read for it. Where both bounds of an axis come down to one index, the other
/// bound has no weight and borrows that index's spectra, which count anyway: what the table holds there, perhaps a
/// not-a-number, must not be multiplied with zero.
std::array<const RLUTEntry*, kCorners> cornersOf(const GridPoint& point, const std::vector<RLUTEntry>& spectra,
                                                 std::size_t wavelengths) {
    std::array<const RLUTEntry*, kCorners> corners{};
    for (std::size_t k = 0; k < kCorners; ++k) {
        std::size_t spectrum = 0;
        for (std::size_t d = 0; d < kInterpolated; ++d) {
            const auto count = static_cast<std::size_t>(point.box.count[d]);
            spectrum = spectrum * count + (count == 2 ? (k >> d) & 1 : 0);
        }
        corners[k] = spectra.data() + spectrum * wavelengths;
    }
    return corners;
}

}  // namespace

GridPoint findPoint(const LookupTable& table, const std::vector<double>& coordinates, bool extrapolate) {
    GridPoint point;
    const int last = table.dimensions() - 1;
    if (coordinates.size() != static_cast<std::size_t>(last)) throw std::logic_error("a point of another table");
    for (int d = 0; d < last; ++d) {
        const double coordinate = coordinates[static_cast<std::size_t>(d)];
        const AxisCell cell = locate(table.axis(d), coordinate);
        if (!cell.inside && !extrapolate) refuseOutside(table.axis(d), d, coordinate);
        point.cells.push_back(cell);
        point.coordinates.push_back(coordinateIn(cell, table.axis(d), coordinate));
        addToBox(point.box, cell);
    }
    point.box.offset.push_back(0);
    point.box.count.push_back(table.size(last));
    return point;
}

std::vector<RLUTEntry> interpolateRadiance(const LookupTable& table, const GridPoint& point) {
    const std::vector<RLUTEntry> spectra = table.readEntries(point.box);
    std::vector<RLUTEntry> result(static_cast<std::size_t>(table.size(RLUT_WAVELENGTH)));
    const auto corners = cornersOf(point, spectra, result.size());
    KSInterpSpec(point.coordinates.data(), boundsOf(table, point).data(), corners.data(), result.data(),
                 static_cast<int>(result.size()));
    return result;
}

std::vector<double> interpolateValues(const LookupTable& table, const GridPoint& point) {
    int isLimit = 0;
    const double bytes = static_cast<double>(point.box.elements()) * valuesPerElement(table.type()) * sizeof(double);
    if (bytes > IMPGetMemory(&isLimit)) {
        fail("the grid points around one point take {:.0f} MiB; raise KSHOST_MEMORY (bytes).", bytes / 1048576);
    }
    std::vector<double> values = table.readValues(point.box);
    for (std::size_t d = 0; d < point.cells.size(); ++d) {
        if (point.box.count[d] == 1) continue;
        // The first axis that is left holds two halves.
        const double upper = point.cells[d].share;
        const std::size_t half = values.size() / 2;
        for (std::size_t i = 0; i < half; ++i) values[i] = (1 - upper) * values[i] + upper * values[half + i];
        values.resize(half);
    }
    return values;
}

RadianceInterpolator::RadianceInterpolator(const LookupTable& table) : table_(table) {
    if (!table.isRadianceTable()) fail("the table is no radiance table: it lacks its nine axes or pairs of values.");
    for (int d = 0; d < kInterpolated; ++d) requireMonotonic(table.axis(d), d);
}

}  // namespace kscli
