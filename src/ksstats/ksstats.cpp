// Band statistics: members of the record, and their evaluation block by block.
#include <kslib/ksstats.h>

#include <kslib/extra.h>
#include <kslib/ksdatset.h>
#include <kslib/ksld.h>
#include <kslib/kslps.h>
#include <kslib/ksroi.h>
#include <kslib/kswinex.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "ksstats/moments.hpp"
#include "support/heap.hpp"
#include "support/matrix.hpp"
#include "support/narrow.hpp"
#include "support/report.hpp"

using namespace ks;

namespace {

// ---- the request ----

/// What is evaluated over which data, and how reports name the caller.
struct Request {
    const char* label;
    const KSDataSet* dataSet;
    int level;
    const KSSampDesc* sampling;
    const KSROI* region;
    KSBandStats* stats;
    int bands = 0;  // set by check()

    int xInterval() const { return sampling == nullptr ? 1 : sampling->nXSampleInt; }
    int yInterval() const { return sampling == nullptr ? 1 : sampling->nYSampleInt; }
    int band(int j) const { return sampling == nullptr ? j : sampling->panBandMap[j]; }
};

int checkMembers(const KSBandStats& stats, int bands, const char* label) {
    const auto differs = [bands](unsigned size) { return static_cast<int>(size) != bands; };
    const auto printed = [](unsigned size) { return static_cast<int>(size); };
    if (stats.pMin != nullptr && differs(stats.pMin->dim)) {
        return KS_FAIL("%s: pMin->dim is %d, should be %d\n", label, printed(stats.pMin->dim), bands);
    }
    if (stats.pMax != nullptr && differs(stats.pMax->dim)) {
        return KS_FAIL("%s: pMax->dim is %d, should be %d\n", label, printed(stats.pMax->dim), bands);
    }
    if (stats.pMean != nullptr && differs(stats.pMean->dim)) {
        return KS_FAIL("%s: pMean->dim is %d, should be %d\n", label, printed(stats.pMean->dim), bands);
    }
    if (stats.pSD != nullptr && differs(stats.pSD->dim)) {
        return KS_FAIL("%s: pSD->dim is %d, should be %d\n", label, printed(stats.pSD->dim), bands);
    }
    if (stats.pCov != nullptr && differs(stats.pCov->m)) {
        return KS_FAIL("%s: pCov->m is %d, should be %d\n", label, printed(stats.pCov->m), bands);
    }
    if (stats.pCov != nullptr && differs(stats.pCov->n)) {
        return KS_FAIL("%s: pCov->n is %d, should be %d\n", label, printed(stats.pCov->n), bands);
    }
    return kOk;
}

/// Without bands there is nothing to evaluate, which is no failure: request.bands stays 0.
int check(Request& request) {
    const char* label = request.label;
    if (request.dataSet == nullptr) return KS_FAIL("%s: pDataSet == NULL\n", label);
    if (request.level < 0 || request.level > request.dataSet->nNumRadTrans) {
        return KS_FAIL("%s: nRadTRansLev < 0 || nRadTransLev > pDataSet->nNumRadTrans\n", label);
    }
    if (request.stats == nullptr) return KS_FAIL("%s: pBandStats == NULL\n", label);
    const int bands = request.sampling == nullptr ? request.dataSet->Sensor.nNumBands : request.sampling->nNumBands;
    if (bands < 1) return kOk;
    if (checkMembers(*request.stats, bands, label) != kOk) return kFailed;
    if (request.sampling != nullptr && request.sampling->panBandMap == nullptr) {
        return KS_FAIL("%s: pSampDesc->panBandMap == NULL\n", label);
    }
    request.bands = bands;
    return kOk;
}

/// Image pixels from a left column and top row on.
struct Area {
    std::int64_t x;
    std::int64_t y;
    std::int64_t width;
    std::int64_t height;

    std::int64_t lastRow() const { return y + height - 1; }
};

/// The pixels of the region, which may lie outside of the image.
Area areaOf(const Request& request) {
    const KSROI* region = request.region;
    if (region == nullptr) return {0, 0, request.dataSet->nXSize, request.dataSet->nYSize};
    if (region->eROIType != KS_ROI_POINT) return {region->nXOff, region->nYOff, region->nXSize, region->nYSize};
    const std::int64_t half = region->nXSize / 2;
    return {region->nXOff - half, region->nYOff - half, region->nXSize, 2 * half + 1};
}

// ---- windows ----

/// The working window: pixel-interleaved, with the bands of the request.
class Block {
public:
    Block() { KSInitWinEx(&window_); }
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
    ~Block() { KSFreeWinEx(&window_); }

