// Index maps, codebooks and data sets of vector-quantized cubes for tests.
#pragma once

#include <kslib.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "datasets.hpp"
#include "fakehost.hpp"

namespace kit {

/// An initialised index-map window of a size in pixels, not yet allocated.
inline KSWinIM indexesOf(int width, int height, int xInterval = 1, int yInterval = 1) {
    KSWinIM window;
    KSInitWinIM(&window);
    window.nXSize = width;
    window.nYSize = height;
    window.nXSampleInt = xInterval;
    window.nYSampleInt = yInterval;
    return window;
}

/// The same, allocated, with every index set.
inline KSWinIM allocatedIndexes(int width, int height, std::uint16_t index, int xInterval = 1, int yInterval = 1) {
    KSWinIM window = indexesOf(width, height, xInterval, yInterval);
    KSAllocWinIM(&window);
    std::fill_n(window.pau16Samples, window.nNumXSamples * window.nNumYSamples, index);
    return window;
}

inline std::vector<std::uint16_t> indexes(const KSWinIM& window) {
    return {window.pau16Samples, window.pau16Samples + std::ptrdiff_t{window.nNumXSamples} * window.nNumYSamples};
}

/// An allocated codebook over a band map, with its values vector after vector.
inline KSCbk codebookOf(const std::vector<int>& bandMap, const std::vector<float>& values) {
    KSCbk codebook;
    KSInitCbk(&codebook);
    codebook.nNumBands = static_cast<int>(bandMap.size());
    codebook.nNumVects = static_cast<int>(values.size() / bandMap.size());
    KSAllocCbk(&codebook);
    std::copy(bandMap.begin(), bandMap.end(), codebook.panBandMap);
    if (codebook.pafCodebook != nullptr) std::copy(values.begin(), values.end(), codebook.pafCodebook);
    return codebook;
}

inline std::vector<float> values(const KSCbk& codebook) {
    return {codebook.pafCodebook, codebook.pafCodebook + std::ptrdiff_t{codebook.nNumVects} * codebook.nNumBands};
}

template <class T>
std::vector<unsigned char> bytesOf(const std::vector<T>& stored) {
    std::vector<unsigned char> bytes(stored.size() * sizeof(T));
    if (!bytes.empty()) std::memcpy(bytes.data(), stored.data(), bytes.size());
    return bytes;
}

/// A file in the fake host whose bands lie in a cube, and a record that refers to it by a handle of the first channel.
inline KSDataSet* heapCubeDataSet(const std::string& name, int width, int height, int bands, const FakeVQ& cube) {
    host().addFile(name, width, height, std::vector<int>(static_cast<std::size_t>(bands), 4)).vq = cube;
    KSDataSet* dataSet = heapDataSet(bands);
    dataSet->szFileName = heapText(name);
    dataSet->nXSize = width;
    dataSet->nYSize = height;
    for (int b = 0; b < bands; ++b) dataSet->pBandRefs[b].eStorage = KS_STORE_VQ;
    KSVQubeInfo& info = dataSet->VQubeInfo;
    info.nPixels = width;
    info.nLines = height;
    info.nNumVQChans = static_cast<int>(cube.channels.size());
    info.papfVQChan = heapArray(std::vector<HostFile*>{host().openChannel(name, 1)});
    info.nCodeVectors = cube.codeVectors;
    info.nDataType = cube.dataType;
    info.nBitsPerIndex = cube.bitsPerIndex;
    return dataSet;
}

/// Closes the handle of such a record and frees it.
inline void freeCubeDataSet(KSDataSet* dataSet) {
    host().dropReference(host().onlyHandle());
    freeWhole(dataSet);
}

}  // namespace kit
