// Removal of the across-track trend: results against a fit of its own in extended precision, and what is asked of the
// host and told to the user on the way, also where the task ends early.
#include <kslib.h>
#include <kslib/ksbrdfco.h>
#include <kslib/ksmatrix.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "bits.hpp"
#include "datasets.hpp"
#include "fixture.hpp"
#include "polynomial.hpp"

using namespace kit;

namespace {

using Window = std::array<int, 4>;
using Samples = std::vector<float>;

const std::string kName = "cube.img";
const std::string kSampling = "\nSampling the input channel(s)...\n";
const std::string kProcessing = "\nProcessing the output channel(s)...\n";
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

Report plainReport(int code, int severity, const std::string& text) { return {false, code, severity, text, "", text}; }
const Report kNoSelection = plainReport(-1, 0, "KSSelectBands () failed.\n");
const Report kNoHeight = plainReport(-1, 0, "KSLPS () failed\n");
const Report kNoWindow = plainReport(18, 0, "KSAllocWinEx failed.\n");
Report noReading(int line) {
    return {false, 62,
            1,     "Unable to read scanline %d\n so BRDFCOR will exit.\n",
            "",    "Unable to read scanline " + std::to_string(line) + "\n so BRDFCOR will exit.\n"};
}
Report noWriting(int line) {
    return {false, 62,
            1,     "Unable to write scanline %d\n so BRDFCOR will exit.\n",
            "",    "Unable to write scanline " + std::to_string(line) + "\n so BRDFCOR will exit.\n"};
}
Report tooFewColumns(int columns, int order) {
    return {false,
            81,
            0,
            "Only %d columns were sampled.\nThere must be more than %d columns sampled for ORDER = %d\n",
            "",
            "Only " + std::to_string(columns) + " columns were sampled.\nThere must be more than " +
                std::to_string(order + 1) + " columns sampled for ORDER = " + std::to_string(order) + "\n"};
}

// ---- the image ----

struct BRDFCorrectionTest : LibraryTest {
    int width = 24;
    int height = 10;
    int channels = 4;
    std::string printed;

    std::size_t at(int x, int y) const { return static_cast<std::size_t>(y * width + x); }
    FakeFile& file() const { return host().file(kName); }
    Samples samples(int channel) const { return file().channels.at(static_cast<std::size_t>(channel - 1)).samples; }

    /// Brightness that falls and rises across the columns, another way in every channel, and texture.
    void addScene() {
        host().addFile(kName, width, height, std::vector<int>(static_cast<std::size_t>(channels), 4));
        std::mt19937 engine(77U);
        std::uniform_real_distribution<float> texture(-25.0F, 25.0F);
        for (int c = 1; c <= channels; ++c) {
            for (int y = 0; y < height; ++y) {
                for (int x = 0; x < width; ++x) {
                    const auto t = static_cast<float>(x - 7 - c);
                    file().sample(c, x, y) = 500.0F * static_cast<float>(c) + 11.0F * t - 1.25F * t * t +
                                             0.03F * t * t * t + texture(engine);
                }
            }
        }
    }
    void addScene(int across, int down, int count) {
        width = across;
        height = down;
        channels = count;
        addScene();
    }
    void setWindows(const Window& sampled, const Window& corrected) const {
        host().windows["DBIW"] = sampled;
        host().windows["DBOW"] = corrected;
    }
    /// What is printed goes to `printed`, with a mark where the progress starts.
    void run(const std::vector<int>& list, int order) {
        const auto before = host().whenCalled;
        host().whenCalled = [before](const Call& call) {
            if (before) before(call);
            if (call.name == "IMPCounter" && call.arguments == "0, -1") std::printf("<start>");
        };
        testing::internal::CaptureStdout();
        BRDFCorrection(kName.c_str(), list.data(), static_cast<int>(list.size()), order);
        printed = testing::internal::GetCapturedStdout();
        host().whenCalled = before;
    }
    /// Does something once, at a call.
    static void when(const std::string& name, const std::string& arguments, const std::function<void()>& action) {
        host().whenCalled = [=, done = false](const Call& call) mutable {
            if (done || call.name != name || call.arguments != arguments) return;
            done = true;
            action();
        };
    }

