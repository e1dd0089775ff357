// What every host keeps to, tested through the C boundary alone. The same tests run on the host in memory that the
// library is tested with and on the embedded one, so that the two cannot drift apart.
#include <gtest/gtest.h>
#include <kshost.h>

#include <csetjmp>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "contract_host.hpp"

using namespace contract;

namespace {

// ---- string lists ----

using StringListContract = HostContract;

TEST_F(StringListContract, ANullListIsEmpty) {
    EXPECT_EQ(FetchAuxEntry(nullptr, "KEY"), nullptr);
    EXPECT_EQ(CountStringList(nullptr), 0);
    EXPECT_EQ(entries(DeleteAuxEntries(nullptr, "KEY", 0, 1)), std::vector<std::string>{});
    DestroyStringList(nullptr);
}

TEST_F(StringListContract, SettingCreatesAndKeepsOrder) {
    HostStringList list = SetAuxEntry(nullptr, "B", "2");
    list = SetAuxEntry(list, "A", "1");
    list = SetAuxEntry(list, "C", "");
    EXPECT_EQ(CountStringList(list), 3);
    EXPECT_STREQ(FetchAuxEntry(list, "C"), "");
    EXPECT_EQ(takeEntries(list), (std::vector<std::string>{"B=2", "A=1", "C="}));
}

TEST_F(StringListContract, SettingReplaces) {
    HostStringList list = SetAuxEntry(nullptr, "A", "1");
    list = SetAuxEntry(list, "B", "2");
    list = SetAuxEntry(list, "A", "longer than before");
    EXPECT_STREQ(FetchAuxEntry(list, "A"), "longer than before");
    EXPECT_EQ(takeEntries(list), (std::vector<std::string>{"A=longer than before", "B=2"}));
}

TEST_F(StringListContract, KeysMatchExactly) {
    HostStringList list = SetAuxEntry(nullptr, "Key", "1");
    list = SetAuxEntry(list, "KEY", "2");
    list = SetAuxEntry(list, "Key_1", "3");
    EXPECT_STREQ(FetchAuxEntry(list, "Key"), "1");
    EXPECT_STREQ(FetchAuxEntry(list, "KEY"), "2");
    EXPECT_EQ(FetchAuxEntry(list, "key"), nullptr);
    EXPECT_EQ(FetchAuxEntry(list, "Ke"), nullptr);
    EXPECT_EQ(FetchAuxEntry(list, "Key_"), nullptr);
    list = DeleteAuxEntries(list, "Key", 0, 1);
    EXPECT_EQ(takeEntries(list), (std::vector<std::string>{"KEY=2", "Key_1=3"}));
}

TEST_F(StringListContract, ValuesMayHoldAnything) {
    HostStringList list = SetAuxEntry(nullptr, "A", "b=c; {d}, \"e\" \xc2\xb5m\nf ");
    list = SetAuxEntry(list, "White space", "  kept  ");
    EXPECT_STREQ(FetchAuxEntry(list, "A"), "b=c; {d}, \"e\" \xc2\xb5m\nf ");
    EXPECT_STREQ(FetchAuxEntry(list, "White space"), "  kept  ");
    DestroyStringList(list);
}

TEST_F(StringListContract, DuplicatesAreFoundFirstSetOnceAndDeletedAll) {
    HostStringList list = TokenizeDelim("K=1;L=2;K=3", ";");
    EXPECT_EQ(CountStringList(list), 3);
    EXPECT_STREQ(FetchAuxEntry(list, "K"), "1");
    list = SetAuxEntry(list, "K", "4");
    EXPECT_EQ(entries(list), (std::vector<std::string>{"K=4", "L=2"}));
    DestroyStringList(list);
    list = TokenizeDelim("K=1;L=2;K=3", ";");
    list = DeleteAuxEntries(list, "K", 0, 1);
    EXPECT_EQ(takeEntries(list), (std::vector<std::string>{"L=2"}));
}

TEST_F(StringListContract, DeletingTheLastEntryLeavesAnEmptyList) {
    HostStringList list = SetAuxEntry(nullptr, "A", "1");
    list = DeleteAuxEntries(list, "A", 0, 1);
    EXPECT_EQ(CountStringList(list), 0);
    EXPECT_EQ(FetchAuxEntry(list, "A"), nullptr);
    list = SetAuxEntry(list, "B", "2");
    EXPECT_EQ(takeEntries(list), (std::vector<std::string>{"B=2"}));
}

TEST_F(StringListContract, TokensSkipEmptyOnes) {
    EXPECT_EQ(takeEntries(TokenizeDelim("a:b::c:", ":")), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(takeEntries(TokenizeDelim(", a b,c ,", ", ")), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(takeEntries(TokenizeDelim("alone", ":")), (std::vector<std::string>{"alone"}));
    EXPECT_EQ(takeEntries(TokenizeDelim(":::", ":")), std::vector<std::string>{});
    EXPECT_EQ(takeEntries(TokenizeDelim("", ":")), std::vector<std::string>{});
}

TEST_F(StringListContract, MadeNamesOutliveTheNextFewCalls) {
    const char* first = MkName("%s_%d", "Key", 1);
    const char* second = MkName("%s_%d", "Key", 2);
    const char* third = MkName("%.3f", 0.5);
    EXPECT_STREQ(first, "Key_1");
    EXPECT_STREQ(second, "Key_2");
    EXPECT_STREQ(third, "0.500");
}

TEST_F(StringListContract, CopiesOfTextsAreTheCallers) {
    char text[] = "text";
    char* copy = _HString(text);
    ASSERT_NE(copy, nullptr);
    text[0] = 'n';
    EXPECT_STREQ(copy, "text");
    std::free(copy);
    EXPECT_EQ(_HString(nullptr), nullptr);
}

// ---- images ----

/// Every image test runs on a raw cube and on a GeoTIFF.
struct ImageContract : HostContract, testing::WithParamInterface<const char*> {
    std::string name;
    HostFile* fp = nullptr;

    void SetUp() override {
        HostContract::SetUp();
        name = contract::freshName(GetParam());
    }
    void TearDown() override {
        GDBClose(fp);
        HostContract::TearDown();
    }
    HostFile* create(int type, int channels, int width = 7, int height = 5) {
        int counts[4] = {0, 0, 0, 0};
        counts[type - 1] = channels;
        return fp = IDBCreate(name.c_str(), width, height, counts, "PIXEL");
    }
    void reopen(const char* access) {
        GDBClose(fp);
        fp = GDBOpen(name.c_str(), access);
    }
    int transfer(int mode, int x, int y, int width, int height, std::vector<float>& buffer,
                 const std::vector<int>& channels, int bufferWidth = 0, int bufferHeight = 0) const {
        return GDBRealChanIOLow(fp, mode, x, y, width, height, buffer.data(), bufferWidth == 0 ? width : bufferWidth,
                                bufferHeight == 0 ? height : bufferHeight, static_cast<int>(channels.size()),
                                channels.data());
    }
    void set(int level, int number, const std::vector<std::pair<const char*, const char*>>& pairs) const {
        HostStringList list = nullptr;
        for (const auto& [key, value] : pairs) list = SetAuxEntry(list, key, value);
        EXPECT_EQ(GDBMetaDataIO(fp, kWrite, level, number, list), nullptr);
        DestroyStringList(list);
    }
    std::vector<std::string> list(int level, int number) const {
        return takeEntries(GDBMetaDataIO(fp, kRead, level, number, nullptr));
    }
};
INSTANTIATE_TEST_SUITE_P(Formats, ImageContract, testing::Values("image.img", "image.tif"),
                         [](const auto& test) { return std::string(test.param).substr(6); });

TEST_P(ImageContract, ExistsOnceItIsCreated) {
    EXPECT_EQ(DKCheck(name.c_str()), 0);
    EXPECT_EQ(GDBOpen(name.c_str(), "r"), nullptr);
    ASSERT_NE(create(3, 2), nullptr);
    reopen("r");
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(DKCheck(name.c_str()), 1);
}

TEST_P(ImageContract, KnowsItsShape) {
    for (const int type : {1, 2, 3, 4}) {
        name = contract::freshName(std::to_string(type) + GetParam());
        ASSERT_NE(create(type, 3, 11, 4), nullptr);
        for (const bool again : {false, true}) {
            if (again) reopen("r");
            ASSERT_NE(fp, nullptr);
            EXPECT_EQ(GDBChanNum(fp), 3);
            EXPECT_EQ(GDBChanXSize(fp), 11);
            EXPECT_EQ(GDBChanYSize(fp), 4);
            for (int channel = 1; channel <= 3; ++channel) EXPECT_EQ(GDBChanType(fp, channel), type);
            EXPECT_STREQ(fp2filename(fp), name.c_str());
            EXPECT_EQ(fp2type(fp), 3);
        }
        GDBClose(fp);
        fp = nullptr;
    }
}

TEST_P(ImageContract, AnExistingNameIsNeverTouched) {
    ASSERT_NE(create(4, 1), nullptr);
    std::vector<float> value = {3.5F};
    ASSERT_EQ(transfer(kWrite, 2, 2, 1, 1, value, {1}), 1);
    GDBClose(fp);
    EXPECT_EQ(create(4, 2), nullptr);
    reopen("r");
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(GDBChanNum(fp), 1);
    value[0] = 0.0F;
    EXPECT_EQ(transfer(kRead, 2, 2, 1, 1, value, {1}), 1);
    EXPECT_EQ(value[0], 3.5F);
}

TEST_P(ImageContract, StartsWithZeros) {
    ASSERT_NE(create(2, 2), nullptr);
    std::vector<float> buffer(7 * 5 * 2, 9.0F);
    EXPECT_EQ(transfer(kRead, 0, 0, 7, 5, buffer, {1, 2}), 1);
    EXPECT_EQ(buffer, std::vector<float>(70, 0.0F));
}

TEST_P(ImageContract, TransfersRectanglesOfChannelsPixelInterleaved) {
    ASSERT_NE(create(4, 3), nullptr);
    std::vector<float> whole;
    for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 7; ++x) {
            for (int channel = 1; channel <= 3; ++channel)
                whole.push_back(static_cast<float>(100 * channel + 10 * x + y) + 0.25F);
        }
    }
    ASSERT_EQ(transfer(kWrite, 0, 0, 7, 5, whole, {1, 2, 3}), 1);
    for (const bool again : {false, true}) {
        if (again) reopen("r");
        ASSERT_NE(fp, nullptr);
        std::vector<float> part(2 * 3 * 2);
        ASSERT_EQ(transfer(kRead, 4, 1, 2, 3, part, {3, 1}), 1);
        std::vector<float> expected;
        for (int y = 1; y < 4; ++y) {
            for (int x = 4; x < 6; ++x) {
                for (const int channel : {3, 1})
                    expected.push_back(static_cast<float>(100 * channel + 10 * x + y) + 0.25F);
            }
        }
        EXPECT_EQ(part, expected);
    }
}

TEST_P(ImageContract, WritesAPartAndLeavesTheRest) {
    ASSERT_NE(create(3, 2), nullptr);
    std::vector<float> part = {1.0F, 2.0F, 3.0F, 4.0F};
    ASSERT_EQ(transfer(kWrite, 5, 3, 2, 2, part, {2}), 1);
    reopen("r");
    ASSERT_NE(fp, nullptr);
    std::vector<float> whole(7 * 5 * 2);
    ASSERT_EQ(transfer(kRead, 0, 0, 7, 5, whole, {1, 2}), 1);
    for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 7; ++x) {
            const auto at = static_cast<std::size_t>(2 * (7 * y + x));
            EXPECT_EQ(whole[at], 0.0F);
            EXPECT_EQ(whole[at + 1], x < 5 || y < 3 ? 0.0F : part[static_cast<std::size_t>(2 * (y - 3) + x - 5)]);
        }
    }
}

