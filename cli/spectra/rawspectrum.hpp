// What readers of spectra find in files, and the one way from there to a spectrum: nanometres, increasing, each
// wavelength once, missing values masked.
#pragma once

#include <string>
#include <vector>

#include "app/report.hpp"
#include "spectra/speclib.hpp"

namespace kscli {

enum class WavelengthUnit { unknown, nanometres, micrometres, wavenumbers };

/// The unit that a text such as "Wavelength (micrometers)" names.
WavelengthUnit wavelengthUnitIn(const std::string& text);

struct RawSpectrum {
    std::string name;
    int quantity = KS_RQ_UNKNOWN;
    WavelengthUnit unit = WavelengthUnit::unknown;
    std::vector<double> wavelengths;  // in that unit, in any order
    std::vector<double> values;       // not-a-numbers and masked values are missing
    std::vector<int> quality;         // empty: plot
};

/// Turns what was read from one file into spectra, and says once what had to be guessed or merged.
std::vector<LibrarySpectrum> finishSpectra(std::vector<RawSpectrum> raw, const std::string& file);

/// A file that goes with spectra and holds none itself.
struct NotASpectrum : Failure {
    using Failure::Failure;
};

}  // namespace kscli
