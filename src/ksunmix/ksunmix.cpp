// Unmixing of single pixels. What a set-up leaves for later pixels is one record, replaced by the next set-up.
#include <kslib/ksunmix.h>

#include <algorithm>
#include <climits>
#include <cstdint>

#include "ksunmix/mixture.hpp"
#include "ksunmix/nnls.hpp"
#include "ksunmix/svd.hpp"
#include "support/heap.hpp"
#include "support/report.hpp"

namespace ks {

float sumToOneTarget(const float* const* rows, int bands, int endmembers) {
    float largest = 0.0F;
    for (int b = 0; b < bands; ++b) {
        float sum = 0.0F;
        for (int e = 0; e < endmembers; ++e) sum += rows[b][e];
        // Negative sums count too: the first band is where the search starts.
        if (b == 0 || sum > largest) largest = sum;
    }
    return largest * static_cast<float>(bands);
}

void clearSmallSingularValues(float* singularValues, int endmembers) {
    constexpr float kShare = 1e-5F;
    float largest = 0.0F;
    for (int e = 0; e < endmembers; ++e) largest = std::max(largest, singularValues[e]);
    for (int e = 0; e < endmembers; ++e) {
        if (singularValues[e] < kShare * largest) singularValues[e] = 0.0F;
    }
}

void normaliseFractions(float* fractions, int endmembers, const UnmixOptions& options) {
    if (!options.normalise) return;
    constexpr float kNothing = 1e-6F;
    if (options.nonNegative) {
        for (int e = 0; e < endmembers; ++e) {
            if (fractions[e] < 0.0F) fractions[e] = 0.0F;
        }
    }
    if (!options.sumToOne) return;
    float sum = 0.0F;
    for (int e = 0; e < endmembers; ++e) {
        if (std::fabs(fractions[e]) > kNothing) sum += fractions[e];
    }
    if (std::fabs(sum) > kNothing) {
        for (int e = 0; e < endmembers; ++e) fractions[e] /= sum;
    } else {
        std::fill_n(fractions, endmembers, 0.0F);
    }
}

}  // namespace ks

using namespace ks;

namespace {

constexpr const char* kLabel = "get_endmember_fractions ()";

struct SetUp {
    int equations = 0;
    int endmembers = 0;

    // Without sign constraints.
    bool decomposed = false;
    Heap<float[]> singularValues;
    Heap<float[]> v;
    Heap<float[]> original;  // the rows before the decomposition took their place

