#include "image/blocks.hpp"

#include <cmath>
#include <limits>
#include <utility>

#include "image/bands.hpp"

namespace kscli {
namespace {

// Larger blocks gain nothing once a transfer outlasts its set-up; smaller ones stay nearer the processor.
constexpr double kComfortableBlockBytes = 32.0 * 1024 * 1024;

}  // namespace

Area makeArea(int x, int y, int width, int height, int every) {
    Area area;
    area.x = x;
    area.y = y;
    area.columns = std::max(1, width / every);
    area.rows = std::max(1, height / every);
    // A rectangle narrower than the interval still has its first sample.
    area.xInt = width < every ? 1 : every;
    area.yInt = height < every ? 1 : every;
    return area;
}

Area wholeImage(const DataSet& dataSet, int every) { return makeArea(0, 0, dataSet->nXSize, dataSet->nYSize, every); }

std::array<int, 4> chooseWindow(const DataSet& dataSet, const std::vector<int>& asked) {
    if (asked.empty()) return {0, 0, dataSet->nXSize, dataSet->nYSize};
    const bool inside = asked[0] >= 0 && asked[1] >= 0 && asked[2] >= 1 && asked[3] >= 1 &&
                        asked[0] < dataSet->nXSize && asked[1] < dataSet->nYSize &&
                        asked[2] <= dataSet->nXSize - asked[0] && asked[3] <= dataSet->nYSize - asked[1];
    if (!inside) {
        fail("the window {},{},{},{} (X,Y,WIDTH,HEIGHT) does not lie inside the image of {} x {} pixels.", asked[0],
             asked[1], asked[2], asked[3], dataSet->nXSize, dataSet->nYSize);
    }
    return {asked[0], asked[1], asked[2], asked[3]};
}

int rowsPerBlock(double bytesPerRow, int rows) {
    int isLimit = 0;
    const double allowed = std::min(static_cast<double>(IMPGetMemory(&isLimit)) / 2, kComfortableBlockBytes);
    const double fit = std::floor(allowed / std::max(bytesPerRow, 1.0));
    return static_cast<int>(std::clamp(fit, 1.0, static_cast<double>(std::max(rows, 1))));
}

std::vector<std::optional<double>> noDataValues(const DataSet& dataSet, const std::vector<int>& bands) {
    std::vector<std::optional<double>> values(bands.size());
    for (std::size_t i = 0; i < bands.size(); ++i) {
        double value = 0;
        if (KSHostGetNoData(dataSet.file(), dataSet.channel(bands[i]), &value) != 0) values[i] = value;
    }
    return values;
}

SampleReader::SampleReader(const DataSet& dataSet, std::vector<int> bands, int level, NoData noData)
    : dataSet_(dataSet),
      bands_(std::move(bands)),
      level_(level),
      noData_(noData),
      noDataValues_(noDataValues(dataSet, bands_)),
      calibration_(calibration(dataSet, bands_, level)) {
    anyNoData_ = std::any_of(noDataValues_.begin(), noDataValues_.end(), [](const auto& v) { return v.has_value(); });
}

void SampleReader::read(Window& window) const {
    // Only stored values can be compared with the no-data value, so calibration waits until that is done.
    const bool calibrateHere = anyNoData_ && (level_ > 0 || noData_ == NoData::asNaN);
    window.read(dataSet_, calibrateHere ? 0 : level_);
    if (calibrateHere) calibrate(window);
}

void SampleReader::calibrate(Window& window) const {
    const std::size_t bandCount = bands_.size();
    struct PerBand {
        bool hasNoData;
        float noData, replacement, gain, offset;
    };
    std::vector<PerBand> perBand;
    for (std::size_t band = 0; band < bandCount; ++band) {
        const float noData = static_cast<float>(noDataValues_[band].value_or(0.0));
        const float replacement = noData_ == NoData::asNaN ? std::numeric_limits<float>::quiet_NaN() : noData;
        perBand.push_back({noDataValues_[band].has_value(), noData, replacement, calibration_.gains[band],
                           calibration_.offsets[band]});
    }
    float* sample = window.samples();
    for (std::size_t pixel = 0; pixel < window.pixelCount(); ++pixel) {
        for (const PerBand& band : perBand) {
            float& value = *sample++;
            if (band.hasNoData && (value == band.noData || (std::isnan(band.noData) && std::isnan(value)))) {
                value = band.replacement;
            } else if (level_ > 0) {
                value = band.gain * value + band.offset;
            }
        }
    }
}

void BlockWriter::write(Window& samples, int firstRow) {
    if (!window_) window_ = std::make_unique<Window>(samples.columns(), samples.rows(), 1, 1, allBands(target_));
    window_->resizeRows(samples.rows());
    window_->place(0, firstRow);
    window_->swapSamples(samples);
    window_->write(target_);
    window_->swapSamples(samples);
    requireComplete(result_);
}

}  // namespace kscli
