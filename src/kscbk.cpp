// Codebooks: their life cycle, their way from and to the cube of a data set, and single code vectors.
#include <kslib/kscbk.h>

#include <kslib/ksdatset.h>
#include <kslib/ksradtrans.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>

#include "support/heap.hpp"
#include "support/matrix.hpp"
#include "support/radtrans.hpp"
#include "support/report.hpp"
#include "support/vqchannel.hpp"

using namespace ks;

namespace {

constexpr const char* kReadLabel = "KSReadCbk()";
constexpr const char* kWriteLabel = "KSWriteCbk()";

/// How the components of a stored code vector are kept.
enum StoredType { kUint8 = 1, kInt16 = 2, kUint16 = 3, kFloat32 = 4 };

/// Bytes of a stored component; 0 for a type that is none.
int bytesOf(int type) {
    switch (type) {
        case kUint8:
            return 1;
        case kInt16:
        case kUint16:
            return 2;
        case kFloat32:
            return 4;
        default:
            return 0;
    }
}

// ---- reading ----

int checkRead(const KSDataSet* dataSet, const KSCbk* codebook) {
    constexpr const char* label = kReadLabel;
    if (dataSet == nullptr) return KS_FAIL("%s: pDataSet == NULL\n", label);
    const KSVQubeInfo& cube = dataSet->VQubeInfo;
    if (firstCubeChannel(*dataSet) == nullptr) {
        return KS_FAIL("%s: *(pDataSet->VQubeInfo.pafpVQChan) == NULL\n", label);
    }
    if (codebook == nullptr) return KS_FAIL("%s: pCbk == NULL\n", label);
    if (codebook->nNumBands <= 0) return KS_FAIL("%s: pCbk->nNumBands <= 0\n", label);
    if (codebook->panBandMap == nullptr) return KS_FAIL("%s: pCbk->panBandMap == NULL\n", label);
    if (codebook->nRadTransLev > dataSet->nNumRadTrans) {
        return KS_FAIL("%s: pCbk->nRadTransLev > pDataSet->nNumRadTrans\n", label);
    }
    if (cube.nCodeVectors == 0) return KS_FAIL("%s: pDataSet->VQubeInfo.nCodeVectors == 0\n", label);
    if (codebook->nNumVects != cube.nCodeVectors) {
        return KS_FAIL("%s: pCbk->nNumVects != pDataSet->VQubeInfo.nCodeVectors\n", label);
    }
    if (codebook->pafCodebook == nullptr) return KS_FAIL("%s: pCbk->pafCodebook == NULL\n", label);
    if (codebook->papafCodeVect == nullptr) return KS_FAIL("%s: pCbk->papafCodeVect == NULL\n", label);
    return kOk;
}

/// The first component that is no band of the data set; nNumBands when every one is.
int firstForeign(const KSDataSet& dataSet, const KSCbk& codebook) {
    const int* map = codebook.panBandMap;
    const auto isForeign = [&dataSet](int band) { return band < 0 || band >= dataSet.Sensor.nNumBands; };
    return static_cast<int>(std::find_if(map, map + codebook.nNumBands, isForeign) - map);
}

/// Every band of the codebook must be kept in the cube.
int checkStorage(const KSDataSet& dataSet, const KSCbk& codebook, const char* label) {
    for (int j = 0; j < codebook.nNumBands; ++j) {
        if (dataSet.pBandRefs[codebook.panBandMap[j]].eStorage != KS_STORE_VQ) {
            return KS_DEBUG_FAIL("%s: the codebook represents a band not stored in vector quantized format.\n", label);
        }
    }
    return kOk;
}

int checkReadBands(const KSDataSet& dataSet, const KSCbk& codebook) {
    if (dataSet.pBandRefs == nullptr) return KS_FAIL("%s: pDataSet->pBandRefs == NULL\n", kReadLabel);
    if (const int j = firstForeign(dataSet, codebook); j < codebook.nNumBands) {
        return KS_FAIL("%s: pCbk->panBandMap[%d] (= %d) is outside of valid range\n", kReadLabel, j,
                       codebook.panBandMap[j]);
    }
    return checkStorage(dataSet, codebook, kReadLabel);
}

/// A band's place in a stored code vector is its number; the cube must be wide enough.
int checkPositions(const KSDataSet& dataSet, const KSCbk& codebook) {
    for (int j = 0; j < codebook.nNumBands; ++j) {
        if (codebook.panBandMap[j] >= dataSet.VQubeInfo.nNumVQChans) {
            return KS_FAIL("%s: pCbk->panBandMap[%d] (= %d) >= pDataSet->VQubeInfo.nNumVQChans (= %d)\n", kReadLabel, j,
                           codebook.panBandMap[j], dataSet.VQubeInfo.nNumVQChans);
        }
    }
    return kOk;
}

/// Picks the codebook's components out of the stored vectors and calibrates them.
template <class Stored>
void decode(const void* storedVectors, int storedBands, const KSRadTrans* transform, KSCbk& codebook) {
    const Stored* vector = static_cast<const Stored*>(storedVectors);
    for (int v = 0; v < codebook.nNumVects; ++v, vector += storedBands) {
        for (int j = 0; j < codebook.nNumBands; ++j) {
            const int band = codebook.panBandMap[j];
            const float raw = static_cast<float>(vector[band]);
            codebook.papafCodeVect[v][j] =
                transform == nullptr ? raw : raw * transform->pafGains[band] + transform->pafOffsets[band];
        }
    }
}

void decodeAs(int type, const void* stored, int storedBands, const KSRadTrans* transform, KSCbk& codebook) {
    switch (type) {
        case kUint8:
            return decode<std::uint8_t>(stored, storedBands, transform, codebook);
        case kInt16:
            return decode<std::int16_t>(stored, storedBands, transform, codebook);
        case kUint16:
            return decode<std::uint16_t>(stored, storedBands, transform, codebook);
        default:
            return decode<float>(stored, storedBands, transform, codebook);
    }
}

int readCodebook(const KSDataSet& dataSet, KSCbk& codebook) {
    const KSVQubeInfo& cube = dataSet.VQubeInfo;
    RadTrans transform;
    if (codebook.nRadTransLev > 0) {
        const int bands = dataSet.Sensor.nNumBands;
        transform.reset(KSCreateRadTrans(bands));
        if (!transform) return KS_FAIL("%s: pRadTrans == NULL, KSCreateRadTrans() failed\n", kReadLabel);
        if (KSCombRadTrans(dataSet.papRadTransSeq, codebook.nRadTransLev, bands, transform.get()) != kOk) {
            return KS_FAIL("%s: KSCombRadTrans() failed\n", kReadLabel);
        }
    }
    const std::int64_t componentBytes = bytesOf(cube.nDataType);
    if (componentBytes == 0) return KS_FAIL("%s: pDataSet->VQubeInfo.nDataType not supported\n", kReadLabel);
    const Heap<unsigned char[]> stored =
        allocateArray<unsigned char>(std::int64_t{cube.nCodeVectors}, std::int64_t{cube.nNumVQChans}, componentBytes);
    if (!stored) return KS_FAIL("%s: pBuf == NULL, HMalloc () failed\n", kReadLabel);
    if (VQubeGetCodeBook(firstCubeChannel(dataSet), stored.get()) == 0) {
        return KS_FAIL("%s: ! VQubeGetCodeBook (fpVQ, pBuf), VQubeGetCodeBook() failed \n", kReadLabel);
    }
    decodeAs(cube.nDataType, stored.get(), cube.nNumVQChans, transform.get(), codebook);
    return kOk;
}

// ---- writing ----

int checkWriteFile(const KSDataSet* dataSet, const KSCbk* codebook) {
    constexpr const char* label = kWriteLabel;
    if (dataSet == nullptr) return KS_DEBUG_FAIL("%s: pDataSet == NULL\n", label);
    if (codebook == nullptr) return KS_DEBUG_FAIL("%s: pCbk == NULL\n", label);
    const char* name = dataSet->szFileName;
    if (name == nullptr || *name == '\0') {
        return KS_DEBUG_FAIL("%s: pDataSet->szFileName == NULL or zero-length\n", label);
    }
    if (DKCheck(name) == 0) return KS_DEBUG_FAIL("%s: pDataSet->szFileName ('%s') was not found\n", label, name);
    return kOk;
}

int checkWriteBands(const KSDataSet& dataSet, const KSCbk& codebook) {
    // A data set without bands has been reported and has none to look at.
    if (dataSet.Sensor.nNumBands < 1) return kOk;
    if (dataSet.pBandRefs == nullptr) return KS_DEBUG_FAIL("%s: pDataSet->pBandRefs == NULL\n", kWriteLabel);
    if (codebook.panBandMap == nullptr) return KS_DEBUG_FAIL("%s: pCbk->panBandMap == NULL\n", kWriteLabel);
    if (const int j = firstForeign(dataSet, codebook); j < codebook.nNumBands) {
        return KS_DEBUG_FAIL("%s: pCbk->panBandMap[%d] (= %d) is outside of valid range\n", kWriteLabel, j,
                             codebook.panBandMap[j]);
    }
    return checkStorage(dataSet, codebook, kWriteLabel);
}

int checkWriteCodebook(const KSDataSet& dataSet, const KSCbk& codebook) {
    constexpr const char* label = kWriteLabel;
    if (bytesOf(dataSet.VQubeInfo.nDataType) == 0) {
        return KS_DEBUG_FAIL("%s: pDataSet->VQubeInfo.nDataType is invalid.\n", label);
    }
    if (codebook.nNumBands < 1) return KS_DEBUG_FAIL("%s: pCbk->nNumBands < 1\n", label);
    if (codebook.nNumVects < 1) return KS_DEBUG_FAIL("%s: pCbk->nNumVects < 1\n", label);
    if (checkWriteBands(dataSet, codebook) != kOk) return kFailed;
    if (codebook.nNumVects < dataSet.VQubeInfo.nCodeVectors) {
        return KS_DEBUG_FAIL("%s: pCbk->nNumVects < pDataSet->VQubeInfo.nCodeVectors\n", label);
    }
    if (codebook.pafCodebook == nullptr) return KS_DEBUG_FAIL("%s: pCbk->pafCodebook == NULL\n", label);
    return kOk;
}

/// The low bits of a value truncated toward zero; values beyond 64 bits saturate first, not-a-number is 0.
template <class Stored>
Stored truncated(float value) {
    constexpr float kTwoTo63 = 9223372036854775808.0f;
    if (std::isnan(value)) return 0;
    const std::int64_t whole = value >= kTwoTo63   ? INT64_MAX
                               : value < -kTwoTo63 ? INT64_MIN
                                                   : static_cast<std::int64_t>(value);
    return static_cast<Stored>(whole);
}

template <class Stored>
Heap<unsigned char[]> encode(const KSCbk& codebook) {
    const std::int64_t components = std::int64_t{codebook.nNumVects} * codebook.nNumBands;
    Heap<unsigned char[]> bytes = allocateArray<unsigned char>(components, std::int64_t{sizeof(Stored)});
    if (!bytes) return nullptr;
    Stored* stored = reinterpret_cast<Stored*>(bytes.get());
    std::transform(codebook.pafCodebook, codebook.pafCodebook + components, stored, truncated<Stored>);
    return bytes;
}

/// The codebook in a stored integer type; null when there is no memory.
Heap<unsigned char[]> encodeAs(int type, const KSCbk& codebook) {
    switch (type) {
        case kUint8:
            return encode<std::uint8_t>(codebook);
        case kInt16:
            return encode<std::int16_t>(codebook);
        default:
            return encode<std::uint16_t>(codebook);
    }
}

/// Puts the codebook into the cube that a handle's name points at: the file's name, up to the first colon.
int putCodebook(const KSDataSet& dataSet, const KSCbk& codebook, const int* channels, const void* values) {
    HostFile* cube = firstCubeChannel(dataSet);
    if (cube == nullptr) return KS_FAIL("%s: pDataSet->VQubeInfo.papfVQChan[0] = NULL", kWriteLabel);
    const HostStringList tokens = TokenizeDelim(fp2filename(cube), ":");
    if (tokens == nullptr) return KS_DEBUG_FAIL("%s: TokenizeDelim () failed", kWriteLabel);
    const int written = VQubePutCodeBook(tokens[0], dataSet.VQubeInfo.nCodeVectors, dataSet.VQubeInfo.nDataType,
                                         codebook.nNumBands, dataSet.Sensor.nNumBands, channels, values);
    DestroyStringList(tokens);
    return written != 0 ? kOk : kFailed;
}

int writeCodebook(const KSDataSet& dataSet, const KSCbk& codebook) {
    const int bands = std::max(dataSet.Sensor.nNumBands, 0);
    const Heap<int[]> channels = allocateArray<int>(bands);
    if (!channels) return KS_DEBUG_FAIL("%s: panChans == NULL, HMalloc () failed\n", kWriteLabel);
    for (int b = 0; b < bands; ++b) channels[static_cast<std::size_t>(b)] = dataSet.pBandRefs[b].nChan;

    const int type = dataSet.VQubeInfo.nDataType;
    if (type == kFloat32) return putCodebook(dataSet, codebook, channels.get(), codebook.pafCodebook);
    const Heap<unsigned char[]> stored = encodeAs(type, codebook);
    if (!stored) return KS_DEBUG_FAIL("%s: pBuf == NULL, HMalloc () failed\n", kWriteLabel);
    return putCodebook(dataSet, codebook, channels.get(), stored.get());
}

// ---- copying ----

/// Where each destination component is found in a source code vector.
int mapComponents(const KSCbk& source, const KSCbk& destination, int* componentMap, const char* label) {
    const int* begin = source.panBandMap;
    const int* end = begin != nullptr ? begin + std::max(source.nNumBands, 0) : begin;
    for (int j = 0; j < destination.nNumBands; ++j) {
        const int* found = destination.panBandMap != nullptr ? std::find(begin, end, destination.panBandMap[j]) : end;
        if (found == end) {
            return KS_FAIL("%s: destination band vector component %d does not match a source band vector component\n",
                           label, j);
        }
        componentMap[j] = static_cast<int>(found - begin);
    }
    return kOk;
}

bool outside(int codeVector, const KSCbk& codebook) { return codeVector < 0 || codeVector >= codebook.nNumVects; }

}  // namespace

