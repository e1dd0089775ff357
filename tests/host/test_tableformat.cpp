// Tables for other programs: what they contain, what the formats' limits drop, and that they appear whole or not at
// all.
#include <kshost_app.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

#include "hostkit.hpp"
#include "tableformat.hpp"

using hosttest::Reports;
using Texts = std::vector<std::string>;

namespace {

constexpr int kReal = 2;
constexpr int kText = 3;

Texts linesOf(const std::string& text) {
    Texts lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

/// The characters of a dBASE table: header values are little-endian, records have fixed widths.
struct DbfTable {
    explicit DbfTable(const std::string& bytes) {
        const auto at = [&](size_t i) { return static_cast<unsigned char>(bytes[i]); };
        records = at(4) | (at(5) << 8);
        const size_t start = static_cast<size_t>(at(8) | (at(9) << 8));
        const size_t length = static_cast<size_t>(at(10) | (at(11) << 8));
        for (size_t field = 32; field + 32 < start; field += 32) {
            names.emplace_back(bytes.c_str() + field);
            widths.push_back(at(field + 16));
        }
        for (int record = 0; record < records; ++record) {
            size_t from = start + static_cast<size_t>(record) * length + 1;
            for (const size_t width : widths) {
                values.push_back(bytes.substr(from, width));
                from += width;
            }
        }
    }
    std::string value(int record, size_t field) const {
        std::string text = values[static_cast<size_t>(record) * names.size() + field];
        text.erase(text.find_last_not_of(' ') + 1);
        return text.substr(std::min(text.find_first_not_of(' '), text.size()));
    }
    int records = 0;
    Texts names;
    std::vector<size_t> widths;
    Texts values;
};

}  // namespace

class Tables : public testing::Test {
protected:
    void SetUp() override { KSHostResetErrorCount(); }

    HostLayer* start(int type, const std::string& name) {
        fp = GDBCreate(type, (folder / name).c_str(), 512, 512, 0, 1, "");
        return fp != nullptr ? GDBCreateLayer(fp, "spectra", "", "") : nullptr;
    }
    std::string finish(const std::string& name) {
        EXPECT_TRUE(folder.names().empty());
        GDBClose(fp);
        return hosttest::contentsOf(folder / name);
    }

