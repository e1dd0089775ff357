// Classic netCDF files by their own header: how far their data reach. The netCDF library reads zeros where a file ends
// too early, so that a copy that was broken off would pass as an image with dark ground.
#pragma once

#include <cstdint>
#include <istream>
#include <string>

namespace kshost {

/// Whether a file of `size` bytes ends before the last value that its header announces, or within the header. No for
/// what is no classic netCDF file.
bool isCutShort(std::istream& file, std::uint64_t size);
bool isCutShort(const std::string& path);

}  // namespace kshost
