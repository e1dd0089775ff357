// ks lut import --radiance and ks lut interp: radiances computed here from the quantities of a netCDF file, and
// multilinear interpolation written out here on the numbers of an export.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <sstream>

#include <nlohmann/json.hpp>

#include "clikit.hpp"
#include "netcdfkit.hpp"

namespace clitest {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kPi = 3.14159265358979323846;

/// A table as an export has it: values of the last axis side by side.
struct Grid {
    std::vector<std::vector<double>> axes;
    std::vector<double> values;

    /// Multilinear in all axes but the last, beyond the edges too.
    double at(const std::vector<double>& point, std::size_t last, std::size_t d = 0, std::size_t row = 0) const {
        const std::vector<double>& axis = axes[d];
        if (d + 1 == axes.size()) return values[row * axis.size() + last];
        if (axis.size() == 1) return at(point, last, d + 1, row);
        std::size_t cell = 0;
        while (cell + 2 < axis.size() && point[d] >= axis[cell + 1]) ++cell;
        const double share = (point[d] - axis[cell]) / (axis[cell + 1] - axis[cell]);
        double sum = 0;
        if (share != 1) sum += (1 - share) * at(point, last, d + 1, row * axis.size() + cell);
        if (share != 0) sum += share * at(point, last, d + 1, row * axis.size() + cell + 1);
        return sum;
    }
};

struct Table {
    std::vector<std::string> header;
    std::vector<std::vector<double>> rows;
};

Table parseCsv(const std::string& text) {
    Table table;
    for (const std::vector<std::string>& cells : cellsOf(text)) {
        if (cells[0][0] == '#') continue;
        if (table.header.empty()) {
            table.header = cells;
        } else {
            table.rows.emplace_back();
            for (const std::string& cell : cells) table.rows.back().push_back(std::strtod(cell.c_str(), nullptr));
        }
    }
    return table;
}

class RadianceTable : public CliTest {
protected:
    Result lut(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "lut");
        return ks(arguments);
    }
    nlohmann::json info(const std::string& file) const {
        return nlohmann::json::parse(lut({"info", file, "--json"}).out, nullptr, false)["tables"][0];
    }
    Result import(const std::string& source, const std::vector<std::string>& options = {}) const {
        std::vector<std::string> arguments = {"import", "--radiance", source, "t.kslut", "--force"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return lut(arguments);
    }
    /// One of the two values of the table t.kslut.
    Grid exported(const std::string& variable) const {
        EXPECT_EQ(lut({"export", "t.kslut", "export.nc", "--force"}).status, 0);
        const NcVariable values = readNetcdf(path("export.nc"), variable);
        Grid grid;
        grid.values = values.values;
        for (const std::string& name : values.dimensions) {
            grid.axes.push_back(readNetcdf(path("export.nc"), name).values);
        }
        return grid;
    }

    // Wavelength, aerosol, water, view zenith from straight up: the nadir is 180.
    static constexpr std::size_t kW = 3, kA = 2, kH = 3, kZ = 2;
    static std::size_t place(std::size_t w, std::size_t a, std::size_t h, std::size_t z) {
        return ((w * kA + a) * kH + h) * kZ + z;
    }
    static NcVariable quantity(const std::string& name, double base, double perCell) {
        NcVariable variable = {name, {"wl", "AOT550", "H2OSTR", "observer_zenith"}, {}, false, {}, {}};
        for (std::size_t i = 0; i < kW * kA * kH * kZ; ++i) {
            variable.values.push_back(base + perCell * static_cast<double>(i * i % 37));
        }
        return variable;
    }
    static NcFile atmosphere(const std::string& mode) {
        NcFile file;
        file.dimensions = {{"wl", kW}, {"AOT550", kA}, {"H2OSTR", kH}, {"observer_zenith", kZ}};
        file.variables = {{"wl", {"wl"}, {400, 550, 1000}, false, {}, {}},
                          {"AOT550", {"AOT550"}, {0.125, 0.5}, false, {}, {}},
                          {"H2OSTR", {"H2OSTR"}, {1, 1.5, 3}, false, {}, {}},
                          {"observer_zenith", {"observer_zenith"}, {180, 160}, false, {}, {}},
                          {"solzen", {}, {60}, false, {}, {}},
                          {"solar_irr", {"wl"}, {120, 190, 70}, false, {}, {}},
                          quantity("rhoatm", mode == "rdn" ? 2 : 0.05, mode == "rdn" ? 0.07 : 0.001),
                          quantity("sphalb", 0.05, 0.007)};
        file.texts = {{"RT_mode", mode}};
        return file;
    }
    static NcFile products() {
        NcFile file = atmosphere("rdn");
        file.variables.push_back(quantity("dir-dir", 20, 0.3));
        file.variables.push_back(quantity("dif-dir", 7, 0.2));
        file.variables.push_back(quantity("dir-dif", 4, 0.11));
        file.variables.push_back(quantity("dif-dif", 2, 0.05));
        return file;
    }
    static NcFile transmittances() {
        NcFile file = atmosphere("transm");
        file.variables.push_back(quantity("transm_down_dir", 0.6, 0.002));
        file.variables.push_back(quantity("transm_down_dif", 0.2, 0.003));
        file.variables.push_back(quantity("transm_up_dir", 0.7, 0.0015));
        file.variables.push_back(quantity("transm_up_dif", 0.1, 0.002));
        return file;
    }
    static const std::vector<double>& valuesOf(const NcFile& file, const std::string& name) {
        return std::find_if(file.variables.begin(), file.variables.end(),
                            [&](const NcVariable& variable) { return variable.name == name; })
            ->values;
    }
};

/// In the table: reflectance, range (from the thickest aerosol on), water, view zenith (from nadir on), wavelength.
std::size_t inTable(std::size_t r, std::size_t a, std::size_t h, std::size_t z, std::size_t w) {
    return (((r * 2 + (1 - a)) * 3 + h) * 2 + z) * 3 + w;
}

TEST_F(RadianceTable, ComesOfProducts) {
    const NcFile file = products();
    writeNetcdf(path("in.nc"), file);
    const Result result = import("in.nc", {"--altitude", "4", "--elevation", "0.5"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.err,
                         "Relative view-solar azimuth is not known and taken for 0; tell it with "
                         "--relative-azimuth"))
        << result.err;
    const auto table = info("t.kslut");
    EXPECT_EQ(table["radiance_table"], true);
    EXPECT_EQ(table["units"], "uW cm-2 nm-1 sr-1");
    const auto& axes = table["axes"];
    EXPECT_EQ(axes[0]["coordinates"], nlohmann::json({4.0}));
    EXPECT_EQ(axes[0]["assumed"], false);
    EXPECT_EQ(axes[1]["coordinates"], nlohmann::json({60.0}));
    EXPECT_EQ(axes[2]["coordinates"], nlohmann::json({0.05, 0.5}));
    EXPECT_NEAR(axes[3]["coordinates"][0].get<double>(), std::log(50.0) / (0.5 / 1.2 + 0.01159), 1e-5);
    EXPECT_NEAR(axes[3]["coordinates"][1].get<double>(), std::log(50.0) / (0.125 / 1.2 + 0.01159), 1e-5);
    EXPECT_EQ(axes[4]["coordinates"], nlohmann::json({1.0, 1.5, 3.0}));
    EXPECT_EQ(axes[5]["coordinates"], nlohmann::json({0.5}));
    EXPECT_EQ(axes[6]["assumed"], true);
    EXPECT_EQ(axes[7]["coordinates"], nlohmann::json({0.0, 20.0}));
    EXPECT_EQ(axes[8]["coordinates"], nlohmann::json({400.0, 550.0, 1000.0}));

    const std::vector<double> first = exported("ground_radiance").values;
    const std::vector<double> second = exported("path_radiance").values;
    const double reflectances[] = {0.05, 0.5};
    ASSERT_EQ(first.size(), 72U);
    for (std::size_t r = 0; r < 2; ++r) {
        for (std::size_t i = 0; i < kW * kA * kH * kZ; ++i) {
            const std::size_t z = i % kZ, h = i / kZ % kH, a = i / kZ / kH % kA, w = i / kZ / kH / kA;
            const double seen = reflectances[r] / (1 - valuesOf(file, "sphalb")[i] * reflectances[r]);
            const double ground = (valuesOf(file, "dir-dir")[i] + valuesOf(file, "dif-dir")[i]) * seen;
            const double scattered = (valuesOf(file, "dir-dif")[i] + valuesOf(file, "dif-dif")[i]) * seen;
            EXPECT_FLOAT_EQ(static_cast<float>(first[inTable(r, a, h, z, w)]), static_cast<float>(ground)) << i;
            EXPECT_FLOAT_EQ(static_cast<float>(second[inTable(r, a, h, z, w)]),
                            static_cast<float>(valuesOf(file, "rhoatm")[i] + scattered))
                << i;
        }
    }
}

TEST_F(RadianceTable, ComesOfTransmittances) {
    const NcFile file = transmittances();
    writeNetcdf(path("in.nc"), file);
    ASSERT_EQ(import("in.nc", {"--reflectance", "0.1,0.3,0.6"}).status, 0);
    const std::vector<double> first = exported("ground_radiance").values;
    const std::vector<double> second = exported("path_radiance").values;
    const double reflectances[] = {0.1, 0.3, 0.6};
    ASSERT_EQ(first.size(), 108U);
    for (std::size_t r = 0; r < 3; ++r) {
        for (std::size_t i = 0; i < kW * kA * kH * kZ; ++i) {
            const std::size_t z = i % kZ, h = i / kZ % kH, a = i / kZ / kH % kA, w = i / kZ / kH / kA;
            const double sunlight = valuesOf(file, "solar_irr")[w] * 0.5 / kPi;  // the sun stands at 60 degrees
            const double down = valuesOf(file, "transm_down_dir")[i] + valuesOf(file, "transm_down_dif")[i];
            const double seen = reflectances[r] / (1 - valuesOf(file, "sphalb")[i] * reflectances[r]);
            const double ground = sunlight * down * valuesOf(file, "transm_up_dir")[i] * seen;
            const double path =
                sunlight * (valuesOf(file, "rhoatm")[i] + down * valuesOf(file, "transm_up_dif")[i] * seen);
            EXPECT_FLOAT_EQ(static_cast<float>(first[inTable(r, a, h, z, w)]), static_cast<float>(ground)) << i;
            EXPECT_FLOAT_EQ(static_cast<float>(second[inTable(r, a, h, z, w)]), static_cast<float>(path)) << i;
        }
    }
}

TEST_F(RadianceTable, UnitsAreConverted) {
    NcFile file = products();
    writeNetcdf(path("plain.nc"), file);
    ASSERT_EQ(import("plain.nc").status, 0);
    const std::vector<double> plain = exported("path_radiance").values;
    for (NcVariable& variable : file.variables) {
        if (variable.name == "wl") {
            for (double& wavelength : variable.values) wavelength /= 1000;
            variable.texts["units"] = "um";
        }
        if (variable.name == "rhoatm" || contains(variable.name, "-")) {
            for (double& value : variable.values) value *= 10;
            variable.texts["units"] = "W m-2 sr-1 um-1";
        }
    }
    writeNetcdf(path("other.nc"), file);
    ASSERT_EQ(import("other.nc").status, 0);
    EXPECT_EQ(info("t.kslut")["axes"][8]["coordinates"], nlohmann::json({400.0, 550.0, 1000.0}));
    const std::vector<double> other = exported("path_radiance").values;
    ASSERT_EQ(other.size(), plain.size());
    for (std::size_t i = 0; i < plain.size(); ++i) EXPECT_NEAR(other[i], plain[i], 1e-6 * plain[i]);
    for (NcVariable& variable : file.variables) {
        if (variable.name == "rhoatm") variable.texts["units"] = "furlongs";
    }
    writeNetcdf(path("odd.nc"), file);
    const Result odd = import("odd.nc");
    EXPECT_EQ(odd.status, 1);
    EXPECT_TRUE(contains(odd.err, "the units 'furlongs' of 'rhoatm' are not known here")) << odd.err;
}

TEST_F(RadianceTable, NeedsToBeToldWhatTheFileDoesNotSay) {
    NcFile noMode = products();
    noMode.texts.clear();
    writeNetcdf(path("nomode.nc"), noMode);
    NcFile noSun = transmittances();
    noSun.variables.erase(noSun.variables.begin() + 4);
    writeNetcdf(path("nosun.nc"), noSun);
    NcFile noAlbedo = products();
    noAlbedo.variables.erase(noAlbedo.variables.begin() + 7);
    writeNetcdf(path("noalbedo.nc"), noAlbedo);
    NcFile odd = products();
    odd.dimensions[2].first = "ozone";
    for (NcVariable& variable : odd.variables) {
        if (variable.name == "H2OSTR") variable.name = "ozone";
        std::replace(variable.dimensions.begin(), variable.dimensions.end(), std::string("H2OSTR"),
                     std::string("ozone"));
    }
    writeNetcdf(path("odd.nc"), odd);
    writeNetcdf(path("good.nc"), products());
    const std::vector<std::tuple<std::string, std::vector<std::string>, std::string>> cases = {
        {"nomode.nc", {}, "give --path radiance or --path reflectance"},
        {"nosun.nc", {}, "give --sun-zenith"},
        {"noalbedo.nc", {}, "has no variable 'sphalb'"},
        {"odd.nc", {}, "radiance tables have no axis for the dimension 'ozone'"},
        {"good.nc", {"--sun-zenith", "30"}, "says itself that it is made for 60"},
        {"good.nc", {"--reflectance", "0.5"}, "give two levels or more"},
        {"good.nc", {"--reflectance", "0,0.5"}, "levels lie above 0"},
        {"good.nc", {"--reflectance", "0.5,0.2"}, "each higher than the one before"},
        {"good.nc", {"--visibility", "20"}, "'AOT550' has 2 values, so give as many"},
        {"good.nc", {"--variable", "rhoatm"}, "leave them away with --radiance"}};
    for (const auto& [file, options, words] : cases) {
        const Result result = import(file, options);
        EXPECT_EQ(result.status, 1) << words;
        EXPECT_TRUE(contains(result.err, words)) << result.err;
        EXPECT_FALSE(fs::exists(path("t.kslut")));
    }
    EXPECT_EQ(import("nomode.nc", {"--path", "radiance"}).status, 0);
    EXPECT_EQ(import("nosun.nc", {"--sun-zenith", "60"}).status, 0);
    ASSERT_EQ(import("good.nc", {"--visibility", "60,20"}).status, 0);
    EXPECT_EQ(info("t.kslut")["axes"][3]["coordinates"], nlohmann::json({20.0, 60.0}));
}

TEST_F(RadianceTable, ComesBackFromAnExport) {
    writeNetcdf(path("in.nc"), products());
    ASSERT_EQ(import("in.nc").status, 0);
    const auto expected = info("t.kslut");
    const std::vector<double> first = exported("ground_radiance").values;
    fs::copy_file(path("export.nc"), path("again.nc"));
    ASSERT_EQ(lut({"import", "again.nc", "t.kslut", "--force"}).status, 0);
    EXPECT_EQ(info("t.kslut"), expected);
    EXPECT_EQ(exported("ground_radiance").values, first);
}

// ---- interp ----

TEST_F(RadianceTable, IsInterpolatedMultilinearly) {
    writeNetcdf(path("in.nc"), products());
    ASSERT_EQ(import("in.nc", {"--visibility", "60,20", "--reflectance", "0.25,0.5,0.75"}).status, 0);
    const Grid grids[] = {exported("ground_radiance"), exported("path_radiance")};
    // Random points, grid points, and the ends of every axis.
    std::mt19937 random(5);
    std::uniform_real_distribution<double> share(0, 1);
    std::vector<std::vector<double>> points;
    for (int i = 0; i < 40; ++i) {
        const auto between = [&](double low, double high) {
            const double t = i % 4 == 0 ? 0 : i % 4 == 1 ? 1 : share(random);
            return low + static_cast<double>(static_cast<float>(t)) * (high - low);
        };
        points.push_back({0, 60, between(0.25, 0.75), between(20, 60), between(1, 3), 0, 0, between(0, 20)});
    }
    points.push_back({0, 60, 0.5, 40, 1.5, 0, 0, 20});
    std::string csv = "name,Reflectance,Surface meteorological range,water,view\n";
    for (std::size_t i = 0; i < points.size(); ++i) {
        std::ostringstream row;
        row.precision(17);
        row << "p" << i << "," << points[i][2] << "," << points[i][3] << "," << points[i][4] << "," << points[i][7];
        csv += row.str() + "\n";
    }
    write("points.csv", csv);
    const Result result = lut({"interp", "t.kslut", "--points", "points.csv", "-o", "out.csv", "--plot", "out.svg"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(read("out.svg"), "<svg"));
    const Table table = parseCsv(read("out.csv"));
    ASSERT_EQ(table.rows.size(), 3U);
    ASSERT_EQ(table.header.size(), 1 + 2 * points.size());
    EXPECT_EQ(table.header[0], "Wavelength (nm)");
    EXPECT_EQ(table.header[3], "p1: ground radiance");
    for (std::size_t w = 0; w < 3; ++w) {
        EXPECT_EQ(table.rows[w][0], grids[0].axes[8][w]);
        for (std::size_t i = 0; i < points.size(); ++i) {
            for (std::size_t v = 0; v < 2; ++v) {
                const double expected = grids[v].at(points[i], w);
                EXPECT_NEAR(table.rows[w][1 + 2 * i + v], expected, 1e-6 * expected) << i << " " << w;
            }
        }
    }
}

TEST_F(RadianceTable, IsLeftOnRequestOnly) {
    writeNetcdf(path("in.nc"), products());
    ASSERT_EQ(import("in.nc", {"--visibility", "60,20", "--reflectance", "0.25,0.5,0.75", "--altitude", "4"}).status,
              0);
    const Grid grid = exported("ground_radiance");
    const std::vector<std::string> inside = {"--at", "refl=0.5", "--at", "range=30", "--at", "water=2"};
    const auto interp = [&](const std::vector<std::string>& more) {
        std::vector<std::string> arguments = {"interp", "t.kslut"};
        arguments.insert(arguments.end(), inside.begin(), inside.end());
        arguments.insert(arguments.end(), more.begin(), more.end());
        return lut(arguments);
    };
    const Result refused = interp({"--at", "view=30"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "");
    EXPECT_TRUE(contains(refused.err,
                         "View zenith angle 30 lies outside of the table, which has 0 to 20 degrees; give "
                         "--extrapolate"))
        << refused.err;
    const Result beyond = interp({"--at", "view=30", "--extrapolate"});
    ASSERT_EQ(beyond.status, 0) << beyond.err;
    EXPECT_TRUE(contains(beyond.err, "continued linearly")) << beyond.err;
    const Result below = interp({"--at", "view=-8", "--extrapolate"});
    ASSERT_EQ(below.status, 0) << below.err;
    for (std::size_t w = 0; w < 3; ++w) {
        EXPECT_NEAR(parseCsv(beyond.out).rows[w][1], grid.at({4, 60, 0.5, 30, 2, 0, 0, 30}, w), 1e-4);
        EXPECT_NEAR(parseCsv(below.out).rows[w][1], grid.at({4, 60, 0.5, 30, 2, 0, 0, -8}, w), 1e-4);
    }
    // An axis of one index has that one only.
    const Result other = interp({"--at", "view=10", "--at", "altitude=5"});
    EXPECT_EQ(other.status, 1);
    EXPECT_TRUE(contains(other.err, "was made for 4 km only")) << other.err;
    const Result same = interp({"--at", "view=10", "--at", "altitude=4"});
    ASSERT_EQ(same.status, 0) << same.err;
    for (std::size_t w = 0; w < 3; ++w) {
        EXPECT_NEAR(parseCsv(same.out).rows[w][1], grid.at({4, 60, 0.5, 30, 2, 0, 0, 10}, w), 1e-4);
    }
    const Result lacking = interp({});
    EXPECT_EQ(lacking.status, 1);
    EXPECT_TRUE(contains(lacking.err, "needs 'View zenith angle', which the table has from 0 to 20 degrees"))
        << lacking.err;
    EXPECT_TRUE(contains(interp({"--at", "Wavelength=500"}).err, "is the axis of the spectra"));
    EXPECT_TRUE(contains(interp({"--at", "zenith=5"}).err, "'zenith' fits more than one axis"));
}

TEST_F(RadianceTable, HolesWithoutWeightDoNotSpoilASpectrum) {
    NcFile file = products();
    for (NcVariable& variable : file.variables) {
        if (variable.name != "rhoatm") continue;
        for (std::size_t w = 0; w < kW; ++w) {
            for (std::size_t a = 0; a < kA; ++a) {
                for (std::size_t z = 0; z < kZ; ++z) variable.values[place(w, a, 2, z)] = kNaN;  // water 3
            }
        }
        variable.values[place(1, 0, 0, 0)] = kNaN;
    }
    writeNetcdf(path("in.nc"), file);
    const Result made = import("in.nc", {"--visibility", "60,20"});
    ASSERT_EQ(made.status, 0) << made.err;
    EXPECT_TRUE(contains(made.err, "26 of 72 cells hold no numbers")) << made.err;
    const Grid grid = exported("path_radiance");
    const auto interp = [&](const std::string& water) {
        return lut({"interp", "t.kslut", "--at", "refl=0.2", "--at", "range=30", "--at", "view=5", "--at", water});
    };
    const Result onLine = interp("water=1.5");
    ASSERT_EQ(onLine.status, 0);
    EXPECT_FALSE(contains(onLine.err, "warning")) << onLine.err;
    const Table table = parseCsv(onLine.out);
    for (std::size_t w = 0; w < 3; ++w) {
        const double expected = grid.at({0, 60, 0.2, 30, 1.5, 0, 0, 5}, w);
        ASSERT_TRUE(std::isfinite(expected));
        EXPECT_NEAR(table.rows[w][2], expected, 1e-5);
    }
    const Result between = interp("water=1.75");
    EXPECT_EQ(between.status, 0);
    EXPECT_TRUE(contains(between.err, "3 of 6 values have no number")) << between.err;
    EXPECT_TRUE(std::isnan(parseCsv(between.out).rows[0][2]));
    EXPECT_TRUE(std::isfinite(parseCsv(between.out).rows[0][1]));
    EXPECT_EQ(lut({"check", "t.kslut"}).status, 1);
}

TEST_F(RadianceTable, OtherTablesAreInterpolatedToo) {
    NcFile file;
    file.dimensions = {{"x", 3}, {"y", 2}, {"wl", 2}};
    file.variables = {{"x", {"x"}, {4, 2, 1}, false, {}, {}},  // falls
                      {"y", {"y"}, {0, 1}, false, {}, {}},
                      {"wl", {"wl"}, {500, 600}, false, {}, {}},
                      {"v", {"x", "y", "wl"}, {}, false, {}, {}}};
    for (int i = 0; i < 12; ++i) file.variables[3].values.push_back(std::sin(i) + 3);
    writeNetcdf(path("in.nc"), file);
    ASSERT_EQ(lut({"import", "in.nc", "t.kslut"}).status, 0);
    const Grid grid = {{{-4, -2, -1}, {0, 1}, {500, 600}}, file.variables[3].values};
    for (const double x : {1.0, 1.25, 2.0, 3.0, 4.0}) {
        const Result result = lut({"interp", "t.kslut", "--at", "x=" + std::to_string(x), "--at", "y=0.25"});
        ASSERT_EQ(result.status, 0) << result.err;
        const Table table = parseCsv(result.out);
        for (std::size_t w = 0; w < 2; ++w) EXPECT_NEAR(table.rows[w][1], grid.at({-x, 0.25}, w), 1e-12);
    }
    EXPECT_EQ(lut({"interp", "t.kslut", "--at", "x=5", "--at", "y=0"}).status, 1);
    EXPECT_EQ(lut({"interp", "t.kslut", "--at", "x=0.5", "--at", "y=0"}).status, 1);
    EXPECT_EQ(lut({"interp", "t.kslut", "--at", "x=nan", "--at", "y=0"}).status, 1);
    const Result wide = lut({"interp", "t.kslut", "--at", "x=5", "--at", "y=2", "--extrapolate"});
    ASSERT_EQ(wide.status, 0);
    EXPECT_NEAR(parseCsv(wide.out).rows[1][1], grid.at({-5, 2}, 1), 1e-12);
}

TEST_F(RadianceTable, PointsOfATableAreChecked) {
    writeNetcdf(path("in.nc"), products());
    ASSERT_EQ(import("in.nc", {"--visibility", "60,20"}).status, 0);
    write("odd.csv", "water,depth\n1,2\n");
    write("gap.csv", "water,view\n1,2\n2,\n");
    write("twice.csv", "water,view\n1,2\n");
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--points", "odd.csv"}, "'depth' is no axis of the table"},
        {{"--points", "gap.csv"}, "gap.csv, line 3: 'view' is missing"},
        {{"--points", "absent.csv"}, "absent.csv"},
        {{"--points", "twice.csv", "--at", "water=1"}, "given by --at and by twice.csv"}};
    for (const auto& [options, words] : cases) {
        std::vector<std::string> arguments = {"interp", "t.kslut",  "-o",   "out.csv",
                                              "--at",   "refl=0.2", "--at", "range=30"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Result result = lut(arguments);
        EXPECT_EQ(result.status, 1) << words;
        EXPECT_TRUE(contains(result.err, words)) << result.err;
        EXPECT_FALSE(fs::exists(path("out.csv")));
    }
}

// ---- a real file ----

TEST_F(RadianceTable, OfARealAtmosphere) {
    const char* data = std::getenv("KSLIB_DATA");
    if (data == nullptr) GTEST_SKIP() << "KSLIB_DATA does not name a folder of sample data";
    const fs::path source = fs::path(data) / "radiance-lut-prism-netcdf" / "lut.nc";
    if (!fs::exists(source)) GTEST_SKIP() << source << " is not there";
    const Result result = import(source.string(), {"--altitude", "4.2"});
    ASSERT_EQ(result.status, 0) << result.err;
    const auto table = info("t.kslut");
    EXPECT_EQ(table["covered"], 24600);
    EXPECT_NEAR(table["axes"][1]["coordinates"][0].get<double>(), 40.996, 1e-3);
    const Grid ground = exported("ground_radiance");
    const Grid path = exported("path_radiance");
    const NcVariable names[] = {readNetcdf(source, "dir-dir"), readNetcdf(source, "dif-dir"),
                                readNetcdf(source, "dir-dif"), readNetcdf(source, "dif-dif"),
                                readNetcdf(source, "rhoatm"),  readNetcdf(source, "sphalb")};
    for (std::size_t i = 0; i < names[0].values.size(); ++i) {
        const std::size_t z = i % 2, h = i / 2 % 5, a = i / 10 % 5, w = i / 50;
        for (std::size_t r = 0; r < 2; ++r) {
            const double reflectance = r == 0 ? 0.05 : 0.5;
            const double seen = reflectance / (1 - names[5].values[i] * reflectance);
            const std::size_t at = (((r * 5 + 4 - a) * 5 + h) * 2 + z) * 246 + w;
            const double first = (names[0].values[i] + names[1].values[i]) * seen;
            const double second = names[4].values[i] + (names[2].values[i] + names[3].values[i]) * seen;
            ASSERT_NEAR(ground.values[at], first, 1e-6 * first) << i;
            ASSERT_NEAR(path.values[at], second, 1e-6 * second) << i;
        }
    }
    // The quantities as tables of their own: two of them hold no number at all.
    const Result all = lut({"import", source.string(), "all.kslut"});
    ASSERT_EQ(all.status, 0) << all.err;
    const auto tables = nlohmann::json::parse(lut({"info", "all.kslut", "--json"}).out)["tables"];
    ASSERT_EQ(tables.size(), 14U);
    EXPECT_EQ(std::count_if(tables.begin(), tables.end(), [](const auto& t) { return t["covered"] == 0; }), 2);
    const Result check = lut({"check", "all.kslut"});
    EXPECT_EQ(check.status, 1);
    EXPECT_TRUE(contains(check.err, "12300 values are no numbers")) << check.err;
}

}  // namespace
}  // namespace clitest
