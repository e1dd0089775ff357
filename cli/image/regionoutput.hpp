// Regions on their way out: a file of regions with a mask image for its bitmaps, or a mask image alone.
#pragma once

#include <string>
#include <vector>

#include "app/staging.hpp"
#include "image/dataset.hpp"
#include "image/region.hpp"

namespace kscli {

class RegionOutput {
public:
    /// Refuses a name that cannot be written before anything is computed. A name in .roi or .txt is a file of regions,
    /// any other a mask image, with one channel for each region and in the place of the image that they belong to.
    RegionOutput(const DataSet& dataSet, const std::string& cube, const std::string& name, bool force);

    /// Writes and publishes. Bitmaps are numbered by their channels in the mask image, from 1.
    void write(std::vector<NamedRegion>& regions, const std::string& history);

private:
    void writeText(const std::vector<NamedRegion>& regions) const;
    void writeMask(const std::vector<const NamedRegion*>& regions, const std::string& path,
                   const std::string& history) const;

    const DataSet& dataSet_;
    std::string cube_;
    std::string name_;
    bool isText_;
    Staging staging_;
};

}  // namespace kscli
