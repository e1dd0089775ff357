// Names, sizes, disks and accidents that an image may meet: it is stored where it belongs, or there is a report, and
// nothing else is touched.
#include <gdal_priv.h>
#include <sys/stat.h>
#include <hostfile.hpp>

#include <array>
#include <cmath>
#include <numeric>

#include "hostkit.hpp"

using hosttest::Reports;
using hosttest::TemporaryFolder;

namespace {

std::string enviHeader(int samples, int lines, int bands, const std::string& interleave = "bip") {
    return "ENVI\nsamples = " + std::to_string(samples) + "\nlines = " + std::to_string(lines) +
           "\nbands = " + std::to_string(bands) + "\nheader offset = 0\ndata type = 1\ninterleave = " + interleave +
           "\nbyte order = 0\n";
}

class Robustness : public testing::Test {
protected:
    Robustness() {
        KSHostResetErrorCount();
        ImageRegister();
    }
    /// A foreign image of 4 x 3 pixels of two bytes each.
    std::string foreign(const std::string& name) {
        hosttest::write(folder / (name + ".hdr"), enviHeader(4, 3, 2));
        hosttest::write(folder / name, std::string(24, 'a'));
        return folder / name;
    }
    /// A foreign GeoTIFF of 64 x 64 pixels.
    std::string foreignTiff(const std::string& name, const char* option) {
        const char* const options[] = {option, nullptr};
        const std::unique_ptr<GDALDataset> image(GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
            (folder / name).c_str(), 64, 64, 2, GDT_Byte, const_cast<char**>(options)));
        for (int band = 1; band <= 2; ++band) image->GetRasterBand(band)->Fill(band);
        return folder / name;
    }
    static HostFile* create(const std::string& name, int width, int height, int channels, int type = 2) {
        std::array<int, 4> counts{};
        counts[static_cast<std::size_t>(type - 1)] = channels;
        return IDBCreate(name.c_str(), width, height, counts.data(), "PIXEL");
    }
    static bool writeSample(HostFile* fp, int x, int y, float value) {
        const int channel = 1;
        return GDBRealChanIOLow(fp, 1, x, y, 1, 1, &value, 1, 1, 1, &channel) != 0;
    }
    static float sample(HostFile* fp, int x, int y, int channel = 1) {
        float value = -1;
        GDBRealChanIOLow(fp, 0, x, y, 1, 1, &value, 1, 1, 1, &channel);
        return value;
    }
    static void annotate(HostFile* fp, const char* text) {
        HostStringList list = SetAuxEntry(nullptr, "Note", text);
        GDBMetaDataIO(fp, 1, 1, -1, list);
        DestroyStringList(list);
    }
    static std::string note(HostFile* fp) {
        const char* text = GDBFetchMetaDataEntry(fp, 1, -1, "Note");
        return text != nullptr ? text : "";
    }
    static std::string noteIn(const std::string& name) {
        HostFile* fp = GDBOpen(name.c_str(), "r");
        const std::string text = fp != nullptr ? note(fp) : "(not opened)";
        GDBClose(fp);
        return text;
    }

    TemporaryFolder folder;
    Reports reports;
};

// ---- names ----

TEST_F(Robustness, NamesMayHoldAnything) {
    for (const char* name : {"with blanks.img", "\xc3\xa4\xe6\xb0\xb4.tif", "no_extension", "v1.2_rfl", "qu\"ote'.img",
                             ":memory:", "a:b.tif", "file?mode=ro", "100%.img", ".hidden", "two\nlines.img"}) {
        HostFile* fp = create(folder / name, 4, 3, 2);
        ASSERT_NE(nullptr, fp) << name;
        EXPECT_TRUE(writeSample(fp, 3, 2, 77));
        annotate(fp, name);
        GDBClose(fp);
        fp = GDBOpen((folder / name).c_str(), "r");
        ASSERT_NE(nullptr, fp) << name;
        EXPECT_EQ(77.0F, sample(fp, 3, 2));
        EXPECT_EQ(name, note(fp));
        GDBClose(fp);
        EXPECT_TRUE(std::filesystem::exists(folder / (std::string(name) + ".ks")));
    }
    EXPECT_EQ(0, KSHostErrorCount());
}

