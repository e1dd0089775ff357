// Unmixing a window of 100 x 100 pixels of 198 bands: pixel by pixel with get_endmember_fractions, and whole with
// KSXUnmixWin. compare_unmix_scipy.sh puts SciPy's nnls beside it, on the same values.
#include <benchmark/benchmark.h>
#include <kslib.h>
#include <kslib/extra.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <numeric>
#include <vector>

namespace {

constexpr int kSize = 100;
constexpr int kBands = 198;

// A linear congruential generator that the script repeats; 16 bits of each state, below 1.
class Numbers {
public:
    double next() { return static_cast<double>((state_ = state_ * 1664525U + 1013904223U) >> 16U) / 65536.0; }

private:
    std::uint32_t state_ = 1;
};

/// Smooth endmembers, and pixels that are mixtures of about half of them, with noise.
struct Scene {
    int endmembers;
    std::vector<float> matrix;  // a row for each band, and one for the sum
    std::vector<float> samples;
    KSWinEx window;

    explicit Scene(int count) : endmembers(count) {
        matrix.resize(static_cast<std::size_t>((kBands + 1) * count));
        samples.resize(static_cast<std::size_t>(kSize * kSize * kBands));
        Numbers numbers;
        for (int e = 0; e < count; ++e) {
            const double level = 500 + 3000 * numbers.next();
            const double frequency = 4 + 12 * numbers.next();
            const double phase = 6 * numbers.next();
            for (int b = 0; b < kBands; ++b) {
                row(b)[e] =
                    static_cast<float>(std::floor(level * (1 + 0.5 * std::sin(frequency * b / kBands + phase))));
            }
        }
        for (int i = 0; i < kSize * kSize; ++i) fillPixel(samples.data() + std::ptrdiff_t{i} * kBands, numbers);
        KSInitWinEx(&window);
        window.nXSize = window.nYSize = kSize;
        window.SampDesc.nXSampleInt = window.SampDesc.nYSampleInt = 1;
        window.SampDesc.nNumBands = kBands;
        if (KSAllocWinEx(&window) != 0) std::abort();
        std::iota(window.SampDesc.panBandMap, window.SampDesc.panBandMap + kBands, 0);
        std::copy(samples.begin(), samples.end(), window.pafSamples);
    }
    ~Scene() { KSFreeWinEx(&window); }
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    float* row(int b) { return matrix.data() + std::ptrdiff_t{b} * endmembers; }
    std::vector<float*> rows() {
        std::vector<float*> all;
        for (int b = 0; b <= kBands; ++b) all.push_back(row(b));
        return all;
    }

private:
    void fillPixel(float* pixel, Numbers& numbers) {
        std::vector<double> weights;
        for (int e = 0; e < endmembers; ++e) {
            const double weight = numbers.next();
            weights.push_back(weight < 0.5 ? 0 : 2 * (weight - 0.5));
        }
        for (int b = 0; b < kBands; ++b) {
            double sum = 100 * (numbers.next() - 0.5);
            for (int e = 0; e < endmembers; ++e)
                sum += weights[static_cast<std::size_t>(e)] * static_cast<double>(row(b)[e]);
            pixel[b] = static_cast<float>(std::floor(sum));
        }
    }
};

void countPixels(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * kSize * kSize);
    state.SetLabel("pixels");
}

void pixelByPixel(benchmark::State& state, int nonNegative) {
    Scene scene(static_cast<int>(state.range(0)));
    std::vector<float> fractions(static_cast<std::size_t>(scene.endmembers + 1));
    std::vector<float> pixel(kBands + 1);
    const std::vector<float> original = scene.matrix;
    for (auto _ : state) {
        scene.matrix = original;
        std::vector<float*> rows = scene.rows();
        for (int i = 0; i < kSize * kSize; ++i) {
            std::copy_n(scene.samples.data() + std::ptrdiff_t{i} * kBands, kBands, pixel.data());
            get_endmember_fractions(rows.data(), pixel.data(), fractions.data(), scene.endmembers, kBands, 0,
                                    nonNegative, 0, i == 0 ? 1 : 0);
            benchmark::DoNotOptimize(fractions.data());
            benchmark::ClobberMemory();
        }
    }
    countPixels(state);
}

void window(benchmark::State& state, int nonNegative) {
    Scene scene(static_cast<int>(state.range(0)));
    std::vector<float> fractions(static_cast<std::size_t>(kSize * kSize * (scene.endmembers + 1)));
    std::vector<unsigned char> status(kSize * kSize);
    const std::vector<float*> rows = scene.rows();
    for (auto _ : state) {
        KSXUnmixer* unmixer = KSXCreateUnmixer(rows.data(), scene.endmembers, kBands, 0, nonNegative, 0);
        if (KSXUnmixWin(unmixer, &scene.window, fractions.data(), status.data()) != 0) {
            return state.SkipWithError("failed");
        }
        KSXFreeUnmixer(unmixer);
        benchmark::DoNotOptimize(fractions.data());
        benchmark::ClobberMemory();
    }
    countPixels(state);
}

void pixelByPixelNonNegative(benchmark::State& state) { pixelByPixel(state, 1); }
void windowNonNegative(benchmark::State& state) { window(state, 1); }
void pixelByPixelUnconstrained(benchmark::State& state) { pixelByPixel(state, 0); }
void windowUnconstrained(benchmark::State& state) { window(state, 0); }

void sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(4)->Arg(8)->Arg(16)->Unit(benchmark::kMillisecond);
}
BENCHMARK(pixelByPixelNonNegative)->Apply(sizes);
BENCHMARK(windowNonNegative)->Apply(sizes);
BENCHMARK(pixelByPixelUnconstrained)->Apply(sizes);
BENCHMARK(windowUnconstrained)->Apply(sizes);

}  // namespace

BENCHMARK_MAIN();
