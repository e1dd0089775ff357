// Raw cubes: every sample type, byte order and interleave, bit for bit against a plain loop over the file's bytes.
#include <fcntl.h>
#include <unistd.h>
#include <rawcube.hpp>

#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <random>
#include <tuple>

#include "hostkit.hpp"

using kshost::RawCube;
using kshost::RawLayout;
using kshost::SampleType;
using kshost::Transfer;

namespace {

constexpr SampleType kAllTypes[] = {SampleType::UInt8,  SampleType::Int16,   SampleType::UInt16,
                                    SampleType::Int32,  SampleType::UInt32,  SampleType::Int64,
                                    SampleType::UInt64, SampleType::Float32, SampleType::Float64};

enum Order { kBip, kBil, kBsq };

RawLayout makeLayout(const std::string& path, SampleType type, bool bigEndian, Order order, int width, int height,
                     int bands, std::int64_t offset) {
    const auto bytes = static_cast<std::int64_t>(kshost::sampleSize(type));
    RawLayout l;
    l.path = path;
    l.type = type;
    l.bigEndian = bigEndian;
    l.width = width;
    l.height = height;
    l.bands = bands;
    l.offset = offset;
    l.pixelStride = order == kBip ? bytes * bands : bytes;
    l.bandStride = order == kBip ? bytes : order == kBil ? bytes * width : bytes * width * height;
    l.lineStride = order == kBsq ? bytes * width : bytes * width * bands;
    return l;
}

// One sample out of bytes, the slow and obvious way.
float decode(const unsigned char* at, SampleType type, bool bigEndian) {
    const std::size_t size = kshost::sampleSize(type);
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < size; ++i) bits |= std::uint64_t{at[bigEndian ? size - 1 - i : i]} << (8 * i);
    switch (type) {
        case SampleType::UInt8:
            return static_cast<float>(static_cast<std::uint8_t>(bits));
        case SampleType::Int16:
            return static_cast<float>(static_cast<std::int16_t>(bits));
        case SampleType::UInt16:
            return static_cast<float>(static_cast<std::uint16_t>(bits));
        case SampleType::Int32:
            return static_cast<float>(static_cast<std::int32_t>(bits));
        case SampleType::UInt32:
            return static_cast<float>(static_cast<std::uint32_t>(bits));
        case SampleType::Int64:
            return static_cast<float>(static_cast<std::int64_t>(bits));
        case SampleType::UInt64:
            return static_cast<float>(bits);
        case SampleType::Float32: {
            const auto word = static_cast<std::uint32_t>(bits);
            float value;
            std::memcpy(&value, &word, sizeof value);
            return value;
        }
        case SampleType::Float64:
            break;
    }
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return static_cast<float>(value);
}

std::vector<float> slowRead(const std::string& bytes, const RawLayout& l, const Transfer& t) {
    std::vector<float> out;
    for (std::int64_t row = 0; row < t.bufHeight; ++row)
        for (std::int64_t i = 0; i < t.bufWidth; ++i)
            for (const int channel : t.channels) {
                const std::int64_t y = t.yOff + row * t.height / t.bufHeight;
                const std::int64_t x = t.xOff + i * t.width / t.bufWidth;
                const std::int64_t at = l.offset + x * l.pixelStride + y * l.lineStride + (channel - 1) * l.bandStride;
                out.push_back(decode(reinterpret_cast<const unsigned char*>(bytes.data()) + at, l.type, l.bigEndian));
            }
    return out;
}

// NaN equals any NaN; everything else must agree to the bit.
void expectSame(const std::vector<float>& expected, const std::vector<float>& actual) {
    ASSERT_EQ(expected.size(), actual.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (std::isnan(expected[i]) && std::isnan(actual[i])) continue;
        ASSERT_EQ(0, std::memcmp(&expected[i], &actual[i], sizeof(float)))
            << "sample " << i << ": " << expected[i] << " and " << actual[i];
    }
}

std::string randomBytes(std::size_t count, std::mt19937& random) {
    std::string bytes(count, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    return bytes;
}

int between(std::mt19937& random, int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); }

Transfer randomTransfer(std::mt19937& random, const RawLayout& l, bool reduced) {
    Transfer t{};
    t.xOff = between(random, 0, l.width - 1);
    t.yOff = between(random, 0, l.height - 1);
    t.width = between(random, 1, l.width - t.xOff);
    t.height = between(random, 1, l.height - t.yOff);
    t.bufWidth = reduced ? between(random, 1, t.width) : t.width;
    t.bufHeight = reduced ? between(random, 1, t.height) : t.height;
    const int kind = between(random, 0, 2);
    if (kind == 0) {
        t.channels.resize(static_cast<std::size_t>(l.bands));
        std::iota(t.channels.begin(), t.channels.end(), 1);
    } else if (kind == 1) {
        const int first = between(random, 1, l.bands);
        for (int c = first; c <= between(random, first, l.bands); ++c) t.channels.push_back(c);
    } else {
        for (int i = between(random, 1, 2 * l.bands); i > 0; --i) t.channels.push_back(between(random, 1, l.bands));
    }
    return t;
}

