// Numbers that follow from a seed: the same on every machine and in any order.
#pragma once

#include <cstdint>

namespace kscli {

/// Sebastiano Vigna's splitmix64 finaliser: a good hash of a counter, the same everywhere.
inline std::uint64_t mix(std::uint64_t z) {
    z += 0x9E3779B97F4A7C15ULL;
    z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27U)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31U);
}

/// The purpose keeps streams of one seed apart.
inline std::uint64_t hash(std::uint64_t seed, std::uint64_t purpose, std::int64_t a, std::int64_t b) {
    return mix(mix(mix(seed ^ (purpose << 56U)) + static_cast<std::uint64_t>(a)) + static_cast<std::uint64_t>(b));
}

/// 0 <= x < 1.
inline double unit(std::uint64_t bits) { return static_cast<double>(bits >> 11U) * 0x1.0p-53; }

}  // namespace kscli
