// Windows and files: one multi-channel transfer each way, always pixel-interleaved, with one gain and offset per band.
// Values are multiplied then added, subtracted then divided, in single precision, each step rounded.
#include <kslib/kswinex.h>

#include <kslib/ksdatset.h>
#include <kslib/ksradtrans.h>

#include <algorithm>
#include <cstdint>

#include "support/heap.hpp"
#include "support/radtrans.hpp"
#include "support/report.hpp"

using namespace ks;

namespace {

constexpr const char* kReadLabel = "KSReadWinEx()";
constexpr const char* kWriteLabel = "KSWriteWinEx()";
enum HostMode { kHostRead = 0, kHostWrite = 1 };

/// Gain and offset of each window component; null arrays where the values stay as they are.
struct ComponentTransform {
    Heap<float[]> gains;
    Heap<float[]> offsets;
};

std::int64_t samplesOf(const KSWinEx& window) { return std::int64_t{window.nNumXSamples} * window.nNumYSamples; }

bool reachesBeyond(int offset, int size, int limit) { return std::int64_t{offset} + size > limit; }

int checkBandMap(const KSDataSet& dataSet, const KSWinEx& window, const char* label) {
    if (dataSet.pBandRefs == nullptr) return KS_FAIL("%s: pDataSet->pBandRefs == NULL.\n", label);
    for (int j = 0; j < window.SampDesc.nNumBands; ++j) {
        const int band = window.SampDesc.panBandMap[j];
        if (band < 0 || band >= dataSet.Sensor.nNumBands) {
            return KS_FAIL("%s: pWinEx->SampDesc.panBandMap[%d] (= %d) is outside of valid range.\n", label, j, band);
        }
    }
    return kOk;
}

/// Composes the transforms up to the window's level for all bands of the data set; null after a report.
RadTrans combinedTransform(const KSDataSet& dataSet, const KSWinEx& window, const char* label) {
    const int bands = dataSet.Sensor.nNumBands;
    RadTrans combined(KSCreateRadTrans(bands));
    if (!combined) return IMPError(83, 0, "%s: pRadTrans == NULL, KSCreateRadTrans() failed.\n", label), nullptr;
    if (KSCombRadTrans(dataSet.papRadTransSeq, window.nRadTransLev, bands, combined.get()) != kOk) {
        return IMPError(83, 0, "%s: KSCombRadTrans() failed.\n", label), nullptr;
    }
    return combined;
}

Heap<int[]> channelMap(const KSDataSet& dataSet, const KSWinEx& window, const char* label) {
    const KSSampDesc& desc = window.SampDesc;
    Heap<int[]> channels = allocateArray<int>(desc.nNumBands);
    if (!channels) return IMPError(83, 0, "%s: failed to allocate memory for the channel map array.\n", label), nullptr;
    for (int j = 0; j < desc.nNumBands; ++j) {
        channels[static_cast<std::size_t>(j)] = dataSet.pBandRefs[desc.panBandMap[j]].nChan;
    }
    return channels;
}

void transferWindow(HostMode mode, const KSDataSet& dataSet, const KSWinEx& window, float* buffer,
                    const int* channels) {
    // The host reports what goes wrong in a transfer and keeps count of it.
    GDBRealChanIOLow(dataSet.GDBFile, mode, window.nXOff, window.nYOff, window.nXSize, window.nYSize, buffer,
                     window.nNumXSamples, window.nNumYSamples, window.SampDesc.nNumBands, channels);
}

/// Calls action(x0, x1, b0, b1) for tiles of samples by bands, one cache line each way, so that rows that lie a power
/// of two apart do not evict each other while they become columns.
template <class Action>
void forEachTile(int samples, int bands, Action action) {
    constexpr int kTile = 16;
    for (int b = 0; b < bands; b += kTile) {
        for (int x = 0; x < samples; x += kTile) {
            action(x, std::min(x + kTile, samples), b, std::min(b + kTile, bands));
        }
    }
}

/// The values of component b in sample row y, one after another, in a window that is not pixel-interleaved.
float* componentRow(const KSWinEx& window, int b, int y) {
    const std::ptrdiff_t across = window.nNumXSamples;
    if (window.eBandIntlv == KS_INTLV_LINE) return window.papafStart[y] + b * across;
    return window.papafStart[b] + y * across;
}

/// Where sample row y begins in a pixel-interleaved buffer.
std::ptrdiff_t pixelRow(const KSWinEx& window, int y) {
    return std::ptrdiff_t{y} * window.nNumXSamples * window.SampDesc.nNumBands;
}

// ---- reading ----

int checkRead(const KSDataSet* dataSet, const KSWinEx* window) {
    constexpr const char* label = kReadLabel;
    if (dataSet == nullptr) return KS_FAIL("%s: pDataSet == NULL.\n", label);
    if (window == nullptr) return KS_FAIL("%s: pWinEx == NULL.\n", label);
    const KSSampDesc& desc = window->SampDesc;
    if (desc.nXSampleInt <= 0) return KS_FAIL("%s: pWinEx->SampDesc.nXSampleInt <= 0.\n", label);
    if (desc.nYSampleInt <= 0) return KS_FAIL("%s: pWinEx->SampDesc.nYSampleInt <= 0.\n", label);
    if (window->nXOff < 0) return KS_FAIL("%s: pWinEx->nXOff < 0.\n", label);
    if (window->nYOff < 0) return KS_FAIL("%s: pWinEx->nYOff < 0.\n", label);
    if (reachesBeyond(window->nXOff, window->nXSize, dataSet->nXSize)) {
        return KS_FAIL("%s: pWinEx->nXOff + pWinEx->nXSize > pDataSet->nXSize.\n", label);
    }
    if (reachesBeyond(window->nYOff, window->nYSize, dataSet->nYSize)) {
        return KS_FAIL("%s: pWinEx->nYOff (%d) + pWinEx->nYSize (%d) > pDataSet->nYSize (%d).\n", label, window->nYOff,
                       window->nYSize, dataSet->nYSize);
    }
    if (desc.nNumBands <= 0) return KS_FAIL("%s: pWinEx->SampDesc.nNumBands <= 0.\n", label);
    if (desc.panBandMap == nullptr) return KS_FAIL("%s: pWinEx->SampDesc.panBandMap == NULL.\n", label);
    if (window->nRadTransLev > dataSet->nNumRadTrans) {
        return KS_FAIL("%s: pWinEx->nRadTransLev > pDataSet->nNumRadTrans.\n", label);
    }
    if (window->nNumXSamples != window->nXSize / desc.nXSampleInt) {
        return KS_FAIL("%s: pWinEx->nNumXSamples != pWinEx->nXSize / pWinEx->SampDesc.nXSampleInt.\n", label);
    }
    if (window->nNumYSamples != window->nYSize / desc.nYSampleInt) {
        return KS_FAIL("%s: pWinEx->nNumYSamples != pWinEx->nYSize / pWinEx->SampDesc.nYSampleInt.\n", label);
    }
    if (window->papafStart == nullptr) return KS_FAIL("%s: pWinEx->papafStart == NULL.\n", label);
    if (window->pafSamples == nullptr) return KS_FAIL("%s: pWinEx->pafSamples == NULL.\n", label);
    return kOk;
}

int readTransform(const KSDataSet& dataSet, const KSWinEx& window, ComponentTransform& transform) {
    if (window.nRadTransLev < 1) return kOk;
    const RadTrans combined = combinedTransform(dataSet, window, kReadLabel);
    if (!combined) return kFailed;
    const KSSampDesc& desc = window.SampDesc;
    transform.gains = allocateArray<float>(desc.nNumBands);
    if (!transform.gains) return KS_FAIL("%s: pafGains == NULL, HMalloc() failed.\n", kReadLabel);
    transform.offsets = allocateArray<float>(desc.nNumBands);
    if (!transform.offsets) return KS_FAIL("%s: pafOffsets == NULL, HMalloc() failed.\n", kReadLabel);
    for (int j = 0; j < desc.nNumBands; ++j) {
        transform.gains[static_cast<std::size_t>(j)] = combined->pafGains[desc.panBandMap[j]];
        transform.offsets[static_cast<std::size_t>(j)] = combined->pafOffsets[desc.panBandMap[j]];
    }
    return kOk;
}

void applyToRow(const ComponentTransform& transform, int samples, int bands, float* __restrict values) {
    const float* __restrict gains = transform.gains.get();
    const float* __restrict offsets = transform.offsets.get();
    for (int x = 0; x < samples; ++x, values += bands) {
        for (int j = 0; j < bands; ++j) values[j] = gains[j] * values[j] + offsets[j];
    }
}

/// Moves a pixel-interleaved row into the window's own interleave.
void placeRow(const float* pixels, const KSWinEx& window, int y) {
    const int bands = window.SampDesc.nNumBands;
    forEachTile(window.nNumXSamples, bands, [&](int x0, int x1, int b0, int b1) {
        for (int b = b0; b < b1; ++b) {
            float* row = componentRow(window, b, y);
            for (int x = x0; x < x1; ++x) row[x] = pixels[std::ptrdiff_t{x} * bands + b];
        }
    });
}

int readSamples(const KSDataSet& dataSet, KSWinEx& window) {
    ComponentTransform transform;
    if (readTransform(dataSet, window, transform) != kOk) return kFailed;

    const int bands = window.SampDesc.nNumBands;
    const bool ownBuffer = window.eBandIntlv != KS_INTLV_PIXEL;
    Heap<float[]> temporary;
    if (ownBuffer) {
        temporary = allocateArray<float>(std::int64_t{bands}, samplesOf(window));
        if (!temporary) return KS_FAIL("%s: pBuf == NULL.\n", kReadLabel);
    }
    float* buffer = ownBuffer ? temporary.get() : window.pafSamples;
    const Heap<int[]> channels = channelMap(dataSet, window, kReadLabel);
    if (!channels) return kFailed;

    transferWindow(kHostRead, dataSet, window, buffer, channels.get());
    for (int y = 0; y < window.nNumYSamples; ++y) {
        float* pixels = buffer + pixelRow(window, y);
        if (transform.gains) applyToRow(transform, window.nNumXSamples, bands, pixels);
        if (ownBuffer) placeRow(pixels, window, y);
    }
    return kOk;
}

// ---- writing ----

int checkWrite(const KSDataSet* dataSet, const KSWinEx* window) {
    constexpr const char* label = kWriteLabel;
    if (dataSet == nullptr) return KS_FAIL("%s: pDataSet == NULL.\n", label);
    if (window == nullptr) return KS_FAIL("%s: pWinEx == NULL.\n", label);
    const KSSampDesc& desc = window->SampDesc;
    if (desc.nXSampleInt != 1) return KS_FAIL("%s: pWinEx->SampDesc.nXSampleInt != 1.\n", label);
    if (desc.nYSampleInt != 1) return KS_FAIL("%s: pWinEx->SampDesc.nYSampleInt != 1.\n", label);
    if (window->nXOff < 0) return KS_FAIL("%s: pWinEx->nXOff < 0.\n", label);
    if (window->nYOff < 0) return KS_FAIL("%s: pWinEx->nYOff < 0.\n", label);
    if (reachesBeyond(window->nXOff, window->nXSize, dataSet->nXSize)) {
        return KS_FAIL("%s: pWinEx->nXOff + pWinEx->nXSize > pDataSet->nXSize.\n", label);
    }
    if (reachesBeyond(window->nYOff, window->nYSize, dataSet->nYSize)) {
        return KS_FAIL("%s: pWinEx->nYOff + pWinEx->nYSize > pDataSet->nXSize.\n", label);
    }
    if (desc.nNumBands <= 0) return KS_FAIL("%s: pWinEx->SampDesc.nNumBands <= 0.\n", label);
    if (desc.panBandMap == nullptr) return KS_FAIL("%s: pWinEx->SampDesc.panBandMap == NULL.\n", label);
    if (window->nRadTransLev > dataSet->nNumRadTrans) {
        return KS_FAIL("%s: pWinEx->nRadTransLev > pDataSet->nNumRadTrans.\n", label);
    }
    if (checkBandMap(*dataSet, *window, label) != kOk) return kFailed;
    for (int j = 0; j < desc.nNumBands; ++j) {
        if (dataSet->pBandRefs[desc.panBandMap[j]].eStorage != KS_STORE_EXPLICIT) {
            return KS_FAIL("%s: window contains data for a band %d, which is not stored in explicit format.\n", label,
                           desc.panBandMap[j] + 1);
        }
    }
    return kOk;
}

/// What the checks leave to chance: buffers to read from, and a transform as long as the window's band vectors.
int checkWriteArrays(const KSDataSet& dataSet, const KSWinEx& window) {
    if (window.pafSamples == nullptr) return KS_FAIL("%s: pWinEx->pafSamples == NULL.\n", kWriteLabel);
    if (window.eBandIntlv != KS_INTLV_PIXEL && window.papafStart == nullptr) {
        return KS_FAIL("%s: pWinEx->papafStart == NULL.\n", kWriteLabel);
    }
    if (window.nRadTransLev >= 1 && window.SampDesc.nNumBands > dataSet.Sensor.nNumBands) {
        return KS_FAIL("%s: pWinEx->SampDesc.nNumBands > pDataSet->Sensor.nNumBands.\n", kWriteLabel);
    }
    return kOk;
}

/// Undoes the transform by component: component j is taken through gain and offset j, whatever its band.
void undoInRow(const KSRadTrans& combined, int samples, int bands, float* __restrict values) {
    const float* __restrict gains = combined.pafGains;
    const float* __restrict offsets = combined.pafOffsets;
    for (int x = 0; x < samples; ++x, values += bands) {
        for (int j = 0; j < bands; ++j) values[j] = (values[j] - offsets[j]) / gains[j];
    }
}

/// Moves one of the window's rows into a pixel-interleaved one.
void gatherRow(const KSWinEx& window, int y, float* pixels) {
    const int bands = window.SampDesc.nNumBands;
    forEachTile(window.nNumXSamples, bands, [&](int x0, int x1, int b0, int b1) {
        for (int b = b0; b < b1; ++b) {
            const float* row = componentRow(window, b, y);
            for (int x = x0; x < x1; ++x) pixels[std::ptrdiff_t{x} * bands + b] = row[x];
        }
    });
}

int writeSamples(const KSDataSet& dataSet, KSWinEx& window) {
    RadTrans combined;
    if (window.nRadTransLev >= 1) {
        combined = combinedTransform(dataSet, window, kWriteLabel);
        if (!combined) return kFailed;
    }
    const int bands = window.SampDesc.nNumBands;
    const bool ownBuffer = window.eBandIntlv != KS_INTLV_PIXEL;
    Heap<float[]> temporary;
    if (ownBuffer) {
        temporary = allocateArray<float>(std::int64_t{bands}, samplesOf(window));
        if (!temporary) return KS_FAIL("%s: pBuf == NULL.\n", kWriteLabel);
    }
    float* buffer = ownBuffer ? temporary.get() : window.pafSamples;
    const Heap<int[]> channels = channelMap(dataSet, window, kWriteLabel);
    if (!channels) return kFailed;

    for (int y = 0; y < window.nNumYSamples; ++y) {
        float* pixels = buffer + pixelRow(window, y);
        if (ownBuffer) gatherRow(window, y, pixels);
        if (combined) undoInRow(*combined, window.nNumXSamples, bands, pixels);
    }
    transferWindow(kHostWrite, dataSet, window, buffer, channels.get());
    return kOk;
}

}  // namespace

extern "C" {

int KSReadWinEx(const KSDataSet* pDataSet, KSWinEx* pWinEx) {
    if (checkRead(pDataSet, pWinEx) != kOk) return kFailed;
    if (pWinEx->nXSize < 1 || pWinEx->nYSize < 1) return kOk;
    if (checkBandMap(*pDataSet, *pWinEx, kReadLabel) != kOk) return kFailed;
    return readSamples(*pDataSet, *pWinEx);
}

int KSWriteWinEx(const KSDataSet* pDataSet, KSWinEx* pWinEx) {
    if (checkWrite(pDataSet, pWinEx) != kOk) return kFailed;
    if (pWinEx->nXSize < 1 || pWinEx->nYSize < 1) return kOk;
    if (checkWriteArrays(*pDataSet, *pWinEx) != kOk) return kFailed;
    return writeSamples(*pDataSet, *pWinEx);
}

}  // extern "C"