    /// A channel's corrected values, as far as the window goes.
    std::vector<Exact> corrected(const Samples& in, const Window& sampled, int order, const Window& window,
                                 const Samples& before) const {
        std::vector<Exact> means;
        Exact overall = 0;
        for (int x = sampled[0]; x < sampled[0] + sampled[2]; ++x) {
            Exact sum = 0;
            for (int y = sampled[1]; y < sampled[1] + sampled[3]; ++y) sum += static_cast<Exact>(in[at(x, y)]);
            means.push_back(sum / sampled[3]);
            overall += means.back() / sampled[2];
        }
        const Polynomial trend(means, sampled[0], order);
        std::vector<Exact> out(before.begin(), before.end());
        for (int y = window[1]; y < window[1] + window[3]; ++y) {
            for (int x = window[0]; x < window[0] + window[2]; ++x) {
                out[at(x, y)] = static_cast<Exact>(in[at(x, y)]) - (trend.at(x) - overall);
            }
        }
        return out;
    }
    /// The same in the precision of each step, one value after another, for the bits.
    Samples stepByStep(const Samples& in, const Window& sampled, int order, const Window& window, Samples out) const {
        const int columns = sampled[2];
        MAT* powers = m_get(columns, order + 1);
        VEC* means = v_get(columns);
        float overall = 0.0F;
        for (int k = 0; k < columns; ++k) {
            double sum = 0.0;
            for (int y = sampled[1]; y < sampled[1] + sampled[3]; ++y) {
                sum += static_cast<double>(in[at(sampled[0] + k, y)]);
            }
            means->ve[k] = sum / sampled[3];
            overall = static_cast<float>(static_cast<double>(overall) + means->ve[k]);
            powers->me[k][0] = 1.0;
            for (int p = 1; p <= order; ++p) powers->me[k][p] = powers->me[k][p - 1] * (sampled[0] + k);
        }
        overall = overall / static_cast<float>(columns);
        VEC* diagonal = v_get(order + 1);
        VEC* fitted = v_get(order + 1);
        QRfactor(powers, diagonal);
        QRsolve(powers, diagonal, means, fitted);
        for (int x = window[0]; x < window[0] + window[2]; ++x) {
            Exact trend = 0;
            Exact power = 1;
            for (int p = 0; p <= order; ++p, power *= x) trend += static_cast<Exact>(fitted->ve[p]) * power;
            const float above = static_cast<float>(trend) - overall;
            for (int y = window[1]; y < window[1] + window[3]; ++y) out[at(x, y)] = in[at(x, y)] - above;
        }
        m_free(powers);
        for (VEC* vector : {means, diagonal, fitted}) v_free(vector);
        return out;
    }
    /// Compares with what single precision leaves of a value, at the scene's brightness.
    void expectNear(const Samples& found, const std::vector<Exact>& expected, Exact brightness = 2500) const {
        ASSERT_EQ(found.size(), expected.size());
        for (std::size_t i = 0; i < found.size(); ++i) {
            ASSERT_NEAR(static_cast<double>(found[i]), static_cast<double>(expected[i]),
                        static_cast<double>(brightness * 1e-6L))
                << "at " << i % static_cast<std::size_t>(width) << ", " << i / static_cast<std::size_t>(width);
        }
    }
    std::vector<Samples> allSamples() const {
        std::vector<Samples> all;
        for (int c = 1; c <= channels; ++c) all.push_back(samples(c));
        return all;
    }
    void expectSamples(const std::vector<Samples>& expected) const {
        for (int c = 1; c <= channels; ++c) {
            EXPECT_TRUE(sameBits(samples(c), expected[static_cast<std::size_t>(c - 1)])) << "channel " << c;
        }
    }
    Window whole() const { return {0, 0, width, height}; }
    /// A transfer as the host sees it: full pixels, no reduction.
    std::string transfer(int mode, int x, int y, int across, int down, const std::string& list) const {
        const int count = 1 + static_cast<int>(std::count(list.begin(), list.end(), ' '));
        const auto n = [](int value) { return std::to_string(value); };
        const std::string size = n(across) + ", " + n(down);
        return "GDBRealChanIOLow(" + kName + ", " + n(mode) + ", " + n(x) + ", " + n(y) + ", " + size + ", pointer, " +
               size + ", " + n(count) + ", " + list + ")";
    }
    Names transfers() const { return host().callsOf({"GDBRealChanIOLow"}); }
    /// The task ended before its last step, and the file is closed.
    void expectEndedEarly() const {
        EXPECT_EQ(host().count("GDBWriteHistory"), 0);
        EXPECT_EQ(host().count("GDBChanDescIO"), 0);
        ASSERT_FALSE(host().calls.empty());
        EXPECT_EQ(host().calls.back().name, "VQubeCleanUp") << "the data set goes last";
        EXPECT_EQ(host().count("GDBClose"), 1);
        EXPECT_EQ(host().liveHandles(), 0);
    }
};

// ---- results ----

TEST_F(BRDFCorrectionTest, TakesTheTrendAwayAndKeepsTheMean) {
    for (const int order : {0, 1, 2, 3, 4}) {
        SCOPED_TRACE(order);
        resetHost();
        addScene();
        const std::vector<Samples> before = allSamples();
        run({1, 2, 3, 4}, order);
        for (int c = 1; c <= channels; ++c) {
            const Samples& in = before[static_cast<std::size_t>(c - 1)];
            expectNear(samples(c), corrected(in, whole(), order, whole(), in));
        }
        EXPECT_EQ(host().reports, Reports{});
    }
}

TEST_F(BRDFCorrectionTest, EveryStepIsRoundedAsItIsStored) {
    // In the second scene high powers of far columns cancel: trends show in which precision they were summed.
    const struct {
        int across;
        Window sampled, corrected;
    } scenes[] = {{900, {411, 1, 367, 5}, {3, 2, 890, 4}}, {3000, {2931, 1, 61, 5}, {2900, 2, 100, 4}}};
    for (const auto& scene : scenes) {
        for (const int order : {0, 1, 3, 6}) {
            SCOPED_TRACE(testing::Message() << scene.across << " columns, order " << order);
            resetHost();
            addScene(scene.across, 7, 2);
            const std::vector<Samples> before = allSamples();
            setWindows(scene.sampled, scene.corrected);
            run({1, 2}, order);
            for (std::size_t c = 0; c < 2; ++c) {
                EXPECT_TRUE(sameBits(samples(static_cast<int>(c) + 1),
                                     stepByStep(before[c], scene.sampled, order, scene.corrected, before[c])));
            }
        }
    }
}

TEST_F(BRDFCorrectionTest, FitsTheSampledWindowAndCorrectsTheOther) {
    addScene();
    const std::vector<Samples> before = allSamples();
    const Window sampled = {5, 2, 13, 6};
    const Window window = {3, 1, 18, 7};
    setWindows(sampled, window);
    run({1, 2}, 2);
    expectNear(samples(1), corrected(before[0], sampled, 2, window, before[0]));
    expectNear(samples(2), corrected(before[1], sampled, 2, window, before[1]));
    for (int c = 1; c <= channels; ++c) {
        const Samples after = samples(c);
        const Samples& old = before[static_cast<std::size_t>(c - 1)];
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                const bool inside = c <= 2 && x >= 3 && x < 21 && y >= 1 && y < 8;
                if (inside) continue;
                EXPECT_EQ(after[at(x, y)], old[at(x, y)]) << c << ": " << x << ", " << y;
            }
        }
    }
}

