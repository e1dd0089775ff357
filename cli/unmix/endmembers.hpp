// Endmembers for unmixing an image: spectra of a library brought to the image's bands, and means of places in the
// image.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "image/dataset.hpp"

namespace kscli {

struct EndmemberRequest {
    std::string spectraFile;          // a library; empty: none
    std::vector<std::string> select;  // which of its spectra; none: all
    std::vector<std::string> pixels;  // "X,Y"
    std::vector<std::string> regions;
    std::string bands;  // empty: the good ones that all endmembers have values for
    int level = -1;     // below 0: that of the library's quantity, or 0
};

struct Endmembers {
    std::vector<std::string> names;  // each once
    std::vector<int> bands;          // of the image
    int level = 0;
    std::vector<float> matrix;  // a row for each band

    int count() const { return static_cast<int>(names.size()); }
    float at(std::size_t band, std::size_t endmember) const { return matrix[band * names.size() + endmember]; }
    std::vector<const float*> rows() const;
};

/// Gathers them, and says what was done to spectra whose wavelengths are not those of the image. Throws a Failure that
/// names what cannot be matched.
Endmembers gatherEndmembers(const DataSet& image, const std::string& imageName, const EndmemberRequest& request);

/// Warns where values of image and endmembers are so far apart that they are hardly of one kind.
void warnAboutScale(const DataSet& image, const Endmembers& endmembers);

/// Warns where endmembers resemble each other so much that single precision cannot tell them apart; withSum: with the
/// equation for the sum, which outweighs the others.
void warnAboutLikeness(const Endmembers& endmembers, bool withSum);

}  // namespace kscli
