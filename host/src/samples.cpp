// Conversion loops. They are plain so that the compiler vectorises them; the transposes work on small tiles that stay
// in the first-level cache.
#include "samples.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

namespace kshost {
namespace {

constexpr std::size_t kTileRows = 16;    // floats of one cache line
constexpr std::size_t kTilePixels = 64;  // 16 rows of 64 floats are 4 KiB

template <class T>
using Bits = std::conditional_t<sizeof(T) == 1, std::uint8_t,
                                std::conditional_t<sizeof(T) == 2, std::uint16_t,
                                                   std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>>>;

inline std::uint8_t reversed(std::uint8_t v) { return v; }
inline std::uint16_t reversed(std::uint16_t v) { return __builtin_bswap16(v); }
inline std::uint32_t reversed(std::uint32_t v) { return __builtin_bswap32(v); }
inline std::uint64_t reversed(std::uint64_t v) { return __builtin_bswap64(v); }

// Samples may lie at any address: files have headers of odd length.
template <class T, bool Swapped>
inline T load(const unsigned char* address) {
    Bits<T> bits;
    std::memcpy(&bits, address, sizeof bits);
    if constexpr (Swapped) bits = reversed(bits);
    T value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

template <class T, bool Swapped>
inline void store(unsigned char* address, T value) {
    Bits<T> bits;
    std::memcpy(&bits, &value, sizeof bits);
    if constexpr (Swapped) bits = reversed(bits);
    std::memcpy(address, &bits, sizeof bits);
}

template <class T>
inline T encode(float value, float missing) {
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(value);
    } else if constexpr (sizeof(T) <= 2) {
        // Adding 1.5 * 2^23 leaves no bits for a fraction: rounds to nearest even without a library call.
        constexpr float kShift = 12582912.0F;
        constexpr float kLow = static_cast<float>(std::numeric_limits<T>::min());
        constexpr float kHigh = static_cast<float>(std::numeric_limits<T>::max());
        float v = value == value ? value : missing;
        v = v < kLow ? kLow : v;
        v = v > kHigh ? kHigh : v;
        return static_cast<T>(static_cast<std::int32_t>((v + kShift) - kShift));
    } else {
        const double v = std::nearbyint(static_cast<double>(value == value ? value : missing));
        constexpr double kLow = static_cast<double>(std::numeric_limits<T>::min());
        // One past the largest value is a power of two and exact, the largest value itself may not be.
        const double limit = std::ldexp(1.0, std::numeric_limits<T>::digits);
        if (v >= limit) return std::numeric_limits<T>::max();
        if (v <= kLow) return std::numeric_limits<T>::min();
        return static_cast<T>(v);
    }
}

template <class T, bool Swapped>
void toFloat(const void* source, std::size_t count, float* target) {
    const auto* bytes = static_cast<const unsigned char*>(source);
    for (std::size_t i = 0; i < count; ++i) target[i] = static_cast<float>(load<T, Swapped>(bytes + i * sizeof(T)));
}

template <class T, bool Swapped>
void pickPixels(const void* source, std::size_t pixelStride, const std::size_t* pixels, std::size_t pixelCount,
                const std::size_t* channels, std::size_t channelCount, float* target) {
    const auto* bytes = static_cast<const unsigned char*>(source);
    for (std::size_t p = 0; p < pixelCount; ++p) {
        const unsigned char* pixel = bytes + (pixels != nullptr ? pixels[p] : p) * pixelStride * sizeof(T);
        for (std::size_t c = 0; c < channelCount; ++c)
            target[p * channelCount + c] = static_cast<float>(load<T, Swapped>(pixel + channels[c] * sizeof(T)));
    }
}

template <class T>
void pickColumns(const void* source, const std::size_t* columns, std::size_t count, void* target) {
    const auto* from = static_cast<const unsigned char*>(source);
    auto* to = static_cast<unsigned char*>(target);
    for (std::size_t i = 0; i < count; ++i) std::memcpy(to + i * sizeof(T), from + columns[i] * sizeof(T), sizeof(T));
}

template <class T, bool Swapped>
void rowsToPixels(const void* const* rows, std::size_t rowCount, std::size_t pixelCount, float* target,
                  std::size_t targetStride) {
    alignas(64) float tile[kTileRows][kTilePixels];
    for (std::size_t p0 = 0; p0 < pixelCount; p0 += kTilePixels) {
        const std::size_t pixels = std::min(kTilePixels, pixelCount - p0);
        for (std::size_t r0 = 0; r0 < rowCount; r0 += kTileRows) {
            const std::size_t count = std::min(kTileRows, rowCount - r0);
            for (std::size_t r = 0; r < count; ++r)
                toFloat<T, Swapped>(static_cast<const unsigned char*>(rows[r0 + r]) + p0 * sizeof(T), pixels, tile[r]);
            float* out = target + p0 * targetStride + r0;
            if (count == kTileRows) {
                for (std::size_t p = 0; p < pixels; ++p, out += targetStride)
                    for (std::size_t r = 0; r < kTileRows; ++r) out[r] = tile[r][p];
            } else {
                for (std::size_t p = 0; p < pixels; ++p, out += targetStride)
                    for (std::size_t r = 0; r < count; ++r) out[r] = tile[r][p];
            }
        }
    }
}

template <class T, bool Swapped>
void packPixels(const float* source, std::size_t pixelCount, const std::size_t* channels, std::size_t channelCount,
                const float* missing, void* target, std::size_t pixelStride) {
    auto* bytes = static_cast<unsigned char*>(target);
    for (std::size_t p = 0; p < pixelCount; ++p) {
        unsigned char* pixel = bytes + p * pixelStride * sizeof(T);
        const float* from = source + p * channelCount;
        for (std::size_t c = 0; c < channelCount; ++c)
            store<T, Swapped>(pixel + channels[c] * sizeof(T), encode<T>(from[c], missing[c]));
    }
}

template <class T, bool Swapped>
void pixelsToRows(const float* source, std::size_t sourceStride, std::size_t rowCount, std::size_t pixelCount,
                  const float* missing, void* const* rows) {
    alignas(64) float tile[kTileRows][kTilePixels];
    for (std::size_t p0 = 0; p0 < pixelCount; p0 += kTilePixels) {
        const std::size_t pixels = std::min(kTilePixels, pixelCount - p0);
        for (std::size_t r0 = 0; r0 < rowCount; r0 += kTileRows) {
            const std::size_t count = std::min(kTileRows, rowCount - r0);
            const float* from = source + p0 * sourceStride + r0;
            for (std::size_t p = 0; p < pixels; ++p, from += sourceStride)
                for (std::size_t r = 0; r < count; ++r) tile[r][p] = from[r];
            for (std::size_t r = 0; r < count; ++r) {
                auto* to = static_cast<unsigned char*>(rows[r0 + r]) + p0 * sizeof(T);
                const float fill = missing[r0 + r];
                for (std::size_t p = 0; p < pixels; ++p)
                    store<T, Swapped>(to + p * sizeof(T), encode<T>(tile[r][p], fill));
            }
        }
    }
}

template <class T, bool Swapped>
constexpr SampleCodec codecOf() {
    return {toFloat<T, Swapped>,      pickPixels<T, Swapped>, pickColumns<T>,
            rowsToPixels<T, Swapped>, packPixels<T, Swapped>, pixelsToRows<T, Swapped>};
}

template <class T>
constexpr std::array<SampleCodec, 2> kCodecs = {codecOf<T, false>(), codecOf<T, true>()};

// Calls body with a value of the type.
template <class Body>
auto withType(SampleType type, Body body) {
    switch (type) {
        case SampleType::UInt8:
            return body(std::uint8_t{});
        case SampleType::Int16:
            return body(std::int16_t{});
        case SampleType::UInt16:
            return body(std::uint16_t{});
        case SampleType::Int32:
            return body(std::int32_t{});
        case SampleType::UInt32:
            return body(std::uint32_t{});
        case SampleType::Int64:
            return body(std::int64_t{});
        case SampleType::UInt64:
            return body(std::uint64_t{});
        case SampleType::Float32:
            return body(float{});
        case SampleType::Float64:
            break;
    }
    return body(double{});
}

}  // namespace

std::size_t sampleSize(SampleType type) {
    return withType(type, [](auto zero) { return sizeof zero; });
}

const SampleCodec& sampleCodec(SampleType type, bool swapped) {
    return *withType(type, [swapped](auto zero) { return &kCodecs<decltype(zero)>[swapped ? 1 : 0]; });
}

double storedValue(SampleType type, float value, float missing) {
    return withType(type, [=](auto zero) { return static_cast<double>(encode<decltype(zero)>(value, missing)); });
}

}  // namespace kshost
