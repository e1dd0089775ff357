#include "geometry/sunposition.hpp"

#include <cmath>
#include <limits>
#include <regex>

#include <kslib.h>

#include "app/report.hpp"
#include "app/text.hpp"

namespace kscli {
namespace {

constexpr double kDegree = 0.017453292519943295;
constexpr double kSecondsOfDay = 86400;
constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

/// Days since 2000-01-01 of a day of the Gregorian calendar; years are counted from March on, so that the day that not
/// every year has is the last.
std::int64_t dayNumber(int year, int month, int day) {
    const std::int64_t y = month > 2 ? year : year - 1;
    const std::int64_t monthFromMarch = (month + 9) % 12;
    const std::int64_t dayOfYear = (153 * monthFromMarch + 2) / 5 + day - 1;
    constexpr std::int64_t kUntil2000 = 730425;
    return y * 365 + y / 4 - y / 100 + y / 400 + dayOfYear - kUntil2000;
}

bool isLeap(int year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

int daysIn(int year, int month) {
    if (month == 2) return isLeap(year) ? 29 : 28;
    return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
}

struct Direction {
    double east;
    double north;
    double up;
};

/// The library's sun for day N of its year, an argument that it takes as it comes.
Direction libraryDirection(int day, double second, double latitude, double longitude) {
    constexpr int kPlainYear = 2001;  // in every fourth year its days are one ahead
    constexpr double kSecondsOfDegree = 240;
    const int minutes = static_cast<int>(second / 60);
    // The time has no seconds; the sun is where it was that long ago so much farther to the east.
    const double seconds = second - 60 * minutes;
    const auto meridian = static_cast<float>(longitude + seconds / kSecondsOfDegree);
    float zenith = 0;
    float azimuth = 0;
    const auto ask = [&](float offset) {
        KSSolarZAz(kPlainYear, 1, day, minutes / 60, minutes % 60, 0, static_cast<float>(latitude), meridian + offset,
                   &zenith, &azimuth);
    };
    ask(0);
    // Straight overhead its arc sine may see a value above 1.
    if (!std::isfinite(zenith)) ask(0.001F);
    const double z = static_cast<double>(zenith) * kDegree;
    const double a = std::isfinite(azimuth) ? static_cast<double>(azimuth) * kDegree : 0.0;
    return {std::sin(z) * std::sin(a), std::sin(z) * std::cos(a), std::cos(z)};
}

int field(const std::ssub_match& match) { return std::stoi(match.str()); }

}  // namespace

Moment Moment::after(double seconds) const {
    const double all = second + seconds;
    const double whole = std::floor(all / kSecondsOfDay);
    return {day + static_cast<std::int64_t>(whole), all - whole * kSecondsOfDay};
}

Moment makeMoment(int year, int month, int day, int hour, int minute, double second) {
    constexpr int kFirstYear = 1800;
    constexpr int kLastYear = 2200;
    if (year < kFirstYear || year > kLastYear) {
        fail("the year {} is out of range; positions are computed from {} to {}.", year, kFirstYear, kLastYear);
    }
    if (month < 1 || month > 12) fail("there is no month {}.", month);
    if (day < 1 || day > daysIn(year, month)) fail("{:04}-{:02} has no day {}.", year, month, day);
    if (hour < 0 || hour > 23) fail("there is no hour {}; hours count from 0 to 23.", hour);
    if (minute < 0 || minute > 59) fail("there is no minute {}; minutes count from 0 to 59.", minute);
    if (!(second >= 0 && second < 60)) fail("there is no second {}; seconds count from 0 to 59.", second);
    return {dayNumber(year, month, day), hour * 3600.0 + minute * 60.0 + second};
}

Moment parseMoment(const std::string& text) {
    static const std::regex kForm(
        R"((\d{4})-(\d{2})-(\d{2})[Tt ](\d{2}):(\d{2})(?::(\d{2}(?:\.\d{1,9})?))?\s*([Zz]|UTC|([+-])(\d{2}):?(\d{2}))?)");
    std::smatch part;
    const std::string words = trimmed(text);
    if (!std::regex_match(words, part, kForm)) {
        fail("'{}' is not a time; write it like 2024-06-21T10:40Z or 2024-06-21T12:40+02:00.", text);
    }
    const double second = part[6].matched ? *parseNumber(part[6].str()) : 0.0;
    try {
        const Moment moment =
            makeMoment(field(part[1]), field(part[2]), field(part[3]), field(part[4]), field(part[5]), second);
        if (!part[8].matched) return moment;
        const double zone = 3600.0 * field(part[9]) + 60.0 * field(part[10]);
        return moment.after(part[8].str() == "-" ? zone : -zone);
    } catch (const Failure& failure) {
        fail("'{}': {}", text, failure.what());
    }
}

std::string textOf(const Moment& moment) {
    const auto milliseconds = static_cast<std::int64_t>(moment.second * 1000 + 0.5);
    if (milliseconds >= 86400000) return textOf(Moment{moment.day + 1, 0});
    // Back from days since March 1 of the year 0, over eras of 400 years.
    constexpr std::int64_t kFromYear0 = 730425;
    constexpr std::int64_t kEra = 146097;
    const std::int64_t days = moment.day + kFromYear0;
    const std::int64_t era = days / kEra;
    const std::int64_t ofEra = days % kEra;
    const std::int64_t yearOfEra = (ofEra - ofEra / 1460 + ofEra / 36524 - ofEra / 146096) / 365;
    const std::int64_t ofYear = ofEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const std::int64_t fromMarch = (5 * ofYear + 2) / 153;
    const std::int64_t day = ofYear - (153 * fromMarch + 2) / 5 + 1;
    const std::int64_t month = fromMarch < 10 ? fromMarch + 3 : fromMarch - 9;
    const std::int64_t year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
    const std::int64_t minutes = milliseconds / 60000;
    std::string text = fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}", year, month, day, minutes / 60, minutes % 60);
    const std::int64_t rest = milliseconds % 60000;
    if (rest % 1000 != 0) {
        text += fmt::format(":{:02}.{:03}", rest / 1000, rest % 1000);
    } else if (rest != 0) {
        text += fmt::format(":{:02}", rest / 1000);
    }
    return text + "Z";
}

SunPosition sunAt(const Moment& moment, double latitude, double longitude) {
    // The series of the library goes through its year in 365 days of which it takes whole numbers, and counts from the
    // last day of December. Asked with the calendar's day it is up to two days off; so it is asked for the two whole
    // days on either side of where the mean year, of 365.2422 days and begun with 2000-01-01, has come to.
    constexpr double kMeanYear = 365.2422;
    constexpr double kItsYear = 365;
    const double turns = moment.days() / kMeanYear;
    const double day = (turns - std::floor(turns)) * kItsYear;
    const double before = std::floor(day);
    const double share = day - before;
    const Direction a = libraryDirection(static_cast<int>(before), moment.second, latitude, longitude);
    const Direction b = libraryDirection(static_cast<int>(before) + 1, moment.second, latitude, longitude);
    const auto between = [share](double from, double to) { return from + share * (to - from); };
    const Direction sun = {between(a.east, b.east), between(a.north, b.north), between(a.up, b.up)};
    const double level = std::hypot(sun.east, sun.north);
    constexpr double kOverhead = 1e-6;
    const double azimuth = std::atan2(sun.east, sun.north) / kDegree;
    return {std::atan2(level, sun.up) / kDegree, level < kOverhead ? kNone : azimuth < 0 ? azimuth + 360 : azimuth};
}

}  // namespace kscli
