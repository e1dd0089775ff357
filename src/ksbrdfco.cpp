// Removal of the across-track brightness trend: a pass that averages columns, a polynomial through the means, and a
// pass that takes the trend away.
#include <kslib/ksbrdfco.h>

#include <kslib/ksdatset.h>
#include <kslib/kslps.h>
#include <kslib/ksmatrix.h>
#include <kslib/kswinex.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <numeric>

#include "support/heap.hpp"
#include "support/matrix.hpp"
#include "support/report.hpp"

using namespace ks;

namespace {

/// A rectangle of the image, as the host gives it.
struct Rectangle {
    int values[4];

    int x() const { return values[0]; }
    int y() const { return values[1]; }
    int width() const { return values[2]; }
    int height() const { return values[3]; }
    std::int64_t xEnd() const { return std::int64_t{x()} + width(); }
    std::int64_t yEnd() const { return std::int64_t{y()} + height(); }
};

/// Bands of the data set that belong to a list of channels.
struct Bands {
    Heap<int[]> map;
    int count = 0;

    /// A selection that fails is reported, and leaves no bands.
    void select(const KSDataSet& dataSet, const int* channels, int channelCount) {
        int* selected = nullptr;
        if (KSSelectBands(&dataSet, nullptr, 0, channelCount, channels, &count, &selected) != kOk) {
            IMPError(-1, 0, "KSSelectBands () failed.\n");
            count = 0;
        }
        map.reset(selected);
    }
};

/// A block of lines of some bands, calibrated.
class Block {
public:
    Block() { KSInitWinEx(&window_); }
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
    ~Block() { KSFreeWinEx(&window_); }

    int allocate(const KSDataSet& dataSet, int x, int width, int lines, const Bands& bands) {
        KSFreeWinEx(&window_);
        window_.eBandIntlv = KS_INTLV_PIXEL;
        window_.nRadTransLev = dataSet.nNumRadTrans;
        window_.nXOff = x;
        window_.nXSize = width;
        window_.nYSize = lines;
        window_.SampDesc.nXSampleInt = 1;
        window_.SampDesc.nYSampleInt = 1;
        window_.SampDesc.nNumBands = bands.count;
        if (KSAllocWinEx(&window_) != kOk) return kFailed;
        std::copy_n(bands.map.get(), bands.count, window_.SampDesc.panBandMap);
        return kOk;
    }
    int read(const KSDataSet& dataSet, int y) {
        window_.nYOff = y;
        return KSReadWinEx(&dataSet, &window_);
    }
    int write(const KSDataSet& dataSet) { return KSWriteWinEx(&dataSet, &window_); }
    int free() { return KSFreeWinEx(&window_); }
    int lines() const { return window_.nYSize; }
    float* pixel(int x, int y) { return window_.papafStart[y - window_.nYOff] + std::ptrdiff_t{x} * bandCount(); }
    int bandCount() const { return window_.SampDesc.nNumBands; }

private:
    KSWinEx window_;
};

/// Progress that is reported line by line.
class Progress {
public:
    Progress(const char* title, int lines) : step_(1.0 / lines) {
        std::fputs(title, stdout);
        IMPCounter(0, -1.0);
    }
    void advance() { IMPCounter(0, fraction_ += step_); }
    static void finish() { IMPCounter(0, 2.0); }

private:
    double step_;
    double fraction_ = 0.0;
};

int reportReading(int y) {
    IMPError(62, 1, "Unable to read scanline %d\n so BRDFCOR will exit.\n", y + 1);
    return kFailed;
}

int reportWriting(int y) {
    IMPError(62, 1, "Unable to write scanline %d\n so BRDFCOR will exit.\n", y + 1);
    return kFailed;
}

int reportAllocation() {
    IMPError(18, 0, "KSAllocWinEx failed.\n");
    return kFailed;
}

class Correction {
public:
    Correction(KSDataSet& dataSet, const int* channels, int channelCount, int order)
        : dataSet_(dataSet), channelCount_(channelCount), order_(order) {
        CheckWin(dataSet_.GDBFile, "DBIW", sampled_.values);
        CheckWin(dataSet_.GDBFile, "DBOW", corrected_.values);
        CheckChan(dataSet_.GDBFile, "DBIC", channels, channelCount);
    }