TEST_P(ImageContract, ReducesToTheFirstPixelOfEachCell) {
    ASSERT_NE(create(4, 2, 23, 17), nullptr);
    std::vector<float> whole;
    for (int y = 0; y < 17; ++y) {
        for (int x = 0; x < 23; ++x) {
            for (int channel = 1; channel <= 2; ++channel)
                whole.push_back(static_cast<float>(10000 * channel + 100 * x + y));
        }
    }
    ASSERT_EQ(transfer(kWrite, 0, 0, 23, 17, whole, {1, 2}), 1);
    reopen("r");
    ASSERT_NE(fp, nullptr);
    struct Case {
        int x, y, width, height, bufferWidth, bufferHeight;
    };
    for (const Case& c : {Case{0, 0, 23, 17, 7, 5}, Case{1, 2, 22, 15, 11, 5}, Case{3, 0, 10, 17, 3, 17},
                          Case{2, 2, 5, 5, 5, 1}, Case{0, 0, 23, 17, 22, 16}, Case{4, 4, 7, 7, 1, 1}}) {
        std::vector<float> buffer(static_cast<std::size_t>(c.bufferWidth * c.bufferHeight * 2));
        ASSERT_EQ(transfer(kRead, c.x, c.y, c.width, c.height, buffer, {2, 1}, c.bufferWidth, c.bufferHeight), 1);
        std::vector<float> expected;
        for (int j = 0; j < c.bufferHeight; ++j) {
            for (int i = 0; i < c.bufferWidth; ++i) {
                const int x = c.x + i * c.width / c.bufferWidth;
                const int y = c.y + j * c.height / c.bufferHeight;
                for (const int channel : {2, 1}) expected.push_back(static_cast<float>(10000 * channel + 100 * x + y));
            }
        }
        EXPECT_EQ(buffer, expected) << c.width << " to " << c.bufferWidth;
    }
}

