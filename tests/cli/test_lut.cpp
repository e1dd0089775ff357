// ks lut info, check, plot, import and export: tables made from netCDF files that the tests write themselves, and read
// back through an export by the netCDF library.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include <kshost_app.h>
#include <kslib.h>
#include <nlohmann/json.hpp>

#include "clikit.hpp"
#include "netcdfkit.hpp"

namespace clitest {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

class Lut : public CliTest {
protected:
    Result lut(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "lut");
        return ks(arguments);
    }
    nlohmann::json info(const std::string& file) const {
        const Result result = lut({"info", file, "--json"});
        EXPECT_EQ(result.status, 0) << result.err;
        return nlohmann::json::parse(result.out, nullptr, false);
    }
    void import(const std::string& source, const std::string& file, std::vector<std::string> options = {}) const {
        std::vector<std::string> arguments = {"import", source, file};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Result result = lut(arguments);
        ASSERT_EQ(result.status, 0) << result.err;
    }
    /// A variable of the export of a file's one table.
    NcVariable exported(const std::string& file, const std::string& variable) const {
        const Result result = lut({"export", file, "export.nc", "--force"});
        EXPECT_EQ(result.status, 0) << result.err;
        return readNetcdf(path("export.nc"), variable);
    }

    /// Reflectance over wavelength, a and b, in this order.
    static NcFile small() {
        NcFile file;
        file.dimensions = {{"wl", 4}, {"a", 3}, {"b", 2}};
        file.variables = {{"wl", {"wl"}, {400, 500, 700, 1000}, false, {{"units", "nm"}}, {}},
                          {"a", {"a"}, {0, 1, 4}, false, {}, {}},
                          {"b", {"b"}, {10, 20}, false, {{"units", "degrees"}}, {}},
                          {"q", {"wl", "a", "b"}, {}, true, {{"units", "1"}, {"long_name", "transmittance"}}, {}}};
        for (int w = 0; w < 4; ++w) {
            for (int a = 0; a < 3; ++a) {
                for (int b = 0; b < 2; ++b) file.variables[3].values.push_back(100 * w + 10 * a + b + 0.5);
            }
        }
        return file;
    }
    /// The table of one axis x and a float64 value.
    static NcFile line(const std::vector<double>& x, const std::vector<double>& values) {
        NcFile file;
        file.dimensions = {{"x", x.size()}};
        file.variables = {{"x", {"x"}, x, false, {}, {}}, {"v", {"x"}, values, false, {}, {}}};
        return file;
    }
};

// ---- import and info ----

TEST_F(Lut, VariableBecomesATableWithWavelengthsLast) {
    writeNetcdf(path("in.nc"), small());
    import("in.nc", "t.kslut");
    EXPECT_EQ(files(), (std::vector<std::string>{"in.nc", "t.kslut"}));
    const auto json = info("t.kslut");
    ASSERT_EQ(json["tables"].size(), 1U);
    const auto& table = json["tables"][0];
    EXPECT_EQ(table["name"], "q");
    EXPECT_EQ(table["element"], "float32");
    EXPECT_EQ(table["element_bytes"], 4);
    EXPECT_EQ(table["bytes"], 96);
    EXPECT_EQ(table["units"], "1");
    EXPECT_EQ(table["radiance_table"], false);
    EXPECT_EQ(table["cells"], 24);
    EXPECT_EQ(table["covered"], 24);
    EXPECT_EQ(table["values"][0]["name"], "transmittance");
    EXPECT_EQ(table["values"][0]["least"], 0.5);
    EXPECT_EQ(table["values"][0]["greatest"], 321.5);
    ASSERT_EQ(table["axes"].size(), 3U);
    EXPECT_EQ(table["axes"][0]["label"], "a");
    EXPECT_EQ(table["axes"][1]["label"], "b");
    EXPECT_EQ(table["axes"][1]["units"], "degrees");
    EXPECT_EQ(table["axes"][2]["label"], "wl");
    EXPECT_EQ(table["axes"][2]["units"], "nm");
    EXPECT_EQ(table["axes"][0]["coordinates"], nlohmann::json({0.0, 1.0, 4.0}));
    EXPECT_EQ(table["axes"][2]["coordinates"], nlohmann::json({400.0, 500.0, 700.0, 1000.0}));

    const NcVariable values = exported("t.kslut", "q");
    EXPECT_EQ(values.dimensions, (std::vector<std::string>{"a", "b", "wl"}));
    ASSERT_EQ(values.values.size(), 24U);
    for (int a = 0; a < 3; ++a) {
        for (int b = 0; b < 2; ++b) {
            for (int w = 0; w < 4; ++w) {
                EXPECT_EQ(values.values[static_cast<std::size_t>((a * 2 + b) * 4 + w)], 100 * w + 10 * a + b + 0.5);
            }
        }
    }
    EXPECT_TRUE(values.isFloat);
    EXPECT_EQ(values.texts.at("units"), "1");
    EXPECT_EQ(readNetcdf(path("export.nc"), "wl").texts.at("units"), "nm");
}

