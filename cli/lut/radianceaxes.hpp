// The nine axes of a radiance table, found among those of a netCDF file, told by the user, or assumed.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "lut/atmosphere.hpp"
#include "lut/import.hpp"

namespace kscli {

/// An axis of the table: its coordinates, increasing, and where each lies in the file.
struct AxisPlan {
    int dimension = kNoDimension;  // of the file
    std::vector<double> coordinates;
    std::vector<std::size_t> fileIndex;
    bool assumed = false;
};

using AxisPlans = std::array<AxisPlan, RLUT_DIMENSIONS>;

struct AxesPlan {
    AxisPlans axes;
    std::string remark;  // "; meteorological range from AOT550 with an aerosol scale height of 1.2 km", or nothing
};
/// Throws a Failure for axes that a radiance table cannot have, and warns of what is assumed.
AxesPlan planAxes(const NetcdfReader& file, const RadianceOptions& options, const AtmosphereSource& atmosphere,
                  int wavelength);

}  // namespace kscli
