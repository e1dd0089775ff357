// ks sun: compared with the low-precision position of the Astronomical Almanac (good to 0.01 degrees from 1950 to
// 2050), turned to the horizon by way of vectors, and with published positions.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <fstream>

#include "app/report.hpp"
#include "geometry/sunposition.hpp"
#include "speckit.hpp"

namespace clitest {
namespace {

using kscli::makeMoment;
using kscli::Moment;
using kscli::parseMoment;
using kscli::sunAt;
using kscli::SunPosition;
using testing::HasSubstr;

constexpr double kDegree = 3.14159265358979323846 / 180;
using Vector = std::array<double, 3>;  // east, north, up

Vector vectorOf(double zenith, double azimuth) {
    const double z = zenith * kDegree;
    const double a = azimuth * kDegree;
    return {std::sin(z) * std::sin(a), std::sin(z) * std::cos(a), std::cos(z)};
}

double degreesBetween(const Vector& a, const Vector& b) {
    const double chord = std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
    return 2 * std::asin(std::min(1.0, chord / 2)) / kDegree;
}

/// Astronomical Almanac, section C: the sun's ecliptic longitude from the mean one and the anomaly; then the equatorial
/// vector, turned by the sidereal time and by the latitude.
Vector almanacSun(double daysSinceNoon2000, double latitude, double longitude) {
    const double n = daysSinceNoon2000;
    const double meanLongitude = 280.460 + 0.9856474 * n;
    const double g = (357.528 + 0.9856003 * n) * kDegree;
    const double lambda = (meanLongitude + 1.915 * std::sin(g) + 0.020 * std::sin(2 * g)) * kDegree;
    const double epsilon = (23.439 - 4e-7 * n) * kDegree;
    const double x = std::cos(lambda);
    const double y = std::cos(epsilon) * std::sin(lambda);
    const double z = std::sin(epsilon) * std::sin(lambda);
    const double sidereal = (280.46061837 + 360.98564736629 * n + longitude) * kDegree;
    const double outward = x * std::cos(sidereal) + y * std::sin(sidereal);  // on the meridian
    const double east = -x * std::sin(sidereal) + y * std::cos(sidereal);
    const double phi = latitude * kDegree;
    return {east, z * std::cos(phi) - outward * std::sin(phi), z * std::sin(phi) + outward * std::cos(phi)};
}

double daysSinceNoon2000(int year, int month, int day, double hours) {
    std::tm parts = {};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    constexpr double kNoon2000 = 946728000;
    return (static_cast<double>(timegm(&parts)) - kNoon2000) / 86400 + hours / 24;
}

constexpr std::size_t kZenith = 3;
constexpr std::size_t kAzimuth = 4;
constexpr std::size_t kState = 5;

class Sun : public CliTest {
protected:
    /// The rows of a run that succeeds, without the heading.
    std::vector<std::vector<std::string>> rows(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "sun");
        const Result result = ks(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        auto all = cellsOf(result.out);
        if (!all.empty()) {
            EXPECT_EQ(all[0], (std::vector<std::string>{"time_utc", "latitude_deg", "longitude_deg", "zenith_deg",
                                                        "azimuth_deg", "sun"}));
            all.erase(all.begin());
        }
        return all;
    }
    std::string failure(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "sun");
        const Result result = ks(arguments);
        EXPECT_EQ(result.status, 1) << result.out;
        EXPECT_EQ(result.out, "");
        return result.err;
    }
};

// ---- positions ----

TEST_F(Sun, AgreesWithTheAlmanacOnEveryDay) {
    // The series itself is good to 0.05 degrees in declination and 0.17 in hour angle.
    constexpr double kTolerance = 0.2;
    double worst = 0;
    int compared = 0;
    const std::array<double, 4> hours = {0.25, 7.5, 12.0, 19.75};
    for (int year = 1950; year <= 2050; ++year) {
        for (int month = 1; month <= 12; ++month) {
            for (int day = 1; day <= 28; day += 3) {
                for (const double hour : hours) {
                    const double latitude = (day * 37 + month * 11) % 179 - 89;
                    const double longitude = (day * 53 + month * 29) % 359 - 179;
                    const Moment moment =
                        makeMoment(year, month, day, static_cast<int>(hour), static_cast<int>(hour * 60) % 60, 0);
                    const SunPosition sun = sunAt(moment, latitude, longitude);
                    const Vector expected = almanacSun(daysSinceNoon2000(year, month, day, hour), latitude, longitude);
                    const double error = degreesBetween(vectorOf(sun.zenith, sun.azimuth), expected);
                    ASSERT_LT(error, kTolerance)
                        << year << "-" << month << "-" << day << " " << hour << " " << latitude;
                    ASSERT_TRUE(sun.azimuth >= 0 && sun.azimuth < 360) << sun.azimuth;
                    ASSERT_EQ(sun.isUp(), sun.zenith < 90);
                    worst = std::max(worst, error);
                    ++compared;
                }
            }
        }
    }
    EXPECT_EQ(compared, 101 * 12 * 10 * 4);
    EXPECT_GT(worst, 0.01) << "so close to another series it cannot be";
}

TEST_F(Sun, DoesNotJumpAtTheEndOfFebruaryOrOfTheYear) {
    for (const char* text : {"2024-02-28T12:00Z", "2024-02-29T12:00Z", "2023-02-28T12:00Z", "2023-12-31T12:00Z",
                             "2024-12-30T12:00Z", "2024-12-31T12:00Z", "2100-02-28T12:00Z", "1999-12-31T12:00Z"}) {
        const Moment moment = parseMoment(text);
        const double before = sunAt(moment.after(-86400), 40, 0).zenith;
        const double here = sunAt(moment, 40, 0).zenith;
        const double after = sunAt(moment.after(86400), 40, 0).zenith;
        // Declination changes by up to 0.4 degrees a day, and that change by up to 0.01.
        EXPECT_NEAR((after - here) - (here - before), 0, 0.012) << text;
    }
}

TEST_F(Sun, SecondsMoveItAsMinutesDo) {
    const Moment moment = makeMoment(2024, 6, 21, 9, 30, 0);
    const SunPosition whole = sunAt(moment.after(60), 45, 10);
    const SunPosition half = sunAt(moment.after(30), 45, 10);
    const SunPosition start = sunAt(moment, 45, 10);
    EXPECT_NEAR(half.zenith, (start.zenith + whole.zenith) / 2, 1e-3);
    EXPECT_NEAR(half.azimuth, (start.azimuth + whole.azimuth) / 2, 1e-3);
    EXPECT_GT(std::abs(whole.azimuth - start.azimuth), 0.1);
}

TEST_F(Sun, PolesAndTheDateLineAreOrdinaryPlaces) {
    const Moment moment = makeMoment(2024, 6, 20, 21, 0, 0);
    EXPECT_NEAR(sunAt(moment, 90, 0).zenith, 90 - 23.44, 0.05);
    EXPECT_NEAR(sunAt(moment, -90, 0).zenith, 90 + 23.44, 0.05);
    const SunPosition west = sunAt(moment, 20, -180);
    const SunPosition east = sunAt(moment, 20, 180);
    EXPECT_NEAR(west.zenith, east.zenith, 1e-3);
    EXPECT_NEAR(west.azimuth, east.azimuth, 1e-3);
    // Overhead at the tropic: the zenith distance is small wherever the azimuth points.
    double least = 90;
    for (int minute = 0; minute < 60; ++minute) {
        least = std::min(least, sunAt(moment.after(minute * 60 - 12 * 3600), 23.44, 45).zenith);
    }
    EXPECT_LT(least, 0.3);
}

// ---- times ----

TEST_F(Sun, TimesAreThoseOfTheCalendar) {
    for (int year = 1899; year <= 2101; ++year) {
        for (const auto& [month, day] : {std::pair(1, 1), std::pair(2, 28), std::pair(3, 1), std::pair(12, 31)}) {
            const Moment moment = makeMoment(year, month, day, 23, 59, 0);
            ASSERT_NEAR(moment.days() - 0.5, daysSinceNoon2000(year, month, day, 23 + 59 / 60.0), 1e-9) << year;
            char text[32];
            std::snprintf(text, sizeof text, "%04d-%02d-%02dT23:59Z", year, month, day);
            ASSERT_EQ(textOf(moment), text);
            ASSERT_NEAR(parseMoment(text).days(), moment.days(), 1e-12);
        }
    }
    EXPECT_EQ(textOf(parseMoment("2024-02-29T10:40")), "2024-02-29T10:40Z");
    EXPECT_EQ(textOf(parseMoment("2024-02-29 10:40:05.25 UTC")), "2024-02-29T10:40:05.250Z");
    EXPECT_EQ(textOf(parseMoment("2024-03-01T01:10:30+02:30")), "2024-02-29T22:40:30Z");
    EXPECT_EQ(textOf(parseMoment("2023-12-31T20:00-0800")), "2024-01-01T04:00Z");
    for (const char* text :
         {"2023-02-29T10:00Z", "1900-02-29T10:00Z", "2024-13-01T10:00Z", "2024-00-01T10:00Z", "2024-06-31T10:00Z",
          "2024-06-21T24:00Z", "2024-06-21T10:60Z", "2024-06-21T10:00:60Z", "2024-06-21", "21.6.2024 10:00",
          "2024-6-21T10:00Z", "2024-06-21T10:00Zulu", "0024-06-21T10:00Z", ""}) {
        EXPECT_THROW(parseMoment(text), kscli::Failure) << text;
    }
}

TEST_F(Sun, ATableListsTimesAndStates) {
    const auto table = rows(
        {"--lat", "52", "--lon", "13.4", "--from", "2024-06-21T00:00Z", "--to", "2024-06-21T12:30Z", "--step", "360"});
    ASSERT_EQ(table.size(), 3U);
    EXPECT_EQ(table[0][0], "2024-06-21T00:00Z");
    EXPECT_EQ(table[2][0], "2024-06-21T12:00Z");
    EXPECT_EQ(table[0][kState], "below horizon");
    EXPECT_EQ(table[1][kState], "up");
    for (std::size_t i = 0; i < table.size(); ++i) {
        const Vector expected = almanacSun(daysSinceNoon2000(2024, 6, 21, 6.0 * static_cast<double>(i)), 52, 13.4);
        EXPECT_LT(degreesBetween(vectorOf(std::stod(table[i][kZenith]), std::stod(table[i][kAzimuth])), expected), 0.2);
    }
    EXPECT_EQ(rows({"--lat", "0", "--lon", "0", "--time", "2024-06-21T10:00Z", "--time", "2024-06-21T12:00+02:00"})
                  .at(1)[kZenith],
              rows({"--lat", "0", "--lon", "0", "--time", "2024-06-21T10:00Z"}).at(0)[kZenith]);
}

TEST_F(Sun, TimesComeFromATable) {
    write("times.csv", "# a remark\ntime,lat,lon\n2024-06-21T10:40Z,52,13.4\n2024-12-21T10:40Z,-33.5,151\n");
    const Result result = ks({"sun", "--table", "times.csv", "-o", "sun.csv"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err, HasSubstr("the sun is below the horizon in 1 of 2 rows"));
    const auto table = cellsOf(read("sun.csv"));
    ASSERT_EQ(table.size(), 3U);
    EXPECT_EQ(table[2][1], "-33.5");
    EXPECT_EQ(table[2][kState], "below horizon");
    EXPECT_EQ(rows({"--table", "times.csv", "--lat", "52", "--lon", "13.4"}).at(1)[1], "52");
    EXPECT_THAT(failure({"--table", "times.csv", "-o", "times.csv", "--force"}), HasSubstr("onto itself"));
    write("bad.csv", "time,lat,lon\n2024-06-21T10:40Z,52,13.4\n2024-06-31T10:40Z,52,13.4\n");
    EXPECT_THAT(failure({"--table", "bad.csv"}),
                HasSubstr("bad.csv: line 3: '2024-06-31T10:40Z': 2024-06 has no day 31"));
    write("bad.csv", "time,lat,lon\n2024-06-21T10:40Z,92,13.4\n");
    EXPECT_THAT(failure({"--table", "bad.csv"}), HasSubstr("line 2: 92, 13.4 is no place"));
    write("bad.csv", "when,lat,lon\n2024-06-21T10:40Z,9,13.4\n");
    EXPECT_THAT(failure({"--table", "bad.csv"}), HasSubstr("no column 'time'"));
    write("bad.csv", "time,x\n2024-06-21T10:40Z,9\n");
    EXPECT_THAT(failure({"--table", "bad.csv"}), HasSubstr("--lat and --lon"));
    EXPECT_THAT(failure({"--table", "none.csv"}), HasSubstr("no such file"));
}

TEST_F(Sun, UsageIsChecked) {
    const std::string time = "2024-06-21T10:40Z";
    EXPECT_THAT(failure({}), HasSubstr("no time is given"));
    EXPECT_THAT(failure({"--time", time}), HasSubstr("no place is given"));
    EXPECT_THAT(failure({"--time", time, "--lat", "5"}), HasSubstr("--lat and --lon together"));
    EXPECT_THAT(failure({"--time", time, "--lat", "95", "--lon", "0"}), HasSubstr("--lat 95 is no latitude"));
    EXPECT_THAT(failure({"--time", time, "--lat", "5", "--lon", "-181"}), HasSubstr("--lon -181 is no longitude"));
    EXPECT_THAT(failure({"--time", time, "--lat", "nan", "--lon", "0"}), HasSubstr("is no latitude"));
    EXPECT_THAT(failure({"--time", "noon", "--lat", "5", "--lon", "0"}), HasSubstr("'noon' is not a time"));
    EXPECT_THAT(failure({"--from", time, "--lat", "5", "--lon", "0"}), HasSubstr("--from and --to together"));
    EXPECT_THAT(failure({"--from", time, "--to", "2024-06-20T10:40Z", "--lat", "5", "--lon", "0"}),
                HasSubstr("is before"));
    EXPECT_THAT(failure({"--from", time, "--to", time, "--step", "0", "--lat", "5", "--lon", "0"}),
                HasSubstr("--step 0"));
    EXPECT_THAT(failure({"--from", time, "--to", time, "--time", time, "--lat", "5", "--lon", "0"}),
                HasSubstr("only one of"));
    EXPECT_THAT(failure({"--time", time, "--lat", "5", "--lon", "0", "-o", "angles.img"}), HasSubstr("ends in .csv"));
    EXPECT_THAT(failure({"none.img"}), HasSubstr("no such file"));
    EXPECT_TRUE(files().empty());
}

// ---- images ----

TEST_F(Sun, AnImageSaysWhenAndWhere) {
    Cube cube;
    cube.header =
        "acquisition time = 2024-06-21T10:40:00Z\n"
        "map info = {Geographic Lat/Lon, 1, 1, 13.0, 52.5, 0.01, 0.01, WGS-84, units=Degrees}\n";
    writeCube(path("cube.img"), cube);
    const Result result = ks({"sun", "cube.img"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err, HasSubstr("the centre of its map is used"));
    const auto table = cellsOf(result.out);
    EXPECT_EQ(table.at(1)[0], "2024-06-21T10:40Z");
    EXPECT_NEAR(std::stod(table.at(1)[1]), 52.485, 1e-6);
    EXPECT_NEAR(std::stod(table.at(1)[2]), 13.02, 1e-6);
    EXPECT_EQ(rows({"cube.img", "--lat", "10", "--lon", "20"}).at(0)[2], "20");
    EXPECT_EQ(rows({"cube.img", "--time", "2024-01-01T00:00Z"}).at(0)[0], "2024-01-01T00:00Z");
    const std::string header = read("cube.hdr");
    EXPECT_THAT(failure({"cube.img", "-o", "cube.hdr", "--force"}), HasSubstr("cube.hdr"));
    EXPECT_EQ(read("cube.hdr"), header);
}

TEST_F(Sun, TheSceneThatKnowsItsMissionNeedsNothingElse) {
    ASSERT_EQ(ks({"synth", "scene.img", "--size", "16x8", "--bands", "8"}).status, 0);
    const auto table = rows({"scene.img"});
    ASSERT_EQ(table.size(), 1U);
    EXPECT_EQ(table[0][1], "52");
    EXPECT_EQ(table[0][2], "15");
    const Vector expected = almanacSun(daysSinceNoon2000(2024, 6, 21, 10 + 40 / 60.0), 52, 15);
    EXPECT_LT(degreesBetween(vectorOf(std::stod(table[0][kZenith]), std::stod(table[0][kAzimuth])), expected), 0.2);
}

TEST_F(Sun, WhatAnImageDoesNotSayIsListed) {
    writeCube(path("cube.img"), {});
    EXPECT_THAT(failure({"cube.img"}), HasSubstr("missing: year, month, day, hour, minute); give --time"));
    EXPECT_THAT(failure({"cube.img", "--time", "2024-06-21T10:40Z"}),
                HasSubstr("missing: latitude, longitude, and a map); give --lat and --lon"));
    Cube dated;
    dated.header = "acquisition time = 2024-06-21\n";
    writeCube(path("dated.img"), dated);
    EXPECT_THAT(failure({"dated.img", "--lat", "1", "--lon", "1"}), HasSubstr("missing: hour, minute"));
    EXPECT_THAT(failure({"dated.img", "--time", "2024-06-21T10:40Z", "-o", "angles.img"}),
                HasSubstr("no place on a map"));
    EXPECT_EQ(files(), (std::vector<std::string>{"cube.hdr", "cube.img", "dated.hdr", "dated.img"}));
}

TEST_F(Sun, EveryPixelOfAMapHasItsAngles) {
    Cube cube;
    cube.width = 6;
    cube.height = 4;
    cube.header =
        "acquisition time = 2024-03-10T09:20:00Z\n"
        "map info = {Geographic Lat/Lon, 1, 1, 10.0, 60.0, 5, 20, WGS-84, units=Degrees}\n";
    writeCube(path("cube.img"), cube);
    const Result result = ks({"sun", "cube.img", "-o", "angles.img"});
    ASSERT_EQ(result.status, 0) << result.err;
    const std::vector<float> angles = floats("angles.img");
    ASSERT_EQ(angles.size(), 6U * 4U * 2U);
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 6; ++x) {
            const Vector expected =
                almanacSun(daysSinceNoon2000(2024, 3, 10, 9 + 20 / 60.0), 50.0 - 20 * y, 12.5 + 5 * x);
            const auto at = static_cast<std::size_t>((y * 6 + x) * 2);
            const Vector found = vectorOf(static_cast<double>(angles[at]), static_cast<double>(angles[at + 1]));
            EXPECT_LT(degreesBetween(found, expected), 0.2) << x << ", " << y;
        }
    }
    const Result info = ks({"info", "angles.img", "--json"});
    EXPECT_THAT(info.out, HasSubstr("ks sun cube.img --time 2024-03-10T09:20Z"));
    EXPECT_THAT(info.out, HasSubstr("2024"));
    EXPECT_THAT(read("angles.hdr"), HasSubstr("sun zenith (degrees)"));
    EXPECT_THAT(read("angles.hdr"), HasSubstr("map info"));
    EXPECT_THAT(failure({"cube.img", "-o", "angles.img"}), HasSubstr("--force"));
    EXPECT_THAT(failure({"cube.img", "-o", "other.img", "--lat", "1", "--lon", "1"}), HasSubstr("leave out --lat"));
    EXPECT_THAT(failure({"cube.img", "-o", "other.img", "--from", "2024-03-10T09:20Z", "--to", "2024-03-11T09:20Z"}),
                HasSubstr("one moment"));
    EXPECT_THAT(failure({"cube.img", "-o", "cube.img", "--force"}), HasSubstr("itself"));
}

TEST_F(Sun, NightIsToldOfAnImageToo) {
    Cube cube;
    cube.header = "map info = {Geographic Lat/Lon, 1, 1, 10.0, 60.0, 1, 1, WGS-84, units=Degrees}\n";
    writeCube(path("cube.img"), cube);
    const Result result = ks({"sun", "cube.img", "--time", "2024-03-10T00:00Z", "-o", "angles.tif"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err, HasSubstr("warning: the sun is below the horizon"));
}

// ---- published and measured positions ----

TEST_F(Sun, AgreesWithPublishedPositions) {
    const std::string file = sampleData("sun-position/spa_reference.csv");
    if (file.empty()) GTEST_SKIP() << "KSLIB_DATA does not name a folder with sun-position";
    struct Reference {
        double zenith, azimuth;
    };
    std::vector<Reference> references;
    std::string times = "time,lat,lon\n";
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);) {
        if (line.empty() || line[0] == '#') continue;
        const auto cells = cellsOf(line).at(0);
        const int year = std::stoi(cells.at(0));
        const double zenith = std::stod(cells.at(4));
        if (year < 1950 || year > 2050 || zenith >= 80) continue;
        times += cells[0] + "," + cells[1] + "," + cells[2] + "\n";
        references.push_back({zenith, std::stod(cells[3])});
    }
    ASSERT_GT(references.size(), 10U);
    write("times.csv", times);
    const auto table = rows({"--table", "times.csv"});
    ASSERT_EQ(table.size(), references.size());
    for (std::size_t i = 0; i < table.size(); ++i) {
        const double zenith = std::stod(table[i][kZenith]);
        EXPECT_NEAR(zenith, references[i].zenith, 0.3) << table[i][0];
        const Vector found = vectorOf(references[i].zenith, std::stod(table[i][kAzimuth]));
        EXPECT_LT(degreesBetween(found, vectorOf(references[i].zenith, references[i].azimuth)), 0.3) << table[i][0];
    }
}

