// Before the library's headers: Real is a macro of the matrix library that they include.
#include <Eigen/Core>

#include "transform/noisecovariance.hpp"

#include <algorithm>
#include <cmath>

#include "image/blocks.hpp"

namespace kscli {
namespace {

using Eigen::MatrixXd;
using Eigen::VectorXd;

// Products are formed for so many differences at once, which is what makes them fast.
constexpr Eigen::Index kBatch = 256;

/// Sums over signed differences. Their means are taken off in the end: a slope of the whole scene is no noise. The
/// means are small beside the differences, so that this costs no digits.
class DifferenceSums {
public:
    explicit DifferenceSums(std::size_t bands)
        : batch_(static_cast<Eigen::Index>(bands), kBatch),
          sum_(VectorXd::Zero(batch_.rows())),
          products_(MatrixXd::Zero(batch_.rows(), batch_.rows())) {}

    void add(const float* pixel, const float* neighbour) {
        for (Eigen::Index b = 0; b < batch_.rows(); ++b) {
            batch_(b, filled_) = static_cast<double>(pixel[b]) - static_cast<double>(neighbour[b]);
        }
        if (++filled_ == kBatch) flush();
    }
    long long pairs() const { return pairs_ + filled_; }

    MatrixXd covariance() {
        flush();
        const auto count = static_cast<double>(std::max(pairs_, 1LL));
        const VectorXd mean = sum_ / count;
        const MatrixXd products = products_.selfadjointView<Eigen::Lower>();
        return products / count - mean * mean.transpose();
    }

private:
    void flush() {
        if (filled_ == 0) return;  // a product of nothing divides by its size
        const auto differences = batch_.leftCols(filled_);
        sum_ += differences.rowwise().sum();
        products_.selfadjointView<Eigen::Lower>().rankUpdate(differences);
        pairs_ += filled_;
        filled_ = 0;
    }

    MatrixXd batch_;  // a column for each pair
    VectorXd sum_;
    MatrixXd products_;  // lower triangle
    Eigen::Index filled_ = 0;
    long long pairs_ = 0;
};

/// The line before the current one, and which pixels may be used: those of the region that hold data in every band.
class Lines {
public:
    Lines(const DataSet& dataSet, std::size_t bands, const KSROI* region)
        : bands_(bands), region_(region), usable_(static_cast<std::size_t>(dataSet->nXSize)) {}

    void findUsable(Window& window, int row, int line) {
        for (int x = 0; x < window.columns(); ++x) {
            const float* const pixel = window.pixel(x, row);
            int inside = 1;
            if (region_ != nullptr) KSInROIWin(region_, 0, 0, 1, 1, x, line, &inside);
            const auto isFinite = [](float value) { return std::isfinite(value); };
            usable_[static_cast<std::size_t>(x)] = inside != 0 && std::all_of(pixel, pixel + bands_, isFinite);
        }
    }
    bool usable(int x) const { return usable_[static_cast<std::size_t>(x)]; }

    void remember(Window& window, int row) {
        const float* const first = window.pixel(0, row);
        previous_.assign(first, first + usable_.size() * bands_);
        previousUsable_ = usable_;
    }
    const float* above(int x) const { return previous_.data() + static_cast<std::size_t>(x) * bands_; }
    bool aboveUsable(int x) const { return !previousUsable_.empty() && previousUsable_[static_cast<std::size_t>(x)]; }

private:
    std::size_t bands_;
    const KSROI* region_;
    std::vector<bool> usable_;
    std::vector<float> previous_;
    std::vector<bool> previousUsable_;  // empty before the first line
};

}  // namespace

NoiseEstimate noiseFromNeighbours(const DataSet& dataSet, const std::vector<int>& bands, int level, const KSROI* region,
                                  Neighbours neighbours, int every) {
    // Thinning saves the products, which outweigh reading by far; neighbours have to be read anyway.
    const SampleReader reader(dataSet, bands, level, SampleReader::NoData::asNaN);
    DifferenceSums along(bands.size());
    DifferenceSums across(bands.size());
    Lines lines(dataSet, bands.size(), region);
    readBlocks(reader, wholeImage(dataSet), 1, [&](int first, Window& window) {
        for (int row = 0; row < window.rows(); ++row) {
            const int line = first + row;
            lines.findUsable(window, row, line);
            const bool withNext = neighbours != Neighbours::acrossLines && line % every == 0;
            const bool withAbove = neighbours != Neighbours::alongLine && line > 0 && (line - 1) % every == 0;
            for (int x = 0; x < window.columns(); x += every) {
                if (!lines.usable(x)) continue;
                if (withNext && x + 1 < window.columns() && lines.usable(x + 1)) {
                    along.add(window.pixel(x, row), window.pixel(x + 1, row));
                }
                if (withAbove && lines.aboveUsable(x)) across.add(lines.above(x), window.pixel(x, row));
            }
            lines.remember(window, row);
        }
    });
    // Either kind is counted about its own mean, then both weigh by their pairs.
    NoiseEstimate result;
    result.pairs = along.pairs() + across.pairs();
    const double weightAlong = static_cast<double>(along.pairs());
    const double weightAcross = static_cast<double>(across.pairs());
    const MatrixXd sum = weightAlong * along.covariance() + weightAcross * across.covariance();
    const MatrixXd noise = sum / (2.0 * static_cast<double>(std::max(result.pairs, 1LL)));
    result.covariance = Matrix(bands.size(), bands.size(), {noise.data(), noise.data() + noise.size()});
    return result;
}

}  // namespace kscli
