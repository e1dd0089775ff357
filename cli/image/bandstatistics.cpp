#include "image/bandstatistics.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <new>

#include "app/report.hpp"
#include "image/bands.hpp"

namespace kscli {
namespace {

class Record {
public:
    Record(std::size_t bands, bool withCovariance) {
        const int members = KS_BS_MIN | KS_BS_MAX | KS_BS_MEAN | KS_BS_SD | (withCovariance ? KS_BS_COV : 0);
        if (KSAllocMembsBandStats(&record_, static_cast<unsigned char>(members), static_cast<int>(bands)) != 0) {
            throw std::bad_alloc();
        }
    }
    ~Record() { KSFreeMembsBandStats(&record_); }
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    KSBandStats* operator->() { return &record_; }
    KSBandStats* get() { return &record_; }

private:
    KSBandStats record_ = {};
};

std::vector<double> valuesOf(const VEC* vector) { return {vector->ve, vector->ve + vector->dim}; }

std::vector<double> rowsOf(const MAT* matrix) {
    std::vector<double> rows;
    for (unsigned row = 0; row < matrix->m; ++row)
        rows.insert(rows.end(), matrix->me[row], matrix->me[row] + matrix->n);
    return rows;
}

// Sums of squares of a constant leave a little over; it does not vary.
void settleConstants(BandStatistics& statistics) {
    const std::size_t count = statistics.bands.size();
    for (std::size_t i = 0; i < count; ++i) {
        if (statistics.min[i] < statistics.max[i] || std::isnan(statistics.min[i])) continue;
        statistics.mean[i] = statistics.min[i];
        statistics.sd[i] = 0;
        if (statistics.covariance.empty()) continue;
        for (std::size_t j = 0; j < count; ++j) {
            statistics.covariance[i * count + j] = statistics.covariance[j * count + i] = 0;
        }
    }
}

void evaluate(const DataSet& dataSet, int level, KSSampDesc& samples, const KSROI* region,
              std::optional<PairOffset> difference, KSBandStats* record) {
    const int failed =
        difference ? KSXEvalDiffBandStats(dataSet.get(), level, difference->x, difference->y, &samples, region, record)
                   : KSXEvalBandStats(dataSet.get(), level, &samples, region, record);
    if (failed != 0) fail("the statistics could not be computed (see above).");
    requireComplete("the statistics");
    throwIfInterrupted();
}

}  // namespace

BandStatistics statisticsOfValid(const DataSet& dataSet, const std::vector<int>& bands, int level, const KSROI* region,
                                 const ValidPixels& valid, bool withCovariance, std::optional<PairOffset> difference,
                                 int every) {
    BandStatistics result;
    const auto isEmpty = [&valid](int band) {
        return std::find(valid.emptyBands.begin(), valid.emptyBands.end(), band) != valid.emptyBands.end();
    };
    std::remove_copy_if(bands.begin(), bands.end(), std::back_inserter(result.bands), isEmpty);
    if (valid.valid == 0 || result.bands.empty()) {
        fail("no pixel has data in every band; choose bands or a region with data ('ks roi valid' shows where).");
    }
    KSSampDesc samples = {every, every, static_cast<int>(result.bands.size()), result.bands.data()};
    Record record(result.bands.size(), withCovariance);
    evaluate(dataSet, level, samples, valid.region != nullptr ? valid.region.get() : region, difference, record.get());
    if (record->nNumSamples == 0) {
        fail("no two pixels with data lie {} columns and {} lines apart; choose a smaller --diff.", difference->x,
             difference->y);
    }
    result.samples = record->nNumSamples;
    result.excluded = valid.excluded;
    result.min = valuesOf(record->pMin);
    result.max = valuesOf(record->pMax);
    result.mean = valuesOf(record->pMean);
    result.sd = valuesOf(record->pSD);
    if (withCovariance) result.covariance = rowsOf(record->pCov);
    settleConstants(result);
    return result;
}

BandStatistics bandStatistics(const DataSet& dataSet, const std::vector<int>& bands, int level, const KSROI* region,
                              bool withCovariance, std::optional<PairOffset> difference) {
    const ValidPixels valid = validPixels(dataSet, bands, level, region);
    if (!valid.emptyBands.empty() && valid.valid > 0) {
        fail("{} no data in any of the pixels; leave {} out with --bands.",
             bandRanges(valid.emptyBands) + (valid.emptyBands.size() == 1 ? " holds" : " hold"),
             valid.emptyBands.size() == 1 ? "it" : "them");
    }
    return statisticsOfValid(dataSet, bands, level, region, valid, withCovariance, difference);
}

std::vector<double> correlations(const BandStatistics& statistics) {
    const std::size_t count = statistics.bands.size();
    std::vector<double> result(count * count);
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t j = 0; j < count; ++j) {
            const double scale = std::sqrt(statistics.cov(i, i)) * std::sqrt(statistics.cov(j, j));
            result[i * count + j] = !(scale > 0) ? std::numeric_limits<double>::quiet_NaN()
                                    : i == j     ? 1.0
                                                 : std::clamp(statistics.cov(i, j) / scale, -1.0, 1.0);
        }
    }
    return result;
}

}  // namespace kscli
