// Unmixing of whole windows. What depends on the endmembers alone is made once and shared; pixels go through the
// kernels side by side, and each gets, to the bit, what get_endmember_fractions would give it.
#include <kslib/extra.h>
#include <kslib/kswinex.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>

#include "ksunmix/kernels.hpp"
#include "ksunmix/mixture.hpp"
#include "ksunmix/nnlsbatch.hpp"
#include "ksunmix/svd.hpp"
#include "kswinex/components.hpp"
#include "support/heap.hpp"
#include "support/report.hpp"

using namespace ks;

struct KSXUnmixer {
    UnmixOptions options;
    int endmembers;
    int bands;
    int equations;
    float target;          // the right-hand side of the equation for the sum
    Heap<float[]> matrix;  // a row for each equation, as given
    Heap<float*[]> rows;   // into u
    Heap<float[]> u;       // the decomposition of the matrix
    Heap<float[]> w;
    Heap<float[]> v;
    Heap<double[]> reals;  // the matrix for the non-negative solver
};

namespace {

struct UnmixerDeleter {
    void operator()(KSXUnmixer* unmixer) const {
        if (unmixer == nullptr) return;
        unmixer->~KSXUnmixer();
        std::free(unmixer);
    }
};

std::unique_ptr<KSXUnmixer, UnmixerDeleter> makeUnmixer() {
    void* block = memory::allocate(sizeof(KSXUnmixer));
    return std::unique_ptr<KSXUnmixer, UnmixerDeleter>(block == nullptr ? nullptr : new (block) KSXUnmixer());
}

constexpr const char* kCreateLabel = "KSXCreateUnmixer ()";
constexpr const char* kWinLabel = "KSXUnmixWin ()";
constexpr int kTilePixels = NnlsBatch::kMost;
static_assert(kTilePixels % kBlockPixels == 0);

int checkEndmembers(const float* const* rows, int endmembers, int bands) {
    if (rows == nullptr) return KS_FAIL("%s: papafEndmembers == NULL.\n", kCreateLabel);
    if (endmembers < 1) return KS_FAIL("%s: nNumEndmembers < 1.\n", kCreateLabel);
    if (bands < 1 || bands == INT_MAX) return KS_FAIL("%s: nNumBands (%d) is unusable.\n", kCreateLabel, bands);
    for (int b = 0; b < bands; ++b) {
        if (rows[b] == nullptr) return KS_FAIL("%s: papafEndmembers[%d] == NULL.\n", kCreateLabel, b);
        for (int e = 0; e < endmembers; ++e) {
            if (!std::isfinite(rows[b][e])) {
                return KS_FAIL("%s: endmember %d has no number in band %d.\n", kCreateLabel, e, b);
            }
        }
    }
    return kOk;
}

/// The matrix with the row for the sum; false when there is no memory.
bool copyMatrix(KSXUnmixer& unmixer, const float* const* rows) {
    unmixer.matrix = allocateArray<float>(unmixer.equations, unmixer.endmembers);
    if (!unmixer.matrix) return false;
    float* row = unmixer.matrix.get();
    for (int b = 0; b < unmixer.bands; ++b) row = std::copy_n(rows[b], unmixer.endmembers, row);
    if (unmixer.options.sumToOne) std::fill_n(row, unmixer.endmembers, unmixer.target);
    return true;
}

bool prepareReals(KSXUnmixer& unmixer) {
    const std::int64_t count = std::int64_t{unmixer.equations} * unmixer.endmembers;
    unmixer.reals = allocateArray<double>(count);
    if (!unmixer.reals) return false;
    std::copy_n(unmixer.matrix.get(), count, unmixer.reals.get());
    return true;
}

bool prepareDecomposition(KSXUnmixer& unmixer) {
    const std::int64_t endmembers = unmixer.endmembers;
    unmixer.u = allocateArray<float>(unmixer.equations, endmembers);
    unmixer.rows = allocateArray<float*>(unmixer.equations);
    unmixer.w = allocateArray<float>(endmembers);
    unmixer.v = allocateArray<float>(endmembers, endmembers);
    if (!unmixer.u || !unmixer.rows || !unmixer.w || !unmixer.v) return false;
    std::copy_n(unmixer.matrix.get(), unmixer.equations * endmembers, unmixer.u.get());
    for (std::int64_t b = 0; b < unmixer.equations; ++b) {
        unmixer.rows[static_cast<std::size_t>(b)] = unmixer.u.get() + b * endmembers;
    }
    if (!decompose(unmixer.rows.get(), unmixer.equations, unmixer.endmembers, unmixer.w.get(), unmixer.v.get())) {
        return false;
    }
    clearSmallSingularValues(unmixer.w.get(), unmixer.endmembers);
    return true;
}

/// The pixels of a tile, in blocks, and what the solvers make of them.
class Tile {
public:
    explicit Tile(const KSXUnmixer& unmixer)
        : unmixer_(unmixer), batch_(unmixer.reals.get(), unmixer.equations, unmixer.endmembers) {}

