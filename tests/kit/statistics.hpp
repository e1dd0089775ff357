// Band statistics for tests: records that free themselves, plain sums in the order of the samples, and images to take
// them from.
#pragma once

#include <kslib.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "bits.hpp"
#include "datasets.hpp"
#include "fixture.hpp"

namespace kit {

constexpr unsigned char kAllMembers = KS_BS_MIN | KS_BS_MAX | KS_BS_MEAN | KS_BS_SD | KS_BS_COV;
constexpr double kLargestFloat = 3.4028234663852886e38;
constexpr double kSmallestNormalFloat = 1.1754943508222875e-38;

/// A record with members, freed with it.
struct StatsRecord : KSBandStats {
    explicit StatsRecord(int bands, unsigned char members = kAllMembers) : KSBandStats{} {
        EXPECT_EQ(KSAllocMembsBandStats(this, members, bands), 0);
        nNumSamples = 777;
    }
    StatsRecord(const StatsRecord&) = delete;
    StatsRecord& operator=(const StatsRecord&) = delete;
    ~StatsRecord() { KSFreeMembsBandStats(this); }
};

/// The values of a record; absent members are empty.
struct Statistics {
    unsigned samples = 0;
    std::vector<double> minimum, maximum, mean, deviation, covariance;
};

inline std::vector<double> valuesOf(const VEC* vector) {
    return vector == nullptr ? std::vector<double>{} : std::vector<double>(vector->ve, vector->ve + vector->dim);
}

inline Statistics valuesOf(const KSBandStats& record) {
    Statistics values = {record.nNumSamples,     valuesOf(record.pMin), valuesOf(record.pMax),
                         valuesOf(record.pMean), valuesOf(record.pSD),  {}};
    for (unsigned i = 0; record.pCov != nullptr && i < record.pCov->m; ++i) {
        values.covariance.insert(values.covariance.end(), record.pCov->me[i], record.pCov->me[i] + record.pCov->n);
    }
    return values;
}

inline testing::AssertionResult sameBits(const char* what, const std::vector<double>& actual,
                                         const std::vector<double>& expected) {
    if (actual.size() != expected.size()) {
        return testing::AssertionFailure() << what << ": " << actual.size() << " values, not " << expected.size();
    }
    for (std::size_t i = 0; i < actual.size(); ++i) {
        const bool bothNaN = std::isnan(actual[i]) && std::isnan(expected[i]);
        if (!bothNaN && std::memcmp(&actual[i], &expected[i], sizeof(double)) != 0) {
            return testing::AssertionFailure() << what << "[" << i << "] is " << actual[i] << ", not " << expected[i];
        }
    }
    return testing::AssertionSuccess();
}

/// Compares everything to the bit.
inline testing::AssertionResult sameStatistics(const Statistics& actual, const Statistics& expected) {
    if (actual.samples != expected.samples) {
        return testing::AssertionFailure() << actual.samples << " samples, not " << expected.samples;
    }
    for (const auto& [what, member] :
         {std::pair("minimum", &Statistics::minimum), std::pair("maximum", &Statistics::maximum),
          std::pair("mean", &Statistics::mean), std::pair("deviation", &Statistics::deviation),
          std::pair("covariance", &Statistics::covariance)}) {
        const testing::AssertionResult same = sameBits(what, actual.*member, expected.*member);
        if (!same) return same;
    }
    return testing::AssertionSuccess();
}

/// How the extremes of no samples start, and what a variance below zero gives.
struct Rules {
    double minimum = kLargestFloat;
    double maximum = kSmallestNormalFloat;
    bool exact = false;  // as a user expects: extremes follow a not-a-number, no variance is negative
};

inline Rules exactRules() {
    constexpr double kInfinite = std::numeric_limits<double>::infinity();
    return {kInfinite, -kInfinite, true};
}

/// One value after another, one sample after another.
class PlainSums {
public:
    explicit PlainSums(std::size_t bands, const Rules& rules = {}) : rules_(rules) {
        sums_.minimum.assign(bands, rules.minimum);
        sums_.maximum.assign(bands, rules.maximum);
        sums_.mean.assign(bands, 0.0);
        sums_.deviation.assign(bands, 0.0);
        sums_.covariance.assign(bands * bands, 0.0);
    }

    void add(const std::vector<double>& sample) {
        const std::size_t bands = sample.size();
        for (std::size_t b = 0; b < bands; ++b) {
            extremes(b, sample[b]);
            sums_.mean[b] += sample[b];
            volatile const double square = sample[b] * sample[b];
            sums_.deviation[b] += square;
            for (std::size_t j = b; j < bands; ++j) {
                volatile const double product = sample[b] * sample[j];
                sums_.covariance[b * bands + j] += product;
            }
        }
        ++sums_.samples;
    }

