// Householder reflections reduce the matrix to two diagonals, then shifted QR steps let the upper one vanish.
// A reflection is kept as a vector r of squared length 2, so that it is I - r r' and needs no further factor; lengths
// are taken relative to the largest element, so that squares neither overflow nor vanish.
#include "ksunmix/svd.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "support/heap.hpp"
#include "support/report.hpp"

namespace ks {
namespace {

constexpr int kMostSteps = 30;  // QR steps for one singular value

/// Elements of a matrix in a line: a piece of a column or of a row.
class Line {
public:
    static Line column(float* const* rows, int column, int begin, int end) { return {rows, column, begin, end, true}; }
    static Line row(float* const* rows, int row, int begin, int end) { return {rows, row, begin, end, false}; }
    int begin() const { return begin_; }
    int end() const { return end_; }
    float& operator[](int i) const { return down_ ? rows_[i][fixed_] : rows_[fixed_][i]; }

private:
    Line(float* const* rows, int fixed, int begin, int end, bool down)
        : rows_(rows), fixed_(fixed), begin_(begin), end_(end), down_(down) {}
    float* const* rows_;
    int fixed_;
    int begin_;
    int end_;
    bool down_;
};

/// Puts the vector of the reflection that leaves only the line's first element in place of the line, and gives that
/// element. A line of zeros keeps its zeros, which reflect nothing.
float makeReflection(const Line& line) {
    float largest = 0.0F;
    float total = 0.0F;  // keeps what is not a number, which the largest element does not
    for (int i = line.begin(); i < line.end(); ++i) {
        largest = std::max(largest, std::fabs(line[i]));
        total += std::fabs(line[i]);
    }
    if (total == 0.0F) return 0.0F;
    float squares = 0.0F;
    for (int i = line.begin(); i < line.end(); ++i) {
        line[i] /= largest;
        squares += line[i] * line[i];
    }
    float& first = line[line.begin()];
    const float remaining = -std::copysign(std::sqrt(squares), first);
    const float length = std::sqrt(squares - first * remaining);
    first -= remaining;
    for (int i = line.begin(); i < line.end(); ++i) line[i] /= length;
    return remaining * largest;
}

void reflect(const Line& reflection, const Line& line) {
    float projection = 0.0F;
    for (int i = reflection.begin(); i < reflection.end(); ++i) projection += reflection[i] * line[i];
    for (int i = reflection.begin(); i < reflection.end(); ++i) line[i] -= projection * reflection[i];
}

/// A rotation that turns (f, g) into (length, 0).
struct Rotation {
    float cosine;
    float sine;
    float length;
    Rotation(float f, float g) : cosine(1.0F), sine(0.0F), length(std::hypot(f, g)) {
        if (length != 0.0F) {
            cosine = f / length;
            sine = g / length;
        }
    }
    void turn(float& x, float& y) const {
        const float before = x;
        x = cosine * before + sine * y;
        y = cosine * y - sine * before;
    }
};

void turnColumns(float* const* rows, int rowCount, int first, int second, const Rotation& rotation) {
    for (int i = 0; i < rowCount; ++i) rotation.turn(rows[i][first], rows[i][second]);
}

class Decomposition {
public:
    /// `rows` are at least as many as the columns; `upper` holds `columns` values.
    Decomposition(float* const* rows, int rowCount, int columns, float* w, float* const* v, float* upper)
        : u_(rows), rows_(rowCount), columns_(columns), w_(w), v_(v), upper_(upper) {}

    void run() {
        reduceToTwoDiagonals();
        accumulateRight();
        accumulateLeft();
        const float scale = normaliseDiagonals();
        for (int k = columns_ - 1; k >= 0; --k) converge(k);
        for (int i = 0; i < columns_; ++i) w_[i] *= scale;
    }

private:
    /// w_ becomes the diagonal, upper_[i] the element right of diagonal element i - 1.
    void reduceToTwoDiagonals() {
        upper_[0] = 0.0F;
        for (int i = 0; i < columns_; ++i) {
            const Line down = Line::column(u_, i, i, rows_);
            w_[i] = makeReflection(down);
            for (int j = i + 1; j < columns_; ++j) reflect(down, Line::column(u_, j, i, rows_));
            if (i + 1 == columns_) break;
            const Line right = Line::row(u_, i, i + 1, columns_);
            upper_[i + 1] = makeReflection(right);
            for (int j = i + 1; j < rows_; ++j) reflect(right, Line::row(u_, j, i + 1, columns_));
        }
    }

    /// v_ becomes the product of the reflections of rows.
    void accumulateRight() {
        for (int i = 0; i < columns_; ++i) {
            std::fill_n(v_[i], columns_, 0.0F);
            v_[i][i] = 1.0F;
        }
        for (int i = columns_ - 2; i >= 0; --i) {
            const Line right = Line::row(u_, i, i + 1, columns_);
            for (int j = i + 1; j < columns_; ++j) reflect(right, Line::column(v_, j, i + 1, columns_));
        }
    }

    /// u_ becomes the first columns of the product of the reflections of columns.
    void accumulateLeft() {
        for (int i = columns_ - 1; i >= 0; --i) {
            const Line down = Line::column(u_, i, i, rows_);
            for (int j = i + 1; j < columns_; ++j) {
                u_[i][j] = 0.0F;
                reflect(down, Line::column(u_, j, i, rows_));
            }
            const float first = u_[i][i];
            for (int k = i; k < rows_; ++k) u_[k][i] *= -first;
            u_[i][i] += 1.0F;
        }
    }