TEST_P(ImageContract, IntegersAreClampedAndRoundedToNearest) {
    struct Case {
        int type;
        std::vector<float> written;
        std::vector<float> read;
    };
    const std::vector<Case> cases = {
        {1, {-5.6F, 0.4F, 2.6F, 254.9F, 255.2F, 1e9F, -1e9F}, {0.0F, 0.0F, 3.0F, 255.0F, 255.0F, 255.0F, 0.0F}},
        {2,
         {-40000.0F, -2.6F, -2.4F, 2.4F, 32766.6F, 40000.0F, 1e9F},
         {-32768.0F, -3.0F, -2.0F, 2.0F, 32767.0F, 32767.0F, 32767.0F}},
        {3,
         {-1.0F, 0.6F, 12345.4F, 65534.9F, 65535.0F, 70000.0F, 1e30F},
         {0.0F, 1.0F, 12345.0F, 65535.0F, 65535.0F, 65535.0F, 65535.0F}}};
    for (const Case& c : cases) {
        name = contract::freshName(std::to_string(c.type) + GetParam());
        ASSERT_NE(create(c.type, 1), nullptr);
        std::vector<float> buffer = c.written;
        ASSERT_EQ(transfer(kWrite, 0, 4, 7, 1, buffer, {1}), 1);
        EXPECT_EQ(buffer, c.written) << "the caller's buffer stays";
        reopen("r");
        ASSERT_NE(fp, nullptr);
        ASSERT_EQ(transfer(kRead, 0, 4, 7, 1, buffer, {1}), 1);
        EXPECT_EQ(buffer, c.read) << "type " << c.type;
        GDBClose(fp);
        fp = nullptr;
    }
}

TEST_P(ImageContract, TransfersOutsideTheImageFail) {
    ASSERT_NE(create(4, 2), nullptr);
    std::vector<float> buffer(64);
    EXPECT_EQ(transfer(kRead, 6, 0, 2, 1, buffer, {1}), 0);
    EXPECT_EQ(transfer(kRead, 0, -1, 2, 1, buffer, {1}), 0);
    EXPECT_EQ(transfer(kRead, 0, 0, 2, 1, buffer, {3}), 0);
    EXPECT_EQ(transfer(kRead, 0, 0, 2, 1, buffer, {0}), 0);
}

