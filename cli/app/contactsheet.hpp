// Small grey pictures side by side in one PNG.
#pragma once

#include <string>
#include <vector>

namespace kscli {

/// Pictures of one size, row after row; NaN where there is no data.
struct Tiles {
    int width = 0;
    int height = 0;
    std::vector<std::vector<float>> pictures;
};

/// Writes them from left to right and from top to bottom, each stretched from its 2nd to its 98th percentile; what
/// holds no data is black. Throws a Failure.
void writeContactSheet(Tiles tiles, const std::string& name);

}  // namespace kscli
