// Vector layers through the boundary: in memory, in native files and beside images; what is kept, what is refused, and
// what a killed or failing commit leaves.
#include <kshost_app.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csetjmp>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "faultvfs.hpp"
#include "hostkit.hpp"
#include "otherprogram.hpp"
#include "table.hpp"

using hosttest::countShapes;
using hosttest::Fault;
using hosttest::FaultVfs;
using hosttest::inChild;
using hosttest::OtherProgram;
using hosttest::Reports;
using Texts = std::vector<std::string>;

namespace {

constexpr int kReal = 2;
constexpr int kText = 3;
constexpr int kLayers = 116;

std::uint64_t bitsOf(double value) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

double fromBits(std::uint64_t bits) {
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

HostFile* inMemory() { return GDBCreate(KSHOST_TYPE_MEMORY, "", 512, 512, 0, 1, ""); }

/// A layer of one text field and two real ones with `shapes` shapes whose values follow from their numbers.
HostLayer* addSpectra(HostFile* fp, int shapes) {
    HostLayer* layer = GDBCreateLayer(fp, "spectra", "", "");
    GDBDefineNewField(layer, "Target", kText);
    GDBDefineNewField(layer, "m450_000", kReal);
    GDBDefineNewField(layer, "m550_500", kReal);
    for (int i = 0; i < shapes; ++i) {
        const int shape = GDBCreateShape(layer, 0);
        GDBSetValueString(layer, shape, 0, ("shape " + std::to_string(i)).c_str());
        GDBSetValue(layer, shape, 1, i + 0.25);
        GDBSetValue(layer, shape, 2, -i);
    }
    return layer;
}

Texts fieldNames(HostLayer* layer) {
    Texts names;
    for (int i = 0; i < GDBGetNumFields(layer); ++i) names.emplace_back(GDBGetFieldName(layer, i));
    return names;
}

/// Bytes that this process has written to files so far; 0 where the system does not count them.
long long bytesWritten() {
    std::ifstream file("/proc/self/io");
    std::string key;
    long long count = 0;
    while (file >> key >> count)
        if (key == "wchar:") return count;
    return 0;
}

}  // namespace

class Layers : public testing::Test {
protected:
    void SetUp() override {
        setenv("KSHOST_BUSY_TIMEOUT", "50", 1);
        KSHostResetErrorCount();
    }
    void TearDown() override { unsetenv("KSHOST_BUSY_TIMEOUT"); }

    HostFile* newNative() { return GDBCreate(KSHOST_TYPE_NATIVE, native.c_str(), 512, 512, 0, 1, ""); }
    HostFile* open(const char* access = "r") { return GDBOpen(native.c_str(), access); }
    /// A native file with one layer.
    void makeNative(int shapes) {
        HostFile* fp = newNative();
        ASSERT_NE(fp, nullptr);
        ASSERT_NE(addSpectra(fp, shapes), nullptr);
        GDBClose(fp);
        ASSERT_TRUE(reports.all.empty()) << reports.all.front().text;
    }
    std::string onlyReport() {
        EXPECT_EQ(reports.all.size(), 1U);
        std::string text = reports.all.empty() ? std::string() : reports.all.back().text;
        reports.all.clear();
        return text;
    }