TEST_F(BRDFCorrectionTest, AnExactPolynomialLeavesAFlatImage) {
    addScene(64, 6, 1);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            file().sample(1, x, y) = 100.0F + 3.0F * static_cast<float>(x) - 0.0625F * static_cast<float>(x * x);
        }
    }
    run({1}, 2);
    const Samples after = samples(1);
    const auto [least, most] = std::minmax_element(after.begin(), after.end());
    EXPECT_LT(*most - *least, 2e-4F);
}

TEST_F(BRDFCorrectionTest, OrderZeroReturnsTheInput) {
    addScene(8, 4, 2);  // sums of small integers over 8 columns and 4 lines are exact
    for (int c = 1; c <= 2; ++c) {
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) file().sample(c, x, y) = static_cast<float>((x * 7 + y * 3 + c) % 32);
        }
    }
    const std::vector<Samples> before = allSamples();
    run({1, 2}, 0);
    expectSamples(before);
    EXPECT_EQ(file().history.size(), 2U);
}

TEST_F(BRDFCorrectionTest, BandMeansAreSummedInSinglePrecision) {
    addScene(1000, 1, 1);
    std::fill(file().channels[0].samples.begin(), file().channels[0].samples.end(), 0.1F);
    float mean = 0.0F;
    for (int x = 0; x < width; ++x) mean = static_cast<float>(static_cast<double>(mean) + static_cast<double>(0.1F));
    mean /= 1000.0F;
    ASSERT_NE(mean, 0.1F);
    run({1}, 0);
    for (const float value : samples(1)) EXPECT_EQ(value, 0.1F - (0.1F - mean));
}

TEST_F(BRDFCorrectionTest, ValuesLandInTheFirstChannels) {
    addScene();
    const std::vector<Samples> before = allSamples();
    run({4, 2}, 2);
    expectNear(samples(1), corrected(before[1], whole(), 2, whole(), before[0]));  // bands in the order of the file
    expectNear(samples(2), corrected(before[3], whole(), 2, whole(), before[1]));
    EXPECT_TRUE(sameBits(samples(3), before[2]));
    EXPECT_TRUE(sameBits(samples(4), before[3]));
    EXPECT_EQ(host().callsOf({"GDBWriteHistory", "GDBChanDescIO"}),
              (Names{"GDBWriteHistory(cube.img, 2, 1, BRDFCOR: DBIC=2, ORDER=2)",
                     "GDBChanDescIO(cube.img, 1, 1, BRDFCOR: DBIC=2, ORDER=2)",
                     "GDBWriteHistory(cube.img, 2, 2, BRDFCOR: DBIC=4, ORDER=2)",
                     "GDBChanDescIO(cube.img, 1, 2, BRDFCOR: DBIC=4, ORDER=2)"}));
}

TEST_F(BRDFCorrectionTest, BandsAreInWavelengthOrder) {
    addScene();
    const char* centres[] = {"700", "600", "500", "400"};
    for (int c = 1; c <= channels; ++c) {
        file().set(kChannelLevel, c, "ResponseProfile_Type", "gaussian");
        file().set(kChannelLevel, c, "ResponseProfile_Centre", centres[c - 1]);
        file().set(kChannelLevel, c, "ResponseProfile_FWHM", "10");
    }
    const std::vector<Samples> before = allSamples();
    run({2, 3}, 1);
    expectNear(samples(2), corrected(before[2], whole(), 1, whole(), before[1]));  // 500 nm to the lower of 1 and 2
    expectNear(samples(1), corrected(before[1], whole(), 1, whole(), before[0]));
    EXPECT_EQ(file().history, (Names{"BRDFCOR: DBIC=3, ORDER=1", "BRDFCOR: DBIC=2, ORDER=1"}));
    EXPECT_EQ(file().channels[1].description, "BRDFCOR: DBIC=3, ORDER=1");
    EXPECT_EQ(file().channels[0].description, "BRDFCOR: DBIC=2, ORDER=1");
}

