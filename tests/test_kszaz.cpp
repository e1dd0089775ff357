// Angles of the sun and of the view: published positions, the same sums in extended precision by way of a direction
// vector, and the special values on the axes.
#include <kslib/kszaz.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include "fixture.hpp"

using namespace kit;

namespace {

constexpr long double kPi = 3.14159265358979323846264338327950288L;
constexpr long double kDegree = kPi / 180.0L;

struct Angles {
    float zenith, azimuth;
    bool operator==(const Angles& other) const { return zenith == other.zenith && azimuth == other.azimuth; }
};
std::ostream& operator<<(std::ostream& out, const Angles& angles) {
    return out << "zenith " << angles.zenith << ", azimuth " << angles.azimuth;
}

/// The step of single precision at a value.
float stepAt(float value) { return std::nextafter(std::abs(value), 1e9F) - std::abs(value); }

// ---- the sun ----

struct Moment {
    int year, month, day, hour, minute;
};

Angles sun(const Moment& m, float latitude, float longitude, int unused = 0) {
    Angles angles{-1.0F, -1.0F};
    KSSolarZAz(m.year, m.month, m.day, m.hour, m.minute, unused, latitude, longitude, &angles.zenith, &angles.azimuth);
    return angles;
}

struct Direction {
    long double zenith, azimuth;  // degrees; the azimuth in 0..360
};

/// Days of the year before a month that is not in a leap year.
constexpr int kDaysBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};

/// The sun as a vector to the east, the north and the zenith.
Direction sunVector(const Moment& m, float latitude, float longitude) {
    const int day = kDaysBefore[m.month - 1] + m.day + (m.year % 4 == 0 ? 1 : 0);
    const long double g = 2.0L * kPi * day / 365.0L;
    const long double minutes = 229.1831180523293L * (0.000075L + 0.001868L * cosl(g) - 0.032077L * sinl(g) -
                                                      0.014615L * cosl(2 * g) - 0.040849L * sinl(2 * g));
    const long double declination = 0.006918L - 0.399912L * cosl(g) + 0.070257L * sinl(g) - 0.006758L * cosl(2 * g) +
                                    0.000907L * sinl(2 * g) - 0.002697L * cosl(3 * g) + 0.00148L * sinl(3 * g);
    const auto clock = static_cast<float>(m.hour + m.minute / 60.0);
    const long double hour =
        (static_cast<long double>(longitude) / 15.0L + static_cast<long double>(clock) + minutes / 60.0L - 12.0L) *
        kPi / 12.0L;
    const long double phi = static_cast<long double>(latitude) * kDegree;
    const long double east = -cosl(declination) * sinl(hour);
    const long double north = cosl(phi) * sinl(declination) - sinl(phi) * cosl(declination) * cosl(hour);
    const long double up = sinl(phi) * sinl(declination) + cosl(phi) * cosl(declination) * cosl(hour);
    const long double azimuth = atan2l(east, north) / kDegree;
    return {atan2l(hypotl(east, north), up) / kDegree, azimuth < 0 ? azimuth + 360.0L : azimuth};
}

struct KSSolarZAzTest : LibraryTest {
    void TearDown() override {
        EXPECT_EQ(host().calls, std::vector<Call>{});
        LibraryTest::TearDown();
    }
};

TEST_F(KSSolarZAzTest, ASummerDayAtLatitude45) {
    const Angles noon = sun({2001, 6, 21, 12, 0}, 45.0F, 0.0F);
    EXPECT_NEAR(noon.zenith, 21.55F, 0.005F);
    EXPECT_NEAR(noon.azimuth, 179.03F, 0.005F);
    EXPECT_NEAR(sun({2001, 6, 21, 9, 0}, 45.0F, 0.0F).azimuth, 104.9F, 0.05F);
    EXPECT_NEAR(sun({2001, 6, 21, 15, 0}, 45.0F, 0.0F).azimuth, 254.4F, 0.05F);
}