TEST_F(Sun, AgreesWithTheGeometryOfAFlight) {
    const std::string folder = "pixels-prism-with-geometry/prm20231110t071521_";
    const std::string observation = sampleData(folder + "obs_two_px");
    const std::string location = sampleData(folder + "loc_two_px");
    if (observation.empty() || location.empty()) {
        GTEST_SKIP() << "KSLIB_DATA does not name a folder with pixels-prism-with-geometry";
    }
    std::array<std::array<float, 11>, 2> angles = {};
    std::array<std::array<float, 3>, 2> places = {};
    ASSERT_TRUE(std::ifstream(observation).read(reinterpret_cast<char*>(&angles), sizeof angles));
    ASSERT_TRUE(std::ifstream(location).read(reinterpret_cast<char*>(&places), sizeof places));
    for (std::size_t i = 0; i < 2; ++i) {
        const double hours = static_cast<double>(angles[i][9]);
        const Moment moment = makeMoment(2023, 11, 10, 0, 0, 0).after(hours * 3600);
        const auto table = rows(
            {"--time", textOf(moment), "--lat", std::to_string(places[i][1]), "--lon", std::to_string(places[i][0])});
        EXPECT_NEAR(std::stod(table.at(0)[kZenith]), static_cast<double>(angles[i][4]), 0.2);
        EXPECT_NEAR(std::stod(table.at(0)[kAzimuth]), static_cast<double>(angles[i][3]), 0.2);
    }
}

}  // namespace
}  // namespace clitest
