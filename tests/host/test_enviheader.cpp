// ENVI headers: every spelling that real files have, and that what is written reads back as the same lists.
#include <cmath>

#include "enviheader.hpp"
#include "hostkit.hpp"
#include "import.hpp"
#include "raster.hpp"

using kshost::EnviHeader;
using kshost::enviListItems;
using kshost::Georeference;
using kshost::parseEnviHeader;
using kshost::RasterFacts;
using kshost::StringList;
using Texts = std::vector<std::string>;

namespace {

std::string valueOf(const EnviHeader& header, const std::string& key) {
    const std::string* value = header.find(key);
    return value != nullptr ? *value : "(absent)";
}

}  // namespace

TEST(ParseEnviHeader, KeysLoseCaseAndExtraBlanks) {
    const EnviHeader header = parseEnviHeader("ENVI\nSamples=3\n Header   Offset\t=  0 \nDATA TYPE =\t12\n");
    EXPECT_EQ(valueOf(header, "samples"), "3");
    EXPECT_EQ(valueOf(header, "header offset"), "0");
    EXPECT_EQ(valueOf(header, "data type"), "12");
    EXPECT_TRUE(header.remarks.empty());
}

TEST(ParseEnviHeader, ListsRunOverLinesAndSkipComments) {
    const EnviHeader header =
        parseEnviHeader("ENVI\r\nwavelength = {\r\n 400.5, 410,\r\n; not = this, one }\r\n 420}\r\nbands = 3\r\n");
    EXPECT_EQ(enviListItems(valueOf(header, "wavelength")), (Texts{"400.5", "410", "420"}));
    EXPECT_EQ(valueOf(header, "bands"), "3");
}

TEST(ParseEnviHeader, CommentsAreDroppedAndEmptyValuesKept) {
    const EnviHeader header = parseEnviHeader("ENVI\n; samples = 9\nsamples = 1\nsensor type =\nbbl = {}\n");
    EXPECT_EQ(valueOf(header, "samples"), "1");
    EXPECT_EQ(valueOf(header, "sensor type"), "");
    EXPECT_TRUE(enviListItems(valueOf(header, "bbl")).empty());
    EXPECT_EQ(header.entries.size(), 3U);
}

TEST(ParseEnviHeader, OfDuplicateKeysTheLastCounts) {
    const EnviHeader header = parseEnviHeader("ENVI\nbands = 3\nBands = 4\n");
    EXPECT_EQ(valueOf(header, "bands"), "4");
    ASSERT_EQ(header.remarks.size(), 1U);
    EXPECT_NE(header.remarks[0].find("\"bands\""), std::string::npos);
}

TEST(ParseEnviHeader, AListWithoutItsLastBraceEndsAtTheFile) {
    const EnviHeader header = parseEnviHeader("ENVI\nbands = 2\nwavelength = {400, 500");
    EXPECT_EQ(enviListItems(valueOf(header, "wavelength")), (Texts{"400", "500"}));
    EXPECT_EQ(header.remarks.size(), 1U);
}

TEST(ParseEnviHeader, AListThatIsNeverClosedDoesNotSwallowTheNextKeys) {
    const EnviHeader header = parseEnviHeader("ENVI\nwavelength = {400,\n500\nbands = 2\nfwhm = {\n10, 11}\n");
    EXPECT_EQ(enviListItems(valueOf(header, "wavelength")), (Texts{"400", "500"}));
    EXPECT_EQ(valueOf(header, "bands"), "2");
    EXPECT_EQ(enviListItems(valueOf(header, "fwhm")), (Texts{"10", "11"}));
}

TEST(ParseEnviHeader, AClosedDescriptionMayHoldEquationsAndBlankLines) {
    const EnviHeader header =
        parseEnviHeader("ENVI\ndescription = {\n  pixel size =  16.4\n\n  rotation angle = 27}\nsamples = 1\n");
    EXPECT_EQ(valueOf(header, "description"), "{\n  pixel size =  16.4\n\n  rotation angle = 27}");
    EXPECT_EQ(header.entries.size(), 2U);
}

TEST(ParseEnviHeader, Latin1BecomesUtf8AndUtf8Stays) {
    EXPECT_EQ(valueOf(parseEnviHeader("wavelength units = \xb5m\n"), "wavelength units"), "\u00b5m");
    EXPECT_EQ(valueOf(parseEnviHeader("\xef\xbb\xbfwavelength units = \u00b5m\n"), "wavelength units"), "\u00b5m");
}

TEST(ParseEnviHeader, LinesWithoutAKeyAreRemarked) {
    const EnviHeader header = parseEnviHeader("ENVI\nnonsense\n= 5\nbands = 1\n");
    EXPECT_EQ(header.remarks.size(), 2U);
    EXPECT_EQ(header.entries.size(), 1U);
}

TEST(ParseEnviHeader, SurvivesAnyTruncation) {
    const std::string text = "ENVI\ndescription = {a\n b = {c}}\nbands = 2\nwavelength = {1,\n2}\n\xb5;\0=";
    for (size_t length = 0; length <= text.size(); ++length) parseEnviHeader(text.substr(0, length));
    SUCCEED();
}

