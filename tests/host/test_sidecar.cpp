// The store and its sidecar: what is kept, what is derived, and that no failure, crash or other program ever leaves
// anything but the state before or the state after a commit.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <functional>
#include <random>

#include "enviheader.hpp"
#include "faultvfs.hpp"
#include "hostkit.hpp"
#include "otherprogram.hpp"
#include "report.hpp"
#include "sidecar.hpp"
#include "store.hpp"

using hosttest::asNobody;
using hosttest::Fault;
using hosttest::FaultVfs;
using hosttest::FullDisk;
using hosttest::inChild;
using hosttest::OtherProgram;
using hosttest::Reports;
using hosttest::succeeded;
using kshost::openStore;
using kshost::RasterFacts;
using kshost::Store;
using kshost::StringList;
using Texts = std::vector<std::string>;

namespace {

const std::string kHeader =
    "ENVI\nwavelength units = nm\nwavelength = {400.5, 410.25, 420.123456}\nfwhm = {10, 11, 12}\n"
    "data gain values = {0.0000123456789, 0.02, 0.03}\ndescription = {a}\n";

RasterFacts threeBands() {
    RasterFacts facts;
    facts.width = 4;
    facts.height = 5;
    facts.channels = 3;
    facts.channelTypes = {2, 2, 2};
    facts.driver = "ENVI";
    facts.sampleType = "Int16";
    facts.interleave = "BIP";
    facts.headerText = kHeader;
    return facts;
}

/// An image that the host created: its header is a text file that the host writes.
RasterFacts createdImage(const std::string& header) {
    RasterFacts facts = threeBands();
    facts.headerPath = "cube.hdr";
    facts.headerText = header;
    return facts;
}

StringList listOf(const Texts& entries) { return StringList(entries); }

}  // namespace

class SidecarTest : public testing::Test {
protected:
    void SetUp() override {
        setenv("KSHOST_BUSY_TIMEOUT", "50", 1);
        hosttest::write(image, "samples");
    }
    void TearDown() override { unsetenv("KSHOST_BUSY_TIMEOUT"); }

    std::shared_ptr<Store> open(bool writable = true) { return open(threeBands(), writable); }
    std::shared_ptr<Store> open(const RasterFacts& facts, bool writable = true) {
        std::string why;
        auto store = openStore(image, facts, writable, why);
        EXPECT_NE(store, nullptr) << why;
        return store;
    }
    std::string refusal(bool writable, const RasterFacts& facts = threeBands()) {
        std::string why;
        EXPECT_EQ(openStore(image, facts, writable, why), nullptr);
        EXPECT_FALSE(why.empty());
        return why;
    }
    /// A sidecar that holds one list of its own for the file and one for channel 2.
    void makeSidecar() {
        const auto store = open();
        store->replaceList(1, -1, listOf({"state=old"}));
        store->replaceList(2, 2, listOf({"ID=7"}));
        ASSERT_EQ(store->commit(), "");
    }
    Texts fileEntries(bool writable = false) {
        const auto store = open(writable);
        return store != nullptr ? store->list(1, -1).entries() : Texts{"(not opened)"};
    }

    hosttest::TemporaryFolder folder;
    std::string image = folder / "cube.img";
    std::string sidecar = folder / "cube.img.ks";
    Reports reports;
};

// ---- what is kept ----

TEST_F(SidecarTest, ReadingMakesNoFileAndDerivesTheLists) {
    const auto store = open(false);
    EXPECT_STREQ(store->list(2, 1).find("ResponseProfile_Centre"), "400.5");
    EXPECT_STREQ(store->list(1, -1).find("ENVI:description"), "{a}");
    EXPECT_TRUE(store->list(2, 9).empty());
    EXPECT_TRUE(store->list(3, 1).empty());
    EXPECT_FALSE(store->dirty());
    EXPECT_FALSE(store->hasSidecar());
    EXPECT_EQ(store->commit(), "");
    EXPECT_EQ(folder.names(), Texts{"cube.img"});
}

