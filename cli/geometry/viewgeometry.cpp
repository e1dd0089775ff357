#include "geometry/viewgeometry.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include <kslib.h>

namespace kscli {
namespace {

constexpr double kDegree = 0.017453292519943295;
constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

/// The tangent of the angle to the middle of pixel i of n, positive towards the last one.
double tangentOf(int i, int n, double first, double last, bool evenAngles) {
    const double part = (i + 0.5) / n;
    if (evenAngles) return std::tan((part * last - (1 - part) * first) * kDegree);
    return part * std::tan(last * kDegree) - (1 - part) * std::tan(first * kDegree);
}

/// A point on the ground, in heights of the sensor from the point below it.
struct Ground {
    double right;
    double ahead;
    bool isSeen;
};

Ground groundOf(const ViewGeometry& g, int column, int line) {
    const double x = tangentOf(column, g.width, g.left, g.right, g.evenAngles);
    const double y = g.frame ? -tangentOf(line, g.height, g.fore, g.aft, g.evenAngles) : 0.0;
    const double roll = g.roll * kDegree;
    const double pitch = g.pitch * kDegree;
    const double right = x * std::cos(roll) + std::sin(roll);
    const double belowRolled = std::cos(roll) - x * std::sin(roll);
    const double ahead = y * std::cos(pitch) + belowRolled * std::sin(pitch);
    const double below = belowRolled * std::cos(pitch) - y * std::sin(pitch);
    constexpr double kGrazing = 1e-4;
    return {right / below, ahead / below, below > kGrazing};
}

struct Angles {
    double zenith;
    double fromAhead;  // 0 to 90
};

// The library counts whole pixels from the point below the sensor and places only those well that lie to the right of
// it and ahead. So it is asked about the mirror image there, on a grid that is fine enough for whole pixels.
Angles libraryAngles(double right, double ahead) {
    const double farthest = std::max({1.0, right, ahead});
    const int pixelsInHeight = static_cast<int>(1e9 / farthest);
    const int columns = static_cast<int>(std::lround(right * pixelsInHeight));
    const int rows = static_cast<int>(std::lround(ahead * pixelsInHeight));
    constexpr float kHalfRight = 45;  // its tangent is 1, so the image is one height wide
    float zenith = 0;
    float azimuth = 0;
    KSViewZAz(columns, rows, 0, 0, pixelsInHeight, 0, kHalfRight, 0, 0, 0, &zenith, &azimuth);
    // On the axes its azimuth follows rules of its own.
    if (columns == 0) azimuth = 0;
    if (columns != 0 && rows == 0) azimuth = 90;
    return {static_cast<double>(zenith), static_cast<double>(azimuth)};
}

}  // namespace

View viewOf(const ViewGeometry& geometry, int column, int line) {
    const Ground ground = groundOf(geometry, column, line);
    if (!ground.isSeen) return {kNone, kNone};
    const Angles angles = libraryAngles(std::abs(ground.right), std::abs(ground.ahead));
    constexpr double kStraightDown = 1e-6;
    if (angles.zenith < kStraightDown) return {0, kNone};
    double look = ground.ahead < 0 ? 180 - angles.fromAhead : angles.fromAhead;
    if (ground.right < 0) look = -look;
    const double azimuth = std::fmod(geometry.heading + look + 180, 360);
    return {angles.zenith, azimuth < 0 ? azimuth + 360 : azimuth};
}

}  // namespace kscli
