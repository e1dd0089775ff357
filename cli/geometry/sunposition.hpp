// Where the sun stands, seen from a place at a moment. Angles are degrees; azimuths count clockwise from north,
// longitudes to the east.
#pragma once

#include <cstdint>
#include <string>

namespace kscli {

/// A moment in universal time.
struct Moment {
    std::int64_t day = 0;  // since 2000-01-01
    double second = 0;     // of the day, 0 to 86400

    /// Whole and broken days since 2000-01-01.
    double days() const { return static_cast<double>(day) + second / 86400; }
    Moment after(double seconds) const;
};

/// Throws a Failure that names the field when there is no such day or time of day.
Moment makeMoment(int year, int month, int day, int hour, int minute, double second);
/// A date and a time of day such as 2024-06-21T10:40Z; without a zone it is universal time. Throws a Failure.
Moment parseMoment(const std::string& text);
/// With seconds where there are any.
std::string textOf(const Moment& moment);

struct SunPosition {
    double zenith = 0;   // 0 to 180, of the sun's centre, without refraction
    double azimuth = 0;  // 0 to below 360; not-a-number where the sun stands overhead or underfoot

    bool isUp() const { return zenith < 90; }
};
SunPosition sunAt(const Moment& moment, double latitude, double longitude);

}  // namespace kscli