    int allocate(const Request& request, int x, int width, int height, int xInterval, int yInterval) {
        KSFreeWinEx(&window_);
        window_.eBandIntlv = KS_INTLV_PIXEL;
        window_.nRadTransLev = request.level;
        window_.nXOff = x;
        window_.nXSize = width;
        window_.nYSize = height;
        window_.SampDesc.nXSampleInt = xInterval;
        window_.SampDesc.nYSampleInt = yInterval;
        window_.SampDesc.nNumBands = request.bands;
        if (KSAllocWinEx(&window_) != kOk) return kFailed;
        for (int j = 0; j < request.bands; ++j) window_.SampDesc.panBandMap[j] = request.band(j);
        return kOk;
    }
    void place(std::int64_t y) { window_.nYOff = narrow(y); }
    KSWinEx* get() { return &window_; }
    const KSWinEx* get() const { return &window_; }

private:
    KSWinEx window_;
};

/// Lines that a block may hold; lineCount is what the area has.
int linesPerBlock(const Request& request, std::int64_t sampleCount, std::int64_t lineCount, int& lines) {
    constexpr float kShare = 0.25F;
    if (KSLPS(request.dataSet, narrow(sampleCount), request.bands, KS_USE_EX, 1, kShare, narrow(lineCount), &lines) !=
        kOk) {
        return KS_FAIL("KSLPS failed\n");
    }
    return kOk;
}

// ---- sums ----

/// The sums of one evaluation, in the members of the record, and the band vectors on their way into them.
class Sums {
public:
    explicit Sums(const Request& request) : request_(request) {}

    /// Where the extremes start, and whether a not-a-number stays in them.
    void start(double min, double max, bool marksNaN) {
        marksNaN_ = marksNaN;
        KSBandStats& stats = *request_.stats;
        stats.nNumSamples = 0;
        fill(stats.pMin, min);
        fill(stats.pMax, max);
        fill(mean_, 0.0);
        fill(stats.pSD, 0.0);
        if (stats.pCov == nullptr) return;
        for (int i = 0; i < request_.bands; ++i) std::fill_n(stats.pCov->me[i], request_.bands, 0.0);
    }

    /// Adds what waits. What was accepted before a failure is in the members all the same.
    void flush() {
        KSBandStats& stats = *request_.stats;
        const Moments moments = {
            request_.bands,  valuesOf(stats.pMin), valuesOf(stats.pMax),
            valuesOf(mean_), valuesOf(stats.pSD),  stats.pCov == nullptr ? nullptr : stats.pCov->me,
            marksNaN_};
        addSamples(tile_ ? tile_.get() : vector_->ve, static_cast<std::size_t>(waiting_), moments);
        stats.nNumSamples += static_cast<unsigned>(waiting_);
        waiting_ = 0;
    }

    /// Turns sums into statistics. Without samples the members stay as they started.
    void finish() {
        const KSBandStats& stats = *request_.stats;
        if (stats.nNumSamples == 0) return;
        const double count = stats.nNumSamples;
        if (mean_ != nullptr) {
            for (int b = 0; b < request_.bands; ++b) mean_->ve[b] /= count;
        }
        if (stats.pSD != nullptr) finishDeviations(count);
        if (stats.pCov != nullptr) finishCovariances(count);
    }

    /// Rounding can take a variance below zero, where the deviation is not a number; there is none then.
    void mendVariances() {
        const KSBandStats& stats = *request_.stats;
        if (stats.nNumSamples == 0) return;
        for (int b = 0; b < request_.bands; ++b) {
            if (stats.pSD != nullptr && std::isnan(stats.pSD->ve[b]) && std::isfinite(mean_->ve[b])) {
                stats.pSD->ve[b] = 0.0;
            }
            if (stats.pCov != nullptr && stats.pCov->me[b][b] < 0.0) stats.pCov->me[b][b] = 0.0;
        }
    }

protected:
    int bands() const { return request_.bands; }
    const char* label() const { return request_.label; }

