#include <nlohmann/json.hpp>

#include "clikit.hpp"

namespace clitest {
namespace {

using nlohmann::json;

class Info : public CliTest {
protected:
    void makeCube() const {
        Cube cube;
        cube.header =
            "wavelength units = Nanometers\nwavelength = {450, 550, 650, 750, 850}\nfwhm = {9, 9.5, 10, 10.5, 11}\n"
            "bbl = {1, 1, 1, 0, 1}\ndata ignore value = 7\nreflectance scale factor = 10000\n"
            "map info = {UTM, 1, 1, 500000, 5760000, 10, 10, 33, North, WGS-84, units=Meters}\n";
        writeCube(dir() / "cube.img", cube);
    }
};

TEST_F(Info, JsonTellsEverything) {
    makeCube();
    const Result result = ks({"info", "cube.img", "--json"});
    ASSERT_EQ(result.status, 0) << result.err;
    const json info = json::parse(result.out);
    EXPECT_EQ(info["width"], 4);
    EXPECT_EQ(info["height"], 3);
    EXPECT_EQ(info["bands"], 5);
    EXPECT_EQ(info["good_bands"], 4);
    EXPECT_EQ(info["layout"]["format"], "ENVI");
    EXPECT_EQ(info["layout"]["interleave"], "BIP");
    EXPECT_EQ(info["channel_types"], json({{"uint16", 5}}));
    EXPECT_EQ(info["levels"], json({"uncalibrated DN values", "reflectance"}));
    EXPECT_EQ(info["no_data"], 7.0);
    EXPECT_EQ(info["place"]["geotransform"], json({500000.0, 10.0, 0.0, 5760000.0, 0.0, -10.0}));
    ASSERT_EQ(info["band_table"].size(), 5U);
    EXPECT_EQ(info["band_table"][3]["wavelength_nm"], 750.0);
    EXPECT_EQ(info["band_table"][3]["fwhm_nm"], 10.5);
    EXPECT_EQ(info["band_table"][3]["quality"], "mask");
    EXPECT_EQ(info["band_table"][4]["quality"], "plot");
}

TEST_F(Info, TextShowsTheSame) {
    makeCube();
    const Result result = ks({"info", "cube.img"});
    ASSERT_EQ(result.status, 0) << result.err;
    for (const char* words : {"4 x 3 pixels, 5 bands", "BIP", "UInt16", "reflectance", "5 (4 good), 450.0 to 850.0 nm",
                              "750.000", "mask", "upper left 500000, 5760000"}) {
        EXPECT_TRUE(contains(result.out, words)) << words << " in\n" << result.out;
    }
}

TEST_F(Info, ManyBandsAreShortenedUnlessAsked) {
    Cube cube;
    cube.bands = 40;
    writeCube(dir() / "cube.img", cube);
    const Result brief = ks({"info", "cube.img"});
    EXPECT_TRUE(contains(brief.out, "32 more")) << brief.out;
    EXPECT_FALSE(contains(brief.out, " b20 "));
    EXPECT_TRUE(contains(brief.out, " b40 "));
    const Result whole = ks({"info", "cube.img", "--bands"});
    for (int band = 1; band <= 40; ++band) {
        EXPECT_TRUE(contains(whole.out, " b" + std::to_string(band) + " ")) << band;
    }
}

TEST_F(Info, ImageWithoutWavelengthsIsFine) {
    writeCube(dir() / "cube.img", Cube());
    const Result result = ks({"info", "cube.img", "--json"});
    ASSERT_EQ(result.status, 0) << result.err;
    const json info = json::parse(result.out);
    EXPECT_TRUE(info["band_table"][0]["wavelength_nm"].is_null());
    EXPECT_TRUE(info["no_data"].is_null());
    EXPECT_EQ(info["levels"].size(), 1U);
    EXPECT_TRUE(contains(ks({"info", "cube.img"}).out, "no wavelengths"));
}

TEST_F(Info, GuessedUnitIsRemarked) {
    Cube cube;
    cube.header = "wavelength = {0.45, 0.55, 0.65, 0.75, 0.85}\n";
    writeCube(dir() / "cube.img", cube);
    const json info = json::parse(ks({"info", "cube.img", "--json"}).out);
    EXPECT_NEAR(info["band_table"][0]["wavelength_nm"].get<double>(), 450, 0.01);
    EXPECT_FALSE(info["remarks"].empty());
}

TEST_F(Info, AFileWithoutAnImageSaysWhatItHolds) {
    makeCube();
    ASSERT_EQ(ks({"library", "take", "cube.img", "f.kslib", "--roi", "point xoff 0 yoff 0 size 1"}).status, 0);
    const Result library = ks({"info", "f.kslib"});
    EXPECT_EQ(library.status, 1);
    EXPECT_TRUE(
        contains(library.err, "f.kslib holds no bands, so there is no image; 'ks library list' shows its spectra."))
        << library.err;
    ASSERT_EQ(ks({"synth", "s.img", "--size", "2x2", "--bands", "3"}).status, 0);
    ASSERT_EQ(ks({"lut", "import", "--radiance", "s_truth/atmosphere.nc", "t.kslut"}).status, 0);
    const Result table = ks({"info", "t.kslut"});
    EXPECT_EQ(table.status, 1);
    EXPECT_TRUE(contains(table.err, "t.kslut holds no bands, so there is no image; 'ks lut info' shows its tables."))
        << table.err;
}

TEST_F(Info, ReadingMakesNoFiles) {
    makeCube();
    const auto before = files();
    ASSERT_EQ(ks({"info", "cube.img"}).status, 0);
    EXPECT_EQ(files(), before);
}

}  // namespace
}  // namespace clitest
