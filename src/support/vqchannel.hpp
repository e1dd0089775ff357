// The handle that stands for a data set's cube.
#pragma once

#include <kslib/ksdatset.h>

namespace ks {

/// The first channel of the cube, or null; a data set without the list has none.
inline HostFile* firstCubeChannel(const KSDataSet& dataSet) {
    return dataSet.VQubeInfo.papfVQChan != nullptr ? dataSet.VQubeInfo.papfVQChan[0] : nullptr;
}

}  // namespace ks
