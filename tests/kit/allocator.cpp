// Stands in for the library's allocator and in front of Meschach.
#include "allocator.hpp"

#include <dlfcn.h>
#include <kslib/ksmatrix.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "support/memory.hpp"

// Meschach declares these two with its complex numbers.
extern "C" {
MAT* m_save(FILE* file, MAT* matrix, char* name);
MAT* m_load(FILE* file, char** name);
}

namespace {

struct Refusal {
    int asked = 0;
    int refuse = 0;
    bool done = false;

    void arm(int nth) { *this = {0, nth, false}; }
    bool strikes() {
        if (++asked != refuse) return false;
        done = true;
        return true;
    }
};

Refusal blocks;
std::array<Refusal, 8> matrixRefusals;

Refusal& refusalOf(kit::MatrixCall function) { return matrixRefusals.at(static_cast<std::size_t>(function)); }

std::size_t atLeastOne(std::size_t bytes) { return bytes == 0 ? 1 : bytes; }

/// An unguarded error would end the test program with status 0, which looks like success.
void abortUnlessGuarded() {
    const int flag = set_err_flag(EF_SILENT);
    set_err_flag(flag);
    if (flag != EF_JUMP && flag != EF_SILENT) {
        std::fputs("a Meschach call that can fail is not guarded\n", stderr);
        std::abort();
    }
}

/// Raises an error as the function itself would; comes back when the function is to work.
void failOnDemand(kit::MatrixCall function, const char* name, int error) {
    if (!refusalOf(function).strikes()) return;
    abortUnlessGuarded();
    char file[] = "";
    char text[16];
    std::snprintf(text, sizeof text, "%s", name);
    ev_err(file, error, 0, text, 0);
}

/// Meschach's own function behind the one of the same name here.
template <class Function>
Function real(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

namespace kit {

void refuseAllocation(int nth) { blocks.arm(nth); }
int allocations() { return blocks.asked; }
bool allocationRefused() { return blocks.done; }

void refuseMatrixCall(MatrixCall function, int nth) { refusalOf(function).arm(nth); }
int matrixCalls(MatrixCall function) { return refusalOf(function).asked; }
void refuseNoMatrixCall() {
    for (Refusal& refusal : matrixRefusals) refusal.arm(0);
}

}  // namespace kit

namespace ks::memory {

void* allocate(std::size_t bytes) { return blocks.strikes() ? nullptr : std::malloc(atLeastOne(bytes)); }

void* allocateZeroed(std::size_t bytes) { return blocks.strikes() ? nullptr : std::calloc(1, atLeastOne(bytes)); }

void* reallocate(void* block, std::size_t bytes) {
    return blocks.strikes() ? nullptr : std::realloc(block, atLeastOne(bytes));
}

}  // namespace ks::memory

extern "C" {

VEC* v_get(int dim) {
    static const auto get = real<VEC* (*)(int)>("v_get");
    failOnDemand(kit::MatrixCall::kVGet, "v_get", E_MEM);
    return get(dim);
}

IVEC* iv_get(int dim) {
    static const auto get = real<IVEC* (*)(int)>("iv_get");
    failOnDemand(kit::MatrixCall::kIvGet, "iv_get", E_MEM);
    return get(dim);
}

MAT* m_get(int rows, int columns) {
    static const auto get = real<MAT* (*)(int, int)>("m_get");
    failOnDemand(kit::MatrixCall::kMGet, "m_get", E_MEM);
    return get(rows, columns);
}

MAT* m_load(FILE* file, char** name) {
    static const auto load = real<MAT* (*)(FILE*, char**)>("m_load");
    failOnDemand(kit::MatrixCall::kMLoad, "m_load", E_INPUT);
    return load(file, name);
}

MAT* m_save(FILE* file, MAT* matrix, char* name) {
    static const auto save = real<MAT* (*)(FILE*, MAT*, char*)>("m_save");
    failOnDemand(kit::MatrixCall::kMSave, "m_save", E_NULL);
    return save(file, matrix, name);
}

VEC* v_sub(VEC* from, VEC* what, VEC* out) {
    static const auto subtract = real<VEC* (*)(VEC*, VEC*, VEC*)>("v_sub");
    failOnDemand(kit::MatrixCall::kVSub, "v_sub", E_SIZES);
    return subtract(from, what, out);
}

VEC* v_add(VEC* to, VEC* what, VEC* out) {
    static const auto add = real<VEC* (*)(VEC*, VEC*, VEC*)>("v_add");
    failOnDemand(kit::MatrixCall::kVAdd, "v_add", E_SIZES);
    return add(to, what, out);
}

VEC* mv_mlt(MAT* matrix, VEC* in, VEC* out) {
    static const auto multiply = real<VEC* (*)(MAT*, VEC*, VEC*)>("mv_mlt");
    failOnDemand(kit::MatrixCall::kMvMlt, "mv_mlt", E_SIZES);
    return multiply(matrix, in, out);
}

}  // extern "C"
