// ks roi: what it writes is read here byte for byte, and which pixels a region covers is worked out from the pixels.
#include <nlohmann/json.hpp>

#include <cmath>
#include <sstream>

#include "clikit.hpp"

namespace clitest {
namespace {

using nlohmann::json;

class Roi : public CliTest {
protected:
    static constexpr int kWidth = 12;
    static constexpr int kHeight = 8;

    void makeCube(const std::string& header = "") const { writeCube(dir() / "cube.img", cube(header)); }
    static Cube cube(const std::string& header = "") {
        Cube cube;
        cube.width = kWidth;
        cube.height = kHeight;
        cube.bands = 2;
        cube.type = 4;
        cube.header = header;
        cube.value = [](int x, int y, int b) { return 100.0 * b + 10.0 * y + x; };
        return cube;
    }
    std::vector<std::string> lines(const std::string& name) const {
        std::vector<std::string> all;
        std::istringstream text(read(name));
        for (std::string line; std::getline(text, line);) all.push_back(line);
        return all;
    }
    /// The pixels of a channel of an ENVI mask as rows of '.' and '#'.
    std::string picture(const std::string& name, int channel, int channels) const {
        const std::string bytes = read(name);
        EXPECT_EQ(bytes.size(), static_cast<std::size_t>(kWidth * kHeight * channels));
        std::string text;
        for (int i = 0; i < kWidth * kHeight; ++i) {
            const char value = bytes.at(static_cast<std::size_t>(i * channels + channel - 1));
            EXPECT_TRUE(value == 0 || value == 1);
            text += value != 0 ? '#' : '.';
            if (i % kWidth == kWidth - 1) text += '\n';
        }
        return text;
    }
    json list(const std::string& region) const {
        const Result result = ks({"roi", "list", "cube.img", region, "--json"});
        EXPECT_EQ(result.status, 0) << result.err;
        return result.status == 0 ? json::parse(result.out)["regions"] : json();
    }
};

TEST_F(Roi, TextsAreCollectedInAFileWithoutAMask) {
    makeCube();
    const Result result = ks({"roi", "make", "cube.img", "point size 3 yoff 4 xoff 5",
                              "rectangle xoff 1 yoff 2 xsize 3 ysize 4", "sites.roi"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(lines("sites.roi"),
              (std::vector<std::string>{"# regions of cube.img, 12 x 8 pixels", "point xoff 5 yoff 4 size 3",
                                        "rectangle xoff 1 yoff 2 xsize 3 ysize 4"}));
    EXPECT_EQ(files(), (std::vector<std::string>{"cube.hdr", "cube.img", "sites.roi"}));
}

TEST_F(Roi, RegionsAreCutToTheImage) {
    makeCube();
    const json regions = list("rectangle xoff 10 yoff 6 xsize 100 ysize 2147483647");
    EXPECT_EQ(regions[0]["region"], "rectangle xoff 10 yoff 6 xsize 2 ysize 2");
    EXPECT_EQ(list("point xoff 0 yoff 3 size 3")[0]["region"], "rectangle xoff 0 yoff 2 xsize 2 ysize 3");
    EXPECT_EQ(list("point xoff 1 yoff 3 size 3")[0]["region"], "point xoff 1 yoff 3 size 3");
    EXPECT_EQ(list("point xoff 5 yoff 5 size 2147483647")[0]["pixels"], kWidth * kHeight);
}

TEST_F(Roi, UnionIsABitmapInAMaskBeside) {
    makeCube();
    ASSERT_EQ(ks({"roi", "union", "cube.img", "rectangle xoff 1 yoff 1 xsize 4 ysize 2", "point xoff 4 yoff 3 size 3",
                  "all.roi"})
                  .status,
              0);
    EXPECT_EQ(lines("all.roi")[1], "bitmap 1");
    EXPECT_EQ(picture("all.roi.img", 1, 1),
              "............\n"
              ".####.......\n"
              ".#####......\n"
              "...###......\n"
              "...###......\n"
              "............\n"
              "............\n"
              "............\n");
    const json regions = list("all.roi");
    ASSERT_EQ(regions.size(), 1U);
    EXPECT_EQ(regions[0]["pixels"], 15);
    EXPECT_EQ(regions[0]["x"], 1);
    EXPECT_EQ(regions[0]["y"], 1);
    EXPECT_EQ(regions[0]["width"], 5);
    EXPECT_EQ(regions[0]["height"], 4);
    EXPECT_EQ(regions[0]["region"], "bitmap 1");
}

TEST_F(Roi, MaskImageHoldsEveryRegionInAChannel) {
    makeCube("map info = {UTM, 1, 1, 365055, 5807085, 30, 30, 33, North, WGS-84}\n");
    for (const char* name : {"mask.img", "mask.tif"}) {
        ASSERT_EQ(ks({"roi", "make", "cube.img", "point xoff 0 yoff 0 size 1",
                      "rectangle xoff 10 yoff 7 xsize 2 ysize 1", name})
                      .status,
                  0);
        const json regions = list(name);
        ASSERT_EQ(regions.size(), 2U) << name;
        EXPECT_EQ(regions[0]["pixels"], 1);
        EXPECT_EQ(regions[1]["pixels"], 2);
        EXPECT_EQ(regions[1]["x"], 10);
        EXPECT_EQ(regions[1]["region"], "bitmap 2");
        EXPECT_EQ(regions[1]["name"], "rectangle xoff 10 yoff 7 xsize 2 ysize 1");
        const json info = json::parse(ks({"info", "--json", name}).out);
        EXPECT_TRUE(contains(info.dump(), "365055")) << info.dump();
    }
    EXPECT_TRUE(contains(picture("mask.img", 2, 2), "..........##\n"));
}

TEST_F(Roi, PolygonsOnTheMapBecomeBitmaps) {
    // Pixels of 30 m from (1000, 5000) on; a name for every polygon, and one that misses the image.
    makeCube("map info = {Arbitrary, 1, 1, 1000, 5000, 30, 30}\n");
    write("fields.csv",
          "name,x,y\nwood,1030,4970\nwood,1150,4970\nwood,1150,4880\nlake,1315,4795\nfar,0,0\nfar,9,0\nfar,9,9\n");
    const Result result = ks({"roi", "rasterize", "cube.img", "fields.csv", "fields.roi"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.err, "1 of its regions has no pixel in the image")) << result.err;
    EXPECT_EQ(lines("fields.roi")[1], "bitmap 1  # wood");
    EXPECT_EQ(lines("fields.roi")[2], "bitmap 2  # lake");
    // The triangle (1, 1), (5, 1), (5, 4) in pixels: y - 1 < (x - 1) * 3 / 4 at the centres.
    std::string wood;
    std::string lake;
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            wood += y >= 1 && x < 5 && y + 0.5 - 1 < (x + 0.5 - 1) * 0.75 ? '#' : '.';
            lake += x == 10 && y == 6 ? '#' : '.';
        }
        wood += '\n';
        lake += '\n';
    }
    EXPECT_EQ(picture("fields.roi.img", 1, 2), wood);
    EXPECT_EQ(picture("fields.roi.img", 2, 2), lake);
    // The same file serves where regions are asked for, and so does what was made of it.
    EXPECT_EQ(list("fields.csv")[1]["name"], "lake");
    const json again = list("fields.roi");
    EXPECT_EQ(again[0]["name"], "wood");
    EXPECT_EQ(again[0]["pixels"], count(wood, "#"));
}

TEST_F(Roi, PolygonsCanBeInPixelsAndTakeInWhatTheyTouch) {
    makeCube("map info = {Arbitrary, 1, 1, 1000, 5000, 30, 30}\n");
    write("p.geojson", R"({"type":"Polygon","coordinates":[[[2.2,3.2],[2.4,3.2],[2.4,3.4],[2.2,3.2]]]})");
    const Result missed = ks({"roi", "rasterize", "cube.img", "p.geojson", "p.roi", "--pixels"});
    EXPECT_EQ(missed.status, 1);
    EXPECT_TRUE(contains(missed.err, "none of its regions has a pixel in the image of 12 x 8 pixels")) << missed.err;
    ASSERT_EQ(ks({"roi", "rasterize", "cube.img", "p.geojson", "p.roi", "--pixels", "--all-touched"}).status, 0);
    const json regions = list("p.roi");
    EXPECT_EQ(regions[0]["pixels"], 1);
    EXPECT_EQ(regions[0]["x"], 2);
    EXPECT_EQ(regions[0]["y"], 3);
}

TEST_F(Roi, ValidPixelsAreFound) {
    Cube holed = cube("data ignore value = 33\n");
    const auto plain = holed.value;
    holed.value = [plain](int x, int y, int b) { return x == 11 || (y == 7 && b == 1) ? NAN : plain(x, y, b); };
    writeCube(dir() / "cube.img", holed);
    ASSERT_EQ(ks({"roi", "valid", "cube.img", "data.roi"}).status, 0);
    // Column 11 and line 7 are no numbers, (3, 3) is 33 in the first band.
    std::string wanted;
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) wanted += x == 11 || y == 7 || (x == 3 && y == 3) ? '.' : '#';
        wanted += '\n';
    }
    EXPECT_EQ(picture("data.roi.img", 1, 1), wanted);
    ASSERT_EQ(
        ks({"roi", "valid", "cube.img", "b2.roi", "--bands", "b2", "--roi", "rectangle xoff 0 yoff 0 xsize 5 ysize 5"})
            .status,
        0);
    EXPECT_EQ(lines("b2.roi")[1], "rectangle xoff 0 yoff 0 xsize 5 ysize 5  # with data");
    EXPECT_FALSE(fs::exists(dir() / "b2.roi.img"));
}

