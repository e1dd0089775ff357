// Copies are read back here through the library and compared with what the test itself put into the source.
#include <cmath>
#include <fstream>
#include <map>

#include <nlohmann/json.hpp>

#include "clikit.hpp"
#include "image/bands.hpp"
#include "image/copycheck.hpp"
#include "image/dataset.hpp"
#include "image/entries.hpp"

namespace clitest {
namespace {

using kscli::DataSet;
using kscli::Entries;
using nlohmann::json;

using Map = std::map<std::string, std::string>;

Map mapOf(const Entries& entries) {
    Map map;
    for (const auto& [key, value] : entries.items()) map[key] = value;
    return map;
}

std::vector<float> samplesOf(const DataSet& dataSet, int level) {
    kscli::Window window(dataSet->nXSize, dataSet->nYSize, 1, 1, kscli::allBands(dataSet));
    window.place(0, 0);
    window.read(dataSet, level);
    return {window.samples(), window.samples() + window.sampleCount()};
}

class Convert : public CliTest {
protected:
    // A cube with everything that a header can say and that a copy could lose.
    void makeRichCube() const {
        Cube cube;
        cube.width = 7;
        cube.height = 6;
        cube.type = 2;
        cube.value = [](int x, int y, int b) { return x == 0 && y == 0 ? -32768 : 1000 * b + 100 * y + x - 900; };
        cube.header =
            "description = {a test of copies}\nsensor type = Unknown\nwavelength units = Nanometers\n"
            "wavelength = {399.3699951, 409.2099915, 675.6199951, 664.1400146, 2500.25}\n"
            "fwhm = {9.852108, 9.796976, 9.744104, 9.693492, 9.64514}\nbbl = {1, 1, 0, 1, 1}\n"
            "default bands = {3, 2, 1}\ndata ignore value = -32768\n"
            "data gain values = {1.23456789e-7, 0.0001, 0.0002, 0.0003, 0.000400000019}\n"
            "data offset values = {0.125, -1.5e-8, 0, 0.25, 3}\n"
            "acquisition time = 2022-07-24T10:20:30Z\n"
            "correction factors = {1.5, 2.5, 3.5, 4.5, 5.5}\nfavourite colour = blue = green\n"
            "map info = {UTM, 1, 1, 365055, 5807085, 30, 30, 33, North, WGS-84, units=Meters}\n";
        writeCube(dir() / "rich.img", cube);
        // What only a sidecar can hold.
        HostFile* const file = GDBOpen(path("rich.img").c_str(), "r+");
        ASSERT_NE(file, nullptr);
        Entries list = Entries::ofFile(file);
        list.set("SensorModelName", "Model = 7, \"quoted\"");
        list.set("SensorType", "pushbroom");
        list.set("NominalHeading", "123.456789");
        list.set("NominalLocation_Latitude", "52.1234567890123");
        list.set("NominalLocation_Longitude", "-13.5");
        list.set("FieldOfView_Left", "17.0625");
        list.set("Nobody knows", "what this means");
        list.storeInFile(file);
        Entries channel = Entries::ofChannel(file, 2);
        channel.set("Quality", "bmask");
        channel.set("Note", "second band");
        channel.storeInChannel(file, 2);
        char name[] = "the fourth";
        GDBChanDescIO(file, 1, 4, name);
        GDBWriteHistory(file, 1, -1, "made by hand");
        GDBClose(file);
    }