    Statistics finished() const {
        Statistics values = sums_;
        const std::size_t bands = values.mean.size();
        if (values.samples == 0) return values;
        const double count = values.samples;
        for (double& mean : values.mean) mean /= count;
        for (std::size_t b = 0; b < bands; ++b) {
            values.deviation[b] = std::sqrt(variance(values.deviation[b], values.mean[b], values.mean[b], count, true));
            for (std::size_t j = b; j < bands; ++j) {
                double& covariance = values.covariance[b * bands + j];
                covariance = variance(covariance, values.mean[b], values.mean[j], count, b == j);
                values.covariance[j * bands + b] = covariance;
            }
        }
        return values;
    }

private:
    void extremes(std::size_t b, double value) {
        double& least = sums_.minimum[b];
        double& most = sums_.maximum[b];
        if (rules_.exact) {
            if (std::isnan(value) || value < least) least = value;
            if (std::isnan(value) || value > most) most = value;
            return;
        }
        if (least > value) least = value;
        if (!(most >= value)) most = value;
    }
    double variance(double sum, double a, double b, double count, bool ofOne) const {
        volatile const double square = a * b;
        const double value = sum / count - square;
        return rules_.exact && ofOne && value < 0.0 ? 0.0 : value;
    }

    Rules rules_;
    Statistics sums_;
};

/// A rectangle of pixels.
struct Area {
    int x, y, width, height;
};

/// The memory allowance with which a block has that many lines.
inline int memoryForLines(int lines, int samplesAcross, int bands) {
    constexpr int kShare = 4;  // of the allowance, a quarter is used
    return kShare * lines * (samplesAcross * bands * static_cast<int>(sizeof(float)) + 4);
}

/// A sample description over a band map of its own.
struct Sampling {
    std::vector<int> bandMap;
    int xInterval = 1;
    int yInterval = 1;
    KSSampDesc desc() {
        return {xInterval, yInterval, static_cast<int>(bandMap.size()), bandMap.empty() ? nullptr : bandMap.data()};
    }
};

/// An image with a data set on it.
struct StatisticsTest : LibraryTest {
    KSDataSet* dataSet = nullptr;
    int width = 0;
    int height = 0;
    int bands = 0;

    /// An image of the values in pixel order, bands fastest; one that was there is closed.
    void use(int across, int down, int count, const std::vector<float>& values) {
        close();
        width = across;
        height = down;
        bands = count;
        const std::string name = "cube " + std::to_string(++images_) + ".img";
        FakeFile& file = host().addFile(name, across, down, std::vector<int>(static_cast<std::size_t>(count), 4));
        std::size_t at = 0;
        for (int y = 0; y < down; ++y) {
            for (int x = 0; x < across; ++x) {
                for (int b = 1; b <= count; ++b) file.sample(b, x, y) = values.at(at++);
            }
        }
        dataSet = heapDataSet(count);
        dataSet->nXSize = across;
        dataSet->nYSize = down;
        dataSet->GDBFile = host().open(name);
    }
    /// The same with random values.
    void use(int across, int down, int count) {
        use(across, down, count, kindsOfData(static_cast<std::size_t>(across * down * count)).front().values);
    }
    void close() {
        if (dataSet == nullptr) return;
        host().calls.clear();
        GDBClose(dataSet->GDBFile);
        freeWhole(dataSet);
        dataSet = nullptr;
    }
    void TearDown() override {
        close();
        LibraryTest::TearDown();
    }

    float& stored(int x, int y, int band) const { return dataSet->GDBFile->file->sample(band + 1, x, y); }

    std::vector<int> everyBand() const {
        std::vector<int> map;
        for (int b = 0; b < bands; ++b) map.push_back(b);
        return map;
    }
    std::vector<double> sampleAt(int x, int y, const std::vector<int>& bandMap) const {
        std::vector<double> sample;
        for (const int band : bandMap) sample.push_back(static_cast<double>(stored(x, y, band)));
        return sample;
    }
    /// The lines of the transfers so far: "x, y, width, height, samples across, samples down".
    static Names transfers() {
        Names found;
        for (const Call& call : host().calls) {
            if (call.name != "GDBRealChanIOLow") continue;
            std::string text = call.arguments.substr(call.arguments.find(", 0, ") + 5);
            const std::size_t buffer = text.find("pointer, ");
            text.erase(buffer, 9);
            // What remains ends with the channel count and their list.
            text.resize(text.rfind(", ", text.rfind(", ") - 1));
            found.push_back(text);
        }
        return found;
    }

private:
    int images_ = 0;
};

/// A window of the reader: where it lies in the image, and its samples.
struct Block {
    int x, y, width, height, across, down;