TEST_F(Lut, InfoIsForReading) {
    writeNetcdf(path("in.nc"), small());
    import("in.nc", "t.kslut");
    const std::string text = lut({"info", "t.kslut"}).out;
    for (const char* part : {"t.kslut: 1 table", "segment 1: q, 3 x 2 x 4", "float32 of 4 bytes, 96 bytes in all",
                             "24 of 24 cells hold numbers", "transmittance: 0.5 to 321.5", "10, 20 degrees",
                             "400, 500, 700, 1000 nm", "variable q of in.nc"}) {
        EXPECT_TRUE(contains(text, part)) << part << " in\n" << text;
    }
    const std::string quick = lut({"info", "t.kslut", "--quick"}).out;
    EXPECT_FALSE(contains(quick, "coverage")) << quick;
}

TEST_F(Lut, PackedAndMissingValuesAreUnpacked) {
    NcFile file = line({1, 2, 3, 4}, {10, 99, 30, 9.9692099683868690e36});
    file.variables[1].numbers = {{"scale_factor", 0.5}, {"add_offset", 3}, {"missing_value", 99}};
    writeNetcdf(path("in.nc"), file);
    import("in.nc", "t.kslut");
    const std::vector<double> values = exported("t.kslut", "v").values;
    ASSERT_EQ(values.size(), 4U);
    EXPECT_EQ(values[0], 8);
    EXPECT_TRUE(std::isnan(values[1]));
    EXPECT_EQ(values[2], 18);
    EXPECT_TRUE(std::isnan(values[3]));  // never written
}

TEST_F(Lut, VariablesTypesAndAxesCanBeChosen) {
    NcFile file = small();
    file.variables.push_back({"other", {"a"}, {1.25, 2.5, 1e300}, false, {}, {}});
    writeNetcdf(path("in.nc"), file);
    import("in.nc", "all.kslut");
    EXPECT_EQ(info("all.kslut")["tables"].size(), 2U);
    import("in.nc", "one.kslut", {"--variable", "other"});
    EXPECT_EQ(info("one.kslut")["tables"][0]["element"], "float64");
    EXPECT_EQ(exported("one.kslut", "other").values, (std::vector<double>{1.25, 2.5, 1e300}));
    import("in.nc", "b.kslut", {"--variable", "q", "--wavelength", "b", "--type", "float64"});
    const auto table = info("b.kslut")["tables"][0];
    EXPECT_EQ(table["element"], "float64");
    EXPECT_EQ(table["axes"][2]["label"], "b");
    EXPECT_EQ(table["axes"][0]["label"], "wl");
}

TEST_F(Lut, DimensionsWithoutCoordinatesAreCounted) {
    NcFile file = line({5, 6, 7}, {1, 2, 3});
    file.variables.erase(file.variables.begin());
    writeNetcdf(path("in.nc"), file);
    import("in.nc", "t.kslut");
    EXPECT_EQ(info("t.kslut")["tables"][0]["axes"][0]["coordinates"], nlohmann::json({0.0, 1.0, 2.0}));
}

