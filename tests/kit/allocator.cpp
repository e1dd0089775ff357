// Stands in for the library's allocator and in front of Meschach's vectors.
#include "allocator.hpp"

#include <dlfcn.h>
#include <kslib/ksmatrix.h>

#include <cstdio>
#include <cstdlib>

#include "support/memory.hpp"

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
Refusal vectorRefusal;

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

}  // namespace

namespace kit {

void refuseAllocation(int nth) { blocks.arm(nth); }
int allocations() { return blocks.asked; }
bool allocationRefused() { return blocks.done; }

void refuseVector(int nth) { vectorRefusal.arm(nth); }
int vectors() { return vectorRefusal.asked; }

}  // namespace kit

namespace ks::memory {

void* allocate(std::size_t bytes) { return blocks.strikes() ? nullptr : std::malloc(atLeastOne(bytes)); }

void* allocateZeroed(std::size_t bytes) { return blocks.strikes() ? nullptr : std::calloc(1, atLeastOne(bytes)); }

void* reallocate(void* block, std::size_t bytes) {
    return blocks.strikes() ? nullptr : std::realloc(block, atLeastOne(bytes));
}

}  // namespace ks::memory

extern "C" VEC* v_get(int dim) {
    using VectorGet = VEC* (*)(int);
    static const VectorGet real = reinterpret_cast<VectorGet>(dlsym(RTLD_NEXT, "v_get"));
    if (vectorRefusal.strikes()) {
        abortUnlessGuarded();
        char file[] = "memory.c";
        char function[] = "v_get";
        ev_err(file, E_MEM, 0, function, 0);
    }
    return real(dim);
}
