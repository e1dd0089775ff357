// ENVI spectral libraries as files of one layer: every sample type, byte order and unit, headers that do not agree with
// their files, and writing them.
#include <kshost_app.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "hostkit.hpp"
#include "speclibrary.hpp"

using hosttest::countShapes;
using hosttest::Reports;
using Texts = std::vector<std::string>;

namespace {

constexpr int kReal = 2;
constexpr int kText = 3;
constexpr int kLayers = 116;

/// Samples as a file holds them.
template <class Sample>
std::string bytesOf(const std::vector<Sample>& samples, bool bigEndian = false) {
    std::string bytes;
    for (const Sample& sample : samples) {
        std::array<char, sizeof(Sample)> one{};
        std::memcpy(one.data(), &sample, sizeof sample);
        if (bigEndian) std::reverse(one.begin(), one.end());
        bytes.append(one.data(), one.size());
    }
    return bytes;
}

std::string headerOf(int samples, int lines, int type, const std::string& more) {
    return "ENVI\nsamples = " + std::to_string(samples) + "\nlines = " + std::to_string(lines) +
           "\nbands = 1\nheader offset = 0\nfile type = ENVI Spectral Library\ndata type = " + std::to_string(type) +
           "\ninterleave = bsq\n" + more;
}

const std::string kThreeNm = "wavelength units = Nanometers\nwavelength = {450, 550.5, 2200.1234}\n";
const std::string kTwoNames = "spectra names = {red clay, grass (dry) 1}\n";

Texts fieldNames(HostLayer* layer) {
    Texts names;
    for (int i = 0; i < GDBGetNumFields(layer); ++i) names.emplace_back(GDBGetFieldName(layer, i));
    return names;
}

}  // namespace

class Libraries : public testing::Test {
protected:
    void SetUp() override { KSHostResetErrorCount(); }

    /// Opens a library of two spectra of three doubles, or of whatever is given.
    HostFile* open(const std::string& more, const std::string& bytes = kBytes, int type = 5, const char* access = "r") {
        hosttest::write(path, bytes);
        hosttest::write(folder / "lib.hdr", headerOf(3, 2, type, more));
        return GDBOpen(path.c_str(), access);
    }
    std::string onlyReport() {
        EXPECT_EQ(reports.all.size(), 1U);
        std::string text = reports.all.empty() ? std::string() : reports.all.back().text;
        reports.all.clear();
        return text;
    }
    std::string refusal(const std::string& header, const std::string& bytes) {
        reports.all.clear();
        hosttest::write(path, bytes);
        hosttest::write(folder / "lib.hdr", header);
        EXPECT_EQ(GDBOpen(path.c_str(), "r"), nullptr);
        return reports.all.empty() ? std::string() : reports.all.back().text;
    }
    /// A library with the fields that spectra from an image have; the caller closes it.
    HostFile* writing(int type = KSHOST_TYPE_SPECTRAL_LIBRARY) {
        return GDBCreate(type, path.c_str(), 512, 512, 0, 1, "");
    }

    static inline const std::string kBytes = bytesOf<double>({0.1, -0.0, 1e300, 0.25, 0.5, 0.75});
    hosttest::TemporaryFolder folder;
    std::string path = folder / "lib.sli";
    Reports reports;
};

// ---- reading ----