TEST_F(BRDFCorrectionTest, BandsAreCountedAmongTheChannelsThatAreBands) {
    addScene();
    for (int c = 2; c <= channels; ++c) file().set(kChannelLevel, c, "ID", std::to_string(c));
    const std::vector<Samples> before = allSamples();
    run({3, 2}, 1);  // two bands in, but of the first two channels only the second is a band
    const Names types = {"GDBChanType(cube.img, 2)", "GDBChanType(cube.img, 3)", "GDBChanType(cube.img, 4)"};
    EXPECT_EQ(host().callsOf({"GDBChanType"}), (Names{types[0], types[1], types[2], types[0], types[1]}));
    expectNear(samples(2), corrected(before[1], whole(), 1, whole(), before[1]));
    for (const int c : {1, 3, 4}) EXPECT_TRUE(sameBits(samples(c), before[static_cast<std::size_t>(c - 1)])) << c;
    EXPECT_EQ(host().callsOf({"GDBWriteHistory", "GDBChanDescIO"}),
              (Names{"GDBWriteHistory(cube.img, 2, 2, BRDFCOR: DBIC=1, ORDER=1)",
                     "GDBChanDescIO(cube.img, 1, 2, BRDFCOR: DBIC=1, ORDER=1)"}));
}

TEST_F(BRDFCorrectionTest, WorksOnCalibratedValues) {
    addScene();
    file().set(kFileLevel, kWholeFile, "NumberOfRadTrans", "1");
    const std::vector<float> gains = {0.25F, 0.5F, 2.0F, 4.0F};
    const std::vector<float> offsets = {-3.0F, 10.0F, 0.5F, 64.0F};
    for (int c = 1; c <= channels; ++c) {
        const auto i = static_cast<std::size_t>(c - 1);
        file().set(kChannelLevel, c, "RadiometricTrans_Gain_1", std::to_string(gains[i]));
        file().set(kChannelLevel, c, "RadiometricTrans_Offset_1", std::to_string(offsets[i]));
    }
    const std::vector<Samples> before = allSamples();
    const Window window = {2, 0, 20, 10};
    host().windows["DBOW"] = window;
    Samples input = before[2];
    for (float& value : input) value = 2.0F * value + 0.5F;
    Samples output = before[0];
    for (float& value : output) value = 0.25F * value - 3.0F;
    run({3}, 2);
    std::vector<Exact> expected = corrected(input, whole(), 2, window, output);
    for (Exact& value : expected) value = (value + 3) / 0.25L;
    expectNear(samples(1), expected, 4 * 4000);
}

TEST_F(BRDFCorrectionTest, EveryLineCountsWhateverItsValues) {
    for (const std::size_t odd : {0U, 1U}) {
        resetHost();
        addScene();
        file().channels[odd].samples[at(4, 3)] = kNaN;
        const std::vector<Samples> before = allSamples();
        run({1, 2}, 1);
        const Samples& other = before[1 - odd];
        expectNear(samples(2 - static_cast<int>(odd)), corrected(other, whole(), 1, whole(), other));
        for (const float value : file().channels[odd].samples)
            EXPECT_TRUE(std::isnan(value)) << "its mean is no number";
    }
}

// ---- blocks ----

TEST_F(BRDFCorrectionTest, ResultsDoNotDependOnTheBlocks) {
    addScene();
    run({1, 3}, 3);
    const std::vector<Samples> expected = allSamples();
    const int line = width * 2 * 4 + 4;
    for (const int memory : {0, line, 3 * line, 8 * line, 12 * line}) {
        resetHost();
        addScene();
        host().memory = memory;
        run({1, 3}, 3);
        expectSamples(expected);
    }
    resetHost();
    addScene();
    host().memoryFlag = 0;
    run({1, 3}, 3);
    expectSamples(expected);
}

TEST_F(BRDFCorrectionTest, StreamsInBlocksOfThreeQuartersAndThreeEighths) {
    addScene();
    const int line = width * 2 * 4 + 4;
    for (const auto& [memory, first, second] :
         std::vector<std::array<int, 3>>{{8 * line, 6, 3}, {8 * line - 1, 5, 2}}) {
        resetHost();
        addScene();
        host().memory = memory;
        setWindows({2, 1, width, height}, {3, 1, 4, 8});
        host().windows["DBIW"] = {0, 1, width, 9};
        run({1, 3}, 1);
        Names expected;
        for (int y = 1; y < 10; y += first) {
            expected.push_back(transfer(0, 0, y, width, std::min(first, 10 - y), "[1 3]"));
        }
        for (int y = 1; y < 9; y += second) {
            const int lines = std::min(second, 9 - y);
            expected.push_back(transfer(0, 0, y, width, lines, "[1 3]"));
            expected.push_back(transfer(0, 0, y, width, lines, "[1 2]"));
            expected.push_back(transfer(1, 0, y, width, lines, "[1 2]"));
        }
        EXPECT_EQ(transfers(), expected);
    }
}

