// Axes of look-up tables as users name them, and where a coordinate lies on one.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lut/table.hpp"

namespace kscli {

/// The axis that a user names: its label, ignoring case and blanks or underscores, the start or else a part of the
/// label that no other axis has, or its number from 1. Throws a Failure that lists the axes.
int findAxis(const std::vector<TableAxis>& axes, const std::string& name);

/// What --at says, "LABEL=VALUE" each: for every axis its coordinate, where one is given.
std::vector<std::optional<double>> parseCoordinates(const std::vector<TableAxis>& axes,
                                                    const std::vector<std::string>& texts);

/// Where a coordinate lies: between indices lower and lower + 1 at `share` of the way. Outside of the table the share
/// is below 0 or above 1, as a straight line through the edge cell goes on. At a grid point the share is exactly 0
/// or 1.
struct AxisCell {
    int lower = 0;
    double share = 0;
    bool inside = true;
};
/// For coordinates that all increase or all decrease. An axis of one index holds its own coordinate only; anything
/// else is outside, with share 0.
AxisCell locate(const TableAxis& axis, double coordinate);
/// The index of the grid point that comes nearest.
int nearestIndex(const TableAxis& axis, double coordinate);
/// Throws a Failure that says where the coordinates of an axis turn back or repeat.
void requireMonotonic(const TableAxis& axis, int dimension);

}  // namespace kscli
