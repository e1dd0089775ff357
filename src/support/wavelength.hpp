// Wavelengths in whole thousandths, the precision to which field names and band lists give them.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace ks {

/// A wavelength times 1000, rounded half up; saturated, and the smallest number for not-a-number.
inline std::int64_t thousandths(float wavelength) {
    constexpr double kLimit = 9223372036854775808.0;  // 2^63
    const double value = static_cast<double>(wavelength) * 1000.0 + 0.5;
    if (value >= kLimit) return std::numeric_limits<std::int64_t>::max();
    if (!(value >= -kLimit)) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(value);
}

}  // namespace ks
