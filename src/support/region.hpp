// Ownership of a region of interest.
#pragma once

#include <kslib/ksroi.h>

#include <memory>

namespace ks {

struct ROIDeleter {
    void operator()(KSROI* region) const { KSFreeROI(region); }
};
using Region = std::unique_ptr<KSROI, ROIDeleter>;

}  // namespace ks
