// Any bytes at all as a classic netCDF file: whatever they announce, the look at them ends, and bytes added to a whole
// file leave it whole.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "classicnetcdf.hpp"

namespace {

bool isCutShort(const std::string& bytes) {
    std::istringstream stream(bytes);
    return kshost::isCutShort(stream, bytes.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    if (!isCutShort(bytes) && isCutShort(bytes + std::string(8, '\0')) && size >= 4) __builtin_trap();
    return 0;
}