TEST_F(BRDFCorrectionTest, SamplesOnlyItsWindow) {
    addScene();
    setWindows({5, 2, 13, 6}, {0, 4, 24, 1});
    run({2}, 1);
    EXPECT_EQ(transfers(), (Names{transfer(0, 5, 2, 13, 6, "[2]"), transfer(0, 0, 4, 24, 1, "[2]"),
                                  transfer(0, 0, 4, 24, 1, "[1]"), transfer(1, 0, 4, 24, 1, "[1]")}));
}

// ---- order of things ----

TEST_F(BRDFCorrectionTest, AsksTheHostInOrder) {
    addScene(4, 4, 3);
    host().windows["DBOW"] = {0, 1, 4, 2};
    run({1, 2}, 1);
    const std::string read = transfer(0, 0, 1, 4, 2, "[1 2]");
    EXPECT_EQ(host().callsOf({"GDBOpen", "CheckWin", "CheckChan", "GDBChanType", "IMPGetMemory", "IMPCounter",
                              "GDBRealChanIOLow", "GDBWriteHistory", "GDBChanDescIO", "GDBClose", "IMPError",
                              "IMPErrChar", "Debug"}),
              (Names{"GDBOpen(cube.img, r+)",
                     "GDBChanType(cube.img, 1)",
                     "GDBChanType(cube.img, 2)",
                     "GDBChanType(cube.img, 3)",
                     "CheckWin(cube.img, DBIW)",
                     "CheckWin(cube.img, DBOW)",
                     "CheckChan(cube.img, DBIC, [1 2])",
                     "GDBChanType(cube.img, 1)",
                     "GDBChanType(cube.img, 2)",
                     "IMPGetMemory()",
                     "IMPCounter(0, -1)",
                     transfer(0, 0, 0, 4, 4, "[1 2]"),
                     "IMPCounter(0, 0.25)",
                     "IMPCounter(0, 0.5)",
                     "IMPCounter(0, 0.75)",
                     "IMPCounter(0, 1)",
                     "IMPCounter(0, 2)",
                     "IMPGetMemory()",
                     "IMPCounter(0, -1)",
                     read,
                     read,
                     "IMPCounter(0, 0.25)",
                     transfer(1, 0, 1, 4, 2, "[1 2]"),
                     "IMPCounter(0, 0.5)",
                     "IMPCounter(0, 2)",
                     "GDBWriteHistory(cube.img, 2, 1, BRDFCOR: DBIC=1, ORDER=1)",
                     "GDBChanDescIO(cube.img, 1, 1, BRDFCOR: DBIC=1, ORDER=1)",
                     "GDBWriteHistory(cube.img, 2, 2, BRDFCOR: DBIC=2, ORDER=1)",
                     "GDBChanDescIO(cube.img, 1, 2, BRDFCOR: DBIC=2, ORDER=1)",
                     "GDBClose(cube.img)"}));
    EXPECT_EQ(file().channels[0].description, "BRDFCOR: DBIC=1, ORDER=1");
    EXPECT_EQ(file().channels[2].description, "");
}

TEST_F(BRDFCorrectionTest, ClosingWritesTheMetadataBack) {
    addScene(4, 4, 1);
    run({1}, 1);
    const std::vector<Call>& calls = host().calls;
    const auto described =
        std::find_if(calls.begin(), calls.end(), [](const Call& c) { return c.name == "GDBChanDescIO"; });
    ASSERT_NE(described, calls.end());
    const int written = static_cast<int>(std::count_if(described, calls.end(), [](const Call& call) {
        return call.name == "GDBMetaDataIO" && call.arguments.compare(0, 12, "cube.img, 1,") == 0;
    }));
    EXPECT_EQ(written, 2) << "the file's list and the channel's";
}

TEST_F(BRDFCorrectionTest, PrintsWhatItDoesBeforeTheProgressStarts) {
    addScene();
    run({1}, 1);
    EXPECT_EQ(printed, kSampling + "<start>" + kProcessing + "<start>");
    EXPECT_EQ(kSampling, "\nSampling the input channel(s)...\n");
    EXPECT_EQ(kProcessing, "\nProcessing the output channel(s)...\n");
}

// ---- reports ----

TEST_F(BRDFCorrectionTest, AFileThatDoesNotOpenIsReportedByItsParameter) {
    const int list[] = {1};
    BRDFCorrection("nowhere.img", list, 1, 1);
    EXPECT_EQ(host().reports, (Reports{missingFile("%s: FILE: %s\n", "KSOpen()", "nowhere.img"),
                                       {false, 159, 1, "", "FILI", "nowhere.img"}}));
    EXPECT_EQ(host().callNames().back(), "IMPErrChar");
    EXPECT_EQ(host().argumentsOf("IMPErrChar"), "159, 1, FILI, nowhere.img");
    EXPECT_EQ(host().count("CheckWin"), 0);
}

