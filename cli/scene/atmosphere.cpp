#include "scene/atmosphere.hpp"

#include <functional>
#include <vector>

#include "lut/netcdf.hpp"

namespace kscli {
namespace {

constexpr double kVisibilityKm = 35;
constexpr const char* kRadianceUnits = "uW cm-2 sr-1 nm-1";
constexpr double kTableBytes = 1e6;

const std::vector<double> kWaters = {kSceneWater / 2, kSceneWater, 2 * kSceneWater};

class AtmosphereFile {
public:
    AtmosphereFile(const Scene& scene, const std::string& name)
        : scene_(scene), bands_(static_cast<std::size_t>(scene.parameters().bands)), file_(name, kTableBytes) {
        dimensions_ = {file_.addDimension("H2OSTR", kWaters.size()), file_.addDimension("wl", bands_)};
        file_.addText(NetcdfWriter::kFile, "title", "atmosphere of a made-up scene");
        file_.addText(NetcdfWriter::kFile, "RT_mode", "rdn");
    }

    void addNumber(const std::string& name, const std::string& units, double value) { add(name, units, {}, {value}); }
    void addAxes() {
        std::vector<double> wavelengths;
        for (int band = 0; band < scene_.parameters().bands; ++band) wavelengths.push_back(scene_.wavelength(band));
        add("H2OSTR", "g cm-2", {dimensions_[0]}, kWaters);
        add("wl", "nm", {dimensions_[1]}, wavelengths);
    }
    void addTable(const std::string& name, const std::string& units,
                  const std::function<double(int band, double water)>& valueAt) {
        std::vector<double> values;
        for (const double water : kWaters) {
            for (int band = 0; band < scene_.parameters().bands; ++band) values.push_back(valueAt(band, water));
        }
        add(name, units, dimensions_, values);
    }
    void write() {
        file_.endDefinitions();
        for (const Variable& variable : variables_) {
            std::vector<std::size_t> count;
            for (const int dimension : variable.dimensions)
                count.push_back(dimension == dimensions_[0] ? kWaters.size() : bands_);
            file_.write(variable.id, std::vector<std::size_t>(count.size()), count, variable.values);
        }
        file_.close();
    }

private:
    struct Variable {
        int id;
        std::vector<int> dimensions;
        std::vector<double> values;
    };
    void add(const std::string& name, const std::string& units, const std::vector<int>& dimensions,
             const std::vector<double>& values) {
        const int id = file_.addVariable(name, NetcdfWriter::Number::float64, dimensions);
        file_.addText(id, "units", units);
        variables_.push_back({id, dimensions, values});
    }

    const Scene& scene_;
    std::size_t bands_;
    NetcdfWriter file_;
    std::vector<int> dimensions_;
    std::vector<Variable> variables_;
};

}  // namespace

void writeAtmosphere(const Scene& scene, double heightKm, const std::string& name) {
    AtmosphereFile file(scene, name);
    file.addAxes();
    file.addNumber("sensor_altitude", "km", heightKm);
    file.addNumber("solar_zenith", "degrees", kSceneSunZenithDeg);
    file.addNumber("view_zenith", "degrees", 0);
    file.addNumber("relative_azimuth", "degrees", 0);
    file.addNumber("elevation", "km", 0);
    file.addNumber("visibility", "km", kVisibilityKm);
    const auto nothing = [](int, double) { return 0.0; };
    file.addTable("rhoatm", kRadianceUnits,
                  [&](int band, double water) { return scene.pathRadiance(band) * scene.throughWater(band, water); });
    file.addTable("dir-dir", kRadianceUnits,
                  [&](int band, double water) { return scene.whiteRadiance(band) * scene.throughWater(band, water); });
    for (const char* quantity : {"dif-dir", "dir-dif", "dif-dif"}) file.addTable(quantity, kRadianceUnits, nothing);
    file.addTable("sphalb", "1", nothing);
    file.write();
}

}  // namespace kscli