TEST_F(SidecarTest, EverythingComesBack) {
    const Texts odd = {"a=1",        "b",       "=empty key", "latin=\xb5\xe9", "eq=a=b=c", "A=other case",
                       "multi=x\ny", "a=twice", "e="};
    kshost::Georeference place;
    place.transform = {500000.1234567891, 0.1, 1e-300, -0.0, -2.5, 3};
    place.wkt = "LOCAL_CS[\"x\"]";
    place.noData = {{1, std::nan("")}, {2, -1.23e34}, {3, HUGE_VAL}};
    {
        const auto store = open();
        store->replaceList(1, -1, listOf(odd));
        store->replaceList(2, 3, listOf({"ID=3"}));
        store->setGeoreference(place);
        store->setChannelDescription(2, "near infrared");
        store->addHistory("first");
        store->addHistory("second");
        EXPECT_TRUE(store->dirty());
        ASSERT_EQ(store->commit(), "");
        EXPECT_FALSE(store->dirty());
        EXPECT_TRUE(store->hasSidecar());
    }
    const auto store = open(false);
    EXPECT_TRUE(store->hasSidecar());
    EXPECT_EQ(store->list(1, -1).entries(), odd);
    EXPECT_EQ(store->list(2, 3).entries(), Texts{"ID=3"});
    EXPECT_STREQ(store->list(2, 1).find("ResponseProfile_Centre"), "400.5");  // never stored: still derived
    EXPECT_EQ(store->georeference().transform, place.transform);
    EXPECT_EQ(store->georeference().wkt, place.wkt);
    EXPECT_TRUE(std::isnan(store->georeference().noData.at(1)));
    EXPECT_EQ(store->georeference().noData.at(2), -1.23e34);
    EXPECT_EQ(store->georeference().noData.at(3), HUGE_VAL);
    EXPECT_EQ(store->channelDescription(2), "near infrared");
    EXPECT_EQ(store->channelDescription(1), "");
    EXPECT_EQ(store->history(), (Texts{"first", "second"}));
}

TEST_F(SidecarTest, AListStoredEmptyStaysEmpty) {
    {
        const auto store = open();
        store->replaceList(2, 1, {});
        EXPECT_TRUE(store->list(2, 1).empty());
        ASSERT_EQ(store->commit(), "");
    }
    EXPECT_TRUE(open(false)->list(2, 1).empty());
}

TEST_F(SidecarTest, WhatIsThereAlreadyNeedsNoStoring) {
    const auto store = open();
    store->replaceList(2, 1, store->list(2, 1));
    store->setGeoreference(store->georeference());
    store->setChannelDescription(1, "");
    EXPECT_FALSE(store->dirty());
    EXPECT_EQ(store->commit(), "");
    EXPECT_EQ(folder.names(), Texts{"cube.img"});
}

TEST_F(SidecarTest, HandlesOfOneProcessSeeGatheredWritesAtOnce) {
    const auto writer = open();
    const auto reader = open(false);
    writer->replaceList(1, -1, listOf({"x=1"}));
    EXPECT_EQ(reader->list(1, -1).entries(), Texts{"x=1"});
    EXPECT_EQ(folder.names(), Texts{"cube.img"});
}

TEST_F(SidecarTest, AnotherSpellingOfTheNameIsTheSameFile) {
    const auto writer = open();
    writer->replaceList(1, -1, listOf({"x=1"}));
    std::string why;
    const auto other =
        openStore(folder / "./../" + folder.path().filename().string() + "/cube.img", threeBands(), false, why);
    ASSERT_NE(other, nullptr) << why;
    EXPECT_EQ(other->list(1, -1).entries(), Texts{"x=1"});
}

TEST_F(SidecarTest, WritesThatAreNotCommittedAreGone) {
    makeSidecar();
    {
        const auto store = open();
        store->replaceList(1, -1, listOf({"state=never"}));
    }
    EXPECT_EQ(fileEntries(), Texts{"state=old"});
}

