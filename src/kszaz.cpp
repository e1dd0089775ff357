// Angles of the sun and of the view. The constants are published ones and stay as they are, digits included.
#include <kslib/kszaz.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kDegree = 0.017453292519943295;

double degrees(double radians) { return radians * (180.0 / kPi); }

double radians(float angle) { return static_cast<double>(angle) * kDegree; }

/// The day of the year from 1. Every fourth year counts one day more, in January and February too.
std::int64_t dayOfYear(int year, int month, int day) {
    const std::int64_t m = month;
    std::int64_t number = 31 * m - 31 + day;
    if (m != 1 && m != 2) {
        const std::int64_t t = m < 9 ? m - 1 : m - 2;
        number = 31 * m - t / 2 - 33 + day;
    }
    return year % 4 == 0 ? number + 1 : number;
}

/// In hours.
double equationOfTime(double dayAngle) {
    return (0.000075 + 0.001868 * std::cos(dayAngle) - 0.032077 * std::sin(dayAngle) -
            0.014615 * std::cos(2.0 * dayAngle) - 0.040849 * std::sin(2.0 * dayAngle)) *
           229.1831180523293 * (1.0 / 60.0);
}

double declinationOf(double dayAngle) {
    return 0.006918 - 0.399912 * std::cos(dayAngle) + 0.070257 * std::sin(dayAngle) -
           0.006758 * std::cos(2.0 * dayAngle) + 0.000907 * std::sin(2.0 * dayAngle) -
           0.002697 * std::cos(3.0 * dayAngle) + 0.00148 * std::sin(3.0 * dayAngle);
}

/// Clockwise from north, in radians.
double solarAzimuth(double latitude, double declination, double hourAngle, double elevation) {
    double s = std::sin(hourAngle) * std::cos(declination) / std::cos(elevation);
    if (std::abs(s) > 1.0) s = s / std::abs(s);
    double azimuth = std::asin(s);
    const double c = (std::sin(latitude) * std::cos(hourAngle) * std::cos(declination) -
                      std::sin(declination) * std::cos(latitude)) /
                     std::cos(elevation);
    if (c > 0.0) {
        if (s <= 0.0) azimuth += 2.0 * kPi;
    } else {
        azimuth = kPi - azimuth;
    }
    azimuth += kPi;
    return azimuth > 2.0 * kPi ? azimuth - 2.0 * kPi : azimuth;
}

/// A pixel position toward zero, however far away.
std::int64_t truncated(double position) {
    constexpr double kFar = 4611686018427387904.0;  // 2^62, so that differences of two stay in range
    return std::isnan(position) ? 0 : static_cast<std::int64_t>(std::clamp(position, -kFar, kFar));
}

/// The direction of (u, v) from the v axis; the values on the axes, 3 pi among them, are what callers expect.
double directionOf(double u, double v) {
    if (v == 0.0) {
        if (u == 0.0) return 0.0;
        return u < 0.0 ? 9.42477796076938 : kPi / 2.0;
    }
    if (u == 0.0) return v < 0.0 ? 4.71238898038469 : kPi / 2.0;
    double direction = std::atan(u / v);
    if (u < 0.0 && v < 0.0) direction += kPi;
    if (direction < 0.0 && v < 0.0) direction += 2.0 * kPi;
    if (direction < 0.0 && !(v < 0.0)) direction += kPi;
    return direction;
}

}  // namespace

void KSSolarZAz(int nYear, int nMonth, int nDay, int nHour, int nMinute, int /*nUnused*/, float fLatitude,
                float fLongitude, float* pfZenith, float* pfAzimuth) {
    constexpr double kDayStep = 0.01721420632103996;  // 2 pi / 365
    constexpr double kHourStep = 0.2617993877991494;  // pi / 12
    const double dayAngle = static_cast<double>(dayOfYear(nYear, nMonth, nDay)) * kDayStep;
    const double declination = declinationOf(dayAngle);
    const double time = static_cast<double>(static_cast<float>(nHour + nMinute / 60.0));
    const double hourAngle =
        (static_cast<double>(fLongitude) / 15.0 + time + equationOfTime(dayAngle) - 12.0) * kHourStep;
    const double latitude = radians(fLatitude);
    const double elevation = std::asin(std::sin(latitude) * std::sin(declination) +
                                       std::cos(latitude) * std::cos(declination) * std::cos(hourAngle));
    *pfZenith = static_cast<float>(90.0 - degrees(elevation));
    *pfAzimuth = static_cast<float>(degrees(solarAzimuth(latitude, declination, hourAngle, elevation)));
}

void KSViewZAz(int nCol, int nRow, float fTilt, float fHeading, int nWidth, int /*nUnused*/, float fRightAngle,
               float fLeftAngle, float fForeAftTilt, int /*nUnused2*/, float* pfZenith, float* pfAzimuth) {
    const double height = nWidth / (std::tan(radians(fRightAngle)) + std::tan(radians(fLeftAngle)));
    const double dx = static_cast<double>(nCol - truncated(std::tan(radians(fLeftAngle)) * height));
    const double dy = static_cast<double>(nRow - truncated(std::tan(radians(fForeAftTilt)) * height));
    const double heading = radians(fHeading);
    const double tilt = -radians(fTilt);
    const double u = std::cos(tilt) * std::cos(heading) * dx - std::sin(heading) * dy;
    const double v = std::sin(heading) * std::cos(tilt) * dx + std::cos(heading) * dy;
    const double distance = std::pow(u * u + v * v, 0.5) / height;
    *pfZenith = static_cast<float>(degrees(std::atan(distance)));
    *pfAzimuth = static_cast<float>(degrees(directionOf(u, v)) - static_cast<double>(fHeading));
}
