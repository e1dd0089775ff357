// The loops that most bytes of a cube pass through, for the sample types of most cubes, compiled for every vector width
// of the machine family and chosen at run time. Results are those of the plain loops in samples.cpp to the bit: each
// sample is converted by itself.
#include "sampleloops.hpp"

#include <algorithm>
#include <cstring>
#include <vector>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "sampleloops.cpp"
#include <hwy/cache_control.h>
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace kshost {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Pixels that are transposed together: their floats, of all channels of a usual cube, fit in the first-level cache.
constexpr std::size_t kPixels = 32;

template <class V>
V swapped16(V v) {
    return hn::Or(hn::ShiftLeft<8>(v), hn::ShiftRight<8>(v));
}

template <class D, class V>
V swapped32(D d, V v) {
    const auto inner = hn::Set(d, 0x0000FF00U);
    return hn::Or(hn::Or(hn::ShiftLeft<24>(v), hn::ShiftRight<24>(v)),
                  hn::Or(hn::ShiftLeft<8>(hn::And(v, inner)), hn::And(hn::ShiftRight<8>(v), inner)));
}

// As many samples as the vector of floats has lanes, from any address.
template <class T, bool Swapped, class D>
HWY_INLINE hn::Vec<D> loadFloats(D d, const std::uint8_t* from) {
    const hn::Rebind<T, D> samples;
    const hn::RebindToUnsigned<decltype(samples)> bits;
    auto raw = hn::LoadU(bits, reinterpret_cast<const hn::TFromD<decltype(bits)>*>(from));
    if constexpr (Swapped && sizeof(T) == 2) raw = swapped16(raw);
    if constexpr (Swapped && sizeof(T) == 4) raw = swapped32(bits, raw);
    const auto values = hn::BitCast(samples, raw);
    if constexpr (std::is_same_v<T, float>)
        return values;
    else if constexpr (sizeof(T) == 4)
        return hn::ConvertTo(d, values);
    else
        return hn::ConvertTo(d, hn::PromoteTo(hn::RebindToSigned<D>(), values));
}

template <class T, bool Swapped>
float loadFloat(const std::uint8_t* from) {
    using D = hn::FixedTag<float, 1>;
    return hn::GetLane(loadFloats<T, Swapped>(D(), from));
}

template <class T, bool Swapped>
void convertRun(const std::uint8_t* from, std::size_t count, float* to, bool stream) {
    const hn::ScalableTag<float> d;
    const std::size_t lanes = hn::Lanes(d);
    std::size_t i = 0;
    if (stream) {
        for (; i < count && reinterpret_cast<std::uintptr_t>(to + i) % (lanes * sizeof(float)) != 0; ++i)
            to[i] = loadFloat<T, Swapped>(from + i * sizeof(T));
        for (; i + lanes <= count; i += lanes) hn::Stream(loadFloats<T, Swapped>(d, from + i * sizeof(T)), d, to + i);
        hwy::FlushStream();
    } else {
        for (; i + lanes <= count; i += lanes) hn::StoreU(loadFloats<T, Swapped>(d, from + i * sizeof(T)), d, to + i);
    }
    for (; i < count; ++i) to[i] = loadFloat<T, Swapped>(from + i * sizeof(T));
}

// Rows and columns of four, or of eight where vectors are wide enough.
#if HWY_TARGET == HWY_SCALAR
constexpr std::size_t kSquare = 1;
#elif HWY_MAX_BYTES >= 32
constexpr std::size_t kSquare = 8;
#else
constexpr std::size_t kSquare = 4;
#endif
using Square = hn::FixedTag<float, kSquare>;

template <class T, bool Swapped>
HWY_INLINE void transposeSquare(const void* const* rows, std::size_t pixel, float* to, std::size_t stride) {
    const Square d;
#if HWY_TARGET == HWY_SCALAR
    hn::StoreU(loadFloats<T, Swapped>(d, static_cast<const std::uint8_t*>(rows[0]) + pixel * sizeof(T)), d, to);
    (void)stride;
#else
    const auto row = [&](std::size_t r) HWY_ATTR {
        return loadFloats<T, Swapped>(d, static_cast<const std::uint8_t*>(rows[r]) + pixel * sizeof(T));
    };
    const hn::RepartitionToWide<Square> pairs;
    const auto lower = [&](auto a, auto b) HWY_ATTR {
        return hn::BitCast(d, hn::InterleaveLower(pairs, hn::BitCast(pairs, a), hn::BitCast(pairs, b)));
    };
    const auto upper = [&](auto a, auto b) HWY_ATTR {
        return hn::BitCast(d, hn::InterleaveUpper(pairs, hn::BitCast(pairs, a), hn::BitCast(pairs, b)));
    };
    // Four rows to four pixels within each 128-bit block.
    const auto a0 = row(0), a1 = row(1), a2 = row(2), a3 = row(3);
    const auto low01 = hn::InterleaveLower(d, a0, a1), high01 = hn::InterleaveUpper(d, a0, a1);
    const auto low23 = hn::InterleaveLower(d, a2, a3), high23 = hn::InterleaveUpper(d, a2, a3);
    const auto p0 = lower(low01, low23), p1 = upper(low01, low23), p2 = lower(high01, high23),
               p3 = upper(high01, high23);
#if HWY_MAX_BYTES >= 32
    const auto a4 = row(4), a5 = row(5), a6 = row(6), a7 = row(7);
    const auto low45 = hn::InterleaveLower(d, a4, a5), high45 = hn::InterleaveUpper(d, a4, a5);
    const auto low67 = hn::InterleaveLower(d, a6, a7), high67 = hn::InterleaveUpper(d, a6, a7);
    const auto q0 = lower(low45, low67), q1 = upper(low45, low67), q2 = lower(high45, high67),
               q3 = upper(high45, high67);
    hn::StoreU(hn::ConcatLowerLower(d, q0, p0), d, to);
    hn::StoreU(hn::ConcatLowerLower(d, q1, p1), d, to + stride);
    hn::StoreU(hn::ConcatLowerLower(d, q2, p2), d, to + 2 * stride);
    hn::StoreU(hn::ConcatLowerLower(d, q3, p3), d, to + 3 * stride);
    hn::StoreU(hn::ConcatUpperUpper(d, q0, p0), d, to + 4 * stride);
    hn::StoreU(hn::ConcatUpperUpper(d, q1, p1), d, to + 5 * stride);
    hn::StoreU(hn::ConcatUpperUpper(d, q2, p2), d, to + 6 * stride);
    hn::StoreU(hn::ConcatUpperUpper(d, q3, p3), d, to + 7 * stride);
#else
    hn::StoreU(p0, d, to);
    hn::StoreU(p1, d, to + stride);
    hn::StoreU(p2, d, to + 2 * stride);
    hn::StoreU(p3, d, to + 3 * stride);
#endif
#endif
}

template <class T, bool Swapped>
void transposePixels(const void* const* rows, std::size_t rowCount, std::size_t pixel, std::size_t pixels, float* to,
                     std::size_t stride) {
    std::size_t r = 0;
    for (; r + kSquare <= rowCount; r += kSquare) {
        std::size_t p = 0;
        for (; p + kSquare <= pixels; p += kSquare)
            transposeSquare<T, Swapped>(rows + r, pixel + p, to + p * stride + r, stride);
        for (; p < pixels; ++p)
            for (std::size_t i = r; i < r + kSquare; ++i)
                to[p * stride + i] =
                    loadFloat<T, Swapped>(static_cast<const std::uint8_t*>(rows[i]) + (pixel + p) * sizeof(T));
    }
    for (; r < rowCount; ++r)
        for (std::size_t p = 0; p < pixels; ++p)
            to[p * stride + r] =
                loadFloat<T, Swapped>(static_cast<const std::uint8_t*>(rows[r]) + (pixel + p) * sizeof(T));
}

// Pixels that fill the target without gaps are put together in a small buffer first and leave it past the cache.
template <class T, bool Swapped>
void transposeRows(const void* const* rows, std::size_t rowCount, std::size_t pixelCount, float* to, std::size_t stride,
                   float* scratch) {
    for (std::size_t pixel = 0; pixel < pixelCount; pixel += kPixels) {
        const std::size_t pixels = std::min(kPixels, pixelCount - pixel);
        if (scratch == nullptr) {
            transposePixels<T, Swapped>(rows, rowCount, pixel, pixels, to + pixel * stride, stride);
            continue;
        }
        transposePixels<T, Swapped>(rows, rowCount, pixel, pixels, scratch, rowCount);
        convertRun<float, false>(reinterpret_cast<const std::uint8_t*>(scratch), pixels * rowCount, to + pixel * stride,
                                 true);
    }
}

template <class Body>
bool forType(SampleType type, bool swapped, Body body) {
    const auto both = [&](auto zero) {
        if (swapped)
            body(zero, std::true_type());
        else
            body(zero, std::false_type());
        return true;
    };
    switch (type) {
        case SampleType::UInt8:
            return both(std::uint8_t{});
        case SampleType::Int16:
            return both(std::int16_t{});
        case SampleType::UInt16:
            return both(std::uint16_t{});
        case SampleType::Int32:
            return both(std::int32_t{});
        case SampleType::Float32:
            return both(float{});
        default:
            return false;
    }
}

bool ConvertRun(SampleType type, bool swapped, const void* from, std::size_t count, float* to, bool stream) {
    return forType(type, swapped, [=](auto zero, auto swap) {
        convertRun<decltype(zero), decltype(swap)::value>(static_cast<const std::uint8_t*>(from), count, to, stream);
    });
}

bool TransposeRows(SampleType type, bool swapped, const void* const* rows, std::size_t rowCount, std::size_t pixelCount,
                   float* to, std::size_t stride, float* scratch) {
    return forType(type, swapped, [=](auto zero, auto swap) {
        transposeRows<decltype(zero), decltype(swap)::value>(rows, rowCount, pixelCount, to, stride, scratch);
    });
}

}  // namespace HWY_NAMESPACE
}  // namespace kshost
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kshost {
HWY_EXPORT(ConvertRun);
HWY_EXPORT(TransposeRows);

bool convertRunFast(SampleType type, bool swapped, const void* from, std::size_t count, float* to, bool stream) {
    return HWY_DYNAMIC_DISPATCH(ConvertRun)(type, swapped, from, count, to, stream);
}

bool transposeRowsFast(SampleType type, bool swapped, const void* const* rows, std::size_t rowCount,
                       std::size_t pixelCount, float* to, std::size_t stride, bool stream) {
    constexpr std::size_t kPixelsAtOnce = 32;
    constexpr std::size_t kMostRows = 2048;
    if (!stream || rowCount != stride || rowCount > kMostRows)
        return HWY_DYNAMIC_DISPATCH(TransposeRows)(type, swapped, rows, rowCount, pixelCount, to, stride, nullptr);
    thread_local std::vector<float> scratch;
    scratch.resize(std::max(scratch.size(), kPixelsAtOnce * rowCount));
    return HWY_DYNAMIC_DISPATCH(TransposeRows)(type, swapped, rows, rowCount, pixelCount, to, stride, scratch.data());
}

}  // namespace kshost
#endif
