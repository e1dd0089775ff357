// Handles and transfers as callers of the boundary see them.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <hostfile.hpp>

#include <array>
#include <cmath>
#include <limits>
#include <numeric>

#include "hostkit.hpp"

using hosttest::Reports;
using hosttest::TemporaryFolder;

namespace {

std::string enviHeader(int samples, int lines, int bands, int type, const std::string& more = "") {
    return "ENVI\nsamples = " + std::to_string(samples) + "\nlines = " + std::to_string(lines) +
           "\nbands = " + std::to_string(bands) +
           "\nheader offset = 0\nfile type = ENVI Standard\ndata type = " + std::to_string(type) +
           "\ninterleave = bip\nbyte order = 0\n" + more;
}

// Every test starts and ends without failures that nobody looked at.
class HostFiles : public testing::Test {
protected:
    HostFiles() {
        KSHostResetErrorCount();
        ImageRegister();
    }
    std::string image(const std::string& name = "cube.img", const std::string& more = "") {
        const std::string path = folder / name;
        hosttest::write(path + ".hdr", enviHeader(4, 3, 2, 1, more));
        std::string bytes(24, '\0');
        std::iota(bytes.begin(), bytes.end(), '\0');
        hosttest::write(path, bytes);
        return path;
    }
    HostFile* newImage(const std::string& name, int type = 2, int channels = 2) {
        std::array<int, 4> counts{};
        counts[static_cast<std::size_t>(type - 1)] = channels;
        return IDBCreate((folder / name).c_str(), 4, 3, counts.data(), "PIXEL");
    }
    TemporaryFolder folder;
    Reports reports;
    const std::array<int, 2> both = {1, 2};
};

TEST_F(HostFiles, DKCheckAnswersWhetherAFileExists) {
    const std::string path = image();
    EXPECT_EQ(1, DKCheck(path.c_str()));
    EXPECT_EQ(0, DKCheck((folder / "absent").c_str()));
    EXPECT_EQ(0, DKCheck(nullptr));
    EXPECT_EQ(1, DKCheck(("NETCDF:\"" + path + "\":x").c_str()));
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(HostFiles, AnOpenImageSaysWhatItIs) {
    const std::string path = image();
    HostFile* fp = GDBOpen(path.c_str(), "r");
    ASSERT_NE(nullptr, fp);
    EXPECT_EQ(path, fp2filename(fp));
    EXPECT_EQ(3, fp2type(fp));
    EXPECT_EQ(1, fpValidate(fp));
    EXPECT_EQ(2, GDBChanNum(fp));
    EXPECT_EQ(4, GDBChanXSize(fp));
    EXPECT_EQ(3, GDBChanYSize(fp));
    EXPECT_EQ(1, GDBChanType(fp, 2));
    EXPECT_TRUE(reports.all.empty());
    EXPECT_EQ(0, GDBChanType(fp, 0));
    EXPECT_EQ(0, GDBChanType(fp, 3));
    EXPECT_EQ(2U, reports.all.size());
    GDBClose(fp);
    EXPECT_EQ(2U, folder.names().size()) << "opening for reading made a file";
}

TEST_F(HostFiles, AFailedOpenIsReportedOnceAndCounted) {
    EXPECT_EQ(nullptr, GDBOpen((folder / "absent").c_str(), "r"));
    ASSERT_EQ(1U, reports.all.size());
    EXPECT_EQ(62, reports.all[0].code);
    EXPECT_EQ(1, reports.all[0].severity);
    EXPECT_TRUE(reports.mention("absent: No such file or directory"));
    EXPECT_EQ(nullptr, GDBOpen(image().c_str(), "w"));
    EXPECT_EQ(nullptr, GDBOpen(nullptr, "r"));
    EXPECT_EQ(nullptr, GDBOpen("x", nullptr));
    EXPECT_EQ(nullptr, GDBOpen(folder.path().c_str(), "r"));
    EXPECT_EQ(5U, reports.all.size());
    EXPECT_EQ(5, KSHostErrorCount());
}

TEST_F(HostFiles, AFailedOpenJumpsToAnArmedTrap) {
    const std::string path = folder / "absent";
    volatile int jumps = 0;
    ASSERT_NE(nullptr, IMP_Protect());
    if (setjmp(*IMPProtectBuffer()) == 0) {
        GDBOpen(path.c_str(), "r");
        FAIL() << "came back";
    } else {
        jumps = 1;
    }
    EXPECT_EQ(1, jumps);
    EXPECT_EQ(nullptr, GDBOpen(path.c_str(), "r")) << "the trap was still armed";
}

TEST_F(HostFiles, ReferencesKeepAHandleAlive) {
    HostFile* fp = GDBOpen(image().c_str(), "r");
    EXPECT_EQ(fp, fpReference(fp));
    GDBClose(fp);
    EXPECT_EQ(1, fpValidate(fp));
    EXPECT_EQ(2, GDBChanNum(fp));
    GDBClose(fp);
    EXPECT_EQ(0, fpValidate(fp));
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(HostFiles, DeadAndNullHandlesAreRefusedWithoutBeingLookedInto) {
    HostFile* fp = GDBOpen(image().c_str(), "r");
    GDBClose(fp);
    for (HostFile* bad : {fp, static_cast<HostFile*>(nullptr)}) {
        EXPECT_EQ(0, fpValidate(bad));
        EXPECT_EQ(0, fp2type(bad));
        EXPECT_EQ(nullptr, fpReference(bad));
    }
    GDBClose(nullptr);
    EXPECT_TRUE(reports.all.empty());
    GDBClose(fp);
    EXPECT_EQ(1U, reports.all.size());
    for (HostFile* bad : {fp, static_cast<HostFile*>(nullptr)}) {
        std::array<float, 2> buffer{};
        KSHostLayout layout{};
        EXPECT_EQ(nullptr, fp2filename(bad));
        EXPECT_EQ(0, GDBChanNum(bad));
        EXPECT_EQ(0, GDBRealChanIOLow(bad, 0, 0, 0, 1, 1, buffer.data(), 1, 1, 2, both.data()));
        EXPECT_TRUE(std::isnan(buffer[0]) && std::isnan(buffer[1]));
        EXPECT_EQ(0, KSHostGetLayout(bad, &layout));
        EXPECT_EQ(nullptr, KSHostGetRemarks(bad));
        EXPECT_STREQ("", KSHostGetCoordinateSystem(bad));
        EXPECT_EQ(0, KSHostFlush(bad));
    }
    EXPECT_EQ(15U, reports.all.size());
}

// ---- transfers ----

TEST_F(HostFiles, ATransferPicksChannelsAndReduces) {
    HostFile* fp = GDBOpen(image().c_str(), "r");
    const std::array<int, 3> channels = {2, 1, 2};
    std::array<float, 2 * 2 * 3> buffer{};
    ASSERT_EQ(1, GDBRealChanIOLow(fp, 0, 1, 0, 3, 3, buffer.data(), 2, 2, 3, channels.data()));
    // Columns 1 and 1 + 3 / 2 = 2, lines 0 and 3 / 2 = 1; sample (x, y, channel) is 8 y + 2 x + channel - 1.
    EXPECT_EQ((std::array<float, 12>{3, 2, 3, 5, 4, 5, 11, 10, 11, 13, 12, 13}), buffer);
    GDBClose(fp);
}

TEST_F(HostFiles, BadTransfersAreReportedAndGiveNaN) {
    HostFile* fp = GDBOpen(image().c_str(), "r");
    constexpr int kMost = std::numeric_limits<int>::max();
    struct Bad {
        int mode, x, y, width, height, bufWidth, bufHeight, count;
        std::array<int, 2> channels;
        const char* reason;
    };
    const Bad all[] = {
        {2, 0, 0, 1, 1, 1, 1, 2, {1, 2}, "mode 2"},           {0, -1, 0, 1, 1, 1, 1, 2, {1, 2}, "does not lie"},
        {0, 0, 3, 1, 1, 1, 1, 2, {1, 2}, "does not lie"},     {0, 0, 0, 5, 1, 1, 1, 2, {1, 2}, "does not lie"},
        {0, 1, 0, kMost, 1, 1, 1, 2, {1, 2}, "does not lie"}, {0, 0, 0, 1, 0, 1, 1, 2, {1, 2}, "does not lie"},
        {0, 0, 0, 1, 1, 0, 1, 2, {1, 2}, "no samples"},       {0, 0, 0, 1, 1, 1, -1, 2, {1, 2}, "no samples"},
        {0, 0, 0, 1, 1, 1, 1, 0, {1, 2}, "no channels"},      {0, 0, 0, 1, 1, 1, 1, 2, {1, 3}, "no channel 3"},
        {0, 0, 0, 1, 1, 1, 1, 2, {0, 1}, "no channel 0"},     {1, 0, 0, 2, 1, 1, 1, 2, {1, 2}, "does not resample"},
        {1, 0, 0, 1, 1, 1, 1, 2, {1, 2}, "for reading only"}};
    for (const Bad& bad : all) {
        reports.all.clear();
        std::array<float, 2> buffer = {5, 5};
        EXPECT_EQ(0, GDBRealChanIOLow(fp, bad.mode, bad.x, bad.y, bad.width, bad.height, buffer.data(), bad.bufWidth,
                                      bad.bufHeight, bad.count, bad.channels.data()));
        EXPECT_EQ(1U, reports.all.size());
        EXPECT_TRUE(reports.mention(bad.reason)) << bad.reason;
        const bool filled = bad.mode == 0 && bad.bufWidth > 0 && bad.bufHeight > 0 && bad.count > 0;
        EXPECT_EQ(filled, std::isnan(buffer[0]));
        EXPECT_EQ(filled, std::isnan(buffer[1]));
    }
    EXPECT_EQ(0, GDBRealChanIOLow(fp, 0, 0, 0, 1, 1, nullptr, 1, 1, 2, both.data()));
    std::array<float, 2> buffer{};
    EXPECT_EQ(0, GDBRealChanIOLow(fp, 0, 0, 0, 1, 1, buffer.data(), 1, 1, 2, nullptr));
    EXPECT_TRUE(std::isnan(buffer[0]));
    EXPECT_EQ(static_cast<int>(std::size(all)) + 2, KSHostErrorCount());
    GDBClose(fp);
}

TEST_F(HostFiles, AfterAFailedTransferNothingIsWrittenAnyMore) {
    const std::string path = image();
    ASSERT_EQ(0, truncate(path.c_str(), 20));
    HostFile* fp = GDBOpen(path.c_str(), "r+");
    ASSERT_NE(nullptr, fp);
    EXPECT_TRUE(reports.mention("20 bytes where it should have 24")) << "a short file is mentioned when it is opened";
    EXPECT_EQ(0, KSHostErrorCount());
    std::array<float, 24> buffer{};
    EXPECT_EQ(0, GDBRealChanIOLow(fp, 0, 0, 0, 4, 3, buffer.data(), 4, 3, 2, both.data()));
    for (const float sample : buffer) EXPECT_TRUE(std::isnan(sample));
    ASSERT_EQ(0, truncate(path.c_str(), 24));
    reports.all.clear();
    std::array<float, 2> values = {1, 2};
    EXPECT_EQ(0, GDBRealChanIOLow(fp, 1, 0, 0, 1, 1, values.data(), 1, 1, 2, both.data()));
    EXPECT_TRUE(reports.mention("an earlier transfer failed"));
    EXPECT_EQ(1, GDBRealChanIOLow(fp, 0, 0, 0, 1, 1, values.data(), 1, 1, 2, both.data())) << "reading goes on";
    GDBClose(fp);
    fp = GDBOpen(path.c_str(), "r+");
    EXPECT_EQ(1, GDBRealChanIOLow(fp, 1, 0, 0, 1, 1, values.data(), 1, 1, 2, both.data()))
        << "another handle is not concerned";
    GDBClose(fp);
}

TEST_F(HostFiles, AFailedTransferJumpsToAnArmedTrapWithTheBufferFilled) {
    HostFile* fp = GDBOpen(image().c_str(), "r");
    static std::array<float, 2> buffer;
    buffer = {1, 1};
    ASSERT_NE(nullptr, IMP_Protect());
    if (setjmp(*IMPProtectBuffer()) == 0) {
        GDBRealChanIOLow(fp, 0, 9, 9, 1, 1, buffer.data(), 1, 1, 2, both.data());
        FAIL() << "came back";
    }
    EXPECT_TRUE(std::isnan(buffer[1]));
    GDBClose(fp);
}

TEST_F(HostFiles, AMissingSampleIsWrittenAsTheNoDataValue) {
    HostFile* fp = newImage("new.img");
    ASSERT_NE(nullptr, fp);
    ASSERT_EQ(1, KSHostSetNoData(fp, 2, -32768.0));
    const float nan = std::nanf("");
    std::array<float, 4> values = {nan, nan, 40000.0F, -2.5F};
    ASSERT_EQ(1, GDBRealChanIOLow(fp, 1, 0, 0, 2, 1, values.data(), 2, 1, 2, both.data()));
    ASSERT_EQ(1, GDBRealChanIOLow(fp, 0, 0, 0, 2, 1, values.data(), 2, 1, 2, both.data()));
    EXPECT_EQ((std::array<float, 4>{0, -32768, 32767, -2}), values);
    GDBClose(fp);
}

// ---- creating ----

TEST_F(HostFiles, ANewImageHasTheTypeThatItsCountsName) {
    for (int type = 1; type <= 4; ++type)
        for (const char* extension : {".img", ".tif"}) {
            HostFile* fp = newImage("t" + std::to_string(type) + extension, type, 3);
            ASSERT_NE(nullptr, fp);
            EXPECT_EQ(3, GDBChanNum(fp));
            EXPECT_EQ(type, GDBChanType(fp, 3));
            for (const std::string& name : folder.names())
                EXPECT_EQ(std::string::npos, name.find("t" + std::to_string(type) + extension + ".ks"))
                    << "nothing was stored yet";
            GDBClose(fp);
        }
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(HostFiles, CreatingRefusesWhatItCannotMakeAndLeavesNothing) {
    const auto refused = [&](const char* name, std::array<int, 4> counts, const char* interleave, int width = 4) {
        reports.all.clear();
        const std::string path = name != nullptr ? folder / name : "";
        EXPECT_EQ(nullptr, IDBCreate(name != nullptr ? path.c_str() : nullptr, width, 3, counts.data(), interleave));
        EXPECT_EQ(1U, reports.all.size());
    };
    refused("a.img", {0, 0, 0, 0}, "PIXEL");
    refused("a.img", {1, 0, 2, 0}, "PIXEL");
    refused("a.img", {-1, 0, 0, 0}, "PIXEL");
    refused("a.img", {0, 0, 1, 0}, "LINE");
    refused("a.img", {0, 0, 1, 0}, nullptr);
    refused("a.img", {0, 0, 1, 0}, "PIXEL", 0);
    refused("a.hdr", {0, 0, 1, 0}, "PIXEL");
    refused("no/a.img", {0, 0, 1, 0}, "PIXEL");
    refused(nullptr, {0, 0, 1, 0}, "PIXEL");
    EXPECT_EQ(nullptr, IDBCreate((folder / "a.img").c_str(), 1, 1, nullptr, "PIXEL"));
    EXPECT_TRUE(folder.names().empty());
    HostFile* fp = newImage("b.img");
    EXPECT_EQ(nullptr, newImage("b.img"));
    EXPECT_EQ(nullptr, newImage("b.dat")) << "it would have the same header";
    GDBClose(fp);
}

TEST_F(HostFiles, ANewImageGetsItsDescriptionWhenItIsStored) {
    for (const char* name : {"new.img", "new.tif"}) {
        HostFile* fp = newImage(name);
        ASSERT_NE(nullptr, fp);
        HostStringList list = SetAuxEntry(nullptr, "ResponseProfile_Type", "gaussian");
        list = SetAuxEntry(list, "ResponseProfile_Centre", "512.250");
        GDBMetaDataIO(fp, 1, 2, 1, list);
        GDBMetaDataIO(fp, 1, 2, 2, list);
        DestroyStringList(list);
        const std::array<double, 6> transform = {10, 2, 0, 20, 0, -2};
        EXPECT_EQ(1, KSHostSetGeoTransform(fp, transform.data()));
        EXPECT_EQ(1, KSHostFlush(fp));
        EXPECT_EQ(0, access((folder / (std::string(name) + ".ks")).c_str(), F_OK));
        GDBClose(fp);
        EXPECT_TRUE(reports.all.empty()) << (reports.all.empty() ? "" : reports.all[0].text);
        fp = GDBOpen((folder / name).c_str(), "r");
        ASSERT_NE(nullptr, fp);
        EXPECT_TRUE(reports.all.empty()) << "the header that the host wrote itself is no news";
        EXPECT_STREQ("512.250", GDBFetchMetaDataEntry(fp, 2, 2, "ResponseProfile_Centre"));
        std::array<double, 6> found{};
        EXPECT_EQ(1, KSHostGetGeoTransform(fp, found.data()));
        EXPECT_EQ(transform, found);
        GDBClose(fp);
    }
    EXPECT_NE(std::string::npos, hosttest::contentsOf(folder / "new.hdr").find("512.25"));
}

TEST_F(HostFiles, AHeaderThatAKilledProcessLeftBehindIsRewritten) {
    const std::string path = folder / "new.img";
    HostFile* fp = newImage("new.img");
    GDBClose(fp);
    const std::string old = hosttest::contentsOf(folder / "new.hdr");
    // The process ends between the commit and the rename.
    const pid_t child = fork();
    if (child == 0) {
        HostFile* dying = GDBOpen(path.c_str(), "r+");
        dying->store->markCreated();
        HostStringList list = SetAuxEntry(nullptr, "ResponseProfile_Centre", "612.000");
        for (const int channel : {1, 2}) GDBMetaDataIO(dying, 1, 2, channel, list);
        _exit(dying->store->commit().empty() ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    ASSERT_EQ(old, hosttest::contentsOf(folder / "new.hdr"));
    GDBClose(GDBOpen(path.c_str(), "r"));
    EXPECT_EQ(old, hosttest::contentsOf(folder / "new.hdr")) << "reading writes nothing";
    GDBClose(GDBOpen(path.c_str(), "r+"));
    EXPECT_NE(std::string::npos, hosttest::contentsOf(folder / "new.hdr").find("612"));
    EXPECT_EQ(0, KSHostErrorCount());
}

TEST_F(HostFiles, AForeignHeaderSurvivesByteForByte) {
    const std::string path = image("cube.img", "; a comment\nodd key = kept\n");
    const std::string before = hosttest::contentsOf(path + ".hdr");
    HostFile* fp = GDBOpen(path.c_str(), "r+");
    HostStringList list = SetAuxEntry(nullptr, "ResponseProfile_Centre", "512.250");
    GDBMetaDataIO(fp, 1, 2, 1, list);
    DestroyStringList(list);
    std::array<float, 2> values = {200, 300};
    EXPECT_EQ(1, GDBRealChanIOLow(fp, 1, 0, 0, 1, 1, values.data(), 1, 1, 2, both.data()));
    GDBClose(fp);
    EXPECT_TRUE(reports.all.empty());
    EXPECT_EQ(before, hosttest::contentsOf(path + ".hdr"));
    EXPECT_EQ("\xc8\xff", hosttest::contentsOf(path).substr(0, 2));
}

TEST_F(HostFiles, OneHandleSeesTheSamplesOfAnother) {
    for (const char* name : {"new.img", "new.tif"}) {
        HostFile* writer = newImage(name);
        std::array<float, 2> values = {11, 12};
        ASSERT_EQ(1, GDBRealChanIOLow(writer, 1, 3, 2, 1, 1, values.data(), 1, 1, 2, both.data()));
        HostFile* reader = GDBOpen((folder / name).c_str(), "r");
        ASSERT_NE(nullptr, reader);
        std::array<float, 2> seen{};
        EXPECT_EQ(1, GDBRealChanIOLow(reader, 0, 3, 2, 1, 1, seen.data(), 1, 1, 2, both.data()));
        EXPECT_EQ(values, seen) << name;
        GDBClose(reader);
        GDBClose(writer);
    }
}

// ---- what an application asks ----

TEST_F(HostFiles, TheLayoutIsForDisplay) {
    const std::string path = image("cube.img", "default bands = {2, 1, 2}\n");
    HostFile* fp = GDBOpen(path.c_str(), "r");
    KSHostLayout layout{};
    ASSERT_EQ(1, KSHostGetLayout(fp, &layout));
    EXPECT_STREQ("ENVI", layout.szFormat);
    EXPECT_STREQ("BIP", layout.szInterleave);
    EXPECT_STREQ("Byte", layout.szSampleType);
    EXPECT_EQ(path + ".hdr", layout.szHeader);
    EXPECT_EQ(path + ".ks", layout.szSidecar);
    EXPECT_EQ(0, layout.bSidecar);
    std::array<int, 3> channels{};
    EXPECT_EQ(3, KSHostGetDefaultChannels(fp, channels.data()));
    EXPECT_EQ((std::array<int, 3>{2, 1, 2}), channels);
    GDBClose(fp);
}

TEST_F(HostFiles, PixelsHaveLongitudesAndLatitudes) {
    // On the central meridian of zone 33, which is 15 degrees east. 5 761 038.21 m are the arc from the equator to
    // latitude 52 on the ellipsoid, times 0.9996.
    HostFile* mapped = GDBOpen(
        image("cube.img", "map info = {UTM, 1, 1, 500000, 5761038.21, 10, 10, 33, North, WGS-84}\n").c_str(), "r");
    std::array<double, 2> x = {0, 1};
    std::array<double, 2> y = {0, 0};
    ASSERT_EQ(1, KSHostPixelsToGeographic(mapped, 2, x.data(), y.data()));
    EXPECT_NEAR(x[0], 15, 1e-9);
    EXPECT_NEAR(y[0], 52, 1e-6);
    // Ten metres on the parallel: its radius is a cos(52) / sqrt(1 - e2 sin(52)^2) = 3 934 960 m.
    EXPECT_NEAR((x[1] - x[0]) * 3.14159265358979 / 180 * 3934960.47 * 0.9996, 10, 1e-4);
    EXPECT_TRUE(reports.all.empty());
    EXPECT_EQ(0, KSHostPixelsToGeographic(mapped, 0, x.data(), y.data()));
    EXPECT_EQ(0, KSHostPixelsToGeographic(mapped, 2, nullptr, y.data()));
    GDBClose(mapped);
    HostFile* unplaced = newImage("new.img");
    EXPECT_EQ(0, KSHostPixelsToGeographic(unplaced, 2, x.data(), y.data()));
    EXPECT_TRUE(reports.all.empty());
    EXPECT_EQ(0, KSHostPixelsToGeographic(nullptr, 2, x.data(), y.data()));
    EXPECT_FALSE(reports.all.empty());
    GDBClose(unplaced);
}

TEST_F(HostFiles, APlaceIsCopiedForTheWindowThatIsKept) {
    HostFile* source =
        GDBOpen(image("cube.img", "map info = {UTM, 1, 1, 1000, 2000, 10, 20, 33, North, WGS-84}\n").c_str(), "r");
    HostFile* target = newImage("new.img");
    const std::array<int, 4> window = {1, 2, 2, 1};
    ASSERT_EQ(1, KSHostCopyGeoreference(source, target, window.data(), 2, 3));
    std::array<double, 6> transform{};
    ASSERT_EQ(1, KSHostGetGeoTransform(target, transform.data()));
    EXPECT_EQ((std::array<double, 6>{1010, 20, 0, 1960, 0, -60}), transform);
    EXPECT_STREQ(KSHostGetCoordinateSystem(source), KSHostGetCoordinateSystem(target));
    EXPECT_STRNE("", KSHostGetCoordinateSystem(source));
    EXPECT_TRUE(reports.all.empty());
    EXPECT_EQ(0, KSHostCopyGeoreference(target, source, nullptr, 1, 1)) << "the source is open for reading only";
    EXPECT_EQ(0, KSHostCopyGeoreference(source, target, window.data(), 0, 1));
    const std::array<int, 4> outside = {1, 2, 4, 1};
    EXPECT_EQ(0, KSHostCopyGeoreference(source, target, outside.data(), 1, 1));
    const std::array<double, 6> bad = {0, std::nan(""), 0, 0, 0, 1};
    EXPECT_EQ(0, KSHostSetGeoTransform(target, bad.data()));
    EXPECT_EQ(0, KSHostSetNoData(target, 3, 1));
    EXPECT_EQ(5U, reports.all.size());
    GDBClose(source);
    GDBClose(target);
}

TEST_F(HostFiles, TaskWindowsAreTheImageUnlessSet) {
    HostFile* fp = GDBOpen(image().c_str(), "r");
    std::array<int, 4> window{};
    CheckWin(fp, "DBIW", window.data());
    EXPECT_EQ((std::array<int, 4>{0, 0, 4, 3}), window);
    const std::array<int, 4> part = {1, 1, 2, 2};
    KSHostSetWindow("DBIW", part.data());
    CheckWin(fp, "DBIW", window.data());
    EXPECT_EQ(part, window);
    CheckWin(fp, "DBOW", window.data());
    EXPECT_EQ((std::array<int, 4>{0, 0, 4, 3}), window);
    EXPECT_TRUE(reports.all.empty());
    const std::array<int, 4> outside = {3, 1, 2, 2};
    KSHostSetWindow("DBIW", outside.data());
    CheckWin(fp, "DBIW", window.data());
    EXPECT_EQ((std::array<int, 4>{0, 0, 4, 3}), window);
    EXPECT_TRUE(reports.mention("DBIW"));
    KSHostSetWindow("DBIW", nullptr);
    reports.all.clear();
    CheckWin(fp, "DBIW", window.data());
    CheckChan(fp, "DBIC", both.data(), 2);
    EXPECT_TRUE(reports.all.empty());
    const std::array<int, 2> bad = {1, 3};
    CheckChan(fp, "DBIC", bad.data(), 2);
    CheckChan(fp, "DBIC", nullptr, 2);
    EXPECT_EQ(2U, reports.all.size());
    GDBClose(fp);
}

}  // namespace
