// Statistics of an image of 320 x 256 pixels and 224 bands of uint16, read in blocks from a file whose pages are in
// memory. The plain loop is given all samples in memory as double precision, in the order in which they are summed.
#include <benchmark/benchmark.h>
#include <kslib.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <numeric>
#include <string>
#include <vector>

#include "kshost_app.h"

namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 256;
constexpr int kBands = 224;
constexpr std::size_t kPixels = std::size_t{kWidth} * kHeight;

/// An image in a folder of its own.
class Image {
public:
    Image() {
        ImageRegister();
        std::string pattern = (std::filesystem::temp_directory_path() / "bench-ksstats-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) std::abort();
        folder_ = pattern;
        const int channels[4] = {0, 0, kBands, 0};
        HostFile* file = IDBCreate(name().c_str(), kWidth, kHeight, channels, "PIXEL");
        std::vector<int> list(kBands);
        std::iota(list.begin(), list.end(), 1);
        std::vector<float> row(std::size_t{kWidth} * kBands);
        std::uint32_t state = 1;
        for (int y = 0; y < kHeight; ++y) {
            for (float& value : row) value = static_cast<float>((state = state * 1664525U + 1013904223U) >> 20U);
            GDBRealChanIOLow(file, 1, 0, y, kWidth, 1, row.data(), kWidth, 1, kBands, list.data());
            for (float value : row) values.push_back(static_cast<double>(value));
        }
        GDBClose(file);
        dataSet = KSOpen(name().c_str(), "r");
        if (dataSet == nullptr) std::abort();
    }
    ~Image() {
        KSClose(dataSet);
        std::filesystem::remove_all(folder_);
    }
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    KSDataSet* dataSet;
    std::vector<double> values;  // band vectors one after another

private:
    std::string name() const { return (folder_ / "image.img").string(); }
    std::filesystem::path folder_;
};

const Image& image() {
    static const Image theImage;
    return theImage;
}

void count(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kPixels));
    state.SetLabel("pixels");
}

void evaluate(benchmark::State& state, unsigned char members) {
    KSBandStats stats = {};
    if (KSAllocMembsBandStats(&stats, members, kBands) != 0) std::abort();
    image();
    for (auto _ : state) {
        KSEvalBandStats(image().dataSet, 0, nullptr, nullptr, &stats);
        benchmark::DoNotOptimize(stats.nNumSamples);
    }
    KSFreeMembsBandStats(&stats);
    count(state);
}

constexpr unsigned char kFour = KS_BS_MIN | KS_BS_MAX | KS_BS_MEAN | KS_BS_SD;

void minMaxMeanDeviation(benchmark::State& state) { evaluate(state, kFour); }
void withCovariance(benchmark::State& state) { evaluate(state, kFour | KS_BS_COV); }

void plainCovariance(benchmark::State& state) {
    std::vector<double> sums(std::size_t{kBands} * kBands);
    const std::vector<double>& values = image().values;
    for (auto _ : state) {
        for (std::size_t p = 0; p < kPixels; ++p) {
            const double* v = &values[p * kBands];
            for (std::size_t i = 0; i < kBands; ++i) {
                for (std::size_t j = i; j < kBands; ++j) sums[i * kBands + j] += v[i] * v[j];
            }
        }
        benchmark::DoNotOptimize(sums.data());
    }
    count(state);
}

BENCHMARK(minMaxMeanDeviation)->Unit(benchmark::kMillisecond);
BENCHMARK(withCovariance)->Unit(benchmark::kMillisecond);
BENCHMARK(plainCovariance)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
