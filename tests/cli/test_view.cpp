// ks view: compared with lines of sight that are turned by rotations about the axes of an aircraft and followed to the
// ground.
#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "geometry/viewgeometry.hpp"
#include "speckit.hpp"

namespace clitest {
namespace {

using kscli::View;
using kscli::ViewGeometry;
using kscli::viewOf;
using testing::HasSubstr;

constexpr double kDegree = 3.14159265358979323846 / 180;
using Vector = std::array<double, 3>;  // north, east, down; of the aircraft ahead, right, down

/// Rodrigues' rotation of v about a unit vector, by the right hand.
Vector turned(const Vector& v, const Vector& axis, double degrees) {
    const double c = std::cos(degrees * kDegree);
    const double s = std::sin(degrees * kDegree);
    const double along = v[0] * axis[0] + v[1] * axis[1] + v[2] * axis[2];
    const Vector across = {axis[1] * v[2] - axis[2] * v[1], axis[2] * v[0] - axis[0] * v[2],
                           axis[0] * v[1] - axis[1] * v[0]};
    Vector result{};
    for (std::size_t i = 0; i < 3; ++i) result[i] = v[i] * c + across[i] * s + axis[i] * along * (1 - c);
    return result;
}

/// Where on the ground the line of sight of a sensor above flat ground goes, from the direction in the aircraft.
View expected(const Vector& sight, double heading, double pitch, double roll) {
    constexpr Vector kAhead = {1, 0, 0};
    constexpr Vector kRight = {0, 1, 0};
    constexpr Vector kDown = {0, 0, 1};
    Vector v = turned(sight, kAhead, -roll);  // by the right hand, the right wing goes down and the sensor looks left
    v = turned(v, kRight, pitch);
    v = turned(v, kDown, heading);
    const double zenith = std::atan2(std::hypot(v[0], v[1]), v[2]) / kDegree;
    const double azimuth = std::atan2(-v[1], -v[0]) / kDegree;
    return {zenith, azimuth < 0 ? azimuth + 360 : azimuth};
}

double turnBetween(double a, double b) {
    const double turn = std::fmod(std::abs(a - b), 360);
    return std::min(turn, 360 - turn);
}

void expectView(const View& found, const View& wanted, const std::string& where) {
    EXPECT_NEAR(found.zenith, wanted.zenith, 2e-5) << where;
    EXPECT_LT(turnBetween(found.azimuth, wanted.azimuth) * std::sin(wanted.zenith * kDegree), 2e-5) << where;
}

class ViewAngles : public CliTest {
protected:
    std::string failure(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "view");
        const Result result = ks(arguments);
        EXPECT_EQ(result.status, 1) << result.out;
        EXPECT_EQ(result.out, "");
        return result.err;
    }
};

// ---- geometry ----

TEST_F(ViewAngles, OfAScannerFollowTheLineOfSight) {
    for (const double heading : {0.0, 12.5, 90.0, 200.0, -135.0, 359.0}) {
        for (const double pitch : {0.0, 20.0, -35.0}) {
            for (const double roll : {0.0, 7.0, -15.0}) {
                ViewGeometry g;
                g.width = 9;
                g.left = 25;
                g.right = 18;
                g.heading = heading;
                g.pitch = pitch;
                g.roll = roll;
                for (int column = 0; column < g.width; ++column) {
                    const double part = (column + 0.5) / 9;
                    const double x = -std::tan(25 * kDegree) + part * (std::tan(25 * kDegree) + std::tan(18 * kDegree));
                    expectView(viewOf(g, column, 0), expected({0, x, 1}, heading, pitch, roll),
                               fmt::format("column {}, heading {}, pitch {}, roll {}", column, heading, pitch, roll));
                }
            }
        }
    }
}

TEST_F(ViewAngles, OfATurningMirrorAreEvenSteps) {
    ViewGeometry g;
    g.width = 8;
    g.left = 16;
    g.right = 16;
    g.heading = 30;
    g.evenAngles = true;
    for (int column = 0; column < g.width; ++column) {
        const double angle = -14 + 4 * column;
        const View view = viewOf(g, column, 0);
        EXPECT_NEAR(view.zenith, std::abs(angle), 1e-5);
        EXPECT_NEAR(view.azimuth, angle < 0 ? 120 : 300, 1e-5) << "the sensor is to the right of what it sees at left";
    }
}

TEST_F(ViewAngles, OfAFrameCameraHaveLinesOfTheirOwn) {
    ViewGeometry g;
    g.width = 5;
    g.height = 4;
    g.left = g.right = 20;
    g.frame = true;
    g.fore = 12;
    g.aft = 30;
    g.heading = 77;
    g.pitch = 5;
    g.roll = -3;
    for (int line = 0; line < g.height; ++line) {
        for (int column = 0; column < g.width; ++column) {
            const double x = ((column + 0.5) / 5 * 2 - 1) * std::tan(20 * kDegree);
            const double down = (line + 0.5) / 4;
            const double ahead = (1 - down) * std::tan(12 * kDegree) - down * std::tan(30 * kDegree);
            expectView(viewOf(g, column, line), expected({ahead, x, 1}, 77, 5, -3),
                       fmt::format("column {}, line {}", column, line));
        }
    }
}

TEST_F(ViewAngles, OfAllQuartersAndAxesAreRight) {
    // A frame of three by three: straight down in the middle, the others around it.
    ViewGeometry g;
    g.width = g.height = 3;
    g.left = g.right = g.fore = g.aft = 45;
    g.frame = true;
    const double side = std::atan(2.0 / 3) / kDegree;
    const double corner = std::atan(2.0 / 3 * std::sqrt(2)) / kDegree;
    // Flying north the upper left pixel lies in the northwest, and the sensor southeast of it.
    const double azimuths[3][3] = {{135, 180, 225}, {90, 0, 270}, {45, 0, 315}};
    for (int line = 0; line < 3; ++line) {
        for (int column = 0; column < 3; ++column) {
            const View view = viewOf(g, column, line);
            if (line == 1 && column == 1) {
                EXPECT_EQ(view.zenith, 0);
                EXPECT_TRUE(std::isnan(view.azimuth));
                continue;
            }
            EXPECT_NEAR(view.zenith, line == 1 || column == 1 ? side : corner, 1e-4);
            EXPECT_LT(turnBetween(view.azimuth, azimuths[line][column]), 1e-4) << column << ", " << line;
        }
    }
}

TEST_F(ViewAngles, AboveTheHorizonThereAreNone) {
    ViewGeometry g;
    g.width = 4;
    g.left = g.right = 40;
    g.roll = 60;
    EXPECT_FALSE(std::isnan(viewOf(g, 0, 0).zenith));
    EXPECT_TRUE(std::isnan(viewOf(g, 3, 0).zenith));
    EXPECT_TRUE(std::isnan(viewOf(g, 3, 0).azimuth));
    g.left = g.right = 89.9;
    g.roll = 0;
    EXPECT_NEAR(viewOf(g, 3, 0).zenith, std::atan(0.75 * std::tan(89.9 * kDegree)) / kDegree, 1e-4);
}

// ---- the command ----

TEST_F(ViewAngles, AreATableOfColumns) {
    writeCube(path("cube.img"), {});
    const Result result =
        ks({"view", "cube.img", "--fov", "10,14", "--heading", "350", "--pitch", "0", "-o", "view.csv"});
    ASSERT_EQ(result.status, 0) << result.err;
    const auto table = cellsOf(read("view.csv"));
    ASSERT_EQ(table.size(), 5U);
    EXPECT_EQ(table[0], (std::vector<std::string>{"column", "zenith_deg", "azimuth_deg", "look_azimuth_deg"}));
    for (std::size_t i = 0; i < 4; ++i) {
        const double part = (static_cast<double>(i) + 0.5) / 4;
        const double x = -(1 - part) * std::tan(10 * kDegree) + part * std::tan(14 * kDegree);
        const View view = expected({0, x, 1}, 350, 0, 0);
        EXPECT_EQ(table[i + 1][0], std::to_string(i));
        EXPECT_NEAR(std::stod(table[i + 1][1]), view.zenith, 6e-4);
        EXPECT_NEAR(std::stod(table[i + 1][2]), view.azimuth, 6e-4);
        EXPECT_NEAR(turnBetween(std::stod(table[i + 1][2]), std::stod(table[i + 1][3])), 180, 1e-9);
    }
    EXPECT_THAT(failure({"cube.img", "--fov", "10,14", "--heading", "0", "-o", "view.csv"}), HasSubstr("--force"));
}

TEST_F(ViewAngles, ComeFromTheMission) {
    ASSERT_EQ(ks({"synth", "scene.img", "--size", "16x8", "--bands", "8"}).status, 0);
    const Result result = ks({"view", "scene.img"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err, HasSubstr("no fore-aft tilt; 0 degrees is used"));
    EXPECT_THAT(result.err, HasSubstr("lies on a map"));
    const auto table = cellsOf(result.out);
    ASSERT_EQ(table.size(), 17U);
    // Fields of view of 17 degrees on both sides, heading 12.5: the ends look to 282.5 and 102.5.
    const double outer = std::atan(15.0 / 16 * std::tan(17 * kDegree)) / kDegree;
    EXPECT_NEAR(std::stod(table[1][1]), outer, 6e-4);
    EXPECT_NEAR(std::stod(table[16][1]), outer, 6e-4);
    EXPECT_EQ(table[1][3], "282.500");
    EXPECT_EQ(table[16][3], "102.500");
}

TEST_F(ViewAngles, AreAnImageOfTwoBands) {
    ASSERT_EQ(ks({"synth", "scene.img", "--size", "16x8", "--bands", "8"}).status, 0);
    const Result result = ks({"view", "scene.img", "-o", "view.img", "--roll", "3", "--pitch", "-4"});
    ASSERT_EQ(result.status, 0) << result.err;
    const std::vector<float> angles = floats("view.img");
    ASSERT_EQ(angles.size(), 16U * 8U * 2U);
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 16; ++x) {
            const double across = ((x + 0.5) / 16 * 2 - 1) * std::tan(17 * kDegree);
            const View view = expected({0, across, 1}, 12.5, -4, 3);
            const auto at = static_cast<std::size_t>((y * 16 + x) * 2);
            ASSERT_NEAR(static_cast<double>(angles[at]), view.zenith, 5e-5);
            ASSERT_LT(turnBetween(static_cast<double>(angles[at + 1]), view.azimuth), 1e-3);
        }
    }
    EXPECT_THAT(read("view.hdr"), HasSubstr("view zenith (degrees)"));
    EXPECT_THAT(ks({"info", "view.img"}).out, HasSubstr("ks view scene.img --fov 17,17 --heading 12.5 --pitch -4"));
    EXPECT_THAT(failure({"scene.img", "-o", "scene.img", "--force"}), HasSubstr("itself"));
}