    int allocateVector() {
        vector_ = makeVector(request_.bands);
        if (!vector_) return KS_FAIL("%s: failed to allocated memory for pBandVect\n", label());
        // Many vectors at a time are faster; one at a time will do.
        tile_ = allocateArray<double>(kTileVectors, std::int64_t{request_.bands});
        return kOk;
    }
    /// The mean is needed for deviations and covariances, also where it is not wanted.
    int allocateMean() {
        const KSBandStats& stats = *request_.stats;
        mean_ = stats.pMean;
        if (mean_ != nullptr || (stats.pSD == nullptr && stats.pCov == nullptr)) return kOk;
        ownMean_ = makeVector(request_.bands);
        if (!ownMean_) return KS_FAIL("%s: failed to allocated memory for pMean\n", label());
        mean_ = ownMean_.get();
        return kOk;
    }

    /// Room for the next band vector, which counts with the call of accept().
    VEC next() {
        VEC view = *vector_;
        if (tile_) view.ve = tile_.get() + std::ptrdiff_t{waiting_} * request_.bands;
        return view;
    }
    void accept() {
        ++waiting_;
        if (waiting_ == kTileVectors || !tile_) flush();
    }

private:
    static constexpr std::int64_t kTileVectors = 64;

    static double* valuesOf(VEC* vector) { return vector == nullptr ? nullptr : vector->ve; }
    void fill(VEC* vector, double value) {
        if (vector != nullptr) std::fill_n(vector->ve, request_.bands, value);
    }

    void finishDeviations(double count) {
        for (int b = 0; b < request_.bands; ++b) {
            double& value = request_.stats->pSD->ve[b];
            value = std::sqrt(value / count - mean_->ve[b] * mean_->ve[b]);
        }
    }
    void finishCovariances(double count) {
        double* const* covariance = request_.stats->pCov->me;
        for (int i = 0; i < request_.bands; ++i) {
            for (int j = i; j < request_.bands; ++j) {
                covariance[i][j] = covariance[i][j] / count - mean_->ve[i] * mean_->ve[j];
                covariance[j][i] = covariance[i][j];
            }
        }
    }

    const Request& request_;
    Vector vector_;
    Vector ownMean_;
    VEC* mean_ = nullptr;
    Heap<double[]> tile_;
    int waiting_ = 0;
    bool marksNaN_ = false;
};

/// Sample ranges of a block, last ones included.
struct Range {
    int x0;
    int y0;
    int x1;
    int y1;
};

/// Tells whether a sample of the block lies in the region.
int isInRegion(const Request& request, const Block& block, int x, int y, bool& isInside) {
    isInside = true;
    if (request.region == nullptr) return kOk;
    int inside = 0;
    if (KSInROIWinEx(request.region, block.get(), x, y, &inside) != kOk) return KS_FAIL("KSInROIWinEx () failed.\n");
    isInside = inside != 0;
    return kOk;
}

int extract(VEC& vector, const Block& block, int x, int y) {
    if (KSExtractVectWinEx(&vector, block.get(), x, y) != kOk) return KS_FAIL("KSExtractVectWinEx () failed.\n");
    return kOk;
}

/// Adds the samples of a block one by one.
class SampleSums : public Sums {
public:
    using Sums::Sums;

    int xOffset() const { return 0; }
    int yOffset() const { return 0; }
    int allocate() { return allocateVector() == kOk ? allocateMean() : kFailed; }

    static Range rangeWithoutRegion(const KSWinEx& window) {
        return {0, 0, window.nNumXSamples - 1, window.nNumYSamples - 1};
    }
    static Range rangeInRegion(const Range& covered) { return covered; }
    int add(const Block& block, int x, int y) {
        VEC vector = next();
        if (extract(vector, block, x, y) != kOk) return kFailed;
        accept();
        return kOk;
    }
};

/// Adds the absolute differences of pairs of samples.
class DifferenceSums : public Sums {
public:
    DifferenceSums(const Request& request, int xOffset, int yOffset)
        : Sums(request), xOffset_(xOffset), yOffset_(yOffset) {}

    int xOffset() const { return xOffset_; }
    int yOffset() const { return yOffset_; }
    int allocate() {
        if (allocateVector() != kOk) return kFailed;
        first_ = makeVector(bands());
        if (!first_) return KS_FAIL("%s: failed to allocated memory for pBandVectOff\n", label());
        second_ = makeVector(bands());
        if (!second_) return KS_FAIL("%s: failed to allocated memory for pBandVectDif\n", label());
        return allocateMean();
    }

