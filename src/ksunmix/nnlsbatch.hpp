// Many right-hand sides of one matrix through the non-negative solver. What happens to the matrix depends only on the
// order in which unknowns come and go: right-hand sides that agree so far share it, and part where they choose
// differently. Each gets, to the bit, what it would get by itself.
#pragma once

#include <array>
#include <cstdint>

#include "ksunmix/nnls.hpp"
#include "support/heap.hpp"

namespace ks {

class NnlsBatch {
public:
    static constexpr int kMost = 512;  // right-hand sides at a time

    /// a  `equations` rows of `unknowns` values, which have to outlive the batch.
    NnlsBatch(const double* a, int equations, int unknowns) : a_(a), equations_(equations), unknowns_(unknowns) {}

    /// False when there is no memory.
    [[nodiscard]] bool allocate();

    /// Where the `equations` values of right-hand side k go before solve().
    double* side(int k) { return sides_.get() + std::int64_t{k} * equations_; }
    void solve(int count);
    /// How right-hand side k ended, and its solution, which is meaningful for kNnlsSolved only.
    int mode(int k) const { return modes_[static_cast<std::size_t>(k)]; }
    double* solution(int k) const { return x_.get() + std::int64_t{k} * unknowns_; }

private:
    /// A step that a matrix could go, made when somebody asks for it first.
    struct Candidate {
        NnlsReflection reflection;  // without a vector until then
        bool isIndependent;
    };
    /// Right-hand sides that share a matrix.
    struct Level {
        NnlsMatrix matrix;
        double* vectors = nullptr;        // of the candidates' reflections
        Candidate* candidates = nullptr;  // by position
        int* members = nullptr;           // which right-hand sides
        int* choices = nullptr;           // what becomes of each: a position, kStays or kGone
        int count = 0;
    };
    static constexpr int kStays = -1;
    static constexpr int kGone = -2;
    static constexpr int kDeepest = 64;

    /// What was done to a level's matrix last.
    enum class Change { kTaken, kDropped };

    Level& level(int depth) { return levels_[static_cast<std::size_t>(depth)]; }
    void choose(int depth);
    int chooseFor(Level& level, int member);
    const Candidate& candidateAt(Level& level, int position) const;
    void settle(int depth);
    void dropThoseAtZero(int depth);
    void take(int depth, int position);
    void drop(int depth, int position);
    void follow(int depth, Change change);
    void finishAlone(Level& level, Change change);
    static void moveChosen(Level& from, int choice, Level& to);
    static void keepStaying(Level& level);

    const double* a_;
    int equations_;
    int unknowns_;
    int depth_ = 0;  // levels at hand
    std::array<Level, kDeepest> levels_;
    NnlsMatrix alone_;
    double* values_ = nullptr;
    double* duals_ = nullptr;
    Heap<double[]> reals_;
    Heap<int[]> integers_;
    Heap<Candidate[]> candidates_;
    Heap<double[]> sides_;
    Heap<double[]> x_;
    Heap<int[]> modes_;
    Heap<std::int64_t[]> iterations_;
};

}  // namespace ks