    void expectSameDescription(const DataSet& a, const DataSet& b) const {
        ASSERT_EQ(a.bandCount(), b.bandCount());
        ASSERT_EQ(a->nNumRadTrans, b->nNumRadTrans);
        EXPECT_STREQ(a->Sensor.szModelName, b->Sensor.szModelName);
        EXPECT_EQ(a->Sensor.eType, b->Sensor.eType);
        EXPECT_EQ(a->Sensor.fFOVLeft, b->Sensor.fFOVLeft);
        EXPECT_EQ(a->Mission.nYear, b->Mission.nYear);
        EXPECT_EQ(a->Mission.nMinute, b->Mission.nMinute);
        EXPECT_EQ(a->Mission.fHeading, b->Mission.fHeading);
        EXPECT_EQ(a->Mission.dLatitude, b->Mission.dLatitude);
        for (int band = 0; band < a.bandCount(); ++band) {
            EXPECT_EQ(a.wavelength(band), b.wavelength(band)) << band;
            EXPECT_EQ(a.fwhm(band), b.fwhm(band)) << band;
            EXPECT_STREQ(a.qualityName(band), b.qualityName(band)) << band;
            for (int k = 0; k < a->nNumRadTrans; ++k) {
                EXPECT_EQ(a->papRadTransSeq[k]->eRadQuant, b->papRadTransSeq[k]->eRadQuant);
                EXPECT_EQ(a->papRadTransSeq[k]->pafGains[band], b->papRadTransSeq[k]->pafGains[band]) << band;
                EXPECT_EQ(a->papRadTransSeq[k]->pafOffsets[band], b->papRadTransSeq[k]->pafOffsets[band]) << band;
            }
        }
    }

