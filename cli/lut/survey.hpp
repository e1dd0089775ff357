// What a look-up table holds, and how well neighbours predict a grid point: both streamed, so that a table may be
// larger than memory.
#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include "lut/table.hpp"

namespace kscli {

struct ValueSummary {
    std::int64_t numbers = 0;
    std::int64_t notNumbers = 0;
    std::int64_t infinities = 0;
    double least = std::numeric_limits<double>::infinity();
    double greatest = -std::numeric_limits<double>::infinity();
};

struct CellPlace {
    std::vector<std::int64_t> index;
    int value = 0;
    bool isInfinite = false;
};

struct Coverage {
    std::int64_t cells = 0;
    std::int64_t covered = 0;           // cells whose values are all finite numbers
    std::vector<ValueSummary> values;   // of an element
    std::vector<CellPlace> firstHoles;  // where the first few values that are not finite stand

    bool isComplete() const { return covered == cells; }
};
Coverage surveyCoverage(const LookupTable& table);

/// Each grid point that has neighbours on both sides along an axis, predicted from them on a straight line. Errors are
/// relative to the largest of the three values, so that a point in the dark does not outweigh all others; points where
/// one is missing are left out.
struct AxisError {
    std::int64_t points = 0;
    std::int64_t leftOut = 0;
    double mean = 0;
    double largest = 0;
    CellPlace worst;
};
AxisError leaveOneOut(const LookupTable& table, int axis);

}  // namespace kscli
