// Metadata lists, at the boundary and inside the host, and the boundary's metadata calls over a file's store.
#include <csetjmp>

#include "hostfile.hpp"
#include "hostkit.hpp"

using hosttest::Reports;
using kshost::StringList;

namespace {

std::vector<std::string> texts(HostStringList list) {
    std::vector<std::string> all;
    for (int i = 0; i < CountStringList(list); ++i) all.emplace_back(list[i]);
    return all;
}

using Texts = std::vector<std::string>;

}  // namespace

TEST(AuxEntries, LookUpsAreExact) {
    HostStringList list = SetAuxEntry(nullptr, "Quality", "mask");
    list = SetAuxEntry(list, "QualityOfLife", "good=better");
    EXPECT_STREQ(FetchAuxEntry(list, "Quality"), "mask");
    EXPECT_STREQ(FetchAuxEntry(list, "QualityOfLife"), "good=better");
    EXPECT_EQ(FetchAuxEntry(list, "quality"), nullptr);
    EXPECT_EQ(FetchAuxEntry(list, "Qual"), nullptr);
    EXPECT_EQ(FetchAuxEntry(list, ""), nullptr);
    EXPECT_EQ(FetchAuxEntry(nullptr, "Quality"), nullptr);
    DestroyStringList(list);
}

TEST(AuxEntries, SettingReplacesInPlaceAndKeepsTheOrder) {
    HostStringList list = SetAuxEntry(nullptr, "a", "1");
    list = SetAuxEntry(list, "b", "2");
    list = SetAuxEntry(list, "a", "3");
    EXPECT_EQ(texts(list), (Texts{"a=3", "b=2"}));
    DestroyStringList(list);
}

TEST(AuxEntries, SettingFromTheListsOwnTextIsSafe) {
    HostStringList list = SetAuxEntry(nullptr, "a", "value");
    list = SetAuxEntry(list, "a", FetchAuxEntry(list, "a"));
    EXPECT_EQ(texts(list), Texts{"a=value"});
    DestroyStringList(list);
}

TEST(AuxEntries, SettingLeavesOneEntryOfAKey) {
    HostStringList list = SetAuxEntry(nullptr, "x", "1");
    list = SetAuxEntry(list, "y", "2");
    list = SetAuxEntry(list, "z", "3");
    std::free(list[2]);
    list[2] = _HString("x=9");
    list = SetAuxEntry(list, "x", "4");
    EXPECT_EQ(texts(list), (Texts{"x=4", "y=2"}));
    DestroyStringList(list);
}

TEST(AuxEntries, DeletingRemovesEveryEntryOfTheKeyOnly) {
    HostStringList list = SetAuxEntry(nullptr, "a", "1");
    list = SetAuxEntry(list, "ab", "2");
    list = DeleteAuxEntries(list, "a", 0, 1);
    EXPECT_EQ(texts(list), Texts{"ab=2"});
    list = DeleteAuxEntries(list, "ab", 0, 1);
    EXPECT_EQ(CountStringList(list), 0);
    list = SetAuxEntry(list, "c", "");
    EXPECT_STREQ(FetchAuxEntry(list, "c"), "");
    DestroyStringList(list);
    EXPECT_EQ(DeleteAuxEntries(nullptr, "a", 0, 1), nullptr);
    EXPECT_EQ(CountStringList(nullptr), 0);
    DestroyStringList(nullptr);
}

TEST(TokenizeDelim, SkipsEmptyTokens) {
    HostStringList list = TokenizeDelim("::cube.img:12::", ":");
    EXPECT_EQ(texts(list), (Texts{"cube.img", "12"}));
    DestroyStringList(list);
    list = TokenizeDelim("a b\tc", " \t");
    EXPECT_EQ(texts(list), (Texts{"a", "b", "c"}));
    DestroyStringList(list);
    EXPECT_EQ(TokenizeDelim("", ":"), nullptr);
    EXPECT_EQ(TokenizeDelim(nullptr, ":"), nullptr);
}