// What writing stores, from the definition: clamp, then nearest, ties to even.
template <class T>
T slowEncode(float value, float missing) {
    if (std::is_floating_point_v<T>) return static_cast<T>(value);
    const long double v = std::isnan(value) ? missing : value;
    const auto low = static_cast<long double>(std::numeric_limits<T>::min());
    const auto high = static_cast<long double>(std::numeric_limits<T>::max());
    const long double cut = v < low ? low : v > high ? high : v;
    const long double below = std::floor(cut);
    const long double rest = cut - below;
    const bool up = rest > 0.5L || (rest == 0.5L && std::fmod(below, 2.0L) != 0.0L);
    return static_cast<T>(up ? below + 1.0L : below);
}

template <class T>
std::string bytesOf(T value, bool bigEndian) {
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    if (bigEndian) std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

std::string slowStored(SampleType type, float value, float missing, bool bigEndian) {
    switch (type) {
        case SampleType::UInt8:
            return bytesOf(slowEncode<std::uint8_t>(value, missing), bigEndian);
        case SampleType::Int16:
            return bytesOf(slowEncode<std::int16_t>(value, missing), bigEndian);
        case SampleType::UInt16:
            return bytesOf(slowEncode<std::uint16_t>(value, missing), bigEndian);
        case SampleType::Int32:
            return bytesOf(slowEncode<std::int32_t>(value, missing), bigEndian);
        case SampleType::UInt32:
            return bytesOf(slowEncode<std::uint32_t>(value, missing), bigEndian);
        case SampleType::Int64:
            return bytesOf(slowEncode<std::int64_t>(value, missing), bigEndian);
        case SampleType::UInt64:
            return bytesOf(slowEncode<std::uint64_t>(value, missing), bigEndian);
        case SampleType::Float32:
            return bytesOf(value, bigEndian);
        case SampleType::Float64:
            break;
    }
    return bytesOf(static_cast<double>(value), bigEndian);
}

std::vector<float> interestingValues(std::size_t count, std::mt19937& random) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const float special[] = {0.0F,
                             -0.0F,
                             0.5F,
                             1.5F,
                             2.5F,
                             -0.5F,
                             -1.5F,
                             254.5F,
                             255.4F,
                             255.5F,
                             255.6F,
                             32766.5F,
                             32767.4F,
                             32768.0F,
                             65534.5F,
                             65535.0F,
                             65535.5F,
                             -32768.5F,
                             -32769.0F,
                             1e9F,
                             -1e9F,
                             2147483648.0F,
                             4294967296.0F,
                             9.3e18F,
                             -9.3e18F,
                             1.9e19F,
                             kInfinity,
                             -kInfinity,
                             std::numeric_limits<float>::quiet_NaN(),
                             3.4e38F,
                             -3.4e38F,
                             1e-40F,
                             1e-30F,
                             8388609.0F};
    std::vector<float> values(count);
    for (float& value : values) {
        const int kind = between(random, 0, 3);
        if (kind == 0)
            value = special[static_cast<std::size_t>(between(random, 0, static_cast<int>(std::size(special)) - 1))];
        else
            value = std::uniform_real_distribution<float>(-1.0F, 1.0F)(random) * (kind == 1 ? 300.0F : 70000.0F);
    }
    return values;
}

class EveryLayout : public testing::TestWithParam<std::tuple<SampleType, bool, Order>> {
protected:
    hosttest::TemporaryFolder folder;
    std::mt19937 random{static_cast<unsigned>(std::get<0>(GetParam())) * 8 + (std::get<1>(GetParam()) ? 4U : 0U) +
                        static_cast<unsigned>(std::get<2>(GetParam()))};

    RawLayout layout(int width, int height, int bands, std::int64_t offset) {
        const auto [type, bigEndian, order] = GetParam();
        return makeLayout(folder / "cube", type, bigEndian, order, width, height, bands, offset);
    }
    std::string fill(const RawLayout& l) {
        std::string bytes = randomBytes(static_cast<std::size_t>(l.fileSize()), random);
        hosttest::write(l.path, bytes);
        return bytes;
    }
};