// ---- rounded numbers ----

TEST_F(SidecarTest, ARoundedNumberThatSaysNoMoreLeavesTheLongerTextStanding) {
    const auto store = open();
    StringList list = store->list(2, 1);
    list.set("RadiometricTrans_Gain_1", "0.000012");  // of 0.0000123456789
    list.set("ResponseProfile_Centre", "400.500");
    list.set("ResponseProfile_FWHM", "10.001");  // another value
    store->replaceList(2, 1, list);
    EXPECT_STREQ(store->list(2, 1).find("RadiometricTrans_Gain_1"), "0.0000123456789");
    EXPECT_STREQ(store->list(2, 1).find("ResponseProfile_Centre"), "400.5");
    EXPECT_STREQ(store->list(2, 1).find("ResponseProfile_FWHM"), "10.001");
    list.set("RadiometricTrans_Gain_1", "0.000013");
    list.set("ResponseProfile_Centre", "400.5000");  // not the library's three decimals
    list.set("Other", "0.000012");
    store->replaceList(2, 1, list);
    EXPECT_STREQ(store->list(2, 1).find("RadiometricTrans_Gain_1"), "0.000013");
    EXPECT_STREQ(store->list(2, 1).find("ResponseProfile_Centre"), "400.5000");
}

TEST_F(SidecarTest, ANumberThatWentThroughSinglePrecisionCountsAsTheSame) {
    const auto store = open();
    StringList list = store->list(2, 1);
    list.set("RadiometricTrans_Offset_1", "123456.789012");
    store->replaceList(2, 1, list);
    char rounded[64];
    std::snprintf(rounded, sizeof rounded, "%.6f", static_cast<double>(123456.789012F));
    ASSERT_STRNE(rounded, "123456.789012");
    list.set("RadiometricTrans_Offset_1", rounded);
    store->replaceList(2, 1, list);
    EXPECT_STREQ(store->list(2, 1).find("RadiometricTrans_Offset_1"), "123456.789012");
}

// ---- other images, other headers, other programs ----

TEST_F(SidecarTest, ASidecarOfAnotherImageIsNotUsed) {
    makeSidecar();
    RasterFacts other = threeBands();
    other.height = 6;
    reports.all.clear();
    const auto store = open(other, false);
    EXPECT_FALSE(store->hasSidecar());
    EXPECT_NE(store->list(1, -1).entries(), Texts{"state=old"});
    EXPECT_TRUE(reports.mention(sidecar + " belongs to an image of another size"));
    EXPECT_NE(refusal(true, other).find("belongs to another image"), std::string::npos);
    EXPECT_EQ(fileEntries(), Texts{"state=old"});
}

TEST_F(SidecarTest, AChangedHeaderIsSaidAndTheSidecarHolds) {
    makeSidecar();
    reports.all.clear();
    open(false);
    EXPECT_TRUE(reports.all.empty());
    RasterFacts changed = threeBands();
    changed.headerText += "; edited\n";
    const auto store = open(changed, false);
    EXPECT_EQ(store->list(1, -1).entries(), Texts{"state=old"});
    ASSERT_EQ(reports.all.size(), 1U);
    EXPECT_EQ(reports.all[0].severity, 0);
    EXPECT_TRUE(reports.mention("header"));
    EXPECT_FALSE(store->headerStale());
}

TEST_F(SidecarTest, WhatWasGuessedIsReportedOnce) {
    RasterFacts facts = threeBands();
    facts.headerText = "ENVI\nwavelength = {400, 410, 420}\n";
    facts.remarks = {"opened in spite of it"};
    reports.all.clear();
    const auto store = open(facts, false);
    open(facts, false);
    EXPECT_EQ(reports.all.size(), 2U);
    EXPECT_EQ(store->remarks().size(), 2U);
    EXPECT_EQ(KSHostErrorCount(), 0);
}