TEST(MkName, NamesStayValidForTheNextFewCalls) {
    const char* first = MkName("Gain_%d", 1);
    const char* second = MkName("%s_%d", first, 2);
    for (int i = 0; i < 8; ++i) MkName("other_%d", i);
    EXPECT_STREQ(first, "Gain_1");
    EXPECT_STREQ(second, "Gain_1_2");
}

TEST(MkName, AnArgumentMayBeTheOldestName) {
    const char* name = MkName("n%d", 0);
    for (int i = 1; i < 200; ++i) name = MkName("%s.", name);
    EXPECT_EQ(std::string(name), "n0" + std::string(199, '.'));
}

TEST(HString, CopiesAndPassesNull) {
    char* copy = _HString("text");
    EXPECT_STREQ(copy, "text");
    std::free(copy);
    EXPECT_EQ(_HString(nullptr), nullptr);
}

TEST(StringListInside, AgreesWithTheBoundaryForm) {
    StringList list;
    list.set("b", "2");
    list.set("a", "1");
    list.set("b", "3");
    EXPECT_EQ(list.entries(), (Texts{"b=3", "a=1"}));
    HostStringList boundary = list.toBoundary();
    EXPECT_TRUE(StringList::fromBoundary(boundary) == list);
    DestroyStringList(boundary);
    list.remove("b");
    list.remove("a");
    EXPECT_EQ(list.toBoundary(), nullptr);
    EXPECT_TRUE(StringList::fromBoundary(nullptr).empty());
}

// ---- over a file ----

namespace {

kshost::RasterFacts threeChannels() {
    kshost::RasterFacts facts;
    facts.width = 4;
    facts.height = 5;
    facts.channels = 3;
    facts.channelTypes = {2, 2, 2};
    facts.driver = "ENVI";
    facts.headerText = "ENVI\nwavelength units = nm\nwavelength = {450.5, 550.25, 640.125}\n";
    return facts;
}

}  // namespace

class StoreOfThreeChannels : public testing::Test {
protected:
    void SetUp() override {
        std::string why;
        store = kshost::openStore(folder / "cube.img", threeChannels(), true, why);
        ASSERT_NE(store, nullptr) << why;
    }
    hosttest::TemporaryFolder folder;
    std::shared_ptr<kshost::Store> store;
};

TEST_F(StoreOfThreeChannels, LentTextsOutliveTheirList) {
    const char* centre = store->lend(store->list(2, 2).find("ResponseProfile_Centre"));
    StringList list = store->list(2, 2);
    list.set("ResponseProfile_Centre", "551.000");
    store->replaceList(2, 2, list);
    EXPECT_STREQ(centre, "550.25");
    EXPECT_STREQ(store->list(2, 2).find("ResponseProfile_Centre"), "551.000");
}

class FileOfThreeChannels : public testing::Test {
protected:
    void SetUp() override {
        ImageRegister();
        hosttest::write(folder / "cube.img", std::string(4 * 5 * 3 * 2, '\0'));
        hosttest::write(folder / "cube.hdr",
                        "ENVI\nsamples = 4\nlines = 5\nbands = 3\nheader offset = 0\nfile type = ENVI Standard\n"
                        "data type = 2\ninterleave = bip\nbyte order = 0\nband names = {red, green, blue}\n"
                        "wavelength units = nm\nwavelength = {640.125, 550.25, 450.5}\n");
        file = GDBOpen((folder / "cube.img").c_str(), "r+");
        ASSERT_NE(file, nullptr);
    }
    void TearDown() override { GDBClose(file); }
    void reopen(const char* access) {
        GDBClose(file);
        file = GDBOpen((folder / "cube.img").c_str(), access);
        ASSERT_NE(file, nullptr);
    }
    hosttest::TemporaryFolder folder;
    Reports reports;
    HostFile* file = nullptr;
};