TEST_F(KSSolarZAzTest, AgreesWithTheDirectionVector) {
    int compared = 0;
    for (const int year : {1999, 2000, 2023}) {
        for (int month = 1; month <= 12; ++month) {
            for (int hour = 0; hour < 24; hour += 3) {
                for (const float latitude : {-89.0F, -66.5F, -36.84F, -12.0F, 0.0F, 12.5F, 45.0F, 78.2F, 89.5F}) {
                    for (const float longitude : {-179.0F, -77.25F, 0.0F, 15.0F, 174.74F}) {
                        const Moment moment = {year, month, (month * 7 + hour) % 28 + 1, hour, (hour * 17 + 13) % 60};
                        const Angles found = sun(moment, latitude, longitude);
                        const Direction expected = sunVector(moment, latitude, longitude);
                        const auto zenith = static_cast<float>(expected.zenith);
                        ASSERT_NEAR(found.zenith, zenith, stepAt(zenith)) << latitude << " " << longitude;
                        // 0 and 360 are one direction. Near the zenith the azimuth is as good as the arc sine of s.
                        float turn = std::abs(found.azimuth - static_cast<float>(expected.azimuth));
                        turn = std::min(turn, 360.0F - turn);
                        ASSERT_LE(turn, 4e-5F) << latitude << " " << longitude << ": " << found;
                        ASSERT_TRUE(found.azimuth >= 0.0F && found.azimuth <= 360.0F) << found;
                        ++compared;
                    }
                }
            }
        }
    }
    EXPECT_EQ(compared, 3 * 12 * 8 * 9 * 5);
}

TEST_F(KSSolarZAzTest, DaysCountFromTheFirstOfJanuary) {
    for (int month = 1; month <= 12; ++month) {
        for (const int day : {1, 2, 15, 28}) {
            const Moment byMonth = {2001, month, day, 10, 30};
            const Moment byDay = {2001, 1, kDaysBefore[month - 1] + day, 10, 30};
            EXPECT_EQ(sun(byMonth, 40.0F, -10.0F), sun(byDay, 40.0F, -10.0F)) << month << "/" << day;
        }
    }
}

TEST_F(KSSolarZAzTest, EveryFourthYearIsADayAheadAllYear) {
    for (const int year : {2000, 2004, 1900, 2100, 0, -4}) {
        for (int month = 1; month <= 12; ++month) {
            EXPECT_EQ(sun({year, month, 1, 8, 0}, 52.0F, 13.0F), sun({2001, month, 2, 8, 0}, 52.0F, 13.0F))
                << year << "/" << month;
        }
        EXPECT_EQ(sun({year, 1, 1, 8, 0}, 52.0F, 13.0F), sun({2001, 1, 2, 8, 0}, 52.0F, 13.0F));
        EXPECT_EQ(sun({year, 3, 1, 8, 0}, 52.0F, 13.0F), sun({2001, 1, 61, 8, 0}, 52.0F, 13.0F));
    }
    for (const int year : {1999, 2001, 2002, 2003, -1}) {
        EXPECT_EQ(sun({year, 1, 1, 8, 0}, 52.0F, 13.0F), sun({2001, 1, 1, 8, 0}, 52.0F, 13.0F)) << year;
    }
    EXPECT_FALSE(sun({2000, 1, 1, 8, 0}, 52.0F, 13.0F) == sun({2001, 1, 1, 8, 0}, 52.0F, 13.0F));
}

TEST_F(KSSolarZAzTest, OutOfTheOrdinaryDatesFollowTheFormula) {
    // 31 m - t / 2 - 33 with t = m - 2: 13 is 31 * 13 - 5 - 33 = 365 days, and 0 with t = -1 is -33.
    EXPECT_EQ(sun({2001, 13, 1, 8, 0}, 52.0F, 13.0F), sun({2001, 1, 366, 8, 0}, 52.0F, 13.0F));
    EXPECT_EQ(sun({2001, 0, 40, 8, 0}, 52.0F, 13.0F), sun({2001, 1, 7, 8, 0}, 52.0F, 13.0F));
    const int most = std::numeric_limits<int>::max();
    const int least = std::numeric_limits<int>::min();
    for (const int extreme : {most, least}) {
        const Angles angles = sun({extreme, extreme, extreme, extreme, extreme}, 52.0F, 13.0F);
        EXPECT_TRUE(angles.zenith >= 0.0F && angles.zenith <= 180.0F);
    }
}

TEST_F(KSSolarZAzTest, TimeIsUniversalAndLongitudeCountsEastward) {
    // A quarter turn of the globe is six hours; both are exact in single precision.
    for (const int hour : {6, 9, 12, 18}) {
        EXPECT_EQ(sun({2001, 6, 21, hour, 0}, 45.0F, 0.0F), sun({2001, 6, 21, hour - 6, 0}, 45.0F, 90.0F));
        EXPECT_EQ(sun({2001, 6, 21, hour, 0}, 45.0F, 0.0F), sun({2001, 6, 21, hour + 6, 0}, 45.0F, -90.0F));
    }
    EXPECT_EQ(sun({2001, 6, 21, 9, 30}, 45.0F, 0.0F), sun({2001, 6, 21, 8, 90}, 45.0F, 0.0F));
}