    /// False when there is no memory.
    [[nodiscard]] bool allocate() {
        pixels_ = allocateArray<float>(std::int64_t{kTilePixels}, std::int64_t{unmixer_.equations});
        fractions_ = allocateArray<float>(std::int64_t{kBlockPixels}, std::int64_t{unmixer_.endmembers});
        work_ = allocateArray<float>(std::int64_t{kBlockPixels}, std::int64_t{unmixer_.endmembers});
        if (!pixels_ || !fractions_ || !work_) return false;
        return !unmixer_.options.nonNegative || batch_.allocate();
    }

    /// Takes in samples of one row of a window, from column x on.
    void read(const KSWinEx& window, int x, int y, int count) {
        const Components components = componentsOf(window, x, y);
        const std::ptrdiff_t across = window.eBandIntlv == KS_INTLV_PIXEL ? unmixer_.bands : 1;
        for (int done = 0; done < count;) {
            const int begin = filled_ + done;
            const int run = std::min(kBlockPixels - begin % kBlockPixels, count - done);
            readRun(components.first + across * done, across, components.step, &pixel(0, begin), run);
            done += run;
        }
        filled_ += count;
    }

    int room() const { return kTilePixels - filled_; }

    /// Solves the samples taken in, and makes room for others.
    void solve(float* fractions, unsigned char* status) {
        complete(status);
        if (unmixer_.options.nonNegative) {
            solveNonNegative(fractions, status);
        } else {
            solveUnconstrained(fractions);
        }
        for (int k = 0; k < filled_; ++k) {
            float* const own = fractionsOf(fractions, k);
            if (status[k] == KSX_UNMIX_SOLVED) {
                normaliseFractions(own, unmixer_.endmembers, unmixer_.options);
            } else {
                std::fill_n(own, unmixer_.endmembers + 1, std::numeric_limits<float>::quiet_NaN());
            }
        }
        evaluateMisfits(fractions);
        filled_ = 0;
    }

private:
    float* block(int k) { return pixels_.get() + std::int64_t{k / kBlockPixels} * unmixer_.equations * kBlockPixels; }
    float& pixel(int row, int k) { return block(k)[std::int64_t{row} * kBlockPixels + k % kBlockPixels]; }
    float& blockFraction(int e, int k) {
        return fractions_[static_cast<std::size_t>(std::int64_t{e} * kBlockPixels + k % kBlockPixels)];
    }
    float* fractionsOf(float* fractions, int k) const {
        return fractions + (std::int64_t{unmixer_.endmembers} + 1) * k;
    }
    /// The end of the block that begins with pixel `begin`, as far as there are pixels.
    int endOfBlock(int begin) const { return std::min(begin + kBlockPixels, filled_); }