    HostFile* fp = nullptr;
    hosttest::TemporaryFolder folder;
    Reports reports;
};

TEST_F(Tables, ValuesSeparatedByCommasKeepEveryDigit) {
    HostLayer* layer = start(KSHOST_TYPE_CSV, "spectra.csv");
    ASSERT_NE(layer, nullptr);
    EXPECT_EQ(GDBLayer2Type(layer), KSHOST_TYPE_CSV);
    GDBDefineNewField(layer, "Target", kText);
    GDBDefineNewField(layer, "m450_500", kReal);
    GDBDefineNewField(layer, "m500_000", kReal);
    const std::vector<double> values = {0.1, 1.0 / 3.0, -0.0, 1.23e-30, 123456789.125, std::nan("")};
    const Texts names = {"grass", "say \"a, b\"", "two\nlines"};
    for (int shape = 0; shape < 3; ++shape) {
        GDBCreateShape(layer, 0);
        GDBSetValueString(layer, shape, 0, names[static_cast<size_t>(shape)].c_str());
        for (int i = 0; i < 2; ++i) GDBSetValue(layer, shape, 1 + i, values[static_cast<size_t>(2 * shape + i)]);
    }
    const Texts lines = linesOf(finish("spectra.csv"));
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[0], "Target,m450_500,m500_000");
    EXPECT_EQ(lines[1], "grass,0.1,0.3333333333333333");
    EXPECT_EQ(lines[2].substr(0, 19), "\"say \"\"a, b\"\"\",-0,1");
    EXPECT_EQ(std::strtod(lines[2].c_str() + lines[2].rfind(',') + 1, nullptr), 1.23e-30);
    EXPECT_EQ(lines[3], "\"two");
    EXPECT_EQ(lines[4], "lines\",123456789.125,nan");
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(Tables, FeaturesKeepEveryDigit) {
    HostLayer* layer = start(KSHOST_TYPE_GEOJSON, "spectra.geojson");
    GDBDefineNewField(layer, "Target", kText);
    GDBDefineNewField(layer, "m450_500", kReal);
    GDBDefineNewField(layer, "m500_000", kReal);
    GDBCreateShape(layer, 0);
    GDBSetValueString(layer, 0, 0, "say \"\xe9\"");
    GDBSetValue(layer, 0, 1, 1.0 / 3.0);
    GDBSetValue(layer, 0, 2, std::numeric_limits<double>::infinity());
    const std::string json = finish("spectra.geojson");
    EXPECT_NE(json.find("\"FeatureCollection\""), std::string::npos);
    EXPECT_NE(json.find("\"Target\": \"say \\\"\xc3\xa9\\\"\""), std::string::npos) << json;
    const size_t at = json.find("\"m450_500\": ");
    ASSERT_NE(at, std::string::npos);
    EXPECT_EQ(std::strtod(json.c_str() + at + 12, nullptr), 1.0 / 3.0);
    EXPECT_NE(json.find("\"m500_000\": null"), std::string::npos) << json;
    EXPECT_NE(json.find("\"geometry\": null"), std::string::npos);
    ASSERT_EQ(reports.all.size(), 1U);  // infinity has no place in such a file
    EXPECT_EQ(reports.all[0].severity, 0);
    EXPECT_NE(reports.all[0].text.find("1 values that are no finite numbers"), std::string::npos);
}

TEST_F(Tables, ATableOfTwoHundredFiftyFiveFieldsDropsTheRest) {
    HostFile* memory = GDBCreate(KSHOST_TYPE_MEMORY, "", 512, 512, 0, 1, "");
    HostLayer* layer = GDBCreateLayer(memory, "spectra", "", "");
    for (const char* name : {"Target", "Quantity", "Source_File", "source_files"})
        GDBDefineNewField(layer, name, kText);
    for (int i = 0; i < 300; ++i) GDBDefineNewField(layer, ("m" + std::to_string(400 + i) + "_500").c_str(), kReal);
    GDBCreateShape(layer, 0);
    GDBSetValueString(layer, 0, 0, "gr\xc3\xbcn");
    GDBSetValueString(layer, 0, 1, std::string(300, 'x').c_str());
    GDBSetValue(layer, 0, 4, 0.123456789012345);
    GDBSetValue(layer, 0, 5, -1.23e34);
    GDBSetValue(layer, 0, 6, -9999);
    fp = GDBCreate(KSHOST_TYPE_DBF, (folder / "spectra.dbf").c_str(), 512, 512, 0, 1, "");
    ASSERT_NE(fp, nullptr);
    ASSERT_EQ(GDBVectorCopy(memory, 1, fp, 0, 0, 0, 0), 1);
    HostLayer* copy = GDBGetLayer(fp, 1);
    ASSERT_EQ(GDBGetNumFields(copy), 255);
    EXPECT_STREQ(GDBGetFieldName(copy, 2), "Source_Fil");
    EXPECT_STREQ(GDBGetFieldName(copy, 3), "source_f_2");
    EXPECT_STREQ(GDBGetFieldName(copy, 254), "m650_500");
    EXPECT_TRUE(reports.all.empty());
    EXPECT_EQ(GDBDefineNewField(copy, "more", kReal), -1);
    EXPECT_EQ(reports.all.size(), 1U);
    reports.all.clear();
    GDBClose(memory);
    const DbfTable table(finish("spectra.dbf"));
    ASSERT_EQ(table.names.size(), 255U);
    EXPECT_EQ(table.names[2], "Source_Fil");
    EXPECT_EQ(table.names[254], "m650_500");
    ASSERT_EQ(table.records, 1);
    EXPECT_EQ(table.value(0, 0), "gr\xc3\xbcn");
    EXPECT_EQ(table.value(0, 1), std::string(254, 'x'));
    EXPECT_EQ(std::strtod(table.value(0, 4).c_str(), nullptr), 0.123456789012345);
    EXPECT_EQ(table.value(0, 5), std::string(24, '*'));  // the format's way to say that there is no number
    EXPECT_EQ(std::strtod(table.value(0, 6).c_str(), nullptr), -9999.0);
    EXPECT_EQ(hosttest::contentsOf(folder / "spectra.cpg"), "UTF-8");
    EXPECT_EQ(folder.names().size(), 2U);
    EXPECT_EQ(reports.all.size(), 2U);
    EXPECT_TRUE(reports.mention("1 values that are no finite numbers, or too large"));
    EXPECT_TRUE(reports.mention("1 texts are cut to 254 bytes"));
    EXPECT_EQ(KSHostErrorCount(), 1);  // the field that was refused
}

TEST_F(Tables, EqualNamesAreToldApart) {
    HostFile* memory = GDBCreate(KSHOST_TYPE_MEMORY, "", 512, 512, 0, 1, "");
    HostLayer* layer = GDBCreateLayer(memory, "spectra", "", "");
    for (const char* name : {"m450_000", "m450_000", "M450_000"}) GDBDefineNewField(layer, name, kReal);
    for (int i = 0; i < 3; ++i) GDBSetValue(layer, i == 0 ? GDBCreateShape(layer, 0) : 0, i, i + 1);
    fp = GDBCreate(KSHOST_TYPE_CSV, (folder / "spectra.txt").c_str(), 512, 512, 0, 1, "");
    ASSERT_EQ(GDBVectorCopy(memory, 1, fp, 0, 0, 0, 0), 1);
    EXPECT_EQ(linesOf(finish("spectra.txt")), (Texts{"m450_000,m450_000_2,M450_000_3", "1,2,3"}));
    GDBClose(memory);
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(Tables, ThousandsOfFieldsAreWritten) {
    HostLayer* layer = start(KSHOST_TYPE_CSV, "spectra.csv");
    auto table = GDBGetNumFields(layer);
    ASSERT_EQ(table, 0);
    HostFile* memory = GDBCreate(KSHOST_TYPE_MEMORY, "", 512, 512, 0, 1, "");
    HostLayer* wide = GDBCreateLayer(memory, "spectra", "", "");
    for (int i = 0; i < 4307; ++i) GDBDefineNewField(wide, ("m" + std::to_string(i)).c_str(), kReal);
    GDBSetValue(wide, GDBCreateShape(wide, 0), 4306, 0.7);
    GDBClose(fp);
    reports.all.clear();
    fp = GDBCreate(KSHOST_TYPE_CSV, (folder / "wide.csv").c_str(), 512, 512, 0, 1, "");
    ASSERT_EQ(GDBVectorCopy(memory, 1, fp, 0, 0, 0, 0), 1);
    const Texts lines = linesOf(finish("wide.csv"));
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(std::count(lines[1].begin(), lines[1].end(), ','), 4306);
    EXPECT_EQ(lines[1].substr(lines[1].rfind(',')), ",0.7");
    GDBClose(memory);
}

TEST_F(Tables, AnEmptyTableIsRefusedAndAFullDiskLeavesNothing) {
    for (const int type : {KSHOST_TYPE_CSV, KSHOST_TYPE_GEOJSON, KSHOST_TYPE_DBF}) {
        reports.all.clear();
        ASSERT_NE(start(type, "t.dbf"), nullptr);
        GDBClose(fp);
        EXPECT_TRUE(reports.mention("at least one field"));
        HostLayer* layer = start(type, "t.dbf");
        GDBDefineNewField(layer, "Target", kText);
        for (int i = 0; i < 1000; ++i) GDBSetValueString(layer, GDBCreateShape(layer, 0), 0, "a name of some length");
        {
            const hosttest::FullDisk full(4096);
            GDBClose(fp);
        }
        EXPECT_TRUE(reports.mention("t.dbf: cannot be written")) << type;
        EXPECT_TRUE(folder.names().empty());
    }
}

TEST_F(Tables, ATableWithoutShapesIsWritten) {
    HostLayer* layer = start(KSHOST_TYPE_CSV, "t.csv");
    GDBDefineNewField(layer, "Target", kText);
    GDBDefineNewField(layer, "m450", kReal);
    EXPECT_EQ(finish("t.csv"), "Target,m450\n");
    layer = start(KSHOST_TYPE_GEOJSON, "t.geojson");
    GDBDefineNewField(layer, "Target", kText);
    GDBClose(fp);
    EXPECT_NE(hosttest::contentsOf(folder / "t.geojson").find("\"features\": ["), std::string::npos);
    EXPECT_TRUE(reports.all.empty());
}
