// Sample types of raw cubes and the loops that turn their samples into floats and back. Each loop is written once for
// all types and both byte orders; a table hands out the right instance.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kshost {

enum class SampleType { UInt8, Int16, UInt16, Int32, UInt32, Int64, UInt64, Float32, Float64 };

std::size_t sampleSize(SampleType type);

struct SampleCodec {
    /// count consecutive samples.
    void (*toFloat)(const void* source, std::size_t count, float* target);
    /// Picks channels of pixel-interleaved pixels: target[p * channelCount + c] is sample channels[c] of pixel
    /// pixels[p], or of pixel p when pixels is null.
    void (*pickPixels)(const void* source, std::size_t pixelStride, const std::size_t* pixels, std::size_t pixelCount,
                       const std::size_t* channels, std::size_t channelCount, float* target);
    /// Picks columns of one row, samples as they are: target[i] is sample columns[i].
    void (*pickColumns)(const void* source, const std::size_t* columns, std::size_t count, void* target);
    /// Transposes rows of one channel each into pixels: target[p * targetStride + r] is sample p of row r.
    void (*rowsToPixels)(const void* const* rows, std::size_t rowCount, std::size_t pixelCount, float* target,
                         std::size_t targetStride);
    /// The way back. Values are clamped to the type and rounded to nearest, ties to even; a NaN becomes missing[c].
    /// Sample channels[c] of pixel p is source[p * channelCount + c].
    void (*packPixels)(const float* source, std::size_t pixelCount, const std::size_t* channels,
                       std::size_t channelCount, const float* missing, void* target, std::size_t pixelStride);
    /// Sample p of row r is source[p * sourceStride + r].
    void (*pixelsToRows)(const float* source, std::size_t sourceStride, std::size_t rowCount, std::size_t pixelCount,
                         const float* missing, void* const* rows);
};

/// The loops of a type; `swapped` when the samples are not in the machine's byte order.
const SampleCodec& sampleCodec(SampleType type, bool swapped);

/// The value that writing `value` stores in a type, before the cast: what GDAL is given to write.
double storedValue(SampleType type, float value, float missing);

}  // namespace kshost
