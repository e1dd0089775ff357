#include "vq/vqerror.hpp"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <utility>

#include "app/output.hpp"
#include "app/plot.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "image/bands.hpp"
#include "image/lineorder.hpp"
#include "image/quantized.hpp"

namespace kscli {
void ErrorSums::add(const float* original, const float* decoded) {
    ++pixels_;
    for (std::size_t band = 0; band < squares_.size(); ++band) {
        const double error = std::abs(static_cast<double>(original[band]) - static_cast<double>(decoded[band]));
        squares_[band] += error * error;
        largest_[band] = std::max(largest_[band], error);
    }
}

double ErrorSums::rmse(std::size_t band) const {
    return pixels_ == 0 ? NAN : std::sqrt(squares_[band] / static_cast<double>(pixels_));
}

Compression compressionOf(const DataSet& image, const DataSet& cube) {
    const double pixels = static_cast<double>(image->nXSize) * static_cast<double>(image->nYSize);
    Compression result;
    for (int band = 0; band < image.bandCount(); ++band) {
        result.raw += pixels * static_cast<double>(bytesPerSample(image->pBandRefs[band].nChanType));
    }
    const KSVQubeInfo& info = cube->VQubeInfo;
    result.vectors = info.nCodeVectors;
    result.bitsPerIndex = info.nBitsPerIndex;
    result.indexMap = pixels * info.nBitsPerIndex / 8;
    result.codebook =
        static_cast<double>(info.nCodeVectors) * cube.bandCount() * static_cast<double>(bytesPerSample(info.nDataType));
    return result;
}

ErrorReport::ErrorReport(const DataSet& image, std::string imageName, std::string cubeName, ErrorSums errors,
                         const Compression& compression)
    : image_(image),
      imageName_(std::move(imageName)),
      cubeName_(std::move(cubeName)),
      errors_(std::move(errors)),
      compression_(compression),
      level_(image.level(-1)),
      quantity_(image.levelDescriptions()[static_cast<std::size_t>(level_)]),
      gains_(calibration(image, allBands(image), level_).gains) {}

// An offset is the same before and after, so that only the gain changes an error.
double ErrorReport::scale(std::size_t band) const { return std::abs(static_cast<double>(gains_[band])); }

std::string ErrorReport::summary() const {
    std::string line = fmt::format(
        "{} pixels, {} code vectors: {} bit{} a pixel and a codebook of {:.0f} bytes; {:.1f} "
        "times smaller than {:.0f} bytes of samples.\n",
        errors_.pixels() + errors_.withoutData(), compression_.vectors, compression_.bitsPerIndex,
        compression_.bitsPerIndex == 1 ? "" : "s", compression_.codebook, compression_.ratio(), compression_.raw);
    if (errors_.withoutData() > 0) {
        line += fmt::format("{} pixels without data do not count in the errors.\n", errors_.withoutData());
    }
    return line;
}

std::string ErrorReport::table() const {
    std::string lines = fmt::format("{:<18} {:>12} {:>12}", "band", "RMSE", "largest");
    if (isCalibrated()) lines += fmt::format(" {:>14} {:>14}   {}", "RMSE", "largest", quantity_);
    lines += '\n';
    for (int band = 0; band < image_.bandCount(); ++band) {
        const auto i = static_cast<std::size_t>(band);
        lines += fmt::format("{:<18} {:>12.6g} {:>12.6g}", bandName(image_, band), errors_.rmse(i), errors_.largest(i));
        if (isCalibrated()) {
            lines += fmt::format(" {:>14.6g} {:>14.6g}", scale(i) * errors_.rmse(i), scale(i) * errors_.largest(i));
        }
        lines += '\n';
    }
    return lines + summary();
}

std::string ErrorReport::csv() const {
    std::string lines = "band,wavelength_nm,quality,rmse_stored,largest_stored,rmse_calibrated,largest_calibrated\n";
    const auto number = [](double value) { return std::isnan(value) ? std::string() : fmt::format("{:.9g}", value); };
    for (int band = 0; band < image_.bandCount(); ++band) {
        const auto i = static_cast<std::size_t>(band);
        const double nm = image_.wavelength(band);
        lines += fmt::format("{},{},{},{},{},", band + 1, nm > 0 ? number(nm) : "", image_.qualityName(band),
                             number(errors_.rmse(i)), number(errors_.largest(i)));
        lines +=
            isCalibrated() ? number(scale(i) * errors_.rmse(i)) + "," + number(scale(i) * errors_.largest(i)) : ",";
        lines += '\n';
    }
    return lines;
}

Json ErrorReport::json() const {
    Json bands = Json::array();
    for (int band = 0; band < image_.bandCount(); ++band) {
        const auto i = static_cast<std::size_t>(band);
        const double nm = image_.wavelength(band);
        bands.push_back({{"band", band + 1},
                         {"wavelength_nm", orNull(nm, nm > 0)},
                         {"quality", image_.qualityName(band)},
                         {"rmse_stored", orNull(errors_.rmse(i), true)},
                         {"largest_stored", orNull(errors_.largest(i), true)},
                         {"rmse_calibrated", orNull(scale(i) * errors_.rmse(i), isCalibrated())},
                         {"largest_calibrated", orNull(scale(i) * errors_.largest(i), isCalibrated())}});
    }
    return {{"file", imageName_},
            {"cube", cubeName_},
            {"width", image_->nXSize},
            {"height", image_->nYSize},
            {"pixels_with_data", errors_.pixels()},
            {"pixels_without_data", errors_.withoutData()},
            {"code_vectors", compression_.vectors},
            {"bits_per_index", compression_.bitsPerIndex},
            {"raw_bytes", compression_.raw},
            {"index_map_bytes", compression_.indexMap},
            {"codebook_bytes", compression_.codebook},
            {"compression_ratio", compression_.ratio()},
            {"calibrated_quantity", isCalibrated() ? Json(quantity_) : Json(nullptr)},
            {"bands", bands}};
}

void ErrorReport::plot(const std::string& name) const {
    Plot plot;
    plot.title =
        fmt::format("{}: {} code vectors", std::filesystem::path(imageName_).filename().string(), compression_.vectors);
    plot.xLabel = image_.hasWavelengths() ? "Wavelength (nm)" : "Band";
    plot.yLabel = isCalibrated() ? "RMSE: " + quantity_ : "RMSE of stored values";
    plot.curves.push_back({"RMSE", {}});
    const LineOrder order(image_, allBands(image_));
    plot.shaded = order.badStretches();
    plot.shadedLabel = "bad bands";
    for (const auto& positions : order.pieces()) {
        auto& piece = plot.curves.back().pieces.emplace_back();
        for (std::size_t i : positions) {
            const double y = scale(i) * errors_.rmse(i);
            if (std::isfinite(y)) piece.emplace_back(order.x(i), y);
        }
    }
    drawPlot(plot, name);
}

void ErrorReport::requireReportName(const std::string& name) {
    const std::string extension = lowerExtension(name);
    if (extension != ".csv" && extension != ".json" && extension != ".svg" && extension != ".png") {
        fail("'{}': a report ends in .csv or .json for a table, .svg or .png for a plot.", name);
    }
}

void ErrorReport::write(const std::string& name) const {
    const std::string extension = lowerExtension(name);
    if (extension == ".svg" || extension == ".png") return plot(name);
    writeText(extension == ".csv" ? csv() : jsonText(json()), name);
}

}  // namespace kscli