TEST_F(Robustness, ASlashAtTheEndIsNoImage) {
    const std::string path = foreign("cube.img");
    EXPECT_EQ(0, DKCheck((path + "/").c_str()));
    EXPECT_EQ(nullptr, GDBOpen((path + "/").c_str(), "r"));
    EXPECT_TRUE(reports.mention("Not a directory"));
    EXPECT_EQ(nullptr, create(folder / "new/", 4, 3, 2));
    EXPECT_EQ(nullptr, create(folder.path().string() + "/", 4, 3, 2));
    EXPECT_EQ(3, KSHostErrorCount());
    EXPECT_EQ(2U, folder.names().size());
}

TEST_F(Robustness, ANameWithoutRoomForASidecarIsReadAndNotAnnotated) {
    const std::string longest(251, 'n');
    hosttest::write(folder / (longest + ".hdr"), enviHeader(4, 3, 2));
    hosttest::write(folder / (longest + ".img"), std::string(24, 'a'));
    HostFile* fp = GDBOpen((folder / (longest + ".img")).c_str(), "r+");
    ASSERT_NE(nullptr, fp);
    EXPECT_EQ(97.0F, sample(fp, 0, 0));
    EXPECT_EQ(0, KSHostErrorCount());
    annotate(fp, "no room");
    GDBClose(fp);
    EXPECT_EQ(1, KSHostErrorCount());
    EXPECT_TRUE(reports.mention("the metadata cannot be stored"));
    EXPECT_EQ(nullptr, create(folder / (std::string(300, 'n') + ".img"), 4, 3, 2));
    EXPECT_TRUE(reports.mention("File name too long"));
    EXPECT_EQ(2U, folder.names().size());
}

TEST_F(Robustness, AnotherFolderMeanwhileChangesNothing) {
    const TemporaryFolder elsewhere;
    const std::filesystem::path home = std::filesystem::current_path();
    const std::string tiff = foreignTiff("packed.tif", "COMPRESS=DEFLATE");
    for (const char* name : {"new.img", "new.tif", "packed.tif"}) {
        std::filesystem::current_path(folder.path());
        HostFile* fp = std::string(name) == "packed.tif" ? GDBOpen(name, "r+") : create(name, 4, 3, 2);
        std::filesystem::current_path(elsewhere.path());
        ASSERT_NE(nullptr, fp);
        EXPECT_STREQ(name, fp2filename(fp)) << "as it was given";
        EXPECT_TRUE(writeSample(fp, 1, 1, 42));
        annotate(fp, "kept");
        GDBClose(fp);
        std::filesystem::current_path(home);
        EXPECT_EQ("kept", noteIn(folder / name));
        fp = GDBOpen((folder / name).c_str(), "r");
        EXPECT_EQ(42.0F, sample(fp, 1, 1));
        GDBClose(fp);
    }
    EXPECT_TRUE(elsewhere.names().empty());
    EXPECT_EQ(0, KSHostErrorCount());
}

TEST_F(Robustness, ALinkIsAnImageWithASidecarOfItsOwn) {
    const std::string path = foreignTiff("real.tif", "COMPRESS=DEFLATE");
    ASSERT_EQ(0, symlink("real.tif", (folder / "link.tif").c_str()));
    HostFile* writer = GDBOpen(path.c_str(), "r+");
    EXPECT_TRUE(writeSample(writer, 5, 5, 99));
    annotate(writer, "of the file");
    HostFile* reader = GDBOpen((folder / "link.tif").c_str(), "r+");
    ASSERT_NE(nullptr, reader);
    EXPECT_EQ(99.0F, sample(reader, 5, 5)) << "samples are those of the file";
    EXPECT_EQ("", note(reader)) << "metadata goes by the name";
    annotate(reader, "of the link");
    GDBClose(reader);
    GDBClose(writer);
    EXPECT_EQ("of the file", noteIn(path));
    EXPECT_EQ("of the link", noteIn(folder / "link.tif"));
    ASSERT_EQ(0, symlink("nowhere.tif", (folder / "dangling.tif").c_str()));
    EXPECT_EQ(0, DKCheck((folder / "dangling.tif").c_str()));
    EXPECT_EQ(nullptr, create(folder / "dangling.tif", 4, 3, 2)) << "nothing is written through it";
    EXPECT_FALSE(std::filesystem::exists(folder / "nowhere.tif"));
}