TEST_F(SidecarTest, LevelsThatAnotherProcessStoredSurviveOurCommit) {
    makeSidecar();
    const auto store = open();
    store->replaceList(2, 1, listOf({"ours=1"}));
    EXPECT_TRUE(succeeded(inChild([&] {
        std::string why;
        // Its own view: the parent's gathered write exists in this copy of the process only.
        kshost::SidecarChanges changes;
        auto content = kshost::readSidecar(sidecar, why);
        if (!content) return 1;
        changes.image = content->image;
        changes.lists[{1, -1}] = listOf({"theirs=1"});
        changes.history = {"their history"};
        return kshost::commitSidecar(sidecar, changes, *content).empty() ? 0 : 2;
    })));
    ASSERT_EQ(store->commit(), "");
    EXPECT_EQ(store->list(1, -1).entries(), Texts{"theirs=1"});
    EXPECT_EQ(store->list(2, 1).entries(), Texts{"ours=1"});
    EXPECT_EQ(store->list(2, 2).entries(), Texts{"ID=7"});
    EXPECT_EQ(store->history(), Texts{"their history"});
}

TEST_F(SidecarTest, ASidecarThatVanishedIsMadeAnewFromAllThatIsKnown) {
    makeSidecar();
    {
        const auto store = open();
        store->replaceList(1, -1, listOf({"state=new"}));
        ASSERT_EQ(unlink(sidecar.c_str()), 0);
        ASSERT_EQ(store->commit(), "");
    }
    const auto store = open(false);
    EXPECT_EQ(store->list(1, -1).entries(), Texts{"state=new"});
    EXPECT_EQ(store->list(2, 2).entries(), Texts{"ID=7"});
}

// ---- images that the host created ----

TEST_F(SidecarTest, ACreatedImageDerivesNothingFromItsOwnHeader) {
    {
        const auto store = open(createdImage("ENVI\n"));
        store->markCreated();
        EXPECT_TRUE(store->created());
        store->replaceList(2, 1, listOf({"ResponseProfile_Type=gaussian", "ResponseProfile_Centre=500"}));
        ASSERT_EQ(store->commit(), "");
        store->headerRewritten(kHeader);
    }
    const auto store = open(createdImage(kHeader), false);
    EXPECT_TRUE(store->created());
    EXPECT_TRUE(store->list(2, 2).empty());
    EXPECT_EQ(store->list(2, 1).entries().size(), 2U);
}

TEST_F(SidecarTest, AHeaderThatACrashLeftBehindIsStaleAndNoForeignChange) {
    std::string composed;
    {
        const auto store = open(createdImage("ENVI\nfirst"));
        store->markCreated();
        store->replaceList(2, 1, listOf({"ResponseProfile_Type=gaussian", "ResponseProfile_Centre=500"}));
        store->setChannelDescription(3, "infrared");
        ASSERT_EQ(store->commit(), "");
        EXPECT_TRUE(store->headerStale());
        composed = composeEnviHeader(createdImage("ENVI\nfirst"), store->list(1, -1), store->describedChannels(),
                                     store->georeference());
        EXPECT_NE(composed.find("infrared"), std::string::npos);
    }
    reports.all.clear();
    EXPECT_TRUE(open(createdImage("ENVI\nfirst"), false)->headerStale());  // killed before the rename
    EXPECT_FALSE(open(createdImage(composed), false)->headerStale());      // after it
    EXPECT_TRUE(reports.all.empty());
    EXPECT_FALSE(open(createdImage("ENVI\nsomebody's own"), false)->headerStale());
    EXPECT_TRUE(reports.mention("header"));
}

