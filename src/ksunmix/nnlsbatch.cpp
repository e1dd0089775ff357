#include "ksunmix/nnlsbatch.hpp"

#include <algorithm>
#include <utility>

namespace ks {

bool NnlsBatch::allocate() {
    // Levels beyond this much memory are done without: their right-hand sides are finished one by one.
    constexpr std::int64_t kMostReals = std::int64_t{4} << 20;
    const std::int64_t matrix = std::int64_t{equations_} * unknowns_;
    const std::int64_t levelIntegers = std::int64_t{unknowns_} + 2 * kMost;
    depth_ = static_cast<int>(std::clamp<std::int64_t>(kMostReals / (2 * matrix), 2, kDeepest));

    reals_ = allocateArray<double>((2 * depth_ + 1) * matrix + equations_ + unknowns_);
    integers_ = allocateArray<int>(depth_ * levelIntegers + unknowns_);
    candidates_ = allocateArray<Candidate>(std::int64_t{depth_}, std::int64_t{unknowns_});
    sides_ = allocateArray<double>(std::int64_t{kMost}, std::int64_t{equations_});
    x_ = allocateArray<double>(std::int64_t{kMost}, std::int64_t{unknowns_});
    modes_ = allocateArray<int>(std::int64_t{kMost});
    iterations_ = allocateArray<std::int64_t>(std::int64_t{kMost});
    if (!reals_ || !integers_ || !candidates_ || !sides_ || !x_ || !modes_ || !iterations_) return false;

    double* real = reals_.get();
    int* integer = integers_.get();
    const auto takeReals = [&real](std::int64_t count) { return std::exchange(real, real + count); };
    const auto takeIntegers = [&integer](std::int64_t count) { return std::exchange(integer, integer + count); };
    for (int depth = 0; depth < depth_; ++depth) {
        double* const a = takeReals(matrix);
        // The first level's matrix is only ever copied from.
        if (depth == 0) std::copy_n(a_, matrix, a);
        level(depth).matrix = NnlsMatrix(a, equations_, unknowns_, takeIntegers(unknowns_));
        level(depth).vectors = takeReals(matrix);
        level(depth).candidates = candidates_.get() + std::int64_t{depth} * unknowns_;
        level(depth).members = takeIntegers(kMost);
        level(depth).choices = takeIntegers(kMost);
    }
    double* const a = takeReals(matrix);
    alone_ = NnlsMatrix(a, equations_, unknowns_, takeIntegers(unknowns_));
    values_ = takeReals(equations_);
    duals_ = takeReals(unknowns_);
    return true;
}

void NnlsBatch::solve(int count) {
    Level& first = level(0);
    first.matrix.start();
    first.count = count;
    for (int k = 0; k < count; ++k) first.members[k] = k;
    std::fill_n(x_.get(), std::int64_t{count} * unknowns_, 0.0);
    std::fill_n(iterations_.get(), count, std::int64_t{0});
    std::fill_n(modes_.get(), count, static_cast<int>(kNnlsSolved));
    choose(0);
}

/// Every right-hand side takes the best unknown whose value would be positive into use. Those that find none are
/// solved.
void NnlsBatch::choose(int depth) {
    Level& here = level(depth);
    if (here.count == 0 || !here.matrix.canGrow()) return;
    for (int p = here.matrix.used(); p < unknowns_; ++p) here.candidates[p].reflection.vector = nullptr;
    for (int k = 0; k < here.count; ++k) here.choices[k] = chooseFor(here, here.members[k]);
    for (int p = here.matrix.used(); p < unknowns_; ++p) take(depth, p);
}

/// The position that a right-hand side, now reflected, takes into use, or kStays.
int NnlsBatch::chooseFor(Level& here, int member) {
    here.matrix.evaluateDuals(side(member), duals_);
    for (int p = here.matrix.largestDual(duals_); p >= 0; p = here.matrix.largestDual(duals_)) {
        const Candidate& candidate = candidateAt(here, p);
        if (candidate.isIndependent && nnlsReflectIfPositive(candidate.reflection, side(member))) return p;
        duals_[here.matrix.at(p)] = 0.0;
    }
    return kStays;
}

const NnlsBatch::Candidate& NnlsBatch::candidateAt(Level& here, int position) const {
    Candidate& candidate = here.candidates[position];
    if (candidate.reflection.vector == nullptr) {
        double* const vector = here.vectors + std::int64_t{position} * equations_;
        candidate.reflection = here.matrix.reflectionFor(position, vector);
        candidate.isIndependent = here.matrix.isIndependent(position, candidate.reflection);
    }
    return candidate;
}

/// Goes on with those that chose a position to take into use.
void NnlsBatch::take(int depth, int position) {
    Level& here = level(depth);
    Level& next = level(depth + 1);
    moveChosen(here, position, next);
    if (next.count == 0) return;
    next.matrix.copy(here.matrix);
    next.matrix.take(position, here.candidates[position].reflection, duals_);
    follow(depth + 1, Change::kTaken);
}

/// Goes on without an unknown with those that chose its position.
void NnlsBatch::drop(int depth, int position) {
    Level& here = level(depth);
    Level& next = level(depth + 1);
    moveChosen(here, position, next);
    if (next.count == 0) return;
    const int unknown = here.matrix.at(position);
    for (int k = 0; k < next.count; ++k) solution(next.members[k])[unknown] = 0.0;
    next.matrix.copy(here.matrix);
    next.matrix.drop(position, [&](const NnlsRotation& rotation) {
        for (int k = 0; k < next.count; ++k) {
            double* const values = side(next.members[k]) + rotation.row;
            rotation.turn(values[0], values[1]);
        }
    });
    follow(depth + 1, Change::kDropped);
}

/// Goes on with those that have just been put on a level.
void NnlsBatch::follow(int depth, Change change) {
    if (level(depth).count == 1 || depth + 1 == depth_) {
        finishAlone(level(depth), change);
    } else if (change == Change::kTaken) {
        settle(depth);
    } else {
        dropThoseAtZero(depth);
    }
}

/// Moves each to the least-squares solution over the unknowns in use, as far as no unknown becomes negative.
void NnlsBatch::settle(int depth) {
    Level& here = level(depth);
    for (int k = 0; k < here.count; ++k) {
        const int member = here.members[k];
        if (++iterations_[static_cast<std::size_t>(member)] > here.matrix.mostIterations()) {
            modes_[static_cast<std::size_t>(member)] = kNnlsTooManyIterations;
            here.choices[k] = kGone;
            continue;
        }
        std::copy_n(side(member), here.matrix.used(), values_);
        here.matrix.solve(values_);
        here.choices[k] = nnlsStep(here.matrix, values_, solution(member));
    }
    for (int p = 0; p < here.matrix.used(); ++p) drop(depth, p);
    keepStaying(here);
    choose(depth);
}

void NnlsBatch::dropThoseAtZero(int depth) {
    Level& here = level(depth);
    for (int k = 0; k < here.count; ++k) here.choices[k] = nnlsFirstAtZero(here.matrix, solution(here.members[k]));
    for (int p = 0; p < here.matrix.used(); ++p) drop(depth, p);
    keepStaying(here);
    if (here.count > 0) settle(depth);
}

void NnlsBatch::finishAlone(Level& here, Change change) {
    for (int k = 0; k < here.count; ++k) {
        const auto member = static_cast<std::size_t>(here.members[k]);
        NnlsMatrix* matrix = &here.matrix;
        // Only the last one may spoil the matrix.
        if (k + 1 < here.count) {
            alone_.copy(here.matrix);
            matrix = &alone_;
        }
        NnlsSolver solver(*matrix, {side(here.members[k]), solution(here.members[k]), duals_, values_},
                          iterations_[member]);
        modes_[member] = change == Change::kTaken ? solver.settleAndRun() : solver.dropAndRun();
    }
}

/// Moves those with a choice to another level, which so far has none.
void NnlsBatch::moveChosen(Level& from, int choice, Level& to) {
    to.count = 0;
    for (int k = 0; k < from.count; ++k) {
        if (from.choices[k] != choice) continue;
        to.members[to.count++] = from.members[k];
        from.choices[k] = kGone;
    }
}

/// Closes the ranks of those that stay.
void NnlsBatch::keepStaying(Level& here) {
    int kept = 0;
    for (int k = 0; k < here.count; ++k) {
        if (here.choices[k] == kStays) here.members[kept++] = here.members[k];
    }
    here.count = kept;
}

}  // namespace ks