    // The host takes the first pixel of each of the equal cells of a window.
    int column(int i) const { return x + i * width / across; }
    int row(int j) const { return y + j * height / down; }
};

inline std::vector<Block> blocksOf(const Area& area, int xInterval, int yInterval, int lines) {
    std::vector<Block> blocks;
    const int end = area.y + area.height;
    for (int y = area.y; y < end; y += lines * yInterval) {
        const int left = end - y;
        const int rows = y + lines * yInterval > end && left != lines ? left : lines;
        blocks.push_back({area.x, y, area.width, rows, area.width / xInterval, rows / yInterval});
    }
    return blocks;
}

struct EvaluationTest : StatisticsTest {
    /// The lines of a block when the allowance is that of the host.
    int linesFor(const Area& area, const Sampling& sampling) const {
        const int across = area.width / sampling.xInterval;
        const auto count = static_cast<int>(sampling.bandMap.size());
        const double budget = std::min(host().memory * 0.25, 20971520.0);
        const int fitting = static_cast<int>(budget) / (across * count * 4 + 4);
        return std::max(std::min(fitting, area.height / sampling.yInterval), 1);
    }
    Area whole() const { return {0, 0, width, height}; }

    Statistics expected(const Area& area, const Sampling& sampling, const KSROI* region = nullptr) const {
        PlainSums sums(sampling.bandMap.size());
        for (const Block& block : blocksOf(area, sampling.xInterval, sampling.yInterval, linesFor(area, sampling))) {
            for (int j = 0; j < block.down; ++j) {
                for (int i = 0; i < block.across; ++i) {
                    if (region != nullptr && !selects(*region, block, sampling, i, j)) continue;
                    sums.add(sampleAt(block.column(i), block.row(j), sampling.bandMap));
                }
            }
        }
        return sums.finished();
    }
    Statistics expectedDifferences(const Area& area, const Sampling& sampling, int dx, int dy,
                                   const KSROI* region = nullptr) const {
        PlainSums sums(sampling.bandMap.size());
        for (const Block& block : blocksOf(area, sampling.xInterval, sampling.yInterval, linesFor(area, sampling))) {
            // A region's last column and row are left out whatever the offset.
            const int endX = region == nullptr ? block.across - dx - 1 : block.across - 1;
            const int endY = region == nullptr ? block.down - dy - 1 : block.down - 1;
            for (int j = 0; j < endY; ++j) {
                for (int i = 0; i < endX; ++i) {
                    if (region != nullptr && !selects(*region, block, sampling, i, j)) continue;
                    std::vector<double> difference = sampleAt(block.column(i), block.row(j), sampling.bandMap);
                    const std::vector<double> other =
                        sampleAt(block.column(i + dx), block.row(j + dy), sampling.bandMap);
                    for (std::size_t b = 0; b < other.size(); ++b) difference[b] = std::fabs(difference[b] - other[b]);
                    sums.add(difference);
                }
            }
        }
        return sums.finished();
    }
    Statistics evaluated(Sampling sampling, const KSROI* region = nullptr, int level = 0) const {
        const KSSampDesc desc = sampling.desc();
        StatsRecord record(desc.nNumBands);
        EXPECT_EQ(KSEvalBandStats(dataSet, level, &desc, region, &record), 0);
        EXPECT_EQ(host().reports, Reports{});
        return valuesOf(record);
    }
    Statistics evaluatedDifferences(Sampling sampling, int dx, int dy, const KSROI* region = nullptr,
                                    int level = 0) const {
        const KSSampDesc desc = sampling.desc();
        StatsRecord record(desc.nNumBands);
        EXPECT_EQ(KSEvalDiffBandStats(dataSet, level, dx, dy, &desc, region, &record), 0);
        EXPECT_EQ(host().reports, Reports{});
        return valuesOf(record);
    }

private:
    static bool selects(const KSROI& region, const Block& block, const Sampling& sampling, int i, int j) {
        if (region.eROIType != KS_ROI_BITMAP) return true;
        const int x = block.x + i * sampling.xInterval - region.nXOff;
        const int y = block.y + j * sampling.yInterval - region.nYOff;
        const int index = y * region.nXSize + x;
        return (region.pbyBitmap[index / 8] >> (7 - index % 8) & 1) != 0;
    }
};

inline KSROI pointRegion(int x, int y, int size) { return {KS_ROI_POINT, x, y, size, -1, nullptr, -1}; }
inline KSROI rectangleRegion(int x, int y, int width, int height) {
    return {KS_ROI_RECTANGLE, x, y, width, height, nullptr, -1};
}

/// A bitmap region whose pixels follow a pattern, with its memory.
struct Bitmap {
    std::vector<unsigned char> bytes;
    KSROI region;

    Bitmap(const Area& area, const std::function<bool(int, int)>& holds)
        : bytes(static_cast<std::size_t>((area.width * area.height + 7) / 8)),
          region{KS_ROI_BITMAP, area.x, area.y, area.width, area.height, bytes.data(), -1} {
        for (int y = 0; y < area.height; ++y) {
            for (int x = 0; x < area.width; ++x) {
                if (holds(x, y)) KSSetROIBit(&region, x, y);
            }
        }
    }
    Bitmap(const Bitmap&) = delete;
    Bitmap& operator=(const Bitmap&) = delete;
};

}  // namespace kit