TEST_F(Lut, TablesAreAddedToFilesAndImages) {
    writeNetcdf(path("in.nc"), small());
    writeNetcdf(path("line.nc"), line({1, 2}, {3, 4}));
    import("in.nc", "t.kslut");
    import("line.nc", "t.kslut", {"--add"});
    const auto tables = info("t.kslut")["tables"];
    ASSERT_EQ(tables.size(), 2U);
    EXPECT_EQ(tables[0]["name"], "q");
    EXPECT_EQ(tables[1]["name"], "v");
    const Result several = lut({"export", "t.kslut", "out.nc"});
    EXPECT_EQ(several.status, 1);
    EXPECT_TRUE(contains(several.err, "choose one with --segment: 1 (q, 3 x 2 x 4), 2 (v, 2)")) << several.err;
    ASSERT_EQ(lut({"export", "t.kslut", "out.nc", "--segment", "2"}).status, 0);
    EXPECT_EQ(readNetcdf(path("out.nc"), "v").values, (std::vector<double>{3, 4}));

    writeCube(dir() / "cube.img", {});
    import("line.nc", "cube.img", {"--add"});
    EXPECT_EQ(info("cube.img")["tables"][0]["name"], "v");
    EXPECT_EQ(exported("cube.img", "v").values, (std::vector<double>{3, 4}));
}

// ---- round trips ----

TEST_F(Lut, ImportOfAnExportIsTheSameTable) {
    NcFile file;
    file.dimensions = {{"band", 2}, {"tiny", 3}, {"one", 1}};
    file.variables = {{"tiny", {"tiny"}, {1e-7, 2.5e-7, 1.23456789e-3}, false, {{"units", "mol m-2"}}, {}},
                      {"one", {"one"}, {1.0 / 3.0}, false, {}, {}},
                      {"v", {"band", "tiny", "one"}, {1, kNaN, 3, kInfinity, 1.0 / 3.0, -1e-300}, false, {}, {}}};
    writeNetcdf(path("in.nc"), file);
    import("in.nc", "first.kslut");
    const NcVariable first = exported("first.kslut", "v");
    fs::copy_file(path("export.nc"), path("again.nc"));
    import("again.nc", "second.kslut");
    auto expected = info("first.kslut");
    auto actual = info("second.kslut");
    // Coordinates too small for the five decimals that tables keep are there to the last digit.
    const auto tiny = expected["tables"][0]["axes"][0]["coordinates"];
    EXPECT_FLOAT_EQ(tiny[0].get<float>(), 1e-7F);
    EXPECT_FLOAT_EQ(tiny[2].get<float>(), 1.23456789e-3F);
    EXPECT_EQ(expected["tables"][0]["axes"][0]["units"], "mol m-2");
    EXPECT_EQ(expected["tables"], actual["tables"]);
    const NcVariable second = exported("second.kslut", "v");
    EXPECT_EQ(second.dimensions, first.dimensions);
    ASSERT_EQ(second.values.size(), 6U);
    const std::vector<double> inOrder = {1, kInfinity, kNaN, 1.0 / 3.0, 3, -1e-300};  // tiny, one, band
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(std::isnan(second.values[i]), std::isnan(inOrder[i])) << i;
        if (!std::isnan(inOrder[i])) {
            EXPECT_EQ(second.values[i], inOrder[i]) << i;
        }
    }
}