TEST_F(SidecarTest, AfterTheRewriteTheHeaderIsKnown) {
    const auto store = open(createdImage("ENVI\nfirst"));
    store->markCreated();
    ASSERT_EQ(store->commit(), "");
    store->headerRewritten("ENVI\nnot quite what was foreseen");
    EXPECT_FALSE(store->headerStale());
    reports.all.clear();
    std::string why;
    const auto content = kshost::readSidecar(sidecar, why);
    ASSERT_TRUE(content) << why;
    EXPECT_EQ(content->image.headerHash, content->image.formerHeaderHash);
    EXPECT_FALSE(open(createdImage("ENVI\nnot quite what was foreseen"), false)->headerStale());
    EXPECT_TRUE(reports.all.empty());
}

// ---- sidecars that cannot be used ----

TEST_F(SidecarTest, AnEmptyFileCountsAsNone) {
    hosttest::write(sidecar, "");
    EXPECT_FALSE(open(false)->hasSidecar());
    makeSidecar();
    EXPECT_EQ(fileEntries(), Texts{"state=old"});
}

TEST_F(SidecarTest, ADatabaseWithoutAnythingInItCountsAsNone) {
    {
        OtherProgram other(sidecar);
        other.run("CREATE TABLE t(a); DROP TABLE t");
    }
    EXPECT_FALSE(open(false)->hasSidecar());
    makeSidecar();
    EXPECT_EQ(fileEntries(), Texts{"state=old"});
}

TEST_F(SidecarTest, WhatIsNoSidecarIsRefusedAndLeftAlone) {
    const std::string text = "this is somebody's text file\n" + std::string(5000, 'x');
    hosttest::write(sidecar, text);
    for (const bool writable : {false, true}) {
        const std::string why = refusal(writable);
        EXPECT_NE(why.find(sidecar), std::string::npos);
        EXPECT_NE(why.find("move it away"), std::string::npos);
    }
    EXPECT_EQ(hosttest::contentsOf(sidecar), text);
    unlink(sidecar.c_str());
    {
        OtherProgram other(sidecar);
        other.run("CREATE TABLE addresses(name)");
    }
    const std::string database = hosttest::contentsOf(sidecar);
    EXPECT_NE(refusal(true).find("another program"), std::string::npos);
    EXPECT_EQ(hosttest::contentsOf(sidecar), database);
}

TEST_F(SidecarTest, ANewerFormatIsRefusedAndLeftAlone) {
    makeSidecar();
    {
        OtherProgram other(sidecar);
        other.run("PRAGMA user_version=99");
    }
    const std::string before = hosttest::contentsOf(sidecar);
    for (const bool writable : {false, true}) EXPECT_NE(refusal(writable).find("newer version"), std::string::npos);
    EXPECT_EQ(hosttest::contentsOf(sidecar), before);
}

TEST_F(SidecarTest, ADirectoryInItsPlaceIsRefused) {
    ASSERT_EQ(mkdir(sidecar.c_str(), 0755), 0);
    EXPECT_NE(refusal(false).find("not a file"), std::string::npos);
}

TEST_F(SidecarTest, ATruncatedOneIsRefused) {
    makeSidecar();
    const std::string whole = hosttest::contentsOf(sidecar);
    for (const size_t size : {size_t{1}, size_t{50}, size_t{100}, size_t{1000}, whole.size() / 2}) {
        hosttest::write(sidecar, whole.substr(0, size));
        EXPECT_NE(refusal(false).find("damaged"), std::string::npos) << size;
        EXPECT_EQ(hosttest::contentsOf(sidecar), whole.substr(0, size));
    }
}

TEST_F(SidecarTest, DamageNeverCrashes) {
    makeSidecar();
    const std::string whole = hosttest::contentsOf(sidecar);
    std::mt19937 random(7);
    int refused = 0;
    for (int round = 0; round < 400; ++round) {
        std::string damaged = whole;
        for (int i = 0; i < 20; ++i) damaged[random() % damaged.size()] = static_cast<char>(random());
        hosttest::write(sidecar, damaged);
        std::string why;
        const auto store = openStore(image, threeBands(), false, why);
        if (store == nullptr) ++refused;
        EXPECT_EQ(store == nullptr, !why.empty());
    }
    EXPECT_GT(refused, 0);
}

