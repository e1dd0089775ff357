// Arrays and records that belong to a scope until they are released into a record that a caller will free.
// Sizes are multiplied with a check: a count that is negative or too large gives null, like an allocation that failed.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <type_traits>
#include <utility>

#include "support/memory.hpp"

namespace ks {

struct FreeDeleter {
    void operator()(void* block) const { std::free(block); }
};

/// Heap<T[]> for arrays, Heap<T> for one record; release() hands the memory over.
template <class T>
using Heap = std::unique_ptr<T, FreeDeleter>;

namespace memory {

inline constexpr std::size_t kTooLarge = SIZE_MAX;

/// The product of counts that must not be negative, or kTooLarge, which no allocator can serve.
inline std::size_t product(std::initializer_list<std::int64_t> counts) {
    std::size_t bytes = 1;
    for (const std::int64_t count : counts) {
        if (count < 0 || __builtin_mul_overflow(bytes, static_cast<std::size_t>(count), &bytes)) return kTooLarge;
    }
    return bytes > static_cast<std::size_t>(PTRDIFF_MAX) ? kTooLarge : bytes;
}

}  // namespace memory

/// An array of the product of the counts, unset; null on failure.
template <class T, class... Counts>
Heap<T[]> allocateArray(Counts... counts) {
    static_assert(std::is_trivial_v<T>);
    const std::size_t bytes = memory::product({static_cast<std::int64_t>(sizeof(T)), counts...});
    return Heap<T[]>(bytes == memory::kTooLarge ? nullptr : static_cast<T*>(memory::allocate(bytes)));
}

/// One record with every byte zero; null on failure.
template <class T>
Heap<T> allocateZeroed() {
    static_assert(std::is_trivial_v<T>);
    return Heap<T>(static_cast<T*>(memory::allocateZeroed(sizeof(T))));
}

/// An array of `count` elements with every byte zero; null on failure.
template <class T>
Heap<T[]> allocateZeroedArray(std::int64_t count) {
    static_assert(std::is_trivial_v<T>);
    const std::size_t bytes = memory::product({static_cast<std::int64_t>(sizeof(T)), count});
    return Heap<T[]>(bytes == memory::kTooLarge ? nullptr : static_cast<T*>(memory::allocateZeroed(bytes)));
}

/// A copy of a text; null on failure.
inline char* copyText(const char* text) {
    const std::size_t bytes = std::strlen(text) + 1;
    void* copy = memory::allocate(bytes);
    return copy == nullptr ? nullptr : static_cast<char*>(std::memcpy(copy, text, bytes));
}

/// Grows an array that a record owns; null on failure, with the old block still the record's.
template <class T>
T* reallocateArray(T* block, std::int64_t count) {
    static_assert(std::is_trivial_v<T>);
    const std::size_t bytes = memory::product({static_cast<std::int64_t>(sizeof(T)), count});
    return bytes == memory::kTooLarge ? nullptr : static_cast<T*>(memory::reallocate(block, bytes));
}

/// Frees what a record's pointer owns and clears it.
template <class T>
void freeAndClear(T*& pointer) {
    std::free(pointer);
    pointer = nullptr;
}

/// Runs a clean-up on the way out of a scope unless it is dismissed.
template <class Action>
class Undo {
public:
    explicit Undo(Action action) : action_(std::move(action)) {}
    Undo(const Undo&) = delete;
    Undo& operator=(const Undo&) = delete;
    ~Undo() {
        if (armed_) action_();
    }
    void dismiss() { armed_ = false; }

private:
    Action action_;
    bool armed_ = true;
};

}  // namespace ks
