// ks library: what comes out of the formats that spectra are kept in, and that it comes back the same.
#include <algorithm>
#include <cmath>
#include <map>

#include <nlohmann/json.hpp>

#include "speckit.hpp"

namespace clitest {
namespace {

using kscli::kMaskedValue;
using kscli::readLibrary;
using nlohmann::json;

const char* const kEcostress =
    "Name: Test Grass\r\nType: vegetation\r\nClass: grass\r\nParticle Size: Solid\r\nSample No.: 12\r\nOwner: "
    "nobody\r\n"
    "Wavelength Range: All\r\nOrigin: a field\r\nDescription: Green grass.  See also: the\r\nother file, 3 "
    "lines.\r\n\r\n"
    "Measurement: Hemispherical\r\nFirst Column: X\r\nSecond Column: Y\r\nX Units: Wavelength (micrometers)\r\n"
    "Y Units: Reflectance (percent)\r\nFirst X Value: 2.5\r\nLast X Value: 0.4\r\nNumber of X Values: 4\r\n"
    "Additional Information: none\r\n\r\n"
    " 2.5\t12.5\r\n2.25\t0.3948\r\n 1.000  50\r\n0.4\t+1e-3\r\n";

class LibraryTest : public CliTest {
protected:
    // The bytes of a USGS title and values.
    void writeUsgs(const std::string& name, const std::string& title, const std::vector<std::string>& values) const {
        std::string text = " splib07a " + title + "\n";
        for (const std::string& value : values) text += " " + value + "\n";
        write(name, text);
    }
    Library in(const std::string& name) const { return readLibrary(path(name)); }
};

// ---- ECOSTRESS and ASTER ----

TEST_F(LibraryTest, EcostressPercentBecomesFractionsInRisingNanometres) {
    write("grass.txt", kEcostress);
    const Result result = ks({"library", "import", "grass.txt", "grass.kslib"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.err, "values are percent; they are kept as fractions")) << result.err;
    LibrarySpectrum expected = makeSpectrum("Test Grass", {400, 1000, 2250, 2500}, {0.00001, 0.5, 0.003948, 0.125});
    expected.quantity = KS_RQ_REFL;
    expectSame(in("grass.kslib"), {expected});
}

TEST_F(LibraryTest, EcostressCountThatDiffersFromTheHeadingIsSaid) {
    std::string text = kEcostress;
    text.replace(text.find("Values: 4"), 9, "Values: 9");
    write("grass.txt", text);
    const Result result = ks({"library", "list", "grass.txt"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(contains(result.err, "the heading says 9 values, the file has 4")) << result.err;
}

TEST_F(LibraryTest, WavenumbersBecomeNanometres) {
    std::string text = kEcostress;
    text.replace(text.find("Wavelength (micrometers)"), 24, "Wavenumber (cm-1)");
    text = text.substr(0, text.find(" 2.5\t")) + "4000 10\r\n5000 20\r\n8000 30\r\n10000 40\r\n";
    write("ir.txt", text);
    ASSERT_EQ(in("ir.txt").size(), 1U);
    EXPECT_EQ(in("ir.txt")[0].wavelengths, (std::vector<float>{1000, 1250, 2000, 2500}));
    EXPECT_EQ(in("ir.txt")[0].values, (std::vector<double>{0.4, 0.3, 0.2, 0.1}));
}

TEST_F(LibraryTest, ABrokenLineIsNamed) {
    write("grass.txt", std::string(kEcostress) + "0.3\toops\r\n");
    const Result result = ks({"library", "list", "grass.txt"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.err, "oops")) << result.err;
    EXPECT_TRUE(contains(result.err, "line 26")) << result.err;
    write("cut.txt", std::string(kEcostress).substr(0, std::string(kEcostress).find(" 2.5\t")));
    EXPECT_TRUE(contains(ks({"library", "list", "cut.txt"}).err, "cut short"));
}

// ---- USGS ----

TEST_F(LibraryTest, UsgsTextFindsItsWavelengthsAndMasksDeletedValues) {
    writeUsgs("splib07a_Wavelengths_ASD_test.txt", "Record=1: Wavelengths ASD 0.35-2.5 um", {"0.5", "0.75", "1.0"});
    writeUsgs("splib07a_Wavelengths_BECK_test.txt", "Record=2: Wavelengths BECK", {"0.25", "0.5", "1.0"});
    writeUsgs("acmite.txt", "Record=37: Acmite NMNH133746  Pyroxene      BECKa AREF",
              {"-1.2300000e+034", "2.5000000e-001", "0.5"});
    const Result result = ks({"library", "import", "acmite.txt", "out.kslib"});
    ASSERT_EQ(result.status, 0) << result.err;
    LibrarySpectrum expected =
        makeSpectrum("Acmite NMNH133746 Pyroxene BECKa AREF", {250, 500, 1000}, {kMaskedValue, 0.25, 0.5});
    expected.quantity = KS_RQ_REFL;
    expectSame(in("out.kslib"), {expected});
}

TEST_F(LibraryTest, UsgsTextWithoutWavelengthsSaysWhatToDo) {
    writeUsgs("acmite.txt", "Record=37: Acmite BECKa AREF", {"0.1", "0.2", "0.3"});
    const Result result = ks({"library", "list", "acmite.txt"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.err, "--wavelengths")) << result.err;
    fs::create_directory(dir() / "elsewhere");
    writeUsgs("elsewhere/w.txt", "Record=1: Wavelengths in micrometers", {"1", "2", "3"});
    ASSERT_EQ(ks({"library", "import", "acmite.txt", "out.kslib", "--wavelengths", "elsewhere/w.txt"}).status, 0);
    EXPECT_EQ(in("out.kslib")[0].wavelengths, (std::vector<float>{1000, 2000, 3000}));
    writeUsgs("elsewhere/short.txt", "Record=1: Wavelengths in micrometers", {"1", "2"});
    const Result wrong = ks({"library", "list", "acmite.txt"});
    EXPECT_EQ(wrong.status, 1);
    const Result mismatch = ks({"library", "import", "acmite.txt", "o2.kslib", "--wavelengths", "elsewhere/short.txt"});
    EXPECT_TRUE(contains(mismatch.err, "3 values")) << mismatch.err;
    EXPECT_TRUE(contains(mismatch.err, "2 wavelengths")) << mismatch.err;
}

TEST_F(LibraryTest, AFolderOfUsgsTextLeavesOutWhatHoldsNoSpectrum) {
    writeUsgs("lib_Wavelengths.txt", "Record=1: Wavelengths in micrometers", {"0.5", "0.6"});
    writeUsgs("a.txt", "Record=2: Alunite AREF", {"0.1", "0.2"});
    writeUsgs("b.txt", "Record=3: Bytownite RREF", {"0.3", "0.4"});
    const Result result = ks({"library", "import", "a.txt", "b.txt", "lib_Wavelengths.txt", "out.kslib"});
    ASSERT_EQ(result.status, 0) << result.err;
    ASSERT_EQ(in("out.kslib").size(), 2U);
    EXPECT_TRUE(contains(result.err, "It is left out")) << result.err;
}

TEST_F(LibraryTest, OlderUsgsColumnsStandUnderALongHeading) {
    write(
        "old.asc",
        "USGS Digital Spectral Library splib06a\nClark and others 2007, USGS, Data Series 231.\n\n"
        "For further information on spectroscopy, see: http://speclab.cr.usgs.gov\n\n"
        "ASCII Spectral Data file contents:\nline 15 title\nline 16 history\nline 17 to end:  3-columns of data:\n"
        "     wavelength    reflectance    standard deviation\n\n(standard deviation of 0.000000 means not measured)\n"
        "(      -1.23e34  indicates a deleted number)\n----------------------------------------------------\n"
        "Kaolinite KGa-1  (wxl)        W1R1Ba AREF\ncopy of splib05a r 2300\n"
        "      0.205100    -1.23e34        0.000000\n      0.400000    0.500000        0.012000\n"
        "      2.200000    0.250000        0.000000\n");
    LibrarySpectrum expected =
        makeSpectrum("Kaolinite KGa-1 (wxl) W1R1Ba AREF", {205.1F, 400, 2200}, {kMaskedValue, 0.5, 0.25});
    expected.quantity = KS_RQ_REFL;
    expectSame(in("old.asc"), {expected});
}

// ---- tables ----

TEST_F(LibraryTest, TablesOfColumns) {
    write("cols.csv", "# remark\nwavelength_nm,grass,\"soil, dry\"\n410,0.25,\n400,0.1,0.5\n");
    expectSame(in("cols.csv"), {makeSpectrum("grass", {400, 410}, {0.1, 0.25}),
                                makeSpectrum("soil, dry", {400, 410}, {0.5, kMaskedValue})});
    write("european.csv", "Wellenl\xE4nge;x\n1;2\n");
    EXPECT_TRUE(contains(ks({"library", "list", "european.csv"}).err, "wavelength"));
    write("european.csv",
          "wavelength (\xB5m);Fl\xE4"
          "che\n0,4;0,125\n0,5;NA\n");
    expectSame(in("european.csv"), {makeSpectrum("Fl\xC3\xA4"
                                                 "che",
                                                 {400, 500}, {0.125, kMaskedValue})});
}

TEST_F(LibraryTest, TablesOfRows) {
    write("rows.csv", "name,class,400,410.5,420\ngrass,veg,0.1,0.2,0.3\nsoil,bare,0.4,nan,0.6\n");
    expectSame(in("rows.csv"), {makeSpectrum("grass", {400, 410.5F, 420}, {0.1, 0.2, 0.3}),
                                makeSpectrum("soil", {400, 410.5F, 420}, {0.4, kMaskedValue, 0.6})});
    write("fields.csv", "Target,Quantity,m400_000,m410_500,q400_000,q410_500\nroof,refl,-0.5,0,plot,mask\n");
    LibrarySpectrum expected = makeSpectrum("roof", {400, 410.5F}, {-0.5, 0});
    expected.quality = {KS_BQ_PLOT, KS_BQ_MASK};
    expected.quantity = KS_RQ_REFL;
    expectSame(in("fields.csv"), {expected});
}

TEST_F(LibraryTest, AUnitThatIsNotGivenIsGuessedAndSaid) {
    write("um.csv", "wavelength,a\n0.4,1\n2.5,2\n");
    const Result result = ks({"library", "import", "um.csv", "out.csv"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(count(result.err, "taken as micrometres"), 1) << result.err;
    EXPECT_EQ(in("out.csv")[0].wavelengths, (std::vector<float>{400, 2500}));
}

TEST_F(LibraryTest, ATableOfSomethingElseIsRefused) {
    write("classes.csv", "spectra names,level_1,level_2\nroof 1,impervious,roof\n");
    const Result result = ks({"library", "list", "classes.csv"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.err, "not a spectral library")) << result.err;
    write("ragged.csv", "wavelength,a,b\n400,1,2\n410,1\n");
    EXPECT_TRUE(contains(ks({"library", "list", "ragged.csv"}).err, "line 3"));
    write("words.txt", "This is no spectrum.\n");
    EXPECT_TRUE(contains(ks({"library", "list", "words.txt"}).err, "Known are"));
}

TEST_F(LibraryTest, ValuesOfOneWavelengthAreAveraged) {
    write("twice.csv", "wavelength_nm,a\n400,1\n500,2\n500,4\n500,\n600,5\n");
    const Result result = ks({"library", "import", "twice.csv", "out.kslib"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.err, "averaged")) << result.err;
    expectSame(in("out.kslib"), {makeSpectrum("a", {400, 500, 600}, {1, 3, 5})});
}

// ---- there and back ----

Library oddLibrary() {
    Library library = {
        makeSpectrum("grass, green", {400, 410.5F, 450.999F, 2999.5F}, {0.1, 1.0 / 3.0, kMaskedValue, -0.0125}),
        makeSpectrum("soil \"dry\"", {400, 410.5F, 450.999F, 2999.5F}, {0, 5e-324, 12345.678901234567, 1e300})};
    return library;
}

TEST_F(LibraryTest, EveryFormatReadsBackEqual) {
    write("start.csv",
          "wavelength_nm,\"grass, green\",\"soil \"\"dry\"\"\"\n400,0.1,0\n410.5,0.3333333333333333,5e-324\n"
          "450.999,,12345.678901234567\n2999.5,-0.0125,1e300\n");
    expectSame(in("start.csv"), oddLibrary());
    Library expected = oddLibrary();
    for (LibrarySpectrum& spectrum : expected) spectrum.quantity = KS_RQ_REFL;
    ASSERT_EQ(ks({"library", "import", "start.csv", "lib.kslib", "--quantity", "refl"}).status, 0);
    expectSame(in("lib.kslib"), expected);
    const std::map<std::string, std::string> outputs = {
        {"lib.sli", "sli"}, {"table.csv", "table"}, {"rows.csv", "rows"}, {"again.kslib", "native"}};
    for (const auto& [name, format] : outputs) {
        const Result result = ks({"library", "export", "lib.kslib", name, "--as", format});
        ASSERT_EQ(result.status, 0) << name << result.err;
        // A comma ends a name in an ENVI header.
        EXPECT_EQ(contains(result.err, "names hold commas"), format == "sli") << result.err;
        EXPECT_FALSE(contains(result.err, "dropped")) << result.err;
        Library back = in(name);
        if (format == "sli") back.at(0).name = expected[0].name;
        expectSame(back, expected, format != "table");
    }
}

TEST_F(LibraryTest, TextFoldersReadBackEqual) {
    Library library = {makeSpectrum("Alunite GDS84 AREF", {400, 500, 2500.123F}, {1.0 / 3.0, kMaskedValue, 0.07}),
                       makeSpectrum("Alunite gds84 AREF", {400, 500, 2500.123F}, {-0.25, 1e-12, 0.29})};
    write("start.csv", tableOf(library));
    ASSERT_EQ(ks({"library", "import", "start.csv", "lib.kslib", "--quantity", "refl"}).status, 0);
    for (LibrarySpectrum& spectrum : library) spectrum.quantity = KS_RQ_REFL;
    ASSERT_EQ(ks({"library", "export", "lib.kslib", "usgs", "--as", "usgs"}).status, 0);
    // Names that differ in case only would be one file on some systems.
    expectSame({in("usgs/Alunite_GDS84_AREF.txt")[0], in("usgs/Alunite_gds84_AREF_2.txt")[0]}, library);

    const Result result = ks({"library", "export", "lib.kslib", "eco", "--as", "ecostress"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.err, "left out")) << result.err;
    library[0] = makeSpectrum("Alunite GDS84 AREF", {400, 2500.123F}, {1.0 / 3.0, 0.07});
    library[0].quantity = KS_RQ_REFL;
    expectSame({in("eco/Alunite_GDS84_AREF.txt")[0], in("eco/Alunite_gds84_AREF_2.txt")[0]}, library);
    EXPECT_TRUE(contains(read("eco/Alunite_GDS84_AREF.txt"), "Reflectance (percent)"));
}

TEST_F(LibraryTest, AnSliBeyond3000NanometresIsReadWhole) {
    const Library library = {makeSpectrum("quartz", {2500, 3000, 3500, 14051.05F}, {0.1, 0.2, 0.3, 0.4})};
    write("start.csv", tableOf(library));
    const Result result = ks({"library", "import", "start.csv", "lib.sli"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.err, "up to 3000 nm")) << result.err;
    EXPECT_TRUE(contains(result.err, "reads it whole")) << result.err;
    expectSame(in("lib.sli"), library);
}

TEST_F(LibraryTest, QualitiesThatAFormatDropsAreSaid) {
    write("fields.csv", "Target,m400_000,m410_000,q400_000,q410_000\nroof,0.5,0.25,plot,mask\n");
    ASSERT_EQ(ks({"library", "import", "fields.csv", "lib.kslib"}).status, 0);
    EXPECT_EQ(in("lib.kslib")[0].quality, (std::vector<int>{KS_BQ_PLOT, KS_BQ_MASK}));
    const Result result = ks({"library", "export", "lib.kslib", "lib.csv"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(contains(result.err, "does not keep marks of bad values")) << result.err;
}

TEST_F(LibraryTest, GeoJsonHoldsEveryField) {
    write("start.csv", "wavelength_nm,a,b\n400,0.25,1\n500,0.5,2\n");
    ASSERT_EQ(ks({"library", "import", "start.csv", "lib.geojson"}).status, 0);
    const json whole = json::parse(read("lib.geojson"));
    ASSERT_EQ(whole["features"].size(), 2U);
    EXPECT_EQ(whole["features"][1]["properties"]["Target"], "b");
    EXPECT_EQ(whole["features"][1]["properties"]["m500_000"], 2.0);
}

TEST_F(LibraryTest, FieldsBeyondTheLimitOfAFormatAreDroppedWithAWarning) {
    LibrarySpectrum spectrum = makeSpectrum("a", {}, {});
    for (int i = 0; i < 300; ++i) {
        spectrum.wavelengths.push_back(static_cast<float>(400 + i));
        spectrum.values.push_back(i);
        spectrum.quality.push_back(KS_BQ_PLOT);
    }
    write("start.csv", tableOf({spectrum}));
    const Result result = ks({"library", "import", "start.csv", "lib.dbf"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.err, "fields were dropped")) << result.err;
}

// ---- libraries of several files ----

TEST_F(LibraryTest, DifferentWavelengthsAreRefusedOrBroughtToOneGrid) {
    write("a.csv", "wavelength_nm,a\n400,1\n500,2\n600,4\n");
    write("b.csv", "wavelength_nm,b\n450,10\n550,20\n");
    const Result refused = ks({"library", "import", "a.csv", "b.csv", "out.kslib"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(contains(refused.err, "different wavelengths")) << refused.err;
    EXPECT_TRUE(contains(refused.err, "--grid")) << refused.err;
    EXPECT_EQ(files(), (std::vector<std::string>{"a.csv", "b.csv"}));

    const Result result = ks({"library", "import", "a.csv", "b.csv", "out.kslib", "--grid", "450:600:50"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.err, "1 of 8 values")) << result.err;
    expectSame(in("out.kslib"), {makeSpectrum("a", {450, 500, 550, 600}, {1.5, 2, 3, 4}),
                                 makeSpectrum("b", {450, 500, 550, 600}, {10, 15, 20, kMaskedValue})});
    ASSERT_EQ(ks({"library", "import", "a.csv", "b.csv", "out2.kslib", "--grid", "b.csv"}).status, 0);
    EXPECT_EQ(in("out2.kslib")[0].values, (std::vector<double>{1.5, 3}));
    EXPECT_EQ(ks({"library", "import", "a.csv", "out3.kslib", "--grid", "600:400:10"}).status, 1);
}

TEST_F(LibraryTest, SelectsByNumberRangeAndName) {
    write("many.csv", "wavelength_nm,a,b,c,\"d, e\",f\n400,1,2,3,4,5\n");
    const auto names = [&](const std::string& list) {
        EXPECT_EQ(ks({"library", "export", "many.csv", "out.csv", "--select", list, "--force"}).status, 0) << list;
        std::string all;
        for (const LibrarySpectrum& spectrum : in("out.csv")) all += spectrum.name + "|";
        return all;
    };
    EXPECT_EQ(names("2"), "b|");
    EXPECT_EQ(names("4-5,1"), "a|d, e|f|");
    EXPECT_EQ(names("D, E"), "d, e|");
    EXPECT_EQ(names("c,1"), "a|c|");
    ASSERT_EQ(ks({"library", "export", "--select", "2", "--select", "5", "many.csv", "two.csv"}).status, 0);
    EXPECT_EQ(in("two.csv").size(), 2U);
    const Result unknown = ks({"library", "export", "many.csv", "no.csv", "--select", "zinc"});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_TRUE(contains(unknown.err, "'zinc'")) << unknown.err;
    EXPECT_TRUE(contains(ks({"library", "export", "many.csv", "no.csv", "--select", "6"}).err, "from 1 to 5"));
}

TEST_F(LibraryTest, ScaleMultipliesValuesAndLeavesMissingOnes) {
    write("a.csv", "wavelength_nm,a\n400,2500\n500,\n");
    ASSERT_EQ(ks({"library", "import", "a.csv", "out.kslib", "--scale", "0.0001"}).status, 0);
    EXPECT_EQ(in("out.kslib")[0].values, (std::vector<double>{2500 * 0.0001, kMaskedValue}));
    EXPECT_EQ(ks({"library", "import", "a.csv", "out2.kslib", "--scale", "0"}).status, 1);
}

TEST_F(LibraryTest, ExistingOutputsAndInputsAreSafe) {
    write("a.csv", "wavelength_nm,a\n400,1\n");
    write("out.kslib", "precious");
    const Result result = ks({"library", "import", "a.csv", "out.kslib"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.err, "--force")) << result.err;
    EXPECT_EQ(read("out.kslib"), "precious");
    EXPECT_EQ(ks({"library", "import", "a.csv", "out.kslib", "--force"}).status, 0);
    EXPECT_EQ(in("out.kslib").size(), 1U);
    EXPECT_EQ(ks({"library", "import", "a.csv", "./a.csv", "--force"}).status, 1);
    EXPECT_EQ(ks({"library", "export", "a.csv", "a.png"}).status, 1);
    EXPECT_EQ(ks({"library", "export", "missing.csv", "b.csv"}).status, 1);
}

// ---- list and plot ----

TEST_F(LibraryTest, ListShowsWhatIsThere) {
    write("lib.csv", "wavelength_nm,grass,soil\n400,0.25,0.5\n500,,0.125\n");
    const Result text = ks({"library", "list", "lib.csv"});
    ASSERT_EQ(text.status, 0) << text.err;
    EXPECT_TRUE(contains(text.out, "grass"));
    EXPECT_TRUE(contains(text.out, "0.125"));
    const json whole = json::parse(ks({"library", "list", "lib.csv", "--json"}).out);
    ASSERT_EQ(whole["spectra"].size(), 2U);
    EXPECT_EQ(whole["spectra"][0]["masked"], 1);
    EXPECT_EQ(whole["spectra"][0]["highest"], 0.25);
    EXPECT_EQ(whole["spectra"][1]["lowest"], 0.125);
    EXPECT_EQ(whole["spectra"][1]["last_nm"], 500.0);
}

TEST_F(LibraryTest, PlotBreaksAtMissingValues) {
    write("lib.csv", "wavelength_nm,grass\n400,0.25\n500,0.5\n600,\n700,0.25\n800,0.5\n");
    ASSERT_EQ(ks({"library", "plot", "lib.csv", "lib.svg"}).status, 0);
    // Two pieces and the sample in the legend, in the first colour.
    const std::string svg = read("lib.svg");
    EXPECT_EQ(count(svg, "stroke:rgb(0%,45%,70%)") + count(svg, "stroke=\"rgb(0%, 45%, 70%)\""), 3) << svg;
    write("gap.csv", "wavelength_nm,grass\n400,1\n410,2\n420,1\n700,2\n710,1\n");
    ASSERT_EQ(ks({"library", "plot", "gap.csv", "gap.svg"}).status, 0);
    const std::string gap = read("gap.svg");
    EXPECT_EQ(count(gap, "stroke:rgb(0%,45%,70%)") + count(gap, "stroke=\"rgb(0%, 45%, 70%)\""), 3) << gap;
    EXPECT_EQ(ks({"library", "plot", "lib.csv", "lib.png", "--range", "400,500"}).status, 0);
    EXPECT_EQ(ks({"library", "plot", "lib.csv", "lib.pdf"}).status, 1);
}

// ---- spectra of an image ----

TEST_F(LibraryTest, TakesMeansOverRegionsWithoutPixelsThatHoldNoData) {
    Cube cube;
    cube.width = 8;
    cube.height = 6;
    cube.type = 2;
    cube.header =
        "wavelength units = nm\nwavelength = {400, 500, 600, 700, 800}\nfwhm = {10, 10, 10, 10, 10}\n"
        "data ignore value = -99\nbbl = {1, 1, 0, 1, 1}\n";
    cube.value = [](int x, int y, int b) { return x == 3 && y == 2 ? -99.0 : 100.0 * b + 7.0 * y * y + x; };
    writeCube(dir() / "cube.img", cube);
    const Result result =
        ks({"library", "take", "cube.img", "out.kslib", "--roi", "rectangle xoff 2 yoff 1 xsize 3 ysize 2", "--roi",
            "point xoff 6 yoff 4 size 1", "--name", "roof"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.err, "mean of 5 pixels, 1 without data left out")) << result.err;
    const Library taken = in("out.kslib");
    ASSERT_EQ(taken.size(), 2U);
    EXPECT_EQ(taken[0].name, "roof");
    EXPECT_EQ(taken[0].region, "rectangle xoff 2 yoff 1 xsize 3 ysize 2");
    EXPECT_EQ(taken[0].sourceFile, "cube.img");
    EXPECT_EQ(taken[0].quantity, KS_RQ_UNCAL);
    EXPECT_EQ(taken[0].quality[2], KS_BQ_MASK);
    for (int b = 0; b < 5; ++b) {
        double sum = 0;
        int pixels = 0;
        for (int y = 1; y < 3; ++y) {
            for (int x = 2; x < 5; ++x) {
                if (x == 3 && y == 2) continue;
                sum += cube.value(x, y, b);
                ++pixels;
            }
        }
        EXPECT_DOUBLE_EQ(taken[0].values[static_cast<std::size_t>(b)], sum / pixels);
        EXPECT_DOUBLE_EQ(taken[1].values[static_cast<std::size_t>(b)], cube.value(6, 4, b));
    }
}

TEST_F(LibraryTest, TakesBandsInOrderOfWavelengthAndSaysWhatCannotBeTaken) {
    Cube cube;
    cube.bands = 4;
    cube.header = "wavelength units = nm\nwavelength = {700, 600, 650, 600}\n";
    writeCube(dir() / "cube.img", cube);
    const Result result = ks({"library", "take", "cube.img", "out.csv", "--roi", "point xoff 1 yoff 1 size 1"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(contains(result.err, "1 bands without a wavelength of their own")) << result.err;
    EXPECT_EQ(in("out.csv")[0].wavelengths, (std::vector<float>{600, 650, 700}));
    EXPECT_EQ(in("out.csv")[0].values, (std::vector<double>{111, 211, 11}));
    cube.header = "";
    writeCube(dir() / "plain.img", cube);
    EXPECT_TRUE(contains(ks({"library", "take", "plain.img", "o.csv", "--roi", "point xoff 1 yoff 1 size 1"}).err,
                         "no wavelengths"));
}

TEST_F(LibraryTest, AnImageOfOnePixelALineIsALibrary) {
    Cube cube;
    cube.width = 1;
    cube.height = 3;
    cube.bands = 2;
    cube.type = 4;
    cube.header = "wavelength units = nm\nwavelength = {500, 400}\nspectra names = {oak, beech, elm}\n";
    cube.value = [](int, int y, int b) { return y == 1 && b == 0 ? std::nan("") : y + 0.5 * b; };
    writeCube(dir() / "trees", cube);
    expectSame(in("trees"),
               {makeSpectrum("oak", {400, 500}, {0.5, 0}), makeSpectrum("beech", {400, 500}, {1.5, kMaskedValue}),
                makeSpectrum("elm", {400, 500}, {2.5, 2})});
    cube.width = 3;
    writeCube(dir() / "image", cube);
    const Result result = ks({"library", "list", "image"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(contains(result.err, "ks library take")) << result.err;
}

// ---- usage ----

TEST_F(LibraryTest, HelpOfEveryCommandHasAnExample) {
    for (const char* command : {"import", "export", "list", "plot", "take"}) {
        const Result result = ks({"library", command, "--help"});
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(contains(result.out, std::string("Example:\n  ks library ") + command)) << result.out;
    }
    EXPECT_EQ(ks({"library"}).status, 1);
    EXPECT_EQ(ks({"library", "list", "."}).status, 1);
    write("empty", "");
    EXPECT_TRUE(contains(ks({"library", "list", "empty"}).err, "empty"));
}

// ---- sample data ----

class LibraryData : public LibraryTest {
protected:
    void expectRoundTrips(const std::string& library) const {
        const Library expected = in(library);
        ASSERT_EQ(ks({"library", "plot", library, "plot.svg", "--force"}).status, 0);
        for (const char* name : {"trip.sli", "trip.csv", "trip.kslib"}) {
            const Result result = ks({"library", "export", library, name, "--force"});
            ASSERT_EQ(result.status, 0) << result.err;
            expectSame(in(name), expected, std::string(name) != "trip.csv");
        }
    }
};

TEST_F(LibraryData, Berlin) {
    const std::string file = sampleData("library-berlin/library_berlin.sli");
    if (file.empty()) GTEST_SKIP() << "KSLIB_DATA does not name a folder with library-berlin";
    const Result result = ks({"library", "import", file, "berlin.kslib"});
    ASSERT_EQ(result.status, 0) << result.err;
    const Library library = in("berlin.kslib");
    ASSERT_EQ(library.size(), 75U);
    EXPECT_EQ(library[0].name, "red clay tile 1");
    ASSERT_EQ(library[0].size(), 177U);
    EXPECT_FLOAT_EQ(library[0].wavelengths.front(), 460);
    EXPECT_FLOAT_EQ(library[0].wavelengths.back(), 2409);
    expectRoundTrips("berlin.kslib");
}

TEST_F(LibraryData, SnowMixtures) {
    const std::string file = sampleData("library-snow-mixtures/ecostress_snow_mixtures");
    if (file.empty()) GTEST_SKIP() << "KSLIB_DATA does not name a folder with library-snow-mixtures";
    const Result result = ks({"library", "import", file, "snow.kslib", "--quantity", "refl"});
    ASSERT_EQ(result.status, 0) << result.err;
    const Library library = in("snow.kslib");
    ASSERT_EQ(library.size(), 500U);
    ASSERT_EQ(library[499].size(), 216U);
    EXPECT_EQ(library[499].wavelengths.back(), 2500.0F);
    expectRoundTrips("snow.kslib");
}

TEST_F(LibraryData, AsterText) {
    const std::string folder = sampleData("library-aster-text");
    if (folder.empty()) GTEST_SKIP() << "KSLIB_DATA does not name a folder with library-aster-text";
    int imported = 0;
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (!contains(entry.path().filename().string(), ".spectrum.txt")) continue;
        const Result result = ks({"library", "import", entry.path().string(), "one.kslib", "--force"});
        ASSERT_EQ(result.status, 0) << result.err;
        const Library library = in("one.kslib");
        ASSERT_EQ(library.size(), 1U);
        EXPECT_TRUE(std::is_sorted(library[0].wavelengths.begin(), library[0].wavelengths.end()));
        for (const double value : library[0].values) EXPECT_TRUE(value > 0 && value < 1) << value;
        expectRoundTrips("one.kslib");
        ++imported;
    }
    EXPECT_EQ(imported, 3);
}

TEST_F(LibraryData, AsterValuesAreThoseOfTheFile) {
    const std::string file =
        sampleData("library-aster-text/jhu.becknic.vegetation.trees.conifers.solid.conifer.spectrum.txt");
    if (file.empty()) GTEST_SKIP() << "KSLIB_DATA does not name a folder with library-aster-text";
    const Library library = readLibrary(file);
    EXPECT_EQ(library[0].name, "Conifer");
    EXPECT_EQ(library[0].wavelengths.front(), 302.0F);
    EXPECT_EQ(library[0].values.front(), 0.03948);
    EXPECT_EQ(library[0].wavelengths.back(), 14000.0F);
    EXPECT_EQ(library[0].values.back(), 0.00904);
}

}  // namespace
}  // namespace clitest
