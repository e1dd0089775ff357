#include "ksunmix/nnls.hpp"

#include <algorithm>

#include "ksunmix/kernels.hpp"

namespace ks {
namespace {

/// First minus second. Taking addresses, it sees both as stored, rounded to double.
double difference(const double* first, const double* second) { return *first - *second; }

/// The sum of products, by way of four sums of every fourth product each, as sumRows forms it.
double sumOfProducts(const double* a, const double* b, int count) {
    double sum0 = 0.0;
    double sum1 = 0.0;
    double sum2 = 0.0;
    double sum3 = 0.0;
    int i = 0;
    for (; i + 4 <= count; i += 4) {
        sum0 += a[i] * b[i];
        sum1 += a[i + 1] * b[i + 1];
        sum2 += a[i + 2] * b[i + 2];
        sum3 += a[i + 3] * b[i + 3];
    }
    if (i < count) sum0 += a[i] * b[i];
    if (i + 1 < count) sum1 += a[i + 1] * b[i + 1];
    if (i + 2 < count) sum2 += a[i + 2] * b[i + 2];
    return (sum0 + sum1) + (sum2 + sum3);
}

/// The rotation that turns (upper, lower) into (length, 0).
NnlsRotation rotationFor(int row, double upper, double lower, double& length) {
    if (std::fabs(upper) > std::fabs(lower)) {
        const double ratio = lower / upper;
        const double root = std::sqrt(1.0 + ratio * ratio);
        const double cosine = std::copysign(1.0 / root, upper);
        length = std::fabs(upper) * root;
        return {row, cosine, cosine * ratio};
    }
    if (lower == 0.0) {
        length = 0.0;
        return {row, 0.0, 1.0};
    }
    const double ratio = upper / lower;
    const double root = std::sqrt(1.0 + ratio * ratio);
    const double sine = std::copysign(1.0 / root, lower);
    length = std::fabs(lower) * root;
    return {row, sine * ratio, sine};
}

}  // namespace

// ---- the matrix ----

void NnlsMatrix::start() {
    for (int j = 0; j < unknowns_; ++j) index_[j] = j;
    used_ = 0;
}

void NnlsMatrix::copy(const NnlsMatrix& other) {
    std::copy_n(other.a_, std::int64_t{equations_} * unknowns_, a_);
    std::copy_n(other.index_, unknowns_, index_);
    used_ = other.used_;
}

void NnlsMatrix::evaluateDuals(const double* b, double* duals) const {
    // Those in use have only zeros in these rows.
    sumRows({row(used_), unknowns_, equations_ - used_, unknowns_}, b + used_, duals);
}

int NnlsMatrix::largestDual(const double* duals) const {
    int best = -1;
    double largest = 0.0;
    for (int p = used_; p < unknowns_; ++p) {
        if (duals[index_[p]] > largest) {
            largest = duals[index_[p]];
            best = p;
        }
    }
    return best;
}

NnlsReflection NnlsMatrix::reflectionFor(int position, double* vector) const {
    const int length = equations_ - used_;
    for (int i = 0; i < length; ++i) vector[i] = element(used_ + i, position);
    const double pivot = -std::copysign(std::sqrt(sumOfProducts(vector, vector, length)), vector[0]);
    vector[0] -= pivot;
    return {vector, used_, length, pivot};
}

bool NnlsMatrix::isIndependent(int position, const NnlsReflection& reflection) const {
    constexpr double kShare = 0.01;  // a new direction may be as short as this many roundings of the rest
    double squares = 0.0;
    for (int i = 0; i < used_; ++i) squares += element(i, position) * element(i, position);
    const double combined = std::sqrt(squares);
    const double withNew = combined + std::fabs(reflection.pivot) * kShare;
    return difference(&withNew, &combined) > 0.0;
}

void NnlsMatrix::take(int position, const NnlsReflection& reflection, double* working) {
    const int taken = index_[position];
    index_[position] = index_[used_];
    index_[used_] = taken;
    // Columns in use have only zeros here, and keep them.
    const MatrixRows rows = {row(used_), unknowns_, reflection.length, unknowns_};
    sumRows(rows, reflection.vector, working);
    for (int j = 0; j < unknowns_; ++j) working[j] = working[j] / reflection.lead() / reflection.pivot;
    addToRows(rows, reflection.vector, working);
    // What was computed for the new column is replaced by what it is.
    element(used_, used_) = reflection.pivot;
    for (int i = used_ + 1; i < equations_; ++i) element(i, used_) = 0.0;
    ++used_;
}

/// Turns a row and the next one so that the column at a position, now that it is shorter, ends with the upper one.
NnlsRotation NnlsMatrix::rotateAway(int upperRow, int position) {
    double length = 0.0;
    const NnlsRotation rotation =
        rotationFor(upperRow, element(upperRow, position), element(upperRow + 1, position), length);
    turnRows(row(upperRow), row(upperRow + 1), unknowns_, rotation.cosine, rotation.sine);
    element(upperRow, position) = length;
    element(upperRow + 1, position) = 0.0;
    return rotation;
}

void NnlsMatrix::solve(double* values) const {
    for (int p = used_ - 1; p >= 0; --p) {
        values[p] /= element(p, p);
        for (int i = 0; i < p; ++i) values[i] -= values[p] * element(i, p);
    }
}

// ---- right-hand sides ----

bool nnlsReflectIfPositive(const NnlsReflection& reflection, double* b) {
    double* const values = b + reflection.first;
    const double projection =
        sumOfProducts(reflection.vector, values, reflection.length) / reflection.lead() / reflection.pivot;
    const double reflected = values[0] + projection * reflection.lead();
    if (!(reflected / reflection.pivot > 0.0)) return false;
    for (int i = 0; i < reflection.length; ++i) values[i] += projection * reflection.vector[i];
    return true;
}

int nnlsStep(const NnlsMatrix& matrix, const double* values, double* x) {
    constexpr double kBeyond = 2.0;  // no part of the way is more than 1
    double part = kBeyond;
    int stop = -1;
    for (int p = 0; p < matrix.used(); ++p) {
        if (values[p] > 0.0) continue;
        const double from = x[matrix.at(p)];
        const double toZero = -from / (values[p] - from);
        if (part > toZero) {
            part = toZero;
            stop = p;
        }
    }
    for (int p = 0; p < matrix.used(); ++p) {
        double& here = x[matrix.at(p)];
        here = stop < 0 ? values[p] : here + part * (values[p] - here);
    }
    return stop;
}

int nnlsFirstAtZero(const NnlsMatrix& matrix, const double* x) {
    for (int p = 0; p < matrix.used(); ++p) {
        if (x[matrix.at(p)] <= 0.0) return p;
    }
    return -1;
}

// ---- the solver ----

NnlsMode NnlsSolver::run() {
    while (matrix_.canGrow() && takeBest()) {
        if (!settle()) return kNnlsTooManyIterations;
    }
    return kNnlsSolved;
}

NnlsMode NnlsSolver::dropAndRun() {
    dropThoseAtZero();
    return settleAndRun();
}

/// Takes the best unknown whose value would be positive into use; false when there is none.
bool NnlsSolver::takeBest() {
    matrix_.evaluateDuals(vectors_.b, vectors_.w);
    for (int p = matrix_.largestDual(vectors_.w); p >= 0; p = matrix_.largestDual(vectors_.w)) {
        const NnlsReflection reflection = matrix_.reflectionFor(p, vectors_.zz);
        if (matrix_.isIndependent(p, reflection) && nnlsReflectIfPositive(reflection, vectors_.b)) {
            matrix_.take(p, reflection, vectors_.w);
            return true;
        }
        vectors_.w[matrix_.at(p)] = 0.0;
    }
    return false;
}

/// Moves to the least-squares solution over the unknowns in use, dropping those that reach zero on the way; false when
/// that has been tried too often.
bool NnlsSolver::settle() {
    while (++iterations_ <= matrix_.mostIterations()) {
        std::copy_n(vectors_.b, matrix_.used(), vectors_.zz);
        matrix_.solve(vectors_.zz);
        const int stop = nnlsStep(matrix_, vectors_.zz, vectors_.x);
        if (stop < 0) return true;
        drop(stop);
        dropThoseAtZero();
    }
    return false;
}

void NnlsSolver::drop(int position) {
    vectors_.x[matrix_.at(position)] = 0.0;
    double* const b = vectors_.b;
    matrix_.drop(position, [b](const NnlsRotation& rotation) { rotation.turn(b[rotation.row], b[rotation.row + 1]); });
}

void NnlsSolver::dropThoseAtZero() {
    for (int p = nnlsFirstAtZero(matrix_, vectors_.x); p >= 0; p = nnlsFirstAtZero(matrix_, vectors_.x)) drop(p);
}

int solveNnls(double* a, int equations, int unknowns, const NnlsVectors& vectors, double* residualNorm, int* index) {
    *residualNorm = 0.0;
    if (equations <= 0 || unknowns <= 0) return kNnlsBadSizes;
    NnlsMatrix matrix(a, equations, unknowns, index);
    matrix.start();
    std::fill_n(vectors.x, unknowns, 0.0);
    const NnlsMode mode = NnlsSolver(matrix, vectors, 0).run();
    const double* rest = vectors.b + matrix.used();
    *residualNorm = std::sqrt(sumOfProducts(rest, rest, equations - matrix.used()));
    return mode;
}

}  // namespace ks