/// A table made with the library alone: pairs, labels with blanks, one without a label, nothing that ks adds.
class ForeignTable : public Lut {
protected:
    void make(const std::string& name, int elementSize, bool isFinished = true) const {
        HostFile* file = GDBCreate(KSHOST_TYPE_NATIVE, path(name).c_str(), 512, 512, 0, 1, "");
        ASSERT_NE(file, nullptr);
        KSLUT* table = KSLUTCreate(2);
        KSLUTSetElementSize(table, elementSize);
        KSLUTSetSize(table, 0, 2);
        KSLUTSetSize(table, 1, 3);
        KSLUTSetLabel(table, 0, "View angle (deg)");
        KSLUTSetCoordRange(table, 0, 0, 10);
        KSLUTSetCoordRange(table, 1, 1, 3);
        int segment = 0;
        ASSERT_EQ(KSLUTCreateFileSegment(table, file, &segment, "made", "by the library"), 1);
        ASSERT_EQ(KSLUTSetFileInfo(table, file, segment), 1);
        if (isFinished) {
            ASSERT_EQ(KSLUTSetAttributes(table), 1);
        }
        if (elementSize == 4) {
            std::vector<float> values = {1, 2, 3, 4, 5, 6.5F};
            std::int64_t offsets[] = {0, 0};
            std::int64_t counts[] = {2, 3};
            KSLUTVector offset = {2, offsets};
            KSLUTVector count = {2, counts};
            std::int64_t moved = 0;
            ASSERT_EQ(KSLUTFileIO(table, 1, &offset, &count, nullptr, nullptr, 0, values.data(), 24, &moved), 1);
            ASSERT_EQ(moved, 24);
        }
        KSLUTDestroy(table);
        GDBClose(file);
    }
};

TEST_F(ForeignTable, IsReadAndExchanged) {
    make("t.kslut", 4);
    const auto table = info("t.kslut")["tables"][0];
    EXPECT_EQ(table["element"], "float32");
    EXPECT_EQ(table["axes"][0]["label"], "View angle (deg)");
    EXPECT_EQ(table["axes"][1]["label"], "");
    EXPECT_EQ(exported("t.kslut", "value").values, (std::vector<double>{1, 2, 3, 4, 5, 6.5}));
    EXPECT_EQ(readNetcdf(path("export.nc"), "View_angle__deg_").values, (std::vector<double>{0, 10}));
    fs::copy_file(path("export.nc"), path("again.nc"));
    import("again.nc", "second.kslut");
    const auto second = info("second.kslut")["tables"][0];
    EXPECT_EQ(second["axes"], table["axes"]);
    EXPECT_EQ(second["name"], "");
}

TEST_F(ForeignTable, OfUnknownElementsIsShownButNotRead) {
    make("t.kslut", 12);
    EXPECT_EQ(info("t.kslut")["tables"][0]["element"], "unknown");
    EXPECT_EQ(info("t.kslut")["tables"][0]["covered"], nullptr);
    for (const char* command : {"check", "export"}) {
        std::vector<std::string> arguments = {command, "t.kslut"};
        if (std::string(command) == "export") arguments.emplace_back("out.nc");
        const Result result = lut(arguments);
        EXPECT_EQ(result.status, 1) << command;
        EXPECT_TRUE(contains(result.err, "what the elements of this table hold is not known")) << result.err;
    }
}

TEST_F(ForeignTable, ThatWasNeverCompletedIsSaidToBe) {
    make("t.kslut", 4, false);
    const Result result = lut({"info", "t.kslut"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.err, "the table in segment 1 has no usable shape")) << result.err;
    // It does not hide a table beside it.
    writeNetcdf(path("in.nc"), line({1, 2}, {3, 4}));
    import("in.nc", "t.kslut", {"--add"});
    EXPECT_EQ(info("t.kslut")["tables"][0]["name"], "v");
    EXPECT_TRUE(contains(lut({"export", "t.kslut", "o.nc"}).err, "1 (without a shape), 2 (v, 2)"));
}

// ---- check ----

