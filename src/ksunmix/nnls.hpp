// Non-negative least squares, after C. L. Lawson and R. J. Hanson, Solving Least Squares Problems (1974), chapter 23.
// The columns in use are kept triangular: by a Householder reflection when one comes, by Givens rotations when one
// goes.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace ks {

/// How a solution ended.
enum NnlsMode { kNnlsSolved = 1, kNnlsBadSizes = 2, kNnlsTooManyIterations = 3 };

/// A Householder reflection I + r r' / (r[0] * pivot) of the rows from `first` on.
struct NnlsReflection {
    const double* vector;  // r
    int first;
    int length;
    double pivot;  // what it leaves of the column that it was made for
    double lead() const { return vector[0]; }
};

/// A rotation of rows `row` and `row` + 1.
struct NnlsRotation {
    int row;
    double cosine;
    double sine;
    void turn(double& upper, double& lower) const {
        const double before = upper;
        upper = cosine * before + sine * lower;
        lower = cosine * lower - sine * before;
    }
};

/// The matrix of a problem and the partition of its unknowns. What happens to it depends on the order in which unknowns
/// come and go, and not on the right-hand side. Elements are in the range of single precision, so that their squares
/// neither overflow nor vanish.
class NnlsMatrix {
public:
    NnlsMatrix() = default;
    /// a      `equations` rows of `unknowns` values, worked on in place. Call start() or copy() first.
    /// index  room for `unknowns` numbers: first the unknowns in use, in the order of the triangle, then the others.
    NnlsMatrix(double* a, int equations, int unknowns, int* index)
        : a_(a), equations_(equations), unknowns_(unknowns), index_(index) {}

    /// Puts all unknowns out of use; the matrix is as it was made.
    void start();
    /// Takes over the state of a matrix of the same sizes.
    void copy(const NnlsMatrix& other);

    int equations() const { return equations_; }
    int unknowns() const { return unknowns_; }
    int used() const { return used_; }
    int at(int position) const { return index_[position]; }
    bool canGrow() const { return used_ < unknowns_ && used_ < equations_; }
    /// The solutions of triangular systems that are tried for one right-hand side before giving up.
    std::int64_t mostIterations() const { return std::int64_t{3} * unknowns_; }

    /// The dual values A'(b - A x) of the unknowns that are not in use, by unknown.
    void evaluateDuals(const double* b, double* duals) const;
    /// The position of the largest positive dual value, or -1.
    int largestDual(const double* duals) const;
    /// The reflection that would bring the unknown at a position into use. `vector` has room for equations() values.
    NnlsReflection reflectionFor(int position, double* vector) const;
    /// Whether the column of a new unknown is not as good as a combination of those in use.
    bool isIndependent(int position, const NnlsReflection& reflection) const;
    /// Takes the unknown at a position of the others into use.
    void take(int position, const NnlsReflection& reflection, double* working);
    /// Takes an unknown out of use; `rotated` gets every rotation that the right-hand side must follow, in order.
    template <class Rotated>
    void drop(int position, Rotated rotated);
    /// Solves the triangle: the first used() values of a right-hand side become those of the unknowns in use.
    void solve(double* values) const;

private:
    double* row(int i) const { return a_ + std::int64_t{i} * unknowns_; }
    double& element(int i, int position) const { return row(i)[index_[position]]; }
    NnlsRotation rotateAway(int row, int position);

    double* a_ = nullptr;
    int equations_ = 0;
    int unknowns_ = 0;
    int* index_ = nullptr;
    int used_ = 0;
};

template <class Rotated>
void NnlsMatrix::drop(int position, Rotated rotated) {
    const int dropped = index_[position];
    --used_;
    for (int p = position; p < used_; ++p) index_[p] = index_[p + 1];
    index_[used_] = dropped;
    // The columns behind it are one row too long now; each loses its last element to the one above.
    for (int p = position; p < used_; ++p) rotated(rotateAway(p, p));
}

/// Reflects a right-hand side if that makes the new unknown positive; false with nothing changed otherwise.
bool nnlsReflectIfPositive(const NnlsReflection& reflection, double* b);

/// Goes from x towards new values of the unknowns in use, as far as none becomes negative. The position of the one that
/// becomes zero, or -1 when the values were reached.
int nnlsStep(const NnlsMatrix& matrix, const double* values, double* x);

/// The first position in use whose unknown is not above zero, or -1.
int nnlsFirstAtZero(const NnlsMatrix& matrix, const double* x);

/// What a problem needs besides its matrix.
struct NnlsVectors {
    double* b;   // `equations` values: the right-hand side, which is worked on
    double* x;   // `unknowns` values: the solution
    double* w;   // `unknowns` values: the dual solution
    double* zz;  // `equations` values of working space
};

/// One right-hand side on its way to its solution.
class NnlsSolver {
public:
    /// `iterations` are those that led to the matrix and vectors as they are.
    NnlsSolver(NnlsMatrix& matrix, const NnlsVectors& vectors, std::int64_t iterations)
        : matrix_(matrix), vectors_(vectors), iterations_(iterations) {}

    /// From a solution over the unknowns in use to that of the whole problem.
    NnlsMode run();
    /// From having taken an unknown into use.
    NnlsMode settleAndRun() { return settle() ? run() : kNnlsTooManyIterations; }
    /// From having dropped one.
    NnlsMode dropAndRun();

private:
    bool takeBest();
    bool settle();
    void drop(int position);
    void dropThoseAtZero();

    NnlsMatrix& matrix_;
    NnlsVectors vectors_;
    std::int64_t iterations_;
};

/// Solves a x = b for the x without negative elements that leaves the shortest residual. x is meaningful for
/// kNnlsSolved only.
int solveNnls(double* a, int equations, int unknowns, const NnlsVectors& vectors, double* residualNorm, int* index);

}  // namespace ks
