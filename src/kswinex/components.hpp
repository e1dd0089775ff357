// Where the components of one sample lie in a window.
#pragma once

#include <kslib/kswinex.h>

#include <cstddef>

namespace ks {

/// The components of one sample: the first one and the distance to the next.
struct Components {
    float* first;
    std::ptrdiff_t step;
};

/// The window holds sample (x, y) and has an interleave and start array.
inline Components componentsOf(const KSWinEx& window, int x, int y) {
    const std::ptrdiff_t across = window.nNumXSamples;
    switch (window.eBandIntlv) {
        case KS_INTLV_BAND:
            return {window.papafStart[0] + (across * y + x), across * window.nNumYSamples};
        case KS_INTLV_LINE:
            return {window.papafStart[y] + x, across};
        default:
            return {window.papafStart[y] + std::ptrdiff_t{window.SampDesc.nNumBands} * x, 1};
    }
}

}  // namespace ks
