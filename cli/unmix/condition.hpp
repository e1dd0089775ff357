// How far from dependent the columns of a matrix are.
#pragma once

#include <cstddef>
#include <vector>

namespace kscli {

/// The ratio of the largest singular value to the smallest of a matrix of at least as many rows as columns, given row
/// after row; infinite for dependent columns.
double conditionNumber(const std::vector<double>& matrix, std::size_t columns);

}  // namespace kscli