TEST_F(SidecarTest, DamageThatShowsWhenWritingFailsTheCommitOnly) {
    makeSidecar();
    const auto store = open();
    store->replaceList(1, -1, listOf({"state=new"}));
    hosttest::write(sidecar, std::string(8192, 'z'));
    EXPECT_NE(store->commit().find("damaged"), std::string::npos);
    EXPECT_TRUE(store->dirty());
    EXPECT_EQ(store->list(1, -1).entries(), Texts{"state=new"});
}

// ---- locks ----

TEST_F(SidecarTest, AnotherWriterIsReportedAndTheWritesStayGathered) {
    makeSidecar();
    const auto store = open();
    store->replaceList(1, -1, listOf({"state=new"}));
    {
        OtherProgram other(sidecar);
        other.run("BEGIN IMMEDIATE");
        EXPECT_NE(store->commit().find("locked"), std::string::npos);
        EXPECT_TRUE(store->dirty());
        EXPECT_TRUE(succeeded(inChild([&] {  // reading goes on
            std::string why;
            return kshost::readSidecar(sidecar, why) ? 0 : 1;
        })));
        other.run("ROLLBACK; BEGIN EXCLUSIVE");
        std::string why;
        EXPECT_FALSE(kshost::readSidecar(sidecar, why));
        EXPECT_NE(why.find("locked"), std::string::npos);
    }
    EXPECT_EQ(store->commit(), "");
    EXPECT_FALSE(store->dirty());
}

TEST_F(SidecarTest, NoLockIsHeldBetweenCalls) {
    makeSidecar();
    const auto store = open();
    store->list(1, -1);
    OtherProgram other(sidecar);
    other.run("BEGIN EXCLUSIVE; ROLLBACK");
}

// ---- permissions and space ----

TEST_F(SidecarTest, AReadOnlyFolderIsReadAndNotWritten) {
    makeSidecar();
    ASSERT_EQ(chmod(folder.path().c_str(), 0555), 0);
    EXPECT_TRUE(succeeded(asNobody([&] {
        std::string why;
        const auto store = openStore(image, threeBands(), false, why);
        if (store == nullptr || store->list(1, -1).entries() != Texts{"state=old"}) return 1;
        store->replaceList(1, -1, listOf({"state=new"}));
        const std::string failure = store->commit();
        if (failure.find("permissions") == std::string::npos || !store->dirty()) return 2;
        return store->list(1, -1).entries() == Texts{"state=new"} ? 0 : 3;
    })));
    ASSERT_EQ(unlink(sidecar.c_str()), 0);
    EXPECT_TRUE(succeeded(asNobody([&] {  // nor is a first sidecar made
        std::string why;
        const auto store = openStore(image, threeBands(), true, why);
        store->replaceList(1, -1, listOf({"state=new"}));
        return store->commit().find("permissions") != std::string::npos ? 0 : 1;
    })));
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    EXPECT_EQ(folder.names(), Texts{"cube.img"});
}

TEST_F(SidecarTest, ASidecarThatMayNotBeReadIsRefused) {
    makeSidecar();
    ASSERT_EQ(chmod(sidecar.c_str(), 0), 0);
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    EXPECT_TRUE(succeeded(asNobody([&] {
        std::string why;
        if (openStore(image, threeBands(), false, why) != nullptr) return 1;
        return why.find("permissions") != std::string::npos ? 0 : 2;
    })));
}

namespace {

StringList longList(const std::string& state) {
    Texts entries = {"state=" + state};
    for (int i = 0; i < 60; ++i) entries.push_back("key" + std::to_string(i) + "=" + std::string(200, state[0]));
    return listOf(entries);
}

}  // namespace