TEST_F(BRDFCorrectionTest, TooFewColumnsAreReportedAndTheFitRuns) {
    for (const auto& [columns, order] : std::vector<std::pair<int, int>>{{3, 2}, {2, 2}, {2, 3}, {1, 0}, {1, 2}}) {
        SCOPED_TRACE(testing::Message() << columns << " columns, order " << order);
        resetHost();
        addScene();
        const Samples before = samples(1);
        setWindows({6, 0, columns, height}, {6, 0, columns, height});
        run({1}, order);
        EXPECT_EQ(host().reports, (Reports{tooFewColumns(columns, order)}));
        EXPECT_EQ(file().history.size(), 1U);
        // The trend meets every sampled column mean, of which it keeps the overall one.
        std::vector<Exact> means;
        Exact overall = 0;
        for (int x = 6; x < 6 + columns; ++x) {
            Exact sum = 0;
            for (int y = 0; y < height; ++y) sum += static_cast<Exact>(before[at(x, y)]);
            means.push_back(sum / height);
            overall += means.back() / columns;
        }
        std::vector<Exact> expected(before.begin(), before.end());
        for (int y = 0; y < height; ++y) {
            for (int x = 6; x < 6 + columns; ++x) {
                expected[at(x, y)] += overall - means[static_cast<std::size_t>(x - 6)];
            }
        }
        expectNear(samples(1), expected);
    }
}

TEST_F(BRDFCorrectionTest, JustEnoughColumnsAreNotReported) {
    for (int order = 0; order < 4; ++order) {
        resetHost();
        addScene();
        host().windows["DBIW"] = {6, 0, order + 2, height};
        run({1}, order);
        EXPECT_EQ(host().reports, Reports{});
    }
}

TEST_F(BRDFCorrectionTest, NoBandsAreNoHeightAndNoWindow) {
    addScene();
    const std::vector<Samples> before = allSamples();
    for (const std::vector<int>& list : {std::vector<int>{9}, {0, -1}, {5, 6, 7}}) {
        host().forget();
        run(list, 1);
        EXPECT_EQ(host().reports, (Reports{failure("%s: nNumSelBands <= 0.\n", "KSLPS()"), kNoHeight,
                                           failure("%s: pWinEx->nYSize <= 0.\n", "KSAllocWinEx()")}));
        EXPECT_EQ(printed, "");
        EXPECT_EQ(host().count("IMPCounter"), 0);
        expectEndedEarly();
    }
    expectSamples(before);
}

TEST_F(BRDFCorrectionTest, AnEmptySamplingWindowIsNoHeight) {
    addScene();
    const std::vector<Samples> before = allSamples();
    host().windows["DBIW"] = {0, 0, 0, 5};
    run({1}, 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: nNumXSamples <= 0.\n", "KSLPS()"), kNoHeight,
                                       failure("%s: pWinEx->nXSize <= 0.\n", "KSAllocWinEx()")}));
    expectEndedEarly();
    host().forget();
    host().windows["DBIW"] = {0, 0, 5, 0};
    run({1}, 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: nMaxLPS < 1.\n", "KSLPS()"), kNoHeight,
                                       failure("%s: pWinEx->nYSize <= 0.\n", "KSAllocWinEx()")}));
    expectEndedEarly();
    for (const Window& none : {Window{0, 0, -3, 5}, Window{0, 0, 5, -3}}) {
        host().forget();
        host().windows["DBIW"] = none;
        run({1}, 1);
        EXPECT_EQ(transfers(), Names{});
        expectEndedEarly();
    }
    expectSamples(before);
}

TEST_F(BRDFCorrectionTest, AFailedSelectionGoesOnWithoutBands) {
    addScene();
    const std::vector<Samples> before = allSamples();
    bool reached = false;
    for (int nth = 1; nth <= 12 && !reached; ++nth) {
        host().forget();
        when("CheckChan", "cube.img, DBIC, [1 2]", [nth] { refuseAllocation(nth); });
        run({1, 2}, 1);
        refuseAllocation(0);
        reached = !host().reports.empty() && host().reports[0] == kNoSelection;
        if (!reached) {
            EXPECT_EQ(host().reports, Reports{}) << "arrays end the task without a message";
            expectEndedEarly();
        }
    }
    ASSERT_TRUE(reached);
    EXPECT_EQ(host().reports, (Reports{kNoSelection, failure("%s: nNumSelBands <= 0.\n", "KSLPS()"), kNoHeight,
                                       failure("%s: pWinEx->nYSize <= 0.\n", "KSAllocWinEx()")}));
    expectEndedEarly();
    expectSamples(before);
}

TEST_F(BRDFCorrectionTest, AFailedSelectionOfTheOutputEndsWithoutWriting) {
    addScene();
    const std::vector<Samples> before = allSamples();
    host().windows["DBIW"] = {0, 0, 2, height};  // two columns: the report of the fit comes first
    bool reached = false;
    for (int nth = 1; nth <= 12 && !reached; ++nth) {
        host().forget();
        when("IMPCounter", "0, 2", [nth] { refuseAllocation(nth); });  // sampling is done
        run({1, 2}, 1);
        refuseAllocation(0);
        ASSERT_FALSE(host().reports.empty());
        EXPECT_EQ(host().reports[0], tooFewColumns(2, 1));
        reached = host().reports.size() > 1 && host().reports[1] == kNoSelection;
        expectEndedEarly();
        if (reached) break;
        EXPECT_EQ(host().reports.size(), 1U) << "no list of channels, no message";
    }
    ASSERT_TRUE(reached);
    EXPECT_EQ(host().reports.back(), kNoWindow);
    expectEndedEarly();
    expectSamples(before);
}