TEST(EnviListItems, KeepsEmptyElementsButNoElementAfterALastComma) {
    EXPECT_EQ(enviListItems("{a, ,c,}"), (Texts{"a", "", "c"}));
    EXPECT_EQ(enviListItems(" single "), Texts{"single"});
    EXPECT_EQ(enviListItems("{ a b }"), Texts{"a b"});
    EXPECT_TRUE(enviListItems("").empty());
}

// ---- composing ----

namespace {

struct Image {
    RasterFacts facts;
    StringList file;
    std::vector<StringList> channels;
    Georeference place;

    std::string header() const { return composeEnviHeader(facts, file, channels, place); }
    /// The lists that another program's reader would derive from the header.
    kshost::ImportedMetadata readBack() const {
        RasterFacts read = facts;
        read.headerText = header();
        return importMetadata(read);
    }
};

Image image(int channels) {
    Image made;
    made.facts.width = 7;
    made.facts.height = 5;
    made.facts.channels = channels;
    made.facts.channelTypes.assign(static_cast<size_t>(channels), 4);
    made.facts.driver = "ENVI";
    made.facts.interleave = "BIP";
    made.facts.sampleType = "Float32";
    made.channels.resize(static_cast<size_t>(channels));
    return made;
}

/// Three bands with everything that a header can hold.
Image fullImage() {
    Image made = image(3);
    for (const char* entry : {"SensorModelName=AVIRIS", "NominalTime_Year=2022", "NominalTime_Month=7",
                              "NominalTime_Day=24", "NominalTime_Hour=10", "NominalTime_Minute=45",
                              "NumberOfRadTrans=1", "ENVI:description={Potsdam,\n mosaic}", "ENVI:x start=1"}) {
        const std::string text = entry;
        made.file.set(text.substr(0, text.find('=')), text.substr(text.find('=') + 1));
    }
    const char* centres[] = {"418.240", "423.874", "0.5"};
    for (size_t i = 0; i < 3; ++i) {
        StringList& list = made.channels[i];
        list.set("ResponseProfile_Type", "gaussian");
        list.set("ResponseProfile_Centre", centres[i]);
        list.set("ResponseProfile_FWHM", "6.99561");
        if (i == 1) list.set("Quality", "mask");
        list.set("RadiometricTrans_Quantity_1", "refl");
        list.set("RadiometricTrans_Gain_1", "0.0001");
        list.set("RadiometricTrans_Offset_1", "0");
        list.set("ENVI:band names", "band " + std::to_string(i + 1));
        list.set("ENVI:correction factors", std::to_string(i) + ".5");
    }
    return made;
}

}  // namespace

TEST(ComposeEnviHeader, WritesTheStructure) {
    Image made = image(2);
    made.facts.sampleType = "UInt16";
    const EnviHeader header = parseEnviHeader(made.header());
    EXPECT_EQ(made.header().substr(0, 5), "ENVI\n");
    EXPECT_EQ(valueOf(header, "samples"), "7");
    EXPECT_EQ(valueOf(header, "lines"), "5");
    EXPECT_EQ(valueOf(header, "bands"), "2");
    EXPECT_EQ(valueOf(header, "data type"), "12");
    EXPECT_EQ(valueOf(header, "interleave"), "bip");
    EXPECT_EQ(valueOf(header, "byte order"), "0");
    EXPECT_EQ(valueOf(header, "wavelength"), "(absent)");
    EXPECT_EQ(valueOf(header, "bbl"), "(absent)");
    EXPECT_TRUE(header.remarks.empty());
}

TEST(ComposeEnviHeader, WhatItWritesReadsBackAsTheSameLists) {
    const Image made = fullImage();
    const kshost::ImportedMetadata read = made.readBack();
    EXPECT_EQ(read.file.entries(), made.file.entries());
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(read.channels[i].entries(), made.channels[i].entries()) << "channel " << i;
    EXPECT_TRUE(read.remarks.empty());
}

TEST(ComposeEnviHeader, SecondsOfTheAcquisitionStayWhileTheMinuteHolds) {
    Image made = fullImage();
    made.file.set("ENVI:acquisition time", "2022-07-24T10:45:26.5Z");
    EXPECT_EQ(valueOf(parseEnviHeader(made.header()), "acquisition time"), "2022-07-24T10:45:26.5Z");
    made.file.set("NominalTime_Minute", "46");
    EXPECT_EQ(valueOf(parseEnviHeader(made.header()), "acquisition time"), "2022-07-24T10:46:00Z");
}

TEST(ComposeEnviHeader, AChainOfTransformsBecomesOneGainAndOffset) {
    Image made = image(1);
    made.file.set("NumberOfRadTrans", "2");
    made.channels[0].set("RadiometricTrans_Quantity_1", "apprad");
    made.channels[0].set("RadiometricTrans_Gain_1", "2");
    made.channels[0].set("RadiometricTrans_Offset_1", "3");
    made.channels[0].set("RadiometricTrans_Quantity_2", "refl");
    made.channels[0].set("RadiometricTrans_Gain_2", "0.5");
    made.channels[0].set("RadiometricTrans_Offset_2", "-1");
    const EnviHeader header = parseEnviHeader(made.header());
    EXPECT_EQ(enviListItems(valueOf(header, "data gain values")), Texts{"1"});      // 2 * 0.5
    EXPECT_EQ(enviListItems(valueOf(header, "data offset values")), Texts{"0.5"});  // 3 * 0.5 - 1
    EXPECT_EQ(valueOf(header, "reflectance scale factor"), "(absent)");
}

