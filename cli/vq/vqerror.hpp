// What vector quantization loses and saves: errors of every band, and how much smaller the cube became, as a table,
// JSON, CSV or a plot.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "image/dataset.hpp"

namespace kscli {

/// Differences between stored values and the code vectors that stand for them.
class ErrorSums {
public:
    explicit ErrorSums(int bands)
        : squares_(static_cast<std::size_t>(bands), 0.0), largest_(static_cast<std::size_t>(bands), 0.0) {}
    void add(const float* original, const float* decoded);
    void addWithoutData() { ++withoutData_; }

    std::uint64_t pixels() const { return pixels_; }
    std::uint64_t withoutData() const { return withoutData_; }
    double rmse(std::size_t band) const;
    double largest(std::size_t band) const { return largest_[band]; }

private:
    std::vector<double> squares_;
    std::vector<double> largest_;
    std::uint64_t pixels_ = 0;
    std::uint64_t withoutData_ = 0;
};

/// Sizes in bytes: of the image's samples, and of the bits that a cube needs for the same.
struct Compression {
    double raw = 0;
    double indexMap = 0;
    double codebook = 0;
    int vectors = 0;
    int bitsPerIndex = 0;
    double ratio() const { return raw / (indexMap + codebook); }
};
Compression compressionOf(const DataSet& image, const DataSet& cube);

/// The errors of one encoding, in stored and in calibrated units.
class ErrorReport {
public:
    ErrorReport(const DataSet& image, std::string imageName, std::string cubeName, ErrorSums errors,
                const Compression& compression);

    std::string table() const;
    std::string csv() const;
    nlohmann::ordered_json json() const;
    /// Writes the report; the extension says how: .csv, .json, .svg or .png.
    void write(const std::string& name) const;
    static void requireReportName(const std::string& name);

private:
    bool isCalibrated() const { return level_ > 0; }
    double scale(std::size_t band) const;
    void plot(const std::string& name) const;
    std::string summary() const;

    const DataSet& image_;
    std::string imageName_;
    std::string cubeName_;
    ErrorSums errors_;
    Compression compression_;
    int level_;
    std::string quantity_;
    std::vector<float> gains_;
};

}  // namespace kscli