// ---- sizes ----

TEST_F(Robustness, ThinImagesAndManyChannelsComeBack) {
    struct Size {
        int width, height, channels;
    };
    for (const char* name : {"new.img", "new.tif"})
        for (const Size& size :
             {Size{1, 1, 1}, Size{1, 500, 3}, Size{500, 1, 3}, Size{1, 500, 1}, Size{500, 1, 1}, Size{2, 3, 10000}}) {
            const TemporaryFolder own;
            std::vector<float> written(static_cast<std::size_t>(size.width * size.height) *
                                       static_cast<std::size_t>(size.channels));
            for (std::size_t i = 0; i < written.size(); ++i) written[i] = static_cast<float>(i % 30011);
            std::vector<int> channels(static_cast<std::size_t>(size.channels));
            std::iota(channels.begin(), channels.end(), 1);
            HostFile* fp = create(own / name, size.width, size.height, size.channels);
            ASSERT_NE(nullptr, fp);
            ASSERT_EQ(1, GDBRealChanIOLow(fp, 1, 0, 0, size.width, size.height, written.data(), size.width, size.height,
                                          size.channels, channels.data()));
            HostStringList list = SetAuxEntry(nullptr, "ResponseProfile_Centre", "512.500");
            GDBMetaDataIO(fp, 1, 2, size.channels, list);
            DestroyStringList(list);
            GDBClose(fp);
            fp = GDBOpen((own / name).c_str(), "r");
            ASSERT_NE(nullptr, fp);
            EXPECT_EQ(size.channels, GDBChanNum(fp));
            EXPECT_STREQ("512.500", GDBFetchMetaDataEntry(fp, 2, size.channels, "ResponseProfile_Centre"));
            std::vector<float> read(written.size());
            ASSERT_EQ(1, GDBRealChanIOLow(fp, 0, 0, 0, size.width, size.height, read.data(), size.width, size.height,
                                          size.channels, channels.data()));
            EXPECT_EQ(written, read) << name << " " << size.width << " x " << size.height << " x " << size.channels;
            EXPECT_EQ(written.back(), sample(fp, size.width - 1, size.height - 1, size.channels));
            GDBClose(fp);
        }
    EXPECT_EQ(0, KSHostErrorCount());
}

TEST_F(Robustness, ThinForeignImagesOfEveryOrderAreRead) {
    for (const char* order : {"bip", "bil", "bsq"})
        for (const auto& [width, height] : {std::pair{1, 9}, std::pair{9, 1}}) {
            hosttest::write(folder / "thin.hdr", enviHeader(width, height, 2, order));
            std::string bytes(18, '\0');
            std::iota(bytes.begin(), bytes.end(), '\0');
            hosttest::write(folder / "thin.img", bytes);
            HostFile* fp = GDBOpen((folder / "thin.img").c_str(), "r");
            ASSERT_NE(nullptr, fp);
            // With one line BIL is BSQ; with one column BIL is BIP.
            const bool pixels = order == std::string("bip") || (order == std::string("bil") && width == 1);
            for (int i = 0; i < 9; ++i)
                for (const int channel : {1, 2})
                    EXPECT_EQ(static_cast<float>(pixels ? 2 * i + channel - 1 : 9 * (channel - 1) + i),
                              sample(fp, width == 1 ? 0 : i, width == 1 ? i : 0, channel))
                        << order << " " << width << " x " << height;
            GDBClose(fp);
        }
}

