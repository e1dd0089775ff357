// Vector-quantized cubes: what is created and put is decoded again, every name that a caller may have finds its cube,
// and no failure or crash leaves anything but the codebook before or the codebook after.
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <random>

#include "faultvfs.hpp"
#include "hostkit.hpp"
#include "otherprogram.hpp"
#include "rasterformats.hpp"
#include "sidecar.hpp"

using hosttest::asNobody;
using hosttest::Fault;
using hosttest::FaultVfs;
using hosttest::FullDisk;
using hosttest::inChild;
using hosttest::OtherProgram;
using hosttest::Reports;
using hosttest::succeeded;
using Names = std::vector<std::string>;
using Bytes = std::vector<unsigned char>;
using Indexes = std::vector<std::uint16_t>;

namespace {

// AddressSanitizer holds on to freed memory, so that how much is in use says nothing.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kMemoryReturns = false;
#else
constexpr bool kMemoryReturns = true;
#endif
constexpr int kRead = 0;
constexpr int kWrite = 1;

std::size_t size(int value) { return static_cast<std::size_t>(value); }

/// A cube in memory, and the plain way to decode it.
struct Cube {
    int width, height, bands, vectors, type;
    Bytes codebook;
    Indexes indexes;

    std::size_t width1() const { return type == 1 ? 1 : type == 4 ? 4 : 2; }
    float component(int vector, int band) const {
        const unsigned char* at = codebook.data() + (size(vector) * size(bands) + size(band)) * width1();
        const auto as = [at](auto value) {
            std::memcpy(&value, at, sizeof value);
            return static_cast<float>(value);
        };
        switch (type) {
            case 1:
                return as(std::uint8_t{});
            case 2:
                return as(std::int16_t{});
            case 3:
                return as(std::uint16_t{});
            default:
                return as(float{});
        }
    }
    float sample(int x, int y, int band) const { return component(indexes[size(y) * size(width) + size(x)], band); }
};

void fillCodebook(Cube& cube, unsigned seed) {
    std::mt19937 random(seed);
    cube.codebook.resize(size(cube.vectors) * size(cube.bands) * cube.width1());
    if (cube.type == 4) {
        std::vector<float> values(size(cube.vectors) * size(cube.bands));
        for (float& value : values) value = std::uniform_real_distribution<float>(-1e4F, 1e4F)(random);
        std::memcpy(cube.codebook.data(), values.data(), cube.codebook.size());
    } else {
        for (unsigned char& byte : cube.codebook) byte = static_cast<unsigned char>(random());
    }
}

Cube randomCube(int width, int height, int bands, int vectors, int type, unsigned seed = 1) {
    Cube cube = {width, height, bands, vectors, type, {}, {}};
    fillCodebook(cube, seed);
    std::mt19937 random(seed + 1000);
    cube.indexes.resize(size(width) * size(height));
    for (auto& index : cube.indexes) index = static_cast<std::uint16_t>(random() % static_cast<unsigned>(vectors));
    return cube;
}

int putCodebook(const std::string& name, const Cube& cube) {
    std::vector<int> channels(size(cube.bands));
    std::iota(channels.begin(), channels.end(), 1);
    return VQubePutCodeBook(name.c_str(), cube.vectors, cube.type, cube.bands, cube.bands, channels.data(),
                            cube.codebook.data());
}

int putIndexes(const std::string& name, const Cube& cube) {
    const int window[4] = {0, 0, cube.width, cube.height};
    return VQubePutIndexMap(name.c_str(), window, cube.vectors, cube.width, cube.height, cube.indexes.data());
}

/// A file that is open while it lives.
class Open {
public:
    Open(const std::string& name, const char* access) : fp_(GDBOpen(name.c_str(), access)) {}
    ~Open() { close(); }
    Open(const Open&) = delete;
    Open& operator=(const Open&) = delete;
    operator HostFile*() const { return fp_; }
    void close() { GDBClose(std::exchange(fp_, nullptr)); }

private:
    HostFile* fp_;
};

/// The description of a file's cube, and the handles of its channels.
struct Info : KSVQubeInfo {
    explicit Info(HostFile* fp) : KSVQubeInfo{}, found(VQubeGetInfo(fp, this)) {}
    ~Info() { VQubeCleanUp(this); }
    Info(const Info&) = delete;
    Info& operator=(const Info&) = delete;
    int found;
};

Bytes codebookOf(HostFile* fp, const Cube& shape) {
    Bytes bytes(size(shape.vectors) * size(shape.bands) * shape.width1());
    EXPECT_EQ(VQubeGetCodeBook(fp, bytes.data()), 1);
    return bytes;
}

Indexes indexesOf(HostFile* fp, int x, int y, int width, int height) {
    const int window[4] = {x, y, width, height};
    Indexes indexes(size(width) * size(height));
    EXPECT_EQ(VQubeGetIndexMap(fp, window, indexes.data()), 1);
    return indexes;
}

std::vector<float> samplesOf(HostFile* fp, int x, int y, int width, int height, const std::vector<int>& channels,
                             int bufferWidth, int bufferHeight, int expected = 1) {
    std::vector<float> samples(size(bufferWidth) * size(bufferHeight) * channels.size(), -1.0F);
    EXPECT_EQ(GDBRealChanIOLow(fp, kRead, x, y, width, height, samples.data(), bufferWidth, bufferHeight,
                               static_cast<int>(channels.size()), channels.data()),
              expected);
    return samples;
}

/// Every sample of a window reduced to a buffer, one after the other.
std::vector<float> decoded(const Cube& cube, int x, int y, int width, int height, const std::vector<int>& channels,
                           int bufferWidth, int bufferHeight) {
    std::vector<float> samples;
    for (int j = 0; j < bufferHeight; ++j)
        for (int i = 0; i < bufferWidth; ++i)
            for (const int channel : channels)
                samples.push_back(
                    cube.sample(x + (i * width) / bufferWidth, y + (j * height) / bufferHeight, channel - 1));
    return samples;
}

/// Writes indexes past every check, as another program can.
void tamper(const std::string& name, int x, int y, float index) {
    std::string why;
    const auto image = kshost::openRaster(name, true, why);
    ASSERT_NE(image, nullptr) << why;
    ASSERT_EQ(image->write({x, y, 1, 1, 1, 1, {1}, {}}, &index), "");
    ASSERT_EQ(image->flush(), "");
}

}  // namespace

class VqubeTest : public testing::Test {
protected:
    void SetUp() override { KSHostResetErrorCount(); }

