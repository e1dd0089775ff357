// Radiance tables from atmospheric quantities: path radiance, spherical albedo, and what a ground of reflectance 1
// would send to the sensor, directly and scattered.
#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <string>
#include <vector>

#include "lut/netcdf.hpp"
#include "lut/table.hpp"

namespace kscli {

struct RadianceOptions {
    std::vector<double> reflectances = {0.05, 0.5};
    std::vector<double> ranges;  // km, for the file's aerosol values in their order, or one
    double scaleHeightKm = 1.2;  // of the aerosol
    double scale = 0;            // to the units of radiance tables; 0: by the file's units
    std::string path;            // "radiance", "reflectance", or empty: by the file
    std::optional<double> altitudeKm;
    std::optional<double> solarZenithDeg;
    std::optional<double> water;  // g/cm2
    std::optional<double> elevationKm;
    std::optional<double> azimuthDeg;
    std::optional<double> viewZenithDeg;
};

void addRadianceOptions(CLI::App& command, RadianceOptions& options);

/// Surface meteorological range in km for an aerosol optical depth at 550 nm: ln 50 over the extinction at the ground,
/// which is that of an aerosol thinning out exponentially with height, and of air.
double meteorologicalRangeKm(double opticalDepth, double scaleHeightKm);

/// Makes a radiance table of a file's quantities in a file that is open for writing; says what it had to assume.
LookupTable importRadiance(const NetcdfReader& source, const RadianceOptions& options, HostFile* target);

}  // namespace kscli
