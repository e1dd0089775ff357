// The matrix-vector product of many samples at once.
#pragma once

#include <kslib/ksmatrix.h>

namespace ks {

/// Samples side by side: component k of sample s is values[k * kTileSamples + s].
inline constexpr int kTileSamples = 32;

/// destination = T source for every sample of a tile. Lanes are samples: each product is summed in component order, in
/// double precision, and is what mv_mlt gives.
void multiplyTile(const MAT& transform, const double* source, double* destination);

}  // namespace ks
