// The image of a vector-quantized cube: a raster of 16-bit indexes seen through a codebook.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "codebook.hpp"
#include "hostfile.hpp"

namespace kshost {

class VqRaster : public Raster {
public:
    using Window = std::array<int, 4>;  // x offset, y offset, width, height

    /// `file` owns the raster; its store holds the codebook, which may be replaced while the file is open. `shape`
    /// gives what stays: number of vectors, bands and data type.
    VqRaster(const HostFile& file, std::unique_ptr<Raster> indexMap, const Codebook& shape);

    /// Decodes; fails on an index that has no code vector.
    std::string read(const Transfer& transfer, float* buffer) override;
    /// Samples follow from indexes and code vectors and are not written themselves.
    std::string write(const Transfer& transfer, const float* buffer) override;
    std::string flush() override { return indexMap_->flush(); }

    int vectors() const { return vectors_; }
    int type() const { return type_; }
    /// The stored codebook; null with a reason when it is not the one that the file was opened with.
    std::shared_ptr<const Codebook> codebook(std::string& why) const;
    /// The window lies in the image. Reading fails on an index that has no code vector; writing takes checked indexes
    /// and has brought them to the disk when it succeeds.
    std::string readIndexes(const Window& window, std::uint16_t* indexes);
    std::string writeIndexes(const Window& window, const std::uint16_t* indexes);

private:
    using TakeBlock = std::function<void(const float* indexes, std::size_t pixels, std::size_t firstPixel)>;
    std::string eachBlock(const Transfer& transfer, const TakeBlock& take);
    std::string whyNoVector(const Transfer& block, const std::vector<float>& indexes) const;

    const HostFile& file_;
    std::unique_ptr<Raster> indexMap_;
    int vectors_;
    int type_;
};

/// Puts the cube in the place of an index map beside whose image a sidecar with a codebook lies. Leaves any other image
/// as it is.
void dressAsCube(HostFile& file);

}  // namespace kshost