TEST_P(ImageContract, KeepsChannelDescriptions) {
    ASSERT_NE(create(1, 2), nullptr);
    const std::string longest(64, 'x');
    std::string text = longest;
    EXPECT_NE(GDBChanDescIO(fp, kWrite, 2, text.data()), 0);
    for (const bool again : {false, true}) {
        if (again) reopen("r");
        ASSERT_NE(fp, nullptr);
        char buffer[65] = "before";
        EXPECT_NE(GDBChanDescIO(fp, kRead, 2, buffer), 0);
        EXPECT_EQ(buffer, longest);
    }
}

TEST_P(ImageContract, HoldsNoCube) {
    ASSERT_NE(create(1, 1), nullptr);
    KSVQubeInfo info{};
    EXPECT_EQ(VQubeGetInfo(fp, &info), 0);
    VQubeCleanUp(&info);
    VQubeCleanUp(nullptr);
}

// ---- vector-quantized cubes ----

struct CubeContract : HostContract {
    static constexpr int kVectors = 5;
    static constexpr int kBands = 2;
    std::string name;
    HostFile* fp = nullptr;
    KSVQubeInfo info{};

    void SetUp() override {
        HostContract::SetUp();
        name = contract::freshName("cube.vq");
        EXPECT_NE(VQubeCreate(name.c_str(), 4, 3, kBands, kVectors, 4), 0);
    }
    void TearDown() override {
        VQubeCleanUp(&info);
        GDBClose(fp);
        HostContract::TearDown();
    }
    void open(const char* access) {
        fp = GDBOpen(name.c_str(), access);
        ASSERT_NE(fp, nullptr);
        ASSERT_NE(VQubeGetInfo(fp, &info), 0);
        ASSERT_EQ(info.nNumVQChans, kBands);
    }
    void reopen() {
        VQubeCleanUp(&info);
        GDBClose(fp);
        open("r");
    }
};

TEST_F(CubeContract, IsDescribed) {
    EXPECT_EQ(DKCheck(name.c_str()), 1);
    open("r");
    EXPECT_EQ(GDBChanNum(fp), kBands);
    EXPECT_EQ(GDBChanXSize(fp), 4);
    EXPECT_EQ(GDBChanYSize(fp), 3);
    EXPECT_EQ(GDBChanType(fp, 2), 4);
    EXPECT_EQ(info.nPixels, 4);
    EXPECT_EQ(info.nLines, 3);
    EXPECT_EQ(info.panVQChans[0], 1);
    EXPECT_EQ(info.panVQChans[1], 2);
    EXPECT_EQ(info.nNumNonVQChans, 0);
    EXPECT_EQ(info.nCodeVectors, kVectors);
    EXPECT_EQ(info.nDataType, 4);
    HostFile* first = info.papfVQChan[0];
    VQubeCleanUp(&info);
    EXPECT_EQ(info.panVQChans, nullptr);
    EXPECT_EQ(info.papfVQChan, nullptr);
    EXPECT_EQ(fpValidate(first), 1);
}

TEST_F(CubeContract, AnExistingNameIsNotTaken) { EXPECT_EQ(VQubeCreate(name.c_str(), 4, 3, kBands, kVectors, 4), 0); }

TEST_F(CubeContract, KeepsItsCodebook) {
    open("r+");
    const int channels[] = {1, 2};
    const std::vector<float> put = {1, 2, 3, 4, 5, 6, 7, 8, 9.5F, -10};
    HostStringList tokens = TokenizeDelim(fp2filename(info.papfVQChan[0]), ":");
    EXPECT_NE(VQubePutCodeBook(tokens[0], kVectors, 4, kBands, kBands, channels, put.data()), 0);
    DestroyStringList(tokens);
    for (const bool again : {false, true}) {
        if (again) reopen();
        ASSERT_NE(fp, nullptr);
        std::vector<float> got(put.size());
        EXPECT_NE(VQubeGetCodeBook(info.papfVQChan[0], got.data()), 0);
        EXPECT_EQ(got, put);
    }
}

TEST_F(CubeContract, KeepsItsIndexMap) {
    open("r+");
    const int whole[4] = {0, 0, 4, 3};
    std::vector<uint16_t> put = {0, 1, 2, 3, 4, 3, 2, 1, 0, 1, 2, 4};
    const char* cube = fp2filename(info.papfVQChan[0]);
    EXPECT_NE(VQubePutIndexMap(cube, whole, kVectors, 4, 3, put.data()), 0);
    const int part[4] = {1, 1, 2, 2};
    const std::vector<uint16_t> piece = {4, 4, 3, 3};
    EXPECT_NE(VQubePutIndexMap(cube, part, kVectors, 2, 2, piece.data()), 0);
    put = {0, 1, 2, 3, 4, 4, 4, 1, 0, 3, 3, 4};
    for (const bool again : {false, true}) {
        if (again) reopen();
        ASSERT_NE(fp, nullptr);
        std::vector<uint16_t> got(12);
        EXPECT_NE(VQubeGetIndexMap(info.papfVQChan[0], whole, got.data()), 0);
        EXPECT_EQ(got, put);
        const int column[4] = {3, 0, 1, 3};
        got.resize(3);
        EXPECT_NE(VQubeGetIndexMap(info.papfVQChan[1], column, got.data()), 0);
        EXPECT_EQ(got, (std::vector<uint16_t>{3, 1, 4}));
        const int outside[4] = {1, 0, 4, 3};
        EXPECT_EQ(VQubeGetIndexMap(info.papfVQChan[0], outside, put.data()), 0);
    }
}

