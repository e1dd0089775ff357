#include "lut/atmosphere.hpp"

#include <algorithm>
#include <functional>
#include <numeric>

#include "app/report.hpp"
#include "image/radianceunits.hpp"
#include "lut/blocks.hpp"

namespace kscli {
namespace {

constexpr double kPi = 3.14159265358979323846;

/// From the units of a radiance or irradiance to those of radiance tables, per sr where that applies.
double radianceFactor(const NetcdfReader& file, const NetcdfVariable& variable, const RadianceOptions& options) {
    if (options.scale > 0) return options.scale;
    const std::string units = file.text(&variable, "units");
    if (units.empty()) return 1;
    for (const char* angle : {"", " sr-1"}) {
        if (const auto scale = radianceScale(units + angle)) return *scale;
    }
    fail(
        "{}: the units '{}' of '{}' are not known here; tell with --radiance-scale what to multiply radiances with "
        "to get microwatts per cm2, nm and sr.",
        file.name(), units, variable.name);
}

const NetcdfVariable& require(const NetcdfReader& file, const std::string& name) {
    const NetcdfVariable* variable = file.find(name);
    if (variable == nullptr || !isNumeric(*variable)) {
        fail("{} has no variable '{}', which a radiance table needs. Import single variables without --radiance.",
             file.name(), name);
    }
    return *variable;
}

std::vector<double> sum(std::vector<double> a, const std::vector<double>& b) {
    std::transform(a.begin(), a.end(), b.begin(), a.begin(), std::plus<>());
    return a;
}
std::vector<double> product(std::vector<double> a, const std::vector<double>& b) {
    std::transform(a.begin(), a.end(), b.begin(), a.begin(), std::multiplies<>());
    return a;
}

}  // namespace

Quantity::Quantity(const NetcdfReader& file, const NetcdfVariable& variable, int wavelength, double factor)
    : file_(file), variable_(variable), factor_(factor), shape_(file.shapeOf(variable)) {
    const auto found = std::find(variable.dimensions.begin(), variable.dimensions.end(), wavelength);
    if (found == variable.dimensions.end()) fail("{}: '{}' has no wavelengths.", file.name(), variable.name);
    along_ = static_cast<std::size_t>(found - variable.dimensions.begin());
    constexpr int kQuantities = 8;
    const auto size = std::accumulate(shape_.begin(), shape_.end(), std::size_t{1}, std::multiplies<>());
    if (static_cast<std::int64_t>(size) * kQuantities <= elementsAtOnce(sizeof(double))) {
        values_ = file.readWhole(variable);
    }
}

std::vector<double> Quantity::spectrum(const std::vector<std::size_t>& index) const {
    std::vector<std::size_t> start;
    for (int dimension : variable_.dimensions) start.push_back(index[static_cast<std::size_t>(dimension)]);
    start[along_] = 0;
    std::vector<double> spectrum = values_.empty() ? readSpectrum(start) : takeSpectrum(start);
    for (double& value : spectrum) value *= factor_;
    return spectrum;
}

std::vector<double> Quantity::readSpectrum(const std::vector<std::size_t>& start) const {
    std::vector<std::size_t> count(start.size(), 1);
    count[along_] = shape_[along_];
    return file_.read(variable_, start, count);
}

std::vector<double> Quantity::takeSpectrum(const std::vector<std::size_t>& start) const {
    std::size_t at = 0;
    for (std::size_t d = 0; d < shape_.size(); ++d) at = at * shape_[d] + start[d];
    std::size_t step = 1;
    for (std::size_t d = along_ + 1; d < shape_.size(); ++d) step *= shape_[d];
    std::vector<double> spectrum;
    for (std::size_t i = 0; i < shape_[along_]; ++i) spectrum.push_back(values_[at + i * step]);
    return spectrum;
}

AtmosphereSource::AtmosphereSource(const NetcdfReader& file, const RadianceOptions& options, int wavelength)
    : form_(formOf(file, options)) {
    const auto add = [&](const std::string& name, bool isRadiance) {
        const NetcdfVariable& variable = require(file, name);
        const double factor = isRadiance ? radianceFactor(file, variable, options) : 1;
        quantities_.emplace(name, Quantity(file, variable, wavelength, factor));
        for (int d : variable.dimensions) dimensions_.push_back(d);
    };
    add("rhoatm", form_ != Form::transmittances);
    add("sphalb", false);
    const bool hasProducts = form_ == Form::products;
    for (const char* name : {"dir-dir", "dif-dir", "dir-dif", "dif-dif"}) {
        if (hasProducts) add(name, true);
    }
    for (const char* name : {"transm_down_dir", "transm_down_dif", "transm_up_dir", "transm_up_dif"}) {
        if (!hasProducts) add(name, false);
    }
    if (!hasProducts) add("solar_irr", true);
}

RadianceTerms AtmosphereSource::at(const std::vector<std::size_t>& index, double cosSun) const {
    const auto take = [&](const char* name) { return quantities_.at(name).spectrum(index); };
    RadianceTerms c;
    c.albedo = take("sphalb");
    c.path = take("rhoatm");
    if (form_ == Form::products) {
        c.direct = sum(take("dir-dir"), take("dif-dir"));
        c.scattered = sum(take("dir-dif"), take("dif-dif"));
        return c;
    }
    std::vector<double> sunlight = take("solar_irr");
    for (double& value : sunlight) value *= cosSun / kPi;
    if (form_ == Form::transmittances) c.path = product(c.path, sunlight);
    const std::vector<double> down = product(sunlight, sum(take("transm_down_dir"), take("transm_down_dif")));
    c.direct = product(down, take("transm_up_dir"));
    c.scattered = product(down, take("transm_up_dif"));
    return c;
}

AtmosphereSource::Form AtmosphereSource::formOf(const NetcdfReader& file, const RadianceOptions& options) {
    const std::string mode = options.path.empty() ? file.text(nullptr, "RT_mode") : options.path;
    if (mode == "transm" || mode == "reflectance") return Form::transmittances;
    if (mode != "rdn" && mode != "radiance") {
        fail(
            "{} does not say whether 'rhoatm' is a radiance or a reflectance (attribute RT_mode, rdn or transm); "
            "give --path radiance or --path reflectance.",
            file.name());
    }
    return file.find("dir-dir") != nullptr ? Form::products : Form::radianceAndTransmittances;
}

}  // namespace kscli