TEST_F(Libraries, OneIsAFileWithoutChannelsWhoseFirstLayerHasTheSpectra) {
    HostFile* fp = open(kThreeNm + kTwoNames);
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(fp2type(fp), 29);
    EXPECT_EQ(GDBChanNum(fp), 0);
    EXPECT_EQ(GDBSegNext(fp, kLayers, 0), 1);
    EXPECT_EQ(GDBSegNext(fp, kLayers, 1), -1);
    HostLayer* layer = GDBGetLayer(fp, 1);
    ASSERT_NE(layer, nullptr);
    EXPECT_EQ(GDBLayer2Type(layer), 29);
    EXPECT_EQ(fieldNames(layer), (Texts{"Target", "Quantity", "m450_000", "m550_500", "m2200_123"}));
    EXPECT_EQ(countShapes(layer), 2);
    EXPECT_STREQ(GDBGetValueString(layer, 0, 0), "red clay");
    EXPECT_STREQ(GDBGetValueString(layer, 1, 0), "grass (dry) 1");
    EXPECT_STREQ(GDBGetValueString(layer, 1, 1), "unknown");
    EXPECT_EQ(GDBGetValue(layer, 0, 2), 0.1);
    EXPECT_TRUE(std::signbit(GDBGetValue(layer, 0, 3)));
    EXPECT_EQ(GDBGetValue(layer, 0, 4), 1e300);
    EXPECT_EQ(GDBGetValue(layer, 1, 4), 0.75);
    EXPECT_STREQ(GDBGetValueString(layer, 1, 3), "0.5");
    KSHostLayout layout{};
    EXPECT_EQ(KSHostGetLayout(fp, &layout), 1);
    EXPECT_STREQ(layout.szFormat, "ENVI Spectral Library");
    EXPECT_STREQ(layout.szSampleType, "Float64");
    EXPECT_EQ(layout.szHeader, folder / "lib.hdr");
    GDBClose(fp);
    EXPECT_TRUE(reports.all.empty());
    EXPECT_EQ(folder.names().size(), 2U);
}