    /// The last column and row that have a neighbour are left out: ends are exclusive.
    Range rangeWithoutRegion(const KSWinEx& window) const {
        return {0, 0, narrow(std::int64_t{window.nNumXSamples} - xOffset_ - 2),
                narrow(std::int64_t{window.nNumYSamples} - yOffset_ - 2)};
    }
    /// Ends are exclusive here too, and columns start at the number of the first row: results are compared with those
    /// of earlier evaluations.
    static Range rangeInRegion(const Range& covered) {
        return {covered.y0, covered.y0, covered.x1 - 1, covered.y1 - 1};
    }

    int add(const Block& block, int x, int y) {
        if (extract(*first_, block, x, y) != kOk) return kFailed;
        if (extract(*second_, block, narrow(std::int64_t{x} + xOffset_), narrow(std::int64_t{y} + yOffset_)) != kOk) {
            return kFailed;
        }
        const VEC difference = next();
        for (int b = 0; b < bands(); ++b) difference.ve[b] = std::abs(first_->ve[b] - second_->ve[b]);
        accept();
        return kOk;
    }

private:
    int xOffset_;
    int yOffset_;
    Vector first_;
    Vector second_;
};

// ---- the evaluation by blocks ----

template <class Adder>
int addRange(const Request& request, const Block& block, const Range& range, Adder& sums) {
    for (int y = range.y0; y <= range.y1; ++y) {
        for (int x = range.x0; x <= range.x1; ++x) {
            bool isInside = true;
            if (isInRegion(request, block, x, y, isInside) != kOk) return kFailed;
            if (isInside && sums.add(block, x, y) != kOk) return kFailed;
        }
    }
    return kOk;
}

template <class Adder>
int addBlock(const Request& request, Block& block, Adder& sums) {
    Range range = sums.rangeWithoutRegion(*block.get());
    if (request.region != nullptr) {
        int overlaps = 0;
        Range covered = {0, 0, 0, 0};
        if (KSROIWinEx(request.region, block.get(), &overlaps, &covered.x0, &covered.y0, &covered.x1, &covered.y1) !=
            kOk) {
            return KS_FAIL("KSROIWinEx () failed.\n");
        }
        if (overlaps == 0) return kOk;
        range = sums.rangeInRegion(covered);
    }
    if (KSReadWinEx(request.dataSet, block.get()) != kOk) return KS_FAIL("KSReadWinEx () failed.\n");
    const int status = addRange(request, block, range, sums);
    sums.flush();
    return status;
}

/// Divides what the caller gave; an interval that nothing can be divided by is left for the window to refuse.
std::int64_t divided(std::int64_t size, int interval) { return interval > 0 ? size / interval : size; }

template <class Adder>
int addBlocks(const Request& request, const Area& area, Block& block, int lines, Adder& sums) {
    const std::int64_t end = area.lastRow() + 1;
    const std::int64_t step = std::int64_t{lines} * request.yInterval();
    for (std::int64_t y = area.y; y < end; y += step) {
        const std::int64_t remaining = end - y;
        if (y + step > end && remaining != lines &&
            block.allocate(request, narrow(area.x), narrow(area.width), narrow(remaining), request.xInterval(),
                           request.yInterval()) != kOk) {
            return KS_FAIL("%s: failed to allocate memory for WinEx.\n", request.label);
        }
        block.place(y);
        if (addBlock(request, block, sums) != kOk) return kFailed;
    }
    return kOk;
}

/// The window has as many rows as a block has lines, whatever the row interval: rows between the end of a block and the
/// next one are not sampled.
int allocateBlock(const Request& request, const Area& area, Block& block, int& lines) {
    if (linesPerBlock(request, divided(area.width, request.xInterval()), divided(area.height, request.yInterval()),
                      lines) != kOk) {
        return kFailed;
    }
    if (block.allocate(request, narrow(area.x), narrow(area.width), lines, request.xInterval(), request.yInterval()) !=
        kOk) {
        return KS_FAIL("%s: failed to allocated memory for WinEx\n", request.label);
    }
    return kOk;
}

template <class Adder>
int evaluate(Request& request, Adder& sums) {
    constexpr double kLargestFloat = 3.4028234663852886e38;
    // Where the maximum starts: a band whose values all lie below keeps it.
    constexpr double kSmallestNormalFloat = 1.1754943508222875e-38;
    if (check(request) != kOk) return kFailed;
    if (request.bands == 0) return kOk;
    const Area area = areaOf(request);
    Block block;
    int lines = 0;
    if (allocateBlock(request, area, block, lines) != kOk || sums.allocate() != kOk) return kFailed;
    sums.start(kLargestFloat, kSmallestNormalFloat, false);
    if (addBlocks(request, area, block, lines, sums) != kOk) return kFailed;
    sums.finish();
    return kOk;
}

// ---- the evaluation of our own additions ----

/// A direction of the sampling grid: every `interval`-th pixel from `first` on, inside the image.
struct Axis {
    std::int64_t first;
    int interval;
    std::int64_t count;
};

Axis axisOf(std::int64_t first, std::int64_t size, std::int64_t imageSize, int interval) {
    const std::int64_t from = std::clamp<std::int64_t>(first, 0, imageSize);
    const std::int64_t extent = std::clamp<std::int64_t>(first + size, from, imageSize) - from;
    // An interval wider than the extent leaves its first pixel.
    if (extent > 0 && extent < interval) return {from, 1, 1};
    return {from, interval, extent / interval};
}

int checkAddition(Request& request, int xOffset, int yOffset) {
    if (check(request) != kOk) return kFailed;
    if (request.xInterval() < 1 || request.yInterval() < 1) {
        return KS_FAIL("%s: pSampDesc->nXSampleInt < 1 || pSampDesc->nYSampleInt < 1\n", request.label);
    }
    if (xOffset < 0 || yOffset < 0) return KS_FAIL("%s: nXDiffOff < 0 || nYDiffOff < 0\n", request.label);
    return kOk;
}

/// Whether both samples of a pair lie in the region.
int isPairInRegion(const Request& request, const Block& block, int x, int y, int xOffset, int yOffset, bool& isInside) {
    if (isInRegion(request, block, x, y, isInside) != kOk) return kFailed;
    if (!isInside || (xOffset == 0 && yOffset == 0)) return kOk;
    return isInRegion(request, block, x + xOffset, y + yOffset, isInside);
}

/// All pairs of the block's first `rows` rows and their partners.
template <class Adder>
int addPairs(const Request& request, const Block& block, int rows, Adder& sums) {
    const int columns = block.get()->nNumXSamples - sums.xOffset();
    for (int y = 0; y < rows; ++y) {
        for (int x = 0; x < columns; ++x) {
            bool isInside = true;
            if (isPairInRegion(request, block, x, y, sums.xOffset(), sums.yOffset(), isInside) != kOk) return kFailed;
            if (isInside && sums.add(block, x, y) != kOk) return kFailed;
        }
    }
    sums.flush();
    return kOk;
}

/// All samples of the region that have a partner so far away, block by block; blocks overlap by the row offset.
template <class Adder>
int addAllPairs(const Request& request, Adder& sums) {
    const Area area = areaOf(request);
    const Axis columns = axisOf(area.x, area.width, request.dataSet->nXSize, request.xInterval());
    const Axis rows = axisOf(area.y, area.height, request.dataSet->nYSize, request.yInterval());
    const std::int64_t pairRows = rows.count - sums.yOffset();
    if (columns.count <= sums.xOffset() || pairRows <= 0) return kOk;
    int lines = 0;
    if (linesPerBlock(request, columns.count, rows.count, lines) != kOk) return kFailed;
    Block block;
    for (std::int64_t row = 0; row < pairRows; row += lines) {
        const std::int64_t here = std::min<std::int64_t>(lines, pairRows - row);
        const std::int64_t height = here + sums.yOffset();
        if (block.get()->nNumYSamples != height &&
            block.allocate(request, narrow(columns.first), narrow(columns.count * columns.interval),
                           narrow(height * rows.interval), columns.interval, rows.interval) != kOk) {
            return KS_FAIL("%s: failed to allocate memory for WinEx.\n", request.label);
        }
        block.place(rows.first + row * rows.interval);
        if (KSReadWinEx(request.dataSet, block.get()) != kOk) return KS_FAIL("KSReadWinEx () failed.\n");
        if (addPairs(request, block, narrow(here), sums) != kOk) return kFailed;
    }
    return kOk;
}

template <class Adder>
int evaluateAll(Request& request, Adder& sums) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    if (checkAddition(request, sums.xOffset(), sums.yOffset()) != kOk) return kFailed;
    if (request.bands == 0) return kOk;
    if (sums.allocate() != kOk) return kFailed;
    sums.start(kInfinity, -kInfinity, true);
    if (addAllPairs(request, sums) != kOk) return kFailed;
    sums.finish();
    sums.mendVariances();
    return kOk;
}

}  // namespace

