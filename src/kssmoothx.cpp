// Smoothing in which every value of a segment has a window of its own: centred on it, and as much narrower towards the
// ends of the segment as is needed to stay centred, so that a straight line stays where it is.
#include <kslib/extra.h>

#include <kslib/ksdatset.h>
#include <kslib/ksld.h>
#include <kslib/kssio.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "support/heap.hpp"
#include "support/report.hpp"

using namespace ks;

namespace {

// As in the functions that these stand in for.
constexpr int kSmoothed = 1;
constexpr int kNotSmoothed = 0;

constexpr double kMaskedValue = -1.23e34;

int checkArguments(const VEC* values, const KSSmoothParms* parms, const char* label) {
    if (values == nullptr) return KS_FAIL("%s: pValues == NULL.\n", label);
    if (parms == nullptr) return KS_FAIL("%s: psParms == NULL.\n", label);
    if (parms->nNumSegments <= 0) return kOk;
    if (parms->pnIndex1 == nullptr) return KS_FAIL("%s: psParms->pnIndex1 == NULL.\n", label);
    if (parms->pnIndex2 == nullptr) return KS_FAIL("%s: psParms->pnIndex2 == NULL.\n", label);
    return kOk;
}

int checkSchema(const VEC& values, const KSSTSchema* schema, const char* label) {
    if (schema == nullptr) return KS_FAIL("%s: psParms->pSTSchema == NULL.\n", label);
    if (schema->pMeasFld == nullptr) return KS_FAIL("%s: psParms->pSTSchema->pMeasFld == NULL.\n", label);
    if (schema->nNumMeasFlds < static_cast<std::int64_t>(values.dim)) {
        return KS_FAIL("%s: psParms->pSTSchema->nNumMeasFlds < pValues->dim.\n", label);
    }
    return kOk;
}

/// Values on either side of the one in the middle of a window.
std::int64_t reachOf(float width, std::int64_t size) {
    const double length = std::floor(static_cast<double>(width) + 0.5);
    if (!(length >= 2.0)) return 0;
    return length / 2 < static_cast<double>(size) ? static_cast<std::int64_t>(length) / 2 : size;
}

int qualityOf(const KSSmoothParms& parms, std::int64_t index) {
    if (parms.peBandQual != nullptr) return parms.peBandQual[index];
    const KSSensor* const sensor = parms.pSensor;
    const bool known = sensor != nullptr && sensor->peBandQual != nullptr && index < sensor->nNumBands;
    return known ? sensor->peBandQual[index] : KS_BQ_PLOT;
}

bool isUsable(const KSSmoothParms& parms, const double* values, std::int64_t index) {
    if (parms.bCheckQual == 0) return true;
    const double value = values[index];
    // Windows and codebooks keep the masked value in single precision.
    const bool masked = value == kMaskedValue || value == static_cast<double>(static_cast<float>(kMaskedValue));
    const int quality = qualityOf(parms, index);
    return std::isfinite(value) && !masked && quality != KS_BQ_SKIP && quality != KS_BQ_MASK;
}

/// Calls body(first, last) for each run of usable values of each segment.
template <class Body>
void forEachRun(const double* values, std::int64_t size, const KSSmoothParms& parms, Body body) {
    for (int segment = 0; segment < parms.nNumSegments; ++segment) {
        const std::int64_t last = std::min<std::int64_t>(parms.pnIndex2[segment], size - 1);
        std::int64_t first = std::max(parms.pnIndex1[segment], 0);
        while (first <= last) {
            if (!isUsable(parms, values, first)) {
                ++first;
                continue;
            }
            std::int64_t end = first;
            while (end < last && isUsable(parms, values, end + 1)) ++end;
            body(first, end);
            first = end + 1;
        }
    }
}

/// Gives each value of a vector combine(values, centre, reach), where a window of more than the value itself fits.
template <class Combine>
int smooth(VEC& vector, const KSSmoothParms& parms, const char* label, Combine combine) {
    const std::int64_t size = vector.dim;
    const Heap<double[]> values = allocateArray<double>(size);
    if (!values) return KS_FAIL("%s: Failed to allocate the window, HMalloc() failed.\n", label);
    std::copy(vector.ve, vector.ve + size, values.get());
    const std::int64_t reach = reachOf(parms.fWidth, size);
    forEachRun(values.get(), size, parms, [&](std::int64_t first, std::int64_t last) {
        for (std::int64_t centre = first; centre <= last; ++centre) {
            const std::int64_t fits = std::min({reach, centre - first, last - centre});
            if (fits > 0) vector.ve[centre] = combine(values.get(), centre, fits);
        }
    });
    return kOk;
}

}  // namespace

extern "C" {

int KSXSmoothGauss(VEC* pValues, KSSmoothParms* psParms) {
    constexpr const char* kLabel = "KSXSmoothGauss ()";
    if (checkArguments(pValues, psParms, kLabel) != kOk) return kNotSmoothed;
    if (pValues->dim == 0 || psParms->nNumSegments <= 0) return kSmoothed;
    const KSSTSchema* const schema = psParms->pSTSchema;
    if (checkSchema(*pValues, schema, kLabel) != kOk) return kNotSmoothed;
    const double width = static_cast<double>(psParms->fWidth);
    const auto mean = [schema, width](const double* values, std::int64_t centre, std::int64_t reach) {
        const double middle = static_cast<double>(schema->pMeasFld[centre].fWlen);
        double sum = 0.0;
        double total = 0.0;
        for (std::int64_t i = centre - reach; i <= centre + reach; ++i) {
            const double distance = (static_cast<double>(schema->pMeasFld[i].fWlen) - middle) / width;
            const double weight = std::exp(-(distance * distance));
            sum += weight * values[i];
            total += weight;
        }
        return sum / total;
    };
    return smooth(*pValues, *psParms, kLabel, mean) == kOk ? kSmoothed : kNotSmoothed;
}

int KSXSmoothMedian(VEC* pValues, KSSmoothParms* psParms) {
    constexpr const char* kLabel = "KSXSmoothMedian ()";
    if (checkArguments(pValues, psParms, kLabel) != kOk) return kNotSmoothed;
    if (pValues->dim == 0 || psParms->nNumSegments <= 0) return kSmoothed;
    const std::int64_t reach = reachOf(psParms->fWidth, pValues->dim);
    const Heap<double[]> work = allocateArray<double>(2 * reach + 1);
    if (!work) {
        return IMPError(83, 0, "%s: Failed to allocate the window, HMalloc() failed.\n", kLabel), kNotSmoothed;
    }
    double* const window = work.get();
    const auto median = [window](const double* values, std::int64_t centre, std::int64_t fits) {
        std::copy(values + centre - fits, values + centre + fits + 1, window);
        // Not-a-numbers, which are there only when quality is not checked, go last.
        std::nth_element(window, window + fits, window + 2 * fits + 1,
                         [](double a, double b) { return std::isnan(b) ? !std::isnan(a) : a < b; });
        return window[fits];
    };
    return smooth(*pValues, *psParms, kLabel, median) == kOk ? kSmoothed : kNotSmoothed;
}

}  // extern "C"
