// Encoding a window against a codebook of 256 vectors, and decoding it: 100 x 100 pixels of 198 bands, spectra that
// resemble each other as those of a scene do. compare_scipy.sh puts SciPy's cdist beside it, on the same values.
#include <benchmark/benchmark.h>
#include <kslib.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <numeric>

namespace {

constexpr int kSize = 100;
constexpr int kBands = 198;
constexpr int kVectors = 256;

// A linear congruential generator that the script repeats; 16 bits of each state.
class Numbers {
public:
    float next() { return static_cast<float>((state_ = state_ * 1664525U + 1013904223U) >> 16U); }

private:
    std::uint32_t state_ = 1;
};

// Spectrum k is a brightness times a slope, plus noise.
void fillSpectrum(float* values, Numbers& numbers) {
    const float brightness = numbers.next() / 16;
    const float slope = numbers.next() / 65536;
    for (int band = 0; band < kBands; ++band) {
        const float shape = 1 + slope * static_cast<float>(band) / kBands;
        values[band] = std::floor(brightness * shape + numbers.next() / 1024);
    }
}

struct Records {
    KSCbk codebook;
    KSWinEx window;
    KSWinIM indexes;

    Records() {
        KSInitCbk(&codebook);
        codebook.nNumBands = kBands;
        codebook.nNumVects = kVectors;
        KSInitWinEx(&window);
        window.nXSize = window.nYSize = kSize;
        window.SampDesc.nXSampleInt = window.SampDesc.nYSampleInt = 1;
        window.SampDesc.nNumBands = kBands;
        KSInitWinIM(&indexes);
        indexes.nXSize = indexes.nYSize = kSize;
        indexes.nXSampleInt = indexes.nYSampleInt = 1;
        if (KSAllocCbk(&codebook) != 0 || KSAllocWinEx(&window) != 0 || KSAllocWinIM(&indexes) != 0) std::abort();
        std::iota(codebook.panBandMap, codebook.panBandMap + kBands, 0);
        std::iota(window.SampDesc.panBandMap, window.SampDesc.panBandMap + kBands, 0);
        Numbers numbers;
        for (int v = 0; v < kVectors; ++v) fillSpectrum(codebook.papafCodeVect[v], numbers);
        for (int i = 0; i < kSize * kSize; ++i) fillSpectrum(window.pafSamples + std::ptrdiff_t{i} * kBands, numbers);
    }
    ~Records() {
        KSFreeCbk(&codebook);
        KSFreeWinEx(&window);
        KSFreeWinIM(&indexes);
    }
    Records(const Records&) = delete;
    Records& operator=(const Records&) = delete;
};

void countPixels(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * kSize * kSize);
    state.SetLabel("pixels");
}

void encode(benchmark::State& state, int (*encoder)(const KSCbk*, KSWinIM*, const KSWinEx*)) {
    Records records;
    for (auto _ : state) {
        if (encoder(&records.codebook, &records.indexes, &records.window) != 0) return state.SkipWithError("failed");
        benchmark::DoNotOptimize(records.indexes.pau16Samples);
        benchmark::ClobberMemory();
    }
    countPixels(state);
}

void encodeNearest(benchmark::State& state) { encode(state, KSXVQEncodeNearest); }
BENCHMARK(encodeNearest)->Unit(benchmark::kMillisecond);

void encodeCarried(benchmark::State& state) { encode(state, KSVQEncodeWin); }
BENCHMARK(encodeCarried)->Unit(benchmark::kMillisecond);

void decode(benchmark::State& state) {
    Records records;
    if (KSXVQEncodeNearest(&records.codebook, &records.indexes, &records.window) != 0) std::abort();
    for (auto _ : state) {
        if (KSVQDecodeWin(&records.codebook, &records.indexes, &records.window) != 0) {
            return state.SkipWithError("failed");
        }
        benchmark::DoNotOptimize(records.window.pafSamples);
        benchmark::ClobberMemory();
    }
    countPixels(state);
}
BENCHMARK(decode)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
