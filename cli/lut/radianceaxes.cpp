#include "lut/radianceaxes.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <map>
#include <numeric>
#include <optional>
#include <set>

#include "app/report.hpp"

namespace kscli {
namespace {

constexpr double kDegree = 3.14159265358979323846 / 180;

/// Names under which files have an axis, or a single number for it, in plain letters.
const std::array<std::vector<std::string>, RLUT_DIMENSIONS> kAxisNames = {{
    {"sensoraltitude", "sensoraltitudekm", "observeraltitude", "observeraltitudekm", "h1alt"},
    {"solarzenithangle", "solarzenith", "solzen", "sunzenith", "sza"},
    {},
    {"surfacemeteorologicalrange", "meteorologicalrange", "visibility", "vis"},
    {"verticalwatervaporcolumn", "h2ostr", "h2o", "watervapor", "watervapour", "pwv"},
    {"sceneelevation", "surfaceelevation", "surfaceelevationkm", "elevation", "gndalt"},
    {"relativeviewsolarazimuth", "relativeazimuth", "raa", "relaz"},
    {"viewzenithangle", "viewzenith", "observerzenith", "obszen", "sensorzenith", "vza"},
    {},
}};
const std::vector<std::string> kAerosolNames = {"aot550", "aot", "aod550", "aod", "aerosolopticaldepth"};
/// How to tell the coordinate of an axis that the file lacks.
constexpr std::array<const char*, RLUT_DIMENSIONS> kAxisOptions = {"--altitude",         "--sun-zenith",  "",
                                                                   "--visibility",       "--water",       "--elevation",
                                                                   "--relative-azimuth", "--view-zenith", ""};

bool isOneOf(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), plainName(name)) != names.end();
}

