// What becomes of foreign metadata: every source, every unit, and that nothing unusable stops a file from being opened.
#include <algorithm>
#include <cmath>

#include "enviheader.hpp"
#include "hostkit.hpp"
#include "import.hpp"

using kshost::ImportedMetadata;
using kshost::importMetadata;
using kshost::parseTime;
using kshost::RasterFacts;
using kshost::StringList;
using Texts = std::vector<std::string>;

namespace {

RasterFacts enviImage(int channels, const std::string& header) {
    RasterFacts facts;
    facts.width = facts.height = 1;
    facts.channels = channels;
    facts.driver = "ENVI";
    facts.headerText = "ENVI\n" + header;
    facts.bandItems.resize(static_cast<size_t>(channels));
    facts.bandNames.resize(static_cast<size_t>(channels));
    return facts;
}

std::string valueOf(const StringList& list, const std::string& key) {
    const char* value = list.find(key);
    return value != nullptr ? value : "(absent)";
}

Texts channelValues(const ImportedMetadata& metadata, const std::string& key) {
    Texts values;
    for (const StringList& list : metadata.channels) values.push_back(valueOf(list, key));
    return values;
}

bool remarks(const ImportedMetadata& metadata, const std::string& part) {
    for (const std::string& remark : metadata.remarks) {
        if (remark.find(part) != std::string::npos) return true;
    }
    return false;
}

const std::string kNone = "(absent)";

}  // namespace

// ---- wavelengths ----

TEST(ImportWavelengths, BecomeGaussianProfilesWithTheHeadersOwnDigits) {
    const ImportedMetadata metadata = importMetadata(enviImage(
        2, "wavelength units = Nanometers\nwavelength = {399.369995, 356.21539889999997}\nfwhm = {9.8, 10}\n"));
    EXPECT_EQ(channelValues(metadata, "ResponseProfile_Type"), (Texts{"gaussian", "gaussian"}));
    EXPECT_EQ(channelValues(metadata, "ResponseProfile_Centre"), (Texts{"399.369995", "356.21539889999997"}));
    EXPECT_EQ(channelValues(metadata, "ResponseProfile_FWHM"), (Texts{"9.8", "10"}));
    EXPECT_TRUE(metadata.remarks.empty());
}

TEST(ImportWavelengths, WithoutWidthsTheProfileHasNone) {
    const ImportedMetadata metadata = importMetadata(enviImage(1, "wavelength units = nm\nwavelength = {500}\n"));
    EXPECT_EQ(valueOf(metadata.channels[0], "ResponseProfile_Type"), "gaussian");
    EXPECT_EQ(valueOf(metadata.channels[0], "ResponseProfile_FWHM"), kNone);
}

class MicrometreSpellings : public testing::TestWithParam<const char*> {};
TEST_P(MicrometreSpellings, AreConvertedToNanometres) {
    const std::string unit = GetParam();
    const ImportedMetadata metadata =
        importMetadata(enviImage(1, "wavelength units = " + unit + "\nwavelength = {0.41824}\nfwhm = {0.00699561}\n"));
    EXPECT_EQ(valueOf(metadata.channels[0], "ResponseProfile_Centre"), "418.24");
    EXPECT_EQ(valueOf(metadata.channels[0], "ResponseProfile_FWHM"), "6.99561");
    EXPECT_TRUE(metadata.remarks.empty());
}
INSTANTIATE_TEST_SUITE_P(Units, MicrometreSpellings,
                         testing::Values("um", "UM", "\u00b5m", "\u03bcm", "\xb5m", "Micrometers", "micrometers",
                                         "microns"));

class NanometreSpellings : public testing::TestWithParam<const char*> {};
TEST_P(NanometreSpellings, StayAsTheyAre) {
    const ImportedMetadata metadata =
        importMetadata(enviImage(1, std::string("wavelength units = ") + GetParam() + "\nwavelength = {418.240}\n"));
    EXPECT_EQ(valueOf(metadata.channels[0], "ResponseProfile_Centre"), "418.240");
    EXPECT_TRUE(metadata.remarks.empty());
}
INSTANTIATE_TEST_SUITE_P(Units, NanometreSpellings,
                         testing::Values("nm", "NM", "Nanometers", "nanometers", "Nanometres"));