TEST_F(Lut, CheckOfAGoodTablePredictsItsGrid) {
    // Over a: 10 a' + ..., with a' = 0, 1, 2 at a = 0, 1, 4, so that a = 1 is predicted from its neighbours at 1/4.
    writeNetcdf(path("in.nc"), small());
    import("in.nc", "t.kslut");
    const Result result = lut({"check", "t.kslut", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    const auto table = nlohmann::json::parse(result.out)["tables"][0];
    EXPECT_TRUE(table["problems"].empty());
    double sum = 0;
    double largest = 0;
    for (int w = 0; w < 4; ++w) {
        for (int b = 0; b < 2; ++b) {
            const double value = 100 * w + 10 + b + 0.5;
            const double predicted = 100 * w + 20 * 0.25 + b + 0.5;
            const double brightest = 100 * w + 20 + b + 0.5;
            sum += std::abs(predicted - value) / brightest;
            largest = std::max(largest, std::abs(predicted - value) / brightest);
        }
    }
    const auto& a = table["axes"][0];
    EXPECT_EQ(a["points"], 8);
    EXPECT_NEAR(a["mean_relative_error"].get<double>(), sum / 8, 1e-12);
    EXPECT_NEAR(a["largest_relative_error"].get<double>(), largest, 1e-12);
    EXPECT_EQ(a["largest_at"], (nlohmann::json{{"a", 1.0}, {"b", 10.0}, {"wl", 400.0}}));
    EXPECT_EQ(table["axes"][1]["points"], 0);
    EXPECT_EQ(table["axes"][1]["mean_relative_error"], nullptr);
    EXPECT_EQ(table["axes"][2]["points"], 12);
    const std::string text = lut({"check", "t.kslut"}).out;
    EXPECT_TRUE(contains(text, "b: no inner grid points")) << text;
}

TEST_F(Lut, CheckMeasuresErrorsByTheLargestOfThree) {
    // 8 between 0 and 2 is predicted as 1, which is 7 of 8 off; 2 between 8 and 0 as 4, 2 of 8 off; 0 between 2 and -4
    // as -1, 1 of 4 off.
    writeNetcdf(path("in.nc"), line({1, 2, 3, 4, 5}, {0, 8, 2, 0, -4}));
    import("in.nc", "t.kslut");
    const auto axis = nlohmann::json::parse(lut({"check", "t.kslut", "--json"}).out)["tables"][0]["axes"][0];
    EXPECT_EQ(axis["points"], 3);
    EXPECT_NEAR(axis["mean_relative_error"].get<double>(), (7.0 / 8 + 2.0 / 8 + 1.0 / 4) / 3, 1e-12);
    EXPECT_NEAR(axis["largest_relative_error"].get<double>(), 7.0 / 8, 1e-12);
}

TEST_F(Lut, CheckFindsHoles) {
    writeNetcdf(path("in.nc"), line({1, 2, 3, 4, 5}, {1, kNaN, 3, kInfinity, 5}));
    import("in.nc", "t.kslut");
    const Result result = lut({"check", "t.kslut"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.out, "3 of 5 cells hold numbers, 1 value no number, 1 value infinite")) << result.out;
    EXPECT_TRUE(contains(result.out, "no number (value) at x 2")) << result.out;
    EXPECT_TRUE(contains(result.out, "infinite (value) at x 4")) << result.out;
    EXPECT_TRUE(contains(result.err, "segment 1: 1 value is no number; segment 1: 1 value is infinite")) << result.err;
    EXPECT_EQ(lut({"check", "t.kslut", "--allow-nan"}).status, 1);  // infinities stay a problem

    writeNetcdf(path("nan.nc"), line({1, 2, 3}, {1, kNaN, 3}));
    import("nan.nc", "nan.kslut");
    EXPECT_EQ(lut({"check", "nan.kslut"}).status, 1);
    EXPECT_EQ(lut({"check", "nan.kslut", "--allow-nan"}).status, 0);
}

TEST_F(Lut, CheckFindsCoordinatesThatDoNotIncrease) {
    writeNetcdf(path("in.nc"), line({1, 3, 3, 4}, {1, 2, 3, 4}));
    import("in.nc", "t.kslut");
    const Result result = lut({"check", "t.kslut"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.err, "the coordinates of 'x' do not increase: number 2 is 3, number 3 is 3"))
        << result.err;
    const Result interp = lut({"interp", "t.kslut"});
    EXPECT_EQ(interp.status, 0) << interp.err;  // the one axis is that of the values
}

/// Sets an environment variable for as long as it lives.
class Environment {
public:
    Environment(const char* name, const char* value) : name_(name) { setenv(name, value, 1); }
    ~Environment() { unsetenv(name_); }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

private:
    const char* name_;
};

TEST_F(Lut, TablesLargerThanMemoryGiveTheSame) {
    NcFile file;
    file.dimensions = {{"wl", 37}, {"p", 11}, {"q", 13}};
    NcVariable values = {"v", {"wl", "p", "q"}, {}, true, {}, {}};
    for (int i = 0; i < 37 * 11 * 13; ++i) values.values.push_back(static_cast<float>(2 + std::sin(i * 0.37) + i % 7));
    values.values[1234] = kNaN;
    file.variables = {values};
    writeNetcdf(path("in.nc"), file);
    import("in.nc", "whole.kslut");
    const std::string checked = lut({"check", "whole.kslut", "--json", "--allow-nan"}).out;
    const NcVariable whole = exported("whole.kslut", "v");
    const Environment little("KSHOST_MEMORY", "4096");  // 128 elements at a time, fewer than a plane
    import("in.nc", "pieces.kslut");
    const Result result = lut({"check", "whole.kslut", "--json", "--allow-nan"});
    EXPECT_EQ(result.status, 0) << result.err;
    auto expected = nlohmann::json::parse(checked);
    auto actual = nlohmann::json::parse(result.out);
    for (std::size_t d = 0; d < 3; ++d) {
        // The sums go in another order.
        auto& axis = actual["tables"][0]["axes"][d];
        EXPECT_NEAR(axis["mean_relative_error"].get<double>(),
                    expected["tables"][0]["axes"][d]["mean_relative_error"].get<double>(), 1e-12);
        axis["mean_relative_error"] = expected["tables"][0]["axes"][d]["mean_relative_error"];
    }
    EXPECT_EQ(actual, expected);
    const NcVariable pieces = exported("pieces.kslut", "v");
    ASSERT_EQ(pieces.values.size(), whole.values.size());
    for (std::size_t i = 0; i < whole.values.size(); ++i) {
        if (!std::isnan(whole.values[i])) {
            ASSERT_EQ(pieces.values[i], whole.values[i]) << i;
        }
    }
    EXPECT_EQ(std::count_if(pieces.values.begin(), pieces.values.end(), [](double v) { return std::isnan(v); }), 1);
}

// ---- plot ----

TEST_F(Lut, PlotsAreDrawn) {
    writeNetcdf(path("in.nc"), small());
    import("in.nc", "t.kslut");
    ASSERT_EQ(lut({"plot", "t.kslut", "plain.svg"}).status, 0);
    EXPECT_TRUE(contains(read("plain.svg"), "<svg"));
    const Result picture = lut({"plot", "t.kslut", "curves.png", "--along", "a", "--curves", "wl", "--at", "b=12"});
    ASSERT_EQ(picture.status, 0) << picture.err;
    EXPECT_TRUE(contains(picture.err, "b: 10 is the grid point nearest to 12")) << picture.err;
    EXPECT_TRUE(contains(picture.err, "curves.png: 4 curves over a")) << picture.err;
    EXPECT_GT(readPicture(dir() / "curves.png").width, 100);
    const std::vector<std::pair<std::vector<std::string>, std::string>> wrong = {
        {{"--along", "c"}, "'c' is no axis of the table; it has: 1 a, 2 b, 3 wl"},
        {{"--along", "a", "--curves", "1"}, "name the same axis"},
        {{"--at", "b"}, "write LABEL=VALUE"},
        {{"--at", "b=ten"}, "'ten' is not a number"},
        {{"--at", "b=10", "--at", "b=20"}, "'b' is given twice"},
        {{"--at", "wl=500"}, "'wl' is drawn whole"},
        {{"--value", "2"}, "hold 1 value"}};
    for (const auto& [options, words] : wrong) {
        std::vector<std::string> arguments = {"plot", "t.kslut", "wrong.svg"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Result result = lut(arguments);
        EXPECT_EQ(result.status, 1) << words;
        EXPECT_TRUE(contains(result.err, words)) << result.err;
    }
    EXPECT_FALSE(fs::exists(path("wrong.svg")));
}

// ---- what goes wrong ----

TEST_F(Lut, BadInputsAreNamed) {
    write("text.nc", "not netCDF at all");
    write("empty.kslut", "");
    writeCube(dir() / "cube.img", {});
    writeNetcdf(path("in.nc"), small());
    NcFile none;
    none.dimensions = {{"x", 2}};
    writeNetcdf(path("none.nc"), none);
    import("in.nc", "t.kslut");
    NcFile classic = small();
    classic.isClassic = true;
    writeNetcdf(path("classic.nc"), classic);
    import("classic.nc", "c.kslut");
    write("short.nc", read("classic.nc").substr(0, read("classic.nc").size() - 8));
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"info", "absent.kslut"}, "absent.kslut: no such file"},
        {{"info", "empty.kslut"}, "empty.kslut is empty"},
        {{"info", "cube.img"}, "cube.img holds no look-up table"},
        {{"info", "t.kslut", "--segment", "7"}, "t.kslut has no table in segment 7; it has: 1 (q, 3 x 2 x 4)"},
        {{"import", "text.nc", "x.kslut"}, "text.nc cannot be opened as a netCDF file"},
        {{"import", "short.nc", "x.kslut"}, "short.nc ends before the data that its header announces"},
        {{"import", "absent.nc", "x.kslut"}, "absent.nc: no such file"},
        {{"import", "none.nc", "x.kslut"}, "none.nc holds no variables"},
        {{"import", "in.nc", "x.kslut", "--variable", "r"}, "in.nc has no variable 'r'; it has: wl, a, b, q"},
        {{"import", "in.nc", "x.kslut", "--wavelength", "r"}, "in.nc has no dimension 'r'"},
        {{"import", "in.nc", "t.kslut"}, "t.kslut exists. Choose another name, give --add"},
        {{"import", "in.nc", "x.tif"}, "name it .kslut"},
        {{"import", "in.nc", "in.nc", "--force"}, "cannot be written onto itself"},
        {{"import", "in.nc", "x.kslut", "--water", "2"}, "--radiance"},
        {{"import", "in.nc", "absent/x.kslut"}, "the folder absent does not exist"},
        {{"plot", "t.kslut", "x.gif"},
         "x.gif must end in .svg or .png.\nRun 'ks lut plot --help' to see how it is used"},
        {{"interp", "t.kslut", "--plot", "x.txt"}, "x.txt must end in .svg or .png"},
        {{"export", "t.kslut", "x.txt"}, "give a name that ends in .nc"},
        {{"export", "t.kslut", "in.nc"}, "in.nc exists"}};
    const std::vector<std::string> before = files();
    for (const auto& [arguments, words] : cases) {
        const Result result = lut(arguments);
        EXPECT_EQ(result.status, 1) << words;
        EXPECT_TRUE(contains(result.err, words)) << result.err;
        EXPECT_EQ(files(), before);
    }
}

