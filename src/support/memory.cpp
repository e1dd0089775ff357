// Standard allocation: what callers get is theirs to free.
#include "support/memory.hpp"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>

namespace ks::memory {

namespace {

std::size_t atLeastOne(std::size_t bytes) { return bytes == 0 ? 1 : bytes; }

/// Asks for huge pages under a large block: touching its small ones for the first time costs more than filling it.
void* preferHugePages(void* block, std::size_t bytes) {
    constexpr std::uintptr_t kHugePage = std::uintptr_t{2} << 20;
    if (block == nullptr || bytes < 4 * kHugePage) return block;
    const std::uintptr_t begin = (reinterpret_cast<std::uintptr_t>(block) + kHugePage - 1) & ~(kHugePage - 1);
    const std::uintptr_t end = (reinterpret_cast<std::uintptr_t>(block) + bytes) & ~(kHugePage - 1);
    // A wish: where it is not granted, nothing is lost.
    madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
    return block;
}

}  // namespace

void* allocate(std::size_t bytes) { return preferHugePages(std::malloc(atLeastOne(bytes)), bytes); }

void* allocateZeroed(std::size_t bytes) { return std::calloc(1, atLeastOne(bytes)); }

void* reallocate(void* block, std::size_t bytes) { return std::realloc(block, atLeastOne(bytes)); }

}  // namespace ks::memory