TEST_P(EveryLayout, RandomWindowsAndReductionsReadAsThePlainLoop) {
    for (const auto& [width, height, bands, offset] :
         {std::tuple{1, 1, 1, 0}, {37, 11, 5, 13}, {130, 9, 33, 0}, {3, 40, 70, 4096}, {64, 3, 16, 1}, {1, 7, 40, 2}}) {
        const RawLayout l = layout(width, height, bands, offset);
        const std::string bytes = fill(l);
        const RawCube cube(l, false);
        EXPECT_EQ("", cube.shortness());
        for (int round = 0; round < 12; ++round) {
            const Transfer t = randomTransfer(random, l, round % 2 == 1);
            const std::vector<float> expected = slowRead(bytes, l, t);
            std::vector<float> actual(expected.size(), -7.0F);
            ASSERT_EQ("", cube.read(t, actual.data()));
            expectSame(expected, actual);
        }
    }
}

TEST_P(EveryLayout, WrittenSamplesAreClampedAndRoundedAndNothingElseChanges) {
    const auto [type, bigEndian, order] = GetParam();
    for (const auto& [width, height, bands, offset] :
         {std::tuple{37, 11, 5, 13}, {70, 4, 33, 0}, {1, 1, 1, 0}, {5, 3, 20, 7}}) {
        const RawLayout l = layout(width, height, bands, offset);
        std::string bytes = fill(l);
        for (int round = 0; round < 6; ++round) {
            Transfer t = randomTransfer(random, l, false);
            // A channel that is written twice would have two values: each one once.
            std::sort(t.channels.begin(), t.channels.end());
            t.channels.erase(std::unique(t.channels.begin(), t.channels.end()), t.channels.end());
            if (round % 2 == 1) std::shuffle(t.channels.begin(), t.channels.end(), random);
            if (round % 3 == 0)
                for (std::size_t c = 0; c < t.channels.size(); ++c)
                    t.missing.push_back(static_cast<float>(c % 100) + 0.25F);
            const std::size_t pixels = static_cast<std::size_t>(t.width) * static_cast<std::size_t>(t.height);
            const std::vector<float> values = interestingValues(pixels * t.channels.size(), random);
            {
                RawCube cube(l, true);
                ASSERT_EQ("", cube.write(t, values.data()));
                ASSERT_EQ("", cube.flush());
            }
            std::size_t i = 0;
            for (int y = 0; y < t.height; ++y)
                for (int x = 0; x < t.width; ++x)
                    for (std::size_t c = 0; c < t.channels.size(); ++c, ++i) {
                        const std::string stored =
                            slowStored(type, values[i], t.missing.empty() ? 0.0F : t.missing[c], bigEndian);
                        const std::int64_t at = l.offset + (t.xOff + x) * l.pixelStride + (t.yOff + y) * l.lineStride +
                                                (t.channels[c] - 1) * l.bandStride;
                        bytes.replace(static_cast<std::size_t>(at), stored.size(), stored);
                    }
            ASSERT_TRUE(bytes == hosttest::contentsOf(l.path))
                << "round " << round << " of " << width << " x " << height;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(RawCube, EveryLayout,
                         testing::Combine(testing::ValuesIn(kAllTypes), testing::Bool(),
                                          testing::Values(kBip, kBil, kBsq)));

// Larger than the reader's buffers in every direction.
TEST(RawCube, CubesLargerThanTheBuffersReadAsThePlainLoop) {
    hosttest::TemporaryFolder folder;
    std::mt19937 random(5);
    for (const Order order : {kBip, kBil, kBsq})
        for (const auto& [width, height, bands] :
             {std::tuple{300000, 2, 3}, {3, 70000, 4}, {20, 3, 20000}, {700, 40, 60}}) {
            const RawLayout l =
                makeLayout(folder / "cube", SampleType::UInt16, order == kBil, order, width, height, bands, 3);
            const std::string bytes = randomBytes(static_cast<std::size_t>(l.fileSize()), random);
            hosttest::write(l.path, bytes);
            const RawCube cube(l, false);
            for (const bool reduced : {false, true, true}) {
                Transfer t{0, 0, width, height, width, height, {}, {}};
                t.channels.resize(static_cast<std::size_t>(bands));
                std::iota(t.channels.begin(), t.channels.end(), 1);
                if (reduced) t = randomTransfer(random, l, true);
                if (t.channels.size() > static_cast<std::size_t>(bands))
                    t.channels.resize(static_cast<std::size_t>(bands));
                const std::vector<float> expected = slowRead(bytes, l, t);
                std::vector<float> actual(expected.size());
                ASSERT_EQ("", cube.read(t, actual.data()));
                expectSame(expected, actual);
            }
        }
}

// Targets too large for the cache are written past it, by loops of their own.
TEST(RawCube, LargeTargetsReadAsThePlainLoop) {
    hosttest::TemporaryFolder folder;
    std::mt19937 random(9);
    int round = 0;
    for (const SampleType type : kAllTypes)
        for (const Order order : {kBip, kBil, kBsq}) {
            const RawLayout l = makeLayout(folder / "cube", type, ++round % 2 == 0, order, 701, 53, 61, 5);
            const std::string bytes = randomBytes(static_cast<std::size_t>(l.fileSize()), random);
            hosttest::write(l.path, bytes);
            const RawCube cube(l, false);
            Transfer t{0, 0, 701, 53, 701, 53, {}, {}};
            t.channels.resize(61);
            std::iota(t.channels.begin(), t.channels.end(), 1);
            if (round % 5 == 0) std::reverse(t.channels.begin(), t.channels.end());
            const std::vector<float> expected = slowRead(bytes, l, t);
            // Not at the start of a cache line, as a caller's buffer may be.
            std::vector<float> actual(expected.size() + 1);
            ASSERT_EQ("", cube.read(t, actual.data() + 1));
            actual.erase(actual.begin());
            expectSame(expected, actual);
        }
}

TEST(RawCube, AFileThatIsTooShortGivesWhatItHasAndAReasonForTheRest) {
    hosttest::TemporaryFolder folder;
    for (const Order order : {kBip, kBil, kBsq}) {
        const RawLayout l = makeLayout(folder / "cube", SampleType::Int16, false, order, 10, 10, 4, 0);
        std::mt19937 random(1);
        const std::string bytes = randomBytes(static_cast<std::size_t>(l.fileSize()), random);
        hosttest::write(l.path, bytes.substr(0, bytes.size() - 1));
        RawCube cube(l, true);
        EXPECT_NE("", cube.shortness());
        const Transfer first{0, 0, 10, 9, 10, 9, {1, 2, 3}, {}};
        std::vector<float> buffer(10 * 9 * 3);
        ASSERT_EQ("", cube.read(first, buffer.data()));
        expectSame(slowRead(bytes, l, first), buffer);
        const Transfer last{9, 9, 1, 1, 1, 1, {4}, {}};
        EXPECT_NE(std::string::npos, cube.read(last, buffer.data()).find("the file ends at byte 799"));
        EXPECT_NE("", cube.write(first, buffer.data()));
        EXPECT_EQ(799U, hosttest::contentsOf(l.path).size());
    }
}

TEST(RawCube, SizesThatOverflowAreRefused) {
    constexpr int kMost = std::numeric_limits<int>::max();
    RawLayout l = makeLayout("nowhere", SampleType::Float64, false, kBsq, 2, 2, 2, 0);
    EXPECT_EQ("", l.problem());
    l.width = l.height = kMost;
    l.lineStride = std::int64_t{8} * kMost;
    l.bandStride = std::numeric_limits<std::int64_t>::max();
    EXPECT_NE("", l.problem());
    EXPECT_THROW(RawCube(l, false), std::runtime_error);
}

TEST(RawCube, SamplesFarBeyondFourGigabytesAreFound) {
    hosttest::TemporaryFolder folder;
    // Sparse: 3 * 40000 * 70000 * 2 bytes are 15.6 GiB of which only a little is written.
    const RawLayout l = makeLayout(folder / "cube", SampleType::UInt16, false, kBsq, 40000, 70000, 3, 0);
    hosttest::write(l.path, "");
    ASSERT_EQ(0, truncate(l.path.c_str(), l.fileSize()));
    RawCube cube(l, true);
    const std::vector<float> values = {1, 2, 3, 4, 5, 6};
    const Transfer corner{39998, 69999, 2, 1, 2, 1, {1, 2, 3}, {}};
    ASSERT_EQ("", cube.write(corner, values.data()));
    std::vector<float> back(6);
    ASSERT_EQ("", cube.read(corner, back.data()));
    EXPECT_EQ(values, back);
    const int descriptor = open(l.path.c_str(), O_RDONLY);
    std::uint16_t last = 0;
    EXPECT_EQ(2, pread(descriptor, &last, 2, std::int64_t{2} * 3 * 40000 * 70000 - 2));
    close(descriptor);
    EXPECT_EQ(6, last);
}

TEST(RawCube, AFileOpenedForReadingRefusesWrites) {
    hosttest::TemporaryFolder folder;
    const RawLayout l = makeLayout(folder / "cube", SampleType::UInt8, false, kBip, 2, 2, 2, 0);
    hosttest::write(l.path, std::string(8, 'a'));
    RawCube cube(l, false);
    const float values[2] = {1, 2};
    EXPECT_EQ("the file was opened for reading only", cube.write({0, 0, 1, 1, 1, 1, {1, 2}, {}}, values));
    EXPECT_EQ(std::string(8, 'a'), hosttest::contentsOf(l.path));
}

}  // namespace