extern "C" {

KSCbk* KSInitCbk(KSCbk* pCbk) {
    *pCbk = KSCbk{};
    return pCbk;
}

int KSAllocCbk(KSCbk* pCbk) {
    constexpr const char* kLabel = "KSAllocCbk()";
    if (pCbk == nullptr) return KS_FAIL("%s: pCbk == NULL\n", kLabel);
    const int bands = pCbk->nNumBands;
    const int vectors = pCbk->nNumVects;
    pCbk->panBandMap = nullptr;
    pCbk->pafCodebook = nullptr;
    pCbk->papafCodeVect = nullptr;

    if (bands > 0) {
        pCbk->panBandMap = allocateArray<int>(bands).release();
        if (pCbk->panBandMap == nullptr) return KS_FAIL("%s: pCbk->panBandMap == NULL, HMalloc() failed\n", kLabel);
    }
    if (bands > 0 && vectors > 0) {
        pCbk->pafCodebook = allocateArray<float>(std::int64_t{vectors}, std::int64_t{bands}).release();
        if (pCbk->pafCodebook == nullptr) {
            freeAndClear(pCbk->panBandMap);
            return KS_FAIL("%s: pCbk->pafCodebook == NULL, HMalloc() failed\n", kLabel);
        }
    }
    if (vectors > 0) {
        pCbk->papafCodeVect = allocateArray<float*>(vectors).release();
        if (pCbk->papafCodeVect == nullptr) {
            freeAndClear(pCbk->pafCodebook);
            return KS_FAIL("%s: pCbk->papafCodeVect == NULL, HMalloc() failed\n", kLabel);
        }
        for (int v = 0; v < vectors; ++v) {
            const bool filled = pCbk->pafCodebook != nullptr;
            pCbk->papafCodeVect[v] = filled ? pCbk->pafCodebook + std::ptrdiff_t{v} * bands : nullptr;
        }
    }
    return kOk;
}

int KSFreeCbk(KSCbk* pCbk) {
    if (pCbk == nullptr) return KS_FAIL("%s: pCbk == NULL\n", "KSFreeCbk()");
    freeAndClear(pCbk->pafCodebook);
    freeAndClear(pCbk->papafCodeVect);
    freeAndClear(pCbk->panBandMap);
    return kOk;
}

int KSReadCbk(const KSDataSet* pDataSet, KSCbk* pCbk) {
    if (checkRead(pDataSet, pCbk) != kOk) return kFailed;
    if (checkReadBands(*pDataSet, *pCbk) != kOk) return kFailed;
    if (checkPositions(*pDataSet, *pCbk) != kOk) return kFailed;
    return readCodebook(*pDataSet, *pCbk);
}

int KSWriteCbk(const KSDataSet* pDataSet, const KSCbk* pCbk) {
    if (checkWriteFile(pDataSet, pCbk) != kOk) return kFailed;
    int result = kOk;
    // A data set without bands is reported and still handed on: the host has the last word on what it writes.
    if (pDataSet->Sensor.nNumBands < 1) result = KS_DEBUG_FAIL("%s: pDataSet->Sensor.nNumBands < 1\n", kWriteLabel);
    if (checkWriteCodebook(*pDataSet, *pCbk) != kOk) return kFailed;
    return writeCodebook(*pDataSet, *pCbk) == kOk ? result : kFailed;
}

int KSCopyCbk(const KSCbk* pCbkSrc, KSCbk* pCbkDst) {
    constexpr const char* kLabel = "KSCopyCbk ()";
    if (pCbkSrc == nullptr) return KS_FAIL("%s: pCbkSrc == NULL\n", kLabel);
    if (pCbkDst == nullptr) return KS_FAIL("%s: pCbkDst == NULL\n", kLabel);
    if (pCbkSrc->nNumVects != pCbkDst->nNumVects) {
        return KS_FAIL("%s: pCbkSrc->nNumVects != pCbkDst->nNumVects\n", kLabel);
    }
    const Heap<int[]> componentMap = allocateArray<int>(std::max(pCbkDst->nNumBands, 0));
    if (!componentMap) return KS_FAIL("%s: pnCompMap == NULL, HMalloc () failed\n", kLabel);
    if (mapComponents(*pCbkSrc, *pCbkDst, componentMap.get(), kLabel) != kOk) return kFailed;
    const Vector source = makeVector(pCbkSrc->nNumBands);
    if (!source) return KS_FAIL("%s: failed to allocate pCodeVectSrc\n", kLabel);
    const Vector destination = makeVector(pCbkDst->nNumBands);
    if (!destination) return KS_FAIL("%s: failed to allocate pCodeVectDst\n", kLabel);

    for (int v = 0; v < pCbkSrc->nNumVects; ++v) {
        if (KSExtractVectCbk(source.get(), pCbkSrc, v) != kOk) {
            return KS_FAIL("%s failed to extract codevector %d from pCbkSrc\n", kLabel, v);
        }
        for (int j = 0; j < pCbkDst->nNumBands; ++j) {
            destination->ve[j] = source->ve[componentMap[static_cast<std::size_t>(j)]];
        }
        if (KSInsertVectCbk(destination.get(), pCbkDst, v) != kOk) {
            return KS_FAIL("%s failed to insert codevector %d into pCbkDst\n", kLabel, v);
        }
    }
    return kOk;
}

int KSExtractVectCbk(VEC* pCodeVect, const KSCbk* pCbk, int nCodeVect) {
    constexpr const char* kLabel = "ExtractVectCbk()";
    if (pCodeVect == nullptr) return KS_FAIL("%s: pCodeVect == NULL\n", kLabel);
    if (pCbk == nullptr) return KS_FAIL("%s: pCbk == NULL\n", kLabel);
    if (outside(nCodeVect, *pCbk)) return KS_FAIL("%s: nCodeVect >= pCbk->nNumVects || nCodeVect < 0\n", kLabel);
    if (static_cast<int>(pCodeVect->dim) != pCbk->nNumBands) {
        return KS_FAIL("%s: pCodeVect->dim != (u_int) (pCbk->nNumBands)\n", kLabel);
    }
    if (pCbk->papafCodeVect == nullptr) return KS_FAIL("%s: pCbk->papafCodeVect == NULL\n", kLabel);
    const float* codeVector = pCbk->papafCodeVect[nCodeVect];
    for (int j = 0; j < pCbk->nNumBands; ++j) pCodeVect->ve[j] = static_cast<double>(codeVector[j]);
    return kOk;
}

int KSInsertVectCbk(const VEC* pCodeVect, KSCbk* pCbk, int nCodeVect) {
    constexpr const char* kLabel = "InsertVectCbk()";
    if (pCodeVect == nullptr) return KS_FAIL("%s: pCodeVect == NULL\n", kLabel);
    if (pCbk == nullptr) return KS_FAIL("%s: pCbk == NULL\n", kLabel);
    if (outside(nCodeVect, *pCbk)) return KS_FAIL("%s: nCodeVect >= pCbk->nNumVects || nCodeVect < 0\n", kLabel);
    if (static_cast<int>(pCodeVect->dim) != pCbk->nNumBands) {
        return KS_FAIL("%s: pCodeVect->dim != pCbk->nNumBands\n", kLabel);
    }
    if (pCbk->papafCodeVect == nullptr) return KS_FAIL("%s: pCbk->papafCodeVect == NULL\n", kLabel);
    float* codeVector = pCbk->papafCodeVect[nCodeVect];
    for (int j = 0; j < pCbk->nNumBands; ++j) codeVector[j] = static_cast<float>(pCodeVect->ve[j]);
    return kOk;
}

}  // extern "C"