TEST_F(KSSolarZAzTest, TheClockTimeIsRoundedToSinglePrecision) {
    // Near the zenith single precision shows what the time loses: 11:41 is 0.0000003 hours off.
    const Moment moment = {2001, 6, 21, 11, 41};
    const float latitude = 23.45F;
    const float longitude = 7.0F;
    const auto rounded = static_cast<float>(sunVector(moment, latitude, longitude).zenith);
    const auto lost = static_cast<double>(static_cast<float>(11.0 + 41.0 / 60.0)) - (11.0 + 41.0 / 60.0);
    ASSERT_GT(std::abs(lost) * 15.0, 2.0 * static_cast<double>(stepAt(rounded))) << "too small to be seen";
    EXPECT_NEAR(sun(moment, latitude, longitude).zenith, rounded, stepAt(rounded));
}

TEST_F(KSSolarZAzTest, ASineBeyondOneIsOne) {
    // A sun so near the zenith that rounding carries the sine of its azimuth past one: due east, due west.
    const Moment moment = {2001, 3, 1, 0, 13};
    const float latitude = -0x1.dff26ep+2F;
    EXPECT_NEAR(sun(moment, latitude, 0x1.67dcb8p+7F).azimuth, 90.0F, 1e-5F);
    EXPECT_NEAR(sun(moment, latitude, 0x1.67dcbap+7F).azimuth, 270.0F, 1e-5F);
}

TEST_F(KSSolarZAzTest, TheSixthArgumentIsNotUsed) {
    const Angles angles = sun({2010, 9, 3, 4, 5}, -36.8F, 174.7F, 0);
    for (const int unused : {1, 59, -1, std::numeric_limits<int>::max()}) {
        EXPECT_EQ(sun({2010, 9, 3, 4, 5}, -36.8F, 174.7F, unused), angles);
    }
}

/// A row of the reference positions; the time is at the start of the line.
struct Position {
    Moment moment;
    float latitude, longitude, azimuth, zenith;
};

std::vector<Position> referencePositions(const std::string& name) {
    std::ifstream file(name);
    std::vector<Position> positions;
    for (std::string line; std::getline(file, line);) {
        Position p{};
        Moment& m = p.moment;
        if (line.empty() || line[0] == '#') continue;
        const int fields = std::sscanf(line.c_str(), "%d-%d-%dT%d:%d:00Z,%f,%f,%f,%f", &m.year, &m.month, &m.day,
                                       &m.hour, &m.minute, &p.latitude, &p.longitude, &p.azimuth, &p.zenith);
        EXPECT_EQ(fields, 9) << line;
        positions.push_back(p);
    }
    return positions;
}

TEST_F(KSSolarZAzTest, LiesNearTheReferencePositions) {
    const char* data = std::getenv("KSLIB_DATA");
    if (data == nullptr) GTEST_SKIP() << "KSLIB_DATA does not name a folder with sun-position";
    const std::vector<Position> positions = referencePositions(std::string(data) + "/sun-position/spa_reference.csv");
    ASSERT_EQ(positions.size(), 256U);
    int compared = 0;
    for (const Position& p : positions) {
        // The series is one of this age; refraction, which the reference includes, is large near the horizon.
        if (p.moment.year < 1950 || p.moment.year > 2050 || p.zenith >= 80.0F) continue;
        const Angles found = sun(p.moment, p.latitude, p.longitude);
        EXPECT_NEAR(found.zenith, p.zenith, 0.3F) << p.moment.year << "/" << p.moment.month << " " << p.moment.hour;
        float turn = std::abs(found.azimuth - p.azimuth);
        turn = std::min(turn, 360.0F - turn);
        EXPECT_LE(turn * std::sin(p.zenith * static_cast<float>(kDegree)), 0.3F) << found;
        ++compared;
    }
    EXPECT_EQ(compared, 24) << "days of 2010 at two sites";
}

// ---- the view ----

struct View {
    float tilt = 0.0F;
    float heading = 0.0F;
    int width = 101;
    float right = 45.0F;
    float left = 45.0F;
    float foreAft = 0.0F;

