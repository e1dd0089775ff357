// Reading a cube in blocks of 64 lines, every channel, into pixel-interleaved calibrated floats: windows of the
// library, and GDAL's own RasterIO in the same run. The cube is in the page cache, so this measures the way from there
// to the caller's buffer. Each pass opens the image anew: GDAL would answer later passes from its block cache, which a
// cube larger than memory never sees.
#include <benchmark/benchmark.h>
#include <gdal_priv.h>
#include <kshost_app.h>
#include <kslib.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 512;
constexpr int kBands = 224;
constexpr int kBlockLines = 64;
constexpr const char* kInterleaves[] = {"bip", "bil", "bsq"};

std::string listOf(const std::string& value) {
    std::string list = value;
    for (int band = 1; band < kBands; ++band) list += ", " + value;
    return list;
}

// The cubes of a run, made when the first is asked for and removed at the end.
class Cubes {
public:
    Cubes() {
        std::string name = (std::filesystem::temp_directory_path() / "kshost-bench-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) std::abort();
        folder_ = name;
        std::vector<std::uint16_t> line(std::size_t{kWidth} * kBands);
        std::uint32_t state = 1;
        for (const char* interleave : kInterleaves) {
            std::ofstream data(path(interleave), std::ios::binary);
            for (int y = 0; y < kHeight; ++y) {
                for (std::uint16_t& sample : line)
                    sample = static_cast<std::uint16_t>((state = state * 1664525U + 1013904223U) >> 16);
                data.write(reinterpret_cast<const char*>(line.data()), static_cast<std::streamsize>(line.size() * 2));
            }
            std::ofstream(path(interleave) + ".hdr")
                << "ENVI\nsamples = " << kWidth << "\nlines = " << kHeight << "\nbands = " << kBands
                << "\nheader offset = 0\nfile type = ENVI Standard\ndata type = 12\ninterleave = " << interleave
                << "\nbyte order = 0\ndata gain values = {" << listOf("0.01") << "}\ndata offset values = {"
                << listOf("-1") << "}\n";
        }
    }
    ~Cubes() { std::filesystem::remove_all(folder_); }
    Cubes(const Cubes&) = delete;
    Cubes& operator=(const Cubes&) = delete;
    std::string path(const std::string& interleave) const { return (folder_ / ("cube_" + interleave)).string(); }

private:
    std::filesystem::path folder_;
};

const Cubes& cubes() {
    static const Cubes all;
    return all;
}

std::vector<int> allChannels() {
    std::vector<int> channels(kBands);
    std::iota(channels.begin(), channels.end(), 1);
    return channels;
}

void countBytes(benchmark::State& state) {
    state.SetBytesProcessed(state.iterations() * std::int64_t{kWidth} * kHeight * kBands * 2);
}

void countPass(benchmark::State& state) {
    countBytes(state);
    state.SetLabel(kInterleaves[state.range(0)]);
}

/// Reads the data set once, block by block; false when a window fails.
bool readWindows(const KSDataSet& dataSet, KSWinEx& window) {
    for (window.nYOff = 0; window.nYOff < kHeight; window.nYOff += kBlockLines) {
        if (KSReadWinEx(&dataSet, &window) != 0) return false;
        benchmark::DoNotOptimize(window.pafSamples);
        benchmark::ClobberMemory();
    }
    return KSHostErrorCount() == 0;
}

void windows(benchmark::State& state, int interleave, int level) {
    const std::string path = cubes().path(kInterleaves[state.range(0)]);
    KSWinEx window;
    KSInitWinEx(&window);
    window.eBandIntlv = interleave;
    window.nRadTransLev = level;
    window.nXSize = kWidth;
    window.nYSize = kBlockLines;
    window.SampDesc.nXSampleInt = window.SampDesc.nYSampleInt = 1;
    window.SampDesc.nNumBands = kBands;
    if (KSAllocWinEx(&window) != 0) return state.SkipWithError("no memory");
    std::iota(window.SampDesc.panBandMap, window.SampDesc.panBandMap + kBands, 0);
    for (auto _ : state) {
        KSDataSet* dataSet = KSOpen(path.c_str(), "r");
        if (dataSet == nullptr || !readWindows(*dataSet, window)) return state.SkipWithError("the library cannot read");
        KSClose(dataSet);
    }
    KSFreeWinEx(&window);
    countPass(state);
}

void calibratedWindows(benchmark::State& state) { windows(state, KS_INTLV_PIXEL, 1); }
BENCHMARK(calibratedWindows)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

void calibratedBandWindows(benchmark::State& state) { windows(state, KS_INTLV_BAND, 1); }
BENCHMARK(calibratedBandWindows)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

void storedWindows(benchmark::State& state) { windows(state, KS_INTLV_PIXEL, 0); }
BENCHMARK(storedWindows)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

/// GDAL as its other users have it: with more room for its cache than the host allows it.
GDALDataset* openedByGdal(const std::string& path) {
    GDALSetCacheMax64(GIntBig{1} << 30);
    return GDALDataset::Open(path.c_str(), GDAL_OF_RASTER);
}

/// One gain and offset a channel, as a caller of RasterIO calibrates.
void calibrate(std::vector<float>& buffer) {
    static const std::vector<float> gains(kBands, 0.01F);
    static const std::vector<float> offsets(kBands, -1.0F);
    for (std::size_t p = 0; p < buffer.size(); p += kBands) {
        for (std::size_t c = 0; c < kBands; ++c) buffer[p + c] = gains[c] * buffer[p + c] + offsets[c];
    }
}

bool readByGdal(GDALDataset& image, std::vector<int>& channels, std::vector<float>& buffer, bool calibrated) {
    constexpr GSpacing kPixel = kBands * sizeof(float);
    for (int y = 0; y < kHeight; y += kBlockLines) {
        if (image.RasterIO(GF_Read, 0, y, kWidth, kBlockLines, buffer.data(), kWidth, kBlockLines, GDT_Float32, kBands,
                           channels.data(), kPixel, kPixel * kWidth, sizeof(float), nullptr) != CE_None)
            return false;
        if (calibrated) calibrate(buffer);
        benchmark::DoNotOptimize(buffer.data());
        benchmark::ClobberMemory();
    }
    return true;
}

void rasterIO(benchmark::State& state, bool calibrated) {
    ImageRegister();
    const std::string path = cubes().path(kInterleaves[state.range(0)]);
    std::vector<int> channels = allChannels();
    std::vector<float> buffer(std::size_t{kBlockLines} * kWidth * kBands);
    for (auto _ : state) {
        const std::unique_ptr<GDALDataset> image(openedByGdal(path));
        if (image == nullptr || !readByGdal(*image, channels, buffer, calibrated)) {
            return state.SkipWithError("GDAL cannot read");
        }
    }
    countPass(state);
}

void rasterIOCalibrated(benchmark::State& state) { rasterIO(state, true); }
BENCHMARK(rasterIOCalibrated)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

void rasterIOStored(benchmark::State& state) { rasterIO(state, false); }
BENCHMARK(rasterIOStored)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

// GDAL with every block already in its cache: its best case, for cubes that fit there.
void rasterIOStoredFromCache(benchmark::State& state) {
    ImageRegister();
    const std::unique_ptr<GDALDataset> image(openedByGdal(cubes().path(kInterleaves[state.range(0)])));
    std::vector<int> channels = allChannels();
    std::vector<float> buffer(std::size_t{kBlockLines} * kWidth * kBands);
    if (image == nullptr || !readByGdal(*image, channels, buffer, false)) {
        return state.SkipWithError("GDAL cannot read");
    }
    for (auto _ : state) readByGdal(*image, channels, buffer, false);
    countPass(state);
}
BENCHMARK(rasterIOStoredFromCache)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