    int run(const int* channels) {
        // No memory holds the coefficients of the largest order, whose number is no int.
        if (order_ < 0 || order_ == std::numeric_limits<int>::max() || allocate() != kOk) return kFailed;
        selectInput(channels);
        if (sample() != kOk) return kFailed;
        average();
        if (fit() != kOk) return kFailed;
        if (selectOutput() != kOk || evaluateTrend() != kOk || process() != kOk) return kFailed;
        return describe();
    }

private:
    int coefficientCount() const { return order_ + 1; }

    int allocate() {
        sums_ = allocateZeroedArray<double>(std::int64_t{sampled_.width()} * channelCount_);
        coefficients_ = allocateZeroedArray<double>(std::int64_t{channelCount_} * coefficientCount());
        counts_ = allocateZeroedArray<double>(sampled_.width());
        bandMeans_ = allocateZeroedArray<float>(channelCount_);
        return sums_ && coefficients_ && counts_ && bandMeans_ ? kOk : kFailed;
    }

    void selectInput(const int* channels) {
        input_.select(dataSet_, channels, channelCount_);
        // The host reports a channel that it does not have.
        for (int j = 0; j < input_.count; ++j) {
            GDBChanType(dataSet_.GDBFile, dataSet_.pBandRefs[input_.map[static_cast<std::size_t>(j)]].nChan);
        }
    }

    /// Output channels are the first ones of the file.
    int selectOutput() {
        const Heap<int[]> channels = allocateArray<int>(std::int64_t{channelCount_});
        if (!channels) return kFailed;
        std::iota(channels.get(), channels.get() + channelCount_, 1);
        output_.select(dataSet_, channels.get(), channelCount_);
        return kOk;
    }

    int linesPerBlock(int width, float share, int height) const {
        int lines = 0;
        if (KSLPS(&dataSet_, width, input_.count, KS_USE_EX, 1, share, height, &lines) != kOk) {
            IMPError(-1, 0, "KSLPS () failed\n");
            lines = 0;
        }
        return lines;
    }

    /// Bands that have sums: those of the input, and never more than there are channels.
    int sampledBands() const { return std::min(input_.count, channelCount_); }
    int correctedBands() const { return std::min(sampledBands(), output_.count); }

    /// All bands of a column lie together, as they do in a window.
    double& columnSum(int j, int x) {
        return sums_[static_cast<std::size_t>(x) * static_cast<std::size_t>(channelCount_) +
                     static_cast<std::size_t>(j)];
    }
    double* coefficientsOf(int j) { return coefficients_.get() + std::ptrdiff_t{j} * coefficientCount(); }

    // ---- sampling ----

    int sample() {
        constexpr float kShare = 0.75F;
        const int lines = linesPerBlock(sampled_.width(), kShare, sampled_.height());
        Block block;
        if (block.allocate(dataSet_, sampled_.x(), sampled_.width(), lines, input_) != kOk) return kFailed;
        Progress progress("\nSampling the input channel(s)...\n", sampled_.height());
        std::int64_t nextBlock = sampled_.y();
        for (int y = sampled_.y(); y < sampled_.yEnd(); ++y, progress.advance()) {
            if (y == nextBlock) {
                const int left = static_cast<int>(sampled_.yEnd() - y);
                if (left < lines && block.allocate(dataSet_, sampled_.x(), sampled_.width(), left, input_) != kOk) {
                    return reportAllocation();
                }
                if (block.read(dataSet_, y) != kOk) return reportReading(y);
                nextBlock = std::int64_t{y} + block.lines();
            }
            addLine(block, y);
        }
        Progress::finish();
        return kOk;
    }