TEST(ComposeEnviHeader, SkippedAndMaskedBandsAreBad) {
    Image made = image(4);
    made.channels[0].set("Quality", "plot");
    made.channels[1].set("Quality", "skip");
    made.channels[2].set("Quality", "mask");
    made.channels[3].set("Quality", "bmask");
    EXPECT_EQ(enviListItems(valueOf(parseEnviHeader(made.header()), "bbl")), (Texts{"1", "0", "0", "1"}));
}

TEST(ComposeEnviHeader, ABandWithoutAProfileKeepsTheOthersInPlace) {
    Image made = image(3);
    made.channels[0].set("ResponseProfile_Type", "gaussian");
    made.channels[0].set("ResponseProfile_Centre", "400.5");
    made.channels[2].set("ResponseProfile_Type", "gaussian");
    made.channels[2].set("ResponseProfile_Centre", "420.5");
    const kshost::ImportedMetadata read = made.readBack();
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(read.channels[i].entries(), made.channels[i].entries());
    EXPECT_TRUE(read.remarks.empty());
}

TEST(ComposeEnviHeader, NoTextCanAddALineOrEndAList) {
    Image made = image(2);
    made.file.set("SensorModelName", "A\nsamples = 99");
    made.file.set("ENVI:note", "one\ntwo = {three");
    made.file.set("ENVI:open", "{never closed");
    made.file.set("ENVI:samples", "42");
    made.channels[0].set("ENVI:band names", "red}, green");
    made.channels[1].set("ENVI:band names", "{blue");
    const EnviHeader header = parseEnviHeader(made.header());
    EXPECT_EQ(valueOf(header, "samples"), "7");
    EXPECT_EQ(valueOf(header, "sensor type"), "A samples = 99");
    EXPECT_EQ(valueOf(header, "note"), "one two = {three");
    EXPECT_EQ(valueOf(header, "open"), "{never closed}");
    EXPECT_EQ(enviListItems(valueOf(header, "band names")), (Texts{"red); green", "(blue"}));
    EXPECT_TRUE(header.remarks.empty());
}

TEST(ComposeEnviHeader, CarriesThePlaceAsGdalWritesIt) {
    Image made = image(1);
    made.place.transform = {365055, 30, 0, 5807085, 0, -30};
    made.place.wkt =
        "PROJCS[\"WGS 84 / UTM zone 33N\",GEOGCS[\"WGS 84\",DATUM[\"WGS_1984\",SPHEROID[\"WGS "
        "84\",6378137,298.257223563]],"
        "PRIMEM[\"Greenwich\",0],UNIT[\"degree\",0.0174532925199433]],PROJECTION[\"Transverse_Mercator\"],"
        "PARAMETER[\"latitude_of_origin\",0],PARAMETER[\"central_meridian\",15],PARAMETER[\"scale_factor\",0.9996],"
        "PARAMETER[\"false_easting\",500000],PARAMETER[\"false_northing\",0],UNIT[\"metre\",1]]";
    made.place.noData = {{1, -32768}};
    const EnviHeader header = parseEnviHeader(made.header());
    const Texts map = enviListItems(valueOf(header, "map info"));
    ASSERT_GE(map.size(), 8U);
    EXPECT_EQ(map[0], "UTM");
    EXPECT_EQ(std::stod(map[3]), 365055);
    EXPECT_EQ(std::stod(map[4]), 5807085);
    EXPECT_EQ(std::stod(map[5]), 30);
    EXPECT_EQ(map[7], "33");
    EXPECT_NE(valueOf(header, "coordinate system string").find("PROJCS["), std::string::npos);
    EXPECT_EQ(valueOf(header, "data ignore value"), "-32768");
}

TEST(ComposeEnviHeader, ANoDataValueOfSomeChannelsOnlyIsNotWrittenForAll) {
    Image made = image(2);
    made.place.noData = {{1, -1.0}};
    EXPECT_EQ(valueOf(parseEnviHeader(made.header()), "data ignore value"), "(absent)");
    made.place.noData = {{1, -1.0}, {2, -2.0}};
    EXPECT_EQ(valueOf(parseEnviHeader(made.header()), "data ignore value"), "(absent)");
    made.place.noData = {{1, std::nan("")}, {2, std::nan("")}};
    EXPECT_EQ(valueOf(parseEnviHeader(made.header()), "data ignore value"), "nan");
}

TEST(ComposeEnviHeader, IsTheSameTextEveryTime) {
    Image made = fullImage();
    made.place.transform = {1, 2, 0, 3, 0, -2};
    EXPECT_EQ(made.header(), made.header());
}
