// Small questions about lists of bands and channels that several parts of the module ask.
#pragma once

#include <kslib/ksdatset.h>

#include <algorithm>

namespace ks {

/// Whether a value is among the first `count` of a list that may be null.
inline bool contains(const int* values, int count, int value) {
    return values != nullptr && count > 0 && std::find(values, values + count, value) != values + count;
}

/// The response of a band; a data set without responses knows none.
inline int respType(const KSSensor& sensor, int band) {
    return sensor.pBandResp != nullptr ? sensor.pBandResp[band].eRespType : static_cast<int>(KS_RT_UNKNOWN);
}

}  // namespace ks
