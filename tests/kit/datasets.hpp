// Data sets for tests: image files in the fake host, and records put together without a file.
#pragma once

#include <kslib.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "fakehost.hpp"

namespace kit {

constexpr int kFileLevel = 1;
constexpr int kChannelLevel = 2;
constexpr int kWholeFile = -1;

template <class T>
T* heapArray(const std::vector<T>& values) {
    T* array = static_cast<T*>(std::malloc(values.empty() ? 1 : values.size() * sizeof(T)));
    std::copy(values.begin(), values.end(), array);
    return array;
}

inline char* heapText(const std::string& text) {
    return heapArray(std::vector<char>(text.c_str(), text.c_str() + text.size() + 1));
}

template <class T>
T* heapRecord() {
    return static_cast<T*>(std::calloc(1, sizeof(T)));
}

inline KSRadTrans* heapTransform(int quantity, const std::vector<float>& gains, const std::vector<float>& offsets) {
    KSRadTrans* transform = heapRecord<KSRadTrans>();
    transform->eRadQuant = quantity;
    transform->pafGains = heapArray(gains);
    transform->pafOffsets = heapArray(offsets);
    return transform;
}

inline void appendTransform(KSDataSet& dataSet, KSRadTrans* transform) {
    const auto count = static_cast<std::size_t>(dataSet.nNumRadTrans) + 1;
    dataSet.papRadTransSeq =
        static_cast<KSRadTrans**>(std::realloc(dataSet.papRadTransSeq, count * sizeof(KSRadTrans*)));
    dataSet.papRadTransSeq[dataSet.nNumRadTrans++] = transform;
}

/// A record of n explicit bands in channels 1..n, Gaussian responses around 400, 410, 420, ... and all else unknown.
inline KSDataSet* heapDataSet(int bands) {
    KSDataSet* dataSet = heapRecord<KSDataSet>();
    dataSet->Sensor.nNumBands = bands;
    const auto count = static_cast<std::size_t>(bands);
    dataSet->pBandRefs = heapArray(std::vector<KSBandRef>(count));
    dataSet->Sensor.peBandQual = heapArray(std::vector<int>(count, KS_BQ_PLOT));
    dataSet->Sensor.pBandResp = heapArray(std::vector<KSBandResp>(count));
    for (int b = 0; b < bands; ++b) {
        dataSet->pBandRefs[b] = {KS_STORE_EXPLICIT, -1, b + 1, 4};
        KSBandResp response{};
        response.eRespType = KS_RT_GAUSSIAN;
        response.fCentre = 400.0F + 10.0F * static_cast<float>(b);
        response.fFWHM = 10.0F;
        dataSet->Sensor.pBandResp[b] = response;
    }
    dataSet->Sensor.fFOVLeft = dataSet->Sensor.fFOVRight = dataSet->Sensor.fFOVFore = dataSet->Sensor.fFOVAft = -1.0F;
    dataSet->Mission = {-1, -1, -1, -1, -1, -1, 1000.0, 1000.0, -10000.0F, 1000.0F, 1000.0F};
    return dataSet;
}

/// Frees a record whole, the transforms that KSFree would leave included.
inline void freeWhole(KSDataSet* dataSet) {
    while (dataSet != nullptr && dataSet->nNumRadTrans > 0) KSDelRadTrans(dataSet);
    KSFree(dataSet);
}

/// The chain of a record, to be freed by a test that lets the library leave it behind.
struct Chain {
    std::vector<KSRadTrans*> transforms;
    KSRadTrans** array;

    explicit Chain(const KSDataSet& dataSet)
        : transforms(dataSet.papRadTransSeq, dataSet.papRadTransSeq + dataSet.nNumRadTrans),
          array(dataSet.papRadTransSeq) {}
    void freeFirst(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) KSFreeRadTrans(transforms[i]);
        std::free(array);
    }
};

}  // namespace kit
