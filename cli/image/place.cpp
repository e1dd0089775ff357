#include "image/place.hpp"

#include <cmath>

namespace kscli {

bool isLatitude(double value) { return value >= -90 && value <= 90; }
bool isLongitude(double value) { return value >= -180 && value <= 360; }

std::optional<Place> statedPlace(const DataSet& dataSet) {
    const KSMission& mission = dataSet->Mission;
    if (!isLatitude(mission.dLatitude) || !isLongitude(mission.dLongitude)) return std::nullopt;
    return Place{mission.dLatitude, mission.dLongitude};
}

std::optional<Place> mapCentre(const DataSet& dataSet) {
    double x = dataSet->nXSize / 2.0;
    double y = dataSet->nYSize / 2.0;
    if (KSHostPixelsToGeographic(dataSet.file(), 1, &x, &y) == 0 || !std::isfinite(x) || !std::isfinite(y))
        return std::nullopt;
    return Place{y, x};
}

}  // namespace kscli
