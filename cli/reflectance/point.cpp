#include "reflectance/point.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include "app/report.hpp"
#include "geometry/sunposition.hpp"
#include "image/place.hpp"

namespace kscli {
namespace {

/// The option of each dimension; the reflectance has none.
constexpr std::array<const char*, RLUT_WAVELENGTH> kOptions = {
    "--altitude", "--sun-zenith", "", "--visibility", "--water", "--elevation", "--relative-azimuth", "--view-zenith"};

/// Where the sun stood at the image's date and time, at its place or else in the middle of its map; nothing when the
/// image lacks one of them.
std::optional<double> sunZenithOf(const DataSet& image) {
    const KSMission& m = image->Mission;
    if (m.nYear <= 0 || m.nMonth <= 0 || m.nDay <= 0 || m.nHour < 0 || m.nMinute < 0) return std::nullopt;
    const std::optional<Place> stated = statedPlace(image);
    const std::optional<Place> place = stated ? stated : mapCentre(image);
    if (!place) return std::nullopt;
    const Moment moment = makeMoment(m.nYear, m.nMonth, m.nDay, m.nHour, m.nMinute, 0);
    return sunAt(moment, place->latitude, place->longitude).zenith;
}

bool contains(const TableAxis& axis, double coordinate) {
    const auto [low, high] = std::minmax(axis.coordinates.front(), axis.coordinates.back());
    return coordinate >= static_cast<double>(low) && coordinate <= static_cast<double>(high);
}

class Chooser {
public:
    Chooser(const LookupTable& table, const DataSet& image, const Atmosphere& given)
        : table_(table), image_(image), given_(given), point_{std::vector<double>(RLUT_WAVELENGTH), {}} {}

    TablePoint choose() {
        choosePlain(RLUT_VISIBILITY, given_.visibilityKm);
        choosePlain(RLUT_WATER_VAPOR, given_.waterGramsPerCm2);
        choosePlain(RLUT_ELEVATION, given_.elevationKm);
        chooseAltitude();
        chooseSunZenith();
        chooseViewZenith();
        chooseRelativeAzimuth();
        return point_;
    }

private:
    static constexpr int RLUT_VISIBILITY = RLUT_METEOROLOGICAL_RANGE;

    const TableAxis& axis(int d) const { return table_.axis(d); }
    void set(int d, double value) { point_.coordinates[static_cast<std::size_t>(d)] = value; }
    template <class... Args>
    void assume(fmt::format_string<Args...> format, Args&&... args) {
        point_.assumptions.push_back(fmt::format(format, std::forward<Args>(args)...));
    }

    /// What is given, or the only coordinate that the table has.
    bool chooseGiven(int d, const std::optional<double>& value) {
        if (value) {
            set(d, *value);
            return true;
        }
        if (axis(d).size() > 1) return false;
        const double only = static_cast<double>(axis(d).coordinates[0]);
        set(d, only);
        assume("{} {:g}{}, the only one of the table{}", axis(d).nameOr(d), only, unitsOf(d),
               axis(d).assumed ? ", and assumed there" : "");
        return true;
    }
    void choosePlain(int d, const std::optional<double>& value) {
        if (!chooseGiven(d, value)) refuse(d, "");
    }

    std::string unitsOf(int d) const {
        const char* units = kRadianceAxisUnits[d];
        return *units == '\0' ? std::string() : fmt::format(" {}", units);
    }
    [[noreturn]] void refuse(int d, const std::string& why) const {
        fail("{}give {}, the {} of the scene; the table has {:g} to {:g}{}.", why,
             kOptions[static_cast<std::size_t>(d)], axis(d).nameOr(d), axis(d).coordinates.front(),
             axis(d).coordinates.back(), unitsOf(d));
    }

