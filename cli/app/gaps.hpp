// Where a list of wavelengths has a gap.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace kscli {

/// Wavelengths are left out before a value: the step is far wider than those on either side.
template <class Wavelength>
bool isGapBefore(const std::vector<Wavelength>& wavelengths, std::size_t i) {
    constexpr Wavelength kFarWider = 4;
    if (i < 2 || i + 1 >= wavelengths.size()) return false;
    const auto step = [&](std::size_t k) { return std::abs(wavelengths[k] - wavelengths[k - 1]); };
    return step(i) > kFarWider * std::max(step(i - 1), step(i + 1));
}

}  // namespace kscli