    void addLine(Block& block, int y) {
        for (int x = 0; x < sampled_.width(); ++x) {
            const float* pixel = block.pixel(x, y);
            for (int j = 0; j < sampledBands(); ++j) columnSum(j, x) += static_cast<double>(pixel[j]);
            counts_[static_cast<std::size_t>(x)] += 1.0;
        }
    }

    /// Turns the sums of columns into their means.
    void average() {
        for (int x = 0; x < sampled_.width(); ++x) {
            const double count = counts_[static_cast<std::size_t>(x)];
            if (!(count > 0.0)) continue;
            for (int j = 0; j < sampledBands(); ++j) {
                columnSum(j, x) /= count;
                float& mean = bandMeans_[static_cast<std::size_t>(j)];
                mean = static_cast<float>(static_cast<double>(mean) + columnSum(j, x));
            }
            ++columns_;
        }
        for (int j = 0; j < sampledBands(); ++j)
            bandMeans_[static_cast<std::size_t>(j)] /= static_cast<float>(columns_);
    }

    // ---- the trend ----

    int fit() {
        if (columns_ - 2 < order_) {
            IMPError(81, 0,
                     "Only %d columns were sampled.\nThere must be more than %d columns sampled for ORDER = %d\n",
                     columns_, order_ + 1, order_);
        }
        const Matrix design = makeMatrix(columns_, coefficientCount());
        if (!design) return kFailed;
        int row = 0;
        for (int x = 0; x < sampled_.width(); ++x) {
            if (!(counts_[static_cast<std::size_t>(x)] > 0.0)) continue;
            double power = 1.0;
            for (int p = 0; p < coefficientCount(); ++p) {
                design->me[row][p] = power;
                power *= static_cast<double>(std::int64_t{sampled_.x()} + x);
            }
            ++row;
        }
        for (int j = 0; j < sampledBands(); ++j) {
            if (fitBand(j, *design) != kOk) return kFailed;
        }
        return kOk;
    }

    /// Least squares through the column means of one band.
    int fitBand(int j, MAT& design) {
        const Vector means = makeVector(columns_);
        const Matrix factors = makeMatrix(columns_, coefficientCount());
        const Vector diagonal = makeVector(std::min(columns_, coefficientCount()));
        const Vector solution = makeVector(coefficientCount());
        if (!means || !factors || !diagonal || !solution) return kFailed;
        int row = 0;
        for (int x = 0; x < sampled_.width(); ++x) {
            if (counts_[static_cast<std::size_t>(x)] > 0.0) means->ve[row++] = columnSum(j, x);
        }
        MAT* const copy = factors.get();
        VEC* const diag = diagonal.get();
        VEC* const right = means.get();
        VEC* const left = solution.get();
        const bool isSolved = underMatrixTrap(false, [&design, copy, diag, right, left] {
            m_copy(&design, copy);
            QRfactor(copy, diag);
            QRsolve(copy, diag, right, left);
            return true;
        });
        if (!isSolved) return kFailed;
        std::copy_n(solution->ve, coefficientCount(), coefficientsOf(j));
        return kOk;
    }

    int evaluateTrend() {
        trend_ = allocateArray<float>(std::int64_t{dataSet_.nXSize}, std::int64_t{channelCount_});
        if (!trend_) return kFailed;
        for (int j = 0; j < sampledBands(); ++j) {
            for (int x = 0; x < dataSet_.nXSize; ++x) {
                long double sum = 0.0L;
                long double power = 1.0L;
                for (int p = 0; p < coefficientCount(); ++p) {
                    sum += static_cast<long double>(coefficientsOf(j)[p]) * power;
                    power *= static_cast<long double>(x);
                }
                trend(j, x) = static_cast<float>(sum);
            }
        }
        return kOk;
    }