    Angles to(int column, int row, int unused = 0, int unused2 = 0) const {
        Angles angles{-1.0F, -1.0F};
        KSViewZAz(column, row, tilt, heading, width, unused, right, left, foreAft, unused2, &angles.zenith,
                  &angles.azimuth);
        return angles;
    }
};

// Half of 101 pixels to each side of a right angle: the height is 50.5 pixels, the nadir column 50, the nadir row 0.
constexpr int kNadir = 50;

struct KSViewZAzTest : KSSolarZAzTest {};

TEST_F(KSViewZAzTest, TheNadirPixelIsLookedAtFromAbove) {
    View view;
    for (const float heading : {0.0F, 37.5F, -90.0F, 359.0F}) {
        view.heading = heading;
        for (const float tilt : {0.0F, 12.0F, -30.0F}) {
            view.tilt = tilt;
            EXPECT_EQ(view.to(kNadir, 0), (Angles{0.0F, -heading}));
        }
    }
}

TEST_F(KSViewZAzTest, TheNadirPositionIsTruncatedTowardZero) {
    View view;
    view.foreAft = 10.0F;  // 0.17633 * 50.5 = 8.90
    EXPECT_EQ(view.to(kNadir, 8), (Angles{0.0F, 0.0F}));
    view.foreAft = -10.0F;
    EXPECT_EQ(view.to(kNadir, -8), (Angles{0.0F, 0.0F}));
    view.foreAft = 0.0F;
    view.left = -20.0F;  // a sensor that looks to one side: -0.36397 * 101 / (1 - 0.36397) = -57.80
    EXPECT_EQ(view.to(-57, 0), (Angles{0.0F, 0.0F}));
    EXPECT_NE(view.to(-58, 0).zenith, 0.0F);
}

TEST_F(KSViewZAzTest, SpecialAzimuthsOnTheAxes) {
    const View view;
    EXPECT_EQ(view.to(kNadir, 10).azimuth, 90.0F) << "u = 0, v > 0";
    EXPECT_EQ(view.to(kNadir, -10).azimuth, 270.0F) << "u = 0, v < 0";
    EXPECT_EQ(view.to(kNadir + 10, 0).azimuth, 90.0F) << "u > 0, v = 0";
    EXPECT_EQ(view.to(kNadir - 10, 0).azimuth, 540.0F) << "u < 0, v = 0";
}

TEST_F(KSViewZAzTest, TheHeadingIsTakenFromTheSpecialAzimuths) {
    // Three turns and 225 degrees: sine and cosine are the same double, so that diagonals fall on the axes.
    View view;
    view.heading = 1305.0F;
    const double radians = 1305.0 * 0.017453292519943295;
    if (std::sin(radians) != std::cos(radians)) GTEST_SKIP() << "another C library's sine";
    EXPECT_EQ(view.to(kNadir - 10, -10).azimuth, 90.0F - 1305.0F) << "u = 0, v > 0";
    EXPECT_EQ(view.to(kNadir + 10, 10).azimuth, 270.0F - 1305.0F) << "u = 0, v < 0";
    EXPECT_EQ(view.to(kNadir - 10, 10).azimuth, 90.0F - 1305.0F) << "u > 0, v = 0";
    EXPECT_EQ(view.to(kNadir + 10, -10).azimuth, 540.0F - 1305.0F) << "u < 0, v = 0";
}

TEST_F(KSViewZAzTest, EachQuadrantHasItsTurn) {
    const View view;
    EXPECT_FLOAT_EQ(view.to(kNadir + 10, 10).azimuth, 45.0F);
    EXPECT_FLOAT_EQ(view.to(kNadir - 10, -10).azimuth, 225.0F);
    EXPECT_FLOAT_EQ(view.to(kNadir + 10, -10).azimuth, 315.0F);
    EXPECT_FLOAT_EQ(view.to(kNadir - 10, 10).azimuth, 135.0F);
    EXPECT_NEAR(view.to(kNadir + 10, 20).azimuth, 26.565F, 0.0005F);
    EXPECT_NEAR(view.to(kNadir - 20, -10).azimuth, 243.435F, 0.0005F);
    EXPECT_NEAR(view.to(kNadir + 20, -10).azimuth, 296.565F, 0.0005F);
    EXPECT_NEAR(view.to(kNadir - 10, 20).azimuth, 153.435F, 0.0005F);
}

