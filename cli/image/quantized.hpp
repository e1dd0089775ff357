// Vector-quantized cubes: owners of the library's codebooks and index maps, and how a cube's file is made and opened.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <kslib.h>

#include "image/dataset.hpp"

namespace kscli {

/// Code vectors of some bands, one after another.
class Codebook {
public:
    Codebook(int vectors, const std::vector<int>& bands);
    ~Codebook() { KSFreeCbk(&codebook_); }
    Codebook(Codebook&& other) noexcept : codebook_(other.codebook_) { KSInitCbk(&other.codebook_); }
    Codebook& operator=(Codebook&&) = delete;

    /// The codebook of a cube, as values of a level.
    static Codebook of(const DataSet& cube, int level);
    /// Stores the codebook; the values must be those of the cube's type, which does not round.
    void write(const DataSet& cube) const;

    KSCbk* record() { return &codebook_; }
    const KSCbk* record() const { return &codebook_; }
    int vectorCount() const { return codebook_.nNumVects; }
    int bandCount() const { return codebook_.nNumBands; }
    float* values() { return codebook_.pafCodebook; }
    float* vector(int v) { return codebook_.papafCodeVect[v]; }
    const float* vector(int v) const { return codebook_.papafCodeVect[v]; }

private:
    KSCbk codebook_;
};

/// Indexes of the pixels of a rectangle, 2 bytes each.
class IndexMap {
public:
    IndexMap(int width, int rows);
    ~IndexMap() { KSFreeWinIM(&window_); }
    IndexMap(const IndexMap&) = delete;
    IndexMap& operator=(const IndexMap&) = delete;

    void place(int x, int y) { window_.nXOff = x, window_.nYOff = y; }
    void resizeRows(int rows);
    void read(const DataSet& cube);
    /// Writes the map of the whole image.
    void write(const DataSet& cube) const;
    /// Some rows as a window of their own, which borrows the indexes.
    KSWinIM rows(int first, int count) const;
    KSWinIM* record() { return &window_; }
    int index(int x, int y) const { return window_.papau16Start[y][x]; }

private:
    KSWinIM window_;
};

constexpr int kMostCodeVectors = 65535;

/// The bits that tell so many code vectors apart.
int bitsPerIndex(int vectors);
/// Of a stored sample.
std::size_t bytesPerSample(int sampleType);

/// A cube and nothing else: every band is stored vector-quantized.
bool isQuantized(const DataSet& dataSet);
/// Refuses an ordinary image where a cube is needed.
void requireQuantized(const DataSet& dataSet, const std::string& name);
/// Refuses an output that is not named like a GeoTIFF, which every cube is.
void requireCubeName(const std::string& name);

/// Makes the cube's file and writes its description; the file is open, to complete it.
DataSet createCube(DataSet description, const std::string& name, int vectors, int sampleType);
/// Opens an existing cube to write its codebook or index map; its metadata stays as it is.
DataSet openCubeForUpdate(const std::string& name);

}  // namespace kscli
