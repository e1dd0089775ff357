// What an atmosphere does to light, from the variables of a netCDF file.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "lut/netcdf.hpp"
#include "lut/radiance.hpp"

namespace kscli {

/// At-sensor radiance of a uniform ground of reflectance r is direct r / (1 - albedo r), plus path + scattered
/// r / (1 - albedo r).
struct RadianceTerms {
    std::vector<double> direct;
    std::vector<double> scattered;
    std::vector<double> albedo;
    std::vector<double> path;
};

/// A variable over the file's axes, of which spectra are taken; held in memory where the allowance has room.
class Quantity {
public:
    Quantity(const NetcdfReader& file, const NetcdfVariable& variable, int wavelength, double factor);
    /// index: for each dimension of the file.
    std::vector<double> spectrum(const std::vector<std::size_t>& index) const;

private:
    std::vector<double> readSpectrum(const std::vector<std::size_t>& start) const;
    std::vector<double> takeSpectrum(const std::vector<std::size_t>& start) const;

    const NetcdfReader& file_;
    const NetcdfVariable& variable_;
    double factor_;
    std::vector<std::size_t> shape_;
    std::size_t along_ = 0;
    std::vector<double> values_;
};

class AtmosphereSource {
public:
    AtmosphereSource(const NetcdfReader& file, const RadianceOptions& options, int wavelength);

    /// The file tells transmittances of sunlight, so the sun's angle is needed to make radiances of them.
    bool needsSun() const { return form_ != Form::products; }
    /// The dimensions that some quantity has, with repetitions.
    const std::vector<int>& dimensions() const { return dimensions_; }
    /// index: for each dimension of the file.
    RadianceTerms at(const std::vector<std::size_t>& index, double cosSun) const;

private:
    /// How the file tells its quantities: as radiances, or as reflectances and transmittances of sunlight.
    enum class Form { products, radianceAndTransmittances, transmittances };
    static Form formOf(const NetcdfReader& file, const RadianceOptions& options);

    Form form_;
    std::map<std::string, Quantity> quantities_;
    std::vector<int> dimensions_;
};

}  // namespace kscli