/// A unit without what people write differently: "W m^-2 um^-1" is "wm-2um-1".
std::string plainUnit(const std::string& units) {
    std::string plain;
    for (char c : units) {
        if (std::string(" ^*.()_").find(c) == std::string::npos) {
            plain += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
    }
    return plain;
}

/// What a coordinate in these units is to be multiplied with.
double coordinateFactor(const std::string& units) {
    static const std::map<std::string, double> kFactors = {
        {"m", 1e-3},          {"meter", 1e-3}, {"meters", 1e-3}, {"metre", 1e-3}, {"metres", 1e-3},
        {"mm", 0.1},          {"kgm-2", 0.1},  {"kg/m2", 0.1},   {"um", 1e3},     {"micrometer", 1e3},
        {"micrometers", 1e3}, {"micron", 1e3}, {"microns", 1e3}};
    const auto found = kFactors.find(plainUnit(units));
    return found != kFactors.end() ? found->second : 1;
}

void sortAxis(AxisPlan& plan, const char* label) {
    std::vector<std::size_t> order(plan.coordinates.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(),
              [&](std::size_t a, std::size_t b) { return plan.coordinates[a] < plan.coordinates[b]; });
    const std::vector<double> unsorted = plan.coordinates;
    for (std::size_t i = 0; i < order.size(); ++i) plan.coordinates[i] = unsorted[order[i]];
    plan.fileIndex = order;
    for (std::size_t i = 1; i < order.size(); ++i) {
        if (static_cast<float>(plan.coordinates[i]) > static_cast<float>(plan.coordinates[i - 1])) continue;
        fail("the coordinates of '{}' repeat {}, or are no numbers.", label, plan.coordinates[i]);
    }
}

class AxisPlanner {
public:
    AxisPlanner(const NetcdfReader& file, const RadianceOptions& options, const AtmosphereSource& atmosphere,
                int wavelength)
        : file_(file), options_(options), wavelength_(wavelength) {
        dimensions_.insert(atmosphere.dimensions().begin(), atmosphere.dimensions().end());
    }

    AxesPlan plan() {
        AxisPlans plans;
        for (int d = 0; d < RLUT_DIMENSIONS; ++d) {
            AxisPlan& plan = plans[static_cast<std::size_t>(d)];
            plan = planAxis(d);
            sortAxis(plan, gaszRLUTLabels[d]);
        }
        requireAllPlanned();
        return {plans, remark_};
    }

private:
    AxisPlan planAxis(int axis) {
        if (axis == RLUT_REFLECTANCE) return fixed(options_.reflectances);
        if (axis == RLUT_WAVELENGTH) return planWavelength();
        if (axis == RLUT_METEOROLOGICAL_RANGE) return planRange();
        const int dimension = dimensionOf(kAxisNames[static_cast<std::size_t>(axis)]);
        AxisPlan plan = dimension != kNoDimension ? ofFile(dimension) : single(axis, optionOf(axis));
        if (axis == RLUT_VIEW_ZENITH) turnUpright(plan);
        return plan;
    }

    static AxisPlan fixed(const std::vector<double>& coordinates) { return {kNoDimension, coordinates, {}, false}; }

    AxisPlan ofFile(int dimension) {
        planned_.insert(dimension);
        const NetcdfVariable* variable = file_.coordinatesOf(dimension);
        if (variable == nullptr) {
            fail("{}: the dimension '{}' has no coordinates.", file_.name(), nameOf(dimension));
        }
        AxisPlan plan = {dimension, file_.readWhole(*variable), {}, false};
        const double factor = coordinateFactor(file_.text(variable, "units"));
        for (double& coordinate : plan.coordinates) coordinate *= factor;
        return plan;
    }

    AxisPlan planWavelength() {
        AxisPlan plan = ofFile(wavelength_);
        const double longest = *std::max_element(plan.coordinates.begin(), plan.coordinates.end());
        constexpr double kMicrometresEnd = 100;
        if (longest < kMicrometresEnd) {
            note("the wavelengths end at {}, so they are taken for micrometres.", longest);
            for (double& coordinate : plan.coordinates) coordinate *= 1e3;
        }
        return plan;
    }

    AxisPlan planRange() {
        const std::vector<std::string>& names = kAxisNames[RLUT_METEOROLOGICAL_RANGE];
        const int aerosol = dimensionOf(kAerosolNames);
        if (aerosol == kNoDimension) {
            const int range = dimensionOf(names);
            if (range != kNoDimension && options_.ranges.empty()) return ofFile(range);
            if (range == kNoDimension && options_.ranges.size() <= 1) {
                return single(RLUT_METEOROLOGICAL_RANGE, options_.ranges.empty()
                                                             ? std::optional<double>()
                                                             : std::optional<double>(options_.ranges[0]));
            }
            fail("--visibility: {} {}.", file_.name(),
                 range == kNoDimension ? "has no aerosol axis, so give one value" : "has a visibility axis of its own");
        }
        AxisPlan plan = ofFile(aerosol);
        if (!options_.ranges.empty()) {
            if (options_.ranges.size() != plan.coordinates.size()) {
                fail("--visibility: '{}' has {} values, so give as many, in their order.", nameOf(aerosol),
                     plan.coordinates.size());
            }
            plan.coordinates = options_.ranges;
            return plan;
        }
        for (double& depth : plan.coordinates) depth = meteorologicalRangeKm(depth, options_.scaleHeightKm);
        remark_ = fmt::format("; meteorological range from {} with an aerosol scale height of {} km", nameOf(aerosol),
                              options_.scaleHeightKm);
        return plan;
    }

    std::optional<double> optionOf(int axis) const {
        switch (axis) {
            case RLUT_SENSOR_ALTITUDE:
                return options_.altitudeKm;
            case RLUT_SOLAR_ZENITH:
                return options_.solarZenithDeg;
            case RLUT_WATER_VAPOR:
                return options_.water;
            case RLUT_ELEVATION:
                return options_.elevationKm;
            case RLUT_RELATIVE_AZIMUTH:
                return options_.azimuthDeg;
            default:
                return options_.viewZenithDeg;
        }
    }

    /// An axis of one index: from a single number of the file, or as told, or assumed.
    AxisPlan single(int axis, std::optional<double> told) {
        const std::optional<double> ofFile = singleNumber(axis);
        if (ofFile && told) {
            fail("{}: {} says itself that it is made for {}.", kAxisOptions[static_cast<std::size_t>(axis)],
                 file_.name(), *ofFile);
        }
        if (ofFile || told) return fixed({ofFile ? *ofFile : *told});
        assumed_.push_back(axis);
        AxisPlan plan = fixed({0});
        plan.assumed = true;
        return plan;
    }

    std::optional<double> singleNumber(int axis) const {
        for (const NetcdfVariable& variable : file_.variables()) {
            if (!isNumeric(variable)) continue;
            const bool isCosine = axis == RLUT_SOLAR_ZENITH && plainName(variable.name) == "coszen";
            if (!isCosine && !isOneOf(kAxisNames[static_cast<std::size_t>(axis)], variable.name)) continue;
            const std::vector<std::size_t> shape = file_.shapeOf(variable);
            if (std::any_of(shape.begin(), shape.end(), [](std::size_t length) { return length != 1; })) continue;
            const double value = file_.readWhole(variable)[0];
            return isCosine ? std::acos(value) / kDegree : value * coordinateFactor(file_.text(&variable, "units"));
        }
        return {};
    }

    /// Angles are from the vertical, 0 for a view straight down; some files count from straight up.
    static void turnUpright(AxisPlan& plan) {
        constexpr double kHorizon = 90;
        const auto isFromAbove = [](double angle) { return angle > kHorizon; };
        if (!std::all_of(plan.coordinates.begin(), plan.coordinates.end(), isFromAbove)) return;
        for (double& angle : plan.coordinates) angle = 2 * kHorizon - angle;
    }

    int dimensionOf(const std::vector<std::string>& names) const {
        for (int d : dimensions_) {
            if (isOneOf(names, nameOf(d))) return d;
        }
        return kNoDimension;
    }
    const std::string& nameOf(int dimension) const {
        return file_.dimensions()[static_cast<std::size_t>(dimension)].name;
    }

    void requireAllPlanned() const {
        for (int d : dimensions_) {
            if (planned_.count(d) != 0 || file_.dimensions()[static_cast<std::size_t>(d)].length == 1) continue;
            fail("{}: radiance tables have no axis for the dimension '{}'.", file_.name(), nameOf(d));
        }
        for (int axis : assumed_) {
            warn("{} is not known and taken for 0; tell it with {}.", gaszRLUTLabels[axis],
                 kAxisOptions[static_cast<std::size_t>(axis)]);
        }
    }

    const NetcdfReader& file_;
    const RadianceOptions& options_;
    int wavelength_;
    std::set<int> dimensions_;  // of the quantities
    std::set<int> planned_;
    std::vector<int> assumed_;
    std::string remark_;
};

}  // namespace

AxesPlan planAxes(const NetcdfReader& file, const RadianceOptions& options, const AtmosphereSource& atmosphere,
                  int wavelength) {
    return AxisPlanner(file, options, atmosphere, wavelength).plan();
}

}  // namespace kscli
