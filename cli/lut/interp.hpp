// Values of look-up tables between their grid points, linear in every axis but the last, of which all values come.
#pragma once

#include <kslib.h>

#include <vector>

#include "lut/axes.hpp"
#include "lut/table.hpp"

namespace kscli {

/// A point of the grid's space: for every axis but the last the cell that it lies in, and what of it has to be read.
struct GridPoint {
    std::vector<float> coordinates;
    std::vector<AxisCell> cells;
    TableBox box;  // only indices that have a weight
};

/// Finds a point by its coordinates on every axis but the last. Throws a Failure where one lies outside of the table,
/// unless `extrapolate` is set: then the edge cell's straight line goes on, and an axis of one index stays constant.
GridPoint findPoint(const LookupTable& table, const std::vector<double>& coordinates, bool extrapolate);

/// The spectrum of a radiance table at a point, by KSInterpSpec. What grid points without weight hold does not matter.
std::vector<RLUTEntry> interpolateRadiance(const LookupTable& table, const GridPoint& point);

/// The values of any table at a point: along the last axis, valuesPerElement() numbers each.
std::vector<double> interpolateValues(const LookupTable& table, const GridPoint& point);

/// Spectra of a radiance table between its grid points.
class RadianceInterpolator {
public:
    /// Throws a Failure for another table, or one whose coordinates turn back.
    explicit RadianceInterpolator(const LookupTable& table);
    /// The spectrum at coordinates of dimensions 0 to 7; see findPoint.
    std::vector<RLUTEntry> at(const std::vector<double>& point, bool extrapolate = false) const {
        return interpolateRadiance(table_, findPoint(table_, point, extrapolate));
    }

private:
    const LookupTable& table_;
};

}  // namespace kscli