TEST(ImportWavelengths, WavenumbersAreConvertedWithTheirWidths) {
    const ImportedMetadata metadata =
        importMetadata(enviImage(1, "wavelength units = Wavenumber\nwavelength = {10000}\nfwhm = {10}\n"));
    EXPECT_EQ(valueOf(metadata.channels[0], "ResponseProfile_Centre"), "1000");
    // 1e7/9995 - 1e7/10005
    EXPECT_NEAR(std::stod(valueOf(metadata.channels[0], "ResponseProfile_FWHM")), 1.00000025, 1e-8);
}

TEST(ImportWavelengths, AMissingUnitIsGuessedOnceAndSaidOnce) {
    const ImportedMetadata small = importMetadata(enviImage(2, "wavelength = {0.4, 2.5}\nfwhm = {0.01, 0.01}\n"));
    EXPECT_EQ(channelValues(small, "ResponseProfile_Centre"), (Texts{"400", "2500"}));
    EXPECT_EQ(channelValues(small, "ResponseProfile_FWHM"), (Texts{"10", "10"}));
    ASSERT_EQ(small.remarks.size(), 1U);
    EXPECT_TRUE(remarks(small, "micrometres"));
    const ImportedMetadata large =
        importMetadata(enviImage(2, "wavelength = {365.9, 2497}\nwavelength units = Unknown\n"));
    EXPECT_EQ(channelValues(large, "ResponseProfile_Centre"), (Texts{"365.9", "2497"}));
    ASSERT_EQ(large.remarks.size(), 1U);
    EXPECT_TRUE(remarks(large, "nanometres"));
}

TEST(ImportWavelengths, AUnitThatIsNoLengthMakesThemUnusable) {
    const ImportedMetadata metadata = importMetadata(enviImage(1, "wavelength units = Index\nwavelength = {1}\n"));
    EXPECT_TRUE(metadata.channels[0].empty());
    EXPECT_TRUE(remarks(metadata, "Index"));
}

TEST(ImportWavelengths, AListOfAnotherLengthIsIgnored) {
    for (const char* list : {"{400, 410}", "{400, 410, 420, 430}", "{}", "400"}) {
        const ImportedMetadata metadata =
            importMetadata(enviImage(3, std::string("wavelength units = nm\nwavelength = ") + list + "\n"));
        for (const StringList& channel : metadata.channels) EXPECT_TRUE(channel.empty()) << list;
        EXPECT_EQ(metadata.remarks.size(), 1U) << list;
    }
}

TEST(ImportWavelengths, UnusableValuesAreIgnoredOneByOne) {
    const ImportedMetadata metadata = importMetadata(enviImage(
        6, "wavelength units = nm\nwavelength = {400, nan, -3, blue, 1e400, 450.5}\nfwhm = {1, 2, 3, 4, 5, inf}\n"));
    EXPECT_EQ(channelValues(metadata, "ResponseProfile_Centre"), (Texts{"400", kNone, kNone, kNone, kNone, "450.5"}));
    EXPECT_EQ(channelValues(metadata, "ResponseProfile_Type"),
              (Texts{"gaussian", kNone, kNone, kNone, kNone, "gaussian"}));
    EXPECT_EQ(valueOf(metadata.channels[5], "ResponseProfile_FWHM"), kNone);
    EXPECT_TRUE(remarks(metadata, "4 of 6"));
    EXPECT_TRUE(remarks(metadata, "1 of 6"));
}

TEST(ImportWavelengths, NeedNotBeInOrder) {
    const ImportedMetadata metadata =
        importMetadata(enviImage(3, "wavelength units = nm\nwavelength = {990, 900, 1000}\n"));
    EXPECT_EQ(channelValues(metadata, "ResponseProfile_Centre"), (Texts{"990", "900", "1000"}));
    EXPECT_TRUE(metadata.remarks.empty());
}

// ---- bad bands ----

