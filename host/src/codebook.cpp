// Sizes of codebooks and their limits.
#include "codebook.hpp"

#include <array>
#include <cstring>

namespace kshost {
namespace {

constexpr int kMostVectors = 65535;  // one less than there are 16-bit indexes, so that the count fits 16 bits too
constexpr int kMostBands = 65535;
constexpr std::uint64_t kMostBytes = std::uint64_t{1} << 31U;

}  // namespace

std::size_t componentBytes(int type) {
    constexpr std::array<std::size_t, 5> kBytes = {0, 1, 2, 2, 4};
    return type >= 1 && type <= 4 ? kBytes[static_cast<std::size_t>(type)] : 0;
}

std::size_t Codebook::vectorBytes() const { return static_cast<std::size_t>(bands) * componentBytes(type); }

std::string whyNoCodebook(int vectors, int bands, int type) {
    if (vectors < 1 || vectors > kMostVectors) {
        return "a codebook has 1 to " + std::to_string(kMostVectors) + " code vectors, not " + std::to_string(vectors);
    }
    if (bands < 1 || bands > kMostBands) {
        return "a code vector has 1 to " + std::to_string(kMostBands) + " bands, not " + std::to_string(bands);
    }
    if (componentBytes(type) == 0) return "the data type of a codebook is 1 to 4, not " + std::to_string(type);
    const Codebook shape = {vectors, bands, type, {}};
    if (shape.bytes() > kMostBytes) {
        return "a codebook of " + std::to_string(vectors) + " vectors of " + std::to_string(bands) +
               " bands needs more than 2 GiB";
    }
    return {};
}

int bitsPerIndex(int vectors) {
    int bits = 1;
    while ((1 << bits) < vectors) ++bits;
    return bits;
}

std::int64_t checksumOf(const std::vector<unsigned char>& bytes) {
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (std::size_t i = 0; i < bytes.size(); i += sizeof(std::uint64_t)) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes.data() + i, bytes.size() - i < sizeof word ? bytes.size() - i : sizeof word);
        hash = (hash ^ word) * 0x100000001b3U;
    }
    std::int64_t sum = 0;
    std::memcpy(&sum, &hash, sizeof sum);
    return sum;
}

}  // namespace kshost