    // Non-negative.
    Heap<double[]> a;
    Heap<double[]> b;
    Heap<double[]> x;
    Heap<double[]> w;
    Heap<double[]> zz;
    Heap<int[]> index;
};

SetUp kept;

struct Problem {
    float* const* rows;
    const float* pixel;
    float* fractions;
    int endmembers;
    int bands;
};

void setUpNnls(std::int64_t equations, std::int64_t unknowns) {
    constexpr const char* kNnlsLabel = "setup_nnls ()";
    kept.a = allocateArray<double>(equations, std::max(equations, unknowns));
    if (!kept.a) IMPError(83, 0, "%s: a == NULL, HMalloc() failed.\n", kNnlsLabel);
    kept.b = allocateArray<double>(equations);
    if (!kept.b) IMPError(83, 0, "%s: b == NULL, HMalloc() failed.\n", kNnlsLabel);
    kept.x = allocateArray<double>(unknowns);
    if (!kept.x) IMPError(83, 0, "%s: x == NULL, HMalloc() failed.\n", kNnlsLabel);
    kept.w = allocateArray<double>(unknowns);
    if (!kept.w) IMPError(83, 0, "%s: w == NULL, HMalloc() failed.\n", kNnlsLabel);
    kept.zz = allocateArray<double>(equations);
    if (!kept.zz) IMPError(83, 0, "%s: zz == NULL, HMalloc() failed.\n", kNnlsLabel);
    kept.index = allocateArray<int>(unknowns);
    if (!kept.index) IMPError(83, 0, "%s: nIndex == NULL, HMalloc() failed.\n", kNnlsLabel);
}

int setUpDecomposition(const Problem& problem) {
    const int endmembers = problem.endmembers;
    kept.singularValues = allocateArray<float>(endmembers);
    kept.v = allocateArray<float>(endmembers, endmembers);
    kept.original = allocateArray<float>(kept.equations, endmembers);
    if (!kept.singularValues) return KS_FAIL("%s: W == NULL, HMalloc() failed.\n", kLabel);
    if (!kept.v) return KS_FAIL("%s: V == NULL, HMalloc() failed.\n", kLabel);
    if (!kept.original) return KS_FAIL("%s: pafEndmembersCopy == NULL, HMalloc() failed.\n", kLabel);
    for (int b = 0; b < kept.equations; ++b) {
        std::copy_n(problem.rows[b], endmembers, kept.original.get() + std::int64_t{b} * endmembers);
    }
    if (!decompose(problem.rows, kept.equations, endmembers, kept.singularValues.get(), kept.v.get())) {
        return KS_FAIL("%s: no memory for the decomposition.\n", kLabel);
    }
    clearSmallSingularValues(kept.singularValues.get(), endmembers);
    kept.decomposed = true;
    return kOk;
}

int setUp(const Problem& problem, float* pixel, const UnmixOptions& options) {
    kept = SetUp();
    kept.endmembers = problem.endmembers;
    kept.equations = problem.bands;
    if (options.sumToOne) {
        const float target = sumToOneTarget(problem.rows, problem.bands, problem.endmembers);
        std::fill_n(problem.rows[problem.bands], problem.endmembers, target);
        pixel[problem.bands] = target;
        ++kept.equations;
    }
    if (!options.nonNegative) return setUpDecomposition(problem);
    setUpNnls(kept.equations, kept.endmembers);
    return kOk;
}

int solveNonNegative(const Problem& problem) {
    if (!kept.a || !kept.b || !kept.x || !kept.w || !kept.zz || !kept.index) return kFailed;
    double* row = kept.a.get();
    for (int b = 0; b < kept.equations; ++b) row = std::copy_n(problem.rows[b], problem.endmembers, row);
    std::copy_n(problem.pixel, kept.equations, kept.b.get());
    double residualNorm = 0.0;
    const NnlsVectors vectors = {kept.b.get(), kept.x.get(), kept.w.get(), kept.zz.get()};
    const int mode =
        solveNnls(kept.a.get(), kept.equations, problem.endmembers, vectors, &residualNorm, kept.index.get());
    if (mode != kNnlsSolved) return kFailed;
    for (int e = 0; e < problem.endmembers; ++e) {
        problem.fractions[e] = static_cast<float>(kept.x[static_cast<std::size_t>(e)]);
    }
    return kOk;
}

void backSubstitute(const Problem& problem) {
    // V t, with one element of t at a time: every fraction is still summed in the order of t.
    std::fill_n(problem.fractions, problem.endmembers, 0.0F);
    for (int k = 0; k < problem.endmembers; ++k) {
        const float singularValue = kept.singularValues[static_cast<std::size_t>(k)];
        float t = 0.0F;
        if (singularValue != 0.0F) {
            for (int b = 0; b < kept.equations; ++b) t += problem.rows[b][k] * problem.pixel[b];
            t /= singularValue;
        }
        for (int e = 0; e < problem.endmembers; ++e) {
            problem.fractions[e] += kept.v[static_cast<std::size_t>(std::int64_t{e} * problem.endmembers + k)] * t;
        }
    }
}

float misfit(const Problem& problem, bool nonNegative) {
    float squares = 0.0F;
    for (int b = 0; b < problem.bands; ++b) {
        const float* row = nonNegative ? problem.rows[b] : kept.original.get() + std::int64_t{b} * problem.endmembers;
        float modelled = 0.0F;
        for (int e = 0; e < problem.endmembers; ++e) modelled += row[e] * problem.fractions[e];
        const float difference = modelled - problem.pixel[b];
        squares += difference * difference;
    }
    return rootMeanSquare(squares, problem.bands);
}

/// The equations of a call: its bands, and one for the sum.
std::int64_t equationsOf(const Problem& problem, const UnmixOptions& options) {
    return std::int64_t{problem.bands} + (options.sumToOne ? 1 : 0);
}

bool hasRows(const Problem& problem, const UnmixOptions& options) {
    if (problem.endmembers == 0) return true;
    return std::all_of(problem.rows, problem.rows + equationsOf(problem, options),
                       [](const float* row) { return row != nullptr; });
}

/// A pixel may follow a set-up of its own sizes only: anything else would reach past the arrays of one or the other.
bool followsSetUp(const Problem& problem, const UnmixOptions& options) {
    return problem.endmembers == kept.endmembers && problem.bands <= kept.equations &&
           kept.equations <= equationsOf(problem, options);
}

}  // namespace

extern "C" {

int get_endmember_fractions(float** papafEndmembers, float* pafPixel, float* pafFractions, int nNumEndmembers,
                            int nNumBands, int bSumToOne, int bNonNegative, int bNormalise, int bNewEndmembers) {
    if (papafEndmembers == nullptr) return KS_FAIL("%s: papafEndmembers == NULL.\n", kLabel);
    if (pafPixel == nullptr) return KS_FAIL("%s: pafPixel == NULL.\n", kLabel);
    if (pafFractions == nullptr) return KS_FAIL("%s: pafFractions == NULL.\n", kLabel);
    if (nNumEndmembers < 0) return KS_FAIL("%s: nNumEndmembers < 0.\n", kLabel);
    if (nNumBands < 0 || nNumBands == INT_MAX) return KS_FAIL("%s: nNumBands (%d) is unusable.\n", kLabel, nNumBands);

    const UnmixOptions options = {bSumToOne != 0, bNonNegative != 0, bNormalise != 0};
    const Problem problem = {papafEndmembers, pafPixel, pafFractions, nNumEndmembers, nNumBands};
    if (!hasRows(problem, options)) return KS_FAIL("%s: a row of papafEndmembers is NULL.\n", kLabel);
    if (bNewEndmembers != 0 && setUp(problem, pafPixel, options) != kOk) return kFailed;
    if (!followsSetUp(problem, options)) return KS_FAIL("%s: the sizes are not those of the set-up.\n", kLabel);
    if (!options.nonNegative && !kept.decomposed) return KS_FAIL("%s: no decomposition was set up.\n", kLabel);

    int result = kOk;
    if (options.nonNegative) {
        result = solveNonNegative(problem);
    } else {
        backSubstitute(problem);
    }
    if (result == kOk) normaliseFractions(pafFractions, nNumEndmembers, options);
    pafFractions[nNumEndmembers] = misfit(problem, options.nonNegative);
    return result;
}

}  // extern "C"
