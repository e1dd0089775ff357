// Where on the ground an image was taken.
#pragma once

#include <optional>

#include "image/dataset.hpp"

namespace kscli {

/// Degrees, north and east positive.
struct Place {
    double latitude = 0;
    double longitude = 0;
};

bool isLatitude(double value);
bool isLongitude(double value);

/// What the metadata of an image say.
std::optional<Place> statedPlace(const DataSet& dataSet);
/// The centre of an image that lies on a map.
std::optional<Place> mapCentre(const DataSet& dataSet);

}  // namespace kscli
