
#include <nlohmann/json.hpp>

#include "clikit.hpp"

namespace clitest {
namespace {

using nlohmann::json;

class Spectrum : public CliTest {
protected:
    // Two detectors that overlap (the third wavelength steps back), a bad band, a gap before the last two.
    void makeCube() const {
        Cube cube;
        cube.bands = 9;
        cube.header =
            "wavelength units = nm\nwavelength = {400, 410, 405, 415, 425, 435, 445, 600, 610}\n"
            "bbl = {1, 1, 1, 1, 0, 1, 1, 1, 1}\ndata ignore value = 311\n"
            "data gain values = {0.5, 0.5, 0.5, 0.5, 0.5, 0.5, 0.5, 0.5, 0.25}\n"
            "data offset values = {1, 1, 1, 1, 1, 1, 1, 1, 2}\n";
        writeCube(dir() / "cube.img", cube);
    }
};

TEST_F(Spectrum, TableHoldsStoredValuesAtLevelZero) {
    makeCube();
    const Result result = ks({"spectrum", "cube.img", "2,1", "3,0", "out.csv", "--level", "0"});
    ASSERT_EQ(result.status, 0) << result.err;
    const auto rows = cellsOf(read("out.csv"));
    ASSERT_EQ(rows.size(), 10U);
    EXPECT_EQ(rows[0], (std::vector<std::string>{"band", "wavelength_nm", "fwhm_nm", "quality", "x2_y1", "x3_y0"}));
    EXPECT_EQ(rows[1], (std::vector<std::string>{"1", "400", "", "plot", "12", "3"}));
    EXPECT_EQ(rows[5][3], "mask");
    EXPECT_EQ(rows[9], (std::vector<std::string>{"9", "610", "", "plot", "812", "803"}));
}

TEST_F(Spectrum, HighestLevelIsTheDefaultAndNoDataIsEmpty) {
    makeCube();
    ASSERT_EQ(ks({"spectrum", "cube.img", "1,1", "out.csv"}).status, 0);
    const auto rows = cellsOf(read("out.csv"));
    EXPECT_EQ(rows[1][4], "6.5");     // 11 * 0.5 + 1
    EXPECT_EQ(rows[4][4], "");        // stored 311, the no-data value
    EXPECT_EQ(rows[9][4], "204.75");  // 811 * 0.25 + 2
}

TEST_F(Spectrum, JsonTellsQuantityAndPixels) {
    makeCube();
    ASSERT_EQ(ks({"spectrum", "cube.img", "1,1", "0,2", "out.json"}).status, 0);
    const json whole = json::parse(read("out.json"));
    EXPECT_EQ(whole["level"], 1);
    EXPECT_EQ(whole["quantity"], "at-sensor (apparent) radiance");
    ASSERT_EQ(whole["spectra"].size(), 2U);
    EXPECT_EQ(whole["spectra"][1]["x"], 0);
    EXPECT_EQ(whole["spectra"][1]["y"], 2);
    EXPECT_EQ(whole["spectra"][1]["values"][0], 11.0);  // 20 * 0.5 + 1
    EXPECT_TRUE(whole["spectra"][0]["values"][3].is_null());
    EXPECT_EQ(whole["bands"][4]["quality"], "mask");
}

TEST_F(Spectrum, GoodLeavesBadBandsOut) {
    makeCube();
    ASSERT_EQ(ks({"spectrum", "cube.img", "0,0", "out.csv", "--good"}).status, 0);
    const auto rows = cellsOf(read("out.csv"));
    ASSERT_EQ(rows.size(), 9U);
    EXPECT_EQ(rows[5][0], "6");
}

// Every unbroken line of the first curve is one stroked path in its colour; the legend's sample is one more.
int linesOfFirstCurve(const std::string& svg) {
    return count(svg, "stroke:rgb(0%,45%,70%)") + count(svg, "stroke=\"rgb(0%, 45%, 70%)\"");
}

TEST_F(Spectrum, PlotBreaksBetweenDetectorsAtBadBandsAndGaps) {
    makeCube();
    ASSERT_EQ(ks({"spectrum", "cube.img", "0,0", "out.svg"}).status, 0);
    // 400-410 | 405-415 | 435-445 | 600-610
    EXPECT_EQ(linesOfFirstCurve(read("out.svg")), 4 + 1) << read("out.svg");
}

TEST_F(Spectrum, PlotOfAscendingBandsIsOneLineAlsoWhenStoredBackwards) {
    Cube cube;
    for (const char* wavelengths : {"{400, 410, 420, 430, 440}", "{440, 430, 420, 410, 400}"}) {
        cube.header = std::string("wavelength units = nm\nwavelength = ") + wavelengths + "\n";
        writeCube(dir() / "cube.img", cube);
        ASSERT_EQ(ks({"spectrum", "cube.img", "0,0", "out.svg", "--force"}).status, 0);
        EXPECT_EQ(linesOfFirstCurve(read("out.svg")), 1 + 1) << wavelengths;
    }
}

TEST_F(Spectrum, PlotsWithoutWavelengthsAndOfOneBand) {
    Cube cube;
    writeCube(dir() / "plain.img", cube);
    ASSERT_EQ(ks({"spectrum", "plain.img", "0,0", "plain.png"}).status, 0);
    EXPECT_EQ(readPicture(dir() / "plain.png").width, 1600);
    cube.bands = 1;
    cube.value = [](int, int, int) { return 0.0; };
    writeCube(dir() / "one.img", cube);
    EXPECT_EQ(ks({"spectrum", "one.img", "0,0", "one.svg"}).status, 0);
    EXPECT_TRUE(contains(read("one.svg"), "</svg>"));
}

// Numbers of bands have nothing between them: five grid lines for five bands, and five for -1 to 1 in steps of 0.5.
TEST_F(Spectrum, AxisOfBandNumbersHasWholeTicks) {
    Cube cube;
    cube.value = [](int, int, int) { return 0.0; };
    writeCube(dir() / "plain.img", cube);
    ASSERT_EQ(ks({"spectrum", "plain.img", "0,0", "plain.svg"}).status, 0);
    EXPECT_EQ(count(read("plain.svg"), "stroke:rgb(88%,88%,88%)"), 5 + 5);
}

TEST_F(Spectrum, PixelWithoutDataIsWarnedAbout) {
    Cube cube;
    cube.type = 4;
    cube.header = "data ignore value = 5\n";
    cube.value = [](int, int, int) { return 5.0; };
    writeCube(dir() / "cube.img", cube);
    const Result result = ks({"spectrum", "cube.img", "0,0", "out.svg"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(contains(result.err, "holds no data")) << result.err;
}

TEST_F(Spectrum, UnusableArgumentsAreExplained) {
    makeCube();
    const auto before = files();
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"spectrum", "cube.img", "4,0", "out.svg"}, "X goes from 0 to 3, Y from 0 to 2"},
        {{"spectrum", "cube.img", "0,3", "out.svg"}, "X goes from 0 to 3, Y from 0 to 2"},
        {{"spectrum", "cube.img", "99999999999,0", "out.svg"}, "is not a pixel"},
        {{"spectrum", "cube.img", "1", "out.svg"}, "is not a pixel"},
        {{"spectrum", "cube.img", "1,", "out.svg"}, "is not a pixel"},
        {{"spectrum", "cube.img", "1,2,3", "out.svg"}, "is not a pixel"},
        {{"spectrum", "cube.img", "0,0", "1,1"}, "must be the file to write"},
        {{"spectrum", "cube.img", "0,0", "out.pdf"}, "must be the file to write"},
        {{"spectrum", "cube.img", "0,0", "out.svg", "--level", "7"}, "levels 0 to 1"}};
    for (const auto& [arguments, words] : cases) {
        const Result result = ks(arguments);
        EXPECT_EQ(result.status, 1) << testing::PrintToString(arguments);
        EXPECT_TRUE(contains(result.err, words)) << result.err;
    }
    EXPECT_EQ(files(), before);
}

}  // namespace
}  // namespace clitest
