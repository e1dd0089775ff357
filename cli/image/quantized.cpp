#include "image/quantized.hpp"

#include <algorithm>
#include <new>

#include "app/report.hpp"
#include "app/staging.hpp"
#include "image/bands.hpp"
#include "image/copyplan.hpp"

namespace kscli {

Codebook::Codebook(int vectors, const std::vector<int>& bands) {
    KSInitCbk(&codebook_);
    codebook_.nNumVects = vectors;
    codebook_.nNumBands = static_cast<int>(bands.size());
    if (KSAllocCbk(&codebook_) != 0) {
        KSFreeCbk(&codebook_);
        throw std::bad_alloc();
    }
    std::copy(bands.begin(), bands.end(), codebook_.panBandMap);
}

Codebook Codebook::of(const DataSet& cube, int level) {
    Codebook codebook(cube->VQubeInfo.nCodeVectors, allBands(cube));
    codebook.codebook_.nRadTransLev = level;
    if (KSReadCbk(cube.get(), codebook.record()) != 0) fail("the codebook could not be read (see above).");
    return codebook;
}

void Codebook::write(const DataSet& cube) const {
    if (KSWriteCbk(cube.get(), record()) != 0) fail("the codebook could not be stored (see above).");
}

IndexMap::IndexMap(int width, int rows) {
    KSInitWinIM(&window_);
    window_.nXSize = width;
    window_.nYSize = rows;
    window_.nXSampleInt = 1;
    window_.nYSampleInt = 1;
    if (KSAllocWinIM(&window_) != 0) throw std::bad_alloc();
}

void IndexMap::resizeRows(int rows) {
    if (rows == window_.nNumYSamples) return;
    if (KSResizeWinIM(&window_, window_.nXSize, rows, 1, 1) != 0) throw std::bad_alloc();
}

void IndexMap::read(const DataSet& cube) {
    if (KSReadWinIM(cube.get(), &window_) != 0) fail("the index map could not be read (see above).");
}

void IndexMap::write(const DataSet& cube) const {
    if (KSWriteWinIM(cube.get(), &window_) != 0) fail("the index map could not be stored (see above).");
}

KSWinIM IndexMap::rows(int first, int count) const {
    KSWinIM part = window_;
    part.nYOff += first;
    part.nYSize = count;
    part.nNumYSamples = count;
    part.papau16Start += first;
    part.pau16Samples = part.papau16Start[0];
    return part;
}

int bitsPerIndex(int vectors) {
    int bits = 1;
    while (bits < 16 && (1 << bits) < vectors) ++bits;
    return bits;
}

std::size_t bytesPerSample(int sampleType) {
    if (sampleType == kUInt8) return 1;
    return sampleType == kInt16 || sampleType == kUInt16 ? 2 : 4;
}

bool isQuantized(const DataSet& dataSet) {
    if (dataSet->VQubeInfo.nCodeVectors < 1) return false;
    return std::all_of(dataSet->pBandRefs, dataSet->pBandRefs + dataSet.bandCount(),
                       [](const KSBandRef& ref) { return ref.eStorage == KS_STORE_VQ; });
}

void requireQuantized(const DataSet& dataSet, const std::string& name) {
    if (!isQuantized(dataSet)) {
        fail("{} is not a vector-quantized cube. 'ks vq train' makes one from an image.", name);
    }
}

void requireCubeName(const std::string& name) {
    const std::string extension = lowerExtension(name);
    if (extension != ".tif" && extension != ".tiff") {
        fail("{}: vector-quantized cubes are GeoTIFF files; give a name that ends in .tif.", name);
    }
}

DataSet createCube(DataSet description, const std::string& name, int vectors, int sampleType) {
    const int bands = description.bandCount();
    for (int band = 0; band < bands; ++band) {
        KSBandRef& ref = description->pBandRefs[band];
        ref.eStorage = KS_STORE_VQ;
        ref.nChan = band + 1;
    }
    KSVQubeInfo& cube = description->VQubeInfo;
    cube.nPixels = description->nXSize;
    cube.nLines = description->nYSize;
    cube.nNumVQChans = bands;
    cube.nNumNonVQChans = 0;
    cube.nCodeVectors = vectors;
    cube.nDataType = sampleType;
    cube.nBitsPerIndex = bitsPerIndex(vectors);
    description.create(name, sampleType);
    // Creating a cube leaves no file open, and does not tell whether it worked; opening does.
    if (DKCheck(name.c_str()) != 0) description->GDBFile = GDBOpen(name.c_str(), "r+");
    if (description->GDBFile == nullptr) fail("the cube could not be created (see above).");
    description.writeMetadata();
    return description;
}

DataSet openCubeForUpdate(const std::string& name) {
    requireQuantized(DataSet::open(name), name);
    return DataSet::openForUpdate(name);
}

}  // namespace kscli
