// Spectral libraries in memory, whatever file they come from.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <kslib.h>

namespace kscli {

/// Stands where a value is missing; its quality is KS_BQ_MASK.
constexpr double kMaskedValue = -1.23e34;

struct LibrarySpectrum {
    std::string name;
    int quantity = KS_RQ_UNKNOWN;
    std::vector<float> wavelengths;  // nm in whole thousandths, increasing
    std::vector<double> values;
    std::vector<int> quality;  // KS_BQ_..., one for each value
    std::string sourceFile;    // image that the values were taken from
    std::string region;        // where in it, as the library writes regions

    std::size_t size() const { return values.size(); }
    /// The value is there and nobody marked it as bad.
    bool isUsable(std::size_t i) const;
    /// Wavelengths are left out between a value (not the first) and the one before it: the step is far wider than those
    /// on either side.
    bool isGapBefore(std::size_t i) const;
};

/// Reads a library: .sli, a file of layers made by this application, ECOSTRESS or ASTER text, USGS ASCII, CSV, or an
/// image of one spectrum a line. wavelengthFile goes with USGS ASCII; when empty it is looked for beside the file.
/// Throws a Failure that says what is wrong and which formats are known.
std::vector<LibrarySpectrum> readLibrary(const std::string& name, const std::string& wavelengthFile = "");

/// Whether a file is a library rather than an image: text, a .sli, or a file of layers without channels.
bool isLibraryFile(const std::string& name);

/// A wavelength as libraries keep it: whole thousandths of a nanometre.
float wholeThousandths(double wavelengthNm);

bool sameWavelengths(const LibrarySpectrum& a, const LibrarySpectrum& b);
/// All spectra have the wavelengths of the first one.
bool haveOneGrid(const std::vector<LibrarySpectrum>& spectra);

/// "350 to 2500 nm, 2151 values".
std::string gridText(const LibrarySpectrum& spectrum);

}  // namespace kscli