TEST_F(Roi, ThresholdFindsPixelsWithinLimits) {
    makeCube("data ignore value = 26\ndata gain values = {0.5, 1}\ndata offset values = {1, 0}\n");
    ASSERT_EQ(ks({"roi", "threshold", "cube.img", "t.roi", "--band", "b1", "--from", "12", "--to", "15"}).status, 0);
    // Calibrated: 0.5 * (10 y + x) + 1 from 12 to 15, so 22 to 28, which pixels of line 1 and 2 reach; not 26.
    std::string wanted;
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            const int stored = 10 * y + x;
            wanted += stored >= 22 && stored <= 28 && stored != 26 ? '#' : '.';
        }
        wanted += '\n';
    }
    EXPECT_EQ(picture("t.roi.img", 1, 1), wanted);
    ASSERT_EQ(ks({"roi", "threshold", "cube.img", "u.roi", "--band", "b1", "--from", "24", "--level", "0", "--roi",
                  "rectangle xoff 3 yoff 1 xsize 3 ysize 2"})
                  .status,
              0);
    const json regions = list("u.roi");
    EXPECT_EQ(regions[0]["pixels"], 2);  // 24 and 25
    EXPECT_EQ(regions[0]["x"], 4);
    EXPECT_EQ(regions[0]["y"], 2);
}

