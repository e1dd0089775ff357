// Windows for tests, and the interleaves written out plainly.
#pragma once

#include <kslib.h>

#include <algorithm>
#include <vector>

namespace kit {

constexpr int kInterleaves[] = {KS_INTLV_BAND, KS_INTLV_PIXEL, KS_INTLV_LINE};

/// An initialised window of a size in samples at intervals of 1, not yet allocated.
inline KSWinEx windowOf(int interleave, int width, int height, int bands) {
    KSWinEx window;
    KSInitWinEx(&window);
    window.eBandIntlv = interleave;
    window.nXSize = width;
    window.nYSize = height;
    window.SampDesc.nXSampleInt = 1;
    window.SampDesc.nYSampleInt = 1;
    window.SampDesc.nNumBands = bands;
    return window;
}

/// The same, allocated and mapped to the given bands.
inline KSWinEx allocatedWindow(int interleave, int width, int height, const std::vector<int>& bandMap) {
    KSWinEx window = windowOf(interleave, width, height, static_cast<int>(bandMap.size()));
    KSAllocWinEx(&window);
    std::copy(bandMap.begin(), bandMap.end(), window.SampDesc.panBandMap);
    return window;
}

/// Component b of sample (x, y).
inline float& component(const KSWinEx& window, int x, int y, int b) {
    const int bands = window.SampDesc.nNumBands;
    const int across = window.nNumXSamples;
    const int down = window.nNumYSamples;
    switch (window.eBandIntlv) {
        case KS_INTLV_PIXEL:
            return window.pafSamples[(y * across + x) * bands + b];
        case KS_INTLV_LINE:
            return window.pafSamples[(y * bands + b) * across + x];
        default:
            return window.pafSamples[(b * down + y) * across + x];
    }
}

}  // namespace kit