int KSAllocMembsBandStats(KSBandStats* pBandStats, unsigned char byMembers, int nNumBands) {
    constexpr const char* label = "KSAllocMembsBandStats ()";
    if (pBandStats == nullptr) return KS_FAIL("%s: pBandStats == NULL\n", label);
    if (nNumBands <= 0) return KS_FAIL("%s: nNumBands <= 0\n", label);
    pBandStats->pMin = pBandStats->pMax = pBandStats->pMean = pBandStats->pSD = nullptr;
    pBandStats->pCov = nullptr;
    Undo freeMembers([pBandStats] { KSFreeMembsBandStats(pBandStats); });
    if ((byMembers & KS_BS_MIN) != 0 && (pBandStats->pMin = makeVector(nNumBands).release()) == nullptr) {
        return KS_FAIL("%s: pBandStats->pMin == NULL, v_get () failed\n", label);
    }
    if ((byMembers & KS_BS_MAX) != 0 && (pBandStats->pMax = makeVector(nNumBands).release()) == nullptr) {
        return KS_FAIL("%s: pBandStats->pMax == NULL, v_get () failed\n", label);
    }
    if ((byMembers & KS_BS_MEAN) != 0 && (pBandStats->pMean = makeVector(nNumBands).release()) == nullptr) {
        return KS_FAIL("%s: pBandStats->pMean == NULL, v_get () failed\n", label);
    }
    if ((byMembers & KS_BS_SD) != 0 && (pBandStats->pSD = makeVector(nNumBands).release()) == nullptr) {
        return KS_FAIL("%s: pBandStats->pSD == NULL, v_get () failed\n", label);
    }
    if ((byMembers & KS_BS_COV) != 0 && (pBandStats->pCov = makeMatrix(nNumBands, nNumBands).release()) == nullptr) {
        return KS_FAIL("%s: pBandStats->pCov == NULL, m_get () failed\n", label);
    }
    freeMembers.dismiss();
    return kOk;
}