TEST(ImportBadBands, ZeroMeansMaskAlsoAsAFloat) {
    const ImportedMetadata metadata = importMetadata(enviImage(4, "bbl = {0.0, 1.0, 0, 1}\n"));
    EXPECT_EQ(channelValues(metadata, "Quality"), (Texts{"mask", kNone, "mask", kNone}));
    EXPECT_TRUE(metadata.remarks.empty());
}

TEST(ImportBadBands, WhatIsNoNumberCountsAsGoodAndIsSaid) {
    const ImportedMetadata metadata = importMetadata(enviImage(2, "bbl = {bad, 0}\n"));
    EXPECT_EQ(channelValues(metadata, "Quality"), (Texts{kNone, "mask"}));
    EXPECT_TRUE(remarks(metadata, "bbl"));
}

// ---- transforms ----

TEST(ImportTransforms, GainsAndOffsetsBecomeRadiance) {
    const ImportedMetadata metadata =
        importMetadata(enviImage(2, "data gain values = {0.01, 0.0000123456789}\ndata offset values = {-1.5, 0}\n"));
    EXPECT_EQ(valueOf(metadata.file, "NumberOfRadTrans"), "1");
    EXPECT_EQ(channelValues(metadata, "RadiometricTrans_Quantity_1"), (Texts{"apprad", "apprad"}));
    EXPECT_EQ(channelValues(metadata, "RadiometricTrans_Gain_1"), (Texts{"0.01", "0.0000123456789"}));
    EXPECT_EQ(channelValues(metadata, "RadiometricTrans_Offset_1"), (Texts{"-1.5", "0"}));
    EXPECT_TRUE(metadata.remarks.empty());
}

TEST(ImportTransforms, AReflectanceFactorBecomesItsReciprocal) {
    const ImportedMetadata metadata = importMetadata(enviImage(2, "reflectance scale factor = 10000.000000\n"));
    EXPECT_EQ(valueOf(metadata.file, "NumberOfRadTrans"), "1");
    EXPECT_EQ(channelValues(metadata, "RadiometricTrans_Quantity_1"), (Texts{"refl", "refl"}));
    EXPECT_EQ(channelValues(metadata, "RadiometricTrans_Gain_1"), (Texts{"0.0001", "0.0001"}));
}

TEST(ImportTransforms, GainsThatEqualTheFactorAreReflectance) {
    const ImportedMetadata metadata = importMetadata(
        enviImage(2, "data gain values = {0.000100000000000000005, 0.0001}\nreflectance scale factor = 10000\n"));
    EXPECT_EQ(valueOf(metadata.file, "NumberOfRadTrans"), "1");
    EXPECT_EQ(channelValues(metadata, "RadiometricTrans_Quantity_1"), (Texts{"refl", "refl"}));
    EXPECT_TRUE(metadata.remarks.empty());
}

TEST(ImportTransforms, OfGainsAndAnotherFactorTheGainsCount) {
    const ImportedMetadata metadata =
        importMetadata(enviImage(2, "data gain values = {0.01, 0.02}\nreflectance scale factor = 10000\n"));
    EXPECT_EQ(channelValues(metadata, "RadiometricTrans_Quantity_1"), (Texts{"apprad", "apprad"}));
    EXPECT_EQ(channelValues(metadata, "RadiometricTrans_Gain_1"), (Texts{"0.01", "0.02"}));
    EXPECT_TRUE(remarks(metadata, "reflectance scale factor"));
}

TEST(ImportTransforms, GainsThatChangeNothingLeaveTheFactorItsSay) {
    const ImportedMetadata metadata = importMetadata(
        enviImage(2, "data gain values = {1, 1}\ndata offset values = {0, 0}\nreflectance scale factor = 100\n"));
    EXPECT_EQ(channelValues(metadata, "RadiometricTrans_Quantity_1"), (Texts{"refl", "refl"}));
    EXPECT_EQ(channelValues(metadata, "RadiometricTrans_Gain_1"), (Texts{"0.01", "0.01"}));
    EXPECT_EQ(valueOf(importMetadata(enviImage(1, "data gain values = {1}\n")).file, "NumberOfRadTrans"), kNone);
}