TEST_P(ImageContract, AnUnsetTaskWindowIsTheWholeImage) {
    ASSERT_NE(create(1, 1, 11, 6), nullptr);
    int window[4] = {-1, -1, -1, -1};
    CheckWin(fp, "DBIW", window);
    EXPECT_EQ((std::vector<int>{window[0], window[1], window[2], window[3]}), (std::vector<int>{0, 0, 11, 6}));
}

// ---- vector layers ----

/// Every layer test runs on a file in memory and on a native one.
struct LayerContract : HostContract, testing::WithParamInterface<int> {
    std::string name;
    HostFile* fp = nullptr;
    HostLayer* layer = nullptr;

    void SetUp() override {
        HostContract::SetUp();
        name = GetParam() == kMemoryFile ? "" : contract::freshName("spectra.layers");
        fp = GDBCreate(GetParam(), name.c_str(), 512, 512, 0, 1, "");
        ASSERT_NE(fp, nullptr);
        layer = GDBCreateLayer(fp, "spectra", "", "");
        ASSERT_NE(layer, nullptr);
    }
    void TearDown() override {
        if (fp != nullptr) GDBClose(fp);
        HostContract::TearDown();
    }
    /// A text field, a real field and two shapes.
    void fill() {
        GDBDefineNewField(layer, "Target", kText);
        GDBDefineNewField(layer, "m450_500", kReal);
        for (const char* target : {"grass", "soil"}) {
            const int shape = GDBCreateShape(layer, 0);
            GDBSetValueString(layer, shape, 0, target);
            GDBSetValue(layer, shape, 1, shape + 0.1);
        }
    }
};

TEST_P(LayerContract, ALayerSaysWhereItIs) {
    EXPECT_EQ(layer->fp, fp);
    EXPECT_EQ(layer->nSegment, 1);
    EXPECT_EQ(layer->nFlags, 0U);
    EXPECT_EQ(fp2type(fp), GetParam());
    EXPECT_EQ(GDBLayer2Type(layer), GetParam());
    EXPECT_EQ(GDBChanNum(fp), 0);
    EXPECT_EQ(GDBGetLayer(fp, 1), layer);
    EXPECT_EQ(GDBGetLayer(fp, 2), nullptr);
    HostLayer* second = GDBCreateLayer(fp, "more", "", "");
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->nSegment, 2);
}

