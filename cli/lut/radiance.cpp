#include "lut/radiance.hpp"

#include <array>
#include <cmath>
#include <filesystem>

#include "app/report.hpp"
#include "lut/atmosphere.hpp"
#include "lut/blocks.hpp"
#include "lut/import.hpp"
#include "lut/radianceaxes.hpp"
#include "lut/text.hpp"

namespace kscli {
namespace {

constexpr double kDegree = 3.14159265358979323846 / 180;

TableDescription descriptionOf(const NetcdfReader& file, const AxisPlans& plans, const std::string& remark) {
    TableDescription description;
    description.name = "at-sensor radiance";
    description.text = fmt::format("from {}{}", std::filesystem::path(file.name()).filename().string(), remark);
    description.type = ElementType::pair;
    description.valueNames = {"ground radiance", "path radiance"};
    description.units = kRadianceUnits;
    for (std::size_t d = 0; d < RLUT_DIMENSIONS; ++d) {
        TableAxis axis;
        axis.label = gaszRLUTLabels[d];
        axis.units = kRadianceAxisUnits[d];
        axis.assumed = plans[d].assumed;
        for (double coordinate : plans[d].coordinates) axis.coordinates.push_back(static_cast<float>(coordinate));
        description.axes.push_back(axis);
    }
    return description;
}

/// The entries of one spectrum of the table.
class SpectrumMaker {
public:
    SpectrumMaker(const NetcdfReader& file, const AtmosphereSource& atmosphere, const AxisPlans& plans)
        : fileRank_(file.dimensions().size()), atmosphere_(atmosphere), plans_(plans) {}

    void make(const std::vector<std::int64_t>& index, RLUTEntry* entries) {
        std::vector<std::size_t> fileIndex(fileRank_, 0);
        for (std::size_t d = 0; d < RLUT_WAVELENGTH; ++d) {
            const AxisPlan& plan = plans_[d];
            if (plan.dimension == kNoDimension) continue;
            fileIndex[static_cast<std::size_t>(plan.dimension)] = plan.fileIndex[static_cast<std::size_t>(index[d])];
        }
        const RadianceTerms c = atmosphere_.at(fileIndex, std::cos(coordinate(RLUT_SOLAR_ZENITH, index) * kDegree));
        const double reflectance = coordinate(RLUT_REFLECTANCE, index);
        const std::vector<std::size_t>& order = plans_[RLUT_WAVELENGTH].fileIndex;
        for (std::size_t w = 0; w < order.size(); ++w) {
            const std::size_t from = order[w];
            const double seen = reflectance / (1 - c.albedo[from] * reflectance);
            entries[w].fFirst = static_cast<float>(c.direct[from] * seen);
            entries[w].fSecond = static_cast<float>(c.path[from] + c.scattered[from] * seen);
            if (!std::isfinite(entries[w].fFirst) || !std::isfinite(entries[w].fSecond)) ++holes_;
        }
    }

    std::int64_t holes() const { return holes_; }

private:
    double coordinate(std::size_t axis, const std::vector<std::int64_t>& index) const {
        return plans_[axis].coordinates[static_cast<std::size_t>(index[axis])];
    }