TEST(ImportTransforms, UnusableFactorsAndGainsAreIgnored) {
    for (const char* factor : {"0", "-1", "nan", "many"}) {
        const ImportedMetadata metadata =
            importMetadata(enviImage(1, std::string("reflectance scale factor = ") + factor + "\n"));
        EXPECT_EQ(valueOf(metadata.file, "NumberOfRadTrans"), kNone) << factor;
        EXPECT_EQ(metadata.remarks.size(), 1U) << factor;
    }
    const ImportedMetadata metadata = importMetadata(enviImage(2, "data gain values = {0, 0.5}\n"));
    EXPECT_EQ(channelValues(metadata, "RadiometricTrans_Gain_1"), (Texts{"1", "0.5"}));
    EXPECT_TRUE(remarks(metadata, "1 of 2"));
}

// ---- sensor, time, the rest of a header ----

TEST(ImportHeader, SensorTypeIsTheModelUnlessUnknown) {
    EXPECT_EQ(valueOf(importMetadata(enviImage(1, "sensor type = HyMap\n")).file, "SensorModelName"), "HyMap");
    EXPECT_EQ(valueOf(importMetadata(enviImage(1, "sensor type = Unknown\n")).file, "SensorModelName"), kNone);
    EXPECT_EQ(valueOf(importMetadata(enviImage(1, "sensor type =\n")).file, "SensorModelName"), kNone);
}

TEST(ImportHeader, AcquisitionTimeBecomesTheNominalTime) {
    const ImportedMetadata metadata = importMetadata(enviImage(1, "acquisition time = 2009-08-07T09:05:40.5Z\n"));
    EXPECT_EQ(valueOf(metadata.file, "NominalTime_Year"), "2009");
    EXPECT_EQ(valueOf(metadata.file, "NominalTime_Month"), "8");
    EXPECT_EQ(valueOf(metadata.file, "NominalTime_Day"), "7");
    EXPECT_EQ(valueOf(metadata.file, "NominalTime_Hour"), "9");
    EXPECT_EQ(valueOf(metadata.file, "NominalTime_Minute"), "5");
    EXPECT_EQ(valueOf(metadata.file, "ENVI:acquisition time"), "2009-08-07T09:05:40.5Z");
    const ImportedMetadata odd = importMetadata(enviImage(1, "acquisition time = yesterday\n"));
    EXPECT_EQ(valueOf(odd.file, "NominalTime_Year"), kNone);
    EXPECT_EQ(valueOf(odd.file, "ENVI:acquisition time"), "yesterday");
    EXPECT_EQ(odd.remarks.size(), 1U);
}

TEST(ImportHeader, UnknownKeysAreCarriedAndListsOfAllBandsFollowTheirBands) {
    const ImportedMetadata metadata = importMetadata(enviImage(
        3,
        "samples = 1\nDescription = {a, b, c}\ndefault bands = {3, 2, 1}\nsmoothing factors = {1.0 , 2.0 , 3.0 }\n"
        "other list = {1, 2}\ny start = 4\nband names = {red, green, blue}\n"));
    EXPECT_EQ(metadata.file.entries(), (Texts{"ENVI:description={a, b, c}", "ENVI:default bands={3, 2, 1}",
                                              "ENVI:other list={1, 2}", "ENVI:y start=4"}));
    EXPECT_EQ(channelValues(metadata, "ENVI:smoothing factors"), (Texts{"1.0", "2.0", "3.0"}));
    EXPECT_EQ(channelValues(metadata, "ENVI:band names"), (Texts{"red", "green", "blue"}));
    EXPECT_TRUE(metadata.remarks.empty());
}

TEST(ImportHeader, BandNamesOfAnotherNumberAreIgnored) {
    const ImportedMetadata metadata = importMetadata(enviImage(2, "band names = {a, b, c}\n"));
    EXPECT_EQ(channelValues(metadata, "ENVI:band names"), (Texts{kNone, kNone}));
    EXPECT_TRUE(metadata.file.empty());
    EXPECT_TRUE(remarks(metadata, "band names"));
}

