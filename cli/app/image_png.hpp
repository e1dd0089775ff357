// A PNG written row by row, so that a picture of any size needs the memory of one row.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include <png.h>

namespace kscli {

class PngWriter {
public:
    /// components: 1 grey, 3 red-green-blue. Throws a Failure.
    PngWriter(const std::string& name, int width, int height, int components);
    ~PngWriter();
    PngWriter(const PngWriter&) = delete;
    PngWriter& operator=(const PngWriter&) = delete;

    void writeRow(const std::vector<std::uint8_t>& row);
    /// Completes the file; throws a Failure where it could not be stored whole.
    void finish();

private:
    std::string name_;
    std::FILE* stream_ = nullptr;
    png_structp png_ = nullptr;
    png_infop info_ = nullptr;
};

}  // namespace kscli
