// Meschach without its exits. By default an error there prints and ends the process, the hundredth one in any case;
// under this guard it comes back as a failing value, and the caller's own error settings are as they were.
#pragma once

#include <kslib/ksmatrix.h>

#include <cstring>
#include <memory>
#include <type_traits>

namespace ks {

/// Runs a body of Meschach calls for its result, which keeps its value when one of them fails.
// No object with a destructor may live in this frame or in body's: Meschach's jump skips them.
template <class R, class Body>
__attribute__((noinline)) void runUnderMatrixTrap(R& result, const Body& body) {
    static_assert(std::is_trivially_destructible_v<Body> && std::is_trivially_destructible_v<R>);
    jmp_buf callers;
    std::memcpy(&callers, &restart, sizeof callers);
    const int flag = set_err_flag(EF_SILENT);
    const int counting = count_errs(FALSE);
    if (setjmp(restart) == 0) result = body();
    count_errs(counting);
    set_err_flag(flag);
    std::memcpy(&restart, &callers, sizeof callers);
}

/// The result of a body of Meschach calls, or onError when one of them fails.
template <class R, class Body>
R underMatrixTrap(R onError, Body body) {
    R result = onError;
    runUnderMatrixTrap(result, body);
    return result;
}

struct VectorDeleter {
    void operator()(VEC* vector) const { v_free(vector); }
};
using Vector = std::unique_ptr<VEC, VectorDeleter>;

struct IntegerVectorDeleter {
    void operator()(IVEC* vector) const { iv_free(vector); }
};
using IntegerVector = std::unique_ptr<IVEC, IntegerVectorDeleter>;

struct MatrixDeleter {
    void operator()(MAT* matrix) const { m_free(matrix); }
};
using Matrix = std::unique_ptr<MAT, MatrixDeleter>;

/// Vectors and matrices of zeroed components; null on failure, also for a negative size.
Vector makeVector(int dim);
IntegerVector makeIntegerVector(int dim);
Matrix makeMatrix(int rows, int columns);

}  // namespace ks