TEST(ImportHeader, GdalsCopiesOfTheHeaderAreNotMetadataOfTheirOwn) {
    RasterFacts facts = enviImage(2, "wavelength units = nm\nwavelength = {400, 410}\n");
    facts.fileItems = {{"Band_1", "400 nm"}, {"Band_2", "410 nm"}, {"wavelength_units", "nm"}, {"note", "kept"}};
    facts.bandItems = {{{"wavelength", "400"}, {"wavelength_units", "nm"}}, {{"wavelength", "410"}}};
    const ImportedMetadata metadata = importMetadata(facts);
    EXPECT_EQ(metadata.file.entries(), Texts{"note=kept"});
    EXPECT_EQ(metadata.channels[0].entries(), (Texts{"ResponseProfile_Type=gaussian", "ResponseProfile_Centre=400"}));
    EXPECT_TRUE(metadata.remarks.empty());
}

TEST(ImportHeader, AStaleAuxXmlIsSaidAndTheHeaderCounts) {
    RasterFacts facts = enviImage(2, "wavelength units = nm\nwavelength = {400, 410}\n");
    facts.bandItems = {{{"wavelength", "400"}}, {{"wavelength", "900"}}};
    const ImportedMetadata metadata = importMetadata(facts);
    EXPECT_EQ(channelValues(metadata, "ResponseProfile_Centre"), (Texts{"400", "410"}));
    EXPECT_TRUE(remarks(metadata, ".aux.xml"));
}

// ---- other formats ----

TEST(ImportGeoTiff, BandItemsBecomeProfilesAndQualities) {
    RasterFacts facts;
    facts.channels = 2;
    facts.driver = "GTiff";
    facts.fileItems = {{"AREA_OR_POINT", "Area"}, {"start_time", "2022-07-24T10:45:26"}};
    facts.bandItems = {
        {{"bbl", "1"}, {"fwhm", "6.99561"}, {"wavelength", "418.24"}, {"wavelength_units", "Nanometers"}},
        {{"bbl", "0"},
         {"fwhm", "6.6675"},
         {"wavelength", "423.874"},
         {"wavelength_units", "Nanometers"},
         {"note", "x"}}};
    facts.scales = {0.0001, 0.0001};
    facts.offsets = {0, 0};
    const ImportedMetadata metadata = importMetadata(facts);
    EXPECT_EQ(channelValues(metadata, "ResponseProfile_Centre"), (Texts{"418.24", "423.874"}));
    EXPECT_EQ(channelValues(metadata, "ResponseProfile_FWHM"), (Texts{"6.99561", "6.6675"}));
    EXPECT_EQ(channelValues(metadata, "Quality"), (Texts{kNone, "mask"}));
    EXPECT_EQ(channelValues(metadata, "RadiometricTrans_Gain_1"), (Texts{"0.0001", "0.0001"}));
    EXPECT_EQ(channelValues(metadata, "RadiometricTrans_Quantity_1"), (Texts{"adj_no_units", "adj_no_units"}));
    EXPECT_EQ(channelValues(metadata, "note"), (Texts{kNone, "x"}));
    EXPECT_EQ(channelValues(metadata, "wavelength"), (Texts{kNone, kNone}));
    EXPECT_EQ(valueOf(metadata.file, "NominalTime_Hour"), "10");
    EXPECT_EQ(valueOf(metadata.file, "AREA_OR_POINT"), "Area");
    EXPECT_EQ(metadata.remarks.size(), 1U);  // the quantity of the scale
}

TEST(ImportGeoTiff, NeutralScalesAreNoTransform) {
    RasterFacts facts;
    facts.channels = 1;
    facts.driver = "GTiff";
    facts.scales = {1.0};
    facts.offsets = {0.0};
    EXPECT_TRUE(importMetadata(facts).file.empty());
}

TEST(ImportGeoTiff, KeysOfTheLibraryInTheFileCountMore) {
    RasterFacts facts;
    facts.channels = 1;
    facts.driver = "GTiff";
    facts.bandItems = {{{"wavelength", "418.24"}, {"wavelength_units", "nm"}, {"ResponseProfile_Type", "box"}}};
    EXPECT_EQ(importMetadata(facts).channels[0].entries(),
              (Texts{"ResponseProfile_Type=box", "ResponseProfile_Centre=418.24"}));
}