    /// Pixels of one block, `across` apart, with their bands `step` apart.
    void readRun(const float* from, std::ptrdiff_t across, std::ptrdiff_t step, float* to, int run) const {
        // A few bands at a time: their values for one pixel share a line of the cache.
        constexpr int kBands = 16;
        for (int begin = 0; begin < unmixer_.bands; begin += kBands) {
            const int count = std::min(kBands, unmixer_.bands - begin);
            for (int k = 0; k < run; ++k) {
                for (int b = 0; b < count; ++b) to[b * kBlockPixels + k] = from[across * k + step * b];
            }
            from += step * count;
            to += kBlockPixels * count;
        }
    }

    /// Fills the last block and the row for the sum, and finds the pixels that hold no numbers.
    void complete(unsigned char* status) {
        for (int k = filled_; k % kBlockPixels != 0; ++k) {
            for (int b = 0; b < unmixer_.bands; ++b) pixel(b, k) = 0.0F;
        }
        for (int begin = 0; begin < filled_; begin += kBlockPixels) {
            if (unmixer_.options.sumToOne) std::fill_n(&pixel(unmixer_.bands, begin), kBlockPixels, unmixer_.target);
            bool finite[kBlockPixels];
            areFinite(block(begin), unmixer_.bands, finite);
            for (int k = begin; k < endOfBlock(begin); ++k) {
                status[k] = finite[k - begin] ? KSX_UNMIX_SOLVED : KSX_UNMIX_INVALID;
            }
        }
    }

    void solveUnconstrained(float* fractions) {
        const KeptDecomposition kept = {unmixer_.u.get(), unmixer_.w.get(), unmixer_.v.get(), unmixer_.equations,
                                        unmixer_.endmembers};
        for (int begin = 0; begin < filled_; begin += kBlockPixels) {
            backSubstituteBlock(kept, block(begin), fractions_.get(), work_.get());
            for (int k = begin; k < endOfBlock(begin); ++k) {
                for (int e = 0; e < unmixer_.endmembers; ++e) fractionsOf(fractions, k)[e] = blockFraction(e, k);
            }
        }
    }

    void solveNonNegative(float* fractions, unsigned char* status) {
        int count = 0;
        for (int k = 0; k < filled_; ++k) {
            if (status[k] != KSX_UNMIX_SOLVED) continue;
            double* const side = batch_.side(count++);
            for (int row = 0; row < unmixer_.equations; ++row) side[row] = static_cast<double>(pixel(row, k));
        }
        batch_.solve(count);
        count = 0;
        for (int k = 0; k < filled_; ++k) {
            if (status[k] != KSX_UNMIX_SOLVED) continue;
            if (batch_.mode(count) != kNnlsSolved) status[k] = KSX_UNMIX_NOT_CONVERGED;
            const double* solution = batch_.solution(count++);
            for (int e = 0; e < unmixer_.endmembers; ++e) {
                fractionsOf(fractions, k)[e] = static_cast<float>(solution[e]);
            }
        }
    }

    void evaluateMisfits(float* fractions) {
        for (int begin = 0; begin < filled_; begin += kBlockPixels) {
            for (int k = begin; k < endOfBlock(begin); ++k) {
                for (int e = 0; e < unmixer_.endmembers; ++e) blockFraction(e, k) = fractionsOf(fractions, k)[e];
            }
            float squares[kBlockPixels];
            misfitBlock(unmixer_.matrix.get(), unmixer_.bands, unmixer_.endmembers, block(begin), fractions_.get(),
                        squares);
            for (int k = begin; k < endOfBlock(begin); ++k) {
                fractionsOf(fractions, k)[unmixer_.endmembers] = rootMeanSquare(squares[k - begin], unmixer_.bands);
            }
        }
    }

