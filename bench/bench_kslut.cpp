// Radiance tables: a spectrum of 480 wavelengths between its 256 neighbours, beside the plain loop, and elements moved
// between a table of 200 MB in a native file and memory, whole and one spectrum at a time.
#include <benchmark/benchmark.h>
#include <kshost.h>
#include <kshost_app.h>
#include <kslib.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

constexpr int kWavelengths = 480;
constexpr int kCorners = 256;
constexpr int kDimensions = 8;

/// Corner spectra around the middle of every dimension.
struct Neighbours {
    std::vector<std::vector<RLUTEntry>> spectra;
    std::vector<const RLUTEntry*> corners;
    std::array<float, kDimensions> point{};
    std::array<float, 2 * kDimensions> bounds{};
    std::vector<RLUTEntry> out = std::vector<RLUTEntry>(kWavelengths);

    Neighbours() {
        for (int k = 0; k < kCorners; ++k) {
            auto& spectrum = spectra.emplace_back(kWavelengths);
            for (int j = 0; j < kWavelengths; ++j) {
                spectrum[static_cast<std::size_t>(j)] = {static_cast<float>(k + j), static_cast<float>(k - j)};
            }
        }
        for (const auto& spectrum : spectra) corners.push_back(spectrum.data());
        for (std::size_t d = 0; d < kDimensions; ++d) {
            point[d] = 0.3F;
            bounds[2 * d + 1] = 1.0F;
        }
    }
};

void interpolate(benchmark::State& state) {
    Neighbours all;
    for (auto _ : state) {
        KSInterpSpec(all.point.data(), all.bounds.data(), all.corners.data(), all.out.data(), kWavelengths);
        benchmark::DoNotOptimize(all.out.data());
    }
    state.SetItemsProcessed(state.iterations() * kWavelengths);
}
BENCHMARK(interpolate);

void interpolatePlainly(benchmark::State& state) {
    Neighbours all;
    for (auto _ : state) {
        std::array<double, kCorners> weights{};
        for (std::size_t k = 0; k < kCorners; ++k) {
            double weight = 1.0;
            for (std::size_t d = 0; d < kDimensions; ++d) {
                const double t = static_cast<double>(all.point[d]);
                weight *= (k >> d & 1U) != 0 ? t : 1.0 - t;
            }
            weights[k] = weight;
        }
        for (std::size_t j = 0; j < kWavelengths; ++j) {
            double first = 0.0;
            double second = 0.0;
            for (std::size_t k = 0; k < kCorners; ++k) {
                first += static_cast<double>(all.corners[k][j].fFirst) * weights[k];
                second += static_cast<double>(all.corners[k][j].fSecond) * weights[k];
            }
            all.out[j] = {static_cast<float>(first), static_cast<float>(second)};
        }
        benchmark::DoNotOptimize(all.out.data());
    }
    state.SetItemsProcessed(state.iterations() * kWavelengths);
}
BENCHMARK(interpolatePlainly);

/// A table of 52,000 spectra in a native file of the temporary folder.
class StoredTable {
public:
    static constexpr int kRows = 200;
    static constexpr int kColumns = 260;

    StoredTable()
        : folder_(std::filesystem::temp_directory_path() / ("bench_kslut." + std::to_string(::getpid()))),
          table_(KSLUTCreate(3)) {
        std::filesystem::create_directory(folder_);
        fp_ = GDBCreate(KSHOST_TYPE_NATIVE, (folder_ / "table").c_str(), 1, 1, 0, 0, nullptr);
        const int sizes[3] = {kRows, kColumns, kWavelengths};
        int segment = 0;
        if (fp_ == nullptr || KSLUTSetElementSize(table_, 8) != 1 || KSLUTSetSizes(table_, sizes) != 1 ||
            KSLUTCreateFileSegment(table_, fp_, &segment, "table", "") != 1 ||
            KSLUTSetFileInfo(table_, fp_, segment) != 1)
            std::abort();
        buffer_.resize(static_cast<std::size_t>(kRows) * kColumns * kWavelengths * 8);
        move(1, {0, 0, 0}, {kRows, kColumns, kWavelengths});
    }
    ~StoredTable() {
        KSLUTDestroy(table_);
        GDBClose(fp_);
        std::filesystem::remove_all(folder_);
    }
    StoredTable(const StoredTable&) = delete;
    StoredTable& operator=(const StoredTable&) = delete;

    void fill(char value) { std::fill(buffer_.begin(), buffer_.end(), value); }
    std::int64_t move(int mode, std::array<std::int64_t, 3> offset, std::array<std::int64_t, 3> count) {
        KSLUTVector from = {3, offset.data()};
        KSLUTVector many = {3, count.data()};
        std::int64_t moved = 0;
        const auto bytes = static_cast<std::int64_t>(buffer_.size());
        if (KSLUTFileIO(table_, mode, &from, &many, nullptr, nullptr, 0, buffer_.data(), bytes, &moved) != 1)
            std::abort();
        return moved;
    }

private:
    std::filesystem::path folder_;
    KSLUT* table_;
    HostFile* fp_ = nullptr;
    std::vector<char> buffer_;
};

void readTable(benchmark::State& state) {
    StoredTable table;
    std::int64_t moved = 0;
    for (auto _ : state) moved += table.move(0, {0, 0, 0}, {StoredTable::kRows, StoredTable::kColumns, kWavelengths});
    state.SetBytesProcessed(moved);
}
BENCHMARK(readTable)->Unit(benchmark::kMillisecond);

/// The values change each time: the database skips pages that stay as they are.
void writeTable(benchmark::State& state) {
    StoredTable table;
    std::int64_t moved = 0;
    char value = 0;
    for (auto _ : state) {
        state.PauseTiming();
        table.fill(++value);
        state.ResumeTiming();
        moved += table.move(1, {0, 0, 0}, {StoredTable::kRows, StoredTable::kColumns, kWavelengths});
    }
    state.SetBytesProcessed(moved);
}
BENCHMARK(writeTable)->Unit(benchmark::kMillisecond)->UseRealTime();

/// One spectrum anywhere, or one wavelength of every spectrum.
void readSpectrum(benchmark::State& state) {
    StoredTable table;
    std::int64_t i = 0;
    for (auto _ : state) {
        i = (i + 7919) % (StoredTable::kRows * StoredTable::kColumns);
        table.move(0, {i / StoredTable::kColumns, i % StoredTable::kColumns, 0}, {1, 1, kWavelengths});
    }
}
BENCHMARK(readSpectrum)->Unit(benchmark::kMicrosecond);

void readWavelength(benchmark::State& state) {
    StoredTable table;
    for (auto _ : state) table.move(0, {0, 0, 100}, {StoredTable::kRows, StoredTable::kColumns, 1});
}
BENCHMARK(readWavelength)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
