// Where in a radiance table an image belongs: geometry and atmosphere as the user gives them, as the image's metadata
// has them, or as the table leaves no choice; and what was assumed.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "image/dataset.hpp"
#include "lut/table.hpp"

namespace kscli {

/// What the user gave; in the units of radiance tables.
struct Atmosphere {
    std::optional<double> altitudeKm;
    std::optional<double> sunZenithDeg;
    std::optional<double> visibilityKm;
    std::optional<double> waterGramsPerCm2;
    std::optional<double> elevationKm;
    std::optional<double> relativeAzimuthDeg;
    std::optional<double> viewZenithDeg;
};

struct TablePoint {
    std::vector<double> coordinates;  // of dimensions 0 to 7; the reflectance is set by whoever asks for its levels
    std::vector<std::string> assumptions;
};

/// Throws a Failure that names the option where something is neither given nor known.
TablePoint choosePoint(const LookupTable& table, const DataSet& image, const Atmosphere& given);

/// "--sun-zenith 41 --view-zenith 6.5 ...": the point as the command line says it.
std::string pointText(const TablePoint& point);

}  // namespace kscli
