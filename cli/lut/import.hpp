// What generic and radiance imports of netCDF share.
#pragma once

#include <string>
#include <vector>

#include "lut/netcdf.hpp"

namespace kscli {

/// Letters and digits of a name, in lower case: "Observer_Zenith" is "observerzenith".
std::string plainName(const std::string& name);

constexpr int kNoDimension = -1;
/// The dimension of wavelengths or bands, or kNoDimension.
int wavelengthDimension(const NetcdfReader& file);

/// The coordinates of a dimension: of its coordinate variable, or 0, 1, 2, ...
std::vector<double> coordinatesOf(const NetcdfReader& file, int dimension);

}  // namespace kscli