TEST_F(Roi, FileOfRegionsIsForgivingAboutLayout) {
    makeCube();
    write("r.txt",
          "# remark\r\n\r\n  point  xoff 1   yoff 2 size 1  # a pond \r\n\trectangle xoff 0 yoff 0\txsize 2 ysize "
          "2\r\n");
    const json regions = list("r.txt");
    ASSERT_EQ(regions.size(), 2U);
    EXPECT_EQ(regions[0]["name"], "a pond");
    EXPECT_EQ(regions[0]["region"], "point xoff 1 yoff 2 size 1");
    EXPECT_EQ(regions[1]["pixels"], 4);
    const Result table = ks({"roi", "list", "cube.img", "r.txt", "point xoff 3 yoff 3 size 5"});
    EXPECT_TRUE(contains(table.out, "point xoff 1 yoff 2 size 1  # a pond\n")) << table.out;
    EXPECT_TRUE(contains(table.out, "        25      1      1      5      5  point xoff 3 yoff 3 size 5\n"))
        << table.out;
}

TEST_F(Roi, ReplacingAFileTakesItsOldMaskAway) {
    makeCube();
    const std::vector<std::string> all = {"roi", "union", "cube.img", "point xoff 3 yoff 3 size 3", "a.roi"};
    ASSERT_EQ(ks(all).status, 0);
    const Result refused = ks(all);
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(contains(refused.err, "a.roi exists")) << refused.err;
    ASSERT_EQ(ks({"roi", "make", "cube.img", "point xoff 3 yoff 3 size 3", "a.roi", "--force"}).status, 0);
    EXPECT_EQ(files(), (std::vector<std::string>{"a.roi", "cube.hdr", "cube.img"}));
}

TEST_F(Roi, MaskThatIsInTheWayIsNotOverwritten) {
    makeCube();
    write("a.roi.img", "precious");
    const Result result = ks({"roi", "union", "cube.img", "point xoff 3 yoff 3 size 3", "a.roi"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.err, "a.roi.img exists")) << result.err;
    EXPECT_EQ(read("a.roi.img"), "precious");
    EXPECT_FALSE(fs::exists(dir() / "a.roi"));
}

