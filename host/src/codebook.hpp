// The code vectors of a vector-quantized cube, as its sidecar keeps them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kshost {

struct Codebook {
    int vectors = 0;
    int bands = 0;                      // components of a vector
    int type = 0;                       // of a component: 1 uint8, 2 int16, 3 uint16, 4 float32
    std::vector<unsigned char> values;  // vector after vector, in the machine's byte order

    std::size_t vectorBytes() const;
    std::size_t bytes() const { return static_cast<std::size_t>(vectors) * vectorBytes(); }
};

/// What keeps a codebook of these sizes from being made, else an empty text.
std::string whyNoCodebook(int vectors, int bands, int type);

/// Bytes of a component of a type; 0 for a type that there is not.
std::size_t componentBytes(int type);

/// Bits that hold any index into a codebook of so many vectors, at least 1.
int bitsPerIndex(int vectors);

/// Tells damage from what was stored (FNV-1a over words of 64 bits); defends against nothing else.
std::int64_t checksumOf(const std::vector<unsigned char>& bytes);

}  // namespace kshost
