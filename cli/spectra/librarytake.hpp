// Spectra of places in an image: the mean over a region.
#pragma once

#include <string>
#include <vector>

#include "image/dataset.hpp"
#include "spectra/speclib.hpp"

namespace kscli {

struct TakeRequest {
    std::vector<std::string> regions;  // as users write them
    std::vector<std::string> names;    // of the spectra, in order; the rest are named after their regions
    std::string bands = "all";
    int level = -1;
};

/// One spectrum for each region, over its pixels that hold data.
std::vector<LibrarySpectrum> takeSpectra(const DataSet& image, const std::string& imageName,
                                         const TakeRequest& request);

}  // namespace kscli