TEST_F(SidecarTest, AFullDiskKeepsTheSidecarAndTheGatheredWrites) {
    makeSidecar();
    const std::string before = hosttest::contentsOf(sidecar);
    const auto store = open();
    store->replaceList(1, -1, longList("new"));
    for (const rlim_t limit : {rlim_t{0}, rlim_t{600}, rlim_t{before.size()}, rlim_t{before.size() + 4096}}) {
        std::string failure;
        {
            const FullDisk full(limit);
            failure = store->commit();
        }
        EXPECT_NE(failure.find("no room"), std::string::npos) << limit << ": " << failure;
        EXPECT_TRUE(store->dirty());
        EXPECT_EQ(hosttest::contentsOf(sidecar), before) << limit;
    }
    ASSERT_EQ(store->commit(), "");
    EXPECT_EQ(fileEntries(), longList("new").entries());
}

TEST_F(SidecarTest, AFullDiskLeavesNoFirstSidecarBehind) {
    const auto store = open();
    store->replaceList(1, -1, longList("new"));
    for (const rlim_t limit : {rlim_t{0}, rlim_t{600}, rlim_t{20000}}) {
        std::string failure;
        {
            const FullDisk full(limit);
            failure = store->commit();
        }
        EXPECT_NE(failure.find("no room"), std::string::npos) << limit << ": " << failure;
        EXPECT_EQ(folder.names(), Texts{"cube.img"}) << limit;
    }
    ASSERT_EQ(store->commit(), "");
}

// ---- failures and crashes at every step ----

namespace {

enum class State { kOld, kNew, kOther };

void gather(Store& store, const std::string& state) {
    store.replaceList(1, -1, longList(state));
    for (int channel = 1; channel <= 3; ++channel) store.replaceList(2, channel, longList(state));
    store.setChannelDescription(1, state);
}

}  // namespace

class EveryStep : public SidecarTest, public testing::WithParamInterface<Fault> {
protected:
    static constexpr int kMostSteps = 2000;

    /// Puts an image without, or with an old, sidecar into place.
    void prepare(bool sidecarBefore) {
        unlink(sidecar.c_str());
        unlink((sidecar + "-journal").c_str());
        if (!sidecarBefore) return;
        const auto store = open();
        gather(*store, "old");
        ASSERT_EQ(store->commit(), "");
    }
    State stateOf(Store& store, bool sidecarBefore) {
        const auto holds = [&](const std::string& state) {
            bool all = store.list(1, -1) == longList(state) && store.channelDescription(1) == state;
            for (int channel = 1; channel <= 3; ++channel) all = all && store.list(2, channel) == longList(state);
            return all;
        };
        if (holds("new")) return State::kNew;
        if (sidecarBefore) return holds("old") ? State::kOld : State::kOther;
        return store.hasSidecar() ? State::kOther : State::kOld;
    }
    State stateNow(bool sidecarBefore) {
        const auto store = open(false);
        return store != nullptr ? stateOf(*store, sidecarBefore) : State::kOther;
    }
    void commitNew() {
        const auto store = open();
        ASSERT_NE(store, nullptr);
        gather(*store, "new");
        EXPECT_EQ(store->commit(), "");
    }
};

class KilledAtEveryStep : public EveryStep {
protected:
    void run(bool sidecarBefore) {
        int kills = 0;
        int newStates = 0;
        for (int step = 1; step < kMostSteps; ++step) {
            prepare(sidecarBefore);
            const int status = inChild([&] {
                std::string why;
                const auto store = openStore(image, threeBands(), true, why);
                gather(*store, "new");
                const FaultVfs faults(GetParam(), step);
                return store->commit().empty() ? 0 : 1;
            });
            if (WIFEXITED(status)) {
                EXPECT_EQ(WEXITSTATUS(status), 0);
                EXPECT_EQ(stateNow(sidecarBefore), State::kNew);
                break;
            }
            ASSERT_EQ(WTERMSIG(status), SIGKILL);
            ++kills;
            const State state = stateNow(sidecarBefore);
            ASSERT_NE(state, State::kOther) << "step " << step;
            newStates += state == State::kNew ? 1 : 0;
            commitNew();  // and the next writer is not in the way of anything
            ASSERT_EQ(stateNow(sidecarBefore), State::kNew) << "step " << step;
        }
        EXPECT_GT(kills, 10);
        EXPECT_LT(kills, kMostSteps - 1);
        if (GetParam() == Fault::kKillAfter) {
            EXPECT_GE(newStates, 1);  // the last step is the one that counts
        }
    }
};