TEST(ImportNetCdf, BandArraysBecomeProfilesAndQualities) {
    RasterFacts facts;
    facts.channels = 3;
    facts.driver = "netCDF";
    facts.wavelengths = {381.00558, 388.4092, 2493.0};
    facts.wavelengthUnit = "nm";
    facts.fwhm = {8.415, 8.415, 8.807};
    facts.good = {true, false, true};
    facts.fileItems = {{"NC_GLOBAL#instrument", "EMIT"}, {"NC_GLOBAL#time_coverage_start", "2022-08-15T05:29:02+0000"}};
    const ImportedMetadata metadata = importMetadata(facts);
    EXPECT_EQ(channelValues(metadata, "ResponseProfile_Centre"), (Texts{"381.00558", "388.4092", "2493"}));
    EXPECT_EQ(channelValues(metadata, "ResponseProfile_FWHM"), (Texts{"8.415", "8.415", "8.807"}));
    EXPECT_EQ(channelValues(metadata, "Quality"), (Texts{kNone, "mask", kNone}));
    EXPECT_EQ(valueOf(metadata.file, "SensorModelName"), "EMIT");
    EXPECT_EQ(valueOf(metadata.file, "NominalTime_Minute"), "29");
}

// ---- times ----

TEST(ParseTime, ReadsTheUsualForms) {
    const auto text = [](const char* given) {
        const auto time = parseTime(given);
        return time ? isoText(*time) : std::string("none");
    };
    EXPECT_EQ(text("2022-07-24T10:45:26"), "2022-07-24T10:45:00Z");
    EXPECT_EQ(text("2022-07-24 10:45"), "2022-07-24T10:45:00Z");
    EXPECT_EQ(text("20220724T104526Z"), "2022-07-24T10:45:00Z");
    EXPECT_EQ(text(" 2022/07/24 "), "2022-07-24");
    EXPECT_EQ(text("{2022-07-24T10:45:26.123Z}"), "2022-07-24T10:45:00Z");
    EXPECT_EQ(text("2022-12-31T23:30:00-02:00"), "2023-01-01T01:30:00Z");
    EXPECT_EQ(text("2022-03-01T00:30+0100"), "2022-02-28T23:30:00Z");
    EXPECT_EQ(text("2022-13-01"), "none");
    EXPECT_EQ(text("24.07.2022"), "none");
    EXPECT_EQ(text(""), "none");
    EXPECT_EQ(text("2022-07-24T99:99"), "2022-07-24");
}

// ---- real headers ----

class RealHeaders : public testing::Test {
protected:
    void SetUp() override {
        if (std::getenv("KSLIB_DATA") == nullptr) GTEST_SKIP() << "KSLIB_DATA names no folder of sample data";
    }
    static ImportedMetadata imported(const std::string& header, int channels) {
        const std::string text = hosttest::contentsOf(std::string(std::getenv("KSLIB_DATA")) + "/" + header);
        EXPECT_FALSE(text.empty()) << header;
        RasterFacts facts = enviImage(channels, "");
        facts.headerText = text;
        return importMetadata(facts);
    }
};

TEST_F(RealHeaders, JasperRidge) {
    const ImportedMetadata metadata = imported("cube-aviris-jasper-ridge/jasperRidge2_R198.hdr", 198);
    EXPECT_EQ(valueOf(metadata.channels[0], "ResponseProfile_Centre"), "399.369995");
    EXPECT_EQ(valueOf(metadata.channels[197], "ResponseProfile_Centre"), "2457.239990");
    EXPECT_EQ(valueOf(metadata.channels[197], "ResponseProfile_FWHM"), "10.120000");
    EXPECT_EQ(valueOf(metadata.channels[0], "RadiometricTrans_Quantity_1"), "refl");
    EXPECT_EQ(valueOf(metadata.channels[0], "RadiometricTrans_Gain_1"), "0.0001");
    EXPECT_EQ(valueOf(metadata.file, "ENVI:default bands"), "{32,17,4}");
    EXPECT_EQ(valueOf(metadata.file, "SensorModelName"), kNone);
}