void KSFreeMembsBandStats(KSBandStats* pBandStats) {
    if (pBandStats == nullptr) return;
    for (VEC** member : {&pBandStats->pMin, &pBandStats->pMax, &pBandStats->pMean, &pBandStats->pSD}) {
        Vector(*member).reset();
        *member = nullptr;
    }
    Matrix(pBandStats->pCov).reset();
    pBandStats->pCov = nullptr;
}

int KSEvalBandStats(const KSDataSet* pDataSet, int nRadTransLev, const KSSampDesc* pSampDesc, const KSROI* pROI,
                    KSBandStats* pBandStats) {
    Request request = {"KSEvalBandStats ()", pDataSet, nRadTransLev, pSampDesc, pROI, pBandStats};
    SampleSums sums(request);
    return evaluate(request, sums);
}

int KSEvalDiffBandStats(const KSDataSet* pDataSet, int nRadTransLev, int nXDiffOff, int nYDiffOff,
                        const KSSampDesc* pSampDesc, const KSROI* pROI, KSBandStats* pBandStats) {
    Request request = {"KSEvalDiffBandStats ()", pDataSet, nRadTransLev, pSampDesc, pROI, pBandStats};
    DifferenceSums sums(request, nXDiffOff, nYDiffOff);
    return evaluate(request, sums);
}

int KSXEvalBandStats(const KSDataSet* pDataSet, int nRadTransLev, const KSSampDesc* pSampDesc, const KSROI* pROI,
                     KSBandStats* pBandStats) {
    Request request = {"KSXEvalBandStats ()", pDataSet, nRadTransLev, pSampDesc, pROI, pBandStats};
    SampleSums sums(request);
    return evaluateAll(request, sums);
}

int KSXEvalDiffBandStats(const KSDataSet* pDataSet, int nRadTransLev, int nXDiffOff, int nYDiffOff,
                         const KSSampDesc* pSampDesc, const KSROI* pROI, KSBandStats* pBandStats) {
    Request request = {"KSXEvalDiffBandStats ()", pDataSet, nRadTransLev, pSampDesc, pROI, pBandStats};
    DifferenceSums sums(request, nXDiffOff, nYDiffOff);
    return evaluateAll(request, sums);
}