    void make(const Cube& cube, const std::string& as) {
        ASSERT_EQ(VQubeCreate(as.c_str(), cube.width, cube.height, cube.bands, cube.vectors, cube.type), 1);
        ASSERT_EQ(putCodebook(as, cube), 1);
        ASSERT_EQ(putIndexes(as, cube), 1);
    }
    void make(const Cube& cube) { make(cube, name); }
    void expectHolds(const std::string& as, const Cube& cube) {
        const Open fp(as, "r");
        ASSERT_NE(fp, nullptr);
        EXPECT_EQ(codebookOf(fp, cube), cube.codebook);
        EXPECT_EQ(indexesOf(fp, 0, 0, cube.width, cube.height), cube.indexes);
    }
    /// The last report, which must be the only one since the last call.
    std::string onlyReport() {
        EXPECT_EQ(reports.all.size(), 1U);
        std::string text = reports.all.empty() ? "" : reports.all.back().text;
        for (const auto& report : reports.all) EXPECT_EQ(report.severity, 1) << report.text;
        reports.all.clear();
        return text;
    }
    void expectReport(const std::string& part) {
        const std::string text = onlyReport();
        EXPECT_NE(text.find(part), std::string::npos) << text;
    }

    hosttest::TemporaryFolder folder;
    std::string name = folder / "cube.vq";
    Reports reports;
};

// ---- creating ----

TEST_F(VqubeTest, ANewCubeIsAllZeros) {
    ASSERT_EQ(VQubeCreate(name.c_str(), 7, 5, 3, 10, 2), 1);
    Names names = folder.names();
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (Names{"cube.vq", "cube.vq.ks"}));
    const Open fp(name, "r");
    ASSERT_NE(fp, nullptr);
    const Info info(fp);
    ASSERT_EQ(info.found, 1);
    EXPECT_EQ(info.nPixels, 7);
    EXPECT_EQ(info.nLines, 5);
    ASSERT_EQ(info.nNumVQChans, 3);
    EXPECT_EQ(std::vector<int>(info.panVQChans, info.panVQChans + 3), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(info.nNumNonVQChans, 0);
    EXPECT_EQ(info.panNonVQChans, nullptr);
    EXPECT_EQ(info.papfNonVQChan, nullptr);
    EXPECT_EQ(info.nCodeVectors, 10);
    EXPECT_EQ(info.nDataType, 2);
    EXPECT_EQ(info.nSpare, 0);
    EXPECT_EQ(info.nBitsPerIndex, 4);
    const Cube shape = {7, 5, 3, 10, 2, {}, {}};
    EXPECT_EQ(codebookOf(fp, shape), Bytes(10 * 3 * 2));
    EXPECT_EQ(indexesOf(fp, 0, 0, 7, 5), Indexes(35));
    EXPECT_EQ(samplesOf(fp, 0, 0, 7, 5, {1, 2, 3}, 7, 5), std::vector<float>(105));
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(VqubeTest, BitsPerIndexFollowFromTheNumberOfCodeVectors) {
    const std::pair<int, int> bits[] = {{1, 1},   {2, 1},   {3, 2},      {4, 2},      {5, 3},
                                        {256, 8}, {257, 9}, {32768, 15}, {32769, 16}, {65535, 16}};
    for (const auto& [vectors, expected] : bits) {
        const std::string cube = folder / std::to_string(vectors);
        ASSERT_EQ(VQubeCreate(cube.c_str(), 2, 2, 1, vectors, 1), 1);
        const Open fp(cube, "r");
        EXPECT_EQ(Info(fp).nBitsPerIndex, expected) << vectors;
    }
}

TEST_F(VqubeTest, AnotherProgramSeesTheIndexMapAsOneChannel) {
    make(randomCube(600, 500, 2, 300, 3));
    const char* const drivers[] = {"GTiff", nullptr};
    const kshost::GdalDataset image(GDALDataset::Open(name.c_str(), GDAL_OF_RASTER, drivers, nullptr, nullptr));
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->GetRasterCount(), 1);
    EXPECT_EQ(image->GetRasterBand(1)->GetRasterDataType(), GDT_UInt16);
    Indexes indexes(size(600) * 500);
    ASSERT_EQ(
        image->RasterIO(GF_Read, 0, 0, 600, 500, indexes.data(), 600, 500, GDT_UInt16, 1, nullptr, 0, 0, 0, nullptr),
        CE_None);
    EXPECT_EQ(indexes, randomCube(600, 500, 2, 300, 3).indexes);
}

