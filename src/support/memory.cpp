// Standard allocation: what callers get is theirs to free.
#include "support/memory.hpp"

#include <cstdlib>

namespace ks::memory {

namespace {

std::size_t atLeastOne(std::size_t bytes) { return bytes == 0 ? 1 : bytes; }

}  // namespace

void* allocate(std::size_t bytes) { return std::malloc(atLeastOne(bytes)); }

void* allocateZeroed(std::size_t bytes) { return std::calloc(1, atLeastOne(bytes)); }

void* reallocate(void* block, std::size_t bytes) { return std::realloc(block, atLeastOne(bytes)); }

}  // namespace ks::memory