    float& trend(int j, int x) {
        return trend_[static_cast<std::size_t>(x) * static_cast<std::size_t>(channelCount_) +
                      static_cast<std::size_t>(j)];
    }

    // ---- processing ----

    int process() {
        constexpr float kShare = 0.375F;
        const int lines = linesPerBlock(dataSet_.nXSize, kShare, dataSet_.nYSize);
        if (allocateBlocks(lines) != kOk) return reportAllocation();
        Progress progress("\nProcessing the output channel(s)...\n", dataSet_.nYSize);
        std::int64_t nextBlock = corrected_.y();
        for (int y = corrected_.y(); y < corrected_.yEnd(); ++y, progress.advance()) {
            if (y == nextBlock) {
                const int left = static_cast<int>(corrected_.yEnd() - y);
                if (left < lines && allocateBlocks(left) != kOk) return reportAllocation();
                // What lies outside of the window keeps its value.
                if (from_.read(dataSet_, y) != kOk || to_.read(dataSet_, y) != kOk) return reportReading(y);
                nextBlock = std::int64_t{y} + from_.lines();
            }
            correctLine(y);
            if (y + 1 == nextBlock && to_.write(dataSet_) != kOk) return reportWriting(y);
        }
        Progress::finish();
        return kOk;
    }

    int allocateBlocks(int lines) {
        if (from_.allocate(dataSet_, 0, dataSet_.nXSize, lines, input_) != kOk) return kFailed;
        return to_.allocate(dataSet_, 0, dataSet_.nXSize, lines, output_);
    }

    void correctLine(int y) {
        const int begin = std::max(corrected_.x(), 0);
        const int end = static_cast<int>(std::min<std::int64_t>(corrected_.xEnd(), dataSet_.nXSize));
        for (int x = begin; x < end; ++x) {
            const float* in = from_.pixel(x, y);
            float* out = to_.pixel(x, y);
            for (int j = 0; j < correctedBands(); ++j) {
                out[j] = in[j] - (trend(j, x) - bandMeans_[static_cast<std::size_t>(j)]);
            }
        }
    }

    int describe() {
        for (int j = 0; j < correctedBands(); ++j) {
            const std::size_t band = static_cast<std::size_t>(j);
            const int channel = dataSet_.pBandRefs[output_.map[band]].nChan;
            char text[65];
            std::snprintf(text, sizeof text, "BRDFCOR: DBIC=%d, ORDER=%d", input_.map[band] + 1, order_);
            GDBWriteHistory(dataSet_.GDBFile, 2, channel, text);
            GDBChanDescIO(dataSet_.GDBFile, 1, channel, text);
        }
        if (from_.free() != kOk || to_.free() != kOk) {
            IMPError(339, 1, "Problem encountered freeing memory allocated ");
        }
        return kOk;
    }

    KSDataSet& dataSet_;
    int channelCount_;
    int order_;
    Rectangle sampled_ = {};
    Rectangle corrected_ = {};
    Bands input_;
    Bands output_;
    Heap<double[]> sums_;          // of every band in each column; then the means
    Heap<double[]> counts_;        // lines of each column
    Heap<double[]> coefficients_;  // of each band's polynomial, constant first
    Heap<float[]> bandMeans_;
    Heap<float[]> trend_;  // of every band at each column of the image
    int columns_ = 0;      // that were sampled
    Block from_;
    Block to_;
};

}  // namespace

void BRDFCorrection(const char* szFILI, const int* panDBIC, int nNumChans, int nORDER) {
    KSDataSet* dataSet = KSOpen(szFILI, "r+");
    if (dataSet == nullptr) {
        IMPErrChar(159, 1, "FILI", szFILI);
        return;
    }
    {
        Correction correction(*dataSet, panDBIC, nNumChans, nORDER);
        correction.run(panDBIC);  // its failures are reported where they happen
    }
    KSClose(dataSet);
}
