// netCDF files made and read with their library alone, to check what ks makes of them and writes.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace clitest {

struct NcVariable {
    std::string name;
    std::vector<std::string> dimensions;
    std::vector<double> values;
    bool isFloat = false;  // float32 instead of float64
    std::map<std::string, std::string> texts;
    std::map<std::string, double> numbers;
};

struct NcFile {
    std::vector<std::pair<std::string, std::size_t>> dimensions;
    std::vector<NcVariable> variables;
    std::map<std::string, std::string> texts;
    bool isClassic = false;  // the format before netCDF-4
};

void writeNetcdf(const std::filesystem::path& name, const NcFile& file);

/// A variable with its dimensions' names, numbers, and text attributes; fails the test when it is not there.
NcVariable readNetcdf(const std::filesystem::path& name, const std::string& variable);

}  // namespace clitest