    hosttest::TemporaryFolder folder;
    std::string native = folder / "library.ksl";
    Reports reports;
};

// ---- in memory ----

TEST_F(Layers, AFileInMemoryHoldsLayersAndNothingElse) {
    HostFile* fp = inMemory();
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(fp2type(fp), 60);
    EXPECT_EQ(GDBChanNum(fp), 0);
    EXPECT_EQ(GDBChanXSize(fp), 0);
    EXPECT_EQ(GDBSegNext(fp, kLayers, 0), -1);
    HostLayer* layer = addSpectra(fp, 2);
    ASSERT_NE(layer, nullptr);
    EXPECT_EQ(layer->fp, fp);
    EXPECT_EQ(layer->nSegment, 1);
    EXPECT_EQ(layer->nFlags, 0U);
    EXPECT_EQ(GDBLayer2Type(layer), 60);
    EXPECT_EQ(GDBGetLayer(fp, 1), layer);
    EXPECT_EQ(fieldNames(layer), (Texts{"Target", "m450_000", "m550_500"}));
    EXPECT_EQ(GDBGetFirst(layer), 0);
    EXPECT_EQ(GDBGetNext(layer, 0), 1);
    EXPECT_EQ(GDBGetNext(layer, 1), -1);
    EXPECT_EQ(GDBGetNext(layer, 7), -1);
    EXPECT_STREQ(GDBGetValueString(layer, 1, 0), "shape 1");
    EXPECT_EQ(GDBGetValue(layer, 1, 1), 1.25);
    EXPECT_EQ(GDBSegNext(fp, kLayers, 0), 1);
    EXPECT_EQ(GDBSegNext(fp, kLayers, 1), -1);
    EXPECT_EQ(GDBSegNext(fp, 180, 0), -1);
    GDBClose(fp);
    EXPECT_TRUE(reports.all.empty());
    EXPECT_TRUE(folder.names().empty());
}

TEST_F(Layers, AnEmptyLayerHasNoShapes) {
    HostFile* fp = inMemory();
    HostLayer* layer = GDBCreateLayer(fp, "", nullptr, nullptr);
    ASSERT_NE(layer, nullptr);
    EXPECT_EQ(GDBGetNumFields(layer), 0);
    EXPECT_EQ(GDBGetFirst(layer), -1);
    EXPECT_TRUE(reports.all.empty());
    GDBClose(fp);
}

TEST_F(Layers, NewFieldsGiveShapesTheirDefaults) {
    HostFile* fp = inMemory();
    HostLayer* layer = addSpectra(fp, 2);
    EXPECT_EQ(GDBDefineNewField(layer, "q450_000", kText), 3);
    EXPECT_EQ(GDBDefineNewField(layer, "m650_000", kReal), 4);
    EXPECT_STREQ(GDBGetValueString(layer, 1, 3), "");
    EXPECT_EQ(bitsOf(GDBGetValue(layer, 1, 4)), bitsOf(0.0));
    EXPECT_EQ(GDBGetValue(layer, 1, 2), -1.0);
    EXPECT_STREQ(GDBGetValueString(layer, 1, 0), "shape 1");
    GDBClose(fp);
}

TEST_F(Layers, NumbersAndTextsTurnIntoOneAnother) {
    HostFile* fp = inMemory();
    HostLayer* layer = GDBCreateLayer(fp, "values", "", "");
    GDBDefineNewField(layer, "text", kText);
    GDBDefineNewField(layer, "real", kReal);
    const int shape = GDBCreateShape(layer, 0);
    ASSERT_EQ(GDBSetValueString(layer, shape, 0, "  0.1 per cent"), 1);
    EXPECT_EQ(GDBGetValue(layer, shape, 0), 0.1);
    ASSERT_EQ(GDBSetValueString(layer, shape, 0, "none"), 1);
    EXPECT_EQ(GDBGetValue(layer, shape, 0), 0.0);
    ASSERT_EQ(GDBSetValue(layer, shape, 0, 0.1), 1);
    EXPECT_STREQ(GDBGetValueString(layer, shape, 0), "0.1");
    ASSERT_EQ(GDBSetValue(layer, shape, 1, 1.0 / 3.0), 1);
    EXPECT_EQ(std::strtod(GDBGetValueString(layer, shape, 1), nullptr), 1.0 / 3.0);
    ASSERT_EQ(GDBSetValueString(layer, shape, 1, "+2.5e-3 "), 1);
    EXPECT_EQ(GDBGetValue(layer, shape, 1), 0.0025);
    ASSERT_EQ(GDBSetValueString(layer, shape, 1, "-inf"), 1);
    EXPECT_EQ(GDBGetValue(layer, shape, 1), -std::numeric_limits<double>::infinity());
    EXPECT_TRUE(reports.all.empty());
    EXPECT_EQ(GDBSetValueString(layer, shape, 1, "none"), 0);
    EXPECT_NE(onlyReport().find("\"none\" is no number"), std::string::npos);
    EXPECT_EQ(GDBGetValue(layer, shape, 1), -std::numeric_limits<double>::infinity());
    GDBClose(fp);
}

TEST_F(Layers, ATextMayBeEditedInPlace) {
    HostFile* fp = inMemory();
    HostLayer* layer = addSpectra(fp, 1);
    char* text = GDBGetValueString(layer, 0, 0);
    text[0] = 'S';
    text[5] = '\0';
    EXPECT_STREQ(text, "Shape");
    EXPECT_STREQ(GDBGetValueString(layer, 0, 0), "shape 0");
    EXPECT_STREQ(text, "Shape");  // and the next texts leave it alone
    GDBClose(fp);
}

TEST_F(Layers, FormatsAreMadeAndKept) {
    HostFile* fp = inMemory();
    HostLayer* layer = addSpectra(fp, 1);
    char* format = GDBGenFieldFormat(kText, 80, 0, 0);
    ASSERT_NE(format, nullptr);
    EXPECT_EQ(GDBSetFieldFormat(layer, 0, format), 1);
    std::free(format);
    const std::string longer(500, 'x');
    EXPECT_EQ(GDBSetValueString(layer, 0, 0, longer.c_str()), 1);
    EXPECT_EQ(GDBGetValueString(layer, 0, 0), longer);  // a width is for showing
    EXPECT_TRUE(reports.all.empty());
    EXPECT_EQ(GDBGenFieldFormat(7, 80, 0, 0), nullptr);
    EXPECT_EQ(GDBSetFieldFormat(layer, 3, "%s"), 0);
    EXPECT_EQ(GDBSetFieldFormat(layer, 0, nullptr), 0);
    EXPECT_EQ(reports.all.size(), 3U);
    GDBClose(fp);
}

// ---- what is refused ----

TEST_F(Layers, NullAndDeadHandlesAreReported) {
    HostFile* fp = inMemory();
    HostLayer* dead = addSpectra(fp, 1);
    GDBClose(fp);
    for (HostLayer* layer : {static_cast<HostLayer*>(nullptr), dead}) {
        reports.all.clear();
        EXPECT_EQ(GDBLayer2Type(layer), 0);
        EXPECT_EQ(GDBGetNumFields(layer), 0);
        EXPECT_EQ(GDBGetFieldName(layer, 0), nullptr);
        EXPECT_EQ(GDBDefineNewField(layer, "x", kReal), -1);
        EXPECT_EQ(GDBSetFieldFormat(layer, 0, "%s"), 0);
        EXPECT_EQ(GDBCreateShape(layer, 0), -1);
        EXPECT_EQ(GDBSetValue(layer, 0, 1, 1), 0);
        EXPECT_EQ(GDBSetValueString(layer, 0, 0, "x"), 0);
        EXPECT_EQ(GDBGetValue(layer, 0, 1), 0.0);
        EXPECT_EQ(GDBGetValueString(layer, 0, 0), nullptr);
        EXPECT_EQ(GDBGetFirst(layer), -1);
        EXPECT_EQ(GDBGetNext(layer, 0), -1);
        EXPECT_EQ(reports.all.size(), 12U);
    }
    for (HostFile* file : {static_cast<HostFile*>(nullptr), fp}) {
        reports.all.clear();
        EXPECT_EQ(GDBCreateLayer(file, "x", "", ""), nullptr);
        EXPECT_EQ(GDBGetLayer(file, 1), nullptr);
        EXPECT_EQ(GDBSegNext(file, kLayers, 0), -1);
        EXPECT_EQ(GDBVectorCopy(file, 1, file, 0, 0, 0, 0), 0);
        char status = ' ';
        int type = 1;
        EXPECT_EQ(IDBSegInfoIO(file, 1, 0, &status, &type, nullptr, nullptr, nullptr), 0);
        EXPECT_EQ(status, 'E');
        EXPECT_GE(reports.all.size(), 5U);
    }
}

TEST_F(Layers, BadIndexesTextsAndTypesAreReported) {
    HostFile* fp = inMemory();
    HostLayer* layer = addSpectra(fp, 1);
    EXPECT_EQ(GDBGetFieldName(layer, -1), nullptr);
    EXPECT_EQ(GDBGetFieldName(layer, 3), nullptr);
    for (const int shape : {-1, 1}) {
        EXPECT_EQ(GDBSetValue(layer, shape, 1, 1), 0);
        EXPECT_EQ(GDBSetValueString(layer, shape, 0, "x"), 0);
        EXPECT_EQ(GDBGetValue(layer, shape, 1), 0.0);
        EXPECT_EQ(GDBGetValueString(layer, shape, 0), nullptr);
    }
    for (const int field : {-1, 3}) {
        EXPECT_EQ(GDBSetValue(layer, 0, field, 1), 0);
        EXPECT_EQ(GDBGetValueString(layer, 0, field), nullptr);
    }
    EXPECT_EQ(GDBSetValueString(layer, 0, 0, nullptr), 0);
    EXPECT_EQ(GDBDefineNewField(layer, nullptr, kReal), -1);
    EXPECT_EQ(GDBDefineNewField(layer, "", kReal), -1);
    EXPECT_EQ(GDBDefineNewField(layer, "x", 1), -1);
    EXPECT_EQ(GDBCreateLayer(fp, nullptr, "", ""), nullptr);
    EXPECT_EQ(GDBGetLayer(fp, 0), nullptr);
    EXPECT_EQ(GDBGetLayer(fp, 2), nullptr);
    EXPECT_EQ(reports.all.size(), 21U);
    EXPECT_EQ(KSHostErrorCount(), 21);
    EXPECT_EQ(GDBGetNumFields(layer), 3);
    EXPECT_STREQ(GDBGetValueString(layer, 0, 0), "shape 0");
    GDBClose(fp);
}

/// True when a call does not return but jumps to the trap that is armed for it.
bool jumps(void (*call)(HostLayer*), HostLayer* layer) {
    if (IMP_Protect() == nullptr || setjmp(*IMPProtectBuffer()) != 0) return true;
    call(layer);
    return false;
}

TEST_F(Layers, AFailureJumpsToTheArmedTrap) {
    HostFile* fp = inMemory();
    HostLayer* layer = addSpectra(fp, 1);
    const std::vector<void (*)(HostLayer*)> failing = {
        [](HostLayer* l) { GDBGetLayer(l->fp, 9); },
        [](HostLayer* l) { GDBCreateLayer(l->fp, nullptr, "", ""); },
        [](HostLayer* l) { GDBDefineNewField(l, "", kReal); },
        [](HostLayer* l) { GDBSetValue(l, 4, 1, 0); },
        [](HostLayer* l) { GDBSetValueString(l, 0, 9, ""); },
        [](HostLayer* l) { GDBGetValue(l, 4, 1); },
        [](HostLayer* l) { GDBGetValueString(l, 4, 1); },
        [](HostLayer*) { GDBCreateShape(nullptr, 0); },
        [](HostLayer*) { GDBGetFirst(nullptr); },
        [](HostLayer*) { GDBGetNumFields(nullptr); },
        [](HostLayer*) { GDBSegNext(nullptr, 116, 0); },
        [](HostLayer*) { GDBVectorCopy(nullptr, 1, nullptr, 0, 0, 0, 0); },
        [](HostLayer*) { GDBCreate(3, nullptr, 1, 1, 0, 1, ""); }};
    for (size_t i = 0; i < failing.size(); ++i) {
        EXPECT_TRUE(jumps(failing[i], layer)) << i;
        EXPECT_EQ(IMPProtectBuffer(), nullptr);
    }
    ASSERT_NE(IMP_Protect(), nullptr);
    if (setjmp(*IMPProtectBuffer()) == 0) {
        EXPECT_EQ(GDBGetNext(layer, 0), -1);  // the end is no failure
        IMPUnprotect();
    } else {
        ADD_FAILURE() << "the end of a layer jumped";
    }
    GDBClose(fp);
}

TEST_F(Layers, ALayerOfAFileOpenForReadingCannotBeChanged) {
    makeNative(1);
    HostFile* fp = open();
    HostLayer* layer = GDBGetLayer(fp, 1);
    ASSERT_NE(layer, nullptr);
    EXPECT_EQ(GDBCreateShape(layer, 0), -1);
    EXPECT_EQ(GDBSetValue(layer, 0, 1, 7), 0);
    EXPECT_EQ(GDBSetValueString(layer, 0, 0, "x"), 0);
    EXPECT_EQ(GDBDefineNewField(layer, "x", kReal), -1);
    EXPECT_EQ(GDBCreateLayer(fp, "x", "", ""), nullptr);
    EXPECT_EQ(GDBVectorCopy(fp, 1, fp, 0, 0, 0, 0), 0);
    EXPECT_EQ(reports.all.size(), 6U);
    EXPECT_TRUE(reports.mention("open for reading only"));
    EXPECT_EQ(GDBGetValue(layer, 0, 1), 0.25);
    GDBClose(fp);
}

// ---- native files ----

TEST_F(Layers, ANativeFileIsOneFileThatOpensAgain) {
    makeNative(3);
    EXPECT_EQ(folder.names(), Texts{"library.ksl"});
    const std::string before = hosttest::contentsOf(native);
    HostFile* fp = open();
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(fp2type(fp), 3);
    EXPECT_EQ(GDBChanNum(fp), 0);
    EXPECT_EQ(GDBSegNext(fp, kLayers, 0), 1);
    char status = ' ';
    int type = 0;
    EXPECT_EQ(IDBSegInfoIO(fp, 1, 0, &status, &type, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(status, 'A');
    EXPECT_EQ(type, kLayers);
    EXPECT_EQ(IDBSegInfoIO(fp, 2, 0, &status, &type, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(status, 'E');
    HostLayer* layer = GDBGetLayer(fp, 1);
    ASSERT_NE(layer, nullptr);
    EXPECT_EQ(GDBGetLayer(fp, 1), layer);
    EXPECT_EQ(GDBLayer2Type(layer), 3);
    EXPECT_EQ(fieldNames(layer), (Texts{"Target", "m450_000", "m550_500"}));
    EXPECT_EQ(countShapes(layer), 3);
    EXPECT_STREQ(GDBGetValueString(layer, 2, 0), "shape 2");
    EXPECT_EQ(GDBGetValue(layer, 2, 1), 2.25);
    EXPECT_EQ(GDBGetValue(layer, 2, 2), -2.0);
    GDBClose(fp);
    EXPECT_TRUE(reports.all.empty());
    EXPECT_EQ(folder.names(), Texts{"library.ksl"});
    EXPECT_EQ(hosttest::contentsOf(native), before);
}

TEST_F(Layers, ANativeFileKeepsListsAndHistory) {
    HostFile* fp = newNative();
    HostStringList list = SetAuxEntry(nullptr, "Library", "urban");
    GDBMetaDataIO(fp, 1, 1, -1, list);
    DestroyStringList(list);
    addSpectra(fp, 0);
    list = SetAuxEntry(nullptr, "Source", "field");
    GDBMetaDataIO(fp, 1, 3, 1, list);
    DestroyStringList(list);
    GDBWriteHistory(fp, 1, -1, "made");
    GDBClose(fp);
    fp = open();
    EXPECT_STREQ(GDBFetchMetaDataEntry(fp, 1, -1, "Library"), "urban");
    EXPECT_STREQ(GDBFetchMetaDataEntry(fp, 3, 1, "Source"), "field");
    HostStringList history = KSHostGetHistory(fp);
    ASSERT_EQ(CountStringList(history), 1);
    EXPECT_STREQ(history[0], "made");
    DestroyStringList(history);
    KSHostLayout layout{};
    EXPECT_EQ(KSHostGetLayout(fp, &layout), 1);
    EXPECT_STREQ(layout.szInterleave, "");
    EXPECT_TRUE(reports.all.empty());
    EXPECT_EQ(GDBFetchMetaDataEntry(fp, 3, 2, "Source"), nullptr);
    EXPECT_NE(onlyReport().find("has no segment 2"), std::string::npos);
    GDBClose(fp);
}

TEST_F(Layers, NumbersComeBackBitForBit) {
    std::vector<double> values = {0.0,
                                  -0.0,
                                  std::numeric_limits<double>::infinity(),
                                  -std::numeric_limits<double>::infinity(),
                                  std::numeric_limits<double>::denorm_min(),
                                  std::numeric_limits<double>::max(),
                                  fromBits(0x7ff8000000000001U),
                                  fromBits(0xfff8dead0000beefU),
                                  -1.23e34,
                                  0.1};
    std::mt19937_64 random(1);
    for (int i = 0; i < 500; ++i) values.push_back(fromBits(random() | 0x0008000000000000U));
    HostFile* fp = newNative();
    HostLayer* layer = GDBCreateLayer(fp, "numbers", "", "");
    for (size_t i = 0; i < values.size(); ++i) GDBDefineNewField(layer, ("m" + std::to_string(i)).c_str(), kReal);
    GDBCreateShape(layer, 0);
    for (size_t i = 0; i < values.size(); ++i) GDBSetValue(layer, 0, static_cast<int>(i), values[i]);
    GDBClose(fp);
    fp = open();
    layer = GDBGetLayer(fp, 1);
    for (size_t i = 0; i < values.size(); ++i)
        EXPECT_EQ(bitsOf(GDBGetValue(layer, 0, static_cast<int>(i))), bitsOf(values[i])) << i;
    GDBClose(fp);
}

TEST_F(Layers, TextsOfAnyLengthAndBytesComeBack) {
    std::string every;
    for (int byte = 1; byte < 256; ++byte) every.push_back(static_cast<char>(byte));
    const Texts texts = {"",     " ",   "one\nmore", every, std::string(3U << 20U, 'x'), "latin \xe9", "utf \xc3\xa9",
                         "same", "same"};
    HostFile* fp = newNative();
    HostLayer* layer = GDBCreateLayer(fp, every.c_str(), "", "");
    GDBDefineNewField(layer, every.c_str(), kText);
    for (const std::string& text : texts) GDBSetValueString(layer, GDBCreateShape(layer, 0), 0, text.c_str());
    GDBClose(fp);
    fp = open();
    layer = GDBGetLayer(fp, 1);
    EXPECT_EQ(GDBGetFieldName(layer, 0), every);
    for (size_t i = 0; i < texts.size(); ++i) EXPECT_EQ(GDBGetValueString(layer, static_cast<int>(i), 0), texts[i]);
    GDBClose(fp);
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(Layers, LaterChangesAreStoredBesideWhatWasThere) {
    makeNative(3);
    HostFile* fp = open("r+");
    HostLayer* layer = GDBGetLayer(fp, 1);
    GDBSetValue(layer, 1, 1, 99);
    GDBSetValueString(layer, GDBCreateShape(layer, 0), 0, "added");
    EXPECT_EQ(KSHostFlush(fp), 1);
    GDBDefineNewField(layer, "q450_000", kText);
    GDBSetValueString(layer, 3, 3, "plot");
    EXPECT_EQ(KSHostFlush(fp), 1);
    GDBSetValue(layer, 0, 2, 5);
    EXPECT_NE(addSpectra(fp, 1), nullptr);
    GDBClose(fp);
    fp = open();
    layer = GDBGetLayer(fp, 1);
    EXPECT_EQ(countShapes(layer), 4);
    EXPECT_EQ(GDBGetValue(layer, 1, 1), 99.0);
    EXPECT_EQ(GDBGetValue(layer, 2, 1), 2.25);
    EXPECT_EQ(GDBGetValue(layer, 0, 2), 5.0);
    EXPECT_STREQ(GDBGetValueString(layer, 3, 0), "added");
    EXPECT_STREQ(GDBGetValueString(layer, 3, 3), "plot");
    EXPECT_STREQ(GDBGetValueString(layer, 0, 3), "");
    EXPECT_EQ(GDBSegNext(fp, kLayers, 1), 2);
    EXPECT_EQ(countShapes(GDBGetLayer(fp, 2)), 1);
    GDBClose(fp);
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(Layers, HandlesOfOneProcessSeeGatheredWritesAtOnce) {
    makeNative(1);
    HostFile* writer = open("r+");
    HostFile* reader = open();
    HostLayer* written = GDBGetLayer(writer, 1);
    HostLayer* read = GDBGetLayer(reader, 1);
    EXPECT_NE(written, read);
    EXPECT_EQ(read->fp, reader);
    GDBSetValue(written, 0, 1, 42);
    GDBCreateShape(written, 0);
    EXPECT_EQ(GDBGetValue(read, 0, 1), 42.0);
    EXPECT_EQ(countShapes(read), 2);
    HostLayer* another = addSpectra(writer, 1);
    EXPECT_EQ(another->nSegment, 2);
    EXPECT_EQ(GDBSegNext(reader, kLayers, 1), 2);
    EXPECT_EQ(countShapes(GDBGetLayer(reader, 2)), 1);
    GDBClose(writer);
    EXPECT_EQ(GDBGetValue(read, 0, 1), 42.0);
    EXPECT_TRUE(reports.all.empty());
    EXPECT_EQ(GDBGetNumFields(written), 0);  // that handle's file is closed
    EXPECT_EQ(reports.all.size(), 1U);
    GDBClose(reader);
}

TEST_F(Layers, ALayerLivesAsLongAsItsFileHasAReference) {
    HostFile* fp = inMemory();
    HostLayer* layer = addSpectra(fp, 1);
    ASSERT_EQ(fpReference(fp), fp);
    GDBClose(fp);
    EXPECT_EQ(GDBGetNumFields(layer), 3);
    GDBClose(fp);
    EXPECT_EQ(GDBGetNumFields(layer), 0);
    EXPECT_EQ(reports.all.size(), 1U);
}

TEST_F(Layers, AnotherProgramsLayersAreSeenAtTheNextOpening) {
    makeNative(1);
    HostFile* fp = open();
    HostLayer* layer = GDBGetLayer(fp, 1);
    EXPECT_EQ(countShapes(layer), 1);
    EXPECT_TRUE(hosttest::succeeded(inChild([&] {
        HostFile* other = GDBOpen(native.c_str(), "r+");
        HostLayer* theirs = GDBGetLayer(other, 1);
        GDBSetValue(theirs, GDBCreateShape(theirs, 0), 1, 7);
        addSpectra(other, 2);
        GDBClose(other);
        return KSHostErrorCount();
    })));
    HostFile* again = open();
    EXPECT_EQ(countShapes(GDBGetLayer(again, 1)), 2);
    EXPECT_EQ(countShapes(layer), 2);
    EXPECT_EQ(GDBGetValue(layer, 1, 1), 7.0);
    EXPECT_EQ(countShapes(GDBGetLayer(fp, 2)), 2);
    GDBClose(again);
    GDBClose(fp);
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(Layers, ANumberTakenByAnotherProgramIsReportedAndItsLayerStays) {
    makeNative(1);
    HostFile* fp = open("r+");
    addSpectra(fp, 3);
    EXPECT_TRUE(hosttest::succeeded(inChild([&] {
        HostFile* other = GDBOpen(native.c_str(), "r+");
        // What the parent gathered came along with the memory of this process; only the disk counts here.
        OtherProgram program(native);
        program.run(
            "INSERT INTO segments VALUES (2, 116, 'theirs', '', '', 77); UPDATE image SET changes = changes + 1");
        static_cast<void>(other);
        return 0;
    })));
    EXPECT_EQ(KSHostFlush(fp), 0);
    EXPECT_NE(onlyReport().find("another segment 2 from another program"), std::string::npos);
    GDBClose(fp);
    reports.all.clear();
    fp = open();
    HostLayer* theirs = GDBGetLayer(fp, 2);
    ASSERT_NE(theirs, nullptr);
    EXPECT_EQ(GDBGetNumFields(theirs), 0);
    GDBClose(fp);
}

TEST_F(Layers, ALayerThatAnotherProgramChangedIsReplacedWhole) {
    makeNative(3);
    HostFile* fp = open("r+");
    HostLayer* layer = GDBGetLayer(fp, 1);
    GDBSetValue(layer, 0, 1, 50);
    {
        OtherProgram program(native);
        program.run(
            "DELETE FROM shapes WHERE number = 2; UPDATE segments SET revision = 77; UPDATE image SET changes = 77");
    }
    GDBClose(fp);
    fp = open();
    layer = GDBGetLayer(fp, 1);
    EXPECT_EQ(countShapes(layer), 3);
    EXPECT_EQ(GDBGetValue(layer, 0, 1), 50.0);
    EXPECT_EQ(GDBGetValue(layer, 2, 1), 2.25);
    GDBClose(fp);
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(Layers, CopiesGoFromFileToFile) {
    makeNative(3);
    HostFile* source = open();
    HostFile* target = inMemory();
    ASSERT_EQ(GDBVectorCopy(source, 1, target, 0, 0, 0, 0), 1);
    ASSERT_EQ(GDBVectorCopy(source, 1, target, 0, 0, 0, 0), 2);
    GDBClose(source);
    HostLayer* copy = GDBGetLayer(target, 2);
    EXPECT_EQ(fieldNames(copy), (Texts{"Target", "m450_000", "m550_500"}));
    EXPECT_EQ(countShapes(copy), 3);
    EXPECT_STREQ(GDBGetValueString(copy, 1, 0), "shape 1");
    EXPECT_EQ(GDBGetValue(copy, 1, 1), 1.25);
    GDBSetValue(copy, 1, 1, 7);
    EXPECT_EQ(GDBGetValue(GDBGetLayer(target, 1), 1, 1), 1.25);
    ASSERT_EQ(GDBVectorCopy(target, 2, target, 0, 0, 0, 0), 3);
    EXPECT_EQ(GDBGetValue(GDBGetLayer(target, 3), 1, 1), 7.0);
    EXPECT_TRUE(reports.all.empty());
    EXPECT_EQ(GDBVectorCopy(target, 9, target, 0, 0, 0, 0), 0);
    EXPECT_NE(onlyReport().find("no layer in segment 9"), std::string::npos);
    GDBClose(target);
}

TEST_F(Layers, AnImageHoldsLayersBesideItself) {
    const std::string image = folder / "cube.img";
    const std::array<int, 4> channels = {2, 0, 0, 0};
    HostFile* fp = IDBCreate(image.c_str(), 4, 3, channels.data(), "PIXEL");
    ASSERT_NE(addSpectra(fp, 2), nullptr);
    GDBClose(fp);
    const std::string header = hosttest::contentsOf(folder / "cube.hdr");
    fp = GDBOpen(image.c_str(), "r+");
    EXPECT_EQ(GDBChanNum(fp), 2);
    HostLayer* layer = GDBGetLayer(fp, GDBSegNext(fp, kLayers, 0));
    EXPECT_EQ(countShapes(layer), 2);
    EXPECT_EQ(GDBLayer2Type(layer), 3);
    GDBCreateShape(layer, 0);
    GDBClose(fp);
    EXPECT_EQ(hosttest::contentsOf(folder / "cube.hdr"), header);
    fp = GDBOpen(image.c_str(), "r");
    EXPECT_EQ(countShapes(GDBGetLayer(fp, 1)), 3);
    GDBClose(fp);
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(Layers, ASidecarOfAnEarlierVersionIsReadAndGrowsWithItsFirstLayer) {
    for (const int version : {1, 2}) {
        const std::string image = folder / ("cube" + std::to_string(version) + ".tif");
        const std::array<int, 4> channels = {1, 0, 0, 0};
        HostFile* fp = IDBCreate(image.c_str(), 2, 2, channels.data(), "PIXEL");
        GDBWriteHistory(fp, 1, -1, "kept");
        GDBClose(fp);
        {
            OtherProgram older(image + ".ks");
            older.run(
                "DROP TABLE data_segments; DROP TABLE data_pages; DROP TABLE segments; DROP TABLE fields; DROP TABLE "
                "shapes; PRAGMA user_version = 2");
            if (version == 1) older.run("DROP TABLE codebook; DROP TABLE code_vectors; PRAGMA user_version = 1");
        }
        fp = GDBOpen(image.c_str(), "r+");
        ASSERT_NE(fp, nullptr);
        EXPECT_EQ(GDBSegNext(fp, kLayers, 0), -1);
        GDBWriteHistory(fp, 1, -1, "more");
        GDBClose(fp);
        fp = GDBOpen(image.c_str(), "r+");
        addSpectra(fp, 2);
        GDBClose(fp);
        fp = GDBOpen(image.c_str(), "r");
        EXPECT_EQ(countShapes(GDBGetLayer(fp, 1)), 2);
        HostStringList history = KSHostGetHistory(fp);
        EXPECT_EQ(CountStringList(history), 2);
        DestroyStringList(history);
        GDBClose(fp);
    }
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(Layers, NamesThatAreTakenOrUnusableAreRefused) {
    const auto refused = [&](int type, const char* name) {
        EXPECT_EQ(GDBCreate(type, name, 512, 512, 0, 1, ""), nullptr);
        return onlyReport();
    };
    hosttest::write(folder / "a.ksl", "x");
    hosttest::write(folder / "b.ksl.ks", "x");
    hosttest::write(folder / "c.hdr", "x");
    hosttest::write(folder / "d.sli.hdr", "x");
    hosttest::write(folder / "e.cpg", "x");
    EXPECT_NE(refused(3, (folder / "a.ksl").c_str()).find("exists"), std::string::npos);
    EXPECT_NE(refused(3, (folder / "b.ksl").c_str()).find("b.ksl.ks exists"), std::string::npos);
    EXPECT_NE(refused(29, (folder / "c.sli").c_str()).find("c.hdr exists"), std::string::npos);
    EXPECT_NE(refused(29, (folder / "d.sli").c_str()).find("d.sli.hdr exists"), std::string::npos);
    EXPECT_NE(refused(KSHOST_TYPE_DBF, (folder / "e.dbf").c_str()).find("e.cpg exists"), std::string::npos);
    EXPECT_NE(refused(KSHOST_TYPE_DBF, (folder / "f.shp").c_str()).find("ends in .dbf"), std::string::npos);
    EXPECT_NE(refused(29, (folder / "f.hdr").c_str()).find("header"), std::string::npos);
    EXPECT_NE(refused(77, (folder / "f").c_str()).find("no files of type 77"), std::string::npos);
    EXPECT_NE(refused(3, (folder / "none/f").c_str()).find("No such file"), std::string::npos);
    EXPECT_NE(refused(3, "").find("the name is empty"), std::string::npos);
    refused(3, nullptr);
    EXPECT_EQ(folder.names().size(), 5U);
}

TEST_F(Layers, ASidecarAloneIsNoFileOfLayers) {
    const std::array<int, 4> channels = {1, 0, 0, 0};
    HostFile* fp = IDBCreate((folder / "cube.img").c_str(), 2, 2, channels.data(), "PIXEL");
    GDBClose(fp);
    EXPECT_EQ(GDBOpen((folder / "cube.img.ks").c_str(), "r"), nullptr);
    EXPECT_NE(onlyReport().find("this is a sidecar"), std::string::npos);
}

TEST_F(Layers, DamagedLayersAreReportedAndTheRestOpens) {
    makeNative(3);
    const std::vector<const char*> damages = {"UPDATE shapes SET numbers = x'00' WHERE number = 1",
                                              "UPDATE shapes SET texts = 'plain text' WHERE number = 1",
                                              "UPDATE shapes SET texts = x'0000' WHERE number = 1",
                                              "UPDATE shapes SET texts = x'41' WHERE number = 1",
                                              "DELETE FROM shapes WHERE number = 1",
                                              "UPDATE fields SET type = 9 WHERE position = 0",
                                              "DELETE FROM fields WHERE position = 1",
                                              "UPDATE shapes SET number = -5 WHERE number = 0"};
    const std::string good = hosttest::contentsOf(native);
    for (const char* damage : damages) {
        hosttest::write(native, good);
        OtherProgram(native).run(damage);
        HostFile* fp = open();
        ASSERT_NE(fp, nullptr);
        EXPECT_EQ(GDBSegNext(fp, kLayers, 0), 1);
        EXPECT_EQ(GDBGetLayer(fp, 1), nullptr) << damage;
        EXPECT_NE(onlyReport().find("damaged layer in segment 1"), std::string::npos) << damage;
        GDBClose(fp);
    }
}

TEST_F(Layers, AFileThatVanishedTakesNoCommit) {
    makeNative(1);
    HostFile* fp = open("r+");
    GDBCreateShape(GDBGetLayer(fp, 1), 0);
    unlink(native.c_str());
    GDBClose(fp);
    EXPECT_TRUE(reports.mention("deleted or replaced"));
    EXPECT_TRUE(folder.names().empty());
}

TEST_F(Layers, ReadOnlyMediaAreRead) {
    makeNative(2);
    ASSERT_EQ(chmod(native.c_str(), 0444), 0);
    ASSERT_EQ(chmod(folder.path().c_str(), 0555), 0);
    EXPECT_TRUE(hosttest::succeeded(hosttest::asNobody([&] {
        HostFile* fp = GDBOpen(native.c_str(), "r");
        if (fp == nullptr || countShapes(GDBGetLayer(fp, 1)) != 2) return 1;
        GDBClose(fp);
        if (KSHostErrorCount() != 0) return 2;
        return GDBOpen(native.c_str(), "r+") == nullptr ? 0 : 3;
    })));
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
}

TEST_F(Layers, AFullDiskIsReportedAndNothingIsLost) {
    makeNative(1);
    HostFile* fp = open("r+");
    HostLayer* layer = GDBGetLayer(fp, 1);
    const std::string text(4U << 20U, 'x');
    GDBSetValueString(layer, GDBCreateShape(layer, 0), 0, text.c_str());
    {
        const hosttest::FullDisk full(1U << 20U);
        EXPECT_EQ(KSHostFlush(fp), 0);
    }
    EXPECT_NE(onlyReport().find("no room to write"), std::string::npos);
    EXPECT_EQ(GDBGetValueString(layer, 1, 0), text);
    GDBClose(fp);
    EXPECT_TRUE(reports.all.empty());
    fp = open();
    EXPECT_EQ(GDBGetValueString(GDBGetLayer(fp, 1), 1, 0), text);
    GDBClose(fp);
}

TEST_F(Layers, ThousandsOfFieldsComeBackExactly) {
    constexpr int kBands = 2151;
    constexpr int kShapes = 200;
    HostFile* fp = newNative();
    HostLayer* layer = GDBCreateLayer(fp, "spectra", "", "");
    for (const char* name : {"Target", "Quantity", "Source_File", "ROI_File", "ROI"})
        GDBDefineNewField(layer, name, kText);
    for (int i = 0; i < kBands; ++i) GDBDefineNewField(layer, ("m" + std::to_string(350 + i) + "_000").c_str(), kReal);
    for (int i = 0; i < kBands; ++i) GDBDefineNewField(layer, ("q" + std::to_string(350 + i) + "_000").c_str(), kText);
    ASSERT_EQ(GDBGetNumFields(layer), 4307);
    std::mt19937_64 random(2);
    std::vector<double> values;
    const std::array<const char*, 3> qualities = {"plot", "skip", "mask"};
    for (int shape = 0; shape < kShapes; ++shape) {
        ASSERT_EQ(GDBCreateShape(layer, 0), shape);
        for (int i = 0; i < kBands; ++i) {
            values.push_back(static_cast<double>(random()) / 1e19);
            GDBSetValue(layer, shape, 5 + i, values.back());
            GDBSetValueString(layer, shape, 5 + kBands + i, qualities[static_cast<size_t>(shape + i) % 3]);
        }
    }
    GDBClose(fp);
    fp = open();
    layer = GDBGetLayer(fp, 1);
    ASSERT_EQ(GDBGetNumFields(layer), 4307);
    EXPECT_STREQ(GDBGetFieldName(layer, 4306), "q2500_000");
    size_t different = 0;
    for (int shape = 0; shape < kShapes; ++shape) {
        for (int i = 0; i < kBands; ++i) {
            const double value = values[static_cast<size_t>(shape * kBands + i)];
            const char* quality = qualities[static_cast<size_t>(shape + i) % 3];
            if (GDBGetValue(layer, shape, 5 + i) != value) ++different;
            if (std::strcmp(GDBGetValueString(layer, shape, 5 + kBands + i), quality) != 0) ++different;
        }
    }
    EXPECT_EQ(different, 0U);
    GDBClose(fp);
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(Layers, TensOfThousandsOfShapesAreAppendedTo) {
    constexpr int kShapes = 40000;
    makeNative(kShapes);
    HostFile* fp = open("r+");
    HostLayer* layer = GDBGetLayer(fp, 1);
    EXPECT_EQ(countShapes(layer), kShapes);
    EXPECT_EQ(GDBGetValue(layer, kShapes - 1, 1), kShapes - 1 + 0.25);
    const long long before = bytesWritten();
    GDBSetValue(layer, GDBCreateShape(layer, 0), 1, 1);
    GDBClose(fp);
    // One more shape is one more row, not the layer over again.
    EXPECT_LT(bytesWritten() - before, 1 << 17);
    fp = open();
    EXPECT_EQ(countShapes(GDBGetLayer(fp, 1)), kShapes + 1);
    GDBClose(fp);
}

// ---- commits ----

class LayerCommits : public Layers, public testing::WithParamInterface<Fault> {
protected:
    static constexpr int kMostSteps = 500;

    void change(HostFile* fp) {
        HostLayer* layer = GDBGetLayer(fp, 1);
        GDBSetValue(layer, 0, 1, 100);
        GDBSetValueString(layer, 1, 0, std::string(20000, 'n').c_str());
        GDBSetValue(layer, GDBCreateShape(layer, 0), 1, 100);
        addSpectra(fp, 1);
        GDBWriteHistory(fp, 1, -1, "changed");
    }
    /// 'o' the state before, 'n' the state after, '?' anything else.
    char state() {
        HostFile* fp = open();
        if (fp == nullptr) return '?';
        HostLayer* layer = GDBGetLayer(fp, 1);
        const int shapes = layer != nullptr ? countShapes(layer) : -1;
        const bool second = GDBSegNext(fp, kLayers, 1) == 2;
        HostStringList history = KSHostGetHistory(fp);
        const int entries = CountStringList(history);
        DestroyStringList(history);
        char found = '?';
        if (shapes == 2 && !second && entries == 0 && GDBGetValue(layer, 0, 1) == 0.25) found = 'o';
        if (shapes == 3 && second && entries == 1 && GDBGetValue(layer, 0, 1) == 100.0 &&
            GDBGetValue(layer, 2, 1) == 100.0 && countShapes(GDBGetLayer(fp, 2)) == 1)
            found = 'n';
        GDBClose(fp);
        return found;
    }
};

using KilledLayerCommits = LayerCommits;

TEST_P(KilledLayerCommits, LeaveTheStateBeforeOrAfter) {
    makeNative(2);
    const std::string good = hosttest::contentsOf(native);
    int kills = 0;
    for (int step = 1; step < kMostSteps; ++step) {
        hosttest::write(native, good);
        unlink((native + "-journal").c_str());
        const int status = inChild([&] {
            HostFile* fp = GDBOpen(native.c_str(), "r+");
            change(fp);
            const FaultVfs faults(GetParam(), step);
            return KSHostFlush(fp) == 1 ? 0 : 1;
        });
        if (WIFEXITED(status)) {
            EXPECT_EQ(WEXITSTATUS(status), 0);
            EXPECT_EQ(state(), 'n');
            break;
        }
        ASSERT_EQ(WTERMSIG(status), SIGKILL);
        ++kills;
        ASSERT_NE(state(), '?') << step;
    }
    EXPECT_GT(kills, 10);
    EXPECT_LT(kills, kMostSteps - 1);
}
INSTANTIATE_TEST_SUITE_P(Kills, KilledLayerCommits,
                         testing::Values(Fault::kKillBefore, Fault::kKillAfter, Fault::kKillTorn));

using FailedLayerCommits = LayerCommits;

TEST_P(FailedLayerCommits, CanBeRepeated) {
    makeNative(2);
    const std::string good = hosttest::contentsOf(native);
    int failures = 0;
    for (int step = 1; step < kMostSteps; ++step) {
        unlink(native.c_str());
        hosttest::write(native, good);
        HostFile* fp = open("r+");
        change(fp);
        bool stored = false;
        bool reached = false;
        {
            const FaultVfs faults(GetParam(), step);
            stored = KSHostFlush(fp) == 1;
            reached = faults.reached();
        }
        if (!stored) {
            ++failures;
            EXPECT_EQ(KSHostFlush(fp), 1) << step;
        }
        GDBClose(fp);
        ASSERT_EQ(state(), 'n') << step;
        if (!reached) break;
    }
    EXPECT_GT(failures, 10);
}
INSTANTIATE_TEST_SUITE_P(Failures, FailedLayerCommits, testing::Values(Fault::kFailOnce, Fault::kFailFromHere));

TEST_F(Layers, ANativeFileThatCannotBeMadeLeavesNothing) {
    int failures = 0;
    for (int step = 1; step < 200; ++step) {
        const FaultVfs faults(Fault::kFailFromHere, step);
        HostFile* fp = newNative();
        if (fp != nullptr) {
            GDBClose(fp);
            break;
        }
        ++failures;
        EXPECT_TRUE(folder.names().empty()) << step;
    }
    EXPECT_GT(failures, 3);
    EXPECT_EQ(folder.names(), Texts{"library.ksl"});
}

// ---- the pool of texts ----

TEST(TextPool, KeepsATextOnceAndGivesItUpAfterItsLastUse) {
    kshost::TextPool pool;
    const auto a = pool.keep("plot");
    EXPECT_EQ(pool.keep("plot"), a);
    EXPECT_EQ(pool.keep(""), kshost::TextPool::kEmpty);
    const auto b = pool.keep("skip");
    EXPECT_NE(a, b);
    pool.drop(a);
    EXPECT_EQ(pool.text(a), "plot");
    pool.drop(a);
    EXPECT_EQ(pool.size(), 1U);
    EXPECT_EQ(pool.keep("mask"), a);  // its place is used again
    EXPECT_EQ(pool.text(a), "mask");
    EXPECT_EQ(pool.text(b), "skip");
    pool.drop(kshost::TextPool::kEmpty);
    EXPECT_EQ(pool.text(kshost::TextPool::kEmpty), "");
}
