// From the values of a radiance table to the surface reflectance of each band.
#pragma once

#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "image/dataset.hpp"
#include "lut/table.hpp"

namespace kscli {

/// What a uniform ground of reflectance r does at the sensor: radiance path + ground * r / (1 - albedo * r). All
/// not-a-number where the table does not tell.
struct SurfaceCoefficients {
    double path = std::numeric_limits<double>::quiet_NaN();    // radiance without any light from the ground
    double ground = std::numeric_limits<double>::quiet_NaN();  // what a ground of reflectance 1 adds, directly and by
                                                               // scattering, but for light that meets it twice
    double albedo = std::numeric_limits<double>::quiet_NaN();  // of the atmosphere, seen from the ground

    double reflectance(double radiance) const {
        const double fromGround = radiance - path;
        return fromGround / (ground + albedo * fromGround);
    }
};

/// The coefficients that two values of a table, at reflectances r1 < r2, determine; nothing where they do not, as where
/// no light comes from the ground.
std::optional<SurfaceCoefficients> solveSurface(const RLUTEntry& at1, const RLUTEntry& at2, double r1, double r2);

/// The entries of one point of the table at two reflectances, each in the order of the table's wavelengths.
struct ReflectanceLevels {
    double r1 = 0;
    double r2 = 0;
    std::vector<RLUTEntry> at1;
    std::vector<RLUTEntry> at2;
};
/// Reads them at the lowest and the highest reflectance above 0. Throws a Failure when the table has no two.
ReflectanceLevels readLevels(const LookupTable& table, std::vector<double> point, bool extrapolate);

/// Of each band, in the order of `bands`, and how they were found.
struct BandCoefficients {
    std::vector<SurfaceCoefficients> coefficients;
    std::vector<int> outside;     // bands that the table's wavelengths do not reach, or without a wavelength
    std::vector<int> unsolvable;  // bands where no light comes from the ground
    int matched = 0;              // bands whose wavelength is one of the table's
    int interpolated = 0;         // bands between two wavelengths of the table
    int weighted = 0;             // bands over which the table's values were averaged by their response
};
/// Throws a Failure when no band gets coefficients.
BandCoefficients coefficientsOf(const LookupTable& table, const DataSet& image, const std::vector<int>& bands,
                                const ReflectanceLevels& levels);

}  // namespace kscli