TEST_F(FileOfThreeChannels, ListsAreReadWrittenAndKept) {
    HostStringList list = GDBMetaDataIO(file, 0, 2, 2, nullptr);
    EXPECT_STREQ(FetchAuxEntry(list, "ResponseProfile_Centre"), "550.25");
    list = SetAuxEntry(list, "ID", "12");
    EXPECT_EQ(GDBMetaDataIO(file, 1, 2, 2, list), nullptr);
    DestroyStringList(list);
    EXPECT_STREQ(GDBFetchMetaDataEntry(file, 2, 2, "ID"), "12");
    reopen("r");
    EXPECT_STREQ(GDBFetchMetaDataEntry(file, 2, 2, "ID"), "12");
    EXPECT_EQ(GDBFetchMetaDataEntry(file, 2, 1, "ID"), nullptr);
    EXPECT_EQ(GDBFetchMetaDataEntry(file, 2, 2, "id"), nullptr);
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(FileOfThreeChannels, WritingANullListEmptiesTheLevel) {
    EXPECT_EQ(GDBMetaDataIO(file, 1, 2, 1, nullptr), nullptr);
    EXPECT_EQ(GDBMetaDataIO(file, 0, 2, 1, nullptr), nullptr);
    reopen("r");
    EXPECT_EQ(GDBMetaDataIO(file, 0, 2, 1, nullptr), nullptr);
    EXPECT_STREQ(GDBFetchMetaDataEntry(file, 2, 3, "ResponseProfile_Centre"), "450.5");
}

TEST_F(FileOfThreeChannels, AForeignHeaderStaysByteForByte) {
    const std::string before = hosttest::contentsOf(folder / "cube.hdr");
    HostStringList list = SetAuxEntry(nullptr, "SensorModelName", "HyMap");
    GDBMetaDataIO(file, 1, 1, -1, list);
    DestroyStringList(list);
    reopen("r");
    EXPECT_EQ(hosttest::contentsOf(folder / "cube.hdr"), before);
    EXPECT_STREQ(GDBFetchMetaDataEntry(file, 1, -1, "SensorModelName"), "HyMap");
}

TEST_F(FileOfThreeChannels, WhatDoesNotExistIsReportedOnceAndTrapped) {
    EXPECT_EQ(GDBMetaDataIO(file, 0, 2, 4, nullptr), nullptr);
    EXPECT_EQ(GDBMetaDataIO(file, 0, 2, 0, nullptr), nullptr);
    EXPECT_EQ(GDBFetchMetaDataEntry(file, 3, 1, "x"), nullptr);
    EXPECT_EQ(GDBMetaDataIO(file, 0, 9, 1, nullptr), nullptr);
    EXPECT_EQ(reports.all.size(), 4U);
    EXPECT_TRUE(reports.mention("has no channel 4"));
    EXPECT_TRUE(reports.mention("has no segment 1"));
    ASSERT_NE(IMP_Protect(), nullptr);
    if (setjmp(*IMPProtectBuffer()) == 0) {
        GDBMetaDataIO(file, 0, 2, 4, nullptr);
        FAIL() << "no jump to the armed trap";
    }
    EXPECT_EQ(reports.all.size(), 5U);
    EXPECT_EQ(IMPProtectBuffer(), nullptr);
    EXPECT_EQ(fpValidate(file), 1);
}

TEST_F(FileOfThreeChannels, AFileOpenForReadingIsNotWritten) {
    reopen("r");
    HostStringList list = SetAuxEntry(nullptr, "a", "b");
    GDBMetaDataIO(file, 1, 1, -1, list);
    DestroyStringList(list);
    GDBWriteHistory(file, 1, 1, "never");
    std::string text = "never";
    EXPECT_EQ(GDBChanDescIO(file, 1, 1, text.data()), 0);
    EXPECT_EQ(reports.all.size(), 3U);
    EXPECT_TRUE(reports.mention("reading only"));
    EXPECT_EQ(GDBFetchMetaDataEntry(file, 1, -1, "a"), nullptr);
}

TEST_F(FileOfThreeChannels, ChannelDescriptionsStartAsBandNamesAndFitTheCallersBuffer) {
    char text[65];
    EXPECT_EQ(GDBChanDescIO(file, 0, 2, text), 1);
    EXPECT_STREQ(text, "green");
    std::string longText;
    for (int i = 0; i < 40; ++i) longText += "\u00b5";
    EXPECT_EQ(GDBChanDescIO(file, 1, 2, longText.data()), 1);
    EXPECT_EQ(GDBChanDescIO(file, 0, 2, text), 1);
    EXPECT_EQ(std::string(text), longText.substr(0, 64));
    longText.insert(0, "x");
    EXPECT_EQ(GDBChanDescIO(file, 1, 2, longText.data()), 1);
    EXPECT_EQ(GDBChanDescIO(file, 0, 2, text), 1);
    EXPECT_EQ(std::string(text), longText.substr(0, 63));  // never half a character
    reopen("r");
    EXPECT_EQ(GDBChanDescIO(file, 0, 2, text), 1);
    EXPECT_EQ(std::string(text), longText.substr(0, 63));
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(FileOfThreeChannels, HistoryIsKept) {
    GDBWriteHistory(file, 1, 1, "corrected");
    reopen("r+");
    GDBWriteHistory(file, 1, 1, "smoothed");
    reopen("r");
    EXPECT_EQ(file->store->history(), (Texts{"corrected", "smoothed"}));
}

TEST(CreatedImage, ItsHeaderTellsOtherProgramsWhatWasStored) {
    const hosttest::TemporaryFolder folder;
    Reports reports;
    const std::string name = folder / "made.img";
    const int counts[4] = {0, 2, 0, 0};
    HostFile* file = IDBCreate(name.c_str(), 3, 2, counts, "PIXEL");
    ASSERT_NE(file, nullptr);
    HostStringList list = SetAuxEntry(nullptr, "SensorModelName", "HyMap");
    list = SetAuxEntry(list, "NumberOfRadTrans", "1");
    GDBMetaDataIO(file, 1, 1, -1, list);
    DestroyStringList(list);
    for (int channel = 1; channel <= 2; ++channel) {
        list = SetAuxEntry(nullptr, "ResponseProfile_Type", "gaussian");
        list = SetAuxEntry(list, "ResponseProfile_Centre", MkName("%d.250", 400 + channel));
        list = SetAuxEntry(list, "ResponseProfile_FWHM", "9.500");
        if (channel == 2) list = SetAuxEntry(list, "Quality", "mask");
        list = SetAuxEntry(list, "RadiometricTrans_Quantity_1", "refl");
        list = SetAuxEntry(list, "RadiometricTrans_Gain_1", "0.0001");
        list = SetAuxEntry(list, "RadiometricTrans_Offset_1", "0");
        GDBMetaDataIO(file, 1, 2, channel, list);
        DestroyStringList(list);
    }
    GDBClose(file);
    const auto lists = [&] {
        HostFile* opened = GDBOpen(name.c_str(), "r");
        EXPECT_NE(opened, nullptr);
        std::vector<Texts> all;
        for (int number : {-1, 1, 2}) {
            HostStringList read = GDBMetaDataIO(opened, 0, number < 0 ? 1 : 2, number, nullptr);
            all.push_back(texts(read));
            DestroyStringList(read);
        }
        GDBClose(opened);
        return all;
    };
    const std::vector<Texts> stored = lists();
    EXPECT_EQ(stored[0], (Texts{"SensorModelName=HyMap", "NumberOfRadTrans=1"}));
    EXPECT_EQ(stored[2].size(), 7U);
    std::filesystem::remove(folder / "made.img.ks");
    EXPECT_EQ(lists(), stored);  // from the header alone, as another program reads it
    EXPECT_TRUE(reports.all.empty());
}

TEST(Boundary, ANullHandleFailsWithAReport) {
    Reports reports;
    EXPECT_EQ(GDBMetaDataIO(nullptr, 0, 1, -1, nullptr), nullptr);
    EXPECT_EQ(GDBFetchMetaDataEntry(nullptr, 2, 1, "ID"), nullptr);
    EXPECT_EQ(GDBChanDescIO(nullptr, 1, 1, nullptr), 0);
    GDBWriteHistory(nullptr, 1, 1, "x");
    EXPECT_EQ(reports.all.size(), 4U);
}
