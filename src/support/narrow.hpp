// From positions computed in 64 bits back to the ints of records.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

namespace ks {

/// The nearest int.
inline int narrow(std::int64_t value) {
    constexpr std::int64_t kLeast = std::numeric_limits<int>::min();
    constexpr std::int64_t kMost = std::numeric_limits<int>::max();
    return static_cast<int>(std::clamp(value, kLeast, kMost));
}

}  // namespace ks
