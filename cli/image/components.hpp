// Images whose bands are not those of an instrument but were computed from another image: components, fractions.
#pragma once

#include "image/copyplan.hpp"
#include "image/dataset.hpp"

namespace kscli {

/// Bands that are numbered and nothing else: no response, no quality, no calibration.
DataSet describeComponents(const DataSet& source, int count);

/// The file-level entries of the source that hold for such an image too.
Items fileEntriesOfComponents(const DataSet& source);

}  // namespace kscli
