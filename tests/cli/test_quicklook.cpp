#include <cmath>

#include <nlohmann/json.hpp>

#include "clikit.hpp"

namespace clitest {
namespace {

using nlohmann::json;
using Rgb = std::vector<int>;

class Quicklook : public CliTest {};

TEST_F(Quicklook, StretchesEachBandFromBlackToWhite) {
    Cube cube;
    cube.width = 101;
    cube.height = 1;
    cube.bands = 3;
    // Each band rises from 0 to 100 with its own gain; the third one falls.
    cube.value = [](int x, int, int b) { return b == 2 ? 1000 - 3 * x : (b + 1) * x; };
    writeCube(dir() / "cube.img", cube);
    ASSERT_EQ(ks({"quicklook", "cube.img", "full.png", "--bands", "b1,b2,b3", "--stretch", "0,100"}).status, 0);
    const Picture full = readPicture(dir() / "full.png");
    ASSERT_EQ(full.width, 101);
    ASSERT_EQ(full.height, 1);
    for (int x = 0; x <= 100; ++x) {
        const int rising = (255 * x + 50) / 100;  // nearest to 255 x / 100
        EXPECT_EQ(full.at(x, 0)[0], rising) << x;
        EXPECT_EQ(full.at(x, 0)[1], rising) << x;
        EXPECT_NEAR(full.at(x, 0)[2], 255 - rising, 1) << x;
    }
    ASSERT_EQ(ks({"quicklook", "cube.img", "cut.png", "--bands", "b1", "--stretch", "20,60"}).status, 0);
    const Picture cut = readPicture(dir() / "cut.png");
    EXPECT_EQ(cut.at(20, 0), Rgb({0, 0, 0}));
    EXPECT_EQ(cut.at(60, 0), Rgb({255, 255, 255}));
    EXPECT_EQ(cut.at(40, 0), Rgb({128, 128, 128}));
    EXPECT_EQ(cut.at(0, 0), Rgb({0, 0, 0}));
    EXPECT_EQ(cut.at(100, 0), Rgb({255, 255, 255}));
}

TEST_F(Quicklook, BandsComeFromTheHeaderElseFromWavelengthsElseTheFirst) {
    Cube cube;
    cube.bands = 6;
    const auto bandsOf = [this](const std::string& name) {
        const Result result = ks({"quicklook", name, "out.png", "--json", "--force"});
        EXPECT_EQ(result.status, 0) << result.err;
        const json summary = json::parse(result.out);
        std::vector<int> bands;
        for (const json& band : summary["bands"]) bands.push_back(band["band"].get<int>());
        return bands;
    };
    const std::string wavelengths = "wavelength units = nm\nwavelength = {455, 462, 548, 636, 641, 900}\n";
    cube.header = wavelengths + "default bands = {6, 1, 3}\n";
    writeCube(dir() / "named.img", cube);
    EXPECT_EQ(bandsOf("named.img"), std::vector<int>({6, 1, 3}));
    cube.header = wavelengths + "bbl = {1, 1, 1, 1, 0, 1}\n";  // 641 nm would be nearest to red, but is bad
    writeCube(dir() / "good.img", cube);
    EXPECT_EQ(bandsOf("good.img"), std::vector<int>({4, 3, 2}));
    cube.header = "";
    writeCube(dir() / "plain.img", cube);
    EXPECT_EQ(bandsOf("plain.img"), std::vector<int>({1, 2, 3}));
    cube.bands = 2;
    writeCube(dir() / "two.img", cube);
    EXPECT_EQ(bandsOf("two.img"), std::vector<int>({1}));
}

TEST_F(Quicklook, OneBandNamedByTheHeaderIsShownWithAWord) {
    Cube cube;
    cube.header = "wavelength units = nm\nwavelength = {460, 550, 640, 700, 800}\ndefault bands = {5}\n";
    writeCube(dir() / "cube.img", cube);
    const Result result = ks({"quicklook", "cube.img", "out.png"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(contains(result.err, "--bands 640,550,460 shows natural colours")) << result.err;
    EXPECT_EQ(readPicture(dir() / "out.png").at(0, 0)[0], readPicture(dir() / "out.png").at(0, 0)[1]);
}

TEST_F(Quicklook, NoDataAndNaNAreBlackAndOutOfTheStretch) {
    Cube cube;
    cube.width = 5;
    cube.height = 1;
    cube.bands = 1;
    cube.type = 4;
    cube.header = "data ignore value = -9999\n";
    cube.value = [](int x, int, int) { return x == 0 ? -9999.0 : x == 1 ? std::nan("") : 100.0 + x; };
    writeCube(dir() / "cube.img", cube);
    ASSERT_EQ(ks({"quicklook", "cube.img", "out.png", "--stretch", "0,100"}).status, 0);
    const Picture picture = readPicture(dir() / "out.png");
    EXPECT_EQ(picture.at(0, 0), Rgb({0, 0, 0}));
    EXPECT_EQ(picture.at(1, 0), Rgb({0, 0, 0}));
    EXPECT_EQ(picture.at(2, 0), Rgb({0, 0, 0}));
    EXPECT_EQ(picture.at(3, 0), Rgb({128, 128, 128}));
    EXPECT_EQ(picture.at(4, 0), Rgb({255, 255, 255}));
}

TEST_F(Quicklook, ConstantAndEmptyImagesArePictures) {
    Cube cube;
    cube.type = 4;
    cube.value = [](int, int, int) { return 42.0; };
    writeCube(dir() / "constant.img", cube);
    ASSERT_EQ(ks({"quicklook", "constant.img", "constant.png"}).status, 0);
    EXPECT_EQ(readPicture(dir() / "constant.png").at(0, 0), Rgb({128, 128, 128}));
    cube.value = [](int, int, int) { return std::nan(""); };
    writeCube(dir() / "nothing.img", cube);
    const Result nothing = ks({"quicklook", "nothing.img", "nothing.png"});
    ASSERT_EQ(nothing.status, 0);
    EXPECT_TRUE(contains(nothing.err, "black")) << nothing.err;
    EXPECT_EQ(readPicture(dir() / "nothing.png").at(3, 2), Rgb({0, 0, 0}));
}

TEST_F(Quicklook, OnePixel) {
    Cube cube;
    cube.width = cube.height = 1;
    writeCube(dir() / "cube.img", cube);
    ASSERT_EQ(ks({"quicklook", "cube.img", "out.png"}).status, 0);
    EXPECT_EQ(readPicture(dir() / "out.png").width, 1);
}

TEST_F(Quicklook, MaxSizeTakesEveryNthPixel) {
    Cube cube;
    cube.width = 100;
    cube.height = 60;
    cube.bands = 1;
    cube.value = [](int x, int, int) { return x; };
    writeCube(dir() / "cube.img", cube);
    ASSERT_EQ(ks({"quicklook", "cube.img", "out.png", "--max-size", "25", "--stretch", "0,100"}).status, 0);
    const Picture picture = readPicture(dir() / "out.png");
    ASSERT_EQ(picture.width, 25);
    ASSERT_EQ(picture.height, 15);
    for (int x = 0; x < 25; ++x) EXPECT_NEAR(picture.at(x, 0)[0], 255.0 * 4 * x / 99, 0.51) << x;
}

TEST_F(Quicklook, LevelIsCheckedAndShown) {
    Cube cube;
    cube.header = "reflectance scale factor = 10000\n";
    writeCube(dir() / "cube.img", cube);
    const Result shown =
        ks({"quicklook", "cube.img", "out.png", "--level", "1", "--bands", "b2", "--stretch", "0,100", "--json"});
    ASSERT_EQ(shown.status, 0) << shown.err;
    EXPECT_NEAR(json::parse(shown.out)["bands"][0]["black"].get<double>(), 0.0100, 1e-7);
    EXPECT_NEAR(json::parse(shown.out)["bands"][0]["white"].get<double>(), 0.0123, 1e-7);
    const Result beyond = ks({"quicklook", "cube.img", "two.png", "--level", "2"});
    EXPECT_EQ(beyond.status, 1);
    EXPECT_TRUE(contains(beyond.err, "levels 0 to 1")) << beyond.err;
}

TEST_F(Quicklook, UnusableOptionsAreExplained) {
    writeCube(dir() / "cube.img", Cube());
    const auto before = files();
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"quicklook", "cube.img", "out.jpg"}, ".png"},
        {{"quicklook", "cube.img", "out.png", "--bands", "b1,b2"}, "three different bands"},
        {{"quicklook", "cube.img", "out.png", "--bands", "b1,b1,b2"}, "three different bands"},
        {{"quicklook", "cube.img", "out.png", "--bands", "b1,b1"}, "three different bands"},
        {{"quicklook", "cube.img", "out.png", "--bands", "b9"}, "b1 to b5"},
        {{"quicklook", "cube.img", "out.png", "--bands", "b0"}, "b1 to b5"},
        {{"quicklook", "cube.img", "out.png", "--bands", "640"}, "no wavelengths"},
        {{"quicklook", "cube.img", "out.png", "--bands", "red"}, "does not name a band"},
        {{"quicklook", "cube.img", "out.png", "--stretch", "98,2"}, "--stretch"},
        {{"quicklook", "cube.img", "out.png", "--stretch", "0,101"}, "--stretch"}};
    for (const auto& [arguments, words] : cases) {
        const Result result = ks(arguments);
        EXPECT_EQ(result.status, 1) << testing::PrintToString(arguments);
        EXPECT_TRUE(contains(result.err, words)) << result.err;
    }
    EXPECT_EQ(files(), before);
}

}  // namespace
}  // namespace clitest