TEST_F(Robustness, AnImageOfMoreBytesThan32BitsCountIsMadeAndRead) {
    const std::string path = folder / "large.img";
    HostFile* fp = create(path, 50000, 50000, 2);
    ASSERT_NE(nullptr, fp);
    EXPECT_TRUE(writeSample(fp, 49999, 49999, 123));
    GDBClose(fp);
    EXPECT_EQ(10000000000U, std::filesystem::file_size(path));
    fp = GDBOpen(path.c_str(), "r");
    EXPECT_EQ(123.0F, sample(fp, 49999, 49999));
    EXPECT_EQ(0.0F, sample(fp, 49999, 49999, 2));
    EXPECT_EQ(0.0F, sample(fp, 12345, 23456));
    GDBClose(fp);
    for (const char* name : {"impossible.img", "impossible.tif"}) {
        EXPECT_EQ(nullptr, create(folder / name, 2147483647, 2147483647, 60000));
        EXPECT_FALSE(std::filesystem::exists(folder / name));
    }
    EXPECT_EQ(2, KSHostErrorCount());
}

// ---- files that change under an open handle ----

TEST_F(Robustness, AnImageDeletedMeanwhileIsReadButNotAnnotated) {
    for (const bool replaced : {false, true}) {
        const std::string path = foreign("cube.img");
        KSHostResetErrorCount();
        HostFile* fp = GDBOpen(path.c_str(), "r+");
        ASSERT_NE(nullptr, fp);
        annotate(fp, "for the old image");
        // The handle keeps the old file in being, so that its successor is another one.
        ASSERT_EQ(0, unlink(path.c_str()));
        if (replaced) hosttest::write(path, std::string(24, 'b'));
        EXPECT_EQ(97.0F, sample(fp, 3, 2));
        GDBClose(fp);
        EXPECT_EQ(1, KSHostErrorCount());
        EXPECT_TRUE(reports.mention("has been deleted or replaced"));
        EXPECT_FALSE(std::filesystem::exists(path + ".ks"));
        EXPECT_EQ(replaced ? "" : "(not opened)", noteIn(path));
    }
}

TEST_F(Robustness, AFileThatShrinksMeanwhileFailsTheTransfer) {
    const std::string path = foreign("cube.img");
    HostFile* fp = GDBOpen(path.c_str(), "r");
    ASSERT_EQ(0, truncate(path.c_str(), 10));
    EXPECT_TRUE(std::isnan(sample(fp, 3, 2)));
    EXPECT_EQ(1, KSHostErrorCount());
    GDBClose(fp);
}

// ---- permissions, full disks, killed processes ----

TEST_F(Robustness, WithoutPermissionToWriteTheSamplesAnImageIsAnnotatedAllTheSame) {
    const std::vector<std::string> paths = {foreign("cube.img"), foreignTiff("plain.tif", "COMPRESS=NONE"),
                                            foreignTiff("packed.tif", "COMPRESS=DEFLATE")};
    ASSERT_EQ(0, chmod(folder.path().c_str(), 0777));
    for (const std::string& path : paths) {
        ASSERT_EQ(0, chmod(path.c_str(), 0444));
        const std::string before = hosttest::contentsOf(path);
        EXPECT_EQ(0, hosttest::asNobody([&] {
                      HostFile* fp = GDBOpen(path.c_str(), "r+");
                      if (fp == nullptr) return 1;
                      annotate(fp, "allowed");
                      if (writeSample(fp, 0, 0, 1) || KSHostErrorCount() != 1 || !reports.mention("Permission denied"))
                          return 2;
                      GDBClose(fp);
                      return KSHostErrorCount() == 1 ? 0 : 3;
                  }))
            << path;
        EXPECT_EQ("allowed", noteIn(path));
        EXPECT_EQ(before, hosttest::contentsOf(path));
    }
}