TEST_F(VqubeTest, ImpossibleSizesAreRefusedAndLeaveNothing) {
    struct Case {
        int pixels, lines, bands, vectors, type;
        const char* report;
    };
    const Case cases[] = {
        {0, 5, 3, 10, 1, "at least one pixel"}, {7, 0, 3, 10, 1, "at least one pixel"},
        {7, 5, 0, 10, 1, "bands, not 0"},       {7, 5, 65536, 10, 1, "bands, not 65536"},
        {7, 5, 3, 0, 1, "code vectors, not 0"}, {7, 5, 3, 65536, 1, "code vectors, not 65536"},
        {7, 5, 3, 10, 0, "data type"},          {7, 5, 3, 10, 5, "data type"},
        {7, 5, 65535, 65535, 4, "2 GiB"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(VQubeCreate(name.c_str(), c.pixels, c.lines, c.bands, c.vectors, c.type), 0);
        expectReport(c.report);
        EXPECT_TRUE(folder.names().empty());
    }
    EXPECT_EQ(VQubeCreate(nullptr, 7, 5, 3, 10, 1), 0);
    expectReport("no file name");
    EXPECT_EQ(VQubeCreate((folder / "no/such/folder").c_str(), 7, 5, 3, 10, 1), 0);
    expectReport("No such file");
    EXPECT_EQ(VQubeCreate("NETCDF:cube:data", 7, 5, 3, 10, 1), 0);
    expectReport("netCDF");
}

TEST_F(VqubeTest, ExistingNamesAreRefusedAndLeftAlone) {
    for (const char* extension : {"", ".ks", ".aux.xml"}) {
        const std::string taken = name + extension;
        hosttest::write(taken, "mine");
        EXPECT_EQ(VQubeCreate(name.c_str(), 7, 5, 3, 10, 1), 0);
        expectReport(taken + " exists");
        EXPECT_EQ(hosttest::contentsOf(taken), "mine");
        EXPECT_EQ(folder.names().size(), 1U);
        unlink(taken.c_str());
    }
}

TEST_F(VqubeTest, AFullDiskLeavesNoNewCube) {
    // Within the index map, and after it within the sidecar.
    for (const rlim_t limit : {rlim_t{0}, rlim_t{100}, rlim_t{5000}, rlim_t{30000}}) {
        int made = -1;
        {
            const FullDisk full(limit);
            made = VQubeCreate(name.c_str(), 100, 100, 8, 2000, 4);
        }
        EXPECT_EQ(made, 0) << limit;
        onlyReport();
        EXPECT_TRUE(folder.names().empty()) << limit;
    }
    EXPECT_EQ(VQubeCreate(name.c_str(), 100, 100, 8, 2000, 4), 1);
}

// ---- describing ----

TEST_F(VqubeTest, AnythingElseHoldsNoCubeAndIsNoFailure) {
    const int counts[4] = {0, 0, 1, 0};
    const std::string plain = folder / "plain.tif";
    HostFile* fp = IDBCreate(plain.c_str(), 4, 4, counts, "PIXEL");
    KSVQubeInfo info = {};
    info.nCodeVectors = 77;
    EXPECT_EQ(VQubeGetInfo(fp, &info), 0);
    GDBClose(fp);
    EXPECT_EQ(VQubeGetInfo(fp, &info), 0);
    EXPECT_EQ(VQubeGetInfo(nullptr, &info), 0);
    EXPECT_EQ(VQubeGetInfo(nullptr, nullptr), 0);
    EXPECT_EQ(info.nCodeVectors, 77);
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(VqubeTest, CleaningUpFreesTheListsAndNotTheHandles) {
    make(randomCube(3, 3, 2, 4, 1));
    const Open fp(name, "r");
    KSVQubeInfo info = {};
    ASSERT_EQ(VQubeGetInfo(fp, &info), 1);
    HostFile* channel = info.papfVQChan[1];
    VQubeCleanUp(&info);
    EXPECT_EQ(info.nNumVQChans, 0);
    EXPECT_EQ(info.panVQChans, nullptr);
    EXPECT_EQ(info.papfVQChan, nullptr);
    EXPECT_EQ(fpValidate(channel), 1);
    EXPECT_EQ(Info(fp).papfVQChan[1], channel);
    VQubeCleanUp(&info);
    VQubeCleanUp(nullptr);

    KSVQubeInfo own = {};
    own.nNumVQChans = own.nNumNonVQChans = 2;
    own.panVQChans = static_cast<int*>(std::calloc(2, sizeof(int)));
    own.panNonVQChans = static_cast<int*>(std::calloc(2, sizeof(int)));
    VQubeCleanUp(&own);
    EXPECT_EQ(own.panVQChans, nullptr);
    EXPECT_EQ(own.panNonVQChans, nullptr);
    EXPECT_EQ(own.nNumVQChans + own.nNumNonVQChans, 0);
}

TEST_F(VqubeTest, ChannelHandlesLiveAsLongAsTheFile) {
    const Cube cube = randomCube(3, 3, 2, 4, 1);
    make(cube);
    Open fp(name, "r");
    const Info info(fp);
    ASSERT_EQ(info.nNumVQChans, 2);
    HostFile* second = info.papfVQChan[1];
    EXPECT_EQ(fp2filename(second), name + ":2");
    EXPECT_EQ(codebookOf(second, cube), cube.codebook);
    EXPECT_EQ(indexesOf(second, 0, 0, 3, 3), cube.indexes);
    EXPECT_EQ(Info(second).nNumVQChans, 2);
    fp.close();
    EXPECT_EQ(fpValidate(second), 0);
}

TEST_F(VqubeTest, ABorrowedHandleIsNotClosedButItsReferencesAre) {
    const Cube cube = randomCube(3, 3, 2, 4, 1);
    make(cube);
    Open fp(name, "r");
    HostFile* first = Info(fp).papfVQChan[0];
    GDBClose(first);
    expectReport("closed together with its file");
    EXPECT_EQ(fpValidate(first), 1);

    EXPECT_EQ(fpReference(first), first);
    fp.close();
    EXPECT_EQ(fpValidate(first), 1);
    EXPECT_EQ(codebookOf(first, cube), cube.codebook);
    GDBClose(first);
    EXPECT_EQ(fpValidate(first), 0);
    EXPECT_TRUE(reports.all.empty());
}

// ---- decoding ----

class EveryType : public VqubeTest, public testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(Types, EveryType, testing::Values(1, 2, 3, 4));

TEST_P(EveryType, ChannelsAreTheDecodedBands) {
    const Cube cube = randomCube(37, 23, 5, 200, GetParam());
    make(cube);
    const Open fp(name, "r");
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(GDBChanNum(fp), 5);
    EXPECT_EQ(GDBChanXSize(fp), 37);
    EXPECT_EQ(GDBChanYSize(fp), 23);
    for (int channel = 1; channel <= 5; ++channel) EXPECT_EQ(GDBChanType(fp, channel), GetParam());
    const std::vector<int> all = {1, 2, 3, 4, 5};
    EXPECT_EQ(samplesOf(fp, 0, 0, 37, 23, all, 37, 23), decoded(cube, 0, 0, 37, 23, all, 37, 23));
    const std::vector<int> some = {4, 1, 4};
    EXPECT_EQ(samplesOf(fp, 5, 3, 20, 11, some, 20, 11), decoded(cube, 5, 3, 20, 11, some, 20, 11));
    EXPECT_EQ(samplesOf(fp, 5, 3, 20, 11, some, 7, 4), decoded(cube, 5, 3, 20, 11, some, 7, 4));
    EXPECT_EQ(samplesOf(fp, 5, 3, 20, 11, some, 20, 4), decoded(cube, 5, 3, 20, 11, some, 20, 4));
    EXPECT_EQ(samplesOf(fp, 5, 3, 20, 11, some, 33, 15), decoded(cube, 5, 3, 20, 11, some, 33, 15));
    EXPECT_EQ(codebookOf(fp, cube), cube.codebook);
    EXPECT_EQ(indexesOf(fp, 0, 0, 37, 23), cube.indexes);
}

TEST_F(VqubeTest, WindowsOfTheIndexMapAreReadAndWritten) {
    Cube cube = randomCube(11, 9, 1, 50, 1);
    make(cube);
    const int window[4] = {3, 2, 4, 5};
    Indexes part(20);
    std::iota(part.begin(), part.end(), std::uint16_t{30});
    ASSERT_EQ(VQubePutIndexMap(name.c_str(), window, 50, 4, 5, part.data()), 1);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 4; ++x) cube.indexes[size(2 + y) * 11 + size(3 + x)] = part[size(y) * 4 + size(x)];
    const Open fp(name, "r");
    EXPECT_EQ(indexesOf(fp, 0, 0, 11, 9), cube.indexes);
    EXPECT_EQ(indexesOf(fp, 3, 2, 4, 5), part);
    EXPECT_EQ(indexesOf(fp, 10, 8, 1, 1), Indexes{cube.indexes.back()});
}

TEST_F(VqubeTest, ALargeIndexMapIsMovedBlockByBlock) {
    const Cube cube = randomCube(1201, 700, 2, 1000, 4);
    make(cube);
    const Open fp(name, "r");
    EXPECT_EQ(indexesOf(fp, 0, 0, 1201, 700), cube.indexes);
    const std::vector<int> channels = {2, 1};
    EXPECT_EQ(samplesOf(fp, 0, 0, 1201, 700, channels, 1201, 700), decoded(cube, 0, 0, 1201, 700, channels, 1201, 700));
    EXPECT_EQ(samplesOf(fp, 1, 1, 1200, 699, channels, 601, 699), decoded(cube, 1, 1, 1200, 699, channels, 601, 699));
}

TEST_F(VqubeTest, AnIndexMapLargerThanAllMemoryAllowedIsRead) {
    constexpr int kSide = 6000;  // 72 MB
    constexpr long kKilobytes = 24 * 1024;
    ASSERT_EQ(VQubeCreate(name.c_str(), kSide, kSide, 2, 4, 1), 1);
    tamper(name, kSide - 1, kSide - 1, 3);
    Cube cube = {kSide, kSide, 2, 4, 1, {0, 0, 0, 0, 0, 0, 7, 8}, {}};
    ASSERT_EQ(putCodebook(name, cube), 1);
    EXPECT_TRUE(succeeded(inChild([&] {
        const auto peak = [] {
            rusage usage = {};
            getrusage(RUSAGE_SELF, &usage);
            return usage.ru_maxrss;
        };
        const long before = peak();
        const Open fp(name, "r");
        const std::vector<float> strip = samplesOf(fp, kSide - 50, 0, 50, kSide, {2}, 50, kSide);
        const std::vector<float> overview = samplesOf(fp, 0, 0, kSide, kSide, {1, 2}, 60, 60);
        if (strip.back() != 8 || std::count(strip.begin(), strip.end(), 0.0F) != 50 * kSide - 1) return 1;
        if (std::count(overview.begin(), overview.end(), 0.0F) != 2 * 60 * 60) return 2;
        return kMemoryReturns && peak() - before >= kKilobytes ? 3 : 0;
    })));
}

TEST_F(VqubeTest, AllCodeVectorsThatIndexesCanNameAreUsable) {
    Cube cube = randomCube(256, 256, 3, 65535, 3);
    std::iota(cube.indexes.begin(), cube.indexes.end(), std::uint16_t{0});
    cube.indexes.back() = 65534;
    make(cube);
    const Open fp(name, "r");
    EXPECT_EQ(Info(fp).nBitsPerIndex, 16);
    EXPECT_EQ(codebookOf(fp, cube), cube.codebook);
    EXPECT_EQ(samplesOf(fp, 0, 0, 256, 256, {1, 2, 3}, 256, 256), decoded(cube, 0, 0, 256, 256, {1, 2, 3}, 256, 256));
}

TEST_F(VqubeTest, ACodebookOfManyRunsComesBack) {
    const Cube cube = randomCube(4, 4, 700, 3000, 4);  // 8 MB
    make(cube);
    expectHolds(name, cube);
    const Cube wide = randomCube(2, 2, 60000, 20, 4);
    make(wide, folder / "wide");
    expectHolds(folder / "wide", wide);
}

TEST_F(VqubeTest, ACompressedTiledIndexMapWorksToo) {
    Cube cube = randomCube(300, 200, 2, 90, 2);
    make(cube);
    const std::string packed = folder / "packed";
    {
        const char* const drivers[] = {"GTiff", nullptr};
        const kshost::GdalDataset image(GDALDataset::Open(name.c_str(), GDAL_OF_RASTER, drivers, nullptr, nullptr));
        const char* const options[] = {"COMPRESS=DEFLATE", "TILED=YES", nullptr};
        const kshost::GdalDataset copy(image->GetDriver()->CreateCopy(packed.c_str(), image.get(), 0,
                                                                      const_cast<char**>(options), nullptr, nullptr));
        ASSERT_NE(copy, nullptr);
    }
    ASSERT_EQ(rename(packed.c_str(), name.c_str()), 0);
    expectHolds(name, cube);
    cube.indexes = randomCube(300, 200, 2, 90, 2, 7).indexes;
    ASSERT_EQ(putIndexes(name, cube), 1);
    expectHolds(name, cube);
}

TEST_F(VqubeTest, SamplesAreNotWritten) {
    const Cube cube = randomCube(3, 3, 1, 4, 1);
    make(cube);
    const Open fp(name, "r+");
    float sample = 1;
    const int channel = 1;
    EXPECT_EQ(GDBRealChanIOLow(fp, kWrite, 0, 0, 1, 1, &sample, 1, 1, 1, &channel), 0);
    expectReport("samples of a vector-quantized cube are not written");
    EXPECT_EQ(KSHostErrorCount(), 1);
    EXPECT_EQ(codebookOf(fp, cube), cube.codebook);
    EXPECT_EQ(indexesOf(fp, 0, 0, 3, 3), cube.indexes);
}

TEST_F(VqubeTest, AnIndexWithoutACodeVectorIsAFailedTransfer) {
    Cube cube = randomCube(6, 4, 2, 9, 4);
    make(cube);
    for (const float index : {9.0F, 65535.0F}) {
        tamper(name, 2, 1, index);
        const Open fp(name, "r+");
        ASSERT_NE(fp, nullptr);
        for (const float sample : samplesOf(fp, 0, 0, 6, 4, {1, 2}, 6, 4, 0)) EXPECT_TRUE(std::isnan(sample));
        expectReport("pixel 2 of line 1 holds index " + std::to_string(static_cast<int>(index)));
        Indexes indexes(24);
        const int window[4] = {0, 0, 6, 4};
        EXPECT_EQ(VQubeGetIndexMap(fp, window, indexes.data()), 0);
        expectReport("there are 9 code vectors");
        // What does not touch the damage is as before, also when it is reduced.
        EXPECT_EQ(samplesOf(fp, 0, 2, 6, 2, {1, 2}, 6, 2), decoded(cube, 0, 2, 6, 2, {1, 2}, 6, 2));
        EXPECT_EQ(samplesOf(fp, 0, 0, 6, 4, {1}, 2, 2), decoded(cube, 0, 0, 6, 4, {1}, 2, 2));
        // And a new index map mends it.
        ASSERT_EQ(putIndexes(name, cube), 1);
        EXPECT_EQ(indexesOf(fp, 0, 0, 6, 4), cube.indexes);
    }
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(VqubeTest, AShortIndexMapIsReported) {
    make(randomCube(50, 40, 2, 9, 4));
    struct stat status = {};
    ASSERT_EQ(stat(name.c_str(), &status), 0);
    ASSERT_EQ(truncate(name.c_str(), status.st_size - 1000), 0);
    const Open fp(name, "r");
    ASSERT_NE(fp, nullptr);
    EXPECT_TRUE(reports.mention("missing"));
    reports.all.clear();
    for (const float sample : samplesOf(fp, 0, 0, 50, 40, {1}, 50, 40, 0)) EXPECT_TRUE(std::isnan(sample));
    onlyReport();
}

// ---- puts ----

TEST_F(VqubeTest, AChannelListSaysWhereComponentsBelong) {
    const Cube cube = randomCube(2, 2, 3, 4, 2);
    make(cube);
    const int channels[] = {3, 1, 2};
    ASSERT_EQ(VQubePutCodeBook(name.c_str(), 4, 2, 3, 3, channels, cube.codebook.data()), 1);
    Cube stored = cube;
    const Open fp(name, "r");
    stored.codebook = codebookOf(fp, cube);
    for (int v = 0; v < 4; ++v)
        for (int j = 0; j < 3; ++j) EXPECT_EQ(stored.component(v, channels[j] - 1), cube.component(v, j));
}

TEST_F(VqubeTest, ACodebookThatDoesNotFitIsRefused) {
    const Cube cube = randomCube(2, 2, 3, 4, 2);
    make(cube);
    struct Case {
        int vectors, type, bands, dataSetBands;
        std::vector<int> channels;
        const char* report;
    };
    const Case cases[] = {
        {5, 2, 3, 3, {1, 2, 3}, "number of code vectors of 5, the cube 4"},
        {3, 2, 3, 3, {1, 2, 3}, "number of code vectors of 3, the cube 4"},
        {4, 3, 3, 3, {1, 2, 3}, "data type 3, the cube 2"},
        {4, 2, 2, 3, {1, 2, 3}, "number of bands of 2, the cube 3"},
        {4, 2, 4, 3, {1, 2, 3}, "number of bands of 4, the cube 3"},
        {4, 2, 3, 2, {1, 2}, "2 entries, the cube 3 bands"},
        {4, 2, 3, 0, {1}, "0 entries, the cube 3 bands"},
        {4, 2, 3, 3, {1, 2, 4}, "no channel 4"},
        {4, 2, 3, 3, {0, 1, 2}, "no channel 0"},
        {4, 2, 3, 3, {1, 2, 1}, "channel 1 is named twice"},
    };
    const Bytes other(200, 9);
    for (const Case& c : cases) {
        EXPECT_EQ(
            VQubePutCodeBook(name.c_str(), c.vectors, c.type, c.bands, c.dataSetBands, c.channels.data(), other.data()),
            0);
        expectReport(c.report);
    }
    EXPECT_EQ(VQubePutCodeBook(name.c_str(), 4, 2, 3, 3, nullptr, other.data()), 0);
    expectReport("no channel list");
    EXPECT_EQ(VQubePutCodeBook(name.c_str(), 4, 2, 3, 3, cases[0].channels.data(), nullptr), 0);
    expectReport("no code vectors given");
    expectHolds(name, cube);
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(VqubeTest, AnIndexMapThatDoesNotFitIsRefused) {
    const Cube cube = randomCube(4, 3, 1, 5, 1);
    make(cube);
    struct Case {
        int window[4];
        int vectors, width, height;
        const char* report;
    };
    const Case cases[] = {
        {{0, 0, 4, 3}, 5, 3, 3, "3 x 3 indexes, the window 4 x 3"},
        {{0, 0, 4, 3}, 5, 0, 3, "0 x 3 indexes"},
        {{1, 0, 4, 3}, 5, 4, 3, "does not lie in the cube"},
        {{0, 1, 4, 3}, 5, 4, 3, "does not lie in the cube"},
        {{-1, 0, 4, 3}, 5, 4, 3, "does not lie in the cube"},
        {{0, 0, 0, 3}, 5, 0, 3, "does not lie in the cube"},
        {{2147483647, 0, 2147483647, 1}, 5, 2147483647, 1, "does not lie in the cube"},
        {{0, 0, 4, 3}, 6, 4, 3, "for 6 code vectors, the cube has 5"},
        {{0, 0, 4, 3}, 4, 4, 3, "for 4 code vectors, the cube has 5"},
    };
    const Indexes zeros(12);
    for (const Case& c : cases) {
        EXPECT_EQ(VQubePutIndexMap(name.c_str(), c.window, c.vectors, c.width, c.height, zeros.data()), 0);
        expectReport(c.report);
    }
    const int whole[4] = {0, 0, 4, 3};
    Indexes lastTooLarge(12);
    lastTooLarge.back() = 5;
    EXPECT_EQ(VQubePutIndexMap(name.c_str(), whole, 5, 4, 3, lastTooLarge.data()), 0);
    expectReport("index 5 has no code vector");
    EXPECT_EQ(VQubePutIndexMap(name.c_str(), nullptr, 5, 4, 3, zeros.data()), 0);
    expectReport("no window");
    EXPECT_EQ(VQubePutIndexMap(name.c_str(), whole, 5, 4, 3, nullptr), 0);
    expectReport("no indexes given");
    expectHolds(name, cube);
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(VqubeTest, ReadingOutsideOrWithoutABufferIsRefused) {
    make(randomCube(4, 3, 1, 5, 1));
    const Open fp(name, "r");
    Indexes indexes(12);
    for (const std::array<int, 4>& window :
         {std::array<int, 4>{1, 0, 4, 3}, {0, -1, 4, 3}, {0, 0, 4, 0}, {2147483647, 0, 2147483647, 3}}) {
        EXPECT_EQ(VQubeGetIndexMap(fp, window.data(), indexes.data()), 0);
        expectReport("does not lie in the cube");
    }
    const int whole[4] = {0, 0, 4, 3};
    EXPECT_EQ(VQubeGetIndexMap(fp, nullptr, indexes.data()), 0);
    expectReport("no window");
    EXPECT_EQ(VQubeGetIndexMap(fp, whole, nullptr), 0);
    expectReport("no buffer");
    EXPECT_EQ(VQubeGetCodeBook(fp, nullptr), 0);
    expectReport("no buffer");
    EXPECT_EQ(VQubeGetCodeBook(nullptr, indexes.data()), 0);
    expectReport("no file given");
}

TEST_F(VqubeTest, OnlyCubesTakePutsAndGets) {
    const Cube cube = randomCube(4, 3, 1, 5, 1);
    const int counts[4] = {0, 0, 1, 0};
    const std::string plain = folder / "plain.tif";
    HostFile* fp = IDBCreate(plain.c_str(), 4, 3, counts, "PIXEL");
    Bytes buffer(100);
    const int whole[4] = {0, 0, 4, 3};
    EXPECT_EQ(VQubeGetCodeBook(fp, buffer.data()), 0);
    expectReport("holds no vector-quantized cube");
    EXPECT_EQ(VQubeGetIndexMap(fp, whole, Indexes(12).data()), 0);
    expectReport("holds no vector-quantized cube");
    GDBClose(fp);
    EXPECT_EQ(putCodebook(plain, cube), 0);
    expectReport("holds no vector-quantized cube");
    EXPECT_EQ(putIndexes(plain, cube), 0);
    expectReport("holds no vector-quantized cube");
    EXPECT_EQ(putCodebook(folder / "nothing", cube), 0);
    expectReport("there is no such file");
    EXPECT_EQ(VQubePutIndexMap(nullptr, whole, 5, 4, 3, Indexes(12).data()), 0);
    expectReport("no file name");
}

TEST_F(VqubeTest, AHandleForReadingRefusesPuts) {
    const Cube cube = randomCube(4, 3, 2, 5, 1);
    make(cube);
    const Cube other = randomCube(4, 3, 2, 5, 1, 9);
    const Open fp(name, "r");
    const Info info(fp);
    const std::string handle = fp2filename(info.papfVQChan[0]);
    for (const std::string& as : {handle, name}) {
        EXPECT_EQ(putCodebook(as, other), 0);
        expectReport("opened for reading only");
        EXPECT_EQ(putIndexes(as, other), 0);
        expectReport("opened for reading only");
    }
    expectHolds(name, cube);
    // Another handle on the same file may write, and the reader sees it at once.
    const Open writer(folder / "./cube.vq", "r+");
    EXPECT_EQ(putCodebook(handle, other), 1);
    EXPECT_EQ(putIndexes(handle, other), 1);
    EXPECT_EQ(codebookOf(fp, other), other.codebook);
    EXPECT_EQ(indexesOf(fp, 0, 0, 4, 3), other.indexes);
    EXPECT_EQ(samplesOf(fp, 0, 0, 4, 3, {1, 2}, 4, 3), decoded(other, 0, 0, 4, 3, {1, 2}, 4, 3));
}

TEST_F(VqubeTest, APutThatFailsJumpsToTheTrap) {
    volatile int stage = 0;
    if (IMP_Protect() == nullptr) FAIL();
    if (setjmp(*IMPProtectBuffer()) == 0) {
        stage = 1;
        const int window[4] = {0, 0, 1, 1};
        const std::uint16_t index = 0;
        VQubePutIndexMap("/no/such/cube", window, 1, 1, 1, &index);
        stage = 2;
    }
    EXPECT_EQ(stage, 1);
    expectReport("there is no such file");
}

// ---- names ----

class EveryName : public VqubeTest, public testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(Names, EveryName,
                         testing::Values("plain", "a:b.vq", "C:cube:7", "100%.tif", "x%3Ay", "%25:%", "with blank",
                                         "gr\xc3\xbc\xc3\x9f \xe5\x9b\xbe:1", "scan:12", ":", "a::"));

TEST_P(EveryName, IsFoundByHandleByItsFirstPartAndByItself) {
    const std::string file = folder / GetParam();
    Cube cube = randomCube(5, 4, 3, 20, 4);
    make(cube, file);  // by itself, closed
    expectHolds(file, cube);
    Names spellings = {file};
    {
        const Open fp(file, "r+");
        ASSERT_NE(fp, nullptr);
        const Info info(fp);
        ASSERT_EQ(info.nNumVQChans, 3);
        const std::string handle = fp2filename(info.papfVQChan[2]);
        EXPECT_EQ(std::count(handle.begin(), handle.end(), ':'), 1);
        EXPECT_EQ(handle.substr(handle.size() - 2), ":3");
        HostStringList tokens = TokenizeDelim(handle.c_str(), ":");
        ASSERT_EQ(CountStringList(tokens), 2);
        spellings = {file, handle, tokens[0]};
        DestroyStringList(tokens);
    }
    unsigned seed = 50;
    for (const bool open : {true, false}) {
        for (const std::string& spelling : spellings) {
            cube = randomCube(5, 4, 3, 20, 4, ++seed);
            const Open fp(open ? file : folder / "none", "r+");
            reports.all.clear();
            EXPECT_EQ(putCodebook(spelling, cube), 1) << spelling;
            EXPECT_EQ(putIndexes(spelling, cube), 1) << spelling;
            expectHolds(file, cube);
        }
    }
    EXPECT_TRUE(reports.all.empty());
    EXPECT_EQ(folder.names().size(), 2U);
}

TEST_F(VqubeTest, NamesThatLookAlikeAreKeptApart) {
    const Names files = {folder / "a:b", folder / "a%3Ab", folder / "a%253Ab",
                         folder / "a",   folder / "a:2",   folder / "a:9"};
    std::vector<Cube> cubes;
    for (const std::string& file : files) {
        cubes.push_back(randomCube(2, 2, 3, 8, 1, static_cast<unsigned>(cubes.size())));
        ASSERT_EQ(VQubeCreate(file.c_str(), 2, 2, 3, 8, 1), 1);
        const Open fp(file, "r+");
        const std::string handle = fp2filename(Info(fp).papfVQChan[0]);
        ASSERT_EQ(putCodebook(handle, cubes.back()), 1);
        ASSERT_EQ(putIndexes(handle, cubes.back()), 1);
    }
    for (std::size_t i = 0; i < files.size(); ++i) {
        std::string handle;
        {
            const Open fp(files[i], "r");
            handle = fp2filename(Info(fp).papfVQChan[0]);
        }
        for (const std::string& spelling : {handle, handle.substr(0, handle.find(':'))}) {
            fillCodebook(cubes[i], static_cast<unsigned>(100 + i));
            ASSERT_EQ(putCodebook(spelling, cubes[i]), 1);
            for (std::size_t other = 0; other < files.size(); ++other) expectHolds(files[other], cubes[other]);
        }
    }
    // A cube of three bands has no channel 9, so this is a file; its channel 2 is its channel 2.
    fillCodebook(cubes[5], 200);
    ASSERT_EQ(putCodebook(files[5], cubes[5]), 1);
    expectHolds(files[5], cubes[5]);
    fillCodebook(cubes[3], 201);
    ASSERT_EQ(putCodebook(files[4], cubes[3]), 1);
    expectHolds(files[3], cubes[3]);
    expectHolds(files[4], cubes[4]);
}

// ---- metadata ----

TEST_F(VqubeTest, MetadataIsKeptAsForAnyImage) {
    make(randomCube(2, 2, 3, 8, 1));
    {
        const Open fp(name, "r+");
        for (const auto& [level, number] : {std::pair(1, -1), std::pair(2, 1), std::pair(2, 3)}) {
            HostStringList list = SetAuxEntry(nullptr, "Key", ("value " + std::to_string(number)).c_str());
            GDBMetaDataIO(fp, kWrite, level, number, list);
            DestroyStringList(list);
        }
        char text[65] = "band two";
        EXPECT_EQ(GDBChanDescIO(fp, kWrite, 2, text), 1);
        GDBWriteHistory(fp, 1, -1, "trained");
        const double transform[6] = {10, 1, 0, 20, 0, -1};
        EXPECT_EQ(KSHostSetGeoTransform(fp, transform), 1);
    }
    const Open fp(name, "r");
    EXPECT_STREQ(GDBFetchMetaDataEntry(fp, 1, -1, "Key"), "value -1");
    EXPECT_STREQ(GDBFetchMetaDataEntry(fp, 2, 1, "Key"), "value 1");
    EXPECT_EQ(GDBFetchMetaDataEntry(fp, 2, 2, "Key"), nullptr);
    EXPECT_STREQ(GDBFetchMetaDataEntry(fp, 2, 3, "Key"), "value 3");
    char text[65] = "";
    EXPECT_EQ(GDBChanDescIO(fp, kRead, 2, text), 1);
    EXPECT_STREQ(text, "band two");
    double transform[6] = {};
    EXPECT_EQ(KSHostGetGeoTransform(fp, transform), 1);
    EXPECT_EQ(transform[3], 20);
    KSHostLayout layout = {};
    EXPECT_EQ(KSHostGetLayout(fp, &layout), 1);
    EXPECT_STREQ(layout.szFormat, "GTiff");
    EXPECT_STREQ(layout.szSampleType, "Byte");
    EXPECT_EQ(layout.bSidecar, 1);
    EXPECT_TRUE(reports.all.empty());
}

TEST_F(VqubeTest, GatheredMetadataIsStoredBeforeAPut) {
    const Cube cube = randomCube(2, 2, 3, 8, 1);
    make(cube);
    for (const bool codebook : {true, false}) {
        const std::string value = codebook ? "with the codebook" : "with the indexes";
        ASSERT_TRUE(succeeded(inChild([&] {
            HostFile* fp = GDBOpen(name.c_str(), "r+");
            HostStringList list = SetAuxEntry(nullptr, "Key", value.c_str());
            GDBMetaDataIO(fp, kWrite, 1, -1, list);
            DestroyStringList(list);
            return (codebook ? putCodebook(name, cube) : putIndexes(name, cube)) == 1 ? 0 : 1;
        })));
        const Open fp(name, "r");
        EXPECT_EQ(GDBFetchMetaDataEntry(fp, 1, -1, "Key"), value);
    }
}

// ---- mishaps ----

TEST_F(VqubeTest, WithoutItsSidecarACubeIsAnImageOfIndexes) {
    const Cube cube = randomCube(4, 3, 2, 5, 4);
    make(cube);
    ASSERT_EQ(rename((name + ".ks").c_str(), (name + ".away").c_str()), 0);
    {
        const Open fp(name, "r");
        ASSERT_NE(fp, nullptr);
        EXPECT_EQ(Info(fp).found, 0);
        EXPECT_EQ(GDBChanNum(fp), 1);
        EXPECT_EQ(GDBChanType(fp, 1), 3);
        EXPECT_EQ(samplesOf(fp, 0, 0, 4, 3, {1}, 4, 3), std::vector<float>(cube.indexes.begin(), cube.indexes.end()));
        EXPECT_TRUE(reports.all.empty());
    }
    ASSERT_EQ(rename((name + ".away").c_str(), (name + ".ks").c_str()), 0);
    expectHolds(name, cube);
}

TEST_F(VqubeTest, TheSidecarOfAnotherCubeIsNotUsed) {
    make(randomCube(4, 3, 2, 5, 4));
    make(randomCube(3, 4, 2, 5, 4), folder / "other");
    ASSERT_EQ(rename((folder / "other.ks").c_str(), (name + ".ks").c_str()), 0);
    {
        const Open fp(name, "r");
        ASSERT_NE(fp, nullptr);
        EXPECT_EQ(GDBChanNum(fp), 1);
        EXPECT_TRUE(reports.mention("is not used"));
    }
    EXPECT_EQ(Open(name, "r+"), nullptr);
    EXPECT_TRUE(reports.mention("belongs to another image"));
}

TEST_F(VqubeTest, ADamagedCodebookIsRefusedAndLeftAlone) {
    const Cube cube = randomCube(4, 3, 2, 5, 4);
    make(cube);
    const std::string good = hosttest::contentsOf(name + ".ks");
    const char* const damages[] = {
        "UPDATE codebook SET vectors=6",
        "UPDATE codebook SET vectors=4",
        "UPDATE codebook SET vectors=70000",
        "UPDATE codebook SET bands=0",
        "UPDATE codebook SET bands=-2",
        "UPDATE codebook SET data_type=9",
        "UPDATE codebook SET data_type=3",
        "UPDATE codebook SET checksum=checksum+1",
        "UPDATE code_vectors SET components=x'00'",
        "UPDATE code_vectors SET components=zeroblob(41)",
        "UPDATE code_vectors SET components=zeroblob(39)",
        "UPDATE code_vectors SET components=zeroblob(40)",
        "UPDATE code_vectors SET components='some text that is forty bytes long, so!!'",
        "UPDATE code_vectors SET components=7",
        "UPDATE code_vectors SET components=zeroblob(0)",
        "UPDATE code_vectors SET first=1",
        "UPDATE code_vectors SET first=-1",
        "INSERT INTO code_vectors VALUES (5, zeroblob(8))",
        "DELETE FROM code_vectors",
    };
    for (const char* damage : damages) {
        hosttest::write(name + ".ks", good);
        {
            OtherProgram other(name + ".ks");
            other.run(damage);
        }
        const std::string damaged = hosttest::contentsOf(name + ".ks");
        for (const char* access : {"r", "r+"}) {
            EXPECT_EQ(Open(name, access), nullptr) << damage;
            EXPECT_NE(onlyReport().find("damaged codebook"), std::string::npos) << damage;
        }
        EXPECT_EQ(putCodebook(name, cube), 0);
        onlyReport();
        EXPECT_EQ(hosttest::contentsOf(name + ".ks"), damaged) << damage;
    }
    hosttest::write(name + ".ks", good);
    expectHolds(name, cube);
}

TEST_F(VqubeTest, DamageAnywhereInTheSidecarNeverCrashes) {
    const Cube cube = randomCube(4, 3, 20, 500, 4);
    make(cube);
    const std::string good = hosttest::contentsOf(name + ".ks");
    std::mt19937 random(5);
    int opened = 0;
    for (int trial = 0; trial < 200; ++trial) {
        std::string bytes = good;
        for (int i = 0; i < 3; ++i) bytes[random() % bytes.size()] = static_cast<char>(random());
        hosttest::write(name + ".ks", bytes);
        const Open fp(name, "r");
        if (fp == nullptr || GDBChanNum(fp) != 20) continue;
        ++opened;
        // Whatever is still taken for the codebook is the one that was stored.
        EXPECT_EQ(codebookOf(fp, cube), cube.codebook);
    }
    EXPECT_LT(opened, 150);
}

TEST_F(VqubeTest, AFullDiskKeepsTheOldCodebook) {
    const Cube cube = randomCube(4, 3, 40, 300, 4);
    make(cube);
    const Cube other = randomCube(4, 3, 40, 300, 4, 9);
    const Open fp(name, "r+");
    for (const rlim_t limit : {rlim_t{0}, rlim_t{600}, rlim_t{20000}}) {
        int stored = -1;
        {
            const FullDisk full(limit);
            stored = putCodebook(name, other);
        }
        EXPECT_EQ(stored, 0) << limit;
        expectReport("no room");
        EXPECT_EQ(codebookOf(fp, cube), cube.codebook) << limit;
        expectHolds(name, cube);
    }
    EXPECT_EQ(putCodebook(name, other), 1);
    EXPECT_EQ(codebookOf(fp, cube), other.codebook);
}

TEST_F(VqubeTest, AFullDiskFailsAPutOfIndexes) {
    const Cube cube = randomCube(400, 300, 1, 30, 1);
    make(cube);
    const Cube other = randomCube(400, 300, 1, 30, 1, 9);
    int stored = -1;
    {
        const FullDisk full(1000);
        stored = putIndexes(name, other);
    }
    EXPECT_EQ(stored, 0);
    expectReport("the index map cannot be stored");
    EXPECT_EQ(putIndexes(name, other), 1);
    const Open fp(name, "r");
    EXPECT_EQ(indexesOf(fp, 0, 0, 400, 300), other.indexes);
}

TEST_F(VqubeTest, WhatMayNotBeWrittenRefusesPuts) {
    const Cube cube = randomCube(4, 3, 2, 5, 4);
    make(cube);
    chmod(name.c_str(), 0444);
    chmod((name + ".ks").c_str(), 0444);
    chmod(folder.path().c_str(), 0555);
    const Cube other = randomCube(4, 3, 2, 5, 4, 9);
    EXPECT_TRUE(succeeded(asNobody([&] {
        if (putCodebook(name, other) != 0 || putIndexes(name, other) != 0) return 1;
        return KSHostErrorCount() == 2 ? 0 : 2;
    })));
    chmod(folder.path().c_str(), 0755);
    expectHolds(name, cube);
}

class KilledWhilePutting : public VqubeTest, public testing::WithParamInterface<Fault> {};
INSTANTIATE_TEST_SUITE_P(Kills, KilledWhilePutting,
                         testing::Values(Fault::kKillBefore, Fault::kKillAfter, Fault::kKillTorn));

TEST_P(KilledWhilePutting, TheCodebookIsTheOldOneOrTheNewOne) {
    constexpr int kMostSteps = 500;
    const Cube older = randomCube(4, 3, 20, 100, 4, 1);
    Cube newer = randomCube(4, 3, 20, 100, 4, 2);
    newer.indexes = older.indexes;
    make(older);
    int kills = 0;
    int newStates = 0;
    for (int step = 1; step < kMostSteps; ++step) {
        ASSERT_EQ(putCodebook(name, older), 1);
        const int status = inChild([&] {
            const Open fp(name, "r+");
            const FaultVfs faults(GetParam(), step);
            return putCodebook(name, newer) == 1 ? 0 : 1;
        });
        const Open fp(name, "r");
        ASSERT_NE(fp, nullptr) << step;
        const Bytes found = codebookOf(fp, older);
        if (WIFEXITED(status)) {
            EXPECT_EQ(WEXITSTATUS(status), 0);
            EXPECT_EQ(found, newer.codebook);
            break;
        }
        ASSERT_EQ(WTERMSIG(status), SIGKILL);
        ++kills;
        newStates += found == newer.codebook ? 1 : 0;
        ASSERT_TRUE(found == older.codebook || found == newer.codebook) << step;
    }
    EXPECT_GT(kills, 5);
    EXPECT_LT(kills, kMostSteps - 1);
    if (GetParam() == Fault::kKillAfter) {
        EXPECT_GE(newStates, 1);
    }
}

TEST_F(VqubeTest, ACreationThatIsKilledLeavesNothingThatIsTakenForSomethingElse) {
    int kills = 0;
    for (int step = 1; step < 500; ++step) {
        for (const std::string& left : folder.names()) unlink((folder / left).c_str());
        const int status = inChild([&] {
            const FaultVfs faults(Fault::kKillTorn, step);
            return VQubeCreate(name.c_str(), 5, 4, 3, 40, 4) == 1 ? 0 : 1;
        });
        const Open fp(name, "r");
        ASSERT_NE(fp, nullptr) << step;
        const Cube shape = {5, 4, 3, 40, 4, {}, {}};
        if (GDBChanNum(fp) == 3)
            EXPECT_EQ(codebookOf(fp, shape), Bytes(480));
        else
            EXPECT_EQ(samplesOf(fp, 0, 0, 5, 4, {1}, 5, 4), std::vector<float>(20));
        if (!WIFEXITED(status)) {
            ++kills;
            continue;
        }
        EXPECT_EQ(WEXITSTATUS(status), 0);
        EXPECT_EQ(GDBChanNum(fp), 3);
        break;
    }
    EXPECT_GT(kills, 5);
    EXPECT_TRUE(reports.all.empty());
}

// ---- the sidecar's format ----

namespace {

int versionOf(const std::string& path) {
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    int version = -1;
    sqlite3_exec(
        db, "PRAGMA user_version",
        [](void* to, int, char** values, char**) { return *static_cast<int*>(to) = std::atoi(values[0]), 0; }, &version,
        nullptr);
    sqlite3_close(db);
    return version;
}

/// A commit of one file-level entry.
kshost::SidecarChanges entry(const std::string& text) {
    kshost::SidecarChanges changes;
    changes.image.width = 4;
    changes.image.height = 3;
    changes.image.channels = 2;
    changes.lists[{1, -1}] = kshost::StringList({text});
    return changes;
}

}  // namespace

TEST_F(VqubeTest, ASidecarOfTheFirstFormatIsReadAndUpgradedWhenACodebookNeedsIt) {
    const std::string path = name + ".ks";
    kshost::SidecarContent content;
    ASSERT_EQ(kshost::commitSidecar(path, entry("state=first"), content), "");
    {
        OtherProgram other(path);
        other.run("DROP TABLE codebook; DROP TABLE code_vectors; PRAGMA user_version=1");
    }
    std::string why;
    const auto first = kshost::readSidecar(path, why);
    ASSERT_TRUE(first) << why;
    EXPECT_EQ(first->lists.at({1, -1}).entries(), Names{"state=first"});
    EXPECT_EQ(first->codebook, nullptr);

    content = *first;
    ASSERT_EQ(kshost::commitSidecar(path, entry("state=second"), content), "");
    EXPECT_EQ(versionOf(path), 1);

    kshost::SidecarChanges changes = entry("state=third");
    changes.codebook = std::make_shared<kshost::Codebook>(kshost::Codebook{2, 2, 1, {1, 2, 3, 4}});
    ASSERT_EQ(kshost::commitSidecar(path, changes, content), "");
    EXPECT_EQ(versionOf(path), 2);
    const auto third = kshost::readSidecar(path, why);
    ASSERT_TRUE(third) << why;
    EXPECT_EQ(third->lists.at({1, -1}).entries(), Names{"state=third"});
    ASSERT_NE(third->codebook, nullptr);
    EXPECT_EQ(third->codebook->values, (Bytes{1, 2, 3, 4}));
}

TEST_F(VqubeTest, ASidecarThatVanishedIsMadeAnewWithItsCodebook) {
    const Cube cube = randomCube(4, 3, 2, 5, 4);
    make(cube);
    {
        const Open fp(name, "r+");
        unlink((name + ".ks").c_str());
        GDBWriteHistory(fp, 1, -1, "one more");
    }
    expectHolds(name, cube);
}