TEST_F(KSViewZAzTest, TheZenithIsThatOfTheGroundDistance) {
    const View view;
    EXPECT_NEAR(view.to(kNadir + 50, 0).zenith, 44.7149F, 0.0001F);   // atan(50 / 50.5)
    EXPECT_NEAR(view.to(kNadir, -101).zenith, 63.4349F, 0.0001F);     // atan(2)
    EXPECT_NEAR(view.to(kNadir + 30, 40).zenith, 44.7149F, 0.0001F);  // 3, 4, 5
    View tilted = view;
    tilted.tilt = 60.0F;
    EXPECT_NEAR(tilted.to(kNadir + 50, 0).zenith, 26.3377F, 0.0001F);  // atan(25 / 50.5)
    EXPECT_NEAR(tilted.to(kNadir, 50).zenith, 44.7149F, 0.0001F) << "rows are not shortened";
}

/// The same by plain steps in double precision.
Angles plainView(const View& view, int column, int row) {
    const double degree = 0.017453292519943295;
    const auto radians = [degree](float angle) { return static_cast<double>(angle) * degree; };
    const double height = view.width / (std::tan(radians(view.right)) + std::tan(radians(view.left)));
    const double dx = column - std::trunc(std::tan(radians(view.left)) * height);
    const double dy = row - std::trunc(std::tan(radians(view.foreAft)) * height);
    const double h = radians(view.heading);
    const double t = -radians(view.tilt);
    const double u = std::cos(t) * std::cos(h) * dx - std::sin(h) * dy;
    const double v = std::sin(h) * std::cos(t) * dx + std::cos(h) * dy;
    const double zenith = std::atan(std::pow(u * u + v * v, 0.5) / height);
    double psi = 0.0;
    if (v != 0.0 && u != 0.0) {
        psi = std::atan(u / v);
        if (u < 0.0 && v < 0.0) psi += 3.141592653589793;
        if (psi < 0.0 && v < 0.0) psi += 2.0 * 3.141592653589793;
        if (psi < 0.0 && v >= 0.0) psi += 3.141592653589793;
    } else if (v != 0.0) {
        psi = v < 0.0 ? 4.71238898038469 : 3.141592653589793 / 2.0;
    } else if (u != 0.0) {
        psi = u < 0.0 ? 9.42477796076938 : 3.141592653589793 / 2.0;
    }
    const double perRadian = 180.0 / 3.141592653589793;
    return {static_cast<float>(zenith * perRadian),
            static_cast<float>(psi * perRadian - static_cast<double>(view.heading))};
}

TEST_F(KSViewZAzTest, FollowsThePlainFormula) {
    for (const float heading : {0.0F, 30.0F, 135.5F, -90.0F, 270.0F, 359.75F, 720.0F}) {
        for (const float tilt : {0.0F, 10.0F, -25.0F}) {
            for (const float foreAft : {0.0F, 20.0F, -7.5F}) {
                const View view = {tilt, heading, 640, 31.0F, 17.25F, foreAft};
                for (int column = -3; column < 645; column += 27) {
                    for (int row = -400; row <= 400; row += 80) {
                        const Angles found = view.to(column, row);
                        const Angles expected = plainView(view, column, row);
                        ASSERT_NEAR(found.zenith, expected.zenith, stepAt(expected.zenith));
                        ASSERT_NEAR(found.azimuth, expected.azimuth, stepAt(expected.azimuth));
                    }
                }
            }
        }
    }
}

TEST_F(KSViewZAzTest, ANegativeHeightGivesANegativeZenith) {
    View view;
    view.right = view.left = -45.0F;
    const Angles found = view.to(100, 0);
    EXPECT_LT(found.zenith, 0.0F);
    EXPECT_EQ(found, plainView(view, 100, 0));
}

TEST_F(KSViewZAzTest, NoFieldOfViewIsNoTrouble) {
    View view;
    view.right = 10.0F;
    view.left = -10.0F;  // an infinite height
    for (const int pixel : {0, 100, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_EQ(view.to(pixel, pixel).zenith, 0.0F);
    }
    view.right = view.left = std::numeric_limits<float>::quiet_NaN();
    EXPECT_TRUE(std::isnan(view.to(1, 1).zenith));
}

TEST_F(KSViewZAzTest, TwoArgumentsAreNotUsed) {
    View view;
    view.heading = 12.0F;
    const Angles angles = view.to(3, 4);
    for (const int unused : {1, -1, 4000}) {
        EXPECT_EQ(view.to(3, 4, unused), angles);
        EXPECT_EQ(view.to(3, 4, 0, unused), angles);
    }
}

}  // namespace