TEST_F(BRDFCorrectionTest, AWindowThatCannotBeHadIsReported) {
    addScene();
    const std::vector<Samples> before = allSamples();
    const int line = width * 2 * 4 + 4;
    host().memory = 8 * line;
    const Reports expected = {failure("%s: pWinEx->pafSamples == NULL, HMalloc() failed.\n", "_KSAllocWinEx()"),
                              failure("%s: _KSAllocWinEx() failed.\n", "KSAllocWinEx()"), kNoWindow};
    // The first block is six lines, the second the other four.
    when("IMPCounter", "0, 0.6", [] { refuseAllocation(1); });
    run({1, 2}, 1);
    EXPECT_EQ(host().reports, expected);
    EXPECT_EQ(host().count("IMPCounter"), 1 + 6) << "progress is not finished";
    EXPECT_EQ(printed, kSampling + "<start>");
    expectEndedEarly();
    expectSamples(before);
    // While processing the blocks are three lines, the last is one.
    host().forget();
    int asked = 0;
    host().whenCalled = [&asked](const Call& call) {
        if (call.name == "IMPGetMemory" && ++asked == 2) refuseAllocation(1);
    };
    run({1, 2}, 1);
    EXPECT_EQ(host().reports, expected);
    EXPECT_EQ(printed, kSampling + "<start>") << "processing has not begun";
    expectEndedEarly();
    expectSamples(before);
    host().forget();
    int started = 0;
    host().whenCalled = [&started](const Call& call) {
        if (call.name == "IMPCounter" && call.arguments == "0, -1") ++started;
        if (started == 2 && call.name == "IMPCounter" && call.arguments == "0, 0.9") refuseAllocation(1);
    };
    run({1, 2}, 1);
    EXPECT_EQ(host().reports, expected);
    EXPECT_EQ(transfers().size(), 2U + 3U * 3U);
    expectEndedEarly();
}

TEST_F(BRDFCorrectionTest, TheFirstWindowIsLeftToItsOwnReports) {
    addScene();
    const std::vector<Samples> before = allSamples();
    when("IMPGetMemory", "", [] { refuseAllocation(1); });
    run({1, 2}, 1);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: pWinEx->pafSamples == NULL, HMalloc() failed.\n", "_KSAllocWinEx()"),
                       failure("%s: _KSAllocWinEx() failed.\n", "KSAllocWinEx()")}));
    EXPECT_EQ(printed, "");
    expectEndedEarly();
    expectSamples(before);
}

TEST_F(BRDFCorrectionTest, ALineThatCannotBeReadEndsTheTask) {
    addScene();
    const std::vector<Samples> before = allSamples();
    host().windows["DBIW"] = {0, 7, width, 5};
    run({1}, 1);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: pWinEx->nYOff (%d) + pWinEx->nYSize (%d) > pDataSet->nYSize (%d).\n",
                               "KSReadWinEx()", 7, 5, 10),
                       noReading(8)}));
    EXPECT_EQ(printed, kSampling + "<start>");
    EXPECT_EQ(host().callsOf({"IMPCounter"}), (Names{"IMPCounter(0, -1)"}));
    expectEndedEarly();
    host().forget();
    host().windows["DBIW"] = {15, 0, 10, 10};
    run({1}, 1);
    EXPECT_EQ(
        host().reports,
        (Reports{failure("%s: pWinEx->nXOff + pWinEx->nXSize > pDataSet->nXSize.\n", "KSReadWinEx()"), noReading(1)}));
    expectEndedEarly();
    expectSamples(before);
}

TEST_F(BRDFCorrectionTest, ALineThatCannotBeReadWhileProcessingEndsTheTask) {
    addScene();
    host().windows["DBOW"] = {0, 4, width, 9};
    host().memory = 8 * (width * 4 + 4);  // blocks of three lines
    run({1}, 1);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: pWinEx->nYOff (%d) + pWinEx->nYSize (%d) > pDataSet->nYSize (%d).\n",
                               "KSReadWinEx()", 10, 3, 10),
                       noReading(11)}));
    EXPECT_EQ(printed, kSampling + "<start>" + kProcessing + "<start>");
    EXPECT_EQ(host().callsOf({"IMPCounter"}).back(), "IMPCounter(0, 0.6)") << "six lines, and not finished";
    expectEndedEarly();
    EXPECT_EQ(transfers().back(), transfer(1, 0, 7, width, 3, "[1]")) << "blocks that were written stay";
}

TEST_F(BRDFCorrectionTest, ALineThatCannotBeWrittenEndsTheTask) {
    addScene();
    FakeVQ cube;
    cube.pixels = width;
    cube.lines = height;
    cube.channels = {1};
    cube.codeVectors = 2;
    file().vq = cube;
    const std::vector<Samples> before = allSamples();
    host().windows["DBOW"] = {0, 2, width, 5};
    run({2}, 1);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: window contains data for a band %d, which is not stored in explicit format.\n",
                               "KSWriteWinEx()", 1),
                       noWriting(7)}));
    EXPECT_EQ(host().callsOf({"IMPCounter"}).back(), "IMPCounter(0, 0.4)");
    expectEndedEarly();
    expectSamples(before);
}