TEST_F(Lut, WhatCannotBeStoredLeavesNothing) {
    NcFile file;
    file.dimensions = {{"x", 200000}};
    NcVariable values = {"v", {"x"}, {}, false, {}, {}};
    std::uint32_t random = 1;
    for (int i = 0; i < 200000; ++i) values.values.push_back(random = random * 1664525U + 1013904223U);
    file.variables = {values};
    writeNetcdf(path("in.nc"), file);
    RunOptions full;
    full.largestFileBytes = 700000;
    const std::vector<std::string> before = files();
    const Result imported = ks({"lut", "import", "in.nc", "t.kslut"}, full);
    EXPECT_EQ(imported.status, 1) << imported.err;
    EXPECT_EQ(files(), before);
    import("in.nc", "t.kslut");
    const Result exported = ks({"lut", "export", "t.kslut", "out.nc"}, full);
    EXPECT_EQ(exported.status, 1) << exported.err;
    EXPECT_TRUE(contains(exported.err, "out.nc")) << exported.err;
    EXPECT_FALSE(fs::exists(path("out.nc")));
}

TEST_F(Lut, CommandsHaveHelpWithAnExample) {
    for (const char* command : {"info", "check", "plot", "import", "export", "interp"}) {
        const Result help = lut({command, "--help"});
        EXPECT_EQ(help.status, 0) << command;
        EXPECT_TRUE(contains(help.out, std::string("Example:\n  ks lut ") + command)) << help.out;
    }
}

}  // namespace
}  // namespace clitest