    void chooseAltitude() {
        if (chooseGiven(RLUT_SENSOR_ALTITUDE, given_.altitudeKm)) return;
        const double metres = static_cast<double>(image_->Mission.fHeight);
        if (!(metres > 0)) refuse(RLUT_SENSOR_ALTITUDE, "the image does not say how high the sensor was; ");
        set(RLUT_SENSOR_ALTITUDE, metres / 1000);
        assume("sensor altitude {:g} km, from the nominal height of the image, taken as metres", metres / 1000);
    }

    void chooseSunZenith() {
        if (given_.sunZenithDeg) return set(RLUT_SOLAR_ZENITH, *given_.sunZenithDeg);
        const auto sun = sunZenithOf(image_);
        if (sun && !tableStandsFor(*sun)) {
            if (*sun >= 90) {
                fail(
                    "at the image's date, time (as universal time) and place the sun was below the horizon (zenith "
                    "{:.1f} degrees); give --sun-zenith.",
                    *sun);
            }
            set(RLUT_SOLAR_ZENITH, *sun);
            assume("solar zenith angle {:.2f} degrees, from date, time (as universal time) and place of the image",
                   *sun);
            return;
        }
        if (!chooseGiven(RLUT_SOLAR_ZENITH, std::nullopt)) {
            refuse(RLUT_SOLAR_ZENITH, "the image does not tell date, time and place, so that the sun is not known; ");
        }
    }

    /// A table for one sun holds for the image when both suns are about the same, or that of the table is not known.
    bool tableStandsFor(double sun) const {
        constexpr double kSameDeg = 1;
        const TableAxis& suns = axis(RLUT_SOLAR_ZENITH);
        return suns.size() == 1 &&
               (suns.assumed || std::abs(sun - static_cast<double>(suns.coordinates[0])) < kSameDeg);
    }

    void chooseViewZenith() {
        if (chooseGiven(RLUT_VIEW_ZENITH, given_.viewZenithDeg)) return;
        if (!contains(axis(RLUT_VIEW_ZENITH), 0)) refuse(RLUT_VIEW_ZENITH, "");
        set(RLUT_VIEW_ZENITH, 0);
        assume("a view straight down");
    }

    void chooseRelativeAzimuth() {
        constexpr int d = RLUT_RELATIVE_AZIMUTH;
        if (given_.relativeAzimuthDeg) {
            // Left and right of the sun are alike.
            const double turned = std::abs(std::remainder(*given_.relativeAzimuthDeg, 360.0));
            return set(d, contains(axis(d), *given_.relativeAzimuthDeg) ? *given_.relativeAzimuthDeg : turned);
        }
        if (chooseGiven(d, std::nullopt)) return;
        if (point_.coordinates[RLUT_VIEW_ZENITH] != 0) refuse(d, "");
        set(d, static_cast<double>(axis(d).coordinates.front()));
    }

    const LookupTable& table_;
    const DataSet& image_;
    const Atmosphere& given_;
    TablePoint point_;
};

void requireUnits(const LookupTable& table) {
    for (int d = 0; d < table.dimensions(); ++d) {
        const std::string& units = table.axis(d).units;
        if (!units.empty() && units != kRadianceAxisUnits[d]) {
            fail("the table's axis '{}' is in {}; radiance tables of ks have it in {}.", table.axis(d).nameOr(d), units,
                 *kRadianceAxisUnits[d] != '\0' ? kRadianceAxisUnits[d] : "parts of 1");
        }
    }
    const std::string& units = table.description().units;
    if (!units.empty() && units != kRadianceUnits) {
        fail("the table's values are in {}, and not radiances in {}.", units, kRadianceUnits);
    }
}

}  // namespace

TablePoint choosePoint(const LookupTable& table, const DataSet& image, const Atmosphere& given) {
    requireUnits(table);
    return Chooser(table, image, given).choose();
}

std::string pointText(const TablePoint& point) {
    std::string text;
    for (std::size_t d = 0; d < kOptions.size(); ++d) {
        if (*kOptions[d] == '\0') continue;
        text += fmt::format("{}{} {:.7g}", text.empty() ? "" : " ", kOptions[d], point.coordinates[d]);
    }
    return text;
}

}  // namespace kscli