TEST_F(RealHeaders, EnmapGainsAreReflectanceAndSixBandsAreBad) {
    const ImportedMetadata metadata = imported("cube-enmap-potsdam/enmap_potsdam_128x64_int16.hdr", 224);
    const Texts qualities = channelValues(metadata, "Quality");
    for (size_t i = 0; i < 224; ++i) EXPECT_EQ(qualities[i], i >= 129 && i <= 134 ? "mask" : kNone) << i;
    EXPECT_EQ(channelValues(metadata, "RadiometricTrans_Quantity_1"), Texts(224, "refl"));
    EXPECT_EQ(valueOf(metadata.file, "NumberOfRadTrans"), "1");
}

TEST_F(RealHeaders, AvirisNgBadBandsAreFloatsAndFactorsFollowTheirBands) {
    const ImportedMetadata metadata =
        imported("cube-aviris-ng-cutouts/ang20140912t192359_corr_v1c_img_2580-2590_540-550.hdr", 432);
    const Texts qualities = channelValues(metadata, "Quality");
    EXPECT_EQ(std::count(qualities.begin(), qualities.end(), "mask"), 59);
    EXPECT_EQ(valueOf(metadata.channels[20], "ENVI:correction factors"), "0.9921");
}

TEST_F(RealHeaders, AnAvirisPixelWithoutUnitsIsInNanometres) {
    const ImportedMetadata metadata =
        imported("cube-aviris-ng-cutouts/f080702t01p00r08rdn_c_sc01_ort_img_123_456.hdr", 224);
    EXPECT_EQ(valueOf(metadata.channels[0], "ResponseProfile_Centre"), "365.9298");
    EXPECT_EQ(metadata.remarks.size(), 1U);
}

TEST_F(RealHeaders, GeometryFilesWithTheWavelengthsOfAnotherFileHaveNone) {
    const ImportedMetadata metadata = imported("pixels-prism-with-geometry/prm20231110t071521_loc_two_px.hdr", 3);
    for (const StringList& channel : metadata.channels) EXPECT_TRUE(channel.empty());
    EXPECT_EQ(metadata.remarks.size(), 3U);  // wavelength, fwhm, band names
    const ImportedMetadata radiance = imported("pixels-prism-with-geometry/prm20231110t071521_rdn_two_px.hdr", 246);
    EXPECT_EQ(valueOf(radiance.channels[2], "ResponseProfile_Centre"), "356.21539889999997");
    EXPECT_TRUE(radiance.remarks.empty());
}

TEST_F(RealHeaders, ComposedAgainTheyMeanTheSame) {
    const std::vector<std::pair<std::string, int>> headers = {
        {"cube-aviris-jasper-ridge/jasperRidge2_R198.hdr", 198},
        {"cube-enmap-potsdam/enmap_potsdam_128x64_int16.hdr", 224},
        {"cube-aviris-ng-cutouts/ang20150420t182808_corr_v1e_img_4200-4210_70-80.hdr", 432},
        {"pixels-prism-with-geometry/prm20231110t071521_rdn_two_px.hdr", 246},
        {"library-snow-mixtures/ecostress_snow_mixtures.hdr", 216}};
    for (const auto& [name, channels] : headers) {
        const ImportedMetadata first = imported(name, channels);
        RasterFacts facts = enviImage(channels, "");
        facts.headerText = composeEnviHeader(facts, first.file, first.channels, {});
        const ImportedMetadata second = importMetadata(facts);
        EXPECT_EQ(second.file.entries(), first.file.entries()) << name;
        EXPECT_TRUE(second.remarks.empty()) << name;
        for (size_t i = 0; i < first.channels.size(); ++i) {
            for (const std::string& entry : first.channels[i].entries()) {
                const std::string key = entry.substr(0, entry.find('='));
                EXPECT_EQ(valueOf(second.channels[i], key), entry.substr(entry.find('=') + 1)) << name << " " << i;
            }
        }
    }
}