TEST_F(Libraries, EverySampleTypeAndByteOrderIsRead) {
    const auto read = [&](int type, const std::string& bytes, bool bigEndian, const std::vector<double>& expected) {
        HostFile* fp = open(kThreeNm + kTwoNames + "byte order = " + (bigEndian ? "1" : "0") + "\n", bytes, type);
        ASSERT_NE(fp, nullptr) << type;
        HostLayer* layer = GDBGetLayer(fp, 1);
        for (int i = 0; i < 6; ++i)
            EXPECT_EQ(GDBGetValue(layer, i / 3, 2 + i % 3), expected[static_cast<size_t>(i)])
                << type << " " << bigEndian;
        GDBClose(fp);
    };
    for (const bool big : {false, true}) {
        read(1, bytesOf<std::uint8_t>({0, 1, 2, 3, 4, 255}), big, {0, 1, 2, 3, 4, 255});
        read(2, bytesOf<std::int16_t>({-32768, -1, 0, 1, 2, 32767}, big), big, {-32768, -1, 0, 1, 2, 32767});
        read(12, bytesOf<std::uint16_t>({0, 1, 256, 1000, 2, 65535}, big), big, {0, 1, 256, 1000, 2, 65535});
        read(3, bytesOf<std::int32_t>({-2147483647, 1, 65536, 3, 4, 5}, big), big, {-2147483647, 1, 65536, 3, 4, 5});
        read(13, bytesOf<std::uint32_t>({4294967295U, 1, 2, 3, 4, 5}, big), big, {4294967295.0, 1, 2, 3, 4, 5});
        read(14, bytesOf<std::int64_t>({-(1LL << 52U), 1, 2, 3, 4, 5}, big), big, {-4503599627370496.0, 1, 2, 3, 4, 5});
        read(15, bytesOf<std::uint64_t>({1ULL << 63U, 1, 2, 3, 4, 5}, big), big,
             {9223372036854775808.0, 1, 2, 3, 4, 5});
        read(4, bytesOf<float>({0.1F, -1.23e34F, 0.5F, 1, 2, 3}, big), big,
             {static_cast<double>(0.1F), static_cast<double>(-1.23e34F), 0.5, 1, 2, 3});
        read(5, bytesOf<double>({0.1, 1e-300, -2, 1, 2, 3}, big), big, {0.1, 1e-300, -2, 1, 2, 3});
    }
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(Libraries, WavelengthsBecomeNanometres) {
    const auto fields = [&](const std::string& more) {
        HostFile* fp = open(more + kTwoNames);
        if (fp == nullptr) return Texts{};
        Texts names = fieldNames(GDBGetLayer(fp, 1));
        names.erase(names.begin(), names.begin() + 2);
        GDBClose(fp);
        return names;
    };
    const Texts expected = {"m450_000", "m550_500", "m2200_123"};
    EXPECT_EQ(fields("wavelength units = Micrometers\nwavelength = {0.45, 0.5505, 2.200123}\n"), expected);
    EXPECT_EQ(fields("wavelength units = \xc2\xb5m\nwavelength = {0.45, 0.5505, 2.200123}\n"), expected);
    EXPECT_EQ(fields("wavelength units = nm\nwavelength = {450, 550.5, 2200.123}\n"), expected);
    EXPECT_EQ(fields("wavelength units = Wavenumber\nwavelength = {20000, 10000, 4000}\n"),
              (Texts{"m500_000", "m1000_000", "m2500_000"}));
    EXPECT_TRUE(reports.all.empty());
    EXPECT_EQ(fields("wavelength = {0.45, 0.5505, 2.200123}\n"), expected);
    EXPECT_NE(onlyReport().find("taken as micrometres"), std::string::npos);
    // A fraction that rounds up carries over: the field must not be a nanometre off.
    EXPECT_EQ(fields("wavelength units = nm\nwavelength = {450.9996, 451.9994, 9.9999}\n"),
              (Texts{"m451_000", "m451_999", "m10_000"}));
}

TEST_F(Libraries, AReflectanceScaleFactorIsApplied) {
    HostFile* fp = open(kThreeNm + kTwoNames + "reflectance scale factor = 10000\n",
                        bytesOf<std::int16_t>({4561, 10000, 1, 0, -5, 3}), 2);
    HostLayer* layer = GDBGetLayer(fp, 1);
    EXPECT_EQ(GDBGetValue(layer, 0, 2), 0.4561);
    EXPECT_EQ(GDBGetValue(layer, 0, 3), 1.0);
    EXPECT_EQ(GDBGetValue(layer, 1, 3), -0.0005);
    EXPECT_STREQ(GDBGetValueString(layer, 0, 1), "refl");
    GDBClose(fp);
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(Libraries, AnIgnoredValueIsNoNumber) {
    HostFile* fp = open(kThreeNm + kTwoNames + "data ignore value = -1.23e+34\nreflectance scale factor = 100\n",
                        bytesOf<float>({-1.23e34F, 50, 1, 0, 2, 3}), 4);
    HostLayer* layer = GDBGetLayer(fp, 1);
    EXPECT_TRUE(std::isnan(GDBGetValue(layer, 0, 2)));
    EXPECT_EQ(GDBGetValue(layer, 0, 3), 0.5);
    GDBClose(fp);
}

TEST_F(Libraries, TheHeaderOffsetIsSkipped) {
    hosttest::write(path, "preamble" + kBytes);
    std::string header = headerOf(3, 2, 5, kThreeNm + kTwoNames);
    header.replace(header.find("header offset = 0"), 17, "header offset = 8");
    hosttest::write(path + ".hdr", header);
    HostFile* fp = GDBOpen(path.c_str(), "r");
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(GDBGetValue(GDBGetLayer(fp, 1), 1, 4), 0.75);
    GDBClose(fp);
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(Libraries, TheExtensionMayBeAnyOrNone) {
    for (const std::string& name : {folder / "a.slb", folder / "spectra", folder / "b.img"}) {
        hosttest::write(name, kBytes);
        hosttest::write(name + ".hdr", headerOf(3, 2, 5, kThreeNm + kTwoNames));
        HostFile* fp = GDBOpen(name.c_str(), "r");
        ASSERT_NE(fp, nullptr) << name;
        EXPECT_EQ(countShapes(GDBGetLayer(fp, 1)), 2);
        GDBClose(fp);
    }
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(Libraries, ASpectrumIsReadWhenItIsAskedFor) {
    constexpr int kBands = 2000, kSpectra = 1000;
    std::string wavelengths = "wavelength units = nm\nwavelength = {350";
    for (int i = 1; i < kBands; ++i) wavelengths += ", " + std::to_string(350 + i);
    hosttest::write(path, std::string(size_t{kBands} * kSpectra * 8, '\0'));
    hosttest::write(folder / "lib.hdr", headerOf(kBands, kSpectra, 5, wavelengths + "}\n"));
    HostFile* fp = GDBOpen(path.c_str(), "r");
    ASSERT_NE(fp, nullptr);
    const long long before = hosttest::bytesRead();
    HostLayer* layer = GDBGetLayer(fp, 1);
    EXPECT_EQ(countShapes(layer), kSpectra);
    for (int field = 2; field < 2 + kBands; ++field) EXPECT_EQ(GDBGetValue(layer, 500, field), 0.0);
    EXPECT_LT(hosttest::bytesRead() - before, 4 * kBands * 8);
    GDBClose(fp);
}

TEST_F(Libraries, MissingAndExtraNamesAreReported) {
    HostFile* fp = open(kThreeNm + "spectra names = {only one}\n");
    EXPECT_NE(onlyReport().find("names 1 spectra of 2; the others are numbered"), std::string::npos);
    EXPECT_STREQ(GDBGetValueString(GDBGetLayer(fp, 1), 1, 0), "spectrum 2");
    GDBClose(fp);
    fp = open(kThreeNm + "spectra names = {a, b, c}\n");
    EXPECT_NE(onlyReport().find("names 3 spectra of 2; the last names are ignored"), std::string::npos);
    EXPECT_STREQ(GDBGetValueString(GDBGetLayer(fp, 1), 1, 0), "b");
    HostStringList remarks = KSHostGetRemarks(fp);
    EXPECT_EQ(CountStringList(remarks), 1);
    DestroyStringList(remarks);
    GDBClose(fp);
    EXPECT_EQ(KSHostErrorCount(), 0);
}

TEST_F(Libraries, AnUnusableWavelengthLosesItsFieldOnly) {
    HostFile* fp = open("wavelength units = nm\nwavelength = {450, broken, 650}\n" + kTwoNames);
    ASSERT_NE(fp, nullptr);
    HostLayer* layer = GDBGetLayer(fp, 1);
    EXPECT_EQ(fieldNames(layer), (Texts{"Target", "Quantity", "m450_000", "m650_000"}));
    EXPECT_EQ(GDBGetValue(layer, 1, 3), 0.75);
    EXPECT_TRUE(reports.mention("not usable"));
    GDBClose(fp);
}

TEST_F(Libraries, HeadersThatDoNotAgreeWithTheFileAreRefused) {
    const std::string good = headerOf(3, 2, 5, kThreeNm + kTwoNames);
    const auto changed = [&](const std::string& from, const std::string& to) {
        std::string header = good;
        return header.replace(header.find(from), from.size(), to);
    };
    EXPECT_NE(refusal(good, kBytes.substr(0, 47)).find("has 47 bytes where its header says 48 (2 spectra of 3 values)"),
              std::string::npos);
    EXPECT_NE(refusal(changed("lines = 2", "lines = 2000000000"), kBytes).find("get the whole file"),
              std::string::npos);
    EXPECT_NE(refusal(changed("samples = 3", "samples = 2147483647"), kBytes).find("bytes"), std::string::npos);
    EXPECT_NE(refusal(changed("samples = 3", "samples = -3"), kBytes).find("cannot be used"), std::string::npos);
    EXPECT_NE(refusal(changed("samples = 3", "samples = 2"), kBytes).find("3 wavelengths for 2 values"),
              std::string::npos);
    EXPECT_NE(refusal(changed("bands = 1", "bands = 2"), kBytes + kBytes).find("has one band"), std::string::npos);
    EXPECT_NE(refusal(changed("data type = 5", "data type = 6"), kBytes).find("complex"), std::string::npos);
    EXPECT_NE(refusal(changed("data type = 5", "data type = 77"), kBytes).find("unknown"), std::string::npos);
    EXPECT_NE(refusal(changed("wavelength = {450, 550.5, 2200.1234}", ""), kBytes).find("no wavelengths"),
              std::string::npos);
    EXPECT_NE(refusal(changed("450, 550.5, 2200.1234", "a, b, c"), kBytes).find("no wavelength of the header"),
              std::string::npos);
    EXPECT_NE(refusal(changed("Nanometers", "furlongs"), kBytes).find("no wavelength of the header"),
              std::string::npos);
    EXPECT_GE(KSHostErrorCount(), 11);
}

TEST_F(Libraries, ALongerFileIsReportedAndRead) {
    HostFile* fp = open(kThreeNm + kTwoNames, kBytes + "tail");
    ASSERT_NE(fp, nullptr);
    EXPECT_NE(onlyReport().find("has 52 bytes where its header says 48"), std::string::npos);
    GDBClose(fp);
}

TEST_F(Libraries, AFileThatShrinksWhileItIsOpenIsReported) {
    HostFile* fp = open(kThreeNm + kTwoNames);
    HostLayer* layer = GDBGetLayer(fp, 1);
    EXPECT_EQ(GDBGetValue(layer, 0, 2), 0.1);
    ASSERT_EQ(truncate(path.c_str(), 30), 0);
    EXPECT_EQ(GDBGetValue(layer, 1, 2), 0.0);
    EXPECT_NE(onlyReport().find("has become shorter"), std::string::npos);
    EXPECT_EQ(GDBGetValue(layer, 0, 2), 0.1);
    GDBClose(fp);
}

TEST_F(Libraries, AnImageBesideALibrarysHeaderIsAnImage) {
    // The first bytes of a PNG file: not one that opens, but no spectra either.
    hosttest::write(folder / "lib.png", "\x89PNG\r\n\x1a\n" + std::string(64, '\0'));
    hosttest::write(folder / "lib.hdr", headerOf(3, 2, 5, kThreeNm));
    EXPECT_EQ(GDBOpen((folder / "lib.png").c_str(), "r"), nullptr);
    EXPECT_FALSE(reports.mention("spectra of"));
}

TEST_F(Libraries, AnnotationsGoIntoASidecarAndTheSpectraStayAsTheyAre) {
    HostFile* fp = open(kThreeNm + kTwoNames + "description = {field work}\n", kBytes, 5, "r+");
    ASSERT_NE(fp, nullptr);
    EXPECT_STREQ(GDBFetchMetaDataEntry(fp, 1, -1, "ENVI:description"), "{field work}");
    EXPECT_EQ(GDBFetchMetaDataEntry(fp, 1, -1, "ENVI:spectra names"), nullptr);
    HostLayer* layer = GDBGetLayer(fp, 1);
    EXPECT_EQ(GDBSetValue(layer, 0, 2, 5), 0);
    EXPECT_EQ(GDBCreateShape(layer, 0), -1);
    EXPECT_TRUE(reports.mention("copy it into another file"));
    reports.all.clear();
    GDBWriteHistory(fp, 1, -1, "looked at");
    ASSERT_EQ(GDBVectorCopy(fp, 1, fp, 0, 0, 0, 0), 2);
    EXPECT_EQ(GDBSetValue(GDBGetLayer(fp, 2), 0, 2, 5), 1);
    GDBClose(fp);
    EXPECT_EQ(hosttest::contentsOf(path), kBytes);
    fp = GDBOpen(path.c_str(), "r");
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(GDBSegNext(fp, kLayers, 1), 2);
    EXPECT_EQ(GDBLayer2Type(GDBGetLayer(fp, 2)), 3);
    EXPECT_EQ(GDBGetValue(GDBGetLayer(fp, 2), 0, 2), 5.0);
    EXPECT_EQ(GDBGetValue(GDBGetLayer(fp, 1), 0, 2), 0.1);
    GDBClose(fp);
    EXPECT_TRUE(reports.all.empty());
}

// ---- writing ----

TEST_F(Libraries, ALibraryComesBackBitForBit) {
    HostFile* fp = writing();
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(fp2type(fp), 29);
    HostLayer* layer = GDBCreateLayer(fp, "spectra", "", "");
    for (const char* name : {"Target", "Quantity"}) EXPECT_GE(GDBDefineNewField(layer, name, kText), 0);
    for (const char* name : {"m450_500", "m2200_000", "m351"}) EXPECT_GE(GDBDefineNewField(layer, name, kReal), 0);
    const std::vector<double> values = {0.1, -0.0, 1e-300, std::nan(""), -1.23e34, 1.0 / 3.0};
    const Texts names = {"first", ""};
    for (int shape = 0; shape < 2; ++shape) {
        ASSERT_EQ(GDBCreateShape(layer, 0), shape);
        GDBSetValueString(layer, shape, 0, names[static_cast<size_t>(shape)].c_str());
        GDBSetValueString(layer, shape, 1, "refl");
        for (int i = 0; i < 3; ++i) GDBSetValue(layer, shape, 2 + i, values[static_cast<size_t>(3 * shape + i)]);
    }
    EXPECT_TRUE(folder.names().empty());  // it appears when it is closed
    GDBClose(fp);
    EXPECT_TRUE(reports.all.empty());
    Texts files = folder.names();
    std::sort(files.begin(), files.end());
    EXPECT_EQ(files, (Texts{"lib.hdr", "lib.sli"}));
    EXPECT_EQ(hosttest::contentsOf(path), bytesOf(values));
    fp = GDBOpen(path.c_str(), "r");
    ASSERT_NE(fp, nullptr);
    layer = GDBGetLayer(fp, 1);
    EXPECT_EQ(fieldNames(layer), (Texts{"Target", "Quantity", "m450_500", "m2200_000", "m351_000"}));
    EXPECT_STREQ(GDBGetValueString(layer, 0, 0), "first");
    EXPECT_STREQ(GDBGetValueString(layer, 1, 0), "");
    EXPECT_STREQ(GDBGetValueString(layer, 1, 1), "refl");
    for (int i = 0; i < 6; ++i) {
        const double value = GDBGetValue(layer, i / 3, 2 + i % 3);
        EXPECT_EQ(std::memcmp(&value, &values[static_cast<size_t>(i)], sizeof value), 0) << i;
    }
    GDBClose(fp);
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(Libraries, QuantitiesOtherThanReflectanceComeBackToo) {
    for (const Texts& quantities : {Texts{"apprad", "refl"}, Texts{"unknown", "unknown"}, Texts{"", "refl"}}) {
        unlink(path.c_str());
        unlink((folder / "lib.hdr").c_str());
        HostFile* fp = writing();
        HostLayer* layer = GDBCreateLayer(fp, "spectra", "", "");
        GDBDefineNewField(layer, "Quantity", kText);
        GDBDefineNewField(layer, "m450_500", kReal);
        GDBDefineNewField(layer, "Target", kText);
        for (const std::string& quantity : quantities) {
            const int shape = GDBCreateShape(layer, 0);
            GDBSetValueString(layer, shape, 0, quantity.c_str());
            GDBSetValue(layer, shape, 1, 10000);
        }
        GDBClose(fp);
        fp = GDBOpen(path.c_str(), "r");
        ASSERT_NE(fp, nullptr);
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(GDBGetValueString(GDBGetLayer(fp, 1), i, 1), quantities[static_cast<size_t>(i)]);
            EXPECT_EQ(GDBGetValue(GDBGetLayer(fp, 1), i, 2), 10000.0);
        }
        GDBClose(fp);
    }
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(Libraries, NamesThatAHeaderCannotKeepAreChangedAndThatIsSaid) {
    HostFile* fp = writing();
    HostLayer* layer = GDBCreateLayer(fp, "spectra", "", "");
    GDBDefineNewField(layer, "Target", kText);
    GDBDefineNewField(layer, "m450", kReal);
    const Texts names = {"plain", "granite, coarse", "{set}\nwavelength = {1}", ";first of a line", "gras \xc3\xbc"};
    for (const std::string& name : names) GDBSetValueString(layer, GDBCreateShape(layer, 0), 0, name.c_str());
    GDBClose(fp);
    EXPECT_NE(onlyReport().find("3 of 5 names"), std::string::npos);
    EXPECT_EQ(KSHostErrorCount(), 0);
    fp = GDBOpen(path.c_str(), "r");
    ASSERT_NE(fp, nullptr);
    layer = GDBGetLayer(fp, 1);
    EXPECT_EQ(countShapes(layer), 5);
    EXPECT_STREQ(GDBGetValueString(layer, 0, 0), "plain");
    EXPECT_STREQ(GDBGetValueString(layer, 1, 0), "granite; coarse");
    EXPECT_STREQ(GDBGetValueString(layer, 2, 0), "(set) wavelength = (1)");
    EXPECT_STREQ(GDBGetValueString(layer, 3, 0), ":first of a line");
    EXPECT_STREQ(GDBGetValueString(layer, 4, 0), "gras \xc3\xbc");
    GDBClose(fp);
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(Libraries, FieldsThatALibraryCannotHoldAreLeftOutOfTheCopy) {
    HostFile* memory = GDBCreate(KSHOST_TYPE_MEMORY, "", 512, 512, 0, 1, "");
    HostLayer* layer = GDBCreateLayer(memory, "spectra", "", "");
    for (const char* name : {"Target", "Quantity", "Source_File", "ROI"}) GDBDefineNewField(layer, name, kText);
    GDBDefineNewField(layer, "m450_000", kReal);
    GDBDefineNewField(layer, "q450_000", kText);
    GDBDefineNewField(layer, "m", kReal);
    GDBDefineNewField(layer, "m45a", kReal);
    GDBDefineNewField(layer, "m550_000", kText);
    GDBSetValue(layer, GDBCreateShape(layer, 0), 4, 0.5);
    HostFile* fp = writing();
    ASSERT_EQ(GDBVectorCopy(memory, 1, fp, 0, 0, 0, 0), 1);
    HostLayer* copy = GDBGetLayer(fp, 1);
    EXPECT_EQ(fieldNames(copy), (Texts{"Target", "Quantity", "m450_000"}));
    EXPECT_EQ(GDBGetValue(copy, 0, 2), 0.5);
    EXPECT_EQ(GDBLayer2Type(copy), 29);
    EXPECT_TRUE(reports.all.empty());
    EXPECT_EQ(GDBDefineNewField(copy, "q450_000", kText), -1);
    EXPECT_EQ(GDBDefineNewField(copy, "Target", kText), -1);
    EXPECT_EQ(GDBVectorCopy(memory, 1, fp, 0, 0, 0, 0), 0);
    EXPECT_TRUE(reports.mention("holds one layer"));
    GDBClose(fp);
    GDBClose(memory);
    EXPECT_EQ(hosttest::contentsOf(path), bytesOf<double>({0.5}));
}

TEST_F(Libraries, WithoutSpectraOrWavelengthsNothingIsMade) {
    HostFile* fp = writing();
    GDBClose(fp);  // nothing to write is no failure
    EXPECT_TRUE(reports.all.empty());
    fp = writing();
    HostLayer* layer = GDBCreateLayer(fp, "spectra", "", "");
    GDBDefineNewField(layer, "Target", kText);
    GDBCreateShape(layer, 0);
    GDBClose(fp);
    EXPECT_NE(onlyReport().find("at least one field of measurements"), std::string::npos);
    fp = writing();
    layer = GDBCreateLayer(fp, "spectra", "", "");
    GDBDefineNewField(layer, "m450", kReal);
    GDBClose(fp);
    EXPECT_NE(onlyReport().find("at least one spectrum"), std::string::npos);
    EXPECT_TRUE(folder.names().empty());
}

TEST_F(Libraries, AFlushedLibraryIsReplacedWhole) {
    HostFile* fp = writing();
    HostLayer* layer = GDBCreateLayer(fp, "spectra", "", "");
    GDBDefineNewField(layer, "m450", kReal);
    GDBSetValue(layer, GDBCreateShape(layer, 0), 0, 1);
    ASSERT_EQ(KSHostFlush(fp), 1);
    EXPECT_EQ(hosttest::contentsOf(path), bytesOf<double>({1}));
    GDBSetValue(layer, GDBCreateShape(layer, 0), 0, 2);
    GDBClose(fp);
    EXPECT_EQ(hosttest::contentsOf(path), bytesOf<double>({1, 2}));
    EXPECT_TRUE(reports.all.empty());
    EXPECT_EQ(folder.names().size(), 2U);
}

TEST_F(Libraries, NothingIsLeftWhereWritingFails) {
    const auto fill = [](HostFile* fp) {
        HostLayer* layer = GDBCreateLayer(fp, "spectra", "", "");
        GDBDefineNewField(layer, "m450", kReal);
        for (int i = 0; i < 1000; ++i) GDBSetValue(layer, GDBCreateShape(layer, 0), 0, i);
    };
    HostFile* fp = writing();
    fill(fp);
    {
        const hosttest::FullDisk full(4096);  // room for the header, not for the spectra
        GDBClose(fp);
    }
    EXPECT_NE(onlyReport().find("cannot be written"), std::string::npos);
    EXPECT_TRUE(folder.names().empty());
    // A file that appeared meanwhile is somebody else's.
    fp = writing();
    fill(fp);
    hosttest::write(path, "theirs");
    GDBClose(fp);
    EXPECT_NE(onlyReport().find("File exists"), std::string::npos);
    EXPECT_EQ(folder.names(), Texts{"lib.sli"});
    EXPECT_EQ(hosttest::contentsOf(path), "theirs");
}

TEST(SpectralLibraries, FieldsAreNamedAfterTheirWavelength) {
    EXPECT_EQ(kshost::measurementField(450.5), "m450_500");
    EXPECT_EQ(kshost::measurementField(2200), "m2200_000");
    EXPECT_EQ(kshost::measurementField(0.25), "m0_250");
    EXPECT_EQ(kshost::measurementField(450.9996), "m451_000");
}

TEST(SpectralLibraries, TheBerlinLibraryOpens) {
    const char* data = std::getenv("KSLIB_DATA");
    if (data == nullptr) GTEST_SKIP() << "KSLIB_DATA is not set";
    const Reports reports;
    const std::string library = std::string(data) + "/library-berlin/library_berlin.sli";
    HostFile* fp = GDBOpen(library.c_str(), "r");
    ASSERT_NE(fp, nullptr);
    HostLayer* layer = GDBGetLayer(fp, 1);
    EXPECT_EQ(countShapes(layer), 75);
    EXPECT_EQ(GDBGetNumFields(layer), 2 + 177);
    EXPECT_STREQ(GDBGetFieldName(layer, 2), "m460_000");
    EXPECT_STREQ(GDBGetFieldName(layer, 178), "m2409_000");
    EXPECT_STREQ(GDBGetValueString(layer, 0, 0), "red clay tile 1");
    const std::string bytes = hosttest::contentsOf(library);
    for (const int shape : {0, 40, 74}) {
        for (int band = 0; band < 177; ++band) {
            double value = 0;
            std::memcpy(&value, bytes.data() + (shape * 177 + band) * 8, sizeof value);
            EXPECT_EQ(GDBGetValue(layer, shape, 2 + band), value);
        }
    }
    GDBClose(fp);
    EXPECT_TRUE(reports.all.empty());
}
