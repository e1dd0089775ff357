// Vector code for the conversions of samples.hpp. Each call answers false when the type has no loop here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "samples.hpp"

namespace kshost {

/// `stream` writes past the cache: for targets too large to be found in it again.
bool convertRunFast(SampleType type, bool swapped, const void* from, std::size_t count, float* to, bool stream);
bool transposeRowsFast(SampleType type, bool swapped, const void* const* rows, std::size_t rowCount,
                       std::size_t pixelCount, float* to, std::size_t stride, bool stream);

}  // namespace kshost