TEST_P(KilledAtEveryStep, TheFirstCommitIsAllOrNothing) { run(false); }
TEST_P(KilledAtEveryStep, ALaterCommitIsAllOrNothing) { run(true); }
INSTANTIATE_TEST_SUITE_P(Kills, KilledAtEveryStep,
                         testing::Values(Fault::kKillBefore, Fault::kKillAfter, Fault::kKillTorn));

class FailedAtEveryStep : public EveryStep {
protected:
    void run(bool sidecarBefore) {
        int failures = 0;
        for (int step = 1; step < kMostSteps; ++step) {
            prepare(sidecarBefore);
            const auto store = open();
            gather(*store, "new");
            std::string failure;
            bool reached = false;
            {
                const FaultVfs faults(GetParam(), step);
                failure = store->commit();
                reached = faults.reached();
            }
            if (!reached) {
                EXPECT_EQ(failure, "");
                break;
            }
            if (!failure.empty()) {
                ++failures;
                EXPECT_TRUE(store->dirty());
                EXPECT_EQ(stateOf(*store, sidecarBefore), State::kNew);  // what was gathered is still there
                std::string why;
                EXPECT_TRUE(kshost::readSidecar(sidecar, why) || why.empty()) << why;
                EXPECT_EQ(store->commit(), "") << "step " << step;
            }
            EXPECT_EQ(stateNow(sidecarBefore), State::kNew) << "step " << step;
        }
        EXPECT_GT(failures, 10);
    }
};

TEST_P(FailedAtEveryStep, TheFirstCommitCanBeRepeated) { run(false); }
TEST_P(FailedAtEveryStep, ALaterCommitCanBeRepeated) { run(true); }
INSTANTIATE_TEST_SUITE_P(Failures, FailedAtEveryStep, testing::Values(Fault::kFailOnce, Fault::kFailFromHere));

TEST_F(SidecarTest, AnInterruptedWriteThatCannotBeUndoneIsReported) {
    makeSidecar();
    const int status = inChild([&] {
        std::string why;
        const auto store = openStore(image, threeBands(), true, why);
        store->replaceList(1, -1, longList("new"));
        const FaultVfs faults(Fault::kKillAfter, 2, true);  // opened, and a first page is in the database itself
        store->commit();
        return 0;
    });
    ASSERT_TRUE(WIFSIGNALED(status));
    ASSERT_EQ(chmod(folder.path().c_str(), 0555), 0);
    EXPECT_TRUE(succeeded(asNobody([&] {
        std::string why;
        if (openStore(image, threeBands(), false, why) != nullptr) return 1;
        return why.find("interrupted write") != std::string::npos ? 0 : 2;
    })));
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    EXPECT_EQ(fileEntries(), Texts{"state=old"});
    EXPECT_EQ(folder.names().size(), 2U);
}

TEST_F(SidecarTest, ALargeListIsStoredAndReadQuickly) {
    RasterFacts facts = threeBands();
    facts.channels = 2151;
    facts.headerText = "ENVI\n";
    {
        const auto store = open(facts);
        for (int channel = 1; channel <= 2151; ++channel)
            store->replaceList(2, channel, listOf({"ID=" + std::to_string(channel), "Quality=mask"}));
        ASSERT_EQ(store->commit(), "");
    }
    const auto store = open(facts, false);
    EXPECT_EQ(store->list(2, 2151).entries(), (Texts{"ID=2151", "Quality=mask"}));
}