    static void expectEntriesKept(const Entries& source, const Entries& copy, const std::string& where) {
        const Map kept = mapOf(copy);
        for (const auto& [key, value] : mapOf(source)) {
            const auto found = kept.find(key);
            ASSERT_NE(found, kept.end()) << where << ": " << key;
            EXPECT_EQ(found->second, value) << where << ": " << key;
        }
    }
};

TEST_F(Convert, RoundTripThroughGeoTiffLosesNothing) {
    makeRichCube();
    const Result there = ks({"convert", "rich.img", "copy.tif", "--check"});
    ASSERT_EQ(there.status, 0) << there.err;
    const Result back = ks({"convert", "copy.tif", "back.img", "--check"});
    ASSERT_EQ(back.status, 0) << back.err;

    const DataSet source = DataSet::open(path("rich.img"));
    EXPECT_EQ(source->Mission.nYear, 2022);
    EXPECT_FLOAT_EQ(source->papRadTransSeq[0]->pafGains[0], 1.23456789e-7F);
    for (const char* name : {"copy.tif", "back.img"}) {
        SCOPED_TRACE(name);
        const DataSet copy = DataSet::open(path(name));
        expectSameDescription(source, copy);
        EXPECT_EQ(copy->pBandRefs[0].nChanType, 2);
        EXPECT_EQ(samplesOf(source, 0), samplesOf(copy, 0));
        EXPECT_EQ(samplesOf(source, 1), samplesOf(copy, 1));
        expectEntriesKept(Entries::ofFile(source.file()), Entries::ofFile(copy.file()), "file");
        for (int channel = 1; channel <= 5; ++channel) {
            expectEntriesKept(Entries::ofChannel(source.file(), channel), Entries::ofChannel(copy.file(), channel),
                              "channel " + std::to_string(channel));
            double noData = 0;
            EXPECT_EQ(KSHostGetNoData(copy.file(), channel, &noData), 1);
            EXPECT_EQ(noData, -32768);
        }
        char description[256] = {};
        GDBChanDescIO(copy.file(), 0, 4, description);
        EXPECT_STREQ(description, "the fourth");
        double transform[6] = {};
        EXPECT_EQ(KSHostGetGeoTransform(copy.file(), transform), 1);
        EXPECT_EQ(std::vector<double>(transform, transform + 6), std::vector<double>({365055, 30, 0, 5807085, 0, -30}));
        EXPECT_STRNE(KSHostGetCoordinateSystem(copy.file()), "");
    }
    const json history = json::parse(ks({"info", "back.img", "--json"}).out)["history"];
    EXPECT_EQ(history[0], "made by hand");
    EXPECT_EQ(history[1], "ks convert rich.img --type int16");
    EXPECT_EQ(history.size(), 3U);
    // Another program reads the wavelengths and the unknown entry from the header itself.
    const std::string header = read("back.hdr");
    EXPECT_TRUE(contains(header, "2500.25")) << header;
    EXPECT_TRUE(contains(header, "favourite colour")) << header;
}

// Other programs do not know the sidecar: what they are to see is in the GeoTIFF itself.
TEST_F(Convert, GeoTiffStandsOnItsOwnWithoutItsSidecar) {
    makeRichCube();
    ASSERT_EQ(ks({"convert", "rich.img", "copy.tif", "--window", "1,2,5,4"}).status, 0);
    ASSERT_TRUE(fs::remove(dir() / "copy.tif.ks"));
    const DataSet source = DataSet::open(path("rich.img"));
    const DataSet copy = DataSet::open(path("copy.tif"));
    double transform[6] = {};
    ASSERT_EQ(KSHostGetGeoTransform(copy.file(), transform), 1);
    EXPECT_EQ(std::vector<double>(transform, transform + 6),
              std::vector<double>({365055 + 30, 30, 0, 5807085 - 60, 0, -30}));
    EXPECT_TRUE(contains(KSHostGetCoordinateSystem(copy.file()), "UTM zone 33N"));
    for (int band = 0; band < 5; ++band) {
        double noData = 0;
        ASSERT_EQ(KSHostGetNoData(copy.file(), band + 1, &noData), 1) << band;
        EXPECT_EQ(noData, -32768) << band;
        EXPECT_EQ(copy.wavelength(band), source.wavelength(band)) << band;
        EXPECT_EQ(copy.fwhm(band), source.fwhm(band)) << band;
        EXPECT_EQ(copy.isGood(band), source.isGood(band)) << band;
        EXPECT_EQ(copy->papRadTransSeq[0]->pafGains[band], source->papRadTransSeq[0]->pafGains[band]) << band;
    }
    char name[256] = {};
    GDBChanDescIO(copy.file(), 0, 4, name);
    EXPECT_STREQ(name, "the fourth");
}

TEST_F(Convert, SelectedBandsTakeTheirEntriesAlong) {
    makeRichCube();
    ASSERT_EQ(ks({"convert", "rich.img", "part.img", "--bands", "b5,b2", "--check"}).status, 0);
    const DataSet source = DataSet::open(path("rich.img"));
    const DataSet part = DataSet::open(path("part.img"));
    ASSERT_EQ(part.bandCount(), 2);
    EXPECT_EQ(part.wavelength(0), 2500.25);
    EXPECT_STREQ(part.qualityName(1), "bmask");
    EXPECT_EQ(part->papRadTransSeq[0]->pafGains[0], source->papRadTransSeq[0]->pafGains[4]);
    EXPECT_EQ(part->papRadTransSeq[0]->pafOffsets[1], source->papRadTransSeq[0]->pafOffsets[1]);
    EXPECT_STREQ(Entries::ofChannel(part.file(), 2).find("Note"), "second band");
    EXPECT_STREQ(Entries::ofChannel(part.file(), 1).find("ENVI:correction factors"), "5.5");
    EXPECT_EQ(Entries::ofFile(part.file()).find("ENVI:default bands"), nullptr);  // band 3 and 1 are gone
    const std::vector<float> samples = samplesOf(part, 0);
    EXPECT_EQ(samples[2 * (2 * 7 + 3)], 4000 + 200 + 3 - 900);
    EXPECT_EQ(samples[2 * (2 * 7 + 3) + 1], 1000 + 200 + 3 - 900);
}

TEST_F(Convert, DefaultBandsAreRenumbered) {
    makeRichCube();
    ASSERT_EQ(ks({"convert", "rich.img", "part.img", "--bands", "b1-b3", "--check"}).status, 0);
    ASSERT_EQ(ks({"convert", "rich.img", "swapped.img", "--bands", "b3,b1,b5,b2", "--check"}).status, 0);
    int channels[3] = {};
    const DataSet part = DataSet::open(path("part.img"));
    ASSERT_EQ(KSHostGetDefaultChannels(part.file(), channels), 3);
    EXPECT_EQ(std::vector<int>(channels, channels + 3), std::vector<int>({3, 2, 1}));
    const DataSet swapped = DataSet::open(path("swapped.img"));
    ASSERT_EQ(KSHostGetDefaultChannels(swapped.file(), channels), 3);
    EXPECT_EQ(std::vector<int>(channels, channels + 3), std::vector<int>({1, 4, 2}));
}

TEST_F(Convert, WavelengthRangesAndGoodBands) {
    makeRichCube();
    ASSERT_EQ(ks({"convert", "rich.img", "range.img", "--bands", "400-700"}).status, 0);
    EXPECT_EQ(DataSet::open(path("range.img")).bandCount(), 3);
    ASSERT_EQ(ks({"convert", "rich.img", "good.img", "--bands", "good"}).status, 0);
    EXPECT_EQ(DataSet::open(path("good.img")).bandCount(), 4);
    ASSERT_EQ(ks({"convert", "rich.img", "near.img", "--bands", "2490nm,405"}).status, 0);
    EXPECT_EQ(DataSet::open(path("near.img")).wavelength(0), 2500.25);
}

TEST_F(Convert, WindowAndIntervalMoveTheOrigin) {
    makeRichCube();
    const Result result = ks({"convert", "rich.img", "part.tif", "--window", "1,2,5,4", "--every", "2", "--check"});
    ASSERT_EQ(result.status, 0) << result.err;
    const DataSet part = DataSet::open(path("part.tif"));
    ASSERT_EQ(part->nXSize, 2);
    ASSERT_EQ(part->nYSize, 2);
    const std::vector<float> samples = samplesOf(part, 0);
    const auto expected = [](int x, int y, int b) { return 1000 * b + 100 * y + x - 900; };
    EXPECT_EQ(samples[0], expected(1, 2, 0));
    EXPECT_EQ(samples[5 * 3 + 4], expected(3, 4, 4));
    double transform[6] = {};
    ASSERT_EQ(KSHostGetGeoTransform(part.file(), transform), 1);
    EXPECT_EQ(std::vector<double>(transform, transform + 6),
              std::vector<double>({365055 + 30, 60, 0, 5807085 - 60, 0, -60}));
}

TEST_F(Convert, LevelBecomesTheStoredValues) {
    makeRichCube();
    const Result result = ks({"convert", "rich.img", "radiance.img", "--level", "1", "--check"});
    ASSERT_EQ(result.status, 0) << result.err;
    const DataSet source = DataSet::open(path("rich.img"));
    const DataSet copy = DataSet::open(path("radiance.img"));
    EXPECT_EQ(copy->nNumRadTrans, 0);
    EXPECT_EQ(copy->pBandRefs[0].nChanType, 4);
    const std::vector<float> expected = samplesOf(source, 1);
    const std::vector<float> found = samplesOf(copy, 0);
    ASSERT_EQ(expected.size(), found.size());
    for (std::size_t i = 0; i < found.size(); ++i) {
        // The first pixel holds no data, which is not calibrated.
        EXPECT_EQ(found[i], i < 5 ? -32768.0F : expected[i]) << i;
    }
    EXPECT_EQ(Entries::ofChannel(copy.file(), 1).find("RadiometricTrans_Gain_1"), nullptr);
}

TEST_F(Convert, LaterTransformsAreRenumbered) {
    makeRichCube();
    HostFile* const file = GDBOpen(path("rich.img").c_str(), "r+");
    Entries list = Entries::ofFile(file);
    list.set("NumberOfRadTrans", "2");
    list.storeInFile(file);
    for (int channel = 1; channel <= 5; ++channel) {
        Entries entries = Entries::ofChannel(file, channel);
        entries.set("RadiometricTrans_Quantity_2", "refl");
        entries.set("RadiometricTrans_Gain_2", "0.123456789");
        entries.set("RadiometricTrans_Offset_2", "-0.5");
        entries.storeInChannel(file, channel);
    }
    GDBClose(file);
    ASSERT_EQ(ks({"convert", "rich.img", "copy.tif", "--level", "1", "--check"}).status, 0);
    const DataSet copy = DataSet::open(path("copy.tif"));
    ASSERT_EQ(copy->nNumRadTrans, 1);
    EXPECT_EQ(copy->papRadTransSeq[0]->eRadQuant, KS_RQ_REFL);
    EXPECT_EQ(copy->papRadTransSeq[0]->pafGains[4], 0.123456789F);
    EXPECT_EQ(copy->papRadTransSeq[0]->pafOffsets[0], -0.5F);
}

TEST_F(Convert, TypesRoundAndClampWithAWarning) {
    Cube cube;
    cube.type = 4;
    cube.width = 6;
    cube.height = cube.bands = 1;
    cube.value = [](int x, int, int) {
        const double values[] = {-3.0, 1.4, 1.6, 254.0, 70000.0, std::nan("")};
        return values[x];
    };
    writeCube(dir() / "cube.img", cube);
    const std::vector<std::pair<std::string, std::vector<float>>> cases = {
        {"uint8", {0, 1, 2, 254, 255, 0}}, {"int16", {-3, 1, 2, 254, 32767, 0}}, {"uint16", {0, 1, 2, 254, 65535, 0}}};
    for (const auto& [type, expected] : cases) {
        const Result result = ks({"convert", "cube.img", type + ".tif", "--type", type, "--check"});
        ASSERT_EQ(result.status, 0) << result.err;
        EXPECT_TRUE(contains(result.err, "warning")) << result.err;
        EXPECT_EQ(samplesOf(DataSet::open(path(type + ".tif")), 0), expected) << type;
    }
}

TEST_F(Convert, IntegersPassThroughFloatUnchanged) {
    Cube cube;
    cube.type = 12;
    cube.width = 256;
    cube.height = 256;
    cube.bands = 1;
    cube.value = [](int x, int y, int) { return 256 * y + x; };
    writeCube(dir() / "cube.img", cube);
    ASSERT_EQ(ks({"convert", "cube.img", "float.tif", "--type", "float32", "--check"}).status, 0);
    ASSERT_EQ(ks({"convert", "float.tif", "back.img", "--type", "uint16", "--check"}).status, 0);
    EXPECT_EQ(read("back.img"), read("cube.img"));
}

TEST_F(Convert, NoDataThatDoesNotFitIsTold) {
    makeRichCube();
    const Result result = ks({"convert", "rich.img", "bytes.tif", "--type", "uint8", "--check"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.err, "no-data value -32768 does not fit uint8")) << result.err;
    double value = 0;
    EXPECT_EQ(KSHostGetNoData(DataSet::open(path("bytes.tif")).file(), 1, &value), 0);
}

TEST_F(Convert, OnePixel) {
    Cube cube;
    cube.width = cube.height = cube.bands = 1;
    cube.value = [](int, int, int) { return 77; };
    writeCube(dir() / "cube.img", cube);
    ASSERT_EQ(ks({"convert", "cube.img", "copy.tif", "--check", "--every", "5"}).status, 0);
    EXPECT_EQ(samplesOf(DataSet::open(path("copy.tif")), 0), std::vector<float>({77}));
}

TEST_F(Convert, JsonReportsTheCheck) {
    makeRichCube();
    const Result result = ks({"convert", "rich.img", "copy.img", "--check", "--json"});
    ASSERT_EQ(result.status, 0) << result.err;
    const json report = json::parse(result.out);
    EXPECT_EQ(report["type"], "int16");
    EXPECT_EQ(report["check"]["passed"], true);
    EXPECT_EQ(report["check"]["samples"], 7 * 6 * 5);
    EXPECT_EQ(report["check"]["differing"], 0);
}

TEST_F(Convert, CheckFindsOneWrongSampleAndOneLostEntry) {
    makeRichCube();
    ASSERT_EQ(ks({"convert", "rich.img", "copy.img"}).status, 0);
    const DataSet source = DataSet::open(path("rich.img"));
    kscli::CopyPlan plan;
    plan.bands = kscli::allBands(source);
    plan.area = kscli::wholeImage(source);
    plan.window = {0, 0, 7, 6};
    plan.sampleType = kscli::kInt16;
    EXPECT_TRUE(kscli::checkCopy(source, plan, path("copy.img")).passed());

    HostFile* const file = GDBOpen(path("copy.img").c_str(), "r+");
    Entries list = Entries::ofFile(file);
    list.remove("Nobody knows");
    list.storeInFile(file);
    GDBClose(file);
    std::fstream stream(path("copy.img"), std::ios::binary | std::ios::in | std::ios::out);
    stream.seekp(100);
    stream.put(1).put(2);
    stream.close();
    const kscli::CopyCheck check = kscli::checkCopy(source, plan, path("copy.img"));
    EXPECT_FALSE(check.passed());
    EXPECT_EQ(check.differing, 1U);
    ASSERT_EQ(check.problems.size(), 2U) << testing::PrintToString(check.problems);
    EXPECT_TRUE(contains(check.problems[0], "Nobody knows"));
}

TEST_F(Convert, SourceAndForeignHeadersAreNeverTouched) {
    makeRichCube();
    const std::string header = read("rich.hdr");
    const std::string samples = read("rich.img");
    const auto before = files();
    const std::vector<std::pair<std::string, std::string>> cases = {{"rich.img", "onto itself"},
                                                                    {"./rich.img", "onto itself"},
                                                                    {"rich.bip", "header of the source"},
                                                                    {"rich.hdr", "is the name of a header"},
                                                                    {"rich.png", "GeoTIFF (.tif) or ENVI"}};
    for (const auto& [output, words] : cases) {
        const Result result = ks({"convert", "rich.img", output, "--force"});
        EXPECT_EQ(result.status, 1) << output;
        EXPECT_TRUE(contains(result.err, words)) << result.err;
    }
    writeCube(dir() / "other.dat", Cube());
    const std::string otherHeader = read("other.hdr");
    const Result clash = ks({"convert", "rich.img", "other.img", "--force"});
    EXPECT_EQ(clash.status, 1);
    EXPECT_TRUE(contains(clash.err, "other.hdr exists")) << clash.err;
    EXPECT_EQ(read("other.hdr"), otherHeader);
    EXPECT_EQ(read("rich.hdr"), header);
    EXPECT_EQ(read("rich.img"), samples);
    EXPECT_EQ(files().size(), before.size() + 2);
}

TEST_F(Convert, ForcedCopyDoesNotInheritTheOldSidecar) {
    makeRichCube();
    Cube plain;
    plain.width = 7;
    plain.height = 6;
    writeCube(dir() / "plain.img", plain);
    ASSERT_EQ(ks({"convert", "rich.img", "copy.img"}).status, 0);
    ASSERT_EQ(ks({"convert", "plain.img", "copy.img", "--force", "--check"}).status, 0);
    const DataSet copy = DataSet::open(path("copy.img"));
    EXPECT_EQ(copy->Sensor.szModelName, nullptr);
    EXPECT_FALSE(copy.hasWavelengths());
}

TEST_F(Convert, UnusableOptionsAreExplained) {
    makeRichCube();
    const auto before = files();
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--window", "0,0,8,6"}, "7 x 6 pixels"}, {{"--window", "7,0,1,1"}, "7 x 6 pixels"},
        {{"--window", "0,0,0,1"}, "7 x 6 pixels"}, {{"--window", "0,0,2147483647,1"}, "7 x 6 pixels"},
        {{"--level", "2"}, "levels 0 to 1"},       {{"--bands", "b6"}, "b1 to b5"},
        {{"--bands", "b3-b2"}, "backwards"},       {{"--bands", "1000-2000"}, "no band between"},
        {{"--bands", "3000"}, "no band near"},     {{"--bands", "b1,,b2"}, "does not name a band"},
        {{"--bands", ""}, "does not name a band"}};
    for (const auto& [options, words] : cases) {
        std::vector<std::string> arguments = {"convert", "rich.img", "out.tif"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Result result = ks(arguments);
        EXPECT_EQ(result.status, 1) << testing::PrintToString(options);
        EXPECT_TRUE(contains(result.err, words)) << result.err;
    }
    EXPECT_EQ(files(), before);
}

TEST_F(Convert, SmallMemoryGivesTheSameCopy) {
    Cube cube;
    cube.width = 50;
    cube.height = 37;
    writeCube(dir() / "cube.img", cube);
    ASSERT_EQ(ks({"convert", "cube.img", "large.img"}).status, 0);
    ASSERT_EQ(setenv("KSHOST_MEMORY", "10000", 1), 0);  // a few lines at a time
    const Result small = ks({"convert", "cube.img", "small.img", "--check"});
    unsetenv("KSHOST_MEMORY");
    ASSERT_EQ(small.status, 0) << small.err;
    EXPECT_EQ(read("small.img"), read("large.img"));
    EXPECT_EQ(read("small.img"), read("cube.img"));
}

}  // namespace
}  // namespace clitest
