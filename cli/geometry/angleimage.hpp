// Angles on the pixels of an image, and as texts.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "image/dataset.hpp"

namespace kscli {

struct AngleImage {
    std::string input;
    std::string output;
    bool force = false;
    std::vector<std::string> bands;  // what each is called
    std::string history;
    double bytesPerPixel = 0;  // that filling needs beside the samples
};

/// Makes an image of float bands with the size and the place of a source, whole or not at all.
/// fill(firstRow, window) gives the angles of whole rows; not-a-number is "no data".
void writeAngleImage(const DataSet& source, const AngleImage& image,
                     const std::function<void(int firstRow, Window& window)>& fill);

/// Whether a name is one of a table, not of an image.
bool isTableName(const std::string& name);

/// In thousandths of a degree; empty when it is not known.
std::string angleText(double degrees);
/// The same for an azimuth, which stays below 360.
std::string azimuthText(double degrees);

}  // namespace kscli