TEST_F(Robustness, AFullDiskWhileSamplesAreWrittenIsReported) {
    constexpr int kSide = 200, kChannels = 20;
    std::vector<int> channels(kChannels);
    std::iota(channels.begin(), channels.end(), 1);
    const std::vector<float> samples(static_cast<std::size_t>(kSide) * kSide * kChannels, 7.0F);
    for (const char* name : {"new.img", "new.tif"}) {
        KSHostResetErrorCount();
        HostFile* fp = create(folder / name, kSide, kSide, kChannels);
        ASSERT_NE(nullptr, fp);
        {
            const hosttest::FullDisk full(200000);
            GDBRealChanIOLow(fp, 1, 0, 0, kSide, kSide, const_cast<float*>(samples.data()), kSide, kSide, kChannels,
                             channels.data());
            KSHostFlush(fp);
            GDBClose(fp);
        }
        EXPECT_GT(KSHostErrorCount(), 0) << name;
        EXPECT_TRUE(reports.mention(name));
        reports.all.clear();
        // What is left is opened or refused with a reason, and no sample that was lost reads as one that was written.
        fp = GDBOpen((folder / name).c_str(), "r");
        if (fp == nullptr) continue;
        EXPECT_NE(7.0F, sample(fp, kSide - 1, kSide - 1)) << name;
        GDBClose(fp);
    }
    const std::string packed = foreignTiff("packed.tif", "COMPRESS=DEFLATE");
    KSHostResetErrorCount();
    HostFile* fp = GDBOpen(packed.c_str(), "r+");
    std::vector<float> noise(64 * 64);
    for (std::size_t i = 0; i < noise.size(); ++i) noise[i] = static_cast<float>((i * i * 7919 + i * 31) % 251);
    {
        const hosttest::FullDisk full(std::filesystem::file_size(packed));
        GDBRealChanIOLow(fp, 1, 0, 0, 64, 64, noise.data(), 64, 64, 1, channels.data());
        GDBClose(fp);
    }
    EXPECT_GT(KSHostErrorCount(), 0);
}

TEST_F(Robustness, AProcessKilledWhileItWritesLeavesAnImageOrAReason) {
    for (const char* name : {"new.img", "new.tif"}) {
        const std::string path = folder / name;
        const int status = hosttest::inChild([&] {
            HostFile* fp = create(path, 50, 40, 3);
            for (int y = 0; y < 20; ++y)
                for (int x = 0; x < 50; ++x) writeSample(fp, x, y, 9);
            annotate(fp, "never stored");
            raise(SIGKILL);
            return 1;
        });
        ASSERT_TRUE(WIFSIGNALED(status));
        EXPECT_FALSE(std::filesystem::exists(path + ".ks"));
        HostFile* fp = GDBOpen(path.c_str(), "r");
        if (fp == nullptr) {
            EXPECT_EQ(1, KSHostErrorCount()) << "one reason";
            continue;
        }
        EXPECT_EQ("", note(fp));
        for (int y = 0; y < 40; ++y) {
            const float value = sample(fp, 49, y);
            EXPECT_TRUE(value == 0.0F || (y < 20 && value == 9.0F)) << name << " line " << y << ": " << value;
        }
        GDBClose(fp);
    }
}

TEST_F(Robustness, AnUncommittedHandleOfAKilledProcessHoldsNobodyUp) {
    const std::string path = foreign("cube.img");
    ASSERT_TRUE(WIFSIGNALED(hosttest::inChild([&] {
        annotate(GDBOpen(path.c_str(), "r+"), "gathered");
        raise(SIGKILL);
        return 1;
    })));
    HostFile* fp = GDBOpen(path.c_str(), "r+");
    ASSERT_NE(nullptr, fp);
    annotate(fp, "stored");
    GDBClose(fp);
    EXPECT_EQ("stored", noteIn(path));
    EXPECT_EQ(0, KSHostErrorCount());
}

}  // namespace
