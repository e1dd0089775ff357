// Meschach without its exits. By default an error there prints and ends the process, the hundredth one in any case;
// under this guard it comes back as a failing value, and the caller's own error settings are as they were.
#pragma once

#include <kslib/ksmatrix.h>

#include <cstring>
#include <memory>
#include <type_traits>

namespace ks {

/// Runs a body of Meschach calls; an error in it gives onError instead of its result.
// No object with a destructor may live in this frame or in body's: Meschach's jump skips them.
template <class R, class Body>
__attribute__((noinline)) R underMatrixTrap(R onError, Body body) {
    static_assert(std::is_trivially_destructible_v<Body> && std::is_trivially_destructible_v<R>);
    jmp_buf callers;
    std::memcpy(&callers, &restart, sizeof callers);
    const int flag = set_err_flag(EF_SILENT);
    const int counting = count_errs(FALSE);
    volatile bool failed = true;
    R result = onError;
    if (setjmp(restart) == 0) {
        result = body();
        failed = false;
    }
    count_errs(counting);
    set_err_flag(flag);
    std::memcpy(&restart, &callers, sizeof callers);
    return failed ? onError : result;
}

struct VectorDeleter {
    void operator()(VEC* vector) const { v_free(vector); }
};
using Vector = std::unique_ptr<VEC, VectorDeleter>;

/// A vector of dim zeroed components; null on failure, also for a negative size.
Vector makeVector(int dim);

}  // namespace ks
