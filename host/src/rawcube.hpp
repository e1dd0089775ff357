// Raw binary cubes (BIP, BIL, BSQ in one file, any header length, either byte order) through pread and pwrite.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "raster.hpp"
#include "samples.hpp"

namespace kshost {

/// Where sample (x, y, band) lies: offset + x * pixelStride + y * lineStride + band * bandStride bytes from the start.
struct RawLayout {
    std::string path;
    SampleType type = SampleType::UInt8;
    bool bigEndian = false;
    int width = 0;
    int height = 0;
    int bands = 0;
    std::int64_t offset = 0;
    std::int64_t pixelStride = 0;
    std::int64_t lineStride = 0;
    std::int64_t bandStride = 0;

    /// What makes the layout unusable (strides that overflow, or not next to each other), else an empty text.
    std::string problem() const;
    /// Bytes that the file must have; call it only when there is no problem.
    std::int64_t fileSize() const;
    bool pixelInterleaved() const;
};

class RawCube {
public:
    /// Opens the file; `writable` falls back to reading, and writes then fail. Throws std::runtime_error.
    RawCube(RawLayout layout, bool writable);
    ~RawCube();
    RawCube(const RawCube&) = delete;
    RawCube& operator=(const RawCube&) = delete;

    /// What the file's length is and should be, when it is too short; else an empty text.
    std::string shortness() const;

    /// As Raster's calls of these names.
    std::string read(const Transfer& transfer, float* buffer) const;
    std::string write(const Transfer& transfer, const float* buffer);
    std::string flush();

private:
    RawLayout layout_;
    int descriptor_ = -1;
    std::string whyReadOnly_;
    bool written_ = false;
};

}  // namespace kshost
