#include "spectra/speclib.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <unistd.h>

#include "app/gaps.hpp"
#include "app/output.hpp"
#include "app/staging.hpp"
#include "app/texttable.hpp"
#include "spectra/rawspectrum.hpp"
#include "spectra/speclayer.hpp"
#include "spectra/speclibtable.hpp"
#include "spectra/speclibtext.hpp"

namespace fs = std::filesystem;

namespace kscli {
namespace {

void checkReadable(const std::string& name) {
    std::error_code ec;
    if (name.empty()) fail("the library has no name; give the path of a file.");
    if (!fs::exists(name, ec)) fail("{}: no such file. Check the path.", name);
    if (fs::is_directory(name, ec)) fail("{} is a folder. Name the files in it, such as {}/*.txt.", name, name);
    if (lowerExtension(name) == ".hdr") fail("{} is a header. Give the path of the file beside it.", name);
    if (fs::is_regular_file(name, ec) && fs::file_size(name, ec) == 0) fail("{} is empty (0 bytes).", name);
    if (access(name.c_str(), R_OK) != 0) fail("{} cannot be read: {}.", name, std::strerror(errno));
}

// Numbers stored as bytes hold zero bytes long before this many are seen.
bool isText(const std::string& name) {
    std::string start(65536, '\0');
    std::ifstream stream(name, std::ios::binary);
    stream.read(start.data(), static_cast<std::streamsize>(start.size()));
    start.resize(static_cast<std::size_t>(stream.gcount()));
    return std::none_of(start.begin(), start.end(), [](char c) { return c >= 0 && c < ' ' && !std::isspace(c); });
}

std::vector<RawSpectrum> readText(const std::string& name, const std::string& wavelengthFile) {
    const std::vector<std::string> lines = textLinesOf(name);
    switch (kindOfSpectrumText(lines)) {
        case SpectrumText::ecostress:
            return {readEcostress(lines, name)};
        case SpectrumText::usgs:
            return {readUsgs(lines, name, wavelengthFile)};
        default:
            break;
    }
    if (isTextTable(lines)) return readSpectraTable(lines, name);
    return {readColumns(lines, name)};
}

}  // namespace

bool LibrarySpectrum::isUsable(std::size_t i) const {
    return values[i] != kMaskedValue && std::isfinite(values[i]) && quality[i] != KS_BQ_MASK &&
           quality[i] != KS_BQ_SKIP;
}

bool LibrarySpectrum::isGapBefore(std::size_t i) const { return kscli::isGapBefore(wavelengths, i); }

std::vector<LibrarySpectrum> readLibrary(const std::string& name, const std::string& wavelengthFile) {
    checkReadable(name);
    if (lowerExtension(name) != ".sli" && isText(name)) return finishSpectra(readText(name, wavelengthFile), name);
    return readLayerFile(name);
}

bool isLibraryFile(const std::string& name) {
    std::error_code ec;
    if (!fs::exists(name, ec)) return false;  // perhaps a variable in a file, which only images have
    checkReadable(name);
    return lowerExtension(name) == ".sli" || isText(name) || isLayerFile(name);
}

float wholeThousandths(double wavelengthNm) {
    const auto rounded = static_cast<float>(std::round(wavelengthNm * 1000) / 1000);
    // Names of fields cut the fraction off a wavelength and print it apart: one that would print as a whole is one.
    const float whole = std::floor(rounded);
    return rounded - whole >= 0.9995F ? whole + 1 : rounded;
}

bool sameWavelengths(const LibrarySpectrum& a, const LibrarySpectrum& b) { return a.wavelengths == b.wavelengths; }

bool haveOneGrid(const std::vector<LibrarySpectrum>& spectra) {
    return std::all_of(spectra.begin(), spectra.end(),
                       [&](const LibrarySpectrum& spectrum) { return sameWavelengths(spectrum, spectra[0]); });
}

std::string gridText(const LibrarySpectrum& spectrum) {
    return fmt::format("{} to {} nm, {} values", shortest(spectrum.wavelengths.front()),
                       shortest(spectrum.wavelengths.back()), spectrum.size());
}

}  // namespace kscli