TEST_P(LayerContract, SegmentsOfATypeAreWalked) {
    GDBCreateLayer(fp, "more", "", "");
    EXPECT_EQ(GDBSegNext(fp, kLayerSegment, 0), 1);
    EXPECT_EQ(GDBSegNext(fp, kLayerSegment, 1), 2);
    EXPECT_EQ(GDBSegNext(fp, kLayerSegment, 2), -1);
    EXPECT_EQ(GDBSegNext(fp, 180, 0), -1);
    char status = ' ';
    int type = -1;
    EXPECT_EQ(IDBSegInfoIO(fp, 2, 0, &status, &type, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(status, 'A');
    EXPECT_EQ(type, kLayerSegment);
    EXPECT_EQ(IDBSegInfoIO(fp, 3, 0, &status, &type, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(status, 'E');
    EXPECT_NE(type, kLayerSegment);
}

TEST_P(LayerContract, FieldsCountFromZero) {
    EXPECT_EQ(GDBGetNumFields(layer), 0);
    EXPECT_EQ(GDBDefineNewField(layer, "Target", kText), 0);
    EXPECT_EQ(GDBDefineNewField(layer, "m450_500", kReal), 1);
    EXPECT_EQ(GDBGetNumFields(layer), 2);
    EXPECT_STREQ(GDBGetFieldName(layer, 0), "Target");
    EXPECT_STREQ(GDBGetFieldName(layer, 1), "m450_500");
    EXPECT_EQ(GDBGetFieldName(layer, 2), nullptr);
    EXPECT_EQ(GDBGetFieldName(layer, -1), nullptr);
    EXPECT_EQ(GDBDefineNewField(layer, nullptr, kText), -1);
    char* format = GDBGenFieldFormat(kText, 80, 0, 0);
    ASSERT_NE(format, nullptr);
    EXPECT_EQ(GDBSetFieldFormat(layer, 0, format), 1);
    EXPECT_EQ(GDBSetFieldFormat(layer, 2, format), 0);
    std::free(format);
}

TEST_P(LayerContract, ShapesAreWalkedFromTheFirst) {
    EXPECT_EQ(GDBGetFirst(layer), -1);
    EXPECT_EQ(GDBCreateShape(layer, 0), 0);
    EXPECT_EQ(GDBCreateShape(layer, 0), 1);
    EXPECT_EQ(GDBGetFirst(layer), 0);
    EXPECT_EQ(GDBGetNext(layer, 0), 1);
    EXPECT_EQ(GDBGetNext(layer, 1), -1);
}

TEST_P(LayerContract, ValuesAreKeptByShapeAndField) {
    fill();
    EXPECT_STREQ(GDBGetValueString(layer, 0, 0), "grass");
    EXPECT_STREQ(GDBGetValueString(layer, 1, 0), "soil");
    EXPECT_EQ(GDBGetValue(layer, 0, 1), 0.1);
    EXPECT_EQ(GDBGetValue(layer, 1, 1), 1.1);
    EXPECT_EQ(GDBSetValue(layer, 0, 1, -1.23e34), 1);
    EXPECT_EQ(GDBSetValueString(layer, 0, 0, ""), 1);
    EXPECT_EQ(GDBGetValue(layer, 0, 1), -1.23e34);
    EXPECT_STREQ(GDBGetValueString(layer, 0, 0), "");
    const int shape = GDBCreateShape(layer, 0);
    EXPECT_EQ(GDBGetValue(layer, shape, 1), 0.0);
    EXPECT_STREQ(GDBGetValueString(layer, shape, 0), "");
}

TEST_P(LayerContract, ATextThatWasHandedOutMayBeEdited) {
    fill();
    char* text = GDBGetValueString(layer, 0, 0);
    ASSERT_NE(text, nullptr);
    text[2] = '\0';
    EXPECT_STREQ(text, "gr");
}

TEST_P(LayerContract, WhatIsNotThereFails) {
    fill();
    EXPECT_EQ(GDBGetValue(layer, 2, 1), 0.0);
    EXPECT_EQ(GDBGetValueString(layer, -1, 0), nullptr);
    EXPECT_EQ(GDBGetValueString(layer, 0, 2), nullptr);
    EXPECT_EQ(GDBSetValue(layer, 0, 2, 1), 0);
    EXPECT_EQ(GDBSetValueString(layer, 2, 0, "x"), 0);
    EXPECT_EQ(GDBSetValueString(layer, 0, 0, nullptr), 0);
    EXPECT_EQ(GDBCreateShape(nullptr, 0), -1);
    EXPECT_EQ(GDBGetFirst(nullptr), -1);
    EXPECT_EQ(GDBGetNumFields(nullptr), 0);
    EXPECT_EQ(GDBLayer2Type(nullptr), 0);
    EXPECT_EQ(GDBSegNext(nullptr, kLayerSegment, 0), -1);
    EXPECT_EQ(GDBVectorCopy(fp, 9, fp, 0, 0, 0, 0), 0);
}

TEST_P(LayerContract, ACopyIsTheFirstLayerOfANewFile) {
    fill();
    HostFile* target = GDBCreate(kMemoryFile, "", 512, 512, 0, 1, "");
    ASSERT_NE(target, nullptr);
    ASSERT_EQ(GDBVectorCopy(fp, layer->nSegment, target, 0, 0, 0, 0), 1);
    HostLayer* copy = GDBGetLayer(target, 1);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->fp, target);
    EXPECT_EQ(GDBGetNumFields(copy), 2);
    EXPECT_STREQ(GDBGetFieldName(copy, 1), "m450_500");
    EXPECT_STREQ(GDBGetValueString(copy, 1, 0), "soil");
    GDBSetValue(copy, 1, 1, 7);
    EXPECT_EQ(GDBGetValue(layer, 1, 1), 1.1);
    GDBClose(target);
}

TEST_P(LayerContract, ALayerOfAClosedFileIsRecognised) {
    fill();
    GDBClose(fp);
    fp = nullptr;
    EXPECT_EQ(GDBGetNumFields(layer), 0);
    EXPECT_EQ(GDBGetValueString(layer, 0, 0), nullptr);
    EXPECT_EQ(GDBCreateShape(layer, 0), -1);
}

TEST_P(LayerContract, AFailureJumpsToTheTrap) {
    volatile bool returned = false;
    ASSERT_NE(IMP_Protect(), nullptr);
    if (setjmp(*IMPProtectBuffer()) == 0) {
        GDBGetLayer(fp, 9);
        returned = true;
        IMPUnprotect();
    }
    EXPECT_FALSE(returned);
}

INSTANTIATE_TEST_SUITE_P(Files, LayerContract, testing::Values(kMemoryFile, kNativeFile));

struct LayerFileContract : HostContract {};

TEST_F(LayerFileContract, ANativeFileIsOpenedAgainWithItsLayers) {
    const std::string name = contract::freshName("spectra.layers");
    HostFile* fp = GDBCreate(kNativeFile, name.c_str(), 512, 512, 0, 1, "");
    ASSERT_NE(fp, nullptr);
    EXPECT_STREQ(fp2filename(fp), name.c_str());
    HostLayer* layer = GDBCreateLayer(fp, "spectra", "", "");
    GDBDefineNewField(layer, "m450_500", kReal);
    GDBSetValue(layer, GDBCreateShape(layer, 0), 0, 0.25);
    GDBClose(fp);
    EXPECT_EQ(DKCheck(name.c_str()), 1);
    EXPECT_EQ(GDBCreate(kNativeFile, name.c_str(), 512, 512, 0, 1, ""), nullptr);
    fp = GDBOpen(name.c_str(), "r");
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(GDBChanNum(fp), 0);
    layer = GDBGetLayer(fp, GDBSegNext(fp, kLayerSegment, 0));
    ASSERT_NE(layer, nullptr);
    EXPECT_EQ(layer->fp, fp);
    EXPECT_EQ(GDBGetValue(layer, 0, 0), 0.25);
    EXPECT_EQ(GDBCreateLayer(fp, "more", "", ""), nullptr);  // open for reading
    GDBClose(fp);
}

TEST_F(LayerFileContract, ANamelessFileIsInMemoryOnly) {
    EXPECT_EQ(GDBCreate(kNativeFile, "", 512, 512, 0, 1, ""), nullptr);
    EXPECT_EQ(GDBCreate(kNativeFile, nullptr, 512, 512, 0, 1, ""), nullptr);
    HostFile* first = GDBCreate(kMemoryFile, "", 512, 512, 0, 1, "");
    HostFile* second = GDBCreate(kMemoryFile, "", 512, 512, 0, 1, "");
    EXPECT_NE(first, second);
    GDBCreateLayer(first, "spectra", "", "");
    EXPECT_EQ(GDBSegNext(second, kLayerSegment, 0), -1);
    GDBClose(first);
    GDBClose(second);
}

// ---- references ----

TEST_P(ImageContract, EachReferenceIsGivenBackOnce) {
    ASSERT_NE(create(1, 1), nullptr);
    HostFile* reference = fpReference(fp);
    EXPECT_EQ(reference, fp);
    GDBClose(fp);
    EXPECT_EQ(fpValidate(reference), 1);
    EXPECT_EQ(GDBChanNum(reference), 1);
    GDBClose(reference);
    EXPECT_EQ(fpValidate(reference), 0);
    fp = nullptr;
}

TEST_P(ImageContract, NullAndDeadHandlesAreRecognised) {
    EXPECT_EQ(fpValidate(nullptr), 0);
    EXPECT_EQ(fp2type(nullptr), 0);
    EXPECT_EQ(fpReference(nullptr), nullptr);
    GDBClose(nullptr);
    ASSERT_NE(create(1, 1), nullptr);
    HostFile* dead = fp;
    EXPECT_EQ(fpValidate(fp), 1);
    GDBClose(fp);
    fp = nullptr;
    EXPECT_EQ(fpValidate(dead), 0);
}

// ---- metadata ----

TEST_P(ImageContract, ListsOfDifferentLevelsAndNumbersAreApart) {
    ASSERT_NE(create(4, 2), nullptr);
    set(kFileLevel, kWholeFile, {{"Key", "file"}});
    set(kChannelLevel, 1, {{"Key", "one"}});
    set(kChannelLevel, 2, {{"Key", "two"}});
    for (const bool again : {false, true}) {
        if (again) reopen("r");
        ASSERT_NE(fp, nullptr);
        EXPECT_STREQ(GDBFetchMetaDataEntry(fp, kFileLevel, kWholeFile, "Key"), "file");
        EXPECT_STREQ(GDBFetchMetaDataEntry(fp, kChannelLevel, 1, "Key"), "one");
        EXPECT_STREQ(GDBFetchMetaDataEntry(fp, kChannelLevel, 2, "Key"), "two");
        EXPECT_EQ(GDBFetchMetaDataEntry(fp, kChannelLevel, 2, "key"), nullptr);
        EXPECT_EQ(GDBFetchMetaDataEntry(fp, kChannelLevel, 2, "Other"), nullptr);
    }
}

TEST_P(ImageContract, ListsKeepOrderCaseAndTexts) {
    ASSERT_NE(create(4, 1), nullptr);
    const std::vector<std::pair<const char*, const char*>> pairs = {
        {"zebra", "1"}, {"Alpha", "a=b"}, {"alpha", ""}, {"With blank", "  \xc2\xb5m, {1, 2}\n3 "}, {"ID", "7"}};
    std::vector<std::string> expected;
    for (const auto& [key, value] : pairs) expected.push_back(std::string(key) + "=" + value);
    set(kFileLevel, kWholeFile, pairs);
    set(kChannelLevel, 1, pairs);
    for (const bool again : {false, true}) {
        if (again) reopen("r");
        ASSERT_NE(fp, nullptr);
        EXPECT_EQ(list(kFileLevel, kWholeFile), expected);
        EXPECT_EQ(list(kChannelLevel, 1), expected);
    }
}

TEST_P(ImageContract, WritingReplacesTheWholeList) {
    ASSERT_NE(create(4, 1), nullptr);
    set(kChannelLevel, 1, {{"A", "1"}, {"B", "2"}});
    set(kChannelLevel, 1, {{"C", "3"}});
    EXPECT_EQ(list(kChannelLevel, 1), (std::vector<std::string>{"C=3"}));
    reopen("r+");
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(list(kChannelLevel, 1), (std::vector<std::string>{"C=3"}));
    GDBMetaDataIO(fp, kWrite, kChannelLevel, 1, nullptr);
    EXPECT_EQ(list(kChannelLevel, 1), std::vector<std::string>{});
    reopen("r");
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(list(kChannelLevel, 1), std::vector<std::string>{}) << "an emptied list stays empty";
}

TEST_P(ImageContract, AListThatWasReadIsTheCallersOwn) {
    ASSERT_NE(create(4, 1), nullptr);
    set(kFileLevel, kWholeFile, {{"A", "1"}});
    HostStringList first = GDBMetaDataIO(fp, kRead, kFileLevel, kWholeFile, nullptr);
    first = SetAuxEntry(first, "A", "changed");
    EXPECT_EQ(list(kFileLevel, kWholeFile), (std::vector<std::string>{"A=1"})) << "until it is written";
    set(kFileLevel, kWholeFile, {{"B", "2"}});
    EXPECT_EQ(takeEntries(first), (std::vector<std::string>{"A=changed"}));
}

TEST_P(ImageContract, AFetchedTextLivesAsLongAsTheFile) {
    ASSERT_NE(create(4, 1), nullptr);
    set(kChannelLevel, 1, {{"A", "1"}});
    const char* text = GDBFetchMetaDataEntry(fp, kChannelLevel, 1, "A");
    ASSERT_NE(text, nullptr);
    set(kChannelLevel, 1, {{"B", "2"}});
    GDBFetchMetaDataEntry(fp, kChannelLevel, 1, "B");
    EXPECT_STREQ(text, "1");
}

TEST_P(ImageContract, GatheredWritesAreSeenAtOnceByEveryHandle) {
    ASSERT_NE(create(4, 1), nullptr);
    set(kFileLevel, kWholeFile, {{"A", "1"}});
    EXPECT_STREQ(GDBFetchMetaDataEntry(fp, kFileLevel, kWholeFile, "A"), "1");
    reopen("r+");
    ASSERT_NE(fp, nullptr);
    HostFile* other = GDBOpen(name.c_str(), "r");
    ASSERT_NE(other, nullptr);
    set(kFileLevel, kWholeFile, {{"A", "2"}});
    EXPECT_STREQ(GDBFetchMetaDataEntry(other, kFileLevel, kWholeFile, "A"), "2");
    GDBClose(other);
}

TEST_P(ImageContract, ClosingOneReferenceStoresWhatWasGathered) {
    ASSERT_NE(create(4, 1), nullptr);
    HostFile* reference = fpReference(fp);
    set(kFileLevel, kWholeFile, {{"A", "1"}});
    GDBClose(reference);
    EXPECT_STREQ(GDBFetchMetaDataEntry(fp, kFileLevel, kWholeFile, "A"), "1");
    reopen("r");
    ASSERT_NE(fp, nullptr);
    EXPECT_STREQ(GDBFetchMetaDataEntry(fp, kFileLevel, kWholeFile, "A"), "1");
}

TEST_P(ImageContract, HistoryIsAccepted) {
    ASSERT_NE(create(4, 1), nullptr);
    GDBWriteHistory(fp, kFileLevel, kWholeFile, "made by a test");
    reopen("r");
    EXPECT_NE(fp, nullptr);
}

// ---- traps ----

// A jump skips destructors: these functions hold nothing that has one.

int openUnderATrap(const char* name) {
    if (IMP_Protect() == nullptr) return -1;
    if (setjmp(*IMPProtectBuffer()) != 0) return 1;
    HostFile* fp = GDBOpen(name, "r");
    IMPUnprotect();
    GDBClose(fp);
    return 0;
}

/// Fails once under the inner trap and once under the outer one.
int openUnderTwoTraps(const char* name, int* innerResult) {
    if (IMP_Protect() == nullptr) return -1;
    if (setjmp(*IMPProtectBuffer()) != 0) return 1;
    *innerResult = openUnderATrap(name);
    GDBClose(GDBOpen(name, "r"));
    IMPUnprotect();
    return 0;
}

TEST_P(ImageContract, AFailureJumpsToTheTrapWhichIsThenGone) {
    EXPECT_EQ(openUnderATrap(name.c_str()), 1);
    EXPECT_EQ(GDBOpen(name.c_str(), "r"), nullptr) << "no trap is left to jump to";
    EXPECT_EQ(openUnderATrap(name.c_str()), 1) << "and a new one works";
}

TEST_P(ImageContract, TrapsNest) {
    int inner = -1;
    EXPECT_EQ(openUnderTwoTraps(name.c_str(), &inner), 1);
    EXPECT_EQ(inner, 1);
    EXPECT_EQ(GDBOpen(name.c_str(), "r"), nullptr);
}

TEST_P(ImageContract, ATrapThatWasTakenDownIsNotJumpedTo) {
    ASSERT_NE(create(4, 1), nullptr);
    GDBClose(fp);
    fp = nullptr;
    EXPECT_EQ(openUnderATrap(name.c_str()), 0);
    EXPECT_EQ(GDBOpen((name + ".nosuch").c_str(), "r"), nullptr);
}

// ---- services ----

using ServiceContract = HostContract;

int compareInts(const void* a, const void* b) {
    const int left = *static_cast<const int*>(a);
    const int right = *static_cast<const int*>(b);
    return (left > right) - (left < right);
}

TEST_F(ServiceContract, SortsInPlace) {
    std::vector<int> values = {5, -1, 3, 3, 0, 1000000, -7};
    ORV_qsort(values.data(), values.size(), sizeof(int), compareInts);
    EXPECT_EQ(values, (std::vector<int>{-7, -1, 0, 3, 3, 5, 1000000}));
    ORV_qsort(values.data(), 0, sizeof(int), compareInts);
    ORV_qsort(values.data(), 1, sizeof(int), compareInts);
}

TEST_F(ServiceContract, AllowsSomeMemory) {
    int limited = -1;
    EXPECT_GT(IMPGetMemory(&limited), 0);
    EXPECT_EQ(limited, 1);
}

TEST_F(ServiceContract, FatalSettingIsGivenBack) {
    const int before = IMPFatal(0);
    EXPECT_EQ(IMPFatal(1), 0);
    EXPECT_EQ(IMPFatal(before), 1);
}

TEST_F(ServiceContract, ReportsAndProgressReturn) {
    IMPError(83, 0, "%s: a report of %d values\n", "test ()", 3);
    Debug("%s: a message\n", "test ()");
    IMPErrChar(18, 0, "DBIC", "a text");
    IMPCounter(0, -1.0);
    IMPCounter(0, 0.5);
    IMPCounter(0, 2.0);
}

TEST_F(ServiceContract, RegisteringTwiceIsHarmless) {
    ImageRegister();
    ImageRegister();
    EXPECT_EQ(DKCheck(contract::freshName("nothing").c_str()), 0);
}

}  // namespace
