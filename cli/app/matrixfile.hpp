// Square matrices of numbers as files: CSV for people and spreadsheets, .npy for NumPy.
#pragma once

#include <string>
#include <vector>

namespace kscli {

/// Refuses a name that is neither .csv nor .npy.
void requireMatrixName(const std::string& name);

/// Writes a matrix, given row after row, in the format of the name. The columns' labels head a CSV file. Every number
/// reads back as the same double; what is none is "nan".
void writeMatrix(const std::vector<double>& rows, const std::vector<std::string>& labels, const std::string& name);

}  // namespace kscli