    /// Brings the diagonals near 1 by a power of two, so that products of their elements stay in range; gives that
    /// power.
    float normaliseDiagonals() {
        float norm = 0.0F;
        for (int i = 0; i < columns_; ++i) norm = std::max(norm, std::fabs(w_[i]) + std::fabs(upper_[i]));
        const bool usable = norm > 0.0F && norm <= std::numeric_limits<float>::max();
        const int exponent = usable ? std::clamp(std::ilogb(norm), -126, 126) : 0;
        const float scale = std::ldexp(1.0F, exponent);
        for (int i = 0; i < columns_; ++i) {
            w_[i] /= scale;
            upper_[i] /= scale;
        }
        negligible_ = std::numeric_limits<float>::epsilon() * (usable ? norm / scale : 0.0F);
        return scale;
    }

    bool isNegligible(float value) const { return std::fabs(value) <= negligible_; }

    void converge(int k) {
        for (int step = 0; step <= kMostSteps; ++step) {
            const int first = startOfBlock(k);
            if (first == k) break;
            if (step == kMostSteps) {
                IMPError(84, 0, "No convergence in SVD in 30 iterations\n");
                break;
            }
            qrStep(first, k);
        }
        if (w_[k] >= 0.0F) return;
        w_[k] = -w_[k];
        for (int j = 0; j < columns_; ++j) v_[j][k] = -v_[j][k];
    }

    /// The first row of the block that ends with row k and is coupled throughout.
    int startOfBlock(int k) {
        int first = k;
        for (; first > 0 && !isNegligible(upper_[first]); --first) {
            if (!isNegligible(w_[first - 1])) continue;
            uncouple(first, k);
            break;
        }
        return first;
    }

    /// Clears the element above row `first`, whose neighbour on the diagonal is as good as zero.
    void uncouple(int first, int k) {
        float stray = upper_[first];
        upper_[first] = 0.0F;
        for (int i = first; !isNegligible(stray); ++i) {
            const Rotation rotation(w_[i], stray);
            w_[i] = rotation.length;
            turnColumns(u_, rows_, i, first - 1, rotation);
            if (i == k) break;
            stray = -rotation.sine * upper_[i + 1];
            upper_[i + 1] *= rotation.cosine;
        }
    }

    /// The first column of a shifted QR step, from the eigenvalue of the last two rows that is nearer to the last.
    std::pair<float, float> shifted(int first, int last) const {
        const float x = w_[first];
        const float y = w_[last - 1];
        const float z = w_[last];
        const float g = upper_[last - 1];
        const float h = upper_[last];
        const float f = ((y - z) * (y + z) + (g - h) * (g + h)) / (2.0F * h * y);
        const float root = f + std::copysign(std::hypot(f, 1.0F), f);
        return {((x - z) * (x + z) + h * (y / root - h)) / x, upper_[first + 1]};
    }

    void qrStep(int first, int last) {
        auto [f, stray] = shifted(first, last);
        for (int i = first; i < last; ++i) {
            // From the right: a stray element beside the upper diagonal goes, one below the diagonal comes.
            const Rotation right(f, stray);
            if (i > first) upper_[i] = right.length;
            float diagonal = w_[i];
            right.turn(diagonal, upper_[i + 1]);
            stray = right.sine * w_[i + 1];
            w_[i + 1] *= right.cosine;
            turnColumns(v_, columns_, i, i + 1, right);
            // From the left: it goes again.
            const Rotation left(diagonal, stray);
            w_[i] = left.length;
            left.turn(upper_[i + 1], w_[i + 1]);
            turnColumns(u_, rows_, i, i + 1, left);
            f = upper_[i + 1];
            if (i + 1 == last) break;
            stray = left.sine * upper_[i + 2];
            upper_[i + 2] *= left.cosine;
        }
    }

    float* const* u_;
    int rows_;
    int columns_;
    float* w_;
    float* const* v_;
    float* upper_;
    float negligible_ = 0.0F;
};

}  // namespace

bool decompose(float* const* rows, int rowCount, int columns, float* w, float* v) {
    const int allRows = std::max(rowCount, columns);
    const int missing = allRows - rowCount;
    const Heap<float[]> upper = allocateArray<float>(columns);
    const Heap<float*[]> vRows = allocateArray<float*>(columns);
    const Heap<float*[]> uRows = allocateArray<float*>(allRows);
    const Heap<float[]> zeros = allocateArray<float>(missing, columns);
    if (!upper || !vRows || !uRows || !zeros) return false;
    if (missing > 0) IMPError(83, 0, "Inappropriately sized matrix in SVD\n");
    if (columns == 0) return true;

    std::fill_n(zeros.get(), std::int64_t{missing} * columns, 0.0F);
    std::copy_n(rows, rowCount, uRows.get());
    for (int i = 0; i < missing; ++i)
        uRows[static_cast<std::size_t>(rowCount + i)] = zeros.get() + std::int64_t{i} * columns;
    for (int i = 0; i < columns; ++i) vRows[static_cast<std::size_t>(i)] = v + std::int64_t{i} * columns;
    Decomposition(uRows.get(), allRows, columns, w, vRows.get(), upper.get()).run();
    return true;
}

}  // namespace ks