TEST_F(ViewAngles, OfAFrameAreATableOfPixels) {
    writeCube(path("cube.img"), {});
    const Result result =
        ks({"view", "cube.img", "--fov", "10,10", "--fov-along", "8,8", "--heading", "0", "--pitch", "0"});
    ASSERT_EQ(result.status, 0) << result.err;
    const auto table = cellsOf(result.out);
    ASSERT_EQ(table.size(), 1U + 4 * 3);
    EXPECT_EQ(table[0][1], "line");
    EXPECT_NEAR(std::stod(table[5][2]), std::atan(0.75 * std::tan(10 * kDegree)) / kDegree, 6e-4) << "middle line";
    EXPECT_LT(std::stod(table[1][3]), 180) << "the sensor is behind what lies ahead and at left";
    EXPECT_GT(std::stod(table[1][3]), 90);
}

TEST_F(ViewAngles, WhatIsMissingIsListed) {
    writeCube(path("cube.img"), {});
    const std::string all = failure({"cube.img"});
    EXPECT_THAT(all, HasSubstr("--fov"));
    EXPECT_THAT(all, HasSubstr("--heading"));
    EXPECT_FALSE(contains(failure({"cube.img", "--fov", "10,10"}), "--fov)"));
    EXPECT_THAT(failure({"cube.img", "--fov", "10,10"}), HasSubstr("the heading (--heading)"));
    EXPECT_THAT(failure({"cube.img", "--fov", "0,0", "--heading", "0"}), HasSubstr("0 degrees wide"));
    EXPECT_THAT(failure({"cube.img", "--fov", "90,10", "--heading", "0"}), HasSubstr("90 is no half field"));
    EXPECT_THAT(failure({"cube.img", "--fov", "nan,10", "--heading", "0"}), HasSubstr("no half field"));
    EXPECT_THAT(failure({"cube.img", "--fov", "10", "--heading", "0"}), HasSubstr("--fov"));
    EXPECT_THAT(failure({"cube.img", "--fov", "10,10", "--heading", "400"}), HasSubstr("--heading 400"));
    EXPECT_THAT(failure({"cube.img", "--fov", "10,10", "--heading", "0", "--roll", "90"}), HasSubstr("--roll 90"));
    EXPECT_THAT(failure({"cube.img", "--fov", "10,10", "--heading", "0", "--pitch", "-90"}), HasSubstr("--pitch -90"));
    EXPECT_THAT(failure({"none.img"}), HasSubstr("no such file"));
    EXPECT_EQ(files(), (std::vector<std::string>{"cube.hdr", "cube.img"}));
}

}  // namespace
}  // namespace clitest