    std::size_t fileRank_;
    const AtmosphereSource& atmosphere_;
    const AxisPlans& plans_;
    std::int64_t holes_ = 0;
};

void fill(LookupTable& table, SpectrumMaker& maker) {
    const std::int64_t wavelengths = table.size(RLUT_WAVELENGTH);
    constexpr int kShare = 4;  // the quantities take room too
    BoxWalk walk(table, elementsAtOnce(kShare * static_cast<int>(sizeof(RLUTEntry))), RLUT_WAVELENGTH);
    Progress progress;
    TableBox box;
    while (walk.next(box)) {
        std::vector<RLUTEntry> entries(static_cast<std::size_t>(box.elements()));
        for (std::int64_t at = 0; at < box.elements(); at += wavelengths) {
            maker.make(indexOf(box, at), entries.data() + at);
            throwIfInterrupted();
        }
        table.writeEntries(box, entries);
        walk.showOn(progress);
    }
}

void checkOptions(const RadianceOptions& options) {
    if (options.reflectances.size() < 2) fail("--reflectance: give two levels or more, such as 0.05,0.5.");
    for (std::size_t i = 0; i < options.reflectances.size(); ++i) {
        const double level = options.reflectances[i];
        if (level > 0 && level <= 1 && (i == 0 || level > options.reflectances[i - 1])) continue;
        fail("--reflectance: levels lie above 0 and up to 1, each higher than the one before.");
    }
    for (double range : options.ranges) {
        if (!(range > 0) || !std::isfinite(range)) fail("--visibility: give positive numbers of km.");
    }
    if (!(options.scaleHeightKm > 0)) fail("--aerosol-scale-height: give a positive number of km.");
}

}  // namespace

double meteorologicalRangeKm(double opticalDepth, double scaleHeightKm) {
    const double kContrast = std::log(50.0);  // what is seen at 2 % of its contrast
    constexpr double kAirPerKm = 0.01159;     // Rayleigh extinction at 550 nm at sea level
    return kContrast / (opticalDepth / scaleHeightKm + kAirPerKm);
}

LookupTable importRadiance(const NetcdfReader& file, const RadianceOptions& options, HostFile* target) {
    checkOptions(options);
    const int wavelength = wavelengthDimension(file);
    if (wavelength == kNoDimension) fail("{} has no axis of wavelengths, such as 'wl'.", file.name());
    const AtmosphereSource atmosphere(file, options, wavelength);
    const AxesPlan plan = planAxes(file, options, atmosphere, wavelength);
    const AxisPlans& plans = plan.axes;
    if (atmosphere.needsSun() && plans[RLUT_SOLAR_ZENITH].assumed) {
        fail("{} holds transmittances, so the sun's zenith angle is needed; give --sun-zenith.", file.name());
    }
    LookupTable table = LookupTable::create(target, descriptionOf(file, plans, plan.remark));
    SpectrumMaker maker(file, atmosphere, plans);
    fill(table, maker);
    if (maker.holes() > 0) warn("{} of {} cells hold no numbers.", maker.holes(), table.elementCount());
    table.finish();
    return table;
}

void addRadianceOptions(CLI::App& command, RadianceOptions& options) {
    command.add_option("--reflectance", options.reflectances, "Levels of the ground's reflectance; default: 0.05,0.5")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->option_text("R1,R2,...");
    command.add_option("--altitude", options.altitudeKm, "Of the sensor above sea level, in km")->option_text("KM");
    command.add_option("--sun-zenith", options.solarZenithDeg, "Of the sun, in degrees")->option_text("DEG");
    command
        .add_option("--visibility", options.ranges,
                    "Surface meteorological range in km, one for each aerosol value of the file; default: from the "
                    "aerosol optical depth")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->option_text("KM,...");
    command
        .add_option("--aerosol-scale-height", options.scaleHeightKm,
                    "Height in km over which the aerosol thins out to 1/e, for that; default: 1.2")
        ->option_text("KM");
    command.add_option("--water", options.water, "Vertical water vapor column, in g/cm2")->option_text("G");
    command.add_option("--elevation", options.elevationKm, "Of the ground above sea level, in km")->option_text("KM");
    command.add_option("--relative-azimuth", options.azimuthDeg, "Relative azimuth of view and sun, in degrees")
        ->option_text("DEG");
    command.add_option("--view-zenith", options.viewZenithDeg, "Of the view, in degrees; 0 is straight down")
        ->option_text("DEG");
    command.add_option("--path", options.path, "What 'rhoatm' is: radiance or reflectance; default: attribute RT_mode")
        ->check(CLI::IsMember({"radiance", "reflectance"}))
        ->option_text("KIND");
    command
        .add_option("--radiance-scale", options.scale,
                    "Turns the file's radiances into microwatts per cm2, nm and sr; default: by their units")
        ->check(CLI::PositiveNumber)
        ->option_text("F");
}

}  // namespace kscli