    const KSXUnmixer& unmixer_;
    NnlsBatch batch_;
    Heap<float[]> pixels_;     // in blocks, a row for each equation
    Heap<float[]> fractions_;  // of one block
    Heap<float[]> work_;
    int filled_ = 0;
};

int checkWindow(const KSXUnmixer* unmixer, const KSWinEx* window, const float* fractions, const unsigned char* status) {
    if (unmixer == nullptr) return KS_FAIL("%s: pUnmixer == NULL.\n", kWinLabel);
    if (window == nullptr) return KS_FAIL("%s: pWinEx == NULL.\n", kWinLabel);
    if (fractions == nullptr) return KS_FAIL("%s: pafFractions == NULL.\n", kWinLabel);
    if (status == nullptr) return KS_FAIL("%s: pbyStatus == NULL.\n", kWinLabel);
    if (window->SampDesc.nNumBands != unmixer->bands) {
        return KS_FAIL("%s: pWinEx->SampDesc.nNumBands (%d) is not the number of bands (%d).\n", kWinLabel,
                       window->SampDesc.nNumBands, unmixer->bands);
    }
    const int interleave = window->eBandIntlv;
    if (interleave != KS_INTLV_BAND && interleave != KS_INTLV_PIXEL && interleave != KS_INTLV_LINE) {
        return KS_FAIL("%s: unknown band interleave %d.\n", kWinLabel, interleave);
    }
    if (window->papafStart == nullptr) return KS_FAIL("%s: pWinEx->papafStart == NULL.\n", kWinLabel);
    return kOk;
}

}  // namespace

extern "C" {

KSXUnmixer* KSXCreateUnmixer(const float* const* papafEndmembers, int nNumEndmembers, int nNumBands, int bSumToOne,
                             int bNonNegative, int bNormalise) {
    if (checkEndmembers(papafEndmembers, nNumEndmembers, nNumBands) != kOk) return nullptr;
    std::unique_ptr<KSXUnmixer, UnmixerDeleter> unmixer = makeUnmixer();
    bool made = unmixer != nullptr;
    if (made) {
        unmixer->options = {bSumToOne != 0, bNonNegative != 0, bNormalise != 0};
        unmixer->endmembers = nNumEndmembers;
        unmixer->bands = nNumBands;
        unmixer->equations = nNumBands + (bSumToOne != 0 ? 1 : 0);
        unmixer->target = bSumToOne != 0 ? sumToOneTarget(papafEndmembers, nNumBands, nNumEndmembers) : 0.0F;
        made = copyMatrix(*unmixer, papafEndmembers) &&
               (bNonNegative != 0 ? prepareReals(*unmixer) : prepareDecomposition(*unmixer));
    }
    if (made) return unmixer.release();
    IMPError(83, 0, "%s: no memory for the endmembers.\n", kCreateLabel);
    return nullptr;
}

void KSXFreeUnmixer(KSXUnmixer* pUnmixer) { UnmixerDeleter()(pUnmixer); }

int KSXUnmixWin(const KSXUnmixer* pUnmixer, const KSWinEx* pWinEx, float* pafFractions, unsigned char* pbyStatus) {
    if (checkWindow(pUnmixer, pWinEx, pafFractions, pbyStatus) != kOk) return kFailed;
    Tile tile(*pUnmixer);
    if (!tile.allocate()) return KS_FAIL("%s: no memory for the pixels.\n", kWinLabel);
    const std::int64_t stride = std::int64_t{pUnmixer->endmembers} + 1;
    for (int y = 0; y < pWinEx->nNumYSamples; ++y) {
        for (int x = 0; x < pWinEx->nNumXSamples;) {
            const int count = std::min(tile.room(), pWinEx->nNumXSamples - x);
            tile.read(*pWinEx, x, y, count);
            x += count;
            const bool last = x == pWinEx->nNumXSamples && y + 1 == pWinEx->nNumYSamples;
            if (tile.room() > 0 && !last) continue;
            const int solved = kTilePixels - tile.room();
            tile.solve(pafFractions, pbyStatus);
            pafFractions += stride * solved;
            pbyStatus += solved;
        }
    }
    return kOk;
}

}  // extern "C"
