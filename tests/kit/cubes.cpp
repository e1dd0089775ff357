// The fake host's vector-quantized cubes. Lists of a description come from malloc and are counted until they are
// cleaned up.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "fakehost.hpp"
#include "print.hpp"

namespace kit {
namespace {

template <class T>
T* listOf(const std::vector<T>& values) {
    if (values.empty()) return nullptr;
    T* list = static_cast<T*>(std::malloc(values.size() * sizeof(T)));
    std::copy(values.begin(), values.end(), list);
    host().trackCube(list);
    return list;
}

void fill(HostFile* fp, const FakeVQ& cube, KSVQubeInfo& info) {
    info.nPixels = cube.pixels;
    info.nLines = cube.lines;
    info.nNumVQChans = static_cast<int>(cube.channels.size());
    info.panVQChans = listOf(cube.channels);
    info.papfVQChan = listOf(std::vector<HostFile*>(cube.channels.size(), fp));
    info.nNumNonVQChans = static_cast<int>(cube.otherChannels.size());
    info.panNonVQChans = listOf(cube.otherChannels);
    info.papfNonVQChan = listOf(std::vector<HostFile*>(cube.otherChannels.size(), fp));
    info.nCodeVectors = cube.codeVectors;
    info.nDataType = cube.dataType;
    info.nSpare = cube.spare;
    info.nBitsPerIndex = cube.bitsPerIndex;
}

template <class T>
void release(T*& list) {
    host().forgetCube(list);
    std::free(list);
    list = nullptr;
}

std::size_t componentBytes(int dataType) { return dataType == 1 ? 1 : dataType == 4 ? 4 : 2; }

/// The cube of a file, which may be named by one of its channels.
FakeVQ* cubeNamed(const char* name) {
    const std::string fileName = std::string(name).substr(0, std::string(name).find(':'));
    if (!host().exists(fileName)) return nullptr;
    FakeFile& file = host().file(fileName);
    return file.vq ? &*file.vq : nullptr;
}

FakeVQ* cubeOf(HostFile* fp, const char* caller) {
    FakeFile* file = host().fileOf(fp, caller);
    return file == nullptr || !file->vq ? nullptr : &*file->vq;
}

int createCube(const char* name, int pixels, int lines, int bands, int codeVectors, int dataType) {
    if (host().exists(name)) return 0;
    FakeFile& file = host().addFile(name, pixels, lines, std::vector<int>(static_cast<std::size_t>(bands), 4));
    FakeVQ cube;
    cube.pixels = pixels;
    cube.lines = lines;
    for (int channel = 1; channel <= bands; ++channel) cube.channels.push_back(channel);
    cube.codeVectors = codeVectors;
    cube.dataType = dataType;
    file.vq = cube;
    return 1;
}

/// Moves a window of the index map, mode as in channel transfers; of a buffer only what its own size covers.
bool moveIndexes(FakeVQ& cube, int mode, const int window[4], int width, int height, std::uint16_t* buffer) {
    if (window[0] < 0 || window[1] < 0 || window[0] + window[2] > cube.pixels || window[1] + window[3] > cube.lines) {
        return false;
    }
    cube.indexes.resize(static_cast<std::size_t>(cube.pixels) * static_cast<std::size_t>(cube.lines));
    for (int y = 0; y < std::min(window[3], height); ++y) {
        const auto row = static_cast<std::size_t>((window[1] + y) * cube.pixels + window[0]);
        for (int x = 0; x < std::min(window[2], width); ++x) {
            std::uint16_t& inside = cube.indexes[row + static_cast<std::size_t>(x)];
            std::uint16_t& outside = buffer[y * width + x];
            if (mode == 0) {
                outside = inside;
            } else {
                inside = outside;
            }
        }
    }
    return true;
}

}  // namespace
}  // namespace kit

using namespace kit;

extern "C" {

int VQubeGetInfo(HostFile* fp, KSVQubeInfo* pInfo) {
    if (!host().enter("VQubeGetInfo", arguments(fp))) return failing(0);
    const FakeVQ* cube = cubeOf(fp, "VQubeGetInfo");
    if (cube == nullptr) return 0;
    fill(fp, *cube, *pInfo);
    return 1;
}

int VQubeCreate(const char* szFileName, int nPixels, int nLines, int nBands, int nCodeVectors, int nDataType) {
    if (!host().enter("VQubeCreate", arguments(szFileName, nPixels, nLines, nBands, nCodeVectors, nDataType))) {
        return failing(0);
    }
    return createCube(szFileName, nPixels, nLines, nBands, nCodeVectors, nDataType);
}

void VQubeCleanUp(KSVQubeInfo* pInfo) {
    host().enter("VQubeCleanUp", arguments(static_cast<const void*>(pInfo)));
    if (pInfo == nullptr) return;
    release(pInfo->panVQChans);
    release(pInfo->papfVQChan);
    release(pInfo->panNonVQChans);
    release(pInfo->papfNonVQChan);
}

int VQubeGetCodeBook(HostFile* fpVQ, void* pBuf) {
    if (!host().enter("VQubeGetCodeBook", arguments(fpVQ))) return failing(0);
    const FakeVQ* cube = cubeOf(fpVQ, "VQubeGetCodeBook");
    if (cube == nullptr) return failing(0);
    std::copy(cube->codebook.begin(), cube->codebook.end(), static_cast<unsigned char*>(pBuf));
    return 1;
}

int VQubePutCodeBook(const char* szFileName, int nCodeVectors, int nDataType, int nCbkBands, int nDataSetBands,
                     const int* panChans, const void* pBuf) {
    if (!host().enter("VQubePutCodeBook", arguments(szFileName, nCodeVectors, nDataType, nCbkBands, nDataSetBands,
                                                    numbers(panChans, nDataSetBands)))) {
        return failing(0);
    }
    FakeVQ* cube = cubeNamed(szFileName);
    if (cube == nullptr) return failing(0);
    const auto* bytes = static_cast<const unsigned char*>(pBuf);
    const std::size_t components = static_cast<std::size_t>(nCodeVectors) * static_cast<std::size_t>(nCbkBands);
    cube->codebook.assign(bytes, bytes + components * componentBytes(nDataType));
    return 1;
}

int VQubeGetIndexMap(HostFile* fpVQ, const int anWindow[4], uint16_t* pau16Buf) {
    if (!host().enter("VQubeGetIndexMap", arguments(fpVQ, numbers(anWindow, 4)))) return failing(0);
    FakeVQ* cube = cubeOf(fpVQ, "VQubeGetIndexMap");
    if (cube == nullptr || !moveIndexes(*cube, 0, anWindow, anWindow[2], anWindow[3], pau16Buf)) return failing(0);
    return 1;
}

int VQubePutIndexMap(const char* szFileName, const int anWindow[4], int nCodeVectors, int nXSize, int nYSize,
                     const uint16_t* pau16Buf) {
    if (!host().enter("VQubePutIndexMap", arguments(szFileName, numbers(anWindow, 4), nCodeVectors, nXSize, nYSize))) {
        return failing(0);
    }
    FakeVQ* cube = cubeNamed(szFileName);
    auto* buffer = const_cast<std::uint16_t*>(pau16Buf);
    if (cube == nullptr || !moveIndexes(*cube, 1, anWindow, nXSize, nYSize, buffer)) return failing(0);
    return 1;
}

}  // extern "C"