TEST_F(Roi, UnusableArgumentsAreExplained) {
    makeCube();
    Cube other = cube();
    other.width = 5;
    writeCube(dir() / "other.img", other);
    Cube empty = cube();
    empty.value = [](int, int, int) { return 0.0; };
    writeCube(dir() / "empty.img", empty);
    write("bad.roi", "point xoff 1 yoff 2 size 1\ncircle 3\n");
    write("half.roi", "point xoff 1 yoff 2\n");
    write("nomask.roi", "bitmap 1\n");
    write("nochannel.roi", "bitmap 3\n");
    writeCube(dir() / "nochannel.roi.img", cube());
    write("far.roi", "point xoff 100 yoff 2 size 1\n");
    write("none.roi", "# nothing\n");
    write("bad.csv", "x,y\n1,zwei\n");
    const auto before = files();
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"make", "cube.img", "circle", "o.roi"}, "'circle' is neither a region nor the name of a file"},
        {{"make", "cube.img", "point xoff 1 yoff 2", "o.roi"}, "is not a region. Write 'point xoff X"},
        {{"make", "cube.img", "point xoff -1 yoff 2 size 3", "o.roi"}, "is not a region"},
        {{"make", "cube.img", "point xoff 1 yoff 2 size 4", "o.roi"}, "it must be odd"},
        {{"make", "cube.img", "rectangle xoff 1 yoff 2 xsize 0 ysize 4", "o.roi"}, "xsize and ysize must be 1 or more"},
        {{"make", "cube.img", "bitmap 1", "o.roi"}, "a bitmap's pixels lie in a mask image"},
        {{"make", "cube.img", "rectangle xoff 12 yoff 0 xsize 1 ysize 1", "o.roi"}, "lies outside the image"},
        {{"make", "cube.img", "bad.roi", "o.roi"}, "bad.roi, line 2: 'circle 3' is not a region"},
        {{"make", "cube.img", "half.roi", "o.roi"}, "point ROI specification is incomplete"},
        {{"make", "cube.img", "nomask.roi", "o.roi"}, "their mask image nomask.roi.img is missing"},
        {{"make", "cube.img", "nochannel.roi", "o.roi"}, "there is no channel 3 in nochannel.roi.img"},
        {{"make", "cube.img", "far.roi", "o.roi"}, "none of its regions has a pixel"},
        {{"make", "cube.img", "none.roi", "o.roi"}, "none of its regions has a pixel"},
        {{"make", "cube.img", "empty.img", "o.roi"}, "none of its regions has a pixel"},
        {{"make", "cube.img", "bad.csv", "o.roi"}, "vertex 1: \"zwei\" is not a number"},
        {{"make", "cube.img", "other.img", "o.roi"}, "is a mask of 5 x 8 pixels, but the image has 12 x 8"},
        {{"make", "cube.img", "point xoff 1 yoff 2 size 1", "o.png"}, "not as .png"},
        {{"make", "cube.img", "point xoff 1 yoff 2 size 1", "cube.img", "--force"}, "cube.img"},
        {{"make", "cube.img", "o.roi"}, "REGION"},
        {{"threshold", "cube.img", "o.roi", "--band", "b1"}, "give at least one limit"},
        {{"threshold", "cube.img", "o.roi", "--band", "all", "--from", "1"}, "names 2 bands"},
        {{"threshold", "cube.img", "o.roi", "--band", "b1", "--from", "1e9"}, "no pixel lies within the limits"},
        {{"rasterize", "cube.img", "bad.roi", "o.roi"}, "cannot be read as polygons"},
        {{}, "A subcommand is required"}};
    for (const auto& [more, words] : cases) {
        std::vector<std::string> arguments = {"roi"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const Result result = ks(arguments);
        EXPECT_EQ(result.status, 1) << testing::PrintToString(arguments);
        EXPECT_TRUE(contains(result.err, words)) << testing::PrintToString(arguments) << result.err;
    }
    EXPECT_EQ(files(), before);
}

TEST_F(Roi, EveryCommandHasHelpWithAnExampleInEightyColumns) {
    for (const char* command : {"make", "union", "rasterize", "valid", "threshold", "list"}) {
        const Result help = ks({"roi", command, "--help"});
        EXPECT_EQ(help.status, 0);
        EXPECT_TRUE(contains(help.out, std::string("Example:\n  ks roi ") + command)) << help.out;
        std::istringstream text(help.out);
        for (std::string line; std::getline(text, line);) EXPECT_LE(line.size(), 80U) << line;
    }
    for (const char* command : {"roi", "stats"}) {
        const Result help = ks({command, "--help"});
        EXPECT_TRUE(contains(help.out, std::string("Example:\n  ks ") + command)) << help.out;
        std::istringstream text(help.out);
        for (std::string line; std::getline(text, line);) EXPECT_LE(line.size(), 80U) << line;
    }
}

}  // namespace
}  // namespace clitest
