// The library's only door to the allocator. Tests put an allocator that fails on demand behind it.
#pragma once

#include <cstddef>

namespace ks::memory {

// All three give null on failure and a block that the standard free releases; a size of 0 gives a block too.
void* allocate(std::size_t bytes);
void* allocateZeroed(std::size_t bytes);
void* reallocate(void* block, std::size_t bytes);

}  // namespace ks::memory