// ---- what else can be given or fail ----

TEST_F(BRDFCorrectionTest, OrdersWithoutAPolynomialEndTheTask) {
    addScene();
    const std::vector<Samples> before = allSamples();
    for (const int order : {-1, -2, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        host().forget();
        run({1}, order);
        expectEndedEarly();
        expectSamples(before);
    }
}

TEST_F(BRDFCorrectionTest, NoChannelsChangeNothing) {
    addScene();
    const std::vector<Samples> before = allSamples();
    const int one = 1;
    for (const int count : {0, -1}) {
        for (const int* list : {&one, static_cast<const int*>(nullptr)}) {
            host().forget();
            host().whenCalled = nullptr;
            testing::internal::CaptureStdout();
            BRDFCorrection(kName.c_str(), list, count, 1);
            testing::internal::GetCapturedStdout();
            EXPECT_EQ(file().history, Names{});
            EXPECT_EQ(host().liveHandles(), 0);
            expectSamples(before);
        }
    }
}

TEST_F(BRDFCorrectionTest, AChannelGivenTwiceIsOneBand) {
    addScene();
    const std::vector<Samples> before = allSamples();
    run({2, 2}, 1);
    expectNear(samples(1), corrected(before[1], whole(), 1, whole(), before[0]));
    EXPECT_TRUE(sameBits(samples(2), before[1])) << "read and written back";
    EXPECT_EQ(file().history, Names{"BRDFCOR: DBIC=2, ORDER=1"});
}

TEST_F(BRDFCorrectionTest, TheOutputWindowIsClippedToTheImage) {
    addScene();
    const std::vector<Samples> before = allSamples();
    host().windows["DBOW"] = {20, 0, 100, 10};
    run({1}, 1);
    expectNear(samples(1), corrected(before[0], whole(), 1, {20, 0, 4, 10}, before[0]));
    resetHost();
    addScene();
    host().windows["DBOW"] = {-5, 3, 8, 2};
    run({1}, 1);
    expectNear(samples(1), corrected(before[0], whole(), 1, {0, 3, 3, 2}, before[0]));
    resetHost();
    addScene();
    host().windows["DBOW"] = {std::numeric_limits<int>::max(), 0, std::numeric_limits<int>::max(), 10};
    run({1}, 1);
    expectSamples(before);
}

TEST_F(BRDFCorrectionTest, AnEmptyOutputWindowStillTellsItsHistory) {
    addScene();
    const std::vector<Samples> before = allSamples();
    host().windows["DBOW"] = {0, 0, width, 0};
    run({1}, 1);
    expectSamples(before);
    EXPECT_EQ(file().history, Names{"BRDFCOR: DBIC=1, ORDER=1"});
}

TEST_F(BRDFCorrectionTest, RunningOutOfMemoryNeverLeavesTheFileOpen) {
    Reports seen;
    int nth = 0;
    for (bool refused = true; refused;) {
        resetHost();
        addScene();
        const std::vector<Samples> before = allSamples();
        file().set(kFileLevel, kWholeFile, "NumberOfRadTrans", "1");  // reading and writing then need memory too
        ++nth;
        ASSERT_LT(nth, 200);
        bool inside = false;
        bool struck = false;
        host().whenCalled = [&inside, &struck, nth](const Call& call) {
            if (call.name == "CheckChan") {
                refuseAllocation(nth);
                inside = true;
            }
            if (inside && (call.name == "GDBWriteHistory" || call.name == "GDBMetaDataIO")) {
                struck = allocationRefused();
                refuseAllocation(0);
                inside = false;
            }
        };
        run({1, 2}, 1);
        refused = struck;
        EXPECT_EQ(host().liveHandles(), 0) << nth;
        EXPECT_EQ(host().count("GDBClose"), 1) << nth;
        EXPECT_EQ(file().history.size(), refused ? 0U : 2U) << nth;
        if (refused) expectSamples(before);  // one block: nothing was written
        if (!host().reports.empty()) seen.push_back(host().reports.back());
    }
    for (const Report& report : {kNoWindow, noReading(1), noWriting(10)}) {
        EXPECT_NE(std::find(seen.begin(), seen.end(), report), seen.end()) << report;
    }
}

TEST_F(BRDFCorrectionTest, AMatrixThatCannotBeHadEndsTheTask) {
    for (const MatrixCall function : {MatrixCall::kMGet, MatrixCall::kVGet}) {
        int nth = 0;
        for (bool refused = true; refused;) {
            resetHost();
            addScene();
            const std::vector<Samples> before = allSamples();
            ++nth;
            ASSERT_LT(nth, 100);
            refuseMatrixCall(function, nth);
            run({1, 2}, 1);
            refused = matrixCalls(function) >= nth;
            refuseNoMatrixCall();
            EXPECT_EQ(host().reports, Reports{});
            if (!refused) break;
            EXPECT_EQ(printed, kSampling + "<start>");
            EXPECT_EQ(host().callsOf({"IMPCounter"}).back(), "IMPCounter(0, 2)");
            expectEndedEarly();
            expectSamples(before);
        }
        EXPECT_GT(nth, 2) << "a matrix for each band";
    }
}

}  // namespace
